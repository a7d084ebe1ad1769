// "kelqavi info FILE": what the reader makes of an AVI file (its streams and
// their formats, menu and metadata blocks, RIFF segments), with the main
// header and the indexes read beside it with the RIFF layer.
#include "info_command.h"

#include "avi_layout.h"
#include "command_line.h"
#include "diagnostics.h"
#include "json_writer.h"
#include "output_format.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace kelqtool {

namespace {

// ---------------------------------------------------------------------------
// What the reader and the RIFF layer say about the file.
// ---------------------------------------------------------------------------

struct stream_report {
    int32_t number = 0;
    uint32_t kind = 0;
    bool format_read = false;  // the getter of its kind answered
    video_stream_format video{};
    uint32_t length = 0;       // the video getters' length in frames
    uint32_t format_extra = 0; // video format bytes past its header (a palette, codec set-up data)
    audio_stream_format audio{};
    caption_stream_format caption{};
    bool has_name = false;
    std::string name;
    const stream_list *list = nullptr;  // the stream's strl list as the RIFF layer read it
    // The stream's first OpenDML index entry, as the reader finds it through
    // its super index.
    bool reader_index = false;
    uint32_t first_entry_type = 0, first_entry_size = 0, first_entry_key = 0;
};

struct info_report {
    std::string path;
    const avi_layout *layout = nullptr;
    int32_t stream_count = 0, strd_count = 0;
    std::vector<stream_report> streams;
    int32_t menu_size = 0, metadata_size = 0;
    bool has_menu = false, has_metadata = false;
    segment_list segments;
    read_mode mode;
    uint32_t tolerated = 0;    // the tolerances the file needed
};

std::string name_text(const char *name, int32_t length) {
    if (name == nullptr || length <= 0) return {};
    std::string text(name, static_cast<size_t>(length));
    return text.substr(0, text.find('\0'));
}

void take_name(stream_report &s, char *name, int32_t length) {
    if (length > 0) {
        s.has_name = true;
        s.name = name_text(name, length);
        std::free(name);  // the getters' copies are the caller's
    }
}

stream_report read_stream(aviin_handle *h, int32_t number, const avi_layout &layout) {
    stream_report s;
    s.number = number;
    aviin_get_chunk_type(h, static_cast<uint32_t>(number), &s.kind);
    switch (s.kind) {
    case KELQAVI_CHUNK_VIDEO:
        s.format_read = aviin_get_video_format(h, number, &s.video, &s.length) == 0;
        if (s.format_read) take_name(s, s.video.name, s.video.name_length);
        {
            const uint8_t *extra = nullptr;
            aviin_get_video_format_extra(h, number, &extra, &s.format_extra);
        }
        break;
    case KELQAVI_CHUNK_BITMAP_CAPTION:
        s.format_read = aviin_get_bitmap_caption_format(h, number, &s.video, &s.length) == 0;
        if (s.format_read) take_name(s, s.video.name, s.video.name_length);
        break;
    case KELQAVI_CHUNK_AUDIO:
        s.format_read = aviin_get_audio_format(h, number, &s.audio) == 0;
        if (s.format_read) take_name(s, s.audio.name, s.audio.name_length);
        break;
    case KELQAVI_CHUNK_TEXT_CAPTION:
        s.format_read = aviin_get_text_caption_format(h, number, &s.caption) == 0;
        if (s.format_read) take_name(s, s.caption.name, s.caption.name_length);
        break;
    case KELQAVI_CHUNK_CHAPTER:
        // The chapter getter copies the entry as it is, name pointer included,
        // and the reader keeps no chapter name: nothing here is the caller's.
        s.format_read = aviin_get_chapter_format(h, number, &s.caption) == 0;
        break;
    default:
        break;
    }
    if (!layout.forms.empty() && static_cast<size_t>(number) < layout.forms[0].streams.size()) {
        s.list = &layout.forms[0].streams[static_cast<size_t>(number)];
        // The reader keeps no name for caption, chapter and unclassified streams.
        if (!s.has_name && s.list->has_name) {
            s.has_name = true;
            s.name = s.list->name;
        }
    }
    s.reader_index = aviin_get_indx_entry(h, 0, static_cast<uint32_t>(number), &s.first_entry_type,
                                          &s.first_entry_size, &s.first_entry_key) == 0;
    return s;
}

info_report gather(aviin_handle *h, const char *path, const avi_layout &layout) {
    info_report r;
    r.path = path;
    r.layout = &layout;
    aviin_get_summary(h, &r.stream_count, &r.strd_count);
    for (int32_t i = 0; i < r.stream_count; ++i) r.streams.push_back(read_stream(h, i, layout));
    uint8_t *data = nullptr;
    aviin_get_menu_info(h, &data, &r.menu_size);
    r.has_menu = data != nullptr;
    data = nullptr;
    aviin_get_metadata_info(h, &data, &r.metadata_size);
    r.has_metadata = data != nullptr;
    // Last: the offset queries move the handle's file position.
    r.segments = list_segments(h, layout);
    return r;
}

// ---------------------------------------------------------------------------
// Words.
// ---------------------------------------------------------------------------

const char *kind_name(uint32_t kind) {
    return kind != 0 && !classified_kind(kind) ? "unknown kind" : stream_kind_word(kind);
}

const char *format_tag_name(uint16_t tag) {
    switch (tag) {
    case 0x0001: return "PCM";
    case 0x0002: return "MS ADPCM";
    case 0x0003: return "IEEE float";
    case 0x0006: return "A-law";
    case 0x0007: return "mu-law";
    case 0x0011: return "IMA ADPCM";
    case 0x0050: return "MPEG audio";
    case 0x0055: return "MPEG layer 3";
    case 0x00ff: return "AAC";
    case 0x2000: return "AC-3";
    case 0x2001: return "DTS";
    case 0xfffe: return "extensible";
    default: return nullptr;
    }
}

struct flag_name {
    uint32_t bit;
    const char *text;
    const char *key;
};

constexpr flag_name main_header_flags[] = {
    {0x00000010, "has index", "has_index"},
    {0x00000020, "must use index", "must_use_index"},
    {0x00000100, "interleaved", "is_interleaved"},
    {0x00000800, "trust chunk type", "trust_chunk_type"},
    {0x00010000, "capture file", "was_capture_file"},
    {0x00020000, "copyrighted", "copyrighted"},
};

std::string hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

std::string hex16(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04X", value);
    return text;
}

std::string flags_text(uint32_t flags) {
    std::string text = hex32(flags);
    std::string names;
    uint32_t known = 0;
    for (const flag_name &f : main_header_flags) {
        known |= f.bit;
        if ((flags & f.bit) == 0) continue;
        names += (names.empty() ? "" : ", ") + std::string(f.text);
    }
    if ((flags & ~known) != 0) names += (names.empty() ? "" : ", ") + std::string("other bits ") + hex32(flags & ~known);
    return names.empty() ? text : text + ": " + names;
}

// "25", "29.97": up to three decimals, trailing zeros dropped.
std::string decimal_text(double x) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", x);
    std::string s = text;
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s;
}

