// Finishing a segment (idx1 or the end of an "AVIX" form, the header area
// rewritten with the final counts, the first form's size) and closing.
#include "extensions/extension_write.h"
#include "odml/index_build.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"
#include "writer/writer_internal.h"

#include <cstdlib>

namespace kelq {

namespace {

constexpr size_t idx1_record_size = 16;
constexpr size_t idx1_block_records = 256;

// Whether ids name ix## chunks, remembered for the last few ids seen in
// slots picked by their stream digits and type letters.
class id_kinds {
public:
    bool is_index(uint32_t id, uint32_t swapped) {
        slot &s = slots_[(id ^ id >> 8 ^ id >> 16 ^ id >> 24) % slot_count];
        if (!s.known || s.id != id) s = slot{id, get_chunk_type(id, swapped) == KELQAVI_CHUNK_INDEX, true};
        return s.index;
    }

private:
    static constexpr size_t slot_count = 16;
    struct slot {
        uint32_t id;
        bool index, known;
    };
    slot slots_[slot_count] = {};
};

// Writes the records gathered in block and empties it; 1 when a write fell short.
uint32_t put_records(FILE *file, const uint8_t *block, size_t *used) {
    const size_t n = *used;
    *used = 0;
    return n == 0 || file_write(file, block, n) == n ? 0u : 1u;
}

template <typename Record>
void free_owned_name(Record &r) {
    if (r.name_length > 0 && r.name != nullptr) std::free(r.name);
}

void free_streams(aviout_handle *w) {
    for (video_stream_format &r : w->video_formats) {
        if (r.strd_present != 0 && r.strd_data != nullptr) std::free(r.strd_data);
        free_owned_name(r);
    }
    for (audio_stream_format &r : w->audio_formats) free_owned_name(r);
    for (caption_stream_format &r : w->text_captions) free_owned_name(r);
    for (video_stream_format &r : w->bitmap_captions) free_owned_name(r);
    for (caption_stream_format &r : w->chapters) free_owned_name(r);
}

}  // namespace

uint32_t write_idx1(aviout_handle *w) {
    uint32_t status = 0;
    const int64_t size_pos = chunk_start(w->file, &status);
    status |= static_cast<uint32_t>(write_fourCC(w->swapped_ids != 0 ? ids::id_idx1_swapped : ids::id_idx1, w->file));
    status |= static_cast<uint32_t>(write_val32(0, w->file));
    const int32_t count = w->index_count < AVIOUT_INDEX_CAPACITY ? w->index_count : AVIOUT_INDEX_CAPACITY;
    const uint32_t movi_type_pos = static_cast<uint32_t>(w->movi_mark + chunk_id_size);
    // Records go out a block at a time. A file has few distinct ids, so
    // whether one names an ix## chunk is remembered per id.
    uint8_t block[idx1_block_records * idx1_record_size];
    size_t used = 0;
    id_kinds kinds;
    for (int32_t i = 0; i < count; ++i) {
        const aviout_index_entry &e = w->index_entries[i];
        if (kinds.is_index(e.chunk_id, w->swapped_ids)) continue;
        const uint32_t fields[] = {e.chunk_id, e.flags, static_cast<uint32_t>(e.position) - movi_type_pos, e.size};
        // One field at a time: unrolled, the four stores get vectorised into
        // a long shuffle instead of four plain stores.
#pragma GCC unroll 1
        for (size_t f = 0; f < 4; ++f) store_le<uint32_t>(fields[f], block + used + 4 * f);
        used += idx1_record_size;
        if (used == sizeof block) status |= put_records(w->file, block, &used);
    }
    status |= put_records(w->file, block, &used);
    chunk_end(size_pos, w->file, &status);
    w->index_end = file_tell(w->file);
    return status;
}

uint32_t finish_segment(aviout_handle *w, int) {
    uint32_t status = settle_checkpoint_junk(w);
    if (w->menu_file_tail != nullptr) write_menu_chunk(w->menu_file_tail, w);
    end_mark(w->movi_mark, w->file, &status);
    if (w->riff_index == 0)
        status |= write_idx1(w);
    else
        end_mark(w->avix_mark, w->file, &status);
    file_seek(w->file, w->file_start, origin_start);
    write_header_area(w);
    if (w->index_end >= 0) {
        status |= static_cast<uint32_t>(file_seek(w->file, w->index_end, origin_start));
        end_mark(w->riff_mark, w->file, &status);
    } else {
        status |= 1;
    }
    file_seek(w->file, 0, origin_end);
    return status;
}

}  // namespace kelq

using namespace kelq;

namespace {

// Everything aviout_close does; non-zero when a write, the finishing or the
// closing of the file failed.
uint32_t close_writer(aviout_handle *w) {
    uint32_t status = w->write_failed | w->error;
    // Without a chunk there is no file to finish: it stays as it was opened.
    if (w->odml == 1 && w->riff_index != -1)
        for (int32_t stream = 0; stream < w->stream_count && stream < AVIOUT_MAX_STREAMS; ++stream)
            if (has_track(w, stream)) update_standard_index(w, stream);
    if (w->index_count != 0 || w->riff_index > 0) status |= finish_segment(w, 0);
    if (w->file != nullptr && ferror(w->file) != 0) status |= 1;
    if (file_close(w->file) != 0) status |= 1;
    std::free(w->io_buffer);
    std::free(w->header_image);
    free_streams(w);
    if (w->odml == 1) avi2_cleanup(w);
    std::free(w->menu_data);
    std::free(w->metadata_data);
    std::free(w);
    return status;
}

}  // namespace

extern "C" void aviout_close(aviout_handle *w) {
    if (w == nullptr) return;
    close_writer(w);
}

extern "C" int aviout_close2(aviout_handle *w) {
    if (w == nullptr) return 1;
    return close_writer(w) != 0 ? 1 : 0;
}
