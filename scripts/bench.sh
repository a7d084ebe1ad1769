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

# Reading, one row per workload: median CPU time of five runs for plain stdio
# (the limit), libavformat (the peer) and the library, the library's time
# over each, and per chunk the system calls (strace) and instructions
# (callgrind) of one pass over a file of 20,000 1 KiB chunks, less those of
# opening that file alone. The peers: packet reading for the data walk, the
# demuxer with every stream discarded (headers read, data skipped) for the
# header walk, avio seeks and reads for the list walk, and libavformat's open,
# which loads idx1 into its index, for the key-frame table.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bench" timings-only --benchmark_filter='^BM_(ReaderWalk|ReaderWalkHeaders|ListWalk|KeyTableFromIdx1)(_|$)' \
    --benchmark_repetitions=5 --benchmark_report_aggregates_only=true --benchmark_out="$work/times.csv" \
    --benchmark_out_format=csv > /dev/null 2>&1
awk -F, '$1 ~ /_median"$/ {gsub(/"/, "", $1); sub(/_median$/, "", $1); print $1, $4}' "$work/times.csv" > "$work/times"
chunks=20000
"$bench" probe-make "$work/probe.avi" "$chunks"
pass() {  # WORKLOAD: its system calls and instructions
    calls=$(strace -f -c "$bench" probe-read "$1" "$work/probe.avi" 2>&1 >/dev/null | awk '$NF == "total" {print $4}')
    instructions=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null "$bench" probe-read "$1" "$work/probe.avi" \
        2>&1 >/dev/null | awk '/Collected/ {print $4}')
    echo "$calls $instructions"
}
opening=$(pass open)
printf '\n%-20s %9s %12s %9s %8s %8s %15s %13s\n' "reading (ms, CPU)" limit libavformat kelqavi "x limit" "x peer" \
    "syscalls/chunk" "instr/chunk"
for row in "data walk ReaderWalk data" "header walk ReaderWalkHeaders headers" "list walk ListWalk list" \
    "key table KeyTableFromIdx1 keys"; do
    set -- $row
    counts=$(pass "$4")
    awk -v name="$1 $2" -v b="BM_$3" -v counts="$counts" -v opening="$opening" -v n="$chunks" '
        {t[$1] = $2}
        END {
            split(counts, c); split(opening, o)
            ours = t[b]; limit = t[b "_Limit_fread"]
            for (k in t) if (index(k, b "_Peer_") == 1) peer = t[k]
            printf "%-20s %9.2f %12.2f %9.2f %8.2f %8.2f %15.3f %13.0f\n", name, limit, peer, ours, ours / limit,
                ours / peer, (c[1] - o[1]) / n, (c[2] - o[2]) / n
        }' "$work/times"
done

./build/bench/bench/writer_bench
