#include "base/text.h"
#include "digest/sha1.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"
#include "support/files.h"
#include "support/scratch.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

namespace fs = std::filesystem;

static const std::string EMPTY_DIGEST =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
static const std::string ABC_DIGEST =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

// The paths that a walk of the current directory finds, in its order; the digests are checked.
static std::vector<std::string> walked() {
    Vector *entries = vec_new(__FILE__, __LINE__);
    EXPECT_TRUE(shahash_walk(0, entries, ".", "."));
    std::vector<std::string> paths;
    for (auto *entry : VecEach<ManifestEntry>(entries)) {
        EXPECT_TRUE(shahash_verify_file(entry->digest, entry->path)) << entry->path;
        paths.emplace_back(entry->path);
    }
    shahash_free_entries(entries);
    return paths;
}

// --- Digests

TEST(Shahash, HexadecimalText) {
    // No character is rejected.
    const char *text = "0009909fafAFfAgG:?@@ /zZ\xff\xe1"
                       "0123456789012345678901234567890123456789";
    const uint8_t expected[] = {0x00, 0x09, 0x90, 0x9f, 0xaf, 0xaf, 0xfa, 0x00, 0xaf, 0x00, 0x0f,
                                0x33, 0x8a, 0x01, 0x23, 0x45, 0x67, 0x89, 0x01, 0x23, 0x45, 0x67,
                                0x89, 0x01, 0x23, 0x45, 0x67, 0x89, 0x01, 0x23, 0x45, 0x67};
    EXPECT_EQ(memcmp(sha256_from_hex(text).get(), expected, sizeof expected), 0);
    EXPECT_EQ(memcmp(sha1_from_hex(text).get(), expected, SHA1_DIGEST_SIZE), 0);
    EXPECT_STREQ(sha256_hex(expected),
                 "0009909fafaffa00af000f338a01234567890123456789012345678901234567");
    EXPECT_STREQ(sha1_hex(expected), "0009909fafaffa00af000f338a01234567890123");
}

// To a last read of one byte, and over the byte that ends a file in text mode.
TEST(Shahash, DigestsCoverFilesToTheLastByte) {
    const Scratch scratch;
    const std::string file = scratch.write("file", std::string(16385, '\x1a'));
    const std::string digest = "54bb5978b168bd0e3e16f44845552e2fa20bf90bfa3b418ca0cbccb4ca693773";
    EXPECT_EQ(sha256_file_hex(file.c_str()), digest);
    EXPECT_STREQ(sha1_file_hex(file.c_str()), "1503e43e448728caf253e12f994bf85812989911");
    const FilePtr f(host_fopen(file.c_str(), "rb"));
    EXPECT_EQ(sha256_hex(sha256_stream(f.get()).get()), digest);
    EXPECT_EQ(sha256_hex(sha256_stream(f.get()).get()), EMPTY_DIGEST) << "something was left";
    const FilePtr again(host_fopen(file.c_str(), "rb"));
    EXPECT_STREQ(sha1_hex(sha1_stream(again.get()).get()), sha1_file_hex(file.c_str()));
}

TEST(Shahash, FilesThatCannotBeOpenedEndTheProcess) {
    const Scratch scratch;
    const auto one = testing::ExitedWithCode(1);
    EXPECT_EXIT(sha256_file("gone"), one, "^!! Cannot open file \"gone\"\n$");
    EXPECT_EXIT(sha1_file_hex(scratch.directory()), one, "^!! Cannot open file \"");
    EXPECT_EXIT(shahash_verify_file("", scratch.directory()), one, "^!! Cannot open file \"");
    EXPECT_DEATH(shahash_walk(0, nullptr, ".", "."), "files != NULL");
    Vector *entries = vec_new(__FILE__, __LINE__);
    EXPECT_DEATH(shahash_walk(0, entries, nullptr, "."), "dir != NULL");
    vec_free(entries);
}

// --- Writing

