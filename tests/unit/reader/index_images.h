// Files with a legacy index for the index, key-frame and frame-position
// tests: chunks laid out in a movi list with their header positions noted as
// built, and an idx1 describing them (or lying about them, on request).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/avi_image.h"

namespace kelqtest {

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
    int64_t movi_list = 0;  // the movi "LIST"
    int64_t movi_data = 0;  // its first chunk
    std::vector<laid> chunks;
    std::vector<size_t> index_order;  // chunks[] named by each idx1 entry, in entry order
    // idx1-style offset of a header: counted from the "movi" list type.
    uint64_t relative(int64_t header) const { return static_cast<uint64_t>(header - (movi_data - 4)); }
};

enum class index_offsets { movi_relative, absolute };

// RIFF "AVI " [hdrl] [movi with the chunks] [idx1]; with_index false leaves
// out the idx1 chunk.
inline indexed_file make_indexed(const byte_image &header_list, const std::vector<planned> &chunks,
                                 index_offsets offsets = index_offsets::movi_relative, bool with_index = true) {
    indexed_file out;
    out.movi_list = 12 + static_cast<int64_t>(header_list.size());
    out.movi_data = out.movi_list + 12;
    byte_image body;
    int64_t at = out.movi_data;
    for (const planned &c : chunks) {
        body.chunk(c.id.c_str(), c.data);
        out.chunks.push_back({c.id, at, static_cast<uint32_t>(c.data.size()), c.key});
        at += 8 + static_cast<int64_t>((c.data.size() + 1) / 2 * 2);
    }
    byte_image idx1;
    for (size_t i = 0; i < chunks.size(); ++i) {
        if (!chunks[i].indexed) continue;
        const laid &c = out.chunks[i];
        const uint64_t offset = offsets == index_offsets::absolute ? static_cast<uint64_t>(c.header) : out.relative(c.header);
        idx1.id(c.id.c_str()).u32(c.key ? 0x10 : 0).u32(static_cast<uint32_t>(offset)).u32(c.size);
        out.index_order.push_back(i);
    }
    byte_image form;
    form.append(header_list).append(movi(body));
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

// A bitmap subtitle stream: a video stream whose compression code is KQSB.
inline byte_image bitmap_subtitle_list() { return video_list(1, 25, "KQSB"); }

// Data of a given size whose bytes tell chunks apart.
inline byte_image filler(size_t size, uint32_t seed) {
    byte_image b;
    for (size_t i = 0; i < size; ++i) b.u8((seed * 31 + i) & 0xFF);
    return b;
}

// An opened reader on an image; closed at scope exit.
class open_file {
public:
    explicit open_file(const byte_image &image) : file_(image), h_(aviin_open(file_.path(), 0)) {}
    ~open_file() { aviin_close(h_); }
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    aviin_handle *get() const { return h_; }
    operator aviin_handle *() const { return h_; }

private:
    temp_file file_;
    aviin_handle *h_;
};

}  // namespace kelqtest