std::string bytes_text(uint64_t n) {
    return n < 1024 ? std::to_string(n) + (n == 1 ? " byte" : " bytes")
                    : std::to_string(n) + " bytes (" + human_size(n) + ")";
}

std::string plural(uint64_t n, const char *one, const char *many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string quoted(uint32_t code) { return "'" + fourcc_text(code) + "'"; }

// The four characters of a code kept as text in a format record.
uint32_t code_of(const char text[4]) { return str2long(reinterpret_cast<const uint8_t *>(text)); }


double ratio(uint32_t rate, uint32_t scale) { return scale == 0 ? 0.0 / 0.0 : static_cast<double>(rate) / scale; }

// What the rate and scale of a stream's header give: frames or samples a second.
std::string rate_text(uint32_t rate, uint32_t scale, const char *unit) {
    std::string text = std::to_string(rate) + " / " + std::to_string(scale);
    if (scale == 0) return text + " (no rate: scale is 0)";
    return text + " = " + decimal_text(ratio(rate, scale)) + " " + unit;
}

// The reader takes a strd block only where it looks for one: right after
// the format. One elsewhere in the list is in the file but not in the reader.
bool strd_not_taken(const stream_report &s) {
    return s.video.strd_present != 1 && s.list != nullptr && s.list->has_strd;
}

std::string strd_text(const stream_report &s) {
    if (s.video.strd_present == 1) return bytes_text(static_cast<uint32_t>(s.video.strd_size));
    if (strd_not_taken(s))
        return "none taken by the reader: the list holds one of " + bytes_text(s.list->strd_size) +
               ", but not right after the format, where the reader looks";
    return "none";
}

// The strh of a stream that the getters do not carry: the audio length.
uint32_t header_length(const stream_report &s) { return s.list != nullptr && s.list->has_strh ? s.list->strh.length : 0; }

std::string index_type_name(uint8_t type) {
    switch (type) {
    case 0: return "index of indexes";
    case 1: return "index of chunks";
    case 0x80: return "index of fields";
    default: return "index type " + std::to_string(type);
    }
}

struct super_index_totals {
    uint64_t chunks = 0;       // nEntriesInUse of the ix## chunks read
    uint64_t duration = 0;     // sum of the entries' dwDuration
    uint64_t unread = 0;       // entries whose ix## header is not in the file
};

super_index_totals totals_of(const super_index &indx) {
    super_index_totals t;
    for (const super_index_entry &e : indx.entries) {
        t.duration += e.duration;
        if (e.chunk_read)
            t.chunks += e.chunk_entries;
        else
            ++t.unread;
    }
    return t;
}

// ---------------------------------------------------------------------------
// Text.
// ---------------------------------------------------------------------------

// Sections of "key  value" rows, aligned across the whole output.
class report_text {
public:
    explicit report_text(const text_style &style)
        : style_(style), layout_({column_layout::align::left, column_layout::align::left}) {}

    void section(const std::string &title) { lines_.push_back({true, title, {}}); }
    void row(const std::string &key, const std::string &value) {
        lines_.push_back({false, key, value});
        layout_.measure({key, value});
    }
    // A block printed as it is (a table of its own).
    void block(const std::string &text) { lines_.push_back({true, text, "raw"}); }

    void print(FILE *out) const {
        for (size_t i = 0; i < lines_.size(); ++i) {
            const line &l = lines_[i];
            if (l.heading && l.value == "raw") {
                std::fputs(l.key.c_str(), out);
            } else if (l.heading) {
                if (i > 0) std::fputc('\n', out);
                std::fprintf(out, "%s\n", paint(l.key, sgr::bold, style_.colour).c_str());
            } else {
                std::fprintf(out, "  %s\n", layout_.render({paint(l.key, sgr::dim, style_.colour), l.value}).c_str());
            }
        }
    }

private:
    struct line {
        bool heading;
        std::string key, value;
    };
    const text_style &style_;
    column_layout layout_;
    std::vector<line> lines_;
};

void main_header_text(report_text &t, const riff_form &form, bool unicode) {
    t.section("Main header (avih)");
    if (!form.has_avih) {
        t.row("(none)", "the header list has no main header");
        return;
    }
    const avi_main_header &m = form.avih;
    std::string period = std::to_string(m.micro_sec_per_frame) + (unicode ? " \xC2\xB5s" : " us");
    if (m.micro_sec_per_frame != 0) period += " (" + decimal_text(1e6 / m.micro_sec_per_frame) + " fps)";
    t.row("frame period", period);
    t.row("max data rate", m.max_bytes_per_sec < 1024 ? std::to_string(m.max_bytes_per_sec) + " bytes/s"
                                                      : std::to_string(m.max_bytes_per_sec) + " bytes/s (" +
                                                            human_size(m.max_bytes_per_sec) + "/s)");
    t.row("padding granularity", std::to_string(m.padding_granularity));
    t.row("flags", flags_text(m.flags));
    t.row("total frames", std::to_string(m.total_frames));
    t.row("initial frames", std::to_string(m.initial_frames));
    t.row("streams", std::to_string(m.streams));
    t.row("suggested buffer", bytes_text(m.suggested_buffer_size));
    t.row("frame size", std::to_string(m.width) + " x " + std::to_string(m.height));
    if (form.has_dmlh) t.row("OpenDML total frames", std::to_string(form.dmlh_total_frames));
}

void stream_text(report_text &t, const stream_report &s) {
    t.section("Stream " + std::to_string(s.number) + ": " + kind_name(s.kind));
    if ((s.kind == KELQAVI_CHUNK_VIDEO || s.kind == KELQAVI_CHUNK_BITMAP_CAPTION) && s.format_read) {
        const video_stream_format &v = s.video;
        t.row("codec", "handler " + quoted(code_of(v.handler)) + ", compression " + quoted(code_of(v.compression)));
        t.row("frame size", std::to_string(v.width) + " x " + std::to_string(v.height));
        t.row("rate / scale", rate_text(v.rate, v.scale, "fps"));
        std::string length = plural(s.length, "frame", "frames");
        if (v.scale != 0 && v.rate != 0) length += " (" + decimal_text(s.length / ratio(v.rate, v.scale)) + " s)";
        t.row("length", length);
        t.row("quality", v.quality == 0xFFFFFFFFu ? "default (0xFFFFFFFF)" : std::to_string(v.quality));
        if (s.kind == KELQAVI_CHUNK_VIDEO) t.row("strd block", strd_text(s));
        if (s.format_extra > 0) t.row("format extra", bytes_text(s.format_extra) + " past the format header");
    } else if (s.kind == KELQAVI_CHUNK_AUDIO && s.format_read) {
        const audio_format &w = s.audio.wave_format;
        const char *tag = format_tag_name(w.format_tag);
        t.row("format tag", hex16(w.format_tag) + (tag != nullptr ? std::string(" (") + tag + ")" : ""));
        t.row("channels", std::to_string(w.channels));
        t.row("sample rate", std::to_string(w.samples_per_sec) + " Hz");
        t.row("bits per sample", std::to_string(w.bits_per_sample));
        t.row("block align", std::to_string(w.block_align));
        t.row("average data rate", std::to_string(w.avg_bytes_per_sec) + " bytes/s");
        t.row("extra format bytes", std::to_string(w.cb_size) + " (cb_size)");
        t.row("rate / scale", rate_text(s.audio.rate, s.audio.scale, "blocks/s"));
        t.row("sample size", std::to_string(s.audio.sample_size));
        t.row("start, initial frames", std::to_string(s.audio.start) + ", " + std::to_string(s.audio.initial_frames));
        t.row("length", std::to_string(header_length(s)) + " (stream header)");
    } else if ((s.kind == KELQAVI_CHUNK_TEXT_CAPTION || s.kind == KELQAVI_CHUNK_CHAPTER) && s.format_read) {
        const caption_format &c = s.caption.format;
        t.row("format values", std::to_string(c.value[0]) + ", " + std::to_string(c.value[1]) + ", " +
                                   std::to_string(c.value[2]) + ", " + std::to_string(c.value[3]));
    } else if (s.list != nullptr && s.list->has_strh) {
        t.row("stream type", quoted(s.list->strh.type) + ", handler " + quoted(s.list->strh.handler));
    }
    if (s.has_name) t.row("name", "\"" + s.name + "\"");
}

std::string segments_table(const info_report &r, const text_style &style) {
    const avi_layout &layout = *r.layout;
    column_layout table({column_layout::align::right, column_layout::align::right, column_layout::align::left,
                         column_layout::align::right, column_layout::align::left});
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"#", "OFFSET", "FORM", "SIZE", "MEDIA DATA ('movi')"});
    for (const segment &s : r.segments.listed) {
        std::vector<std::string> row = {std::to_string(s.number), std::to_string(s.offset), "", "", ""};
        if (s.form < 0) {
            row[2] = "'MRIF'";
            row[4] = "menu segment";
        } else {
            const riff_form &f = layout.forms[static_cast<size_t>(s.form)];
            row[2] = quoted(f.type) + (f.menu_form ? " (menu form)" : "");
            row[3] = std::to_string(f.size);
            row[4] = f.has_movi ? "at " + std::to_string(f.movi_offset) + ", " + bytes_text(f.movi_size) : "none";
        }
        rows.push_back(row);
    }
    for (const auto &row : rows) table.measure(row);
    std::string text;
    for (size_t i = 0; i < rows.size(); ++i)
        text += "  " + (i == 0 ? paint(table.render(rows[i]), sgr::dim, style.colour) : table.render(rows[i])) + "\n";
    return text;
}

