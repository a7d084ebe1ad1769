// How the reading commands open a file: by default with every tolerance the
// library offers, so that files real writers make (palettes and codec data
// after the video header, index chunks in 'movi', idx1 offsets counted from
// the file start, 'db' frames) are read; with --strict as the plain reader
// opens them. Also the words and keys that report which tolerances a file
// needed.
#pragma once

#include "json_writer.h"
#include "kelqavi.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kelqtool {

struct read_mode {
    bool strict = false;
    uint32_t tolerances() const { return strict ? 0 : AVIIN_TOLERATE_ALL; }
};

// aviin_open for --strict, else aviin_open_tolerant with every tolerance.
aviin_handle *open_with_mode(const char *path, uint32_t swapped_ids, read_mode mode);

// The tolerances h has needed so far (0 for a null handle).
uint32_t tolerances_needed(aviin_handle *h);

// Stable names of the tolerances set in `needed`, in flag order
// ("index_chunks", "file_idx1" ...).
std::vector<std::string> tolerance_keys(uint32_t needed);
// The same as words for a text line ("index chunks in movi, idx1 offsets
// from file start"); "none" for 0.
std::string tolerance_words(uint32_t needed);

// "tolerated: WORDS" and a blank line on out; nothing under --strict.
void print_tolerated(FILE *out, read_mode mode, uint32_t needed);
// A "tolerated" array of tolerance_keys (null under --strict).
void tolerated_json(json_writer &j, read_mode mode, uint32_t needed);

// The help lines of the --strict option, for every reading command.
extern const char *const strict_option_help;

}  // namespace kelqtool
