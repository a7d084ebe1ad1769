#include "movi_copy.h"

#include "output_format.h"
#include "riff_sizes.h"

#include <algorithm>
#include <string>

namespace kelqtool {

namespace {

const uint32_t type_rec = make_fourCC("rec ");

// One segment's walk: where its list ends and how far the walk got.
struct segment_walk {
    movi_copy &job;
    int32_t segment;
    const riff_form &form;
    int64_t list_end;   // as its size says; the end of the file for an unpatched size
    int64_t reached;    // where the next chunk begins
};

void stop(segment_walk &w, int64_t at, const std::string &reason) {
    walk_stop s;
    s.segment = w.segment;
    s.movi_offset = w.form.movi_offset;
    s.stopped_at = at;
    s.unread = at < w.list_end ? static_cast<uint64_t>(w.list_end - at) : 0;
    s.reason = reason;
    w.job.losses.walks.push_back(s);
}

// A "LIST 'rec '" group at header: the walk goes on inside it. False for any
// other bytes that are no chunk id.
bool enter_record_list(segment_walk &w, int64_t header) {
    uint8_t head[12];
    if (aviin_get_chunk(w.job.h, static_cast<uint64_t>(header), head, sizeof head) != 0) return false;
    if (!fourCC_equal(str2long(head), id_list) || !fourCC_equal(str2long(head + 8), type_rec)) return false;
    w.reached = header + list_header_size;
    return aviin_seek_by_offset(w.job.h, static_cast<uint64_t>(w.reached)) == 0;
}

bool key_frame(const movi_copy &job, stream_route &route, uint32_t type, int64_t data) {
    const auto known = job.indexes->key_by_data.find(data);
    if (known != job.indexes->key_by_data.end()) return known->second;
    if (type == KELQAVI_CHUNK_VIDEO) return route.intra || route.chunks_seen == 0;
    return true;
}

// Reads the chunk whose data is at `data` and hands it to the writer. 1 the
// data could not be read (the walk stops), 2 the output could not be written.
int copy_chunk(movi_copy &job, uint32_t type, uint32_t stream, int64_t data, uint32_t size, std::vector<uint8_t> &buffer) {
    stream_route &route = job.routes[stream];
    buffer.resize(size);
    if (size > 0 && aviin_get_chunk(job.h, static_cast<uint64_t>(data), buffer.data(), size) != 0) return 1;
    uint32_t flags = key_frame(job, route, type, data) ? AVIOUT_KEY_FRAME : 0;
    ++route.chunks_seen;
    if (type == KELQAVI_CHUNK_VIDEO_DATA) flags |= AVIOUT_FRAME_DATA;
    if (type == KELQAVI_CHUNK_VIDEO_RAW) flags |= AVIOUT_UNCOMPRESSED;
    return job.out->put(route.out, flags, buffer.data(), size) == 0 ? 0 : 2;
}

// The list ends, or the walk cannot go on, at w.reached: fewer bytes than a
// chunk header are left, or the stop is noted.
void end_walk(segment_walk &w, int result) {
    if (w.list_end - w.reached < chunk_header_size) return;
    if (w.reached >= w.job.layout->file_size)
        stop(w, w.reached, "the file ends before the list does");
    else
        stop(w, w.reached, result == 3 ? "the reader ends the list there" : "no chunk header can be read there");
}

// One step: 0 go on, 1 the walk is over, 2 the output could not be written.
int step(segment_walk &w, std::vector<uint8_t> &buffer) {
    movi_copy &job = w.job;
    uint32_t type = 0, stream = 0, size = 0;
    uint64_t data_offset = 0;
    const int r = aviin_get_next_chunk_type(job.h, &type, &stream, &data_offset, &size);
    if (r != 0) {
        end_walk(w, r);
        return 1;
    }
    const int64_t data = static_cast<int64_t>(data_offset);
    if (type == KELQAVI_CHUNK_UNKNOWN) {
        const int64_t header = data - 4;
        if (enter_record_list(w, header)) return 0;
        uint8_t id[4] = {};
        aviin_get_chunk(job.h, static_cast<uint64_t>(header), id, sizeof id);
        stop(w, header, "'" + fourcc_text(str2long(id)) + "' is no chunk id");
        return 1;
    }
    const int64_t header = data - chunk_header_size;
    if (data + static_cast<int64_t>(size) > job.layout->file_size) {
        stop(w, header, "a chunk runs past the end of the file");
        return 1;
    }
    if (data + static_cast<int64_t>(size) > w.list_end) {
        stop(w, header, "a chunk runs past the end of the list");
        return 1;
    }
    w.reached = data + static_cast<int64_t>(size) + (size & 1);
    if (type < KELQAVI_CHUNK_AUDIO || type > KELQAVI_CHUNK_CHAPTER) return 0;  // index, filler
    if (stream >= job.routes.size()) {
        stop(w, header, "a chunk of stream " + std::to_string(stream) + ", which the file does not have");
        return 1;
    }
    stream_tally &tally = job.losses.streams[stream];
    ++tally.read_chunks;
    tally.read_bytes += size;
    if (w.segment == 0) ++job.routes[stream].first_segment_chunks;
    if (job.routes[stream].out < 0) return 0;
    const int copied = copy_chunk(job, type, stream, data, size, buffer);
    if (copied == 1) stop(w, header, "a chunk's data cannot be read");
    return copied;
}

// False when the output could not be written.
bool walk_segment(movi_copy &job, int32_t segment, const riff_form &form, std::vector<uint8_t> &buffer,
                  progress_bar &progress, uint64_t &chunks) {
    const int64_t declared = form.movi_offset + chunk_header_size + static_cast<int64_t>(form.movi_size);
    segment_walk w{job, segment, form, form.movi_size == placeholder_size ? job.layout->file_size : declared,
                   form.movi_offset + list_header_size};
    // Each step passes at least four bytes, so this bounds a walk the sizes could loop.
    for (int64_t steps = 0; steps <= job.layout->file_size / 4 + 2; ++steps) {
        const int r = step(w, buffer);
        job.tolerated |= tolerances_needed(job.h);
        if (r == 2) return false;
        if (r == 1) return true;
        progress.update(static_cast<uint64_t>(std::max<int64_t>(w.reached, 0)), ++chunks);
    }
    stop(w, w.reached, "the chunk sizes lead the walk in circles");
    return true;
}

// A whole list left unread.
void skip_list(movi_copy &job, int32_t segment, const riff_form &form, const char *reason) {
    segment_walk w{job, segment, form, form.movi_offset + chunk_header_size + static_cast<int64_t>(form.movi_size), 0};
    stop(w, form.movi_offset + list_header_size, reason);
}

void note_unreached(movi_copy &job, const std::vector<bool> &walked) {
    const std::vector<riff_form> &forms = job.layout->forms;
    for (size_t i = 1; i < forms.size(); ++i)
        if (!walked[i] && forms[i].has_movi && !forms[i].menu_form)
            skip_list(job, static_cast<int32_t>(i), forms[i], "the reader does not reach its segment");
}

}  // namespace

bool copy_segments(movi_copy &job) {
    progress_bar progress(("kelqavi: remuxing " + std::string(job.input)).c_str(), "chunks",
                          static_cast<uint64_t>(job.layout->file_size));
    std::vector<uint8_t> buffer;
    uint64_t chunks = 0;
    std::vector<bool> walked(job.layout->forms.size(), false);
    walked[0] = true;
    if (!walk_segment(job, 0, job.layout->forms[0], buffer, progress, chunks)) return false;
    const segment_list segments = list_segments(job.h, *job.layout);
    job.handle_released = segments.handle_released;
    for (const segment &s : segments.listed) {
        if (job.handle_released) break;
        if (s.form <= 0) continue;
        const riff_form &form = job.layout->forms[static_cast<size_t>(s.form)];
        if (!form.has_movi || form.menu_form) continue;
        walked[static_cast<size_t>(s.form)] = true;
        if (aviin_goto_riff_checked(&job.h, 1, s.offset) != 0) {
            skip_list(job, s.number, form, "the reader cannot enter its segment");
            if (job.h == nullptr) job.handle_released = true;
            continue;
        }
        if (!walk_segment(job, s.number, form, buffer, progress, chunks)) return false;
    }
    note_unreached(job, walked);
    progress.finish();
    return true;
}

void compare_with_indexes(movi_copy &job) {
    const input_indexes &x = *job.indexes;
    for (size_t s = 0; s < job.routes.size(); ++s) {
        const int32_t number = static_cast<int32_t>(s);
        const uint64_t first = job.routes[s].first_segment_chunks, all = job.losses.streams[s].read_chunks;
        if (x.has_idx1 && s < x.idx1_listed.size() && x.idx1_listed[s] > first)
            job.losses.indexes.push_back({number, "idx1", x.idx1_listed[s], first});
        if (s < x.has_odml.size() && x.has_odml[s] && x.odml_listed[s] > all)
            job.losses.indexes.push_back({number, "OpenDML", x.odml_listed[s], all});
    }
}

}  // namespace kelqtool
