#include "riff_command.h"

#include "command_line.h"
#include "diagnostics.h"
#include "kelqavi.h"
#include "output_format.h"
#include "riff_sizes.h"
#include "sample_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace kelqtool {

namespace {

// ---------------------------------------------------------------------------
// The tree as walked: one entry per chunk, list or run of leftover bytes, in
// file order (a list comes right before its contents).
// ---------------------------------------------------------------------------

// However the file is nested, the walk never goes deeper than this many
// levels, so a hostile file cannot exhaust the stack.
constexpr int nesting_limit = 64;



enum class entry_kind : uint8_t { chunk, list, bytes };

enum class entry_status : uint8_t {
    ok,
    past_parent,  // runs past the end of an enclosing list
    past_eof,     // runs past the end of the file
    short_bytes,  // too few bytes left for a chunk header
};

enum class pad_state : uint8_t { none, present, missing };

enum entry_flag : uint8_t {
    flag_entered = 1 << 0,         // the list's contents follow it
    flag_depth_option = 1 << 1,    // a list left closed by --depth
    flag_nesting_limit = 1 << 2,   // a list left closed at the nesting limit
    flag_too_small = 1 << 3,       // RIFF or LIST whose size leaves no room for a list type
    flag_type_cut = 1 << 4,        // RIFF or LIST whose list type lies beyond its limit
    flag_last_sibling = 1 << 5,    // nothing follows it in its list
    flag_unpadded_id = 1 << 6,     // a non-zero pad byte, and what looks like a chunk id right after the data
};

struct riff_entry {
    int64_t offset = 0;
    // For a chunk that is not ok: how many bytes it runs past its limit. For
    // leftover bytes cut off by a limit: how many a whole header would need.
    int64_t overrun = 0;
    // Index of the list whose end was passed, or -1 for the end of the file.
    int64_t limit_owner = -1;
    uint32_t id = 0;
    uint32_t list_type = 0;
    uint32_t size = 0;  // the size field; for leftover bytes, their count
    uint32_t unpadded_id = 0;  // with flag_unpadded_id: the id that starts where the pad byte should be
    uint16_t depth = 0;
    entry_kind kind = entry_kind::chunk;
    entry_status status = entry_status::ok;
    pad_state pad = pad_state::none;
    uint8_t pad_value = 0;
    uint8_t flags = 0;

    bool has(entry_flag f) const { return (flags & f) != 0; }
};

// Where the walk of one list's contents must stop, and what it means to cross
// that point.
struct walk_bounds {
    int64_t limit;              // first byte not available to the contents
    bool own_end;               // limit is the end the list itself declares (or the file's end at the top)
    entry_status past;          // what a chunk crossing limit is
    int64_t owner;              // the list whose end limit is, -1 for the file's end
};

// Four letters, digits or spaces, starting with a letter or digit: what the
// ids of real chunks look like.
bool looks_like_id(uint32_t code) {
    char text[5];
    fourCC_to_str(code, text);
    for (int i = 0; i < 4; ++i) {
        const char c = text[i];
        const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!alnum && !(i > 0 && c == ' ')) return false;
    }
    return true;
}

class riff_walker {
public:
    riff_walker(FILE *stream, int64_t file_size, int levels, progress_bar &progress)
        : stream_(stream), file_size_(file_size), levels_(levels), progress_(progress) {}

    std::vector<riff_entry> walk() {
        walk_list_contents(nullptr, 0, {file_size_, true, entry_status::past_eof, -1}, 0);
        mark_last_siblings();
        return std::move(entries_);
    }

private:
    // Visits the chunks from begin up to bounds.limit. Positions come from the
    // sizes read, not from the list node's cursor, so that every chunk is
    // checked against the bytes that really are there.
    void walk_list_contents(list_node *parent, int64_t begin, const walk_bounds &bounds, int depth) {
        int64_t position = begin;
        while (position < bounds.limit) {
            progress_.update(static_cast<uint64_t>(position), entries_.size());
            const int64_t left = bounds.limit - position;
            if (left < chunk_header_size) {
                add_leftover_bytes(position, left, bounds, depth);
                return;
            }
            riff_entry entry = look_at_chunk(position, bounds, depth);
            const int64_t data_end = position + chunk_header_size + entry.size;
            const int64_t next = data_end + (entry.size & 1);

            if (entry.kind == entry_kind::list && !entry.has(flag_depth_option) && !entry.has(flag_nesting_limit)) {
                const int64_t index = static_cast<int64_t>(entries_.size());
                entries_.push_back(entry);
                enter_list(parent, index, data_end, bounds, depth);
            } else {
                entries_.push_back(entry);
            }
            if (entry.status != entry_status::ok) return;
            position = next;
        }
    }

