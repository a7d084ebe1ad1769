// Walking RIFF lists with the stack of list nodes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelqavi.h"
#include "support/byte_image.h"
#include "unit/riff/riff_walk.h"

using kelqtest::byte_image;
using kelqtest::temp_stream;

namespace {

using kelqtest::walker;
using kelqtest::visit;
std::string text(uint32_t code) { return kelqtest::fourcc_text(code); }

// RIFF "AVI " { LIST hdrl { avih(5) LIST strl { strh(3) } LIST none { } } JUNK(2) LIST movi { 00dc(1) 01wb(4) } }
byte_image small_riff() {
    byte_image strl, hdrl, movi, body;
    strl.chunk("strh", byte_image().text("xyz"));
    hdrl.chunk("avih", byte_image().text("abcde")).list("LIST", "strl", strl).list("LIST", "none", byte_image());
    movi.chunk("00dc", byte_image().text("q")).chunk("01wb", byte_image().text("wxyz"));
    body.list("LIST", "hdrl", hdrl).chunk("JUNK", byte_image().text("--")).list("LIST", "movi", movi);
    return byte_image().list("RIFF", "AVI ", body);
}

}  // namespace

TEST(ListNav, WalksANestedFile) {
    const byte_image img = small_riff();
    temp_stream s(img);
    list_node *riff = new_list(nullptr, s);
    ASSERT_NE(riff, nullptr);
    EXPECT_EQ(riff->parent, nullptr);
    EXPECT_EQ(riff->stream, s.get());
    EXPECT_EQ(riff->start, 0);
    EXPECT_EQ(riff->size, img.size() - 8);
    EXPECT_EQ(riff->next_pos, 12);
    EXPECT_EQ(text(riff->id), "RIFF");
    EXPECT_EQ(text(riff->type), "AVI ");
    EXPECT_EQ(riff->status, 0u);
    EXPECT_EQ(riff->depth, 1u);

    walker w{s, 100};
    w.walk(riff);
    EXPECT_FALSE(w.gave_up);
    EXPECT_EQ(riff->status, 0u);
    const std::vector<std::string> expected = {
        "1 LIST hdrl", "2 avih 5 abcde", "2 LIST strl", "3 strh 3 xyz", "2 LIST none",
        "1 JUNK 2 --", "1 LIST movi",    "2 00dc 1 q",  "2 01wb 4 wxyz",
    };
    EXPECT_EQ(w.lines(), expected);
    ASSERT_EQ(w.seen.size(), expected.size());
    EXPECT_EQ(w.seen[1].pos, 24);
    EXPECT_EQ(w.seen[2].pos, 24 + 14) << "the odd avih is followed by a pad byte";
    delete_list_recursive(riff);
}

TEST(ListNav, OddSizedChunkAndTheEndBound) {
    // Six bytes before the list, so positions are not list-relative by accident.
    const byte_image body = byte_image().chunk("abcd", byte_image().fill(5, 1)).chunk("efgh", byte_image().u16(2));
    temp_stream s(byte_image().fill(6, 0xCC).list("LIST", "test", body).id("next"));
    ASSERT_EQ(file_seek(s, 6, 0), 0);
    list_node *node = new_list(nullptr, s);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->start, 6);
    EXPECT_EQ(node->size, 4u + 14u + 10u);
    EXPECT_EQ(file_tell(s), 18);
    EXPECT_EQ(end_of_list(node), 0);

    EXPECT_EQ(text(next_chunk_in_list(node)), "abcd");
    EXPECT_EQ(file_tell(s), 18);
    EXPECT_EQ(node->next_pos, 18 + 14) << "8 header + 5 data + 1 pad";
    ASSERT_EQ(file_seek(s, node->next_pos, 0), 0);
    EXPECT_EQ(end_of_list(node), 0);
    EXPECT_EQ(text(next_chunk_in_list(node)), "efgh");
    EXPECT_EQ(node->next_pos, 42);

    // The end is reported from start + size on, while 8 bytes of the list remain.
    const int64_t bound = node->start + static_cast<int64_t>(node->size);
    ASSERT_EQ(file_seek(s, bound - 1, 0), 0);
    EXPECT_EQ(end_of_list(node), 0);
    ASSERT_EQ(file_seek(s, bound, 0), 0);
    EXPECT_EQ(end_of_list(node), 1);
    ASSERT_EQ(file_seek(s, node->next_pos, 0), 0);
    EXPECT_EQ(end_of_list(node), 1);

    EXPECT_EQ(skip_list(node), 0);
    EXPECT_EQ(file_tell(s), 42);
    uint32_t id = 0;
    EXPECT_EQ(read_fourCC(&id, s), 0);
    EXPECT_EQ(text(id), "next");
    EXPECT_EQ(node->status, 0u);
    delete_list_recursive(node);
}

