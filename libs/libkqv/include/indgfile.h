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
 * ---- Integer families: fixed or packed ----------------------------------
 *
 * The families un (unsigned), sn (signed), iss and ind, and their _2 and _3
 * difference forms, follow the header's packed flag.  With packed 0 every
 * integer is a plain 4-byte gf_put_4 value (a _2 form two of them, a, b; a
 * _3 form three).  With packed nonzero:
 *
 *   un   unsigned LEB128 of the 32-bit value, 1 to 5 bytes: 7 bits at a
 *        time, least significant group first, bit 7 set on every byte but
 *        the last (the shift is logical)
 *   sn   signed LEB128, the same with an arithmetic shift: the last byte is
 *        the one after which only copies of its bit 6 remain
 *   iss, ind   un of value + 1, so -1 is the single byte 00
 *   _2 (a, b)      un of a + 1, sn of b - a
 *   _3 (a, b, c)   un of a + 1, sn of b - a, sn of c - b
 * All sums and differences are taken modulo 2^32.
 *
 *   value        un bytes          value         sn bytes
 *   0            00                0             00
 *   127          7F                63            3F
 *   128          80 01             64            C0 00
 *   300          AC 02             -1            7F
 *   16384        80 80 01          -64           40
 *   0xFFFFFFFF   FF FF FF FF 0F    -65           BF 7F
 *                                  -2147483648   80 80 80 80 78
 *                                  2147483647    FF FF FF FF 07
 *
 * The end of the file inside a packed number reads as 0; an unpacked one
 * reads as 0xFFFFFFFF (four missing bytes).
 *
 * ---- Strings ------------------------------------------------------------
 *
 * The length including the terminating zero byte, as un, then that many
 * bytes, the terminator included.  A null pointer is length 0 and no bytes.
 *
 *   "abc"  packed: 04 61 62 63 00      unpacked: 00 00 00 04 61 62 63 00
 *   ""     packed: 01 00               unpacked: 00 00 00 01 00
 *   null   packed: 00                  unpacked: 00 00 00 00
 *
 * ---- Target addresses ---------------------------------------------------
 *
 * Fixed width, big-endian: adr16 2 bytes, adr32 4 bytes, adr64 8 bytes (the
 * high word, then the low word).  A gadr (indgadr.h) goes by the file's
 * adr_mode, never by the process's current mode:
 *
 *   adr_mode      one address (gf_put_adr)     a pair (gf_put_adr_2)
 *   16bit         adr16 of the offset          adr16_2 of the offsets
 *   16bit-16seg   sn of the segment (as an     sn of a's segment, sn of b's,
 *                 unsigned 16-bit number),     adr16_2 of the offsets
 *                 adr16 of the offset
 *   32bit         adr32 of lo                  adr32_2 of the lo words
 *   64bit         adr64                        adr64_2
 *
 * A pair with packed 0 is the two addresses in full; packed, the second is
 * a difference: adr16_2 = adr16 of the first, sn of second - first taken
 * on unsigned 16-bit numbers (-65535..65535); adr32_2 = adr32 of the first,
 * sn of the difference modulo 2^32; adr64_2 = adr64 of the first, sn of the
 * difference of the high words, sn of that of the low words, each modulo
 * 2^32 with no borrow between them.  E.g. packed 64bit, first
 * 0x00000001_FFFFFFFF, second 0x00000002_00000000:
 *   00 00 00 01 FF FF FF FF  01  01
 * Reading restores nil: an offset 0xFFFF (16-bit modes) or a lo 0xFFFFFFFF
 * (32bit) makes the whole gadr nil.
 *
 * ---- Alignment pads -----------------------------------------------------
 *
 * A pad brings the position, counted from the first header byte, to a
 * multiple of a power of two not above 64.  A pad of p bytes holds
 * 0xAA + p, 0xAA + p - 1, ... down to 0xAB: to align 4 at position 21 the
 * pad is AD AC AB; at 22 AC AB; at 23 AB; at 24 nothing.
 *
 * ---- Four-byte arrays and hd storage ------------------------------------
 *
 * Without hd storage (header byte 18 is 0) an array of n words is n gf_put_4
 * values, with no pad.  With hd storage it is a pad to 4 and then the n
 * words as raw big-endian words, which can be handed out straight from a
 * memory mapping on a big-endian host.  No array carries its count.
 *
 * Byte order of hd storage on this host: byte 18 is 1 (words big-endian)
 * or 2 (words in the opposite order to the reader's); a writer never puts
 * 2.  So a writer that asks for hd storage always writes 1 and big-endian
 * words: on a big-endian host the words go out as they lie in memory, on a
 * little-endian host each word is converted on the way (in bounded chunks,
 * with no allocation).  A reader sets swapped when the file's words are
 * not in its own order: for byte 2 on every host, and for byte 1 (or any
 * other nonzero byte, which counts as 1) on a little-endian host.
 * gf_get_array_4 then swaps the words it read, and gf_can_memory_map_array
 * refuses four-byte arrays, since mapped words stay as the file holds
 * them.  Files with byte 18 equal to 0 are the same bytes on every host.
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
 * ---- Writing through a mapping -----------------------------------------------
 *
 * A file that GFile opened for write itself (no stream handed in) starts on
 * the plain stream.  At the first gf_seek that stands at or beyond 64 KiB
 * (the threshold; small files gain nothing) it moves to a shared memory
 * mapping of the file: from then on values are stored straight into the
 * mapping, and gf_tell and gf_seek move a cursor in memory, with no system
 * call.  Positions, results, messages, the error state and the bytes of the
 * file are those of the plain stream.  What differs while the file is open:
 *   - The file grows ahead of the bytes written, in steps of 1 to 64 MiB,
 *     and reads as zeros behind them.  gf_close cuts it to its length (the
 *     highest position any write reached), and so does exit() for a file
 *     still open, in the process that opened it.  A process killed outright
 *     leaves the zeros behind; a reader that stops at a 0 byte sees exactly
 *     what was written.
 *   - A store is in the file for every other process (read(2), mmap) the
 *     moment it is made, since the mapping is the page cache.  The flush
 *     that a seek means on the plain stream becomes a release fence: every
 *     byte written before a gf_seek is visible to other processes no later
 *     than any byte written after it.  So a back-patch (write, seek back,
 *     patch, seek forward) keeps its order on any processor.
 *   - Reading from it first moves it back to the plain stream, where the
 *     read fails as it always did on a file opened for write.
 * When the mapping can't be made or grown (a file system without shared
 * writable mappings, no space for the next step, a write beyond 2 GiB), the
 * file goes back to the plain stream where it stands, and failures show in
 * the stream's error indicator as before.
 *
 * GFILE_WRITE_STDIO, a switch for tests and diagnosis, read once: set to
 * anything but "" or "0" it keeps every file on the plain stream.  That is
 * the unoptimised writer, whose files the mapped one matches byte for byte.
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
#define GF_HEADER_SIZE 20          /* bytes; position of the first byte behind it */
#define GF_FORMAT_VERSION 1        /* written, and the highest one read */
#define GF_HD_STORAGE_NONE 0       /* header byte 18: arrays element by element */
#define GF_HD_STORAGE_BIG_ENDIAN 1 /* raw big-endian words; what a writer puts */
#define GF_HD_STORAGE_SWAPPED 2    /* raw words in the other order than the reader's */

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
  uint8_t swapped;                    /* 1: hd storage words need swapping (reading) */
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
  /* Internal to GFile (indgfile_stream.h), behind the documented fields:
   * the shared mapping that a large file opened for write takes its bytes
   * through; null while they go through fp. */
  struct gf_write_mapping *write_map;
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