namespace {

// A directory of files to be hashed, which is the current one, below the one for everything else.
class ShahashTree : public testing::Test {
  protected:
    std::string add(const std::string &name, const std::string &bytes) const {
        return scratch.write(("tree/" + name).c_str(), bytes);
    }

    static bool write_manifest(const std::string &manifest) {
        return shahash_write_manifest(HOST_DRIVE_PATHS, ".", manifest.c_str());
    }

    void expect_old_manifest() const {
        EXPECT_EQ(read_file("../manifest"), "old");
        EXPECT_EQ(listing("..").size(), 2u) << "something was left behind";
    }

    Scratch scratch;
    Inside inside = Inside(scratch.path("tree"));
    std::string line_end = os_kind() != 0 ? "\r\n" : "\n"; // of text files
    std::string manifest = scratch.write("manifest", "old");
};

} // namespace

TEST_F(ShahashTree, WalkIsDepthFirstInTheOrderOfTheListing) {
    for (const char *directory : {"sub", "sub/deep", "hollow"})
        host_mkdir(directory);
    std::vector<std::string> expected;
    for (std::string name : {"z", "a", ".hidden", "..x", "two words", "100%d", "sub/in", "sub/to",
                             "sub/deep/far", "sub/deep/er", "\xc3\xa4\xe2\x82\xac"}) {
        add(name, name);
        std::replace(name.begin(), name.end(), '/', '\\');
        expected.push_back(".\\" + name);
    }
    std::vector<std::string> paths = walked();
    std::vector<std::string> order; // of the first components
    for (const std::string &path : paths) {
        const std::string first = path.substr(2, path.find('\\', 2) - 2);
        if (order.empty() || order.back() != first)
            order.push_back(first);
    }
    std::vector<std::string> names = listing(".");
    std::erase(names, "hollow");
    EXPECT_EQ(order, names);
    std::sort(paths.begin(), paths.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(paths, expected);
}

TEST_F(ShahashTree, ManifestIsWrittenWhenItIsComplete) {
    EXPECT_TRUE(write_manifest("m"));
    EXPECT_EQ(read_file("m"), "") << "it is not listed where it appears";
    EXPECT_TRUE(write_manifest("m"));
    EXPECT_EQ(read_file("m"), EMPTY_DIGEST + " *.\\m" + line_end) << "and as it was where it stood";
    host_remove("m");

    for (const char *bad : {".", "../manifest/m", "gone/m", ""})
        EXPECT_FALSE(write_manifest(bad)) << bad;
    expect_old_manifest();
    add("a b", "abc");
    EXPECT_TRUE(write_manifest(manifest));
    EXPECT_EQ(read_file(manifest), ABC_DIGEST + " *.\\a b" + line_end);
    EXPECT_EQ(listing("."), (std::vector<std::string>{"a b"}));
    EXPECT_EQ(listing("..").size(), 2u) << "something was left behind";
}

TEST_F(ShahashTree, NamesThatFitNoManifestAreRefused) {
    if (host_path_style().drives)
        GTEST_SKIP() << "this host has no such names";
    host_mkdir("sub");
    add("x", "x"); // which a name that loses its end would lead to
    for (const std::string name : {"sub/a\\b", "a\nb", "a\rb", "sub/\\", "directory\\", "x ", "x\t",
                                   "sub/x\v", "x\f", "\x1b[2J\n"}) {
        if (name == "directory\\")
            host_mkdir(name.c_str());
        else
            add(name, "x");
        testing::internal::CaptureStderr();
        EXPECT_FALSE(write_manifest(manifest)) << name;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "The name of file \"./" + text_of(str_printable(name.c_str())) +
                      "\" cannot be written to a manifest\n");
        expect_old_manifest();
        fs::remove(name);
    }
    host_mkdir("directory \t");
    add("directory \t/ x", "abc");
    EXPECT_EQ(walked().size(), 2u);
}

