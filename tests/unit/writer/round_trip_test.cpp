// Files written by the writer and read back by the reader: every stream kind,
// names, strd blocks, type-first ids, extension blocks, menu files and
// appending to an existing file.
#include <gtest/gtest.h>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

struct reader {
    aviin_handle *h;
    explicit reader(const char *path, uint32_t swapped = 0) : h(aviin_open(path, swapped)) {}
    ~reader() { aviin_close(h); }
    operator aviin_handle *() const { return h; }
};

std::string name_of(const char *name, int32_t length) {
    return name == nullptr || length <= 0 ? std::string() : std::string(name, static_cast<size_t>(length));
}

}  // namespace

// One file with a stream of every kind; formats, names and chunks come back.
TEST(WriterRoundTrip, EveryStreamKind) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 0, 0);
    ASSERT_NE(w, nullptr);
    int32_t s[6] = {-1, -1, -1, -1, -1, -1};
    const video_stream_format v = video_record("MJPG", "cam", 320, 240, 1001, 30000);
    const audio_stream_format pcm = audio_record(16000, "mic1");
    const audio_stream_format ext = audio_record(22050, "extra", 0, 3);
    const caption_stream_format text = caption_record("Subtitle en", 0x0102);
    video_stream_format bitmap = video_record("KQSB", "Bitmaps", 720, 576, 1, 25);
    const caption_stream_format chapter = caption_record("Chapter list", 0x0304);
    EXPECT_EQ(aviout_set_video_format(w, &s[0], &v, nullptr), 0);
    EXPECT_EQ(aviout_set_audio_format(w, &s[1], &pcm, nullptr), 0);
    EXPECT_EQ(aviout_set_audio_format(w, &s[2], &ext, nullptr), 0);
    EXPECT_EQ(aviout_set_text_caption_format(w, &s[3], &text), 0);
    EXPECT_EQ(aviout_set_bitmap_caption_format(w, &s[4], &bitmap), 0);
    EXPECT_EQ(aviout_set_chapter_format(w, &s[5], &chapter), 0);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(s[i], i);

    // Two rounds over all streams, sizes odd and even.
    std::vector<std::vector<uint8_t>> sent;
    std::vector<uint32_t> stream_of;
    for (uint32_t round = 0; round < 2; ++round)
        for (int32_t stream = 0; stream < 6; ++stream) {
            sent.push_back(payload(10 + 3 * static_cast<uint32_t>(stream) + round, round * 16 + stream));
            stream_of.push_back(static_cast<uint32_t>(stream));
            EXPECT_EQ(put(w, stream, stream == 0 ? AVIOUT_KEY_FRAME : 0, sent.back()), 0);
        }
    aviout_close(w);

    // The audio format with three extra bytes: size 21, a pad byte outside it, then the name.
    const std::vector<uint8_t> b = file_bytes(path);
    const size_t strf = strl_chunk(b, 2, "strf");
    ASSERT_NE(strf, SIZE_MAX);
    EXPECT_EQ(le32(b, strf - 4), 21u);
    EXPECT_EQ(le16(b, strf + 16), 3u);
    EXPECT_EQ(b[strf + 18], 0xA0);
    EXPECT_EQ(b[strf + 20], 0xA2);
    EXPECT_EQ(b[strf + 21], 0u);
    EXPECT_EQ(text4(b, strf + 22), "strn");
    EXPECT_EQ(le32(b, strf + 26), 6u);

    reader h(path);
    ASSERT_NE(h.h, nullptr);
    int32_t streams = 0, strd = -1;
    EXPECT_EQ(aviin_get_summary(h, &streams, &strd), 0);
    EXPECT_EQ(streams, 6);
    EXPECT_EQ(strd, 0);
    const uint32_t kinds[6] = {3, 1, 1, 5, 6, 7};
    for (uint32_t i = 0; i < 6; ++i) {
        uint32_t kind = 99;
        EXPECT_EQ(aviin_get_chunk_type(h, i, &kind), 0);
        EXPECT_EQ(kind, kinds[i]) << "stream " << i;
    }

    video_stream_format vo{};
    uint32_t length = 0;
    ASSERT_EQ(aviin_get_video_format(h, 0, &vo, &length), 0);
    EXPECT_EQ(vo.width, 320);
    EXPECT_EQ(vo.height, 240);
    EXPECT_EQ(vo.scale, 1001u);
    EXPECT_EQ(vo.rate, 30000u);
    EXPECT_EQ(vo.quality, 7500u);
    EXPECT_EQ(std::string(vo.handler, 4), "MJPG");
    EXPECT_EQ(std::string(vo.compression, 4), "MJPG");
    EXPECT_EQ(length, 2u);
    // An odd name is stored with its zero byte inside the chunk.
    EXPECT_EQ(vo.name_length, 4);
    EXPECT_EQ(name_of(vo.name, vo.name_length), std::string("cam\0", 4));
    if (vo.name_length > 0) std::free(vo.name);

    audio_stream_format ao{};
    ASSERT_EQ(aviin_get_audio_format(h, 1, &ao), 0);
    EXPECT_EQ(ao.rate, 16000u);
    EXPECT_EQ(ao.scale, 1u);
    EXPECT_EQ(ao.initial_frames, 3u);
    EXPECT_EQ(ao.start, 5u);
    EXPECT_EQ(ao.wave_format.format_tag, 1);
    EXPECT_EQ(ao.wave_format.samples_per_sec, 16000u);
    EXPECT_EQ(ao.wave_format.avg_bytes_per_sec, 32000u);
    EXPECT_EQ(ao.wave_format.cb_size, 0);
    EXPECT_EQ(name_of(ao.name, ao.name_length), "mic1");
    if (ao.name_length > 0) std::free(ao.name);

    ao = audio_stream_format{};
    ASSERT_EQ(aviin_get_audio_format(h, 2, &ao), 0);
    EXPECT_EQ(ao.rate, 22050u);
    EXPECT_EQ(ao.wave_format.cb_size, 3);
    EXPECT_EQ(ao.wave_format.extra[0], 0xA0);
    EXPECT_EQ(ao.wave_format.extra[1], 0xA1);
    EXPECT_EQ(ao.wave_format.extra[2], 0xA2);
    // The pad byte after an odd cb_size lies outside the strf size, and the
    // reader looks for the name right after the format: the name is on disk
    // (checked below) but not met.
    if (ao.name_length > 0) std::free(ao.name);

    caption_stream_format co{};
    ASSERT_EQ(aviin_get_text_caption_format(h, 3, &co), 0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(co.format.value[i], text.format.value[i]) << i;
    co = caption_stream_format{};
    ASSERT_EQ(aviin_get_chapter_format(h, 5, &co), 0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(co.format.value[i], chapter.format.value[i]) << i;

    video_stream_format bo{};
    ASSERT_EQ(aviin_get_bitmap_caption_format(h, 4, &bo, &length), 0);
    EXPECT_EQ(bo.width, 720);
    EXPECT_EQ(bo.height, 576);
    EXPECT_EQ(std::string(bo.compression, 4), "KQSB");
    EXPECT_EQ(name_of(bo.name, bo.name_length), std::string("Bitmaps\0", 8));
    if (bo.name_length > 0) std::free(bo.name);

    const uint32_t chunk_kinds[6] = {3, 1, 1, 5, 6, 7};
    int last = 0;
    const std::vector<walked> got = walk_data(h, &last);
    ASSERT_EQ(got.size(), sent.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].stream, stream_of[i]) << i;
        EXPECT_EQ(got[i].type, chunk_kinds[stream_of[i]]) << i;
        EXPECT_EQ(got[i].data, sent[i]) << i;
    }
    EXPECT_TRUE(last == 1 || last == 3) << last;
}