    riff_entry look_at_chunk(int64_t position, const walk_bounds &bounds, int depth) {
        riff_entry entry;
        entry.offset = position;
        entry.depth = static_cast<uint16_t>(depth);
        // At least 8 bytes are there (12 where the type is used), so the reads
        // succeed; a read error shows in the stream's error flag afterwards.
        uint32_t read_status = 0;
        file_seek(stream_, position, 0);
        chunk_look_ahead(stream_, &entry.id, &entry.size, &entry.list_type, &read_status);

        const int64_t left = bounds.limit - position;
        const int64_t data_end = position + chunk_header_size + entry.size;
        if (data_end > bounds.limit) {
            entry.status = bounds.past;
            entry.overrun = data_end - bounds.limit;
            entry.limit_owner = bounds.owner;
        }
        if (entry.size % 2 != 0) {
            if (data_end < bounds.limit) {
                entry.pad = pad_state::present;
                file_seek(stream_, data_end, 0);
                read_val8(&entry.pad_value, stream_);
                // A writer that leaves out the pad byte puts the next chunk
                // one byte early; the walk keeps to the rule, but says so.
                if (entry.pad_value != 0 && data_end + 4 <= bounds.limit) {
                    file_seek(stream_, data_end, 0);
                    if (read_fourCC(&entry.unpadded_id, stream_) == 0 && looks_like_id(entry.unpadded_id))
                        entry.flags |= flag_unpadded_id;
                }
            } else {
                entry.pad = pad_state::missing;
                if (entry.status == entry_status::ok) entry.limit_owner = bounds.owner;
            }
        }

        if (entry.id == id_riff || entry.id == id_list) {
            if (entry.size < 4) {
                entry.flags |= flag_too_small;
            } else if (left < list_header_size) {
                entry.flags |= flag_type_cut;
            } else {
                entry.kind = entry_kind::list;
                if (depth + 1 >= levels_)
                    entry.flags |= depth + 1 >= nesting_limit ? flag_nesting_limit : flag_depth_option;
            }
        }
        if (entry.kind != entry_kind::list) entry.list_type = 0;
        return entry;
    }

    // Enters the list of entries_[index] with new_list and walks its contents
    // within the bytes it may have: its own size, cut back to what its parent
    // and the file hold when it claims more.
    void enter_list(list_node *parent, int64_t index, int64_t data_end, const walk_bounds &bounds, int depth) {
        // The contents are appended to entries_, so no reference into it may
        // be held across the walk below.
        const int64_t offset = entries_[static_cast<size_t>(index)].offset;
        file_seek(stream_, offset, 0);
        list_node *node = new_list(parent, stream_);
        if (node == nullptr) return;  // cannot happen with 12 bytes known to be there; shown as not entered
        entries_[static_cast<size_t>(index)].list_type = node->type;
        entries_[static_cast<size_t>(index)].flags |= flag_entered;
        const int64_t begin = offset + list_header_size;
        const walk_bounds inner = data_end <= bounds.limit
                                      ? walk_bounds{data_end, true, entry_status::past_parent, index}
                                      : walk_bounds{bounds.limit, false, bounds.past, bounds.owner};
        walk_list_contents(node, begin, inner, depth + 1);
        ascend_list(node);
    }

    void add_leftover_bytes(int64_t position, int64_t count, const walk_bounds &bounds, int depth) {
        riff_entry entry;
        entry.offset = position;
        entry.depth = static_cast<uint16_t>(depth);
        entry.kind = entry_kind::bytes;
        entry.size = static_cast<uint32_t>(count);
        entry.limit_owner = bounds.owner;
        if (bounds.own_end) {
            entry.status = entry_status::short_bytes;
        } else {
            // The list claims more than its parent or the file holds: these
            // bytes are the start of a chunk header that was cut off.
            entry.status = bounds.past;
            entry.overrun = chunk_header_size - count;
        }
        entries_.push_back(entry);
    }

