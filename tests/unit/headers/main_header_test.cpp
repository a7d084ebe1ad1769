// The main header (avih) and stream header (strh) records.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>

#include "record_test_util.h"

using namespace kelqtest;

namespace {

const avi_main_header sample_avih = {40000, 250000, 0,    0x910, 1500, 0, 2, 0x100000,
                                     720,   576,    {0xDEADBEEF, 1, 2, 0x80000000}};

const std::vector<uint8_t> sample_avih_bytes = id_then(
    "avih", {0x38, 0, 0, 0,                                                       // size 56
             0x40, 0x9C, 0, 0,    0x90, 0xD0, 0x03, 0, 0, 0, 0, 0,    0x10, 0x09, 0, 0,
             0xDC, 0x05, 0, 0,    0, 0, 0, 0,          2, 0, 0, 0,    0, 0, 0x10, 0,
             0xD0, 0x02, 0, 0,    0x40, 0x02, 0, 0,                               // 720 x 576
             0xEF, 0xBE, 0xAD, 0xDE, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0x80});     // reserved words

avi_stream_header sample_strh() {
    avi_stream_header h{};
    h.owner = 0xCAFEBABE;
    h.type = make_fourCC("vids");
    h.handler = make_fourCC("KQV1");
    h.flags = 0x10000;
    h.priority = 0x0102;
    h.language = 0x0809;
    h.scale = 1001;
    h.rate = 30000;
    h.length = 0x01020304;
    h.suggested_buffer_size = 0x100000;
    h.quality = 0xFFFFFFFF;
    h.frame_left = -1;
    h.frame_top = INT16_MIN;
    h.frame_right = INT16_MAX;
    h.frame_bottom = 576;
    return h;
}

const std::vector<uint8_t> sample_strh_bytes = id_then(
    "strh", {0x38, 0, 0, 0,          'v', 'i', 'd', 's',   'K', 'Q', 'V', '1',
             0, 0, 1, 0,             0x02, 0x01, 0x09, 0x08,                      // flags, priority, language
             0, 0, 0, 0,             0xE9, 0x03, 0, 0,     0x30, 0x75, 0, 0,      // initial, scale, rate
             0, 0, 0, 0,             4, 3, 2, 1,           0, 0, 0x10, 0,         // start, length, buffer
             0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0,                                  // quality, sample size
             0xFF, 0xFF, 0x00, 0x80, 0xFF, 0x7F, 0x40, 0x02});                    // rcFrame

// The sample record's body (everything after id and size).
byte_image strh_body() {
    byte_image b;
    for (size_t i = 8; i < sample_strh_bytes.size(); ++i) b.u8(sample_strh_bytes[i]);
    return b;
}

}  // namespace

TEST(MainHeader, WritesEveryValueLittleEndianAndReturnsSizePosition) {
    int result = 0;
    EXPECT_EQ(written(write_header_avih, &sample_avih, &result), sample_avih_bytes);
    EXPECT_EQ(result, 4);
}

TEST(MainHeader, RoundTripKeepsEveryValueIncludingReservedWords) {
    temp_stream s;
    ASSERT_EQ(write_header_avih(&sample_avih, s), 4);
    std::rewind(s);
    auto back = filled<avi_main_header>(0xA5);
    EXPECT_EQ(read_header_avih(&back, s), 0);
    EXPECT_EQ(back, sample_avih);
    EXPECT_EQ(s.tell(), 64);
}

TEST(MainHeader, ReturnsLowWordOfSizeFieldPositionAtAnyOffset) {
    for (int64_t offset : {int64_t{1}, int64_t{100}, int64_t{0x7FFFFFFC}, int64_t{0x100000004}}) {
        SCOPED_TRACE(offset);
        temp_stream s;
        if (file_seek(s, offset, 0) != 0 || file_tell(s) != offset) GTEST_SKIP() << "no large sparse files here";
        const int32_t expected = static_cast<int32_t>(static_cast<uint32_t>(offset + 4));
        EXPECT_EQ(write_header_avih(&sample_avih, s), expected);
        if (offset == 0x7FFFFFFC) {
            EXPECT_EQ(expected, INT32_MIN);  // a valid position, not the failure value
        }
        ASSERT_EQ(file_seek(s, offset, 0), 0);
        avi_main_header back{};
        EXPECT_EQ(read_header_avih(&back, s), 0);
        EXPECT_EQ(back, sample_avih);
    }
}

TEST(MainHeader, FailedWritesAndNullRecords) {
    FILE *ro = failing_write_stream();
    ASSERT_NE(ro, nullptr);
    const avi_stream_header strh = sample_strh();
    EXPECT_EQ(write_header_avih(&sample_avih, ro), -1);
    EXPECT_EQ(write_header_strh(&strh, ro), 1);
    std::fclose(ro);

    temp_stream s(sample_avih_bytes);
    EXPECT_EQ(write_header_avih(nullptr, s), -1);
    EXPECT_EQ(write_header_strh(nullptr, s), 1);
    EXPECT_EQ(read_header_avih(nullptr, s), 1);
    EXPECT_EQ(read_header_strh(nullptr, s), 1);
    EXPECT_EQ(s.tell(), 0);
    EXPECT_EQ(s.contents(), sample_avih_bytes);
}

