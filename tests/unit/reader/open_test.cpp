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

TEST(Open, RefusesWhatIsNotAnAviForm) {
    const byte_image body = simple_body();
    const struct {
        const char *what;
        byte_image image;
    } cases[] = {
        {"empty file", byte_image()},
        {"three bytes", byte_image().text("RIF")},
        {"not RIFF", byte_image().list("LIST", "AVI ", body)},
        {"continuation form first", avi_form(body, "AVIX")},
        {"wave form", avi_form(body, "WAVE")},
        {"no movi", avi_form(byte_image().append(hdrl({video_strl()})))},
        {"empty movi", avi_form(byte_image().append(hdrl({video_strl()})).append(movi(byte_image())))},
        {"hdrl without avih first", avi_form(byte_image()
                                                 .list("LIST", "hdrl", byte_image().append(video_strl()))
                                                 .append(one_frame_movi()))},
        {"empty hdrl", avi_form(byte_image().list("LIST", "hdrl", byte_image()).append(one_frame_movi()))},
        {"video format with bytes after its header",
         avi_form(byte_image()
                      .append(hdrl({strl(byte_image()
                                             .append(strh_chunk("vids", "MJPG", 1, 25, 1))
                                             .append(strf_video_chunk(64, 48, "MJPG", 4)))}))
                      .append(one_frame_movi()))},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(open_image(c.image), nullptr);
    }
    EXPECT_EQ(aviin_open("/nonexistent/kelqavi.avi", 0), nullptr);
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
