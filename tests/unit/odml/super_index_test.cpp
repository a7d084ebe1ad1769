// The super index of a stream's "strl" list as read_indx records it, and the
// entries aviin_get_indx_entry finds through it.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "support/hand_handle.h"
#include "unit/odml/odml_image.h"

using namespace kelqtest;

namespace {

constexpr int64_t indx_at = 16;  // after a filler, so that no position is 0
constexpr uint32_t non_key = 0x80000000u;

byte_image at_indx(const byte_image &indx) { return byte_image().fill(indx_at, 0xEE).append(indx); }

// A stream's super index with two standard indexes of ten entries each
// (dwDuration 10 and 10), and a third slot beyond nEntriesInUse that would
// point back at the first.
struct two_level_index {
    explicit two_level_index(const char *chunk_id = "00dc", uint32_t duration = 10, uint16_t longs = 2) {
        for (uint32_t i = 0; i < 10; ++i) {
            first.push_back({0x100 * i + 8, i == 3 ? 0x80000400u : 200 + i, 0xAAAA0000u + i});
            second.push_back({0x80 * i + 8, (300 + i) | (i % 2 != 0 ? non_key : 0), 0xBBBB0000u + i});
        }
        const byte_image ix0 = ix_chunk("ix00", chunk_id, 0x4000, first, longs);
        const byte_image ix1 = ix_chunk("ix00", chunk_id, 0x8000, second, longs);
        const uint64_t ix0_at = indx_at + written_indx_bytes, ix1_at = ix0_at + ix0.size();
        image = at_indx(indx_chunk(chunk_id, 2, {{ix0_at, 0, duration}, {ix1_at, 0, duration}, {ix0_at, 0, 10}}));
        image.append(ix0).append(ix1);
    }
    std::vector<std_entry> first, second;
    byte_image image;
};

// aviin_get_indx_entry from a set position, which must be the position after.
entry_out get_entry(hand_handle &h, uint32_t n, uint32_t stream) {
    entry_out r{};
    h.seek(5);
    r.status = aviin_get_indx_entry(h, n, stream, &r.type, &r.size, &r.key);
    EXPECT_EQ(h.tell(), 5) << "position restored after entry " << n;
    return r;
}

// The streams whose index gives a first entry.
std::vector<uint32_t> indexed_streams(hand_handle &h) {
    std::vector<uint32_t> out;
    for (uint32_t s = 0; s < 100; ++s)
        if (get_entry(h, 0, s).status == 0) out.push_back(s);
    return out;
}

int read_indx_at(hand_handle &h, uint32_t swapped = 0) {
    h.seek(indx_at);
    return kelq::read_indx(h, swapped);
}

}  // namespace

TEST(ReadIndx, StreamNumberComesFromTheChunkId) {
    const struct { const char *chunk_id; uint32_t swapped; std::vector<uint32_t> streams; } cases[] = {
        {"01wb", 0, {1}}, {"01wb", 1, {1}}, {"wb01", 0, {}}, {"wb01", 1, {1}}, {"19dc", 0, {19}},
        // Numbers without a stream slot.
        {"20dc", 0, {}}, {"99wb", 0, {}}, {"dc25", 1, {}},
        // The ids this library's writer puts in its indexes carry one digit only.
        {"0\0dc", 0, {}}, {"\0\0" "0\0", 1, {}}, {"x1wb", 1, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.chunk_id, 4) + (c.swapped ? " swapped" : ""));
        hand_handle h(two_level_index(c.chunk_id).image, -1, c.swapped);
        EXPECT_EQ(read_indx_at(h, c.swapped), 0);
        EXPECT_EQ(h.tell(), indx_at + static_cast<int64_t>(written_indx_bytes));
        EXPECT_EQ(indexed_streams(h), c.streams);
    }
}

TEST(ReadIndx, MovesPastTheChunkBySizeAsStored) {
    // An odd size gets no pad byte; a size past the end still gives the seek's result.
    hand_handle odd(at_indx(indx_chunk("00dc", 0, {}, 0, 41)));
    EXPECT_EQ(read_indx_at(odd), 0);
    EXPECT_EQ(odd.tell(), indx_at + 8 + 41);
    hand_handle huge(at_indx(indx_chunk("00dc", 0, {}, 0, 0xFFFFFFF0u)));
    read_indx_at(huge);
    EXPECT_EQ(huge.tell(), indx_at + 8 + 0xFFFFFFF0ll);
    // A chunk cut short keeps what could be read; the missing bytes count as zero.
    hand_handle t(at_indx(indx_chunk("03dc", 7, {})).head(indx_at + 18));
    read_indx_at(t);
    EXPECT_EQ(t->indx_pos[3], indx_at);
    EXPECT_EQ(t->indx_header[3].entries_in_use, 7u);
    EXPECT_EQ(t->indx_header[3].chunk_id, make_fourCC("03"));
}

