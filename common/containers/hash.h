// A chained hash table from untyped keys to untyped values, with the caller's hash and comparison.
// The number of buckets is fixed unless the owner rebuilds the table; keys and values stay the
// caller's.
#ifndef KESTREL_CONTAINERS_HASH_H
#define KESTREL_CONTAINERS_HASH_H

#include "containers/vector.h"

#include <cstdint>
#include <memory>
#include <vector>

using HashFn = uint32_t (*)(const void *key);
using HashCmpFn = int (*)(const void *a, const void *b); // 0 means equal

struct HashEntry {
    void *value;
    const void *key;
    HashEntry *next;
};

struct HashTable;

// What the accounting knows of one table; lives to the end of the process.
struct HashMasterRec {
    const HashTable *table;
    uint32_t flags;   // bit 0: alive, bit 1: voidcmp in use, bit 2: voidhash in use
    const char *file; // the creator's position
    uint32_t line;
    uint32_t capacity;
    uint32_t max_usage; // high-water mark of the count
    uint32_t max_util;  // high-water mark of util
    uint32_t util;      // buckets in use
    uint32_t clashes;   // entries passed in chains, summed over all insertions
};

struct HashTable {
    uint32_t size; // buckets, never 0
    uint32_t count;
    HashFn hash;
    HashCmpFn cmp;
    HashEntry **buckets;
    HashMasterRec *master; // null when accounting was off at creation
};

// A table of `size` buckets; a null `hash` or `cmp` selects voidhash or voidcmp.
HashTable *hash_new(uint32_t size, HashFn hash, HashCmpFn cmp, const char *file, uint32_t line);

// Adds an entry: 1, or 0 when an equal key is there already, whose entry stays. The position is the
// inserting caller's, for the report of clashes.
int hash_insert(HashTable *h, const void *key, const void *value, const char *file, uint32_t line);

// The value of `key`, or null; and whether there is an entry.
void *hash_lookup(const HashTable *h, const void *key);
int hash_haskey(const HashTable *h, const void *key);

// Removes an entry and returns its value, or null when absent.
void *hash_remove(HashTable *h, const void *key);
uint32_t hash_count(const HashTable *h);

// Calls fn for every entry, bucket by bucket, until one returns other than 0; returns that, or 0.
// fn may remove the entry that it is given, but no other.
using HashVisitFn = int (*)(void *ctx, const void *key, void *value);
int hash_forEach(const HashTable *h, void *ctx, HashVisitFn fn);

// New vectors of all values or keys, in the order of hash_forEach.
Vector *hash_values(const HashTable *h);
Vector *hash_keys(const HashTable *h);

void hash_clear(HashTable *h);
void hash_free(HashTable *h); // nothing for null

// A table with the same entries. The copy of a tracked table carries its figures on, but is not
// reported.
HashTable *hash_copy(const HashTable *h, const char *file, uint32_t line);

// Moves every entry to an array of `size` buckets; entries of one old bucket keep their order. In
// the accounts, util and max_util become the new number of buckets in use; the other figures
// continue.
void hash_rebuild(HashTable *h, uint32_t size);

uint32_t voidhash(const void *key); // the pointer's low 32 bits
int voidcmp(const void *a, const void *b);

// Hash the bytes of a string, taken as signed characters, by djb2; strihash ignores case.
uint32_t strhash(const void *s);
uint32_t strihash(const void *s);

// Compare string keys: strkeycmp goes with strhash, and strikeycmp with strihash.
int strkeycmp(const void *a, const void *b);
int strikeycmp(const void *a, const void *b);

// Switches the accounting of tables made from now on.
void hash_trackInit(bool on);

// Writes the list of tracked tables to the debug log. Nothing when none was ever tracked.
void hash_masterReport();

// --- Typed use

struct HashDeleter {
    void operator()(HashTable *h) const { hash_free(h); }
};
using HashPtr = std::unique_ptr<HashTable, HashDeleter>;

// The entries of a table for a range-based for, in the order of hash_forEach:
// for (const auto [key, value] : HashEach<const char, File>(table)). They are those that the table
// has when the loop begins, so the body may change it.
template <class Key, class Value> class HashEach {
  public:
    struct Entry {
        Key *key;
        Value *value;
    };
    explicit HashEach(const HashTable *h) {
        hash_forEach(h, &entries, [](void *ctx, const void *key, void *value) {
            static_cast<std::vector<Entry> *>(ctx)->push_back(
                {static_cast<Key *>(key), static_cast<Value *>(value)});
            return 0;
        });
    }
    explicit HashEach(const HashPtr &h) : HashEach(h.get()) {}
    auto begin() const { return entries.begin(); }
    auto end() const { return entries.end(); }

  private:
    std::vector<Entry> entries;
};

#endif
