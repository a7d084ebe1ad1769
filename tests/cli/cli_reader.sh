#!/bin/bash
# The info and chunks commands, which read through the library's reader: the
# built-in sample as the reader sees it, small hand-made files for the walk's
# rules (resync over a "LIST rec " group, a chunk larger than the first
# buffer, JUNK, empty and odd-sized chunks, type-first ids), damaged files,
# files the reader refuses with the reason, and usage errors.
# Usage: cli_reader.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"
export LC_ALL=C

# Records of the chunks --json output, in segment 0.
records() { count '"segment": 0, "offset": [0-9]*, "id": "[^"]*", "type"'; }

# --- The hand-made files, all written at once -----------------------------------
# Every file but kinds and long has one video stream (a 40-byte bitmap header,
# or 1064 bytes for palette), whose 'movi' data begins at 224.
python3 -c "$riff_py$(cat <<'EOF'
avih = lambda streams: chunk('avih', le(40000, 0, 0, 16, 1, 0, streams, 0, 32, 24) + bytes(16))
def strh(kind, handler):
    return chunk('strh', (kind + handler).encode() + le(0) + bytes(4) + le(0, 1, 25, 0, 1, 0, 0xFFFFFFFF, 0) + bytes(8))
def strf_video(size):  # a bitmap header, then size - 40 bytes of palette
    return chunk('strf', le(40, 32, 24) + struct.pack('<HH', 1, 8) + b'RGB ' + le(768) + bytes(size - 24))
def header(strf=40, extra=b''):
    return lst('hdrl', avih(1), lst('strl', strh('vids', 'TEST'), strf_video(strf), extra))
def avi(movi, strf=40, extra=b''):
    return lst('AVI ', header(strf, extra), lst('movi', movi), fourcc='RIFF')
def text_stream(name):  # format values stored in the order 1, 2, 4, 3
    return lst('strl', strh('txts', '    '), chunk('strf', struct.pack('<4H', 1, 2, 4, 3)), chunk('strn', name.encode()))
frame = chunk('00dc', b'aaaa')
swapped = avi(chunk('dc00', b'a' * 8) + chunk('wb01', b'b' * 4))
files = {
    # A video stream, a text caption and a chapter (told apart by their
    # names), and a "mids" stream the reader does not classify.
    'kinds': lst('AVI ', lst('hdrl', avih(4), lst('strl', strh('vids', 'TEST'), strf_video(40)),
                              text_stream('Subtitle (English)'), text_stream('Chapter list'),
                              lst('strl', strh('mids', '    '))), lst('movi', frame), fourcc='RIFF'),
    # 00dc (4 bytes), a "LIST rec " group holding 01wb (3 bytes), JUNK (6), 00dc
    # of 70000 bytes (more than the first buffer), an empty 00dc, and 01wb (2).
    'rules': avi(frame + lst('rec ', chunk('01wb', b'bbb')) + chunk('JUNK', b'j' * 6) + chunk('00dc', b'c' * 70000)
                 + chunk('00dc') + chunk('01wb', b'dd')),
    'swapped': swapped,
    'mrif': b'MRIF' + swapped[4:],
    'cut': avi(frame + chunk('01wb', b'b' * 100))[:224 + 12 + 8 + 10],  # 10 of the 100 bytes there
    'back': avi(frame + b'01wb' + le(0xFFFFFFF8) + bytes(16)),
    'palette': avi(frame, strf=1064),
    'nomovi': lst('AVI ', header(), fourcc='RIFF'),
    'emptymovi': lst('AVI ', header(), lst('movi'), fourcc='RIFF'),
    'emptychunk': avi(chunk('00dc')),
    'bigindx': avi(frame, extra=b'indx' + le(4000000) + struct.pack('<HH', 4, 0) + le(0) + b'00dc' + bytes(12)),
    'wave': lst('WAVE', header(), fourcc='RIFF'),
    'long': lst('AVI ', lst('movi', chunk('00dc') * 32768), fourcc='RIFF'),
}
for name, data in files.items():
    open('%s/%s.avi' % (sys.argv[1], name), 'wb').write(data)
EOF
)" "$work"

# --- A small hand-laid AVI, as the reader sees it -----------------------------
# A small AVI laid out chunk by chunk: a video and an audio stream, one
# chunk each, the second of odd size.
cp "$(dirname "$0")/data/small.avi" "$work/sample.avi"

