/*
 * kelqavi: reading and writing AVI files on small devices.
 *
 * This header is valid C99 and C++. It declares every exported call and public
 * record of the library. All multi-byte values in a file are little-endian;
 * the library converts them byte by byte, whatever the host's byte order.
 *
 * Status results: 0 success, 1 failure, 3 end of data, 4 size guard. Most
 * calls are meant to be ORed into one status word and tested once.
 *
 * Calls that take a stream accept a null stream and report failure instead of
 * crashing; calls that take a destination accept a null destination where the
 * comment says so.
 */
#ifndef KELQAVI_H
#define KELQAVI_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__) || defined(__clang__)
#define KELQAVI_API __attribute__((visibility("default")))
#else
#define KELQAVI_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * File access. Thin wrappers over stdio's 64-bit calls.
 * ------------------------------------------------------------------------ */

/* Opens path in mode 0 "rb", 1 "wb", 2 "rt", 3 "wt" or 4 "r+b" (mode 4 leaves
 * the stream at the end of the file). Null on failure or for any other mode. */
KELQAVI_API FILE *file_open(const char *path, int mode);
/* 0, or 1 when closing fails or the stream is null. */
KELQAVI_API int file_close(FILE *stream);
/* Number of bytes actually read / written. */
KELQAVI_API size_t file_read(FILE *stream, void *dst, size_t count);
KELQAVI_API size_t file_write(FILE *stream, const void *src, size_t count);
/* origin 0 from start, 1 from current position, 2 from end. 1 when the
 * origin is not one of these (the stream does not move) or the seek fails. */
KELQAVI_API int file_seek(FILE *stream, int64_t offset, int origin);
/* Current position; negative on failure. */
KELQAVI_API int64_t file_tell(FILE *stream);
/* 1 at end of file (or for a null stream), else 0. */
KELQAVI_API int file_eof(FILE *stream);
/* 0 when the stream has no error flag; otherwise prints "file error" with the
 * system's error text on stderr and returns 1. A null stream gives 1 and
 * prints nothing. */
KELQAVI_API int file_error(FILE *stream);

/* ------------------------------------------------------------------------
 * Little-endian values.
 * A read fails (1) only when no byte at all could be read; then the
 * destination is left untouched. A short read at the end of the file succeeds
 * (0) with the missing high bytes taken as zero. A null destination reads and
 * discards the value. A write succeeds (0) only when every byte was written.
 * ------------------------------------------------------------------------ */

KELQAVI_API int read_val8(uint8_t *dst, FILE *stream);
KELQAVI_API int read_val16(uint16_t *dst, FILE *stream);
KELQAVI_API int read_val32(uint32_t *dst, FILE *stream);
KELQAVI_API int read_val64(uint64_t *dst, FILE *stream);
KELQAVI_API int write_val8(uint32_t value, FILE *stream);
KELQAVI_API int write_val16(uint32_t value, FILE *stream);
KELQAVI_API int write_val32(uint32_t value, FILE *stream);
KELQAVI_API int write_val64(uint64_t value, FILE *stream);

/* Memory buffers of 2, 4 and 8 bytes, least significant byte first. */
KELQAVI_API uint16_t str2short(const uint8_t *bytes);
KELQAVI_API uint32_t str2long(const uint8_t *bytes);
KELQAVI_API uint64_t str2longlong(const uint8_t *bytes);
KELQAVI_API void short2str(uint16_t value, uint8_t *bytes);
KELQAVI_API void long2str(uint32_t value, uint8_t *bytes);
KELQAVI_API void longlong2str(uint64_t value, uint8_t *bytes);

/* ------------------------------------------------------------------------
 * FourCC codes and chunk ids.
 * A FourCC's least significant byte is its first character.
 * ------------------------------------------------------------------------ */

/* Chunk type codes of get_chunk_type; the stream kinds use the same numbers. */
enum {
    KELQAVI_CHUNK_UNKNOWN = 0,
    KELQAVI_CHUNK_AUDIO = 1,            /* "wb" */
    KELQAVI_CHUNK_VIDEO_RAW = 2,        /* "db" */
    KELQAVI_CHUNK_VIDEO = 3,            /* "dc" */
    KELQAVI_CHUNK_VIDEO_DATA = 4,       /* "dd" */
    KELQAVI_CHUNK_TEXT_CAPTION = 5,     /* "st" */
    KELQAVI_CHUNK_BITMAP_CAPTION = 6,   /* "sb" */
    KELQAVI_CHUNK_CHAPTER = 7,          /* "ch" */
    KELQAVI_CHUNK_INDEX = 8,            /* "ix" */
    KELQAVI_CHUNK_JUNK = 10,
    KELQAVI_CHUNK_RESERVED = 11         /* RES1, RES2, RES3 */
};

