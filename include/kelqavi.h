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
 * is still 0. A length larger than the whole file (or a stream that cannot
 * tell) is not allocated: the name is null, the stream goes to the end of
 * the file and the result is 1; a name cut off by the end of the file keeps
 * the bytes that are there, with result 1. record->name must be null or a
 * block from malloc. */
KELQAVI_API int read_header_strn(stream_name *record, FILE *stream);
/* Size is the length rounded up to even; a zero byte follows an odd length.
 * A negative length, or a null name with a positive length, writes nothing
 * and gives 1. */
KELQAVI_API int write_header_strn(const stream_name *record, FILE *stream);
/* 1 at once when the id is not "strd". Reads the header word and the data
 * size and allocates the data; when the allocation fails the data is null and
 * the result is 0. Data cut off by the end of the file keeps the bytes read
 * (the rest of the block is zero) and gives 1. A data size larger than the
 * whole file is not allocated: the data is null, the stream goes to the end
 * of the file and the result is 1. The previous data pointer is overwritten,
 * not freed. */
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

/* ------------------------------------------------------------------------
 * Reader.
 * Stream numbers are the order of the "strl" lists, from 0. Stream kinds use
 * the chunk type codes: 1 audio, 3 video, 5 text caption, 6 bitmap caption,
 * 7 chapter, 0 unclassified.
 * ------------------------------------------------------------------------ */

typedef struct aviin_handle aviin_handle;          /* opaque to applications */

/* Opens an AVI file read-only, parses its header lists and stands at the
 * first chunk of the first "movi" list. swapped_ids non-zero also accepts
 * chunk ids written type first ("dc00"). Null on any failure: no file, not a
 * RIFF "AVI ", a bad header list, more than 19 streams or 12 of a kind, no
 * non-empty "movi". Blocks taken from the file (names, strd, menu and
 * metadata blocks) are never allocated beyond the bytes the file holds. */
KELQAVI_API aviin_handle *aviin_open(const char *path, uint32_t swapped_ids);
/* Releases the handle and all it owns; null does nothing. */
KELQAVI_API void aviin_close(aviin_handle *h);

/* Tolerant reading (not used by aviin_open, whose behaviour is unchanged).
 * Real files written by other programs break a few rules the designed reader
 * holds to; each tolerance below lets the reader take one such file form
 * instead of refusing it or losing its frames. A handle opened without a
 * tolerance gives every call's designed results.
 *   LONG_VIDEO_FORMAT  a video stream's strf longer than its 40-byte header
 *                      (a palette, codec set-up data) is taken, whatever the
 *                      header's own size field says: the header as usual,
 *                      the bytes past it in a block the handle owns, handed
 *                      out by aviin_get_video_format_extra. The block is never
 *                      larger than the bytes the file still holds (a longer
 *                      chunk fails the open as before); it is freed at close
 *                      and when aviin_goto_riff reads the stream's slot
 *                      again. A bitmap caption's format must still be 40
 *                      bytes.
 *   INDEX_CHUNKS       "ix##" standard-index chunks inside "movi" (written
 *                      there by some OpenDML writers; "##ix" is recognised
 *                      anyway) are passed over by aviin_get_next_chunk,
 *                      aviin_get_next_chunk2, aviin_get_next_chunk_type and
 *                      the frame lookups as chunks of their own size, with
 *                      type KELQAVI_CHUNK_INDEX and the stream number of their
 *                      two digits, never resynced through; a resync scan also
 *                      ends at one, and the audio walk of
 *                      aviin_get_chunk_offsets counts none as audio.
 *   FILE_IDX1          "idx1" offsets counted from the start of the file are
 *                      recognised and used by aviin_goto_idx1_sample, the
 *                      key-frame table and the lookups built on it. The first
 *                      four entries naming a data chunk are checked against
 *                      the ids at both places their offsets could name; the
 *                      first one found decides, "movi"-relative when both
 *                      match. Every offset handed out (key-frame entries) is
 *                      still counted from the "movi" list type, as for a
 *                      "movi"-relative index; an entry naming a place before
 *                      the list is taken as lying outside it.
 *   DB_FRAMES          "db" chunks (uncompressed video; some writers mark
 *                      every frame so) count as frames of their video stream
 *                      beside its "dc" chunks: in the key-frame table (key
 *                      flags of "db" entries count), aviin_get_video_offset,
 *                      aviin_get_chunk_offsets, aviin_get_subtitle_offset's
 *                      frame walk, aviin_get_start_end_by_time asked for
 *                      KELQAVI_CHUNK_VIDEO, and aviin_get_sample_duration,
 *                      which times them as video frames. The walks still
 *                      report them as KELQAVI_CHUNK_VIDEO_RAW.
 *   UNFLAGGED_KEYS     an idx1 that does not flag a video stream's first
 *                      frame as a key frame is taken to flag none (writers
 *                      of intra-only video such as MJPEG leave the flags
 *                      out): the key-frame table then takes every frame of
 *                      the stream as a key frame.
 *   EMPTY_LAST_CHUNK   an idx1 entry of an empty chunk whose header fills
 *                      the last 8 bytes of "movi" (where the list's end test
 *                      stops the walks) is passed over by the key-frame table
 *                      instead of failing the build. */
#define AVIIN_TOLERATE_LONG_VIDEO_FORMAT 0x01u
#define AVIIN_TOLERATE_INDEX_CHUNKS 0x02u
#define AVIIN_TOLERATE_FILE_IDX1 0x04u
#define AVIIN_TOLERATE_DB_FRAMES 0x08u
#define AVIIN_TOLERATE_UNFLAGGED_KEYS 0x10u
#define AVIIN_TOLERATE_EMPTY_LAST_CHUNK 0x20u
#define AVIIN_TOLERATE_ALL 0x3Fu
/* aviin_open with the tolerances given (an OR of AVIIN_TOLERATE_ flags;
 * other bits are ignored). With 0 it is aviin_open. */
KELQAVI_API aviin_handle *aviin_open_tolerant(const char *path, uint32_t swapped_ids, uint32_t tolerances);
/* The tolerances the handle was opened with (*allowed) and those this file
 * has needed so far (*needed, a subset of *allowed): a tolerance is needed
 * once the reader has taken the file form it covers, at open or later: a
 * long video format at open or at aviin_goto_riff; an "ix##" chunk met by a
 * walk; a file-relative idx1 once an offset of it is used; a "db" chunk or
 * entry of the stream asked for counted as a frame. Needed bits stay set for
 * the handle's life. Either pointer may be null. 1 only for a null h. */
KELQAVI_API int aviin_get_tolerances(aviin_handle *h, uint32_t *allowed, uint32_t *needed);

/* Why a file does not open. aviin_open_report opens the file exactly as
 * aviin_open_tolerant(path, swapped_ids, tolerances) does (0 for the
 * tolerances gives aviin_open's result), then releases everything it took,
 * and returns AVIIN_OPEN_OK when that open succeeds, else the code of the
 * first check it failed:
 *   NO_MEMORY          an allocation failed.
 *   CANNOT_OPEN        the file cannot be opened (the text is the system's
 *                      reason, "No such file or directory").
 *   READ_ERROR         the system reported an error while reading.
 *   CUT_SHORT          a chunk or list the open needs ends with the file: a
 *                      top-level chunk header, a list header or the chunks
 *                      of a stream's "strl" list.
 *   NOT_RIFF           the file is empty, shorter than a RIFF header, or its
 *                      first chunk is neither "RIFF" nor "MRIF".
 *   NOT_AVI            its first form's type is not "AVI ".
 *   NO_AVIH            its "hdrl" list is empty or does not begin with "avih".
 *   BAD_STREAM_HEADER  a "strl" list does not begin with a readable "strh".
 *   BAD_STREAM_FORMAT  a stream's "strf" cannot be read, or a video format
 *                      chunk is shorter than its header says.
 *   LONG_FORMAT        a video format longer than its header, refused
 *                      without AVIIN_TOLERATE_LONG_VIDEO_FORMAT (and for
 *                      bitmap captions always).
 *   BAD_STREAM_NAME    a "strn" size with bit 15 set, which no name block
 *                      can take.
 *   TOO_MANY_STREAMS   a 20th "strl" list, or a 13th stream of a kind.
 *   NO_MOVI            the first form has no "movi" list before its end, or
 *                      its walk left the file before one.
 *   EMPTY_MOVI         the first "movi" list holds no chunk.
 * A missing "hdrl" is no refusal: such a file opens with no streams.
 * reason, when not null and reason_size is not 0, receives one line saying
 * why in words ("its 'movi' list is empty (size 4)"; empty for
 * AVIIN_OPEN_OK), NUL-terminated and cut to reason_size - 1 bytes. */
