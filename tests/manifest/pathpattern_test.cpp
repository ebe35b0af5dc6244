#include "manifest/pathpattern.h"

#include <gtest/gtest.h>

// Paths as the walk has them; the name of an entry is what follows the last backslash.
TEST(PathPattern, WhatPatternsMatch) {
    const struct {
        const char *pattern;
        std::vector<const char *> matched, others;
    } cases[] = {
        {"a.o", {"a.o", "d\\a.o", "d\\e\\a.o"}, {"a.os", "ba.o", "axo", "a.o\\b", "A.o"}},
        {"*.o", {".o", "a.b.o", "d\\a.o"}, {"a.oo", "o", "a.o\\b"}},
        {"*a*b*", {"ab", "xaxbx", "aab", "d\\bab"}, {"ba", "a\\b"}},
        {"a?c",
         {"abc", "d\\a*c",
          "a\xc3\xa4"
          "c",
          "a\xff"
          "c"},
         {"ac", "abbc", "a\\c"}},
        {"???", {"abc", "\xe2\x82\xac\xc3\xa4z", "\x80\x80\x80"}, {"ab", "abcd", "\xe2\x82\xac"}},
        {"[a]", {"[a]"}, {"a"}},
        {"**", {"a", "d\\a"}, {}},
        {"a**", {"a", "d\\ab"}, {"b\\a\\c\\b"}},
        {"/a.o", {"a.o"}, {"d\\a.o", "a.o\\b"}},
        {".\\a.o", {"a.o"}, {"d\\a.o"}},
        {"d/*", {"d\\a", "d\\.b"}, {"d", "d\\e\\a", "c\\d\\a"}},
        {"d\\?", {"d\\a"}, {"d\\ab", "da", "d\\\\"}},
        {"*/*/a", {"d\\e\\a"}, {"d\\a", "d\\e\\f\\a", "a"}},
        {"/**", {"a", "d\\a"}, {}},
        {"d/**", {"d\\a", "d\\e\\a"}, {"d", "de", "e\\d\\a"}},
        {"**/a", {"a", "d\\a", "d\\e\\a"}, {"ba", "d\\ba", "a\\b"}},
        {"d/**/a", {"d\\a", "d\\e\\a", "d\\e\\f\\a"}, {"da", "d\\ea", "d\\e\\a\\b", "e\\d\\a"}},
        {"d/**a", {"d\\a", "d\\ba", "d\\e\\fa"}, {"d\\ab", "da"}},
        {"d**a", {"da"}, {"d\\a", "d\\ea"}},
        {"/d**/a", {"d\\a", "dx\\e\\a"}, {"da", "e\\d\\a"}},
        {"/d**a", {"da", "d\\a", "dx\\ea"}, {"e\\da"}},
        {"**/d/**/*.[ch]", {"d\\a.[ch]", "x\\d\\y\\a.[ch]"}, {"d\\a.c"}},
        {"d/*a*/b**c/**/e", {"d\\xax\\bc\\e", "d\\a\\b\\c\\f\\e"}, {"d\\a\\bc", "d\\a\\x\\bc\\e"}},
    };
    for (const auto &c : cases) {
        const auto pattern = path_pattern(slash_path_style, c.pattern);
        ASSERT_TRUE(pattern) << c.pattern;
        const auto matches = [&](std::string_view path) {
            return path_matches(*pattern, path, path.substr(path.rfind('\\') + 1));
        };
        for (const char *path : c.matched)
            EXPECT_TRUE(matches(path)) << c.pattern << " " << path;
        for (const char *path : c.others)
            EXPECT_FALSE(matches(path)) << c.pattern << " " << path;
    }
    // Some hosts have such names.
    EXPECT_TRUE(path_matches(*path_pattern(slash_path_style, "a?b"), "d\\a\\b", "a\\b"));
    EXPECT_TRUE(path_matches(*path_pattern(drive_path_style, "d/A*"), "D\\a", "a"));
    // Time is in proportion to the lengths.
    std::string stars, text(500, 'a');
    for (int i = 0; i < 100; i++)
        stars += "*a";
    EXPECT_FALSE(path_matches(*path_pattern(slash_path_style, stars + "b"), text, text));
}

TEST(PathPattern, WhatIsAPattern) {
    enum { NONE, ANY, DIRECTORY };
    const struct {
        const char *pattern;
        int in_slash, in_drive;
        bool of_path = false;
    } cases[] = {{"", NONE, NONE},
                 {"/", NONE, NONE},
                 {"./", NONE, NONE},
                 {".", NONE, NONE},
                 {"..", NONE, NONE},
                 {"//a", NONE, NONE},
                 {"a//b", NONE, NONE},
                 {"a//", NONE, NONE},
                 {"././a", NONE, NONE},
                 {"a/../b", NONE, NONE},
                 {"a\\.", NONE, NONE},
                 {"C:\\a", ANY, NONE, true},
                 {"a:b", ANY, NONE},
                 {"...", ANY, ANY},
                 {"a", ANY, ANY},
                 {"a/", DIRECTORY, DIRECTORY},
                 {"a\\", DIRECTORY, DIRECTORY},
                 {"/a", ANY, ANY, true},
                 {"/a/", DIRECTORY, DIRECTORY, true},
                 {"./a", ANY, ANY, true},
                 {"a/b", ANY, ANY, true},
                 {"**/", DIRECTORY, DIRECTORY}};
    for (const auto &c : cases)
        for (const bool in_drive : {false, true}) {
            const auto pattern =
                path_pattern(in_drive ? drive_path_style : slash_path_style, c.pattern);
            const int expected = in_drive ? c.in_drive : c.in_slash;
            EXPECT_EQ(pattern ? pattern->is_of_directory ? DIRECTORY : ANY : NONE, expected)
                << c.pattern;
            EXPECT_EQ(pattern && pattern->is_of_path, c.of_path && expected != NONE) << c.pattern;
        }
}
