#!/bin/bash
# The built-in sample: its tree as a table and as JSON, --depth, the saved
# copy read back, and the terminal-only touches (colour, progress bar).
# Usage: cli_sample.sh [EMULATOR...] TOOL
# KELQAVI_CLI_NATIVE=1 in the environment: the tool runs natively, so the
# locale and terminal checks apply too.
set -u
. "$(dirname "$0")/lib.sh"
native=${KELQAVI_CLI_NATIVE:-0}

# --- The table -------------------------------------------------------------
LC_ALL=C kq riff
expect_status 0 "riff without FILE"
check "the first line says it is the built-in sample" sh -c "head -n 1 '$work/out' | grep -q '^Built-in sample'"
check "no colour codes when stdout is not a terminal" sh -c "! grep -q \$(printf '\\033') '$work/out'"
check "a header row names the columns" has '^OFFSET  *SIZE  *CHUNK  *NOTES$'
check "nothing on stderr" [ ! -s "$work/err" ]

# Each chunk where the writers put it. Row: OFFSET SIZE HUMAN TREE ID...
expect_row() {  # expect_row OFFSET SIZE REGEX
    local row
    row=$(row_at "$1")
    checks=$((checks + 1))
    if ! printf '%s\n' "$row" | grep -E -q "^ *$1 +$2 +.*$3"; then
        fail "row at $1: expected size $2 and /$3/, got: '$row'"
    fi
}
expect_row 0 2144 "2\.1 KiB +RIFF 'AVI ' +AVI file"
expect_row 12 346 "LIST 'hdrl'"
expect_row 24 56 "avih +main header"
expect_row 88 156 "LIST 'strl'"
expect_row 100 56 "strh"
expect_row 164 40 "strf"
expect_row 212 10 "strn"    # nine letters and the zero byte the writer adds, counted in the size
expect_row 230 14 "strd"
expect_row 252 106 "LIST 'strl'"
expect_row 264 56 "strh"
expect_row 328 18 "strf"
expect_row 354 4 "strn"
expect_row 366 1674 "JUNK +filler up to 2048"
expect_row 2048 56 "LIST 'movi' +media data"
expect_row 2060 24 "00dc +video, stream 0"
expect_row 2092 11 "01wb +\+1 pad byte; audio, stream 1"
expect_row 2112 32 "idx1 +index"
check "17 rows of chunks" [ "$(grep -c -E '^ *[0-9]+  ' "$work/out")" -eq 17 ]
check "the summary counts them and finds nothing wrong" \
    has '^17 chunks (5 lists) in 1 RIFF form, 4 levels deep, 1.6 KiB of JUNK. No problems found.$'
# The JUNK chunk ends exactly on the 2048-byte boundary where the data starts.
junk_end=$(awk '$5 == "JUNK" || $6 == "JUNK" { print $1 + 8 + $2 }' "$work/out")
check "JUNK ends at 2048 (got '$junk_end')" [ "$junk_end" = 2048 ]
# Plain ASCII tree in the C locale.
check "ASCII tree drawing in the C locale" sh -c "row_line=\$(grep -E '^ *2060  ' '$work/out'); case \"\$row_line\" in *'|  |- 00dc'*) ;; *) exit 1;; esac"
check "ASCII last-branch mark in the C locale" sh -c "grep -E '^ *2112  ' '$work/out' | grep -q '\`- idx1'"
cp "$work/out" "$work/table.txt"

if [ "$native" = 1 ]; then
    LC_ALL=C.UTF-8 kq riff
    check "box-drawing tree in a UTF-8 locale" sh -c "grep -E '^ *2092  ' '$work/out' | grep -q '│  └─ 01wb'"
    check "the same rows apart from the drawing" sh -c "sed 's/│/|/g; s/├─/|-/g; s/└─/\`-/g' '$work/out' | cmp -s - '$work/table.txt'"
fi

# --- JSON --------------------------------------------------------------------
kq riff --json
expect_status 0 "riff --json"
check "JSON parses" json_ok
check "JSON chunks tile their lists and the file" json_tiles
check "JSON says it is the sample" has '^  "sample": true,$'
check "JSON file size" has '^  "file_size": 2152,$'
check "JSON: the RIFF form" has '{"offset": 0, "kind": "list", "id": "RIFF", "list_type": "AVI ", "size": 2144, "pad": "none", "status": "ok", "children": \[$'
check "JSON: movi data at 2048 + 12" has '{"offset": 2060, "kind": "chunk", "id": "00dc", "size": 24, "pad": "none", "status": "ok"}'
check "JSON: the odd chunk's pad byte" has '{"offset": 2092, "kind": "chunk", "id": "01wb", "size": 11, "pad": "present", "status": "ok"}'
check "JSON: 17 chunks, 5 of them lists" [ "$(count '"offset"')" -eq 17 ] && [ "$(count '"kind": "list"')" -eq 5 ]
check "JSON summary" has '"summary": {"chunks": 17, "lists": 5, "riff_forms": 1, "levels": 4, "problems": 0}'
# The table and the JSON agree on every offset, in the same order.
table_offsets=$(grep -E '^ *[0-9]+  ' "$work/table.txt" | awk '{print $1}' | tr '\n' ' ')
json_offsets=$(grep -o '"offset": [0-9]*' "$work/out" | awk '{print $2}' | tr '\n' ' ')
check "table and JSON list the same offsets" [ "$table_offsets" = "$json_offsets" ]

