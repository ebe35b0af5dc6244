// Paths, links and listings, for tests that look at what lies in a directory.
#ifndef KESTREL_TESTS_SUPPORT_FILES_H
#define KESTREL_TESTS_SUPPORT_FILES_H

#include "platform/osdep.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// A path written with "/" in the host's own form.
inline std::string native(std::string path) {
    std::replace(path.begin(), path.end(), '/', host_path_style().separator);
    return path;
}

// Enters a directory, a new one if need be, for as long as it lives.
class Inside {
  public:
    explicit Inside(const std::string &path) {
        host_mkdir(path.c_str());
        host_chdir(path.c_str());
    }
    ~Inside() { host_chdir(previous.get()); }

  private:
    OwnedString previous = os_getcwd();
};

// Whether a link could be made; some systems ask for a privilege.
inline bool make_link(const std::string &target, const std::string &link, bool directory) {
    std::error_code failure;
    if (directory)
        std::filesystem::create_directory_symlink(target, link, failure);
    else
        std::filesystem::create_symlink(target, link, failure);
    return !failure && host_is_link(link.c_str());
}

// The names in a directory, in the order of the system.
inline std::vector<std::string> listing(const char *directory) {
    std::vector<std::string> names;
    std::vector<DirectoryEntry> entries;
    host_list_directory(directory, &entries);
    for (const DirectoryEntry &entry : entries)
        names.push_back(entry.name);
    return names;
}

#endif