// Names of odd and even length, an empty name, and the quirk: a stream given
// without a name clears the name at the last video stream's position of its
// own kind's table.
TEST(WriterRoundTrip, NamesAndTheNameClearingQuirk) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 0, 0);
    ASSERT_NE(w, nullptr);
    int32_t s = -1;
    const video_stream_format v = video_record("MJPG", "even");
    const audio_stream_format named = audio_record(8000, "first");
    const audio_stream_format unnamed = audio_record(8000, nullptr);
    ASSERT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 0);
    ASSERT_EQ(aviout_set_audio_format(w, &s, &named, nullptr), 0);
    ASSERT_EQ(aviout_set_audio_format(w, &s, &named, nullptr), 0);
    // audio slot 0 (video_count - 1 = 0) loses "first"; slot 1 keeps it.
    ASSERT_EQ(aviout_set_audio_format(w, &s, &unnamed, nullptr), 0);
    EXPECT_EQ(w->audio_formats[0].name, nullptr);
    EXPECT_EQ(w->audio_formats[0].name_length, 0);
    ASSERT_NE(w->audio_formats[1].name, nullptr);
    ASSERT_EQ(put(w, 0, 1, payload(8, 1)), 0);
    aviout_close(w);

    const std::vector<uint8_t> b = file_bytes(path);
    const size_t names[4] = {strl_chunk(b, 0, "strn"), strl_chunk(b, 1, "strn"), strl_chunk(b, 2, "strn"),
                             strl_chunk(b, 3, "strn")};
    ASSERT_NE(names[0], SIZE_MAX);
    EXPECT_EQ(le32(b, names[0] - 4), 4u);
    EXPECT_EQ(text4(b, names[0]), "even");
    ASSERT_NE(names[1], SIZE_MAX);
    EXPECT_EQ(le32(b, names[1] - 4), 0u) << "cleared name: an empty strn";
    ASSERT_NE(names[2], SIZE_MAX);
    EXPECT_EQ(le32(b, names[2] - 4), 6u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[names[2]]), 6), std::string("first\0", 6));
    ASSERT_NE(names[3], SIZE_MAX);
    EXPECT_EQ(le32(b, names[3] - 4), 0u);

    reader h(path);
    ASSERT_NE(h.h, nullptr);
    audio_stream_format ao{};
    ASSERT_EQ(aviin_get_audio_format(h, 1, &ao), 0);
    EXPECT_EQ(ao.name_length, 0);
    ao = audio_stream_format{};
    ASSERT_EQ(aviin_get_audio_format(h, 2, &ao), 0);
    EXPECT_EQ(ao.name_length, 6);
    if (ao.name_length > 0) std::free(ao.name);
}

