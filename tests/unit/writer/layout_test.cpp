// The bytes of written files: the header area's order and alignment, the
// per-kind stream headers and formats, dmlh, the legacy index and the final
// counts and sizes patched in at close.
#include <gtest/gtest.h>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

std::string ids_of(const std::vector<chunk_at> &chunks) {
    std::string out;
    for (const chunk_at &c : chunks) out += (c.type.empty() ? c.id : c.id + ":" + c.type) + " ";
    return out;
}

// Writes a file with the given set-up and streams, then puts each
// {stream, flags, size} chunk (payload seeded by its size); gives the bytes.
struct step {
    int32_t stream;
    uint32_t flags, size;
};
std::vector<uint8_t> written(const char *path, aviout_handle *w, std::initializer_list<step> steps) {
    if (w == nullptr) return {};
    for (const step &s : steps) EXPECT_EQ(put(w, s.stream, s.flags, payload(s.size, s.size)), 0);
    aviout_close(w);
    return file_bytes(path);
}

}  // namespace

TEST(WriterLayout, HeaderAreaOrderAndAlignment) {
    for (uint32_t mode = 0; mode < 4; ++mode) {
        const uint32_t odml = mode & 1, profile = mode >> 1;
        SCOPED_TRACE(testing::Message() << odml << "/" << profile);
        scratch_path path;
        // One video and one audio stream and a few chunks, one of them "dd"
        // per-frame data.
        const std::vector<uint8_t> b =
            written(path, open_writer(path, "va", {odml, 10.0, 0, profile}, 0.25),
                    {{0, 1, 100}, {1, 0, 4000}, {0, 0, 33}, {0, AVIOUT_FRAME_DATA, 3}});
        ASSERT_FALSE(b.empty());
        EXPECT_EQ(text4(b, 0) + text4(b, 8), "RIFFAVI ");
        EXPECT_EQ(le32(b, 4), b.size() - 8) << "RIFF size patched to the end of idx1";
        EXPECT_EQ(ids_of(children(b, 0)), "LIST:hdrl JUNK LIST:movi idx1 ");
        const chunk_at hdrl = find_child(b, 0, "LIST", "hdrl");
        EXPECT_EQ(ids_of(children(b, hdrl.pos)), "avih LIST:strl LIST:strl LIST:odml ");
        EXPECT_EQ(find_child(b, hdrl.pos, "avih").size, 56u);
        // dmlh: 244 bytes, the first word the total frame count; "dd"
        // chunks do not count as frames.
        const chunk_at odml_list = find_child(b, hdrl.pos, "LIST", "odml");
        EXPECT_EQ(odml_list.size, 4u + 8 + 244);
        const chunk_at dmlh = find_child(b, odml_list.pos, "dmlh");
        std::vector<uint8_t> frames(252, 0);
        std::copy_n("dmlh\xF4\0\0\0\2", 9, frames.begin());
        EXPECT_EQ(span(b, dmlh.pos, 252), frames);
        const std::string strl = odml != 0 ? "strh strf strn indx " : "strh strf strn ";
        for (const chunk_at &list : strl_lists(b)) EXPECT_EQ(ids_of(children(b, list.pos)), strl);
        // The JUNK chunk fills up to 2048, so movi's first chunk is the
        // first thing past the 2048 boundary: offset 4 in idx1. Two super
        // indexes of 1632 bytes push the header area past 2048.
        const chunk_at junk = find_child(b, 0, "JUNK");
        // Filler "Kelq " repeated; zeros in the standard profile.
        const char filler[] = "Kelq ";
        for (size_t i = 0; i < junk.size; ++i) ASSERT_EQ(b[junk.data() + i], profile ? 0 : filler[i % 5]) << i;
        const size_t boundary = odml != 0 ? 4096u : 2048u;
        const chunk_at movi = find_child(b, 0, "LIST", "movi"), idx1 = find_child(b, 0, "idx1");
        EXPECT_EQ(std::vector<size_t>({junk.data() + junk.size, movi.pos, movi.pos + 8 + movi.size, movi_chunks(b).at(0).pos}),
                  std::vector<size_t>({boundary, boundary, idx1.pos, boundary + 12}))
            << "movi size patched";
        EXPECT_EQ(idx1.pos + 8 + idx1.size, b.size());
        EXPECT_EQ(le32(b, idx1.data() + 8), 4u);
    }
}

