// Temporary files the benchmarks make, removed when the run ends.
#pragma once

void remove_reader_bench_file();
void remove_seek_bench_files();
void remove_repair_bench_files();
