// Memory that never comes back null: running out of it ends the program.
#ifndef KESTREL_BASE_XALLOC_H
#define KESTREL_BASE_XALLOC_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

// Marks a function whose argument `fmt` (counted from 1) is a printf format for the arguments
// from `first` on; `first` is 0 for a va_list.
// The build names the kind of printf where the compiler's default is another.
#ifndef KESTREL_PRINTF
#define KESTREL_PRINTF printf
#endif
#define PRINTF_LIKE(fmt, first) __attribute__((format(KESTREL_PRINTF, fmt, first)))

// Evaluates an expression in which `list` stands for the arguments behind the parameter `last`.
#define WITH_VA_LIST(list, last, ...)                                                              \
    do {                                                                                           \
        va_list list;                                                                              \
        va_start(list, last);                                                                      \
        __VA_ARGS__;                                                                               \
        va_end(list);                                                                              \
    } while (false)

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

#endif
