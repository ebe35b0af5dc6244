// The primitives of host.h on Windows: facts, files and directories.
#define _CRT_RAND_S
#include "host/host_windows.h"

#include "base/text.h"

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
#include <sddl.h>
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

const char *host_osname() {
    return "Microsoft Windows";
}

int host_processor_count() {
    return static_cast<int>(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS));
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

void host_tzset() {
    _tzset();
}

// --- Files and directories

constexpr DWORD ALL_SHARING = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Opens a file, directory or device for questions about it, following links.
static SystemHandle open_for_query(const SystemPath &path) {
    return SystemHandle(CreateFileW(path.get(), FILE_READ_ATTRIBUTES, ALL_SHARING, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
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

// The entry of a directory at a path; false if there is none.
static bool find_entry(const SystemPath &path, WIN32_FIND_DATAW *entry) {
    const HANDLE search = FindFirstFileW(path.get(), entry);
    return search == INVALID_HANDLE_VALUE ? system_failure() : FindClose(search) != 0;
}

// Reparse points of other kinds (files kept elsewhere, compressed files) are not links.
bool host_is_link(const char *path) {
    const SystemPath system_path(path);
    const DWORD attributes = GetFileAttributesW(system_path.get());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return false;
    WIN32_FIND_DATAW data;
    return find_entry(system_path, &data) && IsReparseTagNameSurrogate(data.dwReserved0);
}

// Where an opened file leads. Not every volume has a letter, and not every directory above may be
// read. Empty on failure.
static std::wstring final_path(HANDLE file) {
    for (const DWORD form :
         {FILE_NAME_NORMALIZED | VOLUME_NAME_DOS, FILE_NAME_OPENED | VOLUME_NAME_DOS,
          FILE_NAME_NORMALIZED | VOLUME_NAME_GUID, FILE_NAME_OPENED | VOLUME_NAME_NT}) {
        std::wstring path = filled([&](wchar_t *buffer, DWORD size) {
            return GetFinalPathNameByHandleW(file, buffer, size, form);
        });
        if (!path.empty())
            return form & VOLUME_NAME_NT ? L"\\\\?\\GLOBALROOT" + path : path;
    }
    return {};
}

// The number of 128 bits first: not every file system has files with one of 64.
static FileIdentity identity_of_opened(HANDLE file, const BY_HANDLE_FILE_INFORMATION &information) {
    FILE_ID_INFO id = {};
    FileNumber wide = {};
    if (GetFileInformationByHandleEx(file, FileIdInfo, &id, sizeof id)) {
        memcpy(&wide.low, id.FileId.Identifier, sizeof wide.low);
        memcpy(&wide.high, id.FileId.Identifier + sizeof wide.low, sizeof wide.high);
        wide.volume = id.VolumeSerialNumber;
    }
    const FileNumber narrow = {information.dwVolumeSerialNumber, 0,
                               joined(information.nFileIndexHigh, information.nFileIndexLow)};
    const FileIdentity identity = identity_of(wide, narrow, "");
    return identity.known ? identity
                          : identity_of({}, {}, to_narrow(final_path(file).c_str()).get());
}

// Some file systems keep no time of change but that of writing. Their sum differs with either: the
// first goes forward only.
static bool state_of(HANDLE file, FileState *result) {
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(file, &information))
        return system_failure();
    FILE_BASIC_INFO times = {};
    GetFileInformationByHandleEx(file, FileBasicInfo, &times, sizeof times);
    const uint64_t written = joined(information.ftLastWriteTime.dwHighDateTime,
                                    information.ftLastWriteTime.dwLowDateTime);
    const auto changed = static_cast<uint64_t>(times.ChangeTime.QuadPart);
    *result = {identity_of_opened(file, information),
               joined(information.nFileSizeHigh, information.nFileSizeLow), changed + 3 * written};
    return true;
}

bool host_file_state(const char *path, FileState *result) {
    const SystemHandle file = open_for_query(SystemPath(path));
    return file ? state_of(file.get(), result) : system_failure();
}

static HANDLE handle_of(int descriptor) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
}

bool host_opened_state(int descriptor, FileState *result) {
    return state_of(handle_of(descriptor), result);
}

// Some file systems number files only while they are open.
bool host_file_states(const char *a, const char *b, FileState *first, FileState *second) {
    const SystemHandle file = open_for_query(SystemPath(a));
    if (!file)
        return system_failure();
    const SystemHandle other = open_for_query(SystemPath(b));
    return other ? state_of(file.get(), first) && state_of(other.get(), second) : system_failure();
}

void (*in_use_pause)(unsigned) = [](unsigned milliseconds) { Sleep(milliseconds); };

// Repeats a call that fails while somebody has the file open, as scanners and indexers do, until it
// succeeds or the time is over.
template <class Call> static bool while_in_use(DWORD milliseconds, Call call) {
    constexpr DWORD PAUSE = 10;
    for (DWORD waited = 0; !call(); waited += PAUSE) {
        if (GetLastError() != ERROR_SHARING_VIOLATION || waited >= milliseconds)
            return false;
        in_use_pause(PAUSE);
    }
    return true;
}

constexpr DWORD FOR_OPENING = 50;
constexpr DWORD FOR_REMOVING = 2000;

// A descriptor with all sharing, so that others may rename and remove the file meanwhile; -1 on
// failure. The C runtime's own call would share less, and give fewer reasons.
static int open_shared(const char *path, DWORD access, DWORD creation, int flags) {
    const SystemPath system_path(path);
    HANDLE file = INVALID_HANDLE_VALUE;
    if (!while_in_use(FOR_OPENING, [&] {
            file = CreateFileW(system_path.get(), access, ALL_SHARING, nullptr, creation,
                               FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
            return file != INVALID_HANDLE_VALUE;
        })) {
        system_failure();
        return -1;
    }
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(file), flags | _O_NOINHERIT);
    if (descriptor == -1)
        CloseHandle(file);
    return descriptor;
}

// Opened as a descriptor first: only there can inheritance be switched off in every version of the
// runtime.
FILE *host_fopen(const char *path, const char *mode) {
    const bool reads = mode[0] == 'r', update = strchr(mode, '+') != nullptr;
    const DWORD access =
        (reads || update ? GENERIC_READ : 0) | (reads && !update ? 0 : GENERIC_WRITE);
    const DWORD creation = reads ? OPEN_EXISTING : mode[0] == 'w' ? CREATE_ALWAYS : OPEN_ALWAYS;
    const int flags =
        (mode[0] == 'a' ? _O_APPEND : 0) | (strchr(mode, 'b') != nullptr ? _O_BINARY : _O_TEXT);
    const int descriptor = open_shared(path, access, creation, flags);
    FILE *stream = descriptor != -1 ? _fdopen(descriptor, mode) : nullptr;
    if (stream == nullptr && descriptor != -1)
        _close(descriptor);
    return stream;
}

int host_open(const char *path) {
    return open_shared(path, GENERIC_READ, OPEN_EXISTING, _O_RDONLY | _O_BINARY);
}

// It was opened so.
void host_expect_reading(int) {}

bool host_is_regular(int descriptor) {
    return GetFileType(handle_of(descriptor)) == FILE_TYPE_DISK;
}

FILE *host_fdopen(int descriptor) {
    return _fdopen(descriptor, "rb");
}

FILE *host_open_log(const char *path, bool append) {
    return host_fopen(path, append ? "a" : "w");
}

// Locks are on bytes beyond the end of any file, because nobody else can read or write locked ones.
static OVERLAPPED beyond_end(uint32_t number) {
    OVERLAPPED beyond = {};
    beyond.Offset = number;
    beyond.OffsetHigh = 0x40000000;
    return beyond;
}

static bool lock_beyond(int descriptor, uint32_t number, DWORD flags) {
    OVERLAPPED beyond = beyond_end(number);
    return succeed_or_fail(
        LockFileEx(handle_of(descriptor), LOCKFILE_EXCLUSIVE_LOCK | flags, 0, 1, 0, &beyond));
}

static void unlock_beyond(int descriptor, uint32_t number) {
    OVERLAPPED beyond = beyond_end(number);
    UnlockFileEx(handle_of(descriptor), 0, 1, 0, &beyond);
}

bool host_lock_opened(FILE *stream) {
    constexpr int MOST_TRIES = 500;
    for (int i = 1; !lock_beyond(_fileno(stream), 0, LOCKFILE_FAIL_IMMEDIATELY); i++) {
        if (GetLastError() != ERROR_LOCK_VIOLATION || i == MOST_TRIES)
            return false;
        host_pause(10);
    }
    return true;
}

int host_open_shared(const char *path) {
    return open_shared(path, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING, _O_RDWR | _O_BINARY);
}

static OVERLAPPED place_of(uint64_t offset) {
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

bool host_read_at(int descriptor, uint64_t offset, void *buffer, size_t size) {
    OVERLAPPED place = place_of(offset);
    DWORD got = 0;
    return succeed_or_fail(
        ReadFile(handle_of(descriptor), buffer, static_cast<DWORD>(size), &got, &place) &&
        got == size);
}

bool host_write_at(int descriptor, uint64_t offset, const void *bytes, size_t size) {
    OVERLAPPED place = place_of(offset);
    DWORD written = 0;
    return succeed_or_fail(
        WriteFile(handle_of(descriptor), bytes, static_cast<DWORD>(size), &written, &place) &&
        written == size);
}

bool host_lock_number(int descriptor, uint32_t number, bool wait) {
    if (lock_beyond(descriptor, number, wait ? 0 : LOCKFILE_FAIL_IMMEDIATELY))
        return true;
    if (GetLastError() == ERROR_LOCK_VIOLATION)
        errno = EWOULDBLOCK;
    return false;
}

void host_unlock_number(int descriptor, uint32_t number) {
    unlock_beyond(descriptor, number);
}

// Going to the end and writing are two steps, whatever mode the file was opened in, so both are
// done under a lock. A stream without an end or locks is simply written to.
bool host_append(FILE *log, const std::string &text) {
    const bool locked = lock_beyond(_fileno(log), 0, 0);
    fseek(log, 0, SEEK_END);
    const bool taken = fwrite(text.data(), 1, text.size(), log) == text.size();
    const bool written = fflush(log) == 0 && taken;
    const int failure = errno;
    if (locked)
        unlock_beyond(_fileno(log), 0);
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
    const auto file = handle_of(descriptor);
    const size_t most = INT_MAX;
    DWORD got = 0;
    if (ReadFile(file, buffer, static_cast<DWORD>(std::min(size, most)), &got, nullptr))
        return got;
    const DWORD error = GetLastError();
    if (error == ERROR_HANDLE_EOF || error == ERROR_BROKEN_PIPE)
        return 0;
    system_failure(error);
    return -1;
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

// Attributes of what may be something else, or not on this machine.
constexpr DWORD NO_REGULAR_FILE = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT |
                                  FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_OFFLINE;

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
            entries->push_back({narrow.get(), is_reachable(narrow.get(), name),
                                (data.dwFileAttributes & NO_REGULAR_FILE) == 0});
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

// An access list for this user alone, which new files in the directory get too. Empty on failure.
static std::wstring own_rights() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return {};
    const SystemHandle opened(token);
    alignas(TOKEN_USER) std::array<char, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user;
    DWORD size = user.size();
    wchar_t *sid = nullptr;
    if (!GetTokenInformation(token, TokenUser, user.data(), size, &size) ||
        !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER *>(user.data())->User.Sid, &sid))
        return {};
    const std::wstring rights = std::wstring(L"D:P(A;OICI;FA;;;") + sid + L")";
    LocalFree(sid);
    return rights;
}

bool host_mkdir_private(const char *path) {
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, FALSE};
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(
            own_rights().c_str(), SDDL_REVISION_1, &attributes.lpSecurityDescriptor, nullptr))
        return system_failure();
    const bool made = succeed_or_fail(CreateDirectoryW(SystemPath(path).get(), &attributes));
    LocalFree(attributes.lpSecurityDescriptor);
    return made;
}

