#include "base/text.h"

#include <gtest/gtest.h>
#include <string>

TEST(Text, FormatCutsLongTextsAndSaysSo) {
    for (const size_t length : {0u, 4095u, 4096u, 5000u}) {
        const std::string text(length, 'x');
        testing::internal::CaptureStderr();
        const OwnedString result = str_format("%s", text.c_str());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  length > 4095 ? "buffer overflow in vsnprintf" : "");
        EXPECT_EQ(result.get(), text.substr(0, 4095));
    }
    // 64-bit values come out whole, whatever the host's own printf can do.
    EXPECT_STREQ(str_format("%ju %llu %zu", UINTMAX_MAX, 1ULL << 40, size_t{3}).get(),
                 "18446744073709551615 1099511627776 3");
}

TEST(Text, CaseIsIgnoredInComparisons) {
    EXPECT_EQ(str_icmp("Abc", "aBC"), 0);
    EXPECT_LT(str_icmp("_", "A"), 0);
    EXPECT_GT(str_icmp("\xe4", "z"), 0);
    EXPECT_LT(str_nicmp("abc", "ABCD", 9), 0);
    EXPECT_EQ(str_nicmp("abX", "aby", 2), 0);
}

TEST(Text, NamesAreShownQuotedAndWithoutControlCharacters) {
    testing::internal::CaptureStderr();
    fprint_quoted(stderr, str_concat("a", " b").get());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\"a b\"");
    EXPECT_STREQ(str_printable("a\x1b[2J\x7f\t\n\x01 z").get(), "a?[2J???? z");
    EXPECT_STREQ(str_printable("\xc2\x80\xc2\x9f\xc2\xa0\xc3\x84\xc2").get(),
                 "??\xc2\xa0\xc3\x84\xc2");
    EXPECT_STREQ(str_printable("\xef\xbb\xbf\xef\xbb\xbe").get(), "?\xef\xbb\xbe");
    EXPECT_STREQ(str_printable("\x80\x9f\xa0\xe2\x82\xac\xf0\x9f\x98\x80\xe2\x82 \xc1\x9b").get(),
                 "??\xa0\xe2\x82\xac\xf0\x9f\x98\x80\xe2? \xc1?");
}
