#include "output_format.h"

#include "diagnostics.h"
#include "kelqavi.h"

#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <unistd.h>

namespace kelqtool {

std::string human_size(uint64_t bytes) {
    static constexpr const char *units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) return std::to_string(bytes) + " B";
    double value = static_cast<double>(bytes) / 1024.0;
    size_t unit = 0;
    // Round first, so that 1048575 bytes reads "1.0 MiB" and not "1024.0 KiB".
    while (value * 10.0 + 0.5 >= 1024.0 * 10.0 && unit + 1 < sizeof units / sizeof units[0]) {
        value /= 1024.0;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

namespace {

void append_u00(std::string &out, unsigned char byte) {
    static constexpr char hex[] = "0123456789abcdef";
    out += "\\u00";
    out += hex[byte >> 4];
    out += hex[byte & 15];
}

// Escapes a byte below 0x80 the way JSON wants it; false when the byte needs
// no escape.
bool append_ascii_escape(std::string &out, unsigned char byte) {
    switch (byte) {
    case '"': out += "\\\""; return true;
    case '\\': out += "\\\\"; return true;
    case '\n': out += "\\n"; return true;
    case '\r': out += "\\r"; return true;
    case '\t': out += "\\t"; return true;
    default: break;
    }
    if (byte < 0x20 || byte == 0x7f) {
        append_u00(out, byte);
        return true;
    }
    return false;
}

// Length of the valid UTF-8 sequence that starts text[i], or 0 when the bytes
// there are not one (overlong forms, surrogates and values past U+10FFFF
// included).
size_t utf8_sequence_length(std::string_view text, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    size_t length;
    uint32_t code;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
        code = lead & 0x1f;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        code = lead & 0x0f;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        code = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xc0) != 0x80) return 0;
        code = (code << 6) | (byte(i + k) & 0x3f);
    }
    static constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < smallest[length] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return 0;
    return length;
}

}  // namespace

std::string json_string(std::string_view text) {
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            if (!append_ascii_escape(out, byte)) out += static_cast<char>(byte);
            ++i;
            continue;
        }
        const size_t length = utf8_sequence_length(text, i);
        if (length == 0) {
            append_u00(out, byte);
            ++i;
        } else {
            out.append(text.substr(i, length));
            i += length;
        }
    }
    return out + "\"";
}

std::string json_bytes(std::string_view bytes) {
    std::string out = "\"";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80)
            append_u00(out, byte);
        else if (!append_ascii_escape(out, byte))
            out += c;
    }
    return out + "\"";
}

std::string fourcc_text(uint32_t code) {
    char text[5];
    fourCC_to_str(code, text);
    std::string out;
    for (int i = 0; i < 4; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x20 && byte < 0x7f) {
            out += static_cast<char>(byte);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            out += escaped;
        }
    }
    return out;
}

bool flush_stdout() {
    if (std::fflush(stdout) == 0) return true;
    print_error("cannot write the output: %s", std::strerror(errno));
    return false;
}

namespace {

struct type_words {
    const char *word, *key;
};

// By chunk type code.
constexpr type_words chunk_types[] = {
    {"unrecognised", "unrecognised"}, {"audio", "audio"},
    {"raw video", "raw_video"},       {"video", "video"},
    {"video data", "video_data"},     {"text caption", "text_caption"},
    {"bitmap caption", "bitmap_caption"}, {"chapter", "chapter"},
    {"index", "index"},               {"other", "other"},
    {"junk", "junk"},                 {"reserved", "reserved"}};
constexpr uint32_t type_count = sizeof chunk_types / sizeof chunk_types[0];

}  // namespace

const char *chunk_type_word(uint32_t type) { return type < type_count ? chunk_types[type].word : "other"; }

const char *chunk_type_key(uint32_t type) { return type < type_count ? chunk_types[type].key : "other"; }

bool classified_kind(uint32_t kind) {
    return kind == KELQAVI_CHUNK_AUDIO || kind == KELQAVI_CHUNK_VIDEO || kind == KELQAVI_CHUNK_TEXT_CAPTION ||
           kind == KELQAVI_CHUNK_BITMAP_CAPTION || kind == KELQAVI_CHUNK_CHAPTER;
}

const char *stream_kind_word(uint32_t kind) { return classified_kind(kind) ? chunk_type_word(kind) : "unclassified"; }

const char *stream_kind_key(uint32_t kind) { return classified_kind(kind) ? chunk_type_key(kind) : "unclassified"; }

