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

// Returns `manifest` or, for null, the path of the file "manifest" in the installation, interned.
const char *manifest_path(const char *manifest, const char *instdir);

// Returns null if the installation exists; else a text that says that it does not, interned, after
// recording it in the report.
const char *missing_installation(const char *instdir);

// Changes the current directory and says so in the debug log; false if that fails.
bool enter_directory(const char *directory);

// --- What a run is about. Names may lead elsewhere while it lasts.

struct Subject {
    FileState file;        // the manifest's, or that of a list of files to be hashed
    std::string directory; // the installation's identity
};

// Returns a text that tells a directory from all others; for a path where nothing is, one that no
// directory has.
std::string directory_identity(const char *path);

// Sets what this process, and those that it starts, expect to find from now on; for null they take
// whatever they find. So all tasks are about the same, whatever happens to the names in between.
void expect_subject(const Subject *subject);

// Say whether a directory with this identity, or a file in this state, may be used: it is what is
// expected, or nothing is.
bool is_expected_directory(const std::string &identity);
bool is_expected_file(const FileState &state);

// Returns null if the installation's path still leads to the directory that was entered, which had
// this identity. Otherwise what was found there is not what is there now, and the run fails:
// returns a text that says so, interned, after recording it in the report and the debug log.
const char *moved_installation(const char *instdir, const std::string &directory);

// Returns null if the manifest is still in the state in which its lines were counted; else a text
// that says that it has changed, as moved_installation() does: what has passed is not there now.
const char *changed_manifest(const char *manifest, const FileState &counted);

// --- Lines

// Lines from `start` to `end`, both included and counted from 0. `position` is the offset in bytes
// of line `start`; below 1, lines are counted from the beginning of the file.
struct LineRange {
    int32_t position;
    uint32_t start;
    uint32_t end;
};

// Calls `take` for each line from the range's start, or from line 0 if `position` is below 1, to
// its end: with its number, its bytes (with the line end; of a line over the limit the beginning)
// and its offset. Ends when that returns false or the file ends. False if the file cannot be read.
using TakeLine = std::function<bool(uint64_t number, std::string_view line, uint64_t offset)>;
bool read_range(FILE *file, const LineRange &range, const TakeLine &take);

// The line at an offset; empty if there is none.
std::string_view line_at(FILE *file, uint64_t offset);

// A manifest that is open for reading, with the installation as the current directory.
class ManifestFile {
  public:
    // Enters the installation and opens the manifest for reading, if both are what is expected.
    ManifestFile(const char *manifest, const char *instdir);

    // False once something has failed.
    explicit operator bool() const { return reason == nullptr; }

    // Returns why the manifest could not be opened, or what failed later, interned; the report has
    // it already. Null if nothing has failed.
    const char *failure() const { return reason; }

    // Notes a failure, with the system's reason if there is one, which goes to the report only: the
    // log's texts are fixed. Returns false.
    bool fail(const char *text, const char *system_reason = nullptr);

    // Goes back to the directory that was current before, if that is known.
    void leave();

    // Counts all lines; false if the manifest cannot be read to its end.
    bool count_lines(uint32_t *lines);

    // Notes in the plan where the lines of each task begin; false if they cannot be found.
    bool locate(Plan *plan);

    // Reads a range as read_range() does.
    bool read(const LineRange &range, const TakeLine &take);

    // Returns the next line, with its line end; empty at the end, or if it cannot be read.
    std::string_view next_line();

    // Whether everything could be read so far.
    bool is_read();

    // The host's path of the file in the line at an offset; empty if the line is malformed or its
    // path leads out of the installation.
    std::string path_at(uint64_t offset) const;

    Subject subject; // the manifest's state and the directory's identity when they were opened

  private:
    template <class Begin> bool each_line(Begin begin);

    const char *reason = nullptr;
    OwnedString before; // the directory that was current
    FilePtr file;
};

#endif
