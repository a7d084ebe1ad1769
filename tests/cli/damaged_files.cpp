// The table of damaged files that the tool's robustness sweep runs every
// command over, and the seed files it starts from:
//
//   damaged_files avi OUTDIR SEED...   damaged copies of each seed AVI
//   damaged_files media OUTDIR         damaged JPEG and WAV inputs for mux
//   damaged_files opendml OUT          a small two-segment OpenDML file
//
// avi and media write their files into OUTDIR and print one line per file:
// NAME <TAB> lossy|any <TAB> what was done. "lossy" rows lose data that a
// command copying the file must report (a cut or a damaged chunk inside a
// 'movi' list); "any" rows may or may not. Only the C++ standard library, so
// it runs wherever the tool does (under the emulator for cross builds).
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

namespace {

using bytes_t = std::vector<unsigned char>;

uint32_t le32(const bytes_t &b, size_t at) {
    return at + 4 > b.size() ? 0 : b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}

void put32(bytes_t &b, size_t at, uint32_t v) {
    for (size_t i = 0; i < 4 && at + i < b.size(); ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

std::string text4(const bytes_t &b, size_t at) {
    return at + 4 > b.size() ? std::string() : std::string(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at) + 4);
}

// An id as the table's descriptions show it: bytes outside printable ASCII as '.'.
std::string shown(std::string id) {
    for (char &c : id)
        if (c < 0x20 || c > 0x7E) c = '.';
    return id;
}

bool write_file(const std::string &path, const bytes_t &b) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(b.data()), static_cast<std::streamsize>(b.size()));
    return static_cast<bool>(out);
}

// ---------------------------------------------------------------------------
// The chunks of a seed file, found by walking its RIFF tree.
// ---------------------------------------------------------------------------

struct chunk_at {
    size_t offset;
    std::string id, list_type;
    uint32_t size;
    bool in_movi;
};

struct seed_file {
    std::string name;
    bytes_t bytes;
    std::vector<chunk_at> chunks;
    size_t data_end = 0;        // where the last media chunk of any 'movi' list ends
    bool placeholder = false;   // a 'movi' size left at 0xFFFFFFFF: a cut is not detectable
};

bool media_id(const std::string &id) {
    if (id.size() != 4 || !std::isdigit(static_cast<unsigned char>(id[0])) || !std::isdigit(static_cast<unsigned char>(id[1])))
        return false;
    const std::string t = id.substr(2);
    return t == "dc" || t == "db" || t == "wb" || t == "dd" || t == "st" || t == "sb" || t == "ch";
}

void walk(seed_file &s, size_t begin, size_t end, bool in_movi, int depth) {
    const bytes_t &b = s.bytes;
    for (size_t pos = begin; pos + 8 <= end && depth < 16;) {
        chunk_at c{pos, shown(text4(b, pos)), "", le32(b, pos + 4), in_movi};
        const bool list = c.id == "RIFF" || c.id == "LIST";
        if (list) c.list_type = text4(b, pos + 8);
        s.chunks.push_back(c);
        const size_t stop = std::min<size_t>(end, pos + 8 + static_cast<size_t>(c.size));
        const bool movi = c.list_type == "movi";
        if (movi && c.size == 0xFFFFFFFFu) s.placeholder = true;
        if (list) walk(s, pos + 12, stop, in_movi || movi, depth + 1);
        if (in_movi && media_id(c.id)) s.data_end = std::max(s.data_end, stop);
        pos += 8 + static_cast<size_t>(c.size) + (c.size & 1);
    }
}

// ---------------------------------------------------------------------------
// The table: each row a damaged copy of a seed.
// ---------------------------------------------------------------------------

class table {
public:
    explicit table(std::string dir) : dir_(std::move(dir)) {}

    void row(const bytes_t &b, bool lossy, const std::string &what, const char *extension = "avi") {
        char name[32];
        std::snprintf(name, sizeof name, "%04zu.%s", ++count_, extension);
        if (!write_file(dir_ + "/" + name, b)) {
            std::fprintf(stderr, "cannot write %s/%s\n", dir_.c_str(), name);
            failed_ = true;
        }
        std::printf("%s\t%s\t%s\n", name, lossy ? "lossy" : "any", what.c_str());
    }
    bool failed() const { return failed_; }

private:
    std::string dir_;
    size_t count_ = 0;
    bool failed_ = false;
};

