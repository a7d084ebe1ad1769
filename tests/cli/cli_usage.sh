#!/bin/bash
# Command line handling of every command, as tables: the help, the usage
# errors (exit 2) and the files each command cannot use or reads only in part
# (exit 1 or 3): the exact exit status and the exact line on stderr, nothing
# on stdout when the command refuses.
# Usage: cli_usage.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"
export LC_ALL=C

# --- Help and version: on stdout, status 0 -----------------------------------------
kq --version
expect_status 0 "--version"
check "--version: one line, the name and version" sh -c "[ \$(wc -l < '$work/out') -eq 1 ] && grep -qE '^kelqavi [0-9]+[.][0-9]+[.][0-9]+\$' '$work/out'"
kq
expect_status 2 "no arguments"
check "no arguments: the usage on stderr, nothing on stdout" grep -q '^Usage: kelqavi COMMAND' "$work/err"
check "no arguments: nothing on stdout" out_empty
for form in --help -h help; do
    kq $form
    expect_status 0 "$form"
    cp "$work/out" "$work/usage.txt"
    check "$form: the usage" has '^Usage: kelqavi COMMAND'
done
# Each command: listed by --help; its help (in three forms, help winning over
# whatever else is on the line) documents this option and the exit status.
while read -r command option; do
    check "--help lists $command" grep -q "^  $command " "$work/usage.txt"
    for form in "$command --help" "help $command" "$command --json --help nofile.avi"; do
        kq $form
        expect_status 0 "$form"
        check "$form: usage, $option, exit status" sh -c "grep -q '^Usage: kelqavi $command ' '$work/out' &&
            grep -q -e '^ *$option ' '$work/out' && grep -q '^Exit status:' '$work/out'"
    done
done <<'EOF'
riff   --depth
info   --strict
chunks --headers
keys   --strict
frame  --audio
subs   --frame
mux    --designed
remux  --designed
repair --swapped-ids
sample --designed
EOF

