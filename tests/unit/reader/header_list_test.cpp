// Header-list parsing: stream classification, the per-kind tables and their
// limits, the chunk order inside "strl", and the format getters on top.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "reader/reader_handle.h"
#include "support/avi_image.h"

using namespace kelqtest;

namespace {

struct closer {
    void operator()(aviin_handle *h) const { aviin_close(h); }
};
using handle_ptr = std::unique_ptr<aviin_handle, closer>;

handle_ptr open_streams(const std::vector<byte_image> &strls, const byte_image &extra_hdrl = byte_image()) {
    byte_image h = hdrl(strls);
    byte_image body;
    if (extra_hdrl.size() != 0) {
        byte_image inner;
        inner.append(avih_chunk(static_cast<uint32_t>(strls.size())));
        for (const byte_image &s : strls) inner.append(s);
        inner.append(extra_hdrl);
        h = byte_image().list("LIST", "hdrl", inner);
    }
    body.append(h).append(one_frame_movi());
    temp_file file(avi_form(body));
    return handle_ptr(aviin_open(file.path(), 0));
}

uint32_t kind_of(aviin_handle *h, uint32_t stream) {
    uint32_t kind = 99;
    EXPECT_EQ(aviin_get_chunk_type(h, stream, &kind), 0);
    return kind;
}

}  // namespace

TEST(StreamTable, ClassifiesEachKind) {
    handle_ptr h = open_streams({
        video_strl("MJPG", "Video"), audio_strl("Sound"), text_strl("Subtitle (English)"), text_strl("subtitle"),
        text_strl("Chapter list"), text_strl(""), video_strl("kqsb", "Sub 1"),
        strl(byte_image().append(strh_chunk("mids", "\0\0\0\0", 1, 1, 0)).append(strf_caption_chunk(0, 0, 0, 0))),
        video_strl("XVID"),
    });
    ASSERT_NE(h, nullptr);
    const uint32_t expected[] = {3, 1, 5, 0, 7, 0, 6, 0, 3};
    int32_t count = 0, strd = -1;
    EXPECT_EQ(aviin_get_summary(h.get(), &count, &strd), 0);
    ASSERT_EQ(count, 9);
    EXPECT_EQ(strd, 0);
    for (uint32_t s = 0; s < 9; ++s) EXPECT_EQ(kind_of(h.get(), s), expected[s]) << "stream " << s;
    EXPECT_EQ(h->streams[8].kind_index, 1);  // second video entry
    EXPECT_EQ(h->video_count, 2);
    EXPECT_EQ(h->bitmap_caption_count, 1);
    EXPECT_EQ(kind_of(h.get(), 19), 0u);  // an unused slot
    uint32_t kind = 0;
    EXPECT_EQ(aviin_get_chunk_type(h.get(), 20, &kind), 1);
}

TEST(StreamTable, NineteenStreamsOpenTwentyDoNot) {
    std::vector<byte_image> strls(19, text_strl("other"));
    EXPECT_NE(open_streams(strls), nullptr);
    strls.push_back(text_strl("other"));
    EXPECT_EQ(open_streams(strls), nullptr);
}

TEST(StreamTable, TwelveOfAKindOpenThirteenDoNot) {
    const byte_image kinds[] = {video_strl(), audio_strl(), text_strl("Subtitle"), text_strl("Chapter"),
                                video_strl("KQSB")};
    for (const byte_image &one : kinds) {
        std::vector<byte_image> strls(12, one);
        strls.push_back(text_strl("other"));  // unclassified streams do not count against it
        EXPECT_NE(open_streams(strls), nullptr);
        strls.push_back(one);
        EXPECT_EQ(open_streams(strls), nullptr);
    }
}

TEST(StreamTable, ChunkOrderInsideStreamList) {
    const byte_image strd = strd_chunk(0xABCD, {1, 2, 3, 4});
    // strh, strf, strd, strn: both kept.
    handle_ptr a = open_streams({strl(byte_image()
                                          .append(strh_chunk("vids", "MJPG", 1, 25, 7))
                                          .append(strf_video_chunk(320, -240, "MJPG"))
                                          .append(strd)
                                          .append(strn_chunk("Camera")))});
    ASSERT_NE(a, nullptr);
    video_stream_format v{};
    uint32_t length = 0;
    ASSERT_EQ(aviin_get_video_format(a.get(), 0, &v, &length), 0);
    EXPECT_EQ(length, 7u);
    EXPECT_EQ(v.width, 320);
    EXPECT_EQ(v.height, -240);
    EXPECT_EQ(v.rate, 25u);
    EXPECT_EQ(std::memcmp(v.compression, "MJPG", 4), 0);
    EXPECT_EQ(v.strd_present, 1u);
    EXPECT_EQ(v.strd_header, 0xABCDu);
    ASSERT_EQ(v.strd_size, 4);
    EXPECT_EQ(v.strd_data[3], 4);
    ASSERT_EQ(v.name_length, 6);
    EXPECT_STREQ(v.name, "Camera");
    EXPECT_NE(v.name, a->video_formats[0].name) << "the copy's name is the caller's own block";
    std::free(v.name);
    uint8_t *data = nullptr;
    int32_t size = 0;
    EXPECT_EQ(aviin_get_strd_info(a.get(), 0, &data, &size), 0);
    EXPECT_EQ(data, a->video_formats[0].strd_data);
    EXPECT_EQ(size, 4);
    int32_t count = 0, with_strd = 0;
    aviin_get_summary(a.get(), &count, &with_strd);
    EXPECT_EQ(with_strd, 1);

    // strh, strf, strn, strd: the name ends the look-ahead chain, the block is not read.
    handle_ptr b = open_streams({strl(byte_image()
                                          .append(strh_chunk("vids", "MJPG", 1, 25, 7))
                                          .append(strf_video_chunk(320, 240, "MJPG"))
                                          .append(strn_chunk("Camera"))
                                          .append(strd))});
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->video_formats[0].strd_present, 0u);
    EXPECT_EQ(b->video_formats[0].name_length, 6);
}

