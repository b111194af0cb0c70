/*
 * kq_io_vorhaven.cpp - state tracking for event logs of the small real-time
 * kernel whose services the kernel call table names (kq_io_names.cpp).  A
 * converter for such logs passes kq_SaveStateChange_Vorhaven to
 * kq_OpenForCreation.  It keeps Task objects (type 0, kq_state.h) up to
 * date through the trackers' interface (kq_tracker.h), and compares before
 * it writes wherever a value may already be right, so that repeated facts
 * add nothing to the stream.  No task is ever deleted.
 *
 * Two things are this kernel's own.  Tasks fall into groups by the low ten
 * bits of their ids (id & 0x3FF): a task change makes the running task of
 * the new task's group ready and leaves other groups alone, so tasks of
 * different groups run side by side (a kernel call marks its task running
 * and touches no other, so between task changes a group can have more).
 * And a refresh can carry a second name.
 *
 * The payload, in the target's byte order (word = 4 bytes):
 *
 *   type                offset  size  field
 *   every type          0       4     task id
 *   5 status change     4       4     priority, when length >= 8
 *   6 refresh           4       4     priority
 *                       8       31    name, NUL-ended within the field
 *                       39      31    second name, when length is exactly 70
 *
 * What a type does (ensure = kq_KeepTaskID for the id, with no name,
 * priority or second name unless said):
 *
 *   1 task change       ensure running; the group's running task goes
 *                       ready; an existing task is set running (unread)
 *   3 kernel call       ensure running; an existing task is left alone
 *   5 status change     subtype = new status; status and priority where
 *                       they differ.  Subtype 8 instead sets status 10 on
 *                       every task of the id's group and creates nothing
 *   6 refresh           subtype = status; status, priority, name and second
 *                       name where they differ
 *   any other           ensure, with no status
 *
 * Nothing is read beyond an event's `length` bytes, whatever the type needs:
 *   - fewer than 4 bytes name no task: the event records nothing, except a
 *     status change of subtype 8, which then concerns group 0;
 *   - a status change or refresh of fewer than 8 bytes carries no priority,
 *     which is then neither given nor compared;
 *   - a refresh of fewer than 39 bytes carries no name: the name is neither
 *     given nor compared (a partial name field is not taken as a name), and
 *     status and priority are handled as usual;
 *   - only a refresh of exactly 70 bytes carries a second name.
 * A name that fills its 31 bytes without a NUL is stored as those 31 bytes,
 * never spilling into the known flag behind the field.
 */
#include <algorithm>
#include <cstring>

#include "kq_io.h"
#include "kq_byteorder.h"
#include "kq_state.h"
#include "kq_tracker.h"

