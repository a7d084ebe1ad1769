// The reader target's index calls: the legacy index, the key-frame table with
// the frame, audio and subtitle lookups built on it, OpenDML entries and the
// menu forms.
#include "fuzz_support.h"
#include "reader_calls.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace fuzz {

namespace {

constexpr uint32_t stream_slots = 20;
constexpr uint32_t entries_read = 48;
constexpr int max_builds = 64;
constexpr uint32_t max_key_capacity = 16;
constexpr int max_ix_chunks = 6;
constexpr uint32_t ix_entries_read = 12;
constexpr int max_menu_steps = 16;
constexpr size_t ix_header_bytes = 24;
constexpr int streams_looked_at = 2;   // of each kind: the lookups walk the file, and files may hold 19

// Numbers of the first streams of a kind (all classified ones for kind 0).
int streams_of_kind(aviin_handle *h, uint32_t kind, uint32_t (&out)[streams_looked_at]) {
    int n = 0;
    for (uint32_t s = 0; s < stream_slots && n < streams_looked_at; ++s) {
        uint32_t k = 0;
        if (aviin_get_chunk_type(h, s, &k) == 0 && k != KELQAVI_CHUNK_UNKNOWN && (kind == 0 || k == kind)) out[n++] = s;
    }
    return n;
}

void idx1_entries(aviin_handle *h) {
    uint32_t stream = 0, type = 0, size = 0, key = 0;
    uint32_t entry = 0;
    while (entry < entries_read && aviin_get_idx1_entry(h, entry, &stream, &type, &size, &key) == 0) ++entry;
    // Entry numbers whose byte position wraps in 32 bits.
    aviin_get_idx1_entry(h, 0xFFFFFFFFu, &stream, &type, &size, &key);
    aviin_get_idx1_entry(h, 0x10000000u, &stream, &type, &size, &key);
    const uint32_t moves[] = {0, 1, entry / 2, entry, 0xFFFFFFFFu};
    for (uint32_t m : moves) {
        if (aviin_goto_idx1_sample(h, m) != 0) continue;
        uint64_t data_offset = 0;
        aviin_get_next_chunk_type(h, &type, &stream, &data_offset, &size);
    }
}

void idx1_timing(aviin_handle *h) {
    const uint32_t types[] = {KELQAVI_CHUNK_AUDIO, KELQAVI_CHUNK_VIDEO, KELQAVI_CHUNK_VIDEO_DATA,
                              KELQAVI_CHUNK_VIDEO_RAW};
    const float spans[][2] = {{0.0f, 1.0f}, {0.5f, 0.2f}, {-1.0f, 1e9f}};
    for (uint32_t s = 0; s <= stream_slots; ++s)
        for (uint32_t type : types) {
            uint32_t num = 0, den = 0;
            aviin_get_sample_duration(h, s, type, 1000, &num, &den);
        }
    uint32_t streams[streams_looked_at];
    const int n = streams_of_kind(h, 0, streams);
    for (int i = 0; i < n; ++i) {
        uint32_t kind = 0;
        aviin_get_chunk_type(h, streams[i], &kind);
        for (const auto &span : spans) {
            uint32_t first = 0, last = 0;
            aviin_get_start_end_by_time(h, streams[i], kind, span[0], span[1], &first, &last);
        }
    }
}

// What holds of any table the library fills: within its capacity, frames
// increasing and all scanned.
void check_table(const keyindex_table &t) {
    check(t.count <= t.capacity, "a key-frame table holds no more than its capacity");
    for (uint32_t i = 0; i < t.count; ++i) {
        check(t.entries[i].frame_no < t.frames_scanned, "a listed key frame has been scanned");
        check(i == 0 || t.entries[i - 1].frame_no < t.entries[i].frame_no, "key frames are listed in frame order");
    }
}

void key_lookups(aviin_handle *h, const keyindex_table &t) {
    const int32_t last = t.frames_scanned > 0 ? static_cast<int32_t>(t.frames_scanned - 1) : 0;
    const int32_t frames[] = {-1, 0, 1, last / 2, last, last + 1, INT_MAX};
    for (int32_t frame : frames) {
        for (int32_t direction = -1; direction <= 1; ++direction) {
            keyindex_entry out;
            if (aviin_read_key_table_by_frame_no(h, &t, frame, &out, direction) != 0) continue;
            check(direction == -1 ? out.frame_no <= static_cast<uint32_t>(frame)
                                  : out.frame_no >= static_cast<uint32_t>(frame),
                  "a key-frame lookup gives a key frame on the side asked for");
        }
    }
    if (t.count == 0) return;
    keyindex_entry at = t.entries[0];
    for (uint32_t i = 0; i <= t.count && aviin_get_next_key_index(h, &t, &at, &at, 1) == 0; ++i) {}
    for (uint32_t i = 0; i <= t.count && aviin_get_next_key_index(h, &t, &at, &at, -1) == 0; ++i) {}
    check(at.frame_no == t.entries[0].frame_no, "stepping back through the table ends at its first key frame");
}

// Frame, audio and subtitle positions from the table.
void position_lookups(aviin_handle *h, const keyindex_table &t, uint32_t video) {
    const int32_t last = t.frames_scanned > 0 ? static_cast<int32_t>(t.frames_scanned - 1) : 0;
    const int32_t frames[] = {0, last / 2, last};
    for (int32_t frame : frames) {
        keyindex_entry key;
        uint64_t header = 0;
        if (aviin_read_key_table_by_frame_no(h, &t, frame, &key, -1) == 0)
            aviin_get_video_offset(h, key, video, frame, &header);
        uint32_t streams[streams_looked_at];
        uint64_t v0 = 0, v1 = 0, a0 = 0, a1 = 0;
        for (int i = streams_of_kind(h, KELQAVI_CHUNK_AUDIO, streams); i-- > 0;)
            aviin_get_chunk_offsets(h, &t, video, 0, frame, 2.0f, &v0, &v1, static_cast<int32_t>(streams[i]), &a0, &a1);
        uint32_t duration = 0;
        for (int i = streams_of_kind(h, KELQAVI_CHUNK_BITMAP_CAPTION, streams); i-- > 0;)
            aviin_get_subtitle_offset(h, &t, video, streams[i], frame, &a0, &duration);
    }
    uint64_t v0 = 0, v1 = 0, a0 = 0, a1 = 0;
    aviin_get_chunk_offsets(h, &t, video, last, 0, 0.0f, &v0, &v1, -1, &a0, &a1);
}

}  // namespace

