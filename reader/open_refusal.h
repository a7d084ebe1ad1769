// Why an open fails. Each check of the open path that refuses a file notes
// its code and what it saw, once: the first refusal is the cause, later ones
// follow from it. aviin_open_report turns the note into a line of text. A
// handle opened without a record (aviin_open, and every re-read of a header
// list after the open) notes nothing.
#pragma once

#include "reader/reader_handle.h"

#include <cstdint>

namespace kelq {

struct open_refusal {
    uint32_t code = AVIIN_OPEN_OK;
    int32_t stream = -1;  // stream number the check concerns, -1 for none
    int64_t offset = -1;  // file position it concerns
    uint64_t size = 0;    // a size or a count it saw
    uint64_t limit = 0;   // what that size or count was held to
    uint32_t id = 0;      // a FourCC, or a stream kind (chunk type code)
    int error = 0;        // errno of a failed open or read
};

// Notes a refusal on h's record, with what the check saw (see open_refusal),
// unless one is noted already. When the stream reports a read error, that
// error is the cause, whatever the check.
void note_refusal(aviin_handle *h, uint32_t code, int64_t offset, uint64_t size = 0, uint32_t id = 0,
                  int32_t stream = -1, uint64_t limit = 0);

// Writes the words for r into text (cut to fit, NUL-terminated).
void refusal_text(const open_refusal &r, char *text, size_t text_size);

}  // namespace kelq
