// The primitives of osdep_host.h on Windows. Paths come in the process's narrow code page, which
// the application manifest makes UTF-8, and go to the system as UTF-16.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#define _CRT_RAND_S
#include "host/osdep_host.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#include <vector>
#include <windows.h>

// Read by the start-up code: wildcards in arguments are left as they are.
extern "C" {
int _dowildcard = 0;
}

// Sets errno to the nearest equivalent of a system error; always false.
static bool fail(DWORD error = GetLastError()) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_INVALID_DRIVE:
        errno = ENOENT;
        break;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
        errno = EACCES;
        break;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        errno = EEXIST;
        break;
    case ERROR_DIR_NOT_EMPTY:
        errno = ENOTEMPTY;
        break;
    case ERROR_NO_UNICODE_TRANSLATION:
        errno = EILSEQ;
        break;
    case ERROR_DISK_FULL:
        errno = ENOSPC;
        break;
    default:
        errno = EINVAL;
    }
    return false;
}

static bool succeed_or_fail(BOOL done) {
    return done ? true : fail();
}

// --- Text

static OwnedString to_narrow(const wchar_t *wide) {
    const int size = WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    OwnedString narrow(static_cast<char *>(xalloc(static_cast<size_t>(size) + 1)));
    WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow.get(), size, nullptr, nullptr);
    return narrow;
}

// Empty if the text is not valid in the narrow code page.
static std::wstring to_wide(const char *narrow) {
    const int size = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, narrow, -1, nullptr, 0);
    if (size <= 0)
        return {};
    std::wstring wide(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_ACP, 0, narrow, -1, wide.data(), size);
    wide.pop_back(); // the terminator that was counted
    return wide;
}

// Repeats a system call that fills a buffer and returns the length it needs, until the text fits.
// Empty on failure.
template <class Call> static std::wstring filled(Call call) {
    std::wstring text(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = call(text.data(), static_cast<DWORD>(text.size()));
        if (length < text.size()) {
            text.resize(length);
            return text;
        }
        text.resize(static_cast<size_t>(length) * 2);
    }
}

static std::wstring full_path(const wchar_t *path) {
    return filled(
        [&](wchar_t *buffer, DWORD size) { return GetFullPathNameW(path, size, buffer, nullptr); });
}

static bool is_verbatim(const std::wstring &path) {
    return path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
}

namespace {

// A path as the system calls take it. If it is long when made absolute it gets the prefix that
// lifts the limit of 260 characters (248 for a directory), so that it works whatever the machine's
// settings are.
class SystemPath {
  public:
    explicit SystemPath(const char *path) : text(to_wide(path)) {
        constexpr DWORD LONGEST_PLAIN = 247;
        if (is_verbatim(text) ||
            GetFullPathNameW(text.c_str(), 0, nullptr, nullptr) <= LONGEST_PLAIN)
            return;
        const std::wstring full = full_path(text.c_str());
        if (is_verbatim(full))
            text = full;
        else if (full.starts_with(L"\\\\"))
            text = L"\\\\?\\UNC" + full.substr(1);
        else
            text = L"\\\\?\\" + full;
    }
    const wchar_t *get() const { return text.c_str(); }

  private:
    std::wstring text; // empty, which names nothing, if it could not be converted
};

} // namespace

// --- Facts

const PathStyle &host_path_style() {
    return drive_path_style;
}

int32_t host_kind() {
    return HOST_DRIVE_PATHS;
}

const char *host_osname() {
    return "Microsoft Windows";
}

int host_processor_count() {
    SYSTEM_INFO info = {};
    GetSystemInfo(&info);
    return static_cast<int>(info.dwNumberOfProcessors);
}

// What _pgmptr holds, without its limit of 260 bytes.
OwnedString host_program_path() {
    const std::wstring path = filled(
        [](wchar_t *buffer, DWORD size) { return GetModuleFileNameW(nullptr, buffer, size); });
    return path.empty() ? nullptr : to_narrow(path.c_str());
}

