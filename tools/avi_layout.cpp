#include "avi_layout.h"

#include "diagnostics.h"
#include "output_format.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kelqtool {

namespace {

const uint32_t id_riff = make_fourCC("RIFF");
const uint32_t id_mrif = make_fourCC("MRIF");
const uint32_t id_list = make_fourCC("LIST");
const uint32_t id_strh = make_fourCC("strh");
const uint32_t id_strn = make_fourCC("strn");
const uint32_t id_strd = make_fourCC("strd");
const uint32_t id_indx = make_fourCC("indx");
const uint32_t id_idx1 = make_fourCC("idx1");
const uint32_t id_idx1_swapped = make_fourCC("1idx");
const uint32_t type_hdrl = make_fourCC("hdrl");
const uint32_t type_strl = make_fourCC("strl");
const uint32_t type_odml = make_fourCC("odml");
const uint32_t type_movi = make_fourCC("movi");
const uint32_t type_kmnu = make_fourCC("KMNU");

constexpr int64_t chunk_header_size = 8;
constexpr int64_t list_header_size = 12;
constexpr uint32_t indx_header_size = 24;  // after the chunk's size field
constexpr uint32_t super_entry_size = 16;
constexpr size_t name_limit = 4096;       // longer names are shown cut
constexpr size_t super_entry_limit = 65536;  // a super index written by anyone holds far fewer

// The RIFF-layer reads on one stream, every one bounded by the file's size.
class layout_reader {
public:
    layout_reader(FILE *stream, int64_t file_size) : f_(stream), size_(file_size) {}

    // Id and size at offset; false when fewer than 8 bytes are there.
    bool header_at(int64_t offset, uint32_t &id, uint32_t &size) {
        if (offset < 0 || offset + chunk_header_size > size_ || file_seek(f_, offset, 0) != 0) return false;
        id = 0;
        size = 0;
        return read_fourCC(&id, f_) == 0 && read_val32(&size, f_) == 0;
    }

    uint32_t fourcc_at(int64_t offset) {
        uint32_t code = 0;
        if (offset >= 0 && offset + 4 <= size_ && file_seek(f_, offset, 0) == 0) read_fourCC(&code, f_);
        return code;
    }

    bool seek(int64_t offset) { return offset >= 0 && offset <= size_ && file_seek(f_, offset, 0) == 0; }

    // Calls visit(offset, id, size, list_type) for every chunk whose header
    // lies in [begin, end), stepping by size and pad byte. list_type is the
    // type of a LIST (0 for other chunks or when it is cut off).
    template <typename F>
    void for_each_chunk(int64_t begin, int64_t end, F &&visit) {
        end = std::min(end, size_);
        for (int64_t pos = begin; pos + chunk_header_size <= end;) {
            uint32_t id = 0, size = 0;
            if (!header_at(pos, id, size)) return;
            uint32_t list_type = 0;
            if (fourCC_equal(id, id_list) && size >= 4 && pos + list_header_size <= end) list_type = fourcc_at(pos + 8);
            if (!visit(pos, id, size, list_type)) return;
            pos += chunk_header_size + padEven(size);
        }
    }

    // The end of a chunk's data, or the file's end when that comes first.
    int64_t data_end(int64_t offset, uint32_t size) const {
        return std::min(offset + chunk_header_size + static_cast<int64_t>(size), size_);
    }

