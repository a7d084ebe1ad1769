/* What the recorders of the interop tests share: a whole file read into
 * memory, and the stream formats they write (video at 25 frames a second,
 * 160x120; 16 kHz mono 16-bit PCM). */
#pragma once

#include <kelqavi.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The file read into a block the caller frees: its size, or -1. */
static long read_file(const char *path, uint8_t **data) {
    FILE *f = fopen(path, "rb");
    long size = -1;
    if (f == NULL) return -1;
    if (fseek(f, 0, SEEK_END) == 0) size = ftell(f);
    rewind(f);
    *data = size > 0 ? malloc((size_t)size) : NULL;
    if (*data == NULL || fread(*data, 1, (size_t)size, f) != (size_t)size) size = -1;
    fclose(f);
    return size;
}

static void set_video(video_stream_format *v, const char *codec) {
    *v = (video_stream_format){.rate = 25, .scale = 1, .width = 160, .height = 120, .quality = 10000};
    memcpy(v->handler, codec, 4);
    memcpy(v->compression, codec, 4);
}

/* NAME may be NULL: no strn chunk. */
static void set_audio(audio_stream_format *a, const char *name) {
    *a = (audio_stream_format){.rate = 32000, .scale = 2, .sample_size = 2, .name = (char *)name,
                               .wave_format = {.format_tag = 1, .channels = 1, .samples_per_sec = 16000,
                                               .avg_bytes_per_sec = 32000, .block_align = 2, .bits_per_sample = 16}};
    a->name_length = name == NULL ? 0 : (int32_t)strlen(name);
}
