// Numbered messages: shown, counted, and ending the program when they are fatal.
#ifndef COMMON_ALERT_H
#define COMMON_ALERT_H

#include "xalloc.h"

#include <cstdarg>
#include <cstdint>

// Ends the program with a status; must not return. exit() by default, the program's own clean-up
// once runtime_init() has been told of it.
extern void (*alert_exit_hook)(int status);

// Messages of the table (there are more entry points than these).
int alert(uint32_t number, ...);
int alert_nl(uint32_t number, ...);
int alert_nl_repeat(uint32_t number, ...);

// Plain text and a line end to the alert output: no number, no counting.
void rawmsg(const char *format, ...) PRINTF_LIKE(1, 2);
void vrawmsg(const char *format, va_list args) PRINTF_LIKE(1, 0);

#endif
