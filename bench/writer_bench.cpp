// Whole-file writing through the writer (with and without OpenDML indexes)
// against libavformat's AVI muxer fed the same packets (the peer) and plain
// fwrite of the same chunk bytes (the limit), for a large-frame mix and a
// many-small-chunks mix; then the resident memory each of them needs, each
// measured in a child process of its own.
extern "C" {
#include <libavformat/avformat.h>
}

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_files.h"
#include "kelqavi.h"

namespace {

struct chunk_mix {
    const char *name;
    int frames;             // video chunks; one audio chunk follows each
    uint32_t video_bytes;
    uint32_t audio_bytes;
};

// 400 frames of 48 KiB with 25 fps 16-bit stereo 44.1 kHz audio (19.6 MB),
// and 100,000 frames of 1 KiB each followed by a 200-byte audio chunk
// (200,000 chunks, 122 MB).
constexpr chunk_mix large_mix{"large frames", 400, 48 * 1024, 7056};
constexpr chunk_mix small_mix{"200,000 small chunks", 100000, 1024, 200};
constexpr int fps = 25;

std::string output_path() {
    return std::string(P_tmpdir) + "/kelqavi-bench-writer-" + std::to_string(getpid()) + ".avi";
}

const std::vector<uint8_t> &payload() {
    static const std::vector<uint8_t> bytes(64 * 1024, 0x5A);
    return bytes;
}

int64_t mix_bytes(const chunk_mix &m) {
    return int64_t(m.frames) * (m.video_bytes + m.audio_bytes + 16);
}

struct writer_streams {
    int32_t video = -1, audio = -1;
};

writer_streams set_streams(aviout_handle *w, const chunk_mix &m) {
    w->index_chunk_seconds = 60.0;
    video_stream_format v{};
    v.rate = fps;
    v.scale = 1;
    v.width = 320;
    v.height = 240;
    std::memcpy(v.handler, "MJPG", 4);
    std::memcpy(v.compression, "MJPG", 4);
    audio_stream_format a{};
    a.scale = 4;
    a.rate = m.audio_bytes * fps;
    a.sample_size = 4;
    a.wave_format.format_tag = 1;
    a.wave_format.channels = 2;
    a.wave_format.samples_per_sec = a.rate / 4;
    a.wave_format.avg_bytes_per_sec = a.rate;
    a.wave_format.block_align = 4;
    a.wave_format.bits_per_sample = 16;
    const double frame_duration = 1.0 / fps;
    writer_streams s;
    aviout_set_video_format(w, &s.video, &v, &frame_duration);
    aviout_set_audio_format(w, &s.audio, &a, &frame_duration);
    return s;
}

// Writes the mix; probe is called once, when probe_at chunks are out.
// checkpoint_seconds > 0 makes automatic checkpoints, < 0 an explicit one
// after every frame.
template <typename Probe>
void write_with_writer(const chunk_mix &m, uint32_t odml, int probe_at, Probe probe, double checkpoint_seconds = 0.0) {
    aviout_handle *w = aviout_open(output_path().c_str(), odml, 0);
    const writer_streams s = set_streams(w, m);
    if (checkpoint_seconds > 0.0) w->checkpoint_seconds = checkpoint_seconds;
    const uint8_t *data = payload().data();
    for (int i = 0; i < m.frames; ++i) {
        aviout_put_chunk(w, s.video, AVIOUT_KEY_FRAME, data, m.video_bytes);
        aviout_put_chunk(w, s.audio, AVIOUT_KEY_FRAME, data, m.audio_bytes);
        if (2 * (i + 1) == probe_at) probe();
        if (checkpoint_seconds < 0.0) aviout_checkpoint(w, 0);
    }
    aviout_close(w);
}

void write_with_fwrite(const chunk_mix &m) {
    FILE *f = std::fopen(output_path().c_str(), "wb");
    std::vector<char> buffer(64 * 1024);
    std::setvbuf(f, buffer.data(), _IOFBF, buffer.size());
    const uint8_t *data = payload().data();
    uint8_t header[8] = {'0', '0', 'd', 'c', 0, 0, 0, 0};
    for (int i = 0; i < m.frames; ++i) {
        for (uint32_t size : {m.video_bytes, m.audio_bytes}) {
            for (int b = 0; b < 4; ++b) header[4 + b] = static_cast<uint8_t>(size >> (8 * b));
            std::fwrite(header, 1, sizeof header, f);
            std::fwrite(data, 1, size, f);
        }
    }
    std::fclose(f);
}

void write_with_avformat(const chunk_mix &m) {
    AVFormatContext *out = nullptr;
    avformat_alloc_output_context2(&out, nullptr, "avi", output_path().c_str());
    AVStream *video = avformat_new_stream(out, nullptr);
    video->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    video->codecpar->codec_id = AV_CODEC_ID_MJPEG;
    video->codecpar->width = 320;
    video->codecpar->height = 240;
    video->time_base = AVRational{1, fps};
    AVStream *audio = avformat_new_stream(out, nullptr);
    audio->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    audio->codecpar->codec_id = AV_CODEC_ID_PCM_S16LE;
    audio->codecpar->sample_rate = static_cast<int>(m.audio_bytes * fps / 4);
    av_channel_layout_default(&audio->codecpar->ch_layout, 2);
    audio->codecpar->block_align = 4;
    audio->codecpar->bits_per_coded_sample = 16;
    audio->time_base = AVRational{1, audio->codecpar->sample_rate};
    avio_open(&out->pb, output_path().c_str(), AVIO_FLAG_WRITE);
    if (avformat_write_header(out, nullptr) < 0) std::abort();
    AVPacket *packet = av_packet_alloc();
    for (int i = 0; i < m.frames; ++i) {
        av_new_packet(packet, static_cast<int>(m.video_bytes));
        packet->stream_index = 0;
        packet->pts = packet->dts = av_rescale_q(i, AVRational{1, fps}, video->time_base);
        packet->flags = AV_PKT_FLAG_KEY;
        av_write_frame(out, packet);
        av_packet_unref(packet);
        av_new_packet(packet, static_cast<int>(m.audio_bytes));
        packet->stream_index = 1;
        packet->pts = packet->dts = int64_t(i) * (m.audio_bytes / 4);
        packet->flags = AV_PKT_FLAG_KEY;
        av_write_frame(out, packet);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    av_write_trailer(out);
    avio_closep(&out->pb);
    avformat_free_context(out);
}

void BM_WriterLarge(benchmark::State &state) {
    for (auto _ : state) write_with_writer(large_mix, static_cast<uint32_t>(state.range(0)), 0, [] {});
    state.SetBytesProcessed(state.iterations() * mix_bytes(large_mix));
}
void BM_WriterLarge_Limit_fwrite(benchmark::State &state) {
    for (auto _ : state) write_with_fwrite(large_mix);
    state.SetBytesProcessed(state.iterations() * mix_bytes(large_mix));
}
void BM_WriterLarge_Peer_avformat(benchmark::State &state) {
    for (auto _ : state) write_with_avformat(large_mix);
    state.SetBytesProcessed(state.iterations() * mix_bytes(large_mix));
}
void BM_WriterSmall(benchmark::State &state) {
    for (auto _ : state) write_with_writer(small_mix, static_cast<uint32_t>(state.range(0)), 0, [] {});
    state.SetItemsProcessed(state.iterations() * 2 * small_mix.frames);
}
void BM_WriterSmall_Limit_fwrite(benchmark::State &state) {
    for (auto _ : state) write_with_fwrite(small_mix);
    state.SetItemsProcessed(state.iterations() * 2 * small_mix.frames);
}
void BM_WriterSmall_Peer_avformat(benchmark::State &state) {
    for (auto _ : state) write_with_avformat(small_mix);
    state.SetItemsProcessed(state.iterations() * 2 * small_mix.frames);
}

BENCHMARK(BM_WriterLarge)->Arg(0)->Arg(1)->ArgName("odml")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriterLarge_Limit_fwrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriterLarge_Peer_avformat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriterSmall)->Arg(0)->Arg(1)->ArgName("odml")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriterSmall_Limit_fwrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriterSmall_Peer_avformat)->Unit(benchmark::kMillisecond);

