// Expansion of the program's own command line, and the running of other programs, with command
// files where a command line would be too long for the host.
#ifndef KESTREL_COMMAND_CMDLINE_H
#define KESTREL_COMMAND_CMDLINE_H

#include "containers/vector.h"

#include <cstdint>

// --- Expansion (cmdline.cpp)

// Called with each argument before it is examined.
using ArgumentFn = void (*)(const char *argument);

// The arguments after argv[0] as a new vector of interned strings: "@file" is replaced by the words
// of the file, --zvdebug is obeyed (and kept), empty arguments are dropped, and a backslash is
// removed before a space, a quote of either kind or another backslash. The caller frees the vector.
Vector *cmdline_expand(int argc, const char *const *argv, ArgumentFn callback);

// Expand the command line, and write the arguments to the debug log when it is on.
Vector *cmdline_args(int argc, const char *const *argv);
Vector *cmdline_args_cb(int argc, const char *const *argv, ArgumentFn callback);

// The argument, interned, that cmdline_expand turns back into `text`.
const char *cmdline_escape(const char *text);

// Whether an argument beginning with --zvdebug has been met.
bool cmdline_zvdebug_seen();

// Base name of the first argv[0] expanded; null before.
const char *cmdline_progname();

// --- Running programs (cmdline_exec.cpp)
//
// Options are interned strings: the path of the program and its arguments. With a command file
// the program receives one argument, "@" and the path of a file that holds one argument per line,
// as cmdline_expand reads it; the file stays until exit.
//
// With an `echo` above 0 the command line goes to standard output first; below 0 the program's
// output is discarded. The result is its exit status, -1 if it could not be started, or 1 after an
// error message.

enum ExecutionMode : uint32_t {
    EXEC_AUTOMATIC = 0, // a command file only when the command line is too long
    EXEC_COMMAND_FILE = 1,
    EXEC_DIRECT = 2
};

// Runs a program; with no options that is an error.
int cmdline_spawn(Vector *options, uint32_t mode, int32_t echo);

// Runs a program whose options are known not to be empty.
int cmdline_exe(Vector *options, uint32_t mode, int32_t echo);

// The complete main() of a program that runs another: expands its arguments, has `options_process`
// turn them into options, which stay its own, runs these and ends the debug log's run. `echo` is
// read after `options_process` has returned.
using OptionsFn = Vector *(*)(Vector *arguments);
int cmdline_driver(int argc, const char *const *argv, OptionsFn options_process, uint32_t mode,
                   const int32_t *echo);

#endif
