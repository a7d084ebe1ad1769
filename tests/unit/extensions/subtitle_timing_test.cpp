// Bitmap subtitle timing: the span text parser on good and malformed text,
// and the subtitle shown at a frame, over a file whose subtitle chunks lie at
// known places and times.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "extensions/subtitle_timing.h"
#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

constexpr uint32_t no_duration = 0xFFFFFFFFu, untouched = 77;

// The text parsed from the 26 bytes a chunk's data starts with: the result,
// the start and the duration.
std::tuple<int, uint32_t, uint32_t> parse(const std::string &text) {
    char buffer[26];
    std::memset(buffer, '#', sizeof buffer);
    std::memcpy(buffer, text.data(), std::min(text.size(), sizeof buffer));
    if (text.size() < sizeof buffer) buffer[text.size()] = '\0';
    uint32_t start = untouched, duration = untouched;
    const int result = aviin_get_subtitle_duration(nullptr, buffer, &start, &duration);
    return {result, start, duration};
}

TEST(subtitle_span, parses_good_odd_and_malformed_text) {
    const struct { const char *text; int result; uint32_t start, duration; } rows[] = {
        {"00:00:05.000-00:00:05.000", 0, 5000, 0},
        // Only 25 characters count: byte 25 becomes NUL, and a separator past it is not there.
        {"00:00:01.500-00:00:03.2509999", 0, 1500, 1750},
        {"0000000000:00:01.500-00:00:03.250", 1, untouched, untouched},
        // Fields read like strtol, letters as 0, kept in 16 bits; hours are signed.
        {" 1: +2: 3. 4- 1: 2: 3. 5", 0, 3723004, 1},
        {"x:1y:2.3-0:1:2.9", 0, 62003, 6},
        {"65537:0:0.0-65537:0:0.1", 0, 3600000, 1},
        {"-1:0:0.0-0:0:0.0", 0, static_cast<uint32_t>(-3600000), 3600000},
        {"::.-::.", 0, 0, 0},
        // The end before the start: the start is still written.
        {"00:00:03.000-00:00:01.000", 1, 3000, untouched},
        // A missing separator: nothing written.
        {"00:00:01.500-00:00:03", 1, untouched, untouched},
        {"", 1, untouched, untouched},
    };
    for (const auto &r : rows)
        EXPECT_EQ(parse(r.text), std::make_tuple(r.result, r.start, r.duration)) << r.text;
    EXPECT_EQ(aviin_get_subtitle_duration(nullptr, nullptr, nullptr, nullptr), 1);
    char text[26] = "00:00:01.500-00:00:03.250";
    EXPECT_EQ(aviin_get_subtitle_duration(nullptr, text, nullptr, nullptr), 0);
    std::replace(std::begin(text), std::end(text), '\0', '|');
    EXPECT_EQ(std::string(text, sizeof text), "00|00|01|500|00|00|03|250|") << "NULs over the separators";
}

// Stream 0: video at 8 frames a second (125 ms a frame, exact in binary),
// a key frame every second, 120 frames. Streams 1 and 2: bitmap subtitles,
// each chunk stored just before the frame at its start time.
struct subtitle_file {
    indexed_file file;
    std::vector<size_t> frames;       // chunk numbers of the frames
    std::map<char, size_t> subtitles;  // chunk numbers of the subtitles, by name
};

subtitle_file make_subtitle_file(const char *frame_id = "00dc") {
    const struct { char name; const char *stream, *text; int64_t at_ms; } cues[] = {
        {'E', "02sb", "00:00:00.000-00:00:20.000", -1},  // before the first frame, on stream 2
        {'A', "01sb", "00:00:01.000-00:00:02.100", 1000},
        {'D', "01sb", "00:00:03.000-00:00:03.900", 3000},
        {'B', "01sb", "00:00:06.000-00:00:08.000", 6000},
        {'F', "01sb", "00:00:11.000-00:00:10.000", 10000},  // ends before it starts
        {'G', "01sb", "00:00:10.500-00:00:12.000", 10500},
        {'H', "01sb", "00:00", 11000},                      // too short to hold a span
    };
    std::vector<planned> chunks;
    subtitle_file out;
    size_t next_cue = 0;
    for (uint32_t f = 0; f < 120; ++f) {
        while (next_cue < sizeof cues / sizeof cues[0] && cues[next_cue].at_ms <= f * 125) {
            const auto &c = cues[next_cue++];
            byte_image text;
            text.text(c.text);
            if (std::strlen(c.text) >= 25) text.text("bitmap").fill(40, 0x33);
            out.subtitles[c.name] = chunks.size();
            chunks.push_back({c.stream, text});
        }
        out.frames.push_back(chunks.size());
        chunks.push_back({frame_id, filler(f % 8 == 0 ? 200 : 20, f), f % 8 == 0});
    }
    out.file = make_indexed(hdrl({video_list(1, 8), video_list(1, 25, "KQSB"), video_list(1, 25, "KQSB")}), chunks);
    return out;
}

using shown = std::tuple<int, uint64_t, uint32_t>;  // result, offset, duration

shown at(aviin_handle *h, const keyindex_table *t, int32_t frame, uint32_t stream = 1) {
    uint64_t offset = 0;
    uint32_t duration = 0;
    const int result = aviin_get_subtitle_offset(h, t, 0, stream, frame, &offset, &duration);
    return {result, offset, duration};
}

