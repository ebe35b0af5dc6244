// How a program of the drive-letter host splits its one command-line string into arguments.
#ifndef KESTREL_HOST_ARGSPLIT_H
#define KESTREL_HOST_ARGSPLIT_H

#include <string>
#include <vector>

// The arguments in `command_line` by the Microsoft C runtime's rules: spaces and tabs separate,
// double quotes group, 2n backslashes before a quote give n and a grouping quote, 2n+1 give n and a
// literal one, any others stay as they are. The first argument (the program) is read by the same
// rules.
std::vector<std::string> split_command_line(const char *command_line);

#endif
