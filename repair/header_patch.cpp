// The fields rewritten in place: the counts of the header lists, the sizes
// of the rebuilt segment, each super index, and the entry counts of the
// standard indexes whose last entries named dropped chunks.
#include "repair/rebuild.h"

#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

constexpr int64_t avih_flags_at = 12;
constexpr int64_t avih_total_frames_at = 16;
constexpr int64_t strh_length_at = 32;
constexpr int64_t strh_buffer_at = 36;
constexpr int64_t entries_in_use_at = 12;    // from an index chunk's id
constexpr int64_t first_entry_at = 8 + index_header_size;
constexpr uint64_t max_size = 0xFFFFFFFFu;

bool put32(FILE *out, int64_t pos, uint64_t value) {
    uint8_t b[4];
    store_le<uint32_t>(static_cast<uint32_t>(value < max_size ? value : max_size), b);
    return write_at(out, pos, b, sizeof b);
}

bool patch_counts(const context &ctx, const layout &l, FILE *out) {
    uint8_t b[4] = {};
    bool ok = read_at(out, ctx.avih_data + avih_flags_at, b, sizeof b) == sizeof b;
    const uint32_t flags = load_le<uint32_t>(b) | (l.idx1_pos != 0 ? avih_has_index : 0u);
    ok = ok && put32(out, ctx.avih_data + avih_flags_at, flags);
    ok = put32(out, ctx.avih_data + avih_total_frames_at, ctx.first_riff_frames) && ok;
    if (ctx.dmlh_data != 0) ok = put32(out, ctx.dmlh_data, ctx.total_frames) && ok;
    for (int32_t i = 0; i < ctx.stream_count; ++i) {
        const stream_state &s = ctx.streams[i];
        if (s.strh_data == 0) continue;
        if (s.type != ids::type_txts) ok = put32(out, s.strh_data + strh_length_at, s.length) && ok;
        ok = put32(out, s.strh_data + strh_buffer_at, s.max_size) && ok;
    }
    return ok;
}

// The segment's sizes, and a checkpoint's "JUNK" header inside the kept
// data made an empty chunk of "movi".
bool patch_sizes(const context &ctx, const layout &l, FILE *out) {
    if (!l.rebuild) return true;
    bool ok = put32(out, ctx.last_movi + 4, static_cast<uint64_t>(l.movi_end - ctx.last_movi - 8));
    if (ctx.wrapper != 0) ok = put32(out, ctx.wrapper + 4, 0) && ok;
    return put32(out, ctx.last_segment + 4, static_cast<uint64_t>(l.file_end - ctx.last_segment - 8)) && ok;
}

void super_entry(uint8_t *e, int64_t pos, uint64_t chunk_size, uint64_t duration) {
    store_le<uint64_t>(static_cast<uint64_t>(pos), e);
    store_le<uint32_t>(static_cast<uint32_t>(chunk_size), e + 8);
    store_le<uint32_t>(static_cast<uint32_t>(duration < max_size ? duration : max_size), e + 12);
}

// One super index: the kept standard indexes of its stream, then the final
// one; emptied when they do not all fit. Entries no longer in use are zeroed.
bool patch_super_index(const context &ctx, int32_t stream, FILE *out) {
    const stream_state &s = ctx.streams[stream];
    const bool audio = s.type == ids::type_auds;
    bool ok = true;
    uint32_t n = 0;
    uint8_t e[super_entry_size];
    for (uint32_t i = 0; i < ctx.ix_count && !s.overflow; ++i) {
        const ix_record &r = ctx.ix[i];
        if (r.stream != stream || r.entries == 0 || n >= s.indx_capacity) continue;
        super_entry(e, r.pos, uint64_t{r.size} + 8, audio ? r.bytes : r.entries);
        ok = write_at(out, s.indx_pos + first_entry_at + int64_t{n++} * super_entry_size, e, sizeof e) && ok;
    }
    if (!s.overflow && s.tail_entries > 0 && n < s.indx_capacity) {
        super_entry(e, s.tail_pos, 8 + index_header_size + uint64_t{s.tail_room} * std_entry_size,
                    audio ? s.tail_bytes : s.tail_entries);
        ok = write_at(out, s.indx_pos + first_entry_at + int64_t{n++} * super_entry_size, e, sizeof e) && ok;
    }
    // Entries past those the chunk had in use are zero already.
    uint8_t b[4] = {};
    read_at(out, s.indx_pos + entries_in_use_at, b, sizeof b);
    const uint32_t used = load_le<uint32_t>(b) < s.indx_capacity ? load_le<uint32_t>(b) : s.indx_capacity;
    static constexpr uint8_t zeros[32 * super_entry_size] = {};
    for (uint32_t i = n; i < used;) {
        const uint32_t k = used - i < 32 ? used - i : 32;
        ok = write_at(out, s.indx_pos + first_entry_at + int64_t{i} * super_entry_size, zeros, k * super_entry_size) && ok;
        i += k;
    }
    return put32(out, s.indx_pos + entries_in_use_at, n) && ok;
}

}  // namespace

bool patch_header(const context &ctx, const layout &l, FILE *out) {
    bool ok = patch_counts(ctx, l, out);
    ok = patch_sizes(ctx, l, out) && ok;
    for (int32_t i = 0; i < ctx.stream_count; ++i)
        if (ctx.streams[i].indx_pos != 0) ok = patch_super_index(ctx, i, out) && ok;
    for (uint32_t i = 0; i < ctx.ix_count; ++i)
        if (ctx.ix[i].entries != ctx.ix[i].stored) ok = put32(out, ctx.ix[i].pos + entries_in_use_at, ctx.ix[i].entries) && ok;
    return ok;
}

}  // namespace kelq::repair
