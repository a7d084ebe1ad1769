// Repairing a recording that was cut short, against a plain read of the
// same file (the limit): small chunks (1 KiB video, 256-byte audio) where
// the per-chunk work shows, and large ones (32 KiB video). The recording is
// this library's writer's, left as a killed recorder leaves it (sizes at
// their placeholders, no idx1, the last chunk cut); each iteration repairs
// it afresh, the bytes repair changed put back untimed.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench_files.h"
#include "kelqavi.h"

namespace {

struct cut_recording {
    std::string path;
    std::vector<uint8_t> bytes;
};

std::vector<uint8_t> read_all(const std::string &path) {
    std::vector<uint8_t> out;
    FILE *f = std::fopen(path.c_str(), "rb");
    uint8_t block[65536];
    for (size_t n; f != nullptr && (n = std::fread(block, 1, sizeof block, f)) > 0;) out.insert(out.end(), block, block + n);
    if (f != nullptr) std::fclose(f);
    return out;
}

void put_all(const std::string &path, const std::vector<uint8_t> &bytes) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return;
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
}

// Repair writes the header fields and from the cut on: putting those bytes
// back gives the cut file again without rewriting all of it.
constexpr size_t restored_head = 64 * 1024, restored_tail = 1024 * 1024;

void restore(const std::string &path, const std::vector<uint8_t> &bytes) {
    FILE *f = std::fopen(path.c_str(), "r+b");
    if (f == nullptr || ftruncate(fileno(f), static_cast<off_t>(bytes.size())) != 0) {
        if (f != nullptr) std::fclose(f);
        put_all(path, bytes);
        return;
    }
    std::fwrite(bytes.data(), 1, restored_head, f);
    std::fseek(f, static_cast<long>(bytes.size() - restored_tail), SEEK_SET);
    std::fwrite(bytes.data() + bytes.size() - restored_tail, 1, restored_tail, f);
    std::fclose(f);
}

cut_recording make_recording(const char *name, uint32_t frame_bytes, uint32_t audio_bytes, int frames) {
    cut_recording r;
    r.path = std::string(P_tmpdir) + "/kelqavi-bench-repair-" + name + "-" + std::to_string(getpid()) + ".avi";
    aviout_handle *w = aviout_open(r.path.c_str(), 1, 0);
    w->index_chunk_seconds = 60.0;
    video_stream_format v{};
    v.rate = 25;
    v.scale = 1;
    v.width = 320;
    v.height = 240;
    for (int i = 0; i < 4; ++i) v.handler[i] = v.compression[i] = "MJPG"[i];
    audio_stream_format a{};
    a.rate = 16000;
    a.scale = 1;
    a.sample_size = 2;
    a.wave_format.format_tag = 1;
    a.wave_format.channels = 1;
    a.wave_format.samples_per_sec = 16000;
    a.wave_format.avg_bytes_per_sec = 32000;
    a.wave_format.block_align = 2;
    a.wave_format.bits_per_sample = 16;
    const double frame = 0.04;
    int32_t vs = -1, as = -1;
    aviout_set_video_format(w, &vs, &v, &frame);
    aviout_set_audio_format(w, &as, &a, &frame);
    const std::vector<uint8_t> picture(frame_bytes, 0xA5), sound(audio_bytes, 0x11);
    for (int i = 0; i < frames; ++i) {
        aviout_put_chunk(w, vs, AVIOUT_KEY_FRAME, picture.data(), frame_bytes);
        aviout_put_chunk(w, as, 0, sound.data(), audio_bytes);
    }
    std::fflush(w->file);
    r.bytes = read_all(r.path);
    r.bytes.resize(r.bytes.size() - frame_bytes / 2);   // the last chunk cut
    aviout_close(w);
    return r;
}

cut_recording &small_chunks() {
    static cut_recording r = make_recording("small", 1024, 256, 16384);
    return r;
}

cut_recording &large_chunks() {
    static cut_recording r = make_recording("large", 32 * 1024, 1280, 1024);
    return r;
}

void repair(benchmark::State &state, cut_recording &r) {
    put_all(r.path, r.bytes);
    for (auto _ : state) {
        state.PauseTiming();
        restore(r.path, r.bytes);
        state.ResumeTiming();
        aviout_repair_report report;
        benchmark::DoNotOptimize(aviout_repair(r.path.c_str(), 0, &report));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(r.bytes.size()));
}

void plain_read(benchmark::State &state, cut_recording &r) {
    put_all(r.path, r.bytes);
    std::vector<uint8_t> buffer(64 * 1024);
    for (auto _ : state) {
        FILE *f = std::fopen(r.path.c_str(), "rb");
        size_t total = 0;
        for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0;) total += n;
        std::fclose(f);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(r.bytes.size()));
}

void BM_RepairSmallChunks(benchmark::State &state) { repair(state, small_chunks()); }
void BM_RepairSmallChunks_Limit_fread(benchmark::State &state) { plain_read(state, small_chunks()); }
void BM_RepairLargeChunks(benchmark::State &state) { repair(state, large_chunks()); }
void BM_RepairLargeChunks_Limit_fread(benchmark::State &state) { plain_read(state, large_chunks()); }

BENCHMARK(BM_RepairSmallChunks)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RepairSmallChunks_Limit_fread)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RepairLargeChunks)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RepairLargeChunks_Limit_fread)->Unit(benchmark::kMillisecond);

}  // namespace

void remove_repair_bench_files() {
    std::remove(small_chunks().path.c_str());
    std::remove(large_chunks().path.c_str());
}
