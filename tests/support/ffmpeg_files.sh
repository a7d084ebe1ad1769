# The AVI files made with ffmpeg that the interop tests share (bash). The
# sourcing script sets $work, defines fail (tests/support/checks.sh) and sets
# the maker array to the command that runs opendml_maker.py.

# make_avi NAME FFMPEG-ARGUMENTS...: writes $work/NAME.avi.
make_avi() {
    local name=$1
    shift
    if ! ffmpeg -nostdin -v error "$@" -y "$work/$name.avi"; then
        fail "ffmpeg could not write $name.avi"
        return 1
    fi
}

# The small files of the interop tests,
# each one about a rule of the format:
#   mjpeg_pcm   MJPEG with 16-bit stereo PCM in chunks of 16000 bytes, which
#               ffprobe hands out as several packets each
#   two_audio   MPEG-4 video and two audio streams: MP3 (cb_size 12,
#               variable-size chunks) and PCM
#   pcm_odd     8-bit mono PCM at 11025 Hz in chunks of 1001 bytes: odd
#               sizes, so every audio chunk carries a pad byte
#   video_only, audio_only (MPEG audio layer 2)
#   piped       written to a pipe: no idx1, no super index, and the RIFF and
#               'movi' sizes left at the placeholder 0xFFFFFFFF
#   opendml_small  made by "${maker[@]}" (opendml_maker.py), as ffmpeg lays out files
#               above 1 GiB: 'AVI ' and 'AVIX' segments, super indexes,
#               ix00/ix01 at the end of each 'movi' (ffmpeg writes these only
#               past 1 GiB, and the tests need a small file that has them)
make_interop_files() {
    local video=(-f lavfi -i testsrc=size=64x48:rate=10)
    make_avi mjpeg_pcm "${video[@]}" -f lavfi -i sine=frequency=300:sample_rate=44100:samples_per_frame=4000 \
        -t 1 -c:v mjpeg -c:a pcm_s16le -ac 2
    make_avi two_audio "${video[@]}" -f lavfi -i sine=frequency=440:sample_rate=16000 \
        -f lavfi -i sine=frequency=880:sample_rate=8000 -map 0 -map 1 -map 2 \
        -t 1 -c:v mpeg4 -c:a:0 libmp3lame -c:a:1 pcm_s16le
    make_avi pcm_odd "${video[@]}" -f lavfi -i sine=frequency=500:sample_rate=11025:samples_per_frame=1001 \
        -t 1 -c:v mjpeg -c:a pcm_u8
    make_avi video_only "${video[@]}" -t 1 -c:v mpeg4
    make_avi audio_only -f lavfi -i sine=frequency=440:sample_rate=32000 -t 1 -c:a mp2
    if ! ffmpeg -nostdin -v error "${video[@]}" -f lavfi -i sine=frequency=440:sample_rate=8000 \
            -t 1 -c:v mpeg4 -c:a pcm_s16le -f avi pipe:1 > "$work/piped.avi"; then
        fail "ffmpeg could not write piped.avi"
    fi
    "${maker[@]}" "$work/opendml_small.avi" || fail "could not write opendml_small.avi"
}
interop_files="mjpeg_pcm two_audio pcm_odd video_only audio_only piped opendml_small"
