#include "command/slip.h"

#include <gtest/gtest.h>
#include <vector>

TEST(Slip, NearlyAnOption) {
    const struct {
        const char *option;
        bool is_slip;
        std::vector<const char *> arguments;
    } cases[] = {
        {"--extra",
         true,
         {"--extras", "-extra", "---EXTRA", "--extra=yes", "--xtra", "--extra\x1b", "--exrta",
          "\xe2\x80\x93-extra",
          "\xe2\x80\x94"
          "extra"}},
        {"--extra", false, {"extra", "--ext", "--extract", "--xetar", "--", "", "--=extra"}},
        {"--report=", true, {"--repor", "--reprot=x", "--REPOST=x"}},
        {"--report=",
         false,
         {"--rexxrt", "--rpeotr", "\xe2\x80", "\xe2\x80\x8breport", "\xe2\x80\x99report",
          "\xe2\x82\xacreport"}},
    };
    for (const auto &c : cases)
        for (const char *argument : c.arguments)
            EXPECT_EQ(is_slip_in(c.option, argument), c.is_slip) << argument;
}
