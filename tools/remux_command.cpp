// "kelqavi remux [--odml] [--swapped-ids] [--checkpoint S] [--json] IN.avi
// OUT.avi": every stream's format, name and strd block, the metadata and menu
// blocks and every data chunk of every RIFF segment, from the reader into the
// writer; what was read and what was written are compared stream by stream.
#include "remux_command.h"

#include "avi_layout.h"
#include "avi_output.h"
#include "diagnostics.h"
#include "input_indexes.h"
#include "loss_report.h"
#include "movi_copy.h"
#include "output_format.h"
#include "riff_sizes.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>
#include <vector>

namespace kelqtool {

namespace {

std::string takes_in_and_out(const command_syntax &, const char *arg, const char *) {
    return std::string("'remux' takes IN.avi and OUT.avi, but '") + arg + "' follows them";
}

// Chunk ids in either order are read.
constexpr uint32_t swapped_in = 1;

struct remux_options {
    const char *input = nullptr;
    const char *output = nullptr;
    write_options write;
    read_mode mode;        // how IN.avi is opened
    command_options line;  // as given: the texts above point into it
};

int parse_options(int argc, char **argv, remux_options &o, bool &stop) {
    command_options &line = o.line;
    const int parsed = parse_command_line({"remux", {"--odml", "--swapped-ids", "--json", "--designed", "--strict"},
                                           {"--checkpoint"}, 2, 0, "IN.avi and OUT.avi", print_remux_help,
                                           takes_in_and_out, option_needs_value},
                                          argc, argv, line, stop);
    if (stop) return parsed;
    o.input = line.operands[0];
    o.output = line.operands[1];
    o.mode.strict = line.has("--strict");
    o.write.take(line);
    stop = o.write.checkpoint != nullptr && !parse_checkpoint("remux", o.write.checkpoint, o.write.checkpoint_seconds);
    return stop ? exit_usage : exit_ok;
}

// Codecs whose every frame stands alone, so every chunk is a key frame.
bool intra_only(const char compression[4]) {
    static const char *const codes[] = {"MJPG", "AVRN", "DMB1", "JPEG", "LJPG", "JPGL", "MJPA", "MJPB",
                                        "DIB ", "RGB ", "RAW ", "UYVY", "YUY2", "YV12", "I420", "IYUV"};
    const std::string code = fourcc_chars(compression);
    if (code.empty()) return true;  // uncompressed
    for (const char *c : codes)
        if (strncasecmp(code.c_str(), c, 4) == 0 && code.size() == std::strlen(c)) return true;
    return false;
}

// One output stream for input stream i, when the reader classifies it.
bool add_stream(aviin_handle *h, int32_t i, const std::string &strl_name, avi_output &out, stream_route &r,
                double &video_frame, std::string &error) {
    switch (r.kind) {
    case KELQAVI_CHUNK_VIDEO: {
        video_stream_format v{};
        uint32_t length = 0;
        if (aviin_get_video_format(h, i, &v, &length) != 0) return false;
        r.intra = intra_only(v.compression);
        const double frame = v.rate != 0 ? static_cast<double>(v.scale) / v.rate : 0.04;
        if (video_frame == 0.0) video_frame = frame;
        const bool ok = out.add_video(v, frame > 0 ? frame : 0.04, r.out, error);
        if (v.name_length > 0) std::free(v.name);
        return ok;
    }
    case KELQAVI_CHUNK_BITMAP_CAPTION: {
        video_stream_format v{};
        uint32_t length = 0;
        if (aviin_get_bitmap_caption_format(h, i, &v, &length) != 0) return false;
        const bool ok = out.add_bitmap_caption(v, r.out, error);
        if (v.name_length > 0) std::free(v.name);
        return ok;
    }
    case KELQAVI_CHUNK_AUDIO: {
        audio_stream_format a{};
        if (aviin_get_audio_format(h, i, &a) != 0) return false;
        // Only the index's timing depends on this: a chunk a video frame long.
        const bool ok = out.add_audio(a, video_frame > 0 ? video_frame : 0.04, r.out, error);
        if (a.name_length > 0) std::free(a.name);
        return ok;
    }
    default: {  // text captions and chapters
        caption_stream_format c{};
        const bool chapter = r.kind == KELQAVI_CHUNK_CHAPTER;
        if ((chapter ? aviin_get_chapter_format(h, i, &c) : aviin_get_text_caption_format(h, i, &c)) != 0) return false;
        if (!chapter && c.name_length > 0) std::free(c.name);
        // Caption and chapter names are not kept by the reader: they come from the strl.
        std::vector<char> name(strl_name.begin(), strl_name.end());
        c.name = name.empty() ? nullptr : name.data();
        c.name_length = static_cast<int32_t>(name.size());
        return chapter ? out.add_chapter(c, r.out, error) : out.add_text_caption(c, r.out, error);
    }
    }
}

// An output stream for every input stream the reader classifies, and a
// tally for every input stream.
bool add_streams(aviin_handle *h, const avi_layout &layout, avi_output &out, movi_copy &job, std::string &error) {
    int32_t stream_count = 0, strd_count = 0;
    aviin_get_summary(h, &stream_count, &strd_count);
    job.routes.assign(static_cast<size_t>(std::max(stream_count, 0)), stream_route{});
    double video_frame = 0.0;
    for (int32_t i = 0; i < stream_count; ++i) {
        stream_route &r = job.routes[static_cast<size_t>(i)];
        aviin_get_chunk_type(h, static_cast<uint32_t>(i), &r.kind);
        stream_tally tally;
        tally.stream = i;
        tally.kind = stream_kind_word(r.kind);
        const bool classified = classified_kind(r.kind);
        if (!classified) tally.note = "not copied: the reader does not classify this stream";
        if (r.kind == KELQAVI_CHUNK_VIDEO) {
            const uint8_t *extra = nullptr;
            aviin_get_video_format_extra(h, i, &extra, &tally.format_bytes_dropped);
        }
        job.losses.streams.push_back(tally);
        if (!classified) continue;
        const std::vector<stream_list> &strls = layout.forms[0].streams;
        const std::string strl_name = static_cast<size_t>(i) < strls.size() && strls[static_cast<size_t>(i)].has_name
                                          ? strls[static_cast<size_t>(i)].name
                                          : std::string();
        if (!add_stream(h, i, strl_name, out, r, video_frame, error)) {
            if (error.empty()) error = "cannot read the format of stream " + std::to_string(i);
            return false;
        }
    }
    return true;
}

// The metadata block, and the menu block copied in as a LIST 'KMNU' through
// a temporary file.
bool copy_blocks(aviin_handle *h, avi_output &out, menu_list_file &menu, std::string &error) {
    uint8_t *block = nullptr;
    int32_t block_size = 0;
    aviin_get_metadata_info(h, &block, &block_size);
    if (block != nullptr && block_size > 0 && !out.set_metadata(block, block_size, error)) return false;
    block = nullptr;
    block_size = 0;
    aviin_get_menu_info(h, &block, &block_size);
    // The menu block is the whole "MENU" chunk; the size given is its size field.
    if (block == nullptr || block_size < 0 || std::memcmp(block, "MENU", 4) != 0) return true;
    if (!menu.write(block, static_cast<uint32_t>(block_size + chunk_header_size), error)) {
        error = "cannot write a temporary file for the menu block";
        return false;
    }
    out.handle()->menu_file_head = menu.path().c_str();
    return true;
}

// What each input stream's output stream received, over every file.
void note_written(movi_copy &job, const avi_output &out) {
    for (size_t i = 0; i < job.routes.size(); ++i) {
        const written_stream *w = out.stream(job.routes[i].out);
        if (job.routes[i].out < 0 || w == nullptr) continue;
        job.losses.streams[i].written_chunks = w->chunks;
        job.losses.streams[i].written_bytes = w->bytes;
    }
}

// Finishes the output and reports. A write failure removes the file being
// written, which is incomplete; files finished before it stay.
int finish(const remux_options &o, avi_output &out, movi_copy &job, bool copied) {
    std::string error;
    const bool closed = out.close(error);
    if (!copied || !closed) {
        print_error("%s", (!copied ? out.write_error() : error).c_str());
        remove_output(out.current_path());
        return exit_bad_input;
    }
    // Nothing could be copied: the writer left the file empty.
    if (out.files.empty()) remove_output(o.output);
    note_written(job, out);
    compare_with_indexes(job);
    out.print_summary(stdout, o.write.json, &job.losses);
    if (!flush_stdout()) return exit_bad_input;
    if (!job.losses.any()) return exit_ok;
    job.losses.print_error_line(std::string("in '") + o.input + "'");
    return exit_problems;
}

}  // namespace

void print_remux_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi remux [--odml] [--swapped-ids] [--checkpoint SECONDS] [--strict]\n"
                 "                     [--designed] [--json] IN.avi OUT.avi\n"
                 "\n"
                 "Reads IN.avi with the library's reader and writes OUT.avi with its writer:\n"
                 "every stream's format, name and strd block, the metadata block, the menu block\n"
                 "of a LIST 'KMNU', and every data chunk of every RIFF segment, in file order.\n"
                 "\n"
                 "  --odml         write OpenDML indexes too (one ix## per minute of a stream)\n"
                 "  --swapped-ids  write chunk ids type first (\"dc00\"). IN.avi is always read\n"
                 "                 accepting both orders, so no option is needed for that\n"
                 "  --checkpoint SECONDS\n"
                 "                 make OUT.avi a complete file on disk every SECONDS of media\n"
                 "                 while it is written (0, the default: only at the end)\n"
                 "  --strict       open IN.avi as the plain reader does (aviin_open); by default\n"
                 "                 it is opened with every tolerance: palettes and codec data\n"
                 "                 after the video header, index chunks in 'movi', idx1 offsets\n"
                 "                 from the file start, 'db' frames\n"
                 "  --designed     write the designed bytes (the writer's standard_profile 0);\n"
                 "                 by default the standard form every player reads\n"
                 "  --json         the summary of what was written as JSON\n"
                 "\n"
                 "Key frames: a chunk keeps the key-frame flag that the first segment's idx1 or\n"
                 "an OpenDML standard index gives it. A video chunk that no index names is\n"
                 "taken as a key frame when its codec codes every frame on its own (MJPEG,\n"
                 "uncompressed and the like), else only when it is its stream's first chunk;\n"
                 "other chunks are key frames. 'dd' and 'db' chunks stay 'dd' and 'db'.\n"
                 "Not copied, and so reported as lost: streams the reader does not classify, with\n"
                 "their chunks, and a video format's bytes past its 40-byte header (a palette,\n"
                 "codec set-up data), which the writer has no place for. Not copied and not\n"
                 "data: index and filler chunks (the writer makes its own), a menu block kept\n"
                 "in a LIST 'KQDT' (the reader takes menus from LIST 'KMNU' only) and menu\n"
                 "forms.\n"
                 "\n"
                 "Chunks are counted per stream as read and as written, and any difference is\n"
                 "listed. The walk of a 'movi' list stops at the first chunk it cannot take\n"
                 "whole (an id that is no chunk id, a stream the file does not have, a chunk\n"
                 "past the end of its list or of the file): where it stopped and the bytes of\n"
                 "the list left unread are listed, and what was read before is written. An idx1\n"
                 "or OpenDML index that lists more chunks of a stream than were read is listed\n"
                 "too. When OUT.avi reaches the writer's size limit (0x7F000000 bytes) it is\n"
                 "finished and the copy goes on in OUT-2.avi, OUT-3.avi ..., each a complete\n"
                 "file with the same streams.\n"
                 "Exit status: 0 everything written, 1 IN.avi cannot be read or OUT.avi not\n"
                 "written (a file left incomplete by a failed write is removed), 2 usage error,\n"
                 "3 written, but not everything IN.avi holds: the losses are listed.\n");
}

