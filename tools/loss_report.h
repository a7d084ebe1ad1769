// What a writing command read and what it wrote, stream by stream, and the
// ways data can fail to reach the output: a stream that took in less than
// its input held, a walk of a 'movi' list that stopped before the list's
// end, an index that lists more chunks than were read. Any of them makes the
// command end with exit status 3.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kelqtool {

class json_writer;

// One input stream: what it held and what of it was written.
struct stream_tally {
    int32_t stream = 0;      // its number in the input (remux) or the output (mux)
    std::string kind;        // "video", "audio", ... or "unclassified"
    uint64_t read_chunks = 0, read_bytes = 0;
    uint64_t written_chunks = 0, written_bytes = 0;
    std::string note;        // why the two differ, when that is known
    // Video format bytes past the 40-byte header (a palette, codec set-up
    // data) that the input holds and the writer has no place for.
    uint32_t format_bytes_dropped = 0;

    bool lost() const {
        return read_chunks != written_chunks || read_bytes != written_bytes || format_bytes_dropped != 0;
    }
};

// A walk of a segment's 'movi' list that ended before the list did.
struct walk_stop {
    int32_t segment = 0;
    int64_t movi_offset = 0;
    int64_t stopped_at = 0;   // where the walk could go no further
    uint64_t unread = 0;      // bytes of the list from there to its end
    std::string reason;
};

// An index that lists more chunks of a stream than the walk read.
struct index_shortfall {
    int32_t stream = 0;
    std::string index;        // "idx1" or "OpenDML"
    uint64_t listed = 0, read = 0;
};

class loss_report {
public:
    std::vector<stream_tally> streams;
    std::vector<walk_stop> walks;
    std::vector<index_shortfall> indexes;

    bool any() const;
    size_t count() const;
    // One "Lost: ..." line each, after the summary.
    void print(FILE *out, bool colour) const;
    // "complete", and the tallies and losses as arrays.
    void write_json(json_writer &j) const;
    // The one line on stderr: "not everything SOURCE was written: ...",
    // SOURCE being "in 'IN.avi'" or "the inputs hold".
    void print_error_line(const std::string &source) const;
};

}  // namespace kelqtool
