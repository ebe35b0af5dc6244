#include "messages/alert.h"

#include "containers/stringcache.h"
#include "platform/osdep.h"
#include "support/log_capture.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <utility>

namespace {

// One row of each type; the last three print "%s", "%s" and "%d".
enum : uint32_t { MESSAGE = 3, WARNING = 1501, ERROR_ROW = 1502, FATAL = 1503 };

} // namespace

static const char MESSAGE_TEXT[] = "malformed error information on line * in file *";

static std::string shown;
static std::string observed;

static void observe(uint32_t number, uintptr_t a, uintptr_t b, uintptr_t c) {
    for (const uintptr_t word : {uintptr_t{number}, a, b, c})
        observed += std::to_string(word) + " ";
}

namespace {

class Alert : public testing::Test {
  protected:
    void SetUp() override {
        alert_init();
        set_maxerrors(UINT_MAX);
        alert_set_output([](const char *line) { shown += line; });
        shown.clear();
    }
    void TearDown() override {
        alert_set_output(nullptr);
        alert_set_hook(nullptr);
        alert_set_position(nullptr, nullptr, nullptr, nullptr);
        alert_use_formats(false);
        alert_set_formats(nullptr, nullptr, nullptr);
        alert_control(0, ALERT_CLEAR);
        set_warnlevel(0);
    }

    // The name of a file that no message was shown for.
    static const char *new_file() {
        static int count = 0;
        return sc_format("file %d", ++count);
    }

    // What was shown since the last call.
    static std::string take() { return std::exchange(shown, {}); }

    // What a call has shown, which returned whether it did.
    static std::string shown_by(int was_shown) {
        EXPECT_EQ(was_shown, shown.empty() ? 0 : 1) << shown;
        return take();
    }

    // The states of a number of each type, as digits.
    static std::string states() {
        std::string digits;
        for (const uint32_t number : {MESSAGE, WARNING, ERROR_ROW, FATAL})
            digits += std::to_string(alert_state(number));
        return digits;
    }
};

} // namespace

// In the fixed layout, and in that of a template that names every part of the position.
TEST_F(Alert, PositionInBothLayouts) {
    const uint32_t line = 12, base = 100, column = 103;
    const std::string no_line = "Non line specific message";
    const std::string in_no_line = no_line + ": : 3: " + no_line + ":|";
    const struct {
        const char *file;
        const uint32_t *line, *column;
        int (*entry)(uint32_t number, ...);
        std::string position, by_template;
    } cases[] = {
        {nullptr, nullptr, nullptr, alert_repeat, "", ": : : :|"},
        {"", nullptr, &column, alert_repeat, "", ": : : :|"},
        {"f", nullptr, &column, alert_repeat, "f: ", "f: : : f:|"},
        {"f", &line, nullptr, alert_repeat, "f: 12: ", "f: 12: : f:12|"},
        {"f", &line, &column, alert_repeat, "f: 12: ", "f: 12: 3: f:12|"},
        {nullptr, &line, &column, alert_repeat, "12: ", ": : : :|"},
        {"f", &line, &column, alert_nl_repeat, no_line + ": ", in_no_line},
        {nullptr, &line, &column, alert_nl_repeat, "", no_line + ": : : " + no_line + ":|"},
        {"f", &line, &column, alert_nopos, ": ", "|"},
    };
    alert_set_formats("%f: %l: %c: %f:%l|", "wrong", "wrong");
    for (const auto &test : cases) {
        alert_set_position(test.file, test.line, &base, test.column);
        EXPECT_EQ(shown_by(test.entry(MESSAGE)), test.position + MESSAGE_TEXT + "\n");
        alert_use_formats(true);
        EXPECT_EQ(shown_by(test.entry(9)), test.by_template + "\n");
        alert_use_formats(false);
    }
    alert_set_position("f", &line, nullptr, nullptr);
    // whatever the entry before it left out
    EXPECT_EQ(shown_by(alert_text(7, "M", "x")), "f: 12: x\n");
}

TEST_F(Alert, Templates) {
    errno = 0;
    alert_use_formats(true);
    alert_set_formats("%a: %n: %m: %q: %s: %%%", "wrong", "wrong");
    EXPECT_EQ(shown_by(alert_repeat(9)),
              sc_format("kestrel: 9: %s: q: %s: %%\n", strerror(0), alert_lookup(9)->text));
    alert_set_formats("wrong", "%s|", nullptr);
    EXPECT_EQ(shown_by(alert_nl_repeat(WARNING, "a", "b", 7)), "assertion failure: a (b:7) |\n");
    EXPECT_EQ(shown_by(alert_repeat(MESSAGE)), std::string(": : ") + MESSAGE_TEXT + "\n");

    os_setenv("ZQT_ERR_FORMAT", "env");
    alert_init();
    EXPECT_STREQ(alert_get_err_format(), "env");
    alert_default_formats("given", "given", nullptr);
    EXPECT_STREQ(alert_get_err_format(), "env");
    EXPECT_STREQ(alert_get_warn_format(), "given");
    EXPECT_STREQ(alert_get_msg_format(), "%f: %l: %s");
    alert_set_formats("given", nullptr, nullptr);
    EXPECT_STREQ(alert_get_err_format(), "given");
    EXPECT_STREQ(alert_get_warn_format(), "%f: %l: (%n) %s (warning)");
    alert_set_formats(nullptr, nullptr, nullptr);
    EXPECT_STREQ(alert_get_err_format(), "env");
}

