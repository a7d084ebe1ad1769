#!/bin/bash
# Cross-check against an independent AVI implementation: a file written by
# ffmpeg is walked by the tool, and the sample written by the library is read
# by ffprobe. Skipped (exit 77) when ffmpeg is not installed.
# Usage: cli_ffmpeg.sh TOOL   (native builds only)
set -u
. "$(dirname "$0")/lib.sh"

if ! command -v ffmpeg > /dev/null 2>&1 || ! command -v ffprobe > /dev/null 2>&1; then
    echo "ffmpeg not installed: skipped"
    exit 77
fi

# --- ffmpeg writes, the tool reads: one second at 5 frames a second ----------
avi=$work/out.avi
if ! ffmpeg -v error -f lavfi -i testsrc=size=64x48:rate=5 -f lavfi -i sine=frequency=440:sample_rate=8000 \
        -t 1 -c:v mjpeg -c:a pcm_s16le -y "$avi"; then
    fail "ffmpeg could not write the test file"
    finish
    exit 1
fi
kq riff --json "$avi"
expect_status 0 "riff --json on ffmpeg's file"
check "JSON parses" json_ok
check "the chunks tile every list and the whole file" json_tiles
check "a RIFF 'AVI ' form at 0" has '^    {"offset": 0, "kind": "list", "id": "RIFF", "list_type": "AVI ",'
check "LIST 'hdrl'" has '"kind": "list", "id": "LIST", "list_type": "hdrl",'
check "LIST 'movi'" has '"kind": "list", "id": "LIST", "list_type": "movi",'
check "idx1" has '"kind": "chunk", "id": "idx1",'
chunks=$(count '"offset"')
check "every chunk is ok ($chunks chunks)" [ "$(count '"status": "ok"')" -eq "$chunks" ]
check "nothing is flagged" has '"problems": 0}'
video=$(count '"id": "00dc"')
audio=$(count '"id": "01wb"')
check "five frames: five 00dc chunks (found $video)" [ "$video" -eq 5 ]
# ffprobe counts the same packets.
packets=$(ffprobe -v error -count_packets -show_entries stream=codec_type,nb_read_packets -of csv=p=0 "$avi")
check "ffprobe's video packets match the 00dc chunks" [ "$(printf '%s\n' "$packets" | grep '^video,' | cut -d, -f2)" = "$video" ]
check "ffprobe's audio packets match the 01wb chunks" [ "$(printf '%s\n' "$packets" | grep '^audio,' | cut -d, -f2)" = "$audio" ]
# idx1 holds one 16-byte entry per data chunk of movi.
idx1_size=$(grep '"id": "idx1"' "$work/out" | sed 's/.*"size": \([0-9]*\).*/\1/')
check "idx1 has one entry per data chunk ($idx1_size bytes, $((video + audio)) chunks)" \
    [ "$((idx1_size / 16))" -eq "$((video + audio))" ]
LC_ALL=C kq riff "$avi"
expect_status 0 "riff on ffmpeg's file"
check "table: no problems" has 'No problems found.$'

# --- The library writes, ffprobe reads: the built-in sample -------------------
kq riff --save-sample "$work/sample.avi"
expect_status 0 "saving the sample"
streams=$(ffprobe -v error -show_entries stream=codec_type,codec_name,width,height,sample_rate,channels:stream_tags=title \
    -of compact=p=0:nk=0 "$work/sample.avi" 2> /dev/null)
check "ffprobe: MJPEG video 160x120 named 'Moving bar' (got: $streams)" \
    sh -c "printf '%s\n' \"\$1\" | grep -q '^codec_name=mjpeg|codec_type=video|width=160|height=120|.*tag:title=Moving bar\$'" - "$streams"
check "ffprobe: 16-bit PCM audio, 8000 Hz mono, named 'Tone'" \
    sh -c "printf '%s\n' \"\$1\" | grep -q '^codec_name=pcm_s16le|codec_type=audio|sample_rate=8000|channels=1|.*tag:title=Tone\$'" - "$streams"
packets=$(ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv=p=0 "$work/sample.avi" 2> /dev/null | tr '\n' ' ')
check "ffprobe: the chunks of each stream as packets (got: $packets)" [ "$packets" = "30 30 3 2 2 " ]

finish
