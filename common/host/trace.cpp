#include "host/trace.h"

#include "base/text.h"
#include "host/host.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <utility>

uint32_t trace_flags = 0;
AssertMode trace_assert_mode = ASSERT_IGNORE;

static FILE *log_stream = nullptr;
static const char *log_path = nullptr;

// No line is indented or padded further than this, so that a depth or width set by mistake cannot
// fill the disk.
static constexpr uint32_t PADDING_LIMIT = 65536;

static constexpr uint32_t DEFAULT_WIDTH = 20;

namespace {

struct Layout {
    uint32_t width = DEFAULT_WIDTH;
    uint32_t step = 4;
    uint32_t depth = 0;
    uint32_t indent = 0; // depth times step
};

} // namespace

static Layout layout;

// Where the next alert copies stand; null for no place.
static const char *gAlertSrc = nullptr;
static uint32_t alert_line = 0;

static bool header_pending = true;

// --- The log's file

bool trace_open(const char *path, bool append) {
    FILE *stream = host_open_log(path, append);
    if (stream != nullptr)
        trace_use(stream, path);
    return stream != nullptr;
}

void trace_use(FILE *stream, const char *path) {
    if (log_stream != nullptr)
        fclose(log_stream);
    log_stream = stream;
    log_path = path;
}

FILE *trace_log() {
    return log_stream;
}

const char *trace_path() {
    return log_path;
}

// --- Building and writing text

// Appends `more` with its control characters shown as "?", except those in `kept`.
static void append_printable(std::string &text, const std::string &more, const char *kept) {
    for (size_t at = 0; at < more.size(); at++) {
        const size_t end = std::min(more.find_first_of(kept, at), more.size());
        text += str_printable(more.substr(at, end - at).c_str()).get();
        if (end < more.size())
            text += more[end];
        at = end;
    }
}

// The compiler has checked the format where the caller wrote it; here it is often a part of that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
static std::string format_text(const char *format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return format;
    std::string text(static_cast<size_t>(length) + 1, '\0');
    va_copy(again, args);
    vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    text.pop_back();
    return text;
}
#pragma GCC diagnostic pop

// An argument can be a name with any content, so the only control characters that stay are the line
// feeds of the format itself. Their places are known from the formatted text before them.
static void append_vformat(std::string &text, const char *format, va_list args) {
    const std::string_view whole = format;
    size_t done = 0;
    for (size_t end = 0;; end++) {
        end = std::min(whole.find('\n', end), whole.size());
        const std::string part = format_text(std::string(whole.substr(0, end)).c_str(), args);
        append_printable(text, part.substr(std::min(done, part.size())), "");
        if (end == whole.size())
            return;
        text += '\n';
        done = part.size() + 1;
    }
}

PRINTF_LIKE(2, 3)
static void append_format(std::string &text, const char *format, ...) {
    WITH_VA_LIST(args, format, append_vformat(text, format, args));
}

// Writes a text to the open log in one piece, so that processes that append to it mix whole lines
// only. Leaves errno alone: logging must not change what is logged.
static void emit(const std::string &text) {
    static bool failed = false; // set before the warning, which may be logged too
    const int saved_errno = errno;
    std::string shown;
    append_printable(shown, text, "\t\n");
    if (!host_append(log_stream, shown) && !std::exchange(failed, true))
        zvdebug_warn("Unable to write to the debug-out file");
    errno = saved_errno;
}

static const char *or_null_text(const char *text) {
    return text == nullptr ? "(null)" : text;
}

// Source paths are those of the build host, which may have another path family.
static std::string_view source_name(const char *src) {
    const std::string_view path = or_null_text(src);
    return path.substr(path.find_last_of("/\\") + 1);
}

// The location column and the indent.
static void append_prefix(std::string &text, const char *src, uint32_t line) {
    std::string location(source_name(src));
    location += ':';
    location += std::to_string(line);
    location.resize(std::max<size_t>(location.size(), std::min(layout.width, PADDING_LIMIT)), ' ');
    text += location;
    text += "> ";
    text.append(std::min(layout.indent, PADDING_LIMIT), ' ');
}

// Takes the next line that is not empty off `rest`; empty when there is none.
static std::string_view next_line(std::string_view &rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of('\n'), rest.size()));
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size());
    return line;
}

static void append_lines(std::string &text, const char *src, uint32_t line, std::string_view rest) {
    for (std::string_view piece = next_line(rest); !piece.empty(); piece = next_line(rest)) {
        append_prefix(text, src, line);
        text += piece;
        text += '\n';
    }
}

// --- Reports on the debug layer itself

// The message of a failed assertion has this number, less the mode.
static constexpr uint32_t ASSERTION_MESSAGES = 1504;

