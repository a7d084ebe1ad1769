"""Compares what the kelqavi tool says about an AVI file with what ffprobe
says about it, both as JSON.

  interop_check.py streams INFO PROBE                info --json against ffprobe -show_streams
  interop_check.py packets CHUNKS PROBE RIFF         chunks --json against ffprobe -show_packets
  interop_check.py indexes INFO CHUNKS RIFF [PROBE]  idx1, super indexes and segments against the walk

Exit status: 0 agreement, 1 a difference (each one printed), 2 bad input.
"""
import json
import math
import sys
from collections import defaultdict

differences = []


def same(what, ours, theirs, other="ffprobe"):
    if ours != theirs:
        differences.append(f"{what}: kelqavi {ours}, {other} {theirs}")


def index_ranges(riff):
    """(begin, end, id) of every ix## chunk inside a 'movi' list: the OpenDML
    standard indexes a muxer puts among the data."""
    out = []
    def walk(nodes, in_movi):
        for c in nodes:
            if in_movi and c["kind"] == "chunk" and str(c["id"]).startswith("ix"):
                out.append((c["offset"], c["offset"] + 8 + c["size"], c["id"]))
            walk(c.get("children", []), in_movi or c.get("list_type") == "movi")
    walk(riff.get("chunks", []), False)
    return out


def inside(ranges, offset):
    return next((r for r in ranges if r[0] <= offset < r[1]), None)


MEDIA = ("audio", "video", "raw_video")