    void mark_last_siblings() {
        // latest[d]: the latest entry seen at depth d while its list is still
        // open; a newer one at the same depth means it was not the last.
        std::vector<int64_t> latest(nesting_limit + 1, -1);
        for (size_t i = 0; i < entries_.size(); ++i) {
            riff_entry &entry = entries_[i];
            entry.flags |= flag_last_sibling;
            const size_t d = entry.depth;
            if (latest[d] >= 0) entries_[static_cast<size_t>(latest[d])].flags &= static_cast<uint8_t>(~flag_last_sibling);
            latest[d] = static_cast<int64_t>(i);
            for (size_t deeper = d + 1; deeper < latest.size(); ++deeper) latest[deeper] = -1;
        }
    }

    FILE *stream_;
    int64_t file_size_;
    int levels_;
    progress_bar &progress_;
    std::vector<riff_entry> entries_;
};

// ---------------------------------------------------------------------------
// Words for what the walk found.
// ---------------------------------------------------------------------------

struct known_id {
    const char *id;
    const char *what;
};

constexpr known_id known_chunks[] = {
    {"avih", "main header"},         {"strh", "stream header"},   {"strf", "stream format"},
    {"strn", "stream name"},         {"strd", "stream data"},     {"idx1", "index"},
    {"indx", "super index"},         {"dmlh", "extended header"}, {"vprp", "video properties"},
    {"JUNK", "filler"},              {"ISFT", "software"},        {"INAM", "title"},
};

constexpr known_id known_lists[] = {
    {"AVI ", "AVI file"},       {"AVIX", "AVI extension"}, {"hdrl", "headers"},
    {"strl", "stream"},         {"movi", "media data"},    {"odml", "extended headers"},
    {"INFO", "metadata"},       {"rec ", "record"},
};

const char *lookup(const known_id *table, size_t count, uint32_t code) {
    for (size_t i = 0; i < count; ++i)
        if (make_fourCC(table[i].id) == code) return table[i].what;
    return nullptr;
}

// What a data chunk id says: "video, stream 0". Both id layouts ("00dc" and
// "dc00") are recognised.
std::string data_chunk_words(uint32_t id) {
    static constexpr const char *kinds[] = {nullptr,         "audio",         "uncompressed video", "video",
                                            "video data",    "text caption",  "bitmap subtitle",    "chapter",
                                            "index"};
    const int32_t type = get_chunk_type(id, 1);
    if (type < KELQAVI_CHUNK_AUDIO || type > KELQAVI_CHUNK_INDEX) return {};
    const uint32_t stream_number = fourCC_streamID(id, 1);
    if (stream_number > 99) return {};
    return std::string(kinds[type]) + ", stream " + std::to_string(stream_number);
}

std::string describe(const riff_entry &entry) {
    if (entry.kind == entry_kind::list) {
        const char *what = lookup(known_lists, sizeof known_lists / sizeof known_lists[0], entry.list_type);
        return what != nullptr ? what : "";
    }
    if (entry.kind == entry_kind::bytes) return {};
    const char *what = lookup(known_chunks, sizeof known_chunks / sizeof known_chunks[0], entry.id);
    return what != nullptr ? what : data_chunk_words(entry.id);
}

// "LIST 'movi' at 2048", or "the file".
std::string limit_name(const std::vector<riff_entry> &entries, int64_t owner) {
    if (owner < 0) return "the file";
    const riff_entry &list = entries[static_cast<size_t>(owner)];
    return fourcc_text(list.id) + " '" + fourcc_text(list.list_type) + "' at " + std::to_string(list.offset);
}

struct note {
    std::string text;
    const char *colour;
    bool structural;  // worth a place in the JSON output, not only on screen
};

