// The debug log of runs and of their tasks.
#include "tool/tool.h"

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