// The JUNK chunk always ends on a boundary and is never empty: with the
// hdrl end moved across 2038..2050 by the name length, a header area too
// close to 2048 for the JUNK header and some filler goes on to 4096.
TEST(WriterLayout, JunkFillsToTheNextBoundary) {
    // hdrl ends at 484 + the even name size with one video stream and no
    // OpenDML; from 1555 on it ends at 2040 or later, leaving no filler.
    for (const int len : {1, 2, 11, 1553, 1554, 1555, 1556, 1558, 1564, 1566}) {
        SCOPED_TRACE(len);
        const size_t movi = len < 1555 ? 2048 : 4096;
        scratch_path path;
        aviout_handle *w = aviout_open(path, 0, 0);
        ASSERT_NE(w, nullptr);
        const std::string name(static_cast<size_t>(len), 'n');
        const video_stream_format v = video_record("MJPG", name.c_str());
        int32_t s;
        ASSERT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 0);
        const std::vector<uint8_t> b = written(path, w, {{0, 1, 2}});
        const chunk_at junk = find_child(b, 0, "JUNK");
        ASSERT_NE(junk.pos, SIZE_MAX);
        EXPECT_EQ(junk.pos, 484u + static_cast<uint32_t>(len + (len & 1)));
        EXPECT_EQ(junk.data() + junk.size, movi);
        EXPECT_EQ(find_child(b, 0, "LIST", "movi").pos, movi);
    }
}

// strh, strf and avih of one video stream; xvid codes become the library's
// own (kept as given in the standard profile), and the image size follows
// the compression's bytes per pixel.
TEST(WriterLayout, VideoHeadersAndCodecRewriting) {
    struct clip {
        const char *handler, *compression;
        int32_t width, height;
        const char *handler_out, *compression_out;
        uint32_t image;
        uint32_t profile;
    } const clips[] = {
        {"XVID", "XVID", 64, 48, "XVID", "XVID", 64 * 48 * 3, 1},
        {"XVID", "XVID", 64, 48, "kelq", "KQ50", 64 * 48 * 3, 0},
        {"xvid", "xvid", 64, 48, "kelq", "KQ50", 64 * 48 * 3, 0},
        {"Xvid", "Xvid", 64, 48, "Xvid", "Xvid", 64 * 48 * 3, 0},
        {"DIVX", "IYUV", 64, 48, "DIVX", "IYUV", 64 * 48 * 3 / 2, 0},
        {"DIVX", "YV12", 30, 10, "DIVX", "YV12", 30 * 10 * 3 / 2, 0},
        {"DIVX", "I420", 16, 16, "DIVX", "I420", 16 * 16 * 3 / 2, 0},
        {"DIVX", "UYVY", 64, 48, "DIVX", "UYVY", 64 * 48 * 2, 0},
        {"DIVX", "YUY2", 64, 48, "DIVX", "YUY2", 64 * 48 * 2, 0},
        {"DIVX", "YUYV", 64, 48, "DIVX", "YUYV", 64 * 48 * 2, 0},
        {"DIVX", "V422", 64, 48, "DIVX", "V422", 64 * 48 * 2, 0},
        {"\0\0\0\0", "DIB ", 10, 10, "\0\0\0\0", "DIB ", 300, 0},
    };
    for (const clip &c : clips) {
        SCOPED_TRACE(testing::Message() << c.compression << "/" << c.profile);
        scratch_path path;
        aviout_handle *w = aviout_open(path, 0, 0);
        ASSERT_NE(w, nullptr);
        w->standard_profile = c.profile;
        const video_stream_format v = video_record(c.compression, nullptr, c.width, c.height, 1001, 30000, c.handler);
        int32_t s;
        ASSERT_EQ(aviout_set_video_format(w, &s, &v, nullptr), 0);
        const std::vector<uint8_t> b = written(path, w, {{0, 1, 8}});
        const size_t strh = strl_chunk(b, 0, "strh"), strf = strl_chunk(b, 0, "strf");
        ASSERT_NE(strf, SIZE_MAX);
        const uint32_t width = static_cast<uint32_t>(c.width), height = static_cast<uint32_t>(c.height);
        EXPECT_EQ(text4(b, strh + strh_type) + text4(b, strh + strh_handler) + text4(b, strf + 16),
                  "vids" + id4(c.handler_out) + id4(c.compression_out));
        // The frame rectangle's right and bottom share a word, as do the
        // bitmap's planes and bit count.
        expect_words(b, strh - 4, {{0, 56}, {4 + strh_flags, 0}, {4 + strh_scale, 1001}, {4 + strh_rate, 30000},
                                   {4 + strh_start, 0}, {4 + strh_quality, 7500}, {4 + strh_rect, 0},
                                   {8 + strh_rect, width | height << 16}});
        expect_words(b, strf - 4, {{0, 40}, {4, 40}, {8, width}, {12, height}, {16, 1 | 24 << 16}, {24, c.image},
                                   {28, 0}, {32, 0}, {36, 0}, {40, 0}});
        // avih: rounded micro-seconds per frame of 1001/30000 s, flags,
        // streams, picture size.
        expect_words(b, avih_data(b), {{0, 33367}, {12, 0x110}, {24, 1}, {32, width}, {36, height}});
    }
}

