/*
 * kq_state.cpp - the state model: state objects and their tables, and the
 * three kinds of state change applied to tables, the same way for the
 * writer's trackers and for the read side's replay.  It knows nothing of
 * files: recording a change into a stream is kq_tracker.cpp's.  Layout of
 * the Task value: kq_state.h.
 */
#include "kq_state.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "indgeninit.h"
#include "kq_io_format.h"
#include "kq_byteorder.h"

/* ---- Layout checks ------------------------------------------------------ */

static_assert(offsetof(kq_StateObject, type) < offsetof(kq_StateObject, id) &&
                  offsetof(kq_StateObject, id) < offsetof(kq_StateObject, length) &&
                  offsetof(kq_StateObject, length) < offsetof(kq_StateObject, value),
              "kq_StateObject fields are in the documented order");
static_assert(offsetof(StateChange, kind) < offsetof(StateChange, type) &&
                  offsetof(StateChange, type) < offsetof(StateChange, id) &&
                  offsetof(StateChange, id) < offsetof(StateChange, offsetOrLength) &&
                  offsetof(StateChange, offsetOrLength) < offsetof(StateChange, modLength) &&
                  offsetof(StateChange, modLength) < offsetof(StateChange, bytes),
              "StateChange fields are in the documented order");
static_assert(KQ_TASK_NAME + KQ_TASK_NAME_SIZE == KQ_TASK_NAME_KNOWN &&
                  KQ_TASK_SECOND_NAME + KQ_TASK_NAME_SIZE == KQ_TASK_SECOND_NAME_KNOWN &&
                  KQ_TASK_SECOND_NAME_KNOWN + 1 + 3 == KQ_TASK_VALUE_SIZE,
              "the Task fields fill the 76-byte value");

namespace {

constexpr uint32_t kTypeHashSalt = 0x15725246u;

/* A key for lookups: type and id, no value. */
kq_StateObject KeyOf(uint16_t type, uint32_t id) { return kq_StateObject{type, id, 0, nullptr}; }

/* A new object owning a copy of length bytes of value (none for 0). */
kq_StateObject *NewObject(uint16_t type, uint32_t id, uint32_t length, const void *value) {
  auto *object = static_cast<kq_StateObject *>(gen_alloc(1, sizeof(kq_StateObject)));
  object->type = type;
  object->id = id;
  object->length = length;
  object->value = nullptr;
  if (length != 0) {
    object->value = static_cast<uint8_t *>(gen_alloc(length, 1));
    if (value != nullptr) memcpy(object->value, value, length);
  }
  return object;
}

/* Reversed sign: -1 when a > b, 1 when a < b. */
template <typename T>
int CompareReversed(T a, T b) {
  if (a > b) return -1;
  if (a < b) return 1;
  return 0;
}

}  // namespace

/* ---- Tables of objects ---------------------------------------------------- */

extern "C" kq_StateObject *kq_FindStateObject(HT_PT table, uint16_t type, uint32_t id) {
  const kq_StateObject key = KeyOf(type, id);
  void *stored = nullptr;
  if (!HT_FindItem(table, &key, &stored, nullptr)) return nullptr;
  return static_cast<kq_StateObject *>(stored);
}

extern "C" kq_State *kq_NewState(void) {
  auto *state = static_cast<kq_State *>(gen_alloc(1, sizeof(kq_State)));
  state->table = HT_New(0, HashStateObject, CmpStateObject, DelStateObject, nullptr,
                        CloneStateObject, ClonePtr);
  return state;
}

extern "C" void kq_DeleteState(kq_State *state) {
  if (state == nullptr) return;
  HT_Delete(state->table);
  gen_free(state);
}

extern "C" uint32_t HashStateObject(const void *object) {
  const auto *o = static_cast<const kq_StateObject *>(object);
  const uint32_t id = o->id;
  const uint32_t swapped = (id << 24) | (id & 0x00FFFF00u) | (id >> 24);
  return swapped ^ o->type;
}

extern "C" int CmpStateObject(const void *a, const void *b) {
  const auto *x = static_cast<const kq_StateObject *>(a);
  const auto *y = static_cast<const kq_StateObject *>(b);
  if (x->type != y->type) return CompareReversed(x->type, y->type);
  return CompareReversed(x->id, y->id);
}

extern "C" void DelStateObject(void *object) {
  if (object == nullptr) return;
  auto *o = static_cast<kq_StateObject *>(object);
  gen_free(o->value);
  gen_free(o);
}

extern "C" int CloneStateObject(const void *object, void **copy) {
  const auto *o = static_cast<const kq_StateObject *>(object);
  *copy = NewObject(o->type, o->id, o->length, o->value);
  return 1;
}

extern "C" int ClonePtr(const void *value, void **copy) {
  *copy = const_cast<void *>(value);
  return 1;
}

