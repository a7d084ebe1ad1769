// The rules the tolerances change, asked by the walks, the index calls and
// the header parser: what a chunk counts as under the handle's tolerances,
// how an idx1 offset is counted, and a video format longer than its header.
// With no tolerance allowed every answer is the designed one.
#pragma once

#include "reader/reader_handle.h"

#include <cstdint>

namespace kelq {

inline bool tolerates(const aviin_handle *h, uint32_t flag) { return (h->tolerances & flag) != 0; }

// Records that the file has needed a tolerance the handle allows.
inline void note_needed(aviin_handle *h, uint32_t flag) { h->tolerances_needed |= h->tolerances & flag; }

// Type code of a chunk id met inside "movi": get_chunk_type's, and under the
// index-chunk tolerance also KELQAVI_CHUNK_INDEX for "ix" and two digits.
uint32_t movi_chunk_type(aviin_handle *h, uint32_t id);

// True for an index chunk the walks pass over under the index-chunk
// tolerance: it holds no stream data, whatever stream its id names.
inline bool is_passed_over(const aviin_handle *h, uint32_t type) {
    return type == KELQAVI_CHUNK_INDEX && tolerates(h, AVIIN_TOLERATE_INDEX_CHUNKS);
}

// True for a chunk of that type code that counts as a frame of its video
// stream: "dc", and "db" too under the db-frame tolerance.
inline bool is_frame_type(aviin_handle *h, uint32_t type) {
    if (type == KELQAVI_CHUNK_VIDEO) return true;
    if (type != KELQAVI_CHUNK_VIDEO_RAW || !tolerates(h, AVIIN_TOLERATE_DB_FRAMES)) return false;
    note_needed(h, AVIIN_TOLERATE_DB_FRAMES);
    return true;
}

// Bits of a key-frame table's scan state (first_checked): the first key
// frame's header was matched; the index flags no key frame of the stream.
constexpr uint32_t first_header_matched = 1;
constexpr uint32_t every_frame_key = 2;

// Under the unflagged-key tolerance, an index that does not flag its
// stream's first frame as a key frame is taken to flag none, as writers of
// intra-only video that set no flags have it: every frame of the stream is
// then a key frame. Asked for each frame the index does not flag, in order.
inline bool unflagged_key(aviin_handle *h, keyindex_table *t) {
    if (!tolerates(h, AVIIN_TOLERATE_UNFLAGGED_KEYS)) return false;
    if (t->frames_scanned == 0) t->first_checked |= every_frame_key;
    if ((t->first_checked & every_frame_key) == 0) return false;
    note_needed(h, AVIIN_TOLERATE_UNFLAGGED_KEYS);
    return true;
}

// An offset read from the legacy index, counted from the "movi" list type as
// every answer is. Offsets of an index found to count from the start of the
// file (only under the file-idx1 tolerance) are moved; one that lies before
// the list gives a value past any list (2^64 - 1).
uint64_t idx1_offset(aviin_handle *h, uint32_t stored);

// Reads a video strf chunk, the stream at its id. A chunk longer than the
// 40-byte header fails as read_header_strf_video has it, unless the handle
// allows long formats: then the header is taken, the bytes past it are read
// into a fresh block (*extra, *extra_size; only when the file holds them) and
// the stream is left after the chunk and its pad byte. 0 on success.
int read_video_strf(aviin_handle *h, video_format &vf, uint8_t *&extra, uint32_t &extra_size);

// Hands a block from read_video_strf to a video slot, freeing what the slot held.
void keep_video_format_extra(aviin_handle *h, int32_t slot, uint8_t *extra, uint32_t extra_size);

}  // namespace kelq
