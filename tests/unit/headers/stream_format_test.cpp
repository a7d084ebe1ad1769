// Stream format (strf) records: video, audio, chapter and text caption; the
// MPEG layer-3 extra bytes.
#include <gtest/gtest.h>

#include "record_test_util.h"

using namespace kelqtest;

namespace {

const video_format sample_video = {40, 640, -480, 1, 24, make_fourCC("KQV1"), 921600, 2835, -1, 0x01020304, 7};

const std::vector<uint8_t> sample_video_bytes = byte_image().id("strf").raw({
    40, 0, 0, 0,   40, 0, 0, 0,   0x80, 0x02, 0, 0,   0x20, 0xFE, 0xFF, 0xFF,  // size, biSize, 640, -480
    1, 0, 24, 0,   'K', 'Q', 'V', '1',   0x00, 0x10, 0x0E, 0x00,               // planes, bits, codec, image
    0x13, 0x0B, 0, 0,   0xFF, 0xFF, 0xFF, 0xFF,   4, 3, 2, 1,   7, 0, 0, 0}).bytes();

audio_format pcm(uint16_t cb_size) {
    audio_format a = {1, 2, 48000, 192000, 4, 16, cb_size, {}};
    for (uint16_t i = 0; i < cb_size && i < sizeof a.extra; ++i) a.extra[i] = static_cast<uint8_t>(0xB0 + i);
    return a;
}

// An audio strf of the given size holding the fixed part of pcm() (everything
// before cbSize), then the tail.
byte_image strf_audio(uint32_t size, std::initializer_list<uint8_t> tail) {
    const byte_image fixed = byte_image().raw({1, 0, 2, 0, 0x80, 0xBB, 0, 0, 0x00, 0xEE, 0x02, 0, 4, 0, 16, 0});
    return byte_image().id("strf").u32(size).append(fixed).raw(tail);
}

}  // namespace

// The sample written as its literal bytes, then read after each id, chunk
// size and biSize, with bytes after.
TEST(VideoFormat, ChunkSizeMustMatchBitmapHeaderSize) {
    int result = -1;
    EXPECT_EQ(written(write_header_strf_video, &sample_video, &result), sample_video_bytes);
    EXPECT_EQ(result, 0);
    const struct { const char *id; uint32_t size, bi_size; int status; } cases[] = {
        {"strf", 40, 40, 0}, {"junk", 40, 40, 0},  // the id is not compared
        {"strf", 44, 40, 1},                       // trailing bytes are reported, not read
        {"strf", 40, 44, 1}, {"strf", 36, 36, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + "/" + std::to_string(c.bi_size));
        byte_image img;
        img.id(c.id).u32(c.size).u32(c.bi_size);
        for (size_t i = 12; i < sample_video_bytes.size(); ++i) img.u8(sample_video_bytes[i]);
        temp_stream s(img.fill(4, 0xEE));
        auto r = filled<video_format>(0xA5);
        EXPECT_EQ(read_header_strf_video(&r, s), c.status);
        EXPECT_EQ(s.tell(), 48);
        video_format expected = sample_video;
        expected.size = c.bi_size;
        EXPECT_EQ(r, expected);
    }
    // Cut before its last value, the read fails.
    temp_stream cut(std::vector<uint8_t>(sample_video_bytes.begin(), sample_video_bytes.end() - 4));
    auto r = filled<video_format>(0xA5);
    EXPECT_EQ(read_header_strf_video(&r, cut), 1);
}

// An odd cbSize is followed by a zero pad byte that the size leaves out and
// the reader does not consume.
TEST(AudioFormat, RoundTripForEveryExtraLength) {
    for (uint16_t cb = 0; cb <= 22; ++cb) {
        SCOPED_TRACE(cb);
        const audio_format a = pcm(cb);
        temp_stream s;
        ASSERT_EQ(write_header_strf_audio(&a, s), 0);
        EXPECT_EQ(s.tell(), 26 + cb + cb % 2);
        if (cb == 0) { EXPECT_EQ(s.contents(), strf_audio(18, {0, 0}).bytes()); }
        if (cb == 3) { EXPECT_EQ(s.contents(), strf_audio(21, {3, 0, 0xB0, 0xB1, 0xB2, 0}).bytes()); }
        std::rewind(s);
        audio_format back{};
        EXPECT_EQ(read_header_strf_audio(&back, s), 0);
        EXPECT_EQ(back, a);
        EXPECT_EQ(s.tell(), 26 + cb);
    }
}

