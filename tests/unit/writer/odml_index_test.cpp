// OpenDML indexes as written: super index (indx) and standard index (ix##)
// layouts, when standard indexes are flushed in both timing modes, the idx1
// records they cost, and the bounds of both index kinds.
#include <gtest/gtest.h>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

const std::string ix_default("ix0\0", 4);

}  // namespace

// index_chunk_seconds 1.0 and 0.04 s frames: N = 25; in mode 1 a standard
// index is written out when it holds 25 entries, and the rest at close. The
// default form and the standard profile differ in the ids and in idx1.
TEST(WriterOdml, CountModeLayouts) {
    struct form {
        uint32_t profile;
        std::string ix_id, chunk_id;
        size_t idx1_records;
    } const forms[] = {{0, ix_default, std::string("0\0dc", 4), 58}, {1, "ix00", "00dc", 60}};
    for (const form &fm : forms) {
        SCOPED_TRACE(fm.profile);
        scratch_path path;
        aviout_handle *w = open_writer(path, "v", {1, 1.0, 1, fm.profile});
        ASSERT_NE(w, nullptr);
        for (int i = 0; i < 60; ++i) ASSERT_EQ(put(w, 0, i % 5 == 0 ? 1 : 0, payload(10 + (i & 1), i)), 0) << i;
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);

        // indx: 1624 bytes, four longs per entry, index of indexes, the chunk id.
        const size_t indx = strl_chunk(b, 0, "indx");
        ASSERT_NE(indx, SIZE_MAX);
        expect_words(b, indx - 4, {{0, 1624}, {4, 4}, {8, 3}});
        EXPECT_EQ(text4(b, indx + 8), fm.chunk_id);
        const std::vector<super_entry> supers = super_entries(b, 0);
        ASSERT_EQ(supers.size(), 3u);
        // Layout of movi: 25 chunks, ix, 25 chunks, ix, 10 chunks, ix (at close).
        const std::vector<chunk_at> movi = movi_chunks(b);
        ASSERT_EQ(movi.size(), 63u);
        const uint32_t durations[3] = {25, 25, 10};
        const size_t ix_at[3] = {25, 51, 62};
        for (size_t k = 0; k < 3; ++k) {
            SCOPED_TRACE(k);
            const chunk_at &ix = movi[ix_at[k]], &first = movi[ix_at[k] - durations[k]];
            EXPECT_EQ(ix.id, fm.ix_id);
            EXPECT_EQ(std::vector<uint64_t>({supers[k].offset, supers[k].size, supers[k].duration, ix.size}),
                      std::vector<uint64_t>({ix.pos, 248, durations[k], 240}));
            // Two longs per entry, index of chunks; qwBaseOffset: header of the first chunk indexed.
            expect_words(b, ix.data(), {{0, 2 | 1 << 24}, {4, durations[k]}, {12, static_cast<uint32_t>(first.pos)}, {16, 0}, {20, 0}});
            EXPECT_EQ(text4(b, ix.data() + 8), fm.chunk_id);
            for (uint32_t i = 0; i < durations[k]; ++i) {
                const chunk_at &c = movi[ix_at[k] - durations[k] + i];
                expect_words(b, ix.data() + 24 + 8 * i,
                             {{0, static_cast<uint32_t>(c.data() - first.pos)},
                              {4, c.size | ((k * 25 + i) % 5 == 0 ? 0u : 0x80000000u)}});
            }
            // The two spare entries and the unused ones are zero.
            for (size_t at = 24 + 8 * durations[k]; at < 240; ++at) ASSERT_EQ(b[ix.data() + at], 0u) << at;
        }

        // idx1: no records for ix## chunks. By default the data chunk put when
        // an index was flushed (frames 25 and 50) lost its record; the standard
        // profile keeps it.
        const chunk_at idx1 = find_child(b, 0, "idx1");
        ASSERT_EQ(idx1.size, fm.idx1_records * 16);
        const size_t movi_type = find_child(b, 0, "LIST", "movi").pos + 8;
        size_t r = idx1.data();
        for (size_t i = 0; i < movi.size(); ++i) {
            if (movi[i].id != "00dc" || (fm.profile == 0 && (i == 26 || i == 52))) continue;
            EXPECT_EQ(text4(b, r), "00dc");
            expect_words(b, r, {{8, static_cast<uint32_t>(movi[i].pos - movi_type)}, {12, movi[i].size}});
            r += 16;
        }
        EXPECT_EQ(std::vector<uint32_t>({avih_value(b, 4), strh_value(b, 0, strh_length)}), std::vector<uint32_t>(2, 60));
    }
}

