// RIFF segments: numbering them in file order to find where segment n begins,
// and moving the reader into a segment, re-reading its header list and
// standing at its "movi" data.
#include "reader/reader_handle.h"
#include "riff/fourcc_ids.h"
#include "riff/riff_layout.h"
#include "riff/le_bytes.h"

namespace {

using namespace kelq::ids;

using kelq::chunk_header_size;
using kelq::origin_start;
using kelq::origin_current;
using kelq::origin_end;
using kelq::result_ok;
using kelq::result_failed;

constexpr int64_t fourcc_size = 4;
// From a form's size field to its first list's type: form type, list id, list size.
constexpr int64_t form_size_to_first_list_type = 12;
constexpr int64_t released_marker = -1;

enum class walk_result { found, read_failed, not_found };

// Numbers segments in file order until segment `wanted` is met.
struct segment_walk {
    FILE *stream;
    int64_t wanted;
    int64_t next_number;  // taken by the next segment met
    int64_t found_at;     // position of the wanted segment's id
};

// Gives the segment whose id was just read the next number; true when it is
// the one wanted, whose position is then kept.
bool meet_segment(segment_walk &w) {
    if (w.next_number++ != w.wanted) return false;
    w.found_at = file_tell(w.stream) - fourcc_size;
    return true;
}

// Numbers the "MRIF" chunks met from `from` to the end of a menu form, every
// chunk stepped over by its size as stored (no pad byte). Each step moves at
// least 8 bytes on, and a read past the end of the file fails.
walk_result number_menu_chunks(segment_walk &w, int64_t from, int64_t form_end) {
    int64_t pos = from;
    file_seek(w.stream, pos, origin_start);
    while (pos < form_end) {
        uint32_t id = 0, size = 0;
        if (read_fourCC(&id, w.stream) != 0) return walk_result::read_failed;
        if (fourCC_equal(id, id_mrif) && meet_segment(w)) return walk_result::found;
        if (read_val32(&size, w.stream) != 0) return walk_result::read_failed;
        pos += chunk_header_size + size;
        file_seek(w.stream, pos, origin_start);
    }
    return walk_result::not_found;
}

// A second top-level form is a menu form when its first list is "KMNU"; the
// stream stands after the form's size field.
walk_result number_second_form_menu(segment_walk &w, int64_t form_end) {
    uint32_t first_list_type = 0;
    file_seek(w.stream, form_size_to_first_list_type, origin_current);
    if (read_fourCC(&first_list_type, w.stream) != 0) return walk_result::read_failed;
    if (!fourCC_equal(first_list_type, type_kmnu)) return walk_result::not_found;
    return number_menu_chunks(w, file_tell(w.stream), form_end);
}

// Top-level chunks in file order, as the scan at open steps them (sizes as
// stored). Every "RIFF" takes a number; the "MRIF" chunks of the main form's
// "KMNU" list follow the main form, and those of a second form that is a menu
// form follow that one. Later forms are not searched for "MRIF". Each step
// moves the cursor at least 8 bytes on, so the walk ends.
walk_result number_segments(const aviin_handle *h, segment_walk &w, int64_t file_size) {
    int64_t cursor = 0;
    int64_t forms = 0;
    while (cursor < file_size) {
        uint32_t id = 0, size = 0;
        file_seek(w.stream, cursor, origin_start);
        if (read_fourCC(&id, w.stream) != 0) return walk_result::read_failed;
        if (!fourCC_equal(id, id_riff)) {
            if (read_val32(&size, w.stream) != 0) return walk_result::read_failed;
            cursor += chunk_header_size + size;
            continue;
        }
        if (meet_segment(w)) return walk_result::found;
        // A form's size that cannot be read counts as 0, as at open.
        read_val32(&size, w.stream);
        cursor += chunk_header_size + size;
        walk_result menus = walk_result::not_found;
        if (++forms == 1 && h->kmnu_list_found == 1) menus = number_menu_chunks(w, h->kmnu_list_pos, cursor);
        else if (forms == 2) menus = number_second_form_menu(w, cursor);
        if (menus != walk_result::not_found) return menus;
    }
    return walk_result::not_found;
}

void reset_odml_state(aviin_handle *h) {
    for (int s = 0; s < kelq::max_stream_slots; ++s) {
        h->std_index_header_ptr[s] = nullptr;
        h->indx_pos[s] = 0;
        h->indx_header[s].entries_in_use = 0;
    }
}

// The tables are refilled from the target segment's "hdrl", if it has one;
// blocks still held by the entries are freed when an entry is refilled or
// when the handle is closed.
void empty_stream_tables(aviin_handle *h) {
    h->stream_count = 0;
    h->video_count = 0;
    h->audio_count = 0;
    h->text_caption_count = 0;
    h->bitmap_caption_count = 0;
    h->chapter_count = 0;
}

// Sets idx1_pos to the legacy index among the segment's top-level chunks, or 0.
void find_legacy_index(aviin_handle *h, list_node *segment) {
    h->idx1_pos = 0;
    while (segment->status == 0 && !end_of_list(segment)) {
        const uint32_t id = next_chunk_in_list(segment);
        if (segment->status != 0) return;
        if (fourCC_equal(id, id_idx1) || fourCC_equal(id, id_idx1_swapped)) {
            h->idx1_pos = file_tell(segment->stream);
            return;
        }
    }
}

// Walks the segment's lists, current_list standing on the segment: reads
// "hdrl", stops in "movi"; other lists are not read. 0 also when the segment
// ends without "movi".
int enter_segment_lists(aviin_handle *h, uint32_t swapped_ids, int64_t restore_pos) {
    list_node *segment = h->current_list;
    FILE *stream = segment->stream;
    while (segment->status == 0 && !end_of_list(segment)) {
        if (!fourCC_equal(next_chunk_in_list(segment), id_list)) continue;
        list_node *child = new_list(segment, stream);
        if (child == nullptr) {
            // The stack is freed here, as no node is left to hold it.
            delete_list_recursive(segment);
            h->current_list = nullptr;
            return result_failed;
        }
        h->current_list = child;
        if (fourCC_equal(child->type, type_movi)) {
            h->movi_data_pos = file_tell(stream);
            return result_ok;
        }
        if (fourCC_equal(child->type, type_hdrl)) {
            kelq::read_hdrl(h, swapped_ids);
            if (h->current_list == nullptr) return result_failed;
            if (h->current_list->status != 0) {
                file_seek(stream, restore_pos, origin_start);
                return result_failed;
            }
        }
        h->current_list = ascend_list(h->current_list);
    }
    return result_ok;
}

// The file holds no segment n: the handle is released, as documented. The -1
// left in *offset is how a caller tells this result from the other failures.
int release_for_missing_segment(aviin_handle *h, int64_t restore_pos, int64_t *offset) {
    file_seek(h->file, restore_pos, origin_start);
    aviin_close(h);
    *offset = released_marker;
    return result_failed;
}

// Moves into the segment at offset. The segment is entered twice, first for
// its legacy index, then for its lists; when nothing there can be entered the
// second time (past the end of the file, a read error) the handle is
// released and `released` set.
int goto_segment(aviin_handle *h, uint32_t swapped_ids, int64_t offset, bool &released) {
    if (h == nullptr || h->file == nullptr) return result_failed;
    FILE *stream = h->file;
    const int64_t restore_pos = file_tell(stream);
    reset_odml_state(h);
    h->swapped_ids = swapped_ids;
    delete_list_recursive(h->current_list);
    h->current_list = nullptr;
    file_seek(stream, offset, origin_start);
    empty_stream_tables(h);

    // First pass: the segment's legacy index.
    list_node *segment = new_list(nullptr, stream);
    h->idx1_pos = 0;
    if (segment != nullptr) {
        find_legacy_index(h, segment);
        delete_list_recursive(segment);
    }

    // Second pass: header list and movie data.
    file_seek(stream, offset, origin_start);
    h->current_list = new_list(nullptr, stream);
    if (h->current_list == nullptr) {
        file_seek(stream, restore_pos, origin_start);
        aviin_close(h);
        released = true;
        return result_failed;
    }
    return enter_segment_lists(h, swapped_ids, restore_pos);
}

}  // namespace

