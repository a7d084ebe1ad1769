// OpenDML indexes as written: super index (indx) and standard index (ix##)
// layouts, when standard indexes are flushed in both timing modes, the idx1
// records they cost, and the bounds of both index kinds.
#include <gtest/gtest.h>

#include "odml/index_build.h"
#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

// One standard index entry resolved: where its data is, and its size word.
struct index_entry {
    uint64_t data_pos;
    uint32_t size_word;
};

struct super_entry {
    uint64_t offset;
    uint32_t size, duration;
};

std::vector<super_entry> super_entries(const std::vector<uint8_t> &b, int stream) {
    std::vector<super_entry> out;
    const size_t indx = strl_chunk(b, stream, "indx");
    if (indx == SIZE_MAX) return out;
    const uint32_t n = le32(b, indx + 4);
    for (uint32_t i = 0; i < n && i < 100; ++i) {
        const size_t e = indx + 24 + 16 * static_cast<size_t>(i);
        out.push_back({le64(b, e), le32(b, e + 8), le32(b, e + 12)});
    }
    return out;
}

// Every entry of every standard index a stream's super index lists, in order.
std::vector<index_entry> track_entries(const std::vector<uint8_t> &b, int stream) {
    std::vector<index_entry> out;
    for (const super_entry &s : super_entries(b, stream)) {
        const size_t ix = static_cast<size_t>(s.offset);
        const uint32_t n = le32(b, ix + 8 + 4);
        const uint64_t base = le64(b, ix + 8 + 12);
        for (uint32_t i = 0; i < n; ++i) {
            const size_t e = ix + 8 + 24 + 8 * static_cast<size_t>(i);
            out.push_back({base + le32(b, e), le32(b, e + 4)});
        }
    }
    return out;
}

// The data chunks of a stream in movi (ix## chunks and other streams left out).
std::vector<chunk_at> stream_chunks(const std::vector<uint8_t> &b, const char *id) {
    std::vector<chunk_at> out;
    for (const chunk_at &c : movi_chunks(b))
        if (c.id == id4(id)) out.push_back(c);
    return out;
}

size_t count_ix(const std::vector<uint8_t> &b) {
    size_t n = 0;
    for (const chunk_at &c : movi_chunks(b))
        if (c.id == std::string("ix0\0", 4) || c.id == "ix00") ++n;
    return n;
}

// A video + audio recording: per video frame (0.04 s) one video chunk, and
// per 4 frames one audio chunk of 0.16 s at 16000 bytes/s (2560 bytes).
std::vector<uint8_t> recording(const char *path, uint32_t odml, uint32_t mode, double seconds, int frames,
                               uint32_t profile = 0) {
    aviout_handle *w = aviout_open(path, odml, 0);
    if (w == nullptr) return {};
    w->standard_profile = profile;
    w->index_chunk_seconds = seconds;
    w->odml_timing_mode = mode;
    int32_t s;
    const video_stream_format v = video_record();
    const audio_stream_format a = audio_record(16000);
    const double vf = 0.04, af = 0.16;
    aviout_set_video_format(w, &s, &v, &vf);
    aviout_set_audio_format(w, &s, &a, &af);
    for (int i = 0; i < frames; ++i) {
        put(w, 0, i % 10 == 0 ? AVIOUT_KEY_FRAME : 0, payload(100 + static_cast<uint32_t>(i % 7), i));
        if (i % 4 == 0) put(w, 1, AVIOUT_KEY_FRAME, payload(2560, 1000 + i));
    }
    aviout_close(w);
    return file_bytes(path);
}

// With key_every_ten a chunk is a key frame when its number is a multiple
// of 10, as recording() puts them; otherwise every chunk is one.
void expect_track_matches_movi(const std::vector<uint8_t> &b, int stream, const char *id, bool key_every_ten) {
    const std::vector<index_entry> entries = track_entries(b, stream);
    const std::vector<chunk_at> chunks = stream_chunks(b, id);
    ASSERT_EQ(entries.size(), chunks.size()) << id;
    for (size_t i = 0; i < chunks.size(); ++i) {
        EXPECT_EQ(entries[i].data_pos, chunks[i].data()) << id << " " << i;
        const bool key = key_every_ten ? i % 10 == 0 : true;
        EXPECT_EQ(entries[i].size_word, chunks[i].size | (key ? 0u : 0x80000000u)) << id << " " << i;
    }
}

}  // namespace

