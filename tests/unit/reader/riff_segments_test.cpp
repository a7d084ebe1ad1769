// RIFF segments: their positions in file order (main form, continuation
// forms, menu forms and the "MRIF" chunks of the first two forms), and moving
// the reader into one.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "reader/reader_handle.h"
#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

// Data of the next chunk through the whole-chunk walk, or "#result".
std::string next_data(aviin_handle *h) {
    const chunk_call c = next_chunk(h, 64);
    return c.result != 0 ? "#" + std::to_string(c.result) : as_text(c.data);
}

// The stream tables and the legacy index as the getters show them: the
// counts, then video stream 0 and audio stream 1 where the getters find them.
std::string tables(aviin_handle *h) {
    std::ostringstream out;
    int32_t streams = -1, strd = -1;
    uint32_t a = 0, b = 0, size = 0, d = 0, length = 0;
    aviin_get_summary(h, &streams, &strd);
    out << "streams " << streams << " strd " << strd << " idx1 " << aviin_get_idx1_entry(h, 0, &a, &b, &size, &d);
    video_stream_format v{};
    audio_stream_format au{};
    if (aviin_get_video_format(h, 0, &v, &length) == 0) {
        out << "; " << v.width << "x" << v.height << " " << std::string(v.compression, 4) << " length " << length << " strd "
            << std::string(v.strd_data, v.strd_data + v.strd_size) << " name " << (v.name != nullptr ? v.name : "");
        std::free(v.name_length > 0 ? v.name : nullptr);
    }
    if (aviin_get_audio_format(h, 1, &au) == 0) {
        out << "; rate " << au.rate << " name " << (au.name != nullptr ? au.name : "");
        std::free(au.name_length > 0 ? au.name : nullptr);
    }
    return out.str();
}

byte_image video_strl_with_strd() {
    return strl(byte_image()
                    .append(strh_chunk("vids", "MJPG", 1, 25, 10))
                    .append(strf_video_chunk(64, 48, "MJPG"))
                    .append(strd_chunk(7, {'s', 't', 'r', 'd'}))
                    .append(strn_chunk("video one")));
}

byte_image frame_and_sound(const char *frame, const char *sound) {
    return byte_image().chunk("00dc", byte_image().text(frame)).chunk("01wb", byte_image().text(sound));
}

// Main form with two streams, two chunks and a legacy index; a continuation
// form with two chunks and a JUNK after its movi list.
struct two_segments {
    form_image main = make_form("AVI ", hdrl({video_strl_with_strd(), audio_strl("audio one")}),
                                frame_and_sound("frame0", "pcm0"), byte_image().chunk("idx1", byte_image().fill(32)));
    form_image avix = make_form("AVIX", byte_image(), frame_and_sound("frame1", "pcm1"),
                                byte_image().chunk("JUNK", byte_image().fill(4)));
    int64_t avix_at = static_cast<int64_t>(main.bytes.size());
    byte_image file = byte_image().append(main.bytes).append(avix.bytes);
};

}  // namespace

// Segments in file order. Main form: KMNU { MRIF, MENU, MRIF } first. Then a
// menu form with two MRIF chunks, a continuation form, and a second menu form
// whose MRIF is counted at open but not numbered by the segment walk.
TEST(RiffSegments, OffsetsOfTheFormsAndTheMenuSegmentsOfTheFirstTwo) {
    const auto menu_list = [](const byte_image &chunks) { return byte_image().list("LIST", "KMNU", chunks); };
    const byte_image main_menu =
        menu_list(byte_image().chunk("MRIF", byte_image().fill(6)).chunk("MENU", byte_image().text("menu")).chunk("MRIF", byte_image()));
    const form_image main = make_form("AVI ", byte_image().append(main_menu).append(two_stream_hdrl()),
                                      byte_image().chunk("00dc", byte_image().text("f")));
    const byte_image menu2 = avi_form(
        menu_list(byte_image().chunk("MRIF", byte_image().fill(2)).chunk("JUNK", byte_image().fill(2)).chunk("MRIF", byte_image().fill(4))),
        "AMNU");
    const byte_image avix = make_form("AVIX", byte_image(), byte_image().chunk("00dc", byte_image().text("g"))).bytes;
    const byte_image menu4 = avi_form(menu_list(byte_image().chunk("MRIF", byte_image().fill(2))), "AMNU");
    const byte_image file = byte_image().append(main.bytes).append(menu2).append(avix).append(menu4);
    const int64_t f2 = static_cast<int64_t>(main.bytes.size());
    const int64_t f3 = f2 + static_cast<int64_t>(menu2.size());
    const int64_t f4 = f3 + static_cast<int64_t>(avix.size());

    // Open counts more (the later menu form's MRIF; the main form's twice, by
    // its scan and by the KMNU list reader): 8 to 10 pass the range check
    // but the file holds no such segment, which releases the handle, told by
    // -1 in *offset; so does -1. Past the count the call fails and keeps the
    // handle, and the walk goes on where it was.
    const int64_t expected[] = {-1, 0, 24, 24 + 14 + 12, f2, f2 + 24, f2 + 24 + 20, f3, f4, -1, -1, -1, 5};
    for (int32_t n = -1; n <= 11; ++n) {
        SCOPED_TRACE(n);
        reader r(file);
        int32_t count = 0;
        ASSERT_EQ(aviin_get_riff_count(r, &count), 0);
        ASSERT_EQ(count, 10);
        int64_t offset = 5;
        EXPECT_EQ(aviin_get_riff_offset(r, n, &offset), n >= 0 && n < 8 ? 0 : 1);
        EXPECT_EQ(offset, expected[n + 1]);
        if (offset == -1) {
            r.released();  // a second release would be a double free, none a leak
            continue;
        }
        EXPECT_EQ(next_data(r), "f");
        EXPECT_EQ(next_data(r), "#3");
    }
}

