#include "host/pathstyle.h"

#include "support/scratch.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

static const PathStyle &drive = drive_path_style;
static const PathStyle &slash = slash_path_style;

TEST(PathStyle, SeparatorsAndBareDrives) {
    EXPECT_FALSE(path_is_separator(drive, '\0') || path_is_separator(slash, '\0'));
    EXPECT_TRUE(path_is_separator(drive, '/') && !path_is_separator(slash, '\\'));
    EXPECT_TRUE(path_is_bare_drive(drive, "c:") && !path_is_bare_drive(slash, "c:"));
    const std::pair<const char *, const char *> trimmed[] = {
        {"a/\\/", "a"}, {"C:\\a", "C:\\a"}, {"C:\\/", "C:\\"}, {"\\\\", "\\"}, {"", ""}};
    for (const auto &[path, left] : trimmed)
        EXPECT_EQ(path_trimmed_length(drive, path), strlen(left)) << path;
    EXPECT_EQ(path_trimmed_length(slash, "a\\C://"), strlen("a\\C:"));
    for (const char *path : {"", "c", "c:\\", "::", "cc"})
        EXPECT_FALSE(path_is_bare_drive(drive, path)) << path;
}

TEST(PathStyle, Absolute) {
    const struct {
        const char *path;
        bool in_drive, in_slash;
    } cases[] = {{nullptr, false, false}, {"", false, false},    {"a", false, false},
                 {"C:", true, false},     {"::", true, false},   {":", false, false},
                 {"\\", false, false},    {"\\\\", true, false}, {"\\/s", false, false},
                 {"\\a", false, false},   {"/a", false, true},   {"/", false, true}};
    for (const auto &c : cases) {
        EXPECT_EQ(path_is_absolute(drive, c.path), c.in_drive) << text_of(c.path);
        EXPECT_EQ(path_is_absolute(slash, c.path), c.in_slash) << text_of(c.path);
    }
}

TEST(PathStyle, LeadingOut) {
    const struct {
        bool in_drive, in_slash;
        std::vector<const char *> paths;
    } cases[] = {
        {true, true, {"/x", "\\x", "C:x", "..", ".\\..", "a\\../..", "a/b\\../../.."}},
        {true, false, {". \\a", "... \\a", ".\\.. ", ". ./a"}},
        {false, false, {"", ".\\a\\b", ".\\a\\..\\b", "a//b\\..\\.\\..", "..a\\..", "a\\C:"}}};
    for (const auto &c : cases)
        for (const char *path : c.paths) {
            EXPECT_EQ(path_leads_out(drive, path), c.in_drive) << path;
            EXPECT_EQ(path_leads_out(slash, path), c.in_slash) << path;
        }
}

TEST(PathStyle, Join) {
    // clang-format off
    const struct {
        const PathStyle &style;
        const char *dir, *name, *joined;
    } cases[] = {
        {drive, "C:\\a\\", "\\b", "C:\\a\\b"}, {drive, "C:\\a/", "b", "C:\\a/\\b"},
        {drive, "a\\\\", "\\\\b", "a\\\\\\b"}, {drive, "a", "/b", "a\\/b"},
        {drive, "a", "", "a\\"}, {drive, "\\", "b", "\\b"}, {drive, "", "b", "(null)"},
        {drive, nullptr, "b", "(null)"}, {slash, "/", "b", "/b"}, {slash, "/a/", "/b", "/a/b"},
        {slash, "a\\", "\\b", "a\\/\\b"}};
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(text_of(path_join_style(c.style, c.dir, c.name)), c.joined);
}

TEST(PathStyle, SplitsAtTheLastSeparatorByPrecedence) {
    // clang-format off
    const struct {
        const PathStyle &style;
        const char *path, *dir, *base, *stem_dot;
    } cases[] = {
        {drive, "a\\b/c.x", "a", "b/c.x", "b/c."}, {drive, "a/b\\c.x.y", "a/b", "c.x.y", "c.x."},
        {drive, "a:b/c", "a:b", "c", "c"}, {drive, "C:f.o", "C", "f.o", "f."},
        {drive, "\\x", "", "x", "x"}, {drive, "d.ir\\file", "d.ir", "file", "file"},
        {drive, "file", "(null)", "file", "file"}, {drive, "dir\\", "dir", "", ""},
        {drive, nullptr, "(null)", "(null)", "(null)"}, {slash, "/x", "/", "x", "x"},
        {slash, "/", "/", "", ""}, {slash, "/a/b\\c:d", "/a", "b\\c:d", "b\\c:d"},
        {slash, "C:\\a", "(null)", "C:\\a", "C:\\a"}};
    // clang-format on
    for (const auto &c : cases) {
        EXPECT_EQ(text_of(path_dirname(c.style, c.path)), c.dir) << text_of(c.path);
        EXPECT_EQ(text_of(path_basename(c.style, c.path)), c.base) << text_of(c.path);
        EXPECT_EQ(text_of(path_stem(c.style, c.path, true)), c.stem_dot) << text_of(c.path);
    }
    EXPECT_EQ(text_of(path_stem(drive, "a\\b.c.d", false)), "b.c");
    EXPECT_STREQ(path_extension("a.b/c"), ".b/c"); // the last dot anywhere
    EXPECT_STREQ(path_extension("abc"), "");
}

