// The key-frame table and the frame and audio positions found from it, over
// files laid out here with known chunk positions: every frame is looked up
// through the table and compared with where it was put; each entry's audio
// chunks are compared with the chunk that plays at the key frame's time,
// worked out here in exact integer arithmetic.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

constexpr uint64_t not_found = KELQAVI_NOT_FOUND;

// Stream 0: video, 25 frames a second (40 ms a frame). Stream 1: one 1152-
// sample MPEG audio frame a chunk at 48000 Hz (24 ms a chunk), stored ahead
// of the video it plays with. Stream 2: 16-bit PCM at 8000 Hz (16000 bytes a
// second) in chunks of varying size, stored behind it; its stream header
// counts blocks (rate 8000, scale 1), as most writers put it. JUNK chunks
// (not indexed) now and then.
// frames, mp3, pcm: chunk numbers, per stream in order; pcm_before: PCM bytes before each PCM chunk
struct synthetic { indexed_file file; std::vector<size_t> frames, mp3, pcm; std::vector<uint64_t> pcm_before; uint32_t key_every = 1; };

struct layout_options {
    uint32_t frames = 60;
    uint32_t key_every = 10;
    int64_t mp3_lead_us = 150000;
    int64_t pcm_lag_us = 30000;
    uint64_t pcm_us = 0;  // PCM only up to this time; 0: as long as the video
    uint32_t first_key = 0;  // frames before the first key frame
};

synthetic make_synthetic(const layout_options &o) {
    // kind: 0 video, 1 mp3, 2 pcm, 3 junk
    struct event { int64_t at_us; int order; planned chunk; int kind; };
    std::vector<event> events;
    const int64_t video_us = static_cast<int64_t>(o.frames) * 40000;
    for (uint32_t f = 0; f < o.frames; ++f) {
        const bool key = f >= o.first_key && (f - o.first_key) % o.key_every == 0;
        events.push_back({f * 40000ll, 0, {"00dc", filler(key ? 400 + f % 7 : 30 + f % 5, f), key}, 0});
        if (f % 7 == 3) events.push_back({f * 40000ll + 1, 3, {"JUNK", filler(12, f), false, false}, 3});
    }
    for (uint32_t c = 0; c * 24000ll < video_us + 50000; ++c)
        events.push_back({c * 24000ll - o.mp3_lead_us, 1, {"01wb", filler(96 + c % 3, 1000 + c)}, 1});
    const uint32_t sizes[] = {800, 1200, 1000, 640};
    const int64_t pcm_end = o.pcm_us != 0 ? static_cast<int64_t>(o.pcm_us) : video_us + 50000;
    uint64_t bytes = 0;
    for (uint32_t i = 0; static_cast<int64_t>(bytes) * 1000000 / 16000 < pcm_end; ++i) {
        const uint32_t size = sizes[i % 4];
        events.push_back({static_cast<int64_t>(bytes) * 1000000 / 16000 + o.pcm_lag_us, 2, {"02wb", filler(size, 2000 + i)}, 2});
        bytes += size;
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const event &a, const event &b) { return a.at_us != b.at_us ? a.at_us < b.at_us : a.order < b.order; });
    synthetic s;
    s.key_every = o.key_every;
    std::vector<planned> chunks;
    uint64_t pcm_bytes = 0;
    for (const event &e : events) {
        if (e.kind == 0) s.frames.push_back(chunks.size());
        if (e.kind == 1) s.mp3.push_back(chunks.size());
        if (e.kind == 2) {
            s.pcm.push_back(chunks.size());
            s.pcm_before.push_back(pcm_bytes);
            pcm_bytes += e.chunk.data.size();
        }
        chunks.push_back(e.chunk);
    }
    s.file = make_indexed(hdrl({video_list(1, 25), audio_list(0x55, 48000, 1152, 1152, 48000),
                                audio_list(1, 8000, 2, 1, 8000, 16000)}),
                          chunks);
    return s;
}