// The same recording with OpenDML off and on in both timing modes: the
// chunks read back alike, and each track's standard indexes list exactly its
// chunks.
TEST(WriterOdml, RoundTripInEveryMode) {
    struct mode {
        uint32_t odml, timing;
        double seconds;
        uint32_t profile;
    } const modes[] = {{0, 0, 0.0, 0}, {1, 0, 3.0, 0}, {1, 1, 3.0, 0}, {1, 0, 30.0, 0}, {1, 1, 0.5, 0},
                       {0, 0, 0.0, 1}, {1, 0, 3.0, 1}, {1, 1, 0.5, 1}};
    std::vector<std::vector<uint8_t>> reference;
    for (const mode &m : modes) {
        SCOPED_TRACE(testing::Message() << m.odml << "/" << m.timing << "/" << m.seconds << "/" << m.profile);
        scratch_path path;
        const std::vector<uint8_t> b = recording(path, m.odml, m.timing, m.seconds, 120, m.profile);
        ASSERT_FALSE(b.empty());
        // The walk takes "ix00" for an index chunk only when it reads
        // swapped ids as well; otherwise it scans into it and meets the
        // "00dc" of its dwChunkId.
        aviin_handle *h = aviin_open(path, m.profile);
        ASSERT_NE(h, nullptr);
        int last = 0;
        const std::vector<walked> got = walk_data(h, &last);
        EXPECT_TRUE(last == 1 || last == 3) << last;
        std::vector<std::vector<uint8_t>> data;
        for (const walked &c : got) data.push_back(c.data);
        if (reference.empty())
            reference = data;
        else
            EXPECT_TRUE(data == reference) << "the chunks differ from those of the file without OpenDML";
        EXPECT_EQ(data.size(), 150u);
        // By default the super indexes carry a dwChunkId the reader does not
        // take as a stream's: it ignores them. The standard profile's name
        // the stream, and the reader finds every video chunk through them.
        uint32_t type = 0, size = 0, key = 0;
        const bool indexed = m.odml != 0 && m.profile != 0;
        EXPECT_EQ(aviin_get_indx_entry(h, 0, 0, &type, &size, &key), indexed ? 0 : 1);
        for (uint32_t i = 0; indexed && i < 120; ++i) {
            ASSERT_EQ(aviin_get_indx_entry(h, i, 0, &type, &size, &key), 0) << i;
            EXPECT_EQ(type, 3u);
            EXPECT_EQ(size, 100 + i % 7) << i;
            EXPECT_EQ(key, i % 10 == 0 ? 16u : 0u) << i;
        }
        EXPECT_EQ(aviin_get_indx_entry(h, 120, 0, &type, &size, &key), 1);
        aviin_close(h);

        const chunk_at odml_list = find_child(b, find_child(b, 0, "LIST", "hdrl").pos, "LIST", "odml");
        EXPECT_EQ(le32(b, find_child(b, odml_list.pos, "dmlh").data()), 120u);
        if (m.odml == 0) {
            EXPECT_EQ(strl_chunk(b, 0, "indx"), SIZE_MAX);
            EXPECT_EQ(count_ix(b), 0u);
            continue;
        }
        expect_track_matches_movi(b, 0, "00dc", true);
        expect_track_matches_movi(b, 1, "01wb", false);
    }
}