long resident_kib(const char *field) {
    FILE *status = std::fopen("/proc/self/status", "r");
    if (status == nullptr) return -1;
    char line[256];
    long kib = -1;
    const size_t n = std::strlen(field);
    while (std::fgets(line, sizeof line, status) != nullptr)
        if (std::strncmp(line, field, n) == 0) kib = std::atol(line + n + 1);
    std::fclose(status);
    return kib;
}

struct rss_figures {
    long baseline = 0, after_1000 = 0, peak = 0;
};

// Runs one way of writing in a child; the child reports its resident memory
// before writing, after 1,000 chunks (writer only) and at its peak.
template <typename Job>
rss_figures measure_in_child(Job job) {
    int fds[2];
    rss_figures figures;
    if (pipe(fds) != 0) return figures;
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        rss_figures f;
        f.baseline = resident_kib("VmRSS:");
        job(f);
        f.peak = resident_kib("VmHWM:");
        ssize_t written = write(fds[1], &f, sizeof f);
        _exit(written == sizeof f ? 0 : 1);
    }
    close(fds[1]);
    if (read(fds[0], &figures, sizeof figures) != sizeof figures) figures = rss_figures{};
    close(fds[0]);
    waitpid(child, nullptr, 0);
    return figures;
}

void print_row(const char *what, const rss_figures &f) {
    std::printf("%-44s %10ld %12s %10ld\n", what, f.baseline,
                f.after_1000 > 0 ? std::to_string(f.after_1000).c_str() : "-", f.peak);
}

}  // namespace