void segments_text(report_text &t, const info_report &r, const text_style &style) {
    t.section("RIFF segments (" + std::to_string(r.segments.count) + " counted by the reader)");
    if (!r.segments.listed.empty()) t.block(segments_table(r, style));
    if (r.segments.unlisted > 0)
        t.row("not listed", plural(static_cast<uint64_t>(r.segments.unlisted), "menu segment", "menu segments") +
                                " inside menu forms after the second top-level form, which the reader's offset query does not reach");
    if (r.segments.query_failed) t.row("(failed)", "the reader could not give the offset of every segment");
}

void indexes_text(report_text &t, const info_report &r) {
    const avi_layout &layout = *r.layout;
    const riff_form &first = layout.forms[0];
    t.section("Indexes");
    if (first.has_idx1) {
        std::string value = plural(first.idx1_size / 16, "entry", "entries") + " at " + std::to_string(first.idx1_offset);
        std::string per_stream;
        for (size_t s = 0; s < layout.idx1.per_stream.size(); ++s)
            if (layout.idx1.per_stream[s] != 0)
                per_stream += (per_stream.empty() ? "" : ", ") + std::string("stream ") + std::to_string(s) + ": " +
                              std::to_string(layout.idx1.per_stream[s]);
        if (layout.idx1.other != 0)
            per_stream += (per_stream.empty() ? "" : ", ") + std::string("other ids: ") + std::to_string(layout.idx1.other);
        if (!per_stream.empty()) value += " (" + per_stream + ")";
        if (layout.idx1.entries < first.idx1_size / 16)
            value += "; only " + std::to_string(layout.idx1.entries) + " lie inside the file";
        t.row("idx1", value);
    } else {
        t.row("idx1", "none");
    }
    for (size_t i = 0; i < first.streams.size(); ++i) {
        const stream_list &s = first.streams[i];
        if (!s.has_indx) continue;
        const super_index &x = s.indx;
        const std::string key = "stream " + std::to_string(i) + " indx";
        if (x.index_type != 0) {
            t.row(key, index_type_name(x.index_type) + ", " + plural(x.entries_in_use, "entry", "entries") + ", chunk id " +
                           quoted(x.chunk_id));
            continue;
        }
        const super_index_totals tot = totals_of(x);
        const bool audio = fourCC_equal(s.strh.type, make_fourCC("auds")) != 0;
        std::string value = plural(x.entries_in_use, "standard index", "standard indexes") + " for " + quoted(x.chunk_id) +
                            ", " + plural(tot.chunks, "chunk", "chunks") + " indexed, duration " +
                            std::to_string(tot.duration) + (audio ? " bytes" : " chunks");
        if (tot.unread != 0) value += "; " + std::to_string(tot.unread) + " ix## headers lie outside the file";
        t.row(key, value);
    }
    for (const stream_report &s : r.streams) {
        if (!s.reader_index) continue;
        t.row("stream " + std::to_string(s.number) + " first entry",
              bytes_text(s.first_entry_size) + (s.first_entry_key != 0 ? ", key frame" : "") + " (as the reader finds it)");
    }
}

