// What the writing commands (mux, remux, sample) share: a writer handle with
// a tally of what went into each stream, files continued when the writer
// reaches its size limit, the summary they print (a table, or JSON with
// --json), the options mux and remux share and the temporary menu list file.
#pragma once

#include "command_line.h"
#include "kelqavi.h"
#include "read_mode.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace kelqtool {

class json_writer;
class loss_report;

// One stream as written, over every file.
struct written_stream {
    int32_t number = 0;
    uint32_t kind = 0;     // the chunk type codes: 1 audio, 3 video, 5 text caption, 6 bitmap caption, 7 chapter
    std::string codec;     // compression FourCC, or "PCM", "tag 0x0055" for audio
    std::string name;
    uint64_t chunks = 0;
    uint64_t bytes = 0;    // data bytes, headers and pad bytes not counted
};

// One file written: the first, then one more each time the writer reaches
// its size limit.
struct written_file {
    std::string path;
    int64_t size = 0;
    int32_t segments = 0;  // RIFF forms written ("AVI " and "AVIX")
    uint64_t chunks = 0, bytes = 0;
};

// The name of the n-th file (n from 2): "OUT.avi" gives "OUT-2.avi", a name
// without an extension gets "-2" at its end.
std::string continuation_path(const std::string &first, size_t n);

class avi_output {
public:
    avi_output() = default;
    ~avi_output();  // closes a writer still open (the file is finished as far as it got)
    avi_output(const avi_output &) = delete;
    avi_output &operator=(const avi_output &) = delete;

    // aviout_open; false with a reason in error when the file cannot be
    // created. standard sets the writer's standard_profile: the form every
    // player reads, rather than the designed bytes.
    bool open(const char *path, bool odml, bool standard, std::string &error);
    // The handle of the file being written, for the caller-set fields. They
    // are set before the first stream and carried into every next file.
    aviout_handle *handle() { return w_; }

    // The stream setters, with the stream noted for the summary and kept for
    // the next files. False with a reason in error when the writer refuses
    // the stream. number gets the stream number.
    bool add_video(const video_stream_format &record, double frame_duration, int32_t &number, std::string &error);
    bool add_audio(const audio_stream_format &record, double frame_duration, int32_t &number, std::string &error);
    bool add_text_caption(const caption_stream_format &record, int32_t &number, std::string &error);
    bool add_bitmap_caption(const video_stream_format &record, int32_t &number, std::string &error);
    bool add_chapter(const caption_stream_format &record, int32_t &number, std::string &error);
    // aviout_set_strd_info, aviout_set_metadata_info and aviout_set_menu_info,
    // kept for the next files the same way.
    bool set_strd(const uint8_t *data, int32_t size, std::string &error);
    bool set_metadata(const uint8_t *data, int32_t size, std::string &error);
    bool set_menu(const uint8_t *data, int32_t size, std::string &error);

    // aviout_put_chunk, counted. 0 written; 1 the file could not be written
    // (write_error() says why; the file is incomplete). When the chunk takes
    // the file to the writer's size limit the file is finished, and the next
    // chunk goes into a next file with the same streams and blocks. A chunk
    // that finds its stream's OpenDML index full is written all the same
    // (index_full is then set; idx1 still lists it).
    int put(int32_t stream, uint32_t flags, const uint8_t *data, uint32_t size);
    const std::string &write_error() const { return write_error_; }

    // Finishes the file being written with aviout_close2. False with a reason
    // when it could not be finished.
    bool close(std::string &error);
    // The file being written, or the last one finished.
    const std::string &current_path() const { return current_; }

    // Data bytes written into output stream `number`, over every file.
    const written_stream *stream(int32_t number) const;

