// Legacy index entries a block at a time, each with the place of its chunk,
// for callers that go through the whole index (a copy that keeps key flags).
#include "reader/index_walk.h"
#include "reader/tolerant_rules.h"
#include "riff/file_extent.h"

extern "C" {

int aviin_get_idx1_positions(aviin_handle *h, uint32_t first, index_position *entries, uint32_t capacity,
                             uint32_t *count) {
    if (h == nullptr || h->file == nullptr || count == nullptr || (entries == nullptr && capacity > 0))
        return kelq::result_failed;
    *count = 0;
    FILE *f = h->file;
    const int64_t here = file_tell(f);
    if (h->idx1_pos == 0 || here < 0) return kelq::result_failed;
    uint8_t head[kelq::chunk_header_size] = {};
    kelq::read_at(f, h->idx1_pos, head, sizeof head);
    // Entries while 16 x entry stays below the size field, as aviin_get_idx1_entry has them.
    const uint64_t total = (static_cast<uint64_t>(str2long(head + 4)) + 15) / kelq::idx1_entry_size;
    const uint64_t left = first < total ? total - first : 0;
    const int64_t from = h->idx1_pos + kelq::chunk_header_size + static_cast<int64_t>(first) * kelq::idx1_entry_size;
    kelq::idx1_cursor cursor(f, from, left < capacity ? left : capacity);
    const int64_t movi_base = h->movi_data_pos - kelq::chunk_id_size;
    kelq::idx1_entry e;
    while (cursor.next(e)) {
        index_position &p = entries[(*count)++];
        const uint64_t offset = kelq::idx1_offset(h, e.offset);
        p.position = offset == kelq::not_found ? offset : static_cast<uint64_t>(movi_base) + offset;
        p.stream = fourCC_streamID(e.ckid, h->swapped_ids);
        p.type = static_cast<uint32_t>(get_chunk_type(e.ckid, h->swapped_ids));
        p.size = e.size;
        p.key = e.flags & kelq::idx1_key_flag;
    }
    file_seek(f, here, kelq::origin_start);
    return *count > 0 ? kelq::result_ok : kelq::result_end_of_list;
}

}  // extern "C"