void print_text(const info_report &r, const text_style &style) {
    const avi_layout &layout = *r.layout;
    std::printf("%s: %s, %s, %s\n\n", paint(r.path, sgr::bold, style.colour).c_str(),
                bytes_text(static_cast<uint64_t>(layout.file_size)).c_str(),
                plural(static_cast<uint64_t>(r.stream_count), "stream", "streams").c_str(),
                plural(static_cast<uint64_t>(r.segments.count), "RIFF segment", "RIFF segments").c_str());
    print_tolerated(stdout, r.mode, r.tolerated);
    report_text t(style);
    main_header_text(t, layout.forms[0], style.unicode);
    for (const stream_report &s : r.streams) stream_text(t, s);
    t.section("Menu and metadata");
    t.row("menu block", r.has_menu ? bytes_text(static_cast<uint32_t>(r.menu_size) + 8u) + " ('MENU' chunk, header included)" : "none");
    t.row("metadata block", r.has_metadata ? bytes_text(static_cast<uint32_t>(r.metadata_size)) + " ('MTDA' data)" : "none");
    segments_text(t, r, style);
    indexes_text(t, r);
    t.print(stdout);
}

// ---------------------------------------------------------------------------
// JSON.
// ---------------------------------------------------------------------------

using jw = json_writer;

