#!/bin/bash
# A file above 1 GiB, which ffmpeg writes as OpenDML: a RIFF 'AVI ' form and
# an 'AVIX' form, each 'movi' list ending with the standard index chunks
# ix00 and ix01, and super indexes in the header. The same comparisons as
# for the small files, across both segments, and the index chunks met as
# the plain reader's walk (--strict) meets them and passed whole, as the
# tolerant one passes them. The file is made in a few seconds and deleted after.
# Usage: interop_opendml.sh CHECKER TOOL MAKER   (native builds only; exit 77 without ffmpeg)
set -u
. "$(dirname "$0")/lib.sh"
need_ffmpeg

free_kib=$(df -Pk "$work" | awk 'NR == 2 { print $4 }')
if [ "${free_kib:-0}" -lt 1600000 ]; then
    echo "less than 1.6 GB free in $work: skipped"
    exit 77
fi

# 17 seconds of 1280x720 24-bit raw video at 25 frames a second, and PCM.
avi=$work/large.avi
if ! ffmpeg -nostdin -v error -f lavfi -i color=c=blue:size=1280x720:rate=25 \
        -f lavfi -i sine=frequency=440:sample_rate=22050 -t 17 \
        -c:v rawvideo -pix_fmt bgr24 -c:a pcm_s16le -y "$avi"; then
    fail "ffmpeg could not write the large file"
    finish
    exit 1
fi
size=$(stat -c %s "$avi")
check "the file is above 1 GiB ($size bytes)" test "$size" -gt 1073741824

ffprobe -v error -show_streams -of json "$avi" > "$work/streams.json"
ffprobe -v error -show_packets -of json "$avi" > "$work/packets.json"
kq riff --json "$avi"
expect_status 0 "riff"
cp "$work/out" "$work/riff.json"
ix_chunks=$(grep -c '"id": "ix0[01]"' "$work/riff.json")
check "the tree holds four ix## chunks, two per segment (found $ix_chunks)" test "$ix_chunks" -eq 4

kq info --json "$avi"
expect_status 0 "info --json"
cp "$work/out" "$work/info.json"
compare "the JSON output parses" valid "$work/info.json" "$work/riff.json"
check "two segments" grep -q '"segment_count": 2,' "$work/info.json"
check "the second is an 'AVIX' form" grep -q '"number": 1, "offset": [0-9]*, "id": "RIFF", "form_type": "AVIX"' "$work/info.json"
check "the video super index points at two standard indexes" \
    grep -q '"stream": 0, .*"entries_in_use": 2, "chunk_id": "00dc"' "$work/info.json"
compare "info's streams are ffprobe's" streams "$work/info.json" "$work/streams.json"

# The walks of the plain reader (--strict).
for mode in whole --headers; do
    args=(chunks --json --strict)
    [ "$mode" = whole ] || args+=("$mode")
    kq "${args[@]}" "$avi"
    expect_status 0 "${args[*]}"
    cp "$work/out" "$work/chunks.json"
    compare "${args[*]}: output parses" valid "$work/chunks.json"
    echo "  ${args[*]}:"
    compare "${args[*]}: the chunks of both segments are ffprobe's packets" \
        packets "$work/chunks.json" "$work/packets.json" "$work/riff.json"
    check "${args[*]}: both segments walked to their end" \
        test "$(grep -c '"end": "end_of_list"\|"end": "end_of_file", "end_offset": [0-9]*, "problem": false' "$work/chunks.json")" -eq 2
    # In each segment the walk meets ix00 (unrecognised), then the id
    # "00dc" stored 16 bytes into it, whose size is the low half of the
    # segment's 'movi' position: in the first segment it reads on past the
    # list's end, in the second past the end of the file.
    check "${args[*]}: the walk meets 00dc inside each ix00" \
        test "$(grep -c '"id": "00dc", .*"in_index_of_stream": 0' "$work/chunks.json")" -eq 2
done
compare "idx1, super indexes and segments agree with the walk" \
    indexes "$work/info.json" "$work/chunks.json" "$work/riff.json" "$work/streams.json"

# With swapped ids read as well, "ix00" is recognised as an index chunk and
# passed whole: each index chunk is one record of type index.
kq chunks --json --swapped-ids "$avi"
expect_status 0 "chunks --swapped-ids"
cp "$work/out" "$work/swapped.json"
check "--swapped-ids: one whole index record per ix## chunk" \
    test "$(grep -c '"type": "index", .*"whole_index_chunk": true' "$work/swapped.json")" -eq "$ix_chunks"
check "--swapped-ids: nothing else inside the index chunks" \
    test "$(grep -c '"in_index_of_stream"' "$work/swapped.json")" -eq "$ix_chunks"
compare "--swapped-ids: the chunks are ffprobe's packets" \
    packets "$work/swapped.json" "$work/packets.json" "$work/riff.json"
# Read with tolerance (the default) the walk passes them whole without
# --swapped-ids too, and says the file needed it.
kq chunks --json "$avi"
expect_status 0 "chunks"
check "with tolerance: one whole index chunk per ix## chunk" \
    test "$(grep -c '"type": "index", .*"whole_index_chunk": true' "$work/out")" -eq "$ix_chunks"
check "with tolerance: the index chunks were needed" grep -q '"tolerated": \[.*"index_chunks"' "$work/out"
compare "with tolerance: the chunks are ffprobe's packets" packets "$work/out" "$work/packets.json" "$work/riff.json"

rm -f "$avi"
finish