// The file cut after `length` bytes.
void cut(table &t, const seed_file &s, size_t length, const std::string &why) {
    if (length >= s.bytes.size()) return;
    const bytes_t b(s.bytes.begin(), s.bytes.begin() + static_cast<long>(length));
    t.row(b, !s.placeholder && length + 1 < s.data_end, s.name + " cut at " + std::to_string(length) + " (" + why + ")");
}

void poke32(table &t, const seed_file &s, size_t at, uint32_t value, bool lossy, const std::string &what) {
    bytes_t b = s.bytes;
    put32(b, at, value);
    char text[64];
    std::snprintf(text, sizeof text, " = 0x%X", value);
    t.row(b, lossy, s.name + ": " + what + text);
}

void truncations(table &t, const seed_file &s) {
    std::vector<const chunk_at *> media;
    for (const chunk_at &c : s.chunks) {
        if (!c.in_movi) {
            // A chunk without its data; a list also without its header.
            if (!c.list_type.empty()) cut(t, s, c.offset, c.id + " header");
            cut(t, s, c.offset + 8, c.id + " data");
        } else if (media_id(c.id)) {
            media.push_back(&c);
        }
    }
    for (size_t i = 0; i < media.size(); ++i) {
        if (i >= 2 && i + 2 < media.size()) continue;  // the first two and the last two
        cut(t, s, media[i]->offset + 4, media[i]->id + " header");
        cut(t, s, media[i]->offset + 9, media[i]->id + " data");
    }
    for (size_t k = 1; k < 12; ++k) cut(t, s, s.bytes.size() * k / 12, "spread");
}

// Size fields of the chunks outside 'movi', and the counts and sizes inside
// header records, set to values that test a bound.
void header_fields(table &t, const seed_file &s) {
    static const uint32_t values[] = {0, 1, 0x7FFF, 0x7FFFFFFF, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu};
    size_t k = 0;
    for (const chunk_at &c : s.chunks) {
        if (c.in_movi) continue;
        poke32(t, s, c.offset + 4, values[k++ % 7], false, c.id + " size at " + std::to_string(c.offset));
        const size_t d = c.offset + 8;
        if (c.id == "avih") poke32(t, s, d + 24, 0xFFFF, false, "avih stream count");
        if (c.id == "strh") poke32(t, s, d + 32, 0xFFFFFFFFu, false, "strh length");
        if (c.id == "strh") poke32(t, s, d + 24, 0, false, "strh rate");
        if (c.id == "strf") poke32(t, s, d, 0xFFFFFFFFu, false, "strf first word (biSize, or format and channels)");
        if (c.id == "strn") poke32(t, s, c.offset + 4, 0x7FFF, false, "strn size");
        if (c.id == "strd") poke32(t, s, d + 4, 0xFFFFFFF0u, false, "strd data size");
        if (c.id == "indx") poke32(t, s, d + 4, 0xFFFFFFFFu, false, "indx entries in use");
        if (c.id == "indx") poke32(t, s, d + 24, 0xFFFFFFF0u, false, "indx first entry's offset");
    }
    // Standard index chunks, wherever they are: a huge entry count, alone
    // and with a size to match.
    for (const chunk_at &c : s.chunks) {
        if (c.id.compare(0, 2, "ix") != 0) continue;
        poke32(t, s, c.offset + 12, 0xFFFFFFFFu, false, c.id + " entries in use");
        bytes_t b = s.bytes;
        put32(b, c.offset + 4, 0xFFFFFFF0u);
        put32(b, c.offset + 12, 0xFFFFFFFFu);
        t.row(b, false, s.name + ": " + c.id + " at " + std::to_string(c.offset) + " size and entries in use huge");
    }
}

