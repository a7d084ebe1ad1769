// Key frames told from the bitstream, for video without an index: an
// MPEG-4 Visual chunk whose first VOP is intra coded, an H.264 chunk whose
// first slice belongs to an IDR picture. What the look cannot decide is a
// key frame; an empty chunk (a dropped frame) is not.
#include "repair/key_sources.h"

namespace kelq::repair {

namespace {

constexpr uint8_t vop_start = 0xB6;
constexpr uint8_t nal_slice = 1;
constexpr uint8_t nal_idr_slice = 5;
constexpr uint8_t nal_type_bits = 0x1F;

// Position of the byte after the next 00 00 01 at or after from; count when none.
size_t after_start_code(const uint8_t *b, size_t count, size_t from) {
    for (size_t i = from; i + 3 < count; ++i)
        if (b[i] == 0 && b[i + 1] == 0 && b[i + 2] == 1) return i + 3;
    return count;
}

bool mpeg4_key(const uint8_t *b, size_t count) {
    for (size_t at = after_start_code(b, count, 0); at < count; at = after_start_code(b, count, at))
        if (b[at] == vop_start) return at + 1 >= count || (b[at + 1] >> 6) == 0;
    return true;
}

bool h264_key(const uint8_t *b, size_t count) {
    for (size_t at = after_start_code(b, count, 0); at < count; at = after_start_code(b, count, at)) {
        const uint8_t type = b[at] & nal_type_bits;
        if (type == nal_idr_slice) return true;
        if (type == nal_slice) return false;
    }
    return true;
}

}  // namespace

bool starts_key_frame(key_rule rule, const uint8_t *bytes, size_t count) {
    if (rule == key_rule::always) return true;
    if (count == 0) return false;
    return rule == key_rule::mpeg4 ? mpeg4_key(bytes, count) : h264_key(bytes, count);
}

}  // namespace kelq::repair
