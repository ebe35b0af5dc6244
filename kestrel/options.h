// The tool's command line.
#ifndef KESTREL_KESTREL_OPTIONS_H
#define KESTREL_KESTREL_OPTIONS_H

// Reads one argument into the settings. False, after a message and with settings.refusal set, if
// its value is wrong or it is nearly an option (see slip.h); what is no option at all is only
// noted. Help and version are printed at once, and end the run.
bool read_option(const char *argument);

// Prints the help text.
void print_usage();

#endif
