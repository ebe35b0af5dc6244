#include "messages/msgtable.h"

#include "base/text.h"
#include "containers/stringcache.h"
#include "platform/osdep.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>

// Number, type and text, separated by tabs, in ascending order of numbers. Some texts end in a
// space.
static constexpr std::string_view BUILTIN_TABLE =
    "#                        Error and warning messages\n"
    "#                                for all\n"
    "#\t\t\tNorvane compiler applications\n"
    "#\n"
    "#                                ENGLISH\n"
    "#\n"
    "#\tmessage number:\t\t(must be larger than 0)\n"
    "#\n"
    "#\tmessage type:\t\tF,f: fatal error\n"
    "#\t\t\t\tE,e: error\n"
    "#\t\t\t     -9 - 8: warning (value indicates level)\n"
    "#\t\t\t\tM,m: message\n"
    "#\n"
    "#\tmessage string\n"
    "#\n"
    "#\terrors must be in numeric order\n"
    "#\n"
    "1\tM\ttoo many errors (%u)\n"
    "2\tM\terror/warning (%u) generated but no description available\n"
    "3\tM\tmalformed error information on line * in file *\n"
    "5\tF\tQRN has encountered an internal error and must quit; provide Norvane support with the "
    "following details: %s\n"
    "141\tF\tcan't open %s file \"%s\": %m\n"
    "296\tF\tout of memory\n"
    "1501\t0\tassertion failure: %s (%s:%d) \n"
    "1502\tE\tassertion failure: %s (%s:%d) \n"
    "1503\tF\tassertion failure: %s (%s:%d) \n";

static constexpr size_t MAX_LINE = 255;

static Vector *primary = nullptr; // the first table loaded: types and levels
static Vector *texts = nullptr;   // the last one
static const char *file_in_force = nullptr;
static uint32_t highest_number = 0;

void (*msgtable_malformed_hook)(uint32_t, const char *) = [](uint32_t line, const char *file) {
    fprintf(stderr, "Malformed error information on line %u, in file %s\n", line,
            str_printable(file != nullptr ? file : "(null)").get());
};

// The characters that may come between the "%" and the letter of a conversion.
static constexpr std::string_view CONVERSION_MIDDLE = "-+ #'0123456789.*hljztLq";

std::string_view format_conversion(std::string_view text) {
    const size_t letter = text.find_first_not_of(CONVERSION_MIDDLE, 1);
    return text.substr(0, letter == text.npos ? letter : letter + 1);
}

bool format_is_complete(std::string_view conversion) {
    return conversion.size() > 1 && CONVERSION_MIDDLE.find(conversion.back()) == conversion.npos;
}

// The conversions of a format that take arguments, one after the other.
static std::string conversions(std::string_view format) {
    std::string found;
    for (size_t at; (at = format.find('%')) != format.npos;) {
        format.remove_prefix(at);
        const std::string_view conversion = format_conversion(format);
        if (conversion != "%%" && conversion != "%m")
            found += conversion;
        format.remove_prefix(conversion.size());
    }
    return found;
}

// Removes the next line from `rest`, without its line end. A line that is too long is cut, and its
// remainder is the next line. False at the end.
static bool next_line(std::string_view &rest, std::string_view &line) {
    if (rest.empty())
        return false;
    const std::string_view window = rest.substr(0, MAX_LINE + 2); // room for CR LF
    const size_t end = window.find('\n');
    const bool whole = end != window.npos || window.size() == rest.size();
    line = window.substr(0, end);
    if (whole && line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.size() > MAX_LINE) {
        line = line.substr(0, MAX_LINE);
        rest.remove_prefix(MAX_LINE);
    } else {
        rest.remove_prefix(std::min(end, rest.size() - 1) + 1);
    }
    line = line.substr(0, line.find('\0'));
    return true;
}

// Removes the next word from `rest`, with the space or tab after it. Empty when there is none.
static std::string_view next_token(std::string_view &rest) {
    constexpr std::string_view SPACES = " \t";
    rest.remove_prefix(std::min(rest.find_first_not_of(SPACES), rest.size()));
    const std::string_view token = rest.substr(0, rest.find_first_of(SPACES));
    rest.remove_prefix(std::min(token.size() + 1, rest.size()));
    return token;
}

// The integer that a token begins with, 0 without digits.
static int32_t decimal(std::string_view token) {
    return str_to_int32(std::string(token).c_str());
}

