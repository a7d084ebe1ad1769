// File wrappers and little-endian values on streams and byte buffers.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/byte_image.h"

using kelqtest::byte_image;
using kelqtest::temp_stream;
using bytes = std::vector<uint8_t>;

namespace {

// A file on disk for the calls that take a path; removed on scope exit.
class temp_path {
public:
    explicit temp_path(const bytes &content) {
        path_ = testing::TempDir() + "kelq_file_XXXXXX";
        const int fd = mkstemp(&path_[0]);
        if (fd >= 0) {
            if (!content.empty() && ::write(fd, content.data(), content.size()) < 0) path_.clear();
            ::close(fd);
        }
    }
    ~temp_path() { std::remove(path_.c_str()); }
    const char *c_str() const { return path_.c_str(); }

private:
    std::string path_;
};

bool exists(const char *path) {
    FILE *f = std::fopen(path, "rb");
    if (f != nullptr) std::fclose(f);
    return f != nullptr;
}

// Reads a value of the given width into a destination primed with a sentinel;
// returns the status and the destination as a 64-bit value.
std::pair<int, uint64_t> read_width(int width, FILE *s) {
    switch (width) {
        case 1: { uint8_t v = 0xEE; int r = read_val8(&v, s); return {r, v}; }
        case 2: { uint16_t v = 0xEEEE; int r = read_val16(&v, s); return {r, v}; }
        case 4: { uint32_t v = 0xEEEEEEEEu; int r = read_val32(&v, s); return {r, v}; }
        default: { uint64_t v = 0xEEEEEEEEEEEEEEEEull; int r = read_val64(&v, s); return {r, v}; }
    }
}

uint64_t sentinel(int width) { return width == 8 ? ~0ull / 255 * 0xEE : (1ull << (8 * width)) / 255 * 0xEE; }

int write_width(int width, uint64_t v, FILE *s) {
    switch (width) {
        case 1: return write_val8(static_cast<uint32_t>(v), s);
        case 2: return write_val16(static_cast<uint32_t>(v), s);
        case 4: return write_val32(static_cast<uint32_t>(v), s);
        default: return write_val64(v, s);
    }
}

void to_buffer(int width, uint64_t v, uint8_t *out) {
    switch (width) {
        case 2: short2str(static_cast<uint16_t>(v), out); break;
        case 4: long2str(static_cast<uint32_t>(v), out); break;
        default: longlong2str(v, out);
    }
}

uint64_t from_buffer(int width, const uint8_t *in) {
    return width == 2 ? str2short(in) : width == 4 ? str2long(in) : str2longlong(in);
}

}  // namespace

TEST(FileValues, ShortReadsAtEndOfFileSucceedWithZeroHighBytes) {
    // Every width, with anything from none to all of its bytes left in the file.
    for (int width : {1, 2, 4, 8}) {
        for (int left = 0; left <= width; ++left) {
            SCOPED_TRACE("width " + std::to_string(width) + ", bytes left " + std::to_string(left));
            byte_image img;
            img.fill(3, 0x55);  // read from an offset, not from the start
            for (int i = 0; i < left; ++i) img.u8(0xA1 + i);
            temp_stream s(img);
            ASSERT_EQ(file_seek(s, 3, 0), 0);
            uint64_t expected = 0;
            for (int i = left - 1; i >= 0; --i) expected = expected << 8 | static_cast<uint64_t>(0xA1 + i);
            const auto got = read_width(width, s);
            if (left == 0) {
                EXPECT_EQ(got.first, 1);
                EXPECT_EQ(got.second, sentinel(width)) << "destination must be left untouched";
            } else {
                EXPECT_EQ(got.first, 0);
                EXPECT_EQ(got.second, expected);
            }
            EXPECT_EQ(file_tell(s), 3 + left);
        }
    }
}

TEST(FileValues, StatusesOfARunAreOred) {
    temp_stream s(byte_image().u32(0x11223344).u16(0xBEEF));
    uint32_t a = 0, b = 0;
    uint16_t c = 7;
    uint8_t d = 9;
    int status = read_val32(&a, s);
    status |= read_val32(&b, s);  // two bytes left: still a success
    EXPECT_EQ(status, 0);
    EXPECT_EQ(a, 0x11223344u);
    EXPECT_EQ(b, 0xBEEFu);
    status |= read_val16(&c, s);  // nothing left
    status |= read_val8(&d, s);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(c, 7);
    EXPECT_EQ(d, 9);
    // A later good read does not clear what the run has gathered.
    ASSERT_EQ(file_seek(s, 0, 0), 0);
    status |= read_val8(&d, s);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(d, 0x44);
}

TEST(FileValues, NullDestinationReadsAndDiscards) {
    temp_stream s(byte_image().u64(1).u8(2));
    EXPECT_EQ(read_val32(nullptr, s), 0);
    EXPECT_EQ(read_val16(nullptr, s), 0);
    EXPECT_EQ(read_val8(nullptr, s), 0);
    EXPECT_EQ(file_tell(s), 7);
    EXPECT_EQ(read_val64(nullptr, s), 0);  // 2 of 8 bytes
    EXPECT_EQ(read_val64(nullptr, s), 1);
}

