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
    std::unordered_set<std::string> places; // where paths with ".." lead
    FileIdentity manifest = {};             // which is not extra
    bool passed = true;

    bool entry(const char *, const char *) override { return true; }

    bool file(const char *path, OwnedString name, const HostStat *found) override {
        if (found == nullptr && errno == EACCES)
            return denied(path, name.get());
        if (!is_listed(path, name.get()) && !is_manifest(path) && !report_is_in(path))
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
    bool is_listed(const char *path, const char *name) const {
        if (listed.contains(comparable(name)))
            return true;
        const OwnedString place = places.empty() ? nullptr : host_real_path(path);
        return place != nullptr && places.contains(place.get());
    }

    bool is_manifest(const char *path) const {
        FileIdentity found;
        return host_file_identity(path, &found) && found == manifest;
    }

    void add(const char *name) {
        passed = false;
        TRACE_MESSAGE("File \"%s\" is not in the manifest", name);
        report_extra(name);
    }
};

} // namespace

// Behind a link ".." leads elsewhere than the text says.
static void add_line(ExtraVisitor &visitor, std::string_view line) {
    ManifestLine fields;
    if (!shahash_parse_line(line, &fields))
        return;
    if (fields.path.find("..") == fields.path.npos)
        visitor.listed.insert(comparable(fields.path.c_str()));
    else if (const OwnedString place = host_real_path(shahash_native_path(fields.path).c_str()))
        visitor.places.insert(place.get());
}

bool find_extra_files(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    Subject subject;
    const FilePtr file = open_manifest(manifest, instdir, before.get(), &subject, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure);
    ExtraVisitor visitor;
    visitor.manifest = subject.manifest.identity;
    for (std::string_view line; !(line = shahash_next_line(file.get())).empty();)
        add_line(visitor, line);
    if (ferror(file.get()) != 0) {
        report_error("%s", CANNOT_READ_MANIFEST);
        return TRACE_RESULT(false, "%s", CANNOT_READ_MANIFEST);
    }
    report_extra_search();
    walk_tree(visitor, ".", ".");
    if (before != nullptr)
        enter_directory(before.get());
    return TRACE_RESULT(visitor.passed, "%s", visitor.passed ? "No extra files" : "Extra files");
}
