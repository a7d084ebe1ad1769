#!/bin/bash
# The keys, frame and subs commands on the built-in sample (written by the
# library's writer: MJPEG frames, PCM, bitmap subtitles at 0.0-1.4 s and
# 1.5-2.9 s) and on copies of it whose idx1 breaks one rule.
# Usage: cli_index.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"
export LC_ALL=C

sample=$work/sample.avi
kq sample "$sample"
expect_status 0 "sample"

# --- keys -----------------------------------------------------------------
kq keys --json "$sample"
expect_status 0 "keys --json"
check "keys: every frame of the sample is a key frame" \
    test "$(sed -n 's/.*"frames": \([0-9]*\),.*/\1/p' "$work/out")" = "$(sed -n 's/.*"key_frames": \([0-9]*\),.*/\1/p' "$work/out")"
check "keys: 120 bytes an entry" grep -q '"entry_bytes": 120,' "$work/out"
check "keys: the PCM stream counts bytes" grep -q '{"stream": 1, "slot": 0, "counts": "bytes"}' "$work/out"
key5=$(sed -n 's/.*{"frame": 5, "time": 0.5, "idx1_entry": [0-9]*, "offset": \([0-9]*\),.*/\1/p' "$work/out")
check "keys: key frame 5 listed" test -n "$key5"
kq keys "$sample"
expect_status 0 "keys"
check "keys: the table's cost" grep -q '^table: [0-9]* entries of 120 bytes = ' "$work/out"
check "keys: a header line" grep -q '^FRAME   TIME  IDX1  OFFSET  SIZE  AUDIO 1$' "$work/out"

# --- frame ----------------------------------------------------------------
kq frame --json --extract "$work/frame5.jpg" --audio 1 "$sample" 5
expect_status 0 "frame 5"
check "frame 5 is at the offset keys gives" grep -q "^  \"offset\": $key5,$" "$work/out"
check "frame 5's data follows its header" grep -q "^  \"data_offset\": $((key5 + 8)),$" "$work/out"
check "frame 5 is its own key frame" grep -q '^  "key_frame": 5,$' "$work/out"
check "frame 5's audio plays from 0.5 s" grep -q '"audio": {"stream": 1, "offset": [0-9]*, "size": 1600, "start": 0.5, "end": 0.6}' "$work/out"
size=$(sed -n 's/^  "size": \([0-9]*\),$/\1/p' "$work/out")
check "the extracted frame has the chunk's size" test "$(wc -c < "$work/frame5.jpg")" = "$size"
check "the extracted frame is a JPEG picture" test "$(head -c 2 "$work/frame5.jpg" | od -An -tx1 | tr -d ' ')" = ffd8
kq frame "$sample" 5
expect_status 0 "frame 5, text"
check "frame: the chunk line" grep -q "^frame 5 of video stream 0: chunk 00dc at $key5, data at $((key5 + 8)), $size bytes, time 0.500 s$" "$work/out"
kq frame --audio 3 "$sample" 2
expect_status 1 "frame --audio with a subtitle stream"
check "--audio 3: one line" err_is "kelqavi: stream 3 of '$sample' is not an audio stream"

# --- subs -----------------------------------------------------------------
kq subs "$sample"
expect_status 0 "subs"
check "subs: both subtitles with their spans" \
    test "$(grep -c '^     3  *[0-9]*   154  00:00:0[01].[05]00 for 1400 ms  00:00:0[01].[05]00-00:00:0[12].[49]00$' "$work/out")" -eq 2
kq subs --json --frame 5 "$sample"
expect_status 0 "subs --frame 5"
first=$(sed -n 's/.*{"stream": 3, "offset": \([0-9]*\), "size": 154, "text": "00:00:00.000-00:00:01.400".*/\1/p' "$work/out")
check "subs: the first subtitle's offset" test -n "$first"
check "its time span is ended by a NUL" test "$(od -An -tx1 -j $((first + 33)) -N1 "$sample")" = " 00"
check "at 0.5 s the first subtitle shows for 900 ms more" \
    grep -q "{\"stream\": 3, \"result\": 0, \"subtitle_offset\": $first, \"left_ms\": 900, \"last_frame_offset\": null}" "$work/out"