uint32_t host_process_id() {
    return GetCurrentProcessId();
}

OwnedString host_unique_seed() {
    unsigned high = 0;
    unsigned low = 0;
    if (rand_s(&high) != 0 || rand_s(&low) != 0) {
        high = GetCurrentProcessId();
        LARGE_INTEGER ticks = {};
        QueryPerformanceCounter(&ticks);
        low = ticks.LowPart;
    }
    return str_format("%x%08x", high, low);
}

std::span<const char *const> host_temp_variables() {
    static constexpr std::array<const char *, 2> NAMES = {"TEMP", "TMP"};
    return NAMES;
}

const char *host_temp_default() {
    return ".";
}

std::span<const int> host_caught_signals() {
    static constexpr std::array<int, 6> SIGNALS = {SIGBREAK, SIGINT,  SIGTERM,
                                                   SIGABRT,  SIGSEGV, SIGFPE};
    return SIGNALS;
}

std::span<const int> host_write_signals() {
    return {};
}

void host_on_signal(int number, void (*handler)(int)) {
    if (signal(number, handler) == SIG_IGN)
        signal(number, SIG_IGN);
}

// Interruptions arrive in a thread of their own here, so exit() does not wait for itself.
void host_limit_exit(void (*)(int)) {}

int host_setenv(const char *name, const char *value) {
    return _putenv((std::string(name) + '=' + value).c_str());
}

void host_tzset() {
    _tzset();
}

// --- Files and directories

namespace {

class SystemHandle {
  public:
    explicit SystemHandle(HANDLE opened) : handle(opened) {}
    ~SystemHandle() {
        if (*this)
            CloseHandle(handle);
    }
    SystemHandle(const SystemHandle &) = delete;
    SystemHandle &operator=(const SystemHandle &) = delete;
    explicit operator bool() const { return handle != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return handle; }

  private:
    HANDLE handle;
};

} // namespace

// Opens a file, directory or device for questions about it, following links.
static SystemHandle open_for_query(const SystemPath &path) {
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return SystemHandle(CreateFileW(path.get(), FILE_READ_ATTRIBUTES, share, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

static uint64_t joined(DWORD high, DWORD low) {
    return static_cast<uint64_t>(high) << 32 | low;
}

// BY_HANDLE_FILE_INFORMATION and WIN32_FILE_ATTRIBUTE_DATA share these members.
template <class Information> static HostStat stat_of(const Information &information) {
    const bool directory = (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return {directory ? FileKind::directory : FileKind::regular,
            joined(information.nFileSizeHigh, information.nFileSizeLow)};
}

static bool stat_opened(const SystemPath &path, HostStat *result) {
    const SystemHandle file = open_for_query(path);
    if (!file)
        return fail();
    if (GetFileType(file.get()) != FILE_TYPE_DISK) {
        *result = {FileKind::other, 0};
        return true;
    }
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(file.get(), &information))
        return fail();
    *result = stat_of(information);
    return true;
}

// The attributes are the quick answer. They do not follow links, and for the name of a device they
// either fail or come without times; in these cases the file is opened.
bool host_stat(const char *path, HostStat *result) {
    const SystemPath system_path(path);
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (!GetFileAttributesExW(system_path.get(), GetFileExInfoStandard, &data)) {
        const DWORD error = GetLastError();
        const bool missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        return missing ? fail(error) : stat_opened(system_path, result);
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ||
        joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime) == 0)
        return stat_opened(system_path, result);
    *result = stat_of(data);
    return true;
}

// Reparse points of other kinds (files kept elsewhere, compressed files) are not links.
bool host_is_link(const char *path) {
    const SystemPath system_path(path);
    const DWORD attributes = GetFileAttributesW(system_path.get());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return false;
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(system_path.get(), &data);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    return IsReparseTagNameSurrogate(data.dwReserved0);
}

static bool state_of(HANDLE file, FileState *result) {
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(file, &information))
        return fail();
    *result = {{information.dwVolumeSerialNumber,
                joined(information.nFileIndexHigh, information.nFileIndexLow)},
               joined(information.nFileSizeHigh, information.nFileSizeLow),
               joined(information.ftLastWriteTime.dwHighDateTime,
                      information.ftLastWriteTime.dwLowDateTime)};
    return true;
}

bool host_file_state(const char *path, FileState *result) {
    const SystemHandle file = open_for_query(SystemPath(path));
    return file ? state_of(file.get(), result) : fail();
}

bool host_opened_state(FILE *stream, FileState *result) {
    return state_of(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))), result);
}

