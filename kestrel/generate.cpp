// -g: writes the manifest of an installation.
#include "host/trace.h"
#include "kestrel/hash_tasks.h"
#include "kestrel/kestrel.h"
#include "kestrel/manifest.h"
#include "kestrel/output.h"
#include "kestrel/progress.h"
#include "kestrel/report.h"
#include "kestrel/settings.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"

#include <cerrno>
#include <string>

static constexpr WalkReport RECORDS = {report_is_in, report_file, report_record, report_excluded};

// Whether the path still leads to the directory; a line on standard error says if not.
static bool is_still_there(const char *instdir, const std::string &directory) {
    const char *moved = moved_installation(instdir, directory);
    if (moved != nullptr) {
        shahash_complain("%s", str_printable(moved).get());
        report_reason_told();
    }
    return moved == nullptr;
}

// The walk begins at ".", so that every path in the manifest is relative to the installation.
// The installation is `directory`: if
// its path leads elsewhere when all files are hashed, the old manifest stays.
static bool write_manifest(const char *manifest, const char *instdir,
                           const std::string &directory) {
    const WalkReport *const report = report_is_on() ? &RECORDS : nullptr;
    const auto hash = [&](uint32_t count, const PathOf &path_of,
                          const FileHasher::Receiver &receive) {
        return hash_by_tasks(count, path_of, receive) && is_still_there(instdir, directory);
    };
    return shahash_write_manifest_default_flags(".", manifest, report, hash,
                                                {&settings.excluded, settings.sorted});
}

bool generate_manifest(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    if (const char *missing = missing_installation(instdir); missing != nullptr)
        return TRACE_RESULT(false, "%s", missing);
    manifest = manifest_path(manifest, instdir);
    TRACE_MESSAGE("Generate manifest \"%s\" for installation \"%s\"", manifest, instdir);
    announce("Generating", manifest, instdir);
    const OwnedString before = os_getcwd();
    if (before == nullptr || !enter_directory(instdir)) {
        report_error("Could not change to directory: \"%s\": %s", instdir, host_strerror(errno));
        return TRACE_RESULT(false, "Could not change to directory: \"%s\"\n", instdir);
    }
    const std::string directory = directory_identity(".");
    bool written = write_manifest(manifest, instdir, directory);
    progress_end();
    written = written && is_still_there(instdir, directory);
    if (!written)
        TRACE_MESSAGE("Could not generate manifest");
    if (!enter_directory(before.get())) {
        report_error("Could not change to directory: \"%s\"", instdir);
        return TRACE_RESULT(false, "Could not change to directory: \"%s\"\n", instdir);
    }
    // Whether or not it was written: the text is fixed, and the line above it says so if not.
    TRACE_MESSAGE("Compiler integrity hash file saved to: %s\n", manifest);
    return written;
}
