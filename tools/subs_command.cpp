// "kelqavi subs FILE": every bitmap subtitle chunk of the first 'movi' list
// with the time span its text gives (aviin_get_subtitle_duration); with
// --frame N, the subtitle each bitmap subtitle stream shows at frame N
// (aviin_get_subtitle_offset).
#include "subs_command.h"

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

constexpr int span_size = 26;
constexpr uint64_t step_limit = 100000000;

struct subtitle {
    uint32_t stream = 0;
    int64_t offset = 0;
    uint32_t size = 0;
    std::string text;  // the span as stored, up to 25 characters
    bool parsed = false;
    uint32_t start = 0, duration = 0;
};

std::string time_text(uint32_t ms) {
    char text[32];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u.%03u", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    return text;
}

// The span text of the chunk whose data is at data_offset, parsed.
subtitle read_subtitle(aviin_handle *h, uint32_t stream, int64_t header, uint32_t size) {
    subtitle s;
    s.stream = stream;
    s.offset = header;
    s.size = size;
    char text[span_size];
    std::memset(text, 0, sizeof text);
    // Fewer bytes at the end of the file read as NUL: one at a time then.
    if (aviin_get_chunk(h, static_cast<uint64_t>(header + 8), text, span_size) != 0)
        for (int i = 0; i < span_size; ++i)
            if (aviin_get_chunk(h, static_cast<uint64_t>(header + 8 + i), text + i, 1) != 0) break;
    for (int i = 0; i < span_size - 1 && text[i] != '\0'; ++i)
        s.text += text[i] >= 0x20 && text[i] < 0x7F ? text[i] : '?';
    s.parsed = aviin_get_subtitle_duration(h, text, &s.start, &s.duration) == 0;
    return s;
}

bool is_subtitle_stream(const key_session &k, uint32_t stream) {
    for (uint32_t s : k.bitmap_subtitles)
        if (s == stream) return true;
    return false;
}

std::vector<subtitle> list_subtitles(key_session &k) {
    std::vector<subtitle> out;
    if (k.movi_start < 0 || aviin_seek_by_offset(k.h, static_cast<uint64_t>(k.movi_start)) != 0) return out;
    int64_t last = -1;
    for (uint64_t steps = 0; steps < step_limit; ++steps) {
        uint32_t type = 0, stream = 0, size = 0;
        uint64_t data = 0;
        if (aviin_get_next_chunk_type(k.h, &type, &stream, &data, &size) != 0) break;
        const int64_t header = static_cast<int64_t>(data) - (type == KELQAVI_CHUNK_UNKNOWN ? 4 : 8);
        if (header <= last) break;
        last = header;
        if (type == KELQAVI_CHUNK_BITMAP_CAPTION && is_subtitle_stream(k, stream))
            out.push_back(read_subtitle(k.h, stream, header, size));
    }
    return out;
}

struct shown {
    uint32_t stream = 0;
    int result = 1;
    bool is_subtitle = false;  // else the offset is the last frame reached, or none
    uint64_t offset = KELQAVI_NOT_FOUND;
    uint32_t duration = 0xFFFFFFFFu;
    subtitle sub;
};

shown shown_at(key_session &k, uint32_t stream, int32_t frame) {
    shown r;
    r.stream = stream;
    r.result = aviin_get_subtitle_offset(k.h, k.has_table ? &k.table : nullptr, k.video_stream, stream, frame,
                                         &r.offset, &r.duration);
    if (r.result != 0 || r.offset == KELQAVI_NOT_FOUND) return r;
    uint8_t header[8];
    if (aviin_get_chunk(k.h, r.offset, header, sizeof header) != 0) return r;
    if (get_chunk_type(str2long(header), 0) == KELQAVI_CHUNK_BITMAP_CAPTION) {
        r.is_subtitle = true;
        r.sub = read_subtitle(k.h, stream, static_cast<int64_t>(r.offset), str2long(header + 4));
    }
    return r;
}

}  // namespace

void print_subs_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi subs [--json] [--strict] [--frame N] FILE\n"
                 "\n"
                 "Lists the bitmap subtitle chunks of FILE's first 'movi' list, in file order:\n"
                 "stream, offset, size, and the time span their text opens with\n"
                 "(\"HH:MM:SS.mmm-HH:MM:SS.mmm\"), as start and duration.\n"
                 "\n"
                 "With --frame N, also the subtitle each bitmap subtitle stream shows at frame\n"
                 "N of the first video stream, found as the library finds it: walking from the\n"
                 "key frame five seconds earlier, a subtitle that starts at or after the\n"
                 "frame's time, or one still showing with more than 500 ms left.\n"
                 "\n"
                 "Options:\n"
                 "  --frame N       the subtitle shown at frame N\n"
                 "  --json          print the same as JSON\n"
                 "%s"
                 "  -h, --help      show this help\n"
                 "\n"
                 "Exit status: 0 done; 1 FILE cannot be read or has no video stream; 2 usage\n"
                 "error; 3 a subtitle's span text does not parse, or the search for frame N\n"
                 "failed.\n",
                 strict_option_help);
}

