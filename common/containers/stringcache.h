// Interned text: equal strings are kept once, and everything here returns the one copy. Results are
// shared and read-only, live to the end of the process and are never freed by a caller (except
// with interning off or past the limit, when each call makes a private copy).
//
// A null input gives null unless a comment says otherwise. Building happens in one scratch buffer;
// nothing here is reentrant.
#ifndef KESTREL_CONTAINERS_STRINGCACHE_H
#define KESTREL_CONTAINERS_STRINGCACHE_H

#include "base/xalloc.h"
#include "containers/vector.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

// --- Control

// Buckets the cache starts with; only before the first interning call. 0 switches interning off
// from then on, at any time.
void sc_setTableSize(uint32_t n);

// The cache stops taking strings once more than `n` have been added since a limit was set; 0: no
// limit.
void sc_setLimit(uint32_t n);

// --- Finished strings

const char *sc_strdup(const char *s);

// The cached equal of `s`, or `s` itself, which the cache takes over.
const char *sc_adopt(char *s);

// --- Builders

const char *sc_concat(const char *a, const char *b);

// The other argument, untouched, if one is null.
const char *sc_concatOpt(const char *a, const char *b);

const char *sc_format(const char *fmt, ...) PRINTF_LIKE(1, 2);
const char *sc_vformat(const char *fmt, va_list args) PRINTF_LIKE(1, 0);

// sc_format and then sc_expandTabs.
const char *sc_formatExpand(const char *fmt, ...) PRINTF_LIKE(1, 2);
const char *sc_vformatExpand(const char *fmt, va_list args) PRINTF_LIKE(1, 0);

const char *sc_expandTabs(const char *s); // each tab becomes four spaces
const char *sc_ncopy(const char *s, size_t len);
const char *sc_lower(const char *s);
const char *sc_upper(const char *s);

// Text whose characters are the elements of `v`.
const char *sc_fromChars(Vector *v);

// s without leading and trailing white space, or characters of `set`.
const char *sc_trim(const char *s);
const char *sc_trimChars(const char *s, const char *set);

const char *sc_chomp(const char *s); // without the CRs and LFs at the end
const char *sc_firstLine(const char *s);

// The text between the first `c1` and the next `c2`, whose positions go to p1 and p2 when given (0
// before they are found); null when either is missing.
const char *sc_between(const char *s, char c1, char c2, size_t *p1, size_t *p2);

const char *sc_quote(const char *s, char q);

// s with `esc` (backslash for 0) before each character of `set`.
const char *sc_escape(const char *s, const char *set, char esc);

// s with each character of `from` replaced by the one at the same place in `to`.
const char *sc_translate(const char *s, const char *from, const char *to);

// A new vector of the pieces of s between runs of delimiter characters; the caller frees it.
Vector *sc_split(const char *s, const char *delimiters);

// The next line of a stream, of any length, line end included; null at the end. A line ends with a
// line feed.
const char *sc_readLine(FILE *stream);

// The same without interning, for lines that are read once: the bytes of the line, NULs included.
// Valid until the next call of any function here; empty at the end of the stream. A line of more
// than `most` bytes comes in pieces, which are longer than `most`.
std::string_view sc_readLineBytes(FILE *stream, size_t most = SIZE_MAX);

// --- Paths, by the host's rules

// A null or empty part gives the other one, untouched; a leading separator of `name` is dropped,
// and none is added to a `dir` that ends with one.
const char *sc_pathJoin(const char *dir, const char *name);
const char *sc_addExt(const char *s, const char *ext); // "s.ext"; a leading dot of ext is skipped
const char *sc_replaceExt(const char *s, const char *ext); // cut at the last dot, wherever it is
const char *sc_stripExt(const char *s);                    // cut at a dot in the last component
const char *sc_basename(const char *path);
const char *sc_dirname(const char *path); // null without a separator

// With every slash turned to a backslash on the drive-letter host; unchanged elsewhere. A null or
// empty s comes back as it is.
const char *sc_nativePath(const char *s);
const char *sc_nativePathJoin(const char *dir, const char *name);

// --- Ends and beginnings; the forms in -I ignore case

// The tail of s that equals `suffix`, or null.
const char *sc_endsWith(const char *s, const char *suffix);
const char *sc_endsWithI(const char *s, const char *suffix);
int sc_hasSuffix(const char *s, const char *suffix);
int sc_hasSuffixI(const char *s, const char *suffix);

// What follows `prefix` in s, or null.
const char *sc_afterPrefix(const char *s, const char *prefix);
const char *sc_afterPrefixI(const char *s, const char *prefix);
int sc_hasPrefix(const char *s, const char *prefix);
int sc_hasPrefixI(const char *s, const char *prefix);

#endif
