/*
 * ravelog_threadx.cpp - ThreadX state tracking: the callback that the
 * database calls for every record added, which turns the event into changes
 * of thread objects (Tasks, object type 0, keyed by Thread ID).  Threads are
 * made by kq_KeepTaskID and brought up to date by kq_SaveStateChangeMod; no
 * thread is ever deleted.  The running thread is whichever has status 3.
 *
 * What an event's payload must hold, by type (word = 4 bytes in the log's
 * byte order):
 *   1 context switch   word 0 Thread ID
 *   3 service call     word 0 Thread ID
 *   5 status change    word 0 Thread ID, word 1 priority
 *   6 thread record    word 0 Thread ID, word 1 priority, 31 name bytes
 *   2, 4, 7            nothing is read
 * Version 2 payloads always hold all of it; version 1 records may be
 * shorter, and nothing is read beyond an event's `length` bytes:
 *   - types 1, 3, 5, 6 with fewer than 4 bytes record nothing (accepted);
 *   - type 5 or 6 with fewer than 8 bytes carry no priority, which is then
 *     neither set nor compared;
 *   - type 6 takes as its name the bytes present from offset 8 on, at most
 *     31, zero-padded to 31.
 * A name without a zero byte in its 31 bytes is 31 long and is stored
 * without a terminator, so it never spills into the byte behind the field.
 *
 * Task layout and numbers: kq_misc.h.  Values are big-endian whatever the
 * host or target.
 */
#include <algorithm>
#include <cassert>
#include <cstring>

#include "kq_error.h"
#include "kq_junk.h"
#include "kq_misc.h"
#include "ravelog.h"

namespace {

/* Event types of the log. */
constexpr uint16_t kContextSwitch = 1;
constexpr uint16_t kInterrupt = 2;
constexpr uint16_t kServiceCall = 3;
constexpr uint16_t kUserEvent = 4;
constexpr uint16_t kStatusChange = 5;
constexpr uint16_t kThreadRecord = 6;
constexpr uint16_t kTimer = 7;

/* Status numbers as stored. */
constexpr uint16_t kReady = 0;
constexpr uint16_t kRunning = 3;

/* Where the words stand in a payload. */
constexpr uint32_t kIdOffset = 0;
constexpr uint32_t kPriorityOffset = 4;
constexpr uint32_t kNameOffset = 8;

/* The byte order of the log's payloads: 1 big-endian, 0 little-endian. */
uint8_t LogOrder(kq_DB *db) { return kq_IsBigEndian(db) != 0 ? 1 : 0; }

/* A type 5 event numbers two states differently from the stored values. */
uint16_t RemapStatus(uint16_t logStatus) {
  switch (logStatus) {
    case 3:
      return 11;
    case 10:
      return kRunning;
    default:
      return logStatus;
  }
}

/* The event's payload as far as it goes. */
struct Payload {
  const uint8_t *data;
  uint32_t length;
  bool Has(uint32_t offset, uint32_t count) const {
    return data != nullptr && length >= offset && length - offset >= count;
  }
};

/* One tracked event: the database, its current table and the thread. */
class Tracker {
 public:
  Tracker(kq_DB *db, HT_PT current, uint32_t id) : db_(db), current_(current), id_(id) {}

  /* Stores count bytes at offset of this thread's value. */
  void Store(uint16_t offset, uint8_t count, const void *bytes) const {
    kq_SaveStateChangeMod(db_, current_, KQ_TYPE_TASK, id_, offset, count, bytes);
  }

  /* Status to `status` unless it is so already; then statusKnown. */
  void UpdateStatus(const uint8_t *value, uint16_t status) const {
    const uint16_t image = kq_ConvertToBigEndian2(status);
    if (memcmp(value + KQ_TASK_STATUS, &image, sizeof image) != 0) {
      Store(KQ_TASK_STATUS, sizeof image, &image);
    }
    MarkKnown(value, KQ_TASK_STATUS_KNOWN);
  }

  /* Priority from the log's four bytes unless it is so already; then
   * priorityKnown. */
  void UpdatePriority(const uint8_t *value, const uint8_t *logPriority) const {
    const uint32_t image = kq_ConvertToBigEndian4(kq_ConvertToHostOrder4(LogOrder(db_), logPriority));
    if (memcmp(value + KQ_TASK_PRIORITY, &image, sizeof image) != 0) {
      Store(KQ_TASK_PRIORITY, sizeof image, &image);
    }
    MarkKnown(value, KQ_TASK_PRIORITY_KNOWN);
  }

  /* The name (31 bytes, zero-padded) unless the stored name starts with
   * it; then nameKnown. */
  void UpdateName(const uint8_t *value, const char *name) const {
    const size_t length = strnlen(name, KQ_TASK_NAME_SIZE);
    if (memcmp(value + KQ_TASK_NAME, name, length) != 0) {
      /* With its terminator, unless the name fills the field. */
      const size_t count = std::min<size_t>(length + 1, KQ_TASK_NAME_SIZE);
      Store(KQ_TASK_NAME, static_cast<uint8_t>(count), name);
    }
    MarkKnown(value, KQ_TASK_NAME_KNOWN);
  }