// One damaged chunk inside 'movi': what follows it cannot be read.
void movi_damage(table &t, const seed_file &s) {
    std::vector<const chunk_at *> media;
    for (const chunk_at &c : s.chunks)
        if (c.in_movi && media_id(c.id)) media.push_back(&c);
    if (media.empty()) return;
    const chunk_at &first = *media.front(), &middle = *media[media.size() / 2], &last = *media.back();
    const auto id = [&](const chunk_at &c, const char *to) {
        bytes_t b = s.bytes;
        std::memcpy(&b[c.offset], to, 4);
        t.row(b, true, s.name + ": " + c.id + " at " + std::to_string(c.offset) + " renamed '" + std::string(to, 4) + "'");
    };
    id(first, "\0\0\0\0");
    id(middle, "zz99");
    id(middle, "17dc");  // a stream the file does not have
    id(last, "zz99");
    poke32(t, s, middle.offset + 4, 0xFFFFFFF0u, true, middle.id + " size at " + std::to_string(middle.offset));
    // Past the end of its list, but not of the file.
    for (const chunk_at &c : s.chunks) {
        const size_t list_end = c.offset + 8 + c.size;
        if (c.list_type == "movi" && c.offset < middle.offset && middle.offset < list_end && list_end + 2 < s.bytes.size())
            poke32(t, s, middle.offset + 4, static_cast<uint32_t>(list_end + 2 - middle.offset - 8), true,
                   middle.id + " size past its list");
    }
}

// A few byte changes, seeded, aimed mostly at the structure.
struct xorshift {
    uint64_t state;
    uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    uint64_t below(uint64_t n) { return n == 0 ? 0 : next() % n; }
};

void corruptions(table &t, const seed_file &s, unsigned count) {
    // Chunk headers: every position where four letters or digits are
    // followed by a size; most of the structure lies there.
    std::vector<size_t> headers;
    const bytes_t &in = s.bytes;
    for (size_t i = 0; i + 8 <= in.size(); i += 2) {
        bool id = true;
        for (size_t k = 0; k < 4 && id; ++k) id = std::isalnum(in[i + k]) || (k > 0 && in[i + k] == ' ');
        if (id) headers.push_back(i);
    }
    static const uint32_t sizes[] = {0, 1, 3, 4, 7, 8, 12, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF0, 0xFFFFFFFF, 0x10000, 40, 56};
    for (unsigned seed = 1; seed <= count; ++seed) {
        xorshift rng{seed * 0x9E3779B97F4A7C15ull + 1};
        for (int i = 0; i < 8; ++i) rng.next();
        bytes_t b = in;
        const int changes = 1 + static_cast<int>(rng.below(4));
        for (int c = 0; c < changes; ++c) {
            const uint64_t how = rng.below(4);
            if (how == 0 && !headers.empty()) {
                const uint32_t v = rng.below(2) == 0 ? sizes[rng.below(sizeof sizes / sizeof sizes[0])]
                                                     : static_cast<uint32_t>(rng.next());
                put32(b, headers[rng.below(headers.size())] + 4, v);
            } else if (how == 1 && !headers.empty()) {
                b[headers[rng.below(headers.size())] + rng.below(4)] = static_cast<unsigned char>(rng.next());
            } else if (how == 2) {
                b[rng.below(std::min<size_t>(b.size(), 2048))] = static_cast<unsigned char>(rng.next());
            } else {
                b[rng.below(b.size())] = static_cast<unsigned char>(rng.next());
            }
        }
        t.row(b, false, s.name + " corruption seed " + std::to_string(seed));
    }
}

int damage_avi(const std::string &dir, int count, char **paths) {
    table t(dir);
    for (int i = 0; i < count; ++i) {
        seed_file s;
        std::ifstream in(paths[i], std::ios::binary);
        s.bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (s.bytes.size() < 12) {
            std::fprintf(stderr, "cannot read the seed %s\n", paths[i]);
            return 2;
        }
        const std::string path = paths[i];
        s.name = path.substr(path.find_last_of('/') + 1);
        walk(s, 0, s.bytes.size(), false, 0);
        truncations(t, s);
        header_fields(t, s);
        movi_damage(t, s);
        corruptions(t, s, 12);
    }
    return t.failed() ? 2 : 0;
}

