// OpenDML index chunks as byte images, laid out as the OpenDML standard has
// them: super index "indx" and standard index "ix##".
#pragma once

#include <cstdint>
#include <vector>

#include "support/byte_image.h"

namespace kelqtest {

struct super_entry {
    uint64_t ix_pos;   // qwOffset: the ix## chunk's id
    uint32_t size;     // dwSize
    uint32_t duration; // dwDuration
};

struct std_entry {
    uint32_t offset;   // dwOffset
    uint32_t size;     // dwSize, bit 31 set for a non-key frame
    uint32_t extra = 0; // a third word, only with wLongsPerEntry 3
};

// What an entry lookup gave: its status, and the outputs, 0xDEAD where untouched.
struct entry_out {
    int status;
    uint32_t type = 0xDEAD, size = 0xDEAD, key = 0xDEAD;
};

constexpr size_t written_indx_bytes = 1632;  // 100 entries, as the writer lays it out

// An "indx" chunk of 100 entry slots (size 1624) unless size says otherwise;
// the slots after the given entries are zero.
inline byte_image indx_chunk(const char *chunk_id, uint32_t entries_in_use, const std::vector<super_entry> &entries,
                             uint8_t index_type = 0, uint32_t size = written_indx_bytes - 8) {
    byte_image b;
    b.id("indx").u32(size).u16(4).u8(0).u8(index_type).u32(entries_in_use).id(chunk_id).u32(0).u32(0).u32(0);
    for (const super_entry &e : entries) b.u64(e.ix_pos).u32(e.size).u32(e.duration);
    if (b.size() < written_indx_bytes) b.fill(written_indx_bytes - b.size());
    return b;
}

// An "indx" with bIndexType 1, holding 8-byte chunk entries itself.
inline byte_image indx_of_chunks(const char *chunk_id, const std::vector<std_entry> &entries) {
    byte_image b;
    b.id("indx").u32(static_cast<uint32_t>(24 + 8 * entries.size())).u16(2).u8(0).u8(1);
    b.u32(static_cast<uint32_t>(entries.size())).id(chunk_id).u32(0).u32(0).u32(0);
    for (const std_entry &e : entries) b.u32(e.offset).u32(e.size);
    return b;
}

// A standard index chunk with wLongsPerEntry 2 (or 3, adding each entry's
// extra word) and two zero entries of spare room, as the writer leaves them.
inline byte_image ix_chunk(const char *id, const char *chunk_id, uint64_t base, const std::vector<std_entry> &entries,
                           uint16_t longs_per_entry = 2) {
    byte_image body;
    body.u16(longs_per_entry).u8(0).u8(1).u32(static_cast<uint32_t>(entries.size())).id(chunk_id).u64(base).u32(0);
    for (const std_entry &e : entries) {
        body.u32(e.offset).u32(e.size);
        if (longs_per_entry == 3) body.u32(e.extra);
    }
    body.fill(2 * 4 * longs_per_entry);
    return byte_image().chunk(id, body);
}

}  // namespace kelqtest
