#include "messages/alert_internal.h"

#include "containers/stringcache.h"
#include "host/host.h"
#include "host/trace.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

AlertPosition alert_position;

static constexpr const char NO_LINE[] = "Non line specific message";

namespace {

// Text in a fixed block, cut where it does not fit: nothing here may need memory.
template <size_t SIZE> class TextBuffer {
  public:
    void clear() { length = 0, text[0] = '\0'; }
    size_t room() const { return SIZE - 1 - length; }
    const char *c_str() const { return text.data(); }
    bool empty() const { return length == 0; }

    void append(std::string_view piece) {
        const size_t count = std::min(piece.size(), room());
        memcpy(&text[length], piece.data(), count);
        text[length += count] = '\0';
    }

    PRINTF_LIKE(2, 3) void print(const char *format, ...) {
        WITH_VA_LIST(args, format, vprint(format, args));
    }

    PRINTF_LIKE(2, 0) void vprint(const char *format, va_list args) {
        text[length] = '\0';
        vsnprintf(&text[length], SIZE - length, format, args);
        length += strnlen(&text[length], room());
    }

    // The line end takes the last character's place in a full buffer.
    void end_line() {
        length = std::min(length, SIZE - 2);
        append("\n");
    }

  private:
    std::array<char, SIZE> text = {};
    size_t length = 0;
};

struct Template {
    const char *variable;
    const char *builtin;
    const char *text; // null until the environment was read
};

enum { ERROR_TEMPLATE, WARNING_TEMPLATE, MESSAGE_TEMPLATE };

} // namespace

static TextBuffer<8192> line;
static TextBuffer<512> body;
static AlertOutputFn output = nullptr;
static bool use_templates = false;
static Template templates[] = {
    {"ZQT_ERR_FORMAT", "%f: %l: (%n) %s (error)", nullptr},
    {"ZQT_WARN_FORMAT", "%f: %l: (%n) %s (warning)", nullptr},
    {"ZQT_MSG_FORMAT", "%f: %l: %s", nullptr},
};

AlertClass alert_class(uint32_t type) {
    switch (type) {
    case MSG_FATAL:
    case MSG_ERROR:
    case 'E':
    case 'e':
    case 'F':
    case 'f':
        return AlertClass::error;
    case MSG_MESSAGE:
    case 'M':
    case 'm':
        return AlertClass::message;
    default:
        return AlertClass::warning;
    }
}

// --- Templates and position

static void set_template(Template &which, const char *given, bool given_wins) {
    const char *from_environment = host_getenv(which.variable);
    const char *first = given_wins ? given : from_environment;
    const char *second = given_wins ? from_environment : given;
    which.text = sc_strdup(first != nullptr ? first : second != nullptr ? second : which.builtin);
}

static void set_templates(const char *err, const char *warn, const char *msg, bool given_wins) {
    set_template(templates[ERROR_TEMPLATE], err, given_wins);
    set_template(templates[WARNING_TEMPLATE], warn, given_wins);
    set_template(templates[MESSAGE_TEMPLATE], msg, given_wins);
}

void alert_init_formats() {
    set_templates(nullptr, nullptr, nullptr, false);
}

void alert_default_formats(const char *err, const char *warn, const char *msg) {
    alert_ensure_init();
    set_templates(err, warn, msg, false);
}

void alert_set_formats(const char *err, const char *warn, const char *msg) {
    alert_ensure_init();
    set_templates(err, warn, msg, true);
}

void alert_use_formats(bool on) {
    use_templates = on;
}

static const char *text_of(const Template &which) {
    return sc_strdup(which.text != nullptr ? which.text : which.builtin);
}

const char *alert_get_err_format() {
    return text_of(templates[ERROR_TEMPLATE]);
}

const char *alert_get_warn_format() {
    return text_of(templates[WARNING_TEMPLATE]);
}

const char *alert_get_msg_format() {
    return text_of(templates[MESSAGE_TEMPLATE]);
}

void alert_set_position(const char *file, const uint32_t *line_counter, const uint32_t *column_base,
                        const uint32_t *column) {
    alert_position = {file != nullptr && *file != '\0' ? sc_strdup(file) : nullptr, line_counter,
                      column_base, column};
}

// --- Output

void alert_set_output(AlertOutputFn fn) {
    output = fn;
}

AlertOutputFn alert_get_output() {
    return output;
}

static void alert_emit() {
    line.end_line();
    const auto shown = line; // a warning that the log failed would take its place
    trace_alert(shown.c_str());
    if (output != nullptr) {
        output(shown.c_str());
    } else {
        fputs(shown.c_str(), stderr);
        fflush(stderr);
    }
}

