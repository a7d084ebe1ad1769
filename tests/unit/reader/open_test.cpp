// Opening files: the reason a file is refused, and for a file that opens the
// top-level scan (forms, menu chunks, the legacy index), the header walk and
// where the reader stands afterwards.
#include <gtest/gtest.h>

#include <string>

#include "reader/reader_handle.h"
#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

byte_image simple_body() { return byte_image().append(hdrl({video_strl()})).append(one_frame_movi()); }

byte_image video_with(const byte_image &after_strh) {
    return streams_file({strl(byte_image().append(strh_chunk("vids", "MJPG", 1, 25, 1)).append(after_strh))});
}

// A menu form: LIST "KMNU" holding the chunks.
byte_image menu_form(const byte_image &chunks) {
    return byte_image().list("RIFF", "AMNU", byte_image().list("LIST", "KMNU", chunks));
}

// The main form with one video frame, then what follows it at the top.
byte_image then(const byte_image &after) { return byte_image(avi_form(simple_body())).append(after); }

// What an opened handle holds, checked against the file's own bytes: the
// walk stands at the first chunk of "movi", the KQDT list and the menu form
// are noted at their first chunk.
void expect_opened(aviin_handle *h, const byte_image &image) {
    EXPECT_EQ(h->movi_data_pos, image.find("movi") + 4);
    EXPECT_EQ(file_tell(h->file), h->movi_data_pos);
    ASSERT_NE(h->current_list, nullptr);
    EXPECT_TRUE(fourCC_equal(h->current_list->type, make_fourCC("movi")));
    EXPECT_EQ(h->current_list->depth, 2u);
    if (h->kqdt_list_found != 0) { EXPECT_EQ(h->kqdt_list_pos, image.find("KQDT") + 4); }
    if (h->menu_chunk_found != 0) { EXPECT_EQ(h->menu_form_pos, image.find("KMNU") + 4); }
}

}  // namespace