/* The first four characters of text, least significant byte first. Reading
 * stops at a NUL, so a shorter text fills the rest with zero bytes; a null
 * text gives 0. */
KELQAVI_API uint32_t make_fourCC(const char *text);
/* Writes the four characters and a NUL: text must hold 5 bytes. */
KELQAVI_API void fourCC_to_str(uint32_t code, char *text);
/* 1 when equal ignoring ASCII case (a NUL ends the comparison), else 0. */
KELQAVI_API int fourCC_equal(uint32_t a, uint32_t b);
/* Exactly read_val32 / write_val32. */
KELQAVI_API int read_fourCC(uint32_t *dst, FILE *stream);
KELQAVI_API int write_fourCC(uint32_t code, FILE *stream);
/* Data chunk id for a stream number and a type code 1..8: "01wb", or "wb01"
 * when swapped is non-zero. 0 for any other type code. Stream numbers above
 * 99 keep only the first four characters of their text. */
KELQAVI_API uint32_t create_fourCC(int32_t stream_number, int32_t type_code, uint32_t swapped);
/* Type code of a chunk id (see the enum above); with swapped set, an id not
 * recognised as it stands is tried again with its two character pairs
 * exchanged. */
KELQAVI_API int32_t get_chunk_type(uint32_t code, uint32_t swapped);
/* Stream number of a chunk id: the two digits after "ix" (taken as digits
 * whatever they are), else two leading decimal digits, else 0xFFFFFFFF. */
KELQAVI_API uint32_t fourCC_streamID(uint32_t code, uint32_t swapped);

/* ------------------------------------------------------------------------
 * Chunk list navigation. One node per RIFF form or LIST entered.
 * ------------------------------------------------------------------------ */

typedef struct list_node {
    struct list_node *parent; /* enclosing list; null for the outermost */
    FILE *stream;
    int64_t start;            /* position of the list's chunk header */
    uint64_t size;            /* size field as read: list type plus contents */
    int64_t next_pos;         /* header of the next chunk to visit */
    uint32_t id;              /* "RIFF" or "LIST" */
    uint32_t type;            /* "AVI ", "hdrl", "movi", ... */
    uint32_t status;          /* OR of every I/O result on this node */
    uint32_t depth;           /* 1 without parent, else parent's + 1 */
} list_node;

/* Enters the list whose header is at the stream's position. Null when the
 * allocation or any of the three header reads fails, or the stream is null. */
KELQAVI_API list_node *new_list(list_node *parent, FILE *stream);
/* Id of the chunk at the cursor; leaves the stream at that chunk's header and
 * moves the cursor past the chunk and its pad byte. Does not check that the
 * chunk lies inside the list. 0 for a null node. */
KELQAVI_API uint32_t next_chunk_in_list(list_node *node);
/* 1 when the stream's position is at or beyond start + size (so up to 8 bytes
 * of the list may remain), else 0. Also 1 for a null node or when the
 * position cannot be had, so that loops over a list always end. */
KELQAVI_API int end_of_list(list_node *node);
/* Seeks to start + size + 8, the first byte after the list. 1 for a null node. */
KELQAVI_API int skip_list(list_node *node);
/* Frees the node and returns its parent; null gives null. */
KELQAVI_API list_node *ascend_list(list_node *node);
/* Frees the node and all its ancestors; null does nothing. */
KELQAVI_API void delete_list_recursive(list_node *node);
/* Reads an id, a size and a list type, ORs the three read results into
 * *status, then seeks back 12 bytes from where reading stopped (so within 12
 * bytes of the file's end the stream does not return to where it began).
 * Returns the status of that seek. Null destinations discard the value. */
KELQAVI_API int chunk_look_ahead(FILE *stream, uint32_t *id, uint32_t *size, uint32_t *type,
                                 uint32_t *status);

