#include "pathstyle.h"

#include <gtest/gtest.h>
#include <string>

static const PathStyle &drive = drive_path_style;
static const PathStyle &slash = slash_path_style;

// A result as text that compares, null included.
static std::string shown(const char *text) {
    return text != nullptr ? text : "(null)";
}
static std::string shown(const OwnedString &text) {
    return shown(text.get());
}

TEST(PathStyle, NulIsNoSeparator) {
    EXPECT_FALSE(path_is_separator(drive, '\0'));
    EXPECT_FALSE(path_is_separator(slash, '\0'));
    EXPECT_TRUE(path_is_separator(drive, '/'));
    EXPECT_FALSE(path_is_separator(slash, '\\'));
    EXPECT_FALSE(path_is_separator(drive, ':'));
}

TEST(PathStyle, Absolute) {
    const struct {
        const char *path;
        bool in_drive, in_slash;
    } cases[] = {
        {nullptr, false, false}, {"", false, false},  {"a", false, false},   {"C:", true, false},
        {"C:x", true, false},    {"::", true, false}, {":", false, false},   {"\\", false, false},
        {"\\\\", true, false},   {"/", false, true},  {"//s", false, true},  {"\\/s", false, false},
        {"\\a", false, false},   {"/a", false, true}, {"./a", false, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(path_is_absolute(drive, c.path), c.in_drive) << shown(c.path);
        EXPECT_EQ(path_is_absolute(slash, c.path), c.in_slash) << shown(c.path);
    }
}

TEST(PathStyle, Join) {
    const struct {
        const PathStyle &style;
        const char *dir, *name, *joined;
    } cases[] = {
        {drive, "C:\\a\\", "\\b", "C:\\a\\b"},
        {drive, "C:\\a/", "b", "C:\\a/\\b"},
        {drive, "a\\\\", "\\\\b", "a\\\\\\b"},
        {drive, "a", "/b", "a\\/b"},
        {drive, "a", "", "a\\"},
        {drive, "\\", "b", "\\b"},
        {drive, "", "b", "(null)"},
        {drive, nullptr, "b", "(null)"},
        {slash, "/", "b", "/b"},
        {slash, "/a/", "/b", "/a/b"},
        {slash, "a\\", "\\b", "a\\/\\b"},
        {slash, "", "b", "(null)"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(shown(path_join_style(c.style, c.dir, c.name)), c.joined);
}

TEST(PathStyle, SplitsAtTheLastSeparatorByPrecedence) {
    const struct {
        const PathStyle &style;
        const char *path, *dir, *base, *stem, *stem_dot;
    } cases[] = {
        {drive, "a\\b/c.x", "a", "b/c.x", "b/c", "b/c."},
        {drive, "a/b\\c.x.y", "a/b", "c.x.y", "c.x", "c.x."},
        {drive, "a:b/c", "a:b", "c", "c", "c"},
        {drive, "a/b:c", "a", "b:c", "b:c", "b:c"},
        {drive, "C:f.o", "C", "f.o", "f", "f."},
        {drive, "\\x", "", "x", "x", "x"},
        {drive, "d.ir\\file", "d.ir", "file", "file", "file"},
        {drive, "file", "(null)", "file", "file", "file"},
        {drive, "dir\\", "dir", "", "", ""},
        {drive, ".rc", "(null)", ".rc", "", "."},
        {drive, nullptr, "(null)", "(null)", "(null)", "(null)"},
        {slash, "/x", "/", "x", "x", "x"},
        {slash, "/", "/", "", "", ""},
        {slash, "/a/b\\c:d", "/a", "b\\c:d", "b\\c:d", "b\\c:d"},
        {slash, "C:\\a", "(null)", "C:\\a", "C:\\a", "C:\\a"},
        {slash, nullptr, "(null)", "(null)", "(null)", "(null)"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(shown(c.path));
        EXPECT_EQ(shown(path_dirname(c.style, c.path)), c.dir);
        EXPECT_EQ(shown(path_basename(c.style, c.path)), c.base);
        EXPECT_EQ(shown(path_stem(c.style, c.path, false)), c.stem);
        EXPECT_EQ(shown(path_stem(c.style, c.path, true)), c.stem_dot);
    }
}

TEST(PathStyle, ExtensionIsTheLastDotAnywhere) {
    EXPECT_STREQ(path_extension("a.b/c"), ".b/c");
    EXPECT_STREQ(path_extension("a.b.c"), ".c");
    EXPECT_STREQ(path_extension("a."), ".");
    EXPECT_STREQ(path_extension("abc"), "");
    EXPECT_STREQ(path_extension(nullptr), "");
}

TEST(PathStyle, Normalise) {
    const struct {
        const PathStyle &style;
        const char *path, *clean;
    } cases[] = {
        {drive, "a\\\\b\\.\\c\\..\\d\\", "a\\b\\d"},
        {drive, "C:\\", "C:\\"},
        {drive, "C:\\x\\", "C:\\x"},
        {drive, "\\\\srv\\share", "\\srv\\share"},
        {drive, "a\\..", ""},
        {drive, "", ""},
        {drive, "a/\\b\\/c", "a\\b/c"},
        {drive, "a\\./b", "a/b"},
        {drive, "a\\.", "a"},
        {drive, "C:\\.", "C:"},
        {drive, "C:\\a\\..\\..\\b", "\\b"},
        {drive, "a\\..\\b", "\\b"},
        {drive, "..\\.\\a", "..\\a"},
        {drive, ".", "."},
        {drive, "a\\...\\.b\\..c\\c..", "a\\...\\.b\\..c\\c.."},
        {drive, "a\\", "a\\"},
        {drive, "ab\\", "ab"},
        {drive, "C:\\a\\b/../..\\c", "C:\\c"},
        {slash, "/", "/"},
        {slash, "///", "/"},
        {slash, "/.", "/"},
        {slash, "/..", "/"},
        {slash, "/a/..", "/"},
        {slash, "/../../a", "/a"},
        {slash, "//a///b/./c/../d/", "/a/b/d"},
        {slash, "a/", "a"},
        {slash, "/C:/", "/C:"},
        {slash, "/a\\..\\b", "/a\\..\\b"},
        {slash, "a/..", ""},
        {slash, "a/../b", "b"},
        {slash, "a/../../b", "../b"},
        {slash, "../../b", "../../b"},
        {slash, "./../b/..", "./.."},
        {slash, "a../../b", "b"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(shown(path_normalise(c.style, c.path)), c.clean) << c.path;
}

// Quadratic work on these would take hours.
TEST(PathStyle, NormalisingIsLinear) {
    const size_t deep = 2'000'000;
    std::string path, plain = "/";
    for (size_t i = 0; i < deep; ++i)
        path += "/a";
    for (size_t i = 0; i < deep; ++i)
        path += "/..";
    EXPECT_EQ(shown(path_normalise(slash, path.c_str())), "/");
    plain.append(deep, 'a');
    EXPECT_EQ(shown(path_normalise(slash, (plain + std::string(deep, '/')).c_str())), plain);
}
