# Helpers shared by the tool's test scripts (bash). A script sources this file
# and is run as: script.sh [EMULATOR...] TOOL. The arguments, all together,
# are the command that runs the tool (under qemu-user when cross-compiled).

tool=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$(dirname "${BASH_SOURCE[0]}")/../support/checks.sh"

# Runs the tool with the given arguments: stdout to $work/out, stderr to
# $work/err, exit status to $status.
kq() {
    status=0
    "${tool[@]}" "$@" > "$work/out" 2> "$work/err" || status=$?
}

has() { grep -q -e "$1" "$work/out"; }                 # stdout holds a line matching the regex
has_not() { ! grep -q -e "$1" "$work/out"; }
err_is() { [ "$(cat "$work/err")" = "$1" ]; }            # stderr is exactly this one line
err_one_line() { [ "$(wc -l < "$work/err")" -eq 1 ] && grep -q '^kelqavi: ' "$work/err"; }
out_empty() { [ ! -s "$work/out" ]; }
count() { grep -c -e "$1" "$work/out" || true; }

# The row of the table whose offset column is $1, with the tree drawing and
# notes as printed.
row_at() { grep -E "^ *$1  " "$work/out" | head -n 1; }

# Little-endian 32-bit value as four raw bytes.
le32() {
    local n=$1
    printf "$(printf '\\%03o\\%03o\\%03o\\%03o' $((n & 255)) $((n >> 8 & 255)) $((n >> 16 & 255)) $((n >> 24 & 255)))"
}

# chunk ID DATA: a whole chunk with its size and, after odd data, a pad byte.
# DATA is plain text.
chunk() {
    printf '%s' "$1"
    le32 ${#2}
    printf '%s' "$2"
    if [ $((${#2} % 2)) -eq 1 ]; then printf '\0'; fi
}

# python3 reads the JSON outputs; without it the checks cannot be made.
command -v python3 > /dev/null 2>&1 || { echo "python3 not installed: the JSON checks cannot be made"; exit 1; }

# The JSON output in $work/out is well formed.
json_ok() { python3 -m json.tool "$work/out" > /dev/null; }

# json_is EXPRESSION: the Python expression holds for the JSON in $work/out, loaded as d.
json_is() {
    python3 -c 'import json, sys; d = json.load(open(sys.argv[1])); sys.exit(0 if eval(sys.argv[2]) else 1)' "$work/out" "$1"
}

# Every list in the JSON output in $work/out is tiled exactly by its children
# (the first at the list's offset + 12, each next one right after the previous
# chunk and its pad byte, the last ending where the list ends), and so are the
# top-level chunks of the whole file.
json_tiles() {
    python3 - "$work/out" <<'EOF'
import json, sys
tree = json.load(open(sys.argv[1]))
def span(c):
    return 8 + c["size"] + (c["size"] & 1)
def tile(children, begin, end, where):
    pos = begin
    for c in children:
        assert c["offset"] == pos, f"{where}: chunk at {c['offset']}, expected {pos}"
        assert c["status"] == "ok", f"{where}: chunk at {pos} is {c['status']}"
        if c["kind"] == "list":
            tile(c.get("children", []), pos + 12, pos + 8 + c["size"], f"list at {pos}")
        pos += span(c)
    # A list's size may leave out the pad byte of its last chunk.
    assert pos in (end, end + 1), f"{where}: chunks end at {pos}, expected {end}"
tile(tree["chunks"], 0, tree["file_size"], "file")
EOF
}

