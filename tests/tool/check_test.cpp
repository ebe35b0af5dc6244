#include "tool/tool.h"

#include <random>

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
