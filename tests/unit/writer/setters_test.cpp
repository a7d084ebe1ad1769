// The setters' limits and refusals, calls after the first chunk, and the
// argument checks of aviout_put_chunk.
#include <gtest/gtest.h>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

// Stream numbers follow the call order across kinds; a refused call returns
// 1 with out_stream -1: past a kind's limit (avih does not count those), or
// the 20th stream (avih counts those). With OpenDML a track past 9 takes the
// first digit of its number in dwChunkId ("1\0wb" for stream 10).
TEST(WriterSetters, StreamNumbersAndLimits) {
    const struct row {
        const char *kinds, *accepted;
        uint32_t avih_streams;
    } rows[] = {
        {"vvvv", "1100", 2}, {"cccc", "1100", 2}, {"aaaaaaaaaaaaaa", "11111111111100", 12},
        {"tttttttttttttt", "11111111111100", 12}, {"bbbbbbbbbbbbbb", "11111111111100", 12},
        {"vatcbvatcbaattbaattat", "111111111111111111100", 21},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.kinds);
        scratch_path path;
        aviout_handle *w = open_writer(path, "", {1, 2.0});
        ASSERT_NE(w, nullptr);
        int32_t next = 0;
        for (size_t i = 0; r.kinds[i] != '\0'; ++i) {
            int32_t s = -7;
            const bool ok = r.accepted[i] == '1';
            EXPECT_EQ(add_stream(w, r.kinds[i], &s), ok ? 0 : 1) << i;
            EXPECT_EQ(s, ok ? next++ : -1) << i;
        }
        for (int32_t i = 0; i < next; ++i) ASSERT_EQ(put(w, i, 1, payload(3, static_cast<uint32_t>(i))), 0) << i;
        EXPECT_EQ(put(w, next, 1, payload(3, 0)), 1) << "a refused stream has no number";
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        EXPECT_EQ(strl_lists(b).size(), static_cast<size_t>(next));
        EXPECT_EQ(avih_value(b, 6), r.avih_streams);
        EXPECT_EQ(next == 19 ? text4(b, strl_chunk(b, 10, "indx") + 8) : "", next == 19 ? std::string("1\0wb", 4) : "");
        // Each chunk walks back with its stream's number (refused streams
        // come last in every row), payload and kind: the type code is the
        // kind letter's place in " a v tbc".
        aviin_handle *h = aviin_open(path, 0);
        const std::vector<walked> got = walk_data(h);
        aviin_close(h);
        ASSERT_EQ(got.size(), static_cast<size_t>(next));
        for (uint32_t i = 0; i < got.size(); ++i) {
            const size_t type = std::string(" a v tbc").find(r.kinds[i]);
            EXPECT_EQ(std::vector<size_t>({got[i].stream, got[i].type}), std::vector<size_t>({i, type})) << i;
            EXPECT_EQ(got[i].data, payload(3, i)) << i;
        }
    }
}

TEST(WriterSetters, NullAndUnusableArguments) {
    scratch_path path;
    aviout_handle *w = open_writer(path, "", {1, 2.0});
    ASSERT_NE(w, nullptr);
    const video_stream_format v = video_record();
    const double frame = 0.04, negative = -0.04, tiny = 1e-12;
    int32_t s = -7;
    for (const char kind : std::string("vatbc"))
        EXPECT_EQ(std::vector<int32_t>({add_stream(nullptr, kind, &(s = -7)), s}), std::vector<int32_t>({1, -1})) << kind;
    EXPECT_EQ(aviout_set_video_format(w, nullptr, &v, &frame), 1);
    s = -7;
    EXPECT_EQ(aviout_set_video_format(w, &s, nullptr, &frame), 1);
    EXPECT_EQ(s, -1);
    // OpenDML tracks need a frame duration.
    EXPECT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 1);
    // A name length without a name; a strd flag with null data of positive size.
    video_stream_format bad_name = v, bad_strd = v;
    bad_name.name_length = 4;
    bad_strd.strd_present = 1;
    bad_strd.strd_size = 4;
    EXPECT_EQ(aviout_set_video_format(w, &s, &bad_name, &frame) + aviout_set_video_format(w, &s, &bad_strd, &frame), 2);
    // An audio format with more extra bytes than the record holds.
    audio_stream_format wide = audio_record();
    wide.wave_format.cb_size = 23;
    EXPECT_EQ(aviout_set_audio_format(w, &s, &wide, &frame), 1);
    EXPECT_EQ(s, -1);
    EXPECT_EQ((std::vector<int32_t>{w->video_count, w->audio_count, w->stream_count}), std::vector<int32_t>(3, 0))
        << "refused before counting";
    wide.wave_format.cb_size = 22;
    EXPECT_EQ(aviout_set_audio_format(w, &s, &wide, &frame), 0) << "22 extra bytes fit";
    // A negative capacity, or one past what an ix## size field holds: the
    // stream is counted and numbered but has no track.
    EXPECT_EQ(aviout_set_video_format(w, &s, &v, &negative), 1);
    EXPECT_EQ(s, 1);
    EXPECT_EQ(aviout_set_video_format(w, &s, &v, &tiny), 1);
    EXPECT_EQ(s, 2);

    const uint8_t block[4] = {1, 2, 3, 4};
    for (auto set : {aviout_set_strd_info, aviout_set_menu_info, aviout_set_metadata_info})
        EXPECT_EQ(set(nullptr, block, 4) + set(w, block, -1) + set(w, nullptr, 2), 3);
    EXPECT_EQ(aviout_clear_strd_info(nullptr), 1);
    // A second block replaces the first; an odd block is stored rounded up,
    // the pad byte zero.
    EXPECT_EQ(aviout_set_menu_info(w, block, 2), 0);
    EXPECT_EQ(aviout_set_menu_info(w, block + 1, 3), 0);
    ASSERT_EQ(put(w, 0, 1, payload(2, 0)), 0);
    aviout_close(w);
    const std::vector<uint8_t> b = file_bytes(path);
    EXPECT_EQ(find_child(b, 0, "MTDA").pos, SIZE_MAX);
    EXPECT_EQ(strl_chunk(b, 1, "strd"), SIZE_MAX) << "the refused blocks went nowhere";
    const chunk_at menu = find_child(b, 0, "MENU");
    ASSERT_NE(menu.pos, SIZE_MAX);
    EXPECT_EQ(span(b, menu.pos + 4, 8), (std::vector<uint8_t>{4, 0, 0, 0, 2, 3, 4, 0}));
}

