// What SHA-1 and SHA-256 share (FIPS 180-4, section 5): filling 64-byte blocks, and the padding.
// A context has the fields data, datalen, bitlen and state; `compress` takes the context, a run of
// blocks and their number.
#ifndef KESTREL_DIGEST_BLOCKHASH_H
#define KESTREL_DIGEST_BLOCKHASH_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

constexpr size_t HASH_BLOCK_SIZE = 64;
constexpr size_t HASH_LENGTH_OFFSET = 56; // where the last block holds the message's length

inline void store_be32(uint8_t *to, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        *to++ = static_cast<uint8_t>(value >> shift);
}

inline uint32_t load_be32(const uint8_t *from) {
    return uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | from[3];
}

// Whole blocks are compressed straight from the caller's bytes; only what begins or ends inside a
// block goes through ctx->data.
template <class Context, class Compress>
void blockhash_update(Context *ctx, const uint8_t *bytes, size_t length, Compress compress) {
    if (length == 0)
        return;
    if (ctx->datalen != 0) {
        const size_t part = std::min(length, HASH_BLOCK_SIZE - ctx->datalen);
        memcpy(ctx->data + ctx->datalen, bytes, part);
        ctx->datalen += static_cast<uint32_t>(part);
        bytes += part;
        length -= part;
        if (ctx->datalen < HASH_BLOCK_SIZE)
            return;
        compress(ctx, ctx->data, 1);
        ctx->bitlen += 8 * HASH_BLOCK_SIZE;
    }
    const size_t blocks = length / HASH_BLOCK_SIZE;
    compress(ctx, bytes, blocks);
    ctx->bitlen += 8 * HASH_BLOCK_SIZE * uint64_t{blocks};
    ctx->datalen = static_cast<uint32_t>(length % HASH_BLOCK_SIZE);
    memcpy(ctx->data, bytes + blocks * HASH_BLOCK_SIZE, ctx->datalen);
}

// Writes the padding behind a message of so many bits, which are whole bytes. Returns its size: 9
// to 72 bytes.
inline size_t blockhash_pad(uint8_t *end, uint64_t bits) {
    const size_t used = bits / 8 % HASH_BLOCK_SIZE;
    const size_t blocks = used < HASH_LENGTH_OFFSET ? 1 : 2;
    const size_t size = blocks * HASH_BLOCK_SIZE - used;
    memset(end, 0, size);
    end[0] = 0x80;
    store_be32(end + size - 8, static_cast<uint32_t>(bits >> 32));
    store_be32(end + size - 4, static_cast<uint32_t>(bits));
    return size;
}

inline void blockhash_digest(std::span<const uint32_t> state, uint8_t *digest) {
    for (const uint32_t word : state) {
        store_be32(digest, word);
        digest += 4;
    }
}

template <class Context, class Compress>
void blockhash_final(Context *ctx, uint8_t *digest, Compress compress) {
    uint8_t last[2 * HASH_BLOCK_SIZE];
    memcpy(last, ctx->data, ctx->datalen);
    const uint64_t bits = ctx->bitlen + 8 * uint64_t{ctx->datalen};
    const size_t padding = blockhash_pad(last + ctx->datalen, bits);
    compress(ctx, last, (ctx->datalen + padding) / HASH_BLOCK_SIZE);
    blockhash_digest(ctx->state, digest);
}

#endif
