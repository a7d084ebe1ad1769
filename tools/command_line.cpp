#include "command_line.h"

#include "diagnostics.h"

#include <cstring>

namespace kelqtool {

bool command_options::has(const char *option) const {
    for (const std::string &s : set)
        if (s == option) return true;
    return false;
}

int parse_command_options(const char *command, int argc, char **argv, std::initializer_list<const char *> known,
                          void (*help)(FILE *), command_options &options, bool &stop) {
    stop = true;
    bool only_operands = false;
    // Help wins over whatever else is on the line, errors included.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) break;
        if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
            help(stdout);
            return exit_ok;
        }
    }
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        if (!only_operands && arg[0] == '-' && arg[1] != '\0') {
            if (std::strcmp(arg, "--") == 0) {
                only_operands = true;
                continue;
            }
            bool found = false;
            for (const char *k : known) found = found || std::strcmp(arg, k) == 0;
            if (!found) {
                print_error("unknown option '%s' for '%s' (see 'kelqavi %s --help')", arg, command, command);
                return exit_usage;
            }
            options.set.emplace_back(arg);
        } else if (options.path == nullptr) {
            options.path = arg;
        } else {
            print_error("'%s' takes one FILE, but '%s' follows '%s'", command, arg, options.path);
            return exit_usage;
        }
    }
    if (options.path == nullptr) {
        print_error("'%s' needs a FILE (see 'kelqavi %s --help')", command, command);
        return exit_usage;
    }
    stop = false;
    return exit_ok;
}

}  // namespace kelqtool
