// "kelqavi sample [OUT.avi]": writes the built-in sample file.
#pragma once

#include <cstdio>

namespace kelqtool {

// argv[0] is the command's name; the result is the process's exit status.
int run_sample_command(int argc, char **argv);
void print_sample_help(FILE *out);

}  // namespace kelqtool