void stream_json(jw &j, const stream_report &s) {
    j.begin_object();
    j.field("number", jw::number(s.number));
    j.field("kind", jw::text(stream_kind_key(s.kind)));
    j.field("kind_code", jw::number(s.kind));
    j.field("name", s.has_name ? jw::text(s.name) : jw::null());
    if ((s.kind == KELQAVI_CHUNK_VIDEO || s.kind == KELQAVI_CHUNK_BITMAP_CAPTION) && s.format_read) {
        const video_stream_format &v = s.video;
        j.field("handler", jw::fourcc(code_of(v.handler)));
        j.field("compression", jw::fourcc(code_of(v.compression)));
        j.field("width", jw::number(v.width));
        j.field("height", jw::number(v.height));
        j.field("rate", jw::number(v.rate));
        j.field("scale", jw::number(v.scale));
        j.field("frames_per_second", jw::decimal(ratio(v.rate, v.scale)));
        j.field("length", jw::number(s.length));
        j.field("quality", jw::number(v.quality));
        if (s.kind == KELQAVI_CHUNK_VIDEO) {
            j.field("strd_size", v.strd_present == 1 ? jw::number(v.strd_size) : jw::null());
            j.field("strd_not_taken", strd_not_taken(s) ? jw::number(s.list->strd_size) : jw::null());
            j.field("format_extra_size", jw::number(s.format_extra));
        }
    } else if (s.kind == KELQAVI_CHUNK_AUDIO && s.format_read) {
        const audio_format &w = s.audio.wave_format;
        j.field("format_tag", jw::number(static_cast<uint32_t>(w.format_tag)));
        j.field("channels", jw::number(static_cast<uint32_t>(w.channels)));
        j.field("samples_per_sec", jw::number(w.samples_per_sec));
        j.field("bits_per_sample", jw::number(static_cast<uint32_t>(w.bits_per_sample)));
        j.field("block_align", jw::number(static_cast<uint32_t>(w.block_align)));
        j.field("avg_bytes_per_sec", jw::number(w.avg_bytes_per_sec));
        j.field("cb_size", jw::number(static_cast<uint32_t>(w.cb_size)));
        j.field("rate", jw::number(s.audio.rate));
        j.field("scale", jw::number(s.audio.scale));
        j.field("blocks_per_second", jw::decimal(ratio(s.audio.rate, s.audio.scale)));
        j.field("sample_size", jw::number(s.audio.sample_size));
        j.field("start", jw::number(s.audio.start));
        j.field("initial_frames", jw::number(s.audio.initial_frames));
        j.field("length", s.list != nullptr && s.list->has_strh ? jw::number(header_length(s)) : jw::null());
    } else if ((s.kind == KELQAVI_CHUNK_TEXT_CAPTION || s.kind == KELQAVI_CHUNK_CHAPTER) && s.format_read) {
        j.begin_array("format_values", true);
        for (uint16_t v : s.caption.format.value) j.element(jw::number(static_cast<uint32_t>(v)));
        j.end_array();
    }
    if (s.list != nullptr && s.list->has_strh) {
        j.field("stream_type", jw::fourcc(s.list->strh.type));
    }
    j.end_object();
}

