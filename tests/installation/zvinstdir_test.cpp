#include "installation/zvinstdir.h"

#include "containers/stringcache.h"
#include "installation/registry.h"
#include "support/log_capture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace {

// A tree with the version directory t/1.0, in which "lum" exists.
class Directories : public Logged {
  protected:
    void SetUp() override { os_mkdir_parents(at("t/1.0/lum").c_str()); }
    void TearDown() override {
        reg_set_c_stdlib(nullptr);
        zvinstall_ver = zvinstall_dir = nullptr;
    }

    void set_version(const char *slashed) {
        ASSERT_EQ(zvinstdir_set(sc_strdup(at(slashed).c_str())), 0);
    }

    // A directory as seen from `base` or, if it is not below that, from the test's own; "-" for
    // null. With "/" and a blank after it.
    std::string below(const char *directory, const std::string &base) const {
        std::string text = text_of(directory);
        for (const std::string &top : {at(base), at("")})
            if (directory != nullptr && text.starts_with(top))
                text.erase(0, top.size());
        std::replace(text.begin(), text.end(), '\\', '/');
        return directory != nullptr ? text + " " : "- ";
    }
};

} // namespace

TEST_F(Directories, DirectoriesFromTheProgramsPath) {
    const std::string outside = "ERROR - the application is not running from a 'bin' directory";
    const std::string nameless = "ERROR - couldn't get a basename from the path: ";
    const std::string shallow = "ERROR - path not deep enough?";
    const std::string top = nameless + (host_path_style().drives ? "\"\"" : "\"/\"");
    const struct {
        std::string program; // in the tree, or anywhere
        bool found;
        std::string reason; // "(null)" for a failure that only the log explains
    } cases[] = {
        {"t/1.0/bin/x", true, "(null)"},
        {"t/1.0/BIN/x", true, "(null)"},
        {"t/1.0/lum/bin/x", true, "(null)"},
        {"t/1.0/LUM-AS/bin/x", true, "(null)"},
        {"t/1.0/bin/./x", true, "(null)"},
        {"t/1.0/tools/x", false, outside},
        {"t/1.0/lum/x", false, outside},
        {"t/bin/x", false, "(null)"},
        {"t/1.0/lum.2/bin/x", false, "(null)"},
        {"t/1.0/lum-as/lum/bin/x", false, "(null)"},
        {"x", false, "ERROR - couldn't get a path based on progname"},
        {"./x", false, nameless + "\"\""},
        {"bin/x", false, shallow},
        {"lum/bin/x", false, shallow},
        {"/lum/bin/x", false, top},
        {"/bin/x", false, top},
    };
    for (const auto &test : cases) {
        const bool in_tree = test.program.starts_with("t/");
        const std::string program = in_tree ? at(test.program) : native(test.program);
        InstallPaths paths = {};
        const char *failure = nullptr;
        EXPECT_EQ(zvinstall_locate(program.c_str(), &paths, &failure), test.found);
        EXPECT_EQ(text_of(paths.version), test.found ? at("t/1.0") : "(null)") << test.program;
        EXPECT_EQ(text_of(paths.install), test.found ? at("t") : "(null)") << test.program;
        EXPECT_EQ(text_of(failure), test.reason) << test.program;
    }
}

// The version directory is taken over even when the parent is missing.
TEST_F(Directories, PointingElsewhere) {
    set_version("t/1.0");
    EXPECT_EQ(set_zvinstall_paths(), 1);
    EXPECT_EQ(zvinstdir_set(sc_strdup(at("t/2.0").c_str())), 1);
    EXPECT_EQ(zvinstall_ver, at("t/1.0"));
    EXPECT_EQ(zvinstdir_set(nullptr), 1);
    static const char here[] = ".";
    EXPECT_EQ(zvinstdir_set(here), 1);
    EXPECT_EQ(zvinstall_ver, here); // the very string
    EXPECT_EQ(zvinstall_dir, at("t"));
    zvinstall_dir = nullptr; // both are needed
    EXPECT_EQ(set_zvinstall_paths(), 0);
    set_version("t/1.0");
    zvinstall_ver = nullptr;
    EXPECT_EQ(set_zvinstall_paths(), 0);
    EXPECT_EQ(zvinstdir(ZVINSTDIR_INSTALL), nullptr);
    EXPECT_EQ(reg_instdir(REG_BASE), nullptr);
    EXPECT_TRUE(log.texts_of("registry.cpp")
                    .ends_with("EXIT reg_instdir() -> Could not locate installation directory\n"));
}

TEST_F(Directories, KindsOfDirectories) {
    set_version("t/1.0");
    std::string kinds;
    for (const int32_t kind : {-1, 0, 1, 2, 9, 10})
        kinds += below(zvinstdir(kind), "t/1.0/");
    EXPECT_EQ(kinds, "- t t/1.0 bin lum-as - ");
    EXPECT_TRUE(
        log.texts_of("zvinstdir.cpp")
            .ends_with("ENTER zvinstdir(9)\nEXIT zvinstdir() -> Returning concatenation of \"" +
                       at("t/1.0") +
                       "\" and \"lum-as\"\nENTER zvinstdir(10)\n"
                       "EXIT zvinstdir()\n"));
}

// In an installation with and without "lum", with and without a variant of the C library, and then
// with an override for every type that can have one.
TEST_F(Directories, TypesOfDirectories) {
    constexpr int32_t TYPES[] = {-1,          REG_BASE, REG_LIB,       REG_HELP,
                                 REG_INCLUDE, 9,        REG_C_INCLUDE, 11};
    const auto types = [&](const std::string &base) {
        std::string text;
        for (const int32_t type : TYPES)
            text += below(reg_instdir(type), base + "/");
        return text;
    };
    os_mkdir_parents(at("u/2.0").c_str());
    set_version("t/1.0");
    EXPECT_EQ(types("t/1.0/lum"), "- t/1.0/lum lib help include - include - ");
    set_version("u/2.0");
    reg_set_c_stdlib("tiny");
    EXPECT_EQ(types("u/2.0"), "- u/2.0 lib/tiny help include - include/tiny - ");
    std::string can_be_set;
    for (const int32_t type : TYPES) {
        const std::string directory = at("o/" + std::to_string(type));
        os_mkdir_parents(directory.c_str());
        can_be_set += std::to_string(reg_set_path(type, directory.c_str()));
    }
    EXPECT_EQ(can_be_set, "00101000");
    EXPECT_EQ(reg_set_path(REG_BIN, at("missing").c_str()), 0);
    EXPECT_EQ(reg_set_path(REG_BIN, scratch.write("file", "").c_str()), 0);
    EXPECT_EQ(types("u/2.0"), "- u/2.0 o/2/lib/tiny help o/4/include - o/4/include/tiny - ");
    EXPECT_STREQ(reg_get_c_stdlib(), "tiny");
    for (const int32_t type : TYPES)
        reg_set_path(type, nullptr);
    EXPECT_EQ(text_of(reg_instdir(REG_BIN)), at("u/2.0/bin"));
    EXPECT_EQ(reg_mkpath(9, "x.txt"), nullptr);
    EXPECT_EQ(text_of(reg_mkpath(REG_HELP, "x.txt")), at("u/2.0/help/x.txt"));
    EXPECT_EQ(text_of(reg_mkpath(REG_HELP, at("no").c_str())), at("no"));
}
