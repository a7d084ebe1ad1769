// Helpers for the writer's and the repair's tests: scratch paths, stream
// records, writers opened with a few streams, and reading a written file
// back as bytes and through the reader, so that layouts are checked against
// the bytes on disk rather than the writer's own bookkeeping.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "kelqavi.h"
#include "support/avi_image.h"

namespace kelqtest {

// A unique empty file in /tmp, removed on scope exit; the writer truncates it.
class scratch_path : public temp_file {
public:
    scratch_path() : temp_file(std::vector<uint8_t>{}) {}
    const char *c_str() const { return path(); }
    operator const char *() const { return path(); }
};

inline std::vector<uint8_t> file_bytes(const char *path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The file at path made to hold the first n bytes (all by default).
inline void put_file(const char *path, const std::vector<uint8_t> &bytes, size_t n = SIZE_MAX) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(std::min(n, bytes.size())));
    ASSERT_TRUE(out.good()) << path;
}

inline uint32_t le32(const std::vector<uint8_t> &b, size_t at) {
    return b.at(at) | b.at(at + 1) << 8 | b.at(at + 2) << 16 | static_cast<uint32_t>(b.at(at + 3)) << 24;
}
inline uint64_t le64(const std::vector<uint8_t> &b, size_t at) {
    return static_cast<uint64_t>(le32(b, at)) | static_cast<uint64_t>(le32(b, at + 4)) << 32;
}
inline std::string text4(const std::vector<uint8_t> &b, size_t at) {
    return std::string(reinterpret_cast<const char *>(b.data() + at), 4);
}
inline std::string id4(const char *s) { return std::string(s, 4); }
// n bytes of b from at; fewer when b ends first.
inline std::vector<uint8_t> span(const std::vector<uint8_t> &b, size_t at, size_t n) {
    at = std::min(at, b.size());
    return std::vector<uint8_t>(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(std::min(at + n, b.size())));
}

// Expects each {offset, value} pair as a little-endian 32-bit word at base + offset.
inline void expect_words(const std::vector<uint8_t> &b, size_t base,
                         std::initializer_list<std::pair<size_t, uint32_t>> words) {
    for (const auto &w : words) EXPECT_EQ(le32(b, base + w.first), w.second) << "at +" << w.first;
}

// One chunk of a list: where its id is, the id and size as stored, and the
// list type for LIST and RIFF chunks.
struct chunk_at {
    size_t pos;
    std::string id;
    uint32_t size;
    std::string type;
    size_t data() const { return pos + 8; }
};

// The chunks of the list (or form) whose header is at list_pos, as a reader
// following sizes and pad bytes sees them; stops at the list's end or at
// the end of the bytes.
inline std::vector<chunk_at> children(const std::vector<uint8_t> &b, size_t list_pos) {
    std::vector<chunk_at> out;
    const uint64_t end = static_cast<uint64_t>(list_pos) + 8 + le32(b, list_pos + 4);
    uint64_t at = list_pos + 12;
    while (at + 8 <= end && at + 8 <= b.size()) {
        chunk_at c{static_cast<size_t>(at), text4(b, static_cast<size_t>(at)), le32(b, static_cast<size_t>(at) + 4), ""};
        if ((c.id == "LIST" || c.id == "RIFF") && at + 12 <= b.size()) c.type = text4(b, c.pos + 8);
        out.push_back(c);
        at += 8 + static_cast<uint64_t>(c.size) + (c.size & 1);
    }
    return out;
}

// The first chunk of a list with the given id (and list type); pos SIZE_MAX when none.
inline chunk_at find_child(const std::vector<uint8_t> &b, size_t list_pos, const char *id, const char *type = nullptr) {
    for (const chunk_at &c : children(b, list_pos))
        if (c.id == id4(id) && (type == nullptr || c.type == id4(type))) return c;
    return chunk_at{SIZE_MAX, "", 0, ""};
}

// The strl lists of a form's hdrl, in order.
inline std::vector<chunk_at> strl_lists(const std::vector<uint8_t> &b, size_t form_pos = 0) {
    std::vector<chunk_at> out;
    const chunk_at hdrl = find_child(b, form_pos, "LIST", "hdrl");
    if (hdrl.pos == SIZE_MAX) return out;
    for (const chunk_at &c : children(b, hdrl.pos))
        if (c.id == "LIST" && c.type == "strl") out.push_back(c);
    return out;
}

// The avih payload of a form, and its values by index in file order (0
// micro-seconds per frame, 3 flags, 4 total frames, 6 streams, ...).
inline size_t avih_data(const std::vector<uint8_t> &b, size_t form_pos = 0) {
    return find_child(b, find_child(b, form_pos, "LIST", "hdrl").pos, "avih").data();
}
inline uint32_t avih_value(const std::vector<uint8_t> &b, int index, size_t form_pos = 0) {
    return le32(b, avih_data(b, form_pos) + 4 * static_cast<size_t>(index));
}
// The total frame count dmlh keeps; SIZE_MAX-sized 0 when there is none.
inline uint32_t dmlh_frames(const std::vector<uint8_t> &b) {
    const chunk_at odml = find_child(b, find_child(b, 0, "LIST", "hdrl").pos, "LIST", "odml");
    return odml.pos == SIZE_MAX ? 0 : le32(b, find_child(b, odml.pos, "dmlh").data());
}