#define AVIIN_OPEN_OK 0u
#define AVIIN_REFUSED_NO_MEMORY 1u
#define AVIIN_REFUSED_CANNOT_OPEN 2u
#define AVIIN_REFUSED_READ_ERROR 3u
#define AVIIN_REFUSED_CUT_SHORT 4u
#define AVIIN_REFUSED_NOT_RIFF 5u
#define AVIIN_REFUSED_NOT_AVI 6u
#define AVIIN_REFUSED_NO_AVIH 7u
#define AVIIN_REFUSED_BAD_STREAM_HEADER 8u
#define AVIIN_REFUSED_BAD_STREAM_FORMAT 9u
#define AVIIN_REFUSED_LONG_FORMAT 10u
#define AVIIN_REFUSED_BAD_STREAM_NAME 11u
#define AVIIN_REFUSED_TOO_MANY_STREAMS 12u
#define AVIIN_REFUSED_NO_MOVI 13u
#define AVIIN_REFUSED_EMPTY_MOVI 14u
KELQAVI_API uint32_t aviin_open_report(const char *path, uint32_t swapped_ids, uint32_t tolerances, char *reason,
                                       size_t reason_size);
/* The bytes of a video stream's format past its 40-byte header (taken only
 * under AVIIN_TOLERATE_LONG_VIDEO_FORMAT); stream as for
 * aviin_get_video_format: a stream number of the current segment. *data
 * stays the handle's, valid until the close or the next aviin_goto_riff;
 * null and 0 when the format has no extra bytes or the stream is no video
 * stream. 1 for a null argument or a stream number not met. */
KELQAVI_API int aviin_get_video_format_extra(aviin_handle *h, int32_t stream, const uint8_t **data,
                                             uint32_t *size);

/* stream_count = streams met; strd_count = video streams carrying a strd block. */
KELQAVI_API int aviin_get_summary(aviin_handle *h, int32_t *stream_count, int32_t *strd_count);
/* Kind of a stream (see above). Not checked against the streams met (an
 * unused slot gives 0); 1 only for a stream number above 19. */
KELQAVI_API int aviin_get_chunk_type(aviin_handle *h, uint32_t stream, uint32_t *kind);
/* The strd block of the video entry named by the stream's index within its
 * kind (ask video streams only); the pointer stays the handle's. 1 only for a
 * stream number above 19. */
KELQAVI_API int aviin_get_strd_info(aviin_handle *h, uint32_t stream, uint8_t **data, int32_t *size);
/* The "MTDA" payload and the whole "MENU" chunk (header included, size + 8
 * bytes) of the main RIFF; null and 0 when absent; the handle's memory. A
 * block whose size runs past the end of the file counts as absent. */
KELQAVI_API int aviin_get_metadata_info(aviin_handle *h, uint8_t **data, int32_t *size);
KELQAVI_API int aviin_get_menu_info(aviin_handle *h, uint8_t **data, int32_t *size);
/* Copies of a stream's format; 1 when the stream is out of range. A copy whose
 * name_length is positive carries a fresh name block the caller frees; every
 * other pointer in it stays the handle's. Ask each stream with the getter of
 * its kind: the stream's entry in that kind's table is what is copied. A
 * bitmap caption's name block is not NUL-terminated (use name_length). The
 * video getters also give the stream's length in frames. */
KELQAVI_API int aviin_get_chapter_format(aviin_handle *h, int32_t stream, caption_stream_format *out);
KELQAVI_API int aviin_get_text_caption_format(aviin_handle *h, int32_t stream, caption_stream_format *out);
KELQAVI_API int aviin_get_audio_format(aviin_handle *h, int32_t stream, audio_stream_format *out);
KELQAVI_API int aviin_get_video_format(aviin_handle *h, int32_t stream, video_stream_format *out,
                                       uint32_t *length);
KELQAVI_API int aviin_get_bitmap_caption_format(aviin_handle *h, int32_t stream, video_stream_format *out,
                                                uint32_t *length);

/* Number of RIFF segments counted at open: every top-level RIFF (the main
 * form, "AVIX" continuations, menu forms) and every "MRIF" chunk inside a
 * menu form's list. Never releases the handle. */
KELQAVI_API int aviin_get_riff_count(aviin_handle *h, int32_t *count);
/* Position of segment n's header. 1 without releasing the handle when h or
 * offset is null, h has no stream, n > riff_count, or a read fails during the
 * walk; *offset is then left as it was. 1 AFTER RELEASING THE HANDLE (h must
 * not be used or closed again), with *offset set to -1, when the file is
 * empty or the walk reaches the end of the file without meeting segment n:
 * this happens for n == riff_count and for a negative n, and can happen for a
 * smaller n because only the menu forms of the first two top-level forms are
 * searched for "MRIF" here. Segments 0 .. riff_count - 1 that are top-level
 * RIFF forms are always found. */
KELQAVI_API int aviin_get_riff_offset(aviin_handle *h, int32_t n, int64_t *offset);
/* Moves the reader into the segment whose header is at offset: re-reads its
 * header list (if any) and stands at its first "movi" chunk. 0 also for a
 * segment without "movi". 1 without releasing the handle when h is null or
 * has no stream; when entering a list inside the segment fails (the handle
 * standing in no list); or when its "hdrl" or "movi" is bad (the position
 * restored). 1 AFTER RELEASING THE HANDLE (h must not be used or closed
 * again) when nothing at offset can be entered as a list: at or past the end
 * of the file or fewer than 9 bytes before it, a read error, a negative offset
 * (which cannot be sought, so the entries read wherever the stream stands
 * and fail only there), or no memory for the list. An offset given by
 * aviin_get_riff_offset whose 12-byte header lies inside the file never
 * releases the handle short of a read or allocation failure; use
 * aviin_goto_riff_checked to be told. */
KELQAVI_API int aviin_goto_riff(aviin_handle *h, uint32_t swapped_ids, int64_t offset);
/* aviin_goto_riff with the same results, through the caller's handle
 * variable: when the move releases the handle, *handle becomes null, so the
 * caller can always tell. 1 for a null handle pointer. */
KELQAVI_API int aviin_goto_riff_checked(aviin_handle **handle, uint32_t swapped_ids, int64_t offset);

/* Sequential reading of the current "movi" list: 0 a chunk, 1 failure, 3 end
 * of the list. On entry *size is the buffer's capacity; on return the bytes
 * stored. A chunk larger than the buffer gives 1 and is passed over. An
 * unrecognised id starts a resync scan that stores the skipped bytes (type 0):
 * up to the next id that is a data-chunk id opening with two digits, plus the
 * first byte of that id, and never more than the capacity; the walk goes on
 * at the last position examined (3 bytes on when the capacity is 0 or less).
 * name, when not null, receives the id as 4 characters and a NUL. 1 without
 * moving the walk when h, type, stream or size is null, or buffer is null
 * with a positive capacity. The end test follows the header read, so a list
 * ending at the end of the file gives 1 (and every later call 1) instead of 3. */
KELQAVI_API int aviin_get_next_chunk(aviin_handle *h, uint32_t *type, uint32_t *stream, uint8_t *buffer,
                                     int32_t *size);
KELQAVI_API int aviin_get_next_chunk2(aviin_handle *h, uint32_t *type, uint32_t *stream, uint8_t *buffer,
                                      int32_t *size, char *name);
