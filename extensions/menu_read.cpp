// The extension-data ("KQDT") and menu ("KMNU") lists of the main RIFF, and
// the menu forms that stand beside it at the top level of the file. The
// blocks are opaque: they are stored and handed over, never interpreted.
#include "reader/reader_handle.h"
#include "riff/fourcc_ids.h"
#include "riff/riff_layout.h"
#include "riff/file_extent.h"
#include "riff/le_bytes.h"

#include <cstdlib>

namespace {

using namespace kelq::ids;

using kelq::chunk_header_size;

constexpr int64_t fourcc_size = 4;
// A menu form starts "RIFF" size type "LIST" size "KMNU": its first chunk
// lies 24 bytes after the form's header and 20 after the form's size field.
constexpr int64_t form_header_to_menu_list = 24;
constexpr int64_t form_size_to_menu_list = 20;
constexpr int64_t form_type_and_first_id = 8;
constexpr int64_t form_header_to_first_list_type = 20;
// Sizes taken into the handle's signed 32-bit fields, header included.
constexpr uint32_t max_block_size = 0x7FFFFFFFu - chunk_header_size;

FILE *stream_of(const aviin_handle *h) { return h->file != nullptr ? h->file : kelq::reader_stream(h); }

// Whether size bytes from the stream's position lie inside the file, and the
// block with its chunk header fits a signed 32-bit size.
bool fits_in_file(FILE *stream, uint32_t size) {
    const int64_t left = kelq::bytes_left(stream);
    return size <= max_block_size && left >= 0 && size <= static_cast<uint64_t>(left);
}

// A fresh block of count bytes read from the stream; null when memory is
// short or the bytes are not all there.
uint8_t *read_block(FILE *stream, uint32_t count) {
    auto *block = static_cast<uint8_t *>(std::malloc(count != 0 ? count : 1));
    if (block != nullptr && file_read(stream, block, count) != count) {
        std::free(block);
        block = nullptr;
    }
    return block;
}

// The whole chunk at the stream's position, header included (size + 8 bytes),
// with its size field in *size; the stream ends after it. Null when the
// header cannot be read, the chunk runs past the end of the file (nothing is
// allocated for it then) or memory is short.
uint8_t *read_whole_chunk(FILE *stream, uint32_t *size) {
    int status = read_fourCC(nullptr, stream);
    status |= read_val32(size, stream);
    if (status != 0 || !fits_in_file(stream, *size)) return nullptr;
    if (file_seek(stream, -chunk_header_size, 1) != 0) return nullptr;
    return read_block(stream, static_cast<uint32_t>(*size + chunk_header_size));
}

// Calls take for each chunk of the current list, with the stream at the
// chunk's header, then goes on at the next chunk; the walk stops where fewer
// than 8 bytes of the list remain or a header cannot be read. Gives
// end_of_list's result where it stopped, and leaves the stream just after the
// list, where the caller's walk goes on, however far a chunk's size reached.
int walk_current_list(aviin_handle *h, void (*take)(aviin_handle *, FILE *, uint32_t)) {
    list_node *node = h->current_list;
    if (node == nullptr) return end_of_list(node);
    while (end_of_list(node) == 0) {
        const uint32_t id = next_chunk_in_list(node);
        if (node->status != 0) break;
        take(h, node->stream, id);
        if (file_seek(node->stream, node->next_pos, 0) != 0) break;
    }
    const int ended = end_of_list(node);
    skip_list(node);
    return ended;
}

// "MTDA": its payload only. One whose size runs past the end of the file is
// passed over unread.
void take_metadata(aviin_handle *h, FILE *stream, uint32_t id) {
    if (!fourCC_equal(id, id_mtda)) return;
    uint32_t size = 0;
    int status = read_fourCC(nullptr, stream);
    status |= read_val32(&size, stream);
    if (status != 0 || !fits_in_file(stream, size)) return;
    uint8_t *block = read_block(stream, size);
    if (block == nullptr) return;
    std::free(h->metadata_data);
    h->metadata_data = block;
    h->metadata_size = static_cast<int32_t>(size);
    h->metadata_found = 1;
}

// "MENU": the whole chunk, header included (unlike "MTDA"); "MRIF": one more
// segment.
void take_menu_list_chunk(aviin_handle *h, FILE *stream, uint32_t id) {
    if (fourCC_equal(id, id_mrif)) ++h->riff_count;
    if (!fourCC_equal(id, id_menu)) return;
    uint32_t size = 0;
    uint8_t *block = read_whole_chunk(stream, &size);
    if (block == nullptr) return;
    std::free(h->menu_data);
    h->menu_data = block;
    h->menu_size = static_cast<int32_t>(size);
    h->menu_found = 1;
}

// Replaces the menu-form "MENU" chunk with the one at the stream's position.
// False, with the handle unchanged, when it cannot be taken whole.
bool take_menu_chunk(aviin_handle *h, FILE *stream) {
    uint32_t size = 0;
    uint8_t *block = read_whole_chunk(stream, &size);
    if (block == nullptr) return false;
    std::free(h->menu_chunk_data);
    h->menu_chunk_data = block;
    h->menu_chunk_size = static_cast<int32_t>(size);
    h->menu_chunk_found = 1;
    return true;
}

// The chunks of a menu form's list from the stream's position up to end (the
// next top-level chunk), sizes as stored: "MRIF" counts as a segment, "MENU"
// is taken whole. False when a read fails or a "MENU" chunk runs past the end
// of the file.
bool walk_menu_form(aviin_handle *h, FILE *stream, int64_t end) {
    for (int64_t at = file_tell(stream); at >= 0 && at < end;) {
        uint32_t id = 0, size = 0;
        if (file_seek(stream, at, 0) != 0 || read_fourCC(&id, stream) != 0) return false;
        if (fourCC_equal(id, id_menu)) {
            if (file_seek(stream, at, 0) != 0 || !take_menu_chunk(h, stream)) return false;
            at += chunk_header_size + h->menu_chunk_size;
            continue;
        }
        if (read_val32(&size, stream) != 0) return false;
        if (fourCC_equal(id, id_mrif)) ++h->riff_count;
        at += chunk_header_size + size;
    }
    return true;
}

bool is_menu_list_at(FILE *stream, int64_t at) {
    uint32_t type = 0;
    return file_seek(stream, at, 0) == 0 && read_fourCC(&type, stream) == 0 && fourCC_equal(type, type_kmnu);
}

// A top-level RIFF whose header is at start; the stream after its id. Sets
// *next to the next top-level chunk. The "KMNU" list is looked for after the
// form's first chunk (past that chunk and the next list's id and size) and,
// failing that, as the form's first list, where the open-time scan finds it.
// False when a read fails.
bool scan_form(aviin_handle *h, FILE *stream, int64_t start, int64_t *next) {
    uint32_t form_size = 0, first_size = 0, type = 0;
    ++h->riff_count;
    if (read_val32(&form_size, stream) != 0 || file_seek(stream, form_type_and_first_id, 1) != 0 ||
        read_val32(&first_size, stream) != 0)
        return false;
    *next = start + chunk_header_size + form_size;
    int type_read = file_seek(stream, first_size + chunk_header_size, 1);
    type_read |= read_fourCC(&type, stream);
    if (type_read == 0 && fourCC_equal(type, type_kmnu)) {
        h->menu_form_pos = file_tell(stream);
    } else if (is_menu_list_at(stream, start + form_header_to_first_list_type)) {
        h->menu_form_pos = start + form_header_to_menu_list;
    } else {
        return type_read == 0;
    }
    // A new form: stepping with aviin_goto_next_menu starts again from its head.
    h->menu_cursor_pos = 0;
    return walk_menu_form(h, stream, *next);
}

// Where the walk of aviin_goto_next_menu starts: after the current "MENU"
// chunk, which the first call takes to be the form's first chunk; rounded up
// to even. -1 when the current size is unusable.
int64_t next_menu_walk_start(const aviin_handle *h) {
    if (h->menu_chunk_size < 0) return -1;
    const int64_t current = h->menu_cursor_pos > 0 ? h->menu_cursor_pos - fourcc_size : h->menu_form_pos;
    return padEven(current + chunk_header_size + h->menu_chunk_size);
}

// Loads the next "MENU" chunk of the current menu form; 0 when one was loaded.
int load_next_menu(aviin_handle *h, FILE *stream) {
    const int64_t size_at = h->menu_form_pos - form_size_to_menu_list;
    uint32_t form_size = 0;
    if (size_at < 0 || file_seek(stream, size_at, 0) != 0 || read_val32(&form_size, stream) != 0) return 1;
    const int64_t form_end = size_at + fourcc_size + form_size;
    int64_t at = next_menu_walk_start(h);
    if (at < 0) return 1;
    while (at < form_end) {
        uint32_t id = 0, size = 0;
        if (file_seek(stream, at, 0) != 0 || read_fourCC(&id, stream) != 0) return 1;
        if (fourCC_equal(id, id_menu)) {
            if (file_seek(stream, at, 0) != 0 || !take_menu_chunk(h, stream)) return 1;
            h->menu_cursor_pos = at + fourcc_size;
            return 0;
        }
        if (read_val32(&size, stream) != 0) return 1;
        at = padEven(at + chunk_header_size + size);
    }
    return 1;
}

}  // namespace

