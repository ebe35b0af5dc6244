#include "osdep.h"
#include "scratch.h"

#include <csignal>
#include <gtest/gtest.h>
#include <vector>

// What the helper prints when it is started with these arguments.
static std::string output_of(const std::vector<const char *> &arguments, int *status = nullptr) {
    const std::string program = child_program();
    Vector *args = vec_new(__FILE__, __LINE__);
    vec_append(args, program.c_str());
    for (const char *argument : arguments)
        vec_append(args, argument);
    FILE *f = os_popen(args); // which adds the missing null
    if (f == nullptr)
        return "(not run)";
    const std::string text = read_all(f);
    const int result = os_pclose(f);
    if (status != nullptr)
        *status = result;
    return text;
}

TEST(OsProcess, CoresFromTheEnvironment) {
    const int system = os_ncores(false);
    EXPECT_GE(system, 1);
    const struct {
        const char *value;
        int cores;
    } cases[] = {{"8", 8},
                 {" 12x", 12},
                 {"-3", 1},
                 {"0", system},
                 {"", system},
                 {"abc", system},
                 {"99999999999999999999", INT32_MAX}};
    for (const auto &c : cases) {
        os_setenv("bamboo_capability_Cores", c.value);
        EXPECT_EQ(os_ncores(true), c.cores) << c.value;
        EXPECT_EQ(os_ncores(false), system) << c.value;
    }
    os_setenv("bamboo_capability_Cores", "");
}

TEST(OsProcess, QuotesOnlyForWhiteSpace) {
    const struct {
        const char *argument, *quoted;
    } cases[] = {{"a b", "\"a b\""}, {"a\nb", "\"a\nb\""}, {"a\"b", "a\"b"},
                 {"", ""},           {"a\\ ", "\"a\\ \""}, {"\xa0", "\xa0"}};
    for (const auto &c : cases)
        EXPECT_EQ(text_of(os_quote_arg(c.argument)), c.quoted);
}

// Nothing is escaped, so that these are the texts that arrive on either host.
TEST(OsProcess, ArgumentsArriveAsTheRuntimeSplitsThem) {
    const struct {
        std::vector<const char *> sent;
        const char *received;
    } cases[] = {
        {{"a b", "c"}, "<a b>\n<c>\n"},
        {{"a", "", "b"}, "<a>\n<b>\n"},
        {{"a\"b", "c"}, "<ab c>\n"},
        {{"a\\\"b"}, "<a\"b>\n"},
        {{"dir\\", "x"}, "<dir\\>\n<x>\n"},
        {{"a dir\\", "x"}, "<a dir\" x>\n"},
        {{"*", "?", "*.*"}, "<*>\n<?>\n<*.*>\n"},
        {{"\xc3\xa4\xe2\x82\xac"}, "<\xc3\xa4\xe2\x82\xac>\n"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(output_of(c.sent), c.received);
}

TEST(OsProcess, SpawnReplacesTheArgumentsAndReturnsTheStatus) {
    const std::string program = child_program();
    const char *argv[] = {program.c_str(), "--exit", "3", "a b", nullptr};
    EXPECT_EQ(os_spawn(program.c_str(), argv), 3);
    EXPECT_STREQ(argv[2], "3");
    EXPECT_STREQ(argv[3], "\"a b\"");
    for (const char *argument : argv)
        free(const_cast<char *>(argument));

    const char *none[] = {nullptr};
    EXPECT_EQ(os_spawn((program + "-missing").c_str(), none), -1);
}

TEST(OsProcess, CaughtRunGivesOutputAndStatusAndPutsTheStreamsBack) {
    int status = -1;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int next = host_dup(1);
    host_close(next);
    EXPECT_EQ(output_of({"--stderr", "complaint"}, &status), "complaint");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output_of({"--exit", "42"}, &status), "");
    EXPECT_EQ(status, 42);
    const int after = host_dup(1);
    host_close(after);
    EXPECT_EQ(after, next) << "a descriptor stayed open";
    fputs("out", stdout);
    fputs("err", stderr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "err");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "out");

    const std::string program = child_program();
    FILE *f = os_popenv(program.c_str(), "one", "two words", nullptr);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(read_all(f), "<one>\n<two words>\n");
    EXPECT_EQ(os_pclose(f), 0);
    EXPECT_EQ(os_pclose(nullptr), -1);
    EXPECT_EQ(os_pclose(stdout), -1);
    EXPECT_EQ(fflush(stdout), 0) << "it was closed";
}

