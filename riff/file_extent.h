// How many bytes a stream holds after its current position, so that a size
// read from a file can be checked before anything is allocated for it; and a
// flush that keeps the stream's position known; a read at a position.
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
// Flushes the stream and seeks to where it stands (here, when the caller
// knows it, else asked for): a flush makes stdio forget the position, and
// every later tell would then ask the kernel. 0 on success.
int flush_in_place(FILE *stream, int64_t here = -1);

// Up to count bytes at file position pos into dst: the bytes read, 0 for a
// negative position or a failed seek. The stream is left after them.
size_t read_at(FILE *stream, int64_t pos, void *dst, size_t count);

}  // namespace kelq