// The reason a file is refused comes from the open itself: the code agrees
// with aviin_open's result, and the text names what was found. A file that
// opens shows its forms (riff), streams, idx1 position and menu chunk.
TEST(Open, OpensOrRefusesAndSaysWhy) {
    const byte_image body = simple_body();
    const byte_image long_format = video_with(strf_video_chunk(64, 48, "MJPG", 4));
    const byte_image indx_past_end = video_with(
        byte_image().append(strf_video_chunk(64, 48, "MJPG")).id("indx").u32(4000000).u16(4).fill(2).u32(0).id("00dc").fill(12));
    const byte_image avix = avi_form(movi(byte_image().chunk("00dc", byte_image().text("ab"))), "AVIX");
    const byte_image mrif_menu = byte_image().chunk("MRIF", byte_image().fill(6)).chunk("MENU", byte_image().text("menu-0")).chunk("MRIF", byte_image());
    const byte_image kqdt = byte_image().list("LIST", "KQDT", byte_image().chunk("MTDA", byte_image().text("meta")));
    const auto with_idx1 = [&](const char *id) { return avi_form(byte_image().append(body).chunk(id, byte_image().fill(16))); };
    const std::string menu0("MENU\x06\0\0\0menu-0", 14);
    const int64_t idx1_at = 12 + static_cast<int64_t>(body.size());
    const struct {
        const char *what;
        byte_image image;
        uint32_t tolerances, code;
        const char *words;           // part of the reason's text
        const char *path = nullptr;  // opened instead of the image
        int riff = -1, streams = 0;  // of an opened file; riff -1: not checked
        int64_t idx1 = 0;
        std::string menu = "";             // the menu chunk taken, with its header
    } cases[] = {
        {"no such file", byte_image(), 0, AVIIN_REFUSED_CANNOT_OPEN, "No such file or directory", "/nonexistent/k.avi"},
        {"a directory", byte_image(), 0, AVIIN_REFUSED_READ_ERROR, "error reading it at offset 0: Is a directory", "/"},
        {"plain file", avi_form(body), 0, AVIIN_OPEN_OK, "", nullptr, 1, 1, 0},
        {"long video format, tolerant", long_format, AVIIN_TOLERATE_ALL, AVIIN_OPEN_OK, "", nullptr, 1, 1, 0},
        {"menu segment header first", byte_image().list("MRIF", "AVI ", body), 0, AVIIN_OPEN_OK, "", nullptr, 0, 1, 0},
        // Four forms and two MRIF chunks.
        {"segments and menu forms", then(byte_image().append(avix).append(avix).append(menu_form(mrif_menu))), 0, AVIIN_OPEN_OK, "",
         nullptr, 6, 1, 0, menu0},
        {"menu chunk larger than the file", then(menu_form(byte_image().id("MENU").u32(0x7FFFFFF0).text("short"))), 0,
         AVIIN_OPEN_OK, "", nullptr, -1, 1, 0},
        // An odd top-level chunk's pad byte is not skipped: the next id is read
        // one byte early and the second form is missed.
        {"odd top-level chunk", then(byte_image().chunk("JUNK", byte_image().text("odd")).append(avi_form(one_frame_movi(), "AVIX"))),
         0, AVIIN_OPEN_OK, "", nullptr, 1, 1, 0},
        {"idx1", with_idx1("idx1"), 0, AVIIN_OPEN_OK, "", nullptr, 1, 1, idx1_at},
        {"1idx", with_idx1("1idx"), 0, AVIIN_OPEN_OK, "", nullptr, 1, 1, idx1_at},
        {"IDX1", with_idx1("IDX1"), 0, AVIIN_OPEN_OK, "", nullptr, 1, 1, idx1_at},
        {"lists before movi in any order",
         avi_form(byte_image().append(kqdt).chunk("JUNK", byte_image().fill(6)).append(hdrl({video_strl(), audio_strl()})).append(one_frame_movi())),
         0, AVIIN_OPEN_OK, "", nullptr, 1, 2, 0},
        {"lists after movi are not read", avi_form(byte_image().append(one_frame_movi()).append(hdrl({video_strl()}))), 0,
         AVIIN_OPEN_OK, "", nullptr, 1, 0, 0},
        {"empty file", byte_image(), 0, AVIIN_REFUSED_NOT_RIFF, "the file is empty"},
        {"three bytes", byte_image().text("RIF"), 0, AVIIN_REFUSED_NOT_RIFF, "too short for a RIFF header (3 bytes)"},
        {"not RIFF", byte_image().list("LIST", "AVI ", body), 0, AVIIN_REFUSED_NOT_RIFF, "(it begins with 'LIST')"},
        {"continuation form first", avi_form(body, "AVIX"), 0, AVIIN_REFUSED_NOT_AVI, "RIFF 'AVIX' form"},
        {"wave form", avi_form(body, "WAVE"), AVIIN_TOLERATE_ALL, AVIIN_REFUSED_NOT_AVI, "RIFF 'WAVE' form"},
        {"top level cut in a chunk header", then(byte_image().text("JU")), 0, AVIIN_REFUSED_CUT_SHORT, "end 2 bytes before the end of the file"},
        {"list header cut", avi_form(byte_image().append(hdrl({video_strl()})).chunk("JUNK", byte_image().fill(4)).id("LIST").u32(4)), 0,
         AVIIN_REFUSED_CUT_SHORT, "'LIST' at"},
        {"stream list cut", avi_form(hdrl({video_strl()})), 0, AVIIN_REFUSED_CUT_SHORT, "stream 0's list is cut short"},
        {"no movi", avi_form(byte_image().append(hdrl({video_strl()}))).chunk("JUNK", byte_image().fill(8)), 0, AVIIN_REFUSED_NO_MOVI, "no 'movi' list"},
        {"walk carried off the file", indx_past_end, 0, AVIIN_REFUSED_NO_MOVI, "'hdrl' at 12 carries its walk to the end of the file"},
        {"empty movi", avi_form(byte_image().append(hdrl({video_strl()})).append(movi(byte_image()))), 0, AVIIN_REFUSED_EMPTY_MOVI, "'movi' list is empty (size 4)"},
        {"hdrl without avih first", avi_form(byte_image().list("LIST", "hdrl", byte_image().append(video_strl())).append(one_frame_movi())), 0,
         AVIIN_REFUSED_NO_AVIH, "main header (avih)"},
        {"empty hdrl", avi_form(byte_image().list("LIST", "hdrl", byte_image()).append(one_frame_movi())), 0, AVIIN_REFUSED_NO_AVIH, "main header (avih)"},
        {"strl without strh", streams_file({strl(byte_image().append(strf_video_chunk(64, 48, "MJPG")))}), 0,
         AVIIN_REFUSED_BAD_STREAM_HEADER, "stream 0 has no stream header (strh)"},
        {"video format shorter than its header says", video_with(byte_image().chunk("strf", byte_image().u32(44).fill(36))),
         AVIIN_TOLERATE_ALL, AVIIN_REFUSED_BAD_STREAM_FORMAT, "holds 40 bytes, but its header says 44"},
        {"video format cut by the end of the file",
         avi_form(hdrl({strl(byte_image().append(strh_chunk("vids", "MJPG", 1, 25, 1)).id("strf").u32(40))})), 0,
         AVIIN_REFUSED_BAD_STREAM_FORMAT, "stream 0's stream format (strf) is cut short by the end of the file"},
        {"video format with bytes after its header", long_format, 0, AVIIN_REFUSED_LONG_FORMAT, "stream 0's video format has 4 bytes after its 40-byte header"},
        {"long bitmap caption format, tolerant", video_with(strf_video_chunk(64, 48, "KQSB", 2)), AVIIN_TOLERATE_ALL,
         AVIIN_REFUSED_LONG_FORMAT, "has 2 bytes after its 40-byte header"},
        {"name size with bit 15 set", video_with(byte_image().append(strf_video_chunk(64, 48, "MJPG")).id("strn").u32(0x8000).fill(8)), 0,
         AVIIN_REFUSED_BAD_STREAM_NAME, "stream 0's name (strn) claims 32768 bytes"},
        {"20 streams", streams_file(std::vector<byte_image>(20, strl(strh_chunk("mids", "MIDI", 1, 1, 1)))), 0,
         AVIIN_REFUSED_TOO_MANY_STREAMS, "more than 19 streams (stream 19 is one too many)"},
        {"13 audio streams", streams_file(std::vector<byte_image>(13, audio_strl())), 0, AVIIN_REFUSED_TOO_MANY_STREAMS,
         "more than 12 audio streams (stream 12 is one too many)"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        temp_file file(c.image);
        const char *path = c.path != nullptr ? c.path : file.path();
        aviin_handle *h = aviin_open_tolerant(path, 0, c.tolerances);
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
        if (h == nullptr) continue;
        expect_opened(h, c.image);
        if (c.riff >= 0) { EXPECT_EQ(h->riff_count, c.riff); }
        EXPECT_EQ(h->stream_count, c.streams);
        EXPECT_EQ(h->idx1_pos, c.idx1);
        EXPECT_EQ(std::string(h->menu_chunk_found != 0 ? reinterpret_cast<char *>(h->menu_chunk_data) : "",
                              h->menu_chunk_found != 0 ? static_cast<size_t>(h->menu_chunk_size) + 8 : 0),
                  c.menu);
        aviin_close(h);
    }
    char text[64];
    EXPECT_EQ(aviin_open_report(nullptr, 0, 0, text, sizeof text), AVIIN_REFUSED_CANNOT_OPEN);
    EXPECT_EQ(aviin_open(nullptr, 0), nullptr);
}
