#include "input_indexes.h"

#include "riff_sizes.h"

#include <algorithm>

namespace kelqtool {

namespace {

constexpr uint32_t block_entries = 4096;
constexpr uint64_t nowhere = ~0ull;  // an entry the reader places before 'movi'
constexpr uint32_t std_index_not_key = 0x80000000u;
const uint32_t stream_vids = make_fourCC("vids");

// Calls take(entry) for each entry `read` hands out, a block at a time from
// entry 0, at most `limit` of them.
template <typename R, typename F>
void for_each_position(R &&read, uint64_t limit, F &&take) {
    std::vector<index_position> block(block_entries);
    for (uint64_t done = 0; done < limit;) {
        const uint32_t want = static_cast<uint32_t>(std::min<uint64_t>(limit - done, block_entries));
        uint32_t got = 0;
        if (read(static_cast<uint32_t>(done), block.data(), want, &got) != 0) return;
        for (uint32_t i = 0; i < got; ++i) take(block[i]);
        done += got;
    }
}

template <typename F>
void for_each_entry(FILE *f, int64_t offset, uint64_t count, size_t size, F &&take) {
    if (file_seek(f, offset, 0) != 0) return;
    std::vector<uint8_t> block(block_entries * size);
    for (uint64_t done = 0; done < count;) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(count - done, block_entries));
        const size_t got = file_read(f, block.data(), want * size) / size;
        for (size_t i = 0; i < got; ++i) take(&block[i * size]);
        done += got;
        if (got < want) return;
    }
}

// Entries that fit between offset and the end of the file.
uint64_t entries_in_file(int64_t offset, int64_t file_size, size_t size) {
    return offset < file_size ? static_cast<uint64_t>(file_size - offset) / size : 0;
}

// The entries lying wholly inside the idx1 chunk: their chunk's key flag, and
// the media chunks they place inside the first 'movi' counted by stream.
void read_idx1(aviin_handle *h, const riff_form &form, input_indexes &out) {
    if (!form.has_idx1 || !form.has_movi) return;
    const int64_t movi_first = form.movi_offset + list_header_size;
    const int64_t movi_end = form.movi_offset + chunk_header_size + static_cast<int64_t>(form.movi_size);
    auto read = [h](uint32_t first, index_position *e, uint32_t n, uint32_t *got) {
        return aviin_get_idx1_positions(h, first, e, n, got);
    };
    for_each_position(read, form.idx1_size / 16, [&](const index_position &e) {
        out.has_idx1 = true;
        if (e.position == nowhere) return;
        const int64_t header = static_cast<int64_t>(e.position);
        out.key_by_data[header + chunk_header_size] = e.key != 0;
        const bool media = e.type >= KELQAVI_CHUNK_AUDIO && e.type <= KELQAVI_CHUNK_CHAPTER;
        if (media && e.stream < out.idx1_listed.size() && header >= movi_first && header < movi_end)
            ++out.idx1_listed[e.stream];
    });
}

// One standard index chunk (ix##) of a stream: its entries give key flags and
// are counted. False when no such chunk is there.
bool read_standard_index(FILE *f, int64_t offset, int64_t file_size, size_t stream, input_indexes &out) {
    uint8_t head[32];
    if (file_seek(f, offset, 0) != 0 || file_read(f, head, sizeof head) != sizeof head) return false;
    const uint32_t size = str2long(head + 4);
    if (head[0] != 'i' || head[1] != 'x' || size < 24) return false;
    std_index_header *x = avi2_parse_standard_index_chunk(head + 8);
    if (x == nullptr) return false;
    const bool chunks = x->index_type == 1;  // an index of chunks
    const uint64_t count = std::min<uint64_t>({x->entries_in_use, (size - 24) / 8u, entries_in_file(offset + 32, file_size, 8)});
    const uint64_t base = x->base_offset;
    std::free(x);
    if (!chunks) return false;
    out.odml_listed[stream] += count;
    for_each_entry(f, offset + 32, count, 8, [&](const uint8_t *e) {
        out.key_by_data[static_cast<int64_t>(base + str2long(e))] = (str2long(e + 4) & std_index_not_key) == 0;
    });
    return true;
}

void read_standard_indexes(FILE *f, const riff_form &form, int64_t file_size, input_indexes &out) {
    for (size_t s = 0; s < form.streams.size() && s < out.odml_listed.size(); ++s) {
        const stream_list &list = form.streams[s];
        if (!list.has_indx || list.indx.entries.empty()) continue;
        out.has_odml[s] = true;
        for (const super_index_entry &e : list.indx.entries) {
            // A video stream's super index counts the chunks of each standard
            // index: where one is not in the file, its count stands for it.
            const bool read = e.offset < static_cast<uint64_t>(file_size) &&
                              read_standard_index(f, static_cast<int64_t>(e.offset), file_size, s, out);
            if (!read && list.has_strh && fourCC_equal(list.strh.type, stream_vids)) out.odml_listed[s] += e.duration;
        }
    }
}

}  // namespace

void read_input_indexes(const char *path, aviin_handle *h, const avi_layout &layout, size_t stream_count,
                        input_indexes &out) {
    out.idx1_listed.assign(stream_count, 0);
    out.odml_listed.assign(stream_count, 0);
    out.has_odml.assign(stream_count, false);
    if (layout.forms.empty()) return;
    if (FILE *f = file_open(path, 0)) {
        read_standard_indexes(f, layout.forms[0], layout.file_size, out);
        file_close(f);
    }
    read_idx1(h, layout.forms[0], out);
}

}  // namespace kelqtool
