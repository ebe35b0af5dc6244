#include "cmdline.h"

#include "alert.h"
#include "scratch.h"
#include "stringcache.h"
#include "trace.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using Words = std::vector<std::string>;

VectorPtr vector_of(const Words &words) {
    VectorPtr vector(vec_new(__FILE__, __LINE__));
    for (const std::string &word : words)
        vec_append(vector.get(), sc_strdup(word.c_str()));
    return vector;
}

// Runs the helper with these arguments and returns what reached standard output.
std::string output_of(Words options, uint32_t mode, int32_t echo = 0) {
    options.insert(options.begin(), child_program());
    testing::internal::CaptureStdout();
    const int status = cmdline_spawn(vector_of(options).get(), mode, echo);
    std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    return output;
}

// The command file that the options are written to: the helper shows its one argument.
std::string command_file(const Words &options) {
    const std::string output = output_of(options, EXEC_COMMAND_FILE);
    EXPECT_EQ(output.substr(0, 2), "<@");
    EXPECT_EQ(output.substr(output.size() - 2), ">\n");
    return output.substr(1, output.size() - 3);
}

} // namespace

TEST(CmdlineExecTest, CommandFileIsUsedWhenAskedForOrNeeded) {
    const std::string program = child_program();
    const size_t most = 7190 - program.size(); // characters of the arguments
    const struct {
        uint32_t mode;
        size_t length;
        bool file;
    } cases[] = {{EXEC_AUTOMATIC, most, false},
                 {EXEC_AUTOMATIC, most + 1, true},
                 {EXEC_COMMAND_FILE, 3, true},
                 {EXEC_DIRECT, most + 1, false},
                 {7, most + 1, false}};
    for (const auto &c : cases) {
        const std::string first(c.length - 2, 'x');
        const std::string output = output_of({first, "y"}, c.mode, 1);
        const size_t at = output.rfind('<') + 1;
        const std::string file = output.substr(at, output.size() - at - 2);
        const char *expected = c.file ? sc_format("%s %s [ %s y ]\n<%s>\n", program.c_str(),
                                                  file.c_str(), first.c_str(), file.c_str())
                                      : sc_format("%s %s y\n<%s>\n<y>\n", program.c_str(),
                                                  first.c_str(), first.c_str());
        EXPECT_EQ(output, expected) << c.mode << ", " << c.length;
    }
    EXPECT_EQ(output_of({}, EXEC_AUTOMATIC), "");
}

TEST(CmdlineExecTest, CommandFileHoldsAnOptionALine) {
    const Words options = {"a b",       "x",          "tab\there", "",
                           "it's \\\"", "@C:\\a b\\", "@x\\",      "--x=\\"};
    std::string text = read_file(command_file(options).substr(1));
    std::erase(text, '\r');
    EXPECT_EQ(text, "\"a\\ b\"\nx\n\"tab\there\"\n\n\"it\\'s\\ \\\\\\\"\"\n"
                    "\"@C:\\\\a\\ b\\\\\"\n@x\\\\\n--x=\\\\\n");
}

