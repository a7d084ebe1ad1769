// "kelqavi remux IN.avi OUT.avi": an AVI file read with the library's reader
// and written again with its writer.
#pragma once

#include <cstdio>

namespace kelqtool {

// argv[0] is the command's name; the result is the process's exit status.
int run_remux_command(int argc, char **argv);
void print_remux_help(FILE *out);

}  // namespace kelqtool
