// Opens the fuzzed bytes as a file, with both id orders and once more with
// every tolerance allowed, and drives every reader call on it: formats and blocks, both walks over every segment, the
// legacy index, the key-frame table and the lookups built on it, subtitles,
// OpenDML entries and menus. The first byte chooses options; the rest is the
// file. No allocation may be larger than the file allows.
#include "fuzz_support.h"
#include "reader_calls.h"

#include <cstdlib>

namespace fuzz {

namespace {

// The handle (39 KB on 64-bit hosts, 32 KiB of it the stream buffer), list nodes, stdio.
constexpr size_t allocation_slack = 48 * 1024;
constexpr uint32_t slots_asked = 21;             // one beyond the 20 the reader has

reader_options decode(uint8_t byte) {
    static constexpr int32_t capacities[] = {0, 24, 600, 8192};
    static constexpr uint32_t key_capacities[] = {1, 2, 5, 16};
    reader_options o;
    o.walk_capacity = capacities[byte & 3];
    o.key_capacity = key_capacities[(byte >> 2) & 3];
    o.build_slice = (byte & 0x10) != 0 ? 2 : 0;
    o.index_after_moves = (byte & 0x20) != 0;
    o.end_in_no_list = (byte & 0x40) != 0;
    o.end_by_release = (byte & 0x80) != 0;
    return o;
}

// A copy's name block is the caller's to free.
template <typename Format>
void drop_name(Format &f) {
    if (f.name_length > 0 && f.name != nullptr) {
        touch(reinterpret_cast<const uint8_t *>(f.name), f.name_length);
        std::free(f.name);
    }
}

// Every getter for every slot, whatever the stream's kind.
void format_calls(aviin_handle *h) {
    int32_t streams = 0, strd = 0;
    aviin_get_summary(h, &streams, &strd);
    aviin_get_summary(h, nullptr, nullptr);
    for (uint32_t s = 0; s < slots_asked; ++s) {
        uint32_t kind = 0, length = 0;
        aviin_get_chunk_type(h, s, &kind);
        uint8_t *data = nullptr;
        int32_t size = 0;
        if (aviin_get_strd_info(h, s, &data, &size) == 0 && data != nullptr) touch(data, size);
        const int32_t stream = static_cast<int32_t>(s);
        video_stream_format v;
        if (aviin_get_video_format(h, stream, &v, &length) == 0) drop_name(v);
        if (aviin_get_bitmap_caption_format(h, stream, &v, &length) == 0) drop_name(v);
        audio_stream_format a;
        if (aviin_get_audio_format(h, stream, &a) == 0) drop_name(a);
        caption_stream_format c;
        if (aviin_get_text_caption_format(h, stream, &c) == 0) drop_name(c);
        if (aviin_get_chapter_format(h, stream, &c) == 0) drop_name(c);
    }
    aviin_get_video_format(h, -1, nullptr, nullptr);
}

// The tolerance queries; the extra format bytes are read to their end.
void tolerance_calls(aviin_handle *h) {
    uint32_t allowed = 0, needed = 0;
    aviin_get_tolerances(h, &allowed, &needed);
    check((needed & ~allowed) == 0, "only allowed tolerances are needed");
    for (uint32_t s = 0; s < slots_asked; ++s) {
        const uint8_t *data = nullptr;
        uint32_t size = 0;
        if (aviin_get_video_format_extra(h, static_cast<int32_t>(s), &data, &size) == 0 && data != nullptr)
            touch(data, size);
    }
}

void block_calls(aviin_handle *h) {
    uint8_t *data = nullptr;
    int32_t size = 0;
    if (aviin_get_metadata_info(h, &data, &size) == 0 && data != nullptr) touch(data, size);
    // The menu block is the whole chunk: its size field and 8 bytes of header.
    if (aviin_get_menu_info(h, &data, &size) == 0 && data != nullptr) touch(data, int64_t{size} + 8);
    aviin_get_metadata_info(h, nullptr, nullptr);
}

void index_calls(aviin_handle *h, const reader_options &o, const file_view &file) {
    legacy_index_calls(h);
    key_table_calls(h, o);
    odml_calls(h, file);
    menu_calls(h);
}

// A move to the end of the file enters nothing: the handle is released and
// the caller's variable cleared.
void move_past_the_end(aviin_handle *&h, uint32_t swapped_ids, const file_view &file) {
    check(aviin_goto_riff_checked(&h, swapped_ids, static_cast<int64_t>(file.size)) == 1,
          "a move to the end of the file fails");
    check(h == nullptr, "a move to the end of the file releases the handle");
}

void drive(const char *path, uint32_t swapped_ids, uint32_t tolerances, const reader_options &o,
           const file_view &file) {
    aviin_handle *h = tolerances == 0 ? aviin_open(path, swapped_ids) : aviin_open_tolerant(path, swapped_ids, tolerances);
    if (h == nullptr) return;
    format_calls(h);
    tolerance_calls(h);
    block_calls(h);
    index_calls(h, o, file);
    walk_whole_chunks(h, o);
    if (!walk_segments(h, swapped_ids, o, file)) return;
    if (o.index_after_moves) {
        format_calls(h);
        index_calls(h, o, file);
    }
    tolerance_calls(h);
    if (o.end_in_no_list) {
        move_past_the_end(h, swapped_ids, file);
        return;
    }
    if (o.end_by_release) {
        int32_t count = 0;
        aviin_get_riff_count(h, &count);
        int64_t offset = -2;
        if (aviin_get_riff_offset(h, count, &offset) == 1 && offset == -1) return;   // released
    }
    aviin_close(h);
}

}  // namespace

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const char *path = fuzz::scratch_path("reader.avi");
    const fuzz::file_view file = {data + 1, size - 1};
    if (!fuzz::write_file(path, file.data, file.size)) return 0;
    const fuzz::reader_options o = fuzz::decode(data[0]);
    const fuzz::allocation_guard guard(file.size + fuzz::allocation_slack);
    fuzz::drive(path, 0, 0, o, file);
    fuzz::drive(path, 1, 0, o, file);
    fuzz::drive(path, 0, AVIIN_TOLERATE_ALL, o, file);
    return 0;
}
