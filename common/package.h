// The debug package, and the end of the debug log's run.
#ifndef COMMON_PACKAGE_H
#define COMMON_PACKAGE_H

// Ends the debug log's run: writes the containers' accounts when they were asked for. The log
// itself stays open until the process ends.
void package_finish();

#endif
