// Numbered messages: shown, counted, and ending the program when they are fatal. Each goes to
// standard error as one line. All state is the process's own; nothing here is reentrant.
#ifndef KESTREL_MESSAGES_ALERT_H
#define KESTREL_MESSAGES_ALERT_H

#include "base/xalloc.h"
#include "messages/msgtable.h"

#include <cstdarg>
#include <cstdint>

// Ends the program with a status; must not return. exit() by default; runtime_init() sets it to the
// program's own clean-up.
extern void (*alert_exit_hook)(int status);

// --- Setup (alert.cpp)

// Reads the templates from the environment and loads the message table. Whatever needs them calls
// this first.
void alert_init();

// Sets the number of errors after which the next one ends the program (20 at first); returns the
// previous number.
uint32_t set_maxerrors(uint32_t n);

// Sets whether warnings make alert_failed() true as errors do.
void alert_set_warn_fails(bool on);
bool alert_failed();

// Called with the number and the first three argument words before a message of the table is shown,
// and once more before a check for repetition. Words that the text does not print are 0, and so are
// floating-point ones.
using AlertHookFn = void (*)(uint32_t number, uintptr_t a, uintptr_t b, uintptr_t c);
void alert_set_hook(AlertHookFn fn);
AlertHookFn alert_get_hook();

// --- Messages of the table, with their printf arguments: 1 if shown, 0 if not. A fatal message
// does not return, nor does the error that exceeds the limit.
//
// The _nl forms give no line, and alert_nopos gives no file either. The _repeat forms and
// alert_nopos always show the message; the others show a number once for the same line of the same
// file.

int alert(uint32_t number, ...);
int valert(uint32_t number, va_list args);
int alert_nl(uint32_t number, ...);
int valert_nl(uint32_t number, va_list args);
int alert_repeat(uint32_t number, ...);
int alert_nl_repeat(uint32_t number, ...);
int valert_nl_repeat(uint32_t number, va_list args);
int alert_nopos(uint32_t number, ...);

// Shows a message as alert_repeat does.
int valert_core(uint32_t number, va_list args);

// --- Messages of the caller's own (number 0 for alert_adhoc): 1 if shown, 0 if not.
//
// `type` begins with "F" (fatal), "E" (error), "M" (message), in either case, or is the level of a
// warning as an integer; 10 is the level of everything else.

int alert_text(uint32_t number, const char *type, const char *format, ...) PRINTF_LIKE(3, 4);
int alert_adhoc(const char *type, const char *format, ...) PRINTF_LIKE(2, 3);

// Ends the program after an internal error, with message 5.
[[noreturn]] void alert_fatal(int code);

// --- Message files (alert.cpp); see msgtable.h

const char *alert_msgfile(); // in force; null before the table was loaded
bool msgnum_valid(int64_t n);

// Puts a message file in force if it is newer than the one that is. False if it cannot be read.
bool open_edf(const char *name);

// Puts the newest message file of a directory in force if it is newer than the one that is. True if
// there is none, false if there is no directory.
bool open_edf_dir(const char *dir);

// Puts the message file for a language in force if it is newer; a failure ends the program.
bool alert_open_lang(uint32_t langid);

// --- What is shown (alert_control.cpp)

// Sets the level below which warnings are neither shown nor counted (0 at first); returns the
// previous one.
int32_t set_warnlevel(int32_t level);

// The row of a number with the states below applied: suppressed, or with its type and level
// changed.
MsgRecPtr alert_lookup(uint32_t number);

enum AlertOp : uint32_t {
    ALERT_DEFAULT = 0,
    ALERT_HIDE = 1,     // hide a message or warning
    ALERT_OFF = 2,      // hide what is not fatal
    ALERT_SOFTEN = 3,   // an error is a warning, of the level that is just shown
    ALERT_HARDEN = 4,   // a warning is an error
    ALERT_DISABLED = 5, // as ALERT_OFF
    // These take no number:
    ALERT_PUSH = 6,     // save the states of all numbers
    ALERT_POP = 7,      // go back to the ones saved, if there are any
    ALERT_HIDE_ALL = 8, // ALERT_HIDE for every message and warning of the table
    ALERT_OFF_ALL = 9,  // ALERT_OFF for everything in the table that is not fatal
    ALERT_CLEAR = 10,   // ALERT_DEFAULT for all
};

// Changes the state of a number, one of the first six above, or does one of the others. Numbers
// that no table can hold and unknown operations do nothing.
void alert_control(uint32_t number, uint32_t op);
uint32_t alert_state(uint32_t number);

// Hides the numbers of a list such as "1234,1235:off": 1234 if it is a message or a warning, 1235
// unless it is fatal. A list beginning with "0" hides all messages and warnings. Items that are not
// numbers are ignored.
void alert_disable(const char *list);

// --- Layout and output (alert_format.cpp)

// Sets where the line being worked on stands, for all messages to come: the file's name (null or
// empty for none) and the caller's own counters, which are read whenever a message is shown; null
// for those it does not have.
void alert_set_position(const char *file, const uint32_t *line, const uint32_t *column_base,
                        const uint32_t *column);

// Switches from the fixed layout to the templates for errors, warnings and messages. In them "%a"
// is the program, "%c" the column, "%f" the file, "%l" the line, "%m" the system's text for errno,
// "%n" the number and "%s" the text. Where the environment sets ZQT_ERR_FORMAT, ZQT_WARN_FORMAT or
// ZQT_MSG_FORMAT, that wins over alert_default_formats, but not over alert_set_formats; a null
// argument selects it, or what is built in.
void alert_use_formats(bool on);
void alert_default_formats(const char *err, const char *warn, const char *msg);
void alert_set_formats(const char *err, const char *warn, const char *msg);
const char *alert_get_err_format();
const char *alert_get_warn_format();
const char *alert_get_msg_format();

// Receives each finished line, line end included, instead of standard error; null for that.
using AlertOutputFn = void (*)(const char *line);
void alert_set_output(AlertOutputFn fn);
AlertOutputFn alert_get_output();

// Write a plain text and a line end to the alert output: no number, no counting.
void rawmsg(const char *format, ...) PRINTF_LIKE(1, 2);
void vrawmsg(const char *format, va_list args) PRINTF_LIKE(1, 0);

// Collects a plain line in pieces; it begins with a tab, and is written with the piece that is
// `last`.
void contmsg(int last, const char *format, ...) PRINTF_LIKE(2, 3);

#endif
