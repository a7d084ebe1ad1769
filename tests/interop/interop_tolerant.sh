#!/bin/bash
# Real files from ffmpeg, GStreamer, mencoder and mjpegtools, read the way the
# tool reads by default: with every tolerance. Each must open; its walk must
# reach the end of every segment and meet ffprobe's packets, stream by stream,
# at the same positions and sizes; keys must list key frames (or say that
# idx1 flags none) and frame must find the last frame where the walk met it;
# remux must copy it all or list what it could not, and ffprobe must find the
# same video packets in the copy. The
# tolerances each file needed are printed with it, checked against the
# expected ones, and each must show in the --strict view: refused, index
# chunks left to the resync scan, no key frames, or an index that does not
# match. A file that needed none reads the same with --strict.
# Usage: interop_tolerant.sh CHECKER TOOL MAKER   (native builds only; exit 77 without a maker tool)
set -u
. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/../support/real_world_files.sh"
need $real_world_tools python3

# The "tolerated" array of a JSON output, as a comma list.
tolerated_in() { grep -o '"tolerated": \[[^]]*\]' "$1" | head -n 1 | sed 's/.*\[//; s/\]//; s/[" ]//g'; }

# The --strict view of a file that needed a tolerance.
strict_view() {  # strict_view NAME TOLERANCE
    local avi=$work/$1.avi
    case $2 in
    long_video_format)
        # Refused in one line, with the bytes past the 40-byte header that
        # the tree's strf chunk holds, or taken with none of them.
        kq info --strict --json "$avi"
        if [ "$status" -eq 1 ]; then
            local extra=$(($(grep -o '"id": "strf", "size": [0-9]*' "$work/$1.riff.json" | head -n 1 | grep -o '[0-9]*$') - 40))
            check "$1: --strict says why it refuses it, and only that" test "$(cat "$work/out" "$work/err")" = "kelqavi: \
cannot open '$avi': stream 0's video format has $extra bytes after its 40-byte header (palette or codec data), which \
this reader does not accept"
        else
            check "$1: --strict keeps no format bytes past the header" grep -q '"format_extra_size": 0,' "$work/out"
            check "$1: with tolerance they are kept" grep -q '"format_extra_size": [1-9]' "$work/$1.info.json"
        fi ;;
    index_chunks)
        kq chunks --strict --json "$avi"
        check "$1: --strict leaves the index chunks to the resync scan" grep -q '"type": "unrecognised"' "$work/out" ;;
    db_frames)
        kq keys --strict "$avi"
        check "$1: keys --strict finds no key frame among 'db' chunks" grep -q "frames are 'db' chunks" "$work/out" ;;
    file_idx1 | unflagged_keys | empty_last_chunk)
        # The index does not match the chunks, flags no frame, or lists a
        # chunk the walk never reaches: no key frame, or a refused build.
        kq keys --strict "$avi"
        check "$1: keys --strict finds no key frame (status $status)" \
            sh -c "[ $status -eq 3 ] || grep -q '(no key frames: ' '$work/out'" ;;
    *) fail "$1: unknown tolerance '$2'" ;;
    esac
}

# A file that needed no tolerance reads the same with --strict.
same_when_strict() {  # same_when_strict NAME
    local name=$1 what
    for what in info chunks keys; do
        run_json "$name" "$what.strict" "$what" --strict --json "$work/$name.avi"
        check "$name: $what --strict gives what $what gives" \
            diff <(grep -v '"tolerated"' "$work/$name.$what.json") <(grep -v '"tolerated"' "$work/$name.$what.strict.json")
    done
}

# The last frame idx1 covers (the first segment's), found through the table,
# is the walk's last video chunk there.
last_frame() {  # last_frame NAME
    local name=$1 video='{"segment": 0, .*"type": "\(raw_\)\?video", "type_code": [23], "stream": 0,' frames last
    frames=$(grep -c "$video" "$work/$name.chunks.json")
    last=$(grep "$video" "$work/$name.chunks.json" | tail -n 1 | grep -o '"offset": [0-9]*')
    kq frame --json "$work/$name.avi" $((frames - 1))
    expect_status 0 "$name: frame $((frames - 1))"
    check "$name: frame $((frames - 1)) is the walk's last video chunk ($last)" grep -q "^  $last,$" "$work/out"
}

video_packets() { ffprobe -v error -select_streams v -show_entries packet=size -of csv "$1" | grep -o '^packet,[0-9]*' | md5sum; }

tolerant() {  # tolerant NAME EXPECTED
    local name=$1 expected=$2 avi=$work/$1.avi
    echo "== $name"
    ffprobe -v error -show_packets -of json "$avi" > "$work/$name.packets.json"
    run_json "$name" riff riff --json "$avi"
    run_json "$name" info info --json "$avi"
    expect_status 0 "$name: info opens it"
    run_json "$name" chunks chunks --json "$avi"
    expect_status 0 "$name: chunks walks every segment to its end"
    compare "$name: the chunks are ffprobe's packets" packets "$work/$name.chunks.json" "$work/$name.packets.json" \
        "$work/$name.riff.json"
    check "$name: every ix## chunk of the tree passed whole" test "$(grep -c '"id": "ix0' "$work/$name.riff.json")" -eq \
        "$(grep -c '"type": "index", .*"whole_index_chunk": true' "$work/$name.chunks.json")"
    run_json "$name" keys keys --json "$avi"
    expect_status 0 "$name: keys"
    check "$name: keys lists key frames" grep -q '"key_frames_kept": \[$' "$work/$name.keys.json"
    last_frame "$name"
    kq info "$avi"
    check "$name: info names the tolerances" grep -q '^tolerated: ' "$work/out"

    local needed t
    needed=$(for what in info chunks keys; do tolerated_in "$work/$name.$what.json" | tr ',' '\n'; done |
        grep . | sort -u | paste -sd, -)
    echo "  $name ($maker_name) needed: ${needed:-none}"
    check "$name: needed '${needed:--}', expected '$expected'" test "${needed:--}" = "$expected"
    kq remux "$avi" "$work/$name.remux.avi"
    if [[ " $real_world_remux_losses " == *" $name "* || ",$needed," == *,long_video_format,* ]]; then
        expect_status 3 "$name: remux lists what it could not copy"
    else
        expect_status 0 "$name: remux copies every chunk"
    fi
    check "$name: ffprobe finds the same video packets in the copy" test \
        "$(video_packets "$work/$name.remux.avi")" = "$(video_packets "$avi")"
    if [ -z "$needed" ]; then
        same_when_strict "$name"
    else
        for t in ${needed//,/ }; do strict_view "$name" "$t"; done
    fi
}

make_real_world_files
while read -r name maker_name expected; do
    # A file its maker did not write has failed already.
    [ -s "$work/$name.avi" ] && tolerant "$name" "$expected"
done <<< "$real_world_files"
finish
