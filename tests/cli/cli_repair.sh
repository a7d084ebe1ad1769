#!/bin/bash
# kelqavi repair: in place and into a copy, a whole file left alone, the
# exit statuses and the JSON.
# Usage: cli_repair.sh [EMULATOR...] TOOL
set -u
. "$(dirname "$0")/lib.sh"

kq sample "$work/sample.avi"
expect_status 0 "sample"
cp "$work/sample.avi" "$work/whole.avi"
kq repair "$work/whole.avi"
expect_status 0 "repair of a whole file"
check "a whole file is said to be whole" has 'whole, nothing to repair'
check "a whole file is left byte for byte" cmp -s "$work/sample.avi" "$work/whole.avi"

# Cut inside a chunk: 3, and the copy and the file repaired in place agree.
head -c 60000 "$work/sample.avi" > "$work/cut.avi"
cp "$work/cut.avi" "$work/cut_kept.avi"
kq repair "$work/cut.avi" "$work/copy.avi"
expect_status 3 "repair IN OUT of a cut file"
check "IN is left as it was" cmp -s "$work/cut.avi" "$work/cut_kept.avi"
check "the table shows the five streams" [ "$(grep -c '^ *[0-4]  ' "$work/out")" -eq 5 ]
check "what was dropped is said" has '^  dropped  .* from offset [0-9]* on (cut short)'
kq repair --json "$work/cut.avi"
expect_status 3 "repair --json IN"
check "--json: the drop, five streams, the index" json_is 'd["result"] == "repaired, data dropped" and d["changed"] and d["output"] is None and d["dropped"]["offset"] + d["dropped"]["bytes"] == 60000 and d["dropped"]["cause"] == "cut short" and len(d["streams"]) == 5 and d["streams"][1]["codec"] == 1'
entries=$(python3 -c 'import json, sys; print(json.load(open(sys.argv[1]))["index_entries"])' "$work/out")
kq info --json "$work/cut.avi"
check "--json: as many index entries as the repaired idx1 holds ($entries)" json_is "d['indexes']['idx1']['entries'] == $entries"
check "in place and into a copy give the same file" cmp -s "$work/cut.avi" "$work/copy.avi"
kq chunks "$work/cut.avi"
expect_status 0 "the repaired file walks to the end of its lists"
kq repair "$work/cut.avi" "$work/../$(basename "$work")/cut.avi"
expect_status 0 "repair of a repaired file, OUT naming IN"
check "OUT naming IN repairs in place, without emptying the file" cmp -s "$work/cut.avi" "$work/copy.avi"
check "a repaired file is whole" has 'whole, nothing to repair'

# Files that cannot be repaired: 1, one line, nothing written.
printf 'RIFF\x10\x00\x00\x00WAVEfmt ' > "$work/wave.wav"
head -c 100 "$work/sample.avi" > "$work/header.avi"
for f in wave.wav header.avi missing.avi; do
    cp "$work/$f" "$work/before" 2> /dev/null
    kq repair "$work/$f" "$work/$f.out"
    check "$f: no copy is left" [ ! -e "$work/$f.out" ]
    [ -e "$work/$f" ] && check "$f: left as it was" cmp -s "$work/$f" "$work/before"
done

finish
