// The writer target's read-back: the file the program wrote, opened with the
// reader and checked against what the writer was given. Only what holds by
// design is checked, on a file the writer reported complete.
#include "writer_program.h"

#include <cstdlib>
#include <cstring>

namespace fuzz {

namespace {

constexpr int max_steps = 8192;
constexpr int32_t reader_kind_limit = 12;
constexpr uint32_t records_followed = 64;
constexpr size_t max_chunk_bytes = 64 * 1024;

uint32_t chunk_type_of(const writer_run &run, const put_call &p) {
    if ((p.flags & AVIOUT_FRAME_DATA) != 0) return KELQAVI_CHUNK_VIDEO_DATA;
    if ((p.flags & AVIOUT_UNCOMPRESSED) != 0) return KELQAVI_CHUNK_VIDEO_RAW;
    return run.streams[p.stream].kind;
}

int32_t streams_written(const writer_run &run) {
    return run.stream_count < writer_stream_limit ? run.stream_count : writer_stream_limit;
}

// The data chunks the walk meets are the chunks put, in order and whole.
// Index chunks and the bytes a resync scan passes are not data chunks; a
// tail menu file may add chunks after the last one put. A last chunk of size
// 0 that ends the list is not met: the end test counts its header as the end.
void check_walk(aviin_handle *h, const writer_run &run) {
    static uint8_t buffer[max_chunk_bytes];
    size_t next = 0;
    for (int step = 0, failures = 0; step < max_steps && failures < 8; ++step) {
        uint32_t type = 0, stream = 0;
        int32_t size = sizeof buffer;
        const int r = aviin_get_next_chunk(h, &type, &stream, buffer, &size);
        if (r == 3) break;
        failures = r == 0 ? 0 : failures + 1;
        if (r != 0 || type < KELQAVI_CHUNK_AUDIO || type > KELQAVI_CHUNK_CHAPTER) continue;
        if (next == run.puts.size()) {
            check(run.tail_menu, "the walk meets no data chunk that was not put");
            continue;
        }
        const put_call &p = run.puts[next++];
        check(type == chunk_type_of(run, p) && stream == static_cast<uint32_t>(p.stream),
              "the walk meets the chunks put, in order, with their stream and type");
        check(size == static_cast<int32_t>(p.size) && std::memcmp(buffer, payload(p.seed), p.size) == 0,
              "the walk reads each chunk put whole");
    }
    const bool last_empty_missed = next + 1 == run.puts.size() && run.puts.back().size == 0;
    check(next == run.puts.size() || last_empty_missed, "the walk meets every chunk put");
}

// The chunk put as p, read by the whole-chunk walk from where it stands.
bool next_chunk_is(aviin_handle *h, const writer_run &run, const put_call &p) {
    static uint8_t buffer[max_chunk_bytes];
    uint32_t type = 0, stream = 0;
    int32_t size = sizeof buffer;
    return aviin_get_next_chunk(h, &type, &stream, buffer, &size) == 0 && type == chunk_type_of(run, p) &&
           stream == static_cast<uint32_t>(p.stream) && size == static_cast<int32_t>(p.size) &&
           std::memcmp(buffer, payload(p.seed), p.size) == 0;
}

// Without OpenDML every chunk put has its idx1 record, and nothing else has;
// each record leads the walk to its chunk.
void check_idx1(aviin_handle *h, const writer_run &run) {
    const uint32_t n = static_cast<uint32_t>(run.puts.size());
    for (uint32_t i = 0; i < n; ++i) {
        const put_call &p = run.puts[i];
        uint32_t stream = 0, type = 0, size = 0, key = 0;
        check(aviin_get_idx1_entry(h, i, &stream, &type, &size, &key) == 0, "idx1 has a record for every chunk put");
        check(stream == static_cast<uint32_t>(p.stream) && type == chunk_type_of(run, p) && size == p.size &&
                  key == ((p.flags & AVIOUT_KEY_FRAME) != 0 ? 16u : 0u),
              "an idx1 record gives its chunk's stream, type, size and key flag");
        // (A last chunk of size 0 is where the walk sees the end of the list.)
        if (i < records_followed && !(i + 1 == n && p.size == 0))
            check(aviin_goto_idx1_sample(h, i) == 0 && next_chunk_is(h, run, p), "an idx1 record leads to its chunk");
    }
    uint32_t stream = 0, type = 0, size = 0, key = 0;
    check(aviin_get_idx1_entry(h, n, &stream, &type, &size, &key) == 1, "idx1 ends with the last chunk put");
}

uint32_t frames_put(const writer_run &run, int32_t stream) {
    uint32_t frames = 0;
    for (const put_call &p : run.puts)
        if (p.stream == stream && (p.flags & AVIOUT_FRAME_DATA) == 0) ++frames;
    return frames;
}

void check_picture(aviin_handle *h, const writer_run &run, int32_t s) {
    const video_stream_format &given = run.streams[s].picture;
    video_stream_format got;
    uint32_t length = 0;
    check(aviin_get_video_format(h, s, &got, &length) == 0, "a video stream has its format");
    if (got.name_length > 0) std::free(got.name);
    check(got.rate == given.rate && got.scale == given.scale && got.width == given.width &&
              got.height == given.height,
          "a video stream's rate, scale and frame size read back as given");
    check(length == frames_put(run, s), "a video stream's length counts its frames");
}

void check_audio(aviin_handle *h, const writer_run &run, int32_t s) {
    const audio_stream_format &given = run.streams[s].audio;
    audio_stream_format got;
    check(aviin_get_audio_format(h, s, &got) == 0, "an audio stream has its format");
    if (got.name_length > 0) std::free(got.name);
    const audio_format &a = got.wave_format, &b = given.wave_format;
    check(got.initial_frames == given.initial_frames && got.scale == given.scale && got.rate == given.rate &&
              got.start == given.start && got.sample_size == given.sample_size,
          "an audio stream's header values read back as given");
    check(a.format_tag == b.format_tag && a.channels == b.channels && a.samples_per_sec == b.samples_per_sec &&
              a.avg_bytes_per_sec == b.avg_bytes_per_sec && a.block_align == b.block_align &&
              a.bits_per_sample == b.bits_per_sample && a.cb_size == b.cb_size &&
              std::memcmp(a.extra, b.extra, b.cb_size) == 0,
          "an audio stream's format reads back as given");
}

// Every stream written is met, with the kind its strh type allows.
void check_streams(aviin_handle *h, const writer_run &run) {
    int32_t count = -1;
    aviin_get_summary(h, &count, nullptr);
    check(count == streams_written(run), "the reader meets every stream written");
    for (int32_t s = 0; s < count; ++s) {
        uint32_t kind = 0;
        aviin_get_chunk_type(h, static_cast<uint32_t>(s), &kind);
        const uint32_t given = run.streams[s].kind;
        const bool vids = given == KELQAVI_CHUNK_VIDEO || given == KELQAVI_CHUNK_BITMAP_CAPTION;
        const bool txts = given == KELQAVI_CHUNK_TEXT_CAPTION || given == KELQAVI_CHUNK_CHAPTER;
        check(kind == KELQAVI_CHUNK_AUDIO ? given == kind
              : kind == KELQAVI_CHUNK_VIDEO || kind == KELQAVI_CHUNK_BITMAP_CAPTION ? vids
                                                                                      : txts,
              "the reader gives a stream a kind its header allows");
        if (kind == KELQAVI_CHUNK_VIDEO) check_picture(h, run, s);
        if (kind == KELQAVI_CHUNK_AUDIO) check_audio(h, run, s);
    }
}

// Metadata is read from a KQDT list only; the head menu file's MENU chunk
// is the menu block.
void check_blocks(aviin_handle *h, const writer_run &run) {
    uint8_t *data = nullptr;
    int32_t size = 0;
    aviin_get_metadata_info(h, &data, &size);
    if (run.extension_list != 0 && run.metadata_given) {
        const int32_t n = run.metadata_size;
        check(size == n + n % 2 && (n == 0 || std::memcmp(data, payload(run.metadata_seed), n) == 0) &&
                  (n % 2 == 0 || data[n] == 0),
              "the metadata block reads back, padded to even with a zero");
    } else {
        check(data == nullptr && size == 0, "no metadata block is read outside a KQDT list");
    }
    aviin_get_menu_info(h, &data, &size);
    if (run.head_menu_size == 0) return;
    check(size == static_cast<int32_t>(run.head_menu_size) && std::memcmp(data, "MENU", 4) == 0 &&
              std::memcmp(data + 16, payload(run.head_menu_seed), size - 8) == 0,
          "the head menu file's MENU chunk is the menu block");
}

// The AVI written is the first segment, or, appended, the second, where the
// old file ended.
void check_segments(aviin_handle *h, const writer_run &run) {
    int32_t count = 0;
    aviin_get_riff_count(h, &count);
    check(count == (run.append ? 2 : 1), "the file holds the RIFF forms written");
    int64_t offset = -2;
    check(aviin_get_riff_offset(h, count - 1, &offset) == 0 && offset == run.prefix_length,
          "the AVI written begins where the file did");
}

}  // namespace

void read_back(const char *path, const writer_run &run) {
    if (!run.closed_complete) return;
    if (run.puts.empty()) {
        check(file_length(path) == run.prefix_length, "a writer that took no chunk leaves the file as it was");
        return;
    }
    // More than 12 video or 12 text streams of one kind is more than the reader
    // takes; a "movi" list whose one chunk is empty counts as empty (the end
    // test takes that chunk's header for the end of the list).
    const bool one_empty_chunk = run.puts.size() == 1 && run.puts[0].size == 0 && !run.tail_menu;
    const bool readable =
        run.vids_streams <= reader_kind_limit && run.txts_streams <= reader_kind_limit && !one_empty_chunk;
    aviin_handle *h = aviin_open(path, run.swapped_ids);
    check(h != nullptr || !(readable || run.append), "the reader opens what the writer wrote");
    if (h == nullptr) return;
    if (!run.append) check_blocks(h, run);
    check_segments(h, run);
    // Entered again before each walk: a walk that fails at the end of the
    // file leaves the list's error flag set.
    const bool entered = aviin_goto_riff_checked(&h, run.swapped_ids, run.prefix_length) == 0;
    check(entered || !readable, "the reader enters the AVI written");
    if (h == nullptr) return;
    if (entered && readable) {
        check_streams(h, run);
        // idx1 is written when the file is finished.
        if (run.odml == 0 && run.finished) {
            check_idx1(h, run);
            check_frame_lookups(h, path, run);
        }
        check(aviin_goto_riff(h, run.swapped_ids, run.prefix_length) == 0, "the reader enters the AVI again");
        check_walk(h, run);
        if (run.odml == 1) check_odml_indexes(path, run);
    }
    aviin_close(h);
}

// A checkpoint makes the file on disk a complete AVI of the chunks put so
// far; what is put after it lies past the lists' declared ends, so the file
// reads the same until the next checkpoint, wherever it is cut. The tail
// menu file comes only with the finish.
void read_back_checkpoint(const char *path, const writer_run &run, size_t puts, const aviout_handle *w) {
    writer_run at = run;
    at.puts.resize(puts);
    at.finished = false;
    at.tail_menu = false;
    at.stream_count = w->stream_count;
    at.closed_complete = w->error == 0 && w->write_failed == 0;
    read_back(path, at);
}

}  // namespace fuzz
