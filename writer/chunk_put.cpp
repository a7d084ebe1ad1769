// Data chunks: ids, legacy and OpenDML index bookkeeping, the per-stream
// counts of the final header, the size guard and the segment switch.
#include "odml/index_build.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"
#include "riff/file_extent.h"
#include "writer/writer_internal.h"

namespace kelq {

namespace {

constexpr uint32_t idx1_key_frame = 0x10;
constexpr uint32_t idx1_no_time = 0x100;   // per-frame data takes no time

int32_t chunk_type(const aviout_handle *w, int32_t stream, uint32_t flags) {
    if ((flags & AVIOUT_FRAME_DATA) != 0) return KELQAVI_CHUNK_VIDEO_DATA;
    if ((flags & AVIOUT_UNCOMPRESSED) != 0) return KELQAVI_CHUNK_VIDEO_RAW;
    return static_cast<int32_t>(w->stream_table[stream].stream_kind);
}

uint32_t legacy_flags(uint32_t flags) {
    const uint32_t key = (flags & AVIOUT_KEY_FRAME) != 0 ? idx1_key_frame : 0;
    return (flags & AVIOUT_FRAME_DATA) != 0 ? idx1_no_time | key : key;
}

bool entry_free(const aviout_handle *w) { return w->index_count >= 0 && w->index_count < AVIOUT_INDEX_CAPACITY; }

bool flush_due(const aviout_handle *w, int32_t track) {
    const odml_track_state *t = w->odml_track[track];
    if (w->odml_timing_mode != 1 && !is_caption_track(t)) return t->elapsed_time >= w->index_chunk_seconds - 1.0;
    return std_index_entries(w, track) >= t->entries_per_chunk;
}

// Flushes every track that is due, then indexes this chunk in its track;
// false when a track's index is full. *chunk_pos is where the chunk goes:
// after any ix## chunk just written.
bool index_odml_chunk(aviout_handle *w, int32_t stream, uint32_t size, uint32_t flags, int64_t *chunk_pos) {
    bool ok = true, flushed = false;
    for (int32_t track = 0; track < w->stream_count && track < AVIOUT_MAX_STREAMS; ++track) {
        if (!has_track(w, track) || !flush_due(w, track)) continue;
        if (write_standard_index_chunks(w, track) == -1) ok = false;
        flushed = true;
    }
    if (flushed) *chunk_pos = file_tell(w->file);
    if (has_track(w, stream) && add_avi2_chunk(w, stream, *chunk_pos, size, flags) == -1) ok = false;
    return ok;
}

void count_chunk(aviout_handle *w, int32_t stream, uint32_t flags, uint32_t size) {
    avi_stream_header &h = w->stream_table[stream].header;
    if ((flags & AVIOUT_FRAME_DATA) == 0) {
        if (h.sample_size == 0)
            h.length += 1;
        else
            h.length += static_cast<uint32_t>((static_cast<int64_t>(static_cast<int32_t>(size)) +
                                               static_cast<int32_t>(h.sample_size) - 1) /
                                              static_cast<int32_t>(h.sample_size));
    }
    if (static_cast<int32_t>(size) > static_cast<int32_t>(h.suggested_buffer_size)) h.suggested_buffer_size = size;
}

}  // namespace

uint32_t start_segment(aviout_handle *w) {
    w->index_count = 0;
    w->chunk_count = 0;
    for (int s = 0; s < AVIOUT_MAX_STREAMS; ++s) {
        w->segment_chunk_counts[s] = 0;
        w->segment_byte_counts[s] = 0;
    }
    ++w->riff_index;
    if (w->riff_index > 0) w->avix_mark = write_RIFF_form_header(fourcc("AVIX"), w->file, &w->error);
    uint32_t local = 0;
    w->movi_mark = write_list_header(ids::type_movi, w->file, &local);
    return local;
}

}  // namespace kelq

using namespace kelq;

