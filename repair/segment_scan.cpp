// The first pass: every RIFF segment in turn, the chunks of its "movi" list
// counted, until a segment that does not end where its sizes say (the one
// the repair rebuilds) or the end of the file.
#include "repair/movi_walk.h"

#include "repair/key_sources.h"

#include "repair/segments.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

constexpr uint16_t std_longs_per_entry = 2;
constexpr uint8_t index_of_chunks = 1;

// The stream of the chunk a standard index names first: this writer's ids
// carry only one digit of the stream number, so the id cannot say.
int32_t indexed_stream(const context &ctx, uint64_t data_pos) {
    uint8_t b[4];
    // A position from the file may be any 64-bit value: compared with the
    // file's size before any arithmetic on it.
    if (data_pos > static_cast<uint64_t>(ctx.file_size)) return -1;
    const int64_t header = static_cast<int64_t>(data_pos) - 8;
    if (header < ctx.movi0 || read_at(ctx.in, header, b, sizeof b) != sizeof b) return -1;
    int32_t stream = -1, type = 0;
    return classify(ctx, load_le<uint32_t>(b), 0, stream, type) == chunk_kind::data ? stream : -1;
}

void remember_index(context &ctx, const chunk_item &c) {
    uint8_t b[index_header_size + std_entry_size];
    if (c.size < index_header_size || read_at(ctx.in, c.data(), b, sizeof b) < index_header_size) return;
    if (load_le<uint16_t>(b) != std_longs_per_entry || b[3] != index_of_chunks) return;
    ix_record r{};
    r.pos = c.pos;
    r.entries = load_le<uint32_t>(b + 4);
    r.stored = r.entries;
    r.size = c.size;
    r.base = load_le<uint64_t>(b + 12);
    if (r.entries == 0 || r.entries > (c.size - index_header_size) / std_entry_size) return;
    r.stream = indexed_stream(ctx, r.base + load_le<uint32_t>(b + index_header_size));
    if (r.stream < 0) return;
    if (ctx.ix_count >= max_ix_records) {
        ctx.streams[r.stream].overflow = true;
        return;
    }
    ctx.ix[ctx.ix_count++] = r;
}

struct counter {
    context *ctx;
    bool first_riff;
};

// Holds a data chunk for the second pass while there is room; one that does
// not fit sends that pass back to the file.
void hold_for_replay(context &ctx, const chunk_item &c, bool first_riff) {
    if (!ctx.replay_whole) return;
    ctx.replay_whole = ctx.replay_count < ctx.replay_room &&
                       pack_replay(c, first_riff, look_in_window(ctx, c), ctx.replay[ctx.replay_count]);
    if (ctx.replay_whole) ++ctx.replay_count;
}

void count_chunk(void *self, const chunk_item &c) {
    counter &k = *static_cast<counter *>(self);
    context &ctx = *k.ctx;
    if (c.kind == chunk_kind::index) {
        remember_index(ctx, c);
        return;
    }
    hold_for_replay(ctx, c, k.first_riff);
    stream_state &s = ctx.streams[c.stream];
    ++s.chunks;
    s.bytes += c.size;
    if (c.size > s.max_size) s.max_size = c.size;
    if (c.type != KELQAVI_CHUNK_VIDEO_DATA)
        s.length += s.sample_size == 0 ? 1 : static_cast<uint32_t>((uint64_t{c.size} + s.sample_size - 1) / s.sample_size);
    if (is_frame(c.type)) {
        ++ctx.total_frames;
        if (k.first_riff) ++ctx.first_riff_frames;
    }
    if (k.first_riff) ++ctx.first_riff_records;
}

// The first segment's idx1 where its "movi" ends: read for key frames,
// whole or cut. Returns where the form goes on after a whole one.
int64_t take_idx1(context &ctx, int64_t at) {
    uint8_t b[8];
    if (read_at(ctx.in, at, b, sizeof b) != sizeof b ||
        (load_le<uint32_t>(b) != ids::id_idx1 && load_le<uint32_t>(b) != ids::id_idx1_swapped))
        return at;
    const uint32_t size = load_le<uint32_t>(b + 4);
    const int64_t room = ctx.file_size - (at + 8);
    ctx.idx1_records = at + 8;
    ctx.idx1_count = static_cast<uint64_t>(room < int64_t{size} ? room : int64_t{size}) / idx1_record_size;
    ctx.idx1_whole = room >= int64_t{size};
    return ctx.idx1_whole ? at + 8 + size : at;
}

void drop_from(context &ctx, int64_t pos, uint32_t cause) {
    ctx.drop_offset = pos;
    ctx.drop_cause = cause;
}

}  // namespace

// Segments whose sizes are right are kept as they are; the first that is
// not (cut, placeholder or stale sizes, a first RIFF without its idx1 and
// nothing after it) is the last kept, and is rebuilt from ctx.kept_end.
void scan_segments(context &ctx) {
    counter k{&ctx, true};
    const chunk_visitor v{count_chunk, &k};
    segment seg = first_segment(ctx);
    for (;;) {
        ++ctx.segments;
        ctx.last_segment = seg.pos;
        ctx.last_movi = seg.movi;
        ctx.last_closed = false;
        const walk_result r = walk_movi(ctx, seg.movi, seg.movi_end, true, v);
        ctx.kept_end = r.stop;
        ctx.pad_missing = r.pad_missing;
        ctx.wrapper = r.wrapper;
        if (r.end == walk_end::dropped) drop_from(ctx, r.stop, r.cause);
        // The idx1 where the walk or the first "movi" size ends gives key frames.
        if (k.first_riff && r.end == walk_end::at_idx1) take_idx1(ctx, r.stop);
        if (k.first_riff && r.end != walk_end::at_idx1 && r.end != walk_end::at_size && seg.movi_end >= 0)
            take_idx1(ctx, seg.movi_end);
        if (r.end != walk_end::at_size) return;
        const int64_t after = k.first_riff ? take_idx1(ctx, r.stop) : r.stop;
        const bool indexed = !k.first_riff || ctx.idx1_whole;
        if (seg.riff_end < 0 || (k.first_riff && ctx.idx1_records != 0 && !ctx.idx1_whole) ||
            !tiles(ctx, after, seg.riff_end))
            return;
        segment next;
        uint32_t cause = AVIOUT_REPAIR_DROP_NONE;
        const bool more = seg.riff_end < ctx.file_size && next_segment(ctx, seg.riff_end, next, cause);
        if (!more && seg.riff_end < ctx.file_size) {
            ctx.trailing = true;
            drop_from(ctx, seg.riff_end, cause);
        }
        // A first RIFF without idx1 gets one when nothing follows it.
        if (!more && !indexed) return;
        ctx.kept_end = seg.riff_end;
        ctx.last_closed = true;
        if (!more) return;
        k.first_riff = false;
        seg = next;
    }
}

}  // namespace kelq::repair