namespace kelq {

int read_kqdt(aviin_handle *h) {
    if (h == nullptr) return 1;
    std::free(h->metadata_data);
    h->metadata_data = nullptr;
    h->metadata_found = 0;
    h->metadata_size = 0;
    return walk_current_list(h, take_metadata);
}

int read_kmnu(aviin_handle *h) {
    if (h == nullptr) return 1;
    std::free(h->menu_data);
    h->menu_data = nullptr;
    h->menu_found = 0;
    h->menu_size = 0;
    return walk_current_list(h, take_menu_list_chunk);
}

}  // namespace kelq

extern "C" {

int aviin_getNextMenu(aviin_handle *h) {
    if (h == nullptr) return 0;
    FILE *stream = stream_of(h);
    // Without a menu form found at open the scan starts at the file's head.
    int64_t start = h->menu_form_pos - form_header_to_menu_list;
    if (start < 0) start = 0;
    if (file_seek(stream, 0, 2) != 0) return 0;
    const int64_t length = file_tell(stream);
    while (start < length) {
        uint32_t id = 0, size = 0;
        int64_t next = 0;
        if (file_seek(stream, start, 0) != 0 || read_fourCC(&id, stream) != 0) return 0;
        if (fourCC_equal(id, id_riff)) {
            if (!scan_form(h, stream, start, &next)) return 0;
        } else {
            if (read_val32(&size, stream) != 0) return 0;
            next = start + chunk_header_size + size;
        }
        start = next;
    }
    return 1;
}

int aviin_goto_next_menu(aviin_handle *h) {
    if (h == nullptr || h->menu_chunk_found != 1) return 1;
    FILE *stream = stream_of(h);
    const int64_t saved = file_tell(stream);
    if (load_next_menu(h, stream) == 0) return 0;
    if (saved >= 0) file_seek(stream, saved, 0);
    return 1;
}

int aviin_get_menu_chunk(aviin_handle *h, uint8_t **data, int32_t *size) {
    if (h == nullptr) return 1;
    if (data != nullptr) *data = h->menu_chunk_data;
    if (size != nullptr) *size = h->menu_chunk_size;
    return 0;
}

}  // extern "C"
