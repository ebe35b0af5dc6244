// How far a long run is: one line on standard error, if that is a terminal and this run is in its
// foreground, drawn a few times a second from the first second on.
#ifndef KESTREL_KESTREL_PROGRESS_H
#define KESTREL_KESTREL_PROGRESS_H

#include <atomic>
#include <cstdint>
#include <string>

// The seconds that a run is silent in the beginning, and those between two drawings. Tests have a
// copy of the program with 0 for both.
struct ProgressPace {
    double silence;
    double interval;
};
extern ProgressPace progress_pace;

// Counts the files that this process hashes from now on, and shows them if there is a terminal.
// `total` is the number of lines to check, 0 if it is unknown.
void progress_begin(uint64_t total);

// Whether the line is shown, sooner or later.
bool progress_is_on();

// In a task: counts for its parent, which has given its counts this name.
void progress_begin_task(const char *name);

// The name by which tasks find the counts of this process; null if nothing is shown.
const char *progress_name();

// Draws what this process and its tasks have counted, if it is time.
void progress_poll();

// Takes the line away, before anything else is printed.
void progress_wipe();

// Takes the line away for good.
void progress_end();

// What a process and its tasks have counted together, and whether the line shows anything: the
// memory that they share.
struct ProgressTally {
    std::atomic<uint64_t> files;
    std::atomic<uint64_t> bytes;
    std::atomic<bool> is_drawn;
};

// What is counted, and the line that shows it after so many seconds.
struct ProgressCounts {
    uint64_t files;
    uint64_t bytes;
};
std::string progress_line(const ProgressCounts &counts, uint64_t total, double seconds);

#endif
