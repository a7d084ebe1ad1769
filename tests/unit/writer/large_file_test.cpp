// Files past 2 GB and 4 GB, made sparse by moving the writer's file position
// forward: the size guard, and the switch into an "AVIX" segment with the
// first segment's index and sizes, the segment's form and movi, and the
// totals of the rewritten header area.
#include <gtest/gtest.h>

#include "unit/writer/writer_files.h"
#include "writer/writer_internal.h"

using namespace kelqtest;

namespace {

constexpr int64_t guard = 0x7F000000;
constexpr int64_t segment_limit = 0xFF100000;

// The bytes from offset to the end (at most n), through the library's
// 64-bit file calls (so the test reads large offsets on 32-bit targets too);
// *length the file's length.
std::vector<uint8_t> read_range(const char *path, int64_t offset, size_t n, int64_t *length = nullptr) {
    std::vector<uint8_t> out(n);
    FILE *f = file_open(path, 0);
    if (f == nullptr) return {};
    if (length != nullptr) *length = file_seek(f, 0, 2) == 0 ? file_tell(f) : -1;
    if (file_seek(f, offset, 0) != 0) out.clear();
    if (!out.empty()) out.resize(file_read(f, out.data(), n));
    file_close(f);
    return out;
}

// True when a file with a byte past offset can be made here without
// writing the bytes before it.
bool sparse_file_possible(int64_t offset) {
    scratch_path probe;
    FILE *f = file_open(probe, 1);
    if (f == nullptr) return false;
    bool ok = file_seek(f, offset, 0) == 0 && write_val8(1, f) == 0;
    ok = file_close(f) == 0 && ok;
    int64_t length = 0;
    read_range(probe, 0, 0, &length);
    return ok && length == offset + 1;
}

}  // namespace

TEST(WriterLargeFile, SizeGuardAtTwoGigabytes) {
    if (!sparse_file_possible(guard + 4096)) GTEST_SKIP() << "no sparse 2 GB file on this filesystem";
    scratch_path path;
    aviout_handle *w = open_writer(path, "va");
    ASSERT_NE(w, nullptr);
    ASSERT_EQ(put(w, 0, 1, payload(10, 0)), 0);
    ASSERT_EQ(file_seek(w->file, guard - 218, 0), 0);
    EXPECT_EQ(put(w, 0, 0, payload(100, 1)), 0) << "ends 110 bytes short of the guard";
    EXPECT_EQ(put(w, 0, 0, payload(102, 2)), 4) << "ends exactly at the guard";
    EXPECT_EQ(put(w, 1, 0, payload(10, 3)), 0) << "only video chunks report the guard";
    EXPECT_EQ(put(w, 0, 0, payload(10, 4)), 4);
    aviout_close(w);

    int64_t length = 0;
    const std::vector<uint8_t> head = read_range(path, 0, 8192, &length);
    ASSERT_EQ(head.size(), 8192u);
    EXPECT_EQ(le32(head, 4), static_cast<uint64_t>(length - 8));
    EXPECT_EQ(std::vector<uint32_t>({avih_value(head, 4), strh_value(head, 0, strh_length)}), std::vector<uint32_t>(2, 4));
    const std::vector<uint8_t> tail = read_range(path, guard - 218, static_cast<size_t>(length - (guard - 218)));
    EXPECT_EQ(text4(tail, 0) + text4(tail, 108) + text4(tail, 218) + text4(tail, 236) + text4(tail, 254),
              "00dc00dc01wb00dcidx1");
    EXPECT_EQ(le32(tail, 258), 5u * 16);
    EXPECT_EQ(static_cast<int64_t>(guard - 218 + 254 + 8 + 80), length);
}

