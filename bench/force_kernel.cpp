// Linked into a copy of the program: uses the kernel that the environment names for everything, in
// its tasks too.
#include "digest/sha256_kernel.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

static const Sha256Kernel *named(const char *name) {
    for (const Sha256Kernel *kernel : sha256_kernels())
        if (name != nullptr && strcmp(name, kernel->name) == 0)
            return kernel;
    fputs("KESTREL_KERNEL names no kernel of this processor\n", stderr);
    exit(2);
}

static const bool forced = [] {
    sha256_force_kernel(named(getenv("KESTREL_KERNEL")));
    return true;
}();