kq subs --json --frame 10 "$sample"
check "at 1.0 s it has 400 ms left: passed over" \
    grep -q '{"stream": 3, "result": 0, "subtitle_offset": null, "left_ms": null, "last_frame_offset": [0-9]*}' "$work/out"
kq subs --frame 15 "$sample"
expect_status 0 "subs --frame 15"
check "at 1.5 s the second starts" grep -q '^  stream 3: subtitle at [0-9]* (00:00:01.500-00:00:02.900), starting at or after the frame$' "$work/out"

# --- idx1 rewritten: copies of the sample whose index breaks one rule --------
idx1=$(grep -abo 'idx1' "$sample" | tail -n 1 | cut -d: -f1)
movi=$(grep -abo 'movi' "$sample" | head -n 1 | cut -d: -f1)
count=$(( $(od -An -tu4 -j $((idx1 + 4)) -N4 "$sample") / 16 ))
put() { dd of="$1" bs=1 seek="$2" conv=notrunc status=none; }  # put FILE AT < BYTES
# Per entry (FILE ENTRY-POSITION): its offset counted from the file start, its
# key-frame flag cleared, its video id moved to stream 9.
absolute() { le32 $(($(od -An -tu4 -j $(($2 + 8)) -N4 "$1") + movi)) | put "$1" $(($2 + 8)); }
unflagged() { le32 0 | put "$1" $(($2 + 4)); }
moved() { [ "$(dd if="$1" bs=1 skip="$2" count=4 status=none)" != 00dc ] || printf 09dc | put "$1" "$2"; }
for edit in absolute unflagged moved; do
    cp "$sample" "$work/$edit.avi"
    for ((i = 0; i < count; i++)); do "$edit" "$work/$edit.avi" $((idx1 + 8 + 16 * i)); done
done
# Every frame a 'db' chunk, in the data and in the indexes.
sed 's/00dc/00db/g' "$sample" > "$work/db.avi"
kq keys --strict "$work/absolute.avi"
expect_status 3 "keys --strict with absolute idx1 offsets"
check "absolute offsets: one line" err_one_line
check "absolute offsets: says the index does not describe the chunks" grep -q 'does not describe its chunks' "$work/err"
# Why the table holds no key frame: FILE MODE ("-" the default) REASON.
while read -r file mode reason; do
    kq keys ${mode%-} "$work/$file"
    expect_status 0 "keys $mode on $file"
    check "keys $mode on $file: '$reason'" grep -qF "(no key frames: $reason)" "$work/out"
done <<'EOF'
unflagged.avi --strict no entry carries the key-frame flag
moved.avi     --strict idx1 lists no frame of stream 0
db.avi        --strict frames are 'db' chunks (read with tolerance, or without --strict)
EOF
# Read with tolerance, the same files give the sample's key frames: FILE TOLERANCE.
kq keys --json "$sample"
grep -v '"file"\|"tolerated"' "$work/out" > "$work/keys.sample"
while read -r file tolerance; do
    kq keys --json "$work/$file"
    expect_status 0 "keys on $file"
    check "keys on $file: it needed $tolerance" grep -q "\"tolerated\": \[.*\"$tolerance\"" "$work/out"
    check "keys on $file: the sample's key frames" diff <(grep -v '"file"\|"tolerated"' "$work/out") "$work/keys.sample"
done <<'EOF'
absolute.avi file_idx1
db.avi       db_frames
EOF

# With no key flag at all, every frame is taken as a key frame.
kq keys --json "$work/unflagged.avi"
check "keys on unflagged.avi: it needed unflagged_keys" grep -q '"tolerated": \[.*"unflagged_keys"' "$work/out"
frames=$(grep -o '"frames": [0-9]*' "$work/out" | grep -o '[0-9]*$')
check "keys on unflagged.avi: all $frames frames are key frames" grep -q "\"key_frames\": $frames," "$work/out"

finish
