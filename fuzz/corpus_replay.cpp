// Runs a fuzz target's entry point over files named on the command line, so
// the inputs kept in the corpus are replayed by every test build.
#include <cstdint>
#include <cstdio>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        FILE *f = std::fopen(argv[i], "rb");
        if (f == nullptr) {
            std::fprintf(stderr, "cannot open %s\n", argv[i]);
            return 1;
        }
        std::vector<uint8_t> bytes;
        uint8_t buffer[4096];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.insert(bytes.end(), buffer, buffer + n);
        std::fclose(f);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++replayed;
    }
    std::printf("replayed %d inputs\n", replayed);
    return 0;
}