void idx1_json(jw &j, const avi_layout &layout) {
    const riff_form &first = layout.forms[0];
    if (!first.has_idx1) {
        j.field("idx1", jw::null());
        return;
    }
    j.begin_object("idx1");
    j.field("offset", jw::number(first.idx1_offset));
    j.field("size", jw::number(first.idx1_size));
    j.field("entries", jw::number(static_cast<uint32_t>(first.idx1_size / 16)));
    j.field("entries_in_file", jw::number(layout.idx1.entries));
    j.begin_array("per_stream", true);
    for (size_t s = 0; s < layout.idx1.per_stream.size(); ++s) {
        if (layout.idx1.per_stream[s] == 0) continue;
        j.begin_object();
        j.field("stream", jw::number(static_cast<uint64_t>(s)));
        j.field("entries", jw::number(layout.idx1.per_stream[s]));
        j.end_object();
    }
    j.end_array();
    j.field("other_entries", jw::number(layout.idx1.other));
    j.end_object();
}

void indexes_json(jw &j, const info_report &r) {
    const avi_layout &layout = *r.layout;
    const riff_form &first = layout.forms[0];
    j.begin_object("indexes");
    idx1_json(j, layout);
    j.begin_array("super_indexes");
    for (size_t i = 0; i < first.streams.size(); ++i) {
        const stream_list &s = first.streams[i];
        if (!s.has_indx) continue;
        const super_index &x = s.indx;
        const super_index_totals tot = totals_of(x);
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(static_cast<uint64_t>(i)));
        j.field("offset", jw::number(x.offset));
        j.field("size", jw::number(x.size));
        j.field("index_type", jw::number(static_cast<uint32_t>(x.index_type)));
        j.field("entries_in_use", jw::number(x.entries_in_use));
        j.field("chunk_id", jw::fourcc(x.chunk_id));
        j.field("indexed_chunks", jw::number(tot.chunks));
        j.field("duration", jw::number(tot.duration));
        j.field("headers_outside_file", jw::number(tot.unread));
        j.begin_array("standard_indexes");
        for (const super_index_entry &e : x.entries) {
            j.begin_object();
            j.field("offset", jw::number(e.offset));
            j.field("size", jw::number(e.size));
            j.field("duration", jw::number(e.duration));
            j.field("entries", e.chunk_read ? jw::number(e.chunk_entries) : jw::null());
            j.field("id", e.chunk_read ? jw::fourcc(e.chunk_id) : jw::null());
            j.end_object();
        }
        j.end_array();
        j.end_object();
    }
    j.end_array();
    j.begin_array("reader_first_entries");
    for (const stream_report &s : r.streams) {
        if (!s.reader_index) continue;
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(s.number));
        j.field("type_code", jw::number(s.first_entry_type));
        j.field("size", jw::number(s.first_entry_size));
        j.field("key_frame", jw::boolean(s.first_entry_key != 0));
        j.end_object();
    }
    j.end_array();
    j.end_object();
}

