#!/bin/bash
# Damaged and hostile files: truncated copies of the sample, chunks that
# overrun their list, lists that overrun theirs, unpatched placeholder sizes,
# leftover bytes, deep nesting, odd ids and pad bytes; and files that are no
# RIFF at all. A tree with faults exits 3, a file that cannot be used exits 1.
# Usage: cli_damaged.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"
export LC_ALL=C

# damaged FILE STATUS: riff and riff --json on FILE both exit STATUS; then
# rows "OFFSET | NOTE | JSON" from stdin check both outputs: the text row at
# OFFSET holds NOTE ('!NOTE': lacks it, empty: not checked) and the JSON
# chunk at OFFSET matches the regex JSON. OFFSET '*' matches NOTE as a regex
# against the whole text output and JSON against the whole JSON output.
damaged() {
    local what off note json
    what=$(basename "$1")
    kq riff "$1"
    expect_status "$2" "riff on $what"
    cp "$work/out" "$work/text"
    kq riff --json "$1"
    expect_status "$2" "riff --json on $what"
    check "$what: JSON parses" json_ok
    while IFS='|' read -r off note json; do
        off=${off// /} note=${note# } note=${note% } json=${json# }
        if [ "$off" = '*' ]; then
            [ -z "$note" ] || check "$what: text matches /$note/" grep -q -E -e "$note" "$work/text"
            [ -z "$json" ] || check "$what: JSON matches /$json/" has "$json"
            continue
        fi
        checks=$((checks + 1))
        local row
        row=$(grep -E "^ *$off  " "$work/text" | head -n 1)
        case "$note" in
        '') ;;
        '!'*) ! grep -q -F -e "${note#!}" <<< "$row" || fail "$what: row at $off has '${note#!}': '$row'" ;;
        *) grep -q -F -e "$note" <<< "$row" || fail "$what: row at $off lacks '$note': '$row'" ;;
        esac
        [ -z "$json" ] || grep -F "{\"offset\": $off, " "$work/out" | grep -q -E -e "$json" ||
            fail "$what: no JSON chunk at $off matches /$json/"
    done
}

# A small AVI laid out chunk by chunk: a video and an audio stream, one
# chunk each, the second of odd size.
cp "$(dirname "$0")/data/small.avi" "$work/sample.avi"

# --- The sample cut short ------------------------------------------------------
# Inside the last data chunk: the form, movi and 01wb run past the end.
head -c 2100 "$work/sample.avi" > "$work/cut.avi"
damaged "$work/cut.avi" 3 <<'EOF'
0    | runs 52 B past the end of the file | "kind": "list", "id": "RIFF", "list_type": "AVI ", "size": 2144, "pad": "none", "status": "past_eof", "overrun": 52,
2048 | runs 12 B past the end of the file | "status": "past_eof", "overrun": 12,
2092 | runs 11 B past the end of the file | "id": "01wb", "size": 11, "pad": "missing", "status": "past_eof", "overrun": 11,
12   | !runs |
2060 | !runs | "size": 24, "pad": "none", "status": "ok"}
*    | ^16 chunks \(5 lists\) in 1 RIFF form, 4 levels deep, 1.6 KiB of JUNK. 3 problems: 3 chunks past the end of the file.$ | "problems": 3}
EOF

# Inside a chunk header: four bytes of the 01wb header are left.
head -c 2096 "$work/sample.avi" > "$work/cut.avi"
damaged "$work/cut.avi" 3 <<'EOF'
2092 | chunk header cut off by the end of the file (4 bytes of 8) | "kind": "bytes", "id": null, "size": 4, "pad": "none", "status": "past_eof", "overrun": 4,
EOF

# Just before the last pad byte: 01wb is whole and ok, only its pad byte is
# gone; movi and the form lack that one byte.
head -c 2111 "$work/sample.avi" > "$work/cut.avi"
damaged "$work/cut.avi" 3 <<'EOF'
2092 | pad byte missing at the end of the file | "pad": "missing", "status": "ok"
2092 | !runs |
2048 | runs 1 B past the end of the file |
EOF

# --- A chunk that overruns its list ------------------------------------------
# RIFF 'TEST' { LIST 'outr' { aaaa (10), bbbb claiming 100 with 20 there }, cccc (4) }
riff_file "$work/overrun.avi" "lst('TEST', lst('outr', chunk('aaaa', b'0123456789'), b'bbbb' + le(100) + b'0' * 20),
                                   chunk('cccc', b'wxyz'), fourcc='RIFF')"