// index_chunk_seconds 1.0 and 0.04 s frames: N = 25; in mode 1 a standard
// index is written out when it holds 25 entries, and the rest at close. The
// default form and the standard profile differ in the ids and in idx1.
TEST(WriterOdml, CountModeLayouts) {
    struct form {
        uint32_t profile;
        std::string ix_id, chunk_id;
        size_t idx1_records;
    } const forms[] = {{0, std::string("ix0\0", 4), std::string("0\0dc", 4), 58}, {1, "ix00", "00dc", 60}};
    for (const form &fm : forms) {
        SCOPED_TRACE(fm.profile);
        scratch_path path;
        aviout_handle *w = open_video_writer(path, 1, 1.0, 1, nullptr, fm.profile);
        ASSERT_NE(w, nullptr);
        ASSERT_NE(w->odml_track[0], nullptr);
        EXPECT_EQ(w->odml_track[0]->entries_per_chunk, 25u);
        for (int i = 0; i < 60; ++i) ASSERT_EQ(put(w, 0, i % 5 == 0 ? 1 : 0, payload(10 + (i & 1), i)), 0) << i;
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);

        // indx: 1624 bytes, four longs per entry, index of indexes, the chunk id.
        const size_t indx = strl_chunk(b, 0, "indx");
        ASSERT_NE(indx, SIZE_MAX);
        EXPECT_EQ(le32(b, indx - 4), 1624u);
        EXPECT_EQ(le16(b, indx), 4u);
        EXPECT_EQ(b[indx + 2], 0u);
        EXPECT_EQ(b[indx + 3], 0u);
        EXPECT_EQ(le32(b, indx + 4), 3u);
        EXPECT_EQ(text4(b, indx + 8), fm.chunk_id);
        const std::vector<super_entry> supers = super_entries(b, 0);
        ASSERT_EQ(supers.size(), 3u);
        const uint32_t durations[3] = {25, 25, 10};
        const std::vector<chunk_at> movi = movi_chunks(b);
        // Layout of movi: 25 chunks, ix, 25 chunks, ix, 10 chunks, ix (at close).
        ASSERT_EQ(movi.size(), 63u);
        const size_t ix_at[3] = {25, 51, 62};
        for (int k = 0; k < 3; ++k) {
            SCOPED_TRACE(k);
            const chunk_at &ix = movi[ix_at[k]];
            EXPECT_EQ(ix.id, fm.ix_id);
            EXPECT_EQ(supers[k].offset, ix.pos);
            EXPECT_EQ(supers[k].size, 248u);
            EXPECT_EQ(supers[k].duration, durations[k]);
            EXPECT_EQ(ix.size, 240u);
            EXPECT_EQ(le16(b, ix.data()), 2u);
            EXPECT_EQ(b[ix.data() + 2], 0u);
            EXPECT_EQ(b[ix.data() + 3], 1u);
            EXPECT_EQ(le32(b, ix.data() + 4), durations[k]);
            EXPECT_EQ(text4(b, ix.data() + 8), fm.chunk_id);
            const chunk_at &first = movi[ix_at[k] - durations[k]];
            EXPECT_EQ(le64(b, ix.data() + 12), first.pos) << "qwBaseOffset: header of the first chunk indexed";
            EXPECT_EQ(le32(b, ix.data() + 24), 8u);
            for (uint32_t i = 0; i < durations[k]; ++i) {
                const chunk_at &c = movi[ix_at[k] - durations[k] + i];
                const size_t e = ix.data() + 24 + 8 * i;
                const size_t frame_no = k * 25 + i;
                EXPECT_EQ(le32(b, e), c.data() - first.pos) << i;
                EXPECT_EQ(le32(b, e + 4), c.size | (frame_no % 5 == 0 ? 0u : 0x80000000u)) << i;
            }
            // The two spare entries and the unused ones are zero.
            for (size_t at = 24 + 8 * durations[k]; at < 240; ++at) ASSERT_EQ(b[ix.data() + at], 0u) << at;
        }

        // idx1: no records for ix## chunks. By default the data chunk put when
        // an index was flushed (frames 25 and 50) lost its record; the standard
        // profile keeps it.
        const chunk_at idx1 = find_child(b, 0, "idx1");
        ASSERT_EQ(idx1.size, fm.idx1_records * 16);
        const chunk_at movi_list = find_child(b, 0, "LIST", "movi");
        size_t r = idx1.data();
        for (size_t i = 0; i < movi.size(); ++i) {
            if (movi[i].id != "00dc" || (fm.profile == 0 && (i == 26 || i == 52))) continue;
            EXPECT_EQ(text4(b, r), "00dc");
            EXPECT_EQ(le32(b, r + 8), movi[i].pos - (movi_list.pos + 8)) << i;
            EXPECT_EQ(le32(b, r + 12), movi[i].size) << i;
            r += 16;
        }
        EXPECT_EQ(avih_value(b, 4), 60u);
        EXPECT_EQ(le32(b, strl_chunk(b, 0, "strh") + strh_length), 60u);
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
    } const forms[] = {{0, std::string("0\0wb", 4), std::string("ix0\0", 4)}, {1, "01wb", "ix01"}};
    for (const form &fm : forms) {
        SCOPED_TRACE(fm.profile);
        scratch_path path;
        aviout_handle *w = aviout_open(path, 1, 0);
        ASSERT_NE(w, nullptr);
        w->standard_profile = fm.profile;
        w->index_chunk_seconds = 2.0;
        int32_t s;
        const video_stream_format v = video_record();
        const audio_stream_format a = audio_record(16000);
        const caption_stream_format t = caption_record("Subtitle");
        const double vf = 0.25, af = 0.25;
        ASSERT_EQ(aviout_set_video_format(w, &s, &v, &vf), 0);
        ASSERT_EQ(aviout_set_audio_format(w, &s, &a, &af), 0);
        ASSERT_EQ(aviout_set_text_caption_format(w, &s, &t), 0);
        EXPECT_EQ(w->odml_track[0]->entries_per_chunk, 8u);
        EXPECT_EQ(w->odml_track[1]->entries_per_chunk, 8u);
        // Video: 0.25 s a chunk, due after 4. Audio: 4000 bytes = 0.25 s, due after 4.
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(put(w, 1, 1, payload(4000, i)), 0);
            ASSERT_EQ(put(w, 0, 1, payload(20, i)), 0);
        }
        for (int i = 0; i < 3; ++i) ASSERT_EQ(put(w, 2, 1, payload(9, i)), 0);
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        const std::vector<super_entry> vs = super_entries(b, 0), as = super_entries(b, 1);
        ASSERT_EQ(vs.size(), 3u);
        ASSERT_EQ(as.size(), 3u);
        EXPECT_EQ(vs[0].duration, 4u);
        EXPECT_EQ(vs[1].duration, 4u);
        EXPECT_EQ(vs[2].duration, 2u);
        EXPECT_EQ(as[0].duration, 16000u) << "four 4000-byte chunks";
        EXPECT_EQ(as[1].duration, 16000u);
        EXPECT_EQ(as[2].duration, 8000u);
        for (const super_entry &e : as) EXPECT_EQ(e.size, 8u * 8 + 48);
        const size_t aindx = strl_chunk(b, 1, "indx");
        EXPECT_EQ(text4(b, aindx + 8), fm.audio_id) << "by default: first digit of \"01\"";
        // By default stream 1's ix## chunks carry the same id bytes as stream 0's.
        EXPECT_EQ(text4(b, static_cast<size_t>(as[0].offset)), fm.audio_ix_id);
        EXPECT_EQ(text4(b, static_cast<size_t>(as[0].offset) + 16), fm.audio_id);
        // Every chunk here is a key frame.
        expect_track_matches_movi(b, 0, "00dc", false);
        expect_track_matches_movi(b, 1, "01wb", false);
        if (fm.profile == 0) {
            EXPECT_EQ(strl_chunk(b, 2, "indx"), SIZE_MAX);
            continue;
        }
        EXPECT_EQ(text4(b, strl_chunk(b, 2, "indx") + 8), "02st");
        expect_track_matches_movi(b, 2, "02st", false);
    }
}