static void print_assertion(uint32_t number, const char *condition, const char *file,
                            uint32_t line) {
    fprintf(stderr, "(%u) assertion failure: %s (%s:%u) \n", number, condition, file, line);
    if (number == ASSERTION_MESSAGES - ASSERT_FATAL)
        exit(1);
}

void (*zvdebug_warn_hook)(const char *text) = [](const char *text) {
    fprintf(stderr, "ZVDEBUG (warning): %s\n", text);
};
void (*zvdebug_assert_hook)(uint32_t number, const char *condition, const char *file,
                            uint32_t line) = print_assertion;

void zvdebug_warn(const char *format, ...) {
    std::string text;
    WITH_VA_LIST(args, format, append_vformat(text, format, args));
    zvdebug_warn_hook(text.c_str());
}

int gInDebugger = 0;

void db_assert() {
    // Not to be optimised away: breakpoints are set here.
    asm volatile("");
}

void zvdebug_assert(const char *condition, const char *file, uint32_t line) {
    if (trace_assert_mode == ASSERT_IGNORE)
        return;
    db_assert();
    zvdebug_assert_hook(ASSERTION_MESSAGES - trace_assert_mode, condition, file, line);
}

// --- Depth

void trace_set_depth(uint32_t depth) {
    layout.depth = depth;
    const uint64_t spaces = uint64_t{depth} * layout.step;
    layout.indent = static_cast<uint32_t>(std::min<uint64_t>(spaces, UINT32_MAX));
}

void trace_push() {
    if (layout.depth == UINT32_MAX)
        zvdebug_warn("max debug-out indent level readched");
    else
        trace_set_depth(layout.depth + 1);
}

void trace_pop() {
    if (layout.depth == 0)
        zvdebug_warn("min debug-out indent level reached");
    else
        trace_set_depth(layout.depth - 1);
}

void trace_set_step(uint32_t step) {
    layout.step = step;
    trace_set_depth(layout.depth);
}

void trace_set_width(uint32_t width) {
    DEBUG_ASSERT(width != 0);
    if (width <= 3)
        zvdebug_warn("desired trace width (%u) is < default (%u)", width, DEFAULT_WIDTH);
    layout.width = width;
}

uint32_t trace_depth() {
    return layout.depth;
}

uint32_t trace_step() {
    return layout.step;
}

uint32_t trace_indent() {
    return layout.indent;
}

uint32_t trace_width() {
    return layout.width;
}

// --- Entry, exit and free lines

static void write_entry(const char *src, uint32_t line, const char *func, const char *format,
                        va_list args) {
    DEBUG_ASSERT(src != NULL);
    DEBUG_ASSERT(func != NULL);
    if (log_stream != nullptr) {
        std::string text;
        append_prefix(text, src, line);
        append_format(text, "ENTER %s(", or_null_text(func));
        if (format != nullptr)
            append_vformat(text, format, args);
        text += ")\n";
        emit(text);
    }
    trace_push();
}

static void write_exit(const char *src, uint32_t line, const char *func, const char *format,
                       va_list args) {
    DEBUG_ASSERT(src != NULL);
    DEBUG_ASSERT(func != NULL);
    trace_pop();
    if (log_stream == nullptr)
        return;
    std::string text;
    append_prefix(text, src, line);
    append_format(text, "EXIT %s()", or_null_text(func));
    if (format != nullptr) {
        text += " -> ";
        append_vformat(text, format, args);
    }
    text += '\n';
    emit(text);
}

void trace_enter(const char *src, uint32_t line, const char *func, const char *format, ...) {
    WITH_VA_LIST(args, format, write_entry(src, line, func, format, args));
}

void trace_exit(const char *src, uint32_t line, const char *func, const char *format, ...) {
    WITH_VA_LIST(args, format, write_exit(src, line, func, format, args));
}

TraceScope::TraceScope(const char *src, uint32_t line, const char *func, const char *format, ...)
    : source(src), entry_line(line), function(func) {
    WITH_VA_LIST(args, format, write_entry(src, line, func, format, args));
}

void TraceScope::leave(const char *src, uint32_t line, const char *format, ...) {
    WITH_VA_LIST(args, format,
                 write_exit(src, line, std::exchange(function, nullptr), format, args));
}

TraceScope::~TraceScope() {
    if (is_entered())
        leave(source, entry_line);
}

void tracef(const char *src, uint32_t line, const char *fmt, ...) {
    DEBUG_ASSERT(src != NULL);
    DEBUG_ASSERT(fmt != NULL);
    if (log_stream == nullptr)
        return;
    std::string_view rest = fmt == nullptr ? "" : fmt;
    const std::string first(next_line(rest));
    if (first.empty()) {
        zvdebug_warn("tracef (at %s:%u) contains no lines", or_null_text(src), line);
        return;
    }
    std::string text;
    append_prefix(text, src, line);
    WITH_VA_LIST(args, fmt, append_vformat(text, first.c_str(), args));
    text += '\n';
    append_lines(text, src, line, rest);
    emit(text);
}