// ---------------------------------------------------------------------------
// Damaged inputs for mux: a JPEG picture and a WAV file, each cut and with
// fields set to values that test a bound.
// ---------------------------------------------------------------------------

bytes_t good_jpeg() {
    // FF D8, a comment, a baseline frame header (160x120, three components),
    // filler and FF D9.
    return {0xFF, 0xD8, 0xFF, 0xFE, 0x00, 0x04, 'h', 'i', 0xFF, 0xC0, 0x00, 0x11, 0x08, 0x00, 0x78, 0x00, 0xA0,
            0x03, 0x01, 0x22, 0x00, 0x02, 0x11, 0x01, 0x03, 0x11, 0x01, 'p', 'i', 'c', 0xFF, 0xD9};
}

bytes_t good_wav() {
    // 8000 Hz, 16-bit stereo, 100 sample frames.
    bytes_t b = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16, 0, 0, 0, 1, 0, 2, 0,
                 0x40, 0x1F, 0, 0, 0, 0x7D, 0, 0, 4, 0, 16, 0, 'd', 'a', 't', 'a', 0x90, 0x01, 0, 0};
    b.resize(b.size() + 400, 0x11);
    put32(b, 4, static_cast<uint32_t>(b.size() - 8));
    return b;
}

int damage_media(const std::string &dir) {
    table t(dir);
    const bytes_t jpeg = good_jpeg(), wav = good_wav();
    t.row(jpeg, false, "the good picture", "jpg");
    for (size_t n : {0, 1, 2, 4, 9, 12, 16, 20})
        t.row(bytes_t(jpeg.begin(), jpeg.begin() + static_cast<long>(n)), false, "picture cut at " + std::to_string(n), "jpg");
    const auto jpeg_field = [&](size_t at, std::initializer_list<unsigned char> v, const char *what) {
        bytes_t b = jpeg;
        std::copy(v.begin(), v.end(), b.begin() + static_cast<long>(at));
        t.row(b, false, std::string("picture: ") + what, "jpg");
    };
    jpeg_field(4, {0x00, 0x00}, "comment length 0");
    jpeg_field(4, {0xFF, 0xFF}, "comment length 65535");
    jpeg_field(10, {0x00, 0x02}, "frame header length 2");
    jpeg_field(15, {0x00, 0x00}, "width 0");
    jpeg_field(9, {0xDA}, "scan data before any frame header");
    t.row(wav, false, "the good sound", "wav");
    for (size_t n : {0, 4, 11, 12, 20, 35, 36, 40, 43, 44, 45, 200})
        t.row(bytes_t(wav.begin(), wav.begin() + static_cast<long>(n)), false, "sound cut at " + std::to_string(n), "wav");
    const auto wav_field = [&](size_t at, uint32_t v, bool lossy, const char *what) {
        bytes_t b = wav;
        put32(b, at, v);
        t.row(b, lossy, std::string("sound: ") + what, "wav");
    };
    wav_field(4, 0xFFFFFFFFu, false, "RIFF size 0xFFFFFFFF");
    wav_field(16, 0, false, "fmt size 0");
    wav_field(16, 0xFFFFFFF0u, false, "fmt size huge");
    wav_field(20, 0x00000001, false, "no channels");
    wav_field(24, 0, false, "sample rate 0");
    wav_field(32, 0x00100000, false, "block align 0");
    wav_field(40, 0xFFFFFFFFu, false, "data size unpatched (0xFFFFFFFF)");
    wav_field(40, 0x7FFFFFFF, false, "data size past the end");
    wav_field(40, 399, true, "data size ending inside a sample frame");
    wav_field(36, 0x61746164u ^ 1, false, "no data chunk");
    return t.failed() ? 2 : 0;
}

// ---------------------------------------------------------------------------
// opendml: a small two-segment OpenDML file, laid out as ffmpeg lays out the
// large ones (ffmpeg writes OpenDML indexes only past 1 GiB): super indexes in
// the header, the standard index chunks ix00 and ix01 at the end of each
// 'movi' list with qwBaseOffset at the list's type, idx1 for the first
// segment. 8x6 raw video ("00db", 144 bytes a frame) and 8-bit PCM in chunks
// of 801 bytes, an odd size.
// ---------------------------------------------------------------------------

