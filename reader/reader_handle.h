// The reader handle: one flat record with fixed-size tables, allocated and
// zeroed at open and released at close. Every reader source reads its fields
// directly.
#pragma once

#include "kelqavi.h"

#include <cstdint>

namespace kelq {

struct open_refusal;

constexpr int max_stream_slots = 20;     // the 20th "strl" list is refused
constexpr int max_streams_per_kind = 12;
constexpr int indx_header_size = 24;
// Bytes of the stdio buffer a reader gives its file: a power of two, since
// stdio aligns the read after a seek to a multiple of it.
constexpr size_t reader_buffer_size = 32 * 1024;

struct stream_entry {
    avi_stream_header header;
    uint32_t kind;        // chunk type code of the stream kind; 0 = unclassified
    int32_t kind_index;   // index in the table of its kind
};

// Parsed copy of an indx chunk's 24-byte header.
struct indx_header_copy {
    uint16_t longs_per_entry;
    uint8_t index_sub_type;
    uint8_t index_type;
    uint32_t entries_in_use;
    uint32_t chunk_id;
    uint32_t reserved[3];
};

}  // namespace kelq

struct aviin_handle {
    list_node *current_list;
    avi_main_header main_header;
    uint32_t odml_total_frames;
    video_stream_format video_formats[kelq::max_streams_per_kind];
    int32_t video_count;
    audio_stream_format audio_formats[kelq::max_streams_per_kind];
    int32_t audio_count;
    caption_stream_format text_caption_formats[kelq::max_streams_per_kind];
    int32_t text_caption_count;
    video_stream_format bitmap_caption_formats[kelq::max_streams_per_kind];
    int32_t bitmap_caption_count;
    caption_stream_format chapter_formats[kelq::max_streams_per_kind];
    int32_t chapter_count;
    kelq::stream_entry streams[kelq::max_stream_slots];
    int32_t stream_count;
    uint32_t menu_found;
    int32_t menu_size;
    uint8_t *menu_data;
    uint32_t kmnu_list_found;
    uint32_t metadata_found;
    int32_t metadata_size;
    uint8_t *metadata_data;
    uint32_t kqdt_list_found;
    std_index_header *std_index_header_ptr[kelq::max_stream_slots];  // the per-stream odml cursor
    int64_t indx_pos[kelq::max_stream_slots];
    kelq::indx_header_copy indx_header[kelq::max_stream_slots];
    uint32_t swapped_ids;
    int64_t idx1_pos;
    int64_t kqdt_list_pos;
    int64_t kmnu_list_pos;
    int64_t movi_data_pos;
    int32_t riff_count;
    uint32_t menu_chunk_found;
    int32_t menu_chunk_size;
    uint8_t *menu_chunk_data;
    int64_t menu_form_pos;
    int64_t menu_cursor_pos;
    // The open file, kept apart from the list stack so that it is closed even
    // when a failure leaves the handle standing in no list.
    FILE *file;
    // The stream's buffer, sized for walks over many small chunks. Part of
    // the record, so it outlives the stream, which is closed first.
    uint8_t file_buffer[kelq::reader_buffer_size];
    // Tolerant reading: the AVIIN_TOLERATE_ flags asked for at open, and
    // those the file has needed so far.
    uint32_t tolerances;
    uint32_t tolerances_needed;
    // Bytes of each video format past its 40-byte header, by index among
    // video streams; taken only under the long-format tolerance.
    uint8_t *video_format_extra[kelq::max_streams_per_kind];
    uint32_t video_format_extra_size[kelq::max_streams_per_kind];
    // Which way the legacy index at idx1_checked_pos counts its offsets, as
    // found for the "movi" list at idx1_checked_movi (0, 0: not looked yet).
    int64_t idx1_checked_pos;
    int64_t idx1_checked_movi;
    bool idx1_from_file_start;
    // Where the open path notes why it refuses the file; null outside an
    // open that asks for the reason.
    kelq::open_refusal *refusal;
};

namespace kelq {

// Opens a reader with the given tolerances (already masked to the known
// ones). When refusal is not null, a refused open notes why there.
aviin_handle *open_reader(const char *path, uint32_t swapped_ids, uint32_t tolerances,
                          open_refusal *refusal = nullptr);

inline FILE *reader_stream(const aviin_handle *h) {
    return h != nullptr && h->current_list != nullptr ? h->current_list->stream : nullptr;
}

// Header-list parsing; failures set current_list's status to 1.
void read_hdrl(aviin_handle *h, uint32_t swapped_ids);
void read_strl(aviin_handle *h, uint32_t swapped_ids);

// Super index of a stream's "strl" list; the stream stands at its id.
int read_indx(aviin_handle *h, uint32_t swapped_ids);

// Extension and menu lists of the main RIFF; current_list is that list.
int read_kqdt(aviin_handle *h);
int read_kmnu(aviin_handle *h);

}  // namespace kelq