// index_chunk_seconds 1.0 or less: every track is due before every chunk,
// so the first ix## is empty and every chunk of an indexed track costs its
// idx1 record.
TEST(WriterOdml, ShortIndexesFlushBeforeEveryChunk) {
    for (double seconds : {1.0, 0.5}) {
        SCOPED_TRACE(seconds);
        scratch_path path;
        aviout_handle *w = aviout_open(path, 1, 0);
        ASSERT_NE(w, nullptr);
        w->index_chunk_seconds = seconds;
        int32_t s;
        const video_stream_format v = video_record();
        const caption_stream_format t = caption_record("Subtitle");
        const double vf = 0.04;
        ASSERT_EQ(aviout_set_video_format(w, &s, &v, &vf), 0);
        ASSERT_EQ(aviout_set_text_caption_format(w, &s, &t), 0);
        for (int i = 0; i < 5; ++i) ASSERT_EQ(put(w, 0, 1, payload(6, i)), 0);
        ASSERT_EQ(put(w, 1, 0, payload(4, 9)), 0);
        aviout_close(w);
        const std::vector<uint8_t> b = file_bytes(path);
        const std::vector<chunk_at> movi = movi_chunks(b);
        std::vector<std::string> order;
        for (const chunk_at &c : movi) order.push_back(c.id == std::string("ix0\0", 4) ? "ix" : c.id);
        EXPECT_EQ(order, (std::vector<std::string>{"ix", "00dc", "ix", "00dc", "ix", "00dc", "ix", "00dc", "ix",
                                                   "00dc", "ix", "01st", "ix"}));
        const std::vector<super_entry> supers = super_entries(b, 0);
        ASSERT_EQ(supers.size(), 7u);
        EXPECT_EQ(supers[0].duration, 0u);
        EXPECT_EQ(le32(b, movi[0].data() + 4), 0u) << "nEntriesInUse of the flush right after set-up";
        EXPECT_EQ(le64(b, movi[0].data() + 12), 0u);
        for (size_t at = 24; at < movi[0].size; ++at) ASSERT_EQ(b[movi[0].data() + at], 0u) << at;
        for (size_t k = 1; k < 6; ++k) EXPECT_EQ(supers[k].duration, 1u) << k;
        EXPECT_EQ(supers[6].duration, 0u) << "the caption chunk flushed the track once more";
        // The caption chunk's put flushed the video track too: no record survives.
        const chunk_at idx1 = find_child(b, 0, "idx1");
        EXPECT_EQ(idx1.size, 0u);
        aviin_handle *h = aviin_open(path, 0);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(walk_data(h).size(), 6u);
        aviin_close(h);
    }
}

