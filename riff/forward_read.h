// Moving a read stream a little way forward by reading instead of seeking.
// stdio's seek asks the kernel to confirm the position even when the target
// lies inside the buffer it already holds, so a walk that seeks once per
// chunk makes a system call per chunk. Reading the few bytes in between and
// dropping them stays inside the buffer until it runs dry. The reads skip
// stdio's lock: a reader's stream is used by one thread at a time.
#pragma once

#include <cstdint>
#include <cstdio>

namespace kelq {

// Farthest a stream is moved by reading; beyond it a seek is cheaper.
constexpr int64_t forward_read_limit = 4096;

// True when the stream, standing at here, now stands at target without a
// seek: here is target already, or target lies at most forward_read_limit
// bytes ahead and every byte between was read. False when the stream is at
// the end of the file (a seek would clear that state), target lies behind or
// too far, or a read came short; the stream may then have moved part of the
// way and the caller seeks to target, which leaves it as a seek alone would.
bool reach_by_reading(FILE *stream, int64_t here, int64_t target);

}  // namespace kelq
