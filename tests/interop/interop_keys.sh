#!/bin/bash
# The key-frame table against ffmpeg's files: for each file, every frame found
# through the table and the frame walk lies where ffprobe read it, the key
# frames are those ffprobe flags, and each key frame's audio chunks are the
# packets playing at its time (key_table_check). Then the keys, frame and
# subs commands on one of them, checked against ffprobe's positions.
# Usage: interop_keys.sh CHECKER TOOL MAKER KEY-TABLE-CHECK   (native builds only; exit 77 without ffmpeg)
set -u
. "$(dirname "$0")/lib.sh"
key_check=$4
need ffmpeg ffprobe

video=(-f lavfi -i testsrc=size=64x48:rate=25)
mp3=(-f lavfi -i sine=frequency=440:sample_rate=44100)
# key_file NAME GOP AUDIO-INPUTS-AND-CODECS...: 6 s of MPEG-4 video with a key frame every GOP frames.
key_file() {
    local name=$1 gop=$2
    shift 2
    make_avi "$name" "${video[@]}" "$@" -t 6 -c:v mpeg4 -g "$gop" -keyint_min "$gop" -sc_threshold 0
}
key_file every1_mp3 1 "${mp3[@]}" -c:a libmp3lame
key_file every2_pcm 2 -f lavfi -i sine=frequency=300:sample_rate=22050 -c:a pcm_s16le -ac 2
key_file every10_mp3_pcm 10 "${mp3[@]}" -f lavfi -i sine=frequency=880:sample_rate=8000 \
    -map 0 -map 1 -map 2 -c:a:0 libmp3lame -c:a:1 pcm_s16le
key_file every50_mp3_pcm 50 -f lavfi -i sine=frequency=880:sample_rate=16000 "${mp3[@]}" \
    -map 0 -map 1 -map 2 -c:a:0 pcm_s16le -c:a:1 libmp3lame -b:a:1 64k
make_avi mjpeg_pcm_odd "${video[@]}" -f lavfi -i sine=frequency=500:sample_rate=11025:samples_per_frame=1001 \
    -t 3 -c:v mjpeg -c:a pcm_u8
make_avi video_only_gop25 "${video[@]}" -t 4 -c:v mpeg4 -g 25

for name in every1_mp3 every2_pcm every10_mp3_pcm every50_mp3_pcm mjpeg_pcm_odd video_only_gop25; do
    avi=$work/$name.avi
    echo "== $name"
    ffprobe -v error -show_entries stream=index,codec_type,time_base -of csv=p=0 "$avi" > "$work/$name.streams"
    ffprobe -v error -show_entries packet=stream_index,pts,duration,size,pos,flags -of csv=p=0 "$avi" > "$work/$name.packets"
    judge "$name: the key-frame table agrees with ffprobe" "$key_check" "$avi" "$work/$name.streams" "$work/$name.packets"
done

# FIELD of ffprobe's packet of stream S at PTS: 4 size, 5 data position.
packet() { awk -F, -v s="$1" -v pts="$2" -v f="$3" '$1 == s && $2 == pts { print $f; exit }' "$work/every10_mp3_pcm.packets"; }

echo "== the commands"
avi=$work/every10_mp3_pcm.avi
# What ffprobe says: frames (the demuxer numbers frames by chunk, so the
# last pts + 1), the key frames, and the key frame at or before frame 37.
frames=$(awk -F, '$1 == 0 && $2 >= n { n = $2 + 1 } END { print n }' "$work/every10_mp3_pcm.packets")
keys=$(awk -F, '$1 == 0 && $6 ~ /K/ { print $2 }' "$work/every10_mp3_pcm.packets")
key37=$(echo "$keys" | awk '$1 <= 37' | tail -n 1)
kq keys --json "$avi"
expect_status 0 "keys --json"
check "keys: the frames ffprobe counts ($frames)" grep -q "\"frames\": $frames," "$work/out"
check "keys: the key frames ffprobe flags" \
    test "$(sed -n 's/.*{"frame": \([0-9]*\), "time".*/\1/p' "$work/out" | tr '\n' ' ')" = "$(echo $keys) "
check "keys: the MP3 stream counts chunks" grep -q '{"stream": 1, "slot": 0, "counts": "chunks"}' "$work/out"
check "keys: the PCM stream counts bytes" grep -q '{"stream": 2, "slot": 1, "counts": "bytes"}' "$work/out"
kq keys "$avi"
expect_status 0 "keys"
check "keys: a table line per key frame" \
    test "$(grep -c '^ *[0-9]\+  [0-9]\+\.[0-9]\{3\}  ' "$work/out")" -eq "$(echo "$keys" | wc -l)"
kq frame --json --audio 2 --extract "$work/frame37" "$avi" 37
expect_status 0 "frame 37"
check "frame 37's data where ffprobe reads it" grep -q "\"data_offset\": $(packet 0 37 5)," "$work/out"
check "frame 37 found from key frame $key37" grep -q "\"key_frame\": $key37," "$work/out"
check "the extracted frame has the packet's size" test "$(wc -c < "$work/frame37")" -eq "$(packet 0 37 4)"
# The PCM packet playing at 1.48 s: 1024 samples at 8000 Hz a packet, so the 12th (pts 11264).
pcm=$(packet 2 11264 5)
check "frame 37's PCM chunk is the one playing at 1.48 s" grep -q "\"audio\": {\"stream\": 2, \"offset\": $((pcm - 8))," "$work/out"
kq frame "$avi" "$frames"
expect_status 1 "frame $frames of $frames"
check "frame $frames: one line" test "$(cat "$work/err")" = "kelqavi: '$avi' has $frames frames: frame $frames is beyond the last"
kq frame --audio 0 "$avi" 3
expect_status 1 "frame --audio on a video stream"
kq subs --frame 40 "$avi"
expect_status 0 "subs on a file without subtitles"
check "subs: says there are none" grep -q 'has no bitmap subtitle streams' "$work/out"

finish
