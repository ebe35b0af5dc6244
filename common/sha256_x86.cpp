// SHA-256 with the x86 SHA extensions.
#include "sha256_blocks.h"

#include <cpuid.h>
#include <immintrin.h>

// Two rounds an instruction, over the eight state words held as two vectors, (a,b,e,f) and
// (c,d,g,h). Each step of the loop does four rounds with the schedule vector w[t % 4] and, while
// more are needed, replaces that vector by the one four steps on:
//   W[t] = s1(W[t-2]) + W[t-7] + s0(W[t-15]) + W[t-16]
// where sha256msg1 gives the last two terms for four words at a time, alignr fetches the W[t-7],
// and sha256msg2 adds the first.
__attribute__((target("sha,sse4.1"))) static void
blocks_sha_extensions(uint32_t state[8], const uint8_t *blocks, size_t count) {
    const __m128i big_endian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    auto *words = reinterpret_cast<__m128i *>(state);
    const auto *k = reinterpret_cast<const __m128i *>(sha256_k);

    // Lanes below are named from the highest to the lowest.
    __m128i cdab = _mm_shuffle_epi32(_mm_loadu_si128(words), 0xb1);
    __m128i efgh = _mm_shuffle_epi32(_mm_loadu_si128(words + 1), 0x1b);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xf0);

    for (; count > 0; count--, blocks += 64) {
        const __m128i abef_before = abef, cdgh_before = cdgh;
        const auto *message = reinterpret_cast<const __m128i *>(blocks);
        __m128i w[4];
        for (int i = 0; i < 4; i++)
            w[i] = _mm_shuffle_epi8(_mm_loadu_si128(message + i), big_endian);

#pragma GCC unroll 16
        for (int t = 0; t < 16; t++) {
            __m128i wk = _mm_add_epi32(w[t % 4], _mm_load_si128(k + t));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, wk);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(wk, 0x0e));
            if (t < 12) {
                __m128i w3 = w[(t + 3) % 4];
                __m128i older = _mm_sha256msg1_epu32(w[t % 4], w[(t + 1) % 4]);
                __m128i seven_back = _mm_alignr_epi8(w3, w[(t + 2) % 4], 4);
                w[t % 4] = _mm_sha256msg2_epu32(_mm_add_epi32(older, seven_back), w3);
            }
        }
        abef = _mm_add_epi32(abef, abef_before);
        cdgh = _mm_add_epi32(cdgh, cdgh_before);
    }

    __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
    __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
    _mm_storeu_si128(words, _mm_blend_epi16(feba, dchg, 0xf0));
    _mm_storeu_si128(words + 1, _mm_alignr_epi8(dchg, feba, 8));
}

// The compiler's own feature test does not know the SHA extensions: CPUID leaf 7, EBX bit 29, and
// SSE4.1 in leaf 1, ECX bit 19.
Sha256BlocksFn sha256_blocks_native() {
    unsigned eax, ebx, ecx, edx;
    bool sse41 = __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & 1u << 19) != 0;
    bool sha = __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & 1u << 29) != 0;
    return sse41 && sha ? blocks_sha_extensions : nullptr;
}
