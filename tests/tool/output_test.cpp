#include "kestrel/output.h"

#include "tool/tool.h"

TEST(KestrelOutput, ItsLossFailsARunAndItsAbsenceDoesNot) {
    if (os_kind() != 0)
        GTEST_SKIP() << "there is no shell here";
    const Installation inst("dir", 60);
    inst.generate();
    const std::string text = read_file(inst.manifest);
    inst.add("new", "new");
    const Outcome unprinted = {1, "", "Cannot write to standard output: No space left on device\n"};
    const Outcome unwanted = {0, "", ""};
    const struct {
        const char *script;
        Lines arguments;
        Outcome outcome;
        size_t lines = 60; // of the manifest after it; 61 when it is a new one
    } cases[] = {
        {"exec >/dev/full", {"-c", "--tasks=2"}, unprinted},
        {"exec >/dev/full", {"-g"}, unprinted, 61},
        {"exec >/dev/full", {"-h"}, unprinted},
        {"exec >/dev/full", {"-c", "--report"}, unprinted},
        {"exec >&-", {"-c", "--tasks=2"}, unwanted},
        {"exec >&- 2>&-", {"-g"}, unwanted, 61},
        {"exec >&- 2>&-", {"-g", "--tasks=3"}, unwanted, 61},
    };
    for (const auto &c : cases) {
        Installation::write(inst.manifest, text);
        EXPECT_EQ(inst.run(c.arguments, c.script), c.outcome) << c.script;
        EXPECT_EQ(split(read_file(inst.manifest)).size(), c.lines) << c.script;
    }
}

// Announcements come before complaints where both streams are one.
TEST(KestrelOutput, WhatIsDoneIsAnnouncedFirst) {
    if (os_kind() != 0)
        GTEST_SKIP() << "there is no shell here";
    const Installation inst("dir", 0);
    EXPECT_EQ(inst.run({"-g"}, "exec 2>&1; ln -s gone tree/f"),
              (Outcome{1, inst.announced("Generating") + "!! Cannot open file \"./f\"\n", ""}));
    EXPECT_TRUE(inst.run({"-g", "--report"}, "exec 2>&1")
                    .out.ends_with("0 bytes\nThere was a problem generating the manifest file\n"));
}
