#include "containers/vector.h"

#include "base/xalloc.h"
#include "containers/freecache.h"
#include "host/trace.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

static constexpr uint32_t DEFAULT_CAPACITY = 10;
static constexpr uint32_t MAX_CACHED_CURSORS = 8192;
static constexpr uint32_t ALIVE = 1;

static uint32_t next_serial = 0;
static bool tracking = false;
static Vector *master_list = nullptr; // of VecMasterRec, itself untracked
static FreeCache *cursors = nullptr;  // shared by all vectors

// For tracked vectors only.
static bool is_alive(const Vector *p) {
    return (p->master->flags & ALIVE) != 0;
}

// --- Cursors

static void push_cursor(Vector *p) {
    auto *cursor = static_cast<VecIterator *>(freecache_get(cursors));
    cursor->next = p->iterator;
    p->iterator = cursor;
}

static void pop_cursor(Vector *p) {
    VecIterator *cursor = p->iterator;
    p->iterator = cursor->next;
    freecache_put(cursors, cursor);
}

// --- Growth and accounting

// A vector has at most as many slots as 32 bits of bytes can count.
static void **allocate_slots(uint64_t slots) {
    const uint64_t bytes = slots * sizeof(void *);
    if (bytes > UINT32_MAX)
        out_of_memory();
    return static_cast<void **>(xalloc(static_cast<size_t>(bytes)));
}

// Makes the capacity greater than `target`. An initial capacity of 0 can be doubled for ever, so
// such a vector never gets its slots and fails the assertion.
static void grow(Vector *p, uint32_t target) {
    if (p->capacity == 0 || target >= p->capacity) {
        uint64_t capacity = p->capacity != 0 ? uint64_t{p->capacity} * 2 : p->initial_capacity;
        while (capacity != 0 && target >= capacity)
            capacity *= 2;
        if (capacity != 0) {
            void **data = allocate_slots(capacity);
            if (p->capacity != 0)
                std::copy_n(p->data, p->count, data);
            free(std::exchange(p->data, data)); // whoever interrupts reads one or the other
            p->capacity = static_cast<uint32_t>(capacity);
        }
        if (p->master != nullptr) {
            assert(is_alive(p));
            p->master->capacity = p->capacity;
        }
    }
    assert(p->data != NULL);
}

static void set_count(Vector *p, uint32_t count) {
    p->count = count;
    if (p->master != nullptr) {
        assert(is_alive(p));
        p->master->max_count = std::max(p->master->max_count, count);
    }
}

static void track(Vector *p, const char *file, uint32_t line) {
    auto *record = xnew<VecMasterRec>();
    record->vector = p;
    record->flags = ALIVE;
    record->file = file;
    record->line = line;
    record->capacity = p->capacity;
    record->max_count = p->count;
    p->master = record;
    vec_append(master_list, record);
}

// --- Creation

Vector *vec_new(const char *file, uint32_t line) {
    return vec_newSized(DEFAULT_CAPACITY, file, line);
}

Vector *vec_newSized(uint32_t initial_capacity, const char *file, uint32_t line) {
    if (cursors == nullptr)
        cursors = freecache_new(sizeof(VecIterator), MAX_CACHED_CURSORS);
    auto *p = xnew<Vector>();
    p->initial_capacity = initial_capacity;
    p->serial = next_serial++;
    if (tracking)
        track(p, file, line);
    return p;
}

Vector *vec_copy(const Vector *p, const char *file, uint32_t line) {
    if (p == nullptr)
        return nullptr;
    auto *copy = xnew<Vector>();
    copy->count = p->count;
    copy->capacity = p->capacity;
    copy->initial_capacity = p->initial_capacity;
    copy->serial = p->serial;
    if (p->capacity != 0) {
        copy->data = allocate_slots(p->capacity);
        std::copy_n(p->data, p->count, copy->data);
    }
    if (p->master != nullptr) {
        assert(is_alive(p));
        track(copy, file, line);
    }
    return copy;
}

