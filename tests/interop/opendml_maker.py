"""Writes a small two-segment OpenDML file, laid out as ffmpeg lays out the
large ones (ffmpeg writes OpenDML indexes only past 1 GiB): super indexes in
the header, the standard index chunks ix00 and ix01 at the end of each 'movi'
list with qwBaseOffset at the list's type, idx1 for the first segment. 8x6
raw video ('00db', 144 bytes a frame) and 8-bit PCM in chunks of 801 bytes,
an odd size.

  opendml_maker.py OUT
"""
import struct
import sys

FRAME, AUDIO = 8 * 6 * 3, 801
out = bytearray()


def put(fmt, *values):
    out.extend(struct.pack("<" + fmt, *values))


def begin(fourcc, list_type=b""):
    """A chunk or list begun: returns where its size field is."""
    out.extend(fourcc)
    at = len(out)
    put("I", 0)
    out.extend(list_type)
    return at


def end(size_at):
    """Patches the size and adds the pad byte of an odd size."""
    size = len(out) - size_at - 4
    struct.pack_into("<I", out, size_at, size)
    if size % 2:
        out.append(0)


def stream_list(video):
    strl = begin(b"LIST", b"strl")
    strh = begin(b"strh")
    out.extend(b"vidsDIB " if video else b"auds\0\0\0\0")
    put("IHHI", 0, 0, 0, 0)
    put("IIII", 1, 5 if video else 8000, 0, 5 if video else 5 * AUDIO)  # scale, rate, start, length
    put("IIIHHHH", FRAME if video else AUDIO, 0xFFFFFFFF, 0 if video else 1, 0, 0, 8 if video else 0, 6 if video else 0)
    end(strh)
    strf = begin(b"strf")
    if video:
        put("IiiHHII4I", 40, 8, 6, 1, 24, 0, FRAME, 0, 0, 0, 0)
    else:
        put("HHIIHH", 1, 1, 8000, 8000, 1, 8)
    end(strf)
    indx = begin(b"indx")
    put("HBBI", 4, 0, 0, 2)  # four longs an entry, an index of indexes, two in use
    out.extend(b"00db" if video else b"01wb")
    put("III", 0, 0, 0)
    entries = len(out)
    out.extend(bytes(2 * 16))
    end(indx)
    end(strl)
    return entries


def movie_list(frames, supers, segment, fill, first=None):
    """One 'movi' list: frames and audio chunks in turn, then ix00 and ix01,
    whose positions, sizes and durations go into the super indexes."""
    movi = begin(b"LIST", b"movi")
    base = movi + 4  # qwBaseOffset: the list's type, as ffmpeg writes it
    chunks = ([], [])
    for _ in range(frames):
        for stream, (fourcc, size) in enumerate(((b"00db", FRAME), (b"01wb", AUDIO))):
            at = begin(fourcc)
            out.extend(bytes([fill % 256]) * size)
            fill += 1
            end(at)
            chunks[stream].append((at - 4, size))
            if first is not None:
                first.append((at - 4, size))
    for stream, (fourcc, duration) in enumerate(((b"00db", frames), (b"01wb", frames * AUDIO))):
        at = len(out)
        ix = begin(b"ix0%d" % stream)
        put("HBBI", 2, 0, 1, len(chunks[stream]))  # two longs an entry, an index of chunks
        out.extend(fourcc)
        put("QI", base, 0)
        for header, size in chunks[stream]:
            put("II", header + 8 - base, size)  # bit 31 clear: every chunk a key frame
        end(ix)
        struct.pack_into("<QII", out, supers[stream] + segment * 16, at, len(out) - at, duration)
    end(movi)
    return fill


riff = begin(b"RIFF", b"AVI ")
hdrl = begin(b"LIST", b"hdrl")
avih = begin(b"avih")
put("10I16x", 200000, FRAME * 5 + 8000, 0, 0x110, 3, 0, 2, 0, 8, 6)
end(avih)
supers = (stream_list(True), stream_list(False))
odml = begin(b"LIST", b"odml")
dmlh = begin(b"dmlh")
put("I244x", 5)
end(dmlh)
end(odml)
end(hdrl)
first = []
movi_type = len(out) + 8
fill = movie_list(3, supers, 0, 1, first)
idx1 = begin(b"idx1")
for header, size in first:
    out.extend(out[header:header + 4])
    put("III", 0x10, header - movi_type, size)
end(idx1)
end(riff)
avix = begin(b"RIFF", b"AVIX")
movie_list(2, supers, 1, fill)
end(avix)
open(sys.argv[1], "wb").write(out)
