// OpenDML index building while writing. Each track keeps the image of its
// indx payload and of its current ix## chunk in little-endian byte buffers,
// so writing either is one block copy.
#include "odml/index_build.h"

#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace kelq {

namespace {

// Offsets inside both index images (after the chunk's 8-byte header).
constexpr size_t at_longs_per_entry = 0;
constexpr size_t at_index_type = 3;
constexpr size_t at_entries_in_use = 4;
constexpr size_t at_chunk_id = 8;
constexpr size_t at_base_offset = 12;   // standard index only
constexpr size_t at_entries = index_header_size;

constexpr uint16_t super_longs_per_entry = 4;
constexpr uint16_t std_longs_per_entry = 2;
constexpr uint8_t index_of_chunks = 1;

constexpr int32_t type_video = 3;
constexpr int32_t type_audio = 1;

// dwChunkId: the track number printed "%02d" into a 2-byte space (so one
// digit and its terminator), then the type letters; with swapped ids the
// text, cut at that terminator, has its pairs exchanged.
// First character of the track number printed "%02d": all that fits when
// it is printed into a 2-byte space.
char first_digit(int32_t track) {
    char printed[16];
    std::snprintf(printed, sizeof printed, "%02d", static_cast<int>(track));
    return printed[0];
}

bool make_index_chunk_id(const aviout_handle *w, int32_t stream_type, int32_t track, uint8_t *out) {
    // The standard profile names the stream's own data chunks ("00dc", or
    // "dc00" with swapped ids), as players look for; caption tracks too.
    if (w->standard_profile != 0 && stream_type >= 1 && stream_type <= KELQAVI_CHUNK_CHAPTER) {
        store_le<uint32_t>(create_fourCC(track, stream_type, w->swapped_ids), out);
        return true;
    }
    if (stream_type != type_video && stream_type != type_audio) return false;
    char text[4] = {first_digit(track), 0, 'd', 'c'};
    if (stream_type == type_audio) {
        text[2] = 'w';
        text[3] = 'b';
    }
    if (w->swapped_ids != 0) {
        char cut[4];
        std::strncpy(cut, text, sizeof cut);
        text[0] = cut[2];
        text[1] = cut[3];
        text[2] = cut[0];
        text[3] = cut[1];
    }
    std::memcpy(out, text, sizeof text);
    return true;
}

// The id of a track's ix## chunk: "ix0" and a terminator ("ix%02d" printed
// into a 4-byte space), or in the standard profile both digits ("ix00").
uint32_t std_index_chunk_id(const aviout_handle *w, int32_t track) {
    uint8_t id[4] = {'i', 'x', static_cast<uint8_t>(first_digit(track)), 0};
    if (w->standard_profile != 0) {
        id[2] = static_cast<uint8_t>('0' + track / 10 % 10);
        id[3] = static_cast<uint8_t>('0' + track % 10);
    }
    return load_le<uint32_t>(id);
}

uint32_t entries_in_use(const uint8_t *image) { return load_le<uint32_t>(image + at_entries_in_use); }

void set_entries_in_use(uint8_t *image, uint32_t n) { store_le<uint32_t>(n, image + at_entries_in_use); }

uint32_t std_index_capacity(const odml_track_state *t) {
    return t->entries_per_chunk + std_index_spare_entries;
}

int write_image(FILE *file, const uint8_t *image, uint32_t size) {
    return file_write(file, image, size) == size ? 0 : 1;
}

}  // namespace

uint32_t std_index_entries(const aviout_handle *w, int32_t track) {
    return has_track(w, track) ? entries_in_use(w->std_index_buf[track]) : 0;
}

