// Sixteen messages at a time, with AVX-512 (F and BW).
#include "digest/sha256_lanes.h"

#include <immintrin.h>

namespace {

struct Avx512 {
    using Words = uint32_t __attribute__((vector_size(64)));

    // A block of each is one register: words, pairs, quadruples and halves change places.
    static ALWAYS_INLINE void load(Words *w, const uint8_t *const *blocks) {
        const __m512i big_endian = _mm512_broadcast_i32x4(
            _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3));
        __m512i row[16], pair[16], four[16], eight[16];
#pragma GCC unroll 16
        for (size_t i = 0; i < 16; i++)
            row[i] = _mm512_shuffle_epi8(_mm512_loadu_si512(blocks[i]), big_endian);
#pragma GCC unroll 8
        for (size_t i = 0; i < 16; i += 2) {
            pair[i] = _mm512_unpacklo_epi32(row[i], row[i + 1]);
            pair[i + 1] = _mm512_unpackhi_epi32(row[i], row[i + 1]);
        }
#pragma GCC unroll 4
        for (size_t i = 0; i < 16; i += 4) {
            four[i] = _mm512_unpacklo_epi64(pair[i], pair[i + 2]);
            four[i + 1] = _mm512_unpackhi_epi64(pair[i], pair[i + 2]);
            four[i + 2] = _mm512_unpacklo_epi64(pair[i + 1], pair[i + 3]);
            four[i + 3] = _mm512_unpackhi_epi64(pair[i + 1], pair[i + 3]);
        }
        // four[4q + j] has in its quarter p the words 4p + j of the messages 4q to 4q + 3.
#pragma GCC unroll 4
        for (size_t j = 0; j < 4; j++) {
            eight[j] = _mm512_shuffle_i32x4(four[j], four[4 + j], 0x44);
            eight[4 + j] = _mm512_shuffle_i32x4(four[j], four[4 + j], 0xee);
            eight[8 + j] = _mm512_shuffle_i32x4(four[8 + j], four[12 + j], 0x44);
            eight[12 + j] = _mm512_shuffle_i32x4(four[8 + j], four[12 + j], 0xee);
        }
#pragma GCC unroll 4
        for (size_t j = 0; j < 4; j++) {
            w[j] = words(_mm512_shuffle_i32x4(eight[j], eight[8 + j], 0x88));
            w[4 + j] = words(_mm512_shuffle_i32x4(eight[j], eight[8 + j], 0xdd));
            w[8 + j] = words(_mm512_shuffle_i32x4(eight[4 + j], eight[12 + j], 0x88));
            w[12 + j] = words(_mm512_shuffle_i32x4(eight[4 + j], eight[12 + j], 0xdd));
        }
    }

    static ALWAYS_INLINE Words majority(Words a, Words b, Words c) {
        return words(_mm512_ternarylogic_epi32(reinterpret_cast<__m512i>(a),
                                               reinterpret_cast<__m512i>(b),
                                               reinterpret_cast<__m512i>(c), 0xe8));
    }

    static ALWAYS_INLINE Words words(__m512i x) {
        return reinterpret_cast<Words>(x);
    }
};

} // namespace

void sha256_compress_avx512(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    sha256_compress_lanes<Avx512>(states, blocks, count);
}
