#!/bin/bash
# Files written by ffmpeg, read by the tool and by ffprobe: the stream formats
# 'kelqavi info' gives are those ffprobe gives, and the audio and video chunks
# that 'kelqavi chunks' meets, in both of its walks, are ffprobe's packets,
# stream by stream, in order, with the same positions and sizes. A file with
# a palette after its video format is refused by --strict, with the reason.
# Usage: interop_files.sh CHECKER TOOL MAKER   (native builds only; exit 77 without ffmpeg)
set -u
. "$(dirname "$0")/lib.sh"
need_ffmpeg

make_interop_files
for name in $interop_files; do
    # piped's 'movi' list claims 4 GiB: the walk ends at the end of the file,
    # and the tool reports the list's size as a fault.
    if [ "$name" = piped ]; then against_ffprobe piped 3; else against_ffprobe "$name" 0; fi
done
check "piped: the chunks output says the size was never patched" grep -q '"end": "end_of_file"' "$work/piped.chunks.json"
check "piped: no idx1" grep -q '"idx1": null' "$work/piped.info.json"
check "opendml_small: two segments, the second an 'AVIX' form" \
    grep -q '"number": 1, "offset": 3822, "id": "RIFF", "form_type": "AVIX"' "$work/opendml_small.info.json"
check "opendml_small: both walked to their end" \
    test "$(grep -c '"problem": false}' "$work/opendml_small.chunks.json")" -eq 2
check "opendml_small: the reader finds the first index entry of each stream" \
    test "$(grep -c '"type_code": [12], "size": \(144\|801\), "key_frame": true}' "$work/opendml_small.info.json")" -eq 2
check "pcm_odd: odd-sized audio chunks were met" \
    grep -q '"type": "audio", "type_code": 1, "stream": 1, "size": 1001,' "$work/pcm_odd.chunks.json"

# --- A palette after the bitmap header: the strict reader refuses it on purpose, giving the reason ---
echo "== palette"
if make_avi palette -f lavfi -i testsrc=size=32x24:rate=5 -t 1 -c:v rawvideo -pix_fmt pal8; then
    ffprobe -v error -show_streams -of json "$work/palette.avi" > "$work/palette.streams.json"
    check "ffprobe reads the palette file as 8-bit raw video" grep -q '"pix_fmt": "pal8"' "$work/palette.streams.json"
    kq riff --json "$work/palette.avi"
    check "its strf chunk is 40 + 1024 bytes" grep -q '"id": "strf", "size": 1064,' "$work/out"
    for command in info chunks; do
        kq "$command" --strict "$work/palette.avi"
        expect_status 1 "$command on the palette file"
        check "$command: nothing on stdout" test ! -s "$work/out"
        check "$command: the reason, in one line" test "$(cat "$work/err")" = \
            "kelqavi: cannot open '$work/palette.avi': stream 0's video format has 1024 bytes after its 40-byte header (palette or codec data), which this reader does not accept"
    done
fi

finish
