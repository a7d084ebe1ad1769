#!/bin/sh
# Checks the shared library's dynamic interface: the defined dynamic symbols
# are exactly the calls the public header declares, and libc (plus libgcc_s on
# targets whose runtime needs it) is the only library it depends on.
# Usage: check_exports.sh NM READELF LIBRARY HEADER
set -eu
nm=$1 readelf=$2 lib=$3 header=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sed -n 's/^KELQAVI_API .*[ *]\([A-Za-z_][A-Za-z0-9_]*\)(.*/\1/p' "$header" | sort -u > "$work/declared"
"$nm" -D --defined-only "$lib" | awk '{print $NF}' | sed 's/@.*//' | grep -v '^KELQAVI_' | sort -u > "$work/exported"

status=0
if [ ! -s "$work/declared" ]; then
    echo "no declarations found in $header"; status=1
fi
if ! diff -u "$work/declared" "$work/exported" > "$work/diff"; then
    echo "exported symbols differ from the header's declarations (- header only, + library only):"
    grep -E '^[-+][^-+]' "$work/diff" || true
    status=1
fi

"$readelf" -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' > "$work/needed"
while read -r needed; do
    case "$needed" in
        libc.so.*|libgcc_s.so.*) ;;
        *) echo "unexpected NEEDED library: $needed"; status=1 ;;
    esac
done < "$work/needed"
grep -q '^libc\.so' "$work/needed" || { echo "libc is not among the NEEDED libraries"; status=1; }

[ $status -eq 0 ] && echo "$(wc -l < "$work/exported") exported calls match the header; NEEDED: $(tr '\n' ' ' < "$work/needed")"
exit $status
