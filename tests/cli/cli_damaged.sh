#!/bin/bash
# Damaged and hostile files: truncated copies of the sample, chunks that
# overrun their list, lists that overrun theirs, unpatched placeholder sizes,
# leftover bytes, deep nesting, odd ids and pad bytes; and files that are no
# RIFF at all. A tree with faults exits 3, a file that cannot be used exits 1.
# Usage: cli_damaged.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"
export LC_ALL=C

note_at() {  # note_at OFFSET TEXT: the row at OFFSET holds TEXT
    checks=$((checks + 1))
    row_at "$1" | grep -q -F -e "$2" || fail "row at $1 lacks '$2': '$(row_at "$1")'"
}
no_note_at() {  # no_note_at OFFSET TEXT
    checks=$((checks + 1))
    ! row_at "$1" | grep -q -F -e "$2" || fail "row at $1 has '$2': '$(row_at "$1")'"
}
json_line() {  # json_line REGEX: a chunk line of the JSON output matches
    checks=$((checks + 1))
    has "$1" || fail "no JSON line matches /$1/"
}

# A small AVI laid out chunk by chunk: a video and an audio stream, one
# chunk each, the second of odd size.
cp "$(dirname "$0")/data/small.avi" "$work/sample.avi"

# --- The sample cut short ------------------------------------------------------
# Inside the last data chunk: the form, movi and 01wb run past the end.
head -c 2100 "$work/sample.avi" > "$work/cut.avi"
kq riff "$work/cut.avi"
expect_status 3 "sample cut at 2100"
note_at 0 "runs 52 B past the end of the file"
note_at 2048 "runs 12 B past the end of the file"
note_at 2092 "runs 11 B past the end of the file"
no_note_at 12 "runs"
no_note_at 2060 "runs"
check "cut at 2100: summary" has '^16 chunks (5 lists) in 1 RIFF form, 4 levels deep, 1.6 KiB of JUNK. 3 problems: 3 chunks past the end of the file.$'
kq riff --json "$work/cut.avi"
expect_status 3 "sample cut at 2100, --json"
check "cut at 2100: JSON parses" json_ok
json_line '"offset": 0, "kind": "list", "id": "RIFF", "list_type": "AVI ", "size": 2144, "pad": "none", "status": "past_eof", "overrun": 52,'
json_line '"offset": 2048, .*"status": "past_eof", "overrun": 12,'
json_line '"offset": 2060, .*"size": 24, "pad": "none", "status": "ok"}'
json_line '"offset": 2092, .*"id": "01wb", "size": 11, "pad": "missing", "status": "past_eof", "overrun": 11,'
check "cut at 2100: three past_eof" [ "$(count '"status": "past_eof"')" -eq 3 ]
check "cut at 2100: JSON summary" has '"problems": 3}'

# Inside a chunk header: four bytes of the 01wb header are left.
head -c 2096 "$work/sample.avi" > "$work/cut.avi"
kq riff "$work/cut.avi"
expect_status 3 "sample cut at 2096"
note_at 2092 "(4 bytes)"
note_at 2092 "chunk header cut off by the end of the file (4 bytes of 8)"
kq riff --json "$work/cut.avi"
check "cut at 2096: JSON parses" json_ok
json_line '{"offset": 2092, "kind": "bytes", "id": null, "size": 4, "pad": "none", "status": "past_eof", "overrun": 4,'

# Inside the movi list header, two bytes into it.
head -c 2050 "$work/sample.avi" > "$work/cut.avi"
kq riff --json "$work/cut.avi"
expect_status 3 "sample cut at 2050"
check "cut at 2050: JSON parses" json_ok
json_line '{"offset": 2048, "kind": "bytes", "id": null, "size": 2, "pad": "none", "status": "past_eof", "overrun": 6,'

# Just before the last pad byte: 01wb is whole and ok, only its pad byte is
# gone; movi and the form lack that one byte.
head -c 2111 "$work/sample.avi" > "$work/cut.avi"
kq riff "$work/cut.avi"
expect_status 3 "sample cut at 2111"
note_at 2092 "pad byte missing at the end of the file"
no_note_at 2092 "runs"
note_at 2048 "runs 1 B past the end of the file"
kq riff --json "$work/cut.avi"
json_line '"offset": 2092, .*"pad": "missing", "status": "ok"'

