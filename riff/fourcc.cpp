// FourCC codes: text forms, comparison, and the data-chunk ids of the movi list.
#include "kelqavi.h"
#include "riff/le_bytes.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t no_stream = 0xFFFFFFFFu;

struct suffix_entry {
    char text[3];
    int32_t type;
};

// Suffix of each type code 1..8, indexed by the code.
constexpr const char *type_suffix[] = {"", "wb", "db", "dc", "dd", "st", "sb", "ch", "ix"};
constexpr int32_t last_data_type = 8;

constexpr suffix_entry suffixes[] = {
    {"wb", 1}, {"dc", 3}, {"db", 2}, {"dd", 4}, {"st", 5}, {"sb", 6}, {"ch", 7}, {"ix", 8},
};

struct fourcc_text {
    char c[4];
};

fourcc_text text_of(uint32_t code) {
    fourcc_text t;
    kelq::store_le<uint32_t>(code, reinterpret_cast<uint8_t *>(t.c));
    return t;
}

// Characters 2,3,0,1 of one id layout are characters 0,1,2,3 of the other.
uint32_t swap_pairs(uint32_t code) { return (code >> 16) | (code << 16); }

char ascii_lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

int32_t classify(uint32_t code, bool swapped) {
    const fourcc_text t = text_of(code);
    for (const suffix_entry &s : suffixes)
        if (t.c[2] == s.text[0] && t.c[3] == s.text[1]) return s.type;
    // Any other "d?" suffix is no data chunk, and is not tried the other way round.
    if (t.c[2] == 'd') return KELQAVI_CHUNK_UNKNOWN;
    if (std::memcmp(t.c, "JUNK", 4) == 0) return KELQAVI_CHUNK_JUNK;
    if (std::memcmp(t.c, "RES", 3) == 0 && t.c[3] >= '1' && t.c[3] <= '3') return KELQAVI_CHUNK_RESERVED;
    return swapped ? classify(swap_pairs(code), false) : KELQAVI_CHUNK_UNKNOWN;
}

uint32_t stream_of(uint32_t code, bool swapped) {
    const fourcc_text t = text_of(code);
    // After "ix" the two characters are taken as digits without looking.
    if (t.c[0] == 'i' && t.c[1] == 'x') return static_cast<uint32_t>((t.c[2] - '0') * 10 + (t.c[3] - '0'));
    if (is_digit(t.c[0]) && is_digit(t.c[1])) return static_cast<uint32_t>((t.c[0] - '0') * 10 + (t.c[1] - '0'));
    return swapped ? stream_of(swap_pairs(code), false) : no_stream;
}

}  // namespace

extern "C" {

uint32_t make_fourCC(const char *text) {
    uint8_t bytes[4] = {};
    for (size_t i = 0; text != nullptr && i < 4 && text[i] != '\0'; ++i) bytes[i] = static_cast<uint8_t>(text[i]);
    return kelq::load_le<uint32_t>(bytes);
}

void fourCC_to_str(uint32_t code, char *text) {
    if (text == nullptr) return;
    const fourcc_text t = text_of(code);
    std::memcpy(text, t.c, 4);
    text[4] = '\0';
}

int fourCC_equal(uint32_t a, uint32_t b) {
    const fourcc_text ta = text_of(a), tb = text_of(b);
    for (int i = 0; i < 4; ++i) {
        const char ca = ascii_lower(ta.c[i]);
        if (ca != ascii_lower(tb.c[i])) return 0;
        if (ca == '\0') return 1;
    }
    return 1;
}

int read_fourCC(uint32_t *dst, FILE *stream) { return read_val32(dst, stream); }
int write_fourCC(uint32_t code, FILE *stream) { return write_val32(code, stream); }

uint32_t create_fourCC(int32_t stream_number, int32_t type_code, uint32_t swapped) {
    uint8_t id[4] = {};
    if (type_code >= 1 && type_code <= last_data_type && stream_number >= 0 && stream_number <= 99) {
        // Two digits and the suffix, as the formatting below gives them: the
        // writer forms an id for every chunk it puts.
        const char *suffix = type_suffix[type_code];
        const uint8_t text[4] = {static_cast<uint8_t>('0' + stream_number / 10),
                                 static_cast<uint8_t>('0' + stream_number % 10), static_cast<uint8_t>(suffix[0]),
                                 static_cast<uint8_t>(suffix[1])};
        const uint32_t code = kelq::load_le<uint32_t>(text);
        return swapped ? swap_pairs(code) : code;
    }
    if (type_code >= 1 && type_code <= last_data_type) {
        // Formatted in full, then cut to the four characters an id holds.
        char text[24];
        std::snprintf(text, sizeof text, "%02d%s", static_cast<int>(stream_number), type_suffix[type_code]);
        for (size_t i = 0; i < sizeof id && text[i] != '\0'; ++i) id[i] = static_cast<uint8_t>(text[i]);
    }
    const uint32_t code = kelq::load_le<uint32_t>(id);
    return swapped ? swap_pairs(code) : code;
}

int32_t get_chunk_type(uint32_t code, uint32_t swapped) { return classify(code, swapped != 0); }

uint32_t fourCC_streamID(uint32_t code, uint32_t swapped) { return stream_of(code, swapped != 0); }

}  // extern "C"
