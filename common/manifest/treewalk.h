// The walk of a tree, depth first and in the order of the system's listings.
#ifndef KESTREL_MANIFEST_TREEWALK_H
#define KESTREL_MANIFEST_TREEWALK_H

#include "manifest/pathpattern.h"
#include "platform/osdep.h"

#include <cstdint>

// Receives what a walk finds. A function that returns false ends the walk; `path` opens an entry,
// and `listed` is its path in a manifest.
class TreeVisitor {
  public:
    virtual ~TreeVisitor() = default;

    // What the visitor is not shown: the walk does not enter such a directory. Null for none.
    const PathPatterns *excluded = nullptr;
    uint64_t excluded_count = 0; // entries that the walk has found and left out

    // Takes an entry, before the system is asked what it is.
    virtual bool entry(const char *path, const char *listed) = 0;

    // Takes what is not a directory, or cannot be looked at. Of a file that was only listed,
    // `found` has no size.
    virtual bool file(const char *path, OwnedString listed, const StatResult &found) = 0;

    // Takes an entry whose name cannot stand in a manifest.
    virtual bool unlisted(const char *path, const char *listed) = 0;

    // Takes a directory below the top that this user may not list.
    virtual bool skipped(const char *path, const char *listed) = 0;

    // Takes a directory that cannot be listed to its end for another reason, an errno.
    virtual bool unreadable(const char *path, const char *listed, int reason) = 0;
};

// How files are told from directories and links: every entry is looked at, or only what the listing
// of its directory does not call a file.
enum class Look { always, as_needed };

// Visits everything under `dir`, whose path in the manifest is `relative`. A directory that a link
// inside it leads back to is not entered again. False if the visitor has ended the walk.
bool walk_tree(TreeVisitor &visitor, const char *dir, const char *relative,
               Look look = Look::always);

#endif
