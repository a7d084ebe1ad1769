// A checkpoint writes an idx1 after the last chunk and the writer then goes
// on over it. When the file is cut before the new chunks have covered that
// idx1, its last records are still there, after the new chunks: bytes that
// must not be taken for data. They are found from the end of the file
// backwards, as records that describe chunks before the checkpoint.
#include "repair/movi_walk.h"

#include "repair/segments.h"
#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

constexpr uint32_t known_flags = 0x111;   // list, key frame, no time

struct old_index {
    int64_t movi_type;    // what the offsets count from
    int64_t first;        // first record position (after the old idx1 header)
    int64_t checkpoint;   // where the checkpoint's "movi" ended
};

// The id at the header an old record's offset names, if that header holds
// a chunk of the record's size before the checkpoint.
bool named_header(const context &ctx, const old_index &o, const uint8_t *record, uint32_t &id) {
    const int64_t header = o.movi_type + load_le<uint32_t>(record + 8);
    uint8_t b[8];
    if (header < o.movi_type + 4 || header + 8 > o.checkpoint || read_at(ctx.in, header, b, sizeof b) != sizeof b)
        return false;
    id = load_le<uint32_t>(b);
    return load_le<uint32_t>(b + 4) == load_le<uint32_t>(record + 12);
}

bool old_record(const context &ctx, const old_index &o, int64_t at) {
    uint8_t r[idx1_record_size];
    uint32_t id = 0;
    int32_t stream = -1, type = 0;
    if (read_at(ctx.in, at, r, sizeof r) != sizeof r) return false;
    return classify(ctx, load_le<uint32_t>(r), 0, stream, type) == chunk_kind::data &&
           (load_le<uint32_t>(r + 4) & ~known_flags) == 0 && named_header(ctx, o, r, id) &&
           id == load_le<uint32_t>(r);
}

// Inside the record just before the first whole old one, the new bytes end
// where the old record's fields stop agreeing: its offset and size, then
// its flags, then its id's bytes from the last.
int64_t partial_record_start(const context &ctx, const old_index &o, int64_t at) {
    uint8_t r[idx1_record_size];
    uint32_t id = 0;
    if (at < o.first || read_at(ctx.in, at, r, sizeof r) != sizeof r || !named_header(ctx, o, r, id))
        return at + idx1_record_size;
    if ((load_le<uint32_t>(r + 4) & ~known_flags) != 0) return at + 8;
    uint8_t expected[4];
    store_le<uint32_t>(id, expected);
    int64_t start = at + 4;
    for (int i = 3; i >= 0 && r[i] == expected[i]; --i) --start;
    return start;
}

}  // namespace

void find_stale_index(context &ctx) {
    const segment seg = first_segment(ctx);
    uint8_t b[8];
    if (seg.movi_end < 0 || read_at(ctx.in, 0, b, sizeof b) != sizeof b) return;
    // The form's size as the checkpoint wrote it: its idx1 ended there. Later
    // chunks that reached past that end left none of it; a file cut before
    // that end holds less of it.
    const int64_t old_end = 8 + int64_t{load_le<uint32_t>(b + 4)};
    if (old_end < ctx.file_size || read_at(ctx.in, seg.movi_end, b, 4) != 4) return;
    const int64_t end = ctx.file_size;
    int32_t stream = -1, type = 0;
    const chunk_kind at_end = classify(ctx, load_le<uint32_t>(b), 0, stream, type);
    if (at_end != chunk_kind::data && at_end != chunk_kind::index) return;
    const old_index o{ctx.movi0 + 8, seg.movi_end + 8, seg.movi_end};
    if (end < o.first + int64_t{idx1_record_size}) return;
    const int64_t grid_end = o.first + (end - o.first) / idx1_record_size * idx1_record_size;
    int64_t first_whole = grid_end;
    while (first_whole - int64_t{idx1_record_size} >= o.first &&
           old_record(ctx, o, first_whole - int64_t{idx1_record_size}))
        first_whole -= idx1_record_size;
    if (first_whole == grid_end) return;
    ctx.data_end = partial_record_start(ctx, o, first_whole - int64_t{idx1_record_size});
    ctx.idx1_records = first_whole;
    ctx.idx1_count = static_cast<uint64_t>(grid_end - first_whole) / idx1_record_size;
    ctx.idx1_base = o.movi_type;
}

}  // namespace kelq::repair
