// The RIFF segments of a file: the first "AVI " form and the "AVIX" forms
// after it, each with its "movi" list.
#pragma once

#include "repair/repair_state.h"

namespace kelq::repair {

struct segment {
    int64_t pos = 0;        // the RIFF header
    int64_t movi = 0;       // its "movi" LIST header
    int64_t movi_end = -1;  // where the list's size ends it; -1 when that cannot be right
    int64_t riff_end = -1;  // where the form's size ends it; -1 when that cannot be right
};

// The first segment, whose "movi" the header scan found.
segment first_segment(const context &ctx);

// The "AVIX" segment whose header is at pos. false, with the cause, when
// there is none: the bytes there are no "AVIX" form with a "movi" list.
bool next_segment(const context &ctx, int64_t pos, segment &seg, uint32_t &cause);

// True when whole chunks, of any id, lead from `from` exactly to `to` (the
// last one's pad byte may be left out).
bool tiles(const context &ctx, int64_t from, int64_t to);

}  // namespace kelq::repair
