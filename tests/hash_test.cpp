#include "hash.h"

#include "log_capture.h"
#include "xalloc.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

struct HashDeleter {
    void operator()(HashTable *h) const { hash_free(h); }
};
using HashPtr = std::unique_ptr<HashTable, HashDeleter>;

const char *const WORDS[] = {"h", "a", "l", "e", "d"};

// Of four buckets the first holds h, l and d, the second a and e.
HashPtr table_of_words() {
    HashFn by_letter = [](const void *key) { return uint32_t(*static_cast<const char *>(key)); };
    HashPtr h(hash_new(4, by_letter, strkeycmp, "table.cpp", 7));
    for (const char *word : WORDS)
        hash_insert(h.get(), word, word, "insert.cpp", 9);
    return h;
}

// The entries in the order of the table.
std::string text(const HashPtr &h) {
    std::string letters;
    hash_forEach(h.get(), &letters, [](void *ctx, const void *key, void *) {
        *static_cast<std::string *>(ctx) += static_cast<const char *>(key);
        return 0;
    });
    EXPECT_EQ(letters.size(), hash_count(h.get()));
    return letters;
}

} // namespace

TEST(HashTest, SecondEntryOfAKeyIsRefused) {
    char first[] = "key";
    char same[] = "KEY";
    HashPtr h(hash_new(3, strihash, strikeycmp, "test", 1));
    EXPECT_EQ(hash_insert(h.get(), first, first, "test", 2), 1);
    EXPECT_EQ(hash_insert(h.get(), same, same, "test", 3), 0);
    EXPECT_EQ(hash_lookup(h.get(), same), first);
    EXPECT_EQ(hash_count(h.get()), 1U);
    EXPECT_DEATH(hash_new(0, nullptr, nullptr, "test", 2), "size != 0");
}

TEST(HashTest, RemovalKeepsTheChain) {
    struct {
        const char *removed;
        const char *rest;
    } const cases[] = {{"h", "ldae"}, {"l", "hdae"}, {"d", "hlae"}, {"a", "hlde"}, {"x", "hldae"}};
    for (const auto &c : cases) {
        HashPtr h = table_of_words();
        auto *value = static_cast<char *>(hash_remove(h.get(), c.removed));
        EXPECT_STREQ(value, *c.removed == 'x' ? nullptr : c.removed);
        EXPECT_EQ(hash_haskey(h.get(), c.removed), 0);
        EXPECT_EQ(text(h), c.rest);
        // Entries are recycled: a new one must not bring its old chain along.
        hash_insert(h.get(), "c", nullptr, "test", 1);
        EXPECT_EQ(text(h), std::string(c.rest) + "c");
    }
}

TEST(HashTest, VisitorMayRemoveItsEntryAndStop) {
    HashPtr h = table_of_words();
    int result = hash_forEach(h.get(), h.get(), [](void *ctx, const void *key, void *) {
        hash_remove(static_cast<HashTable *>(ctx), key);
        return *static_cast<const char *>(key) == 'l' ? 7 : 0;
    });
    EXPECT_EQ(result, 7);
    EXPECT_EQ(text(h), "dae");
}

TEST(HashTest, CopyRebuildAndKeysKeepTheOrder) {
    HashPtr h = table_of_words();
    HashPtr copy(hash_copy(h.get(), "test", 1));
    VectorPtr keys(hash_keys(h.get()));
    hash_clear(h.get());
    EXPECT_EQ(text(h), "");
    EXPECT_EQ(text(copy), "hldae");
    std::string letters;
    for (const auto *key : VecEach<const char>(keys))
        letters += key;
    EXPECT_EQ(letters, "hldae");
    hash_rebuild(copy.get(), 1);
    EXPECT_EQ(text(copy), "hldae");
    hash_rebuild(copy.get(), 8); // "l" and "d" meet in bucket 4
    EXPECT_EQ(text(copy), "halde");
}

TEST(HashTest, StringHashesTakeSignedBytes) {
    EXPECT_EQ(strhash("\xff"), 5381U * 33 - 1);
    EXPECT_EQ(strihash("KesTrel"), 0x245299dfU);
}

TEST(HashTest, AccountsOfATrackedTable) {
    LogCapture log;
    hash_trackInit(true);
    HashPtr h = table_of_words();
    HashPtr plain(hash_new(5, nullptr, nullptr, "plain.cpp", 3));
    // Never freed: the record of a copy is known to nothing but the copy.
    static HashTable *copy = hash_copy(h.get(), "copy.cpp", 8);
    EXPECT_EQ(copy->master->clashes, 4U);
    hash_trackInit(false);

    OwnedString clash =
        str_format("HASH @ table.cpp:7 (3/4) clashed 1 times inserting (%p,%p)\n",
                   static_cast<const void *>(WORDS[2]), static_cast<const void *>(WORDS[2]));
    EXPECT_EQ(log.lines_with("(3/4)"), "insert.cpp:9        > " + std::string(clash.get()));
    EXPECT_NE(log.lines_with("(5/4) clashed 2 times"), "");

    hash_remove(h.get(), "h");
    EXPECT_EQ(h->master->util, 2U);
    hash_remove(h.get(), "a");
    hash_remove(h.get(), "e");
    EXPECT_EQ(h->master->util, 1U);
    plain.reset();
    hash_masterReport();
    std::string report = log.lines_with("# ");
    EXPECT_EQ(report.find("# Hash Table Master List:\n# ptr    file:line    max_util/capacity    "
                          "max_usage/capacity    clashes    voidcmp    voidhash    alive\n"),
              0U);
    EXPECT_EQ(report.find("copy.cpp"), std::string::npos);
    EXPECT_LT(report.find("table.cpp"), report.find("plain.cpp"));
    EXPECT_NE(report.find("    table.cpp:7    2/4    5/4    4    N    N    Y\n"),
              std::string::npos);
    EXPECT_NE(report.find("    plain.cpp:3    0/5    0/5    0    Y    Y    N\n"),
              std::string::npos);

    h->master->flags = 0;
    EXPECT_DEATH(hash_insert(h.get(), "z", nullptr, "test", 1), "is_alive.h.");
    h->master->flags = 1;
}
