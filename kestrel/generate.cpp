// -g: writes the manifest of an installation.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/steps.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"

// The walk begins at ".", so that every path in the manifest is relative to the installation.
// The hosts' kinds have their own entries, which do the same.
static bool write_manifest(const char *manifest) {
    return (os_kind() & HOST_DRIVE_PATHS) != 0
               ? shahash_write_manifest(HOST_DRIVE_PATHS, ".", manifest)
               : shahash_write_manifest_default_flags(".", manifest);
}

bool generate_manifest(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    if (!os_exists(instdir))
        return TRACE_RESULT(false, "Given installation path \"%s\" does not exist", instdir);
    manifest = manifest_path(manifest, instdir);
    TRACE_MESSAGE("Generate manifest \"%s\" for installation \"%s\"", manifest, instdir);
    announce("Generating", manifest, instdir);
    const OwnedString before = os_getcwd();
    if (before == nullptr || !enter_directory(instdir))
        return TRACE_RESULT(false, "Could not change to directory: \"%s\"\n", instdir);
    const bool written = write_manifest(manifest);
    if (!written)
        TRACE_MESSAGE("Could not generate manifest");
    if (!enter_directory(before.get()))
        return TRACE_RESULT(false, "Could not change to directory: \"%s\"\n", instdir);
    // Whether or not it was written: the text is fixed, and the line above it says so if not.
    TRACE_MESSAGE("Compiler integrity hash file saved to: %s\n", manifest);
    return written;
}
