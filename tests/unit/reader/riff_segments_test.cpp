// RIFF segments: their positions in file order (main form, continuation
// forms, menu forms and the "MRIF" chunks of the first two forms), moving the
// reader into one, and damaged files walked with every reader call.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "unit/reader/walk_images.h"

using namespace kelqtest;

namespace {

std::string text_of(const std::vector<uint8_t> &bytes) { return std::string(bytes.begin(), bytes.end()); }

// Data of the next chunk through the whole-chunk walk, or "#result".
std::string next_data(aviin_handle *h) {
    uint32_t type = 0, stream = 0;
    std::vector<uint8_t> buffer(64);
    int32_t size = static_cast<int32_t>(buffer.size());
    const int result = aviin_get_next_chunk(h, &type, &stream, buffer.data(), &size);
    if (result != 0) return "#" + std::to_string(result);
    return text_of(std::vector<uint8_t>(buffer.begin(), buffer.begin() + size));
}

// The stream tables as the getters show them, one line per stream.
std::string tables(aviin_handle *h) {
    std::ostringstream out;
    int32_t streams = -1, strd = -1;
    aviin_get_summary(h, &streams, &strd);
    out << "streams " << streams << " strd " << strd << "\n";
    for (int32_t s = 0; s < streams; ++s) {
        uint32_t kind = 0, length = 0;
        aviin_get_chunk_type(h, static_cast<uint32_t>(s), &kind);
        out << s << " kind " << kind;
        if (kind == KELQAVI_CHUNK_VIDEO) {
            video_stream_format v{};
            EXPECT_EQ(aviin_get_video_format(h, s, &v, &length), 0);
            out << " " << v.width << "x" << v.height << " " << std::string(v.compression, 4) << " length "
                << length << " strd " << v.strd_size << ":" << text_of({v.strd_data, v.strd_data + v.strd_size});
            out << " name " << std::string(v.name, static_cast<size_t>(v.name_length));
            if (v.name_length > 0) std::free(v.name);
        } else if (kind == KELQAVI_CHUNK_AUDIO) {
            audio_stream_format a{};
            EXPECT_EQ(aviin_get_audio_format(h, s, &a), 0);
            out << " rate " << a.rate << " channels " << a.wave_format.channels;
            out << " name " << std::string(a.name, static_cast<size_t>(a.name_length));
            if (a.name_length > 0) std::free(a.name);
        }
        out << "\n";
    }
    return out.str();
}

byte_image video_strl_with_strd() {
    return strl(byte_image()
                    .append(strh_chunk("vids", "MJPG", 1, 25, 10))
                    .append(strf_video_chunk(64, 48, "MJPG"))
                    .append(strd_chunk(7, {'s', 't', 'r', 'd'}))
                    .append(strn_chunk("video one")));
}

byte_image frame_and_sound(const char *frame, const char *sound) {
    return byte_image().chunk("00dc", byte_image().text(frame)).chunk("01wb", byte_image().text(sound));
}

// Main form with two streams, two chunks and a legacy index; a continuation
// form with two chunks and a JUNK after its movi list.
struct two_segments {
    form_image main = make_form("AVI ", hdrl({video_strl_with_strd(), audio_strl("audio one")}),
                                frame_and_sound("frame0", "pcm0"), byte_image().chunk("idx1", byte_image().fill(32)));
    form_image avix = make_form("AVIX", byte_image(), frame_and_sound("frame1", "pcm1"),
                                byte_image().chunk("JUNK", byte_image().fill(4)));
    int64_t avix_at = static_cast<int64_t>(main.bytes.size());
    byte_image file = byte_image().append(main.bytes).append(avix.bytes);
};

int64_t offset_of(aviin_handle *h, int32_t n) {
    int64_t offset = -99;
    EXPECT_EQ(aviin_get_riff_offset(h, n, &offset), 0) << "segment " << n;
    return offset;
}

}  // namespace

