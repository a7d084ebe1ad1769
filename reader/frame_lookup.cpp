// Where the chunks of frame N lie, and of the audio playing with a span of
// frames: from the nearest key frame of the key-frame table, chunk headers
// are stepped and frames counted (or audio time summed) up to the target.
#include "reader/index_walk.h"
#include "reader/tolerant_rules.h"

namespace {

using kelq::header_step;
using kelq::not_found;
using kelq::result_end_of_list;
using kelq::result_failed;
using kelq::result_ok;

}  // namespace

extern "C" {

int aviin_get_video_offset(aviin_handle *h, keyindex_entry key, uint32_t stream, int32_t frame,
                           uint64_t *header_pos) {
    if (h == nullptr || h->current_list == nullptr || header_pos == nullptr) return result_failed;
    int64_t start = 0;
    if (!kelq::header_in_movi(h, key.video_offset, start)) return result_failed;
    kelq::walk_from(h, start);
    // The key frame's own chunk is the first counted, so the count ends on
    // the frame asked for.
    int64_t n = static_cast<int32_t>(key.frame_no);
    if (n > frame) return result_ok;
    bool first = true;
    for (;;) {
        header_step s;
        const int r = kelq::step_header(h, s);
        if (r != result_ok) return result_failed;
        const bool frame_chunk = s.stream == stream && kelq::is_frame_type(h, s.type);
        // The key entry must name a frame of this stream: one built for
        // another file or stream, or a bad index, points elsewhere.
        if (first && !frame_chunk) return result_failed;
        first = false;
        if (frame_chunk) {
            ++n;
            *header_pos = s.data_offset - kelq::chunk_header_size;
        }
        if (n > frame) return result_ok;
    }
}

int aviin_get_chunk_offsets(aviin_handle *h, const keyindex_table *key_table, uint32_t video_stream,
                            int32_t start_frame, int32_t end_frame, float end_time, uint64_t *video_start,
                            uint64_t *video_end, int32_t audio_stream, uint64_t *audio_first,
                            uint64_t *audio_last) {
    if (h == nullptr || video_start == nullptr || video_end == nullptr || audio_first == nullptr ||
        audio_last == nullptr || h->current_list == nullptr || h->current_list->status != 0 || h->idx1_pos == 0)
        return result_failed;
    FILE *f = h->current_list->stream;
    const int64_t here = file_tell(f);
    *video_start = *video_end = *audio_first = *audio_last = not_found;

    keyindex_entry a, b;
    if (aviin_read_key_table_by_frame_no(h, key_table, start_frame, &a, -1) != result_ok) return result_failed;
    aviin_get_video_offset(h, a, video_stream, start_frame, video_start);
    // An end frame past the frames the table covers: the lookup answers 3
    // with its last entry, and the walk goes on from there.
    b.video_offset = not_found;
    const int found_b = aviin_read_key_table_by_frame_no(h, key_table, end_frame, &b, -1);
    if (found_b != result_ok && !(found_b == result_end_of_list && b.video_offset != not_found))
        return result_failed;
    aviin_get_video_offset(h, b, video_stream, end_frame, video_end);
    if (audio_stream == -1) return result_ok;
    // The audio is looked for only when a video position is missing.
    if (*video_start != not_found && *video_end != not_found) return result_ok;

    // Times from the first video stream, whatever video_stream is.
    const video_stream_format &v = h->video_formats[0];
    const float frame_seconds = static_cast<float>(static_cast<int32_t>(v.scale)) /
                                static_cast<float>(static_cast<int32_t>(v.rate));
    const float t_start = static_cast<float>(start_frame) * frame_seconds + 0.0005f;
    const float t_key = static_cast<float>(a.frame_no) * frame_seconds + 0.0005f;
    if (static_cast<double>(t_key) > static_cast<double>(t_start) + 0.1 ||
        static_cast<double>(t_start) > static_cast<double>(end_time) + 0.1)
        return result_failed;

    if (audio_stream < 0 || audio_stream >= kelq::max_stream_slots) return result_failed;
    const int32_t k = h->streams[audio_stream].kind_index;
    if (k < 0 || k >= KELQAVI_KEY_AUDIO_STREAMS || a.audio_offset[k] == not_found) return result_failed;
    int64_t p = 0;
    if (!kelq::header_in_movi(h, a.audio_offset[k], p)) return result_failed;
    kelq::walk_from(h, p);
    int64_t c = a.audio_count[k];

    // Fixed mode: a chunk's time is its start; summing mode: its end.
    const audio_stream_format &fmt = h->audio_formats[k];
    const bool fixed = kelq::fixed_duration_audio(fmt);
    const float chunk_seconds = static_cast<float>(static_cast<int16_t>(fmt.wave_format.block_align)) /
                                static_cast<float>(fmt.wave_format.samples_per_sec);
    const float rate = static_cast<float>(static_cast<int32_t>(fmt.rate));

    float t = t_key;
    while (t < end_time) {
        header_step s;
        const int r = kelq::step_header(h, s);
        if (r == result_end_of_list) return result_ok;
        if (r != result_ok) return result_failed;
        if (s.stream != static_cast<uint32_t>(audio_stream) || kelq::is_passed_over(h, s.type)) continue;
        if (fixed) {
            t = static_cast<float>(c) * chunk_seconds;
            ++c;
        } else {
            t += static_cast<float>(static_cast<int32_t>(s.size)) / rate;
            c += s.size;
        }
        const uint64_t header = s.data_offset - kelq::chunk_header_size;
        if (t >= t_start && *audio_first == not_found) *audio_first = header;
        *audio_last = header;
    }
    if (*audio_first == not_found) *audio_first = static_cast<uint64_t>(p);
    if (*video_start == not_found && *audio_first == not_found && *video_end == not_found &&
        *audio_last == not_found) {
        file_seek(f, here, kelq::origin_start);
        return result_failed;
    }
    return result_ok;
}

}  // extern "C"
