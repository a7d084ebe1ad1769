// Writing chunks with back-patched sizes, data chunks, JUNK filler, padEven.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/byte_image.h"
#include "unit/riff/riff_walk.h"

using kelqtest::byte_image;
using kelqtest::temp_stream;
using bytes = std::vector<uint8_t>;

namespace {

uint32_t u32_at(const bytes &b, size_t at) {
    return static_cast<uint32_t>(b[at]) | static_cast<uint32_t>(b[at + 1]) << 8 | static_cast<uint32_t>(b[at + 2]) << 16 |
           static_cast<uint32_t>(b[at + 3]) << 24;
}

std::string text(uint32_t code) { return kelqtest::fourcc_text(code); }

// A stream that already holds count bytes and stands at its end.
struct stream_at {
    temp_stream s;
    explicit stream_at(size_t count) : s(byte_image().fill(count, 0x5A)) { file_seek(s, 0, 2); }
};

}  // namespace

TEST(ChunkWrite, SizePatchingReturnsToWhereItWas) {
    for (size_t at : {size_t{0}, size_t{100}, size_t{101}, size_t{70001}}) {
        SCOPED_TRACE("chunk at " + std::to_string(at));
        stream_at w(at);
        uint32_t status = 0;
        const int64_t size_pos = chunk_start(w.s, &status);
        EXPECT_EQ(size_pos, static_cast<int64_t>(at) + 4);
        EXPECT_EQ(write_fourCC(make_fourCC("strd"), w.s), 0);
        EXPECT_EQ(write_val32(0xFFFFFFFFu, w.s), 0);
        const uint8_t payload[11] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
        ASSERT_EQ(file_write(w.s, payload, 10), 10u);
        chunk_end(size_pos, w.s, &status);
        EXPECT_EQ(status, 0u);
        EXPECT_EQ(file_tell(w.s), static_cast<int64_t>(at) + 18);
        // Writing goes on where it stopped; no pad byte was added for the odd 11.
        const int64_t second = chunk_start(w.s, &status);
        EXPECT_EQ(write_fourCC(make_fourCC("odd "), w.s), 0);
        EXPECT_EQ(write_val32(0, w.s), 0);
        ASSERT_EQ(file_write(w.s, payload, 11), 11u);
        chunk_end(second, w.s, &status);
        const bytes b = w.s.contents();
        ASSERT_EQ(b.size(), at + 18 + 19);
        EXPECT_EQ(u32_at(b, at + 4), 10u);
        EXPECT_EQ(u32_at(b, at + 22), 11u);
        EXPECT_EQ(b[at + 8], 1);
        if (at > 0) {
            EXPECT_EQ(b[at - 1], 0x5A) << "bytes before the chunk are untouched";
        }
    }
}