    FILE *stream() const { return f_; }
    int64_t size() const { return size_; }

private:
    FILE *f_;
    int64_t size_;
};

void read_super_index(layout_reader &r, int64_t offset, uint32_t size, super_index &indx) {
    FILE *f = r.stream();
    indx.offset = offset;
    indx.size = size;
    if (!r.seek(offset + chunk_header_size)) return;
    read_val16(&indx.longs_per_entry, f);
    read_val8(&indx.index_sub_type, f);
    read_val8(&indx.index_type, f);
    read_val32(&indx.entries_in_use, f);
    read_fourCC(&indx.chunk_id, f);
    // Only an index of indexes has 16-byte entries pointing at ix## chunks.
    if (indx.index_type != 0 || size < indx_header_size) return;
    const int64_t first = offset + chunk_header_size + indx_header_size;
    const int64_t room = (r.data_end(offset, size) - first) / super_entry_size;
    const uint64_t count = std::min<uint64_t>({indx.entries_in_use, static_cast<uint64_t>(std::max<int64_t>(room, 0)),
                                                super_entry_limit});
    for (uint64_t i = 0; i < count; ++i) {
        super_index_entry e;
        if (!r.seek(first + static_cast<int64_t>(i * super_entry_size))) break;
        read_val64(&e.offset, f);
        read_val32(&e.size, f);
        read_val32(&e.duration, f);
        indx.entries.push_back(e);
    }
    for (super_index_entry &e : indx.entries) {
        // The standard index header: id, size, wLongsPerEntry, two type bytes, nEntriesInUse.
        if (e.offset > static_cast<uint64_t>(r.size()) || static_cast<int64_t>(e.offset) + 16 > r.size()) continue;
        if (!r.header_at(static_cast<int64_t>(e.offset), e.chunk_id, e.chunk_size)) continue;
        read_val16(nullptr, f);
        read_val8(nullptr, f);
        read_val8(&e.chunk_index_type, f);
        read_val32(&e.chunk_entries, f);
        e.chunk_read = true;
    }
}

void read_stream_list(layout_reader &r, int64_t begin, int64_t end, stream_list &s) {
    FILE *f = r.stream();
    r.for_each_chunk(begin, end, [&](int64_t pos, uint32_t id, uint32_t size, uint32_t) {
        if (fourCC_equal(id, id_strh) && !s.has_strh) {
            s.has_strh = true;
            r.seek(pos);
            read_header_strh(&s.strh, f);
        } else if (fourCC_equal(id, id_strn) && !s.has_name) {
            s.has_name = true;
            const int64_t length = std::min<int64_t>({size, static_cast<int64_t>(name_limit),
                                                      r.data_end(pos, size) - pos - chunk_header_size});
            std::string name(static_cast<size_t>(std::max<int64_t>(length, 0)), '\0');
            if (r.seek(pos + chunk_header_size) && !name.empty()) name.resize(file_read(f, &name[0], name.size()));
            s.name = name.substr(0, name.find('\0'));
        } else if (fourCC_equal(id, id_strd) && !s.has_strd) {
            s.has_strd = true;
            if (r.seek(pos + 12)) read_val32(&s.strd_size, f);
        } else if (fourCC_equal(id, id_indx) && !s.has_indx) {
            s.has_indx = true;
            read_super_index(r, pos, size, s.indx);
        }
        return true;
    });
}

void read_header_list(layout_reader &r, int64_t begin, int64_t end, riff_form &form) {
    bool first = true;
    r.for_each_chunk(begin, end, [&](int64_t pos, uint32_t id, uint32_t size, uint32_t list_type) {
        if (first) {
            first = false;
            r.seek(pos);
            form.has_avih = read_header_avih(&form.avih, r.stream()) == 0;
        }
        if (fourCC_equal(id, id_list) && fourCC_equal(list_type, type_strl)) {
            stream_list s;
            s.offset = pos;
            read_stream_list(r, pos + list_header_size, std::min(r.data_end(pos, size), end), s);
            form.streams.push_back(std::move(s));
        } else if (fourCC_equal(id, id_list) && fourCC_equal(list_type, type_odml) && !form.has_dmlh) {
            // The first chunk of the list is dmlh; its first value is the total frame count.
            if (pos + list_header_size + chunk_header_size + 4 <= std::min(r.data_end(pos, size), end) &&
                r.seek(pos + list_header_size + chunk_header_size))
                form.has_dmlh = read_val32(&form.dmlh_total_frames, r.stream()) == 0;
        }
        return true;
    });
}

void read_form(layout_reader &r, riff_form &form) {
    const int64_t begin = form.offset + list_header_size;
    if (form.size >= 4 && begin <= r.size()) form.type = r.fourcc_at(form.offset + 8);
    form.end = r.data_end(form.offset, form.size);
    // Where the reader looks for a menu form: the type of the form's first list.
    form.menu_form = fourCC_equal(r.fourcc_at(form.offset + 20), type_kmnu) != 0;
    if (form.size < 4) return;
    r.for_each_chunk(begin, form.end, [&](int64_t pos, uint32_t id, uint32_t size, uint32_t list_type) {
        if (fourCC_equal(id, id_list) && fourCC_equal(list_type, type_hdrl) && !form.has_hdrl) {
            form.has_hdrl = true;
            read_header_list(r, pos + list_header_size, pos + chunk_header_size + static_cast<int64_t>(size), form);
        } else if (fourCC_equal(id, id_list) && fourCC_equal(list_type, type_movi) && !form.has_movi) {
            form.has_movi = true;
            form.movi_offset = pos;
            form.movi_size = size;
        } else if ((fourCC_equal(id, id_idx1) || fourCC_equal(id, id_idx1_swapped)) && !form.has_idx1) {
            form.has_idx1 = true;
            form.idx1_offset = pos;
            form.idx1_size = size;
        }
        return true;
    });
}

void count_idx1(layout_reader &r, const riff_form &form, uint32_t swapped_ids, idx1_summary &summary) {
    summary.per_stream.assign(100, 0);
    const int64_t first = form.idx1_offset + chunk_header_size;
    const uint64_t count = static_cast<uint64_t>(std::max<int64_t>(r.data_end(form.idx1_offset, form.idx1_size) - first, 0)) / 16;
    if (!r.seek(first)) return;
    std::vector<uint8_t> block(16 * 4096);
    for (uint64_t done = 0; done < count;) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(count - done, 4096));
        const size_t got = file_read(r.stream(), block.data(), want * 16) / 16;
        for (size_t i = 0; i < got; ++i) {
            const uint32_t stream = fourCC_streamID(str2long(&block[i * 16]), swapped_ids);
            if (stream < 100)
                ++summary.per_stream[stream];
            else
                ++summary.other;
        }
        summary.entries += got;
        done += got;
        if (got < want) break;
    }
}

}  // namespace

