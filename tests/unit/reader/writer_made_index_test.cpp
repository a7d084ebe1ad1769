// Files made by the library's writer, read back through the key-frame table
// and the frame walk. Where each chunk landed is found here by a plain
// walk over the file's bytes, independent of the reader.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kelqavi.h"
#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

// 8 s of 25 fps video with a key frame every 12 frames and MPEG-style audio
// of 1152 samples at 48000 Hz a chunk stored 100 ms ahead; the movi chunks as
// found in the bytes.
std::vector<chunk_at> write_file(const char *path, const setup &kind) {
    aviout_handle *out = open_writer(path, "v", kind);
    audio_stream_format a{};
    a.scale = 1152;
    a.rate = 48000;
    a.wave_format.format_tag = 0x55;
    a.wave_format.channels = 1;
    a.wave_format.samples_per_sec = 48000;
    a.wave_format.block_align = 1152;
    const double mp3_seconds = 0.024;
    int32_t mp3 = -1;
    EXPECT_EQ(aviout_set_audio_format(out, &mp3, &a, &mp3_seconds), 0);
    // With standard indexes flushed inside movi the writer reports the
    // chunk put at a flush as not indexed (it gets no idx1 record); only a
    // failed write counts here.
    const bool flushing = kind.odml == 1 && kind.index_seconds < 60;
    const auto put_ok = [&](int result) { EXPECT_TRUE(result == 0 || (flushing && result == 1)); };
    uint32_t next_audio = 0;
    for (uint32_t f = 0; f < 200; ++f) {
        for (; next_audio * 24 < f * 40 + 100 + 40; ++next_audio)
            put_ok(put(out, mp3, 0, payload(100 + next_audio % 5, next_audio)));
        const bool key = f % 12 == 0;
        put_ok(put(out, 0, key ? AVIOUT_KEY_FRAME : 0, payload(key ? 900 : 60 + f % 9, f)));
    }
    aviout_close(out);
    return movi_chunks(file_bytes(path));
}

class writer_made : public ::testing::TestWithParam<setup> {};

// Every frame found from its key frame. With standard index chunks flushed
// between the data chunks: the writer's index chunk id is "ix0" and a NUL,
// which is no chunk id, so the header walk steps through it four bytes at a
// time and meets the index's dwChunkId, "0", NUL, "dc": a "dc" id with no
// stream number, whose size field (the next four bytes of the index) carries
// the walk past real chunks. Frames whose walk from their key frame crosses
// no index chunk are found exactly; the others must still end on a frame
// chunk or fail, never run away.
TEST_P(writer_made, every_frame_is_found_from_its_key_frame) {
    const scratch_path path;
    std::vector<uint64_t> frames, index_chunks;
    for (const chunk_at &c : write_file(path, GetParam())) {
        if (c.id == "00dc") frames.push_back(c.pos);
        if (c.id.compare(0, 2, "ix") == 0) index_chunks.push_back(c.pos);
    }
    ASSERT_EQ(frames.size(), 200u);
    const bool flushed = GetParam().index_seconds < 60;
    ASSERT_GE(index_chunks.size(), flushed ? 2u : 0u);
    aviin_handle *h = aviin_open(path, 0);
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
        const uint64_t from = frames[e.frame_no], to = frames[static_cast<size_t>(f)];
        bool crosses = false;
        for (uint64_t ix : index_chunks) crosses = crosses || (ix > from && ix < to);
        uint64_t pos = 0;
        const int found = aviin_get_video_offset(h, e, 0, f, &pos);
        if (!crosses) {
            ++exact;
            EXPECT_EQ(found, 0) << f;
            EXPECT_EQ(pos, to) << f;
            continue;
        }
        EXPECT_TRUE(found != 0 || std::find(frames.begin(), frames.end(), pos) != frames.end()) << f;
    }
    EXPECT_GT(exact, 150);
    aviin_close(h);
}

// odml, index_seconds: under 60, standard indexes flushed inside movi
INSTANTIATE_TEST_SUITE_P(plain_opendml_and_flushed, writer_made,
                         ::testing::Values(setup{0, 60.0}, setup{1, 60.0}, setup{1, 4.0}));

}  // namespace
