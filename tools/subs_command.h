// "kelqavi subs FILE": the bitmap subtitles of a file and their times.
#pragma once

#include <cstdio>

namespace kelqtool {

int run_subs_command(int argc, char **argv);
void print_subs_help(FILE *out);

}  // namespace kelqtool