/* Header only: data offset and size of the next chunk; an unrecognised id
 * advances the walk by 4 bytes (type 0, data offset = header + 4). The size
 * plus its pad byte is added to the walk as a signed 32-bit number, so a size
 * field of 0x80000000 or more moves it backwards, possibly onto the same
 * header again: a caller stepping in a loop must bound its steps. 1 when an
 * output pointer is null. */
KELQAVI_API int aviin_get_next_chunk_type(aviin_handle *h, uint32_t *type, uint32_t *stream,
                                          uint64_t *data_offset, uint32_t *size);
/* Reads size bytes at an absolute offset without moving the walk; 1 when
 * fewer were read or the handle stands in no list. */
KELQAVI_API int aviin_get_chunk(aviin_handle *h, uint64_t offset, void *buffer, uint32_t size);
/* Makes offset the next chunk header the walk reads; 1 past the end of the
 * file or when the handle stands in no list. */
KELQAVI_API int aviin_seek_by_offset(aviin_handle *h, uint64_t offset);

/* ------------------------------------------------------------------------
 * Legacy index ("idx1"). Each call reads the index from the file when
 * called; nothing of it is kept in the handle. Entry offsets are counted
 * from the "movi" list type of the first RIFF: a chunk's header lies at
 * (first movi chunk position - 4) + offset. Entries are numbered from 0 over
 * all streams.
 * ------------------------------------------------------------------------ */

/* Entry `entry`: stream number, type code, size field and key flag (the flag
 * word AND 0x10: 16 for a key frame, else 0). The walk and the file position
 * are kept. 1 when the file has no index, the entry lies beyond the index
 * (entry * 16, in 32 bits, not below the index size), the position cannot be
 * told or an output is null. Values that could not be read are 0. */
KELQAVI_API int aviin_get_idx1_entry(aviin_handle *h, uint32_t entry, uint32_t *stream, uint32_t *type,
                                     uint32_t *size, uint32_t *key);
/* Moves the sequential walk to the chunk of entry `entry`, whatever its
 * stream: the next aviin_get_next_chunk or aviin_get_next_chunk_type returns
 * it. 0; 1 when there is no index or the handle stands in no list; 3 when the
 * entry lies beyond the index. The offset is not checked: after a move to
 * another RIFF segment it still counts from the first "movi". Under
 * AVIIN_TOLERATE_FILE_IDX1 a file-relative offset is moved first, and one
 * naming a place before the "movi" list gives 1. */
KELQAVI_API int aviin_goto_idx1_sample(aviin_handle *h, uint32_t entry);
/* Playing time of one chunk of `stream`, as num / den seconds, by type:
 * 3 video: scale / rate of the stream's video format; 1 audio: 1152 / samples
 * per second when the block alignment is 1152 (one MPEG layer-3 frame), else
 * value / rate, value being the caller's byte count of the chunk; 4 per-frame
 * data: 0 / rate of the audio format at the stream's index within its kind
 * (meaningless, num is 0). Only 1152 is tested here, not 576 as in the time
 * search. 1, with the outputs untouched, for any other type, a stream number
 * above 19 or a null output. Touches no file. */
KELQAVI_API int aviin_get_sample_duration(aviin_handle *h, uint32_t stream, uint32_t type, uint32_t value,
                                          uint32_t *num, uint32_t *den);
/* Among the index entries of `stream` (stream number taken modulo 256) with
 * type code `type`, the ordinal (from 0, among those entries only) of the
 * first whose time reaches `start` (first) and of the one at which the time
 * reaches `end` (last), in seconds. Audio with block alignment 576 or 1152
 * counts fixed chunks (the time of chunk c is its start, c * block alignment /
 * samples per second); other audio sums sizes (the time is the chunk's end,
 * bytes / rate); any other type gives every entry time 0. When the entries run
 * out with the start found but not the end, last is the stream's last
 * ordinal. 0 when the end was reached (first is then left alone if the start
 * never was) or the start was found; 1 otherwise, and when the handle stands
 * in no list, its list has an error, there is no index or it is empty. The
 * file position is kept. The walk stops at the end of the file, whatever the
 * index size says. */
KELQAVI_API int aviin_get_start_end_by_time(aviin_handle *h, uint32_t stream, uint32_t type, float start,
                                            float end, uint32_t *first, uint32_t *last);

/* ------------------------------------------------------------------------
 * Key-frame table and frame positions.
 *
 * The table lists key frames of one video stream with where to start reading
 * at each: the key frame's chunk and, for each of the first eight audio
 * streams (by their index among audio streams), the chunk playing at the key
 * frame's time. The application owns all of it: the keyindex_table record and
 * an array of keyindex_entry of any capacity (120 bytes an entry on every
 * target); the library never allocates for it and keeps no pointer to it.
 *
 * Filling: aviin_init_keyindex names the array and the video stream, then
 * each aviin_build_keyindex_entry call reads the next slice of idx1 entries
 * (as many as asked, or all) and adds the key frames it meets (idx1 flag
 * 0x10 on a "dc" entry of the stream). Frames are counted as the frame walk
 * counts them: "dc" chunks of the stream in index order; "db" chunks are not
 * frames. A build can thus be spread over idle moments; the table answers for
 * the frames scanned so far (frames_scanned).
 *
 * When the array is full and another key frame is to be kept, every second
 * entry is dropped and from then on only every second key frame is kept
 * (stride doubles): a table of any capacity covers the whole file, with
 * coarser spacing, and a lookup walks farther from its key frame.
 *
 * An entry's audio fields name the chunk of that audio stream whose playing
 * time covers the key frame's time (frame * scale / rate of the video
 * stream), and how much of the stream lies before it: the number of chunks
 * for audio of fixed chunk duration (block alignment 576 or 1152, one MPEG
 * audio frame a chunk, block alignment / samples per second seconds each),
 * the number of bytes otherwise (played at the format's average bytes per
 * second, or at the stream header's rate when that is 0). These counts are
 * what aviin_get_chunk_offsets starts its audio search from; that search
 * times byte-counted audio by the stream header's rate alone. Until the scan has
 * reached that chunk, and for audio that ends before the key frame, the
 * offset is KELQAVI_NOT_FOUND and the count 0xFFFFFFFF.
 * ------------------------------------------------------------------------ */

#define KELQAVI_KEY_AUDIO_STREAMS 8
#define KELQAVI_NOT_FOUND UINT64_C(0xFFFFFFFFFFFFFFFF)

typedef struct keyindex_entry {
    uint32_t index_position;   /* byte position of the key frame's idx1 entry among the entries (number * 16) */
    uint32_t video_size;       /* data size of the key frame's chunk, from idx1 */
    uint64_t video_offset;     /* key frame's chunk header, counted like an idx1 offset */
    uint64_t audio_offset[KELQAVI_KEY_AUDIO_STREAMS]; /* per audio stream, counted the same way */
    uint32_t frame_no;         /* frame number of the key frame */
    uint32_t audio_count[KELQAVI_KEY_AUDIO_STREAMS];  /* chunks or bytes of the stream before audio_offset */
    uint32_t reserved;         /* 0 */
} keyindex_entry;

typedef struct keyindex_table {
    keyindex_entry *entries;   /* the application's array, in increasing frame order */
    uint32_t capacity;         /* entries the array holds */
    uint32_t count;            /* entries filled */
    uint32_t video_stream;     /* stream number whose key frames are listed */
    uint32_t stride;           /* every stride-th key frame is kept (1 until the array first fills) */
    uint32_t frames_scanned;   /* frames 0 .. frames_scanned - 1 are covered */
    uint32_t key_frames_scanned;
    uint32_t next_entry;       /* idx1 entry the next build starts at */
    uint32_t entry_total;      /* idx1 entries, no more than the file holds */
    uint32_t complete;         /* 1 once the whole idx1 has been scanned */
    /* The scan's own state; applications leave it alone. */
    uint32_t first_checked;    /* the first key frame's chunk header was read and matched */
    uint32_t audio_next_entry; /* idx1 entry the audio counting goes on at */
    uint32_t audio_chunks[KELQAVI_KEY_AUDIO_STREAMS];
    uint32_t audio_pending[KELQAVI_KEY_AUDIO_STREAMS];
    uint64_t audio_bytes[KELQAVI_KEY_AUDIO_STREAMS];
} keyindex_table;

