// "kelqavi chunks FILE": the reader's sequential walk over the 'movi' list of
// every RIFF segment. Whole chunks are read with aviin_get_next_chunk2 into a
// buffer that grows when a chunk does not fit; with --headers only the
// headers are read, with aviin_get_next_chunk_type.
#include "chunks_command.h"

#include "avi_layout.h"
#include "command_line.h"
#include "diagnostics.h"
#include "json_writer.h"
#include "output_format.h"
#include "riff_sizes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace kelqtool {

namespace {

constexpr uint32_t no_stream = 0xFFFFFFFFu;
constexpr int32_t first_capacity = 64 * 1024;

enum result_code : int { result_ok = 0, result_failed = 1, result_end = 3 };

enum chunk_flag : uint8_t {
    flag_cut_short = 1 << 0,  // fewer data bytes than its size were there to read
    flag_past_eof = 1 << 1,   // its size runs past the end of the file: not read
    flag_in_index = 1 << 2,   // it lies inside an OpenDML standard index chunk (ix##)
    flag_backwards = 1 << 3,  // its size, taken as signed 32 bits, steps the header walk backwards
    flag_not_read = 1 << 4,   // too large to be worth a buffer: passed over unread
    flag_whole_index = 1 << 5, // with flag_in_index: the ix## chunk itself, met whole as an index chunk
};

// The buffer is not grown beyond this; a larger chunk is passed over unread,
// as the reader passes any chunk too large for the buffer.
constexpr uint32_t largest_buffer = 1u << 30;

// One call of the walk that met something: a chunk, or unrecognised bytes.
struct chunk_record {
    int64_t offset = 0;       // of the header (or of the unrecognised bytes)
    int64_t data_offset = 0;  // where the chunk's data (or the skipped bytes) begin
    uint32_t id = 0;          // the four bytes at offset
    uint32_t size = 0;        // a chunk's size field; for unrecognised bytes, how many were passed
    uint32_t read = 0;        // data bytes read (whole-chunk walk)
    uint32_t stream = no_stream;
    uint32_t steps = 1;       // header walk: four-byte steps over unrecognised bytes merged here
    int32_t segment = 0;
    uint8_t type = 0;
    uint8_t flags = 0;
    uint16_t index_owner = 0;  // with flag_in_index: the stream of the super index that points at the ix## chunk

    bool has(chunk_flag f) const { return (flags & f) != 0; }
};

enum class walk_end : uint8_t {
    end_of_list,   // the reader said the list is over
    end_of_file,   // the reader's next read found the end of the file
    read_failure,  // the reader failed before the end of the list or the file
    header_cut,    // the next chunk header is cut off by the end of the file
    backwards,     // a size stepped the header walk backwards; stopped there
    not_entered,   // the reader could not be moved into the segment
    not_in_movi,   // after moving, the reader did not stand at the segment's 'movi' data
    no_movi,       // the segment has no 'movi' list
};

struct segment_walk {
    segment seg;
    const riff_form *form = nullptr;  // null for an MRIF segment
    walk_end end = walk_end::no_movi;
    int64_t end_position = -1;  // where the walk stopped, when known
    uint64_t chunks = 0;
    bool walked = false;
};

// Byte ranges of the standard index chunks the super indexes point at.
struct index_range {
    int64_t begin, end;
    uint32_t owner;  // stream number of the super index
};

std::vector<index_range> index_ranges(const avi_layout &layout) {
    std::vector<index_range> ranges;
    if (layout.forms.empty()) return ranges;
    const std::vector<stream_list> &streams = layout.forms[0].streams;
    for (size_t s = 0; s < streams.size(); ++s) {
        if (!streams[s].has_indx) continue;
        for (const super_index_entry &e : streams[s].indx.entries) {
            if (!e.chunk_read) continue;
            const int64_t begin = static_cast<int64_t>(e.offset);
            ranges.push_back({begin, begin + chunk_header_size + static_cast<int64_t>(e.chunk_size), static_cast<uint32_t>(s)});
        }
    }
    return ranges;
}

// ---------------------------------------------------------------------------
// The walk.
// ---------------------------------------------------------------------------

class movi_walker {
public:
    movi_walker(aviin_handle *h, const avi_layout &layout, uint32_t swapped_ids, bool headers_only, progress_bar &progress)
        : h_(h), layout_(layout), swapped_(swapped_ids), headers_only_(headers_only), progress_(progress),
          ranges_(index_ranges(layout)), buffer_(static_cast<size_t>(first_capacity)) {}

