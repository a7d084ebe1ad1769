// "kelqavi frame FILE N": finds frame N of the first video stream the way an
// application does: the key frame at or before it from the key-frame table,
// then the chunk headers from there (aviin_get_video_offset). With --audio
// the chunk of an audio stream playing at the frame's time is found by
// stepping that stream's chunks from where the key frame's entry points;
// with --extract the frame's data is written to a file.
#include "frame_command.h"

#include "command_line.h"
#include "diagnostics.h"
#include "json_writer.h"
#include "key_session.h"
#include "output_format.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace kelqtool {

namespace {

constexpr uint32_t largest_extract = 1u << 30;
constexpr uint64_t step_limit = 10000000;  // headers stepped looking for the audio chunk

struct audio_found {
    bool asked = false;
    bool found = false;
    std::string why;  // when not found
    uint32_t stream = 0;
    int64_t offset = 0;
    uint32_t size = 0;
    double start = 0, end = 0;
};

// Steps the audio stream's chunks from the key frame's entry until the one
// whose playing time covers `at` seconds.
audio_found find_audio(key_session &s, const keyindex_entry &key, const audio_stream_info &a, double at) {
    audio_found r;
    r.asked = true;
    r.stream = a.number;
    if (a.slot >= KELQAVI_KEY_AUDIO_STREAMS) {
        r.why = "the key-frame table follows the first 8 audio streams only";
        return r;
    }
    if (key.audio_offset[a.slot] == KELQAVI_NOT_FOUND || s.index_base < 0) {
        r.why = "no chunk of it plays at the key frame's time";
        return r;
    }
    if (aviin_seek_by_offset(s.h, static_cast<uint64_t>(s.absolute(key.audio_offset[a.slot]))) != 0) {
        r.why = "its chunk lies past the end of the file";
        return r;
    }
    uint64_t before = key.audio_count[a.slot];
    int64_t last_header = -1;
    for (uint64_t steps = 0; steps < step_limit; ++steps) {
        uint32_t type = 0, stream = 0, size = 0;
        uint64_t data = 0;
        if (aviin_get_next_chunk_type(s.h, &type, &stream, &data, &size) != 0) break;
        const int64_t header = static_cast<int64_t>(data) - (type == KELQAVI_CHUNK_UNKNOWN ? 4 : 8);
        if (header <= last_header) break;  // a size that steps backwards
        last_header = header;
        if (type != KELQAVI_CHUNK_AUDIO || stream != a.number) continue;
        const uint64_t after = before + (a.fixed ? 1 : size);
        const double start = a.time_at(before), end = a.time_at(after);
        if (start > at) break;
        if (at < end) {
            r.found = true;
            r.offset = header;
            r.size = size;
            r.start = start;
            r.end = end;
            return r;
        }
        before = after;
    }
    r.why = "no chunk of it plays at the frame's time";
    return r;
}

}  // namespace

void print_frame_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi frame [--json] [--strict] [--audio S] [--extract OUT] FILE N\n"
                 "\n"
                 "Finds frame N (from 0) of the first video stream of FILE as an application\n"
                 "does with the library: the key frame at or before N from the key-frame table\n"
                 "built from idx1, then chunk headers stepped from there. Prints the offset of\n"
                 "the frame's chunk header, its data offset and size, its time and the key\n"
                 "frame it was reached from.\n"
                 "\n"
                 "Options:\n"
                 "  --audio S       also find the chunk of audio stream S playing at the\n"
                 "                  frame's time, stepping that stream's chunks from the one\n"
                 "                  the key frame's table entry names\n"
                 "  --extract OUT   write the frame's data to the file OUT\n"
                 "  --json          print the same as JSON\n"
                 "%s"
                 "  -h, --help      show this help\n"
                 "\n"
                 "Exit status: 0 the frame was found; 1 FILE cannot be read, has no video\n"
                 "stream or no idx1, N is not a frame of it (beyond the last, or before the\n"
                 "first key frame), S is not an audio stream, or OUT cannot be written; 2 usage\n"
                 "error; 3 the index does not describe the file, or the walk from the key\n"
                 "frame did not reach frame N.\n",
                 strict_option_help);
}

