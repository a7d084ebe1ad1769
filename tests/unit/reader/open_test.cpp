// Opening files: the top-level scan, the legacy-index walk, the header walk
// and where the reader stands afterwards.
#include <gtest/gtest.h>

#include <memory>

#include "reader/reader_handle.h"
#include "support/avi_image.h"

using namespace kelqtest;

namespace {

struct closer {
    void operator()(aviin_handle *h) const { aviin_close(h); }
};
using handle_ptr = std::unique_ptr<aviin_handle, closer>;

handle_ptr open_image(const byte_image &image, uint32_t swapped = 0) {
    temp_file file(image);
    return handle_ptr(aviin_open(file.path(), swapped));
}

byte_image simple_body() { return byte_image().append(hdrl({video_strl()})).append(one_frame_movi()); }

}  // namespace

TEST(Open, StandsAtTheFirstMovieChunk) {
    const byte_image body = simple_body();
    handle_ptr h = open_image(avi_form(body));
    ASSERT_NE(h, nullptr);
    const int64_t movi_start = 12 + static_cast<int64_t>(hdrl({video_strl()}).size());
    EXPECT_EQ(h->movi_data_pos, movi_start + 12);
    EXPECT_EQ(file_tell(h->file), movi_start + 12);
    ASSERT_NE(h->current_list, nullptr);
    EXPECT_TRUE(fourCC_equal(h->current_list->type, make_fourCC("movi")));
    EXPECT_EQ(h->current_list->depth, 2u);
    EXPECT_EQ(h->riff_count, 1);
    EXPECT_EQ(h->idx1_pos, 0);
    EXPECT_EQ(h->stream_count, 1);
}

