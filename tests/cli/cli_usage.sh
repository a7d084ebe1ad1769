#!/bin/bash
# Command line handling: help, version, and the usage errors (exit status 2,
# one line on stderr, nothing on stdout).
# Usage: cli_usage.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"

# Help and version go to stdout and succeed.
kq --help
expect_status 0 "--help"
check "--help lists the riff command" has '^  riff '
check "--help says how to get a command's help" has "kelqavi COMMAND --help"
kq -h
expect_status 0 "-h"
check "-h prints the same usage" has '^Usage: kelqavi COMMAND'
kq help
expect_status 0 "help"
check "help prints the usage" has '^Usage: kelqavi COMMAND'
for form in "riff --help" "riff -h" "help riff"; do
    kq $form
    expect_status 0 "$form"
    check "$form prints the command's usage" has '^Usage: kelqavi riff '
    check "$form documents --json" has '^  --json'
    check "$form documents --depth" has '^  --depth N'
    check "$form documents the exit status" has '^Exit status:'
done
# Every reading command documents --strict, every writing one --designed.
while read -r command option; do
    kq "$command" --help
    check "$command --help documents $option" has "^ *$option "
done <<'EOF'
info   --strict
chunks --strict
keys   --strict
frame  --strict
subs   --strict
remux  --strict
remux  --designed
mux    --designed
sample --designed
EOF
# Help wins over whatever else is on the line.
kq riff --json --help nofile.avi
expect_status 0 "riff --json --help FILE"
check "riff --help with other arguments still prints help" has '^Usage: kelqavi riff '
kq --version
expect_status 0 "--version"
check "--version prints the tool's name and version" has '^kelqavi [0-9][0-9]*\.[0-9][0-9]*\.[0-9][0-9]*$'
check "--version prints one line" [ "$(wc -l < "$work/out")" -eq 1 ]

# Nothing at all: the usage, on stderr.
kq
expect_status 2 "no arguments"
check "no arguments: usage on stderr" grep -q '^Usage: kelqavi COMMAND' "$work/err"
check "no arguments: nothing on stdout" out_empty

# Usage errors: exit 2, exactly one line on stderr, nothing on stdout.
usage_error() {  # usage_error EXPECTED_STDERR_OR_EMPTY ARGS...
    local expected=$1
    shift
    kq "$@"
    expect_status 2 "'$*'"
    check "'$*': nothing on stdout" out_empty
    check "'$*': one 'kelqavi: ' line on stderr" err_one_line
    if [ -n "$expected" ]; then
        check "'$*': message" err_is "$expected"
    fi
}
usage_error "kelqavi: unknown command 'frobnicate' (see 'kelqavi --help')" frobnicate
usage_error "kelqavi: unknown option '--frob' (see 'kelqavi --help')" --frob
usage_error "kelqavi: unknown option '--frob' for 'riff' (see 'kelqavi riff --help')" riff --frob
usage_error "kelqavi: unknown option '-x' for 'riff' (see 'kelqavi riff --help')" riff -x file.avi
usage_error "kelqavi: unknown command 'nope' (see 'kelqavi --help')" help nope
usage_error "" riff one.avi two.avi
usage_error "" riff --depth
usage_error "" riff --depth 0
usage_error "" riff --depth=-1
usage_error "" riff --depth 2x
usage_error "" riff --depth ""
usage_error "" riff --save-sample
usage_error "" riff --save-sample "$work/copy.avi" other.avi
check "a refused --save-sample writes nothing" [ ! -e "$work/copy.avi" ]

# After "--" a name that looks like an option is a file name.
kq riff -- --json
expect_status 1 "riff -- --json"
check "riff -- --json: opens a file called --json" err_is "kelqavi: cannot open '--json': No such file or directory"

finish
