// How far a long run is: one line on standard error, if that is a terminal and this run is in its
// foreground, drawn a few times a second after the first one.
#ifndef KESTREL_MANIFEST_PROGRESS_H
#define KESTREL_MANIFEST_PROGRESS_H

#include "manifest/board.h"

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

// In a task: counts for its parent, if that watches the board. Nothing for null.
void progress_begin_task(Board *shared);

// In the parent: from now on what the tasks count on a board is shown, too. With null nobody knows
// how far they are, and nothing is shown.
void progress_share(const char *board_file);

// Draws what this process and its tasks have counted, if it is time.
void progress_poll();

// Takes the line away, before anything else is printed.
void progress_wipe();

// Takes the line away for good.
void progress_end();

// The line that shows what is counted after so many seconds. The time left is that of the bytes:
// large files come last.
std::string progress_line(const HashingCounts &counts, uint64_t total, double seconds);

#endif
