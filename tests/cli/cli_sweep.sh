#!/bin/bash
# Every command over one table of damaged files. The seeds are the small
# hand-laid AVI, the built-in sample, a muxed file with type-first ids, a
# two-segment OpenDML file and, natively with ffmpeg at hand, some of
# ffmpeg's files; damaged_files cuts each at many offsets, sets header sizes
# and counts to values that test a bound, damages one chunk of a 'movi' list
# and makes seeded corruptions. Each command must end with one of its own
# statuses (0, 1 or 3) within 60 s, with exactly one line on stderr when it
# ends with 1, and no sanitizer report. Allocations are bounded: under the
# sanitizers no single one may exceed 1 MiB, some ten times the largest seed
# (64 MiB for the writing commands, whose writer handle alone is 43 MiB), and
# natively the address space is limited to 512 MiB. remux copies each undamaged seed whole with status
# 0; on a file whose damage loses data it must not end with 0: with 3 it
# lists the loss, and what it wrote is a sound file.
# mux runs over damaged JPEG and WAV inputs the same way.
# KELQAVI_SWEEP_STRIDE=N runs every N-th file of the table only.
# Usage: cli_sweep.sh [EMULATOR...] MAKER -- [EMULATOR...] TOOL
set -u
maker=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    maker+=("$1")
    shift
done
shift
. "$(dirname "$0")/lib.sh"

export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}exitcode=99:allocator_may_return_null=0"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}halt_on_error=1:exitcode=99:print_stacktrace=1"
stride=${KELQAVI_SWEEP_STRIDE:-1}

# The commands, '@' standing for the damaged file. Rows for new commands go
# here, one line each. The reading commands run with tolerance (the default)
# and with --strict, the writing ones in both profiles.
commands=(
    "repair --swapped-ids @ $work/repaired.avi"
    "riff @"
    "info --json @"
    "info --strict @"
    "chunks @"
    "chunks --headers --swapped-ids --strict @"
    "keys @"
    "frame --strict --audio 1 --extract $work/frame.out @ 2"
    "subs --strict --frame 5 @"
    "remux @ $work/remux.avi"
    "remux --odml --swapped-ids --strict --designed --json @ $work/remux.avi"
)

# run LABEL ARGS...: one run, judged by the rules above.
run() {
    local label=$1 mb=1
    shift
    case $1 in mux | remux) mb=64 ;; esac
    checks=$((checks + 1))
    status=0
    if [ -n "${KELQAVI_SANITIZE:-}" ]; then
        ASAN_OPTIONS="$ASAN_OPTIONS:max_allocation_size_mb=$mb" timeout 60 "${tool[@]}" "$@" > "$work/out" 2> "$work/err" || status=$?
    elif [ -n "${KELQAVI_CLI_NATIVE:-}" ]; then
        (ulimit -v 524288 && exec timeout 60 "${tool[@]}" "$@") > "$work/out" 2> "$work/err" || status=$?
    else
        timeout 60 "${tool[@]}" "$@" > "$work/out" 2> "$work/err" || status=$?
    fi
    seen[$1:$status]=$((${seen[$1:$status]:-0} + 1))
    local why=""
    case $status in
    0 | 3) ;;
    1) err_one_line || why="exit 1 without one 'kelqavi: ' line on stderr" ;;
    124) why="did not finish in 60 s" ;;
    *) why="ended with status $status" ;;
    esac
    if grep -q 'Sanitizer\|runtime error:' "$work/err"; then why="sanitizer report"; fi
    if [ -n "$why" ]; then
        fail "$label: '$*': $why"
        sed 's/^/  stderr: /' "$work/err" | head -n 12
    fi
}

# remux of a file whose damage loses data: 1 (not readable) or 3 with the
# loss listed, and then a sound output, if any was written.
lossy_remux() {
    local label=$1 file=$2
    rm -f "$work/remux.avi"
    run "$label" remux "$file" "$work/remux.avi"
    check "$label: remux must not end with 0 on a lossy file" [ "$status" -ne 0 ]
    [ "$status" -eq 3 ] || return 0
    check "$label: remux lists the loss" has '^Lost: '
    if [ -s "$work/remux.avi" ]; then
        run "$label, remux output" chunks "$work/remux.avi"
        check "$label: remux wrote a sound file (chunks said $status)" [ "$status" -eq 0 ]
    fi
}

