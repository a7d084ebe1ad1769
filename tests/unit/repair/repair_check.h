// Checks of a repaired file against the chunks the test says must be kept,
// read from the bytes on disk (sizes, idx1, super and standard indexes) and
// through the library's reader, never from the repair's own bookkeeping.
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

// The RIFF segments of a file, each ending where the next begins and the
// last at the end of the file; their positions.
inline std::vector<size_t> segments_of(const std::vector<uint8_t> &b) {
    std::vector<size_t> out;
    for (size_t at = 0; at + 12 <= b.size(); at += 8 + static_cast<size_t>(le32(b, at + 4))) out.push_back(at);
    return out;
}

// The data chunks of every segment's movi, "rec " groups opened.
inline std::vector<chunk_at> data_chunks(const std::vector<uint8_t> &b, size_t form) {
    std::vector<chunk_at> out;
    for (const chunk_at &c : movi_chunks(b, form)) {
        if (c.id == "LIST" && c.type == "rec ") {
            for (const chunk_at &g : children(b, c.pos))
                if (is_data_id(g.id)) out.push_back(g);
        } else if (is_data_id(c.id)) {
            out.push_back(c);
        }
    }
    return out;
}

// Every standard index a super index lists names chunks of its stream that
// are in the file, and together they name each such chunk once.
inline void expect_odml_agrees(const std::vector<uint8_t> &b, const std::vector<chunk_at> &chunks) {
    const std::vector<chunk_at> lists = strl_lists(b);
    for (size_t s = 0; s < lists.size(); ++s) {
        const chunk_at indx = find_child(b, lists[s].pos, "indx");
        if (indx.pos == SIZE_MAX) continue;
        std::vector<size_t> named;
        for (uint32_t i = 0; i < le32(b, indx.pos + 12); ++i) {
            const size_t ix = static_cast<size_t>(le64(b, indx.pos + 32 + 16 * i));
            ASSERT_LT(ix + 32, b.size()) << "stream " << s << " super index entry " << i;
            ASSERT_EQ(text4(b, ix).substr(0, 2), "ix");
            ASSERT_EQ(le32(b, indx.pos + 32 + 16 * i + 8), le32(b, ix + 4) + 8) << "dwSize";
            for (uint32_t k = 0; k < le32(b, ix + 12); ++k) {
                const size_t data = static_cast<size_t>(le64(b, ix + 20) + le32(b, ix + 32 + 8 * k));
                ASSERT_LE(data, b.size());
                named.push_back(data - 8);
                EXPECT_EQ(le32(b, data - 4), le32(b, ix + 36 + 8 * k) & 0x7FFFFFFFu);
            }
        }
        if (le32(b, indx.pos + 12) == 0) continue;   // emptied: players use idx1
        std::vector<size_t> of_stream;
        for (const chunk_at &c : chunks)
            if (fourCC_streamID(make_fourCC(c.id.c_str()), 1) == s) of_stream.push_back(c.pos);
        EXPECT_EQ(named, of_stream) << "stream " << s << ": the standard indexes name exactly its chunks";
    }
}

// The header counts as the writer keeps them: avih frames of the first RIFF,
// dmlh frames of all, and per stream (sample size 0) its chunks and largest.
inline void expect_counts(const std::vector<uint8_t> &b, const std::vector<chunk_at> &chunks, size_t first_riff) {
    uint32_t first_frames = 0, frames = 0;
    for (size_t i = 0; i < chunks.size(); ++i) {
        const std::string suffix = chunks[i].id.substr(2);
        const bool frame = suffix == "dc" || suffix == "db" || chunks[i].id.substr(0, 2) == "dc";
        frames += frame ? 1 : 0;
        first_frames += frame && i < first_riff ? 1 : 0;
    }
    EXPECT_EQ(avih_value(b, 4), first_frames) << "avih total frames";
    const chunk_at odml = find_child(b, find_child(b, 0, "LIST", "hdrl").pos, "LIST", "odml");
    if (odml.pos != SIZE_MAX) {
        EXPECT_EQ(le32(b, find_child(b, odml.pos, "dmlh").data()), frames) << "dmlh frames";
    }
    const std::vector<chunk_at> lists = strl_lists(b);
    for (size_t s = 0; s < lists.size(); ++s) {
        const size_t strh = strl_chunk(b, static_cast<int>(s), "strh");
        uint32_t count = 0, largest = 0;
        for (const chunk_at &c : chunks) {
            if (fourCC_streamID(make_fourCC(c.id.c_str()), 1) != s) continue;
            count += c.id.substr(2) == "dd" ? 0 : 1;   // "dd" chunks are no frames
            largest = std::max(largest, c.size);
        }
        if (le32(b, strh + strh_sample) == 0 && text4(b, strh) != "txts") {
            EXPECT_EQ(le32(b, strh + strh_length), count) << "stream " << s << " length";
        }
        EXPECT_EQ(le32(b, strh + strh_buffer), largest) << "stream " << s << " suggested buffer size";
    }
}

