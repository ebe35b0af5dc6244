// What --report says of a run.
#include "kestrel/output.h"
#include "kestrel/report.h"
#include "support/files.h"
#include "tool/tool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

static const std::string ZERO(64, '0');

// The last record of a check.
static std::string check_end(const Lines &counts) {
    static const char *const kinds[] = {"good",      "different", "missing",  "unreadable",
                                        "malformed", "outside",   "unchecked"};
    size_t lines = 0;
    std::string text;
    for (size_t i = 0; i < counts.size(); i++) {
        lines += std::stoul(counts[i]);
        text += (i > 0 ? ", " : "") + counts[i] + " " + kinds[i];
    }
    return "end\t" + std::to_string(lines) + "\t" + text;
}

// Every line that fails, of all kinds and everywhere in the manifest, however the check is divided.
TEST(KestrelReport, NamesEveryBadLine) {
    const Installation inst("dir", 40);
    Lines lines = inst.generate(), records;
    const std::string directory = std::string("\t") + strerror(EISDIR);
    const auto spoil = [&](size_t line, const std::string &text, const std::string &record,
                           const std::string &reason = "") {
        lines[line] = text;
        const size_t tab = record.find('\t');
        records.push_back(record.substr(0, tab) + "\t" + std::to_string(line + 1) +
                          record.substr(tab) + reason);
    };
    host_mkdir(native_join(inst.tree.c_str(), "d").c_str());
    for (const size_t line : {0u, 8u, 39u})
        spoil(line, ZERO + lines[line].substr(64), "different\t" + lines[line].substr(66));
    for (const size_t line : {1u, 20u})
        spoil(line,
              ZERO + " *.\\gone\x1b"
                     "x",
              "missing\t.\\gone?x");
    spoil(38, ZERO + " *.\\f1\\x", "missing\t.\\f1\\x");
    for (const size_t line : {2u, 3u, 25u})
        spoil(line, ZERO + " *.\\d", "unreadable\t.\\d", directory);
    spoil(4, "-----BEGIN PGP SIGNATURE-----", "malformed\t-----BEGIN PGP SIGNATURE-----");
    spoil(5, "", "malformed\t");
    spoil(6, ZERO, "malformed\t" + ZERO);
    spoil(21, std::string(64, 'A') + " *.\\f1", "malformed\t" + std::string(64, 'A') + " *.\\f1");
    spoil(22, "a" + std::string(1 << 21, 'b'), "malformed\ta" + std::string(999, 'b') + "...");
    spoil(23, ZERO + " *.\\a" + std::string(1, '\0') + "b", "malformed\t" + ZERO + " *.\\a");
    spoil(10, ZERO + " *..\\up", "outside\t..\\up");
    spoil(30, ZERO + " */etc/passwd", "outside\t/etc/passwd");
    spoil(31, ZERO + " *C:\\x", "outside\tC:\\x");
    std::sort(records.begin(), records.end(), [](const std::string &a, const std::string &b) {
        return std::stoul(a.substr(a.find('\t'))) < std::stoul(b.substr(b.find('\t')));
    });
    records.push_back(check_end({"22", "3", "3", "3", "6", "3", "0"}));
    Installation::write(inst.manifest, joined(lines, "\n"));

    const std::string file = native_join(inst.top.c_str(), "report");
    for (const char *tasks : {"--tasks=1", "--tasks=2", "--tasks=7", "--tasks=39", "-v"}) {
        Outcome expected = inst.verdict(false);
        EXPECT_EQ(inst.run({"-c", "--report=" + file, tasks}), expected) << tasks;
        EXPECT_EQ(split(read_file(file)), records) << tasks;
        expected.out.insert(expected.out.find("Verification"), joined(records, "\n"));
        EXPECT_EQ(inst.run({"-c", "--report", tasks}), expected) << tasks;
    }
    // What precedes a range, and a last line without an end.
    const std::string good = lines[7] + "\n";
    Installation::write(inst.manifest, std::string("\0\n", 2) + good + std::string(1 << 21, 'b'));
    EXPECT_EQ(inst.run({"--check=-1,1,5", "--report"}).out,
              "malformed\t3\t" + std::string(1000, 'b') +
                  "...\nerror\t0\tManifest data was malformed\n" +
                  check_end({"1", "0", "0", "0", "1", "0", "0"}) + "\n");
    Installation::write(inst.manifest, joined(lines, "\n"));
    const Outcome range = inst.run({"--check=-1,7,10", "--report"});
    EXPECT_EQ(
        range,
        (Outcome{
            1,
            joined({records[7], records[8], check_end({"2", "1", "0", "0", "0", "1", "0"})}, "\n"),
            ""}));
}