namespace {

int init_track(aviout_handle *w, int32_t stream_type, int32_t track, uint32_t entries, double frame_duration) {
    auto *t = static_cast<odml_track_state *>(std::calloc(1, sizeof(odml_track_state)));
    if (t == nullptr) return -1;
    w->odml_track[track] = t;
    if (track >= w->track_count) w->track_count = track + 1;
    t->frame_duration = frame_duration;
    t->stream_type = stream_type;
    t->entries_per_chunk = entries;
    if (configure_super_index(w, stream_type, track) == -1) return -1;
    if (configure_standard_index(w, t->stream_type, track) == -1) return -1;
    return track;
}

bool track_free(const aviout_handle *w, int32_t track) {
    return w != nullptr && track >= 0 && track < AVIOUT_MAX_STREAMS && w->odml_track[track] == nullptr;
}

}  // namespace

int init_avi2_track(aviout_handle *w, int32_t stream_type, int32_t track, aviout_stream_entry *, double frame_duration) {
    if (!track_free(w, track)) return -1;
    // The capacity must be a count whose ix## length still fits a size field.
    const double n = w->index_chunk_seconds / frame_duration;
    if (!(n >= 0.0 && n < static_cast<double>(max_entries_per_chunk) + 1.0)) return -1;
    return init_track(w, stream_type, track, static_cast<uint32_t>(n), frame_duration);
}

int init_caption_track(aviout_handle *w, int32_t stream_type, int32_t track) {
    if (!track_free(w, track)) return -1;
    return init_track(w, stream_type, track, caption_index_entries, 0.0);
}

int configure_super_index(aviout_handle *w, int32_t stream_type, int32_t track) {
    if (w == nullptr || track < 0 || track >= AVIOUT_MAX_STREAMS) return -1;
    w->super_index_pos[track] = static_cast<int64_t *>(std::calloc(1, sizeof(int64_t)));
    w->super_index_buf[track] = static_cast<uint8_t *>(std::calloc(1, super_index_size));
    if (w->super_index_pos[track] == nullptr || w->super_index_buf[track] == nullptr) return -1;
    uint8_t *image = w->super_index_buf[track];
    if (!make_index_chunk_id(w, stream_type, track, image + at_chunk_id)) return -1;
    store_le<uint16_t>(super_longs_per_entry, image + at_longs_per_entry);
    return track;
}

int configure_standard_index(aviout_handle *w, int32_t stream_type, int32_t track) {
    if (w == nullptr || track < 0 || track >= AVIOUT_MAX_STREAMS || w->odml_track[track] == nullptr) return -1;
    odml_track_state *t = w->odml_track[track];
    t->std_index_buf_size = t->entries_per_chunk * std_entry_size + std_index_overhead;
    t->stream_type = stream_type;
    uint8_t chunk_id[4];
    if (!make_index_chunk_id(w, stream_type, track, chunk_id)) return -1;
    std::free(w->std_index_buf[track]);
    w->std_index_buf[track] = static_cast<uint8_t *>(std::calloc(1, t->std_index_buf_size));
    uint8_t *image = w->std_index_buf[track];
    if (image == nullptr) return -1;
    image[at_index_type] = index_of_chunks;
    store_le<uint16_t>(std_longs_per_entry, image + at_longs_per_entry);
    std::memcpy(image + at_chunk_id, chunk_id, sizeof chunk_id);
    return track;
}

int add_avi2_chunk(aviout_handle *w, int32_t track, int64_t chunk_pos, uint32_t size, uint32_t flags) {
    if (w == nullptr || !has_track(w, track)) return -1;
    odml_track_state *t = w->odml_track[track];
    uint8_t *image = w->std_index_buf[track];
    const uint32_t n = entries_in_use(image);
    if (n >= std_index_capacity(t)) return -1;
    if (t->chunk_count == 0) store_le<uint64_t>(static_cast<uint64_t>(chunk_pos), image + at_base_offset);
    ++t->chunk_count;
    if (w->odml_timing_mode == 1 || t->stream_type == type_video) {
        t->elapsed_time = t->frame_duration * t->chunk_count;
    } else if (t->stream_type == type_audio) {
        t->elapsed_time += size / static_cast<double>(w->audio_formats[0].rate);
    }
    t->index_bytes += size;
    const uint64_t base = load_le<uint64_t>(image + at_base_offset);
    uint8_t *entry = image + at_entries + static_cast<size_t>(n) * std_entry_size;
    store_le<uint32_t>(static_cast<uint32_t>(static_cast<uint64_t>(chunk_pos) + chunk_header_size - base), entry);
    store_le<uint32_t>((flags & odml_key_flag) != 0 ? size : size | odml_not_key_bit, entry + 4);
    set_entries_in_use(image, n + 1);
    return track;
}