    // What the summary shows.
    std::string path;
    bool odml = false;
    bool standard = false;      // written with the writer's standard profile
    bool swapped_ids = false;
    // remux: how its input was read, for the summary's "tolerated" line.
    const read_mode *input_mode = nullptr;
    uint32_t input_tolerated = 0;
    double checkpoint_seconds = 0;
    std::vector<written_stream> streams;
    std::vector<written_file> files;  // finished files
    uint64_t menu_bytes = 0, metadata_bytes = 0;
    bool index_full = false;

    // "Wrote PATH: ..." for each file and a table of streams, with the losses
    // when there are any; or the same as JSON.
    void print_summary(FILE *out, bool json, const loss_report *losses = nullptr) const;

private:
    using setup_step = std::function<int(aviout_handle *, int32_t &)>;
    bool run_step(setup_step step, int32_t &number);
    bool add_caption(const caption_stream_format &record, bool chapter, int32_t &number, std::string &error);
    bool note(bool ok, int32_t stream, uint32_t kind, const std::string &codec, const char *name,
              int32_t name_length, std::string &error);
    bool set_block(int (*setter)(aviout_handle *, const uint8_t *, int32_t), const uint8_t *data, int32_t size,
                   const char *what, std::string &error);
    bool finish_file(std::string &error);
    bool start_next_file();
    bool write_failed() const;
    void summary_json(json_writer &j, const loss_report *losses) const;

    // The writer's caller-set fields, carried from one file to the next.
    struct caller_fields {
        double index_chunk_seconds = 0, checkpoint_seconds = 0;
        uint32_t odml_timing_mode = 0, swapped_ids = 0, extension_list = 0, checkpoint_sync = 0, standard_profile = 0;
        const char *menu_file_head = nullptr, *menu_file_tail = nullptr;
        void take(const aviout_handle &w);
        void give(aviout_handle &w) const;
    };

    aviout_handle *w_ = nullptr;
    std::string current_;
    caller_fields settings_;
    std::vector<setup_step> setup_;   // every setter call, in order, for the next files
    bool pending_next_ = false;       // the size limit was reached: the next chunk opens a file
    uint64_t chunks_in_file_ = 0, bytes_in_file_ = 0;
    std::string write_error_;
};

// Removes a file the writer left incomplete, or empty. Only a regular file
// is removed: an output such as /dev/null or a pipe is left alone.
void remove_output(const std::string &path);

// A new empty file "STEM-XXXXXX" in $TMPDIR (or /tmp): its path, or empty
// with a reason in error.
std::string temporary_path(const char *stem, std::string &error);

// A temporary file holding LIST 'KMNU' around a whole "MENU" chunk (header
// included), for the writer's menu_file_head to copy into the header area,
// where the reader takes the menu block from. Removed when this goes.
class menu_list_file {
public:
    menu_list_file() = default;
    ~menu_list_file();
    menu_list_file(const menu_list_file &) = delete;
    menu_list_file &operator=(const menu_list_file &) = delete;

    // False when the file cannot be made (path() empty, a reason in error)
    // or written.
    bool write(const uint8_t *chunk, uint32_t size, std::string &error);
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

// A FourCC held in four chars (not NUL-terminated) as text, stopping at a NUL.
std::string fourcc_chars(const char code[4]);

// What mux and remux share on their command lines.
struct write_options {
    bool odml = false, swapped_ids = false, designed = false, json = false;
    const char *checkpoint = nullptr;  // --checkpoint as given
    double checkpoint_seconds = 0;     // as parse_checkpoint read it

    void take(const command_options &line);
};

// Opens the writer on path as the options say, with a standard index every
// minute of a stream and the metadata block in a LIST 'KQDT', where the
// reader finds it. False, with a line printed, when it cannot be opened.
bool open_writer(avi_output &out, const char *path, const write_options &o);

// "--checkpoint SECONDS": 0 (off) or a number of seconds above 0, such as 10
// or 0.5. False, with a line printed, for anything else.
bool parse_checkpoint(const char *command, const char *text, double &seconds);

}  // namespace kelqtool
