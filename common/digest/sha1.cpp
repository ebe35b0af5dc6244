#include "digest/sha1.h"

#include "digest/blockhash.h"

#include <bit>

// FIPS 180-4, section 6.1.2, with the message schedule kept as a ring of 16 words.
void sha1_transform(Sha1Context *ctx, const uint8_t *block) {
    uint32_t w[16];
    for (size_t t = 0; t < 16; t++)
        w[t] = load_be32(block + 4 * t);

    auto [a, b, c, d, e] = ctx->state;
    for (size_t t = 0; t < 80; t++) {
        if (t >= 16)
            w[t % 16] =
                std::rotl(w[(t - 3) % 16] ^ w[(t - 8) % 16] ^ w[(t - 14) % 16] ^ w[t % 16], 1);
        const uint32_t f = t < 20              ? (b & c) ^ (~b & d)
                           : t >= 40 && t < 60 ? (b & c) ^ (b & d) ^ (c & d)
                                               : b ^ c ^ d;
        const uint32_t sum = std::rotl(a, 5) + f + e + ctx->k[t / 20] + w[t % 16];
        e = d, d = c, c = std::rotl(b, 30), b = a, a = sum;
    }
    ctx->state[0] += a, ctx->state[1] += b, ctx->state[2] += c, ctx->state[3] += d;
    ctx->state[4] += e;
}

static void compress(Sha1Context *ctx, const uint8_t *blocks, size_t count) {
    for (; count > 0; count--, blocks += SHA1_BLOCK_SIZE)
        sha1_transform(ctx, blocks);
}

void sha1_init(Sha1Context *ctx) {
    *ctx = {{},
            0,
            0,
            {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0},
            {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6}};
}

void sha1_update(Sha1Context *ctx, const void *bytes, size_t length) {
    blockhash_update(ctx, static_cast<const uint8_t *>(bytes), length, compress);
}

void sha1_final(Sha1Context *ctx, uint8_t *digest) {
    blockhash_final(ctx, digest, compress);
}
