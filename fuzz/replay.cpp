// Runs a target once over each file named, for builds without libFuzzer.
#include "support/scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    for (int i = 1; i < argc; i++) {
        const std::string bytes = read_file(argv[i]);
        fprintf(stderr, "%s\n", argv[i]); // the last one is the one that fails
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    return argc > 1 ? 0 : 1;
}
