/*
 * kq_io.h - the event database library, libkqv: the records every part of
 * the database shares, the write side (create, add events, close), the read
 * side (open, time index, queries by time, number and object), the
 * self-description of objects and the names of events.
 *
 * A database is three files sharing a base name: .kqv says what the database
 * is, .kqs holds the events and every change of state, .kqi indexes .kqs by
 * time, one entry per block of 100 events.  The byte layout and the order of
 * writes that lets a reader follow a growing database are in kq_io_format.h.
 *
 * Error convention: operations report failure by a null handle or a result
 * of 0 and print nothing, unless a comment says otherwise; the library's own
 * messages go through the kq_Report* functions (kq_error.h), behind
 * "libkqv: ".  Memory that a query returns belongs to the caller, who frees
 * it with the function named at the query (gen_free, List_Delete,
 * kq_DeleteState, kq_DeleteEventIter, kq_DeleteFieldDesc).
 *
 * State objects and state changes (kq_State, kq_StateObject, StateChange and
 * the functions that record and apply changes) are declared in kq_state.h.
 */
#ifndef RAVELOG_KQ_IO_H
#define RAVELOG_KQ_IO_H

#include <stdint.h>

#include "adt_hash.h"
#include "adt_list.h"
#include "indgfile.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================
 * Shared records
 * ====================================================================== */

/* A table of state objects: a hash table whose keys are kq_StateObject
 * records (owned by the table) and whose values are null. */
typedef struct kq_State {
  HT_PT table;
} kq_State;

/* One state object, keyed by (type, id).  Type 0 is the Task, whose value is
 * the 76-byte layout of kq_state.h. */
typedef struct kq_StateObject {
  uint16_t type;
  uint32_t id;
  uint32_t length; /* bytes in value */
  uint8_t *value;  /* owned; null when length is 0 */
} kq_StateObject;

/* One recorded change as a reader holds it in memory. */
typedef struct StateChange {
  uint8_t kind;            /* 0 New, 1 Mod, 2 Del */
  uint16_t type;           /* object type */
  uint32_t id;             /* object id */
  uint16_t offsetOrLength; /* New: value length; Mod: offset; Del: unset */
  uint8_t modLength;       /* Mod: number of bytes; otherwise unset */
  uint8_t *bytes;          /* owned. New: the value; Mod: the new bytes */
} StateChange;

/* One event.  The writer builds one for each call of the state-tracking
 * callback; the read side allocates them for event lists. */
typedef struct kq_Event {
  uint64_t time;        /* ticks */
  uint32_t eventNumber; /* writing: the value of eventIndex; reading: the
                           event's number in the list, counted from 1 */
  uint16_t type;
  uint16_t subtype;
  uint32_t length;      /* payload bytes */
  uint8_t *data;        /* payload in the target's byte order.  While
                           writing it belongs to the caller of
                           kq_AddEventFromRawBytes and is not written to */
  List_PT changes;      /* StateChange records; reading only, else null */
} kq_Event;

/* One entry of the time index: the time of a block's first event and the
 * .kqs position of the tag of that block's OBJUSED packet. */
typedef struct TimePos {
  uint64_t time;
  uint32_t position;
} TimePos;

/* A place in the stream, owned by the caller (kq_DeleteEventIter). */
typedef struct kq_EventIter {
  uint32_t position;    /* .kqs position of a tag, or where a walk stopped */
  uint32_t eventNumber; /* the number the next event listed will carry */
} kq_EventIter;

typedef struct kq_DB kq_DB;

/* The state-tracking callback.  kq_AddEventFromRawBytes calls it once for
 * each event, after the event's fields and payload are in the stream and
 * with the stream positioned where the first state change belongs.  It
 * records changes only through kq_SaveStateChangeNew/Mod/Del or
 * kq_KeepTaskID (kq_state.h) and writes nothing else.  current and used are
 * the tables of db->currentState and db->usedState.  Returns nonzero for
 * success; 0 makes kq_AddEventFromRawBytes fail.  The event lives for the
 * call only; changes made to it reach neither the file nor the next call. */
typedef int (*kq_SaveStateFunc)(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event);