void print_writer_memory() {
    // The figures of the parent's benchmarks would hide the writer's own.
    std::printf("\nresident memory of a fresh process writing each mix (KiB)\n");
    std::printf("%-44s %10s %12s %10s\n", "", "before", "1,000 chunks", "peak");
    for (const chunk_mix *m : {&large_mix, &small_mix}) {
        for (uint32_t odml : {0u, 1u}) {
            const rss_figures f = measure_in_child([m, odml](rss_figures &out) {
                write_with_writer(*m, odml, 1000, [&out] { out.after_1000 = resident_kib("VmRSS:"); });
            });
            print_row((std::string("writer, ") + m->name + (odml ? ", OpenDML" : "")).c_str(), f);
        }
        print_row((std::string("plain fwrite, ") + m->name).c_str(),
                  measure_in_child([m](rss_figures &) { write_with_fwrite(*m); }));
        print_row((std::string("libavformat, ") + m->name).c_str(),
                  measure_in_child([m](rss_figures &) { write_with_avformat(*m); }));
    }
    std::printf("writer handle: %zu bytes of address space, one calloc\n", sizeof(aviout_handle));
    std::remove(output_path().c_str());
}

namespace {

// Bytes this process has handed to write() so far.
long long bytes_written() {
    FILE *io = std::fopen("/proc/self/io", "r");
    if (io == nullptr) return -1;
    char line[128];
    long long bytes = -1;
    while (std::fgets(line, sizeof line, io) != nullptr)
        if (std::strncmp(line, "wchar:", 6) == 0) bytes = std::atoll(line + 6);
    std::fclose(io);
    return bytes;
}

struct timed_write {
    double seconds;      // median of the runs
    long long bytes;     // handed to write() by one run
};

timed_write time_writer(const chunk_mix &m, uint32_t odml, double checkpoint_seconds, int runs) {
    std::vector<double> times;
    long long bytes = 0;
    for (int r = 0; r < runs; ++r) {
        const long long before = bytes_written();
        timespec start{}, end{};
        clock_gettime(CLOCK_MONOTONIC, &start);
        write_with_writer(m, odml, 0, [] {}, checkpoint_seconds);
        clock_gettime(CLOCK_MONOTONIC, &end);
        bytes = bytes_written() - before;
        times.push_back(double(end.tv_sec - start.tv_sec) + (end.tv_nsec - start.tv_nsec) / 1e9);
    }
    std::sort(times.begin(), times.end());
    return timed_write{times[times.size() / 2], bytes};
}

}  // namespace

// The writer with an automatic checkpoint every second of video against
// none (the goal is at least 0.95 of the throughput), and what one
// checkpoint costs: an explicit checkpoint after every frame, less the run
// without any, per checkpoint.
void print_writer_checkpoints() {
    std::printf("\ncheckpoints (median of 5 runs; file in the page cache)\n");
    std::printf("%-36s %10s %10s %12s %12s %14s\n", "", "none (ms)", "1/s (ms)", "throughput", "per checkpt",
                "bytes/checkpt");
    for (const chunk_mix *m : {&large_mix, &small_mix}) {
        for (uint32_t odml : {0u, 1u}) {
            const timed_write none = time_writer(*m, odml, 0.0, 5);
            const timed_write second = time_writer(*m, odml, 1.0, 5);
            const timed_write every = time_writer(*m, odml, -1.0, 5);
            const double each_us = (every.seconds - none.seconds) / m->frames * 1e6;
            std::printf("%-36s %10.1f %10.1f %11.3fx %10.1f us %14.0f\n",
                        (std::string(m->name) + (odml ? ", OpenDML" : "")).c_str(), none.seconds * 1e3,
                        second.seconds * 1e3, none.seconds / second.seconds, each_us,
                        double(every.bytes - none.bytes) / m->frames);
        }
    }
}

void remove_writer_bench_file() { std::remove(output_path().c_str()); }
