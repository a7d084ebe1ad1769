// Menu forms at the top level of a file: scanning for them with
// aviin_getNextMenu, stepping through a form's "MENU" chunks with
// aviin_goto_next_menu, and handing the current chunk over.
#include <gtest/gtest.h>

#include <string>

#include "support/avi_image.h"
#include "support/hand_handle.h"
#include "unit/extensions/menu_image.h"

using namespace kelqtest;

namespace {

// The main AVI form, then three menu forms with a plain chunk between the
// first two; the third has a head chunk before its "KMNU" list.
struct menu_forms_file {
    menu_forms_file() {
        const byte_image form1 = menu_form(byte_image().append(bare_chunk("MRIF", "seg1")).append(menu_a));
        const byte_image form2 = menu_form(
            byte_image().append(menu_b1).append(bare_chunk("MRIF", "s2")).append(menu_b2).append(bare_chunk("MRIF", "")));
        // A 16-byte head whose first 8 bytes hold the form's position in the file.
        const byte_image head = byte_image().chunk("MHDR", byte_image().u64(0).u64(0));
        const byte_image form3 = menu_form(byte_image().append(bare_chunk("MRIF", "")).append(menu_c), head);
        image.append(avi_form(byte_image().append(hdrl({video_strl()})).append(one_frame_movi())));
        form1_at = image.size();
        image.append(form1).append(bare_chunk("JUNK", "--"));
        form2_at = image.size();
        image.append(form2);
        form3_at = image.size();
        image.append(form3);
    }
    const byte_image menu_a = bare_chunk("MENU", "menu-A"), menu_b1 = bare_chunk("MENU", "menu-B1!"),
                     menu_b2 = bare_chunk("MENU", "B2"), menu_c = bare_chunk("MENU", "menu-C");
    byte_image image;
    size_t form1_at = 0, form2_at = 0, form3_at = 0;
};

}  // namespace

// What a scan finds in whole, cut and damaged files: its result, the forms
// and MRIF chunks counted, the last menu kept and where the form found lies.
TEST(GetNextMenu, ScansFormsAndKeepsTheLastMenu) {
    const menu_forms_file f;
    const int64_t c_at = f.image.find("MENU", f.form3_at);
    const auto with_size = [&](uint32_t size) { return byte_image(f.image).set_u32(static_cast<size_t>(c_at + 4), size); };
    byte_image junk_past_end = f.image.head(f.form2_at);
    junk_past_end.append(bare_chunk("JUNK", "xx")).set_u32(f.form2_at + 4, 0xFFFFFFFFu);
    const std::string none = "(none) size 0";
    const int64_t skip = -1;
    const struct { const char *name; byte_image image; int result; int32_t count; std::string menu; int64_t form_pos; } rows[] = {
        // Four RIFF forms and four MRIF chunks.
        {"whole file", f.image, 1, 4 + 4, whole(f.menu_c), int64_t(f.form3_at) + 12 + 24 + 12},
        {"first two forms", f.image.head(f.form3_at), 1, 3 + 3, whole(f.menu_b2), int64_t(f.form2_at) + 24},
        {"no menu form", avi_form(byte_image().append(hdrl({video_strl()})).append(one_frame_movi())), 1, 1, none, skip},
        {"empty file", byte_image(), 1, 0, none, skip},
        // A menu chunk claiming more than the file holds ends the scan unread.
        {"menu far past the end", with_size(0xFFFFFFFFu), 0, skip, whole(f.menu_b2), skip},
        {"menu one byte past the end", with_size(uint32_t(f.image.size() - c_at - 7)), 0, skip, whole(f.menu_b2), skip},
        {"chunk header cut short", f.image.head(f.form2_at + 2), 0, skip, whole(f.menu_a), skip},
        {"top-level size past the end", junk_past_end, 1, skip, whole(f.menu_a), skip},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        hand_handle h(r.image);
        EXPECT_EQ(aviin_getNextMenu(h), r.result);
        if (r.count != skip) { EXPECT_EQ(riff_count(h), r.count); }
        EXPECT_EQ(block(aviin_get_menu_chunk, h), r.menu);
        if (r.form_pos != skip) { EXPECT_EQ(h->menu_form_pos, r.form_pos); }
    }
    EXPECT_EQ(aviin_get_menu_chunk(nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(aviin_getNextMenu(nullptr), 0);
}

namespace {

// A menu form whose list holds MENU a, an odd-sized JUNK with its pad byte,
// MENU b, an MRIF and MENU c, all menus of the same size; a MENU chunk
// follows the form at the top level.
struct stepping_file {
    stepping_file() {
        const byte_image chunks = byte_image().append(a).chunk("JUNK", byte_image().text("odd")).append(b);
        image.append(bare_chunk("JUNK", "0123"))
            .append(menu_form(byte_image(chunks).append(bare_chunk("MRIF", "xy")).append(c)))
            .append(bare_chunk("MENU", "beyond"));
    }
    // As the scans leave it: the form found, its last menu taken.
    void as_scanned(aviin_handle *h) const {
        h->menu_form_pos = form_pos;
        h->menu_chunk_found = 1;
        h->menu_chunk_size = 4;
    }
    const byte_image a = bare_chunk("MENU", "aaaa"), b = bare_chunk("MENU", "bbbb"), c = bare_chunk("MENU", "cccc");
    byte_image image;
    const int64_t form_pos = 12 + 24;
};

}  // namespace

// Stepping from the scanned state: the first step starts after the form's
// first chunk, taken to be the current one; stepping ends within the form
// (the MENU after it is not the form's), also when the form's size runs past
// the end of the file; a failed step puts the position back.
TEST(GotoNextMenu, StepsThroughTheFormThenRestoresThePosition) {
    const stepping_file f;
    const byte_image long_form = f.image.head(f.image.size() - 14).set_u32(12 + 4, 0x7FFFFFFFu);
    for (const byte_image *image : {&f.image, &long_form}) {
        hand_handle h(*image);
        f.as_scanned(h);
        for (const byte_image *menu : {&f.b, &f.c}) {
            EXPECT_EQ(aviin_goto_next_menu(h), 0);
            EXPECT_EQ(block(aviin_get_menu_chunk, h), whole(*menu));
        }
        for (int i = 0; i < 2; ++i) {
            h.seek(7);
            EXPECT_EQ(aviin_goto_next_menu(h), 1);
            EXPECT_EQ(h.tell(), 7);
            EXPECT_EQ(block(aviin_get_menu_chunk, h), whole(f.c));
        }
    }
}

// A handle with no menu chunk to step from, and a menu chunk larger than the
// file: the step fails, the position comes back and no chunk is taken.
TEST(GotoNextMenu, NothingToStepFrom) {
    const stepping_file f;
    const byte_image big = byte_image(f.image).set_u32(static_cast<size_t>(f.image.find("bbbb") - 4), 0xFFFFFFF0u);
    for (const byte_image *image : {&f.image, &big}) {
        hand_handle h(*image);
        if (image == &big) f.as_scanned(h);
        h->menu_form_pos = f.form_pos;
        h->menu_chunk_size = 4;
        h.seek(5);
        EXPECT_EQ(aviin_goto_next_menu(h), 1);
        EXPECT_EQ(h.tell(), 5);
        EXPECT_EQ(block(aviin_get_menu_chunk, h), "(none) size 4") << "no chunk taken";
    }
    EXPECT_EQ(aviin_goto_next_menu(nullptr), 1);
}
