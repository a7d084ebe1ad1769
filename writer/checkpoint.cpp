// Checkpoints: the file on disk made a complete AVI of the chunks put so
// far while the writer goes on.
//
// Layout. A checkpoint at the end C of the last chunk
// - puts each OpenDML track's current standard index on disk (an ix##
//   chunk of its full length at C the first time, rewritten in place later;
//   its super index entry is kept current), so the OpenDML index survives
//   any later cut;
// - writes idx1 after the last chunk (first segment only);
// - patches the "movi" size to end before idx1 and the form's size to end
//   after it, and rewrites the header area with the counts so far;
// - flushes, optionally forces the data to the device, and moves the
//   stream back to the start of that idx1, which the next chunks overwrite.
// A file cut later thus declares "movi" and the form to end at the last
// checkpoint: readers find every chunk put before it inside the lists the
// file declares, and the chunks after it beyond them.
// Cost: the header area, 16 bytes of idx1 per chunk so far, and per OpenDML
// track one standard index chunk (N x 8 + 48 bytes); no memory.
#include "odml/index_build.h"
#include "riff/riff_layout.h"
#include "writer/writer_internal.h"

#include <unistd.h>

namespace kelq {

namespace {

// The size field at size_pos made to cover everything up to end.
uint32_t patch_size(FILE *file, int64_t size_pos, int64_t end) {
    if (size_pos < 0 || end < size_pos + 4) return 1;
    if (file_seek(file, size_pos, origin_start) != 0) return 1;
    return static_cast<uint32_t>(write_val32(static_cast<uint32_t>(end - size_pos - 4), file));
}

// A track whose super index is full keeps the index of its first 100
// standard index chunks (put_chunk has said so); idx1 lists every chunk.
void bring_odml_indexes_up_to_date(aviout_handle *w) {
    if (w->odml != 1) return;
    for (int32_t track = 0; track < w->stream_count && track < AVIOUT_MAX_STREAMS; ++track)
        if (has_track(w, track)) checkpoint_standard_index(w, track);
}

// The lists and the header area on disk made to describe everything from
// file_start to the end of the data. Leaves the stream at the end of the
// data, which is where idx1 begins in the first segment.
uint32_t close_lists_in_place(aviout_handle *w) {
    bring_odml_indexes_up_to_date(w);
    const int64_t data_end = file_tell(w->file);
    if (data_end < 0) return 1;
    uint32_t status = 0;
    int64_t form_end = w->index_end;   // an "AVIX" segment: where the first form ended
    if (w->riff_index == 0) {
        status |= write_idx1(w);
        form_end = file_tell(w->file);
    }
    status |= patch_size(w->file, w->movi_mark, data_end);
    if (w->riff_index > 0) status |= patch_size(w->file, w->avix_mark, data_end);
    status |= static_cast<uint32_t>(file_seek(w->file, w->file_start, origin_start));
    write_header_area(w);
    status |= patch_size(w->file, w->riff_mark, form_end);
    status |= static_cast<uint32_t>(file_seek(w->file, data_end, origin_start));
    return status;
}

}  // namespace

}  // namespace kelq

using namespace kelq;

extern "C" int aviout_checkpoint(aviout_handle *w, int32_t sync) {
    if (w == nullptr) return 1;
    if (!header_written(w)) return w->write_failed != 0 ? 1 : 0;
    w->checkpoint_clock = 0.0;
    uint32_t status = w->write_failed | w->error;
    status |= close_lists_in_place(w);
    bool lost = fflush(w->file) != 0 || ferror(w->file) != 0;
    if (sync != 0 && !lost) lost = fsync(fileno(w->file)) != 0;
    if (lost) w->write_failed = 1;
    return status != 0 || lost ? 1 : 0;
}