namespace {

// Frame N as found from its key frame: the chunk, and the audio playing with it.
struct frame_found {
    int32_t frame = 0;
    keyindex_entry key{};
    uint64_t header = KELQAVI_NOT_FOUND;
    uint32_t id = 0, size = 0;
    double time = 0;
    audio_found audio;
};

// Reads the command line into what is asked. exit_ok with stop false to go on.
int parse_frame_line(int argc, char **argv, command_options &options, long long &n, long long &audio_number,
                     bool &stop) {
    const int parsed = parse_command_line({"frame", {"--json", "--strict"}, {"--audio", "--extract"}, 2, 0, "FILE N",
                                           print_frame_help, too_many_arguments},
                                          argc, argv, options, stop);
    if (stop) return parsed;
    stop = true;
    if (!parse_number(options.operands[1], 0, 0x7FFFFFFF, n)) {
        print_error("frame number '%s' is not a number from 0 to 2147483647", options.operands[1]);
        return exit_usage;
    }
    if (const std::string *a = options.value("--audio"); a != nullptr && !parse_number(*a, 0, 99, audio_number)) {
        print_error("audio stream '%s' is not a stream number from 0 to 99", a->c_str());
        return exit_usage;
    }
    stop = false;
    return exit_ok;
}

// Finds the frame's chunk through the key-frame table. exit_ok, or the exit
// status with a line printed.
int find_frame(key_session &s, const char *path, frame_found &f) {
    if (aviin_read_key_table_by_frame_no(s.h, &s.table, f.frame, &f.key, -1) != 0) {
        if (static_cast<uint32_t>(f.frame) >= s.table.frames_scanned)
            print_error("'%s' has %u frames: frame %d is beyond the last", path, s.table.frames_scanned, f.frame);
        else
            print_error("frame %d of '%s' comes before its first key frame", f.frame, path);
        return exit_bad_input;
    }
    uint8_t bytes[8] = {0};
    if (aviin_get_video_offset(s.h, f.key, s.video_stream, f.frame, &f.header) != 0 || f.header == KELQAVI_NOT_FOUND ||
        aviin_get_chunk(s.h, f.header, bytes, sizeof bytes) != 0) {
        print_error("the walk from key frame %u did not reach frame %d of '%s'", f.key.frame_no, f.frame, path);
        return exit_problems;
    }
    f.id = str2long(bytes);
    f.size = str2long(bytes + 4);
    f.time = f.frame * s.frame_seconds();
    return exit_ok;
}

// Writes the frame's data to the file `to`. exit_ok, or the exit status with
// a line printed.
int extract_frame(key_session &s, const char *path, const frame_found &f, const std::string &to) {
    if (f.size > largest_extract || static_cast<int64_t>(f.header + 8 + f.size) > s.file_size) {
        print_error("frame %d's chunk claims %u bytes, which '%s' does not hold: not extracted", f.frame, f.size, path);
        return exit_problems;
    }
    std::vector<uint8_t> data(f.size);
    if (f.size > 0 && aviin_get_chunk(s.h, f.header + 8, data.data(), f.size) != 0) {
        print_error("frame %d's data runs past the end of '%s'", f.frame, path);
        return exit_problems;
    }
    FILE *out = std::fopen(to.c_str(), "wb");
    const bool written = out != nullptr && (f.size == 0 || std::fwrite(data.data(), 1, f.size, out) == f.size);
    if (out == nullptr || std::fclose(out) != 0 || !written) {
        print_error("cannot write '%s': %s", to.c_str(), std::strerror(errno));
        return exit_bad_input;
    }
    return exit_ok;
}

void print_json(const char *path, key_session &s, const frame_found &f, const std::string *extract) {
    using jw = json_writer;
    jw j;
    j.begin_object();
    j.field("file", jw::text(path));
    j.field("video_stream", jw::number(s.video_stream));
    j.field("frame", jw::number(f.frame));
    j.field("time", jw::decimal(f.time));
    j.field("offset", jw::number(f.header));
    j.field("id", jw::fourcc(f.id));
    j.field("data_offset", jw::number(f.header + 8));
    j.field("size", jw::number(f.size));
    j.field("key_frame", jw::number(f.key.frame_no));
    j.field("key_offset", jw::number(s.absolute(f.key.video_offset)));
    if (f.audio.asked) {
        j.begin_object("audio", true);
        j.field("stream", jw::number(f.audio.stream));
        j.field("offset", f.audio.found ? jw::number(f.audio.offset) : jw::null());
        if (f.audio.found) {
            j.field("size", jw::number(f.audio.size));
            j.field("start", jw::decimal(f.audio.start));
            j.field("end", jw::decimal(f.audio.end));
        }
        j.end_object();
    }
    j.field("extracted", extract != nullptr ? jw::text(*extract) : jw::null());
    tolerated_json(j, s.mode, s.tolerated());
    j.end_object();
    j.write(stdout);
}

void print_text(key_session &s, const frame_found &f, const std::string *extract) {
    std::printf("frame %d of video stream %u: chunk %s at %llu, data at %llu, %u bytes, time %s s\n", f.frame,
                s.video_stream, fourcc_text(f.id).c_str(), static_cast<unsigned long long>(f.header),
                static_cast<unsigned long long>(f.header + 8), f.size, seconds_text(f.time).c_str());
    std::printf("reached from key frame %u at %lld, %d frames on\n", f.key.frame_no,
                static_cast<long long>(s.absolute(f.key.video_offset)), f.frame - static_cast<int32_t>(f.key.frame_no));
    const audio_found &a = f.audio;
    if (a.asked && a.found)
        std::printf("audio stream %u: chunk at %lld, %u bytes, plays %s to %s s\n", a.stream,
                    static_cast<long long>(a.offset), a.size, seconds_text(a.start).c_str(), seconds_text(a.end).c_str());
    else if (a.asked)
        std::printf("audio stream %u: none: %s\n", a.stream, a.why.c_str());
    if (extract != nullptr) std::printf("wrote %u bytes to %s\n", f.size, extract->c_str());
    if (!s.mode.strict) std::printf("tolerated: %s\n", tolerance_words(s.tolerated()).c_str());
}

}  // namespace

