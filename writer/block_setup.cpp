// The block setters: the first video stream's strd block, the menu block and
// the metadata block.
#include "writer/writer_internal.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

using namespace kelq;

bool block_usable(const uint8_t *data, int32_t size) { return size >= 0 && (size == 0 || data != nullptr); }

// Stores a copy rounded up to even; the pad byte of an odd size is 0.
int set_even_block(aviout_handle *w, const uint8_t *data, int32_t size, uint32_t &present, uint32_t &given,
                   int32_t &stored_size, uint8_t *&stored) {
    if (w == nullptr || header_written(w) || !block_usable(data, size) || size == INT32_MAX) return 1;
    const int64_t even = padEven(size);
    std::free(stored);
    stored = nullptr;
    stored_size = static_cast<int32_t>(even);
    present = 1;
    given = 1;
    stored = static_cast<uint8_t *>(std::calloc(1, even > 0 ? static_cast<size_t>(even) : 1));
    if (stored == nullptr) return 1;
    if (size > 0) std::memcpy(stored, data, static_cast<size_t>(size));
    return 0;
}

}  // namespace

extern "C" {

int aviout_set_strd_info(aviout_handle *w, const uint8_t *data, int32_t size) {
    if (w == nullptr || header_written(w) || !block_usable(data, size)) return 1;
    video_stream_format &first = w->video_formats[0];
    if (first.strd_present != 0) std::free(first.strd_data);
    first.strd_data = nullptr;
    first.strd_present = 1;
    first.strd_header = strd_version;
    first.strd_position = 0;
    first.strd_size = size;
    first.strd_data = static_cast<uint8_t *>(std::malloc(size > 0 ? static_cast<size_t>(size) : 1));
    if (first.strd_data == nullptr) return 1;
    if (size > 0) std::memcpy(first.strd_data, data, static_cast<size_t>(size));
    return 0;
}

int aviout_clear_strd_info(aviout_handle *w) {
    if (w == nullptr || header_written(w)) return 1;
    const int32_t last = w->video_count - 1;
    if (last < 0 || last >= AVIOUT_MAX_VIDEO) return 0;
    video_stream_format &r = w->video_formats[last];
    if (r.strd_present == 0) return 0;
    std::free(r.strd_data);
    r.strd_present = 0;
    r.strd_header = 0;
    r.strd_size = 0;
    r.strd_position = 0;
    r.strd_data = nullptr;
    return 0;
}

int aviout_set_menu_info(aviout_handle *w, const uint8_t *data, int32_t size) {
    if (w == nullptr) return 1;
    return set_even_block(w, data, size, w->has_menu, w->menu_given, w->menu_size, w->menu_data);
}

int aviout_set_metadata_info(aviout_handle *w, const uint8_t *data, int32_t size) {
    if (w == nullptr) return 1;
    return set_even_block(w, data, size, w->has_metadata, w->metadata_given, w->metadata_size, w->metadata_data);
}

}  // extern "C"
