#include "filedigests.h"

#include "blockhash.h"
#include "noise.h"
#include "osdep.h"
#include "scratch.h"
#include "sha256_blocks.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

TEST(FileDigests, PairsOfBlocksAreLikeSingleOnes) {
    using Bytes = std::vector<uint8_t>;
    const Bytes a = noise<Bytes>(64 * 33, 1), b = noise<Bytes>(64 * 33, 2);
    for (const Sha256PairFn pair : {sha256_pair_portable, sha256_pair_native()})
        for (const size_t count : {0u, 1u, 2u, 33u}) {
            if (pair == nullptr)
                continue; // this processor has no instructions of its own
            uint32_t alone[2][8] = {{1, 2, 3, 4, 5, 6, 7, 8}, {9, 10, 11, 12, 13, 14, 15, 16}};
            uint32_t together[2][8];
            memcpy(together, alone, sizeof alone);
            sha256_blocks_portable(alone[0], a.data(), count);
            sha256_blocks_portable(alone[1], b.data(), count);
            uint32_t *const states[2] = {together[0], together[1]};
            const uint8_t *const blocks[2] = {a.data(), b.data()};
            pair(states, blocks, count);
            EXPECT_EQ(memcmp(alone, together, sizeof alone), 0) << count;
        }
}

// These are the first digests of the process when the test runs by itself, and their length in bits
// needs the upper half of its field.
TEST(FileDigests, PairsAreChosenAndCounted) {
    Sha256Context ctx[2];
    Sha256Context *const contexts[2] = {&ctx[0], &ctx[1]};
    const std::vector<uint8_t> message(SHA256_BLOCK_SIZE, 'a');
    const uint8_t *const blocks[2] = {message.data(), message.data()};
    for (Sha256Context *context : contexts)
        sha256_init(context);
    sha256_update_pair(contexts, blocks, 1);
    for (Sha256Context *context : contexts) {
        Sha256Context copy = *context;
        uint8_t digest[SHA256_DIGEST_SIZE];
        sha256_final(&copy, digest);
        EXPECT_EQ(load_be32(digest), 0xffe054feu);
        context->bitlen = 0xfffffe00;
    }
    sha256_update_pair(contexts, blocks, 1);
    for (const Sha256Context *context : contexts)
        EXPECT_EQ(context->bitlen, uint64_t{1} << 32);
}

// What the receiver is given, and the result after which it ends the whole.
struct Received {
    std::vector<size_t> tags;
    std::vector<std::string> paths;
    std::vector<FileDigest> results;
    size_t end = SIZE_MAX;
};

static bool receive(void *context, const char *path, void *tag, const FileDigest &result) {
    auto *received = static_cast<Received *>(context);
    received->paths.push_back(path);
    received->tags.push_back(reinterpret_cast<uintptr_t>(tag));
    received->results.push_back(result);
    return received->tags.size() <= received->end;
}

static void *tag_of(size_t number) {
    return reinterpret_cast<void *>(uintptr_t{number});
}

// Sizes around a block and around what is read at a time, a long file before and behind short ones,
// and what cannot be hashed in between.
TEST(FileDigests, ResultsComeInOrder) {
    const Scratch scratch;
    const size_t sizes[] = {0,     1,     300000, 63,    64, 65,     16383, 16384, 16385,
                            32768, 40000, 1,      16448, 0,  200000, 128,   127,   70001};
    std::vector<std::string> paths;
    std::vector<FileDigest> expected;
    for (const size_t size : sizes) {
        const std::string bytes = noise(size, static_cast<uint32_t>(paths.size()));
        paths.push_back(scratch.write(std::to_string(paths.size()).c_str(), bytes));
        FileDigest &result = expected.emplace_back(FileDigest{OpenOutcome::opened, {}});
        Sha256Context ctx;
        sha256_init(&ctx);
        sha256_update(&ctx, bytes.data(), bytes.size());
        sha256_final(&ctx, result.digest);
    }
    paths.insert(paths.begin() + 4, {scratch.path("missing"), scratch.directory()});
    expected.insert(expected.begin() + 4, {{OpenOutcome::missing, {}}, {OpenOutcome::refused, {}}});

    for (size_t end = 0; end <= paths.size(); end++) {
        Received received;
        received.end = end;
        FileDigests digests(receive, &received);
        bool more = true;
        for (size_t i = 0; more && i < paths.size(); i++)
            more = digests.add(paths[i].c_str(), tag_of(i));
        EXPECT_EQ(digests.finish(), end == paths.size());
        EXPECT_EQ(digests.add(paths[0].c_str(), nullptr), end == paths.size());
        ASSERT_EQ(received.tags.size(), std::min(end + 1, paths.size()));
        for (size_t i = 0; i < received.tags.size(); i++) {
            EXPECT_EQ(received.tags[i], i);
            EXPECT_EQ(received.paths[i], paths[i]);
            EXPECT_EQ(received.results[i].outcome, expected[i].outcome) << i;
            EXPECT_EQ(memcmp(received.results[i].digest, expected[i].digest, SHA256_DIGEST_SIZE), 0)
                << i;
        }
    }
}

