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
need ffmpeg ffprobe python3

free_kib=$(df -Pk "$work" | awk 'NR == 2 { print $4 }')
if [ "${free_kib:-0}" -lt 1600000 ]; then
    echo "less than 1.6 GB free in $work: skipped"
    exit 77
fi

# 17 seconds of 1280x720 24-bit raw video at 25 frames a second, and PCM.
avi=$work/large.avi
make_avi large -f lavfi -i color=c=blue:size=1280x720:rate=25 -f lavfi -i sine=frequency=440:sample_rate=22050 \
    -t 17 -c:v rawvideo -pix_fmt bgr24 -c:a pcm_s16le || { finish; exit 1; }
size=$(stat -c %s "$avi")
check "the file is above 1 GiB ($size bytes)" test "$size" -gt 1073741824

against_ffprobe large 0 --strict
ix_chunks=$(grep -c '"id": "ix0[01]"' "$work/large.riff.json")
check "the tree holds four ix## chunks, two per segment (found $ix_chunks)" test "$ix_chunks" -eq 4
check "the second segment is an 'AVIX' form" \
    grep -q '"number": 1, "offset": [0-9]*, "id": "RIFF", "form_type": "AVIX"' "$work/large.info.json"
check "the video super index points at two standard indexes" \
    grep -q '"stream": 0, .*"entries_in_use": 2, "chunk_id": "00dc"' "$work/large.info.json"
# The walks of the plain reader (--strict).
for walk in chunks chunks--headers; do
    check "$walk: both segments walked to their end" \
        test "$(grep -c '"end": "end_of_list"\|"end": "end_of_file", "end_offset": [0-9]*, "problem": false' "$work/large.$walk.json")" -eq 2
    # In each segment the walk meets ix00 (unrecognised), then the id
    # "00dc" stored 16 bytes into it, whose size is the low half of the
    # segment's 'movi' position: in the first segment it reads on past the
    # list's end, in the second past the end of the file.
    check "$walk: the walk meets 00dc inside each ix00" \
        test "$(grep -c '"id": "00dc", .*"in_index_of_stream": 0' "$work/large.$walk.json")" -eq 2
done

# With swapped ids read as well, "ix00" is recognised as an index chunk and
# passed whole: each index chunk is one record of type index, and nothing
# else is met inside it. Read with tolerance (the default) the walk passes
# them whole without --swapped-ids too, and says the file needed it.
for read in --swapped-ids ""; do
    run_json large read chunks --json $read "$avi"
    expect_status 0 "chunks $read"
    check "chunks $read: one whole index record per ix## chunk" \
        test "$(grep -c '"type": "index", .*"whole_index_chunk": true' "$work/large.read.json")" -eq "$ix_chunks"
    check "chunks $read: nothing else inside the index chunks" \
        test "$(grep -c '"in_index_of_stream"' "$work/large.read.json")" -eq "$ix_chunks"
    compare "chunks $read: the chunks are ffprobe's packets" \
        packets "$work/large.read.json" "$work/large.packets.json" "$work/large.riff.json"
done
check "with tolerance: the index chunks were needed" grep -q '"tolerated": \[.*"index_chunks"' "$work/large.read.json"

rm -f "$avi"
finish
