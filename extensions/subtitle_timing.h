// Parsing the time span that opens a bitmap subtitle chunk.
#pragma once

#include <cstdint>

namespace kelq {

// Bytes of a subtitle chunk's data that hold its time span text; the last is
// forced to NUL, so at most 25 characters count.
constexpr int subtitle_text_size = 26;

// Finds separator in the text at *cursor; puts a NUL over it, reads the text
// before it as a base-10 number (strtol: leading blanks and a sign allowed,
// stops at the first non-digit) kept in 16 bits, and moves the cursor past
// the separator. Non-zero, with nothing changed, when the separator is missing.
int getTimeValue(char **cursor, const char *separator, uint16_t *value);

}  // namespace kelq
