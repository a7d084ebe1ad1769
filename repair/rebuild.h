// Rebuilding the indexes of the kept data: where the appended chunks go,
// the walk that writes them, and the header fields patched in place.
#pragma once

#include "repair/repair_state.h"

namespace kelq::repair {

struct layout {
    bool rebuild = false;   // the last segment's end is rebuilt
    int64_t data_end = 0;   // end of the kept data, pad byte included
    int64_t movi_end = 0;   // after the final standard indexes
    int64_t idx1_pos = 0;   // the idx1 written; 0 for none
    uint32_t idx1_written = 0;
    int64_t file_end = 0;
    int64_t shift = 0;      // appended bytes are first written at their position + shift
};

// Where the final standard indexes and the idx1 go. The new bytes are first
// written past the end of the file when an index still to be read for key
// frames lies where they go.
layout plan_layout(context &ctx);

// Walks every kept chunk in file order: key frames counted per stream and,
// with out, the final standard indexes and the idx1 written. false when a
// write failed.
bool rebuild_indexes(context &ctx, layout &l, FILE *out);

// Brings bytes written past the end down to their place and writes a
// missing pad byte; then truncates the file at its new end.
bool place_appended(const context &ctx, const layout &l, FILE *out);

// The header fields: counts, flags, sizes, super indexes, trimmed standard
// indexes.
bool patch_header(const context &ctx, const layout &l, FILE *out);

}  // namespace kelq::repair
