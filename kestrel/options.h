// The tool's command line.
#ifndef KESTREL_KESTREL_OPTIONS_H
#define KESTREL_KESTREL_OPTIONS_H

// Enters one argument into the settings; false, after a message and with the `refusal`, if it is
// malformed or a slip. Help and version are printed at once, and end the run.
bool read_option(const char *argument);

// Prints the help text.
void print_usage();

#endif
