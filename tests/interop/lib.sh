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

need_ffmpeg() { need ffmpeg ffprobe python3; }

# Runs the tool: stdout to $work/out, stderr to $work/err, exit status to
# $status (124 when it ran out of time).
kq() {
    status=0
    timeout 60 "$tool" "$@" > "$work/out" 2> "$work/err" || status=$?
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

source "$(dirname "${BASH_SOURCE[0]}")/../support/ffmpeg_files.sh"
source "$(dirname "${BASH_SOURCE[0]}")/../support/players.sh"
