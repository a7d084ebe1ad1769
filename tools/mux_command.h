// "kelqavi mux": an MJPEG and PCM AVI file from JPEG pictures and a WAV file,
// with optional text-caption and chapter streams and a metadata block.
#pragma once

#include <cstdio>

namespace kelqtool {

// argv[0] is the command's name; the result is the process's exit status.
int run_mux_command(int argc, char **argv);
void print_mux_help(FILE *out);

}  // namespace kelqtool
