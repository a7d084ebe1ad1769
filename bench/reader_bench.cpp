// Whole-file reading: the reader's two walks over every chunk of a file,
// against libavformat's packet reading (the peer) and plain block reads of
// the same file (the limit).
extern "C" {
#include <libavformat/avformat.h>
}

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_files.h"
#include "kelqavi.h"

namespace {

constexpr uint32_t frame_bytes = 1024;
constexpr int frames = 16384;
constexpr uint32_t index_flag_key = 0x10;

// An AVI of one MJPG-tagged video stream with the given number of 1 KiB
// frames, every one a key frame, and an idx1, written with the library's own
// RIFF and header-record writers.
void write_reader_file(const std::string &path, int count) {
    FILE *f = file_open(path.c_str(), 1);
    uint32_t status = 0;
    const int64_t riff = write_RIFF_form_header(make_fourCC("AVI "), f, &status);
    const int64_t hdrl = write_list_header(make_fourCC("hdrl"), f, &status);
    avi_main_header avih{};
    avih.micro_sec_per_frame = 40000;
    avih.flags = index_flag_key;
    avih.total_frames = static_cast<uint32_t>(count);
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
    strh.length = static_cast<uint32_t>(count);
    write_header_strh(&strh, f);
    video_format strf{40, 64, 48, 1, 24, make_fourCC("MJPG"), frame_bytes, 0, 0, 0, 0};
    write_header_strf_video(&strf, f);
    chunk_end(strl, f, &status);
    chunk_end(hdrl, f, &status);
    const int64_t movi = write_list_header(make_fourCC("movi"), f, &status);
    const std::vector<uint8_t> frame(frame_bytes, 0xA5);
    const uint32_t id = create_fourCC(0, KELQAVI_CHUNK_VIDEO, 0);
    for (int i = 0; i < count; ++i) data_chunk(id, frame.data(), frame_bytes, f, &status);
    chunk_end(movi, f, &status);
    const int64_t idx1 = chunk_start(f, &status);
    write_fourCC(make_fourCC("idx1"), f);
    write_val32(0, f);
    for (uint32_t i = 0; i < static_cast<uint32_t>(count); ++i) {
        write_fourCC(id, f);
        write_val32(index_flag_key, f);
        write_val32(4 + i * (frame_bytes + 8), f);
        write_val32(frame_bytes, f);
    }
    chunk_end(idx1, f, &status);
    chunk_end(riff, f, &status);
    file_close(f);
}

std::string &reader_file() {
    static std::string path;
    if (!path.empty()) return path;
    path = std::string(P_tmpdir) + "/kelqavi-bench-reader-" + std::to_string(getpid()) + ".avi";
    write_reader_file(path, frames);
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

// Packets libavformat hands out over the whole file. With every stream
// discarded its demuxer reads each chunk's header and skips the data, as the
// header walk does: that is the header walk's peer.
int avformat_walk(AVPacket *packet, bool discard_all) {
    AVFormatContext *context = nullptr;
    avformat_open_input(&context, reader_file().c_str(), nullptr, nullptr);
    if (discard_all)
        for (unsigned i = 0; i < context->nb_streams; ++i) context->streams[i]->discard = AVDISCARD_ALL;
    int packets = 0;
    while (av_read_frame(context, packet) >= 0) {
        ++packets;
        av_packet_unref(packet);
    }
    avformat_close_input(&context);
    return packets;
}

void BM_ReaderWalk_Peer_avformat(benchmark::State &state) {
    AVPacket *packet = av_packet_alloc();
    for (auto _ : state) benchmark::DoNotOptimize(avformat_walk(packet, false));
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

void BM_ReaderWalkHeaders_Peer_avformat(benchmark::State &state) {
    AVPacket *packet = av_packet_alloc();
    for (auto _ : state) benchmark::DoNotOptimize(avformat_walk(packet, true));
    av_packet_free(&packet);
    state.SetItemsProcessed(state.iterations() * frames);
}

// File position of the first chunk header in "movi", as the header walk reports it.
int64_t first_movi_header() {
    aviin_handle *h = aviin_open(reader_file().c_str(), 0);
    uint32_t type = 0, stream = 0, size = 0;
    uint64_t offset = 0;
    aviin_get_next_chunk_type(h, &type, &stream, &offset, &size);
    aviin_close(h);
    return static_cast<int64_t>(offset) - 8;
}

}  // namespace

// Walks `count` chunk headers from file position `first` the plain way:
// every byte of the file through stdio in 64 KiB blocks (a walk over chunks
// smaller than its buffer brings in every page anyway), the headers picked
// out of the blocks in memory. The limit of every header walk.
int walk_headers_in_blocks(const char *path, int64_t first, int count) {
    constexpr size_t block = 64 * 1024;
    static uint8_t buffer[block + 8];
    FILE *f = std::fopen(path, "rb");
    int64_t base = 0, next = first;  // file offsets of buffer[0] and of the next header
    size_t held = 0, n = 0;
    int chunks = 0;
    do {
        const size_t drop = next - base < static_cast<int64_t>(held) ? static_cast<size_t>(next - base) : held;
        std::memmove(buffer, buffer + drop, held - drop);
        base += static_cast<int64_t>(drop);
        held -= drop;
        n = std::fread(buffer + held, 1, block, f);
        held += n;
        for (; chunks < count && next + 8 <= base + static_cast<int64_t>(held); ++chunks) {
            const uint8_t *p = buffer + (next - base);
            const uint32_t size = p[4] | p[5] << 8 | p[6] << 16 | static_cast<uint32_t>(p[7]) << 24;
            next += 8 + size + (size & 1);
        }
    } while (n > 0 && chunks < count);
    std::fclose(f);
    return chunks;
}

namespace {

void BM_ReaderWalkHeaders_Limit_fread(benchmark::State &state) {
    const int64_t first = first_movi_header();
    for (auto _ : state) benchmark::DoNotOptimize(walk_headers_in_blocks(reader_file().c_str(), first, frames));
    state.SetItemsProcessed(state.iterations() * frames);
}

// Opening the file and building the key-frame table of its video stream
// from idx1 in one call.
void BM_KeyTableFromIdx1(benchmark::State &state) {
    std::unique_ptr<keyindex_entry[]> entries(new keyindex_entry[frames]);
    for (auto _ : state) {
        aviin_handle *h = aviin_open(reader_file().c_str(), 0);
        keyindex_table table;
        if (aviin_init_keyindex(h, &table, entries.get(), frames, 0) == 0)
            while (aviin_build_keyindex_entry(h, &table, 0) == 0) {}
        aviin_close(h);
        benchmark::DoNotOptimize(table.count);
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

// The peer: libavformat's open, which reads the headers and loads idx1 into
// its own index.
void BM_KeyTableFromIdx1_Peer_avformat(benchmark::State &state) {
    for (auto _ : state) {
        AVFormatContext *context = nullptr;
        avformat_open_input(&context, reader_file().c_str(), nullptr, nullptr);
        benchmark::DoNotOptimize(context->nb_streams);
        avformat_close_input(&context);
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

// The limit: the idx1 entries, the last bytes of the file, through stdio in
// 64 KiB blocks, with their key flags counted.
void BM_KeyTableFromIdx1_Limit_fread(benchmark::State &state) {
    std::vector<uint8_t> block(64 * 1024);
    for (auto _ : state) {
        FILE *f = std::fopen(reader_file().c_str(), "rb");
        fseeko64(f, -static_cast<int64_t>(frames) * 16, SEEK_END);
        int keys = 0;
        for (size_t n; (n = std::fread(block.data(), 1, block.size(), f)) > 0;)
            for (size_t at = 4; at < n; at += 16) keys += (block[at] & index_flag_key) != 0;
        std::fclose(f);
        benchmark::DoNotOptimize(keys);
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

BENCHMARK(BM_ReaderWalk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalk_Peer_avformat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalk_Limit_fread)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalkHeaders)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalkHeaders_Peer_avformat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReaderWalkHeaders_Limit_fread)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyTableFromIdx1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyTableFromIdx1_Peer_avformat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyTableFromIdx1_Limit_fread)->Unit(benchmark::kMillisecond);

}  // namespace

// The riff layer's list navigation: the top-level chunks stepped over up to
// the "movi" list, whose chunks are then stepped over one by one.
long walk_movi_list(const char *path) {
    FILE *f = file_open(path, 0);
    list_node *riff = new_list(nullptr, f);
    long met = 0;
    while (riff != nullptr && riff->status == 0 && !end_of_list(riff)) {
        if (fourCC_equal(next_chunk_in_list(riff), make_fourCC("LIST"))) {
            list_node *list = new_list(riff, f);
            const bool movi = list != nullptr && fourCC_equal(list->type, make_fourCC("movi"));
            for (; movi && !end_of_list(list); ++met) {
                next_chunk_in_list(list);
                file_seek(f, list->next_pos, 0);
            }
            ascend_list(list);
        }
        file_seek(f, riff->next_pos, 0);
    }
    delete_list_recursive(riff);
    file_close(f);
    return met;
}

// One pass of a reading workload over a file of `count` frames made by
// probe_make_reader_file, for counting system calls and instructions: open
// (open and close alone, the baseline to subtract), data, headers, list (the
// riff layer's list navigation over "movi"), keys (key-frame table built
// from idx1 in one call), idx1 (a time-span scan of idx1) or entries (every
// idx1 entry looked up by number). Prints the chunks or entries it met.
int probe_read(const char *walk, const char *path) {
    aviin_handle *h = aviin_open(path, 0);
    if (h == nullptr) return 1;
    std::vector<uint8_t> buffer(64 * 1024);
    uint32_t type = 0, stream = 0, size = 0, key = 0;
    uint64_t offset = 0;
    long met = 0;
    const std::string w = walk;
    if (w == "data") {
        for (int32_t got = 65536; aviin_get_next_chunk(h, &type, &stream, buffer.data(), &got) == 0; got = 65536) ++met;
    } else if (w == "headers") {
        while (aviin_get_next_chunk_type(h, &type, &stream, &offset, &size) == 0) ++met;
    } else if (w == "keys") {
        std::unique_ptr<keyindex_entry[]> entries(new keyindex_entry[1 << 20]);
        keyindex_table table;
        if (aviin_init_keyindex(h, &table, entries.get(), 1u << 20, 0) == 0)
            while (aviin_build_keyindex_entry(h, &table, 0) == 0) {}
        met = table.count;
    } else if (w == "idx1") {
        uint32_t first = 0, last = 0;
        aviin_get_start_end_by_time(h, 0, KELQAVI_CHUNK_VIDEO, 0.0f, 1e9f, &first, &last);
        met = last + 1;
    } else if (w == "entries") {
        while (aviin_get_idx1_entry(h, static_cast<uint32_t>(met), &stream, &type, &size, &key) == 0) ++met;
    } else if (w == "list") {
        met = walk_movi_list(path);
    } else if (w != "open") {
        met = -1;
    }
    aviin_close(h);
    std::printf("%s: %ld\n", walk, met);
    return 0;
}

int probe_make_reader_file(const char *path, int count) {
    write_reader_file(path, count);
    return 0;
}

void remove_reader_bench_file() {
    if (!reader_file().empty()) std::remove(reader_file().c_str());
}
