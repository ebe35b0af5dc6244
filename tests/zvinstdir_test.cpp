#include "zvinstdir.h"

#include "alert.h"
#include "registry.h"
#include "scratch.h"
#include "stringcache.h"
#include "trace.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string text_of_borrowed(const char *s) {
    return s ? s : "(null)";
}

// A tree with the version directory t/1.0, in which "lum" exists.
class InstallTest : public testing::Test {
  protected:
    void SetUp() override { os_mkdir_parents(at("t/1.0/lum").c_str()); }
    void TearDown() override {
        for (int32_t type : {REG_BIN, REG_LIB, REG_INCLUDE, REG_DAT, REG_SOURCES})
            reg_set_path(type, nullptr);
        reg_set_c_stdlib(nullptr);
        zvinstall_ver = zvinstall_dir = nullptr;
    }

    // A path in the tree, by the host's rules.
    std::string at(std::string slashed) const {
        for (char &c : slashed)
            if (c == '/')
                c = host_path_style().separator;
        return scratch.path(slashed.c_str());
    }

    void set_version(const char *slashed) {
        ASSERT_EQ(zvinstdir_set(sc_strdup(at(slashed).c_str())), 0);
    }

    Scratch scratch;
};

TEST_F(InstallTest, DirectoriesFromTheProgramsPath) {
    const struct {
        const char *program;
        const char *reason; // null for success, "" for a failure that only the log tells
    } cases[] = {
        {"t/1.0/bin/x", nullptr},
        {"t/1.0/BIN/x", nullptr},
        {"t/1.0/lum/bin/x", nullptr},
        {"t/1.0/LUM-AS/bin/x", nullptr},
        {"t/1.0/bin/./x", nullptr},
        {"t/1.0/tools/x", "ERROR - the application is not running from a 'bin' directory"},
        {"t/1.0/lum/x", "ERROR - the application is not running from a 'bin' directory"},
        {"t/bin/x", ""},
        {"t/1.0/lum.2/bin/x", ""},
        {"t/1.0/lum/lum/bin/x", ""},
    };
    for (const auto &test : cases) {
        InstallPaths found = zvinstall_locate(at(test.program).c_str());
        const bool ok = test.reason == nullptr;
        EXPECT_EQ(text_of_borrowed(found.version), ok ? at("t/1.0") : "(null)") << test.program;
        EXPECT_EQ(text_of_borrowed(found.install), ok ? at("t") : "(null)") << test.program;
        EXPECT_STREQ(found.reason ? found.reason : "", ok ? "" : test.reason) << test.program;
    }
}

TEST_F(InstallTest, ProgramPathsThatEndTooEarly) {
    const std::string slash(1, host_path_style().separator);
    const char *const nameless = "ERROR - couldn't get a basename from the path: \"\"";
    EXPECT_STREQ(zvinstall_locate("x").reason, "ERROR - couldn't get a path based on progname");
    EXPECT_STREQ(zvinstall_locate(("." + slash + "x").c_str()).reason, nameless);
    for (const std::string &dir : {std::string("bin"), "lum" + slash + "bin"})
        EXPECT_STREQ(zvinstall_locate((dir + slash + "x").c_str()).reason,
                     "ERROR - path not deep enough?");
    EXPECT_EQ(zvinstall_locate((slash + "bin" + slash + "x").c_str()).version, nullptr);
}

// The version directory is taken over even when the parent is missing.
TEST_F(InstallTest, PointingElsewhere) {
    set_version("t/1.0");
    EXPECT_EQ(set_zvinstall_paths(), 1);
    EXPECT_EQ(zvinstdir_set(sc_strdup(at("t/2.0").c_str())), 1);
    EXPECT_EQ(zvinstall_ver, at("t/1.0"));
    EXPECT_EQ(zvinstdir_set(nullptr), 1);
    static const char here[] = ".";
    EXPECT_EQ(zvinstdir_set(here), 1);
    EXPECT_EQ(zvinstall_ver, here); // the very string
    EXPECT_EQ(zvinstall_dir, at("t"));
}

TEST_F(InstallTest, KindsOfDirectory) {
    set_version("t/1.0");
    EXPECT_EQ(zvinstdir(ZVINSTDIR_INSTALL), at("t"));
    EXPECT_EQ(zvinstdir(ZVINSTDIR_VERSION), at("t/1.0"));
    EXPECT_EQ(zvinstdir(ZVINSTDIR_BIN), at("t/1.0/bin"));
    EXPECT_EQ(zvinstdir(ZVINSTDIR_LUMAS), at("t/1.0/lum-as"));
    EXPECT_TRUE(!zvinstdir(-1) && !zvinstdir(10));
}