    aviin_handle *handle() const { return h_; }
    void set_handle(aviin_handle *h) { h_ = h; }
    std::vector<chunk_record> &records() { return records_; }
    // The tolerances the handles walked with have needed, by the end of each walk.
    uint32_t tolerated() const { return tolerated_; }

    // Walks the list the handle stands in. expected_start is where the
    // segment's first chunk lies by the RIFF layer's reading of the file.
    void walk(segment_walk &w, int64_t expected_start) {
        w.walked = true;
        const size_t first = records_.size();
        int64_t start = 0;
        const int learned = learn_position(start);
        if (learned == result_end) {
            w.end = walk_end::end_of_list;
        } else if (learned != result_ok) {
            w.end = failure_at(expected_start);
            w.end_position = expected_start;
        } else if (start != expected_start) {
            w.end = walk_end::not_in_movi;
            w.end_position = start;
        } else if (headers_only_) {
            walk_headers(w, start);
        } else {
            walk_whole(w, start);
        }
        w.chunks = records_.size() - first;
        tolerated_ |= tolerances_needed(h_);
    }

private:
    // Asks the header walk where the next chunk lies, then puts the walk back
    // there: the whole-chunk call does not tell where what it read began.
    int learn_position(int64_t &position) {
        uint32_t type = 0, stream = 0, size = 0;
        uint64_t data_offset = 0;
        const int r = aviin_get_next_chunk_type(h_, &type, &stream, &data_offset, &size);
        if (r != result_ok) return r;
        position = static_cast<int64_t>(data_offset) - (type == KELQAVI_CHUNK_UNKNOWN ? 4 : chunk_header_size);
        return aviin_seek_by_offset(h_, static_cast<uint64_t>(position)) == 0 ? result_ok : result_failed;
    }

    // Where a walk that failed stopped: at or past the end of the file, or
    // short of it.
    walk_end failure_at(int64_t position) const {
        if (position >= layout_.file_size) return walk_end::end_of_file;
        return position + chunk_header_size > layout_.file_size ? walk_end::header_cut : walk_end::read_failure;
    }

    // Ends a walk: how, and where. False, for the steps to return.
    static bool stop(segment_walk &w, walk_end end, int64_t at) {
        w.end = end;
        w.end_position = at;
        return false;
    }

    void walk_whole(segment_walk &w, int64_t position) {
        bool retried = false;
        for (bool go_on = true; go_on;) {
            progress_.update(static_cast<uint64_t>(position), records_.size());
            uint32_t type = 0, stream = 0;
            int32_t size = static_cast<int32_t>(buffer_.size());
            char name[5] = {0, 0, 0, 0, 0};
            const int r = aviin_get_next_chunk2(h_, &type, &stream, buffer_.data(), &size, name);
            if (r == result_end) {
                stop(w, walk_end::end_of_list, position);
                return;
            }
            if (r == result_ok) {
                retried = false;
                go_on = take_read(w, position, str2long(reinterpret_cast<const uint8_t *>(name)), type, stream, size);
            } else {
                go_on = take_failure(w, position, size, retried);
            }
        }
    }

    // A chunk the reader read whole, or unrecognised bytes its resync scan
    // passed. False when the walk is over.
    bool take_read(segment_walk &w, int64_t &position, uint32_t id, uint32_t type, uint32_t stream, int32_t size) {
        chunk_record c = make_record(w, position, id, type, stream);
        c.size = static_cast<uint32_t>(size);
        c.read = c.size;
        if (type != KELQAVI_CHUNK_UNKNOWN) {
            add(c);
            position += chunk_header_size + padEven(c.size);
            return true;
        }
        // The resync scan goes on at the last position it examined.
        c.data_offset = position + 4;
        add(c);
        const int64_t scanned_to = position + 3 + static_cast<int64_t>(c.size);
        const int learned = learn_position(position);
        if (learned == result_end) {
            w.end = walk_end::end_of_list;
            return false;
        }
        return learned == result_ok || stop(w, failure_at(scanned_to), scanned_to);
    }