bool scan_layout(const char *path, bool with_idx1, uint32_t swapped_ids, avi_layout &layout, std::string &error) {
    errno = 0;
    FILE *f = file_open(path, 0);
    if (f == nullptr) {
        error = std::string("cannot open '") + path + "': " + std::strerror(errno);
        return false;
    }
    errno = 0;
    layout.file_size = file_seek(f, 0, 2) == 0 ? file_tell(f) : -1;
    if (layout.file_size < 0) {
        error = std::string("cannot read '") + path + "': " +
                (errno == ESPIPE ? "the reader needs a file it can seek in, not a pipe"
                                 : errno != 0 ? std::strerror(errno) : "cannot seek in it");
        file_close(f);
        return false;
    }
    layout_reader r(f, layout.file_size);
    // The top-level chunks, stepped as the reader's own scan steps them: by
    // the size as stored, with no pad byte, so the forms found are the
    // segments it counts.
    for (int64_t cursor = 0; cursor < layout.file_size;) {
        uint32_t id = 0, size = 0;
        if (!r.seek(cursor) || read_fourCC(&id, f) != 0) break;
        const bool have_size = read_val32(&size, f) == 0;
        const bool first_mrif = cursor == 0 && fourCC_equal(id, id_mrif);
        if (fourCC_equal(id, id_riff) || first_mrif) {
            riff_form form;
            form.offset = cursor;
            form.size = size;
            form.numbered = !first_mrif;
            layout.forms.push_back(form);
        } else if (!have_size) {
            break;
        }
        cursor += static_cast<int64_t>(size) + chunk_header_size;
    }
    for (riff_form &form : layout.forms) read_form(r, form);
    if (with_idx1 && !layout.forms.empty() && layout.forms[0].has_idx1)
        count_idx1(r, layout.forms[0], swapped_ids, layout.idx1);
    const bool failed = std::ferror(f) != 0;
    const int read_errno = errno;
    file_close(f);
    if (failed) {
        error = std::string("error reading '") + path + "': " + std::strerror(read_errno);
        return false;
    }
    return true;
}

aviin_handle *open_reader(const char *path, uint32_t swapped_ids, const avi_layout &layout, read_mode mode) {
    aviin_handle *h = open_with_mode(path, swapped_ids, mode);
    if (h == nullptr) {
        // Opened again, only to be told why: a file that opens now has changed.
        char reason[256];
        if (aviin_open_report(path, swapped_ids, mode.tolerances(), reason, sizeof reason) != AVIIN_OPEN_OK)
            print_error("cannot open '%s': %s", path, reason);
        else
            print_error("cannot read '%s': the file changed while it was being read", path);
        return nullptr;
    }
    // The reader took a first form that the RIFF layer did not find: the file
    // changed between the two reads.
    if (layout.forms.empty() || layout.forms[0].offset != 0) {
        aviin_close(h);
        print_error("cannot read '%s': the file changed while it was being read", path);
        return nullptr;
    }
    return h;
}

segment_list list_segments(aviin_handle *h, const avi_layout &layout) {
    segment_list list;
    if (aviin_get_riff_count(h, &list.count) != 0) {
        list.query_failed = true;
        return list;
    }
    // Top-level forms come in the reader's numbering in file order, with the
    // MRIF chunks of menu lists between them, so asking 0, 1, 2... until the
    // last form has been met never asks beyond it.
    size_t numbered = 0, forms_met = 0;
    for (const riff_form &f : layout.forms) numbered += f.numbered ? 1 : 0;
    int32_t n = 0;
    for (; n < list.count && forms_met < numbered; ++n) {
        segment s;
        s.number = n;
        s.offset = 0;
        if (aviin_get_riff_offset(h, n, &s.offset) != 0) {
            list.query_failed = true;
            list.handle_released = s.offset == -1;
            break;
        }
        for (size_t i = 0; i < layout.forms.size(); ++i) {
            if (layout.forms[i].numbered && layout.forms[i].offset == s.offset) {
                s.form = static_cast<int>(i);
                ++forms_met;
                break;
            }
        }
        list.listed.push_back(s);
    }
    if (!list.query_failed) list.unlisted = list.count - n;
    return list;
}

}  // namespace kelqtool
