#include "base/sorting.h"

#include "support/noise.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

static Random random_numbers(1);

static int compare_bytes(const void *a, const void *b) {
    return *static_cast<const uint8_t *>(a) - *static_cast<const uint8_t *>(b);
}

static uintptr_t lowest_frame = 0, highest_frame = 0;

static int compare_ints(const void *a, const void *b) {
    volatile char here = 0;
    lowest_frame = std::min(lowest_frame, reinterpret_cast<uintptr_t>(&here));
    highest_frame = std::max(highest_frame, reinterpret_cast<uintptr_t>(&here));
    return *static_cast<const int *>(a) - *static_cast<const int *>(b);
}

// Sizes around the limit of the scratch element on the stack. All bytes of an element are alike, so
// a byte that an exchange has missed shows.
TEST(Sorting, SortsElementsOfAnySize) {
    for (const size_t size : {1u, 3u, 8u, 799u, 800u, 801u, 5000u})
        for (const size_t count : {0u, 1u, 2u, 3u, 4u, 17u, 300u}) {
            auto keys = noise<std::vector<uint8_t>>(count, static_cast<uint32_t>(size + count));
            std::vector<uint8_t> data, expected;
            for (const uint8_t key : keys)
                data.insert(data.end(), size, key);
            os_qsort(data.data(), count, size, compare_bytes);
            std::sort(keys.begin(), keys.end());
            for (const uint8_t key : keys)
                expected.insert(expected.end(), size, key);
            EXPECT_EQ(data, expected) << size << " x " << count;
        }
    EXPECT_DEATH(os_qsort(nullptr, 2, 8, compare_bytes), "vbase");
}

TEST(Sorting, NoDataUsesUpTheStack) {
    // All alike, and such that each pivot is the largest element.
    for (const int slope : {0, 1}) {
        std::vector<int> data;
        for (int i = 0; i < 10000; i++)
            data.push_back(slope * std::min(i, 10000 - i));
        lowest_frame = UINTPTR_MAX;
        highest_frame = 0;
        os_qsort(data.data(), data.size(), sizeof(int), compare_ints);
        EXPECT_TRUE(std::is_sorted(data.begin(), data.end())) << slope;
        EXPECT_LT(highest_frame - lowest_frame, 30000u) << slope;
    }
}

TEST(Sorting, InconsistentComparisonStaysInsideTheArray) {
    const CompareFn comparisons[] = {
        [](const void *, const void *) { return -1; },
        [](const void *, const void *) { return 1; },
        [](const void *, const void *) { return static_cast<int>(below(random_numbers, 3)) - 1; },
    };
    for (const size_t count : {2u, 3u, 10u, 1000u})
        for (CompareFn compare : comparisons) {
            // What lies outside would come in by an exchange, or be seen by the address sanitizer.
            std::vector<int> expected(count);
            std::iota(expected.begin(), expected.end(), 1);
            std::vector<int> data = expected;
            os_qsort(data.data(), count, sizeof(int), compare);
            std::sort(data.begin(), data.end());
            EXPECT_EQ(data, expected) << count;
        }
}

TEST(Sorting, SearchFindsWhatIsThere) {
    const auto compare = [](const void *key, const void *element) {
        return *static_cast<const int *>(key) - *static_cast<const uint8_t *>(element);
    };
    const uint8_t sorted[] = {0, 2, 4, 6, 8};
    for (size_t count = 0; count <= std::size(sorted); count++)
        for (int key = -1; key <= 9; key++) {
            const bool there = key >= 0 && key % 2 == 0 && static_cast<size_t>(key / 2) < count;
            EXPECT_EQ(os_bsearch(&key, count != 0 ? sorted : nullptr, count, 1, compare),
                      there ? sorted + key / 2 : nullptr)
                << key << " in " << count;
        }
}
