// Positioned reads and writes on a stdio stream.
#include "repair/repair_state.h"

namespace kelq::repair {

size_t read_at(FILE *f, int64_t pos, void *dst, size_t count) {
    if (pos < 0 || file_seek(f, pos, 0) != 0) return 0;
    return file_read(f, dst, count);
}

bool write_at(FILE *f, int64_t pos, const void *src, size_t count) {
    if (pos < 0 || file_seek(f, pos, 0) != 0) return false;
    return file_write(f, src, count) == count;
}

}  // namespace kelq::repair
