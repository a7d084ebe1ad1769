// Checkpoints: the file on disk made a complete AVI of the chunks put so
// far while the writer goes on.
//
// Layout. A checkpoint at the end D of the data (the last chunk, then any
// standard index chunk it writes)
// - puts each OpenDML track's current standard index on disk (an ix##
//   chunk of its full length at the end of the data the first time, its
//   header and new entries over their places later; its super index entry
//   is kept current), so the OpenDML index survives any later cut;
// - patches the "movi" size and the form's size to end at D, and rewrites
//   the header area with the counts so far and without the has-index flag:
//   there is no idx1 yet;
// - flushes everything up to D (and on request forces it to the device),
//   and goes on at D with the header of a top-level "JUNK" chunk whose size
//   reaches past any later end of the file; that header reaches the disk
//   with the next chunks, so a cut file ends at D or holds it.
// The chunks put after a checkpoint thus lie inside that "JUNK" chunk: a
// file cut at any later byte is the form of the checkpoint followed by one
// top-level chunk running to the end of the file, which every reader passes
// over, so it opens and plays up to the checkpoint. The next checkpoint (or
// the finishing of the file) makes that header an empty "JUNK" chunk of
// "movi": each checkpoint leaves 8 bytes there.
// idx1 is left to the finished file and to repair: one written at each
// checkpoint would cost 16 bytes per chunk so far, every time.
// Cost: the header area (rendered in memory and written in one piece when
// the file starts at offset 0), 12 bytes, and per OpenDML track the index
// entries added since the last checkpoint; four system calls (the data's
// write, the two patches, a seek) and one per OpenDML track.
#include "odml/index_build.h"
#include "riff/file_extent.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"
#include "writer/writer_internal.h"

#include <cstdlib>

#include <unistd.h>

namespace kelq {

namespace {

constexpr uint32_t has_index_flag = 0x10;
// Even, and far beyond the end of any file a form's 32-bit size can hold.
constexpr uint32_t junk_to_the_end = 0xFFFFFFF0u;
constexpr int64_t movi_list_header = 12;   // "LIST", size, "movi"

uint32_t size_to(int64_t size_pos, int64_t end) { return static_cast<uint32_t>(end - size_pos - 4); }

// The size field at size_pos, on disk, made to cover everything up to end.
uint32_t put_size(FILE *file, int64_t size_pos, int64_t end) {
    if (size_pos < 0 || end < size_pos + 4) return 1;
    uint8_t bytes[4];
    store_le<uint32_t>(size_to(size_pos, end), bytes);
    return pwrite(fileno(file), bytes, sizeof bytes, size_pos) == sizeof bytes ? 0 : 1;
}

// A track whose super index is full keeps the index of its first 100
// standard index chunks (put_chunk has said so).
void bring_odml_indexes_up_to_date(aviout_handle *w) {
    if (w->odml != 1) return;
    for (int32_t track = 0; track < w->stream_count && track < AVIOUT_MAX_STREAMS; ++track)
        if (has_track(w, track)) checkpoint_standard_index(w, track);
}

// Runs the header area writer with the has-index flag cleared (no idx1
// yet) on the given stream, leaving the writer's own state as it was.
void write_checkpoint_header(aviout_handle *w, FILE *to) {
    FILE *file = w->file;
    const uint32_t flags = w->main_header.flags;
    w->file = to;
    w->main_header.flags &= ~has_index_flag;
    write_header_area(w);
    w->main_header.flags = flags;
    w->file = file;
}

// The header area and the "movi" list header as they must stand on disk,
// rendered in memory by the same writer (positions in memory are file
// positions when the file starts at 0). False when that cannot be had.
bool render_header(aviout_handle *w, int64_t data_end) {
    const int64_t length = w->movi_mark - chunk_id_size + movi_list_header;
    if (w->file_start != 0 || w->riff_index != 0 || length < movi_list_header) return false;
    if (w->header_image == nullptr) {
        w->header_image = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(length)));
        if (w->header_image == nullptr) return false;
        w->header_image_size = length;
    }
    if (w->header_image_size != length) return false;
    FILE *memory = fmemopen(w->header_image, static_cast<size_t>(length), "w+");
    if (memory == nullptr) return false;
    const uint32_t error = w->error;
    write_checkpoint_header(w, memory);
    const bool whole = w->error == 0 && file_tell(memory) == length - movi_list_header && fflush(memory) == 0;
    fclose(memory);
    w->error = error;
    if (!whole) return false;
    uint8_t *movi = w->header_image + length - movi_list_header;
    store_le<uint32_t>(ids::id_list, movi);
    store_le<uint32_t>(size_to(w->movi_mark, data_end), movi + 4);
    store_le<uint32_t>(ids::type_movi, movi + 8);
    store_le<uint32_t>(size_to(w->riff_mark, data_end), w->header_image + (w->riff_mark - w->file_start));
    return true;
}

