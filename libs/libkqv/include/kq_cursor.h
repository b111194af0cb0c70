/*
 * kq_cursor.h - a streaming cursor over the events of a database open for
 * reading (kq_OpenForUse): it stands at a time or an event number and steps
 * from event to event without allocating for each, handing out views of
 * the bytes it read.  Optionally it keeps the state of all objects up to
 * date as it steps.  It follows a database that another process is still
 * writing: at the end of what is written it answers "nothing more yet", and
 * a later step sees what came since.
 *
 * Compared with the event lists of kq_io.h, which allocate a record, its
 * payload and its changes for every event, a pass through the cursor costs
 * reading the stream's bytes and little more.
 *
 * Numbering: events are numbered from 0 in database order (the first event
 * of the database is 0), unlike the lists of kq_io.h, which count from 1.
 *
 * Error convention: as the rest of libkqv, a null result or 0 for failure,
 * nothing printed.  A stream that is damaged where the cursor reads (an
 * unknown tag, a packet that runs past the end of the file, a count that
 * can't be right) stops the cursor: kq_CursorNext answers -1 from then on
 * and kq_CursorError says what was found where.
 *
 * Lifetimes: an event view and everything it points at stay valid until the
 * next call that moves the cursor (kq_CursorNext, kq_CursorSeek*) or
 * kq_DeleteCursor.  The cursor must be deleted before its database is
 * closed.
 */
#ifndef RAVELOG_KQ_CURSOR_H
#define RAVELOG_KQ_CURSOR_H

#include <stdint.h>

#include "kq_io.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kq_Cursor kq_Cursor;

/* One event as the cursor read it. */
typedef struct kq_CursorEvent {
  uint64_t number;         /* 0 for the database's first event */
  uint64_t time;           /* ticks */
  uint16_t type;
  uint16_t subtype;
  uint8_t hasOwner;        /* 1 when the payload holds an owner (4 bytes or more) */
  uint16_t ownerType;      /* 0, the Task, when hasOwner */
  uint32_t ownerId;        /* the payload's first four bytes in the database's
                              byte order, when hasOwner; else 0 */
  uint32_t length;         /* payload bytes */
  const uint8_t *payload;  /* in the target's byte order; null when length is 0 */
  uint32_t numChanges;     /* state change records of the event */
  const uint8_t *changes;  /* the records as stored (kq_io_format.h), for
                              kq_CursorChanges; null when numChanges is 0 */
  uint32_t changesLength;  /* bytes of the records, without the end tag */
} kq_CursorEvent;

/* One state change, a view into the cursor's bytes. */
typedef struct kq_ChangeView {
  uint8_t kind;            /* 0 New, 1 Mod, 2 Del */
  uint16_t type;           /* object type */
  uint32_t id;             /* object id */
  uint16_t offsetOrLength; /* New: value length; Mod: offset; Del: 0 */
  uint8_t modLength;       /* Mod: number of bytes; otherwise 0 */
  const uint8_t *bytes;    /* New: the value; Mod: the new bytes; Del: null */
} kq_ChangeView;

/* A walk over the changes of one event. */
typedef struct kq_ChangeIter {
  const uint8_t *next;
  const uint8_t *end;
} kq_ChangeIter;

/* A new cursor on db (a reading handle), standing before the first event.
 * With keepState nonzero it keeps the state of all objects (kq_CursorState)
 * up to date.  Null for a null or writing handle. */
kq_Cursor *kq_NewCursor(kq_DB *db, int keepState);
/* Deletes the cursor and what it holds; null is fine. */
void kq_DeleteCursor(kq_Cursor *cursor);

/* Brings db's time index up to date, then stands before the first event at
 * or after `time`, with the state just before it (that event's changes not
 * applied).  With no such event yet the cursor stands at the end of what is
 * written, with the final state, and the next event to come, when it comes,
 * is the next step.  Returns 1, or 0 when the stream is damaged on the way
 * (kq_CursorError). */
int kq_CursorSeekTime(kq_Cursor *cursor, uint64_t time);
/* The same for the event numbered `number` (from 0); a number beyond the
 * last event stands at the end of what is written. */
int kq_CursorSeekNumber(kq_Cursor *cursor, uint64_t number);

/* Steps onto the next event: 1 with *event set to a view of it (its
 * changes applied to the state when the cursor keeps one); 0 when no event
 * follows yet (call again later: a writer may add one); -1 when the stream
 * is damaged there (kq_CursorError).  *event is null unless 1 comes back. */
int kq_CursorNext(kq_Cursor *cursor, const kq_CursorEvent **event);

/* The number the next event will carry (after a seek: the event the cursor
 * stands before). */
uint64_t kq_CursorNumber(const kq_Cursor *cursor);

/* The state of all objects after the events stepped over so far; null when
 * the cursor keeps no state.  Owned by the cursor: valid until it is
 * deleted, and changed by every step and seek.  Read it with the functions
 * of kq_io.h and kq_state.h (kq_GetValueIfIsKnown, kq_GetStateOfObject). */
kq_State *kq_CursorState(kq_Cursor *cursor);

/* What stopped the cursor, as text ("unknown packet tag 7 at .kqs position
 * 4012"); null while it is not stopped.  Owned by the cursor. */
const char *kq_CursorError(const kq_Cursor *cursor);

/* Starts a walk over the changes of event. */
void kq_CursorChanges(const kq_CursorEvent *event, kq_ChangeIter *iter);
/* The next change of the walk in *change: 1, or 0 after the last. */
int kq_NextChange(kq_ChangeIter *iter, kq_ChangeView *change);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_CURSOR_H */
