// Sorting and searching with one behaviour on every host.
#ifndef KESTREL_BASE_SORTING_H
#define KESTREL_BASE_SORTING_H

#include <cstddef>

using CompareFn = int (*)(const void *, const void *);

// Sorts `count` elements of `size` bytes in place, by a quicksort around the middle element. Equal
// elements may change places. Fewer than two elements are left alone; a null `vbase` with more
// fails an assertion.
void os_qsort(void *vbase, size_t count, size_t size, CompareFn compare);

// An element of the sorted array equal to `key`, or null. `compare` receives (key, element).
void *os_bsearch(const void *key, const void *base, size_t count, size_t size, CompareFn compare);

#endif
