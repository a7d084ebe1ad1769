// The key-frame table: an application-owned array of key frames of one video
// stream, each with the position of its chunk and of the audio chunk playing
// at its time in each of the first eight audio streams. Filled a slice of
// idx1 at a time by two cursors over the index: the video cursor counts
// frames and records key frames; the audio cursor follows it, counting each
// audio stream's chunks and bytes, and hands each recorded key frame the
// chunk whose playing time covers the key frame's time.
#include "reader/index_walk.h"
#include "reader/tolerant_rules.h"
#include "riff/file_extent.h"

#include <cstring>

static_assert(sizeof(keyindex_entry) == 120, "a key-frame entry is 120 bytes on every target");

namespace {

using kelq::idx1_entry;
using kelq::not_found;
using kelq::result_end_of_list;
using kelq::result_failed;
using kelq::result_ok;

constexpr uint32_t audio_slots = KELQAVI_KEY_AUDIO_STREAMS;
constexpr uint32_t not_counted = 0xFFFFFFFFu;
constexpr uint32_t largest_stride = 1u << 31;

double ratio(uint64_t num, uint32_t den) { return den == 0 ? 0.0 : static_cast<double>(num) / den; }

const video_stream_format &video_format(const aviin_handle *h, const keyindex_table *t) {
    return h->video_formats[h->streams[t->video_stream].kind_index];
}

// Seconds from the start of the video stream to a frame. Products stay
// below 2^53, so equal times compare equal however they were formed.
double frame_time(const video_stream_format &v, uint32_t frame) {
    return ratio(static_cast<uint64_t>(frame) * v.scale, v.rate);
}

// The audio slot an idx1 entry belongs to, or -1: audio chunks of audio
// streams whose index among audio streams is below eight.
int32_t audio_slot(const aviin_handle *h, uint32_t type, uint32_t stream) {
    if (type != KELQAVI_CHUNK_AUDIO || stream >= static_cast<uint32_t>(kelq::max_stream_slots)) return -1;
    const kelq::stream_entry &s = h->streams[stream];
    if (s.kind != KELQAVI_CHUNK_AUDIO || s.kind_index < 0 || s.kind_index >= static_cast<int32_t>(audio_slots)) return -1;
    return s.kind_index;
}

// Seconds from the start of an audio stream to the end of the chunk that
// the slot's counters stand at. Audio timed by bytes plays at the format's
// average byte rate: the stream header's rate counts blocks a second in
// files from most writers (8000 for 16-bit PCM at 8000 Hz), bytes in
// others, so it serves only when the format gives no byte rate.
double audio_chunk_end(const audio_stream_format &a, const keyindex_table *t, uint32_t slot, uint32_t size) {
    if (kelq::fixed_duration_audio(a))
        return ratio((static_cast<uint64_t>(t->audio_chunks[slot]) + 1) * a.wave_format.block_align,
                     a.wave_format.samples_per_sec);
    const uint32_t bytes_per_second = a.wave_format.avg_bytes_per_sec != 0 ? a.wave_format.avg_bytes_per_sec : a.rate;
    return ratio(t->audio_bytes[slot] + size, bytes_per_second);
}

bool audio_pending(const keyindex_table *t) {
    for (uint32_t k = 0; k < audio_slots; ++k)
        if (t->audio_pending[k] < t->count) return true;
    return false;
}

// Keeps every second entry and, from then on, every second key frame. An
// entry still waiting for its audio stays waiting at its new place.
void thin_out(keyindex_table *t) {
    const uint32_t kept = (t->count + 1) / 2;
    for (uint32_t j = 1; j < kept; ++j) t->entries[j] = t->entries[2 * j];
    t->count = kept;
    t->stride *= 2;
    for (uint32_t k = 0; k < audio_slots; ++k) t->audio_pending[k] = (t->audio_pending[k] + 1) / 2;
}

void keep_key_frame(keyindex_table *t, uint32_t ordinal, const keyindex_entry &e) {
    if (ordinal % t->stride != 0) return;
    if (t->count == t->capacity) {
        if (t->stride >= largest_stride) return;
        thin_out(t);
        if (ordinal % t->stride != 0 || t->count == t->capacity) return;
    }
    t->entries[t->count++] = e;
}

// The first key frame's header must carry the id and size its entry gives:
// an index whose offsets count from anything but the "movi" list type points
// elsewhere.
bool header_matches(aviin_handle *h, int64_t header, const idx1_entry &e) {
    uint8_t bytes[8];
    FILE *f = h->file;
    if (kelq::read_at(f, header, bytes, sizeof bytes) != sizeof bytes) return false;
    return fourCC_equal(kelq::load_le<uint32_t>(bytes), e.ckid) && kelq::load_le<uint32_t>(bytes + 4) == e.size;
}

// Under the empty-last-chunk tolerance: an empty chunk whose header fills the
// last 8 bytes of "movi", where the list's end test stops every walk before
// it, is passed over instead of failing the build. True when so.
bool empty_chunk_at_list_end(aviin_handle *h, uint64_t offset, uint32_t size) {
    if (size != 0 || !kelq::tolerates(h, AVIIN_TOLERATE_EMPTY_LAST_CHUNK) || offset > (1ull << 62)) return false;
    const list_node *list = h->current_list;
    const int64_t header = h->movi_data_pos - kelq::chunk_id_size + static_cast<int64_t>(offset);
    if (list == nullptr || header != list->start + static_cast<int64_t>(list->size)) return false;
    kelq::note_needed(h, AVIIN_TOLERATE_EMPTY_LAST_CHUNK);
    return true;
}

// One entry under the video cursor; false for a key frame the file cannot
// hold, with the table unchanged.
bool take_video_entry(aviin_handle *h, keyindex_table *t, const idx1_entry &e) {
    if (fourCC_streamID(e.ckid, h->swapped_ids) != t->video_stream ||
        !kelq::is_frame_type(h, static_cast<uint32_t>(get_chunk_type(e.ckid, h->swapped_ids))))
        return true;
    if ((e.flags & kelq::idx1_key_flag) != 0 || kelq::unflagged_key(h, t)) {
        const uint64_t offset = kelq::idx1_offset(h, e.offset);
        int64_t header = 0;
        if (!kelq::chunk_in_movi(h, offset, e.size, header)) return empty_chunk_at_list_end(h, offset, e.size);
        if ((t->first_checked & kelq::first_header_matched) == 0) {
            if (!header_matches(h, header, e)) return false;
            t->first_checked |= kelq::first_header_matched;
        }
        keyindex_entry k;
        std::memset(&k, 0, sizeof k);
        k.index_position = t->next_entry * kelq::idx1_entry_size;
        k.video_size = e.size;
        k.video_offset = offset;
        k.frame_no = t->frames_scanned;
        for (uint32_t s = 0; s < audio_slots; ++s) {
            k.audio_offset[s] = not_found;
            k.audio_count[s] = not_counted;
        }
        keep_key_frame(t, t->key_frames_scanned, k);
        ++t->key_frames_scanned;
    }
    ++t->frames_scanned;
    return true;
}

enum class audio_step { taken, wait, bad };

// One entry under the audio cursor. An audio chunk is taken only once the
// video cursor has passed every frame that starts before the chunk ends (or
// the whole index), so that no key frame it plays at is still unknown.
audio_step take_audio_entry(aviin_handle *h, keyindex_table *t, const idx1_entry &e, bool video_done) {
    const uint32_t type = static_cast<uint32_t>(get_chunk_type(e.ckid, h->swapped_ids));
    const int32_t slot = audio_slot(h, type, fourCC_streamID(e.ckid, h->swapped_ids));
    if (slot < 0) return audio_step::taken;
    const uint32_t k = static_cast<uint32_t>(slot);
    const audio_stream_format &a = h->audio_formats[k];
    const video_stream_format &v = video_format(h, t);
    const double chunk_end = audio_chunk_end(a, t, k, e.size);
    if (!video_done && chunk_end > frame_time(v, t->frames_scanned)) return audio_step::wait;
    const uint64_t offset = kelq::idx1_offset(h, e.offset);
    int64_t header = 0;
    if (!kelq::chunk_in_movi(h, offset, e.size, header))
        return empty_chunk_at_list_end(h, offset, e.size) ? audio_step::taken : audio_step::bad;
    const bool fixed = kelq::fixed_duration_audio(a);
    while (t->audio_pending[k] < t->count) {
        keyindex_entry &key = t->entries[t->audio_pending[k]];
        if (!(frame_time(v, key.frame_no) < chunk_end)) break;
        key.audio_offset[k] = offset;
        key.audio_count[k] = fixed ? t->audio_chunks[k] : static_cast<uint32_t>(t->audio_bytes[k]);
        ++t->audio_pending[k];
    }
    ++t->audio_chunks[k];
    t->audio_bytes[k] += e.size;
    return audio_step::taken;
}

bool usable(const aviin_handle *h, const keyindex_table *t) {
    return h != nullptr && t != nullptr && t->entries != nullptr && t->capacity != 0 && t->count <= t->capacity &&
           t->stride != 0 && t->video_stream < static_cast<uint32_t>(kelq::max_stream_slots) &&
           h->streams[t->video_stream].kind_index >= 0 &&
           h->streams[t->video_stream].kind_index < kelq::max_streams_per_kind;
}

bool table_readable(const keyindex_table *t) {
    return t != nullptr && t->count <= t->capacity && (t->count == 0 || t->entries != nullptr);
}

// Number of entries whose frame is at or before `frame`, found by halving.
uint32_t entries_at_or_before(const keyindex_table *t, uint32_t frame) {
    uint32_t low = 0, high = t->count;  // entries[0 .. low) are at or before the frame
    while (low < high) {
        const uint32_t mid = low + (high - low) / 2;
        if (t->entries[mid].frame_no <= frame)
            low = mid + 1;
        else
            high = mid;
    }
    return low;
}

}  // namespace

