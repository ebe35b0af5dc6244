// The check of files against the lines of a manifest.
#ifndef KESTREL_MANIFEST_LINECHECK_H
#define KESTREL_MANIFEST_LINECHECK_H

#include "manifest/filedigests.h"
#include "manifest/shahash.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

// What keeps a line from verifying.
enum class LineFault {
    different,
    missing,
    unreadable, // the file, or a directory on its way, cannot be opened or read; or is not a file
    malformed,
    outside // the path leads out of the current directory, and nothing is opened
};

struct FaultyLine {
    uint64_t number; // from 0, in the order in which the lines were added
    LineFault fault;
    ManifestLine line; // if malformed, all of it is the path
    int reason;        // of an unreadable file, for file_reason()
};

// What a check is for.
enum class CheckFor {
    verdict,        // ends at the first line that does not verify; if its file exists and cannot be
                    // opened or read, the process ends
    verdict_on_all, // looks at all lines; such a file ends the process, too
    report          // looks at all lines; such a file is a fault, as is a line that cannot verify
};

// Verifies lines of a manifest against the files below the current directory, several at a time.
class LineCheck {
  public:
    // Receives each line that does not verify, in the order of the lines; false ends the check, as
    // it has to for a verdict.
    using Receiver = std::function<bool(const FaultyLine &)>;

    // Begins a check; without a receiver the first line that does not verify ends it.
    explicit LineCheck(Receiver receiver = nullptr, CheckFor check_for = CheckFor::verdict,
                       SharedWork shared = {});

    // Adds a line, which is at an offset in the manifest; false once the check has ended.
    bool add(std::string_view line, uint64_t place = 0);

    // Adds a line that is sound, wherever its path leads; false once the check has ended.
    bool add_file(ManifestLine line, uint64_t place = 0);

    // Ends the check; true if all lines have verified.
    bool finish();

  private:
    struct PendingLine {
        uint64_t number;
        std::optional<LineFault> known; // before any file is looked for
        ManifestLine line;
    };

    bool judge(const char *path, const FileDigest &result);

    Receiver receive;
    CheckFor purpose;
    uint64_t added = 0;
    bool passed = true;
    std::deque<PendingLine> lines; // that are not judged yet, in order
    FileHasher files;
};

#endif