std::vector<note> notes_for(const std::vector<riff_entry> &entries, const riff_entry &entry, int levels) {
    std::vector<note> notes;
    const std::string limit = limit_name(entries, entry.limit_owner);
    if (entry.kind == entry_kind::bytes) {
        const std::string count = std::to_string(entry.size) + (entry.size == 1 ? " byte" : " bytes");
        const char *where = entry.offset == 0  ? ", the whole file"
                            : entry.depth == 0 ? " after the last chunk"
                                               : " left at the end of the list";
        if (entry.status == entry_status::short_bytes)
            notes.push_back({count + where + ": too few for a chunk header", sgr::yellow, true});
        else
            notes.push_back({"chunk header cut off by the end of " + limit + " (" + count + " of 8)", sgr::red, true});
        return notes;
    }
    if (entry.status == entry_status::past_parent || entry.status == entry_status::past_eof)
        notes.push_back({"runs " + human_size(static_cast<uint64_t>(entry.overrun)) + " past the end of " + limit,
                         sgr::red, true});
    if (entry.size == placeholder_size)
        notes.push_back({"size is the unpatched placeholder 0xFFFFFFFF", sgr::red, true});
    if (entry.has(flag_too_small)) notes.push_back({"too small to hold a list type", sgr::yellow, true});
    if (entry.has(flag_type_cut)) notes.push_back({"list type cut off", sgr::red, true});
    if (entry.has(flag_depth_option))
        notes.push_back({"contents not shown (--depth " + std::to_string(levels) + ")", sgr::dim, true});
    if (entry.has(flag_nesting_limit))
        notes.push_back({"nested deeper than " + std::to_string(nesting_limit) + " levels: not entered", sgr::red, true});
    if (entry.pad == pad_state::present) {
        if (entry.pad_value == 0) {
            notes.push_back({"+1 pad byte", sgr::yellow, false});
        } else {
            char text[48];
            std::snprintf(text, sizeof text, "+1 pad byte, 0x%02X instead of zero", entry.pad_value);
            notes.push_back({text, sgr::yellow, true});
        }
        if (entry.has(flag_unpadded_id))
            notes.push_back({"'" + fourcc_text(entry.unpadded_id) + "' starts right after the data: pad byte left out?",
                             sgr::yellow, true});
    } else if (entry.pad == pad_state::missing && entry.status == entry_status::ok) {
        notes.push_back({"pad byte missing at the end of " + limit, sgr::yellow, true});
    }
    std::string what = describe(entry);
    if (entry.id == make_fourCC("JUNK") && entry.status == entry_status::ok && !entry.has(flag_unpadded_id))
        what += " up to " + std::to_string(entry.offset + chunk_header_size + padEven(entry.size));
    if (!what.empty()) notes.push_back({what, sgr::dim, false});
    return notes;
}

const char *status_name(entry_status status) {
    switch (status) {
    case entry_status::ok: return "ok";
    case entry_status::past_parent: return "past_parent";
    case entry_status::past_eof: return "past_eof";
    case entry_status::short_bytes: return "short";
    }
    return "ok";
}

const char *pad_name(pad_state pad) {
    switch (pad) {
    case pad_state::none: return "none";
    case pad_state::present: return "present";
    case pad_state::missing: return "missing";
    }
    return "none";
}

const char *kind_name(entry_kind kind) {
    switch (kind) {
    case entry_kind::chunk: return "chunk";
    case entry_kind::list: return "list";
    case entry_kind::bytes: return "bytes";
    }
    return "chunk";
}

struct tree_summary {
    uint64_t chunks = 0, lists = 0, forms = 0, junk_bytes = 0;
    uint64_t past_parent = 0, past_eof = 0, short_bytes = 0;
    int deepest = 0;
    uint64_t problems() const { return past_parent + past_eof + short_bytes; }
};

tree_summary summarise(const std::vector<riff_entry> &entries) {
    static const uint32_t id_junk = make_fourCC("JUNK");
    tree_summary s;
    for (const riff_entry &e : entries) {
        if (e.kind != entry_kind::bytes) ++s.chunks;
        if (e.kind == entry_kind::list) ++s.lists;
        if (e.kind == entry_kind::list && e.depth == 0 && e.id == id_riff) ++s.forms;
        if (e.kind == entry_kind::chunk && e.id == id_junk) s.junk_bytes += e.size;
        if (e.status == entry_status::past_parent) ++s.past_parent;
        if (e.status == entry_status::past_eof) ++s.past_eof;
        if (e.status == entry_status::short_bytes) ++s.short_bytes;
        if (e.depth + 1 > s.deepest) s.deepest = e.depth + 1;
    }
    return s;
}