extern "C" uint32_t HashStateObjectByType(const void *object) {
  return static_cast<const kq_StateObject *>(object)->type ^ kTypeHashSalt;
}

extern "C" int CmpStateObjectByType(const void *a, const void *b) {
  return CompareReversed(static_cast<const kq_StateObject *>(a)->type,
                         static_cast<const kq_StateObject *>(b)->type);
}

extern "C" void StateChangeDelete(void *change) {
  if (change == nullptr) return;
  auto *c = static_cast<StateChange *>(change);
  switch (c->kind) {
    case KQ_CHANGE_NEW:
    case KQ_CHANGE_MOD:
      gen_free(c->bytes);
      break;
    case KQ_CHANGE_DEL:
      break;
    default:
      fprintf(stderr, "Unrecognized StateChange type\n");
      break;
  }
  gen_free(c);
}

extern "C" uint8_t *kq_GetStateObjectValue(kq_StateObject *object) {
  return object != nullptr ? object->value : nullptr;
}

extern "C" uint32_t kq_GetStateObjectId(kq_StateObject *object) {
  return object != nullptr ? object->id : 0;
}

/* ---- The Task ----------------------------------------------------------------- */

extern "C" uint8_t *kq_GetSpaceForTask(uint16_t status) {
  auto *value = static_cast<uint8_t *>(gen_alloc(KQ_TASK_VALUE_SIZE, 1));
  memcpy(value + KQ_TASK_STATUS, &status, sizeof status);
  value[KQ_TASK_STATUS_KNOWN] = 1;
  memset(value + KQ_TASK_PRIORITY, 0xFF, 4);
  return value;
}

/* ---- Applying ------------------------------------------------------------------- */

extern "C" void ApplyStateChangeNew(HT_PT current, HT_PT used, uint16_t type, uint32_t id,
                                    uint16_t length, const void *value, kq_StateFilter filter,
                                    void *filterArg) {
  if (current != nullptr) {
    if (kq_FindStateObject(current, type, id) != nullptr) return;  // neither table changes
    HT_InsertItem(current, NewObject(type, id, length, value), nullptr);
  }
  if (used == nullptr) return;
  kq_StateObject *mark = NewObject(type, id, 0, nullptr);
  if (filter != nullptr && !filter(mark, filterArg)) {
    DelStateObject(mark);
    return;
  }
  /* An entry of the same key gives way to the new one. */
  HT_RemoveItem(used, mark);
  HT_InsertItem(used, mark, nullptr);
}

extern "C" void ApplyStateChangeMod(HT_PT current, uint16_t type, uint32_t id, uint16_t offset,
                                    uint8_t count, const void *bytes) {
  if (current == nullptr || (count != 0 && bytes == nullptr)) return;
  kq_StateObject *object = kq_FindStateObject(current, type, id);
  if (object == nullptr) return;
  if (object->length < static_cast<uint32_t>(offset) + count) return;  // all or nothing
  if (count != 0) memcpy(object->value + offset, bytes, count);
}

extern "C" void ApplyStateChangeDel(HT_PT current, uint16_t type, uint32_t id) {
  if (current == nullptr) return;
  const kq_StateObject key = KeyOf(type, id);
  HT_RemoveItem(current, &key);
}

extern "C" void ApplyStateChange(HT_PT current, HT_PT used, kq_StateFilter filter, void *filterArg,
                                 const StateChange *change) {
  if (change == nullptr) return;
  switch (change->kind) {
    case KQ_CHANGE_NEW:
      ApplyStateChangeNew(current, used, change->type, change->id, change->offsetOrLength,
                          change->bytes, filter, filterArg);
      break;
    case KQ_CHANGE_MOD:
      ApplyStateChangeMod(current, change->type, change->id, change->offsetOrLength,
                          change->modLength, change->bytes);
      break;
    case KQ_CHANGE_DEL:
      ApplyStateChangeDel(current, change->type, change->id);
      break;
    case KQ_CHANGE_END:
      break;
    default:
      fprintf(stderr, "Unrecognized StateChange->type\n");
      break;
  }
}

extern "C" void ApplyListOfStateChanges(List_PT list, HT_PT current, HT_PT used,
                                        kq_StateFilter filter, void *filterArg) {
  if (list == nullptr) return;
  for (ListIter_PT it = List_Begin(list, 0); it != nullptr && it != List_End(list, 1);
       ListIter_Next(&it, 1)) {
    void *change = nullptr;
    if (ListIter_GetValue(it, &change)) {
      ApplyStateChange(current, used, filter, filterArg, static_cast<const StateChange *>(change));
    }
  }
}

extern "C" void kq_UpdateStateFromStateAndEvent(kq_State *state, const kq_Event *event) {
  if (state == nullptr || event == nullptr) return;
  ApplyListOfStateChanges(event->changes, state->table, nullptr, nullptr, nullptr);
}
