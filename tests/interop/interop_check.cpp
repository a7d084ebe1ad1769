// Compares what the kelqavi tool says about an AVI file with what ffprobe
// says about it, both as JSON. Built only for native test runs; needs nothing
// but the C++ standard library, so the interop tests need neither python nor
// jq.
//
//   interop_check valid FILE...                      each FILE is well-formed JSON
//   interop_check streams INFO PROBE                 info --json against ffprobe -show_streams
//   interop_check packets CHUNKS PROBE RIFF          chunks --json against ffprobe -show_packets
//   interop_check indexes INFO CHUNKS RIFF [PROBE]   idx1, super indexes and segments against the walk
//
// Exit status: 0 agreement, 1 a difference (each one printed), 2 bad input.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

// ---------------------------------------------------------------------------
// A small JSON reader. Object members keep their order; numbers keep their
// text, so 64-bit offsets are exact.
// ---------------------------------------------------------------------------

struct json {
    enum kind_t { null_v, bool_v, number_v, string_v, array_v, object_v } kind = null_v;
    bool b = false;
    std::string text;  // number text or string value (bytes)
    std::vector<json> items;
    std::vector<std::pair<std::string, json>> members;

    const json *get(const std::string &key) const {
        for (const auto &m : members)
            if (m.first == key) return &m.second;
        return nullptr;
    }
    bool is_null() const { return kind == null_v; }
    long long integer() const { return kind == number_v ? std::strtoll(text.c_str(), nullptr, 10) : 0; }
    double real() const { return kind == number_v ? std::strtod(text.c_str(), nullptr) : 0.0; }
    // A member's value: its integer, or -1 when absent or not a number.
    long long int_of(const std::string &key) const {
        const json *v = get(key);
        return v != nullptr && v->kind == number_v ? v->integer() : -1;
    }
    std::string str_of(const std::string &key) const {
        const json *v = get(key);
        return v != nullptr && v->kind == string_v ? v->text : std::string();
    }
};

class json_parser {
public:
    explicit json_parser(const std::string &text) : s_(text) {}

