// Walking RIFF lists with the stack of list nodes.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "kelqavi.h"
#include "support/byte_image.h"
#include "unit/riff/riff_walk.h"

using namespace kelqtest;

namespace {

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

// Lists walked from their header: which chunks the walk visits (the odd
// avih followed by its pad byte), where the end is reported (from start +
// size on, while 8 bytes of the list remain) and where skipping the list
// lands (the size as written, not rounded).
TEST(ListNav, WalksListsAndSkipsThem) {
    const byte_image riff = small_riff();
    const struct { const char *name; byte_image image; int64_t from; std::vector<std::string> seen; int64_t skip_to; } cases[] = {
        {"nested file", riff, 0,
         {"1 LIST hdrl", "2 avih 5 abcde", "2 LIST strl", "3 strh 3 xyz", "2 LIST none", "1 JUNK 2 --", "1 LIST movi",
          "2 00dc 1 q", "2 01wb 4 wxyz"},
         static_cast<int64_t>(riff.size())},
        {"odd-sized chunk, six bytes before the list",
         byte_image().fill(6, 0xCC).list("LIST", "test", byte_image().chunk("abcd", byte_image().text("12345")).chunk("efgh", byte_image().text("xy"))).id("next"),
         6, {"1 abcd 5 12345", "1 efgh 2 xy"}, 42},
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
        EXPECT_EQ(std::make_tuple(node->start, node->next_pos, node->depth), std::make_tuple(c.from, c.from + 12, 1u));
        walker w{s, 20};
        w.walk(node);
        EXPECT_FALSE(w.gave_up);
        EXPECT_EQ(w.seen, c.seen);
        EXPECT_EQ(node->status, 0u);
        const int64_t bound = node->start + static_cast<int64_t>(node->size);
        const auto end_at = [&](int64_t at) { return file_seek(s, at, 0) == 0 ? end_of_list(node) : -1; };
        EXPECT_EQ(std::make_pair(end_at(bound - 1), end_at(bound)), std::make_pair(0, 1));
        EXPECT_EQ(skip_list(node), 0);
        EXPECT_EQ(file_tell(s), c.skip_to);
        delete_list_recursive(node);
    }
}

TEST(ListNav, NullArgumentsAndStackedNodes) {
    EXPECT_TRUE(new_list(nullptr, nullptr) == nullptr && ascend_list(nullptr) == nullptr);
    EXPECT_EQ(end_of_list(nullptr) + skip_list(nullptr) + static_cast<int>(next_chunk_in_list(nullptr)), 2);
    delete_list_recursive(nullptr);
    // Three nodes stacked by hand are freed together; the sanitizer build
    // reports any left behind.
    temp_stream s(byte_image().list("RIFF", "AVI ", byte_image().list("LIST", "hdrl", byte_image().list("LIST", "strl", byte_image()))));
    list_node *a = new_list(nullptr, s), *b = new_list(a, s), *c = new_list(b, s);
    ASSERT_TRUE(a && b && c);
    delete_list_recursive(c);
}

TEST(ListNav, FailuresAccumulateInTheNode) {
    // The list claims more than the file holds: the step past the end fails and
    // the failure sticks.
    temp_stream s(byte_image().id("LIST").u32(100).id("cut ").chunk("abcd", byte_image().u16(1)));
    list_node *node = new_list(nullptr, s);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(fourcc_text(next_chunk_in_list(node)), "abcd");
    EXPECT_EQ(node->status, 0u);
    EXPECT_EQ(next_chunk_in_list(node), 0u);
    EXPECT_EQ(node->status, 1u);
    // A later good step does not clear it.
    node->next_pos = 12;
    EXPECT_EQ(fourcc_text(next_chunk_in_list(node)), "abcd");
    EXPECT_EQ(node->status, 1u);
    delete_list_recursive(node);

    // On a pipe there is no position: the end test says "end" so loops finish.
    pipe_stream p(byte_image().list("LIST", "pipe", byte_image().chunk("abcd", byte_image())));
    ASSERT_NE(p.get(), nullptr);
    node = new_list(nullptr, p);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(end_of_list(node), 1);
    delete_list_recursive(node);
}

// Looking at a header without moving: the stream goes back 12 bytes from
// where reading stopped (not to the starting point), and a failure earlier
// in the run stays in the caller's status word.
TEST(ListNav, LookAheadKeepsThePosition) {
    const byte_image movi = byte_image().fill(5, 0xAA).list("LIST", "movi", byte_image().chunk("00dc", byte_image().u32(1)));
    constexpr uint32_t kept = 0xEEEEEEEEu;
    const struct { const char *name; byte_image image; int64_t at; int result; uint32_t status_before, status; const char *id; uint32_t size, type; int64_t tell; } rows[] = {
        {"a list", movi, 5, 0, 0, 0, "LIST", 16, make_fourCC("movi"), 5},
        {"a plain chunk: its first data word", movi, 17, 0, 1, 1, "00dc", 4, 1, 17},
        {"6 bytes left: the type read fails", byte_image().fill(14, 0x11).id("JUNK").u16(3), 14, 0, 0, 1, "JUNK", 3, kept, 8},
        {"too close to the start to go back", byte_image().fill(4).id("ab  ").u16(1), 4, 1, 0, 1, "ab  ", 1, kept, 10},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        temp_stream s(r.image);
        ASSERT_EQ(file_seek(s, r.at, 0), 0);
        EXPECT_EQ(chunk_look_ahead(s, nullptr, nullptr, nullptr, nullptr), r.result) << "null destinations discard";
        ASSERT_EQ(file_seek(s, r.at, 0), 0);
        uint32_t id = 0, size = 0, type = kept, status = r.status_before;
        EXPECT_EQ(chunk_look_ahead(s, &id, &size, &type, &status), r.result);
        EXPECT_EQ(std::make_tuple(status, fourcc_text(id), size, type, file_tell(s)),
                  std::make_tuple(r.status, std::string(r.id), r.size, r.type, r.tell));
    }
}

// Every prefix of a small file: a cut inside the list header gives no node
// and every other walk ends.
TEST(ListNav, TruncatedFilesNeverHangTheWalk) {
    const byte_image img = small_riff();
    for (size_t cut = 0; cut <= img.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        temp_stream s(img.prefix(cut));
        list_node *node = new_list(nullptr, s);
        // A read fails only when it gets no byte at all, so a cut inside the
        // list type still gives a node.
        EXPECT_EQ(node == nullptr, cut <= 8);
        if (node == nullptr) continue;
        walker w{s, 200};
        w.walk(node);
        EXPECT_FALSE(w.gave_up);
        delete_list_recursive(node);
    }
}
