#!/bin/bash
# The writing commands without outside tools: mux from hand-made JPEG headers
# and WAV files, sample, remux, read back with the tool's own readers; and the
# usage errors and bad inputs of each (one line on stderr, the exit status).
# Usage: cli_write.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"

# The inputs, hand-made: JPEG files holding the least mux needs (FF D8, a
# comment, a baseline frame header with the size, filler, FF D9) and WAVE files
# whose samples are all 'a', good and bad.
python3 - "$work" <<'EOF'
import os, struct, sys
def jpeg(width, height, filler):
    return (b'\xff\xd8\xff\xfe\x00\x04hi\xff\xc0\x00\x11\x08' + struct.pack('>HH', height, width)
            + b'\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01' + filler + b'\xff\xd9')
def wav(tag, channels, rate, bits, blocks, data_size=None):
    align = channels * bits // 8
    n = blocks * align
    return (b'RIFF' + struct.pack('<I', 36 + n) + b'WAVEfmt ' + struct.pack('<IHHIIHH', 16, tag, channels, rate, rate * align, align, bits)
            + b'data' + struct.pack('<I', n if data_size is None else data_size) + b'a' * n)
files = {
    'tone.wav': wav(1, 2, 8000, 16, 4000),  # half a second, 2000 bytes a frame at 4 fps
    'one.wav': wav(1, 1, 22050, 8, 22050),
    'mp3.wav': wav(85, 2, 8000, 16, 10),
    'cut.wav': wav(1, 2, 8000, 16, 1000)[:1000],
    'nofmt.wav': b'RIFF\x0c\0\0\0WAVEdata\0\0\0\0',
    'odd.wav': wav(1, 2, 8000, 16, 100, data_size=399),  # ends 3 bytes into a sample frame
    'noframe/a.jpg': b'\xff\xd8\xff\xfe\x00\x04hi\xff\xd9',
    'mixed/a.jpg': jpeg(160, 120, b'x'),
    'mixed/b.jpg': jpeg(320, 240, b'x'),
}
files.update(('frames/f%d.jpg' % i, jpeg(160, 120, b'frame' + b' ' * i)) for i in range(5))
for name, data in files.items():
    os.makedirs(os.path.dirname(os.path.join(sys.argv[1], name)), exist_ok=True)
    open(os.path.join(sys.argv[1], name), 'wb').write(data)
EOF

# --- mux: what goes in comes out -------------------------------------------------
kq mux -o "$work/a.avi" --fps 4 --video "$work/frames/*.jpg" --audio "$work/tone.wav" --json
expect_status 0 "mux video and sound"
check "mux --json parses" json_ok
check "mux --json: two streams" has '"stream": 1, "kind": "audio", "codec": "PCM"'
check "mux --json: five video chunks" has '"stream": 0, "kind": "video", "codec": "MJPG", "name": "Video", "chunks": 5,'
check "mux --json: 16000 bytes of sound" has '"kind": "audio", .*"bytes": 16000}'
expected=""
for i in 0 1 2 3 4; do
    expected+="0 3 $(wc -c < "$work/frames/f$i.jpg")"$'\n'
    # 8000 blocks a second at 4 fps: 2000 blocks of 4 bytes per frame, two frames' worth in all.
    [ "$i" -lt 2 ] && expected+="1 1 8000"$'\n'
done
check "chunks reads the pictures' sizes, each followed by its sound" \
    [ "$(chunk_sizes "$work/a.avi")" = "$(printf '%s' "$expected")" ]
kq info --json "$work/a.avi"
check "info: 160x120 MJPEG at 4 fps" \
    json_is '[d["streams"][0][k] for k in ("kind", "compression", "width", "height", "rate", "scale", "length")] == ["video", "MJPG", 160, 120, 4, 1, 5]'
