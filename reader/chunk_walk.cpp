// Walking the chunks of the current "movi" list one after another, either
// whole into the caller's buffer or header by header, and reading or moving
// the walk by file offset.
#include "reader/reader_handle.h"
#include "reader/tolerant_rules.h"
#include "riff/riff_layout.h"
#include "riff/forward_read.h"
#include "riff/le_bytes.h"
#include "riff/stream_buffer.h"

namespace {

using kelq::chunk_id_size;
using kelq::chunk_header_size;
using kelq::origin_start;
using kelq::origin_end;
using kelq::result_ok;
using kelq::result_failed;
using kelq::result_end_of_list;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A data chunk id that can end a resync scan: recognised, and opening with
// the two digits of a stream number ("JUNK", RES1 or "ix00" do not), or an
// index chunk written "ix" first under the index-chunk tolerance.
bool ends_resync(aviin_handle *h, uint32_t id) {
    char text[5];
    fourCC_to_str(id, text);
    const uint32_t type = kelq::movi_chunk_type(h, id);
    if (type == KELQAVI_CHUNK_INDEX && text[0] == 'i' && kelq::tolerates(h, AVIIN_TOLERATE_INDEX_CHUNKS)) return true;
    return type != KELQAVI_CHUNK_UNKNOWN && is_digit(text[0]) && is_digit(text[1]);
}

// Looks for the next data chunk byte by byte from p + 4, storing the first
// byte of every id examined, the matching id's included (so a match after k
// skipped bytes stores k + 1). Bounded by the capacity and by the end of the
// file, where the step's read fails. The walk goes on at the last position
// examined: the match, or p + 3 when nothing was examined, so that a capacity
// of 0 or less creeps on by three bytes a call.
int resync_scan(aviin_handle *h, list_node *list, int64_t p, uint8_t *buffer, int32_t *size) {
    const int32_t capacity = *size;
    int32_t count = 0;
    while (count < capacity) {
        list->next_pos = p + chunk_id_size + count;
        const uint32_t id = next_chunk_in_list(list);
        if (list->status != 0) return result_failed;
        char text[5];
        fourCC_to_str(id, text);
        buffer[count++] = static_cast<uint8_t>(text[0]);
        if (ends_resync(h, id)) break;
    }
    list->next_pos = p + chunk_id_size + count - 1;
    *size = count;
    return result_ok;
}

// Reads the data of a recognised chunk whose header has been read; the
// stream stands after its size field. The cursor already lies past the chunk,
// so a chunk that does not fit is passed over for good. The pad byte is not read.
int read_chunk_body(list_node *list, uint32_t data_size, uint8_t *buffer, int32_t *size) {
    if (static_cast<int64_t>(*size) < static_cast<int64_t>(data_size)) return result_failed;
    const size_t got =
        kelq::buffered_read(list->stream, buffer, data_size) ? data_size : file_read(list->stream, buffer, data_size);
    *size = static_cast<int32_t>(got);
    return got == data_size ? result_ok : result_failed;
}

// Reads the size field and then the data of a recognised chunk; the stream
// stands after its id.
int read_chunk_data(list_node *list, uint8_t *buffer, int32_t *size) {
    uint32_t data_size = 0;
    list->status |= static_cast<uint32_t>(read_val32(&data_size, list->stream));
    if (list->status != 0) return result_failed;
    return read_chunk_body(list, data_size, buffer, size);
}

void describe_chunk(aviin_handle *h, uint32_t id, uint32_t *type, uint32_t *stream, char *name) {
    *stream = fourCC_streamID(id, h->swapped_ids);
    *type = kelq::movi_chunk_type(h, id);
    if (name != nullptr) fourCC_to_str(id, name);
}

// The step by seeks: to the chunk's header, back to it once its id and size
// are known, and a second read of the header. Taken whenever the header
// cannot be had in one read from where the stream stands, so that damaged
// lists, reads at the end of the file and a cursor moved by the caller end
// exactly as this step leaves them.
int step_by_seeking(aviin_handle *h, uint32_t *type, uint32_t *stream, uint8_t *buffer, int32_t *size,
                    char *name) {
    list_node *list = h->current_list;
    const int64_t p = list->next_pos;
    const uint32_t id = next_chunk_in_list(list);
    if (list->status != 0) return result_failed;
    // Tested after the header read, so a list ending at the end of the file fails instead.
    if (end_of_list(list)) return result_end_of_list;
    describe_chunk(h, id, type, stream, name);
    list->status |= static_cast<uint32_t>(read_fourCC(nullptr, list->stream));
    // A "LIST rec " header, an unknown chunk or damaged data.
    if (*type == KELQAVI_CHUNK_UNKNOWN) return resync_scan(h, list, p, buffer, size);
    return read_chunk_data(list, buffer, size);
}

// Reads the id and size of the chunk at p in one go when the stream gets
// there without a seek. False, with the stream anywhere, when it does not or
// fewer than eight bytes came.
bool read_header_in_place(FILE *f, int64_t p, uint32_t *id, uint32_t *data_size) {
    uint8_t bytes[chunk_header_size];
    if (!kelq::reach_by_reading(f, file_tell(f), p) ||
        (!kelq::buffered_read(f, bytes, sizeof bytes) && fread_unlocked(bytes, 1, sizeof bytes, f) != sizeof bytes))
        return false;
    *id = kelq::load_le<uint32_t>(bytes);
    *data_size = kelq::load_le<uint32_t>(bytes + chunk_id_size);
    return true;
}

}  // namespace

