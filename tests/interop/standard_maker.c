/* Writes an AVI from real payloads through the public C API: video frames
 * cut from an MJPEG stream (at each FF D8 FF) or an MPEG-4 part 2 stream (at
 * each VOP start code, the stream headers kept with the first frame), two
 * PCM audio streams of 16 kHz mono 16-bit samples cut 1280 bytes a frame, a
 * text caption every 10 frames and a chapter at the start, with automatic
 * checkpoints. Prints "STREAM CHUNKS" for every stream to stdout.
 * Usage: standard_maker OUT PROFILE ODML CODEC VIDEO PCM [KILL_AFTER [CHECKPOINT_SECONDS]]
 *   PROFILE the writer's standard_profile, ODML 0 or 1, CODEC MJPG or XVID;
 *   with KILL_AFTER the maker kills itself (SIGKILL) after that many frames,
 *   unclosed, as a recorder that dies; checkpoints every half second unless
 *   CHECKPOINT_SECONDS says otherwise. */
#include <signal.h>

#include "recorder.h"

enum { audio_bytes = 1280, max_streams = 5 };

/* Where the frame that starts at or after `from` begins, or size. */
static long next_frame(const uint8_t *b, long size, long from, int xvid) {
    long i;
    for (i = from; i + 3 < size; ++i) {
        if (!xvid && b[i] == 0xFF && b[i + 1] == 0xD8 && b[i + 2] == 0xFF) return i;
        if (xvid && b[i] == 0 && b[i + 1] == 0 && b[i + 2] == 1 && b[i + 3] == 0xB6) return i;
    }
    return size;
}

static void set_caption(caption_stream_format *c, const char *name) {
    *c = (caption_stream_format){.name_length = (int32_t)strlen(name), .name = (char *)name};
}

static aviout_handle *open_writer(char **argv, int argc) {
    aviout_handle *w = aviout_open(argv[1], (uint32_t)atoi(argv[3]), 0);
    video_stream_format v;
    audio_stream_format a1, a2;
    caption_stream_format text, chapter;
    double frame = 0.04;
    int32_t s;
    if (w == NULL) return NULL;
    w->standard_profile = (uint32_t)atoi(argv[2]);
    w->index_chunk_seconds = 2.0; /* an ix## chunk about every second */
    w->checkpoint_seconds = argc == 9 ? atof(argv[8]) : 0.5;
    set_video(&v, argv[4]);
    set_audio(&a1, "Main");
    set_audio(&a2, "Commentary");
    set_caption(&text, "Subtitle");
    set_caption(&chapter, "Chapter");
    if (aviout_set_video_format(w, &s, &v, &frame) != 0 || aviout_set_audio_format(w, &s, &a1, &frame) != 0 ||
        aviout_set_audio_format(w, &s, &a2, &frame) != 0 || aviout_set_text_caption_format(w, &s, &text) != 0 ||
        aviout_set_chapter_format(w, &s, &chapter) != 0) {
        aviout_close(w);
        return NULL;
    }
    return w;
}

static int put(aviout_handle *w, int32_t stream, uint32_t flags, const uint8_t *data, long size, unsigned *counts) {
    ++counts[stream];
    return aviout_put_chunk(w, stream, flags, data, (uint32_t)size);
}

int main(int argc, char **argv) {
    uint8_t *video = NULL, *pcm = NULL;
    unsigned counts[max_streams] = {0};
    long vsize, psize, at, next, frame = 0;
    int xvid, failed = 0, s;
    aviout_handle *w;
    if (argc < 7 || argc > 9) {
        fprintf(stderr, "usage: %s OUT PROFILE ODML CODEC VIDEO PCM [KILL_AFTER [CHECKPOINT_SECONDS]]\n", argv[0]);
        return 2;
    }
    xvid = strcmp(argv[4], "XVID") == 0;
    vsize = read_file(argv[5], &video);
    psize = read_file(argv[6], &pcm);
    w = open_writer(argv, argc);
    if (vsize < 0 || psize < 0 || w == NULL) return 1;
    failed |= put(w, 4, 0, (const uint8_t *)"Opening", 7, counts);
    for (at = 0; at < vsize; at = next, ++frame) {
        /* The first MPEG-4 frame carries the stream headers before its VOP. */
        next = next_frame(video, vsize, next_frame(video, vsize, at, xvid) + 4, xvid);
        /* An MPEG-4 intra VOP has coding type 0 in the byte after its start code. */
        const long vop = next_frame(video, vsize, at, xvid);
        const int key = !xvid || (vop + 4 < vsize && (video[vop + 4] >> 6) == 0);
        failed |= put(w, 0, key ? AVIOUT_KEY_FRAME : 0, video + at, next - at, counts);
        if ((frame + 1) * audio_bytes <= psize) {
            failed |= put(w, 1, AVIOUT_KEY_FRAME, pcm + frame * audio_bytes, audio_bytes, counts);
            failed |= put(w, 2, AVIOUT_KEY_FRAME, pcm + frame * audio_bytes, audio_bytes, counts);
        }
        if (frame % 10 == 0) failed |= put(w, 3, 0, (const uint8_t *)"Caption text", 12, counts);
        if (argc >= 8 && frame + 1 == atol(argv[7])) raise(SIGKILL);
    }
    failed |= aviout_close2(w);
    for (s = 0; s < max_streams; ++s) printf("%d %u\n", s, counts[s]);
    free(video);
    free(pcm);
    return failed != 0 ? 1 : 0;
}