// The reason a file is refused comes from the open itself: the code agrees
// with aviin_open's result, and the text names what was found.
TEST(Open, RefusesWhatIsNotAnAviFormAndSaysWhy) {
    const byte_image body = simple_body();
    const byte_image video_head = byte_image().append(strh_chunk("vids", "MJPG", 1, 25, 1));
    const auto with_streams = [](const std::vector<byte_image> &strls) {
        return avi_form(byte_image().append(hdrl(strls)).append(one_frame_movi()));
    };
    const auto video_with = [&](const byte_image &after_strh) {
        return with_streams({strl(byte_image().append(video_head).append(after_strh))});
    };
    const byte_image long_format = video_with(strf_video_chunk(64, 48, "MJPG", 4));
    const byte_image indx_past_end = video_with(
        byte_image().append(strf_video_chunk(64, 48, "MJPG")).id("indx").u32(4000000).u16(4).fill(2).u32(0).id("00dc").fill(12));
    const struct {
        const char *what;
        byte_image image;
        uint32_t tolerances, code;
        const char *words;           // part of the reason's text
        const char *path = nullptr;  // opened instead of the image
    } cases[] = {
        {"no such file", byte_image(), 0, AVIIN_REFUSED_CANNOT_OPEN, "No such file or directory", "/nonexistent/k.avi"},
        {"a directory", byte_image(), 0, AVIIN_REFUSED_READ_ERROR, "error reading it at offset 0: Is a directory", "/"},
        {"plain file", byte_image(avi_form(body)), 0, AVIIN_OPEN_OK, ""},
        {"plain file, tolerant", byte_image(avi_form(body)), AVIIN_TOLERATE_ALL, AVIIN_OPEN_OK, ""},
        {"long video format, tolerant", long_format, AVIIN_TOLERATE_ALL, AVIIN_OPEN_OK, ""},
        {"empty file", byte_image(), 0, AVIIN_REFUSED_NOT_RIFF, "the file is empty"},
        {"three bytes", byte_image().text("RIF"), 0, AVIIN_REFUSED_NOT_RIFF, "too short for a RIFF header (3 bytes)"},
        {"not RIFF", byte_image().list("LIST", "AVI ", body), 0, AVIIN_REFUSED_NOT_RIFF, "(it begins with 'LIST')"},
        {"continuation form first", avi_form(body, "AVIX"), 0, AVIIN_REFUSED_NOT_AVI, "RIFF 'AVIX' form"},
        {"wave form", avi_form(body, "WAVE"), AVIIN_TOLERATE_ALL, AVIIN_REFUSED_NOT_AVI, "RIFF 'WAVE' form"},
        {"top level cut in a chunk header", byte_image(avi_form(body)).text("JU"), 0, AVIIN_REFUSED_CUT_SHORT,
         "end 2 bytes before the end of the file"},
        {"list header cut",
         avi_form(byte_image().append(hdrl({video_strl()})).chunk("JUNK", byte_image().fill(4)).id("LIST").u32(4)), 0,
         AVIIN_REFUSED_CUT_SHORT, "'LIST' at"},
        {"stream list cut", avi_form(hdrl({video_strl()})), 0, AVIIN_REFUSED_CUT_SHORT, "stream 0's list is cut short"},
        {"no movi", avi_form(byte_image().append(hdrl({video_strl()}))).chunk("JUNK", byte_image().fill(8)), 0,
         AVIIN_REFUSED_NO_MOVI, "no 'movi' list"},
        {"walk carried off the file", indx_past_end, 0, AVIIN_REFUSED_NO_MOVI, "'hdrl' at 12 carries its walk to the end of the file"},
        {"empty movi", avi_form(byte_image().append(hdrl({video_strl()})).append(movi(byte_image()))), 0,
         AVIIN_REFUSED_EMPTY_MOVI, "'movi' list is empty (size 4)"},
        {"hdrl without avih first",
         avi_form(byte_image().list("LIST", "hdrl", byte_image().append(video_strl())).append(one_frame_movi())), 0,
         AVIIN_REFUSED_NO_AVIH, "main header (avih)"},
        {"empty hdrl", avi_form(byte_image().list("LIST", "hdrl", byte_image()).append(one_frame_movi())), 0,
         AVIIN_REFUSED_NO_AVIH, "main header (avih)"},
        {"strl without strh", with_streams({strl(byte_image().append(strf_video_chunk(64, 48, "MJPG")))}), 0,
         AVIIN_REFUSED_BAD_STREAM_HEADER, "stream 0 has no stream header (strh)"},
        {"video format shorter than its header says", video_with(byte_image().chunk("strf", byte_image().u32(44).fill(36))),
         AVIIN_TOLERATE_ALL, AVIIN_REFUSED_BAD_STREAM_FORMAT, "holds 40 bytes, but its header says 44"},
        {"video format cut by the end of the file", avi_form(hdrl({strl(byte_image().append(video_head).id("strf").u32(40))})),
         0, AVIIN_REFUSED_BAD_STREAM_FORMAT, "stream 0's stream format (strf) is cut short by the end of the file"},
        {"video format with bytes after its header", long_format, 0, AVIIN_REFUSED_LONG_FORMAT,
         "stream 0's video format has 4 bytes after its 40-byte header"},
        {"long bitmap caption format, tolerant", video_with(strf_video_chunk(64, 48, "KQSB", 2)), AVIIN_TOLERATE_ALL,
         AVIIN_REFUSED_LONG_FORMAT, "has 2 bytes after its 40-byte header"},
        {"name size with bit 15 set",
         video_with(byte_image().append(strf_video_chunk(64, 48, "MJPG")).id("strn").u32(0x8000).fill(8)), 0,
         AVIIN_REFUSED_BAD_STREAM_NAME, "stream 0's name (strn) claims 32768 bytes"},
        {"20 streams", with_streams(std::vector<byte_image>(20, strl(strh_chunk("mids", "MIDI", 1, 1, 1)))), 0,
         AVIIN_REFUSED_TOO_MANY_STREAMS, "more than 19 streams (stream 19 is one too many)"},
        {"13 audio streams", with_streams(std::vector<byte_image>(13, audio_strl())), 0,
         AVIIN_REFUSED_TOO_MANY_STREAMS, "more than 12 audio streams (stream 12 is one too many)"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        temp_file file(c.image);
        const char *path = c.path != nullptr ? c.path : file.path();
        handle_ptr h(aviin_open_tolerant(path, 0, c.tolerances));
        char text[256];
        EXPECT_EQ(aviin_open_report(path, 0, c.tolerances, text, sizeof text), c.code);
        EXPECT_EQ(h == nullptr, c.code != AVIIN_OPEN_OK);
        EXPECT_NE(std::string(text).find(c.words), std::string::npos) << text;
        EXPECT_EQ(std::string(text).empty(), c.code == AVIIN_OPEN_OK) << text;
        // A small buffer takes the text's start, cut and terminated in place.
        char small[8 + 1];
        small[8] = '#';
        EXPECT_EQ(aviin_open_report(path, 0, c.tolerances, small, 8), c.code);
        EXPECT_EQ(std::string(small), std::string(text).substr(0, 7));
        EXPECT_EQ(small[8], '#');
        EXPECT_EQ(aviin_open_report(path, 0, c.tolerances, nullptr, 0), c.code);
    }
    char text[64];
    EXPECT_EQ(aviin_open_report(nullptr, 0, 0, text, sizeof text), AVIIN_REFUSED_CANNOT_OPEN);
    EXPECT_EQ(aviin_open(nullptr, 0), nullptr);
}

TEST(Open, AcceptsAMenuSegmentHeaderAsTheFirstForm) {
    const byte_image image = byte_image().list("MRIF", "AVI ", simple_body());
    handle_ptr h = open_image(image);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->riff_count, 0);  // the scan counts only "RIFF" headers at the top
}

