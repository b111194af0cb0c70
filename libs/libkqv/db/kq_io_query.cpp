/*
 * kq_io_query.cpp - the queries of the read side by time and by event
 * number: the state of all objects at a moment, iterators into the stream,
 * event lists, the event count, the owner of an event and a printout of a
 * state.  Every answer comes from one snapshot and a replay: the block
 * search (kq_io_read.cpp) finds the block, its state save packet is loaded,
 * the changes of the events before the moment are applied, and the walk
 * stops at the first event that doesn't lie before it.  Nothing is cached
 * between calls.  Layout: kq_io_format.h.
 *
 * Event numbers: a walk's counter starts at eventsPerBlock x block and goes
 * up by one for each event read, so the events of a database carry the
 * numbers 1, 2, 3, ... in event lists.
 */
#include <cstddef>
#include <cstdio>

#include "indgeninit.h"
#include "kq_error.h"
#include "kq_io.h"
#include "kq_io_format.h"
#include "kq_io_read.h"
#include "kq_byteorder.h"
#include "kq_state.h"

static_assert(offsetof(kq_EventIter, position) < offsetof(kq_EventIter, eventNumber),
              "kq_EventIter fields are in the documented order");

namespace {

/* Bytes of a payload that name the owner of an event. */
constexpr uint32_t kOwnerIdSize = 4;

kq_EventIter *NewIter(uint32_t position, uint32_t eventNumber) {
  auto *iter = static_cast<kq_EventIter *>(gen_alloc(1, sizeof(kq_EventIter)));
  iter->position = position;
  iter->eventNumber = eventNumber;
  return iter;
}

/* One event as GetEvent reads it with want set; owns payload and changes
 * until they are handed on. */
struct ReadEvent {
  uint64_t time = 0;
  uint16_t type = 0;
  uint16_t subtype = 0;
  uint32_t length = 0;
  uint8_t *data = nullptr;
  List_PT changes = nullptr;
  bool whole = false;

  ReadEvent() = default;
  ReadEvent(const ReadEvent &) = delete;
  ReadEvent &operator=(const ReadEvent &) = delete;
  ~ReadEvent() {
    gen_free(data);
    if (changes != nullptr) List_Delete(changes);
  }

  void Read(GFile *file, int want) {
    whole = GetEvent(file, &time, &type, &subtype, &data, &length, &changes, want) != 0;
  }

  /* A new kq_Event (EventDelFun) that takes over payload and changes. */
  kq_Event *Release(uint32_t eventNumber) {
    auto *event = static_cast<kq_Event *>(gen_alloc(1, sizeof(kq_Event)));
    event->time = time;
    event->eventNumber = eventNumber;
    event->type = type;
    event->subtype = subtype;
    event->length = length;
    event->data = data;
    event->changes = changes;
    data = nullptr;
    changes = nullptr;
    return event;
  }
};

List_PT NewEventList() { return List_New(EventDelFun, nullptr); }

}  // namespace

/* ---- State at a moment -------------------------------------------------------- */

extern "C" int GetStateAndIterFromTimeOrNum(kq_DB *db, const void *key, int isTime,
                                            kq_EventIter **iter, kq_State **state) {
  if (iter != nullptr) *iter = nullptr;
  if (state != nullptr) *state = nullptr;
  if (!IsReadHandle(db) || key == nullptr) return 0;
  const bool wantState = state != nullptr;

  if (db->numTimePos == 0) {
    /* No block to start from: what a walk of the empty stream gives. */
    if (wantState) *state = kq_NewState();
    if (iter != nullptr) *iter = NewIter(KQ_FIRST_POSITION, 0);
    return 1;
  }

  uint64_t time = 0;
  uint32_t number = 0;
  uint32_t block = 0;
  if (isTime) {
    time = *static_cast<const uint64_t *>(key);
    block = SearchBlockForTime(db, time);
  } else {
    number = *static_cast<const uint32_t *>(key);
    block = db->eventsPerBlock != 0 ? number / db->eventsPerBlock : 0;
    /* A number beyond the index is reached by walking from its last block. */
    if (block >= db->numTimePos) block = db->numTimePos - 1;
  }

  GFile *stream = db->streamFile;
  uint32_t counter = db->eventsPerBlock * block;
  kq_State *held = nullptr;
  uint32_t tagPosition = 0;
  SeekToRead(stream, db->timePos[block].position);
  for (;;) {
    tagPosition = static_cast<uint32_t>(gf_tell(stream, nullptr));
    const uint32_t tag = gf_get_1(stream);
    if (tag == KQ_TAG_END) break;
    if (tag == KQ_TAG_OBJUSED) {
      GetObjUsed(stream, 0);
      continue;
    }
    if (tag == KQ_TAG_STATE_SAVE) {
      /* Also behind the start block: the next block's snapshot is the state
       * the replay has reached. */
      if (wantState) {
        kq_DeleteState(held);
        held = GetStateSave(stream, 1);
      } else {
        GetStateSave(stream, 0);
      }
      continue;
    }
    if (tag == KQ_TAG_EVENT) {
      ReadEvent event;
      event.Read(stream, wantState ? 1 : 0);
      counter++;
      const bool before = isTime ? time > event.time : counter < number;
      if (before && held != nullptr) {
        kq_Event changes{};
        changes.changes = event.changes;
        kq_UpdateStateFromStateAndEvent(held, &changes);
      }
      if (ReadHitEnd(stream) || !before) break;
      continue;
    }
    kq_ReportError("[kq_GetEventListAndStateFromTimeRange]: Unrecognized .kqs packet type (%d)",
                   static_cast<int>(tag));
    break;
  }
  if (wantState) {
    *state = held != nullptr ? held : kq_NewState();
  } else {
    kq_DeleteState(held);
  }
  if (iter != nullptr) *iter = NewIter(tagPosition, counter);
  return 1;
}

