// The primitives of osdep_host.h on Windows: facts, files and directories.
#define _CRT_RAND_S
#include "host/osdep_windows.h"

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

// Read by the start-up code: wildcards in arguments are left as they are.
extern "C" {
int _dowildcard = 0;
}

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
        return system_failure();
    if (GetFileType(file.get()) != FILE_TYPE_DISK) {
        *result = {FileKind::other, 0};
        return true;
    }
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(file.get(), &information))
        return system_failure();
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
        return missing ? system_failure(error) : stat_opened(system_path, result);
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
        return system_failure();
    *result = {{information.dwVolumeSerialNumber,
                joined(information.nFileIndexHigh, information.nFileIndexLow)},
               joined(information.nFileSizeHigh, information.nFileSizeLow),
               joined(information.ftLastWriteTime.dwHighDateTime,
                      information.ftLastWriteTime.dwLowDateTime)};
    return true;
}

bool host_file_state(const char *path, FileState *result) {
    const SystemHandle file = open_for_query(SystemPath(path));
    return file ? state_of(file.get(), result) : system_failure();
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
        system_failure(error);
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
    system_failure(error);
    return error == ERROR_NO_MORE_FILES ? Listing::complete : Listing::broken;
}

bool host_make_file(const char *path) {
    const SystemHandle file(CreateFileW(SystemPath(path).get(), GENERIC_WRITE, 0, nullptr,
                                        CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? true : system_failure();
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
            return system_failure(error);
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
        system_failure();
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
