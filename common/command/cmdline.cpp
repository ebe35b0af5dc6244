#include "command/cmdline.h"

#include "base/text.h"
#include "containers/stringcache.h"
#include "debuglog/zvdebug.h"
#include "host/trace.h"
#include "platform/osdep.h"

#include <cerrno>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// How deep response files may be nested, and how many are read in one expansion: files that each
// name the next one twice would double their words with every level.
static constexpr uint32_t MAX_NESTING = 32;
static constexpr uint32_t MAX_FILES = 2000;

// How much is read of a response file that may have no end, in bytes.
static constexpr size_t MAX_SPECIAL = 64 << 20;

static const char *progname = nullptr;
static bool zvdebug_seen = false;

using Arguments = std::vector<const char *>;

// --- Backslashes

// Whether a backslash before `c` takes a meaning away from it, and is removed in the end. All other
// backslashes are kept, so that a path of the drive-letter family can be written plainly.
static bool is_escapable(char c) {
    return c == ' ' || c == '"' || c == '\'' || c == '\\';
}

static bool is_escape(std::string_view text, size_t at) {
    return text[at] == '\\' && at + 1 < text.size() && is_escapable(text[at + 1]);
}

static const char *unescape(std::string_view text) {
    std::string result;
    for (size_t at = 0; at < text.size(); at++) {
        if (is_escape(text, at))
            at++;
        result += text[at];
    }
    return sc_strdup(result.c_str());
}

const char *cmdline_escape(const char *text) {
    if (text == nullptr)
        return nullptr;
    const std::string_view plain = text;
    std::string result;
    for (size_t at = 0; at < plain.size(); at++) {
        if (is_escape(plain, at))
            result += '\\';
        result += plain[at];
    }
    return sc_strdup(result.c_str());
}

// --- Response files

// A NUL cannot be part of an argument, so it separates too, and even within quotes.
static bool is_separator(char c, bool quoted) {
    return c == '\0' || (!quoted && (c == ' ' || c == '\t' || c == '\n' || c == '\r'));
}

// Removes the first word of `text` and returns it. Double quotes group and are dropped. Escapes are
// kept with their backslash, for unescape(), except in the name of a file after "@", which is not
// unescaped later.
static const char *take_word(std::string_view &text) {
    std::string word;
    bool quoted = false;
    size_t at = 0;
    for (; at < text.size() && !is_separator(text[at], quoted); at++) {
        if (text[at] == '"') {
            quoted = !quoted;
            continue;
        }
        const bool escape = is_escape(text, at);
        if (escape && word.starts_with('@'))
            at++;
        else if (escape)
            word += text[at++];
        word += text[at];
    }
    text.remove_prefix(at);
    return sc_strdup(word.c_str());
}

static Arguments split_words(std::string_view text) {
    Arguments words;
    while (true) {
        while (!text.empty() && is_separator(text.front(), false))
            text.remove_prefix(1);
        if (text.empty())
            return words;
        words.push_back(take_word(text));
    }
}

namespace {

// One expansion: the resulting words, the function that is called with each argument, the number of
// response files read so far, and the last of them, at its end.
struct Expansion {
    Vector *args;
    ArgumentFn callback;
    uint32_t files_read;
    FilePtr last_read;
};

// A response file whose words are being expanded, and the one that named it.
struct OpenFile {
    const OpenFile *outer;
    uint32_t depth;
    bool is_special; // neither a regular file nor a directory
    bool known;      // whether `state` is
    FileState state;
};

} // namespace

static OpenFile enter_file(const char *path, bool is_special, const OpenFile *outer) {
    OpenFile file = {outer, outer == nullptr ? 1 : outer->depth + 1, is_special, false, {}};
    file.known = host_file_state(path, &file.state);
    return file;
}

// A pipe changes whenever it is written to.
static bool is_same(const OpenFile &a, const OpenFile &b) {
    return a.known && b.known &&
           (a.is_special ? a.state.identity == b.state.identity : a.state == b.state);
}

// Whether the file includes itself, directly or through others, or is one too many.
static bool is_endless(const Expansion &expansion, const OpenFile &file) {
    for (const OpenFile *outer = file.outer; outer != nullptr; outer = outer->outer)
        if (is_same(file, *outer))
            return true;
    return file.depth > MAX_NESTING || expansion.files_read >= MAX_FILES;
}