/* ------------------------------------------------------------------------
 * Chunk writing with size back-patching.
 * Each call ORs its I/O results into the caller's *status (a null status
 * pointer is treated as a word the caller does not look at).
 * ------------------------------------------------------------------------ */

/* Position of the size field of a chunk whose id is written next
 * (current position + 4). Sets *status to 1 when the position is unknown. */
KELQAVI_API int64_t chunk_start(FILE *stream, uint32_t *status);
/* Patches the size at size_pos to the bytes written after it and returns to
 * where the stream was. No pad byte. Does nothing for a null stream. */
KELQAVI_API void chunk_end(int64_t size_pos, FILE *stream, uint32_t *status);
/* Writes "LIST", a placeholder size and the list type; returns the size
 * field's position. Writes nothing and returns -1 when *status is already
 * non-zero. */
KELQAVI_API int64_t write_list_header(uint32_t list_type, FILE *stream, uint32_t *status);
/* Writes "RIFF", a placeholder size and the form type, whatever *status is. */
KELQAVI_API int64_t write_RIFF_form_header(uint32_t form_type, FILE *stream, uint32_t *status);
/* Writes a whole chunk: id, size, data and a zero pad byte after an odd size.
 * Returns *status. Null data with a non-zero size writes nothing and sets
 * status 1. */
KELQAVI_API uint32_t data_chunk(uint32_t id, const void *data, uint32_t size, FILE *stream,
                                uint32_t *status);
/* Writes a "JUNK" chunk whose end falls on a multiple of alignment (a whole
 * alignment of filler when already there). Does nothing when *status is
 * non-zero; an alignment below 1 writes nothing and sets status 1. */
KELQAVI_API void junk_pad(int64_t alignment, FILE *stream, uint32_t *status);
/* n rounded away from zero to even: 7 gives 8, -3 gives -4. */
KELQAVI_API int64_t padEven(int64_t n);

/* ------------------------------------------------------------------------
 * Header records.
 * ------------------------------------------------------------------------ */

typedef struct avi_main_header {      /* the fourteen avih values, in file order */
    uint32_t micro_sec_per_frame, max_bytes_per_sec, padding_granularity, flags,
             total_frames, initial_frames, streams, suggested_buffer_size,
             width, height, reserved[4];
} avi_main_header;

typedef struct avi_stream_header {
    uint32_t owner;                   /* the record owner's word; never read or written */
    uint32_t type, handler, flags;
    uint16_t priority, language;
    uint32_t initial_frames, scale, rate, start, length, suggested_buffer_size, quality,
             sample_size;
    int16_t frame_left, frame_top, frame_right, frame_bottom;
} avi_stream_header;

typedef struct video_format {         /* the 40-byte bitmap information header */
    uint32_t size;
    int32_t width, height;
    uint16_t planes, bit_count;
    uint32_t compression, size_image;
    int32_t x_pels_per_meter, y_pels_per_meter;
    uint32_t clr_used, clr_important;
} video_format;

typedef struct audio_format {         /* 40 bytes */
    uint16_t format_tag, channels;
    uint32_t samples_per_sec, avg_bytes_per_sec;
    uint16_t block_align, bits_per_sample, cb_size;
    uint8_t extra[22];
} audio_format;

typedef struct caption_format { uint16_t value[4]; } caption_format;    /* memory order 0..3 */
typedef struct stream_name { int16_t length; char *name; } stream_name;
typedef struct stream_data_block {
    uint32_t header; uint32_t size; uint8_t *data; uint32_t position;
} stream_data_block;
typedef struct mp3_format_extra {
    uint16_t id; uint32_t flags; uint16_t block_size, frames_per_block, codec_delay;
} mp3_format_extra;

/* Readers take the stream at the chunk's id and read the whole record before
 * reporting; a null record gives 1 and reads nothing. Writers give 1 and
 * write nothing for a null record unless said otherwise. */

/* 1 when a read failed, the id is not "avih" or the size is below 56; a
 * larger size is skipped by a seek. */
KELQAVI_API int read_header_avih(avi_main_header *record, FILE *stream);
/* Low 32 bits of the position of the chunk's size field, or -1 when a write
 * failed. */
