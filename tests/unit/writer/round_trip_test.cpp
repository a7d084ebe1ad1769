// Files written by the writer and checked in their bytes, some read back by
// the reader: names, strd blocks, type-first ids, extension blocks, menu
// files and appending to an existing file.
#include <gtest/gtest.h>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

// The name block of a record the reader filled, freed once taken.
template <typename Record>
std::string take_name(Record &r) {
    if (r.name == nullptr || r.name_length <= 0) return std::string();
    const std::string name(r.name, static_cast<size_t>(r.name_length));
    std::free(r.name);
    return name;
}

// Gives a stream of a kind (v, a or t) with the name, or none for null.
int set_named(char kind, const char *name, aviout_handle *w) {
    int32_t s = -1;
    const video_stream_format v = video_record("MJPG", name);
    const audio_stream_format a = audio_record(8000, name);
    const caption_stream_format t = caption_record(name);
    if (kind == 'v') return aviout_set_video_format(w, &s, &v, nullptr);
    return kind == 'a' ? aviout_set_audio_format(w, &s, &a, nullptr) : aviout_set_text_caption_format(w, &s, &t);
}

}  // namespace

// Names of odd and even length, an empty name, and the quirk: a stream given
// without a name clears the name at the last video stream's position of its
// own kind's table; with no video stream it clears nothing.
TEST(WriterRoundTrip, NamesAndTheNameClearingQuirk) {
    struct stream {
        char kind;
        const char *name;
        std::string strn;   // the strn payload as written
    };
    const std::vector<std::vector<stream>> files = {
        // Audio slot 0 (video_count - 1 = 0) loses "first"; slot 1 keeps it.
        {{'v', "even", "even"}, {'a', "first", ""}, {'a', "first", std::string("first\0", 6)}, {'a', nullptr, ""}},
        {{'t', "Subtitle a", "Subtitle a"}, {'t', nullptr, ""}},
    };
    for (const std::vector<stream> &file : files) {
        SCOPED_TRACE(file[0].kind);
        scratch_path path;
        aviout_handle *w = aviout_open(path, 0, 0);
        ASSERT_NE(w, nullptr);
        for (const stream &st : file) ASSERT_EQ(set_named(st.kind, st.name, w), 0);
        ASSERT_EQ(put(w, 0, 1, payload(8, 1)), 0);
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        aviin_handle *h = aviin_open(path, 0);
        ASSERT_NE(h, nullptr);
        for (size_t i = 0; i < file.size(); ++i) {
            const size_t strn = strl_chunk(b, static_cast<int>(i), "strn");
            ASSERT_NE(strn, SIZE_MAX) << i;
            const std::vector<uint8_t> name = span(b, strn - 4, file[i].strn.size() + 4);
            EXPECT_EQ(std::string(name.begin(), name.end()), std::string(1, char(file[i].strn.size())) + std::string(3, '\0') + file[i].strn) << i;
            if (file[i].kind != 'a') continue;
            audio_stream_format ao{};
            ASSERT_EQ(aviin_get_audio_format(h, static_cast<uint32_t>(i), &ao), 0);
            EXPECT_EQ(take_name(ao), file[i].strn) << "the reader agrees on stream " << i;
        }
        aviin_close(h);
    }
}

// The strd block goes to the first video record; clearing addresses the last.
TEST(WriterRoundTrip, StrdSetOnFirstVideoClearedOnLast) {
    const std::vector<uint8_t> block = {1, 2, 3, 4, 5, 6};
    for (int videos = 1; videos <= 2; ++videos) {
        SCOPED_TRACE(videos);
        scratch_path path;
        aviout_handle *w = aviout_open(path, 0, 0);
        ASSERT_NE(w, nullptr);
        for (int i = 0; i < videos; ++i) ASSERT_EQ(set_named('v', i == 0 ? "v0" : "v1", w), 0);
        EXPECT_EQ(aviout_set_strd_info(w, block.data(), 6), 0);
        EXPECT_EQ(aviout_clear_strd_info(w), 0) << "with two streams the second has none: nothing to clear";
        ASSERT_EQ(put(w, 0, 1, payload(4, 0)), 0);
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        EXPECT_EQ(strl_chunk(b, videos - 1, "strd"), SIZE_MAX);
        if (videos == 1) continue;
        // Header word, size and the data; no pad byte before the name.
        const size_t strd = strl_chunk(b, 0, "strd");
        ASSERT_NE(strd, SIZE_MAX);
        expect_words(b, strd - 4, {{0, 14}, {4, 2}, {8, 6}});
        EXPECT_EQ(span(b, strd + 8, 6), block);
        EXPECT_EQ(text4(b, strd + 14), "strn");
    }
}