# --- A chunk that overruns its list ------------------------------------------
# RIFF 'TEST' { LIST 'outr' { aaaa (10), bbbb claiming 100 with 20 there }, cccc (4) }
{
    printf 'RIFF'; le32 74; printf 'TEST'
    printf 'LIST'; le32 50; printf 'outr'
    chunk aaaa 0123456789
    printf 'bbbb'; le32 100; printf '%020d' 0
    chunk cccc wxyz
} > "$work/overrun.avi"
kq riff "$work/overrun.avi"
expect_status 3 "chunk overrunning its list"
note_at 42 "runs 80 B past the end of LIST 'outr' at 12"
note_at 70 "cccc"
no_note_at 70 "runs"
note_at 70 '`- cccc'   # back in the form, its last chunk
kq riff --json "$work/overrun.avi"
check "overrun: JSON parses" json_ok
json_line '"offset": 42, "kind": "chunk", "id": "bbbb", "size": 100, "pad": "none", "status": "past_parent", "overrun": 80,'
json_line '^      {"offset": 70, "kind": "chunk", "id": "cccc", "size": 4, "pad": "none", "status": "ok"}$'

# --- A list that overruns its parent: walked only within the parent ----------
# RIFF 'TEST' (40) { LIST 'innr' claiming 1000 { aaaa (4), bbbb (4) } }, then
# a top-level chunk 'tail', which must not be taken for part of 'innr'.
{
    printf 'RIFF'; le32 40; printf 'TEST'
    printf 'LIST'; le32 1000; printf 'innr'
    chunk aaaa 1234
    chunk bbbb 5678
    chunk tail ok
} > "$work/listover.avi"
kq riff "$work/listover.avi"
expect_status 3 "list overrunning its parent"
note_at 12 "runs 972 B past the end of RIFF 'TEST' at 0"
no_note_at 24 "runs"
no_note_at 36 "runs"
check "tail stays at the top level" sh -c "grep -q -E '^ *48 +2 +2 B +tail\$' '$work/out'"
kq riff --json "$work/listover.avi"
check "list overrun: JSON parses" json_ok
json_line '^        {"offset": 36, "kind": "chunk", "id": "bbbb", "size": 4, "pad": "none", "status": "ok"}$'
json_line '^    {"offset": 48, "kind": "chunk", "id": "tail", "size": 2, "pad": "none", "status": "ok"}$'

# The same, with a chunk inside 'innr' that crosses the end of the form: the
# end it passes is the form's, since 'innr' itself has no end in the file.
{
    printf 'RIFF'; le32 40; printf 'TEST'
    printf 'LIST'; le32 1000; printf 'innr'
    chunk aaaa 1234
    printf 'cccc'; le32 10; printf 'abcd'
    chunk tail ok
} > "$work/listover.avi"
kq riff --json "$work/listover.avi"
expect_status 3 "chunk crossing the end of its grandparent"
check "grandparent overrun: JSON parses" json_ok
json_line '"offset": 36, "kind": "chunk", "id": "cccc", "size": 10, "pad": "none", "status": "past_parent", "overrun": 6, "notes": \["runs 6 B past the end of RIFF .TEST. at 0"\]}'
json_line '^    {"offset": 48, "kind": "chunk", "id": "tail",'

# --- An unfinished recording: placeholder sizes, last chunk cut --------------
{
    printf 'RIFF'; le32 4294967295; printf 'AVI '
    printf 'LIST'; le32 68; printf 'hdrl'
    printf 'avih'; le32 56; head -c 56 /dev/zero
    printf 'LIST'; le32 4294967295; printf 'movi'
    chunk 00dc "$(printf '%030d' 0)"
    chunk 01wb 1234567
    printf '00dc'; le32 500; printf '%020d' 0
} > "$work/recording.avi"
kq riff "$work/recording.avi"
expect_status 3 "unfinished recording"
note_at 0 "size is the unpatched placeholder 0xFFFFFFFF"
note_at 0 "runs 4.0 GiB past the end of the file"
note_at 88 "size is the unpatched placeholder 0xFFFFFFFF"
note_at 100 "00dc"
note_at 138 "+1 pad byte"
note_at 154 "runs 480 B past the end of the file"
kq riff --json "$work/recording.avi"
check "recording: JSON parses" json_ok
json_line '"offset": 88, "kind": "list", "id": "LIST", "list_type": "movi", "size": 4294967295, "pad": "missing", "status": "past_eof", "overrun": 4294967209,.*"children": \[$'
json_line '"offset": 154, .*"size": 500, "pad": "none", "status": "past_eof", "overrun": 480,'
head -c 160 "$work/recording.avi" > "$work/cut.avi"
kq riff "$work/cut.avi"
expect_status 3 "recording cut in a chunk header"
note_at 154 "chunk header cut off by the end of the file (6 bytes of 8)"

