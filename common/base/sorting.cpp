#include "base/sorting.h"

#include "base/xalloc.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <memory>

static constexpr size_t LARGEST_ON_STACK = 799;

namespace {

struct Sorter {
    unsigned char *base;
    size_t size;
    CompareFn compare;
    void *pivot; // a copy: the element itself moves

    // Sorts the elements begin .. end-1. Only the smaller side is sorted by recursion, so that the
    // depth stays below log2(end - begin) whatever the data.
    void sort(size_t begin, size_t end) {
        while (end - begin > 1) {
            const auto [left_end, right_begin] = partition(begin, end);
            if (left_end - begin < end - right_begin) {
                sort(begin, left_end);
                begin = right_begin;
            } else {
                sort(right_begin, end);
                end = left_end;
            }
        }
    }

    struct Split {
        size_t left_end;
        size_t right_begin;
    };

    // Both sides come out shorter than the range. With a consistent comparison the pivot stops each
    // scan; the bounds in the loops hold the scans inside the range when it is not.
    Split partition(size_t begin, size_t end) {
        memcpy(pivot, at(begin + (end - begin) / 2), size);
        size_t left = begin;
        size_t right = end; // one past the element looked at
        while (left < right) {
            while (left + 1 < end && compare(at(left), pivot) < 0)
                left++;
            while (right - 1 > begin && compare(at(right - 1), pivot) > 0)
                right--;
            if (left >= right)
                break;
            exchange(left++, --right);
        }
        return {right, left};
    }

    void exchange(size_t i, size_t j) const {
        if (i != j)
            std::swap_ranges(at(i), at(i) + size, at(j));
    }

    unsigned char *at(size_t i) const { return base + i * size; }
};

} // namespace

void os_qsort(void *vbase, size_t count, size_t size, CompareFn compare) {
    if (count < 2)
        return;
    assert(vbase);
    alignas(max_align_t) std::array<unsigned char, LARGEST_ON_STACK + 1> on_stack;
    std::unique_ptr<void, FreeDeleter> on_heap;
    void *pivot = on_stack.data();
    if (size > LARGEST_ON_STACK) {
        on_heap.reset(malloc(size));
        if (on_heap == nullptr)
            return;
        pivot = on_heap.get();
    }
    Sorter{static_cast<unsigned char *>(vbase), size, compare, pivot}.sort(0, count);
}

void *os_bsearch(const void *key, const void *base, size_t count, size_t size, CompareFn compare) {
    size_t low = 0;
    size_t end = count;
    while (low < end) {
        const size_t probe = low + (end - 1 - low) / 2;
        const auto *element = static_cast<const unsigned char *>(base) + probe * size;
        const int order = compare(key, element);
        if (order == 0)
            return const_cast<unsigned char *>(element);
        if (order > 0)
            low = probe + 1;
        else
            end = probe;
    }
    return nullptr;
}
