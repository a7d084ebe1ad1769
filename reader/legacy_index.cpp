// The legacy index ("idx1"): one entry at a time, moving the walk to an
// entry's chunk, the playing time of one chunk, and the range of a stream's
// entries that covers a time span. The index is read from the file on every
// call; nothing of it is kept.
#include "reader/index_walk.h"
#include "reader/tolerant_rules.h"

namespace {

using kelq::idx1_entry_size;
using kelq::origin_current;
using kelq::origin_start;
using kelq::result_end_of_list;
using kelq::result_failed;
using kelq::result_ok;

// Seeks to the index chunk and reads its id (not checked) and size.
uint32_t index_size(FILE *f, int64_t idx1_pos) {
    uint32_t size = 0;
    file_seek(f, idx1_pos, origin_start);
    read_fourCC(nullptr, f);
    read_val32(&size, f);
    return size;
}

// An entry's chunk has the type asked for; "db" frames pass for "dc" ones
// under the db-frame tolerance.
bool entry_of_type(aviin_handle *h, uint32_t ckid, uint32_t type) {
    const auto entry_type = static_cast<uint32_t>(get_chunk_type(ckid, h->swapped_ids));
    return entry_type == type || (type == KELQAVI_CHUNK_VIDEO && kelq::is_frame_type(h, entry_type));
}

}  // namespace

extern "C" {

int aviin_get_idx1_entry(aviin_handle *h, uint32_t entry, uint32_t *stream, uint32_t *type, uint32_t *size,
                         uint32_t *key) {
    if (h == nullptr || h->file == nullptr || stream == nullptr || type == nullptr || size == nullptr ||
        key == nullptr)
        return result_failed;
    FILE *f = h->file;
    const int64_t here = file_tell(f);
    if (h->idx1_pos == 0) return result_failed;
    const uint32_t n = index_size(f, h->idx1_pos);
    if (here < 0) return result_failed;
    // The entry's byte position is formed in 32 bits, as the index size is.
    const uint32_t at = entry * idx1_entry_size;
    if (at >= n) {
        file_seek(f, here, origin_start);
        return result_failed;
    }
    file_seek(f, at, origin_current);
    uint32_t ckid = 0, flags = 0, data_size = 0;
    read_fourCC(&ckid, f);
    read_val32(&flags, f);
    read_val32(nullptr, f);  // the offset is not handed out
    read_val32(&data_size, f);
    *type = static_cast<uint32_t>(get_chunk_type(ckid, h->swapped_ids));
    *stream = fourCC_streamID(ckid, h->swapped_ids);
    *size = data_size;
    *key = flags & kelq::idx1_key_flag;
    file_seek(f, here, origin_start);
    return result_ok;
}

int aviin_goto_idx1_sample(aviin_handle *h, uint32_t entry) {
    if (h == nullptr || h->idx1_pos == 0 || h->current_list == nullptr) return result_failed;
    FILE *f = h->current_list->stream;
    const uint32_t n = index_size(f, h->idx1_pos);
    const uint32_t at = entry * idx1_entry_size;
    if (at >= n) return result_end_of_list;
    file_seek(f, at, origin_current);
    uint32_t offset = 0;
    read_fourCC(nullptr, f);
    read_val32(nullptr, f);
    read_val32(&offset, f);
    const uint64_t from_movi = kelq::idx1_offset(h, offset);
    if (from_movi == kelq::not_found) return result_failed;
    const int64_t header = h->movi_data_pos - kelq::chunk_id_size + static_cast<int64_t>(from_movi);
    file_seek(f, header, origin_start);
    h->current_list->next_pos = header;
    return result_ok;
}

int aviin_get_sample_duration(aviin_handle *h, uint32_t stream, uint32_t type, uint32_t value, uint32_t *num,
                              uint32_t *den) {
    if (h == nullptr || num == nullptr || den == nullptr || stream >= static_cast<uint32_t>(kelq::max_stream_slots))
        return result_failed;
    const int32_t k = h->streams[stream].kind_index;
    if (k < 0 || k >= kelq::max_streams_per_kind) return result_failed;
    if (type == KELQAVI_CHUNK_VIDEO_RAW && kelq::is_frame_type(h, type)) type = KELQAVI_CHUNK_VIDEO;
    switch (type) {
    case KELQAVI_CHUNK_VIDEO:
        *num = h->video_formats[k].scale;
        *den = h->video_formats[k].rate;
        return result_ok;
    case KELQAVI_CHUNK_AUDIO: {
        const audio_stream_format &a = h->audio_formats[k];
        // One MPEG layer-3 frame of 1152 samples a chunk; 576 is not looked at here.
        if (a.wave_format.block_align == 1152) {
            *num = 1152;
            *den = a.wave_format.samples_per_sec;
        } else {
            *num = value;
            *den = a.rate;
        }
        return result_ok;
    }
    case KELQAVI_CHUNK_VIDEO_DATA:
        // Per-frame data lasts nothing; the audio table is read at the
        // video stream's index, which gives a meaningless but harmless den.
        *num = 0;
        *den = h->audio_formats[k].rate;
        return result_ok;
    default:
        return result_failed;
    }
}

int aviin_get_start_end_by_time(aviin_handle *h, uint32_t stream, uint32_t type, float start, float end,
                                uint32_t *first, uint32_t *last) {
    if (h == nullptr || first == nullptr || last == nullptr || h->current_list == nullptr ||
        h->current_list->status != 0 || h->idx1_pos == 0)
        return result_failed;
    FILE *f = h->current_list->stream;
    const int64_t here = file_tell(f);
    if (here < 0) return result_failed;

    // Fixed mode: every chunk lasts chunk_seconds, and a chunk's time is its
    // start. Summing mode: sizes over the rate, and a chunk's time is its end.
    bool summing = false;
    float chunk_seconds = 0.0f;
    float rate = 0.0f;
    if (type == KELQAVI_CHUNK_AUDIO) {
        const audio_stream_format *a = kelq::audio_format_of(h, stream);
        if (a == nullptr) return result_failed;
        if (kelq::fixed_duration_audio(*a)) {
            chunk_seconds = static_cast<float>(static_cast<int16_t>(a->wave_format.block_align)) /
                            static_cast<float>(a->wave_format.samples_per_sec);
        } else {
            summing = true;
            rate = static_cast<float>(static_cast<int32_t>(a->rate));
        }
    }

    const uint32_t n = index_size(f, h->idx1_pos);
    if (n == 0) {
        file_seek(f, here, origin_start);
        return result_failed;
    }
    // The entries while 16 * seen < n, at least one, and no further than the
    // file goes.
    kelq::idx1_cursor cursor(f, h->idx1_pos + kelq::chunk_header_size, (static_cast<uint64_t>(n) + 15) / 16);
    uint32_t count = 0;
    float t = 0.0f;
    bool start_found = false, end_found = false;
    kelq::idx1_entry e;
    while (!end_found && cursor.next(e)) {
        if (fourCC_streamID(e.ckid, h->swapped_ids) % 256 != stream || !entry_of_type(h, e.ckid, type)) continue;
        if (summing)
            t += static_cast<float>(e.size) / rate;
        else
            t = static_cast<float>(static_cast<int32_t>(count)) * chunk_seconds;
        if (!start_found && t >= start) {
            *first = count;
            start_found = true;
        }
        if (t >= end) {
            *last = count;
            end_found = true;
        }
        ++count;
    }
    file_seek(f, here, origin_start);
    if (end_found) return result_ok;
    if (start_found) {
        *last = count - 1;
        return result_ok;
    }
    return result_failed;
}

}  // extern "C"