// After the first chunk every setter fails and the file comes out as if it
// had not been called; records, names and strd blocks are copied, so
// changing the caller's afterwards changes nothing either.
TEST(WriterSetters, LateCallsAndChangedRecordsChangeNothing) {
    scratch_path with_calls, without;
    const uint8_t block[4] = {1, 2, 3, 4};
    for (int late = 0; late < 2; ++late) {
        const char *path = late != 0 ? with_calls.c_str() : without.c_str();
        char name[] = "abcd";
        uint8_t strd[2] = {9, 8};
        video_stream_format v = video_record("MJPG", name);
        v.strd_present = 1;
        v.strd_header = v.strd_size = 2;
        v.strd_data = strd;
        aviout_handle *w = open_writer(path, "", {1, 2.0});
        int32_t s;
        const double frame = 0.04;
        ASSERT_EQ(aviout_set_video_format(w, &s, &v, &frame), 0);
        if (late != 0) name[0] = 'X', strd[0] = 0, v.width = 1;
        ASSERT_EQ(aviout_set_metadata_info(w, block, 4), 0);
        ASSERT_EQ(put(w, 0, 1, payload(10, 1)), 0);
        for (const char kind : std::string(late != 0 ? "vatbc" : "")) {
            int32_t s = -7;
            EXPECT_EQ(add_stream(w, kind, &s), 1) << kind;
            EXPECT_EQ(s, -1);
        }
        if (late != 0) {
            for (const int r : {aviout_set_strd_info(w, block, 4), aviout_clear_strd_info(w),
                                aviout_set_menu_info(w, block, 4), aviout_set_metadata_info(w, block, 2)})
                EXPECT_EQ(r, 1);
        }
        ASSERT_EQ(put(w, 0, 0, payload(11, 2)), 0);
        aviout_close(w);
    }
    EXPECT_EQ(file_bytes(with_calls), file_bytes(without));
}

// A file that cannot be opened gives no writer. Refused chunks write
// nothing, not even the header area; a file with no stream at all has no
// stream for a chunk to go to, and a writer that never got a chunk leaves
// the file as it was opened.
TEST(WriterPutChunk, RefusedArgumentsWriteNothing) {
    EXPECT_EQ(aviout_open("/nonexistent/kelqavi/x.avi", 0, 1), nullptr);
    EXPECT_EQ(aviout_open("/nonexistent/kelqavi/x.avi", 0, 0), nullptr);
    aviout_close(nullptr);
    scratch_path path, none;
    aviout_handle *w = aviout_open(none, 0, 0);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(aviout_put_chunk(w, 0, 1, nullptr, 0), 1);
    aviout_close(w);
    EXPECT_TRUE(file_bytes(none).empty());
    w = open_writer(path);
    ASSERT_NE(w, nullptr);
    const uint8_t byte = 1;
    for (const int r : {aviout_put_chunk(nullptr, 0, 1, &byte, 1), aviout_put_chunk(w, -1, 1, &byte, 1),
                        aviout_put_chunk(w, 1, 1, &byte, 1), aviout_put_chunk(w, 0, 1, nullptr, 1)})
        EXPECT_EQ(r, 1);
    fflush(w->file);
    EXPECT_TRUE(file_bytes(path).empty()) << "the header area is not written for a refused chunk";
    EXPECT_EQ(aviout_put_chunk(w, 0, 1, nullptr, 0), 0) << "an empty chunk needs no data";
    EXPECT_EQ(aviout_put_chunk(w, 0, 1, &byte, 1), 0);
    EXPECT_EQ(aviout_put_chunk(w, 3, 1, &byte, 1) + aviout_put_chunk(w, 0, 1, nullptr, 9), 2);
    aviout_close(w);
    const std::vector<uint8_t> b = file_bytes(path);
    EXPECT_EQ(movi_chunks(b).size(), 2u);
    EXPECT_EQ(find_child(b, 0, "idx1").size, 32u);
}
