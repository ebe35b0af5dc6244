// --extra: files under the installation that the manifest does not list.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/report.h"
#include "kestrel/steps.h"
#include "manifest/shahash.h"
#include "manifest/treewalk.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_set>

// The form in which paths of a manifest compare: normalised, and without regard to case where the
// host has none.
static std::string comparable(const char *path) {
    std::string text = os_normalise(shahash_native_path(path).c_str()).get();
    const PathStyle &style = host_path_style();
    if (text.size() > 2 && text[0] == '.' && text[1] == style.separator)
        text.erase(0, 2);
    if (style.drives)
        os_strlwr(text.data());
    return text;
}

namespace {

class ExtraVisitor : public TreeVisitor {
  public:
    std::unordered_set<std::string> listed; // by the manifest, comparable
    const char *own_files[2] = {};          // which are not extra; null for none
    bool passed = true;

    bool entry(const char *, const char *) override { return true; }

    bool file(const char *path, OwnedString name, const HostStat *) override {
        if (!listed.contains(comparable(name.get())) && !is_own(path))
            add(name.get());
        return true;
    }

    bool bad_name(const char *, const char *name) override {
        add(name);
        return true;
    }

    bool denied(const char *, const char *name) override {
        report_record("skipped", name);
        return true;
    }

    bool unlisted(const char *path, const char *) override {
        const int reason = errno;
        passed = false;
        report_error("Cannot read directory \"%s\": %s", path, strerror(reason));
        return true;
    }

  private:
    bool is_own(const char *path) const {
        for (const char *own : own_files)
            if (own != nullptr && str_icmp(os_basename(own), os_basename(path)) == 0 &&
                host_same_file(own, path))
                return true;
        return false;
    }

    void add(const char *name) {
        passed = false;
        TRACE_MESSAGE("File \"%s\" is not in the manifest", name);
        report_extra(name);
    }
};

} // namespace

bool find_extra_files(const char *manifest, const char *instdir, const char *report) {
    TRACE_ENTER();
    manifest = manifest_path(manifest, instdir);
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    FileState state;
    const FilePtr file = open_manifest(manifest, instdir, before.get(), &state, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure); // as the check has reported
    ExtraVisitor visitor;
    visitor.own_files[0] = manifest;
    visitor.own_files[1] = report;
    ManifestLine fields;
    for (std::string_view line; !(line = shahash_next_line(file.get())).empty();)
        if (shahash_parse_line(line, &fields))
            visitor.listed.insert(comparable(fields.path.c_str()));
    walk_tree(visitor, ".", ".");
    if (before != nullptr)
        enter_directory(before.get());
    return TRACE_RESULT(visitor.passed, "%s", visitor.passed ? "no extra files" : "failed");
}
