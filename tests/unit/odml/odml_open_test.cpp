// OpenDML indexes of whole files opened with aviin_open: the super indexes of
// the "strl" lists lead to the standard indexes among the data chunks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "reader/reader_handle.h"
#include "support/avi_image.h"
#include "unit/odml/odml_image.h"

using namespace kelqtest;

namespace {

struct planned_chunk {
    uint32_t size;
    bool key;
};

const std::vector<planned_chunk> video_chunks = {{10, true}, {11, false}, {12, false}, {13, true}, {14, false}};
const std::vector<planned_chunk> audio_chunks = {{20, true}, {22, true}, {24, true}};

// A file with a video and an audio stream, each with a super index, and the
// two standard indexes after the data chunks in "movi". Ids are "00dc" or,
// swapped, "dc00". Standard index offsets count from the first data chunk.
class odml_file {
public:
    explicit odml_file(bool swapped)
        : video_id_(swapped ? "dc00" : "00dc"), audio_id_(swapped ? "wb01" : "01wb") {
        const byte_image draft = build(0, 0, 0);  // to learn where things land
        ix_pos_[0] = draft.find("ix00");
        ix_pos_[1] = draft.find("ix01");
        image = build(ix_pos_[0], ix_pos_[1], draft.find(video_id_.c_str()));
    }
    int64_t ix_pos(int s) const { return ix_pos_[s]; }
    byte_image image;

private:
    byte_image build(int64_t ix0, int64_t ix1, int64_t base) const {
        const char *vid = video_id_.c_str(), *aud = audio_id_.c_str();
        byte_image v, a, data;
        v.append(strh_chunk("vids", "MJPG", 1, 25, 5)).append(strf_video_chunk(64, 48, "MJPG"));
        v.append(indx_chunk(vid, 1, {{static_cast<uint64_t>(ix0), 0, 5}}));
        a.append(strh_chunk("auds", "\0\0\0\0", 1, 8000, 66)).append(strf_audio_chunk(1, 1, 8000, 8));
        a.append(strn_chunk("Audio")).append(indx_chunk(aud, 1, {{static_cast<uint64_t>(ix1), 0, 3}}));
        std::vector<std_entry> ve, ae;
        for (size_t i = 0; i < video_chunks.size(); ++i) {
            const planned_chunk &c = video_chunks[i];
            ve.push_back({static_cast<uint32_t>(data.size() + 8), c.size | (c.key ? 0 : 0x80000000u)});
            data.chunk(vid, byte_image().fill(c.size, static_cast<uint8_t>(i)));
            if (i >= audio_chunks.size()) continue;
            ae.push_back({static_cast<uint32_t>(data.size() + 8), audio_chunks[i].size});
            data.chunk(aud, byte_image().fill(audio_chunks[i].size, 0xA0));
        }
        data.append(ix_chunk("ix00", vid, static_cast<uint64_t>(base), ve));
        data.append(ix_chunk("ix01", aud, static_cast<uint64_t>(base), ae));
        return avi_form(byte_image().append(hdrl({strl(v), strl(a)})).append(movi(data)));
    }

    std::string video_id_, audio_id_;
    int64_t ix_pos_[2] = {};
};

struct opened {
    explicit opened(const byte_image &image, uint32_t swapped) : file(image), h(aviin_open(file.path(), swapped)) {}
    ~opened() { aviin_close(h); }
    temp_file file;
    aviin_handle *h;
};

}  // namespace

