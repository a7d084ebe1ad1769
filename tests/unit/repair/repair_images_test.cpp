// aviout_repair over byte images, one rule each: a cut in the header, an
// unreadable id, placeholder sizes with type-first ids, an idx1 counting from
// the start of the file, two segments, "rec " groups, and key frames told
// from the bitstream. Cuts at every other place are the sweep's, and whole
// files are left alone by the tool's tests.
#include <gtest/gtest.h>

#include <cctype>

#include "repair/repair_state.h"
#include "support/avi_image.h"
#include "unit/reader/reader_images.h"
#include "unit/repair/repair_check.h"

using namespace kelqtest;

namespace {

struct case_file {
    std::vector<uint8_t> bytes;
    std::vector<kept_chunk> kept;   // what must be left, in order
    int result = 0;
    uint32_t cause = AVIOUT_REPAIR_DROP_NONE;
    uint32_t problem = AVIOUT_REPAIR_NO_PROBLEM;
    uint32_t swapped = 0;
    uint32_t segments = 1;
};

const byte_image mjpeg_pcm = hdrl({video_list(1, 25, "MJPG"), audio_strl()});

// Six chunks, odd sizes among them; the middle video frame is no key frame.
std::vector<planned> six_chunks(const char *video = "00dc", const char *audio = "01wb") {
    return {{video, filler(31, 1), true}, {audio, filler(20, 2), true}, {video, filler(25, 3), false},
            {audio, filler(20, 4), true}, {video, filler(40, 5), true}, {audio, filler(21, 6), true}};
}

// The first n planned chunks, with key flags as the repair must find them:
// from a surviving index (as planned) or, without one, all key (MJPEG, PCM).
std::vector<kept_chunk> first(const std::vector<planned> &p, size_t n, bool index_survives) {
    std::vector<kept_chunk> out;
    for (size_t i = 0; i < n; ++i) out.push_back({p[i].id, p[i].data.bytes(), index_survives ? p[i].key : true});
    return out;
}

// The sizes a cut recording leaves: RIFF and movi at the placeholder.
std::vector<uint8_t> unpatched(indexed_file f) {
    f.bytes.set_u32(4, 0xFFFFFFFFu).set_u32(static_cast<size_t>((f.movi_data - 12)) + 4, 0xFFFFFFFFu);
    return f.bytes.bytes();
}

size_t at(const indexed_file &f, size_t chunk, size_t plus) { return static_cast<size_t>(f.chunks[chunk].header) + plus; }

// Video chunks whose bytes alone say whether they are key frames: no index
// tells, and the key flags planned are the ones the repair must find.
case_file bitstream(const char *codec, const std::vector<planned> &p) {
    return {unpatched(make_indexed(hdrl({video_list(1, 25, codec)}), p, index_offsets::movi_relative, false)),
            first(p, p.size(), true)};
}

byte_image vop(uint8_t coding_type) { return byte_image().raw({0, 0, 1, 0xB6, static_cast<uint8_t>(coding_type << 6), 1, 2, 3}); }
byte_image nal(std::initializer_list<uint8_t> types) {
    byte_image b;
    for (uint8_t t : types) b.raw({0, 0, 0, 1, static_cast<uint8_t>(0x60 | t), 9, 9});
    return b;
}

// RIFF "AVI " with two chunks and idx1, then "AVIX" whose fourth chunk is
// cut; the AVIX sizes end after two chunks, as a checkpoint leaves them, and
// two more follow.
case_file two_segments() {
    const std::vector<planned> p = six_chunks();
    byte_image closed, later, whole = make_indexed(mjpeg_pcm, {p[0], p[1]}).bytes;
    for (size_t i = 2; i < 6; ++i) (i >= 4 ? later : closed).chunk(p[i].id.c_str(), p[i].data);
    whole.append(avi_form(movi(closed), "AVIX")).append(later);
    return {whole.prefix(whole.size() - 10), first(p, 5, false), 3, AVIOUT_REPAIR_DROP_CUT, 0, 0, 2};
}

// A checkpoint that wrote an idx1 after the data, and one chunk written
// since over its start: the index's last records, still there after the new
// chunk, are not data, and give the key frames of the chunks they describe.
case_file checkpoint_index_tail() {
    const std::vector<planned> p = {{"00dc", filler(31, 1), true}, {"01wb", filler(20, 2), true},
                                    {"00dc", filler(25, 3), true}, {"00dc", filler(40, 5), false}};
    const indexed_file f = make_indexed(mjpeg_pcm, p);
    const size_t checkpoint = static_cast<size_t>(f.chunks.back().header) + 8 + 40;
    const planned later{"01wb", filler(21, 7), true};
    std::vector<uint8_t> bytes = f.bytes.bytes();
    const std::vector<uint8_t> chunk = byte_image().chunk(later.id.c_str(), later.data).bytes();
    std::copy(chunk.begin(), chunk.end(), bytes.begin() + static_cast<long>(checkpoint));
    std::vector<kept_chunk> kept = first(p, 4, true);
    kept[0].key = kept[1].key = true;   // their records were overwritten: assumed
    kept.push_back({later.id, later.data.bytes(), true});
    return {bytes, kept};
}

// A "rec " group of two chunks, then a chunk cut short.
case_file rec_group() {
    const std::vector<planned> p = six_chunks();
    byte_image group;
    group.chunk(p[0].id.c_str(), p[0].data).chunk(p[1].id.c_str(), p[1].data);
    byte_image body;
    body.list("LIST", "rec ", group).chunk(p[2].id.c_str(), p[2].data);
    const byte_image file = avi_form(byte_image().append(mjpeg_pcm).append(movi(body)));
    return {file.prefix(file.size() - 4), first(p, 2, false), 3, AVIOUT_REPAIR_DROP_CUT};
}

struct row {
    const char *name;
    case_file (*make)();
};

const row rows[] = {
    {"cut inside the header lists",
     [] {
         const indexed_file f = make_indexed(mjpeg_pcm, six_chunks());
         return case_file{f.bytes.prefix(static_cast<size_t>((f.movi_data - 12)) - 20), {}, 1, 0, AVIOUT_REPAIR_BAD_HEADER};
     }},
    {"no movi", [] { return case_file{avi_form(mjpeg_pcm).bytes(), {}, 1, 0, AVIOUT_REPAIR_NO_MOVI}; }},
    {"not RIFF AVI", [] { return case_file{avi_form(mjpeg_pcm, "WAVE").bytes(), {}, 1, 0, AVIOUT_REPAIR_NOT_AVI}; }},
    {"unreadable id in the middle",
     [] {
         indexed_file f = make_indexed(mjpeg_pcm, six_chunks());
         f.bytes.set_u32(at(f, 3, 0), make_fourCC("zz!!"));
         return case_file{f.bytes.bytes(), first(six_chunks(), 3, true), 3, AVIOUT_REPAIR_DROP_UNREADABLE};
     }},
    {"size past a right movi size",
     [] {
         indexed_file f = make_indexed(mjpeg_pcm, six_chunks());
         f.bytes.set_u32(at(f, 5, 4), 60);
         return case_file{f.bytes.bytes(), first(six_chunks(), 5, true), 3, AVIOUT_REPAIR_DROP_BAD_SIZE};
     }},
    {"placeholder sizes, no idx1, type-first ids",
     [] {
         const std::vector<planned> p = six_chunks("dc00", "wb01");
         return case_file{unpatched(make_indexed(mjpeg_pcm, p, index_offsets::movi_relative, false)), first(p, 6, false),
                          0, AVIOUT_REPAIR_DROP_NONE, AVIOUT_REPAIR_NO_PROBLEM, 1};
     }},
    {"idx1 counting from the file start, cut inside",
     [] {
         const indexed_file f = make_indexed(mjpeg_pcm, six_chunks(), index_offsets::absolute);
         std::vector<kept_chunk> kept = first(six_chunks(), 6, false);
         kept[2].key = false;   // its record survives the cut
         return case_file{f.bytes.prefix(f.bytes.size() - 2 * 16 - 5), kept};
     }},
    {"two segments, AVIX sizes stale", two_segments},
    {"rec group", rec_group},
    {"a checkpoint's idx1 under later chunks", checkpoint_index_tail},
    {"MPEG-4 VOP coding types; an empty frame and a dd chunk are no key frames",
     [] {
         return bitstream("XVID", {{"00dc", vop(0), true}, {"00dc", vop(1), false}, {"00dc", byte_image(), false},
                                   {"00dd", filler(12, 9), false}, {"00dc", vop(2), false}, {"00dc", vop(0), true}});
     }},
    {"H.264 IDR slices",
     [] {
         return bitstream("H264", {{"00dc", nal({7, 8, 5}), true}, {"00dc", nal({1}), false},
                                   {"00dc", nal({6, 5}), true}, {"00dc", nal({9, 1}), false}});
     }},
};

class RepairImage : public testing::TestWithParam<row> {};

// Each image repaired with the first pass's chunks held for the second, and
// with the second reading the file again (no room, and room for one chunk).
void check_image(const case_file &c, uint32_t replay_limit) {
    SCOPED_TRACE(testing::Message() << "replay limit " << replay_limit);
    kelq::repair::replay_limit = replay_limit;
    temp_file file(c.bytes);
    aviout_repair_report report;
    ASSERT_EQ(aviout_repair(file.path(), c.swapped, &report), c.result) << report.problem;
    EXPECT_EQ(report.problem, c.problem);
    EXPECT_EQ(report.drop_cause, c.cause);
    EXPECT_EQ(report.changed, c.result == 1 ? 0u : 1u);
    if (c.result == 1) {
        EXPECT_EQ(file_bytes(file.path()), c.bytes) << "left byte for byte as it was";
        return;
    }
    EXPECT_EQ(report.segments, c.segments);
    EXPECT_EQ(report.drop_offset >= 0, c.result == 3);
    EXPECT_EQ(report.dropped_bytes, report.drop_offset >= 0 ? static_cast<int64_t>(c.bytes.size()) - report.drop_offset : 0);
    // Chunks and key frames per stream, as the kept chunks' ids say.
    for (int32_t s = 0; s < report.stream_count; ++s) {
        uint32_t chunks = 0, keys = 0;
        for (const kept_chunk &k : c.kept) {
            chunks += stream_of(k.id) == static_cast<uint32_t>(s) ? 1 : 0;
            keys += stream_of(k.id) == static_cast<uint32_t>(s) && k.key ? 1 : 0;
        }
        EXPECT_EQ(report.streams[s].chunks, chunks) << "stream " << s;
        EXPECT_EQ(report.streams[s].key_frames, keys) << "stream " << s;
    }
    expect_repaired(file.path(), c.kept, c.swapped);
}

TEST_P(RepairImage, KeepsTheCompleteChunks) {
    const case_file c = GetParam().make();
    for (uint32_t limit : {kelq::repair::max_replay_items, 0u, 1u}) {
        check_image(c, limit);
        if (HasFatalFailure()) break;
    }
    kelq::repair::replay_limit = kelq::repair::max_replay_items;
}

INSTANTIATE_TEST_SUITE_P(Rows, RepairImage, testing::ValuesIn(rows), [](const testing::TestParamInfo<row> &info) {
    std::string name;
    for (const char *p = info.param.name; *p != '\0'; ++p) name += std::isalnum(static_cast<unsigned char>(*p)) ? *p : '_';
    return name;
});

}  // namespace
