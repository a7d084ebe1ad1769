// File wrappers and little-endian values on streams and byte buffers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/avi_image.h"

using namespace kelqtest;
using bytes = std::vector<uint8_t>;

namespace {

// Reads a value of the given width into a destination primed with a sentinel
// (or into none); returns the status and the destination as a 64-bit value.
std::pair<int, uint64_t> read_width(int width, FILE *s, bool discard = false) {
    switch (width) {
        case 1: { uint8_t v = 0xEE; int r = read_val8(discard ? nullptr : &v, s); return {r, v}; }
        case 2: { uint16_t v = 0xEEEE; int r = read_val16(discard ? nullptr : &v, s); return {r, v}; }
        case 4: { uint32_t v = 0xEEEEEEEEu; int r = read_val32(discard ? nullptr : &v, s); return {r, v}; }
        default: { uint64_t v = 0xEEEEEEEEEEEEEEEEull; int r = read_val64(discard ? nullptr : &v, s); return {r, v}; }
    }
}

int write_width(int width, uint64_t v, FILE *s) {
    switch (width) {
        case 1: return write_val8(static_cast<uint32_t>(v), s);
        case 2: return write_val16(static_cast<uint32_t>(v), s);
        case 4: return write_val32(static_cast<uint32_t>(v), s);
        default: return write_val64(v, s);
    }
}

}  // namespace

TEST(FileValues, ShortReadsAtEndOfFileSucceedWithZeroHighBytes) {
    // Every width, with anything from none to all of its bytes left in the
    // file, read from an offset; with no byte the destination stays untouched.
    for (int width : {1, 2, 4, 8}) {
        for (int left = 0; left <= width; ++left) {
            SCOPED_TRACE("width " + std::to_string(width) + ", bytes left " + std::to_string(left));
            byte_image img;
            img.fill(3, 0x55);
            uint64_t expected = 0;
            for (int i = 0; i < left; ++i) {
                img.u8(0xA1 + i);
                expected |= static_cast<uint64_t>(0xA1 + i) << (8 * i);
            }
            temp_stream s(img);
            const auto sentinel = read_width(width, s, true).second;
            for (bool discard : {false, true}) {
                ASSERT_EQ(file_seek(s, 3, 0), 0);
                EXPECT_EQ(read_width(width, s, discard), std::make_pair(left == 0 ? 1 : 0, left == 0 || discard ? sentinel : expected));
                EXPECT_EQ(file_tell(s), 3 + left);
            }
        }
    }
}

TEST(FileValues, NullStreamFailsEverywhere) {
    uint32_t v = 5;
    EXPECT_EQ(read_val32(&v, nullptr) + write_val32(1, nullptr) + file_seek(nullptr, 0, 0) + file_eof(nullptr) +
                  file_close(nullptr),
              5);
    EXPECT_EQ(v, 5u);
    EXPECT_LT(file_tell(nullptr), 0);
    EXPECT_EQ(file_read(nullptr, &v, 4) + file_write(nullptr, &v, 4), 0u);
}

// Each value goes to a stream and to a buffer as the same little-endian bytes
// whatever the host, and comes back from the buffer as written (truncated to
// its width); reading from a stream is checked above.
TEST(FileValues, ValuesAreLittleEndianWhateverTheHost) {
    const struct { int width; uint64_t value, back; bytes expected; } cases[] = {
        {1, 0x1FF, 0xFF, {0xFF}},
        {2, 0x12345, 0x2345, {0x45, 0x23}},
        {2, 0xFFFF, 0xFFFF, {0xFF, 0xFF}},
        {4, 0xA1B2C3D4u, 0xA1B2C3D4u, {0xD4, 0xC3, 0xB2, 0xA1}},
        {8, 0x8102030405060708ull, 0x8102030405060708ull, {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x81}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "width " << c.width << " value " << std::hex << c.value);
        temp_stream s;
        EXPECT_EQ(write_width(c.width, c.value, s), 0);
        EXPECT_EQ(s.contents(), c.expected);
        uint8_t out[8] = {};
        if (c.width == 2) short2str(static_cast<uint16_t>(c.value), out);
        if (c.width == 4) long2str(static_cast<uint32_t>(c.value), out);
        if (c.width == 8) longlong2str(c.value, out);
        if (c.width == 1) continue;  // no buffer calls for single bytes
        EXPECT_EQ(bytes(out, out + c.width), c.expected);
        const uint8_t *in = c.expected.data();
        EXPECT_EQ(c.width == 2 ? str2short(in) : c.width == 4 ? str2long(in) : str2longlong(in), c.back);
    }
}

