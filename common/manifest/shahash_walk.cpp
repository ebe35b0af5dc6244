// The walk of a tree for its manifest.
#include "manifest/shahash.h"

#include "manifest/filedigests.h"
#include "platform/osdep.h"

#include <cassert>
#include <utility>

namespace {

// A directory being walked.
struct Walk {
    FileDigests<OwnedString> *files; // each with its path in the manifest
    const char *dir;
    const char *relative;
    const Walk *parent;  // the directory it was entered from
    bool linked = false; // reached over a link
    bool known = false;  // whether `identity` is
    FileIdentity identity = {};
};

} // namespace

// A link to a directory that is being walked would lead in circles. Without a link identities are
// not compared: some file systems have none that can be trusted.
static bool is_loop(const Walk &walk) {
    for (const Walk *outer = walk.parent; walk.linked && outer != nullptr; outer = outer->parent)
        if (outer->known && walk.known && outer->identity == walk.identity)
            return true;
    return false;
}

static bool walk_directory(Walk walk);

static bool refuse_name(const Walk &walk, const char *path) {
    walk.files->finish(); // a file before it that cannot be opened is reported first
    fprintf(stderr, "The name of file \"%s\" cannot be written to a manifest\n",
            str_printable(path).get());
    return false;
}

static bool walk_entry(const Walk &walk, const DirectoryEntry &entry) {
    const char *name = entry.name.c_str();
    const OwnedString full = os_join(walk.dir, name);
    if (!entry.reachable || !shahash_name_fits(name, false))
        return refuse_name(walk, full.get());
    OwnedString relative = path_join_style(drive_path_style, walk.relative, name);
    if (relative == nullptr)
        relative = xstrdup(name);
    if (!walk.files->wait_for_lane())
        return false;
    HostStat status;
    const HostStat *found = host_stat(full.get(), &status) ? &status : nullptr;
    if (found != nullptr && found->kind == FileKind::directory)
        return walk_directory({walk.files, full.get(), relative.get(), &walk});
    if (!shahash_name_fits(name, true))
        return refuse_name(walk, full.get());
    return walk.files->add(full.get(), std::move(relative), found);
}

static bool walk_directory(Walk walk) {
    walk.linked = walk.parent != nullptr && (walk.parent->linked || host_is_link(walk.dir));
    walk.known = host_file_identity(walk.dir, &walk.identity);
    if (is_loop(walk))
        return true;

    std::vector<DirectoryEntry> entries;
    const Listing listing = host_list_directory(walk.dir, &entries);
    for (const DirectoryEntry &entry : entries)
        if (!walk_entry(walk, entry))
            return false;
    if (listing == Listing::complete || (listing == Listing::denied && walk.parent != nullptr))
        return true;
    walk.files->finish(); // a file before it that cannot be opened is reported first
    fprintf(stderr, "Cannot read directory \"%s\"\n", str_printable(walk.dir).get());
    return false;
}

bool shahash_walk(uint32_t, Vector *files, const char *dir, const char *relative) {
    assert(files != NULL);
    assert(dir != NULL);
    FileDigests<OwnedString> digests(
        [files](const char *path, OwnedString listed, const FileDigest &result) {
            if (result.outcome != OpenOutcome::opened)
                shahash_fatal_cannot_open(path);
            auto *entry = xnew<ManifestEntry>();
            entry->digest = sha256_hex(result.digest);
            entry->path = listed.release();
            vec_append(files, entry);
            return true;
        });
    const bool complete = walk_directory({&digests, dir, relative, nullptr});
    return digests.finish() && complete;
}