TEST(FileValues, NullStreamFailsEverywhere) {
    uint32_t v = 5;
    EXPECT_EQ(read_val32(&v, nullptr), 1);
    EXPECT_EQ(v, 5u);
    EXPECT_EQ(write_val32(1, nullptr), 1);
    EXPECT_EQ(file_seek(nullptr, 0, 0), 1);
    EXPECT_LT(file_tell(nullptr), 0);
    EXPECT_EQ(file_eof(nullptr), 1);
    EXPECT_EQ(file_close(nullptr), 1);
    EXPECT_EQ(file_read(nullptr, &v, 4), 0u);
    EXPECT_EQ(file_write(nullptr, &v, 4), 0u);
}

// Each value goes to a stream and to a buffer as the same little-endian bytes
// whatever the host, and comes back from both as written (truncated to its width).
TEST(FileValues, ValuesAreLittleEndianWhateverTheHost) {
    struct { int width; uint64_t value, back; bytes expected; } const cases[] = {
        {1, 0x1FF, 0xFF, {0xFF}},
        {2, 0x12345, 0x2345, {0x45, 0x23}},
        {2, 0xFFFF, 0xFFFF, {0xFF, 0xFF}},
        {4, 0xA1B2C3D4u, 0xA1B2C3D4u, {0xD4, 0xC3, 0xB2, 0xA1}},
        {4, 0xFF000000u, 0xFF000000u, {0, 0, 0, 0xFF}},
        {8, 0x8102030405060708ull, 0x8102030405060708ull, {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x81}},
    };
    FILE *ro = kelqtest::failing_write_stream();
    ASSERT_NE(ro, nullptr);
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "width " << c.width << " value " << std::hex << c.value);
        temp_stream s;
        EXPECT_EQ(write_width(c.width, c.value, s), 0);
        EXPECT_EQ(s.contents(), c.expected);
        ASSERT_EQ(file_seek(s, 0, 0), 0);
        EXPECT_EQ(read_width(c.width, s), std::make_pair(0, c.back));
        EXPECT_EQ(write_width(c.width, c.value, ro), 1) << "a failed write reports 1";
        if (c.width == 1) continue;  // no buffer calls for single bytes
        uint8_t out[8] = {};
        to_buffer(c.width, c.value, out);
        EXPECT_EQ(bytes(out, out + c.width), c.expected);
        EXPECT_EQ(from_buffer(c.width, c.expected.data()), c.back);
    }
    temp_stream s;
    EXPECT_EQ(write_fourCC(make_fourCC("RIFF"), s), 0);
    EXPECT_EQ(write_fourCC(1, ro), 1);
    std::fclose(ro);
    EXPECT_EQ(s.contents(), (bytes{'R', 'I', 'F', 'F'}));
    ASSERT_EQ(file_seek(s, 0, 0), 0);
    uint32_t cc = 0;
    EXPECT_EQ(read_fourCC(&cc, s), 0);
    EXPECT_EQ(cc, 0x46464952u);
}

TEST(FileAccess, SeekOriginsAndBadOrigins) {
    temp_stream s(byte_image().fill(100));
    EXPECT_EQ(file_seek(s, 10, 0), 0);
    EXPECT_EQ(file_seek(s, 5, 1), 0);
    EXPECT_EQ(file_tell(s), 15);
    EXPECT_EQ(file_seek(s, -2, 2), 0);
    EXPECT_EQ(file_tell(s), 98);
    for (int origin : {3, -1, 42}) {
        EXPECT_EQ(file_seek(s, 0, origin), 1);
        EXPECT_EQ(file_tell(s), 98) << "origin " << origin << " moved the stream";
    }
    EXPECT_EQ(file_seek(s, -1, 0), 1);
    EXPECT_EQ(file_tell(s), 98);
    // 64-bit offsets go through unharmed.
    EXPECT_EQ(file_seek(s, 0x100000010ll, 0), 0);
    EXPECT_EQ(file_tell(s), 0x100000010ll);
}

