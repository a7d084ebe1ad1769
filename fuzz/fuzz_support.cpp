#include "fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

// The sanitizers' allocator hook; absent (null) in builds without them.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void *, size_t),
                                                         void (*free_hook)(const volatile void *))
    __attribute__((weak));

namespace fuzz {

namespace {

constexpr int max_scratch_files = 8;
std::string scratch_files[max_scratch_files];
const char *scratch_names[max_scratch_files];

void remove_scratch_files() {
    for (const std::string &path : scratch_files)
        if (!path.empty()) unlink(path.c_str());
}

std::string scratch_dir() {
    const char *tmp = std::getenv("TMPDIR");
    if (tmp != nullptr && *tmp != '\0') return tmp;
    struct stat st;
    if (stat("/dev/shm", &st) == 0 && S_ISDIR(st.st_mode) && access("/dev/shm", W_OK) == 0) return "/dev/shm";
    return "/tmp";
}

size_t armed_limit = 0;   // 0: not armed

void on_malloc(const volatile void *, size_t size) {
    if (armed_limit == 0 || size <= armed_limit) return;
    const size_t limit = armed_limit;
    armed_limit = 0;
    std::fprintf(stderr, "fuzz: an allocation of %zu bytes, above the %zu this input allows\n", size, limit);
    std::abort();
}

void on_free(const volatile void *) {}

}  // namespace

const char *scratch_path(const char *name) {
    for (int i = 0; i < max_scratch_files; ++i) {
        if (scratch_names[i] != nullptr && std::strcmp(scratch_names[i], name) == 0) return scratch_files[i].c_str();
        if (scratch_names[i] != nullptr) continue;
        if (i == 0) std::atexit(remove_scratch_files);
        scratch_names[i] = name;
        scratch_files[i] = scratch_dir() + "/kelqavi-fuzz-" + std::to_string(getpid()) + "-" + name;
        return scratch_files[i].c_str();
    }
    std::fprintf(stderr, "fuzz: too many scratch files\n");
    std::abort();
}

bool write_file(const char *path, const uint8_t *data, size_t size) {
    FILE *f = std::fopen(path, "wb");
    if (f == nullptr) return false;
    const bool written = size == 0 || std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && written;
}

bool read_file(const char *path, std::vector<uint8_t> &bytes) {
    FILE *f = std::fopen(path, "rb");
    if (f == nullptr) return false;
    uint8_t block[4096];
    size_t n;
    while ((n = std::fread(block, 1, sizeof block, f)) > 0) bytes.insert(bytes.end(), block, block + n);
    std::fclose(f);
    return true;
}

int64_t file_length(const char *path) {
    struct stat st;
    return stat(path, &st) == 0 ? static_cast<int64_t>(st.st_size) : -1;
}

void check(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz: invariant broken: %s\n", what);
    std::abort();
}

allocation_guard::allocation_guard(size_t limit) {
    static const bool hooked = __sanitizer_install_malloc_and_free_hooks != nullptr &&
                               __sanitizer_install_malloc_and_free_hooks(on_malloc, on_free) != 0;
    if (hooked) armed_limit = limit;
}

allocation_guard::~allocation_guard() { armed_limit = 0; }

}  // namespace fuzz
