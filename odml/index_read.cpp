// OpenDML indexes as read: the super index ("indx") of a stream's "strl" list,
// the entries found through it, and the standard index chunks ("ix##") it
// points to.
#include "odml/index_read.h"
#include "riff/riff_layout.h"

#include <cstdint>
#include <cstdlib>

namespace {

using kelq::chunk_header_size;
using kelq::decode_std_header;
using kelq::index_of_chunks;
using kelq::index_of_indexes;
using kelq::std_entry_size;
using kelq::key_frame_flags;
using kelq::not_key_frame;
using kelq::super_index_capacity;

constexpr int64_t bytes_per_long = 4;                      // wLongsPerEntry counts 32-bit words
constexpr uint32_t offset_flag_bit = 1u << 24;             // tested by avi2_get_index_entry

// Where each field lies in the 24 bytes after a standard index chunk's size.
namespace std_header_at {
constexpr int longs_per_entry = 0, index_sub_type = 2, index_type = 3, entries_in_use = 4, chunk_id = 8,
              base_offset = 12, reserved = 20;
}

// Where each field lies in the 24 bytes after a super index chunk's size.
namespace indx_header_at {
constexpr int longs_per_entry = 0, index_sub_type = 2, index_type = 3, entries_in_use = 4, chunk_id = 8,
              reserved = 12;
}

struct index_entry {
    uint32_t offset = 0;
    uint32_t size = 0;
};

bool is_digit(uint8_t c) { return c >= '0' && c <= '9'; }

// The 24 header bytes that follow a chunk's size. Missing bytes at the end of
// the file stay zero, as a run of value reads would leave them; 1 only when
// nothing could be read.
int read_header_bytes(FILE *stream, uint8_t (&bytes)[kelq::indx_header_size]) {
    for (uint8_t &b : bytes) b = 0;
    return file_read(stream, bytes, sizeof bytes) == 0 ? 1 : 0;
}

kelq::indx_header_copy decode_indx_header(const uint8_t *b) {
    kelq::indx_header_copy r{};
    r.longs_per_entry = str2short(b + indx_header_at::longs_per_entry);
    r.index_sub_type = b[indx_header_at::index_sub_type];
    r.index_type = b[indx_header_at::index_type];
    r.entries_in_use = str2long(b + indx_header_at::entries_in_use);
    r.chunk_id = str2long(b + indx_header_at::chunk_id);
    for (int i = 0; i < 3; ++i) r.reserved[i] = str2long(b + indx_header_at::reserved + 4 * i);
    return r;
}

// Stream number carried by a dwChunkId: two leading digits ("01wb"), or, with
// swapped ids, two trailing ones ("wb01"); -1 when there are none.
int32_t indx_stream_number(uint32_t chunk_id, uint32_t swapped_ids) {
    uint8_t c[4];
    long2str(chunk_id, c);
    if (is_digit(c[0]) && is_digit(c[1])) return (c[0] - '0') * 10 + (c[1] - '0');
    if (swapped_ids != 0 && is_digit(c[2]) && is_digit(c[3])) return (c[2] - '0') * 10 + (c[3] - '0');
    return -1;
}

int read_entry(FILE *stream, index_entry &e) {
    int status = read_val32(&e.offset, stream);
    status |= read_val32(&e.size, stream);
    return status;
}

// Entry n of an indx that holds chunk entries itself; the stream at its id.
int entry_in_chunk_index(FILE *stream, const kelq::indx_header_copy &indx, uint32_t n, index_entry &e) {
    if (n >= indx.entries_in_use) return 1;
    if (file_seek(stream, kelq::index_entries_offset + static_cast<int64_t>(std_entry_size) * n, 1) != 0) return 1;
    return read_entry(stream, e);
}

// Entry n of the standard index chunk whose id is at ix_pos, stepping over
// its entries by the chunk's own wLongsPerEntry.
int entry_in_standard_index(FILE *stream, uint64_t ix_pos, uint32_t n, index_entry &e) {
    uint8_t bytes[kelq::indx_header_size];
    std_index_header ix{};
    if (ix_pos > static_cast<uint64_t>(INT64_MAX - chunk_header_size)) return 1;
    if (file_seek(stream, static_cast<int64_t>(ix_pos) + chunk_header_size, 0) != 0) return 1;
    if (read_header_bytes(stream, bytes) != 0) return 1;
    decode_std_header(bytes, ix);
    if (file_seek(stream, static_cast<int64_t>(n) * ix.longs_per_entry * bytes_per_long, 1) != 0) return 1;
    return read_entry(stream, e);
}

// Entry n through a super index; the stream at its id. Each super entry's
// dwDuration is taken as the number of entries its standard index holds, for
// audio too, where it really counts bytes. The walk ends at nEntriesInUse, at
// the last entry the chunk's size has room for, or at a failed read.
int entry_via_super_index(FILE *stream, const kelq::indx_header_copy &indx, uint32_t n, index_entry &e) {
    uint32_t chunk_size = 0;
    int status = read_fourCC(nullptr, stream);
    status |= read_val32(&chunk_size, stream);
    status |= file_seek(stream, kelq::indx_header_size, 1);
    if (status != 0) return 1;
    uint32_t count = super_index_capacity(chunk_size);
    if (indx.entries_in_use < count) count = indx.entries_in_use;
    uint32_t remaining = n;
    for (uint32_t i = 0; i < count; ++i) {
        uint64_t ix_pos = 0;
        uint32_t duration = 0;
        status = read_val64(&ix_pos, stream);
        status |= read_val32(nullptr, stream);
        status |= read_val32(&duration, stream);
        if (status != 0) return 1;
        if (duration > remaining) return entry_in_standard_index(stream, ix_pos, remaining, e);
        remaining -= duration;
    }
    return 1;
}

int find_indx_entry(const aviin_handle *h, FILE *stream, uint32_t n, uint32_t s, index_entry &e) {
    if (h->indx_pos[s] == 0 || file_seek(stream, h->indx_pos[s], 0) != 0) return 1;
    const kelq::indx_header_copy &indx = h->indx_header[s];
    if (indx.index_type == index_of_chunks) return entry_in_chunk_index(stream, indx, n, e);
    if (indx.index_type == index_of_indexes) return entry_via_super_index(stream, indx, n, e);
    return 1;
}

}  // namespace

