#include "loss_report.h"

#include "diagnostics.h"
#include "json_writer.h"
#include "output_format.h"

namespace kelqtool {

namespace {

std::string plural(uint64_t n, const char *word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

}  // namespace

bool loss_report::any() const { return count() > 0; }

size_t loss_report::count() const {
    size_t n = walks.size() + indexes.size();
    for (const stream_tally &s : streams) n += s.lost() ? 1 : 0;
    return n;
}

void loss_report::print(FILE *out, bool colour) const {
    const auto line = [&](const std::string &text) {
        std::fprintf(out, "%s\n", paint("Lost: " + text, sgr::yellow, colour).c_str());
    };
    for (const stream_tally &s : streams) {
        if (!s.lost()) continue;
        std::string text = "stream " + std::to_string(s.stream) + " (" + s.kind + "): read " +
                           plural(s.read_chunks, "chunk") + ", " + plural(s.read_bytes, "byte") + "; wrote " +
                           plural(s.written_chunks, "chunk") + ", " + plural(s.written_bytes, "byte");
        if (!s.note.empty()) text += " (" + s.note + ")";
        if (s.format_bytes_dropped != 0)
            text += "; " + plural(s.format_bytes_dropped, "byte") + " of its format past the header not written";
        line(text);
    }
    for (const walk_stop &w : walks)
        line("segment " + std::to_string(w.segment) + ": the walk of the 'movi' list at " +
             std::to_string(w.movi_offset) + " stopped at " + std::to_string(w.stopped_at) + " (" + w.reason + "); " +
             plural(w.unread, "byte") + " of it not read");
    for (const index_shortfall &i : indexes)
        line("stream " + std::to_string(i.stream) + ": the " + i.index + " index lists " +
             plural(i.listed, "chunk") + ", " + std::to_string(i.read) + " read");
}

void loss_report::write_json(json_writer &j) const {
    using jw = json_writer;
    j.field("complete", jw::boolean(!any()));
    j.begin_array("input_streams");
    for (const stream_tally &s : streams) {
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(s.stream));
        j.field("kind", jw::text(s.kind));
        j.field("read_chunks", jw::number(s.read_chunks));
        j.field("read_bytes", jw::number(s.read_bytes));
        j.field("written_chunks", jw::number(s.written_chunks));
        j.field("written_bytes", jw::number(s.written_bytes));
        j.field("format_bytes_dropped", jw::number(s.format_bytes_dropped));
        j.field("lost", jw::boolean(s.lost()));
        if (!s.note.empty()) j.field("note", jw::text(s.note));
        j.end_object();
    }
    j.end_array();
    j.begin_array("walk_stops");
    for (const walk_stop &w : walks) {
        j.begin_object(nullptr, true);
        j.field("segment", jw::number(w.segment));
        j.field("movi_offset", jw::number(w.movi_offset));
        j.field("stopped_at", jw::number(w.stopped_at));
        j.field("unread_bytes", jw::number(w.unread));
        j.field("reason", jw::text(w.reason));
        j.end_object();
    }
    j.end_array();
    j.begin_array("index_shortfalls");
    for (const index_shortfall &i : indexes) {
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(i.stream));
        j.field("index", jw::text(i.index));
        j.field("listed", jw::number(i.listed));
        j.field("read", jw::number(i.read));
        j.end_object();
    }
    j.end_array();
}

void loss_report::print_error_line(const std::string &source) const {
    size_t streams_lost = 0;
    for (const stream_tally &s : streams) streams_lost += s.lost() ? 1 : 0;
    std::string what;
    const auto add = [&](size_t n, const char *words) {
        if (n == 0) return;
        what += (what.empty() ? "" : ", ") + std::to_string(n) + " " + words;
    };
    add(streams_lost, streams_lost == 1 ? "stream short of its input" : "streams short of their input");
    add(walks.size(), walks.size() == 1 ? "'movi' walk stopped early" : "'movi' walks stopped early");
    add(indexes.size(), indexes.size() == 1 ? "index listing more than was read" : "indexes listing more than was read");
    print_error("not everything %s was written: %s", source.c_str(), what.c_str());
}

}  // namespace kelqtool
