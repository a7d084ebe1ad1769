// Option parsing shared by the commands that take one FILE and on/off
// options: "kelqavi info [--json] FILE" and the like.
#pragma once

#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

namespace kelqtool {

struct command_options {
    const char *path = nullptr;
    std::vector<std::string> set;  // the options given

    bool has(const char *option) const;
};

// Reads argv (argv[0] is the command's name): -h/--help prints help and
// stops with exit_ok; "--" ends the options; an unknown option, a missing or
// a second FILE prints one line and stops with exit_usage. Otherwise returns
// exit_ok with stop false.
int parse_command_options(const char *command, int argc, char **argv, std::initializer_list<const char *> known,
                          void (*help)(FILE *), command_options &options, bool &stop);

}  // namespace kelqtool