// The standard profile differs only in the text-caption and chapter timing.
TEST(WriterLayout, AudioCaptionAndBitmapCaptionHeaders) {
    struct form {
        uint32_t profile, scale, rate;
    } const forms[] = {{0, 0, 0}, {1, 1, 1000}};
    for (const form &fm : forms) {
        SCOPED_TRACE(fm.profile);
        scratch_path path;
        aviout_handle *w = aviout_open(path, 0, 0);
        ASSERT_NE(w, nullptr);
        w->standard_profile = fm.profile;
        int32_t s;
        const audio_stream_format a = audio_record(44100, nullptr, 4, 3);
        const caption_stream_format text = caption_record("Subtitle", 0x1111), chapter = caption_record("Chapter", 0x2222);
        const video_stream_format bitmap = video_record("KQSB", nullptr, 720, 575, 1, 25, "SUBP");
        ASSERT_EQ(aviout_set_audio_format(w, &s, &a, nullptr) + aviout_set_text_caption_format(w, &s, &text) +
                      aviout_set_chapter_format(w, &s, &chapter) + aviout_set_bitmap_caption_format(w, &s, &bitmap),
                  0);
        const std::vector<uint8_t> b = written(path, w, {{0, 0, 1001}, {1, 0, 17}, {1, 0, 40}, {2, 0, 5}, {3, 0, 300}});
        // No video stream: the avih timing fields stay 0.
        expect_words(b, avih_data(b), {{0, 0}, {16, 0}, {24, 4}});

        // Audio: 1001 bytes in samples of 4 make a length of 251, rounded up.
        size_t h = strl_chunk(b, 0, "strh");
        EXPECT_EQ(text4(b, h + strh_type), "auds");
        expect_words(b, h, {{strh_handler, 0}, {strh_initial, 3}, {strh_scale, 1}, {strh_rate, 44100}, {strh_start, 5},
                            {strh_length, 251}, {strh_buffer, 1001}, {strh_quality, 0xFFFFFFFFu}, {strh_sample, 4},
                            {strh_rect, 0}, {strh_rect + 4, 0}});
        size_t f = strl_chunk(b, 0, "strf");
        // Three extra bytes: a size of 21 and a pad byte outside it.
        expect_words(b, f - 4, {{0, 21}, {4, 1 | 1 << 16}, {8, 44100}, {20, 3 | 0xA0 << 16 | 0xA1u << 24}});
        EXPECT_EQ(span(b, f + 20, 6), (std::vector<uint8_t>{0xA2, 0, 's', 't', 'r', 'n'}));

        // Text caption and chapter: "txts", by default without timing, length 0
        // whatever was written; the format's values stored in the order 0, 1, 3, 2.
        for (int stream = 1; stream <= 2; ++stream) {
            SCOPED_TRACE(stream);
            const uint32_t base = stream == 1 ? 0x1111 : 0x2222;
            h = strl_chunk(b, stream, "strh");
            EXPECT_EQ(text4(b, h + strh_type), "txts");
            expect_words(b, h, {{strh_handler, 0}, {strh_scale, fm.scale}, {strh_rate, fm.rate}, {strh_length, 0},
                                {strh_buffer, stream == 1 ? 40u : 5u}, {strh_quality, 0xFFFFFFFFu}, {strh_rect, 0},
                                {strh_rect + 4, 0}});
            expect_words(b, strl_chunk(b, stream, "strf") - 4,
                         {{0, 8}, {4, base | base * 2 << 16}, {8, base * 4 | base * 3 << 16}});
        }
        h = strl_chunk(b, 3, "strh");
        EXPECT_EQ(text4(b, h + strh_type) + text4(b, h + strh_handler), "vidsSUBP");
        expect_words(b, h, {{strh_flags, 1}, {strh_rate, 25}, {strh_length, 1}, {strh_rect + 4, 720 | 575 << 16}});
        f = strl_chunk(b, 3, "strf");
        EXPECT_EQ(text4(b, f + 16), "KQSB");
        expect_words(b, f, {{12, 1 | 4 << 16}, {20, 720 * 575 / 2}});
    }
}

