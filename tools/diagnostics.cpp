#include "diagnostics.h"

#include <cstdarg>
#include <cstdio>

namespace kelqtool {

void print_error(const char *format, ...) {
    std::fflush(stdout);
    std::fputs("kelqavi: ", stderr);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
}

}  // namespace kelqtool
