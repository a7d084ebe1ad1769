// The bytes of a data chunk on their way into the stream's buffer, kept
// lined up with the file.
//
// A file written straight through goes out in whole buffers at multiples
// of the buffer size, and the kernel caches each such write in one large
// page; a write that starts elsewhere is cached in many small pages and
// costs the kernel a good deal more. Any flush at another position (the
// header area going out before the first chunk, a checkpoint, a seek by
// the caller) shifts every later buffer write. So while the buffer does not
// start on a multiple of its size, the chunk that reaches the next multiple
// is split there by one more flush, and the writes line up again.
#include "riff/file_extent.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"
#include "writer/writer_internal.h"

#include <stdio_ext.h>

namespace kelq {

namespace {

// The next multiple of the buffer size after where the stream's buffer
// starts, when that start is not one; -1 when the writes line up (or the
// stream kept a buffer of its own, whose size is not known).
int64_t realign_at(const aviout_handle *w, int64_t here) {
    if (w->io_buffer == nullptr || here < 0) return -1;
    const int64_t start = here - static_cast<int64_t>(__fpending(w->file));
    const int64_t block = static_cast<int64_t>(io_buffer_size);
    if (start < 0 || start % block == 0) return -1;
    // Bytes written past that multiple by other steps (an ix## chunk, the
    // header a checkpoint leaves) cannot be split: the buffer goes out when
    // full, and the chunk that reaches the multiple after that splits.
    const int64_t boundary = (start / block + 1) * block;
    return boundary < here ? -1 : boundary;
}

struct piece {
    const uint8_t *bytes;
    size_t count;
};

// The pieces one after the other from position here, with a flush where
// they reach boundary; 0, or 1 when a write fell short.
int write_split(FILE *file, const piece *pieces, size_t n, int64_t here, int64_t boundary) {
    bool flushed = false;
    for (size_t i = 0; i < n; ++i) {
        const int64_t end = here + static_cast<int64_t>(pieces[i].count);
        size_t done = 0;
        if (!flushed && end >= boundary) {
            done = static_cast<size_t>(boundary - here);
            if (done > 0 && file_write(file, pieces[i].bytes, done) != done) return 1;
            if (flush_in_place(file, boundary) != 0) return 1;
            flushed = true;
        }
        const size_t rest = pieces[i].count - done;
        if (rest > 0 && file_write(file, pieces[i].bytes + done, rest) != rest) return 1;
        here = end;
    }
    return 0;
}

// Into the stream's buffer byte by byte, least significant first: inline
// on most C libraries, far cheaper than a call for so few bytes.
int put_le32(uint32_t value, FILE *file) {
    for (int i = 0; i < 4; ++i)
        if (putc_unlocked(static_cast<uint8_t>(value >> (8 * i)), file) == EOF) return 1;
    return 0;
}

}  // namespace

int write_chunk(aviout_handle *w, uint32_t id, const uint8_t *data, uint32_t size, int64_t here) {
    const uint8_t pad = 0;
    const size_t total = chunk_header_size + size + size % 2;
    const int64_t boundary = realign_at(w, here);
    if (boundary >= 0 && here + static_cast<int64_t>(total) >= boundary) {
        uint8_t header[chunk_header_size];
        store_le<uint32_t>(id, header);
        store_le<uint32_t>(size, header + chunk_id_size);
        const piece pieces[] = {{header, sizeof header}, {data, size}, {&pad, size % 2}};
        return write_split(w->file, pieces, 3, here, boundary);
    }
    FILE *file = w->file;
    if (put_le32(id, file) != 0 || put_le32(size, file) != 0) return 1;
    if (size > 0 && file_write(file, data, size) != size) return 1;
    if (size % 2 != 0 && putc_unlocked(pad, file) == EOF) return 1;
    return 0;
}

}  // namespace kelq
