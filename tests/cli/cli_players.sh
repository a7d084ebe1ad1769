#!/bin/bash
# Cross-checks against independent AVI readers: files written by mux, remux
# and sample, checked by ffprobe and ffmpeg (streams, packet sizes, frame
# hashes, a clean copy), and by mplayer and GStreamer when they are
# installed. (The tool reading ffmpeg's files is the interop tests' part.)
# Skipped (exit 77) without ffmpeg. Usage: cli_players.sh TOOL   (native builds only)
set -u
. "$(dirname "$0")/lib.sh"
source "$(dirname "$0")/../support/players.sh"

if ! command -v ffmpeg > /dev/null 2>&1 || ! command -v ffprobe > /dev/null 2>&1; then
    echo "ffmpeg not installed: skipped"
    exit 77
fi

# Packet sizes of a stream as ffprobe reads them, one a line.
packet_sizes() { ffprobe -v error -select_streams "$2" -show_entries packet=size -of csv=p=0 "$1"; }
# The hashes of the video packets as ffmpeg copies them.
video_hashes() { ffmpeg -nostdin -v error -i "$1" -map 0:v:0 -c copy -f framemd5 - | grep -v '^#' | awk -F', *' '{ print $6 }'; }
# ffmpeg copies every stream it can decode without a word: the file's layout holds no surprise.
clean_copy() {
    ffmpeg -nostdin -v error -i "$1" -map 0:v? -map 0:a? -c copy -f null - > "$work/said" 2>&1 && [ ! -s "$work/said" ] || said
}
# The frames the idx1 of a file flags as key frames, as the tool's key table reads them.
key_frames() { "${tool[@]}" keys --json "$1" | python3 -c 'import json, sys; print([k["frame"] for k in json.load(sys.stdin)["key_frames_kept"]])'; }

mkdir -p "$work/frames"
ffmpeg -nostdin -v error -f lavfi -i testsrc=size=160x120:rate=10 -frames:v 20 "$work/frames/%03d.jpg"
ffmpeg -nostdin -v error -f lavfi -i sine -t 2 -ac 2 -ar 22050 "$work/in.wav"
jpeg_sizes=$(for f in "$work"/frames/*.jpg; do wc -c < "$f"; done)
jpeg_hashes=$(for f in "$work"/frames/*.jpg; do md5sum < "$f" | cut -d' ' -f1; done)

# --- mux, plain and with OpenDML indexes --------------------------------------------
for variant in plain odml; do
    out=$work/mux_$variant.avi
    extra=()
    [ "$variant" = odml ] && extra=(--odml)
    kq mux -o "$out" --fps 10 --video "$work/frames/*.jpg" --audio "$work/in.wav" "${extra[@]}"
    expect_status 0 "mux ($variant)"
    streams=$(ffprobe -v error -show_entries stream=codec_type,codec_name,width,height,sample_rate,channels -of compact=p=0 "$out")
    check "$variant: ffprobe finds MJPEG 160x120 ($streams)" grep -q 'codec_name=mjpeg|codec_type=video|width=160|height=120' <<< "$streams"
    check "$variant: ffprobe finds 16-bit PCM, 22050 Hz stereo" grep -q 'codec_name=pcm_s16le|codec_type=audio|sample_rate=22050|channels=2' <<< "$streams"
    check "$variant: ffprobe's video packets are the JPEG files, in order" [ "$(packet_sizes "$out" v)" = "$jpeg_sizes" ]
    audio_total=$(packet_sizes "$out" a | awk '{ s += $1 } END { print s }')
    check "$variant: every sample is in the audio packets ($audio_total bytes)" [ "$audio_total" = 176400 ]
    check "$variant: ffmpeg copies the file without a word" clean_copy "$out"
    check "$variant: framemd5 of the video is the md5 of each JPEG file" [ "$(video_hashes "$out")" = "$jpeg_hashes" ]
done

# --- sample -----------------------------------------------------------------------------
kq sample "$work/sample.avi"
expect_status 0 "sample"
streams=$(ffprobe -v error -show_entries stream=codec_type,codec_name,width,height,sample_rate,channels:stream_tags=title \
    -of compact=p=0 "$work/sample.avi" 2> /dev/null)
check "sample: ffprobe finds the MJPEG picture ($streams)" grep -q '^codec_name=mjpeg|codec_type=video|width=160|height=120|.*tag:title=Moving bar$' <<< "$streams"
check "sample: ffprobe finds the tone" grep -q '^codec_name=pcm_s16le|codec_type=audio|sample_rate=8000|channels=1|.*tag:title=Tone$' <<< "$streams"
packets=$(ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv=p=0 "$work/sample.avi" 2> /dev/null | tr '\n' ' ')
check "sample: ffprobe finds five streams, each chunk a packet (got: $packets)" [ "$packets" = "30 30 3 2 2 " ]
check "sample: ffmpeg copies picture and tone without a word" clean_copy "$work/sample.avi"
frames=$(ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 "$work/sample.avi")
check "sample: ffmpeg decodes 30 pictures (got $frames)" [ "$frames" = 30 ]

# --- remux: ffmpeg's files and the sample ------------------------------------------------------
ffmpeg -nostdin -v error -f lavfi -i testsrc=size=160x120:rate=10 -f lavfi -i sine=sample_rate=22050 -t 2 \
    -c:v mjpeg -c:a pcm_s16le -y "$work/ff_mjpeg.avi"
ffmpeg -nostdin -v error -f lavfi -i testsrc=size=160x120:rate=10 -f lavfi -i sine=sample_rate=22050 -t 2 \
    -c:v mpeg4 -c:a libmp3lame -b:a 32k -y "$work/ff_mpeg4.avi"
for name in ff_mjpeg ff_mpeg4 sample mux_odml; do
    in=$work/$name.avi
    for flag in "" --odml; do
        out=$work/remux_$name$flag.avi
        kq remux $flag "$in" "$out"
        expect_status 0 "remux $flag $name"
        check "remux $flag $name: the same chunk sizes per stream" [ "$(chunk_sizes "$out")" = "$(chunk_sizes "$in")" ]
        check "remux $flag $name: framemd5 of every stream agrees" \
            [ "$(ffmpeg -nostdin -v error -i "$out" -map 0:v:0 -map 0:a:0 -c copy -f framemd5 - | grep -v '^#')" = \
              "$(ffmpeg -nostdin -v error -i "$in" -map 0:v:0 -map 0:a:0 -c copy -f framemd5 - | grep -v '^#')" ]
        check "remux $flag $name: the same key frames in idx1" [ "$(key_frames "$out")" = "$(key_frames "$in")" ]
        check "remux $flag $name: ffmpeg copies it without a word" clean_copy "$out"
    done
done

# --- other players, where installed ----------------------------------------------------------------
played=(mux_plain mux_odml sample remux_ff_mpeg4)
if command -v mplayer > /dev/null 2>&1; then
    for f in "${played[@]}"; do
        check "mplayer plays $f.avi" mplayer_plays "$work/$f.avi" -frames 50
    done
else
    skip "mplayer (not installed)"
fi
if command -v gst-launch-1.0 > /dev/null 2>&1 && gst-inspect-1.0 avidemux > /dev/null 2>&1; then
    for f in "${played[@]}"; do
        pipeline=(avidemux name=d d.video_0 '!' queue '!' jpegdec '!' fakesink)
        [ "$f" = remux_ff_mpeg4 ] && pipeline=()
        check "GStreamer demuxes $f.avi" gst_demuxes "$work/$f.avi" "${pipeline[@]}"
    done
else
    skip "GStreamer's avidemux (not installed)"
fi

finish
