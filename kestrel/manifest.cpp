#include "kestrel/manifest.h"

#include "containers/stringcache.h"
#include "host/trace.h"
#include "kestrel/report.h"
#include "manifest/filedigests.h"
#include "manifest/shahash.h"

#include <array>
#include <cerrno>
#include <cstring>

static constexpr const char *CANNOT_READ = "Could not read manifest file";
static constexpr const char *TOO_LARGE = "Manifest is too large";

const char *manifest_path(const char *manifest, const char *instdir) {
    return manifest != nullptr ? manifest : sc_pathJoin(instdir, "manifest");
}

const char *missing_installation(const char *instdir) {
    if (os_exists(instdir) != 0)
        return nullptr;
    return report_error("Given installation path \"%s\" does not exist", instdir);
}

bool enter_directory(const char *directory) {
    if (!host_chdir(directory))
        return false;
    TRACE_MESSAGE("Working directory changed to \"%s\"", directory);
    return true;
}

// --- What a run is about

// The environment variables that pass an expected subject on; empty if anything will do.
static constexpr const char *EXPECTED_MANIFEST = "kestrel_expected_manifest";
static constexpr const char *EXPECTED_DIRECTORY = "kestrel_expected_directory";

// The place too: some file systems give all files one number, or none.
std::string directory_identity(const char *path) {
    FileIdentity identity = {};
    host_file_identity(path, &identity);
    const OwnedString place = host_real_path(path);
    return identity_text(identity) + " " + (place != nullptr ? place.get() : "");
}

void expect_subject(const Subject *subject) {
    os_setenv(EXPECTED_MANIFEST, subject != nullptr ? state_text(subject->file).c_str() : "");
    os_setenv(EXPECTED_DIRECTORY, subject != nullptr ? subject->directory.c_str() : "");
}

static bool is_expected(const char *variable, const std::string &found) {
    const char *expected = host_getenv(variable);
    return expected == nullptr || *expected == '\0' || expected == found;
}

bool is_expected_directory(const std::string &identity) {
    return is_expected(EXPECTED_DIRECTORY, identity);
}

bool is_expected_file(const FileState &state) {
    return is_expected(EXPECTED_MANIFEST, state_text(state));
}

static const char *moved_text(const char *instdir) {
    return sc_format("Installation path \"%s\" does not lead to the same directory any more",
                     instdir);
}

static const char *changed_text(const char *manifest) {
    return sc_format("Manifest \"%s\" changed during the check", manifest);
}

// Why a check fails, in the report and the debug log.
static const char *told(const char *failure) {
    report_error("%s", failure);
    TRACE_MESSAGE("%s", failure);
    return failure;
}

const char *moved_installation(const char *instdir, const std::string &directory) {
    return directory_identity(instdir) == directory ? nullptr : told(moved_text(instdir));
}

const char *changed_manifest(const char *manifest, const FileState &counted) {
    FileState now;
    return host_file_state(manifest, &now) && now == counted ? nullptr
                                                             : told(changed_text(manifest));
}

// --- Lines

bool read_range(FILE *file, const LineRange &range, const TakeLine &take) {
    const bool seeking = range.position >= 1;
    if (seeking) {
        TRACE_MESSAGE("Starting line is %d. Seek to manifest start position: %ld", range.start,
                      static_cast<long>(range.position));
        if (!host_seek(file, range.position))
            return false;
    }
    TRACE_MESSAGE("Reading manifest from line %d to line %d", range.start, range.end);
    uint64_t offset = seeking ? static_cast<uint64_t>(range.position) : 0;
    for (uint64_t i = seeking ? range.start : 0; i <= range.end; i++) {
        std::string_view line = shahash_next_line(file);
        if (line.empty() || !take(i, line, offset))
            break;
        offset += line.size();
        while (line.size() > MANIFEST_LINE_LIMIT && line.back() != '\n') {
            line = shahash_next_line(file);
            if (line.empty())
                break;
            offset += line.size();
        }
    }
    return ferror(file) == 0;
}

std::string_view line_at(FILE *file, uint64_t offset) {
    return host_seek(file, static_cast<int64_t>(offset)) ? shahash_next_line(file) : "";
}

bool ManifestFile::fail(const char *text, const char *system_reason) {
    reason = text;
    report_error("%s%s%s", text, system_reason != nullptr ? ": " : "",
                 system_reason != nullptr ? system_reason : "");
    return false;
}

ManifestFile::ManifestFile(const char *manifest, const char *instdir) : before(os_getcwd()) {
    // Without a current directory a relative path has stayed one, and would lead elsewhere.
    errno = ENOENT;
    if ((before == nullptr && os_is_absolute(manifest) == 0) || !enter_directory(instdir)) {
        const char *why = host_strerror(errno);
        fail(sc_format("Could not change to directory: \"%s\"", instdir), why);
        return;
    }
    subject.directory = directory_identity(".");
    if (!is_expected_directory(subject.directory)) {
        fail(moved_text(instdir));
        return;
    }
    file.reset(host_fopen_regular(manifest));
    if (file == nullptr || !host_opened_state(host_fileno(file.get()), &subject.file)) {
        const char *why = file_reason(errno);
        fail(sc_format("Could not open manifest file \"%s\"", manifest), why);
    } else if (subject.file.size >= MANIFEST_LIMIT) {
        fail(TOO_LARGE);
    } else if (!is_expected_file(subject.file)) {
        fail(changed_text(manifest));
    }
}

void ManifestFile::leave() {
    if (before != nullptr)
        enter_directory(before.get());
}

// Calls `begin` with the offset of each line, from the beginning of the file.
template <class Begin> bool ManifestFile::each_line(Begin begin) {
    static std::array<char, 65536> block;
    uint64_t offset = 0;
    bool at_start = true;
    rewind(file.get());
    while (const size_t got = fread(block.data(), 1, block.size(), file.get())) {
        if (offset + got >= MANIFEST_LIMIT)
            return fail(TOO_LARGE); // it has grown
        for (const char *next = block.data(), *const end = next + got; next != end;) {
            if (at_start)
                begin(static_cast<uint32_t>(offset + static_cast<size_t>(next - block.data())));
            const void *feed = memchr(next, '\n', static_cast<size_t>(end - next));
            at_start = feed != nullptr;
            next = at_start ? static_cast<const char *>(feed) + 1 : end;
        }
        offset += got;
    }
    return is_read();
}

bool ManifestFile::count_lines(uint32_t *lines) {
    *lines = 0;
    return each_line([&](uint32_t) { ++*lines; });
}

bool ManifestFile::locate(Plan *plan) {
    uint32_t line = 0;
    auto task = plan->given.begin();
    const auto begin = [&](uint32_t offset) {
        if (task != plan->given.end() && task->range.start == line++)
            task++->position = offset;
    };
    return each_line(begin) && (task == plan->given.end() || fail(CANNOT_READ)); // it has shrunk
}

bool ManifestFile::read(const LineRange &range, const TakeLine &take) {
    return read_range(file.get(), range, take) || fail(CANNOT_READ);
}

std::string_view ManifestFile::next_line() {
    return shahash_next_line(file.get());
}

bool ManifestFile::is_read() {
    return ferror(file.get()) == 0 || fail(CANNOT_READ);
}

std::string ManifestFile::path_at(uint64_t offset) const {
    const TraceSilence silence;
    ManifestLine fields;
    return shahash_parse_line(line_at(file.get(), offset), &fields) &&
                   !path_leads_out(host_path_style(), fields.path)
               ? shahash_native_path(std::move(fields.path))
               : "";
}
