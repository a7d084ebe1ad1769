// Checkpoints: the file on disk made a complete AVI of the chunks put so
// far while the writer goes on.
//
// Layout. A checkpoint at the end D of the data (the last chunk, then any
// standard index chunk it writes)
// - puts each OpenDML track's current standard index on disk (an ix##
//   chunk of its full length at the end of the data the first time,
//   rewritten in place later; its super index entry is kept current), so
//   the OpenDML index survives any later cut;
// - patches the "movi" size and the form's size to end at D, and rewrites
//   the header area with the counts so far and without the has-index flag:
//   there is no idx1 yet;
// - writes at D the header of a top-level "JUNK" chunk whose size reaches
//   past any later end of the file, flushes (and on request forces the data
//   to the device), and goes on after it.
// The chunks put after a checkpoint thus lie inside that "JUNK" chunk: a
// file cut at any later byte is the form of the checkpoint followed by one
// top-level chunk running to the end of the file, which every reader passes
// over, so it opens and plays up to the checkpoint. The next checkpoint (or
// the finishing of the file) makes that header an empty "JUNK" chunk of
// "movi": each checkpoint followed by chunks leaves 8 bytes there.
// idx1 is left to the finished file and to repair: one written at each
// checkpoint would cost 16 bytes per chunk so far, every time.
// Cost: the header area, 8 bytes, and per OpenDML track one standard index
// chunk (N x 8 + 48 bytes), with a few seeks; no memory.
#include "odml/index_build.h"
#include "riff/fourcc_ids.h"
#include "riff/riff_layout.h"
#include "writer/writer_internal.h"

#include <unistd.h>

namespace kelq {

namespace {

constexpr uint32_t has_index_flag = 0x10;
// Even, and far beyond the end of any file a form's 32-bit size can hold.
constexpr uint32_t junk_to_the_end = 0xFFFFFFF0u;

// The size field at size_pos made to cover everything up to end.
uint32_t patch_size(FILE *file, int64_t size_pos, int64_t end) {
    if (size_pos < 0 || end < size_pos + 4) return 1;
    if (file_seek(file, size_pos, origin_start) != 0) return 1;
    return static_cast<uint32_t>(write_val32(static_cast<uint32_t>(end - size_pos - 4), file));
}

// A track whose super index is full keeps the index of its first 100
// standard index chunks (put_chunk has said so).
void bring_odml_indexes_up_to_date(aviout_handle *w) {
    if (w->odml != 1) return;
    for (int32_t track = 0; track < w->stream_count && track < AVIOUT_MAX_STREAMS; ++track)
        if (has_track(w, track)) checkpoint_standard_index(w, track);
}

// The lists and the header area on disk made to describe everything from
// file_start to data_end; the stream goes back to data_end.
uint32_t close_lists_in_place(aviout_handle *w, int64_t data_end) {
    uint32_t status = patch_size(w->file, w->movi_mark, data_end);
    if (w->riff_index > 0) status |= patch_size(w->file, w->avix_mark, data_end);
    status |= static_cast<uint32_t>(file_seek(w->file, w->file_start, origin_start));
    const uint32_t flags = w->main_header.flags;
    w->main_header.flags &= ~has_index_flag;
    write_header_area(w);
    w->main_header.flags = flags;
    // The first form ends with movi, or where its segment switch left it.
    status |= patch_size(w->file, w->riff_mark, w->riff_index == 0 ? data_end : w->index_end);
    status |= static_cast<uint32_t>(file_seek(w->file, data_end, origin_start));
    return status;
}

uint32_t write_junk_header(FILE *file, uint32_t size) {
    return static_cast<uint32_t>(write_fourCC(ids::id_junk, file) | write_val32(size, file));
}

}  // namespace

uint32_t settle_checkpoint_junk(aviout_handle *w) {
    if (w->checkpoint_junk_pos == 0) return 0;
    const int64_t here = file_tell(w->file);
    uint32_t status = patch_size(w->file, w->checkpoint_junk_pos + chunk_id_size, w->checkpoint_junk_pos + 8);
    status |= static_cast<uint32_t>(file_seek(w->file, here, origin_start));
    w->checkpoint_junk_pos = 0;
    return status;
}

}  // namespace kelq

using namespace kelq;

extern "C" int aviout_checkpoint(aviout_handle *w, int32_t sync) {
    if (w == nullptr) return 1;
    if (!header_written(w)) return w->write_failed != 0 ? 1 : 0;
    w->checkpoint_clock = 0.0;
    uint32_t status = w->write_failed | w->error;
    bring_odml_indexes_up_to_date(w);
    int64_t data_end = file_tell(w->file);
    // Nothing since the last checkpoint: its "JUNK" header stays the end.
    const bool nothing_new = w->checkpoint_junk_pos != 0 && data_end == w->checkpoint_junk_pos + 8;
    if (nothing_new) data_end = w->checkpoint_junk_pos;
    status |= settle_checkpoint_junk(w);
    if (data_end < 0) return 1;
    status |= close_lists_in_place(w, data_end);
    status |= write_junk_header(w->file, junk_to_the_end);
    w->checkpoint_junk_pos = data_end;
    bool lost = fflush(w->file) != 0 || ferror(w->file) != 0;
    if (sync != 0 && !lost) lost = fsync(fileno(w->file)) != 0;
    if (lost) w->write_failed = 1;
    return status != 0 || lost ? 1 : 0;
}
