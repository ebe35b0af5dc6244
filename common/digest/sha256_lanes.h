// SHA-256 of one message, or of several at the same time, each in its own 32 bits of vector
// registers. The sources that include this are compiled for different instructions, so that nothing
// here may be shared between them: Vector is a type of an anonymous namespace.
#ifndef KESTREL_DIGEST_SHA256_LANES_H
#define KESTREL_DIGEST_SHA256_LANES_H

#include "digest/sha256_kernel.h"

// The kernels' functions.
Sha256CompressFn sha256_compress_sse2, sha256_compress_avx2, sha256_compress_avx512vl,
    sha256_compress_avx512, sha256_compress_neon;

#define ALWAYS_INLINE __attribute__((always_inline)) inline

template <int bits, class Words> ALWAYS_INLINE Words rotated(Words x) {
    return x >> bits | x << (32 - bits);
}

// The function Maj of FIPS 180-4, section 4.1.2, by Vector's own instruction if it has one.
template <class Vector, class Words> ALWAYS_INLINE Words majority_of(Words a, Words b, Words c) {
    if constexpr (requires { Vector::majority(a, b, c); })
        return Vector::majority(a, b, c);
    else
        return b ^ ((a ^ b) & (b ^ c)); // in the next round b ^ c is known: it is this a ^ b
}

// Compresses a block, given as 16 words in the processor's byte order, into a state (FIPS 180-4,
// section 6.2.2). Vector::Words is a word of each message. `w` becomes the schedule, a ring of 16
// words.
template <class Vector, class Words = typename Vector::Words>
ALWAYS_INLINE void sha256_compress_words(Words *state, Words *w) {
    Words a = state[0], b = state[1], c = state[2], d = state[3];
    Words e = state[4], f = state[5], g = state[6], h = state[7];
    for (size_t sixteen = 0; sixteen < 64; sixteen += 16) {
#pragma GCC unroll 16
        for (size_t t = 0; t < 16; t++) {
            if (sixteen != 0) {
                const Words w15 = w[(t + 1) % 16], w2 = w[(t + 14) % 16];
                const Words s0 = rotated<7>(w15) ^ rotated<18>(w15) ^ (w15 >> 3);
                const Words s1 = rotated<17>(w2) ^ rotated<19>(w2) ^ (w2 >> 10);
                w[t] += s0 + w[(t + 9) % 16] + s1;
            }
            const Words sum1 = rotated<6>(e) ^ rotated<11>(e) ^ rotated<25>(e);
            const Words choice = g ^ (e & (f ^ g));
            const Words t1 = h + sum1 + choice + sha256_k[sixteen + t] + w[t];
            const Words sum0 = rotated<2>(a) ^ rotated<13>(a) ^ rotated<22>(a);
            const Words majority = majority_of<Vector>(a, b, c);
            h = g, g = f, f = e, e = d + t1;
            d = c, c = b, b = a, a = t1 + sum0 + majority;
        }
    }
    state[0] += a, state[1] += b, state[2] += c, state[3] += d;
    state[4] += e, state[5] += f, state[6] += g, state[7] += h;
}

// Vector::load(w, blocks) gives the words of a block of each message.
template <class Vector>
void sha256_compress_lanes(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    using Words = typename Vector::Words;
    constexpr size_t LANES = sizeof(Words) / sizeof(uint32_t);
    Words state[8];
    const uint8_t *next[LANES];
    for (size_t lane = 0; lane < LANES; lane++) {
        next[lane] = blocks[lane];
        for (size_t i = 0; i < 8; i++)
            state[i][lane] = states[lane][i];
    }
    for (; count > 0; count--) {
        Words w[16];
        Vector::load(w, next);
        for (const uint8_t *&block : next)
            block += 64;
        sha256_compress_words<Vector>(state, w);
    }
    for (size_t lane = 0; lane < LANES; lane++)
        for (size_t i = 0; i < 8; i++)
            states[lane][i] = state[i][lane];
}

#endif
