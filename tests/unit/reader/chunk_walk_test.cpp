// Walking the movi list: whole chunks into a buffer, headers only, reading
// and moving by offset. Expected positions come from the images as built.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "reader/reader_handle.h"
#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

std::vector<uint8_t> bytes_at(const byte_image &image, int64_t from, size_t count) {
    const auto begin = image.bytes().begin() + from;
    return std::vector<uint8_t>(begin, begin + static_cast<long>(count));
}

// Where the walk goes on: the position of the header (or unrecognised id)
// the next header step reads.
int64_t walk_position(aviin_handle *h) {
    const header_call c = next_header(h);
    return c.result != 0 ? -c.result : static_cast<int64_t>(c.offset) - (c.type == KELQAVI_CHUNK_UNKNOWN ? 4 : 8);
}

// type, stream: as the walks must report them
struct movi_chunk { std::string id, data; uint32_t type, stream; };

// The chunks laid out in a movi list, with the data position of each.
struct laid_out { form_image form; std::vector<int64_t> data_pos; };

laid_out lay_out(const std::vector<movi_chunk> &chunks, const byte_image &after_movi) {
    byte_image body;
    for (const movi_chunk &c : chunks) body.chunk(c.id.c_str(), byte_image().text(c.data));
    laid_out out{main_form(body, after_movi), {}};
    int64_t pos = out.form.movi_data;
    for (const movi_chunk &c : chunks) {
        out.data_pos.push_back(pos + 8);
        pos += 8 + static_cast<int64_t>(c.data.size() + c.data.size() % 2);
    }
    return out;
}

// Calls and chunks as one line of text each, to compare whole.
std::string said(const chunk_call &c) {
    return std::to_string(c.result) + " " + std::to_string(c.type) + " " + std::to_string(c.stream) + " " + c.name + " " + as_text(c.data);
}
std::string said(const header_call &c) {
    return std::to_string(c.result) + " " + std::to_string(c.type) + " " + std::to_string(c.stream) + " @" + std::to_string(c.offset) + " " + std::to_string(c.size);
}
std::string said(const movi_chunk &c) { return "0 " + std::to_string(c.type) + " " + std::to_string(c.stream) + " " + c.id + " " + c.data; }
std::string said(const movi_chunk &c, int64_t data_pos) {
    return "0 " + std::to_string(c.type) + " " + std::to_string(c.stream) + " @" + std::to_string(data_pos) + " " + std::to_string(c.data.size());
}

const byte_image some_idx1 = byte_image().chunk("idx1", byte_image().fill(16));

const std::vector<movi_chunk> plain_chunks = {
    {"00dc", "abcde", 3, 0},  // odd: a pad byte follows
    {"01wb", "wxyz", 1, 1},
    {"JUNK", "------", 10, 0xFFFFFFFF},
    {"00dc", "", 3, 0},  // empty, but not the last
    {"01wb", "pq", 1, 1},
};

}  // namespace

// Both walks over the same list agree with the layout and with each other,
// and stop at the list's end whether the last chunk is odd, even or empty
// (an empty last chunk is never returned). A list ending at the end of the
// file ends the whole-chunk walk with a failure that sticks, as the header is
// read before the end test. Ids written type first ("dc00") are read so when
// asked for.
TEST(ChunkWalk, BothWalksFollowTheLayoutToTheListEnd) {
    const struct { const char *last; bool index_after; int whole_end; uint32_t swapped; } rows[] = {
        {"pq", true, 3, 0}, {"pqr", true, 3, 0}, {"", true, 3, 0}, {"pq", false, 1, 0}, {"pq", true, 3, 1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << "last '" << row.last << "' idx1 " << row.index_after << " swapped "
                                        << row.swapped);
        std::vector<movi_chunk> chunks = plain_chunks;
        chunks.back().data = row.last;
        for (movi_chunk &c : chunks)
            if (row.swapped != 0 && c.type != KELQAVI_CHUNK_JUNK) c.id = c.id.substr(2) + c.id.substr(0, 2);
        const laid_out l = lay_out(chunks, row.index_after ? some_idx1 : byte_image());
        if (*row.last == '\0') chunks.pop_back();

        reader whole(l.form.bytes, row.swapped);
        ASSERT_TRUE(whole);
        for (const movi_chunk &c : chunks) EXPECT_EQ(said(next_chunk(whole)), said(c));
        EXPECT_EQ(next_chunk(whole).result, row.whole_end);
        // Past the end each call steps on, so the end of the file turns it into 1;
        // it never yields a chunk from beyond the list.
        int result = 3;
        for (int calls = 0; calls < 8 && result == 3; ++calls) result = next_chunk(whole).result;
        EXPECT_EQ(result, 1);
        if (row.whole_end == 1) {
            uint8_t byte = 0;
            EXPECT_EQ(next_header(whole).result, 1) << "the failure is sticky";
            EXPECT_EQ(aviin_get_chunk(whole, 0, &byte, 1), 1);
        }

        reader headers(l.form.bytes, row.swapped);
        ASSERT_TRUE(headers);
        for (size_t i = 0; i < chunks.size(); ++i) {
            const header_call got = next_header(headers);
            EXPECT_EQ(said(got), said(chunks[i], l.data_pos[i]));
            std::vector<uint8_t> data(got.size + 1, untouched);
            EXPECT_EQ(aviin_get_chunk(headers, got.offset, data.data(), got.size), 0);
            data.pop_back();
            EXPECT_EQ(as_text(data), chunks[i].data);
        }
        EXPECT_EQ(next_header(headers).result, 3);
        EXPECT_EQ(next_header(headers).result, 3) << "the header walk stays at the end";
    }
}