TEST(WriterRoundTrip, UnnamedStreamsWithoutVideoClearNothing) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 0, 0);
    ASSERT_NE(w, nullptr);
    int32_t s = -1;
    const caption_stream_format named = caption_record("Subtitle a");
    const caption_stream_format unnamed = caption_record(nullptr);
    ASSERT_EQ(aviout_set_text_caption_format(w, &s, &named), 0);
    ASSERT_EQ(aviout_set_text_caption_format(w, &s, &unnamed), 0);
    EXPECT_NE(w->text_captions[0].name, nullptr);
    EXPECT_EQ(w->text_captions[0].name_length, 10);
    aviout_close(w);
}

// The strd block goes to the first video record; clearing addresses the last.
TEST(WriterRoundTrip, StrdSetOnFirstVideoClearedOnLast) {
    const uint8_t block[6] = {1, 2, 3, 4, 5, 6};
    {
        scratch_path path;
        aviout_handle *w = aviout_open(path, 0, 0);
        ASSERT_NE(w, nullptr);
        int32_t s = -1;
        const video_stream_format v0 = video_record("MJPG", "v0");
        const video_stream_format v1 = video_record("H264", "v1");
        ASSERT_EQ(aviout_set_video_format(w, &s, &v0, nullptr), 0);
        ASSERT_EQ(aviout_set_video_format(w, &s, &v1, nullptr), 0);
        EXPECT_EQ(aviout_set_strd_info(w, block, 6), 0);
        EXPECT_EQ(aviout_clear_strd_info(w), 0) << "the second stream has none: nothing to clear";
        ASSERT_EQ(put(w, 0, 1, payload(4, 0)), 0);
        aviout_close(w);

        const std::vector<uint8_t> b = file_bytes(path);
        const size_t strd = strl_chunk(b, 0, "strd");
        ASSERT_NE(strd, SIZE_MAX);
        EXPECT_EQ(le32(b, strd - 4), 14u) << "header word, size and the data";
        EXPECT_EQ(le32(b, strd), 2u);
        EXPECT_EQ(le32(b, strd + 4), 6u);
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + strd + 8, b.begin() + strd + 14),
                  std::vector<uint8_t>(block, block + 6));
        EXPECT_EQ(text4(b, strd + 14), "strn") << "no pad byte";
        EXPECT_EQ(strl_chunk(b, 1, "strd"), SIZE_MAX);

        reader h(path);
        ASSERT_NE(h.h, nullptr);
        int32_t streams = 0, with = 0;
        aviin_get_summary(h, &streams, &with);
        EXPECT_EQ(with, 1);
        uint8_t *data = nullptr;
        int32_t size = 0;
        EXPECT_EQ(aviin_get_strd_info(h, 0, &data, &size), 0);
        ASSERT_EQ(size, 6);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(std::memcmp(data, block, 6), 0);
        video_stream_format vo{};
        ASSERT_EQ(aviin_get_video_format(h, 0, &vo, nullptr), 0);
        EXPECT_EQ(name_of(vo.name, vo.name_length), "v0") << "the name after a strd block is still read";
        if (vo.name_length > 0) std::free(vo.name);
    }
    {
        scratch_path path;
        aviout_handle *w = open_video_writer(path);
        ASSERT_NE(w, nullptr);
        EXPECT_EQ(aviout_set_strd_info(w, block, 6), 0);
        EXPECT_EQ(aviout_clear_strd_info(w), 0);
        ASSERT_EQ(put(w, 0, 1, payload(4, 0)), 0);
        aviout_close(w);
        EXPECT_EQ(strl_chunk(file_bytes(path), 0, "strd"), SIZE_MAX);
    }
}