void trace(const char *src, uint32_t line, const char *txt) {
    DEBUG_ASSERT(src != NULL);
    DEBUG_ASSERT(txt != NULL);
    if (log_stream == nullptr)
        return;
    std::string text;
    append_lines(text, src, line, txt == nullptr ? "" : txt);
    if (text.empty())
        zvdebug_warn("trace (at %s:%u) contains no lines", or_null_text(src), line);
    else
        emit(text);
}

// --- Hex dumps

// One row, filled up to `per_row` when characters follow.
static void append_row(std::string &text, std::span<const unsigned char> row, size_t per_row,
                       bool with_chars) {
    for (const unsigned char byte : row)
        append_format(text, " %02X", byte);
    if (!with_chars)
        return;
    text.append(3 * std::min<size_t>(per_row - row.size(), PADDING_LIMIT), ' ');
    text += " |";
    for (const unsigned char byte : row) {
        text += ' ';
        text += isprint(byte) ? static_cast<char>(byte) : '.';
    }
}

static void append_rows(std::string &text, std::span<const unsigned char> bytes, size_t per_row,
                        bool with_chars, const char *src, uint32_t line) {
    for (size_t at = 0; at < bytes.size(); at += per_row) {
        const auto row = bytes.subspan(at, std::min(per_row, bytes.size() - at));
        text += '\n';
        append_prefix(text, src, line);
        append_format(text, "%p |", static_cast<const void *>(row.data()));
        append_row(text, row, per_row, with_chars);
    }
}

void trace_hexdump(const char *name, const void *addr, size_t size, size_t per_row, bool with_chars,
                   const char *src, uint32_t line) {
    DEBUG_ASSERT(name != NULL);
    DEBUG_ASSERT(addr != NULL);
    DEBUG_ASSERT(src != NULL);
    if (log_stream == nullptr || (addr == nullptr && size != 0))
        return;
    if (per_row == 0)
        per_row = size;
    const std::span bytes(static_cast<const unsigned char *>(addr), size);
    std::string text;
    append_prefix(text, src, line);
    append_format(text, "Hexdump: %s (%p)", or_null_text(name), addr);
    if (size == 0) {
        text += " zero bytes";
    } else if (size <= per_row) {
        text += " |";
        append_row(text, bytes, per_row, with_chars);
    } else {
        append_rows(text, bytes, per_row, with_chars, src, line);
    }
    text += '\n';
    emit(text);
}

// --- Alerts

void trace_alert(const char *msg) {
    DEBUG_ASSERT(msg != NULL);
    if ((trace_flags & TRACE_ALERTS) == 0 || log_stream == nullptr || msg == nullptr)
        return;
    std::string text;
    if (gAlertSrc == nullptr) {
        text = "ALERT> ";
    } else {
        DEBUG_ASSERT(gAlertSrc != NULL); // cannot fail; its text stays (CONTRIBUTING.md)
        append_prefix(text, gAlertSrc, alert_line);
    }
    text += msg;
    emit(text);
}

void trace_set_alert_src(const char *src, uint32_t line) {
    const char *alert_func = src; // named as the assertion says
    DEBUG_ASSERT(alert_func != NULL);
    DEBUG_ASSERT(src != NULL);
    gAlertSrc = src;
    alert_line = line;
}

// --- Text without location

void trace_vprintf(const char *fmt, va_list args) {
    DEBUG_ASSERT(fmt != NULL);
    if (log_stream == nullptr || fmt == nullptr)
        return;
    std::string text;
    append_vformat(text, fmt, args);
    text += '\n';
    emit(text);
}

void trace_printf(const char *fmt, ...) {
    WITH_VA_LIST(args, fmt, trace_vprintf(fmt, args));
}

void trace_puts(const char *str) {
    DEBUG_ASSERT(str != NULL);
    if (log_stream == nullptr || str == nullptr)
        return;
    emit(std::string(str) + '\n');
}

static std::string upper_case(std::string text) {
    for (char &c : text)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
}

void trace_args(int argc, const char *const *argv) {
    DEBUG_ASSERT(argv != NULL);
    const char *const *args = argv; // named as the assertion says
    DEBUG_ASSERT(args != NULL);
    if (log_stream == nullptr || args == nullptr)
        return;
    std::string text;
    if (header_pending)
        text = "\nAPP: " + upper_case(host_tool_name) + "\n";
    header_pending = false;
    text += "ARGS:";
    if (argc <= 0 || args[0] == nullptr)
        text += " None";
    for (int i = 0; i < argc && args[i] != nullptr; i++)
        append_format(text, " %s", args[i]);
    text += '\n';
    emit(text);
}
