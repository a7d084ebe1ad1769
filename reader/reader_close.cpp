// Releasing a reader handle and everything it owns.
#include "reader/reader_handle.h"

#include <cstdlib>

namespace {

// Every slot is walked, not just the ones the current segment counts: slots
// start zeroed and the parser frees a block before it overwrites it, so each
// non-null pointer here is the handle's own.
void free_video_entries(video_stream_format *entries) {
    for (int i = 0; i < kelq::max_streams_per_kind; ++i) {
        std::free(entries[i].strd_data);
        std::free(entries[i].name);
    }
}

void free_caption_names(caption_stream_format *entries) {
    for (int i = 0; i < kelq::max_streams_per_kind; ++i) std::free(entries[i].name);
}

}  // namespace

extern "C" void aviin_close(aviin_handle *h) {
    if (h == nullptr) return;
    if (h->file != nullptr) file_close(h->file);
    delete_list_recursive(h->current_list);
    free_video_entries(h->video_formats);
    for (audio_stream_format &entry : h->audio_formats) std::free(entry.name);
    free_caption_names(h->text_caption_formats);
    free_video_entries(h->bitmap_caption_formats);
    free_caption_names(h->chapter_formats);
    std::free(h->menu_data);
    std::free(h->menu_chunk_data);
    std::free(h->metadata_data);
    for (uint8_t *extra : h->video_format_extra) std::free(extra);
    std::free(h);
}
