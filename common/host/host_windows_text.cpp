// Reasons, text and paths as Windows takes them. Text is UTF-8 inside the program and UTF-16 at the
// system's calls, so that the machine's code page does not matter.
#include "host/argsplit.h"
#include "host/host_windows.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <vector>

// --- Reasons

namespace {

// Reasons that the C runtime has no number for.
enum OwnReason { SERVER_LOST = 1000, INFECTED, ELSEWHERE, OVER_QUOTA };

// A reason, and the system errors that it is the nearest equivalent of.
struct Reason {
    int number;
    std::vector<DWORD> errors;
};

} // namespace

static constexpr std::array<const char *, 4> OWN_REASONS = {
    "The server cannot be reached", "A virus scanner forbids it",
    "The file is kept elsewhere and could not be fetched", "The quota is used up"};

// Newer than some headers.
constexpr DWORD VIRUS_INFECTED = 225, VIRUS_DELETED = 226, DISK_QUOTA_EXCEEDED = 1295;
constexpr DWORD CLOUD_TIMEOUT = 426, FILE_CORRUPT = 1392, DISK_CORRUPT = 1393;

static const Reason REASONS[] = {
    {ENOENT, {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_INVALID_NAME, ERROR_INVALID_DRIVE}},
    {EACCES,
     {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_WRITE_PROTECT}},
    {EEXIST, {ERROR_FILE_EXISTS, ERROR_ALREADY_EXISTS}},
    {ENOTEMPTY, {ERROR_DIR_NOT_EMPTY}},
    {ENOTDIR, {ERROR_DIRECTORY}},
    {ENAMETOOLONG, {ERROR_FILENAME_EXCED_RANGE}},
    {EMFILE, {ERROR_TOO_MANY_OPEN_FILES}},
    {EILSEQ, {ERROR_NO_UNICODE_TRANSLATION}},
    {ENOSPC, {ERROR_DISK_FULL, ERROR_HANDLE_DISK_FULL}},
    {ENOMEM,
     {ERROR_NOT_ENOUGH_MEMORY, ERROR_OUTOFMEMORY, ERROR_COMMITMENT_LIMIT,
      ERROR_NO_SYSTEM_RESOURCES}},
    {EIO,
     {ERROR_CRC, ERROR_SECTOR_NOT_FOUND, ERROR_GEN_FAILURE, ERROR_NOT_READY, FILE_CORRUPT,
      DISK_CORRUPT, ERROR_IO_DEVICE}},
    {OVER_QUOTA, {ERROR_NOT_ENOUGH_QUOTA, DISK_QUOTA_EXCEEDED}},
    {INFECTED, {VIRUS_INFECTED, VIRUS_DELETED}},
    {SERVER_LOST,
     {ERROR_REM_NOT_LIST, ERROR_BAD_NETPATH, ERROR_DEV_NOT_EXIST, ERROR_UNEXP_NET_ERR,
      ERROR_NETNAME_DELETED, ERROR_BAD_NET_NAME, ERROR_SEM_TIMEOUT, ERROR_NETWORK_UNREACHABLE,
      ERROR_HOST_UNREACHABLE, ERROR_CONNECTION_ABORTED}},
    {ELSEWHERE, {ERROR_CANT_ACCESS_FILE, CLOUD_TIMEOUT}},
};

bool system_failure(DWORD error) {
    constexpr DWORD FIRST_OF_CLOUD = 358, LAST_OF_CLOUD = 404; // nearly all of them
    errno = error >= FIRST_OF_CLOUD && error <= LAST_OF_CLOUD ? ELSEWHERE : EINVAL;
    for (const auto &[number, errors] : REASONS)
        if (std::find(errors.begin(), errors.end(), error) != errors.end())
            errno = number;
    return false;
}

const char *host_strerror(int number) {
    const auto own = static_cast<size_t>(number - SERVER_LOST);
    return own < OWN_REASONS.size() ? OWN_REASONS[own] : strerror(number);
}

// --- Text

OwnedString to_narrow(const wchar_t *wide) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    OwnedString narrow(static_cast<char *>(xalloc(static_cast<size_t>(size) + 1)));
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, narrow.get(), size, nullptr, nullptr);
    return narrow;
}

std::wstring to_wide(const char *narrow) {
    const int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, narrow, -1, nullptr, 0);
    if (size <= 0)
        return {};
    std::wstring wide(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, narrow, -1, wide.data(), size);
    wide.pop_back(); // the terminator that was counted
    return wide;
}

// The program's name is read by rules of its own, but no file's name has a quote.
void host_arguments(int *count, char ***arguments) {
    static std::vector<std::string> words = split_command_line(to_narrow(GetCommandLineW()).get());
    static std::vector<char *> pointers;
    for (std::string &word : words)
        pointers.push_back(word.data());
    *count = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
    *arguments = pointers.data();
}

// The C runtime's own copy of the environment has passed through the code page.
const char *host_getenv(const char *name) {
    static std::map<std::string, std::string> values;
    const std::wstring wide = to_wide(name);
    if (GetEnvironmentVariableW(wide.c_str(), nullptr, 0) == 0)
        return nullptr;
    const std::wstring value = filled([&](wchar_t *buffer, DWORD size) {
        return GetEnvironmentVariableW(wide.c_str(), buffer, size);
    });
    return (values[name] = to_narrow(value.c_str()).get()).c_str();
}

int host_setenv(const char *name, const char *value) {
    return _wputenv(to_wide((std::string(name) + '=' + value).c_str()).c_str());
}

// --- Paths

std::wstring full_path(const wchar_t *path) {
    return filled(
        [&](wchar_t *buffer, DWORD size) { return GetFullPathNameW(path, size, buffer, nullptr); });
}

static bool is_verbatim(const std::wstring &path) {
    return path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
}

SystemPath::SystemPath(const char *path) : text(to_wide(path)) {
    constexpr DWORD LONGEST_PLAIN = 247;
    if (is_verbatim(text) || GetFullPathNameW(text.c_str(), 0, nullptr, nullptr) <= LONGEST_PLAIN)
        return;
    const std::wstring full = full_path(text.c_str());
    if (is_verbatim(full))
        text = full;
    else if (full.starts_with(L"\\\\"))
        text = L"\\\\?\\UNC" + full.substr(1);
    else
        text = L"\\\\?\\" + full;
}
