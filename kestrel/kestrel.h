// The tool: writes a manifest of an installation, or checks one.
#ifndef KESTREL_KESTREL_KESTREL_H
#define KESTREL_KESTREL_KESTREL_H

#include "platform/osdep.h"

#include <cstdint>

// Flushes standard output, ends the debug log's run and exits; with 1 for 0 if output was lost.
[[noreturn]] void cleanup(int status);

// The modes. `instdir` is an absolute path; a null `manifest` is the file "manifest" in it.

// Writes the manifest of every file under the installation; true when it was written.
bool generate_manifest(const char *manifest, const char *instdir);

// Checks the whole manifest, by tasks or, if there is only one, in this process. True if all lines
// verified, nothing has changed meanwhile, and with --extra no other files were found.
bool check_manifest(const char *manifest, const char *instdir);

// Checks the lines from `start` to `end`, both included and counted from 0; true if there are any
// and all of them verified. `position` is the offset in bytes of line `start`; below 1, lines are
// counted from the beginning of the file. Lines beyond the end of the file are ignored.
bool check_manifest_range(const char *manifest, const char *instdir, int32_t position,
                          uint32_t start, uint32_t end);

// Reports every file under the installation that the manifest does not list, other than itself and
// the report; true if there are none, and every directory could be listed. `manifest` is not null.
bool find_extra_files(const char *manifest, const char *instdir);

#endif
