// The tool: writes a manifest of an installation, or checks one.
#ifndef KESTREL_KESTREL_H
#define KESTREL_KESTREL_H

#include "containers/vector.h"
#include "platform/osdep.h"

#include <cstdint>

// Ends the debug log's run and the process.
[[noreturn]] void cleanup(int status);

// The three modes. `instdir` is an absolute path; a null `manifest` is the file "manifest" in it.

// Writes the manifest of every file under the installation; true when it was written.
bool generate_manifest(const char *manifest, const char *instdir);

// Checks the whole manifest, divided among copies of the program; true when every line verified.
bool check_manifest(const char *manifest, const char *instdir);

// Checks the lines from `start` to `end`, both included and counted from 0; true if there are any
// and all of them verified. `position` is the offset in bytes of line `start`; below 1, lines are
// counted from the beginning of the file. Lines beyond the end of the file are ignored.
bool check_manifest_range(const char *manifest, const char *instdir, int32_t position,
                          uint32_t start, uint32_t end);

// Reports every file under the installation that the manifest does not list, other than itself and
// the report; true if there are none, and no directory was skipped. `manifest` is not null.
bool find_extra_files(const char *manifest, const char *instdir);

// --- Division of the check into tasks

// The number of tasks for a manifest of `lines` lines if none is asked for: one if there is only
// one processor; else four per processor, which is lowered, unless there are no more lines than
// that, until each checks more than 100 lines or one is left.
uint32_t adjusted_task_count(uint32_t lines, int32_t processors);

// A range of lines, both ends included. The end of the last task's range is one past the last line.
struct TaskRange {
    uint32_t start;
    uint32_t end;
};

// The range of task `index` of `tasks`. Together the ranges cover every line. With fewer lines than
// tasks, those of the tasks between the first and the last are empty (end < start).
TaskRange task_range(uint32_t lines, uint32_t tasks, uint32_t index);

// Starts a copy of the program, or another program; 0 if it could not be started. `args` begins
// with the program's path; null entries are left out.
ProcessHandle runProgram(const char *exe, Vector *args);

// Waits for the copy of the given number; true if it could be started, and its status is 0. The
// status goes to `status`, unless that is null.
bool wait_for_task(ProcessHandle process, uint32_t number, int *status = nullptr);

// The arguments as one command line (interned): double quotes escaped, arguments with white space
// quoted, each followed by a space. Null for null or an empty vector.
const char *vecString(Vector *args);

#endif
