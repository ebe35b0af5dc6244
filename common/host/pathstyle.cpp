#include "host/pathstyle.h"

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

const PathStyle drive_path_style = {"\\/", '\\', true};
const PathStyle slash_path_style = {"/", '/', false};

bool path_is_separator(const PathStyle &style, char c) {
    return c != '\0' && strchr(style.separators, c) != nullptr;
}

const char *path_last_separator(const PathStyle &style, const char *path) {
    if (path == nullptr)
        return nullptr;
    for (const char *separator = style.separators; *separator != '\0'; separator++)
        if (const char *last = strrchr(path, *separator))
            return last;
    return style.drives ? strrchr(path, ':') : nullptr;
}

bool path_is_absolute(const PathStyle &style, const char *path) {
    if (path == nullptr || path[0] == '\0')
        return false;
    if (!style.drives)
        return path[0] == style.separator;
    return path[1] == ':' || (path[0] == '\\' && path[1] == '\\');
}

// ".." climbs, and so does a longer row of dots and spaces where these do not count at the end of a
// name.
static bool climbs(const PathStyle &style, std::string_view component) {
    return component == ".." || (style.drives && component.size() > 1 &&
                                 component.find_first_not_of(". ") == component.npos);
}

bool path_leads_out(const PathStyle &style, std::string_view path) {
    constexpr std::string_view SEPARATORS = "\\/";
    if (path.find_first_of(SEPARATORS) == 0 || path.substr(0, 2).ends_with(':'))
        return true;
    int depth = 0;
    while (!path.empty() && depth >= 0) {
        const std::string_view component = path.substr(0, path.find_first_of(SEPARATORS));
        path.remove_prefix(std::min(component.size() + 1, path.size()));
        if (climbs(style, component))
            depth--;
        else if (!component.empty() && component != ".")
            depth++;
    }
    return depth < 0;
}

size_t path_trimmed_length(const PathStyle &style, std::string_view path) {
    size_t length = path.size();
    while (length > 1 && path_is_separator(style, path[length - 1]) &&
           !(style.drives && path[length - 2] == ':'))
        length--;
    return length;
}

bool path_is_bare_drive(const PathStyle &style, const char *path) {
    return style.drives && isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':' &&
           path[2] == '\0';
}

OwnedString path_join_style(const PathStyle &style, const char *dir, const char *name) {
    if (dir == nullptr || *dir == '\0')
        return nullptr;
    assert(name != NULL);
    std::string joined = dir;
    if (joined.back() == style.separator)
        joined.pop_back();
    joined += style.separator;
    joined += name[0] == style.separator ? name + 1 : name;
    return xstrndup(joined.data(), joined.size());
}

const char *path_basename(const PathStyle &style, const char *path) {
    const char *last = path_last_separator(style, path);
    return last != nullptr ? last + 1 : path;
}

OwnedString path_dirname(const PathStyle &style, const char *path) {
    const char *last = path_last_separator(style, path);
    if (last == nullptr)
        return nullptr;
    if (!style.drives && last == path)
        last++; // the root is its own separator
    return xstrndup(path, static_cast<size_t>(last - path));
}

const char *path_extension(const char *path) {
    const char *dot = path != nullptr ? strrchr(path, '.') : nullptr;
    return dot != nullptr ? dot : "";
}

OwnedString path_stem(const PathStyle &style, const char *path, bool with_dot) {
    if (path == nullptr)
        return nullptr;
    const std::string_view base = path_basename(style, path);
    const size_t dot = base.rfind('.');
    if (dot == base.npos)
        return xstrndup(base.data(), base.size());
    return xstrndup(base.data(), with_dot ? dot + 1 : dot);
}

// Length of the "." or ".." component that `p` begins with; 0 for any other component.
static size_t dot_component(const PathStyle &style, const char *p) {
    const size_t dots = p[0] != '.' ? 0 : p[1] != '.' ? 1 : 2;
    return p[dots] == '\0' || path_is_separator(style, p[dots]) ? dots : 0;
}

// Removes the last component and the separator before it. The search covers only what is removed,
// so normalising stays linear.
static void drop_component(const PathStyle &style, std::string &path) {
    const size_t last = path.find_last_of(style.separators);
    path.resize(last == path.npos ? 0 : last);
}

// Whether ".." has no component to remove from a relative slash path: at its start, or after dots
// that stayed there.
static bool at_start(const std::string &path) {
    return path.empty() || path == "." || path == ".." || path.ends_with("/..");
}

OwnedString path_normalise(const PathStyle &style, const char *path) {
    if (path == nullptr)
        return nullptr;
    // The drive family loses ".." and its component whatever that leaves ("a\..\b" gives "\b").
    // In the slash family that would turn a relative path into an absolute one.
    const bool relative = !style.drives && !path_is_absolute(style, path);
    std::string clean;
    clean.reserve(strlen(path));
    for (const char *p = path; *p != '\0';) {
        if (!path_is_separator(style, *p)) {
            clean += *p++;
            continue;
        }
        while (path_is_separator(style, p[1]))
            p++;
        const size_t dots = dot_component(style, p + 1);
        if (dots == 1) {
            p += 2;
        } else if (dots == 2 && !(relative && at_start(clean))) {
            drop_component(style, clean);
            p += 3;
        } else {
            if (!(relative && clean.empty()))
                clean += *p;
            p++;
        }
    }
    if (!style.drives || clean.size() > 2)
        clean.resize(path_trimmed_length(style, clean));
    if (clean.empty() && !style.drives && !relative)
        clean = style.separator;
    return xstrndup(clean.data(), clean.size());
}

// What path_normalise() makes of a path that begins with a drive, with the drive.
static OwnedString normalise_behind_drive(const PathStyle &style, const char *path) {
    const std::string drive(path, strlen("C:"));
    const bool from_top = path_is_separator(style, path[drive.size()]);
    std::string clean = path_normalise(style, path).get();
    if (!clean.starts_with(drive)) {
        // ".." has taken the drive. Without a top to stop at it is best left standing.
        clean = from_top ? drive + clean : path;
    }
    if (from_top && clean.size() == drive.size())
        clean += style.separator;
    return xstrndup(clean.data(), clean.size());
}

OwnedString path_full(const PathStyle &style, const char *cwd, const char *path) {
    if (path == nullptr)
        return nullptr;
    const OwnedString joined =
        path_is_absolute(style, path) ? nullptr : path_join_style(style, cwd, path);
    const char *full = joined != nullptr ? joined.get() : path;
    const bool drive = style.drives && full[0] != '\0' && full[1] == ':';
    return drive ? normalise_behind_drive(style, full) : path_normalise(style, full);
}
