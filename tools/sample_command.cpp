// "kelqavi sample [--json] [OUT.avi]": the built-in sample, written with the
// library's writer into a file of the user's.
#include "sample_command.h"

#include "command_line.h"

#include "avi_output.h"
#include "diagnostics.h"
#include "sample_file.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace kelqtool {

namespace {

constexpr const char *default_name = "kelqavi-sample.avi";

}  // namespace

void print_sample_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi sample [--designed] [--json] [OUT.avi]\n"
                 "\n"
                 "Writes the built-in sample AVI file with the library's writer (default name\n"
                 "%s): three seconds at 10 frames a second of every stream kind\n"
                 "the library knows, each with a name:\n"
                 "  0 video            160x120 MJPEG, a bar crossing the picture, with a strd block\n"
                 "  1 audio            a 440 Hz tone, 16-bit PCM, 8000 Hz mono\n"
                 "  2 text caption     three lines of text\n"
                 "  3 bitmap caption   two timed 32x8 pictures (KQSB), each chunk opening with\n"
                 "                     its time span \"HH:MM:SS.mmm-HH:MM:SS.mmm\" and a NUL\n"
                 "  4 chapter          two chapter marks\n"
                 "plus a metadata and a menu block, and OpenDML indexes. Players show the video\n"
                 "and play the tone; 'kelqavi info' shows the rest.\n"
                 "\n"
                 "  --designed  write the designed bytes (the writer's standard_profile 0);\n"
                 "              by default the standard form every player reads\n"
                 "  --json      the summary of what was written as JSON\n"
                 "\n"
                 "Exit status: 0 written, 1 the file cannot be written, 2 usage error.\n",
                 default_name);
}

int run_sample_command(int argc, char **argv) {
    command_options options;
    bool stop = false;
    const int parsed =
        parse_command_line({"sample", {"--designed", "--json"}, {}, 0, 1, "a FILE", print_sample_help}, argc, argv, options, stop);
    if (stop) return parsed;
    const char *path = options.path != nullptr ? options.path : default_name;
    const bool json = options.has("--json");

    avi_output out;
    std::string error;
    if (!write_sample_avi(path, out, !options.has("--designed"), error)) {
        print_error("%s", error.c_str());
        // A file the writer could not finish is incomplete.
        remove_output(out.current_path());
        return exit_bad_input;
    }
    out.print_summary(stdout, json);
    if (!flush_stdout()) return exit_bad_input;
    return exit_ok;
}

}  // namespace kelqtool
