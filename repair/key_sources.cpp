#include "repair/key_sources.h"

#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

constexpr uint32_t base_probes = 8;   // idx1 records tried to tell what offsets count from

// Whether the chunk header at pos carries the id and size of an idx1 record.
bool header_matches(const context &ctx, int64_t pos, const uint8_t *record) {
    uint8_t b[8];
    return pos >= 0 && read_at(ctx.in, pos, b, sizeof b) == sizeof b && load_le<uint32_t>(b) == load_le<uint32_t>(record) &&
           load_le<uint32_t>(b + 4) == load_le<uint32_t>(record + 12);
}

// Loads record n into the buffer if it is not there; false past the end.
bool idx1_record(key_sources &k, uint64_t n, const uint8_t *&record) {
    idx1_cursor &c = k.idx1;
    if (n >= k.ctx->idx1_count) return false;
    if (n < c.first || n >= c.first + c.held) {
        const uint64_t left = k.ctx->idx1_count - n;
        const uint32_t want = left < idx1_records_per_read ? static_cast<uint32_t>(left) : idx1_records_per_read;
        const int64_t at = k.ctx->idx1_records + static_cast<int64_t>(n * idx1_record_size);
        c.first = n;
        c.held = static_cast<uint32_t>(read_at(k.ctx->in, at, c.buf, size_t{want} * idx1_record_size) /
                                       idx1_record_size);
        if (c.held == 0) return false;
    }
    record = c.buf + (n - c.first) * idx1_record_size;
    return true;
}

// Offsets count from the "movi" type code, or from the start of the file:
// the first record whose chunk header carries its id and size says which.
int64_t idx1_base(key_sources &k) {
    const context &ctx = *k.ctx;
    const int64_t movi_type = ctx.movi0 + 8;
    for (uint64_t n = 0; n < base_probes; ++n) {
        const uint8_t *r = nullptr;
        if (!idx1_record(k, n, r)) break;
        const int64_t offset = load_le<uint32_t>(r + 8);
        if (header_matches(ctx, movi_type + offset, r)) return movi_type;
        if (header_matches(ctx, offset, r)) return 0;
    }
    return -2;
}

bool from_idx1(key_sources &k, const chunk_item &c, uint32_t &flags) {
    idx1_cursor &cur = k.idx1;
    if (cur.base == -1) cur.base = k.ctx->idx1_base >= 0 ? k.ctx->idx1_base : idx1_base(k);
    if (cur.base < 0) return false;
    const uint8_t *r = nullptr;
    while (idx1_record(k, cur.next, r)) {
        const int64_t header = cur.base + load_le<uint32_t>(r + 8);
        if (header > c.pos) return false;
        ++cur.next;
        if (header == c.pos && load_le<uint32_t>(r) == c.id) {
            flags = load_le<uint32_t>(r + 4);
            return true;
        }
    }
    return false;
}

// Entry n of standard index record r, loaded into the stream's buffer.
const uint8_t *std_entry(key_sources &k, ix_cursor &cur, const ix_record &r, uint32_t n) {
    if (n < cur.first || n >= cur.first + cur.held) {
        const uint32_t left = r.entries - n;
        const uint32_t want = left < std_entries_per_read ? left : std_entries_per_read;
        const int64_t at = r.pos + 8 + index_header_size + int64_t{n} * std_entry_size;
        cur.first = n;
        cur.held = static_cast<uint32_t>(read_at(k.ctx->in, at, cur.buf, size_t{want} * std_entry_size) /
                                         std_entry_size);
        if (cur.held == 0) return nullptr;
    }
    return cur.buf + (n - cur.first) * std_entry_size;
}

bool from_std_index(key_sources &k, const chunk_item &c, bool &key) {
    const context &ctx = *k.ctx;
    ix_cursor &cur = k.ix[c.stream];
    while (cur.record < ctx.ix_count) {
        const ix_record &r = ctx.ix[cur.record];
        const uint8_t *e = r.stream == c.stream && cur.entry < r.entries ? std_entry(k, cur, r, cur.entry) : nullptr;
        if (e == nullptr) {
            ++cur.record;
            cur.entry = 0;
            cur.held = 0;
            continue;
        }
        const uint64_t data = r.base + load_le<uint32_t>(e);
        if (data > static_cast<uint64_t>(c.data())) return false;
        ++cur.entry;
        if (data == static_cast<uint64_t>(c.data())) {
            key = (load_le<uint32_t>(e + 4) & std_not_key) == 0;
            return true;
        }
    }
    return false;
}

bool needs_look(const context &ctx, const chunk_item &c) {
    return is_frame(c.type) && ctx.streams[c.stream].rule != key_rule::always;
}

bool assumed_key(key_sources &k, const chunk_item &c, uint8_t looked) {
    if (!needs_look(*k.ctx, c)) return true;
    if (looked != 0) return looked == 2;
    const key_rule rule = k.ctx->streams[c.stream].rule;
    const size_t want = c.size < look_size ? c.size : look_size;
    const uint8_t *held = window_read(*k.ctx, c.data(), want, false);
    if (held != nullptr) return starts_key_frame(rule, held, want);
    const size_t got = want == 0 ? 0 : read_at(k.ctx->in, c.data(), k.look, want);
    return starts_key_frame(rule, k.look, got);
}

}  // namespace

void init_key_sources(key_sources &k, const context &ctx) {
    k.ctx = &ctx;
    k.idx1.base = ctx.idx1_records != 0 ? -1 : -2;
}

uint8_t look_in_window(const context &ctx, const chunk_item &c) {
    if (!needs_look(ctx, c)) return 0;
    const size_t want = c.size < look_size ? c.size : look_size;
    const uint8_t *held = window_read(ctx, c.data(), want, false);
    if (held == nullptr) return 0;
    return starts_key_frame(ctx.streams[c.stream].rule, held, want) ? 2 : 1;
}

uint32_t chunk_flags(key_sources &k, const chunk_item &c, uint8_t looked) {
    uint32_t flags = 0;
    if (from_idx1(k, c, flags)) return flags;
    const uint32_t no_time = c.type == KELQAVI_CHUNK_VIDEO_DATA ? idx1_no_time : 0;
    bool key = false;
    if (from_std_index(k, c, key)) return (key ? idx1_key_frame : 0) | no_time;
    if (c.type == KELQAVI_CHUNK_VIDEO_DATA) return no_time;
    return assumed_key(k, c, looked) ? idx1_key_frame : 0;
}

}  // namespace kelq::repair
