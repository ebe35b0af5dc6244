// --check: verifies one range of a manifest's lines.
#include "containers/stringcache.h"
#include "host/trace.h"
#include "kestrel.h"
#include "manifest/shahash.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

const char *manifest_path(const char *manifest, const char *instdir) {
    return manifest != nullptr ? manifest : sc_pathJoin(instdir, "manifest");
}

bool flush_output() {
    static bool told = false;
    bool written = fflush(stdout) == 0 && ferror(stdout) == 0;
    // Some file systems tell only on closing, of any descriptor, that they have no room.
    if (const int copy = host_dup(host_fileno(stdout)); copy != -1)
        written = host_close(copy) == 0 && written;
    if (!written && !std::exchange(told, true))
        perror("Cannot write to standard output");
    return !told;
}

void announce(const char *action, const char *manifest, const char *instdir) {
    if (verbose == 0)
        return;
    printf("%s manifest \"%s\" for installation \"%s\"\n", action, str_printable(manifest).get(),
           str_printable(instdir).get());
    flush_output();
}

bool enter_directory(const char *directory) {
    if (!host_chdir(directory))
        return false;
    TRACE_MESSAGE("Working directory changed to \"%s\"", directory);
    return true;
}

// Handed on in the environment.
static constexpr const char *expected_manifest = "kestrel_expected_manifest";

static OwnedString state_text(const FileState &state) {
    const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    return str_format("%llx:%llx:%llx:%llx", number(state.identity.volume),
                      number(state.identity.file), number(state.size), number(state.changed));
}

void expect_manifest(const FileState *state) {
    os_setenv(expected_manifest, state != nullptr ? state_text(*state).get() : "");
}

static bool is_expected(const FileState &state) {
    const char *expected = getenv(expected_manifest);
    return expected == nullptr || *expected == '\0' ||
           strcmp(expected, state_text(state).get()) == 0;
}

FilePtr open_manifest(const char *manifest, const char *instdir, const char *before,
                      FileState *state, const char **failure) {
    // Without a current directory a relative path has stayed one, and would lead elsewhere.
    if ((before == nullptr && !os_is_absolute(manifest)) || !enter_directory(instdir)) {
        *failure = sc_format("Could not change to directory: \"%s\"", instdir);
        return nullptr;
    }
    FilePtr file(host_fopen_regular(manifest));
    if (file == nullptr || !host_opened_state(file.get(), state)) {
        *failure = sc_format("Could not open manifest file \"%s\"", manifest);
        return nullptr;
    }
    if (state->size >= MANIFEST_LIMIT) {
        *failure = "Manifest is too large";
        return nullptr;
    }
    if (!is_expected(*state)) {
        *failure = sc_format("Manifest \"%s\" changed during the check", manifest);
        return nullptr;
    }
    return file;
}

// The lines of the range, as far as the file has them and up to the first that cannot verify; null,
// with the reason in `failure`, for a manifest that cannot be read or holds a NUL or a line over
// the limit.
static BlockVectorPtr gather_lines(FILE *file, int32_t position, uint32_t start, uint32_t end,
                                   const char **failure) {
    *failure = "Could not read manifest file";
    BlockVectorPtr lines(vec_new(__FILE__, __LINE__));
    const bool seeking = position >= 1;
    if (seeking) {
        TRACE_MESSAGE("Starting line is %d. Seek to manifest start position: %ld", start,
                      static_cast<long>(position));
        if (!host_seek(file, position))
            return nullptr;
    }
    TRACE_MESSAGE("Reading manifest from line %d to line %d", start, end);
    for (uint64_t i = seeking ? start : 0; i <= end; i++) {
        const std::string_view line = shahash_next_line(file);
        if (line.empty())
            break;
        if (line.find('\0') != line.npos || line.size() > MANIFEST_LINE_LIMIT) {
            *failure = "Manifest data was malformed";
            return nullptr;
        }
        if (i < start)
            continue;
        vec_append(lines.get(), xstrndup(line.data(), line.size()).release());
        if (!shahash_line_can_verify(line))
            break;
    }
    return ferror(file) == 0 ? std::move(lines) : nullptr;
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
    std::string path;
    switch (shahash_verify_lines(lines.get(), &path)) {
    case LineFault::malformed:
        return TRACE_RESULT(false, "Manifest data was malformed");
    case LineFault::different:
        TRACE_MESSAGE("File \"%s\" did not verify against manifest hash.", path.c_str());
        return false;
    case LineFault::none:
        break;
    }
    if (before != nullptr)
        enter_directory(before.get());
    return TRACE_RESULT(true, "All hashes in the range verified correctly");
}