void rawmsg(const char *format, ...) {
    WITH_VA_LIST(args, format, vrawmsg(format, args));
}

void vrawmsg(const char *format, va_list args) {
    line.clear();
    line.vprint(format, args);
    alert_emit();
}

void contmsg(int last, const char *format, ...) {
    static TextBuffer<8192> pending; // other messages may come between the pieces
    if (pending.empty())
        pending.append("\t");
    WITH_VA_LIST(args, format, pending.vprint(format, args));
    if (last == 0)
        return;
    line = pending;
    pending.clear();
    alert_emit();
}

// --- Layout

// Makes the text of a message the format to print it with: "%m" becomes the text of the system
// error, and what follows "%m" overwrites that text from its start. A conversion that is cut off,
// by the end of the text or of the room, is not left to printf.
static void make_format(TextBuffer<512> &format, std::string_view text, int error_number) {
    std::string_view error; // what is not overwritten yet
    while (!text.empty()) {
        std::string_view piece = text[0] == '%' ? format_conversion(text) : text.substr(0, 1);
        if (text[0] == '%' && !format_is_complete(piece)) {
            piece = "%%";
            text.remove_prefix(1);
        } else {
            text.remove_prefix(piece.size());
        }
        if (piece == "%m") {
            error = error_number != 0 ? host_strerror(error_number) : "";
            continue;
        }
        if (piece.size() > format.room())
            return;
        format.append(piece);
        error.remove_prefix(std::min(piece.size(), error.size()));
    }
    for (; !error.empty() && format.room() > 1; error.remove_prefix(1))
        format.append(error[0] == '%' ? "%%" : error.substr(0, 1));
}

static void make_body(const AlertCall &call, AlertClass kind, va_list args) {
    TextBuffer<512> format;
    make_format(format, call.text, call.error);
    body.clear();
    if (kind != AlertClass::message && !use_templates)
        body.print("(%u) ", call.number);
// A text of the table is the format: of our own table, or with the same conversions.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    body.vprint(format.c_str(), args);
#pragma GCC diagnostic pop
}

static void lay_out_fixed(AlertScope scope, AlertClass kind) {
    if (alert_position.file != nullptr) {
        if (!scope.non_line)
            line.append(alert_position.file);
        else if (!scope.no_position)
            line.append(NO_LINE);
        line.append(": ");
    }
    if (alert_position.line != nullptr && !scope.non_line)
        line.print("%u: ", *alert_position.line);
    line.append(body.c_str());
    if (kind == AlertClass::warning)
        line.append(" (warning)");
}

// Appends the field for a letter of a template. False if it is part of the position and the message
// has none: the ": " after it is then dropped too.
static bool append_field(char letter, const AlertCall &call) {
    const AlertPosition &at = alert_position;
    const auto [non_line, no_position] = call.scope;
    switch (letter) {
    case 'a':
        line.append(host_tool_name);
        return true;
    case 'c':
        if (!no_position && at.file != nullptr && at.line != nullptr && at.column != nullptr &&
            at.column_base != nullptr)
            line.print("%u", *at.column - *at.column_base);
        return !no_position;
    case 'f':
        if (!non_line)
            line.append(at.file != nullptr ? at.file : "");
        else if (!no_position)
            line.append(NO_LINE);
        return !no_position;
    case 'l':
        if (!non_line && at.file != nullptr && at.line != nullptr)
            line.print("%u", *at.line);
        return !no_position;
    case 'm':
        line.append(host_strerror(call.error));
        return true;
    case 'n':
        line.print("%u", call.number);
        return true;
    case 's':
        line.append(body.c_str());
        return true;
    default:
        line.append({&letter, 1});
        return true;
    }
}

static void lay_out_template(std::string_view format, const AlertCall &call) {
    while (!format.empty()) {
        const size_t plain = std::min(format.find('%'), format.size());
        line.append(format.substr(0, plain));
        format.remove_prefix(plain);
        if (format.size() < 2)
            return;
        const bool wanted = append_field(format[1], call);
        format.remove_prefix(2);
        if (!wanted && format.starts_with(':'))
            format.remove_prefix(format.starts_with(": ") ? 2 : 1);
    }
}

static const Template &template_for(AlertClass kind) {
    return templates[kind == AlertClass::error     ? ERROR_TEMPLATE
                     : kind == AlertClass::warning ? WARNING_TEMPLATE
                                                   : MESSAGE_TEMPLATE];
}

void alert_format(const AlertCall &call, va_list args) {
    const AlertClass kind = alert_class(call.type);
    make_body(call, kind, args);
    line.clear();
    if (use_templates)
        lay_out_template(template_for(kind).text, call);
    else
        lay_out_fixed(call.scope, kind);
    alert_emit();
}