    bool parse(json &out, std::string &error) {
        if (!value(out, 0)) {
            error = error_.empty() ? "malformed JSON" : error_;
            error += " at byte " + std::to_string(i_);
            return false;
        }
        skip();
        if (i_ != s_.size()) {
            error = "text after the JSON value at byte " + std::to_string(i_);
            return false;
        }
        return true;
    }

private:
    void skip() {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\n' || s_[i_] == '\r' || s_[i_] == '\t')) ++i_;
    }
    bool fail(const char *what) {
        if (error_.empty()) error_ = what;
        return false;
    }
    bool literal(const char *word) {
        const size_t n = std::strlen(word);
        if (s_.compare(i_, n, word) != 0) return fail("unknown literal");
        i_ += n;
        return true;
    }
    static void put_utf8(std::string &out, unsigned code) {
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xc0 | (code >> 6));
            out += static_cast<char>(0x80 | (code & 0x3f));
        } else {
            out += static_cast<char>(0xe0 | (code >> 12));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3f));
            out += static_cast<char>(0x80 | (code & 0x3f));
        }
    }
    bool string(std::string &out) {
        if (s_[i_] != '"') return fail("string expected");
        ++i_;
        while (i_ < s_.size() && s_[i_] != '"') {
            const unsigned char c = static_cast<unsigned char>(s_[i_]);
            if (c < 0x20) return fail("control character in a string");
            if (c != '\\') {
                out += static_cast<char>(c);
                ++i_;
                continue;
            }
            if (++i_ >= s_.size()) return fail("cut-off escape");
            const char e = s_[i_++];
            switch (e) {
            case '"': out += '"'; break;
            case '\\': out += '\\'; break;
            case '/': out += '/'; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 'u': {
                if (i_ + 4 > s_.size()) return fail("cut-off \\u escape");
                unsigned code = 0;
                for (int k = 0; k < 4; ++k) {
                    const char h = s_[i_++];
                    code <<= 4;
                    if (h >= '0' && h <= '9') code |= static_cast<unsigned>(h - '0');
                    else if (h >= 'a' && h <= 'f') code |= static_cast<unsigned>(h - 'a' + 10);
                    else if (h >= 'A' && h <= 'F') code |= static_cast<unsigned>(h - 'A' + 10);
                    else return fail("bad \\u escape");
                }
                // The tool writes bytes that are not text as \u00XX: keep them as bytes.
                if (code < 0x100) out += static_cast<char>(code);
                else put_utf8(out, code);
                break;
            }
            default: return fail("unknown escape");
            }
        }
        if (i_ >= s_.size()) return fail("unterminated string");
        ++i_;
        return true;
    }
    bool number(json &out) {
        const size_t start = i_;
        if (s_[i_] == '-') ++i_;
        if (i_ >= s_.size() || !(s_[i_] >= '0' && s_[i_] <= '9')) return fail("bad number");
        if (s_[i_] == '0') ++i_;
        else while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
        if (i_ < s_.size() && s_[i_] == '.') {
            ++i_;
            if (i_ >= s_.size() || !(s_[i_] >= '0' && s_[i_] <= '9')) return fail("bad fraction");
            while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
        }
        if (i_ < s_.size() && (s_[i_] == 'e' || s_[i_] == 'E')) {
            ++i_;
            if (i_ < s_.size() && (s_[i_] == '+' || s_[i_] == '-')) ++i_;
            if (i_ >= s_.size() || !(s_[i_] >= '0' && s_[i_] <= '9')) return fail("bad exponent");
            while (i_ < s_.size() && s_[i_] >= '0' && s_[i_] <= '9') ++i_;
        }
        out.kind = json::number_v;
        out.text = s_.substr(start, i_ - start);
        return true;
    }
    bool value(json &out, int depth) {
        if (depth > 200) return fail("nested too deep");
        skip();
        if (i_ >= s_.size()) return fail("value expected");
        const char c = s_[i_];
        if (c == '{') {
            out.kind = json::object_v;
            ++i_;
            skip();
            if (i_ < s_.size() && s_[i_] == '}') return ++i_, true;
            for (;;) {
                skip();
                std::string key;
                if (i_ >= s_.size() || !string(key)) return fail("member name expected");
                skip();
                if (i_ >= s_.size() || s_[i_] != ':') return fail("':' expected");
                ++i_;
                json v;
                if (!value(v, depth + 1)) return false;
                out.members.emplace_back(std::move(key), std::move(v));
                skip();
                if (i_ < s_.size() && s_[i_] == ',') { ++i_; continue; }
                if (i_ < s_.size() && s_[i_] == '}') return ++i_, true;
                return fail("',' or '}' expected");
            }
        }
        if (c == '[') {
            out.kind = json::array_v;
            ++i_;
            skip();
            if (i_ < s_.size() && s_[i_] == ']') return ++i_, true;
            for (;;) {
                json v;
                if (!value(v, depth + 1)) return false;
                out.items.push_back(std::move(v));
                skip();
                if (i_ < s_.size() && s_[i_] == ',') { ++i_; continue; }
                if (i_ < s_.size() && s_[i_] == ']') return ++i_, true;
                return fail("',' or ']' expected");
            }
        }
        if (c == '"') {
            out.kind = json::string_v;
            return string(out.text);
        }
        if (c == 't') { out.kind = json::bool_v; out.b = true; return literal("true"); }
        if (c == 'f') { out.kind = json::bool_v; return literal("false"); }
        if (c == 'n') { out.kind = json::null_v; return literal("null"); }
        return number(out);
    }

    const std::string &s_;
    size_t i_ = 0;
    std::string error_;
};

