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

// n bytes at offset, through the library's 64-bit file calls (so the test
// reads large offsets on 32-bit targets too).
std::vector<uint8_t> read_range(const char *path, int64_t offset, size_t n) {
    std::vector<uint8_t> out(n);
    FILE *f = file_open(path, 0);
    if (f == nullptr) return {};
    if (file_seek(f, offset, 0) != 0) out.clear();
    if (!out.empty()) out.resize(file_read(f, out.data(), n));
    file_close(f);
    return out;
}

int64_t file_length(const char *path) {
    FILE *f = file_open(path, 0);
    if (f == nullptr) return -1;
    file_seek(f, 0, 2);
    const int64_t n = file_tell(f);
    file_close(f);
    return n;
}

// True when a file with a byte past offset can be made here without
// writing the bytes before it.
bool sparse_file_possible(int64_t offset) {
    scratch_path probe;
    FILE *f = file_open(probe, 1);
    if (f == nullptr) return false;
    bool ok = file_seek(f, offset, 0) == 0 && write_val8(1, f) == 0;
    ok = file_close(f) == 0 && ok;
    return ok && file_length(probe) == offset + 1;
}

}  // namespace

TEST(WriterLargeFile, SizeGuardAtTwoGigabytes) {
    if (!sparse_file_possible(guard + 4096)) GTEST_SKIP() << "no sparse 2 GB file on this filesystem";
    scratch_path path;
    aviout_handle *w = aviout_open(path, 0, 0);
    ASSERT_NE(w, nullptr);
    int32_t v = -1, a = -1;
    const video_stream_format vr = video_record();
    const audio_stream_format ar = audio_record();
    ASSERT_EQ(aviout_set_video_format(w, &v, &vr, nullptr), 0);
    ASSERT_EQ(aviout_set_audio_format(w, &a, &ar, nullptr), 0);
    ASSERT_EQ(put(w, v, 1, payload(10, 0)), 0);
    ASSERT_EQ(file_seek(w->file, guard - 218, 0), 0);
    EXPECT_EQ(put(w, v, 0, payload(100, 1)), 0) << "ends 110 bytes short of the guard";
    EXPECT_EQ(put(w, v, 0, payload(102, 2)), 4) << "ends exactly at the guard";
    EXPECT_EQ(put(w, a, 0, payload(10, 3)), 0) << "only video chunks report the guard";
    EXPECT_EQ(put(w, v, 0, payload(10, 4)), 4);
    EXPECT_EQ(w->riff_index, 0);
    aviout_close(w);

    const std::vector<uint8_t> head = read_range(path, 0, 8192);
    ASSERT_EQ(head.size(), 8192u);
    const int64_t length = file_length(path);
    EXPECT_EQ(le32(head, 4), static_cast<uint64_t>(length - 8));
    EXPECT_EQ(avih_value(head, 4), 4u);
    EXPECT_EQ(le32(head, strl_chunk(head, 0, "strh") + strh_length), 4u);
    const std::vector<uint8_t> tail = read_range(path, guard - 218, static_cast<size_t>(length - (guard - 218)));
    EXPECT_EQ(text4(tail, 0), "00dc");
    EXPECT_EQ(text4(tail, 108), "00dc");
    EXPECT_EQ(text4(tail, 218), "01wb");
    EXPECT_EQ(text4(tail, 236), "00dc");
    EXPECT_EQ(text4(tail, 254), "idx1");
    EXPECT_EQ(le32(tail, 258), 5u * 16);
    EXPECT_EQ(static_cast<int64_t>(guard - 218 + 254 + 8 + 80), length);

    aviin_handle *h = aviin_open(path, 0);
    ASSERT_NE(h, nullptr);
    const walked first = next_chunk(h);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.data, payload(10, 0));
    aviin_close(h);
}