// More than 100 standard indexes in a track: the 101st flush is refused,
// put_chunk says 1 but goes on writing; the file stays readable.
TEST(WriterOdml, MoreThanAHundredStandardIndexes) {
    scratch_path path;
    aviout_handle *w = open_video_writer(path, 1, 1.0, 0);
    ASSERT_NE(w, nullptr);
    std::vector<int> results;
    for (int i = 0; i < 120; ++i) results.push_back(put(w, 0, 1, payload(10, i)));
    aviout_close(w);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(results[static_cast<size_t>(i)], 0) << i;
    for (int i = 100; i < 120; ++i) EXPECT_EQ(results[static_cast<size_t>(i)], 1) << i;
    const std::vector<uint8_t> b = file_bytes(path);
    EXPECT_EQ(le32(b, strl_chunk(b, 0, "indx") + 4), 100u);
    EXPECT_EQ(count_ix(b), 100u);
    EXPECT_EQ(stream_chunks(b, "00dc").size(), 120u);
    // Records survive once flushes stop.
    EXPECT_EQ(find_child(b, 0, "idx1").size, 20u * 16);
    EXPECT_EQ(avih_value(b, 4), 120u);
    aviin_handle *h = aviin_open(path, 0);
    ASSERT_NE(h, nullptr);
    const std::vector<walked> got = walk_data(h);
    ASSERT_EQ(got.size(), 120u);
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i].data, payload(10, static_cast<uint32_t>(i))) << i;
    aviin_close(h);
}

