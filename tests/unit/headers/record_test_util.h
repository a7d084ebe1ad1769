// Helpers shared by the header-record tests: record equality, and the bytes a
// writer puts on a fresh stream.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "kelqavi.h"
#include "support/byte_image.h"

// The records have no padding, so a byte comparison compares every field.
#define KELQTEST_RECORD_EQ(T) \
    inline bool operator==(const T &a, const T &b) { return std::memcmp(&a, &b, sizeof(T)) == 0; }
KELQTEST_RECORD_EQ(avi_main_header)
KELQTEST_RECORD_EQ(avi_stream_header)
KELQTEST_RECORD_EQ(video_format)
KELQTEST_RECORD_EQ(audio_format)
KELQTEST_RECORD_EQ(caption_format)
#undef KELQTEST_RECORD_EQ

namespace kelqtest {

// A record of type T with every byte set to fill, to show which fields a
// reader left alone.
template <typename T>
T filled(uint8_t fill) {
    T r;
    std::memset(&r, fill, sizeof r);
    return r;
}

// Runs write(stream, record) on an empty stream; returns the result and the
// bytes in the file.
template <typename Fn, typename R>
std::vector<uint8_t> written(Fn write, const R *record, int *result = nullptr) {
    temp_stream s;
    const int r = static_cast<int>(write(record, s.get()));
    if (result != nullptr) *result = r;
    return s.contents();
}

}  // namespace kelqtest
