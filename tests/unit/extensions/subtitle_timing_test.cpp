// Bitmap subtitle timing: the span text parser on good and malformed text,
// and the subtitle shown at a frame, over a file whose subtitle chunks lie at
// known places and times.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "extensions/subtitle_timing.h"
#include "unit/reader/index_images.h"

using namespace kelqtest;

namespace {

constexpr uint64_t none = KELQAVI_NOT_FOUND;
constexpr uint32_t no_duration = 0xFFFFFFFFu;

struct parsed {
    int result = -1;
    uint32_t start = 77, duration = 77;
    std::string after;  // the 26 bytes once parsed, NULs as '|'
};

parsed parse(const std::string &text) {
    char buffer[26];
    std::memset(buffer, '#', sizeof buffer);
    std::memcpy(buffer, text.data(), std::min(text.size(), sizeof buffer));
    if (text.size() < sizeof buffer) buffer[text.size()] = '\0';
    parsed p;
    p.result = aviin_get_subtitle_duration(nullptr, buffer, &p.start, &p.duration);
    for (char c : buffer) p.after += c == '\0' ? '|' : c;
    return p;
}

TEST(subtitle_span, a_well_formed_span_gives_start_and_duration) {
    parsed p = parse("00:00:01.500-00:00:03.250");
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.start, 1500u);
    EXPECT_EQ(p.duration, 1750u);
    // NULs over every separator and at byte 25.
    EXPECT_EQ(p.after, "00|00|01|500|00|00|03|250|");
    p = parse("00:01:02.003-00:01:04.005");
    EXPECT_EQ(p.start, 62003u);
    EXPECT_EQ(p.duration, 2002u);
    p = parse("01:00:00.000-02:30:00.000");
    EXPECT_EQ(p.start, 3600000u);
    EXPECT_EQ(p.duration, 5400000u);
    p = parse("00:00:05.000-00:00:05.000");
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.duration, 0u);
}

TEST(subtitle_span, only_25_characters_count) {
    // Byte 25 becomes NUL, so the end's milliseconds are 250, not 2509999.
    parsed p = parse("00:00:01.500-00:00:03.2509999");
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.duration, 1750u);
    // A separator past byte 25 is not there.
    p = parse("0000000000:00:01.500-00:00:03.250");
    EXPECT_EQ(p.result, 1);
}

TEST(subtitle_span, fields_read_like_strtol_and_are_kept_in_16_bits) {
    parsed p = parse(" 1: +2: 3. 4- 1: 2: 3. 5");
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.start, ((1u * 3600 + 2 * 60 + 3) * 1000) + 4);
    EXPECT_EQ(p.duration, 1u);
    // A field opening with a letter reads as 0; digits stop at the first non-digit.
    p = parse("x:1y:2.3-0:1:2.9");
    EXPECT_EQ(p.start, 62003u);
    EXPECT_EQ(p.duration, 6u);
    // 65537 hours keep their low 16 bits: one hour.
    p = parse("65537:0:0.0-65537:0:0.1");
    EXPECT_EQ(p.start, 3600000u);
    EXPECT_EQ(p.duration, 1u);
    // Hours are signed: -1 hours before 0 lasts an hour.
    p = parse("-1:0:0.0-0:0:0.0");
    EXPECT_EQ(p.result, 0);
    EXPECT_EQ(p.start, static_cast<uint32_t>(-3600000));
    EXPECT_EQ(p.duration, 3600000u);
}

TEST(subtitle_span, malformed_text_fails) {
    // The end before the start: the start is still written.
    parsed p = parse("00:00:03.000-00:00:01.000");
    EXPECT_EQ(p.result, 1);
    EXPECT_EQ(p.start, 3000u);
    EXPECT_EQ(p.duration, 77u);
    // A missing separator: nothing written.
    for (const char *text : {"00:00:01.500 00:00:03.250", "00:00:01.500-00:00:03", "00-00-01.500-00:00:03.250", "", "::.-::."}) {
        p = parse(text);
        if (std::string(text) == "::.-::.") {
            EXPECT_EQ(p.result, 0) << "empty fields read as 0";
            EXPECT_EQ(p.start, 0u);
            continue;
        }
        EXPECT_EQ(p.result, 1) << text;
        EXPECT_EQ(p.start, 77u) << text;
        EXPECT_EQ(p.duration, 77u) << text;
    }
    EXPECT_EQ(aviin_get_subtitle_duration(nullptr, nullptr, nullptr, nullptr), 1);
    char text[26] = "00:00:01.500-00:00:03.250";
    EXPECT_EQ(aviin_get_subtitle_duration(nullptr, text, nullptr, nullptr), 0);
}

