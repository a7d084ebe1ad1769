// The state of one repair: what the header lists say, what the walk of the
// data found, and the fixed buffers the passes share. One block, allocated
// once per call; nothing in it grows with the file.
#pragma once

#include "kelqavi.h"
#include "riff/file_extent.h"

#include <cstdint>
#include <cstdio>

namespace kelq::repair {

constexpr int32_t max_streams = AVIOUT_REPAIR_STREAMS;
constexpr uint32_t max_ix_records = 1024;       // standard index chunks remembered, all streams
constexpr size_t window_size = 64 * 1024;      // bytes of the file held for the chunk walk
constexpr size_t header_read = 1024;            // read when a window served few headers
constexpr uint32_t idx1_record_size = 16;
constexpr uint32_t std_entry_size = 8;
constexpr uint32_t index_header_size = 24;     // after an index chunk's 8-byte header
constexpr uint32_t super_entry_size = 16;
constexpr uint32_t idx1_key_frame = 0x10;
constexpr uint32_t idx1_no_time = 0x100;
constexpr uint32_t std_not_key = 0x80000000u;
constexpr uint32_t avih_has_index = 0x10;
constexpr uint32_t placeholder_size = 0xFFFFFFFFu;

// Data chunks the first pass met, held for the second so that a file of up
// to this many chunks is read once: 16 bytes each, 1 MiB at most, and never
// more than the file's length allows (a chunk takes at least 8 bytes).
constexpr uint32_t max_replay_items = 65536;
// The first pass's data chunks in file order. where: the position (48 bits),
// the stream (8), the type code (4), the first RIFF (1), and whether the
// chunk's first bytes start a key frame (2: 0 not looked at, 1 no, 2 yes).
struct replay_item {
    uint64_t where;
    uint32_t id;
    uint32_t size;
};
static_assert(sizeof(replay_item) == 16, "a replay item is 16 bytes");

// How a stream's chunks are taken as key frames when no index says.
enum class key_rule : uint8_t { always, mpeg4, h264 };

struct stream_state {
    uint32_t type = 0;          // strh type
    uint32_t handler = 0;       // strh handler
    uint32_t compression = 0;   // strf compression of a "vids" stream, format tag of an "auds" one
    uint32_t sample_size = 0;
    int64_t strh_data = 0;      // position of the strh payload
    int64_t indx_pos = 0;       // position of the indx chunk's id; 0 without one
    uint32_t indx_capacity = 0; // entries the indx chunk has room for
    key_rule rule = key_rule::always;
    // Counted over the kept chunks.
    uint32_t chunks = 0, length = 0, max_size = 0, key_frames = 0;
    uint64_t bytes = 0;
    // OpenDML: the kept standard indexes, and the final one appended.
    uint32_t covered = 0;       // entries of the kept standard indexes
    int64_t covered_end = 0;    // data position of the last of them
    uint32_t listed = 0;        // kept standard indexes the super index will list
    bool overflow = false;      // more standard indexes than could be remembered or listed
    uint32_t tail_room = 0;     // entries reserved for the final standard index
    int64_t tail_pos = 0;       // its position (0: none)
    uint32_t tail_entries = 0;  // entries written to it
    uint64_t tail_bytes = 0;    // their data sizes
    int64_t tail_base = 0;      // its base: the header of its first chunk
};

// A standard index chunk met in the data.
struct ix_record {
    int64_t pos;            // the chunk's id
    uint64_t base;          // qwBaseOffset
    int64_t last_data;      // data position of its last entry kept
    uint32_t entries;       // entries in use (trimmed to the kept data after the walk)
    uint32_t stored;        // entries in use as the chunk says
    uint32_t size;          // its size field
    uint64_t bytes;         // data sizes of the entries kept
    int32_t stream;         // the stream of the chunk its first entry names; -1 unknown
};

// How the walk of a segment's "movi" ended.
enum class walk_end : uint8_t {
    at_size,   // at the end its size gives
    at_eof,    // at the end of the file, between two chunks
    at_idx1,   // at an "idx1" chunk ("movi" size stale or placeholder)
    dropped    // at a chunk cut short or unreadable
};

struct context {
    FILE *in = nullptr;
    int64_t file_size = 0;
    int64_t data_end = 0;       // the end of the bytes that can be data (before a stale index tail)
    uint32_t swapped = 0;
    uint32_t problem = AVIOUT_REPAIR_NO_PROBLEM;

