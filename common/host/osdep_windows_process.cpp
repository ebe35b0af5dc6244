// The primitives of osdep_host.h on Windows: descriptors and processes.
#include "host/osdep_windows.h"

#include <cstdint>
#include <io.h>
#include <process.h>
#include <string>
#include <vector>

// --- Descriptors

// A process without a console may have none of them.
void host_open_standard_streams() {
    for (FILE *stream : {stdin, stdout, stderr})
        if (_fileno(stream) < 0 || _get_osfhandle(_fileno(stream)) < 0)
            _wfreopen(L"NUL", stream == stdin ? L"r" : L"w", stream);
}

int host_terminal_width(int descriptor) {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    if (_isatty(descriptor) == 0)
        return 0;
    const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    return GetConsoleScreenBufferInfo(console, &info) != 0 ? info.dwSize.X : 80;
}

bool host_is_foreground(int) {
    return true;
}

int host_fileno(FILE *stream) {
    return _fileno(stream);
}

int host_dup(int descriptor) {
    const int duplicate = _dup(descriptor);
    if (duplicate != -1)
        SetHandleInformation(reinterpret_cast<HANDLE>(_get_osfhandle(duplicate)),
                             HANDLE_FLAG_INHERIT, 0);
    return duplicate;
}

int host_dup2(int from, int to) {
    return _dup2(from, to);
}

int host_close(int descriptor) {
    return _close(descriptor);
}

// --- Processes

// The job of started programs, which ends with the last handle to it. That handle is ours, and the
// system closes it when this process ends. Null until there is one.
static HANDLE job = nullptr;

namespace {

// The attribute that puts a started process into the job. Before Windows 10 there is no such
// attribute, and programs outlive this one.
class JobAttribute {
  public:
    JobAttribute() {
        job = make_job();
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        memory.resize(size);
        usable = job != nullptr &&
                 InitializeProcThreadAttributeList(list(), 1, 0, &size) != FALSE &&
                 UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_JOB_LIST, &job,
                                           sizeof job, nullptr, nullptr) != FALSE;
    }
    JobAttribute(const JobAttribute &) = delete;
    JobAttribute &operator=(const JobAttribute &) = delete;
    LPPROC_THREAD_ATTRIBUTE_LIST get() { return usable ? list() : nullptr; }

  private:
    static HANDLE make_job() {
        const HANDLE made = CreateJobObjectW(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(made, JobObjectExtendedLimitInformation, &limits, sizeof limits);
        return made;
    }
    LPPROC_THREAD_ATTRIBUTE_LIST list() {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
    }

    std::vector<char> memory;
    bool usable = false;
};

} // namespace

// Null for the section null. Its handle is kept: without one it would lose its name.
static void *map_section(HANDLE section, size_t size) {
    void *memory =
        section != nullptr ? MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, size) : nullptr;
    if (memory == nullptr)
        system_failure();
    return memory;
}

void *host_make_shared(size_t size, std::string *name) {
    *name = std::string("Local\\") + host_tool_name + "-" + host_unique_seed().get();
    return map_section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                          static_cast<DWORD>(size), to_wide(name->c_str()).c_str()),
                       size);
}

void *host_open_shared(const char *name, size_t size) {
    return map_section(OpenFileMappingW(FILE_MAP_WRITE, FALSE, to_wide(name).c_str()), size);
}

ProcessHandle host_start_process(const char *exe, const char *const *, const char *command_line) {
    static JobAttribute attribute;
    STARTUPINFOEXA startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESHOWWINDOW;
    startup.StartupInfo.wShowWindow = SW_SHOWMAXIMIZED;
    startup.lpAttributeList = attribute.get();
    PROCESS_INFORMATION process = {};
    std::string line = command_line != nullptr ? command_line : ""; // the call may write into it
    if (!CreateProcessA(exe, line.data(), nullptr, nullptr, FALSE,
                        CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                        &startup.StartupInfo, &process)) {
        system_failure();
        return 0;
    }
    CloseHandle(process.hThread);
    return reinterpret_cast<ProcessHandle>(process.hProcess);
}

bool host_await_end(ProcessHandle process, int milliseconds) {
    return WaitForSingleObject(reinterpret_cast<HANDLE>(process),
                               static_cast<DWORD>(milliseconds)) != WAIT_TIMEOUT;
}

// _cwait closes the handle.
bool host_wait_process(ProcessHandle process, int *status) {
    return process != 0 && _cwait(status, process, _WAIT_CHILD) != -1;
}

void host_end_started() {
    if (job != nullptr)
        TerminateJobObject(job, 1);
}

// The job has no signal that its last process has ended.
void host_await_started() {
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION account = {};
    while (job != nullptr &&
           QueryInformationJobObject(job, JobObjectBasicAccountingInformation, &account,
                                     sizeof account, nullptr) &&
           account.ActiveProcesses != 0)
        Sleep(1);
}

// The job does that.
void host_end_with(uint32_t) {}

int host_spawn_wait(const char *path, const char *const *argv) {
    return static_cast<int>(_spawnv(_P_WAIT, path, argv));
}
