#include "containers/hash.h"

#include "base/text.h"
#include "host/trace.h"

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>

static constexpr uint32_t ALIVE = 1;
static constexpr uint32_t VOIDCMP = 2;
static constexpr uint32_t VOIDHASH = 4;

static bool tracking = false;
static Vector *master_list = nullptr;     // of HashMasterRec, made for the first tracked table
static HashEntry *free_entries = nullptr; // shared by all tables, never given back

// For tracked tables only.
static bool is_alive(const HashTable *h) {
    return (h->master->flags & ALIVE) != 0;
}

// --- Entries

static HashEntry *new_entry(const void *key, const void *value) {
    HashEntry *entry = free_entries;
    if (entry != nullptr)
        free_entries = entry->next;
    else
        entry = xnew<HashEntry>();
    entry->key = key;
    entry->value = const_cast<void *>(value);
    entry->next = nullptr;
    return entry;
}

static void free_entry(HashEntry *entry) {
    entry->next = free_entries;
    free_entries = entry;
}

static HashEntry **new_buckets(uint32_t size) {
    return static_cast<HashEntry **>(xalloc(size_t{size} * sizeof(HashEntry *)));
}

static HashEntry **bucket_of(const HashTable *h, const void *key) {
    return &h->buckets[h->hash(key) % h->size];
}

// The link that points to the key's entry, or the null one at the end of its chain. `passed` counts
// the entries before it.
static HashEntry **find_link(const HashTable *h, const void *key, uint32_t *passed = nullptr) {
    HashEntry **link = bucket_of(h, key);
    uint32_t steps = 0;
    while (*link != nullptr && h->cmp(key, (*link)->key) != 0) {
        link = &(*link)->next;
        steps++;
    }
    if (passed != nullptr)
        *passed = steps;
    return link;
}

// --- Creation

static HashMasterRec *new_record(const HashTable *h, const char *file, uint32_t line) {
    auto *record = xnew<HashMasterRec>();
    record->table = h;
    record->flags =
        ALIVE | (h->cmp == voidcmp ? VOIDCMP : 0) | (h->hash == voidhash ? VOIDHASH : 0);
    record->file = file;
    record->line = line;
    record->capacity = h->size;
    return record;
}

HashTable *hash_new(uint32_t size, HashFn hash, HashCmpFn cmp, const char *file, uint32_t line) {
    assert(size != 0);
    auto *h = xnew<HashTable>();
    h->size = size;
    h->hash = hash != nullptr ? hash : voidhash;
    h->cmp = cmp != nullptr ? cmp : voidcmp;
    h->buckets = new_buckets(size);
    if (tracking) {
        if (master_list == nullptr)
            master_list = vec_new(__FILE__, __LINE__);
        h->master = new_record(h, file, line);
        vec_append(master_list, h->master);
    }
    return h;
}

static HashEntry *copy_chain(const HashEntry *source) {
    HashEntry *head = nullptr;
    for (HashEntry **end = &head; source != nullptr; source = source->next, end = &(*end)->next)
        *end = new_entry(source->key, source->value);
    return head;
}

HashTable *hash_copy(const HashTable *h, const char *file, uint32_t line) {
    auto *copy = xnew<HashTable>();
    *copy = *h;
    copy->buckets = new_buckets(h->size);
    std::transform(h->buckets, h->buckets + h->size, copy->buckets, copy_chain);
    if (h->master != nullptr) {
        // Not in the master list: the report shows tables as they were created, not their copies.
        copy->master = xnew<HashMasterRec>();
        *copy->master = *h->master;
        copy->master->table = copy;
        copy->master->file = file;
        copy->master->line = line;
    }
    return copy;
}

void hash_clear(HashTable *h) {
    for (uint32_t i = 0; i < h->size; i++)
        while (HashEntry *entry = h->buckets[i]) {
            h->buckets[i] = entry->next;
            free_entry(entry);
        }
    h->count = 0;
    if (h->master != nullptr)
        h->master->util = 0;
}

void hash_free(HashTable *h) {
    if (h == nullptr)
        return;
    if (h->master != nullptr) {
        assert(is_alive(h));
        h->master->flags &= ~ALIVE;
    }
    hash_clear(h);
    free(h->buckets);
    free(h);
}

// --- Entries by key

static void account_insertion(HashTable *h, const HashEntry *entry, uint32_t passed,
                              const char *file, uint32_t line) {
    assert(is_alive(h));
    HashMasterRec *master = h->master;
    if (passed == 0) {
        master->util++;
        master->max_util = std::max(master->max_util, master->util);
    } else {
        tracef(file, line, "HASH @ %s:%u (%u/%u) clashed %u times inserting (%p,%p)", master->file,
               master->line, h->count, h->size, passed, entry->key, entry->value);
        master->clashes += passed;
    }
    master->max_usage = std::max(master->max_usage, h->count);
}

int hash_insert(HashTable *h, const void *key, const void *value, const char *file, uint32_t line) {
    uint32_t passed;
    HashEntry **link = find_link(h, key, &passed);
    if (*link != nullptr)
        return 0;
    *link = new_entry(key, value);
    h->count++;
    if (h->master != nullptr)
        account_insertion(h, *link, passed, file, line);
    return 1;
}