int run_remux_command(int argc, char **argv) {
    remux_options o;
    bool stop = false;
    const int parsed = parse_options(argc, argv, o, stop);
    if (stop) return parsed;

    avi_layout layout;
    std::string error;
    if (!scan_layout(o.input, false, swapped_in, layout, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    movi_copy job;
    job.h = open_reader(o.input, swapped_in, layout, o.mode);
    if (job.h == nullptr) return exit_bad_input;
    struct close_at_end {
        movi_copy &job;
        ~close_at_end() {
            if (!job.handle_released) aviin_close(job.h);
        }
    } closer{job};

    avi_output out;
    if (!open_writer(out, o.output, o.write)) return exit_bad_input;
    menu_list_file menu;
    if (!add_streams(job.h, layout, out, job, error) || !copy_blocks(job.h, out, menu, error)) {
        print_error("%s", error.c_str());
        out.close(error);
        remove_output(o.output);
        return exit_bad_input;
    }

    input_indexes indexes;
    read_input_indexes(o.input, job.h, layout, job.routes.size(), indexes);
    job.input = o.input;
    job.layout = &layout;
    job.indexes = &indexes;
    job.out = &out;
    const bool copied = copy_segments(job);
    out.input_mode = &o.mode;
    out.input_tolerated = job.tolerated | (job.handle_released ? 0 : tolerances_needed(job.h));
    return finish(o, out, job, copied);
}

}  // namespace kelqtool
