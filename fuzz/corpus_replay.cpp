// Runs a fuzz target's entry point over files named on the command line, so
// the inputs kept in the corpus are replayed by every test build.
#include "fuzz_support.h"

#include <cstdint>
#include <cstdio>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<uint8_t> bytes;
        if (!fuzz::read_file(argv[i], bytes)) {
            std::fprintf(stderr, "cannot open %s\n", argv[i]);
            return 1;
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++replayed;
    }
    std::printf("replayed %d inputs\n", replayed);
    return 0;
}
