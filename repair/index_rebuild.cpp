// The second pass: every kept chunk again, in file order, its key-frame flag
// decided; the flags counted, and when the last segment is rebuilt, the
// final standard indexes and the idx1 streamed out through small buffers.
#include "repair/rebuild.h"

#include "repair/key_sources.h"
#include "repair/segments.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"

#include <cstdlib>
#include <new>

namespace kelq::repair {

namespace {

constexpr uint32_t idx1_per_flush = 2048;
constexpr uint32_t tail_per_flush = 256;
constexpr uint64_t max_riff_size = 0xFFFFFFFFu;
constexpr uint16_t std_longs_per_entry = 2;
constexpr uint8_t index_of_chunks = 1;

struct rebuilder {
    context *ctx;
    layout *l;
    FILE *out;
    bool first_riff;
    bool ok;
    uint8_t looked;   // what the first pass saw of the chunk's first bytes
    key_sources keys;
    uint32_t idx1_held;
    uint8_t idx1_buf[idx1_per_flush * idx1_record_size];
    uint32_t tail_held[max_streams];
    uint8_t tail_buf[max_streams][tail_per_flush * std_entry_size];
};

void put(rebuilder &b, int64_t final_pos, const void *bytes, size_t count) {
    if (count > 0 && !write_at(b.out, final_pos + b.l->shift, bytes, count)) b.ok = false;
}

void flush_idx1(rebuilder &b) {
    const int64_t at = b.l->idx1_pos + 8 + int64_t{b.l->idx1_written} * idx1_record_size;
    put(b, at, b.idx1_buf, size_t{b.idx1_held} * idx1_record_size);
    b.l->idx1_written += b.idx1_held;
    b.idx1_held = 0;
}

void flush_tail(rebuilder &b, int32_t stream) {
    stream_state &s = b.ctx->streams[stream];
    const uint32_t flushed = s.tail_entries - b.tail_held[stream];
    put(b, s.tail_pos + 8 + index_header_size + int64_t{flushed} * std_entry_size, b.tail_buf[stream],
        size_t{b.tail_held[stream]} * std_entry_size);
    b.tail_held[stream] = 0;
}

void add_idx1(rebuilder &b, const chunk_item &c, uint32_t flags) {
    uint8_t *r = b.idx1_buf + size_t{b.idx1_held} * idx1_record_size;
    store_le<uint32_t>(c.id, r);
    store_le<uint32_t>(flags, r + 4);
    store_le<uint32_t>(static_cast<uint32_t>(c.pos - (b.ctx->movi0 + 8)), r + 8);
    store_le<uint32_t>(c.size, r + 12);
    if (++b.idx1_held == idx1_per_flush) flush_idx1(b);
}

// A chunk after the stream's last standard index joins the final one,
// whose offsets count from its first chunk's header and must fit 32 bits.
void add_tail(rebuilder &b, const chunk_item &c, bool key) {
    stream_state &s = b.ctx->streams[c.stream];
    if (s.tail_entries == 0) s.tail_base = c.pos;
    const int64_t offset = c.data() - s.tail_base;
    if (offset > int64_t{max_riff_size}) {
        s.tail_room = s.tail_entries;
        return;
    }
    uint8_t *e = b.tail_buf[c.stream] + size_t{b.tail_held[c.stream]} * std_entry_size;
    store_le<uint32_t>(static_cast<uint32_t>(offset), e);
    store_le<uint32_t>(key ? c.size : c.size | std_not_key, e + 4);
    ++s.tail_entries;
    s.tail_bytes += c.size;
    if (++b.tail_held[c.stream] == tail_per_flush) flush_tail(b, c.stream);
}

void index_chunk(void *self, const chunk_item &c) {
    rebuilder &b = *static_cast<rebuilder *>(self);
    if (c.kind != chunk_kind::data) return;
    const uint32_t flags = chunk_flags(b.keys, c, b.looked);
    stream_state &s = b.ctx->streams[c.stream];
    const bool key = (flags & idx1_key_frame) != 0;
    if (key) ++s.key_frames;
    if (b.out == nullptr) return;
    if (b.first_riff && b.l->idx1_pos != 0) add_idx1(b, c, flags);
    if (s.tail_pos != 0 && c.data() > s.covered_end && s.tail_entries < s.tail_room) add_tail(b, c, key);
}

// The header of a final standard index, and zeros in its unused entries.
void finish_tail(rebuilder &b, int32_t stream) {
    static constexpr uint8_t zeros[tail_per_flush * std_entry_size] = {};
    stream_state &s = b.ctx->streams[stream];
    flush_tail(b, stream);
    for (uint32_t n = s.tail_entries; n < s.tail_room;) {
        const uint32_t k = s.tail_room - n < tail_per_flush ? s.tail_room - n : tail_per_flush;
        put(b, s.tail_pos + 8 + index_header_size + int64_t{n} * std_entry_size, zeros, size_t{k} * std_entry_size);
        n += k;
    }
    uint8_t h[8 + index_header_size] = {'i', 'x', static_cast<uint8_t>('0' + stream / 10),
                                        static_cast<uint8_t>('0' + stream % 10)};
    store_le<uint32_t>(index_header_size + s.tail_room * std_entry_size, h + 4);
    store_le<uint16_t>(std_longs_per_entry, h + 8);
    h[11] = index_of_chunks;
    store_le<uint32_t>(s.tail_entries, h + 12);
    read_at(b.ctx->in, s.indx_pos + 16, h + 16, 4);   // the stream's dwChunkId, as its super index has it
    store_le<uint64_t>(static_cast<uint64_t>(s.tail_base), h + 20);
    put(b, s.tail_pos, h, sizeof h);
}

void finish_idx1(rebuilder &b) {
    flush_idx1(b);
    uint8_t h[8];
    store_le<uint32_t>(b.ctx->swapped != 0 ? ids::id_idx1_swapped : ids::id_idx1, h);
    store_le<uint32_t>(b.l->idx1_written * idx1_record_size, h + 4);
    put(b, b.l->idx1_pos, h, sizeof h);
    b.l->file_end = b.l->idx1_pos + 8 + int64_t{b.l->idx1_written} * idx1_record_size;
}

// The data chunks the first pass held, handed on as the walk would.
void replay(rebuilder &b) {
    const context &ctx = *b.ctx;
    for (uint32_t n = 0; n < ctx.replay_count; ++n)
        index_chunk(&b, unpack_replay(ctx.replay[n], b.first_riff, b.looked));
    b.looked = 0;
}

void walk_segments(rebuilder &b) {
    const context &ctx = *b.ctx;
    const chunk_visitor v{index_chunk, &b};
    segment seg = first_segment(ctx);
    for (uint32_t n = 0; n < ctx.segments; ++n) {
        const bool last = n + 1 == ctx.segments;
        b.first_riff = n == 0;
        walk_movi(ctx, seg.movi, !last || ctx.last_closed ? seg.movi_end : ctx.kept_end, false, v);
        uint32_t cause = 0;
        if (!last && !next_segment(ctx, seg.riff_end, seg, cause)) break;
    }
}

}  // namespace

layout plan_layout(context &ctx) {
    layout l;
    l.rebuild = !ctx.last_closed;
    l.data_end = l.movi_end = l.file_end = ctx.kept_end;
    if (!l.rebuild) return l;
    l.data_end = ctx.kept_end + (ctx.pad_missing ? 1 : 0);
    int64_t at = l.data_end;
    for (int32_t i = 0; i < ctx.stream_count; ++i) {
        stream_state &s = ctx.streams[i];
        if (s.tail_room == 0) continue;
        s.tail_pos = at;
        at += 8 + index_header_size + int64_t{s.tail_room} * std_entry_size;
    }
    l.movi_end = l.file_end = at;
    const int64_t with_idx1 = at + 8 + int64_t{ctx.first_riff_records} * idx1_record_size;
    if (ctx.last_segment == 0 && static_cast<uint64_t>(with_idx1 - 8) <= max_riff_size) {
        l.idx1_pos = at;
        l.file_end = with_idx1;
    }
    // An index still to be read for key frames where the new bytes go.
    const int64_t source_end = ctx.idx1_records + static_cast<int64_t>(ctx.idx1_count * idx1_record_size);
    if (ctx.idx1_records != 0 && ctx.idx1_records < l.file_end && source_end > l.data_end - 1)
        l.shift = (ctx.file_size > l.data_end ? ctx.file_size : l.data_end) - l.data_end;
    return l;
}

bool rebuild_indexes(context &ctx, layout &l, FILE *out) {
    void *block = std::calloc(1, sizeof(rebuilder));
    if (block == nullptr) return false;
    auto *b = new (block) rebuilder;
    b->ctx = &ctx;
    b->l = &l;
    b->out = l.rebuild ? out : nullptr;
    b->ok = true;
    init_key_sources(b->keys, ctx);
    if (ctx.replay_whole)
        replay(*b);
    else
        walk_segments(*b);
    if (b->out != nullptr) {
        for (int32_t i = 0; i < ctx.stream_count; ++i)
            if (ctx.streams[i].tail_pos != 0) finish_tail(*b, i);
        if (l.idx1_pos != 0) finish_idx1(*b);
    }
    const bool ok = b->ok;
    std::free(b);
    return ok;
}

}  // namespace kelq::repair
