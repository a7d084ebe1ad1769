// "kelqavi frame FILE N": where frame N lies, found through the key-frame table.
#pragma once

#include <cstdio>

namespace kelqtool {

int run_frame_command(int argc, char **argv);
void print_frame_help(FILE *out);

}  // namespace kelqtool
