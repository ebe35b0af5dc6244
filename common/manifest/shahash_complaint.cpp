// Complaints on standard error.
#include "base/text.h"
#include "containers/stringcache.h"
#include "manifest/shahash.h"

#include <cstdlib>

void (*before_complaint_hook)() = nullptr;

void shahash_complain(const char *format, ...) {
    const char *text;
    WITH_VA_LIST(args, format, text = sc_vformat(format, args));
    if (before_complaint_hook != nullptr)
        before_complaint_hook();
    fprintf(stderr, "%s\n", text);
}

void shahash_fatal_cannot_open(const char *path) {
    shahash_complain("!! Cannot open file \"%s\"", str_printable(path).get());
    exit(1);
}