TEST(StreamTable, AudioFormatAndName) {
    handle_ptr h = open_streams({strl(byte_image()
                                          .append(strh_chunk("auds", "\0\0\0\0", 2, 44100, 99))
                                          .append(strf_audio_chunk(0x55, 2, 44100, 16, {1, 2, 3, 4}))
                                          .append(strn_chunk("Stereo")))});
    ASSERT_NE(h, nullptr);
    audio_stream_format a{};
    ASSERT_EQ(aviin_get_audio_format(h.get(), 0, &a), 0);
    EXPECT_EQ(a.rate, 44100u);
    EXPECT_EQ(a.scale, 2u);
    EXPECT_EQ(a.wave_format.format_tag, 0x55);
    EXPECT_EQ(a.wave_format.channels, 2);
    EXPECT_EQ(a.wave_format.cb_size, 4);
    EXPECT_EQ(a.wave_format.extra[3], 4);
    ASSERT_EQ(a.name_length, 6);
    EXPECT_STREQ(a.name, "Stereo");
    std::free(a.name);
    EXPECT_EQ(aviin_get_audio_format(h.get(), 1, &a), 1);
    EXPECT_EQ(aviin_get_audio_format(h.get(), -1, &a), 1);
}

TEST(StreamTable, TextStreamsKeepTheirFormatButNotTheirName) {
    handle_ptr h = open_streams({text_strl("Subtitle"), text_strl("Chapters")});
    ASSERT_NE(h, nullptr);
    caption_stream_format c{};
    ASSERT_EQ(aviin_get_text_caption_format(h.get(), 0, &c), 0);
    EXPECT_EQ(c.format.value[0], 1);
    EXPECT_EQ(c.format.value[3], 4);
    EXPECT_EQ(c.name, nullptr);
    EXPECT_EQ(c.name_length, 0);
    ASSERT_EQ(aviin_get_chapter_format(h.get(), 1, &c), 0);
    EXPECT_EQ(c.format.value[2], 3);
    EXPECT_EQ(aviin_get_chapter_format(h.get(), 2, &c), 1);
}

TEST(StreamTable, BitmapCaptionsHaveNoStrdAndAnUnterminatedNameCopy) {
    handle_ptr h = open_streams({strl(byte_image()
                                          .append(strh_chunk("vids", "KQSB", 1, 1000, 3))
                                          .append(strf_video_chunk(720, 576, "KQSB"))
                                          .append(strn_chunk("Subs 1"))
                                          .append(strd_chunk(1, {9, 8})))});
    ASSERT_NE(h, nullptr);
    video_stream_format v{};
    uint32_t length = 0;
    ASSERT_EQ(aviin_get_bitmap_caption_format(h.get(), 0, &v, &length), 0);
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(v.width, 720);
    EXPECT_EQ(v.strd_present, 0u);
    ASSERT_EQ(v.name_length, 6);
    EXPECT_EQ(std::memcmp(v.name, "Subs 1", 6), 0);
    std::free(v.name);
}

TEST(StreamTable, OdmlListGivesTotalFramesFromItsThirdWord) {
    const byte_image odml = byte_image().list("LIST", "odml", byte_image().chunk("xxxx", byte_image().u32(1234).fill(244)));
    handle_ptr h = open_streams({video_strl()}, odml);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->odml_total_frames, 1234u);
}

TEST(StreamTable, NameWithBit15SetFailsTheOpen) {
    byte_image name;
    name.id("strn").u32(0x8002).text("ab");
    EXPECT_EQ(open_streams({strl(byte_image()
                                     .append(strh_chunk("auds", "\0\0\0\0", 1, 8000, 1))
                                     .append(strf_audio_chunk(1, 1, 8000, 8))
                                     .append(name))}),
              nullptr);
}

TEST(StreamTable, MetadataAndMenuAbsent) {
    handle_ptr h = open_streams({video_strl()});
    ASSERT_NE(h, nullptr);
    uint8_t *data = reinterpret_cast<uint8_t *>(1);
    int32_t size = 5;
    EXPECT_EQ(aviin_get_metadata_info(h.get(), &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(aviin_get_menu_info(h.get(), &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    aviin_close(nullptr);
}
