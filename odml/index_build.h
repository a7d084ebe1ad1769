// Building the OpenDML indexes while a file is written: per track a standard
// index filled chunk by chunk and written out as an ix## chunk among the
// data, and a super index (indx) in the header area that lists them.
#pragma once

#include "kelqavi.h"

#include <cstdint>

namespace kelq {

constexpr uint32_t super_index_size = 1624;       // indx payload: header and 100 entries
constexpr uint32_t index_header_size = 24;        // fields before the entries
constexpr uint32_t super_entry_size = 16;
constexpr uint32_t std_entry_size = 8;
constexpr uint32_t std_index_overhead = 48;       // ix## length = N x 8 + 48
constexpr uint32_t std_index_spare_entries = 2;   // room beyond N in every ix##
constexpr uint32_t max_entries_per_chunk =
    (0xFFFFFFFFu - std_index_overhead) / std_entry_size - std_index_spare_entries;
constexpr uint32_t caption_index_entries = 64;     // N of a caption track
constexpr uint32_t odml_key_flag = 0x10;          // idx1 key-frame flag
constexpr uint32_t odml_not_key_bit = 0x80000000u;

static_assert(index_header_size + AVIOUT_SUPER_INDEX_ENTRIES * super_entry_size == super_index_size,
              "indx payload is its header and 100 entries");

// All return the track number on success and -1 on failure unless said.
int init_avi2_track(aviout_handle *w, int32_t stream_type, int32_t track, aviout_stream_entry *unused,
                    double frame_duration);
int configure_super_index(aviout_handle *w, int32_t stream_type, int32_t track);
int configure_standard_index(aviout_handle *w, int32_t stream_type, int32_t track);
// A text-caption, bitmap-caption or chapter track (standard profile only):
// its standard index is written out every caption_index_entries chunks,
// whatever the timing mode.
int init_caption_track(aviout_handle *w, int32_t stream_type, int32_t track);
inline bool is_caption_track(const odml_track_state *t) { return t->stream_type >= 5; }
// -1 when the standard index already holds N + 2 entries.
int add_avi2_chunk(aviout_handle *w, int32_t track, int64_t chunk_pos, uint32_t size, uint32_t flags);
// Status of the writes.
int write_standard_index(aviout_handle *w, int32_t track);
// -1, writing nothing, when the super index already lists 100 chunks.
// A standard index already put on disk by a checkpoint is rewritten in
// place (the stream is moved there and back) and its super index entry
// updated, instead of being written at the current position.
int update_standard_index(aviout_handle *w, int32_t track);
// At a checkpoint: puts the track's current standard index on disk, as an
// ix## chunk of its full length at the current position the first time
// (listed in the super index); later its header and the entries added
// since are written over their places (the stream must have been flushed
// since: they go straight to the file), so a file cut afterwards keeps an
// index of every chunk before the checkpoint. An empty index writes
// nothing. The track, or -1 when its super index is full or a write failed.
int checkpoint_standard_index(aviout_handle *w, int32_t track);
// 1, or -1 when update_standard_index refused (the index is then kept).
int write_standard_index_chunks(aviout_handle *w, int32_t track);
int write_all_standard_index_chunks(aviout_handle *w);
int write_super_index(aviout_handle *w, int32_t track);
// Tracks rewritten, or -1 when the position cannot be had.
int update_super_index(aviout_handle *w);
int avi2_cleanup(aviout_handle *w);

inline bool has_track(const aviout_handle *w, int32_t track) {
    return track >= 0 && track < AVIOUT_MAX_STREAMS && w->odml_track[track] != nullptr &&
           w->std_index_buf[track] != nullptr && w->super_index_buf[track] != nullptr &&
           w->super_index_pos[track] != nullptr;
}

// Entries in use in a track's current standard index.
uint32_t std_index_entries(const aviout_handle *w, int32_t track);

}  // namespace kelq
