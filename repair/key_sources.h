// Key-frame flags for the chunks kept, from whatever index survives: an
// idx1 (whole, cut, or the tail a checkpoint left), the standard index
// chunks in the data, and where none says, the chunk itself.
#pragma once

#include "repair/movi_walk.h"

namespace kelq::repair {

constexpr uint32_t idx1_records_per_read = 256;
constexpr uint32_t std_entries_per_read = 256;
constexpr size_t look_size = 2048;   // bytes of a video chunk looked at

struct idx1_cursor {
    int64_t base = -1;        // what offsets count from; -1 unknown, -2 unusable
    uint64_t next = 0;        // next record to compare
    uint64_t first = 0;       // record held in buf[0]
    uint32_t held = 0;
    uint8_t buf[idx1_records_per_read * idx1_record_size];
};

struct ix_cursor {
    uint32_t record = 0;      // in ctx.ix
    uint32_t entry = 0;       // in that record
    uint32_t first = 0;       // entry held in buf[0]
    uint32_t held = 0;
    uint8_t buf[std_entries_per_read * std_entry_size];
};

struct key_sources {
    const context *ctx = nullptr;
    idx1_cursor idx1;
    ix_cursor ix[max_streams];
    uint8_t look[look_size];
};

void init_key_sources(key_sources &k, const context &ctx);

// The idx1 flags word for a data chunk: the surviving record's, else 0x10 for
// a key frame, with 0x100 on "dd" chunks. Chunks must come in file order.
// looked: what the chunk's first bytes said when the first pass looked at
// them (0 not looked at, 1 no key frame, 2 a key frame).
uint32_t chunk_flags(key_sources &k, const chunk_item &c, uint8_t looked = 0);
// Whether the chunk's first bytes start a key frame, when the walk's window
// holds them (1 no, 2 yes); 0 when it does not or nothing needs a look.
uint8_t look_in_window(const context &ctx, const chunk_item &c);

// Whether a chunk's first bytes start a key frame, for the codecs looked at.
bool starts_key_frame(key_rule rule, const uint8_t *bytes, size_t count);

}  // namespace kelq::repair
