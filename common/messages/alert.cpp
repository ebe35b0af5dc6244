#include "messages/alert_internal.h"

#include "base/text.h"
#include "containers/hash.h"
#include "containers/stringcache.h"
#include "host/trace.h"
#include "platform/osdep.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

void (*alert_exit_hook)(int status) = exit;

static bool initialised = false;
static uint32_t error_limit = 20;
static uint32_t error_count = 0;
static uint32_t warning_count = 0;
static bool warn_fails = false;
static AlertHookFn observer = nullptr;

[[noreturn]] static void end_program() {
    alert_exit_hook(1);
    exit(1);
}

// --- Setup

// The text has a line end of its own, so an empty line follows the message.
static void report_malformed(uint32_t line, const char *file) {
    alert_text(3, "M", "Malformed error information on line %u, in file %s\n", line,
               str_printable(file != nullptr ? file : "(null)").get());
}

void alert_init() {
    initialised = true; // at once: reports on the table being loaded are alerts too
    TRACE_IF(trace_flags != 0, trace, "alert_init() done");
    alert_init_formats();
    msgtable_malformed_hook = report_malformed;
    // A file that is listed may still not be readable.
    if (load_edf(msg_filename(LANG_NONE)) == nullptr)
        load_edf(msgtable_builtin_name());
}

void alert_ensure_init() {
    if (!initialised)
        alert_init();
}

uint32_t set_maxerrors(uint32_t n) {
    TRACE_ENTER("%u", n);
    alert_ensure_init();
    const uint32_t previous = error_limit;
    error_limit = n;
    return previous;
}

void alert_set_warn_fails(bool on) {
    warn_fails = on;
}

bool alert_failed() {
    return error_count > 0 || (warn_fails && warning_count > 0);
}

void alert_set_hook(AlertHookFn fn) {
    observer = fn;
}

AlertHookFn alert_get_hook() {
    return observer;
}

// --- The observer's words

namespace {

// Reads arguments by the conversions that print them.
struct ArgumentReader {
    va_list args;

    uintptr_t integer(std::string_view conversion) {
        if (conversion.find("ll") != conversion.npos || conversion.find('q') != conversion.npos)
            return static_cast<uintptr_t>(va_arg(args, unsigned long long));
        if (conversion.find('j') != conversion.npos)
            return static_cast<uintptr_t>(va_arg(args, uintmax_t));
        if (conversion.find_first_of("zt") != conversion.npos)
            return va_arg(args, size_t);
        if (conversion.find('l') != conversion.npos)
            return va_arg(args, unsigned long);
        return va_arg(args, unsigned);
    }

    // The word for a conversion that takes one argument, not counting a "*". False for an unknown
    // one.
    bool word(std::string_view conversion, uintptr_t *result) {
        const char letter = conversion.back();
        if (strchr("diouxXc", letter) != nullptr) {
            *result = integer(conversion);
        } else if (strchr("spn", letter) != nullptr) {
            *result = reinterpret_cast<uintptr_t>(va_arg(args, void *));
        } else if (strchr("aAeEfFgG", letter) != nullptr) {
            if (conversion.find('L') == conversion.npos)
                static_cast<void>(va_arg(args, double));
            else
                static_cast<void>(va_arg(args, long double));
            *result = 0;
        } else {
            return false;
        }
        return true;
    }
};

} // namespace

// Calls the observer with as many arguments as the text has: there need not be more.
static void observe(uint32_t number, std::string_view text, va_list args) {
    if (observer == nullptr)
        return;
    uintptr_t words[3] = {};
    size_t count = 0;
    ArgumentReader reader;
    va_copy(reader.args, args);
    for (size_t at; count < 3 && (at = text.find('%')) != text.npos;) {
        text.remove_prefix(at);
        const std::string_view conversion = format_conversion(text);
        text.remove_prefix(conversion.size());
        if (conversion == "%%" || conversion == "%m")
            continue;
        auto stars = std::count(conversion.begin(), conversion.end(), '*');
        for (; stars > 0 && count < 3; stars--)
            words[count++] = va_arg(reader.args, unsigned);
        if (count < 3 && !reader.word(conversion, &words[count++]))
            break;
    }
    va_end(reader.args);
    observer(number, words[0], words[1], words[2]);
}

