// A growable ordered array of untyped element pointers with a stack of cursors. The vector never
// frees, copies or compares what its elements point to.
//
// Creators pass their source position, which the accounting (vec_trackInit) reports. vec_size,
// vec_first, vec_next, vec_peek, vec_iterStart, vec_hasMore and vec_free accept a null vector, as
// do vec_copy and the end of a loop in vec_iterEnd; everything else asserts "p != NULL".
#ifndef KESTREL_CONTAINERS_VECTOR_H
#define KESTREL_CONTAINERS_VECTOR_H

#include "base/sorting.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

struct VecIterator {
    uint32_t index;    // of the element that vec_next returns next
    VecIterator *next; // the cursor below this one
};

struct Vector;

// What the accounting knows of one vector; lives to the end of the process.
struct VecMasterRec {
    const Vector *vector; // dangles once the vector is freed; printed only
    uint32_t flags;       // bit 0: alive
    const char *file;     // the creator's position
    uint32_t line;
    uint32_t capacity;
    uint32_t max_count; // high-water mark of the count
};

struct Vector {
    uint32_t count;
    uint32_t capacity;         // slots in `data`; 0 until the first growth
    uint32_t initial_capacity; // slots made by the first growth
    VecIterator *iterator;     // top of the cursor stack, null when no iteration is open
    void **data;
    uint32_t serial; // creation number; a copy has its source's
    VecMasterRec *master;
};

// --- Creation

Vector *vec_new(const char *file, uint32_t line);

// A new vector with slots for `initial_capacity` elements. A vector of 0 never gets any: adding to
// it fails the assertion "p->data != NULL".
Vector *vec_newSized(uint32_t initial_capacity, const char *file, uint32_t line);

// A shallow copy without open iterations; null for null.
Vector *vec_copy(const Vector *p, const char *file, uint32_t line);

// Frees the vector and its cursors, not its elements.
void vec_free(Vector *p);

// --- Adding and changing. Capacity is always above the highest index asked for; where its bytes
// would no longer fit in 32 bits the program ends as out of memory.

void vec_append(Vector *p, const void *e);

// Appends `e` unless an equal pointer is there already.
void vec_appendUnique(Vector *p, const void *e);

// Inserts at `pos`, or at the end if that lies beyond; returns the index used. Open iterations
// neither repeat nor skip an element.
uint32_t vec_insertAt(Vector *p, const void *e, uint32_t pos);

// Stores `e` at `i`, growing up to it. Slots in between are not cleared: they are null in fresh
// memory, and hold what stood there before in a vector that has shrunk.
void vec_setAt(Vector *p, const void *e, uint32_t i);

// Takes out the element at `from`, closes the gap and inserts it at `to`. Nothing if from >= count.
// The count stays: with to >= count the slots after the last element move in, null or left over.
void vec_moveTo(Vector *p, uint32_t from, uint32_t to);

// Appends the elements that `n` has now, or those that `p` does not hold yet; `n` may be `p`.
// Returns n's count at the call.
uint32_t vec_appendAll(Vector *p, Vector *n);
uint32_t vec_mergeUnique(Vector *p, Vector *n);

// Sorts in place; `cmp` receives pointers to two slots.
void vec_sort(Vector *p, CompareFn cmp);

// --- Removing

// Removes an element: 1, or 0 if i >= count. Open iterations keep their place.
int vec_removeAt(Vector *p, uint32_t i);

// Removes the first element equal to `e`: 1, or 0 if there is none. Asserts that the vector has
// held an element before.
int vec_remove(Vector *p, const void *e);

// Takes off the last element and returns it; null when empty. Cursors are not adjusted.
void *vec_pop(Vector *p);
void vec_clear(Vector *p);

// --- Reading

uint32_t vec_size(const Vector *p);
void *vec_elementAt(const Vector *p, uint32_t i); // null beyond the end
void *vec_top(const Vector *p);                   // null when empty

// The first index of `e`, or VEC_NOT_FOUND.
constexpr uint32_t VEC_NOT_FOUND = UINT32_MAX;
uint32_t vec_indexOf(const Vector *p, const void *e);

// --- Iteration, with the cursor on top of the vector's stack

void vec_iterStart(Vector *p); // pushes a cursor at element 0
bool vec_hasMore(const Vector *p);
void *vec_next(Vector *p);       // null at the end
void *vec_peek(const Vector *p); // what vec_next would return

// Guards a loop: pops the cursor when `more` is 0, and returns `more`.
int vec_iterEnd(Vector *p, int more);

// Pushes a cursor and returns element 0, with the cursor after it; null for an empty vector.
void *vec_first(Vector *p);

// --- Accounting

// Switches the accounting of vectors made from now on, and starts a new master list when on.
void vec_trackInit(bool enable);

// Writes the list of tracked vectors and the summary by creation site to the debug log. Nothing
// when tracking was never on.
void vec_masterReport();

// --- Typed use

struct VecDeleter {
    void operator()(Vector *p) const { vec_free(p); }
};
using VectorPtr = std::unique_ptr<Vector, VecDeleter>;

// A vector that owns its elements, blocks to be given to free().
struct VecBlocksDeleter {
    void operator()(Vector *p) const {
        for (uint32_t i = 0; i < vec_size(p); i++)
            free(vec_elementAt(p, i));
        vec_free(p);
    }
};
using BlockVectorPtr = std::unique_ptr<Vector, VecBlocksDeleter>;

// The element at `i` as a pointer to T; null beyond the end.
template <class T> T *vec_at(const Vector *p, uint32_t i) {
    return static_cast<T *>(vec_elementAt(p, i));
}

// The elements of a vector for a range-based for, with a cursor of its own that is removed however
// the loop ends: for (auto *line : VecEach<const char>(lines)). As in a loop of vec_next, the
// cursor is after the element that the body handles, which may remove it.
template <class T> class VecEach {
  public:
    explicit VecEach(Vector *p) : vector(p) { vec_iterStart(p); }
    explicit VecEach(const VectorPtr &p) : VecEach(p.get()) {}
    ~VecEach() { vec_iterEnd(vector, 0); }
    VecEach(const VecEach &) = delete;
    VecEach &operator=(const VecEach &) = delete;

    struct End {};
    struct Iterator {
        Vector *vector;
        T *operator*() const { return static_cast<T *>(vec_next(vector)); }
        Iterator &operator++() { return *this; }
        bool operator!=(End) const { return vec_hasMore(vector); }
    };
    Iterator begin() const { return {vector}; }
    End end() const { return {}; }

  private:
    Vector *vector;
};

#endif
