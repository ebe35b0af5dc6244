#include "base/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string_view>

OwnedString str_concat(const char *a, const char *b) {
    const size_t a_length = strlen(a);
    const size_t b_length = strlen(b);
    OwnedString both(static_cast<char *>(xalloc(a_length + b_length + 1)));
    memcpy(both.get(), a, a_length);
    memcpy(both.get() + a_length, b, b_length);
    return both;
}

OwnedString str_concat_free(OwnedString a, const char *b) {
    return str_concat(a.get(), b);
}

OwnedString str_format(const char *format, ...) {
    OwnedString text;
    WITH_VA_LIST(args, format, text = str_vformat(format, args));
    return text;
}

OwnedString str_vformat(const char *format, va_list args) {
    static std::array<char, 4096> scratch;
    // Zeroed, so that there is an end even where a failing vsnprintf leaves none.
    scratch.fill(0);
    const int length = vsnprintf(scratch.data(), scratch.size(), format, args);
    // Negative: more than an int can count.
    if (length < 0 || static_cast<size_t>(length) >= scratch.size())
        fputs("buffer overflow in vsnprintf", stderr);
    return xstrndup(scratch.data(), scratch.size() - 1);
}

int str_icmp(const char *a, const char *b) {
    return str_nicmp(a, b, SIZE_MAX);
}

int str_nicmp(const char *a, const char *b, size_t length) {
    for (size_t i = 0; i < length; i++) {
        const auto a_byte = static_cast<unsigned char>(a[i]);
        const auto b_byte = static_cast<unsigned char>(b[i]);
        const int order = tolower(a_byte) - tolower(b_byte);
        if (order != 0 || a_byte == 0)
            return order;
    }
    return 0;
}

int32_t str_to_int32(const char *text) {
    const long long value = strtoll(text, nullptr, 10);
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

// The length of the UTF-8 character at `text`; 1 for a byte that does not begin one.
static size_t character_length(const char *text) {
    const auto byte_at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte_at(0);
    const size_t length = lead < 0xc2 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    for (size_t i = 1; i < length; i++)
        if ((byte_at(i) & 0xc0) != 0x80)
            return 1;
    return length;
}

// The upper control characters take two bytes, or one where the text is not UTF-8. A byte order
// mark is one too: it shows nothing.
static bool is_control(const char *text, size_t length) {
    if (std::string_view(text, length) == "\xef\xbb\xbf")
        return true;
    const auto last = static_cast<unsigned char>(text[length - 1]);
    const bool upper = length == 1 || (length == 2 && *text == '\xc2');
    return upper && (last < ' ' || (last >= 0x7f && last < 0xa0));
}

OwnedString str_printable(const char *text) {
    OwnedString copy = xstrdup(text);
    char *end = copy.get();
    for (size_t length; *text != '\0'; text += length) {
        length = character_length(text);
        if (is_control(text, length))
            *end++ = '?';
        else
            end = std::copy_n(text, length, end);
    }
    *end = '\0';
    return copy;
}

void fprint_quoted(FILE *stream, const char *text) {
    fprintf(stream, "\"%s\"", text);
}
