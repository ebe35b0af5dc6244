// How far a long run is: one line on standard error, if that is a terminal, drawn a few times a
// second from the first second on.
#ifndef KESTREL_PROGRESS_H
#define KESTREL_PROGRESS_H

#include <cstdint>
#include <string>

// Counts the files that this process hashes from now on, and shows them if there is a terminal.
// `total` is the number of lines to check, 0 if it is unknown.
void progress_begin(uint64_t total);

// Whether that is so.
bool progress_is_on();

// Counts them for the parent instead, which reads them from this file, if it can be written.
void progress_begin_task(const char *path);

// The parent's side: a file for one more task to count into, interned; null if nothing is shown.
const char *progress_add_task();

// Shows the sum of what the tasks have counted.
void progress_poll();

// Takes the line away, before anything else is printed.
void progress_wipe();

// Takes it away for good.
void progress_end();

// What is counted, and the line that shows it after so many seconds.
struct ProgressCounts {
    uint64_t files;
    uint64_t bytes;
};
std::string progress_line(const ProgressCounts &counts, uint64_t total, double seconds);

#endif
