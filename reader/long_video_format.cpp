// Video formats longer than their 40-byte bitmap header (a palette, codec
// set-up data), taken under the long-format tolerance: the header as usual,
// the bytes after it kept in a block of their own.
#include "headers/record_layout.h"
#include "reader/tolerant_rules.h"
#include "riff/file_extent.h"
#include "riff/riff_layout.h"

#include <cstdlib>

namespace {

// Reads the bytes past the header; the stream stands at them. Nothing is
// allocated for more bytes than the file still holds.
int read_extra(FILE *f, uint32_t size, uint8_t *&extra) {
    const int64_t left = kelq::bytes_left(f);
    if (left < 0 || static_cast<uint64_t>(size) > static_cast<uint64_t>(left)) return 1;
    extra = static_cast<uint8_t *>(std::malloc(size));
    if (extra == nullptr) return 1;
    if (file_read(f, extra, size) == size) return 0;
    std::free(extra);
    extra = nullptr;
    return 1;
}

}  // namespace

namespace kelq {

int read_video_strf(aviin_handle *h, video_format &vf, uint8_t *&extra, uint32_t &extra_size) {
    FILE *f = reader_stream(h);
    extra = nullptr;
    extra_size = 0;
    if (!tolerates(h, AVIIN_TOLERATE_LONG_VIDEO_FORMAT)) return read_header_strf_video(&vf, f);
    const int64_t start = file_tell(f);
    uint32_t size = 0;
    int status = read_fourCC(nullptr, f);
    status |= read_val32(&size, f);
    if (status != 0 || size <= strf_video_size) {
        file_seek(f, start, origin_start);
        return read_header_strf_video(&vf, f);
    }
    // The header's own size field is not held to the chunk's: writers put
    // either 40 or 40 plus the extra bytes there.
    if (read_bitmap_fields(&vf, f) != 0 || read_extra(f, size - strf_video_size, extra) != 0) return 1;
    extra_size = size - strf_video_size;
    note_needed(h, AVIIN_TOLERATE_LONG_VIDEO_FORMAT);
    if ((size & 1u) != 0) file_seek(f, 1, origin_current);
    return 0;
}

void keep_video_format_extra(aviin_handle *h, int32_t slot, uint8_t *extra, uint32_t extra_size) {
    std::free(h->video_format_extra[slot]);
    h->video_format_extra[slot] = extra;
    h->video_format_extra_size[slot] = extra_size;
}

}  // namespace kelq
