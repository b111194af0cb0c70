/*
 * indgfile.h - GFile, the portable binary file under the event database: a
 * standard I/O stream that starts with a 20-byte self-describing header,
 * counts positions from the first header byte, and collects failures in a
 * sticky error state that prints at most one message per file.
 *
 * This header is the one description of the GFile format: the header
 * layout, then the value encodings.  Every number in a GFile is big-endian,
 * the most significant byte first, whatever the host; the file carries no
 * byte-order mark.
 *
 * ---- The header ---------------------------------------------------------
 *
 *   offset size field           value
 *   0      1    magic           0x7F
 *   1      3    magic           the ASCII letters "TOV"
 *   4      4    format version  1 when written; a reader takes any value
 *                               not above 1, compared as a signed number
 *   8      4    file type       the creator's own number; stored and loaded,
 *                               never compared
 *   12     4    packed flag     0: the integer families and address deltas
 *                               of the packed encodings are fixed width;
 *                               nonzero: variable length
 *   16     1    address enc.    the file's address mode in its header form:
 *                               2 16bit, 66 16bit-16seg, 4 32bit, 8 64bit
 *                               (indgadr.h)
 *   17     1    descriptors     0 when written; a reader refuses nonzero
 *   18     1    hd storage      0: four-byte arrays element by element;
 *                               1: raw words, 4-aligned, big-endian;
 *                               2: as 1 with the words in the opposite order
 *                               to the reader's (the reader swaps).
 *                               A writer puts 1 or 0, never 2.
 *   19     1    reserved        0 when written; a reader refuses nonzero
 *
 * The header stands at the stream's position when the file was opened, and
 * position 0 is its first byte, so the first byte behind it is position 20.
 *
 * Worked example: the event database's stream file, file type 4, packed 0,
 * mode 32bit, no descriptors, no hd storage:
 *
 *   7F 54 4F 56  00 00 00 01  00 00 00 04  00 00 00 00  04  00  00  00
 *   0x7F "TOV"   version 1    type 4       packed 0     enc desc hd  rsv
 *
 * ---- Fixed-width values ---------------------------------------------------
 *
 *   gf_put_1 / gf_get_1   1 byte              0x9A        -> 9A
 *   gf_put_2 / gf_get_2   2 bytes, big-endian 0x1234      -> 12 34
 *   gf_put_4 / gf_get_4   4 bytes, big-endian 0x12345678  -> 12 34 56 78
 *   gf_put_8 / gf_get_8   8 bytes, big-endian 0x0102030405060708
 *                                               -> 01 02 03 04 05 06 07 08
 *   gf_put_array_1 / gf_get_array_1 / gf_skip_array_1: n raw bytes, with no
 *   count of their own; the format around them says how long they are.
 *
 * A read past the end of the file gives 0xFF for each missing byte and sets
 * the stream's end-of-file indicator: gf_get_2 with one byte 0xAB left
 * gives 0xABFF, gf_get_4 at the end gives 0xFFFFFFFF.
 *
 * The variable-length integers (governed by the packed flag), strings,
 * target addresses (governed by adr_mode), alignment pads and four-byte
 * arrays (governed by hd storage) are further encodings of the same file;
 * they take a GFile and work at its current position like the values here.
 *
 * ---- States -----------------------------------------------------------------
 *
 *        gf_open_for_read                         gf_open_for_write
 *   (none) -----------------> READING     WRITING <----------------- (none)
 *                                |            |
 *                       gf_close |            | gf_close
 *                                v            v
 *                                   CLOSED  (fp null; a record the caller
 *                                            owns keeps its sticky flags;
 *                                            an allocated record is freed)
 *
 * The direction is fixed at opening; reads and writes are not checked
 * against it.  An open that fails leaves no GFile (null result).
 *
 * ---- The sticky error state --------------------------------------------------
 *
 * No read or write returns a failure.  Instead:
 *   - the stream's own error indicator records failed writes and reads;
 *   - four sticky flags record GFile's own failures: descriptor_error,
 *     constval_error, alignpad_error and file_memory_mapping_error, each set
 *     by its gf_set_*_error function;
 *   - a failing gf_tell or gf_seek, a failing close of the stream and every
 *     gf_set_*_error lead to gf_set_got_error, which prints
 *     "Error while processing \"<name>\"" (with the system's error text for
 *     tell, seek and close) the first time only: got_error remembers that
 *     the message was given, and a GFile gives it at most once in its life.
 * Errors never change the state: the file stays open and usable, and later
 * reads and writes go to the stream as before.  Nothing leaves the error
 * state.  The caller asks gf_got_error once, at a point of its choosing
 * (it answers from the four flags and, while open, the stream's indicator;
 * not from got_error), or gf_is_eof after reading.
 *
 * Ownership: a caller may hand in a record of its own (it is cleared) or
 * null (one is allocated and gf_close frees it).  A stream handed in stays
 * the caller's and is never closed here; a stream GFile opened is closed by
 * gf_close or by a failing open.
 *
 * One thread only: nothing here is locked.
 */