// The text of the error goes where "%m" is, but what follows writes over it. Formats reach the
// layout here as they may come from a caller that was not checked.
TEST_F(Alert, FormatsThatEndEarlyOrNameTheError) {
    int (*unchecked)(uint32_t, const char *, const char *, ...) = alert_text;
    const std::string reason = strerror(ENOENT);
    const struct {
        const char *format;
        int error;
        std::string expected;
    } cases[] = {
        {"a: %m", ENOENT, "a: " + reason},
        {"a: %m", 0, "a: "},
        {"a: %m%%!", ENOENT, "a: %!" + reason.substr(3)},
        {"%m%m", ENOENT, reason},
        {"100%", 0, "100%"},
        {"100%-5l", 0, "100%-5l"},
        {"%m and a text that is longer than any reason: %s", ENOENT,
         " and a text that is longer than any reason: x"},
    };
    for (const auto &test : cases) {
        errno = test.error;
        EXPECT_EQ(shown_by(unchecked(7, "M", test.format, "x")), test.expected + "\n")
            << test.format;
    }
    errno = ENOENT;
    EXPECT_EQ(shown_by(alert_adhoc("e", "%s", "x")), "(0) x\n");
}

TEST_F(Alert, LongTextsAreCut) {
    const std::string text(9000, 'x');
    rawmsg("%s", text.c_str());
    EXPECT_EQ(take(), text.substr(0, 8190) + "\n");
    EXPECT_EQ(shown_by(alert_adhoc("M", "%s", text.c_str())), text.substr(0, 511) + "\n");
    EXPECT_EQ(shown_by(alert_text(1234567, "E", "%s", text.c_str())),
              "(1234567) " + text.substr(0, 501) + "\n");
    int (*unchecked)(const char *, const char *, ...) = alert_adhoc;
    const std::string format = text.substr(0, 510) + "%s"; // does not fit the room for formats
    EXPECT_EQ(shown_by(unchecked("M", format.c_str(), "y")), text.substr(0, 510) + "\n");
}

TEST_F(Alert, ALineInPiecesGoesToTheLogToo) {
    LogCapture log;
    trace_flags = TRACE_ALERTS;
    contmsg(0, "%d", 1);
    rawmsg("between");
    contmsg(0, "%d", 2);
    contmsg(1, "%d", 3);
    contmsg(1, "%d", 4);
    trace_flags = 0;
    EXPECT_EQ(log.take(), "ALERT> between\nALERT> \t123\nALERT> \t4\n");
    EXPECT_EQ(take(), "between\n\t123\n\t4\n");
    EXPECT_NE(alert_get_output(), nullptr);
}

TEST_F(Alert, TheSameLineIsReportedOnce) {
    uint32_t line = 1;
    alert_set_position(new_file(), &line, nullptr, nullptr);
    EXPECT_EQ(alert(MESSAGE), 1);
    EXPECT_EQ(alert(MESSAGE), 0);
    EXPECT_EQ(alert_nl(MESSAGE), 0); // the same line, though it is not printed
    EXPECT_EQ(alert_repeat(MESSAGE), 1);
    EXPECT_EQ(alert(WARNING, "a", "b", 7), 1);
    line = 2;
    EXPECT_EQ(alert(MESSAGE), 1);
    alert_set_position(new_file(), &line, nullptr, nullptr);
    for (line = 10; line < 500; line++) // more than the table has buckets
        EXPECT_EQ(alert(MESSAGE) + alert(WARNING, "a", "b", 7), 2);
    line = 3; // a hidden message does not count as shown
    set_warnlevel(1);
    EXPECT_EQ(alert(WARNING, "a", "b", 7), 0);
    set_warnlevel(0);
    EXPECT_EQ(alert(WARNING, "a", "b", 7), 1);
}

