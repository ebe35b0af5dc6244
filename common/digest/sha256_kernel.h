// The kernels behind sha256.cpp: ways to compress blocks, one for each set of instructions.
#ifndef KESTREL_DIGEST_SHA256_KERNEL_H
#define KESTREL_DIGEST_SHA256_KERNEL_H

#include "digest/sha256.h"

#include <cstddef>
#include <cstdint>
#include <span>

// Compresses `count` consecutive 64-byte blocks of each message into its state; 0 is allowed. There
// are as many messages as the kernel has lanes.
using Sha256CompressFn = void(uint32_t *const *states, const uint8_t *const *blocks, size_t count);

struct Sha256Kernel {
    const char *name;
    size_t lanes;      // messages that are compressed at the same time
    unsigned cost;     // percent of the portable kernel's time for one block; of all lanes together
    bool is_supported; // by this processor and system
    Sha256CompressFn *compress;
};

// The round constants (FIPS 180-4, section 4.2.2).
alignas(16) extern const uint32_t sha256_k[64];

// The kernels of the processor's family, supported or not.
std::span<const Sha256Kernel> sha256_family_kernels();

// The kernels that are supported, the portable one first.
std::span<const Sha256Kernel *const> sha256_kernels();

// The kernel that takes least for so many messages, 1 or more; lanes may stay idle.
const Sha256Kernel &sha256_kernel_for(size_t messages);

// Uses one kernel for everything, for tests and benchmarks; null takes that back.
void sha256_force_kernel(const Sha256Kernel *kernel);

#endif