/* ---- Following a file that another process writes ------------------------
 * For a reader of a file that may still grow: it must see what the writer
 * added since its last read, and must check lengths it read against the
 * bytes really there.  None of these prints or touches the error state; on
 * a null or closed record each does nothing and answers 0 or -1. */

/* 1 while the record has an open stream, else 0. */
int gf_is_open(const GFile *gf);
/* fflush of the stream: pending output goes to the file; on a stream open
 * for reading, the bytes it buffered are dropped, so that the next read
 * after a seek comes from the file. */
void gf_flush(GFile *gf);
/* Moves the stream to the end of the file as it is now. */
void gf_seek_to_end(GFile *gf);
/* Where the stream stands, in bytes from the start of the file (the header
 * at base counts like any other bytes); -1 when unknown. */
int64_t gf_stream_offset(const GFile *gf);
/* The file's length now, in bytes from its start (fstat); -1 when unknown. */
int64_t gf_stream_length(const GFile *gf);
/* 1 when a read since the last seek met the end of the file (the stream's
 * end-of-file indicator), else 0. */
int gf_hit_end(const GFile *gf);

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

/* ---- Fixed-width addresses ----------------------------------------------
 * Big-endian, whatever the file's packed flag and adr_mode.  The readers
 * give 0xFFFF, 0xFFFFFFFF or all-ones words at the end of the file. */

