#include "platform/osdep.h"

#include <cctype>
#include <cstring>

uint16_t *os_wcscpy(uint16_t *to, const uint16_t *from) {
    memcpy(to, from, (os_wcslen(from) + 1) * sizeof *from);
    return to;
}

uint16_t *os_wcsdup(const uint16_t *s) {
    return os_wcscpy(static_cast<uint16_t *>(xalloc((os_wcslen(s) + 1) * sizeof *s)), s);
}

size_t os_wcslen(const uint16_t *s) {
    size_t length = 0;
    while (s[length] != 0)
        length++;
    return length;
}

int os_wcscmp(const uint16_t *a, const uint16_t *b) {
    while (*a != 0 && *a == *b) {
        a++;
        b++;
    }
    return *a < *b ? -1 : *a > *b;
}

// tolower() is defined for 8-bit characters only; elements above them have no case here.
uint16_t *os_wcslwr(uint16_t *s) {
    for (uint16_t *c = s; *c != 0; c++)
        if (*c <= UINT8_MAX)
            *c = static_cast<uint16_t>(tolower(*c));
    return s;
}

char *os_strupr(char *s) {
    for (char *c = s; c != nullptr && *c != '\0'; c++)
        *c = static_cast<char>(toupper(static_cast<unsigned char>(*c)));
    return s;
}

char *os_strlwr(char *s) {
    for (char *c = s; c != nullptr && *c != '\0'; c++)
        *c = static_cast<char>(tolower(static_cast<unsigned char>(*c)));
    return s;
}
