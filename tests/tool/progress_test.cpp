#include "kestrel/progress.h"

#include <gtest/gtest.h>

TEST(KestrelProgress, LinesFitATerminal) {
    const struct {
        ProgressCounts counts;
        uint64_t total;
        double seconds;
        const char *line;
    } cases[] = {
        {{0, 0}, 100, 1, "0 %, 0 of 100 files, 0 a second, 0.0 kB"},
        {{50, 9949}, 200, 2, "25 %, 50 of 200 files, 25 a second, 9.9 kB, 6 s left"},
        {{7, 2852000000}, 0, 2, "7 files, 3 a second, 2.9 GB"},
        {{100, 12345678}, 100, 4, "100 %, 100 of 100 files, 25 a second, 12 MB, 0 s left"},
        {{1, 5000000000000000}, 1000, 1, "0 %, 1 of 1000 files, 1 a second, 5000 TB, 17 min left"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(progress_line(c.counts, c.total, c.seconds), c.line);
}