// Single entries through a super index of each kind: the standard index
// holding the entry is found by the durations, its entries stepped by its
// own width; an indx of bIndexType 1 holds the entries itself; the type
// follows the chunk id; bit 31 of the size says "not key". Entries with
// swapped ids are looked up in whole files opened with them.
TEST(IndxEntry, SuperIndexLeadsToTheStandardIndexHoldingTheEntry) {
    constexpr uint32_t video = KELQAVI_CHUNK_VIDEO, audio = KELQAVI_CHUNK_AUDIO, failed = 0xDEAD;
    const byte_image plain = two_level_index().image, wide = two_level_index("00dc", 10, 3).image;
    // dwDuration of an audio super index counts bytes, yet is taken as the number of entries.
    const byte_image sound = two_level_index("01wb", 3000).image;
    const byte_image chunks = at_indx(indx_of_chunks("02wb", {{8, 10}, {26, 0x80000020u}, {70, 7}}));
    const struct { const char *name; const byte_image &image; uint32_t stream, n, size, key, type; } rows[] = {
        {"second standard index", plain, 0, 15, 305, 0, video},
        {"bit 31 removed", plain, 0, 3, 0x400, 0, video},
        {"key frame", plain, 0, 12, 302, 16, video},
        {"twenty entries, the third slot unused", plain, 0, 20, failed, failed, failed},
        {"no indx for stream 1", plain, 1, 0, failed, failed, failed},
        {"no slot", plain, 20, 0, failed, failed, failed},
        {"audio durations", sound, 1, 3000, 300, 16, audio},
        {"three longs, second index", wide, 0, 19, 309 | non_key, 0, video},
        {"chunk entries in the indx", chunks, 2, 1, 0x20 | non_key, 0, audio},
        {"last chunk entry", chunks, 2, 2, 7, 16, audio},
        {"past the chunk entries", chunks, 2, 3, failed, failed, failed},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        hand_handle h(r.image);
        read_indx_at(h);
        const entry_out e = get_entry(h, r.n, r.stream);
        EXPECT_EQ(e.status, r.size == failed ? 1 : 0);
        EXPECT_EQ(std::make_tuple(e.size, e.key, e.type), std::make_tuple(r.size & ~non_key, r.key, r.type));
    }
    hand_handle h(plain);
    read_indx_at(h);
    EXPECT_EQ(aviin_get_indx_entry(nullptr, 0, 0, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(aviin_get_indx_entry(h, 4, 0, nullptr, nullptr, nullptr), 0) << "null outputs are allowed";
}

// Unknown index types and hostile super indexes: each lookup fails, quickly.
TEST(IndxEntry, HostileSuperIndexesEndQuickly) {
    const std::vector<super_entry> zero(100, super_entry{indx_at, 0, 0});
    // A slot just after the chunk's hundred would lead to a real entry, but
    // lies outside the chunk's size: it is not read as part of the index.
    const uint64_t ix_at = indx_at + written_indx_bytes + 16;
    const two_level_index idx;
    std::vector<byte_image> images = {
        // Far more entries in use than the chunk has room for, all of duration 0.
        at_indx(indx_chunk("00dc", 0xFFFFFFFFu, zero)),
        at_indx(indx_chunk("00dc", 101, zero)).u64(ix_at).u32(0).u32(1).append(ix_chunk("ix00", "00dc", 0, {{8, 10}})),
        // A size field claiming 4 GiB of entries in a small file.
        at_indx(indx_chunk("00dc", 0xFFFFFFFFu, zero, 0, 0xFFFFFFF0u)),
        // An index that has lost its tail.
        idx.image.head(indx_at + 40), idx.image.head(indx_at + written_indx_bytes + 20), idx.image.head(idx.image.size() - 60),
    };
    // Unknown index types.
    for (uint8_t type : {2, 0x80, 0xFF}) images.push_back(at_indx(indx_chunk("00dc", 1, {{0x20, 0, 10}}, type)));
    // Standard indexes beyond the end of the file or of any position.
    for (uint64_t at : {uint64_t{0x7FFFFFF0}, ~uint64_t{0}, uint64_t{0x7FFFFFFFFFFFFFFF}, uint64_t{2000}})
        images.push_back(at_indx(indx_chunk("00dc", 1, {{at, 0, 10}})));
    for (const byte_image &image : images) {
        SCOPED_TRACE(testing::Message() << "image " << &image - images.data());
        hand_handle h(image);
        read_indx_at(h);
        EXPECT_EQ(get_entry(h, 19, 0).status, 1);
        if (image.size() != idx.image.size() - 60) { EXPECT_EQ(get_entry(h, 0, 0).status, 1); }
    }
}
