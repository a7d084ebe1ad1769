// The summary the writing commands print: the files written, the streams
// with their chunks and bytes over every file, and the losses when there are
// any; or the same as JSON.
#include "avi_output.h"
#include "json_writer.h"
#include "loss_report.h"
#include "output_format.h"

namespace kelqtool {

void avi_output::summary_json(json_writer &j, const loss_report *losses) const {
    using jw = json_writer;
    uint64_t chunks = 0, bytes = 0;
    for (const written_stream &s : streams) {
        chunks += s.chunks;
        bytes += s.bytes;
    }
    const written_file first = files.empty() ? written_file{path, 0, 0, 0, 0} : files[0];
    j.field("file", jw::text(first.path));
    j.field("file_size", jw::number(first.size));
    j.field("segments", jw::number(first.segments));
    j.field("odml", jw::boolean(odml));
    j.field("profile", jw::text(standard ? "standard" : "designed"));
    if (input_mode != nullptr) tolerated_json(j, *input_mode, input_tolerated);
    j.field("swapped_ids", jw::boolean(swapped_ids));
    j.field("checkpoint_seconds", jw::decimal(checkpoint_seconds));
    j.field("size_limit_reached", jw::boolean(files.size() > 1));
    j.field("odml_index_full", jw::boolean(index_full));
    j.field("chunks", jw::number(chunks));
    j.field("data_bytes", jw::number(bytes));
    j.field("menu_bytes", jw::number(menu_bytes));
    j.field("metadata_bytes", jw::number(metadata_bytes));
    j.begin_array("files");
    for (const written_file &f : files) {
        j.begin_object(nullptr, true);
        j.field("file", jw::text(f.path));
        j.field("file_size", jw::number(f.size));
        j.field("segments", jw::number(f.segments));
        j.field("chunks", jw::number(f.chunks));
        j.field("data_bytes", jw::number(f.bytes));
        j.end_object();
    }
    j.end_array();
    j.begin_array("streams");
    for (const written_stream &s : streams) {
        j.begin_object(nullptr, true);
        j.field("stream", jw::number(s.number));
        j.field("kind", jw::text(stream_kind_word(s.kind)));
        j.field("codec", jw::text(s.codec));
        j.field("name", jw::text(s.name));
        j.field("chunks", jw::number(s.chunks));
        j.field("bytes", jw::number(s.bytes));
        j.end_object();
    }
    j.end_array();
    if (losses != nullptr) losses->write_json(j);
}

void avi_output::print_summary(FILE *out, bool json, const loss_report *losses) const {
    if (json) {
        json_writer j;
        j.begin_object();
        summary_json(j, losses);
        j.end_object();
        j.write(out);
        return;
    }
    const text_style style = style_for_stdout();
    if (files.empty()) std::fprintf(out, "%s\n", paint("Wrote nothing: no chunk could be written", sgr::bold, style.colour).c_str());
    for (size_t i = 0; i < files.size(); ++i) {
        const written_file &f = files[i];
        std::fprintf(out, "%s: %s (%lld bytes), %d RIFF segment%s%s%s%s%s\n",
                     paint("Wrote " + f.path, sgr::bold, style.colour).c_str(), human_size(static_cast<uint64_t>(f.size)).c_str(),
                     static_cast<long long>(f.size), f.segments, f.segments == 1 ? "" : "s",
                     odml ? ", OpenDML indexes" : "", swapped_ids ? ", type-first chunk ids" : "",
                     standard ? "" : ", designed bytes",
                     i > 0 ? ", continuing the previous file" : "");
    }
    column_layout layout({column_layout::align::right, column_layout::align::left, column_layout::align::left,
                          column_layout::align::right, column_layout::align::right, column_layout::align::left});
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"STREAM", "KIND", "CODEC", "CHUNKS", "BYTES", "NAME"});
    uint64_t chunks = 0, bytes = 0;
    for (const written_stream &s : streams) {
        rows.push_back({std::to_string(s.number), stream_kind_word(s.kind), s.codec.empty() ? "-" : s.codec,
                        std::to_string(s.chunks), std::to_string(s.bytes), s.name.empty() ? "-" : s.name});
        chunks += s.chunks;
        bytes += s.bytes;
    }
    for (const auto &r : rows) layout.measure(r);
    for (const auto &r : rows) std::fprintf(out, "%s\n", layout.render(r).c_str());
    std::fprintf(out, "%llu chunks, %s of data", static_cast<unsigned long long>(chunks), human_size(bytes).c_str());
    if (metadata_bytes > 0) std::fprintf(out, ", metadata block %s", human_size(metadata_bytes).c_str());
    if (menu_bytes > 0) std::fprintf(out, ", menu block %s", human_size(menu_bytes).c_str());
    if (checkpoint_seconds > 0) std::fprintf(out, ", a checkpoint every %g s", checkpoint_seconds);
    std::fprintf(out, ".\n");
    if (files.size() > 1)
        std::fprintf(out, "%zu files: each but the last reached the writer's size limit (0x7F000000 bytes).\n",
                     files.size());
    if (index_full)
        std::fprintf(out, "An OpenDML index filled up: the chunks after that are listed in idx1 only.\n");
    if (input_mode != nullptr && !input_mode->strict)
        std::fprintf(out, "Input tolerated: %s.\n", tolerance_words(input_tolerated).c_str());
    if (losses != nullptr) losses->print(out, style.colour);
}

}  // namespace kelqtool
