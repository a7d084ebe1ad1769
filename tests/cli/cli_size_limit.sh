#!/bin/bash
# Files past the writer's size limit (0x7F000000 bytes): mux and remux finish
# OUT.avi when the writer reports the limit and go on in OUT-2.avi, each a
# complete file with the same streams, and no chunk is lost. The inputs are
# sparse (pictures of 100 MiB that are zero bytes but for their header, and
# an AVI whose chunks are such holes), so only the outputs take room: about
# 2.4 GB each, written and removed in turn. ffprobe, when at hand, counts the
# packets of each output independently.
# Usage: cli_size_limit.sh TOOL   (native plain builds only)
set -u
. "$(dirname "$0")/lib.sh"

free_kib=$(df -Pk "$work" | awk 'NR == 2 { print $4 }')
if [ "${free_kib:-0}" -lt 5000000 ]; then
    echo "less than 5 GB free in $work: skipped"
    exit 77
fi
picture_bytes=$((100 * 1024 * 1024))

# outputs_hold LABEL FIRST PICTURES: FIRST and FIRST-2 are sound files whose
# video chunks add up to PICTURES, with the first file at or past the limit.
outputs_hold() {
    local label=$1 first=$2 pictures=$3 second=${2%.avi}-2.avi total=0 n
    check "$label: the first reached the limit" [ "$(stat -c %s "$first")" -ge $((0x7F000000)) ]
    for f in "$first" "$second"; do
        check "$label: $(basename "$f") walks to its end" "${tool[@]}" chunks --headers "$f" > /dev/null
        n=$("${tool[@]}" chunks --headers --json "$f" | grep -c '"type": "video"')
        if command -v ffprobe > /dev/null 2>&1; then
            check "$label: ffprobe counts $n pictures in $(basename "$f")" [ "$(ffprobe -v quiet -count_packets \
                -select_streams v -show_entries stream=nb_read_packets -of csv=p=0 "$f")" = "$n" ]
        fi
        total=$((total + n))
    done
    check "$label: $pictures pictures in all (got $total)" [ "$total" -eq "$pictures" ]
}

# --- mux: 23 pictures of 100 MiB, the 21st takes OUT.avi past the limit ---------
mkdir "$work/pictures"
printf '\377\330\377\376\000\004hi\377\300\000\021\010\000\170\000\240\003\001\042\000\002\021\001\003\021\001' \
    > "$work/pictures/p.jpg"
truncate -s "$picture_bytes" "$work/pictures/p.jpg"
for i in $(seq -w 1 23); do ln "$work/pictures/p.jpg" "$work/pictures/f$i.jpg"; done
rm "$work/pictures/p.jpg"
kq mux -o "$work/m.avi" --fps 1 --video "$work/pictures/f*.jpg" --json
expect_status 0 "mux past the size limit"
check "mux: both files in the JSON" [ "$(grep -c -e "{\"file\": \"$work/m.avi\"" -e "{\"file\": \"$work/m-2.avi\"" "$work/out")" -eq 2 ]
outputs_hold mux "$work/m.avi" 23
rm -f "$work"/m*.avi

# --- remux: 24 holes of 100 MiB in one 'movi' list ------------------------------
# The header area of a muxed one-picture file, then the chunks, then the sizes.
kq mux -o "$work/one.avi" --fps 1 --video "$work/pictures/f01.jpg"
first=$("${tool[@]}" chunks --headers --json "$work/one.avi" | sed -n 's/.*"offset": \([0-9]*\), "id": "00dc".*/\1/p')
head -c "$first" "$work/one.avi" > "$work/big.avi"
span=$((8 + picture_bytes))
for i in $(seq 0 23); do
    { printf '00dc'; le32 "$picture_bytes"; } | dd of="$work/big.avi" bs=1 seek=$((first + i * span)) conv=notrunc 2> /dev/null
done
end=$((first + 24 * span))
truncate -s "$end" "$work/big.avi"
le32 $((end - 8)) | dd of="$work/big.avi" bs=1 seek=4 conv=notrunc 2> /dev/null
le32 $((end - first + 4)) | dd of="$work/big.avi" bs=1 seek=$((first - 8)) conv=notrunc 2> /dev/null
kq remux "$work/big.avi" "$work/r.avi"
expect_status 0 "remux past the size limit"
check "remux: both files listed" [ "$(count "^Wrote $work/r\(-2\)\?.avi: ")" -eq 2 ]
outputs_hold remux "$work/r.avi" 24

finish