// Into the continuation form, back to the main form, then into a form with
// no movie data, which is entered all the same.
TEST(RiffSegments, GotoEachFormRebuildsTheTables) {
    const two_segments t;
    const byte_image kqdt = byte_image().list("LIST", "KQDT", byte_image().chunk("MTDA", byte_image()));
    const byte_image no_movi = avi_form(byte_image().chunk("JUNK", byte_image().text("jjjj")).append(kqdt), "AVIX");
    const int64_t third = static_cast<int64_t>(t.file.size());
    reader r(byte_image().append(t.file).append(no_movi));
    const std::string at_open = tables(r);
    ASSERT_EQ(at_open, "streams 2 strd 1 idx1 0; 64x48 MJPG length 10 strd strd name video one; rate 8000 name audio one");
    std_index_header cursor{};
    ASSERT_EQ(aviin_set_odml_cursor(r, 1, &cursor), 0);
    r.get()->indx_pos[1] = 1234;
    r.get()->indx_header[1].entries_in_use = 9;

    ASSERT_EQ(aviin_goto_riff(r, 1, t.avix_at), 0);
    // No standard-index state survives into the other segment.
    EXPECT_EQ(r.get()->swapped_ids, 1u);
    EXPECT_EQ(r.get()->std_index_header_ptr[1], nullptr);
    EXPECT_EQ(r.get()->indx_pos[1], 0);
    EXPECT_EQ(r.get()->indx_header[1].entries_in_use, 0u);
    EXPECT_EQ(tables(r), "streams 0 strd 0 idx1 1");
    for (const char *expected : {"frame1", "pcm1", "#3"}) EXPECT_EQ(next_data(r), expected);

    ASSERT_EQ(aviin_goto_riff(r, 0, 0), 0);
    EXPECT_EQ(tables(r), at_open);
    for (const char *expected : {"frame0", "pcm0", "#3"}) EXPECT_EQ(next_data(r), expected);

    ASSERT_EQ(aviin_goto_riff(r, 0, third), 0);
    EXPECT_EQ(tables(r), "streams 0 strd 0 idx1 1");
    // The walk now steps the segment's own chunks.
    ASSERT_EQ(aviin_seek_by_offset(r, static_cast<uint64_t>(third + 12)), 0);
    EXPECT_EQ(next_data(r), "jjjj");
}

TEST(RiffSegments, GotoFailuresKeepTheHandleUnlessNothingCanBeEntered) {
    const two_segments t;
    const int64_t size = static_cast<int64_t>(t.file.size());
    // Nothing to enter at the offset: 1 after releasing the handle, which the
    // checked call reports by clearing the caller's variable. Nine bytes are
    // enough to enter a list (every value read takes what is there): a
    // segment with nothing in it, entered with 0. A negative offset cannot be
    // sought: the first entry reads the chunk where the stream stood, the
    // second the end of the file.
    const struct { int64_t offset; bool released; } moves[] = {{size + 100, true}, {size, true}, {size - 8, true}, {size - 9, false}, {-1, true}};
    for (const auto &m : moves) {
        SCOPED_TRACE(m.offset);
        reader r(m.offset < 0 ? main_form(byte_image().chunk("00dc", byte_image().text("abcd"))).bytes : t.file);
        aviin_handle *h = r;
        EXPECT_EQ(aviin_goto_riff_checked(&h, 0, m.offset), m.released ? 1 : 0);
        EXPECT_EQ(h == nullptr, m.released);
        if (m.released) r.released();
    }
    // A header list that does not open with avih, and a list header cut by
    // the end of the file: 1, standing in no list, where every walk call
    // fails until a good segment is entered.
    const form_image bad = make_form("AVIX", byte_image().list("LIST", "hdrl", byte_image().chunk("JUNK", byte_image())),
                                     byte_image().chunk("00dc", byte_image().text("x")));
    const byte_image cut = byte_image().id("RIFF").u32(100).id("AVIX").chunk("JUNK", byte_image().fill(4)).id("LIST");
    for (const byte_image &second : {bad.bytes, cut}) {
        reader r(byte_image().append(t.main.bytes).append(second));
        EXPECT_EQ(aviin_goto_riff(r, 0, t.avix_at), 1);
        uint8_t buffer[4];
        EXPECT_EQ(next_data(r), "#1");
        EXPECT_EQ(next_header(r).result, 1);
        EXPECT_EQ(aviin_get_chunk(r, 0, buffer, 1), 1);
        ASSERT_EQ(aviin_goto_riff(r, 0, 0), 0);
        EXPECT_EQ(next_data(r), "frame0");
    }
}
