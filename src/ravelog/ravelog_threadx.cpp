/*
 * ravelog_threadx.cpp - ThreadX state tracking: the callback that the
 * database calls for every record added, which turns the event into changes
 * of thread objects (Tasks, object type 0, keyed by Thread ID).  Threads are
 * made by kq_KeepTaskID and brought up to date by Mods; no
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
 * Threads change through the library's trackers' interface (kq_tracker.h).
 * Task layout and numbers: kq_state.h.  Values are big-endian whatever the
 * host or target.
 *
 * The sweep of a context switch sends every thread at status 3 to 0, in
 * the table's walk order.  Walking all threads for it cost a good part of
 * a conversion with many threads, while only one or a few run at a time;
 * so the tracker keeps the ids of the running threads of the database it
 * tracks (RunningThreads below) and sweeps those, put in walk order by
 * their place in the table.  The set is exact because only the tracker
 * changes a database's current table while it is written (the library's
 * contract for trackers), and it notes every status it gives.  It is kept
 * only from one call to the next for the same database and table: any
 * other call forgets it, and the sweep then walks every thread and learns
 * the set anew.  Each id is checked against the table before a sweep
 * trusts the set.
 */
#include <algorithm>
#include <cassert>
#include <cstring>
#include <vector>

#include "kq_error.h"
#include "kq_byteorder.h"
#include "kq_state.h"
#include "kq_tracker.h"
#include "ravelog.h"

namespace {

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

/* ---- Running threads ------------------------------------------------------ */

/* The ids of the Tasks at status 3 in one table, known or not.  One for the
 * process, since the tracker is: it belongs to the database and table it
 * was last used with.  A set kept for a table that a new database got at
 * the address of an old one holds ids that the new table hasn't or that
 * don't run there, and the sweep's check of each id finds them. */
class RunningThreads {
 public:
  /* At the start of each call: keeps the set only for the same database
   * and its own current table. */
  void Begin(kq_DB *db, HT_PT current) {
    const bool same = db != nullptr && db == db_ && current == table_ &&
                      current == kq_GetCurrentTable(db);
    if (!same) Forget();
    db_ = db;
    table_ = current;
  }
  void Forget() {
    known_ = false;
    ids_.clear();
  }
  /* After a sweep that walked every thread: the set is now `ids`, unless
   * there is no database to tie it to. */
  void Learn(std::vector<uint32_t> ids) {
    known_ = db_ != nullptr;
    ids_ = std::move(ids);
  }
  bool known() const { return known_; }
  const std::vector<uint32_t> &ids() const { return ids_; }

  /* The tracker gave thread id the status `status`. */
  void Note(uint32_t id, uint16_t status) {
    if (!known_) return;
    const auto at = std::find(ids_.begin(), ids_.end(), id);
    if (status == kRunning && at == ids_.end()) ids_.push_back(id);
    if (status != kRunning && at != ids_.end()) ids_.erase(at);
  }

 private:
  kq_DB *db_ = nullptr;
  HT_PT table_ = nullptr;
  bool known_ = false;
  std::vector<uint32_t> ids_;
};

RunningThreads runningThreads;

/* kq_KeepTaskID that tells the running set about a thread it creates. */
int KeepTask(uint32_t id, kq_DB *db, HT_PT current, HT_PT used, const char *name, uint16_t status,
             const uint8_t *priority, kq_StateObject **found) {
  const int created = kq_KeepTaskID(id, db, current, used, name != nullptr ? 1 : 0, name, 1, status,
                                    priority != nullptr ? 1 : 0, priority, 0, nullptr, found);
  if (created) runningThreads.Note(id, status);
  return created;
}

/* The thread of a tracked event, to be brought up to date through the
 * library's Task helpers; every status given is noted in the running set. */
class Thread {
 public:
  Thread(kq_DB *db, HT_PT current, uint32_t id, kq_StateObject *found)
      : task_{db, current, id, TaskValue(found)} {}

  void SetStatus(uint16_t status) const {
    kq_TaskSetStatus(&task_, status);
    kq_TaskMarkKnown(&task_, KQ_TASK_STATUS_KNOWN);
    runningThreads.Note(task_.id, status);
  }
  void UpdateStatus(uint16_t status) const {
    kq_TaskUpdateStatus(&task_, status);
    runningThreads.Note(task_.id, status);
  }
  void UpdatePriority(const uint8_t *logPriority) const {
    kq_TaskUpdatePriority(&task_, logPriority);
  }
  void UpdateName(const char *name) const { kq_TaskUpdateName(&task_, 0, name, 0); }

 private:
  /* The value of a found thread.  Every Task in the table was made by
   * kq_KeepTaskID and has the full 76 bytes. */
  static const uint8_t *TaskValue(kq_StateObject *found) {
    assert(found->length >= KQ_TASK_VALUE_SIZE);
    return kq_GetStateObjectValue(found);
  }