// The MPEG audio chunk playing at frame f: c * 1152 / 48000 <= f / 25 < (c + 1) * 1152 / 48000.
int64_t mp3_chunk_at(const synthetic &s, uint32_t f) {
    const uint64_t c = static_cast<uint64_t>(f) * 48000 / (25 * 1152);
    return c < s.mp3.size() ? static_cast<int64_t>(c) : -1;
}

// The PCM chunk playing at frame f: before * 25 <= f * 16000 < (before + size) * 25.
int64_t pcm_chunk_at(const synthetic &s, uint32_t f) {
    for (size_t i = 0; i < s.pcm.size(); ++i) {
        const uint64_t end = s.pcm_before[i] + s.file.chunks[s.pcm[i]].size;
        if (s.pcm_before[i] * 25 <= f * 16000ull && f * 16000ull < end * 25) return static_cast<int64_t>(i);
    }
    return -1;
}

struct table {
    std::vector<keyindex_entry> storage;
    keyindex_table t;
    explicit table(uint32_t capacity) : storage(capacity) { std::memset(&t, 0, sizeof t); }
};

// Builds the table in slices of `slice` entries until the build ends with
// `ends`; the number of calls.
int build(aviin_handle *h, table &tab, uint32_t slice = 0, int ends = 3) {
    EXPECT_EQ(aviin_init_keyindex(h, &tab.t, tab.storage.data(), static_cast<uint32_t>(tab.storage.size()), 0), 0);
    int calls = 0, r = 0;
    while ((r = aviin_build_keyindex_entry(h, &tab.t, slice)) == 0) { if (++calls > 100000) break; }
    EXPECT_EQ(r, ends);
    return calls + 1;
}

// Every frame, from the key frame at or before it, lands on its own chunk.
void expect_every_frame_found(aviin_handle *h, const synthetic &s, const table &tab) {
    for (uint32_t f = 0; f < s.frames.size(); ++f) {
        keyindex_entry e;
        const int r = aviin_read_key_table_by_frame_no(h, &tab.t, static_cast<int32_t>(f), &e, -1);
        if (r == 3) continue;  // before the first key frame
        ASSERT_EQ(r, 0) << f;
        EXPECT_LE(e.frame_no, f);
        uint64_t pos = 0;
        ASSERT_EQ(aviin_get_video_offset(h, e, 0, static_cast<int32_t>(f), &pos), 0) << f;
        EXPECT_EQ(pos, s.file.header(s.frames[f])) << "frame " << f;
    }
}

// Each entry's audio: the chunk playing at the key frame's time, and the
// chunks (fixed-duration audio) or bytes (PCM) before it.
void expect_audio_at_key_frames(const synthetic &s, const table &tab) {
    for (uint32_t i = 0; i < tab.t.count; ++i) {
        const keyindex_entry &e = tab.storage[i];
        SCOPED_TRACE("key frame " + std::to_string(e.frame_no));
        EXPECT_EQ(e.video_offset, s.file.relative(s.file.chunks[s.frames[e.frame_no]].header));
        EXPECT_EQ(e.video_size, s.file.chunks[s.frames[e.frame_no]].size);
        const int64_t m = mp3_chunk_at(s, e.frame_no);
        ASSERT_GE(m, 0);
        EXPECT_EQ(e.audio_offset[0], s.file.relative(s.file.chunks[s.mp3[static_cast<size_t>(m)]].header));
        EXPECT_EQ(e.audio_count[0], static_cast<uint32_t>(m));
        const int64_t p = pcm_chunk_at(s, e.frame_no);
        if (p < 0) {
            EXPECT_EQ(e.audio_offset[1], not_found);
            EXPECT_EQ(e.audio_count[1], 0xFFFFFFFFu);
        } else {
            EXPECT_EQ(e.audio_offset[1], s.file.relative(s.file.chunks[s.pcm[static_cast<size_t>(p)]].header));
            EXPECT_EQ(e.audio_count[1], s.pcm_before[static_cast<size_t>(p)]);
        }
        for (int k = 2; k < KELQAVI_KEY_AUDIO_STREAMS; ++k) EXPECT_EQ(e.audio_offset[k], not_found);
        // The entry's idx1 position names the key frame's own entry.
        const size_t n = e.index_position / 16;
        ASSERT_LT(n, s.file.index_order.size());
        EXPECT_EQ(s.file.index_order[n], s.frames[e.frame_no]);
    }
}

