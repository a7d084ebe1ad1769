// Tolerant reading: the open call that takes tolerances and the queries on
// what a file needed.
#include "reader/reader_handle.h"

extern "C" aviin_handle *aviin_open_tolerant(const char *path, uint32_t swapped_ids, uint32_t tolerances) {
    aviin_handle *h = aviin_open(path, swapped_ids);
    if (h != nullptr) h->tolerances = tolerances & AVIIN_TOLERATE_ALL;
    return h;
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
    if (stream < 0 || stream >= kelq::max_streams_per_kind) return 1;
    *data = nullptr;
    *size = 0;
    return 0;
}
