// Checks of a repaired file against the chunks the test says must be kept,
// read from the bytes on disk (sizes, idx1, super and standard indexes),
// never from the repair's own bookkeeping.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "unit/writer/writer_files.h"

namespace kelqtest {

struct kept_chunk {
    std::string id;
    std::vector<uint8_t> data;
    bool key = true;
};

inline bool is_data_id(const std::string &id) {
    const int32_t t = get_chunk_type(make_fourCC(id.c_str()), 1);
    return id.size() == 4 && t >= KELQAVI_CHUNK_AUDIO && t <= KELQAVI_CHUNK_CHAPTER;
}

inline uint32_t stream_of(const std::string &id) { return fourCC_streamID(make_fourCC(id.c_str()), 1); }

// The data chunks of a form's movi, "rec " groups opened.
inline std::vector<chunk_at> data_chunks(const std::vector<uint8_t> &b, size_t form) {
    std::vector<chunk_at> out;
    for (const chunk_at &c : movi_chunks(b, form)) {
        const bool group = c.id == "LIST" && c.type == "rec ";
        for (const chunk_at &g : group ? children(b, c.pos) : std::vector<chunk_at>{c})
            if (is_data_id(g.id)) out.push_back(g);
    }
    return out;
}

// The header counts as the writer keeps them: avih frames of the first RIFF,
// dmlh frames of all, and per stream (sample size 0) its chunks and largest;
// "dd" chunks are no frames.
inline void expect_counts(const std::vector<uint8_t> &b, const std::vector<chunk_at> &chunks, size_t first_riff) {
    uint32_t first_frames = 0, frames = 0;
    for (size_t i = 0; i < chunks.size(); ++i) {
        const std::string &id = chunks[i].id;
        const bool frame = id.substr(2) == "dc" || id.substr(2) == "db" || id.substr(0, 2) == "dc";
        frames += frame ? 1 : 0;
        first_frames += frame && i < first_riff ? 1 : 0;
    }
    EXPECT_EQ(avih_value(b, 4), first_frames) << "avih total frames";
    if (find_child(b, find_child(b, 0, "LIST", "hdrl").pos, "LIST", "odml").pos != SIZE_MAX) {
        EXPECT_EQ(dmlh_frames(b), frames) << "dmlh frames";
    }
    for (size_t s = 0; s < strl_lists(b).size(); ++s) {
        uint32_t count = 0, largest = 0;
        for (const chunk_at &c : chunks) {
            if (stream_of(c.id) != s) continue;
            count += c.id.substr(2) == "dd" ? 0 : 1;
            largest = std::max(largest, c.size);
        }
        const int stream = static_cast<int>(s);
        if (strh_value(b, stream, strh_sample) == 0 && text4(b, strl_chunk(b, stream, "strh")) != "txts") {
            EXPECT_EQ(strh_value(b, stream, strh_length), count) << "stream " << s << " length";
        }
        EXPECT_EQ(strh_value(b, stream, strh_buffer), largest) << "stream " << s << " suggested buffer size";
    }
}

// The repaired file holds exactly `kept`, in order, its RIFF sizes tile it,
// its idx1 describes the first RIFF's chunks with the expected key and
// no-time flags, every super index not emptied lists exactly its stream's
// chunks with their key flags, and the header counts are the kept chunks'.
inline void expect_repaired(const char *path, const std::vector<kept_chunk> &kept, uint32_t swapped = 0) {
    const std::vector<uint8_t> b = file_bytes(path);
    std::vector<chunk_at> all;
    size_t first_riff = 0, end = 0;
    for (; end + 12 <= b.size(); end += 8 + static_cast<size_t>(le32(b, end + 4))) {
        ASSERT_NE(find_child(b, end, "LIST", "movi").pos, SIZE_MAX);
        const std::vector<chunk_at> got = data_chunks(b, end);
        all.insert(all.end(), got.begin(), got.end());
        if (end == 0) first_riff = got.size();
    }
    ASSERT_EQ(end, b.size()) << "RIFF sizes tile the file";
    ASSERT_EQ(all.size(), kept.size());
    for (size_t i = 0; i < kept.size(); ++i) {
        ASSERT_EQ(all[i].id, kept[i].id) << i;
        ASSERT_EQ(span(b, all[i].data(), all[i].size), kept[i].data) << i;
    }
    const chunk_at idx1 = find_child(b, 0, swapped != 0 ? "1idx" : "idx1");
    ASSERT_NE(idx1.pos, SIZE_MAX);
    ASSERT_EQ(idx1.size, 16 * first_riff);
    EXPECT_EQ(avih_value(b, 3) & 0x10u, 0x10u) << "has-index flag";
    const size_t movi_type = find_child(b, 0, "LIST", "movi").pos + 8;
    for (size_t i = 0; i < first_riff; ++i) {
        const size_t r = idx1.data() + 16 * i;
        EXPECT_EQ(movi_type + le32(b, r + 8), all[i].pos) << "idx1 record " << i;
        EXPECT_EQ(le32(b, r + 4) & 0x110u, (kept[i].key ? 0x10u : 0u) | (all[i].id.substr(2) == "dd" ? 0x100u : 0u))
            << "key and no-time flags of record " << i;
    }
    for (size_t s = 0; s < strl_lists(b).size(); ++s) {
        if (super_entries(b, static_cast<int>(s)).empty()) continue;   // emptied: players use idx1
        std::vector<chunk_at> of_stream;
        std::vector<bool> keys;
        for (size_t i = 0; i < all.size(); ++i)
            if (stream_of(all[i].id) == s) {
                of_stream.push_back(all[i]);
                keys.push_back(kept[i].key);
            }
        expect_indexes_list(b, static_cast<int>(s), of_stream, keys);
    }
    expect_counts(b, all, first_riff);
}

}  // namespace kelqtest