/* Prepares an empty table over entries[0 .. capacity - 1] for the key frames
 * of video stream `video_stream`. 1 when h, table or entries is null, the
 * capacity is 0, the file has no idx1, or the stream is not a video stream
 * (kind 3); the table is then zeroed when it is not null. */
KELQAVI_API int aviin_init_keyindex(aviin_handle *h, keyindex_table *table, keyindex_entry *entries,
                                    uint32_t capacity, uint32_t video_stream);
/* Reads the next max_entries idx1 entries (0: all that remain) into the
 * table. 0 when entries remain to be read, 3 when the index has been read to
 * its end (also for every later call), 1 on failure: null arguments, a table
 * whose count exceeds its capacity, a key frame or audio entry whose chunk
 * does not lie inside the current "movi" list, or a first key frame whose
 * chunk header in the file does not carry the id and size its entry gives
 * (an index counting offsets from the start of the file, say). After a
 * failure the table keeps the entries it had, and the same slice fails
 * again. The file position is kept; the walk is not moved. A read that comes
 * short ends the index there. */
KELQAVI_API int aviin_build_keyindex_entry(aviin_handle *h, keyindex_table *table, uint32_t max_entries);
/* The entry of the key frame at or before `frame` (direction -1) or at or
 * after it (direction +1), copied to *out. 0 found; 3 outside the table:
 * no such key frame among those listed, a negative frame, or a frame at or
 * beyond frames_scanned; 1 for any other direction, a null argument or a
 * table whose count exceeds its capacity. With direction -1 and a frame at
 * or beyond frames_scanned, *out still receives the last entry (the latest
 * key frame known before the frame) while the result is 3; otherwise *out is
 * written only with 0. Binary search: logarithmic in the entries. */
KELQAVI_API int aviin_read_key_table_by_frame_no(aviin_handle *h, const keyindex_table *table, int32_t frame,
                                                 keyindex_entry *out, int32_t direction);
/* The entry after (direction +1) or before (-1) the table entry whose frame
 * number equals current->frame_no, copied to *next (current and next may be
 * the same record). 0; 3 when there is none in that direction (more may come
 * while the table is being built); 1 when current is not a key frame of the
 * table, the direction is another value or an argument is null. */
KELQAVI_API int aviin_get_next_key_index(aviin_handle *h, const keyindex_table *table,
                                         const keyindex_entry *current, keyindex_entry *next,
                                         int32_t direction);

/* Header position of frame `frame` of video stream `stream`, walking chunk
 * headers from the key frame of `key` and counting "dc" chunks of the stream
 * ("db" chunks never count). When key.frame_no (as signed) exceeds frame: 0
 * with *header_pos unwritten. 0 when the frame was reached; 1 when the list
 * ends first (*header_pos may hold the last frame counted), or when the key
 * frame's position lies outside the current "movi" list or the chunk there is
 * not a "dc" chunk of the stream (a table built for another file or stream,
 * a bad index), or a chunk size steps the walk backwards. A failed step
 * (which leaves the list's error flag set, so that every later step fails
 * too) is tried again at most 4 times, then the call gives 1. Moves the walk
 * and the file position; they stay where the last step ended. */
KELQAVI_API int aviin_get_video_offset(aviin_handle *h, keyindex_entry key, uint32_t stream, int32_t frame,
                                       uint64_t *header_pos);
/* Header positions of frames start_frame and end_frame of video_stream, each
 * from its key frame at or before it in key_table; all four outputs start at
 * KELQAVI_NOT_FOUND. audio_stream -1: nothing more. When both video positions
 * were found the audio outputs stay not found: the audio search runs only
 * when one of them is missing. It starts at the chunk start_frame's key entry
 * gives for the audio stream and steps chunks of that stream until the time
 * reaches end_time (seconds): audio_first is the first whose time reaches
 * start_frame's (or that starting chunk when none does), audio_last the last
 * stepped. Times use scale / rate of the first video stream, whatever
 * video_stream is. 1 when the handle stands in no list or its list has an
 * error, there is no idx1, a key lookup fails, the key frame lies more than
 * 0.1 s after start_frame's time or start_frame's time more than 0.1 s after
 * end_time, the audio stream number is not 0 to 19 or its index among audio
 * streams is 8 or more, the key entry's audio chunk is not known, or nothing
 * at all was found; 0 otherwise (including when the list ends during the
 * audio search). The walk and the file position are moved, as by
 * aviin_get_video_offset; the audio search bounds its steps the same way. */
KELQAVI_API int aviin_get_chunk_offsets(aviin_handle *h, const keyindex_table *key_table, uint32_t video_stream,
                                        int32_t start_frame, int32_t end_frame, float end_time,
                                        uint64_t *video_start, uint64_t *video_end, int32_t audio_stream,
                                        uint64_t *audio_first, uint64_t *audio_last);

/* ------------------------------------------------------------------------
 * Bitmap subtitle timing. A bitmap subtitle chunk ("sb") opens with its time
 * span as text, "HH:MM:SS.mmm-HH:MM:SS.mmm" (25 characters); times are in
 * milliseconds.
 * ------------------------------------------------------------------------ */

/* Parses the span at text into its start and its duration (end - start).
 * text must point at 26 writable bytes: byte 25 is set to NUL, and NULs are
 * put over the separators, so the text is changed. Each field reads like
 * strtol in base 10 (blanks and a sign allowed, a field that opens with any
 * other character is 0) and is kept in 16 bits. 0; 1 when a separator is
 * missing (*start and *duration untouched) or the start lies after the end
 * (*start written, *duration untouched), or text is null. Null outputs are
 * allowed. */
KELQAVI_API int aviin_get_subtitle_duration(aviin_handle *h, char *text, uint32_t *start, uint32_t *duration);
/* The bitmap subtitle of subtitle_stream shown at frame `frame`: *offset is
 * the header position of its chunk and *duration how long it still shows (ms),
 * or all ones when it starts at or after the frame's time. Found by walking
 * chunk headers from the key frame about five seconds before the frame (from
 * the first "movi" chunk when that lies before the start), reading the text
 * of each subtitle chunk met: the first that starts at or after the frame's
 * time is taken, or the first already showing that has more than 500 ms left.
 * A subtitle whose text does not parse is passed over. When none is found,
 * *offset is the header of the last "dc" chunk of video_stream reached (all
 * ones if none) and *duration all ones; the result is still 0. Times use scale
 * / rate of the first video stream. 1 when the key lookup fails (a result
 * other than 0 or 3: with 3 the walk starts at the latest key frame the table
 * knows before that frame, or at the first "movi" chunk), when the list ends
 * during the walk, when the key frame's position lies outside the current
 * "movi" list, when a chunk size steps the walk backwards, when a failed step
 * has been tried again 4 times, or for a null argument. Moves the walk and
 * the file position. */
KELQAVI_API int aviin_get_subtitle_offset(aviin_handle *h, const keyindex_table *key_table, uint32_t video_stream,
                                          uint32_t subtitle_stream, int32_t frame, uint64_t *offset,
                                          uint32_t *duration);

/* Where an index entry's chunk lies, with what the entry says of it; filled
 * by aviin_get_idx1_positions and aviin_get_std_index_positions. */
typedef struct index_position {
    uint64_t position; /* idx1: the chunk's header; OpenDML: its data (see each call) */
    uint32_t stream;   /* stream number of the entry's chunk id (idx1) or of dwChunkId */
    uint32_t type;     /* type code of that id */
    uint32_t size;     /* data size; OpenDML: bit 31 removed */
    uint32_t key;      /* 16 for a key frame, else 0 */
} index_position;

