// "kelqavi repair IN [OUT] [--json]": makes a recording that was cut short
// whole again with aviout_repair, in place or in a copy, and says what was
// kept and what was dropped.
#include "repair_command.h"

#include "command_line.h"
#include "diagnostics.h"
#include "json_writer.h"
#include "output_format.h"

#include "kelqavi.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace kelqtool {

namespace {

const char *problem_text(uint32_t problem) {
    switch (problem) {
    case AVIOUT_REPAIR_CANNOT_READ: return "it cannot be opened or read";
    case AVIOUT_REPAIR_NOT_AVI: return "it is not an AVI file (no RIFF 'AVI ' form at its start)";
    case AVIOUT_REPAIR_BAD_HEADER: return "it is cut short or damaged inside its header lists";
    case AVIOUT_REPAIR_NO_MOVI: return "no 'movi' list follows its header lists";
    case AVIOUT_REPAIR_TOO_MANY_STREAMS: return "it declares more streams than the library takes";
    case AVIOUT_REPAIR_CANNOT_WRITE: return "it cannot be written (the repair did not finish)";
    default: return "unknown problem";
    }
}

const char *drop_text(uint32_t cause) {
    switch (cause) {
    case AVIOUT_REPAIR_DROP_CUT: return "cut short";
    case AVIOUT_REPAIR_DROP_UNREADABLE: return "unreadable id";
    case AVIOUT_REPAIR_DROP_BAD_SIZE: return "size past its list";
    default: return "none";
    }
}

const char *outcome(int result, const aviout_repair_report &r) {
    if (r.changed == 0) return "whole";
    return result == 3 ? "repaired, data dropped" : "repaired";
}

std::string code_text(uint32_t code) { return code == 0 ? std::string("-") : fourcc_text(code); }

// Audio streams give their format tag, the others a FourCC.
std::string codec_text(const aviout_repair_stream &s) {
    if (s.type != make_fourCC("auds")) return code_text(s.codec);
    char text[16];
    std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(s.codec));
    return text;
}

void print_text(const char *path, int result, const aviout_repair_report &r) {
    const text_style style = style_for_stdout();
    std::printf("%s: %s\n", paint(path, sgr::bold, style.colour).c_str(),
                r.changed == 0 ? "whole, nothing to repair" : result == 3 ? "repaired; data dropped" : "repaired");
    std::printf("  size             %s -> %s\n", human_size(static_cast<uint64_t>(r.file_size)).c_str(),
                human_size(static_cast<uint64_t>(r.repaired_size)).c_str());
    std::printf("  RIFF segments    %u kept\n", r.segments);
    if (r.drop_offset >= 0)
        std::printf("  dropped          %s from offset %lld on (%s)\n",
                    paint(human_size(static_cast<uint64_t>(r.dropped_bytes)), sgr::yellow, style.colour).c_str(),
                    static_cast<long long>(r.drop_offset), drop_text(r.drop_cause));
    if (r.changed != 0)
        std::printf("  rebuilt          idx1 of %u entries, %u final standard index%s\n", r.index_entries,
                    r.std_indexes_added, r.std_indexes_added == 1 ? "" : "es");
    std::printf("\n");
    using al = column_layout::align;
    column_layout table({al::right, al::left, al::left, al::right, al::right, al::right, al::right, al::right});
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"STREAM", "TYPE", "CODEC", "CHUNKS", "KEY", "BYTES", "LENGTH", "STD INDEXES"});
    for (int32_t i = 0; i < r.stream_count && i < AVIOUT_REPAIR_STREAMS; ++i) {
        const aviout_repair_stream &s = r.streams[i];
        rows.push_back({std::to_string(i), code_text(s.type), codec_text(s), std::to_string(s.chunks),
                        std::to_string(s.key_frames), human_size(s.bytes), std::to_string(s.length),
                        std::to_string(s.std_indexes)});
    }
    for (const auto &row : rows) table.measure(row);
    std::printf("%s\n", paint(table.render(rows[0]), sgr::bold, style.colour).c_str());
    for (size_t i = 1; i < rows.size(); ++i) std::printf("%s\n", table.render(rows[i]).c_str());
}

