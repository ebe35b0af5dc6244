#include "kestrel/progress.h"

#include "manifest/filedigests.h"
#include "tool/tool.h"

#include <new>

TEST(KestrelProgress, LinesSayHowFarARunIs) {
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
        {{101, 0}, 100, 4, "100 %, 100 of 100 files, 25 a second, 0.0 kB, 0 s left"},
        {{1, 5000000000000000}, 1000, 1, "0 %, 1 of 1000 files, 1 a second, 5000 TB, 17 min left"},
        {{1, 1000}, 2, 0, "50 %, 1 of 2 files, 1000 a second, 1.0 kB, 0 s left"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(progress_line(c.counts, c.total, c.seconds), c.line);
}

static uint64_t hooked;

// Memory as a parent shares it with its tasks.
TEST(KestrelProgress, TasksCountAndTakeTheLineAwayIfThereIsOne) {
    const Installation inst("dir", 3);
    inst.add("f2", std::string(100000, 'x'));
    const Lines lines = inst.generate();
    Installation::write(inst.manifest, joined(lines, "\n") + lines[0].substr(0, 68) + "d\n");
    host_mkdir(native_join(inst.tree.c_str(), "d").c_str());
    std::string name;
    void *memory = host_make_shared(sizeof(ProgressTally), &name);
    ASSERT_NE(memory, nullptr);
    auto *tally = new (memory) ProgressTally{};
    EXPECT_EQ(inst.run({"--progress=" + name, "--check=0,0,2"}), (Outcome{0, "", ""}));
    EXPECT_EQ(tally->files, 3u);
    EXPECT_EQ(tally->bytes, 100002u);
    const std::string complaint =
        "!! Cannot open file \"." + std::string(1, host_path_style().separator) + "d\"\n";
    const struct {
        bool drawn;
        const char *range;
        std::string err; // less carriage returns, and the line is one column wide
    } cases[] = {{true, "--check=0,3,3", " " + complaint},
                 {false, "--check=0,3,3", complaint},
                 {true, "--check=0,0,2", ""}};
    for (const auto &c : cases) {
        tally->is_drawn = c.drawn;
        EXPECT_EQ(inst.run({"--progress=" + name, c.range}).err, c.err);
        EXPECT_EQ(tally->is_drawn, c.drawn) << "which is for the parent to change";
    }
    for (const char *other : {"gone", "1", "", "-1"}) // none of memory
        EXPECT_EQ(inst.run({std::string("--progress=") + other, "--check=0,0,2"}).status, 0);
    // The hook may be a test's.
    hooked = 0;
    const auto own = hashing_hook = [](uint64_t bytes) { hooked += bytes; };
    progress_begin_task(name.c_str());
    hashing_hook(5);
    progress_end();
    EXPECT_EQ(hashing_hook, own);
    EXPECT_EQ(hooked, 5u);
    hashing_hook = nullptr;
}

TEST(KestrelProgress, IsShownInTheForegroundAndTakenAway) {
    if (!has_terminals())
        GTEST_SKIP() << "no terminal can be had here";
    const Installation inst("dir", 5);
    const Lines lines = inst.generate();
    const std::string good = read_file(inst.manifest);
    const std::string directory = lines[0].substr(0, 68) + "d\n";
    host_mkdir(native_join(inst.tree.c_str(), "d").c_str());
    const std::string checking = inst.announced("Checking"), passed = inst.verdict(true).out;
    const struct {
        const char *command;
        std::string manifest;
        std::string screen;
        char done; // at least, when the line is drawn for the last time; 0 if it is not
    } cases[] = {
        {"$K -g --tasks=1", good, inst.generated().out, '5'},
        {"$K -c --tasks=1", good, passed, '5'},
        // When the second task is waited for, the first has done its lines.
        {"$K -g --tasks=2", good, inst.generated().out, '3'},
        {"$K -c --tasks=2", good, passed, '3'},
        {"TERM=dumb $K -c --tasks=2", good, passed, 0},
        {"$K -c --tasks=1", good + directory, checking + "!! Cannot open file \"./d\"\n", '5'},
        {"$K -c --tasks=1 --report", good + directory,
         checking + "unreadable\t6\t.\\d\tIs a directory\nend\t6\t5 good, 0 different, 0 missing, "
                    "1 unreadable, 0 malformed, 0 outside, 0 unchecked\nVerification failed\n",
         '5'},
        {"stty tostop; set -m; $K -c --tasks=2 >out & wait $!; cat out", good, passed, 0},
    };
    for (const auto &c : cases) {
        Installation::write(inst.manifest, c.manifest);
        const std::string output = on_terminal(inst, c.command);
        EXPECT_EQ(screen_of(output), c.screen) << c.command;
        const size_t last = output.rfind(" of ");
        EXPECT_EQ(last == output.npos, c.done == 0) << output;
        EXPECT_TRUE(last == output.npos || output[last - 1] >= c.done) << output;
    }
}
