// The tool seen from outside, and the division of its work.
#include "kestrel/tasks.h"
#include "manifest/shahash.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tool/tool.h"

#include <cstring>
#include <random>

// --- Division of the work

TEST(KestrelTasks, EveryLineBelongsToOneTask) {
    for (uint32_t lines = 1; lines <= 300; lines++) {
        for (uint32_t tasks = 1; tasks <= 40; tasks++) {
            const Plan plan = divide(lines, tasks);
            uint64_t next = 0;
            for (const Task &task : plan.given) {
                ASSERT_TRUE(task.range.start == next && task.lines > 0)
                    << lines << " lines, task " << task.number << " of " << tasks;
                next += task.lines;
            }
            ASSERT_EQ(next, lines);
            ASSERT_EQ(plan.given.size() == tasks, lines > tasks || tasks == 1) << lines;
        }
    }
    EXPECT_EQ(divide(1000, 8).given[7].range.start, 876u);
    EXPECT_EQ(divide(UINT32_MAX, 2).given[1].range.end, UINT32_MAX);
    EXPECT_TRUE(divide(0, 3).given.empty());
}

TEST(KestrelTasks, CountFollowsLinesAndProcessors) {
    const struct {
        uint32_t lines;
        int32_t processors;
        uint32_t tasks;
    } cases[] = {{1000, 2, 8},   {808, 2, 8},  {807, 2, 7},   {500, 2, 4},
                 {10, 4, 16},    {16, 4, 16},  {17, 4, 1},    {202, 4, 2},
                 {100000, 1, 1}, {5000, 0, 1}, {5000, -3, 1}, {10, INT32_MAX, INT32_MAX / 4 * 4}};
    for (const auto &c : cases)
        EXPECT_EQ(adjusted_task_count(c.lines, c.processors), c.tasks) << c.lines;
}

TEST(KestrelTasks, ProgramsAreStartedWithQuotedArguments) {
    const char *const none = nullptr;
    const VectorPtr args(vec_new(__FILE__, __LINE__));
    EXPECT_EQ(vecString(nullptr), nullptr);
    EXPECT_EQ(vecString(args.get()), nullptr);
    for (const char *argument : {"C:\\a b\\k.exe", "plain\\", "\"hi\" you", "\"", "a\tb", none, ""})
        vec_append(args.get(), argument);
    EXPECT_STREQ(vecString(args.get()),
                 "\"C:\\a b\\k.exe\" plain\\ \"\\\"hi\\\" you\" \\\" \"a\tb\"  ");

    const std::string program = child_program();
    const auto started = [&](const char *exe, const char *status) {
        const VectorPtr exit(vec_new(__FILE__, __LINE__));
        for (const char *argument : {exe, none, "--exit", status, none})
            vec_append(exit.get(), argument);
        return runProgram(exe, exit.get());
    };
    const LogCapture log;
    trace_flags = TRACE_GENERAL;
    EXPECT_EQ(started((program + ".gone").c_str(), "0"), 0);
    EXPECT_TRUE(wait_for_task(started(program.c_str(), "0"), 0));
    trace_flags = 0;
    const Lines results = split(log.lines_with("EXIT runProgram()"));
    ASSERT_EQ(results.size(), 2u);
    EXPECT_TRUE(results[0].ends_with("-> Could not create process for \"" + program + ".gone\""));
    EXPECT_NE(results[1].find("-> Successfully created process with id "), results[1].npos);
    EXPECT_FALSE(wait_for_task(started(program.c_str(), "7"), 0));
    EXPECT_FALSE(wait_for_task(0, 0)) << "was not started";
    EXPECT_FALSE(wait_for_task(1, 0)) << "not a process of ours: it has no status";
}

// --- Options

static const char *const HELP_BODY = R"(
Options:
  -g                           Generate a manifest containing hashes of files found under the directory specified by --instdir
  -c                           Check a manifest containing hashes of files found under the directory specified by --instdir
  -v                           Turn on verbose (default is on)
  -h                           Display this help text
  --manifest=<argument>        The path to the manifest file
  --instdir=<argument>         The top-level directory where under the files to be verified or hashed exist
  --tasks=<argument>           Specify how many parallel tasks should be used. If not specified, it will be calculated automatically
  --help                       Display this help text


