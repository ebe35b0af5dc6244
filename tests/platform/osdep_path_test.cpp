#include "platform/osdep.h"
#include "support/files.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

TEST(OsPath, FullAndRelativePaths) {
    const Scratch scratch;
    ASSERT_TRUE(host_mkdir(scratch.path("work2").c_str()));
    const Inside inside(scratch.path("work"));
    const std::string here = text_of(os_getcwd());
    const struct {
        const char *path, *full, *relative;
    } cases[] = {
        {"x", "/x", "x"},
        {"a/./b/../c/", "/a/c", "a/c"},
        {"x/..", "", "."},
        {"..", nullptr, nullptr}, // the parent, whose text does not continue the directory's
        {"../work2/x", "2/x", "2/x"},
        {"../work/x", "/x", "x"},
    };
    for (const auto &c : cases) {
        const std::string path = native(c.path);
        const std::string full =
            c.full != nullptr ? here + native(c.full) : text_of(os_dirname(here.c_str()));
        EXPECT_EQ(text_of(os_fullpath(path.c_str())), full) << path;
        EXPECT_EQ(text_of(os_relpath(path.c_str())),
                  c.relative != nullptr ? native(c.relative) : full)
            << path;
    }
    EXPECT_EQ(text_of(os_relpath(here.c_str())), ".");
    ASSERT_TRUE(host_chdir("/"));
    EXPECT_EQ(text_of(os_relpath("x")), "x");
    EXPECT_EQ(text_of(os_basename_copy("a/b.c")), "b.c");
    EXPECT_EQ(text_of(os_stem("a.b.c")) + text_of(os_stem_dot("a.b.c")), "a.ba.b.");
    EXPECT_EQ(text_of(path_join("a", "b")) + os_extension("a/b.c"), native("a/b.c"));
    EXPECT_EQ(text_of(os_normalise("a/./..\\b")), os_kind() != 0 ? "\\b" : "a/..\\b");
    EXPECT_EQ(os_fullpath(nullptr), nullptr);
    EXPECT_EQ(os_normalise(nullptr), nullptr);
    EXPECT_EQ(os_relpath(nullptr), nullptr);
}

TEST(OsPath, StoredNames) {
    const Scratch scratch;
    const std::string file = scratch.write("Mixed.Txt", "x");
    const struct {
        const char *name;
        bool matches;
    } cases[] = {{"Mixed.Txt", true}, {"mixed.txt", false}, {"Mixed.*", false}, {"gone", false}};
    for (const auto &c : cases)
        EXPECT_EQ(os_name_case_matches(scratch.path(c.name).c_str()), c.matches) << c.name;
    const Inside inside(scratch.directory());
    EXPECT_TRUE(os_name_case_matches("Mixed.Txt"));
    EXPECT_NE(os_shortpath(file.c_str()), nullptr);
    EXPECT_EQ(os_shortpath(scratch.path("gone").c_str()), nullptr);
}