// A start that fails on the way leaves the streams caught, on purpose; what is refused before does
// not.
TEST(OsProcess, CaughtRunThatCannotStartLeavesTheStreamsCaught) {
    const Scratch scratch;
    const std::string text = scratch.write("notes.txt", "no program");
    const int out = host_dup(1);
    const int err = host_dup(2);
    testing::internal::CaptureStdout();
    for (const char *program : {static_cast<const char *>(nullptr), "missing"})
        EXPECT_EQ(os_popenv(program, nullptr), nullptr);
    puts("seen");
    EXPECT_EQ(os_popenv(text.c_str(), nullptr), nullptr);
    puts("lost");
    fflush(stdout);
    const std::string captured = testing::internal::GetCapturedStdout();
    host_dup2(out, 1);
    host_dup2(err, 2);
    EXPECT_EQ(captured, "seen\n");
}

TEST(OsProcess, StartedProgramsInheritNothing) {
    const Scratch scratch;
    FILE *f = host_fopen(scratch.path("f").c_str(), "w");
    const int copy = host_dup(host_fileno(f));
    for (const int descriptor : {host_fileno(f), copy}) {
        int inherited = -1;
        output_of({"--inherited", std::to_string(descriptor).c_str()}, &inherited);
        EXPECT_EQ(inherited, 0) << descriptor;
    }
    host_close(copy);
    fclose(f);
}

static ProcessHandle start_child(const char *option, const char *value) {
    const std::string program = child_program();
    const char *argv[] = {program.c_str(), option, value, nullptr};
    const std::string line = '"' + program + "\" " + option + ' ' + value + ' ';
    return host_start_process(program.c_str(), argv, line.c_str());
}

TEST(OsProcess, StartedProgramsAreWaitedFor) {
    const ProcessHandle first = start_child("--exit", "0");
    const ProcessHandle second = start_child("--exit", "7");
    const ProcessHandle killed = start_child("--raise", "15"); // SIGTERM
    int status = -1;
    EXPECT_TRUE(host_wait_process(killed, &status));
    EXPECT_EQ(status, os_kind() != 0 ? 3 : 128 + SIGTERM);
    EXPECT_TRUE(host_wait_process(first, &status));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(host_wait_process(second, &status));
    EXPECT_EQ(status, 7);

    const char *argv[] = {"missing", nullptr};
    EXPECT_EQ(host_start_process("./missing", argv, "missing"), 0);
    EXPECT_FALSE(host_wait_process(0, &status));
}

// Redirects both standard streams, as the runs of programs do, and dies. What the handler then
// writes must come out on the streams as they were.
static void die_redirected(int number) {
    os_catch_signals();
    const std::string program = child_program();
    const char *argv[] = {program.c_str(), nullptr};
    os_spawn(program.c_str(), argv);
    FILE *f = host_fopen(os_tempname(nullptr).get(), "w");
    host_dup2(host_fileno(f), 1);
    host_dup2(host_fileno(f), 2);
    raise(number);
}

TEST(OsProcessDeathTest, FatalSignalsPutTheStreamsBack) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the handler exits: not in a forked copy
    const char *message = "contact Norvane support with details\n\n$";
    for (const int number : {SIGSEGV, SIGABRT, SIGFPE})
        EXPECT_EXIT(die_redirected(number), testing::ExitedWithCode(number), message);
    for (const int number : {SIGINT, SIGTERM})
        EXPECT_EXIT(die_redirected(number), testing::ExitedWithCode(number), "^$");
}
