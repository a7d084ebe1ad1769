// The super index of a stream's "strl" list as read_indx records it, and the
// entries aviin_get_indx_entry finds through it.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "support/hand_handle.h"
#include "unit/odml/odml_image.h"

using namespace kelqtest;

namespace {

constexpr int64_t indx_at = 16;     // after a filler, so that no position is 0
constexpr uint32_t non_key = 0x80000000u;

byte_image filler() { return byte_image().fill(indx_at, 0xEE); }

// Runs read_indx on an image holding the chunk at indx_at.
struct read_indx_run {
    read_indx_run(const byte_image &indx, uint32_t swapped) : h(byte_image().append(filler()).append(indx)) {
        std::memcpy(&before, h.get(), sizeof before);
        h.seek(indx_at);
        result = kelq::read_indx(h, swapped);
    }
    bool handle_unchanged() const { return std::memcmp(&before, h.get(), sizeof before) == 0; }
    hand_handle h;
    aviin_handle before;
    int result;
};

}  // namespace

TEST(ReadIndx, StreamNumberComesFromTheChunkId) {
    struct Case {
        const char *chunk_id;
        uint32_t swapped;
        int stream;  // -1: ignored
    } cases[] = {
        {"01wb", 0, 1}, {"01wb", 1, 1}, {"wb01", 0, -1}, {"wb01", 1, 1}, {"19dc", 0, 19},
        // Numbers without a stream slot.
        {"20dc", 0, -1}, {"99wb", 0, -1}, {"dc25", 1, -1},
        // The ids this library's writer puts in its indexes carry one digit only.
        {"0\0dc", 0, -1}, {"\0\0" "0\0", 1, -1}, {"x1wb", 1, -1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.chunk_id, 4) + (c.swapped ? " swapped" : ""));
        const byte_image indx = indx_chunk(c.chunk_id, 2, {{0x1000, 0x70, 10}, {0x2000, 0x70, 10}});
        read_indx_run run(indx, c.swapped);
        EXPECT_EQ(run.result, 0);
        EXPECT_EQ(run.h.tell(), indx_at + static_cast<int64_t>(written_indx_bytes));
        if (c.stream < 0) {
            EXPECT_TRUE(run.handle_unchanged());
            continue;
        }
        for (int s = 0; s < kelq::max_stream_slots; ++s) EXPECT_EQ(run.h->indx_pos[s], s == c.stream ? indx_at : 0);
        const kelq::indx_header_copy &copy = run.h->indx_header[c.stream];
        EXPECT_EQ(copy.longs_per_entry, 4);
        EXPECT_EQ(copy.index_sub_type, 0);
        EXPECT_EQ(copy.index_type, 0);
        EXPECT_EQ(copy.entries_in_use, 2u);
        EXPECT_EQ(copy.chunk_id, make_fourCC(c.chunk_id));
    }
}

TEST(ReadIndx, MovesPastTheChunkBySizeAsStored) {
    // An odd size gets no pad byte; a size past the end still gives the seek's result.
    read_indx_run odd(indx_chunk("00dc", 0, {}, 0, 41), 0);
    EXPECT_EQ(odd.result, 0);
    EXPECT_EQ(odd.h.tell(), indx_at + 8 + 41);
    EXPECT_EQ(odd.h->indx_pos[0], indx_at);
    read_indx_run huge(indx_chunk("00dc", 0, {}, 0, 0xFFFFFFF0u), 0);
    EXPECT_EQ(huge.h.tell(), indx_at + 8 + 0xFFFFFFF0ll);
    // A chunk cut short keeps what could be read; the missing bytes count as zero.
    hand_handle t(byte_image().append(filler()).append(indx_chunk("03dc", 7, {})).head(indx_at + 18));
    t.seek(indx_at);
    kelq::read_indx(t, 0);
    EXPECT_EQ(t->indx_pos[3], indx_at);
    EXPECT_EQ(t->indx_header[3].entries_in_use, 7u);
    EXPECT_EQ(t->indx_header[3].chunk_id, make_fourCC("03"));
}