extern "C" {

int aviin_get_next_chunk(aviin_handle *h, uint32_t *type, uint32_t *stream, uint8_t *buffer, int32_t *size) {
    return aviin_get_next_chunk2(h, type, stream, buffer, size, nullptr);
}

int aviin_get_next_chunk2(aviin_handle *h, uint32_t *type, uint32_t *stream, uint8_t *buffer, int32_t *size,
                          char *name) {
    if (h == nullptr || h->current_list == nullptr || type == nullptr || stream == nullptr || size == nullptr)
        return result_failed;
    if (buffer == nullptr && *size > 0) return result_failed;
    list_node *list = h->current_list;
    const int64_t p = list->next_pos;
    uint32_t id = 0, data_size = 0;
    if (list->status != 0 || !read_header_in_place(list->stream, p, &id, &data_size))
        return step_by_seeking(h, type, stream, buffer, size, name);
    // From here on the stream holds what the step by seeking leaves, without its seeks.
    list->next_pos = p + padEven(static_cast<int64_t>(data_size)) + chunk_header_size;
    if (p >= list->start + static_cast<int64_t>(list->size)) {
        list->status |= static_cast<uint32_t>(file_seek(list->stream, p, origin_start));
        return result_end_of_list;
    }
    describe_chunk(h, id, type, stream, name);
    if (*type == KELQAVI_CHUNK_UNKNOWN) {
        list->status |= static_cast<uint32_t>(file_seek(list->stream, p + chunk_id_size, origin_start));
        return resync_scan(h, list, p, buffer, size);
    }
    return read_chunk_body(list, data_size, buffer, size);
}

int aviin_get_next_chunk_type(aviin_handle *h, uint32_t *type, uint32_t *stream, uint64_t *data_offset,
                              uint32_t *size) {
    if (h == nullptr || h->current_list == nullptr || type == nullptr || stream == nullptr ||
        data_offset == nullptr || size == nullptr)
        return result_failed;
    list_node *list = h->current_list;
    if (list->status != 0) return result_failed;
    int64_t p = file_tell(list->stream);
    if (p != list->next_pos) {
        if (!kelq::reach_by_reading(list->stream, p, list->next_pos))
            list->status |= static_cast<uint32_t>(file_seek(list->stream, list->next_pos, origin_start));
        p = list->next_pos;
    }
    if (list->start + static_cast<int64_t>(list->size) <= p) return result_end_of_list;
    // One read for the id and the size: the id fails when no byte came, the
    // size when no byte past the id did; missing high bytes stay zero.
    uint8_t bytes[chunk_header_size] = {};
    const size_t got = kelq::buffered_read(list->stream, bytes, sizeof bytes)
                           ? sizeof bytes
                           : fread_unlocked(bytes, 1, sizeof bytes, list->stream);
    if (got <= static_cast<size_t>(chunk_id_size)) list->status |= 1u;
    if (list->status != 0) return result_failed;
    const uint32_t id = kelq::load_le<uint32_t>(bytes);
    const uint32_t data_size = kelq::load_le<uint32_t>(bytes + chunk_id_size);
    *size = data_size;
    *stream = fourCC_streamID(id, h->swapped_ids);
    *type = kelq::movi_chunk_type(h, id);
    // The pad byte is added in 32 bits and the sum taken as signed: a size of
    // 0x80000000 or more moves the walk backwards.
    uint32_t advance = data_size + (data_size & 1u);
    int64_t data_pos = p + chunk_header_size;
    // An unrecognised id is stepped over by its four bytes alone, so a
    // "LIST rec " group takes three steps and the walk then stands inside it.
    if (*type == KELQAVI_CHUNK_UNKNOWN) {
        data_pos = p + chunk_id_size;
        advance = 0;
    }
    *data_offset = static_cast<uint64_t>(data_pos);
    list->next_pos = data_pos + static_cast<int32_t>(advance);
    return result_ok;
}

int aviin_get_chunk(aviin_handle *h, uint64_t offset, void *buffer, uint32_t size) {
    if (h == nullptr || h->current_list == nullptr) return result_failed;
    list_node *list = h->current_list;
    const int64_t position = static_cast<int64_t>(offset);
    if (file_tell(list->stream) != position)
        list->status |= static_cast<uint32_t>(file_seek(list->stream, position, origin_start));
    if (list->status != 0) return result_failed;
    return file_read(list->stream, buffer, size) == size ? result_ok : result_failed;
}

// Any offset up to the file's length is taken, inside the list or not: the
// stepping calls seek to the cursor before they read. The file is left at its end.
int aviin_seek_by_offset(aviin_handle *h, uint64_t offset) {
    if (h == nullptr || h->current_list == nullptr) return result_failed;
    list_node *list = h->current_list;
    const int64_t length = file_seek(list->stream, 0, origin_end) == 0 ? file_tell(list->stream) : -1;
    if (static_cast<int64_t>(offset) > length) return result_failed;
    list->next_pos = static_cast<int64_t>(offset);
    return result_ok;
}

}  // extern "C"
