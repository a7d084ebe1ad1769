// Opening a file: a scan of the top-level chunks, then two walks of the first
// RIFF (one for the legacy index, one for the header and extension lists),
// ending at the first chunk of "movi".
#include "reader/reader_handle.h"
#include "riff/fourcc_ids.h"
#include "riff/riff_layout.h"
#include "riff/file_extent.h"
#include "riff/le_bytes.h"

#include <cstdlib>

namespace {

using namespace kelq::ids;

using kelq::chunk_header_size;

constexpr int64_t form_type_and_first_header = 12;

aviin_handle *fail_open(aviin_handle *h) {
    aviin_close(h);
    return nullptr;
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

// Counts the RIFF segments and picks up menu chunks of menu forms. False when
// an id or a size cannot be read.
bool scan_top_level(aviin_handle *h, FILE *f) {
    h->riff_count = 0;
    file_seek(f, 0, 2);
    const int64_t file_size = file_tell(f);
    for (int64_t cursor = 0; file_size > 0 && cursor < file_size;) {
        uint32_t id = 0, size = 0;
        if (file_seek(f, cursor, 0) != 0 || read_fourCC(&id, f) != 0) return false;
        if (!fourCC_equal(id, id_riff)) {
            if (read_val32(&size, f) != 0) return false;
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

// Second walk: the lists before "movi". True when it ends inside a "movi"
// list that holds at least one chunk, with current_list on it.
bool walk_header_lists(aviin_handle *h, list_node *riff, uint32_t swapped_ids) {
    FILE *f = riff->stream;
    while (riff->status == 0 && !end_of_list(riff)) {
        if (!fourCC_equal(next_chunk_in_list(riff), id_list)) continue;
        list_node *list = new_list(riff, f);
        if (list == nullptr) return false;
        h->current_list = list;
        if (fourCC_equal(list->type, type_movi)) return list->status == 0 && !end_of_list(list);
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
            if (h->current_list->status != 0) return false;
        }
        h->current_list = ascend_list(h->current_list);
    }
    return false;
}

}  // namespace

aviin_handle *kelq::open_reader(const char *path, uint32_t swapped_ids, uint32_t tolerances) {
    auto *h = static_cast<aviin_handle *>(std::calloc(1, sizeof(aviin_handle)));
    if (h == nullptr) return nullptr;
    h->swapped_ids = swapped_ids;
    h->tolerances = tolerances;
    FILE *f = file_open(path, 0);
    if (f == nullptr) return fail_open(h);
    h->file = f;
    // Before the first read; should stdio refuse, it keeps its own buffer.
    setvbuf(f, reinterpret_cast<char *>(h->file_buffer), _IOFBF, sizeof h->file_buffer);
    if (!scan_top_level(h, f)) return fail_open(h);

    list_node *riff = enter_first_form(h, f);
    if (riff == nullptr) return fail_open(h);
    if (!(fourCC_equal(riff->id, id_riff) || fourCC_equal(riff->id, id_mrif)) || !fourCC_equal(riff->type, type_avi))
        return fail_open(h);
    find_idx1(h, riff);

    riff = enter_first_form(h, f);
    if (riff == nullptr || !walk_header_lists(h, riff, swapped_ids)) return fail_open(h);
    h->movi_data_pos = file_tell(f);
    return h;
}

extern "C" aviin_handle *aviin_open(const char *path, uint32_t swapped_ids) {
    return kelq::open_reader(path, swapped_ids, 0);
}