int run_frame_command(int argc, char **argv) {
    command_options options;
    long long n = 0, audio_number = -1;
    bool stop = false;
    const int parsed = parse_frame_line(argc, argv, options, n, audio_number, stop);
    if (stop) return parsed;
    const char *path = options.operands[0];
    key_session s;
    const int opened = s.open(path, true, read_mode{options.has("--strict")});
    if (opened != exit_ok) return opened;
    const audio_stream_info *audio = nullptr;
    for (const audio_stream_info &a : s.audio)
        if (audio_number >= 0 && a.number == static_cast<uint32_t>(audio_number)) audio = &a;
    if (audio_number >= 0 && audio == nullptr) {
        print_error("stream %lld of '%s' is not an audio stream", audio_number, path);
        return exit_bad_input;
    }
    frame_found f;
    f.frame = static_cast<int32_t>(n);
    int status = find_frame(s, path, f);
    if (status != exit_ok) return status;
    if (audio != nullptr) f.audio = find_audio(s, f.key, *audio, f.time);
    const std::string *extract = options.value("--extract");
    if (extract != nullptr && (status = extract_frame(s, path, f, *extract)) != exit_ok) return status;
    if (options.has("--json"))
        print_json(path, s, f, extract);
    else
        print_text(s, f, extract);
    return flush_stdout() ? exit_ok : exit_bad_input;
}

}  // namespace kelqtool