TEST(OdmlOpen, EntriesOfBothStreamsThroughTheirSuperIndexes) {
    for (const bool swapped : {false, true}) {
        SCOPED_TRACE(swapped ? "swapped ids" : "plain ids");
        const odml_file f(swapped);
        ASSERT_GT(f.ix_pos(1), 0);
        opened o(f.image, swapped ? 1 : 0);
        ASSERT_NE(o.h, nullptr);
        EXPECT_GT(o.h->indx_pos[0], 0);
        EXPECT_GT(o.h->indx_pos[1], o.h->indx_pos[0]);
        const int64_t start = file_tell(o.h->file);
        for (uint32_t n = 0; n < video_chunks.size(); ++n) {
            uint32_t type = 0, size = 0, key = 0;
            ASSERT_EQ(aviin_get_indx_entry(o.h, n, 0, &type, &size, &key), 0) << n;
            EXPECT_EQ(type, static_cast<uint32_t>(KELQAVI_CHUNK_VIDEO));
            EXPECT_EQ(size, video_chunks[n].size);
            EXPECT_EQ(key, video_chunks[n].key ? 16u : 0u) << n;
        }
        for (uint32_t n = 0; n < audio_chunks.size(); ++n) {
            uint32_t type = 0, size = 0, key = 0;
            ASSERT_EQ(aviin_get_indx_entry(o.h, n, 1, &type, &size, &key), 0) << n;
            EXPECT_EQ(type, static_cast<uint32_t>(KELQAVI_CHUNK_AUDIO));
            EXPECT_EQ(size, audio_chunks[n].size);
        }
        EXPECT_EQ(aviin_get_indx_entry(o.h, 5, 0, nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(aviin_get_indx_entry(o.h, 3, 1, nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(aviin_get_indx_entry(o.h, 0, 2, nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(file_tell(o.h->file), start) << "the walk of movi is where open left it";

        // The standard index read directly, with its own header as the cursor.
        std_index_header *cursor = avi2_parse_standard_index_chunk(f.image.bytes().data() + f.ix_pos(0) + 8);
        ASSERT_NE(cursor, nullptr);
        EXPECT_EQ(cursor->entries_in_use, video_chunks.size());
        EXPECT_EQ(aviin_set_odml_cursor(o.h, 0, cursor), 0);
        for (uint32_t n = 0; n < video_chunks.size(); ++n) {
            uint32_t type = 0, size = 0, key = 0;
            EXPECT_EQ(avi2_get_index_entry(f.ix_pos(0), o.h, n, 0, &type, &size, &key), 0);
            EXPECT_EQ(type, static_cast<uint32_t>(KELQAVI_CHUNK_VIDEO));
            EXPECT_EQ(size, video_chunks[n].size | (video_chunks[n].key ? 0 : 0x80000000u));
            EXPECT_EQ(key, 1u) << "no offset has bit 24 set";
        }
        aviin_close(o.h);
        o.h = nullptr;
        std::free(cursor);
    }
}

TEST(OdmlOpen, SwappedIndexesNeedSwappedOpen) {
    const odml_file f(true);
    opened o(f.image, 0);
    ASSERT_NE(o.h, nullptr);
    EXPECT_EQ(o.h->indx_pos[0], 0);
    EXPECT_EQ(o.h->indx_pos[1], 0);
    EXPECT_EQ(aviin_get_indx_entry(o.h, 0, 0, nullptr, nullptr, nullptr), 1);
}

TEST(OdmlOpen, IndxOfAStreamWithoutSlotIsPassedOver) {
    // The stream number comes from dwChunkId, not from the strl's place.
    byte_image v;
    v.append(strh_chunk("vids", "MJPG", 1, 25, 1)).append(strf_video_chunk(64, 48, "MJPG"));
    v.append(indx_chunk("42dc", 1, {{12, 0, 1}}));
    byte_image w;
    w.append(strh_chunk("vids", "MJPG", 1, 25, 1)).append(strf_video_chunk(64, 48, "MJPG"));
    w.append(indx_chunk("07dc", 1, {{12, 0, 1}}));
    opened o(avi_form(byte_image().append(hdrl({strl(v), strl(w)})).append(one_frame_movi())), 0);
    ASSERT_NE(o.h, nullptr);
    for (int s = 0; s < kelq::max_stream_slots; ++s) EXPECT_EQ(o.h->indx_pos[s] != 0, s == 7) << s;
}
