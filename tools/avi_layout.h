// What the info and chunks commands learn about an AVI file with the RIFF
// layer alone, on a stream of their own: the top-level forms in the order the
// reader counts them, and inside each form its header list, 'movi' list,
// idx1 and the OpenDML super indexes, which the reader's handle does not
// hand out.
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

// One 'strl' list, read chunk by chunk whatever their order.
struct stream_list {
    int64_t offset = 0;
    bool has_strh = false;
    avi_stream_header strh{};
    bool has_name = false;
    std::string name;      // up to the first NUL
    bool has_strd = false;
    uint32_t strd_size = 0;  // data size inside the strd chunk
    bool has_indx = false;
    super_index indx;
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
    bool has_avih = false;  // the header list begins with an avih
    avi_main_header avih{};
    std::vector<stream_list> streams;
    bool has_dmlh = false;
    uint32_t dmlh_total_frames = 0;

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
    // Every top-level "RIFF", found the way the reader's top-level scan finds
    // them: from offset 0, each chunk advances by its size field + 8, with no
    // pad byte. Its segment numbering follows this order. A first chunk
    // "MRIF" comes first too, unnumbered.
    std::vector<riff_form> forms;
    idx1_summary idx1;              // of the first form's idx1, when asked for
};

// Reads the layout of the file at path. False, with a one-line reason in
// error, when the file cannot be opened or read.
bool scan_layout(const char *path, bool count_idx1, uint32_t swapped_ids, avi_layout &layout, std::string &error);

// Opens the file as mode says (open_with_mode). When the reader refuses it,
// prints "cannot open 'PATH': REASON", the reason aviin_open_report gives,
// and returns null. A handle returned
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