namespace {

// What the command found, for printing.
struct subs_report {
    const char *path = nullptr;
    long long frame = -1;  // --frame, or -1
    std::vector<subtitle> subs;
    std::vector<shown> at_frame;
    int problems = 0;
};

void print_json(key_session &k, const subs_report &r) {
    using jw = json_writer;
    jw j;
    j.begin_object();
    j.field("file", jw::text(r.path));
    j.begin_array("streams", true);
    for (uint32_t s : k.bitmap_subtitles) j.element(jw::number(s));
    j.end_array();
    j.begin_array("subtitles");
    for (const subtitle &s : r.subs) {
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(s.stream));
        j.field("offset", jw::number(s.offset));
        j.field("size", jw::number(s.size));
        j.field("text", jw::text(s.text));
        j.field("start_ms", s.parsed ? jw::number(s.start) : jw::null());
        j.field("duration_ms", s.parsed ? jw::number(s.duration) : jw::null());
        j.end_object();
    }
    j.end_array();
    if (r.frame >= 0) {
        j.field("frame", jw::number(static_cast<int64_t>(r.frame)));
        j.field("frame_ms", jw::decimal(static_cast<double>(r.frame) * k.frame_seconds() * 1000));
        j.begin_array("shown");
        for (const shown &s : r.at_frame) {
            j.begin_object(nullptr, true);
            j.field("stream", jw::number(s.stream));
            j.field("result", jw::number(static_cast<int32_t>(s.result)));
            j.field("subtitle_offset", s.is_subtitle ? jw::number(s.offset) : jw::null());
            j.field("left_ms", s.is_subtitle && s.duration != 0xFFFFFFFFu ? jw::number(s.duration) : jw::null());
            j.field("last_frame_offset", !s.is_subtitle && s.offset != KELQAVI_NOT_FOUND ? jw::number(s.offset) : jw::null());
            j.end_object();
        }
        j.end_array();
    }
    j.field("problems", jw::number(static_cast<int32_t>(r.problems)));
    tolerated_json(j, k.mode, k.tolerated());
    j.end_object();
    j.write(stdout);
}

void print_subtitle_table(key_session &k, const subs_report &r, const text_style &style) {
    using al = column_layout::align;
    column_layout table({al::right, al::right, al::right, al::left, al::left});
    const std::vector<std::string> head = {"STREAM", "OFFSET", "SIZE", "SHOWN", "TEXT"};
    table.measure(head);
    std::vector<std::vector<std::string>> rows;
    for (const subtitle &s : r.subs) {
        const std::string when = s.parsed ? time_text(s.start) + " for " + std::to_string(s.duration) + " ms"
                                          : paint("span does not parse", sgr::bold_red, style.colour);
        rows.push_back({std::to_string(s.stream), std::to_string(s.offset), std::to_string(s.size), when, s.text});
        table.measure(rows.back());
    }
    if (!r.subs.empty()) {
        std::printf("%s\n", paint(table.render(head), sgr::bold, style.colour).c_str());
        for (const auto &row : rows) std::printf("%s\n", table.render(row).c_str());
    } else if (!k.bitmap_subtitles.empty()) {
        std::printf("no bitmap subtitle chunks\n");
    }
}

void print_text(key_session &k, const subs_report &r) {
    const text_style style = style_for_stdout();
    if (k.bitmap_subtitles.empty()) std::printf("%s has no bitmap subtitle streams\n", r.path);
    print_subtitle_table(k, r, style);
    if (r.frame >= 0) {
        std::printf("\nat frame %lld (%s s):\n", r.frame,
                    seconds_text(static_cast<double>(r.frame) * k.frame_seconds()).c_str());
        for (const shown &s : r.at_frame) {
            if (s.result != 0)
                std::printf("  stream %u: the search failed%s\n", s.stream, k.has_table ? "" : " (no key-frame table: no idx1)");
            else if (s.is_subtitle)
                std::printf("  stream %u: subtitle at %llu (%s), %s\n", s.stream, static_cast<unsigned long long>(s.offset),
                            s.sub.text.c_str(),
                            s.duration == 0xFFFFFFFFu ? "starting at or after the frame"
                                                     : (std::to_string(s.duration) + " ms left").c_str());
            else
                std::printf("  stream %u: none shown\n", s.stream);
        }
    }
    if (!k.mode.strict) std::printf("\ntolerated: %s\n", tolerance_words(k.tolerated()).c_str());
}

}  // namespace

int run_subs_command(int argc, char **argv) {
    command_options options;
    bool stop = false;
    const int parsed = parse_command_line(
        {"subs", {"--json", "--strict"}, {"--frame"}, 1, 0, "FILE", print_subs_help, too_many_arguments}, argc, argv,
        options, stop);
    if (stop) return parsed;
    subs_report r;
    r.path = options.operands[0];
    if (const std::string *f = options.value("--frame"); f != nullptr && !parse_number(*f, 0, 0x7FFFFFFF, r.frame)) {
        print_error("frame number '%s' is not a number from 0 to 2147483647", f->c_str());
        return exit_usage;
    }
    key_session k;
    const int opened = k.open(r.path, false, read_mode{options.has("--strict")});
    if (opened != exit_ok) return opened;
    r.subs = list_subtitles(k);
    if (r.frame >= 0)
        for (uint32_t s : k.bitmap_subtitles) r.at_frame.push_back(shown_at(k, s, static_cast<int32_t>(r.frame)));
    for (const subtitle &s : r.subs) r.problems += s.parsed ? 0 : 1;
    for (const shown &s : r.at_frame) r.problems += s.result != 0 ? 1 : 0;
    if (options.has("--json"))
        print_json(k, r);
    else
        print_text(k, r);
    if (!flush_stdout()) return exit_bad_input;
    return r.problems == 0 ? exit_ok : exit_problems;
}

}  // namespace kelqtool
