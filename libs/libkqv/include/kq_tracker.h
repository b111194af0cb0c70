/*
 * kq_tracker.h - what a state tracker may call while the database calls it
 * back for an event (kq_SaveStateFunc, kq_io.h): recording changes of
 * objects, making sure a Task exists, bringing a Task's fields up to date,
 * and putting objects in the order of the table's walk.  The ThreadX
 * tracker of the converter and the second kernel's tracker of libkqv
 * (kq_SaveStateChange_Vorhaven) are written against it alone.
 *
 * Records and the Task layout: kq_state.h.  Every function here applies its
 * change to the tables first and then appends the change's record to the
 * database's stream; a null db applies the change and writes nothing.
 */
#ifndef RAVELOG_KQ_TRACKER_H
#define RAVELOG_KQ_TRACKER_H

#include <stdint.h>

#include "kq_io.h"
#include "kq_state.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Recording changes -------------------------------------------------
 * Each applies the change to the tables first, then appends its record to
 * db's stream, whatever the application did: a New of an existing object, a
 * Mod that doesn't fit and a Del of nothing are recorded all the same.
 * current and used are the tables the callback received (either may be
 * null: that side is left out).  value and bytes point at length and count
 * readable bytes; a null pointer with a nonzero length or count records
 * nothing. */
void kq_SaveStateChangeNew(kq_DB *db, HT_PT current, HT_PT used, uint16_t type, uint32_t id,
                           uint16_t length, const void *value);
void kq_SaveStateChangeMod(kq_DB *db, HT_PT current, uint16_t type, uint32_t id,
                           uint16_t offset, uint8_t count, const void *bytes);
void kq_SaveStateChangeDel(kq_DB *db, HT_PT current, uint16_t type, uint32_t id);

/* Makes sure task `id` exists.  When it does, stores it in *found (found may
 * be null), changes nothing and returns 0.  Otherwise records a New Task
 * built from the arguments (status in host order; priority 4 bytes in the
 * target's byte order; name and secondName 31 readable bytes each, copied
 * whole) and returns 1, with *found null. */
int kq_KeepTaskID(uint32_t id, kq_DB *db, HT_PT current, HT_PT used, uint8_t nameGiven,
                  const char *name, uint8_t statusGiven, uint16_t status, uint8_t priorityGiven,
                  const void *priority, uint8_t secondNameGiven, const char *secondName,
                  kq_StateObject **found);

/* ---- Bringing a Task up to date ----------------------------------------
 * One Task of a tracked event: the database, the callback's current table,
 * the task's id and its value as the table holds it (76 bytes, the one
 * kq_KeepTaskID found).  The value is read for comparisons and changes in
 * place with every Mod recorded. */
typedef struct kq_TaskRef {
  kq_DB *db;
  HT_PT current;
  uint32_t id;
  const uint8_t *value;
} kq_TaskRef;

/* Records a Mod of the status to `status` (host order), whatever it was. */
void kq_TaskSetStatus(const kq_TaskRef *task, uint16_t status);
/* Records a Mod of 1 into the flag byte at flagOffset (KQ_TASK_*_KNOWN)
 * unless it is set already. */
void kq_TaskMarkKnown(const kq_TaskRef *task, uint16_t flagOffset);
/* The status where it differs, then statusKnown. */
void kq_TaskUpdateStatus(const kq_TaskRef *task, uint16_t status);
/* The priority, four bytes in the byte order of db's payloads, where it
 * differs, then priorityKnown. */
void kq_TaskUpdatePriority(const kq_TaskRef *task, const void *targetPriority);
/* A name field from `name` (31 readable bytes): the first name for
 * `second` 0, the second name otherwise.  Only the characters of name's
 * string (up to its NUL, at most 31) are compared, so a stored name that
 * goes on behind them counts as equal.  Writes the string with its NUL (or
 * all 31 bytes when it has none, so nothing spills into the known flag)
 * when it differs or when `rewrite` is nonzero; then the known flag.
 * Returns 1 when the string differed, else 0. */
int kq_TaskUpdateName(const kq_TaskRef *task, int second, const char *name, int rewrite);

/* ---- The table -------------------------------------------------------------- */

/* The table of the objects as they stand now in a database being written
 * (the `current` its tracker is called with); null for a reading or null
 * handle. */
HT_PT kq_GetCurrentTable(const kq_DB *db);

/* Sorts the ids of `count` objects of `type` into the order in which a walk
 * of table meets them, which is the order a tracker that walks the table
 * records changes in.  Returns 1, or 0 with ids in no particular order when
 * one of them is not in the table. */
int kq_SortIdsInTableOrder(HT_PT table, uint16_t type, uint32_t *ids, uint32_t count);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_TRACKER_H */
