// Four messages at a time, with what every x86-64 processor has.
#include "digest/sha256_lanes.h"

#include <emmintrin.h>

namespace {

struct Sse2 {
    using Words = uint32_t __attribute__((vector_size(16)));

    static ALWAYS_INLINE __m128i swap_bytes(__m128i x) {
        x = _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
        return _mm_shufflehi_epi16(_mm_shufflelo_epi16(x, 0xb1), 0xb1);
    }

    // Four times four words of each: a transposition of 4 x 4 words.
    static ALWAYS_INLINE void load(Words *w, const uint8_t *const *blocks) {
#pragma GCC unroll 4
        for (size_t part = 0; part < 4; part++) {
            __m128i row[4];
            for (size_t lane = 0; lane < 4; lane++)
                row[lane] = swap_bytes(
                    _mm_loadu_si128(reinterpret_cast<const __m128i *>(blocks[lane] + 16 * part)));
            const __m128i low01 = _mm_unpacklo_epi32(row[0], row[1]);
            const __m128i low23 = _mm_unpacklo_epi32(row[2], row[3]);
            const __m128i high01 = _mm_unpackhi_epi32(row[0], row[1]);
            const __m128i high23 = _mm_unpackhi_epi32(row[2], row[3]);
            w[4 * part] = reinterpret_cast<Words>(_mm_unpacklo_epi64(low01, low23));
            w[4 * part + 1] = reinterpret_cast<Words>(_mm_unpackhi_epi64(low01, low23));
            w[4 * part + 2] = reinterpret_cast<Words>(_mm_unpacklo_epi64(high01, high23));
            w[4 * part + 3] = reinterpret_cast<Words>(_mm_unpackhi_epi64(high01, high23));
        }
    }
};

} // namespace

void sha256_compress_sse2(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    sha256_compress_lanes<Sse2>(states, blocks, count);
}
