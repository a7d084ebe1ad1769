// Whole-file writing through the writer (with and without OpenDML indexes,
// with and without a checkpoint every second) against plain fwrite of the
// same chunk bytes through a 64 KiB buffer (the limit) and libavformat's AVI
// muxer fed the same packets (the peer), for a large-frame mix and a
// many-small-chunks mix. One table: median CPU time, ratios, system calls
// per chunk (the run again under strace -c) and user-space instructions per
// chunk (a tenth of the run under callgrind); then the resident memory each
// way needs, each measured in a fresh child. Prints figures only.
//
//   writer_bench [runs]            the tables (runs: timed runs per cell, 5)
//   writer_bench probe WAY MIX N   writes N frames of a mix one way, once
//   writer_bench time WAY MIX RUNS median CPU time of whole-mix runs
//
// KELQAVI_BENCH_SCALE (default 1) scales the frame counts of both mixes.
extern "C" {
#include <libavformat/avformat.h>
}

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "kelqavi.h"

namespace {

struct chunk_mix {
    const char *name;
    int frames;             // video chunks; one audio chunk follows each
    uint32_t video_bytes;
    uint32_t audio_bytes;
};

// 150,000 frames of 1 KiB each followed by a 200-byte audio chunk (300,000
// chunks, 188 MB), and 2,750 frames of 420 KiB with 25 fps 16-bit stereo
// 44.1 kHz audio (5,500 chunks, 1.2 GB).
chunk_mix small_mix{"small", 150000, 1024, 200};
chunk_mix large_mix{"large", 2750, 420 * 1024, 7056};
constexpr int fps = 25;

// The ways of writing a mix; the writer's four differ by OpenDML and by an
// automatic checkpoint every second of video.
enum way { limit_fwrite, peer_avformat, ours, ours_odml, ours_checkpoint, ours_odml_checkpoint, way_count };
constexpr const char *way_names[way_count] = {"fwrite", "libavformat", "kelqavi", "kelqavi-odml",
                                              "kelqavi-ckpt", "kelqavi-odml-ckpt"};

std::string output_path() {
    return std::string(P_tmpdir) + "/kelqavi-bench-writer-" + std::to_string(getpid()) + ".avi";
}

const uint8_t *payload() {
    static const std::vector<uint8_t> bytes(420 * 1024, 0x5A);
    return bytes.data();
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
template <typename Probe>
void write_with_writer(const chunk_mix &m, uint32_t odml, double checkpoint_seconds, int probe_at, Probe probe) {
    aviout_handle *w = aviout_open(output_path().c_str(), odml, 0);
    const writer_streams s = set_streams(w, m);
    w->checkpoint_seconds = checkpoint_seconds;
    for (int i = 0; i < m.frames; ++i) {
        aviout_put_chunk(w, s.video, AVIOUT_KEY_FRAME, payload(), m.video_bytes);
        aviout_put_chunk(w, s.audio, AVIOUT_KEY_FRAME, payload(), m.audio_bytes);
        if (2 * (i + 1) == probe_at) probe();
    }
    aviout_close(w);
}

void write_with_fwrite(const chunk_mix &m) {
    FILE *f = std::fopen(output_path().c_str(), "wb");
    std::vector<char> buffer(64 * 1024);
    std::setvbuf(f, buffer.data(), _IOFBF, buffer.size());
    uint8_t header[8] = {'0', '0', 'd', 'c', 0, 0, 0, 0};
    for (int i = 0; i < m.frames; ++i) {
        for (uint32_t size : {m.video_bytes, m.audio_bytes}) {
            for (int b = 0; b < 4; ++b) header[4 + b] = static_cast<uint8_t>(size >> (8 * b));
            std::fwrite(header, 1, sizeof header, f);
            std::fwrite(payload(), 1, size, f);
        }
    }
    std::fclose(f);
}

AVStream *new_stream(AVFormatContext *out, AVMediaType type, AVCodecID codec, AVRational time_base) {
    AVStream *s = avformat_new_stream(out, nullptr);
    s->codecpar->codec_type = type;
    s->codecpar->codec_id = codec;
    s->time_base = time_base;
    return s;
}

void put_packet(AVFormatContext *out, AVPacket *packet, int stream, uint32_t size, int64_t pts) {
    av_new_packet(packet, static_cast<int>(size));
    packet->stream_index = stream;
    packet->pts = packet->dts = pts;
    packet->flags = AV_PKT_FLAG_KEY;
    av_write_frame(out, packet);
    av_packet_unref(packet);
}

void write_with_avformat(const chunk_mix &m) {
    AVFormatContext *out = nullptr;
    avformat_alloc_output_context2(&out, nullptr, "avi", output_path().c_str());
    AVStream *video = new_stream(out, AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MJPEG, AVRational{1, fps});
    video->codecpar->width = 320;
    video->codecpar->height = 240;
    const int rate = static_cast<int>(m.audio_bytes * fps / 4);
    AVStream *audio = new_stream(out, AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_S16LE, AVRational{1, rate});
    audio->codecpar->sample_rate = rate;
    av_channel_layout_default(&audio->codecpar->ch_layout, 2);
    audio->codecpar->block_align = 4;
    audio->codecpar->bits_per_coded_sample = 16;
    avio_open(&out->pb, output_path().c_str(), AVIO_FLAG_WRITE);
    if (avformat_write_header(out, nullptr) < 0) std::abort();
    AVPacket *packet = av_packet_alloc();
    for (int i = 0; i < m.frames; ++i) {
        put_packet(out, packet, 0, m.video_bytes, av_rescale_q(i, AVRational{1, fps}, video->time_base));
        put_packet(out, packet, 1, m.audio_bytes, int64_t(i) * (m.audio_bytes / 4));
    }
    av_packet_free(&packet);
    av_write_trailer(out);
    avio_closep(&out->pb);
    avformat_free_context(out);
}

}  // namespace

// The one function callgrind counts the instructions of (kept out of line
// and unmangled so that its name can be given to --toggle-collect).
extern "C" __attribute__((noinline)) void writer_bench_write(int w, const chunk_mix *m) {
    switch (w) {
        case limit_fwrite: write_with_fwrite(*m); break;
        case peer_avformat: write_with_avformat(*m); break;
        default:
            write_with_writer(*m, w == ours_odml || w == ours_odml_checkpoint ? 1 : 0,
                              w == ours_checkpoint || w == ours_odml_checkpoint ? 1.0 : 0.0, 0, [] {});
    }
}

namespace {

double cpu_seconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + t.tv_nsec / 1e9;
}

double median_cpu_ms(int w, const chunk_mix &m, int runs) {
    std::vector<double> times;
    for (int r = 0; r < runs; ++r) {
        const double start = cpu_seconds();
        writer_bench_write(w, &m);
        times.push_back((cpu_seconds() - start) * 1e3);
        std::remove(output_path().c_str());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Output of a shell command, or empty when it could not run.
std::string command_output(const std::string &command) {
    std::string text;
    FILE *p = popen(command.c_str(), "r");
    if (p == nullptr) return text;
    char line[512];
    while (std::fgets(line, sizeof line, p) != nullptr) text += line;
    pclose(p);
    return text;
}

std::string self_path() {
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string();
}

std::string probe_command(int w, const chunk_mix &m, int frames) {
    return self_path() + " probe " + way_names[w] + " " + m.name + " " + std::to_string(frames);
}

// System calls of one probe run, all kinds, from strace -c (-1 without strace).
double strace_calls(int w, const chunk_mix &m, int frames) {
    const std::string report = command_output("strace -f -c " + probe_command(w, m, frames) + " 2>&1 >/dev/null");
    const size_t at = report.rfind("total");
    if (at == std::string::npos) return -1;
    // The total line: % time, seconds, usecs/call, calls, errors, "total".
    const size_t line = report.rfind('\n', at);
    double calls = -1;
    if (std::sscanf(report.c_str() + line + 1, "%*s %*s %*s %lf", &calls) != 1) return -1;
    return calls;
}

// System calls per chunk, less those of a run of no frames (start-up, exit).
double syscalls_per_chunk(int w, const chunk_mix &m) {
    const double all = strace_calls(w, m, m.frames), none = strace_calls(w, m, 0);
    return all < 0 || none < 0 ? -1 : (all - none) / (2.0 * m.frames);
}

// User-space instructions per chunk over a tenth of the mix, from callgrind
// (-1 without valgrind).
double instructions_per_chunk(int w, const chunk_mix &m) {
    const int frames = std::max(m.frames / 10, 1);
    const std::string report = command_output(
        "valgrind --tool=callgrind --callgrind-out-file=/dev/null --collect-atstart=no "
        "--toggle-collect=writer_bench_write " + probe_command(w, m, frames) + " 2>&1 >/dev/null");
    const size_t at = report.find("Collected :");
    if (at == std::string::npos) return -1;
    return std::atof(report.c_str() + at + 11) / (2.0 * frames);
}

struct way_figures {
    double ms = 0, syscalls = 0, instructions = 0;
};

void print_mix_table(const chunk_mix &m, int runs) {
    way_figures f[way_count];
    for (int w = 0; w < way_count; ++w) {
        f[w].ms = median_cpu_ms(w, m, runs);
        f[w].syscalls = syscalls_per_chunk(w, m);
        f[w].instructions = instructions_per_chunk(w, m);
    }
    for (int w = ours; w < way_count; ++w)
        std::printf("%-6s %-18s %10.1f %10.1f %10.1f %9.2f %9.2f %7.3f %7.3f %7.3f %8.0f %8.0f %8.0f\n", m.name,
                    way_names[w], f[limit_fwrite].ms, f[peer_avformat].ms, f[w].ms, f[limit_fwrite].ms / f[w].ms,
                    f[peer_avformat].ms / f[w].ms, f[w].syscalls, f[limit_fwrite].syscalls,
                    f[peer_avformat].syscalls, f[w].instructions, f[limit_fwrite].instructions,
                    f[peer_avformat].instructions);
    // One automatic checkpoint per second of video: frames / fps of them.
    const double checkpoints = double(m.frames) / fps;
    std::printf("%-6s one checkpoint costs %.1f us (%.1f us with OpenDML)\n", m.name,
                (f[ours_checkpoint].ms - f[ours].ms) / checkpoints * 1e3,
                (f[ours_odml_checkpoint].ms - f[ours_odml].ms) / checkpoints * 1e3);
    std::fflush(stdout);
}

void print_speed_table(int runs) {
    std::printf("writing each mix (median CPU time of %d runs; file in the page cache)\n", runs);
    std::printf("speed = limit time / our time (goal >= 0.90); vs peer = libavformat time / our time (goal > 1)\n");
    std::printf("syscalls and instructions (user space) per chunk: ours, limit, peer\n");
    std::printf("%-6s %-18s %10s %10s %10s %9s %9s %23s %26s\n", "mix", "writer", "limit ms", "peer ms", "ours ms",
                "speed", "vs peer", "syscalls/chunk", "instructions/chunk");
    for (const chunk_mix *m : {&small_mix, &large_mix}) print_mix_table(*m, runs);
}

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
        std::remove(output_path().c_str());
        ssize_t written = write(fds[1], &f, sizeof f);
        _exit(written == sizeof f ? 0 : 1);
    }
    close(fds[1]);
    if (read(fds[0], &figures, sizeof figures) != sizeof figures) figures = rss_figures{};
    close(fds[0]);
    waitpid(child, nullptr, 0);
    return figures;
}

void print_row(const std::string &what, const rss_figures &f) {
    std::printf("%-44s %10ld %12s %10ld\n", what.c_str(), f.baseline,
                f.after_1000 > 0 ? std::to_string(f.after_1000).c_str() : "-", f.peak);
}

void print_writer_memory() {
    // The figures of the timed runs would hide the writer's own.
    std::printf("\nresident memory of a fresh process writing each mix (KiB)\n");
    std::printf("%-44s %10s %12s %10s\n", "", "before", "1,000 chunks", "peak");
    for (const chunk_mix *m : {&large_mix, &small_mix}) {
        for (uint32_t odml : {0u, 1u}) {
            const rss_figures f = measure_in_child([m, odml](rss_figures &out) {
                write_with_writer(*m, odml, 0.0, 1000, [&out] { out.after_1000 = resident_kib("VmRSS:"); });
            });
            print_row(std::string("writer, ") + m->name + (odml ? ", OpenDML" : ""), f);
        }
        print_row(std::string("plain fwrite, ") + m->name, measure_in_child([m](rss_figures &) { write_with_fwrite(*m); }));
        print_row(std::string("libavformat, ") + m->name,
                  measure_in_child([m](rss_figures &) { write_with_avformat(*m); }));
    }
    std::printf("writer handle: %zu bytes of address space, one calloc\n", sizeof(aviout_handle));
    std::remove(output_path().c_str());
}

int way_named(const char *name) {
    for (int w = 0; w < way_count; ++w)
        if (std::strcmp(name, way_names[w]) == 0) return w;
    std::fprintf(stderr, "writer_bench: unknown way %s\n", name);
    std::exit(2);
}

const chunk_mix &mix_named(const char *name) { return std::strcmp(name, "large") == 0 ? large_mix : small_mix; }

int probe(const char *way_name, const char *mix_name, int frames) {
    chunk_mix m = mix_named(mix_name);
    m.frames = frames;
    writer_bench_write(way_named(way_name), &m);
    std::remove(output_path().c_str());
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 5 && std::strcmp(argv[1], "probe") == 0) return probe(argv[2], argv[3], std::atoi(argv[4]));
    if (argc == 5 && std::strcmp(argv[1], "time") == 0) {
        std::printf("%.1f ms\n", median_cpu_ms(way_named(argv[2]), mix_named(argv[3]), std::atoi(argv[4])));
        return 0;
    }
    if (const char *scale = std::getenv("KELQAVI_BENCH_SCALE")) {
        const double s = std::atof(scale);
        if (s > 0) {
            small_mix.frames = std::max(1, int(small_mix.frames * s));
            large_mix.frames = std::max(1, int(large_mix.frames * s));
        }
    }
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    print_speed_table(runs);
    print_writer_memory();
    return 0;
}
