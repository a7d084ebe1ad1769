// The stream name (strn) and the opaque per-stream data block (strd).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "record_test_util.h"

using namespace kelqtest;

namespace {

std::string read_name(FILE *s, int *result, int16_t *length) {
    char *old = static_cast<char *>(std::malloc(4));
    std::memcpy(old, "old", 4);
    stream_name n = {3, old};
    *result = read_header_strn(&n, s);
    *length = n.length;
    const std::string out = n.name == old       ? "(unchanged)"
                            : n.name == nullptr ? "(null)"
                                                : std::string(n.name, static_cast<size_t>(n.length));
    if (n.name != nullptr) { EXPECT_EQ(n.name[n.length > 0 ? n.length : 0], '\0'); }
    std::free(n.name);
    return out;
}

}  // namespace

TEST(StreamName, WritesEvenSizeAndReadsBackThePaddedName) {
    const struct { const char *text; int16_t length; std::string body; } cases[] = {
        {"Audio", 5, std::string("Audio\0", 6)},
        {"Subtitle", 8, "Subtitle"},
        // A length shorter than the text: only that many bytes are written.
        {"Chapters", 7, std::string("Chapter\0", 8)},
        {"", 0, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const stream_name n = {c.length, const_cast<char *>(c.text)};
        const std::vector<uint8_t> expected =
            byte_image().id("strn").u32(static_cast<uint32_t>(c.body.size())).text(c.body).bytes();
        int result = -1;
        EXPECT_EQ(written(write_header_strn, &n, &result), expected);
        EXPECT_EQ(result, 0);
        temp_stream s(expected);
        int16_t length = 0;
        EXPECT_EQ(read_name(s, &result, &length), c.body);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(length, static_cast<int16_t>(c.body.size()));
        EXPECT_EQ(s.tell(), static_cast<long>(expected.size()));
    }
}

// Name chunks of odd ids, sizes and lengths: the result, the name and length
// left in the record, and where the stream ends. A name cut off by the end
// of the file keeps the bytes that are there; one longer than the whole file
// is not allocated, and the stream goes to the end.
TEST(StreamName, ReaderOddCases) {
    const struct { byte_image image; int result; int16_t length; std::string name; long tell; } rows[] = {
        {byte_image().id("STRN").u32(6).text("second"), 0, 6, "second", 14},
        {byte_image().id("strn").u32(0x12348000).text("xy"), 0, INT16_MIN, "(null)", 8},  // no name, not an error
        {byte_image().id("strn").u32(0x00010004).text("four"), 0, 4, "four", 12},  // only the low 16 bits count
        {byte_image().chunk("strd", byte_image().text("name")), 1, 3, "(unchanged)", 4},  // wrong id: nothing more read
        {byte_image().id("strn").u32(5).text("abcd"), 1, 5, std::string("abcd\0", 5), 12},
        {byte_image().id("strn").u32(12).text("abcd"), 1, 12, std::string("abcd\0\0\0\0\0\0\0\0", 12), 12},
        {byte_image().id("strn").u32(13).text("abcd"), 1, 13, "(null)", 12},
        {byte_image().id("strn"), 1, 0, "", 4},  // no size
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &r - rows);
        temp_stream s(r.image);
        int result = -1;
        int16_t length = 0;
        EXPECT_EQ(read_name(s, &result, &length), r.name);
        EXPECT_EQ(result, r.result);
        EXPECT_EQ(length, r.length);
        EXPECT_EQ(s.tell(), r.tell);
    }
}

namespace {

// A data block read into a record holding 11, 22, no data and 33, shown as
// "header size position: data", with "-" when no data was allocated.
std::string read_block(FILE *s, int *result) {
    stream_data_block r = {11, 22, nullptr, 33};
    *result = read_header_strd_video(&r, s);
    std::string out = std::to_string(r.header) + " " + std::to_string(r.size) + " " + std::to_string(r.position) + ":";
    if (r.data == nullptr) out += " -";
    for (uint32_t i = 0; r.data != nullptr && i < r.size && i < 8; ++i) out += " " + std::to_string(r.data[i]);
    std::free(r.data);
    return out;
}

}  // namespace

// Written after an odd offset and read back: no pad byte after the odd
// block, and the position is where the data starts.
TEST(StreamData, WritesSizePlusEightWithoutPadAndReadsBack) {
    uint8_t bytes[] = {0xAA, 0xBB, 0xCC};
    const stream_data_block block = {0x01020304, 3, bytes, 0xFFFF}, empty = {7, 0, nullptr, 0};
    int result = -1;
    EXPECT_EQ(written(write_header_strd_video, &block, &result),
              byte_image().id("strd").raw({11, 0, 0, 0, 4, 3, 2, 1, 3, 0, 0, 0, 0xAA, 0xBB, 0xCC}).bytes());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(written(write_header_strd_video, &empty), byte_image().id("strd").u32(8).u32(7).u32(0).bytes());
    temp_stream s(byte_image().fill(11, 0xEE));
    ASSERT_EQ(file_seek(s, 11, 0), 0);
    ASSERT_EQ(write_header_strd_video(&block, s) + write_header_strd_video(&empty, s), 0);
    ASSERT_EQ(file_seek(s, 11, 0), 0);
    EXPECT_EQ(read_block(s, &result), "16909060 3 27: 170 187 204");
    EXPECT_EQ(s.tell(), 30);
    EXPECT_EQ(read_block(s, &result), "7 0 46:");
    EXPECT_EQ(result, 0);
}

// Blocks in a 20-byte image: one that fits keeps the four bytes there, a
// longer one is not allocated; the chunk size is not compared with the data
// size; a wrong id leaves the record and the rest of the chunk alone.
TEST(StreamData, ReaderRefusesWrongIdAndSizesBeyondTheFile) {
    const auto block = [](uint32_t chunk_size, uint32_t size) {
        return byte_image().id("strd").u32(chunk_size).u32(1).u32(size).raw({1, 2, 3, 4});
    };
    const struct { byte_image image; int result; std::string read; long tell; } rows[] = {
        {byte_image().id("strn").u32(8).u32(1).u32(0), 1, "11 22 33: -", 4},
        {block(0, 4), 0, "1 4 16: 1 2 3 4", 20},
        {block(13, 5), 1, "1 5 16: 1 2 3 4 0", 20},
        {block(28, 20), 1, "1 20 16: 1 2 3 4 0 0 0 0", 20},
        {block(29, 21), 1, "1 21 16: -", 20},
        {block(7, 0xFFFFFFFFu), 1, "1 4294967295 16: -", 20},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.read);
        temp_stream s(r.image);
        int result = -1;
        EXPECT_EQ(read_block(s, &result), r.read);
        EXPECT_EQ(result, r.result);
        EXPECT_EQ(s.tell(), r.tell);
    }
}