# --- --depth -------------------------------------------------------------------
LC_ALL=C kq riff --depth 1
expect_status 0 "--depth 1"
check "--depth 1: one row" [ "$(grep -c -E '^ *[0-9]+  ' "$work/out")" -eq 1 ]
check "--depth 1: says the contents are not shown" sh -c "row_at() { grep -E \"^ *\$1  \" '$work/out'; }; row_at 0 | grep -q 'contents not shown (--depth 1)'"
LC_ALL=C kq riff --depth=2
expect_status 0 "--depth=2"
check "--depth 2: RIFF, hdrl, JUNK, movi and idx1" [ "$(grep -E '^ *[0-9]+  ' "$work/out" | awk '{print $1}' | tr '\n' ' ')" = "0 12 366 2048 2112 " ]
kq riff --json --depth 2
check "--json --depth 2 parses" json_ok
check "--json --depth 2: hdrl not entered" has '"list_type": "hdrl".*"entered": false}'
check "--json --depth 2: no avih" has_not '"avih"'
kq riff --depth 1000
expect_status 0 "--depth above the nesting limit"
check "--depth 1000 shows the whole tree" [ "$(grep -c -E '^ *[0-9]+  ' "$work/out")" -eq 17 ]

# --- The sample saved, then read back as a file -------------------------------
LC_ALL=C kq riff --save-sample "$work/sample.avi"
expect_status 0 "--save-sample"
check "--save-sample writes 2152 bytes" [ "$(wc -c < "$work/sample.avi")" -eq 2152 ]
check "--save-sample still shows the sample's tree" cmp -s "$work/out" "$work/table.txt"
LC_ALL=C kq riff "$work/sample.avi"
expect_status 0 "riff on the saved sample"
check "the saved file's first line names it" sh -c "head -n 1 '$work/out' | grep -q -F '$work/sample.avi: 2152 bytes (2.1 KiB)'"
tail -n +2 "$work/table.txt" > "$work/table_rest.txt"
check "the saved file has the same tree as the built-in one" sh -c "tail -n +2 '$work/out' | cmp -s - '$work/table_rest.txt'"
kq riff --save-sample "$work/no/such/dir/x.avi"
expect_status 1 "--save-sample into a missing folder"
check "--save-sample failure: one line" err_one_line

# --- On a terminal (natively, where script(1) can give the tool one) ---------
if [ "$native" = 1 ] && command -v script > /dev/null 2>&1; then
    cmdline=$(printf '%q ' "${tool[@]}")
    TERM=xterm script -qec "$cmdline riff" /dev/null > "$work/tty.txt" 2>&1
    check "colour on a terminal" grep -q "$(printf '\033')\[1;34mRIFF" "$work/tty.txt"
    NO_COLOR=1 TERM=xterm script -qec "$cmdline riff" /dev/null > "$work/tty.txt" 2>&1
    check "NO_COLOR turns colour off" sh -c "! grep -q \$(printf '\\033') '$work/tty.txt'"

    # A long walk: 16384 empty chunks. The bar shows on a terminal stderr
    # only, and never touches stdout.
    printf '00dc\0\0\0\0' > "$work/one"
    for _ in $(seq 14); do cat "$work/one" "$work/one" > "$work/two"; mv "$work/two" "$work/one"; done
    { printf 'RIFF'; le32 $((4 + 16384 * 8)); printf 'AVI '; cat "$work/one"; } > "$work/long.avi"
    kq riff "$work/long.avi"
    expect_status 0 "riff on 16384 chunks"
    check "no progress bar when stderr is not a terminal" [ ! -s "$work/err" ]
    cp "$work/out" "$work/long.txt"
    TERM=xterm script -qec "$cmdline riff '$work/long.avi' > '$work/long_tty.txt'" /dev/null > "$work/tty.txt" 2>&1
    check "a progress bar on a terminal stderr" grep -q 'kelqavi: reading .*long.avi \[#*\.*\] .*chunks' "$work/tty.txt"
    check "the bar is erased at the end" sh -c "tail -c 4 '$work/tty.txt' | grep -q \"\$(printf '\\033')\\[K\""
    check "stdout is the same with the bar on stderr" cmp -s "$work/long.txt" "$work/long_tty.txt"
fi

finish