// Chunk sizes on both sides of the points where a step stops reading its way
// forward and seeks, one larger than the stream's buffer, with the stream
// moved by the caller before each call: every call still reports the layout
// and leaves the stream after the data (whole walk) or at it (header walk),
// and at the list's end for the end.
TEST(ChunkWalk, EachCallLeavesTheStreamWhereItsStepEndsWhateverMovedItBefore) {
    std::vector<movi_chunk> chunks;
    for (size_t size : {0, 1, 7, 8, 9, 4095, 4096, 4097, 40000, 3}) {
        const bool odd = size % 2 != 0;
        chunks.push_back({odd ? "01wb" : "00dc", std::string(size, static_cast<char>('a' + size % 26)), odd ? 1u : 3u,
                          odd ? 1u : 0u});
    }
    const laid_out l = lay_out(chunks, some_idx1);
    const int64_t list_end = l.data_pos.back() + 4;
    const struct {
        const char *what;
        void (*move)(FILE *);
    } moves[] = {
        {"left alone", [](FILE *) {}},
        {"back to the start", [](FILE *f) { file_seek(f, 0, 0); }},
        {"a byte on", [](FILE *f) { file_seek(f, 1, 1); }},
        {"to the end and read past it", [](FILE *f) { file_seek(f, 0, 2), std::fgetc(f); }},
    };
    for (const auto &m : moves) {
        SCOPED_TRACE(m.what);
        reader whole(l.form.bytes), headers(l.form.bytes);
        ASSERT_TRUE(whole && headers);
        FILE *const wf = whole.get()->current_list->stream, *const hf = headers.get()->current_list->stream;
        for (size_t i = 0; i < chunks.size(); ++i) {
            SCOPED_TRACE(chunks[i].data.size());
            m.move(wf);
            m.move(hf);
            EXPECT_EQ(said(next_chunk(whole, 65536)), said(chunks[i]));
            EXPECT_EQ(file_tell(wf), l.data_pos[i] + static_cast<int64_t>(chunks[i].data.size()));
            EXPECT_EQ(said(next_header(headers)), said(chunks[i], l.data_pos[i]));
            EXPECT_EQ(file_tell(hf), l.data_pos[i]);
            EXPECT_EQ(file_eof(wf) + file_eof(hf), 0);
        }
        m.move(wf);
        m.move(hf);
        EXPECT_EQ(next_chunk(whole).result, 3);
        EXPECT_EQ(next_header(headers).result, 3);
        EXPECT_EQ(file_tell(wf), list_end);
        EXPECT_EQ(file_tell(hf), list_end);
    }
    // The file cut short, walked by headers: the steps that still find a
    // header, then the next step's result and where it leaves the stream (a
    // step beyond the file's end stands there, as a seek would).
    const struct { int64_t kept; size_t found; int last; int64_t stands; } cuts[] = {
        {l.data_pos[2] + 3, 3, 1, l.data_pos[2] + 8},       // in a chunk passed over byte by byte
        {l.data_pos[5] + 100, 6, 1, l.data_pos[5] + 4096},  // in one passed over block by block
        {l.data_pos[3] - 4, 3, 1, l.data_pos[3] - 4},       // an id without its size
        {l.data_pos[3] - 3, 4, 1, l.data_pos[3] + 8},       // one byte of the size: it is 8
        {list_end - 2, chunks.size(), 3, list_end},
    };
    for (const auto &c : cuts) {
        SCOPED_TRACE(testing::Message() << "cut to " << c.kept);
        reader cut(l.form.bytes.head(static_cast<size_t>(c.kept)));
        ASSERT_TRUE(cut);
        for (size_t i = 0; i < c.found; ++i) EXPECT_EQ(said(next_header(cut)), said(chunks[i], l.data_pos[i]));
        EXPECT_EQ(next_header(cut).result, c.last);
        EXPECT_EQ(file_tell(cut.get()->current_list->stream), c.stands);
    }
}

