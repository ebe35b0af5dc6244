#include "base/text.h"
#include "digest/sha1.h"
#include "digest/sha256.h"
#include "digest/sha256_kernel.h"
#include "support/noise.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <span>
#include <string>
#include <vector>

static std::string hex(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes)
        text += str_format("%02x", byte).get();
    return text;
}

// In hexadecimal, of a message given in pieces, or of one piece given several times. Whole blocks
// are counted at once, and what is left waits.
template <class Hash>
static std::string digest_of(const std::vector<std::string> &pieces, int times = 1) {
    typename Hash::Context ctx;
    Hash::init(&ctx);
    uint64_t length = 0;
    for (int i = 0; i < times; i++)
        for (const std::string &piece : pieces) {
            Hash::update(&ctx, piece.empty() ? nullptr : piece.data(), piece.size());
            length += piece.size();
            EXPECT_EQ(ctx.datalen, length % 64);
            EXPECT_EQ(ctx.bitlen, length / 64 * 512);
            const std::string waiting(reinterpret_cast<const char *>(ctx.data), ctx.datalen);
            EXPECT_TRUE(waiting.ends_with(piece) || piece.ends_with(waiting));
        }
    uint8_t digest[Hash::size];
    Hash::final(&ctx, digest);
    return hex(digest);
}

