#include "manifest/treewalk.h"

#include "manifest/shahash.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

// A directory being walked.
struct Walk {
    TreeVisitor *visitor;
    Look look;
    const char *dir;
    const char *relative;
    const Walk *parent;  // the directory it was entered from
    size_t top_length;   // of what precedes the paths from the top of the tree
    bool linked = false; // reached over a link
    bool known = false;  // whether `identity` is
    FileIdentity identity = {};
};

} // namespace

// A link to a directory that is being walked would lead in circles. Identities alone do not tell:
// some file systems have none that can be trusted.
static bool is_loop(const Walk &walk) {
    for (const Walk *outer = walk.parent; walk.linked && outer != nullptr; outer = outer->parent)
        if (outer->known && walk.known && outer->identity == walk.identity &&
            host_same_file(outer->dir, walk.dir))
            return true;
    return false;
}

static bool is_directory(const StatResult &found) {
    return found.status && found.status->kind == FileKind::directory;
}

static bool is_excluded(const Walk &walk, const char *path, std::string_view listed,
                        const char *name) {
    const PathPatterns *const patterns = walk.visitor->excluded;
    return patterns != nullptr &&
           std::any_of(patterns->begin(), patterns->end(), [&](const PathPattern &pattern) {
               return path_matches(pattern, listed.substr(walk.top_length), name) &&
                      (!pattern.is_of_directory || is_directory(host_stat_result(path)));
           });
}

static bool walk_directory(Walk walk);

static bool walk_entry(const Walk &walk, const DirectoryEntry &entry) {
    TreeVisitor &visitor = *walk.visitor;
    const char *name = entry.name.c_str();
    const OwnedString full = os_join(walk.dir, name);
    OwnedString relative = path_join_style(drive_path_style, walk.relative, name);
    if (relative == nullptr)
        relative = xstrdup(name);
    if (is_excluded(walk, full.get(), relative.get(), name)) {
        visitor.excluded_count++;
        return true;
    }
    if (!entry.reachable || !shahash_name_fits(name, false))
        return visitor.unlisted(full.get(), relative.get());
    if (!visitor.entry(full.get(), relative.get()))
        return false;
    const bool is_listed_only = entry.is_regular && walk.look == Look::as_needed;
    const StatResult found =
        is_listed_only ? StatResult{HostStat{FileKind::regular, 0}} : host_stat_result(full.get());
    if (is_directory(found))
        return walk_directory(
            {&visitor, walk.look, full.get(), relative.get(), &walk, walk.top_length});
    if (!shahash_name_fits(name, true))
        return visitor.unlisted(full.get(), relative.get());
    return visitor.file(full.get(), std::move(relative), found);
}

static bool walk_directory(Walk walk) {
    walk.linked = walk.parent != nullptr && (walk.parent->linked || host_is_link(walk.dir));
    walk.known = host_file_identity(walk.dir, &walk.identity);
    if (is_loop(walk))
        return true;

    std::vector<DirectoryEntry> entries;
    const Listing listing = host_list_directory(walk.dir, &entries);
    const int reason = errno;
    for (const DirectoryEntry &entry : entries)
        if (!walk_entry(walk, entry))
            return false;
    if (listing == Listing::complete)
        return true;
    if (listing == Listing::denied && walk.parent != nullptr)
        return walk.visitor->skipped(walk.dir, walk.relative);
    return walk.visitor->unreadable(walk.dir, walk.relative, reason);
}

bool walk_tree(TreeVisitor &visitor, const char *dir, const char *relative, Look look) {
    const OwnedString below = path_join_style(drive_path_style, relative, "");
    return walk_directory(
        {&visitor, look, dir, relative, nullptr, below != nullptr ? strlen(below.get()) : 0});
}
