// Builds little-endian byte images for tests and hands them to the library as
// streams, so hostile and odd files can be written out byte by byte.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <unistd.h>

namespace kelqtest {

class byte_image {
public:
    byte_image &u8(uint32_t v) {
        bytes_.push_back(static_cast<uint8_t>(v));
        return *this;
    }
    byte_image &u16(uint32_t v) { return u8(v).u8(v >> 8); }
    byte_image &u32(uint32_t v) { return u16(v).u16(v >> 16); }
    byte_image &u64(uint64_t v) { return u32(static_cast<uint32_t>(v)).u32(static_cast<uint32_t>(v >> 32)); }
    // Four characters as they stand in the file.
    byte_image &id(const char *fourcc) { return text(std::string(fourcc, 4)); }
    byte_image &text(const std::string &s) {
        for (char c : s) u8(static_cast<uint8_t>(c));
        return *this;
    }
    byte_image &fill(size_t count, uint8_t value = 0) {
        bytes_.insert(bytes_.end(), count, value);
        return *this;
    }
    byte_image &raw(std::initializer_list<uint8_t> list) {
        bytes_.insert(bytes_.end(), list);
        return *this;
    }
    byte_image &append(const byte_image &other) {
        bytes_.insert(bytes_.end(), other.bytes_.begin(), other.bytes_.end());
        return *this;
    }
    // A whole chunk: id, size and body, plus a pad byte after an odd size.
    byte_image &chunk(const char *fourcc, const byte_image &body, bool pad = true) {
        id(fourcc).u32(static_cast<uint32_t>(body.size())).append(body);
        if (pad && body.size() % 2 != 0) u8(0);
        return *this;
    }
    // A LIST or RIFF whose size covers the type and the body.
    byte_image &list(const char *fourcc, const char *type, const byte_image &body) {
        id(fourcc).u32(static_cast<uint32_t>(body.size() + 4)).id(type).append(body);
        return *this;
    }

    // Overwrite bytes already built, for back-patched sizes and corruptions.
    byte_image &set_u8(size_t at, uint32_t v) {
        bytes_.at(at) = static_cast<uint8_t>(v);
        return *this;
    }
    byte_image &set_u32(size_t at, uint32_t v) {
        for (size_t i = 0; i < 4; ++i) set_u8(at + i, v >> (8 * i));
        return *this;
    }

    size_t size() const { return bytes_.size(); }
    const std::vector<uint8_t> &bytes() const { return bytes_; }
    std::vector<uint8_t> prefix(size_t n) const { return {bytes_.begin(), bytes_.begin() + static_cast<long>(n)}; }
    // The first n bytes as an image of their own, for truncated files.
    byte_image head(size_t n) const {
        byte_image b;
        b.bytes_ = prefix(n < bytes_.size() ? n : bytes_.size());
        return b;
    }
    // Position of the first four characters equal to fourcc at or after from; -1 when there are none.
    int64_t find(const char *fourcc, size_t from = 0) const {
        if (from >= bytes_.size()) return -1;
        const auto it = std::search(bytes_.begin() + static_cast<long>(from), bytes_.end(), fourcc, fourcc + 4);
        return it == bytes_.end() ? -1 : static_cast<int64_t>(it - bytes_.begin());
    }

private:
    std::vector<uint8_t> bytes_;
};

// Writes the bytes to the descriptor, as many as it takes.
inline void write_all(int fd, const std::vector<uint8_t> &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
}

// A temporary file holding the bytes, positioned at its start; closed on scope exit.
class temp_stream {
public:
    temp_stream() : f_(std::tmpfile()) {}
    explicit temp_stream(const std::vector<uint8_t> &bytes) : f_(std::tmpfile()) {
        if (f_ != nullptr && !bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), f_);
        if (f_ != nullptr) std::rewind(f_);
    }
    explicit temp_stream(const byte_image &image) : temp_stream(image.bytes()) {}
    ~temp_stream() {
        if (f_ != nullptr) std::fclose(f_);
    }
    temp_stream(const temp_stream &) = delete;
    temp_stream &operator=(const temp_stream &) = delete;

    FILE *get() const { return f_; }
    operator FILE *() const { return f_; }

    // Every byte in the file, whatever the position; the position is kept.
    std::vector<uint8_t> contents() const {
        std::fflush(f_);
        const long here = std::ftell(f_);
        std::fseek(f_, 0, SEEK_END);
        std::vector<uint8_t> out(static_cast<size_t>(std::ftell(f_)));
        std::rewind(f_);
        if (!out.empty() && std::fread(out.data(), 1, out.size(), f_) != out.size()) out.clear();
        std::fseek(f_, here, SEEK_SET);
        return out;
    }
    long tell() const { return std::ftell(f_); }

protected:
    explicit temp_stream(FILE *f) : f_(f) {}

private:
    FILE *f_;
};

// A stream over a pipe that already holds the bytes and whose writing end is
// closed: it reads like a file but has no position and cannot seek. Small
// images only: the pipe's buffer must take every byte at once.
class pipe_stream : public temp_stream {
public:
    explicit pipe_stream(const std::vector<uint8_t> &bytes) : temp_stream(read_end(bytes)) {}
    explicit pipe_stream(const byte_image &image) : pipe_stream(image.bytes()) {}

private:
    static FILE *read_end(const std::vector<uint8_t> &bytes) {
        int fds[2];
        if (pipe(fds) != 0) return nullptr;
        write_all(fds[1], bytes);
        ::close(fds[1]);
        FILE *f = fdopen(fds[0], "rb");
        if (f == nullptr) ::close(fds[0]);
        return f;
    }
};

// A stream on which every write fails: a read-only stream.
inline FILE *failing_write_stream() { return std::fopen("/dev/null", "rb"); }

}  // namespace kelqtest
