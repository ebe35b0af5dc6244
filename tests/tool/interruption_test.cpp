// What happens to a run while it hashes: to its manifest, its tree, its tasks and itself.
#include "manifest/filedigests.h"
#include "support/files.h"
#include "tool/tool.h"

#include <csignal>
#include <span>

// The manifest is rewritten, replaced by the same text or gone, or a task is ended.
TEST(KestrelInterruption, WhatHappensToTheManifestOrATaskFailsACheck) {
    const Installation inst("dir", 7);
    inst.generate();
    const std::string text = read_file(inst.manifest), log = native_join(inst.top.c_str(), "log");
    const std::string same = inst.manifest + ".same", report = log + ".report";
    const std::string changed = "Manifest \"" + inst.manifest + "\" changed during the check";
    const std::string ended = " ended by signal ";
    const bool windows = os_kind() != 0; // where nothing else can be done to files that are open
    const struct {
        std::string what, tasks, error;
        bool is_complete = true; // the report
        std::string out = "";    // before the verdict
    } cases[] = {
        {"rewrite|" + inst.manifest, "1", changed},
        {"rewrite|" + inst.manifest, "2", changed},
        {"raise|15", "2", ended + "15", false, windows ? "" : "\n"},
        {"exit|-1073741819", "2", windows ? " crashed with status 0xC0000005" : ended + "5", false},
        {"raise|9", "2", ended + "9", false},
        {"rename|" + same + "|" + inst.manifest, "2", changed},
        {"remove|" + inst.manifest, "2", changed},
    };
    for (const auto &c : std::span(cases, windows ? 4 : std::size(cases))) {
        for (const std::string &file : {same, inst.manifest})
            Installation::write(file, text);
        EXPECT_EQ(inst.interrupted(c.what, {"-c", "--tasks=" + c.tasks, "--zvdebug=on,out:" + log,
                                            "--report=" + report}),
                  (Outcome{1, inst.announced("Checking") + c.out + "Verification failed\n",
                           c.is_complete ? "" : "The report does not cover every line\n"}))
            << c.what;
        const std::string records = read_file(report);
        EXPECT_NE(records.find(c.error), records.npos) << c.what << "\n" << records;
        EXPECT_TRUE(c.is_complete || records.find(" 0 unchecked") == records.npos) << records;
        EXPECT_EQ(read_file(log).find(changed) != std::string::npos, c.error == changed) << c.what;
    }
}

namespace {

// Two equal trees, and a name that leads to the first.
struct TwoTrees : Installation {
    explicit TwoTrees(bool by_link)
        : Installation("dir", 7), other(tree + "2"),
          name(by_link ? native_join(top.c_str(), "current") : tree) {
        host_mkdir(other.c_str());
        for (int i = 0; i < 7; i++)
            write(native_join(other.c_str(), ("f" + std::to_string(i)).c_str()), std::to_string(i));
        possible = by_link ? make_link(tree, name, true) && make_link(other, name + "2", true)
                           : os_kind() == 0; // where directories in use can be renamed
        change = by_link ? "rename|" + name + "2|" + name
                         : "rename|" + tree + "|" + tree + "1|" + other + "|" + tree;
    }
    const std::string other, name;
    std::string change;
    bool possible;
};

} // namespace

static void expect_failure(const TwoTrees &inst, const std::string &mode, const char *tasks) {
    inst.generate();
    if (mode == "-g")
        Installation::write(inst.manifest, "old");
    const std::string manifest = read_file(inst.manifest);
    const std::string moved =
        "Installation path \"" + inst.name + "\" does not lead to the same directory any more\n";
    const Outcome outcome =
        inst.interrupted(inst.change, {mode, tasks, "--report", "--instdir=" + inst.name});
    EXPECT_EQ(outcome.status, 1) << outcome;
    EXPECT_NE(outcome.out.find("error\t0\t" + moved), std::string::npos) << outcome;
    EXPECT_EQ(outcome.err,
              mode == "-g" ? moved + "There was a problem generating the manifest file\n" : "");
    EXPECT_EQ(read_file(inst.manifest), manifest) << mode << tasks;
}