TEST_F(Alert, TheObserverSeesNumberAndArguments) {
    const uint32_t line = 1;
    const char *const a = "a";
    const char *const b = "b";
    const auto word = [](const char *s) {
        return std::to_string(reinterpret_cast<uintptr_t>(s)) + " ";
    };
    const auto seen = [](int) { return std::exchange(observed, {}); };
    alert_set_hook(observe);
    EXPECT_EQ(alert_get_hook(), observe);
    EXPECT_EQ(seen(alert_nl_repeat(ERROR_ROW, a, b, 7)), "1502 " + word(a) + word(b) + "7 ");
    alert_set_position(new_file(), &line, nullptr, nullptr);
    EXPECT_EQ(seen(alert(MESSAGE)), "3 0 0 0 3 0 0 0 ");
    EXPECT_EQ(seen(alert(MESSAGE)), "3 0 0 0 ");
    EXPECT_EQ(seen(alert_adhoc("M", "%% %*d %.1f %s", 5, 6, 1.5, a)), "0 5 6 0 ");
    EXPECT_EQ(seen(alert_adhoc("M", "%.1f %lld %.*s", 1.5, 1LL << 31, 1, b)), "0 0 2147483648 1 ");
    EXPECT_EQ(seen(alert_adhoc("M", "%zu %s %c", size_t{2}, a, 'c')), "0 2 " + word(a) + "99 ");
    EXPECT_EQ(seen(alert_adhoc("M", "%Lf %ju %lu", 1.0L, UINTMAX_MAX, ULONG_MAX)),
              "0 0 " + std::to_string(UINTMAX_MAX) + " " + std::to_string(ULONG_MAX) + " ");
    EXPECT_EQ(seen(alert_text(7, "M", "%s", a)), "");
}

TEST_F(Alert, StatesChangeWhatALookupGives) {
    constexpr uint32_t NUMBERS[] = {MESSAGE, WARNING, ERROR_ROW, FATAL}, OFF = MSG_SUPPRESSED;
    const struct {
        uint32_t op, types[4];
    } cases[] = {
        {ALERT_DEFAULT, {MSG_MESSAGE, MSG_WARNING, MSG_ERROR, MSG_FATAL}},
        {ALERT_HIDE, {OFF, OFF, MSG_ERROR, MSG_FATAL}},
        {ALERT_OFF, {OFF, OFF, OFF, MSG_FATAL}},
        {ALERT_SOFTEN, {MSG_MESSAGE, MSG_WARNING, MSG_WARNING, MSG_FATAL}},
        {ALERT_HARDEN, {MSG_MESSAGE, MSG_ERROR, MSG_ERROR, MSG_FATAL}},
        {ALERT_DISABLED, {OFF, OFF, OFF, MSG_FATAL}},
    };
    set_warnlevel(4);
    for (const auto &test : cases)
        for (size_t i = 0; i < std::size(NUMBERS); i++) {
            alert_control(NUMBERS[i], test.op);
            EXPECT_EQ(alert_lookup(NUMBERS[i])->type, test.types[i]) << test.op;
        }
    EXPECT_EQ(alert_nl_repeat(ERROR_ROW, "a", "b", 7), 0);
    alert_control(ERROR_ROW, ALERT_SOFTEN);
    EXPECT_EQ(alert_lookup(ERROR_ROW)->level, 4);
    EXPECT_EQ(shown_by(alert_nl_repeat(ERROR_ROW, "a", "b", 7)),
              "(1502) assertion failure: a (b:7)  (warning)\n");
}

TEST_F(Alert, StatesAreSavedAndRestored) {
    alert_control(WARNING, ALERT_HIDE);
    alert_control(0, ALERT_PUSH);
    alert_control(WARNING, ALERT_HARDEN);
    EXPECT_EQ(states(), "0400");
    alert_control(0, ALERT_OFF_ALL);
    EXPECT_EQ(states(), "2220");
    for (int pop = 0; pop < 2; pop++) { // the last one stays
        alert_control(0, ALERT_POP);
        EXPECT_EQ(states(), "0100");
    }
    alert_control(0, ALERT_CLEAR);
    for (const uint32_t number :
         {10000u, 10001u, UINT_MAX}) { // beyond what was cleared, and too high
        alert_control(number, ALERT_OFF);
        EXPECT_EQ(alert_state(number), number == 10000 ? ALERT_OFF : ALERT_DEFAULT);
    }
    alert_control(WARNING, 11);
    EXPECT_EQ(states(), "0000");
}

TEST_F(Alert, DisableLists) {
    const std::pair<const char *, const char *> cases[] = {
        {nullptr, "0000"},
        {"", "0000"},
        {"0,1502", "1100"},
        {"3,1502:off", "1050"},
        {",3:Offx, 1501 :off,,1502,", "5110"},
        {"x,:off,-3,99999999999999,1501", "0100"}};
    for (const auto &[list, expected] : cases) {
        alert_control(0, ALERT_CLEAR);
        alert_disable(list);
        EXPECT_EQ(states(), expected) << list;
        EXPECT_EQ(alert_state(0), 0u) << list;
    }
}

