#include "manifest/listed.h"

#include "manifest/shahash.h"
#include "platform/osdep.h"

#include <algorithm>

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

// Whether ".." is one of the components of a path: behind a link it leads elsewhere than the text
// says.
static bool climbs(const std::string &path) {
    const char separator = host_path_style().separator;
    const std::string text = separator + separated(path) + separator;
    return text.find(std::string{separator, '.', '.', separator}) != text.npos;
}

void ListedFiles::add_comparable(const std::string &path) {
    const std::string text = comparable(path);
    paths.emplace(folded(text), text);
}

void ListedFiles::add(const std::string &path) {
    const std::string native = shahash_native_path(path);
    if (!climbs(native))
        add_comparable(native);
    else if (const OwnedString place = host_real_path(native.c_str()))
        places.insert(place.get());
}

// Lists a path below the directory `top`, which a walk finds by the rest of it.
void ListedFiles::add_below(const std::string &path, const char *top) {
    const PathStyle &style = host_path_style();
    std::string start(top, path_trimmed_length(style, top));
    if (!path_is_separator(style, start.back()))
        start += style.separator;
    if (path.starts_with(start) && !climbs(path.substr(start.size())))
        add_comparable(path.substr(start.size()));
}

void ListedFiles::add_given(const char *path, const char *directory) {
    add_below(path, directory);
    const OwnedString top = host_real_path(".");
    const std::string text = separated(path);
    const std::string name = os_basename(text.c_str());
    const OwnedString place = host_real_path(text.substr(0, text.size() - name.size()).c_str());
    const OwnedString target = host_real_path(path);
    if (top != nullptr && place != nullptr)
        add_below(os_join(place.get(), name.c_str()).get(), top.get());
    if (top != nullptr && target != nullptr)
        add_below(target.get(), top.get());
}

bool ListedFiles::contains(const char *path, const char *name) const {
    const std::string found = comparable(shahash_native_path(name));
    const auto [begin, end] = paths.equal_range(folded(found));
    // Some directories of Windows tell upper from lower case.
    if (std::any_of(begin, end, [&](const auto &listed) {
            return listed.second == found || host_same_file(listed.second.c_str(), path);
        }))
        return true;
    const OwnedString place = places.empty() ? nullptr : host_real_path(path);
    return place != nullptr && places.contains(place.get());
}
