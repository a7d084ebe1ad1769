// The writer target's check of the OpenDML indexes, read from the file's
// bytes: the reader passes over them, since the writer names their streams
// with one digit ("0\0dc"). Every entry of a track's standard indexes, found
// through its super index, must name a chunk of the track with its size and
// key flag, in the order the chunks were put; every chunk whose put said 0
// must be listed while the super index has room.
#include "writer_program.h"

#include <algorithm>
#include <cstring>

namespace fuzz {

namespace {

constexpr size_t npos = static_cast<size_t>(-1);
constexpr uint32_t not_key_bit = 0x80000000u;
constexpr uint32_t super_capacity = 100;

struct file_bytes {
    std::vector<uint8_t> b;
    uint32_t le32(size_t at) const {
        return at + 4 <= b.size() ? static_cast<uint32_t>(b[at] | b[at + 1] << 8 | b[at + 2] << 16) |
                                        static_cast<uint32_t>(b[at + 3]) << 24
                                  : 0;
    }
    uint64_t le64(size_t at) const { return le32(at) | static_cast<uint64_t>(le32(at + 4)) << 32; }
    bool is(size_t at, const char *four) const { return at + 4 <= b.size() && std::memcmp(&b[at], four, 4) == 0; }
    // The n-th chunk with this id (and list type) among the chunks of [from, to).
    size_t find(size_t from, size_t to, const char *id, const char *type, int n = 0) const {
        for (size_t at = from; at + 8 <= to && at + 8 <= b.size(); at += 8 + ((le32(at + 4) + 1) & ~1u))
            if (is(at, id) && (type == nullptr || is(at + 8, type)) && n-- == 0) return at;
        return npos;
    }
    size_t end_of(size_t chunk) const { return std::min<size_t>(b.size(), chunk + 8 + le32(chunk + 4)); }
};

// Where the data of each data chunk of "movi" lies, in file order.
std::vector<uint64_t> data_positions(const file_bytes &f, size_t movi) {
    std::vector<uint64_t> at;
    for (size_t c = movi + 12; c + 8 <= f.end_of(movi); c += 8 + ((f.le32(c + 4) + 1) & ~1u)) {
        const int32_t type = get_chunk_type(f.le32(c), 1);
        if (type >= KELQAVI_CHUNK_AUDIO && type <= KELQAVI_CHUNK_CHAPTER) at.push_back(c + 8);
    }
    return at;
}

// One standard index entry; `last` is the put it named before, updated.
void check_entry(const file_bytes &f, const writer_run &run, const std::vector<uint64_t> &at, int32_t s,
                 uint64_t data, uint32_t size, size_t &last, std::vector<bool> &listed) {
    const auto found = std::lower_bound(at.begin(), at.end(), data);
    if (found == at.end() || *found != data) {
        // Past the lists' declared end, as after a checkpoint: still a chunk of the track.
        check(data > at.back() && data >= 8 && fourCC_streamID(f.le32(data - 8), 1) == static_cast<uint32_t>(s) &&
                  f.le32(data - 4) == (size & ~not_key_bit),
              "an OpenDML entry names a chunk of its track");
        return;
    }
    const size_t i = static_cast<size_t>(found - at.begin());
    const put_call &p = run.puts[i];
    check(p.stream == s && p.size == (size & ~not_key_bit) &&
              ((size & not_key_bit) == 0) == ((p.flags & AVIOUT_KEY_FRAME) != 0),
          "an OpenDML entry names a chunk of its track, with its size and key flag");
    check(last == npos || i > last, "OpenDML entries list a track's chunks in the order they were put");
    last = i;
    listed[i] = true;
}

// The track of stream s, through the super index of its strl list.
void check_track(const file_bytes &f, const writer_run &run, const std::vector<uint64_t> &at, int32_t s,
                 size_t indx) {
    const uint32_t super_entries = f.le32(indx + 12);
    check(super_entries <= super_capacity && indx + 32 + super_entries * 16 <= f.end_of(indx),
          "a super index holds its entries");
    std::vector<bool> listed(run.puts.size(), false);
    size_t last = npos;
    for (uint32_t e = 0; e < super_entries; ++e) {
        const uint64_t ix = f.le64(indx + 32 + e * 16);
        check(ix + 32 <= f.b.size() && f.b[ix] == 'i' && f.b[ix + 1] == 'x',
              "a super index entry leads to a standard index chunk");
        const uint32_t entries = f.le32(ix + 12);
        const uint64_t base = f.le64(ix + 20);
        check(ix + 32 + uint64_t{entries} * 8 <= f.end_of(ix), "a standard index chunk holds its entries");
        for (uint32_t k = 0; k < entries; ++k)
            check_entry(f, run, at, s, base + f.le32(ix + 32 + k * 8), f.le32(ix + 36 + k * 8), last, listed);
    }
    if (super_entries == super_capacity) return;
    for (size_t i = 0; i < run.puts.size(); ++i)
        if (run.puts[i].stream == s && run.puts[i].indexed) check(listed[i], "every chunk put with 0 is indexed");
}

}  // namespace

std::vector<uint64_t> chunk_data_positions(const char *path, const writer_run &run) {
    file_bytes f;
    if (!read_file(path, f.b)) return {};
    const size_t form = static_cast<size_t>(run.prefix_length);
    const size_t movi = f.find(form + 12, f.end_of(form), "LIST", "movi");
    return movi == npos ? std::vector<uint64_t>() : data_positions(f, movi);
}

void check_odml_indexes(const char *path, const writer_run &run) {
    file_bytes f;
    if (!read_file(path, f.b)) return;
    const size_t form = static_cast<size_t>(run.prefix_length);
    const size_t hdrl = f.find(form + 12, f.end_of(form), "LIST", "hdrl");
    const size_t movi = f.find(form + 12, f.end_of(form), "LIST", "movi");
    check(hdrl != npos && movi != npos, "the form holds its header and data lists");
    const std::vector<uint64_t> at = data_positions(f, movi);
    check(at.size() == run.puts.size(), "movi holds every chunk put");
    for (int32_t s = 0; s < writer_stream_limit && s < run.stream_count; ++s) {
        const size_t strl = f.find(hdrl + 12, f.end_of(hdrl), "LIST", "strl", s);
        const size_t indx = strl == npos ? npos : f.find(strl + 12, f.end_of(strl), "indx", nullptr);
        if (indx != npos && !at.empty()) check_track(f, run, at, s, indx);
    }
}

}  // namespace fuzz
