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

std::string text(const uint8_t *data, int64_t size) {
    return data == nullptr ? "(null)" : std::string(reinterpret_cast<const char *>(data), static_cast<size_t>(size));
}

std::string current_menu(const aviin_handle *h) {
    return h->menu_chunk_found == 1 ? text(h->menu_chunk_data, h->menu_chunk_size + 8) : "(none)";
}

std::string whole(const byte_image &chunk) { return text(chunk.bytes().data(), static_cast<int64_t>(chunk.size())); }

// The main AVI form, then three menu forms with a plain chunk between the
// first two; the third has a head chunk before its "KMNU" list.
struct menu_forms_file {
    menu_forms_file() {
        const byte_image form1 = menu_form(byte_image().append(bare_chunk("MRIF", "seg1")).append(menu_a));
        const byte_image form2 = menu_form(
            byte_image().append(menu_b1).append(bare_chunk("MRIF", "s2")).append(menu_b2).append(bare_chunk("MRIF", "")));
        const byte_image form3 = menu_form_after_head(byte_image().append(bare_chunk("MRIF", "")).append(menu_c));
        image.append(avi_form(byte_image().append(hdrl({video_strl()})).append(one_frame_movi())));
        form1_at = static_cast<int64_t>(image.size());
        image.append(form1).append(bare_chunk("JUNK", "--"));
        form2_at = static_cast<int64_t>(image.size());
        image.append(form2);
        form3_at = static_cast<int64_t>(image.size());
        image.append(form3);
    }
    const byte_image menu_a = bare_chunk("MENU", "menu-A"), menu_b1 = bare_chunk("MENU", "menu-B1!"),
                     menu_b2 = bare_chunk("MENU", "B2"), menu_c = bare_chunk("MENU", "menu-C");
    byte_image image;
    int64_t form1_at = 0, form2_at = 0, form3_at = 0;
    static constexpr int riff_forms = 4, mrif_chunks = 4;
};

}  // namespace

TEST(GetNextMenu, ScansEveryFormAndKeepsTheLastMenu) {
    const menu_forms_file f;
    hand_handle h(f.image);
    EXPECT_EQ(aviin_getNextMenu(h), 1);
    EXPECT_EQ(h->riff_count, f.riff_forms + f.mrif_chunks);
    EXPECT_EQ(current_menu(h), whole(f.menu_c));
    EXPECT_EQ(h->menu_form_pos, f.form3_at + 12 + 24 + 12) << "after the head chunk and the KMNU list type";
    uint8_t *data = nullptr;
    int32_t size = 0;
    EXPECT_EQ(aviin_get_menu_chunk(h, &data, &size), 0);
    EXPECT_EQ(data, h->menu_chunk_data);
    EXPECT_EQ(size + 8, static_cast<int32_t>(f.menu_c.size())) << "the chunk's size field";
    EXPECT_EQ(text(data, size + 8), whole(f.menu_c));
}

TEST(GetNextMenu, StartsAtTheFormFoundBefore) {
    const menu_forms_file f;
    hand_handle h(f.image);
    h->menu_form_pos = f.form2_at + 24;
    EXPECT_EQ(aviin_getNextMenu(h), 1);
    EXPECT_EQ(h->riff_count, 2 + 3);
    EXPECT_EQ(current_menu(h), whole(f.menu_c));
    // The first two forms alone: the second form's last menu is kept.
    hand_handle two(f.image.head(static_cast<size_t>(f.form3_at)));
    EXPECT_EQ(aviin_getNextMenu(two), 1);
    EXPECT_EQ(current_menu(two), whole(f.menu_b2));
    EXPECT_EQ(two->menu_form_pos, f.form2_at + 24);
    EXPECT_EQ(two->riff_count, 3 + 3);
}