TEST(AudioFormat, ReaderHonoursSizeAndExtraCapacity) {
    const struct { uint32_t size; std::vector<uint8_t> tail; uint16_t cb_size; size_t extras_read; int status; long tell; } cases[] = {
        {16, {2, 0, 0x11, 0x22}, 0, 0, 0, 24},  // no cbSize: the next bytes are not read
        {48, {23, 0, 1, 2, 3, 4}, 23, 0, 0, 26},  // more than the record holds: kept, none read
        {22, {4, 0, 0x11, 0x22}, 4, 2, 1, 30},    // extra bytes cut off by the end of the file
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + "/" + std::to_string(c.cb_size));
        byte_image img = strf_audio(c.size, {});
        for (uint8_t b : c.tail) img.u8(b);
        temp_stream s(img);
        auto r = filled<audio_format>(0xA5);
        EXPECT_EQ(read_header_strf_audio(&r, s), c.status);
        EXPECT_EQ(s.tell(), std::min<long>(c.tell, static_cast<long>(img.size())));
        audio_format expected = pcm(0);
        expected.cb_size = c.cb_size;
        for (size_t i = 0; i < sizeof r.extra; ++i) expected.extra[i] = i < c.extras_read ? c.tail[2 + i] : 0xA5;
        EXPECT_EQ(r, expected);
    }
}

TEST(AudioFormat, CarriesMpegLayer3ExtraBytes) {
    const mp3_format_extra mp3 = {1, 0x12345678, 417, 1, 1393};
    std::vector<uint8_t> buffer(16, 0xEE);
    strf_mp3_extra_to_buffer(&mp3, buffer.data());
    EXPECT_EQ(buffer, (std::vector<uint8_t>{1, 0, 0x78, 0x56, 0x34, 0x12, 0xA1, 0x01, 1, 0, 0x71, 0x05,
                                            0xEE, 0xEE, 0xEE, 0xEE}));
}

// Chapters and text captions share one layout, whose last two values are
// exchanged on disk; both names write the same bytes and read them back,
// whatever id and size the chunk header holds.
TEST(CaptionFormat, LastTwoValuesAreExchangedOnDisk) {
    const std::pair<caption_format, byte_image> rows[] = {
        {{{1, 2, 3, 4}}, byte_image().raw({1, 0, 2, 0, 4, 0, 3, 0})},
        {{{0x0102, 0xA0B0, 0xFFFF, 0x8000}}, byte_image().raw({0x02, 0x01, 0xB0, 0xA0, 0x00, 0x80, 0xFF, 0xFF})},
    };
    for (const auto &r : rows) {
        for (auto write : {write_header_strf_chapter, write_header_strf_text_caption}) {
            int result = -1;
            EXPECT_EQ(written(write, &r.first, &result), byte_image().id("strf").u32(8).append(r.second).bytes());
            EXPECT_EQ(result, 0);
        }
        for (auto read : {read_header_strf_chapter, read_header_strf_text_caption}) {
            temp_stream s(byte_image().id("xxxx").u32(99).append(r.second));
            auto back = filled<caption_format>(0xA5);
            EXPECT_EQ(read(&back, s), 0);
            EXPECT_EQ(back, r.first);
            EXPECT_EQ(s.tell(), 16);
        }
    }
}

// Every header call with a null record or a record its writer refuses gives
// its failure value and reads or writes nothing; on a stream that fails
// writes, every writer reports the failure. A sum stands for several calls
// that each fail with 1.
TEST(HeaderRecords, NullRecordsRefusedRecordsAndFailingStreams) {
    static char text[] = "name";
    static uint8_t two[2] = {1, 2};
    const audio_format too_long = pcm(23);
    const stream_name negative = {-2, text}, no_name = {3, nullptr};
    const stream_data_block no_data = {1, 5, nullptr, 0};
    temp_stream s(sample_video_bytes);
    EXPECT_EQ(write_header_avih(nullptr, s), -1);
    EXPECT_EQ(write_header_strd_video(nullptr, s), 0) << "nothing to write is no failure";
    EXPECT_EQ(write_header_strh(nullptr, s) + write_header_strf_video(nullptr, s) + write_header_strf_audio(nullptr, s) +
                  write_header_strf_chapter(nullptr, s) + write_header_strn(nullptr, s), 5);
    EXPECT_EQ(read_header_avih(nullptr, s) + read_header_strh(nullptr, s) + read_header_strf_video(nullptr, s) +
                  read_header_strf_audio(nullptr, s) + read_header_strf_chapter(nullptr, s) + read_header_strn(nullptr, s) +
                  read_header_strd_video(nullptr, s), 7);
    EXPECT_EQ(write_header_strf_audio(&too_long, s) + write_header_strn(&negative, s) + write_header_strn(&no_name, s) +
                  write_header_strd_video(&no_data, s), 4);
    EXPECT_EQ(s.tell(), 0);
    EXPECT_EQ(s.contents(), sample_video_bytes);

    const avi_main_header m{};
    const avi_stream_header h{};
    const audio_format a = pcm(3);
    const caption_format c{};
    const stream_name n = {4, text};
    const stream_data_block b = {0, 2, two, 0};
    FILE *f = failing_write_stream();
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(write_header_avih(&m, f), -1);
    EXPECT_EQ(write_header_strh(&h, f) + write_header_strf_video(&sample_video, f) + write_header_strf_audio(&a, f) +
                  write_header_strf_chapter(&c, f) + write_header_strn(&n, f) + write_header_strd_video(&b, f), 6);
    std::fclose(f);
}