TEST(subtitle_span, one_field_at_a_time) {
    char text[] = "12:34-5";
    char *cursor = text;
    uint16_t v = 0;
    ASSERT_EQ(kelq::getTimeValue(&cursor, ":", &v), 0);
    EXPECT_EQ(v, 12);
    EXPECT_EQ(cursor, text + 3);
    EXPECT_EQ(text[2], '\0');
    EXPECT_NE(kelq::getTimeValue(&cursor, ":", &v), 0);
    EXPECT_EQ(cursor, text + 3);
    EXPECT_EQ(v, 12);
    ASSERT_EQ(kelq::getTimeValue(&cursor, "-", &v), 0);
    EXPECT_EQ(v, 34);
    EXPECT_STREQ(cursor, "5");
}

// ---------------------------------------------------------------------------
// The subtitle shown at a frame.
// ---------------------------------------------------------------------------

// Stream 0: video at 8 frames a second (125 ms a frame, exact in binary),
// a key frame every second, 120 frames. Streams 1 and 2: bitmap subtitles,
// each chunk stored just before the frame at its start time.
struct subtitle_file {
    indexed_file file;
    std::vector<size_t> frames;
    std::vector<std::pair<std::string, size_t>> subtitles;  // name, chunk number
    int64_t header(const std::string &name) const {
        for (const auto &s : subtitles)
            if (s.first == name) return file.chunks[s.second].header;
        return -1;
    }
};

subtitle_file make_subtitle_file(const char *frame_id = "00dc") {
    struct cue {
        const char *name, *stream, *text;
        int64_t at_ms;
    };
    const cue cues[] = {
        {"E", "02sb", "00:00:00.000-00:00:20.000", -1},  // before the first frame, on stream 2
        {"A", "01sb", "00:00:01.000-00:00:02.100", 1000},
        {"D", "01sb", "00:00:03.000-00:00:03.900", 3000},
        {"B", "01sb", "00:00:06.000-00:00:08.000", 6000},
        {"F", "01sb", "00:00:11.000-00:00:10.000", 10000},  // ends before it starts
        {"G", "01sb", "00:00:10.500-00:00:12.000", 10500},
        {"H", "01sb", "00:00", 11000},                      // too short to hold a span
    };
    std::vector<planned> chunks;
    subtitle_file out;
    size_t next_cue = 0;
    for (uint32_t f = 0; f < 120; ++f) {
        while (next_cue < sizeof cues / sizeof cues[0] && cues[next_cue].at_ms <= f * 125) {
            const cue &c = cues[next_cue++];
            byte_image text;
            text.text(c.text);
            if (std::strlen(c.text) >= 25) text.text("bitmap").fill(40, 0x33);
            out.subtitles.push_back({c.name, chunks.size()});
            chunks.push_back({c.stream, text});
        }
        out.frames.push_back(chunks.size());
        chunks.push_back({frame_id, filler(f % 8 == 0 ? 200 : 20, f), f % 8 == 0});
    }
    out.file = make_indexed(hdrl({video_list(1, 8), bitmap_subtitle_list(), bitmap_subtitle_list()}), chunks);
    return out;
}

