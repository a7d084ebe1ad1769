# Helpers shared by the interop test scripts (bash). A script sources this
# file and is run as: script.sh CHECKER TOOL MAKER, where CHECKER is
# interop_check.py, TOOL the kelqavi program and MAKER opendml_maker.py (it
# writes opendml_small.avi).

checker=$1
tool=$2
maker=(python3 "$3")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$(dirname "${BASH_SOURCE[0]}")/../support/checks.sh"

# A sanitizer report must not look like one of the tool's own exit statuses.
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}exitcode=99"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}halt_on_error=1:exitcode=99:print_stacktrace=1"

# need PROGRAM...: skips the test (exit 77) when one of them is missing.
need() {
    local program
    for program in "$@"; do
        command -v "$program" > /dev/null 2>&1 || { echo "$program not installed: skipped"; exit 77; }
    done
}


# Runs the tool: stdout to $work/out, stderr to $work/err, exit status to
# $status (124 when it ran out of time).
kq() {
    status=0
    timeout 60 "$tool" "$@" > "$work/out" 2> "$work/err" || status=$?
}

# run_json NAME WHAT ARGS...: runs the tool, its JSON output kept as $work/NAME.WHAT.json.
run_json() {
    local name=$1 what=$2
    shift 2
    kq "$@"
    cp "$work/out" "$work/$name.$what.json"
}

# Runs a checking program; its report is shown indented, and a failure fails.
judge() {  # judge DESCRIPTION COMMAND...
    local what=$1 rc=0
    shift
    checks=$((checks + 1))
    "$@" > "$work/check" 2>&1 || rc=$?
    sed 's/^/    /' "$work/check"
    [ "$rc" -eq 0 ] || fail "$what"
}

compare() { judge "$1" python3 "$checker" "${@:2}"; }  # compare DESCRIPTION CHECKER-ARGS...

# against_ffprobe NAME STATUS [READ-OPTION...]: $work/NAME.avi read by the
# tool and by ffprobe. The stream formats of 'info' are ffprobe's; the media
# chunks of both walks of 'chunks' (whole and --headers) are ffprobe's
# packets, stream by stream; idx1, the super indexes and the segments agree
# with the walk. riff and the walks end with STATUS, in JSON and in text.
# Leaves the outputs as $work/NAME.{streams,packets,riff,info}.json and
# $work/NAME.chunks.json, $work/NAME.chunks--headers.json.
against_ffprobe() {
    local name=$1 walk_status=$2 avi=$work/$1.avi walk
    shift 2
    echo "== $name $*"
    ffprobe -v error -show_streams -of json "$avi" > "$work/$name.streams.json"
    ffprobe -v error -show_packets -of json "$avi" > "$work/$name.packets.json"
    run_json "$name" riff riff --json "$avi"
    expect_status "$walk_status" "$name: riff"
    run_json "$name" info info --json "$@" "$avi"
    expect_status 0 "$name: info --json"
    compare "$name: info's streams are ffprobe's" streams "$work/$name.info.json" "$work/$name.streams.json"
    for walk in "" --headers; do
        run_json "$name" "chunks$walk" chunks --json $walk "$@" "$avi"
        expect_status "$walk_status" "$name: chunks $walk"
        echo "  chunks $walk:"
        compare "$name: the chunks of chunks $walk are ffprobe's packets" \
            packets "$work/$name.chunks$walk.json" "$work/$name.packets.json" "$work/$name.riff.json"
    done
    compare "$name: idx1, super indexes and segments agree with the walk" \
        indexes "$work/$name.info.json" "$work/$name.chunks.json" "$work/$name.riff.json" "$work/$name.streams.json"
    kq info "$@" "$avi"
    expect_status 0 "$name: info"
    kq chunks "$@" "$avi"
    expect_status "$walk_status" "$name: chunks"
}

source "$(dirname "${BASH_SOURCE[0]}")/../support/ffmpeg_files.sh"
source "$(dirname "${BASH_SOURCE[0]}")/../support/players.sh"