/* The handle of an open database, for writing or for reading.
 *
 *   kq_OpenForCreation --> [writing] --kq_AddEventFromRawBytes--> [writing]
 *   kq_OpenForUse      --> [reading] --queries, refreshes-------> [reading]
 *   either             --kq_Close--> (gone)
 *
 * Fields that apply to one side only are zero or null on the other. */
struct kq_DB {
  GFile *streamFile;       /* .kqs */
  char *streamName;        /* owned */
  GFile *indexFile;        /* .kqi */
  char *indexName;         /* owned */
  GFile *headerFile;       /* .kqv while reading; null once a new database is open */
  char *headerName;        /* owned */
  uint32_t formatVersion;  /* reading: version byte of .kqv; writing: 0 */
  uint32_t ticksPerSecond; /* reading: from .kqv; writing: 0 */
  char *configName;        /* owned. writing: as given; reading: lower case */
  uint8_t isBigEndian;     /* byte order of event payloads: 1 big, 0 little */
  uint32_t eventsPerBlock; /* reading: from .kqv (100 before version 2) */
  uint32_t numEvents;      /* writing: events added so far; reading: 0 */
  struct kq_State *currentState; /* writing: the objects as they stand now */
  struct kq_State *usedState;    /* writing: objects used since the last snapshot */
  TimePos *timePos;        /* reading: the time index, one entry per block */
  uint32_t numTimePos;     /* reading: valid entries in timePos */
  uint32_t lastStreamTag;  /* reading: .kqs position of the last tag counted */
  uint32_t lastIndexTag;   /* reading: .kqi position of the tag ending timePos */
  kq_SaveStateFunc saveStateChange; /* writing: the tracker */
};

/* Description of one field of an object type. */
typedef struct kq_FieldDesc {
  char *name;             /* owned */
  int32_t kind;           /* 1 integer, 2 string */
  int32_t size;           /* bytes */
  uint8_t hasNamedValues; /* 1 when kq_GetNamedValues has values for it */
} kq_FieldDesc;

/* ======================================================================
 * Writing a database
 * ====================================================================== */

/* Number given to the next event added by any database of this process;
 * starts at 0, never reset, never stored. */
extern uint32_t eventIndex;

/* A new zeroed handle (gen_alloc). */
kq_DB *New_kq_DB(void);

/* Creates the database `base`.kqv/.kqs/.kqi, replacing any old one (its
 * .kqv goes first).  .kqv is written whole under a temporary name and moved
 * into place after the other two files exist.  configName is kept as given
 * and stored in .kqv in lower case (null counts as empty); isBigEndian
 * describes the byte order of the event payloads to come; saveStateChange
 * is the tracker (null: no event records a change).  A null base fails.
 * When the handle comes back, .kqs and .kqi are in their files, each 21
 * bytes (header and 0 tag), and .kqv is complete.  Returns the
 * handle, or null without a message when a name can't be formed or a file
 * can't be removed, opened or moved (files already made stay on disk). */
kq_DB *kq_OpenForCreation(const char *base, uint32_t ticksPerSecond, const char *configName,
                          uint8_t isBigEndian, kq_SaveStateFunc saveStateChange);

/* Adds one event at time high:low (ticks) with the type in the high 16 bits
 * of typeWord and the subtype in the low 16 bits, and `length` payload
 * bytes, which are copied to the stream and needed only during the call.
 * Events must come in order of time; nothing checks it.  Returns 1 on
 * success, 0 for a null db, for length > 0 with null bytes (both without a
 * trace), and when the handle stops (kq_GetWriteFailure says why: the
 * tracker refused the event, the files can't hold it, or a write failed):
 * the event then stays invisible and the database takes no further event;
 * kq_Close still works.  When the call returns 1 the event is complete in
 * the files for any reader. */
int kq_AddEventFromRawBytes(kq_DB *db, uint32_t high, uint32_t low, uint32_t typeWord,
                            const void *bytes, uint32_t length);