void vec_free(Vector *p) {
    if (p == nullptr)
        return;
    if (p->master != nullptr) {
        assert(is_alive(p));
        p->master->flags &= ~ALIVE;
    }
    while (p->iterator != nullptr)
        pop_cursor(p);
    free(p->data);
    free(p);
}

// --- Adding and changing

void vec_append(Vector *p, const void *e) {
    assert(p != NULL);
    grow(p, p->count);
    p->data[p->count] = const_cast<void *>(e);
    set_count(p, p->count + 1);
}

void vec_appendUnique(Vector *p, const void *e) {
    if (vec_indexOf(p, e) == VEC_NOT_FOUND)
        vec_append(p, e);
}

uint32_t vec_insertAt(Vector *p, const void *e, uint32_t pos) {
    assert(p != NULL);
    grow(p, p->count);
    pos = std::min(pos, p->count);
    std::copy_backward(p->data + pos, p->data + p->count, p->data + p->count + 1);
    p->data[pos] = const_cast<void *>(e);
    set_count(p, p->count + 1);
    for (VecIterator *cursor = p->iterator; cursor != nullptr; cursor = cursor->next)
        if (cursor->index >= pos)
            cursor->index++;
    return pos;
}

void vec_setAt(Vector *p, const void *e, uint32_t i) {
    assert(p != NULL);
    grow(p, std::max(p->count, i));
    p->data[i] = const_cast<void *>(e);
    if (i >= p->count)
        set_count(p, i + 1);
}

void vec_moveTo(Vector *p, uint32_t from, uint32_t to) {
    assert(p != NULL);
    if (from >= p->count)
        return;
    grow(p, std::max(p->count, to));
    if (from < to)
        std::rotate(p->data + from, p->data + from + 1, p->data + to + 1);
    else
        std::rotate(p->data + to, p->data + from, p->data + from + 1);
}

// The count is taken first, so that a vector can be appended to itself.
static uint32_t append_each(Vector *p, const Vector *n, void (*append)(Vector *, const void *)) {
    assert(p != NULL);
    assert(n != NULL);
    const uint32_t count = n->count;
    for (uint32_t i = 0; i < count; i++)
        append(p, n->data[i]);
    return count;
}

uint32_t vec_appendAll(Vector *p, Vector *n) {
    return append_each(p, n, vec_append);
}

uint32_t vec_mergeUnique(Vector *p, Vector *n) {
    return append_each(p, n, vec_appendUnique);
}

void vec_sort(Vector *p, CompareFn cmp) {
    assert(p != NULL);
    if (p->count != 0)
        os_qsort(p->data, p->count, sizeof(void *), cmp);
}

// --- Removing

int vec_removeAt(Vector *p, uint32_t i) {
    assert(p != NULL);
    if (i >= p->count)
        return 0;
    p->count--;
    std::copy(p->data + i + 1, p->data + p->count + 1, p->data + i);
    p->data[p->count] = nullptr;
    for (VecIterator *cursor = p->iterator; cursor != nullptr; cursor = cursor->next)
        if (cursor->index > i)
            cursor->index--;
    return 1;
}

int vec_remove(Vector *p, const void *e) {
    assert(p != NULL);
    assert(p->data != NULL);
    return vec_removeAt(p, vec_indexOf(p, e));
}

void *vec_pop(Vector *p) {
    assert(p != NULL);
    return p->count != 0 ? p->data[--p->count] : nullptr;
}

void vec_clear(Vector *p) {
    assert(p != NULL);
    p->count = 0;
}

// --- Reading

uint32_t vec_size(const Vector *p) {
    return p != nullptr ? p->count : 0;
}

void *vec_elementAt(const Vector *p, uint32_t i) {
    assert(p != NULL);
    return i < p->count ? p->data[i] : nullptr;
}

void *vec_top(const Vector *p) {
    assert(p != NULL);
    return p->count != 0 ? p->data[p->count - 1] : nullptr;
}

uint32_t vec_indexOf(const Vector *p, const void *e) {
    assert(p != NULL);
    for (uint32_t i = 0; i < p->count; i++)
        if (p->data[i] == e)
            return i;
    return VEC_NOT_FOUND;
}

// --- Iteration

