#include "package.h"

#include "scratch.h"
#include "stringcache.h"
#include "zvdebug.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>

#if __has_include(<miniz/miniz.h>)
#include <miniz/miniz.h>
#else
#include <miniz.h>
#endif

namespace {

std::string warnings;

// What an archive holds: "name=bytes[comment];" for each entry.
std::string entries(const char *path) {
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

// Each test has a current directory of its own, and the package "d/p" in it.
class PackageTest : public testing::Test {
  protected:
    PackageTest() {
        zvdebug_warn_hook = [](const char *text) { warnings += std::string(text) + '\n'; };
        zvdebug_parse("--zvdebug=zip:+d/p"); // only the first one in the process counts
        warnings.clear();
        host_chdir(scratch.directory());
        host_mkdir("d");
        scratch.write("a", "A");
    }
    ~PackageTest() override {
        zvdebug_warn_hook = usual_hook;
        host_chdir(before.get());
    }

    // What adding a file warns of.
    static std::string add(const char *file) {
        warnings.clear();
        package_add_file(file);
        return warnings;
    }

    const Scratch scratch;

  private:
    const OwnedString before = os_getcwd();
    void (*const usual_hook)(const char *text) = zvdebug_warn_hook;
};

} // namespace

TEST_F(PackageTest, EntriesHaveNamesBytesAndComments) {
    const std::string bytes("\0\r\n\x1a\n\xff", 6);
    const std::string relative = native_join("d", "\xc3\xa4");
    const std::string absolute = scratch.write(relative.c_str(), bytes);
    std::string stored = "SYSTEM_ROOT" + absolute.substr(os_kind() != 0 ? strlen("C:") : 0);
    std::replace(stored.begin(), stored.end(), '\\', '/');

    package_add_file("missing");
    EXPECT_FALSE(os_exists("d/p"));
    package_add("a", "why");
    package_add_file(relative.c_str());
    package_add(absolute.c_str(), "");
    EXPECT_EQ(entries("d/p"),
              "a=A[why];d/\xc3\xa4=" + bytes + "[];" + stored + "=" + bytes + "[];");
    EXPECT_EQ(warnings, "");
}

// Neither is anything that was there changed, nor is a broken archive left behind.
TEST_F(PackageTest, WhatCannotBePackedIsWarnedOf) {
    const std::string unopened =
        "Unable to open package zip file (d/p) for reading to append \"a\"\n";
    EXPECT_EQ(add("d"), "Unable to add archive \"d\" (from \"d\") to package zip (d/p)\n");
    EXPECT_FALSE(os_exists("d/p"));
    EXPECT_EQ(add("a"), "");
    const std::string sound = read_file("d/p");
    EXPECT_EQ(add("d"), "Unable to add archive \"d\" (from \"d\") to package zip (d/p)\n");
    EXPECT_EQ(read_file("d/p"), sound);
    for (const std::string &bytes : {std::string(), sound.substr(0, sound.size() - 1),
                                     sound.substr(1), std::string(100000, 'n')}) {
        scratch.write("d/p", bytes);
        EXPECT_EQ(add("a"), unopened);
        EXPECT_EQ(read_file("d/p"), bytes);
    }
    host_remove("d/p");

    // A device that can be read for ever, on the host that has it.
    std::error_code no_links;
    std::filesystem::create_symlink("/dev/full", "d/p", no_links);
    EXPECT_EQ(add("a"), no_links ? "" : unopened);
    host_remove("d/p");
    host_mkdir("d/p");
    EXPECT_EQ(add("a"), unopened);
    host_rmdir("d/p");
    host_rmdir("d");
    EXPECT_EQ(add("a"), "Unable to init package zip file (d/p) to add \"a\"\n");
}

TEST_F(PackageTest, ProtectedPackageStays) {
    scratch.write("b", "B");
    EXPECT_EQ(add("a"), "");
    std::filesystem::permissions("d/p", std::filesystem::perms::owner_read);
    FILE *f = host_fopen("d/p", "r+b");
    const bool superuser = f != nullptr;
    if (superuser)
        fclose(f);
    EXPECT_EQ(add("b"), superuser
                            ? ""
                            : "Unable to covert package zip file (d/p) reader to a writer to "
                              "append \"b\"\n"
                              "Unable to add archive \"b\" (from \"b\") to package zip (d/p)\n"
                              "Unable to finalize package zip (d/p) after adding \"b\"\n"
                              "Unable to end package zip (d/p) after adding \"b\"\n");
    EXPECT_EQ(entries("d/p"), superuser ? "a=A[];b=B[];" : "a=A[];");
    std::filesystem::permissions("d/p", std::filesystem::perms::all);
}

TEST_F(PackageTest, RunsShareAPackageThatChangesNoVerdict) {
    std::string kestrel = child_program();
    kestrel.replace(kestrel.rfind("child"), strlen("child"), "kestrel");
    const auto run = [&kestrel](const char *mode, const char *option, int expected_status) {
        FILE *f = os_popenv(kestrel.c_str(), mode, "--manifest=m", "--instdir=d", "--tasks=1",
                            option, nullptr);
        std::string output = f != nullptr ? read_all(f) : "(not run)";
        EXPECT_EQ(os_pclose(f), expected_status) << output;
        return output;
    };
    scratch.write("d/1", "text");
    run("-g", "--zvdebug=on,num:1,zip:+p", 0);
    run("-c", "--zvdebug=on,num:2,zip:+p", 0);
    const std::string both = entries("p");
    const size_t second = both.find("[];kestrel-2.out=");
    EXPECT_EQ(both.rfind("kestrel-1.out=", 0), 0u) << both;
    EXPECT_LT(both.find("ENTER generate_manifest("), second) << both;
    EXPECT_NE(both.find("ENTER check_manifest(", second), both.npos) << both;

    // A log that was named may be another program's; the accounts come when it has been packed.
    run("-c", "--zvdebug=on,adt,out:x,zip:+q", 0);
    EXPECT_EQ(entries("q"), "(no archive)");
    EXPECT_NE(read_file("x").find("# Living Vector Master List:"), std::string::npos);

    const char *warning = "ZVDEBUG (warning): Unable to open package zip file (p) for reading to "
                          "append \"kestrel-1.out\"\n";
    scratch.write("p", "no archive");
    EXPECT_NE(run("-c", "--zvdebug=on,zip:+p", 0).find(warning), std::string::npos);
    scratch.write("d/1", "tex");
    EXPECT_NE(run("-c", "--zvdebug=on,zip:+p", 1).find(warning), std::string::npos);
    EXPECT_EQ(read_file("p"), "no archive");
}

// The debug option counts once in a process, and the debugger is looked for once.
TEST(PackageDeathTest, ProgramsRunUnderTheDebugger) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [](bool named, bool force, bool installed, bool debugged) {
        const std::string app = child_program();
        zvdebug_parse(named ? sc_concat("--zvdebug=debug:x:", os_basename(app.c_str())) : "");
        db_debugger_path = installed ? app.c_str() : "no/debugger";
        const VectorPtr args(vec_new(__FILE__, __LINE__));
        for (const char *argument : {"its own name", "one", "two words"})
            vec_append(args.get(), argument);
        testing::internal::CaptureStdout();
        const int status = db_debugger(app.c_str(), args.get(), force);
        const std::string output = testing::internal::GetCapturedStdout();
        const std::string script = output.substr(0, output.find('\n'));
        const std::string expected =
            debugged ? script +
                           "\nbreak set --name db_assert\nbreak set --name main\n"
                           "break command add 2\nexpr gInDebugger=1\nDONE\nrun\n"
                           "<-->\n<" +
                           app + ">\n<one>\n<two words>"
                     : "<one>\n<two words>\n";
        const bool right = output == expected && !os_exists(script.c_str());
        exit(right && status == (debugged ? 9 : 0) ? 0 : 1);
    };
    EXPECT_EXIT(run(false, false, true, false), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(run(true, false, true, true), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(run(false, true, true, true), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(run(true, true, false, false), testing::ExitedWithCode(0),
                "Debugger \"no/debugger\" is not available\n$");
}