// A file that grows while it is read is read on in the middle of a block.
TEST(FileDigests, ReadsMayEndInsideABlock) {
    const Scratch scratch;
    struct Growing {
        std::string path, contents;
        std::vector<FileDigest> results;
    } growing = {scratch.write("growing", std::string(100, 'x')), std::string(300100, 'x'), {}};
    // The file is in the second lane, read to its end so far, when the first lane's file is done.
    const auto grow = [](void *context, const char *, void *, const FileDigest &result) {
        auto *state = static_cast<Growing *>(context);
        if (state->results.empty()) {
            const FilePtr file(host_fopen(state->path.c_str(), "ab"));
            fwrite(state->contents.data(), 1, 300000, file.get());
        }
        state->results.push_back(result);
        return true;
    };
    FileDigests digests(grow, &growing);
    digests.add(scratch.write("short", std::string(64, 'y')).c_str(), nullptr);
    digests.add(growing.path.c_str(), nullptr);
    digests.add(scratch.write("long", std::string(500000, 'z')).c_str(), nullptr);
    EXPECT_TRUE(digests.finish());
    ASSERT_EQ(growing.results.size(), 3u);
    Sha256Context ctx;
    uint8_t digest[SHA256_DIGEST_SIZE];
    sha256_init(&ctx);
    sha256_update(&ctx, growing.contents.data(), growing.contents.size());
    sha256_final(&ctx, digest);
    EXPECT_EQ(memcmp(growing.results[1].digest, digest, sizeof digest), 0);
}

// Whether they come to their end or are given up; a file that is missing is told of at once.
TEST(FileDigests, DescriptorsAreClosed) {
    const Scratch scratch;
    const std::string file = scratch.write("file", std::string(200000, 'x'));
    const auto next_descriptor = [&] {
        const int descriptor = host_open(file.c_str());
        host_close(descriptor);
        return descriptor;
    };
    const int before = next_descriptor();
    for (const bool finished : {true, false}) {
        Received received;
        {
            FileDigests digests(receive, &received);
            digests.add(scratch.path("missing").c_str(), nullptr);
            EXPECT_EQ(received.results.size(), 1u);
            for (int i = 0; i < 5; i++)
                digests.add(file.c_str(), nullptr);
            EXPECT_TRUE(!finished || digests.finish());
        }
        EXPECT_EQ(next_descriptor(), before) << (finished ? "finished" : "given up");
    }
}

// A file that goes while others are hashed before it is missing, not one that cannot be opened.
TEST(FileDigests, FilesAreLookedForWhenThereIsALane) {
    const Scratch scratch;
    struct Removal {
        std::string path;
        std::vector<OpenOutcome> outcomes;
    } removal = {scratch.write("third", "c"), {}};
    const auto remove = [](void *context, const char *, void *, const FileDigest &result) {
        auto *state = static_cast<Removal *>(context);
        host_remove(state->path.c_str());
        state->outcomes.push_back(result.outcome);
        return true;
    };
    FileDigests digests(remove, &removal);
    digests.add(scratch.write("first", "a").c_str(), nullptr);
    digests.add(scratch.write("second", std::string(100000, 'b')).c_str(), nullptr);
    digests.add(removal.path.c_str(), nullptr);
    digests.finish();
    const std::vector<OpenOutcome> expected = {OpenOutcome::opened, OpenOutcome::opened,
                                               OpenOutcome::missing};
    EXPECT_EQ(removal.outcomes, expected);
}

// What has taken the place of a file since it was found: it would read as empty, or for ever.
TEST(FileDigests, NamesThatChangedHandsAreRefused) {
    const Scratch scratch;
    const bool windows = os_kind() != 0;
    const struct {
        std::string path;
        uint64_t size;
    } cases[] = {
        {windows ? "NUL" : "/dev/null", 0},
        {windows ? "NUL" : "/dev/null", 100},
        {windows ? "NUL" : "/dev/zero", 100},
        {scratch.directory(), 0},
        {scratch.directory(), 100},
        {windows ? "NUL" : "/proc/self/mem", 0}, // a file that cannot be read
    };
    for (const auto &c : cases) {
        Received received;
        FileDigests digests(receive, &received);
        const HostStat found = {FileKind::regular, c.size};
        digests.add(c.path.c_str(), nullptr, &found);
        digests.finish();
        ASSERT_EQ(received.results.size(), 1u);
        EXPECT_EQ(received.results[0].outcome, OpenOutcome::refused) << c.path << " " << c.size;
    }
    // A file that has only changed its size is hashed as it is.
    const std::string grown = scratch.write("grown", "abc");
    for (const uint64_t size : {0u, 2u, 4u}) {
        Received received;
        FileDigests digests(receive, &received);
        const HostStat found = {FileKind::regular, size};
        digests.add(grown.c_str(), nullptr, &found);
        digests.finish();
        ASSERT_EQ(received.results.size(), 1u);
        EXPECT_EQ(received.results[0].outcome, OpenOutcome::opened) << size;
        EXPECT_EQ(received.results[0].digest[0], 0xba) << size;
    }
}
