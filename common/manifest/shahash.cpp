// Writing, reading and checking manifests.
#include "manifest/shahash.h"

#include "containers/stringcache.h"
#include "manifest/filedigests.h"
#include "platform/osdep.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

// --- Writing a manifest

void shahash_free_entries(Vector *entries) {
    for (auto *entry : VecEach<ManifestEntry>(entries)) {
        free(const_cast<char *>(entry->path));
        free(entry);
    }
    vec_free(entries);
}

// False unless every line has been handed to the system.
static bool write_entries(Vector *entries, const char *path) {
    FILE *file = host_fopen(path, "w");
    if (file == nullptr)
        return false;
    for (const auto *entry : VecEach<ManifestEntry>(entries))
        fputs(shahash_format_line(*entry).c_str(), file);
    return os_close_written(file);
}

// Reports why the manifest could not be written or, for null, its temporary file; always false.
static bool report_unwritten(const char *manifest) {
    const int reason = errno;
    if (manifest == nullptr)
        fprintf(stderr, "Cannot write temporary file: %s\n", strerror(reason));
    else
        fprintf(stderr, "Cannot write file \"%s\": %s\n", str_printable(manifest).get(),
                strerror(reason));
    return false;
}

bool shahash_write_manifest(uint32_t flags, const char *dir, const char *manifest) {
    if (!os_can_write(manifest))
        return report_unwritten(manifest);
    // The file is made after the walk, which would list it if the temporaries lie under `dir`.
    const OwnedString temporary = os_tempname_plain();
    if (temporary == nullptr)
        return report_unwritten(nullptr);
    Vector *entries = vec_new(__FILE__, __LINE__);
    bool done = shahash_walk(flags, entries, dir, dir);
    if (done && !write_entries(entries, temporary.get()))
        done = report_unwritten(nullptr);
    if (done && !copyfile_helper(temporary.get(), manifest))
        done = report_unwritten(manifest);
    shahash_free_entries(entries);
    return done;
}

bool shahash_write_manifest_default_flags(const char *dir, const char *manifest) {
    return shahash_write_manifest(static_cast<uint32_t>(os_kind()), dir, manifest);
}

// --- Reading and checking

static bool leads_out(const ManifestLine &fields) {
    return path_leads_out(host_path_style(), fields.path);
}

// A path of a manifest with the host's separators.
static std::string native_path(const char *path) {
    std::string native = path;
    std::replace(native.begin(), native.end(), '\\', host_path_style().separator);
    return native;
}

static bool verifies(const char *digest, const char *path, const FileDigest &result) {
    if (result.outcome == OpenOutcome::refused)
        shahash_fatal_cannot_open(path);
    return result.outcome == OpenOutcome::opened && sha256_text(result.digest) == digest;
}

// `tag` is the digest that is expected.
static bool verify_digest(void *, const char *path, void *tag, const FileDigest &result) {
    return verifies(static_cast<const char *>(tag), path, result);
}

bool shahash_verify_file(const char *digest, const char *path) {
    if (digest == nullptr || path == nullptr)
        return false;
    FileDigests digests(verify_digest, nullptr);
    return digests.add(native_path(path).c_str(), const_cast<char *>(digest)) && digests.finish();
}

namespace {

// The result of verifying lines.
struct LineCheck {
    LineFault fault = LineFault::none;
    std::string path;
};

} // namespace

// `tag` is the line.
static bool verify_line(void *context, const char *path, void *tag, const FileDigest &result) {
    ManifestLine fields;
    shahash_parse_line(static_cast<const char *>(tag), &fields);
    if (verifies(fields.digest.c_str(), path, result))
        return true;
    *static_cast<LineCheck *>(context) = {LineFault::different, fields.path};
    return false;
}

// A path that leads out counts as a missing file, and is reported in its turn.
static bool add_line(FileDigests &digests, const ManifestLine &fields, char *line) {
    const std::string path = native_path(fields.path.c_str());
    return leads_out(fields) ? digests.add(path.c_str(), line, nullptr)
                             : digests.add(path.c_str(), line);
}

LineFault shahash_verify_lines(Vector *lines, std::string *path) {
    LineCheck check;
    FileDigests digests(verify_line, &check);
    ManifestLine fields;
    bool sound = true;
    for (char *line : VecEach<char>(lines)) {
        sound = shahash_parse_line(line, &fields);
        if (!sound || !add_line(digests, fields, line))
            break;
    }
    if (digests.finish() && !sound)
        check.fault = LineFault::malformed;
    *path = check.path;
    return check.fault;
}

static void append_record(Vector *entries, const char *base, const ManifestLine &fields) {
    const std::string path = native_path(fields.path.c_str());
    OwnedString joined = path.empty() ? nullptr : os_join(base, path.c_str());
    auto *entry = xnew<ManifestEntry>();
    entry->digest = sc_strdup(fields.digest.c_str());
    entry->path = (joined != nullptr ? std::move(joined) : xstrdup(path.c_str())).release();
    vec_append(entries, entry);
}

Vector *shahash_read_manifest(const char *manifest, const char *base) {
    const FilePtr file(host_fopen_regular(manifest));
    if (file == nullptr)
        return nullptr;
    Vector *entries = vec_new(__FILE__, __LINE__);
    ManifestLine fields;
    bool sound = true;
    for (std::string_view line; sound && !(line = shahash_next_line(file.get())).empty();) {
        sound = shahash_parse_line(line, &fields) && !leads_out(fields);
        if (sound)
            append_record(entries, base, fields);
    }
    if (sound && ferror(file.get()) == 0)
        return entries;
    shahash_free_entries(entries);
    return nullptr;
}

static bool check_lines(FILE *file) {
    ManifestLine fields;
    for (std::string_view line; !(line = shahash_next_line(file)).empty();)
        if (!shahash_parse_line(line, &fields) || leads_out(fields) ||
            !shahash_verify_file(fields.digest.c_str(), fields.path.c_str()))
            return false;
    return ferror(file) == 0;
}

bool shahash_check_manifest(const char *manifest, const char *dir) {
    const FilePtr file(host_fopen_regular(manifest));
    if (file == nullptr)
        return false;
    if (dir == nullptr)
        return check_lines(file.get());
    const OwnedString before = os_getcwd();
    if (before == nullptr || !host_chdir(dir))
        return false;
    const bool passed = check_lines(file.get());
    return host_chdir(before.get()) && passed;
}

bool shahash_check_entries(Vector *entries) {
    bool passed = true;
    for (const auto *entry : VecEach<ManifestEntry>(entries))
        if (entry->path == nullptr || *entry->path == '\0' ||
            !shahash_verify_file(entry->digest, entry->path))
            passed = false;
    return passed;
}
