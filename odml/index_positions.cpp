// OpenDML index entries with the place of their chunks: the entries of a
// stream's super index one at a time, and the entries of the standard index
// chunk each one points to a block at a time. Every count read from the file
// is bounded by the bytes the file holds.
#include "odml/index_read.h"
#include "riff/file_extent.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"

namespace {

using kelq::chunk_header_size;
using kelq::result_end_of_list;
using kelq::result_failed;
using kelq::result_ok;

using kelq::index_of_chunks;
using kelq::index_of_indexes;
using kelq::std_entry_size;

constexpr uint32_t min_longs_per_entry = 2;  // dwOffset, dwSize
constexpr uint32_t block_entries = 64;
constexpr int64_t index_head_size = kelq::index_entries_offset;

// Entries of `size` bytes that fit between offset and end.
uint64_t entries_between(int64_t offset, int64_t end, uint64_t size) {
    return offset >= 0 && end > offset ? static_cast<uint64_t>(end - offset) / size : 0;
}

// Bytes at a file position; false when fewer could be read.
bool read_at(FILE *f, int64_t pos, uint8_t *bytes, size_t count) { return kelq::read_at(f, pos, bytes, count) == count; }

// Entry n of the stream's super index: result_ok, result_end_of_list past
// its entries, result_failed without one.
int super_entry(const aviin_handle *h, FILE *f, int64_t file_end, uint32_t s, uint32_t n, uint64_t &ix_pos,
                uint32_t &duration) {
    if (s >= kelq::max_stream_slots || h->indx_pos[s] == 0) return result_failed;
    const kelq::indx_header_copy &indx = h->indx_header[s];
    if (indx.index_type != index_of_indexes) return result_failed;
    uint8_t head[chunk_header_size];
    if (!read_at(f, h->indx_pos[s], head, sizeof head)) return result_failed;
    const int64_t first = h->indx_pos[s] + index_head_size;
    uint64_t count = kelq::super_index_capacity(str2long(head + 4));
    if (indx.entries_in_use < count) count = indx.entries_in_use;
    if (n >= count || n >= entries_between(first, file_end, kelq::super_entry_size)) return result_end_of_list;
    uint8_t entry[kelq::super_entry_size];
    if (!read_at(f, first + static_cast<int64_t>(n) * kelq::super_entry_size, entry, sizeof entry))
        return result_failed;
    ix_pos = str2longlong(entry);
    duration = str2long(entry + 12);
    return result_ok;
}

// An "ix" id, at the front or, with swapped ids, at the back.
bool is_std_index_id(const uint8_t *id, uint32_t swapped_ids) {
    return (id[0] == 'i' && id[1] == 'x') || (swapped_ids != 0 && id[2] == 'i' && id[3] == 'x');
}

// The standard index chunk at ix_pos, when it is an index of chunks whose
// header lies inside the file; count = the entries it holds there.
bool std_index_at(FILE *f, int64_t file_end, uint64_t ix_pos, uint32_t swapped_ids, std_index_header &x,
                  uint64_t &count) {
    uint8_t head[index_head_size];
    if (ix_pos >= static_cast<uint64_t>(file_end) || !read_at(f, static_cast<int64_t>(ix_pos), head, sizeof head))
        return false;
    const uint32_t size = str2long(head + 4);
    kelq::decode_std_header(head + chunk_header_size, x);
    if (!is_std_index_id(head, swapped_ids) || size < kelq::indx_header_size || x.index_type != index_of_chunks ||
        x.longs_per_entry < min_longs_per_entry)
        return false;
    const uint64_t stride = 4u * x.longs_per_entry;
    const int64_t entries = static_cast<int64_t>(ix_pos) + index_head_size;
    count = x.entries_in_use;
    if ((size - kelq::indx_header_size) / stride < count) count = (size - kelq::indx_header_size) / stride;
    if (entries_between(entries, file_end, stride) < count) count = entries_between(entries, file_end, stride);
    return true;
}

// Reads `want` entries from pos, `stride` bytes apart: a block at a time
// when they are packed, one at a time when they are wider.
uint32_t read_entries(const aviin_handle *h, FILE *f, int64_t pos, const std_index_header &x, uint32_t stride,
                      uint32_t want, index_position *out) {
    uint8_t bytes[block_entries * std_entry_size];
    const uint32_t per_read = stride == std_entry_size ? block_entries : 1;
    uint32_t done = 0;
    while (done < want) {
        const uint32_t n = want - done < per_read ? want - done : per_read;
        if (!read_at(f, pos + static_cast<int64_t>(done) * stride, bytes, static_cast<size_t>(n) * std_entry_size))
            break;
        for (uint32_t i = 0; i < n; ++i) {
            const uint8_t *e = bytes + static_cast<size_t>(i) * std_entry_size;
            const uint32_t size = str2long(e + 4);
            index_position &p = out[done + i];
            p.position = x.base_offset + str2long(e);
            p.stream = fourCC_streamID(x.chunk_id, h->swapped_ids);
            p.type = static_cast<uint32_t>(get_chunk_type(x.chunk_id, h->swapped_ids));
            p.size = size & ~kelq::not_key_frame;
            p.key = (size & kelq::not_key_frame) == 0 ? kelq::key_frame_flags : 0;
        }
        done += n;
    }
    return done;
}

}  // namespace

extern "C" {

int aviin_get_super_index_entry(aviin_handle *h, uint32_t stream_number, uint32_t index_number, uint64_t *ix_position,
                                uint32_t *duration) {
    if (h == nullptr || ix_position == nullptr || duration == nullptr) return result_failed;
    FILE *f = kelq::index_stream(h);
    const int64_t here = file_tell(f);
    const int64_t end = kelq::file_length(f);
    if (here < 0 || end < 0) return result_failed;
    const int r = super_entry(h, f, end, stream_number, index_number, *ix_position, *duration);
    file_seek(f, here, kelq::origin_start);
    return r;
}

int aviin_get_std_index_positions(aviin_handle *h, uint32_t stream_number, uint32_t index_number, uint32_t first,
                                  index_position *entries, uint32_t capacity, uint32_t *count) {
    if (h == nullptr || count == nullptr || (entries == nullptr && capacity > 0)) return result_failed;
    *count = 0;
    FILE *f = kelq::index_stream(h);
    const int64_t here = file_tell(f);
    const int64_t end = kelq::file_length(f);
    if (here < 0 || end < 0) return result_failed;
    uint64_t ix_pos = 0, held = 0;
    uint32_t duration = 0;
    std_index_header x{};
    int r = super_entry(h, f, end, stream_number, index_number, ix_pos, duration) == result_ok &&
                    std_index_at(f, end, ix_pos, h->swapped_ids, x, held)
                ? result_ok
                : result_failed;
    if (r == result_ok) {
        const uint64_t left = first < held ? held - first : 0;
        const uint32_t stride = 4u * x.longs_per_entry;
        const int64_t from = static_cast<int64_t>(ix_pos) + index_head_size + static_cast<int64_t>(first) * stride;
        *count = read_entries(h, f, from, x, stride, left < capacity ? static_cast<uint32_t>(left) : capacity, entries);
        r = *count > 0 ? result_ok : result_end_of_list;
    }
    file_seek(f, here, kelq::origin_start);
    return r;
}

}  // extern "C"