    stream_state streams[max_streams];
    int32_t stream_count = 0;
    int64_t avih_data = 0;
    int64_t dmlh_data = 0;      // 0 without "odml"/"dmlh"
    int64_t movi0 = 0;          // the first "movi" LIST header

    // The segments kept.
    uint32_t segments = 0;
    int64_t last_segment = 0;   // RIFF header of the last kept segment
    int64_t last_movi = 0;      // its "movi" LIST header
    bool last_closed = false;   // it ends where its sizes say (and the first RIFF has its idx1)
    bool trailing = false;      // bytes after the last segment were dropped
    int64_t kept_end = 0;       // end of the kept data of the last segment (pad byte included)
    int64_t wrapper = 0;        // the "JUNK" header a checkpoint left where "movi" ended; 0 none
    bool pad_missing = false;   // the last kept chunk lacks its pad byte
    int64_t drop_offset = -1;
    uint32_t drop_cause = AVIOUT_REPAIR_DROP_NONE;

    // A legacy index that survives, read for key-frame flags.
    int64_t idx1_records = 0;   // position of its first record (0: none)
    uint64_t idx1_count = 0;    // whole records there
    int64_t idx1_base = -1;     // what its offsets count from; -1 not known yet
    bool idx1_whole = false;    // a complete idx1 right after the first "movi"

    uint32_t first_riff_records = 0;  // idx1 records the first RIFF's chunks give
    uint32_t first_riff_frames = 0;   // video frames of the first RIFF
    uint32_t total_frames = 0;        // video frames of every segment kept

    ix_record ix[max_ix_records];
    uint32_t ix_count = 0;
    bool ix_overflow = false;

    // The last data chunk ids classified, and what they are: the chunks of
    // a recording cycle through a few ids.
    struct id_memo {
        uint32_t id = 0;
        int32_t stream = -1;
        int32_t type = 0;
    };
    mutable id_memo ids_seen[4];
    mutable uint32_t ids_next = 0;

    // The first pass's data chunks for the second (a block of its own, null
    // when it cannot be had); replay_whole while every one met is held.
    replay_item *replay = nullptr;
    uint32_t replay_room = 0;
    uint32_t replay_count = 0;
    bool replay_whole = false;

    // The bytes last read for the walk. Small chunks are read a whole
    // window at a time; when a window serves few headers (large chunks),
    // only each header and the start of its data are read, until such a
    // read serves more than one.
    struct read_window {
        int64_t pos = 0;
        size_t held = 0;
        uint32_t served = 0;   // requests the bytes held have answered
        bool whole = true;     // windows are read whole
        uint8_t buf[window_size];
    };
    mutable read_window window;
};

// Items the replay may hold at most; tests set it lower to run the second
// pass over the file.
extern uint32_t replay_limit;

// Bytes read at a position; fewer at the end of the file or on failure.
using kelq::read_at;
// Whole write at a position; false when it failed.
bool write_at(FILE *f, int64_t pos, const void *src, size_t count);

// count bytes at pos from the walk's window, read into it when they are not
// there (with fill false, null instead); null when the file holds fewer.
const uint8_t *window_read(const context &ctx, int64_t pos, size_t count, bool fill = true);

// The header lists: RIFF "AVI ", hdrl (avih, strl lists, odml), the first
// "movi". false with ctx.problem set when the file cannot be repaired.
bool scan_header(context &ctx);

// The walk of every segment: what is kept, the counts, the standard index
// chunks, the segment that is last. Reads only.
void scan_segments(context &ctx);

// The checkpoint index tail: narrows ctx.data_end when the bytes at the end of
// the file are the idx1 a checkpoint wrote and later chunks did not reach.
void find_stale_index(context &ctx);

// After the walk: trims the standard index chunks to the kept data and works
// out what each stream's super index will list.
void settle_std_indexes(context &ctx);

}  // namespace kelq::repair
