// The settings of a run.
#ifndef KESTREL_KESTREL_SETTINGS_H
#define KESTREL_KESTREL_SETTINGS_H

#include "manifest/pathpattern.h"

#include <cstdint>
#include <vector>

// What the arguments ask for. Paths are absolute; strings are interned or the arguments themselves.
struct Settings {
    int32_t verbose = 1;            // action and verdict are printed unless this is 0
    int32_t task_limit = -1;        // tasks asked for; below 1: the number of processors decides
    const char *manifest = nullptr; // null: the file "manifest" of the installation
    const char *instdir = nullptr;
    bool generate = false;
    bool check = false;
    bool range_check = false; // the next three are given, as check_manifest_range() takes them
    int32_t position = -1;
    int32_t start = -1;
    int32_t end = -1;
    const char *digests = nullptr; // for the results of a task of -g; `manifest` is a list then
    bool report = false;
    const char *report_file = nullptr; // null: standard output
    bool extra = false;                // a check looks for files that the manifest does not list
    PathPatterns excluded;             // what a new manifest does not list, and is not extra
    bool sorted = false;               // a new manifest is, by its paths
    std::vector<const char *> ignored; // arguments that are not options
    const char *refusal = nullptr;     // why the run cannot be begun, for the log and the report
};

inline Settings settings;

#endif
