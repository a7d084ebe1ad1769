// Files for the reader tests and a reader opened on one: forms whose movi
// list holds chosen chunks (positions noted as built), an idx1 describing
// them, stream lists with chosen timing.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/avi_image.h"

namespace kelqtest {

inline byte_image two_stream_hdrl() { return hdrl({video_strl("MJPG", "video one"), audio_strl("audio one")}); }

// A file whose header list holds the given stream lists (and any other list
// put among them), with one video frame in "movi".
inline byte_image streams_file(const std::vector<byte_image> &strls) {
    return avi_form(byte_image().append(hdrl(strls)).append(one_frame_movi()));
}

// A form: a header list (may be empty), "movi" with the given chunks, then
// what follows the movi list inside the form.
struct form_image {
    byte_image bytes;
    int64_t movi_list;  // position of the movi list's "LIST", from the form's start
    int64_t movi_data;  // its first chunk
};

inline form_image make_form(const char *form_type, const byte_image &header_list, const byte_image &movi_chunks,
                            const byte_image &after_movi = byte_image()) {
    const int64_t movi_list = 12 + static_cast<int64_t>(header_list.size());
    return {avi_form(byte_image().append(header_list).append(movi(movi_chunks)).append(after_movi), form_type),
            movi_list, movi_list + 12};
}

inline form_image main_form(const byte_image &movi_chunks, const byte_image &after_movi = byte_image()) {
    return make_form("AVI ", two_stream_hdrl(), movi_chunks, after_movi);
}

// A chunk to lay out: its id, its data, and its key-frame flag for idx1.
struct planned {
    std::string id;
    byte_image data;
    bool key = false;
    bool indexed = true;  // false: in movi but not in idx1 (JUNK, say)
};

struct laid {
    std::string id;
    int64_t header;  // file position of the chunk's id
    uint32_t size;
    bool key;
};

struct indexed_file {
    byte_image bytes;
    int64_t movi_data = 0;  // the first chunk of movi
    std::vector<laid> chunks;
    std::vector<size_t> index_order;  // chunks[] named by each idx1 entry, in entry order
    // idx1-style offset of a header: counted from the "movi" list type.
    uint64_t relative(int64_t header) const { return static_cast<uint64_t>(header - (movi_data - 4)); }
    uint64_t header(size_t chunk) const { return static_cast<uint64_t>(chunks[chunk].header); }
};

enum class index_offsets { movi_relative, absolute };

// RIFF "AVI " [hdrl] [movi with the chunks] [idx1]; with_index false leaves
// out the idx1 chunk.
inline indexed_file make_indexed(const byte_image &header_list, const std::vector<planned> &chunks,
                                 index_offsets offsets = index_offsets::movi_relative, bool with_index = true) {
    indexed_file out;
    out.movi_data = 24 + static_cast<int64_t>(header_list.size());
    byte_image body, idx1;
    int64_t at = out.movi_data;
    for (size_t i = 0; i < chunks.size(); ++i) {
        const planned &c = chunks[i];
        body.chunk(c.id.c_str(), c.data);
        out.chunks.push_back({c.id, at, static_cast<uint32_t>(c.data.size()), c.key});
        if (c.indexed) {
            const uint64_t offset = offsets == index_offsets::absolute ? static_cast<uint64_t>(at) : out.relative(at);
            idx1.id(c.id.c_str()).u32(c.key ? 0x10 : 0).u32(static_cast<uint32_t>(offset)).u32(static_cast<uint32_t>(c.data.size()));
            out.index_order.push_back(i);
        }
        at += 8 + static_cast<int64_t>((c.data.size() + 1) / 2 * 2);
    }
    byte_image form = byte_image().append(header_list).append(movi(body));
    if (with_index) form.chunk("idx1", idx1);
    out.bytes = avi_form(form);
    return out;
}

// Stream lists with chosen timing.
inline byte_image video_list(uint32_t scale, uint32_t rate, const char *compression = "XVID") {
    return strl(byte_image().append(strh_chunk("vids", compression, scale, rate, 0)).append(strf_video_chunk(64, 48, compression)));
}

// An audio format with a chosen block alignment: 1152 or 576 for one MPEG
// audio frame a chunk, anything else for audio timed by bytes.
// The format's average byte rate is the stream header's rate unless given.
inline byte_image audio_list(uint16_t tag, uint32_t samples_per_sec, uint16_t block_align, uint32_t strh_scale,
                             uint32_t strh_rate, uint32_t bytes_per_second = 0) {
    byte_image f;
    f.u16(tag).u16(1).u32(samples_per_sec).u32(bytes_per_second != 0 ? bytes_per_second : strh_rate);
    f.u16(block_align).u16(16).u16(0);
    return strl(byte_image().append(strh_chunk("auds", "\0\0\0\0", strh_scale, strh_rate, 0)).append(byte_image().chunk("strf", f)));
}

// Data of a given size whose bytes tell chunks apart.
inline byte_image filler(size_t size, uint32_t seed) {
    byte_image b;
    for (size_t i = 0; i < size; ++i) b.u8((seed * 31 + i) & 0xFF);
    return b;
}

// Bytes of a caller's buffer the walk did not write.
constexpr uint8_t untouched = 0xEE;

inline std::string as_text(const std::vector<uint8_t> &bytes) { return std::string(bytes.begin(), bytes.end()); }


// One aviin_get_next_chunk2 call with a buffer of exactly `capacity` bytes,
// so a write beyond it is caught by the address sanitizer.
struct chunk_call {
    int result = -1;
    uint32_t type = 99, stream = 99;
    int32_t size = 0;
    std::string name;
    std::vector<uint8_t> data;  // the first `size` bytes, or the whole buffer when size is out of range
};

inline chunk_call next_chunk(aviin_handle *h, int32_t capacity = 256) {
    const size_t allocated = capacity > 0 ? static_cast<size_t>(capacity) : 0;
    std::unique_ptr<uint8_t[]> buffer(new uint8_t[allocated]);
    std::memset(buffer.get(), untouched, allocated);
    char name[5] = {'?', '?', '?', '?', '?'};
    chunk_call c;
    c.size = capacity;
    c.result = aviin_get_next_chunk2(h, &c.type, &c.stream, buffer.get(), &c.size, name);
    if (name[4] == '\0') c.name = name;
    const bool in_range = c.size >= 0 && static_cast<size_t>(c.size) <= allocated;
    c.data.assign(buffer.get(), buffer.get() + (in_range ? static_cast<size_t>(c.size) : allocated));
    return c;
}

struct header_call { int result = -1; uint32_t type = 99, stream = 99; uint64_t offset = 0; uint32_t size = 0; };

inline header_call next_header(aviin_handle *h) {
    header_call c;
    c.result = aviin_get_next_chunk_type(h, &c.type, &c.stream, &c.offset, &c.size);
    return c;
}

// A reader opened on an image (with tolerances when given); closed at scope
// exit unless the test let it go (a call that released it).
class reader {
public:
    explicit reader(const byte_image &image, uint32_t swapped_ids = 0, uint32_t tolerances = 0)
        : file_(image), h_(aviin_open_tolerant(file_.path(), swapped_ids, tolerances)) {}
    ~reader() { aviin_close(h_); }
    reader(const reader &) = delete;
    reader &operator=(const reader &) = delete;
    aviin_handle *get() const { return h_; }
    operator aviin_handle *() const { return h_; }
    void released() { h_ = nullptr; }

private:
    temp_file file_;
    aviin_handle *h_;
};

}  // namespace kelqtest