check "info: PCM, scale = block align, rate = bytes a second, sample size = block align" \
    json_is '[d["streams"][1][k] for k in ("format_tag", "channels", "samples_per_sec", "block_align", "scale", "rate", "sample_size", "length")] == [1, 2, 8000, 4, 4, 32000, 4, 4000]'

# The writer's profile: the standard one unless --designed.
for designed in "" --designed; do
    for args in "mux -o $work/p.avi --fps 4 --video $work/frames/f0.jpg" "remux $work/a.avi $work/p.avi" "sample $work/p.avi"; do
        kq $args $designed --json
        check "$args $designed: the profile" has "\"profile\": \"$([ -n "$designed" ] && echo designed || echo standard)\""
    done
done

# Remainders carried: 22050 Hz at 3 fps gives 7350 blocks a frame; at 7 fps,
# 3150; at 29.97 the shares differ by one and still add up.
for fps in 7 29.97 30000/1001; do
    kq mux -o "$work/r.avi" --fps "$fps" --audio "$work/one.wav"
    expect_status 0 "mux sound alone at $fps fps"
    total=$(chunk_sizes "$work/r.avi" | awk '{ s += $3 } END { print s }')
    check "every sample written at $fps fps (got $total)" [ "$total" = 22050 ]
    # All but the last, which holds what is left.
    spread=$(chunk_sizes "$work/r.avi" | sed '$d' | awk 'NR == 1 { lo = hi = $3 } { if ($3 < lo) lo = $3; if ($3 > hi) hi = $3 } END { print hi - lo }')
    check "chunks differ by at most one block at $fps fps (spread $spread)" [ "$spread" -le 1 ]
done

# Captions, chapters and metadata.
printf '# frame, tab, text\n0\tHello\n\n3\tLater line\r\n1\tSecond\n' > "$work/captions.txt"
printf '0\tStart\n4\tEnd\n' > "$work/chapters.txt"
printf 'title=muxed' > "$work/meta.txt"
kq mux -o "$work/c.avi" --fps=4 --video="$work/frames/f*.jpg" --text-caption "$work/captions.txt" \
    --chapters "$work/chapters.txt" --metadata "$work/meta.txt"
expect_status 0 "mux with captions, chapters and metadata"
check "the summary names the caption stream" has '^ *1  text caption  *-  *3  *21  Subtitle$'
check "the summary names the chapter stream" has '^ *2  chapter  *-  *2  *8  Chapter$'
order=$(chunk_sizes "$work/c.avi" | awk '{ print $1 }' | tr -d '\n')
check "captions and chapters go before their frame's picture (got $order)" [ "$order" = 1201001020 ]
kq info --json "$work/c.avi"
check "info: a text caption named Subtitle, a chapter stream, the metadata block padded to even" \
    json_is '[(s["kind"], s.get("name")) for s in d["streams"]] == [("video", "Video"), ("text_caption", "Subtitle"), ("chapter", "Chapter")] and d["metadata_size"] == 12'

# --odml and --swapped-ids.
kq mux -o "$work/o.avi" --fps 4 --video "$work/frames/*.jpg" --audio "$work/tone.wav" --odml
expect_status 0 "mux --odml"
kq info "$work/o.avi"
check "--odml: a super index per stream" has "stream 0 indx .*5 chunks indexed"
check "--odml: the audio's super index" has "stream 1 indx .*16000 bytes"
kq mux -o "$work/s.avi" --fps 4 --video "$work/frames/*.jpg" --audio "$work/tone.wav" --swapped-ids --json
expect_status 0 "mux --swapped-ids"
check "--swapped-ids in the summary" has '"swapped_ids": true,'
kq chunks --swapped-ids "$work/s.avi"
expect_status 0 "chunks --swapped-ids reads it"
check "type-first ids" has ' dc00 '

