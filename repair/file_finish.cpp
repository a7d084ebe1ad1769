// The end of a repaired file: bytes written past the old end moved down to
// their place, a missing pad byte, and the truncation at the new end.
#include "repair/rebuild.h"

#include <unistd.h>

namespace kelq::repair {

namespace {

constexpr size_t copy_block = 4096;

// Moves [from, from + count) down to `to`, block by block from the front:
// each block is read whole before it is written, so an overlap is safe.
bool move_down(FILE *out, int64_t from, int64_t to, int64_t count) {
    uint8_t block[copy_block];
    for (int64_t done = 0; done < count;) {
        const size_t n = count - done < int64_t{copy_block} ? static_cast<size_t>(count - done) : copy_block;
        if (read_at(out, from + done, block, n) != n || !write_at(out, to + done, block, n)) return false;
        done += static_cast<int64_t>(n);
    }
    return true;
}

}  // namespace

bool place_appended(const context &ctx, const layout &l, FILE *out) {
    bool ok = true;
    if (l.rebuild && l.shift != 0) ok = move_down(out, l.data_end + l.shift, l.data_end, l.file_end - l.data_end);
    if (l.rebuild && ctx.pad_missing) {
        const uint8_t zero = 0;
        ok = write_at(out, ctx.kept_end, &zero, 1) && ok;
    }
    if (std::fflush(out) != 0) return false;
    return ftruncate64(fileno(out), l.file_end) == 0 && ok;
}

}  // namespace kelq::repair