std::string plural(uint64_t n, const char *one, const char *many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

// ---------------------------------------------------------------------------
// The table.
// ---------------------------------------------------------------------------

struct tree_glyphs {
    const char *branch, *last, *through, *blank;
};
constexpr tree_glyphs unicode_glyphs = {"├─ ", "└─ ", "│  ", "   "};
constexpr tree_glyphs ascii_glyphs = {"|- ", "`- ", "|  ", "   "};

std::string chunk_label(const riff_entry &entry, const text_style &style) {
    static const uint32_t id_junk = make_fourCC("JUNK");
    if (entry.kind == entry_kind::bytes)
        return paint("(" + plural(entry.size, "byte", "bytes") + ")",
                     entry.status == entry_status::short_bytes ? sgr::yellow : sgr::red, style.colour);
    const std::string id = fourcc_text(entry.id);
    if (entry.kind == entry_kind::list)
        return paint(id, sgr::bold_blue, style.colour) + " " +
               paint("'" + fourcc_text(entry.list_type) + "'", sgr::cyan, style.colour);
    if (entry.status != entry_status::ok) return paint(id, sgr::bold_red, style.colour);
    return paint(id, entry.id == id_junk ? sgr::dim : nullptr, style.colour);
}

class table_printer {
public:
    table_printer(const std::vector<riff_entry> &entries, const text_style &style, int levels)
        : entries_(entries), style_(style), levels_(levels),
          glyphs_(style.unicode ? unicode_glyphs : ascii_glyphs),
          layout_({column_layout::align::right, column_layout::align::right, column_layout::align::right,
                   column_layout::align::left, column_layout::align::left}) {}

    void print(FILE *out) {
        // Two passes over the same cells: the first finds the column widths.
        const std::vector<std::string> head = {"OFFSET", "SIZE", "", "CHUNK", "NOTES"};
        layout_.measure(head);
        for_each_row([this](const std::vector<std::string> &cells) { layout_.measure(cells); });
        std::fprintf(out, "%s\n", paint(layout_.render(head), sgr::bold, style_.colour).c_str());
        for_each_row([this, out](const std::vector<std::string> &cells) {
            std::fprintf(out, "%s\n", layout_.render(cells).c_str());
        });
    }

private:
    template <typename F>
    void for_each_row(F &&take) {
        // open[d]: the list at depth d has more entries to come.
        std::vector<bool> open;
        std::vector<std::string> cells(5);
        for (const riff_entry &entry : entries_) {
            open.resize(entry.depth);
            std::string tree;
            for (size_t d = 1; d < entry.depth; ++d) tree += open[d] ? glyphs_.through : glyphs_.blank;
            if (entry.depth > 0) tree += entry.has(flag_last_sibling) ? glyphs_.last : glyphs_.branch;
            cells[0] = std::to_string(entry.offset);
            cells[1] = std::to_string(entry.size);
            cells[2] = human_size(entry.size);
            cells[3] = paint(tree, sgr::dim, style_.colour) + chunk_label(entry, style_);
            cells[4] = join_notes(notes_for(entries_, entry, levels_));
            take(cells);
            open.push_back(!entry.has(flag_last_sibling));
        }
    }

    std::string join_notes(const std::vector<note> &notes) const {
        std::string text;
        for (const note &n : notes) {
            if (!text.empty()) text += "; ";
            text += paint(n.text, n.colour, style_.colour);
        }
        return text;
    }

    const std::vector<riff_entry> &entries_;
    const text_style &style_;
    int levels_;
    tree_glyphs glyphs_;
    column_layout layout_;
};

void print_summary(FILE *out, const tree_summary &s, const text_style &style) {
    std::string line = plural(s.chunks, "chunk", "chunks") + " (" + plural(s.lists, "list", "lists") + ") in " +
                       plural(s.forms, "RIFF form", "RIFF forms") + ", " + plural(static_cast<uint64_t>(s.deepest), "level", "levels") +
                       " deep";
    if (s.junk_bytes > 0) line += ", " + human_size(s.junk_bytes) + " of JUNK";
    line += ". ";
    if (s.problems() == 0) {
        line += paint("No problems found.", sgr::green, style.colour);
    } else {
        std::string list;
        const auto add = [&list](uint64_t n, const char *what) {
            if (n == 0) return;
            if (!list.empty()) list += ", ";
            list += std::to_string(n) + " " + what;
        };
        add(s.past_parent, s.past_parent == 1 ? "chunk past the end of a list" : "chunks past the end of a list");
        add(s.past_eof, s.past_parent != 0 ? "past the end of the file"
                        : s.past_eof == 1 ? "chunk past the end of the file" : "chunks past the end of the file");
        add(s.short_bytes, s.short_bytes == 1 ? "stretch of leftover bytes" : "stretches of leftover bytes");
        line += paint(plural(s.problems(), "problem", "problems") + ": " + list + ".", sgr::bold_red, style.colour);
    }
    std::fprintf(out, "%s\n", line.c_str());
}

// ---------------------------------------------------------------------------
// JSON.
// ---------------------------------------------------------------------------

// The members of an entry's JSON object, but for its children.
std::string entry_json(const std::vector<riff_entry> &entries, const riff_entry &e, int levels) {
    std::string object = "\"offset\": " + std::to_string(e.offset) + ", \"kind\": \"" + kind_name(e.kind) + "\"";
    object += ", \"id\": " + (e.kind == entry_kind::bytes ? std::string("null") : json_bytes(fourcc_bytes(e.id)));
    if (e.kind == entry_kind::list) object += ", \"list_type\": " + json_bytes(fourcc_bytes(e.list_type));
    object += ", \"size\": " + std::to_string(e.size);
    object += std::string(", \"pad\": \"") + pad_name(e.pad) + "\"";
    object += std::string(", \"status\": \"") + status_name(e.status) + "\"";
    if (e.overrun != 0) object += ", \"overrun\": " + std::to_string(e.overrun);
    std::string notes;
    for (const note &n : notes_for(entries, e, levels)) {
        if (!n.structural) continue;
        notes += (notes.empty() ? "" : ", ") + json_string(n.text);
    }
    if (!notes.empty()) object += ", \"notes\": [" + notes + "]";
    return object;
}

void print_json(FILE *out, const std::vector<riff_entry> &entries, const std::string *path, int64_t file_size,
                int levels) {
    std::fprintf(out, "{\n");
    if (path != nullptr)
        std::fprintf(out, "  \"file\": %s,\n", json_string(*path).c_str());
    else
        std::fprintf(out, "  \"file\": null,\n  \"sample\": true,\n");
    std::fprintf(out, "  \"file_size\": %lld,\n  \"chunks\": [", static_cast<long long>(file_size));

    // comma[d]: an entry has already been written at depth d in the array open there.
    std::vector<bool> comma(1, false);
    size_t open = 0;  // children arrays open
    const auto indent = [](size_t depth) { return std::string(4 + 2 * depth, ' '); };
    for (size_t i = 0; i < entries.size(); ++i) {
        const riff_entry &e = entries[i];
        while (open > e.depth) {
            std::fprintf(out, "\n%s]}", indent(open - 1).c_str());
            --open;
        }
        std::fprintf(out, "%s\n%s{", comma[e.depth] ? "," : "", indent(e.depth).c_str());
        comma[e.depth] = true;
        std::fputs(entry_json(entries, e, levels).c_str(), out);

        if (e.kind == entry_kind::list && !e.has(flag_entered)) {
            std::fputs(", \"entered\": false}", out);
        } else if (e.kind == entry_kind::list) {
            const bool empty = i + 1 == entries.size() || entries[i + 1].depth <= e.depth;
            if (empty) {
                std::fputs(", \"children\": []}", out);
            } else {
                std::fputs(", \"children\": [", out);
                ++open;
                if (comma.size() <= open) comma.resize(open + 1);
                comma[open] = false;
            }
        } else {
            std::fputs("}", out);
        }
    }
    while (open > 0) {
        std::fprintf(out, "\n%s]}", indent(open - 1).c_str());
        --open;
    }
    const tree_summary s = summarise(entries);
    std::fprintf(out,
                 "\n  ],\n  \"summary\": {\"chunks\": %llu, \"lists\": %llu, \"riff_forms\": %llu, \"levels\": %d, "
                 "\"problems\": %llu}\n}\n",
                 static_cast<unsigned long long>(s.chunks), static_cast<unsigned long long>(s.lists),
                 static_cast<unsigned long long>(s.forms), s.deepest, static_cast<unsigned long long>(s.problems()));
}

// ---------------------------------------------------------------------------
// The command.
// ---------------------------------------------------------------------------

struct riff_options {
    bool json = false;
    int levels = nesting_limit;
    const char *path = nullptr;
    const char *save_sample = nullptr;  // where to keep a copy of the built-in sample
    command_options line;               // as given: the texts above point into it
};

std::string riff_needs_value(const command_syntax &, const char *option) {
    return std::string("option '") + option + "' needs " +
           (std::strcmp(option, "--depth") == 0 ? "a number" : "a file name") + " (see 'kelqavi riff --help')";
}

// 0 when the arguments were understood, else the exit status to leave with
// (exit_ok after --help).
int parse_options(int argc, char **argv, riff_options &options, bool &stop) {
    command_options &line = options.line;
    const int parsed = parse_command_line({"riff", {"--json"}, {"--save-sample", "--depth"}, 0, 1, "a FILE",
                                           print_riff_help, nullptr, riff_needs_value},
                                          argc, argv, line, stop);
    if (stop) return parsed;
    stop = true;
    options.json = line.has("--json");
    options.path = line.path;
    if (const std::string *path = line.value("--save-sample")) options.save_sample = path->c_str();
    if (const std::string *depth = line.value("--depth")) {
        char *end = nullptr;
        errno = 0;
        const long n = std::strtol(depth->c_str(), &end, 10);
        if (depth->empty() || *end != '\0' || errno != 0 || n < 1) {
            print_error("option '--depth' needs a whole number of levels, 1 or more, not '%s'", depth->c_str());
            return exit_usage;
        }
        options.levels = n > nesting_limit ? nesting_limit : static_cast<int>(n);
    }
    if (options.save_sample != nullptr && options.path != nullptr) {
        print_error("'--save-sample' writes the built-in sample, so it takes no FILE to read");
        return exit_usage;
    }
    stop = false;
    return exit_ok;
}

// Copies the whole of from (left at its start) into a new file at path.
bool save_copy(FILE *from, const char *path) {
    FILE *to = file_open(path, 1);
    if (to == nullptr) {
        print_error("cannot create '%s': %s", path, std::strerror(errno));
        return false;
    }
    bool ok = file_seek(from, 0, 0) == 0;
    char buffer[16384];
    size_t n;
    while (ok && (n = file_read(from, buffer, sizeof buffer)) > 0) ok = file_write(to, buffer, n) == n;
    ok = ok && std::ferror(from) == 0;
    const int write_errno = errno;
    ok = file_close(to) == 0 && ok;
    if (!ok) print_error("cannot write '%s': %s", path, std::strerror(write_errno));
    return ok && file_seek(from, 0, 0) == 0;
}

// Opens the file the user named and checks that it is a RIFF file; prints
// the reason and returns null when it cannot be used.
FILE *open_riff_file(const char *path, int64_t &file_size) {
    FILE *stream = file_open(path, 0);
    if (stream == nullptr) {
        print_error("cannot open '%s': %s", path, std::strerror(errno));
        return nullptr;
    }
    errno = 0;
    file_size = file_seek(stream, 0, 2) == 0 ? file_tell(stream) : -1;
    if (file_size < 0 || file_seek(stream, 0, 0) != 0) {
        if (errno == ESPIPE)
            print_error("cannot read '%s': the walk needs a file it can seek in, not a pipe", path);
        else
            print_error("cannot read '%s': %s", path, errno != 0 ? std::strerror(errno) : "cannot seek in it");
        file_close(stream);
        return nullptr;
    }
    uint32_t id = 0;
    errno = 0;
    if (file_size > 0 && read_fourCC(&id, stream) != 0 && std::ferror(stream)) {
        print_error("cannot read '%s': %s", path, std::strerror(errno));
        file_close(stream);
        return nullptr;
    }
    if (file_size == 0) {
        print_error("'%s' is empty, not a RIFF file", path);
        file_close(stream);
        return nullptr;
    }
    if (file_size < 4 || id != id_riff) {
        print_error("'%s' is not a RIFF file", path);
        file_close(stream);
        return nullptr;
    }
    return stream;
}

}  // namespace

