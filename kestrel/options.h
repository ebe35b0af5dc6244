// The tool's command line.
#ifndef KESTREL_KESTREL_OPTIONS_H
#define KESTREL_KESTREL_OPTIONS_H

#include <cstdint>
#include <vector>

// What the arguments ask for, apart from the settings in steps.h. Paths are absolute; strings are
// interned or the arguments themselves.
struct Options {
    const char *manifest = nullptr;
    const char *instdir = nullptr;
    bool generate = false;
    bool check = false;
    bool range_check = false;
    int32_t position = -1;
    int32_t start = -1;
    int32_t end = -1;
    const char *digests = nullptr; // the range is of a list, and this file is for its digests
    bool report = false;
    const char *report_file = nullptr; // null: standard output
    std::vector<const char *> ignored; // arguments that are not options
    const char *refusal = nullptr;     // why the run cannot be begun, for the log and the report
};

// Reads one argument; false, after a message and with the `refusal`, if it is malformed or a slip.
// Help and version are printed at once, and end the run.
bool read_option(const char *argument, Options &options);

void print_usage();

#endif
