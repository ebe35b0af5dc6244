#include "trace.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

std::string reports;

class TraceTest : public testing::Test {
  protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        reports.clear();
        zvdebug_warn_hook = [](const char *text) { reports += std::string(text) + "\n"; };
        zvdebug_assert_hook = [](uint32_t number, const char *condition, const char *, uint32_t) {
            reports += std::to_string(number) + " " + condition + "\n";
        };
        trace_stream = tmpfile();
        ASSERT_NE(trace_stream, nullptr);
    }

    void TearDown() override {
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
    static std::string log() {
        std::string text;
        rewind(trace_stream);
        for (int c = getc(trace_stream); c != EOF; c = getc(trace_stream))
            text += static_cast<char>(c);
        fclose(trace_stream);
        trace_stream = tmpfile();
        return text;
    }

  private:
    decltype(zvdebug_warn_hook) saved_warn = zvdebug_warn_hook;
    decltype(zvdebug_assert_hook) saved_assert = zvdebug_assert_hook;
};

} // namespace

TEST_F(TraceTest, EntryAndExitStandAtTheSameIndent) {
    trace_enter("main.cpp", 1, "main");
    trace_enter("/src/alert", 328, "findMsgFiles", "%s", "C:\\dat");
    trace_exit("C:\\src/b\\alert", 329, "findMsgFiles", "%u", 7U);
    trace_exit("a_rather_long_name.cpp", 1234567, "main");
    EXPECT_EQ(reports, "");
    trace_exit("f", 1, "g");
    EXPECT_EQ(reports, "min debug-out indent level reached\n");
    EXPECT_EQ(log(), "main.cpp:1          > ENTER main()\n"
                     "alert:328           >     ENTER findMsgFiles(C:\\dat)\n"
                     "alert:329           >     EXIT findMsgFiles() -> 7\n"
                     "a_rather_long_name.cpp:1234567> EXIT main()\n"
                     "f:1                 > EXIT g()\n");
}

TEST_F(TraceTest, LayoutLimits) {
    trace_set_depth(3);
    trace_set_step(UINT32_MAX / 2);
    EXPECT_EQ(trace_indent(), UINT32_MAX);
    trace_pop();
    EXPECT_EQ(trace_indent(), UINT32_MAX - 1);
    trace_set_depth(UINT32_MAX);
    trace_push();
    EXPECT_EQ(trace_depth(), UINT32_MAX);
    trace_set_width(4);
    trace_assert_mode = ASSERT_ERROR;
    trace_set_width(0);
    EXPECT_EQ(reports, "max debug-out indent level readched\n1502 width != 0\n"
                       "desired trace width (0) is < default (20)\n");
}

TEST_F(TraceTest, OnlyTheFirstLineOfAFormatIsFormatted) {
    const std::string text(10000, 'x');
    tracef("f", 1, "\n%s=%d\n\n100%%\nend\n", text.c_str(), 5);
    trace("f", 2, "a%s\nb");
    EXPECT_EQ(log(), "f:1                 > " + text +
                         "=5\n"
                         "f:1                 > 100%%\n"
                         "f:1                 > end\n"
                         "f:2                 > a%s\n"
                         "f:2                 > b\n");
    tracef("d/f", 3, "\n");
    trace("d/f", 4, "");
    EXPECT_EQ(reports, "tracef (at d/f:3) contains no lines\ntrace (at d/f:4) contains no lines\n");
}

TEST_F(TraceTest, HexDumps) {
    const char bytes[] = "\x01z 0123456789\x80\xff\nkest";
    std::array<char, 64> at, next;
    snprintf(at.data(), at.size(), "%p", static_cast<const void *>(bytes));
    snprintf(next.data(), next.size(), "%p", static_cast<const void *>(bytes + 16));
    const std::string where = "f:9                 >     ";
    const std::string row = " | 01 7A 20 30 31 32 33 34 35 36 37 38 39 80 FF 0A";
    const std::string chars = " | . z   0 1 2 3 4 5 6 7 8 9 . . .";
    const std::string last = "\n" + where + next.data() + " | 6B 65 73 74";
    const struct {
        size_t size, per_row;
        bool with_chars;
        std::string expected; // behind the header
    } cases[] = {
        {0, 16, true, " zero bytes\n"},
        {3, 4, false, " | 01 7A 20\n"},
        {3, 4, true, " | 01 7A 20    | . z  \n"},
        {16, 16, true, row + chars + "\n"},
        {20, 16, true,
         "\n" + where + at.data() + row + chars + last + std::string(36, ' ') + " | k e s t\n"},
        {20, 16, false, "\n" + where + at.data() + row + last + "\n"},
        {2, 0, false, " | 01 7A\n"},
    };
    trace_set_depth(1);
    for (const auto &c : cases) {
        trace_hexdump("buf", bytes, c.size, c.per_row, c.with_chars, "f", 9);
        EXPECT_EQ(log(), where + "Hexdump: buf (" + at.data() + ")" + c.expected) << c.size;
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
    EXPECT_EQ(log(), "ALERT> one\nf.c:3               >     two\n");
}

TEST_F(TraceTest, NullsAreReportedAndSurvived) {
    trace_assert_mode = ASSERT_WARNING;
    trace_enter(nullptr, 1, nullptr);
    trace_hexdump(nullptr, nullptr, 3, 2, true, "f", 3);
    trace_alert(nullptr);
    trace_puts(nullptr);
    trace_args(1, nullptr);
    EXPECT_EQ(log(), "(null):1            > ENTER (null)()\n");
    EXPECT_EQ(reports, "1501 src != NULL\n1501 func != NULL\n1501 name != NULL\n"
                       "1501 addr != NULL\n1501 msg != NULL\n1501 str != NULL\n"
                       "1501 argv != NULL\n");
}

// The header belongs to the process, so this needs one of its own.
TEST_F(TraceTest, HeaderIsWrittenOnce) {
    const auto run = [] {
        const char *argv[] = {"prog", "-g", nullptr, "unseen"};
        trace_args(4, argv);
        trace_args(0, argv);
        exit(log() == "\nAPP: KESTREL\nARGS: prog -g\nARGS: None\n" ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}
