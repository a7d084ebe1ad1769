// Checks the library's key-frame table against ffprobe's packets for one
// file: every frame found through the table and aviin_get_video_offset lies
// where ffprobe read that frame, the key frames kept are those ffprobe flags,
// and each key frame's audio chunks are the packets whose time spans cover
// the key frame's time (compared as exact fractions of ffprobe's time bases).
// Usage: key_table_check FILE.avi STREAMS.txt PACKETS.txt
//   STREAMS.txt: ffprobe -show_entries stream=index,codec_type,time_base -of csv=p=0
//   PACKETS.txt: ffprobe -show_entries packet=stream_index,pts,duration,size,pos,flags -of csv=p=0
#include "kelqavi.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

struct packet {
    long long pts, duration, pos, size;
    bool key;
};

struct stream {
    std::string type;
    long long tb_num = 0, tb_den = 1;
    std::vector<packet> packets;
};

// The streams and their packets from ffprobe's csv lines, whose fields come
// in the order shown in the usage. A packet without a position (N/A) was
// not read from the file, and is left out.
std::map<int, stream> read_probe(const char *streams_path, const char *packets_path) {
    std::map<int, stream> out;
    std::ifstream streams(streams_path), packets(packets_path);
    std::string line;
    char type[32], flags[8];
    int n = 0;
    long long num = 0, den = 1;
    while (std::getline(streams, line))
        if (std::sscanf(line.c_str(), "%d,%31[^,],%lld/%lld", &n, type, &num, &den) == 4) out[n] = {type, num, den, {}};
    packet p;
    while (std::getline(packets, line))
        if (std::sscanf(line.c_str(), "%d,%lld,%lld,%lld,%lld,%7s", &n, &p.pts, &p.duration, &p.size, &p.pos, flags) == 6) {
            p.key = flags[0] == 'K';
            out[n].packets.push_back(p);
        }
    return out;
}

int failures = 0;

void fail(const std::string &what) {
    if (++failures <= 20) std::printf("MISMATCH: %s\n", what.c_str());
}

// a / b < c / d for positive b and d.
bool less(__int128 a, __int128 b, __int128 c, __int128 d) { return a * d < c * b; }

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: key_table_check FILE STREAMS PACKETS\n");
        return 2;
    }
    std::map<int, stream> streams = read_probe(argv[2], argv[3]);
    int video = -1;
    std::vector<int> audio;  // stream numbers, in order: the table's audio slots
    for (const auto &s : streams) {
        if (s.second.type == "video" && video < 0) video = s.first;
        if (s.second.type == "audio") audio.push_back(s.first);
    }
    if (video < 0) {
        std::printf("no video stream\n");
        return 1;
    }
    aviin_handle *h = aviin_open(argv[1], 0);
    keyindex_table t;
    keyindex_entry one;
    if (h == nullptr || aviin_init_keyindex(h, &t, &one, 1, static_cast<uint32_t>(video)) != 0) {
        std::printf("the reader refuses %s, or gives it no key-frame table\n", argv[1]);
        return 1;
    }
    std::vector<keyindex_entry> entries(t.entry_total + 1);
    aviin_init_keyindex(h, &t, entries.data(), static_cast<uint32_t>(entries.size()), static_cast<uint32_t>(video));
    int r = 0;
    while ((r = aviin_build_keyindex_entry(h, &t, 0)) == 0) {
    }
    if (r != 3) fail("the build did not complete");

    // Frame N is the packet with pts N: the demuxer numbers frames by their
    // chunks, and skips empty ones, which have no packet.
    const stream &v = streams[video];
    std::map<long long, const packet *> frame_packet;
    for (const packet &p : v.packets) frame_packet[p.pts] = &p;
    size_t checked = 0;
    for (const auto &fp : frame_packet) {
        const int32_t n = static_cast<int32_t>(fp.first);
        keyindex_entry e;
        if (aviin_read_key_table_by_frame_no(h, &t, n, &e, -1) != 0) {
            fail("no key frame at or before frame " + std::to_string(n));
            continue;
        }
        uint64_t header = 0;
        if (aviin_get_video_offset(h, e, static_cast<uint32_t>(video), n, &header) != 0 ||
            static_cast<long long>(header) + 8 != fp.second->pos)
            fail("frame " + std::to_string(n) + ": " + std::to_string(static_cast<long long>(header) + 8) +
                 ", ffprobe " + std::to_string(fp.second->pos));
        ++checked;
    }
    // The key frames kept are the flagged packets.
    std::string kept, flagged;
    for (uint32_t i = 0; i < t.count; ++i) kept += " " + std::to_string(entries[i].frame_no);
    for (const packet &p : v.packets)
        if (p.key) flagged += " " + std::to_string(p.pts);
    if (kept != flagged) fail("key frames" + kept + ", ffprobe" + flagged);

    // Where idx1 offsets count from: the first key frame's header.
    const long long base = t.count == 0 ? 0 : frame_packet[entries[0].frame_no]->pos - 8 - static_cast<long long>(entries[0].video_offset);
    size_t audio_checked = 0;
    for (uint32_t i = 0; i < t.count; ++i) {
        const keyindex_entry &e = entries[i];
        for (size_t slot = 0; slot < audio.size() && slot < KELQAVI_KEY_AUDIO_STREAMS; ++slot) {
            const stream &a = streams[audio[slot]];
            // The packet whose span covers the key frame's time, as exact fractions.
            const __int128 key_num = static_cast<__int128>(e.frame_no) * v.tb_num, key_den = v.tb_den;
            const packet *playing = nullptr;
            for (const packet &p : a.packets)
                if (playing == nullptr && !less(key_num, key_den, static_cast<__int128>(p.pts) * a.tb_num, a.tb_den) &&
                    less(key_num, key_den, static_cast<__int128>(p.pts + p.duration) * a.tb_num, a.tb_den))
                    playing = &p;
            const std::string where = "key frame " + std::to_string(e.frame_no) + ", audio stream " + std::to_string(audio[slot]);
            if (playing == nullptr) {
                if (e.audio_offset[slot] != KELQAVI_NOT_FOUND) fail(where + ": ffprobe has no packet playing then");
                continue;
            }
            const long long ours = e.audio_offset[slot] == KELQAVI_NOT_FOUND ? -1 : base + static_cast<long long>(e.audio_offset[slot]) + 8;
            if (ours != playing->pos)
                fail(where + ": chunk data at " + std::to_string(ours) + ", ffprobe " + std::to_string(playing->pos));
            ++audio_checked;
        }
    }
    aviin_close(h);
    std::printf("%zu frames found through %u key frames; %zu audio positions at key frames checked\n", checked, t.count,
                audio_checked);
    return failures == 0 ? 0 : 1;
}