/* Why a writing handle took no more events: kq_AddEventFromRawBytes answers
 * 0 for every event after the one that stopped it.
 *   KQ_WRITE_OK       it hasn't stopped (also for a reading or null handle)
 *   KQ_WRITE_REFUSED  its tracker answered 0
 *   KQ_WRITE_FULL     the event would have carried a file past the largest
 *                     size a database file can have (positions are 32-bit
 *                     signed: 2 GiB less one byte); nothing of it was written
 *   KQ_WRITE_FAILED   a write, seek or tell of a file failed (GFile gave its
 *                     message); the event, whole or not, is not visible
 * In every case the files hold a database of the events added before it,
 * each whole, and its index never runs ahead of them. */
#define KQ_WRITE_OK 0
#define KQ_WRITE_REFUSED 1
#define KQ_WRITE_FULL 2
#define KQ_WRITE_FAILED 3
int kq_GetWriteFailure(kq_DB *db);
/* The events a writing handle has added; 0 for a reading or null handle. */
uint32_t kq_GetNumEventsAdded(kq_DB *db);

/* Closes the files of a writing or reading handle and frees it.  Writes
 * nothing: the files already end in their 0 tags.  Null does nothing. */
void kq_Close(kq_DB *db);

/* ======================================================================
 * Opening a database for reading
 *
 * A reading handle keeps the three files open and the time index (one
 * TimePos per block of eventsPerBlock events) in memory.  Another process
 * may still be writing the database: a reader sees whole events only, and
 * brings its view up to date with kq_GetTimeExtent or
 * kq_GetStartEventAndNumEvents, which read new index entries and walk to the
 * current end of the stream.  The queries don't refresh the index: they see
 * it as it was last brought up to date, and walk the stream as far as it
 * goes.  Every operation reads the files afresh, nothing is cached.
 *
 * A database with no events (numTimePos 0) answers every query with no
 * events and reads nothing of the stream: the extent is [0, 1), the count
 * 0, the state at any time empty, the iterator {first tag position 20,
 * event number 0}, every list empty, no object used.
 *
 * Damaged files never make a query crash, hang or allocate more than the
 * files hold: a wrong tag ends a walk (as each operation says), the end of
 * a file reads as tag 255, and a length that runs past the end of the file
 * reads as a file cut there.  A reading operation given a null handle, or a
 * writing one, answers 0, null or nothing.
 * ====================================================================== */

/* Opens `base`.kqv/.kqs/.kqi for reading, also while another process is
 * still writing them, and reads the time index into memory.  Format
 * versions 0 and 1 of .kqv have no events-per-block field (100 is taken);
 * versions 2, 3 and above have it; no version is refused, and nothing behind
 * the GFile headers of .kqv is checked.  Returns the handle (kq_Close), or
 * null without a message when a name can't be formed, a file is missing or
 * isn't a GFile, or .kqi holds a tag other than 0 or 1 at an entry boundary
 * (also the 255 of a .kqi that lost its final 0 tag).  An entry cut by the
 * end of .kqi is left out. */
kq_DB *kq_OpenForUse(const char *base);
/* kq_OpenForUse of fileName less its last four characters, whatever they
 * are; null when fileName is null or shorter than four characters. */
kq_DB *kq_OpenKqsForUse(const char *fileName);

/* Refreshes the index and walks to the end of the stream.  *start is the
 * time of the first event as the index stood before this refresh, *end one
 * tick behind the last event, so [start, end) holds every event.  When the
 * walk of the last blocks finds no event (a wrong tag there) *end is
 * *start + 1.  A database that had no events at the last refresh gives
 * *start 0 (its index is empty); one with no events at all gives [0, 1).
 * Either output may be null.  Returns 1. */
int kq_GetTimeExtent(kq_DB *db, uint64_t *start, uint64_t *end);
/* Ticks per second from .kqv; 0 for a null handle. */
uint64_t kq_GetNumTicksPerSecond(kq_DB *db);
/* The format version byte of .kqv; 0 for a null or writing handle. */
uint32_t kq_GetFormatVersion(kq_DB *db);
/* Events per block from .kqv (100 for versions without the field); 0 for
 * a null or writing handle. */