kq info "$work/sample.avi"
expect_status 0 "info on the sample"
check "info: the first line" has "^$work/sample.avi: 2152 bytes (2.1 KiB), 2 streams, 1 RIFF segment$"
check "info: frame period" has '^  frame period  *200000 us (5 fps)$'
check "info: flags" has '^  flags  *0x00000110: has index, interleaved$'
check "info: stream 0 is video" has '^Stream 0: video$'
check "info: its codec" has "^  codec  *handler 'MJPG', compression 'MJPG'$"
check "info: its frame size" has '^  frame size  *64 x 48$'
check "info: its name" has '^  name  *"Test card"$'
check "info: the strd block that follows the name is not the reader's" \
    has '^  strd block  *none taken by the reader: the list holds one of 6 bytes, but not right after the format'
check "info: stream 1 is audio" has '^Stream 1: audio$'
check "info: 8-bit PCM at 8000 Hz" has '^  format tag  *0x0001 (PCM)$'
check "info: its rate" has '^  rate / scale  *8000 / 1 = 8000 blocks/s$'
check "info: the segment" has "^  0       0  'AVI '  2144  at 2048, 56 bytes$"
check "info: idx1" has '^  idx1  *2 entries at 2112 (stream 0: 1, stream 1: 1)$'
check "info: nothing on stderr" [ ! -s "$work/err" ]
# A file that needs no tolerance says so, except with --strict.
for command in info chunks keys; do
    kq "$command" "$work/sample.avi"
    check "$command: 'tolerated: none'" has '^tolerated: none$'
    kq "$command" --json "$work/sample.avi"
    check "$command --json: an empty tolerated list" has '"tolerated": \[\],'
    kq "$command" --strict "$work/sample.avi"
    check "$command --strict: no tolerated line" sh -c "! grep -q '^tolerated' '$work/out'"
    kq "$command" --strict --json "$work/sample.avi"
    check "$command --strict --json: tolerated is null" has '"tolerated": null,'
done

kq info --json "$work/sample.avi"
expect_status 0 "info --json on the sample"
check "info --json parses" json_ok
check "info --json: segment 0" has '{"number": 0, "offset": 0, "id": "RIFF", "form_type": "AVI ", "size": 2144, "menu_form": false, "movi_offset": 2048, "movi_size": 56}'
check "info --json: idx1 per stream" has '"per_stream": \[{"stream": 0, "entries": 1}, {"stream": 1, "entries": 1}\],'

for mode in "" --headers; do
    # shellcheck disable=SC2086
    kq chunks --json $mode "$work/sample.avi"
    expect_status 0 "chunks --json $mode on the sample"
    check "chunks --json $mode parses" json_ok
    check "chunks $mode: the frame" has '{"segment": 0, "offset": 2060, "id": "00dc", "type": "video", "type_code": 3, "stream": 0, "size": 24, "data_offset": 2068'
    check "chunks $mode: the odd audio chunk" has '{"segment": 0, "offset": 2092, "id": "01wb", "type": "audio", "type_code": 1, "stream": 1, "size": 11, "data_offset": 2100'
    check "chunks $mode: the segment walked to its end" has '"records": 2, "end": "end_of_list",'
done
kq chunks "$work/sample.avi"
expect_status 0 "chunks on the sample"
check "chunks: per stream" has '^1            1     11  audio$'
check "chunks: total" has '^total        2     35  35 B$'
check "chunks: no problems" has '^No problems found.$'

# --- Every stream kind ---------------------------------------------------------
kq info "$work/kinds.avi"
expect_status 0 "info on every stream kind"
check "kinds: stream 1 is a text caption" has '^Stream 1: text caption$'
check "kinds: stream 2 is a chapter" has '^Stream 2: chapter$'
check "kinds: format values in memory order" [ "$(count '^  format values  *1, 2, 3, 4$')" -eq 2 ]
check "kinds: the caption's name, read beside the reader" has '^  name  *"Subtitle (English)"$'
check "kinds: stream 3 is unclassified" has '^Stream 3: unclassified$'
check "kinds: its stream type" has "^  stream type  *'mids', handler '    '$"
kq info --json "$work/kinds.avi"
check "kinds --json: the kinds in order" [ "$(grep -o '"kind": "[a-z_]*"' "$work/out" | tr '\n' ' ')" = \
    '"kind": "video" "kind": "text_caption" "kind": "chapter" "kind": "unclassified" ' ]

