// The reason a file does not open: the note the open path leaves on a
// refusal, and its words.
#include "reader/open_refusal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

using kelq::open_refusal;

// A FourCC as text: printable bytes as they are, others as \xNN.
struct fourcc_words {
    char text[17];
    explicit fourcc_words(uint32_t code) {
        char raw[5];
        fourCC_to_str(code, raw);
        char *out = text;
        for (int i = 0; i < 4; ++i) {
            const auto byte = static_cast<unsigned char>(raw[i]);
            if (byte >= 0x20 && byte < 0x7f) *out++ = static_cast<char>(byte);
            else out += std::snprintf(out, 5, "\\x%02X", byte);
        }
        *out = '\0';
    }
};

const char *kind_words(uint32_t kind) {
    switch (kind) {
    case KELQAVI_CHUNK_AUDIO: return " audio";
    case KELQAVI_CHUNK_VIDEO: return " video";
    case KELQAVI_CHUNK_TEXT_CAPTION: return " text caption";
    case KELQAVI_CHUNK_BITMAP_CAPTION: return " bitmap caption";
    case KELQAVI_CHUNK_CHAPTER: return " chapter";
    default: return "";
    }
}

using ll = long long;
using ull = unsigned long long;

// Refusals that concern one stream of the header list.
void stream_text(const open_refusal &r, char *text, size_t n) {
    const int s = r.stream;
    switch (r.code) {
    case AVIIN_REFUSED_BAD_STREAM_HEADER:
        if (!fourCC_equal(r.id, make_fourCC("strh"))) std::snprintf(text, n, "stream %d has no stream header (strh)", s);
        else std::snprintf(text, n, "stream %d's stream header (strh) is shorter than 56 bytes or cut short", s);
        return;
    case AVIIN_REFUSED_BAD_STREAM_FORMAT:
        if (r.size < r.limit)
            std::snprintf(text, n, "stream %d's video format chunk holds %llu bytes, but its header says %llu", s,
                          static_cast<ull>(r.size), static_cast<ull>(r.limit));
        else std::snprintf(text, n, "stream %d's stream format (strf) is cut short by the end of the file", s);
        return;
    case AVIIN_REFUSED_LONG_FORMAT:
        std::snprintf(text, n,
                      "stream %d's video format has %llu bytes after its %llu-byte header (palette or codec data), "
                      "which this reader does not accept",
                      s, static_cast<ull>(r.size - r.limit), static_cast<ull>(r.limit));
        return;
    case AVIIN_REFUSED_BAD_STREAM_NAME:
        std::snprintf(text, n, "stream %d's name (strn) claims %llu bytes, more than a name may hold", s,
                      static_cast<ull>(r.size));
        return;
    case AVIIN_REFUSED_TOO_MANY_STREAMS:
        std::snprintf(text, n, "it has more than %llu%s streams (stream %d is one too many)", static_cast<ull>(r.limit),
                      kind_words(r.id), s);
        return;
    default:
        std::snprintf(text, n, "stream %d's list is cut short by the end of the file", s);
    }
}

// Refusals of the file or its first form as a whole.
void file_text(const open_refusal &r, char *text, size_t n) {
    const fourcc_words id(r.id);
    switch (r.code) {
    case AVIIN_REFUSED_NO_MEMORY: std::snprintf(text, n, "out of memory while opening it"); return;
    case AVIIN_REFUSED_CANNOT_OPEN:
    case AVIIN_REFUSED_READ_ERROR: {
        const char *why = r.error != 0 ? std::strerror(r.error) : "it cannot be read";
        if (r.code == AVIIN_REFUSED_CANNOT_OPEN) std::snprintf(text, n, "%s", why);
        else std::snprintf(text, n, "error reading it at offset %lld: %s", static_cast<ll>(r.offset), why);
        return;
    }
    case AVIIN_REFUSED_CUT_SHORT:
        if (r.id == 0)
            std::snprintf(text, n,
                          "its top-level chunks end %llu bytes before the end of the file, too few for a chunk "
                          "header (at offset %lld)",
                          static_cast<ull>(r.size), static_cast<ll>(r.offset));
        else std::snprintf(text, n, "its '%s' at %lld is cut short by the end of the file", id.text, static_cast<ll>(r.offset));
        return;
    case AVIIN_REFUSED_NOT_RIFF:
        if (r.size == 0) std::snprintf(text, n, "the file is empty");
        else if (r.size < 12) std::snprintf(text, n, "it is too short for a RIFF header (%llu bytes)", static_cast<ull>(r.size));
        else std::snprintf(text, n, "it is not a RIFF file (it begins with '%s')", id.text);
        return;
    case AVIIN_REFUSED_NOT_AVI: std::snprintf(text, n, "it is a RIFF '%s' form, not 'AVI '", id.text); return;
    case AVIIN_REFUSED_NO_AVIH: std::snprintf(text, n, "its header list does not begin with a main header (avih)"); return;
    case AVIIN_REFUSED_NO_MOVI:
        if (r.offset < 0) std::snprintf(text, n, "its first RIFF form has no 'movi' list");
        else std::snprintf(text, n, "its first RIFF form has no 'movi' list the reader reaches: '%s' at %lld carries "
                           "its walk to the end of the file",
                           id.text, static_cast<ll>(r.offset));
        return;
    case AVIIN_REFUSED_EMPTY_MOVI:
        std::snprintf(text, n, "its 'movi' list is empty (size %llu)", static_cast<ull>(r.size));
        return;
    default: std::snprintf(text, n, "%s", "");
    }
}

}  // namespace

namespace kelq {

void note_refusal(aviin_handle *h, uint32_t code, int64_t offset, uint64_t size, uint32_t id, int32_t stream,
                  uint64_t limit) {
    open_refusal *r = h->refusal;
    if (r == nullptr || r->code != AVIIN_OPEN_OK) return;
    const int error = errno;
    const bool read_error = h->file != nullptr && std::ferror(h->file) != 0;
    r->code = read_error ? AVIIN_REFUSED_READ_ERROR : code;
    r->offset = offset;
    r->size = size;
    r->id = id;
    r->stream = stream;
    r->limit = limit;
    r->error = read_error || code == AVIIN_REFUSED_CANNOT_OPEN ? error : 0;
}

void refusal_text(const open_refusal &r, char *text, size_t text_size) {
    if (text == nullptr || text_size == 0) return;
    const bool whole_file = r.code == AVIIN_REFUSED_READ_ERROR || r.code == AVIIN_REFUSED_NO_MEMORY;
    if (r.stream >= 0 && !whole_file) stream_text(r, text, text_size);
    else file_text(r, text, text_size);
}

}  // namespace kelq

extern "C" uint32_t aviin_open_report(const char *path, uint32_t swapped_ids, uint32_t tolerances, char *reason,
                                      size_t reason_size) {
    kelq::open_refusal refusal;
    aviin_handle *h = kelq::open_reader(path, swapped_ids, tolerances & AVIIN_TOLERATE_ALL, &refusal);
    if (h != nullptr) refusal = kelq::open_refusal();
    aviin_close(h);
    kelq::refusal_text(refusal, reason, reason_size);
    return refusal.code;
}
