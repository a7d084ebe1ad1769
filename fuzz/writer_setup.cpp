// The writer target's set-up: the open and its caller-set fields, the menu
// files copied in, the AVI an appending writer writes after, and the payload
// pattern every chunk and block is cut from.
#include "writer_program.h"

#include <cstring>
#include <vector>

namespace fuzz {

namespace {

constexpr size_t payload_bytes = 64 * 1024;

// A prepared menu list: LIST "KMNU" holding one "MENU" chunk whose first 8
// data bytes receive the position the writer copies the file to.
bool write_menu_file(const char *path, uint32_t menu_size, uint8_t seed) {
    std::vector<uint8_t> b;
    auto add32 = [&b](uint32_t v) {
        for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    b.insert(b.end(), {'L', 'I', 'S', 'T'});
    add32(4 + 8 + menu_size);
    b.insert(b.end(), {'K', 'M', 'N', 'U', 'M', 'E', 'N', 'U'});
    add32(menu_size);
    b.insert(b.end(), 8, 0);
    b.insert(b.end(), payload(seed), payload(seed) + menu_size - 8);
    return write_file(path, b.data(), b.size());
}

// The file an appending writer finds: a small AVI of one video frame.
bool write_first_avi(const char *path) {
    aviout_handle *w = aviout_open(path, 0, 0);
    if (w == nullptr) return false;
    video_stream_format v;
    std::memset(&v, 0, sizeof v);
    v.rate = 25;
    v.scale = 1;
    v.width = 8;
    v.height = 8;
    std::memcpy(v.compression, "MJPG", 4);
    int32_t stream = -1;
    aviout_set_video_format(w, &stream, &v, nullptr);
    aviout_put_chunk(w, stream, AVIOUT_KEY_FRAME, payload(1), 10);
    return aviout_close2(w) == 0;
}

}  // namespace

const uint8_t *payload(uint8_t seed) {
    static uint8_t pattern[payload_bytes + 256];
    static bool filled = false;
    if (!filled) {
        for (size_t i = 0; i < sizeof pattern; ++i) pattern[i] = static_cast<uint8_t>(i * 31 + (i >> 8) * 7);
        filled = true;
    }
    return pattern + seed;
}

aviout_handle *open_writer(byte_source &in, writer_run &run, const char *path) {
    static const double index_seconds[] = {0.0, 0.5, 1.0, 1.5, 2.0, 3.5, 10.0, 60.0};
    static const double checkpoint_seconds[] = {0.0, 0.2, 1.0, 5.0};
    const uint8_t flags = in.u8(), fields = in.u8();
    run.odml = flags & 1;
    run.append = (flags & 2) != 0;
    run.close_with_result = (flags & 4) != 0;
    run.extension_list = (flags >> 3) & 1;
    run.swapped_ids = (flags >> 4) & 1;
    run.standard_profile = (flags >> 5) & 1;
    if (run.append) {
        if (!write_first_avi(path)) return nullptr;
        run.prefix_length = file_length(path);
    }
    aviout_handle *w = aviout_open(path, run.odml, run.append ? 1 : 0);
    if (w == nullptr) return nullptr;
    // The profile is read by the stream setters, so it is set first.
    w->standard_profile = run.standard_profile;
    w->index_chunk_seconds = index_seconds[fields & 7];
    w->checkpoint_seconds = checkpoint_seconds[(fields >> 3) & 3];
    w->checkpoint_sync = (fields >> 5) & 1;
    w->odml_timing_mode = (fields >> 6) & 1;
    w->swapped_ids = run.swapped_ids;
    w->extension_list = run.extension_list;
    if ((flags & 0x40) != 0) {
        run.head_menu_size = 8 + 2 * (in.u8() % 24);
        run.head_menu_seed = in.u8();
        const char *head = scratch_path("head-menu");
        if (write_menu_file(head, run.head_menu_size, run.head_menu_seed)) w->menu_file_head = head;
        else run.head_menu_size = 0;
    }
    if ((flags & 0x80) != 0) {
        const char *tail = scratch_path("tail-menu");
        const uint32_t size = 8 + 2 * (in.u8() % 24);
        run.tail_menu = write_menu_file(tail, size, in.u8());
        if (run.tail_menu) w->menu_file_tail = tail;
    }
    return w;
}

}  // namespace fuzz
