// Extension data and menu files on the writing side.
#include "extensions/extension_write.h"

#include "riff/fourcc_ids.h"

#include <cstdlib>

namespace kelq {

namespace {

void write_block_chunk(uint32_t id, const uint8_t *data, int32_t size, FILE *file) {
    write_fourCC(id, file);
    write_val32(static_cast<uint32_t>(size), file);
    if (size > 0 && data != nullptr) file_write(file, data, static_cast<size_t>(size));
}

}  // namespace

uint32_t write_kqdt(aviout_handle *w) {
    int64_t list_mark = -1;
    if (w->extension_list != 0) list_mark = write_list_header(ids::type_kqdt, w->file, &w->error);
    if (w->has_metadata != 0) write_block_chunk(ids::id_mtda, w->metadata_data, w->metadata_size, w->file);
    if (w->has_menu != 0) write_block_chunk(ids::id_menu, w->menu_data, w->menu_size, w->file);
    if (w->extension_list != 0) chunk_end(list_mark, w->file, &w->error);
    return w->error;
}

void write_menu_chunk(const char *path, aviout_handle *w) {
    const int64_t start = file_tell(w->file);
    FILE *menu = file_open(path, 0);
    if (menu == nullptr) return;
    auto *block = static_cast<uint8_t *>(std::malloc(menu_copy_block));
    if (block == nullptr) {
        file_close(menu);
        return;
    }
    bool first = true;
    for (;;) {
        const size_t n = file_read(menu, block, menu_copy_block);
        if (n < 1) break;
        // A first block too short to hold the field is copied as it is.
        if (first && n >= menu_position_at + menu_position_width)
            longlong2str(static_cast<uint64_t>(start), block + menu_position_at);
        first = false;
        file_write(w->file, block, n);
    }
    file_close(menu);
    std::free(block);
}

}  // namespace kelq