// strh payload offsets.
enum strh_field : size_t {
    strh_type = 0, strh_handler = 4, strh_flags = 8, strh_initial = 16, strh_scale = 20, strh_rate = 24,
    strh_start = 28, strh_length = 32, strh_buffer = 36, strh_quality = 40, strh_sample = 44, strh_rect = 48
};

// The payload position of a stream's chunk with the given id inside its strl; SIZE_MAX when absent.
inline size_t strl_chunk(const std::vector<uint8_t> &b, int stream, const char *id, size_t form_pos = 0) {
    const std::vector<chunk_at> lists = strl_lists(b, form_pos);
    if (stream < 0 || static_cast<size_t>(stream) >= lists.size()) return SIZE_MAX;
    const chunk_at c = find_child(b, lists[static_cast<size_t>(stream)].pos, id);
    return c.pos == SIZE_MAX ? SIZE_MAX : c.data();
}
inline uint32_t strh_value(const std::vector<uint8_t> &b, int stream, strh_field field) {
    return le32(b, strl_chunk(b, stream, "strh") + field);
}

// The chunks of a form's movi list, in order; those with the given id only.
inline std::vector<chunk_at> movi_chunks(const std::vector<uint8_t> &b, size_t form_pos = 0, const char *id = nullptr) {
    const chunk_at movi = find_child(b, form_pos, "LIST", "movi");
    if (movi.pos == SIZE_MAX) return {};
    std::vector<chunk_at> out = children(b, movi.pos);
    if (id != nullptr)
        out.erase(std::remove_if(out.begin(), out.end(), [&](const chunk_at &c) { return c.id != id4(id); }), out.end());
    return out;
}

// Stream records as an application fills them. Names are not copied: keep
// the string alive until the setter returns.
template <typename Record>
Record named(Record r, const char *name) {
    if (name != nullptr) {
        r.name_length = static_cast<int32_t>(std::strlen(name));
        r.name = const_cast<char *>(name);
    }
    return r;
}

inline video_stream_format video_record(const char *compression = "MJPG", const char *name = nullptr,
                                        int32_t width = 64, int32_t height = 48, uint32_t scale = 1,
                                        uint32_t rate = 25, const char *handler = nullptr) {
    video_stream_format r{rate, scale, width, height, {}, {}, 0, 0, 0, 7500, 0, 0, nullptr, 0, nullptr, {}};
    std::memcpy(r.compression, compression, 4);
    std::memcpy(r.handler, handler != nullptr ? handler : compression, 4);
    return named(r, name);
}

inline audio_stream_format audio_record(uint32_t rate = 16000, const char *name = nullptr, uint32_t sample_size = 0,
                                        uint16_t cb_size = 0) {
    audio_stream_format r{3, 1, rate, 5, sample_size, {1, 1, rate, rate * 2, 2, 16, cb_size, {}}, {}, 0, nullptr, {}};
    for (uint16_t i = 0; i < cb_size && i < sizeof r.wave_format.extra; ++i)
        r.wave_format.extra[i] = static_cast<uint8_t>(0xA0 + i);
    return named(r, name);
}

inline caption_stream_format caption_record(const char *name = nullptr, uint16_t base = 0x0101) {
    caption_stream_format r{};
    for (int i = 0; i < 4; ++i) r.format.value[i] = static_cast<uint16_t>(base * (i + 1));
    return named(r, name);
}

// Chunk payloads that tell chunks apart: byte i is (seed + i * 7) & 0xFF.
inline std::vector<uint8_t> payload(uint32_t size, uint32_t seed) {
    std::vector<uint8_t> p(size);
    for (uint32_t i = 0; i < size; ++i) p[i] = static_cast<uint8_t>(seed + i * 7u);
    return p;
}

inline int put(aviout_handle *w, int32_t stream, uint32_t flags, const std::vector<uint8_t> &data) {
    return aviout_put_chunk(w, stream, flags, data.empty() ? nullptr : data.data(),
                            static_cast<uint32_t>(data.size()));
}

// Gives one stream of a kind by its letter: v video (0.04 s a frame), a
// 16-bit PCM audio at 16000 Hz (chunks of audio_seconds), t text caption,
// b bitmap caption, anything else a chapter stream.
inline int add_stream(aviout_handle *w, char kind, int32_t *s = nullptr, double audio_seconds = 0.04) {
    int32_t own = -1;
    if (s == nullptr) s = &own;
    const video_stream_format v = video_record();
    const audio_stream_format a = audio_record();
    const caption_stream_format c = caption_record("Chapter");
    const double frame = 0.04;
    switch (kind) {
    case 'v': return aviout_set_video_format(w, s, &v, &frame);
    case 'a': return aviout_set_audio_format(w, s, &a, &audio_seconds);
    case 't': return aviout_set_text_caption_format(w, s, &c);
    case 'b': return aviout_set_bitmap_caption_format(w, s, &v);
    default: return aviout_set_chapter_format(w, s, &c);
    }
}

