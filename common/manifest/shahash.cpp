// Manifests written, read and checked.
#include "manifest/shahash.h"

#include "base/text.h"
#include "containers/stringcache.h"
#include "host/trace.h"
#include "manifest/linecheck.h"
#include "platform/osdep.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

// --- Writing one

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
static bool report_unwritten(const char *manifest, const WalkReport *report) {
    const char *reason = host_strerror(errno);
    const char *text = manifest == nullptr ? sc_format("Cannot write temporary file: %s", reason)
                                           : sc_format("Cannot write file \"%s\": %s",
                                                       str_printable(manifest).get(), reason);
    shahash_complain("%s", text);
    TRACE_MESSAGE("%s", text);
    if (report != nullptr)
        report->record("error", text, nullptr);
    return false;
}

static int compare_paths(const void *a, const void *b) {
    const auto path = [](const void *slot) {
        return (*static_cast<const ManifestEntry *const *>(slot))->path;
    };
    return strcmp(path(a), path(b));
}

bool shahash_write_manifest(uint32_t flags, const char *dir, const char *manifest,
                            const WalkReport *report, const HashFiles &hash,
                            const WalkChoice &choice) {
    if (!os_can_write(manifest))
        return report_unwritten(manifest, report);
    // The file is made after the walk, which would list it if the temporaries lie under `dir`.
    const OwnedString temporary = os_tempname_plain();
    if (temporary == nullptr)
        return report_unwritten(nullptr, report);
    os_remove_at_exit(temporary.get());
    Vector *entries = vec_new(__FILE__, __LINE__);
    bool done = shahash_walk(flags, entries, dir, dir, report, hash, choice.excluded);
    if (choice.sorted)
        vec_sort(entries, compare_paths);
    if (done && !write_entries(entries, temporary.get()))
        done = report_unwritten(nullptr, report);
    if (done && !os_copy_to_other(temporary.get(), manifest))
        done = report_unwritten(manifest, report);
    shahash_free_entries(entries);
    return done;
}

bool shahash_write_manifest_default_flags(const char *dir, const char *manifest,
                                          const WalkReport *report, const HashFiles &hash,
                                          const WalkChoice &choice) {
    return shahash_write_manifest(static_cast<uint32_t>(os_kind()), dir, manifest, report, hash,
                                  choice);
}

// --- Reading one

static void append_entry(Vector *entries, const char *base, const ManifestLine &fields) {
    const std::string path = shahash_native_path(fields.path);
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
        sound =
            shahash_parse_line(line, &fields) && !path_leads_out(host_path_style(), fields.path);
        if (sound)
            append_entry(entries, base, fields);
    }
    if (sound && ferror(file.get()) == 0)
        return entries;
    shahash_free_entries(entries);
    return nullptr;
}

// --- Checking

bool shahash_verify_file(const char *digest, const char *path) {
    if (digest == nullptr || path == nullptr)
        return false;
    LineCheck check;
    check.add_file({digest, path});
    return check.finish();
}

static bool check_lines(FILE *file) {
    LineCheck check;
    bool empty = true;
    for (std::string_view line; !(line = shahash_next_line(file)).empty() && check.add(line);)
        empty = false;
    return check.finish() && !empty && ferror(file) == 0;
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
    LineCheck check([](const FaultyLine &) { return true; }, CheckFor::verdict_on_all);
    bool complete = true;
    for (const auto *entry : VecEach<ManifestEntry>(entries)) {
        if (entry->digest != nullptr && entry->path != nullptr && *entry->path != '\0')
            check.add_file({entry->digest, entry->path});
        else
            complete = false;
    }
    return check.finish() && complete;
}