# --- The walk's rules, on a hand-made file -----------------------------------
# The movi list's data begins at 12 + 12 + 56 + 8 + 12 + 64 + 48 + 12 = 224.
kq chunks --json "$work/rules.avi"
expect_status 0 "chunks on the rules file"
check "rules: 00dc first" has '"offset": 224, "id": "00dc", "type": "video", "type_code": 3, "stream": 0, "size": 4, "data_offset": 232, "read": 4}'
# The resync scan stores the eight bytes after "LIST" (its size and "rec ")
# and the first byte of the 01wb id that ends it.
check "rules: the LIST header is passed by the resync scan, 9 bytes" \
    has '"offset": 236, "id": "LIST", "type": "unrecognised", "type_code": 0, "stream": null, "size": 9, "data_offset": 240, "read": 9}'
check "rules: the chunk inside the group" has '"offset": 248, "id": "01wb", "type": "audio", "type_code": 1, "stream": 1, "size": 3, "data_offset": 256, "read": 3}'
check "rules: JUNK, type 10" has '"offset": 260, "id": "JUNK", "type": "junk", "type_code": 10, "stream": null, "size": 6,'
check "rules: the large chunk read whole after the buffer grew" has '"offset": 274, "id": "00dc", .*"size": 70000, "data_offset": 282, "read": 70000}'
check "rules: the empty chunk" has '"offset": 70282, "id": "00dc", .*"size": 0,'
check "rules: the last chunk" has '"offset": 70290, "id": "01wb", .*"size": 2,'
check "rules: seven records" [ "$(records)" -eq 7 ]
kq chunks --json --headers "$work/rules.avi"
expect_status 0 "chunks --headers on the rules file"
check "rules --headers: the LIST header passed in three four-byte steps" \
    has '"offset": 236, "id": "LIST", "type": "unrecognised", "type_code": 0, "stream": null, "size": 12, "data_offset": 240, "steps": 3}'
check "rules --headers: the large chunk" has '"offset": 274, "id": "00dc", .*"size": 70000, "data_offset": 282}'
check "rules --headers: seven records" [ "$(records)" -eq 7 ]

# Type-first ids: unrecognised unless --swapped-ids. (The sizes keep the
# header walk's four-byte steps off "wb" at the third and fourth byte of a
# step, which would make it an audio id whatever the first two are.)
kq chunks --json --headers "$work/swapped.avi"
expect_status 0 "chunks --headers on type-first ids"
# The walk ends where the list's start + size lies, 8 bytes before its true
# end, so the last five steps are all it takes.
check "type-first ids are not data-chunk ids by default" \
    has '"offset": 224, "id": "dc00", "type": "unrecognised", "type_code": 0, "stream": null, "size": 20, "data_offset": 228, "steps": 5}'
kq chunks --json --swapped-ids "$work/swapped.avi"
expect_status 0 "chunks --swapped-ids"
check "--swapped-ids: dc00 is video of stream 0" has '"id": "dc00", "type": "video", "type_code": 3, "stream": 0, "size": 8,'
check "--swapped-ids: wb01 is audio of stream 1" has '"id": "wb01", "type": "audio", "type_code": 1, "stream": 1, "size": 4,'

# A first form with the id "MRIF", which the reader takes like "RIFF" but does
# not number as a segment.
kq info --json "$work/mrif.avi"
expect_status 0 "info on an MRIF first form"
check "MRIF first form: no segment counted" has '"segment_count": 0,'
kq chunks --json --headers --swapped-ids "$work/mrif.avi"
expect_status 0 "chunks on an MRIF first form"
check "MRIF first form: walked, not numbered" has '{"segment": -1, "offset": 0, "id": "MRIF", "form_type": "AVI ",'
check "MRIF first form: its chunks" has '"segment": -1, "offset": 224, "id": "dc00", "type": "video",'

