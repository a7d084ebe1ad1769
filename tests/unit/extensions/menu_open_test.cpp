// Menu lists and menu forms of whole files opened with aviin_open. The
// blocks open reads are checked by the tool's tests, on files the writer made.
#include <gtest/gtest.h>

#include <string>

#include "reader/reader_handle.h"
#include "unit/reader/reader_images.h"
#include "unit/extensions/menu_image.h"

using namespace kelqtest;

namespace {


// A main form carrying the lists before its header list.
byte_image extended_form(const byte_image &kqdt_chunks, const byte_image &kmnu_chunks) {
    return avi_form(byte_image()
                        .list("LIST", "KQDT", kqdt_chunks)
                        .list("LIST", "KMNU", kmnu_chunks)
                        .append(hdrl({video_strl()}))
                        .append(one_frame_movi()));
}

}  // namespace

TEST(MenuOpen, BlocksListsAndFormsOfAnExtendedFile) {
    // The main form carries extension data and a menu list; a menu form and
    // an "AVIX" segment follow it.
    const byte_image main_menu = bare_chunk("MENU", "main-menu!"), m1 = bare_chunk("MENU", "one-"),
                     m2 = bare_chunk("MENU", "two-"), m3 = bare_chunk("MENU", "thre");
    byte_image image = extended_form(byte_image().chunk("MTDA", byte_image().text("meta!!")).append(bare_chunk("MENU", "kq")),
                                 byte_image().append(bare_chunk("MRIF", "")).append(main_menu));
    const int64_t form_at = static_cast<int64_t>(image.size());
    image.append(menu_form(byte_image().append(m1).append(m2).append(bare_chunk("MRIF", "r1")).append(m3)));
    image.append(avi_form(one_frame_movi(), "AVIX"));
    reader o(image);
    ASSERT_NE(o.get(), nullptr);
    EXPECT_EQ(riff_count(o), 3 + 1 + 1) << "three forms, the MRIF of the form and that of the main menu list";
    EXPECT_EQ(o.get()->menu_form_pos, form_at + 24);

    // The open-time scan keeps the form's last menu; stepping starts after
    // the form's first chunk.
    EXPECT_EQ(block(aviin_get_menu_chunk, o), whole(m3));
    EXPECT_EQ(aviin_goto_next_menu(o), 0);
    EXPECT_EQ(block(aviin_get_menu_chunk, o), whole(m2));

    // Scanning again from the form: the form, its MRIF and the AVIX count once
    // more. The look for a menu list after the AVIX's first list runs off the
    // end of the file, which counts as a failed read. The form found anew,
    // stepping starts again from its head.
    EXPECT_EQ(aviin_getNextMenu(o), 0);
    EXPECT_EQ(block(aviin_get_menu_chunk, o), whole(m3));
    EXPECT_EQ(riff_count(o), 5 + 3);
    EXPECT_EQ(aviin_goto_next_menu(o), 0);
    EXPECT_EQ(block(aviin_get_menu_chunk, o), whole(m2));
}
