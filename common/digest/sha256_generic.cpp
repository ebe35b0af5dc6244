// SHA-256 on processors without an implementation of their own.
#include "digest/sha256_blocks.h"

Sha256BlocksFn sha256_blocks_native() {
    return nullptr;
}

Sha256PairFn sha256_pair_native() {
    return nullptr;
}