uint32_t kq_GetEventsPerBlock(kq_DB *db);
/* The configuration name (lower case when reading); the handle keeps it.
 * Null for a null handle. */
const char *kq_GetNameOfConfigFile(kq_DB *db);
/* isBigEndian: 1 when payloads are big-endian, 0 when little-endian. */
int kq_GetIsBigEndian(kq_DB *db);
int kq_IsBigEndian(kq_DB *db);
/* fflush on the streams of .kqs, .kqi and .kqv that exist, in that order;
 * null does nothing. */
void kq_FlushFiles(kq_DB *db);
/* One byte read: 1 when the stream has grown since the last
 * kq_GetTimeExtent or kq_GetStartEventAndNumEvents (the 0 tag they stopped
 * at was patched), else 0.  Right after opening it is 1, also for a finished
 * database.  An empty database answers 1 once its first event is complete.
 * A stream damaged at its end (a wrong tag, or a lost final 0 tag, which
 * reads as 255) keeps answering 1. */
int kq_MoreEvents(kq_DB *db);

/* ======================================================================
 * Queries by time and by event number
 *
 * Event numbers: the events of a database carry the numbers 1, 2, 3, ... in
 * event lists, counted from the first event of the database.
 * ====================================================================== */

/* The state of all objects just before the first event at or after `time`
 * (that event's own changes not applied), and an iterator on that event's
 * tag whose eventNumber is that event's number.  With no such event the
 * state is the final one and the iterator stands on the stream's final 0
 * tag with eventNumber = the number of events.  Either output may be null
 * (without state no snapshot is read); the caller owns what comes back
 * (kq_DeleteState, kq_DeleteEventIter); *state is never null on success.
 * A wrong packet tag met while rebuilding the state reports
 * "[kq_GetEventListAndStateFromTimeRange]: Unrecognized .kqs packet type (%d)"
 * through kq_ReportError and gives the state and iterator as they stand.
 * Returns 1; 0 for a null or writing handle (outputs null). */
int kq_GetStateAndIterFromTime(kq_DB *db, uint64_t time, kq_EventIter **iter, kq_State **state);

/* Lists events from *iter on, at most maxEvents (0: no limit), and, with
 * useEndTime set, only those before endTime (exclusive).  Packets between
 * blocks are passed over.  Advances *iter: with maxEvents reached it stands
 * on the next tag and a further call goes on from there; after the end
 * time, a 0 tag or a wrong tag (no message) it doesn't serve for going on.
 * Events cut by the end of the file are not listed.  Returns a new list of
 * kq_Event (List_Delete frees events, payloads and changes); empty, with
 * *iter unchanged, for an empty database; null only for a null db. */
List_PT kq_GetNEventsBeforeTime(kq_DB *db, kq_EventIter **iter, int maxEvents, uint64_t endTime,
                                uint8_t useEndTime);

/* The events with startTime <= time < endTime, and in *state (when state
 * isn't null) the state at startTime.  Caller owns both (List_Delete,
 * kq_DeleteState).  Null list (and state) only for a null db. */
List_PT kq_GetEventListAndStateFromTimeRange(kq_DB *db, uint64_t startTime, uint64_t endTime,
                                             kq_State **state);

/* Up to maxEvents events (0: all) from the event numbered eventNumber on,
 * and in *state the state before it.  Numbers 0 and 1 both start at the
 * first event; a number above 0 that divides evenly by eventsPerBlock
 * starts one event later, at the first event of that block (number + 1),
 * whose state is that block's snapshot.  A number beyond the index is
 * reached by walking from the last indexed block; beyond the last event the
 * list is empty.  Caller owns both.  Null list only for a null db. */
List_PT kq_GetNEventsAndStateFromEventNum(kq_DB *db, uint32_t eventNumber, int maxEvents,
                                          kq_State **state);

/* Refreshes the index and counts the events, the newest ones by walking the
 * stream from the last indexed block: *start = 0 and *count = the number of
 * events, each when not null; 0 for an empty database.  Returns 1; 0 for a
 * null or writing handle (outputs 0). */
int kq_GetStartEventAndNumEvents(kq_DB *db, uint32_t *start, uint32_t *count);

