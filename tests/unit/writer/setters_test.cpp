// The setters' limits and refusals, calls after the first chunk, and the
// argument checks of aviout_put_chunk.
#include <gtest/gtest.h>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

struct writer {
    aviout_handle *w;
    explicit writer(const char *path, uint32_t odml = 0) : w(aviout_open(path, odml, 0)) {}
    ~writer() { aviout_close(w); }
    aviout_handle *operator->() const { return w; }
    operator aviout_handle *() const { return w; }
};

// Gives one stream of a kind by its letter: video, audio, text caption,
// bitmap caption, chapter. The frame duration lets video and audio through
// on OpenDML writers too.
int set_kind(char kind, aviout_handle *w, int32_t *s) {
    const video_stream_format v = video_record();
    const audio_stream_format a = audio_record();
    const caption_stream_format c = caption_record("Chapter");
    const double frame = 0.04;
    switch (kind) {
    case 'v': return aviout_set_video_format(w, s, &v, &frame);
    case 'a': return aviout_set_audio_format(w, s, &a, &frame);
    case 't': return aviout_set_text_caption_format(w, s, &c);
    case 'b': return aviout_set_bitmap_caption_format(w, s, &v);
    default: return aviout_set_chapter_format(w, s, &c);
    }
}

}  // namespace

// Stream numbers follow the call order across kinds; the 20th stream is refused.
TEST(WriterSetters, NineteenStreamsMixingKinds) {
    scratch_path path;
    writer w(path);
    ASSERT_NE(w.w, nullptr);
    const std::string order = "vatcbvatcbaattbaatt";
    for (int32_t i = 0; i < 19; ++i) {
        int32_t s = -7;
        EXPECT_EQ(set_kind(order[static_cast<size_t>(i)], w, &s), 0) << i;
        EXPECT_EQ(s, i);
    }
    for (const char kind : {'a', 't'}) {
        int32_t s = -7;
        EXPECT_EQ(set_kind(kind, w, &s), 1);
        EXPECT_EQ(s, -1);
        EXPECT_EQ(w->stream_count, kind == 'a' ? 20 : 21) << "the refused call still counts";
    }
    for (int32_t i = 0; i < 19; ++i) ASSERT_EQ(put(w, i, 1, payload(3, static_cast<uint32_t>(i))), 0) << i;
    EXPECT_EQ(put(w, 19, 1, payload(3, 0)), 1) << "the refused stream has no number";
    aviout_close(w.w);
    w.w = nullptr;

    const std::vector<uint8_t> b = file_bytes(path);
    EXPECT_EQ(strl_lists(b).size(), 19u);
    // avih takes stream_count as it stands, the refused calls included.
    EXPECT_EQ(avih_value(b, 6), 21u);
    aviin_handle *h = aviin_open(path, 0);
    ASSERT_NE(h, nullptr);
    const std::vector<walked> got = walk_data(h);
    aviin_close(h);
    ASSERT_EQ(got.size(), 19u);
    for (uint32_t i = 0; i < 19; ++i) EXPECT_EQ(got[i].stream, i);
}

// Kind limits: a refused call returns 1 with out_stream -1, leaves
// stream_count alone but keeps the kind's count raised.
TEST(WriterSetters, KindLimitsAndRefusedCallsCount) {
    const struct {
        char kind;
        int limit;
        int32_t aviout_handle::*count;
    } kinds[] = {
        {'v', 2, &aviout_handle::video_count},           {'a', 12, &aviout_handle::audio_count},
        {'t', 12, &aviout_handle::text_caption_count},   {'b', 12, &aviout_handle::bitmap_caption_count},
        {'c', 2, &aviout_handle::chapter_count},
    };
    for (const auto &k : kinds) {
        SCOPED_TRACE(k.kind);
        scratch_path path;
        writer w(path);
        ASSERT_NE(w.w, nullptr);
        for (int i = 0; i < k.limit + 2; ++i) {
            int32_t s = -7;
            EXPECT_EQ(set_kind(k.kind, w, &s), i < k.limit ? 0 : 1);
            EXPECT_EQ(s, i < k.limit ? i : -1);
            EXPECT_EQ(w.w->*k.count, i + 1);
            EXPECT_EQ(w->stream_count, std::min(i + 1, k.limit));
        }
    }
}