TEST(Open, CountsSegmentsAndMenuForms) {
    const byte_image avix = avi_form(movi(byte_image().chunk("00dc", byte_image().text("ab"))), "AVIX");
    byte_image menu_list;
    menu_list.chunk("MRIF", byte_image().fill(6)).chunk("MENU", byte_image().text("menu-0")).chunk("MRIF", byte_image());
    const byte_image menu_form = byte_image().list("RIFF", "AMNU", byte_image().list("LIST", "KMNU", menu_list));

    byte_image image = avi_form(simple_body());
    image.append(avix).append(avix).append(menu_form);
    handle_ptr h = open_image(image);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->riff_count, 3 + 1 + 2);  // four forms, two MRIF chunks
    ASSERT_EQ(h->menu_chunk_found, 1u);
    EXPECT_EQ(h->menu_chunk_size, 6);
    ASSERT_NE(h->menu_chunk_data, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(h->menu_chunk_data), 14), std::string("MENU\x06\0\0\0menu-0", 14));
    const int64_t kmnu_first_chunk = static_cast<int64_t>(image.size() - menu_form.size()) + 24;
    EXPECT_EQ(h->menu_form_pos, kmnu_first_chunk);
}

TEST(Open, TopLevelScanUsesOddSizesAsStored) {
    // A top-level chunk of odd size carries a pad byte the scan does not skip,
    // so it reads the next id one byte early and misses the second form.
    byte_image image = avi_form(simple_body());
    image.chunk("JUNK", byte_image().text("odd"));
    image.append(avi_form(one_frame_movi(), "AVIX"));
    handle_ptr h = open_image(image);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->riff_count, 1);
}

TEST(Open, MenuChunkLargerThanTheFileIsNotTaken) {
    byte_image menu_list;
    menu_list.id("MENU").u32(0x7FFFFFF0).text("short");
    byte_image image = avi_form(simple_body());
    image.append(byte_image().list("RIFF", "AMNU", byte_image().list("LIST", "KMNU", menu_list)));
    handle_ptr h = open_image(image);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->menu_chunk_found, 0u);
    EXPECT_EQ(h->menu_chunk_data, nullptr);
}

TEST(Open, FindsTheLegacyIndexInEitherSpelling) {
    for (const char *id : {"idx1", "1idx", "IDX1"}) {
        SCOPED_TRACE(id);
        const byte_image body = simple_body();
        byte_image image = avi_form(byte_image().append(body).chunk(id, byte_image().fill(16)));
        handle_ptr h = open_image(image);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(h->idx1_pos, 12 + static_cast<int64_t>(body.size()));
    }
}

TEST(Open, ListsBeforeMovieComeInAnyOrderAndListsAfterAreNotRead) {
    const byte_image kqdt = byte_image().list("LIST", "KQDT", byte_image().chunk("MTDA", byte_image().text("meta")));
    {
        handle_ptr h = open_image(avi_form(
            byte_image().append(kqdt).chunk("JUNK", byte_image().fill(6)).append(hdrl({video_strl(), audio_strl()}))
                .append(one_frame_movi())));
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(h->kqdt_list_found, 1u);
        EXPECT_EQ(h->kqdt_list_pos, 12 + 12);
        EXPECT_EQ(h->stream_count, 2);
    }
    {
        handle_ptr h = open_image(avi_form(byte_image().append(one_frame_movi()).append(hdrl({video_strl()}))));
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(h->stream_count, 0);
    }
}

TEST(Open, SurvivesEveryTruncationAndCorruption) {
    byte_image image = avi_form(byte_image()
                                    .append(hdrl({video_strl("MJPG", "Video"), audio_strl("Sound"), text_strl("Subtitle")}))
                                    .append(movi(byte_image()
                                                     .chunk("00dc", byte_image().text("frame"))
                                                     .chunk("01wb", byte_image().text("pcm")))));
    image.append(avi_form(one_frame_movi(), "AVIX"));
    const std::vector<uint8_t> &full = image.bytes();
    int opened = 0;
    for (size_t n = 0; n <= full.size(); ++n) {
        temp_file file(image.prefix(n));
        aviin_handle *h = aviin_open(file.path(), 0);
        opened += h != nullptr;
        EXPECT_EQ(aviin_open_report(file.path(), 0, 0, nullptr, 0) == AVIIN_OPEN_OK, h != nullptr) << n;
        aviin_close(h);
    }
    EXPECT_GT(opened, 0);
    uint32_t seed = 12345;
    for (int round = 0; round < 300; ++round) {
        std::vector<uint8_t> bytes = full;
        for (int flips = 0; flips < 1 + round % 4; ++flips) {
            seed = seed * 1103515245u + 12345u;
            bytes[(seed >> 8) % bytes.size()] = static_cast<uint8_t>(seed >> 24);
        }
        temp_file file(bytes);
        aviin_close(aviin_open(file.path(), round & 1));
    }
}
