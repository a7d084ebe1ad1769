// Pieces of AVI files as byte images: header records and whole minimal files,
// written out to temporary paths for the calls that open by name.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/byte_image.h"

namespace kelqtest {

inline byte_image avih_chunk(uint32_t streams, uint32_t width = 64, uint32_t height = 48) {
    byte_image b;
    b.u32(40000).u32(0).u32(0).u32(0x10).u32(1).u32(0).u32(streams).u32(0).u32(width).u32(height);
    b.fill(16);
    return byte_image().chunk("avih", b);
}

inline byte_image strh_chunk(const char *type, const char *handler, uint32_t scale, uint32_t rate,
                             uint32_t length, uint32_t quality = 0) {
    byte_image b;
    b.id(type).id(handler).u32(0).u16(0).u16(0).u32(0).u32(scale).u32(rate).u32(0).u32(length).u32(0);
    b.u32(quality).u32(0).u16(0).u16(0).u16(64).u16(48);
    return byte_image().chunk("strh", b);
}

// A bitmap header; extra bytes after it make the chunk longer than biSize.
inline byte_image strf_video_chunk(int32_t width, int32_t height, const char *compression, size_t extra = 0) {
    byte_image b;
    b.u32(40).u32(static_cast<uint32_t>(width)).u32(static_cast<uint32_t>(height)).u16(1).u16(24).id(compression);
    b.u32(0).u32(0).u32(0).u32(0).u32(0).fill(extra, 0x77);
    return byte_image().chunk("strf", b);
}

inline byte_image strf_audio_chunk(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits,
                                   const std::vector<uint8_t> &extra = {}) {
    byte_image b;
    const uint16_t block = static_cast<uint16_t>(channels * ((bits + 7) / 8));
    b.u16(tag).u16(channels).u32(rate).u32(rate * block).u16(block).u16(bits).u16(static_cast<uint32_t>(extra.size()));
    for (uint8_t x : extra) b.u8(x);
    return byte_image().chunk("strf", b);
}

inline byte_image strf_caption_chunk(uint16_t v0, uint16_t v1, uint16_t v2, uint16_t v3) {
    return byte_image().chunk("strf", byte_image().u16(v0).u16(v1).u16(v3).u16(v2));
}

// A name as the writer stores it: odd lengths get a zero byte inside the size.
inline byte_image strn_chunk(const std::string &name) {
    return byte_image().chunk("strn", byte_image().text(name).fill(name.size() % 2));
}

inline byte_image strd_chunk(uint32_t header, const std::vector<uint8_t> &data) {
    byte_image b;
    b.u32(header).u32(static_cast<uint32_t>(data.size()));
    for (uint8_t x : data) b.u8(x);
    // The writer puts no pad byte after an odd block, and the reader reads none.
    return byte_image().chunk("strd", b, false);
}

inline byte_image strl(const byte_image &chunks) { return byte_image().list("LIST", "strl", chunks); }

// A stream header list of the two headers, and a name when one is given.
inline byte_image strl(const byte_image &strh, const byte_image &strf, const std::string &name) {
    byte_image b;
    b.append(strh).append(strf);
    if (!name.empty()) b.append(strn_chunk(name));
    return strl(b);
}

inline byte_image video_strl(const char *compression = "MJPG", const std::string &name = "") {
    return strl(strh_chunk("vids", compression, 1, 25, 10), strf_video_chunk(64, 48, compression), name);
}

inline byte_image audio_strl(const std::string &name = "") {
    return strl(strh_chunk("auds", "\0\0\0\0", 1, 8000, 8000), strf_audio_chunk(1, 1, 8000, 8), name);
}

inline byte_image text_strl(const std::string &name) {
    return strl(strh_chunk("txts", "\0\0\0\0", 1, 1000, 0), strf_caption_chunk(1, 2, 3, 4), name);
}

inline byte_image hdrl(const std::vector<byte_image> &strls) {
    byte_image b;
    b.append(avih_chunk(static_cast<uint32_t>(strls.size())));
    for (const byte_image &s : strls) b.append(s);
    return byte_image().list("LIST", "hdrl", b);
}

inline byte_image movi(const byte_image &chunks) { return byte_image().list("LIST", "movi", chunks); }

inline byte_image one_frame_movi() { return movi(byte_image().chunk("00dc", byte_image().text("frame"))); }

// RIFF "AVI " around the given lists and chunks.
inline byte_image avi_form(const byte_image &body, const char *form = "AVI ") {
    return byte_image().list("RIFF", form, body);
}

// A file on disk holding the bytes; removed on scope exit.
class temp_file {
public:
    explicit temp_file(const std::vector<uint8_t> &bytes) {
        char name[] = "/tmp/kelqavi-test-XXXXXX";
        const int fd = mkstemp(name);
        if (fd >= 0) {
            write_all(fd, bytes);
            ::close(fd);
            path_ = name;
        }
    }
    explicit temp_file(const byte_image &image) : temp_file(image.bytes()) {}
    ~temp_file() {
        if (!path_.empty()) std::remove(path_.c_str());
    }
    temp_file(const temp_file &) = delete;
    temp_file &operator=(const temp_file &) = delete;
    const char *path() const { return path_.c_str(); }

private:
    std::string path_;
};

}  // namespace kelqtest