// A file that is removed while somebody has it open stays in its directory until that ends, and
// cannot be asked for its attributes.
static bool holds_removed_files_only(const char *path) {
    std::vector<DirectoryEntry> entries;
    host_list_directory(path, &entries);
    return std::all_of(entries.begin(), entries.end(), [&](const DirectoryEntry &entry) {
        const OwnedString inner = path_join_style(drive_path_style, path, entry.name.c_str());
        return GetFileAttributesW(SystemPath(inner.get()).get()) == INVALID_FILE_ATTRIBUTES;
    });
}

bool host_rmdir(const char *path) {
    const SystemPath system_path(path);
    const bool removed = while_in_use(FOR_REMOVING, [&] {
        if (RemoveDirectoryW(system_path.get()))
            return true;
        const DWORD error = GetLastError();
        const bool in_use = error == ERROR_DIR_NOT_EMPTY && holds_removed_files_only(path);
        SetLastError(in_use ? ERROR_SHARING_VIOLATION : error);
        return false;
    });
    return succeed_or_fail(removed);
}

bool host_remove(const char *path) {
    const SystemPath system_path(path);
    const DWORD attributes = GetFileAttributesW(system_path.get());
    const bool directory =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (directory && host_is_link(path))
        return succeed_or_fail(RemoveDirectoryW(system_path.get()));
    return succeed_or_fail(
        while_in_use(FOR_REMOVING, [&] { return DeleteFileW(system_path.get()) != FALSE; }));
}

