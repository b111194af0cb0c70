/*
 * ravelog.h - the dump conversion's internal interface: the process-wide
 * state, the entry and probe of a corefile, the readers that take numbers
 * out of the file and the event pool in the log's byte order, the two
 * decoders, the points at which a decoder talks to the event database, and
 * the diagnostic listing of -d.
 *
 * Error convention of the dump conversion: every failure is fatal.  It prints
 * one message through gen_errorexit(1, ...), which ends the process with
 * status 1 and cleans nothing up.  A function below that "fails" therefore
 * never returns from that failure.  The one exception is a timestamp
 * reversal, which prints an "Error:" line on standard output and goes on.
 *
 * Byte order: `bigEndian` is always the log's (the target's) byte order,
 * 1 for most significant byte first, 0 for least significant first, never
 * the host's.  Readers compose their results byte by byte.
 *
 * Sources: ravelog_probe.cpp (state, usage, probe), ravelog_read.cpp
 * (readers), ravelog_v2.cpp and ravelog_v1.cpp (decoders), ravelog_tracebuf*.cpp
 * (the trace buffer: ravelog_tracebuf.h), ravelog_decode.cpp
 * and ravelog_pool.cpp (what the decoders share), ravelog_db.cpp (database
 * points), ravelog_threadx.cpp (state tracking), ravelog_listing.cpp (the -d
 * listing); main.cpp holds only main.
 */
#ifndef RAVELOG_RAVELOG_H
#define RAVELOG_RAVELOG_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "kq_io.h"
#include "kq_names.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Process-wide state -------------------------------------------------
 * Written by main and the decoders, read by the decoders and the listing. */

/* Nonzero after the option -d: the diagnostic listing is printed. */
extern unsigned char debug;
/* The latest normalised event time accepted, high word first, in ticks.
 * main sets it to 0:0 first of all. */
extern uint32_t lastTimeStamp[2];
/* Entries in the thread list section, from the log's header (may be
 * negative: then no entry is read). */
extern int32_t TNIS;
/* Size of the event pool in bytes, from the log's header. */
extern int32_t EVPS;
/* Timer frequency in Hz (ticks per second), from the log's header. */
extern int32_t tbfreq;
/* Words of the version 1 header; kept, never used in decoding. */
extern int32_t EQsize;
extern int32_t evploc;
extern int32_t Qhead;
extern int32_t Qtail;

/* ---- Entry and probe ---------------------------------------------------- */

/* Writes the usage text to standard output, naming progname (argv[0] as it
 * was typed), or "ravelog" when progname is null. */
void PrintUsage(const char *progname);

/* Opens corefile, learns the log's version and byte order from its first two
 * bytes and runs the decoder of that version, which builds the database
 * KQfile.  A file whose first four bytes are the trace buffer id
 * (CV_TRACE_ID, in either byte order) is the kernel's own trace buffer and
 * goes to cv_ParseTraceBuffer.  Returns 0 once the decoder has returned;
 * fails (see the error convention) when the file can't be sized or opened,
 * when both first bytes are nonzero and the file is no trace buffer, or
 * when the version is neither 1 nor 2.  The stream stays open until the
 * process ends. */
int cv_ParseRawEventFile(const char *corefile, const char *KQfile);

/* ---- Readers ------------------------------------------------------------
 * The file readers read from `stream` at its current position; a short read
 * fails with the reader's message.  The memory readers read bytes the caller
 * guarantees to be there and never fail. */

/* One byte into buf.  Returns buf.  Fails with "Error reading char from
 * corefile." */
void *cv_ReadChar(void *buf, FILE *stream);
/* Two bytes as a 16-bit number in bigEndian's order, sign-extended.  Fails
 * with "Error reading short from corefile." */
int cv_GetShort(FILE *stream, uint8_t bigEndian);
/* Four bytes as an unsigned 32-bit number in bigEndian's order.  Fails with
 * "Error reading int4 from corefile." */
