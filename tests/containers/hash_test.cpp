#include "containers/hash.h"

#include "base/text.h"
#include "support/log_capture.h"
#include "support/noise.h"
#include "support/words.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

static const char *const WORDS[] = {"h", "a", "l", "e", "d", "i", "j", "k", "b", "c", "f", "g"};

static uint32_t by_letter(const void *key) {
    return static_cast<uint32_t>(*static_cast<const char *>(key));
}

static std::string joined(Vector *owned) {
    const Words words = words_of(VectorPtr(owned));
    return std::accumulate(words.begin(), words.end(), std::string());
}

// The model: the chains of words, a letter each, and what the accounts should say.
TEST(Hash, DoesWhatTheModelDoes) {
    std::unique_ptr<HashMasterRec, FreeDeleter> record; // of a copy, which alone knows it
    std::vector<std::string> chains(4);
    size_t max_usage = 0, max_util = 0, clashes = 0;
    hash_trackInit(true);
    HashPtr h(hash_new(4, by_letter, strkeycmp, "table.cpp", 1));
    hash_trackInit(false);
    Random random(1);
    for (int step = 0; step < 5000 && !HasFailure(); step++) {
        const char *stored = WORDS[below(random, std::size(WORDS))], word[] = {*stored, '\0'};
        std::string &chain = chains[static_cast<size_t>(*word) % chains.size()];
        const char *there = chain.find(word) != chain.npos ? stored : nullptr;
        EXPECT_EQ(hash_lookup(h.get(), word), there);
        EXPECT_EQ(hash_haskey(h.get(), word), there != nullptr ? 1 : 0);
        if (const uint32_t kind = below(random, 100); kind == 0) {
            hash_clear(h.get());
            chains.assign(chains.size(), "");
        } else if (kind < 4) {
            hash_rebuild(h.get(), kind * 3);
            for (const auto &words : std::exchange(chains, std::vector<std::string>(kind * 3)))
                for (const char letter : words)
                    chains[static_cast<size_t>(letter) % chains.size()] += letter;
            max_util = 0;
        } else if (kind == 4) {
            h.reset(hash_copy(h.get(), "copy.cpp", 8));
            record.reset(h->master);
        } else if (kind % 2 == 0) {
            EXPECT_EQ(hash_insert(h.get(), stored, stored, "insert.cpp", 9),
                      there != nullptr ? 0 : 1);
            clashes += there != nullptr ? 0 : chain.size();
            chain += there != nullptr ? "" : word;
        } else {
            EXPECT_EQ(hash_remove(h.get(), word), there);
            std::erase(chain, *word);
        }
        const std::string all = std::accumulate(chains.begin(), chains.end(), std::string());
        const auto util =
            chains.size() - static_cast<size_t>(std::count(chains.begin(), chains.end(), ""));
        max_usage = std::max(max_usage, all.size());
        max_util = std::max(max_util, util);
        EXPECT_EQ(joined(hash_keys(h.get())), all);
        EXPECT_EQ(joined(hash_values(h.get())), all);
        EXPECT_EQ(hash_count(h.get()), all.size());
        const HashMasterRec &is = *h->master;
        EXPECT_EQ(
            (std::vector<size_t>{is.capacity, is.util, is.max_util, is.max_usage, is.clashes}),
            (std::vector<size_t>{chains.size(), util, max_util, max_usage, clashes}));
    }
}

TEST(Hash, VisitorMayRemoveItsEntryAndStop) {
    HashPtr h(hash_new(1, strihash, strikeycmp, "test", 1));
    for (const char *word : {"h", "l", "L", "d"})
        hash_insert(h.get(), word, word, "test", 2);
    const int result = hash_forEach(h.get(), h.get(), [](void *ctx, const void *key, void *) {
        hash_remove(static_cast<HashTable *>(ctx), key);
        return *static_cast<const char *>(key) == 'l' ? 7 : 0;
    });
    EXPECT_EQ(result, 7);
    EXPECT_EQ(joined(hash_keys(h.get())), "d");
    hash_insert(h.get(), "e", "E", "test", 3);
    std::string seen;
    for (const auto [key, value] : HashEach<const char, char>(h)) {
        seen += std::string(key) + value;
        hash_clear(h.get());
    }
    EXPECT_EQ(seen, "ddeE");
    EXPECT_EQ(strhash("\xff"), 5381u * 33 - 1); // bytes are signed
    EXPECT_EQ(strihash("KesTrel"), 0x245299dfu);
    EXPECT_DEATH(hash_new(0, nullptr, nullptr, "test", 2), "size != 0");
}

TEST(Hash, ReportOfTrackedTables) {
    LogCapture log;
    hash_free(nullptr);
    hash_trackInit(true);
    HashPtr h(hash_new(4, by_letter, strkeycmp, "table.cpp", 7));
    for (size_t i = 0; i < 5; i++)
        hash_insert(h.get(), WORDS[i], WORDS[i], "insert.cpp", 9);
    HashPtr a(hash_new(5, nullptr, nullptr, "plain.cpp", 3));
    HashPtr b(hash_new(5, nullptr, nullptr, "plain.cpp", 3));
    static HashTable *copy = hash_copy(h.get(), "copy.cpp", 8); // its record is never freed
    EXPECT_EQ(copy->master->line, 8u);
    hash_trackInit(false);
    if (std::less<>()(b->master, a->master)) // alike, so in the order of their records
        a.swap(b);
    const void *const dead = a.get(), *const alive = b.get(), *const key = WORDS[2];
    a.reset();
    hash_masterReport();

    const OwnedString clash = str_format(
        "insert.cpp:9        > HASH @ table.cpp:7 (3/4) clashed 1 times inserting (%p,%p)\n", key,
        key);
    EXPECT_EQ(log.lines_with("(3/4)"), clash.get());
    EXPECT_NE(log.lines_with("(5/4) clashed 2 times"), "");
    const std::string report = log.lines_with("# ");
    EXPECT_TRUE(
        report.starts_with("# Hash Table Master List:\n# ptr    file:line    max_util/capacity    "
                           "max_usage/capacity    clashes    voidcmp    voidhash    alive\n"))
        << report;
    EXPECT_EQ(log.lines_with("copy.cpp"), "");
    EXPECT_LT(report.find("table.cpp:7    2/4    5/4    4    N    N    Y\n"),
              report.find("plain.cpp"));
    const OwnedString plain = str_format("# %p    plain.cpp:3    0/5    0/5    0    Y    Y    N\n"
                                         "# %p    plain.cpp:3    0/5    0/5    0    Y    Y    Y\n",
                                         dead, alive);
    EXPECT_EQ(log.lines_with("plain.cpp"), plain.get());
    h->master->flags = 0;
    EXPECT_DEATH(hash_insert(h.get(), "z", nullptr, "test", 1), "is_alive.h.");
    h->master->flags = 1;
}