    // A failed read: the chunk did not fit the buffer, its data was cut
    // short, or the walk can go no further. The header at the position tells
    // which. False when the walk is over.
    bool take_failure(segment_walk &w, int64_t &position, int32_t size, bool &retried) {
        uint8_t header[8];
        if (aviin_get_chunk(h_, static_cast<uint64_t>(position), header, sizeof header) != 0)
            return stop(w, failure_at(position), position);
        const uint32_t id = str2long(header), declared = str2long(header + 4);
        const int32_t declared_type = get_chunk_type(id, swapped_);
        // The resync scan met the end of the file.
        if (declared_type == KELQAVI_CHUNK_UNKNOWN) return stop(w, failure_at(position), position);
        chunk_record c = make_record(w, position, id, static_cast<uint32_t>(declared_type), fourCC_streamID(id, swapped_));
        c.size = declared;
        const int64_t data_end = position + chunk_header_size + static_cast<int64_t>(declared);
        // Growing the buffer for a chunk inside an index chunk would change
        // nothing: the walk goes on past it either way.
        const bool worth_reading = declared <= largest_buffer && !c.has(flag_in_index);
        if (static_cast<int64_t>(declared) <= static_cast<int64_t>(buffer_.size())) {
            c.read = static_cast<uint32_t>(std::max(size, 0));
            c.flags |= flag_cut_short;
        } else if (data_end <= layout_.file_size && worth_reading && !retried) {
            // Too large for the buffer, and passed over: grow the buffer and
            // read it again. Doubling, but never past the file's size.
            buffer_.resize(std::max<size_t>(declared, std::min<uint64_t>(buffer_.size() * 2,
                                                                         static_cast<uint64_t>(layout_.file_size))));
            if (aviin_seek_by_offset(h_, static_cast<uint64_t>(position)) != 0)
                return stop(w, walk_end::read_failure, position);
            retried = true;
            return true;
        } else {
            // The reader passed it over unread.
            c.flags |= data_end > layout_.file_size ? flag_past_eof : flag_not_read;
        }
        add(c);
        retried = false;
        position += chunk_header_size + padEven(declared);
        return true;
    }

    void walk_headers(segment_walk &w, int64_t position) {
        for (;;) {
            progress_.update(static_cast<uint64_t>(position), records_.size());
            uint32_t type = 0, stream = 0, size = 0;
            uint64_t data_offset = 0;
            const int r = aviin_get_next_chunk_type(h_, &type, &stream, &data_offset, &size);
            if (r != result_ok) {
                stop(w, r == result_end ? walk_end::end_of_list : failure_at(position), position);
                return;
            }
            const int64_t data = static_cast<int64_t>(data_offset);
            if (type == KELQAVI_CHUNK_UNKNOWN) {
                // An unrecognised id moves the walk on by four bytes; a run of
                // such steps is one record.
                position = data - 4;
                chunk_record *last = records_.empty() ? nullptr : &records_.back();
                if (last != nullptr && last->type == KELQAVI_CHUNK_UNKNOWN && last->segment == w.seg.number &&
                    last->offset + 4 * static_cast<int64_t>(last->steps) == position) {
                    ++last->steps;
                    last->size += 4;
                } else {
                    uint8_t id_bytes[4] = {0, 0, 0, 0};
                    aviin_get_chunk(h_, static_cast<uint64_t>(position), id_bytes, 4);
                    chunk_record c = make_record(w, position, str2long(id_bytes), type, stream);
                    c.data_offset = data;
                    c.size = 4;
                    add(c);
                }
                position = data;
                continue;
            }
            position = data - chunk_header_size;
            uint8_t id_bytes[4] = {0, 0, 0, 0};
            aviin_get_chunk(h_, static_cast<uint64_t>(position), id_bytes, 4);
            chunk_record c = make_record(w, position, str2long(id_bytes), type, stream);
            c.size = size;
            c.read = size;
            if (data + static_cast<int64_t>(size) > layout_.file_size) {
                c.flags |= flag_past_eof;
                c.read = static_cast<uint32_t>(std::max<int64_t>(layout_.file_size - data, 0));
            }
            // The walk's next header: the size and its pad byte, added in 32 bits and taken as signed.
            const int64_t next = data + static_cast<int32_t>(size + (size & 1u));
            if (next <= position) c.flags |= flag_backwards;
            add(c);
            if (next <= position) {
                stop(w, walk_end::backwards, position);
                return;
            }
            position = next;
        }
    }