// The same on disk through the stream, for files appended to others and
// "AVIX" segments; the stream goes back to where it stood.
uint32_t rewrite_header_in_file(aviout_handle *w, int64_t data_end) {
    const int64_t here = file_tell(w->file);
    uint32_t status = static_cast<uint32_t>(file_seek(w->file, w->file_start, origin_start));
    write_checkpoint_header(w, w->file);
    status |= static_cast<uint32_t>(file_seek(w->file, here, origin_start));
    status |= static_cast<uint32_t>(fflush(w->file));
    status |= put_size(w->file, w->movi_mark, data_end);
    if (w->riff_index > 0) status |= put_size(w->file, w->avix_mark, data_end);
    // The first form ends with movi, or where its segment switch left it.
    return status | put_size(w->file, w->riff_mark, w->riff_index == 0 ? data_end : w->index_end);
}

// The lists and the header area on disk made to describe everything from
// file_start to data_end. The stream stands at data_end and is flushed.
uint32_t close_lists_in_place(aviout_handle *w, int64_t data_end) {
    if (!render_header(w, data_end)) return rewrite_header_in_file(w, data_end);
    if (fflush(w->file) != 0) return 1;
    const ssize_t length = static_cast<ssize_t>(w->header_image_size);
    return pwrite(fileno(w->file), w->header_image, static_cast<size_t>(length), w->file_start) == length ? 0 : 1;
}

}  // namespace

uint32_t settle_checkpoint_junk(aviout_handle *w) {
    if (w->checkpoint_junk_pos == 0) return 0;
    const int64_t at = w->checkpoint_junk_pos;
    w->checkpoint_junk_pos = 0;
    if (fflush(w->file) != 0) return 1;
    return put_size(w->file, at + chunk_id_size, at + chunk_header_size);
}

}  // namespace kelq

using namespace kelq;

extern "C" int aviout_checkpoint(aviout_handle *w, int32_t sync) {
    if (w == nullptr) return 1;
    if (!header_written(w)) return w->write_failed != 0 ? 1 : 0;
    w->checkpoint_clock = 0.0;
    const uint32_t before = w->write_failed | w->error;
    bring_odml_indexes_up_to_date(w);
    const int64_t data_end = file_tell(w->file);
    if (data_end < 0) return 1;
    // Nothing since the last checkpoint: the file on disk already ends there.
    const bool nothing_new = w->checkpoint_junk_pos != 0 && data_end == w->checkpoint_junk_pos + chunk_header_size;
    uint32_t status = 0;
    if (!nothing_new) {
        status = settle_checkpoint_junk(w);
        status |= close_lists_in_place(w, data_end);
        // Everything up to data_end is on disk now; the "JUNK" header waits
        // in the buffer and goes out with the next chunks.
        status |= static_cast<uint32_t>(flush_in_place(w->file, data_end));
        status |= static_cast<uint32_t>(write_fourCC(ids::id_junk, w->file) | write_val32(junk_to_the_end, w->file));
        w->checkpoint_junk_pos = data_end;
    }
    bool lost = ferror(w->file) != 0;
    if (sync != 0 && !lost) lost = fsync(fileno(w->file)) != 0;
    if (lost || status != 0) w->write_failed = 1;
    return before != 0 || status != 0 || lost ? 1 : 0;
}
