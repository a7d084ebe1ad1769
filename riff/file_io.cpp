// Thin wrappers over stdio's 64-bit stream calls. Tell and seek answer from
// the stream's buffer when they can, which saves a walk over many small
// chunks a lock and a system call per chunk.
#include "kelqavi.h"
#include "riff/forward_read.h"
#include "riff/stream_buffer.h"

#include <cstdint>
#include <cstdio>

namespace {

constexpr const char *open_modes[] = {"rb", "wb", "rt", "wt", "r+b"};
constexpr int mode_update = 4;

}  // namespace

extern "C" {

FILE *file_open(const char *path, int mode) {
    if (path == nullptr || mode < 0 || mode > mode_update) return nullptr;
    FILE *stream = fopen64(path, open_modes[mode]);
    if (stream != nullptr && mode == mode_update) fseeko64(stream, 0, SEEK_END);
    return stream;
}

int file_close(FILE *stream) {
    if (stream == nullptr) return 1;
    return fclose(stream) == 0 ? 0 : 1;
}

size_t file_read(FILE *stream, void *dst, size_t count) {
    if (stream == nullptr || dst == nullptr) return 0;
    return fread(dst, 1, count, stream);
}

size_t file_write(FILE *stream, const void *src, size_t count) {
    if (stream == nullptr || src == nullptr) return 0;
    return fwrite(src, 1, count, stream);
}

int file_seek(FILE *stream, int64_t offset, int origin) {
    static constexpr int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (origin < 0 || origin > 2 || stream == nullptr) return 1;
    // A target among the buffered bytes, or a little way ahead of them, is
    // reached without asking the kernel; the stream ends as the seek leaves it.
    const int64_t here = origin != 2 ? kelq::reading_position(stream) : -1;
    if (here >= 0 && (origin == 0 || offset <= INT64_MAX - here)) {
        const int64_t target = origin == 0 ? offset : here + offset;
        if (kelq::buffered_seek(stream, target) || kelq::reach_by_reading(stream, here, target)) return 0;
        // The reads may have moved the stream part of the way.
        return fseeko64(stream, target, SEEK_SET) == 0 ? 0 : 1;
    }
    return fseeko64(stream, offset, whence[origin]) == 0 ? 0 : 1;
}

int64_t file_tell(FILE *stream) {
    if (stream == nullptr) return -1;
    const int64_t here = kelq::buffered_tell(stream);
    return here >= 0 ? here : ftello64(stream);
}

int file_eof(FILE *stream) {
    if (stream == nullptr) return 1;
    return feof(stream) ? 1 : 0;
}

int file_error(FILE *stream) {
    if (stream == nullptr) return 1;
    if (!ferror(stream)) return 0;
    perror("file error");
    return 1;
}

}  // extern "C"
