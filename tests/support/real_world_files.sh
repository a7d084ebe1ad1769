# Small AVI files written by the Debian tools people record and convert with
# (bash): ffmpeg, GStreamer, mencoder and mjpegtools, each in the forms it
# writes by default. Sourced after ffmpeg_files.sh (make_avi, fail, $work,
# $maker).
#
# real_world_files lists them, one "NAME MAKER EXPECTED" row each. EXPECTED is
# the tolerances the reader must need for the file, as the tool names them, in
# alphabetical order ("-" none):
#   ff_*   ffmpeg: MPEG-4 + MP3, MJPEG + PCM, pal8 raw video (a palette after
#          the bitmap header), H.264 with codec set-up data in strf (its
#          header size counts it: the plain reader takes it, but without the
#          extra bytes), 24-bit uncompressed + PCM
#   opendml_small  "${maker[@]}" (opendml_maker.py): ix00/ix01 inside 'movi', as ffmpeg
#          writes them past 1 GiB, and '00db' frames
#   gst_*  GStreamer's avimux: MJPEG + PCM and I420 raw, every frame
#          an '00db' chunk, idx1 counted from the file start
#   mc_*   mencoder: MPEG-4 + PCM, raw + PCM, MJPEG -noodml (with codec data
#          after the header), MPEG-4 -odml, H.264
#   mj_*   mjpegtools: yuv2lav -f a (MJPEG as '00db'), and lavaddwav adding
#          a WAV to it. Their idx1 flags no frame as a key frame and counts
#          from the file start; lavaddwav's lists an empty audio chunk in
#          the last 8 bytes of 'movi', which the list's end test never reaches
# Files remux cannot copy whole
# besides the ones with format bytes past the header (which have no place in
# the writer's video format): lavaddwav ends 'movi' with an empty audio chunk
# in the list's last 8 bytes, where the reader ends the list, so idx1 lists
# one chunk more than is read.
real_world_remux_losses="mj_lavaddwav"
real_world_files="
ff_mpeg4_mp3   ffmpeg     -
ff_mjpeg_pcm   ffmpeg     -
ff_pal8        ffmpeg     long_video_format
ff_h264_avcc   ffmpeg     long_video_format
ff_raw_pcm     ffmpeg     -
opendml_small  maker      db_frames,index_chunks
gst_mjpeg_pcm  gstreamer  db_frames,file_idx1
gst_raw        gstreamer  db_frames,file_idx1
mc_mpeg4_pcm   mencoder   -
mc_raw_pcm     mencoder   -
mc_mjpeg_noodml mencoder  long_video_format
mc_mpeg4_odml  mencoder   -
mc_x264        mencoder   -
mj_yuv2lav     mjpegtools db_frames,file_idx1,unflagged_keys
mj_lavaddwav   mjpegtools db_frames,empty_last_chunk,file_idx1,unflagged_keys
"

# The programs the files need.
real_world_tools="ffmpeg ffprobe gst-launch-1.0 mencoder yuv2lav lavaddwav"

# run_maker NAME COMMAND...: runs a maker quietly, fails when NAME.avi is not written.
run_maker() {
    local name=$1
    shift
    "$@" > "$work/$name.log" 2>&1 && [ -s "$work/$name.avi" ] || fail "could not write $name.avi: $(tail -n 2 "$work/$name.log")"
}

gst_avi() {  # gst_avi NAME PIPELINE...: the pipeline ends in avimux
    run_maker "$1" gst-launch-1.0 -q "${@:2}" ! filesink location="$work/$1.avi"
}

mencoder_avi() {  # mencoder_avi NAME OPTIONS...
    run_maker "$1" mencoder "$work/src.y4m" "${@:2}" -of avi -o "$work/$1.avi"
}

make_real_world_files() {
    local video=(-f lavfi -i testsrc=size=64x48:rate=10) audio=(-f lavfi -i sine=frequency=440:sample_rate=22050)
    make_avi ff_mpeg4_mp3 "${video[@]}" "${audio[@]}" -t 1 -c:v mpeg4 -c:a libmp3lame -b:a 32k
    make_avi ff_mjpeg_pcm "${video[@]}" "${audio[@]}" -t 1 -c:v mjpeg -c:a pcm_s16le
    make_avi ff_pal8 "${video[@]}" -t 1 -c:v rawvideo -pix_fmt pal8
    make_avi ff_h264_avcc "${video[@]}" -t 1 -c:v libx264 -preset ultrafast -flags +global_header
    make_avi ff_raw_pcm "${video[@]}" "${audio[@]}" -t 1 -c:v rawvideo -pix_fmt bgr24 -c:a pcm_s16le
    "${maker[@]}" "$work/opendml_small.avi" || fail "could not write opendml_small.avi"

    local frames=(videotestsrc num-buffers=10 ! video/x-raw,format=I420,width=64,height=48,framerate=10/1)
    gst_avi gst_mjpeg_pcm "${frames[@]}" ! jpegenc ! mux. \
        audiotestsrc num-buffers=10 ! audio/x-raw,rate=8000,channels=1 ! avimux name=mux
    gst_avi gst_raw "${frames[@]}" ! avimux

    # The inputs of mencoder and mjpegtools: one second of pictures, and a
    # WAV with a bare 44-byte header (lavaddwav reads no other).
    ffmpeg -nostdin -v error "${video[@]}" -t 1 -pix_fmt yuv420p -y "$work/src.y4m" || fail "no src.y4m"
    ffmpeg -nostdin -v error "${audio[@]}" -t 1 -c:a pcm_s16le -fflags +bitexact -flags:a +bitexact \
        -map_metadata -1 -y "$work/src.wav" || fail "no src.wav"
    mencoder_avi mc_mpeg4_pcm -audiofile "$work/src.wav" -ovc lavc -lavcopts vcodec=mpeg4 -oac pcm
    mencoder_avi mc_raw_pcm -audiofile "$work/src.wav" -ovc raw -vf format=i420 -oac pcm
    mencoder_avi mc_mjpeg_noodml -audiofile "$work/src.wav" -ovc lavc -lavcopts vcodec=mjpeg -oac pcm -noodml
    mencoder_avi mc_mpeg4_odml -ovc lavc -lavcopts vcodec=mpeg4 -nosound -odml
    mencoder_avi mc_x264 -ovc x264 -x264encopts preset=ultrafast -nosound

    run_maker mj_yuv2lav sh -c 'yuv2lav -f a -o "$1" < "$2"' sh "$work/mj_yuv2lav.avi" "$work/src.y4m"
    run_maker mj_lavaddwav lavaddwav "$work/mj_yuv2lav.avi" "$work/src.wav" "$work/mj_lavaddwav.avi"
}