// An empty argument is dropped, and an "@" in front of the name of a file means that file's words;
// both hold for arguments that are passed directly too.
TEST(CmdlineExecTest, CommandFilesAndEscapedTextsExpandToTheOptions) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // --zvdebug is obeyed on the way
    const auto run = [] {
        const std::string alphabet = "\\\\\\\"' \t@a-\v\xe4*%";
        std::mt19937 random(1);
        Words options;
        for (int i = 0; i < 20000; i++) {
            std::string option = i % 8 == 0 ? "@" : i % 2000 == 1 ? "--zvdebug=num:2" : "";
            for (uint32_t length = random() % 8 + 1; length > 0; length--)
                option += alphabet[random() % alphabet.size()];
            options.push_back(option);
        }
        const std::string file = command_file(options);
        std::vector<const char *> argv = {"prog", file.c_str()};
        Words words = options; // as written, and again as escaped
        for (const std::string &option : options) {
            argv.push_back(sc_concat("=", cmdline_escape(option.c_str())));
            words.push_back("=" + option);
        }
        const VectorPtr expanded(
            cmdline_expand(static_cast<int>(argv.size()), argv.data(), nullptr));
        Words got;
        for (const char *word : VecEach<const char>(expanded))
            got.push_back(word);
        exit(got == words ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
    EXPECT_STREQ(cmdline_escape("C:\\dir\\file"), "C:\\dir\\file");
}

TEST(CmdlineExecTest, StatusIsTheProgramsAndOutputCanBeThrownAway) {
    const OwnedString temporaries = os_dirname(os_tempname_plain().get());
    const auto count = [&temporaries] {
        return std::distance(std::filesystem::directory_iterator(temporaries.get()), {});
    };
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto before = count();
    const std::string program = child_program();
    const VectorPtr seven = vector_of({program, "--exit", "7"});
    EXPECT_EQ(cmdline_spawn(seven.get(), EXEC_AUTOMATIC, 0), 7);
    EXPECT_EQ(cmdline_exe(seven.get(), EXEC_DIRECT, -1), 7);
    EXPECT_EQ(cmdline_spawn(vector_of({program, "noise"}).get(), EXEC_AUTOMATIC, -1), 0);
    EXPECT_EQ(cmdline_spawn(vector_of({program, "--stderr", "noise"}).get(), EXEC_DIRECT, -1), 0);
    EXPECT_EQ(cmdline_spawn(vector_of({program + "-missing"}).get(), EXEC_DIRECT, -1), -1);
    EXPECT_EQ(count(), before);
    fputs("out", stdout);
    fputs("err", stderr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "err");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "out");
}

TEST(CmdlineExecTest, FailuresAreErrorsAndStatusOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // each one spoils the process
    const auto no_temporaries = [] { os_setenv("TEMP", child_program().c_str()); };
    const auto lost_temporaries = [] { os_rmtree(os_dirname(os_tempname_plain().get()).get()); };
    const auto full_disk = [] { // or a directory in the file's place
        const OwnedString directory = os_dirname(os_tempname_plain().get());
        const std::string next = native_join(directory.get(), "kestrel_tmp_1.cmd");
        std::error_code failure;
        std::filesystem::create_symlink("/dev/full", next, failure);
        if (os_kind() != 0)
            std::filesystem::create_directory(next, failure);
    };
    const struct {
        uint32_t mode;
        int32_t echo;
        void (*spoil)();
        const char *error;
    } cases[] = {
        {EXEC_AUTOMATIC, 0, [] {}, "no input files\nprogram terminated."},
        {EXEC_COMMAND_FILE, 0, no_temporaries, "Could not create temporary file"},
        {EXEC_COMMAND_FILE, 0, lost_temporaries, "Could not open temporary file"},
        {EXEC_COMMAND_FILE, 0, full_disk, "Could not open temporary file"},
        {EXEC_DIRECT, -1, [] { host_close(1); }, "Could not redirect stdout/stderr"},
    };
    for (const auto &c : cases) {
        const auto run = [&c] {
            const char *argv[] = {"dir/prog"};
            vec_free(cmdline_expand(1, argv, nullptr));
            c.spoil();
            const Words options = {child_program(), "x"};
            const VectorPtr given = vector_of(c.mode == EXEC_AUTOMATIC ? Words() : options);
            exit(cmdline_spawn(given.get(), c.mode, c.echo) == 1 && alert_failed() ? 0 : 1);
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(0),
                    sc_format("prog: fatal error: %s\n$", c.error));
    }
}

TEST(CmdlineExecTest, DriverRunsWhatItsArgumentsBecomeAndPacksTheLog) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        const Scratch scratch;
        host_chdir(scratch.directory());
        const char *argv[] = {"prog", "--zvdebug=on,out:log,zip:p", "", "7"};
        const int32_t silent = 0;
        const auto options_of = [](Vector *arguments) {
            static const VectorPtr options =
                vector_of({child_program(), "--exit", vec_at<char>(arguments, 1)});
            return options.get();
        };
        const int status = cmdline_driver(4, argv, options_of, EXEC_AUTOMATIC, &silent);
        fputs(read_file("log").c_str(), stderr);
        fclose(trace_stream);
        const bool packed = read_file("p").find("log") != std::string::npos;
        host_chdir("..");
        exit(packed ? status : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "cmdline_driver: Returning status: 7");
}
