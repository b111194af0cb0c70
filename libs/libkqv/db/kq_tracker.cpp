/*
 * kq_tracker.cpp - the trackers' interface (kq_tracker.h): recording a
 * change applies it to the tables through the state model (kq_state.cpp)
 * and then appends its record to the stream through the writer
 * (kq_io_write.h).  This file is where the two meet, so that neither the
 * state model nor the writer needs the other.
 *
 * Recording happens whatever the application did: a New of an existing
 * object, a Mod that doesn't fit and a Del of nothing are all in the stream,
 * and a reader that applies them sees the same lack of effect.
 */
#include "kq_tracker.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <vector>

#include "indgeninit.h"
#include "kq_byteorder.h"
#include "kq_io_write.h"

/* ---- Recording ---------------------------------------------------------------- */

extern "C" void kq_SaveStateChangeNew(kq_DB *db, HT_PT current, HT_PT used, uint16_t type,
                                      uint32_t id, uint16_t length, const void *value) {
  if (length != 0 && value == nullptr) return;
  ApplyStateChangeNew(current, used, type, id, length, value, nullptr, nullptr);
  PutStateChangeNew(db, type, id, length, value);
}

extern "C" void kq_SaveStateChangeMod(kq_DB *db, HT_PT current, uint16_t type, uint32_t id,
                                      uint16_t offset, uint8_t count, const void *bytes) {
  if (count != 0 && bytes == nullptr) return;
  ApplyStateChangeMod(current, type, id, offset, count, bytes);
  PutStateChangeMod(db, type, id, offset, count, bytes);
}

extern "C" void kq_SaveStateChangeDel(kq_DB *db, HT_PT current, uint16_t type, uint32_t id) {
  ApplyStateChangeDel(current, type, id);
  PutStateChangeDel(db, type, id);
}

extern "C" int kq_KeepTaskID(uint32_t id, kq_DB *db, HT_PT current, HT_PT used, uint8_t nameGiven,
                             const char *name, uint8_t statusGiven, uint16_t status,
                             uint8_t priorityGiven, const void *priority, uint8_t secondNameGiven,
                             const char *secondName, kq_StateObject **found) {
  kq_StateObject *existing =
      current != nullptr ? kq_FindStateObject(current, KQ_TYPE_TASK, id) : nullptr;
  if (found != nullptr) *found = existing;
  if (existing != nullptr) return 0;

  uint8_t *value = kq_GetSpaceForTask(0);
  if (statusGiven) {
    const uint16_t image = kq_ConvertToBigEndian2(status);
    memcpy(value + KQ_TASK_STATUS, &image, sizeof image);
    value[KQ_TASK_STATUS_KNOWN] = 1;
  } else {
    value[KQ_TASK_STATUS_KNOWN] = 0;
  }
  if (priorityGiven && priority != nullptr) {
    const uint8_t order = kq_IsBigEndian(db) != 0 ? 1 : 0;
    const uint32_t image = kq_ConvertToBigEndian4(kq_ConvertToHostOrder4(order, priority));
    memcpy(value + KQ_TASK_PRIORITY, &image, sizeof image);
    value[KQ_TASK_PRIORITY_KNOWN] = 1;
  }
  if (nameGiven && name != nullptr) {
    memcpy(value + KQ_TASK_NAME, name, KQ_TASK_NAME_SIZE);
    value[KQ_TASK_NAME_KNOWN] = 1;
  }
  if (secondNameGiven && secondName != nullptr) {
    memcpy(value + KQ_TASK_SECOND_NAME, secondName, KQ_TASK_NAME_SIZE);
    value[KQ_TASK_SECOND_NAME_KNOWN] = 1;
  }
  kq_SaveStateChangeNew(db, current, used, KQ_TYPE_TASK, id, KQ_TASK_VALUE_SIZE, value);
  gen_free(value);
  return 1;
}

/* ---- Bringing a Task up to date ---------------------------------------------------- */

