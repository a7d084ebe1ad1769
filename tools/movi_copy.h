// The chunk walk of remux: every segment's 'movi' list, read with the
// reader's header walk and handed to the writer, with what was read counted
// per stream. The walk of a list stops at the first chunk it cannot take
// whole (an id that is no chunk id, a stream the file does not have, a chunk
// past the end of its list or of the file); where it stopped and the bytes
// of the list left unread are reported as a loss.
#pragma once

#include "avi_layout.h"
#include "avi_output.h"
#include "input_indexes.h"
#include "loss_report.h"

#include <cstdint>
#include <vector>

namespace kelqtool {

// One input stream and where it goes.
struct stream_route {
    uint32_t kind = 0;
    int32_t out = -1;         // stream number in the output, -1 when not copied
    bool intra = true;        // video: every frame a key frame
    uint64_t chunks_seen = 0;
    uint64_t first_segment_chunks = 0;  // read in the first segment, which idx1 indexes
};

struct movi_copy {
    aviin_handle *h = nullptr;
    const char *input = nullptr;
    const avi_layout *layout = nullptr;
    const input_indexes *indexes = nullptr;
    avi_output *out = nullptr;
    std::vector<stream_route> routes;
    loss_report losses;              // streams: one tally per input stream, read counts filled here
    bool handle_released = false;    // the reader released the handle: it must not be closed
    uint32_t tolerated = 0;          // the tolerances the input needed, by the end of each walk
};

// Walks and copies every segment. False when the output could not be
// written (out->write_error() says why).
bool copy_segments(movi_copy &job);

// Adds the index shortfalls: per stream, idx1 against the chunks read in the
// first segment and the OpenDML indexes against the chunks read in all.
void compare_with_indexes(movi_copy &job);

}  // namespace kelqtool
