#include "host/trace.h"

#include "base/text.h"
#include "support/log_capture.h"

#include <cwchar>
#include <gtest/gtest.h>
#include <string>

static std::string reports;

namespace {

class Trace : public testing::Test {
  protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        reports.clear();
        zvdebug_warn_hook = [](const char *text) { reports += std::string(text) + "\n"; };
        zvdebug_assert_hook = [](uint32_t number, const char *condition, const char *, uint32_t) {
            reports += std::to_string(number) + " " + condition + "\n";
        };
    }

    void TearDown() override {
        trace_flags = 0;
        trace_assert_mode = ASSERT_IGNORE;
        trace_set_step(4);
        trace_set_width(20);
        trace_set_depth(0);
        zvdebug_warn_hook = saved_warn;
        zvdebug_assert_hook = saved_assert;
    }

    LogCapture log;
    decltype(zvdebug_warn_hook) saved_warn = zvdebug_warn_hook;
    decltype(zvdebug_assert_hook) saved_assert = zvdebug_assert_hook;
};

} // namespace

// Line feeds are those of formats and alerts, and no name's.
TEST_F(Trace, EntryAndExitStandAtTheSameIndent) {
    trace_enter("main.cpp", 1, "main");
    trace_enter("/src/alert", 328, "findMsgFiles", "%s", "C:\\dat\n\033[2J\t\xc2\x9b\xc3\xa4");
    trace_exit("C:\\src/b\\alert", 329, "findMsgFiles", "%u\n%s\n", 7u, "a\nb");
    trace_exit("a_rather_long_name.cpp", 1234567, "main");
    EXPECT_EQ(reports, "");
    trace_exit("f", 1, "g");
    EXPECT_EQ(reports, "min debug-out indent level reached\n");
    EXPECT_EQ(log.take(), "main.cpp:1          > ENTER main()\n"
                          "alert:328           >     ENTER findMsgFiles(C:\\dat??[2J??\xc3\xa4)\n"
                          "alert:329           >     EXIT findMsgFiles() -> 7\na?b\n\n"
                          "a_rather_long_name.cpp:1234567> EXIT main()\n"
                          "f:1                 > EXIT g()\n");
}

TEST_F(Trace, LayoutLimits) {
    trace_set_depth(3);
    trace_set_step(UINT32_MAX / 2);
    EXPECT_EQ(trace_step(), UINT32_MAX / 2);
    EXPECT_EQ(trace_indent(), UINT32_MAX);
    trace_pop();
    EXPECT_EQ(trace_indent(), UINT32_MAX - 1);
    trace_set_depth(UINT32_MAX);
    trace_push();
    EXPECT_EQ(trace_depth(), UINT32_MAX);
    trace_set_width(4);
    EXPECT_EQ(trace_width(), 4u);
    trace_assert_mode = ASSERT_ERROR;
    trace_set_width(0);
    EXPECT_EQ(reports, "max debug-out indent level readched\n1502 width != 0\n"
                       "desired trace width (0) is < default (20)\n");
}

TEST_F(Trace, FreeLinesAndAlertCopies) {
    const std::string text(10000, 'x');
    tracef("f", 1, "\n%s=%d\n\n100%%\nend\n", text.c_str(), 5);
    trace("f", 2, "a%s\n\033b");
    trace_alert("not asked for\n");
    trace_flags = TRACE_ALERTS;
    trace_set_depth(1);
    trace_alert("\to\rne\n");
    trace_set_alert_src("x/f.c", 3);
    trace_alert("two\n");
    trace_set_alert_src(nullptr, 0);
    EXPECT_EQ(log.take(), "f:1                 > " + text +
                              "=5\n"
                              "f:1                 > 100%%\n"
                              "f:1                 > end\n"
                              "f:2                 > a%s\n"
                              "f:2                 > ?b\n"
                              "ALERT> \to?ne\nf.c:3               >     two\n");
    if (host_kind() == 0) // whose printf refuses half a character, and leaves the format
        tracef("f", 5, "%lc", static_cast<wint_t>(0xd800));
    EXPECT_EQ(log.take(), host_kind() == 0 ? "f:5                 >     %lc\n" : "");
    zvdebug_assert("ignored", "f", 1);
    tracef("d\n/f", 3, "\n");
    trace("d/f", 4, "");
    EXPECT_EQ(reports,
              "tracef (at d?/f:3) contains no lines\ntrace (at d/f:4) contains no lines\n");
}