    chunk_record make_record(const segment_walk &w, int64_t position, uint32_t id, uint32_t type, uint32_t stream) const {
        chunk_record c;
        c.segment = w.seg.number;
        c.offset = position;
        c.data_offset = position + chunk_header_size;
        c.id = id;
        c.type = static_cast<uint8_t>(type);
        c.stream = type == KELQAVI_CHUNK_UNKNOWN || type == KELQAVI_CHUNK_JUNK || type == KELQAVI_CHUNK_RESERVED
                       ? no_stream
                       : stream;
        if (c.stream > 99) c.stream = no_stream;
        for (const index_range &r : ranges_) {
            if (position >= r.begin && position < r.end) {
                c.flags |= flag_in_index;
                if (type == KELQAVI_CHUNK_INDEX && position == r.begin) c.flags |= flag_whole_index;
                c.index_owner = static_cast<uint16_t>(r.owner);
                break;
            }
        }
        return c;
    }

    void add(const chunk_record &c) { records_.push_back(c); }

    aviin_handle *h_;
    const avi_layout &layout_;
    uint32_t swapped_;
    bool headers_only_;
    progress_bar &progress_;
    std::vector<index_range> ranges_;
    std::vector<uint8_t> buffer_;
    std::vector<chunk_record> records_;
    uint32_t tolerated_ = 0;
};

// ---------------------------------------------------------------------------
// Words.
// ---------------------------------------------------------------------------

const char *end_key(walk_end end) {
    switch (end) {
    case walk_end::end_of_list: return "end_of_list";
    case walk_end::end_of_file: return "end_of_file";
    case walk_end::read_failure: return "read_failure";
    case walk_end::header_cut: return "header_cut";
    case walk_end::backwards: return "backwards";
    case walk_end::not_entered: return "not_entered";
    case walk_end::not_in_movi: return "not_in_movi";
    case walk_end::no_movi: return "no_movi";
    }
    return "read_failure";
}

bool is_problem(const chunk_record &c) {
    return !c.has(flag_in_index) && (c.has(flag_cut_short) || c.has(flag_past_eof) || c.has(flag_backwards));
}

// Where a segment's 'movi' list ends by its size field.
int64_t movi_end(const riff_form &f) { return f.movi_offset + chunk_header_size + static_cast<int64_t>(f.movi_size); }

// Whether the way a segment's walk ended is a fault of the file's. A walk
// ending at the end of the file is sound when the list ends there too.
bool segment_problem(const segment_walk &w, const avi_layout &layout, const std::vector<chunk_record> &records) {
    switch (w.end) {
    case walk_end::end_of_list:
    case walk_end::no_movi: return false;
    case walk_end::end_of_file: return w.form == nullptr || movi_end(*w.form) > layout.file_size;
    case walk_end::backwards:
        // A step backwards inside an index chunk is how the walk meets the
        // index's own header; anywhere else the file is at fault.
        return records.empty() || !records.back().has(flag_in_index);
    default: return true;
    }
}

std::string segment_words(const segment_walk &w, const avi_layout &layout) {
    const std::string where = w.seg.number < 0 ? "the first form (MRIF, not numbered as a segment) at 0"
                                               : "segment " + std::to_string(w.seg.number) + " at " + std::to_string(w.seg.offset);
    if (w.form == nullptr) return where + " (MRIF): a menu segment, no 'movi' list";
    const riff_form &f = *w.form;
    if (!f.has_movi) return where + " ('" + fourcc_text(f.type) + "'): no 'movi' list";
    std::string text = where + " ('" + fourcc_text(f.type) + "'): 'movi' at " + std::to_string(f.movi_offset) + ", " +
                       std::to_string(w.chunks) + (w.chunks == 1 ? " record" : " records") + ", ";
    switch (w.end) {
    case walk_end::end_of_list: text += "walked to the end of the list"; break;
    case walk_end::end_of_file:
        if (movi_end(f) > layout.file_size)
            text += "the list runs " + human_size(static_cast<uint64_t>(movi_end(f) - layout.file_size)) +
                    " past the end of the file" + (f.movi_size == 0xFFFFFFFFu ? " (size never patched)" : "") +
                    "; walked to the end of the file";
        else
            text += "walked to the end of the list, which is the end of the file";
        break;
    case walk_end::read_failure:
        text += "the reader's read failed at offset " + std::to_string(w.end_position) +
                " or after it, before the end of the list";
        break;
    case walk_end::header_cut:
        text += "the chunk header at " + std::to_string(w.end_position) + " is cut off by the end of the file";
        break;
    case walk_end::backwards:
        text += "stopped at offset " + std::to_string(w.end_position) + ", where a size of 2 GiB or more steps the header walk backwards";
        break;
    case walk_end::not_entered: text += "the reader could not move into this segment"; break;
    case walk_end::not_in_movi:
        text += "after moving into the segment the reader stands at " + std::to_string(w.end_position) +
                ", not at the first chunk of 'movi'; not walked";
        break;
    case walk_end::no_movi: text += "not walked"; break;
    }
    return text;
}

std::string notes_for(const chunk_record &c) {
    std::string notes;
    const auto add = [&notes](const std::string &n) { notes += (notes.empty() ? "" : "; ") + n; };
    if (c.type == KELQAVI_CHUNK_UNKNOWN)
        add(c.steps > 1 ? "passed in " + std::to_string(c.steps) + " four-byte steps" : "passed by the resync scan");
    if (c.has(flag_cut_short))
        add("cut short by the end of the file: " + std::to_string(c.read) + " of " + std::to_string(c.size) + " bytes");
    if (c.has(flag_past_eof)) add("runs past the end of the file; not read");
    if (c.has(flag_not_read)) add("too large for the buffer; passed over unread");
    if (c.has(flag_backwards)) add("size steps the walk backwards");
    if (c.has(flag_whole_index))
        add("stream " + std::to_string(c.index_owner) + "'s standard index chunk (ix##), passed whole");
    else if (c.has(flag_in_index))
        add("inside stream " + std::to_string(c.index_owner) + "'s standard index chunk (ix##)");
    return notes;
}

struct stream_totals {
    uint64_t chunks = 0, bytes = 0;
    uint32_t types = 0;  // bit per chunk type met
};

struct walk_summary {
    std::map<uint32_t, stream_totals> streams;  // no_stream: chunks without a stream number
    uint64_t in_index = 0;                      // records inside ix## chunks, counted apart
    uint64_t chunks = 0, bytes = 0;
    uint64_t problems = 0;
    read_mode mode;
    uint32_t tolerated = 0;  // the tolerances the file needed
};

walk_summary summarise(const std::vector<chunk_record> &records, const std::vector<segment_walk> &walks,
                       const avi_layout &layout, bool offsets_failed) {
    walk_summary s;
    for (const chunk_record &c : records) {
        if (is_problem(c)) ++s.problems;
        if (c.has(flag_in_index)) {
            ++s.in_index;
            continue;
        }
        stream_totals &t = s.streams[c.stream];
        ++t.chunks;
        // The data the chunk holds inside the file, whether or not it was read.
        uint64_t bytes = c.size;
        if (c.type == KELQAVI_CHUNK_UNKNOWN) bytes = 0;
        else if (c.has(flag_cut_short)) bytes = c.read;
        else if (c.has(flag_past_eof)) bytes = static_cast<uint64_t>(std::max<int64_t>(layout.file_size - c.data_offset, 0));
        t.bytes += bytes;
        t.types |= 1u << (c.type & 31);
        ++s.chunks;
        s.bytes += bytes;
    }
    for (const segment_walk &w : walks)
        if (segment_problem(w, layout, records)) ++s.problems;
    if (offsets_failed) ++s.problems;
    return s;
}

std::string types_text(uint32_t types) {
    std::string text;
    for (int t = 0; t < 32; ++t)
        if ((types & (1u << t)) != 0) text += (text.empty() ? "" : ", ") + std::string(chunk_type_word(static_cast<uint8_t>(t)));
    return text;
}

std::string plural(uint64_t n, const char *one, const char *many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

// ---------------------------------------------------------------------------
// Output.
// ---------------------------------------------------------------------------

void print_text(const char *path, const avi_layout &layout, const std::vector<chunk_record> &records,
                const std::vector<segment_walk> &walks, const segment_list &segments, const walk_summary &s,
                bool headers_only, const text_style &style) {
    std::printf("%s: %s, %s met in %s (%s)\n\n", paint(path, sgr::bold, style.colour).c_str(),
                (std::to_string(layout.file_size) + " bytes").c_str(),
                plural(records.size(), "record", "records").c_str(),
                plural(walks.size(), "segment", "segments").c_str(),
                headers_only ? "headers only" : "whole chunks read");
    print_tolerated(stdout, s.mode, s.tolerated);

    using al = column_layout::align;
    column_layout table({al::right, al::right, al::left, al::left, al::right, al::right, al::left});
    const std::vector<std::string> head = {"SEG", "OFFSET", "ID", "TYPE", "STREAM", "SIZE", "NOTES"};
    table.measure(head);
    const auto cells = [&](const chunk_record &c) {
        std::string id = fourcc_text(c.id);
        if (c.type == KELQAVI_CHUNK_UNKNOWN || is_problem(c)) id = paint(id, is_problem(c) ? sgr::bold_red : sgr::yellow, style.colour);
        else if (c.has(flag_in_index)) id = paint(id, sgr::dim, style.colour);
        return std::vector<std::string>{std::to_string(c.segment), std::to_string(c.offset), id, chunk_type_word(c.type),
                                        c.stream == no_stream ? "-" : std::to_string(c.stream), std::to_string(c.size),
                                        notes_for(c)};
    };
    for (const chunk_record &c : records) table.measure(cells(c));
    std::printf("%s\n", paint(table.render(head), sgr::bold, style.colour).c_str());
    for (const chunk_record &c : records) std::printf("%s\n", table.render(cells(c)).c_str());

    std::printf("\n");
    column_layout totals({al::left, al::right, al::right, al::left});
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"STREAM", "CHUNKS", "BYTES", "TYPES"});
    for (const auto &entry : s.streams) {
        const std::string name = entry.first == no_stream ? "other" : std::to_string(entry.first);
        rows.push_back({name, std::to_string(entry.second.chunks), std::to_string(entry.second.bytes),
                        types_text(entry.second.types)});
    }
    rows.push_back({"total", std::to_string(s.chunks), std::to_string(s.bytes), human_size(s.bytes)});
    for (const auto &row : rows) totals.measure(row);
    for (size_t i = 0; i < rows.size(); ++i)
        std::printf("%s\n", i == 0 ? paint(totals.render(rows[i]), sgr::bold, style.colour).c_str() : totals.render(rows[i]).c_str());
    if (s.in_index != 0)
        std::printf("\n%s inside OpenDML standard index chunks (ix##), which the walk meets as it steps through\n"
                    "them; not counted above.\n",
                    plural(s.in_index, "record", "records").c_str());

