// What the info and chunks commands learn about an AVI file with the RIFF
// layer alone, on a stream of their own: the top-level forms in the order the
// reader counts them, and inside each form its header list, 'movi' list,
// idx1 and the OpenDML super indexes. The reader's handle is opaque and hands
// out none of these; they also explain why the reader refuses a file.
#pragma once

#include "kelqavi.h"
#include "read_mode.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kelqtool {

// One entry of an OpenDML super index, with the header of the standard
// index chunk (ix##) it points to when that header lies inside the file.
struct super_index_entry {
    uint64_t offset = 0;    // of the ix## chunk's id
    uint32_t size = 0;      // of the whole ix## chunk, header included
    uint32_t duration = 0;  // chunks indexed (video) or data bytes (audio)
    bool chunk_read = false;
    uint32_t chunk_id = 0;      // the ix## chunk's own id
    uint32_t chunk_size = 0;    // its size field
    uint8_t chunk_index_type = 0;
    uint32_t chunk_entries = 0; // its nEntriesInUse
};

struct super_index {
    int64_t offset = 0;  // of the "indx" id
    uint32_t size = 0;
    uint16_t longs_per_entry = 0;
    uint8_t index_sub_type = 0, index_type = 0;
    uint32_t entries_in_use = 0;
    uint32_t chunk_id = 0;  // dwChunkId: the id of the stream's data chunks
    std::vector<super_index_entry> entries;  // those of the entries in use that lie inside the chunk
};

// A chunk whose size carries the walk of its list to the end of the file or
// beyond: the reader's next step there has nothing to read.
struct overrun {
    int64_t offset = -1;  // -1: none
    uint32_t id = 0, size = 0, list_type = 0;
};

// One 'strl' list, read chunk by chunk whatever their order.
struct stream_list {
    int64_t offset = 0;
    bool has_strh = false, strh_ok = false;
    avi_stream_header strh{};
    bool has_strf = false;
    uint32_t strf_size = 0;
    bool strf_ok = false;  // the record reader of the stream's type accepted it
    video_format video{};  // read for "vids" streams
    audio_format audio{};  // read for "auds" streams
    bool has_name = false;
    std::string name;      // up to the first NUL
    bool has_strd = false;
    uint32_t strd_size = 0;  // data size inside the strd chunk
    bool has_indx = false;
    super_index indx;
    // An indx or strd that the reader passes by seeking past its data, when
    // that seek lands at or beyond the end of the file: the reader's walks of
    // the enclosing lists then end there, before 'movi'.
    overrun seek_past_end;
};

// A top-level chunk whose id is "RIFF", or the "MRIF" chunk that the reader
// also takes as a file's first form.
struct riff_form {
    int64_t offset = 0;
    bool numbered = true;  // a RIFF, which the reader's segment numbering counts; false for a first MRIF
    uint32_t size = 0;
    uint32_t type = 0;  // form type; 0 when the form is too short to hold one
    int64_t end = 0;    // offset + 8 + size, or the file's end when that comes first
    bool menu_form = false;  // its first list is a "KMNU" menu list

    bool has_hdrl = false;
    bool has_avih = false;  // the header list begins with an avih of at least 56 bytes
    avi_main_header avih{};
    std::vector<stream_list> streams;
    bool has_dmlh = false;
    uint32_t dmlh_total_frames = 0;
    overrun hdrl_overrun;  // the first such chunk in the header list
    overrun form_overrun;  // the first such chunk among the form's own, before 'movi'

    bool has_movi = false;  // the first 'movi' list inside the form
    int64_t movi_offset = 0;
    uint32_t movi_size = 0;
    bool has_idx1 = false;
    int64_t idx1_offset = 0;
    uint32_t idx1_size = 0;
};

// Entries of an idx1 chunk by the stream number of their chunk ids.
struct idx1_summary {
    uint64_t entries = 0;                 // entries that lie inside the file
    std::vector<uint64_t> per_stream;     // indexed by stream number, 0..99
    uint64_t other = 0;                   // ids without a stream number
};

struct avi_layout {
    int64_t file_size = 0;
    uint32_t first_id = 0;          // the file's first four bytes
    // Every top-level "RIFF", found the way the reader's top-level scan finds
    // them: from offset 0, each chunk advances by its size field + 8, with no
    // pad byte. Its segment numbering follows this order. A first chunk
    // "MRIF" comes first too, unnumbered.
    std::vector<riff_form> forms;
    uint64_t other_top_level = 0;   // top-level chunks that are not RIFF forms
    int64_t top_level_cut = -1;     // where the scan met 1 to 4 bytes, too few for a chunk header
    idx1_summary idx1;              // of the first form's idx1, when asked for
};

// Reads the layout of the file at path. False, with a one-line reason in
// error, when the file cannot be opened or read.
bool scan_layout(const char *path, bool count_idx1, uint32_t swapped_ids, avi_layout &layout, std::string &error);

// Why the reader refused a file whose layout is this: the first check of the
// reader's that the file fails, as a phrase ("its first RIFF form has no
// 'movi' list"). tolerances: those the reader was opened with.
std::string refusal_reason(const avi_layout &layout, uint32_t tolerances = 0);

// Opens the file as mode says (open_with_mode). When the reader refuses it,
// prints "cannot open 'PATH': REASON" and returns null. A handle returned
// stands on a file whose layout has its first form at layout.forms[0].
aviin_handle *open_reader(const char *path, uint32_t swapped_ids, const avi_layout &layout, read_mode mode);

// The RIFF segments as the reader numbers them.
struct segment {
    int32_t number = 0;   // the reader's segment number
    int64_t offset = 0;   // of the segment's id
    int form = -1;        // index into avi_layout::forms, -1 for an "MRIF" chunk inside a menu list
};

struct segment_list {
    int32_t count = 0;               // aviin_get_riff_count
    std::vector<segment> listed;     // from aviin_get_riff_offset, in order
    int32_t unlisted = 0;            // numbers beyond the last top-level form, not asked for
    bool query_failed = false;       // aviin_get_riff_offset gave 1 for a number it must know
    bool handle_released = false;    // ... and released the handle (it set the offset to -1)
};

// Asks the reader for the offsets of its segments, up to and including the
// last top-level RIFF form. Numbers beyond it are never asked for:
// aviin_get_riff_offset releases the handle when its walk ends without
// meeting the number asked, and the "MRIF" chunks counted at open time in
// menu forms after the second top-level form are not met by that walk. A
// read failure during its walk gives 1 without releasing; should the handle
// ever be released all the same, handle_released says so and h must not be
// used again.
segment_list list_segments(aviin_handle *h, const avi_layout &layout);

}  // namespace kelqtool