namespace {

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
        const byte_image indx =
            indx_chunk(chunk_id, 2, {{ix0_at, 0, duration}, {ix1_at, 0, duration}, {ix0_at, 0, 10}});
        image.append(filler()).append(indx).append(ix0).append(ix1);
    }
    // The raw dwSize of entry n of the whole stream.
    uint32_t raw_size(uint32_t n) const { return n < 10 ? first[n].size : second[n - 10].size; }

    std::vector<std_entry> first, second;
    byte_image image;
};

struct entry_result {
    int status;
    uint32_t type = 0xDEAD, size = 0xDEAD, key = 0xDEAD;
};

// aviin_get_indx_entry from a set position, which must be the position after.
entry_result get_entry(hand_handle &h, uint32_t n, uint32_t stream, int64_t from = 5) {
    entry_result r{};
    h.seek(from);
    r.status = aviin_get_indx_entry(h, n, stream, &r.type, &r.size, &r.key);
    EXPECT_EQ(h.tell(), from) << "position restored after entry " << n;
    return r;
}

hand_handle &with_indx(hand_handle &h, uint32_t swapped = 0) {
    h.seek(indx_at);
    kelq::read_indx(h, swapped);
    return h;
}

}  // namespace

TEST(IndxEntry, SuperIndexLeadsToTheStandardIndexHoldingTheEntry) {
    const two_level_index idx;
    hand_handle h(idx.image);
    with_indx(h);
    const entry_result e15 = get_entry(h, 15, 0);
    EXPECT_EQ(e15.status, 0);
    EXPECT_EQ(e15.type, static_cast<uint32_t>(KELQAVI_CHUNK_VIDEO));
    EXPECT_EQ(e15.size, 305u) << "the sixth entry of the second standard index";
    EXPECT_EQ(e15.key, 0u);
    const entry_result e3 = get_entry(h, 3, 0);
    EXPECT_EQ(e3.size, 1024u) << "dwSize 0x80000400: bit 31 removed";
    EXPECT_EQ(e3.key, 0u);
    for (uint32_t n = 0; n < 20; ++n) {
        const entry_result e = get_entry(h, n, 0);
        ASSERT_EQ(e.status, 0) << n;
        EXPECT_EQ(e.size, idx.raw_size(n) & ~non_key) << n;
        EXPECT_EQ(e.key, (idx.raw_size(n) & non_key) != 0 ? 0u : 16u) << n;
    }
    // Twenty entries in all: the slot beyond nEntriesInUse is not used.
    for (uint32_t n : {20u, 21u, 0xFFFFFFFFu}) {
        const entry_result e = get_entry(h, n, 0);
        EXPECT_EQ(e.status, 1) << n;
        EXPECT_EQ(e.size, 0xDEADu) << "outputs untouched on failure";
    }
}

