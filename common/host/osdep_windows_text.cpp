// Reasons, text and paths as Windows takes them. Paths come in the process's narrow code page,
// which the application manifest makes UTF-8, and go to the system as UTF-16.
#include "host/osdep_windows.h"

#include <cerrno>

bool system_failure(DWORD error) {
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

// --- Text

OwnedString to_narrow(const wchar_t *wide) {
    const int size = WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    OwnedString narrow(static_cast<char *>(xalloc(static_cast<size_t>(size) + 1)));
    WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow.get(), size, nullptr, nullptr);
    return narrow;
}

std::wstring to_wide(const char *narrow) {
    const int size = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, narrow, -1, nullptr, 0);
    if (size <= 0)
        return {};
    std::wstring wide(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_ACP, 0, narrow, -1, wide.data(), size);
    wide.pop_back(); // the terminator that was counted
    return wide;
}

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
