// Memory and small strings that never come back null: running out of memory ends the program.
#ifndef KESTREL_BASE_XALLOC_H
#define KESTREL_BASE_XALLOC_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

// Marks a function whose argument `fmt` (counted from 1) is a printf format for the arguments
// from `first` on; `first` is 0 for a va_list.
// The build names the kind of printf where the compiler's default is another.
#ifndef KESTREL_PRINTF
#define KESTREL_PRINTF printf
#endif
#define PRINTF_LIKE(fmt, first) __attribute__((format(KESTREL_PRINTF, fmt, first)))

struct FreeDeleter {
    void operator()(void *block) const { free(block); }
};

// A string that its holder owns; everything that returns one hands over the ownership.
using OwnedString = std::unique_ptr<char, FreeDeleter>;
using OwnedBytes = std::unique_ptr<uint8_t[], FreeDeleter>;

// Called when memory runs out; must not return. By default prints "out of memory" to standard
// error and exits with status 1; runtime_init() routes it to message 296.
extern void (*out_of_memory_hook)();

// Ends the program through the hook: for a size that cannot even be asked for.
[[noreturn]] void out_of_memory();

// A zero-filled block of `size` bytes, to be given to free(). Never null, for size 0 either.
void *xalloc(size_t size);

// One zero-filled object of a trivial type, to be given to free().
template <class T> T *xnew() {
    return static_cast<T *>(xalloc(sizeof(T)));
}

// A copy of `text`, or of its first `length` bytes at most.
OwnedString xstrdup(const char *text);
OwnedString xstrndup(const char *text, size_t length);

// `a` followed by `b`.
OwnedString str_concat(const char *a, const char *b);

// The same, consuming `a`: for growing a string in a loop.
OwnedString str_concat_free(OwnedString a, const char *b);

// printf into a new string of at most 4095 characters. A longer text is cut, and "buffer overflow
// in vsnprintf" (no line end) goes to standard error. Not reentrant.
OwnedString str_format(const char *format, ...) PRINTF_LIKE(1, 2);
OwnedString str_vformat(const char *format, va_list args) PRINTF_LIKE(1, 0);

// Comparison ignoring case, by tolower() of each byte; the second looks at `length` bytes at most.
int str_icmp(const char *a, const char *b);
int str_nicmp(const char *a, const char *b, size_t length);

// As atoi(), but a number out of range becomes the nearest limit of the range.
int32_t str_to_int32(const char *text);

// A copy to show to people, with each control character (C0, delete and C1, as UTF-8 or as a single
// byte) replaced by "?": a name could otherwise make a terminal do anything.
OwnedString str_printable(const char *text);

// Prints `text` in double quotes.
void fprint_quoted(FILE *stream, const char *text);

#endif