extern "C" {

int aviin_get_riff_count(aviin_handle *h, int32_t *count) {
    if (h == nullptr || count == nullptr) return result_failed;
    *count = h->riff_count;
    return result_ok;
}

int aviin_get_riff_offset(aviin_handle *h, int32_t n, int64_t *offset) {
    if (h == nullptr || h->file == nullptr || offset == nullptr || n > h->riff_count) return result_failed;
    FILE *stream = h->file;
    const int64_t restore_pos = file_tell(stream);
    if (restore_pos < 0) return result_failed;
    file_seek(stream, 0, origin_end);
    const int64_t file_size = file_tell(stream);
    if (file_size <= 0) return release_for_missing_segment(h, restore_pos, offset);
    segment_walk walk = {stream, n, 0, 0};
    const walk_result result = number_segments(h, walk, file_size);
    if (result == walk_result::found) {
        *offset = walk.found_at;
        return result_ok;
    }
    if (result == walk_result::read_failed) return result_failed;
    return release_for_missing_segment(h, restore_pos, offset);
}

int aviin_goto_riff(aviin_handle *h, uint32_t swapped_ids, int64_t offset) {
    bool released = false;
    return goto_segment(h, swapped_ids, offset, released);
}

int aviin_goto_riff_checked(aviin_handle **handle, uint32_t swapped_ids, int64_t offset) {
    if (handle == nullptr) return result_failed;
    bool released = false;
    const int result = goto_segment(*handle, swapped_ids, offset, released);
    if (released) *handle = nullptr;
    return result;
}

}  // extern "C"
