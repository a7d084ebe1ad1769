// On-disk sizes of the header records, and field readers shared by them.
#pragma once

#include "kelqavi.h"

#include <cstdint>
#include <type_traits>

namespace kelq {

constexpr uint32_t avih_size = 56;
constexpr uint32_t strh_size = 56;
constexpr uint32_t strf_video_size = 40;
constexpr uint32_t strf_audio_fixed_size = 16;   // up to and excluding cbSize
constexpr uint32_t strf_audio_base_size = 18;    // with cbSize
constexpr uint32_t strf_audio_extra_capacity = 22;
constexpr uint32_t strf_caption_size = 8;
constexpr uint32_t strd_prefix_size = 8;         // header word and data size
constexpr uint32_t mp3_extra_size = 12;

static_assert(sizeof(audio_format::extra) == strf_audio_extra_capacity, "audio extra area");

// Reads one little-endian field of the field's own width into it; a failed
// read leaves the field untouched. Signed fields take the bits as they are.
template <typename T>
int read_field(T &field, FILE *stream) {
    static_assert(std::is_integral<T>::value, "integer fields only");
    if constexpr (sizeof(T) == 1) {
        uint8_t v = 0;
        const int r = read_val8(&v, stream);
        if (r == 0) field = static_cast<T>(v);
        return r;
    } else if constexpr (sizeof(T) == 2) {
        uint16_t v = 0;
        const int r = read_val16(&v, stream);
        if (r == 0) field = static_cast<T>(v);
        return r;
    } else {
        static_assert(sizeof(T) == 4, "32-bit field");
        uint32_t v = 0;
        const int r = read_val32(&v, stream);
        if (r == 0) field = static_cast<T>(v);
        return r;
    }
}

template <typename T>
int write_field(T field, FILE *stream) {
    static_assert(std::is_integral<T>::value, "integer fields only");
    if constexpr (sizeof(T) == 2) {
        return write_val16(static_cast<uint16_t>(field), stream);
    } else {
        static_assert(sizeof(T) == 4, "32-bit field");
        return write_val32(static_cast<uint32_t>(field), stream);
    }
}

// Fields are read and written in argument order (a comma fold is sequenced).
template <typename... T>
int read_fields(FILE *stream, T &...fields) {
    int status = 0;
    ((status |= read_field(fields, stream)), ...);
    return status;
}

template <typename... T>
int write_fields(FILE *stream, const T &...fields) {
    int status = 0;
    ((status |= write_field(fields, stream)), ...);
    return status;
}

// The 40 bytes of a bitmap header (the part of a video strf after the chunk
// header), in order; the stream stands at the header's first byte.
int read_bitmap_fields(video_format *r, FILE *stream);

}  // namespace kelq