class shown_subtitle : public ::testing::Test {
protected:
    shown_subtitle() : s(make_subtitle_file()), h(s.file.bytes), storage(32) {
        std::memset(&table, 0, sizeof table);
        if (h.get() == nullptr) return;
        aviin_init_keyindex(h, &table, storage.data(), 32, 0);
        while (aviin_build_keyindex_entry(h, &table, 0) == 0) {
        }
    }
    struct shown {
        int result = -1;
        uint64_t offset = 0;
        uint32_t duration = 0;
    };
    shown at(int32_t frame, uint32_t stream = 1, const keyindex_table *t = nullptr) {
        shown r;
        r.result = aviin_get_subtitle_offset(h, t != nullptr ? t : &table, 0, stream, frame, &r.offset, &r.duration);
        return r;
    }
    uint64_t frame_header(size_t f) const { return static_cast<uint64_t>(s.file.chunks[s.frames[f]].header); }

    subtitle_file s;
    open_file h;
    std::vector<keyindex_entry> storage;
    keyindex_table table;
};

TEST_F(shown_subtitle, the_file_opens_with_its_streams_and_table) {
    ASSERT_NE(h.get(), nullptr);
    uint32_t kind = 0;
    ASSERT_EQ(aviin_get_chunk_type(h, 1, &kind), 0);
    EXPECT_EQ(kind, static_cast<uint32_t>(KELQAVI_CHUNK_BITMAP_CAPTION));
    EXPECT_EQ(table.count, 15u);
    EXPECT_EQ(table.frames_scanned, 120u);
}

TEST_F(shown_subtitle, a_subtitle_starting_at_the_frames_time_is_taken_without_a_duration) {
    const shown r = at(8);  // 1000 ms
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("A"));
    EXPECT_EQ(r.duration, no_duration);
}

TEST_F(shown_subtitle, a_subtitle_already_showing_is_taken_with_the_time_it_has_left) {
    shown r = at(9);  // 1125 ms: 975 ms left
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("A"));
    EXPECT_EQ(r.duration, 975u);
    r = at(12);  // 1500 ms: 600 ms left
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("A"));
    EXPECT_EQ(r.duration, 600u);
}

TEST_F(shown_subtitle, one_ending_within_500_ms_is_passed_over_and_the_last_frame_reached_given) {
    shown r = at(28);  // 3500 ms: D has 400 ms left
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.offset, frame_header(28));
    EXPECT_EQ(r.duration, no_duration);
    r = at(13);  // 1625 ms: A has 475 ms left
    EXPECT_EQ(r.offset, frame_header(13));
    r = at(60);  // 7500 ms: B has exactly 500 ms left, not more
    EXPECT_EQ(r.offset, frame_header(60));
    r = at(59);  // 7375 ms: 625 ms left
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("B"));
    EXPECT_EQ(r.duration, 625u);
}

TEST_F(shown_subtitle, the_walk_starts_five_seconds_before_the_frame) {
    // Within the first five seconds the walk starts at the first movi chunk,
    // where E (stream 2, 0 to 20 s) lies before the first frame.
    shown r = at(39, 2);  // 4875 ms
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("E"));
    EXPECT_EQ(r.duration, 20000u - 4875u);
    // From 5 s on it starts at a key frame, after E: nothing is shown.
    r = at(41, 2);  // 5125 ms: five seconds before is frame 1, key frame 0
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.offset, frame_header(41));
    // And a subtitle stored before the key frame five seconds back is not met:
    // A (1 s to 2.1 s) at 8.7 s is long over anyway, B is found from key frame 24.
    r = at(64);  // 8000 ms: B ends exactly now
    EXPECT_EQ(r.offset, frame_header(64));
    r = at(50);  // 6250 ms, from key frame 8 (1 s)
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("B"));
    EXPECT_EQ(r.duration, 1750u);
}

TEST_F(shown_subtitle, text_that_does_not_parse_counts_as_far_as_it_was_read) {
    // F's span ends before it starts: its start is still read (11000 ms),
    // which is past the frame's time, so F is shown, with no duration.
    shown r = at(86);  // 10750 ms
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("F"));
    EXPECT_EQ(r.duration, no_duration);
    // H is five bytes long: nothing of a start is read from it, so it counts
    // as starting at 0 and G, with 875 ms left, is shown before H is met.
    r = at(89);  // 11125 ms
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("G"));
    EXPECT_EQ(r.duration, 875u);
}

