// "kelqavi remux [--odml] [--swapped-ids] [--json] IN.avi OUT.avi": every
// stream's format, name and strd block, the metadata and menu blocks and every
// data chunk of every RIFF segment, from the reader into the writer.
#include "remux_command.h"

#include "avi_layout.h"
#include "avi_output.h"
#include "diagnostics.h"
#include "output_format.h"

#include <algorithm>
#include <cerrno>
#include <strings.h>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace kelqtool {

namespace {

constexpr int64_t chunk_header_size = 8;
constexpr int64_t list_header_size = 12;
constexpr uint32_t idx1_key_frame = 0x10;
constexpr uint32_t std_index_not_key = 0x80000000u;

struct remux_options {
    const char *input = nullptr;
    const char *output = nullptr;
    bool odml = false, swapped_ids = false, json = false;
};

int parse_options(int argc, char **argv, remux_options &o, bool &stop) {
    stop = true;
    bool only_operands = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) break;
        if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
            print_remux_help(stdout);
            return exit_ok;
        }
    }
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        if (!only_operands && arg[0] == '-' && arg[1] != '\0') {
            if (std::strcmp(arg, "--") == 0)
                only_operands = true;
            else if (std::strcmp(arg, "--odml") == 0)
                o.odml = true;
            else if (std::strcmp(arg, "--swapped-ids") == 0)
                o.swapped_ids = true;
            else if (std::strcmp(arg, "--json") == 0)
                o.json = true;
            else {
                print_error("unknown option '%s' for 'remux' (see 'kelqavi remux --help')", arg);
                return exit_usage;
            }
        } else if (o.input == nullptr) {
            o.input = arg;
        } else if (o.output == nullptr) {
            o.output = arg;
        } else {
            print_error("'remux' takes IN.avi and OUT.avi, but '%s' follows them", arg);
            return exit_usage;
        }
    }
    if (o.output == nullptr) {
        print_error("'remux' needs IN.avi and OUT.avi (see 'kelqavi remux --help')");
        return exit_usage;
    }
    stop = false;
    return exit_ok;
}

// Key-frame flags by the position of a chunk's data, from the first form's
// idx1 and from the OpenDML standard indexes the super indexes point to.
using key_map = std::unordered_map<int64_t, bool>;

void read_standard_indexes(FILE *f, const riff_form &form, key_map &keys) {
    for (const stream_list &s : form.streams) {
        if (!s.has_indx) continue;
        for (const super_index_entry &e : s.indx.entries) {
            uint8_t head[32];
            if (file_seek(f, static_cast<int64_t>(e.offset), 0) != 0 || file_read(f, head, sizeof head) != sizeof head)
                continue;
            const uint32_t size = str2long(head + 4);
            const uint8_t index_type = head[11];
            if (head[0] != 'i' || head[1] != 'x' || index_type != 1 || size < 24) continue;
            const uint64_t count = std::min<uint64_t>(str2long(head + 12), (size - 24) / 8);
            const uint64_t base = str2longlong(head + 20);
            std::vector<uint8_t> entries(static_cast<size_t>(count) * 8);
            if (file_read(f, entries.data(), entries.size()) != entries.size()) continue;
            for (uint64_t k = 0; k < count; ++k) {
                const uint32_t offset = str2long(&entries[k * 8]);
                const uint32_t entry_size = str2long(&entries[k * 8 + 4]);
                keys[static_cast<int64_t>(base + offset)] = (entry_size & std_index_not_key) == 0;
            }
        }
    }
}

