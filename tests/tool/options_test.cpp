#include "tool/tool.h"

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
    const std::string bad_pattern = "Invalid syntax for option: --exclude=";
    const std::string idle_pattern = "--exclude is for -g, and for -c with --extra\n";
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
        {{"-g", here, "--exclude="}, {1, "", bad_pattern + "\n"}},
        {{"-g", here, "--exclude=a/../b\x1b"}, {1, "", bad_pattern + "a/../b?\n"}},
        {{"-c", here, "--exclude=a"}, {1, "", idle_pattern}},
        {{"--check=0,0,0", here, "--exclude=a", "--extra"},
         {1,
          "error\t0\t" + idle_pattern +
              "error\t0\t--extra is for -c, and was ignored\nend\t0\t0 good, 0 different, "
              "0 missing, 0 unreadable, 0 malformed, 0 outside, 0 unchecked\n",
          idle_pattern}},
        {{"-c", here, "--sort"}, {1, "", "--sort is for -g\n"}},
        {{"--zvdebug=on,out:" + no_log, "-g", here},
         {1, "",
          "(141) can't open debug-out file \"" + no_log + "\": No such file or directory\n"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kestrel(c.arguments), c.outcome) << testing::PrintToString(c.arguments);
    EXPECT_FALSE(os_exists(native_join(inst.tree.c_str(), "manifest").c_str()));
    EXPECT_EQ(inst.run({"-c"}), inst.verdict(false)) << "no manifest";

    for (const auto &[argument, meant] : {std::pair("--Extra\x1b", "extra"),
                                          {"--reprot=x", "report"},
                                          {"--version=1", "version"},
                                          {"--exclud=x", "exclude="},
                                          {"--sort=yes", "sort"}})
        EXPECT_EQ(kestrel({argument, "-h"}),
                  (Outcome{1, "",
                           std::string("Argument \"") + str_printable(argument).get() +
                               "\" is not an option; is --" + meant + " meant?\n"}));
    EXPECT_EQ(kestrel({"--extract", "--zvdebugX=num:2", "-h"}), (Outcome{0, help, ""}));
}

// Each stream that is a terminal gets more than the documented text; $K draws its progress, too.
TEST(KestrelOptions, TerminalsAreToldMore) {
    if (!has_terminals())
        GTEST_SKIP() << "no terminal can be had here";
    const Installation inst("dir", 9);
    const Lines lines = inst.generate();
    const std::string checking = inst.announced("Checking"), failed = "Verification failed\n";
    const std::string name = lines[2].substr(66);
    inst.add(name.substr(2), "changed");
    const std::string different =
        "different: " + name + " (line 3); --report names all that fail\n";
    const std::string unknown = "Not every line could be verified; --report says which and why\n";
    const std::string nowhere = "Given installation path \"" +
                                native_join(inst.top.c_str(), "gone") + "\" does not exist\n";
    const std::string problem = "There was a problem generating the manifest file\n";
    const std::string record = "different\t3\t" + name +
                               "\nend\t9\t8 good, 1 different, 0 missing, 0 unreadable, "
                               "0 malformed, 0 outside, 0 unchecked\n";
    const std::string ignored = " is not an option, and was ignored\n";
    const struct {
        const char *command;
        std::string screen;
    } cases[] = {
        {"$K -c --tasks=1", checking + different + failed},
        {"$K -c --tasks=2", checking + unknown + failed},
        {"$K -c --tasks=12",
         checking + "10 of 12 tasks had no line to check; use --tasks=1\n" + failed},
        {"$K --check=-1,0,9", ""},
        {"$K --check=-1,0,9 -v", different + failed},
        {"$K -c --tasks=1 --report", checking + record + failed},
        {"$K -c --tasks=1 2>err; cat err", checking + failed},
        {"$K -c --tasks=1 >out; cat out", different + checking + failed},
        {"TERM=dumb $K -c --tasks=1", checking + failed},
        {"$K -c --instdir=gone", nowhere + failed},
        {"$K -g --instdir=gone", nowhere + problem},
        {"$K -g --instdir=gone 2>err; cat err", problem},
        {"rm -r tree/f1; ln -s f1 tree/f1; $K -g",
         inst.announced("Generating") + "!! Cannot open file \"./f1\"\n"},
        {"$K --check=-1,0,0 --manifest m --tasks -exit --check --zvdebug",
         "ZVDEBUG (warning): unknown option \"--zvdebug\"\n"
         "A value follows \"=\": --manifest=<file>\nArgument \"m\"" +
             ignored + "A value follows \"=\": --tasks=<n>\nArgument \"-exit\"" + ignored +
             "Argument \"--check\"" + ignored},
        {"$K --check=-1,0,0 --manifest m 2>err; cat err", ""},
        {"printf \"no\\033thing\\n\" >manifest; $K -c --tasks=1",
         checking + "malformed: no?thing (line 1); --report names all that fail\n" + failed},
        {"echo a comment >manifest; $K -c --tasks=1",
         checking + "malformed: a comment (line 1); --report names all that fail\n" + failed},
        {"stty tostop; set -m; $K -c --tasks=1 >out & wait $!; cat out", checking + failed},
        {"export KESTREL_INTERRUPTED=$PWD/done KESTREL_INTERRUPT=\"rename|$PWD/tree|$PWD/old\"; "
         "${K%%_eager*}_interrupted -g --exclude=f1 --instdir=tree --manifest=manifest",
         inst.announced("Generating") + "Installation path \"" + inst.tree +
             "\" does not lead to the same directory any more\n" + problem},
    };
    for (const auto &c : cases)
        EXPECT_EQ(screen_of(on_terminal(inst, c.command)), c.screen) << c.command;
    const std::string help = kestrel({"-h"}).out;
    for (const char *command : {"$K -h 2>err", "$K -h >out; cat out", "TERM=dumb $K -h"}) {
        const std::string screen = screen_of(on_terminal(inst, command));
        const bool is_more = strstr(command, "err") != nullptr;
        EXPECT_TRUE(screen.starts_with(help)) << screen;
        EXPECT_EQ(screen.find("\n  --exclude=<pattern>  ") != screen.npos, is_more) << command;
        EXPECT_EQ(screen.size() > help.size(), is_more) << command;
        EXPECT_EQ(screen.find("--check"), screen.npos);
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
