/*
 * kq_io_read.h - internal to libkqv: the read side's private companions of
 * the public queries in kq_io.h, shared by kq_io_read.cpp (opening, the
 * packet readers, the time index), kq_io_query.cpp (queries by time and
 * number) and kq_io_objects.cpp (object usage).  Declared here so that
 * tests can call them; programs use kq_io.h.
 *
 * Reading a stream that may be damaged or still growing.  A reader stands on
 * a tag byte and passes packets by their tags (kq_io_format.h).  Only a 0
 * tag means "nothing more yet"; an unknown tag, or a packet cut short by the
 * end of the file, is damage, and the operation that meets it ends as its
 * comment says.  gf_get_1 at the end of the file gives 255, so a stream that
 * lost its final 0 tag shows a wrong tag there.  On top of that:
 *   - a length or count read from the file never makes an allocation larger
 *     than the bytes left in the file: a payload or value that would run past
 *     the end is not allocated; the reader goes to the end of the file
 *     instead, so that the operation sees "the file's end was hit";
 *   - every loop driven by a count from the file stops at the end of the
 *     file, so it is bounded by the file's size;
 *   - a position from the index that no GFile position can be reads as the
 *     end of the file.
 */
#ifndef RAVELOG_KQ_IO_READ_H
#define RAVELOG_KQ_IO_READ_H

#include <stdint.h>

#include "kq_io.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Positioning ------------------------------------------------------------ */

/* Moves file to `position` (counted from the first header byte) for a fresh
 * read: bytes the stream buffered earlier are dropped, so whatever another
 * process wrote since, a patched tag included, is read from the file.
 * Every reading operation starts with it.  A position beyond the largest
 * GFile position puts the file at its end. */
void SeekToRead(GFile *file, uint32_t position);

/* Moves file to `position` within one reading operation, after a
 * SeekToRead: bytes already buffered are used (within an operation they are
 * as the file holds them), and a short way forward is read rather than
 * sought.  A position beyond the largest GFile position puts the file at
 * its end. */
void SeekWithin(GFile *file, uint32_t position);

/* 1 when the end of the file was hit by a read since the last seek. */
int ReadHitEnd(GFile *file);

/* 1 when db is a handle from kq_OpenForUse (it has a time index and open
 * files); every reading operation answers "nothing" for anything else. */
int IsReadHandle(const kq_DB *db);

/* ---- Packet readers -----------------------------------------------------------
 * Each is given the file standing behind the packet's tag, and leaves it
 * behind the packet.  "want" set asks for the contents, which then belong to
 * the caller; without it the contents are passed over. */

/* An event packet: U8 time, U4 length, U2 type, U2 subtype, the payload and
 * the state changes up to their end tag.  With want: *payload = a new block
 * (gen_free) of *length bytes (null for 0), *changes = a new list
 * (List_Delete; delete function StateChangeDelete) of StateChange in file
 * order.  Without want, payload and changes are left alone.  Returns 1 when
 * the whole packet was read, 0 when the file ended inside it (then, with
 * want, *payload and *changes are still the caller's to free: the payload
 * may be null, the list holds the changes read whole).  A payload length
 * beyond the file's end allocates nothing and reads as a file cut there. */
int GetEvent(GFile *file, uint64_t *time, uint16_t *type, uint16_t *subtype, uint8_t **payload,
             uint32_t *length, List_PT *changes, int want);

/* One state change record, from its tag on.  Tag 3 (the end of the
 * changes) gives 0.  Tags 0, 1, 2 read a New, Mod or Del and give 1; with
 * want *change = a new StateChange (StateChangeDelete) whose bytes hold
 * exactly its length (New) or count (Mod).  Any other tag prints
 * "Unrecognized StateChange type\n" to stderr and gives 0.  A record that
 * the file's end cuts short gives 0 and no change, silently. */
int GetStateChange(GFile *file, StateChange **change, int want);

/* A state save packet behind its tag: U4 n and n objects.  With want, a new
 * state (kq_DeleteState) holding a copy of each object read whole (a key
 * met twice keeps its first value); without want, null.  Stops at the end
 * of the file. */
kq_State *GetStateSave(GFile *file, int want);

/* An OBJUSED packet behind its tag: U4 n and n (type, id) pairs.  With want,
 * a new state (kq_DeleteState) of valueless objects; without want, null.
 * Stops at the end of the file. */
kq_State *GetObjUsed(GFile *file, int want);

/* The 12 bytes of an index entry behind its tag.  Returns 1. */
int GetTimePos(GFile *file, uint64_t *time, uint32_t *position);

/* ---- The time index ---------------------------------------------------------------- */

/* Reads the index entries added to .kqi since the last read and appends them
 * to db->timePos.  A wrong tag leaves the index as it was; an entry cut by
 * the file's end is left for a later call.  Returns the number of entries
 * added. */
uint32_t UpdateKqi(kq_DB *db);

/* Walks the stream from the last indexed block to its end (across blocks the
 * index doesn't show yet) and returns the number of events met; *lastTime
 * (lastTime may be null) receives the time of the last one, 0 when none.
 * Leaves db->lastStreamTag on the tag that ended the walk: on a whole
 * stream, the 0 tag the writer patches next.  A wrong tag gives 0 and a
 * last time of 0.  With an empty index nothing is read: the result is 0
 * and lastStreamTag the position of the stream's first tag. */
uint32_t CountLastSetOfEventsAndGetTimeOfLastEvent(kq_DB *db, uint64_t *lastTime);

/* Binary search of entries first..last of table for time, comparing by
 * CmpUInt64 with the entry first.  Returns the last middle looked at: on a
 * hit one of the equal entries, on a miss an entry beside the gap (either
 * side).  With last below first nothing is looked at and the result is -1. */
int BinSearchTime(int first, int last, const TimePos *table, uint64_t time);

/* The block to start from for time t: the greatest index whose block's first
 * event lies strictly before t, or 0 when there is none.  REQUIRES
 * db->numTimePos >= 1. */
uint32_t SearchBlockForTime(const kq_DB *db, uint64_t t);

/* ---- Queries ------------------------------------------------------------------------- */

/* The state just before a moment and an iterator on the first event not
 * before it.  key points at a uint64_t time when isTime is set, else at a
 * uint32_t event number.  iter and state may each be null (that result is
 * not made; without state no snapshot is loaded).  *state is never null on
 * success (empty when the stream held no snapshot).  With an empty index
 * nothing is read: an empty state and an iterator {first tag position, 0}.
 * Returns 1, or 0 for a null db or key (outputs set to null). */
int GetStateAndIterFromTimeOrNum(kq_DB *db, const void *key, int isTime, kq_EventIter **iter,
                                 kq_State **state);

/* Delete function of event lists: frees data, the list of changes and the
 * kq_Event. */
void EventDelFun(void *event);

/* ---- Object usage ------------------------------------------------------------------ */

/* Filter: whether the object's type equals *(const uint16_t *)typeArg. */
int MatchType(kq_StateObject *object, void *typeArg);
/* qsort comparisons of uint16_t and uint32_t, usual sign: -1 when a is
 * less, 1 when greater, 0 when equal. */
int CmpType(const void *a, const void *b);
int CmpUInt32(const void *a, const void *b);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_IO_READ_H */
