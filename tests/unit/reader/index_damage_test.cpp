// Every index call over damaged files: cut at every length and with bytes of
// the movi list and the index overwritten at random. Whatever the results,
// the calls must stay inside their buffers and the file (the sanitizers
// watch) and end: each call here is bounded by the file's size.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "unit/reader/index_images.h"

using namespace kelqtest;

namespace {

// Video, MPEG-style audio, PCM and a bitmap subtitle stream, a few seconds'
// worth, with key frames every 5 frames.
byte_image damage_source() {
    std::vector<planned> chunks;
    uint32_t mp3 = 0, pcm = 0;
    for (uint32_t f = 0; f < 40; ++f) {
        if (f % 15 == 2) chunks.push_back({"03sb", byte_image().text("00:00:00.500-00:00:02.000").fill(9, 1)});
        while (mp3 * 24 < f * 40 + 60) chunks.push_back({"01wb", filler(40 + mp3++ % 3, f)});
        while (pcm * 100 < f * 40) chunks.push_back({"02wb", filler(160, pcm++)});
        chunks.push_back({"00dc", filler(f % 5 == 0 ? 90 : 17, f), f % 5 == 0});
    }
    return make_indexed(hdrl({video_list(1, 25), audio_list(0x55, 48000, 1152, 1152, 48000),
                              audio_list(1, 8000, 2, 1, 8000, 1600), bitmap_subtitle_list()}),
                        chunks)
        .bytes;
}

// Runs every index call the way an application would; the results are not
// looked at, only that the calls come back.
void exercise(aviin_handle *h) {
    uint32_t a = 0, b = 0, c = 0, d = 0;
    for (uint32_t n = 0; n < 200; ++n)
        if (aviin_get_idx1_entry(h, n, &a, &b, &c, &d) != 0) break;
    aviin_get_start_end_by_time(h, 1, 1, 0.1f, 0.9f, &a, &b);
    aviin_get_start_end_by_time(h, 2, 1, 0.1f, 0.9f, &a, &b);
    aviin_goto_idx1_sample(h, 7);
    std::vector<keyindex_entry> storage(8);
    keyindex_table t;
    if (aviin_init_keyindex(h, &t, storage.data(), 8, 0) == 0) {
        int calls = 0;
        while (aviin_build_keyindex_entry(h, &t, 16) == 0 && ++calls < 1000) {
        }
    }
    for (int32_t f = -1; f < 45; f += 3) {
        keyindex_entry e;
        uint64_t pos = 0, p1 = 0, p2 = 0, p3 = 0;
        if (aviin_read_key_table_by_frame_no(h, &t, f, &e, -1) == 0) {
            aviin_get_video_offset(h, e, 0, f, &pos);
            keyindex_entry next;
            aviin_get_next_key_index(h, &t, &e, &next, 1);
        }
        aviin_get_chunk_offsets(h, &t, 0, f, f + 4, 2.0f, &pos, &p1, 1, &p2, &p3);
        aviin_get_chunk_offsets(h, &t, 1, f, f + 4, 2.0f, &pos, &p1, 2, &p2, &p3);
        aviin_get_subtitle_offset(h, &t, 0, 3, f, &pos, &a);
    }
}

TEST(index_damage, files_cut_at_every_length) {
    const byte_image source = damage_source();
    const auto start = std::chrono::steady_clock::now();
    int opened = 0;
    for (size_t cut = 0; cut <= source.size(); cut += 5) {
        open_file h(source.head(cut));
        if (h.get() == nullptr) continue;
        ++opened;
        exercise(h);
    }
    EXPECT_GT(opened, 100);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(120));
}

TEST(index_damage, bytes_of_movi_and_idx1_overwritten) {
    const byte_image source = damage_source();
    const size_t movi = static_cast<size_t>(source.find("movi"));
    std::mt19937 random(29);
    std::uniform_int_distribution<size_t> where(movi, source.size() - 1);
    std::uniform_int_distribution<uint32_t> what(0, 255);
    for (int round = 0; round < 300; ++round) {
        byte_image damaged = source;
        const int hits = 1 + round % 8;
        for (int i = 0; i < hits; ++i) {
            const size_t at = where(random);
            // Sometimes a whole 32-bit field, to hit sizes and offsets whole.
            if (i % 2 == 0 && at + 4 <= damaged.size())
                damaged.set_u32(at & ~size_t(3), random());
            else
                damaged.set_u8(at, what(random));
        }
        open_file h(damaged);
        if (h.get() == nullptr) continue;
        SCOPED_TRACE("round " + std::to_string(round));
        exercise(h);
    }
}

}  // namespace
