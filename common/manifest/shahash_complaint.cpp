// Complaints on standard error.
#include "base/text.h"
#include "containers/stringcache.h"
#include "manifest/shahash.h"

#include <cstdarg>
#include <cstdlib>

void (*before_complaint_hook)() = nullptr;

void shahash_complain(const char *format, ...) {
    va_list args;
    va_start(args, format);
    const char *text = sc_vformat(format, args);
    va_end(args);
    if (before_complaint_hook != nullptr)
        before_complaint_hook();
    fprintf(stderr, "%s\n", text);
}

void shahash_fatal_cannot_open(const char *path) {
    shahash_complain("!! Cannot open file \"%s\"", str_printable(path).get());
    exit(1);
}
