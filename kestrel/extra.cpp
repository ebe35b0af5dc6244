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
    const char *manifest = nullptr;         // which is not extra
    bool passed = true;

    bool entry(const char *, const char *) override { return true; }

    bool file(const char *path, OwnedString name, const HostStat *) override {
        if (!listed.contains(comparable(name.get())) && !is_manifest(path) && !report_is_in(path))
            add(name.get());
        return true;
    }

    bool bad_name(const char *, const char *name) override {
        add(name);
        return true;
    }

    // A directory that may hold anything.
    bool denied(const char *, const char *name) override {
        passed = false;
        report_record("skipped", name);
        return true;
    }

    bool unlisted(const char *path, const char *) override {
        const int reason = errno;
        passed = false;
        const char *text = report_error("Cannot read directory \"%s\": %s", path, strerror(reason));
        TRACE_MESSAGE("%s", text);
        return true;
    }

  private:
    bool is_manifest(const char *path) const {
        return str_icmp(os_basename(manifest), os_basename(path)) == 0 &&
               host_same_file(manifest, path);
    }

    void add(const char *name) {
        passed = false;
        TRACE_MESSAGE("File \"%s\" is not in the manifest", name);
        report_extra(name);
    }
};

} // namespace

bool find_extra_files(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    manifest = manifest_path(manifest, instdir);
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    FileState state;
    const FilePtr file = open_manifest(manifest, instdir, before.get(), &state, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure); // as the check has reported
    ExtraVisitor visitor;
    visitor.manifest = manifest;
    report_extra_search();
    ManifestLine fields;
    for (std::string_view line; !(line = shahash_next_line(file.get())).empty();)
        if (shahash_parse_line(line, &fields))
            visitor.listed.insert(comparable(fields.path.c_str()));
    walk_tree(visitor, ".", ".");
    if (before != nullptr)
        enter_directory(before.get());
    return TRACE_RESULT(visitor.passed, "%s", visitor.passed ? "no extra files" : "failed");
}