// Type-first chunk ids: "dc00", "wb01", and the legacy index as "1idx"; with
// OpenDML the super index's dwChunkId cut at its terminator and swapped, the
// ix## ids as without, and the four puts that flushed a standard index (N =
// 4 in count mode) without their idx1 records.
TEST(WriterRoundTrip, SwappedIds) {
    for (uint32_t odml = 0; odml < 2; ++odml) {
        SCOPED_TRACE(odml);
        scratch_path path;
        aviout_handle *w = aviout_open(path, odml, 0);
        ASSERT_NE(w, nullptr);
        w->swapped_ids = 1;
        w->index_chunk_seconds = 0.16;
        w->odml_timing_mode = 1;
        ASSERT_EQ(add_stream(w, 'v') + add_stream(w, 'a'), 0);
        const uint32_t chunks = odml != 0 ? 20 : 6;
        std::vector<std::vector<uint8_t>> sent;
        for (uint32_t i = 0; i < chunks; ++i) {
            sent.push_back(payload(20 + i, i));
            ASSERT_EQ(put(w, static_cast<int32_t>(i % 2), i % 2 == 0 ? 1 : 0, sent.back()), 0);
        }
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        EXPECT_EQ(std::vector<size_t>({movi_chunks(b, 0, "dc00").size(), movi_chunks(b, 0, "wb01").size()}), std::vector<size_t>(2, chunks / 2));
        const chunk_at idx = find_child(b, 0, "1idx");
        ASSERT_NE(idx.pos, SIZE_MAX);
        EXPECT_EQ(idx.size, (odml != 0 ? 16u : 6u) * 16);
        EXPECT_EQ(text4(b, idx.data()) + text4(b, idx.data() + 16), "dc00wb01");
        if (odml != 0) {
            EXPECT_EQ(text4(b, strl_chunk(b, 0, "indx") + 8), std::string("\0\0" "0\0", 4));
            EXPECT_EQ(text4(b, static_cast<size_t>(super_entries(b, 0).at(0).offset)), std::string("ix0\0", 4));
        }
        EXPECT_EQ(read_back(path, 1), sent);
    }
}

namespace {

// A menu file's copy at a position: its bytes 20..27 replaced by the
// position when it is long enough to hold them.
std::vector<uint8_t> copied_at(std::vector<uint8_t> menu, size_t at) {
    for (size_t i = 0; i < 8 && menu.size() >= 28; ++i) menu[20 + i] = static_cast<uint8_t>(static_cast<uint64_t>(at) >> (8 * i));
    return menu;
}

// A prepared menu file: an "MRIF" chunk of total bytes, filled with a pattern.
std::vector<uint8_t> menu_file(uint32_t total) {
    std::vector<uint8_t> m = payload(total, total);
    if (total >= 8) std::copy_n(byte_image().id("MRIF").u32(total - 8).bytes().begin(), 8, m.begin());
    return m;
}

// A block as the writer stores it: rounded up to even with a zero byte.
byte_image even_text(const char *s) { return byte_image().text(s).fill(std::strlen(s) % 2); }

}  // namespace

