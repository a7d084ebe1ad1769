// Index entries with the place of their chunks, checked against where the
// reader's own chunk walk meets those chunks: idx1 counted from "movi" or from
// the file's start, OpenDML standard indexes reached through a super index,
// and indexes the file cuts short.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

struct walked { int64_t data; uint32_t size; };

// Data chunks of the first movi list as the walk meets them.
std::vector<walked> walk(aviin_handle *h) {
    std::vector<walked> out;
    uint32_t type = 0, stream = 0, size = 0;
    uint64_t data = 0;
    for (int steps = 0; steps < 100 && aviin_get_next_chunk_type(h, &type, &stream, &data, &size) == 0; ++steps)
        if (type != KELQAVI_CHUNK_UNKNOWN) out.push_back({static_cast<int64_t>(data), size});
    return out;
}

std::vector<planned> four_frames() {
    return {{"00dc", filler(40, 1), true}, {"00dc", filler(21, 2)}, {"00dc", filler(30, 3)}, {"00dc", filler(50, 4), true}};
}

// The image cut short by -tail bytes, or with tail zero bytes after it.
std::vector<uint8_t> resized(const byte_image &image, int tail) {
    std::vector<uint8_t> b = image.bytes();
    b.resize(static_cast<size_t>(static_cast<int>(b.size()) + tail));
    return b;
}

// Every entry from `first`, three at a time.
int read_idx1(aviin_handle *h, uint32_t first, std::vector<index_position> &out) {
    index_position block[3];
    uint32_t n = 0;
    int r = 0;
    while ((r = aviin_get_idx1_positions(h, first + static_cast<uint32_t>(out.size()), block, 3, &n)) == 0)
        out.insert(out.end(), block, block + n);
    return r;
}