// An unknown chunk whose data holds ids that must not end the scan ("JUNK",
// an "ix" id, RES1, a swapped id, an unknown "d?" suffix), then 01wb, 00dc.
TEST(ChunkWalk, ResyncScanStoresWhatItSkipsAndIsBoundedByTheCapacity) {
    byte_image movi_chunks;
    movi_chunks.chunk("abcd", byte_image().text("JUNKix00RES1dc0000dx"));
    movi_chunks.chunk("01wb", byte_image().text("hi")).chunk("00dc", byte_image().text("ok"));
    const form_image f = main_form(movi_chunks, some_idx1);
    const int64_t p = f.movi_data;
    const int64_t match = p + 8 + 20;  // the 01wb header

    const struct { int32_t capacity; int calls; int32_t stored; int64_t next_pos; } cases[] = {
        {256, 1, 25, match},     // every skipped byte and the first byte of the match
        {25, 1, 25, match},      // the match takes the last slot
        {24, 1, 24, match - 1},  // full first: the walk goes on at the last position examined
        {1, 1, 1, p + 4},
        {0, 1, 0, p + 3},  // nothing examined: three bytes on
        {-7, 1, 0, p + 3},
        {0, 6, 0, p + 18},  // and so on, three bytes a call (read as plain ids)
    };
    for (uint32_t swapped : {0u, 1u}) {
        for (const auto &c : cases) {
            if (swapped != 0 && c.calls > 1) continue;
            SCOPED_TRACE(testing::Message() << "capacity " << c.capacity << " swapped " << swapped);
            reader r(f.bytes, swapped);
            ASSERT_TRUE(r);
            chunk_call got = next_chunk(r, c.capacity);
            EXPECT_EQ(said(got).substr(0, 19), "0 0 4294967295 abcd");
            for (int call = 1; call < c.calls; ++call) got = next_chunk(r, c.capacity);
            EXPECT_EQ(got.result, 0);
            ASSERT_EQ(got.size, c.stored);
            if (c.calls == 1) { EXPECT_EQ(got.data, bytes_at(f.bytes, p + 4, static_cast<size_t>(c.stored))); }
            EXPECT_EQ(walk_position(r), c.next_pos);
        }
    }
    reader r(f.bytes);
    next_chunk(r);
    EXPECT_EQ(as_text(next_chunk(r).data), "hi");
    EXPECT_EQ(as_text(next_chunk(r).data), "ok");
}

TEST(ChunkWalk, ChunkLargerThanTheBufferFailsAndIsPassedOver) {
    const form_image f = main_form(byte_image()
                                       .chunk("00dc", byte_image().text("0123456789"))
                                       .chunk("01wb", byte_image().text("next"))
                                       .chunk("00dc", byte_image())
                                       .chunk("01wb", byte_image().text("end")),
                                   some_idx1);
    for (int32_t capacity : {10, 9, 0, -1}) {
        SCOPED_TRACE(capacity);
        reader r(f.bytes);
        const chunk_call got = next_chunk(r, capacity);
        EXPECT_EQ(got.result, capacity >= 10 ? 0 : 1);
        EXPECT_EQ(got.size, capacity) << "the size read, or the capacity left as it was";
        EXPECT_EQ(as_text(got.data), capacity >= 10 ? "0123456789" : std::string(got.data.size(), char(untouched)));
        EXPECT_EQ(as_text(next_chunk(r).data), "next");
        // An empty chunk fits any capacity but a negative one.
        EXPECT_EQ(next_chunk(r, capacity).result, capacity < 0 ? 1 : 0);
    }
    // A null buffer with no capacity passes over a chunk that does not fit;
    // a null buffer with room, or no handle, is refused without moving the walk.
    reader r(f.bytes);
    uint32_t type = 0, stream = 0;
    int32_t size = 4;
    EXPECT_EQ(aviin_get_next_chunk(r, &type, &stream, nullptr, &size), 1);
    EXPECT_EQ(aviin_get_next_chunk(nullptr, &type, &stream, nullptr, &size), 1);
    size = 0;
    EXPECT_EQ(aviin_get_next_chunk(r, &type, &stream, nullptr, &size), 1);
    EXPECT_EQ(as_text(next_chunk(r).data), "next");
}

