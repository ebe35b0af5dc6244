// SHA-256 with the x86 SHA extensions.
#include "digest/sha256_blocks.h"

#include <cpuid.h>
#include <immintrin.h>

// Two rounds per instruction, over the eight state words held as two vectors, (a,b,e,f) and
// (c,d,g,h). Each step of the loop does four rounds with the schedule vector w[t % 4] and, while
// more are needed, replaces that vector by the one four steps on:
//   W[t] = s1(W[t-2]) + W[t-7] + s0(W[t-15]) + W[t-16]
// where sha256msg1 gives the last two terms for four words at a time, alignr fetches the W[t-7],
// and sha256msg2 adds the first.
//
// Each of these instructions waits for the one before it, which leaves half of the core idle; with
// two lanes, that is messages, their steps alternate and fill it.
template <int lanes>
__attribute__((target("sha,sse4.1"))) static void
compress_lanes(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    const __m128i big_endian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    const auto *k = reinterpret_cast<const __m128i *>(sha256_k);
    __m128i abef[lanes], cdgh[lanes];
    const __m128i *message[lanes];

    // Words of a vector are named from the highest to the lowest.
#pragma GCC unroll 2
    for (int i = 0; i < lanes; i++) {
        const auto *state = reinterpret_cast<const __m128i *>(states[i]);
        __m128i cdab = _mm_shuffle_epi32(_mm_loadu_si128(state), 0xb1);
        __m128i efgh = _mm_shuffle_epi32(_mm_loadu_si128(state + 1), 0x1b);
        abef[i] = _mm_alignr_epi8(cdab, efgh, 8);
        cdgh[i] = _mm_blend_epi16(efgh, cdab, 0xf0);
        message[i] = reinterpret_cast<const __m128i *>(blocks[i]);
    }

    for (; count > 0; count--) {
        __m128i abef_before[lanes], cdgh_before[lanes], w[lanes][4];
#pragma GCC unroll 2
        for (int i = 0; i < lanes; i++) {
            abef_before[i] = abef[i];
            cdgh_before[i] = cdgh[i];
#pragma GCC unroll 4
            for (__m128i &words : w[i])
                words = _mm_shuffle_epi8(_mm_loadu_si128(message[i]++), big_endian);
        }
#pragma GCC unroll 16
        for (int t = 0; t < 16; t++) {
#pragma GCC unroll 2
            for (int i = 0; i < lanes; i++) {
                __m128i wk = _mm_add_epi32(w[i][t % 4], _mm_load_si128(k + t));
                cdgh[i] = _mm_sha256rnds2_epu32(cdgh[i], abef[i], wk);
                abef[i] = _mm_sha256rnds2_epu32(abef[i], cdgh[i], _mm_shuffle_epi32(wk, 0x0e));
                if (t < 12) {
                    __m128i w3 = w[i][(t + 3) % 4];
                    __m128i older = _mm_sha256msg1_epu32(w[i][t % 4], w[i][(t + 1) % 4]);
                    __m128i seven_back = _mm_alignr_epi8(w3, w[i][(t + 2) % 4], 4);
                    w[i][t % 4] = _mm_sha256msg2_epu32(_mm_add_epi32(older, seven_back), w3);
                }
            }
        }
#pragma GCC unroll 2
        for (int i = 0; i < lanes; i++) {
            abef[i] = _mm_add_epi32(abef[i], abef_before[i]);
            cdgh[i] = _mm_add_epi32(cdgh[i], cdgh_before[i]);
        }
    }

#pragma GCC unroll 2
    for (int i = 0; i < lanes; i++) {
        auto *state = reinterpret_cast<__m128i *>(states[i]);
        __m128i feba = _mm_shuffle_epi32(abef[i], 0x1b);
        __m128i dchg = _mm_shuffle_epi32(cdgh[i], 0xb1);
        _mm_storeu_si128(state, _mm_blend_epi16(feba, dchg, 0xf0));
        _mm_storeu_si128(state + 1, _mm_alignr_epi8(dchg, feba, 8));
    }
}

static void blocks_sha_extensions(uint32_t state[8], const uint8_t *blocks, size_t count) {
    compress_lanes<1>(&state, &blocks, count);
}

static void pair_sha_extensions(uint32_t *const states[2], const uint8_t *const blocks[2],
                                size_t count) {
    compress_lanes<2>(states, blocks, count);
}

// The compiler's own feature test does not know the SHA extensions: CPUID leaf 7, EBX bit 29, and
// SSE4.1 in leaf 1, ECX bit 19.
static bool has_sha_extensions() {
    unsigned eax, ebx, ecx, edx;
    const bool sse41 = __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & 1u << 19) != 0;
    const bool sha = __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & 1u << 29) != 0;
    return sse41 && sha;
}

Sha256BlocksFn sha256_blocks_native() {
    return has_sha_extensions() ? blocks_sha_extensions : nullptr;
}

Sha256PairFn sha256_pair_native() {
    return has_sha_extensions() ? pair_sha_extensions : nullptr;
}
