#include "containers/stringcache.h"

#include "support/files.h"
#include "support/noise.h"
#include "support/scratch.h"
#include "support/words.h"

#include <climits>
#include <cwchar>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

static const std::string NONE = "(null)";

static const void *address(const char *text) {
    return text;
}

static bool has(const std::string &set, char c) {
    return set.find(c) != set.npos;
}

// What `change` makes of the characters, one after the other.
template <class Change> static std::string each(const std::string &text, Change change) {
    std::string all;
    for (const char c : text)
        all += change(c);
    return all;
}

static std::string lower(const std::string &text) {
    return each(text, [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
}

static std::string stripped(const std::string &text, const std::string &set) {
    const size_t begin = std::min(text.find_first_not_of(set), text.size());
    return text.substr(begin, text.find_last_not_of(set) + 1 - begin);
}

// Null, or the one pointer for an equal text, now and later.
static void expect_interned(const char *actual, const std::string &expected) {
    static std::map<std::string, const char *> known = {{NONE, nullptr}};
    ASSERT_EQ(text_of(actual), expected);
    ASSERT_EQ(address(actual), known.try_emplace(expected, actual).first->second) << expected;
}

// --- Interning

TEST(StringCache, SizeZeroSwitchesInterningOff) {
    const char *before = sc_strdup("off and on");
    sc_setTableSize(0);
    const OwnedString one(const_cast<char *>(sc_format("off and %s", "on")));
    const OwnedString other(const_cast<char *>(sc_strdup("off and on")));
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
    static char first[] = "first";
    EXPECT_EQ(address(sc_adopt(first)), first); // counts too
    for (const char *text : {"second", "third"})
        EXPECT_EQ(address(sc_strdup(text)), sc_strdup(text)) << text;
    EXPECT_EQ(address(sc_strdup("first")), first);
    EXPECT_NE(address(sc_strdup("fourth")), sc_strdup("fourth"));
    char mine[] = "fifth";
    EXPECT_EQ(address(sc_adopt(mine)), mine);
    EXPECT_NE(address(sc_strdup("fifth")), mine);
    EXPECT_EQ(address(sc_strdup("before the limit")), old);
    exit(::testing::Test::HasFailure() ? 1 : 0);
}

TEST(StringCache, OneMoreThanTheLimitIsTakenIn) {
    EXPECT_EXIT(exhaust_limit(), ::testing::ExitedWithCode(0), "");
}

// --- Builders

// What the builders make of a text `s` with shorter texts `t` and `u`, in the standard library's
// words. `c` and `d` are their first characters, or NUL.
static void expect_builders(const std::string &s, const std::string &t, const std::string &u) {
    const char *a = s.c_str(), *b = t.c_str();
    const char d = *u.c_str();
    std::string mine = s;
    expect_interned(sc_strdup(a), s);
    expect_interned(sc_adopt(mine.data()), s);
    expect_interned(sc_concat(a, b), s + t);
    expect_interned(sc_concatOpt(a, b), s + t);
    expect_interned(sc_ncopy(a, u.size()), s.substr(0, u.size()));
    expect_interned(sc_format("%s|%zu", a, t.size()), s + "|" + std::to_string(t.size()));
    expect_interned(sc_formatExpand("\t%s", a), "    " + each(s, [](char x) {
                                                    return x == '\t' ? "    " : std::string(1, x);
                                                }));

    const VectorPtr chars(vec_new(__FILE__, __LINE__));
    for (const char x : s)
        vec_append(chars.get(), reinterpret_cast<void *>(static_cast<intptr_t>(x)));
    expect_interned(sc_fromChars(chars.get()), s);
    expect_interned(sc_lower(a), lower(s));
    EXPECT_EQ(lower(sc_upper(a)), lower(s));
    EXPECT_EQ(s.find_first_of("abz") != s.npos, sc_upper(a) != s);
    expect_interned(sc_translate(a, b, u.c_str()), each(s, [&](char x) {
                        const size_t at = t.substr(0, u.size()).rfind(x);
                        return at != t.npos ? u[at] : x;
                    }));
    expect_interned(sc_escape(a, b, d), each(s, [&](char x) {
                        const char escape[] = {d != '\0' ? d : '\\', '\0'};
                        return (has(t, x) ? escape : "") + std::string(1, x);
                    }));
    expect_interned(sc_quote(a, d), d != '\0' ? d + s + d : s);

    expect_interned(sc_trim(a), stripped(s, " \t\r\n\v\f"));
    expect_interned(sc_trimChars(a, b), stripped(s, t));
    expect_interned(sc_chomp(a), s.substr(0, s.find_last_not_of("\r\n") + 1));
    expect_interned(sc_firstLine(a), s.substr(0, s.find_first_of("\r\n")));
}

// The same for those that look for what is in the text.
static void expect_parts(const std::string &s, const std::string &t, const std::string &u) {
    const char *a = s.c_str(), *b = t.c_str();
    const char c = *b, d = *u.c_str();
    const bool tail = s.ends_with(t), start = s.starts_with(t);
    const bool tail_i = lower(s).ends_with(lower(t)), start_i = lower(s).starts_with(lower(t));
    const std::string last = s.substr(s.size() - std::min(s.size(), t.size()));
    const std::string rest = s.substr(std::min(s.size(), t.size()));
    expect_interned(sc_endsWith(a, b), tail ? last : NONE);
    expect_interned(sc_endsWithI(a, b), tail_i ? last : NONE);
    expect_interned(sc_afterPrefix(a, b), start ? rest : NONE);
    expect_interned(sc_afterPrefixI(a, b), start_i ? rest : NONE);
    EXPECT_EQ(sc_hasSuffix(a, b) * 8 + sc_hasSuffixI(a, b) * 4 + sc_hasPrefix(a, b) * 2 +
                  sc_hasPrefixI(a, b),
              tail * 8 + tail_i * 4 + start * 2 + start_i);

    const std::string ext = t.starts_with('.') ? t.substr(1) : t;
    const size_t dot = s.rfind('.');
    const bool in_name = dot != s.npos && s.find(host_path_style().separator, dot) == s.npos;
    expect_interned(sc_addExt(a, b), s + "." + ext);
    expect_interned(sc_replaceExt(a, b), s.substr(0, dot) + "." + ext);
    expect_interned(sc_stripExt(a), in_name ? s.substr(0, dot) : s);

    size_t p1 = 99, p2 = 99;
    const size_t first = s.find(c), second = first != s.npos ? s.find(d, first + 1) : s.npos;
    expect_interned(sc_between(a, c, d, &p1, &p2),
                    second != s.npos ? s.substr(first + 1, second - first - 1) : NONE);
    EXPECT_EQ(p1, first != s.npos ? first : 0);
    EXPECT_EQ(p2, second != s.npos ? second : 0);
    std::vector<std::string> pieces = {""};
    for (const char x : s)
        if (!has(t, x))
            pieces.back() += x;
        else
            pieces.push_back("");
    std::erase(pieces, "");
    EXPECT_EQ(words_of(VectorPtr(sc_split(a, b))), pieces);
}

TEST(StringCache, BuildsWhatTheStandardLibraryDoes) {
    Random random(1);
    const std::string alphabet = "aAbBzZ-. \t\n\r\v\f/\\\xe9";
    for (int i = 0; i < 3000 && !HasFailure(); i++) {
        const std::string s = noise_of(random, alphabet, 9);
        SCOPED_TRACE(testing::PrintToString(s));
        const std::string t = noise_of(random, alphabet, 2), u = noise_of(random, alphabet, 2);
        expect_builders(s, t, u);
        expect_parts(s, t, u);
    }
}

TEST(StringCache, FormatsTextOfAnyLength) {
    for (const int length : {0, 4089, 4090, 4091, 8187, 8188, 1'000'000}) {
        const std::string expected = std::string(static_cast<size_t>(length), ' ') + "|x|-7";
        EXPECT_EQ(sc_format("%*s|%s|%d", length, "", "x", -7), expected) << length;
    }
}

TEST(StringCache, FormatThatCannotBeMadeAborts) {
    if (host_kind() != 0)
        GTEST_SKIP() << "this host's printf makes something of any character";
    EXPECT_DEATH(sc_format("%lc", static_cast<wint_t>(0xd800)),
                 "vsnprintf failed in a mysterious way");
}

TEST(StringCache, NullGivesNull) {
    for (auto *of_one : {sc_strdup, sc_expandTabs, sc_lower, sc_upper, sc_trim, sc_chomp,
                         sc_firstLine, sc_stripExt, sc_basename, sc_dirname})
        EXPECT_EQ(of_one(nullptr), nullptr);
    for (auto *of_two : {sc_concat, sc_trimChars, sc_addExt, sc_replaceExt, sc_endsWith,
                         sc_endsWithI, sc_afterPrefix, sc_afterPrefixI})
        EXPECT_TRUE(of_two(nullptr, "a") == nullptr && of_two("a", nullptr) == nullptr);
    const char *const none = nullptr;
    const char *(*unchecked)(const char *, ...) = sc_formatExpand;
    EXPECT_TRUE(sc_translate(none, "a", "b") == none && sc_translate("a", none, "b") == none);
    EXPECT_TRUE(sc_translate("a", "a", none) == none && unchecked(none) == none);
    EXPECT_TRUE(sc_escape(none, "a", 'b') == none && sc_escape("a", none, 'b') == none);
    EXPECT_TRUE(sc_quote(none, '"') == none && sc_ncopy(none, 1) == none);
    EXPECT_TRUE(sc_split(none, "a") == nullptr && sc_split("a", none) == nullptr);
    EXPECT_TRUE(sc_adopt(nullptr) == none && sc_fromChars(nullptr) == none);
    EXPECT_TRUE(sc_readLine(nullptr) == none && sc_between(none, 1, 2, nullptr, nullptr) == none);
}

TEST(StringCache, PartsThatAreMissingLeaveTheOtherUntouched) {
    const char part[] = "not interned";
    EXPECT_EQ(address(sc_concatOpt(nullptr, part)), part);
    EXPECT_EQ(address(sc_concatOpt(part, nullptr)), part);
    EXPECT_STREQ(sc_concatOpt("", part), part);
    for (const char *missing : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(address(sc_pathJoin(missing, part)), part);
        EXPECT_EQ(address(sc_pathJoin(part, missing)), part);
        EXPECT_EQ(address(sc_nativePath(missing)), missing);
    }
    const bool letters = (host_kind() & HOST_DRIVE_PATHS) != 0;
    const char drive[] = "C:/not interned", digit[] = "1:/not interned";
    EXPECT_EQ(address(sc_nativePath(drive)) == drive, !letters);
    EXPECT_NE(address(sc_nativePath(digit)), digit);
}

TEST(StringCache, Paths) {
    const std::string path = native("d.ir/x.tar.gz");
    const struct {
        const char *actual, *expected;
    } cases[] = {
        {sc_pathJoin(native("a/").c_str(), native("/b").c_str()), "a/b"},
        {sc_pathJoin(native("/").c_str(), "b"), "/b"},
        {sc_pathJoin("a", native("/").c_str()), "a/"},
        {sc_basename(path.c_str()), "x.tar.gz"},
        {sc_basename("x"), "x"},
        {sc_dirname(path.c_str()), "d.ir"},
        {sc_dirname(native("/b").c_str()), host_path_style().drives ? "" : "/"},
        {sc_dirname("x"), nullptr},
    };
    for (const auto &c : cases)
        expect_interned(c.actual, native(text_of(c.expected)));

    const bool letters = (host_kind() & HOST_DRIVE_PATHS) != 0;
    EXPECT_STREQ(sc_nativePath("C:/a\\b/"), letters ? "C:\\a\\b\\" : "C:/a\\b/");
    EXPECT_STREQ(sc_nativePathJoin("a/b/", "/c/d"), letters ? "a\\b\\c\\d" : "a/b/c/d");
}

// --- Lines

// Of lengths around those of the blocks that lines are read in.
TEST(StringCache, ReadsOneWholeLineACall) {
    Random random(1);
    const Scratch scratch;
    const std::string characters("x\r\0", 3);
    for (int round = 0; round < 50; round++) {
        std::vector<std::string> lines(20);
        for (std::string &line : lines) {
            const size_t length = 1020 * below(random, 4) + below(random, 8);
            line = std::string(length, characters[below(random, 3)]);
            line += noise_of(random, characters, 4) + "\n";
        }
        lines.back().back() = characters[below(random, 3)];
        std::string bytes;
        for (const std::string &line : lines)
            bytes += line;
        FILE *file = host_fopen(scratch.write("lines", bytes).c_str(), "rb");
        long position = 0;
        for (const std::string &line : lines) {
            ASSERT_EQ(sc_readLineBytes(file), line);
            ASSERT_EQ(ftell(file), position += static_cast<long>(line.size()));
        }
        EXPECT_TRUE(sc_readLineBytes(file).empty());
        rewind(file);
        for (const std::string &line : lines)
            ASSERT_EQ(address(sc_readLine(file)), sc_strdup(line.c_str()));
        EXPECT_EQ(sc_readLine(file), nullptr);
        fclose(file);
    }
    const FilePtr file(host_fopen(scratch.write("long", std::string(3000, 'x')).c_str(), "rb"));
    EXPECT_EQ(sc_readLineBytes(file.get(), 1023).size(), 2046u); // longer than 1023
}

// Copies of every partial line would need terabytes.
TEST(StringCache, ReadsAnEnormousLine) {
    const std::string line = std::string(64'000'000, 'z') + "\n";
    const Scratch scratch;
    FILE *file = host_fopen(scratch.write("line", line + "next").c_str(), "rb");
    EXPECT_TRUE(sc_readLine(file) == line);
    EXPECT_STREQ(sc_readLine(file), "next");
    fclose(file);
}
