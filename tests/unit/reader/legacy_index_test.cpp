// The legacy index calls over files whose idx1 is known: reading entries and
// their bounds, moving the walk to an entry's chunk, the duration of one chunk
// by type, and the time-range search in its two timing modes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

// Stream 0 video at 25 frames a second; stream 1 audio of one 1152-sample
// frame a chunk at 48000 Hz (24 ms a chunk; its stream header counts
// milliseconds); stream 2 16-bit PCM at 16000
// bytes a second, timed by its chunk sizes; stream 3 audio of 576-sample
// frames, with no chunks.
byte_image three_stream_hdrl() {
    return hdrl({video_list(1, 25), audio_list(0x55, 48000, 1152, 24, 1000), audio_list(1, 8000, 2, 2, 16000),
                 audio_list(0x55, 22050, 576, 576, 22050)});
}

std::vector<planned> three_stream_chunks() {
    return {
        {"00dc", filler(300, 1), true},  {"01wb", filler(96, 2)},   {"02wb", filler(1600, 3)},
        {"00dc", filler(41, 4)},         {"01wb", filler(97, 5)},   {"00dc", filler(40, 6)},
        {"02wb", filler(800, 7)},        {"01wb", filler(98, 8)},   {"00dc", filler(310, 9), true},
        {"JUNK", filler(20, 10), false, false}, {"01wb", filler(99, 11)}, {"02wb", filler(3200, 12)},
    };
}

struct entry_fields { int result = -1; uint32_t stream = 99, type = 99, size = 99, key = 99; };

entry_fields entry_at(aviin_handle *h, uint32_t n) {
    entry_fields e;
    e.result = aviin_get_idx1_entry(h, n, &e.stream, &e.type, &e.size, &e.key);
    return e;
}

class legacy_index : public ::testing::Test {
protected:
    legacy_index() : file(make_indexed(three_stream_hdrl(), three_stream_chunks())), h(file.bytes) {}
    void SetUp() override { ASSERT_NE(h.get(), nullptr); }
    indexed_file file;
    reader h;
};

TEST_F(legacy_index, each_entry_gives_its_chunks_stream_type_size_and_key_flag_and_none_past_the_last) {
    ASSERT_EQ(file.index_order.size(), 11u);
    for (uint32_t n = 0; n < file.index_order.size(); ++n) {
        const laid &c = file.chunks[file.index_order[n]];
        const entry_fields e = entry_at(h, n);
        SCOPED_TRACE("entry " + std::to_string(n) + " " + c.id);
        EXPECT_EQ(e.result, 0);
        EXPECT_EQ(e.stream, static_cast<uint32_t>(c.id[1] - '0'));
        EXPECT_EQ(e.type, c.id.substr(2) == "dc" ? 3u : 1u);
        EXPECT_EQ(e.size, c.size);
        EXPECT_EQ(e.key, c.key ? 16u : 0u);  // the flag word ANDed with 0x10, not 1
    }
    // Entries past the last fail and leave the outputs and the walk alone.
    // result: of reading the entry; go_to: of moving the walk to it, past the last
    const struct { uint32_t n; int result, go_to; uint32_t stream, size; } rows[] = {
        {11, 1, 3, 99, 99}, {1000, 1, 3, 99, 99}, {0xFFFFFFF, 1, 3, 99, 99},
        // 0x10000001 * 16 is 16 in 32 bits: entry 1, as the index size is 32-bit too.
        {0x10000001, 0, 0, 1, 96},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE("entry " + std::to_string(r.n));
        const entry_fields e = entry_at(h, r.n);
        EXPECT_EQ(e.result, r.result);
        EXPECT_EQ(e.stream, r.stream);
        EXPECT_EQ(e.size, r.size);
        if (r.result != 0) { EXPECT_EQ(aviin_goto_idx1_sample(h, r.n), r.go_to); }
    }
}

TEST_F(legacy_index, moving_the_walk_to_an_entry_makes_its_chunk_the_next_one_read) {
    // Out of order, so that each move really moves.
    for (uint32_t n : {7u, 0u, 10u, 3u, 8u, 1u}) {
        const size_t c = file.index_order[n];
        ASSERT_EQ(aviin_goto_idx1_sample(h, n), 0) << n;
        const chunk_call chunk = next_chunk(h, 8192);
        EXPECT_EQ(chunk.name, file.chunks[c].id) << n;
        EXPECT_EQ(chunk.data, three_stream_chunks()[c].data.bytes()) << n;
    }
    // The header walk sees the same chunk.
    ASSERT_EQ(aviin_goto_idx1_sample(h, 8), 0);
    EXPECT_EQ(next_header(h).offset, file.header(file.index_order[8]) + 8);
    // Entry 8 is the last video frame; the JUNK chunk after it is not indexed,
    // and the walk meets it after the frame.
    EXPECT_EQ(next_header(h).type, static_cast<uint32_t>(KELQAVI_CHUNK_JUNK));
}

