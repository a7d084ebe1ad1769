// The main header (avih) and stream header (strh) chunks.
#include "kelqavi.h"
#include "riff/fourcc_ids.h"
#include "headers/record_layout.h"
#include "riff/le_bytes.h"

namespace {

using namespace kelq::ids;

}  // namespace

extern "C" {

int read_header_avih(avi_main_header *r, FILE *stream) {
    if (r == nullptr) return 1;
    uint32_t id = 0, size = 0;
    int status = read_fourCC(&id, stream);
    status |= read_val32(&size, stream);
    status |= kelq::read_fields(stream, r->micro_sec_per_frame, r->max_bytes_per_sec, r->padding_granularity,
                                r->flags, r->total_frames, r->initial_frames, r->streams,
                                r->suggested_buffer_size, r->width, r->height, r->reserved[0], r->reserved[1],
                                r->reserved[2], r->reserved[3]);
    if (!fourCC_equal(id, id_avih) || size < kelq::avih_size) status |= 1;
    // The pad byte of an odd size is left to the enclosing list's cursor.
    if (size > kelq::avih_size) status |= file_seek(stream, size - kelq::avih_size, 1);
    return status;
}

int32_t write_header_avih(const avi_main_header *r, FILE *stream) {
    if (r == nullptr) return -1;
    uint32_t ignored = 0;
    const int64_t size_pos = chunk_start(stream, &ignored);
    int status = write_fourCC(id_avih, stream);
    status |= write_val32(kelq::avih_size, stream);
    status |= kelq::write_fields(stream, r->micro_sec_per_frame, r->max_bytes_per_sec, r->padding_granularity,
                                 r->flags, r->total_frames, r->initial_frames, r->streams,
                                 r->suggested_buffer_size, r->width, r->height, r->reserved[0],
                                 r->reserved[1], r->reserved[2], r->reserved[3]);
    return status != 0 ? -1 : static_cast<int32_t>(static_cast<uint32_t>(size_pos));
}

int read_header_strh(avi_stream_header *r, FILE *stream) {
    if (r == nullptr) return 1;
    uint32_t id = 0, size = 0;
    int status = read_fourCC(&id, stream);
    status |= read_val32(&size, stream);
    status |= kelq::read_fields(stream, r->type, r->handler, r->flags, r->priority, r->language,
                                r->initial_frames, r->scale, r->rate, r->start, r->length,
                                r->suggested_buffer_size, r->quality, r->sample_size, r->frame_left,
                                r->frame_top, r->frame_right, r->frame_bottom);
    if (!fourCC_equal(id, id_strh) || size < kelq::strh_size) status |= 1;
    // Extra bytes are consumed by single-byte reads rather than a seek. Once
    // one fails the file has ended, and every later one would fail too.
    for (uint32_t i = kelq::strh_size; i < size; ++i) {
        if (read_val8(nullptr, stream) != 0) {
            status |= 1;
            break;
        }
    }
    return status;
}

int write_header_strh(const avi_stream_header *r, FILE *stream) {
    if (r == nullptr) return 1;
    int status = write_fourCC(id_strh, stream);
    status |= write_val32(kelq::strh_size, stream);
    status |= kelq::write_fields(stream, r->type, r->handler, r->flags, r->priority, r->language,
                                 r->initial_frames, r->scale, r->rate, r->start, r->length,
                                 r->suggested_buffer_size, r->quality, r->sample_size, r->frame_left,
                                 r->frame_top, r->frame_right, r->frame_bottom);
    return status;
}

}  // extern "C"