TEST_F(Alert, LevelsOfTheCallersTypes) {
    const struct {
        const char *type;
        int32_t level;
    } cases[] = {{"-2", -2}, {"3", 3}, {"-", 10}, {"M", 10}, {"w3", 10}, {"", 10}, {"E", 10}};
    for (const auto &test : cases) {
        set_warnlevel(test.level);
        EXPECT_EQ(alert_adhoc(test.type, "x"), 1) << test.type;
        EXPECT_EQ(set_warnlevel(test.level + 1), test.level);
        EXPECT_EQ(alert_adhoc(test.type, "x"), 0) << test.type;
    }
    EXPECT_EQ(set_maxerrors(7), UINT_MAX);
    EXPECT_EQ(set_maxerrors(UINT_MAX), 7u);
    EXPECT_EQ(alert_adhoc("F", "x"), 0); // not even the end, at a threshold of 11
}

// What is shown, and whether that is a failure, after each of some messages.
static void count_failures() {
    alert_set_output([](const char *) {});
    const auto report = [](int was_shown) { fprintf(stderr, "%d%d ", was_shown, alert_failed()); };
    alert_set_warn_fails(true);
    set_warnlevel(1);
    report(alert_nl_repeat(WARNING, "a", "b", 7));
    report(alert_nl_repeat(MESSAGE));
    report(alert_adhoc("3", "the caller's own"));
    set_warnlevel(0);
    report(alert_nl_repeat(WARNING, "a", "b", 7));
    alert_set_warn_fails(false);
    set_warnlevel(11);
    report(alert_adhoc("M", "hidden"));
    report(alert_adhoc("E", "hidden"));
    exit(40);
}

// Each is the first call in its process.
TEST(AlertExit, CountsEndsAndFirstCalls) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        void (*run)();
        int status;
        const char *expected;
    } cases[] = {
        {count_failures, 40, "^00 10 10 11 00 01 $"},
        {[] {
             for (int i = 1; i <= 21; i++)
                 alert_nl_repeat(ERROR_ROW, "a", "b", i);
         },
         1, "b:20. \ntoo many errors .21.\nstatus 1$"},
        {[] {
             alert_set_position("f", nullptr, nullptr, nullptr);
             set_maxerrors(0), alert_nl(ERROR_ROW, "a", "b", 7);
         },
         1, "^Non line specific message: too many errors .1.\nstatus 1$"},
        {[] { set_maxerrors(0), alert_adhoc("e", "lost"); }, 1, "^too many errors .1.\nstatus 1$"},
        {[] { set_maxerrors(0), alert(FATAL, "a", "b", 7); }, 1,
         "^.1503. assertion failure: a .b:7. \nstatus 1$"},
        {[] {
             alert_init(); // so that the alert is the first line that the log cannot take
             trace_use(host_fopen(child_program().c_str(), "r"), nullptr);
             trace_flags = TRACE_ALERTS;
             zvdebug_warn_hook = [](const char *text) { rawmsg("%s", text); };
             alert(FATAL, "a", "b", 7);
         },
         1,
         "^Unable to write to the debug-out file\n.1503. assertion failure: a .b:7. \nstatus 1$"},
        {[] { errno = ENOENT, alert_nl(141, "debug-out", "x"); }, 1,
         "^.141. can't open debug-out file \"x\": No such file or directory\nstatus 1$"},
        {[] {
             alert_set_hook([](auto...) { fputs("observed", stderr); });
             alert_adhoc("f", "x");
         },
         1, "^.0. x\nstatus 1$"},
        {[] { alert_fatal(3); }, 1,
         "^.5. QRN has encountered .* following details: common_test fatal error 3\nstatus 1$"},
        {[] { exit(msgnum_valid(1503) ? 40 : 41); }, 40, "^$"},
        {[] { exit(alert_lookup(FATAL)->type == MSG_FATAL ? 40 : 41); }, 40, "^$"},
        {[] { alert_disable("0"), exit(alert_state(WARNING) == ALERT_HIDE ? 40 : 41); }, 40, "^$"},
        {[] { alert_use_formats(true), alert_adhoc("f", "x"); }, 1, "^env 0\nstatus 1$"},
        {[] { alert_use_formats(true), alert_set_formats("%n", "", ""), alert(9), exit(40); }, 40,
         "^9\n$"},
        {[] {
             alert_use_formats(true), alert_default_formats("", "%n", "");
             alert(WARNING, "a", "b", 7), exit(40);
         },
         40, "^1501\n$"},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.expected);
        const auto run = [&test] {
            // The hook returns.
            alert_exit_hook = [](int status) { fprintf(stderr, "status %d", status); };
            os_setenv("ZQT_ERR_FORMAT", "env %n");
            test.run();
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(test.status), test.expected);
    }
}
