// "kelqavi mux -o OUT.avi --fps N [--video GLOB] [--audio WAV] ...": puts
// JPEG files and the PCM samples of a WAV file into an AVI file as they are,
// with no codec work: one key-frame chunk per picture, and per frame one
// chunk holding that frame's share of the samples.
#include "mux_command.h"

#include "avi_output.h"
#include "diagnostics.h"
#include "loss_report.h"
#include "output_format.h"
#include "riff_sizes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <glob.h>
#include <string>
#include <utility>
#include <vector>

namespace kelqtool {

namespace {

struct mux_options {
    const char *output = nullptr;
    const char *fps = nullptr;
    const char *video = nullptr;
    const char *audio = nullptr;
    const char *text_caption = nullptr;
    const char *chapters = nullptr;
    const char *metadata = nullptr;
    write_options write;
    command_options line;  // as given: the texts above point into it
};

std::string takes_no_operand(const command_syntax &, const char *arg, const char *) {
    return std::string("'mux' takes no FILE operand, but got '") + arg +
           "' (inputs follow --video, --audio, ...; the output follows -o)";
}

// 0 when the arguments were understood, else the exit status to leave with.
int parse_options(int argc, char **argv, mux_options &o, bool &stop) {
    command_options &line = o.line;
    const int parsed = parse_command_line({"mux", {"--odml", "--swapped-ids", "--designed", "--json"},
                                           {"--output", "-o", "--fps", "--video", "--audio", "--text-caption", "--chapters",
                                            "--metadata", "--checkpoint"},
                                           0, 0, "", print_mux_help, takes_no_operand, option_needs_value},
                                          argc, argv, line, stop);
    if (stop) return parsed;
    stop = true;
    const struct {
        const char *name;
        const char **target;
    } with_value[] = {{"--output", &o.output},   {"-o", &o.output},       {"--fps", &o.fps},
                      {"--video", &o.video},     {"--audio", &o.audio},   {"--text-caption", &o.text_caption},
                      {"--chapters", &o.chapters}, {"--metadata", &o.metadata}};
    // The last of -o and --output given wins, as with every option.
    for (const auto &v : line.values)
        for (const auto &w : with_value)
            if (v.first == w.name) *w.target = v.second.c_str();
    o.write.take(line);
    if (o.output == nullptr) {
        print_error("'mux' needs an output file: -o OUT.avi (see 'kelqavi mux --help')");
        return exit_usage;
    }
    if (o.fps == nullptr) {
        print_error("'mux' needs the frame rate: --fps N (see 'kelqavi mux --help')");
        return exit_usage;
    }
    if (o.video == nullptr && o.audio == nullptr) {
        print_error("'mux' needs pictures (--video 'GLOB') or sound (--audio WAV), or both");
        return exit_usage;
    }
    stop = false;
    return exit_ok;
}

uint64_t gcd(uint64_t a, uint64_t b) {
    while (b != 0) {
        const uint64_t t = a % b;
        a = b;
        b = t;
    }
    return a;
}

// "25", "29.97" or "30000/1001" as rate / scale, both above 0 and below 2^31.
bool parse_rate(const char *text, uint32_t &rate, uint32_t &scale) {
    uint64_t num = 0, den = 1;
    const char *p = text;
    bool digits = false;
    for (; *p >= '0' && *p <= '9'; ++p) {
        num = num * 10 + static_cast<uint64_t>(*p - '0');
        digits = true;
        if (num > 0x7FFFFFFF) return false;
    }
    if (*p == '.') {
        for (++p; *p >= '0' && *p <= '9'; ++p) {
            if (den >= 1000000) continue;  // further digits change nothing a player can see
            num = num * 10 + static_cast<uint64_t>(*p - '0');
            den *= 10;
            digits = true;
            if (num > 0x7FFFFFFF) return false;
        }
    } else if (*p == '/') {
        den = 0;
        bool den_digits = false;
        for (++p; *p >= '0' && *p <= '9'; ++p) {
            den = den * 10 + static_cast<uint64_t>(*p - '0');
            den_digits = true;
            if (den > 0x7FFFFFFF) return false;
        }
        digits = digits && den_digits;
    }
    if (!digits || *p != '\0' || num == 0 || den == 0) return false;
    const uint64_t g = gcd(num, den);
    rate = static_cast<uint32_t>(num / g);
    scale = static_cast<uint32_t>(den / g);
    return true;
}

bool read_whole_file(const char *path, std::vector<uint8_t> &bytes, std::string &error) {
    errno = 0;
    FILE *f = file_open(path, 0);
    if (f == nullptr) {
        error = std::string("cannot open '") + path + "': " + std::strerror(errno);
        return false;
    }
    bytes.clear();
    uint8_t block[65536];
    size_t n;
    while ((n = file_read(f, block, sizeof block)) > 0) {
        bytes.insert(bytes.end(), block, block + n);
        if (bytes.size() > 0x7F000000u) {
            file_close(f);
            error = std::string("'") + path + "' is too large for one chunk";
            return false;
        }
    }
    const bool failed = std::ferror(f) != 0;
    const int read_errno = errno;
    file_close(f);
    if (failed) {
        error = std::string("cannot read '") + path + "': " + std::strerror(read_errno);
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// JPEG pictures.
// ---------------------------------------------------------------------------

struct picture {
    std::string path;
    uint32_t size = 0;
    int width = 0, height = 0;
};

// Finds the frame header (SOF0..SOF15 but for the table markers DHT, JPG and
// DAC) and reads the picture's size from it. A reason in error otherwise.
bool jpeg_size(const std::vector<uint8_t> &b, int &width, int &height, std::string &error) {
    if (b.size() < 4 || b[0] != 0xFF || b[1] != 0xD8) {
        error = "not a JPEG file (it does not begin with FF D8)";
        return false;
    }
    size_t pos = 2;
    for (;;) {
        if (pos >= b.size() || b[pos] != 0xFF) {
            error = "not a JPEG file (no marker where one must be, at byte " + std::to_string(pos) + ")";
            return false;
        }
        while (pos < b.size() && b[pos] == 0xFF) ++pos;  // fill bytes
        if (pos >= b.size()) break;
        const uint8_t marker = b[pos++];
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) continue;  // markers without a length
        if (marker == 0xD9 || marker == 0xDA) break;  // image end or scan data before a frame header
        if (pos + 2 > b.size()) break;
        const size_t length = static_cast<size_t>(b[pos]) << 8 | b[pos + 1];
        if (length < 2 || pos + length > b.size()) break;
        const bool frame_header = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (frame_header) {
            if (length < 8) break;
            height = b[pos + 3] << 8 | b[pos + 4];
            width = b[pos + 5] << 8 | b[pos + 6];
            if (width == 0 || height == 0) {
                error = "its frame header gives a size of " + std::to_string(width) + "x" + std::to_string(height);
                return false;
            }
            return true;
        }
        pos += length;
    }
    error = "not a JPEG file (no frame header with the picture size)";
    return false;
}

int find_pictures(const char *pattern, std::vector<picture> &pictures) {
    glob_t g{};
    const int r = glob(pattern, 0, nullptr, &g);
    if (r == GLOB_NOMATCH) {
        globfree(&g);
        print_error("no file matches '%s'", pattern);
        return exit_bad_input;
    }
    if (r != 0) {
        globfree(&g);
        print_error("cannot list the files matching '%s'", pattern);
        return exit_bad_input;
    }
    // glob sorts its matches by name.
    std::vector<std::string> paths(g.gl_pathv, g.gl_pathv + g.gl_pathc);
    globfree(&g);
    std::vector<uint8_t> bytes;
    for (const std::string &p : paths) {
        std::string error;
        if (!read_whole_file(p.c_str(), bytes, error)) {
            print_error("%s", error.c_str());
            return exit_bad_input;
        }
        picture pic;
        pic.path = p;
        pic.size = static_cast<uint32_t>(bytes.size());
        if (!jpeg_size(bytes, pic.width, pic.height, error)) {
            print_error("'%s': %s", p.c_str(), error.c_str());
            return exit_bad_input;
        }
        if (!pictures.empty() && (pic.width != pictures[0].width || pic.height != pictures[0].height)) {
            print_error("'%s' is %dx%d but '%s' is %dx%d: every picture of a video stream must have the same size",
                        p.c_str(), pic.width, pic.height, pictures[0].path.c_str(), pictures[0].width,
                        pictures[0].height);
            return exit_bad_input;
        }
        pictures.push_back(pic);
    }
    return exit_ok;
}

// ---------------------------------------------------------------------------
// WAV sound.
// ---------------------------------------------------------------------------

struct wave_file {
    FILE *file = nullptr;
    uint16_t channels = 0, block_align = 0, bits = 0;
    uint32_t rate = 0, avg_bytes = 0;
    int64_t data_offset = 0;
    uint64_t data_bytes = 0;  // in the data chunk
    uint64_t blocks = 0;      // whole sample frames among them

    ~wave_file() {
        if (file != nullptr) file_close(file);
    }
};

// The 'fmt ' chunk of `size` bytes, read from the file's position: PCM only.
int read_wave_format(const char *path, FILE *f, uint32_t size, bool fits, wave_file &wav) {
    uint8_t fmt[40] = {};
    const size_t want = size < sizeof fmt ? size : sizeof fmt;
    if (size < 16 || !fits || file_read(f, fmt, want) != want) {
        print_error("'%s': its 'fmt ' chunk is too short or cut off", path);
        return exit_bad_input;
    }
    const uint16_t tag = str2short(fmt);
    // The extensible form names its sample format in a GUID whose first two
    // bytes are the plain format tag.
    const bool pcm = tag == 1 || (tag == 0xFFFE && size >= 40 && str2short(fmt + 24) == 1);
    if (!pcm) {
        print_error("'%s' is not PCM sound (format tag 0x%04X); only PCM can be muxed as it is", path, tag);
        return exit_bad_input;
    }
    wav.channels = str2short(fmt + 2);
    wav.rate = str2long(fmt + 4);
    wav.block_align = str2short(fmt + 12);
    wav.bits = str2short(fmt + 14);
    if (wav.channels == 0 || wav.rate == 0 || wav.bits == 0 || wav.block_align != wav.channels * ((wav.bits + 7) / 8)) {
        print_error("'%s': its format is inconsistent (%u channels, %u Hz, %u bits, %u bytes a block)", path,
                    wav.channels, wav.rate, wav.bits, wav.block_align);
        return exit_bad_input;
    }
    wav.avg_bytes = wav.rate * wav.block_align;
    return exit_ok;
}

// The 'data' chunk of `size` bytes at `data`, with `left` bytes of the file
// from there.
int take_wave_data(const char *path, int64_t data, uint32_t size, uint64_t left, wave_file &wav) {
    uint64_t bytes = size;
    if (bytes > left) {
        // A size of all ones is left by writers that could not go back to patch it.
        if (size != placeholder_size) {
            print_error("'%s' is cut off: its 'data' chunk holds %u bytes but the file ends after %llu", path, size,
                        static_cast<unsigned long long>(left));
            return exit_bad_input;
        }
        bytes = left;
    }
    wav.data_offset = data;
    wav.data_bytes = bytes;
    wav.blocks = bytes / wav.block_align;
    return exit_ok;
}

int open_wave(const char *path, wave_file &wav) {
    errno = 0;
    wav.file = file_open(path, 0);
    if (wav.file == nullptr) {
        print_error("cannot open '%s': %s", path, std::strerror(errno));
        return exit_bad_input;
    }
    FILE *f = wav.file;
    int64_t file_size = -1;
    if (file_seek(f, 0, 2) == 0) file_size = file_tell(f);
    uint8_t head[12];
    if (file_size < 0 || file_seek(f, 0, 0) != 0 || file_read(f, head, 12) != 12 ||
        std::memcmp(head, "RIFF", 4) != 0 || std::memcmp(head + 8, "WAVE", 4) != 0) {
        print_error("'%s' is not a WAV file (no RIFF 'WAVE' header)", path);
        return exit_bad_input;
    }
    bool have_format = false;
    for (int64_t pos = list_header_size; pos + chunk_header_size <= file_size;) {
        uint8_t header[8];
        if (file_seek(f, pos, 0) != 0 || file_read(f, header, 8) != 8) break;
        const uint32_t size = str2long(header + 4);
        const int64_t data = pos + chunk_header_size;
        if (std::memcmp(header, "fmt ", 4) == 0) {
            const int status = read_wave_format(path, f, size, data + static_cast<int64_t>(size) <= file_size, wav);
            if (status != exit_ok) return status;
            have_format = true;
        } else if (std::memcmp(header, "data", 4) == 0) {
            if (have_format) return take_wave_data(path, data, size, static_cast<uint64_t>(file_size - data), wav);
            print_error("'%s': its 'data' chunk comes before the 'fmt ' chunk", path);
            return exit_bad_input;
        }
        pos = data + static_cast<int64_t>(size) + (size & 1);
    }
    print_error("'%s' has %s", path, have_format ? "no 'data' chunk" : "no 'fmt ' chunk");
    return exit_bad_input;
}

// ---------------------------------------------------------------------------
// Caption and chapter lists.
// ---------------------------------------------------------------------------

struct timed_text {
    uint64_t frame = 0;
    std::string text;
};

// One entry a line: FRAME, a tab, the text. Empty lines and lines starting
// with '#' are skipped. Entries are kept in the order of their frames.
int read_timed_text(const char *path, const char *option, std::vector<timed_text> &entries) {
    std::vector<uint8_t> bytes;
    std::string error;
    if (!read_whole_file(path, bytes, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    const std::string all(bytes.begin(), bytes.end());
    size_t start = 0;
    int line_number = 0;
    while (start < all.size()) {
        size_t end = all.find('\n', start);
        if (end == std::string::npos) end = all.size();
        std::string line = all.substr(start, end - start);
        start = end + 1;
        ++line_number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        const size_t tab = line.find('\t');
        timed_text e;
        bool ok = tab != std::string::npos && tab > 0 && tab <= 9;
        for (size_t i = 0; ok && i < tab; ++i) {
            ok = line[i] >= '0' && line[i] <= '9';
            e.frame = e.frame * 10 + static_cast<uint64_t>(line[i] - '0');
        }
        if (!ok) {
            print_error("'%s' line %d: expected FRAME<TAB>TEXT (see '%s' in 'kelqavi mux --help')", path,
                        line_number, option);
            return exit_bad_input;
        }
        e.text = line.substr(tab + 1);
        entries.push_back(e);
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const timed_text &a, const timed_text &b) { return a.frame < b.frame; });
    return exit_ok;
}

// Everything mux reads before it writes, and the frames it will write.
struct mux_inputs {
    uint32_t rate = 0, scale = 0;
    std::vector<picture> pictures;
    wave_file wav;
    std::vector<timed_text> captions, chapters;
    std::vector<uint8_t> metadata;
    uint64_t audio_steps = 0, steps = 0;

    // Sample frames before frame i: floor(i * scale * sample rate / rate),
    // split so that no product leaves 64 bits.
    uint64_t blocks_before(uint64_t frame) const {
        const uint64_t a = frame * scale;
        const uint64_t n = (a / rate) * wav.rate + (a % rate) * wav.rate / rate;
        return n < wav.blocks ? n : wav.blocks;
    }
};

// Reads and checks every input; the exit status to leave with, or exit_ok.
int read_inputs(mux_options &o, mux_inputs &in) {
    if (!parse_rate(o.fps, in.rate, in.scale)) {
        print_error("--fps needs a rate above 0 such as 25, 29.97 or 30000/1001, not '%s'", o.fps);
        return exit_usage;
    }
    if (o.write.checkpoint != nullptr && !parse_checkpoint("mux", o.write.checkpoint, o.write.checkpoint_seconds))
        return exit_usage;
    int r = exit_ok;
    if (o.video != nullptr) r = find_pictures(o.video, in.pictures);
    if (r == exit_ok && o.audio != nullptr) r = open_wave(o.audio, in.wav);
    if (r == exit_ok && o.text_caption != nullptr) r = read_timed_text(o.text_caption, "--text-caption", in.captions);
    if (r == exit_ok && o.chapters != nullptr) r = read_timed_text(o.chapters, "--chapters", in.chapters);
    std::string error;
    if (r == exit_ok && o.metadata != nullptr && !read_whole_file(o.metadata, in.metadata, error)) {
        print_error("%s", error.c_str());
        r = exit_bad_input;
    }
    if (r != exit_ok) return r;
    if (in.wav.blocks > 0) {
        // The frame in which the last sample falls, plus one.
        const uint64_t den = static_cast<uint64_t>(in.wav.rate) * in.scale;
        in.audio_steps = (in.wav.blocks * in.rate + den - 1) / den;
    }
    in.steps = std::max<uint64_t>(in.pictures.size(), in.audio_steps);
    if (in.steps == 0) {
        print_error("nothing to write: '%s' holds no samples", o.audio);
        return exit_bad_input;
    }
    for (const auto *list : {&in.captions, &in.chapters}) {
        if (!list->empty() && list->back().frame >= in.steps) {
            print_error("'%s' names frame %llu, but the file has frames 0 to %llu",
                        list == &in.captions ? o.text_caption : o.chapters,
                        static_cast<unsigned long long>(list->back().frame),
                        static_cast<unsigned long long>(in.steps - 1));
            return exit_bad_input;
        }
    }
    return exit_ok;
}

struct mux_streams {
    int32_t video = -1, audio = -1, caption = -1, chapter = -1;
};

bool add_streams(const mux_inputs &in, avi_output &out, mux_streams &ids, std::string &error) {
    const double frame_seconds = static_cast<double>(in.scale) / in.rate;
    bool ok = true;
    if (!in.pictures.empty()) {
        video_stream_format v{};
        v.rate = in.rate;
        v.scale = in.scale;
        v.width = in.pictures[0].width;
        v.height = in.pictures[0].height;
        std::memcpy(v.handler, "MJPG", 4);
        std::memcpy(v.compression, "MJPG", 4);
        v.quality = 0xFFFFFFFFu;
        char name[] = "Video";
        v.name = name;
        v.name_length = 5;
        ok = out.add_video(v, frame_seconds, ids.video, error);
    }
    if (ok && in.wav.blocks > 0) {
        const wave_file &wav = in.wav;
        audio_stream_format a{};
        a.scale = wav.block_align;
        a.rate = wav.avg_bytes;
        a.sample_size = wav.block_align;
        a.wave_format.format_tag = 1;
        a.wave_format.channels = wav.channels;
        a.wave_format.samples_per_sec = wav.rate;
        a.wave_format.avg_bytes_per_sec = wav.avg_bytes;
        a.wave_format.block_align = wav.block_align;
        a.wave_format.bits_per_sample = wav.bits;
        char name[] = "Audio";
        a.name = name;
        a.name_length = 5;
        ok = out.add_audio(a, frame_seconds, ids.audio, error);
    }
    caption_stream_format c{};
    char caption_name[] = "Subtitle", chapter_name[] = "Chapter";
    c.name = caption_name;
    c.name_length = 8;
    if (ok && !in.captions.empty()) ok = out.add_text_caption(c, ids.caption, error);
    c.name = chapter_name;
    c.name_length = 7;
    if (ok && !in.chapters.empty()) ok = out.add_chapter(c, ids.chapter, error);
    if (ok && !in.metadata.empty())
        ok = out.set_metadata(in.metadata.data(), static_cast<int32_t>(in.metadata.size()), error);
    return ok;
}

// Frame i's captions and chapters, picture and sound. False with a line
// printed when an input cannot be read or the output not written.
bool write_frame(const mux_options &o, mux_inputs &in, avi_output &out, const mux_streams &ids, uint64_t i,
                 size_t &next_caption, size_t &next_chapter, std::vector<uint8_t> &bytes) {
    const auto put = [&](int32_t stream, const uint8_t *data, size_t size) {
        if (out.put(stream, AVIOUT_KEY_FRAME, data, static_cast<uint32_t>(size)) == 0) return true;
        print_error("%s", out.write_error().c_str());
        return false;
    };
    const auto put_text = [&](int32_t stream, const std::string &t) {
        return put(stream, reinterpret_cast<const uint8_t *>(t.data()), t.size());
    };
    for (; next_caption < in.captions.size() && in.captions[next_caption].frame == i; ++next_caption)
        if (!put_text(ids.caption, in.captions[next_caption].text)) return false;
    for (; next_chapter < in.chapters.size() && in.chapters[next_chapter].frame == i; ++next_chapter)
        if (!put_text(ids.chapter, in.chapters[next_chapter].text)) return false;
    std::string error;
    if (i < in.pictures.size()) {
        if (!read_whole_file(in.pictures[i].path.c_str(), bytes, error)) {
            print_error("%s", error.c_str());
            return false;
        }
        if (bytes.size() != in.pictures[i].size) {
            print_error("'%s' changed while it was being written", in.pictures[i].path.c_str());
            return false;
        }
        if (!put(ids.video, bytes.data(), bytes.size())) return false;
    }
    if (i >= in.audio_steps) return true;
    const uint64_t first = in.blocks_before(i), last = in.blocks_before(i + 1);
    const wave_file &wav = in.wav;
    bytes.resize(static_cast<size_t>((last - first) * wav.block_align));
    if (file_seek(wav.file, wav.data_offset + static_cast<int64_t>(first * wav.block_align), 0) != 0 ||
        file_read(wav.file, bytes.data(), bytes.size()) != bytes.size()) {
        print_error("cannot read the samples of '%s'", o.audio);
        return false;
    }
    return put(ids.audio, bytes.data(), bytes.size());
}

// What each input holds, beside what its stream received.
void tally_inputs(const mux_inputs &in, const avi_output &out, const mux_streams &ids, loss_report &losses) {
    const auto add = [&](int32_t stream, uint64_t chunks, uint64_t bytes, const std::string &note) {
        if (stream < 0) return;
        const written_stream *w = out.stream(stream);
        stream_tally t;
        t.stream = stream;
        t.kind = stream_kind_word(w != nullptr ? w->kind : 0);
        t.read_chunks = chunks;
        t.read_bytes = bytes;
        t.written_chunks = w != nullptr ? w->chunks : 0;
        t.written_bytes = w != nullptr ? w->bytes : 0;
        if (t.lost()) t.note = note;
        losses.streams.push_back(t);
    };
    uint64_t picture_bytes = 0;
    for (const picture &p : in.pictures) picture_bytes += p.size;
    add(ids.video, in.pictures.size(), picture_bytes, "");
    const uint64_t left = in.wav.data_bytes - in.wav.blocks * in.wav.block_align;
    add(ids.audio, in.audio_steps, in.wav.data_bytes,
        "the WAV data ends with " + std::to_string(left) + " bytes, less than a whole sample frame");
    for (const auto &list : {std::make_pair(ids.caption, &in.captions), std::make_pair(ids.chapter, &in.chapters)}) {
        uint64_t text_bytes = 0;
        for (const timed_text &t : *list.second) text_bytes += t.text.size();
        add(list.first, list.second->size(), text_bytes, "");
    }
}

}  // namespace

void print_mux_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi mux -o OUT.avi --fps RATE [--video 'GLOB'] [--audio WAV]\n"
                 "                   [--text-caption FILE] [--chapters FILE] [--metadata FILE]\n"
                 "                   [--odml] [--swapped-ids] [--checkpoint SECONDS] [--designed]\n"
                 "                   [--json]\n"
                 "\n"
                 "Writes an AVI file with MJPEG video and PCM sound from JPEG pictures and a WAV\n"
                 "file, copying their bytes as they are (no decoding, no encoding).\n"
                 "\n"
                 "  -o, --output OUT.avi  the file to write (replaced if it exists)\n"
                 "  --fps RATE            frames a second: 25, 29.97 or 30000/1001\n"
                 "  --video 'GLOB'        the pictures, one frame each, in name order; quote the\n"
                 "                        pattern ('frames/*.jpg'), the tool expands it. Every\n"
                 "                        file must be a JPEG with a frame header, all of one size\n"
                 "  --audio WAV           PCM sound (RIFF WAVE, format 1 or extensible PCM); each\n"
                 "                        frame gets one chunk of its share of the samples, the\n"
                 "                        remainders carried so that every sample is written. Sound\n"
                 "                        longer than the pictures goes on in chunks of 1/RATE s;\n"
                 "                        without --video the whole file is cut that way\n"
                 "  --text-caption FILE   a text-caption stream named \"Subtitle\"\n"
                 "  --chapters FILE       a chapter stream named \"Chapter\"\n"
                 "                        Both take one entry a line: the frame number (from 0), a\n"
                 "                        tab, then the text, which becomes one chunk written just\n"
                 "                        before that frame's picture. Empty lines and lines\n"
                 "                        starting with '#' are skipped\n"
                 "  --metadata FILE       the file's bytes as the metadata block (in a LIST 'KQDT')\n"
                 "  --odml                also write OpenDML indexes (ix## chunks, one per minute\n"
                 "                        of each stream, and a super index in each header)\n"
                 "  --swapped-ids         chunk ids type first (\"dc00\"); only readers that know\n"
                 "                        this form can read the result ('kelqavi chunks\n"
                 "                        --swapped-ids'), players cannot\n"
                 "  --checkpoint SECONDS  make OUT.avi a complete file on disk every SECONDS of\n"
                 "                        media while it is written (0, the default: only at the\n"
                 "                        end)\n"
                 "  --designed            write the designed bytes (the writer's standard_profile\n"
                 "                        0); by default the standard form every player reads:\n"
                 "                        OpenDML indexes as 'ix00' naming '00dc'/'01wb', every\n"
                 "                        chunk in idx1, caption streams given a valid rate\n"
                 "  --json                the summary of what was written as JSON\n"
                 "\n"
                 "Chunks go in frame order: the frame's captions and chapters, its picture\n"
                 "(a key frame), then its sound. The summary lists each stream's chunks and bytes,\n"
                 "and any difference between what the inputs hold and what was written (such as\n"
                 "bytes after the WAV data's last whole sample frame). When OUT.avi reaches the\n"
                 "writer's size limit (0x7F000000 bytes) it is finished and the frames go on in\n"
                 "OUT-2.avi, OUT-3.avi ..., each a complete file with the same streams.\n"
                 "Exit status: 0 everything written, 1 an input cannot be used or the output not\n"
                 "written (the file being written is then removed), 2 usage error, 3 written,\n"
                 "but not everything the inputs hold: the losses are listed.\n");
}

int run_mux_command(int argc, char **argv) {
    mux_options o;
    bool stop = false;
    const int parsed = parse_options(argc, argv, o, stop);
    if (stop) return parsed;
    mux_inputs in;
    const int read = read_inputs(o, in);
    if (read != exit_ok) return read;

    avi_output out;
    if (!open_writer(out, o.output, o.write)) return exit_bad_input;
    std::string error;
    mux_streams ids;
    bool ok = add_streams(in, out, ids, error);
    if (!ok) print_error("%s", error.c_str());
    {
        progress_bar progress(("kelqavi: writing " + std::string(o.output)).c_str(), "frames", in.steps);
        std::vector<uint8_t> bytes;
        size_t next_caption = 0, next_chapter = 0;
        for (uint64_t i = 0; i < in.steps && ok; ++i) {
            progress.update(i, i);
            ok = write_frame(o, in, out, ids, i, next_caption, next_chapter, bytes);
        }
        progress.finish();
    }
    const bool closed = out.close(error);
    if (ok && !closed) print_error("%s", error.c_str());
    if (!ok || !closed) {
        // What the writer could not finish, or what stopped half-way, is not kept.
        remove_output(out.current_path());
        return exit_bad_input;
    }
    loss_report losses;
    tally_inputs(in, out, ids, losses);
    out.print_summary(stdout, o.write.json, &losses);
    if (!flush_stdout()) return exit_bad_input;
    if (!losses.any()) return exit_ok;
    losses.print_error_line("the inputs hold");
    return exit_problems;
}

}  // namespace kelqtool