// The legacy index: one record per data chunk, flags by kind, offsets from
// the movi list type; ids for "dd" and "db" chunks; pad bytes.
TEST(WriterLayout, LegacyIndexRecordsAndPadding) {
    scratch_path path;
    aviout_handle *w = open_writer(path, "vat");
    struct expected {
        step put;
        const char *id;
        uint32_t idx1_flags;
    } const steps[] = {
        {{0, AVIOUT_KEY_FRAME, 101}, "00dc", 0x10},
        {{1, 0, 0}, "01wb", 0},
        {{0, 0, 50}, "00dc", 0},
        {{0, AVIOUT_FRAME_DATA, 7}, "00dd", 0x100},
        {{0, AVIOUT_FRAME_DATA | AVIOUT_KEY_FRAME, 8}, "00dd", 0x110},
        {{0, AVIOUT_UNCOMPRESSED | AVIOUT_KEY_FRAME, 9}, "00db", 0x10},
        {{1, AVIOUT_KEY_FRAME, 3}, "01wb", 0x10},
        {{2, 0, 11}, "02st", 0},
    };
    for (const expected &e : steps) ASSERT_EQ(put(w, e.put.stream, e.put.flags, payload(e.put.size, e.put.size)), 0);
    aviout_close(w);
    const std::vector<uint8_t> b = file_bytes(path);
    const size_t movi_type = find_child(b, 0, "LIST", "movi").pos + 8, n = sizeof steps / sizeof steps[0];
    const std::vector<chunk_at> data = movi_chunks(b);
    const chunk_at idx1 = find_child(b, 0, "idx1");
    ASSERT_EQ(std::vector<size_t>({data.size(), idx1.size}), std::vector<size_t>({n, n * 16}));
    for (size_t i = 0; i < n; ++i) {
        SCOPED_TRACE(i);
        const chunk_at &c = data[i];
        const uint32_t size = steps[i].put.size;
        EXPECT_EQ(c.id + text4(b, idx1.data() + 16 * i), id4(steps[i].id) + id4(steps[i].id));
        std::vector<uint8_t> want = payload(size, size);
        if (size % 2 != 0) want.push_back(0);   // the pad byte
        EXPECT_EQ(c.size, size);
        EXPECT_EQ(span(b, c.data(), want.size()), want);
        expect_words(b, idx1.data() + 16 * i,
                     {{4, steps[i].idx1_flags}, {8, static_cast<uint32_t>(c.pos - movi_type)}, {12, size}});
    }
    // Final counts: "dd" chunks add nothing to the length, the largest
    // chunk is the suggested buffer; avih counts video chunks only.
    const uint32_t counts[3][2] = {{3, 101}, {2, 3}, {0, 11}};
    for (int i = 0; i < 3; ++i)
        expect_words(b, strl_chunk(b, i, "strh"), {{strh_length, counts[i][0]}, {strh_buffer, counts[i][1]}});
    expect_words(b, avih_data(b), {{16, 3}, {24, 3}});
}