extern "C" {

int aviin_init_keyindex(aviin_handle *h, keyindex_table *table, keyindex_entry *entries, uint32_t capacity,
                        uint32_t video_stream) {
    if (table == nullptr) return result_failed;
    std::memset(table, 0, sizeof *table);
    if (h == nullptr || entries == nullptr || capacity == 0 || h->idx1_pos == 0 || h->file == nullptr ||
        video_stream >= static_cast<uint32_t>(kelq::max_stream_slots) ||
        h->streams[video_stream].kind != KELQAVI_CHUNK_VIDEO)
        return result_failed;
    FILE *f = h->file;
    const int64_t here = file_tell(f);
    uint32_t size = 0;
    int status = file_seek(f, h->idx1_pos, kelq::origin_start);
    status |= read_fourCC(nullptr, f);
    status |= read_val32(&size, f);
    const int64_t left = kelq::bytes_left(f);
    file_seek(f, here, kelq::origin_start);
    if (status != 0 || left < 0) return result_failed;
    // No more entries than the file holds after the index header.
    uint64_t total = size / kelq::idx1_entry_size;
    if (total > static_cast<uint64_t>(left) / kelq::idx1_entry_size) total = static_cast<uint64_t>(left) / kelq::idx1_entry_size;
    table->entries = entries;
    table->capacity = capacity;
    table->video_stream = video_stream;
    table->stride = 1;
    table->entry_total = static_cast<uint32_t>(total);
    return result_ok;
}

int aviin_build_keyindex_entry(aviin_handle *h, keyindex_table *table, uint32_t max_entries) {
    if (!usable(h, table) || h->file == nullptr) return result_failed;
    if (table->complete != 0) return result_end_of_list;
    if (h->idx1_pos == 0) return result_failed;
    FILE *f = h->file;
    const int64_t here = file_tell(f);
    const int64_t first_entry = h->idx1_pos + kelq::chunk_header_size;
    int result = result_ok;

    // Video cursor.
    uint64_t budget = table->entry_total - table->next_entry;
    if (max_entries != 0 && max_entries < budget) budget = max_entries;
    kelq::idx1_cursor video(f, first_entry + static_cast<int64_t>(table->next_entry) * kelq::idx1_entry_size, budget);
    idx1_entry e;
    while (video.next(e)) {
        if (!take_video_entry(h, table, e)) {
            result = result_failed;
            break;
        }
        ++table->next_entry;
    }
    if (result == result_ok && video.cut_short()) table->entry_total = table->next_entry;
    const bool video_done = table->next_entry >= table->entry_total;

    // Audio cursor: behind the video cursor in time, and idle once every
    // key frame has its audio.
    budget = table->entry_total - table->audio_next_entry;
    if (max_entries != 0 && max_entries < budget) budget = max_entries;
    if (result == result_ok && !(video_done && !audio_pending(table))) {
        kelq::idx1_cursor audio(f, first_entry + static_cast<int64_t>(table->audio_next_entry) * kelq::idx1_entry_size,
                                budget);
        while (audio.next(e)) {
            const audio_step step = take_audio_entry(h, table, e, video_done);
            if (step == audio_step::bad) result = result_failed;
            if (step != audio_step::taken) break;
            ++table->audio_next_entry;
        }
    }
    if (result == result_ok && video_done && (table->audio_next_entry >= table->entry_total || !audio_pending(table))) {
        table->complete = 1;
        result = result_end_of_list;
    }
    file_seek(f, here, kelq::origin_start);
    return result;
}

}  // extern "C"

