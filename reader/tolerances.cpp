// Tolerant reading: the open call that takes tolerances, the queries on what
// a file needed, and how the walks tell an index chunk written "ix" first.
#include "reader/tolerant_rules.h"

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// "ix" and two digits: a standard index chunk as written inside "movi".
bool is_index_first_id(uint32_t id) {
    char text[5];
    fourCC_to_str(id, text);
    return text[0] == 'i' && text[1] == 'x' && is_digit(text[2]) && is_digit(text[3]);
}

}  // namespace

namespace kelq {

uint32_t movi_chunk_type(aviin_handle *h, uint32_t id) {
    const auto type = static_cast<uint32_t>(get_chunk_type(id, h->swapped_ids));
    if (type != KELQAVI_CHUNK_UNKNOWN || !tolerates(h, AVIIN_TOLERATE_INDEX_CHUNKS) || !is_index_first_id(id))
        return type;
    note_needed(h, AVIIN_TOLERATE_INDEX_CHUNKS);
    return KELQAVI_CHUNK_INDEX;
}

}  // namespace kelq

extern "C" aviin_handle *aviin_open_tolerant(const char *path, uint32_t swapped_ids, uint32_t tolerances) {
    return kelq::open_reader(path, swapped_ids, tolerances & AVIIN_TOLERATE_ALL);
}

extern "C" int aviin_get_tolerances(aviin_handle *h, uint32_t *allowed, uint32_t *needed) {
    if (h == nullptr) return 1;
    if (allowed != nullptr) *allowed = h->tolerances;
    if (needed != nullptr) *needed = h->tolerances_needed;
    return 0;
}

extern "C" int aviin_get_video_format_extra(aviin_handle *h, int32_t stream, const uint8_t **data,
                                            uint32_t *size) {
    if (h == nullptr || data == nullptr || size == nullptr) return 1;
    if (stream < 0 || stream >= h->stream_count || stream >= kelq::max_stream_slots) return 1;
    *data = nullptr;
    *size = 0;
    const kelq::stream_entry &s = h->streams[stream];
    if (s.kind != KELQAVI_CHUNK_VIDEO || s.kind_index < 0 || s.kind_index >= kelq::max_streams_per_kind) return 0;
    *data = h->video_format_extra[s.kind_index];
    *size = h->video_format_extra_size[s.kind_index];
    return 0;
}