// The standard's examples, and a message for every way to pad.
TEST(Sha, DigestsOfTheStandardAndOfEveryPadding) {
    const auto as = [](size_t n) { return std::string(n, 'a'); };
    const struct {
        std::string message;
        const char *sha256, *sha1;
    } known[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
         "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
         "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
         "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
         "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1",
         "a49b2446a02c645bf419f995b67091253a04a259"},
        {as(55), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318", nullptr},
        {as(56), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a", nullptr},
        {as(63), "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34", nullptr},
        {as(64), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb", nullptr},
        {as(65), "635361c48bb9eab14198e76ea8ab7f1a41685d6ad62aa9146d301d4f17eb0ae0", nullptr},
        {as(1000000), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0",
         "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (const auto &c : known) {
        EXPECT_EQ(digest_of<Sha256>({c.message}), c.sha256) << c.message.size();
        if (c.sha1 != nullptr) { // which pads the same way
            EXPECT_EQ(digest_of<Sha1>({c.message}), c.sha1) << c.message.size();
        }
    }
}

// 512 MiB of zeros: the length in bits needs the upper half of its field.
TEST(Sha, LengthsBeyond32Bits) {
    EXPECT_EQ(digest_of<Sha256>({std::string(1 << 20, '\0')}, 512),
              "9acca8e8c22201155389f65abbf6bc9723edc7384ead80503839f49dcc56d767");
    uint8_t padding[SHA256_MOST_PADDING];
    ASSERT_EQ(sha256_pad(padding, 512 << 20), 64u);
    EXPECT_EQ(hex({padding, 64}), "80" + std::string(2 * 58, '0') + "0100000000");
}

// Whatever the pieces, they give the digest of the whole.
template <class Hash> static void expect_splits_not_to_matter() {
    const std::string message = noise(260, 1);
    const std::string whole = digest_of<Hash>({message});
    std::vector<std::string> bytes;
    for (size_t at = 0; at <= message.size(); at++) {
        const std::string head = message.substr(0, at), tail = message.substr(at);
        const size_t half = tail.size() / 2;
        EXPECT_EQ(digest_of<Hash>({head, tail}), whole) << at;
        EXPECT_EQ(digest_of<Hash>({head, tail.substr(0, half), "", tail.substr(half)}), whole)
            << at;
        bytes.push_back(tail.substr(0, 1));
    }
    EXPECT_EQ(digest_of<Hash>(bytes), whole);
}

TEST(Sha, PiecesMakeNoDifference) {
    expect_splits_not_to_matter<Sha256>();
    expect_splits_not_to_matter<Sha1>();
}

// Whose length in bits needs the upper half of its field.
TEST(Sha, LengthsHave64Bits) {
    uint8_t padding[SHA256_MOST_PADDING];
    EXPECT_EQ(sha256_pad(padding, (1 << 29) + 56), 72u);
    std::vector<uint8_t> expected(72);
    expected[0] = 0x80, expected[67] = 1, expected[70] = 1, expected[71] = 0xc0;
    EXPECT_TRUE(std::ranges::equal(padding, expected));
    Sha256Context ctx;
    sha256_init(&ctx);
    ctx.bitlen = 0xfffffe00;
    sha256_update(&ctx, padding, SHA256_BLOCK_SIZE);
    EXPECT_EQ(ctx.bitlen, uint64_t{1} << 32);
}

TEST(Sha, TransformChangesOnlyTheState) {
    const auto block = noise<std::vector<uint8_t>>(64, 2);
    Sha256Context transformed, updated;
    sha256_init(&transformed), sha256_init(&updated);
    sha256_transform(&transformed, block.data());
    sha256_update(&updated, block.data(), block.size());
    EXPECT_TRUE(std::ranges::equal(transformed.state, updated.state));
    EXPECT_EQ(transformed.bitlen, 0u);
}

// Where the system says that the processor has them.
TEST(Sha, InstructionsOfTheProcessorAreFound) {
    std::ifstream cpuinfo("/proc/cpuinfo");
    const std::set<std::string> words{std::istream_iterator<std::string>(cpuinfo), {}};
    std::set<std::string> names;
    for (const Sha256Kernel *kernel : sha256_kernels())
        names.insert(kernel->name);
    // An emulator may show the words of another family.
    const struct {
        const char *family_name, *family_word, *name, *word;
    } cases[] = {{"sse2", "sse2", "sha-pair", "sha_ni"},
                 {"sse2", "sse2", "avx2", "avx2"},
                 {"sse2", "sse2", "avx512", "avx512bw"},
                 {"neon", "asimd", "sha2-pair", "sha2"}};
    for (const auto &c : cases) {
        if (names.contains(c.family_name) && words.contains(c.family_word)) {
            EXPECT_EQ(names.contains(c.name), words.contains(c.word)) << c.name;
        }
    }
}

// Messages that are as long as each other, at any place in memory, in every number of lanes.
TEST(Sha, EveryKernelDoesWhatThePortableOneDoes) {
    constexpr size_t MOST = SHA256_MOST_LANES;
    const Sha256Kernel &portable = *sha256_kernels()[0];
    Random random(3);
    for (const Sha256Kernel *kernel : sha256_kernels())
        for (const size_t count : {0u, 1u, 2u, 3u, 17u})
            for (const size_t offset : {0u, 1u, 7u}) {
                const auto bytes =
                    noise<std::vector<uint8_t>>(offset + SHA256_BLOCK_SIZE * count * MOST, 3);
                std::array<uint32_t, 8 * MOST + 1> words;
                std::generate(words.begin(), words.end(), std::ref(random));
                auto expected = words;
                uint32_t *states[MOST];
                const uint8_t *blocks[MOST];
                for (size_t lane = 0; lane < kernel->lanes; lane++) {
                    blocks[lane] = bytes.data() + offset + SHA256_BLOCK_SIZE * count * lane;
                    states[lane] = &words[1 + 8 * lane];
                    uint32_t *const state = &expected[1 + 8 * lane];
                    portable.compress(&state, &blocks[lane], count);
                }
                kernel->compress(states, blocks, count);
                EXPECT_EQ(words, expected) << kernel->name << ", " << count << ", " << offset;
            }
}

// Any number of messages, with every kernel and the choice among them.
TEST(Sha, ManyMessagesAreLikeEachAlone) {
    constexpr size_t MOST = 2 * SHA256_MOST_LANES + 3;
    const auto bytes = noise<std::vector<uint8_t>>(MOST * 3 * SHA256_BLOCK_SIZE, 5);
    std::vector<const Sha256Kernel *> forced(sha256_kernels().begin(), sha256_kernels().end());
    forced.push_back(nullptr);
    for (const Sha256Kernel *kernel : forced)
        for (size_t messages = 0; messages <= MOST; messages++) {
            uint32_t states[MOST][SHA256_STATE_WORDS], *pointers[MOST];
            const uint8_t *blocks[MOST];
            for (size_t i = 0; i < MOST; i++) {
                sha256_start(pointers[i] = states[i]);
                blocks[i] = bytes.data() + i * 3 * SHA256_BLOCK_SIZE;
            }
            sha256_force_kernel(kernel);
            sha256_update_many(pointers, blocks, messages, 3);
            sha256_force_kernel(nullptr);
            for (size_t i = 0; i < MOST; i++) {
                Sha256Context alone;
                sha256_init(&alone);
                sha256_update(&alone, blocks[i], i < messages ? 3 * SHA256_BLOCK_SIZE : 0);
                EXPECT_TRUE(std::ranges::equal(states[i], alone.state)) << messages << ", " << i;
            }
        }
}

// By the cost of each message: idle lanes cost as much as busy ones.
TEST(Sha, TheCheapestKernelIsChosen) {
    const auto kernels = sha256_kernels();
    const auto share = [](const Sha256Kernel *kernel) {
        return static_cast<double>(kernel->cost) / static_cast<double>(kernel->lanes);
    };
    EXPECT_EQ(sha256_kernel_for(1).cost, std::ranges::min(kernels, {}, &Sha256Kernel::cost)->cost);
    EXPECT_EQ(share(&sha256_kernel_for(SHA256_MOST_LANES + 1)),
              share(std::ranges::min(kernels, {}, share)));
}
