#!/bin/bash
# A recorder (this library's writer in its default form: MJPEG, two PCM
# streams, captions) killed with SIGKILL after its checkpoints: the file it leaves,
# and that file cut at later bytes, play in ffprobe, ffmpeg, mplayer and
# GStreamer and walk in this library's reader, every frame put before the
# last checkpoint included, without any repair.
# Usage: interop_checkpoint.sh CHECKER TOOL MAKER STANDARD_MAKER   (native builds only)
set -u
. "$(dirname "$0")/lib.sh"
recorder=$4
need ffmpeg ffprobe mplayer gst-launch-1.0

# Four seconds of MJPEG pictures (each frame a key frame) and 16 kHz PCM, the
# recorder's input.
ffmpeg -nostdin -v error -f lavfi -i testsrc=size=160x120:rate=25 -t 4 -q:v 5 -f mjpeg -y "$work/v.mjpeg" &&
    ffmpeg -nostdin -v error -f lavfi -i sine=sample_rate=16000 -t 4 -f s16le -y "$work/a.pcm" || fail "no payloads"

# The video frames each player hands on.
frames_ffprobe() { ffprobe -v error -select_streams v -show_packets -of csv "$1" | grep -c '^packet'; }
frames_mplayer() {  # the count, or "failed" when mplayer fails or says error
    rm -f "$work/md5.txt"
    mplayer_plays "$1" -vo md5sum:outfile="$work/md5.txt" -nosound > /dev/null && wc -l < "$work/md5.txt" || echo failed
}
frames_gst() {
    timeout 60 gst-launch-1.0 -v filesrc location="$1" ! avidemux name=d d.video_0 ! queue ! jpegdec ! \
        fakesink silent=false 2>&1 | grep -c 'chain'
}
# The video chunks this library's reader walks.
frames_walked() {
    kq chunks --json "$1"
    sed -n 's/^ *{"stream": 0, "chunks": \([0-9]*\),.*/\1/p' "$work/out"
}
# Where the first 'movi' list ends.
movi_end() {
    kq riff --json "$1"
    echo $(($(sed -n 's/.*{"offset": \([0-9]*\), "kind": "list", "id": "LIST", "list_type": "movi", "size": \([0-9]*\),.*/\1 + 8 + \2/p' \
        "$work/out" | head -n 1)))
}

# plays FILE EXPECTED WHAT: every player gives at least EXPECTED frames,
# ffmpeg decodes without a word, and the reader walks exactly EXPECTED.
plays() {
    local file=$1 expected=$2 what=$3 n
    n=$(frames_ffprobe "$file")
    check "$what: ffprobe lists $n >= $expected frames" test "$n" -ge "$expected"
    check "$what: ffmpeg decodes silently" ffmpeg_silent "$file"
    n=$(frames_mplayer "$file")
    check "$what: mplayer plays $n >= $expected frames" test "$n" != failed -a "$n" -ge "$expected"
    n=$(frames_gst "$file")
    check "$what: GStreamer plays $n >= $expected frames" test "$n" -ge "$expected"
    n=$(frames_walked "$file")
    check "$what: the reader walks $n = $expected frames" test "$n" -eq "$expected"
}

# Checkpoints every second (25 frames); killed after 90 frames, so the
# last checkpoint holds 75 and some of the 15 frames after it reach the
# disk past the end the file declares.
for odml in 0 1; do
    avi=$work/killed$odml.avi
    rc=0
    { "$recorder" "$avi" 0 "$odml" MJPG "$work/v.mjpeg" "$work/a.pcm" 90 1.0; } > /dev/null 2>&1 || rc=$?
    check "odml $odml: the recorder was killed (status $rc)" test "$rc" -eq 137
    plays "$avi" 75 "odml $odml, as killed"
    end=$(movi_end "$avi")
    size=$(stat -c %s "$avi")
    check "odml $odml: frames after the checkpoint reached the disk ($size > $end)" test "$size" -gt "$((end + 20000))"
    # The checkpoint ends with the 8-byte header of the "JUNK" chunk that
    # holds what comes after it.
    for cut in $((end + 8)) $((end + 9)) $((end + 5000)) $(((end + size) / 2)) $((size - 1)); do
        head -c "$cut" "$avi" > "$work/cut.avi"
        plays "$work/cut.avi" 75 "odml $odml, cut at $cut"
    done
done
finish