// Size fields of 0x80000000 and more: the header walk adds them as negative
// numbers (with the pad byte added in 32 bits), the whole-chunk walk as sizes.
TEST(ChunkWalk, HugeSizeFieldsMoveTheHeaderWalkBackwards) {
    // next: where the header walk goes on from the data; 0: before the file, failing for good
    const struct { uint32_t size; int64_t next; } rows[] = {{0xFFFFFFF8, -8}, {0xFFFFFFFF, 0}, {0x80000000, 1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        const form_image f = main_form(byte_image().chunk("00dc", byte_image().text("before")).id("01wb").u32(row.size).fill(300, 'x'));
        const uint64_t data = static_cast<uint64_t>(f.movi_data + 14 + 8);
        reader r(f.bytes);
        EXPECT_EQ(next_header(r).type, 3u);
        EXPECT_EQ(said(next_header(r)), "0 1 1 @" + std::to_string(data) + " " + std::to_string(row.size));
        if (row.next == 1) {
            EXPECT_EQ(next_header(r).result, 1);
            EXPECT_EQ(next_header(r).result, 1);
        } else {
            // -8 comes back to the same header for ever; 0 reads on at the data.
            EXPECT_EQ(walk_position(r), static_cast<int64_t>(data) + row.next);
        }
        // The whole-chunk walk: too big for any buffer (and the file holds more
        // than this one), passed over, then the end of the file.
        reader whole(f.bytes);
        next_chunk(whole);
        EXPECT_EQ(next_chunk(whole, 16).result, 1);
        EXPECT_EQ(next_chunk(whole).result, 1);
    }
}

TEST(ChunkWalk, SeekByOffsetAndGetChunkMoveOrReadAnywhereUpToTheFileLength) {
    const laid_out l = lay_out(plain_chunks, some_idx1);
    const uint64_t length = l.form.bytes.size();
    reader r(l.form.bytes);
    // Back to each header in turn, from the last: the same chunk again.
    for (size_t i = plain_chunks.size(); i-- > 0;) {
        ASSERT_EQ(aviin_seek_by_offset(r, static_cast<uint64_t>(l.data_pos[i] - 8)), 0);
        EXPECT_EQ(as_text(next_chunk(r).data), plain_chunks[i].data);
    }
    EXPECT_EQ(aviin_seek_by_offset(r, length + 1), 1);
    EXPECT_EQ(as_text(next_chunk(r).data), "wxyz") << "a refused offset does not move the walk";
    // Reading at an offset does not move the walk either.
    char fourth[3] = {};
    EXPECT_EQ(aviin_get_chunk(r, static_cast<uint64_t>(l.data_pos[4]), fourth, 2), 0);
    EXPECT_STREQ(fourth, "pq");
    // A short read fails without harming the walk; an offset no seek can
    // reach fails the walk for good.
    std::vector<uint8_t> tail(32);
    EXPECT_EQ(aviin_get_chunk(r, length - 4, tail.data(), 32), 1);
    EXPECT_EQ(next_chunk(r).type, 10u);
    EXPECT_EQ(aviin_get_chunk(r, 0x8000000000000000ull, tail.data(), 1), 1);
    EXPECT_EQ(next_chunk(r).result, 1);

    reader end(l.form.bytes);
    EXPECT_EQ(aviin_seek_by_offset(end, length), 0);
    EXPECT_EQ(next_header(end).result, 3);
    EXPECT_EQ(aviin_seek_by_offset(end, length), 0);
    EXPECT_EQ(next_chunk(end).result, 1) << "nothing to read at the end of the file";
}
