// What the indexes of an AVI file say about its chunks: the key-frame flag
// of each chunk, and how many chunks of each stream the first segment's idx1
// and the OpenDML standard indexes list. idx1 is read through the reader's
// index calls; the standard indexes are read here, since the reader knows the
// super index of audio and video streams only and a copy must count the
// caption and chapter streams' too. The entries are read a block at a time.
#pragma once

#include "avi_layout.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace kelqtool {

struct input_indexes {
    // Key-frame flags by the position of a chunk's data.
    std::unordered_map<int64_t, bool> key_by_data;
    bool has_idx1 = false;
    std::vector<uint64_t> idx1_listed;   // by stream: data chunks idx1 lists inside the first 'movi'
    std::vector<bool> has_odml;          // by stream: it has standard indexes
    std::vector<uint64_t> odml_listed;   // by stream: chunks they list
};

// Reads the indexes of the file open in h for streams 0 .. stream_count - 1;
// layout is the file's, for where its first 'movi' list and idx1 lie. An
// index that cannot be read counts as absent. The reader's walk is kept.
// path is the file open in h (its standard indexes are read through a stream
// of its own).
void read_input_indexes(const char *path, aviin_handle *h, const avi_layout &layout, size_t stream_count,
                        input_indexes &out);

}  // namespace kelqtool