namespace {

/* ---- The log -------------------------------------------------------------- */

constexpr uint16_t kTaskChange = 1;
constexpr uint16_t kKernelCall = 3;
constexpr uint16_t kStatusChange = 5;
constexpr uint16_t kRefresh = 6;

/* The status change that concerns a whole group. */
constexpr uint16_t kGroupStatusSubtype = 8;

/* Status numbers this tracker sets itself. */
constexpr uint16_t kReady = 0;
constexpr uint16_t kRunning = 3;
constexpr uint16_t kGroupStatus = 10;  // no name; set by the group status change

constexpr uint32_t kGroupMask = 0x3FF;

constexpr uint32_t kIdOffset = 0;
constexpr uint32_t kPriorityOffset = 4;
constexpr uint32_t kNameOffset = 8;
constexpr uint32_t kSecondNameOffset = kNameOffset + KQ_TASK_NAME_SIZE;  // 39
constexpr uint32_t kRefreshWithSecondName = kSecondNameOffset + KQ_TASK_NAME_SIZE;  // 70
static_assert(kSecondNameOffset == 39 && kRefreshWithSecondName == 70,
              "a refresh holds the id, the priority and two 31-byte names");

uint32_t GroupOf(uint32_t id) { return id & kGroupMask; }

/* The event's payload as far as it goes. */
struct Payload {
  const uint8_t *data;
  uint32_t length;
  bool Has(uint32_t offset, uint32_t count) const {
    return data != nullptr && length >= offset && length - offset >= count;
  }
};

/* The value of a task that kq_KeepTaskID found; every Task of the table was
 * made by it and has the whole 76 bytes. */
kq_TaskRef TaskOf(kq_DB *db, HT_PT current, uint32_t id, kq_StateObject *found) {
  return kq_TaskRef{db, current, id, kq_GetStateObjectValue(found)};
}

/* Calls visit(object) for each Task of `group` in current, in table order,
 * which fixes the order of the records it makes.  visit may change values
 * in place, not the table's entries. */
template <typename Visit>
void ForEachTaskOfGroup(HT_PT current, uint32_t group, Visit visit) {
  for (HTIter_PT it = HT_Begin(current); it != HT_End(current); HTIter_Inc(&it)) {
    void *key = nullptr;
    if (!HTIter_GetValue(it, &key, nullptr) || key == nullptr) {
      HTIter_Delete(it);
      return;
    }
    auto *object = static_cast<kq_StateObject *>(key);
    if (object->type == KQ_TYPE_TASK && GroupOf(object->id) == group) visit(object);
  }
}

/* ---- Event types ------------------------------------------------------------------ */

/* Ensures the task, with `status` when statusGiven, and nothing else. */
void Ensure(kq_DB *db, HT_PT current, HT_PT used, uint32_t id, uint8_t statusGiven,
            uint16_t status) {
  kq_KeepTaskID(id, db, current, used, 0, nullptr, statusGiven, status, 0, nullptr, 0, nullptr,
                nullptr);
}

/* The task now runs; the group's running task, if any, becomes ready. */
void TaskChange(kq_DB *db, HT_PT current, HT_PT used, uint32_t id) {
  kq_StateObject *found = nullptr;
  const bool created = kq_KeepTaskID(id, db, current, used, 0, nullptr, 1, kRunning, 0, nullptr, 0,
                                     nullptr, &found) != 0;
  const uint16_t ready = kq_ConvertToBigEndian2(kReady);
  ForEachTaskOfGroup(current, GroupOf(id), [&](kq_StateObject *object) {
    if (created && object->id == id) return;
    if (object->length < 2 || kq_ConvertToHostOrder2(1, object->value) != kRunning) return;
    kq_SaveStateChangeMod(db, current, KQ_TYPE_TASK, object->id, KQ_TASK_STATUS, sizeof ready,
                          &ready);
  });
  if (created) return;
  const kq_TaskRef task = TaskOf(db, current, id, found);
  kq_TaskSetStatus(&task, kRunning);  // whatever it was, also after the sweep above
  kq_TaskMarkKnown(&task, KQ_TASK_STATUS_KNOWN);
}

/* Every task of the group gets status 10, unread. */
void GroupStatusChange(kq_DB *db, HT_PT current, uint32_t group) {
  const uint16_t image = kq_ConvertToBigEndian2(kGroupStatus);
  ForEachTaskOfGroup(current, group, [&](kq_StateObject *object) {
    kq_SaveStateChangeMod(db, current, KQ_TYPE_TASK, object->id, KQ_TASK_STATUS, sizeof image,
                          &image);
  });
}

/* A status change (subtype other than 8) or a refresh: status, priority
 * when given, name and second name when given (null when not). */
void StatusAndFacts(kq_DB *db, HT_PT current, HT_PT used, uint32_t id, uint16_t status,
                    const uint8_t *priority, const char *name, const char *secondName) {
  kq_StateObject *found = nullptr;
  if (kq_KeepTaskID(id, db, current, used, name != nullptr, name, 1, status, priority != nullptr,
                    priority, secondName != nullptr, secondName, &found)) {
    return;
  }
  const kq_TaskRef task = TaskOf(db, current, id, found);
  kq_TaskUpdateStatus(&task, status);
  if (priority != nullptr) kq_TaskUpdatePriority(&task, priority);
  int nameDiffered = 0;
  if (name != nullptr) nameDiffered = kq_TaskUpdateName(&task, 0, name, 0);
  if (secondName != nullptr) kq_TaskUpdateName(&task, 1, secondName, nameDiffered);
}

void Refresh(kq_DB *db, HT_PT current, HT_PT used, uint32_t id, uint16_t status,
             const Payload &payload) {
  const uint8_t *priority = payload.Has(kPriorityOffset, 4) ? payload.data + kPriorityOffset : nullptr;
  char name[KQ_TASK_NAME_SIZE];
  char secondName[KQ_TASK_NAME_SIZE];
  const bool hasName = payload.Has(kNameOffset, KQ_TASK_NAME_SIZE);
  const bool hasSecondName = payload.length == kRefreshWithSecondName && payload.data != nullptr;
  if (hasName) memcpy(name, payload.data + kNameOffset, sizeof name);
  if (hasSecondName) memcpy(secondName, payload.data + kSecondNameOffset, sizeof secondName);
  StatusAndFacts(db, current, used, id, status, priority, hasName ? name : nullptr,
                 hasSecondName ? secondName : nullptr);
}

}  // namespace

extern "C" int kq_SaveStateChange_Vorhaven(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  if (event == nullptr) return 1;
  const Payload payload{event->data, event->length};
  const bool namesTask = payload.Has(kIdOffset, 4);
  const uint32_t id = namesTask ? kq_ConvertToHostOrder4(kq_IsBigEndian(db) != 0 ? 1 : 0,
                                                         payload.data + kIdOffset)
                                : 0;

  if (event->type == kStatusChange && event->subtype == kGroupStatusSubtype) {
    GroupStatusChange(db, current, GroupOf(id));  // group 0 without an id
    return 1;
  }
  if (!namesTask) return 1;  // too short to name a task: nothing to record

  switch (event->type) {
    case kTaskChange:
      TaskChange(db, current, used, id);
      break;
    case kKernelCall:
      Ensure(db, current, used, id, 1, kRunning);
      break;
    case kStatusChange: {
      const uint8_t *priority =
          payload.Has(kPriorityOffset, 4) ? payload.data + kPriorityOffset : nullptr;
      StatusAndFacts(db, current, used, id, event->subtype, priority, nullptr, nullptr);
      break;
    }
    case kRefresh:
      Refresh(db, current, used, id, event->subtype, payload);
      break;
    default:  // interrupt, user event, timer and any type without a meaning here
      Ensure(db, current, used, id, 0, 0);
      break;
  }
  return 1;
}
