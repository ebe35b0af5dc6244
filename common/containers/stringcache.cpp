#include "containers/stringcache.h"

#include "base/text.h"
#include "containers/hash.h"
#include "host/host.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <numeric>
#include <string_view>

static uint32_t table_size = 5077;
static HashTable *cache = nullptr; // interned copies under themselves
static uint32_t limit = 0;         // 0: none
static uint32_t cached = 0;        // strings added while a limit was set

// The buffer in which every builder works. Its content is dead once the builder has returned.
static char *scratch = nullptr;
static size_t scratch_size = 0;

void sc_setTableSize(uint32_t n) {
    table_size = n;
}

void sc_setLimit(uint32_t n) {
    limit = n;
}

// --- Interning

// The cached equal of `text`, or null. Makes the cache at first use.
static const char *find(const char *text) {
    if (cache == nullptr)
        cache = hash_new(table_size, strhash, strkeycmp, __FILE__, __LINE__);
    return static_cast<const char *>(hash_lookup(cache, text));
}

// Enters `text`, which is not there yet, unless the limit has been passed.
static const char *enter(const char *text) {
    if (limit != 0 && limit < cached)
        return text;
    if (limit != 0)
        cached++;
    hash_insert(cache, text, text, __FILE__, __LINE__);
    // Chains stay short however many strings there are; odd sizes suit the hash.
    if (cache->count > cache->size && cache->size <= UINT32_MAX / 2)
        hash_rebuild(cache, cache->size * 2 + 1);
    return text;
}

static const char *intern(const char *text) {
    if (table_size == 0)
        return xstrdup(text).release();
    const char *known = find(text);
    return known != nullptr ? known : enter(xstrdup(text).release());
}

const char *sc_strdup(const char *s) {
    return s != nullptr ? intern(s) : nullptr;
}

const char *sc_adopt(char *s) {
    if (s == nullptr || table_size == 0)
        return s;
    const char *known = find(s);
    return known != nullptr ? known : enter(s);
}

// --- Building

// The scratch buffer with room for `n` bytes, terminator included; the first `keep` stay.
static char *reserve(size_t n, size_t keep = 0) {
    if (n > scratch_size) {
        const size_t grown = std::max<size_t>(2 * n, 4096);
        OwnedString old(scratch);
        if (keep == 0)
            old.reset();
        // Empty meanwhile: the message about lack of memory is built here as well.
        scratch = nullptr;
        scratch_size = 0;
        scratch = static_cast<char *>(xalloc(grown));
        scratch_size = grown;
        if (keep != 0)
            memcpy(scratch, old.get(), keep);
    }
    return scratch;
}

static const char *build(std::initializer_list<std::string_view> parts) {
    size_t length = 0;
    for (const std::string_view part : parts)
        length += part.size();
    char *end = reserve(length + 1);
    for (const std::string_view part : parts)
        end = std::copy(part.begin(), part.end(), end);
    *end = '\0';
    return intern(scratch);
}

// A single character as a part; NUL as an empty one.
static std::string_view one(const char &c) {
    return {&c, c != '\0' ? size_t{1} : size_t{0}};
}

static std::string_view without_dot(const char *ext) {
    return *ext == '.' ? ext + 1 : ext;
}

const char *sc_concat(const char *a, const char *b) {
    return a != nullptr && b != nullptr ? build({a, b}) : nullptr;
}

const char *sc_concatOpt(const char *a, const char *b) {
    if (a == nullptr)
        return b;
    return b != nullptr ? build({a, b}) : a;
}

const char *sc_ncopy(const char *s, size_t len) {
    return s != nullptr ? build({std::string_view(s, strnlen(s, len))}) : nullptr;
}

// --- Formatting

// vsnprintf into the scratch buffer as it is; whether all of it fitted.
PRINTF_LIKE(2, 0)
static bool format_scratch(int *length, const char *fmt, va_list args) {
    va_list again;
    va_copy(again, args);
    *length = vsnprintf(scratch, scratch_size, fmt, again);
    va_end(again);
    return *length >= 0 && static_cast<size_t>(*length) < scratch_size;
}

const char *sc_vformat(const char *fmt, va_list args) {
    if (fmt == nullptr)
        return nullptr;
    int length;
    reserve(10 * strlen(fmt));
    if (!format_scratch(&length, fmt, args)) {
        reserve(static_cast<size_t>(length) + 1); // 0, no growth, after an error
        if (!format_scratch(&length, fmt, args)) {
            fputs("vsnprintf failed in a mysterious way\n", stderr);
            abort();
        }
    }
    return intern(scratch);
}

const char *sc_format(const char *fmt, ...) {
    const char *text;
    WITH_VA_LIST(args, fmt, text = sc_vformat(fmt, args));
    return text;
}

const char *sc_vformatExpand(const char *fmt, va_list args) {
    return sc_expandTabs(sc_vformat(fmt, args));
}

