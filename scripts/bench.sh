#!/bin/sh
# Installs what is missing, builds the benchmarks in Release, runs them (with
# ratios to plain stdio and to libavformat's I/O layer), and counts system
# calls per chunk with strace. The writer's table (whole files against plain
# fwrite and libavformat's muxer) counts its own system calls and
# instructions under strace and callgrind; KELQAVI_BENCH_SCALE=0.1 makes its
# mixes a tenth as large.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh bench
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELQAVI_BUILD_TESTS=OFF \
    -DKELQAVI_BUILD_TOOLS=OFF -DKELQAVI_BUILD_BENCH=ON > /dev/null
cmake --build build/bench
bench=./build/bench/bench/riff_bench
"$bench" "$@"

chunks=10000
for mode in default 64k; do
    writes=$(strace -f -c -e trace=write "$bench" probe-write "$mode" "$chunks" 2>&1 >/dev/null | awk '$NF == "write" {print $4}')
    echo "write syscalls per 1 KiB chunk, $mode stdio buffer: $(awk "BEGIN {printf \"%.3f\", $writes / $chunks}")"
done
strace -f -c -e trace=lseek,read "$bench" probe-walk 2>&1 >/dev/null \
    | awk '$NF == "lseek" || $NF == "read" {printf "list walk %s calls per chunk: %.2f\n", $NF, $4 / 16384}'

./build/bench/bench/writer_bench
