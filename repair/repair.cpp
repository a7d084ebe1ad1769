// aviout_repair: the passes in order. Read-only until the file is known to
// need writing; then the appended indexes, the truncation, the header fields.
#include "repair/rebuild.h"

#include "riff/fourcc_ids.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace kelq::repair {

uint32_t replay_limit = max_replay_items;

namespace {

void fill_report(const context &ctx, const layout &l, aviout_repair_report &rep) {
    rep.stream_count = ctx.stream_count;
    rep.segments = ctx.segments;
    rep.index_entries = l.idx1_written;
    rep.drop_cause = ctx.drop_cause;
    rep.drop_offset = ctx.drop_offset;
    rep.dropped_bytes = ctx.drop_offset >= 0 ? ctx.file_size - ctx.drop_offset : 0;
    for (int32_t i = 0; i < ctx.stream_count; ++i) {
        const stream_state &s = ctx.streams[i];
        aviout_repair_stream &out = rep.streams[i];
        out.type = s.type;
        out.codec = s.type == ids::type_vids || s.type == ids::type_auds ? s.compression : s.handler;
        out.chunks = s.chunks;
        out.key_frames = s.key_frames;
        out.bytes = s.bytes;
        out.length = s.length;
        if (s.indx_pos != 0 && !s.overflow) out.std_indexes = s.listed + (s.tail_entries > 0 ? 1 : 0);
        if (s.tail_entries > 0) ++rep.std_indexes_added;
    }
}

// Room for the first pass's data chunks: as many as the file can hold,
// up to the limit. Without it the second pass reads the file again.
void hold_replay(context &ctx) {
    const uint64_t fit = static_cast<uint64_t>(ctx.file_size) / 8;
    const uint32_t room = fit < replay_limit ? static_cast<uint32_t>(fit) : replay_limit;
    if (room == 0) return;
    ctx.replay = static_cast<replay_item *>(std::malloc(size_t{room} * sizeof(replay_item)));
    ctx.replay_room = ctx.replay != nullptr ? room : 0;
    ctx.replay_whole = ctx.replay != nullptr;
}

int64_t size_of(FILE *f) {
    if (file_seek(f, 0, 2) != 0) return -1;
    return file_tell(f);
}

// Writes what the plan says; false when a write failed (the file may then be
// half repaired).
bool write_repair(context &ctx, layout &l, const char *path, aviout_repair_report &rep) {
    FILE *out = file_open(path, 4);
    if (out == nullptr) return false;
    // Every write is a block of its own, at its own position.
    std::setvbuf(out, nullptr, _IONBF, 0);
    rep.changed = 1;
    bool ok = rebuild_indexes(ctx, l, out);
    ok = ok && place_appended(ctx, l, out);
    ok = ok && patch_header(ctx, l, out);
    return file_close(out) == 0 && ok;
}

int repair_open_file(context &ctx, const char *path, aviout_repair_report &rep) {
    ctx.file_size = size_of(ctx.in);
    ctx.data_end = ctx.file_size;
    rep.file_size = rep.repaired_size = ctx.file_size;
    if (ctx.file_size < 0) {
        rep.problem = AVIOUT_REPAIR_CANNOT_READ;
        return 1;
    }
    if (!scan_header(ctx)) {
        rep.problem = ctx.problem;
        return 1;
    }
    find_stale_index(ctx);
    hold_replay(ctx);
    scan_segments(ctx);
    settle_std_indexes(ctx);
    layout l = plan_layout(ctx);
    const bool whole = ctx.last_closed && !ctx.trailing && ctx.drop_offset < 0;
    if (whole) {
        rebuild_indexes(ctx, l, nullptr);
        fill_report(ctx, l, rep);
        return 0;
    }
    const bool written = write_repair(ctx, l, path, rep);
    fill_report(ctx, l, rep);
    if (!written) {
        rep.problem = AVIOUT_REPAIR_CANNOT_WRITE;
        return 1;
    }
    rep.repaired_size = l.file_end;
    return ctx.drop_offset >= 0 ? 3 : 0;
}

}  // namespace

}  // namespace kelq::repair

using namespace kelq::repair;

extern "C" int aviout_repair(const char *path, uint32_t swapped_ids, aviout_repair_report *report) {
    aviout_repair_report local;
    aviout_repair_report &rep = report != nullptr ? *report : local;
    std::memset(&rep, 0, sizeof rep);
    rep.drop_offset = -1;
    void *block = std::calloc(1, sizeof(context));
    if (block == nullptr) {
        rep.problem = AVIOUT_REPAIR_CANNOT_READ;
        return 1;
    }
    context &ctx = *new (block) context;
    ctx.swapped = swapped_ids;
    ctx.in = file_open(path, 0);
    int result = 1;
    if (ctx.in == nullptr) {
        rep.problem = AVIOUT_REPAIR_CANNOT_READ;
    } else {
        // Reads go to the walk's window and the passes' own buffers.
        std::setvbuf(ctx.in, nullptr, _IONBF, 0);
        result = repair_open_file(ctx, path, rep);
        file_close(ctx.in);
    }
    std::free(ctx.replay);
    std::free(block);
    return result;
}