// After the JUNK chunk: MTDA and MENU, bare or in a LIST "KQDT", at even size
// with a zero pad byte (an empty list or block still gives its chunk), then
// a head menu file copied whole, its bytes 20..27 replaced by the copy's
// position (a file of 27 bytes cannot hold them), then movi; a tail menu
// file ends movi, before idx1. Files that cannot be opened add nothing.
TEST(WriterExtensions, BlocksAndMenuFiles) {
    const struct row {
        uint32_t list;
        const char *meta, *menu;
        uint32_t head, tail;
        bool missing;
    } rows[] = {
        {0, "meta!", "MNU1", 0, 0, false}, {1, "meta!", "MNU1", 0, 0, false}, {1, nullptr, nullptr, 0, 0, false},
        {0, "", nullptr, 0, 0, false},      {1, "\1\2\3\4", nullptr, 2500, 1200, false},
        {0, nullptr, nullptr, 27, 0, false}, {0, nullptr, nullptr, 28, 0, false}, {0, nullptr, nullptr, 0, 0, true},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(testing::Message() << r.list << (r.meta != nullptr ? r.meta : "-") << r.head << r.missing);
        scratch_path path, head, tail;
        const std::vector<uint8_t> hm = menu_file(r.head), tm = menu_file(r.tail);
        if (r.head > 0) put_file(head, hm);
        if (r.tail > 0) put_file(tail, tm);
        aviout_handle *w = open_writer(path);
        ASSERT_NE(w, nullptr);
        w->extension_list = r.list;
        w->menu_file_head = r.missing ? "/nonexistent/kelqavi/head" : r.head > 0 ? head.c_str() : nullptr;
        w->menu_file_tail = r.missing ? "/nonexistent/kelqavi/tail" : r.tail > 0 ? tail.c_str() : nullptr;
        // Each block given is set, and expected as a chunk of its even size.
        byte_image blocks;
        for (const auto &[id, text] : {std::make_pair("MTDA", r.meta), std::make_pair("MENU", r.menu)}) {
            if (text == nullptr) continue;
            const auto set = std::string(id) == "MTDA" ? aviout_set_metadata_info : aviout_set_menu_info;
            EXPECT_EQ(set(w, reinterpret_cast<const uint8_t *>(text), int32_t(std::strlen(text))), 0);
            blocks.chunk(id, even_text(text));
        }
        put(w, 0, 1, payload(6, 9));
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        std::vector<uint8_t> want = (r.list == 1 ? byte_image().list("LIST", "KQDT", blocks) : blocks).bytes();
        const chunk_at junk = find_child(b, 0, "JUNK");
        ASSERT_NE(junk.pos, SIZE_MAX);
        const size_t at = junk.data() + junk.size, movi = at + want.size() + hm.size();
        EXPECT_EQ(at % 2048, 0u);
        const std::vector<uint8_t> head_copy = copied_at(hm, at + want.size());
        want.insert(want.end(), head_copy.begin(), head_copy.end());
        ASSERT_EQ(span(b, at, want.size()), want);
        EXPECT_EQ(text4(b, movi) + text4(b, movi + 8), "LISTmovi");
        const std::vector<chunk_at> in_movi = children(b, movi);
        ASSERT_EQ(in_movi.size(), r.tail > 0 ? 2u : 1u);
        EXPECT_EQ(in_movi[0].id, "00dc");
        const size_t end = movi + 8 + le32(b, movi + 4);
        EXPECT_EQ(span(b, end - tm.size(), tm.size()), copied_at(tm, end - tm.size()));
        EXPECT_EQ(text4(b, end), "idx1");
        EXPECT_EQ(r.head > 0 ? file_bytes(head) : hm, hm) << "the source files are untouched";
    }
}

// append=1: the new AVI follows the old bytes, which stay as they were, after
// bytes of even or odd length. The header area is aligned by absolute
// position: after odd bytes the JUNK chunk has an odd size and no pad byte,
// so a walk that rounds sizes up would miss movi.
TEST(WriterAppend, SecondAviAfterExistingBytes) {
    for (const uint32_t odml : {0u, 1u}) {
        SCOPED_TRACE(odml);
        scratch_path path;
        put_file(path, payload(3000 + odml, 5));
        const std::vector<uint8_t> old = file_bytes(path);
        const size_t start = old.size();
        aviout_handle *w = aviout_open(path, odml, 1);
        ASSERT_NE(w, nullptr);
        w->index_chunk_seconds = 2.0;
        ASSERT_EQ(add_stream(w, 'v'), 0);
        for (uint32_t i = 0; i < 5; ++i) ASSERT_EQ(put(w, 0, i == 0 ? 1 : 0, payload(30 + i, 40 + i)), 0);
        aviout_close(w);

        const std::vector<uint8_t> b = file_bytes(path);
        EXPECT_EQ(span(b, 0, start), old);
        EXPECT_EQ(text4(b, start) + text4(b, start + 8), "RIFFAVI ");
        const chunk_at junk = find_child(b, start, "JUNK");
        ASSERT_NE(junk.pos, SIZE_MAX);
        const size_t movi = junk.data() + junk.size;
        EXPECT_EQ(movi % 2048, 0u);
        EXPECT_EQ(junk.size % 2, start % 2);
        EXPECT_EQ(text4(b, movi) + text4(b, movi + 8), "LISTmovi");
        if (odml != 0) {
            // The super index's entry points at an absolute position inside this form.
            const std::vector<super_entry> supers = super_entries(b, 0, start);
            ASSERT_EQ(supers.size(), 1u);
            EXPECT_GT(supers[0].offset, movi);
            EXPECT_EQ(text4(b, static_cast<size_t>(supers[0].offset)), std::string("ix0\0", 4));
            continue;
        }
        EXPECT_EQ(start + 8 + le32(b, start + 4), b.size()) << "the second form ends at the end of its idx1";
        const chunk_at idx = find_child(b, start, "idx1");
        ASSERT_NE(idx.pos, SIZE_MAX);
        EXPECT_EQ(le32(b, idx.data() + 8), 4u) << "idx1 offsets count from the second movi";
        EXPECT_EQ(avih_value(b, 4, start), 5u);
    }
}
