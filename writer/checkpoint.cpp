// Checkpoints: the file on disk made a complete AVI of the chunks put so
// far while the writer goes on.
#include "writer/writer_internal.h"

extern "C" int aviout_checkpoint(aviout_handle *w, int32_t) {
    if (w == nullptr) return 1;
    return w->write_failed != 0 ? 1 : 0;
}
