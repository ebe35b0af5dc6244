// The file with the lines of a run, and the directory that they are about: opened, read and
// divided, and found to be the same in all tasks and at the end.
#ifndef KESTREL_KESTREL_MANIFEST_H
#define KESTREL_KESTREL_MANIFEST_H

#include "kestrel/tasks.h"
#include "platform/osdep.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// A manifest is smaller than this, in bytes.
constexpr uint64_t MANIFEST_LIMIT = uint64_t{1} << 31;

// `manifest`, or the default one of the installation when it is null.
const char *manifest_path(const char *manifest, const char *instdir);

// Why a mode fails: the installation does not exist. Interned, and in the report; null if it does.
const char *missing_installation(const char *instdir);

// Changes the current directory and says so in the debug log; false if that fails.
bool enter_directory(const char *directory);

// --- What a run is about. Names may lead elsewhere while it lasts.

struct Subject {
    FileState file;        // the manifest's, or that of a list of files to be hashed
    std::string directory; // the installation's identity
};

// What tells a directory from others, as text; that of none if nothing is there.
std::string directory_identity(const char *path);

// From now on anything else is not what is expected, in this process and in those that it starts;
// null lifts that. So all tasks are about the same, whatever happens to the names in between.
void expect_subject(const Subject *subject);

// Whether this is what is expected, or anything may be.
bool is_expected_directory(const std::string &identity);
bool is_expected_file(const FileState &state);

// Why a run fails: the installation's path leads to another directory than the one that was
// entered, so what was found there is not what is there now. Interned, and in the report and the
// debug log; null if it does not.
const char *moved_installation(const char *instdir, const std::string &directory);

// Why a check fails: the manifest is not the one any more whose lines were counted, so what has
// passed is not what is there now. As above.
const char *changed_manifest(const char *manifest, const FileState &counted);

// --- Lines

// Lines from `start` to `end`, both included and counted from 0. `position` is the offset in bytes
// of line `start`; below 1, lines are counted from the beginning of the file.
struct LineRange {
    int32_t position;
    uint32_t start;
    uint32_t end;
};

// Calls `take` with the number of each line up to the end of the range, the line, of one over the
// limit its beginning, and its offset, until it returns false or the file ends. False if that
// cannot be read.
using TakeLine = std::function<bool(uint64_t number, std::string_view line, uint64_t offset)>;
bool read_range(FILE *file, const LineRange &range, const TakeLine &take);

// The line at an offset; empty if there is none.
std::string_view line_at(FILE *file, uint64_t offset);

// An open manifest.
class ManifestFile {
  public:
    // Enters the installation and opens the manifest for reading, if both are what is expected.
    ManifestFile(const char *manifest, const char *instdir);

    // Null once something has failed: then see failure().
    explicit operator bool() const { return reason == nullptr; }

    // Why it could not be opened, or what came later. Interned, and in the report.
    const char *failure() const { return reason; }

    // Notes a failure, with the system's reason if there is one, which goes to the report only: the
    // log's texts are fixed. Returns false.
    bool fail(const char *text, const char *system_reason = nullptr);

    // Goes back to the directory that was left, if it is known.
    void leave();

    // These fail if the manifest cannot be read to its end.
    bool count_lines(uint32_t *lines);
    bool locate(Plan *plan); // where the lines of each task begin
    bool read(const LineRange &range, const TakeLine &take);
    std::string_view next_line(); // empty at the end
    bool is_read();               // whether nothing has kept it from being read

    // The path in the line at an offset; empty if there is none that may be opened.
    std::string path_at(uint64_t offset) const;

    Subject subject; // what was found

  private:
    template <class Begin> bool each_line(Begin begin);

    const char *reason = nullptr;
    OwnedString before; // the directory that was left
    FilePtr file;
};

#endif
