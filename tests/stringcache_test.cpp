#include "stringcache.h"

#include "osdep_host.h"

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

static const void *address(const char *text) {
    return text;
}

// A path written with backslashes, as this host spells it.
static std::string host(std::string path) {
    std::replace(path.begin(), path.end(), '\\', host_path_style().separator);
    return path;
}

// --- Interning

TEST(StringCache, EqualTextIsOnePointer) {
    char mine[] = "seven-7";
    const char *first = sc_format("seven-%d", 7);
    EXPECT_STREQ(first, "seven-7");
    EXPECT_EQ(address(sc_concat("seven", "-7")), first);
    EXPECT_EQ(address(sc_adopt(mine)), first);
    EXPECT_NE(address(sc_strdup(mine)), mine);
    EXPECT_EQ(sc_strdup(nullptr), nullptr);
    EXPECT_EQ(sc_adopt(nullptr), nullptr);

    static char adopted[] = "adopted as it is";
    EXPECT_EQ(address(sc_adopt(adopted)), adopted);
    EXPECT_EQ(address(sc_strdup("adopted as it is")), adopted);
}

TEST(StringCache, KeepsEveryStringWhileItGrows) {
    constexpr size_t many = 100'000;
    std::vector<const char *> strings;
    for (size_t i = 0; i < many; ++i)
        strings.push_back(sc_format("string %zu", i));
    EXPECT_EQ(std::set<const char *>(strings.begin(), strings.end()).size(), many);
    for (size_t i = 0; i < many; ++i)
        ASSERT_EQ(address(sc_format("string %zu", i)), strings[i]);
}

TEST(StringCache, SizeZeroSwitchesInterningOff) {
    const char *before = sc_strdup("off and on");
    sc_setTableSize(0);
    OwnedString one(const_cast<char *>(sc_format("off and %s", "on")));
    OwnedString other(const_cast<char *>(sc_strdup("off and on")));
    char mine[] = "off and on";
    EXPECT_EQ(address(sc_adopt(mine)), mine);
    sc_setTableSize(5077);
    EXPECT_STREQ(one.get(), "off and on");
    EXPECT_NE(one, other);
    EXPECT_NE(address(one.get()), before);
    EXPECT_EQ(address(sc_strdup("off and on")), before);
}

// In a process of its own, since the count of strings taken in never goes back.
[[noreturn]] static void exhaust_limit() {
    const char *old = sc_strdup("before the limit");
    sc_setLimit(2);
    for (const char *text : {"first", "second", "third"})
        EXPECT_EQ(address(sc_strdup(text)), sc_strdup(text)) << text;
    EXPECT_NE(address(sc_strdup("fourth")), sc_strdup("fourth"));
    char mine[] = "fifth";
    EXPECT_EQ(address(sc_adopt(mine)), mine);
    EXPECT_NE(address(sc_strdup("fifth")), mine);
    EXPECT_EQ(address(sc_strdup("before the limit")), old);
    exit(::testing::Test::HasFailure() ? 1 : 0);
}

TEST(StringCacheDeathTest, OneMoreThanTheLimitIsTakenIn) {
    EXPECT_EXIT(exhaust_limit(), ::testing::ExitedWithCode(0), "");
}

// --- Builders

TEST(StringCache, FormatsTextOfAnyLength) {
    for (int length : {0, 4089, 4090, 4091, 8187, 8188, 1'000'000}) {
        const std::string expected = std::string(static_cast<size_t>(length), ' ') + "|x|-7";
        EXPECT_EQ(sc_format("%*s|%s|%d", length, "", "x", -7), expected) << length;
    }
    EXPECT_STREQ(sc_formatExpand("\t%s", "a\tb"), "    a    b");
}

TEST(StringCacheDeathTest, FormatThatCannotBeMadeAborts) {
    if (host_kind() != 0)
        GTEST_SKIP() << "this host's printf makes something of any character";
    EXPECT_DEATH(sc_format("%lc", static_cast<wint_t>(0xd800)),
                 "vsnprintf failed in a mysterious way");
}