# --- mux: usage errors (2) and inputs it cannot use (1) -------------------------------
cmd_error() {  # cmd_error STATUS REGEX ARGS...: one line on stderr matching REGEX, nothing on stdout
    local want=$1 pattern=$2
    shift 2
    kq "$@"
    expect_status "$want" "$*"
    check "$*: one line" err_one_line
    check "$*: says /$pattern/ (got: $(cat "$work/err"))" grep -q -e "$pattern" "$work/err"
    check "$*: nothing on stdout" out_empty
}
cmd_error 2 "needs the frame rate" mux -o "$work/x.avi" --video "$work/frames/*.jpg"
cmd_error 2 "needs pictures" mux -o "$work/x.avi" --fps 4
cmd_error 2 "takes no FILE" mux -o "$work/x.avi" --fps 4 extra.avi
for bad in 0 -5 abc 10/0 1.2.3; do
    cmd_error 2 "--fps needs a rate above 0" mux -o "$work/x.avi" --fps "$bad" --video "$work/frames/*.jpg"
done
cmd_error 1 "no file matches" mux -o "$work/x.avi" --fps 4 --video "$work/none/*.jpg"
cmd_error 1 "no frame header" mux -o "$work/x.avi" --fps 4 --video "$work/noframe/*.jpg"
cmd_error 1 "is 320x240 but .* is 160x120" mux -o "$work/x.avi" --fps 4 --video "$work/mixed/*.jpg"
cmd_error 1 "cannot open" mux -o "$work/x.avi" --fps 4 --audio "$work/none.wav"
cmd_error 1 "not PCM sound (format tag 0x0055)" mux -o "$work/x.avi" --fps 4 --audio "$work/mp3.wav"
cmd_error 1 "is cut off" mux -o "$work/x.avi" --fps 4 --audio "$work/cut.wav"
cmd_error 1 "before the 'fmt ' chunk" mux -o "$work/x.avi" --fps 4 --audio "$work/nofmt.wav"
printf '0 no tab\n' > "$work/badcap.txt"
cmd_error 1 "line 1: expected FRAME<TAB>TEXT" mux -o "$work/x.avi" --fps 4 --video "$work/frames/*.jpg" --text-caption "$work/badcap.txt"
printf '9\tlate\n' > "$work/late.txt"
cmd_error 1 "names frame 9, but the file has frames 0 to 4" mux -o "$work/x.avi" --fps 4 --video "$work/frames/*.jpg" --chapters "$work/late.txt"
cmd_error 1 "cannot create" mux -o "$work/no/such/dir/x.avi" --fps 4 --video "$work/frames/*.jpg"
check "no output file left by failed runs" [ ! -e "$work/x.avi" ]

# --- sample ----------------------------------------------------------------------------
(cd "$work" && "${tool[@]}" sample > "$work/out" 2> "$work/err")
check "sample without a name writes kelqavi-sample.avi" [ -s "$work/kelqavi-sample.avi" ]
check "sample: nothing on stderr" [ ! -s "$work/err" ]
kq sample --json "$work/sample.avi"
expect_status 0 "sample --json"
check "sample --json: five streams, every kind" \
    [ "$(grep -c -e '"kind": "video"' -e '"kind": "audio"' -e '"kind": "text caption"' -e '"kind": "bitmap caption"' -e '"kind": "chapter"' "$work/out")" -eq 5 ]
check "sample --json: OpenDML" has '"odml": true,'
check "sample is the same file each time" cmp -s "$work/sample.avi" "$work/kelqavi-sample.avi"
kq info --json "$work/sample.avi"
expect_status 0 "info on the sample"
check "info finds every stream kind, named" \
    json_is '[(s["kind"], s.get("name")) for s in d["streams"]] == [("video", "Moving bar"), ("audio", "Tone"), ("text_caption", "Subtitle (English)"), ("bitmap_caption", "Subtitle bitmap"), ("chapter", "Chapter list")]'
check "info: the menu, metadata and strd blocks" \
    json_is 'd["menu_size"] == 40 and d["metadata_size"] == 76 and d["streams"][0]["strd_size"] == 8'
