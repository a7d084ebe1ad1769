// Interprets the fuzzed bytes as a program of writer calls: an open with or
// without OpenDML and appending, the caller-set fields, stream setters of
// every kind with fuzzed records, strd, menu and metadata blocks, chunks with
// fuzzed streams, flags and sizes, checkpoints, and a close. The file is then
// read back with the reader and checked against what the writer was given.
// Sizes are capped so that files stay small.
#include "fuzz_support.h"
#include "writer_program.h"

#include <cstring>

namespace fuzz {

namespace {

constexpr int max_operations = 160;
constexpr uint32_t max_chunk_size = 4096;
constexpr int32_t max_block_size = 600;
constexpr int32_t max_name_length = 63;

struct session {
    aviout_handle *w;
    byte_source &in;
    writer_run &run;
    const char *path;
    bool header_written;      // a chunk has been taken: every setter is refused from then on
    size_t checkpointed;      // chunks put before the last checkpoint
    bool checkpoint_made;
    int read_backs = 0;       // checkpoints read back so far
};

// Each read-back reads the whole file: a program that checkpoints after
// every chunk would otherwise take time in the square of its chunks. The
// last checkpoint is read back at the end in any case.
constexpr int max_read_backs = 24;

// After a checkpoint the file on disk holds every chunk put so far.
void checkpoint_made(session &s) {
    s.checkpointed = s.run.puts.size();
    s.checkpoint_made = true;
    if (s.read_backs++ < max_read_backs) read_back_checkpoint(s.path, s.run, s.checkpointed, s.w);
}

void checkpoint(session &s) {
    const int result = aviout_checkpoint(s.w, s.in.u8() & 1);
    check(result == 0 || s.w->write_failed != 0 || s.w->error != 0, "a checkpoint succeeds while every write does");
    if (result == 0 && s.header_written) checkpoint_made(s);
}

// Codes for handlers and compressions: common ones, the ones the writer or
// the reader treat apart, and four fuzzed bytes.
void pick_code(byte_source &in, char (&code)[4]) {
    static const char codes[][5] = {"MJPG", "xvid", "XVID", "Xvid", "KQSB", "kqsb", "IYUV", "YUY2", "RGB ", "RGB"};
    constexpr uint8_t count = sizeof codes / sizeof codes[0];
    const uint8_t pick = in.u8() % (count + 1);
    if (pick < count) {
        std::memcpy(code, codes[pick], 4);
        return;
    }
    for (char &c : code) c = static_cast<char>(in.u8());
}

// A name of up to 63 bytes that may open with what the reader classifies
// text streams by; lengths below 1 give no name.
char *pick_name(byte_source &in, int32_t &length) {
    static char name[max_name_length + 1];
    static const char *const openings[] = {"Subtitle", "Chapter", "Cam", ""};
    const uint8_t b = in.u8();
    std::memcpy(name, payload(b), sizeof name);
    const char *opening = openings[b % 4];
    std::memcpy(name, opening, std::strlen(opening));
    length = static_cast<int32_t>(in.u8() % (max_name_length + 3)) - 2;
    return name;
}

const double *pick_frame_duration(byte_source &in) {
    static const double durations[] = {0.04, 0.2, 0.5, 1.0, 0.0, -1.0};
    const uint8_t pick = in.u8() % 7;
    return pick < 6 ? &durations[pick] : nullptr;
}

// A setter's stream number, kept with its record; every setter after the
// first chunk must be refused.
void numbered(session &s, int result, int32_t stream, uint32_t kind, const video_stream_format *picture,
              const audio_stream_format *audio, int32_t name_length) {
    if (s.header_written) check(result == 1 && stream == -1, "no stream is set up after the first chunk");
    // A refused stream still counts, and is written with its record too.
    if (!s.header_written && name_length < 0) s.run.negative_name = true;
    if (stream < 0 || stream >= writer_stream_limit) return;
    stream_given &g = s.run.streams[stream];
    g.kind = kind;
    if (picture != nullptr) g.picture = *picture;
    if (audio != nullptr) g.audio = *audio;
    if (kind == KELQAVI_CHUNK_VIDEO || kind == KELQAVI_CHUNK_BITMAP_CAPTION) ++s.run.vids_streams;
    if (kind == KELQAVI_CHUNK_TEXT_CAPTION || kind == KELQAVI_CHUNK_CHAPTER) ++s.run.txts_streams;
}

void picture_record(byte_source &in, video_stream_format &r) {
    std::memset(&r, 0, sizeof r);
    r.rate = in.u8();
    r.scale = in.u8() % 4;
    r.width = static_cast<int8_t>(in.u8()) * 4;
    r.height = in.u8();
    pick_code(in, r.handler);
    pick_code(in, r.compression);
    r.quality = in.u32();
    r.name = pick_name(in, r.name_length);
}

void set_video(session &s, bool bitmap) {
    video_stream_format r;
    picture_record(s.in, r);
    int32_t stream = -1;
    int result;
    if (bitmap) {
        result = aviout_set_bitmap_caption_format(s.w, &stream, &r);
    } else {
        const uint8_t strd = s.in.u8();
        r.strd_present = strd & 1;
        r.strd_header = strd >> 4;
        // Even: an odd block goes out without a pad byte, and every chunk
        // after it is then read one byte off.
        r.strd_size = (strd >> 1) * 4;
        r.strd_data = const_cast<uint8_t *>(payload(strd));
        result = aviout_set_video_format(s.w, &stream, &r, pick_frame_duration(s.in));
    }
    numbered(s, result, stream, bitmap ? KELQAVI_CHUNK_BITMAP_CAPTION : KELQAVI_CHUNK_VIDEO, &r, nullptr, r.name_length);
}

void set_audio(session &s) {
    static const uint16_t block_aligns[] = {0, 1, 2, 4, 576, 1152};
    byte_source &in = s.in;
    audio_stream_format r;
    std::memset(&r, 0, sizeof r);
    r.initial_frames = in.u8();
    r.scale = in.u8() % 4;
    r.rate = in.u16();
    r.start = in.u8();
    r.sample_size = in.u8() % 5;
    audio_format &f = r.wave_format;
    f.format_tag = in.u8() % 2 == 0 ? 1 : in.u16();
    f.channels = in.u8() % 3;
    f.samples_per_sec = in.u16();
    f.avg_bytes_per_sec = in.u16();
    const uint8_t align = in.u8();
    f.block_align = align % 7 < 6 ? block_aligns[align % 7] : in.u16();
    f.bits_per_sample = in.u8();
    f.cb_size = in.u8() % 26;   // above 22 is refused
    std::memcpy(f.extra, payload(align), sizeof f.extra);
    r.name = pick_name(in, r.name_length);
    int32_t stream = -1;
    const int result = aviout_set_audio_format(s.w, &stream, &r, pick_frame_duration(in));
    numbered(s, result, stream, KELQAVI_CHUNK_AUDIO, nullptr, &r, r.name_length);
}

void set_caption(session &s, bool chapter) {
    caption_stream_format r;
    for (uint16_t &v : r.format.value) v = s.in.u16();
    r.name = pick_name(s.in, r.name_length);
    int32_t stream = -1;
    const int result = chapter ? aviout_set_chapter_format(s.w, &stream, &r)
                               : aviout_set_text_caption_format(s.w, &stream, &r);
    numbered(s, result, stream, chapter ? KELQAVI_CHUNK_CHAPTER : KELQAVI_CHUNK_TEXT_CAPTION, nullptr, nullptr,
             r.name_length);
}

// A block size from -1 (refused) up; null data with a size is refused too.
void set_block(session &s, int which) {
    const uint8_t seed = s.in.u8();
    const int32_t size = static_cast<int32_t>(s.in.u16() % (max_block_size + 1)) - 1;
    const uint8_t *data = seed % 16 == 0 ? nullptr : payload(seed);
    int result;
    if (which == 0) {
        result = seed % 5 == 0 ? aviout_clear_strd_info(s.w) : aviout_set_strd_info(s.w, data, size & ~1);
    } else if (which == 1) {
        result = aviout_set_menu_info(s.w, data, size);
    } else {
        result = aviout_set_metadata_info(s.w, data, size);
        if (result == 0) {
            s.run.metadata_given = true;
            s.run.metadata_size = size;
            s.run.metadata_seed = seed;
        }
    }
    if (s.header_written) check(result == 1, "no block is set after the first chunk");
}

// One chunk; the writer must refuse a stream it does not have or null data
// with a size, and take every other.
void put(session &s, int32_t stream, uint32_t flags, uint32_t size, uint8_t seed, bool null_data) {
    const uint8_t *data = null_data ? nullptr : payload(seed);
    const int64_t checkpoint_junk = s.w->checkpoint_junk_pos;
    const int result = aviout_put_chunk(s.w, stream, flags, data, size);
    const int32_t streams = s.w->stream_count < writer_stream_limit ? s.w->stream_count : writer_stream_limit;
    if (stream < 0 || stream >= streams || (data == nullptr && size > 0)) {
        check(result == 1, "a chunk for no stream, or without data, is refused");
        return;
    }
    s.run.puts.push_back({stream, flags, size, seed, result == 0});
    s.header_written = true;
    // An automatic checkpoint (checkpoint_seconds) moves the JUNK it leaves.
    if (s.w->checkpoint_junk_pos != checkpoint_junk && s.w->write_failed == 0) checkpoint_made(s);
}

void put_one(session &s) {
    const int32_t stream = static_cast<int32_t>(s.in.u8() % 22) - 1;
    const uint8_t flags = s.in.u8();
    const uint32_t size = s.in.u16() % max_chunk_size;
    put(s, stream, flags & 7, size, s.in.u8(), (flags & 8) != 0);
}

// A run of small chunks over every stream, so that indexes fill up.
void put_many(session &s) {
    const uint8_t n = s.in.u8() % 48;
    const uint8_t seed = s.in.u8();
    const int32_t streams = s.w->stream_count < writer_stream_limit ? s.w->stream_count : writer_stream_limit;
    for (uint8_t i = 0; i < n && streams > 0; ++i)
        put(s, i % streams, i % 5 == 0 ? AVIOUT_KEY_FRAME : 0, (seed * 7u + i * 13u) % 300, seed, false);
}

// Every writer call takes a null handle and fails; a path that cannot be
// created gives no writer.
void null_handle_calls() {
    int32_t stream = 0;
    video_stream_format v = {};
    audio_stream_format a = {};
    caption_stream_format c = {};
    const uint8_t byte = 0;
    check(aviout_set_video_format(nullptr, &stream, &v, nullptr) == 1 && stream == -1 &&
              aviout_set_audio_format(nullptr, &stream, &a, nullptr) == 1 &&
              aviout_set_text_caption_format(nullptr, &stream, &c) == 1 &&
              aviout_set_bitmap_caption_format(nullptr, &stream, &v) == 1 &&
              aviout_set_chapter_format(nullptr, &stream, &c) == 1 && aviout_set_strd_info(nullptr, &byte, 1) == 1 &&
              aviout_clear_strd_info(nullptr) == 1 && aviout_set_menu_info(nullptr, &byte, 1) == 1 &&
              aviout_set_metadata_info(nullptr, &byte, 1) == 1 && aviout_put_chunk(nullptr, 0, 0, &byte, 1) == 1 &&
              aviout_checkpoint(nullptr, 0) == 1 && aviout_close2(nullptr) == 1,
          "every writer call fails for a null handle");
    aviout_close(nullptr);
    check(aviout_open("/nonexistent-dir/out.avi", 0, 0) == nullptr, "no writer for a path that cannot be created");
}

void run_operation(session &s) {
    switch (s.in.u8() % 12) {
    case 0: set_video(s, false); break;
    case 1: set_audio(s); break;
    case 2: set_caption(s, false); break;
    case 3: set_video(s, true); break;
    case 4: set_caption(s, true); break;
    case 5: set_block(s, 0); break;
    case 6: set_block(s, 1); break;
    case 7: set_block(s, 2); break;
    case 8: put_one(s); break;
    case 9: checkpoint(s); break;
    case 11: null_handle_calls(); break;
    default: put_many(s); break;
    }
}

}  // namespace

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const char *path = fuzz::scratch_path("writer.avi");
    fuzz::byte_source in(data, size);
    fuzz::writer_run run;
    aviout_handle *w = fuzz::open_writer(in, run, path);
    if (w == nullptr) return 0;
    fuzz::session s = {w, in, run, path, false, 0, false};
    for (int i = 0; i < fuzz::max_operations && !in.empty(); ++i) fuzz::run_operation(s);
    // Cut here, the file reads as the last checkpoint left it.
    if (s.checkpoint_made) fuzz::read_back_checkpoint(path, run, s.checkpointed, w);
    run.stream_count = w->stream_count;
    // aviout_close says nothing: the handle's sticky flags tell beforehand.
    run.closed_complete = w->error == 0 && w->write_failed == 0;
    if (run.close_with_result)
        run.closed_complete = aviout_close2(w) == 0;
    else
        aviout_close(w);
    // On a healthy disk only a stream whose name length is negative keeps the
    // file from finishing: its strn cannot be written, which fails the header.
    fuzz::check(run.closed_complete || run.negative_name, "the writer finishes its file completely");
    fuzz::read_back(path, run);
    return 0;
}
