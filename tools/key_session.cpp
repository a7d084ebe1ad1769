#include "key_session.h"

#include "avi_layout.h"
#include "diagnostics.h"

#include <cstdio>
#include <cstdlib>

namespace kelqtool {

double audio_stream_info::time_at(uint64_t count) const {
    if (fixed) return samples_per_sec == 0 ? 0.0 : static_cast<double>(count) * block_align / samples_per_sec;
    return rate == 0 ? 0.0 : static_cast<double>(count) / rate;
}

key_session::~key_session() { aviin_close(h); }

double key_session::frame_seconds() const { return video.rate == 0 ? 0.0 : static_cast<double>(video.scale) / video.rate; }

int key_session::open(const char *path, bool require_index, read_mode how) {
    mode = how;
    avi_layout layout;
    std::string error;
    if (!scan_layout(path, false, 0, layout, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    file_size = layout.file_size;
    h = open_reader(path, 0, layout, mode);
    if (h == nullptr) return exit_bad_input;
    // The reader stands at the first chunk after opening; the key-frame calls
    // move it, so remember where that is.
    uint32_t type = 0, stream = 0, size = 0;
    uint64_t data = 0;
    if (aviin_get_next_chunk_type(h, &type, &stream, &data, &size) == 0) {
        movi_start = static_cast<int64_t>(data) - (type == KELQAVI_CHUNK_UNKNOWN ? 4 : 8);
        aviin_seek_by_offset(h, static_cast<uint64_t>(movi_start));
    }
    if (!take_streams()) {
        print_error("'%s' has no video stream the reader can use", path);
        return exit_bad_input;
    }
    return build_table(path, require_index);
}

bool key_session::take_streams() {
    int32_t count = 0;
    aviin_get_summary(h, &count, nullptr);
    bool have_video = false;
    uint32_t audio_seen = 0;
    for (int32_t s = 0; s < count; ++s) {
        uint32_t kind = 0, length = 0;
        aviin_get_chunk_type(h, static_cast<uint32_t>(s), &kind);
        if (kind == KELQAVI_CHUNK_VIDEO && !have_video && aviin_get_video_format(h, s, &video, &length) == 0) {
            if (video.name_length > 0) std::free(video.name);
            video.name = nullptr;
            video_stream = static_cast<uint32_t>(s);
            video_length = length;
            have_video = true;
        } else if (kind == KELQAVI_CHUNK_AUDIO) {
            audio_stream_format f{};
            const uint32_t slot = audio_seen++;
            if (aviin_get_audio_format(h, s, &f) != 0) continue;
            if (f.name_length > 0) std::free(f.name);
            audio_stream_info a;
            a.number = static_cast<uint32_t>(s);
            a.slot = slot;
            a.block_align = f.wave_format.block_align;
            a.fixed = a.block_align == 576 || a.block_align == 1152;
            a.samples_per_sec = f.wave_format.samples_per_sec;
            // Bytes a second, as the key-frame table times byte-counted audio.
            a.rate = f.wave_format.avg_bytes_per_sec != 0 ? f.wave_format.avg_bytes_per_sec : f.rate;
            audio.push_back(a);
        } else if (kind == KELQAVI_CHUNK_BITMAP_CAPTION) {
            bitmap_subtitles.push_back(static_cast<uint32_t>(s));
        }
    }
    return have_video;
}

int key_session::build_table(const char *path, bool require_index) {
    // The first set-up learns how many entries idx1 has; no more key frames
    // than that can come.
    keyindex_entry one;
    if (aviin_init_keyindex(h, &table, &one, 1, video_stream) != 0) {
        if (!require_index) return exit_ok;
        print_error("'%s' has no legacy index (idx1) to find key frames in", path);
        return exit_bad_input;
    }
    uint64_t capacity = table.entry_total == 0 ? 1 : table.entry_total;
    // No more memory than the file has bytes: a real key frame takes far
    // more room in the file than its entry (120 bytes) in the table. Should
    // a file hold more key frames, the table keeps every second one.
    const uint64_t by_size = static_cast<uint64_t>(file_size) / sizeof(keyindex_entry);
    if (capacity > by_size) capacity = by_size > 0 ? by_size : 1;
    storage.resize(static_cast<size_t>(capacity));
    aviin_init_keyindex(h, &table, storage.data(), static_cast<uint32_t>(capacity), video_stream);
    int r = 0;
    while ((r = aviin_build_keyindex_entry(h, &table, 0)) == 0) {
    }
    build_result = r;
    if (r != 3) {
        if (!require_index) return exit_ok;
        print_error("the legacy index of '%s' does not describe its chunks (stopped at entry %u)%s", path,
                    table.next_entry, mode.strict ? "; without --strict, offsets from the file start are tried too" : "");
        return exit_problems;
    }
    has_table = true;
    uint64_t header = 0;
    if (table.count > 0 &&
        aviin_get_video_offset(h, storage[0], video_stream, static_cast<int32_t>(storage[0].frame_no), &header) == 0)
        index_base = static_cast<int64_t>(header) - static_cast<int64_t>(storage[0].video_offset);
    return exit_ok;
}

std::string seconds_text(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

}  // namespace kelqtool
