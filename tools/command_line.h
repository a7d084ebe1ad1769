// Option parsing shared by the commands that take one FILE and on/off
// options: "kelqavi info [--json] FILE" and the like.
#pragma once

#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>
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
// exit_ok with stop false. With path_required false a missing FILE leaves
// path null.
int parse_command_options(const char *command, int argc, char **argv, std::initializer_list<const char *> known,
                          void (*help)(FILE *), command_options &options, bool &stop, bool path_required = true);

// The same for commands whose options may take a value ("--audio 1") and
// that take more than one operand: FILE first, then `operands` more
// (usage names them for the message when one is missing).
struct valued_options {
    std::vector<std::string> set;                              // on/off options given
    std::vector<std::pair<std::string, std::string>> values;   // options with their value
    std::vector<const char *> operands;                        // FILE and the rest, in order

    bool has(const char *option) const;
    const std::string *value(const char *option) const;        // the last one given, or null
};

// optional: how many more operands may follow the required ones.
int parse_valued_options(const char *command, int argc, char **argv, std::initializer_list<const char *> flags,
                         std::initializer_list<const char *> with_value, size_t operands, const char *usage,
                         void (*help)(FILE *), valued_options &options, bool &stop, size_t optional = 0);

// A whole decimal number within [low, high]; false for anything else.
bool parse_number(const std::string &text, long long low, long long high, long long &value);

}  // namespace kelqtool