// Small lists walked from their header: which chunks the walk visits and
// where skipping the list lands (the size as written, not rounded).
TEST(ListNav, ShortListsWalkAndSkip) {
    struct { const char *name; byte_image image; int64_t from; std::vector<std::string> seen; int64_t skip_to; } const cases[] = {
        {"trailing header-only chunk lies beyond the bound",
         byte_image().list("LIST", "tail", byte_image().chunk("abcd", byte_image()).chunk("last", byte_image())), 0,
         {"1 abcd 0 "}, 28},
        {"empty list ends at once", byte_image().fill(3).list("LIST", "none", byte_image()).id("more"), 3, {}, 15},
        {"odd list size", byte_image().id("LIST").u32(5).id("odd ").u8(1).id("next"), 0, {}, 13},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        temp_stream s(c.image);
        ASSERT_EQ(file_seek(s, c.from, 0), 0);
        list_node *node = new_list(nullptr, s);
        ASSERT_NE(node, nullptr);
        walker w{s, 10};
        w.walk(node);
        EXPECT_EQ(w.lines(), c.seen);
        EXPECT_EQ(skip_list(node), 0);
        EXPECT_EQ(file_tell(s), c.skip_to);
        delete_list_recursive(node);
    }
}

TEST(ListNav, NewListNeedsAWholeHeader) {
    const byte_image header = byte_image().id("LIST").u32(4).id("abcd");
    for (size_t left = 0; left <= 12; ++left) {
        temp_stream s(header.prefix(left));
        list_node *node = new_list(nullptr, s);
        // A read fails only when it gets no byte at all, so a cut inside the
        // list type still gives a node.
        if (left <= 8) {
            EXPECT_EQ(node, nullptr) << left << " bytes";
        } else {
            ASSERT_NE(node, nullptr) << left << " bytes";
            EXPECT_EQ(node->status, 0u);
            delete_list_recursive(node);
        }
    }
    EXPECT_EQ(new_list(nullptr, nullptr), nullptr);
}

TEST(ListNav, StacksAndFreesNodes) {
    const byte_image img =
        byte_image().list("RIFF", "AVI ", byte_image().list("LIST", "hdrl", byte_image().list("LIST", "strl", byte_image())));
    temp_stream s(img);
    list_node *a = new_list(nullptr, s);
    list_node *b = new_list(a, s);
    list_node *c = new_list(b, s);
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(c->depth, 3u);
    EXPECT_EQ(c->parent, b);
    EXPECT_EQ(b->parent, a);
    EXPECT_EQ(text(c->type), "strl");
    EXPECT_EQ(end_of_list(c), 1);
    EXPECT_EQ(end_of_list(b), 1);
    EXPECT_EQ(end_of_list(a), 1);
    // The sanitizer build reports any of the three left behind.
    delete_list_recursive(c);
    delete_list_recursive(nullptr);

    list_node *d = new_list(nullptr, s);  // at the end of the file
    EXPECT_EQ(d, nullptr);
    EXPECT_EQ(ascend_list(nullptr), nullptr);
    EXPECT_EQ(end_of_list(nullptr), 1);
    EXPECT_EQ(skip_list(nullptr), 1);
    EXPECT_EQ(next_chunk_in_list(nullptr), 0u);
}

TEST(ListNav, FailuresAccumulateInTheNode) {
    // The list claims more than the file holds: the step past the end fails and
    // the failure sticks.
    temp_stream s(byte_image().id("LIST").u32(100).id("cut ").chunk("abcd", byte_image().u16(1)));
    list_node *node = new_list(nullptr, s);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(text(next_chunk_in_list(node)), "abcd");
    EXPECT_EQ(node->status, 0u);
    EXPECT_EQ(next_chunk_in_list(node), 0u);
    EXPECT_EQ(node->status, 1u);
    EXPECT_EQ(node->next_pos, 22 + 8) << "an unread size counts as 0";
    // A later good step does not clear it.
    node->next_pos = 12;
    EXPECT_EQ(text(next_chunk_in_list(node)), "abcd");
    EXPECT_EQ(node->status, 1u);
    delete_list_recursive(node);
}

