// Positioned reads and writes on a stdio stream.
#include "repair/repair_state.h"

namespace kelq::repair {

bool write_at(FILE *f, int64_t pos, const void *src, size_t count) {
    if (pos < 0 || file_seek(f, pos, 0) != 0) return false;
    return file_write(f, src, count) == count;
}

const uint8_t *window_read(const context &ctx, int64_t pos, size_t count, bool fill) {
    context::read_window &w = ctx.window;
    if (pos >= w.pos && pos + static_cast<int64_t>(count) <= w.pos + static_cast<int64_t>(w.held)) {
        if (fill) ++w.served;
        return w.buf + (pos - w.pos);
    }
    if (!fill || count > window_size) return nullptr;
    if (w.whole && w.served < 3)
        w.whole = false;
    else if (!w.whole && w.served >= 2)
        w.whole = true;
    w.served = 1;
    w.pos = pos;
    w.held = read_at(ctx.in, pos, w.buf, w.whole || count > header_read ? window_size : header_read);
    return w.held >= count ? w.buf : nullptr;
}

}  // namespace kelq::repair
