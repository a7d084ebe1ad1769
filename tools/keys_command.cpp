// "kelqavi keys FILE": builds the key-frame table of the file's first video
// stream from its legacy index and prints each key frame with where its chunk
// lies and, for each audio stream, the chunk playing at its time.
#include "keys_command.h"

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

std::string audio_cell(const key_session &s, const keyindex_entry &e, const audio_stream_info &a) {
    if (a.slot >= KELQAVI_KEY_AUDIO_STREAMS) return "(not followed)";
    if (e.audio_offset[a.slot] == KELQAVI_NOT_FOUND) return "-";
    return std::to_string(s.absolute(e.audio_offset[a.slot])) + " after " + std::to_string(e.audio_count[a.slot]) +
           (a.fixed ? " chunks" : " bytes");
}

// Why the table holds no key frame, from the idx1 entries of the video
// stream as the reader gives them; empty when it holds one.
std::string no_key_reason(const key_session &s) {
    if (s.table.count > 0) return {};
    const uint32_t v = s.video_stream;
    uint64_t compressed = 0, raw = 0, flagged = 0;
    for (uint32_t e = 0; e < s.table.entry_total; ++e) {
        uint32_t stream = 0, type = 0, size = 0, key = 0;
        if (aviin_get_idx1_entry(s.h, e, &stream, &type, &size, &key) != 0) break;
        if (stream != v || (type != KELQAVI_CHUNK_VIDEO && type != KELQAVI_CHUNK_VIDEO_RAW)) continue;
        ++(type == KELQAVI_CHUNK_VIDEO ? compressed : raw);
        if (key != 0 && (type == KELQAVI_CHUNK_VIDEO || (s.tolerated() & AVIIN_TOLERATE_DB_FRAMES) != 0)) ++flagged;
    }
    const std::string stream = "stream " + std::to_string(v);
    if (compressed == 0 && raw == 0) return "idx1 lists no frame of " + stream;
    if (compressed == 0 && (s.tolerated() & AVIIN_TOLERATE_DB_FRAMES) == 0)
        return "frames are 'db' chunks (read with tolerance, or without --strict)";
    if (flagged == 0) return "no entry carries the key-frame flag";
    return "idx1 offsets do not match the chunks";
}

void print_text(const char *path, const key_session &s) {
    const text_style style = style_for_stdout();
    const keyindex_table &t = s.table;
    std::printf("%s: video stream %u, %u frames, %u key frames (%s)\n", path, s.video_stream, t.frames_scanned,
                t.key_frames_scanned, s.video.rate == 0 ? "no frame rate" : (seconds_text(s.frame_seconds()) + " s a frame").c_str());
    std::printf("table: %u entries of %zu bytes = %s, every %u%s key frame kept\n", t.count, sizeof(keyindex_entry),
                human_size(static_cast<uint64_t>(t.count) * sizeof(keyindex_entry)).c_str(), t.stride,
                t.stride == 1 ? "st" : "th");
    std::printf("\n");
    print_tolerated(stdout, s.mode, s.tolerated());
    using al = column_layout::align;
    std::vector<al> aligns = {al::right, al::right, al::right, al::right, al::right};
    std::vector<std::string> head = {"FRAME", "TIME", "IDX1", "OFFSET", "SIZE"};
    for (const audio_stream_info &a : s.audio) {
        aligns.push_back(al::left);
        head.push_back("AUDIO " + std::to_string(a.number));
    }
    column_layout table(aligns);
    table.measure(head);
    std::vector<std::vector<std::string>> rows;
    for (uint32_t i = 0; i < t.count; ++i) {
        const keyindex_entry &e = s.storage[i];
        std::vector<std::string> row = {std::to_string(e.frame_no), seconds_text(e.frame_no * s.frame_seconds()),
                                        std::to_string(e.index_position / 16), std::to_string(s.absolute(e.video_offset)),
                                        std::to_string(e.video_size)};
        for (const audio_stream_info &a : s.audio) row.push_back(audio_cell(s, e, a));
        table.measure(row);
        rows.push_back(row);
    }
    std::printf("%s\n", paint(table.render(head), sgr::bold, style.colour).c_str());
    for (const auto &row : rows) std::printf("%s\n", table.render(row).c_str());
    if (t.count == 0) std::printf("(no key frames: %s)\n", no_key_reason(s).c_str());
}