uint32_t cv_GetInt(FILE *stream, uint8_t bigEndian);
/* n bytes into buf, unchanged.  Returns buf.  When fewer come, prints
 * "rv is %d, errno is %d\n" and "buffer is %p, length is %d\n" on standard
 * output and fails with "Error reading buffer from corefile." */
void *cv_ReadBuffer(void *buf, int n, FILE *stream);
/* n items of 4 bytes into buf, unchanged (no byte-order conversion).
 * Returns buf.  Fails as cv_ReadBuffer, counting items. */
void *cv_ReadUintBuffer(void *buf, int n, FILE *stream);
/* One thread's name field: cv_ReadBuffer of CV_TASK_NAME_FIELD bytes. */
void *cv_ReadTaskName(void *buf, FILE *stream);

/* The two bytes at *pointer as a 16-bit number in bigEndian's order,
 * sign-extended; moves *pointer on by 2.  Any alignment. */
int cv_GetShortBuf(unsigned char **pointer, uint8_t bigEndian);
/* The four bytes at *pointer as a 32-bit number; moves *pointer on by 4. */
uint32_t cv_GetIntBuf(unsigned char **pointer, uint8_t bigEndian);
/* The two bytes at base + *index, sign-extended; adds 2 to *index. */
int cv_GetShortIdx(uint32_t *index, const unsigned char *base, uint8_t bigEndian);
/* The four bytes at base + *index; adds 4 to *index. */
uint32_t cv_GetIntIdx(uint32_t *index, const unsigned char *base, uint8_t bigEndian);

/* ---- Thread list entries -------------------------------------------------
 * One entry of a log's thread list section, as it stands in the file (44
 * bytes in both versions).  threadId and priority hold the file's four bytes
 * unchanged, in the log's byte order: whoever uses them converts them. */
#define CV_TASK_NAME_FIELD 34
typedef struct cv_ThreadEntry {
  char name[CV_TASK_NAME_FIELD]; /* text; a zero byte may end it early, or none */
  unsigned char valid;           /* nonzero for a thread that exists */
  unsigned char next;            /* only printed */
  uint32_t threadId;             /* log's byte order */
  uint32_t priority;             /* log's byte order */
} cv_ThreadEntry;

/* Reads one thread list entry from the stream: the name with
 * cv_ReadTaskName, Valid and Next with cv_ReadChar, Thread ID and Priority
 * with cv_ReadUintBuffer of one item each.  Fails as those readers do. */
void cv_ReadThreadEntry(cv_ThreadEntry *entry, FILE *stream);

/* ---- Decoders -----------------------------------------------------------
 * stream stands at offset 2 of the corefile; KQfile is the database's base
 * name.  Each returns 0 after the database is closed (the value has no
 * meaning) and fails on any fault of the log. */

/* Version 2: a header, the thread list and a ring of 32-byte slots, walked
 * once from the current event pointer.  Besides the faults of its readers it
 * fails on a pool read that gives no bytes, on a pool that can't be
 * allocated, and on a pool size or current event pointer that doesn't fit
 * the ring of 32-byte slots. */
int cv_ParseVersion2(FILE *stream, const char *KQfile, uint8_t bigEndian);

/* Version 1: a header, the thread list and a ring of records of varying
 * length with no pointer to the current one.  One scan of the pool finds
 * where the times drop (the oldest record), one walk from there hands the
 * records over.  Besides the faults of its readers it fails on a pool read
 * that gives fewer bytes than the header's pool size, on a pool that can't
 * be allocated, on a pool of size 0, and on a record that doesn't fit the
 * pool (see ravelog_v1.cpp for which record the scan and the walk refuse). */
int cv_ParseVersion1(FILE *stream, const char *KQfile, uint8_t bigEndian);

