// Whole-file reading: the reader's two walks over every chunk of a file,
// against libavformat's packet reading (the peer) and plain block reads of
// the same file (the limit).
extern "C" {
#include <libavformat/avformat.h>
}

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench_files.h"
#include "kelqavi.h"

namespace {

constexpr uint32_t frame_bytes = 1024;
constexpr int frames = 16384;
constexpr uint32_t index_flag_key = 0x10;

// An AVI of one MJPG-tagged video stream with 16384 frames of 1 KiB and an
// idx1, written with the library's own RIFF and header-record writers.
std::string &reader_file() {
    static std::string path;
    if (!path.empty()) return path;
    path = std::string(P_tmpdir) + "/kelqavi-bench-reader-" + std::to_string(getpid()) + ".avi";
    FILE *f = file_open(path.c_str(), 1);
    uint32_t status = 0;
    const int64_t riff = write_RIFF_form_header(make_fourCC("AVI "), f, &status);
    const int64_t hdrl = write_list_header(make_fourCC("hdrl"), f, &status);
    avi_main_header avih{};
    avih.micro_sec_per_frame = 40000;
    avih.flags = index_flag_key;
    avih.total_frames = frames;
    avih.streams = 1;
    avih.width = 64;
    avih.height = 48;
    write_header_avih(&avih, f);
    const int64_t strl = write_list_header(make_fourCC("strl"), f, &status);
    avi_stream_header strh{};
    strh.type = make_fourCC("vids");
    strh.handler = make_fourCC("MJPG");
    strh.scale = 1;
    strh.rate = 25;
    strh.length = frames;
    write_header_strh(&strh, f);
    video_format strf{40, 64, 48, 1, 24, make_fourCC("MJPG"), frame_bytes, 0, 0, 0, 0};
    write_header_strf_video(&strf, f);
    chunk_end(strl, f, &status);
    chunk_end(hdrl, f, &status);
    const int64_t movi = write_list_header(make_fourCC("movi"), f, &status);
    const std::vector<uint8_t> frame(frame_bytes, 0xA5);
    const uint32_t id = create_fourCC(0, KELQAVI_CHUNK_VIDEO, 0);
    for (int i = 0; i < frames; ++i) data_chunk(id, frame.data(), frame_bytes, f, &status);
    chunk_end(movi, f, &status);
    const int64_t idx1 = chunk_start(f, &status);
    write_fourCC(make_fourCC("idx1"), f);
    write_val32(0, f);
    for (uint32_t i = 0; i < frames; ++i) {
        write_fourCC(id, f);
        write_val32(index_flag_key, f);
        write_val32(4 + i * (frame_bytes + 8), f);
        write_val32(frame_bytes, f);
    }
    chunk_end(idx1, f, &status);
    chunk_end(riff, f, &status);
    file_close(f);
    return path;
}

void BM_ReaderWalk(benchmark::State &state) {
    std::vector<uint8_t> buffer(64 * 1024);
    for (auto _ : state) {
        aviin_handle *h = aviin_open(reader_file().c_str(), 0);
        uint32_t type = 0, stream = 0;
        int chunks = 0;
        for (;;) {
            int32_t size = static_cast<int32_t>(buffer.size());
            if (aviin_get_next_chunk(h, &type, &stream, buffer.data(), &size) != 0) break;
            ++chunks;
        }
        aviin_close(h);
        benchmark::DoNotOptimize(chunks);
    }
    state.SetBytesProcessed(state.iterations() * int64_t(frames) * frame_bytes);
}

void BM_ReaderWalkHeaders(benchmark::State &state) {
    for (auto _ : state) {
        aviin_handle *h = aviin_open(reader_file().c_str(), 0);
        uint32_t type = 0, stream = 0, size = 0;
        uint64_t offset = 0;
        int chunks = 0;
        while (aviin_get_next_chunk_type(h, &type, &stream, &offset, &size) == 0) ++chunks;
        aviin_close(h);
        benchmark::DoNotOptimize(chunks);
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

void BM_ReaderWalk_Peer_avformat(benchmark::State &state) {
    AVPacket *packet = av_packet_alloc();
    for (auto _ : state) {
        AVFormatContext *context = nullptr;
        avformat_open_input(&context, reader_file().c_str(), nullptr, nullptr);
        int packets = 0;
        while (av_read_frame(context, packet) >= 0) {
            ++packets;
            av_packet_unref(packet);
        }
        avformat_close_input(&context);
        benchmark::DoNotOptimize(packets);
    }
    av_packet_free(&packet);
    state.SetBytesProcessed(state.iterations() * int64_t(frames) * frame_bytes);
}

void BM_ReaderWalk_Limit_fread(benchmark::State &state) {
    std::vector<uint8_t> buffer(64 * 1024);
    for (auto _ : state) {
        FILE *f = std::fopen(reader_file().c_str(), "rb");
        size_t total = 0, n;
        while ((n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0) total += n;
        std::fclose(f);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(state.iterations() * int64_t(frames) * frame_bytes);
}

BENCHMARK(BM_ReaderWalk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalk_Peer_avformat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalk_Limit_fread)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalkHeaders)->Unit(benchmark::kMillisecond);

}  // namespace

void remove_reader_bench_file() {
    if (!reader_file().empty()) std::remove(reader_file().c_str());
}
