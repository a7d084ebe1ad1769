// Recordings by this library's writer (with and without OpenDML indexes and
// checkpoints) cut at many bytes: around every chunk boundary and at a
// stride. A cut file is the finished file cut short; a killed recorder's
// file is the file as it stood before a put, with the bytes the put wrote
// over it up to some byte. Repair must keep exactly
// the chunks whose bytes are all there, counted from the writer's puts and
// the finished file's layout, with the key frames that were put.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>

#include "repair/repair_state.h"
#include "support/byte_image.h"
#include "unit/repair/repair_check.h"

using namespace kelqtest;

namespace {

constexpr int frames = 36;

struct variant {
    const char *name;
    uint32_t odml;
    int checkpoint_every;   // frames; 0 none
    uint32_t replay_limit;  // chunks the repair's first pass holds for its second
};

// The file on disk after a put or a checkpoint, and where the writer stood.
struct snapshot {
    std::vector<uint8_t> bytes;
    size_t position;
    bool after_checkpoint;
};

struct recording {
    std::vector<uint8_t> finished;
    std::vector<kept_chunk> puts;
    std::vector<size_t> ends;   // data end of each put in the finished file
    std::vector<snapshot> snapshots;
};

void take(recording &r, aviout_handle *w, const char *path, bool checkpoint) {
    std::fflush(w->file);
    r.snapshots.push_back({file_bytes(path), static_cast<size_t>(file_tell(w->file)), checkpoint});
}

// MPEG-4 frames whose first VOP says what the put says; odd sizes among them.
std::vector<uint8_t> frame(int i, bool key) {
    std::vector<uint8_t> p = payload(200 + static_cast<uint32_t>(i * 53 % 300), static_cast<uint32_t>(i));
    const uint8_t vop[] = {0, 0, 1, 0xB6, static_cast<uint8_t>(key ? 0x00 : 0x40)};
    std::copy(vop, vop + sizeof vop, p.begin());
    return p;
}

recording record(const variant &v) {
    recording r;
    scratch_path path;
    aviout_handle *w = aviout_open(path, v.odml, 0);
    w->index_chunk_seconds = 1.4;   // a standard index every ten frames
    const video_stream_format video = video_record("XVID");
    const audio_stream_format audio = audio_record(8000);
    const double duration = 0.04;
    int32_t vs = -1, as = -1;
    EXPECT_EQ(aviout_set_video_format(w, &vs, &video, &duration), 0);
    EXPECT_EQ(aviout_set_audio_format(w, &as, &audio, &duration), 0);
    for (int i = 0; i < frames; ++i) {
        const bool key = i % 6 == 0;
        r.puts.push_back({"00dc", frame(i, key), key});
        put(w, vs, key ? AVIOUT_KEY_FRAME : 0, r.puts.back().data);
        take(r, w, path, false);
        r.puts.push_back({"01wb", payload(161, 1000u + i), true});
        put(w, as, AVIOUT_KEY_FRAME, r.puts.back().data);
        take(r, w, path, false);
        if (v.checkpoint_every == 0 || (i + 1) % v.checkpoint_every != 0) continue;
        EXPECT_EQ(aviout_checkpoint(w, 0), 0);
        take(r, w, path, true);
    }
    aviout_close(w);
    r.finished = file_bytes(path);
    for (const chunk_at &c : data_chunks(r.finished, 0)) r.ends.push_back(c.data() + c.size);
    EXPECT_EQ(r.ends.size(), r.puts.size());
    return r;
}

// Cut positions from `from` to `to`: around every chunk boundary of the
// finished file and at a stride.
std::vector<size_t> cuts(const std::vector<uint8_t> &finished, size_t from, size_t to) {
    std::vector<size_t> out;
    for (const chunk_at &c : movi_chunks(finished))
        for (int d : {-9, -1, 0, 1, 5, 9})
            if (c.pos + d >= from && c.pos + d <= to) out.push_back(c.pos + static_cast<size_t>(d));
    for (size_t at = from; at < to; at += 1499) out.push_back(at);
    return out;
}

// The state `bytes` repaired: exactly the puts that end at or before
// `complete_to` are kept. Counts the states repaired in `states`.
void check_state(const recording &r, const std::vector<uint8_t> &bytes, size_t complete_to, size_t &states) {
    scratch_path path;
    put_file(path, bytes);
    aviout_repair_report report;
    const int result = aviout_repair(path, 0, &report);
    ++states;
    size_t n = 0;
    while (n < r.ends.size() && r.ends[n] <= complete_to) ++n;
    uint32_t got = 0;
    for (int32_t s = 0; s < report.stream_count; ++s) got += report.streams[s].chunks;
    ASSERT_TRUE(result == 0 || result == 3) << "state of " << bytes.size() << " bytes: " << result;
    ASSERT_EQ(got, n) << "state of " << bytes.size() << " bytes, complete to " << complete_to;
    // A file cut short, wherever the cut falls (a chunk's header, its data, an index), says so.
    if (result == 3 && complete_to == bytes.size()) {
        EXPECT_EQ(report.drop_cause, AVIOUT_REPAIR_DROP_CUT) << "cut at " << bytes.size();
    }
    // A recorder killed right after a checkpoint's finish left a whole file,
    // which repair leaves as it is.
    if (report.changed == 0) {
        EXPECT_EQ(file_bytes(path), bytes);
        return;
    }
    expect_repaired(path, std::vector<kept_chunk>(r.puts.begin(), r.puts.begin() + static_cast<long>(n)));
}

class RepairSweep : public testing::TestWithParam<variant> {};

// Room for every chunk of these recordings; 0 makes the second pass read the file again.
constexpr uint32_t held = kelq::repair::max_replay_items;

TEST_P(RepairSweep, KeepsExactlyTheCompleteChunks) {
    const variant v = GetParam();
    kelq::repair::replay_limit = v.replay_limit;
    struct restore {
        ~restore() { kelq::repair::replay_limit = kelq::repair::max_replay_items; }
    } restored;
    const recording r = record(v);
    size_t states = 0;
    const size_t movi_data = find_child(r.finished, 0, "LIST", "movi").pos + 12;
    for (size_t c : cuts(r.finished, movi_data, r.finished.size() - 1)) {
        check_state(r, std::vector<uint8_t>(r.finished.begin(), r.finished.begin() + static_cast<long>(c)), c, states);
        if (HasFatalFailure()) return;
    }
    // A recorder killed during a put: the bytes it wrote, in order from where
    // it stood, reached the disk up to some byte w; after w the file holds
    // what it held before. Bytes the two agree on just before w cannot be
    // told apart, and count as old.
    for (size_t i = 1; i < r.snapshots.size() && v.checkpoint_every != 0; ++i) {
        const snapshot &before = r.snapshots[i - 1], &after = r.snapshots[i];
        if (after.after_checkpoint) continue;
        for (size_t w : cuts(r.finished, before.position, after.position)) {
            std::vector<uint8_t> state(after.bytes.begin(), after.bytes.begin() + static_cast<long>(w));
            size_t fresh = w;
            if (w < before.bytes.size()) {
                state.insert(state.end(), before.bytes.begin() + static_cast<long>(w), before.bytes.end());
                while (fresh > before.position && after.bytes[fresh - 1] == before.bytes[fresh - 1]) --fresh;
            }
            check_state(r, state, fresh, states);
            if (HasFatalFailure()) return;
        }
    }
    std::printf("%s: %zu states repaired\n", v.name, states);
    EXPECT_GT(states, 100u);
}

INSTANTIATE_TEST_SUITE_P(Writer, RepairSweep,
                         testing::Values(variant{"plain", 0, 0, held}, variant{"odml", 1, 0, held},
                                         variant{"checkpoints", 0, 7, held}, variant{"odml_checkpoints", 1, 7, held},
                                         variant{"odml_checkpoints_read_twice", 1, 7, 0}),
                         [](const testing::TestParamInfo<variant> &info) { return std::string(info.param.name); });

// Key frames from the standard indexes: MJPEG video with a key frame in
// three and audio put as no key frame, cut after the second flush of the
// indexes. The chunks an ix## chunk before the cut lists keep the flags that
// were put; the chunks after a track's last one are taken as key frames.
TEST(RepairOpenDml, StandardIndexesGiveKeyFrames) {
    scratch_path path;
    aviout_handle *w = open_writer(path, "v", {1, 1.4});
    ASSERT_NE(w, nullptr);
    const audio_stream_format audio = audio_record(8000);
    const double duration = 0.04;
    int32_t as = -1;
    ASSERT_EQ(aviout_set_audio_format(w, &as, &audio, &duration), 0);
    std::vector<kept_chunk> puts;
    for (int i = 0; i < 30; ++i) {
        puts.push_back({"00dc", payload(300 + static_cast<uint32_t>(i), static_cast<uint32_t>(i)), i % 3 == 0});
        put(w, 0, puts.back().key ? AVIOUT_KEY_FRAME : 0, puts.back().data);
        puts.push_back({"01wb", payload(161, 500u + i), false});
        put(w, as, 0, puts.back().data);
    }
    aviout_close(w);
    const std::vector<uint8_t> finished = file_bytes(path);
    const std::vector<chunk_at> children = movi_chunks(finished);
    size_t cut = 0, index_chunks = 0;
    for (const chunk_at &c : children)
        if (c.id.substr(0, 2) == "ix" && ++index_chunks == 3) cut = c.data() + c.size + 40;
    ASSERT_GT(cut, 0u) << "two flushes of both tracks before the cut";
    // A chunk is listed when an ix## chunk of its track ('dc' or 'wb' in its
    // dwChunkId) follows it before the cut.
    std::map<std::string, size_t> last_ix;
    for (const chunk_at &c : children)
        if (c.id.substr(0, 2) == "ix" && c.data() + c.size <= cut)
            last_ix[text4(finished, c.data() + 8).substr(2)] = c.pos;
    std::vector<kept_chunk> kept;
    for (const chunk_at &c : children) {
        if (c.id.substr(0, 2) == "ix" || c.data() + c.size > cut) continue;
        kept.push_back(puts[kept.size()]);
        if (c.pos > last_ix[c.id.substr(2)]) kept.back().key = true;
    }
    ASSERT_LT(kept.size(), puts.size());
    put_file(path, finished, cut);
    EXPECT_EQ(aviout_repair(path, 0, nullptr), 3);
    expect_repaired(path, kept);
}

}  // namespace
