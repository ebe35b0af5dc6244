// What the sources of the alert module share.
#ifndef KESTREL_MESSAGES_ALERT_INTERNAL_H
#define KESTREL_MESSAGES_ALERT_INTERNAL_H

#include "messages/alert.h"

enum class AlertClass { error, warning, message };

// The class of a row's type, or of the first character of a caller's type string.
AlertClass alert_class(uint32_t type);

// What a message is about.
struct AlertScope {
    bool non_line;    // no line
    bool no_position; // and no file
};

// A message as the layout needs it.
struct AlertCall {
    uint32_t number;
    uint32_t type;    // a row's, or the first character of a caller's type string
    const char *text; // its printf format
    int error;        // errno when it was raised
    AlertScope scope;
};

struct AlertPosition {
    const char *file; // null for none
    const uint32_t *line;
    const uint32_t *column_base;
    const uint32_t *column;
};
extern AlertPosition alert_position;

extern int32_t alert_threshold; // warnings below are not shown

void alert_ensure_init();

// alert_lookup without memory of its own, so that running out of memory can be reported.
MsgRec alert_row(uint32_t number);
bool alert_hidden(const MsgRec &row);

// Lays one line out and writes it.
void alert_format(const AlertCall &call, va_list args);

// The templates as the environment or the defaults have them.
void alert_init_formats();

#endif
