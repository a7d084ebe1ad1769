// OpenDML indexes of whole files opened with aviin_open: the super indexes of
// the "strl" lists lead to the standard indexes among the data chunks.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader/reader_handle.h"
#include "unit/reader/reader_images.h"
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
// swapped, "dc00".
byte_image odml_file(bool swapped, int64_t ix0 = 0, int64_t ix1 = 0) {
    const char *vid = swapped ? "dc00" : "00dc", *aud = swapped ? "wb01" : "01wb";
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
    data.append(ix_chunk("ix00", vid, 0, ve)).append(ix_chunk("ix01", aud, 0, ae));
    const byte_image image = avi_form(byte_image().append(hdrl({strl(v), strl(a)})).append(movi(data)));
    // Built once more with the positions learnt from the first build.
    return ix0 != 0 ? image : odml_file(swapped, image.find("ix00"), image.find("ix01"));
}

}  // namespace

// Swapped indexes are found only when the file is opened with swapped ids.
TEST(OdmlOpen, EntriesOfBothStreamsThroughTheirSuperIndexes) {
    for (const auto &row : {std::make_pair(false, 0u), std::make_pair(true, 1u), std::make_pair(true, 0u)}) {
        SCOPED_TRACE(testing::Message() << "swapped ids " << row.first << ", opened with " << row.second);
        const bool found = row.first == (row.second != 0);
        const byte_image image = odml_file(row.first);
        reader o(image, row.second);
        ASSERT_NE(o.get(), nullptr);
        for (uint32_t stream : {0u, 1u}) {
            const auto &chunks = stream == 0 ? video_chunks : audio_chunks;
            for (uint32_t n = 0; n <= chunks.size(); ++n) {
                uint32_t type = 0, size = 0, key = 0;
                const int status = aviin_get_indx_entry(o.get(), n, stream, &type, &size, &key);
                EXPECT_EQ(status, found && n < chunks.size() ? 0 : 1) << n;
                if (status != 0) continue;
                EXPECT_EQ(type, static_cast<uint32_t>(stream == 0 ? KELQAVI_CHUNK_VIDEO : KELQAVI_CHUNK_AUDIO));
                EXPECT_EQ(size, chunks[n].size);
                EXPECT_EQ(key, chunks[n].key ? 16u : 0u) << n;
            }
        }
        EXPECT_EQ(aviin_get_indx_entry(o.get(), 0, 2, nullptr, nullptr, nullptr), 1);
    }
}
