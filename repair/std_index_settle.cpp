// The standard index chunks kept: each trimmed to the entries whose chunks
// were kept, and per stream what its super index will list, and how many
// chunks after its last standard index a final one must take.
#include "repair/repair_state.h"

#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

constexpr uint32_t entries_per_read = 512;
constexpr uint32_t size_bits = 0x7FFFFFFFu;

// Counts the entries of r, in order, whose chunks lie wholly in the kept data.
void trim(const context &ctx, ix_record &r) {
    uint8_t block[entries_per_read * std_entry_size];
    uint32_t kept = 0;
    r.bytes = 0;
    r.last_data = 0;
    while (kept < r.stored) {
        const uint32_t n = r.stored - kept < entries_per_read ? r.stored - kept : entries_per_read;
        const int64_t at = r.pos + 8 + index_header_size + int64_t{kept} * std_entry_size;
        if (read_at(ctx.in, at, block, size_t{n} * std_entry_size) != size_t{n} * std_entry_size) break;
        uint32_t i = 0;
        for (; i < n; ++i) {
            const uint64_t data = r.base + load_le<uint32_t>(block + i * std_entry_size);
            const uint32_t size = load_le<uint32_t>(block + i * std_entry_size + 4) & size_bits;
            if (data + size > static_cast<uint64_t>(ctx.kept_end)) break;
            r.bytes += size;
            r.last_data = static_cast<int64_t>(data);
        }
        kept += i;
        if (i < n) break;
    }
    r.entries = kept;
}

}  // namespace

void settle_std_indexes(context &ctx) {
    for (uint32_t i = 0; i < ctx.ix_count; ++i) {
        ix_record &r = ctx.ix[i];
        trim(ctx, r);
        if (r.entries == 0) continue;
        stream_state &s = ctx.streams[r.stream];
        s.covered += r.entries;
        if (r.last_data > s.covered_end) s.covered_end = r.last_data;
        ++s.listed;
    }
    for (int32_t i = 0; i < ctx.stream_count; ++i) {
        stream_state &s = ctx.streams[i];
        if (s.indx_pos == 0) continue;
        if (!ctx.last_closed && s.chunks > s.covered) s.tail_room = s.chunks - s.covered;
        if (s.overflow || s.listed + (s.tail_room > 0 ? 1u : 0u) > s.indx_capacity) {
            s.overflow = true;
            s.tail_room = 0;
        }
    }
}

}  // namespace kelq::repair
