// Opening a file: a scan of the top-level chunks, then two walks of the first
// RIFF (one for the legacy index, one for the header and extension lists),
// ending at the first chunk of "movi".
#include "reader/open_refusal.h"
#include "reader/reader_handle.h"
#include "riff/fourcc_ids.h"
#include "riff/riff_layout.h"
#include "riff/file_extent.h"
#include "riff/le_bytes.h"

#include <cerrno>
#include <cstdlib>

namespace {

using namespace kelq::ids;

using kelq::chunk_header_size;

constexpr int64_t form_type_and_first_header = 12;

aviin_handle *fail_open(aviin_handle *h) {
    aviin_close(h);
    return nullptr;
}

// The file cannot be opened: the system's reason (errno) is noted.
aviin_handle *fail_to_open(aviin_handle *h, const char *path) {
    if (path == nullptr && h->refusal != nullptr) errno = EINVAL;
    kelq::note_refusal(h, AVIIN_REFUSED_CANNOT_OPEN, -1);
    return fail_open(h);
}

// Takes a "MENU" chunk whole, header included, at the chunk's header. A size
// beyond the bytes the file holds is not allocated: the chunk counts as not
// found and the scan moves to the end of the file.
void take_menu_chunk(aviin_handle *h, FILE *f, uint32_t size) {
    const int64_t start = file_tell(f) - chunk_header_size;
    file_seek(f, start, 0);
    std::free(h->menu_chunk_data);
    h->menu_chunk_data = nullptr;
    h->menu_chunk_size = static_cast<int32_t>(size);
    const int64_t left = kelq::bytes_left(f);
    const uint64_t whole = static_cast<uint64_t>(size) + chunk_header_size;
    if (left < 0 || whole > static_cast<uint64_t>(left)) {
        h->menu_chunk_found = 0;
        file_seek(f, 0, 2);
        return;
    }
    h->menu_chunk_found = 1;
    h->menu_chunk_data = static_cast<uint8_t *>(std::malloc(whole));
    if (h->menu_chunk_data != nullptr) file_read(f, h->menu_chunk_data, whole);
}

// The chunks of a menu form's list, up to the form's end: "MRIF" chunks count
// as segments, the last "MENU" chunk is kept. Sizes are used as stored. The
// walk stops at the first read that fails, since nothing moves after it.
void scan_menu_form(aviin_handle *h, FILE *f, int64_t form_end) {
    h->menu_form_pos = file_tell(f);
    while (file_tell(f) < form_end) {
        uint32_t id = 0, size = 0;
        if (read_fourCC(&id, f) != 0 || read_val32(&size, f) != 0) return;
        if (fourCC_equal(id, id_menu)) {
            take_menu_chunk(h, f, size);
            continue;
        }
        if (fourCC_equal(id, id_mrif)) ++h->riff_count;
        file_seek(f, size, 1);
    }
}

// The scan found no id or size at cursor: at 0 the file is too short for
// any header, later its top-level chunks end early. Returns false.
bool refuse_scan(aviin_handle *h, int64_t cursor, int64_t file_size) {
    if (cursor == 0) kelq::note_refusal(h, AVIIN_REFUSED_NOT_RIFF, 0, static_cast<uint64_t>(file_size));
    else kelq::note_refusal(h, AVIIN_REFUSED_CUT_SHORT, cursor, static_cast<uint64_t>(file_size - cursor));
    return false;
}

// Counts the RIFF segments and picks up menu chunks of menu forms. False when
// an id or a size cannot be read.
bool scan_top_level(aviin_handle *h, FILE *f) {
    h->riff_count = 0;
    file_seek(f, 0, 2);
    const int64_t file_size = file_tell(f);
    for (int64_t cursor = 0; file_size > 0 && cursor < file_size;) {
        uint32_t id = 0, size = 0;
        if (file_seek(f, cursor, 0) != 0 || read_fourCC(&id, f) != 0) return refuse_scan(h, cursor, file_size);
        if (!fourCC_equal(id, id_riff)) {
            if (read_val32(&size, f) != 0) return refuse_scan(h, cursor, file_size);
            cursor += size + chunk_header_size;
            continue;
        }
        ++h->riff_count;
        read_val32(&size, f);
        // An odd size is not rounded up: the next id is read where the size says.
        cursor += size + chunk_header_size;
        uint32_t first_list_type = 0;
        file_seek(f, form_type_and_first_header, 1);
        read_fourCC(&first_list_type, f);
        if (fourCC_equal(first_list_type, type_kmnu)) scan_menu_form(h, f, cursor);
    }
    return true;
}

list_node *enter_first_form(aviin_handle *h, FILE *f) {
    delete_list_recursive(h->current_list);
    h->current_list = nullptr;
    if (file_seek(f, 0, 0) != 0) return nullptr;
    h->current_list = new_list(nullptr, f);
    return h->current_list;
}

// True when the first form is a RIFF (or MRIF) of type "AVI "; else notes why not.
bool is_avi_form(aviin_handle *h, FILE *f, const list_node *riff) {
    if (riff != nullptr && (fourCC_equal(riff->id, id_riff) || fourCC_equal(riff->id, id_mrif))) {
        if (fourCC_equal(riff->type, type_avi)) return true;
        kelq::note_refusal(h, AVIIN_REFUSED_NOT_AVI, 0, 0, riff->type);
        return false;
    }
    if (h->refusal == nullptr) return false;
    uint32_t first_id = 0;
    const int64_t length = kelq::file_length(f);
    if (file_seek(f, 0, 0) == 0) read_fourCC(&first_id, f);
    kelq::note_refusal(h, AVIIN_REFUSED_NOT_RIFF, 0, static_cast<uint64_t>(length > 0 ? length : 0), first_id);
    return false;
}

// First walk: the position of the legacy index, if the first RIFF has one.
void find_idx1(aviin_handle *h, list_node *riff) {
    while (riff->status == 0 && !end_of_list(riff)) {
        const uint32_t id = next_chunk_in_list(riff);
        if (riff->status != 0) return;
        if (fourCC_equal(id, id_idx1) || fourCC_equal(id, id_idx1_swapped)) {
            h->idx1_pos = file_tell(riff->stream);
            return;
        }
    }
}

// Reads a list of the first form other than "movi"; false when the header
// list fails the open.
bool read_form_list(aviin_handle *h, list_node *list, uint32_t swapped_ids) {
    FILE *f = list->stream;
    if (fourCC_equal(list->type, type_kqdt)) {
        h->kqdt_list_pos = file_tell(f);
        h->kqdt_list_found = 1;
        kelq::read_kqdt(h);
    } else if (fourCC_equal(list->type, type_kmnu)) {
        h->kmnu_list_pos = file_tell(f);
        h->kmnu_list_found = 1;
        kelq::read_kmnu(h);
    } else if (fourCC_equal(list->type, type_hdrl)) {
        kelq::read_hdrl(h, swapped_ids);
        if (h->current_list->status == 0) return true;
        // A read inside the list found no bytes, unless a check noted otherwise.
        kelq::note_refusal(h, AVIIN_REFUSED_CUT_SHORT, list->start, 0, list->type);
        return false;
    }
    return true;
}

// The walk ended without "movi". When chunks were left to visit, the list
// it stood in last (at pos, of type id) carried the stream to the end of the
// file, where the walk's end test stopped it.
bool refuse_no_movi(aviin_handle *h, const list_node *riff, int64_t pos, uint32_t id) {
    const bool carried = riff->status == 0 && riff->next_pos < riff->start + static_cast<int64_t>(riff->size);
    kelq::note_refusal(h, AVIIN_REFUSED_NO_MOVI, carried ? pos : -1, 0, id);
    return false;
}

// Second walk: the lists before "movi". True when it ends inside a "movi"
// list that holds at least one chunk, with current_list on it.
bool walk_header_lists(aviin_handle *h, list_node *riff, uint32_t swapped_ids) {
    FILE *f = riff->stream;
    int64_t last_pos = -1;
    uint32_t last_id = 0;
    while (riff->status == 0 && !end_of_list(riff)) {
        const int64_t pos = riff->next_pos;
        const uint32_t id = next_chunk_in_list(riff);
        if (riff->status == 0) {
            last_pos = pos;
            last_id = id;
        }
        if (!fourCC_equal(id, id_list)) continue;
        list_node *list = new_list(riff, f);
        if (list == nullptr) {
            kelq::note_refusal(h, AVIIN_REFUSED_CUT_SHORT, pos, 0, id);
            return false;
        }
        last_id = list->type;
        h->current_list = list;
        if (fourCC_equal(list->type, type_movi)) {
            if (list->status == 0 && !end_of_list(list)) return true;
            kelq::note_refusal(h, AVIIN_REFUSED_EMPTY_MOVI, list->start, list->size);
            return false;
        }
        if (!read_form_list(h, list, swapped_ids)) return false;
        h->current_list = ascend_list(h->current_list);
    }
    return refuse_no_movi(h, riff, last_pos, last_id);
}

}  // namespace

