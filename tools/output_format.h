// Text helpers shared by the tool's commands: human-readable sizes, JSON
// strings, column alignment that ignores colour codes, terminal styling and a
// progress bar on stderr.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace kelqtool {

// "334 B", "1.5 KiB", "4.0 GiB": binary units, one decimal from KiB up.
std::string human_size(uint64_t bytes);

// A JSON string literal, quotes included. Valid UTF-8 is kept as it is; any
// byte that is not part of valid UTF-8 is written as \u00XX (its Latin-1
// code point), so the result is always valid JSON whatever the input.
std::string json_string(std::string_view text);

// Like json_string, but every byte outside printable ASCII becomes \u00XX:
// for binary labels such as chunk ids, whose bytes are not text.
std::string json_bytes(std::string_view bytes);

// A FourCC as it stands in the file: printable ASCII as it is, any other
// byte as \xNN ("00dc", "ix0\x00").
std::string fourcc_text(uint32_t code);

// Flushes stdout; false, with a line printed, when the output cannot be
// written (a full disk, a closed pipe).
bool flush_stdout();

// Words for the library's chunk type codes, which the stream kinds share:
// "audio", "raw video", "text caption" ...; 0 is "unrecognised" and a code
// without a word of its own "other". The key is the word for JSON:
// "raw_video", "text_caption" ...
const char *chunk_type_word(uint32_t type);
const char *chunk_type_key(uint32_t type);

// The stream kinds the reader classifies: audio, video, text caption,
// bitmap caption and chapter. Any other kind is "unclassified" as a word.
bool classified_kind(uint32_t kind);
const char *stream_kind_word(uint32_t kind);
const char *stream_kind_key(uint32_t kind);

// The four bytes of a FourCC in file order, for json_bytes.
std::string fourcc_bytes(uint32_t code);

// Columns printed on screen: UTF-8 sequences count as one column each and
// ANSI colour sequences (ESC [ ... m) count as none.
size_t display_width(std::string_view text);

// How the terminal (or file) behind a stream should be written to.
struct text_style {
    bool colour = false;   // ANSI colours: stdout is a terminal, NO_COLOR unset, TERM not "dumb"
    bool unicode = false;  // box-drawing characters: the locale's character set is UTF-8
};

// Decides the style for stdout. Call after setlocale(LC_CTYPE, "").
text_style style_for_stdout();

// ANSI select-graphic-rendition codes for paint().
namespace sgr {
inline constexpr const char *bold = "1";
inline constexpr const char *dim = "2";
inline constexpr const char *red = "31";
inline constexpr const char *green = "32";
inline constexpr const char *yellow = "33";
inline constexpr const char *blue = "34";
inline constexpr const char *cyan = "36";
inline constexpr const char *bold_red = "1;31";
inline constexpr const char *bold_blue = "1;34";
}  // namespace sgr

// text wrapped in the colour code when colour is on, else text unchanged.
std::string paint(std::string_view text, const char *code, bool colour);

// Aligned columns. Measure every row first, then render them; cells may hold
// colour codes, which take no width. The last column is never padded, so
// lines carry no trailing blanks.
class column_layout {
public:
    enum class align { left, right };

    explicit column_layout(std::vector<align> columns, size_t gap = 2);
    void measure(const std::vector<std::string> &cells);
    std::string render(const std::vector<std::string> &cells) const;

private:
    std::vector<align> align_;
    std::vector<size_t> width_;
    size_t gap_;
};

// A one-line progress bar on stderr, drawn only when stderr is a terminal and
// only once the work has gone on for a while (many items or some time), so
// short runs and redirected output never see it. finish() erases it.
class progress_bar {
public:
    // label leads the line ("reading clip.avi"); items are counted as "N noun".
    progress_bar(const char *label, const char *noun, uint64_t total);
    ~progress_bar();
    progress_bar(const progress_bar &) = delete;
    progress_bar &operator=(const progress_bar &) = delete;

    // done: how far the work is, out of total; items: things handled so far.
    void update(uint64_t done, uint64_t items);
    void finish();

private:
    void draw(uint64_t done, uint64_t items);

    std::string label_;
    const char *noun_;
    uint64_t total_;
    bool enabled_;
    bool shown_ = false;
    double start_ = 0;
    double last_draw_ = 0;
    uint64_t next_check_ = 0;
};

}  // namespace kelqtool
