// Temporary files the benchmarks make, removed when the run ends.
#pragma once

#include <cstdint>

void remove_reader_bench_file();
void remove_seek_bench_files();
void remove_repair_bench_files();
int probe_read(const char *walk, const char *path);
int probe_make_reader_file(const char *path, int count);
int walk_headers_in_blocks(const char *path, int64_t first, int count);