// The repaired file holds exactly `kept`, in order, its sizes tile it, its
// idx1 describes the first RIFF's chunks with the expected key flags, and
// the reader walks them; with counted, the header counts are the kept chunks'.
inline void expect_repaired(const char *path, const std::vector<kept_chunk> &kept, uint32_t swapped = 0,
                            bool counted = true) {
    const std::vector<uint8_t> b = file_bytes(path);
    const std::vector<size_t> segs = segments_of(b);
    ASSERT_FALSE(segs.empty());
    ASSERT_EQ(segs.back() + 8 + le32(b, segs.back() + 4), b.size()) << "RIFF sizes tile the file";
    std::vector<chunk_at> all;
    size_t first_riff = 0;
    for (size_t s : segs) {
        const chunk_at movi = find_child(b, s, "LIST", "movi");
        ASSERT_NE(movi.pos, SIZE_MAX);
        const std::vector<chunk_at> got = data_chunks(b, s);
        all.insert(all.end(), got.begin(), got.end());
        if (s == 0) first_riff = got.size();
    }
    ASSERT_EQ(all.size(), kept.size());
    for (size_t i = 0; i < kept.size(); ++i) {
        ASSERT_EQ(all[i].id, kept[i].id) << i;
        ASSERT_TRUE(std::equal(kept[i].data.begin(), kept[i].data.end(), b.begin() + all[i].data())) << i;
        ASSERT_EQ(all[i].size, kept[i].data.size()) << i;
    }
    const chunk_at idx1 = find_child(b, 0, swapped != 0 ? "1idx" : "idx1");
    ASSERT_NE(idx1.pos, SIZE_MAX);
    ASSERT_EQ(idx1.size, 16 * first_riff);
    EXPECT_EQ(avih_value(b, 3) & 0x10u, 0x10u) << "has-index flag";
    const size_t movi_type = find_child(b, 0, "LIST", "movi").pos + 8;
    for (size_t i = 0; i < first_riff; ++i) {
        const size_t r = idx1.data() + 16 * i;
        EXPECT_EQ(movi_type + le32(b, r + 8), all[i].pos) << "idx1 record " << i;
        EXPECT_EQ((le32(b, r + 4) & 0x10) != 0, kept[i].key) << "key flag of record " << i;
        EXPECT_EQ((le32(b, r + 4) & 0x100) != 0, all[i].id.substr(2) == "dd") << "no-time flag of record " << i;
    }
    expect_odml_agrees(b, all);
    if (counted) expect_counts(b, all, first_riff);
    if (first_riff == 0) return;
    aviin_handle *h = aviin_open(path, swapped);
    ASSERT_NE(h, nullptr);
    size_t keys = 0;
    for (uint32_t i = 0; i < first_riff; ++i) {
        uint32_t stream = 0, type = 0, size = 0, key = 0;
        ASSERT_EQ(aviin_get_idx1_entry(h, i, &stream, &type, &size, &key), 0);
        EXPECT_EQ(key != 0, kept[i].key) << "reader's key flag of entry " << i;
        if (stream == 0 && type == KELQAVI_CHUNK_VIDEO && key != 0) ++keys;
    }
    uint32_t kind = 0;
    aviin_get_chunk_type(h, 0, &kind);
    if (kind == KELQAVI_CHUNK_VIDEO && keys > 0) {
        std::vector<keyindex_entry> entries(keys);
        keyindex_table table{};
        ASSERT_EQ(aviin_init_keyindex(h, &table, entries.data(), static_cast<uint32_t>(keys), 0), 0);
        EXPECT_EQ(aviin_build_keyindex_entry(h, &table, 0), 3);
        EXPECT_EQ(table.key_frames_scanned, keys) << "the key-frame table";
    }
    EXPECT_EQ(walk_data(h).size(), first_riff) << "the reader walks the first RIFF's chunks";
    aviin_close(h);
}

}  // namespace kelqtest