extern "C" int kq_GetStateAndIterFromTime(kq_DB *db, uint64_t time, kq_EventIter **iter,
                                          kq_State **state) {
  return GetStateAndIterFromTimeOrNum(db, &time, 1, iter, state);
}

/* ---- Event lists ------------------------------------------------------------------ */

extern "C" void EventDelFun(void *event) {
  if (event == nullptr) return;
  auto *e = static_cast<kq_Event *>(event);
  gen_free(e->data);
  if (e->changes != nullptr) List_Delete(e->changes);
  gen_free(e);
}

extern "C" List_PT kq_GetNEventsBeforeTime(kq_DB *db, kq_EventIter **iter, int maxEvents,
                                           uint64_t endTime, uint8_t useEndTime) {
  if (db == nullptr) return nullptr;
  List_PT list = NewEventList();
  /* With an empty index there is nothing to list, and nothing is read. */
  if (!IsReadHandle(db) || db->numTimePos == 0 || iter == nullptr || *iter == nullptr) {
    return list;
  }
  kq_EventIter *at = *iter;
  GFile *stream = db->streamFile;
  SeekToRead(stream, at->position);
  int listed = 0;
  for (;;) {
    const uint32_t tag = gf_get_1(stream);
    if (tag == KQ_TAG_EVENT) {
      ReadEvent event;
      event.Read(stream, 1);
      if (!event.whole || (useEndTime && !(endTime > event.time))) break;
      kq_Event *made = event.Release(at->eventNumber++);
      if (!List_Push(list, made, 1)) EventDelFun(made);
      listed++;
    } else if (tag == KQ_TAG_STATE_SAVE) {
      GetStateSave(stream, 0);
    } else if (tag == KQ_TAG_OBJUSED) {
      GetObjUsed(stream, 0);
    } else {
      break;  // the 0 tag, or damage: the list ends without a message
    }
    if (maxEvents != 0 && listed == maxEvents) break;
  }
  at->position = static_cast<uint32_t>(gf_tell(stream, nullptr));
  return list;
}

extern "C" List_PT kq_GetEventListAndStateFromTimeRange(kq_DB *db, uint64_t startTime,
                                                        uint64_t endTime, kq_State **state) {
  if (db == nullptr) {
    if (state != nullptr) *state = nullptr;
    return nullptr;
  }
  kq_EventIter *iter = nullptr;
  kq_GetStateAndIterFromTime(db, startTime, &iter, state);
  List_PT list = kq_GetNEventsBeforeTime(db, &iter, 0, endTime, 1);
  kq_DeleteEventIter(iter);
  return list;
}

extern "C" List_PT kq_GetNEventsAndStateFromEventNum(kq_DB *db, uint32_t eventNumber,
                                                     int maxEvents, kq_State **state) {
  if (db == nullptr) {
    if (state != nullptr) *state = nullptr;
    return nullptr;
  }
  kq_EventIter *iter = nullptr;
  GetStateAndIterFromTimeOrNum(db, &eventNumber, 0, &iter, state);
  List_PT list = kq_GetNEventsBeforeTime(db, &iter, maxEvents, 0, 0);
  kq_DeleteEventIter(iter);
  return list;
}

extern "C" void kq_DeleteEventIter(kq_EventIter *iter) { gen_free(iter); }

/* ---- The event count ------------------------------------------------------------- */

extern "C" int kq_GetStartEventAndNumEvents(kq_DB *db, uint32_t *start, uint32_t *count) {
  if (start != nullptr) *start = 0;
  if (count != nullptr) *count = 0;
  if (!IsReadHandle(db)) return 0;
  UpdateKqi(db);
  const uint32_t inLastBlocks = CountLastSetOfEventsAndGetTimeOfLastEvent(db, nullptr);
  uint32_t total = inLastBlocks;
  if (db->numTimePos > 0) total += db->eventsPerBlock * (db->numTimePos - 1);
  if (count != nullptr) *count = total;
  return 1;
}

/* ---- Events and states -------------------------------------------------------------- */

extern "C" int kq_GetOwnerOfEvent(kq_DB *db, const kq_Event *event, uint16_t *ownerType,
                                  uint32_t *ownerId) {
  if (event == nullptr) return 0;
  if (event->length < kOwnerIdSize) {
    fprintf(stderr, "Invalid Extra Data(length %d) for event with type %d.\n",
            static_cast<int>(event->length), static_cast<int>(event->type));
    return 0;
  }
  if (event->data == nullptr) return 0;
  const uint32_t id = kq_ConvertToHostOrder4(db != nullptr ? db->isBigEndian : 0, event->data);
  if (ownerType == nullptr || ownerId == nullptr) return 1;
  *ownerType = KQ_TYPE_TASK;
  *ownerId = id;
  return 1;
}

extern "C" void kq_DumpState(kq_State *state) {
  if (state == nullptr) return;
  for (HTIter_PT it = HT_Begin(state->table); it != HT_End(state->table); HTIter_Inc(&it)) {
    void *key = nullptr;
    if (it == nullptr || !HTIter_GetValue(it, &key, nullptr) || key == nullptr) {
      if (it != nullptr) HTIter_Delete(it);
      return;
    }
    const auto *object = static_cast<const kq_StateObject *>(key);
    printf("t: %lu id: %lu state: 0x[", static_cast<unsigned long>(object->type),
           static_cast<unsigned long>(object->id));
    for (uint32_t i = 0; i < object->length; i++) {
      printf(i == 0 ? "%0x" : ",%0x", static_cast<unsigned>(object->value[i]));
    }
    printf("]\n");
  }
}
