// Answers a read stream can give from the buffer stdio already holds, with
// no call into stdio and no system call: where the stream stands, moving it
// inside the buffered bytes, and taking or looking at the bytes ahead. glibc's
// tell and seek take the stream's lock and go through its function table,
// and its seek asks the kernel to confirm the position even when the target
// is buffered; a walk doing either per chunk pays for that per chunk. Each
// call here leaves the stream exactly as the stdio call it stands for would,
// or does nothing and says so, and the caller then makes the stdio call.
// Only glibc's stream layout is known; elsewhere every call says no. Like the
// unlocked reads, they assume one thread uses the stream at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kelq {

#if defined(__GLIBC__)

namespace stream_buffer_detail {

// Bytes stdio has written into its buffer and not yet handed to the kernel,
// a pushed-back area, a wide stream or an unknown file offset: the buffer
// alone says nothing of the position then.
inline bool position_known(const FILE *f) {
    return f->_IO_buf_base != nullptr && f->_IO_write_ptr == f->_IO_write_base && f->_IO_save_base == nullptr &&
           f->_mode <= 0 && f->_offset >= 0;
}

// Reading, with bytes in the buffer, nothing pending to write and the
// end-of-file flag clear: the state stdio's own in-buffer seek leaves.
inline bool reading_quietly(FILE *f) {
    return position_known(f) && f->_IO_read_base == f->_IO_buf_base && f->_IO_read_end > f->_IO_read_base &&
           f->_IO_write_base == f->_IO_buf_base && f->_IO_write_end == f->_IO_buf_base && !feof_unlocked(f);
}

// The file offset stands at the end of what was read into the buffer.
inline int64_t position(const FILE *f) { return f->_offset - (f->_IO_read_end - f->_IO_read_ptr); }

inline bool holds(FILE *f, size_t count) {
    return reading_quietly(f) && static_cast<size_t>(f->_IO_read_end - f->_IO_read_ptr) >= count;
}

}  // namespace stream_buffer_detail

// Where the stream stands, as ftello would say, or -1 when the buffer alone
// cannot tell (pending writes, pushed-back bytes, an unknown file offset).
inline int64_t buffered_tell(FILE *stream) {
    return stream_buffer_detail::position_known(stream) ? stream_buffer_detail::position(stream) : -1;
}

// The same for a stream that is reading, holds buffered bytes and has its
// end-of-file flag clear, the state the calls below work from; else -1.
inline int64_t reading_position(FILE *stream) {
    return stream_buffer_detail::reading_quietly(stream) ? stream_buffer_detail::position(stream) : -1;
}

// Moves a reading stream to target when target is where it stands or lies
// among the bytes it has buffered, as fseeko to target would leave it (its
// end-of-file flag is clear, since the move is refused when it is set).
// False, with nothing done, otherwise.
inline bool buffered_seek(FILE *stream, int64_t target) {
    if (!stream_buffer_detail::reading_quietly(stream)) return false;
    const int64_t buffer_start = stream->_offset - (stream->_IO_read_end - stream->_IO_buf_base);
    if (target != stream_buffer_detail::position(stream) && (target < buffer_start || target >= stream->_offset))
        return false;
    stream->_IO_read_ptr = stream->_IO_buf_base + (target - buffer_start);
    return true;
}

// Copies the next count bytes without taking them when all are buffered.
// False, with nothing done, otherwise.
inline bool buffered_peek(FILE *stream, void *dst, size_t count) {
    if (!stream_buffer_detail::holds(stream, count)) return false;
    std::memcpy(dst, stream->_IO_read_ptr, count);
    return true;
}

// Takes the next count bytes, as a read of them would, when all are
// buffered: copied to dst unless it is null. False, with nothing done,
// otherwise.
inline bool buffered_read(FILE *stream, void *dst, size_t count) {
    if (!stream_buffer_detail::holds(stream, count)) return false;
    if (dst != nullptr) std::memcpy(dst, stream->_IO_read_ptr, count);
    stream->_IO_read_ptr += count;
    return true;
}

#else

inline int64_t buffered_tell(FILE *) { return -1; }
inline int64_t reading_position(FILE *) { return -1; }
inline bool buffered_seek(FILE *, int64_t) { return false; }
inline bool buffered_peek(FILE *, void *, size_t) { return false; }
inline bool buffered_read(FILE *, void *, size_t) { return false; }

#endif

}  // namespace kelq
