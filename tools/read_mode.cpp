#include "read_mode.h"

namespace kelqtool {

namespace {

struct tolerance_name {
    uint32_t flag;
    const char *key, *words;
};

const tolerance_name tolerance_names[] = {
    {AVIIN_TOLERATE_LONG_VIDEO_FORMAT, "long_video_format", "video format longer than its header"},
    {AVIIN_TOLERATE_INDEX_CHUNKS, "index_chunks", "index chunks in movi"},
    {AVIIN_TOLERATE_FILE_IDX1, "file_idx1", "idx1 offsets from file start"},
    {AVIIN_TOLERATE_DB_FRAMES, "db_frames", "'db' chunks as frames"},
    {AVIIN_TOLERATE_UNFLAGGED_KEYS, "unflagged_keys", "every frame a key frame (idx1 flags none)"},
    {AVIIN_TOLERATE_EMPTY_LAST_CHUNK, "empty_last_chunk", "empty chunk closing 'movi' passed over by the index"},
};

}  // namespace

const char *const strict_option_help =
    "  --strict        open FILE as the plain reader does (aviin_open): no\n"
    "                  tolerance for palettes or codec data after the video\n"
    "                  header, index chunks in 'movi', idx1 offsets counted from\n"
    "                  the file start, 'db' frames, an idx1 that flags no key\n"
    "                  frame or lists an empty chunk closing 'movi'. Without it\n"
    "                  FILE is opened with all of them and the tolerances it\n"
    "                  needed are listed\n";

aviin_handle *open_with_mode(const char *path, uint32_t swapped_ids, read_mode mode) {
    if (mode.strict) return aviin_open(path, swapped_ids);
    return aviin_open_tolerant(path, swapped_ids, mode.tolerances());
}

uint32_t tolerances_needed(aviin_handle *h) {
    uint32_t needed = 0;
    if (h == nullptr || aviin_get_tolerances(h, nullptr, &needed) != 0) return 0;
    return needed;
}

std::vector<std::string> tolerance_keys(uint32_t needed) {
    std::vector<std::string> keys;
    for (const tolerance_name &t : tolerance_names)
        if ((needed & t.flag) != 0) keys.push_back(t.key);
    return keys;
}

std::string tolerance_words(uint32_t needed) {
    std::string words;
    for (const tolerance_name &t : tolerance_names)
        if ((needed & t.flag) != 0) words += (words.empty() ? "" : ", ") + std::string(t.words);
    return words.empty() ? "none" : words;
}

void print_tolerated(FILE *out, read_mode mode, uint32_t needed) {
    if (!mode.strict) std::fprintf(out, "tolerated: %s\n\n", tolerance_words(needed).c_str());
}

void tolerated_json(json_writer &j, read_mode mode, uint32_t needed) {
    if (mode.strict) {
        j.field("tolerated", json_writer::null());
        return;
    }
    j.begin_array("tolerated", true);
    for (const std::string &k : tolerance_keys(needed)) j.element(json_writer::text(k));
    j.end_array();
}

}  // namespace kelqtool