class byte_writer {
public:
    std::vector<unsigned char> bytes;

    size_t pos() const { return bytes.size(); }
    void u8(uint32_t v) { bytes.push_back(static_cast<unsigned char>(v)); }
    void u16(uint32_t v) { u8(v & 0xff); u8(v >> 8 & 0xff); }
    void u32(uint32_t v) { u16(v & 0xffff); u16(v >> 16); }
    void u64(uint64_t v) { u32(static_cast<uint32_t>(v)); u32(static_cast<uint32_t>(v >> 32)); }
    void fourcc(const char *t) { for (int i = 0; i < 4; ++i) u8(static_cast<unsigned char>(t[i])); }
    void fill(size_t n, unsigned char v) { bytes.insert(bytes.end(), n, v); }
    void patch32(size_t at, uint32_t v) { for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<unsigned char>(v >> (8 * i)); }
    void patch64(size_t at, uint64_t v) { patch32(at, static_cast<uint32_t>(v)); patch32(at + 4, static_cast<uint32_t>(v >> 32)); }
    // A chunk or list begun: returns where its size field is.
    size_t begin(const char *id, const char *type = nullptr) {
        fourcc(id);
        const size_t at = pos();
        u32(0);
        if (type != nullptr) fourcc(type);
        return at;
    }
    // Patches the size and adds the pad byte of an odd size.
    void end(size_t size_at) {
        const size_t size = pos() - size_at - 4;
        patch32(size_at, static_cast<uint32_t>(size));
        if (size % 2 != 0) u8(0);
    }
};

struct media_chunk {
    size_t header;    // position of the chunk's id
    uint32_t size;
};

constexpr uint32_t frame_bytes = 8 * 6 * 3;
constexpr uint32_t audio_chunk_bytes = 801;

void stream_list(byte_writer &w, bool video, size_t &indx_entries_at) {
    const size_t strl = w.begin("LIST", "strl");
    const size_t strh = w.begin("strh");
    w.fourcc(video ? "vids" : "auds");
    if (video) w.fourcc("DIB "); else w.u32(0);
    w.u32(0); w.u16(0); w.u16(0); w.u32(0);
    w.u32(1);                                   // scale
    w.u32(video ? 5 : 8000);                    // rate
    w.u32(0);
    w.u32(video ? 5 : 5 * audio_chunk_bytes);   // length
    w.u32(video ? frame_bytes : audio_chunk_bytes);
    w.u32(0xFFFFFFFFu);
    w.u32(video ? 0 : 1);                       // sample size
    w.u16(0); w.u16(0); w.u16(video ? 8 : 0); w.u16(video ? 6 : 0);
    w.end(strh);
    const size_t strf = w.begin("strf");
    if (video) {
        w.u32(40); w.u32(8); w.u32(6); w.u16(1); w.u16(24); w.u32(0); w.u32(frame_bytes);
        w.u32(0); w.u32(0); w.u32(0); w.u32(0);
    } else {
        w.u16(1); w.u16(1); w.u32(8000); w.u32(8000); w.u16(1); w.u16(8);
    }
    w.end(strf);
    const size_t indx = w.begin("indx");
    w.u16(4); w.u8(0); w.u8(0);  // four longs an entry, an index of indexes
    w.u32(2);
    w.fourcc(video ? "00db" : "01wb");
    w.u32(0); w.u32(0); w.u32(0);
    indx_entries_at = w.pos();
    w.fill(2 * 16, 0);
    w.end(indx);
    w.end(strl);
}

