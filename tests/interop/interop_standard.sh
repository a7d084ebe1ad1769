#!/bin/bash
# Files the writer makes with standard_profile set, from real payloads
# (MPEG-4 coded as XVID, MJPEG, PCM; two audio streams, a text caption, a
# chapter, checkpoints; OpenDML on and off), played by every player here:
# ffprobe and ffmpeg say nothing and ffprobe finds every chunk put, mplayer
# and GStreamer play without a complaint, MediaInfo names the codecs given.
# The same checks are run on files in the default form, where the ones
# that should fail must fail. A standard-profile recording killed while it
# writes is repaired and keeps its standard form.
# Usage: interop_standard.sh CHECKER TOOL MAKER STANDARD_MAKER   (native builds only)
set -u
. "$(dirname "$0")/lib.sh"
standard_maker=$4
need ffmpeg ffprobe mplayer gst-launch-1.0 mediainfo

# Two seconds of 160x120 pictures at 25 frames a second, and 16 kHz mono PCM.
src="-f lavfi -i testsrc=size=160x120:rate=25 -t 2"
ffmpeg -nostdin -v error $src -c:v mpeg4 -vtag XVID -g 12 -bf 0 -f m4v -y "$work/v.XVID" &&
    ffmpeg -nostdin -v error $src -c:v mjpeg -f mjpeg -y "$work/v.MJPG" &&
    ffmpeg -nostdin -v error -f lavfi -i sine=frequency=440:sample_rate=16000 -t 2 -ac 1 -f s16le \
        -y "$work/a.pcm" || { fail "ffmpeg could not make the payloads"; finish; exit 1; }

# Each player's verdict on FILE CODEC COUNTS: 0 when it took the file
# without a word. The reason for a refusal goes to $work/said.
said_ffprobe() {  # silent at -v error, no timing complaint, a packet per chunk put
    ffprobe -v error -show_entries packet=stream_index -of csv=p=0 "$1" > "$work/packets" 2> "$work/said" &&
        ffprobe -v warning "$1" 2>&1 | grep -i 'scale/rate\|broken' >> "$work/said"
    sort -n "$work/packets" | uniq -c | awk '{ print $2, $1 }' > "$work/found"
    diff "$3" "$work/found" >> "$work/said"
    [ ! -s "$work/said" ]
}
said_ffmpeg() { ffmpeg_silent "$1" > /dev/null; }
said_mplayer() {
    timeout 60 mplayer -nolirc -vo null -ao null "$1" < /dev/null 2>&1 | tr '\r' '\n' |
        grep -i 'error\|cannot\|can.t\|truncated\|failed\|broken\|invalid' > "$work/said"
    [ ! -s "$work/said" ]
}
said_gstreamer() { gst_demuxes "$1" > /dev/null; }
said_mediainfo() {  # a video stream of the codec given, two PCM streams, no stray text
    mediainfo "$1" > "$work/info" 2>&1
    grep '^Codec ID  \|^Writing library' "$work/info" | cut -c 1-60 > "$work/said"
    grep -q "^Codec ID *: $2\$" "$work/info" && [ "$(grep -c '^Audio' "$work/info")" -eq 2 ] &&
        ! grep -q 'Writing library *: Kelq' "$work/info"
}

# verdicts FILE CODEC COUNTS: sets $got to one letter per player, P took
# the file, F refused it (what it said is shown).
verdicts() {
    local player
    got=""
    for player in ffprobe ffmpeg mplayer gstreamer mediainfo; do
        "said_$player" "$@" && got+=P || got+=F
        [ "${got: -1}" = P ] || sed "s/^/    $player: /" "$work/said" | head -n 4
    done
}

# profile odml codec -> what the five players (ffprobe ffmpeg mplayer
# gstreamer mediainfo) make of the file. The default form: an XVID stream
# named by the library's own codes that nobody decodes, a stray "Kelq"
# writing library, and with OpenDML the idx1 records lost at every index
# flush (ffprobe misses packets, mplayer runs out of audio).
while read -r profile odml codec expected; do
    name="p$profile-odml$odml-$codec"
    avi=$work/$name.avi
    if ! "$standard_maker" "$avi" "$profile" "$odml" "$codec" "$work/v.$codec" "$work/a.pcm" > "$work/counts"; then
        fail "$name: the maker failed"
        continue
    fi
    echo "  $name:"
    verdicts "$avi" "$codec" "$work/counts" < /dev/null
    checks=$((checks + 1))
    [ "$got" = "$expected" ] || fail "$name: players said $got, expected $expected"
done <<'EOF'
1 0 XVID PPPPP
1 1 XVID PPPPP
1 0 MJPG PPPPP
1 1 MJPG PPPPP
0 0 XVID FFFPF
0 1 XVID FFFPF
0 1 MJPG FPFPF
EOF

# Killed after 30 frames (checkpoints every half second), repaired: the
# standard ids and codec codes survive, and the players take the result
# (mplayer is left out: the audio of a cut recording ends before its video,
# which it reports).
avi=$work/killed.avi
("$standard_maker" "$avi" 1 1 XVID "$work/v.XVID" "$work/a.pcm" 30; true) > /dev/null 2>&1
kq repair "$avi" "$work/repaired.avi"
expect_status "0 3" "repair of the killed standard-profile recording"
kq info --json "$work/repaired.avi"
check "repaired: the video super index names 00dc" grep -q '"stream": 0, .*"chunk_id": "00dc"' "$work/out"
check "repaired: the XVID codes kept" grep -q '"handler": "XVID"' "$work/out"
for player in ffmpeg gstreamer mediainfo; do
    check "repaired: $player takes it" "said_$player" "$work/repaired.avi" XVID
done
finish