Example usage:
  To generate a new manifest file named "foo" for the files under the directory "bar", use;
    kestrel -v -g --manifest=foo --instdir=bar

  To check hashes in manifest file "foo" against the files under the directory "bar", use;
    kestrel -v -c --manifest=foo --instdir=bar

)";

TEST(KestrelOptions, HelpAndComplaints) {
    const std::string help = kestrel({"-h"}).out;
    EXPECT_EQ(help.find("Norvane Kestrel V2.41\n"), 0u);
    EXPECT_NE(split(help)[1].find("2023"), std::string::npos);
    EXPECT_EQ(help.substr(help.find('\n', help.find('\n') + 1) + 1), HELP_BODY);

    const std::string nowhere = "Missing installation directory. Please specify the tool path with "
                                "the option: --instdir=path\n";
    const std::string none =
        "Missing generate -g or check -c options. One of them must be provided\n";
    const std::string both =
        "Both the generate -g and check -c options were provided. Only one can be accepted\n";
    const std::string syntax = "Invalid syntax for option: --check\n";
    const Installation inst("dir", 1);
    const std::string here = "--instdir=" + inst.tree, gone = "--instdir=" + inst.manifest;
    const std::string no_log = native_join(inst.manifest.c_str(), "log");
    const struct {
        Lines arguments;
        Outcome outcome;
    } cases[] = {
        {{"--help", "--check=1"}, {0, help, ""}},
        {{"-g", "--version", "--check=1"}, {0, "kestrel 2.41\n", ""}},
        {{"-g", "-c", here, "-h"}, {0, help, ""}},
        {{}, {1, help, nowhere}},
        {{"-g", "-c"}, {1, help, nowhere}},
        {{here}, {1, help, none}},
        {{here, "-v", "-vv", "-gx", "-C", "--helpme", "--zv", "stray"}, {1, help, none}},
        {{"-g", "-c", here}, {1, help, both}},
        {{"--check=5,1", "-h"}, {1, "", syntax}},
        {{here, "--check="}, {1, "", syntax}},
        {{"-c", here, "--check=0,0,0", "-vv"}, {1, "", ""}},
        {{"--check=0,0,0", here, "-v"}, {1, "Verification failed\n", ""}},
        {{"-g", gone}, {1, "", "There was a problem generating the manifest file\n"}},
        {{"-c", gone}, {1, "Verification failed\n", ""}},
        {{"--zvdebug=on,out:" + no_log, "-g", here},
         {1, "",
          "(141) can't open debug-out file \"" + no_log + "\": No such file or directory\n"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kestrel(c.arguments), c.outcome) << testing::PrintToString(c.arguments);
    EXPECT_FALSE(os_exists(native_join(inst.tree.c_str(), "manifest").c_str()));
    EXPECT_EQ(inst.run({"-c"}), inst.verdict(false)) << "no manifest";

    const struct {
        const char *argument, *meant; // "" for one that is ignored
    } slips[] = {{"--extras", "extra"},
                 {"-extra", "extra"},
                 {"---EXTRA", "extra"},
                 {"--extra=yes", "extra"},
                 {"\xe2\x80\x94"
                  "extra",
                  "extra"},
                 {"\xe2\x80\x93-extra", "extra"},
                 {"--xtra", "extra"},
                 {"--extra\x1b", "extra"},
                 {"--repor", "report"},
                 {"--reprot=x", "report"},
                 {"--version=1", "version"},
                 {"--repost=x", "report"},
                 {"extra", ""},
                 {"--extract", ""},
                 {"--rexxrt", ""},
                 {"--xetar", ""},
                 {"--", ""},
                 {"--zvdebugX=num:2", ""}};
    for (const auto &[argument, meant] : slips) {
        const std::string text = std::string("Argument \"") + str_printable(argument).get() +
                                 "\" is not an option; is --" + meant + " meant?\n";
        EXPECT_EQ(kestrel({argument, "-h"}),
                  *meant != '\0' ? (Outcome{1, "", text}) : (Outcome{0, help, ""}));
    }
}

TEST(KestrelOptions, ManifestIsWrittenAndChecked) {
    const Installation inst;
    Installation::write(inst.manifest, std::string(100000, 'x'));
    EXPECT_EQ(inst.generate().size(), 20u);
    const std::string text = read_file(inst.manifest);
    EXPECT_EQ(inst.check(2), inst.verdict(true));
    EXPECT_EQ(inst.run({"-g", "--check=0,0,0"}), (Outcome{0, "", ""}));

    // Relative paths, of which the last counts, and the manifest's place when none is given.
    const OwnedString before = os_getcwd();
    EXPECT_TRUE(host_chdir(inst.top.c_str()));
    EXPECT_EQ(kestrel({"-g", "--instdir=x", "--manifest=./tree/../m", "--instdir=tree/"}).status,
              0);
    EXPECT_EQ(kestrel({"-c", "--instdir=./tree/", "--manifest=m", "--tasks=3"}).status, 0);
    EXPECT_EQ(kestrel({"-g", "--instdir=tree"}).status, 0);
    EXPECT_EQ(kestrel({"-c", "--instdir=tree", "--tasks=3"}).status, 0);
    for (const char *manifest : {"m", "tree/manifest"})
        EXPECT_EQ(read_file(manifest), text);
    host_chdir(before.get());
}

// Pipes can be opened once only. That the writer has ended must not matter for standard input.
TEST(KestrelOptions, WordsMayComeFromPipes) {
    if (os_kind() != 0)
        GTEST_SKIP() << "there is no shell here";
    const Installation inst("dir", 5);
    inst.generate();
    for (const auto &[script, argument] : {std::pair("mkfifo p; echo -c --tasks=@no >p &", "@p"),
                                           {"echo -c >p & exec <p; wait", "@/dev/stdin"},
                                           {"echo -c >r; exec <r", "@/dev/stdin"},
                                           {"echo @p >r; echo -c >p &", "@r"},
                                           {"echo @/dev/stdin >r; echo -c >p & exec <p", "@r"},
                                           {"echo -c @p >p &", "@p"}})
        EXPECT_EQ(inst.run({argument, "--tasks=2"}, script), inst.verdict(true)) << script;
}

TEST(KestrelOptions, ComplaintsShowPathsOfAnyLength) {
    const Installation inst("dir", 0);
    std::string far = inst.top;
    for (int i = 0; i < 30; i++)
        far = native_join(far.c_str(), std::string(200, 'n').c_str());
    const Outcome outcome = kestrel({"-g", "--instdir=" + inst.tree, "--manifest=" + far});
    EXPECT_TRUE(outcome.err.starts_with("Cannot write file \"" + far + "\": ")) << outcome;
}

// --- Checking

// The manifest does not depend on them, nor on whether they can be started: a program that is gone
// from its directory can start none.
TEST(KestrelTasks, AnyNumberOfThemWritesTheSameManifest) {
    const Installation inst("a b, 100%s");
    inst.add("long", std::string(100000, 'x'));
    EXPECT_EQ(inst.run({"-g", "--tasks=1"}), inst.generated());
    const std::string text = read_file(inst.manifest);
    const char *const gone = "cp \"$1\" gone; exec 7<gone; rm gone; shift; "
                             "set -- /proc/self/fd/7 \"$@\"";
    for (const char *tasks : {"2", "3", "20", "21", "22", "-1"})
        for (const char *script : {"", gone})
            if (*script == '\0' || os_kind() == 0) {
                host_remove(inst.manifest.c_str());
                EXPECT_EQ(inst.run({"-g", std::string("--tasks=") + tasks}, script),
                          inst.generated());
                EXPECT_EQ(read_file(inst.manifest), text) << tasks << script;
            }
    // What a task does, in the directory that it is started in.
    const std::string list = native_join(inst.top.c_str(), "list"), digests = list + "d";
    Installation::write(list, "f1\nlong\ngone\nf2\nf3\n");
    const Inside inside(inst.tree);
    EXPECT_EQ(kestrel({"--instdir=" + inst.top, "--manifest=../list", "--check=0,1,3",
                       "--digests=../listd"}),
              (Outcome{0, "", ""}));
    const std::string results = read_file(digests);
    ASSERT_EQ(results.size(), 3 * sizeof(FileDigest));
    FileDigest got[3];
    memcpy(got, results.data(), sizeof got);
    EXPECT_EQ(sha256_text(got[0].digest),
              sha256_file_hex(native_join(inst.tree.c_str(), "long").c_str()));
    EXPECT_EQ(got[1].outcome, OpenOutcome::missing);
    EXPECT_EQ(got[1].reason, ENOENT);
    EXPECT_EQ(sha256_text(got[2].digest),
              sha256_file_hex(native_join(inst.tree.c_str(), "f2").c_str()));
    // A check stays one, and fails.
    for (const char *range : {"--check=0,1,3", "-v"})
        EXPECT_EQ(inst.run({"-c", "--manifest=" + list, range, "--digests=" + digests}).status, 1);
}

TEST(KestrelCheck, RangesOfLines) {
    const Installation inst("dir", 10); // whose lines have one length
    const Lines lines = inst.generate();
    const size_t length = read_file(inst.manifest).size() / 10;
    inst.add(lines[3].substr(68), "damaged");
    const struct {
        size_t position;
        const char *range;
        int status;
    } cases[] = {{0, "0,2", 0},          {0, "0,3", 1},
                 {0, "3,3", 1},          {0, "4,2147483647", 0},
                 {0, "9,10", 0},         {0, "10,10", 1}, // no data
                 {0, "2,1", 1},          {length, "1,2", 0},
                 {length, "90,91", 0}, // only the position counts
                 {length + 1, "1,1", 1}, {4 * length, "4,2147483647", 0},
                 {0, "x,,", 0},          {0, "-1,-1", 1}};
    for (const auto &c : cases)
        EXPECT_EQ(inst.run({"--check=" + std::to_string(c.position) + "," + c.range}),
                  (Outcome{c.status, "", ""}))
            << c.position << " " << c.range;
    EXPECT_EQ(inst.run({"-c", "--tasks=2", "--check=-9,4,9"}).status, 0) << "the range decides";
}

TEST(KestrelCheck, DamageIsFoundByAnyNumberOfTasks) {
    const Installation inst;
    const Lines lines = inst.generate();
    const std::string text = joined(lines, "\n");
    const std::string head = text.substr(0, text.rfind(lines[19]));
    for (const size_t tasks : {1u, 2u, 3u, 7u, 8u, 16u}) {
        EXPECT_EQ(inst.check(tasks), inst.verdict(true)) << tasks;
        // The ends of the first two ranges and of the last.
        for (const size_t line : {size_t{0}, 20 / tasks, 20 / tasks + 1, size_t{19}}) {
            const std::string name = lines[std::min(line, size_t{19})].substr(68);
            const std::string file = native_join(inst.tree.c_str(), name.c_str());
            const std::string bytes = read_file(file);
            if (line % 2 == 0)
                inst.add(name, bytes + " ");
            else
                host_remove(file.c_str());
            EXPECT_EQ(inst.check(tasks), inst.verdict(false)) << line << " of " << tasks;
            inst.add(name, bytes);
        }
        for (const size_t left : {size_t{30}, size_t{66}, lines[19].size() - 1}) {
            Installation::write(inst.manifest, head + lines[19].substr(0, left));
            EXPECT_EQ(inst.check(tasks), inst.verdict(false)) << left << " left, " << tasks;
        }
        Installation::write(inst.manifest, text);
    }
    // Tasks without lines have verified nothing.
    for (const size_t tasks : {20u, 40u, 1000000u})
        EXPECT_EQ(inst.check(tasks), inst.verdict(false)) << tasks;
}

// The line with spaces before the asterisk, up to about the length of the reader's block and
// beyond.
static std::string lines_of_lengths(const std::string &line) {
    std::string text;
    for (const size_t length : {1021u, 1022u, 1023u, 1024u, 1025u, 2045u, 2046u, 2047u, 9000u})
        for (const char *end : {"\n", "\r\n"})
            text += std::string(line).insert(65, length - line.size(), ' ') + end;
    return text;
}

TEST(KestrelCheck, OnlySoundManifestsPass) {
    const Installation inst("dir", 12);
    const Lines lines = inst.generate();
    host_mkdir(native_join(inst.tree.c_str(), "sub").c_str());
    const std::string text = joined(lines, "\n");
    const std::string half = joined({lines.begin(), lines.begin() + 6}, "\n");
    const std::string rest = text.substr(half.size());
    const std::string nul(1, '\0');
    const std::string lengths = lines_of_lengths(lines[0]);
    std::string slashes = text, upper = lines[0], noise;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    upper[upper.find_first_of("abcdef")] ^= 0x20;
    for (std::mt19937 random(1); noise.size() < 100000;)
        noise += static_cast<char>(random());
    const struct {
        const char *what;
        std::string text;
        bool passes = false;
    } cases[] = {
        {"LF", text, true},
        {"CR LF", joined(lines, "\r\n"), true},
        {"slashes", slashes, true},
        {"no last line end", text.substr(0, text.size() - 1), true},
        {"a name inside by way of ..",
         half + lines[0].substr(0, 66) + "sub/.." + lines[0].substr(67) + "\n" + rest, true},
        {"a name by way of the top",
         half + lines[0].substr(0, 66) + "../tree" + lines[0].substr(67) + "\n" + rest},
        {"an absolute name",
         half + lines[0].substr(0, 66) + inst.tree + lines[0].substr(67) + "\n" + rest},
        {"lines of any length", lengths, true},
        {"and a bad one", lengths + "0" + text},
        {"empty", ""},
        {"empty last line", text + "\n"},
        {"a line with a space alone", half + " \n" + rest},
        {"upper case", half + upper + "\n" + rest},
        {"NUL before the line end", half + lines[0] + nul + "\n" + rest},
        {"NUL in the digest", half + nul + lines[0] + "\n" + rest},
        {"NUL at the end", text + nul},
        {"no line ends", joined(lines, "")},
        {"CR alone", joined(lines, "\r")},
        {"one long line", half + std::string(2000000, 'a') + "\n" + rest},
        {"noise", noise},
        {"noise within", half + noise + rest},
    };
    for (const auto &c : cases) {
        Installation::write(inst.manifest, c.text);
        for (const size_t tasks : {1u, 2u, 5u})
            EXPECT_EQ(inst.check(tasks), inst.verdict(c.passes)) << c.what << ", " << tasks;
    }
}

TEST(KestrelCheck, WhatIsNoFileDoesNotPass) {
    const Installation inst("dir", 1);
    const Lines lines = inst.generate();
    host_mkdir(native_join(inst.tree.c_str(), "sub").c_str());
    Installation::write(inst.manifest, lines[0].substr(0, 66) + ".\\sub\n");
    EXPECT_EQ(inst.check(1),
              (Outcome{1, inst.announced("Checking"),
                       "!! Cannot open file \"" + native_join(".", "sub") + "\"\n"}));
    const std::string device = os_kind() != 0 ? "NUL" : "/dev/zero";
    for (const std::string &manifest : {device, inst.tree})
        EXPECT_EQ(kestrel({"-c", "--instdir=" + inst.tree, "--manifest=" + manifest}).status, 1);
}

TEST(KestrelCheck, OddNamesReachTheTasks) {
    Lines names = {"two words",    " lead", "'lead", "it's",      "a,b",
                   "100%TEMP%",    "%s%n",  "@file", "--check=1", "\xc3\xa4 \xe2\x82\xac",
                   "a;&$(x)`y`^!", "./dir"};
    if (!host_path_style().drives)
        for (const char *name : {"say \"hi\"", "\"", "back\\slash", "back\\ \\\"'", "end\\",
                                 "end \\\\", "tab\tend ", "line\nend", "*?<>|:"})
            names.push_back(name);
    for (const std::string &name : names) {
        const Installation inst(name, 5);
        // A manifest holds no backslash in a name, and its reader trims.
        if (name.find_first_of("\\\n") == name.npos && !name.ends_with(' '))
            inst.add(name, "odd");
        inst.generate();
        EXPECT_EQ(inst.check(3), inst.verdict(true));
        const std::string tree = inst.tree + host_path_style().separator;
        EXPECT_EQ(inst.run({"-c", "--tasks=2", "--instdir=" + tree}).status, 0) << tree;
        inst.add("f4", "damaged");
        EXPECT_EQ(inst.check(3), inst.verdict(false));
    }
}

// --- The debug log

// What a log enters and does not leave, outermost first, or the exit that does not fit.
static std::string left_open(const Lines &log) {
    Lines open;
    for (const std::string &line : log) {
        std::istringstream words(line.substr(line.find('>') + 1));
        std::string word, name;
        words >> word >> name;
        if (word == "ENTER")
            open.push_back(name);
        if (word == "EXIT" && (open.empty() || open.back() != name))
            return line;
        if (word == "EXIT")
            open.pop_back();
    }
    return joined(open, "");
}

static size_t count(const Lines &log, const std::string &end) {
    return static_cast<size_t>(std::count_if(
        log.begin(), log.end(), [&](const std::string &line) { return line.ends_with(end); }));
}

namespace {

struct LoggedRun {
    Lines arguments;
    int status;
    Lines says;            // ends of lines, each of one line
    const char *open = ""; // the functions that are not left
};

} // namespace

static void expect_logged(LoggedRun run, const std::string &log) {
    run.arguments.push_back("--zvdebug=on,alerts,out:" + log);
    run.says.push_back("Exiting with status code " + std::to_string(run.status));
    EXPECT_EQ(kestrel(run.arguments).status, run.status);
    const Lines lines = split(read_file(log));
    EXPECT_EQ(left_open(lines), run.open);
    for (const std::string &says : run.says)
        EXPECT_EQ(count(lines, says), 1u) << testing::PrintToString(run.arguments) << says;
}

TEST(KestrelLog, EveryRunSaysHowItEnded) {
    const Installation inst("dir", 4);
    const std::string entry = inst.generate()[0] + "\n";
    const std::string log = native_join(inst.top.c_str(), "log"), odd = log + "o", many = log + "m",
                      nuls = log + "n";
    Installation::write(odd, entry + "0 *.\\f1\nmalformed\n");
    Installation::write(many, joined(Lines(500, entry), ""));
    Installation::write(nuls, std::string("\0\n\0\n", 4));
    os_setenv("bamboo_capability_Cores", "3");
    const std::string tree = "--instdir=" + inst.tree, no_tree = "--instdir=" + log + "x";
    const std::string m = "--manifest=", manifest = m + inst.manifest;
    const std::string nowhere = "Given installation path \"" + log + "x\" does not exist";
    const std::string no_entry = "-> Could not change to directory: \"" + odd + "\"";
    const std::string back = "Working directory changed to \"" + text_of(os_getcwd()) + "\"";
    std::vector<LoggedRun> runs = {
        {{"-h"}, 0, {}, "main()"},
        {{"-c"}, 1, {"Installation directory was not specified"}, "main()"},
        {{tree}, 1, {"-> No generate/check/range check option was given"}},
        {{tree, "--Extra"}, 1, {"-> Argument \"--Extra\" is not an option; is --extra meant?"}},
        {{tree, manifest, "-c", "--report", "-q"}, 1, {"Argument \"-q\" was ignored"}},
        {{tree, "-g", "-c"}, 1, {"-> Both the generate and check options were given"}},
        {{no_tree, "-g"}, 1, {nowhere}},
        {{no_tree, "-c"}, 1, {nowhere}},
        {{no_tree, "--check=0,0,1"}, 1, {nowhere}},
        {{"--instdir=" + odd, "-g"}, 1, {no_entry}},
        {{"--instdir=" + odd, "-c"}, 1, {no_entry}},
        {{tree, manifest, "-g"}, 0, {back, "hash file saved to: " + inst.manifest}},
        {{tree, m + inst.tree, "-g"}, 1, {"Could not generate manifest", back, "to: " + inst.tree}},
        {{tree, m + log + "x", "-c"}, 1, {"Could not open manifest file \"" + log + "x\""}},
        {{tree, manifest, "--check=0,0,1"},
         0,
         {back, "All hashes in the range verified correctly"}},
        {{tree, m + odd, "--check=0,0,2"}, 1, {"\".\\f1\" did not verify against manifest hash."}},
        {{tree, m + odd, "--check=0,2,2"}, 1, {"-> Manifest data was malformed"}},
        {{tree, m + nuls, "--check=0,0,3"}, 1, {" of the manifest is malformed"}},
        {{tree, manifest, "-c", "--tasks=1"}, 0, {"doing manifest directly..."}},
        {{tree, manifest, "-c", "--tasks=2"}, 0, {back, "-> Hash verification passed"}},
        {{tree, manifest, "-c", "--tasks=0"}, 1, {"cores is: 12", "for process 11 to finish"}},
        {{tree, m + many, "-c", "--tasks=-1"}, 0, {"detected is: 3", "core will do 125 hashes"}},
        {{tree, m + many, "-c", "--tasks=3"}, 0, {"by --tasks to 3", "core will do 166 hashes"}},
    };
    if (os_kind() == 0) // where there is a file that cannot be read
        for (const char *mode : {"-c", "--check=0,0,1"})
            runs.push_back(
                {{tree, m + "/proc/self/mem", mode}, 1, {"Could not read manifest file"}});
    for (const LoggedRun &run : runs)
        expect_logged(run, log);
    os_setenv("bamboo_capability_Cores", "");
}

TEST(KestrelLog, TasksLogBesideIt) {
    const Installation inst("it's, 100%s", 10);
    const std::string name = inst.generate()[7].substr(68);
    const size_t position = 6 * (read_file(inst.manifest).size() / 10); // lines have one length
    inst.add(name, "damaged");
    const OwnedString before = os_getcwd();
    EXPECT_TRUE(host_chdir(inst.top.c_str()));
    host_mkdir("logs' %s");
    host_mkdir("+logs");
    // Given by its path, by its directory, and by none: the directory of the run.
    const struct {
        const char *item, *directory, *log;
    } cases[] = {{",out:logs' %s/log.txt", "logs' %s/", "log.txt"},
                 {",num:7,out:logs' %s", "logs' %s/", "kestrel-7.out"},
                 {",out:++logs/log.txt", "+logs/", "log.txt"},
                 {",out:log.txt", "", "log.txt"},
                 {"", "", "kestrel-1.out"}};
    for (const auto &c : cases) {
        EXPECT_EQ(inst.run({"-c", "--tasks=2", std::string("--zvdebug=on") + c.item}),
                  inst.verdict(false));
        const std::pair<std::string, std::string> says[] = {
            {c.log, "Process 0 successfully verify its hashes"},
            {c.log, "Process 1 did not successfully verify its hashes"},
            {"kestrel_0-5.out", " -> All hashes in the range verified correctly"},
            {"kestrel_6-10.out",
             "Starting line is 6. Seek to manifest start position: " + std::to_string(position)},
            {"kestrel_6-10.out", "\".\\" + name + "\" did not verify against manifest hash."}};
        for (const auto &[log, text] : says) {
            const Lines lines = split(read_file(c.directory + log));
            EXPECT_EQ(left_open(lines), "") << c.item << log;
            EXPECT_EQ(count(lines, text), 1u) << c.item << log;
        }
        for (const auto &[log, text] : says)
            host_remove((c.directory + log).c_str());
    }
    // By whom files are hashed is no matter of a log, and the logs of a check stay.
    Installation::write("kestrel_6-10.out", "of a check");
    for (const char *tasks : {"--tasks=1", "--tasks=2"}) {
        EXPECT_EQ(inst.run({"-g", tasks, "--zvdebug=on,out:log"}), inst.generated());
        const Lines lines = split(read_file("log"));
        const auto begin = std::find_if(lines.begin(), lines.end(), [](const std::string &line) {
            return line.ends_with("ENTER generate_manifest()");
        });
        ASSERT_GT(lines.end() - begin, 6) << tasks;
        const std::string says[] = {"Generate manifest \"" + inst.manifest +
                                        "\" for installation \"" + inst.tree + "\"",
                                    "Working directory changed to \"" + inst.tree + "\"",
                                    "Working directory changed to \"" + text_of(os_getcwd()) + "\"",
                                    "Compiler integrity hash file saved to: " + inst.manifest,
                                    "EXIT generate_manifest()",
                                    "EXIT main() -> Manifest was successfully created"};
        for (size_t i = 0; i < std::size(says); i++)
            EXPECT_TRUE(begin[static_cast<ptrdiff_t>(i) + 1].ends_with(" " + says[i])) << says[i];
    }
    EXPECT_EQ(read_file("kestrel_6-10.out"), "of a check");
    host_chdir(before.get());
}