/* Entries first, first + 1, ... of the legacy index, up to capacity of them,
 * into entries; *count = entries stored. Each gives what aviin_get_idx1_entry
 * gives and the file position of the chunk's header where
 * aviin_goto_idx1_sample would move the walk: the position of the "movi"
 * list type + offset, the offset of a file-relative index moved first under
 * AVIIN_TOLERATE_FILE_IDX1; all ones for an entry such an index places before
 * the "movi" list. The entries end where 16 x entry reaches the index's size
 * field or the file ends; they are read in blocks, with a seek per block, not
 * per entry. The walk and the file position are kept. 0 with *count >= 1;
 * 3 with *count 0 when no entry lies at first or capacity is 0; 1 when the
 * file has no index, the position cannot be told, h or count is null, or
 * entries is null with a positive capacity. */
KELQAVI_API int aviin_get_idx1_positions(aviin_handle *h, uint32_t first, index_position *entries,
                                         uint32_t capacity, uint32_t *count);

/* ------------------------------------------------------------------------
 * OpenDML indexes.
 * ------------------------------------------------------------------------ */

typedef struct std_index_header {
    uint16_t longs_per_entry;
    uint8_t index_sub_type, index_type;
    uint32_t entries_in_use, chunk_id;
    uint64_t base_offset;
    uint32_t reserved;
} std_index_header;

/* Parses the 24 bytes that follow an ix## chunk's size field; the caller
 * frees the result. Null when bytes is null or memory is short. */
KELQAVI_API std_index_header *avi2_parse_standard_index_chunk(const uint8_t *bytes);
/* Entry entry_number of a stream's OpenDML index: type code, data size (bit
 * 31 removed), key_flags 16 for a key frame else 0. 1 when the stream has no
 * index, the entry is out of range or the index type is unknown, and also for
 * a stream number above 19 or a failed read; the outputs (each may be null)
 * are then left alone. The file position is restored.
 * An index belongs to the stream named by two digits of its dwChunkId ("01wb",
 * or "wb01" with swapped ids), not to the strl list holding it; one naming
 * stream 20 to 99 is ignored. A super index entry's dwDuration is taken as the
 * number of entries it covers, for audio too (where it counts bytes). The
 * super index is read no further than nEntriesInUse, the entries its chunk's
 * size has room for and the end of the file. */
KELQAVI_API int aviin_get_indx_entry(aviin_handle *h, uint32_t entry_number, uint32_t stream_number,
                                     uint32_t *type, uint32_t *size, uint32_t *key_flags);
/* Entry entry_number of the standard index chunk whose id is at ix_position:
 * size as stored (bit 31 kept), key_flag 0 when bit 24 of its offset is set,
 * else 1; type from the dwChunkId of the stream's cursor (set with
 * aviin_set_odml_cursor; 0 when none is set, or for a stream number above
 * 19). Returns the seek's status, 1 for a null h. A seek past the end of the
 * file succeeds: the result is 0 and size and key_flag are left alone. The
 * stream is left after the entry. Null outputs are allowed. */
KELQAVI_API int avi2_get_index_entry(int64_t ix_position, aviin_handle *h, uint32_t entry_number,
                                     uint32_t stream_number, uint32_t *type, uint32_t *size, uint32_t *key_flag);
/* Sets the standard index header that avi2_get_index_entry reads for a
 * stream (null clears it). The handle keeps the pointer, never frees it: the
 * application owns the header. 1 for a stream number above 19. */
KELQAVI_API int aviin_set_odml_cursor(aviin_handle *h, uint32_t stream_number, std_index_header *cursor);
/* Entry index_number of a stream's super index (the indx read for the stream
 * aviin_get_indx_entry reads): the position of the standard index chunk's id
 * (qwOffset) and dwDuration (chunks indexed; data bytes for audio). The
 * entries end at nEntriesInUse, at the entries the chunk's size has room for
 * and at the end of the file. 0; 3 past the last entry; 1 when the stream has
 * no super index (none, or an indx holding chunk entries itself), for a
 * stream number above 19, a failed read or a null output. The file position
 * is restored. */
KELQAVI_API int aviin_get_super_index_entry(aviin_handle *h, uint32_t stream_number, uint32_t index_number,
                                            uint64_t *ix_position, uint32_t *duration);
/* Entries first, first + 1, ... of the standard index chunk that entry
 * index_number of the stream's super index points to, up to capacity of
 * them; *count = entries stored. Each gives the position of the chunk's data
 * (qwBaseOffset + dwOffset), the data size with bit 31 removed and key 16
 * when bit 31 was clear, else 0, with the stream number and type code of the
 * chunk's dwChunkId. Entries step by the chunk's wLongsPerEntry; they end at
 * nEntriesInUse, at the entries the chunk's size has room for and at the end
 * of the file, and are read in blocks, with a seek per block. The file
 * position is restored. 0 with *count >= 1; 3 with *count 0 when no entry
 * lies at first or capacity is 0 (so a call with capacity 0 tells whether
 * the chunk can be read); 1 when there is no such super index entry (see
 * aviin_get_super_index_entry), when the chunk it points to is no index of
 * chunks whose header lies inside the file (an id that does not begin with
 * "ix", or end with it under swapped ids; bIndexType other than 1;
 * wLongsPerEntry below 2; a size below 24), for a null h or count, or a null
 * entries with a positive capacity. */
KELQAVI_API int aviin_get_std_index_positions(aviin_handle *h, uint32_t stream_number, uint32_t index_number,
                                              uint32_t first, index_position *entries, uint32_t capacity,
                                              uint32_t *count);

/* ------------------------------------------------------------------------
 * Menu forms.
 * ------------------------------------------------------------------------ */

/* Scans the file's top-level forms for menu forms, counting their "MRIF"
 * chunks and keeping the last "MENU" chunk found. 1 when the scan ran to the
 * end, 0 when a read failed (0 too for a null h); what was found before a
 * failure is kept.
 * The scan starts at the menu form found at open or by an earlier scan (at
 * the start of the file when there is none), and counts every top-level RIFF
 * it meets as a segment, again. A form's "KMNU" list is looked for after the
 * form's first chunk and, failing that, as its first list; a first look that
 * runs off the end of the file, with no "KMNU" first list, is a failed read:
 * so the scan of a file that ends with a form holding a single list (an
 * "AVIX" segment, say) gives 0. A "MENU" chunk larger than the bytes left in the file is not
 * allocated: the scan stops there with 0. */
KELQAVI_API int aviin_getNextMenu(aviin_handle *h);
/* Loads the next "MENU" chunk of the current menu form; 0 when one was
 * loaded, 1 otherwise, with the file position restored and the current chunk
 * kept. The first step after a scan starts after the form's first chunk,
 * which it takes to be the current one (so it can load a menu the scan has
 * passed); later steps go on after the chunk last loaded. The form ends where
 * its size field says, or at the end of the file. A "MENU" chunk larger than
 * the bytes left in the file ends the steps without being allocated. */
KELQAVI_API int aviin_goto_next_menu(aviin_handle *h);
/* The current menu-form "MENU" chunk and its size field, as
 * aviin_get_menu_info gives the main RIFF's: the block holds the whole chunk,
 * header included (size + 8 bytes), and is owned by the handle; null and 0
 * when none has been loaded. 0, or 1 for a null h. Null destinations are
 * allowed. */
KELQAVI_API int aviin_get_menu_chunk(aviin_handle *h, uint8_t **data, int32_t *size);

/* ------------------------------------------------------------------------
 * Writer.
 * Calling order: aviout_open; set the caller-set fields that the stream
 * setters read (index_chunk_seconds, odml_timing_mode); the stream setters,
 * whose order gives the stream numbers 0..18; the block setters; the other
 * caller-set fields; then aviout_put_chunk once per chunk; then aviout_close.
 * The header area is written at the first chunk and rewritten in place with
 * the final counts when the file is finished, so nothing that changes its
 * size may be set after the first chunk: every setter then fails (1)
 * without changing anything.
 * ------------------------------------------------------------------------ */

