// Shared pieces of the index calls: reading idx1 entries in blocks, placing
// an idx1-style offset inside the current "movi" list, the timing rule for
// audio chunks, and a step of the header walk that cannot run away.
#pragma once

#include "reader/reader_handle.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"

#include <cstdint>
#include <cstdio>

namespace kelq {

constexpr uint64_t not_found = 0xFFFFFFFFFFFFFFFFull;
constexpr uint32_t idx1_entry_size = 16;
constexpr uint32_t idx1_key_flag = 0x10;

struct idx1_entry {
    uint32_t ckid, flags, offset, size;
};

// Reads up to `count` entries from file position `first`, a block at a time.
// It seeks before every block, so other reads may happen between calls.
class idx1_cursor {
public:
    idx1_cursor(FILE *f, int64_t first, uint64_t count) : f_(f), next_pos_(first), left_(count) {}

    // False when `count` entries have been handed out or the file has no
    // whole entry left (then cut_short() is true).
    bool next(idx1_entry &e) {
        if (at_ == held_) {
            if (left_ == 0 || !refill()) return false;
        }
        const uint8_t *p = block_ + at_ * idx1_entry_size;
        e.ckid = load_le<uint32_t>(p);
        e.flags = load_le<uint32_t>(p + 4);
        e.offset = load_le<uint32_t>(p + 8);
        e.size = load_le<uint32_t>(p + 12);
        ++at_;
        return true;
    }
    bool cut_short() const { return cut_short_; }

private:
    static constexpr uint32_t block_entries = 64;

    bool refill() {
        const uint64_t want = left_ < block_entries ? left_ : block_entries;
        size_t got = 0;
        if (file_seek(f_, next_pos_, origin_start) == 0)
            got = file_read(f_, block_, static_cast<size_t>(want) * idx1_entry_size) / idx1_entry_size;
        if (got < want) cut_short_ = true;
        held_ = static_cast<uint32_t>(got);
        at_ = 0;
        left_ = got < want ? 0 : left_ - got;
        next_pos_ += static_cast<int64_t>(got) * idx1_entry_size;
        return got > 0;
    }

    FILE *f_;
    int64_t next_pos_;
    uint64_t left_;
    uint8_t block_[block_entries * idx1_entry_size];
    uint32_t held_ = 0, at_ = 0;
    bool cut_short_ = false;
};

// File position of the chunk header an idx1-style offset names, when that
// header lies where the walk of the current list can reach it.
inline bool header_in_movi(const aviin_handle *h, uint64_t offset, int64_t &header) {
    if (h == nullptr || h->current_list == nullptr || offset > (1ull << 62)) return false;
    const list_node *list = h->current_list;
    header = h->movi_data_pos - chunk_id_size + static_cast<int64_t>(offset);
    return header >= h->movi_data_pos && header < list->start + static_cast<int64_t>(list->size);
}

// The same, and the whole chunk (header and data) ends inside the list.
inline bool chunk_in_movi(const aviin_handle *h, uint64_t offset, uint32_t size, int64_t &header) {
    if (!header_in_movi(h, offset, header)) return false;
    const list_node *list = h->current_list;
    return header + chunk_header_size + static_cast<int64_t>(size) <=
           list->start + chunk_header_size + static_cast<int64_t>(list->size);
}

// Audio whose chunks all last the same: one MPEG audio frame of 576 or 1152
// samples a chunk (the block alignment says which). Other audio is timed by
// summing chunk sizes over the rate.
inline bool fixed_duration_audio(const audio_stream_format &f) {
    const int16_t block = static_cast<int16_t>(f.wave_format.block_align);
    return block == 576 || block == 1152;
}

// The audio format of a stream by its index among audio streams; null when
// the stream number or the index lies outside the tables.
inline const audio_stream_format *audio_format_of(const aviin_handle *h, uint32_t stream) {
    if (stream >= static_cast<uint32_t>(max_stream_slots)) return nullptr;
    const int32_t k = h->streams[stream].kind_index;
    return k >= 0 && k < max_streams_per_kind ? &h->audio_formats[k] : nullptr;
}

// One chunk header of the walk, as aviin_get_next_chunk_type reports it.
struct header_step {
    uint32_t type = 0, stream = 0, size = 0;
    uint64_t data_offset = 0;
    int64_t header = 0;  // where the header (or the unrecognised id) lies
};

// A failed step leaves the list's error flag set, and every later step fails
// at once; a few retries are all that stepping on can ever do.
constexpr int step_retries = 4;

// Steps one header: 0, 3 at the end of the list, 1 after step_retries + 1
// failed steps or when the chunk's size moves the walk back onto or before
// the header just read (it would meet the same headers again).
inline int step_header(aviin_handle *h, header_step &s) {
    for (int failures = 0;;) {
        const int r = aviin_get_next_chunk_type(h, &s.type, &s.stream, &s.data_offset, &s.size);
        if (r == result_end_of_list) return r;
        if (r != result_ok) {
            if (++failures > step_retries) return result_failed;
            continue;
        }
        s.header = static_cast<int64_t>(s.data_offset) -
                   (s.type == KELQAVI_CHUNK_UNKNOWN ? chunk_id_size : chunk_header_size);
        return h->current_list->next_pos > s.header ? result_ok : result_failed;
    }
}

// Moves the walk to a header position.
inline void walk_from(aviin_handle *h, int64_t header) {
    h->current_list->status |= static_cast<uint32_t>(file_seek(h->current_list->stream, header, origin_start));
    h->current_list->next_pos = header;
}

}  // namespace kelq
