// Stream format (strf) chunks: video, audio, and the shared chapter and
// text-caption layout; plus the MPEG layer-3 extra bytes.
#include "kelqavi.h"
#include "riff/fourcc_ids.h"
#include "headers/record_layout.h"
#include "riff/le_bytes.h"

namespace {

using namespace kelq::ids;

static_assert(sizeof(audio_format) == 40, "audio format record");
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(video_stream_format) == 68, "video stream format on 32-bit targets");
static_assert(sizeof(audio_stream_format) == 92, "audio stream format on 32-bit targets");
static_assert(sizeof(caption_stream_format) == 16, "caption stream format on 32-bit targets");
#endif

}  // namespace

namespace kelq {

int read_bitmap_fields(video_format *r, FILE *stream) {
    return read_fields(stream, r->size, r->width, r->height, r->planes, r->bit_count, r->compression, r->size_image,
                       r->x_pels_per_meter, r->y_pels_per_meter, r->clr_used, r->clr_important);
}

}  // namespace kelq

extern "C" {

int read_header_strf_video(video_format *r, FILE *stream) {
    if (r == nullptr) return 1;
    uint32_t id = 0, size = 0;
    int status = read_fourCC(&id, stream);
    status |= read_val32(&size, stream);
    status |= kelq::read_bitmap_fields(r, stream);
    // Trailing bytes after the bitmap header count as a failure.
    if (size != r->size) status |= 1;
    return status;
}

int write_header_strf_video(const video_format *r, FILE *stream) {
    if (r == nullptr) return 1;
    int status = write_fourCC(id_strf, stream);
    status |= write_val32(kelq::strf_video_size, stream);
    status |= kelq::write_fields(stream, r->size, r->width, r->height, r->planes, r->bit_count, r->compression,
                                 r->size_image, r->x_pels_per_meter, r->y_pels_per_meter, r->clr_used,
                                 r->clr_important);
    return status;
}

int read_header_strf_audio(audio_format *r, FILE *stream) {
    if (r == nullptr) return 1;
    uint32_t id = 0, size = 0;
    int status = read_fourCC(&id, stream);
    status |= read_val32(&size, stream);
    status |= kelq::read_fields(stream, r->format_tag, r->channels, r->samples_per_sec, r->avg_bytes_per_sec,
                                r->block_align, r->bits_per_sample);
    if (size <= kelq::strf_audio_fixed_size) {
        r->cb_size = 0;
        return status;
    }
    status |= kelq::read_field(r->cb_size, stream);
    // A count the extra area cannot hold is kept as read, with no bytes read.
    if (r->cb_size >= 1 && r->cb_size <= kelq::strf_audio_extra_capacity)
        for (uint16_t i = 0; i < r->cb_size; ++i) status |= kelq::read_field(r->extra[i], stream);
    return status;
}

int write_header_strf_audio(const audio_format *r, FILE *stream) {
    if (r == nullptr || r->cb_size > kelq::strf_audio_extra_capacity) return 1;
    int status = write_fourCC(id_strf, stream);
    status |= write_val32(kelq::strf_audio_base_size + r->cb_size, stream);
    status |= kelq::write_fields(stream, r->format_tag, r->channels, r->samples_per_sec, r->avg_bytes_per_sec,
                                 r->block_align, r->bits_per_sample, r->cb_size);
    status |= file_write(stream, r->extra, r->cb_size) == r->cb_size ? 0 : 1;
    // The pad byte is outside the chunk's stated size.
    if (r->cb_size % 2 != 0) status |= write_val8(0, stream);
    return status;
}

// On disk the last two values are exchanged: memory order 0, 1, 3, 2.
int read_header_strf_chapter(caption_format *r, FILE *stream) {
    if (r == nullptr) return 1;
    int status = read_fourCC(nullptr, stream);
    status |= read_val32(nullptr, stream);
    status |= kelq::read_fields(stream, r->value[0], r->value[1], r->value[3], r->value[2]);
    return status;
}

int write_header_strf_chapter(const caption_format *r, FILE *stream) {
    if (r == nullptr) return 1;
    int status = write_fourCC(id_strf, stream);
    status |= write_val32(kelq::strf_caption_size, stream);
    status |= kelq::write_fields(stream, r->value[0], r->value[1], r->value[3], r->value[2]);
    return status;
}

// Text captions share the chapter layout: one body under two names.
int read_header_strf_text_caption(caption_format *, FILE *) __attribute__((alias("read_header_strf_chapter")));
int write_header_strf_text_caption(const caption_format *, FILE *)
    __attribute__((alias("write_header_strf_chapter")));

void strf_mp3_extra_to_buffer(const mp3_format_extra *s, uint8_t *buffer) {
    if (s == nullptr || buffer == nullptr) return;
    kelq::store_le<uint16_t>(s->id, buffer);
    kelq::store_le<uint32_t>(s->flags, buffer + 2);
    kelq::store_le<uint16_t>(s->block_size, buffer + 6);
    kelq::store_le<uint16_t>(s->frames_per_block, buffer + 8);
    kelq::store_le<uint16_t>(s->codec_delay, buffer + 10);
}

}  // extern "C"
