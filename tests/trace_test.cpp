#include "trace.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>

namespace {

std::string warnings;

void keep_warning(const char *text) {
    warnings += text;
    warnings += '\n';
}

std::string assertions;

void keep_assertion(uint32_t number, const char *condition, const char *, uint32_t) {
    assertions += std::to_string(number) + " " + condition + "\n";
}

class TraceTest : public testing::Test {
  protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        warnings.clear();
        assertions.clear();
        zvdebug_warn_hook = keep_warning;
        zvdebug_assert_hook = keep_assertion;
        trace_stream = tmpfile();
        ASSERT_NE(trace_stream, nullptr);
    }

    void TearDown() override {
        if (trace_stream != nullptr)
            fclose(trace_stream);
        trace_stream = nullptr;
        trace_flags = 0;
        trace_assert_mode = ASSERT_IGNORE;
        trace_set_step(4);
        trace_set_width(20);
        trace_set_depth(0);
        zvdebug_warn_hook = saved_warn;
        zvdebug_assert_hook = saved_assert;
    }

    // What was written since the last call.
    std::string log() {
        std::string text;
        fseek(trace_stream, read_up_to, SEEK_SET);
        for (int c = getc(trace_stream); c != EOF; c = getc(trace_stream))
            text += static_cast<char>(c);
        read_up_to = ftell(trace_stream);
        fseek(trace_stream, 0, SEEK_END);
        return text;
    }

  private:
    decltype(zvdebug_warn_hook) saved_warn = zvdebug_warn_hook;
    decltype(zvdebug_assert_hook) saved_assert = zvdebug_assert_hook;
    long read_up_to = 0;
};

std::string pointer_text(const void *address) {
    std::array<char, 64> text{};
    snprintf(text.data(), text.size(), "%p", address);
    return text.data();
}

} // namespace

TEST_F(TraceTest, EntryAndExitStandAtTheSameIndent) {
    trace_enter("main.cpp", 1, "main");
    trace_enter("/src/alert", 328, "findMsgFiles", "%s", "C:\\dat");
    trace_exit("C:\\src/b\\alert", 329, "findMsgFiles", "%u", 7U);
    trace_exit("a_rather_long_name.cpp", 1234567, "main");
    EXPECT_EQ(log(), "main.cpp:1          > ENTER main()\n"
                     "alert:328           >     ENTER findMsgFiles(C:\\dat)\n"
                     "alert:329           >     EXIT findMsgFiles() -> 7\n"
                     "a_rather_long_name.cpp:1234567> EXIT main()\n");
    EXPECT_EQ(warnings, "");
}

TEST_F(TraceTest, ExitWithoutEntryWarnsAndStaysAtTheMargin) {
    trace_exit("f", 1, "g");
    EXPECT_EQ(log(), "f:1                 > EXIT g()\n");
    EXPECT_EQ(warnings, "min debug-out indent level reached\n");
    EXPECT_EQ(trace_depth(), 0U);
}

TEST_F(TraceTest, IndentFollowsDepthAndStepAndSaturates) {
    trace_set_depth(3);
    EXPECT_EQ(trace_indent(), 12U);
    trace_set_step(UINT32_MAX / 2);
    EXPECT_EQ(trace_indent(), UINT32_MAX);
    trace_pop();
    EXPECT_EQ(trace_indent(), UINT32_MAX - 1);
    trace_set_depth(UINT32_MAX);
    trace_push();
    EXPECT_EQ(trace_depth(), UINT32_MAX);
    EXPECT_EQ(warnings, "max debug-out indent level readched\n");
}

TEST_F(TraceTest, NarrowWidthsAreTakenWithAWarning) {
    trace_assert_mode = ASSERT_ERROR;
    trace_set_width(4);
    EXPECT_EQ(warnings + assertions, "");
    trace_set_width(3);
    EXPECT_EQ(warnings, "desired trace width (3) is < default (20)\n");
    trace_set_width(0);
    EXPECT_EQ(assertions, "1502 width != 0\n");
    trace("ab", 1, "x");
    EXPECT_EQ(log(), "ab:1> x\n");
}

TEST_F(TraceTest, OnlyTheFirstLineOfAFormatIsFormatted) {
    tracef("f", 1, "\n%s=%d\n\n100%%\nend", "x", 5);
    EXPECT_EQ(log(), "f:1                 > x=5\n"
                     "f:1                 > 100%%\n"
                     "f:1                 > end\n");
    trace("f", 2, "a%s\nb\n");
    EXPECT_EQ(log(), "f:2                 > a%s\n"
                     "f:2                 > b\n");
}

TEST_F(TraceTest, TextWithoutLinesWarns) {
    tracef("d/f", 1, "\n");
    trace("d/f", 2, "");
    trace("d/f", 3, nullptr);
    EXPECT_EQ(warnings, "tracef (at d/f:1) contains no lines\n"
                        "trace (at d/f:2) contains no lines\n"
                        "trace (at d/f:3) contains no lines\n");
    EXPECT_EQ(log(), "");
}

