// Feeds arbitrary bytes to the list walker and every header-record reader.
// Built as a libFuzzer target with clang, and as a corpus replayer in every
// test build.
#include "kelqavi.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int max_steps = 1024;
constexpr uint32_t max_depth = 32;

// Calls every record reader at the stream's position, rewinding in between.
void read_records(FILE *f, int64_t at) {
    avi_main_header avih;
    avi_stream_header strh;
    video_format video;
    audio_format audio;
    caption_format caption;
    stream_name name = {0, nullptr};
    stream_data_block data = {0, 0, nullptr, 0};
    file_seek(f, at, 0), read_header_avih(&avih, f);
    file_seek(f, at, 0), read_header_strh(&strh, f);
    file_seek(f, at, 0), read_header_strf_video(&video, f);
    file_seek(f, at, 0), read_header_strf_audio(&audio, f);
    file_seek(f, at, 0), read_header_strf_chapter(&caption, f);
    file_seek(f, at, 0), read_header_strn(&name, f);
    file_seek(f, at, 0), read_header_strd_video(&data, f);
    std::free(name.name);
    std::free(data.data);
}

// Walks the lists the way a reader does, entering every RIFF and LIST.
void walk(FILE *f, int64_t file_size) {
    list_node *node = new_list(nullptr, f);
    int steps = 0;
    while (node != nullptr && steps++ < max_steps) {
        // A list whose size runs past the file would be walked on through
        // nothing; a reader stops at the end of the file.
        if (end_of_list(node) || node->next_pos >= file_size) {
            node = ascend_list(node);
            continue;
        }
        const uint32_t id = next_chunk_in_list(node);
        const int64_t here = file_tell(f);
        uint32_t size = 0, type = 0, status = 0;
        chunk_look_ahead(f, nullptr, &size, &type, &status);
        get_chunk_type(id, 1);
        fourCC_streamID(id, 1);
        if ((fourCC_equal(id, make_fourCC("LIST")) || fourCC_equal(id, make_fourCC("RIFF"))) &&
            node->depth < max_depth) {
            list_node *child = new_list(node, f);
            if (child != nullptr) node = child;
            continue;
        }
        read_records(f, here);
        file_seek(f, node->next_pos, 0);
    }
    delete_list_recursive(node);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    // A memory stream keeps the target free of file-system calls.
    std::vector<uint8_t> copy(data, data + size);
    FILE *f = fmemopen(copy.data(), copy.size(), "rb");
    if (f == nullptr) return 0;
    walk(f, static_cast<int64_t>(size));
    read_records(f, 0);
    std::fclose(f);
    return 0;
}