// What the comparison with stdio below cannot show: origins stdio has no
// name for, offsets past 4 GiB, and the one-line report of a stream in error.
TEST(FileAccess, OriginsLargeOffsetsAndErrors) {
    temp_stream s(byte_image().fill(100));
    ASSERT_EQ(file_seek(s, 98, 0), 0);
    for (int origin : {3, -1, 42}) EXPECT_EQ(file_seek(s, 0, origin), 1) << origin;
    EXPECT_EQ(file_tell(s), 98) << "failed seeks do not move the stream";
    EXPECT_EQ(file_seek(s, 0x100000010ll, 0), 0);
    EXPECT_EQ(file_tell(s), 0x100000010ll);
    EXPECT_EQ(file_error(s), 0);

    FILE *ro = failing_write_stream();
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(file_write(ro, "ab", 2), 0u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(file_error(ro) + file_error(nullptr), 2);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed.rfind("file error", 0), 0u) << printed;
    EXPECT_EQ(printed.find("file error", 1), std::string::npos) << "one message only: " << printed;
    std::fclose(ro);
}

// Each mode on an existing "abcde": where it opens, a two-byte write there,
// reading from the start, then rewriting the first byte; and what the file
// holds afterwards. Update needs an existing file; other modes open nothing.
TEST(FileAccess, OpenModes) {
    const struct { int mode; int64_t opens_at; int write; size_t readable; const char *after; } cases[] = {
        {0, 0, 1, 5, "abcde"}, {2, 0, 1, 5, "abcde"},  // read only
        {1, 0, 0, 0, "AY"}, {3, 0, 0, 0, "AY"},        // truncated, write only
        {4, 5, 0, 7, "AbcdeXY"},                      // update: at the end, rewrites allowed
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("mode " + std::to_string(c.mode));
        temp_file p(bytes{'a', 'b', 'c', 'd', 'e'});
        FILE *f = file_open(p.path(), c.mode);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(file_tell(f), c.opens_at);
        EXPECT_EQ(write_val16(0x5958, f), c.write);
        char buf[16] = {};
        EXPECT_EQ(file_seek(f, 0, 0) + file_read(f, buf, sizeof buf), c.readable);
        EXPECT_EQ(file_seek(f, 0, 0) + write_val8('A', f) + file_close(f), c.write);
        FILE *back = std::fopen(p.path(), "rb");
        EXPECT_EQ(std::string(buf, std::fread(buf, 1, sizeof buf, back)), c.after);
        std::fclose(back);
    }
    const std::string gone = std::string(temp_file(bytes{}).path());  // removed at once
    for (int mode : {4, 0, -1, 5, 100}) EXPECT_EQ(file_open(gone.c_str(), mode), nullptr) << "mode " << mode;
    EXPECT_NE(access(gone.c_str(), F_OK), 0);
    EXPECT_EQ(file_open(nullptr, 0), nullptr);
}

// file_seek and file_tell against stdio's own calls on a second stream of
// the same file, from states that do and do not let them answer from the
// buffer: after each move both stand at the same place, with the same result
// and end-of-file flag, and read the same bytes next. The moves stay inside
// the buffer, step a little past it, reach and pass the end of the file.
TEST(FileAccess, SeekAndTellAgreeWithStdio) {
    bytes content(20000);
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<uint8_t>(i * 7 % 251);
    temp_file p(content);
    const struct { const char *what; void (*prepare)(FILE *); } states[] = {
        {"fresh", [](FILE *) {}},
        {"a few bytes read", [](FILE *f) { std::fgetc(f), std::fgetc(f), std::fgetc(f); }},
        // After a seek, so that stdio knows the file offset.
        {"sought and read", [](FILE *f) { std::fseek(f, 5, SEEK_SET), std::fgetc(f); }},
        {"a byte pushed back", [](FILE *f) { std::fseek(f, 5, SEEK_SET), std::fgetc(f), std::ungetc('x', f); }},
        {"unbuffered", [](FILE *f) { std::setvbuf(f, nullptr, _IONBF, 0), std::fgetc(f); }},
    };
    const std::pair<int64_t, int> moves[] = {{100, 0}, {10, 1}, {-50, 1}, {4093, 0}, {1, 1}, {4096, 0}, {0, 1}, {3000, 1}, {-1, 1},
        {19998, 0}, {19990, 0}, {8, 1}, {3000, 1}, {20000, 0}, {-5, 2}, {25000, 0}, {-30000, 1}, {7, 0}};
    const int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    for (const auto &state : states) {
        SCOPED_TRACE(state.what);
        FILE *ours = file_open(p.path(), 0), *plain = std::fopen(p.path(), "rb");
        ASSERT_TRUE(ours != nullptr && plain != nullptr);
        state.prepare(ours);
        state.prepare(plain);
        const auto agree = [&] {
            EXPECT_EQ(file_tell(ours), ftello64(plain));
            EXPECT_EQ(file_eof(ours), std::feof(plain) ? 1 : 0);
        };
        agree();
        for (const auto &m : moves) {
            SCOPED_TRACE(std::to_string(m.first) + " from " + std::to_string(m.second));
            EXPECT_EQ(file_seek(ours, m.first, m.second), fseeko64(plain, m.first, whence[m.second]) != 0 ? 1 : 0);
            agree();
            uint8_t a[3] = {}, b[3] = {};
            EXPECT_EQ(file_read(ours, a, 3), std::fread(b, 1, 3, plain));
            EXPECT_EQ(bytes(a, a + 3), bytes(b, b + 3));
            agree();
        }
        file_close(ours);
        std::fclose(plain);
    }
}
