// Hostile size fields do not make aviin_open allocate more than the file
// holds. The suite is linked with malloc, calloc and realloc wrapped (see
// tests/CMakeLists.txt), so every request the library's objects make passes
// through here and the largest one made while a file opens is recorded.
#include <gtest/gtest.h>

#include <cstddef>

#include "reader/reader_handle.h"
#include "support/avi_image.h"

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
}

namespace {

// List nodes and other small records of fixed size.
constexpr size_t small_records = 256;

bool recording = false;
size_t largest = 0;

void note(size_t bytes) {
    // The reader handle is one fixed record: it is not sized from the file.
    if (recording && bytes != sizeof(aviin_handle) && bytes > largest) largest = bytes;
}

}  // namespace

extern "C" {
void *__wrap_malloc(size_t size) {
    note(size);
    return __real_malloc(size);
}
void *__wrap_calloc(size_t count, size_t size) {
    note(count * size);
    return __real_calloc(count, size);
}
void *__wrap_realloc(void *block, size_t size) {
    note(size);
    return __real_realloc(block, size);
}
}

namespace {

using namespace kelqtest;

// A chunk with a real body whose size field then claims `claim` bytes.
byte_image claimed(const char *id, const char *body, uint32_t claim) {
    return byte_image().id(id).u32(claim).text(body);
}

byte_image file_with(const byte_image &strl_body, const byte_image &lists_before = byte_image()) {
    return avi_form(byte_image().append(lists_before).append(hdrl({strl(strl_body)})).append(one_frame_movi()));
}

byte_image video_with(const byte_image &after_format) {
    return byte_image().append(strh_chunk("vids", "MJPG", 1, 25, 1)).append(strf_video_chunk(64, 48, "MJPG")).append(after_format);
}

TEST(AllocationBound, OpeningHostileFilesAllocatesNoMoreThanTheFileHolds) {
    // The name's size claims the most a signed 16-bit length allows, and the
    // bytes that follow in the file are far fewer. Every kind of stream reads
    // its name through the same call.
    const byte_image long_name = claimed("strn", "Video", 0x7FFF);
    const struct { const char *what; byte_image image; } rows[] = {
        {"video name of 0x7FFF bytes", avi_form(byte_image().append(hdrl({strl(video_with(long_name))})))},
        {"strd of 0xFFFFFFF0 bytes", avi_form(hdrl({strl(video_with(byte_image().id("strd").u32(16).u32(0).u32(0xFFFFFFF0u)))}))},
        {"super index of 0xFFFFFFFF entries",
         file_with(video_with(byte_image().id("indx").u32(0xFFFFFFF0u).u16(4).u8(0).u8(0).u32(0xFFFFFFFFu).id("00dc")))},
        {"metadata block of 0x7FFFFFF0 bytes",
         file_with(video_with({}), byte_image().list("LIST", "KQDT", claimed("MTDA", "meta", 0x7FFFFFF0u)))},
        {"video format of 0x7FFFFFF0 bytes, taken whole when tolerated",
         avi_form(hdrl({strl(byte_image().append(strh_chunk("vids", "MJPG", 1, 25, 1)).id("strf").u32(0x7FFFFFF0u).u32(40).fill(36))}))},
        {"menu block of 0xFFFFFFF0 bytes",
         file_with(video_with({}), byte_image().list("LIST", "KMNU", claimed("MENU", "menu", 0xFFFFFFF0u)))},
    };
    for (const auto &row : rows) {
        // The whole image, and the image cut short at every fourth byte.
        for (size_t cut = row.image.size(); cut >= 12; cut = cut > 16 ? cut - 4 : 0) {
            const byte_image image = row.image.head(cut);
            temp_file file(image);
            for (uint32_t tolerances : {0u, AVIIN_TOLERATE_ALL}) {
                largest = 0;
                recording = true;
                aviin_handle *h = tolerances == 0 ? aviin_open(file.path(), 0) : aviin_open_tolerant(file.path(), 0, tolerances);
                recording = false;
                aviin_close(h);
                EXPECT_LE(largest, image.size() + small_records) << row.what << ", " << image.size() << " bytes, tolerances " << tolerances;
            }
        }
    }
}

}  // namespace
