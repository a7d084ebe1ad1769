// Header-list parsing: stream classification, the per-kind tables and their
// limits, the chunk order inside "strl", and the format getters on top.
#include <gtest/gtest.h>

#include <cstring>

#include "reader/reader_handle.h"
#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

bool opens(const std::vector<byte_image> &strls) { return reader(streams_file(strls)).get() != nullptr; }

byte_image video_chunks(const char *code, int32_t height, const std::vector<byte_image> &after) {
    byte_image b = byte_image().append(strh_chunk("vids", code, 1, 25, 7)).append(strf_video_chunk(320, height, code));
    for (const byte_image &a : after) b.append(a);
    return strl(b);
}

}  // namespace

// Streams of every kind, an unclassified one and an odml list: the kind of
// each slot, the per-kind tables behind the format getters, and the total
// frame count from the odml list's third word.
TEST(StreamTable, ClassifiesEachKindAndGivesItsFormat) {
    const byte_image stereo = strl(byte_image()
                                       .append(strh_chunk("auds", "\0\0\0\0", 2, 44100, 99))
                                       .append(strf_audio_chunk(0x55, 2, 44100, 16, {1, 2, 3, 4}))
                                       .append(strn_chunk("Stereo")));
    const byte_image odml = byte_image().list("LIST", "odml", byte_image().chunk("xxxx", byte_image().u32(1234).fill(244)));
    reader h(streams_file({
        video_strl("MJPG", "Video"), stereo, text_strl("Subtitle (English)"), text_strl("subtitle"),
        text_strl("Chapter list"), text_strl(""), video_strl("kqsb", "Sub 1"),
        strl(byte_image().append(strh_chunk("mids", "\0\0\0\0", 1, 1, 0)).append(strf_caption_chunk(0, 0, 0, 0))),
        video_strl("XVID"), odml,
    }));
    ASSERT_NE(h.get(), nullptr);
    // Stream 19 is an unused slot; 20 is no slot.
    const uint32_t expected[] = {3, 1, 5, 0, 7, 0, 6, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    int32_t count = 0, strd = -1;
    EXPECT_EQ(aviin_get_summary(h, &count, &strd), 0);
    EXPECT_EQ(count, 9);
    EXPECT_EQ(strd, 0);
    for (uint32_t s = 0; s < 21; ++s) {
        uint32_t kind = 99;
        EXPECT_EQ(aviin_get_chunk_type(h, s, &kind), s < 20 ? 0 : 1) << s;
        if (s < 20) { EXPECT_EQ(kind, expected[s]) << "stream " << s; }
    }
    EXPECT_EQ(h.get()->odml_total_frames, 1234u);
    // The second video stream is the second entry of the video table.
    video_stream_format v{};
    ASSERT_EQ(aviin_get_video_format(h, 8, &v, nullptr), 0);
    EXPECT_EQ(std::memcmp(v.compression, "XVID", 4), 0);
    std::free(v.name_length > 0 ? v.name : nullptr);

    audio_stream_format a{};
    ASSERT_EQ(aviin_get_audio_format(h, 1, &a), 0);
    const uint32_t got[] = {a.rate, a.scale, a.wave_format.format_tag, a.wave_format.channels, a.wave_format.cb_size, a.wave_format.extra[3]};
    EXPECT_EQ(std::vector<uint32_t>(got, got + 6), (std::vector<uint32_t>{44100, 2, 0x55, 2, 4, 4}));
    ASSERT_EQ(a.name_length, 6);
    EXPECT_STREQ(a.name, "Stereo");
    std::free(a.name);
    EXPECT_EQ(aviin_get_audio_format(h, 9, &a), 1);  // a stream the file does not have
    EXPECT_EQ(aviin_get_audio_format(h, -1, &a), 1);
    // Text streams keep their format but not their name.
    caption_stream_format c{};
    ASSERT_EQ(aviin_get_text_caption_format(h, 2, &c), 0);
    EXPECT_EQ(c.format.value[0], 1);
    EXPECT_EQ(c.format.value[3], 4);
    EXPECT_EQ(c.name, nullptr);
    EXPECT_EQ(c.name_length, 0);
    ASSERT_EQ(aviin_get_chapter_format(h, 4, &c), 0);
    EXPECT_EQ(c.format.value[2], 3);
    EXPECT_EQ(aviin_get_chapter_format(h, 9, &c), 1);
}

// At most 19 streams in all and 12 of each kind; unclassified streams do not
// count against a kind.
TEST(StreamTable, StreamLimits) {
    EXPECT_TRUE(opens(std::vector<byte_image>(19, text_strl("other"))));
    EXPECT_FALSE(opens(std::vector<byte_image>(20, text_strl("other"))));
    for (const byte_image &one : {video_strl(), audio_strl(), text_strl("Subtitle"), text_strl("Chapter"), video_strl("KQSB")}) {
        std::vector<byte_image> strls(12, one);
        strls.push_back(text_strl("other"));
        EXPECT_TRUE(opens(strls));
        strls.push_back(one);
        EXPECT_FALSE(opens(strls));
    }
}

// strh, strf, strd, strn keeps both; a name before the strd ends the
// look-ahead chain, so the block is not read. Bitmap captions take no strd
// and copy their name unterminated.
TEST(StreamTable, ChunkOrderInsideStreamListAndTheVideoGetters) {
    const byte_image strd = strd_chunk(0xABCD, {1, 2, 3, 4});
    const struct { byte_image strl; bool bitmap; uint32_t strd_present; } rows[] = {
        {video_chunks("MJPG", -240, {strd, strn_chunk("Camera")}), false, 1},
        {video_chunks("MJPG", -240, {strn_chunk("Camera"), strd}), false, 0},
        {video_chunks("KQSB", -240, {strn_chunk("Camera"), strd}), true, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.bitmap ? "bitmap" : "video");
        reader h(streams_file({row.strl}));
        ASSERT_NE(h.get(), nullptr);
        video_stream_format v{};
        uint32_t length = 0;
        ASSERT_EQ(row.bitmap ? aviin_get_bitmap_caption_format(h, 0, &v, &length) : aviin_get_video_format(h, 0, &v, &length), 0);
        const std::string got = std::to_string(length) + " " + std::to_string(v.width) + "x" + std::to_string(v.height) + " " +
                                std::to_string(v.rate) + " " + std::string(v.compression, 4) + " " + std::to_string(v.strd_present);
        EXPECT_EQ(got, std::string("7 320x-240 25 ") + (row.bitmap ? "KQSB " : "MJPG ") + std::to_string(row.strd_present));
        ASSERT_EQ(v.name_length, 6);
        EXPECT_EQ(std::string(v.name, 6), "Camera");
        if (row.strd_present != 0) {
            uint8_t *data = nullptr;
            int32_t size = 0;
            EXPECT_EQ(v.strd_header, 0xABCDu);
            ASSERT_EQ(v.strd_size, 4);
            EXPECT_EQ(v.name[6], '\0');
            EXPECT_EQ(aviin_get_strd_info(h, 0, &data, &size), 0);
            EXPECT_EQ(size, 4);
            EXPECT_EQ(std::vector<uint8_t>(data, data + 4), (std::vector<uint8_t>{1, 2, 3, 4}));
        }
        std::free(v.name);
    }
}
