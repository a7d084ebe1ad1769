#include "input_indexes.h"

#include "riff_sizes.h"

#include <algorithm>

namespace kelqtool {

namespace {

constexpr uint32_t block_entries = 4096;
constexpr uint64_t nowhere = ~0ull;  // an entry the reader places before 'movi'

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

// Each standard index of a stream's super index: its entries give key flags
// and are counted. A video stream's super index counts the chunks of each
// standard index: where one cannot be read, its count stands for it.
void read_standard_indexes(aviin_handle *h, uint32_t stream, input_indexes &out) {
    uint32_t kind = 0;
    const bool video = aviin_get_chunk_type(h, stream, &kind) == 0 && kind == KELQAVI_CHUNK_VIDEO;
    uint64_t ix = 0;
    uint32_t duration = 0;
    for (uint32_t n = 0; aviin_get_super_index_entry(h, stream, n, &ix, &duration) == 0; ++n) {
        out.has_odml[stream] = true;
        // A call with room for no entry tells whether the chunk can be read.
        uint32_t none = 0;
        if (aviin_get_std_index_positions(h, stream, n, 0, nullptr, 0, &none) == 1) {
            if (video) out.odml_listed[stream] += duration;
            continue;
        }
        auto read = [h, stream, n](uint32_t first, index_position *e, uint32_t count, uint32_t *got) {
            return aviin_get_std_index_positions(h, stream, n, first, e, count, got);
        };
        for_each_position(read, ~0ull, [&](const index_position &e) {
            ++out.odml_listed[stream];
            out.key_by_data[static_cast<int64_t>(e.position)] = e.key != 0;
        });
    }
}

}  // namespace

void read_input_indexes(aviin_handle *h, const avi_layout &layout, size_t stream_count, input_indexes &out) {
    out.idx1_listed.assign(stream_count, 0);
    out.odml_listed.assign(stream_count, 0);
    out.has_odml.assign(stream_count, false);
    if (layout.forms.empty()) return;
    for (uint32_t s = 0; s < stream_count; ++s) read_standard_indexes(h, s, out);
    read_idx1(h, layout.forms[0], out);
}

}  // namespace kelqtool
