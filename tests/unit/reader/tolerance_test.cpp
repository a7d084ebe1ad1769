// Tolerant reading: each file form other writers make, opened with every
// tolerance but its own (the designed result, pinned) and with it. One table: the open,
// the format's extra bytes, the header walk, the key-frame table, the frame
// lookup from the first key frame to the last frame, and the needed bits.
#include <algorithm>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "unit/reader/reader_images.h"

using namespace kelqtest;

namespace {

constexpr uint32_t all = AVIIN_TOLERATE_ALL;
constexpr uint32_t long_format = AVIIN_TOLERATE_LONG_VIDEO_FORMAT;
constexpr uint32_t index_chunks = AVIIN_TOLERATE_INDEX_CHUNKS;
constexpr uint32_t file_idx1 = AVIIN_TOLERATE_FILE_IDX1;
constexpr uint32_t db_frames = AVIIN_TOLERATE_DB_FRAMES;
constexpr uint32_t unflagged = AVIIN_TOLERATE_UNFLAGGED_KEYS;
constexpr uint32_t empty_last = AVIIN_TOLERATE_EMPTY_LAST_CHUNK;

// A video strl whose strf carries `extra` bytes after the bitmap header,
// with the header's size field 40 (palettes) or 40 + extra (codec set-up
// data); a name follows, so an open that loses its place loses the name.
byte_image long_format_strl(uint32_t extra, bool size_field_counts_extra) {
    byte_image f;
    f.u32(size_field_counts_extra ? 40 + extra : 40).u32(64).u32(48).u16(1).u16(24).id("MJPG").fill(20);
    f.append(filler(extra, 9));
    return strl(byte_image().append(strh_chunk("vids", "MJPG", 1, 25, 0)).chunk("strf", f).append(strn_chunk("cam")));
}

// A standard index chunk as OpenDML writers put it inside "movi": its body
// names "00dc" and a base offset whose low word reads as a huge size.
byte_image ix00_body() {
    byte_image b;
    b.u16(2).u8(0).u8(1).u32(2).id("00dc").u64(0x7FFF0000u).u32(0);
    return b.u32(8).u32(40).u32(80).u32(40);
}

std::vector<planned> frames(const char *id) {
    return {{id, filler(40, 1), true}, {"01wb", filler(20, 2)}, {id, filler(30, 3)}, {id, filler(40, 4), true},
            {id, filler(30, 5)}};
}

byte_image video_and_audio() { return hdrl({video_list(1, 25), audio_list(1, 8000, 1, 1, 8000)}); }

enum class form {
    plain, long_palette, long_codec_data, ix_in_movi, ix_after_unknown, file_idx1, db_only, db_file_idx1, both_places,
    db_unflagged, empty_last_chunk
};

indexed_file make(form f) {
    const bool db = f == form::db_only || f == form::db_file_idx1 || f == form::db_unflagged;
    const bool absolute = f == form::file_idx1 || f == form::db_file_idx1 || f == form::db_unflagged;
    std::vector<planned> c = frames(db ? "00db" : "00dc");
    byte_image header_list = video_and_audio();
    if (f == form::long_palette || f == form::long_codec_data)
        header_list = hdrl({f == form::long_palette ? long_format_strl(1024, false) : long_format_strl(33, true), audio_list(1, 8000, 1, 1, 8000)});
    if (f == form::ix_in_movi || f == form::ix_after_unknown) c.insert(c.begin() + 2, {"ix00", ix00_body(), false, false});
    if (f == form::ix_after_unknown) c.insert(c.begin() + 2, {"abcd", byte_image().text("zzzz"), false, false});
    if (f == form::empty_last_chunk) c.push_back({"01wb", byte_image()});
    if (f == form::db_unflagged)
        for (planned &p : c) p.key = false;
    if (f == form::both_places) {
        // The first entry, an indexed JUNK, names a JUNK chunk counted from
        // "movi" and another one counted from the start of the file.
        c.insert(c.begin(), {{"JUNK", byte_image(), false, false}, {"JUNK", filler(4, 6)}});
        header_list = byte_image().chunk("JUNK", filler(4, 7)).append(header_list);
    }
    return make_indexed(header_list, c, absolute ? index_offsets::absolute : index_offsets::movi_relative);
}

// Both walks as text: stream and type of each step, then the end code. The
// whole-chunk walk follows the header walk from the first chunk.
std::string walk(aviin_handle *h, const indexed_file &f, bool whole) {
    static const char *const names[] = {"?", "wb", "db", "dc", "dd", "st", "sb", "ch", "ix"};
    aviin_seek_by_offset(h, static_cast<uint64_t>(f.movi_data));
    std::string out;
    std::vector<uint8_t> buffer(256);
    uint32_t type = 0, stream = 0, size = 0;
    uint64_t data = 0;
    int r = 0;
    for (int steps = 0; steps < 64; ++steps) {
        int32_t held = static_cast<int32_t>(buffer.size());
        r = whole ? aviin_get_next_chunk(h, &type, &stream, buffer.data(), &held)
                  : aviin_get_next_chunk_type(h, &type, &stream, &data, &size);
        if (r != 0) break;
        out += (stream < 10 ? std::to_string(stream) : std::string("-")) + (type < 9 ? names[type] : "J") + " ";
    }
    return out + "=" + std::to_string(r);
}

// A row: the file form and the tolerances; whether it opens; the bytes past
// the video header handed out and the stream's name, read after its format;
// the header walk from the first chunk, and the whole-chunk walk when it
// differs; the last aviin_build_keyindex_entry result, frames counted and key
// frames kept; lookup: frame 3 from the first frame, 0 when it lands on the
// last chunk's header; sample: the move to idx1 entry 3, 0 when its chunk is
// the next one read; timed: video entries aviin_get_start_end_by_time finds,
// -1 when it fails; the tolerances needed.
struct row {
    form file;
    uint32_t flags;
    bool opens;
    uint32_t extra;
    const char *name, *walk, *whole;
    int build;
    uint32_t frames, keys;
    int lookup, sample, timed;
    uint32_t needed;
};

const char *const dc_walk = "0dc 1wb 0dc 0dc 0dc =3";
const char *const db_walk = "0db 1wb 0db 0db 0db =3";
const char *const ix_lost = "0dc 1wb 0? -? -? -? 0dc =3";
const char *const same = "";

const row rows[] = {
    {form::plain, 0, true, 0, "", dc_walk, same, 3, 4, 2, 0, 0, 4, 0},
    {form::plain, all, true, 0, "", dc_walk, same, 3, 4, 2, 0, 0, 4, 0},
    {form::both_places, all, true, 0, "", "-J -J 0dc 1wb 0dc 0dc 0dc =3", same, 3, 4, 2, 0, 0, 4, 0},
    {form::long_palette, all ^ long_format, false, 0, "", "", same, 0, 0, 0, 0, 0, 0, 0},
    {form::long_palette, long_format, true, 1024, "cam", dc_walk, same, 3, 4, 2, 0, 0, 4, long_format},
    {form::long_codec_data, 0, true, 0, "", dc_walk, same, 3, 4, 2, 0, 0, 4, 0},
    {form::long_codec_data, long_format, true, 33, "cam", dc_walk, same, 3, 4, 2, 0, 0, 4, long_format},
    // Stepped over by its id alone, the index's body is met word by word;
    // the "00dc" stored in it reads as a frame running past the list, and
    // the frames after the index are lost. The whole-chunk walk resyncs onto
    // that id and fails on its size.
    {form::ix_in_movi, all ^ index_chunks, true, 0, "", ix_lost, "0dc 1wb 0? =1", 3, 4, 2, 1, 0, 4, 0},
    {form::ix_in_movi, index_chunks, true, 0, "", "0dc 1wb 0ix 0dc 0dc 0dc =3", same, 3, 4, 2, 0, 0, 4, index_chunks},
    // The whole-chunk walk resyncs from an unknown chunk up to the index.
    {form::ix_after_unknown, index_chunks, true, 0, "", "0dc 1wb -? -? -? 0ix 0dc 0dc 0dc =3",
     "0dc 1wb -? 0ix 0dc 0dc 0dc =3", 3, 4, 2, 0, 0, 4, index_chunks},
    {form::file_idx1, all ^ file_idx1, true, 0, "", dc_walk, same, 1, 0, 0, 0, 1, 4, 0},
    {form::file_idx1, file_idx1, true, 0, "", dc_walk, same, 3, 4, 2, 0, 0, 4, file_idx1},
    {form::db_only, all ^ db_frames, true, 0, "", db_walk, same, 3, 0, 0, 1, 0, -1, 0},
    {form::db_only, db_frames, true, 0, "", db_walk, same, 3, 4, 2, 0, 0, 4, db_frames},
    {form::db_file_idx1, db_frames, true, 0, "", db_walk, same, 1, 0, 0, 0, 1, 4, db_frames},
    {form::db_file_idx1, all, true, 0, "", db_walk, same, 3, 4, 2, 0, 0, 4, db_frames | file_idx1},
    // An index that flags no key frame: every frame is one under the tolerance.
    {form::db_unflagged, all ^ unflagged, true, 0, "", db_walk, same, 3, 4, 0, 0, 0, 4, db_frames | file_idx1},
    {form::db_unflagged, all, true, 0, "", db_walk, same, 3, 4, 4, 0, 0, 4, db_frames | file_idx1 | unflagged},
    // An empty chunk closing movi, where the end test stops the walks.
    {form::empty_last_chunk, all ^ empty_last, true, 0, "", dc_walk, same, 1, 4, 2, 0, 0, 4, 0},
    {form::empty_last_chunk, all, true, 0, "", dc_walk, same, 3, 4, 2, 0, 0, 4, empty_last},
};

// The extra bytes and the name of video stream 0.
void expect_format(aviin_handle *h, const row &r) {
    const uint8_t *extra = nullptr;
    uint32_t extra_size = 99;
    ASSERT_EQ(aviin_get_video_format_extra(h, 0, &extra, &extra_size), 0);
    ASSERT_EQ(extra_size, r.extra);
    EXPECT_EQ(extra == nullptr, r.extra == 0);
    if (r.extra != 0) { EXPECT_EQ(std::vector<uint8_t>(extra, extra + r.extra), filler(r.extra, 9).bytes()); }
    video_stream_format v;
    ASSERT_EQ(aviin_get_video_format(h, 0, &v, nullptr), 0);
    EXPECT_EQ(std::string(v.name_length > 0 ? v.name : ""), r.name);
    std::free(v.name_length > 0 ? v.name : nullptr);
}

// The key-frame table, then the frame walk from the first frame.
void expect_frames(aviin_handle *h, const indexed_file &f, const row &r) {
    std::vector<keyindex_entry> storage(8);
    keyindex_table t;
    ASSERT_EQ(aviin_init_keyindex(h, &t, storage.data(), 8, 0), 0);
    int built = 0;
    for (int calls = 0; calls < 8 && (built = aviin_build_keyindex_entry(h, &t, 0)) == 0; ++calls) {
    }
    EXPECT_EQ(built, r.build);
    EXPECT_EQ(aviin_build_keyindex_entry(h, &t, 0), r.build);  // and again
    EXPECT_EQ(t.frames_scanned, r.frames);
    EXPECT_EQ(t.count, r.keys);
    keyindex_entry first{};
    first.video_offset = f.relative(f.chunks[f.chunks[0].id == "JUNK" ? 2 : 0].header);
    if (t.count > 0) {
        EXPECT_EQ(t.entries[0].video_offset, first.video_offset);  // counted from "movi"
    }
    uint64_t pos = 0;
    const int found = aviin_get_video_offset(h, first, 0, 3, &pos);
    const auto last_frame =
        std::find_if(f.chunks.rbegin(), f.chunks.rend(), [](const auto &c) { return c.id.compare(0, 2, "00") == 0; });
    EXPECT_EQ(found == 0 && static_cast<int64_t>(pos) == last_frame->header ? 0 : 1, r.lookup) << pos;
}

// The legacy index calls: a move to an entry's chunk, and a span of video.
void expect_index(aviin_handle *h, const indexed_file &f, const row &r) {
    uint32_t type = 0, stream = 0, size = 0, first = 0, last = 0;
    uint64_t data = 0;
    const bool moved =
        aviin_goto_idx1_sample(h, 3) == 0 && aviin_get_next_chunk_type(h, &type, &stream, &data, &size) == 0;
    EXPECT_EQ(moved && static_cast<int64_t>(data) - 8 == f.chunks[f.index_order[3]].header ? 0 : 1, r.sample);
    const int timed = aviin_get_start_end_by_time(h, 0, KELQAVI_CHUNK_VIDEO, 0.0f, 10.0f, &first, &last);
    EXPECT_EQ(timed == 0 ? static_cast<int>(last) + 1 : -1, r.timed);
}

TEST(tolerances, each_file_form_with_its_tolerance_off_and_on) {
    for (const row &r : rows) {
        const indexed_file f = make(r.file);
        SCOPED_TRACE(testing::Message() << "form " << static_cast<int>(r.file) << " flags " << r.flags);
        const reader owned(f.bytes, 0, r.flags);
        aviin_handle *h = owned;
        ASSERT_EQ(h != nullptr, r.opens);
        if (h == nullptr) continue;
        expect_format(h, r);
        EXPECT_EQ(walk(h, f, false), r.walk);
        EXPECT_EQ(walk(h, f, true), *r.whole != '\0' ? r.whole : r.walk);
        expect_frames(h, f, r);
        expect_index(h, f, r);
        uint32_t allowed = 0, needed = 0;
        ASSERT_EQ(aviin_get_tolerances(h, &allowed, &needed), 0);
        EXPECT_EQ(allowed, r.flags);
        EXPECT_EQ(needed, r.needed);
        // Reading the header list again replaces the extra bytes.
        ASSERT_EQ(aviin_goto_riff(h, 0, 0), 0);
        expect_format(h, r);
    }
}

// The audio walk of aviin_get_chunk_offsets (key frame 1, indexed, is no
// frame in "movi", so the audio of frames 0 to 1 is looked for) ends on the
// last audio chunk, not on the audio stream's index chunk after it.
TEST(tolerances, the_audio_walk_passes_over_an_index_chunk_of_its_stream) {
    indexed_file f = make_indexed(video_and_audio(), {{"00dc", filler(40, 1), true}, {"01wb", filler(20, 2)},
                                                      {"01wb", filler(20, 3)}, {"00dc", filler(8, 4), true},
                                                      {"ix01", ix00_body(), false, false}});
    f.bytes.set_u32(static_cast<size_t>(f.chunks[3].header), make_fourCC("JUNK"));
    for (uint32_t flags : {0u, index_chunks}) {
        const reader h(f.bytes, 0, flags);
        ASSERT_NE(h.get(), nullptr);
        std::vector<keyindex_entry> storage(4);
        keyindex_table t;
        ASSERT_EQ(aviin_init_keyindex(h, &t, storage.data(), 4, 0), 0);
        ASSERT_EQ(aviin_build_keyindex_entry(h, &t, 0), 3);
        uint64_t video_start = 0, video_end = 0, first = 0, last = 0;
        ASSERT_EQ(aviin_get_chunk_offsets(h, &t, 0, 0, 1, 1.0f, &video_start, &video_end, 1, &first, &last), 0);
        EXPECT_EQ(video_end, KELQAVI_NOT_FOUND);
        EXPECT_EQ(static_cast<int64_t>(first), f.chunks[1].header);
        EXPECT_EQ(static_cast<int64_t>(last) == f.chunks[2].header, flags != 0) << last;
    }
}

}  // namespace
