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

template <typename T>
void release(T &) {}
void release(stream_name &n) { std::free(n.name); }
void release(stream_data_block &b) { std::free(b.data); }

// One record of the area: its bytes as written, and a read at the stream's
// position that gives the status and the read record's bytes written again,
// so that a record comes back unchanged when the two byte runs are equal.
struct Record {
    const char *what;
    std::vector<uint8_t> bytes;
    std::function<std::vector<uint8_t>(FILE *, int *)> read_back;
    size_t needed;  // bytes the reader needs
};

template <typename T, typename Write, typename Read>
Record record(const char *what, const T &value, Write write, Read read, size_t pad = 0) {
    const auto bytes_of = [write](const T &v) { return written(write, &v); };
    const std::vector<uint8_t> bytes = bytes_of(value);
    return {what, bytes,
            [bytes_of, read](FILE *f, int *status) {
                T back{};
                *status = read(&back, f);
                const std::vector<uint8_t> again = bytes_of(back);
                release(back);
                return again;
            },
            bytes.size() - pad};
}

avi_stream_header stream_header(const char *type, int16_t right, int16_t bottom) {
    return {0, make_fourCC(type), 0, 0, 0, 0, 0, 0, 25, 0, 1000, 0, 0, 0, -2, 0, right, bottom};
}

stream_name name(const char *text) { return {static_cast<int16_t>(std::strlen(text)), const_cast<char *>(text)}; }

}  // namespace

TEST(TruncationSweep, EveryPrefixOfAHeaderAreaReadsSafely) {
    static uint8_t payload[] = {1, 2, 3, 4, 5};
    const std::vector<Record> records = {
        record("avih", avi_main_header{40000, 0, 0, 0x10, 250, 0, 3, 0, 320, 240, {1, 2, 3, 4}}, write_header_avih,
               read_header_avih),
        record("strh", stream_header("vids", 320, 240), write_header_strh, read_header_strh),
        record("strf video", video_format{40, 320, 240, 1, 24, make_fourCC("KQV1"), 230400, 0, 0, 0, 0},
               write_header_strf_video, read_header_strf_video),
        record("strn", name("Video"), write_header_strn, read_header_strn),
        record("strd", stream_data_block{0x11, 5, payload, 0}, write_header_strd_video, read_header_strd_video),
        record("strh", stream_header("auds", 0, -1), write_header_strh, read_header_strh),
        // The pad byte after an odd cbSize lies outside the size; the reader does not need it.
        record("strf audio", audio_format{0x55, 2, 44100, 16000, 1, 0, 3, {9, 8, 7}}, write_header_strf_audio,
               read_header_strf_audio, 1),
        record("strn", name("Audio 1"), write_header_strn, read_header_strn),
        record("strh", stream_header("txts", INT16_MIN, 16), write_header_strh, read_header_strh),
        record("strf caption", caption_format{{1, 2, 3, 4}}, write_header_strf_text_caption,
               read_header_strf_text_caption),
        record("strn", name("Subtitle"), write_header_strn, read_header_strn),
    };
    std::vector<uint8_t> all;
    std::vector<size_t> starts;
    for (const Record &r : records) {
        starts.push_back(all.size());
        all.insert(all.end(), r.bytes.begin(), r.bytes.end());
    }
    ASSERT_EQ(all.size(), 64u + 64 + 48 + 14 + 21 + 64 + 30 + 16 + 64 + 16 + 16);

    for (size_t length = 0; length <= all.size(); ++length) {
        temp_stream s(std::vector<uint8_t>(all.begin(), all.begin() + static_cast<long>(length)));
        for (size_t i = 0; i < records.size(); ++i) {
            const Record &r = records[i];
            SCOPED_TRACE(std::string(r.what) + " at " + std::to_string(starts[i]) + ", prefix " + std::to_string(length));
            ASSERT_EQ(file_seek(s, static_cast<int64_t>(starts[i]), 0), 0);
            int status = -1;
            const std::vector<uint8_t> again = r.read_back(s, &status);
            EXPECT_TRUE(status == 0 || status == 1) << status;
            if (length >= starts[i] + r.needed) {
                EXPECT_EQ(status, 0);
                EXPECT_EQ(again, r.bytes);
            } else if (length <= starts[i]) {
                EXPECT_EQ(status, 1);
            }
        }
    }
}