// Some file systems cannot say when that is done.
bool host_flush_to_disk(int descriptor) {
    const auto file = handle_of(descriptor);
    if (FlushFileBuffers(file))
        return true;
    const DWORD error = GetLastError();
    return error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED || system_failure(error);
}

// Whether this user may remove a file, which replacing it takes.
static bool may_be_removed(const SystemPath &path) {
    return SystemHandle(CreateFileW(path.get(), DELETE, ALL_SHARING, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr)) ||
           GetLastError() != ERROR_ACCESS_DENIED;
}

// A file that somebody has open, if only to look at it, cannot be replaced at that moment: access
// is denied then too. If that does not end it must not count as a lack of permission, because then
// the file would be overwritten while it is being read.
bool host_replace(const char *from, const char *to) {
    const SystemPath source(from), target(to);
    const bool replaced = while_in_use(FOR_REMOVING, [&] {
        if (MoveFileExW(source.get(), target.get(),
                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return true;
        const DWORD error = GetLastError();
        const bool in_use = error == ERROR_ACCESS_DENIED && may_be_removed(target);
        SetLastError(in_use ? ERROR_SHARING_VIOLATION : error);
        return false;
    });
    if (replaced || GetLastError() != ERROR_SHARING_VIOLATION)
        return succeed_or_fail(replaced);
    errno = EAGAIN;
    return false;
}

bool host_rename_new(const char *from, const char *to) {
    return succeed_or_fail(MoveFileExW(SystemPath(from).get(), SystemPath(to).get(), 0));
}

// The access list as it is, what it has inherited included. Hidden files stay hidden. A file that
// may not be removed will not be replaced, and its list would keep the copy from being removed.
void host_copy_rights(const char *from, const char *to) {
    const SystemPath source(from), target(to);
    if (!may_be_removed(source))
        return;
    constexpr SECURITY_INFORMATION LIST = DACL_SECURITY_INFORMATION;
    DWORD size = 0;
    GetFileSecurityW(source.get(), LIST, nullptr, 0, &size);
    std::vector<char> memory(size);
    const PSECURITY_DESCRIPTOR rights = memory.data();
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (size != 0 && GetFileSecurityW(source.get(), LIST, rights, size, &size) &&
        GetSecurityDescriptorControl(rights, &control, &revision)) {
        if ((control & SE_DACL_AUTO_INHERITED) != 0)
            SetSecurityDescriptorControl(rights, SE_DACL_AUTO_INHERIT_REQ,
                                         SE_DACL_AUTO_INHERIT_REQ);
        SetFileSecurityW(target.get(), LIST, rights);
    }
    const DWORD attributes = GetFileAttributesW(source.get());
    if (attributes != INVALID_FILE_ATTRIBUTES)
        SetFileAttributesW(target.get(), attributes);
}

// It begins with "\\?\", in front of a drive, of "UNC\" and a server's name, or of a volume's name.
static std::wstring final_path(const char *path) {
    const SystemHandle file = open_for_query(SystemPath(path));
    return file ? final_path(file.get()) : L"";
}

OwnedString host_resolve_links(const char *path) {
    const std::wstring target = host_is_link(path) ? final_path(path) : L"";
    return target.empty() ? xstrdup(path) : to_narrow(target.c_str());
}

OwnedString host_real_path(const char *path) {
    std::wstring target = final_path(path);
    if (target.starts_with(L"\\\\?\\UNC\\"))
        target.replace(0, 8, L"\\\\");
    else if (target.size() > 5 && target.starts_with(L"\\\\?\\") && target[5] == L':')
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
    return succeed_or_fail(SetCurrentDirectoryW(to_wide(path).c_str()));
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
    return find_entry(SystemPath(path), &data) ? to_narrow(data.cFileName) : nullptr;
}

// A file that is open cannot be replaced, so the lock is a named mutex. Its name is the identity of
// the directory, which is the same however the path is written.
HostLock host_lock(const char *path) {
    const OwnedString full = host_absolute_path(host_resolve_links(path).get());
    const OwnedString directory = path_dirname(drive_path_style, full.get());
    FileIdentity identity;
    if (directory == nullptr ||
        !host_file_identity(str_concat(directory.get(), "\\").get(), &identity) || !identity.known)
        return -1;
    const OwnedString name = str_format("Global\\%s-%llx-%llx-%llx-%zx", host_tool_name,
                                        static_cast<unsigned long long>(identity.volume),
                                        static_cast<unsigned long long>(identity.high),
                                        static_cast<unsigned long long>(identity.low),
                                        std::hash<std::string>()(identity.place));
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, to_wide(name.get()).c_str());
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
