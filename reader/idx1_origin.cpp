// Where the legacy index counts its offsets from. Most writers count from the
// "movi" list type; a few count from the start of the file. Under the
// file-idx1 tolerance the first entries are checked against the chunk ids at
// both places they could name, as players do, and the answer is kept for the
// index and list it was found for.
#include "reader/index_walk.h"
#include "reader/tolerant_rules.h"

namespace {

constexpr uint64_t entries_checked = 4;

// True when the four bytes at a file position are the id.
bool id_at(FILE *f, int64_t pos, uint32_t id) {
    uint32_t found = 0;
    return pos >= 0 && file_seek(f, pos, kelq::origin_start) == 0 && read_fourCC(&found, f) == 0 &&
           fourCC_equal(found, id);
}

// Looks at the first entries naming a data chunk: the first whose id stands
// at either place decides, and the "movi"-relative place wins a tie.
bool counts_from_file_start(aviin_handle *h) {
    FILE *f = h->file;
    const int64_t here = file_tell(f);
    uint32_t size = 0;
    file_seek(f, h->idx1_pos, kelq::origin_start);
    read_fourCC(nullptr, f);
    read_val32(&size, f);
    uint64_t count = size / kelq::idx1_entry_size;
    if (count > entries_checked) count = entries_checked;
    kelq::idx1_cursor cursor(f, h->idx1_pos + kelq::chunk_header_size, count);
    const int64_t movi_base = h->movi_data_pos - kelq::chunk_id_size;
    bool from_file_start = false;
    kelq::idx1_entry e;
    while (cursor.next(e)) {
        if (get_chunk_type(e.ckid, h->swapped_ids) == KELQAVI_CHUNK_UNKNOWN) continue;
        if (id_at(f, movi_base + static_cast<int64_t>(e.offset), e.ckid)) break;
        if (id_at(f, static_cast<int64_t>(e.offset), e.ckid)) {
            from_file_start = true;
            break;
        }
    }
    file_seek(f, here, kelq::origin_start);
    return from_file_start;
}

}  // namespace

namespace kelq {

uint64_t idx1_offset(aviin_handle *h, uint32_t stored) {
    if (!tolerates(h, AVIIN_TOLERATE_FILE_IDX1) || h->idx1_pos == 0 || h->file == nullptr) return stored;
    if (h->idx1_checked_pos != h->idx1_pos || h->idx1_checked_movi != h->movi_data_pos) {
        h->idx1_from_file_start = counts_from_file_start(h);
        h->idx1_checked_pos = h->idx1_pos;
        h->idx1_checked_movi = h->movi_data_pos;
    }
    if (!h->idx1_from_file_start) return stored;
    note_needed(h, AVIIN_TOLERATE_FILE_IDX1);
    const uint64_t base = static_cast<uint64_t>(h->movi_data_pos - chunk_id_size);
    return stored >= base ? stored - base : not_found;
}

}  // namespace kelq
