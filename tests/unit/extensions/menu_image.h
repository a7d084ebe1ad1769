// Menu forms, menu lists and extension data as byte images. Chunks inside
// menu forms get no pad byte: the menu walks use sizes as stored.
#pragma once

#include <cstdint>
#include <string>

#include "kelqavi.h"
#include "support/byte_image.h"

namespace kelqtest {

inline byte_image bare_chunk(const char *id, const std::string &payload) {
    return byte_image().chunk(id, byte_image().text(payload), false);
}

// A top-level menu form: "RIFF" size type, then the "KMNU" list as its first
// list or, with a head, after that first chunk of the form's own.
inline byte_image menu_form(const byte_image &chunks, const byte_image &head = byte_image()) {
    return byte_image().list("RIFF", "KQMF", byte_image(head).list("LIST", "KMNU", chunks));
}

// A block as its getter (aviin_get_metadata_info, aviin_get_menu_info or
// aviin_get_menu_chunk) hands it over: the chunk whole, header included,
// unless payload_only; "(none) size N" when there is none.
inline std::string block(int (*get)(aviin_handle *, uint8_t **, int32_t *), aviin_handle *h, bool payload_only = false) {
    uint8_t *data = nullptr;
    int32_t size = 0;
    if (get(h, &data, &size) != 0) return "(failed)";
    if (data == nullptr) return "(none) size " + std::to_string(size);
    return std::string(reinterpret_cast<const char *>(data), static_cast<size_t>(size + (payload_only ? 0 : 8)));
}

inline std::string whole(const byte_image &chunk) { return std::string(chunk.bytes().begin(), chunk.bytes().end()); }

inline int32_t riff_count(aviin_handle *h) {
    int32_t n = -1;
    aviin_get_riff_count(h, &n);
    return n;
}

}  // namespace kelqtest
