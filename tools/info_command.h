// "kelqavi info FILE": the main header, streams, menu and metadata blocks,
// RIFF segments and indexes of an AVI file, as the library's reader sees it.
#pragma once

#include <cstdio>

namespace kelqtool {

// argv[0] is the command's name; the result is the process's exit status.
int run_info_command(int argc, char **argv);
void print_info_help(FILE *out);

}  // namespace kelqtool