/* Frees an iterator; null is fine. */
void kq_DeleteEventIter(kq_EventIter *iter);

/* The owner of an event is the Task whose id is the payload's first four
 * bytes, read in the database's byte order.  Stores type 0 and that id when
 * both outputs are non-null (otherwise nothing) and returns 1; with fewer
 * than 4 payload bytes prints
 * "Invalid Extra Data(length %d) for event with type %d.\n" to stderr,
 * stores nothing and returns 0.  A null event returns 0. */
int kq_GetOwnerOfEvent(kq_DB *db, const kq_Event *event, uint16_t *ownerType, uint32_t *ownerId);

/* Prints every object of state to stdout, in table order, one line each:
 * "t: %lu id: %lu state: 0x[" with type and id, the value bytes by "%0x"
 * separated by ",", then "]\n".  Null does nothing. */
void kq_DumpState(kq_State *state);

/* ======================================================================
 * Object usage queries
 * ====================================================================== */

/* Filter of objects: nonzero keeps the object. */
typedef int (*kq_StateFilter)(kq_StateObject *object, void *filterArg);

/* Puts into `result` (a table of kq_StateObject keys made by the caller,
 * whose functions decide what counts as one entry) every object that exists
 * at `start` or is created by a New in an event of [start, end), except
 * those the filter (may be null) refuses.  Blocks lying wholly inside the
 * range are taken from their object lists, which hold every object alive at
 * the block's start and every object created in it.  Each entry is a copy;
 * only the keys mean anything.  A block whose index position doesn't lead
 * to an object list ends the collection with the warning
 * "[kq_GetObjectStuffUsedInTimeRange]: expected OBJUSED, got (%d)"
 * (kq_ReportWarning); the result keeps what it had.  An empty database
 * places nothing. */
void kq_GetObjectStuffUsedInTimeRange(kq_DB *db, uint64_t start, uint64_t end, HT_PT result,
                                      kq_StateFilter filter, void *filterArg);

/* The object types used in [start, end), each once, rising, in a new array
 * (gen_free) with *count entries; null and 0 when there are none.  Returns
 * 1; 0 for null outputs or a null or writing handle (outputs null and 0). */
int kq_GetObjectTypesInTimeRange(kq_DB *db, uint16_t **types, uint32_t *count, uint64_t start,
                                 uint64_t end);

/* The ids of objects of `type` used in [start, end), rising, in a new array
 * (gen_free) with *count entries; null and 0 when there are none.  Returns
 * 1; 0 for null outputs or a null or writing handle (outputs null and 0). */
int kq_GetObjectIdsInTimeRange(kq_DB *db, uint32_t **ids, uint32_t *count, uint16_t type,
                               uint64_t start, uint64_t end);

/* A new copy (gen_free; null for an empty value) of the value of object
 * (type, id) of state in *bytes and its length in *length, each when not
 * null; returns 1, or 0 leaving the outputs alone when there is none. */
int kq_GetStateOfObject(kq_State *state, uint16_t type, uint32_t id, uint8_t **bytes,
                        uint32_t *length);

/* ======================================================================
 * Self-description: object types, fields and named values
 * ====================================================================== */

/* None of these looks at db except kq_GetValueIfIsKnown.  The one object
 * type is the Task (type 0), with the fields 0 "Status" (integer, 2 bytes,
 * named values), 1 "Priority" (integer, 4 bytes) and 2 "Name" (string, 31
 * bytes).  Only kq_GetObjectTypeName and kq_GetFieldsInObjectType look at
 * the type; the others answer for the Task's fields whatever type they get. */

/* "Task" for type 0, else null; a constant string. */
const char *kq_GetObjectTypeName(kq_DB *db, uint16_t type);
/* For type 0: *fields = a new array {0, 1, 2} (gen_free) and *count = 3,
 * each only when its pointer isn't null.  Other types store nothing. */
void kq_GetFieldsInObjectType(kq_DB *db, uint16_t type, int32_t **fields, uint32_t *count);
/* A new description of field 0, 1 or 2 (kq_DeleteFieldDesc frees the name
 * and the record), whatever the type; null for any other field. */
