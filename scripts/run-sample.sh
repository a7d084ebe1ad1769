#!/bin/sh
# Installs what is missing, builds the library and the kelqavi tool, writes
# the built-in sample with the library's writer and shows what the reader
# makes of it, then makes a small real AVI with ffmpeg and shows the same.
# With FILE: the tree of FILE, then what the reader makes of it.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh build
cmake --preset release > /dev/null
cmake --build --preset release
kelqavi=$PWD/build/release/tools/kelqavi

# riff and info exit 3 for a file with faults; what they show is still worth it.
status=0
if [ $# -gt 0 ]; then
    "$kelqavi" riff "$@" || status=$?
    echo
    "$kelqavi" info "$@" || status=$?
    exit "$status"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "The built-in sample, written with the library's writer:"
echo
(cd "$work" && "$kelqavi" sample kelqavi-sample.avi) || status=$?
echo
(cd "$work" && "$kelqavi" info kelqavi-sample.avi) || status=$?

# Two seconds of a test card with a tone: MPEG-4 video, MP3 audio.
ffmpeg -nostdin -v error -f lavfi -i testsrc=size=160x120:rate=10 \
    -f lavfi -i sine=frequency=440:sample_rate=22050 -t 2 \
    -c:v mpeg4 -c:a libmp3lame -b:a 32k -metadata:s:v title="Test card" -y "$work/clip.avi"
echo
echo "A small AVI written by ffmpeg, read with the library's reader:"
echo
(cd "$work" && "$kelqavi" info clip.avi) || status=$?
exit "$status"
