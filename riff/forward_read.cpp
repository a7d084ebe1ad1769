#include "riff/forward_read.h"

#include "kelqavi.h"
#include "riff/stream_buffer.h"

namespace kelq {

namespace {

constexpr size_t drop_block = 1024;
// Up to this many bytes are dropped one at a time straight from stdio's
// buffer, cheaper than a whole read call for a pad byte.
constexpr int64_t bytewise_limit = 8;

}  // namespace

bool reach_by_reading(FILE *stream, int64_t here, int64_t target) {
    if (here < 0 || target < here || target - here > forward_read_limit || feof_unlocked(stream)) return false;
    int64_t left = target - here;
    if (buffered_read(stream, nullptr, static_cast<size_t>(left))) return true;
    if (left <= bytewise_limit) {
        for (; left > 0; --left)
            if (getc_unlocked(stream) == EOF) return false;
        return true;
    }
    uint8_t dropped[drop_block];
    while (left > 0) {
        const size_t want = left < static_cast<int64_t>(drop_block) ? static_cast<size_t>(left) : drop_block;
        if (fread_unlocked(dropped, 1, want, stream) != want) return false;
        left -= static_cast<int64_t>(want);
    }
    return true;
}

}  // namespace kelq
