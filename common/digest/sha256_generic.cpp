// SHA-256 on processors for which there is no implementation of their own.
#include "digest/sha256_blocks.h"

Sha256BlocksFn sha256_blocks_native() {
    return nullptr;
}

Sha256PairFn sha256_pair_native() {
    return nullptr;
}