int write_standard_index(aviout_handle *w, int32_t track) {
    if (w == nullptr || !has_track(w, track)) return 1;
    odml_track_state *t = w->odml_track[track];
    FILE *file = w->file;
    uint32_t status = 0;
    // By default the ix## chunk takes the legacy index slot of the data
    // chunk being put, which idx1 then leaves out with it; the standard
    // profile leaves that slot to the data chunk.
    const bool entry_free =
        w->standard_profile == 0 && w->index_count >= 0 && w->index_count < AVIOUT_INDEX_CAPACITY;
    const int64_t chunk_pos = file_tell(file);
    if (entry_free) w->index_entries[w->index_count].position = chunk_pos;
    int64_t size_pos;
    if (t->std_index_pos == 0) {
        size_pos = chunk_start(file, &status);
        t->std_index_pos = size_pos - chunk_id_size;
    } else {
        size_pos = t->std_index_pos + chunk_id_size;
    }
    status |= static_cast<uint32_t>(write_fourCC(std_index_chunk_id(w, track), file));
    status |= static_cast<uint32_t>(write_val32(0, file));
    const uint32_t image_size = index_header_size + std_index_capacity(t) * std_entry_size;
    status |= static_cast<uint32_t>(write_image(file, w->std_index_buf[track], image_size));
    chunk_end(size_pos, file, &status);
    if (entry_free) {
        aviout_index_entry &e = w->index_entries[w->index_count];
        e.chunk_id = create_fourCC(track, KELQAVI_CHUNK_INDEX, w->swapped_ids);
        e.flags = 0;
        e.size = static_cast<uint32_t>(file_tell(file) - e.position - chunk_header_size);
    }
    return static_cast<int>(status);
}

namespace {

void store_super_entry(uint8_t *super, uint32_t n, const odml_track_state *t) {
    uint8_t *entry = super + at_entries + static_cast<size_t>(n) * super_entry_size;
    store_le<uint64_t>(static_cast<uint64_t>(t->std_index_pos), entry);
    store_le<uint32_t>(t->std_index_buf_size, entry + 8);
    store_le<uint32_t>(t->stream_type == type_audio ? t->index_bytes : t->chunk_count, entry + 12);
}

// A standard index that a checkpoint has already put on disk (and listed
// as the super index's last entry) is written again over the same bytes,
// and its entry updated; the stream goes back to where it stood.
int rewrite_standard_index(aviout_handle *w, int32_t track, uint32_t n) {
    const odml_track_state *t = w->odml_track[track];
    const int64_t here = file_tell(w->file);
    if (here < 0 || file_seek(w->file, t->std_index_pos, origin_start) != 0) return -1;
    write_standard_index(w, track);
    store_super_entry(w->super_index_buf[track], n - 1, t);
    return file_seek(w->file, here, origin_start) == 0 ? track : -1;
}

}  // namespace

int update_standard_index(aviout_handle *w, int32_t track) {
    if (w == nullptr || !has_track(w, track)) return -1;
    uint8_t *super = w->super_index_buf[track];
    const uint32_t n = entries_in_use(super);
    if (w->std_index_on_disk[track] != 0 && n > 0) return rewrite_standard_index(w, track, n);
    if (n >= AVIOUT_SUPER_INDEX_ENTRIES) return -1;
    write_standard_index(w, track);
    store_super_entry(super, n, w->odml_track[track]);
    set_entries_in_use(super, n + 1);
    return track;
}