// Type-first chunk ids: "dc00", "wb01", and the legacy index as "1idx".
TEST(WriterRoundTrip, SwappedIds) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 0, 0);
    ASSERT_NE(w, nullptr);
    w->swapped_ids = 1;
    int32_t s = -1;
    const video_stream_format v = video_record();
    const audio_stream_format a = audio_record();
    ASSERT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 0);
    ASSERT_EQ(aviout_set_audio_format(w, &s, &a, nullptr), 0);
    std::vector<std::vector<uint8_t>> sent;
    for (uint32_t i = 0; i < 6; ++i) {
        sent.push_back(payload(20 + i, i));
        ASSERT_EQ(put(w, static_cast<int32_t>(i % 2), i % 2 == 0 ? 1 : 0, sent.back()), 0);
    }
    aviout_close(w);

    const std::vector<uint8_t> b = file_bytes(path);
    const std::vector<chunk_at> data = movi_chunks(b);
    ASSERT_EQ(data.size(), 6u);
    EXPECT_EQ(data[0].id, "dc00");
    EXPECT_EQ(data[1].id, "wb01");
    const chunk_at idx = find_child(b, 0, "1idx");
    ASSERT_NE(idx.pos, SIZE_MAX);
    EXPECT_EQ(idx.size, 6u * 16);
    EXPECT_EQ(text4(b, idx.data()), "dc00");

    reader h(path, 1);
    ASSERT_NE(h.h, nullptr);
    const std::vector<walked> got = walk_data(h);
    ASSERT_EQ(got.size(), sent.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].type, i % 2 == 0 ? 3u : 1u) << i;
        EXPECT_EQ(got[i].stream, i % 2) << i;
        EXPECT_EQ(got[i].data, sent[i]) << i;
    }
}

namespace {

// Writes one video chunk after the given extension set-up; returns the bytes.
std::vector<uint8_t> with_extensions(uint32_t list, const std::vector<uint8_t> &metadata,
                                     const std::vector<uint8_t> &menu, const char *head = nullptr,
                                     const char *tail = nullptr, const char *path_out = nullptr) {
    scratch_path own;
    const char *path = path_out != nullptr ? path_out : own.c_str();
    aviout_handle *w = open_video_writer(path);
    if (w == nullptr) return {};
    w->extension_list = list;
    w->menu_file_head = head;
    w->menu_file_tail = tail;
    if (!metadata.empty()) aviout_set_metadata_info(w, metadata.data(), static_cast<int32_t>(metadata.size()));
    if (!menu.empty()) aviout_set_menu_info(w, menu.data(), static_cast<int32_t>(menu.size()));
    put(w, 0, 1, payload(6, 9));
    aviout_close(w);
    return file_bytes(path);
}

}  // namespace

