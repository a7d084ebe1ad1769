// "kelqavi keys FILE": the key-frame table the library builds for a file.
#pragma once

#include <cstdio>

namespace kelqtool {

int run_keys_command(int argc, char **argv);
void print_keys_help(FILE *out);

}  // namespace kelqtool
