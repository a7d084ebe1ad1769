# Whether independent players take a file without complaint (bash). The
# sourcing script sets $work; what the player said is left in $work/said and
# shown, the first lines of it, when it complains.
said() { sed 's/^/    said: /' "$work/said" | head -n 4; return 1; }

# ffmpeg decodes every stream of FILE without a word.
ffmpeg_silent() { ffmpeg -nostdin -v error -i "$1" -f null - > "$work/said" 2>&1; [ ! -s "$work/said" ] || said; }

# mplayer_plays FILE [OPTION...]: mplayer (video and audio to null unless the
# options say otherwise) ends well and names no error.
mplayer_plays() {
    local file=$1
    shift
    timeout 60 mplayer -really-quiet -benchmark -nolirc -noconfig all -vo null -ao null "$@" "$file" \
        < /dev/null > "$work/said" 2>&1 && ! grep -q -i -e error -e broken -e cannot "$work/said" || said
}

# gst_demuxes FILE [ELEMENTS...]: GStreamer reads FILE into ELEMENTS (by
# default avidemux, every pad to a fakesink) to the end without a warning.
gst_demuxes() {
    local file=$1
    shift
    [ $# -gt 0 ] || set -- avidemux '!' fakesink
    timeout 60 gst-launch-1.0 -q filesrc location="$file" '!' "$@" > "$work/said" 2>&1 < /dev/null &&
        ! grep -q 'CRITICAL\|WARNING\|ERROR' "$work/said" || said
}
