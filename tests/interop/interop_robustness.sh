#!/bin/bash
# Damaged files: every length of a small file cut short, and a few hundred
# seeded corruptions of each interop file (size fields set to bounds, ids
# changed, bytes of the header lists and of the data changed). 'info' and
# 'chunks' in both walks must always end with one of their own
# statuses (0, 1 or 3) within the time limit: no crash, no hang, no
# sanitizer report. Run under the sanitize preset, the tool is built with
# AddressSanitizer and UndefinedBehaviorSanitizer.
# Usage: interop_robustness.sh CHECKER TOOL   (native builds only; exit 77 without ffmpeg)
# KELQAVI_CORRUPTIONS sets the corruptions per file (default 300).
set -u
. "$(dirname "$0")/lib.sh"
need_ffmpeg

runs=0
declare -A seen

# try FILE LABEL COMMAND...: each command (with its options, as one word) on
# one damaged file.
try() {
    local file=$1 label=$2 args
    shift 2
    for args in "$@"; do
        runs=$((runs + 1))
        checks=$((checks + 1))
        # shellcheck disable=SC2086
        kq $args "$file"
        seen[$status]=$((${seen[$status]:-0} + 1))
        case $status in
        0 | 1 | 3) ;;
        124) fail "$label: '$args' did not finish in 60 s" ;;
        *) fail "$label: '$args' ended with status $status"
           sed 's/^/  stderr: /' "$work/err" | head -n 20 ;;
        esac
        if grep -q 'Sanitizer\|runtime error:' "$work/err"; then
            fail "$label: '$args': sanitizer report"
            sed 's/^/  stderr: /' "$work/err" | head -n 20
        fi
    done
}

make_interop_files

# Every length of a small file, written to a pipe so that no idx1 or index
# reservation follows: header lists, a JUNK filler and odd-sized data chunks.
small=$work/small.avi
ffmpeg -nostdin -v error -f lavfi -i testsrc=size=16x16:rate=5 -f lavfi -i sine=sample_rate=2000:samples_per_frame=101 \
    -t 0.4 -c:v mpeg4 -c:a pcm_u8 -f avi pipe:1 > "$small"
length=$(stat -c %s "$small")
echo "cutting a $length-byte file at every length"
before=$failures
for ((n = 0; n <= length; n++)); do
    head -c "$n" "$small" > "$work/cut.avi"
    try "$work/cut.avi" "cut at $n of $length" info chunks "chunks --headers"
    [ $((failures - before)) -lt 10 ] || break
done

corruptions=${KELQAVI_CORRUPTIONS:-300}
for name in $interop_files; do
    [ -s "$work/$name.avi" ] || continue
    echo "corrupting $name.avi $corruptions times"
    before=$failures
    for ((seed = 1; seed <= corruptions; seed++)); do
        "$checker" corrupt "$work/$name.avi" "$work/bad.avi" "$seed" || { fail "cannot corrupt $name.avi"; break; }
        try "$work/bad.avi" "$name.avi, corruption seed $seed" info "info --json" chunks "chunks --headers"
        if [ $((failures - before)) -ge 10 ]; then
            echo "(stopping $name after 10 failures; keep the seed to repeat one)"
            break
        fi
    done
done

echo "$runs runs; exit statuses: $(for s in "${!seen[@]}"; do printf '%s x%s  ' "$s" "${seen[$s]}"; done)"
finish
