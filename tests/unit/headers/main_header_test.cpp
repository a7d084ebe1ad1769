// The main header (avih) and stream header (strh) records.
#include <gtest/gtest.h>

#include <climits>

#include "record_test_util.h"

using namespace kelqtest;

namespace {

const avi_main_header sample_avih = {40000, 250000, 0,    0x910, 1500, 0, 2, 0x100000,
                                     720,   576,    {0xDEADBEEF, 1, 2, 0x80000000}};

const std::vector<uint8_t> sample_avih_bytes = byte_image().id("avih").raw({
    0x38, 0, 0, 0,                                                       // size 56
    0x40, 0x9C, 0, 0,    0x90, 0xD0, 0x03, 0, 0, 0, 0, 0,    0x10, 0x09, 0, 0,
    0xDC, 0x05, 0, 0,    0, 0, 0, 0,          2, 0, 0, 0,    0, 0, 0x10, 0,
    0xD0, 0x02, 0, 0,    0x40, 0x02, 0, 0,                               // 720 x 576
    0xEF, 0xBE, 0xAD, 0xDE, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0x80}).bytes();    // reserved words

const avi_stream_header sample_strh = {0xCAFEBABE, make_fourCC("vids"), make_fourCC("KQV1"), 0x10000, 0x0102, 0x0809,
                                       0, 1001, 30000, 0, 0x01020304, 0x100000, 0xFFFFFFFF, 0,
                                       -1, INT16_MIN, INT16_MAX, 576};

const std::vector<uint8_t> sample_strh_bytes = byte_image().id("strh").raw({
    0x38, 0, 0, 0,          'v', 'i', 'd', 's',   'K', 'Q', 'V', '1',
    0, 0, 1, 0,             0x02, 0x01, 0x09, 0x08,                      // flags, priority, language
    0, 0, 0, 0,             0xE9, 0x03, 0, 0,     0x30, 0x75, 0, 0,      // initial, scale, rate
    0, 0, 0, 0,             4, 3, 2, 1,           0, 0, 0x10, 0,         // start, length, buffer
    0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0,                                  // quality, sample size
    0xFF, 0xFF, 0x00, 0x80, 0xFF, 0x7F, 0x40, 0x02}).bytes();            // rcFrame

}  // namespace

// Written at any offset, the record has the literal bytes, the call returns
// the low word of the size field's position (INT32_MIN is a valid one, not
// the failure value) and reading gives every value back.
TEST(MainHeader, WritesLittleEndianAtAnyOffsetAndReadsBack) {
    for (int64_t offset : {int64_t{0}, int64_t{1}, int64_t{100}, int64_t{0x7FFFFFFC}, int64_t{0x100000004}}) {
        SCOPED_TRACE(offset);
        temp_stream s;
        if (file_seek(s, offset, 0) != 0 || file_tell(s) != offset) GTEST_SKIP() << "no large sparse files here";
        EXPECT_EQ(write_header_avih(&sample_avih, s), static_cast<int32_t>(static_cast<uint32_t>(offset + 4)));
        if (offset < 1000) {
            const auto bytes = s.contents();
            EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + offset, bytes.end()), sample_avih_bytes);
        }
        ASSERT_EQ(file_seek(s, offset, 0), 0);
        auto back = filled<avi_main_header>(0xA5);
        EXPECT_EQ(read_header_avih(&back, s), 0);
        EXPECT_EQ(back, sample_avih);
        EXPECT_EQ(file_tell(s), offset + 64);
    }
}

// An avih chunk holding the values 1..13, then `last` as the fourteenth
// value, `extra` filler bytes and a following JUNK header.
TEST(MainHeader, ReaderReadsWholeRecordWhateverTheIdAndSize) {
    const uint32_t junk = make_fourCC("JUNK");
    const struct { const char *id; uint32_t size, last; size_t extra; int status; long tell; } cases[] = {
        {"avih", 56, 14, 0, 0, 64},   {"AVIH", 56, 14, 0, 0, 64},
        {"strh", 56, 14, 0, 1, 64},   {"avih", 64, 14, 8, 0, 72},  // larger size: skipped past
        {"avih", 57, 14, 1, 0, 65},                                // pad byte left to the list cursor
        {"avih", 52, junk, 0, 1, 64},                              // last value from the next chunk
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.id) + " size " + std::to_string(c.size));
        byte_image img;
        img.id(c.id).u32(c.size);
        for (uint32_t v = 1; v <= 13; ++v) img.u32(v);
        temp_stream s(img.u32(c.last).fill(c.extra, 0xEE).id("JUNK").u32(0));
        auto r = filled<avi_main_header>(0xA5);
        EXPECT_EQ(read_header_avih(&r, s), c.status);
        EXPECT_EQ(s.tell(), c.tell);
        EXPECT_EQ(r, (avi_main_header{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, {11, 12, 13, c.last}}));
    }
}

// A record that ends before its last value fails and leaves that value alone
// (one cut inside the value reads it leniently, as every value does).
TEST(MainHeader, TruncatedRecordsFailWithoutTheirLastValue) {
    temp_stream avih(std::vector<uint8_t>(sample_avih_bytes.begin(), sample_avih_bytes.end() - 4));
    auto a = filled<avi_main_header>(0xA5);
    EXPECT_EQ(read_header_avih(&a, avih), 1);
    EXPECT_EQ(std::make_pair(a.reserved[2], a.reserved[3]), std::make_pair(2u, 0xA5A5A5A5u));
    temp_stream strh(std::vector<uint8_t>(sample_strh_bytes.begin(), sample_strh_bytes.end() - 2));
    auto h = filled<avi_stream_header>(0xA5);
    EXPECT_EQ(read_header_strh(&h, strh), 1);
    EXPECT_EQ(std::make_pair(h.frame_right, h.frame_bottom), std::make_pair(int16_t{INT16_MAX}, int16_t(0xA5A5)));
}

// Every field but the owner word is written; the sample record's body after
// each id and size reads the whole record back, signed frame values
// included, and leaves the owner word alone.
TEST(StreamHeader, ReaderConsumesExtraBytesAndChecksIdAndSize) {
    int result = -1;
    EXPECT_EQ(written(write_header_strh, &sample_strh, &result), sample_strh_bytes);
    EXPECT_EQ(result, 0);
    const struct { const char *id; uint32_t size; size_t extra; int status; long tell; } cases[] = {
        {"strh", 56, 0, 0, 64}, {"STRH", 56, 0, 0, 64}, {"StRh", 56, 0, 0, 64},
        {"strf", 56, 0, 1, 64},  // wrong id: reported, but the record is read
        {"strh", 60, 4, 0, 68}, {"strh", 61, 5, 0, 69},  // extra bytes consumed, pad byte not
        {"strh", 52, 0, 1, 64},
        {"strh", 0xFFFFFFFF, 0, 1, 68},  // a huge size at the end of the file ends at once
    };
    avi_stream_header expected = sample_strh;
    expected.owner = 0x5EED;
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.id) + " size " + std::to_string(c.size));
        byte_image img;
        img.id(c.id).u32(c.size);
        for (size_t i = 8; i < sample_strh_bytes.size(); ++i) img.u8(sample_strh_bytes[i]);
        temp_stream s(img.fill(c.extra, 0xEE).id("JUNK"));
        auto r = filled<avi_stream_header>(0xA5);
        r.owner = 0x5EED;
        EXPECT_EQ(read_header_strh(&r, s), c.status);
        EXPECT_EQ(s.tell(), c.tell);
        EXPECT_EQ(r, expected);
    }
}