// MTDA and MENU after the JUNK chunk, bare or in a LIST "KQDT", stored at
// even size with a zero pad byte.
TEST(WriterExtensions, MetadataAndMenuBlocks) {
    const std::vector<uint8_t> meta = {'m', 'e', 't', 'a', '!'};
    const std::vector<uint8_t> menu = {'M', 'N', 'U', '1'};
    for (uint32_t list = 0; list < 2; ++list) {
        SCOPED_TRACE(list);
        scratch_path path;
        const std::vector<uint8_t> b = with_extensions(list, meta, menu, nullptr, nullptr, path);
        ASSERT_FALSE(b.empty());
        const chunk_at junk = find_child(b, 0, "JUNK");
        ASSERT_NE(junk.pos, SIZE_MAX);
        const size_t after_junk = junk.data() + junk.size;
        EXPECT_EQ(after_junk % 2048, 0u);
        size_t at = after_junk;
        if (list == 1) {
            EXPECT_EQ(text4(b, at), "LIST");
            EXPECT_EQ(le32(b, at + 4), 4u + 14 + 12);
            EXPECT_EQ(text4(b, at + 8), "KQDT");
            at += 12;
        }
        EXPECT_EQ(text4(b, at), "MTDA");
        EXPECT_EQ(le32(b, at + 4), 6u);
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + at + 8, b.begin() + at + 14),
                  (std::vector<uint8_t>{'m', 'e', 't', 'a', '!', 0}));
        at += 14;
        EXPECT_EQ(text4(b, at), "MENU");
        EXPECT_EQ(le32(b, at + 4), 4u);
        EXPECT_EQ(text4(b, at + 8), "MNU1");
        at += 12;
        EXPECT_EQ(text4(b, at), "LIST");
        EXPECT_EQ(text4(b, at + 8), "movi") << "the movi list follows the extension data directly";
        EXPECT_NE((at + 12) % 2048, 0u) << "so the first data is no longer aligned";

        reader h(path);
        ASSERT_NE(h.h, nullptr);
        uint8_t *data = nullptr;
        int32_t size = -1;
        EXPECT_EQ(aviin_get_metadata_info(h, &data, &size), 0);
        if (list == 1) {
            ASSERT_EQ(size, 6);
            ASSERT_NE(data, nullptr);
            EXPECT_EQ(std::memcmp(data, "meta!\0", 6), 0);
        } else {
            EXPECT_EQ(size, 0) << "bare blocks outside KQDT are not read";
        }
        EXPECT_EQ(walk_data(h).size(), 1u);
    }
}

TEST(WriterExtensions, EmptyListAndEmptyBlocks) {
    // extension_list without blocks: an empty KQDT list.
    std::vector<uint8_t> b = with_extensions(1, {}, {});
    const chunk_at kqdt = find_child(b, 0, "LIST", "KQDT");
    ASSERT_NE(kqdt.pos, SIZE_MAX);
    EXPECT_EQ(kqdt.size, 4u);
    // A block of size 0 still gives its chunk.
    scratch_path path;
    aviout_handle *w = open_video_writer(path);
    ASSERT_NE(w, nullptr);
    const uint8_t none = 0;
    EXPECT_EQ(aviout_set_metadata_info(w, &none, 0), 0);
    EXPECT_EQ(aviout_set_metadata_info(w, nullptr, 0), 0);
    put(w, 0, 1, payload(2, 0));
    aviout_close(w);
    b = file_bytes(path);
    const chunk_at mtda = find_child(b, 0, "MTDA");
    ASSERT_NE(mtda.pos, SIZE_MAX);
    EXPECT_EQ(mtda.size, 0u);
}

namespace {

// A prepared menu file: an "MRIF" chunk of total bytes, filled with a pattern.
std::vector<uint8_t> menu_file(size_t total) {
    std::vector<uint8_t> m = payload(static_cast<uint32_t>(total), 0x31);
    if (total >= 8) {
        std::memcpy(m.data(), "MRIF", 4);
        const uint32_t size = static_cast<uint32_t>(total - 8);
        for (int i = 0; i < 4; ++i) m[4 + i] = static_cast<uint8_t>(size >> (8 * i));
    }
    return m;
}

}  // namespace

