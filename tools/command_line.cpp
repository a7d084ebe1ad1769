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
                          void (*help)(FILE *), command_options &options, bool &stop, bool path_required) {
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
    if (options.path == nullptr && path_required) {
        print_error("'%s' needs a FILE (see 'kelqavi %s --help')", command, command);
        return exit_usage;
    }
    stop = false;
    return exit_ok;
}

bool valued_options::has(const char *option) const {
    for (const std::string &s : set)
        if (s == option) return true;
    return false;
}

const std::string *valued_options::value(const char *option) const {
    const std::string *found = nullptr;
    for (const auto &v : values)
        if (v.first == option) found = &v.second;
    return found;
}

int parse_valued_options(const char *command, int argc, char **argv, std::initializer_list<const char *> flags,
                         std::initializer_list<const char *> with_value, size_t operands, const char *usage,
                         void (*help)(FILE *), valued_options &options, bool &stop, size_t optional) {
    stop = true;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) break;
        if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
            help(stdout);
            return exit_ok;
        }
    }
    const auto listed = [](std::initializer_list<const char *> list, const char *arg) {
        for (const char *k : list)
            if (std::strcmp(arg, k) == 0) return true;
        return false;
    };
    bool only_operands = false;
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        if (!only_operands && arg[0] == '-' && arg[1] != '\0') {
            if (std::strcmp(arg, "--") == 0) {
                only_operands = true;
            } else if (listed(flags, arg)) {
                options.set.emplace_back(arg);
            } else if (listed(with_value, arg)) {
                if (i + 1 >= argc) {
                    print_error("'%s' needs a value (see 'kelqavi %s --help')", arg, command);
                    return exit_usage;
                }
                options.values.emplace_back(arg, argv[++i]);
            } else {
                print_error("unknown option '%s' for '%s' (see 'kelqavi %s --help')", arg, command, command);
                return exit_usage;
            }
        } else if (options.operands.size() < operands + 1 + optional) {
            options.operands.push_back(arg);
        } else {
            print_error("too many arguments for '%s': '%s' (usage: kelqavi %s %s)", command, arg, command, usage);
            return exit_usage;
        }
    }
    if (options.operands.size() < operands + 1) {
        print_error("'%s' needs %s (see 'kelqavi %s --help')", command, usage, command);
        return exit_usage;
    }
    stop = false;
    return exit_ok;
}

bool parse_number(const std::string &text, long long low, long long high, long long &value) {
    if (text.empty() || text.size() > 18) return false;
    size_t i = text[0] == '-' ? 1 : 0;
    if (i == text.size()) return false;
    long long n = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        n = n * 10 + (text[i] - '0');
    }
    if (text[0] == '-') n = -n;
    if (n < low || n > high) return false;
    value = n;
    return true;
}

}  // namespace kelqtool