TEST(PathStyle, Normalise) {
    // clang-format off
    const char *const drive_cases[][2] = {
        {"a\\\\b\\.\\c\\..\\d\\", "a\\b\\d"}, {"C:\\", "C:\\"}, {"C:\\x\\", "C:\\x"},
        {"\\\\srv\\share", "\\srv\\share"}, {"a\\..", ""}, {"", ""}, {"a/\\b\\/c", "a\\b/c"},
        {"a\\./b", "a/b"}, {"a\\.", "a"}, {"C:\\.", "C:"}, {"C:\\a\\..\\..\\b", "\\b"},
        {"a\\..\\b", "\\b"}, {"..\\.\\a", "..\\a"}, {".", "."}, {"a\\", "a\\"}, {"ab\\", "ab"},
        {"a\\...\\.b\\..c\\c..", "a\\...\\.b\\..c\\c.."}, {"C:\\a\\b/../..\\c", "C:\\c"}};
    // clang-format on
    for (const auto &[path, clean] : drive_cases)
        EXPECT_EQ(text_of(path_normalise(drive, path)), clean) << path;
    // clang-format off
    const char *const slash_cases[][2] = {
        {"/", "/"}, {"///", "/"}, {"/.", "/"}, {"/..", "/"}, {"/a/..", "/"}, {"/../../a", "/a"},
        {"//a///b/./c/../d/", "/a/b/d"}, {"a/", "a"}, {"/C:/", "/C:"}, {"/a\\..\\b", "/a\\..\\b"},
        {"a/..", ""}, {"a/../b", "b"}, {"a/../../b", "../b"}, {"../../../b", "../../../b"},
        {"./../b/..", "./.."}, {"a../../b", "b"}};
    // clang-format on
    for (const auto &[path, clean] : slash_cases)
        EXPECT_EQ(text_of(path_normalise(slash, path)), clean) << path;
}

TEST(PathStyle, Full) {
    // clang-format off
    const struct {
        const PathStyle &style;
        const char *cwd, *path, *full;
    } cases[] = {
        {drive, "C:\\w", "x", "C:\\w\\x"}, {drive, "C:\\", "x", "C:\\x"}, {drive, "C:\\w", "..", "C:\\"},
        {drive, "C:\\", "..\\x", "C:\\x"}, {drive, "C:\\w", "../..\\..\\x", "C:\\x"}, {drive, "C:\\", "", "C:\\"},
        {drive, "D:\\w", "C:\\a\\..", "C:\\"}, {drive, "D:\\w", "C:\\a\\..\\..\\b", "C:\\b"},
        {drive, "D:\\w", "C:/.", "C:\\"}, {drive, "D:\\w", "C:\\", "C:\\"}, {drive, "D:\\w", "C:", "C:"},
        {drive, "D:\\w", "C:a\\.", "C:a"}, {drive, "D:\\w", "C:a\\..", "C:a\\.."},
        {drive, "D:\\w", "\\\\s\\x\\", "\\s\\x"}, {drive, nullptr, "a\\..\\b", "\\b"},
        {slash, "/w", "x/../y", "/w/y"}, {slash, "/", "..", "/"}, {slash, "/w", "../../x", "/x"},
        {slash, "/w", "/a/..", "/"}, {slash, "/w", "C:x", "/w/C:x"}, {slash, nullptr, "C:/..", ""},
        {slash, "", "../a", "../a"}, {drive, "C:\\w", nullptr, "(null)"}};
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(text_of(path_full(c.style, c.cwd, c.path)), c.full) << text_of(c.path);
}

// Quadratic work on these would take hours.
TEST(PathStyle, NormalisingIsLinear) {
    const size_t deep = 2'000'000;
    std::string path, plain = "/" + std::string(deep, 'a');
    for (size_t i = 0; i < 2 * deep; i++)
        path += i < deep ? "/a" : "/..";
    EXPECT_EQ(text_of(path_normalise(slash, path.c_str())), "/");
    EXPECT_EQ(text_of(path_normalise(slash, (plain + std::string(deep, '/')).c_str())), plain);
}
