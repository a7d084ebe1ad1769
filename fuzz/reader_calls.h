// The reader target's groups of calls, each run on an open handle with every
// loop bounded.
#pragma once

#include "kelqavi.h"

#include <cstddef>
#include <cstdint>

namespace fuzz {

// What the first input byte chooses.
struct reader_options {
    int32_t walk_capacity;    // buffer of the whole-chunk walk (0: no buffer at all)
    uint32_t key_capacity;    // entries of the key-frame table
    uint32_t build_slice;     // idx1 entries a build call reads (0: all that remain)
    bool index_after_moves;   // the index calls again, in the last segment entered
    bool end_in_no_list;      // a move past the end of the file, which releases the handle
    bool end_by_release;      // end by asking for the segment after the last (releases the handle)
};

// The file's bytes, to compare with what the reader hands out.
struct file_view {
    const uint8_t *data;
    size_t size;
};

// Reads a byte so that the sanitizers check it is there.
void touch(const uint8_t *block, int64_t size);

void walk_whole_chunks(aviin_handle *h, const reader_options &o);
// Headers of the current list: each chunk also read by offset and compared
// with the file, the first few walked to again by offset.
void walk_headers(aviin_handle *h, const file_view &file);
// Every segment entered and walked both ways; false when a call released
// the handle.
bool walk_segments(aviin_handle *&h, uint32_t swapped_ids, const reader_options &o, const file_view &file);

void legacy_index_calls(aviin_handle *h);
void key_table_calls(aviin_handle *h, const reader_options &o);
void odml_calls(aviin_handle *h, const file_view &file);
void menu_calls(aviin_handle *h);

}  // namespace fuzz