const char *sc_formatExpand(const char *fmt, ...) {
    const char *text;
    WITH_VA_LIST(args, fmt, text = sc_vformatExpand(fmt, args));
    return text;
}

// --- Changing characters

const char *sc_expandTabs(const char *s) {
    if (s == nullptr)
        return nullptr;
    const std::string_view text = s;
    const auto tabs = static_cast<size_t>(std::count(text.begin(), text.end(), '\t'));
    char *end = reserve(text.size() + 3 * tabs + 1);
    for (const char c : text) {
        if (c == '\t')
            end = std::fill_n(end, 4, ' ');
        else
            *end++ = c;
    }
    *end = '\0';
    return intern(scratch);
}

// s with each character put through `change`, which maps unsigned characters.
template <class Change> static const char *changed(const char *s, Change change) {
    if (s == nullptr)
        return nullptr;
    const size_t length = strlen(s);
    char *end = std::transform(s, s + length, reserve(length + 1), [&](char c) {
        return static_cast<char>(change(static_cast<unsigned char>(c)));
    });
    *end = '\0';
    return intern(scratch);
}

const char *sc_lower(const char *s) {
    return changed(s, [](int c) { return tolower(c); });
}

const char *sc_upper(const char *s) {
    return changed(s, [](int c) { return toupper(c); });
}

const char *sc_translate(const char *s, const char *from, const char *to) {
    if (from == nullptr || to == nullptr)
        return nullptr;
    std::array<char, 256> map;
    std::iota(map.begin(), map.end(), '\0');
    // Characters of `from` beyond the end of `to` stay themselves.
    for (; *from != '\0' && *to != '\0'; from++, to++)
        map[static_cast<unsigned char>(*from)] = *to;
    return changed(s, [&](unsigned char c) { return map[c]; });
}

const char *sc_fromChars(Vector *v) {
    if (v == nullptr)
        return nullptr;
    const uint32_t length = vec_size(v);
    char *text = reserve(size_t{length} + 1);
    for (uint32_t i = 0; i < length; i++)
        text[i] = static_cast<char>(reinterpret_cast<intptr_t>(vec_elementAt(v, i)));
    text[length] = '\0';
    return intern(text);
}

const char *sc_quote(const char *s, char q) {
    return s != nullptr ? build({one(q), s, one(q)}) : nullptr;
}

const char *sc_escape(const char *s, const char *set, char esc) {
    if (s == nullptr || set == nullptr)
        return nullptr;
    const std::string_view text = s, special = set;
    char *end = reserve(2 * text.size() + 1);
    for (const char c : text) {
        if (special.find(c) != special.npos)
            *end++ = esc != '\0' ? esc : '\\';
        *end++ = c;
    }
    *end = '\0';
    return intern(scratch);
}

// --- Parts of a text

// s without the leading and trailing characters that `drop` holds for.
template <class Drop> static const char *trimmed(const char *s, Drop drop) {
    if (s == nullptr)
        return nullptr;
    const char *end = s + strlen(s);
    while (s != end && drop(*s))
        s++;
    while (s != end && drop(end[-1]))
        end--;
    return build({std::string_view(s, end)});
}

const char *sc_trim(const char *s) {
    return trimmed(s, [](char c) { return isspace(static_cast<unsigned char>(c)) != 0; });
}

const char *sc_trimChars(const char *s, const char *set) {
    return set != nullptr ? trimmed(s, [&](char c) { return strchr(set, c) != nullptr; }) : nullptr;
}

const char *sc_chomp(const char *s) {
    if (s == nullptr)
        return nullptr;
    const std::string_view text = s;
    return build({text.substr(0, text.find_last_not_of("\r\n") + 1)});
}

const char *sc_firstLine(const char *s) {
    return s != nullptr ? sc_ncopy(s, strcspn(s, "\r\n")) : nullptr;
}

const char *sc_between(const char *s, char c1, char c2, size_t *p1, size_t *p2) {
    size_t unused;
    size_t &first = p1 != nullptr ? *p1 : unused;
    size_t &second = p2 != nullptr ? *p2 : unused;
    first = 0;
    second = 0;
    if (s == nullptr)
        return nullptr;
    const std::string_view text = s;
    const size_t begin = text.find(c1);
    if (begin == text.npos)
        return nullptr;
    first = begin;
    const size_t end = text.find(c2, begin + 1);
    if (end == text.npos)
        return nullptr;
    second = end;
    return build({text.substr(begin + 1, end - begin - 1)});
}

Vector *sc_split(const char *s, const char *delimiters) {
    if (s == nullptr || delimiters == nullptr)
        return nullptr;
    Vector *tokens = vec_new(__FILE__, __LINE__);
    while (*(s += strspn(s, delimiters)) != '\0') {
        const size_t length = strcspn(s, delimiters);
        vec_append(tokens, sc_ncopy(s, length));
        s += length;
    }
    return tokens;
}

// --- Lines

