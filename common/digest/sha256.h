// SHA-256 (FIPS 180-4), incrementally over bytes.
#ifndef KESTREL_DIGEST_SHA256_H
#define KESTREL_DIGEST_SHA256_H

#include <cstddef>
#include <cstdint>

constexpr size_t SHA256_BLOCK_SIZE = 64;
constexpr size_t SHA256_DIGEST_SIZE = 32;
constexpr size_t SHA256_MOST_PADDING = SHA256_BLOCK_SIZE + 8; // bytes behind a message
constexpr size_t SHA256_MOST_LANES = 16; // messages that are ever compressed at the same time

struct Sha256Context {
    uint8_t data[SHA256_BLOCK_SIZE]; // the block being filled
    uint32_t datalen;                // bytes in it
    uint64_t bitlen;                 // message bits compressed so far
    uint32_t state[8];
};

void sha256_init(Sha256Context *ctx);
void sha256_update(Sha256Context *ctx, const void *bytes, size_t length);

// Pads, and writes SHA256_DIGEST_SIZE bytes. The context is spent.
void sha256_final(Sha256Context *ctx, uint8_t *digest);

// Compresses one block into the state, leaving the other fields alone.
void sha256_transform(Sha256Context *ctx, const uint8_t *block);

// --- Many messages at a time, in whole blocks, padding included

constexpr size_t SHA256_STATE_WORDS = 8;

// Makes the words the state of an empty message.
void sha256_start(uint32_t *state);

// Adds `count` blocks of each of so many messages to its state. On most processors this takes far
// less time than one after the other.
void sha256_update_many(uint32_t *const *states, const uint8_t *const *blocks, size_t messages,
                        size_t count);

// Returns the number of messages for which sha256_update_many takes least time per block.
size_t sha256_best_lanes();

// Whether one message more than so many takes sha256_update_many no longer.
bool sha256_has_idle_lane(size_t messages);

// Writes the padding behind a message of so many bytes, and returns its size.
size_t sha256_pad(uint8_t *end, uint64_t length);

// Writes the digest of a message whose padding has been added.
void sha256_digest(const uint32_t *state, uint8_t *digest);

// The algorithm, for templates that are for more than one.
struct Sha256 {
    using Context = Sha256Context;
    static constexpr size_t size = SHA256_DIGEST_SIZE;
    static constexpr auto init = sha256_init;
    static constexpr auto update = sha256_update;
    static constexpr auto final = sha256_final;
};

#endif
