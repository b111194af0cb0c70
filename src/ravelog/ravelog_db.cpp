/*
 * ravelog_db.cpp - the four points at which a decoder talks to the event
 * database, and the thread record that a valid thread list entry becomes.
 *
 * The decoders call the points only through the table cv_database, whose
 * defaults are the cv_Db functions below.  They hold the database handle
 * from the open to the close and turn every refusal of the library into the
 * conversion's fatal message, so that a decoder never checks a result:
 *   cv_DbOpen       kq_OpenForCreation(KQfile, ticksPerSecond, "ThreadX",
 *                   bigEndian, ThreadX_SaveStateChange); a null handle
 *                   fails with "Failed to create indexed event resource
 *                   file %s.*.\n" and KQfile
 *   cv_DbAddThread  kq_AddEventFromRawBytes(database, 0, 0,
 *                   CV_THREAD_RECORD_TYPEWORD, record, CV_THREAD_RECORD_SIZE);
 *                   0 fails with "Bad refresh: unexpected return value from
 *                   libkqv."
 *   cv_DbAddEvent   kq_AddEventFromRawBytes(database, high, low, typeWord,
 *                   payload, length); 0 fails with "Unexpected return value
 *                   from libkqv."
 * except where the database stopped for want of room or after a failed
 * write (kq_GetWriteFailure): a full database fails with "The database is
 * full: ... It holds the first N events of the log.", and a failed write
 * ends the process with status 1 after the file's own message, so that
 * either way one message says what happened and the status says it failed.
 *   cv_DbClose      kq_Close(database), result not looked at
 * A failure ends the process without kq_Close: the files stay as they
 * stand, every event added before complete for a reader.
 */
#include "ravelog.h"

#include <cstring>

#include "indgen.h"

static_assert(CV_THREAD_RECORD_SIZE == 4 + 4 + CV_THREAD_RECORD_NAME);
static_assert(CV_THREAD_RECORD_NAME <= CV_TASK_NAME_FIELD);

cv_DatabasePoints cv_database = {cv_DbOpen, cv_DbAddThread, cv_DbAddEvent, cv_DbClose};

namespace {

/* The database being written, from point 1 to point 4. */
kq_DB *database = nullptr;

constexpr const char *kConfigName = "ThreadX";

}  // namespace

/* ---- Database points ------------------------------------------------------ */

extern "C" void cv_DbOpen(const char *KQfile, int32_t ticksPerSecond, uint8_t bigEndian) {
  database = kq_OpenForCreation(KQfile, static_cast<uint32_t>(ticksPerSecond), kConfigName, bigEndian,
                                ThreadX_SaveStateChange);
  if (database == nullptr) {
    gen_errorexit(1, "Failed to create indexed event resource file %s.*.\n", KQfile);
  }
}

/* Ends the conversion after an addition that the database refused:
 * `refused` is the message for a refusal by the tracker; a database that
 * can't hold more, and one whose files couldn't be written, end it with
 * their own. */
static void FailAddition(const char *refused) {
  switch (kq_GetWriteFailure(database)) {
    case KQ_WRITE_FULL:
      gen_errorexit(1,
                    "The database is full: a database file can't pass 2 GiB.  It holds the first "
                    "%u events of the log.",
                    kq_GetNumEventsAdded(database));
      break;
    case KQ_WRITE_FAILED:
      /* The file gave its message; the database holds the events before. */
      gen_exit(1);
      break;
    default:
      gen_errorexit(1, "%s", refused);
      break;
  }
}

extern "C" void cv_DbAddThread(const unsigned char *record) {
  if (!kq_AddEventFromRawBytes(database, 0, 0, CV_THREAD_RECORD_TYPEWORD, record,
                               CV_THREAD_RECORD_SIZE)) {
    FailAddition("Bad refresh: unexpected return value from libkqv.");
  }
}

extern "C" void cv_DbAddEvent(uint32_t high, uint32_t low, uint32_t typeWord,
                              const unsigned char *payload, int length) {
  if (!kq_AddEventFromRawBytes(database, high, low, typeWord, payload,
                               static_cast<uint32_t>(length))) {
    FailAddition("Unexpected return value from libkqv.");
  }
}

extern "C" void cv_DbClose(void) {
  kq_Close(database);
  database = nullptr;
}

/* ---- Thread record -------------------------------------------------------- */

/* Layout, 39 bytes, nothing added behind the name:
 *   0   4  Thread ID, as the entry holds it (log's byte order)
 *   4   4  Priority, as the entry holds it (log's byte order)
 *   8  31  the first 31 bytes of the name field; a name of 31 characters or
 *          more has no terminator here */
extern "C" void cv_MakeThreadRecord(const cv_ThreadEntry *entry, unsigned char *record) {
  memcpy(record, &entry->threadId, 4);
  memcpy(record + 4, &entry->priority, 4);
  memcpy(record + 8, entry->name, CV_THREAD_RECORD_NAME);
}
