// How fast the runtime's parts are, one at a time. bench/micro runs this and prints the ratios.
#include "containers/hash.h"
#include "containers/stringcache.h"
#include "digest/sha256.h"
#include "digest/sha256_kernel.h"
#include "host/host.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

// --- Digest: messages of a number of bytes

static void count_bytes(benchmark::State &state, int64_t each) {
    state.SetBytesProcessed(state.iterations() * each);
}

static void Digest(benchmark::State &state) {
    const std::vector<uint8_t> message(static_cast<size_t>(state.range(0)), 'k');
    for (auto _ : state) {
        Sha256Context ctx;
        uint8_t digest[SHA256_DIGEST_SIZE];
        sha256_init(&ctx);
        sha256_update(&ctx, message.data(), message.size());
        sha256_final(&ctx, digest);
        benchmark::DoNotOptimize(digest);
    }
    count_bytes(state, state.range(0));
}
BENCHMARK(Digest)->Arg(1 << 10)->Arg(1 << 14)->Arg(1 << 20);

// Each kernel with a message in every lane. They lie a few odd cache lines apart, because at a
// multiple of 4 KiB they would evict each other from the first cache.
static void Kernel(benchmark::State &state, const Sha256Kernel *kernel) {
    const auto size = static_cast<size_t>(state.range(0));
    const size_t distance = size + 3 * SHA256_BLOCK_SIZE;
    const std::vector<uint8_t> messages(kernel->lanes * distance, 'k');
    std::vector<uint32_t> words(8 * kernel->lanes);
    std::vector<uint32_t *> states;
    std::vector<const uint8_t *> blocks;
    for (size_t lane = 0; lane < kernel->lanes; lane++) {
        states.push_back(&words[8 * lane]);
        blocks.push_back(&messages[lane * distance]);
    }
    for (auto _ : state) {
        kernel->compress(states.data(), blocks.data(), size / SHA256_BLOCK_SIZE);
        benchmark::DoNotOptimize(words.data());
    }
    count_bytes(state, state.range(0) * static_cast<int64_t>(kernel->lanes));
}

static const bool registered = [] {
    for (const Sha256Kernel *kernel : sha256_kernels())
        benchmark::RegisterBenchmark((std::string("Kernel/") + kernel->name).c_str(), Kernel,
                                     kernel)
            ->Arg(1 << 14);
    return true;
}();

// --- Strings and tables, with a number of entries, each like a path in a manifest

static std::string path_text(int64_t number) {
    return ".\\lib\\gcc\\x86_64-linux-gnu\\12\\include\\header-" + std::to_string(number) + ".h";
}

static std::vector<std::string> path_texts(int64_t first, int64_t count) {
    std::vector<std::string> paths;
    for (int64_t i = first; i < first + count; i++)
        paths.push_back(path_text(i));
    return paths;
}

// Copies in another order than the one in which they were entered.
static std::vector<std::string> shuffled(std::vector<std::string> paths) {
    std::shuffle(paths.begin(), paths.end(), std::mt19937(1));
    return paths;
}

// Every string is a new one, in a cache that grows with every run.
static void InternNew(benchmark::State &state) {
    static int64_t first = 1 << 30;
    const std::vector<std::string> paths = path_texts(first, state.range(0));
    first += state.range(0);
    for (auto _ : state)
        for (const std::string &path : paths)
            benchmark::DoNotOptimize(sc_strdup(path.c_str()));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(InternNew)->Arg(100'000)->Iterations(1);

static void InternKnown(benchmark::State &state) {
    std::vector<std::string> paths = path_texts(0, state.range(0));
    for (const std::string &path : paths)
        sc_strdup(path.c_str());
    paths = shuffled(paths);
    for (auto _ : state)
        for (const std::string &path : paths)
            benchmark::DoNotOptimize(sc_strdup(path.c_str()));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(InternKnown)->Arg(10'000)->Arg(1'000'000);

static HashTable *table_of(const std::vector<std::string> &keys) {
    HashTable *table =
        hash_new(static_cast<uint32_t>(keys.size()) | 1, strhash, strkeycmp, __FILE__, __LINE__);
    for (const std::string &key : keys)
        hash_insert(table, key.c_str(), key.c_str(), __FILE__, __LINE__);
    return table;
}

// With making and freeing the table.
static void HashInsert(benchmark::State &state) {
    const std::vector<std::string> keys = path_texts(0, state.range(0));
    for (auto _ : state)
        hash_free(table_of(keys));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(HashInsert)->Arg(10'000)->Arg(1'000'000);

static void HashLookup(benchmark::State &state) {
    const std::vector<std::string> keys = path_texts(0, state.range(0)), sought = shuffled(keys);
    HashTable *table = table_of(keys);
    for (auto _ : state)
        for (const std::string &key : sought)
            benchmark::DoNotOptimize(hash_lookup(table, key.c_str()));
    hash_free(table);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(HashLookup)->Arg(10'000)->Arg(1'000'000);

// --- Lines of a manifest

static void ReadLines(benchmark::State &state) {
    const FilePtr file(tmpfile());
    for (int64_t i = 0; i < state.range(0); i++)
        fprintf(file.get(), "%064d *%s\n", 0, path_text(i).c_str());
    for (auto _ : state) {
        host_seek(file.get(), 0);
        while (!sc_readLineBytes(file.get()).empty()) {
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ReadLines)->Arg(10'000)->Arg(1'000'000);
