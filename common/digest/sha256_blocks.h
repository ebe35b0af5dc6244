// The compression functions behind sha256.cpp: one portable, one for each processor family with
// instructions of its own.
#ifndef COMMON_SHA256_BLOCKS_H
#define COMMON_SHA256_BLOCKS_H

#include <cstddef>
#include <cstdint>

// Compresses `count` consecutive 64-byte blocks into the state; 0 is allowed.
using Sha256BlocksFn = void (*)(uint32_t state[8], const uint8_t *blocks, size_t count);

// The round constants (FIPS 180-4, section 4.2.2).
alignas(16) extern const uint32_t sha256_k[64];

void sha256_blocks_portable(uint32_t state[8], const uint8_t *blocks, size_t count);

// Compresses `count` blocks of each of two messages, interleaved, so that one message's
// instructions run while the other's wait.
using Sha256PairFn = void (*)(uint32_t *const states[2], const uint8_t *const blocks[2],
                              size_t count);

void sha256_pair_portable(uint32_t *const states[2], const uint8_t *const blocks[2], size_t count);

// The ones that use this processor's own instructions; null when it has none.
Sha256BlocksFn sha256_blocks_native();
Sha256PairFn sha256_pair_native();

#endif