void main_header_json(jw &j, const riff_form &first) {
    if (!first.has_avih) {
        j.field("main_header", jw::null());
        return;
    }
    const avi_main_header &m = first.avih;
    j.begin_object("main_header");
    j.field("micro_sec_per_frame", jw::number(m.micro_sec_per_frame));
    j.field("frames_per_second", m.micro_sec_per_frame != 0 ? jw::decimal(1e6 / m.micro_sec_per_frame) : jw::null());
    j.field("max_bytes_per_sec", jw::number(m.max_bytes_per_sec));
    j.field("padding_granularity", jw::number(m.padding_granularity));
    j.field("flags", jw::number(m.flags));
    j.begin_array("flag_names", true);
    for (const flag_name &f : main_header_flags)
        if ((m.flags & f.bit) != 0) j.element(jw::text(f.key));
    j.end_array();
    j.field("total_frames", jw::number(m.total_frames));
    j.field("initial_frames", jw::number(m.initial_frames));
    j.field("streams", jw::number(m.streams));
    j.field("suggested_buffer_size", jw::number(m.suggested_buffer_size));
    j.field("width", jw::number(m.width));
    j.field("height", jw::number(m.height));
    j.field("odml_total_frames", first.has_dmlh ? jw::number(first.dmlh_total_frames) : jw::null());
    j.end_object();
}