TEST(KestrelReport, SaysWhyNothingWasChecked) {
    const Installation inst("dir", 4);
    inst.generate();
    const std::string gone = native_join(inst.top.c_str(), "gone");
    const std::string empty = native_join(inst.top.c_str(), "empty");
    Installation::write(empty, "");
    const struct {
        Lines arguments;
        std::string error;
        Lines counts = {"0", "0", "0", "0", "0", "0", "0"};
    } cases[] = {
        {{"--instdir=" + gone}, "Given installation path \"" + gone + "\" does not exist"},
        {{"--manifest=" + gone},
         "Could not open manifest file \"" + gone + "\": " + strerror(ENOENT)},
        {{"--manifest=" + empty, "--tasks=1"}, "ERROR: no data was read from the manifest"},
        {{"--manifest=" + empty, "--tasks=3"}, "The manifest is empty"},
        {{"--tasks=4"},
         "1 of 4 tasks had no line to check; use --tasks=1",
         {"4", "0", "0", "0", "0", "0", "0"}},
        {{"--tasks=8"},
         "6 of 8 tasks had no line to check; use --tasks=1",
         {"4", "0", "0", "0", "0", "0", "0"}},
        {{"--tasks=3", "--taks=\x1b"},
         "Argument \"--taks=?\" was ignored",
         {"4", "0", "0", "0", "0", "0", "0"}},
    };
    for (const auto &c : cases) {
        Lines arguments = c.arguments;
        arguments.insert(arguments.end(), {"-c", "--report"});
        const auto [status, out, err] = inst.run(arguments);
        EXPECT_EQ(status, 1);
        EXPECT_EQ(split(out.substr(std::min(out.find("error"), out.size()))),
                  (Lines{"error\t0\t" + c.error, check_end(c.counts), "Verification failed"}));
    }
    EXPECT_EQ(inst.run({"-c", "--tasks=3", "--report", "--zvdebugX=num:2"}).status, 0);
    const Outcome unwritten = inst.run({"-c", "--report=" + inst.tree});
    EXPECT_EQ(unwritten.status, 1);
    EXPECT_TRUE(unwritten.err.starts_with("Cannot write report \"")) << unwritten;
    const std::string manifest = read_file(inst.manifest);
    const std::string detour =
        inst.tree + host_path_style().separator + ".." + host_path_style().separator + "manifest";
    for (const char *mode : {"-c", "-g"})
        EXPECT_EQ(inst.run({mode, "--report=" + detour}),
                  (Outcome{1, "", "The report would be written over the manifest\n"}));
    const std::string link = native_join(inst.top.c_str(), "link");
    if (make_link(inst.manifest, link, false)) {
        EXPECT_EQ(inst.run({"-c", "--report=" + link}).status, 1);
    }
    const std::string ignored = "was ignored\nend\t0\t0 files, 0 bytes\n";
    for (const char *option : {"--extra", "--quiet"}) {
        const Outcome refused = inst.run({"-g", "--report", option});
        EXPECT_TRUE(refused.status == 1 && refused.out.ends_with(ignored)) << refused;
        EXPECT_EQ(refused.err, "There was a problem generating the manifest file\n");
    }
    EXPECT_EQ(read_file(inst.manifest), manifest);
    host_remove(inst.manifest.c_str());
    EXPECT_EQ(inst.run({"-g", "--report=" + detour}).status, 1);
    EXPECT_FALSE(os_exists(inst.manifest.c_str()));
    EXPECT_EQ(split(kestrel({"-c", "--report"}).out).back(), check_end(Lines(7, "0")));
}

TEST(KestrelReport, ExtraFilesFail) {
    const Installation inst("dir", 3);
    inst.generate();
    const std::string own = native_join(inst.tree.c_str(), "own");
    const std::string end = check_end({"3", "0", "0", "0", "0", "0", "0"});
    const auto expect = [&](bool passed, const Lines &records) {
        for (const char *tasks : {"--tasks=1", "--tasks=2"}) {
            EXPECT_EQ(kestrel({"-c", "--extra", tasks, "--instdir=" + inst.tree,
                               "--manifest=" + own, "--report=" + own + ".report"})
                          .status,
                      passed ? 0 : 1);
            EXPECT_EQ(split(read_file(own + ".report")), records);
        }
    };
    // The same files by other names that lead to them.
    std::string text = read_file(inst.manifest);
    text.replace(text.find(".\\f1"), 4, "sub/.././f1");
    text.replace(text.find(".\\f2"), 4, "f2");
    host_mkdir(native_join(inst.tree.c_str(), "sub").c_str());
    Installation::write(own, text);
    expect(true, {end + "\t0 extra"});
    inst.add(native("sub/own"), text);
    expect(false, {"extra\t0\t.\\sub\\own", end + "\t1 extra"});
    EXPECT_EQ(inst.run({"--check=0,0,2", "--extra"}),
              (Outcome{1, "error\t0\t--extra is for -c, and was ignored\n" + end + "\n", ""}));
    host_remove(native_join(inst.tree.c_str(), native("sub/own").c_str()).c_str());
    if (host_path_style().drives)
        return;
    inst.add("y ", "y"); // which cannot be listed
    EXPECT_EQ(kestrel({"-c", "--extra", "--instdir=" + inst.tree, "--manifest=" + own}).status, 1);
}

