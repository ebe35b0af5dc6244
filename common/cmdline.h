// Expansion of the program's own command line.
#ifndef COMMON_CMDLINE_H
#define COMMON_CMDLINE_H

#include "vector.h"

// Called with each argument before it is examined.
using ArgumentFn = void (*)(const char *argument);

// The arguments behind argv[0] as a new vector of interned strings: "@file" is replaced by the
// words of the file, --zvdebug is obeyed (and kept), empty arguments are dropped, and a backslash
// before a blank, a quote of either kind or a backslash is removed. The caller frees the vector.
Vector *cmdline_expand(int argc, const char *const *argv, ArgumentFn callback);

// The same, and the arguments go to the debug log when it is on.
Vector *cmdline_args(int argc, const char *const *argv);
Vector *cmdline_args_cb(int argc, const char *const *argv, ArgumentFn callback);

// The argument, interned, that cmdline_expand turns back into `text`.
const char *cmdline_escape(const char *text);

// Whether an argument beginning with --zvdebug has been met.
bool cmdline_zvdebug_seen();

// Base name of the first argv[0] expanded; null before.
const char *cmdline_progname();

#endif