// --- Repeated messages

namespace {

struct RepeatKey {
    uint32_t number;
    uint32_t line;
    const char *file; // interned
};

} // namespace

static uint32_t hash_repeat(const void *untyped) {
    const auto *key = static_cast<const RepeatKey *>(untyped);
    return (key->line << 16) ^ key->number ^ strhash(key->file);
}

static int compare_repeats(const void *untyped_a, const void *untyped_b) {
    const auto *a = static_cast<const RepeatKey *>(untyped_a);
    const auto *b = static_cast<const RepeatKey *>(untyped_b);
    if (a->number != b->number)
        return a->number < b->number ? -1 : 1;
    if (a->line != b->line)
        return a->line < b->line ? -1 : 1;
    return strcmp(a->file, b->file);
}

// True if this number was shown for the registered line already. If it is going to be shown now, it
// is recorded as shown.
static bool is_repeated(uint32_t number, bool hidden) {
    static HashTable *const shown = hash_new(199, hash_repeat, compare_repeats, __FILE__, __LINE__);
    RepeatKey key = {number, alert_position.line != nullptr ? *alert_position.line : 0,
                     alert_position.file != nullptr ? alert_position.file : ""};
    if (hash_haskey(shown, &key))
        return true;
    if (!hidden) {
        auto *copy = xnew<RepeatKey>();
        *copy = key;
        hash_insert(shown, copy, copy, __FILE__, __LINE__);
    }
    return false;
}

// --- Raising

static constexpr int32_t PLAIN_LEVEL = 10; // of what is given without one

static constexpr AlertScope OF_LINE = {false, false};
static constexpr AlertScope OF_FILE = {true, false};
static constexpr AlertScope OF_PROGRAM = {true, true};

static void lay_out(AlertCall call, ...) {
    WITH_VA_LIST(args, call, alert_format(call, args));
}

// The complaint is about what the error is about.
static void count_error(AlertScope scope) {
    if (error_count >= error_limit) {
        if (PLAIN_LEVEL >= alert_threshold)
            lay_out({1, 'm', "too many errors (%u)", errno, scope}, error_count + 1);
        end_program();
    }
    error_count++;
}

static int raise_row(AlertScope scope, bool checks_repeats, uint32_t number, va_list args) {
    const int error = errno; // before anything else can change it
    const MsgRec row = alert_row(number);
    const bool hidden = alert_hidden(row);
    if (checks_repeats) {
        observe(number, row.text, args);
        if (is_repeated(number, hidden))
            return 0;
    }
    if (hidden)
        return 0;
    observe(number, row.text, args);
    if (row.type == MSG_ERROR)
        count_error(scope);
    else if (alert_class(row.type) == AlertClass::warning)
        warning_count++;
    alert_format({number, row.type, row.text, error, scope}, args);
    if (row.type == MSG_FATAL)
        end_program();
    return 1;
}

int valert_core(uint32_t number, va_list args) {
    return raise_row(OF_LINE, false, number, args);
}

int valert(uint32_t number, va_list args) {
    return raise_row(OF_LINE, true, number, args);
}

int valert_nl(uint32_t number, va_list args) {
    return raise_row(OF_FILE, true, number, args);
}

int valert_nl_repeat(uint32_t number, va_list args) {
    return raise_row(OF_FILE, false, number, args);
}

// A function that takes its arguments one by one.
#define ALERT(name, raise)                                                                         \
    int name(uint32_t number, ...) {                                                               \
        int shown;                                                                                 \
        WITH_VA_LIST(args, number, shown = (raise));                                               \
        return shown;                                                                              \
    }

ALERT(alert, valert(number, args))
ALERT(alert_nl, valert_nl(number, args))
ALERT(alert_repeat, valert_core(number, args))
ALERT(alert_nl_repeat, valert_nl_repeat(number, args))
ALERT(alert_nopos, raise_row(OF_PROGRAM, false, number, args))