    std::printf("\n");
    for (const segment_walk &w : walks) {
        const bool bad = segment_problem(w, layout, records);
        std::printf("%s\n", paint(segment_words(w, layout), bad ? sgr::red : nullptr, style.colour).c_str());
    }
    if (segments.unlisted > 0)
        std::printf("%s inside later menu forms not listed (the reader's offset query does not reach them).\n",
                    plural(static_cast<uint64_t>(segments.unlisted), "menu segment", "menu segments").c_str());
    if (segments.query_failed) std::printf("%s\n", paint("The reader could not give every segment's offset.", sgr::red, style.colour).c_str());
    std::printf("\n%s\n", s.problems == 0 ? paint("No problems found.", sgr::green, style.colour).c_str()
                                          : paint(plural(s.problems, "problem", "problems") + " found.", sgr::bold_red, style.colour).c_str());
}

void chunks_json(json_writer &j, const std::vector<chunk_record> &records, bool headers_only) {
    using jw = json_writer;
    j.begin_array("chunks");
    for (const chunk_record &c : records) {
        j.begin_object(nullptr, true);
        j.field("segment", jw::number(c.segment));
        j.field("offset", jw::number(c.offset));
        j.field("id", jw::fourcc(c.id));
        j.field("type", jw::text(chunk_type_key(c.type)));
        j.field("type_code", jw::number(static_cast<uint32_t>(c.type)));
        j.field("stream", c.stream == no_stream ? jw::null() : jw::number(c.stream));
        j.field("size", jw::number(c.size));
        j.field("data_offset", jw::number(c.data_offset));
        if (!headers_only) j.field("read", jw::number(c.read));
        if (c.steps > 1) j.field("steps", jw::number(c.steps));
        if (c.has(flag_cut_short)) j.field("cut_short", jw::boolean(true));
        if (c.has(flag_past_eof)) j.field("past_eof", jw::boolean(true));
        if (c.has(flag_backwards)) j.field("backwards", jw::boolean(true));
        if (c.has(flag_in_index)) j.field("in_index_of_stream", jw::number(static_cast<uint32_t>(c.index_owner)));
        if (c.has(flag_whole_index)) j.field("whole_index_chunk", jw::boolean(true));
        j.end_object();
    }
    j.end_array();
}