// Time mode: a track's index is written once it covers index_chunk_seconds
// - 1.0 seconds; audio time counts bytes over the first audio stream's rate,
// and audio dwDuration counts bytes. A text caption put at the end gets its
// own indexes in the standard profile only.
TEST(WriterOdml, TimeModeFlushesVideoAndAudio) {
    struct form {
        uint32_t profile;
        std::string audio_id, audio_ix_id;
    } const forms[] = {{0, std::string("0\0wb", 4), ix_default}, {1, "01wb", "ix01"}};
    for (const form &fm : forms) {
        SCOPED_TRACE(fm.profile);
        scratch_path path;
        aviout_handle *w = open_writer(path, "", {1, 2.0, 0, fm.profile});
        ASSERT_NE(w, nullptr);
        int32_t s;
        const video_stream_format v = video_record();
        const audio_stream_format a = audio_record();
        const double quarter = 0.25;
        ASSERT_EQ(aviout_set_video_format(w, &s, &v, &quarter) + aviout_set_audio_format(w, &s, &a, &quarter), 0);
        ASSERT_EQ(add_stream(w, 't'), 0);
        // Video: 0.25 s a chunk, due after 4. Audio: 4000 bytes = 0.25 s, due after 4.
        for (int i = 0; i < 10; ++i) ASSERT_EQ(put(w, 1, 1, payload(4000, i)) + put(w, 0, 1, payload(20, i)), 0);
        for (int i = 0; i < 3; ++i) ASSERT_EQ(put(w, 2, 1, payload(9, i)), 0);
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        std::vector<uint32_t> durations;
        for (int stream = 0; stream < 2; ++stream)
            for (const super_entry &e : super_entries(b, stream)) durations.push_back(e.duration);
        // Audio durations count bytes: four 4000-byte chunks, N = 8.
        EXPECT_EQ(durations, (std::vector<uint32_t>{4, 4, 2, 16000, 16000, 8000}));
        EXPECT_EQ(text4(b, strl_chunk(b, 1, "indx") + 8), fm.audio_id) << "by default: first digit of \"01\"";
        // By default stream 1's ix## chunks carry the same id bytes as stream 0's.
        const size_t audio_ix = static_cast<size_t>(super_entries(b, 1).at(0).offset);
        EXPECT_EQ(text4(b, audio_ix) + text4(b, audio_ix + 16), fm.audio_ix_id + fm.audio_id);
        // Every chunk here is a key frame.
        expect_indexes_list(b, 0, movi_chunks(b, 0, "00dc"), {});
        expect_indexes_list(b, 1, movi_chunks(b, 0, "01wb"), {});
        EXPECT_EQ(super_entries(b, 2).empty(), fm.profile == 0);
        if (fm.profile == 0) continue;
        EXPECT_EQ(text4(b, strl_chunk(b, 2, "indx") + 8), "02st");
        expect_indexes_list(b, 2, movi_chunks(b, 0, "02st"), {});
    }
}

// Index bounds: more than 100 standard indexes in a track (the 101st flush
// is refused), and a frame_duration that does not match the data (a
// standard index fills to N + 2 entries and stops). put_chunk says 1 but
// goes on writing; the file stays readable.
TEST(WriterOdml, IndexBoundsReportedButChunksKept) {
    struct row {
        const char *kinds;
        setup s;
        double audio_seconds;   // N = 10 for audio, but 100-byte chunks last 1/160 s
        int chunks, refused_from;
        uint32_t size, supers, idx1_records;
    } const rows[] = {{"v", {1, 1.0}, 0.04, 120, 100, 10, 100, 20}, {"a", {1, 10.0}, 1.0, 15, 12, 100, 1, 15}};
    for (const row &r : rows) {
        SCOPED_TRACE(r.kinds);
        scratch_path path;
        aviout_handle *w = open_writer(path, r.kinds, r.s, r.audio_seconds);
        ASSERT_NE(w, nullptr);
        std::vector<std::vector<uint8_t>> sent;
        for (int i = 0; i < r.chunks; ++i) {
            sent.push_back(payload(r.size, i));
            EXPECT_EQ(put(w, 0, 1, sent.back()), i < r.refused_from ? 0 : 1) << i;
        }
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        const std::vector<super_entry> supers = super_entries(b, 0);
        ASSERT_EQ(supers.size(), r.supers);
        EXPECT_EQ(movi_chunks(b, 0, ix_default.c_str()).size(), r.supers);
        // Records survive once flushes stop.
        EXPECT_EQ(find_child(b, 0, "idx1").size, r.idx1_records * 16);
        EXPECT_EQ(read_back(path), sent);
        if (r.supers != 1) continue;
        // N x 8 + 40 holds N + 2 entries; the ix## chunk ends where its size says.
        const size_t ix = static_cast<size_t>(supers[0].offset);
        EXPECT_EQ(std::vector<uint32_t>({supers[0].size, supers[0].duration, le32(b, ix + 4), le32(b, ix + 12)}),
                  std::vector<uint32_t>({128, 1200, 120, 12}));
        EXPECT_EQ(text4(b, ix + 8 + 120), "idx1");
    }
}
