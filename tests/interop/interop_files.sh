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

# interop NAME CHUNKS-STATUS: every comparison for $work/NAME.avi.
interop() {
    local name=$1 walk_status=$2
    local avi=$work/$name.avi
    echo "== $name"
    ffprobe -v error -show_streams -of json "$avi" > "$work/$name.streams.json"
    ffprobe -v error -show_packets -of json "$avi" > "$work/$name.packets.json"
    kq riff --json "$avi"
    expect_status "0 3" "$name: riff"
    cp "$work/out" "$work/$name.riff.json"
    kq info --json "$avi"
    expect_status 0 "$name: info --json"
    cp "$work/out" "$work/$name.info.json"
    compare "$name: the JSON output parses" valid "$work/$name.info.json" "$work/$name.riff.json"
    compare "$name: info's streams are ffprobe's" streams "$work/$name.info.json" "$work/$name.streams.json"
    for mode in whole --headers; do
        local args=(chunks --json)
        [ "$mode" = whole ] || args+=("$mode")
        kq "${args[@]}" "$avi"
        expect_status "$walk_status" "$name: ${args[*]}"
        cp "$work/out" "$work/$name.chunks.json"
        compare "$name: ${args[*]} output parses" valid "$work/$name.chunks.json"
        echo "  ${args[*]}:"
        compare "$name: the chunks of ${args[*]} are ffprobe's packets" \
            packets "$work/$name.chunks.json" "$work/$name.packets.json" "$work/$name.riff.json"
    done
    compare "$name: idx1, super indexes and segments agree with the walk" \
        indexes "$work/$name.info.json" "$work/$name.chunks.json" "$work/$name.riff.json" "$work/$name.streams.json"
    # The text forms run on the same file with the same status.
    kq info "$avi"
    expect_status 0 "$name: info"
    kq chunks "$avi"
    expect_status "$walk_status" "$name: chunks"
}

make_interop_files
for name in $interop_files; do
    [ -s "$work/$name.avi" ] || continue
    if [ "$name" = piped ]; then
        # Its 'movi' list claims 4 GiB: the walk ends at the end of the file,
        # and the tool reports the list's size as a fault.
        interop piped 3
        check "piped: the chunks output says the size was never patched" \
            grep -q '"end": "end_of_file"' "$work/piped.chunks.json"
        check "piped: no idx1" grep -q '"idx1": null' "$work/piped.info.json"
    else
        interop "$name" 0
    fi
done
check "two_audio: three streams, the second and third audio" \
    grep -q '"stream_count": 3' "$work/two_audio.info.json"
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
