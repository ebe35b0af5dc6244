#include "debuglog/package.h"

#include "containers/stringcache.h"
#include "debuglog/zvdebug.h"
#include "support/files.h"
#include "support/scratch.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <miniz.h>

static std::string warnings;

// What an archive holds: "name=bytes[comment];" for each entry.
static std::string entries(const char *path) {
    mz_zip_archive zip = {};
    if (!mz_zip_reader_init_file(&zip, path, 0))
        return "(no archive)";
    std::string text;
    for (mz_uint i = 0; i < mz_zip_reader_get_num_files(&zip); i++) {
        mz_zip_archive_file_stat stat;
        mz_zip_reader_file_stat(&zip, i, &stat);
        size_t size = 0;
        auto *bytes = static_cast<char *>(mz_zip_reader_extract_to_heap(&zip, i, &size, 0));
        text += stat.m_filename;
        text += bytes != nullptr ? '=' + std::string(bytes, size) : "(damaged)";
        text += '[' + std::string(stat.m_comment, stat.m_comment_size) + "];";
        mz_free(bytes);
    }
    mz_zip_reader_end(&zip);
    return text;
}

namespace {

// Each test has a current directory of its own, and the package "d/p" in it.
class Package : public testing::Test {
  protected:
    Package() {
        zvdebug_warn_hook = [](const char *text) { warnings += std::string(text) + '\n'; };
        zvdebug_parse("--zvdebug=zip:+d/p"); // only the first one in the process counts
        host_mkdir("d");
        scratch.write("a", "A");
    }
    ~Package() override { zvdebug_warn_hook = usual_hook; }

    // What adding a file warns of.
    static std::string add(const char *file) {
        warnings.clear();
        package_add_file(file);
        return warnings;
    }

    const Scratch scratch;

  private:
    const Inside inside{scratch.directory()};
    void (*const usual_hook)(const char *text) = zvdebug_warn_hook;
};

} // namespace

TEST_F(Package, EntriesHaveNamesBytesAndComments) {
    const std::string bytes("\0\r\n\x1a\n\xff", 6);
    const std::string relative = native_join("d", "\xc3\xa4");
    const std::string absolute = scratch.write(relative.c_str(), bytes);
    std::string stored = "SYSTEM_ROOT" + absolute.substr(os_kind() != 0 ? strlen("C:") : 0);
    std::replace(stored.begin(), stored.end(), '\\', '/');

    EXPECT_EQ(add("missing"), "");
    EXPECT_FALSE(os_exists("d/p"));
    package_add("a", "why");
    package_add_file(relative.c_str());
    package_add(absolute.c_str(), "");
    EXPECT_EQ(entries("d/p"),
              "a=A[why];d/\xc3\xa4=" + bytes + "[];" + stored + "=" + bytes + "[];");
    EXPECT_EQ(warnings, "");
}

static const std::string UNOPENED =
    "Unable to open package zip file (d/p) for reading to append \"a\"\n";

// Existing files do not change, and no broken archive is left.
TEST_F(Package, WhatCannotBePackedIsWarnedOf) {
    EXPECT_EQ(add("d"), "Unable to add archive \"d\" (from \"d\") to package zip (d/p)\n");
    EXPECT_FALSE(os_exists("d/p"));
    EXPECT_EQ(add("a"), "");
    const std::string sound = read_file("d/p");
    EXPECT_EQ(add("d"), "Unable to add archive \"d\" (from \"d\") to package zip (d/p)\n");
    EXPECT_FALSE(host_rename_new("a", "d/p"));
    EXPECT_EQ(read_file("d/p"), sound);
    std::filesystem::permissions("d/p", std::filesystem::perms::owner_read);
    if (!os_is_writable("d/p")) { // which it is for the superuser
        EXPECT_EQ(add("a"), "Unable to covert package zip file (d/p) reader to a writer to "
                            "append \"a\"\n"
                            "Unable to add archive \"a\" (from \"a\") to package zip (d/p)\n"
                            "Unable to finalize package zip (d/p) after adding \"a\"\n"
                            "Unable to end package zip (d/p) after adding \"a\"\n");
        EXPECT_EQ(read_file("d/p"), sound);
    }
    std::filesystem::permissions("d/p", std::filesystem::perms::all);
    const std::string end_of_none = "PK\5\6" + std::string(18, '\0');
    const std::string start = sound.substr(0, sound.size() - 2); // without the comment's length
    for (const std::string &bytes :
         {std::string(), sound.substr(0, sound.size() - 1), sound.substr(1),
          std::string(100000, 'n'), std::string(14000, 'n') + end_of_none,
          start + std::string("\26\0", 2) + end_of_none}) {
        scratch.write("d/p", bytes);
        EXPECT_EQ(add("a"), UNOPENED);
        EXPECT_EQ(read_file("d/p"), bytes);
    }
    const std::string comment = std::string("\xd0\7", 2) + std::string(2000, 'c');
    scratch.write("d/p", start + comment);
    EXPECT_EQ(add("a"), "");
    EXPECT_EQ(entries("d/p"), "a=A[];a=A[];");
    EXPECT_TRUE(read_file("d/p").ends_with(comment));
    for (const auto &entry :
         std::filesystem::directory_iterator(os_dirname(os_tempname_plain().get()).get()))
        EXPECT_NE(entry.path().extension(), ".zip");
}