void *hash_lookup(const HashTable *h, const void *key) {
    const HashEntry *entry = *find_link(h, key);
    return entry != nullptr ? entry->value : nullptr;
}

int hash_haskey(const HashTable *h, const void *key) {
    return *find_link(h, key) != nullptr ? 1 : 0;
}

void *hash_remove(HashTable *h, const void *key) {
    HashEntry **link = find_link(h, key);
    HashEntry *entry = *link;
    if (entry == nullptr)
        return nullptr;
    void *value = entry->value;
    *link = entry->next;
    free_entry(entry);
    h->count--;
    if (h->master != nullptr && *bucket_of(h, key) == nullptr) {
        assert(is_alive(h));
        h->master->util--;
    }
    return value;
}

uint32_t hash_count(const HashTable *h) {
    return h->count;
}

// --- All entries

int hash_forEach(const HashTable *h, void *ctx, HashVisitFn fn) {
    for (uint32_t i = 0; i < h->size; i++)
        for (const HashEntry *entry = h->buckets[i]; entry != nullptr;) {
            const HashEntry *next = entry->next; // fn may remove its entry
            if (const int result = fn(ctx, entry->key, entry->value))
                return result;
            entry = next;
        }
    return 0;
}

static Vector *collect(const HashTable *h, HashVisitFn append) {
    Vector *collected = vec_new(__FILE__, __LINE__);
    hash_forEach(h, collected, append);
    return collected;
}

Vector *hash_values(const HashTable *h) {
    return collect(h, [](void *values, const void *, void *value) {
        vec_append(static_cast<Vector *>(values), value);
        return 0;
    });
}

Vector *hash_keys(const HashTable *h) {
    return collect(h, [](void *keys, const void *key, void *) {
        vec_append(static_cast<Vector *>(keys), key);
        return 0;
    });
}

static HashEntry *reversed(HashEntry *chain) {
    HashEntry *head = nullptr;
    while (chain != nullptr) {
        HashEntry *next = std::exchange(chain->next, head);
        head = std::exchange(chain, next);
    }
    return head;
}

// The figures of use and clashes continue. Those of the buckets start afresh, because a maximum
// reached with the old buckets means nothing for the new ones.
static void account_rebuild(HashTable *h) {
    const auto used = std::count_if(h->buckets, h->buckets + h->size, std::identity());
    h->master->capacity = h->size;
    h->master->util = h->master->max_util = static_cast<uint32_t>(used);
}

void hash_rebuild(HashTable *h, uint32_t size) {
    assert(size != 0);
    HashEntry **old = std::exchange(h->buckets, new_buckets(size));
    const uint32_t old_size = std::exchange(h->size, size);
    // Pushed in front from the last entry to the first, so that the first ends up in front.
    for (uint32_t i = old_size; i-- > 0;)
        for (HashEntry *entry = reversed(old[i]); entry != nullptr;) {
            HashEntry **bucket = bucket_of(h, entry->key);
            HashEntry *next = std::exchange(entry->next, *bucket);
            *bucket = std::exchange(entry, next);
        }
    free(old);
    if (h->master != nullptr) {
        assert(is_alive(h));
        account_rebuild(h);
    }
}

// --- Keys

uint32_t voidhash(const void *key) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
}

int voidcmp(const void *a, const void *b) {
    return a == b ? 0 : 1;
}

template <class Fold> static uint32_t djb2(const void *s, Fold fold) {
    uint32_t h = 5381;
    for (const auto *at = static_cast<const unsigned char *>(s); *at != '\0'; at++)
        h = h * 33 + static_cast<uint32_t>(static_cast<signed char>(fold(*at)));
    return h;
}

uint32_t strhash(const void *s) {
    return djb2(s, [](int byte) { return byte; });
}

uint32_t strihash(const void *s) {
    return djb2(s, tolower);
}

int strkeycmp(const void *a, const void *b) {
    return strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

int strikeycmp(const void *a, const void *b) {
    return str_icmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

// --- Accounting

void hash_trackInit(bool on) {
    tracking = on;
}

static int compare_records(const void *a_slot, const void *b_slot) {
    const auto *a = *static_cast<const HashMasterRec *const *>(a_slot);
    const auto *b = *static_cast<const HashMasterRec *const *>(b_slot);
    if (a->clashes != b->clashes)
        return a->clashes > b->clashes ? -1 : 1;
    return a == b ? 0 : std::less<>()(a, b) ? -1 : 1;
}

static void report_record(const HashMasterRec *record) {
    const auto letter = [record](uint32_t flag) { return (record->flags & flag) != 0 ? 'Y' : 'N'; };
    trace_printf("# %p    %s:%u    %u/%u    %u/%u    %u    %c    %c    %c",
                 static_cast<const void *>(record->table), record->file, record->line,
                 record->max_util, record->capacity, record->max_usage, record->capacity,
                 record->clashes, letter(VOIDCMP), letter(VOIDHASH), letter(ALIVE));
}

void hash_masterReport() {
    if (master_list == nullptr)
        return;
    vec_sort(master_list, compare_records);
    trace_puts("# Hash Table Master List:");
    trace_puts("# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    "
               "voidcmp    voidhash    alive");
    for (const auto *record : VecEach<const HashMasterRec>(master_list))
        report_record(record);
}