// Reads up to 1023 bytes of a line to the 1024 at `block`, as fgets does, and returns their number:
// 0 at the end of the stream. fgets does not return it, and the line may hold NULs. So the block is
// filled with line feeds beforehand. If the first line feed is followed by a NUL, it is the line's
// own; otherwise it belongs to the filling, which begins after the terminator. A full block
// contains neither.
static size_t read_block(FILE *stream, char *block) {
    memset(block, '\n', 1024);
    if (fgets(block, 1024, stream) == nullptr)
        return 0;
    const auto *feed = static_cast<const char *>(memchr(block, '\n', 1024));
    if (feed == nullptr)
        return 1023;
    const auto before = static_cast<size_t>(feed - block);
    return before < 1023 && feed[1] == '\0' ? before + 1 : before - 1;
}

std::string_view sc_readLineBytes(FILE *stream, size_t most) {
    size_t used = 0;
    while (stream != nullptr && used <= most) {
        char *block = reserve(used + 1024, used) + used;
        const size_t got = read_block(stream, block);
        used += got;
        // A block that is not full ends the line, but only a line feed ends a full one.
        if (got < 1023 || block[got - 1] == '\n')
            break;
    }
    if (used != 0)
        scratch[used] = '\0'; // at the end of the stream the last block is filling
    return {scratch, used};
}

const char *sc_readLine(FILE *stream) {
    return sc_readLineBytes(stream).empty() ? nullptr : intern(scratch);
}

// --- Paths

const char *sc_pathJoin(const char *dir, const char *name) {
    if (dir == nullptr || *dir == '\0')
        return name;
    if (name == nullptr || *name == '\0')
        return dir;
    const char separator = host_path_style().separator;
    return build({dir, one(std::string_view(dir).ends_with(separator) ? '\0' : separator),
                  *name == separator ? name + 1 : name});
}

const char *sc_addExt(const char *s, const char *ext) {
    return s != nullptr && ext != nullptr ? build({s, ".", without_dot(ext)}) : nullptr;
}

const char *sc_replaceExt(const char *s, const char *ext) {
    if (s == nullptr || ext == nullptr)
        return nullptr;
    const std::string_view text = s;
    return build({text.substr(0, text.rfind('.')), ".", without_dot(ext)});
}

const char *sc_stripExt(const char *s) {
    if (s == nullptr)
        return nullptr;
    const char *dot = strrchr(s, '.');
    if (dot == nullptr || strchr(dot, host_path_style().separator) != nullptr)
        return intern(s);
    return build({std::string_view(s, dot)});
}

const char *sc_basename(const char *path) {
    return sc_strdup(path_basename(host_path_style(), path));
}

const char *sc_dirname(const char *path) {
    return sc_strdup(path_dirname(host_path_style(), path).get());
}

const char *sc_nativePath(const char *s) {
    if (s == nullptr || *s == '\0')
        return s;
    if (host_path_style().drives)
        return sc_translate(s, "/", "\\");
    const bool has_drive = isalpha(static_cast<unsigned char>(s[0])) != 0 && s[1] == ':';
    return has_drive ? s : intern(s);
}

const char *sc_nativePathJoin(const char *dir, const char *name) {
    return sc_pathJoin(sc_nativePath(dir), sc_nativePath(name));
}

// --- Ends and beginnings

using CompareText = int (*)(const char *a, const char *b);
using CompareStart = int (*)(const char *a, const char *b, size_t length);

static const char *tail(const char *s, const char *suffix, CompareText compare) {
    if (s == nullptr || suffix == nullptr)
        return nullptr;
    const size_t length = strlen(s), wanted = strlen(suffix);
    if (length < wanted || compare(s + length - wanted, suffix) != 0)
        return nullptr;
    return intern(s + length - wanted);
}

static const char *rest(const char *s, const char *prefix, CompareStart compare) {
    if (s == nullptr || prefix == nullptr)
        return nullptr;
    const size_t length = strlen(prefix);
    return compare(s, prefix, length) == 0 ? intern(s + length) : nullptr;
}

const char *sc_endsWith(const char *s, const char *suffix) {
    return tail(s, suffix, strcmp);
}

const char *sc_endsWithI(const char *s, const char *suffix) {
    return tail(s, suffix, str_icmp);
}

int sc_hasSuffix(const char *s, const char *suffix) {
    return sc_endsWith(s, suffix) != nullptr;
}

int sc_hasSuffixI(const char *s, const char *suffix) {
    return sc_endsWithI(s, suffix) != nullptr;
}

const char *sc_afterPrefix(const char *s, const char *prefix) {
    return rest(s, prefix, strncmp);
}

const char *sc_afterPrefixI(const char *s, const char *prefix) {
    return rest(s, prefix, str_nicmp);
}

int sc_hasPrefix(const char *s, const char *prefix) {
    return sc_afterPrefix(s, prefix) != nullptr;
}

int sc_hasPrefixI(const char *s, const char *prefix) {
    return sc_afterPrefixI(s, prefix) != nullptr;
}
