#include "freecache.h"

#include "xalloc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

TEST(FreeCacheTest, LastObjectBackIsFirstOutAndZeroed) {
    const char zeros[24] = {};
    FreeCache *fc = freecache_new(sizeof zeros, 2);
    void *objects[3];
    for (void *&obj : objects)
        obj = std::memset(freecache_get(fc), 0xff, sizeof zeros);
    EXPECT_EQ(freecache_put(fc, objects[0]), 1U);
    EXPECT_FALSE(freecache_isFull(fc) || freecache_isEmpty(fc));
    EXPECT_EQ(freecache_put(fc, objects[1]), 2U);
    EXPECT_TRUE(freecache_isFull(fc));
    EXPECT_EQ(freecache_put(fc, objects[2]), 0U); // freed
    for (int i : {1, 0}) {
        EXPECT_EQ(freecache_get(fc), objects[i]);
        EXPECT_EQ(std::memcmp(objects[i], zeros, sizeof zeros), 0);
    }
    EXPECT_TRUE(freecache_isEmpty(fc));
    freecache_put(fc, objects[0]);
    freecache_put(fc, objects[1]);

    testing::internal::CaptureStderr();
    freecache_dump(fc);
    OwnedString dump = str_format("Freecache: %p\n\tobj_size: 24\n\tnum_free: 2\n\tmax_free: 2\n"
                                  "\tfree_list:\n\t\t[%p]\n\t\t[%p]\n",
                                  static_cast<void *>(fc), objects[1], objects[0]);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), dump.get());
    EXPECT_EQ(freecache_free(fc), 0);
}

TEST(FreeCacheTest, NullAndMisuse) {
    EXPECT_TRUE(freecache_isFull(nullptr) && freecache_isEmpty(nullptr));
    EXPECT_EQ(freecache_get(nullptr), nullptr);
    EXPECT_DEATH(freecache_new(0, 1), "obj_size != 0");
    EXPECT_DEATH(freecache_new(8, 0), "max_objs != 0");
    EXPECT_DEATH(freecache_new(4, 1), "obj_size >= sizeof .void...");
    int object;
    EXPECT_DEATH(freecache_put(nullptr, &object), "fc != NULL");
}
