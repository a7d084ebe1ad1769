// Little-endian loads and stores on byte buffers, by explicit shifting, so the
// result is the same on every host byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kelq {

template <typename T>
constexpr T load_le(const uint8_t *bytes) {
    static_assert(std::is_unsigned<T>::value, "little-endian loads are unsigned");
    T value = 0;
    for (size_t i = sizeof(T); i-- > 0;) value = static_cast<T>((value << 8) | bytes[i]);
    return value;
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