void print_json(const info_report &r) {
    const avi_layout &layout = *r.layout;
    const riff_form &first = layout.forms[0];
    jw j;
    j.begin_object();
    j.field("file", jw::text(r.path));
    j.field("file_size", jw::number(layout.file_size));
    tolerated_json(j, r.mode, r.tolerated);
    main_header_json(j, first);
    j.field("stream_count", jw::number(r.stream_count));
    j.field("strd_count", jw::number(r.strd_count));
    j.begin_array("streams");
    for (const stream_report &s : r.streams) stream_json(j, s);
    j.end_array();
    j.field("menu_size", r.has_menu ? jw::number(static_cast<uint32_t>(r.menu_size) + 8u) : jw::null());
    j.field("metadata_size", r.has_metadata ? jw::number(r.metadata_size) : jw::null());
    j.field("segment_count", jw::number(r.segments.count));
    j.begin_array("segments");
    for (const segment &s : r.segments.listed) {
        j.begin_object(nullptr, true);
        j.field("number", jw::number(s.number));
        j.field("offset", jw::number(s.offset));
        if (s.form < 0) {
            j.field("id", jw::text("MRIF"));
        } else {
            const riff_form &f = layout.forms[static_cast<size_t>(s.form)];
            j.field("id", jw::text("RIFF"));
            j.field("form_type", jw::fourcc(f.type));
            j.field("size", jw::number(f.size));
            j.field("menu_form", jw::boolean(f.menu_form));
            j.field("movi_offset", f.has_movi ? jw::number(f.movi_offset) : jw::null());
            j.field("movi_size", f.has_movi ? jw::number(f.movi_size) : jw::null());
        }
        j.end_object();
    }
    j.end_array();
    j.field("segments_not_listed", jw::number(r.segments.unlisted));
    indexes_json(j, r);
    j.end_object();
    j.write(stdout);
}

}  // namespace

void print_info_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi info [--json] [--strict] [--swapped-ids] FILE\n"
                 "\n"
                 "Opens FILE with the library's reader and prints what it finds: the main\n"
                 "header (frame period, data rate, flags, frame count, frame size), every\n"
                 "stream with its kind (audio, video, text caption, bitmap caption, chapter or\n"
                 "unclassified), codec codes, frame size or audio format, rate and scale,\n"
                 "length and name, the menu and metadata blocks, the RIFF segments with their\n"
                 "offsets, and the indexes: idx1 entries per stream and each stream's OpenDML\n"
                 "super index (its standard index chunks and the chunks they index).\n"
                 "\n"
                 "When the reader refuses FILE, one line says why. A first line 'tolerated:'\n"
                 "lists the tolerances FILE needed (\"tolerated\" in JSON).\n"
                 "\n"
                 "Options:\n"
                 "  --json          print the same as JSON, with stable keys\n"
                 "%s"
                 "  --swapped-ids   also accept chunk ids written type first (\"dc00\")\n"
                 "  -h, --help      show this help\n"
                 "\n"
                 "Exit status: 0 the file was read; 1 FILE cannot be read or the reader\n"
                 "refuses it; 2 usage error.\n",
                 strict_option_help);
}

int run_info_command(int argc, char **argv) {
    command_options options;
    bool stop = false;
    const int parsed = parse_command_line({"info", {"--json", "--strict", "--swapped-ids"}, {}, 1, 0, "a FILE", print_info_help},
                                          argc, argv, options, stop);
    if (stop) return parsed;
    const uint32_t swapped = options.has("--swapped-ids") ? 1 : 0;
    const read_mode mode{options.has("--strict")};

    avi_layout layout;
    std::string error;
    if (!scan_layout(options.path, true, swapped, layout, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    aviin_handle *h = open_reader(options.path, swapped, layout, mode);
    if (h == nullptr) return exit_bad_input;
    const uint32_t at_open = tolerances_needed(h);
    info_report report = gather(h, options.path, layout);
    report.mode = mode;
    report.tolerated = report.segments.handle_released ? at_open : tolerances_needed(h);
    if (!report.segments.handle_released) aviin_close(h);

    if (options.has("--json"))
        print_json(report);
    else
        print_text(report, style_for_stdout());
    if (!flush_stdout()) return exit_bad_input;
    return exit_ok;
}

}  // namespace kelqtool