// A head menu file is copied whole after the extension data, its bytes 20..27
// replaced by the position where the copy begins; a tail file goes at the end
// of movi, before idx1.
TEST(WriterMenuFiles, HeadAndTailCopies) {
    scratch_path head, tail, path;
    const std::vector<uint8_t> hm = menu_file(2500), tm = menu_file(1200);
    put_file(head, hm);
    put_file(tail, tm);
    const std::vector<uint8_t> meta = {1, 2, 3, 4};
    const std::vector<uint8_t> b = with_extensions(1, meta, {}, head, tail, path);
    ASSERT_FALSE(b.empty());

    const chunk_at kqdt = find_child(b, 0, "LIST", "KQDT");
    ASSERT_NE(kqdt.pos, SIZE_MAX);
    const size_t head_at = kqdt.pos + 8 + kqdt.size;
    ASSERT_LE(head_at + hm.size(), b.size());
    std::vector<uint8_t> expected = hm;
    for (int i = 0; i < 8; ++i) expected[20 + i] = static_cast<uint8_t>(static_cast<uint64_t>(head_at) >> (8 * i));
    EXPECT_EQ(std::vector<uint8_t>(b.begin() + head_at, b.begin() + head_at + hm.size()), expected);
    EXPECT_EQ(le64(b, head_at + 20), head_at);
    const size_t movi = head_at + hm.size();
    EXPECT_EQ(text4(b, movi), "LIST");
    EXPECT_EQ(text4(b, movi + 8), "movi");

    // movi: the data chunk, then the tail copy; idx1 after the list.
    const std::vector<chunk_at> in_movi = children(b, movi);
    ASSERT_EQ(in_movi.size(), 2u);
    EXPECT_EQ(in_movi[0].id, "00dc");
    const size_t tail_at = in_movi[1].pos;
    EXPECT_EQ(in_movi[1].id, "MRIF");
    EXPECT_EQ(le64(b, tail_at + 20), tail_at);
    expected = tm;
    for (int i = 0; i < 8; ++i) expected[20 + i] = static_cast<uint8_t>(static_cast<uint64_t>(tail_at) >> (8 * i));
    EXPECT_EQ(std::vector<uint8_t>(b.begin() + tail_at, b.begin() + tail_at + tm.size()), expected);
    EXPECT_EQ(movi + 8 + le32(b, movi + 4), tail_at + tm.size()) << "the tail is inside movi";
    EXPECT_EQ(text4(b, tail_at + tm.size()), "idx1");
    // The source files are untouched.
    EXPECT_EQ(file_bytes(head), hm);

    reader h(path);
    ASSERT_NE(h.h, nullptr);
    const walked first = next_chunk(h);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.data, payload(6, 9));
}

TEST(WriterMenuFiles, ShortAndMissingFiles) {
    scratch_path short_file, path;
    const std::vector<uint8_t> small = payload(27, 3);
    put_file(short_file, small);
    const std::vector<uint8_t> b = with_extensions(0, {}, {}, short_file, nullptr, path);
    const chunk_at junk = find_child(b, 0, "JUNK");
    const size_t at = junk.data() + junk.size;
    EXPECT_EQ(std::vector<uint8_t>(b.begin() + at, b.begin() + at + 27), small) << "too short to patch";

    // 28 bytes hold the position field: patched.
    const std::vector<uint8_t> just = payload(28, 4);
    put_file(short_file, just);
    const std::vector<uint8_t> b28 = with_extensions(0, {}, {}, short_file);
    EXPECT_EQ(le64(b28, at + 20), at);
    EXPECT_EQ(std::vector<uint8_t>(b28.begin() + at, b28.begin() + at + 20),
              std::vector<uint8_t>(just.begin(), just.begin() + 20));

    const std::vector<uint8_t> plain = with_extensions(0, {}, {});
    const std::vector<uint8_t> missing =
        with_extensions(0, {}, {}, "/nonexistent/kelqavi/head", "/nonexistent/kelqavi/tail");
    EXPECT_EQ(missing, plain) << "a path that cannot be opened writes nothing";
}

