// The debug option --zvdebug=<item>[,<item>...], which switches the debug log on.
#ifndef KESTREL_DEBUGLOG_ZVDEBUG_H
#define KESTREL_DEBUGLOG_ZVDEBUG_H

#include "host/trace.h"

#include <cstdint>

// Parses the option (the whole argument, or the list alone), sets the debug flags and opens the
// debug-out file. Only the first call counts. Problems are warnings, but a debug-out file that
// cannot be opened is fatal message 141.
void zvdebug_parse(const char *optstr);

// Who starts a program, for the choice of debug names that are passed on.
enum DebugCaller : uint32_t { DBC_QRNCC = 0, DBC_QRN = 1, DBC_DRIVER = 2 };

// The option text (interned) that makes a started program write a log too, or null if there is
// nothing to pass on. Counts the programs started under each name.
const char *zvdebug_forward(DebugCaller caller, const char *callee);

// The option (interned) that makes a started program log into a new file of this name beside the
// debug-out file. The file is made here, so that the program follows no link that has the name.
// Null when nothing is logged, the debug-out file is not a regular file, or the name cannot be
// passed on.
const char *zvdebug_beside(const char *name);

// The directory that the paths of the log and the package are relative to: the current one when the
// option was parsed; null before, or if that is unknown.
const char *zvdebug_directory();

// True when the option `out` named the debug-out file.
bool zvdebug_out_given();

// The path of the debug package, interned; null when none was asked for.
const char *zvdebug_zip_path();

// True if `debug:` named this program; case is ignored.
bool zvdebug_debug_named(const char *name);

#endif
