#include "sample_file.h"

#include "jpeg_encoder.h"
#include "kelqavi.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
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

// A prepared menu list for the header area: LIST 'KMNU' holding one "MENU"
// chunk, whose first 8 bytes the writer fills with the position where the
// copy begins. The reader takes the menu block from such a list.
bool write_menu_list(const std::string &path) {
    static const char entries[] = "1 Play;2 Chapters;3 Tone";  // 24 bytes after the position field
    std::vector<uint8_t> bytes;
    auto add32 = [&](uint32_t v) {
        uint8_t b[4];
        long2str(v, b);
        bytes.insert(bytes.end(), b, b + 4);
    };
    const uint32_t menu_size = 8 + sizeof entries - 1;
    bytes.insert(bytes.end(), {'L', 'I', 'S', 'T'});
    add32(4 + 8 + menu_size);
    bytes.insert(bytes.end(), {'K', 'M', 'N', 'U', 'M', 'E', 'N', 'U'});
    add32(menu_size);
    bytes.insert(bytes.end(), 8, 0);
    bytes.insert(bytes.end(), entries, entries + sizeof entries - 1);
    FILE *f = file_open(path.c_str(), 1);
    if (f == nullptr) return false;
    const bool written = file_write(f, bytes.data(), bytes.size()) == bytes.size();
    return file_close(f) == 0 && written;
}

std::string temporary_path(const char *stem, std::string &error) {
    const char *dir = std::getenv("TMPDIR");
    std::string path = std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/" + stem + "-XXXXXX";
    std::vector<char> name(path.begin(), path.end());
    name.push_back('\0');
    const int fd = mkstemp(name.data());
    if (fd < 0) {
        error = std::string("cannot create a temporary file: ") + std::strerror(errno);
        return {};
    }
    close(fd);
    return name.data();
}

}  // namespace

bool write_sample_avi(const char *path, avi_output &out, bool standard, std::string &error) {
    const std::string menu_path = temporary_path("kelqavi-menu", error);
    if (menu_path.empty()) return false;
    struct remove_at_end {
        const std::string &p;
        ~remove_at_end() { unlink(p.c_str()); }
    } menu_file{menu_path};
    if (!write_menu_list(menu_path)) {
        error = "cannot write the sample's menu list to '" + menu_path + "'";
        return false;
    }
    if (!out.open(path, true, standard, error)) return false;
    aviout_handle *w = out.handle();
    // Two-second standard indexes: a three-second file gets a few of them.
    w->index_chunk_seconds = 2.0;
    // The reader finds metadata and menu blocks inside a LIST 'KQDT' only.
    w->extension_list = 1;
    w->menu_file_head = menu_path.c_str();

    const double frame_seconds = 1.0 / frames_per_second;
    int32_t video = -1, audio = -1, captions = -1, subtitles = -1, chapters = -1;

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
    bool ok = out.add_video(v, frame_seconds, video, error);
    // An opaque per-stream block, carried as it is.
    static const uint8_t strd_block[] = {'K', 'Q', 0x01, 0x00, 0x2A, 0x00, 0x10, 0x00};
    ok = ok && out.set_strd(strd_block, sizeof strd_block, error);

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
    ok = ok && out.add_audio(a, frame_seconds, audio, error);

    caption_stream_format c{};
    char caption_name[] = "Subtitle (English)";
    c.name = caption_name;
    c.name_length = static_cast<int32_t>(std::strlen(caption_name));
    ok = ok && out.add_text_caption(c, captions, error);

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
    ok = ok && out.add_bitmap_caption(b, subtitles, error);

    caption_stream_format ch{};
    char chapter_name[] = "Chapter list";
    ch.name = chapter_name;
    ch.name_length = static_cast<int32_t>(std::strlen(chapter_name));
    ok = ok && out.add_chapter(ch, chapters, error);

    static const char metadata[] = "title=kelqavi sample\nartist=kelqavi\ncomment=written by the library's writer\n";
    // Odd-sized on purpose: the writer stores it with a pad byte.
    static const char menu[] = "KQMENU 1 Play;2 Chapters";
    ok = ok && out.set_metadata(reinterpret_cast<const uint8_t *>(metadata), sizeof metadata - 1, error) &&
         out.set_menu(reinterpret_cast<const uint8_t *>(menu), sizeof menu - 1, error);
    if (!ok) return false;

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
    for (int f = 0; f < frame_count && ok; ++f) {
        const std::vector<uint8_t> picture = frame_picture(f);
        const std::vector<uint8_t> sound = tone(f);
        ok = put_due(caption_chunks, captions, f) && put_due(subtitle_chunks, subtitles, f) &&
             put_due(chapter_chunks, chapters, f) &&
             out.put(video, AVIOUT_KEY_FRAME, picture.data(), static_cast<uint32_t>(picture.size())) == 0 &&
             out.put(audio, AVIOUT_KEY_FRAME, sound.data(), static_cast<uint32_t>(sound.size())) == 0;
    }
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
