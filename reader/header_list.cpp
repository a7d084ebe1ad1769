// Parsing the "hdrl" list: the main header, one "strl" list per stream and
// the OpenDML "odml" list, into the reader handle's stream tables.
#include "headers/record_layout.h"
#include "reader/open_refusal.h"
#include "reader/reader_handle.h"
#include "reader/tolerant_rules.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"

#include <cstdlib>
#include <cstring>

namespace {

using namespace kelq::ids;

constexpr char subtitle_prefix[] = "Subtitle";
constexpr char chapter_prefix[] = "Chapter";

FILE *stream_of(aviin_handle *h) { return h->current_list->stream; }

// Fails the stream's list; an open that asks why is told what was seen.
void fail(aviin_handle *h, uint32_t code, uint64_t size = 0, uint64_t limit = 0, uint32_t id = 0) {
    h->current_list->status = 1;
    if (h->refusal != nullptr)
        kelq::note_refusal(h, code, file_tell(stream_of(h)), size, id, h->stream_count - 1, limit);
}

// The list ended, or could not be read, where a chunk was looked for.
void fail_cut(aviin_handle *h) { fail(h, AVIIN_REFUSED_CUT_SHORT); }

// A stream of a kind whose table is full.
void fail_count(aviin_handle *h, uint32_t kind) {
    fail(h, AVIIN_REFUSED_TOO_MANY_STREAMS, 0, kelq::max_streams_per_kind, kind);
}

// Id of the chunk at the stream's position, without moving; 1 when the
// look-ahead could not read or seek.
int look_ahead(aviin_handle *h, uint32_t &id) {
    uint32_t size = 0, type = 0, status = 0;
    id = 0;
    const int seek = chunk_look_ahead(stream_of(h), &id, &size, &type, &status);
    return (static_cast<int>(status) | seek) != 0 ? 1 : 0;
}

// Counts a new stream of a kind; false when the kind is full.
bool take_slot(int32_t &count) {
    if (count >= kelq::max_streams_per_kind) return false;
    ++count;
    return true;
}

// Reads a "strn" chunk into a fresh block of length + 1 bytes (the last one
// unset). A chunk that does not read is ignored; a failed allocation fails
// the list. A negative length (size field with bit 15 set) fails it too, as
// no block of that size can be made.
bool read_name(aviin_handle *h, int32_t &name_length, char *&name) {
    stream_name read = {0, nullptr};
    uint32_t refusal = AVIIN_OPEN_OK;
    if (read_header_strn(&read, stream_of(h)) == 0) {
        std::free(name);
        name = nullptr;
        name_length = read.length;
        if (read.length < 0) {
            refusal = AVIIN_REFUSED_BAD_STREAM_NAME;
        } else if (read.name == nullptr) {
            refusal = AVIIN_REFUSED_NO_MEMORY;
        } else {
            name = static_cast<char *>(std::malloc(static_cast<size_t>(read.length) + 1));
            if (name == nullptr) refusal = AVIIN_REFUSED_NO_MEMORY;
            else std::memcpy(name, read.name, static_cast<size_t>(read.length));
        }
    }
    std::free(read.name);
    if (refusal != AVIIN_OPEN_OK) fail(h, refusal, static_cast<uint16_t>(read.length));
    return refusal == AVIIN_OPEN_OK;
}

void copy_code(char (&dst)[4], uint32_t code) {
    char text[5];
    fourCC_to_str(code, text);
    std::memcpy(dst, text, 4);
}

void copy_picture_fields(video_stream_format &e, const avi_stream_header &sh, const video_format &vf) {
    e.rate = sh.rate;
    e.scale = sh.scale;
    e.quality = sh.quality;
    e.width = vf.width;
    e.height = vf.height;
    copy_code(e.handler, sh.handler);
    copy_code(e.compression, vf.compression);
}

void clear_strd(video_stream_format &e) {
    std::free(e.strd_data);
    e.strd_data = nullptr;
    e.strd_present = 0;
    e.strd_header = 0;
    e.strd_size = 0;
    e.strd_position = 0;
}

// Audio and video streams end with an optional super index.
void index_step(aviin_handle *h, uint32_t swapped_ids) {
    uint32_t id = 0;
    if (look_ahead(h, id) != 0) return fail_cut(h);
    if (fourCC_equal(id, id_indx)) kelq::read_indx(h, swapped_ids);
}

void audio_path(aviin_handle *h, kelq::stream_entry &s, uint32_t swapped_ids) {
    audio_format wave{};
    if (!take_slot(h->audio_count)) return fail_count(h, KELQAVI_CHUNK_AUDIO);
    if (read_header_strf_audio(&wave, stream_of(h)) != 0) return fail(h, AVIIN_REFUSED_BAD_STREAM_FORMAT);
    audio_stream_format &e = h->audio_formats[h->audio_count - 1];
    std::free(e.name);
    e.name = nullptr;
    e.wave_format = wave;
    e.initial_frames = s.header.initial_frames;
    e.scale = s.header.scale;
    e.rate = s.header.rate;
    e.start = s.header.start;
    e.sample_size = s.header.sample_size;
    e.name_length = 0;
    s.kind = KELQAVI_CHUNK_AUDIO;
    s.kind_index = h->audio_count - 1;
    uint32_t id = 0;
    if (look_ahead(h, id) != 0) return fail_cut(h);
    if (fourCC_equal(id, id_strn) && !read_name(h, e.name_length, e.name)) return;
    index_step(h, swapped_ids);
}

// Copies a successfully read strd block into the entry; false on allocation failure.
bool keep_strd(video_stream_format &e, const stream_data_block &block) {
    if (block.data == nullptr && block.size != 0) return false;
    e.strd_present = 1;
    e.strd_header = block.header;
    e.strd_size = static_cast<int32_t>(block.size);
    e.strd_position = block.position;
    e.strd_data = static_cast<uint8_t *>(std::malloc(block.size != 0 ? block.size : 1));
    if (e.strd_data == nullptr) return false;
    if (block.size != 0) std::memcpy(e.strd_data, block.data, block.size);
    return true;
}

// The extra format bytes (under the long-format tolerance) go to the slot
// whatever follows, so that the slot's old block is freed or replaced.
void video_path(aviin_handle *h, kelq::stream_entry &s, const video_format &vf, uint32_t swapped_ids,
                uint8_t *extra, uint32_t extra_size) {
    if (!take_slot(h->video_count)) {
        std::free(extra);
        return fail_count(h, KELQAVI_CHUNK_VIDEO);
    }
    kelq::keep_video_format_extra(h, h->video_count - 1, extra, extra_size);
    video_stream_format &e = h->video_formats[h->video_count - 1];
    std::free(e.name);
    e.name = nullptr;
    e.name_length = 0;
    clear_strd(e);
    uint32_t id = 0;
    if (look_ahead(h, id) != 0) return fail_cut(h);
    if (fourCC_equal(id, id_strd)) {
        stream_data_block block = {0, 0, nullptr, 0};
        const bool ok = read_header_strd_video(&block, stream_of(h)) != 0 || keep_strd(e, block);
        std::free(block.data);
        if (!ok) return fail(h, AVIIN_REFUSED_NO_MEMORY);
    }
    s.kind = KELQAVI_CHUNK_VIDEO;
    s.kind_index = h->video_count - 1;
    copy_picture_fields(e, s.header, vf);
    if (look_ahead(h, id) != 0) return fail_cut(h);
    if (fourCC_equal(id, id_strn) && !read_name(h, e.name_length, e.name)) return;
    index_step(h, swapped_ids);
}

// A bitmap caption never has a strd block or a super index read for it.
void bitmap_caption_path(aviin_handle *h, kelq::stream_entry &s, const video_format &vf) {
    if (!take_slot(h->bitmap_caption_count)) return fail_count(h, KELQAVI_CHUNK_BITMAP_CAPTION);
    video_stream_format &e = h->bitmap_caption_formats[h->bitmap_caption_count - 1];
    std::free(e.name);
    e.name = nullptr;
    clear_strd(e);
    copy_code(e.handler, s.header.handler);
    copy_code(e.compression, vf.compression);
    uint32_t id = 0;
    if (look_ahead(h, id) != 0) return fail_cut(h);
    if (fourCC_equal(id, id_strn) && !read_name(h, e.name_length, e.name)) return;
    s.kind = KELQAVI_CHUNK_BITMAP_CAPTION;
    s.kind_index = h->bitmap_caption_count - 1;
    copy_picture_fields(e, s.header, vf);
}

// Why a video format chunk (at format_pos) was not taken: cut off by the end
// of the file, or longer than its header says (refused unless long formats
// are allowed), or shorter.
void fail_video_format(aviin_handle *h, const video_format &vf, int64_t format_pos) {
    FILE *f = stream_of(h);
    uint32_t size = 0;
    if (h->refusal == nullptr || file_eof(f) != 0 || file_seek(f, format_pos + 4, 0) != 0 || read_val32(&size, f) != 0)
        return fail(h, AVIIN_REFUSED_BAD_STREAM_FORMAT);
    const bool long_taken = kelq::tolerates(h, AVIIN_TOLERATE_LONG_VIDEO_FORMAT) && size > kelq::strf_video_size;
    if (size > vf.size && !long_taken) return fail(h, AVIIN_REFUSED_LONG_FORMAT, size, vf.size);
    if (size < vf.size) return fail(h, AVIIN_REFUSED_BAD_STREAM_FORMAT, size, vf.size);
    fail(h, AVIIN_REFUSED_BAD_STREAM_FORMAT);
}

// A bitmap caption's format is never longer than its header: extra bytes
// there fail the list even under the long-format tolerance.
void vids_path(aviin_handle *h, kelq::stream_entry &s, uint32_t swapped_ids) {
    video_format vf{};
    uint8_t *extra = nullptr;
    uint32_t extra_size = 0;
    const int64_t format_pos = file_tell(stream_of(h));
    if (kelq::read_video_strf(h, vf, extra, extra_size) != 0) return fail_video_format(h, vf, format_pos);
    if (!fourCC_equal(vf.compression, bitmap_caption_code)) return video_path(h, s, vf, swapped_ids, extra, extra_size);
    if (extra != nullptr) {
        std::free(extra);
        return fail(h, AVIIN_REFUSED_LONG_FORMAT, kelq::strf_video_size + static_cast<uint64_t>(extra_size),
                    kelq::strf_video_size);
    }
    bitmap_caption_path(h, s, vf);
}

// Text streams are told apart by their name: "Subtitle..." or "Chapter...".
// The name only classifies; it is not kept.
void text_path(aviin_handle *h, kelq::stream_entry &s) {
    FILE *f = stream_of(h);
    const int64_t format_pos = file_tell(f);
    uint32_t size = 0;
    read_fourCC(nullptr, f);
    read_val32(&size, f);
    file_seek(f, size, 1);
    const int64_t after_format = file_tell(f);
    uint32_t id = 0;
    if (look_ahead(h, id) != 0) return fail_cut(h);
    if (!fourCC_equal(id, id_strn)) {
        file_seek(f, after_format, 0);
        return;
    }
    stream_name name = {0, nullptr};
    if (read_header_strn(&name, f) != 0 || name.name == nullptr) {
        std::free(name.name);
        return;
    }
    const bool subtitle = std::strncmp(name.name, subtitle_prefix, sizeof subtitle_prefix - 1) == 0;
    const bool chapter = !subtitle && std::strncmp(name.name, chapter_prefix, sizeof chapter_prefix - 1) == 0;
    std::free(name.name);
    if (!subtitle && !chapter) return;

    file_seek(f, format_pos, 0);
    int32_t &count = subtitle ? h->text_caption_count : h->chapter_count;
    caption_stream_format *table = subtitle ? h->text_caption_formats : h->chapter_formats;
    caption_format format{};
    if (!take_slot(count)) return fail_count(h, subtitle ? KELQAVI_CHUNK_TEXT_CAPTION : KELQAVI_CHUNK_CHAPTER);
    const int read = subtitle ? read_header_strf_text_caption(&format, f) : read_header_strf_chapter(&format, f);
    if (read != 0) return fail(h, AVIIN_REFUSED_BAD_STREAM_FORMAT);
    caption_stream_format &e = table[count - 1];
    std::free(e.name);
    e.format = format;
    e.name = nullptr;
    e.name_length = 0;
    s.kind = subtitle ? KELQAVI_CHUNK_TEXT_CAPTION : KELQAVI_CHUNK_CHAPTER;
    s.kind_index = count - 1;
}

// The strl list does not begin with a readable "strh": which id is there.
void fail_stream_header(aviin_handle *h) {
    uint32_t id = 0;
    FILE *f = stream_of(h);
    if (h->refusal != nullptr && file_seek(f, h->current_list->start + 12, 0) == 0) read_fourCC(&id, f);
    fail(h, AVIIN_REFUSED_BAD_STREAM_HEADER, 0, 0, id);
}

void read_odml(aviin_handle *h) {
    FILE *f = stream_of(h);
    read_fourCC(nullptr, f);
    read_val32(nullptr, f);
    read_val32(&h->odml_total_frames, f);
}

}  // namespace

