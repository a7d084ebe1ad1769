#!/bin/bash
# Recordings killed with SIGKILL while they write (ffmpeg, GStreamer, and
# this library's writer with checkpoints, OpenDML on and off), repaired with
# 'kelqavi repair': exactly the chunks the killed file holds whole are kept
# (counted by a walk of its bytes here), and the result plays in ffprobe
# (packet sizes), ffmpeg (no word), mplayer and GStreamer. ffmpeg's MPEG-4
# recording keeps its key frames (one in 12) without any index to say so.
# Usage: interop_repair.sh CHECKER TOOL MAKER STANDARD_MAKER   (native builds only)
set -u
. "$(dirname "$0")/lib.sh"
recorder=$4
need ffmpeg ffprobe mplayer gst-launch-1.0 python3

# kill_at FILE SIZE COMMAND...: runs the recorder until FILE holds SIZE bytes, then kills it.
kill_at() {
    local file=$1 size=$2 waited=0
    shift 2
    rm -f "$file"
    "$@" > /dev/null 2>&1 &
    local pid=$!
    while [ "$(stat -c %s "$file" 2> /dev/null || echo 0)" -lt "$size" ] && [ "$waited" -lt 600 ]; do
        sleep 0.05
        waited=$((waited + 1))
    done
    { kill -9 "$pid" && wait "$pid"; } 2> /dev/null
}

# The data chunks a file holds whole, walked from its first 'movi' on
# whatever the sizes say (into a checkpoint's JUNK chunk that runs past the
# end): "stream size" lines, one per chunk.
whole_chunks() {
    python3 - "$1" <<'EOF'
import struct, sys
b = open(sys.argv[1], 'rb').read()
at = b.find(b'movi') + 4
while at + 8 <= len(b):
    cid, size = b[at:at + 4], struct.unpack('<I', b[at + 4:at + 8])[0]
    if cid == b'JUNK' and at + 8 + size > len(b):   # a checkpoint's: the chunks put later are inside
        at += 8
        continue
    if cid in (b'idx1', b'RIFF') or at + 8 + size > len(b):
        break
    if cid[:2].isdigit() and cid[2:] in (b'dc', b'db', b'wb', b'st', b'ch'):
        print(int(cid[:2]), size)
    at += 8 + size + (size & 1)
EOF
}

# The packets ffprobe reads from a file, as "stream size" lines; audio is
# summed, since ffprobe may split an audio chunk into several packets.
summed() { awk '$1 == 0 { print } $1 != 0 { a[$1] += $2 } END { for (s in a) print s, a[s] }'; }
probed() { ffprobe -v error -show_entries packet=stream_index,size -of csv=p=0 "$1" | tr , ' ' | summed; }

repaired_plays() {
    local file=$1 what=$2 expected
    expected=$(whole_chunks "$work/killed.avi" | summed)
    kq repair --json "$work/killed.avi" "$file"
    check "$what: repair ends with 0 or 3 (got $status)" test "$status" -eq 0 -o "$status" -eq 3
    grep '"result"' "$work/out" | sed "s/^ */    $what: /"
    check "$what: ffprobe reads exactly the $(grep -c '^0 ' <<< "$expected") whole video chunks and the audio" \
        test "$(probed "$file")" = "$expected"
    check "$what: ffmpeg decodes without a word" ffmpeg_silent "$file"
    check "$what: mplayer plays it" mplayer_plays "$file"
    check "$what: GStreamer demuxes it" gst_demuxes "$file"
}

kill_at "$work/killed.avi" 600000 ffmpeg -nostdin -v error -f lavfi -i testsrc=size=320x240:rate=25 \
    -f lavfi -i sine=sample_rate=16000 -t 60 -c:v mpeg4 -g 12 -q:v 3 -c:a pcm_s16le -y "$work/killed.avi"
repaired_plays "$work/ffmpeg.avi" "ffmpeg MPEG-4"
# The repaired file flags as key frames exactly the frames the encoder made
# intra (one in 12), with no index to say so.
keys=$(ffprobe -v error -select_streams v -show_entries packet=flags -of csv=p=0 "$work/ffmpeg.avi" |
    awk '{ if (($1 ~ /K/) != ((NR - 1) % 12 == 0)) bad++ } END { print NR, bad + 0 }')
check "ffmpeg MPEG-4: key frames are every 12th of the ${keys% *} frames (${keys#* } wrong)" test "${keys#* }" -eq 0

kill_at "$work/killed.avi" 600000 gst-launch-1.0 -q videotestsrc num-buffers=5000 ! \
    video/x-raw,width=320,height=240,framerate=25/1 ! jpegenc ! queue ! avimux name=m ! \
    filesink location="$work/killed.avi" audiotestsrc num-buffers=5000 ! audio/x-raw,rate=16000,channels=1 ! queue ! m.
repaired_plays "$work/gstreamer.avi" "GStreamer MJPEG"

ffmpeg -nostdin -v error -f lavfi -i testsrc=size=160x120:rate=25 -t 4 -q:v 5 -f mjpeg -y "$work/v.mjpeg"
ffmpeg -nostdin -v error -f lavfi -i sine=sample_rate=16000 -t 4 -f s16le -y "$work/a.pcm"
# The writer's recordings in the standard form, whose caption streams carry
# the indexes players look for.
for odml in 0 1; do
    rm -f "$work/killed.avi"
    { "$recorder" "$work/killed.avi" 1 "$odml" MJPG "$work/v.mjpeg" "$work/a.pcm" 90 1.0; } > /dev/null 2>&1
    repaired_plays "$work/writer$odml.avi" "writer, OpenDML $odml, checkpoints"
done

finish
