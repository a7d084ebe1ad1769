// Steps of the writer shared between its sources.
#pragma once

#include "kelqavi.h"

#include <cstdint>

namespace kelq {

constexpr uint32_t main_header_flags = 0x110;     // has index, interleaved
constexpr int64_t header_alignment = 2048;
constexpr uint32_t dmlh_zero_bytes = 240;
constexpr int64_t size_guard = 0x7F000000;
constexpr int64_t segment_limit = 0xFF100000;
constexpr size_t io_buffer_size = 64 * 1024;
constexpr uint32_t strd_version = 2;

constexpr uint32_t kind_audio = 1;
constexpr uint32_t kind_video = 3;
constexpr uint32_t kind_text_caption = 5;
constexpr uint32_t kind_bitmap_caption = 6;
constexpr uint32_t kind_chapter = 7;

// The whole header area at the current position (first pass and rewrite).
void write_header_area(aviout_handle *w);
void write_stream_header(aviout_handle *w, int32_t stream);
// Opens a "movi" list (after the first segment inside a new "AVIX" form).
uint32_t start_segment(aviout_handle *w);
// The legacy index at the current position: one record per data chunk of
// the first segment, its offset counted from the "movi" list type; ix##
// chunks are left out. Sets index_end.
uint32_t write_idx1(aviout_handle *w);
// A data chunk's id, size, data and pad byte, written at here (the stream's
// position); 0, or 1 when a write fell short.
int write_chunk(aviout_handle *w, uint32_t id, const uint8_t *data, uint32_t size, int64_t here);
// The "JUNK" header the last checkpoint left at the end of the file made an
// empty chunk of the data that now follows it; 0 when all went well.
uint32_t settle_checkpoint_junk(aviout_handle *w);
// Closes the open segment and rewrites the header area; 0 when all went well.
uint32_t finish_segment(aviout_handle *w, int unused);

// chunk_end for a mark from a list writer, which is -1 when the list was
// not written because an earlier write failed: nothing to patch then.
inline void end_mark(int64_t mark, FILE *file, uint32_t *status) {
    if (mark < 0) {
        *status |= 1;
        return;
    }
    chunk_end(mark, file, status);
}

inline bool header_written(const aviout_handle *w) { return w->riff_index != -1; }

}  // namespace kelq
