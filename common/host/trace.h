// The debug log: the writers of its lines, and the switches that the debug option sets. Nothing is
// written while no stream is open; every line is flushed at once, so that the log is complete even
// if the process dies. Control characters are shown as "?", except the line feeds of a format, and
// line feeds and tabs in text without one.
#ifndef KESTREL_HOST_TRACE_H
#define KESTREL_HOST_TRACE_H

#include "base/xalloc.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <utility>

// Debug flags; any of them set means the log is on.
enum : uint32_t {
    TRACE_GENERAL = 1,
    TRACE_SDB = 2,
    TRACE_DWARF = 4,
    TRACE_ALERTS = 8, // copy every alert line into the log
    TRACE_ADT = 16,   // accounts of the containers
};
extern uint32_t trace_flags;

// What a failed debug assertion does.
enum AssertMode : uint32_t {
    ASSERT_IGNORE = 0,
    ASSERT_FATAL = 1,
    ASSERT_ERROR = 2,
    ASSERT_WARNING = 3
};
extern AssertMode trace_assert_mode;

// --- The log's file

// Opens the log, emptied first unless `append`, in the place of an earlier one. False, with the
// reason in errno, if that fails; an earlier one then stays. The path is not copied.
bool trace_open(const char *path, bool append);

// The same with a stream that is open already, and is closed with the log; null for no log.
void trace_use(FILE *stream, const char *path);

// The open log and its path; null without one.
FILE *trace_log();
const char *trace_path();

// --- Reports on the debug layer itself. They are here so that every floor has them.

// Receives the finished text of a warning, without a line end. By default it goes to standard
// error.
extern void (*zvdebug_warn_hook)(const char *text);

// Receives a failed debug assertion: message 1503 (fatal), 1502 (error) or 1501 (warning). By
// default it prints the message, and exits with status 1 when it is fatal.
extern void (*zvdebug_assert_hook)(uint32_t number, const char *condition, const char *file,
                                   uint32_t line);

// "ZVDEBUG (warning): " and the text; counts for nothing.
void zvdebug_warn(const char *format, ...) PRINTF_LIKE(1, 2);

// Reports a failed condition as the assertion mode says; nothing in mode ignore.
void zvdebug_assert(const char *condition, const char *file, uint32_t line);

// A debugger stops in db_assert() at a failed assertion, and sets gInDebugger to announce itself.
extern "C" __attribute__((noinline)) void db_assert();
extern "C" int gInDebugger;

// A check that costs one load and branch unless --zvdebug=assert asks for it. The text of the
// expression is what is reported.
#define DEBUG_ASSERT(expression)                                                                   \
    ((trace_assert_mode == ASSERT_IGNORE || (expression))                                          \
         ? (void)0                                                                                 \
         : zvdebug_assert(#expression, __FILE__, __LINE__))

// --- Entry, exit and other lines

// "ENTER func(...)" and one level deeper; one level back and "EXIT func() -> ...". A null format
// leaves the arguments or the result out.
void trace_enter(const char *src, uint32_t line, const char *func, const char *format = nullptr,
                 ...) PRINTF_LIKE(4, 5);
void trace_exit(const char *src, uint32_t line, const char *func, const char *format = nullptr, ...)
    PRINTF_LIKE(4, 5);

// One line for each line of the format; only the first is formatted, the rest stands as it is.
void tracef(const char *src, uint32_t line, const char *fmt, ...) PRINTF_LIKE(3, 4);

// The same for plain text.
void trace(const char *src, uint32_t line, const char *txt);

// A call of a function: the constructor writes the entry, and the destructor the exit, unless
// leave() has written one with a result. One that is made without arguments writes nothing.
class TraceScope {
  public:
    TraceScope() = default;
    TraceScope(const char *src, uint32_t line, const char *func, const char *format = nullptr, ...)
        PRINTF_LIKE(5, 6);
    TraceScope(const TraceScope &) = delete;
    TraceScope &operator=(const TraceScope &) = delete;
    ~TraceScope();

    bool is_entered() const { return function != nullptr; }
    void leave(const char *src, uint32_t line, const char *format = nullptr, ...) PRINTF_LIKE(4, 5);

  private:
    const char *source = nullptr;
    uint32_t entry_line = 0;
    const char *function = nullptr; // null if no exit is to be written
};

// The tracing convention: entry and exit whenever the log is on, free lines under TRACE_GENERAL.
// TRACE_ENTER comes first in a function. TRACE_EXIT is only needed for an exit with a result;
// TRACE_RESULT(value, format, ...) does the same as an expression that is `value`, to be returned.
#define TRACE_ENTER(...)                                                                           \
    TraceScope trace_scope =                                                                       \
        trace_flags != 0 ? TraceScope(__FILE__, __LINE__, __func__ __VA_OPT__(, ) __VA_ARGS__)     \
                         : TraceScope()
#define TRACE_EXIT(...)                                                                            \
    TRACE_IF(trace_scope.is_entered(), trace_scope.leave __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_RESULT(value, ...) (TRACE_EXIT(__VA_ARGS__), (value))
#define TRACE_MESSAGE(...) TRACE_IF((trace_flags & TRACE_GENERAL) != 0, tracef, __VA_ARGS__)

// While it lives the log is off, and started programs get none.
class TraceSilence {
  public:
    TraceSilence() = default;
    ~TraceSilence() { trace_flags = flags; }
    TraceSilence(const TraceSilence &) = delete;
    TraceSilence &operator=(const TraceSilence &) = delete;

  private:
    const uint32_t flags = std::exchange(trace_flags, 0);
};

// A line under the name of the function it reports for, whenever the log is on.
#define TRACE_REPORT(function, format, ...)                                                        \
    TRACE_IF(trace_flags != 0, tracef, "%s: " format, function __VA_OPT__(, ) __VA_ARGS__)

#define TRACE_IF(condition, writer, ...)                                                           \
    ((condition) ? writer(__FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__) : (void)0)

// --- Other writers

// `size` bytes at `addr`, `per_row` to a row (0: all in one), as hexadecimal and, with
// `with_chars`, as characters.
void trace_hexdump(const char *name, const void *addr, size_t size, size_t per_row, bool with_chars,
                   const char *src, uint32_t line);

// Copies an alert line, line end included, under TRACE_ALERTS.
void trace_alert(const char *msg);

// Position under which the next alert copies stand; a null file, which fails two debug assertions,
// clears it.
void trace_set_alert_src(const char *src, uint32_t line);

// Text and a line end, without location and indent.
void trace_printf(const char *fmt, ...) PRINTF_LIKE(1, 2);
void trace_vprintf(const char *fmt, va_list args) PRINTF_LIKE(1, 0);
void trace_puts(const char *str);

// The run's header (once) and the arguments, up to the first null one.
void trace_args(int argc, const char *const *argv);

// --- Layout: width of the location column, depth of calls, spaces per level

void trace_set_depth(uint32_t depth);
void trace_push();
void trace_pop();
void trace_set_step(uint32_t step);
void trace_set_width(uint32_t width);
uint32_t trace_depth();
uint32_t trace_step();
uint32_t trace_indent();
uint32_t trace_width();

#endif