// Among them a device that can be read for ever, on the host that has it.
TEST_F(Package, WhatIsNoFileIsNoPackage) {
    std::error_code no_links;
    std::filesystem::create_symlink("/dev/full", "d/p", no_links);
    EXPECT_EQ(add("a"), no_links ? "" : UNOPENED);
    host_remove("d/p");
    host_mkdir("d/p");
    EXPECT_EQ(add("a"), UNOPENED);
    host_rmdir("d/p");
    host_rmdir("d");
    EXPECT_EQ(add("a"), "Unable to init package zip file (d/p) to add \"a\"\n");
}

TEST_F(Package, LogsArePackedAndChangeNoVerdict) {
    const std::string kestrel = built_program("kestrel");
    const auto run = [&kestrel](const char *mode, const char *option, int expected_status) {
        FILE *f = os_popenv(kestrel.c_str(), mode, "--manifest=m", "--instdir=d", "--tasks=1",
                            option, nullptr);
        std::string output = f != nullptr ? read_all(f) : "(not run)";
        EXPECT_EQ(os_pclose(f), expected_status) << output;
        return output;
    };
    scratch.write("d/1", "text");
    run("-g", "--zvdebug=on,zip:+p", 0);
    EXPECT_EQ(entries("p").rfind("kestrel-1.out=", 0), 0u);

    // A log that was named may be another program's; the accounts come when it has been packed.
    run("-g", "--zvdebug=on,adt,out:x,zip:+q", 0);
    EXPECT_EQ(entries("q"), "(no archive)");
    const std::string log = read_file("x");
    const size_t vectors = log.find("# Living Vector Master List:");
    EXPECT_NE(vectors, log.npos);
    for (const char *temporaries : {"osdep_temp.cpp:186 ", "osdep_temp.cpp:189 "})
        EXPECT_NE(log.find(temporaries, vectors), log.npos) << temporaries;

    scratch.write("p", "no archive");
    run("-c", "--zvdebug=on,zip:+p", 0);
    scratch.write("d/1", "tex");
    EXPECT_NE(run("-c", "--zvdebug=on,zip:+p", 1).find("ZVDEBUG (warning): Unable to open package"),
              std::string::npos);
    EXPECT_EQ(read_file("p"), "no archive");
}

// The helper packs "go" 8 times, and logs 40 lines of 70000 bytes, when the lock of "go" is free.
static ProcessHandle start_logging(const std::string &option) {
    const std::string program = child_program();
    const char *argv[] = {program.c_str(), "--log", option.c_str(), nullptr};
    return host_start_process(argv[0], argv, ("child --log " + option).c_str());
}

TEST_F(Package, ProcessesShareALogAndAPackage) {
    constexpr int64_t ALL = 40 * 70001;
    std::array<ProcessHandle, 4> handles;
    const HostLock lock = host_lock(scratch.write("go", std::string(500000, 'g')).c_str());
    for (ProcessHandle &handle : handles)
        handle = start_logging("on,out:+log,zip:+p");
    host_unlock(lock);
    int status = -1;
    for (const ProcessHandle handle : handles)
        EXPECT_TRUE(host_wait_process(handle, &status) && status == 0);
    std::string log = read_file("log"), packed = entries("p");
    std::erase(log, '\r');
    EXPECT_EQ(log.size(), ALL * handles.size());
    for (size_t at = 70000; at < log.size(); at += 70001)
        EXPECT_EQ(log.find('\n', at - 70000), at);
    EXPECT_EQ(std::count(packed.begin(), packed.end(), ';'), 4 * 8);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 5); // with a and d

    // Into a pipe, on the host that has names for them: nobody reads, and then we do.
    if (os_kind() != 0 || os_pclose(os_popenv("/usr/bin/mkfifo", "f", nullptr)) != 0)
        return;
    EXPECT_TRUE(host_wait_process(start_logging("on,out:f"), &status) && status == 1);
    const int pipe = host_open("f");
    const ProcessHandle writer = start_logging("on,out:f");
    int64_t size = 0;
    bool ended = false;
    while (size < ALL && !ended) {
        ended = host_wait_process(writer, &status, 1);
        size += std::max<int64_t>(host_read(pipe, log.data(), log.size()), 0);
    }
    host_close(pipe);
    EXPECT_TRUE(ended || host_wait_process(writer, &status));
    EXPECT_TRUE(status == 0 && size == ALL);
}