#define AVIOUT_MAX_STREAMS 20            /* slots; 19 streams are accepted */
#define AVIOUT_MAX_VIDEO 2               /* only the first is dependable */
#define AVIOUT_MAX_AUDIO 12
#define AVIOUT_MAX_TEXT_CAPTIONS 12
#define AVIOUT_MAX_BITMAP_CAPTIONS 12
#define AVIOUT_MAX_CHAPTERS 2
#define AVIOUT_INDEX_CAPACITY 1872000    /* legacy index entries */
#define AVIOUT_SUPER_INDEX_ENTRIES 100   /* standard index chunks per track */

/* aviout_put_chunk flags. */
#define AVIOUT_KEY_FRAME 1u
#define AVIOUT_FRAME_DATA 2u             /* opaque per-frame data: "dd" */
#define AVIOUT_UNCOMPRESSED 4u           /* uncompressed frame: "db" */

/* OpenDML index state of one audio or video track. */
typedef struct odml_track_state {
    double elapsed_time;         /* seconds covered by the current standard index */
    uint32_t index_bytes;        /* data bytes added to it */
    double frame_duration;       /* seconds per chunk, given at set-up */
    uint32_t chunk_count;        /* chunks added to it */
    int32_t stream_type;         /* 3 video, 1 audio; 5, 6, 7 caption kinds */
    uint32_t entries_per_chunk;  /* N = index_chunk_seconds / frame_duration */
    int64_t spare;
    uint32_t std_index_buf_size; /* N x 8 + 48: the ix## chunk's length on disk */
    int64_t std_index_pos;       /* position of the current ix## chunk; 0 = none yet */
} odml_track_state;

/* One legacy index entry: the chunk's id, its idx1 flags, the position of
 * its id in the file and its data size. */
typedef struct aviout_index_entry {
    uint32_t chunk_id;
    uint32_t flags;
    int64_t position;
    uint32_t size;
} aviout_index_entry;

/* One stream: its "strh" values and where its format record lives. */
typedef struct aviout_stream_entry {
    avi_stream_header header;    /* owner word unused */
    uint32_t stream_kind;        /* 1 audio, 3 video, 5 text caption, 6 bitmap caption, 7 chapter */
    uint32_t sub_index;          /* position of the record in its kind's table */
} aviout_stream_entry;

/* The writer handle: one plain record, zero-filled at open. Applications
 * read it freely and may assign the fields marked CALLER-SET; every other
 * field is the library's.
 * It is large (the legacy index table is inline, about 45 MB of address
 * space) but comes from calloc in one block, so the pages of the table that
 * no chunk has reached are never touched and cost no resident memory: a
 * writer that has written 1,000 chunks holds a few hundred KB. */
typedef struct aviout_handle {
    FILE *file;
    uint32_t error;                     /* sticky: a header record failed to write */
    avi_main_header main_header;
    int64_t file_start;                 /* where the header area begins */
    int64_t riff_mark, avix_mark, movi_mark;  /* size-field positions to patch */
    int64_t index_end;                  /* just after the idx1 written; 0 until then */
    video_stream_format video_formats[AVIOUT_MAX_VIDEO];
    int32_t video_count;
    audio_stream_format audio_formats[AVIOUT_MAX_AUDIO];
    int32_t audio_count;
    caption_stream_format text_captions[AVIOUT_MAX_TEXT_CAPTIONS];
    int32_t text_caption_count;
    video_stream_format bitmap_captions[AVIOUT_MAX_BITMAP_CAPTIONS];
    int32_t bitmap_caption_count;
    caption_stream_format chapters[AVIOUT_MAX_CHAPTERS];
    int32_t chapter_count;
    aviout_stream_entry stream_table[AVIOUT_MAX_STREAMS];
    int32_t stream_count;
    aviout_index_entry index_entries[AVIOUT_INDEX_CAPACITY];
    int32_t index_count;                /* entries in use in the current segment */
    uint32_t segment_chunk_counts[AVIOUT_MAX_STREAMS];
    uint32_t segment_byte_counts[AVIOUT_MAX_STREAMS];
    uint32_t chunk_count;               /* data chunks in the current segment */
    uint32_t odml;                      /* 1: OpenDML indexes are written */
    /* OpenDML state per track (track number = stream number); null for
     * streams without a track. */
    int64_t *super_index_pos[AVIOUT_MAX_STREAMS];
    uint8_t *super_index_buf[AVIOUT_MAX_STREAMS];
    odml_track_state *odml_track[AVIOUT_MAX_STREAMS];
    uint8_t *std_index_buf[AVIOUT_MAX_STREAMS];
    int32_t track_count;                /* highest track number + 1 */
    /* CALLER-SET, default 0. Seconds of media each OpenDML standard index
     * (ix##) should cover. Read by the video and audio setters (each track's
     * capacity N = index_chunk_seconds / its frame_duration) and before every
     * chunk (a track's index is written out once it covers
     * index_chunk_seconds - 1.0 seconds), so set it right after aviout_open.
     * At 1.0 or below every chunk gets an ix## chunk of its own, and a track
     * holds at most 100 of them: a recorder should set it to cover its
     * longest recording in 100 pieces (60.0 covers about 98 minutes). */
    double index_chunk_seconds;
    /* CALLER-SET, default 0. 1: write a track's standard index out when it
     * holds N entries, instead of by time. Set with index_chunk_seconds. */
    uint32_t odml_timing_mode;
    /* CALLER-SET, default 0. Non-zero: chunk ids type first ("dc00") and the
     * legacy index as "1idx". Set before the first chunk. */
    uint32_t swapped_ids;
    int32_t riff_index;                 /* -1 before the first chunk, 0 in "AVI ", n in the n-th "AVIX" */
    uint32_t odml_total_frames;         /* video frames of every segment ("dmlh") */
    uint32_t has_menu, menu_given;
    int32_t menu_size;
    uint8_t *menu_data;
    uint32_t has_metadata, metadata_given;
    int32_t metadata_size;
    uint8_t *metadata_data;
    /* CALLER-SET, default 0. Non-zero wraps the metadata and menu chunks in a
     * LIST "KQDT". Set before the first chunk. */
    uint32_t extension_list;
    /* CALLER-SET, default null. Paths (not copied: keep them valid until
     * aviout_close) of prepared menu-form files copied in whole: the head
     * file after the extension data in the header area, the tail file at the
     * end of each "movi" list. Bytes 20..27 of the copy receive the absolute
     * position where it begins. A path that cannot be opened writes nothing. */
    const char *menu_file_head;
    const char *menu_file_tail;
    uint8_t *io_buffer;                 /* the stream's 64 KiB buffer */
    /* CALLER-SET, default 0 (off). Seconds of media after which
     * aviout_put_chunk makes a checkpoint by itself (see aviout_checkpoint):
     * the time of the first video stream's frames (its scale / rate each),
     * or, in a file without video, of the first audio stream's bytes at its
     * average byte rate. Set before the first chunk. */
    double checkpoint_seconds;
    /* CALLER-SET, default 0. Non-zero: the automatic checkpoints also force
     * the data to the device, as aviout_checkpoint(w, 1) does. */
    uint32_t checkpoint_sync;
    double checkpoint_clock;            /* media seconds since the last checkpoint */
    /* Sticky: 1 once a write to the file has failed (a full card, an I/O
     * error at a buffer flush). From then on aviout_put_chunk and
     * aviout_checkpoint return 1, and aviout_close2 reports the file as
     * incomplete. */
    uint32_t write_failed;
    /* Per track: the entries of its current standard index that a
     * checkpoint has put on disk (0: none). Such an index is listed as its
     * super index's last entry and rewritten in place, not appended. */
    uint32_t std_index_on_disk[AVIOUT_MAX_STREAMS];
    /* Where the last checkpoint left its "JUNK" header at the end of the
     * file (0: none): the chunks put since then lie inside it. */
    int64_t checkpoint_junk_pos;
    uint8_t *header_image;              /* the header area, as checkpoints render it */
    int64_t header_image_size;
    /* CALLER-SET, default 0 (the library's own form). Non-zero writes the
     * standard form every player reads. Set before the first stream setter.
     * What changes:
     * - standard index chunks are "ix" and both digits of the stream
     *   ("ix00", "ix01"), and the dwChunkId of super and standard indexes
     *   is the stream's data chunk id ("00dc", "01wb"; "dc00" with
     *   swapped_ids), so aviin_get_indx_entry finds them;
     * - idx1 lists every data chunk, also the one put when an ix## chunk
     *   went out before it;
     * - xvid handler and compression codes are written as given;
     * - text-caption and chapter streams get scale 1 and rate 1000
     *   (millisecond ticks) instead of 0 and 0;
     * - with OpenDML, text-caption, bitmap-caption and chapter streams get
     *   a super index and standard indexes too (a new standard index every
     *   64 chunks), as players that use the OpenDML indexes drop a stream
     *   without one;
     * - the header area's "JUNK" filler is zero bytes. */
    uint32_t standard_profile;
} aviout_handle;