void print_riff_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi riff [--json] [--depth N] [FILE]\n"
                 "       kelqavi riff [--json] [--depth N] [--save-sample PATH]\n"
                 "\n"
                 "Prints the RIFF chunk tree of FILE: every top-level chunk (a file may hold\n"
                 "several RIFF forms, such as 'AVI ' followed by 'AVIX'), the lists inside them\n"
                 "with their types, and every chunk with its offset and size. JUNK filler and\n"
                 "pad bytes are shown. A chunk that runs past the end of its list or of the\n"
                 "file is marked with how far it overruns and is not trusted: a list is only\n"
                 "walked within the bytes that are really there.\n"
                 "\n"
                 "Without FILE, writes the built-in sample AVI (the one 'kelqavi sample' writes)\n"
                 "with the library's writer to a temporary file and shows its tree.\n"
                 "\n"
                 "Options:\n"
                 "  --json        print the tree as JSON: nested objects with offset, kind,\n"
                 "                id, list_type, size, pad (none/present/missing), status\n"
                 "                (ok/past_parent/past_eof/short), overrun, notes, children\n"
                 "  --depth N     show N levels at most (1: top-level chunks only); the walk\n"
                 "                never goes deeper than %d levels\n"
                 "  --save-sample PATH\n"
                 "                without FILE: also keep the built-in sample in PATH\n"
                 "  -h, --help    show this help\n"
                 "\n"
                 "Offsets are counted in bytes from the start of the file; SIZE is the chunk's\n"
                 "size field, which does not count the 8-byte header or the pad byte.\n"
                 "\n"
                 "Exit status: 0 the tree was shown and has no problems; 1 FILE cannot be\n"
                 "read or is not a RIFF file; 2 usage error; 3 the tree was shown but some\n"
                 "chunk runs past its list or the file, or bytes are left over that are too\n"
                 "few for a chunk header.\n",
                 nesting_limit);
}