TEST_F(ShahashTree, LinksAreFollowedButNotInCircles) {
    host_mkdir("sub");
    host_mkdir("sub/deep");
    add("sub/file", "abc");
    if (!make_link(".", "sub/deep/self", true) || !make_link("../..", "sub/deep/top", true) ||
        !make_link("sub", "other", true))
        GTEST_SKIP() << "no links here";
    const std::vector<std::string> paths = walked();
    for (const char *path : {".\\sub\\file", ".\\other\\file"})
        EXPECT_EQ(std::count(paths.begin(), paths.end(), path), 1) << path;
    EXPECT_LE(paths.size(), 4u) << "round and round";
}

// A FIFO would block and an endless device answer for ever.
TEST_F(ShahashTree, WhatIsNoFileIsNotOpened) {
    add("a", "abc");
    for (const std::string target : {"gone", "/dev/zero", "a FIFO"}) {
        if (target == "a FIFO")
            os_pclose(os_popenv("/usr/bin/mkfifo", "odd", nullptr)); // where there is one
        else if (!make_link(target, "odd", false))
            GTEST_SKIP() << "no links here";
        EXPECT_FALSE(shahash_verify_file(EMPTY_DIGEST.c_str(), "odd")) << target;
        EXPECT_FALSE(shahash_check_manifest("odd", nullptr)) << target;
        EXPECT_EQ(shahash_read_manifest("odd", "."), nullptr) << target;
        if (!os_exists("odd") && !host_is_link("odd"))
            continue;
        EXPECT_EXIT(write_manifest(manifest), testing::ExitedWithCode(1), "^!! Cannot open file");
        expect_old_manifest();
        host_remove("odd");
    }
}

// --- Checking

TEST_F(ShahashTree, VerifyComparesDigestsByteForByte) {
    host_mkdir("sub");
    add("sub/a b", "abc");
    for (const char *path : {".\\sub\\a b", "./sub/a b", "sub\\a b"})
        EXPECT_TRUE(shahash_verify_file(ABC_DIGEST.c_str(), path)) << path;
    const char *const none = nullptr;
    for (const char *path : {".\\sub\\a", ".\\sub\\a b\\c", "", none})
        EXPECT_FALSE(shahash_verify_file(ABC_DIGEST.c_str(), path)) << text_of(path);
    std::string upper = ABC_DIGEST, other = ABC_DIGEST;
    upper[0] = 'B';
    other.back() = 'e';
    for (const std::string &digest : {upper, other, ABC_DIGEST + "0", ABC_DIGEST.substr(1),
                                      ABC_DIGEST.substr(0, 63), std::string()})
        EXPECT_FALSE(shahash_verify_file(digest.c_str(), "./sub/a b")) << digest;
}

TEST(Shahash, LinesAreReadAsTheyWereWritten) {
    const std::string digest(64, 'a');
    for (const char *path : {".\\a", ".\\ b", ".\\*c  d*", ".\\\xff\\e.h"}) {
        const std::string line = shahash_format_line({path, digest.c_str()});
        ManifestLine fields;
        EXPECT_TRUE(shahash_line_can_verify(line)) << path;
        ASSERT_TRUE(shahash_parse_line(line, &fields)) << path;
        EXPECT_EQ(fields.digest, digest);
        EXPECT_EQ(fields.path, path);
    }
}

TEST(Shahash, LinesAreTakenApart) {
    std::string longest = "12ab *.\\a\n";
    longest.insert(4, MANIFEST_LINE_LIMIT - longest.size(), ' ');
    const char *const none = "is none";
    // clang-format off
    const struct {
        std::string line, digest, path;
    } cases[] = {
        {"12ab *.\\a b\n", "12ab", ".\\a b"}, {"12ab *.\\a\r\n", "12ab", ".\\a"},
        {"12ab .\\a\n", "12ab", ".\\a"}, {"12ab    *.\\a\n", "12ab", ".\\a"},
        {"12ab \t\v\f*.\\a \t \r\n", "12ab", ".\\a"}, {"12ab **a\n", "12ab", "*a"},
        {" *.\\a\n", "", ".\\a"}, {"12ab *\n", "12ab", ""}, {"12ab \n", "12ab", ""},
        {"12\tab *.\\a\n", "12\tab", ".\\a"}, {longest, "12ab", ".\\a"},
        {longest + "\n", none, none}, {"12ab\t*.\\a\n", none, none}, {"\r\n", none, none},
        {"", none, none}};
    // clang-format on
    for (const auto &c : cases) {
        ManifestLine fields = {none, none};
        EXPECT_EQ(shahash_parse_line(c.line, &fields), c.digest != none) << c.line;
        EXPECT_EQ(fields.digest, c.digest) << c.line;
        EXPECT_EQ(fields.path, c.path) << c.line;
    }
}