TEST(WriterSetters, NullAndUnusableArguments) {
    scratch_path path;
    writer w(path, 1);
    ASSERT_NE(w.w, nullptr);
    w->index_chunk_seconds = 2.0;
    const video_stream_format v = video_record();
    const double frame = 0.04;
    int32_t s = -7;
    for (const char kind : std::string("vatbc")) {
        s = -7;
        EXPECT_EQ(set_kind(kind, nullptr, &s), 1) << kind;
        EXPECT_EQ(s, -1);
    }
    EXPECT_EQ(aviout_set_video_format(w, nullptr, &v, &frame), 1);
    s = -7;
    EXPECT_EQ(aviout_set_video_format(w, &s, nullptr, &frame), 1);
    EXPECT_EQ(s, -1);
    // OpenDML tracks need a frame duration.
    EXPECT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 1);
    // A name length without a name.
    video_stream_format bad_name = v;
    bad_name.name_length = 4;
    EXPECT_EQ(aviout_set_video_format(w, &s, &bad_name, &frame), 1);
    // A strd flag with null data of positive size.
    video_stream_format bad_strd = v;
    bad_strd.strd_present = 1;
    bad_strd.strd_size = 4;
    EXPECT_EQ(aviout_set_video_format(w, &s, &bad_strd, &frame), 1);
    // An audio format with more extra bytes than the record holds.
    audio_stream_format wide = audio_record();
    wide.wave_format.cb_size = 23;
    EXPECT_EQ(aviout_set_audio_format(w, &s, &wide, &frame), 1);
    EXPECT_EQ(s, -1);
    EXPECT_EQ((std::vector<int32_t>{w->video_count, w->audio_count, w->stream_count}), std::vector<int32_t>(3, 0))
        << "refused before counting";
    wide.wave_format.cb_size = 22;
    EXPECT_EQ(aviout_set_audio_format(w, &s, &wide, &frame), 0) << "22 extra bytes fit";

    // A capacity past what an ix## size field holds: the stream is counted
    // and numbered but has no track.
    const double tiny = 1e-12;
    EXPECT_EQ(aviout_set_video_format(w, &s, &v, &tiny), 1);
    EXPECT_EQ(s, 1);
    EXPECT_EQ(w->stream_count, 2);
    EXPECT_EQ(w->odml_track[1], nullptr);

    const uint8_t block[4] = {1, 2, 3, 4};
    for (auto set : {aviout_set_strd_info, aviout_set_menu_info, aviout_set_metadata_info}) {
        EXPECT_EQ(set(nullptr, block, 4), 1);
        EXPECT_EQ(set(w, block, -1), 1);
        EXPECT_EQ(set(w, nullptr, 2), 1);
    }
    EXPECT_EQ(aviout_clear_strd_info(nullptr), 1);
    EXPECT_EQ(w->video_formats[0].strd_present + w->has_menu + w->has_metadata, 0u);
    // An odd block is stored rounded up, the pad byte zero.
    EXPECT_EQ(aviout_set_menu_info(w, block, 3), 0);
    EXPECT_EQ(w->menu_size, 4);
    EXPECT_EQ(w->menu_data[3], 0);
    // A second block replaces the first.
    EXPECT_EQ(aviout_set_menu_info(w, block + 1, 2), 0);
    EXPECT_EQ(w->menu_size, 2);
    EXPECT_EQ(w->menu_data[0], 2);
}

// The caller's name buffer is copied: changing it afterwards changes nothing.
TEST(WriterSetters, RecordsAndNamesAreCopied) {
    scratch_path path;
    writer w(path);
    ASSERT_NE(w.w, nullptr);
    char name[] = "abcd";
    uint8_t strd[2] = {9, 8};
    video_stream_format v = video_record("MJPG", name);
    v.strd_present = 1;
    v.strd_header = 2;
    v.strd_size = 2;
    v.strd_data = strd;
    int32_t s;
    ASSERT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 0);
    name[0] = 'X';
    strd[0] = 0;
    v.width = 1;
    ASSERT_EQ(put(w, 0, 1, payload(2, 0)), 0);
    aviout_close(w.w);
    w.w = nullptr;
    const std::vector<uint8_t> b = file_bytes(path);
    EXPECT_EQ(text4(b, strl_chunk(b, 0, "strn")), "abcd");
    EXPECT_EQ(b[strl_chunk(b, 0, "strd") + 8], 9);
    EXPECT_EQ(le32(b, strl_chunk(b, 0, "strf") + 4), 64u);
}

