// Programs that are started under a debugger.
#ifndef KESTREL_DEBUGLOG_DEBUGGER_H
#define KESTREL_DEBUGLOG_DEBUGGER_H

#include "containers/vector.h"

// Runs a program to its end and returns its exit status, or -1 if it could not be started: under
// the debugger if `force` is set or --zvdebug=debug names it, and plainly otherwise. `args` begins
// with the program's own name; a plain start appends a terminating null to it.
int db_debugger(const char *app, Vector *args, bool force);

// The debugger that is looked for.
extern const char *db_debugger_path;

#endif
