// --extra: files under the installation that the manifest does not list.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/manifest.h"
#include "kestrel/report.h"
#include "kestrel/settings.h"
#include "manifest/shahash.h"
#include "manifest/treewalk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

// A path with the separator that the host writes.
static std::string separated(std::string path) {
    const PathStyle &style = host_path_style();
    for (char &c : path)
        c = path_is_separator(style, c) ? style.separator : c;
    return path;
}

// The form in which paths compare: normalised.
static std::string comparable(const std::string &path) {
    std::string text = os_normalise(separated(path).c_str()).get();
    if (text.size() > 2 && text[0] == '.' && text[1] == host_path_style().separator)
        text.erase(0, 2);
    return text;
}

// Without regard to case where the host has none.
static std::string folded(std::string path) {
    if (host_path_style().drives)
        os_strlwr(path.data());
    return path;
}

namespace {

class ExtraVisitor : public TreeVisitor {
  public:
    // By the manifest, or not extra: comparable, under their folded form.
    std::unordered_multimap<std::string, std::string> listed;
    std::unordered_set<std::string> places; // where paths with ".." lead
    bool passed = true;

    void list(const std::string &path) { listed.emplace(folded(path), path); }

    bool entry(const char *, const char *) override { return true; }

    bool file(const char *path, OwnedString name, const StatResult &found) override {
        if (!found.status && found.reason == EACCES)
            return skipped(path, name.get());
        if (!is_listed(path, name.get()))
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
    bool is_listed(const char *path, const char *name) const {
        const std::string found = comparable(shahash_native_path(name));
        const auto [begin, end] = listed.equal_range(folded(found));
        // Some directories of Windows tell upper from lower case.
        if (std::any_of(begin, end, [&](const auto &line) {
                return line.second == found || host_same_file(line.second.c_str(), path);
            }))
            return true;
        const OwnedString place = places.empty() ? nullptr : host_real_path(path);
        return place != nullptr && places.contains(place.get());
    }

    void add(const char *name) {
        passed = false;
        TRACE_MESSAGE("File \"%s\" is not in the manifest", name);
        report_extra(name);
    }
};

} // namespace

// Whether ".." is one of the components of a path: behind a link it leads elsewhere than the text
// says.
static bool climbs(const std::string &path) {
    const char separator = host_path_style().separator;
    const std::string text = separator + separated(path) + separator;
    return text.find(std::string{separator, '.', '.', separator}) != text.npos;
}

static void add_line(ExtraVisitor &visitor, std::string_view line) {
    ManifestLine fields;
    if (!shahash_parse_line(line, &fields))
        return;
    const std::string path = shahash_native_path(fields.path);
    if (!climbs(path))
        visitor.list(comparable(path));
    else if (const OwnedString place = host_real_path(path.c_str()))
        visitor.places.insert(place.get());
}

// What is not extra: a path below the directory `top`, which the walk finds by the rest of it.
static void add_below(ExtraVisitor &visitor, const std::string &path, const char *top) {
    const PathStyle &style = host_path_style();
    std::string start(top, path_trimmed_length(style, top));
    if (!path_is_separator(style, start.back()))
        start += style.separator;
    if (path.starts_with(start) && !climbs(path.substr(start.size())))
        visitor.list(comparable(path.substr(start.size())));
}

// A file of this run is not extra as it is given, at its place without the directory's links, and
// where it leads in the end. All other names of it are.
static void add_own(ExtraVisitor &visitor, const char *given, const char *instdir) {
    add_below(visitor, given, instdir);
    const OwnedString top = host_real_path(".");
    const std::string path = separated(given);
    const std::string name = os_basename(path.c_str());
    const OwnedString directory = host_real_path(path.substr(0, path.size() - name.size()).c_str());
    const OwnedString target = host_real_path(given);
    if (top != nullptr && directory != nullptr)
        add_below(visitor, os_join(directory.get(), name.c_str()).get(), top.get());
    if (top != nullptr && target != nullptr)
        add_below(visitor, target.get(), top.get());
}

bool find_extra_files(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    ManifestFile file(manifest, instdir);
    if (!file)
        return TRACE_RESULT(false, "%s", file.failure());
    ExtraVisitor visitor;
    visitor.excluded = &settings.excluded;
    add_own(visitor, manifest, instdir);
    if (report_path() != nullptr)
        add_own(visitor, report_path(), instdir);
    for (std::string_view line; !(line = file.next_line()).empty();)
        add_line(visitor, line);
    if (!file.is_read())
        return TRACE_RESULT(false, "%s", file.failure());
    report_extra_search();
    walk_tree(visitor, ".", ".");
    file.leave();
    return TRACE_RESULT(visitor.passed, "%s", visitor.passed ? "No extra files" : "Extra files");
}
