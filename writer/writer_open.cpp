// Opening a writer: the handle, the output file and its buffer.
#include "writer/writer_internal.h"

#include <cstdio>
#include <cstdlib>

extern "C" aviout_handle *aviout_open(const char *path, uint32_t odml, uint32_t append) {
    // One calloc'd block: the pages of the inline legacy-index table come
    // zero from the system and stay unresident until a chunk reaches them.
    auto *w = static_cast<aviout_handle *>(std::calloc(1, sizeof(aviout_handle)));
    if (w == nullptr) return nullptr;
    w->file = file_open(path, append != 0 ? 4 : 1);
    if (w->file == nullptr) {
        std::free(w);
        return nullptr;
    }
    // stdio keeps its small default buffer unless it is handed one.
    w->io_buffer = static_cast<uint8_t *>(std::malloc(kelq::io_buffer_size));
    if (w->io_buffer != nullptr)
        std::setvbuf(w->file, reinterpret_cast<char *>(w->io_buffer), _IOFBF, kelq::io_buffer_size);
    w->odml = odml;
    w->file_start = file_tell(w->file);
    w->riff_index = -1;
    w->main_header.flags = kelq::main_header_flags;
    return w;
}
