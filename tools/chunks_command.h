// "kelqavi chunks FILE": every chunk of every RIFF segment's 'movi' list, in
// file order, as the library's reader walks them.
#pragma once

#include <cstdio>

namespace kelqtool {

// argv[0] is the command's name; the result is the process's exit status.
int run_chunks_command(int argc, char **argv);
void print_chunks_help(FILE *out);

}  // namespace kelqtool
