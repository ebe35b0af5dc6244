#include "platform/osdep.h"
#include "support/files.h"
#include "support/noise.h"
#include "support/scratch.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

namespace fs = std::filesystem;

static std::string deep(int levels) {
    std::string path = "d";
    for (int i = 1; i < levels; i++)
        path += host_path_style().separator + std::string("d");
    return path;
}

TEST(OsFiles, MakingDirectories) {
    const Scratch scratch;
    const std::string file = scratch.write("file", "x");
    EXPECT_EQ(os_mkdir(nullptr), -1);
    EXPECT_EQ(os_mkdir(""), 1);
    EXPECT_EQ(os_mkdir(scratch.path(deep(5).c_str()).c_str()), 0);
    EXPECT_TRUE(os_is_dir(scratch.path(deep(5).c_str()).c_str()));
    EXPECT_EQ(os_mkdir(native_join(scratch.path("new").c_str(), "").c_str()), 0);
    EXPECT_EQ(os_mkdir(scratch.directory()), 0);
    EXPECT_NE(os_mkdir_parents(scratch.directory()), 0) << "it is there already";
    EXPECT_EQ(os_mkdir(file.c_str()), 1);
    EXPECT_EQ(os_mkdir(os_join(file.c_str(), "below").get()), 1);
    EXPECT_EQ(os_mkdir(os_join(file.c_str(), deep(3).c_str()).get()), 1);
    EXPECT_EQ(os_mkdir(host_path_style().drives ? "Q:" : "/"), 0);
}

TEST(OsFiles, RemovingTreesLeavesTheTargetsOfLinks) {
    const Scratch scratch;
    const std::string top = scratch.path("top"), precious = scratch.path("precious");
    ASSERT_EQ(os_mkdir(os_join(top.c_str(), deep(40).c_str()).get()), 0);
    ASSERT_EQ(os_mkdir(precious.c_str()), 0);
    const std::string file = scratch.write(native("precious/file").c_str(), "x");
    scratch.write(native("top/file").c_str(), "x");
    scratch.write(native_join("top", (deep(40) + ".txt").c_str()).c_str(), "x");
    const std::string direct = scratch.path("direct");
    const bool linked = make_link(precious, scratch.path(native("top/link").c_str()), true) &&
                        make_link(precious, direct, true);
    make_link(scratch.path("gone"), scratch.path(native("top/dangling").c_str()), false);
    EXPECT_EQ(os_rmtree(top.c_str()), 0);
    EXPECT_FALSE(os_exists(top.c_str()));
    EXPECT_EQ(os_rmtree(top.c_str()), -1) << "it is gone";
    EXPECT_EQ(os_rmtree(direct.c_str()), linked ? 0 : -1);
    EXPECT_FALSE(host_is_link(direct.c_str()));
    EXPECT_EQ(os_rmtree(file.c_str()), -1);
    EXPECT_TRUE(os_exists(file.c_str()));
}

TEST(OsFiles, ListingHasEveryNameOnce) {
    const Scratch scratch;
    std::string longest; // 255 bytes
    for (int i = 0; i < 85; i++)
        longest += "\xe2\x82\xac";
    std::vector<std::string> names = {".hidden", "a b", "\xc3\xa4", longest};
    for (const std::string &name : names)
        EXPECT_EQ(read_file(scratch.write(name.c_str(), name)), name);
    host_mkdir(scratch.path(names.emplace_back("directory").c_str()).c_str());
    std::vector<DirectoryEntry> entries;
    EXPECT_EQ(host_list_directory(scratch.directory(), &entries), Listing::complete);
    std::vector<std::string> listed;
    for (const auto &[name, reachable, is_regular] : entries) {
        EXPECT_TRUE(reachable) << name;
        EXPECT_EQ(is_regular, name != "directory") << name; // where file systems say so
        listed.push_back(name);
    }
    std::sort(listed.begin(), listed.end());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(listed, names);

    for (const char *name : {"gone", "a b"})
        EXPECT_EQ(host_list_directory(scratch.path(name).c_str(), &entries), Listing::unopened);
    EXPECT_EQ(entries.size(), names.size());
}