int run_riff_command(int argc, char **argv) {
    riff_options options;
    bool stop = false;
    const int parsed = parse_options(argc, argv, options, stop);
    if (stop) return parsed;

    FILE *stream = nullptr;
    int64_t file_size = 0;
    std::string label;
    if (options.path != nullptr) {
        stream = open_riff_file(options.path, file_size);
        if (stream == nullptr) return exit_bad_input;
        label = options.path;
    } else {
        std::string error;
        stream = write_sample_file(error);
        if (stream == nullptr) {
            print_error("%s", error.c_str());
            return exit_bad_input;
        }
        if (options.save_sample != nullptr && !save_copy(stream, options.save_sample)) {
            file_close(stream);
            return exit_bad_input;
        }
        file_size = file_seek(stream, 0, 2) == 0 ? file_tell(stream) : -1;
        label = "the built-in sample";
    }

    std::vector<riff_entry> entries;
    {
        progress_bar progress(("kelqavi: reading " + label).c_str(), "chunks", static_cast<uint64_t>(file_size));
        entries = riff_walker(stream, file_size, options.levels, progress).walk();
    }
    const bool read_failed = std::ferror(stream) != 0;
    const int read_errno = errno;
    file_close(stream);
    if (read_failed) {
        print_error("error reading '%s': %s", label.c_str(), std::strerror(read_errno));
        return exit_bad_input;
    }

    const tree_summary summary = summarise(entries);
    if (options.json) {
        const std::string path = options.path != nullptr ? options.path : "";
        print_json(stdout, entries, options.path != nullptr ? &path : nullptr, file_size, options.levels);
    } else {
        const text_style style = style_for_stdout();
        const std::string size = std::to_string(file_size) + " bytes (" + human_size(static_cast<uint64_t>(file_size)) + ")";
        if (options.path != nullptr)
            std::printf("%s: %s\n\n", paint(options.path, sgr::bold, style.colour).c_str(), size.c_str());
        else
            std::printf("%s: a small AVI written with the library's writer, %s\n\n",
                        paint("Built-in sample (no FILE given)", sgr::bold, style.colour).c_str(), size.c_str());
        table_printer(entries, style, options.levels).print(stdout);
        std::printf("\n");
        print_summary(stdout, summary, style);
    }
    if (!flush_stdout()) return exit_bad_input;
    return summary.problems() == 0 ? exit_ok : exit_problems;
}

}  // namespace kelqtool
