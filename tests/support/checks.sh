# Counting checks in the shell-driven tests (bash). The sourcing script sets
# $work (holding out and err from the last run of the tool) and $status.
failures=0
checks=0
skipped=""

fail() {
    failures=$((failures + 1))
    echo "FAIL: $*"
}

check() {  # check DESCRIPTION COMMAND... : passes when the command succeeds
    local what=$1
    shift
    checks=$((checks + 1))
    "$@" || fail "$what"
}

expect_status() {  # expect_status "N [M...]" DESCRIPTION: any of the listed statuses passes
    checks=$((checks + 1))
    case " $1 " in
    *" $status "*) ;;
    *)
        fail "$2: exit status $status, expected $1"
        sed 's/^/  stdout: /' "$work/out" | head -n 20
        sed 's/^/  stderr: /' "$work/err" | head -n 20
        ;;
    esac
}

skip() {  # skip WHAT: checks that cannot run here, named in the summary line
    skipped+="${skipped:+; }$*"
}

finish() {
    echo "$checks checks, $failures failed${skipped:+; skipped: $skipped}"
    [ "$failures" -eq 0 ]
}
