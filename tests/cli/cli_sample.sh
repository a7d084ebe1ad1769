#!/bin/bash
# The built-in sample (written by the library's writer): its tree as a table
# and as JSON, --depth, the saved copy read back, and the terminal-only
# touches (colour, progress bar).
# Usage: cli_sample.sh [EMULATOR...] TOOL
# KELQAVI_CLI_NATIVE=1 in the environment: the tool runs natively, so the
# locale and terminal checks apply too.
set -u
. "$(dirname "$0")/lib.sh"

# --- The table -------------------------------------------------------------
LC_ALL=C kq riff
expect_status 0 "riff without FILE"
check "the first line says it is the built-in sample" sh -c "head -n 1 '$work/out' | grep -q '^Built-in sample'"
check "no colour codes when stdout is not a terminal" sh -c "! grep -q \$(printf '\\033') '$work/out'"
check "a header row names the columns" has '^OFFSET  *SIZE  *CHUNK  *NOTES$'
size=$(head -n 1 "$work/out" | sed -n 's/.*, \([0-9]*\) bytes.*/\1/p')

check "the summary finds nothing wrong" has ' No problems found\.$'
check "ASCII tree drawing in the C locale" has "|  |- LIST 'strl'"
check "idx1 last, drawn as the last entry" sh -c "grep -E '^ *[0-9]+  ' '$work/out' | tail -n 1 | grep -q '\`- idx1'"
cp "$work/out" "$work/table.txt"
rows=$(grep -c -E '^ *[0-9]+  ' "$work/out")

if [ "${KELQAVI_CLI_NATIVE:-0}" = 1 ]; then
    LC_ALL=C.UTF-8 kq riff
    check "box-drawing tree in a UTF-8 locale" has "│  ├─ LIST 'strl'"
    check "the same rows apart from the drawing" sh -c "sed 's/│/|/g; s/├─/|-/g; s/└─/\`-/g' '$work/out' | cmp -s - '$work/table.txt'"
else
    skip "the UTF-8 tree (not a native build)"
fi

# --- JSON --------------------------------------------------------------------
kq riff --json
expect_status 0 "riff --json"
check "JSON chunks tile their lists and the file" json_tiles
check "JSON says it is the sample" has '^  "sample": true,$'
check "JSON file size" has "^  \"file_size\": $size,$"
check "JSON summary: no problems" has '"problems": 0}'
table_offsets=$(grep -E '^ *[0-9]+  ' "$work/table.txt" | awk '{print $1}' | tr '\n' ' ')
json_offsets=$(grep -o '"offset": [0-9]*' "$work/out" | awk '{print $2}' | tr '\n' ' ')
check "table and JSON list the same offsets" [ "$table_offsets" = "$json_offsets" ]

# --- --depth -------------------------------------------------------------------
LC_ALL=C kq riff --depth 1
expect_status 0 "--depth 1"
check "--depth 1: one row" [ "$(grep -c -E '^ *[0-9]+  ' "$work/out")" -eq 1 ]
check "--depth 1: says the contents are not shown" sh -c "grep -E '^ *0  ' '$work/out' | grep -q 'contents not shown (--depth 1)'"
# The top level in the order the writer lays it out: the header list, the
# filler up to the data, the extension and menu lists, movi, then idx1.
LC_ALL=C kq riff --depth=2
expect_status 0 "--depth=2"
depth2=$(grep -E '^ *[0-9]+  ' "$work/out" | grep -o -E "(RIFF 'AVI '|LIST '[A-Za-z]{4}'|JUNK|idx1)" | tr '\n' ' ')
check "--depth 2: RIFF, hdrl, JUNK, KQDT, KMNU, movi and idx1 (got $depth2)" \
    [ "$depth2" = "RIFF 'AVI ' LIST 'hdrl' JUNK LIST 'KQDT' LIST 'KMNU' LIST 'movi' idx1 " ]
kq riff --json --depth 2
check "--json --depth 2: hdrl not entered" has '"list_type": "hdrl".*"entered": false}'
check "--json --depth 2: no avih" sh -c "! grep -q '\"avih\"' '$work/out'"
kq riff --depth 1000
expect_status 0 "--depth above the nesting limit"
check "--depth 1000 shows the whole tree" [ "$(grep -c -E '^ *[0-9]+  ' "$work/out")" -eq "$rows" ]

# --- The sample saved, then read back as a file -------------------------------
LC_ALL=C kq riff --save-sample "$work/sample.avi"
expect_status 0 "--save-sample"
check "--save-sample still shows the sample's tree" cmp -s "$work/out" "$work/table.txt"
kq sample "$work/written.avi"
check "it is the file 'kelqavi sample' writes" cmp -s "$work/sample.avi" "$work/written.avi"
LC_ALL=C kq riff "$work/sample.avi"
expect_status 0 "riff on the saved sample"
check "the saved file's first line names it" sh -c "head -n 1 '$work/out' | grep -q -F '$work/sample.avi: $size bytes'"
tail -n +2 "$work/table.txt" > "$work/table_rest.txt"
check "the saved file has the same tree as the built-in one" sh -c "tail -n +2 '$work/out' | cmp -s - '$work/table_rest.txt'"
kq riff --save-sample "$work/no/such/dir/x.avi"
expect_status 1 "--save-sample into a missing folder"
check "--save-sample failure: one line" err_one_line

# --- On a terminal (natively, where script(1) can give the tool one) ---------
if on_terminal "colour on a terminal"; then
    on_tty riff
    check "colour on a terminal" grep -q "$(printf '\033')\[1;34mRIFF" "$work/tty.txt"
    NO_COLOR=1 on_tty riff
    check "NO_COLOR turns colour off" sh -c "! grep -q \$(printf '\\033') '$work/tty.txt'"
fi

finish