TEST(OsFiles, PathsBeyond260Characters) {
    const Scratch scratch;
    const std::string directory = scratch.path(deep(150).c_str());
    ASSERT_EQ(os_mkdir(directory.c_str()), 0);
    const std::string file =
        scratch.write(native_join(deep(150).c_str(), "file").c_str(), "far down");
    EXPECT_EQ(read_file(file), "far down");
    EXPECT_EQ(os_filesize(file.c_str()), 8u);
    EXPECT_EQ(listing(directory.c_str()), (std::vector<std::string>{"file"}));
    EXPECT_TRUE(os_name_case_matches(file.c_str()));
}

TEST(OsFiles, SizesBeyond4GiB) {
    const Scratch scratch;
    const std::string file = scratch.path("sparse");
    const int64_t offset = (int64_t{5} << 30) + 6;
    std::error_code failure;
    scratch.write("sparse", "");
    fs::resize_file(file, static_cast<uintmax_t>(offset) + 1, failure);
    ASSERT_FALSE(failure) << failure.message();
    HostStat status;
    ASSERT_TRUE(host_stat(file.c_str(), &status));
    EXPECT_EQ(status.size, static_cast<uint64_t>(offset) + 1);
    EXPECT_EQ(os_filesize(file.c_str()), (1u << 30) + 7);
    FILE *f = host_fopen_regular(file.c_str());
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(host_seek(f, offset));
    EXPECT_EQ(getc(f), 0);
    EXPECT_EQ(getc(f), EOF);
    fclose(f);
    host_remove(file.c_str());
}