// The subtitle shown at a frame: name of the chunk expected, or '-' for the
// last frame reached (nothing to show), and the time it has left.
// The plain cases (a subtitle starting at the frame, one passed over) are
// the tool's on its sample file; these are the edges.
const struct { int32_t frame; uint32_t stream; char expected; uint32_t duration; const char *why; } shown_rows[] = {
    {9, 1, 'A', 975, "already showing; stream 2's E, met first, is not taken"},
    {60, 1, '-', no_duration, "B has exactly 500 ms left, not more"},
    {39, 2, 'E', 20000 - 4875, "within 5 s the walk starts at the first chunk, before E"},
    {41, 2, '-', no_duration, "from 5 s on it starts at a key frame, after E"},
    {50, 1, 'B', 1750, "found from key frame 8"},
    {86, 1, 'F', no_duration, "F does not parse, but its start is read and lies ahead"},
    {89, 1, 'G', 875, "H reads as starting at 0, G is met first"},
};

class shown_subtitle : public ::testing::Test {
protected:
    shown_subtitle() : s(make_subtitle_file()), h(s.file.bytes), storage(32) {
        std::memset(&table, 0, sizeof table);
        if (h.get() == nullptr) return;
        aviin_init_keyindex(h, &table, storage.data(), 32, 0);
        while (aviin_build_keyindex_entry(h, &table, 0) == 0) {
        }
    }
    uint64_t expected_offset(int32_t frame, char name) const {
        const size_t chunk = name == '-' ? s.frames[static_cast<size_t>(frame)] : s.subtitles.at(name);
        return static_cast<uint64_t>(s.file.chunks[chunk].header);
    }

    subtitle_file s;
    reader h;
    std::vector<keyindex_entry> storage;
    keyindex_table table;
};

TEST_F(shown_subtitle, at_each_frame) {
    ASSERT_NE(h.get(), nullptr);
    for (const auto &r : shown_rows) {
        SCOPED_TRACE(testing::Message() << "frame " << r.frame << ": " << r.why);
        EXPECT_EQ(at(h, &table, r.frame, r.stream), (shown{0, expected_offset(r.frame, r.expected), r.duration}));
    }
}

TEST_F(shown_subtitle, failures) {
    EXPECT_EQ(std::get<0>(at(h, &table, 130)), 1) << "past the last frame the list ends first";
    // A frame after the first five seconds needs the key table.
    EXPECT_EQ(at(h, nullptr, 60), (shown{1, KELQAVI_NOT_FOUND, no_duration}));
    uint64_t offset = 0;
    uint32_t duration = 0;
    EXPECT_EQ(aviin_get_subtitle_offset(h, &table, 0, 1, 12, &offset, nullptr), 1);
    EXPECT_EQ(aviin_get_subtitle_offset(nullptr, &table, 0, 1, 12, &offset, &duration), 1);
}

TEST_F(shown_subtitle, a_partly_built_table_starts_at_the_latest_key_frame_it_knows) {
    keyindex_table partial;
    std::vector<keyindex_entry> few(32);
    ASSERT_EQ(aviin_init_keyindex(h, &partial, few.data(), 32, 0), 0);
    ASSERT_EQ(aviin_build_keyindex_entry(h, &partial, 15), 0);
    ASSERT_GT(partial.frames_scanned, 8u);   // key frames 0 and 8 known
    ASSERT_LT(partial.frames_scanned, 19u);  // five seconds before frame 59 lies beyond
    // From key frame 8 the walk does not meet E, stored before the first frame.
    EXPECT_EQ(at(h, &partial, 59, 2), (shown{0, expected_offset(59, '-'), no_duration}));
}

// Frames marked "db" lie where the "dc" ones did: with the db-frame tolerance
// every answer is the same; without it the walk never counts a frame.
TEST_F(shown_subtitle, db_frames_give_the_same_answers_under_their_tolerance) {
    temp_file file(make_subtitle_file("00db").file.bytes);
    for (uint32_t tolerances : {0u, static_cast<uint32_t>(AVIIN_TOLERATE_DB_FRAMES)}) {
        aviin_handle *db = aviin_open_tolerant(file.path(), 0, tolerances);
        ASSERT_NE(db, nullptr);
        int differing = 0;
        for (const auto &r : shown_rows) differing += at(db, &table, r.frame, r.stream) != at(h, &table, r.frame, r.stream);
        EXPECT_EQ(differing > 0, tolerances == 0);
        aviin_close(db);
    }
}

TEST(shown_subtitle_no_rate, a_video_stream_without_a_frame_rate_walks_from_the_first_chunk) {
    // Scale and rate 0: no time for any frame, so no subtitle is ever taken,
    // and the walk starts at the first chunk whatever the frame.
    const indexed_file f = make_indexed(hdrl({video_list(0, 0), video_list(1, 25, "KQSB")}),
                                        {{"01sb", byte_image().text("00:00:00.000-00:00:09.000")},
                                         {"00dc", filler(20, 1), true}, {"00dc", filler(20, 2)}, {"00dc", filler(20, 3)}});
    reader h(f.bytes);
    ASSERT_NE(h.get(), nullptr);
    EXPECT_EQ(at(h, nullptr, 2), (shown{0, static_cast<uint64_t>(f.chunks[3].header), no_duration}));
}

}  // namespace
