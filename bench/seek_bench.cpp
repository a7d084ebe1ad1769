// Random frame lookup on a long file: the key-frame table and the header
// walk from the key frame (then reading the frame), against libavformat's
// seek to the key frame and packet reads up to the frame (the peer), for key
// frames every 1, 2 and 10 seconds. Also the table's build time and memory.
extern "C" {
#include <libavformat/avformat.h>
}

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "bench_files.h"
#include "kelqavi.h"

namespace {

constexpr int frames = 30000;  // 20 minutes at 25 frames a second
constexpr int lookups = 256;
const int spacings[] = {25, 50, 250};

// 25 fps video with a key frame every `gop` frames (key frames 4 KiB, others
// 600 bytes) and MPEG-style audio of 1152 samples at 48000 Hz a chunk,
// written with the library's writer.
std::string seek_paths[3];

std::string &seek_file(int gop) {
    std::string *paths = seek_paths;
    const int slot = gop == 25 ? 0 : gop == 50 ? 1 : 2;
    std::string &path = paths[slot];
    if (!path.empty()) return path;
    path = std::string(P_tmpdir) + "/kelqavi-bench-seek-" + std::to_string(gop) + "-" + std::to_string(getpid()) + ".avi";
    aviout_handle *w = aviout_open(path.c_str(), 0, 0);
    video_stream_format v{};
    v.rate = 25;
    v.scale = 1;
    v.width = 320;
    v.height = 240;
    for (int i = 0; i < 4; ++i) v.handler[i] = v.compression[i] = "FMP4"[i];
    audio_stream_format a{};
    a.scale = 1152;
    a.rate = 48000;
    a.wave_format.format_tag = 0x55;
    a.wave_format.channels = 2;
    a.wave_format.samples_per_sec = 48000;
    a.wave_format.avg_bytes_per_sec = 16000;
    a.wave_format.block_align = 1152;
    const double frame_seconds = 0.04, audio_seconds = 0.024;
    int32_t video = -1, audio = -1;
    aviout_set_video_format(w, &video, &v, &frame_seconds);
    aviout_set_audio_format(w, &audio, &a, &audio_seconds);
    std::vector<uint8_t> data(4096, 0x5A);
    int audio_chunks = 0;
    for (int f = 0; f < frames; ++f) {
        while (audio_chunks * 24 < f * 40 + 40) {
            aviout_put_chunk(w, audio, 0, data.data(), 384);
            ++audio_chunks;
        }
        const bool key = f % gop == 0;
        aviout_put_chunk(w, video, key ? AVIOUT_KEY_FRAME : 0, data.data(), key ? 4096 : 600);
    }
    aviout_close(w);
    return path;
}

std::vector<int32_t> random_frames() {
    std::mt19937 random(5);
    std::uniform_int_distribution<int32_t> pick(0, frames - 1);
    std::vector<int32_t> out(lookups);
    for (int32_t &f : out) f = pick(random);
    return out;
}

struct built_table {
    std::vector<keyindex_entry> entries;
    keyindex_table table{};
};

void build(aviin_handle *h, built_table &t) {
    t.entries.resize(frames);
    aviin_init_keyindex(h, &t.table, t.entries.data(), static_cast<uint32_t>(t.entries.size()), 0);
    while (aviin_build_keyindex_entry(h, &t.table, 0) == 0) {
    }
}

void frame_lookup(benchmark::State &state, int gop) {
    aviin_handle *h = aviin_open(seek_file(gop).c_str(), 0);
    built_table t;
    build(h, t);
    const std::vector<int32_t> targets = random_frames();
    std::vector<uint8_t> buffer(8192);
    size_t next = 0;
    for (auto _ : state) {
        const int32_t frame = targets[next++ % targets.size()];
        keyindex_entry key;
        uint64_t header = 0;
        aviin_read_key_table_by_frame_no(h, &t.table, frame, &key, -1);
        aviin_get_video_offset(h, key, 0, frame, &header);
        uint8_t size_field[8];
        aviin_get_chunk(h, header, size_field, 8);
        const uint32_t size = str2long(size_field + 4);
        aviin_get_chunk(h, header + 8, buffer.data(), size);
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["table_bytes"] = static_cast<double>(t.table.count * sizeof(keyindex_entry));
    state.counters["bytes_per_key"] = static_cast<double>(sizeof(keyindex_entry));
    aviin_close(h);
}

void frame_lookup_peer(benchmark::State &state, int gop) {
    AVFormatContext *context = nullptr;
    avformat_open_input(&context, seek_file(gop).c_str(), nullptr, nullptr);
    avformat_find_stream_info(context, nullptr);
    AVPacket *packet = av_packet_alloc();
    const std::vector<int32_t> targets = random_frames();
    size_t next = 0;
    for (auto _ : state) {
        const int32_t frame = targets[next++ % targets.size()];
        av_seek_frame(context, 0, frame, AVSEEK_FLAG_BACKWARD);
        while (av_read_frame(context, packet) >= 0) {
            const bool found = packet->stream_index == 0 && packet->pts >= frame;
            av_packet_unref(packet);
            if (found) break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    av_packet_free(&packet);
    avformat_close_input(&context);
}

void table_build(benchmark::State &state, int gop) {
    aviin_handle *h = aviin_open(seek_file(gop).c_str(), 0);
    built_table t;
    for (auto _ : state) {
        build(h, t);
        benchmark::DoNotOptimize(t.table.count);
    }
    state.SetItemsProcessed(state.iterations() * t.table.entry_total);
    state.counters["key_frames"] = t.table.count;
    aviin_close(h);
}

// What avformat_open_input costs on the same file: it reads idx1 into its own
// index, which is what the table stands beside.
void table_build_peer(benchmark::State &state, int gop) {
    for (auto _ : state) {
        AVFormatContext *context = nullptr;
        avformat_open_input(&context, seek_file(gop).c_str(), nullptr, nullptr);
        benchmark::DoNotOptimize(context);
        avformat_close_input(&context);
    }
}

const bool registered = [] {
    for (int gop : spacings) {
        const std::string every = "Every" + std::to_string(gop / 25) + "s";
        benchmark::RegisterBenchmark(("BM_FrameLookup" + every).c_str(), frame_lookup, gop)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("BM_FrameLookup" + every + "_Peer_avformat").c_str(), frame_lookup_peer, gop)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("BM_KeyTableBuild" + every).c_str(), table_build, gop)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("BM_KeyTableBuild" + every + "_Peer_avformat_open").c_str(), table_build_peer, gop)
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace

void remove_seek_bench_files() {
    for (const std::string &path : seek_paths)
        if (!path.empty()) std::remove(path.c_str());
}