declare -A seen
mkdir -p "$work/seeds" "$work/table" "$work/media" "$work/pictures"
cp "$(dirname "$0")/data/small.avi" "$work/seeds/small.avi"
"${tool[@]}" sample "$work/seeds/sample.avi" > /dev/null || fail "cannot write the sample"
"${maker[@]}" opendml "$work/seeds/odml.avi" || fail "cannot write odml.avi"
"${maker[@]}" media "$work/media" > "$work/media.txt" || fail "cannot write the damaged pictures and sounds"
good_picture=$work/media/$(awk -F'\t' '$3 == "the good picture" { print $1 }' "$work/media.txt")
good_sound=$work/media/$(awk -F'\t' '$3 == "the good sound" { print $1 }' "$work/media.txt")
cp "$good_picture" "$work/pictures/a.jpg"
cp "$good_picture" "$work/pictures/b.jpg"
printf '0\tHello\n1\tWorld\n' > "$work/captions.txt"
"${tool[@]}" mux -o "$work/seeds/muxed.avi" --fps 5 --video "$work/pictures/*.jpg" --audio "$good_sound" \
    --text-caption "$work/captions.txt" --chapters "$work/captions.txt" --odml --swapped-ids > /dev/null ||
    fail "cannot write muxed.avi"
if [ -n "${KELQAVI_CLI_NATIVE:-}" ] && command -v ffmpeg > /dev/null 2>&1; then
    source "$(dirname "$0")/../support/ffmpeg_files.sh"
    make_interop_files
    for name in mpeg4_mp3 two_audio pcm_odd piped; do cp "$work/$name.avi" "$work/seeds/"; done
else
    echo "ffmpeg's files not among the seeds (ffmpeg missing, or not a native build)"
fi
"${maker[@]}" avi "$work/table" "$work/seeds"/*.avi > "$work/table.txt" || fail "cannot write the damaged files"

# Undamaged, every seed is copied whole: status 0, the same media chunks.
media_chunks() {
    "${tool[@]}" chunks --swapped-ids --json "$1" | grep -o '"type_code": [1-7], "stream": [0-9]*, "size": [0-9]*'
}
for seed in "$work/seeds"/*.avi; do
    run "$(basename "$seed")" remux "$seed" "$work/remux.avi"
    check "$(basename "$seed"): remux loses nothing (status $status)" [ "$status" -eq 0 ]
    check "$(basename "$seed"): remux writes the same chunks" [ "$(media_chunks "$seed")" = "$(media_chunks "$work/remux.avi")" ]
done

rows=$(wc -l < "$work/table.txt")
echo "$rows damaged AVI files, $(wc -l < "$work/media.txt") damaged inputs for mux; running $([ "$stride" -eq 1 ] && echo "them all" || echo "one in $stride")"
n=0
while IFS=$'\t' read -r name class what; do
    n=$((n + 1))
    [ $((n % stride)) -eq 0 ] || [ "$stride" -eq 1 ] || continue
    file=$work/table/$name
    for c in "${commands[@]}"; do
        # shellcheck disable=SC2086
        set -- ${c//@/$file}
        [ "$class" = lossy ] && [ "$c" = "remux @ $work/remux.avi" ] && continue
        run "$what" "$@"
    done
    [ "$class" = lossy ] && lossy_remux "$what" "$file"
done < "$work/table.txt"

n=0
while IFS=$'\t' read -r name class what; do
    n=$((n + 1))
    [ $((n % stride)) -eq 0 ] || [ "$stride" -eq 1 ] || continue
    rm -rf "$work/m" && mkdir "$work/m" && cp "$good_picture" "$work/m/a.jpg"
    case $name in
    *.jpg) cp "$work/media/$name" "$work/m/b.jpg"
           run "$what" mux -o "$work/mux.avi" --fps 5 --video "$work/m/*.jpg" --audio "$good_sound" ;;
    *.wav) run "$what" mux -o "$work/mux.avi" --fps 5 --video "$work/m/*.jpg" --audio "$work/media/$name" ;;
    esac
    [ "$class" = lossy ] && check "$what: mux reports the loss (status $status)" [ "$status" -eq 3 ]
done < "$work/media.txt"

for key in $(printf '%s\n' "${!seen[@]}" | sort); do printf '%s x%s  ' "$key" "${seen[$key]}"; done
echo
finish