# --- Damaged files ---------------------------------------------------------------
# A chunk whose data the file cuts short.
kq chunks --json "$work/cut.avi"
expect_status 3 "chunks on a cut chunk"
check "cut: 10 of 100 bytes read" has '"id": "01wb", .*"size": 100, "data_offset": 244, "read": 10, "cut_short": true}'
check "cut: the list runs past the end of the file" has '"end": "end_of_file",.*"problem": true}'
kq chunks --json --headers "$work/cut.avi"
expect_status 3 "chunks --headers on a cut chunk"
check "cut --headers: past the end of the file" has '"id": "01wb", .*"size": 100, "data_offset": 244, "past_eof": true}'
LC_ALL=C kq chunks "$work/cut.avi"
expect_status 3 "chunks (text) on a cut chunk"
check "cut: the note" has 'cut short by the end of the file: 10 of 100 bytes'

# A size of 0xFFFFFFF8 steps the header walk eight bytes back, onto itself.
kq chunks --json --headers "$work/back.avi"
expect_status 3 "chunks --headers on a size that steps backwards"
check "backwards: marked, and the walk stops" has '"id": "01wb", .*"backwards": true}'
check "backwards: the segment ends there" has '"end": "backwards", "end_offset": 236,'
kq chunks --json "$work/back.avi"
expect_status 3 "chunks on a size past the end of the file"
check "the whole-chunk walk passes it over unread" has '"id": "01wb", .*"size": 4294967288, "data_offset": 244, "read": 0, "past_eof": true}'

# --- Files the reader refuses: one line each, exit 1 ---------------------------
# Refused in both modes unless MODES names one: a tolerance never lets these in.
refused() {  # refused FILE REASON [MODES]
    local command mode
    for mode in ${3:-"--strict" "--json"}; do
        for command in info chunks; do
            kq "$command" $mode "$1"
            expect_status 1 "$command $mode on $(basename "$1")"
            check "$command $mode: nothing on stdout for $(basename "$1")" out_empty
            check "$command $mode: '$2'" err_is "kelqavi: cannot open '$1': $2"
        done
    done
}
refused "$work/palette.avi" "stream 0's video format has 1024 bytes after its 40-byte header (palette or codec data), which this reader does not accept" --strict
# Read without --strict, the palette has no place in the written format: the
# copy is made, and the dropped bytes make it exit 3.
kq remux "$work/palette.avi" "$work/x.avi"
expect_status 3 "remux of a palette it cannot write"
check "the dropped palette is listed as lost" has '^Lost: stream 0 (video): .*1,\?024 bytes of its format past the header not written$'
# The header list ends the file: the reader stops looking for the stream's
# next chunk before it can miss 'movi'.
refused "$work/nomovi.avi" "stream 0's list is cut short by the end of the file"
refused "$work/emptymovi.avi" "its 'movi' list is empty (size 4)"
# One empty chunk: the reader's end test (start + size) is met at once.
refused "$work/emptychunk.avi" "its 'movi' list is empty (size 12)"
# An indx whose size carries the reader past the end of the file: the header
# walks end there, before 'movi'.
refused "$work/bigindx.avi" "its first RIFF form has no 'movi' list the reader reaches: 'hdrl' at 12 carries its walk to the end of the file"
refused "$work/wave.avi" "it is a RIFF 'WAVE' form, not 'AVI '"

# --- Long walks on a terminal (natively, where script(1) can give the tool
# one): the bar shows on a terminal stderr only, is erased at the end, and
# never touches stdout. 32768 empty chunks, no header list (which the reader
# does not need); the last chunk, at the list's end, is never returned.
if on_terminal "progress bars"; then
    while read -r command verb; do
        kq "$command" "$work/long.avi"
        expect_status 0 "$command on 32768 chunks"
        check "$command: no progress bar when stderr is not a terminal" [ ! -s "$work/err" ]
        cp "$work/out" "$work/long.txt"
        on_tty "$command '$work/long.avi' > '$work/long_tty.txt'"
        check "$command: a progress bar on a terminal stderr" grep -q "kelqavi: $verb .*long.avi \[#*\.*\] .*chunks" "$work/tty.txt"
        check "$command: the bar is erased at the end" sh -c "tail -c 4 '$work/tty.txt' | grep -q \"\$(printf '\\033')\\[K\""
        check "$command: stdout is the same with the bar on stderr" cmp -s "$work/long.txt" "$work/long_tty.txt"
    done <<'EOF'
riff   reading
chunks walking
EOF
    check "long walk: 32767 records" grep -q "^0        32767      0  video\$" "$work/long.txt"
fi

finish