void vec_iterStart(Vector *p) {
    if (p != nullptr)
        push_cursor(p);
}

bool vec_hasMore(const Vector *p) {
    if (p == nullptr)
        return false;
    assert(p->iterator != NULL);
    return p->iterator->index < p->count;
}

void *vec_next(Vector *p) {
    if (!vec_hasMore(p))
        return nullptr;
    return p->data[p->iterator->index++];
}

void *vec_peek(const Vector *p) {
    return vec_hasMore(p) ? p->data[p->iterator->index] : nullptr;
}

int vec_iterEnd(Vector *p, int more) {
    if (p == nullptr) {
        assert(more == 0);
        return more;
    }
    assert(p->iterator != NULL);
    if (more == 0)
        pop_cursor(p);
    return more;
}

void *vec_first(Vector *p) {
    vec_iterStart(p);
    return vec_next(p);
}

// --- Accounting

void vec_trackInit(bool enable) {
    tracking = false;
    if (enable)
        master_list = vec_new(__FILE__, __LINE__);
    tracking = enable;
}

namespace {

// The vectors created at one place.
struct SiteSummary {
    struct Tally {
        uint64_t vectors;
        uint64_t capacity;
    };
    const char *file; // compared as a pointer: it is the text of one __FILE__
    uint32_t line;
    Tally living;
    Tally dead;
};

} // namespace

static int compare_records(const void *a_slot, const void *b_slot) {
    const auto *a = *static_cast<const VecMasterRec *const *>(a_slot);
    const auto *b = *static_cast<const VecMasterRec *const *>(b_slot);
    if (a->capacity != b->capacity)
        return a->capacity > b->capacity ? -1 : 1;
    if (a->max_count != b->max_count)
        return a->max_count < b->max_count ? -1 : 1;
    if (int order = strcmp(a->file, b->file))
        return order;
    if (a->line != b->line)
        return a->line < b->line ? -1 : 1;
    return a == b ? 0 : std::less<>()(a, b) ? -1 : 1;
}

static SiteSummary &summary_of(std::vector<SiteSummary> &sites, const VecMasterRec *record) {
    const auto is_site = [&](const SiteSummary &site) {
        return site.file == record->file && site.line == record->line;
    };
    const auto found = std::find_if(sites.begin(), sites.end(), is_site);
    if (found != sites.end())
        return *found;
    return sites.emplace_back(SiteSummary{record->file, record->line, {}, {}});
}

// Lists the living vectors, and counts all of them by site, in order of first appearance.
static std::vector<SiteSummary> report_living() {
    std::vector<SiteSummary> sites;
    for (const auto *record : VecEach<const VecMasterRec>(master_list)) {
        SiteSummary &site = summary_of(sites, record);
        const bool alive = (record->flags & ALIVE) != 0;
        SiteSummary::Tally &tally = alive ? site.living : site.dead;
        tally.vectors++;
        tally.capacity += record->capacity;
        if (alive)
            trace_printf("# %p    %s:%u    %u/%u    %c", static_cast<const void *>(record->vector),
                         record->file, record->line, record->max_count, record->capacity, 'Y');
    }
    return sites;
}

void vec_masterReport() {
    if (master_list == nullptr)
        return;
    vec_sort(master_list, compare_records);
    trace_puts("# Living Vector Master List:");
    trace_puts("# ptr    file:line    max_count/capacity    alive");
    const std::vector<SiteSummary> sites = report_living();
    trace_puts("# Vector Master List Summary:");
    trace_puts("#                                                                  "
               "Living              Dead                Total");
    trace_puts("#                                file:line                         "
               "vectors/capacity    vectors/capacity    vectors/capacity");
    std::for_each(sites.rbegin(), sites.rend(), [](const SiteSummary &site) {
        // Readers of the log know the total as 0/0.
        trace_printf("# %35s:%-5u                        %ju/%ju    %ju/%ju    0/0", site.file,
                     site.line, uintmax_t{site.living.vectors}, uintmax_t{site.living.capacity},
                     uintmax_t{site.dead.vectors}, uintmax_t{site.dead.capacity});
    });
}
