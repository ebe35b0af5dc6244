// The walk of a tree for its manifest.
#include "manifest/shahash.h"

#include "base/text.h"
#include "containers/stringcache.h"
#include "host/trace.h"
#include "manifest/treewalk.h"
#include "platform/osdep.h"

#include <cassert>
#include <cstring>

namespace {

// Lists the files that it is shown. Without a report the first problem ends the walk.
class Lister : public TreeVisitor {
  public:
    Lister(Vector *listed_files, const char *dir, const WalkReport *walk_report)
        : files(listed_files), report(walk_report),
          top(report != nullptr ? host_real_path(dir) : nullptr) {}

    bool complete = true;
    const char *complaint = nullptr; // about the problem that has ended the walk, if one has

    bool entry(const char *path, const char *listed) override {
        if (report != nullptr && host_is_link(path))
            report_link(path, listed);
        return true;
    }

    bool file(const char *path, OwnedString listed, const StatResult &) override {
        if (report != nullptr && report->leaves_out(path))
            return true;
        auto *entry = xnew<ManifestEntry>();
        entry->path = listed.release();
        vec_append(files, entry);
        return true;
    }

    bool unlisted(const char *path, const char *listed) override {
        record("unlisted", listed, "The name cannot be written to a manifest");
        return goes_on(sc_format("The name of file \"%s\" cannot be written to a manifest",
                                 str_printable(path).get()));
    }

    bool skipped(const char *, const char *listed) override {
        record("skipped", listed);
        return true;
    }

    bool unreadable(const char *path, const char *listed, int reason) override {
        TRACE_MESSAGE("Cannot read directory \"%s\": %s", path, file_reason(reason));
        record("unreadable", listed, file_reason(reason));
        return goes_on(sc_format("Cannot read directory \"%s\"", str_printable(path).get()));
    }

  private:
    void record(const char *event, const char *listed, const char *detail = nullptr) const {
        if (report != nullptr)
            report->record(event, listed, detail);
    }

    // Whether the walk goes on after a problem.
    bool goes_on(const char *problem) {
        complete = false;
        if (report == nullptr)
            complaint = problem;
        return report != nullptr;
    }

    void report_link(const char *path, const char *listed) const;

    Vector *files;
    const WalkReport *report;
    OwnedString top;
};

} // namespace

// Links that stay inside the tree go with it. Not everything that can be opened has a name from the
// root.
void Lister::report_link(const char *path, const char *listed) const {
    const OwnedString target = host_real_path(path);
    HostStat status;
    if (target == nullptr && !host_stat(path, &status))
        return;
    std::string inside = top != nullptr ? top.get() : "";
    if (inside.empty() || !path_is_separator(host_path_style(), inside.back()))
        inside += host_path_style().separator;
    const std::string_view place = target != nullptr ? target.get() : "?";
    if (top == nullptr || (place != top.get() && !place.starts_with(inside)))
        record("link", listed, place.data());
}

// What stands before the names of the files in a directory.
static std::string prefix_of(const PathStyle &style, const char *dir) {
    const OwnedString path = path_join_style(style, dir, "x");
    return path != nullptr ? std::string(path.get(), strlen(path.get()) - 1) : "";
}

static void count_file(const WalkReport &report, const char *path, const FileDigest &result) {
    HostStat status = {FileKind::regular, result.size};
    if (result.outcome == OpenOutcome::opened || host_stat(path, &status))
        report.file(status.size);
}

// Gives entries their digests, from the `first` of them on; false if a file cannot be read.
static bool hash_entries(Vector *files, uint32_t first, const PathOf &path_of,
                         const WalkReport *report, const HashFiles &hash) {
    uint32_t next = first;
    bool complete = true;
    const auto receive = [&](const char *path, const FileDigest &result) {
        auto *entry = vec_at<ManifestEntry>(files, next++);
        if (report != nullptr)
            count_file(*report, path, result);
        if (result.outcome == OpenOutcome::opened) {
            entry->digest = sha256_hex(result.digest);
            return true;
        }
        TRACE_MESSAGE("Cannot read file \"%s\": %s", path, file_reason(result.reason));
        if (report == nullptr)
            shahash_fatal_cannot_open(path);
        report->record("unreadable", entry->path, file_reason(result.reason));
        complete = false;
        return true;
    };
    return hash(vec_size(files) - first, path_of, receive) && complete && next == vec_size(files);
}

// Of several problems the first one is complained of: files come before what has ended the walk.
bool shahash_walk(uint32_t, Vector *files, const char *dir, const char *relative,
                  const WalkReport *report, const HashFiles &hash, const PathPatterns *excluded) {
    assert(files != NULL);
    assert(dir != NULL);
    const uint32_t first = vec_size(files);
    Lister lister(files, dir, report);
    lister.excluded = excluded;
    walk_tree(lister, dir, relative, Look::as_needed);
    if (report != nullptr)
        report->excluded(lister.excluded_count);
    const std::string prefix = prefix_of(host_path_style(), dir);
    const size_t listed_prefix = prefix_of(drive_path_style, relative).size();
    const auto path_of = [&](uint32_t number) {
        const char *listed = vec_at<ManifestEntry>(files, first + number)->path;
        return prefix + shahash_native_path(listed + listed_prefix);
    };
    const bool hashed = hash_entries(files, first, path_of, report, hash);
    if (lister.complaint != nullptr)
        shahash_complain("%s", lister.complaint);
    return hashed && lister.complete;
}
