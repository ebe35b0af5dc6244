// The tool and the system around it: directories, rights, limits, streams and signals. A shell
// prepares each run, so all of this is for systems that have one.
#include "tool/tool.h"

#include <csignal>

namespace {

class KestrelSystem : public testing::Test {
  protected:
    void SetUp() override {
        if (os_kind() != 0)
            GTEST_SKIP() << "there is no shell here";
    }
};

} // namespace

// The superuser's right to pass over all rights is given up.
static const std::string UNPRIVILEGED =
    "[ $(id -u) != 0 ] || set -- setpriv --bounding-set=-all \"$@\"\n";

namespace {

struct Circumstance {
    std::string script;
    Lines arguments;
    Outcome outcome;
    size_t lines = 60; // of the manifest after it; 62 when it is a new one
};

} // namespace

static void expect_outcome(const Installation &inst, const std::string &manifest,
                           const Circumstance &c) {
    host_remove(inst.manifest.c_str());
    Installation::write(inst.manifest, manifest);
    EXPECT_EQ(inst.run(c.arguments, c.script), c.outcome) << c.script;
    inst.run({"-h"}, "chmod 755 tree tree/closed; chmod 644 manifest tree/f7");
    EXPECT_EQ(split(read_file(inst.manifest)).size(), c.lines) << c.script;
}

TEST_F(KestrelSystem, Circumstances) {
    const Installation inst("dir", 60); // its manifest fills the stream's buffer once, not twice
    inst.generate();
    const std::string text = read_file(inst.manifest);
    inst.add("manifest", text);
    inst.add("new", "new");
    const bool can_give_up_rights = kestrel({"-h"}, UNPRIVILEGED).status == 0;
    const std::string removed = "mkdir gone; cd gone; rmdir ../gone";
    const std::string few = "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n 7";
    const Outcome astray = {1,
                            "Checking manifest \"manifest\" for installation \"" + inst.tree +
                                "\"\nVerification failed\n",
                            ""};
    const Outcome unopened = {1, "", "!! Cannot open file \"./f7\"\n"};
    const Outcome unprinted = {1, "", "Cannot write to standard output: No space left on device\n"};
    const Circumstance cases[] = {
        {removed, {"-g"}, inst.not_generated()},
        {removed, {"-c", "--tasks=1"}, inst.verdict(true)},
        {removed, {"-c", "--tasks=2"}, inst.verdict(true)},
        {removed, {"-c", "--manifest=manifest"}, astray}, // which is not the one in the tree
        {removed, {"--check=0,0,1", "--manifest=manifest"}, {1, "", ""}},
        {"export kestrel_expected_manifest=1:2:3:4", {"--check=0,0,60"}, {1, "", ""}},
        {UNPRIVILEGED + "mkdir there; cd there; chmod 600 .", {"-g"}, inst.not_generated(), 62},
        {UNPRIVILEGED + "chmod 444 manifest",
         {"-g"},
         inst.not_generated("Cannot write file \"" + inst.manifest + "\": Permission denied\n")},
        {UNPRIVILEGED + "chmod 0 manifest", {"-c"}, inst.verdict(false)},
        {UNPRIVILEGED + "chmod 0 tree/f7", {"--check=0,0,60"}, unopened},
        {UNPRIVILEGED + "chmod 0 tree/f7", {"--check=-1,0,60", "-g"}, unopened},
        {"ulimit -f 8", // 4096 bytes
         {"-g"},
         inst.not_generated("Cannot write temporary file: File too large\n")},
        {"export TEMP=\"$PWD/tree\"", {"-g"}, inst.generated(), 62},
        {UNPRIVILEGED + "mkdir -p tree/closed; chmod 0 tree/closed", {"-g"}, inst.generated(), 62},
        {UNPRIVILEGED + "chmod 311 tree",
         {"-g"},
         inst.not_generated("Cannot read directory \".\"\n")},
        {"exec >/dev/full", {"-c", "--tasks=2"}, unprinted},
        {"exec >/dev/full", {"-g"}, unprinted, 62},
        {"exec >/dev/full", {"-h"}, unprinted},
        {"exec >/dev/full", {"-c", "--report"}, unprinted},
        {"export TEMP=/proc/none",
         {"-c", "--tasks=2", "--report=report"},
         {1, inst.verdict(true).out, "The report does not cover every line\n"}},
        {"cd .",
         {"-c", "--tasks=2", "--report=/dev/full"},
         {1, inst.verdict(true).out,
          "Cannot write report \"/dev/full\": No space left on device\n"}},
        {"ulimit -n 8", {"-c", "--tasks=2"}, inst.verdict(true)},
        {"exec >&-", {"-c", "--tasks=2"}, {0, "", ""}},
        {"exec >&- 2>&-", {"-g"}, {0, "", ""}, 62},
        {"exec >&- 2>&-", {"-g", "--tasks=3"}, {0, "", ""}, 62},
        {few, {"-g", "--tasks=3"}, inst.generated(), 62},
    };
    for (const Circumstance &c : cases)
        if (can_give_up_rights || !c.script.starts_with(UNPRIVILEGED))
            expect_outcome(inst, text, c);
}