TEST(RiffSegments, OffsetsOfTheMainAndContinuationFormsAndTheWalkGoesOn) {
    const two_segments t;
    reader r(t.file);
    ASSERT_TRUE(r);
    int32_t count = 0;
    EXPECT_EQ(aviin_get_riff_count(r.get(), &count), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(next_data(r.get()), "frame0");
    EXPECT_EQ(offset_of(r.get(), 1), t.avix_at);
    EXPECT_EQ(offset_of(r.get(), 0), 0);
    EXPECT_EQ(next_data(r.get()), "pcm0") << "the walk re-seeks after the segment walk";
    int64_t offset = 5;
    EXPECT_EQ(aviin_get_riff_offset(r.get(), 3, &offset), 1);
    EXPECT_EQ(offset, 5) << "n > riff_count fails without releasing";
    EXPECT_EQ(aviin_get_riff_offset(r.get(), 0, nullptr), 1);
    EXPECT_EQ(aviin_get_riff_count(r.get(), nullptr), 1);
    EXPECT_EQ(next_data(r.get()), "#3");
}

TEST(RiffSegments, AskingForASegmentTheFileDoesNotHoldReleasesTheHandle) {
    const two_segments t;
    for (int32_t n : {2, -1}) {
        SCOPED_TRACE(n);
        reader r(t.file);
        ASSERT_TRUE(r);
        int64_t offset = 5;
        EXPECT_EQ(aviin_get_riff_offset(r.get(), n, &offset), 1);
        EXPECT_EQ(offset, -1);
        r.released();  // a second release would be a double free, none a leak
    }
}

TEST(RiffSegments, NullHandles) {
    int32_t count = 0;
    int64_t offset = 0;
    EXPECT_EQ(aviin_get_riff_count(nullptr, &count), 1);
    EXPECT_EQ(aviin_get_riff_offset(nullptr, 0, &offset), 1);
    EXPECT_EQ(aviin_goto_riff(nullptr, 0, 0), 1);
}

// Main form: KMNU { MRIF, MENU, MRIF } first. Then a menu form with two MRIF
// chunks, a continuation form, and a second menu form whose MRIF is counted at
// open but not numbered by the segment walk.
TEST(RiffSegments, MenuSegmentsOfTheFirstTwoFormsOnly) {
    const auto menu_list = [](const byte_image &chunks) { return byte_image().list("LIST", "KMNU", chunks); };
    const byte_image main_menu = menu_list(byte_image()
                                               .chunk("MRIF", byte_image().fill(6))
                                               .chunk("MENU", byte_image().text("menu"))
                                               .chunk("MRIF", byte_image()));
    const form_image main = make_form("AVI ", byte_image().append(main_menu).append(two_stream_hdrl()),
                                      byte_image().chunk("00dc", byte_image().text("f")));
    const byte_image menu2 = avi_form(menu_list(byte_image()
                                                    .chunk("MRIF", byte_image().fill(2))
                                                    .chunk("JUNK", byte_image().fill(2))
                                                    .chunk("MRIF", byte_image().fill(4))),
                                      "AMNU");
    const byte_image avix = make_form("AVIX", byte_image(), byte_image().chunk("00dc", byte_image().text("g"))).bytes;
    const byte_image menu4 = avi_form(menu_list(byte_image().chunk("MRIF", byte_image().fill(2))), "AMNU");
    const byte_image file = byte_image().append(main.bytes).append(menu2).append(avix).append(menu4);
    const int64_t f2 = static_cast<int64_t>(main.bytes.size());
    const int64_t f3 = f2 + static_cast<int64_t>(menu2.size());
    const int64_t f4 = f3 + static_cast<int64_t>(avix.size());

    const int64_t expected[] = {0, 24, 24 + 14 + 12, f2, f2 + 24, f2 + 24 + 20, f3, f4};
    for (int32_t n = 0; n < 8; ++n) {
        reader r(file);
        ASSERT_TRUE(r);
        EXPECT_EQ(offset_of(r.get(), n), expected[n]) << "segment " << n;
    }
    // Open counts more (the later menu form's MRIF; the main form's twice, by
    // its scan and by the KMNU list reader), so these pass the range check.
    for (int32_t n : {8, 9}) {
        reader r(file);
        ASSERT_TRUE(r);
        ASSERT_GT(r->riff_count, n);
        int64_t offset = 0;
        EXPECT_EQ(aviin_get_riff_offset(r.get(), n, &offset), 1) << "segment " << n;
        EXPECT_EQ(offset, -1);
        r.released();
    }
}

TEST(RiffSegments, GotoContinuationFormAndBackRebuildsTheTables) {
    const two_segments t;
    reader r(t.file);
    ASSERT_TRUE(r);
    const std::string at_open = tables(r.get());
    ASSERT_NE(at_open.find("name video one"), std::string::npos) << at_open;
    const int64_t idx1_at_open = r->idx1_pos;
    EXPECT_NE(idx1_at_open, 0);
    std_index_header cursor{};
    ASSERT_EQ(aviin_set_odml_cursor(r.get(), 1, &cursor), 0);
    r->indx_pos[1] = 1234;
    r->indx_header[1].entries_in_use = 9;

    ASSERT_EQ(aviin_goto_riff(r.get(), 1, offset_of(r.get(), 1)), 0);
    EXPECT_EQ(r->swapped_ids, 1u);
    EXPECT_EQ(r->std_index_header_ptr[1], nullptr);
    EXPECT_EQ(r->indx_pos[1], 0);
    EXPECT_EQ(r->indx_header[1].entries_in_use, 0u);
    EXPECT_EQ(tables(r.get()), "streams 0 strd 0\n");
    video_stream_format v{};
    audio_stream_format a{};
    EXPECT_EQ(aviin_get_video_format(r.get(), 0, &v, nullptr), 1);
    EXPECT_EQ(aviin_get_audio_format(r.get(), 1, &a), 1);
    EXPECT_EQ(r->idx1_pos, 0);
    EXPECT_EQ(r->movi_data_pos, t.avix_at + t.avix.movi_data);
    EXPECT_EQ(r->current_list->depth, 2u);
    for (const char *expected : {"frame1", "pcm1", "#3"}) EXPECT_EQ(next_data(r.get()), expected);

    ASSERT_EQ(aviin_goto_riff(r.get(), 0, offset_of(r.get(), 0)), 0);
    EXPECT_EQ(tables(r.get()), at_open);
    EXPECT_EQ(r->idx1_pos, idx1_at_open);
    EXPECT_EQ(r->movi_data_pos, t.main.movi_data);
    for (const char *expected : {"frame0", "pcm0", "#3"}) EXPECT_EQ(next_data(r.get()), expected);
}

TEST(RiffSegments, GotoSegmentWithoutMovieDataSucceedsInTheSegment) {
    const two_segments t;
    const byte_image kqdt = byte_image().list("LIST", "KQDT", byte_image().chunk("MTDA", byte_image()));
    const byte_image no_movi = avi_form(byte_image().chunk("JUNK", byte_image().text("jjjj")).append(kqdt), "AVIX");
    reader r(byte_image().append(t.main.bytes).append(no_movi));
    ASSERT_TRUE(r);
    ASSERT_EQ(aviin_goto_riff(r.get(), 0, t.avix_at), 0);
    EXPECT_EQ(r->movi_data_pos, t.main.movi_data) << "kept from before";
    ASSERT_NE(r->current_list, nullptr);
    EXPECT_EQ(r->current_list->depth, 1u);
    EXPECT_EQ(r->current_list->start, t.avix_at);
    EXPECT_EQ(r->stream_count, 0);
    // The walk now steps the segment's own chunks.
    ASSERT_EQ(aviin_seek_by_offset(r.get(), static_cast<uint64_t>(t.avix_at + 12)), 0);
    EXPECT_EQ(next_data(r.get()), "jjjj");
}

TEST(RiffSegments, GotoFailuresKeepTheHandleUnlessNothingCanBeEntered) {
    const two_segments t;
    // Nothing to enter at the offset: 1 after releasing the handle, which the
    // checked call reports by clearing the caller's variable. Nine bytes are
    // enough to enter a list (every value read takes what is there): a
    // segment with nothing in it, entered with 0.
    const int64_t size = static_cast<int64_t>(t.file.size());
    const struct {
        int64_t offset;
        bool released;
    } moves[] = {{size + 100, true}, {size, true}, {size - 8, true}, {size - 9, false}};
    for (const auto &m : moves) {
        SCOPED_TRACE(m.offset);
        reader r(t.file);
        ASSERT_TRUE(r);
        aviin_handle *h = r.get();
        EXPECT_EQ(aviin_goto_riff_checked(&h, 0, m.offset), m.released ? 1 : 0);
        EXPECT_EQ(h == nullptr, m.released);
        if (m.released) r.released();
    }
    {
        reader r(t.file);
        ASSERT_TRUE(r);
        EXPECT_EQ(aviin_goto_riff(r.get(), 0, size), 1);
        r.released();
        EXPECT_EQ(aviin_goto_riff_checked(nullptr, 0, 0), 1);
    }
    {
        // A header list that does not open with avih: 1, position restored, the failure sticks.
        const byte_image bad_hdrl = byte_image().list("LIST", "hdrl", byte_image().chunk("JUNK", byte_image()));
        const form_image bad = make_form("AVIX", bad_hdrl, byte_image().chunk("00dc", byte_image().text("x")));
        reader r(byte_image().append(t.main.bytes).append(bad.bytes));
        ASSERT_TRUE(r);
        const int64_t before = file_tell(r->file);
        EXPECT_EQ(aviin_goto_riff(r.get(), 0, t.avix_at), 1);
        EXPECT_EQ(file_tell(r->file), before);
        EXPECT_EQ(next_data(r.get()), "#1");
        ASSERT_EQ(aviin_goto_riff(r.get(), 0, 0), 0);
        EXPECT_EQ(next_data(r.get()), "frame0");
    }
    {
        // A list header cut by the end of the file: 1, standing in no list, closed normally.
        byte_image file = byte_image().append(t.main.bytes);
        file.id("RIFF").u32(100).id("AVIX").chunk("JUNK", byte_image().fill(4)).id("LIST");
        reader r(file);
        ASSERT_TRUE(r);
        EXPECT_EQ(aviin_goto_riff(r.get(), 0, t.avix_at), 1);
        EXPECT_EQ(r->current_list, nullptr);
    }
    {
        // A negative offset cannot be sought: the first entry reads the 00dc
        // chunk where open left the stream, the second the end of the file.
        const form_image f = main_form(byte_image().chunk("00dc", byte_image().text("abcd")));
        reader r(f.bytes);
        ASSERT_TRUE(r);
        ASSERT_EQ(file_tell(r->file), f.movi_data);
        EXPECT_EQ(aviin_goto_riff(r.get(), 0, -1), 1);
        r.released();
    }
}

// A two-segment file cut at every length and with seeded corruptions: every
// call answers one of its documented results, with no sanitizer report. The
// number of calls on each file is bounded here, as the header walk may be
// sent backwards for ever by a size field.
TEST(RiffSegments, DamagedFilesThroughEveryCall) {
    const two_segments t;
    const byte_image group = byte_image().chunk("01wb", byte_image().text("ab")).chunk("00dc", byte_image().text("c"));
    const form_image main = make_form("AVI ", hdrl({video_strl_with_strd(), audio_strl("audio one")}),
                                      byte_image()
                                          .chunk("00dc", byte_image().text("frame"))
                                          .list("LIST", "rec ", group)
                                          .chunk("JUNK", byte_image().fill(3))
                                          .chunk("01wb", byte_image().text("odd")),
                                      byte_image().chunk("idx1", byte_image().fill(16)));
    const byte_image full = byte_image().append(main.bytes).append(t.avix.bytes);

    const auto in = [](int result, std::initializer_list<int> allowed) {
        for (int a : allowed)
            if (result == a) return true;
        return false;
    };
    int opened = 0, segments_entered = 0;
    const auto exercise = [&](const std::vector<uint8_t> &bytes, uint32_t swapped) {
        temp_file file(bytes);
        aviin_handle *h = aviin_open(file.path(), swapped);
        if (h == nullptr) return;
        ++opened;
        const auto walk = [&]() {
            for (int call = 0; call < 24; ++call) {
                const int32_t capacity = call % 3 == 0 ? 0 : (call % 3 == 1 ? 3 : 64);
                std::unique_ptr<uint8_t[]> buffer(new uint8_t[static_cast<size_t>(capacity)]);
                uint32_t type = 0, stream = 0;
                int32_t size = capacity;
                const int result = aviin_get_next_chunk(h, &type, &stream, buffer.get(), &size);
                ASSERT_TRUE(in(result, {0, 1, 3})) << result;
                ASSERT_LE(result == 0 ? size : 0, capacity);
            }
            ASSERT_TRUE(in(aviin_seek_by_offset(h, static_cast<uint64_t>(h->movi_data_pos)), {0, 1}));
            for (int call = 0; call < 24; ++call) {
                uint32_t type = 0, stream = 0, size = 0;
                uint64_t offset = 0;
                const int result = aviin_get_next_chunk_type(h, &type, &stream, &offset, &size);
                ASSERT_TRUE(in(result, {0, 1, 3})) << result;
                if (result != 0) break;
                uint8_t data[16];
                ASSERT_TRUE(in(aviin_get_chunk(h, offset, data, size < 16 ? size : 16), {0, 1}));
            }
        };
        walk();
        int32_t count = 0;
        ASSERT_EQ(aviin_get_riff_count(h, &count), 0);
        for (int32_t n = 0; n <= count && n < 6 && h != nullptr; ++n) {
            int64_t offset = 0;
            const int result = aviin_get_riff_offset(h, n, &offset);
            ASSERT_TRUE(in(result, {0, 1}));
            if (result == 1 && offset == -1) h = nullptr;  // released, as documented
            if (result != 0) continue;
            ASSERT_GE(offset, 0);
            const int moved = aviin_goto_riff_checked(&h, swapped, offset);
            ASSERT_TRUE(in(moved, {0, 1}));
            if (h == nullptr) break;
            segments_entered += moved == 0;
            walk();
        }
        aviin_close(h);
    };

    for (size_t n = 0; n <= full.size(); ++n) exercise(full.prefix(n), n % 2);
    uint32_t seed = 20261121;
    for (int round = 0; round < 400; ++round) {
        std::vector<uint8_t> bytes = full.bytes();
        for (int flips = 0; flips <= round % 5; ++flips) {
            seed = seed * 1664525u + 1013904223u;
            // Mostly small values, so sizes and ids near the real ones turn up.
            const uint32_t value = (seed >> 29) == 0 ? seed >> 8 : (seed >> 8) & 0x0F;
            bytes[(seed >> 12) % bytes.size()] = static_cast<uint8_t>(value);
        }
        exercise(bytes, round % 2);
    }
    EXPECT_GT(opened, 400);
    EXPECT_GT(segments_entered, 400);
}
