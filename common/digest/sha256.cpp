#include "digest/sha256.h"

#include "digest/blockhash.h"
#include "digest/sha256_lanes.h"

#include <algorithm>
#include <vector>

alignas(16) const uint32_t sha256_k[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

namespace {

struct OneMessage {
    using Words = uint32_t;
};

} // namespace

static void compress_portable(uint32_t *const *states, const uint8_t *const *messages,
                              size_t count) {
    const uint8_t *blocks = messages[0];
    for (; count > 0; count--, blocks += SHA256_BLOCK_SIZE) {
        uint32_t w[16];
        for (size_t t = 0; t < 16; t++)
            w[t] = load_be32(blocks + 4 * t);
        sha256_compress_words<OneMessage>(states[0], w);
    }
}

// --- The choice of a kernel

static constexpr Sha256Kernel PORTABLE = {"portable", 1, 100, true, compress_portable};

namespace {

// Asks the processor once.
struct Kernels {
    std::vector<const Sha256Kernel *> supported = {&PORTABLE};
    const Sha256Kernel *best[SHA256_MOST_LANES + 1]; // by the number of messages
    const Sha256Kernel *forced = nullptr;

    Kernels() {
        for (const Sha256Kernel &kernel : sha256_family_kernels())
            if (kernel.is_supported)
                supported.push_back(&kernel);
        for (size_t messages = 0; messages <= SHA256_MOST_LANES; messages++)
            best[messages] =
                *std::min_element(supported.begin(), supported.end(),
                                  [messages](const Sha256Kernel *a, const Sha256Kernel *b) {
                                      return a->cost * std::min(messages, b->lanes) <
                                             b->cost * std::min(messages, a->lanes);
                                  });
    }
};

} // namespace

static Kernels &kernels() {
    static Kernels all;
    return all;
}

std::span<const Sha256Kernel *const> sha256_kernels() {
    return kernels().supported;
}

const Sha256Kernel &sha256_kernel_for(size_t messages) {
    const Kernels &all = kernels();
    return all.forced != nullptr ? *all.forced : *all.best[std::min(messages, SHA256_MOST_LANES)];
}

void sha256_force_kernel(const Sha256Kernel *kernel) {
    kernels().forced = kernel;
}

// --- The digest

// At most as many messages as the kernel has lanes; the others compress the last message's blocks
// into a state that nobody reads.
static void compress_some(const Sha256Kernel &kernel, uint32_t *const *states,
                          const uint8_t *const *blocks, size_t messages, size_t count) {
    uint32_t idle[SHA256_STATE_WORDS] = {};
    uint32_t *used[SHA256_MOST_LANES];
    const uint8_t *next[SHA256_MOST_LANES];
    for (size_t lane = 0; lane < kernel.lanes; lane++) {
        used[lane] = lane < messages ? states[lane] : idle;
        next[lane] = blocks[std::min(lane, messages - 1)];
    }
    kernel.compress(used, next, count);
}

void sha256_update_many(uint32_t *const *states, const uint8_t *const *blocks, size_t messages,
                        size_t count) {
    for (size_t done = 0; done < messages;) {
        const Sha256Kernel &kernel = sha256_kernel_for(messages - done);
        const size_t some = std::min(messages - done, kernel.lanes);
        compress_some(kernel, states + done, blocks + done, some, count);
        done += some;
    }
}

static void compress(Sha256Context *ctx, const uint8_t *blocks, size_t count) {
    uint32_t *const state = ctx->state;
    sha256_update_many(&state, &blocks, 1, count);
}

void sha256_start(uint32_t *state) {
    static constexpr uint32_t INITIAL[SHA256_STATE_WORDS] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372,
                                                             0xa54ff53a, 0x510e527f, 0x9b05688c,
                                                             0x1f83d9ab, 0x5be0cd19};
    std::copy(INITIAL, std::end(INITIAL), state);
}

void sha256_init(Sha256Context *ctx) {
    *ctx = {};
    sha256_start(ctx->state);
}

void sha256_update(Sha256Context *ctx, const void *bytes, size_t length) {
    blockhash_update(ctx, static_cast<const uint8_t *>(bytes), length, compress);
}

size_t sha256_pad(uint8_t *end, uint64_t length) {
    return blockhash_pad(end, 8 * length);
}

void sha256_digest(const uint32_t *state, uint8_t *digest) {
    blockhash_digest({state, SHA256_STATE_WORDS}, digest);
}

size_t sha256_best_lanes() {
    return sha256_kernel_for(SHA256_MOST_LANES).lanes;
}

bool sha256_has_idle_lane(size_t messages) {
    return messages != 0 && sha256_kernel_for(messages).lanes > messages;
}

void sha256_final(Sha256Context *ctx, uint8_t *digest) {
    blockhash_final(ctx, digest, compress);
}

void sha256_transform(Sha256Context *ctx, const uint8_t *block) {
    compress(ctx, block, 1);
}