# --- Two forms, then bytes too few for a chunk header -------------------------
{
    printf 'RIFF'; le32 18; printf 'AVI '
    chunk JUNK 'Kelq K'
    printf 'RIFF'; le32 28; printf 'AVIX'
    printf 'LIST'; le32 16; printf 'movi'
    chunk 00dc xyz
    printf '\1\2\3'
} > "$work/forms.avi"
kq riff "$work/forms.avi"
expect_status 3 "two forms and trailing bytes"
note_at 26 "RIFF 'AVIX'"
check "AVIX at the top level" sh -c "grep -q -E '^ *26 +28 +28 B +RIFF .AVIX.' '$work/out'"
note_at 50 "+1 pad byte; video, stream 0"
note_at 62 "3 bytes after the last chunk: too few for a chunk header"
check "forms: summary" has '^5 chunks (3 lists) in 2 RIFF forms, 3 levels deep, 6 B of JUNK. 1 problem: 1 stretch of leftover bytes.$'
kq riff --json "$work/forms.avi"
check "forms: JSON parses" json_ok
json_line '^    {"offset": 62, "kind": "bytes", "id": null, "size": 3, "pad": "none", "status": "short",'
check "forms: two RIFF forms in the JSON summary" has '"riff_forms": 2,'

# --- Nesting a hundred lists deep ---------------------------------------------
chunk leaf 1 > "$work/body"
for i in $(seq 100); do
    size=$(($(wc -c < "$work/body") + 4))
    { printf 'LIST'; le32 $size; printf 'n%03d' "$i"; cat "$work/body"; } > "$work/next"
    mv "$work/next" "$work/body"
done
{ printf 'RIFF'; le32 $(($(wc -c < "$work/body") + 4)); printf 'DEEP'; cat "$work/body"; } > "$work/deep.avi"
kq riff "$work/deep.avi"
expect_status 0 "100 nested lists"
check "nesting stops at 64 levels" [ "$(grep -c -E '^ *[0-9]+  ' "$work/out")" -eq 64 ]
note_at 756 "nested deeper than 64 levels: not entered"
kq riff --json "$work/deep.avi"
check "deep: JSON parses" json_ok
check "deep: 64 levels in the JSON" has '"levels": 64,'

# --- Odd ids, a list too small for its type, a JUNK chunk without pad byte ----
# RIFF 'ODD ' { LIST of size 2, an id of binary bytes, JUNK of 5 bytes written
# without its pad byte (so 'abcd' starts one byte early), abcd }.
{
    printf 'RIFF'; le32 45; printf 'ODD '
    printf 'LIST'; le32 2; printf 'xy'
    printf '\0\1\377\177'; le32 0
    printf 'JUNK'; le32 5; printf 'Kelq '
    chunk abcd 12
} > "$work/odd.avi"
kq riff "$work/odd.avi"
expect_status 3 "odd ids and sizes"
note_at 12 "too small to hold a list type"
note_at 22 '\x00\x01\xFF\x7F'
note_at 30 "+1 pad byte, 0x61 instead of zero"
note_at 30 "'abcd' starts right after the data: pad byte left out?"
note_at 0 "pad byte missing at the end of the file"
note_at 44 "runs "
kq riff --json "$work/odd.avi"
check "odd: JSON parses" json_ok
json_line '"offset": 22, "kind": "chunk", "id": "\\u0000\\u0001\\u00ff\\u007f", "size": 0,'
json_line '"offset": 12, "kind": "chunk", "id": "LIST", "size": 2,'

# Just the four letters: a RIFF file with no room for a chunk header.
printf 'RIFF' > "$work/four.avi"
kq riff "$work/four.avi"
expect_status 3 "a file of just 'RIFF'"
note_at 0 "4 bytes, the whole file: too few for a chunk header"

finish
