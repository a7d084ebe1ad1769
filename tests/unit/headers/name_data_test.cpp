// The stream name (strn) and the opaque per-stream data block (strd).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "record_test_util.h"

using namespace kelqtest;

namespace {

char *heap_text(const char *text) {
    char *p = static_cast<char *>(std::malloc(std::strlen(text) + 1));
    std::strcpy(p, text);
    return p;
}

std::string name_bytes(const stream_name &n) {
    return n.name == nullptr || n.length < 0 ? std::string() : std::string(n.name, static_cast<size_t>(n.length));
}

}  // namespace

TEST(StreamName, WritesEvenSizeAndReadsBackThePaddedName) {
    struct Case {
        const char *text;
        int16_t length;          // may be shorter than the text: only that many bytes are written
        std::vector<uint8_t> body;  // bytes after id and size
        std::string read_back;
    } cases[] = {
        {"Audio", 5, {'A', 'u', 'd', 'i', 'o', 0}, std::string("Audio\0", 6)},
        {"Subtitle", 8, {'S', 'u', 'b', 't', 'i', 't', 'l', 'e'}, "Subtitle"},
        {"Chapters", 7, {'C', 'h', 'a', 'p', 't', 'e', 'r', 0}, std::string("Chapter\0", 8)},
        {"", 0, {}, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        const stream_name n = {c.length, const_cast<char *>(c.text)};
        std::vector<uint8_t> expected = id_then("strn", {static_cast<uint8_t>(c.body.size()), 0, 0, 0});
        expected.insert(expected.end(), c.body.begin(), c.body.end());
        int result = -1;
        EXPECT_EQ(written(write_header_strn, &n, &result), expected);
        EXPECT_EQ(result, 0);

        temp_stream s(expected);
        stream_name back = {-7, nullptr};
        EXPECT_EQ(read_header_strn(&back, s), 0);
        EXPECT_EQ(back.length, static_cast<int16_t>(c.body.size()));
        ASSERT_NE(back.name, nullptr);
        EXPECT_EQ(name_bytes(back), c.read_back);
        EXPECT_EQ(back.name[back.length], '\0');
        EXPECT_EQ(s.tell(), static_cast<long>(expected.size()));
        std::free(back.name);
    }
}

TEST(StreamName, ReaderReplacesAndFreesThePreviousName) {
    temp_stream s(byte_image()
                      .id("strn").u32(6).text("first").u8(0)
                      .id("STRN").u32(6).text("second")
                      .id("strn").u32(0xFFFE)       // length -2: no name, not an error
                      .id("strn").u32(0x00010004).text("four"));  // only the low 16 bits count
    stream_name n = {3, heap_text("old")};
    EXPECT_EQ(read_header_strn(&n, s), 0);
    EXPECT_EQ(name_bytes(n), std::string("first\0", 6));
    EXPECT_EQ(read_header_strn(&n, s), 0);
    EXPECT_EQ(name_bytes(n), "second");
    EXPECT_EQ(read_header_strn(&n, s), 0);
    EXPECT_EQ(n.length, -2);
    EXPECT_EQ(n.name, nullptr);
    EXPECT_EQ(read_header_strn(&n, s), 0);
    EXPECT_EQ(n.length, 4);
    EXPECT_EQ(name_bytes(n), "four");
    std::free(n.name);
}

TEST(StreamName, ReaderOddCases) {
    // A wrong id returns at once and leaves the record and the rest of the chunk alone.
    temp_stream wrong(byte_image().chunk("strd", byte_image().text("name")));
    char *old = heap_text("old");
    stream_name n = {3, old};
    EXPECT_EQ(read_header_strn(&n, wrong), 1);
    EXPECT_EQ(n.length, 3);
    EXPECT_EQ(n.name, old);
    EXPECT_EQ(wrong.tell(), 4);
    EXPECT_EQ(read_header_strn(nullptr, wrong), 1);

    // The most negative length.
    temp_stream most(byte_image().id("strn").u32(0x12348000).text("xy"));
    EXPECT_EQ(read_header_strn(&n, most), 0);
    EXPECT_EQ(n.length, INT16_MIN);
    EXPECT_EQ(n.name, nullptr);

    // A name cut off by the end of the file keeps the bytes that are there;
    // one longer than the whole 12-byte file is not allocated, and the
    // stream goes to the end.
    struct { uint32_t size; int result; const char *name; } rows[] = {
        {4, 0, "abcd"}, {5, 1, "abcd"}, {12, 1, "abcd"}, {13, 1, nullptr}, {0x7FFF, 1, nullptr}};
    for (const auto &row : rows) {
        temp_stream cut(byte_image().id("strn").u32(row.size).text("abcd"));
        EXPECT_EQ(read_header_strn(&n, cut), row.result) << row.size;
        EXPECT_EQ(n.length, static_cast<int16_t>(row.size));
        if (row.name == nullptr)
            EXPECT_EQ(n.name, nullptr) << row.size;
        else
            EXPECT_EQ(std::string(n.name), row.name) << row.size;
        EXPECT_EQ(cut.tell(), 12);
        std::free(n.name);
        n.name = nullptr;
    }
}

TEST(StreamName, WriterRefusesWhatItCannotWrite) {
    char text[] = "name";
    const stream_name negative = {-2, text}, missing = {3, nullptr}, empty = {0, nullptr};
    int result = 0;
    EXPECT_TRUE(written(write_header_strn, &negative, &result).empty());
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(written(write_header_strn, &missing, &result).empty());
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(written(write_header_strn, static_cast<const stream_name *>(nullptr), &result).empty());
    EXPECT_EQ(result, 1);
    EXPECT_EQ(written(write_header_strn, &empty, &result), id_then("strn", {0, 0, 0, 0}));
    EXPECT_EQ(result, 0);

    FILE *ro = failing_write_stream();
    ASSERT_NE(ro, nullptr);
    const stream_name n = {4, text};
    EXPECT_EQ(write_header_strn(&n, ro), 1);
    std::fclose(ro);
}

TEST(StreamData, WritesSizePlusEightWithoutPadAndReadsBackAtAnyOffset) {
    uint8_t bytes[] = {0xAA, 0xBB, 0xCC};
    const stream_data_block block = {0x01020304, 3, bytes, 0xFFFF};
    const auto expected = id_then("strd", {11, 0, 0, 0, 4, 3, 2, 1, 3, 0, 0, 0, 0xAA, 0xBB, 0xCC});
    int result = -1;
    EXPECT_EQ(written(write_header_strd_video, &block, &result), expected);
    EXPECT_EQ(result, 0);

    for (size_t offset : {0, 10, 11}) {
        SCOPED_TRACE(offset);
        temp_stream s(byte_image().fill(offset, 0xEE));
        ASSERT_EQ(file_seek(s, static_cast<int64_t>(offset), 0), 0);
        ASSERT_EQ(write_header_strd_video(&block, s), 0);
        ASSERT_EQ(file_seek(s, static_cast<int64_t>(offset), 0), 0);
        stream_data_block back = {0, 0, nullptr, 0};
        EXPECT_EQ(read_header_strd_video(&back, s), 0);
        EXPECT_EQ(back.header, 0x01020304u);
        EXPECT_EQ(back.size, 3u);
        EXPECT_EQ(back.position, offset + 16);
        ASSERT_NE(back.data, nullptr);
        EXPECT_EQ(std::vector<uint8_t>(back.data, back.data + 3), std::vector<uint8_t>(bytes, bytes + 3));
        EXPECT_EQ(s.tell(), static_cast<long>(offset + 19));
        std::free(back.data);
    }
}

TEST(StreamData, EmptyBlockAndUncheckedChunkSize) {
    const stream_data_block empty = {7, 0, nullptr, 0};
    const auto bytes = written(write_header_strd_video, &empty);
    EXPECT_EQ(bytes, id_then("strd", {8, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0}));

    // The chunk size is not compared with the data size.
    byte_image img = byte_image().id("strd").u32(0).u32(9).u32(2).raw({5, 6});
    for (uint8_t b : bytes) img.u8(b);
    temp_stream s(img);
    stream_data_block back = {0, 0, nullptr, 0};
    EXPECT_EQ(read_header_strd_video(&back, s), 0);
    EXPECT_EQ(back.size, 2u);
    EXPECT_EQ(back.data[1], 6);
    std::free(back.data);
    EXPECT_EQ(read_header_strd_video(&back, s), 0);
    EXPECT_EQ(back.header, 7u);
    EXPECT_EQ(back.size, 0u);
    EXPECT_EQ(back.position, 34u);
    std::free(back.data);
}

TEST(StreamData, ReaderRefusesWrongIdAndSizesBeyondTheFile) {
    temp_stream wrong(byte_image().id("strn").u32(8).u32(1).u32(0));
    stream_data_block r = {11, 22, nullptr, 33};
    EXPECT_EQ(read_header_strd_video(&r, wrong), 1);
    EXPECT_EQ(r.header, 11u);
    EXPECT_EQ(r.size, 22u);
    EXPECT_EQ(r.position, 33u);
    EXPECT_EQ(wrong.tell(), 4);
    EXPECT_EQ(read_header_strd_video(nullptr, wrong), 1);

    // The image is 20 bytes long: a block that fits in that keeps the four
    // bytes there, a longer one is not allocated.
    for (uint32_t size : {4u, 5u, 20u, 21u, 0x7FFFFFF0u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(size);
        const byte_image img = byte_image().id("strd").u32(size + 8).u32(1).u32(size).raw({1, 2, 3, 4});
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
