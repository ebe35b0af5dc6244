// Patterns for paths in a tree, for what is to be left out of it.
//
//     pattern = [ "/" | "./" ] component { "/" component } [ "/" ]        "\" is as good as "/"
//
// In a component "?" is any character and "*" any number of them; "**" is any number of characters
// of the path, also separators, and as a component, with the separator after it, any number of
// components. All other characters stand for themselves. A pattern without a separator, other than
// at its end, is about names anywhere in the tree, any other about paths from its top. With a
// separator at its end it is about directories only.
#ifndef KESTREL_MANIFEST_PATHPATTERN_H
#define KESTREL_MANIFEST_PATHPATTERN_H

#include "host/pathstyle.h"

#include <optional>
#include <string_view>
#include <vector>

struct PathPattern {
    enum Kind : char { LITERAL, CHARACTER, NAME_PART, PATH_PART, COMPONENTS };
    struct Token {
        Kind kind;
        char literal = '\0';
    };

    std::vector<Token> tokens;
    bool is_of_path = false;      // from the top, else of a name
    bool is_of_directory = false; // of nothing else
    bool any_case = false;        // whether "a" is as good as "A"
};
using PathPatterns = std::vector<PathPattern>;

// Reads a pattern for a tree of the host with this style, where upper and lower case are alike in
// the drive family. Null if no path can match it: it is empty or has an empty component, "." or
// "..", or, in the drive family, a ":".
std::optional<PathPattern> path_pattern(const PathStyle &style, std::string_view text);

// Whether a pattern matches an entry of the tree. `path` leads from its top, with backslashes
// between components, of which `name` is the last. Whether the entry is a directory is left to the
// caller.
bool path_matches(const PathPattern &pattern, std::string_view path, std::string_view name);

#endif