#ifndef RAVELOG_INDGFILE_H
#define RAVELOG_INDGFILE_H

#include <stdint.h>
#include <stdio.h>

#include "indgadr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Format constants ------------------------------------------------ */
#define GF_HEADER_SIZE 20        /* bytes; position of the first byte behind it */
#define GF_FORMAT_VERSION 1      /* written, and the highest one read */
#define GF_HD_STORAGE_NONE 0     /* header byte 18 values */
#define GF_HD_STORAGE_NATIVE 1
#define GF_HD_STORAGE_SWAPPED 2

/* ---- The record ---------------------------------------------------------
 * Fields in this order.  A position is a 32-bit signed number relative to
 * base, so the header's first byte is position 0. */
typedef struct _GFile GFile;
struct _GFile {
  FILE *fp;                           /* the stream; null after gf_close */
  char *name;                         /* owned copy of the file name; may be null */
  int32_t version;                    /* 1 when writing, the header's when reading */
  uint32_t file_type;                 /* the header's file type */
  uint32_t packed;                    /* the header's packed flag */
  int32_t adr_mode;                   /* this file's address mode (GADR_MODE_*) */
  uint8_t descriptors;                /* always 0 in an open record */
  uint8_t swapped;                    /* 1 when the hd storage byte is 2 (reading) */
  void *map_addr;                     /* mapping of the file; (void *)-1 if none */
  uint32_t map_len;                   /* its length in bytes; 0xFFFFFFFF if none */
  int32_t base;                       /* stream offset of header byte 0 */
  uint8_t descriptor_error;           /* sticky flag */
  uint8_t constval_error;             /* sticky flag */
  uint8_t alignpad_error;             /* sticky flag */
  uint8_t file_memory_mapping_error;  /* sticky flag */
  uint8_t owns_fp;                    /* 1: GFile opened fp and closes it */
  uint8_t owns_mapping;               /* 1: gf_close unmaps the mapping */
  uint8_t got_error;                  /* 1 once the error message was given */
  uint8_t writing;                    /* 1 when opened for write */
  uint8_t owns_record;                /* 1: the open allocated the record */
  uint8_t hd_storage;                 /* argument (write) or header byte 18 (read) */
};

/* ---- Opening and closing --------------------------------------------- */

/* Opens a GFile for reading and checks its header.
 *   gf      a record to fill (cleared first), or null to allocate one.
 *   stream  an open stream standing at the header, which stays the
 *           caller's; or null, and then name is opened with mode "r".
 *   name    the file's name, copied into the record; may be null with a
 *           stream.
 * All 20 header bytes are read before any test.  The open fails, silently,
 * when the stream's error indicator is set, the magic differs, the version
 * is above 1 or the reserved byte is nonzero; it fails with
 * gen_error("GFile desciptors not supported") when the descriptors byte is
 * nonzero.  An unknown address encoding gives its own message (indgadr.h)
 * and the mode 32bit, and doesn't fail the open by itself.  A file that
 * can't be opened gives null and no message.
 * Returns the record (gf itself when given) or null.  On failure a stream
 * opened here is closed and an allocated record freed; a caller's record
 * stays cleared but for fp, owns_fp and base. */
