#include "osdep.h"

#include <cstring>
#include <utility>

OwnedString os_join(const char *dir, const char *name) {
    return path_join_style(host_path_style(), dir, name);
}

OwnedString path_join(const char *dir, const char *name) {
    return os_join(dir, name);
}

const char *os_basename(const char *path) {
    return path_basename(host_path_style(), path);
}

OwnedString os_basename_copy(const char *path) {
    return path != nullptr ? xstrdup(os_basename(path)) : nullptr;
}

OwnedString os_dirname(const char *path) {
    return path_dirname(host_path_style(), path);
}

const char *os_extension(const char *path) {
    return path_extension(path);
}

OwnedString os_stem(const char *path) {
    return path_stem(host_path_style(), path, false);
}

OwnedString os_stem_dot(const char *path) {
    return path_stem(host_path_style(), path, true);
}

int os_is_absolute(const char *path) {
    return path_is_absolute(host_path_style(), path);
}

OwnedString os_normalise(const char *path) {
    return path_normalise(host_path_style(), path);
}

// A current directory that is gone leaves a relative path relative.
OwnedString os_fullpath(const char *path) {
    const OwnedString current = path == nullptr || os_is_absolute(path) ? nullptr : os_getcwd();
    const OwnedString joined = current != nullptr ? os_join(current.get(), path) : nullptr;
    if (joined == nullptr)
        return os_normalise(path);
    OwnedString full = os_normalise(joined.get());
    // ".." that reaches a drive's top takes the separator along or, above it, the drive. "C:" alone
    // would be the current directory there.
    const bool above = host_path_style().drives && *full == '\0' && current.get()[1] == ':';
    if (above)
        full = xstrndup(current.get(), strlen("C:"));
    return path_is_bare_drive(host_path_style(), full.get())
               ? str_concat_free(std::move(full), "\\")
               : std::move(full);
}

OwnedString os_relpath(const char *path) {
    OwnedString full = os_fullpath(path);
    const OwnedString current = os_getcwd();
    if (full == nullptr || current == nullptr)
        return full;
    const size_t length = strlen(current.get());
    if (strncmp(full.get(), current.get(), length) != 0)
        return full;
    const char *rest = full.get() + length;
    if (path_is_separator(host_path_style(), *rest))
        ++rest;
    return xstrdup(*rest != '\0' ? rest : ".");
}

OwnedString os_getcwd() {
    return host_getcwd();
}

OwnedString os_shortpath(const char *path) {
    return path != nullptr ? host_shortpath(path) : nullptr;
}

bool os_name_case_matches(const char *path) {
    const OwnedString stored = path != nullptr ? host_stored_name(path) : nullptr;
    return stored != nullptr && strcmp(stored.get(), os_basename(path)) == 0;
}
