// A recycler of small fixed-size objects: what is given back is handed out again, zero-filled.
#ifndef KESTREL_CONTAINERS_FREECACHE_H
#define KESTREL_CONTAINERS_FREECACHE_H

#include <cstdint>

struct FreeCache {
    uint64_t obj_size; // bytes of every object, at least a pointer's
    uint32_t num_free; // objects on the list
    uint32_t max_free; // the most it may hold
    void *free_list;   // last in, first out; the first word of each free object links to the next
};

// A cache of objects of `obj_size` bytes that keeps at most `max_objs` of them.
FreeCache *freecache_new(uint64_t obj_size, uint32_t max_objs);

// A zero-filled object, recycled or new, owned by the caller until it is put back. Null for null.
void *freecache_get(FreeCache *fc);

// Takes an object back and returns the number now on the list; frees it and returns 0 when the list
// is full.
uint32_t freecache_put(FreeCache *fc, void *obj);

// Frees the objects on the list and the cache; those handed out stay their holders'. Returns 0.
int freecache_free(FreeCache *fc);

// The number of objects on the list, and the most that it may hold; 0 for a null cache.
uint32_t freecache_numFree(const FreeCache *fc);
uint32_t freecache_maxFree(const FreeCache *fc);

// Whether the list is full, or empty; true for a null cache.
bool freecache_isFull(const FreeCache *fc);
bool freecache_isEmpty(const FreeCache *fc);

// Prints the cache's fields and free objects to standard error.
void freecache_dump(const FreeCache *fc);

#endif