TEST(StringCache, Builders) {
    const VectorPtr chars(vec_new(__FILE__, __LINE__));
    for (intptr_t c : {'x', 'y', '\xe9'})
        vec_append(chars.get(), reinterpret_cast<void *>(c));
    // clang-format off
    const struct {
        const char *actual, *expected;
    } cases[] = {
        {sc_expandTabs("\ta\t\tb\t"), "    a        b    "}, {sc_ncopy("abc", 100), "abc"},
        {sc_lower("A-Z\xc9"), "a-z\xc9"}, {sc_upper("a-z1"), "A-Z1"},
        {sc_fromChars(chars.get()), "xy\xe9"}, {sc_trim(" \t\r\n\v\fa b\xa0 "), "a b\xa0"},
        {sc_trimChars("xyaxbyx", "yx"), "axb"}, {sc_trimChars("xx", "x"), ""},
        {sc_trimChars(" a ", ""), " a "}, {sc_chomp("a\r\nb\n\r\r\n"), "a\r\nb"},
        {sc_firstLine("a\rb\nc"), "a"}, {sc_quote("a", '"'), "\"a\""}, {sc_quote("a", '\0'), "a"},
        {sc_escape("a'b\"\\'", "'\\", '\0'), "a\\'b\"\\\\\\'"}, {sc_escape("$a", "$", '^'), "^$a"},
        {sc_escape("abc", "", '^'), "abc"},
        {sc_translate("banana\xff", "an\xff", "bo!"), "bbobob!"},
        {sc_translate("abc", "abc", "c"), "cbc"}, {sc_endsWith("Tool.EXE", ".EXE"), ".EXE"},
        {sc_endsWith("Tool.EXE", ".exe"), nullptr}, {sc_endsWithI("Tool.EXE", ".exe"), ".EXE"},
        {sc_endsWith("exe", ".exe"), nullptr}, {sc_afterPrefix("--tasks=4", "--tasks="), "4"},
        {sc_afterPrefix("--Tasks=4", "--tasks="), nullptr},
        {sc_afterPrefixI("--Tasks=Four", "--tAsks="), "Four"},
        {sc_afterPrefix("--t", "--tasks"), nullptr}, {sc_afterPrefix("same", "same"), ""}};
    // clang-format on
    for (const auto &c : cases) {
        EXPECT_STREQ(c.actual, c.expected);
        EXPECT_EQ(address(c.actual), sc_strdup(c.expected)) << c.expected;
    }
    EXPECT_EQ(sc_hasSuffix("a.b", ".b") + sc_hasSuffixI("a.b", ".B"), 2);
    EXPECT_EQ(sc_hasPrefix("a.b", "A") + sc_hasSuffix("b", "a.b") + sc_hasSuffix(nullptr, ""), 0);
    EXPECT_EQ(sc_hasPrefix("a.b", "a.") + sc_hasPrefixI("a.b", "A."), 2);
}

TEST(StringCache, PartsThatAreMissingLeaveTheOtherUntouched) {
    const char part[] = "not interned";
    EXPECT_EQ(address(sc_concatOpt(nullptr, part)), part);
    EXPECT_EQ(address(sc_concatOpt(part, nullptr)), part);
    EXPECT_STREQ(sc_concatOpt("", part), part);
    EXPECT_EQ(sc_concat(nullptr, part), nullptr);
    for (const char *missing : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(address(sc_pathJoin(missing, part)), part);
        EXPECT_EQ(address(sc_pathJoin(part, missing)), part);
        EXPECT_EQ(address(sc_nativePath(missing)), missing);
    }
}

TEST(StringCache, Between) {
    const struct {
        const char *text;
        char c1, c2;
        const char *between;
        size_t p1, p2;
    } cases[] = {{"a(b)c)", '(', ')', "b", 1, 3}, {")(", '(', ')', nullptr, 1, 0},
                 {"\"x\"", '"', '"', "x", 0, 2},  {"[]", '[', ']', "", 0, 1},
                 {"(", '(', ')', nullptr, 0, 0},  {"abc", '\0', '\0', nullptr, 0, 0},
                 {"ab)", '(', ')', nullptr, 0, 0}};
    for (const auto &c : cases) {
        size_t p1 = 99, p2 = 99;
        EXPECT_STREQ(sc_between(c.text, c.c1, c.c2, &p1, &p2), c.between);
        EXPECT_STREQ(sc_between(c.text, c.c1, c.c2, nullptr, nullptr), c.between);
        EXPECT_EQ(p1, c.p1) << c.text;
        EXPECT_EQ(p2, c.p2) << c.text;
    }
}

TEST(StringCache, SplitDropsEmptyTokens) {
    const struct {
        const char *text, *delimiters;
        std::vector<std::string> tokens;
    } cases[] = {
        {",a,;b;", ",;", {"a", "b"}}, {"", ",", {}}, {",,", ",", {}}, {"a b", "", {"a b"}}};
    for (const auto &c : cases) {
        const VectorPtr split(sc_split(c.text, c.delimiters));
        std::vector<std::string> tokens;
        for (const char *token : VecEach<const char>(split))
            tokens.push_back(token);
        EXPECT_EQ(tokens, c.tokens) << c.text;
    }
}

