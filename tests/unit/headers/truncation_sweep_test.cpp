// A header area written with the writers is read back with the readers from
// every prefix of the file: complete records come back unchanged, records
// past the end fail, and nothing crashes, leaks or hangs in between.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "record_test_util.h"

using namespace kelqtest;

namespace {

struct Record {
    const char *what;
    std::function<int(FILE *)> write;
    // Reads the record at the stream's position; sets same when it equals what was written.
    std::function<int(FILE *, bool &same)> read;
    int64_t needed = -1;  // bytes the reader needs; -1: all that was written
    int64_t start = 0, end = 0;
};

template <typename T, typename Write, typename Read>
Record fixed(const char *what, const T &value, Write write, Read read, int64_t needed = -1) {
    return {what,
            [value, write](FILE *f) {
                const auto r = write(&value, f);  // avih gives a position, the others a status
                return r < 0 || r == 1 ? 1 : 0;
            },
            [value, read](FILE *f, bool &same) {
                T back{};
                const int status = read(&back, f);
                same = back == value;
                return status;
            },
            needed};
}

Record name(const char *text) {
    const std::string expected(text);
    return {"strn",
            [expected](FILE *f) {
                const stream_name n = {static_cast<int16_t>(expected.size()), const_cast<char *>(expected.c_str())};
                return write_header_strn(&n, f);
            },
            [expected](FILE *f, bool &same) {
                stream_name back = {0, nullptr};
                const int status = read_header_strn(&back, f);
                same = back.name != nullptr && back.length >= static_cast<int16_t>(expected.size()) &&
                       std::string(back.name, expected.size()) == expected;
                std::free(back.name);
                return status;
            }};
}

// A stream header of the given type and frame rectangle.
avi_stream_header stream_header(const char *type, int16_t right, int16_t bottom) {
    return {0, make_fourCC(type), 0, 0, 0, 0, 0, 0, 25, 0, 1000, 0, 0, 0, -2, 0, right, bottom};
}

}  // namespace

TEST(TruncationSweep, EveryPrefixOfAHeaderAreaReadsSafely) {
    static uint8_t payload[] = {1, 2, 3, 4, 5};
    const stream_data_block block = {0x11, 5, payload, 0};
    std::vector<Record> records = {
        fixed("avih", avi_main_header{40000, 0, 0, 0x10, 250, 0, 3, 0, 320, 240, {1, 2, 3, 4}}, write_header_avih,
              read_header_avih),
        fixed("strh", stream_header("vids", 320, 240), write_header_strh, read_header_strh),
        fixed("strf video", video_format{40, 320, 240, 1, 24, make_fourCC("KQV1"), 230400, 0, 0, 0, 0},
              write_header_strf_video, read_header_strf_video),
        name("Video"),
        {"strd", [&](FILE *f) { return write_header_strd_video(&block, f); },
         [](FILE *f, bool &same) {
             stream_data_block back = {0, 0, nullptr, 0};
             const int status = read_header_strd_video(&back, f);
             same = back.header == 0x11 && back.size == 5 && back.data != nullptr &&
                    std::memcmp(back.data, payload, 5) == 0;
             std::free(back.data);
             return status;
         }},
        fixed("strh", stream_header("auds", 0, -1), write_header_strh, read_header_strh),
        // The pad byte after an odd cbSize lies outside the size; the reader does not need it.
        fixed("strf audio", audio_format{0x55, 2, 44100, 16000, 1, 0, 3, {9, 8, 7}}, write_header_strf_audio,
              read_header_strf_audio, 8 + 18 + 3),
        name("Audio 1"),
        fixed("strh", stream_header("txts", INT16_MIN, 16), write_header_strh, read_header_strh),
        fixed("strf caption", caption_format{{1, 2, 3, 4}}, write_header_strf_text_caption,
              read_header_strf_text_caption),
        name("Subtitle"),
    };

    temp_stream whole;
    for (Record &r : records) {
        r.start = file_tell(whole);
        ASSERT_EQ(r.write(whole), 0) << r.what;
        r.end = r.needed < 0 ? file_tell(whole) : r.start + r.needed;
    }
    const std::vector<uint8_t> all = whole.contents();
    ASSERT_EQ(all.size(), 64u + 64 + 48 + 14 + 21 + 64 + 30 + 16 + 64 + 16 + 16);

    for (size_t length = 0; length <= all.size(); ++length) {
        temp_stream s(std::vector<uint8_t>(all.begin(), all.begin() + static_cast<long>(length)));
        for (const Record &r : records) {
            SCOPED_TRACE(std::string(r.what) + " at " + std::to_string(r.start) + ", prefix " +
                         std::to_string(length));
            ASSERT_EQ(file_seek(s, r.start, 0), 0);
            bool same = false;
            const int status = r.read(s, same);
            EXPECT_TRUE(status == 0 || status == 1) << status;
            if (static_cast<int64_t>(length) >= r.end) {
                EXPECT_EQ(status, 0);
                EXPECT_TRUE(same);
            } else if (static_cast<int64_t>(length) <= r.start) {
                EXPECT_EQ(status, 1);
            }
        }
    }
}