TEST_F(legacy_index, durations_by_chunk_type) {
    // num, den 55: left alone
    const struct { uint32_t stream, type; int result; uint32_t num, den; } rows[] = {
        {0, 3, 0, 1, 25},
        {1, 1, 0, 1152, 48000},  // one MPEG audio frame, whatever the caller's byte count
        {2, 1, 0, 417, 16000},   // bytes over the rate
        {3, 1, 0, 417, 22050},   // only 1152 counts as a whole frame here, not 576
        // Per-frame data lasts nothing; the den comes from the audio table at
        // the video stream's own index (0 here: stream 1's format).
        {0, 4, 0, 0, 1000},
        {0, 0, 1, 55, 55}, {0, 2, 1, 55, 55}, {0, 10, 1, 55, 55}, {20, 3, 1, 55, 55},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE("stream " + std::to_string(r.stream) + " type " + std::to_string(r.type));
        uint32_t num = 55, den = 55;
        EXPECT_EQ(aviin_get_sample_duration(h, r.stream, r.type, 417, &num, &den), r.result);
        EXPECT_EQ(num, r.num);
        EXPECT_EQ(den, r.den);
    }
}

struct span { int result = -1; uint32_t first = 77, last = 77; };

span search(aviin_handle *h, uint32_t stream, uint32_t type, float start, float end) {
    span s;
    s.result = aviin_get_start_end_by_time(h, stream, type, start, end, &s.first, &s.last);
    return s;
}

TEST_F(legacy_index, the_search_compares_chunk_starts_or_ends_by_timing_mode) {
    // first, last 77: left alone
    const struct { uint32_t stream, type; float start, end; int result; uint32_t first, last; } rows[] = {
        // Stream 1: four chunks starting at 0, 24, 48 and 72 ms; a chunk's
        // time is its start.
        {1, 1, 0.0f, 0.03f, 0, 0, 2},  // 48 ms is the first start at or past 30 ms
        {1, 1, 0.01f, 0.05f, 0, 1, 3},
        {1, 1, 0.03f, 10.0f, 0, 2, 3},  // an end beyond every chunk: the stream's last entry
        {1, 1, 1.0f, 2.0f, 1, 77, 77},
        // Times never fall back, so this takes an end before the start.
        {1, 1, 0.06f, 0.02f, 0, 77, 1},
        // Stream 2: chunks ending at 100, 150 and 350 ms; a chunk's time is its end.
        {2, 1, 0.05f, 0.12f, 0, 0, 1},
        {2, 1, 0.12f, 0.2f, 0, 1, 2},
        {2, 1, 0.4f, 0.5f, 1, 77, 77},
        // Other types: every entry has time zero.
        {0, 3, 0.0f, 0.0f, 0, 0, 0},
        {0, 3, 0.0f, 5.0f, 0, 0, 3},  // never reached: the last of the four frames
        {0, 3, 0.5f, 5.0f, 1, 77, 77},
        {5, 3, 0.0f, 1.0f, 1, 77, 77},  // a stream with no entries of the type
        {25, 1, 0.0f, 1.0f, 1, 77, 77},  // no such stream slot
    };
    for (const auto &r : rows) {
        SCOPED_TRACE("stream " + std::to_string(r.stream) + " from " + std::to_string(r.start) + " to " +
                     std::to_string(r.end));
        const span s = search(h, r.stream, r.type, r.start, r.end);
        EXPECT_EQ(s.result, r.result);
        EXPECT_EQ(s.first, r.first);
        EXPECT_EQ(s.last, r.last);
    }
    uint32_t first = 0;
    EXPECT_EQ(aviin_get_start_end_by_time(h, 1, 1, 0.0f, 1.0f, &first, nullptr), 1);
}

// An index claiming more entries than the file holds is read no further
// than the file: values that cannot be read are 0. A missing or empty index
// gives nothing and leaves the walk alone.
TEST(legacy_index_damaged, an_index_too_long_too_short_or_missing) {
    indexed_file file = make_indexed(three_stream_hdrl(), three_stream_chunks());
    file.bytes.set_u32(static_cast<size_t>(file.bytes.find("idx1")) + 4, 0x7FFFFFF0);
    reader h(file.bytes);
    ASSERT_NE(h.get(), nullptr);
    const entry_fields e = entry_at(h, 500);
    EXPECT_EQ(std::to_string(e.result) + " " + std::to_string(e.size) + " " + std::to_string(e.key), "0 0 0");
    const span s = search(h, 2, 1, 0.0f, 100.0f);
    EXPECT_EQ(std::to_string(s.result) + " " + std::to_string(s.last), "0 2");
    for (bool with_index : {false, true}) {
        SCOPED_TRACE(with_index ? "empty idx1" : "no idx1");
        indexed_file file =
            make_indexed(three_stream_hdrl(), {{"00dc", filler(8, 1), true}}, index_offsets::movi_relative, with_index);
        if (with_index) file.bytes.set_u32(static_cast<size_t>(file.bytes.find("idx1")) + 4, 0);
        reader h(file.bytes);
        ASSERT_NE(h.get(), nullptr);
        EXPECT_EQ(entry_at(h, 0).result, 1);
        EXPECT_EQ(aviin_goto_idx1_sample(h, 0), with_index ? 3 : 1);
        const span s = search(h, 0, 3, 0.0f, 0.0f);
        EXPECT_EQ(std::to_string(s.result) + " " + std::to_string(s.first), "1 77");
        EXPECT_EQ(next_chunk(h, 8192).name, "00dc");
    }
}

}  // namespace