namespace {

void Store(const kq_TaskRef *task, uint16_t offset, uint8_t count, const void *bytes) {
  kq_SaveStateChangeMod(task->db, task->current, KQ_TYPE_TASK, task->id, offset, count, bytes);
}

}  // namespace

extern "C" void kq_TaskSetStatus(const kq_TaskRef *task, uint16_t status) {
  const uint16_t image = kq_ConvertToBigEndian2(status);
  Store(task, KQ_TASK_STATUS, sizeof image, &image);
}

extern "C" void kq_TaskMarkKnown(const kq_TaskRef *task, uint16_t flagOffset) {
  static const uint8_t kOne = 1;
  if (task->value[flagOffset] == 0) Store(task, flagOffset, 1, &kOne);
}

extern "C" void kq_TaskUpdateStatus(const kq_TaskRef *task, uint16_t status) {
  const uint16_t image = kq_ConvertToBigEndian2(status);
  if (memcmp(task->value + KQ_TASK_STATUS, &image, sizeof image) != 0) {
    Store(task, KQ_TASK_STATUS, sizeof image, &image);
  }
  kq_TaskMarkKnown(task, KQ_TASK_STATUS_KNOWN);
}

extern "C" void kq_TaskUpdatePriority(const kq_TaskRef *task, const void *targetPriority) {
  const uint8_t order = kq_IsBigEndian(task->db) != 0 ? 1 : 0;
  const uint32_t image = kq_ConvertToBigEndian4(kq_ConvertToHostOrder4(order, targetPriority));
  if (memcmp(task->value + KQ_TASK_PRIORITY, &image, sizeof image) != 0) {
    Store(task, KQ_TASK_PRIORITY, sizeof image, &image);
  }
  kq_TaskMarkKnown(task, KQ_TASK_PRIORITY_KNOWN);
}

extern "C" int kq_TaskUpdateName(const kq_TaskRef *task, int second, const char *name,
                                 int rewrite) {
  const uint16_t offset = second ? KQ_TASK_SECOND_NAME : KQ_TASK_NAME;
  const uint16_t flagOffset = second ? KQ_TASK_SECOND_NAME_KNOWN : KQ_TASK_NAME_KNOWN;
  const size_t length = strnlen(name, KQ_TASK_NAME_SIZE);
  const bool differs = memcmp(task->value + offset, name, length) != 0;
  if (differs || rewrite) {
    const size_t count = std::min<size_t>(length + 1, KQ_TASK_NAME_SIZE);
    Store(task, offset, static_cast<uint8_t>(count), name);
  }
  kq_TaskMarkKnown(task, flagOffset);
  return differs ? 1 : 0;
}

/* ---- The table ------------------------------------------------------------------------ */

extern "C" HT_PT kq_GetCurrentTable(const kq_DB *db) {
  if (db == nullptr || db->currentState == nullptr) return nullptr;
  return db->currentState->table;
}

extern "C" int kq_SortIdsInTableOrder(HT_PT table, uint16_t type, uint32_t *ids, uint32_t count) {
  using Place = std::tuple<uint32_t, uint32_t, uint32_t>;  // bucket, depth, id
  /* A tracker sorts a few ids at a time (the running threads): those need
   * no allocation. */
  constexpr uint32_t kOnStack = 16;
  Place few[kOnStack];
  std::vector<Place> many(count > kOnStack ? count : 0);
  Place *order = count > kOnStack ? many.data() : few;
  for (uint32_t i = 0; i < count; i++) {
    const kq_StateObject key{type, ids[i], 0, nullptr};
    uint32_t bucket = 0, depth = 0;
    if (!HT_GetWalkPosition(table, &key, &bucket, &depth)) return 0;
    order[i] = Place{bucket, depth, ids[i]};
  }
  std::sort(order, order + count);
  for (uint32_t i = 0; i < count; i++) ids[i] = std::get<2>(order[i]);
  return 1;
}
