// Standard index chunks read directly: their parsed header, and their entries
// through avi2_get_index_entry with the stream's cursor.
#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>
#include <vector>

#include "support/hand_handle.h"
#include "unit/odml/odml_image.h"

using namespace kelqtest;

TEST(StandardIndexHeader, FieldsDecodeLittleEndian) {
    const uint8_t bytes[24] = {0x02, 0x01, 0x05, 0x01, 0x0A, 0x00, 0x00, 0x80, '0',  '3',  'd',  'c',
                               0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x81, 0xEF, 0xBE, 0xAD, 0xDE};
    std_index_header *r = avi2_parse_standard_index_chunk(bytes);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(std::make_tuple(r->longs_per_entry, r->index_sub_type, r->index_type, r->entries_in_use, r->chunk_id),
              std::make_tuple(uint16_t{0x0102}, uint8_t{5}, uint8_t{1}, 0x8000000Au, make_fourCC("03dc")));
    EXPECT_EQ(std::make_pair(r->base_offset, r->reserved), std::make_pair(uint64_t{0x8102030405060708ull}, 0xDEADBEEFu));
    std::free(r);
    EXPECT_EQ(avi2_parse_standard_index_chunk(nullptr), nullptr);
}

namespace {

constexpr int64_t ix_at = 10;
constexpr uint32_t bit24 = 0x01000000u, untouched = 0xDEAD;

// A file holding one standard index chunk at ix_at.
byte_image ix_file(const char *chunk_id = "00dc") {
    return byte_image().fill(ix_at, 0x55).append(ix_chunk("ix00", chunk_id, 0x1234, {
        {8, 100},                  // key
        {0x208 | bit24, 200},      // offset flag set: no key
        {0x408, 0x80000400u},      // bit 31 of the size kept
        {0x808 | bit24, 0x80000001u},
    }));
}

entry_out get(hand_handle &h, uint32_t n, uint32_t stream = 0, int64_t at = ix_at) {
    entry_out r{};
    r.status = avi2_get_index_entry(at, h, n, stream, &r.type, &r.size, &r.key);
    return r;
}

}  // namespace

TEST(StandardIndexEntry, SizeKeptWholeAndKeyFromOffsetBit24) {
    hand_handle h(ix_file());
    const struct { uint32_t size, key; } expected[] = {{100, 1}, {200, 0}, {0x80000400u, 1}, {0x80000001u, 0}, {0, 1}};
    for (uint32_t n = 0; n < 5; ++n) {  // the writer's spare room reads as zero entries
        const entry_out e = get(h, n);
        EXPECT_EQ(e.status, 0);
        EXPECT_EQ(e.size, expected[n].size) << n;
        EXPECT_EQ(e.key, expected[n].key) << n;
        EXPECT_EQ(h.tell(), ix_at + 32 + 8 * (n + 1)) << "left after the entry";
    }
    EXPECT_EQ(get(h, 0, 0, -100).status, 1) << "seek before the file's start";
    EXPECT_EQ(get(h, 0, 0, INT64_MAX).status, 1);
    // Past the end the seek succeeds: the status is 0 and nothing is read.
    const entry_out past = get(h, 1000);
    EXPECT_EQ(past.status, 0);
    EXPECT_EQ(past.size + past.key, 2 * untouched);
    uint32_t type = 7;
    EXPECT_EQ(avi2_get_index_entry(ix_at, nullptr, 0, 0, &type, nullptr, nullptr), 1);
    EXPECT_EQ(avi2_get_index_entry(ix_at, h, 0, 0, nullptr, nullptr, nullptr), 0);
}

// The type comes from the cursor the application set for the stream (the
// chunk's own header, parsed), with swapped ids only on a swapped handle.
TEST(StandardIndexEntry, TypeComesFromTheStreamsCursor) {
    constexpr uint32_t no_cursor = 99, video = KELQAVI_CHUNK_VIDEO, audio = KELQAVI_CHUNK_AUDIO;
    const struct { const char *name, *chunk_id; uint32_t swapped, cursor_stream, stream, type; int set_result; } rows[] = {
        {"a stream without a slot has no cursor", "00dc", 0, no_cursor, 25, 0, 0},
        {"the stream's cursor", "00dc", 0, 19, 19, video, 0},
        {"another stream's cursor", "00dc", 0, 19, 18, 0, 0},
        {"no slot to set", "00dc", 0, 20, 20, 0, 1},
        {"swapped id, plain handle", "wb04", 0, 4, 4, 0, 0},
        {"swapped id, swapped handle", "wb04", 1, 4, 4, audio, 0},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const byte_image image = ix_file(r.chunk_id);
        hand_handle h(image, -1, r.swapped);
        std_index_header *cursor = avi2_parse_standard_index_chunk(image.bytes().data() + ix_at + 8);
        ASSERT_NE(cursor, nullptr);
        if (r.cursor_stream != no_cursor) { EXPECT_EQ(aviin_set_odml_cursor(h, r.cursor_stream, cursor), r.set_result); }
        const entry_out e = get(h, 1, r.stream);
        EXPECT_EQ(e.type, r.type);
        EXPECT_EQ(e.size, 200u);
        EXPECT_EQ(aviin_set_odml_cursor(h, r.stream, nullptr), r.stream < 20 ? 0 : 1);
        EXPECT_EQ(get(h, 1, r.stream).type, 0u) << "cursor taken away";
        std::free(cursor);  // the handle never frees the cursor: the application does
    }
    EXPECT_EQ(aviin_set_odml_cursor(nullptr, 0, nullptr), 1);
}
