#include "sample_file.h"

#include "jpeg_encoder.h"
#include "kelqavi.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace kelqtool {

namespace {

constexpr uint32_t frames_per_second = 10;
constexpr int frame_count = 30;
constexpr int width = 160;
constexpr int height = 120;
constexpr uint32_t sample_rate = 8000;
constexpr uint32_t samples_per_frame = sample_rate / frames_per_second;
constexpr int subtitle_width = 32;
constexpr int subtitle_height = 8;

// A horizontal colour ramp with a white bar that crosses it once.
std::vector<uint8_t> frame_picture(int frame) {
    rgb_image image(width, height);
    const int bar = frame * (width - 16) / (frame_count - 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (x >= bar && x < bar + 16)
                image.set(x, y, 240, 240, 240);
            else
                image.set(x, y, static_cast<uint8_t>(x * 255 / (width - 1)), static_cast<uint8_t>(60 + y),
                          static_cast<uint8_t>(200 - x));
        }
    }
    return encode_jpeg(image, 75);
}

// One frame's share of the tone, 16-bit little-endian samples.
std::vector<uint8_t> tone(int frame) {
    std::vector<uint8_t> bytes(samples_per_frame * 2);
    const double pi = std::acos(-1.0);
    for (uint32_t i = 0; i < samples_per_frame; ++i) {
        const double t = static_cast<double>(frame * samples_per_frame + i) / sample_rate;
        const auto v = static_cast<int16_t>(std::lround(8000 * std::sin(2 * pi * 440 * t)));
        short2str(static_cast<uint16_t>(v), &bytes[i * 2]);
    }
    return bytes;
}

// "HH:MM:SS.mmm-HH:MM:SS.mmm", a NUL, then rows of 4-bit pixels: a frame
// around a filled box whose shade is the subtitle's number.
std::vector<uint8_t> subtitle(int first_frame, int last_frame, int shade) {
    // The sample is seconds long, so hours stay at two digits.
    auto time_text = [](int frame, char *text) {
        const unsigned ms = static_cast<unsigned>(frame) * 1000 / frames_per_second;
        std::snprintf(text, 32, "%02u:%02u:%02u.%03u", ms / 3600000 % 100, ms / 60000 % 60, ms / 1000 % 60,
                      ms % 1000);
    };
    char start[32], end[32];
    time_text(first_frame, start);
    time_text(last_frame, end);
    std::string span = std::string(start) + "-" + end;
    std::vector<uint8_t> bytes(span.begin(), span.end());
    bytes.push_back(0);
    for (int y = 0; y < subtitle_height; ++y) {
        for (int x = 0; x < subtitle_width; x += 2) {
            auto pixel = [&](int px) -> uint8_t {
                if (y == 0 || y == subtitle_height - 1 || px == 0 || px == subtitle_width - 1) return 15;
                return static_cast<uint8_t>(shade & 15);
            };
            bytes.push_back(static_cast<uint8_t>(pixel(x) << 4 | pixel(x + 1)));
        }
    }
    return bytes;
}

struct timed_chunk {
    int frame;
    std::vector<uint8_t> data;
};

std::vector<uint8_t> text_bytes(const char *text) { return std::vector<uint8_t>(text, text + std::strlen(text)); }

// The sample's menu chunk: a "MENU" chunk whose first 8 bytes the writer
// fills with the position where the copy begins, then the entries.
std::vector<uint8_t> menu_chunk() {
    static const char entries[] = "1 Play;2 Chapters;3 Tone";  // 24 bytes after the position field
    std::vector<uint8_t> bytes = {'M', 'E', 'N', 'U', 0, 0, 0, 0};
    long2str(8 + sizeof entries - 1, bytes.data() + 4);
    bytes.insert(bytes.end(), 8, 0);
    bytes.insert(bytes.end(), entries, entries + sizeof entries - 1);
    return bytes;
}

// The sample's stream numbers in the output.
struct sample_streams {
    int32_t video = -1, audio = -1, captions = -1, subtitles = -1, chapters = -1;
};

bool add_picture_and_sound(avi_output &out, sample_streams &n, std::string &error) {
    video_stream_format v{};
    v.rate = frames_per_second;
    v.scale = 1;
    v.width = width;
    v.height = height;
    std::memcpy(v.handler, "MJPG", 4);
    std::memcpy(v.compression, "MJPG", 4);
    v.quality = 0xFFFFFFFFu;
    char video_name[] = "Moving bar";
    v.name = video_name;
    v.name_length = static_cast<int32_t>(std::strlen(video_name));
    // An opaque per-stream block, carried as it is.
    static const uint8_t strd_block[] = {'K', 'Q', 0x01, 0x00, 0x2A, 0x00, 0x10, 0x00};
    if (!out.add_video(v, 1.0 / frames_per_second, n.video, error) || !out.set_strd(strd_block, sizeof strd_block, error))
        return false;
    audio_stream_format a{};
    a.scale = 2;
    a.rate = sample_rate * 2;
    a.sample_size = 2;
    a.wave_format.format_tag = 1;
    a.wave_format.channels = 1;
    a.wave_format.samples_per_sec = sample_rate;
    a.wave_format.avg_bytes_per_sec = sample_rate * 2;
    a.wave_format.block_align = 2;
    a.wave_format.bits_per_sample = 16;
    char audio_name[] = "Tone";
    a.name = audio_name;
    a.name_length = 4;
    return out.add_audio(a, 1.0 / frames_per_second, n.audio, error);
}