KELQAVI_API int32_t write_header_avih(const avi_main_header *record, FILE *stream);
/* As read_header_avih for "strh"; bytes beyond 56 are read and dropped.
 * The record's owner word is left alone. */
KELQAVI_API int read_header_strh(avi_stream_header *record, FILE *stream);
KELQAVI_API int write_header_strh(const avi_stream_header *record, FILE *stream);

/* 1 when a read failed or the chunk size differs from the record's size
 * field (so a format with trailing bytes is reported). */
KELQAVI_API int read_header_strf_video(video_format *record, FILE *stream);
/* A size of 16 or less gives cb_size 0; a cb_size from 1 to 22 has its extra
 * bytes read, any other is kept as read with no extra bytes read. */
KELQAVI_API int read_header_strf_audio(audio_format *record, FILE *stream);
/* The four values are stored on disk in the order 0, 1, 3, 2. */
KELQAVI_API int read_header_strf_chapter(caption_format *record, FILE *stream);
KELQAVI_API int read_header_strf_text_caption(caption_format *record, FILE *stream);
KELQAVI_API int write_header_strf_video(const video_format *record, FILE *stream);
/* Size 18 + cb_size, extra bytes and a pad byte after an odd cb_size. A
 * cb_size above 22 (more than the record holds) writes nothing and gives 1. */
KELQAVI_API int write_header_strf_audio(const audio_format *record, FILE *stream);
/* write_header_strf_text_caption is the same function as
 * write_header_strf_chapter. */
KELQAVI_API int write_header_strf_chapter(const caption_format *record, FILE *stream);
KELQAVI_API int write_header_strf_text_caption(const caption_format *record, FILE *stream);

/* 1 at once when the id is not "strn". Frees the name the record holds, then
 * reads a name whose length is the low 16 bits of the size, taken as signed,
 * into a fresh block of length + 1 bytes (NUL-terminated). When that block
 * cannot be had, or the length is negative, the name is null and the result
 * is still 0. record->name must be null or a block from malloc. */
KELQAVI_API int read_header_strn(stream_name *record, FILE *stream);
/* Size is the length rounded up to even; a zero byte follows an odd length.
 * A negative length, or a null name with a positive length, writes nothing
 * and gives 1. */
KELQAVI_API int write_header_strn(const stream_name *record, FILE *stream);
/* 1 at once when the id is not "strd". Reads the header word and the data
 * size and allocates the data; when the allocation fails the data is null and
 * the result is 0. A data size larger than the bytes left in the file is not
 * allocated: the data is null, the stream goes to the end of the file and the
 * result is 1. The previous data pointer is overwritten, not freed. */
KELQAVI_API int read_header_strd_video(stream_data_block *record, FILE *stream);
/* Size is data size + 8; no pad byte. A null record writes nothing and gives
 * 0; null data with a non-zero size writes nothing and gives 1. */
KELQAVI_API int write_header_strd_video(const stream_data_block *record, FILE *stream);
/* Fills the 12 extra bytes of an MPEG layer-3 audio format. */
KELQAVI_API void strf_mp3_extra_to_buffer(const mp3_format_extra *source, uint8_t *buffer);

/* ------------------------------------------------------------------------
 * Stream-format records handed out by the reader and taken by the writer.
 * ------------------------------------------------------------------------ */

typedef struct video_stream_format {  /* also bitmap subtitles; 68 bytes on 32-bit targets */
    uint32_t rate, scale;
    int32_t width, height;
    char handler[4], compression[4];
    uint32_t reserved0;
    uint32_t strd_present, strd_header, quality;
    int32_t strd_size;
    uint32_t strd_position;
    uint8_t *strd_data;
    int32_t name_length;
    char *name;
    uint32_t reserved1[2];
} video_stream_format;

typedef struct audio_stream_format {  /* 92 bytes on 32-bit targets */
    uint32_t initial_frames, scale, rate, start, sample_size;
    audio_format wave_format;
    uint32_t reserved0[4];
    int32_t name_length;
    char *name;
    uint32_t reserved1[2];
} audio_stream_format;

typedef struct caption_stream_format { /* text subtitles and chapters; 16 bytes on 32-bit targets */
    caption_format format;
    int32_t name_length;
    char *name;
} caption_stream_format;

#ifdef __cplusplus
}
#endif

#endif /* KELQAVI_H */
