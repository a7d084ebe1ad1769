// The one command-line parser of the commands: on/off options, options with
// a value ("--audio 1" or "--audio=1") and operands, with -h/--help and "--".
#pragma once

#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace kelqtool {

// How a command's line is read, and the words of its messages.
struct command_syntax {
    const char *command;
    std::initializer_list<const char *> flags;       // on/off options
    std::initializer_list<const char *> with_value;  // options followed by a value
    size_t required = 1, optional = 0;               // operands, and how many more may follow
    const char *operands = "a FILE";                 // for "'CMD' needs a FILE (see ...)"
    void (*help)(FILE *) = nullptr;
    // The message for an operand too many (arg) after the first one (first);
    // null: "'CMD' takes one FILE, but 'ARG' follows 'FIRST'".
    std::string (*extra)(const command_syntax &syntax, const char *arg, const char *first) = nullptr;
    // The message for an option whose value is missing; null: "'OPTION'
    // needs a value (see ...)".
    std::string (*no_value)(const command_syntax &syntax, const char *option) = nullptr;
};

// The message "too many arguments for 'CMD': 'ARG' (usage: kelqavi CMD ...)",
// for syntax.extra; the usage is the syntax's operands.
std::string too_many_arguments(const command_syntax &syntax, const char *arg, const char *first);
// "option 'OPTION' needs a value (see ...)", for syntax.no_value.
std::string option_needs_value(const command_syntax &syntax, const char *option);

struct command_options {
    const char *path = nullptr;                                // the first operand, or null
    std::vector<const char *> operands;                        // in order
    std::vector<std::string> set;                              // on/off options given
    std::vector<std::pair<std::string, std::string>> values;   // options with their value

    bool has(const char *option) const;
    const std::string *value(const char *option) const;        // the last one given, or null
};

// Reads argv (argv[0] is the command's name): -h/--help anywhere before "--"
// prints help and stops with exit_ok; "--" ends the options; an unknown
// option, a missing value, a missing operand or one too many prints one line
// and stops with exit_usage. Otherwise returns exit_ok with stop false.
int parse_command_line(const command_syntax &syntax, int argc, char **argv, command_options &options, bool &stop);

// A whole decimal number within [low, high]; false for anything else.
bool parse_number(const std::string &text, long long low, long long high, long long &value);

}  // namespace kelqtool
