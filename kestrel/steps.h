// The settings of a run, and the steps that its modes share.
#ifndef KESTREL_KESTREL_STEPS_H
#define KESTREL_KESTREL_STEPS_H

#include "platform/osdep.h"

#include <cstdint>
#include <string>
#include <string_view>

// The first argument as it came; null without any.
extern const char *program_name;

// Progress lines go to standard output while this is not 0.
extern int32_t verbose;

// The number of tasks asked for; if below 1, the number of processors decides.
extern int32_t task_limit;

// Whether a check looks for files that the manifest does not list.
extern bool extra_wanted;

// Writes to standard output, unless that has failed before: what follows a lost piece would seem
// complete.
void print(std::string_view text);

// Flushes standard output; false if writing to it has failed now or before, which the first time is
// reported on standard error.
bool flush_output();

// Prints at once what is about to be done ("Checking"), unless this process is quiet.
void announce(const char *action, const char *manifest, const char *instdir);

// `manifest`, or the default one of the installation when it is null.
const char *manifest_path(const char *manifest, const char *instdir);

// Why a mode fails: the installation does not exist. Interned, and in the report; null if it does.
const char *missing_installation(const char *instdir);

// Changes the current directory and says so in the debug log; false if that fails.
bool enter_directory(const char *directory);

// A manifest is smaller than this, in bytes.
constexpr uint64_t MANIFEST_LIMIT = uint64_t{1} << 31;

// Why a check fails whose manifest is larger, or cannot be read to its end.
constexpr const char *MANIFEST_TOO_LARGE = "Manifest is too large";
constexpr const char *CANNOT_READ_MANIFEST = "Could not read manifest file";

// What tells a directory from others, as text; that of none if nothing is there.
std::string directory_identity(const char *path);

// What a run is about. Names may lead elsewhere while it lasts.
struct Subject {
    FileState manifest;    // or the state of the list of files that tasks hash
    std::string directory; // the installation's identity
};

// Enters the installation and opens the manifest for reading; null, with the reason in `failure`
// and in the report, if that fails. `before` is the directory that is left, null if it is unknown.
// `subject` receives what was found.
FilePtr open_manifest(const char *manifest, const char *instdir, const char *before,
                      Subject *subject, const char **failure);

// From now on open_manifest fails on anything else, in this process and in those that it starts;
// null lifts that. So all tasks are about the same, whatever happens to the names in between.
void expect_subject(const Subject *subject);

// Why a run fails: the installation's path leads to another directory than the one that was
// entered, so what was found there is not what is there now. Interned, and in the report and the
// debug log; null if it does not.
const char *moved_installation(const char *instdir, const std::string &directory);

#endif