// A synthetic file, opened, with its table built in slices of `slice`.
struct built {
    explicit built(const layout_options &o = {}, uint32_t capacity = 20, uint32_t slice = 0)
        : s(make_synthetic(o)), h(s.file.bytes), tab(capacity), calls(build(h, tab, slice)) {}
    keyindex_entry at(int32_t frame) const {
        keyindex_entry e;
        EXPECT_EQ(aviin_read_key_table_by_frame_no(h, &tab.t, frame, &e, -1), 0) << frame;
        return e;
    }
    synthetic s;
    reader h;
    table tab;
    int calls;
};

// Byte position of the offset field of the idx1 entry that names a chunk.
size_t index_offset_field(const indexed_file &f, size_t chunk) {
    const size_t n = static_cast<size_t>(std::find(f.index_order.begin(), f.index_order.end(), chunk) - f.index_order.begin());
    return static_cast<size_t>(f.bytes.find("idx1")) + 8 + 16 * n + 8;
}

// pcm_us: PCM only up to this time; 0: as long as the video
struct shape { uint32_t frames, key_every, capacity, slice; uint64_t pcm_us; };

class table_shape : public ::testing::TestWithParam<shape> {};

// Whatever the spacing, capacity and slicing: every stride-th key frame is
// kept, stride the smallest power of two that lets them fit; every frame is
// found from its key frame; every key frame has its audio, or none where the
// audio ended before it.
TEST_P(table_shape, every_frame_is_found_from_a_kept_key_frame_and_every_key_frame_has_its_audio) {
    const shape p = GetParam();
    layout_options o;
    o.frames = p.frames;
    o.key_every = p.key_every;
    o.pcm_us = p.pcm_us;
    built b(o, p.capacity, p.slice);
    const uint32_t keys = (p.frames + p.key_every - 1) / p.key_every;
    uint32_t stride = 1;
    while ((keys + stride - 1) / stride > p.capacity) stride *= 2;
    EXPECT_EQ(b.tab.t.stride, stride);
    EXPECT_EQ(b.tab.t.count, (keys + stride - 1) / stride);
    EXPECT_EQ(b.tab.t.frames_scanned, p.frames);
    for (uint32_t i = 0; i < b.tab.t.count; ++i) EXPECT_EQ(b.tab.storage[i].frame_no, i * p.key_every * stride);
    if (p.slice != 0) { EXPECT_GE(b.calls, static_cast<int>(b.s.file.index_order.size() / p.slice)); }
    expect_audio_at_key_frames(b.s, b.tab);
    expect_every_frame_found(b.h, b.s, b.tab);
    // Once complete, building more does nothing.
    EXPECT_EQ(aviin_build_keyindex_entry(b.h, &b.tab.t, 0), 3);
}

INSTANTIATE_TEST_SUITE_P(spacing_capacity_and_slices, table_shape,
                         ::testing::Values(shape{60, 1, 100, 0, 0}, shape{60, 2, 100, 0, 0}, shape{60, 10, 100, 0, 0},
                                           shape{60, 10, 20, 1, 0}, shape{60, 10, 20, 3, 0}, shape{60, 10, 20, 17, 0},
                                           shape{60, 10, 20, 64, 0}, shape{200, 2, 1, 5, 0}, shape{200, 2, 3, 5, 0},
                                           shape{200, 2, 7, 5, 0}, shape{200, 2, 16, 5, 0},
                                           shape{60, 10, 20, 0, 1000000}));  // 1 s of PCM under 2.4 s of video

