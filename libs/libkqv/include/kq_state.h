/*
 * kq_state.h - the state model: state objects, the hash-table callbacks that
 * make a table of them, the three kinds of state change applied to tables
 * (by the writer's trackers and by the read side alike), and the Task, the
 * one object type.  The records (kq_State, kq_StateObject, StateChange) are
 * in kq_io.h; recording changes into a database being written is the
 * trackers' interface, kq_tracker.h.
 *
 * The Task value: 76 bytes, stored in the stream byte for byte.  Its numbers
 * are big-endian whatever the host or target.
 *
 *   offset size field            meaning
 *   0      2    status           big-endian 16-bit
 *   2      1    statusKnown      1 when status holds a value
 *   3      1    reserved         0
 *   4      4    priority         big-endian 32-bit; FF FF FF FF until known
 *   8      1    priorityKnown
 *   9      31   name             NUL-ended within the field
 *   40     1    nameKnown
 *   41     31   secondName       NUL-ended within the field
 *   72     1    secondNameKnown
 *   73     3    reserved         0
 *
 * A task 0x1234 created with status 3 and nothing else is recorded as a New
 * of 85 bytes: 00, 00 00, 00 00 12 34, 00 4C, then 00 03 01 00 FF FF FF FF
 * 00 and 67 bytes 00.
 */
#ifndef RAVELOG_KQ_STATE_H
#define RAVELOG_KQ_STATE_H

#include <stdint.h>

#include "kq_io.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Object type of the Task, and the layout of its value. */
#define KQ_TYPE_TASK 0
#define KQ_TASK_VALUE_SIZE 76
#define KQ_TASK_STATUS 0
#define KQ_TASK_STATUS_KNOWN 2
#define KQ_TASK_PRIORITY 4
#define KQ_TASK_PRIORITY_KNOWN 8
#define KQ_TASK_NAME 9
#define KQ_TASK_NAME_KNOWN 40
#define KQ_TASK_SECOND_NAME 41
#define KQ_TASK_SECOND_NAME_KNOWN 72
#define KQ_TASK_NAME_SIZE 31

/* ---- Tables of objects ------------------------------------------------ */

/* A new state whose table is made by HT_New(0, HashStateObject,
 * CmpStateObject, DelStateObject, null, CloneStateObject, ClonePtr). */
kq_State *kq_NewState(void);
/* Deletes the table (and its objects) and frees the record; null is fine. */
void kq_DeleteState(kq_State *state);

/* The object (type, id) of table, or null. */
kq_StateObject *kq_FindStateObject(HT_PT table, uint16_t type, uint32_t id);

/* Hash of a kq_StateObject key: the id with its first and last byte
 * exchanged, exclusive-or the type. */
uint32_t HashStateObject(const void *object);
/* Compares by type, then id, unsigned.  Unusual sign: -1 when a is greater,
 * 1 when a is less, 0 when equal. */
int CmpStateObject(const void *a, const void *b);
/* Frees value, then the record. */
void DelStateObject(void *object);
/* A deep copy of the object in *copy; returns 1. */
int CloneStateObject(const void *object, void **copy);
/* Copies the pointer; returns 1. */
int ClonePtr(const void *value, void **copy);
/* For tables keyed by type alone: type ^ 0x15725246, and compare by type
 * with the sign of CmpStateObject. */
uint32_t HashStateObjectByType(const void *object);
int CmpStateObjectByType(const void *a, const void *b);

/* Frees a StateChange and its bytes (kinds 0 and 1); prints
 * "Unrecognized StateChange type\n" to stderr for a kind above 2. */
void StateChangeDelete(void *change);

uint8_t *kq_GetStateObjectValue(kq_StateObject *object);
uint32_t kq_GetStateObjectId(kq_StateObject *object);

/* A new zeroed Task value (gen_free) with status = the argument as it stands
 * in memory (unconverted), statusKnown 1 and priority FF FF FF FF. */
uint8_t *kq_GetSpaceForTask(uint16_t status);

/* ---- Applying, for both sides ------------------------------------------
 * current and used may each be null; that side is then left out.  filter
 * may be null; a filter that answers 0 keeps an object out of used (current
 * still receives it).
 *
 * New: an object already in current stops everything, used included;
 * otherwise current receives a copy of the value (zeros when value is null)
 * and used a valueless entry of the key, replacing one of the same key.
 * Mod: applied only when offset + count <= the object's length, else
 * nothing changes; a missing object or null bytes change nothing.
 * Del: removes the key from current; used is never touched.
 * ApplyStateChange dispatches by kind (3, the end mark, does nothing; an
 * unknown kind prints "Unrecognized StateChange->type\n" to stderr).  The
 * list and the event's changes are applied from front to back. */
void ApplyStateChangeNew(HT_PT current, HT_PT used, uint16_t type, uint32_t id, uint16_t length,
                         const void *value, kq_StateFilter filter, void *filterArg);
void ApplyStateChangeMod(HT_PT current, uint16_t type, uint32_t id, uint16_t offset,
                         uint8_t count, const void *bytes);
void ApplyStateChangeDel(HT_PT current, uint16_t type, uint32_t id);
void ApplyStateChange(HT_PT current, HT_PT used, kq_StateFilter filter, void *filterArg,
                      const StateChange *change);
void ApplyListOfStateChanges(List_PT list, HT_PT current, HT_PT used, kq_StateFilter filter,
                             void *filterArg);
void kq_UpdateStateFromStateAndEvent(kq_State *state, const kq_Event *event);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_STATE_H */
