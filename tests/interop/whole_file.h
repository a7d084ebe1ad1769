/* A whole file read into a block the caller frees: its size, or -1. Shared
 * by the recorders of the interop tests. */
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

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