# --- The tables: STATUS | ARGUMENTS (split at spaces, run in $work) | STDERR, exactly ---
cd "$work"
"${tool[@]}" sample s.avi > /dev/null || fail "cannot write the sample"
printf 'hello, world\n' > text.txt
: > empty.avi
head -c 300 s.avi > hdr.avi      # cut inside stream 0's header list
head -c 30000 s.avi > movi.avi   # cut inside 'movi', before idx1
printf 'RIF' > short.avi
printf 'GIF89a' > bad.jpg
printf 'RIFF\004\000\000\000AVI ' > bad.wav
mkdir folder
table() {
    local want args expected
    while IFS='|' read -r want args expected; do
        [ -n "$want" ] || continue
        rm -f o.avi r.avi m.avi
        # shellcheck disable=SC2086
        kq $args
        expect_status "$want" "'$args'"
        check "'$args': stderr is '$expected' (got '$(cat "$work/err")')" err_is "$expected"
        [ "$want" -eq 0 ] || [ "$want" -eq 3 ] || check "'$args': nothing on stdout" out_empty
    done
}
table <<'EOF'
2|frobnicate|kelqavi: unknown command 'frobnicate' (see 'kelqavi --help')
2|--frob|kelqavi: unknown option '--frob' (see 'kelqavi --help')
2|help nope|kelqavi: unknown command 'nope' (see 'kelqavi --help')
2|riff -x s.avi|kelqavi: unknown option '-x' for 'riff' (see 'kelqavi riff --help')
2|riff one.avi two.avi|kelqavi: 'riff' takes one FILE, but 'two.avi' follows 'one.avi'
2|riff --depth|kelqavi: option '--depth' needs a number (see 'kelqavi riff --help')
2|riff --depth 0|kelqavi: option '--depth' needs a whole number of levels, 1 or more, not '0'
2|riff --depth=-1|kelqavi: option '--depth' needs a whole number of levels, 1 or more, not '-1'
2|riff --depth 2x|kelqavi: option '--depth' needs a whole number of levels, 1 or more, not '2x'
2|riff --save-sample|kelqavi: option '--save-sample' needs a file name (see 'kelqavi riff --help')
2|riff --save-sample copy.avi other.avi|kelqavi: '--save-sample' writes the built-in sample, so it takes no FILE to read
2|info|kelqavi: 'info' needs a FILE (see 'kelqavi info --help')
2|info --depth 2 s.avi|kelqavi: unknown option '--depth' for 'info' (see 'kelqavi info --help')
2|chunks a.avi b.avi|kelqavi: 'chunks' takes one FILE, but 'b.avi' follows 'a.avi'
2|keys --depth 2 s.avi|kelqavi: unknown option '--depth' for 'keys' (see 'kelqavi keys --help')
2|frame s.avi|kelqavi: 'frame' needs FILE N (see 'kelqavi frame --help')
2|frame s.avi 1x|kelqavi: frame number '1x' is not a number from 0 to 2147483647
2|frame s.avi -- -1|kelqavi: frame number '-1' is not a number from 0 to 2147483647
2|frame s.avi 3 --audio|kelqavi: '--audio' needs a value (see 'kelqavi frame --help')
2|subs --frame x s.avi|kelqavi: frame number 'x' is not a number from 0 to 2147483647
2|mux --fps 4 --video bad.jpg|kelqavi: 'mux' needs an output file: -o OUT.avi (see 'kelqavi mux --help')
2|mux -o m.avi --fps 0 --video bad.jpg|kelqavi: --fps needs a rate above 0 such as 25, 29.97 or 30000/1001, not '0'
2|remux s.avi|kelqavi: 'remux' needs IN.avi and OUT.avi (see 'kelqavi remux --help')
2|remux s.avi x.avi y.avi|kelqavi: 'remux' takes IN.avi and OUT.avi, but 'y.avi' follows them
2|repair|kelqavi: 'repair' needs IN [OUT] (see 'kelqavi repair --help')
2|repair a.avi b.avi c.avi|kelqavi: too many arguments for 'repair': 'c.avi' (usage: kelqavi repair IN [OUT])
2|sample a b|kelqavi: 'sample' takes one FILE, but 'b' follows 'a'
1|riff -- --json|kelqavi: cannot open '--json': No such file or directory
1|riff text.txt|kelqavi: 'text.txt' is not a RIFF file
1|riff short.avi|kelqavi: 'short.avi' is not a RIFF file
1|riff empty.avi|kelqavi: 'empty.avi' is empty, not a RIFF file
1|riff --json folder|kelqavi: cannot read 'folder': Is a directory
3|riff hdr.avi|
1|info --json text.txt|kelqavi: cannot open 'text.txt': it is not a RIFF file (it begins with 'hell')
1|info empty.avi|kelqavi: cannot open 'empty.avi': the file is empty
1|info folder|kelqavi: error reading 'folder': Is a directory
0|info movi.avi|
3|chunks movi.avi|
1|keys missing.avi|kelqavi: cannot open 'missing.avi': No such file or directory
1|keys movi.avi|kelqavi: 'movi.avi' has no legacy index (idx1) to find key frames in
1|frame movi.avi 2|kelqavi: 'movi.avi' has no legacy index (idx1) to find key frames in
1|frame s.avi 1000|kelqavi: 's.avi' has 30 frames: frame 1000 is beyond the last
1|subs hdr.avi|kelqavi: cannot open 'hdr.avi': its 'hdrl' at 12 is cut short by the end of the file
0|subs movi.avi|
1|mux -o m.avi --fps 4 --video bad.jpg|kelqavi: 'bad.jpg': not a JPEG file (it does not begin with FF D8)
1|mux -o m.avi --fps 4 --audio bad.wav|kelqavi: 'bad.wav' is not a WAV file (no RIFF 'WAVE' header)
1|remux missing.avi x.avi|kelqavi: cannot open 'missing.avi': No such file or directory
1|remux text.txt o.avi|kelqavi: cannot open 'text.txt': it is not a RIFF file (it begins with 'hell')
3|remux movi.avi o.avi|kelqavi: not everything in 'movi.avi' was written: 1 'movi' walk stopped early, 2 indexes listing more than was read
1|repair missing.avi|kelqavi: cannot repair 'missing.avi': it cannot be opened or read
1|repair text.txt r.avi|kelqavi: cannot repair 'text.txt': it is not an AVI file (no RIFF 'AVI ' form at its start)
1|repair hdr.avi r.avi|kelqavi: cannot repair 'hdr.avi': it is cut short or damaged inside its header lists
3|repair movi.avi r.avi|
1|sample no/such/s.avi|kelqavi: cannot create 'no/such/s.avi': No such file or directory
EOF
check "refused commands write no output file" sh -c '[ ! -e m.avi ] && [ ! -e copy.avi ]'

finish