  kq_TaskRef task_;
};

/* Whether object is a Task at status 3. */
bool IsRunningTask(const kq_StateObject *object) {
  return object->type == KQ_TYPE_TASK && object->length >= 2 &&
         kq_ConvertToHostOrder2(1, object->value) == kRunning;
}

/* The sweep by the running set: the threads in it, but `spared` when
 * spareIt holds, in walk order.  False, with nothing stored, when a thread
 * of the set isn't a running Task of the table (the set is then stale). */
bool SweepKnown(kq_DB *db, HT_PT current, bool spareIt, uint32_t spared) {
  static std::vector<uint32_t> order;  // kept between calls, so rarely grown
  order.clear();
  for (uint32_t id : runningThreads.ids()) {
    if (spareIt && id == spared) continue;
    const kq_StateObject *object = kq_FindStateObject(current, KQ_TYPE_TASK, id);
    if (object == nullptr || !IsRunningTask(object)) return false;
    order.push_back(id);
  }
  if (!kq_SortIdsInTableOrder(current, KQ_TYPE_TASK, order.data(),
                              static_cast<uint32_t>(order.size()))) {
    return false;
  }
  const uint16_t ready = kq_ConvertToBigEndian2(kReady);
  for (const uint32_t id : order) {
    kq_SaveStateChangeMod(db, current, KQ_TYPE_TASK, id, KQ_TASK_STATUS, sizeof ready, &ready);
    runningThreads.Note(id, kReady);
  }
  return true;
}

/* The sweep by a walk of every object, which also learns the running set:
 * afterwards only `spared` (when spareIt holds) runs. */
void SweepAll(kq_DB *db, HT_PT current, bool spareIt, uint32_t spared) {
  struct Walk {
    kq_DB *db;
    HT_PT current;
    bool spareIt;
    uint32_t spared;
  } walk{db, current, spareIt, spared};
  HT_ForEach(
      current,
      [](void *key, void *, void *context) {
        const auto &w = *static_cast<Walk *>(context);
        const auto *object = static_cast<const kq_StateObject *>(key);
        if (object == nullptr) return 0;
        if (!IsRunningTask(object) || (w.spareIt && object->id == w.spared)) return 1;
        const uint16_t ready = kq_ConvertToBigEndian2(kReady);
        kq_SaveStateChangeMod(w.db, w.current, KQ_TYPE_TASK, object->id, KQ_TASK_STATUS,
                              sizeof ready, &ready);
        return 1;
      },
      &walk);
  runningThreads.Learn(spareIt ? std::vector<uint32_t>{spared} : std::vector<uint32_t>{});
}

/* Every thread at status 3 goes to status 0, except `spared` when
 * spareIt holds.  Table order fixes the order of the records. */
void SweepRunning(kq_DB *db, HT_PT current, bool spareIt, uint32_t spared) {
  if (runningThreads.known() && SweepKnown(db, current, spareIt, spared)) return;
  SweepAll(db, current, spareIt, spared);
}

int ContextSwitch(kq_DB *db, HT_PT current, HT_PT used, uint32_t id) {
  kq_StateObject *found = nullptr;
  const bool created = KeepTask(id, db, current, used, nullptr, kRunning, nullptr, &found) != 0;
  SweepRunning(db, current, created, id);
  if (created) return 1;
  Thread(db, current, id, found).SetStatus(kRunning);  // whatever it was
  return 1;
}

int ServiceCall(kq_DB *db, HT_PT current, HT_PT used, uint32_t id) {
  kq_StateObject *found = nullptr;
  if (KeepTask(id, db, current, used, nullptr, kRunning, nullptr, &found)) return 1;
  Thread(db, current, id, found).UpdateStatus(kRunning);
  return 1;
}

/* Types 5 and 6: status and, when the payload holds one, priority; for
 * type 6 also the name (name null for type 5). */
int StatusAndPriority(kq_DB *db, HT_PT current, HT_PT used, uint32_t id, uint16_t status,
                      const uint8_t *priority, const char *name) {
  kq_StateObject *found = nullptr;
  if (KeepTask(id, db, current, used, name, status, priority, &found)) return 1;
  const Thread thread(db, current, id, found);
  thread.UpdateStatus(status);
  if (priority != nullptr) thread.UpdatePriority(priority);
  if (name != nullptr) thread.UpdateName(name);
  return 1;
}

/* The callback's work for one event; see ThreadX_SaveStateChange. */
int TrackEvent(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  const Payload payload{event->data, event->length};
  switch (event->type) {
    case CV_INTERRUPT:
    case CV_USER_EVENT:
    case CV_TIMER:
      return 1;
    case CV_CONTEXT_SWITCH:
    case CV_SERVICE_CALL:
    case CV_STATUS_CHANGE:
    case CV_THREAD_RECORD:
      break;
    default:
      kq_ReportWarning("[UpdateState_ThreadX]: Unrecognized event type (0x%x)", event->type);
      return 0;
  }
  if (!payload.Has(kIdOffset, 4)) return 1;  // no thread named: nothing to record
  const uint32_t id = kq_ConvertToHostOrder4(LogOrder(db), payload.data + kIdOffset);
  const uint8_t *priority = payload.Has(kPriorityOffset, 4) ? payload.data + kPriorityOffset : nullptr;

  switch (event->type) {
    case CV_CONTEXT_SWITCH:
      return ContextSwitch(db, current, used, id);
    case CV_SERVICE_CALL:
      return ServiceCall(db, current, used, id);
    case CV_STATUS_CHANGE:
      return StatusAndPriority(db, current, used, id, RemapStatus(event->subtype), priority, nullptr);
    default: {  // CV_THREAD_RECORD
      char name[KQ_TASK_NAME_SIZE] = {};
      if (payload.Has(kNameOffset, 0)) {
        const uint32_t present = std::min<uint32_t>(payload.length - kNameOffset, KQ_TASK_NAME_SIZE);
        memcpy(name, payload.data + kNameOffset, present);
      }
      return StatusAndPriority(db, current, used, id, event->subtype, priority, name);
    }
  }
}

}  // namespace

extern "C" int ThreadX_SaveStateChange(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  runningThreads.Begin(db, current);
  return TrackEvent(db, current, used, event);
}