  void MarkKnown(const uint8_t *value, uint16_t flagOffset) const {
    static const uint8_t kOne = 1;
    if (value[flagOffset] == 0) Store(flagOffset, 1, &kOne);
  }

 private:
  kq_DB *db_;
  HT_PT current_;
  uint32_t id_;
};

/* The value of a found thread.  Every Task in the table was made by
 * kq_KeepTaskID and has the full 76 bytes. */
const uint8_t *TaskValue(kq_StateObject *found) {
  assert(found->length >= KQ_TASK_VALUE_SIZE);
  return kq_GetStateObjectValue(found);
}

/* Every thread at status 3 goes to status 0, except `spared` when
 * spareIt holds.  Table order fixes the order of the records. */
void SweepRunning(kq_DB *db, HT_PT current, bool spareIt, uint32_t spared) {
  const uint16_t ready = kq_ConvertToBigEndian2(kReady);
  for (HTIter_PT it = HT_Begin(current); it != HT_End(current); HTIter_Inc(&it)) {
    void *key = nullptr;
    if (!HTIter_GetValue(it, &key, nullptr) || key == nullptr) {
      HTIter_Delete(it);
      return;
    }
    auto *object = static_cast<kq_StateObject *>(key);
    if (object->type != KQ_TYPE_TASK || object->length < sizeof ready) continue;
    const uint32_t id = kq_GetStateObjectId(object);
    if (spareIt && id == spared) continue;
    if (kq_ConvertToHostOrder2(1, kq_GetStateObjectValue(object)) != kRunning) continue;
    kq_SaveStateChangeMod(db, current, KQ_TYPE_TASK, id, KQ_TASK_STATUS, sizeof ready, &ready);
  }
}

int ContextSwitch(kq_DB *db, HT_PT current, HT_PT used, uint32_t id) {
  kq_StateObject *found = nullptr;
  const bool created =
      kq_KeepTaskID(id, db, current, used, 0, nullptr, 1, kRunning, 0, nullptr, 0, nullptr, &found) != 0;
  SweepRunning(db, current, created, id);
  if (created) return 1;
  const Tracker thread(db, current, id);
  const uint16_t running = kq_ConvertToBigEndian2(kRunning);
  thread.Store(KQ_TASK_STATUS, sizeof running, &running);  // whatever it was
  thread.MarkKnown(TaskValue(found), KQ_TASK_STATUS_KNOWN);
  return 1;
}

int ServiceCall(kq_DB *db, HT_PT current, HT_PT used, uint32_t id) {
  kq_StateObject *found = nullptr;
  if (kq_KeepTaskID(id, db, current, used, 0, nullptr, 1, kRunning, 0, nullptr, 0, nullptr, &found)) {
    return 1;
  }
  Tracker(db, current, id).UpdateStatus(TaskValue(found), kRunning);
  return 1;
}

/* Types 5 and 6: status and, when the payload holds one, priority; for
 * type 6 also the name (name null for type 5). */
int StatusAndPriority(kq_DB *db, HT_PT current, HT_PT used, uint32_t id, uint16_t status,
                      const uint8_t *priority, const char *name) {
  kq_StateObject *found = nullptr;
  const uint8_t priorityGiven = priority != nullptr ? 1 : 0;
  const uint8_t nameGiven = name != nullptr ? 1 : 0;
  if (kq_KeepTaskID(id, db, current, used, nameGiven, name, 1, status, priorityGiven, priority, 0,
                    nullptr, &found)) {
    return 1;
  }
  const uint8_t *value = TaskValue(found);
  const Tracker thread(db, current, id);
  thread.UpdateStatus(value, status);
  if (priority != nullptr) thread.UpdatePriority(value, priority);
  if (name != nullptr) thread.UpdateName(value, name);
  return 1;
}

}  // namespace

extern "C" int ThreadX_SaveStateChange(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  const Payload payload{event->data, event->length};
  switch (event->type) {
    case kInterrupt:
    case kUserEvent:
    case kTimer:
      return 1;
    case kContextSwitch:
    case kServiceCall:
    case kStatusChange:
    case kThreadRecord:
      break;
    default:
      kq_ReportWarning("[UpdateState_ThreadX]: Unrecognized event type (0x%x)", event->type);
      return 0;
  }
  if (!payload.Has(kIdOffset, 4)) return 1;  // no thread named: nothing to record
  const uint32_t id = kq_ConvertToHostOrder4(LogOrder(db), payload.data + kIdOffset);
  const uint8_t *priority = payload.Has(kPriorityOffset, 4) ? payload.data + kPriorityOffset : nullptr;

  switch (event->type) {
    case kContextSwitch:
      return ContextSwitch(db, current, used, id);
    case kServiceCall:
      return ServiceCall(db, current, used, id);
    case kStatusChange:
      return StatusAndPriority(db, current, used, id, RemapStatus(event->subtype), priority, nullptr);
    default: {  // kThreadRecord
      char name[KQ_TASK_NAME_SIZE] = {};
      if (payload.Has(kNameOffset, 0)) {
        const uint32_t present = std::min<uint32_t>(payload.length - kNameOffset, KQ_TASK_NAME_SIZE);
        memcpy(name, payload.data + kNameOffset, present);
      }
      return StatusAndPriority(db, current, used, id, event->subtype, priority, name);
    }
  }
}