int checkpoint_standard_index(aviout_handle *w, int32_t track) {
    if (w == nullptr || !has_track(w, track)) return -1;
    const uint32_t n = entries_in_use(w->std_index_buf[track]);
    const uint32_t on_disk = w->std_index_on_disk[track];
    if (n == 0 || n == on_disk) return track;
    if (on_disk == 0) {
        if (update_standard_index(w, track) == -1) return -1;
        w->std_index_on_disk[track] = n;
        return track;
    }
    // Already on disk, and flushed there: its header and the entries added
    // since go straight to their places.
    const odml_track_state *t = w->odml_track[track];
    const uint8_t *image = w->std_index_buf[track];
    const int64_t at = t->std_index_pos + chunk_header_size;
    const int fd = fileno(w->file);
    const size_t added = static_cast<size_t>(n - on_disk) * std_entry_size;
    const size_t first = at_entries + static_cast<size_t>(on_disk) * std_entry_size;
    if (pwrite(fd, image, at_entries, at) != static_cast<ssize_t>(at_entries) ||
        pwrite(fd, image + first, added, at + static_cast<int64_t>(first)) != static_cast<ssize_t>(added))
        return -1;
    uint8_t *super = w->super_index_buf[track];
    store_super_entry(super, entries_in_use(super) - 1, t);
    w->std_index_on_disk[track] = n;
    return track;
}

int write_standard_index_chunks(aviout_handle *w, int32_t track) {
    if (update_standard_index(w, track) == -1) return -1;
    odml_track_state *t = w->odml_track[track];
    uint8_t *image = w->std_index_buf[track];
    std::memset(image + at_entries, 0, static_cast<size_t>(std_index_capacity(t)) * std_entry_size);
    store_le<uint64_t>(0, image + at_base_offset);
    set_entries_in_use(image, 0);
    t->std_index_pos = 0;
    w->std_index_on_disk[track] = 0;
    t->spare = 0;
    t->elapsed_time = 0.0;
    t->chunk_count = 0;
    t->index_bytes = 0;
    return 1;
}

int write_all_standard_index_chunks(aviout_handle *w) {
    if (w == nullptr) return 1;
    for (int32_t track = 0; track < w->track_count; ++track)
        if (has_track(w, track)) write_standard_index_chunks(w, track);
    return 1;
}

int write_super_index(aviout_handle *w, int32_t track) {
    if (w == nullptr || !has_track(w, track)) return 1;
    FILE *file = w->file;
    uint32_t status = 0;
    int64_t size_pos;
    if (*w->super_index_pos[track] == 0) {
        size_pos = chunk_start(file, &status);
        *w->super_index_pos[track] = size_pos - chunk_id_size;
    } else {
        size_pos = *w->super_index_pos[track] + chunk_id_size;
    }
    status |= static_cast<uint32_t>(write_fourCC(ids::id_indx, file));
    status |= static_cast<uint32_t>(write_val32(0, file));
    status |= static_cast<uint32_t>(write_image(file, w->super_index_buf[track], super_index_size));
    chunk_end(size_pos, file, &status);
    return static_cast<int>(status);
}

int update_super_index(aviout_handle *w) {
    if (w == nullptr) return -1;
    const int64_t here = file_tell(w->file);
    if (here < 0) return -1;
    int rewritten = 0;
    for (int32_t track = 0; track < w->track_count; ++track) {
        if (!has_track(w, track)) continue;
        file_seek(w->file, *w->super_index_pos[track], origin_start);
        write_super_index(w, track);
        ++rewritten;
    }
    file_seek(w->file, here, origin_start);
    return rewritten;
}

int avi2_cleanup(aviout_handle *w) {
    if (w == nullptr) return 1;
    for (int32_t track = 0; track < AVIOUT_MAX_STREAMS; ++track) {
        std::free(w->odml_track[track]);
        std::free(w->std_index_buf[track]);
        std::free(w->super_index_pos[track]);
        std::free(w->super_index_buf[track]);
        w->odml_track[track] = nullptr;
        w->std_index_buf[track] = nullptr;
        w->super_index_pos[track] = nullptr;
        w->super_index_buf[track] = nullptr;
    }
    return 1;
}

}  // namespace kelq