// The flags of _wopen for a mode of fopen.
static int open_flags(const char *mode) {
    const bool update = strchr(mode, '+') != nullptr;
    const int access = update ? _O_RDWR : mode[0] == 'r' ? _O_RDONLY : _O_WRONLY;
    const int creation = mode[0] == 'w'   ? _O_CREAT | _O_TRUNC
                         : mode[0] == 'a' ? _O_CREAT | _O_APPEND
                                          : 0;
    const int translation = strchr(mode, 'b') != nullptr ? _O_BINARY : _O_TEXT;
    return access | creation | translation | _O_NOINHERIT;
}

// Opened as a descriptor first: only there can inheritance be switched off in every version of the
// runtime.
FILE *host_fopen(const char *path, const char *mode) {
    const SystemPath system_path(path);
    const int descriptor = _wopen(system_path.get(), open_flags(mode), _S_IREAD | _S_IWRITE);
    if (descriptor == -1)
        return nullptr;
    FILE *stream = _fdopen(descriptor, mode);
    if (stream == nullptr)
        _close(descriptor);
    return stream;
}

int host_open(const char *path) {
    const int flags = _O_RDONLY | _O_BINARY | _O_NOINHERIT | _O_SEQUENTIAL;
    return _wopen(SystemPath(path).get(), flags);
}

// It was opened so.
void host_expect_reading(int) {}

bool host_is_regular(int descriptor) {
    return GetFileType(reinterpret_cast<HANDLE>(_get_osfhandle(descriptor))) == FILE_TYPE_DISK;
}

FILE *host_fdopen(int descriptor) {
    return _fdopen(descriptor, "rb");
}

FILE *host_open_log(const char *path, bool append) {
    return host_fopen(path, append ? "a" : "w");
}

// The lock is on a byte beyond the end of any file, because nobody else can write to locked bytes.
static OVERLAPPED beyond_end() {
    OVERLAPPED beyond = {};
    beyond.OffsetHigh = 0x40000000;
    return beyond;
}

static bool lock_beyond(FILE *stream, DWORD flags) {
    const auto file = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    OVERLAPPED beyond = beyond_end();
    return succeed_or_fail(LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | flags, 0, 1, 0, &beyond));
}

bool host_lock_opened(FILE *stream) {
    constexpr int MOST_TRIES = 500;
    for (int i = 1; !lock_beyond(stream, LOCKFILE_FAIL_IMMEDIATELY); i++) {
        if (GetLastError() != ERROR_LOCK_VIOLATION || i == MOST_TRIES)
            return false;
        Sleep(10);
    }
    return true;
}

// Going to the end and writing are two steps, whatever mode the file was opened in, so both are
// done under a lock. A stream without an end or locks is simply written to.
bool host_append(FILE *log, const std::string &text) {
    const auto file = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(log)));
    OVERLAPPED beyond = beyond_end();
    const bool locked = lock_beyond(log, 0);
    fseek(log, 0, SEEK_END);
    const bool taken = fwrite(text.data(), 1, text.size(), log) == text.size();
    const bool written = fflush(log) == 0 && taken;
    const int failure = errno;
    if (locked)
        UnlockFileEx(file, 0, 1, 0, &beyond);
    errno = failure;
    return written;
}

