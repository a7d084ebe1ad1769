// The writer target: the fuzzed bytes are a program of writer calls. What the
// program gave the writer is kept here, so that the file it wrote can be read
// back with the reader and checked against it.
#pragma once

#include "fuzz_support.h"
#include "kelqavi.h"

#include <cstdint>
#include <vector>

namespace fuzz {

constexpr int32_t writer_stream_limit = 19;

// A chunk the writer took: a stream it has, data (or none with size 0).
struct put_call {
    int32_t stream;
    uint32_t flags;
    uint32_t size;
    uint8_t seed;   // the data are payload(seed)
    bool indexed;   // the put said 0: with OpenDML, the chunk is in its track's index
};

// A stream the writer numbered, with the record it was given.
struct stream_given {
    uint32_t kind;               // 1 audio, 3 video, 5 text caption, 6 bitmap caption, 7 chapter
    video_stream_format picture; // video and bitmap caption streams (names not kept)
    audio_stream_format audio;   // audio streams (name not kept)
};

struct writer_run {
    uint32_t odml = 0, swapped_ids = 0, extension_list = 0, standard_profile = 0;
    bool append = false;
    bool close_with_result = false;   // aviout_close2, else aviout_close
    int64_t prefix_length = 0;        // bytes before this AVI (a file of its own when appending)
    uint32_t head_menu_size = 0;      // data size of the MENU chunk in the head menu file; 0: none
    uint8_t head_menu_seed = 0;
    bool tail_menu = false;
    int32_t stream_count = 0;         // the writer's own count at close
    stream_given streams[writer_stream_limit] = {};
    int32_t vids_streams = 0, txts_streams = 0;   // numbered streams by strh type
    bool metadata_given = false;
    bool negative_name = false;       // a stream given with a name length below 0
    int32_t metadata_size = 0;
    uint8_t metadata_seed = 0;
    std::vector<put_call> puts;
    bool closed_complete = false;     // aviout_close2 said 0
    bool finished = true;             // false for the file as a checkpoint left it
};

// Bytes of a payload: a pattern that differs with the seed. 64 KiB are there.
const uint8_t *payload(uint8_t seed);

// What the program says before its operations: the open, the caller-set
// fields, the menu files, the AVI appended to. Null when the writer cannot
// be opened.
aviout_handle *open_writer(byte_source &in, writer_run &run, const char *path);

// Reads the written file back and checks it against the run.
void read_back(const char *path, const writer_run &run);
// With OpenDML, every track's indexes list its chunks as they were put.
void check_odml_indexes(const char *path, const writer_run &run);
// Where the data of each data chunk of the AVI written lies, in file order
// (the order they were put), read from the file's bytes.
std::vector<uint64_t> chunk_data_positions(const char *path, const writer_run &run);
// Without OpenDML, the key-frame table leads to every frame of the first
// video stream.
void check_frame_lookups(aviin_handle *h, const char *path, const writer_run &run);
// The file on disk as the last checkpoint left it, the first `puts` chunks
// put then, read back while the writer goes on.
void read_back_checkpoint(const char *path, const writer_run &run, size_t puts, const aviout_handle *w);

}  // namespace fuzz
