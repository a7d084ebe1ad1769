// The time span text of bitmap subtitle chunks, and the subtitle shown at a
// video frame: found by walking chunk headers from a key frame about five
// seconds before the frame and reading the span of each subtitle chunk met.
#include "extensions/subtitle_timing.h"

#include "reader/index_walk.h"
#include "reader/tolerant_rules.h"

#include <cstdlib>
#include <cstring>

namespace kelq {

int getTimeValue(char **cursor, const char *separator, uint16_t *value) {
    char *found = std::strstr(*cursor, separator);
    if (found == nullptr) return 1;
    *found = '\0';
    // Kept in 16 bits: the low half of what strtol read.
    *value = static_cast<uint16_t>(static_cast<unsigned long>(std::strtol(*cursor, nullptr, 10)));
    *cursor = found + std::strlen(separator);
    return 0;
}

}  // namespace kelq

namespace {

using kelq::header_step;
using kelq::not_found;
using kelq::result_end_of_list;
using kelq::result_failed;
using kelq::result_ok;

constexpr uint32_t no_duration = 0xFFFFFFFFu;
constexpr uint32_t passed_over_ms = 500;  // a subtitle ending this soon after the frame is not shown

// Hours and minutes count as signed 16-bit, seconds and the start's
// milliseconds as unsigned; sums wrap in 32 bits.
uint32_t milliseconds(uint16_t hours, uint16_t minutes, uint16_t seconds, uint32_t millis) {
    const uint32_t h = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int16_t>(hours)));
    const uint32_t m = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int16_t>(minutes)));
    return (m * 60u + h * 3600u + seconds) * 1000u + millis;
}

// The first subtitle_text_size bytes at a chunk's data; missing bytes (at
// the end of the file) read as NUL.
void read_span_text(aviin_handle *h, uint64_t data_offset, char *text) {
    std::memset(text, 0, kelq::subtitle_text_size);
    FILE *f = h->current_list->stream;
    if (file_seek(f, static_cast<int64_t>(data_offset), kelq::origin_start) == 0)
        file_read(f, text, kelq::subtitle_text_size);
}

}  // namespace

extern "C" {

int aviin_get_subtitle_duration(aviin_handle *h, char *text, uint32_t *start, uint32_t *duration) {
    (void)h;  // the text is all it reads
    if (text == nullptr) return result_failed;
    text[kelq::subtitle_text_size - 1] = '\0';
    char *cursor = text;
    uint16_t start_h = 0, start_m = 0, start_s = 0, start_ms = 0, end_h = 0, end_m = 0, end_s = 0;
    if (kelq::getTimeValue(&cursor, ":", &start_h) != 0 || kelq::getTimeValue(&cursor, ":", &start_m) != 0 ||
        kelq::getTimeValue(&cursor, ".", &start_s) != 0 || kelq::getTimeValue(&cursor, "-", &start_ms) != 0 ||
        kelq::getTimeValue(&cursor, ":", &end_h) != 0 || kelq::getTimeValue(&cursor, ":", &end_m) != 0 ||
        kelq::getTimeValue(&cursor, ".", &end_s) != 0)
        return result_failed;
    const int16_t end_ms = static_cast<int16_t>(static_cast<unsigned long>(std::strtol(cursor, nullptr, 10)));
    const uint32_t from = milliseconds(start_h, start_m, start_s, start_ms);
    const uint32_t to = milliseconds(end_h, end_m, end_s, static_cast<uint32_t>(static_cast<int32_t>(end_ms)));
    if (start != nullptr) *start = from;
    if (static_cast<int32_t>(from) > static_cast<int32_t>(to)) return result_failed;
    if (duration != nullptr) *duration = to - from;
    return result_ok;
}

int aviin_get_subtitle_offset(aviin_handle *h, const keyindex_table *key_table, uint32_t video_stream,
                              uint32_t subtitle_stream, int32_t frame, uint64_t *offset, uint32_t *duration) {
    if (h == nullptr || offset == nullptr || duration == nullptr || h->current_list == nullptr) return result_failed;
    *offset = not_found;
    *duration = no_duration;

    const video_stream_format &v = h->video_formats[0];
    const float frame_seconds = static_cast<float>(v.scale) / static_cast<float>(v.rate);
    const float frame_ms = static_cast<float>(frame) * frame_seconds * 1000.0f;
    // Five seconds before the frame, truncated toward zero; NaN (no frame
    // rate) and values no frame number can hold count as before the start.
    const double five_back = static_cast<double>(frame) + (-5.0 / static_cast<double>(frame_seconds));
    int64_t begin = -1;
    if (five_back > -2147483648.0 && five_back < 2147483648.0) begin = static_cast<int64_t>(five_back);
    int64_t start = h->movi_data_pos;
    int64_t counter = 0;
    if (begin >= 0) {
        keyindex_entry key;
        key.frame_no = 0xFFFFFFFFu;
        const int r = aviin_read_key_table_by_frame_no(h, key_table, static_cast<int32_t>(begin), &key, -1);
        if (r != result_ok && r != result_end_of_list) return result_failed;
        // With 3 the lookup gives the latest key frame it knows before the
        // frame, if any; otherwise the walk starts at the first chunk.
        if (r == result_ok || key.frame_no <= static_cast<uint64_t>(begin)) {
            if (!kelq::header_in_movi(h, key.video_offset, start)) return result_failed;
            counter = key.frame_no;
        }
    }
    kelq::walk_from(h, start);

    uint64_t fallback = not_found;
    while (frame >= counter) {
        header_step s;
        const int r = kelq::step_header(h, s);
        if (r != result_ok) return result_failed;
        if (s.stream == video_stream && kelq::is_frame_type(h, s.type)) {
            fallback = s.data_offset - kelq::chunk_header_size;
            ++counter;
        } else if (s.type == KELQAVI_CHUNK_BITMAP_CAPTION && s.stream == subtitle_stream) {
            char text[kelq::subtitle_text_size];
            read_span_text(h, s.data_offset, text);
            // The parse result is not looked at: a malformed text leaves the
            // start and length at what it could read (0 when nothing).
            uint32_t shown_from = 0, shown_for = 0;
            aviin_get_subtitle_duration(h, text, &shown_from, &shown_for);
            if (static_cast<float>(shown_from) >= frame_ms) {
                *offset = s.data_offset - kelq::chunk_header_size;
                return result_ok;
            }
            const float shown_until = static_cast<float>(shown_from + shown_for);
            if (shown_until >= frame_ms) {
                const float left = shown_until - frame_ms;
                const uint32_t left_ms = left < 4294967295.0f ? static_cast<uint32_t>(left) : 0xFFFFFFFFu;
                if (left_ms > passed_over_ms) {
                    *offset = s.data_offset - kelq::chunk_header_size;
                    *duration = left_ms;
                    return result_ok;
                }
            }
        }
    }
    *offset = fallback;
    return result_ok;
}

}  // extern "C"
