#include "sample_file.h"

#include "kelqavi.h"

#include <cerrno>
#include <cstring>

namespace kelqtool {

namespace {

constexpr uint32_t frames_per_second = 5;
constexpr int32_t width = 64;
constexpr int32_t height = 48;
constexpr uint32_t audio_rate = 8000;

// What the frame and audio chunks hold: a token JPEG frame (start and end
// markers around a text) and eleven samples of 8-bit PCM, one period of a
// sine. Eleven bytes is an odd size, so the chunk gets a pad byte.
constexpr uint8_t frame_bytes[] = {0xFF, 0xD8, 'k', 'e', 'l', 'q', 'a', 'v', 'i', ' ', 's', 'a',
                                   'm',  'p',  'l', 'e', ' ', 'f', 'r', 'a', 'm', 'e', 0xFF, 0xD9};
constexpr uint8_t audio_bytes[] = {128, 199, 245, 250, 212, 147, 80, 23, 6, 40, 109};
constexpr uint8_t opaque_block[] = {'K', 'Q', 0x01, 0x00, 0x2A, 0x00};

// Legacy index flags.
constexpr uint32_t index_key_frame = 0x10;
constexpr uint32_t main_has_index = 0x10;
constexpr uint32_t main_is_interleaved = 0x100;

void write_main_header(FILE *out, uint32_t *status) {
    avi_main_header avih{};
    avih.micro_sec_per_frame = 1000000 / frames_per_second;
    avih.max_bytes_per_sec = sizeof frame_bytes * frames_per_second + audio_rate;
    avih.flags = main_has_index | main_is_interleaved;
    avih.total_frames = 1;
    avih.streams = 2;
    avih.suggested_buffer_size = sizeof frame_bytes;
    avih.width = width;
    avih.height = height;
    if (write_header_avih(&avih, out) < 0) *status |= 1;
}

void write_video_stream(FILE *out, uint32_t *status) {
    const int64_t strl = write_list_header(make_fourCC("strl"), out, status);

    avi_stream_header strh{};
    strh.type = make_fourCC("vids");
    strh.handler = make_fourCC("MJPG");
    strh.scale = 1;
    strh.rate = frames_per_second;
    strh.length = 1;
    strh.suggested_buffer_size = sizeof frame_bytes;
    strh.quality = 0xFFFFFFFFu;
    strh.frame_right = static_cast<int16_t>(width);
    strh.frame_bottom = static_cast<int16_t>(height);
    *status |= static_cast<uint32_t>(write_header_strh(&strh, out));

    video_format strf{};
    strf.size = 40;
    strf.width = width;
    strf.height = height;
    strf.planes = 1;
    strf.bit_count = 24;
    strf.compression = make_fourCC("MJPG");
    strf.size_image = static_cast<uint32_t>(width * height * 3);
    *status |= static_cast<uint32_t>(write_header_strf_video(&strf, out));

    // Nine characters: the writer adds a zero byte to make the size even.
    char name_text[] = "Test card";
    const stream_name strn{static_cast<int16_t>(std::strlen(name_text)), name_text};
    *status |= static_cast<uint32_t>(write_header_strn(&strn, out));

    uint8_t block[sizeof opaque_block];
    std::memcpy(block, opaque_block, sizeof block);
    const stream_data_block strd{0, sizeof block, block, 0};
    *status |= static_cast<uint32_t>(write_header_strd_video(&strd, out));

    chunk_end(strl, out, status);
}

void write_audio_stream(FILE *out, uint32_t *status) {
    const int64_t strl = write_list_header(make_fourCC("strl"), out, status);

    avi_stream_header strh{};
    strh.type = make_fourCC("auds");
    strh.scale = 1;
    strh.rate = audio_rate;
    strh.length = sizeof audio_bytes;
    strh.suggested_buffer_size = sizeof audio_bytes;
    strh.quality = 0xFFFFFFFFu;
    strh.sample_size = 1;
    *status |= static_cast<uint32_t>(write_header_strh(&strh, out));

    audio_format strf{};
    strf.format_tag = 1;  // PCM
    strf.channels = 1;
    strf.samples_per_sec = audio_rate;
    strf.avg_bytes_per_sec = audio_rate;
    strf.block_align = 1;
    strf.bits_per_sample = 8;
    *status |= static_cast<uint32_t>(write_header_strf_audio(&strf, out));

    char name_text[] = "Tone";
    const stream_name strn{static_cast<int16_t>(std::strlen(name_text)), name_text};
    *status |= static_cast<uint32_t>(write_header_strn(&strn, out));

    chunk_end(strl, out, status);
}

// One legacy index entry: chunk id, flags, offset from the 'movi' list type,
// size.
void put_index_entry(uint8_t *entry, uint32_t id, uint32_t flags, uint32_t offset, uint32_t size) {
    long2str(id, entry);
    long2str(flags, entry + 4);
    long2str(offset, entry + 8);
    long2str(size, entry + 12);
}

void write_movie_and_index(FILE *out, uint32_t *status) {
    const int64_t movi = write_list_header(make_fourCC("movi"), out, status);
    // Index offsets count from the list type, which sits just after the size field.
    const int64_t movi_type = movi + 4;

    const uint32_t video_id = create_fourCC(0, KELQAVI_CHUNK_VIDEO, 0);
    const uint32_t audio_id = create_fourCC(1, KELQAVI_CHUNK_AUDIO, 0);
    const int64_t video_at = file_tell(out);
    data_chunk(video_id, frame_bytes, sizeof frame_bytes, out, status);
    const int64_t audio_at = file_tell(out);
    data_chunk(audio_id, audio_bytes, sizeof audio_bytes, out, status);
    chunk_end(movi, out, status);

    uint8_t index[2 * 16];
    put_index_entry(index, video_id, index_key_frame, static_cast<uint32_t>(video_at - movi_type), sizeof frame_bytes);
    put_index_entry(index + 16, audio_id, index_key_frame, static_cast<uint32_t>(audio_at - movi_type),
                    sizeof audio_bytes);
    data_chunk(make_fourCC("idx1"), index, sizeof index, out, status);
}

}  // namespace

FILE *write_sample_file(std::string &error) {
    FILE *out = std::tmpfile();
    if (out == nullptr) {
        error = std::string("cannot create a temporary file: ") + std::strerror(errno);
        return nullptr;
    }
    uint32_t status = 0;
    const int64_t riff = write_RIFF_form_header(make_fourCC("AVI "), out, &status);
    const int64_t hdrl = write_list_header(make_fourCC("hdrl"), out, &status);
    write_main_header(out, &status);
    write_video_stream(out, &status);
    write_audio_stream(out, &status);
    chunk_end(hdrl, out, &status);
    // The data starts on a 2048-byte boundary, as a recorder's would.
    junk_pad(2048, out, &status);
    write_movie_and_index(out, &status);
    chunk_end(riff, out, &status);
    status |= static_cast<uint32_t>(std::fflush(out) != 0) | static_cast<uint32_t>(file_seek(out, 0, 0));
    if (status != 0) {
        error = "cannot write the built-in sample to a temporary file";
        file_close(out);
        return nullptr;
    }
    return out;
}

}  // namespace kelqtool
