#include "cmdline.h"

#include "scratch.h"
#include "trace.h"
#include "zvdebug.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

using Words = std::vector<std::string>;
using namespace std::string_literals;

Words seen; // by the callback

Words expand(const Words &arguments) {
    std::vector<const char *> argv = {"dir/prog"};
    for (const std::string &argument : arguments)
        argv.push_back(argument.c_str());
    seen.clear();
    const VectorPtr args(cmdline_expand(static_cast<int>(argv.size()), argv.data(),
                                        [](const char *argument) { seen.push_back(argument); }));
    Words result;
    for (const char *word : VecEach<const char>(args))
        result.push_back(word);
    return result;
}

// A new response file with these bytes, as an argument.
std::string response_file(const std::string &text) {
    static const Scratch files;
    static int count = 0;
    return "@" + files.write(std::to_string(count++).c_str(), text);
}

} // namespace

TEST(CmdlineTest, SplitsAndUnescapes) {
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

TEST(CmdlineTest, ResponseFilesNestAndTheOuterOneGoesOn) {
    const std::string inner = response_file(std::string(20000, 'i') + " i\\ 2");
    const std::string long_word(20000, 'i');
    const std::string outer = response_file("o1 " + inner + " o2 @missing");
    EXPECT_EQ(expand({"", outer, "z"}), (Words{"o1", long_word, "i 2", "o2", "@missing", "z"}));
    EXPECT_EQ(seen, (Words{"", outer, "o1", inner, long_word, "i\\ 2", "o2", "@missing", "z"}));
}

TEST(CmdlineTest, WhatCannotBeReadOrNeverEndsIsKept) {
    const Scratch scratch;
    // What is no file, cannot be opened, or read, where there are such.
    for (const std::string &odd : {scratch.directory() + ""s, "/dev/null"s, "/proc/self/mem"s,
                                   "/proc/sys/vm/compact_memory"s}) {
        EXPECT_EQ(expand({"@" + odd, "b"}), (Words{"@" + odd, "b"}));
        const FilePtr next(host_fopen(scratch.write("next", "").c_str(), "r"));
        EXPECT_NE(host_fileno(next.get()), 0) << odd;
    }

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

// Program name, debug option and log belong to the process.
TEST(CmdlineTest, ProgramNameAndDebugOptionAreRemembered) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        const bool before = cmdline_progname() == nullptr && !cmdline_zvdebug_seen();
        const Words args = expand({response_file("\"--zvdebug=zip:+a\\\\b\"")});
        const char *other[] = {"other", "", "a\\ b"};
        trace_stream = stderr;
        trace_flags = TRACE_ALERTS;
        vec_free(cmdline_args(3, other));
        const bool after = cmdline_progname() == "prog"s && cmdline_zvdebug_seen();
        const bool as_it_came = zvdebug_zip_path() == "a\\\\b"s;
        exit(before && after && as_it_came && args == Words{"--zvdebug=zip:+a\\b"} ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "ARGS: other  a. b");
}