TEST(StringCache, Paths) {
    const std::string a = host("a\\"), b = host("\\b"), root = host("\\");
    const std::string path = host("d.ir\\x.tar.gz"), bare = host("d.ir\\x");
    // clang-format off
    const struct {
        const char *actual, *expected;
    } cases[] = {
        {sc_pathJoin(a.c_str(), b.c_str()), "a\\b"}, {sc_pathJoin(root.c_str(), "b"), "\\b"},
        {sc_pathJoin("a", root.c_str()), "a\\"}, {sc_addExt("a.b", ".c"), "a.b.c"},
        {sc_addExt("a", "..c"), "a..c"}, {sc_replaceExt(path.c_str(), "xz"), "d.ir\\x.tar.xz"},
        {sc_replaceExt(bare.c_str(), ".o"), "d.o"}, {sc_stripExt(path.c_str()), "d.ir\\x.tar"},
        {sc_stripExt(bare.c_str()), "d.ir\\x"}, {sc_basename(path.c_str()), "x.tar.gz"},
        {sc_dirname(path.c_str()), "d.ir"},
        {sc_dirname(b.c_str()), host_path_style().drives ? "" : "\\"}};
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(c.actual, host(c.expected));
    EXPECT_EQ(sc_dirname("x"), nullptr);
    EXPECT_STREQ(sc_basename("x"), "x");

    const bool letters = (host_kind() & 0x10000) != 0;
    EXPECT_STREQ(sc_nativePath("C:/a\\b/"), letters ? "C:\\a\\b\\" : "C:/a\\b/");
    EXPECT_STREQ(sc_nativePathJoin("a/b/", "/c/d"), letters ? "a\\b\\c\\d" : "a/b/c/d");
}

// --- Lines

// A file with the given bytes, open for reading in binary and removed in the end.
class LineFile {
  public:
    explicit LineFile(const std::string &bytes)
        : path(::testing::TempDir() + "stringcache_test_lines.tmp") {
        FILE *out = fopen(path.c_str(), "wb");
        EXPECT_EQ(fwrite(bytes.data(), 1, bytes.size(), out), bytes.size());
        fclose(out);
        stream = fopen(path.c_str(), "rb");
    }
    ~LineFile() {
        fclose(stream);
        remove(path.c_str());
    }
    FILE *stream;

  private:
    std::string path;
};

static std::string repeated(size_t count, char c, const char *end) {
    return std::string(count, c) + end;
}

TEST(StringCache, ReadsOneWholeLineACall) {
    using namespace std::string_literals;
    const std::vector<std::string> lines = {
        "a\n", "\n", "\r\n", "lone\rreturn\n",
        // Blocks end behind 1023 bytes.
        repeated(1021, 'b', "\n"), repeated(1022, 'c', "\n"), repeated(1023, 'd', "\n"),
        repeated(1021, 'e', "\r\n"), repeated(1022, 'f', "\r\n"), repeated(1022, 'g', "\r+\n"),
        repeated(2045, 'h', "\n"), repeated(2046, 'i', "\n"), repeated(3000, 'j', "\n"), "x\0y\n"s,
        "\0\n"s, "\0\0"s + repeated(1020, 'k', "\n"), repeated(1022, '\0', "\n"),
        repeated(1023, '\0', "\n"), repeated(5000, '\0', "l\n")};
    std::string full(1023, 'm');
    for (const std::string &last : {""s, "end\0"s, full.substr(1), full, full + '\0'}) {
        std::vector<std::string> all = lines;
        if (!last.empty())
            all.push_back(last);
        std::string bytes;
        for (const std::string &line : all)
            bytes += line;
        LineFile file(bytes);
        long position = 0;
        for (const std::string &line : all) {
            ASSERT_EQ(sc_readLineBytes(file.stream), line);
            position += static_cast<long>(line.size());
            ASSERT_EQ(ftell(file.stream), position);
        }
        EXPECT_TRUE(sc_readLineBytes(file.stream).empty());
        rewind(file.stream);
        for (const std::string &line : all)
            ASSERT_EQ(address(sc_readLine(file.stream)), sc_strdup(line.c_str()));
        EXPECT_EQ(sc_readLine(file.stream), nullptr);
    }
    EXPECT_EQ(sc_readLine(nullptr), nullptr);
}

// Copies of every partial line would need terabytes.
TEST(StringCache, ReadsAnEnormousLine) {
    const std::string line = repeated(64'000'000, 'z', "\n");
    LineFile file(line + "next");
    EXPECT_TRUE(sc_readLine(file.stream) == line);
    EXPECT_STREQ(sc_readLine(file.stream), "next");
}
