// SHA-256 with the x86 SHA extensions.
#include "digest/sha256_lanes.h"

#include <cpuid.h>
#include <immintrin.h>

// The state's eight words lie in two registers. Words are named from the highest to the lowest:
//
//     loaded from memory                    d c b a     h g f e
//     shuffled                     cdab  =  c d a b     e f g h  =  efgh
//
//     alignr(cdab, efgh, 8)        abef  =  a b e f     the low half of cdab, the high one of efgh
//     blend(efgh, cdab, 0xf0)      cdgh  =  c d g h     the high half of cdab, the low one of efgh
//
// sha256rnds2(cdgh, abef, wk) does two rounds with the two low words of wk, the sums of schedule
// and constants, and gives the new abef. The old abef is the new cdgh: c, d, g, h are what a, b, e,
// f were two rounds before. So the two registers change places with every instruction.
//
// Each step t of the loop does four rounds with the schedule's words 4t to 4t+3, which are in
// w[t % 4], and then, while more are needed, puts those of the step t+4 there:
//
//     W[i] = s1(W[i-2]) + W[i-7] + s0(W[i-15]) + W[i-16]      (FIPS 180-4, section 6.2.2)
//
//     sha256msg1(W[i-16..i-13], W[i-12..i-9])     s0(W[i-15]) + W[i-16], for four i at a time
//     alignr(W[i-4..i-1], W[i-8..i-5], 4)         W[i-7]
//     sha256msg2(their sum, W[i-4..i-1])          adds s1(W[i-2])
//
// Why two lanes, that is messages: a block takes 32 sha256rnds2, 12 sha256msg1 and 12 sha256msg2.
// The processor can start one of the first two in every cycle and the third in every second: 68
// cycles of work. But each sha256rnds2 waits four cycles for the one before, so that one message
// takes 128. Two whose steps alternate take 68 together, and more could gain little. (The cycles
// were measured on Zen 3: docs/performance.md.)
template <int lanes>
__attribute__((target("sha,sse4.1"))) static void
compress_lanes(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    const __m128i big_endian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    const auto *k = reinterpret_cast<const __m128i *>(sha256_k);
    __m128i abef[lanes], cdgh[lanes];
    const __m128i *message[lanes];

#pragma GCC unroll 2
    for (int i = 0; i < lanes; i++) {
        const auto *state = reinterpret_cast<const __m128i *>(states[i]);
        const __m128i cdab = _mm_shuffle_epi32(_mm_loadu_si128(state), 0xb1);
        const __m128i efgh = _mm_shuffle_epi32(_mm_loadu_si128(state + 1), 0x1b);
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
                const __m128i wk = _mm_add_epi32(w[i][t % 4], _mm_load_si128(k + t));
                cdgh[i] = _mm_sha256rnds2_epu32(cdgh[i], abef[i], wk);
                abef[i] = _mm_sha256rnds2_epu32(abef[i], cdgh[i], _mm_shuffle_epi32(wk, 0x0e));
                if (t < 12) {
                    const __m128i w3 = w[i][(t + 3) % 4];
                    const __m128i older = _mm_sha256msg1_epu32(w[i][t % 4], w[i][(t + 1) % 4]);
                    const __m128i seven_back = _mm_alignr_epi8(w3, w[i][(t + 2) % 4], 4);
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
        const __m128i feba = _mm_shuffle_epi32(abef[i], 0x1b);
        const __m128i dchg = _mm_shuffle_epi32(cdgh[i], 0xb1);
        _mm_storeu_si128(state, _mm_blend_epi16(feba, dchg, 0xf0));
        _mm_storeu_si128(state + 1, _mm_alignr_epi8(dchg, feba, 8));
    }
}

// The compiler's own feature test does not know the SHA extensions: CPUID leaf 7, EBX bit 29.
static bool has_sha() {
    unsigned eax, ebx, ecx, edx;
    return __builtin_cpu_supports("sse4.1") != 0 &&
           __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & 1u << 29) != 0;
}

// The first costs were measured on an Intel Emerald Rapids, in one core with its data in the first
// caches. The second ones are estimates for an AMD Zen 5, measured beside a portable kernel that is
// taken to be 1.5 times slower; avx512vl, with half of the lanes, is taken to cost as much as
// avx512.
std::span<const Sha256Kernel> sha256_family_kernels() {
    static const bool intel = __builtin_cpu_is("intel") != 0;
    // The compiler's test asks the system, too, whether it keeps the registers (XCR0).
    static const bool sse2 = __builtin_cpu_supports("sse2") != 0;
    static const bool avx2 = __builtin_cpu_supports("avx2") != 0;
    static const bool avx512f = __builtin_cpu_supports("avx512f") != 0;
    static const bool avx512vl = avx512f && __builtin_cpu_supports("avx512vl") != 0;
    static const bool avx512bw = avx512f && __builtin_cpu_supports("avx512bw") != 0;
    static const bool sha = has_sha();
    static const Sha256Kernel kernels[] = {
        {"sse2", 4, intel ? 204u : 381u, sse2, sha256_compress_sse2},
        {"avx2", 8, intel ? 203u : 248u, avx2, sha256_compress_avx2},
        {"avx512vl", 8, intel ? 105u : 165u, avx512vl, sha256_compress_avx512vl},
        {"avx512", 16, intel ? 155u : 165u, avx512bw, sha256_compress_avx512},
        {"sha", 1, intel ? 22u : 38u, sha, compress_lanes<1>},
        {"sha-pair", 2, intel ? 33u : 39u, sha, compress_lanes<2>},
    };
    return kernels;
}
