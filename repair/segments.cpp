#include "repair/segments.h"

#include "repair/movi_walk.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

struct form_head {
    uint32_t id = 0, size = 0, type = 0;
};

bool read_form(const context &ctx, int64_t pos, form_head &h) {
    uint8_t b[12];
    if (pos + 12 > ctx.file_size || read_at(ctx.in, pos, b, sizeof b) != sizeof b) return false;
    h.id = load_le<uint32_t>(b);
    h.size = load_le<uint32_t>(b + 4);
    h.type = load_le<uint32_t>(b + 8);
    return true;
}

}  // namespace

segment first_segment(const context &ctx) {
    segment s;
    form_head riff, movi;
    read_form(ctx, 0, riff);
    read_form(ctx, ctx.movi0, movi);
    s.riff_end = sized_end(0, riff.size, ctx.file_size);
    s.movi = ctx.movi0;
    s.movi_end = sized_end(ctx.movi0, movi.size, s.riff_end >= 0 ? s.riff_end : ctx.file_size);
    return s;
}

bool next_segment(const context &ctx, int64_t pos, segment &seg, uint32_t &cause) {
    form_head h;
    cause = AVIOUT_REPAIR_DROP_CUT;
    if (!read_form(ctx, pos, h)) return false;
    cause = AVIOUT_REPAIR_DROP_UNREADABLE;
    if (h.id != ids::id_riff || h.type != fourcc("AVIX")) return false;
    seg.pos = pos;
    seg.riff_end = sized_end(pos, h.size, ctx.file_size);
    const int64_t limit = seg.riff_end >= 0 ? seg.riff_end : ctx.file_size;
    // The "movi" list, after whatever else the form holds first.
    for (int64_t at = pos + 12; at + 12 <= limit;) {
        form_head c;
        if (!read_form(ctx, at, c)) break;
        if (c.id == ids::id_list && c.type == ids::type_movi) {
            seg.movi = at;
            seg.movi_end = sized_end(at, c.size, limit);
            return true;
        }
        const int64_t next = at + 8 + c.size + (c.size & 1);
        if (next > limit) break;
        at = next;
    }
    cause = AVIOUT_REPAIR_DROP_CUT;
    return false;
}

bool tiles(const context &ctx, int64_t from, int64_t to) {
    int64_t at = from;
    while (at < to) {
        uint8_t b[8];
        if (at + 8 > to || read_at(ctx.in, at, b, sizeof b) != sizeof b) return false;
        const uint32_t size = load_le<uint32_t>(b + 4);
        at += 8 + int64_t{size};
        if (at > to) return false;
        if (at < to) at += size & 1;
    }
    return at == to;
}

}  // namespace kelq::repair