void read_idx1(FILE *f, const riff_form &form, int64_t file_size, key_map &keys) {
    if (!form.has_idx1 || !form.has_movi) return;
    const int64_t start = form.idx1_offset + chunk_header_size;
    const int64_t end = std::min<int64_t>(start + form.idx1_size, file_size);
    if (end - start < 16 || file_seek(f, start, 0) != 0) return;
    std::vector<uint8_t> bytes(static_cast<size_t>((end - start) / 16 * 16));
    if (file_read(f, bytes.data(), bytes.size()) != bytes.size()) return;
    // Offsets count from the 'movi' type code; some writers give absolute
    // positions instead, which a first entry beyond the list's start shows.
    const int64_t movi_type = form.movi_offset + chunk_header_size;
    const int64_t base = static_cast<int64_t>(str2long(&bytes[8])) > form.movi_offset ? 0 : movi_type;
    for (size_t k = 0; k + 16 <= bytes.size(); k += 16) {
        const uint32_t flags = str2long(&bytes[k + 4]);
        const int64_t header = base + static_cast<int64_t>(str2long(&bytes[k + 8]));
        keys[header + chunk_header_size] = (flags & idx1_key_frame) != 0;
    }
}

// Codecs whose every frame stands alone, so every chunk is a key frame.
bool intra_only(const char compression[4]) {
    static const char *const codes[] = {"MJPG", "AVRN", "DMB1", "JPEG", "LJPG", "JPGL", "MJPA", "MJPB",
                                        "DIB ", "RGB ", "RAW ", "UYVY", "YUY2", "YV12", "I420", "IYUV"};
    const std::string code = fourcc_chars(compression);
    if (code.empty()) return true;  // uncompressed
    for (const char *c : codes)
        if (strncasecmp(code.c_str(), c, 4) == 0 && code.size() == std::strlen(c)) return true;
    return false;
}

// One input stream and where it goes.
struct stream_route {
    uint32_t kind = 0;
    int32_t out = -1;         // stream number in the output, -1 when not copied
    bool intra = true;        // video: every frame a key frame
    uint64_t chunks_seen = 0;
};

// Writes LIST 'KMNU' around a whole "MENU" chunk (header included) for the
// writer to copy into the header area, where the reader finds the menu.
bool write_menu_list(const std::string &path, const uint8_t *chunk, int32_t size) {
    uint8_t head[12] = {'L', 'I', 'S', 'T', 0, 0, 0, 0, 'K', 'M', 'N', 'U'};
    long2str(static_cast<uint32_t>(4 + size), head + 4);
    FILE *f = file_open(path.c_str(), 1);
    if (f == nullptr) return false;
    bool ok = file_write(f, head, sizeof head) == sizeof head;
    ok = ok && file_write(f, chunk, static_cast<size_t>(size)) == static_cast<size_t>(size);
    if (size % 2 != 0) ok = ok && file_write(f, "", 1) == 1;
    return file_close(f) == 0 && ok;
}

}  // namespace

void print_remux_help(FILE *out) {
    std::fprintf(out,
                 "Usage: kelqavi remux [--odml] [--swapped-ids] [--json] IN.avi OUT.avi\n"
                 "\n"
                 "Reads IN.avi with the library's reader and writes OUT.avi with its writer:\n"
                 "every stream's format, name and strd block, the metadata block, the menu block\n"
                 "of a LIST 'KMNU', and every data chunk of every RIFF segment, in file order.\n"
                 "\n"
                 "  --odml         write OpenDML indexes too (one ix## per minute of a stream)\n"
                 "  --swapped-ids  write chunk ids type first (\"dc00\"). IN.avi is always read\n"
                 "                 accepting both orders, so no option is needed for that\n"
                 "  --json         the summary of what was written as JSON\n"
                 "\n"
                 "Key frames: a chunk keeps the key-frame flag that the first segment's idx1 or\n"
                 "an OpenDML standard index gives it. A video chunk that no index names is\n"
                 "taken as a key frame when its codec codes every frame on its own (MJPEG,\n"
                 "uncompressed and the like), else only when it is its stream's first chunk;\n"
                 "other chunks are key frames. 'dd' and 'db' chunks stay 'dd' and 'db'.\n"
                 "Not copied: streams the reader does not classify (with their chunks), index\n"
                 "and filler chunks (the writer makes its own), a menu block kept in a LIST\n"
                 "'KQDT' (the reader takes menus from LIST 'KMNU' only) and menu forms.\n"
                 "Exit status: 0 written, 1 IN.avi cannot be read or OUT.avi not written,\n"
                 "2 usage error, 3 IN.avi is damaged (OUT.avi is then removed).\n");
}