aviin_handle *kelq::open_reader(const char *path, uint32_t swapped_ids, uint32_t tolerances, open_refusal *refusal) {
    auto *h = static_cast<aviin_handle *>(std::calloc(1, sizeof(aviin_handle)));
    if (h == nullptr) {
        if (refusal != nullptr) refusal->code = AVIIN_REFUSED_NO_MEMORY;
        return nullptr;
    }
    h->refusal = refusal;
    h->swapped_ids = swapped_ids;
    h->tolerances = tolerances;
    FILE *f = file_open(path, 0);
    if (f == nullptr) return fail_to_open(h, path);
    h->file = f;
    // Before the first read; should stdio refuse, it keeps its own buffer.
    setvbuf(f, reinterpret_cast<char *>(h->file_buffer), _IOFBF, sizeof h->file_buffer);
    if (!scan_top_level(h, f)) return fail_open(h);

    list_node *riff = enter_first_form(h, f);
    if (!is_avi_form(h, f, riff)) return fail_open(h);
    find_idx1(h, riff);

    // The first entry worked, so a second that fails ran out of memory (or
    // met a read error, which the note records instead).
    riff = enter_first_form(h, f);
    if (riff == nullptr) {
        kelq::note_refusal(h, AVIIN_REFUSED_NO_MEMORY, 0);
        return fail_open(h);
    }
    if (!walk_header_lists(h, riff, swapped_ids)) return fail_open(h);
    h->movi_data_pos = file_tell(f);
    h->refusal = nullptr;
    return h;
}

extern "C" aviin_handle *aviin_open(const char *path, uint32_t swapped_ids) {
    return kelq::open_reader(path, swapped_ids, 0);
}