TEST(key_table, lookups_at_after_and_outside_and_stepping_both_ways) {
    layout_options o;
    o.first_key = 3;  // frames 0 to 2 come before any key frame
    const built b(o);
    ASSERT_EQ(b.tab.t.count, 6u);  // 3, 13, ..., 53
    // Frame, direction: the result, and the key frame handed out, if any. No
    // key frame comes after 53; past the frames scanned, the latest key frame
    // is still handed out looking back.
    const struct {
        int32_t frame, direction;
        const char *got;
    } rows[] = {{2, -1, "3"},     {2, 1, "0 3"},   {13, -1, "0 13"}, {13, 1, "0 13"}, {14, -1, "0 13"}, {14, 1, "0 23"},
                {59, -1, "0 53"}, {54, 1, "3"},    {60, -1, "3 53"}, {60, 1, "3"},    {-1, -1, "3"},    {10, 0, "1"},
                {10, 2, "1"}};
    for (const auto &r : rows) {
        keyindex_entry e;
        std::memset(&e, 0xAB, sizeof e);
        const int result = aviin_read_key_table_by_frame_no(b.h, &b.tab.t, r.frame, &e, r.direction);
        const std::string handed_out = e.frame_no != 0xABABABABu ? " " + std::to_string(e.frame_no) : "";
        EXPECT_EQ(std::to_string(result) + handed_out, r.got) << r.frame << " " << r.direction;
    }
    keyindex_entry e;
    keyindex_table broken = b.tab.t;
    broken.count = broken.capacity + 1;
    EXPECT_EQ(aviin_read_key_table_by_frame_no(b.h, &broken, 10, &e, -1), 1);
    EXPECT_EQ(aviin_build_keyindex_entry(b.h, &broken, 0), 1);
    // Stepping through the key frames both ways.
    keyindex_entry k = b.at(3);
    std::vector<uint32_t> seen{k.frame_no};
    for (int32_t direction : {1, -1}) {
        int r = 0;
        while ((r = aviin_get_next_key_index(b.h, &b.tab.t, &k, &k, direction)) == 0) seen.push_back(k.frame_no);
        EXPECT_EQ(r, 3);
    }
    EXPECT_EQ(seen, (std::vector<uint32_t>{3, 13, 23, 33, 43, 53, 43, 33, 23, 13, 3}));
    // A frame that is not a key frame of the table, and no direction.
    keyindex_entry other = k;
    other.frame_no = 5;
    EXPECT_EQ(aviin_get_next_key_index(b.h, &b.tab.t, &other, &k, 1), 1);
    EXPECT_EQ(aviin_get_next_key_index(b.h, &b.tab.t, &k, &k, 0), 1);
}

TEST(key_table, setting_up_needs_an_index_a_video_stream_and_room) {
    const synthetic s = make_synthetic(layout_options{});
    reader h(s.file.bytes);
    reader no_index(make_indexed(hdrl({video_list(1, 25)}), {{"00dc", filler(8, 1), true}}, index_offsets::movi_relative, false).bytes);
    std::vector<keyindex_entry> storage(4);
    // No room, no entries, an audio stream, no such slot, no handle, no index.
    const struct {
        aviin_handle *h;
        keyindex_entry *entries;
        uint32_t capacity, stream;
    } rows[] = {{h, storage.data(), 0, 0},  {h, nullptr, 4, 0}, {h, storage.data(), 4, 1}, {h, storage.data(), 4, 20},
                {nullptr, storage.data(), 4, 0}, {no_index, storage.data(), 4, 0}};
    for (const auto &r : rows) {
        keyindex_table t;
        std::memset(&t, 0x5A, sizeof t);
        EXPECT_EQ(aviin_init_keyindex(r.h, &t, r.entries, r.capacity, r.stream), 1);
        EXPECT_EQ(t.count, 0u);  // zeroed
        EXPECT_EQ(aviin_build_keyindex_entry(h, &t, 0), 1);  // after a failed set-up
    }
    EXPECT_EQ(aviin_init_keyindex(h, nullptr, storage.data(), 4, 0), 1);
}