std::string fourcc_bytes(uint32_t code) {
    char text[5];
    fourCC_to_str(code, text);
    return std::string(text, 4);
}

size_t display_width(std::string_view text) {
    size_t width = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == 0x1b && i + 1 < text.size() && text[i + 1] == '[') {
            // Skip a control sequence up to its final byte.
            i += 2;
            while (i < text.size() && !(text[i] >= 0x40 && text[i] <= 0x7e)) ++i;
            continue;
        }
        // Continuation bytes of a UTF-8 sequence take no column of their own.
        if ((byte & 0xc0) != 0x80) ++width;
    }
    return width;
}

text_style style_for_stdout() {
    text_style style;
    const char *codeset = nl_langinfo(CODESET);
    style.unicode = codeset != nullptr && (std::strcmp(codeset, "UTF-8") == 0 || std::strcmp(codeset, "utf8") == 0);
    const char *term = std::getenv("TERM");
    const char *no_colour = std::getenv("NO_COLOR");
    style.colour = isatty(STDOUT_FILENO) != 0 && (no_colour == nullptr || no_colour[0] == '\0') &&
                   !(term != nullptr && std::strcmp(term, "dumb") == 0);
    return style;
}

std::string paint(std::string_view text, const char *code, bool colour) {
    if (!colour || code == nullptr || text.empty()) return std::string(text);
    std::string out = "\x1b[";
    out += code;
    out += 'm';
    out.append(text);
    out += "\x1b[0m";
    return out;
}

column_layout::column_layout(std::vector<align> columns, size_t gap)
    : align_(std::move(columns)), width_(align_.size(), 0), gap_(gap) {}

void column_layout::measure(const std::vector<std::string> &cells) {
    for (size_t i = 0; i < cells.size() && i < width_.size(); ++i) {
        const size_t w = display_width(cells[i]);
        if (w > width_[i]) width_[i] = w;
    }
}

std::string column_layout::render(const std::vector<std::string> &cells) const {
    // The last column that holds anything: nothing is padded beyond it.
    size_t last = cells.size();
    while (last > 0 && cells[last - 1].empty()) --last;
    std::string line;
    for (size_t i = 0; i < last; ++i) {
        const size_t width = i < width_.size() ? width_[i] : 0;
        const size_t w = display_width(cells[i]);
        const size_t fill = width > w ? width - w : 0;
        const bool right = i < align_.size() && align_[i] == align::right;
        if (right) line.append(fill, ' ');
        line += cells[i];
        if (i + 1 < last) {
            if (!right) line.append(fill, ' ');
            line.append(gap_, ' ');
        }
    }
    return line;
}

namespace {

double seconds_now() {
    using clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(clock::now().time_since_epoch()).count();
}

// The bar appears once the work is this long, in items or in time.
constexpr uint64_t items_before_bar = 10000;
constexpr double seconds_before_bar = 1.0;
constexpr double seconds_between_draws = 0.1;
constexpr uint64_t items_between_checks = 256;
constexpr int bar_width = 30;

}  // namespace

progress_bar::progress_bar(const char *label, const char *noun, uint64_t total)
    : label_(label), noun_(noun), total_(total), enabled_(isatty(STDERR_FILENO) != 0), start_(seconds_now()) {}

progress_bar::~progress_bar() { finish(); }

void progress_bar::update(uint64_t done, uint64_t items) {
    if (!enabled_ || items < next_check_) return;
    next_check_ = items + items_between_checks;
    const double now = seconds_now();
    if (!shown_ && items < items_before_bar && now - start_ < seconds_before_bar) return;
    if (shown_ && now - last_draw_ < seconds_between_draws) return;
    last_draw_ = now;
    draw(done, items);
}

void progress_bar::draw(uint64_t done, uint64_t items) {
    const double fraction = total_ == 0 ? 1.0 : static_cast<double>(done > total_ ? total_ : done) / static_cast<double>(total_);
    const int filled = static_cast<int>(fraction * bar_width);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(bar_width - filled), '.');
    std::fprintf(stderr, "\r\x1b[K%s [%s] %3d%%  %llu %s", label_.c_str(), bar.c_str(), static_cast<int>(fraction * 100.0),
                 static_cast<unsigned long long>(items), noun_);
    std::fflush(stderr);
    shown_ = true;
}

void progress_bar::finish() {
    if (!shown_) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
    shown_ = false;
    enabled_ = false;
}

}  // namespace kelqtool