namespace kelq {

void decode_std_header(const uint8_t *b, std_index_header &r) {
    r.longs_per_entry = str2short(b + std_header_at::longs_per_entry);
    r.index_sub_type = b[std_header_at::index_sub_type];
    r.index_type = b[std_header_at::index_type];
    r.entries_in_use = str2long(b + std_header_at::entries_in_use);
    r.chunk_id = str2long(b + std_header_at::chunk_id);
    r.base_offset = str2longlong(b + std_header_at::base_offset);
    r.reserved = str2long(b + std_header_at::reserved);
}

uint32_t super_index_capacity(uint32_t chunk_size) {
    if (chunk_size < indx_header_size) return 0;
    return (chunk_size - indx_header_size) / super_entry_size;
}

int read_indx(aviin_handle *h, uint32_t swapped_ids) {
    if (h == nullptr) return 1;
    FILE *stream = kelq::index_stream(h);
    const int64_t at = file_tell(stream);
    if (at < 0) return 1;
    uint32_t size = 0;
    uint8_t bytes[indx_header_size];
    read_fourCC(nullptr, stream);
    read_val32(&size, stream);
    read_header_bytes(stream, bytes);
    const indx_header_copy indx = decode_indx_header(bytes);
    // Numbers from 20 to 99 name no stream slot: such an indx is passed over.
    const int32_t s = indx_stream_number(indx.chunk_id, swapped_ids);
    if (s >= 0 && s < max_stream_slots) {
        h->indx_pos[s] = at;
        h->indx_header[s] = indx;
    }
    // The size as stored: no pad byte after an odd size.
    return file_seek(stream, at + chunk_header_size + size, 0);
}

}  // namespace kelq

extern "C" {

std_index_header *avi2_parse_standard_index_chunk(const uint8_t *bytes) {
    if (bytes == nullptr) return nullptr;
    auto *r = static_cast<std_index_header *>(std::malloc(sizeof(std_index_header)));
    if (r != nullptr) decode_std_header(bytes, *r);
    return r;
}

int aviin_get_indx_entry(aviin_handle *h, uint32_t entry_number, uint32_t stream_number, uint32_t *type,
                         uint32_t *size, uint32_t *key_flags) {
    if (h == nullptr || stream_number >= kelq::max_stream_slots) return 1;
    FILE *stream = kelq::index_stream(h);
    const int64_t saved = file_tell(stream);
    if (saved < 0) return 1;
    index_entry e;
    const int result = find_indx_entry(h, stream, entry_number, stream_number, e);
    if (result == 0) {
        if (type != nullptr) *type = static_cast<uint32_t>(get_chunk_type(h->indx_header[stream_number].chunk_id, h->swapped_ids));
        if (size != nullptr) *size = e.size & ~not_key_frame;
        if (key_flags != nullptr) *key_flags = (e.size & not_key_frame) == 0 ? key_frame_flags : 0;
    }
    file_seek(stream, saved, 0);
    return result;
}

int avi2_get_index_entry(int64_t ix_position, aviin_handle *h, uint32_t entry_number, uint32_t stream_number,
                         uint32_t *type, uint32_t *size, uint32_t *key_flag) {
    if (h == nullptr) return 1;
    const std_index_header *cursor =
        stream_number < kelq::max_stream_slots ? h->std_index_header_ptr[stream_number] : nullptr;
    if (type != nullptr) *type = cursor != nullptr ? static_cast<uint32_t>(get_chunk_type(cursor->chunk_id, h->swapped_ids)) : 0;
    // Summed unsigned so that a hostile position wraps (and the seek fails)
    // instead of overflowing.
    const uint64_t at = static_cast<uint64_t>(ix_position) + kelq::index_entries_offset + static_cast<uint64_t>(std_entry_size) * entry_number;
    FILE *stream = kelq::index_stream(h);
    const int status = file_seek(stream, static_cast<int64_t>(at), 0);
    if (status != 0) return status;
    index_entry e;
    if (read_entry(stream, e) != 0) return status;
    // Unlike aviin_get_indx_entry: the size keeps bit 31, and the key flag
    // comes from bit 24 of the offset.
    if (size != nullptr) *size = e.size;
    if (key_flag != nullptr) *key_flag = (e.offset & offset_flag_bit) != 0 ? 0 : 1;
    return status;
}

int aviin_set_odml_cursor(aviin_handle *h, uint32_t stream_number, std_index_header *cursor) {
    if (h == nullptr || stream_number >= kelq::max_stream_slots) return 1;
    h->std_index_header_ptr[stream_number] = cursor;
    return 0;
}

}  // extern "C"