damaged "$work/overrun.avi" 3 <<'EOF'
42 | runs 80 B past the end of LIST 'outr' at 12 | "kind": "chunk", "id": "bbbb", "size": 100, "pad": "none", "status": "past_parent", "overrun": 80,
70 | `- cccc | ^      \{"offset": 70, "kind": "chunk", "id": "cccc", "size": 4, "pad": "none", "status": "ok"\}$
70 | !runs |
EOF

# --- A list that overruns its parent: walked only within the parent ----------
# RIFF 'TEST' (40) { LIST 'innr' claiming 1000 { aaaa (4), bbbb (4) } }, then
# a top-level chunk 'tail', which must not be taken for part of 'innr'.
riff_file "$work/listover.avi" "b'RIFF' + le(40) + b'TEST' + b'LIST' + le(1000) + b'innr' + chunk('aaaa', b'1234')
                                + chunk('bbbb', b'5678') + chunk('tail', b'ok')"
damaged "$work/listover.avi" 3 <<'EOF'
12 | runs 972 B past the end of RIFF 'TEST' at 0 |
24 | !runs |
36 | !runs | ^        \{"offset": 36, "kind": "chunk", "id": "bbbb", "size": 4, "pad": "none", "status": "ok"\}$
48 | | ^    \{"offset": 48, "kind": "chunk", "id": "tail", "size": 2, "pad": "none", "status": "ok"\}$
*  | ^ *48 +2 +2 B +tail$ |
EOF

# The same, with a chunk inside 'innr' that crosses the end of the form: the
# end it passes is the form's, since 'innr' itself has no end in the file.
riff_file "$work/listover.avi" "b'RIFF' + le(40) + b'TEST' + b'LIST' + le(1000) + b'innr' + chunk('aaaa', b'1234')
                                + b'cccc' + le(10) + b'abcd' + chunk('tail', b'ok')"
damaged "$work/listover.avi" 3 <<'EOF'
36 | runs 6 B past the end of RIFF 'TEST' at 0 | "id": "cccc", "size": 10, "pad": "none", "status": "past_parent", "overrun": 6, "notes": \["runs 6 B past the end of RIFF .TEST. at 0"\]\}
48 | | ^    \{"offset": 48, "kind": "chunk", "id": "tail",
EOF

# --- An unfinished recording: placeholder sizes, last chunk cut --------------
riff_file "$work/recording.avi" "b'RIFF' + le(0xFFFFFFFF) + b'AVI ' + lst('hdrl', chunk('avih', bytes(56)))
                                 + b'LIST' + le(0xFFFFFFFF) + b'movi' + chunk('00dc', b'0' * 30) + chunk('01wb', b'1234567')
                                 + b'00dc' + le(500) + b'0' * 20"
damaged "$work/recording.avi" 3 <<'EOF'
0   | size is the unpatched placeholder 0xFFFFFFFF |
0   | runs 4.0 GiB past the end of the file |
88  | size is the unpatched placeholder 0xFFFFFFFF | "kind": "list", "id": "LIST", "list_type": "movi", "size": 4294967295, "pad": "missing", "status": "past_eof", "overrun": 4294967209,.*"children": \[$
100 | 00dc |
138 | +1 pad byte |
154 | runs 480 B past the end of the file | "size": 500, "pad": "none", "status": "past_eof", "overrun": 480,
EOF

# --- Two forms, then bytes too few for a chunk header -------------------------
riff_file "$work/forms.avi" "lst('AVI ', chunk('JUNK', b'Kelq K'), fourcc='RIFF')
                             + lst('AVIX', lst('movi', chunk('00dc', b'xyz')), fourcc='RIFF') + b'\1\2\3'"
damaged "$work/forms.avi" 3 <<'EOF'
26 | RIFF 'AVIX' |
50 | +1 pad byte; video, stream 0 |
62 | 3 bytes after the last chunk: too few for a chunk header | ^    \{"offset": 62, "kind": "bytes", "id": null, "size": 3, "pad": "none", "status": "short",
*  | ^ *26 +28 +28 B +RIFF .AVIX. | "riff_forms": 2,
*  | ^5 chunks \(3 lists\) in 2 RIFF forms, 3 levels deep, 6 B of JUNK. 1 problem: 1 stretch of leftover bytes.$ |
EOF

# --- Nesting a hundred lists deep ---------------------------------------------
# RIFF 'DEEP' { LIST 'n100' { LIST 'n099' { ... LIST 'n001' { leaf } ... } } }
riff_file "$work/deep.avi" "lst('DEEP', functools.reduce(lambda inner, i: lst('n%03d' % i, inner), range(1, 101),
                                                      chunk('leaf', b'1')), fourcc='RIFF')"
damaged "$work/deep.avi" 0 <<'EOF'
756 | nested deeper than 64 levels: not entered |
*   | | "levels": 64,
EOF
check "nesting stops at 64 levels" [ "$(grep -c -E '^ *[0-9]+  ' "$work/text")" -eq 64 ]

# --- Odd ids, a list too small for its type, a JUNK chunk without pad byte ----
# RIFF 'ODD ' { LIST of size 2, an id of binary bytes, JUNK of 5 bytes written
# without its pad byte (so 'abcd' starts one byte early), abcd }.
riff_file "$work/odd.avi" "b'RIFF' + le(45) + b'ODD ' + b'LIST' + le(2) + b'xy' + b'\0\1\xff\x7f' + le(0)
                           + b'JUNK' + le(5) + b'Kelq ' + chunk('abcd', b'12')"
damaged "$work/odd.avi" 3 <<'EOF'
12 | too small to hold a list type | "kind": "chunk", "id": "LIST", "size": 2,
22 | \x00\x01\xFF\x7F | "kind": "chunk", "id": "\\u0000\\u0001\\u00ff\\u007f", "size": 0,
30 | +1 pad byte, 0x61 instead of zero |
30 | 'abcd' starts right after the data: pad byte left out? |
0  | pad byte missing at the end of the file |
44 | runs  |
EOF

# Just the four letters: a RIFF file with no room for a chunk header.
printf 'RIFF' > "$work/four.avi"
damaged "$work/four.avi" 3 <<'EOF'
0 | 4 bytes, the whole file: too few for a chunk header |
EOF

finish
