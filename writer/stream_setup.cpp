// The stream setters: each copies the caller's record into its kind's table,
// takes copies of the name and strd block, and gives the next stream number.
#include "odml/index_build.h"
#include "writer/writer_internal.h"

#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace {

using namespace kelq;

uint8_t *copy_block(const void *source, size_t size) {
    auto *block = static_cast<uint8_t *>(std::malloc(size > 0 ? size : 1));
    if (block != nullptr && size > 0) std::memcpy(block, source, size);
    return block;
}

bool name_given(int32_t length, const char *name) { return length < 1 || name != nullptr; }

bool record_usable(const video_stream_format &r) {
    if (!name_given(r.name_length, r.name)) return false;
    return r.strd_present == 0 || (r.strd_size >= 0 && (r.strd_size == 0 || r.strd_data != nullptr));
}
bool record_usable(const audio_stream_format &r) {
    return name_given(r.name_length, r.name) && r.wave_format.cb_size <= sizeof r.wave_format.extra;
}
bool record_usable(const caption_stream_format &r) { return name_given(r.name_length, r.name); }

template <typename Record>
void free_name(Record &r) {
    if (r.name_length > 0 && r.name != nullptr) std::free(r.name);
    r.name_length = 0;
    r.name = nullptr;
}

// Drops what a video slot owns before a record is copied over it (the strd
// setter may have filled slot 0 before any video stream was given).
void release_video_slot(video_stream_format &r) {
    if (r.strd_present != 0 && r.strd_data != nullptr) std::free(r.strd_data);
    free_name(r);
}

struct stream_kind_info {
    uint32_t kind;
    bool odml_track;   // video and audio streams get OpenDML tracks
    bool strd;         // video streams carry a strd block
};

template <typename Record, size_t N>
int set_stream(aviout_handle *w, int32_t *out_stream, const Record *record, Record (&table)[N], int32_t &count,
               const stream_kind_info &info, const double *frame_duration) {
    if (out_stream != nullptr) *out_stream = -1;
    if (w == nullptr || out_stream == nullptr || record == nullptr || header_written(w) || !record_usable(*record))
        return 1;
    if (info.odml_track && w->odml == 1 && frame_duration == nullptr) return 1;
    const int32_t before = count++;
    if (before < 0 || before >= static_cast<int32_t>(N)) return 1;

    Record &own = table[before];
    if constexpr (std::is_same<Record, video_stream_format>::value) {
        if (info.strd) release_video_slot(own);
    }
    own = *record;
    // The caller's references are replaced by the writer's own copies below.
    if (own.name_length > 0) own.name = nullptr;
    if constexpr (std::is_same<Record, video_stream_format>::value) {
        if (info.strd && own.strd_present != 0) {
            own.strd_data = copy_block(record->strd_data, static_cast<size_t>(record->strd_size));
            if (own.strd_data == nullptr) return 1;
        }
    }
    if (record->name_length < 1) {
        // An unnamed stream clears the name at the last video stream's
        // position of its kind's table, kept for compatibility with files
        // written before.
        const int32_t at = w->video_count - 1;
        if (at >= 0 && at < static_cast<int32_t>(N)) free_name(table[at]);
    } else {
        own.name = reinterpret_cast<char *>(copy_block(record->name, static_cast<size_t>(record->name_length)));
        if (own.name == nullptr) {
            own.name_length = 0;
            return 1;
        }
    }

    const int32_t stream = w->stream_count++;
    if (w->stream_count >= AVIOUT_MAX_STREAMS) return 1;
    *out_stream = stream;
    aviout_stream_entry &entry = w->stream_table[stream];
    entry.sub_index = static_cast<uint32_t>(count - 1);
    entry.header.suggested_buffer_size = 0;
    entry.header.length = 0;
    entry.header.sample_size = 0;
    if constexpr (std::is_same<Record, audio_stream_format>::value) entry.header.sample_size = record->sample_size;
    entry.stream_kind = info.kind;
    if (info.odml_track && w->odml == 1)
        return init_avi2_track(w, static_cast<int32_t>(info.kind), stream, &entry, *frame_duration) == -1 ? 1 : 0;
    // Players that take the OpenDML indexes drop a stream that has none.
    if (w->odml == 1 && w->standard_profile != 0)
        return init_caption_track(w, static_cast<int32_t>(info.kind), stream) == -1 ? 1 : 0;
    return 0;
}

int refuse(int32_t *out_stream) {
    if (out_stream != nullptr) *out_stream = -1;
    return 1;
}

}  // namespace

extern "C" {

int aviout_set_video_format(aviout_handle *w, int32_t *out_stream, const video_stream_format *record,
                            const double *frame_duration) {
    if (w == nullptr) return refuse(out_stream);
    return set_stream(w, out_stream, record, w->video_formats, w->video_count, {kind_video, true, true},
                      frame_duration);
}

int aviout_set_audio_format(aviout_handle *w, int32_t *out_stream, const audio_stream_format *record,
                            const double *frame_duration) {
    if (w == nullptr) return refuse(out_stream);
    return set_stream(w, out_stream, record, w->audio_formats, w->audio_count, {kind_audio, true, false},
                      frame_duration);
}

int aviout_set_text_caption_format(aviout_handle *w, int32_t *out_stream, const caption_stream_format *record) {
    if (w == nullptr) return refuse(out_stream);
    return set_stream(w, out_stream, record, w->text_captions, w->text_caption_count,
                      {kind_text_caption, false, false}, nullptr);
}

int aviout_set_bitmap_caption_format(aviout_handle *w, int32_t *out_stream, const video_stream_format *record) {
    if (w == nullptr) return refuse(out_stream);
    return set_stream(w, out_stream, record, w->bitmap_captions, w->bitmap_caption_count,
                      {kind_bitmap_caption, false, false}, nullptr);
}

int aviout_set_chapter_format(aviout_handle *w, int32_t *out_stream, const caption_stream_format *record) {
    if (w == nullptr) return refuse(out_stream);
    return set_stream(w, out_stream, record, w->chapters, w->chapter_count, {kind_chapter, false, false}, nullptr);
}

}  // extern "C"
