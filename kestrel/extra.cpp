// --extra: files under the installation that the manifest does not list.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/manifest.h"
#include "kestrel/report.h"
#include "kestrel/settings.h"
#include "manifest/listed.h"
#include "manifest/shahash.h"
#include "manifest/treewalk.h"

#include <cerrno>
#include <string_view>

namespace {

class ExtraVisitor : public TreeVisitor {
  public:
    ListedFiles listed; // by the manifest, or not extra for another reason
    bool passed = true;

    bool entry(const char *, const char *) override { return true; }

    bool file(const char *path, OwnedString name, const StatResult &found) override {
        if (!found.status && found.reason == EACCES)
            return skipped(path, name.get());
        if (!listed.contains(path, name.get()))
            add(name.get());
        return true;
    }

    bool unlisted(const char *, const char *name) override {
        add(name);
        return true;
    }

    // A directory that may hold anything.
    bool skipped(const char *, const char *name) override {
        passed = false;
        report_record("skipped", name);
        return true;
    }

    bool unreadable(const char *path, const char *, int reason) override {
        passed = false;
        const char *text =
            report_error("Cannot read directory \"%s\": %s", path, host_strerror(reason));
        TRACE_MESSAGE("%s", text);
        return true;
    }

  private:
    void add(const char *name) {
        passed = false;
        TRACE_MESSAGE("File \"%s\" is not in the manifest", name);
        report_extra(name);
    }
};

} // namespace

bool find_extra_files(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    ManifestFile file(manifest, instdir);
    if (!file)
        return TRACE_RESULT(false, "%s", file.failure());
    ExtraVisitor visitor;
    visitor.excluded = &settings.excluded;
    visitor.listed.add_given(manifest, instdir);
    if (report_path() != nullptr)
        visitor.listed.add_given(report_path(), instdir);
    ManifestLine fields;
    for (std::string_view line; !(line = file.next_line()).empty();)
        if (shahash_parse_line(line, &fields))
            visitor.listed.add(fields.path);
    if (!file.is_read())
        return TRACE_RESULT(false, "%s", file.failure());
    report_extra_search();
    walk_tree(visitor, ".", ".");
    file.leave();
    return TRACE_RESULT(visitor.passed, "%s", visitor.passed ? "No extra files" : "Extra files");
}