void gf_put_adr16(GFile *gf, uint32_t value); /* the low 16 bits */
uint32_t gf_get_adr16(GFile *gf);             /* 0..65535 */
void gf_put_adr32(GFile *gf, uint32_t value);
uint32_t gf_get_adr32(GFile *gf);
/* hi, then lo. */
void gf_put_adr64(GFile *gf, const gadr *a);
void gf_get_adr64(GFile *gf, gadr *a);

/* ---- Integer families ---------------------------------------------------
 * Fixed (4 bytes) or packed (LEB128) by the file's packed flag; see the
 * table above.  A packed reader that meets the end of the file inside a
 * number returns 0 (the _2 and _3 readers carry on from there); an
 * unpacked one reads missing bytes as 0xFF.  A packed reader takes every
 * byte with bit 7 set as one more group, however many; bits beyond 32 are
 * dropped. */

void gf_put_un(GFile *gf, uint32_t value);
uint32_t gf_get_un(GFile *gf);
void gf_put_sn(GFile *gf, int32_t value);
int32_t gf_get_sn(GFile *gf);
/* -1 takes the single byte 00 when packed. */
void gf_put_iss(GFile *gf, int32_t value);
int32_t gf_get_iss(GFile *gf);
void gf_put_ind(GFile *gf, int32_t value);
int32_t gf_get_ind(GFile *gf);
/* Pairs and triples, the later values as differences when packed.  The
 * readers store through every pointer, which must not be null. */
void gf_put_iss_2(GFile *gf, int32_t a, int32_t b);
void gf_get_iss_2(GFile *gf, int32_t *a, int32_t *b);
void gf_put_iss_3(GFile *gf, int32_t a, int32_t b, int32_t c);
void gf_get_iss_3(GFile *gf, int32_t *a, int32_t *b, int32_t *c);
void gf_put_ind_2(GFile *gf, int32_t a, int32_t b);
void gf_get_ind_2(GFile *gf, int32_t *a, int32_t *b);
void gf_put_ind_3(GFile *gf, int32_t a, int32_t b, int32_t c);
void gf_get_ind_3(GFile *gf, int32_t *a, int32_t *b, int32_t *c);

/* ---- Strings --------------------------------------------------------- */

/* Writes s with its length (terminator included) as un; null is length 0
 * and no bytes. */
void gf_put_str(GFile *gf, const char *s);
/* Reads a string written by gf_put_str.  Length 0 gives null.  Otherwise
 * returns a new gen_alloc'ed block holding the stated bytes as the file has
 * them (the terminator is the file's), followed by one extra zero byte, so
 * the result always ends in a zero even when the file is damaged.  When the
 * file ends inside the string the result holds the bytes that were there,
 * then zeros; gf_is_eof tells.  Memory grows only with the bytes that
 * arrive, so a damaged length can't ask for more than the file holds.  The
 * caller frees the result with gen_free. */
char *gf_get_str(GFile *gf);

/* ---- Target addresses by the file's mode --------------------------------
 * By adr_mode (see the table above); a file whose adr_mode is not one of
 * the four modes makes them all do nothing. */

void gf_put_adr(GFile *gf, const gadr *a);
/* Reads one address into *a:
 *   16bit        an offset of 0xFFFF makes *a nil; otherwise only the
 *                offset (low half of lo) is stored, the rest stays
 *   16bit-16seg  segment by gf_get_sn, then the offset; an offset of 0xFFFF
 *                makes *a nil; otherwise lo = segment (low 16 bits) and
 *                offset, hi stays
 *   32bit        0xFFFFFFFF makes *a nil; otherwise lo is stored, hi stays
 *   64bit        hi and lo as read */
void gf_get_adr(GFile *gf, gadr *a);
void gf_put_adr_2(GFile *gf, const gadr *a, const gadr *b);
/* Reads a pair and then treats each address alone as gf_get_adr does. */
void gf_get_adr_2(GFile *gf, gadr *a, gadr *b);

