// The "KQDT" and "KMNU" lists of the main RIFF as read_kqdt and read_kmnu
// take them: metadata payload only, a menu chunk whole, "MRIF" counted.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
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

std::string text(const uint8_t *data, int32_t size) {
    return data == nullptr ? "(null)" : std::string(reinterpret_cast<const char *>(data), static_cast<size_t>(size));
}

}  // namespace

TEST(ReadKqdt, TakesTheMetadataPayload) {
    const byte_image chunks = byte_image()
                                  .chunk("JUNK", byte_image().text("abc"))
                                  .chunk("MTDA", byte_image().text("hello"))
                                  .chunk("MENU", byte_image().text("menu"));
    hand_handle h(list_file("KQDT", chunks, byte_image().chunk("MTDA", byte_image().text("outside"))), list_at);
    ASSERT_NE(h->current_list, nullptr);
    EXPECT_EQ(kelq::read_kqdt(h), 1);
    EXPECT_EQ(h.tell(), list_at + 8 + static_cast<int64_t>(h->current_list->size)) << "just after the list";
    EXPECT_EQ(h->metadata_found, 1u);
    EXPECT_EQ(text(h->metadata_data, h->metadata_size), "hello");
    EXPECT_EQ(h->menu_found, 0u) << "a MENU chunk in the extension list is not the menu block";
    uint8_t *data = nullptr;
    int32_t size = -1;
    EXPECT_EQ(aviin_get_metadata_info(h, &data, &size), 0);
    EXPECT_EQ(text(data, size), "hello");
}

TEST(ReadKqdt, OnlyChunksInsideTheListCount) {
    // The list's last chunk is skipped; the MTDA right after the list is not its own.
    hand_handle h(list_file("KQDT", byte_image().chunk("JUNK", byte_image().u32(7)),
                            byte_image().chunk("MTDA", byte_image().text("outside"))),
                  list_at);
    EXPECT_EQ(kelq::read_kqdt(h), 1);
    EXPECT_EQ(h->metadata_found, 0u);
    EXPECT_EQ(h->metadata_data, nullptr);
}

TEST(ReadKqdt, LaterMetadataReplacesEarlierAndOldBlocksAreFreed) {
    const byte_image chunks =
        byte_image().chunk("MTDA", byte_image().text("first")).chunk("mtda", byte_image().text("second"));
    hand_handle h(list_file("KQDT", chunks), list_at);
    kelq::read_kqdt(h);
    EXPECT_EQ(text(h->metadata_data, h->metadata_size), "second") << "ids compare without case";
    // Reading a list without metadata clears what an earlier read left.
    hand_handle empty(list_file("KQDT", byte_image().chunk("JUNK", byte_image())), list_at);
    empty->metadata_data = static_cast<uint8_t *>(std::malloc(4));
    empty->metadata_found = 1;
    empty->metadata_size = 4;
    EXPECT_EQ(kelq::read_kqdt(empty), 1);
    EXPECT_EQ(empty->metadata_found, 0u);
    EXPECT_EQ(empty->metadata_size, 0);
    EXPECT_EQ(empty->metadata_data, nullptr);
}

TEST(ReadKmnu, TakesTheMenuChunkWholeAndCountsSegments) {
    const byte_image menu = byte_image().chunk("MENU", byte_image().text("0123456789"));
    const byte_image chunks = byte_image()
                                  .chunk("MRIF", byte_image().u32(1))
                                  .append(menu)
                                  .chunk("MRIF", byte_image())
                                  .chunk("JUNK", byte_image().u16(0));
    hand_handle h(list_file("KMNU", chunks), list_at);
    h->riff_count = 3;
    EXPECT_EQ(kelq::read_kmnu(h), 1);
    EXPECT_EQ(h->riff_count, 5);
    EXPECT_EQ(h->menu_found, 1u);
    EXPECT_EQ(h->menu_size, 10);
    EXPECT_EQ(text(h->menu_data, h->menu_size + 8), text(menu.bytes().data(), 18)) << "id and size included";
    EXPECT_EQ(h->metadata_found, 0u);
}

TEST(ExtensionLists, BlocksLargerThanTheFileAreRefused) {
    // The size field is patched to claim more than the file holds after it:
    // nothing is allocated and the block counts as absent. A size that just
    // fits is taken.
    for (const char *type : {"KQDT", "KMNU"}) {
        const bool menu = std::strcmp(type, "KMNU") == 0;
        const byte_image good = list_file(type, byte_image().chunk(menu ? "MENU" : "MTDA", byte_image().text("payload!")));
        const size_t size_at = static_cast<size_t>(list_at) + 12 + 4;
        const uint32_t fits = static_cast<uint32_t>(good.size() - size_at - 4);
        for (uint32_t size : {fits, fits + 1, 0x7FFFFFF0u, 0x7FFFFFF8u, 0x80000000u, 0xFFFFFFFFu}) {
            SCOPED_TRACE(std::string(type) + " size " + std::to_string(size));
            byte_image bad = good;
            bad.set_u32(size_at, size);
            hand_handle h(bad, list_at);
            const auto t0 = std::chrono::steady_clock::now();
            EXPECT_EQ(menu ? kelq::read_kmnu(h) : kelq::read_kqdt(h), 1);
            EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1));
            EXPECT_EQ(h.tell(), static_cast<int64_t>(good.size())) << "just after the list, not where the size points";
            const bool taken = (menu ? h->menu_found : h->metadata_found) == 1;
            EXPECT_EQ(taken, size == fits);
            EXPECT_EQ((menu ? h->menu_data : h->metadata_data) != nullptr, size == fits);
        }
    }
}

TEST(ExtensionLists, NoListToWalk) {
    hand_handle h(byte_image().chunk("JUNK", byte_image()));
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
    const byte_image menu = byte_image().chunk("MENU", byte_image().text("menu-data!"));
    const byte_image kmnu = byte_image().list("LIST", "KMNU", byte_image().chunk("MRIF", byte_image()).append(menu));
    const byte_image whole = byte_image().append(kqdt).append(kmnu);
    const size_t kmnu_at = kqdt.size();
    for (size_t n = 0; n <= whole.size(); ++n) {
        SCOPED_TRACE(n);
        hand_handle a(whole.head(n), 0), b(whole.head(n), static_cast<int64_t>(kmnu_at));
        kelq::read_kqdt(a);
        EXPECT_EQ(a->metadata_found == 1, n >= kqdt.size());
        if (a->metadata_found == 1) {
            EXPECT_EQ(text(a->metadata_data, a->metadata_size), "metadata");
        }
        kelq::read_kmnu(b);
        EXPECT_EQ(b->menu_found == 1, n == whole.size());
        // The MRIF counts once its id and a first byte of its size are there.
        EXPECT_EQ(b->riff_count, n > kmnu_at + 16 ? 1 : 0);
        if (b->menu_found == 1) {
            EXPECT_EQ(text(b->menu_data, b->menu_size + 8), text(menu.bytes().data(), menu.size()));
        }
    }
}
