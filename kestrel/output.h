// Standard output.
#ifndef KESTREL_KESTREL_OUTPUT_H
#define KESTREL_KESTREL_OUTPUT_H

#include <string_view>

// Whether a person may read what is written to a descriptor: it is a terminal, and not one that
// TERM calls dumb.
bool is_terminal(int descriptor);

// Writes to standard output, unless that has failed before: what follows a lost piece would seem
// complete.
void print(std::string_view text);

// Flushes standard output; false if writing to it has failed now or before, which the first time is
// reported on standard error.
bool flush_output();

// Prints at once what is about to be done, an action such as "Checking", unless the settings want
// no progress lines.
void announce(const char *action, const char *manifest, const char *instdir);

#endif
