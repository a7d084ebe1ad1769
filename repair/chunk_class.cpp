// What a chunk met in "movi" is: a data chunk of one of the file's streams,
// an index, a filler or list kept as it is, the legacy index, or something
// that cannot be read (where the kept data ends).
#include "repair/movi_walk.h"

#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

bool is_digit(uint8_t c) { return c >= '0' && c <= '9'; }

// "ix00", "ix0" and a zero byte (this library's writer), or an id the
// chunk-type test calls an index ("00ix").
bool is_index_id(uint32_t id, uint32_t swapped) {
    uint8_t c[4];
    store_le<uint32_t>(id, c);
    if (c[0] == 'i' && c[1] == 'x' && is_digit(c[2]) && (is_digit(c[3]) || c[3] == 0)) return true;
    return get_chunk_type(id, swapped) == KELQAVI_CHUNK_INDEX;
}

// What the id is, worked out afresh.
chunk_kind classify_id(const context &ctx, uint32_t id, uint32_t list_type, int32_t &stream, int32_t &type) {
    if (id == ids::id_idx1 || id == ids::id_idx1_swapped) return chunk_kind::idx1;
    if (id == ids::id_list && list_type == fourcc("rec ")) return chunk_kind::rec_list;
    if (id == ids::id_list || id == ids::id_riff) return chunk_kind::filler;
    if (is_index_id(id, ctx.swapped)) return chunk_kind::index;
    const int32_t t = get_chunk_type(id, ctx.swapped);
    if (t == KELQAVI_CHUNK_JUNK || t == KELQAVI_CHUNK_RESERVED) return chunk_kind::filler;
    if (t < KELQAVI_CHUNK_AUDIO || t > KELQAVI_CHUNK_CHAPTER) return chunk_kind::unknown;
    const uint32_t s = fourCC_streamID(id, ctx.swapped);
    if (s >= static_cast<uint32_t>(ctx.stream_count)) return chunk_kind::unknown;
    stream = static_cast<int32_t>(s);
    type = t;
    return chunk_kind::data;
}

}  // namespace

// Data chunk ids are remembered: a recording cycles through a few of them.
chunk_kind classify(const context &ctx, uint32_t id, uint32_t list_type, int32_t &stream, int32_t &type) {
    for (const context::id_memo &m : ctx.ids_seen)
        if (m.id == id && m.id != 0) {
            stream = m.stream;
            type = m.type;
            return chunk_kind::data;
        }
    const chunk_kind kind = classify_id(ctx, id, list_type, stream, type);
    if (kind == chunk_kind::data) {
        ctx.ids_seen[ctx.ids_next] = {id, stream, type};
        ctx.ids_next = (ctx.ids_next + 1) % 4;
    }
    return kind;
}

int64_t sized_end(int64_t pos, uint32_t size, int64_t limit) {
    if (size == placeholder_size || size < 4) return -1;
    const int64_t end = pos + 8 + size;
    return end <= limit ? end : -1;
}

}  // namespace kelq::repair