// What cannot be listed may hold anything.
TEST_F(KestrelSystem, DirectoriesThatCannotBeReadAreReported) {
    const Installation inst("dir", 2);
    inst.generate();
    if (kestrel({"-h"}, UNPRIVILEGED).status != 0)
        GTEST_SKIP() << "rights cannot be given up here";
    const struct {
        const char *script;
        Lines arguments;
        std::string record;
    } cases[] = {
        {"mkdir tree/closed; chmod 0 tree/closed", {"-c", "--extra"}, "skipped\t0\t.\\closed\n"},
        {"mkdir -p tree/dim/sub; chmod 444 tree/dim",
         {"-c", "--extra"},
         "skipped\t0\t.\\dim\\sub\n"},
        {"chmod 311 tree",
         {"-c", "--extra"},
         "error\t0\tCannot read directory \".\": Permission denied\n"},
        {"chmod 311 tree", {"-g", "--report"}, "unreadable\t0\t.\tPermission denied\n"},
        {"mkfifo tree/closed",
         {"-g", "--report"},
         "unreadable\t0\t.\\closed\tNot a regular file\n"},
    };
    for (const auto &c : cases) {
        const Outcome outcome = inst.run(c.arguments, UNPRIVILEGED + c.script);
        EXPECT_EQ(outcome.status, 1) << c.script;
        EXPECT_NE(outcome.out.find(c.record), std::string::npos) << outcome;
        inst.run({"-h"}, "chmod 755 tree tree/dim; rm -rf tree/closed tree/dim");
    }
}

// If several entries stop the walk, the first in the directory's order is reported, however long a
// file before it takes. The script leaves a file, a link to nothing and a name that is refused.
TEST_F(KestrelSystem, FirstComplaintCounts) {
    const Installation inst("dir", 0);
    const char *const entries = R"sh(cd tree; rm -f *f* *l* *r*
for i in 1 2 3 4 5 6 7 8; do echo >f$i; ln -s gone l$i; echo >"r\\$i"; done
ls -U | {
    for kept in f l r; do
        while read -r name && case $name in $kept*) false;; esac; do rm "$name"; done
    done
    while read -r name; do rm "$name"; done
})sh";
    for (const char *tasks : {"--tasks=1", "--tasks=2"}) {
        const Outcome outcome = inst.run({"-g", tasks}, entries);
        EXPECT_TRUE(outcome.err.starts_with("!! Cannot open file \"./l")) << outcome;
    }
}

// A file that is all hole; its length is that of a manifest that is one byte too long.
static void make_long(const std::string &path, int64_t size) {
    const FilePtr file(host_fopen(path.c_str(), "wb"));
    ASSERT_TRUE(host_seek(file.get(), size - 1) && putc('\n', file.get()) == '\n');
}

TEST_F(KestrelSystem, LongManifestsAreRefusedUnread) {
    const Installation inst("dir", 1);
    const std::string log = native_join(inst.top.c_str(), "log");
    make_long(inst.manifest, int64_t{1} << 31);
    EXPECT_EQ(inst.run({"-c", "--zvdebug=on,out:" + log}), inst.verdict(false));
    EXPECT_NE(read_file(log).find("-> Manifest is too large\n"), std::string::npos);
}

// The manifest is rewritten, replaced by the same text or gone, or a task is killed, while lines
// are being checked.
TEST_F(KestrelSystem, WhatHappensDuringACheckFailsIt) {
    const Installation inst("dir", 3);
    make_long(native_join(inst.tree.c_str(), "long"), int64_t{1} << 29);
    inst.generate();
    const std::string log = native_join(inst.top.c_str(), "log"), report = log + ".report";
    const std::string wait =
        "(until [ $(grep -ls 'Reading manifest' log kestrel_*.out | wc -l) = $tasks ] "
        "|| [ $((n += 1)) = 1000 ]; do sleep .01; done; ";
    const std::string kill = "for p in $(cat /proc/$$/task/$$/children); do "
                             "grep -qs '^kestrel$' /proc/$p/comm && kill";
    const char *const changed = "changed during the check\n";
    const struct {
        std::string tasks, change;
        const char *error;
    } cases[] = {
        {"1", "touch manifest", changed},
        {"2", "cp manifest m; mv m manifest", changed},
        {"2", "mv manifest m", changed},
        {"2", "cp -p manifest m; cp m manifest; touch -r m manifest; rm m", changed},
        {"2", kill + " -9 $p; done", "ended by signal 9\n"},
    };
    for (const auto &[tasks, change, error] : cases) {
        const std::string script = "tasks=" + tasks +
                                   "; rm -f log kestrel_*.out; [ -e manifest ] || mv m manifest\n" +
                                   wait + change + ") &";
        Outcome expected = inst.verdict(false);
        expected.err = change.starts_with(kill) ? "The report does not cover every line\n" : "";
        EXPECT_EQ(
            inst.run({"-c", "--tasks=" + tasks, "--zvdebug=on,out:" + log, "--report=" + report},
                     script),
            expected)
            << change;
        const std::string text = read_file(report);
        EXPECT_NE(text.find(error), text.npos) << change << "\n" << text;
        EXPECT_TRUE(!change.starts_with(kill) || text.find(" 0 unchecked") == text.npos) << text;
        EXPECT_EQ(!change.starts_with(kill), read_file(log).find(changed) != std::string::npos)
            << change;
    }
}

