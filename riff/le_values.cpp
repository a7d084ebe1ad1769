// Little-endian values on a stream, and their byte-buffer conversions.
#include "kelqavi.h"
#include "riff/le_bytes.h"

namespace {

// A read fails only when no byte arrives; a short read keeps the missing high
// bytes at zero, so a truncated last value does not spoil a whole record.
template <typename T>
int read_le(T *dst, FILE *stream) {
    uint8_t bytes[sizeof(T)] = {};
    if (file_read(stream, bytes, sizeof(T)) == 0) return 1;
    if (dst != nullptr) *dst = kelq::load_le<T>(bytes);
    return 0;
}

template <typename T>
int write_le(T value, FILE *stream) {
    uint8_t bytes[sizeof(T)];
    kelq::store_le<T>(value, bytes);
    return file_write(stream, bytes, sizeof(T)) == sizeof(T) ? 0 : 1;
}

}  // namespace

extern "C" {

int read_val8(uint8_t *dst, FILE *stream) { return read_le<uint8_t>(dst, stream); }
int read_val16(uint16_t *dst, FILE *stream) { return read_le<uint16_t>(dst, stream); }
int read_val32(uint32_t *dst, FILE *stream) { return read_le<uint32_t>(dst, stream); }
int read_val64(uint64_t *dst, FILE *stream) { return read_le<uint64_t>(dst, stream); }

int write_val8(uint32_t value, FILE *stream) { return write_le<uint8_t>(static_cast<uint8_t>(value), stream); }
int write_val16(uint32_t value, FILE *stream) { return write_le<uint16_t>(static_cast<uint16_t>(value), stream); }
int write_val32(uint32_t value, FILE *stream) { return write_le<uint32_t>(value, stream); }
int write_val64(uint64_t value, FILE *stream) { return write_le<uint64_t>(value, stream); }

uint16_t str2short(const uint8_t *bytes) { return kelq::load_le<uint16_t>(bytes); }
uint32_t str2long(const uint8_t *bytes) { return kelq::load_le<uint32_t>(bytes); }
uint64_t str2longlong(const uint8_t *bytes) { return kelq::load_le<uint64_t>(bytes); }
void short2str(uint16_t value, uint8_t *bytes) { kelq::store_le<uint16_t>(value, bytes); }
void long2str(uint32_t value, uint8_t *bytes) { kelq::store_le<uint32_t>(value, bytes); }
void longlong2str(uint64_t value, uint8_t *bytes) { kelq::store_le<uint64_t>(value, bytes); }

}  // extern "C"
