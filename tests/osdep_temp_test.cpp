#include "osdep.h"
#include "scratch.h"

#include <gtest/gtest.h>
#include <sstream>
#include <vector>

static const std::string separator(1, host_path_style().separator);

// Sets an environment variable for as long as it lives.
class Variable {
  public:
    Variable(const char *variable, const std::string &value) : name(variable) {
        const char *old = getenv(name);
        previous = old != nullptr ? old : "";
        os_setenv(name, value.c_str());
    }
    ~Variable() { os_setenv(name, previous.c_str()); }

  private:
    const char *name;
    std::string previous;
};

// The lines that the helper prints about its temporaries when run in `directory`.
static std::vector<std::string> temporaries_in(const std::string &directory) {
    const std::string program = child_program();
    const OwnedString previous = os_getcwd();
    EXPECT_TRUE(host_chdir(directory.c_str()));
    FILE *f = os_popenv(program.c_str(), "--temps", nullptr);
    EXPECT_TRUE(host_chdir(previous.get()));
    if (f == nullptr)
        return {};
    std::istringstream output(read_all(f));
    EXPECT_EQ(os_pclose(f), 0);
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);)
        lines.push_back(line);
    return lines;
}

// The files are named relative to where the helper ran.
static std::string resolved(const std::string &directory, const std::string &name) {
    return os_is_absolute(name.c_str()) ? name : os_join(directory.c_str(), name.c_str()).get();
}

TEST(OsTemp, BaseNamesAndRemovalAtExit) {
    const Scratch scratch; // before the variables change
    const std::string run = scratch.path("run");
    ASSERT_EQ(os_mkdir(os_join(run.c_str(), "sub").get()), 0);
    const std::string elsewhere = scratch.path("else where");
    ASSERT_EQ(os_mkdir(elsewhere.c_str()), 0);
    const std::string deeper = elsewhere + separator + "not" + separator + "there";
    const bool windows = os_kind() != 0;
    const struct {
        std::string temp, tmp, base;
    } cases[] = {
        {elsewhere, "sub", elsewhere + separator},
        {elsewhere + separator, "", elsewhere + separator},
        {deeper, "", deeper + separator},
        {"", "sub", windows ? "sub\\" : "/tmp/"},
        {"sub\\new", "", windows ? "sub\\new\\" : "/tmp/"},
        {"", "", windows ? ".\\" : "/tmp/"},
    };
    for (const auto &c : cases) {
        const Variable temp("TEMP", c.temp), tmp("TMP", c.tmp), tmpdir("TMPDIR", "");
        const std::vector<std::string> names = temporaries_in(run);
        ASSERT_EQ(names.size(), 5u) << c.base;
        const std::string directory = text_of(os_dirname(names[0].c_str()));
        EXPECT_EQ(directory.rfind(c.base + "zvA", 0), 0u) << directory;
        const char *expected[] = {"_0.out", "_1.out", "_2", "_3.", "_4"};
        for (size_t i = 0; i < names.size(); ++i)
            EXPECT_EQ(names[i], directory + separator + "kestrel_tmp" + expected[i]);
        EXPECT_FALSE(os_exists(resolved(run, directory).c_str())) << directory;
        EXPECT_FALSE(os_exists(os_join(run.c_str(), "registered.txt").get()));
    }
}

TEST(OsTempDeathTest, ForkedCopiesLeaveThemAlone) {
    GTEST_FLAG_SET(death_test_style, "fast"); // which forks, where that can be done
    const Scratch scratch;
    EXPECT_EXIT(exit(0), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(os_exists(scratch.directory()));
}