cp "$work/out" "$work/sample_info.json"
LC_ALL=C kq info "$work/sample.avi"
check "info as text: the bitmap caption stream" has '^Stream 3: bitmap caption$'
check "info as text: the menu block" has '^  menu block  *40 bytes'
check "info as text: the metadata block" has '^  metadata block  *76 bytes'
# --- remux -----------------------------------------------------------------------------
kq remux "$work/sample.avi" "$work/rs.avi" --json
expect_status 0 "remux of the sample"
check "remux keeps every chunk of every stream" [ "$(chunk_sizes "$work/rs.avi")" = "$(chunk_sizes "$work/sample.avi")" ]
kq info --json "$work/rs.avi"
python3 - "$work/sample_info.json" "$work/out" > "$work/diff.txt" 2>&1 <<'PY' || true
import json, sys
a, b = (json.load(open(p)) for p in sys.argv[1:])
for key in ("stream_count", "strd_count", "menu_size", "metadata_size"):
    if a[key] != b[key]: print(key, a[key], b[key])
for sa, sb in zip(a["streams"], b["streams"]):
    for key in ("kind", "name", "handler", "compression", "width", "height", "rate", "scale", "length", "strd_size",
                "format_tag", "channels", "samples_per_sec", "block_align"):
        if sa.get(key) != sb.get(key): print("stream", sa["number"], key, sa.get(key), sb.get(key))
PY
check "remux keeps formats, names, strd, menu and metadata ($(tr '\n' ';' < "$work/diff.txt"))" [ ! -s "$work/diff.txt" ]
kq remux --odml --swapped-ids "$work/a.avi" "$work/ra.avi"
expect_status 0 "remux --odml --swapped-ids"
check "remux --swapped-ids: same chunks, type first" [ "$(chunk_sizes --swapped-ids "$work/ra.avi")" = "$(chunk_sizes "$work/a.avi")" ]
kq remux "$work/ra.avi" "$work/rb.avi"
expect_status 0 "remux of a type-first file"
check "a type-first input is read without an option" [ "$(chunk_sizes "$work/rb.avi")" = "$(chunk_sizes "$work/a.avi")" ]
check "remux back gives the same bytes as the first mux" cmp -s "$work/rb.avi" "$work/a.avi"

# --- Damaged inputs: what could be read is written, the loss listed, status 3 -----
# Cut inside the first chunk of sound: the walk stops there, with the rest of
# 'movi' (which idx1 followed) unread; the picture before it is written.
idx1_at=$("${tool[@]}" riff --json "$work/a.avi" | sed -n 's/.*"offset": \([0-9]*\), "kind": "chunk", "id": "idx1".*/\1/p')
head -c 3000 "$work/a.avi" > "$work/cut.avi"
kq remux --json "$work/cut.avi" "$work/x.avi"
expect_status 3 "remux of a cut file"
check "remux of a cut file: one line on stderr" err_one_line
check "the walk stopped at the chunk cut short; 'movi' unread from there to where idx1 was" \
    json_is "[(w['reason'], w['stopped_at'] + w['unread_bytes']) for w in d['walk_stops']] == [('a chunk runs past the end of the file', $idx1_at)] and not d['complete']"
check "the output holds the input's chunks up to the cut" \
    [ "$(chunk_sizes "$work/a.avi" | head -n 1)" = "$(chunk_sizes "$work/x.avi")" ]
# One chunk id damaged (the second picture's): the walk stops there, and idx1
# lists more of each stream than was read before it.
second=$("${tool[@]}" chunks --json "$work/a.avi" | sed -n 's/.*"offset": \([0-9]*\), "id": "00dc".*/\1/p' | sed -n 2p)
cp "$work/a.avi" "$work/bad.avi"
printf 'zz99' | dd of="$work/bad.avi" bs=1 seek="$second" conv=notrunc 2> /dev/null
kq remux --json "$work/bad.avi" "$work/x.avi"
expect_status 3 "remux with a damaged chunk id"
check "the walk stopped at the damaged id" \
    json_is "[(w['stopped_at'], w['reason']) for w in d['walk_stops']] == [($second, \"'zz99' is no chunk id\")]"
