// Walking the chunks of a "movi" list: what each chunk is, and where the
// walk must stop because a chunk is cut short or cannot be read.
#pragma once

#include "repair/repair_state.h"

namespace kelq::repair {

enum class chunk_kind : uint8_t {
    data,       // a data chunk of a declared stream
    index,      // a standard index chunk (ix##)
    filler,     // JUNK, RES1..3, a LIST or RIFF kept whole
    rec_list,   // LIST "rec ": a group of data chunks
    idx1,       // the legacy index
    unknown
};

struct chunk_item {
    int64_t pos = 0;      // the chunk's id
    uint32_t id = 0;
    uint32_t size = 0;
    chunk_kind kind = chunk_kind::unknown;
    int32_t stream = -1;  // data chunks
    int32_t type = 0;     // data chunks: the type code (1 "wb", 2 "db", 3 "dc", 4 "dd", ...)
    int64_t data() const { return pos + 8; }
};

// What a chunk id (and, for lists, list type) is in this file.
chunk_kind classify(const context &ctx, uint32_t id, uint32_t list_type, int32_t &stream, int32_t &type);

// True for a type code that counts as a video frame ("dc", "db").
inline bool is_frame(int32_t type) { return type == KELQAVI_CHUNK_VIDEO || type == KELQAVI_CHUNK_VIDEO_RAW; }

// Called for every data chunk and index chunk the walk keeps, in file
// order; the chunks of a "rec " group one by one.
struct chunk_visitor {
    void (*visit)(void *self, const chunk_item &item);
    void *self;
};

struct walk_result {
    walk_end end = walk_end::at_eof;
    int64_t stop = 0;          // where the walk ended: the end of the last chunk kept
    uint32_t cause = AVIOUT_REPAIR_DROP_NONE;
    bool pad_missing = false;  // the last chunk kept ends at the end of the file without its pad byte
    bool stale = false;        // chunks went on past the list's size
    int64_t wrapper = 0;       // a checkpoint's "JUNK" header where the size ended; 0 none
};

// Walks from the first chunk of the "movi" list whose header is at movi.
// size_end: where its size says it ends, or -1 when the size cannot be
// right. With go_on, data chunks found where the size ends show the size to
// be stale and the walk goes on; so does the header of a "JUNK" chunk there
// that runs past the end of the file (a checkpoint's: the chunks written
// after it lie inside it), which the walk steps into. The header at
// ctx.wrapper is stepped into too. Never reads at or past ctx.data_end.
walk_result walk_movi(const context &ctx, int64_t movi, int64_t size_end, bool go_on, const chunk_visitor &v);

// The end a list's size gives when it can be right (not a placeholder, not
// below the list type, not past limit); -1 otherwise.
int64_t sized_end(int64_t pos, uint32_t size, int64_t limit);

// A data chunk as the replay holds it: the position in 48 bits, then the
// stream (8), the type code (4), the first RIFF (1) and the look at its
// first bytes (2). False when the position does not fit.
constexpr int replay_position_bits = 48;
static_assert(max_streams <= 0xFF && KELQAVI_CHUNK_CHAPTER <= 0xF, "a data chunk's stream and type fit their bits");

inline bool pack_replay(const chunk_item &c, bool first_riff, uint8_t looked, replay_item &r) {
    const auto pos = static_cast<uint64_t>(c.pos);
    if (pos >> replay_position_bits != 0) return false;
    r.where = pos | uint64_t(c.stream) << 48 | uint64_t(c.type) << 56 | uint64_t{first_riff} << 60 |
              uint64_t{looked} << 61;
    r.id = c.id;
    r.size = c.size;
    return true;
}

inline chunk_item unpack_replay(const replay_item &r, bool &first_riff, uint8_t &looked) {
    chunk_item c;
    c.pos = static_cast<int64_t>(r.where & ((uint64_t{1} << replay_position_bits) - 1));
    c.id = r.id;
    c.size = r.size;
    c.kind = chunk_kind::data;
    c.stream = static_cast<int32_t>(r.where >> 48 & 0xFF);
    c.type = static_cast<int32_t>(r.where >> 56 & 0xF);
    first_riff = (r.where >> 60 & 1) != 0;
    looked = static_cast<uint8_t>(r.where >> 61 & 3);
    return c;
}

}  // namespace kelq::repair
