// Menu forms, menu lists and extension data as byte images. Chunks inside
// menu forms get no pad byte: the menu walks use sizes as stored.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "support/byte_image.h"

namespace kelqtest {

inline byte_image bare_chunk(const char *id, const std::string &payload) {
    return byte_image().chunk(id, byte_image().text(payload), false);
}

// A top-level menu form: "RIFF" size type, then the "KMNU" list as its first list.
inline byte_image menu_form(const byte_image &chunks, const char *form_type = "KQMF") {
    return byte_image().list("RIFF", form_type, byte_image().list("LIST", "KMNU", chunks));
}

// A menu form whose "KMNU" list follows a first chunk of its own, here a
// 16-byte head whose first 8 bytes hold the form's position in the file.
inline byte_image menu_form_after_head(const byte_image &chunks, uint64_t position = 0) {
    const byte_image head = byte_image().chunk("MHDR", byte_image().u64(position).u64(0));
    return byte_image().list("RIFF", "KQMF", byte_image().append(head).list("LIST", "KMNU", chunks));
}

// Whether the bytes occur somewhere in the image.
inline bool occurs_in(const byte_image &image, const uint8_t *bytes, size_t count) {
    const auto &b = image.bytes();
    return std::search(b.begin(), b.end(), bytes, bytes + count) != b.end();
}

}  // namespace kelqtest
