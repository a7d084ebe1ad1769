// "kelqavi riff [FILE]": the RIFF chunk tree of a file, or of the built-in
// sample when no file is given.
#pragma once

#include <cstdio>

namespace kelqtool {

// argv[0] is the command's name; the result is the process's exit status.
int run_riff_command(int argc, char **argv);
void print_riff_help(FILE *out);

}  // namespace kelqtool