// How a test writer is set up before its streams.
struct setup {
    uint32_t odml = 0;
    double index_seconds = 0.0;
    uint32_t timing = 0, profile = 0;
};

// A writer with streams of the kinds given by letter (see add_stream).
inline aviout_handle *open_writer(const char *path, const char *kinds = "v", const setup &s = {},
                                  double audio_seconds = 0.04) {
    aviout_handle *w = aviout_open(path, s.odml, 0);
    if (w == nullptr) return nullptr;
    w->standard_profile = s.profile;
    w->index_chunk_seconds = s.index_seconds;
    w->odml_timing_mode = s.timing;
    for (const char *k = kinds; *k != '\0'; ++k)
        if (add_stream(w, *k, nullptr, audio_seconds) != 0) {
            aviout_close(w);
            return nullptr;
        }
    return w;
}

// One chunk as the reader's sequential walk gives it.
struct walked {
    uint32_t type, stream;
    std::vector<uint8_t> data;
};

// The data chunks the reader's walk gives from where h stands, at most
// limit; *last is the result that ended the walk (-1 at the limit). The
// writer's ix## ids ('i', 'x', a digit, 0) are not taken as index ids by the
// walk: they start a resync scan that hands the skipped bytes out as type 0,
// so both type 0 and type 8 results are left out, and so are the empty
// "JUNK" chunks checkpoints leave.
inline std::vector<walked> walk_data(aviin_handle *h, int *last = nullptr, size_t limit = 100000) {
    std::vector<walked> out;
    std::vector<uint8_t> block(1 << 16);
    int status = -1;
    for (size_t i = 0; i < limit; ++i) {
        walked c{};
        int32_t size = static_cast<int32_t>(block.size());
        char name[5] = {};
        if ((status = aviin_get_next_chunk2(h, &c.type, &c.stream, block.data(), &size, name)) != 0) break;
        c.data.assign(block.begin(), block.begin() + std::max(size, 0));
        if (c.type != KELQAVI_CHUNK_INDEX && c.type != KELQAVI_CHUNK_UNKNOWN && c.type != KELQAVI_CHUNK_JUNK)
            out.push_back(std::move(c));
        status = -1;
    }
    if (last != nullptr) *last = status;
    return out;
}

// The payloads the reader walks in the file's first movi, the walk's last result in *last.
inline std::vector<std::vector<uint8_t>> read_back(const char *path, uint32_t swapped = 0, int *last = nullptr) {
    std::vector<std::vector<uint8_t>> out;
    aviin_handle *h = aviin_open(path, swapped);
    EXPECT_NE(h, nullptr) << path;
    for (walked &c : h != nullptr ? walk_data(h, last) : std::vector<walked>{}) out.push_back(std::move(c.data));
    aviin_close(h);
    return out;
}

// A super index entry: where its ix## chunk is, its size and duration.
struct super_entry {
    uint64_t offset;
    uint32_t size, duration;
};

inline std::vector<super_entry> super_entries(const std::vector<uint8_t> &b, int stream, size_t form_pos = 0) {
    std::vector<super_entry> out;
    const size_t indx = strl_chunk(b, stream, "indx", form_pos);
    if (indx == SIZE_MAX) return out;
    for (uint32_t i = 0; i < le32(b, indx + 4) && i < 100; ++i) {
        const size_t e = indx + 24 + 16 * static_cast<size_t>(i);
        out.push_back({le64(b, e), le32(b, e + 8), le32(b, e + 12)});
    }
    return out;
}

// Every standard index a stream's super index lists names that stream's
// chunks (data position and size, a clear top bit for a key frame) in
// order, each once, and nothing else; its dwSize is the ix## chunk's.
inline void expect_indexes_list(const std::vector<uint8_t> &b, int stream, const std::vector<chunk_at> &chunks,
                                const std::vector<bool> &keys) {
    std::vector<std::pair<uint64_t, uint32_t>> named, want;
    for (const super_entry &s : super_entries(b, stream)) {
        const size_t ix = static_cast<size_t>(s.offset);
        ASSERT_LT(ix + 32, b.size()) << "stream " << stream;
        ASSERT_EQ(text4(b, ix).substr(0, 2), "ix");
        EXPECT_EQ(s.size, le32(b, ix + 4) + 8) << "dwSize";
        for (uint32_t k = 0; k < le32(b, ix + 12); ++k)
            named.push_back({le64(b, ix + 20) + le32(b, ix + 32 + 8 * k), le32(b, ix + 36 + 8 * k)});
    }
    for (size_t i = 0; i < chunks.size(); ++i)
        want.push_back({chunks[i].data(), chunks[i].size | (i < keys.size() && !keys[i] ? 0x80000000u : 0u)});
    EXPECT_EQ(named, want) << "stream " << stream << ": the standard indexes name exactly its chunks";
}

}  // namespace kelqtest