GFile *gf_open_for_read(GFile *gf, FILE *stream, const char *name);

/* Opens a GFile for writing and writes its header (see the table above).
 *   gf, stream, name  as for gf_open_for_read; name is opened with mode
 *                     "w" (created or truncated) when stream is null.
 *   file_type         stored in the header as it is.
 *   packed            the packed flag, stored as it is.
 *   adr_mode          a GADR_MODE_* number; an unknown one gives its
 *                     message (indgadr.h) and the encoding of 32bit.
 *   descriptors       unsupported: nonzero gives the warning
 *                     "GFile desciptors not supported" and 0 is written.
 *   hd_storage        nonzero writes hd storage byte 1, 0 writes 0; the
 *                     record keeps the argument.
 * The event database calls gf_open_for_write(0, 0, name, 4, 0, 2, 0, 0).
 * Returns the record or null: when the file can't be opened (no message),
 * or when the stream's error indicator is set after the header (failure
 * handling as for reading). */
GFile *gf_open_for_write(GFile *gf, FILE *stream, const char *name, uint32_t file_type,
                         uint32_t packed, int32_t adr_mode, uint8_t descriptors,
                         uint8_t hd_storage);

/* Closes the GFile: closes the stream if GFile opened it (a failing close
 * gives the once-only message with the system's error text), sets fp to
 * null, frees name, unmaps a mapping the record owns and frees an allocated
 * record.  A caller's record keeps its sticky flags, so gf_got_error still
 * answers.  Sets errno to 0 first.  gf must be a live, opened record (null
 * is ignored).  Returns 1, also when the stream's close failed. */
int gf_close(GFile *gf);

/* ---- Positions ------------------------------------------------------- */

/* Stores the current position, relative to base, in *pos (when pos isn't
 * null) and returns it.  On failure (also on a closed record) both are -1
 * and the once-only message is given with the system's error text. */
int32_t gf_tell(GFile *gf, int32_t *pos);

/* Moves to pos, relative to base, counted from the start of the file.
 * Pending output reaches the file first, so a back-patch (write, seek back,
 * patch, seek forward) puts every byte written before the forward seek into
 * the file in order.  Returns 0, or -1 on failure, after the once-only
 * message with the system's error text. */
int gf_seek(GFile *gf, int32_t pos);

/* ---- The error state --------------------------------------------------- */

/* 1 when any of the four sticky flags is set or, while fp is not null, the
 * stream's error indicator is set; else 0.  got_error is not consulted. */
int gf_got_error(const GFile *gf);

/* 1 when the stream's end-of-file indicator is set, else 0.  Answers only
 * for a stream GFile opened itself: on a closed record it warns
 * "[gf_check_eof]: fp==NULL", on a stream handed in
 * "[gf_check_eof]: fp==unowned", and answers 0. */
int gf_is_eof(const GFile *gf);

/* Gives the once-only message: unless got_error is already set, sets it and
 * prints "Error while processing \"%s\"" with name, or "UNKNOWN" when name
 * is null, through gen_perror (with the errno text) when with_errno is
 * nonzero, else through gen_error.  Doesn't end the process.  A null gf is
 * ignored. */
void gf_set_got_error(GFile *gf, int with_errno);

/* Each sets its own sticky flag, then calls gf_set_got_error(gf, 0). */
void gf_set_descriptor_error(GFile *gf);
void gf_set_constval_error(GFile *gf);
void gf_set_alignpad_error(GFile *gf);
void gf_set_file_memory_mapping_error(GFile *gf);

