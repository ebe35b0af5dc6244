// The primitives of host.h on Windows: descriptors and processes.
#include "host/host_windows.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <io.h>
#include <process.h>
#include <string>
#include <vector>

// --- Descriptors

static UINT old_code_page = 0; // of the console; 0 if it was not changed

static bool is_console(FILE *stream) {
    DWORD mode = 0;
    return GetConsoleMode(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))), &mode) != 0;
}

// A process without a console may have none of the streams. What is printed is UTF-8. Nobody is
// there to answer a box that the system shows for a crash or an empty drive.
void host_open_standard_streams() {
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    for (FILE *stream : {stdin, stdout, stderr})
        if (_fileno(stream) < 0 || _get_osfhandle(_fileno(stream)) < 0)
            _wfreopen(L"NUL", stream == stdin ? L"r" : L"w", stream);
    if ((!is_console(stdout) && !is_console(stderr)) || GetConsoleOutputCP() == CP_UTF8)
        return;
    old_code_page = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    atexit([] { SetConsoleOutputCP(old_code_page); });
}

// The null device is a terminal to the C runtime.
int host_terminal_width(int descriptor) {
    const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    return GetConsoleScreenBufferInfo(console, &info) != 0 ? info.dwSize.X : 0;
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
// system closes it when this process ends. Null until there is one, and where there are no jobs.
static HANDLE job = nullptr;

// Programs that the system did not let into the job, until they are waited for.
static std::vector<HANDLE> jobless;

// The thread that has ended all started programs; 0 if none has. An interruption's is its own.
static std::atomic<DWORD> ended_by = 0;

// What follows from the end of the programs is not this thread's affair if an interruption has
// ended them: it ends this program too.
static void halt_if_interrupted() {
    if (ended_by != 0 && ended_by != GetCurrentThreadId())
        Sleep(INFINITE);
}

static HANDLE make_job() {
    const HANDLE made = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(made, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return made;
}

// A duplicate of the handle of standard error that can be inherited; null if there is none.
static HANDLE inheritable_error() {
    const auto error = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stderr)));
    HANDLE duplicate = nullptr;
    DuplicateHandle(GetCurrentProcess(), error, GetCurrentProcess(), &duplicate, 0, TRUE,
                    DUPLICATE_SAME_ACCESS);
    return duplicate;
}

namespace {

// What a started program gets beyond its command line: the job, and standard error as the only
// handle. Before Windows 10 there is no such attribute for jobs, and programs outlive this one.
class StartAttributes {
  public:
    explicit StartAttributes(HANDLE inherited) : error(inherited) {
        if (job == nullptr)
            job = make_job();
        constexpr DWORD COUNT = 2;
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, COUNT, 0, &size);
        memory.resize(size);
        usable = InitializeProcThreadAttributeList(list(), COUNT, 0, &size) &&
                 add(PROC_THREAD_ATTRIBUTE_JOB_LIST, &job) &&
                 (error == nullptr || add(PROC_THREAD_ATTRIBUTE_HANDLE_LIST, &error));
    }
    StartAttributes(const StartAttributes &) = delete;
    StartAttributes &operator=(const StartAttributes &) = delete;
    ~StartAttributes() {
        if (usable)
            DeleteProcThreadAttributeList(list());
        if (error != nullptr)
            CloseHandle(error);
    }
    LPPROC_THREAD_ATTRIBUTE_LIST get() { return usable ? list() : nullptr; }

  private:
    LPPROC_THREAD_ATTRIBUTE_LIST list() {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
    }
    bool add(DWORD_PTR attribute, HANDLE *value) {
        return *value != nullptr && UpdateProcThreadAttribute(list(), 0, attribute, value,
                                                              sizeof *value, nullptr, nullptr);
    }

    std::vector<char> memory;
    HANDLE error;
    bool usable = false;
};

} // namespace

void host_pause(int milliseconds) {
    Sleep(static_cast<DWORD>(milliseconds));
}

// It shares our console if we have one, so that no other is made for it. Ctrl-C is not for it.
static HANDLE create_process(const char *exe, const char *command_line, HANDLE error,
                             LPPROC_THREAD_ATTRIBUTE_LIST attributes, DWORD *failure) {
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdError = error;
    startup.lpAttributeList = attributes;
    PROCESS_INFORMATION process = {};
    const std::wstring program = to_wide(exe);
    std::wstring line = to_wide(command_line != nullptr ? command_line : ""); // may be written into
    const DWORD console = GetConsoleCP() != 0 ? CREATE_NEW_PROCESS_GROUP : DETACHED_PROCESS;
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, error != nullptr,
                        console | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                        &startup.StartupInfo, &process)) {
        *failure = GetLastError();
        return nullptr;
    }
    CloseHandle(process.hThread);
    return process.hProcess;
}

ProcessHandle host_start_process(const char *exe, const char *const *, const char *command_line) {
    const HANDLE error = inheritable_error();
    StartAttributes attributes(error);
    DWORD failure = ERROR_ACCESS_DENIED;
    HANDLE process = nullptr;
    if (attributes.get() != nullptr)
        process = create_process(exe, command_line, error, attributes.get(), &failure);
    if (process == nullptr &&
        (failure == ERROR_ACCESS_DENIED || failure == ERROR_INVALID_PARAMETER)) {
        process = create_process(exe, command_line, nullptr, nullptr, &failure);
        if (process != nullptr)
            jobless.push_back(process);
    }
    if (process == nullptr)
        system_failure(failure);
    else if (ended_by != 0)
        TerminateProcess(process, 1); // which began meanwhile
    halt_if_interrupted();
    return reinterpret_cast<ProcessHandle>(process);
}

static_assert(static_cast<DWORD>(NO_LIMIT) == INFINITE);

bool host_wait_process(ProcessHandle process, int *status, int milliseconds) {
    if (process == 0)
        return true;
    const auto waited_for = reinterpret_cast<HANDLE>(process);
    if (WaitForSingleObject(waited_for, static_cast<DWORD>(milliseconds)) == WAIT_TIMEOUT)
        return false;
    DWORD code = 0;
    if (GetExitCodeProcess(waited_for, &code))
        *status = static_cast<int>(code);
    halt_if_interrupted();
    std::erase(jobless, waited_for);
    CloseHandle(waited_for);
    return true;
}

void host_end_started() {
    ended_by = GetCurrentThreadId();
    if (job != nullptr)
        TerminateJobObject(job, 1);
    for (const HANDLE process : jobless)
        TerminateProcess(process, 1);
}

// The job has no signal that its last process has ended.
void host_wait_started() {
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION account = {};
    while (job != nullptr &&
           QueryInformationJobObject(job, JobObjectBasicAccountingInformation, &account,
                                     sizeof account, nullptr) &&
           account.ActiveProcesses != 0) {
        TerminateJobObject(job, 1); // another thread may have started one meanwhile
        Sleep(1);
    }
    for (const HANDLE process : jobless)
        WaitForSingleObject(process, INFINITE);
}

// The job does that.
void host_end_with(uint32_t) {}

int host_spawn_wait(const char *path, const char *const *argv) {
    std::vector<std::wstring> words;
    for (; *argv != nullptr; argv++)
        words.push_back(to_wide(*argv));
    std::vector<const wchar_t *> pointers;
    for (const std::wstring &word : words)
        pointers.push_back(word.c_str());
    pointers.push_back(nullptr);
    return static_cast<int>(_wspawnv(_P_WAIT, to_wide(path).c_str(), pointers.data()));
}