TEST_F(InstallTest, DirectoriesByContent) {
    os_mkdir_parents(at("o").c_str());
    os_mkdir_parents(at("u/2.0").c_str());
    const struct {
        const char *version;
        int32_t overridden; // 0 for none
        const char *variant;
        int32_t type;
        const char *path;
    } cases[] = {
        {"t/1.0", 0, nullptr, REG_BASE, "t/1.0/lum"},
        {"u/2.0", 0, nullptr, REG_BASE, "u/2.0"},
        {"t/1.0", 0, "tiny", REG_LIB, "t/1.0/lum/lib/tiny"},
        {"t/1.0", 0, "tiny", REG_BIN, "t/1.0/lum/bin"},
        {"t/1.0", 0, "tiny", REG_C_INCLUDE, "t/1.0/lum/include/tiny"},
        {"t/1.0", 0, nullptr, REG_C_INCLUDE, "t/1.0/lum/include"},
        {"t/1.0", REG_BIN, nullptr, REG_BIN, "o/bin"},
        {"t/1.0", REG_LIB, "tiny", REG_LIB, "o/lib/tiny"},
        {"t/1.0", REG_INCLUDE, "tiny", REG_INCLUDE, "o/include"},
        {"t/1.0", REG_INCLUDE, "tiny", REG_C_INCLUDE, "o/include/tiny"},
        {"t/1.0", REG_INCLUDE, nullptr, REG_C_INCLUDE, "o/include"},
    };
    for (const auto &test : cases) {
        set_version(test.version);
        reg_set_c_stdlib(test.variant);
        const std::string above = at("o");
        EXPECT_EQ(reg_set_path(test.overridden, above.c_str()), test.overridden != 0);
        EXPECT_EQ(text_of_borrowed(reg_instdir(test.type)), at(test.path)) << test.path;
        reg_set_path(test.overridden, nullptr);
    }
    EXPECT_TRUE(!reg_instdir(9) && !reg_instdir(-1) && !reg_mkpath(9, "x.txt"));
    EXPECT_EQ(text_of_borrowed(reg_mkpath(REG_HELP, "x.txt")), at("t/1.0/lum/help/x.txt"));
    EXPECT_EQ(text_of_borrowed(reg_mkpath(REG_HELP, at("no").c_str())), at("no"));
}

// Whatever way a function is left, its exit goes to the log, or all that follows stands too deep.
TEST_F(InstallTest, TracesComeInPairs) {
    set_version("t/1.0");
    const std::string above = at("t");
    trace_stream = tmpfile();
    trace_flags = TRACE_GENERAL;
    VectorPtr list(vec_new(__FILE__, __LINE__));
    for (const char *path : {"missing", above.c_str()}) {
        for (int32_t type : {0, 1, 9}) {
            reg_set_path(type, path);
            zvinstdir(type + 1);
            reg_mkpath(type, path);
        }
        zvinstdir_set(path);
        open_edf(path);
        open_edf_dir(path);
        findMsgFiles(path, LANG_NONE, list.get());
    }
    zvinstall_ver = nullptr;
    set_zvinstall_paths();
    zvinstdir(ZVINSTDIR_BIN);
    EXPECT_EQ(trace_depth(), 0U);
    trace_flags = 0;
    rewind(trace_stream);
    EXPECT_NE(read_all(trace_stream).find("EXIT zvinstdir() -> Returning concat"),
              std::string::npos);
    fclose(trace_stream);
    trace_stream = nullptr;
}

TEST_F(InstallTest, OverridesThatAreRefused) {
    const std::string file = scratch.write("file", "");
    EXPECT_EQ(reg_set_path(REG_BIN, at("t").c_str()), 1);
    EXPECT_EQ(reg_set_path(REG_BIN, at("missing").c_str()), 0);
    EXPECT_EQ(reg_set_path(REG_BIN, file.c_str()), 0);
    for (int32_t type : {-1, 0, 3, 7, 9, 10, 11})
        EXPECT_EQ(reg_set_path(type, at("t").c_str()), 0) << type;
    EXPECT_EQ(text_of_borrowed(reg_instdir(REG_BIN)), at("t/bin"));
}

} // namespace
