// The kelqavi tool: picks the command named by the first argument and hands
// it the rest.
#include "chunks_command.h"
#include "diagnostics.h"
#include "frame_command.h"
#include "info_command.h"
#include "keys_command.h"
#include "mux_command.h"
#include "remux_command.h"
#include "repair_command.h"
#include "riff_command.h"
#include "sample_command.h"
#include "subs_command.h"

#include <clocale>
#include <cstdio>
#include <cstring>

#ifndef KELQAVI_TOOL_VERSION
#define KELQAVI_TOOL_VERSION "unknown"
#endif

namespace {

using namespace kelqtool;

struct command {
    const char *name;
    const char *summary;
    int (*run)(int argc, char **argv);  // argv[0] is the command's name
    void (*help)(FILE *out);
};

// Each command lives in its own pair of files; adding one is one line here.
constexpr command commands[] = {
    {"riff", "show the RIFF chunk tree of a file (or of a built-in sample)", run_riff_command, print_riff_help},
    {"info", "show the headers, streams, segments and indexes of an AVI file", run_info_command, print_info_help},
    {"chunks", "list the chunks of every segment's 'movi' list as the reader walks them", run_chunks_command,
     print_chunks_help},
    {"keys", "show the key-frame table the library builds from the legacy index", run_keys_command, print_keys_help},
    {"frame", "find frame N (and the audio playing with it) through the key-frame table", run_frame_command,
     print_frame_help},
    {"subs", "list the bitmap subtitles and the one shown at a frame", run_subs_command, print_subs_help},
    {"mux", "write an MJPEG and PCM AVI file from JPEG pictures and a WAV file", run_mux_command, print_mux_help},
    {"remux", "read an AVI file with the reader and write it again with the writer", run_remux_command,
     print_remux_help},
    {"repair", "make a recording that was cut short whole again, in place or in a copy", run_repair_command,
     print_repair_help},
    {"sample", "write the built-in sample AVI file (every stream kind, menu, metadata)", run_sample_command,
     print_sample_help},
};

const command *find_command(const char *name) {
    for (const command &c : commands)
        if (std::strcmp(c.name, name) == 0) return &c;
    return nullptr;
}

void print_usage(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi COMMAND [OPTIONS] [ARGUMENTS]\n"
                 "       kelqavi help [COMMAND] | --help | --version\n"
                 "\n"
                 "Reads and writes AVI files with the kelqavi library.\n"
                 "\n"
                 "Commands:\n");
    for (const command &c : commands) std::fprintf(out, "  %-8s %s\n", c.name, c.summary);
    std::fprintf(out,
                 "\n"
                 "Run 'kelqavi COMMAND --help' for the options of a command.\n"
                 "Exit status: 0 success, 1 bad input, 2 usage error, 3 problems found in a file.\n");
}

int help_for(const char *name) {
    const command *c = find_command(name);
    if (c == nullptr) {
        print_error("unknown command '%s' (see 'kelqavi --help')", name);
        return exit_usage;
    }
    c->help(stdout);
    return exit_ok;
}

}  // namespace

int main(int argc, char **argv) {
    // Only the character set matters: it decides whether the tree is drawn
    // with box-drawing characters. Numbers stay in the C locale.
    std::setlocale(LC_CTYPE, "");

    if (argc < 2) {
        print_usage(stderr);
        return exit_usage;
    }
    const char *first = argv[1];
    if (std::strcmp(first, "-h") == 0 || std::strcmp(first, "--help") == 0) {
        print_usage(stdout);
        return exit_ok;
    }
    if (std::strcmp(first, "--version") == 0 || std::strcmp(first, "-V") == 0) {
        std::printf("kelqavi %s\n", KELQAVI_TOOL_VERSION);
        return exit_ok;
    }
    if (std::strcmp(first, "help") == 0) {
        if (argc == 2) {
            print_usage(stdout);
            return exit_ok;
        }
        return help_for(argv[2]);
    }
    if (first[0] == '-') {
        print_error("unknown option '%s' (see 'kelqavi --help')", first);
        return exit_usage;
    }
    const command *c = find_command(first);
    if (c == nullptr) {
        print_error("unknown command '%s' (see 'kelqavi --help')", first);
        return exit_usage;
    }
    return c->run(argc - 1, argv + 1);
}