// After the first chunk every setter fails and the file comes out as if it
// had not been called.
TEST(WriterSetters, SettersAfterTheFirstChunkChangeNothing) {
    scratch_path with_calls, without;
    const uint8_t block[4] = {1, 2, 3, 4};
    for (int late = 0; late < 2; ++late) {
        const char *path = late != 0 ? with_calls.c_str() : without.c_str();
        aviout_handle *w = open_video_writer(path, 1, 2.0);
        ASSERT_NE(w, nullptr);
        ASSERT_EQ(aviout_set_metadata_info(w, block, 4), 0);
        ASSERT_EQ(put(w, 0, 1, payload(10, 1)), 0);
        if (late != 0) {
            for (const char kind : std::string("vatbc")) {
                int32_t s = -7;
                EXPECT_EQ(set_kind(kind, w, &s), 1) << kind;
                EXPECT_EQ(s, -1);
            }
            const int results[] = {aviout_set_strd_info(w, block, 4), aviout_clear_strd_info(w),
                                   aviout_set_menu_info(w, block, 4), aviout_set_metadata_info(w, block, 2)};
            for (const int r : results) EXPECT_EQ(r, 1);
            // Nothing counted: kinds, streams, blocks.
            EXPECT_EQ((std::vector<int32_t>{w->video_count, w->audio_count, w->text_caption_count,
                                            w->bitmap_caption_count, w->chapter_count, w->stream_count}),
                      (std::vector<int32_t>{1, 0, 0, 0, 0, 1}));
            EXPECT_EQ(w->has_menu + w->video_formats[0].strd_present, 0u);
            EXPECT_EQ(w->metadata_size, 4);
        }
        ASSERT_EQ(put(w, 0, 0, payload(11, 2)), 0);
        aviout_close(w);
    }
    EXPECT_EQ(file_bytes(with_calls), file_bytes(without));
}

TEST(WriterPutChunk, RefusedArgumentsWriteNothing) {
    scratch_path path;
    aviout_handle *w = open_video_writer(path);
    ASSERT_NE(w, nullptr);
    const uint8_t byte = 1;
    for (const int r : {aviout_put_chunk(nullptr, 0, 1, &byte, 1), aviout_put_chunk(w, -1, 1, &byte, 1),
                        aviout_put_chunk(w, 1, 1, &byte, 1), aviout_put_chunk(w, 0, 1, nullptr, 1)})
        EXPECT_EQ(r, 1);
    EXPECT_EQ(w->riff_index, -1) << "the header area is not written for a refused chunk";
    EXPECT_EQ(w->index_count, 0);
    EXPECT_EQ(aviout_put_chunk(w, 0, 1, nullptr, 0), 0) << "an empty chunk needs no data";
    EXPECT_EQ(aviout_put_chunk(w, 0, 1, &byte, 1), 0);
    const int32_t indexed = w->index_count;
    EXPECT_EQ(aviout_put_chunk(w, 3, 1, &byte, 1), 1);
    EXPECT_EQ(aviout_put_chunk(w, 0, 1, nullptr, 9), 1);
    EXPECT_EQ(w->index_count, indexed);
    aviout_close(w);
    const std::vector<uint8_t> b = file_bytes(path);
    EXPECT_EQ(movi_chunks(b).size(), 2u);
    EXPECT_EQ(find_child(b, 0, "idx1").size, 32u);
}

// A file with no stream at all: the header area still forms, but chunks
// have no stream to go to.
TEST(WriterPutChunk, NoStreams) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 0, 0);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(aviout_put_chunk(w, 0, 1, nullptr, 0), 1);
    aviout_close(w);
    EXPECT_TRUE(file_bytes(path).empty());
}
