#include "support/files.h"
#include "tool/tool.h"

TEST(OsTemp, BaseNamesAndRemovalAtExit) {
    const Scratch scratch; // before the variables change
    const Inside inside(scratch.path("run"));
    const bool windows = os_kind() != 0;
    const std::string elsewhere = scratch.path(windows ? "else where" : "else where:");
    const std::string within = native(elsewhere + "/");
    ASSERT_TRUE(host_mkdir("sub") && host_mkdir(elsewhere.c_str()));
    const struct {
        std::string temp, tmp, base;
    } cases[] = {
        {elsewhere, scratch.directory(), within},
        {within, "", within},
        {within + native("not/there"), "", within + native("not/there/")},
        {"", "sub", windows ? "sub\\" : "/tmp/"},
        {"sub\\new", "", windows ? "sub\\new\\" : "/tmp/"},
        {"", "", windows ? ".\\" : "/tmp/"},
    };
    std::vector<std::pair<const char *, std::string>> before;
    for (const char *name : host_temp_variables())
        before.emplace_back(name, getenv(name) != nullptr ? getenv(name) : "");
    for (const auto &c : cases) {
        os_setenv("TEMP", c.temp.c_str());
        os_setenv("TMP", c.tmp.c_str());
        os_setenv("TMPDIR", "");
        FILE *f = os_popenv(child_program().c_str(), "--temps", nullptr);
        ASSERT_NE(f, nullptr) << c.base;
        const Lines names = split(read_all(f));
        EXPECT_EQ(os_pclose(f), 0) << c.base;
        ASSERT_EQ(names.size(), 5u) << c.base;
        const std::string directory = text_of(os_dirname(names[0].c_str()));
        EXPECT_TRUE(directory.starts_with(c.base + "zvA")) << directory;
        const char *expected[] = {"_0.out", "_1.out", "_2", "_3.", "_4"};
        for (size_t i = 0; i < names.size(); i++)
            EXPECT_EQ(names[i], directory + native("/kestrel_tmp") + expected[i]);
        EXPECT_FALSE(os_exists(directory.c_str())) << directory;
        EXPECT_FALSE(os_exists("registered") || os_exists("registered.txt"));
    }
    for (const auto &[name, value] : before)
        os_setenv(name, value.c_str());
    os_remove_at_exit(nullptr);
    os_rmdir_at_exit(nullptr);
    const char *const tool = std::exchange(host_tool_name, "a new\ttool");
    EXPECT_TRUE(std::string(os_basename(os_tempname_plain().get())).starts_with("a_new_tool_tmp_"));
    host_tool_name = tool;
}

TEST(OsTemp, ForkedCopiesLeaveThemAlone) {
    GTEST_FLAG_SET(death_test_style, "fast"); // which forks, where that can be done
    const Scratch scratch;
    EXPECT_EXIT(exit(0), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(os_exists(scratch.directory()));
}
