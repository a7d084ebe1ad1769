// Feeds arbitrary bytes to aviout_repair, through a file since the call
// takes a path. A file it repairs must then be whole: a second repair gives
// 0 and writes nothing, and the file is as long as the report says.
// Built as a libFuzzer target with clang, and as a corpus replayer in every
// test build.
#include "kelqavi.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

const std::string &scratch() {
    static std::string path;
    if (path.empty()) {
        char name[] = "/tmp/kelqavi-repair-fuzz-XXXXXX";
        const int fd = mkstemp(name);
        if (fd >= 0) ::close(fd);
        path = name;
        std::atexit([] { std::remove(path.c_str()); });
    }
    return path;
}

int64_t size_of(const char *path) {
    FILE *f = std::fopen(path, "rb");
    if (f == nullptr) return -1;
    std::fseek(f, 0, SEEK_END);
    const int64_t size = std::ftell(f);
    std::fclose(f);
    return size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = scratch().c_str();
    FILE *f = std::fopen(path, "wb");
    if (f == nullptr) return 0;
    const bool written = size == 0 || std::fwrite(data, 1, size, f) == size;
    std::fclose(f);
    if (!written) return 0;
    aviout_repair_report report;
    const int result = aviout_repair(path, data != nullptr && size > 0 ? data[size - 1] & 1 : 0, &report);
    if (result != 0 && result != 1 && result != 3) std::abort();
    if (result == 1) return 0;
    if (size_of(path) != report.repaired_size) std::abort();
    aviout_repair_report again;
    if (aviout_repair(path, data[size - 1] & 1, &again) != 0 || again.changed != 0) std::abort();
    return 0;
}