void print_json(const char *path, const avi_layout &layout, const std::vector<chunk_record> &records,
                const std::vector<segment_walk> &walks, const segment_list &segments, const walk_summary &s,
                bool headers_only, uint32_t swapped) {
    using jw = json_writer;
    jw j;
    j.begin_object();
    j.field("file", jw::text(path));
    j.field("file_size", jw::number(layout.file_size));
    j.field("mode", jw::text(headers_only ? "headers" : "whole_chunks"));
    j.field("swapped_ids", jw::boolean(swapped != 0));
    tolerated_json(j, s.mode, s.tolerated);
    j.field("segment_count", jw::number(segments.count));
    j.begin_array("segments");
    for (const segment_walk &w : walks) {
        j.begin_object(nullptr, true);
        j.field("segment", jw::number(w.seg.number));
        j.field("offset", jw::number(w.seg.offset));
        j.field("id", jw::text(w.form == nullptr || !w.form->numbered ? "MRIF" : "RIFF"));
        j.field("form_type", w.form != nullptr ? jw::fourcc(w.form->type) : jw::null());
        const bool movi = w.form != nullptr && w.form->has_movi;
        j.field("movi_offset", movi ? jw::number(w.form->movi_offset) : jw::null());
        j.field("movi_size", movi ? jw::number(w.form->movi_size) : jw::null());
        j.field("records", jw::number(w.chunks));
        j.field("end", jw::text(end_key(w.end)));
        j.field("end_offset", w.end_position >= 0 ? jw::number(w.end_position) : jw::null());
        j.field("problem", jw::boolean(segment_problem(w, layout, records)));
        j.end_object();
    }
    j.end_array();
    j.field("segments_not_listed", jw::number(segments.unlisted));
    chunks_json(j, records, headers_only);
    j.begin_array("streams");
    for (const auto &entry : s.streams) {
        j.begin_object(nullptr, true);
        j.field("stream", entry.first == no_stream ? jw::null() : jw::number(entry.first));
        j.field("chunks", jw::number(entry.second.chunks));
        j.field("bytes", jw::number(entry.second.bytes));
        j.begin_array("types");
        for (int t = 0; t < 32; ++t)
            if ((entry.second.types & (1u << t)) != 0) j.element(jw::text(chunk_type_key(static_cast<uint8_t>(t))));
        j.end_array();
        j.end_object();
    }
    j.end_array();
    j.field("records_in_index_chunks", jw::number(s.in_index));
    j.begin_object("totals", true);
    j.field("chunks", jw::number(s.chunks));
    j.field("bytes", jw::number(s.bytes));
    j.end_object();
    j.field("problems", jw::number(s.problems));
    j.end_object();
    j.write(stdout);
}

}  // namespace

