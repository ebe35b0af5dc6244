#include "platform/osdep.h"

#include <cstring>

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

OwnedString os_fullpath(const char *path) {
    return path_full(host_path_style(), os_getcwd().get(), path);
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
        rest++;
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
