/* A recorder that dies: MJPEG frames (the given JPEG files in turn) at 25
 * frames a second with a 16 kHz PCM tone, automatic checkpoints, and a
 * SIGKILL of its own after a number of frames, before anything is closed.
 * Usage: checkpoint_recorder OUT ODML CHECKPOINT_SECONDS FRAMES JPEG... */
#include <signal.h>

#include "recorder.h"

static aviout_handle *open_recorder(const char *path, uint32_t odml, double seconds, int32_t *video, int32_t *audio) {
    aviout_handle *w = aviout_open(path, odml, 0);
    video_stream_format v;
    audio_stream_format a;
    double frame = 0.04;
    if (w == NULL) return NULL;
    w->index_chunk_seconds = 60.0;
    w->checkpoint_seconds = seconds;
    set_video(&v, "MJPG");
    set_audio(&a, NULL);
    if (aviout_set_video_format(w, video, &v, &frame) != 0 || aviout_set_audio_format(w, audio, &a, &frame) != 0) {
        aviout_close(w);
        return NULL;
    }
    return w;
}

int main(int argc, char **argv) {
    uint8_t tone[1280];
    int32_t video, audio;
    aviout_handle *w;
    int frames, f, i;
    if (argc < 6) {
        fprintf(stderr, "usage: %s OUT ODML CHECKPOINT_SECONDS FRAMES JPEG...\n", argv[0]);
        return 2;
    }
    w = open_recorder(argv[1], (uint32_t)atoi(argv[2]), atof(argv[3]), &video, &audio);
    if (w == NULL) return 1;
    for (i = 0; i < (int)sizeof tone; i += 2) {
        tone[i] = 0;
        tone[i + 1] = (uint8_t)((i / 2) % 40 < 20 ? 0x20 : 0xE0);
    }
    frames = atoi(argv[4]);
    for (f = 0; f < frames; ++f) {
        uint8_t *jpeg = NULL;
        const long size = read_file(argv[5 + f % (argc - 5)], &jpeg);
        if (size < 0 || aviout_put_chunk(w, video, AVIOUT_KEY_FRAME, jpeg, (uint32_t)size) != 0 ||
            aviout_put_chunk(w, audio, 0, tone, sizeof tone) != 0)
            return 1;
        free(jpeg);
    }
    raise(SIGKILL);
    return 1;
}
