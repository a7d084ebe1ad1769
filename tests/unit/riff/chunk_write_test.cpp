// Writing chunks with back-patched sizes, data chunks, JUNK filler, padEven.
// Whole trees of chunks, their back-patched sizes and placeholders, are checked
// by the writer and repair tests, which read back every file they write.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/byte_image.h"

using namespace kelqtest;
using bytes = std::vector<uint8_t>;

namespace {

const uint8_t payload[11] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};

}  // namespace

// How each writer treats the caller's status word: a failure already in it,
// a null word (no failure so far), a refused argument, a stream that fails.
TEST(ChunkWrite, StatusWordBeforeAndAfterEachWriter) {
    enum kind { file, failing, pipe };
    using writer = std::function<int64_t(FILE *, uint32_t *)>;
    const writer list = [](FILE *s, uint32_t *st) { return write_list_header(make_fourCC("movi"), s, st); };
    const writer riff = [](FILE *s, uint32_t *st) { return write_RIFF_form_header(make_fourCC("AVIX"), s, st); };
    const auto data = [](const void *d, uint32_t n) {
        return writer([=](FILE *s, uint32_t *st) { return int64_t{data_chunk(make_fourCC("strd"), d, n, s, st)}; });
    };
    const auto junk = [](int64_t alignment) {
        return writer([=](FILE *s, uint32_t *st) { junk_pad(alignment, s, st); return int64_t{0}; });
    };
    constexpr int64_t any = INT64_MIN;
    constexpr int null_word = -1;
    const struct { const char *name; kind on; writer write; int before; uint32_t after; int64_t result; size_t written; } cases[] = {
        {"list header after a failure", file, list, 1, 1, -1, 0},
        {"RIFF header after a failure", file, riff, 1, 1, 14, 12},
        {"data chunk after a failure", file, data(payload, 2), 1, 1, 1, 10},
        {"JUNK after a failure", file, junk(2048), 1, 1, 0, 0},
        {"list header, null word", file, list, null_word, 0, 14, 12},
        {"data chunk, null word", file, data(payload, 1), null_word, 0, 0, 10},
        {"data chunk without data", file, data(nullptr, 3), 0, 1, 1, 0},
        {"JUNK alignment 0", file, junk(0), 0, 1, 0, 0},
        {"JUNK alignment -1", file, junk(-1), 0, 1, 0, 0},
        {"size patch without a stream", file, [](FILE *, uint32_t *st) { chunk_end(4, nullptr, st); return int64_t{0}; }, 0, 0, 0, 0},
        {"list header, failing write", failing, list, 0, 1, any, 0},
        {"data chunk, failing write", failing, data(payload, 3), 0, 1, 1, 0},
        {"chunk start on a pipe", pipe, [](FILE *s, uint32_t *st) { chunk_start(s, st); return int64_t{0}; }, 0, 1, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        temp_stream w(byte_image().fill(10, 0x5A));
        file_seek(w, 10, 0);
        pipe_stream p(bytes{1, 2});
        FILE *s = c.on == file ? w.get() : c.on == pipe ? p.get() : failing_write_stream();
        ASSERT_NE(s, nullptr);
        uint32_t status = c.before == null_word ? 0 : static_cast<uint32_t>(c.before);
        const int64_t result = c.write(s, c.before == null_word ? nullptr : &status);
        if (c.before != null_word) { EXPECT_EQ(status, c.after); }
        if (c.result != any) { EXPECT_EQ(result, c.result); }
        EXPECT_EQ(w.contents().size(), 10 + c.written);
        if (c.on == failing) std::fclose(s);
    }
    temp_stream odd;
    data_chunk(make_fourCC("00dc"), payload, 3, odd, nullptr);
    EXPECT_EQ(odd.contents(), byte_image().id("00dc").u32(3).raw({1, 2, 3, 0}).bytes()) << "a zero pad byte";
}

TEST(ChunkWrite, JunkEndsOnTheNextBoundary) {
    const struct { size_t at; int64_t alignment; } cases[] = {
        {2036, 2048}, {2040, 2048}, {0, 2048}, {1, 2048}, {3000, 2048}, {4088, 4096}, {4095, 4096}, {5000, 4096},
        {100, 1280}, {100, 1281}, {0, 5000}, {7, 1}, {3, 2}, {4, 2}, {0, 8}, {70000, 65536},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("JUNK at " + std::to_string(c.at) + ", alignment " + std::to_string(c.alignment));
        temp_stream w(byte_image().fill(c.at, 0x5A));
        file_seek(w, static_cast<int64_t>(c.at), 0);
        uint32_t status = 0;
        junk_pad(c.alignment, w, &status);
        EXPECT_EQ(status, 0u);
        // The first boundary after the header, a full alignment when already
        // on one; "Kelq " repeated from the first filler byte to the last.
        const size_t header_end = c.at + 8, end = (header_end / static_cast<size_t>(c.alignment) + 1) * c.alignment;
        EXPECT_EQ(file_tell(w), static_cast<int64_t>(end));
        byte_image expected = byte_image().fill(c.at, 0x5A).id("JUNK").u32(static_cast<uint32_t>(end - header_end));
        for (size_t i = header_end; i < end; ++i) expected.u8("Kelq "[(i - header_end) % 5]);
        EXPECT_EQ(w.contents(), expected.bytes());
    }
}

TEST(ChunkWrite, PadEvenRoundsAwayFromZero) {
    const struct { int64_t n, even; } cases[] = {
        {0, 0}, {1, 2}, {2, 2}, {5, 6}, {7, 8}, {-1, -2}, {-2, -2}, {-3, -4}, {0x7FFFFFFF, 0x80000000},
        {0xFFFFFFFFll, 0x100000000ll}, {INT64_MAX - 1, INT64_MAX - 1}, {INT64_MIN, INT64_MIN}, {INT64_MIN + 1, INT64_MIN},
    };
    for (const auto &c : cases) EXPECT_EQ(padEven(c.n), c.even) << c.n;
}
