#include "command/cmdline.h"

#include "containers/stringcache.h"
#include "debuglog/zvdebug.h"
#include "host/trace.h"
#include "messages/alert.h"
#include "support/scratch.h"
#include "support/words.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

using namespace std::string_literals;

static Words seen; // by the callback

static Words expand(const Words &arguments) {
    std::vector<const char *> argv = {"dir/prog"};
    for (const std::string &argument : arguments)
        argv.push_back(argument.c_str());
    seen.clear();
    const auto see = [](const char *argument) { seen.push_back(argument); };
    return words_of(VectorPtr(cmdline_expand(static_cast<int>(argv.size()), argv.data(), see)));
}

// A new response file with these bytes, as an argument.
static std::string response_file(const std::string &text) {
    static const Scratch files;
    static int count = 0;
    return "@" + files.write(std::to_string(count++).c_str(), text);
}

// Runs the helper with these arguments and returns what reached standard output.
static std::string output_of(Words options, uint32_t mode, int32_t echo = 0) {
    options.insert(options.begin(), child_program());
    testing::internal::CaptureStdout();
    const int status = cmdline_spawn(vector_of(options).get(), mode, echo);
    std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    return output;
}

// The command file that the options are written to: the helper shows its one argument.
static std::string command_file(const Words &options) {
    const std::string output = output_of(options, EXEC_COMMAND_FILE);
    EXPECT_EQ(output.substr(0, 2), "<@");
    EXPECT_EQ(output.substr(output.size() - 2), ">\n");
    return output.substr(1, output.size() - 3);
}

TEST(Cmdline, SplitsAndUnescapes) {
    const struct {
        std::string text; // of a response file
        Words expected;
    } cases[] = {
        {" \t\r\n \n", {}},
        {"-c\r\n-g\r\n\r\nlast", {"-c", "-g", "last"}},
        {"\"a b\"c\"d\te\" \"\" f\n", {"a bcd\te", "f"}},
        {"\"a\\ b\"\n\"\\\"q\\\"\"", {"a b", "\"q\""}},
        {"a\\ b \\\"c d\\\" it\\'s 'x y'", {"a b", "\"c", "d\"", "it's", "'x", "y'"}},
        {"\"a\\\\\" b \\\\\\ c", {"a\\", "b", "\\ c"}},
        {"C:\\new\\\nx\\\r\ny\\", {"C:\\new\\", "x\\", "y\\"}},
        {"@ x@y @no\\ such\\\\file", {"@", "x@y", "@no such\\file"}},
        {"\"open end", {"open end"}},
        {"\xef\xbb\xbf-c \xef\xbb\xbf", {"-c", "\xef\xbb\xbf"}},
        {"a\0b \"c\0d\" e"s, {"a", "b", "c", "d e"}},
    };
    for (const auto &c : cases) {
        Words expected = c.expected;
        expected.push_back("a\\'");
        EXPECT_EQ(expand({response_file(c.text), "", "a\\\\'"}), expected) << c.text;
    }
}

TEST(Cmdline, ResponseFilesNestAndTheOuterOneGoesOn) {
    const std::string inner = response_file(std::string(20000, 'i') + " i\\ 2");
    const std::string long_word(20000, 'i');
    const std::string outer = response_file("o1 " + inner + " o2 @missing");
    EXPECT_EQ(expand({"", outer, "z"}), (Words{"o1", long_word, "i 2", "o2", "@missing", "z"}));
    EXPECT_EQ(seen, (Words{"", outer, "o1", inner, long_word, "i\\ 2", "o2", "@missing", "z"}));
}

TEST(Cmdline, WhatCannotBeReadOrNeverEndsIsKept) {
    const Scratch scratch;
    // Arguments that are not files, cannot be opened or read, or never end, where the host has
    // such.
    for (const std::string &odd : {scratch.directory() + ""s, "/dev/zero"s, "/proc/self/mem"s,
                                   "/proc/sys/vm/compact_memory"s, scratch.path("gone")}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(expand({"@" + odd, "b"}), (Words{"@" + odd, "b"}));
        const std::string told = testing::internal::GetCapturedStderr();
        const char *reason = odd == scratch.directory() ? strerror(EISDIR)
                             : odd == "/dev/zero"       ? strerror(EFBIG)
                                                        : "";
        EXPECT_TRUE(os_exists(odd.c_str()) == 0
                        ? told.empty()
                        : told.starts_with("Cannot read response file \"" + odd + "\": " + reason))
            << told;
        const FilePtr next(host_fopen(scratch.write("next", "").c_str(), "r"));
        EXPECT_NE(host_fileno(next.get()), 0) << odd;
    }

    ASSERT_NE(freopen(scratch.write("input", "x").c_str(), "r", stdin), nullptr);
    EXPECT_EQ(expand({os_kind() == 0 ? "@/dev/null" : "@NUL", "b"}), Words{"b"});
    EXPECT_EQ(getc(stdin), EOF);

    const std::string self = "@" + scratch.path("self");
    const std::string other = response_file("b " + self);
    scratch.write("self", "a " + other + " " + self + " " + self);
    EXPECT_EQ(expand({self}), (Words{"a", "b", self, self, self}));

    const std::string last = response_file("end");
    std::string chain = last;
    for (int depth = 2; depth <= 32; depth++)
        chain = response_file(chain);
    EXPECT_EQ(expand({chain}), Words{"end"});
    EXPECT_EQ(expand({response_file(chain)}).front().front(), '@');

    Words most(1999, "end"); // and the outer one
    most.push_back(last);
    std::string text;
    for (size_t i = 0; i < most.size(); i++)
        text += last + "\n";
    EXPECT_EQ(expand({response_file(text)}), most);
}