/* The kernel's own trace buffer (ravelog_tracebuf.cpp): a header, the object
 * registry and a ring of 32-byte entries, all addressed by target pointers.
 * The whole file is read again from its start; bigEndian is the order the
 * id was found in.  The registry's threads become thread records, the
 * entries (walked once from the oldest) events.  Fails with one message
 * ending in CV_VERIFY_REGION on a header, registry or ring that can't be
 * what the kernel wrote, or that the file doesn't hold. */
#define CV_TRACE_ID 0x54585442u
int cv_ParseTraceBuffer(FILE *stream, const char *KQfile, uint8_t bigEndian);

/* ---- What the decoders share ---------------------------------------------- */

/* The last line of every refusal of a log that can't be what a target
 * saved; a string literal, so that it joins a format. */
#define CV_VERIFY_REGION "Verify that the correct target memory region was saved."

/* Reads the thread list section: TNIS entries (none when TNIS is 0 or
 * negative) with cv_ReadThreadEntry.  With `debug` set each entry, valid or
 * not, gets its line from debug_PrintTaskInfo; each entry whose Valid byte
 * is nonzero then becomes a thread record at database point 2.  Fails as
 * the readers do. */
void cv_ReadThreadList(FILE *stream, uint8_t bigEndian);

/* Settles the time of one event, the same way for both versions.  The time
 * is first made relative to origin (the time of the log's first event) by
 * unsigned subtraction modulo 2^64, so a time below the origin becomes huge.
 * If the result is not below lastTimeStamp it is stored there and returned.
 * Otherwise the time reverses: "Error: Timestamp reverses from ..." with
 * lastTimeStamp, the relative time, type and subtype goes to standard output
 * (whether or not `debug` is set), lastTimeStamp stays, and it is returned
 * as the time to store.  Times are in ticks, high word in the upper half. */
uint64_t cv_SettleTime(uint64_t time, uint64_t origin, unsigned type, unsigned subtype);

/* The allocator of the event pool: realloc-like, returning null on failure
 * instead of ending the process.  Defaults to the system's realloc; the
 * block is released with free().  Tests replace it. */
extern void *(*cv_poolRealloc)(void *block, size_t size);

/* ---- Version 2 layout ---------------------------------------------------- */
#define CV_V2_SLOT_SIZE 32    /* bytes of one event slot */
#define CV_V2_PAYLOAD_SIZE 20 /* payload bytes of a slot, at its offset 12 */

/* ---- Version 1 layout ----------------------------------------------------
 * A record: length byte L, then L bytes: type 2, subtype 2, time high 4,
 * time low 4, and L - 12 payload bytes. */
#define CV_V1_HEAD_SIZE 12 /* bytes of a record behind its length byte, before the payload */

/* The event types of the log, the high half of an event's type word: what
 * the decoders hand to the database and the ThreadX tracker reads. */
enum cv_EventType {
  CV_CONTEXT_SWITCH = 1, /* subtype 0, the thread switched in */
  CV_INTERRUPT = 2,      /* subtype 0 fatal exception, 1 start, 3 end */
  CV_SERVICE_CALL = 3,   /* subtype: the service (threadServiceCall) */
  CV_USER_EVENT = 4,
  CV_STATUS_CHANGE = 5,  /* subtype: the new status (threadStatus) */
  CV_THREAD_RECORD = 6,
  CV_TIMER = 7
};

/* ---- Database points ----------------------------------------------------
 * The decoders talk to the event database only through this table, at four
 * points: open once the header is read, one thread record for each valid
 * thread entry, one record for each event in walk order, close after the
 * walk.  The defaults (cv_DbOpen and the rest) hold the database handle and
 * end the process with the database's fatal messages when a call fails, so
 * a decoder never checks a result.  Tests replace the table to watch what a
 * decoder hands over. */
#define CV_THREAD_RECORD_SIZE 39          /* ID 4, priority 4, name 31 */
#define CV_THREAD_RECORD_NAME 31          /* name bytes in a thread record */
#define CV_THREAD_RECORD_TYPEWORD 0x6000au /* type 6, subtype 10 */