namespace kelq {

void read_strl(aviin_handle *h, uint32_t swapped_ids) {
    // The count is raised before the check, so the 20th list is refused.
    if (h->stream_count >= max_stream_slots || ++h->stream_count >= max_stream_slots)
        return fail(h, AVIIN_REFUSED_TOO_MANY_STREAMS, 0, max_stream_slots - 1);
    stream_entry &s = h->streams[h->stream_count - 1];
    s.kind = KELQAVI_CHUNK_UNKNOWN;
    if (read_header_strh(&s.header, stream_of(h)) != 0) return fail_stream_header(h);
    if (fourCC_equal(s.header.type, type_auds)) return audio_path(h, s, swapped_ids);
    if (fourCC_equal(s.header.type, type_txts)) return text_path(h, s);
    if (fourCC_equal(s.header.type, type_vids)) return vids_path(h, s, swapped_ids);
}

void read_hdrl(aviin_handle *h, uint32_t swapped_ids) {
    list_node *hdrl = h->current_list;
    const uint32_t first = next_chunk_in_list(hdrl);
    hdrl->status |= static_cast<uint32_t>(end_of_list(hdrl));
    if (!fourCC_equal(first, id_avih)) hdrl->status |= 1;
    if (hdrl->status != 0) return kelq::note_refusal(h, AVIIN_REFUSED_NO_AVIH, hdrl->start, 0, id_list);
    read_header_avih(&h->main_header, hdrl->stream);
    while (hdrl->status == 0 && !end_of_list(hdrl)) {
        if (!fourCC_equal(next_chunk_in_list(hdrl), id_list)) continue;
        const int64_t child_pos = file_tell(hdrl->stream);
        list_node *child = new_list(hdrl, hdrl->stream);
        if (child == nullptr) {
            hdrl->status |= 1;
            return kelq::note_refusal(h, AVIIN_REFUSED_CUT_SHORT, child_pos, 0, id_list);
        }
        h->current_list = child;
        if (fourCC_equal(child->type, id_strl)) {
            read_strl(h, swapped_ids);
            if (child->status != 0) return;
        } else if (fourCC_equal(child->type, id_odml)) {
            read_odml(h);
        }
        h->current_list = ascend_list(child);
    }
}

}  // namespace kelq
