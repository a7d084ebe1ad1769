// The walk of one "movi" list, chunk header by chunk header, shared by the
// pass that decides what is kept and the pass that indexes it.
#include "repair/movi_walk.h"

#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

constexpr int64_t list_header = 12;

struct header {
    uint32_t id = 0, size = 0, list_type = 0;
};

bool read_header(const context &ctx, int64_t pos, header &h) {
    const size_t want = pos + list_header <= ctx.data_end ? 12 : 8;
    const uint8_t *b = pos < 0 || pos + 8 > ctx.data_end ? nullptr : window_read(ctx, pos, want);
    if (b == nullptr) return false;
    h.id = load_le<uint32_t>(b);
    h.size = load_le<uint32_t>(b + 4);
    h.list_type = want == 12 ? load_le<uint32_t>(b + 8) : 0;
    return true;
}

chunk_item item_at(const context &ctx, int64_t pos, const header &h) {
    chunk_item c;
    c.pos = pos;
    c.id = h.id;
    c.size = h.size;
    c.kind = classify(ctx, h.id, h.list_type, c.stream, c.type);
    return c;
}

walk_result dropped(walk_result r, int64_t pos, uint32_t cause) {
    r.end = walk_end::dropped;
    r.stop = pos;
    r.cause = cause;
    return r;
}

// The chunks of a "rec " group must all be data chunks or fillers that fit
// inside it; only then are they visited. The cause of a refusal, or 0.
uint32_t walk_group(const context &ctx, const chunk_item &list, const chunk_visitor *v) {
    const int64_t end = list.data() + list.size;
    header h;
    for (int64_t at = list.pos + list_header; at < end;) {
        if (at + 8 > end) return AVIOUT_REPAIR_DROP_BAD_SIZE;
        if (!read_header(ctx, at, h)) return AVIOUT_REPAIR_DROP_CUT;
        const chunk_item c = item_at(ctx, at, h);
        if (c.kind != chunk_kind::data && c.kind != chunk_kind::filler) return AVIOUT_REPAIR_DROP_UNREADABLE;
        if (c.data() + c.size > end) return AVIOUT_REPAIR_DROP_BAD_SIZE;
        if (v != nullptr && c.kind == chunk_kind::data) v->visit(v->self, c);
        at = c.data() + c.size + (c.size & 1);
    }
    return AVIOUT_REPAIR_DROP_NONE;
}

// At the end a list's size gives: do data chunks of the file's streams go on?
bool goes_on(const context &ctx, int64_t pos) {
    header h;
    if (!read_header(ctx, pos, h)) return false;
    const chunk_item c = item_at(ctx, pos, h);
    return c.kind == chunk_kind::data || c.kind == chunk_kind::index;
}

// A checkpoint's "JUNK" header: it runs past the end of the file.
bool wraps_the_rest(const context &ctx, int64_t pos) {
    header h;
    return read_header(ctx, pos, h) && h.id == fourcc("JUNK") && pos + 8 + int64_t{h.size} > ctx.data_end;
}

}  // namespace

walk_result walk_movi(const context &ctx, int64_t movi, int64_t size_end, bool go_on, const chunk_visitor &v) {
    walk_result r;
    header h;
    for (int64_t at = movi + list_header;;) {
        if (go_on && at == size_end && wraps_the_rest(ctx, at)) r.wrapper = at;
        if (size_end >= 0 && at >= size_end) {
            if (!(go_on && at == size_end && (r.wrapper == at || goes_on(ctx, at)))) {
                r.end = walk_end::at_size;
                r.stop = at;
                return r;
            }
            r.stale = true;
            size_end = -1;
        }
        if (at != 0 && (at == r.wrapper || at == ctx.wrapper)) {
            at += 8;
            continue;
        }
        if (at >= ctx.data_end) {
            r.end = walk_end::at_eof;
            r.stop = at;
            return r;
        }
        if (!read_header(ctx, at, h)) {
            // Bytes too few for a header before a checkpoint's idx1 tail: the
            // last few bytes new chunks and the old index agree on.
            if (ctx.data_end < ctx.file_size) {
                r.end = walk_end::at_eof;
                r.stop = at;
                return r;
            }
            return dropped(r, at, AVIOUT_REPAIR_DROP_CUT);
        }
        const chunk_item c = item_at(ctx, at, h);
        if (c.kind == chunk_kind::idx1) {
            r.end = walk_end::at_idx1;
            r.stop = at;
            return r;
        }
        if (c.kind == chunk_kind::unknown) return dropped(r, at, AVIOUT_REPAIR_DROP_UNREADABLE);
        const int64_t data_end = c.data() + c.size;
        if (data_end > ctx.data_end) return dropped(r, at, AVIOUT_REPAIR_DROP_CUT);
        if (size_end >= 0 && data_end > size_end) return dropped(r, at, AVIOUT_REPAIR_DROP_BAD_SIZE);
        if (c.kind == chunk_kind::rec_list) {
            const uint32_t cause = walk_group(ctx, c, nullptr);
            if (cause != AVIOUT_REPAIR_DROP_NONE) return dropped(r, at, cause);
            walk_group(ctx, c, &v);
        } else if (c.kind != chunk_kind::filler) {
            v.visit(v.self, c);
        }
        at = data_end + (c.size & 1);
        if (at > ctx.data_end) {
            r.end = walk_end::at_eof;
            r.stop = data_end;
            r.pad_missing = true;
            return r;
        }
    }
}

}  // namespace kelq::repair
