// Standard output.
#ifndef KESTREL_KESTREL_OUTPUT_H
#define KESTREL_KESTREL_OUTPUT_H

#include <string_view>

// Writes to standard output, unless that has failed before: what follows a lost piece would seem
// complete.
void print(std::string_view text);

// Flushes standard output; false if writing to it has failed now or before, which the first time is
// reported on standard error.
bool flush_output();

// Prints "<action> manifest ... for installation ..." at once, unless settings.verbose is 0.
void announce(const char *action, const char *manifest, const char *instdir);

#endif