/* Creates path ("wb"), or with append non-zero opens it "r+b" and writes the
 * new AVI after what it holds. odml 1 writes OpenDML indexes. Null when the
 * handle cannot be allocated or the file cannot be opened. */
KELQAVI_API aviout_handle *aviout_open(const char *path, uint32_t odml, uint32_t append);

/* Stream setters: *out_stream receives the new stream number, or -1. The
 * record is copied; its name (and a video stream's strd block) are copied
 * into blocks the writer owns. 0 on success, 1 on failure. A refused stream
 * still counts: its kind's count (and from the 20th call stream_count) stay
 * incremented, so later calls of the same kind see the larger count.
 * Limits: 2 video (only the first is dependable), 12 audio, 12 text caption,
 * 12 bitmap caption and 2 chapter streams, 19 in all.
 * A stream given without a name (name_length below 1) clears the name of the
 * record of its kind at the position of the last video stream, which for a
 * video stream is its own record (nothing when no video stream is given or
 * that position is beyond the kind's table); a name cleared so is freed.
 * The video and audio setters take frame_duration, the seconds one chunk of
 * the stream lasts, for the OpenDML index; with odml 1 a null frame_duration
 * or one that gives a capacity outside 0..536,870,900 entries fails.
 * Also 1, changing nothing: a null w, out_stream or record; a call after the
 * first chunk; an audio cb_size above 22 or a negative strd_size. */
KELQAVI_API int aviout_set_video_format(aviout_handle *w, int32_t *out_stream, const video_stream_format *record,
                                        const double *frame_duration);
KELQAVI_API int aviout_set_audio_format(aviout_handle *w, int32_t *out_stream, const audio_stream_format *record,
                                        const double *frame_duration);
KELQAVI_API int aviout_set_text_caption_format(aviout_handle *w, int32_t *out_stream,
                                               const caption_stream_format *record);
KELQAVI_API int aviout_set_bitmap_caption_format(aviout_handle *w, int32_t *out_stream,
                                                 const video_stream_format *record);
KELQAVI_API int aviout_set_chapter_format(aviout_handle *w, int32_t *out_stream, const caption_stream_format *record);
/* The strd block of the FIRST video record (whatever video_count is):
 * present flag 1, version 2, the block copied. 1 when it cannot be
 * allocated (the flag stays set), and, changing nothing, for a null w, a
 * negative size, null data with a positive size, or a call after the first
 * chunk. A block given earlier is freed. */
KELQAVI_API int aviout_set_strd_info(aviout_handle *w, const uint8_t *data, int32_t size);
/* Drops the strd block of the LAST video record given; 0 (also when it has
 * none). 1 for a null w or after the first chunk, changing nothing. */
KELQAVI_API int aviout_clear_strd_info(aviout_handle *w);
/* The menu ("MENU") and metadata ("MTDA") blocks, stored at size rounded up
 * to even. Only size bytes are read from data; the pad byte of an odd size
 * is 0. 1 when the copy cannot be allocated, and, changing nothing, for a
 * null w, a negative size, null data with a positive size, or a call after
 * the first chunk. A block given earlier is freed. */
KELQAVI_API int aviout_set_menu_info(aviout_handle *w, const uint8_t *data, int32_t size);
KELQAVI_API int aviout_set_metadata_info(aviout_handle *w, const uint8_t *data, int32_t size);

/* Appends one data chunk to stream's "movi" list (the first call writes the
 * header area first). flags: AVIOUT_KEY_FRAME, AVIOUT_FRAME_DATA,
 * AVIOUT_UNCOMPRESSED. 0 written; 1 a write failed (or the header area did);
 * 4 written, and the file has reached 0x7F000000 bytes: close it.
 * 0 means the chunk went into the stream's 64 KiB buffer: a write that
 * fails when the buffer goes out (a full card) is reported by the call
 * that meets it, and from then on every call gives 1 (write_failed stays
 * set), so a recorder knows that what it put since its last successful
 * aviout_checkpoint may be lost. With checkpoint_seconds set, a call that
 * made an automatic checkpoint that failed gives 1 too.
 * Chunks past the legacy index's 1,872,000 entries are written but not
 * indexed in idx1. With OpenDML on, 1 also when the chunk was written but its
 * track's index is full (a 101st standard index chunk, or more chunks than a
 * standard index holds): the index stops growing, the chunk is in idx1.
 * 1, writing nothing, for a null w, a stream number outside 0..stream_count-1,
 * or null data with a positive size. Chunks of text caption, bitmap caption
 * and chapter streams take no part in the OpenDML indexes. */
KELQAVI_API int aviout_put_chunk(aviout_handle *w, int32_t stream, uint32_t flags, const uint8_t *data,
                                 uint32_t size);
/* Writes the last indexes, finishes the file, closes it and frees the handle
 * and everything it owns. A writer that got no chunk leaves the file as it
 * was opened. Null does nothing. */
KELQAVI_API void aviout_close(aviout_handle *w);

/* ------------------------------------------------------------------------
 * Keeping a recording safe while it is written.
 * ------------------------------------------------------------------------ */

/* Makes the file on disk a complete AVI of every chunk put so far, without
 * closing the writer; writing then goes on where it was. 0 done, 1 failed
 * (also once any earlier write has failed, and for a null w). Before the
 * first chunk it does nothing and gives 0. sync non-zero also forces the
 * data to the device (fsync).
 * What it writes, all in place: with OpenDML on, each track's current
 * standard index as an ix## chunk of its full length (N x 8 + 48 bytes) at
 * the end D of the data the first time, and its header and new entries over
 * those same bytes at later checkpoints, with its super index entry kept
 * current; the "movi" size and the form's size up to D; the header area
 * with the counts so far and without the has-index flag (no idx1 yet). The
 * data up to D is flushed, and writing goes on at D with the 8-byte header
 * of a top-level "JUNK" chunk whose size runs past any later end of the
 * file (it reaches the disk with the next chunks). A file cut at any later
 * byte is thus the checkpoint's complete form, possibly followed by one
 * chunk every reader passes over: it opens and plays every chunk put before
 * the checkpoint, with the counts and (OpenDML) the index that go with
 * them. The next checkpoint, or finishing the file, makes that header an
 * empty "JUNK" chunk of "movi". idx1 is written only when the file is
 * finished (aviout_repair rebuilds it for a cut one).
 * Cost per checkpoint: the header area in one write, 8 bytes, per OpenDML
 * track the entries added since the last one; four system calls and one per
 * OpenDML track; one copy of the header area in memory, kept with the
 * handle. A checkpoint with nothing put since the last one writes nothing.
 * A finished file holds 8 bytes more per checkpoint (the empty "JUNK"
 * chunks) and, with OpenDML, its ix## chunks where the checkpoints put them.
 * The menu file tail is copied only when the file is finished. */
