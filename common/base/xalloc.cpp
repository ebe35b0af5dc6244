#include "base/xalloc.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

// Standard assertions are part of the behaviour in every build type.
#ifdef NDEBUG
#error "kestrel needs its assertions: compile it without -DNDEBUG"
#endif

void (*out_of_memory_hook)() = [] {
    fputs("out of memory\n", stderr);
    exit(1);
};

void out_of_memory() {
    out_of_memory_hook();
    abort();
}

void *xalloc(size_t size) {
    void *block = calloc(1, std::max<size_t>(size, 1));
    if (block == nullptr)
        out_of_memory();
    return block;
}

OwnedString xstrdup(const char *text) {
    return xstrndup(text, strlen(text));
}

OwnedString xstrndup(const char *text, size_t length) {
    length = strnlen(text, length);
    OwnedString copy(static_cast<char *>(xalloc(length + 1)));
    memcpy(copy.get(), text, length);
    return copy;
}
