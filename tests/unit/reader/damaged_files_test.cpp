// Every reader call over damaged files: cut at every length and with bytes
// overwritten at random. Whatever the results, the calls must stay inside
// their buffers and the file (the sanitizers watch) and end: every loop here
// is bounded, as the header walk may be sent backwards for ever by a size
// field; the results are checked where the call has a short list of them.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

bool one_of(int result, std::initializer_list<int> allowed) {
    for (int a : allowed)
        if (result == a) return true;
    return false;
}

// Both walks from the start of movi, reading every header's data by offset.
void walk(aviin_handle *h, const byte_image &source) {
    for (int call = 0; call < 24; ++call) {
        const int32_t capacity = call % 3 == 0 ? 0 : (call % 3 == 1 ? 3 : 64);
        const chunk_call c = next_chunk(h, capacity);
        ASSERT_TRUE(one_of(c.result, {0, 1, 3})) << c.result;
        ASSERT_LE(c.result == 0 ? c.size : 0, capacity);
    }
    ASSERT_TRUE(one_of(aviin_seek_by_offset(h, static_cast<uint64_t>(source.find("movi") + 4)), {0, 1}));
    for (int call = 0; call < 24; ++call) {
        const header_call c = next_header(h);
        ASSERT_TRUE(one_of(c.result, {0, 1, 3})) << c.result;
        if (c.result != 0) break;
        uint8_t data[16];
        ASSERT_TRUE(one_of(aviin_get_chunk(h, c.offset, data, c.size < 16 ? c.size : 16), {0, 1}));
    }
}

// Every index call the way an application would make them.
void index_calls(aviin_handle *h) {
    uint32_t a = 0, b = 0, c = 0, d = 0;
    for (uint32_t n = 0; n < 200; ++n)
        if (aviin_get_idx1_entry(h, n, &a, &b, &c, &d) != 0) break;
    aviin_get_start_end_by_time(h, 1, 1, 0.1f, 0.9f, &a, &b);
    aviin_get_start_end_by_time(h, 2, 1, 0.1f, 0.9f, &a, &b);
    aviin_goto_idx1_sample(h, 7);
    std::vector<keyindex_entry> storage(8);
    keyindex_table t;
    if (aviin_init_keyindex(h, &t, storage.data(), 8, 0) == 0) {
        for (int calls = 0; aviin_build_keyindex_entry(h, &t, 16) == 0 && calls < 1000; ++calls) {
        }
    }
    for (int32_t f = -1; f < 45; f += 3) {
        keyindex_entry e, next;
        uint64_t pos = 0, p1 = 0, p2 = 0, p3 = 0;
        if (aviin_read_key_table_by_frame_no(h, &t, f, &e, -1) == 0) {
            aviin_get_video_offset(h, e, 0, f, &pos);
            aviin_get_next_key_index(h, &t, &e, &next, 1);
        }
        aviin_get_chunk_offsets(h, &t, 0, f, f + 4, 2.0f, &pos, &p1, 1, &p2, &p3);
        aviin_get_chunk_offsets(h, &t, 1, f, f + 4, 2.0f, &pos, &p1, 2, &p2, &p3);
        aviin_get_subtitle_offset(h, &t, 0, 3, f, &pos, &a);
    }
}

// Opens a damaged image (the open report agreeing), runs the walks and the
// index calls, then numbers the segments and walks each one entered. True
// when the image opened.
bool exercise(const byte_image &bytes, const byte_image &source, uint32_t swapped, int &segments_entered) {
    temp_file file(bytes);
    aviin_handle *h = aviin_open(file.path(), swapped);
    EXPECT_EQ(aviin_open_report(file.path(), swapped, 0, nullptr, 0) == AVIIN_OPEN_OK, h != nullptr);
    if (h == nullptr) return false;
    walk(h, source);
    index_calls(h);
    int32_t count = 0;
    EXPECT_EQ(aviin_get_riff_count(h, &count), 0);
    for (int32_t n = 0; n <= count && n < 6 && h != nullptr; ++n) {
        int64_t offset = 0;
        const int result = aviin_get_riff_offset(h, n, &offset);
        EXPECT_TRUE(one_of(result, {0, 1}));
        if (result == 1 && offset == -1) h = nullptr;  // released, as documented
        if (result != 0) continue;
        EXPECT_GE(offset, 0);
        const int moved = aviin_goto_riff_checked(&h, swapped, offset);
        EXPECT_TRUE(one_of(moved, {0, 1}));
        if (h == nullptr) break;
        segments_entered += moved == 0;
        walk(h, source);
    }
    aviin_close(h);
    return true;
}

// Two segments: the main form with video, MPEG-style audio, PCM and bitmap
// subtitles (key frames every 5 frames, a "rec " group, an odd chunk), and a
// continuation form.
byte_image damage_source() {
    std::vector<planned> chunks;
    uint32_t mp3 = 0, pcm = 0;
    for (uint32_t f = 0; f < 40; ++f) {
        if (f % 15 == 2) chunks.push_back({"03sb", byte_image().text("00:00:00.500-00:00:02.000").fill(9, 1)});
        while (mp3 * 24 < f * 40 + 60) chunks.push_back({"01wb", filler(40 + mp3++ % 3, f)});
        while (pcm * 100 < f * 40) chunks.push_back({"02wb", filler(160, pcm++)});
        chunks.push_back({"00dc", filler(f % 5 == 0 ? 90 : 17, f), f % 5 == 0});
        if (f == 3) chunks.push_back({"LIST", byte_image().text("rec ").chunk("01wb", byte_image().text("ab")), false, false});
    }
    const byte_image main = make_indexed(hdrl({video_list(1, 25), audio_list(0x55, 48000, 1152, 1152, 48000),
                                               audio_list(1, 8000, 2, 1, 8000, 1600), video_list(1, 25, "KQSB")}),
                                         chunks)
                                .bytes;
    const byte_image avix = make_form("AVIX", byte_image(), byte_image().chunk("00dc", byte_image().text("frame1")).chunk("01wb", byte_image().text("odd")),
                                      byte_image().chunk("JUNK", byte_image().fill(4)))
                                .bytes;
    return byte_image().append(main).append(avix);
}

// Every third length, then 400 rounds of bytes overwritten: sometimes a whole
// 32-bit field, to hit sizes and offsets whole; mostly small values, so sizes
// and ids near the real ones turn up.
TEST(DamagedFiles, CutShortOrOverwrittenThroughEveryCall) {
    const byte_image source = damage_source();
    int opened = 0, segments_entered = 0;
    for (size_t n = 0; n <= source.size(); n += 3) opened += exercise(source.head(n), source, n % 2, segments_entered);
    EXPECT_GT(opened, 400);
    EXPECT_GT(segments_entered, 400);
    std::mt19937 random(29);
    std::uniform_int_distribution<size_t> where(0, source.size() - 1);
    opened = segments_entered = 0;
    for (int round = 0; round < 400; ++round) {
        byte_image damaged = source;
        for (int i = 0; i <= round % 8; ++i) {
            const size_t at = where(random);
            if (i % 2 == 0 && at + 4 <= damaged.size())
                damaged.set_u32(at & ~size_t(3), random());
            else
                damaged.set_u8(at, random() % 4 == 0 ? random() & 0xFF : random() & 0x0F);
        }
        SCOPED_TRACE("round " + std::to_string(round));
        opened += exercise(damaged, source, round % 2, segments_entered);
    }
    EXPECT_GT(opened, 200);
    EXPECT_GT(segments_entered, 100);
}

}  // namespace