// A pattern cannot hide a change to a file that is listed.
TEST(KestrelReport, ExcludedFilesAreNeitherListedNorExtra) {
    const Installation inst("dir", 0);
    for (const char *directory : {"a", "a/cache", "cache"})
        host_mkdir(native_join(inst.tree.c_str(), native(directory).c_str()).c_str());
    // In the order of the bytes.
    const Lines all = {".\\B",    ".\\a.tmp",        ".\\a0",      ".\\a\\cache\\c",
                       ".\\a\\x", ".\\cache\\x.tmp", ".\\\xc3\xa4"};
    for (std::string path : all) {
        std::replace(path.begin(), path.end(), '\\', '/');
        inst.add(native(path.substr(2)), path);
    }
    const std::string list = inst.scratch.write("list", "--exclude=a0\n \"--exclude=/a*\"");
    const struct {
        Lines patterns;
        std::vector<size_t> listed; // of `all`
        const char *excluded;
    } cases[] = {
        {{"--exclude=nothing"}, {0, 1, 2, 3, 4, 5, 6}, "0"},
        {{"--exclude=cache/", "--exclude=a0/"}, {0, 1, 2, 4, 6}, "2"},
        {{"--exclude=*.tmp", "--exclude=./cache"}, {0, 2, 3, 4, 6}, "2"},
        {{"--exclude=a\\**"}, {0, 1, 2, 5, 6}, "2"},
        {{"@" + list}, {0, 5, 6}, "3"},
    };
    for (const auto &c : cases) {
        Lines generate = {"-g", "--sort", "--report"}, check = {"-c", "--extra", "--tasks=1"};
        generate.insert(generate.end(), c.patterns.begin(), c.patterns.end());
        const std::string end = split(inst.run(generate).out)[1];
        EXPECT_TRUE(end.ends_with(std::string(" bytes\t") + c.excluded + " excluded")) << end;
        const Lines lines = split(read_file(inst.manifest));
        Lines listed, expected;
        for (const std::string &line : lines)
            listed.push_back(line.substr(66));
        for (const size_t index : c.listed)
            expected.push_back(all[index]);
        EXPECT_EQ(listed, expected) << end;

        const auto extra = [&](size_t count) {
            const Outcome outcome = inst.run(check);
            EXPECT_EQ(outcome.status, count == 0 ? 0 : 1);
            EXPECT_NE(outcome.out.find("\t" + std::to_string(count) + " extra\n"),
                      std::string::npos)
                << outcome;
        };
        extra(all.size() - listed.size());
        check.insert(check.end(), c.patterns.begin(), c.patterns.end());
        extra(0);
    }
    inst.add("B", "changed");
    EXPECT_EQ(split(inst.run({"-c", "--extra", "--tasks=1", "--exclude=**"}).out)[1],
              "different\t1\t.\\B");
    if (host_path_style().drives)
        return;
    inst.add("no\\name", "");
    EXPECT_EQ(inst.run({"-g"}).status, 1);
    EXPECT_EQ(inst.run({"-g", "--exclude=no?name"}).status, 0) << "it need not fit";
}