// ---------------------------------------------------------------------------
// Bad indexes: failures, never reads outside the file or endless walks.
// ---------------------------------------------------------------------------

TEST(key_table_bad_index, entries_pointing_outside_the_movi_list_are_refused) {
    const synthetic s = make_synthetic(layout_options{});
    // The third key frame, or the fifth PCM chunk, moved past the end of the file.
    for (size_t target : {s.frames[20], s.pcm[4]}) {
        SCOPED_TRACE(target == s.frames[20] ? "key frame" : "audio");
        indexed_file f = s.file;
        f.bytes.set_u32(index_offset_field(f, target), static_cast<uint32_t>(f.bytes.size()));
        reader h(f.bytes);
        table tab(20);
        build(h, tab, 7, 1);
        EXPECT_LE(tab.t.count, 3u);
    }
}

// ---------------------------------------------------------------------------
// The frame walk and the spans of frames with their audio.
// ---------------------------------------------------------------------------

// A position named in a row: "f12" the header of frame 12, "m21" of MPEG
// audio chunk 21, "p3" of PCM chunk 3, "p@10" of the PCM chunk playing at
// frame 10, "-" not found, "=" the value the caller left, "" not checked.
uint64_t named(const synthetic &s, const std::string &name, uint64_t left) {
    if (name == "-") return not_found;
    if (name == "=") return left;
    const std::vector<size_t> &of = name[0] == 'f' ? s.frames : name[0] == 'm' ? s.mp3 : s.pcm;
    const size_t n = name[1] == '@' ? static_cast<size_t>(pcm_chunk_at(s, static_cast<uint32_t>(std::stoi(name.substr(2)))))
                                    : std::stoul(name.substr(1));
    return s.file.header(of[n]);
}

TEST(frame_walk, counts_frames_from_the_key_frame_up_to_the_one_asked_for) {
    const built b;
    const synthetic &s = b.s;
    indexed_file f = s.file;
    // Frame 13's chunk claims a size that moves the walk back onto itself.
    f.bytes.set_u32(static_cast<size_t>(f.chunks[s.frames[13]].header) + 4, 0xFFFFFFF8u);
    reader stepping_back(f.bytes), failed(s.file.bytes);
    uint8_t byte = 0;
    ASSERT_EQ(aviin_get_chunk(failed, 0x8000000000000000ull, &byte, 1), 1);  // a read error that persists
    const struct { aviin_handle *h; int32_t key, frame; uint32_t stream; int result; const char *ends_on; } rows[] = {
        {b.h, 30, 29, 0, 0, "="},    // a key frame after the frame
        {b.h, 59, 70, 0, 1, "f59"},  // past the last frame: the last one counted
        {b.h, 35, 35, 1, 1, "="},    // the table's stream is not this one
        {stepping_back, 15, 15, 0, 1, "f12"},  // the chunk that steps back is not counted
        {failed, 15, 15, 0, 1, "="},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << "frame " << r.frame << " from " << r.key);
        uint64_t pos = 4242;
        EXPECT_EQ(aviin_get_video_offset(r.h, b.at(r.key), r.stream, r.frame, &pos), r.result);
        EXPECT_EQ(pos, named(s, r.ends_on, 4242));
    }
    // The walk stands after the frame for reading on.
    uint64_t pos = 0;
    ASSERT_EQ(aviin_get_video_offset(b.h, b.at(14), 0, 14, &pos), 0);
    EXPECT_EQ(next_header(b.h).offset - 8, s.file.header(s.frames[14] + 1));
    uint64_t a = 0, c = 0, d = 0;
    EXPECT_EQ(aviin_get_chunk_offsets(failed, &b.tab.t, 0, 3, 5, 1.0f, &a, &pos, 1, &c, &d), 1);
}

