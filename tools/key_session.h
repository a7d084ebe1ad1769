// What the keys, frame and subs commands share: a reader opened on a file,
// its first video stream, its audio and bitmap-subtitle streams, and a
// key-frame table built over the whole legacy index.
#pragma once

#include "kelqavi.h"
#include "read_mode.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kelqtool {

struct audio_stream_info {
    uint32_t number = 0;     // stream number
    uint32_t slot = 0;       // index among audio streams: the table's audio field
    bool fixed = false;      // one MPEG audio frame a chunk (block alignment 576 or 1152)
    uint32_t block_align = 0, samples_per_sec = 0;
    uint32_t rate = 0;       // bytes a second of byte-counted audio
    // Seconds from the stream's start to where `count` chunks (fixed) or
    // bytes (otherwise) have played.
    double time_at(uint64_t count) const;
};

class key_session {
public:
    key_session() = default;
    ~key_session();
    key_session(const key_session &) = delete;
    key_session &operator=(const key_session &) = delete;

    // Opens the file and builds the table. On failure prints one line and
    // returns the exit status (1: cannot be read, no video or no idx1; 3:
    // the index does not describe the file); exit_ok otherwise. Without
    // require_index a file with no idx1 (or a bad one) opens with
    // has_table false. The file is opened as mode says.
    int open(const char *path, bool require_index, read_mode mode);

    aviin_handle *h = nullptr;
    uint32_t video_stream = 0;
    video_stream_format video{};
    uint32_t video_length = 0;  // the stream header's length in frames
    std::vector<audio_stream_info> audio;
    std::vector<uint32_t> bitmap_subtitles;  // stream numbers
    std::vector<keyindex_entry> storage;
    keyindex_table table{};
    bool has_table = false;
    int64_t index_base = -1;
    read_mode mode;
    int build_result = 0;  // the key-table build's last result: 3 read to the end, 1 failed
    int64_t file_size = 0;
    int64_t movi_start = -1;  // the first chunk of the first 'movi' list  // file position idx1 offsets count from; -1 while unknown

    double frame_seconds() const;
    // The tolerances the file has needed so far.
    uint32_t tolerated() const { return tolerances_needed(h); }
    // The file position of an idx1-style offset, learned from the first key
    // frame (the public calls give absolute positions only).
    int64_t absolute(uint64_t relative) const { return index_base + static_cast<int64_t>(relative); }

private:
    bool take_streams();  // false when no video stream can be used
    int build_table(const char *path, bool require_index);
};

// A time as seconds with three decimals.
std::string seconds_text(double seconds);

}  // namespace kelqtool