TEST(OsFiles, OnlyRegularFilesAreOpenedForReading) {
    const Scratch scratch;
    const char *device = os_kind() != 0 ? "NUL" : "/dev/null";
    HostStat status;
    ASSERT_TRUE(host_stat(device, &status));
    EXPECT_EQ(status.kind, FileKind::other);
    EXPECT_EQ(host_fopen_regular(device), nullptr);
    EXPECT_EQ(host_fopen_regular(scratch.directory()), nullptr);
    EXPECT_EQ(host_fopen(scratch.directory(), "r"), nullptr);
    EXPECT_EQ(host_fopen_regular(scratch.path("gone").c_str()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(os_filesize(nullptr), 0u);
    EXPECT_EQ(os_filesize(scratch.path("gone").c_str()), 0u);
}

TEST(OsFiles, StatesDifferWhenAFileHasChanged) {
    const Scratch scratch;
    const std::string file = scratch.write("file", "old"), other = scratch.write("other", "old");
    FileState before, opened, after;
    ASSERT_TRUE(host_file_state(file.c_str(), &before));
    EXPECT_TRUE(
        host_opened_state(host_fileno(FilePtr(host_fopen(file.c_str(), "r")).get()), &opened));
    EXPECT_EQ(opened, before);
    const auto changed = [&] { return host_file_state(file.c_str(), &after) && after != before; };
    EXPECT_FALSE(changed());
    EXPECT_TRUE(host_replace(other.c_str(), file.c_str()) && changed()) << "replaced";
    before = after;
    scratch.write("file", "longer");
    EXPECT_TRUE(changed()) << "longer";
    before = after;
    for (int tries = 0; tries < 1000000 && !changed(); tries++) // until the clock has gone on
        scratch.write("file", "shorte");
    EXPECT_TRUE(changed()) << "written";
    host_remove(file.c_str());
    EXPECT_FALSE(host_file_state(file.c_str(), &after));
}

// The first number that is one, else the place. What is unknown is like nothing.
TEST(OsFiles, IdentitiesAreWhatTheSystemCanTell) {
    const FileNumber none = {7, 0, 0}, all = {7, UINT64_MAX, UINT64_MAX}, half = {7, 0, UINT64_MAX};
    const FileNumber wide = {1, 2, 0}, narrow = {3, 0, 4};
    const struct {
        FileNumber wide, narrow;
        const char *place;
        FileIdentity identity;
    } cases[] = {
        {wide, narrow, "p", {true, 1, 2, 0, ""}}, {none, narrow, "p", {true, 3, 0, 4, ""}},
        {half, narrow, "", {true, 3, 0, 4, ""}},  {all, half, "p", {true, 0, 0, 0, "p"}},
        {none, none, "q", {true, 0, 0, 0, "q"}},
    };
    for (const auto &c : cases)
        for (const auto &d : cases)
            EXPECT_EQ(identity_of(c.wide, c.narrow, c.place) == d.identity,
                      &c == &d || c.identity == d.identity);
    const FileIdentity unknown = identity_of(none, half, "");
    EXPECT_FALSE(unknown == unknown);
}

// --- Copying

TEST(OsCopyFile, MakesOrReplacesTheDestination) {
    const Scratch scratch;
    // More than a buffer, with bytes that text mode would change.
    const std::string bytes = noise(70000, 1) + "\r\n\x1a\n";
    const std::string from = scratch.write("from", bytes);
    const std::string empty = scratch.write("empty", "");
    ASSERT_EQ(os_mkdir(scratch.path("dir").c_str()), 0);
    const std::string to = scratch.path(native("dir/to").c_str());
    const auto next_descriptor = [] { // but one
        const int first = host_dup(1), next = host_dup(1);
        host_close(first);
        host_close(next);
        return next;
    };
    const int next = next_descriptor();
    for (const std::string &source : {from, empty, from}) {
        EXPECT_TRUE(copyfile_helper(source.c_str(), to.c_str()));
        EXPECT_EQ(read_file(to), read_file(source));
    }
    const char *device = os_kind() != 0 ? "NUL" : "/dev/null";
    EXPECT_TRUE(copyfile_helper(from.c_str(), device));
    EXPECT_TRUE(os_can_write(scratch.path(native("dir/new").c_str()).c_str()));
    EXPECT_EQ(host_fopen_regular(device), nullptr) << "it was replaced";
    EXPECT_TRUE(copyfile_helper(from.c_str(), from.c_str()));
    EXPECT_EQ(read_file(from), bytes);
    EXPECT_EQ(next_descriptor(), next) << "a descriptor stayed open";
    EXPECT_EQ(listing(scratch.path("dir").c_str()).size(), 1u) << "something was left behind";
}

TEST(OsCopyFile, FailureLeavesTheDestination) {
    const Scratch scratch;
    const std::string from = scratch.write("from", "new");
    const std::string to = scratch.write("to", "old");
    const std::string directory = scratch.directory();
    // A file that opens, and whose first page cannot be read.
    const std::string unreadable = os_kind() != 0 ? directory : "/proc/self/mem";
    const struct {
        std::string from, to;
    } cases[] = {{unreadable, to},
                 {scratch.path("gone"), to},
                 {directory, to},
                 {from, directory},
                 {from, native_join(to.c_str(), "below")},
                 {from, scratch.path(deep(2).c_str())},
                 {from, ""}};
    for (const auto &c : cases)
        EXPECT_FALSE(copyfile_helper(c.from.c_str(), c.to.c_str())) << c.from << " " << c.to;
    EXPECT_EQ(read_file(to), "old");
    EXPECT_EQ(listing(scratch.directory()).size(), 2u) << "something was left behind";
}

TEST(OsCopyFile, WritesWhereLinksLead) {
    const Scratch scratch;
    const std::string from = scratch.write("from", "new"), far = scratch.path("far");
    const Inside inside(scratch.directory());
    scratch.write("there", "old");
    for (const std::string target : {"there", "not yet there", far.c_str()}) {
        const std::string link = scratch.path("link");
        if (!make_link(target, link, false))
            GTEST_SKIP() << "no links here";
        EXPECT_TRUE(copyfile_helper(from.c_str(), link.c_str()));
        EXPECT_EQ(read_file(target), "new");
        EXPECT_TRUE(host_is_link(link.c_str()));
        host_remove(link.c_str());
    }
}
