#include "manifest/linecheck.h"

#include "platform/osdep.h"
#include "support/files.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <vector>

static const char *const KINDS[] = {" different ", " missing ", " unreadable ", " malformed ",
                                    " outside "};

// Each fault in its turn, although the first file takes longer than all others, and up to where the
// receiver ends the check; what follows that is not even looked for.
TEST(LineCheck, FaultsComeInTheOrderOfTheLines) {
    const Scratch scratch;
    const Inside inside(scratch.path("tree"));
    const std::string long_file = scratch.write("tree/long", std::string(1 << 20, 'x'));
    const std::string empty = scratch.write("tree/empty", "");
    const std::string digest = sha256_file_hex(empty.c_str());
    const std::string lines[] = {sha256_file_hex(long_file.c_str()) + std::string(" *.\\long\n"),
                                 "malformed\n",
                                 digest + " *.\\empty\n",
                                 digest + " *" + empty + "\n",
                                 digest + " *.\\missing\n",
                                 digest + " *.\\sub\\..\\..\\empty",
                                 "0" + digest + " *.\\empty\n"};
    const std::vector<std::string> faults = {
        "1 malformed malformed", "3 outside " + empty, "4 missing .\\missing",
        "5 outside .\\sub\\..\\..\\empty", "6 different .\\empty"};
    for (size_t end = 1; end <= faults.size() + 1; end++) {
        std::vector<std::string> found;
        LineCheck check(
            [&](const FaultyLine &faulty) {
                found.push_back(std::to_string(faulty.number) +
                                KINDS[static_cast<size_t>(faulty.fault)] + faulty.line.path);
                return found.size() < end;
            },
            end == 1 ? CheckFor::verdict : CheckFor::verdict_on_all);
        for (const std::string &line : lines)
            check.add(line);
        EXPECT_FALSE(check.finish());
        EXPECT_EQ(check.add(lines[2]), found.size() < end);
        std::vector<std::string> expected = faults;
        expected.resize(std::min(end, faults.size()));
        EXPECT_EQ(found, expected);
    }
}
