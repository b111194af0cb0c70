/*
 * kq_io_format.h - the byte layout of an event database and the order of
 * writes that lets a reader follow a database while it grows.  Writer
 * (kq_io_write.cpp) and readers (kq_io_read.cpp and the query files) take
 * every format number from here.
 *
 * Every number in the three files is big-endian, whatever the host and
 * whatever the target.  U1, U2, U4, U8 are unsigned numbers of that many
 * bytes (gf_put_N / gf_get_N); bytes[n] is raw (gf_put_array_1).  Event
 * payloads and object values are raw bytes: a payload stands as the target
 * produced it, in the byte order that .kqv names; the numbers inside a Task
 * value are big-endian.
 *
 * A position is a 32-bit distance from the first byte of the file, the
 * 20-byte GFile header included, so the first byte behind the header is
 * position 20.  A time is a U8 count of ticks.
 *
 * .kqv (GFile file type 6), written whole, once:
 *
 *   pos     size  type      field
 *   20      1     U1        format version, 3 when written
 *   21      4     U4        ticks per second
 *   25      4     U4        L, length of the configuration name
 *   29      L     bytes[L]  configuration name in lower case, no terminator
 *   29+L    1     U1        target byte order: 1 big-endian, 0 little-endian
 *   30+L    4     U4        events per block, 100 (format version 2 and up)
 *
 * .kqs (file type 4): blocks from position 20 on, ended by a U1 0.  Block k
 * holds events k*100 .. k*100+99 and is
 *
 *   OBJUSED packet     U1 3, U4 n, n x (U2 type, U4 id)
 *   state save packet  U1 2, U4 n, n x (U2 type, U4 id, U4 v, bytes[v] value)
 *   event packet ...   U1 1, U8 time, U4 p, U2 type, U2 subtype, bytes[p],
 *                      state change records, U1 3
 *
 *   state change New   U1 0, U2 type, U4 id, U2 v, bytes[v] value
 *   state change Mod   U1 1, U2 type, U4 id, U2 offset, U1 c, bytes[c]
 *   state change Del   U1 2, U2 type, U4 id
 *
 * The state save of block k holds every object as it stands before the
 * block's first event; the OBJUSED packet of block k lists what block k-1
 * used (every object alive at its start or created in it), one block late.
 * In block 0 both are empty.
 *
 * .kqi (file type 5): 13-byte entries from position 20 on, ended by a U1 0:
 *
 *   U1 1, U8 time of the block's first event, U4 position of the tag of the
 *   block's OBJUSED packet in .kqs
 *
 * Tags, by place:
 *
 *   value  packet boundary (.kqs)  inside an event     entry boundary (.kqi)
 *   0      end: nothing more yet   state change New    end: nothing more yet
 *   1      event packet            state change Mod    index entry
 *   2      state save packet       state change Del    -
 *   3      OBJUSED packet          end of the changes  -
 *
 * A worked example (big-endian target, 1000000 ticks/s, "ThreadX"; event A
 * at time 5, type 1, payload 00 00 00 2A; event B at time 6, type 2,
 * subtype 3, no payload; no state changes):
 *
 *   .kqv  41 bytes: header, 03, 00 0F 42 40, 00 00 00 07, "threadx", 01,
 *         00 00 00 64
 *   .kqs  71 bytes: header, 03 00000000 02 00000000
 *         01 0000000000000005 00000004 0001 0000 0000002A 03
 *         01 0000000000000006 00000000 0002 0003 03  00
 *   .kqi  34 bytes: header, 01 0000000000000005 00000014 00
 *
 * ORDER OF WRITES.  Between two operations of the writer, .kqs and .kqi
 * each end in a U1 0 with the write position right behind it.  A reader
 * stops at a 0 tag and trusts everything before it.  So every addition
 * obeys these rules:
 *
 *   (1) The record's bytes and a new 0 tag behind them are in the file
 *       before the tag in front of the record is patched.
 *   (2) That patch is the only write to bytes already written; the tag
 *       becomes 3 for a block's first event (making the OBJUSED body, the
 *       state save and the event packet visible at once) and 1 otherwise.
 *   (3) A .kqi entry is added only after the .kqs patch of the same event,
 *       so the index never runs ahead of the stream.
 *
 * The patch of rules (1) and (2) goes: note the position P of the final 0
 * tag (gf_tell - 1); write the record from P + 1 on and a new 0 tag behind
 * it; note the end E (gf_tell); gf_seek to P, gf_put_1 the real tag,
 * gf_seek to E.  On a file written through stdio the seek to P puts every
 * buffered byte into the file ahead of the patched tag and the seek to E
 * puts the tag there.  On a file written through a shared mapping (a large
 * one; indgfile.h) every store is in the file the moment it is made, and
 * the seek to P is a release fence, so the record is in the file ahead of
 * the tag on any processor.  Either way, when an addition returns its
 * bytes are in the file for any process.
 *
 * While a database is being written, .kqs and .kqi may run on behind their
 * final 0 tag: a file written through a mapping grows ahead of its writer
 * in steps of MiBs, and what lies beyond the bytes written reads as zeros.
 * A reader stops at the first 0 tag and never looks there.  kq_Close (and
 * exit() in the writing process) cuts both files to their length; a
 * writer killed outright leaves the zeros, behind a valid prefix.
 *
 * Creating a database obeys two more:
 *
 *   (4) The files of an old database of the same name are removed in the
 *       order .kqv, .kqi, .kqs, so none of the old files outlives its .kqv
 *       by the time the new .kqs is opened.
 *   (5) .kqv comes to exist under its own name last: it is written whole
 *       under a temporary name and moved into place after .kqs and .kqi
 *       stand in their files with their headers and 0 tags.  A reader that
 *       finds the .kqv finds the other two readable.
 */
#ifndef RAVELOG_KQ_IO_FORMAT_H
#define RAVELOG_KQ_IO_FORMAT_H

#include <stdint.h>

/* GFile file types of the three files. */
#define KQ_FILE_TYPE_STREAM 4 /* .kqs */
#define KQ_FILE_TYPE_INDEX 5  /* .kqi */
#define KQ_FILE_TYPE_HEADER 6 /* .kqv */

/* Suffixes added to a database's base name. */
#define KQ_SUFFIX_STREAM ".kqs"
#define KQ_SUFFIX_INDEX ".kqi"
#define KQ_SUFFIX_HEADER ".kqv"

/* Position of the first byte behind the GFile header. */
#define KQ_FIRST_POSITION 20

/* .kqv */
#define KQ_FORMAT_VERSION 3          /* written */
#define KQ_FIRST_VERSION_WITH_EPB 2  /* events-per-block field exists */
#define KQ_FIRST_VERSION_WITH_SECOND_NAME 3
#define KQ_EVENTS_PER_BLOCK 100      /* written; assumed before version 2 */

/* Tags at a packet boundary of .kqs. */
#define KQ_TAG_END 0
#define KQ_TAG_EVENT 1
#define KQ_TAG_STATE_SAVE 2
#define KQ_TAG_OBJUSED 3

/* Tags of the state change records inside an event packet. */
#define KQ_CHANGE_NEW 0
#define KQ_CHANGE_MOD 1
#define KQ_CHANGE_DEL 2
#define KQ_CHANGE_END 3

/* Tags at an entry boundary of .kqi, and an entry's size with its tag. */
#define KQ_INDEX_TAG_END 0
#define KQ_INDEX_TAG_ENTRY 1
#define KQ_INDEX_ENTRY_SIZE 13

#endif /* RAVELOG_KQ_IO_FORMAT_H */
