// How many bytes a stream holds after its current position, so that a size
// read from a file can be checked before anything is allocated for it.
#pragma once

#include <cstdint>
#include <cstdio>

namespace kelq {

// Bytes from the current position to the end of the file, or -1 when the
// stream cannot tell (not seekable). The position is kept.
int64_t bytes_left(FILE *stream);
// The whole length of the file, or -1 when the stream cannot tell. The
// position is kept.
int64_t file_length(FILE *stream);

}  // namespace kelq
