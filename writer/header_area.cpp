// The header area: everything before the first data chunk. Written at the
// first chunk and again, over the same bytes, with the final counts.
#include "extensions/extension_write.h"
#include "odml/index_build.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"
#include "writer/writer_internal.h"

#include <cstdlib>
#include <cstring>

namespace kelq {

namespace {

using namespace ids;

constexpr uint32_t placeholder = 0xFFFFFFFFu;
constexpr uint32_t no_quality = 0xFFFFFFFFu;
constexpr uint32_t bitmap_info_size = 40;
constexpr uint16_t video_bit_count = 24;
constexpr uint16_t bitmap_caption_bit_count = 4;
constexpr uint32_t bitmap_caption_flags = 1;
constexpr uint32_t caption_scale = 1;
constexpr uint32_t caption_rate = 1000;

constexpr uint32_t handler_replaced = fourcc("kelq");
constexpr uint32_t compression_replaced = fourcc("KQ50");

uint32_t code_of(const char (&chars)[4]) { return load_le<uint32_t>(reinterpret_cast<const uint8_t *>(chars)); }

bool is_xvid(uint32_t code) { return code == fourcc("xvid") || code == fourcc("XVID"); }

// By default xvid streams get the library's own codes; the
// standard profile keeps the caller's, so players find the decoder.
uint32_t stored_code(const aviout_handle *w, uint32_t code, uint32_t replacement) {
    return w->standard_profile == 0 && is_xvid(code) ? replacement : code;
}

// Bytes of one uncompressed frame, by the compression code.
uint32_t video_image_size(uint32_t compression, int32_t width, int32_t height) {
    const int64_t pixels = static_cast<int64_t>(width) * height;
    if (compression == fourcc("IYUV") || compression == fourcc("YV12") || compression == fourcc("I420"))
        return static_cast<uint32_t>(pixels * 3 / 2);
    if (compression == fourcc("UYVY") || compression == fourcc("YUY2") || compression == fourcc("YUYV") ||
        compression == fourcc("V422"))
        return static_cast<uint32_t>(pixels * 2);
    return static_cast<uint32_t>(pixels * 3);   // "    ", "DIB ", "RGB" and the rest
}

// The strh values a stream kind decides; length, suggested buffer size and
// sample size are the counted ones and stay as they are.
struct strh_values {
    uint32_t type, handler, flags, initial_frames, scale, rate, start, quality;
    int32_t width, height;   // the frame rectangle's right and bottom
};

void set_frame(avi_stream_header &h, int32_t width, int32_t height) {
    h.frame_left = 0;
    h.frame_top = 0;
    h.frame_right = static_cast<int16_t>(width);
    h.frame_bottom = static_cast<int16_t>(height);
}

void fill_strh(avi_stream_header &h, const strh_values &v) {
    h.type = v.type;
    h.handler = v.handler;
    h.flags = v.flags;
    h.priority = 0;
    h.language = 0;
    h.initial_frames = v.initial_frames;
    h.scale = v.scale;
    h.rate = v.rate;
    h.start = v.start;
    h.quality = v.quality;
    set_frame(h, v.width, v.height);
}

video_format bitmap_info(int32_t width, int32_t height, uint16_t bit_count, uint32_t compression,
                         uint32_t size_image) {
    video_format f{};
    f.size = bitmap_info_size;
    f.width = width;
    f.height = height;
    f.planes = 1;
    f.bit_count = bit_count;
    f.compression = compression;
    f.size_image = size_image;
    return f;
}

int write_name(int32_t length, char *name, FILE *file) {
    const stream_name n{static_cast<int16_t>(length), name};
    return write_header_strn(&n, file);
}

// The strd block goes out from a copy of the stream's block.
void write_strd(aviout_handle *w, const video_stream_format &r) {
    const size_t size = static_cast<size_t>(r.strd_size > 0 ? r.strd_size : 0);
    auto *copy = static_cast<uint8_t *>(std::malloc(size > 0 ? size : 1));
    if (copy == nullptr || (size > 0 && r.strd_data == nullptr)) {
        std::free(copy);
        w->error = 1;
        return;
    }
    if (size > 0) std::memcpy(copy, r.strd_data, size);
    const stream_data_block block{r.strd_header, static_cast<uint32_t>(size), copy, 0};
    if (write_header_strd_video(&block, w->file) != 0) w->error = 1;
    std::free(copy);
}

void write_video_stream(aviout_handle *w, int32_t stream, avi_stream_header &h, const video_stream_format &r) {
    const uint32_t handler = code_of(r.handler);
    fill_strh(h, {type_vids, stored_code(w, handler, handler_replaced), 0, 0, r.scale, r.rate, 0, r.quality,
                  r.width, r.height});
    // A rate of 0 would divide by zero: the field stays as it was.
    const int32_t rate = static_cast<int32_t>(r.rate);
    if (rate != 0)
        w->main_header.micro_sec_per_frame =
            static_cast<uint32_t>((static_cast<int64_t>(r.scale) * 1000000 + rate / 2) / rate);
    w->main_header.width = static_cast<uint32_t>(r.width);
    w->main_header.height = static_cast<uint32_t>(r.height);

    const uint32_t compression = code_of(r.compression);
    const video_format f = bitmap_info(r.width, r.height, video_bit_count,
                                       stored_code(w, compression, compression_replaced),
                                       video_image_size(compression, r.width, r.height));
    int status = write_header_strh(&h, w->file);
    status |= write_header_strf_video(&f, w->file);
    if (status != 0) w->error = 1;
    if (r.strd_present != 0) write_strd(w, r);
    if (write_name(r.name_length, r.name, w->file) != 0) w->error = 1;
    if (w->odml == 1) write_super_index(w, stream);
}

void write_audio_stream(aviout_handle *w, int32_t stream, avi_stream_header &h, const audio_stream_format &r) {
    fill_strh(h, {type_auds, 0, 0, r.initial_frames, r.scale, r.rate, r.start, no_quality, 0, 0});
    int status = write_header_strh(&h, w->file);
    status |= write_header_strf_audio(&r.wave_format, w->file);
    status |= write_name(r.name_length, r.name, w->file);
    if (status != 0) w->error = 1;
    if (w->odml == 1) write_super_index(w, stream);
}

void write_caption_stream(aviout_handle *w, int32_t stream, avi_stream_header &h, const caption_stream_format &r,
                          bool chapter) {
    // By default no timing at all. The standard profile gives the stream
    // millisecond ticks, so players that divide by the rate can.
    const bool timed = w->standard_profile != 0;
    fill_strh(h, {type_txts, 0, 0, 0, timed ? caption_scale : 0, timed ? caption_rate : 0, 0, no_quality, 0, 0});
    h.length = 0;   // caption chunks are counted but never reported
    int status = write_header_strh(&h, w->file);
    status |= chapter ? write_header_strf_chapter(&r.format, w->file)
                      : write_header_strf_text_caption(&r.format, w->file);
    status |= write_name(r.name_length, r.name, w->file);
    if (status != 0) w->error = 1;
    if (has_track(w, stream)) write_super_index(w, stream);
}

void write_bitmap_caption_stream(aviout_handle *w, int32_t stream, avi_stream_header &h, const video_stream_format &r) {
    fill_strh(h, {type_vids, code_of(r.handler), bitmap_caption_flags, 0, r.scale, r.rate, 0, r.quality, r.width,
                  r.height});
    const int64_t half_image = static_cast<int64_t>(r.width) * r.height / 2;
    const video_format f = bitmap_info(r.width, r.height, bitmap_caption_bit_count, code_of(r.compression),
                                       static_cast<uint32_t>(half_image));
    int status = write_header_strh(&h, w->file);
    status |= write_header_strf_video(&f, w->file);
    status |= write_name(r.name_length, r.name, w->file);
    if (status != 0) w->error = 1;
    if (has_track(w, stream)) write_super_index(w, stream);
}

template <size_t N>
bool within(uint32_t index, const int32_t count) {
    return index < N && static_cast<int32_t>(index) < count;
}

void write_dmlh(aviout_handle *w, uint32_t *status) {
    static constexpr uint8_t zeros[dmlh_zero_bytes] = {};
    const int64_t list_mark = write_list_header(id_odml, w->file, status);
    const int64_t size_pos = chunk_start(w->file, status);
    *status |= static_cast<uint32_t>(write_fourCC(fourcc("dmlh"), w->file));
    *status |= static_cast<uint32_t>(write_val32(placeholder, w->file));
    *status |= static_cast<uint32_t>(write_val32(w->odml_total_frames, w->file));
    *status |= file_write(w->file, zeros, sizeof zeros) == sizeof zeros ? 0u : 1u;
    chunk_end(size_pos, w->file, status);
    end_mark(list_mark, w->file, status);
}

}  // namespace

void write_stream_header(aviout_handle *w, int32_t stream) {
    aviout_stream_entry &entry = w->stream_table[stream];
    avi_stream_header &h = entry.header;
    const uint32_t i = entry.sub_index;
    const int64_t strl_mark = write_list_header(id_strl, w->file, &w->error);
    switch (entry.stream_kind) {
    case kind_video:
        if (within<AVIOUT_MAX_VIDEO>(i, w->video_count)) write_video_stream(w, stream, h, w->video_formats[i]);
        break;
    case kind_audio:
        if (within<AVIOUT_MAX_AUDIO>(i, w->audio_count)) write_audio_stream(w, stream, h, w->audio_formats[i]);
        break;
    case kind_text_caption:
        if (within<AVIOUT_MAX_TEXT_CAPTIONS>(i, w->text_caption_count))
            write_caption_stream(w, stream, h, w->text_captions[i], false);
        break;
    case kind_chapter:
        if (within<AVIOUT_MAX_CHAPTERS>(i, w->chapter_count)) write_caption_stream(w, stream, h, w->chapters[i], true);
        break;
    case kind_bitmap_caption:
        if (within<AVIOUT_MAX_BITMAP_CAPTIONS>(i, w->bitmap_caption_count))
            write_bitmap_caption_stream(w, stream, h, w->bitmap_captions[i]);
        break;
    default:
        w->error = 1;
        break;
    }
    end_mark(strl_mark, w->file, &w->error);
}

void write_header_area(aviout_handle *w) {
    w->riff_mark = write_RIFF_form_header(type_avi, w->file, &w->error);
    const int64_t hdrl_mark = write_list_header(type_hdrl, w->file, &w->error);
    if (write_header_avih(&w->main_header, w->file) == -1) w->error = 1;
    const int32_t streams = w->stream_count < AVIOUT_MAX_STREAMS ? w->stream_count : AVIOUT_MAX_STREAMS - 1;
    for (int32_t s = 0; s < streams; ++s) write_stream_header(w, s);
    uint32_t local = 0;
    write_dmlh(w, &local);
    end_mark(hdrl_mark, w->file, &w->error);
    // The standard profile leaves the filler zero: some tools show the text
    // of a "JUNK" chunk as the name of the program that wrote the file.
    if (w->standard_profile != 0)
        kelq::junk_pad_zeroed(header_alignment, w->file, &local);
    else
        junk_pad(header_alignment, w->file, &local);
    write_kqdt(w);
    if (w->menu_file_head != nullptr) write_menu_chunk(w->menu_file_head, w);
}

}  // namespace kelq
