// The string rules for paths, as pure functions over a path family. Both families exist on every
// host; osdep.h applies the host's own.
#ifndef KESTREL_HOST_PATHSTYLE_H
#define KESTREL_HOST_PATHSTYLE_H

#include "base/xalloc.h"

#include <string_view>

struct PathStyle {
    const char *separators; // what separates components, in order of precedence
    char separator;         // the one that is written, the first of `separators`
    bool drives;            // "C:" prefixes and leading "\\" pairs exist
};

extern const PathStyle drive_path_style; // "C:\dir\file", "/" accepted where a path is split
extern const PathStyle slash_path_style; // "/dir/file", nothing but "/" separates

bool path_is_separator(const PathStyle &style, char c);

// The last separator of `path` by precedence, not by position: the last of the first separator
// character that occurs at all, a drive's ":" coming last. Null if there is none.
const char *path_last_separator(const PathStyle &style, const char *path);

// Whether a path is absolute. Drive family: it has at least two characters, the second ":" or both
// "\". Slash family: it begins with "/". False for null.
bool path_is_absolute(const PathStyle &style, const char *path);

// Whether a relative path, with either family's separators, can lead out of the directory that it
// starts in other than over a link: it is absolute in either family, names a drive, or climbs above
// its start by "..". Links are not looked at.
bool path_leads_out(const PathStyle &style, std::string_view path);

// The length of `path` without the separators at its end. A root ("C:\", "/") keeps one.
size_t path_trimmed_length(const PathStyle &style, std::string_view path);

// Whether a path is "C:" and no more, in the drive family.
bool path_is_bare_drive(const PathStyle &style, const char *path);

// Joins `dir`, one separator and `name`; one written separator at the end of `dir` and one at the
// start of `name` are dropped. Null if `dir` is null or empty; `name` must not be null.
OwnedString path_join_style(const PathStyle &style, const char *dir, const char *name);

// The text after the last separator, pointing into `path`; all of it if there is none; null for
// null.
const char *path_basename(const PathStyle &style, const char *path);

// The text before the last separator; null if there is none, or for null. In the slash family the
// directory of "/x" is "/".
OwnedString path_dirname(const PathStyle &style, const char *path);

// The last "." anywhere in `path` and what follows, pointing into it; "" without one.
const char *path_extension(const char *path);

// The base name up to its last dot, which is included or not.
OwnedString path_stem(const PathStyle &style, const char *path, bool with_dot);

// A copy without repeated separators, "." and ".." components and a trailing separator. Separators
// are not converted, a leading "." or ".." stays, and a run of separators becomes its last one. The
// root ("C:\", "/") keeps its separator. ".." never climbs above the start: in the drive family it
// takes whatever is there ("a\..\b" gives "\b", "C:\.." nothing), in the slash family it stops at
// "/", and a relative path stays relative ("a/../../b" gives "../b"). Null for null.
OwnedString path_normalise(const PathStyle &style, const char *path);

// Normalises `path`, completed with the directory `cwd` if it is not absolute. Null and empty
// directories leave a relative path relative. Unlike the functions above it never leads to another
// directory at a drive's top, where ".." stops ("C:\a\..\..\b" gives "C:\b"), and which is "C:\":
// "C:" alone is the current directory of the drive. Null for null.
OwnedString path_full(const PathStyle &style, const char *cwd, const char *path);

#endif