KELQAVI_API int aviout_checkpoint(aviout_handle *w, int32_t sync);
/* aviout_close that says whether the file is complete: 0 when every write
 * of the file, its finishing and its closing succeeded (a writer that got no
 * chunk gives 0 too), 1 otherwise. The handle is freed either way; null
 * gives 1. */
KELQAVI_API int aviout_close2(aviout_handle *w);

/* ------------------------------------------------------------------------
 * Repairing a recording that was cut short.
 *
 * A recording that loses power, or a writer killed while it writes, leaves
 * a file whose sizes are placeholders (0xFFFFFFFF) or stale, with no idx1 and
 * with its last chunk cut. aviout_repair makes such a file whole in place:
 * the files of this library's writer (with or without OpenDML indexes and
 * checkpoints) and those of other recorders alike.
 *
 * What is kept: every complete chunk of the "movi" lists, in file order, up
 * to the first chunk that runs past the end of the file or cannot be read (an
 * id that is neither a data chunk of a declared stream nor an index, JUNK or
 * list, or a size that runs past a list whose size is right); everything
 * from that chunk on is dropped and the file is truncated (ftruncate on the
 * stream's descriptor). A chunk whose data is complete but whose pad byte is
 * missing is kept and gets its pad byte. The chunks of a LIST "rec " group are
 * kept (and indexed one by one) when the whole group is readable. A "movi"
 * size that ends where data chunks of declared streams go on is taken as
 * stale and the walk goes on; so is one that ends at the header of a "JUNK"
 * chunk running past the end of the file (what aviout_checkpoint leaves: the
 * chunks put after it lie inside that chunk), which the walk steps into and
 * the repair makes an empty "JUNK" chunk of "movi". An idx1 written after
 * the data and partly overwritten by chunks written later (by a recorder
 * that indexes in place) is recognised by its records, which describe the
 * chunks before it, and is not taken for data, though a chunk whose last few
 * bytes fell on that index keeps them.
 *
 * What is rebuilt: when the last RIFF segment kept was cut, its "movi" and
 * RIFF sizes; for the first RIFF an idx1 (offsets from the "movi" type code)
 * with the avih has-index flag; the header counts in place (avih total
 * frames of the first RIFF, each strh length and suggested buffer size, the
 * dmlh total frames), counted as the writer counts: a stream whose sample
 * size is 0 counts chunks, any other ceil(size / sample size) per chunk,
 * "dd" chunks are not counted, and text streams ("txts") keep their length.
 * With OpenDML indexes (a stream with an "indx"), each super index lists the
 * standard index chunks (ix##) kept in the data, trimmed to the chunks kept;
 * the chunks after a stream's last standard index are listed in one more
 * standard index chunk ("ix" and two digits) appended at the end of the last
 * "movi", so a player finds exactly the kept chunks whichever index it reads.
 * A super index with no room for them all is emptied (players then use
 * idx1). A segment that was finished whole is left as it is: after it a cut
 * segment is dropped, and its chunks after the last standard index are
 * then found through idx1 (first RIFF) only.
 *
 * Key frames come from what index survives: an idx1 (offsets from "movi" or
 * from the file start, told apart by the chunk headers), the ix## chunks in
 * the data ("ix00", or this writer's "ix0" and a zero byte; such a chunk
 * belongs to the stream of the chunk its first entry names). Where no index
 * says: audio, text and uncompressed or MJPEG video chunks are key frames;
 * MPEG-4 Visual video is a key frame when its first VOP is intra coded,
 * H.264 when its first slice is an IDR slice (empty chunks are not key
 * frames, and a chunk the look cannot decide is); "dd" chunks are not.
 *
 * Bounded: fixed buffers (about 250 KB, whatever the file's size), and 16
 * bytes per data chunk for up to 65,536 chunks (at most 1 MiB, and never more
 * than 2 bytes per byte of the file) so that the file is walked once; a file
 * with more chunks, or when that block cannot be had, is walked twice. Every
 * size from the file is checked against its length, every loop advances.
 * Nothing is written to a file that is already whole (every RIFF and "movi"
 * size right, idx1 present): it is left byte for byte as it was. The writes
 * go past the kept data first, then the truncation, then the header fields,
 * so a repair that is itself interrupted leaves a file that can be repaired
 * again. The data is not forced to the device (fsync is the caller's).
 * ------------------------------------------------------------------------ */

#define AVIOUT_REPAIR_STREAMS 20

/* Why aviout_repair gave 1 (report.problem). */
enum {
    AVIOUT_REPAIR_NO_PROBLEM = 0,
    AVIOUT_REPAIR_CANNOT_READ = 1,       /* the file cannot be opened or read */
    AVIOUT_REPAIR_NOT_AVI = 2,           /* it does not open with a RIFF "AVI " form */
    AVIOUT_REPAIR_BAD_HEADER = 3,        /* cut or damaged inside the header lists */
    AVIOUT_REPAIR_NO_MOVI = 4,           /* no "movi" list follows the header lists */
    AVIOUT_REPAIR_TOO_MANY_STREAMS = 5,  /* more than AVIOUT_REPAIR_STREAMS */
    AVIOUT_REPAIR_CANNOT_WRITE = 6       /* opening for writing, a write or the truncation failed */
};

/* What ended the kept data (report.drop_cause). */
enum {
    AVIOUT_REPAIR_DROP_NONE = 0,
    AVIOUT_REPAIR_DROP_CUT = 1,          /* a chunk or segment runs past the end of the file */
    AVIOUT_REPAIR_DROP_UNREADABLE = 2,   /* an id that is no chunk of a declared stream, or
                                            bytes after the last segment that are no segment */
    AVIOUT_REPAIR_DROP_BAD_SIZE = 3      /* a size that runs past the end of its list */
};

typedef struct aviout_repair_stream {
    uint32_t type;          /* strh type: "vids", "auds", "txts", ... */
    uint32_t codec;         /* video: strf compression; audio: strf format tag; others: strh handler */
    uint32_t chunks;        /* data chunks kept */
    uint32_t key_frames;    /* of them, key frames (as the rebuilt idx1 flags them) */
    uint64_t bytes;         /* their data bytes */
    uint32_t length;        /* the strh length the chunks kept give */
    uint32_t std_indexes;   /* standard index chunks its super index lists after repair; 0 without indx */
} aviout_repair_stream;

typedef struct aviout_repair_report {
    uint32_t changed;       /* 1 when the file was written */
    uint32_t problem;       /* AVIOUT_REPAIR_... when the result is 1 */
    int32_t stream_count;
    uint32_t segments;      /* RIFF segments kept */
    uint32_t index_entries; /* idx1 records written; 0 when no idx1 was written */
    uint32_t std_indexes_added; /* final standard index chunks appended */
    uint32_t drop_cause;    /* AVIOUT_REPAIR_DROP_... */
    uint32_t reserved;
    int64_t file_size;      /* before */
    int64_t repaired_size;  /* after (the same when nothing changed) */
    int64_t drop_offset;    /* where the first dropped chunk began; -1 when none was */
    int64_t dropped_bytes;  /* bytes of the file from drop_offset to its end */
    aviout_repair_stream streams[AVIOUT_REPAIR_STREAMS];
} aviout_repair_report;

/* Repairs the AVI file at path in place (see above). swapped_ids non-zero
 * also takes data chunk ids written type first ("dc00"), and names a new
 * index "1idx". 0: the file was whole (nothing written, changed 0) or was
 * repaired without dropping a chunk; 3: repaired, and chunks from
 * drop_offset on were dropped; 1: not an AVI this call can repair (not RIFF
 * "AVI ", cut inside the header lists, no "movi", too many streams) or not
 * readable, the file untouched, or writing it failed (problem says which;
 * after a failed write the file may be half repaired, and can be repaired
 * again). report may be null; it is filled as far as the repair went. */
KELQAVI_API int aviout_repair(const char *path, uint32_t swapped_ids, aviout_repair_report *report);

#ifdef __cplusplus
}
#endif

#endif /* KELQAVI_H */