void print_json(const char *path, const key_session &s) {
    using jw = json_writer;
    const keyindex_table &t = s.table;
    jw j;
    j.begin_object();
    j.field("file", jw::text(path));
    j.field("video_stream", jw::number(s.video_stream));
    j.field("frame_seconds", jw::decimal(s.frame_seconds()));
    j.field("frames", jw::number(t.frames_scanned));
    j.field("key_frames", jw::number(t.key_frames_scanned));
    j.field("entries", jw::number(t.count));
    j.field("entry_bytes", jw::number(static_cast<uint32_t>(sizeof(keyindex_entry))));
    j.field("stride", jw::number(t.stride));
    tolerated_json(j, s.mode, s.tolerated());
    j.field("no_key_frames_reason", t.count == 0 ? jw::text(no_key_reason(s)) : jw::null());
    j.begin_array("audio_streams");
    for (const audio_stream_info &a : s.audio) {
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(a.number));
        j.field("slot", jw::number(a.slot));
        j.field("counts", jw::text(a.fixed ? "chunks" : "bytes"));
        j.end_object();
    }
    j.end_array();
    j.begin_array("key_frames_kept");
    for (uint32_t i = 0; i < t.count; ++i) {
        const keyindex_entry &e = s.storage[i];
        j.begin_object(nullptr, true);
        j.field("frame", jw::number(e.frame_no));
        j.field("time", jw::decimal(e.frame_no * s.frame_seconds()));
        j.field("idx1_entry", jw::number(e.index_position / 16));
        j.field("offset", jw::number(s.absolute(e.video_offset)));
        j.field("size", jw::number(e.video_size));
        j.begin_array("audio");
        for (const audio_stream_info &a : s.audio) {
            const bool known = a.slot < KELQAVI_KEY_AUDIO_STREAMS && e.audio_offset[a.slot] != KELQAVI_NOT_FOUND;
            if (!known) {
                j.element(jw::null());
                continue;
            }
            j.begin_object();
            j.field("stream", jw::number(a.number));
            j.field("offset", jw::number(s.absolute(e.audio_offset[a.slot])));
            j.field("before", jw::number(e.audio_count[a.slot]));
            j.end_object();
        }
        j.end_array();
        j.end_object();
    }
    j.end_array();
    j.end_object();
    j.write(stdout);
}

}  // namespace

void print_keys_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi keys [--json] [--strict] FILE\n"
                 "\n"
                 "Builds the library's key-frame table for the first video stream of FILE from\n"
                 "its legacy index (idx1) and prints every key frame: frame number, time, idx1\n"
                 "entry, file offset of its chunk header and data size, and for each audio\n"
                 "stream the offset of the chunk playing at the key frame's time with the\n"
                 "chunks (MPEG audio, one frame a chunk) or bytes (other audio) before it;\n"
                 "'-' when the audio has ended by then. When the table holds no key frame,\n"
                 "one line says why (no frame of the stream in idx1, 'db' frames read\n"
                 "strictly, no entry flagged, offsets that do not match the chunks).\n"
                 "\n"
                 "Options:\n"
                 "  --json          print the same as JSON\n"
                 "%s"
                 "  -h, --help      show this help\n"
                 "\n"
                 "Exit status: 0 the table was built; 1 FILE cannot be read, or has no video\n"
                 "stream or no idx1; 2 usage error; 3 the index does not describe the file's\n"
                 "chunks (offsets outside 'movi', or not counted from it).\n",
                 strict_option_help);
}

int run_keys_command(int argc, char **argv) {
    command_options options;
    bool stop = false;
    const int parsed =
        parse_command_line({"keys", {"--json", "--strict"}, {}, 1, 0, "a FILE", print_keys_help}, argc, argv, options, stop);
    if (stop) return parsed;
    key_session s;
    const int opened = s.open(options.path, true, read_mode{options.has("--strict")});
    if (opened != exit_ok) return opened;
    if (options.has("--json"))
        print_json(options.path, s);
    else
        print_text(options.path, s);
    if (!flush_stdout()) return exit_bad_input;
    return exit_ok;
}

}  // namespace kelqtool