// Reads a whole file. A pipe or a device can be opened only once: as standard input it is open
// already.
static bool read_file(Expansion &expansion, const char *path, const OpenFile &file,
                      std::string *text) {
    FileState input;
    const bool is_input = file.is_special && file.known &&
                          host_opened_state(host_fileno(stdin), &input) &&
                          input.identity == file.state.identity;
    FilePtr opened(is_input ? nullptr : host_fopen(path, "r"));
    FILE *const stream = is_input ? stdin : opened.get();
    errno = stream != nullptr ? EFBIG : errno; // unless reading fails
    if (stream == nullptr || !os_read_all(stream, text, file.is_special ? MAX_SPECIAL : SIZE_MAX))
        return false;
    if (opened != nullptr)
        expansion.last_read = std::move(opened);
    return true;
}

// Reads all words of a file before any of them is examined: they may name further files. Editors
// put a byte order mark first.
static bool read_response_file(Expansion &expansion, const char *path, const OpenFile &file,
                               Arguments &words) {
    constexpr std::string_view MARK = "\xef\xbb\xbf";
    std::string text;
    if (!read_file(expansion, path, file, &text))
        return false;
    words = split_words(std::string_view(text).substr(text.starts_with(MARK) ? MARK.size() : 0));
    return true;
}

// --- Expansion

static void expand_arguments(Expansion &expansion, std::span<const char *const> arguments,
                             const OpenFile *outer);

static bool cannot_read(const char *path) {
    const char *reason = host_strerror(errno);
    fprintf(stderr, "Cannot read response file \"%s\": %s\n", str_printable(path).get(), reason);
    return false;
}

// False if there is no such file, or it cannot be used; the argument is then kept as it is.
static bool expand_file(Expansion &expansion, const char *path, const OpenFile *outer) {
    HostStat found;
    if (!host_stat(path, &found))
        return errno == EACCES && cannot_read(path); // there may be one
    if (found.kind == FileKind::directory) {
        errno = EISDIR;
        return cannot_read(path);
    }
    const OpenFile file = enter_file(path, found.kind == FileKind::other, outer);
    Arguments words;
    if (is_endless(expansion, file))
        return false;
    expansion.files_read++;
    if (!read_response_file(expansion, path, file, words))
        return cannot_read(path);
    expand_arguments(expansion, words, &file);
    return true;
}

static void expand_argument(Expansion &expansion, const char *argument, const OpenFile *outer) {
    if (*argument == '\0')
        return;
    if (*argument == '@') {
        if (!expand_file(expansion, argument + 1, outer))
            vec_append(expansion.args, sc_strdup(argument));
        return;
    }
    if (sc_hasPrefix(argument, "--zvdebug")) {
        zvdebug_seen = true;
        zvdebug_parse(argument);
    }
    vec_append(expansion.args, unescape(argument));
}

static void expand_arguments(Expansion &expansion, std::span<const char *const> arguments,
                             const OpenFile *outer) {
    const Vector *args = expansion.args; // named as the assertion says
    DEBUG_ASSERT(args != NULL);
    for (const char *argument : arguments) {
        if (argument == nullptr)
            return;
        if (expansion.callback != nullptr)
            expansion.callback(argument);
        expand_argument(expansion, argument, outer);
    }
}

Vector *cmdline_expand(int argc, const char *const *argv, ArgumentFn callback) {
    DEBUG_ASSERT(argv != NULL);
    Expansion expansion = {vec_new(__FILE__, __LINE__), callback, 0, nullptr};
    if (argv == nullptr || argc <= 0)
        return expansion.args;
    if (progname == nullptr && argv[0] != nullptr)
        progname = sc_strdup(os_basename(argv[0]));
    expand_arguments(expansion, {argv + 1, static_cast<size_t>(argc) - 1}, nullptr);
    // Not before: any of the files may be read from standard input.
    if (expansion.last_read != nullptr)
        host_dup2(host_fileno(expansion.last_read.get()), host_fileno(stdin));
    return expansion.args;
}

Vector *cmdline_args_cb(int argc, const char *const *argv, ArgumentFn callback) {
    Vector *args = cmdline_expand(argc, argv, callback);
    if (trace_flags != 0)
        trace_args(argc, argv);
    return args;
}

Vector *cmdline_args(int argc, const char *const *argv) {
    return cmdline_args_cb(argc, argv, nullptr);
}

bool cmdline_zvdebug_seen() {
    return zvdebug_seen;
}

const char *cmdline_progname() {
    return progname;
}
