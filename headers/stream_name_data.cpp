// The stream name (strn) and the opaque per-stream data block (strd).
#include "kelqavi.h"
#include "riff/fourcc_ids.h"
#include "headers/record_layout.h"
#include "riff/file_extent.h"
#include "riff/le_bytes.h"

#include <cstdlib>
#include <cstring>

namespace {

using namespace kelq::ids;

// Reads count bytes; 1 when any of them was missing, as a run of single-byte
// reads would report.
int read_bytes(uint8_t *dst, uint32_t count, FILE *stream) {
    return file_read(stream, dst, count) == count ? 0 : 1;
}

}  // namespace

extern "C" {

int read_header_strn(stream_name *r, FILE *stream) {
    if (r == nullptr) return 1;
    uint32_t id = 0, size = 0;
    int status = read_fourCC(&id, stream);
    if (!fourCC_equal(id, id_strn)) return 1;
    status |= read_val32(&size, stream);
    std::free(r->name);
    r->name = nullptr;
    r->length = static_cast<int16_t>(static_cast<uint16_t>(size));
    // A missing name is not an error: the record keeps a null name.
    if (r->length < 0) return status;
    const size_t length = static_cast<size_t>(r->length);
    // A name longer than the whole file is a size field no file of this
    // length can hold: it is not allocated. A shorter one cut off by the
    // end of the file keeps the bytes that are there.
    const int64_t whole = kelq::file_length(stream);
    if (whole < 0 || length > static_cast<uint64_t>(whole)) {
        file_seek(stream, 0, 2);
        return 1;
    }
    r->name = static_cast<char *>(std::calloc(length + 1, 1));
    if (r->name == nullptr) return status;
    if (length > 0) status |= read_bytes(reinterpret_cast<uint8_t *>(r->name), static_cast<uint32_t>(length), stream);
    return status;
}

int write_header_strn(const stream_name *r, FILE *stream) {
    if (r == nullptr || r->length < 0 || (r->name == nullptr && r->length > 0)) return 1;
    const uint32_t length = static_cast<uint32_t>(r->length);
    // Unlike a format's pad byte, the name's pad byte is counted in the size.
    int status = write_fourCC(id_strn, stream);
    status |= write_val32(static_cast<uint32_t>(padEven(length)), stream);
    if (length > 0) status |= file_write(stream, r->name, length) == length ? 0 : 1;
    if (length % 2 != 0) status |= write_val8(0, stream);
    return status;
}

int read_header_strd_video(stream_data_block *r, FILE *stream) {
    if (r == nullptr) return 1;
    uint32_t id = 0;
    int status = read_fourCC(&id, stream);
    if (!fourCC_equal(id, id_strd)) return 1;
    status |= read_val32(nullptr, stream);
    status |= read_val32(&r->header, stream);
    status |= read_val32(&r->size, stream);
    r->data = nullptr;
    // A block longer than the whole file is a size field no file of this
    // length can hold: it is not allocated. A shorter one cut off by the end
    // of the file keeps the bytes that are there, as names do.
    const int64_t whole = kelq::file_length(stream);
    if (whole < 0 || r->size > static_cast<uint64_t>(whole)) {
        r->position = static_cast<uint32_t>(file_tell(stream));
        file_seek(stream, 0, 2);
        return 1;
    }
    r->data = static_cast<uint8_t *>(std::calloc(r->size != 0 ? r->size : 1, 1));
    if (r->data == nullptr) return 0;
    r->position = static_cast<uint32_t>(file_tell(stream));
    status |= read_bytes(r->data, r->size, stream);
    return status;
}

int write_header_strd_video(const stream_data_block *r, FILE *stream) {
    if (r == nullptr) return 0;
    if (r->data == nullptr && r->size != 0) return 1;
    int status = write_fourCC(id_strd, stream);
    status |= write_val32(r->size + kelq::strd_prefix_size, stream);
    status |= write_val32(r->header, stream);
    status |= write_val32(r->size, stream);
    if (r->size > 0) status |= file_write(stream, r->data, r->size) == r->size ? 0 : 1;
    return status;
}

}  // extern "C"