// aviin_get_chunk_offsets: with both frames found the audio is not looked
// for; a missing frame (stream 1 has no "dc" chunks) sends the search to the
// audio, timed from the key frame. MPEG audio chunks start every 24 ms; frame
// 12's time is 0.4805 s with the half-millisecond the search adds, so the
// first chunk is 21 (0.504 s) and the last the first to start at or past the
// end time. An end frame past the file ends with the list, holding the last
// frame counted.
TEST(frame_walk, spans_of_frames_with_their_audio) {
    layout_options o;
    o.pcm_us = 1000000;  // PCM only for the first second
    const built b, short_pcm(o);
    const struct {
        const built *file;
        uint32_t video;
        int32_t from, to;
        float end_time;
        int32_t audio;
        int result;
        const char *video_start, *video_end, *audio_first, *audio_last;
    } rows[] = {
        {&b, 0, 12, 27, 2.0f, 1, 0, "f12", "f27", "-", "-"},
        {&b, 0, 12, 27, 2.0f, -1, 0, "f12", "f27", "-", "-"},
        {&b, 1, 12, 27, 0.61f, 1, 0, "-", "-", "m21", "m26"},
        {&b, 1, 10, 27, 0.61f, 2, 0, "-", "-", "p@10", ""},
        {&b, 0, 12, 80, 2.0f, 1, 0, "f12", "f59", "-", "-"},
        {&b, 1, 30, 31, 1.0f, 1, 1, "", "", "", ""},  // a start more than 0.1 s after the end time
        {&b, 0, 80, 85, 2.0f, 1, 1, "", "", "", ""},  // a start frame outside the table
        {&b, 0, -1, 5, 2.0f, 1, 1, "", "", "", ""},
        {&b, 1, 12, 27, 0.61f, 25, 1, "", "", "", ""},  // no such audio stream, or none at all
        {&b, 1, 12, 27, 0.61f, 20, 1, "", "", "", ""},
        {&short_pcm, 1, 45, 50, 2.0f, 2, 1, "", "", "", ""},  // audio the key frame has none of
        {&short_pcm, 1, 45, 50, 2.0f, 1, 0, "-", "-", "", ""},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << "stream " << r.video << " frames " << r.from << "-" << r.to << " audio " << r.audio);
        uint64_t got[4] = {1, 1, 1, 1};
        EXPECT_EQ(aviin_get_chunk_offsets(r.file->h, &r.file->tab.t, r.video, r.from, r.to, r.end_time, &got[0], &got[1],
                                          r.audio, &got[2], &got[3]),
                  r.result);
        const char *expected[] = {r.video_start, r.video_end, r.audio_first, r.audio_last};
        for (int i = 0; i < 4; ++i)
            if (*expected[i] != '\0') { EXPECT_EQ(got[i], named(r.file->s, expected[i], 1)) << i; }
    }
}

// The ninth audio stream has no slot in the key-frame table: its audio is
// refused, not looked up past the entry's eight. Key frame 5 has audio of
// the first and the eighth stream, from their start.
TEST(frame_walk, audio_of_a_stream_past_the_tables_eight_is_refused) {
    std::vector<byte_image> lists{video_list(1, 25)};
    for (int a = 0; a < 9; ++a) lists.push_back(audio_list(1, 8000, 2, 1, 8000, 16000));
    std::vector<planned> chunks{{"01wb", filler(16000, 1)}, {"08wb", filler(16000, 2)}};
    for (uint32_t f = 0; f < 6; ++f) chunks.push_back({"00dc", filler(8, f), f % 5 == 0});
    reader h(make_indexed(hdrl(lists), chunks).bytes);
    table tab(4);
    build(h, tab);
    ASSERT_EQ(tab.t.count, 2u);
    uint64_t o[4];
    EXPECT_EQ(aviin_get_chunk_offsets(h, &tab.t, 1, 5, 6, 1.0f, &o[0], &o[1], 9, &o[2], &o[3]), 1);
    EXPECT_EQ(aviin_get_chunk_offsets(h, &tab.t, 1, 5, 6, 1.0f, &o[0], &o[1], 8, &o[2], &o[3]), 0);
}

}  // namespace
