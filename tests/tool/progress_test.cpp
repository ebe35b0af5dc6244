#include "kestrel/progress.h"

#include "manifest/filedigests.h"
#include "tool/tool.h"

TEST(KestrelProgress, LinesSayHowFarARunIs) {
    const struct {
        HashingCounts counts; // found, and bytes of these; done, and bytes of these
        uint64_t total;
        double seconds;
        const char *line;
    } cases[] = {
        {{0, 0, 0, 0}, 100, 1, "0 %, 0 of 100 files, 0 a second, 0.0 kB"},
        {{50, 9949, 50, 9949}, 200, 2, "25 %, 50 of 200 files, 25 a second, 9.9 kB, 6 s left"},
        {{9, 0, 7, 2852000000}, 0, 2, "7 files, 3 a second, 2.9 GB"},
        {{100, 12345678, 100, 12345678},
         100,
         4,
         "100 %, 100 of 100 files, 25 a second, 12 MB, 0 s left"},
        {{101, 0, 101, 0}, 100, 4, "100 %, 100 of 100 files, 25 a second, 0.0 kB, 0 s left"},
        {{1, 5000000000000000, 1, 5000000000000000},
         1000,
         1,
         "0 %, 1 of 1000 files, 1 a second, 5000 TB, 17 min left"},
        {{1, 1000, 1, 1000}, 2, 0, "50 %, 1 of 2 files, 1000 a second, 1.0 kB, 0 s left"},
        // Files that were looked for are as large as those to come; large ones come last.
        {{10, 10'000'000, 5, 850'000}, 20, 1, "25 %, 5 of 20 files, 5 a second, 850 kB, 20 s left"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(progress_line(c.counts, c.total, c.seconds), c.line);
}

static uint64_t hooked;

TEST(KestrelProgress, TasksCountAndTakeTheLineAwayIfThereIsOne) {
    const Installation inst("dir", 3);
    inst.add("f2", std::string(100000, 'x'));
    const Lines lines = inst.generate();
    Installation::write(inst.manifest, joined(lines, "\n") + lines[0].substr(0, 68) + "d\n");
    host_mkdir(native_join(inst.tree.c_str(), "d").c_str());
    const std::string name = native_join(inst.top.c_str(), "board");
    ASSERT_TRUE(Board::make(name.c_str(), 2, 4, 1));
    Board board(name.c_str(), 0);
    board.set_view(Board::View::watched);
    os_setenv("kestrel_board", ("1," + name).c_str());
    EXPECT_EQ(inst.run({"--check=0,0,2"}), (Outcome{0, "", ""}));
    HashingCounts counted = {1, 1, 1, 1};
    board.add_counted(&counted);
    EXPECT_EQ(counted.found, 4u);
    EXPECT_EQ(counted.found_bytes, 100003u);
    EXPECT_EQ(counted.files, 4u);
    EXPECT_EQ(counted.bytes, 100003u);
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
        const auto view = c.drawn ? Board::View::drawn : Board::View::watched;
        board.set_view(view);
        EXPECT_EQ(inst.run({c.range}).err, c.err);
        EXPECT_EQ(board.view(), view) << "which is for the parent to change";
    }
    for (const std::string &none : {"2," + name, "1," + inst.manifest, std::string("1,"),
                                    std::string("1"), "1," + name + "2"}) {
        os_setenv("kestrel_board", none.c_str());
        EXPECT_EQ(inst.run({"--check=0,0,2"}).status, 0) << none;
    }
    os_setenv("kestrel_board", "");
    // The hook may be a test's.
    hooked = 0;
    const auto own = hashing_hook = [](HashingPoint, uint64_t bytes) { hooked += bytes; };
    progress_begin_task(&board);
    hashing_hook(HashingPoint::reading, 5);
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
