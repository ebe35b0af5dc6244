#include "installation/zvinstdir.h"

#include "containers/stringcache.h"
#include "installation/registry.h"
#include "support/log_capture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace {

// A tree with the version directory t/1.0, in which "lum" exists.
class InstallTest : public LoggedTest {
  protected:
    void SetUp() override { os_mkdir_parents(at("t/1.0/lum").c_str()); }
    void TearDown() override {
        reg_set_c_stdlib(nullptr);
        zvinstall_ver = zvinstall_dir = nullptr;
    }

    void set_version(const char *slashed) {
        ASSERT_EQ(zvinstdir_set(sc_strdup(at(slashed).c_str())), 0);
    }
};

} // namespace

TEST_F(InstallTest, DirectoriesFromTheProgramsPath) {
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
    zvinstall_dir = nullptr; // both are needed
    EXPECT_EQ(set_zvinstall_paths(), 0);
    set_version("t/1.0");
    zvinstall_ver = nullptr;
    EXPECT_EQ(set_zvinstall_paths(), 0);
    EXPECT_EQ(zvinstdir(ZVINSTDIR_INSTALL), nullptr);
    EXPECT_EQ(reg_instdir(REG_BASE), nullptr);
}

TEST_F(InstallTest, EveryKindOfDirectory) {
    set_version("t/1.0");
    const char *const kinds[] = {
        "t",         "t/1.0",     "t/1.0/bin", "t/1.0/docs",   "t/1.0/include",
        "t/1.0/etc", "t/1.0/lum", "t/1.0/kiv", "t/1.0/velasm", "t/1.0/lum-as"};
    for (int32_t kind = 0; kind < ZVINSTDIR_LAST; kind++)
        EXPECT_EQ(text_of(zvinstdir(kind)), at(kinds[kind])) << kind;
    EXPECT_EQ(zvinstdir(-1), nullptr);
    EXPECT_EQ(zvinstdir(ZVINSTDIR_LAST), nullptr);
    EXPECT_NE(log.lines_with("EXIT zvinstdir() -> Returning concat"), "");
}

// In an installation with and without "lum", with and without a variant of the C library, under an
// override of every type in turn.
TEST_F(InstallTest, EveryTypeOfDirectory) {
    const struct {
        int32_t type;
        const char *subdir;
        bool has_variants;
        int32_t override_type; // whose override counts; 0 for none
    } types[] = {
        {REG_BASE, "", false, 0},
        {REG_BIN, "/bin", false, REG_BIN},
        {REG_LIB, "/lib", true, REG_LIB},
        {REG_HELP, "/help", false, 0},
        {REG_INCLUDE, "/include", false, REG_INCLUDE},
        {REG_DAT, "/dat", false, REG_DAT},
        {REG_SOURCES, "/sources", true, REG_SOURCES},
        {REG_RESOURCES, "/resources", false, 0},
        {REG_DOCS, "/docs", false, 0},
        {REG_C_INCLUDE, "/include", true, REG_INCLUDE},
    };
    os_mkdir_parents(at("o").c_str());
    os_mkdir_parents(at("u/2.0").c_str());
    for (const std::string version : {"t/1.0", "u/2.0"})
        for (const char *variant : {static_cast<const char *>(nullptr), "tiny"})
            for (int32_t overridden = -1; overridden < 12; overridden++) {
                set_version(version.c_str());
                reg_set_c_stdlib(variant);
                const auto with_it = [&](const auto &each) {
                    return each.override_type != 0 && each.override_type == overridden;
                };
                EXPECT_EQ(reg_set_path(overridden, at("o").c_str()),
                          std::any_of(std::begin(types), std::end(types), with_it));
                for (const auto &test : types) {
                    const std::string base = with_it(test)        ? "o"
                                             : version == "t/1.0" ? "t/1.0/lum"
                                                                  : version;
                    const std::string below =
                        variant != nullptr && test.has_variants ? "/tiny" : "";
                    EXPECT_EQ(text_of(reg_instdir(test.type)), at(base + test.subdir + below))
                        << test.type << " under " << overridden;
                }
                reg_set_path(overridden, nullptr);
            }
    EXPECT_EQ(reg_set_path(REG_BIN, at("missing").c_str()), 0);
    EXPECT_EQ(reg_set_path(REG_BIN, scratch.write("file", "").c_str()), 0);
    EXPECT_EQ(text_of(reg_instdir(REG_BIN)), at("u/2.0/bin"));
    EXPECT_STREQ(reg_get_c_stdlib(), "tiny");
    for (const char *none : {reg_instdir(9), reg_instdir(-1), reg_mkpath(9, "x.txt")})
        EXPECT_EQ(none, nullptr);
    EXPECT_EQ(text_of(reg_mkpath(REG_HELP, "x.txt")), at("u/2.0/help/x.txt"));
    EXPECT_EQ(text_of(reg_mkpath(REG_HELP, at("no").c_str())), at("no"));
}