// One 'movi' list: frames and audio chunks in turn, then ix00 and ix01.
// The index chunks' positions, sizes and durations go into the super indexes.
void movie_list(byte_writer &w, int frames, std::vector<media_chunk> &chunks, size_t super_video, size_t super_audio,
                int segment, unsigned char &fill) {
    const size_t movi = w.begin("LIST", "movi");
    const size_t base = movi + 4;  // qwBaseOffset: the list's type, as ffmpeg writes it
    std::vector<media_chunk> video, audio;
    for (int i = 0; i < frames; ++i) {
        const size_t v = w.begin("00db");
        w.fill(frame_bytes, fill++);
        w.end(v);
        video.push_back({v - 4, frame_bytes});
        const size_t a = w.begin("01wb");
        w.fill(audio_chunk_bytes, fill++);
        w.end(a);
        audio.push_back({a - 4, audio_chunk_bytes});
    }
    const auto standard_index = [&](const char *id, const char *chunk_id, const std::vector<media_chunk> &list,
                                    size_t super, uint32_t duration) {
        const size_t at = w.pos();
        const size_t ix = w.begin(id);
        w.u16(2); w.u8(0); w.u8(1);  // two longs an entry, an index of chunks
        w.u32(static_cast<uint32_t>(list.size()));
        w.fourcc(chunk_id);
        w.u64(base);
        w.u32(0);
        for (const media_chunk &c : list) {
            w.u32(static_cast<uint32_t>(c.header + 8 - base));
            w.u32(c.size);  // bit 31 clear: every chunk a key frame
        }
        w.end(ix);
        const size_t entry = super + static_cast<size_t>(segment) * 16;
        w.patch64(entry, at);
        w.patch32(entry + 8, static_cast<uint32_t>(w.pos() - at));
        w.patch32(entry + 12, duration);
    };
    standard_index("ix00", "00db", video, super_video, static_cast<uint32_t>(video.size()));
    standard_index("ix01", "01wb", audio, super_audio, static_cast<uint32_t>(audio.size() * audio_chunk_bytes));
    w.end(movi);
    chunks.insert(chunks.end(), video.begin(), video.end());
    chunks.insert(chunks.end(), audio.begin(), audio.end());
}

int make_opendml(const char *out_path) {
    byte_writer w;
    unsigned char fill = 1;
    const size_t riff = w.begin("RIFF", "AVI ");
    const size_t hdrl = w.begin("LIST", "hdrl");
    const size_t avih = w.begin("avih");
    w.u32(200000); w.u32(frame_bytes * 5 + 8000); w.u32(0); w.u32(0x110); w.u32(3); w.u32(0); w.u32(2);
    w.u32(0); w.u32(8); w.u32(6); w.fill(16, 0);
    w.end(avih);
    size_t super_video = 0, super_audio = 0;
    stream_list(w, true, super_video);
    stream_list(w, false, super_audio);
    const size_t odml = w.begin("LIST", "odml");
    const size_t dmlh = w.begin("dmlh");
    w.u32(5);
    w.fill(244, 0);
    w.end(dmlh);
    w.end(odml);
    w.end(hdrl);
    std::vector<media_chunk> first;
    const size_t movi_type = w.pos() + 8;
    movie_list(w, 3, first, super_video, super_audio, 0, fill);
    const size_t idx1 = w.begin("idx1");
    std::sort(first.begin(), first.end(), [](const media_chunk &a, const media_chunk &b) { return a.header < b.header; });
    for (const media_chunk &c : first) {
        w.bytes.insert(w.bytes.end(), w.bytes.begin() + static_cast<std::ptrdiff_t>(c.header),
                       w.bytes.begin() + static_cast<std::ptrdiff_t>(c.header) + 4);
        w.u32(0x10);
        w.u32(static_cast<uint32_t>(c.header - movi_type));
        w.u32(c.size);
    }
    w.end(idx1);
    w.end(riff);
    const size_t avix = w.begin("RIFF", "AVIX");
    std::vector<media_chunk> second;
    movie_list(w, 2, second, super_video, super_audio, 1, fill);
    w.end(avix);
    return write_file(out_path, w.bytes) ? 0 : 2;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string command = argc >= 2 ? argv[1] : "";
    if (command == "avi" && argc >= 4) return damage_avi(argv[2], argc - 3, argv + 3);
    if (command == "media" && argc == 3) return damage_media(argv[2]);
    if (command == "opendml" && argc == 3) return make_opendml(argv[2]);
    std::fprintf(stderr, "usage: damaged_files avi OUTDIR SEED... | media OUTDIR | opendml OUT\n");
    return 2;
}