TEST_F(Trace, HexDumps) {
    const char bytes[] = "\x01z \x80\n~";
    const OwnedString at = str_format("%p", static_cast<const void *>(bytes));
    const OwnedString next = str_format("%p", static_cast<const void *>(bytes + 4));
    const std::string where = "f:9                 >     ";
    const std::string first = "\n" + where + at.get() + " | 01 7A 20 80";
    const std::string second = "\n" + where + next.get() + " | 0A 7E";
    const struct {
        size_t size, per_row;
        bool with_chars;
        std::string expected; // after the header
    } cases[] = {
        {0, 4, true, " zero bytes\n"},
        {3, 4, true, " | 01 7A 20    | . z  \n"},
        {4, 4, true, " | 01 7A 20 80 | . z   .\n"},
        {6, 4, true, first + " | . z   ." + second + "       | . ~\n"},
        {6, 4, false, first + second + "\n"},
        {2, 0, false, " | 01 7A\n"},
    };
    trace_set_depth(1);
    for (const auto &c : cases) {
        trace_hexdump("buf", bytes, c.size, c.per_row, c.with_chars, "f", 9);
        EXPECT_EQ(log.take(), where + "Hexdump: buf (" + at.get() + ")" + c.expected) << c.size;
    }
}

TEST_F(Trace, NullsAreReportedAndSurvived) {
    trace_assert_mode = ASSERT_WARNING;
    trace_enter(nullptr, 1, nullptr);
    trace_hexdump(nullptr, nullptr, 3, 2, true, "f", 3);
    trace_alert(nullptr);
    trace_set_alert_src(nullptr, 0);
    trace_puts(nullptr);
    trace_args(1, nullptr);
    void (*unchecked)(const char *, ...) = trace_printf;
    unchecked(nullptr);
    void (*unchecked_lines)(const char *, uint32_t, const char *, ...) = tracef;
    unchecked_lines(nullptr, 4, nullptr);
    trace(nullptr, 5, nullptr);
    trace_exit(nullptr, 6, nullptr);
    EXPECT_EQ(log.take(), "(null):1            > ENTER (null)()\n"
                          "(null):6            > EXIT (null)()\n");
    EXPECT_EQ(reports, "1501 src != NULL\n1501 func != NULL\n1501 name != NULL\n"
                       "1501 addr != NULL\n1501 msg != NULL\n1501 alert_func != NULL\n"
                       "1501 src != NULL\n1501 str != NULL\n1501 argv != NULL\n"
                       "1501 args != NULL\n1501 fmt != NULL\n1501 src != NULL\n"
                       "1501 fmt != NULL\ntracef (at (null):4) contains no lines\n"
                       "1501 src != NULL\n1501 txt != NULL\n"
                       "trace (at (null):5) contains no lines\n"
                       "1501 src != NULL\n1501 func != NULL\n");
}

// The header and the warning belong to the process, so these need one of their own.
TEST_F(Trace, HeaderAndWarningComeOnce) {
    const auto run = [this] {
        const char *argv[] = {"prog", "-\n", nullptr, "unseen"};
        trace_args(4, argv);
        trace_args(0, argv);
        const bool written = log.take() == "\nAPP: KESTREL\nARGS: prog -?\nARGS: None\n";
        trace_use(host_fopen(child_program().c_str(), "r"), nullptr);
        errno = 77;
        trace_puts("lost");
        trace_puts("lost");
        const bool once = reports == "Unable to write to the debug-out file\n";
        exit(written && once && errno == 77 ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(saved_assert(1503, "c", "f", 1), testing::ExitedWithCode(1),
                "^.1503. assertion failure: c .f:1. \n$"); // before the alerts are asked
}