// Past 0xFF100000 bytes from the RIFF mark the guard fires first, so
// aviout_put_chunk never switches segments by itself; the switch it would
// make (finish the segment, start the next) is driven directly here.
TEST(WriterLargeFile, SegmentSwitchIntoAvix) {
    const int64_t far = segment_limit + 0x1000;
    if (!sparse_file_possible(far + 0x10000)) GTEST_SKIP() << "no sparse 4.3 GB file on this filesystem";
    scratch_path path;
    aviout_handle *w = open_writer(path, "v", {1, 2.0});
    ASSERT_NE(w, nullptr);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(put(w, 0, i == 0 ? 1 : 0, payload(20 + i, i)), 0);
    const int64_t far_chunk = 4 + segment_limit - 16;   // the RIFF size field is at 4
    ASSERT_EQ(file_seek(w->file, far_chunk, 0), 0);
    EXPECT_EQ(put(w, 0, 0, payload(30, 3)), 4) << "the guard, not the segment switch";
    EXPECT_EQ(kelq::finish_segment(w, 1), 0u);
    EXPECT_EQ(kelq::start_segment(w), 0u);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(put(w, 0, 1, payload(40 + i, 10 + i)), 4) << i;
    aviout_close(w);

    int64_t length = 0;
    const std::vector<uint8_t> head = read_range(path, 0, 8192, &length);
    ASSERT_EQ(head.size(), 8192u);
    // The first form: header area rewritten with the totals; avih counts the first segment only.
    EXPECT_EQ(std::vector<uint32_t>({avih_value(head, 4), dmlh_frames(head), strh_value(head, 0, strh_length)}),
              std::vector<uint32_t>({4, 9, 9}));
    const chunk_at movi = find_child(head, 0, "LIST", "movi");
    ASSERT_NE(movi.pos, SIZE_MAX);
    const int64_t movi_end = static_cast<int64_t>(movi.pos) + 8 + movi.size;
    EXPECT_EQ(movi_end, far_chunk + 8 + 30) << "the first movi ends after the far chunk";

    // idx1 of the first segment: its four chunks, offsets from its movi; the
    // first form's size patched to its end, where the AVIX form begins.
    const std::vector<uint8_t> idx1 = read_range(path, movi_end, 8 + 4 * 16);
    ASSERT_EQ(idx1.size(), 72u);
    EXPECT_EQ(text4(idx1, 0), "idx1");
    expect_words(idx1, 0, {{4, 64}, {16, 4}, {60, 0}, {64, static_cast<uint32_t>(far_chunk - static_cast<int64_t>(movi.pos + 8))}, {68, 30}});
    const int64_t avix = movi_end + 72;
    EXPECT_EQ(le32(head, 4), static_cast<uint32_t>(avix - 8));

    // The AVIX form: its movi with the five chunks and the closing ix##.
    const std::vector<uint8_t> seg = read_range(path, avix, static_cast<size_t>(length - avix));
    ASSERT_GE(seg.size(), 24u);
    EXPECT_EQ(text4(seg, 0) + text4(seg, 8), "RIFFAVIX");
    EXPECT_EQ(le32(seg, 4), seg.size() - 8);
    const std::vector<chunk_at> in = children(seg, 0);
    ASSERT_EQ(in.size(), 1u) << "no idx1 after the first segment";
    EXPECT_EQ(in[0].type, "movi");
    EXPECT_EQ(in[0].pos + 8 + in[0].size, seg.size());
    const std::vector<chunk_at> data = children(seg, in[0].pos);
    ASSERT_EQ(data.size(), 6u);
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(data[i].id, "00dc");
        EXPECT_EQ(span(seg, data[i].data(), 40 + i), payload(40 + i, 10 + i));
    }
    EXPECT_EQ(data[5].id, std::string("ix0\0", 4));

    // The super index lists the ix## chunk at its absolute position; this
    // track's index was never flushed before.
    const std::vector<super_entry> supers = super_entries(head, 0);
    ASSERT_EQ(supers.size(), 1u);
    EXPECT_EQ(supers[0].offset, static_cast<uint64_t>(avix) + data[5].pos);
    EXPECT_EQ(supers[0].duration, 9u);
}
