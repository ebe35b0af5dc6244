#include "platform/osdep.h"
#include "support/scratch.h"

#include <cerrno>
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
    const std::pair<const char *, int> cases[] = {{"8", 8},
                                                  {" 12x", 12},
                                                  {"-3", 1},
                                                  {"0", system},
                                                  {"", system},
                                                  {"abc", system},
                                                  {"99999999999999999999", INT32_MAX}};
    for (const auto &[value, cores] : cases) {
        os_setenv("bamboo_capability_Cores", value);
        EXPECT_EQ(os_ncores(true), cores) << value;
        EXPECT_EQ(os_ncores(false), system) << value;
    }
    os_setenv("bamboo_capability_Cores", "");
}

TEST(OsProcess, NamesOfTheHost) {
    EXPECT_STREQ(os_osname(), os_kind() != 0 ? "Microsoft Windows" : "Linux");
    EXPECT_EQ(text_of(os_hostname()), "localhost");
}

// Nothing is escaped, so that these are the texts that arrive on either host.
TEST(OsProcess, ArgumentsArriveAsTheRuntimeSplitsThem) {
    const struct {
        std::vector<const char *> sent;
        const char *received;
    } cases[] = {
        {{"a b", "c\td"}, "<a b>\n<c\td>\n"},
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
    EXPECT_EQ(text_of(os_quote_arg("a\n")) + text_of(os_quote_arg("\xa0")), "\"a\n\"\xa0");
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
    const OwnedString temporaries = os_dirname(os_tempname_plain().get());
    os_rmtree(temporaries.get());
    EXPECT_EQ(output_of({}), "(not run)") << "nowhere to catch the output";
    EXPECT_EQ(os_mkdir(temporaries.get()), 0);
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

TEST(OsProcess, StartedProgramsAreWaitedFor) {
    const std::string program = child_program();
    const auto start = [&](const char *option, const char *value) {
        const char *argv[] = {program.c_str(), option, value, nullptr};
        const std::string line = '"' + program + "\" " + option + ' ' + value + ' ';
        return host_start_process(program.c_str(), argv, line.c_str());
    };
    const ProcessHandle first = start("--exit", "0"), second = start("--exit", "7");
    int status = -1;
    EXPECT_TRUE(host_wait_process(start("--raise", "15"), &status)); // SIGTERM
    EXPECT_EQ(status, os_kind() != 0 ? 3 : 128 + SIGTERM);
    EXPECT_TRUE(host_wait_process(first, &status));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(host_wait_process(second, &status));
    EXPECT_EQ(status, 7);
    EXPECT_TRUE(host_wait_process(0, &status));
    EXPECT_EQ(status, 7);
    const char *argv[] = {"missing", nullptr};
    EXPECT_EQ(host_start_process("./missing", argv, "missing"), 0);
    EXPECT_EQ(errno, ENOENT);
    const ProcessHandle held = start("--hold", Scratch().write("lock", "").c_str());
    EXPECT_FALSE(host_wait_process(held, &status, 0));
    host_end_started();
    host_wait_started();
    EXPECT_TRUE(host_wait_process(held, &status, 0));
    EXPECT_TRUE(status != 0 && status != 7);
}

// What the handler writes must come out on the streams as they were, what is held for a redirected
// one there, and no temporary may stay.
TEST(OsProcess, FatalSignalsEndTidily) {
    const Scratch scratch;
    const std::string file = scratch.path("caught");
    const int hang_up = os_kind() != 0 ? 21 : 1; // or SIGBREAK
    for (const int number : {SIGINT, SIGTERM, SIGABRT, SIGSEGV, SIGFPE, hang_up}) {
        const bool fault = number == SIGABRT || number == SIGSEGV || number == SIGFPE;
        int status = -1;
        EXPECT_EQ(
            output_of({"--die", scratch.directory(), std::to_string(number).c_str()}, &status),
            fault ? "\n\n\nAn unexpected problem has been encountered and the program must "
                    "quit; contact Norvane support with details\n\n"
                  : "\n");
        EXPECT_EQ(status, number);
        EXPECT_EQ(read_file(file), "held") << number;
        host_remove(file.c_str());
        EXPECT_TRUE(host_rmdir(scratch.directory())) << number << ": something stayed";
        host_mkdir(scratch.directory());
    }
}

// The lock is free when its holder has ended.
TEST(OsProcess, StartedProgramsEndWithTheirParent) {
    const Scratch scratch;
    const std::string file = scratch.write("lock", "");
    output_of({"--orphan", file.c_str()});
    host_unlock(host_lock(file.c_str()));
    EXPECT_EQ(read_file(file), "held");
}
