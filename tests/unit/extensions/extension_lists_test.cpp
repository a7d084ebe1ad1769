// The "KQDT" and "KMNU" lists of the main RIFF as read_kqdt and read_kmnu
// take them: metadata payload only, a menu chunk whole, "MRIF" counted.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "support/hand_handle.h"
#include "unit/extensions/menu_image.h"

using namespace kelqtest;

// Under AddressSanitizer an allocation of more than 256 MiB stops the run, so
// a size taken from a hostile file cannot be allocated unnoticed.
extern "C" __attribute__((used)) const char *__asan_default_options() {
    return "allocator_may_return_null=0:max_allocation_size_mb=256";
}

namespace {

constexpr int64_t list_at = 12;  // after a leading chunk

// A file whose list of the given type starts at list_at, followed by more bytes.
byte_image list_file(const char *type, const byte_image &chunks, const byte_image &after = byte_image()) {
    return byte_image().chunk("JUNK", byte_image().u32(0)).list("LIST", type, chunks).append(after);
}

const std::string none = "(none) size 0";

bool is_menu_list(const char *type) { return std::string(type) == "KMNU"; }

}  // namespace

// Each list read with its reader: only chunks inside the list count, later
// metadata replaces earlier, and the stream ends just after the list. (Which
// chunk of an extension list is the metadata, the tool's tests see on written
// files that carry a MENU there too.)
TEST(ExtensionLists, ReadersTakeTheirBlocks) {
    const byte_image outside = byte_image().chunk("MTDA", byte_image().text("outside"));
    const byte_image menu_chunk = byte_image().chunk("MENU", byte_image().text("0123456789"));
    const struct { const char *name, *type; byte_image chunks; std::string metadata, menu; int32_t segments; } rows[] = {
        {"ids without case, the later one kept", "KQDT",
         byte_image().chunk("MTDA", byte_image().text("first")).chunk("mtda", byte_image().text("second")), "second", none, 0},
        {"menu whole, MRIF counted", "KMNU",
         byte_image().chunk("MRIF", byte_image().u32(1)).append(menu_chunk).chunk("MRIF", byte_image())
             .chunk("JUNK", byte_image().u16(0)), none, whole(menu_chunk), 2},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        hand_handle h(list_file(r.type, r.chunks, outside), list_at);
        h->riff_count = 3;
        EXPECT_EQ(is_menu_list(r.type) ? kelq::read_kmnu(h) : kelq::read_kqdt(h), 1);
        EXPECT_EQ(h.tell(), list_at + 12 + static_cast<int64_t>(r.chunks.size())) << "just after the list";
        EXPECT_EQ(block(aviin_get_metadata_info, h, true), r.metadata);
        EXPECT_EQ(block(aviin_get_menu_info, h), r.menu);
        EXPECT_EQ(riff_count(h), 3 + r.segments);
    }
}

TEST(ExtensionLists, BlocksLargerThanTheFileAreRefused) {
    // The size field is patched to claim more than the file holds after it:
    // nothing is allocated and the block counts as absent. A size that just
    // fits is taken.
    for (const char *type : {"KQDT", "KMNU"}) {
        const bool is_menu = is_menu_list(type);
        const byte_image good = list_file(type, byte_image().chunk(is_menu ? "MENU" : "MTDA", byte_image().text("payload!")));
        const size_t size_at = static_cast<size_t>(list_at) + 12 + 4;
        const uint32_t fits = static_cast<uint32_t>(good.size() - size_at - 4);
        for (uint32_t size : {fits, fits + 1, 0x7FFFFFF0u, 0x7FFFFFF8u, 0x80000000u, 0xFFFFFFFFu}) {
            SCOPED_TRACE(std::string(type) + " size " + std::to_string(size));
            hand_handle h(byte_image(good).set_u32(size_at, size), list_at);
            const auto t0 = std::chrono::steady_clock::now();
            EXPECT_EQ(is_menu ? kelq::read_kmnu(h) : kelq::read_kqdt(h), 1);
            EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1));
            EXPECT_EQ(h.tell(), static_cast<int64_t>(good.size())) << "just after the list, not where the size points";
            EXPECT_EQ((is_menu ? block(aviin_get_menu_info, h) : block(aviin_get_metadata_info, h, true)) != none, size == fits);
        }
    }
}

TEST(ExtensionLists, NoListToWalk) {
    // What an earlier read left is freed (the sanitizer build sees a leak) and cleared.
    hand_handle h(byte_image().chunk("JUNK", byte_image()));
    h->metadata_data = static_cast<uint8_t *>(std::malloc(4));
    h->metadata_found = 1;
    EXPECT_EQ(kelq::read_kqdt(h), 1);
    EXPECT_EQ(h->metadata_found, 0u);
    EXPECT_EQ(kelq::read_kmnu(h), 1);
    EXPECT_EQ(kelq::read_kqdt(nullptr), 1);
    EXPECT_EQ(kelq::read_kmnu(nullptr), 1);
}

TEST(ExtensionLists, TruncationSweep) {
    // Every prefix of a file with both lists: a block is taken only when all
    // its bytes are there, and then it is the block written.
    const byte_image kqdt = byte_image().list("LIST", "KQDT", byte_image().chunk("MTDA", byte_image().text("metadata")));
    const byte_image menu_chunk = byte_image().chunk("MENU", byte_image().text("menu-data!"));
    const byte_image kmnu = byte_image().list("LIST", "KMNU", byte_image().chunk("MRIF", byte_image()).append(menu_chunk));
    const byte_image both = byte_image().append(kqdt).append(kmnu);
    const size_t kmnu_at = kqdt.size();
    for (size_t n = 0; n <= both.size(); ++n) {
        SCOPED_TRACE(n);
        hand_handle a(both.head(n), 0), b(both.head(n), static_cast<int64_t>(kmnu_at));
        kelq::read_kqdt(a);
        EXPECT_EQ(block(aviin_get_metadata_info, a, true), n >= kqdt.size() ? "metadata" : none);
        kelq::read_kmnu(b);
        EXPECT_EQ(block(aviin_get_menu_info, b), n == both.size() ? whole(menu_chunk) : none);
        // The MRIF counts once its id and a first byte of its size are there.
        EXPECT_EQ(riff_count(b), n > kmnu_at + 16 ? 1 : 0);
    }
}