kq_FieldDesc *kq_GetFieldDesc(kq_DB *db, uint16_t type, int32_t field);
/* Null does nothing. */
void kq_DeleteFieldDesc(kq_FieldDesc *desc);
/* Field 0 with values not null: *values = a new array {0, 1, 2, 3, 7}
 * (gen_free) and *count = 5 when count isn't null; field 0 with values null
 * stores nothing.  Any other field: *count = 0 (when not null), *values
 * untouched. */
void kq_GetNamedValues(kq_DB *db, uint16_t type, int32_t field, uint16_t **values,
                       uint32_t *count);
/* The constant name of *value in field 0 ("READY" 0, "SUSPEND" 1, "PEND" 2,
 * "RUNNING" 3, "EVWAIT" 7); null for other values, other fields or a null
 * value. */
const char *kq_GetNameOfValue(kq_DB *db, uint16_t type, int32_t field, const uint16_t *value);
/* 1 for field 0 with *value 3 ("RUNNING"), else 0. */
int kq_IsPrimaryValue(kq_DB *db, uint16_t type, int32_t field, const uint16_t *value);
/* Reads field `field` of object (type, id) of state into buffer, which has
 * bufferSize bytes:
 *   0  the status, 2 bytes in host order, when statusKnown and bufferSize >= 2;
 *   1  the priority, 4 bytes in host order, when priorityKnown and >= 4;
 *   2  the name as NUL-ended text, when nameKnown and bufferSize >= 1: up to
 *      format version 2 the 31 name bytes (as many as bufferSize - 1 allows);
 *      from version 3 on the second name when secondNameKnown, then
 *      `separator` when a second name was copied and room is left, then the
 *      name, each cut to the room left.  A null db reads as version 0.
 * Returns 0 with *isKnown 0 when the object is missing.  Otherwise returns 1,
 * with *isKnown 1 when the field was known and fitted, and *isKnown 0 and
 * the buffer untouched when not (also for a field outside 0..2 and a value
 * shorter than a Task's 76 bytes).  isKnown may be null. */
int kq_GetValueIfIsKnown(kq_DB *db, kq_State *state, uint16_t type, uint32_t id, int32_t field,
                         uint8_t *isKnown, void *buffer, uint32_t bufferSize, char separator);

/* ======================================================================
 * Event names
 * ====================================================================== */

/* The long name (for reading) and the short name (no spaces) of an event,
 * from its type and, for a kernel call (type 3), its subtype; only those two
 * fields are read, and db is not looked at.  Constant strings that the
 * caller neither frees nor changes.
 *   type 1 "TaskChange", 2 "Interrupt", 4 "User Event"/"UserEvent",
 *   5 "Status Change"/"StatusChange", 6 "Refresh", 7 "Timer", any other
 *   "UNKNOWN EVENT"/"UNKNOWNEVENT";
 *   type 3: "Kernel Call: " + the service's name for subtypes 0..45 and 132,
 *   else "UNKNOWN KERNEL CALL"; short form the service's name for 0..43 and
 *   132, else "UNKOWNKERNCALL" (sic).  A null event gets the event fallback. */
const char *kq_GetNameOfEvent(kq_DB *db, const kq_Event *event);
const char *kq_GetSimpleNameOfEvent(kq_DB *db, const kq_Event *event);

/* ======================================================================
 * The tracker of the second kernel
 * ====================================================================== */

/* A kq_SaveStateFunc for logs of the kernel whose services the kernel call
 * names describe: every payload starts with the task id (4 bytes, target
 * order); tasks fall into groups by the low ten bits of the id, and a task
 * change readies the running task of its own group only; a refresh of
 * exactly 70 bytes carries a second name.
 * Records a change only where the value differs, except for the running
 * and group statuses.  Reads no byte beyond event->length: an event too
 * short for its id records nothing (a group status change, subtype 8 of
 * type 5, then concerns group 0), one too short for a priority or a name
 * leaves that fact out.  The table of types: kq_io_vorhaven.cpp.  Always
 * returns 1. */
int kq_SaveStateChange_Vorhaven(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_IO_H */
