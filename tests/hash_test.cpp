#include "hash.h"

#include "log_capture.h"
#include "noise.h"
#include "xalloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

struct HashDeleter {
    void operator()(HashTable *h) const { hash_free(h); }
};
using HashPtr = std::unique_ptr<HashTable, HashDeleter>;

const char *const WORDS[] = {"h", "a", "l", "e", "d", "i", "j", "k", "b", "c", "f", "g"};

uint32_t by_letter(const void *key) {
    return static_cast<uint32_t>(*static_cast<const char *>(key));
}

// What a table of words should hold, each under itself, and what its accounts should say.
struct Model {
    std::vector<std::string> chains;
    uint32_t max_usage = 0, max_util = 0, clashes = 0;

    std::string &chain(char word) { return chains[static_cast<size_t>(word) % chains.size()]; }
    bool has(char word) { return chain(word).find(word) != std::string::npos; }
    uint32_t util() const {
        const auto unused = std::count(chains.begin(), chains.end(), "");
        return static_cast<uint32_t>(chains.size()) - static_cast<uint32_t>(unused);
    }
    std::string text() const {
        std::string all;
        for (const std::string &words : chains)
            all += words;
        return all;
    }
    void insert(char word) {
        clashes += static_cast<uint32_t>(chain(word).size());
        chain(word) += word;
        max_usage = std::max(max_usage, static_cast<uint32_t>(text().size()));
        max_util = std::max(max_util, util());
    }
    void rebuild(size_t size) {
        const std::string all = text();
        chains.assign(size, "");
        for (char word : all)
            chain(word) += word;
        max_util = util();
    }
};

std::string text_of(const VectorPtr &words) {
    std::string all;
    for (const auto *word : VecEach<const char>(words))
        all += word;
    return all;
}

void expect_same(const HashTable *h, const Model &model) {
    ASSERT_EQ(text_of(VectorPtr(hash_keys(h))), model.text());
    EXPECT_EQ(text_of(VectorPtr(hash_values(h))), model.text());
    EXPECT_EQ(hash_count(h), model.text().size());
    const HashMasterRec &accounts = *h->master;
    EXPECT_EQ(accounts.capacity, model.chains.size());
    EXPECT_EQ(accounts.util, model.util());
    EXPECT_EQ(accounts.max_util, model.max_util);
    EXPECT_EQ(accounts.max_usage, model.max_usage);
    EXPECT_EQ(accounts.clashes, model.clashes);
}

// One operation of any kind, on both.
void change(HashPtr &h, Model &model, Random &random) {
    static std::vector<HashMasterRec *> records; // known to nothing but the copies, and never freed
    const char *stored = WORDS[below(random, std::size(WORDS))];
    const char letter = *stored, word[] = {letter, '\0'};
    const char *expected = model.has(letter) ? stored : nullptr;
    EXPECT_EQ(hash_lookup(h.get(), word), expected);
    EXPECT_EQ(hash_haskey(h.get(), word), expected ? 1 : 0);
    switch (const uint32_t kind = below(random, 100)) {
    case 0:
        hash_clear(h.get());
        model.chains.assign(model.chains.size(), "");
        break;
    case 1:
    case 2:
    case 3:
        hash_rebuild(h.get(), kind * 3);
        model.rebuild(kind * 3);
        break;
    case 4:
        h.reset(hash_copy(h.get(), "copy.cpp", 8));
        records.push_back(h->master);
        break;
    default:
        if (kind % 2 == 0) {
            EXPECT_EQ(hash_insert(h.get(), stored, stored, "insert.cpp", 9), expected ? 0 : 1);
            if (!expected)
                model.insert(letter);
        } else {
            EXPECT_EQ(hash_remove(h.get(), word), expected);
            std::erase(model.chain(letter), letter);
        }
    }
}

} // namespace

TEST(HashTest, DoesWhatTheModelDoes) {
    Random random(1);
    hash_trackInit(true);
    HashPtr h(hash_new(4, by_letter, strkeycmp, "table.cpp", 1));
    hash_trackInit(false);
    Model model = {std::vector<std::string>(4)};
    for (int step = 0; step < 5000 && !HasFailure(); step++) {
        change(h, model, random);
        expect_same(h.get(), model);
    }
}

TEST(HashTest, VisitorMayRemoveItsEntryAndStop) {
    HashPtr h(hash_new(1, strihash, strikeycmp, "test", 1));
    for (const char *word : {"h", "l", "L", "d"})
        hash_insert(h.get(), word, word, "test", 2);
    int result = hash_forEach(h.get(), h.get(), [](void *ctx, const void *key, void *) {
        hash_remove(static_cast<HashTable *>(ctx), key);
        return *static_cast<const char *>(key) == 'l' ? 7 : 0;
    });
    EXPECT_EQ(result, 7);
    EXPECT_EQ(text_of(VectorPtr(hash_keys(h.get()))), "d");
    EXPECT_DEATH(hash_new(0, nullptr, nullptr, "test", 2), "size != 0");
}

TEST(HashTest, StringHashesTakeSignedBytes) {
    EXPECT_EQ(strhash("\xff"), 5381U * 33 - 1);
    EXPECT_EQ(strihash("KesTrel"), 0x245299dfU);
}

TEST(HashTest, ReportOfTrackedTables) {
    LogCapture log;
    hash_trackInit(true);
    HashPtr h(hash_new(4, by_letter, strkeycmp, "table.cpp", 7));
    for (size_t i = 0; i < 5; i++)
        hash_insert(h.get(), WORDS[i], WORDS[i], "insert.cpp", 9);
    HashPtr tables[2]; // alike, so in the order of their records
    for (HashPtr &table : tables)
        table.reset(hash_new(5, nullptr, nullptr, "plain.cpp", 3));
    if (std::less<>()(tables[1]->master, tables[0]->master))
        tables[0].swap(tables[1]);
    static HashTable *copy = hash_copy(h.get(), "copy.cpp", 8); // its record is never freed
    EXPECT_EQ(copy->master->line, 8U);
    hash_trackInit(false);

    EXPECT_EQ(
        log.lines_with("(3/4)"),
        str_format(
            "insert.cpp:9        > HASH @ table.cpp:7 (3/4) clashed 1 times inserting (%p,%p)\n",
            static_cast<const void *>(WORDS[2]), static_cast<const void *>(WORDS[2]))
            .get());
    EXPECT_NE(log.lines_with("(5/4) clashed 2 times"), "");
    const void *plain[2] = {tables[0].get(), tables[1].get()};
    tables[0].reset();
    hash_masterReport();
    const std::string report = log.lines_with("# ");
    EXPECT_EQ(report.find("# Hash Table Master List:\n# ptr    file:line    max_util/capacity    "
                          "max_usage/capacity    clashes    voidcmp    voidhash    alive\n"),
              0U);
    EXPECT_EQ(log.lines_with("copy.cpp"), "");
    EXPECT_LT(report.find("table.cpp"), report.find("plain.cpp"));
    EXPECT_NE(report.find("    table.cpp:7    2/4    5/4    4    N    N    Y\n"),
              std::string::npos);
    EXPECT_EQ(log.lines_with("plain.cpp"),
              str_format("# %p    plain.cpp:3    0/5    0/5    0    Y    Y    N\n# %p    "
                         "plain.cpp:3    0/5    0/5    0    Y    Y    Y\n",
                         plain[0], plain[1])
                  .get());
    EXPECT_EQ(log.lines_with("# No hash"), "");

    h->master->flags = 0;
    EXPECT_DEATH(hash_insert(h.get(), "z", nullptr, "test", 1), "is_alive.h.");
    h->master->flags = 1;
}