// append=1: the new AVI follows the old bytes, which stay as they were.
TEST(WriterAppend, SecondAviAfterAnExistingOne) {
    scratch_path path;
    aviout_handle *w = open_video_writer(path);
    ASSERT_NE(w, nullptr);
    put(w, 0, 1, payload(100, 1));
    put(w, 0, 0, payload(51, 2));
    aviout_close(w);
    const std::vector<uint8_t> old = file_bytes(path);
    ASSERT_EQ(old.size() % 2, 0u);

    w = aviout_open(path, 0, 1);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(w->file_start, static_cast<int64_t>(old.size()));
    int32_t s = -1;
    const video_stream_format v = video_record("H264", "second", 32, 16);
    ASSERT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 0);
    std::vector<std::vector<uint8_t>> sent;
    for (uint32_t i = 0; i < 5; ++i) {
        sent.push_back(payload(30 + i, 40 + i));
        ASSERT_EQ(put(w, 0, i == 0 ? 1 : 0, sent.back()), 0);
    }
    aviout_close(w);

    const std::vector<uint8_t> b = file_bytes(path);
    ASSERT_GT(b.size(), old.size());
    EXPECT_EQ(std::vector<uint8_t>(b.begin(), b.begin() + static_cast<long>(old.size())), old);
    const size_t start = old.size();
    EXPECT_EQ(text4(b, start), "RIFF");
    EXPECT_EQ(text4(b, start + 8), "AVI ");
    EXPECT_EQ(start + 8 + le32(b, start + 4), b.size()) << "the second form ends at the end of its idx1";
    const chunk_at junk = find_child(b, start, "JUNK");
    ASSERT_NE(junk.pos, SIZE_MAX);
    EXPECT_EQ((junk.data() + junk.size) % 2048, 0u) << "aligned by absolute position";
    const chunk_at idx = find_child(b, start, "idx1");
    ASSERT_NE(idx.pos, SIZE_MAX);
    EXPECT_EQ(le32(b, idx.data() + 8), 4u) << "idx1 offsets count from the second movi";
    EXPECT_EQ(avih_value(b, 4, start), 5u);

    reader h(path);
    ASSERT_NE(h.h, nullptr);
    int32_t count = 0;
    EXPECT_EQ(aviin_get_riff_count(h, &count), 0);
    EXPECT_EQ(count, 2);
    int64_t offset = -1;
    ASSERT_EQ(aviin_get_riff_offset(h, 1, &offset), 0);
    EXPECT_EQ(offset, static_cast<int64_t>(start));
    ASSERT_EQ(aviin_goto_riff(h, 0, offset), 0);
    const std::vector<walked> got = walk_data(h);
    ASSERT_EQ(got.size(), sent.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i].data, sent[i]) << i;
}

TEST(WriterAppend, AfterBytesOfOddLength) {
    scratch_path path;
    const std::vector<uint8_t> old = payload(3001, 5);
    put_file(path, old);
    aviout_handle *w = aviout_open(path, 1, 1);
    ASSERT_NE(w, nullptr);
    w->index_chunk_seconds = 2.0;
    int32_t s = -1;
    const video_stream_format v = video_record();
    const double frame = 0.04;
    ASSERT_EQ(aviout_set_video_format(w, &s, &v, &frame), 0);
    for (uint32_t i = 0; i < 4; ++i) ASSERT_EQ(put(w, 0, 1, payload(10, i)), 0);
    aviout_close(w);
    const std::vector<uint8_t> b = file_bytes(path);
    EXPECT_EQ(std::vector<uint8_t>(b.begin(), b.begin() + 3001), old);
    EXPECT_EQ(text4(b, 3001), "RIFF");
    const chunk_at junk = find_child(b, 3001, "JUNK");
    ASSERT_NE(junk.pos, SIZE_MAX);
    EXPECT_EQ((junk.data() + junk.size) % 2048, 0u);
    // The JUNK chunk lands on the boundary with an odd size and no pad byte:
    // a walk that rounds sizes up would miss movi, so look for it where it is.
    EXPECT_EQ(junk.size % 2, 1u);
    const chunk_at movi{junk.data() + junk.size, "LIST", 0, "movi"};
    EXPECT_EQ(text4(b, movi.pos), "LIST");
    EXPECT_EQ(text4(b, movi.pos + 8), "movi");
    // The super index's entry points at an absolute position inside this form.
    const size_t indx = strl_chunk(b, 0, "indx", 3001);
    ASSERT_NE(indx, SIZE_MAX);
    const uint64_t ix = le64(b, indx + 24);
    EXPECT_GT(ix, movi.pos);
    EXPECT_EQ(text4(b, static_cast<size_t>(ix)), std::string("ix0\0", 4));
}

TEST(WriterAppend, MissingFileFails) {
    EXPECT_EQ(aviout_open("/nonexistent/kelqavi/x.avi", 0, 1), nullptr);
    EXPECT_EQ(aviout_open("/nonexistent/kelqavi/x.avi", 0, 0), nullptr);
}

// A writer that never got a chunk leaves the file as opened.
TEST(WriterClose, NoChunkLeavesTheFileAsOpened) {
    scratch_path path;
    aviout_handle *w = open_video_writer(path);
    ASSERT_NE(w, nullptr);
    aviout_close(w);
    EXPECT_TRUE(file_bytes(path).empty());

    const std::vector<uint8_t> old = payload(100, 8);
    put_file(path, old);
    w = aviout_open(path, 1, 1);
    ASSERT_NE(w, nullptr);
    aviout_close(w);
    EXPECT_EQ(file_bytes(path), old);
    aviout_close(nullptr);
}
