// The stream name (strn) and the opaque per-stream data block (strd).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "record_test_util.h"

using namespace kelqtest;

namespace {

std::string name_bytes(const stream_name &n) {
    return n.name == nullptr || n.length < 0 ? "(null)" : std::string(n.name, static_cast<size_t>(n.length));
}

// Reads a name record into a record holding a heap name; the name read, or
// "(unchanged)" when the old one is still there.
std::string read_name(FILE *s, int *result, int16_t *length) {
    char *old = static_cast<char *>(std::malloc(4));
    std::memcpy(old, "old", 4);
    stream_name n = {3, old};
    *result = read_header_strn(&n, s);
    *length = n.length;
    const std::string out = n.name == old ? "(unchanged)" : name_bytes(n);
    if (n.name != nullptr) { EXPECT_EQ(n.name[n.length > 0 ? n.length : 0], '\0'); }
    std::free(n.name);
    return out;
}

}  // namespace

TEST(StreamName, WritesEvenSizeAndReadsBackThePaddedName) {
    const struct { const char *text; int16_t length; std::vector<uint8_t> body; std::string read_back; } cases[] = {
        {"Audio", 5, {'A', 'u', 'd', 'i', 'o', 0}, std::string("Audio\0", 6)},
        {"Subtitle", 8, {'S', 'u', 'b', 't', 'i', 't', 'l', 'e'}, "Subtitle"},
        // A length shorter than the text: only that many bytes are written.
        {"Chapters", 7, {'C', 'h', 'a', 'p', 't', 'e', 'r', 0}, std::string("Chapter\0", 8)},
        {"", 0, {}, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const stream_name n = {c.length, const_cast<char *>(c.text)};
        std::vector<uint8_t> expected = id_then("strn", {static_cast<uint8_t>(c.body.size()), 0, 0, 0});
        expected.insert(expected.end(), c.body.begin(), c.body.end());
        int result = -1;
        EXPECT_EQ(written(write_header_strn, &n, &result), expected);
        EXPECT_EQ(result, 0);
        temp_stream s(expected);
        int16_t length = 0;
        EXPECT_EQ(read_name(s, &result, &length), c.read_back);
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
        {byte_image().id("strn").u32(0xFFFE).text("xy"), 0, -2, "(null)", 8},  // no name, not an error
        {byte_image().id("strn").u32(0x12348000).text("xy"), 0, INT16_MIN, "(null)", 8},
        {byte_image().id("strn").u32(0x00010004).text("four"), 0, 4, "four", 12},  // only the low 16 bits count
        {byte_image().chunk("strd", byte_image().text("name")), 1, 3, "(unchanged)", 4},  // wrong id: nothing more read
        {byte_image().id("strn").u32(5).text("abcd"), 1, 5, std::string("abcd\0", 5), 12},
        {byte_image().id("strn").u32(12).text("abcd"), 1, 12, std::string("abcd\0\0\0\0\0\0\0\0", 12), 12},
        {byte_image().id("strn").u32(13).text("abcd"), 1, 13, "(null)", 12},
        {byte_image().id("strn").u32(0x7FFF).text("abcd"), 1, 0x7FFF, "(null)", 12},
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
    temp_stream s(rows[0].image);
    EXPECT_EQ(read_header_strn(nullptr, s), 1);
}

TEST(StreamName, WriterRefusesWhatItCannotWrite) {
    char text[] = "name";
    const stream_name negative = {-2, text}, missing = {3, nullptr};
    for (const stream_name *n : {&negative, &missing, static_cast<const stream_name *>(nullptr)}) {
        int result = 0;
        EXPECT_TRUE(written(write_header_strn, n, &result).empty());
        EXPECT_EQ(result, 1);
    }
    FILE *ro = failing_write_stream();
    ASSERT_NE(ro, nullptr);
    const stream_name n = {4, text};
    EXPECT_EQ(write_header_strn(&n, ro), 1);
    std::fclose(ro);
}

TEST(StreamData, WritesSizePlusEightWithoutPadAndReadsBackAtAnyOffset) {
    uint8_t bytes[] = {0xAA, 0xBB, 0xCC};
    const stream_data_block block = {0x01020304, 3, bytes, 0xFFFF}, empty = {7, 0, nullptr, 0};
    int result = -1;
    EXPECT_EQ(written(write_header_strd_video, &block, &result),
              id_then("strd", {11, 0, 0, 0, 4, 3, 2, 1, 3, 0, 0, 0, 0xAA, 0xBB, 0xCC}));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(written(write_header_strd_video, &empty), id_then("strd", {8, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0}));

    for (size_t offset : {0, 10, 11}) {
        SCOPED_TRACE(offset);
        temp_stream s(byte_image().fill(offset, 0xEE));
        ASSERT_EQ(file_seek(s, static_cast<int64_t>(offset), 0), 0);
        ASSERT_EQ(write_header_strd_video(&block, s), 0);
        ASSERT_EQ(write_header_strd_video(&empty, s), 0);
        ASSERT_EQ(file_seek(s, static_cast<int64_t>(offset), 0), 0);
        stream_data_block back = {0, 0, nullptr, 0};
        EXPECT_EQ(read_header_strd_video(&back, s), 0);
        EXPECT_EQ(back.header, 0x01020304u);
        EXPECT_EQ(back.position, offset + 16);
        ASSERT_EQ(back.size, 3u);
        EXPECT_EQ(std::vector<uint8_t>(back.data, back.data + 3), std::vector<uint8_t>(bytes, bytes + 3));
        EXPECT_EQ(s.tell(), static_cast<long>(offset + 19));
        std::free(back.data);
        EXPECT_EQ(read_header_strd_video(&back, s), 0);
        EXPECT_EQ(back.header, 7u);
        EXPECT_EQ(back.size, 0u);
        EXPECT_EQ(back.position, offset + 19 + 16);
        std::free(back.data);
    }
}

TEST(StreamData, ReaderRefusesWrongIdAndSizesBeyondTheFile) {
    temp_stream wrong(byte_image().id("strn").u32(8).u32(1).u32(0));
    stream_data_block r = {11, 22, nullptr, 33};
    EXPECT_EQ(read_header_strd_video(&r, wrong), 1);
    EXPECT_EQ(r.header + r.size + r.position, 11u + 22 + 33) << "record left alone";
    EXPECT_EQ(wrong.tell(), 4);
    EXPECT_EQ(read_header_strd_video(nullptr, wrong), 1);

    // The image is 20 bytes long: a block that fits in that keeps the four
    // bytes there, a longer one is not allocated. The chunk size is not
    // compared with the data size.
    for (uint32_t size : {4u, 5u, 20u, 21u, 0x7FFFFFF0u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(size);
        const byte_image img = byte_image().id("strd").u32(size == 4 ? 0 : size + 8).u32(1).u32(size).raw({1, 2, 3, 4});
        temp_stream s(img);
        r = {0, 0, nullptr, 0};
        EXPECT_EQ(read_header_strd_video(&r, s), size == 4 ? 0 : 1);
        EXPECT_EQ(r.size, size);
        ASSERT_EQ(r.data == nullptr, size > 20);
        if (r.data != nullptr) {
            EXPECT_EQ(std::vector<uint8_t>(r.data, r.data + 4), (std::vector<uint8_t>{1, 2, 3, 4}));
            EXPECT_EQ(r.position, 16u);
        }
        EXPECT_EQ(s.tell(), static_cast<long>(img.size()));
        std::free(r.data);
    }
}

TEST(StreamData, WriterNullCases) {
    int result = -1;
    EXPECT_TRUE(written(write_header_strd_video, static_cast<const stream_data_block *>(nullptr), &result).empty());
    EXPECT_EQ(result, 0);
    const stream_data_block missing = {1, 5, nullptr, 0};
    EXPECT_TRUE(written(write_header_strd_video, &missing, &result).empty());
    EXPECT_EQ(result, 1);
    FILE *ro = failing_write_stream();
    ASSERT_NE(ro, nullptr);
    uint8_t data[2] = {1, 2};
    const stream_data_block block = {0, 2, data, 0};
    EXPECT_EQ(write_header_strd_video(&block, ro), 1);
    std::fclose(ro);
}
