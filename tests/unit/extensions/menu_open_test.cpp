// Extension data, menu lists and menu forms of whole files opened with
// aviin_open.
#include <gtest/gtest.h>

#include <string>

#include "reader/reader_handle.h"
#include "support/avi_image.h"
#include "unit/extensions/menu_image.h"

using namespace kelqtest;

namespace {

std::string text(const uint8_t *data, int64_t size) {
    return data == nullptr ? "(null)" : std::string(reinterpret_cast<const char *>(data), static_cast<size_t>(size));
}

std::string whole(const byte_image &chunk) { return text(chunk.bytes().data(), static_cast<int64_t>(chunk.size())); }

std::string menu_chunk(aviin_handle *h) {
    uint8_t *data = nullptr;
    int32_t size = 0;
    return aviin_get_menu_chunk(h, &data, &size) == 0 && data != nullptr ? text(data, size + 8) : "(none)";
}

struct opened {
    explicit opened(const byte_image &image) : file(image), h(aviin_open(file.path(), 0)) {}
    ~opened() { aviin_close(h); }
    temp_file file;
    aviin_handle *h;
};

// The main form carries extension data and a menu list before its header
// list; a menu form and an "AVIX" segment follow it.
struct extended_file {
    extended_file() {
        const byte_image kqdt = byte_image().list(
            "LIST", "KQDT", byte_image().chunk("MTDA", byte_image().text("meta!!")).append(bare_chunk("MENU", "kq")));
        const byte_image kmnu = byte_image().list("LIST", "KMNU", byte_image().append(bare_chunk("MRIF", "")).append(main_menu));
        const byte_image main = avi_form(
            byte_image().append(kqdt).append(kmnu).append(hdrl({video_strl()})).append(one_frame_movi()));
        const byte_image form =
            menu_form(byte_image().append(m1).append(m2).append(bare_chunk("MRIF", "r1")).append(m3));
        image.append(main);
        form_at = static_cast<int64_t>(image.size());
        image.append(form).append(avi_form(one_frame_movi(), "AVIX"));
    }
    const byte_image main_menu = bare_chunk("MENU", "main-menu!");
    const byte_image m1 = bare_chunk("MENU", "one-"), m2 = bare_chunk("MENU", "two-"), m3 = bare_chunk("MENU", "thre");
    byte_image image;
    int64_t form_at = 0;
};

}  // namespace

TEST(MenuOpen, BlocksListsAndFormsOfAnExtendedFile) {
    const extended_file f;
    opened o(f.image);
    ASSERT_NE(o.h, nullptr);
    uint8_t *data = nullptr;
    int32_t size = 0;
    EXPECT_EQ(aviin_get_metadata_info(o.h, &data, &size), 0);
    EXPECT_EQ(text(data, size), "meta!!");
    EXPECT_EQ(aviin_get_menu_info(o.h, &data, &size), 0);
    EXPECT_EQ(size, 10);
    EXPECT_EQ(text(data, size + 8), whole(f.main_menu)) << "the menu block is the whole chunk";
    int32_t count = 0;
    aviin_get_riff_count(o.h, &count);
    EXPECT_EQ(count, 3 + 1 + 1) << "three forms, the MRIF of the form and that of the main menu list";
    EXPECT_EQ(o.h->menu_form_pos, f.form_at + 24);

    // The open-time scan keeps the form's last menu; stepping starts after
    // the form's first chunk.
    EXPECT_EQ(menu_chunk(o.h), whole(f.m3));
    const int64_t movi_at = file_tell(o.h->file);
    EXPECT_EQ(aviin_goto_next_menu(o.h), 0);
    EXPECT_EQ(menu_chunk(o.h), whole(f.m2));
    EXPECT_EQ(aviin_goto_next_menu(o.h), 0);
    EXPECT_EQ(menu_chunk(o.h), whole(f.m3));
    file_seek(o.h->file, movi_at, 0);
    EXPECT_EQ(aviin_goto_next_menu(o.h), 1);
    EXPECT_EQ(file_tell(o.h->file), movi_at);

    // Scanning again from the form: the form, its MRIF and the AVIX count once
    // more. The look for a menu list after the AVIX's first list runs off the
    // end of the file, which counts as a failed read.
    EXPECT_EQ(aviin_getNextMenu(o.h), 0);
    EXPECT_EQ(menu_chunk(o.h), whole(f.m3));
    aviin_get_riff_count(o.h, &count);
    EXPECT_EQ(count, 5 + 3);
}

TEST(MenuOpen, OversizedBlocksInTheMainFormAreAbsent) {
    // The sizes of the MTDA and MENU chunks claim more than the file holds;
    // the lists themselves are sound, so the file still opens.
    const byte_image kqdt = byte_image().list("LIST", "KQDT", byte_image().chunk("MTDA", byte_image().text("meta")));
    const byte_image kmnu = byte_image().list("LIST", "KMNU", bare_chunk("MENU", "menu"));
    byte_image image = avi_form(byte_image().append(kqdt).append(kmnu).append(hdrl({video_strl()})).append(one_frame_movi()));
    image.set_u32(static_cast<size_t>(image.find("MTDA") + 4), 0x7FFFFFF0u);
    image.set_u32(static_cast<size_t>(image.find("MENU") + 4), 0xFFFFFFF0u);
    opened o(image);
    ASSERT_NE(o.h, nullptr);
    uint8_t *data = reinterpret_cast<uint8_t *>(&o);
    int32_t size = -1;
    aviin_get_metadata_info(o.h, &data, &size);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0);
    aviin_get_menu_info(o.h, &data, &size);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(o.h->kqdt_list_found, 1u);
    EXPECT_EQ(o.h->kmnu_list_found, 1u);
}