// Time mode with a frame_duration that does not match the data: a standard
// index fills to N + 2 entries and stops; later chunks are written anyway.
TEST(WriterOdml, MoreEntriesThanAStandardIndexHolds) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 1, 0);
    ASSERT_NE(w, nullptr);
    w->index_chunk_seconds = 10.0;
    int32_t s;
    const audio_stream_format a = audio_record(16000);
    const double claimed = 1.0;   // N = 10, but 100-byte chunks last 1/160 s
    ASSERT_EQ(aviout_set_audio_format(w, &s, &a, &claimed), 0);
    std::vector<int> results;
    for (int i = 0; i < 15; ++i) results.push_back(put(w, 0, 1, payload(100, i)));
    aviout_close(w);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(results[static_cast<size_t>(i)], 0) << i;
    for (int i = 12; i < 15; ++i) EXPECT_EQ(results[static_cast<size_t>(i)], 1) << i;
    const std::vector<uint8_t> b = file_bytes(path);
    const std::vector<super_entry> supers = super_entries(b, 0);
    ASSERT_EQ(supers.size(), 1u);
    EXPECT_EQ(supers[0].size, 128u);
    EXPECT_EQ(supers[0].duration, 1200u);
    const size_t ix = static_cast<size_t>(supers[0].offset);
    EXPECT_EQ(le32(b, ix + 4), 120u) << "N x 8 + 40 holds N + 2 entries";
    EXPECT_EQ(le32(b, ix + 12), 12u);
    EXPECT_EQ(text4(b, ix + 8 + 120), "idx1") << "the ix## chunk ends where its size says";
    EXPECT_EQ(find_child(b, 0, "idx1").size, 15u * 16);
    EXPECT_EQ(stream_chunks(b, "00wb").size(), 15u);
}

// The internal calls of the index builder on their own.
TEST(WriterOdmlInternals, TrackSetUpBounds) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 1, 0);
    ASSERT_NE(w, nullptr);
    w->index_chunk_seconds = 4.0;
    EXPECT_EQ(kelq::init_avi2_track(nullptr, 3, 0, nullptr, 0.04), -1);
    EXPECT_EQ(kelq::init_avi2_track(w, 3, -1, nullptr, 0.04), -1);
    EXPECT_EQ(kelq::init_avi2_track(w, 3, AVIOUT_MAX_STREAMS, nullptr, 0.04), -1);
    EXPECT_EQ(kelq::init_avi2_track(w, 3, 0, nullptr, -0.04), -1) << "negative capacity";
    EXPECT_EQ(kelq::init_avi2_track(w, 3, 0, nullptr, 1e-12), -1) << "ix## length past 32 bits";
    EXPECT_EQ(w->odml_track[0], nullptr);
    EXPECT_EQ(kelq::init_avi2_track(w, 3, 0, nullptr, 0.5), 0);
    EXPECT_EQ(w->odml_track[0]->entries_per_chunk, 8u);
    EXPECT_EQ(w->odml_track[0]->std_index_buf_size, 8u * 8 + 48);
    EXPECT_EQ(kelq::init_avi2_track(w, 3, 0, nullptr, 0.5), -1) << "a track is set up once";
    EXPECT_EQ(w->track_count, 1);
    EXPECT_TRUE(kelq::has_track(w, 0));
    EXPECT_FALSE(kelq::has_track(w, 1));
    EXPECT_EQ(kelq::add_avi2_chunk(w, 1, 100, 10, 0x10), -1);
    EXPECT_EQ(kelq::update_standard_index(w, 1), -1);
    EXPECT_EQ(kelq::write_standard_index(w, 1), 1);

    // Track 12, audio: dwChunkId from the first digit of "12".
    EXPECT_EQ(kelq::init_avi2_track(w, 1, 12, nullptr, 0.5), 12);
    EXPECT_EQ(w->track_count, 13);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(w->super_index_buf[12] + 8), 4), std::string("1\0wb", 4));
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(w->std_index_buf[12] + 8), 4), std::string("1\0wb", 4));
    // Neither audio nor video: refused.
    EXPECT_EQ(kelq::init_avi2_track(w, 5, 13, nullptr, 0.5), -1);
    aviout_close(w);
}

