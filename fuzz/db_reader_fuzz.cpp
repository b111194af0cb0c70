/*
 * db_reader_fuzz.cpp - drives libkqv's read side on a database made of the
 * input: a U4 length of .kqv and one of .kqs in front, then the three files
 * (the rest is .kqi), written to a directory in /dev/shm.  On what
 * kq_OpenForUse gives it runs every query of kq_io.h (extent, count,
 * kq_MoreEvents, state and iterator at several times, the lists by time, by
 * range and by event number, the object queries, kq_GetStateOfObject and
 * kq_GetValueIfIsKnown on the objects of each state) and the streaming
 * cursor with and without state, from the start and after seeks, reading
 * every byte handed out and freeing everything.
 * It checks what the interface promises whatever the files hold: no more
 * events listed or stepped over than the stream's bytes can carry, cursor
 * numbers that count up, object types and ids rising, a field copied within
 * its buffer.
 */
#include <cstring>

#include "fuzz_support.h"
#include "indgeninit.h"
#include "kq_cursor.h"
#include "kq_io.h"
#include "kq_state.h"

namespace {

/* The smallest event packet: tag, U8 time, U4 length, U2 type, U2
 * subtype, the end tag of its changes. */
constexpr size_t kSmallestEvent = 1 + 8 + 4 + 2 + 2 + 1;

unsigned sum = 0; /* of every byte handed out, so that each is read */

void ReadBytes(const uint8_t *bytes, size_t length) {
  FUZZ_CHECK(length == 0 || bytes != nullptr, "null bytes with a length");
  for (size_t i = 0; i < length; i++) sum += bytes[i];
}

/* Every field of every object of state, in buffers of several sizes with a
 * guard behind each. */
void ReadFields(kq_DB *db, kq_State *state) {
  if (state == nullptr) return;
  struct Visit {
    kq_DB *db;
    kq_State *state;
  } visit{db, state};
  HT_ForEach(
      state->table,
      [](void *key, void *, void *context) -> int {
        const auto *v = static_cast<Visit *>(context);
        const auto *object = static_cast<kq_StateObject *>(key);
        ReadBytes(object->value, object->length);
        uint8_t *copy = nullptr;
        uint32_t copyLength = 0;
        FUZZ_CHECK(kq_GetStateOfObject(v->state, object->type, object->id, &copy, &copyLength) == 1,
                   "an object of the state is not found in it");
        FUZZ_CHECK(copyLength == object->length, "the copy of a value has another length");
        ReadBytes(copy, copyLength);
        gen_free(copy);
        for (int32_t field = -1; field <= 3; field++) {
          for (uint32_t size : {0u, 1u, 2u, 4u, 8u, 40u, 80u}) {
            uint8_t buffer[96];
            memset(buffer, 0xA5, sizeof buffer);
            uint8_t known = 7;
            kq_GetValueIfIsKnown(v->db, v->state, object->type, object->id, field, &known,
                                 buffer, size, '/');
            for (size_t i = size; i < sizeof buffer; i++) {
              FUZZ_CHECK(buffer[i] == 0xA5, "kq_GetValueIfIsKnown wrote past its buffer");
            }
            if (field == 2 && known == 1) {
              FUZZ_CHECK(memchr(buffer, 0, size) != nullptr, "a name without its end in the buffer");
            }
          }
        }
        return 1;
      },
      &visit);
}

/* Reads every event of a list and its changes, then deletes it. */
void ReadList(List_PT list, size_t maxEvents) {
  if (list == nullptr) return;
  FUZZ_CHECK(static_cast<size_t>(List_GetNumEles(list)) <= maxEvents,
             "more events listed than the stream can hold");
  for (ListIter_PT it = List_Begin(list, 0); it != List_End(list, 1); ListIter_Next(&it, 1)) {
    void *value = nullptr;
    ListIter_GetValue(it, &value);
    const auto *event = static_cast<kq_Event *>(value);
    ReadBytes(event->data, event->length);
    sum += strlen(kq_GetNameOfEvent(nullptr, event));
    sum += strlen(kq_GetSimpleNameOfEvent(nullptr, event));
    if (event->changes == nullptr) continue;
    for (ListIter_PT c = List_Begin(event->changes, 0); c != List_End(event->changes, 1);
         ListIter_Next(&c, 1)) {
      void *changeValue = nullptr;
      ListIter_GetValue(c, &changeValue);
      const auto *change = static_cast<StateChange *>(changeValue);
      if (change->kind == 0) ReadBytes(change->bytes, change->offsetOrLength);
      if (change->kind == 1) ReadBytes(change->bytes, change->modLength);
    }
  }
  List_Delete(list);
}

/* Steps the cursor up to `limit` times; returns the steps taken. */
uint64_t Step(kq_Cursor *cursor, kq_DB *db, uint64_t limit) {
  uint64_t steps = 0;
  const kq_CursorEvent *event = nullptr;
  uint64_t expected = kq_CursorNumber(cursor);
  while (steps < limit && kq_CursorNext(cursor, &event) == 1) {
    FUZZ_CHECK(event != nullptr && event->number == expected, "cursor numbers don't count up");
    expected++;
    ReadBytes(event->payload, event->length);
    ReadBytes(event->changes, event->changesLength);
    kq_ChangeIter it;
    kq_CursorChanges(event, &it);
    kq_ChangeView change;
    uint32_t changes = 0;
    while (kq_NextChange(&it, &change)) {
      changes++;
      FUZZ_CHECK(changes <= event->numChanges, "more changes than the event counts");
      if (change.kind == 0) ReadBytes(change.bytes, change.offsetOrLength);
      if (change.kind == 1) ReadBytes(change.bytes, change.modLength);
    }
    steps++;
  }
  if (const char *error = kq_CursorError(cursor)) sum += strlen(error);
  ReadFields(db, kq_CursorState(cursor));
  return steps;
}

void CursorPasses(kq_DB *db, size_t maxEvents, uint64_t middle, uint32_t count) {
  for (int keepState = 0; keepState <= 1; keepState++) {
    kq_Cursor *cursor = kq_NewCursor(db, keepState);
    FUZZ_CHECK(cursor != nullptr, "no cursor on a reading handle");
    FUZZ_CHECK(Step(cursor, db, UINT64_MAX) <= maxEvents, "the cursor stepped over more events "
                                                          "than the stream can hold");
    if (kq_CursorSeekTime(cursor, middle)) Step(cursor, db, 5);
    for (uint64_t number : {uint64_t{0}, uint64_t{count} / 2, uint64_t{99}, uint64_t{100},
                            uint64_t{count}, UINT64_MAX}) {
      if (kq_CursorSeekNumber(cursor, number)) Step(cursor, db, 3);
    }
    kq_DeleteCursor(cursor);
  }
}

int KeepEvenIds(kq_StateObject *object, void *) { return object->id % 2 == 0; }

void ObjectQueries(kq_DB *db, uint64_t start, uint64_t end) {
  uint16_t *types = nullptr;
  uint32_t typeCount = 0;
  kq_GetObjectTypesInTimeRange(db, &types, &typeCount, start, end);
  for (uint32_t i = 1; i < typeCount; i++) FUZZ_CHECK(types[i - 1] < types[i], "types not rising");
  for (uint32_t t = 0; t <= typeCount && t < 3; t++) {
    const uint16_t type = t < typeCount ? types[t] : 0;
    uint32_t *ids = nullptr;
    uint32_t idCount = 0;
    kq_GetObjectIdsInTimeRange(db, &ids, &idCount, type, start, end);
    for (uint32_t i = 1; i < idCount; i++) FUZZ_CHECK(ids[i - 1] < ids[i], "ids not rising");
    gen_free(ids);
  }
  gen_free(types);
  for (kq_StateFilter filter : {static_cast<kq_StateFilter>(nullptr), KeepEvenIds}) {
    HT_PT used = HT_New(0, HashStateObject, CmpStateObject, DelStateObject, nullptr,
                        CloneStateObject, ClonePtr);
    kq_GetObjectStuffUsedInTimeRange(db, start, end, used, filter, nullptr);
    HT_Delete(used);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  size_t streamLength = 0;
  kq_DB *db = fuzzsupport::OpenDatabase(data, size, &streamLength);
  if (db == nullptr) return 0;
  const size_t maxEvents = streamLength / kSmallestEvent;

  uint64_t start = 0;
  uint64_t end = 0;
  kq_GetTimeExtent(db, &start, &end);
  uint32_t first = 0;
  uint32_t count = 0;
  /* The count trusts the index and the events per block of .kqv, so a
   * damaged database may give any number: it only steers the queries. */
  kq_GetStartEventAndNumEvents(db, &first, &count);
  sum += static_cast<unsigned>(kq_MoreEvents(db));
  const uint64_t middle = start + (end - start) / 2;

  for (uint64_t time : {start, middle, end - 1, end, uint64_t{0}, UINT64_MAX}) {
    kq_EventIter *iter = nullptr;
    kq_State *state = nullptr;
    kq_GetStateAndIterFromTime(db, time, &iter, &state);
    ReadFields(db, state);
    kq_DeleteState(state);
    if (iter != nullptr) {
      ReadList(kq_GetNEventsBeforeTime(db, &iter, 50, end, 1), maxEvents);
      ReadList(kq_GetNEventsBeforeTime(db, &iter, 10, 0, 0), maxEvents);
    }
    kq_DeleteEventIter(iter);
  }

  kq_State *state = nullptr;
  ReadList(kq_GetEventListAndStateFromTimeRange(db, start, middle, &state), maxEvents);
  ReadFields(db, state);
  kq_DeleteState(state);
  const uint32_t perBlock = kq_GetEventsPerBlock(db);
  for (uint32_t number : {0u, 1u, perBlock, perBlock + 1, count / 2, count, count + 1, UINT32_MAX}) {
    state = nullptr;
    ReadList(kq_GetNEventsAndStateFromEventNum(db, number, number == 0 ? 0 : 20, &state),
             maxEvents);
    ReadFields(db, state);
    kq_DeleteState(state);
  }

  ObjectQueries(db, start, end);
  ObjectQueries(db, middle, end);
  CursorPasses(db, maxEvents, middle, count);
  kq_Close(db);
  return 0;
}
