// Files made by the library's writer, read back through the key-frame table
// and the frame walk. Where each chunk landed is found here by a plain
// walk over the file's bytes, independent of the reader.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <cstring>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/byte_image.h"

namespace {

struct found_chunk { std::string id; int64_t header; uint32_t size; };

// The chunks of the first movi list, found by its sizes alone in the file's
// bytes.
std::vector<found_chunk> movi_chunks(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<uint8_t> b{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const auto text = [&](size_t at) { return std::string(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at) + 4); };
    const auto le32 = [&](size_t at) { return uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 | uint32_t{b[at + 3]} << 24; };
    std::vector<found_chunk> out;
    size_t at = 12;
    while (at + 12 <= b.size() && !(text(at) == "LIST" && text(at + 8) == "movi")) at += 8 + le32(at + 4) + (le32(at + 4) & 1);
    if (at + 12 > b.size()) return out;
    const size_t end = at + 8 + le32(at + 4);
    for (size_t c = at + 12; c + 8 <= end && c + 8 <= b.size();) {
        out.push_back({text(c), static_cast<int64_t>(c), le32(c + 4)});
        c += 8 + le32(c + 4) + (le32(c + 4) & 1);
    }
    return out;
}

struct written {
    std::string path;
    std::vector<found_chunk> chunks;
    std::vector<size_t> frames;
    ~written() { std::remove(path.c_str()); }
};

// 8 s of 25 fps video with a key frame every 12 frames, MPEG-style audio of
// 1152 samples at 48000 Hz a chunk stored 100 ms ahead.
void write_file(written &w, uint32_t odml, double index_seconds) {
    w.path = testing::TempDir() + "kelqavi-written-" + std::to_string(odml) + "-" + std::to_string(static_cast<int>(index_seconds)) + ".avi";
    aviout_handle *out = aviout_open(w.path.c_str(), odml, 0);
    ASSERT_NE(out, nullptr);
    out->index_chunk_seconds = index_seconds;
    video_stream_format v{};
    v.rate = 25;
    v.scale = 1;
    v.width = 64;
    v.height = 48;
    std::memcpy(v.handler, "XVID", 4);
    std::memcpy(v.compression, "XVID", 4);
    const double frame_seconds = 0.04, mp3_seconds = 0.024;
    int32_t video = -1, mp3 = -1;
    ASSERT_EQ(aviout_set_video_format(out, &video, &v, &frame_seconds), 0);
    audio_stream_format a{};
    a.scale = 1152;
    a.rate = 48000;
    a.wave_format.format_tag = 0x55;
    a.wave_format.channels = 1;
    a.wave_format.samples_per_sec = 48000;
    a.wave_format.block_align = 1152;
    ASSERT_EQ(aviout_set_audio_format(out, &mp3, &a, &mp3_seconds), 0);

    // With standard indexes flushed inside movi the writer reports the
    // chunk put at a flush as not indexed (it gets no idx1 record); only a
    // failed write counts here.
    const auto put = [&](int result) { ASSERT_TRUE(result == 0 || (odml == 1 && index_seconds < 60 && result == 1)); };
    uint32_t next_mp3 = 0;
    std::vector<uint8_t> data(2048);
    for (uint32_t f = 0; f < 200; ++f) {
        const int64_t now_ms = f * 40;
        while (next_mp3 * 24 < now_ms + 100 + 40) {
            put(aviout_put_chunk(out, mp3, 0, data.data(), 100 + next_mp3 % 5));
            ++next_mp3;
        }
        const bool key = f % 12 == 0;
        put(aviout_put_chunk(out, video, key ? AVIOUT_KEY_FRAME : 0, data.data(), key ? 900 : 60 + f % 9));
    }
    aviout_close(out);
    w.chunks = movi_chunks(w.path);
    for (size_t i = 0; i < w.chunks.size(); ++i)
        if (w.chunks[i].id == "00dc") w.frames.push_back(i);
}

// index_seconds: under 60: standard indexes flushed inside movi
struct file_kind { uint32_t odml; double index_seconds; };

class writer_made : public ::testing::TestWithParam<file_kind> {};

// Every frame found from its key frame. With standard index chunks flushed
// between the data chunks: the writer's index chunk id is "ix0" and a NUL,
// which is no chunk id, so the header walk steps through it four bytes at a
// time and meets the index's dwChunkId, "0", NUL, "dc": a "dc" id with no
// stream number, whose size field (the next four bytes of the index) carries
// the walk past real chunks. Frames whose walk from their key frame crosses no index chunk are
// found exactly; the others must still end on a frame chunk or fail, never
// run away.
TEST_P(writer_made, every_frame_is_found_from_its_key_frame) {
    written w;
    write_file(w, GetParam().odml, GetParam().index_seconds);
    ASSERT_EQ(w.frames.size(), 200u);
    std::vector<int64_t> index_chunks;
    for (const found_chunk &c : w.chunks)
        if (c.id.compare(0, 2, "ix") == 0) index_chunks.push_back(c.header);
    const bool flushed = GetParam().index_seconds < 60;
    ASSERT_GE(index_chunks.size(), flushed ? 2u : 0u);
    aviin_handle *h = aviin_open(w.path.c_str(), 0);
    ASSERT_NE(h, nullptr);
    std::vector<keyindex_entry> storage(64);
    keyindex_table t;
    ASSERT_EQ(aviin_init_keyindex(h, &t, storage.data(), 64, 0), 0);
    int r = 0;
    while ((r = aviin_build_keyindex_entry(h, &t, 100)) == 0) {
    }
    ASSERT_EQ(r, 3);
    EXPECT_EQ(t.count, 17u);
    EXPECT_EQ(t.frames_scanned, 200u);  // no frame lost its idx1 record
    int exact = 0;
    for (int32_t f = 0; f < 200; ++f) {
        keyindex_entry e;
        ASSERT_EQ(aviin_read_key_table_by_frame_no(h, &t, f, &e, -1), 0);
        const int64_t from = w.chunks[w.frames[e.frame_no]].header, to = w.chunks[w.frames[static_cast<size_t>(f)]].header;
        bool crosses = false;
        for (int64_t ix : index_chunks) crosses = crosses || (ix > from && ix < to);
        uint64_t pos = 0;
        const int found = aviin_get_video_offset(h, e, 0, f, &pos);
        if (!crosses) {
            ++exact;
            EXPECT_EQ(found, 0) << f;
            EXPECT_EQ(static_cast<int64_t>(pos), to) << f;
            continue;
        }
        bool frame_chunk = false;
        for (size_t c : w.frames) frame_chunk = frame_chunk || static_cast<uint64_t>(w.chunks[c].header) == pos;
        EXPECT_TRUE(found != 0 || frame_chunk) << f;
    }
    EXPECT_GT(exact, 150);
    aviin_close(h);
}

INSTANTIATE_TEST_SUITE_P(plain_opendml_and_flushed, writer_made,
                         ::testing::Values(file_kind{0, 60.0}, file_kind{1, 60.0}, file_kind{1, 4.0}));

}  // namespace
