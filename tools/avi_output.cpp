#include "avi_output.h"

#include "diagnostics.h"
#include "json_writer.h"
#include "output_format.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kelqtool {

std::string fourcc_chars(const char code[4]) {
    std::string text;
    for (int i = 0; i < 4 && code[i] != '\0'; ++i) text += code[i];
    return text;
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

menu_list_file::~menu_list_file() {
    if (!path_.empty()) unlink(path_.c_str());
}

bool menu_list_file::write(const uint8_t *chunk, uint32_t size, std::string &error) {
    path_ = temporary_path("kelqavi-menu", error);
    if (path_.empty()) return false;
    uint8_t head[12] = {'L', 'I', 'S', 'T', 0, 0, 0, 0, 'K', 'M', 'N', 'U'};
    long2str(4 + size, head + 4);
    FILE *f = file_open(path_.c_str(), 1);
    if (f == nullptr) return false;
    bool ok = file_write(f, head, sizeof head) == sizeof head && file_write(f, chunk, size) == size;
    if (size % 2 != 0) ok = ok && file_write(f, "", 1) == 1;
    return file_close(f) == 0 && ok;
}

void write_options::take(const command_options &line) {
    odml = line.has("--odml");
    swapped_ids = line.has("--swapped-ids");
    designed = line.has("--designed");
    json = line.has("--json");
    if (const std::string *text = line.value("--checkpoint")) checkpoint = text->c_str();
}

bool open_writer(avi_output &out, const char *path, const write_options &o) {
    std::string error;
    if (!out.open(path, o.odml, !o.designed, error)) {
        print_error("%s", error.c_str());
        return false;
    }
    aviout_handle *w = out.handle();
    // The index settings are read by the video and audio setters.
    w->index_chunk_seconds = 60.0;
    w->swapped_ids = o.swapped_ids ? 1 : 0;
    w->extension_list = 1;
    w->checkpoint_seconds = o.checkpoint_seconds;
    return true;
}

void remove_output(const std::string &path) {
    struct stat st {};
    if (!path.empty() && lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) unlink(path.c_str());
}

bool parse_checkpoint(const char *command, const char *text, double &seconds) {
    char *end = nullptr;
    errno = 0;
    const double value = std::strtod(text, &end);
    // Plain decimal numbers only: no sign, exponent, hexadecimal or inf.
    const bool plain = text[0] >= '0' && text[0] <= '9' && std::strspn(text, "0123456789.") == std::strlen(text);
    if (!plain || end == text || *end != '\0' || errno != 0 || !(value >= 0) || value > 1e9) {
        print_error("--checkpoint needs seconds: 0 (off) or a number above 0 such as 10 or 0.5, not '%s' "
                    "(see 'kelqavi %s --help')", text, command);
        return false;
    }
    seconds = value;
    return true;
}

avi_output::~avi_output() {
    if (w_ != nullptr) aviout_close(w_);
}

std::string continuation_path(const std::string &first, size_t n) {
    const size_t slash = first.rfind('/');
    const size_t dot = first.rfind('.');
    const bool has_extension = dot != std::string::npos && dot > 0 && (slash == std::string::npos || dot > slash + 1);
    const std::string suffix = "-" + std::to_string(n);
    return has_extension ? first.substr(0, dot) + suffix + first.substr(dot) : first + suffix;
}

void avi_output::caller_fields::take(const aviout_handle &w) {
    index_chunk_seconds = w.index_chunk_seconds;
    checkpoint_seconds = w.checkpoint_seconds;
    odml_timing_mode = w.odml_timing_mode;
    swapped_ids = w.swapped_ids;
    extension_list = w.extension_list;
    checkpoint_sync = w.checkpoint_sync;
    standard_profile = w.standard_profile;
    menu_file_head = w.menu_file_head;
    menu_file_tail = w.menu_file_tail;
}

void avi_output::caller_fields::give(aviout_handle &w) const {
    w.index_chunk_seconds = index_chunk_seconds;
    w.checkpoint_seconds = checkpoint_seconds;
    w.odml_timing_mode = odml_timing_mode;
    w.swapped_ids = swapped_ids;
    w.extension_list = extension_list;
    w.checkpoint_sync = checkpoint_sync;
    w.standard_profile = standard_profile;
    w.menu_file_head = menu_file_head;
    w.menu_file_tail = menu_file_tail;
}

bool avi_output::open(const char *file, bool with_odml, bool standard, std::string &error) {
    errno = 0;
    w_ = aviout_open(file, with_odml ? 1 : 0, 0);
    if (w_ == nullptr) {
        error = std::string("cannot create '") + file + "': " + (errno != 0 ? std::strerror(errno) : "the writer refused it");
        return false;
    }
    w_->standard_profile = standard ? 1 : 0;
    this->standard = standard;
    path = file;
    current_ = file;
    odml = with_odml;
    return true;
}

bool avi_output::run_step(setup_step step, int32_t &number) {
    number = -1;
    const bool ok = step(w_, number) == 0;
    setup_.push_back(std::move(step));
    return ok;
}

bool avi_output::note(bool ok, int32_t stream, uint32_t kind, const std::string &codec, const char *name,
                      int32_t name_length, std::string &error) {
    if (!ok || stream < 0) {
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

// The bytes of a record's name, or of a block, kept by a setup step.
std::vector<char> copy_of(const char *name, int32_t length) {
    return name != nullptr && length > 0 ? std::vector<char>(name, name + length) : std::vector<char>();
}

std::vector<uint8_t> copy_of(const uint8_t *data, int32_t size) {
    return data != nullptr && size > 0 ? std::vector<uint8_t>(data, data + size) : std::vector<uint8_t>();
}

template <typename Record>
void point_at_name(Record &r, std::vector<char> &name) {
    r.name = name.empty() ? nullptr : name.data();
    r.name_length = static_cast<int32_t>(name.size());
}

}  // namespace

bool avi_output::add_video(const video_stream_format &record, double frame_duration, int32_t &number,
                           std::string &error) {
    std::vector<char> name = copy_of(record.name, record.name_length);
    std::vector<uint8_t> strd = copy_of(record.strd_data, record.strd_size);
    const bool ok = run_step([record, name, strd, frame_duration](aviout_handle *w, int32_t &n) mutable {
        video_stream_format r = record;
        point_at_name(r, name);
        r.strd_data = strd.empty() ? nullptr : strd.data();
        return aviout_set_video_format(w, &n, &r, &frame_duration);
    }, number);
    return note(ok, number, KELQAVI_CHUNK_VIDEO, fourcc_chars(record.compression), record.name, record.name_length,
                error);
}

bool avi_output::add_audio(const audio_stream_format &record, double frame_duration, int32_t &number,
                           std::string &error) {
    std::vector<char> name = copy_of(record.name, record.name_length);
    if (name.empty() && unnamed_would_clear(w_, w_->audio_formats, w_->audio_count)) name = copy_of("Audio", 5);
    const bool ok = run_step([record, name, frame_duration](aviout_handle *w, int32_t &n) mutable {
        audio_stream_format r = record;
        point_at_name(r, name);
        return aviout_set_audio_format(w, &n, &r, &frame_duration);
    }, number);
    char codec[32];
    if (record.wave_format.format_tag == 1)
        std::snprintf(codec, sizeof codec, "PCM");
    else
        std::snprintf(codec, sizeof codec, "tag 0x%04X", record.wave_format.format_tag);
    return note(ok, number, KELQAVI_CHUNK_AUDIO, codec, name.data(), static_cast<int32_t>(name.size()), error);
}

bool avi_output::add_text_caption(const caption_stream_format &record, int32_t &number, std::string &error) {
    return add_caption(record, false, number, error);
}

bool avi_output::add_bitmap_caption(const video_stream_format &record, int32_t &number, std::string &error) {
    std::vector<char> name = copy_of(record.name, record.name_length);
    if (name.empty() && unnamed_would_clear(w_, w_->bitmap_captions, w_->bitmap_caption_count))
        name = copy_of("Subtitle", 8);
    const bool ok = run_step([record, name](aviout_handle *w, int32_t &n) mutable {
        video_stream_format r = record;
        point_at_name(r, name);
        return aviout_set_bitmap_caption_format(w, &n, &r);
    }, number);
    return note(ok, number, KELQAVI_CHUNK_BITMAP_CAPTION, fourcc_chars(record.compression), name.data(),
                static_cast<int32_t>(name.size()), error);
}

bool avi_output::add_chapter(const caption_stream_format &record, int32_t &number, std::string &error) {
    return add_caption(record, true, number, error);
}

// Text captions and chapters: the same record, a setter and a default name each.
bool avi_output::add_caption(const caption_stream_format &record, bool chapter, int32_t &number, std::string &error) {
    const caption_stream_format *table = chapter ? w_->chapters : w_->text_captions;
    const int32_t count = chapter ? w_->chapter_count : w_->text_caption_count;
    std::vector<char> name = copy_of(record.name, record.name_length);
    if (name.empty() && unnamed_would_clear(w_, table, count))
        name = chapter ? copy_of("Chapter", 7) : copy_of("Subtitle", 8);
    const auto setter = chapter ? aviout_set_chapter_format : aviout_set_text_caption_format;
    const bool ok = run_step([record, name, setter](aviout_handle *w, int32_t &n) mutable {
        caption_stream_format r = record;
        point_at_name(r, name);
        return setter(w, &n, &r);
    }, number);
    return note(ok, number, chapter ? KELQAVI_CHUNK_CHAPTER : KELQAVI_CHUNK_TEXT_CAPTION, "", name.data(),
                static_cast<int32_t>(name.size()), error);
}

bool avi_output::set_block(int (*setter)(aviout_handle *, const uint8_t *, int32_t), const uint8_t *data,
                           int32_t size, const char *what, std::string &error) {
    const std::vector<uint8_t> block = copy_of(data, size);
    int32_t unused = 0;
    if (run_step([setter, block, size](aviout_handle *w, int32_t &) { return setter(w, block.data(), size); }, unused))
        return true;
    error = std::string("the writer refused the ") + what;
    return false;
}

bool avi_output::set_strd(const uint8_t *data, int32_t size, std::string &error) {
    return set_block(aviout_set_strd_info, data, size, "strd block", error);
}

bool avi_output::set_metadata(const uint8_t *data, int32_t size, std::string &error) {
    return set_block(aviout_set_metadata_info, data, size, "metadata block", error);
}

bool avi_output::set_menu(const uint8_t *data, int32_t size, std::string &error) {
    return set_block(aviout_set_menu_info, data, size, "menu block", error);
}

bool avi_output::write_failed() const {
    return w_->write_failed != 0 || w_->error != 0 || std::ferror(w_->file) != 0;
}

int avi_output::put(int32_t stream, uint32_t flags, const uint8_t *data, uint32_t size) {
    if (pending_next_ && !start_next_file()) return 1;
    errno = 0;
    const int result = aviout_put_chunk(w_, stream, flags, data, size);
    // With OpenDML, 1 also says that the chunk was written but its index is full.
    if (result != 0 && result != 4 && (result != 1 || !odml || write_failed())) {
        write_error_ = "cannot write '" + current_ + "': " +
                       (errno != 0 ? std::strerror(errno) : std::string("the writer failed"));
        return 1;
    }
    index_full = index_full || result == 1;
    for (written_stream &s : streams) {
        if (s.number == stream) {
            ++s.chunks;
            s.bytes += size;
        }
    }
    ++chunks_in_file_;
    bytes_in_file_ += size;
    if (result == 4) {
        std::string error;
        if (!finish_file(error)) {
            write_error_ = error;
            return 1;
        }
        pending_next_ = true;
    }
    return 0;
}

bool avi_output::start_next_file() {
    pending_next_ = false;
    const std::string next = continuation_path(path, files.size() + 1);
    errno = 0;
    w_ = aviout_open(next.c_str(), odml ? 1 : 0, 0);
    current_ = next;
    if (w_ == nullptr) {
        write_error_ = "cannot create '" + next + "': " + (errno != 0 ? std::strerror(errno) : "the writer refused it");
        return false;
    }
    settings_.give(*w_);
    int32_t number = 0;
    for (size_t i = 0; i < setup_.size(); ++i) {
        if (setup_[i](w_, number) != 0) {
            write_error_ = "the writer refused the streams of '" + next + "' that it took for '" + path + "'";
            return false;
        }
    }
    return true;
}

bool avi_output::finish_file(std::string &error) {
    written_file f;
    f.path = current_;
    f.segments = w_->riff_index + 1;
    f.chunks = chunks_in_file_;
    f.bytes = bytes_in_file_;
    chunks_in_file_ = bytes_in_file_ = 0;
    if (files.empty()) {
        menu_bytes = w_->has_menu != 0 ? static_cast<uint64_t>(w_->menu_size) : 0;
        metadata_bytes = w_->has_metadata != 0 ? static_cast<uint64_t>(w_->metadata_size) : 0;
        swapped_ids = w_->swapped_ids != 0;
        checkpoint_seconds = w_->checkpoint_seconds;
    }
    settings_.take(*w_);
    const bool empty = w_->riff_index < 0;
    errno = 0;
    const int status = aviout_close2(w_);
    w_ = nullptr;
    if (status != 0) {
        error = "cannot finish '" + current_ + "': " + (errno != 0 ? std::strerror(errno) : "the writer failed");
        return false;
    }
    // A writer that got no chunk leaves the file as it was opened: empty.
    if (empty) return true;
    FILE *stream = file_open(current_.c_str(), 0);
    if (stream == nullptr || file_seek(stream, 0, 2) != 0) {
        error = "cannot read back '" + current_ + "' after writing it";
        if (stream != nullptr) file_close(stream);
        return false;
    }
    f.size = file_tell(stream);
    file_close(stream);
    files.push_back(f);
    return true;
}

bool avi_output::close(std::string &error) {
    if (w_ == nullptr) return true;
    return finish_file(error);
}

const written_stream *avi_output::stream(int32_t number) const {
    for (const written_stream &s : streams)
        if (s.number == number) return &s;
    return nullptr;
}

}  // namespace kelqtool