TEST(GetNextMenu, FilesWithoutMenuForms) {
    hand_handle plain(avi_form(byte_image().append(hdrl({video_strl()})).append(one_frame_movi())));
    EXPECT_EQ(aviin_getNextMenu(plain), 1);
    EXPECT_EQ(plain->riff_count, 1);
    EXPECT_EQ(plain->menu_chunk_found, 0u);
    uint8_t *data = reinterpret_cast<uint8_t *>(&plain);
    int32_t size = 77;
    // No chunk: null and 0, answered as the main RIFF's menu getter answers.
    EXPECT_EQ(aviin_get_menu_chunk(plain, &data, &size), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(aviin_get_menu_chunk(plain, nullptr, nullptr), 0);
    EXPECT_EQ(aviin_get_menu_chunk(nullptr, &data, &size), 1);
    hand_handle empty{byte_image()};
    EXPECT_EQ(aviin_getNextMenu(empty), 1);
    EXPECT_EQ(aviin_getNextMenu(nullptr), 0);
}

TEST(GetNextMenu, ReadFailuresKeepWhatWasFound) {
    const menu_forms_file f;
    // A menu chunk claiming more than the file holds ends the scan: it is not
    // allocated, and the menu found before stays.
    byte_image bad = f.image;
    const int64_t c_at = f.image.find("MENU", static_cast<size_t>(f.form3_at));
    for (uint32_t size : {0x7FFFFFF0u, 0xFFFFFFFFu, static_cast<uint32_t>(f.image.size() - c_at - 7)}) {
        bad.set_u32(static_cast<size_t>(c_at + 4), size);
        hand_handle h(bad);
        EXPECT_EQ(aviin_getNextMenu(h), 0) << size;
        EXPECT_EQ(current_menu(h), whole(f.menu_b2)) << size;
    }
    // A chunk header cut short.
    hand_handle cut(f.image.head(static_cast<size_t>(f.form2_at) + 2));
    EXPECT_EQ(aviin_getNextMenu(cut), 0);
    EXPECT_EQ(current_menu(cut), whole(f.menu_a));
    // A top-level size past the end ends the scan as finished.
    byte_image junk = f.image.head(static_cast<size_t>(f.form2_at));
    junk.append(bare_chunk("JUNK", "xx")).set_u32(static_cast<size_t>(f.form2_at) + 4, 0xFFFFFFFFu);
    hand_handle past(junk);
    EXPECT_EQ(aviin_getNextMenu(past), 1);
}

namespace {

// A menu form whose list holds MENU a, an odd-sized JUNK with its pad byte,
// MENU b, an MRIF and MENU c, all menus of the same size; a MENU chunk
// follows the form at the top level.
struct stepping_file {
    stepping_file() {
        const byte_image chunks = byte_image()
                                      .append(a)
                                      .chunk("JUNK", byte_image().text("odd"))
                                      .append(b)
                                      .append(bare_chunk("MRIF", "xy"))
                                      .append(c);
        image.append(bare_chunk("JUNK", "0123")).append(menu_form(chunks)).append(bare_chunk("MENU", "beyond"));
        form_pos = 12 + 24;
    }
    // As the scans leave it: the form found, its last menu taken.
    void as_scanned(aviin_handle *h) const {
        h->menu_form_pos = form_pos;
        h->menu_chunk_found = 1;
        h->menu_chunk_size = 4;
    }
    const byte_image a = bare_chunk("MENU", "aaaa"), b = bare_chunk("MENU", "bbbb"), c = bare_chunk("MENU", "cccc");
    byte_image image;
    int64_t form_pos;
};

}  // namespace

TEST(GotoNextMenu, StepsThroughTheFormThenRestoresThePosition) {
    const stepping_file f;
    hand_handle h(f.image);
    f.as_scanned(h);
    // The first step starts after the form's first chunk, taken to be the current one.
    EXPECT_EQ(aviin_goto_next_menu(h), 0);
    EXPECT_EQ(current_menu(h), whole(f.b));
    EXPECT_EQ(h->menu_cursor_pos, f.image.find("bbbb") - 4);
    EXPECT_EQ(aviin_goto_next_menu(h), 0);
    EXPECT_EQ(current_menu(h), whole(f.c));
    for (int i = 0; i < 2; ++i) {
        h.seek(7);
        EXPECT_EQ(aviin_goto_next_menu(h), 1) << "the MENU after the form is not the form's";
        EXPECT_EQ(h.tell(), 7);
        EXPECT_EQ(current_menu(h), whole(f.c));
    }
}

TEST(GotoNextMenu, NothingToStepFrom) {
    const stepping_file f;
    hand_handle h(f.image);
    h->menu_form_pos = f.form_pos;
    h.seek(5);
    EXPECT_EQ(aviin_goto_next_menu(h), 1) << "no menu chunk found yet";
    EXPECT_EQ(h.tell(), 5);
    EXPECT_EQ(aviin_goto_next_menu(nullptr), 1);
    f.as_scanned(h);
    h->menu_form_pos = 10;  // no size field 20 bytes before
    EXPECT_EQ(aviin_goto_next_menu(h), 1);
    f.as_scanned(h);
    h->menu_chunk_size = -6;
    EXPECT_EQ(aviin_goto_next_menu(h), 1);
}

TEST(GotoNextMenu, HostileFormsAndMenus) {
    const stepping_file f;
    // A form size past the end of the file: the walk ends at the file's end.
    byte_image long_form = f.image.head(f.image.size() - 14);
    long_form.set_u32(12 + 4, 0x7FFFFFFFu);
    hand_handle h(long_form);
    f.as_scanned(h);
    EXPECT_EQ(aviin_goto_next_menu(h), 0);
    EXPECT_EQ(aviin_goto_next_menu(h), 0);
    h.seek(3);
    EXPECT_EQ(aviin_goto_next_menu(h), 1);
    EXPECT_EQ(h.tell(), 3);
    // A menu chunk larger than the file: refused, the current one kept.
    byte_image big = f.image;
    big.set_u32(static_cast<size_t>(f.image.find("bbbb") - 4), 0xFFFFFFF0u);
    hand_handle g(big);
    f.as_scanned(g);
    g->menu_chunk_data = static_cast<uint8_t *>(std::malloc(12));
    uint8_t *kept = g->menu_chunk_data;
    g.seek(9);
    EXPECT_EQ(aviin_goto_next_menu(g), 1);
    EXPECT_EQ(g.tell(), 9);
    EXPECT_EQ(g->menu_chunk_data, kept);
    EXPECT_EQ(g->menu_chunk_size, 4);
}

TEST(MenuForms, ScanThenStepAcrossTheLastForm) {
    // The scan leaves the last form's last menu; stepping starts from the
    // form's head again and ends within the form.
    const byte_image m1 = bare_chunk("MENU", "m1"), m2 = bare_chunk("MENU", "m2"), m3 = bare_chunk("MENU", "m3");
    const byte_image image = byte_image()
                                 .append(menu_form(byte_image().append(bare_chunk("MENU", "x0"))))
                                 .append(menu_form(byte_image().append(m1).append(m2).append(m3)))
                                 .append(bare_chunk("JUNK", "MENU"));
    hand_handle h(image);
    EXPECT_EQ(aviin_getNextMenu(h), 1);
    EXPECT_EQ(current_menu(h), whole(m3));
    EXPECT_EQ(aviin_goto_next_menu(h), 0);
    EXPECT_EQ(current_menu(h), whole(m2));
    EXPECT_EQ(aviin_goto_next_menu(h), 0);
    EXPECT_EQ(current_menu(h), whole(m3));
    EXPECT_EQ(aviin_goto_next_menu(h), 1);
    // A second scan from the form found starts stepping afresh.
    EXPECT_EQ(aviin_getNextMenu(h), 1);
    EXPECT_EQ(h->menu_cursor_pos, 0);
    EXPECT_EQ(aviin_goto_next_menu(h), 0);
    EXPECT_EQ(current_menu(h), whole(m2));
}

TEST(MenuForms, TruncationSweep) {
    // Every prefix of the file: the scan finishes or reports a failed read,
    // every menu taken is a whole chunk of the file, and stepping ends.
    const menu_forms_file f;
    for (size_t n = 0; n <= f.image.size(); ++n) {
        SCOPED_TRACE(n);
        hand_handle h(f.image.head(n));
        const int r = aviin_getNextMenu(h);
        EXPECT_TRUE(r == 0 || r == 1);
        if (n == static_cast<size_t>(f.form2_at) || n == f.image.size()) {
            EXPECT_EQ(r, 1);
        }
        EXPECT_LE(h->riff_count, f.riff_forms + f.mrif_chunks);
        int steps = 0;
        do {
            if (h->menu_chunk_found != 1) break;
            ASSERT_NE(h->menu_chunk_data, nullptr);
            EXPECT_EQ(text(h->menu_chunk_data, 4), "MENU");
            EXPECT_TRUE(occurs_in(f.image, h->menu_chunk_data, static_cast<size_t>(h->menu_chunk_size) + 8));
            h.seek(1);
        } while (aviin_goto_next_menu(h) == 0 && ++steps < 10);
        EXPECT_LT(steps, 10);
        if (h->menu_chunk_found == 1) {
            EXPECT_EQ(h.tell(), 1) << "position restored by the last step";
        }
    }
}