check "idx1 lists 5 pictures and 2 sound chunks, 1 of each read" \
    json_is '[(i["stream"], i["listed"], i["read"]) for i in d["index_shortfalls"]] == [(0, 5, 1), (1, 2, 1)]'
kq remux "$work/bad.avi" "$work/x.avi"
check "the text summary lists the stop" has "^Lost: segment 0: the walk of the 'movi' list at [0-9]* stopped at $second ('zz99' is no chunk id); [0-9]* bytes of it not read$"
check "and the index" has '^Lost: stream 0: the idx1 index lists 5 chunks, 1 read$'
# A stream the reader does not classify (a text stream named neither
# "Subtitle..." nor "Chapter..."): its chunks are read, not written.
LC_ALL=C sed 's/Chapter list/Xhapter list/' "$work/sample.avi" > "$work/unclassified.avi"
kq remux "$work/unclassified.avi" "$work/x.avi"
expect_status 3 "remux with an unclassified stream"
check "the unclassified stream's chunks are listed as lost" \
    has '^Lost: stream 4 (unclassified): read 2 chunks, 16 bytes; wrote 0 chunks, 0 bytes (not copied: the reader does not classify this stream)$'
# Sound whose data ends inside a sample frame: mux writes the whole frames.
kq mux -o "$work/x.avi" --fps 4 --audio "$work/odd.wav"
expect_status 3 "mux of sound ending inside a sample frame"
check "the partial frame is listed as lost" \
    has '^Lost: stream 0 (audio): read 1 chunk, 399 bytes; wrote 1 chunk, 396 bytes (the WAV data ends with 3 bytes, less than a whole sample frame)$'

# --- --checkpoint: taken by the writer, and checked ---------------------------------
# 1.25 s of pictures: checkpoints at 0.5 and 1 s, each leaving an empty JUNK
# chunk in 'movi'; the same chunks as without.
kq mux -o "$work/x.avi" --fps 4 --video "$work/frames/*.jpg" --audio "$work/tone.wav" --checkpoint 0.5 --json
check "mux --checkpoint 0.5 reaches the writer" has '"checkpoint_seconds": 0.5,'
check "two checkpoints made" [ "$("${tool[@]}" chunks --json "$work/x.avi" | grep -c '"type": "junk"')" -eq 2 ]
check "the chunks of a file without checkpoints" [ "$(chunk_sizes "$work/x.avi")" = "$(chunk_sizes "$work/a.avi")" ]
kq remux --checkpoint=0.5 --json "$work/a.avi" "$work/x.avi"
check "remux --checkpoint=0.5 reaches the writer" has '"checkpoint_seconds": 0.5,'
kq remux --checkpoint 0 --json "$work/a.avi" "$work/x.avi"
expect_status 0 "--checkpoint 0 turns checkpoints off"
for bad in abc -1 1e3 inf '' . 0x10 1.2.3; do
    cmd_error 2 "--checkpoint needs seconds" mux -o "$work/x.avi" --fps 4 --video "$work/frames/*.jpg" --checkpoint "$bad"
    cmd_error 2 "--checkpoint needs seconds" remux --checkpoint "$bad" "$work/a.avi" "$work/x.avi"
done

# --- A device that takes no bytes: one line, status 1, and the device left alone ------
if [ -c /dev/full ]; then
    for args in "mux -o /dev/full --fps 4 --video $work/frames/f0.jpg" "remux $work/a.avi /dev/full" "sample /dev/full"; do
        # shellcheck disable=SC2086
        kq $args
        expect_status 1 "$args"
        check "$args: one line" err_is "kelqavi: cannot write '/dev/full': No space left on device"
        check "$args: /dev/full is still there" [ -c /dev/full ]
    done
fi

finish
