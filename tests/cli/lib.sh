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
err_is() { [ "$(cat "$work/err")" = "$1" ]; }            # stderr is exactly this one line
err_one_line() { [ "$(wc -l < "$work/err")" -eq 1 ] && grep -q '^kelqavi: ' "$work/err"; }
out_empty() { [ ! -s "$work/out" ]; }
count() { grep -c -e "$1" "$work/out" || true; }

# Little-endian 32-bit value as four raw bytes.
le32() {
    local n=$1
    printf "$(printf '\\%03o\\%03o\\%03o\\%03o' $((n & 255)) $((n >> 8 & 255)) $((n >> 16 & 255)) $((n >> 24 & 255)))"
}

# Hand-made files are built in Python with these: le(VALUES...) gives 32-bit
# little-endian bytes, chunk(ID, DATA) a chunk with its pad byte after odd
# data, lst(TYPE, PARTS...) a list around the parts (fourcc='RIFF': a form).
riff_py='import functools, struct, sys
le = lambda *v: struct.pack("<%dI" % len(v), *v)
def chunk(fourcc, data=b""):
    return fourcc.encode() + le(len(data)) + data + b"\0" * (len(data) & 1)
def lst(kind, *parts, fourcc="LIST"):
    body = kind.encode() + b"".join(parts)
    return fourcc.encode() + le(len(body)) + body
'
# riff_file FILE 'EXPRESSION': FILE holds the bytes of the Python expression.
riff_file() { python3 -c "$riff_py"'
open(sys.argv[1], "wb").write(eval("(" + sys.argv[2] + ")"))' "$1" "$2"; }

# Media chunk sizes per stream as 'chunks' reads them: "STREAM TYPE SIZE" lines.
chunk_sizes() {
    "${tool[@]}" chunks --json "$@" | grep -o '"type_code": [1-7], "stream": [0-9]*, "size": [0-9]*' |
        sed 's/"type_code": \([0-9]*\), "stream": \([0-9]*\), "size": \([0-9]*\)/\2 \1 \3/'
}

# on_terminal WHAT: true where the tool runs natively (KELQAVI_CLI_NATIVE=1)
# and script(1) can give it a terminal; elsewhere WHAT is skipped, and without
# script(1) it fails.
on_terminal() {
    [ "${KELQAVI_CLI_NATIVE:-0}" = 1 ] || { skip "$1 (not a native build)"; return 1; }
    command -v script > /dev/null 2>&1 || { fail "script(1) is missing: $1 cannot be checked"; return 1; }
}
# on_tty 'ARGS': the tool run with ARGS (shell words, redirections too) on a
# terminal; what the terminal shows goes to $work/tty.txt.
on_tty() {
    TERM=xterm script -qec "$(printf '%q ' "${tool[@]}") $1" /dev/null < /dev/null > "$work/tty.txt" 2>&1
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