TEST(KestrelInterruption, ARunIsAboutOneDirectory) {
    for (const bool by_link : {true, false})
        for (const char *mode : {"-c", "-g"})
            for (const char *tasks : {"--tasks=1", "--tasks=3"})
                if (const TwoTrees inst(by_link); inst.possible)
                    expect_failure(inst, mode, tasks);
}

// A task ends while large files are shared: a check fails, and says who has ended; -g writes the
// whole manifest. Nothing waits for ever.
TEST(KestrelInterruption, TasksMayEndAtAnyPointOfAnExchange) {
    const Installation inst("dir", 3);
    for (int i = 0; i < 6; i++)
        inst.add(("large" + std::to_string(i)).c_str(),
                 std::string((1 << 20) + static_cast<size_t>(i), 'x'));
    const Lines lines = inst.generate();
    for (const Lines &mode : {Lines{"-c"}, Lines{"-c", "--report"}, Lines{"-g"}})
        for (const HashingPoint point : {HashingPoint::reading, HashingPoint::offered,
                                         HashingPoint::taken, HashingPoint::writing})
            for (const char *what : {"raise|9", "exit|3"}) {
                if (os_kind() != 0 && what == std::string("raise|9"))
                    continue; // there is none
                Lines arguments = mode;
                arguments.push_back("--tasks=3");
                os_setenv("KESTREL_INTERRUPT_AT", std::to_string(static_cast<int>(point)).c_str());
                const Outcome outcome = inst.interrupted(what, arguments);
                os_setenv("KESTREL_INTERRUPT_AT", "");
                const std::string which = mode.back() + what + std::to_string(int(point));
                if (mode[0] == "-g") {
                    EXPECT_EQ(outcome, inst.generated()) << which;
                    EXPECT_EQ(split(read_file(inst.manifest)), lines) << which;
                } else if (mode.size() == 1) {
                    EXPECT_EQ(outcome, inst.verdict(false)) << which;
                } else {
                    EXPECT_EQ(outcome.status, 1) << which;
                    EXPECT_NE(outcome.out.find(" ended by signal "), std::string::npos) << which;
                }
            }
    // Without a directory for the board nothing is shared.
    const std::string before = getenv("TEMP") != nullptr ? getenv("TEMP") : "";
    os_setenv("TEMP", inst.manifest.c_str());
    EXPECT_EQ(inst.check(3), inst.verdict(true));
    os_setenv("TEMP", before.c_str());
}

TEST(KestrelInterruption, SignalsEndTheRun) {
    const Installation inst("dir", 2);
    const std::string temp = native_join(inst.top.c_str(), "temp");
    const std::string before = getenv("TEMP") != nullptr ? getenv("TEMP") : "";
    const std::string apology = "\n\nAn unexpected problem has been encountered and the program "
                                "must quit; contact Norvane support with details\n\n";
    const struct {
        std::string what;
        int status;
        std::string err;
        const char *script = ""; // where there is a shell
    } cases[] = {
        {"raise|2", 2, ""},
        {"raise|15", 15, ""},
        {"raise|8", 8, apology},
        {"raise|11", 11, apology},
        {"raise|" + std::to_string(SIGABRT), SIGABRT, apology},
        {"raise|1|2|15", 1, "", "cd ."},
        {"raise|1|2|15", 15, "", "trap '' 1 2"},
        {"raise|1|2|15", 0, "", "trap '' 1 2 15"},
    };
    for (const int number : host_caught_signals()) // the tests themselves may be run ignoring some
        signal(number, SIG_DFL);
    os_setenv("TEMP", temp.c_str());
    for (const auto &c : cases) {
        if (*c.script != '\0' && os_kind() != 0)
            continue;
        host_mkdir(temp.c_str());
        Installation::write(inst.manifest, "old");
        const Outcome ended = {c.status, inst.announced("Generating") + "\n", c.err};
        EXPECT_EQ(inst.interrupted(c.what, {"-g"}, c.script),
                  c.status != 0 ? ended : inst.generated())
            << c.what << c.script;
        EXPECT_EQ(read_file(inst.manifest) == "old", c.status != 0) << c.what << c.script;
        EXPECT_TRUE(host_rmdir(temp.c_str())) << "something was left behind: " << c.what;
        os_rmtree(temp.c_str());
    }
    os_setenv("TEMP", before.c_str());
}