bool host_seek(FILE *stream, int64_t offset) {
    return _fseeki64(stream, offset, SEEK_SET) == 0;
}

bool host_truncate(FILE *stream, int64_t size) {
    return _chsize_s(_fileno(stream), size) == 0;
}

int64_t host_read(int descriptor, void *buffer, size_t size) {
    const size_t most = INT_MAX;
    return _read(descriptor, buffer, static_cast<unsigned>(std::min(size, most)));
}

bool host_write(int descriptor, std::string_view text) {
    const auto size = static_cast<unsigned>(text.size());
    return _write(descriptor, text.data(), size) == static_cast<int>(size);
}

size_t host_read_cached(int, void *, size_t) {
    return 0;
}

// Whether a path with the narrow name opens the entry. The system's path rules drop dots and spaces
// at the end of a name.
static bool is_reachable(const char *narrow, const std::wstring &wide) {
    return to_wide(narrow) == wide && !wide.ends_with(L'.') && !wide.ends_with(L' ');
}

Listing host_list_directory(const char *path, std::vector<DirectoryEntry> *entries) {
    std::string pattern = path;
    if (!pattern.empty() && strchr("\\/:", pattern.back()) == nullptr)
        pattern += '\\';
    pattern += '*';
    WIN32_FIND_DATAW data;
    const HANDLE search =
        FindFirstFileExW(SystemPath(pattern.c_str()).get(), FindExInfoBasic, &data,
                         FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    // A drive's top directory has no "." and can be empty.
    if (search == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        fail(error);
        return error == ERROR_FILE_NOT_FOUND  ? Listing::complete
               : error == ERROR_ACCESS_DENIED ? Listing::denied
                                              : Listing::unopened;
    }
    do {
        const std::wstring name = data.cFileName;
        const OwnedString narrow = to_narrow(name.c_str());
        if (name != L"." && name != L"..")
            entries->push_back({narrow.get(), is_reachable(narrow.get(), name)});
    } while (FindNextFileW(search, &data));
    const DWORD error = GetLastError();
    FindClose(search);
    fail(error);
    return error == ERROR_NO_MORE_FILES ? Listing::complete : Listing::broken;
}

bool host_make_file(const char *path) {
    const SystemHandle file(CreateFileW(SystemPath(path).get(), GENERIC_WRITE, 0, nullptr,
                                        CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? true : fail();
}

bool host_mkdir(const char *path) {
    return succeed_or_fail(CreateDirectoryW(SystemPath(path).get(), nullptr));
}

// The directory for temporaries is the user's own already.
bool host_mkdir_private(const char *path) {
    return host_mkdir(path);
}

bool host_rmdir(const char *path) {
    return succeed_or_fail(RemoveDirectoryW(SystemPath(path).get()));
}

bool host_remove(const char *path) {
    const SystemPath system_path(path);
    const DWORD attributes = GetFileAttributesW(system_path.get());
    const bool directory =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (directory && host_is_link(path))
        return succeed_or_fail(RemoveDirectoryW(system_path.get()));
    return succeed_or_fail(DeleteFileW(system_path.get()));
}

bool host_flush_to_disk(int descriptor) {
    return _commit(descriptor) == 0;
}

// A file that somebody has open, if only to look at it, cannot be replaced at that moment. If that
// does not end it must not count as a lack of permission, because then the file would be
// overwritten while it is being read.
bool host_replace(const char *from, const char *to) {
    constexpr int MOST_ATTEMPTS = 20;
    constexpr DWORD FLAGS = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    const SystemPath source(from), target(to);
    for (int attempt = 1; !MoveFileExW(source.get(), target.get(), FLAGS); attempt++) {
        const DWORD error = GetLastError();
        const bool opened = error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION;
        if (!opened)
            return fail(error);
        if (attempt == MOST_ATTEMPTS) {
            errno = EAGAIN;
            return false;
        }
        Sleep(10);
    }
    return true;
}

bool host_rename_new(const char *from, const char *to) {
    return succeed_or_fail(MoveFileExW(SystemPath(from).get(), SystemPath(to).get(), 0));
}

// The access list is inherited from the directory, which is the same for both; hidden files stay
// hidden.
void host_copy_rights(const char *from, const char *to) {
    const DWORD attributes = GetFileAttributesW(SystemPath(from).get());
    if (attributes != INVALID_FILE_ATTRIBUTES)
        SetFileAttributesW(SystemPath(to).get(), attributes);
}

// Empty on failure. It begins with "\\?\", in front of a drive or of "UNC\" and a server's name.
static std::wstring final_path(const char *path) {
    const SystemHandle file = open_for_query(SystemPath(path));
    if (!file)
        return {};
    return filled([&](wchar_t *buffer, DWORD size) {
        return GetFinalPathNameByHandleW(file.get(), buffer, size, FILE_NAME_NORMALIZED);
    });
}

OwnedString host_resolve_links(const char *path) {
    const std::wstring target = host_is_link(path) ? final_path(path) : L"";
    return target.empty() ? xstrdup(path) : to_narrow(target.c_str());
}

OwnedString host_real_path(const char *path) {
    std::wstring target = final_path(path);
    if (target.starts_with(L"\\\\?\\UNC\\"))
        target.replace(0, 8, L"\\\\");
    else if (target.starts_with(L"\\\\?\\"))
        target.erase(0, 4);
    return target.empty() ? nullptr : to_narrow(target.c_str());
}

OwnedString host_absolute_path(const char *path) {
    const std::wstring full = full_path(to_wide(path).c_str());
    return full.empty() ? xstrdup(path) : to_narrow(full.c_str());
}

OwnedString host_getcwd() {
    const std::wstring directory =
        filled([](wchar_t *buffer, DWORD size) { return GetCurrentDirectoryW(size, buffer); });
    return directory.empty() ? nullptr : to_narrow(directory.c_str());
}

bool host_chdir(const char *path) {
    return _wchdir(to_wide(path).c_str()) == 0;
}

OwnedString host_shortpath(const char *path) {
    const SystemPath system_path(path);
    const std::wstring name = filled([&](wchar_t *buffer, DWORD size) {
        return GetShortPathNameW(system_path.get(), buffer, size);
    });
    return name.empty() ? nullptr : to_narrow(name.c_str());
}

OwnedString host_stored_name(const char *path) {
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(SystemPath(path).get(), &data);
    if (search == INVALID_HANDLE_VALUE) {
        fail();
        return nullptr;
    }
    FindClose(search);
    return to_narrow(data.cFileName);
}

// A file that is open cannot be replaced, so the lock is a named mutex. Its name is the identity of
// the directory, which is the same however the path is written.
HostLock host_lock(const char *path) {
    const OwnedString full = host_absolute_path(host_resolve_links(path).get());
    const OwnedString directory = path_dirname(drive_path_style, full.get());
    FileIdentity identity;
    if (directory == nullptr ||
        !host_file_identity(str_concat(directory.get(), "\\").get(), &identity))
        return -1;
    const OwnedString name = str_format("Global\\%s-%llx-%llx", host_tool_name,
                                        static_cast<unsigned long long>(identity.volume),
                                        static_cast<unsigned long long>(identity.file));
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, name.get());
    if (mutex == nullptr)
        return -1;
    WaitForSingleObject(mutex, INFINITE); // a holder that died has given it up too
    return reinterpret_cast<HostLock>(mutex);
}

void host_unlock(HostLock lock) {
    if (lock == -1)
        return;
    ReleaseMutex(reinterpret_cast<HANDLE>(lock));
    CloseHandle(reinterpret_cast<HANDLE>(lock));
}

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
        fail();
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
        fail();
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
