#include "base/xalloc.h"

#include <gtest/gtest.h>

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