// The same manifests, through the reader of records and through the check in one pass.
TEST_F(ShahashTree, WholeManifests) {
    host_mkdir("sub");
    add("sub/a", "abc");
    add("e", "");
    const std::string a = ABC_DIGEST + " *.\\sub\\a", e = EMPTY_DIGEST + " *.\\e";
    const std::string here = text_of(os_dirname(os_getcwd().get()));
    const struct {
        std::string text;
        int records; // -1 for a manifest that cannot be read
        bool passes;
    } cases[] = {{a + "\n" + e + "\n", 2, true},
                 {e + "\r\n" + a + "\r\n" + a, 3, true},
                 {EMPTY_DIGEST + " *./sub/../e\n", 1, true},
                 {EMPTY_DIGEST + " *../tree/e\n", -1, false},
                 {EMPTY_DIGEST + " *" + here + "/tree/e\n", -1, false},
                 {"", 0, false},
                 {a + "\n" + ABC_DIGEST + " *.\\e\n", 2, false},
                 {ABC_DIGEST + " *.\\gone\n" + e, 2, false},
                 {a + e + "\n", 1, false},
                 {a + "\n\n", -1, false},
                 {a + "\n" + ABC_DIGEST, -1, false},
                 {a + "\n" + e + std::string("\0\n", 2), -1, false},
                 {std::string(1, '\0'), -1, false}};
    ASSERT_TRUE(host_chdir(".."));
    for (const auto &c : cases) {
        scratch.write("m", c.text);
        EXPECT_EQ(shahash_check_manifest("m", "tree"), c.passes) << c.text;
        EXPECT_EQ(text_of(os_getcwd()), here) << c.text;

        Vector *entries = shahash_read_manifest("m", "tree");
        EXPECT_EQ(entries != nullptr ? static_cast<int>(vec_size(entries)) : -1, c.records)
            << c.text;
        if (entries == nullptr)
            continue;
        EXPECT_EQ(shahash_check_entries(entries), c.passes || c.records == 0) << c.text;
        shahash_free_entries(entries);
    }
    scratch.write("m", a + "\n");
    EXPECT_FALSE(shahash_check_manifest("m", nullptr));
    EXPECT_FALSE(shahash_check_manifest("m", "gone"));
    EXPECT_FALSE(shahash_check_manifest("gone", "tree"));
    EXPECT_EQ(text_of(os_getcwd()), here);
    EXPECT_EQ(shahash_read_manifest("gone", "tree"), nullptr);
    ASSERT_TRUE(host_chdir("tree"));
    EXPECT_TRUE(shahash_check_manifest("../m", nullptr));
}

TEST_F(ShahashTree, RecordsAreAllChecked) {
    const std::string file = add("a", "abc");
    const char *good = ABC_DIGEST.c_str(), *bad = EMPTY_DIGEST.c_str();
    ManifestEntry entries[] = {{file.c_str(), good}, {nullptr, good},     {"", good},
                               {"gone", good},       {file.c_str(), bad}, {file.c_str(), nullptr}};
    for (ManifestEntry &entry : entries) {
        const VectorPtr three(vec_new(__FILE__, __LINE__));
        for (ManifestEntry *record : {entries, &entry, entries})
            vec_append(three.get(), record);
        EXPECT_EQ(shahash_check_entries(three.get()), &entry == entries) << &entry - entries;
    }
}