void print_json(const char *in, const char *out, int result, const aviout_repair_report &r) {
    using jw = json_writer;
    jw j;
    j.begin_object();
    j.field("file", jw::text(in));
    j.field("output", out != nullptr ? jw::text(out) : jw::null());
    j.field("result", jw::text(outcome(result, r)));
    j.field("changed", jw::boolean(r.changed != 0));
    j.field("file_size", jw::number(r.file_size));
    j.field("repaired_size", jw::number(r.repaired_size));
    j.field("segments", jw::number(r.segments));
    j.field("index_entries", jw::number(r.index_entries));
    j.field("std_indexes_added", jw::number(r.std_indexes_added));
    if (r.drop_offset >= 0) {
        j.begin_object("dropped", true);
        j.field("offset", jw::number(r.drop_offset));
        j.field("bytes", jw::number(r.dropped_bytes));
        j.field("cause", jw::text(drop_text(r.drop_cause)));
        j.end_object();
    } else {
        j.field("dropped", jw::null());
    }
    j.begin_array("streams");
    for (int32_t i = 0; i < r.stream_count && i < AVIOUT_REPAIR_STREAMS; ++i) {
        const aviout_repair_stream &s = r.streams[i];
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(i));
        j.field("type", jw::fourcc(s.type));
        j.field("codec", s.type == make_fourCC("auds") ? jw::number(s.codec) : jw::fourcc(s.codec));
        j.field("chunks", jw::number(s.chunks));
        j.field("key_frames", jw::number(s.key_frames));
        j.field("bytes", jw::number(s.bytes));
        j.field("length", jw::number(s.length));
        j.field("std_indexes", jw::number(s.std_indexes));
        j.end_object();
    }
    j.end_array();
    j.end_object();
    j.write(stdout);
}

// True when both paths name one file (copying it onto itself would empty it).
bool same_file(const char *a, const char *b) {
    struct stat sa, sb;
    return stat(a, &sa) == 0 && stat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// IN copied to OUT byte for byte.
bool copy_file(const char *in, const char *out, std::string &error) {
    FILE *from = file_open(in, 0);
    if (from == nullptr) {
        error = std::string("cannot open '") + in + "': " + std::strerror(errno);
        return false;
    }
    FILE *to = file_open(out, 1);
    if (to == nullptr) {
        error = std::string("cannot create '") + out + "': " + std::strerror(errno);
        file_close(from);
        return false;
    }
    std::vector<uint8_t> block(1 << 16);
    bool ok = true;
    for (size_t n; (n = file_read(from, block.data(), block.size())) > 0;) ok = ok && file_write(to, block.data(), n) == n;
    ok = ok && !std::ferror(from);
    ok = file_close(to) == 0 && ok;
    file_close(from);
    if (!ok) error = std::string("cannot copy '") + in + "' to '" + out + "'";
    return ok;
}

}  // namespace

void print_repair_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi repair [--json] [--swapped-ids] IN [OUT]\n"
                 "\n"
                 "Makes an AVI recording that was cut short (power lost, recorder killed) whole\n"
                 "again with the library's aviout_repair: keeps every complete chunk up to the\n"
                 "first one that is cut or unreadable, drops the rest, and rebuilds the sizes,\n"
                 "the header counts, the idx1 index and the OpenDML indexes. IN is repaired in\n"
                 "place; with OUT, IN is copied to OUT and the copy is repaired, IN is left as\n"
                 "it is. A file that is already whole is not written at all.\n"
                 "\n"
                 "Prints the sizes before and after, what was dropped, and per stream the\n"
                 "chunks, key frames and bytes kept, the length in its header and the standard\n"
                 "index chunks its super index lists.\n"
                 "\n"
                 "Options:\n"
                 "  --json          print the same as JSON\n"
                 "  --swapped-ids   also take data chunk ids written type first (\"dc00\")\n"
                 "  -h, --help      show this help\n"
                 "\n"
                 "Exit status: 0 whole, or repaired without dropping a chunk; 1 not an AVI file\n"
                 "that can be repaired (not RIFF 'AVI ', cut inside its header lists, no 'movi')\n"
                 "or a file that cannot be read or written; 2 usage error; 3 repaired, and data\n"
                 "from a chunk cut short or unreadable on was dropped.\n");
}

int run_repair_command(int argc, char **argv) {
    command_options options;
    bool stop = false;
    const int parsed = parse_command_line(
        {"repair", {"--json", "--swapped-ids"}, {}, 1, 1, "IN [OUT]", print_repair_help, too_many_arguments}, argc, argv,
        options, stop);
    if (stop) return parsed;
    const char *in = options.operands[0];
    const char *out = options.operands.size() > 1 ? options.operands[1] : nullptr;
    if (out != nullptr && same_file(in, out)) out = nullptr;   // OUT is IN: repaired in place
    std::string error;
    if (out != nullptr && !copy_file(in, out, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    const char *target = out != nullptr ? out : in;
    aviout_repair_report report;
    const int result = aviout_repair(target, options.has("--swapped-ids") ? 1 : 0, &report);
    if (result == 1) {
        print_error("cannot repair '%s': %s", in, problem_text(report.problem));
        // A copy of a file that cannot be repaired is of no use.
        if (out != nullptr && report.changed == 0) std::remove(out);
        return exit_bad_input;
    }
    if (options.has("--json"))
        print_json(in, out, result, report);
    else
        print_text(target, result, report);
    if (!flush_stdout()) return exit_bad_input;
    return result == 3 ? exit_problems : exit_ok;
}

}  // namespace kelqtool