TEST(index_position, idx1_entries_name_the_chunks_the_walk_meets) {
    const struct {
        const char *name;
        index_offsets offsets;
        uint32_t tolerances;
        int tail;          // bytes cut off the end of the file (< 0) or added after it
        uint32_t first;    // entry asked for first
        size_t entries;    // entries handed out
        bool at_walk;      // their positions are where the walk meets the chunks
        uint32_t needed;
    } rows[] = {
        {"movi-relative", index_offsets::movi_relative, 0, 32, 0, 4, true, 0},
        {"movi-relative, tolerant", index_offsets::movi_relative, AVIIN_TOLERATE_ALL, 0, 0, 4, true, 0},
        {"file-relative, moved", index_offsets::absolute, AVIIN_TOLERATE_FILE_IDX1, 0, 0, 4, true, AVIIN_TOLERATE_FILE_IDX1},
        {"file-relative, taken as it stands", index_offsets::absolute, 0, 0, 0, 4, false, 0},
        {"from the third entry", index_offsets::movi_relative, 0, 0, 2, 2, true, 0},
        {"past the index", index_offsets::movi_relative, 0, 32, 4, 0, true, 0},
        {"cut inside the second entry", index_offsets::movi_relative, 0, -40, 0, 1, true, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const indexed_file file = make_indexed(hdrl({video_list(1, 25)}), four_frames(), row.offsets);
        const temp_file disk(resized(file.bytes, row.tail));
        aviin_handle *h = aviin_open_tolerant(disk.path(), 0, row.tolerances);
        ASSERT_NE(h, nullptr);
        std::vector<index_position> got;
        EXPECT_EQ(read_idx1(h, row.first, got), 3);
        const std::vector<walked> chunks = walk(h);
        ASSERT_EQ(got.size(), row.entries);
        ASSERT_EQ(chunks.size(), 4u);
        for (size_t i = 0; i < got.size(); ++i) {
            const walked &c = chunks[row.first + i];
            EXPECT_EQ(got[i].position == static_cast<uint64_t>(c.data - 8), row.at_walk) << "entry " << i;
            EXPECT_EQ(got[i].size, c.size);
            EXPECT_EQ(got[i].key, file.chunks[row.first + i].key ? 16u : 0u);
            EXPECT_EQ(got[i].type, static_cast<uint32_t>(KELQAVI_CHUNK_VIDEO));
        }
        uint32_t allowed = 0, needed = 0;
        aviin_get_tolerances(h, &allowed, &needed);
        EXPECT_EQ(needed, row.needed);
        aviin_close(h);
    }
}

// RIFF "AVI " [hdrl: one video stream whose super index holds three entries
// and uses two] [movi: frames] [ix00 of frames 0..split-1] [ix00 of
// the rest]; the standard indexes count their entries from the movi list and
// claim in_use_extra entries more than they hold.
std::vector<size_t> odml_ix;  // where each standard index begins

byte_image make_odml(const std::vector<byte_image> &frames, const std::vector<bool> &key, size_t split, uint32_t in_use_extra) {
    byte_image out;
    for (int pass = 0; pass < 2; ++pass) {  // the second pass knows where the indexes are
        byte_image indx;
        indx.u16(4).u8(0).u8(0).u32(2).id("00dc").u32(0).u32(0).u32(0);
        // The spare third entry names the first standard index again.
        for (size_t i = 0; i < 3; ++i) indx.u64(pass == 0 ? 0 : odml_ix[i % 2]).u32(0).u32(static_cast<uint32_t>(i == 1 ? frames.size() - split : split));
        const byte_image list = hdrl({strl(byte_image().append(strh_chunk("vids", "XVID", 1, 25, 0)).append(strf_video_chunk(64, 48, "XVID")).chunk("indx", indx))});
        byte_image body;
        for (const byte_image &f : frames) body.chunk("00dc", f);
        const uint64_t base = 12 + list.size();  // the movi LIST
        byte_image form = byte_image().append(list).append(movi(body));
        odml_ix.clear();
        for (size_t from = 0, to = split, at = base + 20; from < frames.size(); from = to, to = frames.size()) {
            byte_image ix;
            ix.u16(2).u8(0).u8(1).u32(static_cast<uint32_t>(to - from) + in_use_extra).id("00dc").u64(base).u32(0);
            for (size_t i = from; i < to; at += 8 + (frames[i].size() + 1) / 2 * 2, ++i)
                ix.u32(static_cast<uint32_t>(at - base)).u32(static_cast<uint32_t>(frames[i].size()) | (key[i] ? 0 : 0x80000000u));
            odml_ix.push_back(12 + form.size());
            form.chunk("ix00", ix);
        }
        out = avi_form(form);
    }
    return out;
}

// Each standard index the super index names, asked for from its first entry
// and from past its last; the third, beyond the two in use, is not read.
TEST(index_position, standard_index_entries_name_the_chunks_the_walk_meets) {
    const std::vector<byte_image> frames = {filler(40, 1), filler(21, 2), filler(30, 3), filler(50, 4), filler(8, 5)};
    const std::vector<bool> key = {true, false, false, true, false};
    // in_use_extra: nEntriesInUse beyond the entries each chunk holds; tail: bytes cut off the end of the file (< 0);
    // got: entries handed out by each standard index, or -result
    const struct { const char *name; uint32_t in_use_extra; int tail; std::vector<int> got; } rows[] = {
        {"two whole standard indexes", 0, 0, {3, 2, -1}},
        {"counts beyond their chunks", 1000, 0, {3, 2, -1}},
        {"the second cut inside its last entry", 0, -4, {3, 1, -1}},
        {"the second's header cut", 0, -24, {3, -1, -1}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const temp_file disk(resized(make_odml(frames, key, 3, row.in_use_extra), row.tail));
        aviin_handle *h = aviin_open(disk.path(), 0);
        ASSERT_NE(h, nullptr);
        const std::vector<walked> chunks = walk(h);
        ASSERT_EQ(chunks.size(), frames.size());
        for (uint32_t index = 0, frame = 0; index < 3; frame = 3, ++index) {
            uint64_t ix = 0;
            uint32_t d = 0, n = 0;
            EXPECT_EQ(aviin_get_super_index_entry(h, 0, index, &ix, &d), index < 2 ? 0 : 3);
            if (index < 2) { EXPECT_EQ(ix, odml_ix[index]); }
            index_position got[8];
            const int r = aviin_get_std_index_positions(h, 0, index, 0, got, 8, &n);
            ASSERT_EQ(r == 0 ? static_cast<int>(n) : -r, row.got[index]);
            if (r != 0) continue;
            EXPECT_EQ(aviin_get_std_index_positions(h, 0, index, n, got, 8, &n), 3);
            aviin_get_std_index_positions(h, 0, index, 0, got, 8, &n);
            for (uint32_t i = 0; i < n; ++i, ++frame) {
                EXPECT_EQ(got[i].position, static_cast<uint64_t>(chunks[frame].data)) << "frame " << frame;
                EXPECT_EQ(got[i].size, chunks[frame].size);
                EXPECT_EQ(got[i].key, key[frame] ? 16u : 0u);
                EXPECT_EQ(got[i].stream, 0u);
            }
        }
        aviin_close(h);
    }
}

}  // namespace
