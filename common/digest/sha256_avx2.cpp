// Eight messages at a time, with AVX2.
#include "digest/sha256_lanes8.h"

void sha256_compress_avx2(uint32_t *const *states, const uint8_t *const *blocks, size_t count) {
    sha256_compress_lanes<Eight>(states, blocks, count);
}
