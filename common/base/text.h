// Strings that never come back null, numbers read from text, and text made printable.
#ifndef KESTREL_BASE_TEXT_H
#define KESTREL_BASE_TEXT_H

#include "base/xalloc.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// A new string: `a` followed by `b`.
OwnedString str_concat(const char *a, const char *b);

// Appends `b` to `a`, which is consumed: for growing a string in a loop.
OwnedString str_concat_free(OwnedString a, const char *b);

// Print into a new string of at most 4095 characters. A longer text is cut, and "buffer overflow
// in vsnprintf" (no line end) goes to standard error. Not reentrant.
OwnedString str_format(const char *format, ...) PRINTF_LIKE(1, 2);
OwnedString str_vformat(const char *format, va_list args) PRINTF_LIKE(1, 0);

// Compare ignoring case, by tolower() of each byte; str_nicmp looks at `length` bytes at most.
int str_icmp(const char *a, const char *b);
int str_nicmp(const char *a, const char *b, size_t length);

// Reads a number as atoi() does, but one out of range becomes the nearest limit of the range.
int32_t str_to_int32(const char *text);

// A copy to show to people, with each control character (C0, delete and C1, as UTF-8 or as a single
// byte) and each byte order mark replaced by "?": a name could otherwise make a terminal do
// anything.
OwnedString str_printable(const char *text);

// Prints `text` in double quotes.
void fprint_quoted(FILE *stream, const char *text);

#endif
