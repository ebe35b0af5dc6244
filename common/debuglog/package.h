// The debug package: a zip archive that collects files of a run, above all the debug log. Every
// process of a run adds its files to the same archive. Failures are warnings and change nothing
// else.
#ifndef KESTREL_DEBUGLOG_PACKAGE_H
#define KESTREL_DEBUGLOG_PACKAGE_H

// Adds a file, with a comment unless that is null. Nothing if no package was asked for or there is
// no such file. An absolute path is stored below "SYSTEM_ROOT". The archive appears, or is
// replaced, when the new one is complete; one that stood there stays as it was if anything fails,
// and keeps its comment. Processes that add at the same time wait for each other.
void package_add(const char *file, const char *comment);
void package_add_file(const char *file);

// Names the application that is about to run; "qrn" at first.
void package_set_app(const char *name);

// Ends the debug log's run: adds the log to the package, unless it is another application's, and
// writes the accounts of the containers when they were asked for. The log itself stays open until
// the process ends.
void package_finish();

#endif
