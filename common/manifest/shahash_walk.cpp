// The walk of a tree for its manifest.
#include "manifest/shahash.h"

#include "host/trace.h"
#include "manifest/filedigests.h"
#include "manifest/treewalk.h"
#include "platform/osdep.h"

#include <cassert>
#include <cerrno>
#include <utility>

namespace {

// Hashes the files that it is shown. Without a report the first problem ends the walk, after those
// of files before it that cannot be opened.
class ManifestVisitor : public TreeVisitor {
  public:
    ManifestVisitor(Vector *files, const char *dir, WalkReport *walk_report)
        : entries(files), report(walk_report),
          top(report != nullptr ? host_real_path(dir) : nullptr) {}

    bool finish() { return digests.finish() && complete; }

    bool entry(const char *path, const char *listed) override {
        if (report != nullptr && host_is_link(path))
            report_link(path, listed);
        return true;
    }

    bool file(const char *path, OwnedString listed, const HostStat *found) override {
        if (report != nullptr && report->leaves_out(path))
            return true;
        if (report != nullptr && found != nullptr)
            report->file(found->size);
        return digests.add(path, std::move(listed), found);
    }

    bool bad_name(const char *path, const char *listed) override {
        if (!goes_on())
            shahash_complain("The name of file \"%s\" cannot be written to a manifest",
                             str_printable(path).get());
        else
            report->unlisted(listed);
        return report != nullptr;
    }

    bool denied(const char *, const char *listed) override {
        if (report != nullptr)
            report->skipped(listed);
        return true;
    }

    bool unlisted(const char *path, const char *listed) override {
        const int reason = errno;
        TRACE_MESSAGE("Cannot read directory \"%s\": %s", path, file_reason(reason));
        if (!goes_on())
            shahash_complain("Cannot read directory \"%s\"", str_printable(path).get());
        else
            report->unreadable(listed, file_reason(reason));
        return report != nullptr;
    }

  private:
    bool goes_on();
    void report_link(const char *path, const char *listed) const;
    bool receive(const char *path, OwnedString listed, const FileDigest &result);

    Vector *entries;
    WalkReport *report;
    OwnedString top;
    bool complete = true;
    FileDigests<OwnedString> digests{
        [this](const char *path, OwnedString listed, const FileDigest &result) {
            return receive(path, std::move(listed), result);
        }};
};

} // namespace

// Whether the walk goes on after a problem. If not, the files before it come first.
bool ManifestVisitor::goes_on() {
    complete = false;
    if (report == nullptr)
        digests.finish();
    return report != nullptr;
}

// Links that stay inside the tree go with it.
void ManifestVisitor::report_link(const char *path, const char *listed) const {
    const OwnedString target = host_real_path(path);
    if (target == nullptr || top == nullptr)
        return;
    std::string inside = top.get();
    if (!path_is_separator(host_path_style(), inside.back()))
        inside += host_path_style().separator;
    const std::string_view place = target.get();
    if (place != top.get() && !place.starts_with(inside))
        report->link(listed, target.get());
}

bool ManifestVisitor::receive(const char *path, OwnedString listed, const FileDigest &result) {
    if (result.outcome != OpenOutcome::opened) {
        TRACE_MESSAGE("Cannot read file \"%s\": %s", path, file_reason(result.reason));
        if (report == nullptr)
            shahash_fatal_cannot_open(path);
        complete = false;
        report->unreadable(listed.get(), file_reason(result.reason));
        return true;
    }
    auto *entry = xnew<ManifestEntry>();
    entry->digest = sha256_hex(result.digest);
    entry->path = listed.release();
    vec_append(entries, entry);
    return true;
}

bool shahash_walk(uint32_t, Vector *files, const char *dir, const char *relative,
                  WalkReport *report) {
    assert(files != NULL);
    assert(dir != NULL);
    ManifestVisitor visitor(files, dir, report);
    const bool walked = walk_tree(visitor, dir, relative);
    return visitor.finish() && walked;
}
