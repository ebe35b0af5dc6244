// A manifest's lines, written and read.
//
//     manifest  = { line }
//     line      = digest " *." "\" component { "\" component } line-end         as it is written
//     digest    = 64 lower-case hexadecimal digits
//     component = the name of a directory or file: one byte or more, but no "\", CR, LF or NUL;
//                 the last one does not end in white space
//     line-end  = LF or CR LF, as the host's text files have it
//
// What is read may differ in what does no harm: white space around the path, no asterisk, "/" for
// "\", no line end after the last line. A line has MANIFEST_LINE_LIMIT bytes at most.
#include "manifest/shahash.h"

#include "containers/stringcache.h"
#include "digest/sha256.h"
#include "host/host.h"

#include <algorithm>

// What a line's path is trimmed of.
static constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";

bool shahash_name_fits(std::string_view name, bool is_last) {
    return name.find_first_of("\r\n\\") == name.npos &&
           !(is_last && WHITE_SPACE.find(name.back()) != WHITE_SPACE.npos);
}

std::string shahash_format_line(const ManifestEntry &entry) {
    return std::string(entry.digest) + " *" + entry.path + "\n";
}

std::string_view shahash_next_line(FILE *file) {
    return sc_readLineBytes(file, MANIFEST_LINE_LIMIT);
}

bool shahash_parse_line(std::string_view line, ManifestLine *fields) {
    const size_t space = line.find(' ');
    if (space == line.npos || line.find('\0') != line.npos || line.size() > MANIFEST_LINE_LIMIT)
        return false;
    const std::string_view rest = line.substr(space);
    const size_t first = std::min(rest.find_first_not_of(WHITE_SPACE), rest.size());
    std::string_view path = rest.substr(first, rest.find_last_not_of(WHITE_SPACE) + 1 - first);
    if (path.starts_with('*'))
        path.remove_prefix(1);
    fields->digest = line.substr(0, space);
    fields->path = path;
    return true;
}

std::string shahash_native_path(std::string path) {
    std::replace(path.begin(), path.end(), '\\', host_path_style().separator);
    return path;
}

bool shahash_line_can_verify(std::string_view line) {
    constexpr size_t DIGITS = 2 * SHA256_DIGEST_SIZE;
    return line.find_first_not_of("0123456789abcdef") == DIGITS && line[DIGITS] == ' ' &&
           line.size() <= MANIFEST_LINE_LIMIT;
}
