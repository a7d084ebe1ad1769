#include "riff/file_extent.h"

#include "kelqavi.h"

namespace kelq {

int64_t bytes_left(FILE *stream) {
    const int64_t here = file_tell(stream);
    if (here < 0 || file_seek(stream, 0, 2) != 0) return -1;
    const int64_t end = file_tell(stream);
    if (file_seek(stream, here, 0) != 0 || end < 0) return -1;
    return end > here ? end - here : 0;
}

int64_t file_length(FILE *stream) {
    const int64_t here = file_tell(stream);
    const int64_t left = bytes_left(stream);
    return here < 0 || left < 0 ? -1 : here + left;
}

int flush_in_place(FILE *stream, int64_t here) {
    if (fflush(stream) != 0) return 1;
    if (here < 0) here = file_tell(stream);
    return here < 0 || file_seek(stream, here, 0) != 0 ? 1 : 0;
}

size_t read_at(FILE *stream, int64_t pos, void *dst, size_t count) {
    if (pos < 0 || file_seek(stream, pos, 0) != 0) return 0;
    return file_read(stream, dst, count);
}

}  // namespace kelq
