// What the parts of the Windows host share: reasons, text in UTF-16, paths and handles.
#ifndef KESTREL_HOST_HOST_WINDOWS_H
#define KESTREL_HOST_HOST_WINDOWS_H

#define WIN32_LEAN_AND_MEAN
#include "host/host.h"

#include <string>
#include <windows.h>

// Sets errno to the nearest equivalent of a system error; always false.
bool system_failure(DWORD error = GetLastError());

inline bool succeed_or_fail(BOOL done) {
    return done ? true : system_failure();
}

OwnedString to_narrow(const wchar_t *wide);

// Empty if the text is not valid UTF-8.
std::wstring to_wide(const char *narrow);

// Repeats a system call that fills a buffer and returns the length it needs, until the text fits.
// Empty on failure.
template <class Call> std::wstring filled(Call call) {
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

// From the root; empty on failure.
std::wstring full_path(const wchar_t *path);

// A path as the system calls take it. If it is long when made absolute it gets the prefix that
// lifts the limit of 260 characters (248 for a directory), so that it works whatever the machine's
// settings are.
class SystemPath {
  public:
    explicit SystemPath(const char *path);
    const wchar_t *get() const { return text.c_str(); }

  private:
    std::wstring text; // empty, which names nothing, if it could not be converted
};

// Called between two tries of a call that somebody's use of the file has kept from succeeding.
// Sleep, unless a test does something else meanwhile.
extern void (*in_use_pause)(unsigned milliseconds);

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

#endif
