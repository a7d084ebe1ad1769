// Pieces of OpenDML index reading shared by the entry calls: the index types,
// the layout of super and standard index entries, the key bit of a standard index entry, and the decoding
// of a standard index chunk's header.
#pragma once

#include "reader/reader_handle.h"
#include "riff/riff_layout.h"

#include <cstdint>
#include <cstdio>

namespace kelq {

constexpr uint8_t index_of_indexes = 0;          // bIndexType of a super index
constexpr uint8_t index_of_chunks = 1;           // bIndexType of a standard index
constexpr uint32_t super_entry_size = 16;       // qwOffset, dwSize, dwDuration
constexpr uint32_t std_entry_size = 8;          // dwOffset, dwSize
constexpr int64_t index_entries_offset = chunk_header_size + indx_header_size;  // id, size, header
constexpr uint32_t not_key_frame = 0x80000000u;  // bit 31 of a standard entry's dwSize
constexpr uint32_t key_frame_flags = 16;         // what the entry calls give for a key frame

// The stream the index calls read: the open file, or the list stack's.
inline FILE *index_stream(const aviin_handle *h) { return h->file != nullptr ? h->file : reader_stream(h); }

// Decodes the 24 bytes that follow a standard index chunk's size field.
void decode_std_header(const uint8_t *bytes, std_index_header &header);

// Entries a super index chunk of this size field has room for.
uint32_t super_index_capacity(uint32_t chunk_size);

}  // namespace kelq