void legacy_index_calls(aviin_handle *h) {
    idx1_entries(h);
    idx1_timing(h);
}

void key_table_calls(aviin_handle *h, const reader_options &o) {
    keyindex_entry entries[max_key_capacity];
    keyindex_table t;
    uint32_t videos[streams_looked_at];
    // A stream number beyond the slots is refused.
    aviin_init_keyindex(h, &t, entries, o.key_capacity, stream_slots);
    for (int i = streams_of_kind(h, KELQAVI_CHUNK_VIDEO, videos); i-- > 0;) {
        const uint32_t video = videos[i];
        if (aviin_init_keyindex(h, &t, entries, o.key_capacity, video) != 0) continue;
        for (int i = 0; i < max_builds && aviin_build_keyindex_entry(h, &t, o.build_slice) == 0; ++i) {}
        check_table(t);
        key_lookups(h, t);
        position_lookups(h, t, video);
    }
    // A table that never filled: every subtitle lookup walks from the first chunk.
    std::memset(&t, 0, sizeof t);
    uint32_t subtitles[streams_looked_at];
    for (int i = streams_of_kind(h, KELQAVI_CHUNK_BITMAP_CAPTION, subtitles); i-- > 0;)
        for (int32_t frame : {0, 12}) {
            uint64_t offset = 0;
            uint32_t duration = 0;
            aviin_get_subtitle_offset(h, &t, 0, subtitles[i], frame, &offset, &duration);
        }
}

// Standard index chunks are looked for in the file's bytes ("ix" at an even
// offset), read by their header and walked entry by entry.
void odml_calls(aviin_handle *h, const file_view &file) {
    for (uint32_t s = 0; s <= stream_slots; ++s)
        for (uint32_t e = 0; e < ix_entries_read; ++e) {
            uint32_t type = 0, size = 0, key = 0;
            if (aviin_get_indx_entry(h, e, s, &type, &size, &key) != 0 && e > 0) break;
        }
    int found = 0;
    for (size_t at = 0; at + 8 + ix_header_bytes <= file.size && found < max_ix_chunks; at += 2) {
        if (file.data[at] != 'i' || file.data[at + 1] != 'x') continue;
        ++found;
        std_index_header *ix = avi2_parse_standard_index_chunk(file.data + at + 8);
        if (ix == nullptr) continue;
        const uint32_t s = static_cast<uint8_t>(file.data[at + 2] - '0') % stream_slots;
        aviin_set_odml_cursor(h, s, ix);
        const uint32_t n = ix->entries_in_use < ix_entries_read ? ix->entries_in_use : ix_entries_read;
        for (uint32_t e = 0; e <= n; ++e) {
            uint32_t type = 0, size = 0, key = 0;
            avi2_get_index_entry(static_cast<int64_t>(at), h, e, s, &type, &size, &key);
        }
        aviin_set_odml_cursor(h, s, nullptr);
        std::free(ix);
    }
    uint32_t type = 0, size = 0, key = 0;
    avi2_get_index_entry(-1, h, 0xFFFFFFFFu, 0, &type, &size, &key);
    avi2_get_index_entry(INT64_MAX, h, 1, stream_slots, &type, &size, &key);
    check(aviin_set_odml_cursor(h, stream_slots, nullptr) == 1, "no odml cursor beyond the 20 slots");
}

void menu_calls(aviin_handle *h) {
    uint8_t *data = nullptr;
    int32_t size = 0;
    // A chunk's block holds its size field + 8 bytes, header included.
    if (aviin_get_menu_chunk(h, &data, &size) == 0 && data != nullptr) touch(data, size + 8);
    aviin_getNextMenu(h);
    for (int i = 0; i < max_menu_steps; ++i) {
        if (aviin_get_menu_chunk(h, &data, &size) == 0 && data != nullptr) {
            check(size >= 0, "a menu chunk's size field is taken only when it is not negative");
            touch(data, size + 8);
        }
        if (aviin_goto_next_menu(h) != 0) break;
    }
}

}  // namespace fuzz