// Everything that keeps a manifest from being written, and what is remarkable.
TEST(KestrelReport, GenerationNamesEveryProblem) {
    const Installation inst("dir", 3);
    const Scratch elsewhere;
    const std::string outside = elsewhere.write("file", "12345");
    const auto records = [&](int status) {
        const Outcome outcome = inst.run({"-g", "--report"});
        EXPECT_EQ(outcome.status, status) << outcome;
        for (const char *tasks : {"--tasks=2", "--tasks=3"}) // where there are 3 files, and more
            EXPECT_EQ(inst.run({"-g", "--report", tasks}), outcome);
        Lines lines = split(outcome.out);
        lines.erase(lines.begin());
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    EXPECT_EQ(records(0),
              (Lines{"Manifest file successfully created", "end\t3\t3 files, 3 bytes"}));
    const std::string inside = native_join(inst.tree.c_str(), "report");
    EXPECT_EQ(inst.run({"-g", "--report=" + inside}), inst.generated());
    EXPECT_EQ(inst.check(1), inst.verdict(true)) << "a report in the tree is not listed";
    host_remove(inside.c_str());
    if (!make_link(outside, native_join(inst.tree.c_str(), "out"), false) ||
        !make_link("f1", native_join(inst.tree.c_str(), "in"), false))
        GTEST_SKIP() << "no links here";
    EXPECT_EQ(records(0), (Lines{"Manifest file successfully created", "end\t5\t5 files, 9 bytes",
                                 "link\t0\t.\\out\t" + text_of(host_real_path(outside.c_str()))}));
    const std::string old = read_file(inst.manifest);
    make_link("gone", native_join(inst.tree.c_str(), "l1"), false);
    make_link("gone", native_join(inst.tree.c_str(), "l2"), false);
    Lines expected = {"end\t5\t5 files, 9 bytes",
                      "link\t0\t.\\out\t" + text_of(host_real_path(outside.c_str()))};
    for (const char *name : {".\\l1", ".\\l2"})
        expected.push_back(std::string("unreadable\t0\t") + name + "\t" + strerror(ENOENT));
    if (!host_path_style().drives) {
        inst.add("a\\b", "");
        inst.add("c\t ", "");
        expected.insert(expected.end() - 2,
                        {"unlisted\t0\t.\\a\\b\tThe name cannot be written to a manifest",
                         "unlisted\t0\t.\\c? \tThe name cannot be written to a manifest"});
    }
    EXPECT_EQ(records(1), expected);
    EXPECT_EQ(read_file(inst.manifest), old);
}

// What a task has written about five lines, and what is made of it.
TEST(KestrelReport, PartsThatAreIncompleteAreNotPassedOver) {
    const Scratch scratch;
    const std::string record = "missing\t7\t.\\x\n", more = "error\t0\tx\n";
    const std::string end = "end\t5\t4 good, 0 different, 1 missing\n";
    const struct {
        std::string part;
        bool complete;
        std::string copied, good, missing, unchecked;
    } cases[] = {
        {record + more + end, true, record + more, "4", "1", "0"},
        {record + more + end + record, true, record + more, "4", "1", "0"},
        {record + more, false, record + more, "0", "1", "4"},
        {record + record.substr(0, 9), false, record, "0", "1", "4"},
        {record + "end\t5\t", false, record, "0", "1", "4"},
        {record + "end\t5\t5 good,\n", true, record, "5", "1", "0"},
        {more + "end\t0\t0 good,\n", true, more, "0", "0", "5"},
        {"", false, "", "0", "0", "5"},
    };
    for (const auto &c : cases) {
        const std::string part = scratch.write("part", c.part), path = scratch.path("report");
        const std::string expected =
            c.copied + check_end({c.good, "0", c.missing, "0", "0", "0", c.unchecked}) + "\n";
        // In a process of its own, which the counts belong to, and with files of its own.
        const auto run = [&] {
            const bool begun = report_begin(path.c_str(), "m");
            const bool complete = report_part(part.c_str(), 5);
            const bool ended = report_end_check();
            const std::string got = read_file(path);
            fputs(got.c_str(), stderr);
            exit(begun && ended == complete && complete == c.complete &&
                         split(got) == split(expected)
                     ? 0
                     : 1);
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(0), "") << c.part << expected;
    }
}

// A descriptor that cannot be written to for a while, and then leads to a file again.
TEST(KestrelReport, NothingFollowsALostRecord) {
    for (const bool to_file : {true, false}) {
        const auto run = [&] { // in a process of its own, as above
            const Scratch scratch;
            const std::string rest = scratch.write("rest", ""), path = scratch.path("report");
            const int next = host_fileno(FilePtr(host_fopen(rest.c_str(), "r")).get());
            report_begin(to_file ? path.c_str() : nullptr, nullptr);
            for (const char *mode : {"r", "w"}) {
                const FilePtr target(host_fopen(rest.c_str(), mode));
                host_dup2(host_fileno(target.get()), to_file ? next : STDOUT_DESCRIPTOR);
                for (int i = 0; i < 1000; i++)
                    report_extra("a record");
            }
            errno = ENOENT;
            const bool ended = report_end_check();
            print(to_file ? "" : "the verdict");
            const bool flushed = flush_output();
            exit(read_file(rest).empty() && ended == !to_file && flushed == to_file ? 0 : 1);
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(0),
                    std::string("Cannot write .*: ") + strerror(EBADF));
    }
}
