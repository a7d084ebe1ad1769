// Sizes of RIFF chunk and list headers, and the origins file_seek takes.
#pragma once

#include <cstdint>
#include <cstdio>

namespace kelq {

constexpr int64_t chunk_id_size = 4;
constexpr int64_t chunk_header_size = 8;   // id and size
constexpr int64_t list_header_size = 12;   // id, size and list type

constexpr int origin_start = 0;
constexpr int origin_current = 1;
constexpr int origin_end = 2;

// Results of the reader's calls.
constexpr int result_ok = 0;
constexpr int result_failed = 1;
constexpr int result_end_of_list = 3;

// junk_pad with a filler of zero bytes instead of the brand words, for
// files whose readers show a "JUNK" chunk's text as the writing program.
void junk_pad_zeroed(int64_t alignment, FILE *stream, uint32_t *status);

}  // namespace kelq
