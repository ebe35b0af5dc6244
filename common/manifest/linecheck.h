// The check of files against the lines of a manifest.
#ifndef COMMON_LINECHECK_H
#define COMMON_LINECHECK_H

#include "manifest/filedigests.h"
#include "manifest/shahash.h"

#include <functional>
#include <string_view>
#include <utility>

// What keeps a line from verifying. `different` is also the fault of a file that is missing, and of
// a path that leads out of the current directory, which is not opened.
enum class LineFault { malformed, different };

// Verifies lines of a manifest against the files below the current directory, several at a time.
class LineCheck {
  public:
    // Receives each line that does not verify, in the order of the lines; false ends the check. A
    // malformed line has no fields.
    using Receiver = std::function<bool(const ManifestLine &line, LineFault fault)>;

    // Without a receiver the first line that does not verify ends the check.
    explicit LineCheck(Receiver receiver = nullptr) : receive(std::move(receiver)) {}

    // These return false once the check has ended. A file that cannot be opened or read ends the
    // process, in its turn.
    bool add(std::string_view line);
    bool add_file(ManifestLine line); // the same, wherever its path leads

    // True if all lines have verified.
    bool finish();

  private:
    struct Tag {
        ManifestLine line;
        LineFault fault; // if the file is not found to have the digest
    };

    bool judge(const char *path, const Tag &tag, const FileDigest &result);

    Receiver receive;
    bool passed = true;
    FileDigests<Tag> files{[this](const char *path, const Tag &tag, const FileDigest &result) {
        return judge(path, tag, result);
    }};
};

#endif
