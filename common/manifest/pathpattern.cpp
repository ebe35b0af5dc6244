#include "manifest/pathpattern.h"

#include <algorithm>
#include <cctype>
#include <string>

static constexpr char SEPARATOR = '\\'; // of paths, and of patterns once they have been read

// --- Reading one

static bool can_be_name(const PathStyle &style, std::string_view component) {
    return !component.empty() && component != "." && component != ".." &&
           !(style.drives && component.find(':') != component.npos);
}

static void add_component(PathPattern &pattern, std::string_view component, bool is_last) {
    std::vector<PathPattern::Token> &tokens = pattern.tokens;
    if (component == "**" && !is_last) {
        tokens.push_back({PathPattern::COMPONENTS});
        return;
    }
    for (const char c : component) {
        const auto last = tokens.empty() ? PathPattern::LITERAL : tokens.back().kind;
        if (c != '*')
            tokens.push_back({c == '?' ? PathPattern::CHARACTER : PathPattern::LITERAL, c});
        else if (last == PathPattern::NAME_PART)
            tokens.back() = {PathPattern::PATH_PART};
        else
            tokens.push_back({PathPattern::NAME_PART});
    }
    if (!is_last)
        tokens.push_back({PathPattern::LITERAL, SEPARATOR});
}

std::optional<PathPattern> path_pattern(const PathStyle &style, std::string_view text) {
    std::string separated(text);
    std::replace(separated.begin(), separated.end(), '/', SEPARATOR);
    std::string_view rest = separated;
    PathPattern pattern;
    pattern.any_case = style.drives;
    pattern.is_of_directory = rest.ends_with(SEPARATOR);
    rest.remove_suffix(pattern.is_of_directory ? 1 : 0);
    pattern.is_of_path = rest.find(SEPARATOR) != rest.npos;
    rest.remove_prefix(rest.starts_with(".\\") ? 2 : rest.starts_with(SEPARATOR) ? 1 : 0);
    for (bool is_last = false; !is_last;) {
        const size_t end = rest.find(SEPARATOR);
        is_last = end == rest.npos;
        const std::string_view component = rest.substr(0, end);
        if (!can_be_name(style, component))
            return std::nullopt;
        add_component(pattern, component, is_last);
        rest.remove_prefix(is_last ? rest.size() : end + 1);
    }
    return pattern;
}

// --- Matching

namespace {

// The places in a text, from its beginning to its end, that a pattern's tokens have led to.
using Places = std::vector<char>;

struct Subject {
    std::string_view text;
    char separator; // of components
    bool any_case;
};

} // namespace

static bool is_at(const Subject &subject, size_t place, char literal) {
    const char c = subject.text[place];
    return c == literal || (subject.any_case && tolower(static_cast<unsigned char>(c)) ==
                                                    tolower(static_cast<unsigned char>(literal)));
}

// Behind the character at `place`: one of UTF-8, or a byte that does not begin one.
static size_t after_character(std::string_view text, size_t place) {
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
    const bool is_long = byte(place) >= 0xC0;
    do
        place++;
    while (is_long && place < text.size() && byte(place) >= 0x80 && byte(place) < 0xC0);
    return place;
}

// Where a token leads to; false if nowhere.
static bool step(PathPattern::Token token, const Subject &subject, const Places &from, Places &to) {
    const std::string_view text = subject.text;
    bool seen = false; // a place, before or here
    std::fill(to.begin(), to.end(), 0);
    for (size_t i = 0; i < from.size(); i++) {
        seen = seen || from[i] != 0;
        const bool at_end = i == text.size();
        const bool in_name = !at_end && text[i] != subject.separator;
        switch (token.kind) {
        case PathPattern::LITERAL:
            if (from[i] != 0 && !at_end && is_at(subject, i, token.literal))
                to[i + 1] = 1;
            break;
        case PathPattern::CHARACTER:
            if (from[i] != 0 && in_name)
                to[after_character(text, i)] = 1;
            break;
        case PathPattern::NAME_PART:
            to[i] = to[i] != 0 || from[i] != 0 ? 1 : 0;
            if (to[i] != 0 && in_name)
                to[i + 1] = 1;
            break;
        case PathPattern::PATH_PART:
            to[i] = seen ? 1 : 0;
            break;
        case PathPattern::COMPONENTS:
            to[i] = from[i] != 0 || (seen && i > 0 && text[i - 1] == subject.separator) ? 1 : 0;
            break;
        }
    }
    return std::find(to.begin(), to.end(), 1) != to.end();
}

// Token by token, so that the time is in proportion to both lengths whatever the pattern is. On
// some hosts a name can hold the character that separates the components of a path.
bool path_matches(const PathPattern &pattern, std::string_view path, std::string_view name) {
    const Subject subject = {pattern.is_of_path ? path : name,
                             pattern.is_of_path ? SEPARATOR : '\0', pattern.any_case};
    Places places(subject.text.size() + 1), next(places.size());
    places[0] = 1;
    for (const PathPattern::Token token : pattern.tokens) {
        if (!step(token, subject, places, next))
            return false;
        places.swap(next);
    }
    return places.back() != 0;
}
