// Vectors of eight messages, in 256-bit registers, for sha256_compress_lanes.
#ifndef KESTREL_DIGEST_SHA256_LANES8_H
#define KESTREL_DIGEST_SHA256_LANES8_H

#include "digest/sha256_lanes.h"

#include <immintrin.h>

namespace {

struct Eight {
    using Words = uint32_t __attribute__((vector_size(32)));

    // Twice eight words of each: pairs, quadruples and halves change places.
    static ALWAYS_INLINE void load(Words *w, const uint8_t *const *blocks) {
        const __m256i big_endian =
            _mm256_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3, //
                            12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
#pragma GCC unroll 2
        for (size_t half = 0; half < 2; half++) {
            __m256i row[8], pair[8], four[8];
            for (size_t i = 0; i < 8; i++)
                row[i] = _mm256_shuffle_epi8(
                    _mm256_loadu_si256(reinterpret_cast<const __m256i *>(blocks[i] + 32 * half)),
                    big_endian);
            for (size_t i = 0; i < 8; i += 2) {
                pair[i] = _mm256_unpacklo_epi32(row[i], row[i + 1]);
                pair[i + 1] = _mm256_unpackhi_epi32(row[i], row[i + 1]);
            }
            for (size_t i = 0; i < 8; i += 4) {
                four[i] = _mm256_unpacklo_epi64(pair[i], pair[i + 2]);
                four[i + 1] = _mm256_unpackhi_epi64(pair[i], pair[i + 2]);
                four[i + 2] = _mm256_unpacklo_epi64(pair[i + 1], pair[i + 3]);
                four[i + 3] = _mm256_unpackhi_epi64(pair[i + 1], pair[i + 3]);
            }
            for (size_t i = 0; i < 4; i++) {
                w[8 * half + i] =
                    reinterpret_cast<Words>(_mm256_permute2x128_si256(four[i], four[i + 4], 0x20));
                w[8 * half + i + 4] =
                    reinterpret_cast<Words>(_mm256_permute2x128_si256(four[i], four[i + 4], 0x31));
            }
        }
    }

#ifdef __AVX512VL__
    static ALWAYS_INLINE Words majority(Words a, Words b, Words c) {
        return reinterpret_cast<Words>(
            _mm256_ternarylogic_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b),
                                      reinterpret_cast<__m256i>(c), 0xe8));
    }
#endif
};

} // namespace

#endif
