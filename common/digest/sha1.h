// SHA-1 (FIPS 180-4), incrementally over bytes. For identification only: it is no longer safe
// against forgery.
#ifndef KESTREL_DIGEST_SHA1_H
#define KESTREL_DIGEST_SHA1_H

#include <cstddef>
#include <cstdint>

constexpr size_t SHA1_BLOCK_SIZE = 64;
constexpr size_t SHA1_DIGEST_SIZE = 20;

struct Sha1Context {
    uint8_t data[SHA1_BLOCK_SIZE]; // the block being filled
    uint32_t datalen;              // bytes in it
    uint64_t bitlen;               // message bits compressed so far
    uint32_t state[5];
    uint32_t k[4]; // the round constants
};

void sha1_init(Sha1Context *ctx);
void sha1_update(Sha1Context *ctx, const void *bytes, size_t length);

// Pads, and writes SHA1_DIGEST_SIZE bytes. The context is spent.
void sha1_final(Sha1Context *ctx, uint8_t *digest);

// Compresses one block into the state, leaving the other fields alone.
void sha1_transform(Sha1Context *ctx, const uint8_t *block);

// The algorithm, for templates that are for more than one.
struct Sha1 {
    using Context = Sha1Context;
    static constexpr size_t size = SHA1_DIGEST_SIZE;
    static constexpr auto init = sha1_init;
    static constexpr auto update = sha1_update;
    static constexpr auto final = sha1_final;
};

#endif
