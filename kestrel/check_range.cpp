// --check: verifies one range of a manifest's lines.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/steps.h"
#include "manifest/linecheck.h"

#include <cstdio>
#include <string_view>

static constexpr const char *MALFORMED_MANIFEST = "Manifest data was malformed";

// The lines of the range, as far as the file has them and up to the first that cannot verify; null,
// with the reason in `failure`, for a manifest that cannot be read or holds a NUL or a line over
// the limit.
static BlockVectorPtr gather_lines(FILE *file, int32_t position, uint32_t start, uint32_t end,
                                   const char **failure) {
    BlockVectorPtr lines(vec_new(__FILE__, __LINE__));
    const bool seeking = position >= 1;
    if (seeking) {
        TRACE_MESSAGE("Starting line is %d. Seek to manifest start position: %ld", start,
                      static_cast<long>(position));
        if (!host_seek(file, position)) {
            *failure = CANNOT_READ_MANIFEST;
            return nullptr;
        }
    }
    TRACE_MESSAGE("Reading manifest from line %d to line %d", start, end);
    for (uint64_t i = seeking ? start : 0; i <= end; i++) {
        const std::string_view line = shahash_next_line(file);
        if (line.empty())
            break;
        if (line.find('\0') != line.npos || line.size() > MANIFEST_LINE_LIMIT) {
            *failure = MALFORMED_MANIFEST;
            return nullptr;
        }
        if (i < start)
            continue;
        vec_append(lines.get(), xstrndup(line.data(), line.size()).release());
        if (!shahash_line_can_verify(line))
            break;
    }
    if (ferror(file) == 0)
        return lines;
    *failure = CANNOT_READ_MANIFEST;
    return nullptr;
}

// Verifies lines up to the first that fails: a malformed one is a `failure`, a file goes to the
// debug log.
static bool verify_lines(Vector *lines, const char **failure) {
    LineCheck check([failure](const ManifestLine &line, LineFault fault) {
        if (fault == LineFault::malformed)
            *failure = MALFORMED_MANIFEST;
        else
            TRACE_MESSAGE("File \"%s\" did not verify against manifest hash.", line.path.c_str());
        return false;
    });
    for (const char *line : VecEach<const char>(lines))
        if (!check.add(line))
            break;
    return check.finish();
}

bool check_manifest_range(const char *manifest, const char *instdir, int32_t position,
                          uint32_t start, uint32_t end) {
    TRACE_ENTER();
    if (!os_exists(instdir))
        return TRACE_RESULT(false, "Given installation path \"%s\" does not exist", instdir);
    manifest = manifest_path(manifest, instdir);
    TRACE_MESSAGE("Performing partial check of manifest \"%s\" for installation \"%s\"", manifest,
                  instdir);
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    FileState opened;
    FilePtr file = open_manifest(manifest, instdir, before.get(), &opened, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure);
    const BlockVectorPtr lines = gather_lines(file.get(), position, start, end, &failure);
    file.reset();
    if (lines == nullptr)
        return TRACE_RESULT(false, "%s", failure);
    if (vec_size(lines.get()) == 0)
        return TRACE_RESULT(false, "ERROR: no data was read from the manifest");
    if (!verify_lines(lines.get(), &failure))
        return failure != nullptr ? TRACE_RESULT(false, "%s", failure) : false;
    if (before != nullptr)
        enter_directory(before.get());
    return TRACE_RESULT(true, "All hashes in the range verified correctly");
}
