// Little-endian loads and stores on byte buffers, by explicit shifting, so the
// result is the same on every host byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kelq {

// Written out per size: compilers turn each into one load on a
// little-endian host (a loop over the bytes stays a loop).
template <typename T>
constexpr T load_le(const uint8_t *bytes) {
    static_assert(std::is_unsigned<T>::value, "little-endian loads are unsigned");
    if constexpr (sizeof(T) == 1) {
        return bytes[0];
    } else if constexpr (sizeof(T) == 2) {
        return static_cast<T>(bytes[0] | bytes[1] << 8);
    } else if constexpr (sizeof(T) == 4) {
        return static_cast<T>(uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
                              uint32_t{bytes[3]} << 24);
    } else {
        static_assert(sizeof(T) == 8, "little-endian loads of 1, 2, 4 or 8 bytes");
        return static_cast<T>(uint64_t{load_le<uint32_t>(bytes)} | uint64_t{load_le<uint32_t>(bytes + 4)} << 32);
    }
}

template <typename T>
inline void store_le(T value, uint8_t *bytes) {
    static_assert(std::is_unsigned<T>::value, "little-endian stores are unsigned");
    for (size_t i = 0; i < sizeof(T); ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

// FourCC of a four-character literal, least significant byte first.
constexpr uint32_t fourcc(const char (&text)[5]) {
    return static_cast<uint32_t>(static_cast<uint8_t>(text[0])) |
           static_cast<uint32_t>(static_cast<uint8_t>(text[1])) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[2])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[3])) << 24;
}

static_assert(fourcc("RIFF") == 0x46464952u, "first character is the least significant byte");

}  // namespace kelq