TEST(Cmdline, CommandFileIsUsedWhenAskedForOrNeeded) {
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
        const std::string expected = c.file ? file + " [ " + first + " y ]\n<" + file + ">\n"
                                            : first + " y\n<" + first + ">\n<y>\n";
        EXPECT_EQ(output, program + " " + expected) << c.mode << ", " << c.length;
    }
    EXPECT_EQ(output_of({}, EXEC_AUTOMATIC), "");
}

// An empty argument is dropped, and an "@" in front of the name of a file means that file's words;
// both hold for arguments that are passed directly too.
TEST(Cmdline, CommandFilesHoldAnOptionALineAndExpandToTheOptions) {
    const Words odd = {"a b", "x", "tab\there", "", "it's \\\"", "@C:\\a b\\", "@x\\", "--x=\\"};
    std::string text = read_file(command_file(odd).substr(1));
    std::erase(text, '\r');
    EXPECT_EQ(text, "\"a\\ b\"\nx\n\"tab\there\"\n\n\"it\\'s\\ \\\\\\\"\"\n"
                    "\"@C:\\\\a\\ b\\\\\"\n@x\\\\\n--x=\\\\\n");
    EXPECT_STREQ(cmdline_escape("C:\\dir\\file"), "C:\\dir\\file");

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
        Words arguments = {command_file(options)};
        Words words = options; // as written, and again as escaped
        for (const std::string &option : options) {
            arguments.push_back("="s + cmdline_escape(option.c_str()));
            words.push_back("=" + option);
        }
        exit(expand(arguments) == words ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(Cmdline, StatusIsTheProgramsAndOutputCanBeThrownAway) {
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

TEST(Cmdline, FailuresAreErrorsAndStatusOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // each one spoils the process
    const auto no_temporaries = [] { os_setenv("TEMP", child_program().c_str()); };
    const auto lost_temporaries = [] { os_rmtree(os_dirname(os_tempname_plain().get()).get()); };
    const auto full_disk = [] { // or a directory in the file's place
        const OwnedString directory = os_dirname(os_tempname_plain().get());
        const std::string next = native_join(directory.get(), "kestrel_tmp_1.cmd");
        if (os_kind() != 0)
            host_mkdir(next.c_str());
        else
            std::filesystem::create_symlink("/dev/full", next);
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
        {EXEC_DIRECT, -1, no_temporaries, "Could not redirect stdout/stderr"},
        {EXEC_DIRECT, -1, lost_temporaries, "Could not redirect stdout/stderr"},
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

// Program name, debug option and log belong to the process.
TEST(Cmdline, DriverRunsWhatItsArgumentsBecomeAndPacksTheLog) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        bool right = cmdline_progname() == nullptr && !cmdline_zvdebug_seen() &&
                     cmdline_escape(nullptr) == nullptr;
        const Scratch scratch;
        const std::string file = response_file(R"("--zvdebug=on,out:log,zip:p,debug:a\\b")");
        host_chdir(scratch.directory());
        const char *argv[] = {"dir/driver", file.c_str(), "", "7", nullptr, "8"};
        const int32_t silent = 0;
        const auto options_of = [](Vector *arguments) {
            static const VectorPtr options =
                vector_of({child_program(), "--exit", vec_at<char>(arguments, 1)});
            return options.get();
        };
        const int status = cmdline_driver(6, argv, options_of, EXEC_AUTOMATIC, &silent);
        right &= signal(SIGTERM, SIG_DFL) != SIG_DFL; // it is caught
        trace_use(nullptr, nullptr);
        const std::string log = read_file("log");
        for (const std::string &line :
             {"ARGS: dir/driver " + file + "  7", "cmdline_driver: Returning status: 7"s})
            right &= log.find(line) != log.npos;
        right &= read_file("p").find("log") != log.npos;
        trace_flags = 0;
        argv[0] = "other"; // which changes nothing
        for (const int count : {1, 0})
            right &= vec_size(VectorPtr(cmdline_args(count, argv)).get()) == 0;
        right &= cmdline_progname() == "driver"s && cmdline_zvdebug_seen();
        host_chdir("..");
        exit(right && zvdebug_debug_named(R"(a\\b)") ? status : 1); // as it came
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(7), "");
}