// Past 0xFF100000 bytes from the RIFF mark the guard fires first, so
// aviout_put_chunk never switches segments by itself; the switch it would
// make (finish the segment, start the next) is driven directly here.
TEST(WriterLargeFile, SegmentSwitchIntoAvix) {
    const int64_t far = segment_limit + 0x1000;
    if (!sparse_file_possible(far + 0x10000)) GTEST_SKIP() << "no sparse 4.3 GB file on this filesystem";
    scratch_path path;
    aviout_handle *w = open_video_writer(path, 1, 2.0, 0);
    ASSERT_NE(w, nullptr);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(put(w, 0, i == 0 ? 1 : 0, payload(20 + i, i)), 0);
    const int64_t riff_mark = w->riff_mark;
    EXPECT_EQ(riff_mark, 4);
    ASSERT_EQ(file_seek(w->file, riff_mark + segment_limit - 16, 0), 0);
    EXPECT_EQ(put(w, 0, 0, payload(30, 3)), 4) << "the guard, not the segment switch";
    EXPECT_EQ(w->riff_index, 0);
    const int64_t far_chunk = riff_mark + segment_limit - 16;

    EXPECT_EQ(kelq::finish_segment(w, 1), 0u);
    EXPECT_EQ(kelq::start_segment(w), 0u);
    EXPECT_EQ(w->riff_index, 1);
    EXPECT_EQ(w->index_count, 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(put(w, 0, 1, payload(40 + i, 10 + i)), 4) << i;
    EXPECT_EQ(w->main_header.total_frames, 4u);
    EXPECT_EQ(w->odml_total_frames, 9u);
    const int64_t avix = w->avix_mark - 4;
    aviout_close(w);

    const int64_t length = file_length(path);
    const std::vector<uint8_t> head = read_range(path, 0, 8192);
    ASSERT_EQ(head.size(), 8192u);
    // The first form: header area rewritten with the totals.
    EXPECT_EQ(avih_value(head, 4), 4u) << "first segment only";
    const chunk_at odml_list = find_child(head, find_child(head, 0, "LIST", "hdrl").pos, "LIST", "odml");
    EXPECT_EQ(le32(head, find_child(head, odml_list.pos, "dmlh").data()), 9u) << "every segment";
    EXPECT_EQ(le32(head, strl_chunk(head, 0, "strh") + strh_length), 9u);
    const chunk_at movi = find_child(head, 0, "LIST", "movi");
    ASSERT_NE(movi.pos, SIZE_MAX);
    const int64_t movi_end = static_cast<int64_t>(movi.pos) + 8 + movi.size;
    EXPECT_EQ(movi_end, far_chunk + 8 + 30) << "the first movi ends after the far chunk";

    // idx1 of the first segment: its four chunks, offsets from its movi.
    const std::vector<uint8_t> idx1 = read_range(path, movi_end, 8 + 4 * 16);
    ASSERT_EQ(idx1.size(), 72u);
    EXPECT_EQ(text4(idx1, 0), "idx1");
    EXPECT_EQ(le32(idx1, 4), 64u);
    EXPECT_EQ(le32(idx1, 8 + 8), 4u);
    EXPECT_EQ(le32(idx1, 8 + 48 + 4), 0u);
    EXPECT_EQ(le32(idx1, 8 + 48 + 8), static_cast<uint32_t>(far_chunk - static_cast<int64_t>(movi.pos + 8)));
    EXPECT_EQ(le32(idx1, 8 + 48 + 12), 30u);
    const int64_t idx1_end = movi_end + 72;
    EXPECT_EQ(le32(head, 4), static_cast<uint32_t>(idx1_end - 8)) << "first form's size patched to the end of idx1";
    EXPECT_EQ(avix, idx1_end);

    // The AVIX form: its movi with the five chunks and the closing ix##.
    const std::vector<uint8_t> seg = read_range(path, avix, static_cast<size_t>(length - avix));
    ASSERT_GE(seg.size(), 24u);
    EXPECT_EQ(text4(seg, 0), "RIFF");
    EXPECT_EQ(text4(seg, 8), "AVIX");
    EXPECT_EQ(le32(seg, 4), seg.size() - 8);
    const std::vector<chunk_at> in = children(seg, 0);
    ASSERT_EQ(in.size(), 1u);
    EXPECT_EQ(in[0].type, "movi");
    EXPECT_EQ(in[0].pos + 8 + in[0].size, seg.size());
    const std::vector<chunk_at> data = children(seg, in[0].pos);
    ASSERT_EQ(data.size(), 6u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(data[static_cast<size_t>(i)].id, "00dc");
        EXPECT_EQ(std::vector<uint8_t>(seg.begin() + static_cast<long>(data[static_cast<size_t>(i)].data()),
                                       seg.begin() + static_cast<long>(data[static_cast<size_t>(i)].data()) + 40 + i),
                  payload(40 + static_cast<uint32_t>(i), 10 + static_cast<uint32_t>(i)));
    }
    EXPECT_EQ(data[5].id, std::string("ix0\0", 4));
    EXPECT_EQ(find_child(seg, 0, "idx1").pos, SIZE_MAX) << "no idx1 after the first segment";

    // The super index lists the ix## chunk at its absolute position.
    const size_t indx = strl_chunk(head, 0, "indx");
    ASSERT_NE(indx, SIZE_MAX);
    EXPECT_EQ(le32(head, indx + 4), 1u);
    EXPECT_EQ(le64(head, indx + 24), static_cast<uint64_t>(avix) + data[5].pos);
    EXPECT_EQ(le32(head, indx + 36), 9u) << "this track's index was never flushed before";

    aviin_handle *h = aviin_open(path, 0);
    ASSERT_NE(h, nullptr);
    int32_t count = 0;
    aviin_get_riff_count(h, &count);
    EXPECT_EQ(count, 2);
    int64_t offset = -1;
    ASSERT_EQ(aviin_get_riff_offset(h, 1, &offset), 0);
    EXPECT_EQ(offset, avix);
    ASSERT_EQ(aviin_goto_riff(h, 0, offset), 0);
    const std::vector<walked> got = walk_data(h);
    ASSERT_EQ(got.size(), 5u);
    for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(got[i].data, payload(40 + i, 10 + i)) << i;
    aviin_close(h);
}