def streams(info, probe):
    ours, theirs = info["streams"], probe["streams"]
    same("number of streams", len(ours), len(theirs))
    for o, t in zip(ours, theirs):
        where = f"stream {o['number']}"
        same(f"{where}: number / index", o["number"], t["index"])
        if o["kind"] != t["codec_type"]:
            differences.append(f"{where}: kind {o['kind']}, ffprobe {t['codec_type']}")
            continue
        g = math.gcd(o["scale"], o["rate"]) or 1
        same(f"{where}: time base", f"{o['scale'] // g}/{o['rate'] // g}", t["time_base"])
        tag = int(t["codec_tag"], 16)
        same(f"{where}: length / nb_frames", o["length"], int(t["nb_frames"]))
        if o["kind"] == "video":
            code = int.from_bytes(o["compression"].encode("latin-1")[:4].ljust(4, b"\0"), "little")
            same(f"{where}: compression / codec_tag", code, tag)
            same(f"{where}: width", o["width"], t["width"])
            # A negative height marks rows stored top down; ffprobe gives the size.
            same(f"{where}: height", abs(o["height"]), t["height"])
        else:
            same(f"{where}: format tag", o["format_tag"], tag)
            same(f"{where}: channels", o["channels"], t["channels"])
            same(f"{where}: sample rate", o["samples_per_sec"], int(t["sample_rate"]))
            same(f"{where}: cb_size / extradata_size", o["cb_size"], t.get("extradata_size", 0))
            if o["format_tag"] == 1:  # ffprobe's bits_per_sample is the header's for PCM only
                same(f"{where}: bits", o["bits_per_sample"], t["bits_per_sample"])
                same(f"{where}: bytes/s x 8", o["avg_bytes_per_sec"] * 8, int(t["bit_rate"]))
                same(f"{where}: block align", o["block_align"], t["channels"] * t["bits_per_sample"] // 8)
        print(f"{where}: {o['kind']} as ffprobe")


def packets(chunks, probe, riff):
    ranges = index_ranges(riff)
    theirs = defaultdict(list)  # by stream, in ffprobe's order: (pos, size)
    for p in probe.get("packets", []):
        theirs[p["stream_index"]].append((int(p.get("pos", -1)), int(p["size"])))
    ours = defaultdict(list)
    for c in chunks["chunks"]:
        r = inside(ranges, c["offset"])
        if r:
            # The walk met bytes of an ix## chunk (not a data-chunk id unless
            # ids are read swapped): none of it is media, and the tool says so.
            if c.get("in_index_of_stream", -1) < 0:
                differences.append(f"record at {c['offset']} lies inside {r[2]} at {r[0]} but is not marked")
        elif c.get("in_index_of_stream", -1) >= 0:
            differences.append(f"record at {c['offset']} marked as inside an index chunk, but none is there")
        elif c["type"] not in MEDIA:
            differences.append(f"a '{c['type']}' record '{c['id']}' at {c['offset']} outside every index chunk")
        elif c["size"] > 0:  # ffprobe skips empty chunks
            ours[c["stream"]].append(c)
    for s in sorted(set(ours) | set(theirs)):
        p, t = 0, theirs[s]
        for k, c in enumerate(ours[s]):
            where = f"stream {s} chunk {k} at {c['offset']}"
            if p >= len(t) or t[p][0] != c["data_offset"]:
                differences.append(f"{where}: data at {c['data_offset']}, ffprobe's packet {p}: {t[p] if p < len(t) else None}")
                break
            # ffprobe hands out a long PCM chunk as several packets; the later
            # ones carry the position of the data they start at, or none.
            total = t[p][1]
            p += 1
            while total < c["size"] and p < len(t) and t[p][0] in (c["data_offset"] + total, -1):
                total += t[p][1]
                p += 1
            same(f"{where}: size", c["size"], total)
        else:
            same(f"stream {s}: packets after the walk's last chunk", 0, len(t) - p)
            print(f"stream {s}: {len(ours[s])} chunks = {len(t)} packets")


def indexes(info, chunks, riff, probe=None):
    ranges = index_ranges(riff)
    first_segment, every, first_size = defaultdict(int), defaultdict(int), {}
    for c in chunks["chunks"]:
        if inside(ranges, c["offset"]) or c["type"] not in MEDIA:
            continue
        every[c["stream"]] += 1
        first_segment[c["stream"]] += c["segment"] == 0
        first_size.setdefault(c["stream"], c["size"])
    ix = info["indexes"]
    if ix.get("idx1"):
        per = {e["stream"]: e["entries"] for e in ix["idx1"]["per_stream"]}
        same("idx1 entries per stream", per, {s: n for s, n in first_segment.items() if n}, "walk of segment 0")
        same("idx1 entries in the file", ix["idx1"]["entries_in_file"], ix["idx1"]["entries"], "declared")
    offsets = {r[0] for r in ranges}
    for x in ix.get("super_indexes") or []:
        s = x["stream"]
        same(f"stream {s}: chunks its super index points at", x["indexed_chunks"], every[s], "walk")
        same(f"stream {s}: ix## headers outside the file", x["headers_outside_file"], 0, "expected")
        for e in x.get("standard_indexes", []):
            if e["offset"] not in offsets:
                differences.append(f"stream {s}: no ix## chunk at {e['offset']}")
    for e in ix.get("reader_first_entries") or []:
        same(f"stream {e['stream']}: the reader's first index entry", e["size"], first_size.get(e["stream"]), "walk")
    # Segments: the reader's offsets are the top-level RIFF forms of the tree.
    forms = [c for c in riff["chunks"] if c["id"] == "RIFF"]
    movis = [next((k["offset"] for k in f.get("children", []) if k.get("list_type") == "movi"), -1) for f in forms]
    same("segment count", info["segment_count"], len(forms), "tree")
    same("segment offsets", [(g["offset"], g["movi_offset"]) for g in info["segments"]],
         [(f["offset"], m) for f, m in zip(forms, movis)], "tree")
    if probe:
        same("stream_count", info["stream_count"], len(probe["streams"]))


def main(argv):
    checks = {"streams": streams, "packets": packets, "indexes": indexes}
    if len(argv) < 3 or argv[1] not in checks:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        loaded = [json.load(open(path, encoding="utf-8")) for path in argv[2:]]
    except (OSError, ValueError) as e:
        print(e)
        return 2
    try:
        checks[argv[1]](*loaded)
    except (KeyError, TypeError, ValueError) as e:
        differences.append(f"field missing or of the wrong kind: {e!r}")
    for d in differences[:40]:
        print("DIFFERENT:", d)
    return 1 if differences else 0


sys.exit(main(sys.argv))