TEST(IndxEntry, StreamsWithoutIndexOrSlot) {
    const two_level_index idx;
    hand_handle h(idx.image);
    with_indx(h);
    EXPECT_EQ(get_entry(h, 0, 1).status, 1) << "no indx for stream 1";
    EXPECT_EQ(get_entry(h, 0, 20).status, 1);
    EXPECT_EQ(get_entry(h, 0, 0xFFFFFFFFu).status, 1);
    EXPECT_EQ(aviin_get_indx_entry(nullptr, 0, 0, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(aviin_get_indx_entry(h, 4, 0, nullptr, nullptr, nullptr), 0) << "null outputs are allowed";
}

TEST(IndxEntry, AudioDurationsCountAsEntries) {
    // dwDuration of an audio super index counts bytes, yet is taken as the
    // number of entries: entry 3000 is the first of the second standard index.
    const two_level_index idx("01wb", 3000);
    hand_handle h(idx.image);
    with_indx(h);
    const entry_result e = get_entry(h, 3000, 1);
    EXPECT_EQ(e.status, 0);
    EXPECT_EQ(e.type, static_cast<uint32_t>(KELQAVI_CHUNK_AUDIO));
    EXPECT_EQ(e.size, 300u);
    EXPECT_EQ(get_entry(h, 2, 1).size, 202u);
}

TEST(IndxEntry, SwappedIdsGiveTheTypeToo) {
    const two_level_index idx("dc07");
    hand_handle plain(idx.image), swapped(idx.image, -1, 1);
    with_indx(plain, 0);
    with_indx(swapped, 1);
    EXPECT_EQ(get_entry(plain, 0, 7).status, 1);
    const entry_result e = get_entry(swapped, 12, 7);
    EXPECT_EQ(e.status, 0);
    EXPECT_EQ(e.type, static_cast<uint32_t>(KELQAVI_CHUNK_VIDEO));
    EXPECT_EQ(e.size, 302u);
}

TEST(IndxEntry, StandardIndexEntriesAreSteppedByTheirOwnWidth) {
    const two_level_index idx("00dc", 10, 3);
    hand_handle h(idx.image);
    with_indx(h);
    for (uint32_t n : {0u, 7u, 12u, 19u}) EXPECT_EQ(get_entry(h, n, 0).size, idx.raw_size(n) & ~non_key) << n;
}

TEST(IndxEntry, IndexHoldingChunkEntriesItself) {
    const byte_image indx = indx_of_chunks("02wb", {{8, 10}, {26, 0x80000020u}, {70, 7}});
    hand_handle h(byte_image().append(filler()).append(indx));
    with_indx(h);
    const entry_result e = get_entry(h, 1, 2);
    EXPECT_EQ(e.status, 0);
    EXPECT_EQ(e.type, static_cast<uint32_t>(KELQAVI_CHUNK_AUDIO));
    EXPECT_EQ(e.size, 0x20u);
    EXPECT_EQ(e.key, 0u);
    EXPECT_EQ(get_entry(h, 2, 2).size, 7u);
    EXPECT_EQ(get_entry(h, 2, 2).key, 16u);
    EXPECT_EQ(get_entry(h, 3, 2).status, 1);
}

TEST(IndxEntry, UnknownIndexTypeFails) {
    for (uint8_t type : {2, 0x80, 0xFF}) {
        hand_handle h(byte_image().append(filler()).append(indx_chunk("00dc", 1, {{0x20, 0, 10}}, type)));
        with_indx(h);
        EXPECT_EQ(h->indx_pos[0], indx_at);
        EXPECT_EQ(get_entry(h, 0, 0).status, 1) << int(type);
    }
}

TEST(IndxEntry, HostileSuperIndexesEndQuickly) {
    // Far more entries in use than the chunk has room for, all of duration 0:
    // the walk ends with the chunk's hundred slots.
    std::vector<super_entry> zero(100, super_entry{indx_at, 0, 0});
    hand_handle roomy(byte_image().append(filler()).append(indx_chunk("00dc", 0xFFFFFFFFu, zero)));
    with_indx(roomy);
    EXPECT_EQ(get_entry(roomy, 0, 0).status, 1);
    // A slot just after the chunk's hundred would lead to a real entry, but
    // lies outside the chunk's size: it is not read as part of the index.
    const uint64_t ix_at = indx_at + written_indx_bytes + 16;
    const byte_image beyond = byte_image()
                                  .append(filler())
                                  .append(indx_chunk("00dc", 101, zero))
                                  .u64(ix_at).u32(0).u32(1)
                                  .append(ix_chunk("ix00", "00dc", 0, {{8, 10}}));
    hand_handle outside(beyond);
    with_indx(outside);
    EXPECT_EQ(get_entry(outside, 0, 0).status, 1);
    // A size field claiming 4 GiB of entries in a small file: reads at the end fail.
    hand_handle big(byte_image().append(filler()).append(indx_chunk("00dc", 0xFFFFFFFFu, zero, 0, 0xFFFFFFF0u)));
    with_indx(big);
    EXPECT_EQ(get_entry(big, 0, 0).status, 1);
    // Standard indexes beyond the end of the file or of any position.
    for (uint64_t at : {uint64_t{0x7FFFFFF0}, ~uint64_t{0}, uint64_t{0x7FFFFFFFFFFFFFFF}, uint64_t{2000}}) {
        hand_handle h(byte_image().append(filler()).append(indx_chunk("00dc", 1, {{at, 0, 10}})));
        with_indx(h);
        EXPECT_EQ(get_entry(h, 0, 0).status, 1) << at;
    }
    // An index that has lost its tail.
    const two_level_index idx;
    for (size_t cut : {size_t{indx_at + 40}, size_t{indx_at + written_indx_bytes + 20}, idx.image.size() - 60}) {
        hand_handle h(idx.image.head(cut));
        with_indx(h);
        EXPECT_EQ(get_entry(h, 19, 0).status, 1) << cut;
    }
}