TEST_F(shown_subtitle, failures) {
    // Past the last frame the list ends first.
    shown r = at(130);
    EXPECT_EQ(r.result, 1);
    // A frame after the first five seconds needs the key table.
    r = at(60, 1, nullptr);
    EXPECT_EQ(aviin_get_subtitle_offset(h, nullptr, 0, 1, 60, &r.offset, &r.duration), 1);
    EXPECT_EQ(r.offset, none);
    EXPECT_EQ(r.duration, no_duration);
    // Within them it does not.
    EXPECT_EQ(aviin_get_subtitle_offset(h, nullptr, 0, 1, 12, &r.offset, &r.duration), 0);
    EXPECT_EQ(r.duration, 600u);
    uint64_t offset = 0;
    EXPECT_EQ(aviin_get_subtitle_offset(h, &table, 0, 1, 12, &offset, nullptr), 1);
    EXPECT_EQ(aviin_get_subtitle_offset(nullptr, &table, 0, 1, 12, &offset, &r.duration), 1);
}

TEST_F(shown_subtitle, a_partly_built_table_starts_at_the_latest_key_frame_it_knows) {
    keyindex_table partial;
    std::vector<keyindex_entry> few(32);
    ASSERT_EQ(aviin_init_keyindex(h, &partial, few.data(), 32, 0), 0);
    ASSERT_EQ(aviin_build_keyindex_entry(h, &partial, 15), 0);
    ASSERT_GT(partial.frames_scanned, 8u);  // key frames 0 and 8 known
    ASSERT_LT(partial.frames_scanned, 19u);  // five seconds before frame 59 lies beyond
    const shown r = [&] {
        shown x;
        x.result = aviin_get_subtitle_offset(h, &partial, 0, 1, 59, &x.offset, &x.duration);
        return x;
    }();
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(static_cast<int64_t>(r.offset), s.header("B"));
    EXPECT_EQ(r.duration, 625u);
}

}  // namespace

namespace {

// Frames marked "db" lie where the "dc" ones did: with the db-frame tolerance
// every answer is the same; without it the walk never counts a frame.
TEST_F(shown_subtitle, db_frames_give_the_same_answers_under_their_tolerance) {
    const subtitle_file raw = make_subtitle_file("00db");
    temp_file file(raw.file.bytes);
    for (uint32_t tolerances : {0u, static_cast<uint32_t>(AVIIN_TOLERATE_DB_FRAMES)}) {
        aviin_handle *db = aviin_open_tolerant(file.path(), 0, tolerances);
        ASSERT_NE(db, nullptr);
        int differing = 0;
        for (int32_t frame : {8, 9, 13, 28, 39, 41, 50, 64}) {
            const uint32_t stream = frame == 39 ? 2 : 1;
            const shown want = at(frame, stream);
            shown got;
            got.result = aviin_get_subtitle_offset(db, &table, 0, stream, frame, &got.offset, &got.duration);
            if (got.result != want.result || got.offset != want.offset || got.duration != want.duration) ++differing;
        }
        EXPECT_EQ(differing > 0, tolerances == 0);
        aviin_close(db);
    }
}

TEST(shown_subtitle_no_rate, a_video_stream_without_a_frame_rate_walks_from_the_first_chunk) {
    // Scale and rate 0: no time for any frame, so no subtitle is ever taken,
    // and the walk starts at the first chunk whatever the frame.
    const indexed_file f = make_indexed(hdrl({video_list(0, 0), bitmap_subtitle_list()}),
                                        {{"01sb", byte_image().text("00:00:00.000-00:00:09.000")},
                                         {"00dc", filler(20, 1), true}, {"00dc", filler(20, 2)}, {"00dc", filler(20, 3)}});
    open_file h(f.bytes);
    ASSERT_NE(h.get(), nullptr);
    uint64_t offset = 0;
    uint32_t duration = 0;
    EXPECT_EQ(aviin_get_subtitle_offset(h, nullptr, 0, 1, 2, &offset, &duration), 0);
    EXPECT_EQ(static_cast<int64_t>(offset), f.chunks[3].header);
    EXPECT_EQ(duration, no_duration);
}

}  // namespace
