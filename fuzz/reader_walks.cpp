// The reader target's walks: whole chunks into a bounded buffer, headers
// with reads by offset, and every RIFF segment entered in turn.
#include "fuzz_support.h"
#include "reader_calls.h"

#include <cstring>

namespace fuzz {

namespace {

constexpr int max_steps = 2048;
constexpr int max_failures_in_a_row = 8;
constexpr int max_segments = 8;
constexpr int headers_walked_to_again = 4;
constexpr uint32_t largest_read = 8192;

uint8_t buffer[largest_read];
volatile uint8_t sink;

// One read by offset: what it hands out must be the file's bytes there.
void read_at(aviin_handle *h, uint64_t offset, uint32_t size, const file_view &file) {
    const uint32_t n = size < largest_read ? size : largest_read;
    if (aviin_get_chunk(h, offset, buffer, n) != 0) return;
    // Reading nothing succeeds anywhere, past the end too, as a seek there does.
    check(n == 0 || (offset <= file.size && n <= file.size - offset), "a read by offset succeeds only inside the file");
    check(n == 0 || std::memcmp(buffer, file.data + offset, n) == 0, "a read by offset gives the file's bytes");
}

// The chunk at a header offset, walked to by offset and read whole.
void walk_to(aviin_handle *h, uint64_t header, const file_view &file) {
    if (aviin_seek_by_offset(h, header) != 0) return;
    uint32_t type = 0, stream = 0;
    int32_t size = static_cast<int32_t>(largest_read);
    char name[5];
    aviin_get_next_chunk2(h, &type, &stream, buffer, &size, name);
    check(aviin_seek_by_offset(h, file.size) == 0, "a move to the file's length is taken");
    check(aviin_seek_by_offset(h, uint64_t{file.size} + 1) == 1, "a move past the file's end fails");
}

// A bitmap subtitle's span text, parsed from a copy of its first bytes.
void parse_span(aviin_handle *h, uint64_t data_offset, const file_view &file) {
    char text[26] = {};
    for (size_t i = 0; i < sizeof text && data_offset + i < file.size; ++i)
        text[i] = static_cast<char>(file.data[data_offset + i]);
    uint32_t start = 0, duration = 0;
    aviin_get_subtitle_duration(h, text, &start, &duration);
    // Again over the text the first parse cut at its separators.
    aviin_get_subtitle_duration(h, text, nullptr, nullptr);
}

}  // namespace

void touch(const uint8_t *block, int64_t size) {
    if (block != nullptr && size > 0) sink = block[size - 1];
}

void walk_whole_chunks(aviin_handle *h, const reader_options &o) {
    int failures = 0;
    for (int step = 0; step < max_steps && failures < max_failures_in_a_row; ++step) {
        uint32_t type = 0, stream = 0;
        int32_t size = o.walk_capacity;
        char name[5] = {1, 1, 1, 1, 1};
        uint8_t *into = o.walk_capacity > 0 ? buffer : nullptr;
        const int r = step % 2 == 0 ? aviin_get_next_chunk2(h, &type, &stream, into, &size, name)
                                    : aviin_get_next_chunk(h, &type, &stream, into, &size);
        if (r == 3) return;
        if (r != 0) {
            ++failures;
            continue;
        }
        failures = 0;
        check(size >= 0 && size <= (o.walk_capacity > 0 ? o.walk_capacity : 0),
              "a chunk read stores no more than the buffer holds");
        check(step % 2 != 0 || name[4] == '\0', "a chunk's name is four characters and a NUL");
    }
}

void walk_headers(aviin_handle *h, const file_view &file) {
    uint64_t headers[headers_walked_to_again];
    int kept = 0;
    for (int step = 0; step < max_steps; ++step) {
        uint32_t type = 0, stream = 0, size = 0;
        uint64_t data_offset = 0;
        if (aviin_get_next_chunk_type(h, &type, &stream, &data_offset, &size) != 0) break;
        if (type == KELQAVI_CHUNK_UNKNOWN) continue;
        read_at(h, data_offset, size, file);
        if (type == KELQAVI_CHUNK_BITMAP_CAPTION) parse_span(h, data_offset, file);
        if (kept < headers_walked_to_again && data_offset >= 8) headers[kept++] = data_offset - 8;
    }
    for (int i = 0; i < kept; ++i) walk_to(h, headers[i], file);
}

bool walk_segments(aviin_handle *&h, uint32_t swapped_ids, const reader_options &o, const file_view &file) {
    walk_headers(h, file);
    int32_t count = 0;
    aviin_get_riff_count(h, &count);
    for (int32_t n = 0; n < count && n < max_segments; ++n) {
        int64_t offset = -2;
        if (aviin_get_riff_offset(h, n, &offset) != 0) {
            if (offset == -1) return false;   // the handle was released
            continue;
        }
        // A segment header in the file's last bytes cannot be entered: the
        // move then releases the handle.
        if (aviin_goto_riff_checked(&h, swapped_ids, offset) != 0) {
            if (h == nullptr) return false;
            continue;
        }
        walk_whole_chunks(h, o);
        if (aviin_goto_riff_checked(&h, swapped_ids, offset) != 0) {
            if (h == nullptr) return false;
            continue;
        }
        walk_headers(h, file);
    }
    return true;
}

}  // namespace fuzz
