/* A plain C99 program that uses the library through its public header only:
 * it writes a small RIFF file with the chunk and header-record writers and
 * walks its lists back with the list calls. Built in-tree and against an installed
 * copy of the library. Exit 0 when every check holds. */
#include <kelqavi.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "c99 consumer: %s\n", what);
        failures++;
    }
}

static void write_sample(FILE *f) {
    uint32_t status = 0;
    avi_main_header main_header = {.micro_sec_per_frame = 40000, .streams = 1, .width = 320, .height = 240};
    video_format video = {.size = 40, .width = 320, .height = -240};
    stream_name name = {5, (char *)"Video"};
    const uint8_t frame[5] = {1, 2, 3, 4, 5};
    int64_t riff = write_RIFF_form_header(make_fourCC("AVI "), f, &status), hdrl, movi;

    video.compression = make_fourCC("MJPG");
    hdrl = write_list_header(make_fourCC("hdrl"), f, &status);
    check(write_header_avih(&main_header, f) == 28, "avih size field at offset 28");
    status |= (uint32_t)write_header_strf_video(&video, f) | (uint32_t)write_header_strn(&name, f);
    chunk_end(hdrl, f, &status);
    junk_pad(2048, f, &status);
    check(file_tell(f) == 2048, "JUNK ends on the 2048-byte boundary");
    movi = write_list_header(make_fourCC("movi"), f, &status);
    data_chunk(create_fourCC(0, KELQAVI_CHUNK_VIDEO, 0), frame, sizeof frame, f, &status);
    chunk_end(movi, f, &status);
    chunk_end(riff, f, &status);
    check(status == 0, "writing the sample");
}

static void read_sample(FILE *f) {
    list_node *riff, *movi;
    char text[5];

    check(file_seek(f, 0, 0) == 0, "rewind");
    riff = new_list(NULL, f);
    check(riff != NULL && fourCC_equal(riff->type, make_fourCC("avi ")), "RIFF 'AVI ' form");
    if (riff == NULL) return;
    check(riff->size == 2048 + 12 + 14 - 8, "patched RIFF size");
    check(fourCC_equal(next_chunk_in_list(riff), make_fourCC("LIST")), "hdrl list first");
    fourCC_to_str(next_chunk_in_list(riff), text);
    check(strcmp(text, "JUNK") == 0 && get_chunk_type(make_fourCC(text), 0) == KELQAVI_CHUNK_JUNK, "JUNK filler");
    next_chunk_in_list(riff);
    movi = new_list(riff, f);
    check(movi != NULL && fourCC_equal(movi->type, make_fourCC("movi")), "movi list");
    if (movi != NULL) {
        const uint32_t id = next_chunk_in_list(movi);
        check(get_chunk_type(id, 0) == KELQAVI_CHUNK_VIDEO && fourCC_streamID(id, 0) == 0, "00dc chunk");
        check(movi->next_pos == 2048 + 12 + 14, "pad byte skipped");
    }
    delete_list_recursive(movi != NULL ? movi : riff);
}

int main(void) {
    FILE *f = tmpfile();
    if (f == NULL) return 1;
    write_sample(f);
    read_sample(f);
    file_close(f);
    if (failures == 0) printf("c99 consumer: all checks passed\n");
    return failures == 0 ? 0 : 1;
}
