// "kelqavi repair IN [OUT]": a recording cut short made whole again.
#pragma once

#include <cstdio>

namespace kelqtool {

int run_repair_command(int argc, char **argv);
void print_repair_help(FILE *out);

}  // namespace kelqtool