namespace {

// Steps after the chunk is on its way: the counts the final header needs,
// the size guard and the segment switch. 0, 1 or 4 as aviout_put_chunk.
int account_chunk(aviout_handle *w, int32_t stream, uint32_t flags, uint32_t size, int64_t chunk_pos, int result) {
    count_chunk(w, stream, flags, size);
    const uint32_t kind = w->stream_table[stream].stream_kind;
    if (kind == kind_audio) {
        if (w->stream_table[stream].header.sample_size != 0)
            ++w->segment_chunk_counts[stream];
        else
            w->segment_byte_counts[stream] += size;
        return result;
    }
    if (kind != kind_video || (flags & AVIOUT_FRAME_DATA) != 0) return result;
    if (w->riff_index == 0) ++w->main_header.total_frames;
    ++w->odml_total_frames;

    const int64_t position = chunk_pos < 0 ? chunk_pos : chunk_pos + chunk_header_size + padEven(size);
    if (position >= size_guard) return 4;
    const int64_t mark = w->riff_index == 0 ? w->riff_mark : w->avix_mark;
    if (position - mark >= segment_limit) {
        const uint32_t finished = finish_segment(w, 1);
        const uint32_t started = start_segment(w);
        return finished != 0 || started != 0 ? 1 : result;
    }
    return result;
}

// The stream whose time drives automatic checkpoints: the first video
// stream, or without one the first audio stream; -1 when there is neither.
int32_t clock_stream(const aviout_handle *w) {
    int32_t audio = -1;
    for (int32_t s = 0; s < w->stream_count && s < AVIOUT_MAX_STREAMS; ++s) {
        if (w->stream_table[s].stream_kind == kind_video) return s;
        if (audio < 0 && w->stream_table[s].stream_kind == kind_audio) audio = s;
    }
    return audio;
}

// Seconds of media this chunk adds to the checkpoint clock.
double clock_seconds(const aviout_handle *w, int32_t stream, uint32_t flags, uint32_t size) {
    if (stream != clock_stream(w) || (flags & AVIOUT_FRAME_DATA) != 0) return 0.0;
    const uint32_t i = w->stream_table[stream].sub_index;
    if (w->stream_table[stream].stream_kind == kind_video) {
        if (i >= AVIOUT_MAX_VIDEO || w->video_formats[i].rate == 0) return 0.0;
        return static_cast<double>(w->video_formats[i].scale) / w->video_formats[i].rate;
    }
    if (i >= AVIOUT_MAX_AUDIO || w->audio_formats[i].wave_format.avg_bytes_per_sec == 0) return 0.0;
    return static_cast<double>(size) / w->audio_formats[i].wave_format.avg_bytes_per_sec;
}

// An automatic checkpoint once checkpoint_seconds of media have been put
// since the last one; false when one was made and failed.
bool checkpoint_if_due(aviout_handle *w, int32_t stream, uint32_t flags, uint32_t size) {
    if (!(w->checkpoint_seconds > 0.0)) return true;
    w->checkpoint_clock += clock_seconds(w, stream, flags, size);
    if (w->checkpoint_clock < w->checkpoint_seconds) return true;
    return aviout_checkpoint(w, static_cast<int32_t>(w->checkpoint_sync)) == 0;
}

// A write that stdio took into its buffer can still fail when the buffer
// goes out; the stream's error flag says so, and a file that lost bytes
// stays marked.
bool stream_failed(aviout_handle *w) {
    if (ferror(w->file) != 0) w->write_failed = 1;
    return w->write_failed != 0;
}

}  // namespace

extern "C" int aviout_put_chunk(aviout_handle *w, int32_t stream, uint32_t flags, const uint8_t *data, uint32_t size) {
    if (w == nullptr || stream < 0 || stream >= w->stream_count || stream >= AVIOUT_MAX_STREAMS - 1 ||
        (data == nullptr && size > 0))
        return 1;
    if (w->index_count == 0 && w->riff_index == -1) {
        w->main_header.streams = static_cast<uint32_t>(w->stream_count);
        write_header_area(w);
        const uint32_t status = start_segment(w);
        // A recording cut short still leaves its header area on disk.
        kelq::flush_in_place(w->file);
        stream_failed(w);
        if (status != 0 || w->error != 0) return 1;
    }
    const uint32_t id = create_fourCC(stream, chunk_type(w, stream, flags), w->swapped_ids);
    const uint32_t index_flags = legacy_flags(flags);
    if (entry_free(w)) {
        aviout_index_entry &e = w->index_entries[w->index_count];
        e.chunk_id = id;
        e.flags = index_flags;
        e.size = size;
    }
    bool indexed = true;
    int64_t chunk_pos = file_tell(w->file);
    if (w->odml == 1) indexed = index_odml_chunk(w, stream, size, index_flags, &chunk_pos);
    if (entry_free(w)) w->index_entries[w->index_count++].position = chunk_pos;
    ++w->chunk_count;
    if (write_chunk(w, id, data, size, chunk_pos) != 0) {
        w->write_failed = 1;
        return 1;
    }
    int result = account_chunk(w, stream, flags, size, chunk_pos, indexed ? 0 : 1);
    if (!checkpoint_if_due(w, stream, flags, size)) result = 1;
    return stream_failed(w) ? 1 : result;
}
