// Exit statuses shared by every command, and the tool's one-line messages.
#pragma once

namespace kelqtool {

enum exit_status : int {
    exit_ok = 0,        // done, and nothing wrong was found
    exit_bad_input = 1, // a file could not be opened, read or written, or is not what it must be
    exit_usage = 2,     // unknown command or option, missing or extra argument
    exit_problems = 3,  // the command ran to the end but found faults in the file
};

// Prints "kelqavi: " and the formatted message, then a newline, on stderr.
void print_error(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace kelqtool
