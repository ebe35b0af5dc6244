// SHA-256 with the SHA-2 instructions of ARMv8 (64-bit, Linux). Built with those allowed; run only
// where the system reports them.
#include "digest/sha256_lanes.h"

#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>

// Four rounds per pair of instructions, over the eight state words held as two vectors, (a,b,c,d)
// and (e,f,g,h). Each step of the loop does them with the schedule vector w[t % 4] and, while more
// are needed, replaces that vector by the one four steps on.
//
// With two lanes, that is messages, their steps alternate, so that one lane's instructions run
// while the other's wait.
template <int lanes>
static void compress_lanes(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    uint32x4_t abcd[lanes], efgh[lanes];
    const uint8_t *message[lanes];
#pragma GCC unroll 2
    for (int i = 0; i < lanes; i++) {
        abcd[i] = vld1q_u32(states[i]);
        efgh[i] = vld1q_u32(states[i] + 4);
        message[i] = blocks[i];
    }

    for (; count > 0; count--) {
        uint32x4_t abcd_before[lanes], efgh_before[lanes], w[lanes][4];
#pragma GCC unroll 2
        for (int i = 0; i < lanes; i++) {
            abcd_before[i] = abcd[i];
            efgh_before[i] = efgh[i];
#pragma GCC unroll 4
            for (uint32x4_t &words : w[i]) {
                words = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(message[i])));
                message[i] += 16;
            }
        }
#pragma GCC unroll 16
        for (int t = 0; t < 16; t++) {
#pragma GCC unroll 2
            for (int i = 0; i < lanes; i++) {
                const uint32x4_t wk = vaddq_u32(w[i][t % 4], vld1q_u32(sha256_k + 4 * t));
                if (t < 12)
                    w[i][t % 4] = vsha256su1q_u32(vsha256su0q_u32(w[i][t % 4], w[i][(t + 1) % 4]),
                                                  w[i][(t + 2) % 4], w[i][(t + 3) % 4]);
                const uint32x4_t abcd_old = abcd[i];
                abcd[i] = vsha256hq_u32(abcd[i], efgh[i], wk);
                efgh[i] = vsha256h2q_u32(efgh[i], abcd_old, wk);
            }
        }
#pragma GCC unroll 2
        for (int i = 0; i < lanes; i++) {
            abcd[i] = vaddq_u32(abcd[i], abcd_before[i]);
            efgh[i] = vaddq_u32(efgh[i], efgh_before[i]);
        }
    }

#pragma GCC unroll 2
    for (int i = 0; i < lanes; i++) {
        vst1q_u32(states[i], abcd[i]);
        vst1q_u32(states[i] + 4, efgh[i]);
    }
}

// The costs are estimates.
std::span<const Sha256Kernel> sha256_family_kernels() {
    static const bool sha2 = (getauxval(AT_HWCAP) & HWCAP_SHA2) != 0;
    static const Sha256Kernel kernels[] = {
        {"neon", 4, 381, true, sha256_compress_neon},
        {"sha2", 1, 38, sha2, compress_lanes<1>},
        {"sha2-pair", 2, 39, sha2, compress_lanes<2>},
    };
    return kernels;
}
