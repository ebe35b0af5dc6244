// Eight messages at a time, with AVX-512's instructions (F and VL) on 256-bit registers: it has
// rotations and functions of three operands, which AVX2 lacks.
#include "digest/sha256_lanes8.h"

void sha256_compress_avx512vl(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    sha256_compress_lanes<Eight>(states, blocks, count);
}