// file_seek and file_tell against stdio's own calls on a second stream of
// the same file, from states that do and do not let them answer from the
// buffer: after each move both stand at the same place, with the same result
// and end-of-file flag, and read the same bytes next. The moves stay inside
// the buffer, step a little past it, reach and pass the end of the file.
TEST(FileAccess, SeekAndTellAgreeWithStdio) {
    bytes content(20000);
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<uint8_t>(i * 7 % 251);
    temp_path p(content);
    const struct {
        const char *what;
        void (*prepare)(FILE *);
    } states[] = {
        {"fresh", [](FILE *) {}},
        {"a few bytes read", [](FILE *f) { std::fgetc(f), std::fgetc(f), std::fgetc(f); }},
        // After a seek, so that stdio knows the file offset.
        {"sought and read", [](FILE *f) { std::fseek(f, 5, SEEK_SET), std::fgetc(f); }},
        {"a byte pushed back", [](FILE *f) { std::fseek(f, 5, SEEK_SET), std::fgetc(f), std::ungetc('x', f); }},
        {"unbuffered", [](FILE *f) { std::setvbuf(f, nullptr, _IONBF, 0), std::fgetc(f); }},
    };
    const struct {
        int64_t offset;
        int origin;
    } moves[] = {{100, 0},   {10, 1},    {-50, 1},  {4093, 0},  {1, 1},  {4096, 0},  {0, 1},      {3000, 1},
                 {-1, 1},    {19998, 0}, {19990, 0}, {3000, 1}, {20000, 0}, {-5, 2}, {25000, 0}, {-30000, 1}, {7, 0}};
    for (const auto &state : states) {
        SCOPED_TRACE(state.what);
        FILE *ours = file_open(p.c_str(), 0), *plain = std::fopen(p.c_str(), "rb");
        ASSERT_TRUE(ours != nullptr && plain != nullptr);
        state.prepare(ours);
        state.prepare(plain);
        EXPECT_EQ(file_tell(ours), ftello64(plain));
        for (const auto &m : moves) {
            SCOPED_TRACE(std::to_string(m.offset) + " from " + std::to_string(m.origin));
            const int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
            EXPECT_EQ(file_seek(ours, m.offset, m.origin), fseeko64(plain, m.offset, whence[m.origin]) != 0 ? 1 : 0);
            EXPECT_EQ(file_tell(ours), ftello64(plain));
            EXPECT_EQ(file_eof(ours), std::feof(plain) ? 1 : 0);
            uint8_t a[3] = {}, b[3] = {};
            EXPECT_EQ(file_read(ours, a, 3), std::fread(b, 1, 3, plain));
            EXPECT_EQ(bytes(a, a + 3), bytes(b, b + 3));
            EXPECT_EQ(file_tell(ours), ftello64(plain));
            EXPECT_EQ(file_eof(ours), std::feof(plain) ? 1 : 0);
        }
        file_close(ours);
        std::fclose(plain);
    }
}

TEST(FileAccess, ReadWriteEofAndError) {
    temp_stream s(byte_image().raw({1, 2, 3}));
    uint8_t buf[8] = {};
    EXPECT_EQ(file_eof(s), 0);
    EXPECT_EQ(file_read(s, buf, 8), 3u);
    EXPECT_EQ(file_eof(s), 1);
    EXPECT_EQ(file_error(s), 0);
    ASSERT_EQ(file_seek(s, 0, 2), 0);
    EXPECT_EQ(file_write(s, buf, 2), 2u);
    EXPECT_EQ(s.contents(), (bytes{1, 2, 3, 1, 2}));

    FILE *ro = kelqtest::failing_write_stream();
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(file_write(ro, buf, 2), 0u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(file_error(ro), 1);
    EXPECT_EQ(file_error(nullptr), 1);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed.rfind("file error", 0), 0u) << printed;
    EXPECT_EQ(printed.find("file error", 1), std::string::npos) << "one message only: " << printed;
    std::fclose(ro);
}

// Each mode on an existing "abcde": where it opens, a two-byte write there,
// reading from the start, then rewriting the first byte; and what the file
// holds afterwards.
TEST(FileAccess, OpenModes) {
    struct { int mode; int64_t opens_at; int write; size_t readable; const char *after; } const cases[] = {
        {0, 0, 1, 5, "abcde"}, {2, 0, 1, 5, "abcde"},  // read only
        {1, 0, 0, 0, "AY"}, {3, 0, 0, 0, "AY"},        // truncated, write only
        {4, 5, 0, 7, "AbcdeXY"},                      // update: at the end, rewrites allowed
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("mode " + std::to_string(c.mode));
        temp_path p({'a', 'b', 'c', 'd', 'e'});
        FILE *f = file_open(p.c_str(), c.mode);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(file_tell(f), c.opens_at);
        EXPECT_EQ(write_val16(0x5958, f), c.write);
        uint8_t buf[16] = {};
        ASSERT_EQ(file_seek(f, 0, 0), 0);
        EXPECT_EQ(file_read(f, buf, sizeof buf), c.readable);
        ASSERT_EQ(file_seek(f, 0, 0), 0);
        write_val8('A', f);
        EXPECT_EQ(file_close(f), 0);
        f = file_open(p.c_str(), 0);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), file_read(f, buf, sizeof buf)), c.after);
        EXPECT_EQ(file_close(f), 0);
    }
    temp_path p({});
    std::remove(p.c_str());
    EXPECT_EQ(file_open(p.c_str(), 0), nullptr);
    EXPECT_EQ(file_open(p.c_str(), 4), nullptr) << "update needs an existing file";
    for (int mode : {-1, 5, 6, 100}) {
        EXPECT_EQ(file_open(p.c_str(), mode), nullptr) << "mode " << mode;
        EXPECT_FALSE(exists(p.c_str())) << "mode " << mode << " created the file";
    }
    EXPECT_EQ(file_open(nullptr, 0), nullptr);
}
