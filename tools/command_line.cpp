#include "command_line.h"

#include "diagnostics.h"

#include <cstring>

namespace kelqtool {

namespace {

bool listed(std::initializer_list<const char *> list, const char *arg) {
    for (const char *k : list)
        if (std::strcmp(arg, k) == 0) return true;
    return false;
}

// An option with a value: "--name VALUE" or "--name=VALUE". 0 when arg is no
// such option, 1 when it is (i moved past a separate value), -1 when the
// value is missing (a line printed).
int take_value(const command_syntax &syntax, int argc, char **argv, int &i, command_options &options) {
    const char *arg = argv[i];
    for (const char *name : syntax.with_value) {
        const size_t n = std::strlen(name);
        if (std::strncmp(arg, name, n) != 0 || (arg[n] != '\0' && arg[n] != '=')) continue;
        if (arg[n] == '=') {
            options.values.emplace_back(name, arg + n + 1);
            return 1;
        }
        if (i + 1 < argc) {
            options.values.emplace_back(name, argv[++i]);
            return 1;
        }
        if (syntax.no_value != nullptr)
            print_error("%s", syntax.no_value(syntax, name).c_str());
        else
            print_error("'%s' needs a value (see 'kelqavi %s --help')", name, syntax.command);
        return -1;
    }
    return 0;
}

// One operand. False, with a line printed, for one too many.
bool take_operand(const command_syntax &syntax, const char *arg, command_options &options) {
    if (options.operands.size() < syntax.required + syntax.optional) {
        options.operands.push_back(arg);
        return true;
    }
    const char *first = options.operands.empty() ? "" : options.operands[0];
    if (syntax.extra != nullptr)
        print_error("%s", syntax.extra(syntax, arg, first).c_str());
    else
        print_error("'%s' takes one FILE, but '%s' follows '%s'", syntax.command, arg, first);
    return false;
}

}  // namespace

std::string too_many_arguments(const command_syntax &syntax, const char *arg, const char *) {
    return std::string("too many arguments for '") + syntax.command + "': '" + arg + "' (usage: kelqavi " +
           syntax.command + " " + syntax.operands + ")";
}

std::string option_needs_value(const command_syntax &syntax, const char *option) {
    return std::string("option '") + option + "' needs a value (see 'kelqavi " + syntax.command + " --help')";
}

bool command_options::has(const char *option) const {
    for (const std::string &s : set)
        if (s == option) return true;
    return false;
}

const std::string *command_options::value(const char *option) const {
    const std::string *found = nullptr;
    for (const auto &v : values)
        if (v.first == option) found = &v.second;
    return found;
}

int parse_command_line(const command_syntax &syntax, int argc, char **argv, command_options &options, bool &stop) {
    stop = true;
    // Help wins over whatever else is on the line, errors included.
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
            syntax.help(stdout);
            return exit_ok;
        }
    }
    bool only_operands = false;
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        if (only_operands || arg[0] != '-' || arg[1] == '\0') {
            if (!take_operand(syntax, arg, options)) return exit_usage;
        } else if (std::strcmp(arg, "--") == 0) {
            only_operands = true;
        } else if (listed(syntax.flags, arg)) {
            options.set.emplace_back(arg);
        } else if (const int valued = take_value(syntax, argc, argv, i, options); valued != 0) {
            if (valued < 0) return exit_usage;
        } else {
            print_error("unknown option '%s' for '%s' (see 'kelqavi %s --help')", arg, syntax.command, syntax.command);
            return exit_usage;
        }
    }
    if (options.operands.size() < syntax.required) {
        print_error("'%s' needs %s (see 'kelqavi %s --help')", syntax.command, syntax.operands, syntax.command);
        return exit_usage;
    }
    options.path = options.operands.empty() ? nullptr : options.operands[0];
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