void print_chunks_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi chunks [--headers] [--json] [--strict] [--swapped-ids] FILE\n"
                 "\n"
                 "Walks the 'movi' list of every RIFF segment of FILE with the library's\n"
                 "reader, in file order, and prints every chunk it meets: segment, offset,\n"
                 "id, type, stream and size; then chunks and bytes per stream, and how the\n"
                 "walk of each segment ended.\n"
                 "\n"
                 "By default every chunk is read whole (aviin_get_next_chunk2); a chunk larger\n"
                 "than the buffer is read again once the buffer has grown. Bytes whose id the\n"
                 "reader does not recognise are passed by its resync scan, which looks for\n"
                 "the next id of the form \"00dc\"; they show as 'unrecognised'. OpenDML\n"
                 "standard index chunks (ix##) have such ids, and the walk meets the chunk ids\n"
                 "stored in them; those records are marked and counted apart. Read with\n"
                 "tolerance (without --strict) the walk passes an index chunk whole and shows\n"
                 "it as type 'index'; a first line 'tolerated:' lists the tolerances FILE\n"
                 "needed (\"tolerated\" in JSON).\n"
                 "\n"
                 "Options:\n"
                 "  --headers       read only chunk headers (aviin_get_next_chunk_type); an\n"
                 "                  unrecognised id is passed four bytes at a time, and a run\n"
                 "                  of such steps is shown as one record\n"
                 "  --json          print the same as JSON: one object per chunk with segment,\n"
                 "                  offset, id, type, type_code, stream, size, data_offset\n"
                 "%s"
                 "  --swapped-ids   also accept chunk ids written type first (\"dc00\"); with\n"
                 "                  it, ix## index chunks are recognised and passed whole\n"
                 "  -h, --help      show this help\n"
                 "\n"
                 "Exit status: 0 every segment was walked to its end; 1 FILE cannot be read\n"
                 "or the reader refuses it; 2 usage error; 3 the walk found a fault: a chunk\n"
                 "cut short or running past the end of the file, a list longer than the\n"
                 "file, a read failure before the end of a list, or a segment the reader\n"
                 "could not enter.\n",
                 strict_option_help);
}