TEST(WriterOdmlInternals, SwappedIdsChunkIdAndEntryBounds) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 1, 0);
    ASSERT_NE(w, nullptr);
    w->swapped_ids = 1;
    w->index_chunk_seconds = 0.5;
    EXPECT_EQ(kelq::init_avi2_track(w, 3, 0, nullptr, 0.25), 0);
    const uint8_t *super = w->super_index_buf[0];
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(super + 8), 4), std::string("\0\0" "0\0", 4));
    // N = 2: room for 4 entries, the fifth refused.
    for (int i = 0; i < 4; ++i) EXPECT_EQ(kelq::add_avi2_chunk(w, 0, 1000 + 20 * i, 12, i == 0 ? 0x10 : 0), 0) << i;
    EXPECT_EQ(kelq::add_avi2_chunk(w, 0, 2000, 12, 0x10), -1);
    EXPECT_EQ(kelq::std_index_entries(w, 0), 4u);
    const uint8_t *ix = w->std_index_buf[0];
    EXPECT_EQ(ix[24] | ix[25] << 8, 8) << "first dwOffset";
    EXPECT_EQ(ix[24 + 8] | ix[24 + 9] << 8, 28);
    EXPECT_EQ(ix[24 + 15], 0x80) << "non-key";
    EXPECT_EQ(ix[24 + 7], 0x00) << "key";

    // The super index takes 100 standard indexes, then refuses.
    for (int i = 0; i < 100; ++i) ASSERT_EQ(kelq::update_standard_index(w, 0), 0) << i;
    EXPECT_EQ(kelq::update_standard_index(w, 0), -1);
    EXPECT_EQ(kelq::write_standard_index_chunks(w, 0), -1);
    EXPECT_EQ(kelq::std_index_entries(w, 0), 4u) << "a refused flush keeps the entries";
    // Rewriting the super indexes in place leaves the position where it was.
    const int64_t here = file_tell(w->file);
    EXPECT_EQ(kelq::update_super_index(w), 1);
    EXPECT_EQ(file_tell(w->file), here);
    EXPECT_EQ(kelq::avi2_cleanup(w), 1);
    EXPECT_FALSE(kelq::has_track(w, 0));
    EXPECT_EQ(kelq::avi2_cleanup(nullptr), 1);
    EXPECT_EQ(kelq::update_super_index(nullptr), -1);
    aviout_close(w);
}

// Type-first ids with OpenDML: the super index's dwChunkId is 00 00 digit 00,
// the ix## ids stay as they are, and idx1 ("1idx") still leaves them out.
TEST(WriterOdml, SwappedIdsWithIndexes) {
    scratch_path path;
    aviout_handle *w = aviout_open(path, 1, 0);
    ASSERT_NE(w, nullptr);
    w->swapped_ids = 1;
    w->index_chunk_seconds = 1.0;
    w->odml_timing_mode = 1;
    int32_t s;
    const video_stream_format v = video_record();
    const double frame = 0.25;   // N = 4
    ASSERT_EQ(aviout_set_video_format(w, &s, &v, &frame), 0);
    for (int i = 0; i < 10; ++i) ASSERT_EQ(put(w, 0, 1, payload(12, i)), 0);
    aviout_close(w);
    const std::vector<uint8_t> b = file_bytes(path);
    const size_t indx = strl_chunk(b, 0, "indx");
    ASSERT_NE(indx, SIZE_MAX);
    EXPECT_EQ(text4(b, indx + 8), std::string("\0\0" "0\0", 4));
    const std::vector<super_entry> supers = super_entries(b, 0);
    ASSERT_EQ(supers.size(), 3u);
    EXPECT_EQ(text4(b, static_cast<size_t>(supers[0].offset)), std::string("ix0\0", 4));
    EXPECT_EQ(stream_chunks(b, "dc00").size(), 10u);
    const chunk_at idx = find_child(b, 0, "1idx");
    ASSERT_NE(idx.pos, SIZE_MAX);
    EXPECT_EQ(idx.size, 8u * 16) << "two flushing puts lost their records";
    for (size_t r = 0; r < 8; ++r) EXPECT_EQ(text4(b, idx.data() + 16 * r), "dc00") << r;
    aviin_handle *h = aviin_open(path, 1);
    ASSERT_NE(h, nullptr);
    const std::vector<walked> got = walk_data(h);
    ASSERT_EQ(got.size(), 10u);
    for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(got[i].data, payload(12, i)) << i;
    aviin_close(h);
}
