// The writer target's check of frame lookups: the key-frame table built from
// idx1 must lead to every frame of the first video stream, the n-th "dc"
// chunk of the stream as it was put. Without OpenDML only: with it, the
// chunk put as a standard index is written out has no idx1 record, and the
// header walk steps into an ix## chunk four bytes at a time and takes the
// "0\0dc" in its header for a chunk whose size moves the walk on by the
// index's base offset.
#include "writer_program.h"

namespace fuzz {

namespace {

constexpr uint32_t table_capacity = 3;   // small, so the table thins out
constexpr int max_builds = 4096;
constexpr size_t frames_looked_up = 48;

int32_t first_video(aviin_handle *h, const writer_run &run) {
    for (int32_t s = 0; s < run.stream_count && s < writer_stream_limit; ++s) {
        uint32_t kind = 0;
        if (aviin_get_chunk_type(h, static_cast<uint32_t>(s), &kind) == 0 && kind == KELQAVI_CHUNK_VIDEO) return s;
    }
    return -1;
}

}  // namespace

void check_frame_lookups(aviin_handle *h, const char *path, const writer_run &run) {
    const int32_t video = first_video(h, run);
    if (video < 0) return;
    const std::vector<uint64_t> at = chunk_data_positions(path, run);
    check(at.size() == run.puts.size(), "movi holds every chunk put");
    std::vector<uint64_t> frames;   // header positions
    std::vector<bool> key;
    bool last_is_frame = false;
    for (size_t i = 0; i < run.puts.size(); ++i) {
        const put_call &p = run.puts[i];
        // Frames are "dc" chunks: a bitmap caption stream's are "sb".
        if (p.stream != video || run.streams[video].kind != KELQAVI_CHUNK_VIDEO ||
            (p.flags & (AVIOUT_FRAME_DATA | AVIOUT_UNCOMPRESSED)) != 0)
            continue;
        frames.push_back(at[i] - 8);
        key.push_back((p.flags & AVIOUT_KEY_FRAME) != 0);
        last_is_frame = i + 1 == run.puts.size();
    }
    keyindex_entry entries[table_capacity];
    keyindex_table t;
    check(aviin_init_keyindex(h, &t, entries, table_capacity, static_cast<uint32_t>(video)) == 0,
          "a key-frame table can be had for a video stream with idx1");
    int r = 0;
    for (int i = 0; i < max_builds && r == 0; ++i) r = aviin_build_keyindex_entry(h, &t, 5);
    // A last chunk of size 0 has its header where the list ends, which no
    // walk or table takes for a chunk inside the list.
    const bool last_empty = run.puts.back().size == 0;
    if (r != 3) {
        check(r == 1 && last_empty, "the key-frame table is built over every frame");
        return;
    }
    check(t.frames_scanned == frames.size(), "the key-frame table counts every frame");
    const size_t n = frames.size() - (last_empty && last_is_frame ? 1 : 0);
    bool key_seen = false;
    for (size_t f = 0, step = n / frames_looked_up + 1; f < n; f += step) {
        for (size_t k = f - f % step; k <= f; ++k) key_seen = key_seen || key[k];
        keyindex_entry from;
        if (aviin_read_key_table_by_frame_no(h, &t, static_cast<int32_t>(f), &from, -1) != 0) {
            check(!key_seen, "a frame after a key frame has a key frame to start from");
            continue;
        }
        uint64_t header = 0;
        check(aviin_get_video_offset(h, from, static_cast<uint32_t>(video), static_cast<int32_t>(f), &header) == 0 &&
                  header == frames[f],
              "the walk from the key frame before a frame reaches that frame's chunk");
    }
}

}  // namespace fuzz