typedef struct cv_DatabasePoints {
  /* Point 1: creates the database KQfile, whose times count ticksPerSecond
   * (the header's tbfreq) and whose payloads are in bigEndian's order. */
  void (*open)(const char *KQfile, int32_t ticksPerSecond, uint8_t bigEndian);
  /* Point 2: adds a thread record (CV_THREAD_RECORD_SIZE bytes, valid only
   * during the call) at time 0:0 with CV_THREAD_RECORD_TYPEWORD. */
  void (*addThread)(const unsigned char *record);
  /* Point 3: adds one event: its normalised time, the type in the high and
   * the subtype in the low half of typeWord, and its length payload bytes
   * in the log's byte order (valid only during the call). */
  void (*addEvent)(uint32_t high, uint32_t low, uint32_t typeWord,
                   const unsigned char *payload, int length);
  /* Point 4: finishes the database. */
  void (*close)(void);
} cv_DatabasePoints;

extern cv_DatabasePoints cv_database;

void cv_DbOpen(const char *KQfile, int32_t ticksPerSecond, uint8_t bigEndian);
void cv_DbAddThread(const unsigned char *record);
void cv_DbAddEvent(uint32_t high, uint32_t low, uint32_t typeWord,
                   const unsigned char *payload, int length);
void cv_DbClose(void);

/* Fills record (CV_THREAD_RECORD_SIZE bytes) from a thread list entry: its
 * Thread ID and Priority bytes as they stand, then the first 31 bytes of its
 * name field, with nothing added behind them. */
void cv_MakeThreadRecord(const cv_ThreadEntry *entry, unsigned char *record);

/* ---- ThreadX state tracking ---------------------------------------------
 * (ravelog_threadx.cpp) */

/* The state-tracking callback that cv_DbOpen gives the database: turns one
 * record into changes of thread objects (Tasks keyed by Thread ID) through
 * kq_KeepTaskID and kq_SaveStateChangeMod.  Types 1 (context switch), 3
 * (service call), 5 (status change, log's status remapped: 3 -> 11,
 * 10 -> 3) and 6 (thread record) are tracked; 2, 4 and 7 change nothing.
 * Reads the payload in kq_IsBigEndian(db)'s order and never beyond
 * event->length bytes: an event too short for its type records only what
 * its bytes hold (see the file's top comment).  Returns 1, or 0 after the
 * warning "[UpdateState_ThreadX]: Unrecognized event type (0x%x)" for any
 * other type. */
int ThreadX_SaveStateChange(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event);

/* ---- Diagnostic listing -------------------------------------------------
 * Each prints with printf on standard output; callers test `debug`. */

/* The names of thread states (threadStatus, indexed by the subtype of a
 * type 5 event) and of ThreadX services (threadServiceCall, by the subtype
 * of a type 3 event) are libkqv's: kq_names.h. */
#define CV_THREAD_STATUS_COUNT KQ_THREADX_STATUS_COUNT
#define CV_SERVICE_CALL_COUNT KQ_THREADX_SERVICE_COUNT

/* The heading of the thread list section. */
void debug_PrintTaskHeader(void);
/* One thread list entry; Priority and Thread ID are read in bigEndian's
 * order, and at most 31 bytes of the name are printed. */
void debug_PrintTaskInfo(const cv_ThreadEntry *entry, uint8_t bigEndian);
/* The heading of the events section. */
void debug_PrintEventsHeader(void);
/* One event line.  type and subtype are taken as unsigned 16-bit values,
 * high and low are printed as given, and word points at the payload's first
 * four bytes, read in bigEndian's order. */
void debug_PrintEventsInfo(unsigned type, unsigned subtype, uint32_t high, uint32_t low,
                           const void *word, uint8_t bigEndian);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_RAVELOG_H */
