// Files for the chunk-walk and segment tests: forms whose movi list holds
// chosen chunks, with the positions the walks are expected to report, and a
// reader opened on such a file.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kelqavi.h"
#include "reader/reader_handle.h"
#include "support/avi_image.h"

namespace kelqtest {

constexpr int64_t form_header_size = 12;  // "RIFF", size, form type
constexpr int64_t list_header_size = 12;  // "LIST", size, list type

inline byte_image two_stream_hdrl() { return hdrl({video_strl("MJPG", "video one"), audio_strl("audio one")}); }

// A form: a header list (may be empty), "movi" with the given chunks, then
// what follows the movi list inside the form.
struct form_image {
    byte_image bytes;
    int64_t movi_list;  // position of the movi list's "LIST", from the form's start
    int64_t movi_data;  // its first chunk
};

inline form_image make_form(const char *form_type, const byte_image &header_list, const byte_image &movi_chunks,
                            const byte_image &after_movi = byte_image()) {
    byte_image body;
    body.append(header_list).append(movi(movi_chunks)).append(after_movi);
    const int64_t movi_list = form_header_size + static_cast<int64_t>(header_list.size());
    return {avi_form(body, form_type), movi_list, movi_list + list_header_size};
}

inline form_image main_form(const byte_image &movi_chunks, const byte_image &after_movi = byte_image()) {
    return make_form("AVI ", two_stream_hdrl(), movi_chunks, after_movi);
}

// An opened reader and its file; the handle is closed at scope exit unless
// the test let it go (a call that released it).
class reader {
public:
    explicit reader(const byte_image &image, uint32_t swapped_ids = 0)
        : file_(image), h_(aviin_open(file_.path(), swapped_ids)) {}
    ~reader() { aviin_close(h_); }
    reader(const reader &) = delete;
    reader &operator=(const reader &) = delete;

    aviin_handle *get() const { return h_; }
    aviin_handle *operator->() const { return h_; }
    explicit operator bool() const { return h_ != nullptr; }
    void released() { h_ = nullptr; }

private:
    temp_file file_;
    aviin_handle *h_;
};

}  // namespace kelqtest