TEST_F(TraceTest, LongTextIsNotCut) {
    const std::string text(10000, 'x');
    trace_printf("%s.", text.c_str());
    EXPECT_EQ(log(), text + ".\n");
}

TEST_F(TraceTest, HexDumps) {
    const char bytes[] = "\x01z 0123456789\x80\xff\nkest";
    const std::string at = pointer_text(bytes);
    const std::string next = pointer_text(bytes + 16);
    const std::string where = "f:9                 >     ";
    const std::string row = " 01 7A 20 30 31 32 33 34 35 36 37 38 39 80 FF 0A";
    const std::string chars = " | . z   0 1 2 3 4 5 6 7 8 9 . . .";
    const struct {
        size_t size, per_row;
        bool with_chars;
        std::string expected; // behind the header
    } cases[] = {
        {0, 16, true, " zero bytes\n"},
        {3, 4, false, " | 01 7A 20\n"},
        {3, 4, true, " | 01 7A 20    | . z  \n"},
        {16, 16, true, " |" + row + chars + "\n"},
        {20, 16, true,
         "\n" + where + at + " |" + row + chars + "\n" + where + next + " | 6B 65 73 74" +
             std::string(36, ' ') + " | k e s t\n"},
        {20, 16, false, "\n" + where + at + " |" + row + "\n" + where + next + " | 6B 65 73 74\n"},
        {2, 0, false, " | 01 7A\n"},
    };
    trace_set_depth(1);
    for (const auto &c : cases) {
        trace_hexdump("buf", bytes, c.size, c.per_row, c.with_chars, "f", 9);
        EXPECT_EQ(log(), where + "Hexdump: buf (" + at + ")" + c.expected) << c.size;
    }
}

TEST_F(TraceTest, AlertCopiesStandUnderTheirSource) {
    trace_alert("not asked for\n");
    trace_flags = TRACE_ALERTS;
    trace_set_depth(1);
    trace_alert("one\n");
    trace_set_alert_src("x/f.c", 3);
    trace_alert("two\n");
    trace_set_alert_src(nullptr, 0);
    trace_alert("three\n");
    EXPECT_EQ(log(), "ALERT> one\n"
                     "f.c:3               >     two\n"
                     "ALERT> three\n");
}

TEST_F(TraceTest, NullsAreReportedAndSurvived) {
    trace_assert_mode = ASSERT_WARNING;
    trace_enter(nullptr, 1, nullptr);
    trace_exit(nullptr, 2, nullptr);
    trace_hexdump(nullptr, nullptr, 3, 2, true, "f", 3);
    trace_alert(nullptr);
    trace_puts(nullptr);
    trace_args(1, nullptr);
    EXPECT_EQ(log(), "(null):1            > ENTER (null)()\n"
                     "(null):2            > EXIT (null)()\n");
    EXPECT_EQ(assertions, "1501 src != NULL\n1501 func != NULL\n"
                          "1501 src != NULL\n1501 func != NULL\n"
                          "1501 name != NULL\n1501 addr != NULL\n"
                          "1501 msg != NULL\n1501 str != NULL\n1501 argv != NULL\n");
}

TEST_F(TraceTest, LoggingLeavesErrnoAlone) {
    fclose(trace_stream);
    trace_stream = fopen("no such directory/x", "w");
    ASSERT_EQ(trace_stream, nullptr);
    const int wanted = errno;
    trace_puts("nothing is open");
    trace_enter("f", 1, "g");
    EXPECT_EQ(trace_depth(), 1U);
    EXPECT_EQ(errno, wanted);
}

// The header belongs to the process, so this needs one of its own.
TEST_F(TraceTest, HeaderIsWrittenOnce) {
    const auto run = [this] {
        const char *argv[] = {"prog", "-g", nullptr, "unseen"};
        trace_args(4, argv);
        trace_args(0, argv);
        exit(log() == "\nAPP: KESTREL\nARGS: prog -g\nARGS: None\n" ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(TraceDefaultTest, AssertionsActByMode) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [](AssertMode mode) {
        trace_assert_mode = mode;
        DEBUG_ASSERT(1 + 1 == 3);
        exit(7);
    };
    EXPECT_EXIT(run(ASSERT_IGNORE), testing::ExitedWithCode(7), "^$");
    EXPECT_EXIT(run(ASSERT_FATAL), testing::ExitedWithCode(1), "1503. assertion .*1 . 1 == 3");
    EXPECT_EXIT(run(ASSERT_ERROR), testing::ExitedWithCode(7), "1502. assertion ");
    EXPECT_EXIT(run(ASSERT_WARNING), testing::ExitedWithCode(7), "1501. assertion ");
}
