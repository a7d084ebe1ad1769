// What the fuzz targets share: a scratch file per process for the calls that
// take a path, a reader of the fuzzed bytes, a check that stops the run with
// a message, and a guard that catches an allocation larger than the input
// allows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

// A path of this process's own under $TMPDIR (or /dev/shm, else /tmp),
// removed when the process exits. Each name gets its own file.
const char *scratch_path(const char *name);
// Replaces the file at path with the bytes; false when it cannot be written.
bool write_file(const char *path, const uint8_t *data, size_t size);
// Length of the file at path, or -1.
int64_t file_length(const char *path);
// Appends the bytes of the file at path; false when it cannot be opened.
bool read_file(const char *path, std::vector<uint8_t> &bytes);

// Reports a broken invariant and aborts, so the fuzzer keeps the input.
void check(bool holds, const char *what);

// The fuzzed bytes, taken from the front; zeros once they run out.
class byte_source {
public:
    byte_source(const uint8_t *data, size_t size) : data_(data), left_(size) {}
    uint8_t u8() {
        if (left_ == 0) return 0;
        --left_;
        return *data_++;
    }
    // Low byte first; each byte is taken in its own statement, so every
    // compiler reads them in the same order.
    uint16_t u16() {
        const uint8_t low = u8();
        return static_cast<uint16_t>(low | u8() << 8);
    }
    uint32_t u32() {
        const uint16_t low = u16();
        return low | static_cast<uint32_t>(u16()) << 16;
    }
    bool empty() const { return left_ == 0; }

private:
    const uint8_t *data_;
    size_t left_;
};

// While armed, any single allocation above limit bytes aborts the run. Works
// where the sanitizers' allocator hooks exist (the fuzzers and the sanitize
// build); elsewhere it does nothing.
class allocation_guard {
public:
    explicit allocation_guard(size_t limit);
    ~allocation_guard();
    allocation_guard(const allocation_guard &) = delete;
    allocation_guard &operator=(const allocation_guard &) = delete;
};

}  // namespace fuzz