namespace {

// What the walks of every segment found.
struct walk_result {
    std::vector<segment_walk> walks;
    std::vector<chunk_record> records;
    segment_list segments;
    uint32_t tolerated = 0;
};

// Walks the segments the reader lists after the first one.
void walk_later_segments(movi_walker &walker, const char *path, const avi_layout &layout, uint32_t swapped,
                         read_mode mode, walk_result &r) {
    for (size_t i = 0; i < r.segments.listed.size() && !r.segments.handle_released; ++i) {
        if (r.segments.listed[i].form == 0) continue;
        segment_walk w;
        w.seg = r.segments.listed[i];
        w.form = w.seg.form >= 0 ? &layout.forms[static_cast<size_t>(w.seg.form)] : nullptr;
        if (w.form == nullptr || !w.form->has_movi) {
            r.walks.push_back(w);
            continue;
        }
        // A result of 1 leaves a handle that is only good for closing (or
        // none, when the move released it); a fresh one goes on with the
        // next segment.
        aviin_handle *moved = walker.handle();
        if (aviin_goto_riff_checked(&moved, swapped, w.seg.offset) != 0) {
            w.end = walk_end::not_entered;
            r.walks.push_back(w);
            aviin_close(moved);
            walker.set_handle(open_with_mode(path, swapped, mode));
            if (walker.handle() == nullptr) break;
            continue;
        }
        walker.walk(w, w.form->movi_offset + list_header_size);
        r.walks.push_back(w);
    }
}

// Walks every segment with the handle just opened, which is closed after.
walk_result walk_file(aviin_handle *h, const char *path, const avi_layout &layout, uint32_t swapped, bool headers_only,
                      read_mode mode) {
    walk_result r;
    {
        progress_bar progress(("kelqavi: walking " + std::string(path)).c_str(), "chunks",
                              static_cast<uint64_t>(layout.file_size));
        movi_walker walker(h, layout, swapped, headers_only, progress);
        // The reader stands in the first form's 'movi' after opening.
        segment_walk first;
        first.form = &layout.forms[0];
        first.seg.number = -1;  // a first "MRIF" form has no segment number
        walker.walk(first, layout.forms[0].movi_offset + list_header_size);
        r.segments = list_segments(walker.handle(), layout);
        for (const segment &s : r.segments.listed)
            if (s.form == 0) first.seg = s;
        for (chunk_record &c : walker.records()) c.segment = first.seg.number;
        r.walks.push_back(first);
        walk_later_segments(walker, path, layout, swapped, mode, r);
        r.records = walker.records();
        h = walker.handle();
        r.tolerated = walker.tolerated();
    }
    if (!r.segments.handle_released) aviin_close(h);
    return r;
}

}  // namespace

int run_chunks_command(int argc, char **argv) {
    command_options options;
    bool stop = false;
    const int parsed = parse_command_line(
        {"chunks", {"--headers", "--json", "--strict", "--swapped-ids"}, {}, 1, 0, "a FILE", print_chunks_help}, argc, argv,
        options, stop);
    if (stop) return parsed;
    const uint32_t swapped = options.has("--swapped-ids") ? 1 : 0;
    const bool headers_only = options.has("--headers");
    const read_mode mode{options.has("--strict")};
    avi_layout layout;
    std::string error;
    if (!scan_layout(options.path, false, swapped, layout, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    aviin_handle *h = open_reader(options.path, swapped, layout, mode);
    if (h == nullptr) return exit_bad_input;
    const walk_result r = walk_file(h, options.path, layout, swapped, headers_only, mode);
    walk_summary summary = summarise(r.records, r.walks, layout, r.segments.query_failed);
    summary.mode = mode;
    summary.tolerated = r.tolerated;
    if (options.has("--json"))
        print_json(options.path, layout, r.records, r.walks, r.segments, summary, headers_only, swapped);
    else
        print_text(options.path, layout, r.records, r.walks, r.segments, summary, headers_only, style_for_stdout());
    if (!flush_stdout()) return exit_bad_input;
    return summary.problems == 0 ? exit_ok : exit_problems;
}

}  // namespace kelqtool