// The caption, subtitle and chapter streams and the metadata and menu blocks.
bool add_text_and_blocks(avi_output &out, sample_streams &n, std::string &error) {
    caption_stream_format c{};
    char caption_name[] = "Subtitle (English)";
    c.name = caption_name;
    c.name_length = static_cast<int32_t>(std::strlen(caption_name));
    video_stream_format b{};
    b.rate = frames_per_second;
    b.scale = 1;
    b.width = subtitle_width;
    b.height = subtitle_height;
    std::memcpy(b.compression, "KQSB", 4);
    b.quality = 0xFFFFFFFFu;
    char subtitle_name[] = "Subtitle bitmap";
    b.name = subtitle_name;
    b.name_length = static_cast<int32_t>(std::strlen(subtitle_name));
    caption_stream_format ch{};
    char chapter_name[] = "Chapter list";
    ch.name = chapter_name;
    ch.name_length = static_cast<int32_t>(std::strlen(chapter_name));
    static const char metadata[] = "title=kelqavi sample\nartist=kelqavi\ncomment=written by the library's writer\n";
    // Odd-sized on purpose: the writer stores it with a pad byte.
    static const char menu[] = "KQMENU 1 Play;2 Chapters";
    return out.add_text_caption(c, n.captions, error) && out.add_bitmap_caption(b, n.subtitles, error) &&
           out.add_chapter(ch, n.chapters, error) &&
           out.set_metadata(reinterpret_cast<const uint8_t *>(metadata), sizeof metadata - 1, error) &&
           out.set_menu(reinterpret_cast<const uint8_t *>(menu), sizeof menu - 1, error);
}

// Every frame's picture and sound, with the captions, subtitles and
// chapters due at it. False when a chunk could not be written.
bool put_frames(avi_output &out, const sample_streams &n) {
    const std::vector<timed_chunk> caption_chunks = {
        {0, text_bytes("A bar crosses the picture")}, {10, text_bytes("A 440 Hz tone plays")},
        {20, text_bytes("Written by kelqavi")}};
    const std::vector<timed_chunk> subtitle_chunks = {{0, subtitle(0, 14, 3)}, {15, subtitle(15, 29, 9)}};
    const std::vector<timed_chunk> chapter_chunks = {{0, text_bytes("Start")}, {15, text_bytes("Second half")}};
    auto put_due = [&](const std::vector<timed_chunk> &list, int32_t stream, int frame) {
        for (const timed_chunk &t : list)
            if (t.frame == frame && out.put(stream, AVIOUT_KEY_FRAME, t.data.data(), static_cast<uint32_t>(t.data.size())) != 0)
                return false;
        return true;
    };
    bool ok = true;
    for (int f = 0; f < frame_count && ok; ++f) {
        const std::vector<uint8_t> picture = frame_picture(f);
        const std::vector<uint8_t> sound = tone(f);
        ok = put_due(caption_chunks, n.captions, f) && put_due(subtitle_chunks, n.subtitles, f) &&
             put_due(chapter_chunks, n.chapters, f) &&
             out.put(n.video, AVIOUT_KEY_FRAME, picture.data(), static_cast<uint32_t>(picture.size())) == 0 &&
             out.put(n.audio, AVIOUT_KEY_FRAME, sound.data(), static_cast<uint32_t>(sound.size())) == 0;
    }
    return ok;
}

}  // namespace

bool write_sample_avi(const char *path, avi_output &out, bool standard, std::string &error) {
    menu_list_file menu_file;
    const std::vector<uint8_t> menu = menu_chunk();
    if (!menu_file.write(menu.data(), static_cast<uint32_t>(menu.size()), error)) {
        if (!menu_file.path().empty()) error = "cannot write the sample's menu list to '" + menu_file.path() + "'";
        return false;
    }
    if (!out.open(path, true, standard, error)) return false;
    aviout_handle *w = out.handle();
    // Two-second standard indexes: a three-second file gets a few of them.
    w->index_chunk_seconds = 2.0;
    // The reader finds metadata and menu blocks inside a LIST 'KQDT' only.
    w->extension_list = 1;
    w->menu_file_head = menu_file.path().c_str();
    sample_streams n;
    if (!add_picture_and_sound(out, n, error) || !add_text_and_blocks(out, n, error)) return false;
    const bool ok = put_frames(out, n);
    std::string close_error;
    const bool closed = out.close(close_error);
    if (!ok) {
        error = out.write_error();
        return false;
    }
    if (!closed) error = close_error;
    return closed;
}

FILE *write_sample_file(std::string &error) {
    const std::string path = temporary_path("kelqavi-sample", error);
    if (path.empty()) return nullptr;
    std::vector<char> name(path.begin(), path.end());
    name.push_back('\0');
    FILE *stream = nullptr;
    {
        avi_output out;
        if (write_sample_avi(name.data(), out, true, error)) {
            stream = file_open(name.data(), 0);
            if (stream == nullptr) error = std::string("cannot read the sample back: ") + std::strerror(errno);
        }
    }
    unlink(name.data());  // the open stream keeps the file until it is closed
    return stream;
}

}  // namespace kelqtool
