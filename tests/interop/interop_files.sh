#!/bin/bash
# Files written by ffmpeg, read by the tool and by ffprobe: the stream formats
# 'kelqavi info' gives are those ffprobe gives, and the audio and video chunks
# that 'kelqavi chunks' meets, in both of its walks, are ffprobe's packets,
# stream by stream, in order, with the same positions and sizes.
# Usage: interop_files.sh CHECKER TOOL MAKER   (native builds only; exit 77 without ffmpeg)
set -u
. "$(dirname "$0")/lib.sh"
need ffmpeg ffprobe python3

make_interop_files
for name in $interop_files; do
    # piped's 'movi' list claims 4 GiB: the walk ends at the end of the file,
    # and the tool reports the list's size as a fault.
    if [ "$name" = piped ]; then against_ffprobe piped 3; else against_ffprobe "$name" 0; fi
done
check "piped: the chunks output says the size was never patched" grep -q '"end": "end_of_file"' "$work/piped.chunks.json"
check "piped: no idx1" grep -q '"idx1": null' "$work/piped.info.json"
check "opendml_small: the reader finds the first index entry of each stream" \
    test "$(grep -c '"type_code": [12], "size": \(144\|801\), "key_frame": true}' "$work/opendml_small.info.json")" -eq 2
check "pcm_odd: odd-sized audio chunks were met" \
    grep -q '"type": "audio", "type_code": 1, "stream": 1, "size": 1001,' "$work/pcm_odd.chunks.json"

finish
