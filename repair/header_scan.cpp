// The header lists of the file to repair: where the counts to rewrite lie,
// what each stream is, and where the first "movi" list begins. Every chunk
// before "movi" must be whole: a file cut inside them is not repaired.
#include "repair/repair_state.h"

#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"

namespace kelq::repair {

namespace {

using namespace ids;

constexpr uint32_t min_avih_size = 56;
constexpr uint32_t min_strh_size = 48;
constexpr int64_t strh_handler_at = 4;
constexpr int64_t strh_sample_size_at = 44;
constexpr int64_t strf_compression_at = 16;
constexpr uint32_t super_index_type = 0;
constexpr uint16_t super_longs_per_entry = 4;

struct head {
    uint32_t id = 0, size = 0, type = 0;
    int64_t pos = 0;
    int64_t end() const { return pos + 8 + size; }
    int64_t next() const { return end() + (size & 1); }
};

// The header of the chunk at pos, with the list type for lists; false when
// it does not fit before limit.
bool read_head(const context &ctx, int64_t pos, int64_t limit, head &h) {
    uint8_t b[12];
    const size_t want = pos + 12 <= limit ? 12 : 8;
    if (pos + 8 > limit || read_at(ctx.in, pos, b, want) != want) return false;
    h.pos = pos;
    h.id = load_le<uint32_t>(b);
    h.size = load_le<uint32_t>(b + 4);
    h.type = want == 12 ? load_le<uint32_t>(b + 8) : 0;
    return true;
}

bool ci_equal(uint32_t a, const char (&text)[5]) { return fourCC_equal(a, fourcc(text)) != 0; }

key_rule rule_of(uint32_t compression) {
    static constexpr const char mpeg4[][5] = {"XVID", "DIVX", "DX50", "FMP4", "MP4V", "M4S2", "MP4S", "3IV2",
                                              "KQ50", "RMP4", "SMP4", "UMP4", "DM4V", "XVIX"};
    static constexpr const char h264[][5] = {"H264", "X264", "AVC1", "DAVC", "VSSH"};
    for (const auto &c : mpeg4)
        if (ci_equal(compression, c)) return key_rule::mpeg4;
    for (const auto &c : h264)
        if (ci_equal(compression, c)) return key_rule::h264;
    return key_rule::always;
}

uint32_t read_u32(const context &ctx, int64_t pos) {
    uint8_t b[4] = {};
    read_at(ctx.in, pos, b, sizeof b);
    return load_le<uint32_t>(b);
}

// An indx that is a super index: its position and the entries it has room for.
void take_indx(context &ctx, stream_state &s, const head &h) {
    uint8_t b[index_header_size];
    if (h.size < index_header_size || read_at(ctx.in, h.pos + 8, b, sizeof b) != sizeof b) return;
    if (load_le<uint16_t>(b) != super_longs_per_entry || b[3] != super_index_type) return;
    s.indx_pos = h.pos;
    s.indx_capacity = (h.size - index_header_size) / super_entry_size;
}

bool scan_strl(context &ctx, const head &list) {
    if (ctx.stream_count >= max_streams) {
        ctx.problem = AVIOUT_REPAIR_TOO_MANY_STREAMS;
        return false;
    }
    stream_state &s = ctx.streams[ctx.stream_count++];
    head h;
    for (int64_t at = list.pos + 12; read_head(ctx, at, list.end(), h); at = h.next()) {
        if (h.end() > list.end()) return false;
        if (h.id == id_strh && h.size >= min_strh_size) {
            s.strh_data = h.pos + 8;
            s.type = read_u32(ctx, s.strh_data);
            s.handler = read_u32(ctx, s.strh_data + strh_handler_at);
            s.sample_size = read_u32(ctx, s.strh_data + strh_sample_size_at);
        } else if (h.id == id_strf && s.type == type_vids && h.size >= strf_compression_at + 4) {
            s.compression = read_u32(ctx, h.pos + 8 + strf_compression_at);
            s.rule = rule_of(s.compression);
        } else if (h.id == id_strf && s.type == type_auds && h.size >= 2) {
            s.compression = read_u32(ctx, h.pos + 8) & 0xFFFFu;   // the format tag
        } else if (h.id == id_indx) {
            take_indx(ctx, s, h);
        }
    }
    return true;
}

bool scan_odml(context &ctx, const head &list) {
    head h;
    for (int64_t at = list.pos + 12; read_head(ctx, at, list.end(), h); at = h.next()) {
        if (h.end() > list.end()) return false;
        if (h.id == fourcc("dmlh") && h.size >= 4) ctx.dmlh_data = h.pos + 8;
    }
    return true;
}

bool scan_hdrl(context &ctx, const head &list) {
    head h;
    for (int64_t at = list.pos + 12; read_head(ctx, at, list.end(), h); at = h.next()) {
        if (h.end() > list.end()) return false;
        bool ok = true;
        if (h.id == id_avih && h.size >= min_avih_size)
            ctx.avih_data = h.pos + 8;
        else if (h.id == id_list && h.type == id_strl)
            ok = scan_strl(ctx, h);
        else if (h.id == id_list && h.type == id_odml)
            ok = scan_odml(ctx, h);
        if (!ok) return false;
    }
    return ctx.avih_data != 0;
}

bool fail(context &ctx, uint32_t problem) {
    if (ctx.problem == AVIOUT_REPAIR_NO_PROBLEM) ctx.problem = problem;
    return false;
}

}  // namespace

bool scan_header(context &ctx) {
    head form;
    if (!read_head(ctx, 0, ctx.file_size, form) || form.id != id_riff)
        return fail(ctx, ctx.file_size >= 4 || ctx.file_size == 0 ? AVIOUT_REPAIR_NOT_AVI : AVIOUT_REPAIR_BAD_HEADER);
    if (ctx.file_size < 12) return fail(ctx, AVIOUT_REPAIR_BAD_HEADER);
    if (form.type != type_avi) return fail(ctx, AVIOUT_REPAIR_NOT_AVI);
    bool hdrl = false;
    head h;
    int64_t at = 12;
    for (; read_head(ctx, at, ctx.file_size, h); at = h.next()) {
        if (h.id == id_list && h.type == type_movi && at + 12 <= ctx.file_size) {
            if (!hdrl) return fail(ctx, AVIOUT_REPAIR_BAD_HEADER);
            ctx.movi0 = at;
            return true;
        }
        if (h.end() > ctx.file_size) return fail(ctx, AVIOUT_REPAIR_BAD_HEADER);
        if (h.id == id_list && h.type == type_hdrl) {
            if (hdrl || !scan_hdrl(ctx, h)) return fail(ctx, AVIOUT_REPAIR_BAD_HEADER);
            hdrl = true;
        }
    }
    return fail(ctx, at >= ctx.file_size ? AVIOUT_REPAIR_NO_MOVI : AVIOUT_REPAIR_BAD_HEADER);
}

}  // namespace kelq::repair