// An avih chunk holding the values 1..13, then `last` as the fourteenth
// value, `extra` filler bytes and a following JUNK header.
TEST(MainHeader, ReaderReadsWholeRecordWhateverTheIdAndSize) {
    const uint32_t junk = make_fourCC("JUNK");
    struct Case {
        const char *id;
        uint32_t size, last;
        size_t extra;
        int status;
        long tell;
    } cases[] = {
        {"avih", 56, 14, 0, 0, 64},   {"AVIH", 56, 14, 0, 0, 64},
        {"strh", 56, 14, 0, 1, 64},   {"avih", 64, 14, 8, 0, 72},  // larger size: skipped past
        {"avih", 57, 14, 1, 0, 65},                                // pad byte left to the list cursor
        {"avih", 52, junk, 0, 1, 64},                              // last value from the next chunk
        {"avih", 0, 14, 0, 1, 64},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.id) + " size " + std::to_string(c.size));
        byte_image img;
        img.id(c.id).u32(c.size);
        for (uint32_t v = 1; v <= 13; ++v) img.u32(v);
        img.u32(c.last).fill(c.extra, 0xEE).id("JUNK").u32(0);
        temp_stream s(img);
        auto r = filled<avi_main_header>(0xA5);
        EXPECT_EQ(read_header_avih(&r, s), c.status);
        EXPECT_EQ(s.tell(), c.tell);
        const avi_main_header expected = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, {11, 12, 13, c.last}};
        EXPECT_EQ(r, expected);
    }
}

TEST(MainHeader, TruncatedRecordReadsLeniently) {
    // Two bytes of the last value: a short read, taken with zero high bytes.
    auto cut = sample_avih_bytes;
    cut[60] = 0x34;
    cut[61] = 0x12;
    cut.resize(62);
    temp_stream s(cut);
    auto r = filled<avi_main_header>(0xA5);
    EXPECT_EQ(read_header_avih(&r, s), 0);
    EXPECT_EQ(r.reserved[2], 2u);
    EXPECT_EQ(r.reserved[3], 0x1234u);

    // No byte of the last value: a failure, and that value is left alone.
    cut.resize(60);
    temp_stream t(cut);
    r = filled<avi_main_header>(0xA5);
    EXPECT_EQ(read_header_avih(&r, t), 1);
    EXPECT_EQ(r.reserved[2], 2u);
    EXPECT_EQ(r.reserved[3], 0xA5A5A5A5u);

    temp_stream empty;
    EXPECT_EQ(read_header_avih(&r, empty), 1);
}

TEST(StreamHeader, WritesEveryFieldButTheOwnerWord) {
    const avi_stream_header h = sample_strh();
    int result = -1;
    EXPECT_EQ(written(write_header_strh, &h, &result), sample_strh_bytes);
    EXPECT_EQ(result, 0);
}

TEST(StreamHeader, RoundTripKeepsSignedFrameAndLeavesOwnerAlone) {
    const avi_stream_header h = sample_strh();
    temp_stream s;
    ASSERT_EQ(write_header_strh(&h, s), 0);
    std::rewind(s);
    auto back = filled<avi_stream_header>(0xA5);
    back.owner = 0x5EED;
    EXPECT_EQ(read_header_strh(&back, s), 0);
    EXPECT_EQ(back.owner, 0x5EEDu);
    EXPECT_EQ(back.frame_left, -1);
    EXPECT_EQ(back.frame_top, INT16_MIN);
    EXPECT_EQ(back.frame_right, INT16_MAX);
    back.owner = h.owner;
    EXPECT_EQ(back, h);
    EXPECT_EQ(s.tell(), 64);
}

TEST(StreamHeader, ReaderConsumesExtraBytesAndChecksIdAndSize) {
    struct Case {
        const char *id;
        uint32_t size;
        size_t extra;
        int status;
        long tell;
    } cases[] = {
        {"strh", 56, 0, 0, 64}, {"STRH", 56, 0, 0, 64}, {"StRh", 56, 0, 0, 64},
        {"strf", 56, 0, 1, 64},  // wrong id: reported, but the record is read
        {"strh", 60, 4, 0, 68}, {"strh", 61, 5, 0, 69},  // extra bytes consumed, pad byte not
        {"strh", 52, 0, 1, 64},
    };
    avi_stream_header expected = sample_strh();
    expected.owner = 0x5EED;
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.id) + " size " + std::to_string(c.size));
        temp_stream s(byte_image().id(c.id).u32(c.size).append(strh_body()).fill(c.extra, 0xEE).id("JUNK"));
        auto r = filled<avi_stream_header>(0xA5);
        r.owner = 0x5EED;
        EXPECT_EQ(read_header_strh(&r, s), c.status);
        EXPECT_EQ(s.tell(), c.tell);
        EXPECT_EQ(r, expected);
    }
}

TEST(StreamHeader, HugeSizeAtEndOfFileEndsQuickly) {
    temp_stream s(byte_image().id("strh").u32(0xFFFFFFFF).append(strh_body()));
    avi_stream_header r = sample_strh();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(read_header_strh(&r, s), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(r, sample_strh());
    EXPECT_EQ(file_eof(s), 1);
}

TEST(StreamHeader, TruncatedLastValueKeepsItsLowByte) {
    auto cut = sample_strh_bytes;
    cut.pop_back();  // frame_bottom 576 = 40 02 loses its high byte
    temp_stream s(cut);
    avi_stream_header r{};
    EXPECT_EQ(read_header_strh(&r, s), 0);
    EXPECT_EQ(r.frame_bottom, 0x40);
    EXPECT_EQ(r.frame_right, INT16_MAX);
}
