// What the writing commands (mux, remux, sample) share: a writer handle with
// a tally of what went into each stream, the summary they print (a table, or
// JSON with --json), and the reading of "--name VALUE" options.
#pragma once

#include "kelqavi.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kelqtool {

// One stream as written.
struct written_stream {
    int32_t number = 0;
    uint32_t kind = 0;     // the chunk type codes: 1 audio, 3 video, 5 text caption, 6 bitmap caption, 7 chapter
    std::string codec;     // compression FourCC, or "PCM", "tag 0x0055" for audio
    std::string name;
    uint64_t chunks = 0;
    uint64_t bytes = 0;    // data bytes, headers and pad bytes not counted
};

class avi_output {
public:
    avi_output() = default;
    ~avi_output();  // closes a writer still open (the file is finished as far as it got)
    avi_output(const avi_output &) = delete;
    avi_output &operator=(const avi_output &) = delete;

    // aviout_open; false with a reason in error when the file cannot be
    // created.
    bool open(const char *path, bool odml, std::string &error);
    aviout_handle *handle() { return w_; }

    // The stream setters, with the stream noted for the summary. False with
    // a reason in error when the writer refuses the stream. *number gets the
    // stream number.
    bool add_video(const video_stream_format &record, double frame_duration, int32_t &number, std::string &error);
    bool add_audio(const audio_stream_format &record, double frame_duration, int32_t &number, std::string &error);
    bool add_text_caption(const caption_stream_format &record, int32_t &number, std::string &error);
    bool add_bitmap_caption(const video_stream_format &record, int32_t &number, std::string &error);
    bool add_chapter(const caption_stream_format &record, int32_t &number, std::string &error);

    // aviout_put_chunk, counted. 0 written, 1 failure, 4 written and the
    // file has reached the writer's size limit (close it).
    int put(int32_t stream, uint32_t flags, const uint8_t *data, uint32_t size);

    // aviout_close, then the size of the file. False with a reason when the
    // file could not be finished.
    bool close(std::string &error);

    // What the summary shows.
    std::string path;
    bool odml = false;
    bool swapped_ids = false;
    std::vector<written_stream> streams;
    int32_t segments = 0;      // RIFF forms written ("AVI " and "AVIX")
    int64_t file_size = 0;
    uint64_t menu_bytes = 0, metadata_bytes = 0;
    bool size_limit_reached = false;
    uint64_t skipped_streams = 0, skipped_chunks = 0;  // input not copied (remux)

    // "Wrote PATH: ..." and a table of streams, or the same as JSON.
    void print_summary(FILE *out, bool json) const;

private:
    bool note(int result, int32_t stream, uint32_t kind, const std::string &codec, const char *name,
              int32_t name_length, int32_t &number, std::string &error);
    aviout_handle *w_ = nullptr;
};

// The chunk type code's stream kind as a word: "video", "text caption", ...
const char *stream_kind_word(uint32_t kind);

// A FourCC held in four chars (not NUL-terminated) as text, stopping at a NUL.
std::string fourcc_chars(const char code[4]);

// Reads the value of an option given as "--name VALUE" or "--name=VALUE".
// Returns 0 when argv[i] is not this option, 1 when it is (value set, i moved
// past a separate value), -1 when the value is missing (a line printed).
int option_value(const char *command, int argc, char **argv, int &i, const char *name, const char *&value);

}  // namespace kelqtool
