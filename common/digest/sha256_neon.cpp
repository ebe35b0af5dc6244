// Four messages at a time, with what every 64-bit ARM processor has.
#include "digest/sha256_lanes.h"

#include <arm_neon.h>

namespace {

struct Neon {
    using Words = uint32_t __attribute__((vector_size(16)));

    // Four times four words of each: a transposition of 4 x 4 words.
    static ALWAYS_INLINE void load(Words *w, const uint8_t *const *blocks) {
#pragma GCC unroll 4
        for (size_t part = 0; part < 4; part++) {
            uint32x4_t row[4];
            for (size_t lane = 0; lane < 4; lane++)
                row[lane] = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(blocks[lane] + 16 * part)));
            const uint64x2_t even01 = vreinterpretq_u64_u32(vtrn1q_u32(row[0], row[1]));
            const uint64x2_t even23 = vreinterpretq_u64_u32(vtrn1q_u32(row[2], row[3]));
            const uint64x2_t odd01 = vreinterpretq_u64_u32(vtrn2q_u32(row[0], row[1]));
            const uint64x2_t odd23 = vreinterpretq_u64_u32(vtrn2q_u32(row[2], row[3]));
            w[4 * part] = words(vtrn1q_u64(even01, even23));
            w[4 * part + 1] = words(vtrn1q_u64(odd01, odd23));
            w[4 * part + 2] = words(vtrn2q_u64(even01, even23));
            w[4 * part + 3] = words(vtrn2q_u64(odd01, odd23));
        }
    }

    static ALWAYS_INLINE Words words(uint64x2_t x) {
        return reinterpret_cast<Words>(x);
    }
};

} // namespace

void sha256_compress_neon(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    sha256_compress_lanes<Neon>(states, blocks, count);
}