// It says nothing, and its files are hashed all the same.
TEST_F(KestrelSystem, ATaskOfGenerationMayBeEnded) {
    const Installation inst("dir", 3);
    make_long(native_join(inst.tree.c_str(), "long"), int64_t{1} << 29);
    const Lines lines = inst.generate();
    const std::string log = native_join(inst.top.c_str(), "log");
    const char *const end_it = R"sh((
    while [ $((tries += 1)) -lt 1000 ]; do
        for p in $(cat /proc/$$/task/$$/children); do
            ls -l /proc/$p/fd | grep -q tree/long && kill -$number $p && exit
        done
        sleep .01
    done
) 2>/dev/null &)sh";
    for (const char *number : {"number=15\n", "number=9\n"}) {
        host_remove(inst.manifest.c_str());
        EXPECT_EQ(
            inst.run({"-g", "--tasks=2", "--zvdebug=on,out:" + log}, std::string(number) + end_it),
            inst.generated());
        EXPECT_EQ(split(read_file(inst.manifest)), lines) << number;
        EXPECT_NE(read_file(log).find("did not hash its files"), std::string::npos) << number;
    }
}

TEST_F(KestrelSystem, TasksLogIntoNewFilesBesideAFile) {
    const Installation inst("dir", 10);
    inst.generate();
    const std::string path = native_join(inst.top.c_str(), "kestrel_0-5.out");
    const std::string precious = native_join(inst.top.c_str(), "precious");
    EXPECT_EQ(inst.run({"-c", "--tasks=2", "--zvdebug=on,out:pipe"}, "mkfifo pipe; exec 9<>pipe"),
              inst.verdict(true));
    EXPECT_FALSE(os_exists(path.c_str())) << "the log is not a file";
    Installation::write(precious, "precious");
    EXPECT_EQ(
        inst.run({"-c", "--tasks=2", "--zvdebug=on,out:log"}, "ln -s precious kestrel_0-5.out"),
        inst.verdict(true));
    EXPECT_EQ(read_file(precious), "precious");
    EXPECT_NE(read_file(path).find("All hashes in the range verified correctly"),
              std::string::npos);
}

// Announcements come before complaints where both streams are one.
TEST_F(KestrelSystem, WhatIsDoneIsAnnouncedFirst) {
    const Installation inst("dir", 0);
    EXPECT_EQ(inst.run({"-g"}, "exec 2>&1; ln -s gone tree/f"),
              (Outcome{1, inst.announced("Generating") + "!! Cannot open file \"./f\"\n", ""}));
}

TEST_F(KestrelSystem, SignalsEndIt) {
    const Installation inst("dir", 0);
    const std::string temp = native_join(inst.top.c_str(), "temp");
    // Another process sends them when the tool has begun to hash.
    const std::string send = R"sh(
export TEMP="$PWD/temp"
(
    until ls -l /proc/$$/fd | grep -q tree/long || [ $((tries += 1)) = 1000 ]; do sleep .01; done
    for number in $numbers; do kill -$number $$; done
) 2>/dev/null &)sh";
    const std::string apology = "\n\nAn unexpected problem has been encountered and the program "
                                "must quit; contact Norvane support with details\n\n";
    const struct {
        const char *script;
        int status;
        std::string err;
    } cases[] = {{"numbers=1", 1, ""},
                 {"numbers=2", 2, ""},
                 {"numbers=15", 15, ""},
                 {"numbers=6", 6, apology},
                 {"numbers=8", 8, apology},
                 {"numbers=11", 11, apology},
                 {"numbers='1 2 15'; trap '' 1 2", 15, ""},
                 {"numbers='1 2 15'; trap '' $numbers", 0, ""}};
    for (const int number : host_caught_signals()) // the tests themselves may be run ignoring some
        signal(number, SIG_DFL);
    for (const auto &c : cases) {
        host_mkdir(temp.c_str());
        Installation::write(inst.manifest, "old");
        make_long(native_join(inst.tree.c_str(), "long"), int64_t{1} << (c.status != 0 ? 34 : 29));
        const Outcome ended = {c.status, inst.announced("Generating") + "\n", c.err};
        EXPECT_EQ(inst.run({"-g"}, c.script + send), c.status != 0 ? ended : inst.generated())
            << c.script;
        EXPECT_EQ(read_file(inst.manifest) == "old", c.status != 0) << c.script;
        EXPECT_TRUE(host_rmdir(temp.c_str())) << "something was left behind: " << c.script;
        os_rmtree(temp.c_str());
    }
}
