#include "avi_output.h"

#include "diagnostics.h"
#include "json_writer.h"
#include "output_format.h"

#include <cerrno>
#include <cstring>

namespace kelqtool {

const char *stream_kind_word(uint32_t kind) {
    switch (kind) {
    case KELQAVI_CHUNK_AUDIO: return "audio";
    case KELQAVI_CHUNK_VIDEO: return "video";
    case KELQAVI_CHUNK_TEXT_CAPTION: return "text caption";
    case KELQAVI_CHUNK_BITMAP_CAPTION: return "bitmap caption";
    case KELQAVI_CHUNK_CHAPTER: return "chapter";
    default: return "unclassified";
    }
}

std::string fourcc_chars(const char code[4]) {
    std::string text;
    for (int i = 0; i < 4 && code[i] != '\0'; ++i) text += code[i];
    return text;
}

int option_value(const char *command, int argc, char **argv, int &i, const char *name, const char *&value) {
    const size_t n = std::strlen(name);
    const char *arg = argv[i];
    if (std::strncmp(arg, name, n) != 0) return 0;
    if (arg[n] == '=') {
        value = arg + n + 1;
        return 1;
    }
    if (arg[n] != '\0') return 0;
    if (i + 1 >= argc) {
        print_error("option '%s' needs a value (see 'kelqavi %s --help')", name, command);
        return -1;
    }
    value = argv[++i];
    return 1;
}

avi_output::~avi_output() {
    if (w_ != nullptr) aviout_close(w_);
}

bool avi_output::open(const char *file, bool with_odml, std::string &error) {
    errno = 0;
    w_ = aviout_open(file, with_odml ? 1 : 0, 0);
    if (w_ == nullptr) {
        error = std::string("cannot create '") + file + "': " + (errno != 0 ? std::strerror(errno) : "the writer refused it");
        return false;
    }
    path = file;
    odml = with_odml;
    return true;
}

bool avi_output::note(int result, int32_t stream, uint32_t kind, const std::string &codec, const char *name,
                      int32_t name_length, int32_t &number, std::string &error) {
    number = stream;
    if (result != 0 || stream < 0) {
        error = std::string("the writer refused the ") + stream_kind_word(kind) + " stream (stream " +
                std::to_string(streams.size()) + ")";
        return false;
    }
    written_stream s;
    s.number = stream;
    s.kind = kind;
    s.codec = codec;
    if (name != nullptr && name_length > 0) {
        s.name.assign(name, static_cast<size_t>(name_length));
        s.name = s.name.substr(0, s.name.find('\0'));
    }
    streams.push_back(s);
    return true;
}

namespace {

// A stream given without a name makes the writer clear the name of the
// record of the same kind that sits where the last video stream sits in its
// table. When that record is an earlier, named stream, the new stream gets a
// name of its own instead, so that no name already given is lost.
template <typename Record>
bool unnamed_would_clear(const aviout_handle *w, const Record *table, int32_t count_before) {
    const int32_t target = w->video_count - 1;
    return target >= 0 && target < count_before && table[target].name_length > 0;
}

}  // namespace

bool avi_output::add_video(const video_stream_format &record, double frame_duration, int32_t &number,
                           std::string &error) {
    const int result = aviout_set_video_format(w_, &number, &record, &frame_duration);
    return note(result, number, KELQAVI_CHUNK_VIDEO, fourcc_chars(record.compression), record.name,
                record.name_length, number, error);
}

bool avi_output::add_audio(const audio_stream_format &record, double frame_duration, int32_t &number,
                           std::string &error) {
    audio_stream_format r = record;
    char fallback[] = "Audio";
    if (r.name_length < 1 && unnamed_would_clear(w_, w_->audio_formats, w_->audio_count)) {
        r.name = fallback;
        r.name_length = 5;
    }
    const int result = aviout_set_audio_format(w_, &number, &r, &frame_duration);
    char codec[32];
    if (r.wave_format.format_tag == 1)
        std::snprintf(codec, sizeof codec, "PCM");
    else
        std::snprintf(codec, sizeof codec, "tag 0x%04X", r.wave_format.format_tag);
    return note(result, number, KELQAVI_CHUNK_AUDIO, codec, r.name, r.name_length, number, error);
}

bool avi_output::add_text_caption(const caption_stream_format &record, int32_t &number, std::string &error) {
    caption_stream_format r = record;
    char fallback[] = "Subtitle";
    if (r.name_length < 1 && unnamed_would_clear(w_, w_->text_captions, w_->text_caption_count)) {
        r.name = fallback;
        r.name_length = 8;
    }
    const int result = aviout_set_text_caption_format(w_, &number, &r);
    return note(result, number, KELQAVI_CHUNK_TEXT_CAPTION, "", r.name, r.name_length, number, error);
}

bool avi_output::add_bitmap_caption(const video_stream_format &record, int32_t &number, std::string &error) {
    video_stream_format r = record;
    char fallback[] = "Subtitle";
    if (r.name_length < 1 && unnamed_would_clear(w_, w_->bitmap_captions, w_->bitmap_caption_count)) {
        r.name = fallback;
        r.name_length = 8;
    }
    const int result = aviout_set_bitmap_caption_format(w_, &number, &r);
    return note(result, number, KELQAVI_CHUNK_BITMAP_CAPTION, fourcc_chars(r.compression), r.name, r.name_length,
                number, error);
}

bool avi_output::add_chapter(const caption_stream_format &record, int32_t &number, std::string &error) {
    caption_stream_format r = record;
    char fallback[] = "Chapter";
    if (r.name_length < 1 && unnamed_would_clear(w_, w_->chapters, w_->chapter_count)) {
        r.name = fallback;
        r.name_length = 7;
    }
    const int result = aviout_set_chapter_format(w_, &number, &r);
    return note(result, number, KELQAVI_CHUNK_CHAPTER, "", r.name, r.name_length, number, error);
}

int avi_output::put(int32_t stream, uint32_t flags, const uint8_t *data, uint32_t size) {
    const int result = aviout_put_chunk(w_, stream, flags, data, size);
    if (result == 0 || result == 4) {
        for (written_stream &s : streams) {
            if (s.number == stream) {
                ++s.chunks;
                s.bytes += size;
            }
        }
        segments = w_->riff_index + 1;
    }
    if (result == 4) size_limit_reached = true;
    return result;
}

bool avi_output::close(std::string &error) {
    if (w_ == nullptr) return true;
    segments = w_->riff_index + 1;
    menu_bytes = w_->has_menu != 0 ? static_cast<uint64_t>(w_->menu_size) : 0;
    metadata_bytes = w_->has_metadata != 0 ? static_cast<uint64_t>(w_->metadata_size) : 0;
    swapped_ids = w_->swapped_ids != 0;
    aviout_close(w_);
    w_ = nullptr;
    FILE *f = file_open(path.c_str(), 0);
    if (f == nullptr || file_seek(f, 0, 2) != 0) {
        error = "cannot read back '" + path + "' after writing it";
        if (f != nullptr) file_close(f);
        return false;
    }
    file_size = file_tell(f);
    file_close(f);
    return true;
}

void avi_output::print_summary(FILE *out, bool json) const {
    uint64_t chunks = 0, bytes = 0;
    for (const written_stream &s : streams) {
        chunks += s.chunks;
        bytes += s.bytes;
    }
    if (json) {
        json_writer j;
        j.begin_object();
        j.field("file", json_writer::text(path));
        j.field("file_size", json_writer::number(file_size));
        j.field("segments", json_writer::number(segments));
        j.field("odml", json_writer::boolean(odml));
        j.field("swapped_ids", json_writer::boolean(swapped_ids));
        j.field("size_limit_reached", json_writer::boolean(size_limit_reached));
        j.field("chunks", json_writer::number(chunks));
        j.field("data_bytes", json_writer::number(bytes));
        j.field("menu_bytes", json_writer::number(menu_bytes));
        j.field("metadata_bytes", json_writer::number(metadata_bytes));
        j.field("skipped_streams", json_writer::number(skipped_streams));
        j.field("skipped_chunks", json_writer::number(skipped_chunks));
        j.begin_array("streams");
        for (const written_stream &s : streams) {
            j.begin_object(nullptr, true);
            j.field("stream", json_writer::number(s.number));
            j.field("kind", json_writer::text(stream_kind_word(s.kind)));
            j.field("codec", json_writer::text(s.codec));
            j.field("name", json_writer::text(s.name));
            j.field("chunks", json_writer::number(s.chunks));
            j.field("bytes", json_writer::number(s.bytes));
            j.end_object();
        }
        j.end_array();
        j.end_object();
        j.write(out);
        return;
    }
    const text_style style = style_for_stdout();
    std::fprintf(out, "%s: %s (%lld bytes), %d RIFF segment%s%s%s\n",
                 paint("Wrote " + path, sgr::bold, style.colour).c_str(), human_size(static_cast<uint64_t>(file_size)).c_str(),
                 static_cast<long long>(file_size), segments, segments == 1 ? "" : "s",
                 odml ? ", OpenDML indexes" : "", swapped_ids ? ", type-first chunk ids" : "");
    column_layout layout({column_layout::align::right, column_layout::align::left, column_layout::align::left,
                          column_layout::align::right, column_layout::align::right, column_layout::align::left});
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"STREAM", "KIND", "CODEC", "CHUNKS", "BYTES", "NAME"});
    for (const written_stream &s : streams)
        rows.push_back({std::to_string(s.number), stream_kind_word(s.kind), s.codec.empty() ? "-" : s.codec,
                        std::to_string(s.chunks), std::to_string(s.bytes), s.name.empty() ? "-" : s.name});
    for (const auto &r : rows) layout.measure(r);
    for (const auto &r : rows) std::fprintf(out, "%s\n", layout.render(r).c_str());
    std::fprintf(out, "%llu chunks, %s of data", static_cast<unsigned long long>(chunks), human_size(bytes).c_str());
    if (metadata_bytes > 0) std::fprintf(out, ", metadata block %s", human_size(metadata_bytes).c_str());
    if (menu_bytes > 0) std::fprintf(out, ", menu block %s", human_size(menu_bytes).c_str());
    std::fprintf(out, ".\n");
    if (skipped_streams > 0 || skipped_chunks > 0)
        std::fprintf(out, "Not copied: %llu unclassified stream%s, %llu chunk%s of them or with unknown ids.\n",
                     static_cast<unsigned long long>(skipped_streams), skipped_streams == 1 ? "" : "s",
                     static_cast<unsigned long long>(skipped_chunks), skipped_chunks == 1 ? "" : "s");
    if (size_limit_reached)
        std::fprintf(out, "%s\n", paint("Stopped at the writer's size limit (0x7F000000 bytes).", sgr::yellow, style.colour).c_str());
}

}  // namespace kelqtool