/* ---- Memory mapping ---------------------------------------------------- */

/* The address that stands for no mapping: (void *)-1. */
void *gf_get_nil_file_memory_mapping_handle(void);

/* Maps the whole file read-only (shared, no swap reserved).  Tried only for
 * an open file that was opened for read and whose header is at stream
 * offset 0 (base 0), and only when the file is not empty and its length
 * fits in 32 bits.  Stores the mapping in map_addr and map_len, or -1 in
 * both on failure; a mapping the record owned before is released first.
 * close_with_file nonzero makes gf_close unmap it (owns_mapping); with 0 the
 * mapping outlives the file and the caller ends it with
 * gf_close_memory_mapping.  When addr is not null, the address and length
 * are also stored through addr and len (when len isn't null; -1 in both on
 * failure).  Returns the address or the nil handle.  The bytes stay valid
 * until the mapping is closed. */
void *gf_open_memory_mapping(GFile *gf, uint8_t close_with_file, void **addr, uint32_t *len);

/* Unmaps.  With addr the nil handle, the record's own mapping (map_addr,
 * map_len) is meant; gf may be null, and then nothing is done.  When the
 * unmapped address is the record's, the record forgets it (map_addr and
 * map_len -1, owns_mapping 0).  A length of 0xFFFFFFFF is taken from the
 * record when addr is its mapping; otherwise it does nothing. */
void gf_close_memory_mapping(GFile *gf, void *addr, uint32_t len);

/* 1 when arrays of element_size bytes can be handed out straight from the
 * record's mapping: a mapping exists, base is a multiple of element_size,
 * and for 4 the file has hd storage and isn't swapped.  element_size must
 * be 1 or 4; another gives the warning
 * "GFile: [gf_can_map_hd_storage]: invalid array element size".  A null gf
 * or a missing mapping gives 0. */
int gf_can_memory_map_array(const GFile *gf, int element_size);

/* ---- Fixed-width values and byte arrays -----------------------------------
 * All work at the stream's current position and go straight to the stream;
 * none reports a failure by itself (see the error state above).  Values
 * are written byte by byte, most significant first; each writer takes the
 * low bytes of its argument.  On a closed record (fp null) writers do
 * nothing and readers see the end of the file. */

void gf_put_1(GFile *gf, uint32_t value);
void gf_put_2(GFile *gf, uint32_t value);
void gf_put_4(GFile *gf, uint32_t value);
void gf_put_8(GFile *gf, uint64_t value);

/* Each missing byte at the end of the file reads as 0xFF. */
uint32_t gf_get_1(GFile *gf);  /* 0..255 */
uint32_t gf_get_2(GFile *gf);  /* 0..65535 */
uint32_t gf_get_4(GFile *gf);
uint64_t gf_get_8(GFile *gf);

/* Writes the n bytes at buf in one block write; n 0 writes nothing (buf
 * may then be null). */
void gf_put_array_1(GFile *gf, const void *buf, uint32_t n);
/* Reads n bytes into buf in one block read.  A short read is not reported;
 * the bytes of buf that weren't read stay as they were. */
void gf_get_array_1(GFile *gf, void *buf, uint32_t n);
/* Moves n bytes forward from the current position (by gf_tell and gf_seek,
 * which report their own failures). */
void gf_skip_array_1(GFile *gf, uint32_t n);

/* ---- Internal ------------------------------------------------------------
 * Not for callers outside GFile; declared here so that tests can reach it. */

/* The shared body of gf_open_for_read (for_write 0, with the placeholders
 * 0, 0, 2, 0, 0) and gf_open_for_write (for_write 1). */
GFile *gf_init_and_open(GFile *gf, FILE *stream, const char *name, int for_write,
                        uint32_t file_type, uint32_t packed, int32_t adr_mode,
                        uint8_t descriptors, uint8_t hd_storage);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGFILE_H */