TEST(ListNav, EndOfListWithoutAPosition) {
    // On a pipe there is no position: the test says "end" so loops finish.
    kelqtest::pipe_stream p(byte_image().list("LIST", "pipe", byte_image().chunk("abcd", byte_image())));
    ASSERT_NE(p.get(), nullptr);
    list_node *node = new_list(nullptr, p);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(end_of_list(node), 1);
    delete_list_recursive(node);
}

TEST(ListNav, LookAheadKeepsThePosition) {
    temp_stream s(byte_image().fill(5, 0xAA).list("LIST", "movi", byte_image().chunk("00dc", byte_image().u32(1))));
    ASSERT_EQ(file_seek(s, 5, 0), 0);
    uint32_t id = 0, size = 0, type = 0, status = 0;
    EXPECT_EQ(chunk_look_ahead(s, &id, &size, &type, &status), 0);
    EXPECT_EQ(file_tell(s), 5);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(text(id), "LIST");
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(text(type), "movi");
    // A plain chunk: the third value is its first data word. Null destinations discard.
    ASSERT_EQ(file_seek(s, 17, 0), 0);
    EXPECT_EQ(chunk_look_ahead(s, &id, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(file_tell(s), 17);
    EXPECT_EQ(text(id), "00dc");
    // A failure earlier in the run stays in the caller's word.
    status = 1;
    EXPECT_EQ(chunk_look_ahead(s, &id, &size, &type, &status), 0);
    EXPECT_EQ(status, 1u);
    EXPECT_EQ(type, 1u);
}

TEST(ListNav, LookAheadNearTheEnd) {
    // 6 bytes left: id and half a size read; the type read fails. The seek back
    // goes 12 bytes from where reading stopped, not to the starting point.
    temp_stream s(byte_image().fill(14, 0x11).id("JUNK").u16(3));
    ASSERT_EQ(file_seek(s, 14, 0), 0);
    uint32_t id = 0, size = 0, type = 0xEEEEEEEEu, status = 0;
    EXPECT_EQ(chunk_look_ahead(s, &id, &size, &type, &status), 0);
    EXPECT_EQ(status, 1u);
    EXPECT_EQ(text(id), "JUNK");
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(type, 0xEEEEEEEEu);
    EXPECT_EQ(file_tell(s), 20 - 12);

    // Too close to the start to go back 12 bytes: the seek fails and the stream
    // stays at the end.
    temp_stream t(byte_image().fill(4).id("ab  ").u16(1));
    ASSERT_EQ(file_seek(t, 4, 0), 0);
    status = 0;
    EXPECT_EQ(chunk_look_ahead(t, &id, &size, &type, &status), 1);
    EXPECT_EQ(status, 1u);
    EXPECT_EQ(file_tell(t), 10);
}

TEST(ListNav, TruncatedFilesNeverHangTheWalk) {
    const byte_image img = small_riff();
    temp_stream whole(img);
    list_node *root = new_list(nullptr, whole);
    ASSERT_NE(root, nullptr);
    walker full{whole, 100};
    full.walk(root);
    delete_list_recursive(root);
    ASSERT_FALSE(full.gave_up);

    for (size_t cut = 0; cut <= img.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        temp_stream s(img.prefix(cut));
        list_node *node = new_list(nullptr, s);
        if (cut <= 8) {
            EXPECT_EQ(node, nullptr);
        }
        if (node == nullptr) continue;
        walker w{s, 200};
        w.walk(node);
        EXPECT_FALSE(w.gave_up);
        EXPECT_LE(w.steps, 200);
        // Whatever header lies whole inside the cut reads as in the full file.
        for (const visit &v : w.seen) {
            if (v.pos + 8 > static_cast<int64_t>(cut)) continue;
            bool found = false;
            for (const visit &f : full.seen) found |= f.pos == v.pos && f.id == v.id && f.size == v.size;
            EXPECT_TRUE(found) << v.id << " at " << v.pos;
        }
        if (cut == img.size()) {
            EXPECT_EQ(w.seen.size(), full.seen.size());
        }
        delete_list_recursive(node);
    }
}