// --- Messages of the caller's own

static int32_t level_of(const char *type) {
    const char *digits = *type == '-' ? type + 1 : type;
    return isdigit(static_cast<unsigned char>(*digits)) != 0 ? str_to_int32(type) : PLAIN_LEVEL;
}

static int raise_text(uint32_t number, const char *type, bool observed, const char *format,
                      va_list args) {
    const int error = errno;
    alert_ensure_init();
    const int letter = tolower(static_cast<unsigned char>(*type));
    const bool hidden = level_of(type) < alert_threshold;
    if (letter == 'e')
        count_error(OF_LINE);
    if (hidden)
        return 0;
    if (observed && letter != 'f')
        observe(number, format, args);
    alert_format({number, static_cast<uint32_t>(letter), format, error, OF_LINE}, args);
    if (letter == 'f')
        end_program();
    return 1;
}

int alert_text(uint32_t number, const char *type, const char *format, ...) {
    int shown;
    WITH_VA_LIST(args, format,
                 shown = raise_text(number, type != nullptr ? type : "", false, format, args));
    return shown;
}

int alert_adhoc(const char *type, const char *format, ...) {
    int shown;
    WITH_VA_LIST(args, format,
                 shown = raise_text(0, type != nullptr ? type : "", true, format, args));
    return shown;
}

void alert_fatal(int code) {
    const OwnedString path = os_progpath();
    const char *name = os_basename(path.get());
    if (name == nullptr || *name == '\0')
        name = "QRN";
    if (sc_hasSuffixI(name, ".exe"))
        name = sc_ncopy(name, strlen(name) - strlen(".exe"));
    const char *text = sc_format("%s fatal error %d", name, code);
    TRACE_ENTER("%s", text);
    alert_repeat(5, text);
    TRACE_EXIT();
    exit(code != 0 ? code : 1);
}

// --- Message files

const char *alert_msgfile() {
    return msgtable_file();
}

bool msgnum_valid(int64_t n) {
    alert_ensure_init();
    return n >= 0 && n <= msgtable_highest();
}

// Whether `name` replaces the message file in force.
static bool is_newer(const char *name, const char *current) {
    const uint64_t current_version = getMsgFileVersion(current);
    const uint64_t version = getMsgFileVersion(name);
    if (version != current_version)
        return version > current_version;
    if (msgfile_in_bin(current))
        return false;
    return msgfile_in_bin(name) || strcmp(current, name) < 0;
}

bool open_edf(const char *name) {
    TRACE_ENTER("%s", name != nullptr ? name : "(null)");
    if (name == nullptr || (strcmp(name, msgtable_builtin_name()) != 0 && !os_exists(name)))
        return TRACE_RESULT(false, "false");
    alert_ensure_init();
    const char *current = msgtable_file();
    if (current != nullptr && !is_newer(name, current))
        return TRACE_RESULT(true, "\"%s\" is not newer than \"%s\"", name, current);
    const bool loaded = load_edf(name) != nullptr;
    return TRACE_RESULT(loaded, "%s", loaded ? "true" : "false");
}

bool open_edf_dir(const char *dir) {
    TRACE_ENTER("%s", dir != nullptr ? dir : "(null)");
    if (!os_exists(dir))
        return TRACE_RESULT(false, "false");
    const VectorPtr files(vec_new(__FILE__, __LINE__));
    const uint32_t cnt = findMsgFiles(dir, LANG_NONE, files.get());
    TRACE_MESSAGE("cnt = %u", cnt);
    msgfile_sort(files.get());
    const bool opened = cnt == 0 || open_edf(vec_at<const char>(files.get(), 0));
    return TRACE_RESULT(opened, "%s", opened ? "true" : "false");
}

bool alert_open_lang(uint32_t langid) {
    alert_ensure_init();
    const char *name = msg_filename(langid);
    if (!open_edf(name)) {
        rawmsg("Could not open message file %s\n", name);
        end_program();
    }
    return true;
}
