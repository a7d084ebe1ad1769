// Cost of the RIFF layer against the plain stdio calls underneath it (the
// physical limit) and against libavformat's byte I/O layer (the peer), in one
// run. Prints figures only; nothing here asserts on time.
//
//   riff_bench [benchmark flags]          the benchmarks, then peak memory
//   riff_bench timings-only [flags]       the benchmarks alone
//   riff_bench probe-write MODE N         writes N 1 KiB chunks (MODE default
//                                         or 64k), for counting system calls
//   riff_bench probe-walk                 walks a list of 16384 chunks once
//   riff_bench probe-make PATH N          writes an AVI of N 1 KiB key frames
//   riff_bench probe-read WALK PATH       one reading workload over it (see
//                                         probe_read in reader_bench.cpp)
extern "C" {
#include <libavformat/avio.h>
}

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bench_files.h"
#include "kelqavi.h"

namespace {

constexpr uint32_t chunk_bytes = 1024;
constexpr int chunks_per_file = 16384;                 // 16 MiB of payload
constexpr size_t big_buffer = 64 * 1024;

// glibc ignores the size given to setvbuf unless a buffer comes with it.
void use_big_buffer(FILE *f) {
    static char buffer[big_buffer];
    setvbuf(f, buffer, _IOFBF, sizeof buffer);
}

std::string temp_path(const char *tag) {
    return std::string(P_tmpdir) + "/kelqavi-bench-" + tag + "-" + std::to_string(getpid());
}

// --- per-call cost of a value read --------------------------------------

std::string value_file() {
    static std::string path;
    if (path.empty()) {
        path = temp_path("values");
        std::vector<uint8_t> bytes(4 << 20, 0x5A);
        FILE *f = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
    return path;
}

void BM_ReadVal32(benchmark::State &state) {
    FILE *f = file_open(value_file().c_str(), 0);
    uint32_t v = 0;
    for (auto _ : state) {
        if (read_val32(&v, f) != 0) file_seek(f, 0, 0);
        benchmark::DoNotOptimize(v);
    }
    file_close(f);
}

void BM_ReadVal32_Limit_fread(benchmark::State &state) {
    FILE *f = std::fopen(value_file().c_str(), "rb");
    uint8_t b[4];
    for (auto _ : state) {
        if (std::fread(b, 1, 4, f) != 4) std::rewind(f);
        uint32_t v = b[0] | b[1] << 8 | b[2] << 16 | static_cast<uint32_t>(b[3]) << 24;
        benchmark::DoNotOptimize(v);
    }
    std::fclose(f);
}

void BM_ReadVal32_Peer_avio(benchmark::State &state) {
    AVIOContext *io = nullptr;
    avio_open(&io, value_file().c_str(), AVIO_FLAG_READ);
    for (auto _ : state) {
        uint32_t v = avio_rl32(io);
        if (avio_feof(io)) avio_seek(io, 0, SEEK_SET);
        benchmark::DoNotOptimize(v);
    }
    avio_closep(&io);
}

void BM_ChunkIdFormAndClassify(benchmark::State &state) {
    int32_t n = 0;
    for (auto _ : state) {
        const uint32_t id = create_fourCC(n & 15, 1 + (n & 7), n & 16);
        benchmark::DoNotOptimize(get_chunk_type(id, 1) + fourCC_streamID(id, 1));
        ++n;
    }
}

// --- whole-file write throughput -----------------------------------------

const std::vector<uint8_t> &payload() {
    static std::vector<uint8_t> data(chunk_bytes, 0xA5);
    return data;
}

void write_chunks(FILE *f, int count) {
    uint32_t status = 0;
    const uint32_t id = create_fourCC(0, KELQAVI_CHUNK_VIDEO, 0);
    for (int i = 0; i < count; ++i) data_chunk(id, payload().data(), chunk_bytes, f, &status);
}

void BM_DataChunkWrite(benchmark::State &state) {
    const std::string path = temp_path("write");
    for (auto _ : state) {
        FILE *f = file_open(path.c_str(), 1);
        if (state.range(0) != 0) use_big_buffer(f);
        write_chunks(f, chunks_per_file);
        file_close(f);
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(state.iterations() * int64_t(chunks_per_file) * (chunk_bytes + 8));
}

void BM_DataChunkWrite_Limit_fwrite(benchmark::State &state) {
    const std::string path = temp_path("write-limit");
    std::vector<uint8_t> whole(chunk_bytes + 8, 0xA5);
    std::memcpy(whole.data(), "00dc", 4);
    for (auto _ : state) {
        FILE *f = std::fopen(path.c_str(), "wb");
        use_big_buffer(f);
        for (int i = 0; i < chunks_per_file; ++i) std::fwrite(whole.data(), 1, whole.size(), f);
        std::fclose(f);
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(state.iterations() * int64_t(chunks_per_file) * (chunk_bytes + 8));
}

void BM_DataChunkWrite_Peer_avio(benchmark::State &state) {
    const std::string path = temp_path("write-peer");
    for (auto _ : state) {
        AVIOContext *io = nullptr;
        avio_open(&io, path.c_str(), AVIO_FLAG_WRITE);
        for (int i = 0; i < chunks_per_file; ++i) {
            avio_wl32(io, create_fourCC(0, KELQAVI_CHUNK_VIDEO, 0));
            avio_wl32(io, chunk_bytes);
            avio_write(io, payload().data(), chunk_bytes);
        }
        avio_closep(&io);
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(state.iterations() * int64_t(chunks_per_file) * (chunk_bytes + 8));
}

// --- walking the chunks of a large list ----------------------------------

std::string movi_file() {
    static std::string path;
    if (path.empty()) {
        path = temp_path("movi");
        FILE *f = file_open(path.c_str(), 1);
        uint32_t status = 0;
        const int64_t riff = write_RIFF_form_header(make_fourCC("AVI "), f, &status);
        const int64_t movi = write_list_header(make_fourCC("movi"), f, &status);
        write_chunks(f, chunks_per_file);
        chunk_end(movi, f, &status);
        chunk_end(riff, f, &status);
        file_close(f);
    }
    return path;
}

void BM_ListWalk(benchmark::State &state) {
    FILE *f = file_open(movi_file().c_str(), 0);
    for (auto _ : state) {
        file_seek(f, 0, 0);
        list_node *riff = new_list(nullptr, f);
        list_node *movi = new_list(riff, f);
        int chunks = 0;
        while (!end_of_list(movi)) {
            next_chunk_in_list(movi);
            file_seek(f, movi->next_pos, 0);
            ++chunks;
        }
        benchmark::DoNotOptimize(chunks);
        delete_list_recursive(movi);
    }
    file_close(f);
    state.SetItemsProcessed(state.iterations() * chunks_per_file);
}

// The limit: the same headers picked out of plain block reads of the file.
void BM_ListWalk_Limit_fread(benchmark::State &state) {
    for (auto _ : state) benchmark::DoNotOptimize(walk_headers_in_blocks(movi_file().c_str(), 24, chunks_per_file));
    state.SetItemsProcessed(state.iterations() * chunks_per_file);
}

void BM_ListWalk_Peer_avio(benchmark::State &state) {
    AVIOContext *io = nullptr;
    avio_open(&io, movi_file().c_str(), AVIO_FLAG_READ);
    for (auto _ : state) {
        int64_t pos = 24;
        int chunks = 0;
        while (avio_seek(io, pos, SEEK_SET) >= 0) {
            avio_rl32(io);
            const uint32_t size = avio_rl32(io);
            if (avio_feof(io)) break;
            pos += 8 + size + (size & 1);
            ++chunks;
        }
        benchmark::DoNotOptimize(chunks);
    }
    avio_closep(&io);
    state.SetItemsProcessed(state.iterations() * chunks_per_file);
}

BENCHMARK(BM_ReadVal32);
BENCHMARK(BM_ReadVal32_Limit_fread);
BENCHMARK(BM_ReadVal32_Peer_avio);
BENCHMARK(BM_ChunkIdFormAndClassify);
BENCHMARK(BM_DataChunkWrite)->Arg(0)->Arg(1)->ArgName("buffer64k")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DataChunkWrite_Limit_fwrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DataChunkWrite_Peer_avio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListWalk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListWalk_Limit_fread)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListWalk_Peer_avio)->Unit(benchmark::kMillisecond);

int probe_write(const char *mode, int count) {
    const std::string path = temp_path("probe");
    FILE *f = file_open(path.c_str(), 1);
    if (std::strcmp(mode, "64k") == 0) use_big_buffer(f);
    write_chunks(f, count);
    file_close(f);
    std::remove(path.c_str());
    return 0;
}

int probe_walk() {
    const std::string path = movi_file();
    FILE *f = file_open(path.c_str(), 0);
    list_node *movi = new_list(new_list(nullptr, f), f);
    int chunks = 0;
    while (!end_of_list(movi)) {
        next_chunk_in_list(movi);
        file_seek(f, movi->next_pos, 0);
        ++chunks;
    }
    delete_list_recursive(movi);
    file_close(f);
    std::remove(path.c_str());
    std::printf("walked %d chunks\n", chunks);
    return 0;
}

// Prints the table as usual, then each benchmark's CPU time as a ratio to
// its limit and peer variants ("BM_X_Limit_..." and "BM_X_Peer_...").
class ratio_reporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration) times_.push_back({run.benchmark_name(), run.GetAdjustedCPUTime()});
        ConsoleReporter::ReportRuns(runs);
    }
    void print_ratios() const {
        std::printf("\n%-40s %14s %14s\n", "ours (CPU time)", "x limit", "x peer");
        for (const auto &ours : times_) {
            if (ours.first.find("_Limit_") != std::string::npos || ours.first.find("_Peer_") != std::string::npos)
                continue;
            const std::string base = ours.first.substr(0, ours.first.find('/'));
            double limit = 0, peer = 0;
            for (const auto &other : times_) {
                if (other.first.rfind(base + "_Limit_", 0) == 0) limit = other.second;
                if (other.first.rfind(base + "_Peer_", 0) == 0) peer = other.second;
            }
            if (limit == 0 && peer == 0) continue;
            std::printf("%-40s %14.2f %14.2f\n", ours.first.c_str(), limit != 0 ? ours.second / limit : 0.0,
                        peer != 0 ? ours.second / peer : 0.0);
        }
    }

private:
    std::vector<std::pair<std::string, double>> times_;
};

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "probe-walk") == 0) return probe_walk();
    if (argc == 4 && std::strcmp(argv[1], "probe-make") == 0) return probe_make_reader_file(argv[2], std::atoi(argv[3]));
    if (argc == 4 && std::strcmp(argv[1], "probe-read") == 0) return probe_read(argv[2], argv[3]);
    if (argc == 4 && std::strcmp(argv[1], "probe-write") == 0) return probe_write(argv[2], std::atoi(argv[3]));
    // "timings-only" first: the benchmarks alone, without the memory and
    // checkpoint tables.
    const bool timings_only = argc > 1 && std::strcmp(argv[1], "timings-only") == 0;
    if (timings_only) --argc, ++argv;
    benchmark::Initialize(&argc, argv);
    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios();
    benchmark::Shutdown();
    std::remove(value_file().c_str());
    std::remove(movi_file().c_str());
    remove_reader_bench_file();
    remove_seek_bench_files();
    remove_repair_bench_files();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak resident memory: %ld KiB\n", usage.ru_maxrss);
    return 0;
}