bool load(const char *path, json &out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::printf("cannot read %s\n", path);
        return false;
    }
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string error;
    if (!json_parser(text).parse(out, error)) {
        std::printf("%s: %s\n", path, error.c_str());
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Reporting.
// ---------------------------------------------------------------------------

int differences = 0;

void differ(const std::string &what) {
    ++differences;
    if (differences <= 40) std::printf("DIFFERENT: %s\n", what.c_str());
    if (differences == 41) std::printf("(further differences not shown)\n");
}

// ours is what kelqavi says; theirs what the other side (ffprobe, or the
// walk) says.
void same_number(const std::string &what, long long ours, long long theirs, const char *other = "ffprobe") {
    if (ours != theirs)
        differ(what + ": kelqavi " + std::to_string(ours) + ", " + other + " " + std::to_string(theirs));
}

std::string printable(const std::string &bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        if (c >= 0x20 && c < 0x7f) {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

// The FourCC text as a number, first character lowest.
long long fourcc_code(const std::string &bytes) {
    unsigned long long code = 0;
    for (size_t i = 0; i < 4 && i < bytes.size(); ++i) code |= static_cast<unsigned long long>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return static_cast<long long>(code);
}

long long gcd(long long a, long long b) {
    while (b != 0) {
        const long long t = a % b;
        a = b;
        b = t;
    }
    return a < 0 ? -a : a;
}

// "9/125" from a rate and a scale: a stream's time base as ffprobe writes it.
std::string time_base(long long rate, long long scale) {
    if (rate <= 0 || scale <= 0) return "?";
    const long long g = gcd(scale, rate);
    return std::to_string(scale / g) + "/" + std::to_string(rate / g);
}

// ---------------------------------------------------------------------------
// streams: stream kinds, codec codes, frame sizes and audio formats.
// ---------------------------------------------------------------------------

int compare_streams(const json &info, const json &probe) {
    const json *ours = info.get("streams");
    const json *theirs = probe.get("streams");
    if (ours == nullptr || theirs == nullptr) {
        differ("a 'streams' array is missing");
        return 1;
    }
    same_number("number of streams", static_cast<long long>(ours->items.size()), static_cast<long long>(theirs->items.size()));
    const size_t n = std::min(ours->items.size(), theirs->items.size());
    for (size_t i = 0; i < n; ++i) {
        const int before = differences;
        const json &o = ours->items[i];
        const json &t = theirs->items[i];
        const std::string where = "stream " + std::to_string(i);
        same_number(where + ": number / index", o.int_of("number"), t.int_of("index"));
        const std::string kind = o.str_of("kind");
        const std::string type = t.str_of("codec_type");
        if (kind != type) {
            differ(where + ": kind '" + kind + "', ffprobe codec_type '" + type + "'");
            continue;
        }
        const long long tag = std::strtoll(t.str_of("codec_tag").c_str(), nullptr, 16);
        const std::string time = time_base(o.int_of("rate"), o.int_of("scale"));
        if (time != t.str_of("time_base"))
            differ(where + ": rate / scale give time base " + time + ", ffprobe " + t.str_of("time_base"));
        if (kind == "video") {
            same_number(where + ": compression code / codec_tag", fourcc_code(o.str_of("compression")), tag);
            same_number(where + ": width", o.int_of("width"), t.int_of("width"));
            // A negative biHeight marks rows stored top down; ffprobe gives the size.
            same_number(where + ": height (its magnitude)", std::llabs(o.int_of("height")), t.int_of("height"));
            same_number(where + ": length / nb_frames", o.int_of("length"), std::strtoll(t.str_of("nb_frames").c_str(), nullptr, 10));
            if (differences == before)
                std::printf("%s: video %s %lldx%lld, time base %s, %lld frames: as ffprobe\n", where.c_str(),
                        printable(o.str_of("compression")).c_str(), o.int_of("width"), std::llabs(o.int_of("height")),
                        time.c_str(), o.int_of("length"));
        } else if (kind == "audio") {
            same_number(where + ": format tag / codec_tag", o.int_of("format_tag"), tag);
            same_number(where + ": channels", o.int_of("channels"), t.int_of("channels"));
            same_number(where + ": sample rate", o.int_of("samples_per_sec"), std::strtoll(t.str_of("sample_rate").c_str(), nullptr, 10));
            const json *extra = t.get("extradata_size");
            same_number(where + ": cb_size / extradata_size", o.int_of("cb_size"), extra != nullptr ? extra->integer() : 0);
            // ffprobe's bits_per_sample is the codec's: the header's value
            // for PCM, 0 for compressed audio.
            if (o.int_of("format_tag") == 1) {
                same_number(where + ": bits per sample", o.int_of("bits_per_sample"), t.int_of("bits_per_sample"));
                same_number(where + ": average bytes/s x 8 / bit_rate", o.int_of("avg_bytes_per_sec") * 8,
                            std::strtoll(t.str_of("bit_rate").c_str(), nullptr, 10));
                same_number(where + ": block align / channels x bits / 8", o.int_of("block_align"),
                            t.int_of("channels") * t.int_of("bits_per_sample") / 8);
            }
            same_number(where + ": length / nb_frames", o.int_of("length"), std::strtoll(t.str_of("nb_frames").c_str(), nullptr, 10));
            if (differences == before)
                std::printf("%s: audio tag 0x%04llX, %lld ch, %lld Hz, %lld bits, block %lld, cb_size %lld, time base %s: as ffprobe\n",
                        where.c_str(), o.int_of("format_tag"), o.int_of("channels"), o.int_of("samples_per_sec"),
                        o.int_of("bits_per_sample"), o.int_of("block_align"), o.int_of("cb_size"), time.c_str());
        }
    }
    return differences == 0 ? 0 : 1;
}

// ---------------------------------------------------------------------------
// packets: the walk's audio and video chunks against ffprobe's packets.
// ---------------------------------------------------------------------------

struct range {
    long long begin, end;
    std::string id;
};

// Every chunk inside a 'movi' list of the riff tree whose id begins "ix":
// the OpenDML standard index chunks that the muxer puts among the data.
void index_chunks(const json &node, bool in_movi, std::vector<range> &out) {
    for (const json &c : node.items) {
        const std::string id = c.str_of("id");
        if (in_movi && c.str_of("kind") == "chunk" && id.size() == 4 && id[0] == 'i' && id[1] == 'x')
            out.push_back({c.int_of("offset"), c.int_of("offset") + 8 + c.int_of("size"), id});
        const json *children = c.get("children");
        if (children != nullptr) index_chunks(*children, in_movi || c.str_of("list_type") == "movi", out);
    }
}

std::vector<range> index_ranges(const json &riff) {
    std::vector<range> ranges;
    const json *top = riff.get("chunks");
    if (top != nullptr) index_chunks(*top, false, ranges);
    return ranges;
}

const range *inside(const std::vector<range> &ranges, long long offset) {
    for (const range &r : ranges)
        if (offset >= r.begin && offset < r.end) return &r;
    return nullptr;
}

struct packet {
    long long pos, size;
};

bool is_media(const std::string &type) { return type == "audio" || type == "video" || type == "raw_video"; }

int compare_packets(const json &chunks, const json &probe, const json &riff) {
    const std::vector<range> ranges = index_ranges(riff);
    std::map<long long, std::vector<packet>> packets;  // by stream index, in ffprobe's order
    if (const json *list = probe.get("packets")) {
        for (const json &p : list->items) {
            const std::string pos = p.str_of("pos");
            packets[p.int_of("stream_index")].push_back(
                {pos.empty() ? -1 : std::strtoll(pos.c_str(), nullptr, 10), std::strtoll(p.str_of("size").c_str(), nullptr, 10)});
        }
    }
    std::map<long long, std::vector<const json *>> walked;  // media chunks of size > 0, by stream
    long long empty = 0, in_index = 0, split = 0;
    std::map<std::string, long long> filtered_ids;
    const json *list = chunks.get("chunks");
    if (list == nullptr) {
        differ("the chunks output has no 'chunks' array");
        return 1;
    }
    for (const json &c : list->items) {
        const std::string type = c.str_of("type");
        const long long offset = c.int_of("offset");
        if (const range *r = inside(ranges, offset)) {
            // The walk met bytes of an OpenDML standard index chunk. Its id,
            // "ix00", is not a data-chunk id unless ids are read swapped, so
            // the whole-chunk walk resyncs into it and the header walk steps
            // into it four bytes at a time; both then meet the dwChunkId
            // stored in its header ("00dc", 16 bytes in) as a chunk whose
            // size is the low half of qwBaseOffset. None of that is media.
            ++in_index;
            ++filtered_ids[printable(c.str_of("id")) + " (" + type + ") inside " + printable(r->id)];
            if (c.int_of("in_index_of_stream") < 0)
                differ("record at " + std::to_string(offset) + " lies inside " + printable(r->id) + " at " +
                       std::to_string(r->begin) + " but the tool did not mark it");
            continue;
        }
        if (c.int_of("in_index_of_stream") >= 0)
            differ("record at " + std::to_string(offset) + " is marked as inside an index chunk, but the riff tree has none there");
        if (!is_media(type)) {
            differ("the walk met a '" + type + "' record '" + printable(c.str_of("id")) + "' at " + std::to_string(offset) +
                   " (size " + std::to_string(c.int_of("size")) + ") outside every index chunk");
            continue;
        }
        if (c.int_of("size") == 0) {
            ++empty;  // ffprobe skips empty chunks (a dropped or repeated frame)
            continue;
        }
        walked[c.int_of("stream")].push_back(&c);
    }
    std::vector<long long> streams;
    for (const auto &e : walked) streams.push_back(e.first);
    for (const auto &e : packets)
        if (walked.find(e.first) == walked.end()) streams.push_back(e.first);
    for (long long s : streams) {
        const std::vector<const json *> &ours = walked[s];
        const std::vector<packet> &theirs = packets[s];
        size_t p = 0;
        bool ok = true;
        for (size_t k = 0; k < ours.size() && ok; ++k) {
            const json &c = *ours[k];
            const long long data = c.int_of("data_offset");
            const long long size = c.int_of("size");
            const std::string where = "stream " + std::to_string(s) + " chunk " + std::to_string(k) + " at " + std::to_string(c.int_of("offset"));
            if (p >= theirs.size()) {
                differ(where + " (" + std::to_string(size) + " bytes): ffprobe lists no packet for it");
                ok = false;
                break;
            }
            if (theirs[p].pos != data) {
                differ(where + ": data at " + std::to_string(data) + ", ffprobe's packet " + std::to_string(p) + " at " +
                       std::to_string(theirs[p].pos) + " (" + std::to_string(theirs[p].size) + " bytes)");
                ok = false;
                break;
            }
            // ffprobe hands out a long PCM chunk as several packets; the
            // later ones carry the position of the data they start at.
            long long sum = theirs[p++].size;
            while (sum < size && p < theirs.size() && (theirs[p].pos == data + sum || theirs[p].pos < 0)) {
                sum += theirs[p++].size;
                ++split;
            }
            if (sum != size) {
                differ(where + ": " + std::to_string(size) + " bytes, ffprobe's packets there hold " + std::to_string(sum));
                ok = false;
            }
        }
        if (ok && p != theirs.size())
            differ("stream " + std::to_string(s) + ": ffprobe lists " + std::to_string(theirs.size() - p) +
                   " more packets after the walk's last chunk (next at " + std::to_string(theirs[p].pos) + ")");
        if (ok && p == theirs.size())
            std::printf("stream %lld: %zu chunks = %zu packets, same positions and sizes\n", s, ours.size(), theirs.size());
    }
    if (empty != 0) std::printf("empty chunks not listed by ffprobe: %lld\n", empty);
    if (split != 0) std::printf("packets that continue a chunk ffprobe split: %lld\n", split);
    if (in_index != 0) {
        std::printf("records inside ix## index chunks, not media: %lld\n", in_index);
        for (const auto &e : filtered_ids) std::printf("  %lld x %s\n", e.second, e.first.c_str());
    }
    return differences == 0 ? 0 : 1;
}

// ---------------------------------------------------------------------------
// indexes: idx1, the super indexes and the segments against the walk.
// ---------------------------------------------------------------------------

int compare_indexes(const json &info, const json &chunks, const json &riff, const json *probe) {
    const std::vector<range> ranges = index_ranges(riff);
    // The walk's chunks per stream, in the first segment and in all.
    std::map<long long, long long> first_segment, all;
    std::map<long long, long long> first_size;
    if (const json *list = chunks.get("chunks")) {
        for (const json &c : list->items) {
            if (inside(ranges, c.int_of("offset")) != nullptr || !is_media(c.str_of("type"))) continue;
            const long long s = c.int_of("stream");
            ++all[s];
            if (c.int_of("segment") == 0) ++first_segment[s];
            if (first_size.find(s) == first_size.end()) first_size[s] = c.int_of("size");
        }
    }
    const json *indexes = info.get("indexes");
    if (indexes == nullptr) {
        differ("info has no 'indexes'");
        return 1;
    }
    const json *idx1 = indexes->get("idx1");
    if (idx1 != nullptr && !idx1->is_null()) {
        std::map<long long, long long> per;
        if (const json *list = idx1->get("per_stream"))
            for (const json &e : list->items) per[e.int_of("stream")] = e.int_of("entries");
        for (const auto &e : first_segment)
            same_number("idx1 entries of stream " + std::to_string(e.first) + " / chunks in segment 0", per[e.first], e.second, "walk");
        for (const auto &e : per)
            if (first_segment.find(e.first) == first_segment.end())
                differ("idx1 has entries for stream " + std::to_string(e.first) + ", which has no chunk in segment 0");
        same_number("idx1 entries that lie in the file", idx1->int_of("entries_in_file"), idx1->int_of("entries"), "declared");
        std::printf("idx1: %lld entries, per stream as the walk of segment 0\n", idx1->int_of("entries"));
    }
    if (const json *supers = indexes->get("super_indexes")) {
        for (const json &x : supers->items) {
            const long long s = x.int_of("stream");
            same_number("stream " + std::to_string(s) + ": chunks its super index points at / chunks walked", x.int_of("indexed_chunks"), all[s], "walk");
            same_number("stream " + std::to_string(s) + ": ix## headers outside the file", x.int_of("headers_outside_file"), 0, "expected");
            // Every standard index the super index names is an ix## chunk in the riff tree.
            if (const json *list = x.get("standard_indexes")) {
                for (const json &e : list->items) {
                    bool found = false;
                    for (const range &r : ranges) found = found || r.begin == e.int_of("offset");
                    if (!found) differ("stream " + std::to_string(s) + ": no ix## chunk at " + std::to_string(e.int_of("offset")));
                }
                std::printf("stream %lld: super index of %zu standard indexes, %lld chunks: as walked\n", s, list->items.size(),
                            x.int_of("indexed_chunks"));
            }
        }
    }
    if (const json *firsts = indexes->get("reader_first_entries")) {
        for (const json &e : firsts->items) {
            const long long s = e.int_of("stream");
            same_number("stream " + std::to_string(s) + ": the reader's first index entry / first chunk walked", e.int_of("size"), first_size[s], "walk");
            std::printf("stream %lld: the reader's first OpenDML entry is %lld bytes, as the first chunk\n", s, e.int_of("size"));
        }
    }
    // Segments: the reader's offsets are the top-level RIFF forms of the tree.
    std::vector<long long> forms, movis;
    if (const json *top = riff.get("chunks")) {
        for (const json &c : top->items) {
            if (c.str_of("id") != "RIFF") continue;
            forms.push_back(c.int_of("offset"));
            long long movi = -1;
            if (const json *children = c.get("children"))
                for (const json &k : children->items)
                    if (k.str_of("list_type") == "movi" && movi < 0) movi = k.int_of("offset");
            movis.push_back(movi);
        }
    }
    const json *segments = info.get("segments");
    same_number("segment count", info.int_of("segment_count"), static_cast<long long>(forms.size()), "tree");
    if (segments != nullptr) {
        same_number("segments listed", static_cast<long long>(segments->items.size()), static_cast<long long>(forms.size()), "tree");
        for (size_t i = 0; i < segments->items.size() && i < forms.size(); ++i) {
            same_number("segment " + std::to_string(i) + " offset / RIFF form in the tree", segments->items[i].int_of("offset"), forms[i], "tree");
            same_number("segment " + std::to_string(i) + " movi / movi list in the tree", segments->items[i].int_of("movi_offset"), movis[i], "tree");
        }
        std::printf("segments: %zu, at the offsets of the tree's RIFF forms\n", segments->items.size());
    }
    if (probe != nullptr) {
        // ffprobe's stream count against the header's.
        const json *streams = probe->get("streams");
        if (streams != nullptr) same_number("stream_count", info.int_of("stream_count"), static_cast<long long>(streams->items.size()));
    }
    return differences == 0 ? 0 : 1;
}

int usage() {
    std::fprintf(stderr,
                 "usage: interop_check valid FILE... | streams INFO PROBE | packets CHUNKS PROBE RIFF |\n"
                 "       indexes INFO CHUNKS RIFF [PROBE]\n");
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return usage();
    const std::string command = argv[1];
    if (command == "valid" && argc >= 3) {
        for (int i = 2; i < argc; ++i) {
            json j;
            if (!load(argv[i], j)) return 1;
        }
        return 0;
    }
    if (command == "streams" && argc == 4) {
        json info, probe;
        if (!load(argv[2], info) || !load(argv[3], probe)) return 2;
        return compare_streams(info, probe);
    }
    if (command == "packets" && argc == 5) {
        json chunks, probe, riff;
        if (!load(argv[2], chunks) || !load(argv[3], probe) || !load(argv[4], riff)) return 2;
        return compare_packets(chunks, probe, riff);
    }
    if (command == "indexes" && (argc == 5 || argc == 6)) {
        json info, chunks, riff, probe;
        if (!load(argv[2], info) || !load(argv[3], chunks) || !load(argv[4], riff)) return 2;
        if (argc == 6 && !load(argv[5], probe)) return 2;
        return compare_indexes(info, chunks, riff, argc == 6 ? &probe : nullptr);
    }
    return usage();
}
