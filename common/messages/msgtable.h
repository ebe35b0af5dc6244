// The table of numbered messages: the built-in rows, the message files that replace their texts,
// and the choice among such files.
//
// The first table loaded settles type and level of every row for the life of the process; tables
// loaded later change texts only.
#ifndef KESTREL_MESSAGES_MSGTABLE_H
#define KESTREL_MESSAGES_MSGTABLE_H

#include "base/xalloc.h"
#include "containers/vector.h"

#include <cstdint>
#include <memory>
#include <string_view>

// The type of a row; 0 if its field was not understood.
enum MsgType : uint32_t {
    MSG_FATAL = 1,
    MSG_MESSAGE = 2,
    MSG_ERROR = 3,
    MSG_WARNING = 4,
    MSG_SUPPRESSED = 5, // never in a table
};

struct MsgRec {
    uint32_t type;
    uint32_t number;
    const char *text; // a printf format, interned
    int32_t level;    // of a warning
};
using MsgRecPtr = std::unique_ptr<MsgRec, FreeDeleter>;

constexpr uint32_t MSG_NUMBER_MAX = 10000;

// Date and time of the built-in table. "20230208172133_en.msgs" stands for the table itself
// wherever the name of a message file is asked for.
constexpr int64_t MSG_TABLE_VERSION = 20230208172133;

// Receives each malformed line of a table: its number, from 1, and the message file in force before
// the load, null at the first. By default it goes to standard error.
extern void (*msgtable_malformed_hook)(uint32_t line, const char *file);

// --- Tables

// Loads a message file over the built-in rows, or the built-in table alone under its own name, and
// puts it in force. Rows that the built-in table does not have are dropped, and so are texts whose
// printf conversions are not those of the built-in text. Returns the table, a vector of MsgRec
// indexed by number, which stands until the next load, or for ever if it is the first; null, and
// nothing changes, if the file cannot be opened.
Vector *load_edf(const char *name);

// The row of a number; an error with a text that says so where there is none.
MsgRec msgtable_row(uint32_t number);

// The first table loaded, null before.
Vector *msgtable_primary();

// The name of the message file in force, interned; null before the first load.
const char *msgtable_file();

// The highest number of the built-in table; 0 before the first load.
uint32_t msgtable_highest();

// The printf conversion at the start of `text`, which begins with "%": up to its letter, or all of
// `text` when it has none.
std::string_view format_conversion(std::string_view text);

// Whether a conversion of format_conversion() has its letter.
bool format_is_complete(std::string_view conversion);

// --- Languages (msgtable_files.cpp)

// The code of a language: "de", "en" or "fr"; "en" for one that is not known.
const char *lang_code(uint32_t id);

constexpr uint32_t LANG_DEFAULT = 9;
constexpr uint32_t LANG_NONE = 255; // no particular language

// The id of a language given by code or name, in any case; LANG_NONE when it is not known.
uint32_t lang_lookup(const char *name);

// --- Message files (msgtable_files.cpp)

const char *msgtable_builtin_name();

// The digits that the base name of `m` begins with, as a number; 0 without any.
uint64_t getMsgFileVersion(const char *m);

// Appends the paths of the message files in `dir` to `list` and returns how many there are.
uint32_t findMsgFiles(const char *dir, uint32_t langid, Vector *list);

// Puts a list of message files into order, the newest first.
void msgfile_sort(Vector *list);

// Whether a path begins with the installation's "bin" directory and a separator.
bool msgfile_in_bin(const char *path);

// The newest message file of the installation's "dat" directory, or the one beside the program's
// own, or the current directory, whichever has any first; the built-in table's name when that is as
// new.
const char *msg_filename(uint32_t langid);

#endif
