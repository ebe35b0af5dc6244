#include "base/xalloc.h"

#include <gtest/gtest.h>
#include <string>

// A build with the address sanitizer is to see a null result for a size that cannot be had, too.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}

TEST(Xalloc, RunningOutEndsTheProgram) {
    volatile size_t too_much = SIZE_MAX / 4;
    EXPECT_EXIT(free(xalloc(too_much)), testing::ExitedWithCode(1), "out of memory\n$");
    const auto use_hook = [&](void (*hook)()) {
        out_of_memory_hook = hook;
        free(xalloc(too_much));
    };
    EXPECT_EXIT(use_hook([] { exit(7); }), testing::ExitedWithCode(7), "");
    EXPECT_DEATH(use_hook([] { fputs("hook returned", stderr); }), "hook returned");
    EXPECT_NE(OwnedBytes(static_cast<uint8_t *>(xalloc(0))), nullptr);
}

TEST(Xalloc, FormatCutsLongTextsAndSaysSo) {
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

TEST(Xalloc, CaseIsIgnoredInComparisons) {
    EXPECT_EQ(str_icmp("Abc", "aBC"), 0);
    EXPECT_LT(str_icmp("_", "A"), 0);
    EXPECT_GT(str_icmp("\xe4", "z"), 0);
    EXPECT_LT(str_nicmp("abc", "ABCD", 9), 0);
    EXPECT_EQ(str_nicmp("abX", "aby", 2), 0);
}

TEST(Xalloc, NamesAreShownQuotedAndWithoutControlCharacters) {
    testing::internal::CaptureStderr();
    fprint_quoted(stderr, str_concat("a", " b").get());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\"a b\"");
    EXPECT_STREQ(str_printable("a\x1b[2J\x7f\t\n\x01 z").get(), "a?[2J???? z");
    EXPECT_STREQ(str_printable("\xc2\x80\xc2\x9f\xc2\xa0\xc3\x84\xc2").get(),
                 "??\xc2\xa0\xc3\x84\xc2");
    EXPECT_STREQ(str_printable("\x80\x9f\xa0\xe2\x82\xac\xf0\x9f\x98\x80\xe2\x82 \xc1\x9b").get(),
                 "??\xa0\xe2\x82\xac\xf0\x9f\x98\x80\xe2? \xc1?");
}
