#include "package.h"

#include "hash.h"
#include "trace.h"
#include "vector.h"

void package_finish() {
    if ((trace_flags & TRACE_ADT) == 0)
        return;
    hash_masterReport();
    vec_masterReport();
}