// False for a type that is not known, which leaves the row's type 0.
static bool set_type(MsgRec *row, std::string_view token) {
    switch (tolower(static_cast<unsigned char>(token[0]))) {
    case 'f':
        row->type = MSG_FATAL;
        return true;
    case 'e':
        row->type = MSG_ERROR;
        return true;
    case 'm':
        row->type = MSG_MESSAGE;
        return true;
    default:
        if (token[0] != '-' && (token[0] < '0' || token[0] > '9'))
            return false;
        row->type = MSG_WARNING;
        row->level = decimal(token);
        return true;
    }
}

// The row on a line, and whether the line is as it should be. A null row means there is none; a row
// of a malformed line is used as far as it was understood. `known` is the table whose formats a
// text must agree with, because the arguments at the calls do; null if the text sets the format.
static bool parse_row(std::string_view line, const Vector *known, MsgRecPtr &row) {
    const std::string_view number_token = next_token(line);
    const int32_t number = decimal(number_token);
    const std::string_view type_token = next_token(line);
    if (number_token.empty() || number < 0 || number > static_cast<int32_t>(MSG_NUMBER_MAX) ||
        type_token.empty() || line.empty())
        return false;
    row.reset(xnew<MsgRec>());
    row->number = static_cast<uint32_t>(number);
    row->text = sc_ncopy(line.data(), line.size());
    const bool understood = set_type(row.get(), type_token);
    const auto *model = known != nullptr ? vec_at<MsgRec>(known, row->number) : nullptr;
    if (model != nullptr && conversions(row->text) != conversions(model->text)) {
        row->text = model->text;
        return false;
    }
    return understood;
}

static Vector *parse_table(std::string_view text, const Vector *known) {
    Vector *table = vec_new(__FILE__, __LINE__);
    std::string_view line;
    for (uint32_t line_number = 1; next_line(text, line); line_number++) {
        if (line.starts_with('#'))
            continue;
        MsgRecPtr row;
        if (!parse_row(line, known, row))
            msgtable_malformed_hook(line_number, file_in_force);
        if (row == nullptr)
            continue;
        const uint32_t number = row->number;
        free(vec_elementAt(table, number));
        vec_setAt(table, row.release(), number);
    }
    return table;
}

// A message file is found by its name alone, even in the current directory, and could be anything;
// a full table has less than 3 MB.
static constexpr size_t MAX_FILE_SIZE = 16 << 20;

static bool read_file(const char *name, std::string &text) {
    const FilePtr file(name != nullptr ? host_fopen_regular(name) : nullptr);
    return file != nullptr && os_read_all(file.get(), &text, MAX_FILE_SIZE);
}

// Moves the rows of `from` that `table` has into it, and frees `from` with the rest.
static void take_over(Vector *table, Vector *from) {
    for (uint32_t number = 0; number < vec_size(from); number++) {
        const bool wanted =
            vec_elementAt(table, number) != nullptr && vec_elementAt(from, number) != nullptr;
        free(vec_elementAt(wanted ? table : from, number));
        if (wanted)
            vec_setAt(table, vec_elementAt(from, number), number);
    }
    vec_free(from);
}

Vector *load_edf(const char *name) {
    const bool builtin = name != nullptr && std::string_view(name) == msgtable_builtin_name();
    std::string text;
    if (!builtin && !read_file(name, text))
        return nullptr;
    Vector *table = parse_table(BUILTIN_TABLE, nullptr);
    highest_number = vec_size(table) != 0 ? vec_size(table) - 1 : 0;
    take_over(table, parse_table(text, table));
    if (primary == nullptr)
        primary = table;
    const BlockVectorPtr replaced(texts != primary ? texts : nullptr);
    texts = table;
    file_in_force = sc_strdup(name);
    return table;
}

MsgRec msgtable_row(uint32_t number) {
    MsgRec row = {MSG_ERROR, number,
                  "An error, warning or message was generated, but no description is available", 0};
    if (const auto *first = primary != nullptr ? vec_at<MsgRec>(primary, number) : nullptr) {
        row = *first;
        if (const auto *newest = vec_at<MsgRec>(texts, number))
            row.text = newest->text;
    }
    return row;
}

Vector *msgtable_primary() {
    return primary;
}

const char *msgtable_file() {
    return file_in_force;
}

uint32_t msgtable_highest() {
    return highest_number;
}
