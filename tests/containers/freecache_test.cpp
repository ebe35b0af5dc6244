#include "containers/freecache.h"

#include "base/text.h"
#include "support/noise.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

TEST(FreeCache, LastObjectBackIsFirstOutAndZeroed) {
    constexpr size_t SIZE = 24;
    const char zeros[SIZE] = {};
    const uint32_t most = 5;
    FreeCache *fc = freecache_new(SIZE, most);
    std::vector<void *> held, list;
    Random random(1);
    for (int step = 0; step < 2000; step++) {
        if (held.empty() || below(random, 2) == 0) {
            void *object = freecache_get(fc);
            EXPECT_EQ(memcmp(object, zeros, SIZE), 0);
            if (!list.empty()) {
                EXPECT_EQ(object, list.back());
                list.pop_back();
            }
            held.push_back(memset(object, 0xff, SIZE));
        } else {
            const bool kept = list.size() < most; // else it is freed
            if (kept)
                list.push_back(held.back());
            EXPECT_EQ(freecache_put(fc, held.back()), kept ? list.size() : 0);
            held.pop_back();
        }
        ASSERT_EQ(freecache_numFree(fc), list.size());
        EXPECT_EQ(freecache_isFull(fc), list.size() == most);
        EXPECT_EQ(freecache_isEmpty(fc), list.empty());
    }
    EXPECT_EQ(freecache_maxFree(fc), most);

    std::string dump =
        str_format("Freecache: %p\n\tobj_size: 24\n\tnum_free: %zu\n\tmax_free: 5\n\tfree_list:\n",
                   static_cast<void *>(fc), list.size())
            .get();
    for (auto object = list.rbegin(); object != list.rend(); object++)
        dump += str_format("\t\t[%p]\n", *object).get();
    testing::internal::CaptureStderr();
    freecache_dump(fc);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), dump);
    EXPECT_EQ(freecache_free(fc), 0);
    for (void *object : held)
        free(object);
}

TEST(FreeCache, NullAndMisuse) {
    EXPECT_TRUE(freecache_isFull(nullptr) && freecache_isEmpty(nullptr));
    EXPECT_EQ(freecache_numFree(nullptr) + freecache_maxFree(nullptr), 0u);
    EXPECT_EQ(freecache_get(nullptr), nullptr);
    EXPECT_EQ(freecache_free(nullptr), 0);
    freecache_dump(nullptr);
    EXPECT_DEATH(freecache_new(0, 1), "obj_size != 0");
    EXPECT_DEATH(freecache_new(8, 0), "max_objs != 0");
    EXPECT_DEATH(freecache_new(4, 1), "obj_size >= sizeof .void...");
    int object;
    EXPECT_DEATH(freecache_put(nullptr, &object), "fc != NULL");
    FreeCache fc = {8, 0, 1, nullptr};
    EXPECT_DEATH(freecache_put(&fc, nullptr), "obj != NULL");
}
