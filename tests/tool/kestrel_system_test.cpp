// The tool and the system around it: directories, rights, limits, streams and signals. A shell
// prepares each run, so all of this is for systems that have one.
#include "tool/tool.h"

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

enum Rights { ALL, OWN }; // OWN: without the superuser's

struct Circumstance {
    Rights rights;
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
    EXPECT_EQ(inst.run(c.arguments, (c.rights == OWN ? UNPRIVILEGED : "") + c.script), c.outcome)
        << c.script;
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
    const Circumstance cases[] = {
        {ALL, removed, {"-g"}, inst.not_generated()},
        {ALL, removed, {"-c", "--tasks=1"}, inst.verdict(true)},
        {ALL, removed, {"-c", "--tasks=2"}, inst.verdict(true)},
        {ALL, removed, {"-c", "--manifest=manifest"}, astray}, // which is not the one in the tree
        {ALL, removed, {"--check=0,0,1", "--manifest=manifest"}, {1, "", ""}},
        {ALL, "export kestrel_expected_manifest=1:2:3:4", {"--check=0,0,60"}, {1, "", ""}},
        {OWN, "mkdir there; cd there; chmod 600 .", {"-g"}, inst.not_generated(), 62},
        {OWN,
         "chmod 444 manifest",
         {"-g"},
         inst.not_generated("Cannot write file \"" + inst.manifest + "\": Permission denied\n")},
        {OWN, "chmod 0 manifest", {"-c"}, inst.verdict(false)},
        {OWN, "chmod 0 tree/f7", {"--check=0,0,60"}, unopened},
        {OWN, "chmod 0 tree/f7", {"--check=-1,0,60", "-g"}, unopened},
        {ALL,
         "ulimit -f 8", // 4096 bytes
         {"-g"},
         inst.not_generated("Cannot write temporary file: File too large\n")},
        {ALL, "export TEMP=\"$PWD/tree\"", {"-g"}, inst.generated(), 62},
        {OWN, "mkdir -p tree/closed; chmod 0 tree/closed", {"-g"}, inst.generated(), 62},
        {OWN, "chmod 311 tree", {"-g"}, inst.not_generated("Cannot read directory \".\"\n")},
        {ALL,
         "export TEMP=/proc/none",
         {"-c", "--tasks=2", "--report=report"},
         {1, inst.verdict(true).out, "The report does not cover every line\n"}},
        {ALL,
         "cd .",
         {"-c", "--tasks=2", "--report=/dev/full"},
         {1, inst.verdict(true).out,
          "Cannot write report \"/dev/full\": No space left on device\n"}},
        {ALL, "ulimit -n 8", {"-c", "--tasks=2"}, inst.verdict(true)},
        {ALL, few, {"-g", "--tasks=3"}, inst.generated(), 62},
    };
    for (const Circumstance &c : cases)
        if (can_give_up_rights || c.rights == ALL)
            expect_outcome(inst, text, c);
}

// What cannot be listed may hold anything, and a new manifest leaves it out.
TEST_F(KestrelSystem, ReportsSayWhatTheUserMayNotDo) {
    const Installation inst("dir", 3);
    inst.generate();
    if (kestrel({"-h"}, UNPRIVILEGED).status != 0)
        GTEST_SKIP() << "rights cannot be given up here";
    const std::string closed = "mkdir tree/closed; chmod 0 tree/closed";
    const std::string denied = "Permission denied\n";
    const struct {
        std::string script;
        Lines arguments;
        int status;
        std::string record;
    } cases[] = {
        {closed, {"-c", "--extra"}, 1, "skipped\t0\t.\\closed\n"},
        {closed, {"-g", "--report"}, 0, "skipped\t0\t.\\closed\n"},
        {"mkdir -p tree/dim/sub; chmod 444 tree/dim",
         {"-c", "--extra"},
         1,
         "skipped\t0\t.\\dim\\sub\n"},
        {"chmod 311 tree",
         {"-c", "--extra"},
         1,
         "error\t0\tCannot read directory \".\": " + denied},
        {"chmod 311 tree", {"-g", "--report"}, 1, "unreadable\t0\t.\t" + denied},
        {"mkfifo tree/closed",
         {"-g", "--report"},
         1,
         "unreadable\t0\t.\\closed\tNot a regular file\n"},
        {"mkfifo tree/closed",
         {"-c", "--report", "--manifest=" + native_join(inst.tree.c_str(), "closed")},
         1,
         "/tree/closed\": Not a regular file\n"},
        {"chmod 0 tree",
         {"-g", "--report"},
         1,
         "error\t0\tCould not change to directory: \"" + inst.tree + "\": " + denied},
        {"chmod 444 manifest",
         {"-g", "--report"},
         1,
         "error\t0\tCannot write file \"" + inst.manifest + "\": " + denied},
        {"mkdir tree/dim; chmod 555 tree/dim; export TEMP=\"$PWD/tree/dim\"",
         {"-g", "--report"},
         1,
         "error\t0\tCannot write temporary file: " + denied},
        {"echo >>manifest; >tree/f4", {"-c", "--extra"}, 1, "malformed\t4\t\nextra\t0\t.\\f4\n"},
    };
    for (const auto &c : cases) {
        const Outcome outcome = inst.run(c.arguments, UNPRIVILEGED + c.script);
        EXPECT_EQ(outcome.status, c.status) << c.script << outcome;
        EXPECT_NE(outcome.out.find(c.record), std::string::npos) << c.script << outcome;
        inst.run({"-h"},
                 "chmod 755 tree tree/dim; chmod 644 manifest; rm -rf tree/closed tree/dim");
    }
}

// A program that is gone from its directory can start none.
TEST_F(KestrelSystem, ReportsSayWhatCouldNotBeStarted) {
    const Installation inst("dir", 3);
    inst.generate();
    const std::string out =
        inst.run({"-c", "--report", "--tasks=2"}, "cp \"$1\" gone; exec 7<gone; rm gone; shift; "
                                                  "set -- /proc/self/fd/7 \"$@\"")
            .out;
    EXPECT_EQ(out, inst.announced("Checking") +
                       "error\t0\tTask 0 (lines 1 to 2) could not be started: No such file or "
                       "directory\n"
                       "error\t0\tTask 1 (lines 3 to 3) could not be started: No such file or "
                       "directory\n"
                       "end\t3\t0 good, 0 different, 0 missing, 0 unreadable, 0 malformed, "
                       "0 outside, 3 unchecked\nVerification failed\n");
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
