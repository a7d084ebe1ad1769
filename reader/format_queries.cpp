// Copies of the stream formats and the opaque blocks, from the reader
// handle's tables; the file is never touched.
#include "reader/reader_handle.h"

#include <cstdlib>
#include <cstring>

namespace {

// Slot of a stream, or null when it lies outside the 20 the handle has.
const kelq::stream_entry *slot(const aviin_handle *h, uint32_t stream) {
    return h != nullptr && stream < static_cast<uint32_t>(kelq::max_stream_slots) ? &h->streams[stream] : nullptr;
}

// A stream asked for by a format getter: it must have been met, and its
// index within its kind must lie inside the tables.
const kelq::stream_entry *met_stream(const aviin_handle *h, int32_t stream) {
    if (h == nullptr || stream < 0 || stream >= h->stream_count || stream >= kelq::max_stream_slots) return nullptr;
    const kelq::stream_entry *s = &h->streams[stream];
    return s->kind_index >= 0 && s->kind_index < kelq::max_streams_per_kind ? s : nullptr;
}

// The copy gets a name block of its own, name_length + 1 bytes, filled as a
// bounded string copy; the last byte is set only when terminate is true.
void give_own_name(int32_t name_length, char *&name, bool terminate) {
    if (name_length <= 0) return;
    const char *source = name;
    name = static_cast<char *>(std::malloc(static_cast<size_t>(name_length) + 1));
    if (name == nullptr) return;
    std::strncpy(name, source != nullptr ? source : "", static_cast<size_t>(name_length));
    if (terminate) name[name_length] = '\0';
}

template <typename T>
void put(T *out, T value) {
    if (out != nullptr) *out = value;
}

}  // namespace

extern "C" {

int aviin_get_summary(aviin_handle *h, int32_t *stream_count, int32_t *strd_count) {
    if (h == nullptr) return 1;
    int32_t with_strd = 0;
    for (int32_t i = 0; i < h->video_count && i < kelq::max_streams_per_kind; ++i)
        if (h->video_formats[i].strd_present == 1) ++with_strd;
    put(stream_count, h->stream_count);
    put(strd_count, with_strd);
    return 0;
}

int aviin_get_chunk_type(aviin_handle *h, uint32_t stream, uint32_t *kind) {
    const kelq::stream_entry *s = slot(h, stream);
    if (s == nullptr) return 1;
    put(kind, s->kind);
    return 0;
}

int aviin_get_strd_info(aviin_handle *h, uint32_t stream, uint8_t **data, int32_t *size) {
    const kelq::stream_entry *s = slot(h, stream);
    if (s == nullptr || s->kind_index < 0 || s->kind_index >= kelq::max_streams_per_kind) return 1;
    const video_stream_format &e = h->video_formats[s->kind_index];
    put(data, e.strd_data);
    put(size, e.strd_size);
    return 0;
}

int aviin_get_metadata_info(aviin_handle *h, uint8_t **data, int32_t *size) {
    if (h == nullptr) return 1;
    put(data, h->metadata_data);
    put(size, h->metadata_size);
    return 0;
}

int aviin_get_menu_info(aviin_handle *h, uint8_t **data, int32_t *size) {
    if (h == nullptr) return 1;
    put(data, h->menu_data);
    put(size, h->menu_size);
    return 0;
}

int aviin_get_chapter_format(aviin_handle *h, int32_t stream, caption_stream_format *out) {
    const kelq::stream_entry *s = met_stream(h, stream);
    if (s == nullptr || out == nullptr) return 1;
    *out = h->chapter_formats[s->kind_index];
    return 0;
}

int aviin_get_text_caption_format(aviin_handle *h, int32_t stream, caption_stream_format *out) {
    const kelq::stream_entry *s = met_stream(h, stream);
    if (s == nullptr || out == nullptr) return 1;
    *out = h->text_caption_formats[s->kind_index];
    give_own_name(out->name_length, out->name, true);
    return 0;
}

int aviin_get_audio_format(aviin_handle *h, int32_t stream, audio_stream_format *out) {
    const kelq::stream_entry *s = met_stream(h, stream);
    if (s == nullptr || out == nullptr) return 1;
    *out = h->audio_formats[s->kind_index];
    give_own_name(out->name_length, out->name, true);
    return 0;
}

int aviin_get_video_format(aviin_handle *h, int32_t stream, video_stream_format *out, uint32_t *length) {
    const kelq::stream_entry *s = met_stream(h, stream);
    if (s == nullptr || out == nullptr) return 1;
    *out = h->video_formats[s->kind_index];
    give_own_name(out->name_length, out->name, true);
    put(length, s->header.length);
    return 0;
}

// Unlike the video getter, the name copy's last byte is left as it is.
int aviin_get_bitmap_caption_format(aviin_handle *h, int32_t stream, video_stream_format *out, uint32_t *length) {
    const kelq::stream_entry *s = met_stream(h, stream);
    if (s == nullptr || out == nullptr) return 1;
    *out = h->bitmap_caption_formats[s->kind_index];
    give_own_name(out->name_length, out->name, false);
    put(length, s->header.length);
    return 0;
}

}  // extern "C"
