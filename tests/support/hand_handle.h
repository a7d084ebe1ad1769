// A reader handle built by hand around a byte image, without aviin_open, for
// testing the readers that aviin_open calls and the calls that need no more
// than an open file and a few handle fields.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "kelqavi.h"
#include "reader/reader_handle.h"
#include "support/byte_image.h"

namespace kelqtest {

class hand_handle {
public:
    // A zeroed handle whose file holds the image. With list_at given, the
    // handle stands in the list whose header is there (current_list), the
    // stream at that list's first chunk; otherwise the stream is at 0.
    explicit hand_handle(const byte_image &image, int64_t list_at = -1, uint32_t swapped_ids = 0)
        : h_(static_cast<aviin_handle *>(std::calloc(1, sizeof(aviin_handle)))) {
        FILE *f = std::tmpfile();
        if (h_ == nullptr || f == nullptr) return;
        if (image.size() > 0) std::fwrite(image.bytes().data(), 1, image.size(), f);
        std::rewind(f);
        h_->file = f;
        h_->swapped_ids = swapped_ids;
        if (list_at >= 0 && file_seek(f, list_at, 0) == 0) h_->current_list = new_list(nullptr, f);
    }
    ~hand_handle() { aviin_close(h_); }
    hand_handle(const hand_handle &) = delete;
    hand_handle &operator=(const hand_handle &) = delete;

    aviin_handle *get() const { return h_; }
    aviin_handle *operator->() const { return h_; }
    operator aviin_handle *() const { return h_; }

    int64_t tell() const { return file_tell(h_->file); }
    void seek(int64_t at) const { file_seek(h_->file, at, 0); }

private:
    aviin_handle *h_;
};

}  // namespace kelqtest