int run_remux_command(int argc, char **argv) {
    remux_options o;
    bool stop = false;
    const int parsed = parse_options(argc, argv, o, stop);
    if (stop) return parsed;

    // Chunk ids in either order are read.
    const uint32_t swapped_in = 1;
    avi_layout layout;
    std::string error;
    if (!scan_layout(o.input, false, swapped_in, layout, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    aviin_handle *h = open_reader(o.input, swapped_in, layout);
    if (h == nullptr) return exit_bad_input;
    bool handle_released = false;
    struct close_at_end {
        aviin_handle *&h;
        bool &released;
        ~close_at_end() {
            if (!released && h != nullptr) aviin_close(h);
        }
    } closer{h, handle_released};

    key_map keys;
    if (FILE *f = file_open(o.input, 0)) {
        read_standard_indexes(f, layout.forms[0], keys);
        read_idx1(f, layout.forms[0], layout.file_size, keys);
        file_close(f);
    }

    avi_output out;
    if (!out.open(o.output, o.odml, error)) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    aviout_handle *w = out.handle();
    w->index_chunk_seconds = 60.0;
    w->swapped_ids = o.swapped_ids ? 1 : 0;
    w->extension_list = 1;  // the reader finds the metadata block inside LIST 'KQDT' only

    int32_t stream_count = 0, strd_count = 0;
    aviin_get_summary(h, &stream_count, &strd_count);
    std::vector<stream_route> routes(static_cast<size_t>(stream_count));
    double video_frame = 0.0;
    uint64_t skipped_streams = 0;
    bool ok = true;
    for (int32_t i = 0; i < stream_count && ok; ++i) {
        stream_route &r = routes[static_cast<size_t>(i)];
        aviin_get_chunk_type(h, static_cast<uint32_t>(i), &r.kind);
        // Caption and chapter names are not kept by the reader: take them from the strl.
        std::string list_name;
        if (static_cast<size_t>(i) < layout.forms[0].streams.size() && layout.forms[0].streams[static_cast<size_t>(i)].has_name)
            list_name = layout.forms[0].streams[static_cast<size_t>(i)].name;
        switch (r.kind) {
        case KELQAVI_CHUNK_VIDEO: {
            video_stream_format v{};
            uint32_t length = 0;
            ok = aviin_get_video_format(h, i, &v, &length) == 0;
            if (!ok) break;
            r.intra = intra_only(v.compression);
            const double frame = v.rate != 0 ? static_cast<double>(v.scale) / v.rate : 0.04;
            if (video_frame == 0.0) video_frame = frame;
            ok = out.add_video(v, frame > 0 ? frame : 0.04, r.out, error);
            if (v.name_length > 0) std::free(v.name);
            break;
        }
        case KELQAVI_CHUNK_BITMAP_CAPTION: {
            video_stream_format v{};
            uint32_t length = 0;
            ok = aviin_get_bitmap_caption_format(h, i, &v, &length) == 0;
            if (!ok) break;
            ok = out.add_bitmap_caption(v, r.out, error);
            if (v.name_length > 0) std::free(v.name);
            break;
        }
        case KELQAVI_CHUNK_AUDIO: {
            audio_stream_format a{};
            ok = aviin_get_audio_format(h, i, &a) == 0;
            if (!ok) break;
            // Only the index's timing depends on this: a chunk a video frame long.
            ok = out.add_audio(a, video_frame > 0 ? video_frame : 0.04, r.out, error);
            if (a.name_length > 0) std::free(a.name);
            break;
        }
        case KELQAVI_CHUNK_TEXT_CAPTION:
        case KELQAVI_CHUNK_CHAPTER: {
            caption_stream_format c{};
            ok = (r.kind == KELQAVI_CHUNK_CHAPTER ? aviin_get_chapter_format(h, i, &c)
                                                  : aviin_get_text_caption_format(h, i, &c)) == 0;
            if (!ok) break;
            if (r.kind == KELQAVI_CHUNK_TEXT_CAPTION && c.name_length > 0) std::free(c.name);
            std::vector<char> name(list_name.begin(), list_name.end());
            c.name = name.empty() ? nullptr : name.data();
            c.name_length = static_cast<int32_t>(name.size());
            ok = r.kind == KELQAVI_CHUNK_CHAPTER ? out.add_chapter(c, r.out, error) : out.add_text_caption(c, r.out, error);
            break;
        }
        default:
            ++skipped_streams;
            break;
        }
        if (!ok && error.empty()) error = "cannot read the format of stream " + std::to_string(i);
    }
    uint8_t *block = nullptr;
    int32_t block_size = 0;
    aviin_get_metadata_info(h, &block, &block_size);
    if (ok && block != nullptr && block_size > 0 && aviout_set_metadata_info(w, block, block_size) != 0) {
        ok = false;
        error = "the writer refused the metadata block";
    }
    std::string menu_path;
    block = nullptr;
    block_size = 0;
    aviin_get_menu_info(h, &block, &block_size);
    // The menu block is the whole "MENU" chunk; the size given is its size field.
    if (ok && block != nullptr && block_size >= 0 && std::memcmp(block, "MENU", 4) == 0) {
        const char *dir = std::getenv("TMPDIR");
        std::string pattern = std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/kelqavi-menu-XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        const int fd = mkstemp(name.data());
        if (fd >= 0) {
            close(fd);
            menu_path = name.data();
        }
        if (menu_path.empty() || !write_menu_list(menu_path, block, block_size + static_cast<int32_t>(chunk_header_size))) {
            ok = false;
            error = "cannot write a temporary file for the menu block";
        }
        w->menu_file_head = menu_path.c_str();
    }
    struct remove_at_end {
        const std::string &p;
        ~remove_at_end() {
            if (!p.empty()) unlink(p.c_str());
        }
    } menu_file{menu_path};
    if (!ok) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }

    // Walks the segment's 'movi' list from where the reader stands.
    std::vector<uint8_t> buffer;
    uint64_t skipped_chunks = 0;
    int exit_code = exit_ok;
    {
        progress_bar progress(("kelqavi: remuxing " + std::string(o.input)).c_str(), "chunks",
                              static_cast<uint64_t>(layout.file_size));
        uint64_t chunks_done = 0;
        auto walk = [&](const riff_form &form) -> bool {
            const int64_t movi_end = form.movi_offset + chunk_header_size + static_cast<int64_t>(form.movi_size);
            int64_t reached = form.movi_offset + list_header_size;
            // Each step passes at least a chunk header, so this bounds a walk the sizes could loop.
            for (int64_t steps = 0; steps <= (layout.file_size / 4) + 2; ++steps) {
                uint32_t type = 0, stream = 0, size = 0;
                uint64_t data_offset = 0;
                const int r = aviin_get_next_chunk_type(h, &type, &stream, &data_offset, &size);
                if (r == 3) return true;
                if (r != 0) {
                    // A list that ends where the file ends gives a failure for its end.
                    if (reached >= movi_end || reached >= layout.file_size) return true;
                    print_error("'%s' is damaged: the chunk walk of the 'movi' list at %lld stops at %lld", o.input,
                                static_cast<long long>(form.movi_offset), static_cast<long long>(reached));
                    exit_code = exit_problems;
                    return false;
                }
                const int64_t data = static_cast<int64_t>(data_offset);
                reached = type == KELQAVI_CHUNK_UNKNOWN ? data : data + static_cast<int64_t>(size) + (size & 1);
                progress.update(static_cast<uint64_t>(reached), ++chunks_done);
                const bool media = type >= KELQAVI_CHUNK_AUDIO && type <= KELQAVI_CHUNK_CHAPTER;
                if (!media) {
                    if (type == KELQAVI_CHUNK_UNKNOWN) ++skipped_chunks;
                    continue;
                }
                if (stream >= routes.size() || routes[stream].out < 0) {
                    ++skipped_chunks;
                    continue;
                }
                stream_route &route = routes[stream];
                if (data + static_cast<int64_t>(size) > layout.file_size) {
                    print_error("'%s' is damaged: the chunk at %lld runs past the end of the file", o.input,
                                static_cast<long long>(data - chunk_header_size));
                    exit_code = exit_problems;
                    return false;
                }
                buffer.resize(size);
                if (size > 0 && aviin_get_chunk(h, data_offset, buffer.data(), size) != 0) {
                    print_error("cannot read the chunk at %lld of '%s'", static_cast<long long>(data - chunk_header_size),
                                o.input);
                    exit_code = exit_bad_input;
                    return false;
                }
                uint32_t flags = 0;
                const auto known = keys.find(data);
                bool key;
                if (known != keys.end())
                    key = known->second;
                else if (type == KELQAVI_CHUNK_VIDEO)
                    key = route.intra || route.chunks_seen == 0;
                else
                    key = true;
                ++route.chunks_seen;
                if (key) flags |= AVIOUT_KEY_FRAME;
                if (type == KELQAVI_CHUNK_VIDEO_DATA) flags |= AVIOUT_FRAME_DATA;
                if (type == KELQAVI_CHUNK_VIDEO_RAW) flags |= AVIOUT_UNCOMPRESSED;
                const int put = out.put(route.out, flags, buffer.data(), size);
                if (put == 4) return false;
                if (put != 0) {
                    print_error("cannot write '%s': %s", o.output, std::ferror(w->file) ? std::strerror(errno) : "the writer failed");
                    exit_code = exit_bad_input;
                    return false;
                }
            }
            print_error("'%s' is damaged: the chunk walk of the 'movi' list at %lld does not end", o.input,
                        static_cast<long long>(form.movi_offset));
            exit_code = exit_problems;
            return false;
        };

        bool going = walk(layout.forms[0]);
        if (going) {
            const segment_list segments = list_segments(h, layout);
            handle_released = segments.handle_released;
            for (const segment &s : segments.listed) {
                if (!going || handle_released) break;
                if (s.form <= 0) continue;
                const riff_form &form = layout.forms[static_cast<size_t>(s.form)];
                if (!form.has_movi || form.menu_form) continue;
                if (aviin_goto_riff(h, swapped_in, s.offset) != 0) {
                    print_error("'%s' is damaged: the reader cannot enter the segment at %lld", o.input,
                                static_cast<long long>(s.offset));
                    exit_code = exit_problems;
                    break;
                }
                going = walk(form);
            }
        }
        progress.finish();
    }
    if (out.size_limit_reached)
        print_error("stopped: '%s' reached the writer's size limit of 0x7F000000 bytes; the file is closed with what "
                    "was written", o.output);
    const bool closed = out.close(error);
    if (exit_code != exit_ok) {
        unlink(o.output);
        return exit_code;
    }
    if (!closed) {
        print_error("%s", error.c_str());
        return exit_bad_input;
    }
    out.skipped_chunks = skipped_chunks;
    out.skipped_streams = skipped_streams;
    out.print_summary(stdout, o.json);
    if (std::fflush(stdout) != 0) {
        print_error("cannot write the output: %s", std::strerror(errno));
        return exit_bad_input;
    }
    return out.size_limit_reached ? exit_bad_input : exit_ok;
}

}  // namespace kelqtool
