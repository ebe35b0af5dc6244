#include "containers/freecache.h"

#include "base/xalloc.h"

#include <cassert>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The link to the next free object.
static void *&link_of(void *obj) {
    return *static_cast<void **>(obj);
}

FreeCache *freecache_new(uint64_t obj_size, uint32_t max_objs) {
    assert(obj_size != 0);
    assert(max_objs != 0);
    // clang-format off
    assert(obj_size >= sizeof (void*));
    // clang-format on
    auto *fc = xnew<FreeCache>();
    fc->obj_size = obj_size;
    fc->max_free = max_objs;
    return fc;
}

void *freecache_get(FreeCache *fc) {
    if (fc == nullptr)
        return nullptr;
    const auto size = static_cast<size_t>(fc->obj_size);
    if (fc->free_list == nullptr)
        return xalloc(size);
    void *obj = fc->free_list;
    fc->free_list = link_of(obj);
    fc->num_free--;
    return memset(obj, 0, size);
}

uint32_t freecache_put(FreeCache *fc, void *obj) {
    assert(fc != NULL);
    assert(obj != NULL);
    if (fc->num_free == fc->max_free) {
        free(obj);
        return 0;
    }
    link_of(obj) = fc->free_list;
    fc->free_list = obj;
    return ++fc->num_free;
}

int freecache_free(FreeCache *fc) {
    if (fc == nullptr)
        return 0;
    for (void *obj = fc->free_list; obj != nullptr;) {
        void *next = link_of(obj);
        free(obj);
        obj = next;
    }
    free(fc);
    return 0;
}

uint32_t freecache_numFree(const FreeCache *fc) {
    return fc != nullptr ? fc->num_free : 0;
}

uint32_t freecache_maxFree(const FreeCache *fc) {
    return fc != nullptr ? fc->max_free : 0;
}

bool freecache_isFull(const FreeCache *fc) {
    return fc == nullptr || fc->num_free == fc->max_free;
}

bool freecache_isEmpty(const FreeCache *fc) {
    return fc == nullptr || fc->num_free == 0;
}

void freecache_dump(const FreeCache *fc) {
    fprintf(stderr, "Freecache: %p\n", static_cast<const void *>(fc));
    if (fc == nullptr)
        return;
    fprintf(stderr, "\tobj_size: %" PRIu64 "\n", fc->obj_size);
    fprintf(stderr, "\tnum_free: %" PRIu32 "\n", fc->num_free);
    fprintf(stderr, "\tmax_free: %" PRIu32 "\n", fc->max_free);
    fprintf(stderr, "\tfree_list:\n");
    for (void *obj = fc->free_list; obj != nullptr; obj = link_of(obj))
        fprintf(stderr, "\t\t[%p]\n", obj);
}