TEST(ChunkWrite, SizePatchingInPlace) {
    // Rewriting a chunk in the middle of a file: the stream comes back to the
    // end of the rewritten chunk, not to the end of the file.
    temp_stream s(byte_image().fill(100, 0x77));
    ASSERT_EQ(file_seek(s, 20, 0), 0);
    uint32_t status = 0;
    const int64_t size_pos = chunk_start(s, &status);
    const uint8_t data[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(data_chunk(make_fourCC("avih"), data, 6, s, &status), 0u);
    chunk_end(size_pos, s, &status);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(file_tell(s), 34);
    const bytes b = s.contents();
    ASSERT_EQ(b.size(), 100u);
    EXPECT_EQ(u32_at(b, 24), 6u);
    EXPECT_EQ(b[34], 0x77);
}

TEST(ChunkWrite, SizePatchingWithoutAStream) {
    uint32_t status = 0;
    chunk_end(4, nullptr, &status);
    EXPECT_EQ(status, 0u);
    // No position on a pipe: the size field cannot be located.
    kelqtest::pipe_stream p(bytes{1, 2});
    ASSERT_NE(p.get(), nullptr);
    chunk_start(p, &status);
    EXPECT_EQ(status, 1u);
}

TEST(ChunkWrite, BytesAreTheSameOnEveryHost) {
    temp_stream s;
    uint32_t status = 0;
    const int64_t riff = write_RIFF_form_header(make_fourCC("AVI "), s, &status);
    const int64_t hdrl = write_list_header(make_fourCC("hdrl"), s, &status);
    EXPECT_EQ(riff, 4);
    EXPECT_EQ(hdrl, 16);
    const bytes placeholders = s.contents();
    EXPECT_EQ(u32_at(placeholders, 4), 0xFFFFFFFFu);
    EXPECT_EQ(u32_at(placeholders, 16), 0xFFFFFFFFu);
    const uint8_t data[3] = {0xAB, 0xCD, 0xEF};
    EXPECT_EQ(data_chunk(create_fourCC(0, 3, 0), data, 3, s, &status), 0u);
    chunk_end(hdrl, s, &status);
    junk_pad(16, s, &status);
    chunk_end(riff, s, &status);
    EXPECT_EQ(status, 0u);
    const bytes expected = {
        'R', 'I', 'F', 'F', 0x28, 0, 0, 0, 'A', 'V', 'I', ' ',   //
        'L', 'I', 'S', 'T', 0x10, 0, 0, 0, 'h', 'd', 'r', 'l',   //
        '0', '0', 'd', 'c', 3, 0, 0, 0, 0xAB, 0xCD, 0xEF, 0,     //
        'J', 'U', 'N', 'K', 4, 0, 0, 0, 'K', 'e', 'l', 'q',      //
    };
    EXPECT_EQ(s.contents(), expected);
}

TEST(ChunkWrite, ListHeaderRefusesAfterAFailureRiffHeaderDoesNot) {
    stream_at w(10);
    uint32_t status = 1;
    EXPECT_EQ(write_list_header(make_fourCC("movi"), w.s, &status), -1);
    EXPECT_EQ(file_tell(w.s), 10);
    EXPECT_EQ(w.s.contents().size(), 10u);
    EXPECT_EQ(write_RIFF_form_header(make_fourCC("AVIX"), w.s, &status), 14);
    EXPECT_EQ(status, 1u);
    const bytes b = w.s.contents();
    ASSERT_EQ(b.size(), 22u);
    EXPECT_EQ(bytes(b.begin() + 10, b.end()), (bytes{'R', 'I', 'F', 'F', 0xFF, 0xFF, 0xFF, 0xFF, 'A', 'V', 'I', 'X'}));
    // A null status word counts as no failure so far.
    EXPECT_EQ(write_list_header(make_fourCC("movi"), w.s, nullptr), 26);

    // A write that fails sets the word, and the next list header is refused.
    FILE *ro = kelqtest::failing_write_stream();
    ASSERT_NE(ro, nullptr);
    status = 0;
    write_list_header(make_fourCC("hdrl"), ro, &status);
    EXPECT_EQ(status, 1u);
    EXPECT_EQ(write_list_header(make_fourCC("hdrl"), ro, &status), -1);
    std::fclose(ro);
}

TEST(ChunkWrite, DataChunks) {
    const uint8_t data[5] = {'a', 'b', 'c', 'd', 'e'};
    struct { uint32_t size; bytes expected; } const cases[] = {
        {0, {'0', '1', 'w', 'b', 0, 0, 0, 0}},
        {1, {'0', '1', 'w', 'b', 1, 0, 0, 0, 'a', 0}},
        {3, {'0', '1', 'w', 'b', 3, 0, 0, 0, 'a', 'b', 'c', 0}},
        {4, {'0', '1', 'w', 'b', 4, 0, 0, 0, 'a', 'b', 'c', 'd'}},
    };
    for (const auto &c : cases) {
        temp_stream s;
        uint32_t status = 0;
        EXPECT_EQ(data_chunk(create_fourCC(1, 1, 0), data, c.size, s, &status), 0u);
        EXPECT_EQ(s.contents(), c.expected) << "size " << c.size;
    }
    // The other writers go on after a failure, and keep reporting it.
    temp_stream s;
    uint32_t status = 1;
    EXPECT_EQ(data_chunk(make_fourCC("strd"), data, 2, s, &status), 1u);
    EXPECT_EQ(s.contents().size(), 10u);
    // No data for a non-zero size: nothing is written.
    status = 0;
    EXPECT_EQ(data_chunk(make_fourCC("strd"), nullptr, 3, s, &status), 1u);
    EXPECT_EQ(s.contents().size(), 10u);
    EXPECT_EQ(data_chunk(make_fourCC("strd"), data, 1, s, nullptr), 0u);
    EXPECT_EQ(s.contents().size(), 20u);
    FILE *ro = kelqtest::failing_write_stream();
    ASSERT_NE(ro, nullptr);
    status = 0;
    EXPECT_EQ(data_chunk(make_fourCC("strd"), data, 3, ro, &status), 1u);
    std::fclose(ro);
}

TEST(ChunkWrite, JunkEndsOnTheNextBoundary) {
    struct { size_t at; int64_t alignment; } const cases[] = {
        {2036, 2048}, {4088, 2048}, {0, 2048}, {2, 2048}, {1, 2048}, {3000, 2048}, {2040, 2048},
        {0, 4096}, {38, 4096}, {4088, 4096}, {4095, 4096}, {5000, 4096},
        {100, 1280}, {100, 1281}, {0, 5000}, {7, 1}, {3, 2}, {4, 2}, {0, 8}, {70000, 65536},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("JUNK at " + std::to_string(c.at) + ", alignment " + std::to_string(c.alignment));
        stream_at w(c.at);
        uint32_t status = 0;
        junk_pad(c.alignment, w.s, &status);
        EXPECT_EQ(status, 0u);
        // The first boundary after the header; a full alignment when already on one.
        const int64_t header_end = static_cast<int64_t>(c.at) + 8;
        const int64_t end = (header_end / c.alignment + 1) * c.alignment;
        EXPECT_EQ(file_tell(w.s), end);
        const bytes b = w.s.contents();
        ASSERT_EQ(static_cast<int64_t>(b.size()), end);
        EXPECT_EQ(text(u32_at(b, c.at)), "JUNK");
        const uint32_t size = u32_at(b, c.at + 4);
        EXPECT_EQ(size, static_cast<uint32_t>(end - header_end));
        EXPECT_GT(size, 0u);
        // "Kelq " repeated from the first filler byte, unbroken to the last.
        const char word[] = "Kelq ";
        size_t wrong = 0;
        for (uint32_t i = 0; i < size; ++i) wrong += b[c.at + 8 + i] != static_cast<uint8_t>(word[i % 5]);
        EXPECT_EQ(wrong, 0u);
    }
}

TEST(ChunkWrite, JunkRefusals) {
    stream_at w(6);
    uint32_t status = 1;
    junk_pad(2048, w.s, &status);
    EXPECT_EQ(w.s.contents().size(), 6u);
    for (int64_t alignment : {int64_t{0}, int64_t{-1}, int64_t{-2048}}) {
        status = 0;
        junk_pad(alignment, w.s, &status);
        EXPECT_EQ(status, 1u) << alignment;
        EXPECT_EQ(w.s.contents().size(), 6u);
    }
}

TEST(ChunkWrite, PadEven) {
    struct { int64_t n, even; } const cases[] = {
        {0, 0}, {1, 2}, {2, 2}, {5, 6}, {7, 8}, {-1, -2}, {-2, -2}, {-3, -4},
        {0xFFFFFFFFll, 0x100000000ll}, {INT64_MAX - 1, INT64_MAX - 1}, {INT64_MIN, INT64_MIN}, {INT64_MIN + 1, INT64_MIN},
    };
    for (const auto &c : cases) EXPECT_EQ(padEven(c.n), c.even) << c.n;
}

TEST(ChunkWrite, WrittenTreesWalkBackAtAnyOffset) {
    // Even offsets only: the JUNK filler has no pad byte, so it keeps the list
    // walkable only when it starts on an even position.
    for (size_t at : {size_t{0}, size_t{2}, size_t{38}, size_t{4094}}) {
        SCOPED_TRACE("RIFF at " + std::to_string(at));
        stream_at w(at);
        FILE *s = w.s;
        uint32_t status = 0;
        const uint8_t data[6] = {'h', 'e', 'l', 'l', 'o', '!'};
        const int64_t riff = write_RIFF_form_header(make_fourCC("AVI "), s, &status);
        const int64_t hdrl = write_list_header(make_fourCC("hdrl"), s, &status);
        data_chunk(make_fourCC("strn"), data, 0, s, &status);
        data_chunk(make_fourCC("avih"), data, 5, s, &status);
        chunk_end(hdrl, s, &status);
        junk_pad(64, s, &status);
        EXPECT_EQ(file_tell(s) % 64, 0);
        const int64_t movi = write_list_header(make_fourCC("movi"), s, &status);
        data_chunk(create_fourCC(0, 3, 0), data, 3, s, &status);
        data_chunk(create_fourCC(1, 1, 1), data, 4, s, &status);
        const int64_t piece = chunk_start(s, &status);  // a chunk written piece by piece
        write_fourCC(create_fourCC(2, 5, 0), s);
        write_val32(0, s);
        file_write(s, data, 6);
        chunk_end(piece, s, &status);
        chunk_end(movi, s, &status);
        chunk_end(riff, s, &status);
        ASSERT_EQ(status, 0u);
        const int64_t end = file_tell(s);
        EXPECT_EQ(static_cast<int64_t>(w.s.contents().size()), end);

        // Walk it back with the list calls.
        ASSERT_EQ(file_seek(s, static_cast<int64_t>(at), 0), 0);
        list_node *root = new_list(nullptr, s);
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->start, static_cast<int64_t>(at));
        EXPECT_EQ(static_cast<int64_t>(root->size), end - static_cast<int64_t>(at) - 8);
        EXPECT_EQ(text(root->type), "AVI ");
        kelqtest::walker walk(s, 50);
        walk.walk(root);
        EXPECT_FALSE(walk.gave_up);
        EXPECT_EQ(root->status, 0u);
        delete_list_recursive(root);
        const int64_t junk_size = 64 - (static_cast<int64_t>(at) + 46 + 8) % 64;
        std::vector<std::string> expected = {
            "1 LIST hdrl", "2 strn 0 ",   "2 avih 5 hello", "1 JUNK " + std::to_string(junk_size) + " ",
            "1 LIST movi", "2 00dc 3 hel", "2 wb01 4 hell",  "2 02st 6 hello!",
        };
        std::vector<std::string> got = walk.lines();
        ASSERT_EQ(got.size(), expected.size());
        got[3].resize(expected[3].size());  // the filler itself is checked elsewhere
        EXPECT_EQ(got, expected);
    }
}