extern "C" {

int aviin_read_key_table_by_frame_no(aviin_handle *h, const keyindex_table *table, int32_t frame,
                                     keyindex_entry *out, int32_t direction) {
    (void)h;  // the table holds all the lookup needs
    if (!table_readable(table) || out == nullptr || (direction != -1 && direction != 1)) return result_failed;
    if (frame < 0) return result_end_of_list;
    const uint32_t wanted = static_cast<uint32_t>(frame);
    const uint32_t before = entries_at_or_before(table, wanted);  // entries[before - 1] is at or before
    if (wanted >= table->frames_scanned) {
        // Beyond what the scan has seen: the latest key frame known before it
        // is still the best start there is.
        if (direction == -1 && before > 0) *out = table->entries[before - 1];
        return result_end_of_list;
    }
    if (direction == -1) {
        if (before == 0) return result_end_of_list;
        *out = table->entries[before - 1];
        return result_ok;
    }
    if (before > 0 && table->entries[before - 1].frame_no == wanted) {
        *out = table->entries[before - 1];
        return result_ok;
    }
    if (before == table->count) return result_end_of_list;
    *out = table->entries[before];
    return result_ok;
}

int aviin_get_next_key_index(aviin_handle *h, const keyindex_table *table, const keyindex_entry *current,
                             keyindex_entry *next, int32_t direction) {
    (void)h;
    if (!table_readable(table) || current == nullptr || next == nullptr || (direction != -1 && direction != 1))
        return result_failed;
    const uint32_t before = entries_at_or_before(table, current->frame_no);
    if (before == 0 || table->entries[before - 1].frame_no != current->frame_no) return result_failed;
    const uint32_t at = before - 1;
    if (direction == -1) {
        if (at == 0) return result_end_of_list;
        *next = table->entries[at - 1];
        return result_ok;
    }
    if (at + 1 >= table->count) return result_end_of_list;
    *next = table->entries[at + 1];
    return result_ok;
}

}  // extern "C"
