// The files below the current directory that something lists.
#ifndef KESTREL_MANIFEST_LISTED_H
#define KESTREL_MANIFEST_LISTED_H

#include <string>
#include <unordered_map>
#include <unordered_set>

// A set of files, each with the names under which it is listed.
class ListedFiles {
  public:
    // Lists a file by its path in a manifest, and by no other name that it has.
    void add(const std::string &path);

    // Lists a file by a path from the root, if it is below `directory`, the current one, under each
    // of three names: as given; with the links in its directory resolved; with all resolved.
    void add_given(const char *path, const char *directory);

    // Whether a file is listed that a walk has found: `path` opens it, and `name` is its path in a
    // manifest.
    bool contains(const char *path, const char *name) const;

  private:
    void add_below(const std::string &path, const char *top);
    void add_comparable(const std::string &path);

    std::unordered_multimap<std::string, std::string> paths; // comparable, by their folded form
    std::unordered_set<std::string> places;                  // where paths with ".." lead
};

#endif