/* The pair forms; with packed nonzero the second as a difference. */
void gf_put_adr16_2(GFile *gf, uint32_t first, uint32_t second); /* low 16 bits of each */
void gf_get_adr16_2(GFile *gf, uint16_t *first, uint16_t *second);
void gf_put_adr32_2(GFile *gf, uint32_t first, uint32_t second);
/* Stores the lo word of each; their hi words stay as they were. */
void gf_get_adr32_2(GFile *gf, gadr *first, gadr *second);
void gf_put_adr64_2(GFile *gf, const gadr *first, const gadr *second);
void gf_get_adr64_2(GFile *gf, gadr *first, gadr *second);

/* ---- Alignment pads -----------------------------------------------------
 * alignment: a power of two not above 64; 0 and 1 do nothing, and so does
 * any other value (a caller's mistake).  The position is gf_tell's,
 * relative to base; when gf_tell fails (it reports) nothing more is done. */

/* Writes the pad that brings the position to a multiple of alignment. */
void gf_put_alignpad(GFile *gf, uint32_t alignment);
/* Reads that pad to its end; every byte that isn't what a writer puts sets
 * the alignpad error (one message per file, see the error state). */
void gf_get_alignpad(GFile *gf, uint32_t alignment);

/* ---- Arrays and memory mappings -----------------------------------------
 * n 0 does nothing in all of these (no pad, ptr untouched). */

/* Hands out n bytes at the current position straight from the file's
 * memory mapping (gf_open_memory_mapping) and moves n bytes forward.  *ptr
 * points into the mapping and is valid while the mapping lasts.  With no
 * mapping, or when the n bytes don't lie wholly inside it (a file cut
 * short), *ptr becomes null, the file memory mapping error is set and the
 * position stays. */
void gf_get_mapped_array_1(GFile *gf, const uint8_t **ptr, uint32_t n);

/* Writes n words.  With hd storage: a pad to 4, then the words big-endian
 * in block writes.  Without: n times gf_put_4, no pad. */
void gf_put_array_4(GFile *gf, const uint32_t *buf, uint32_t n);
/* Reads n words into buf, the counterpart of gf_put_array_4.  With hd
 * storage: the pad (checked), one block read, and gf_swap_array_4 when
 * swapped; words the file didn't hold are unspecified.  Without: n times
 * gf_get_4. */
void gf_get_array_4(GFile *gf, uint32_t *buf, uint32_t n);
/* As gf_get_mapped_array_1 for n words of a file with hd storage: reads the
 * pad, then hands out the words as the file holds them (unconverted in a
 * swapped file: ask gf_can_memory_map_array(gf, 4) first).  Without a
 * mapping or without hd storage: *ptr null, the file memory mapping error,
 * and the position stays. */
void gf_get_mapped_array_4(GFile *gf, const uint32_t **ptr, uint32_t n);
/* Passes over n words: with hd storage the pad (checked) and a seek,
 * without n times gf_get_4, or fewer when the end of the file comes first
 * (the reads behind it would read nothing), so the cost follows the file's
 * bytes, not n. */
void gf_skip_array_4(GFile *gf, uint32_t n);
/* Reverses the four bytes of each of the n words at buf in place. */
void gf_swap_array_4(uint32_t *buf, uint32_t n);

/* ---- Constant checks ----------------------------------------------------
 * Write nothing: when value differs from expected they set the constval
 * error (one message per file, see the error state). */
void gf_put_uc(GFile *gf, uint32_t value, uint32_t expected);
void gf_put_sc(GFile *gf, int32_t value, int32_t expected);

/* ---- Internal ------------------------------------------------------------
 * Not for callers outside GFile; declared here so that tests can reach it. */

/* The shared body of gf_open_for_read (for_write 0, with the placeholders
 * 0, 0, 2, 0, 0) and gf_open_for_write (for_write 1). */
GFile *gf_init_and_open(GFile *gf, FILE *stream, const char *name, int for_write,
                        uint32_t file_type, uint32_t packed, int32_t adr_mode, uint8_t descriptors,
                        uint8_t hd_storage);

/* The size from which a file opened for write moves to a mapping (see
 * "Writing through a mapping"): 65536 by default, 0xFFFFFFFF under
 * GFILE_WRITE_STDIO.  0 maps every such file from its first gf_seek on;
 * 0xFFFFFFFF never maps.  For tests; affects later seeks of every file. */
uint32_t gf_get_write_mapping_threshold(void);
void gf_set_write_mapping_threshold(uint32_t bytes);

/* 1 while gf's bytes go through a mapping, else 0 (also for null). */
int gf_is_write_mapped(const GFile *gf);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGFILE_H */
