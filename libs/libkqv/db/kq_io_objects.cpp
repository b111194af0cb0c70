/*
 * kq_io_objects.cpp - which objects play a part in a stretch of time,
 * without reading every event of the stretch.  An object counts as used in
 * [start, end) when it exists at start or a New for it stands in an event
 * whose time lies in the range.  The collection reads the state at start
 * (one snapshot and a replay), walks the events of the two blocks at the
 * ends of the range, and takes each block in the middle from the object
 * list that opens the block behind it: an OBJUSED packet stands one block
 * late (kq_io_format.h).  Also the copy of one object's value out of a
 * state, and the filter and sort comparisons that the two collecting
 * queries use.
 */
#include <cstdlib>
#include <cstring>

#include "indgeninit.h"
#include "kq_error.h"
#include "kq_io.h"
#include "kq_io_format.h"
#include "kq_io_read.h"
#include "kq_state.h"

namespace {

/* The one way an object enters the result: the filter is asked, a copy of
 * the object replaces any entry of the same key. */
void Place(HT_PT result, kq_StateObject *object, kq_StateFilter filter, void *filterArg) {
  if (filter != nullptr && !filter(object, filterArg)) return;
  void *copy = nullptr;
  CloneStateObject(object, &copy);
  HT_RemoveItem(result, copy);
  if (!HT_InsertItem(result, copy, nullptr)) DelStateObject(copy);
}

void PlaceAll(HT_PT result, kq_State *state, kq_StateFilter filter, void *filterArg) {
  if (state == nullptr) return;
  for (HTIter_PT it = HT_Begin(state->table); it != HT_End(state->table); HTIter_Inc(&it)) {
    void *key = nullptr;
    if (it == nullptr || !HTIter_GetValue(it, &key, nullptr) || key == nullptr) {
      if (it != nullptr) HTIter_Delete(it);
      return;
    }
    Place(result, static_cast<kq_StateObject *>(key), filter, filterArg);
  }
}

/* How a walk of events ended. */
enum class WalkEnd {
  kBlockEnd,   // the next block's opening, or an event at or behind the range's end
  kStreamEnd,  // a 0 tag, a wrong tag (which counts as 0), or the file's end
};

/* Reads one event and places the objects its News create, when the event
 * lies before end.  Returns false (the walk is over) when the event lies at
 * or behind end or the file ended inside it; *streamEnd then says which. */
bool CollectEvent(GFile *stream, uint64_t end, HT_PT result, kq_StateFilter filter,
                  void *filterArg, bool *streamEnd) {
  uint64_t time = 0;
  uint8_t *data = nullptr;
  uint32_t length = 0;
  List_PT changes = nullptr;
  const bool whole = GetEvent(stream, &time, nullptr, nullptr, &data, &length, &changes, 1) != 0;
  const bool inRange = whole && end > time;
  /* With no current table only the News do anything: each places a key. */
  if (inRange) ApplyListOfStateChanges(changes, nullptr, result, filter, filterArg);
  gen_free(data);
  List_Delete(changes);
  *streamEnd = !whole || ReadHitEnd(stream);
  return inRange && !*streamEnd;
}

/* Walks events from the current position up to end.  With stopAtNextBlock
 * the walk ends at the next block's OBJUSED packet; without it that packet
 * is passed. */
WalkEnd CollectEvents(GFile *stream, uint64_t end, bool stopAtNextBlock, HT_PT result,
                      kq_StateFilter filter, void *filterArg) {
  for (;;) {
    const uint32_t tag = gf_get_1(stream);
    if (tag == KQ_TAG_EVENT) {
      bool streamEnd = false;
      if (!CollectEvent(stream, end, result, filter, filterArg, &streamEnd)) {
        return streamEnd ? WalkEnd::kStreamEnd : WalkEnd::kBlockEnd;
      }
    } else if (tag == KQ_TAG_STATE_SAVE) {
      GetStateSave(stream, 0);
    } else if (tag == KQ_TAG_OBJUSED) {
      GetObjUsed(stream, 0);
      if (stopAtNextBlock) return WalkEnd::kBlockEnd;
    } else {
      return WalkEnd::kStreamEnd;  // 0, or a wrong tag that counts as 0
    }
    if (ReadHitEnd(stream)) return WalkEnd::kStreamEnd;
  }
}

/* Rebuilds the state at start from firstBlock.  Returns it (null when the
 * walk met no snapshot) and in *eventTag the position of the tag of the
 * first event that doesn't lie before start, or of the tag that ended the
 * walk; *over is set when that tag was a 0 tag or a wrong one. */
kq_State *StateAtStart(kq_DB *db, uint32_t firstBlock, uint64_t start, uint32_t *eventTag,
                       bool *over) {
  GFile *stream = db->streamFile;
  kq_State *held = nullptr;
  *over = false;
  SeekToRead(stream, db->timePos[firstBlock].position);
  for (;;) {
    *eventTag = static_cast<uint32_t>(gf_tell(stream, nullptr));
    const uint32_t tag = gf_get_1(stream);
    if (tag == KQ_TAG_OBJUSED) {
      GetObjUsed(stream, 0);
    } else if (tag == KQ_TAG_STATE_SAVE) {
      kq_DeleteState(held);
      held = GetStateSave(stream, 1);
    } else if (tag == KQ_TAG_EVENT) {
      kq_Event event{};
      GetEvent(stream, &event.time, nullptr, nullptr, &event.data, &event.length, &event.changes,
               1);
      const bool before = start > event.time;
      if (before) kq_UpdateStateFromStateAndEvent(held, &event);
      gen_free(event.data);
      List_Delete(event.changes);
      if (ReadHitEnd(stream) || !before) return held;
    } else {
      *over = true;  // 0, or a wrong tag that counts as 0
      return held;
    }
  }
}

}  // namespace

/* ---- Collecting --------------------------------------------------------------- */

extern "C" void kq_GetObjectStuffUsedInTimeRange(kq_DB *db, uint64_t start, uint64_t end,
                                                 HT_PT result, kq_StateFilter filter,
                                                 void *filterArg) {
  /* With an empty index no object exists: nothing is placed, nothing read. */
  if (!IsReadHandle(db) || result == nullptr || db->numTimePos == 0) return;
  const uint32_t firstBlock = SearchBlockForTime(db, start);
  const uint32_t lastBlock = SearchBlockForTime(db, end);
  GFile *stream = db->streamFile;

  /* The state at start, and the rest of the first block. */
  uint32_t eventTag = 0;
  bool over = false;
  kq_State *atStart = StateAtStart(db, firstBlock, start, &eventTag, &over);
  if (atStart == nullptr) return;
  PlaceAll(result, atStart, filter, filterArg);
  kq_DeleteState(atStart);
  if (over) return;
  SeekWithin(stream, eventTag);
  if (CollectEvents(stream, end, true, result, filter, filterArg) == WalkEnd::kStreamEnd) return;

  /* Blocks firstBlock + 1 .. lastBlock - 1 lie wholly in the range; each is
   * described by the OBJUSED packet of the block behind it. */
  for (uint64_t block = static_cast<uint64_t>(firstBlock) + 2; block <= lastBlock; block++) {
    SeekWithin(stream, db->timePos[block].position);
    const uint32_t tag = gf_get_1(stream);
    if (tag != KQ_TAG_OBJUSED) {
      kq_ReportWarning("[kq_GetObjectStuffUsedInTimeRange]: expected OBJUSED, got (%d)",
                       static_cast<int>(tag));
      return;
    }
    kq_State *used = GetObjUsed(stream, 1);
    PlaceAll(result, used, filter, filterArg);
    kq_DeleteState(used);
  }
  if (firstBlock == lastBlock) return;

  /* The last block is cut by end: its events are walked. */
  SeekWithin(stream, db->timePos[lastBlock].position);
  CollectEvents(stream, end, false, result, filter, filterArg);
}

extern "C" int kq_GetObjectTypesInTimeRange(kq_DB *db, uint16_t **types, uint32_t *count,
                                            uint64_t start, uint64_t end) {
  if (types == nullptr || count == nullptr) return 0;
  *types = nullptr;
  *count = 0;
  if (!IsReadHandle(db)) return 0;
  HT_PT table = HT_New(0, HashStateObjectByType, CmpStateObjectByType, DelStateObject, nullptr,
                       nullptr, nullptr);
  kq_GetObjectStuffUsedInTimeRange(db, start, end, table, nullptr, nullptr);
  const int size = HT_GetSize(table);
  *count = size > 0 ? static_cast<uint32_t>(size) : 0;
  *types = static_cast<uint16_t *>(gen_alloc(*count, sizeof(uint16_t)));
  uint32_t n = 0;
  for (HTIter_PT it = HT_Begin(table); it != HT_End(table); HTIter_Inc(&it)) {
    void *key = nullptr;
    if (HTIter_GetValue(it, &key, nullptr) && key != nullptr && n < *count) {
      (*types)[n++] = static_cast<kq_StateObject *>(key)->type;
    }
  }
  HT_Delete(table);
  if (*count > 1) qsort(*types, *count, sizeof(uint16_t), CmpType);
  return 1;
}

extern "C" int kq_GetObjectIdsInTimeRange(kq_DB *db, uint32_t **ids, uint32_t *count,
                                          uint16_t type, uint64_t start, uint64_t end) {
  if (ids == nullptr || count == nullptr) return 0;
  *ids = nullptr;
  *count = 0;
  if (!IsReadHandle(db)) return 0;
  HT_PT table = HT_New(0, HashStateObject, CmpStateObject, DelStateObject, nullptr, nullptr,
                       nullptr);
  kq_GetObjectStuffUsedInTimeRange(db, start, end, table, MatchType, &type);
  const int size = HT_GetSize(table);
  *count = size > 0 ? static_cast<uint32_t>(size) : 0;
  *ids = static_cast<uint32_t *>(gen_alloc(*count, sizeof(uint32_t)));
  uint32_t n = 0;
  for (HTIter_PT it = HT_Begin(table); it != HT_End(table); HTIter_Inc(&it)) {
    void *key = nullptr;
    if (HTIter_GetValue(it, &key, nullptr) && key != nullptr && n < *count) {
      (*ids)[n++] = static_cast<kq_StateObject *>(key)->id;
    }
  }
  HT_Delete(table);
  if (*count > 1) qsort(*ids, *count, sizeof(uint32_t), CmpUInt32);
  return 1;
}

/* ---- One object of a state ----------------------------------------------------------- */

extern "C" int kq_GetStateOfObject(kq_State *state, uint16_t type, uint32_t id, uint8_t **bytes,
                                   uint32_t *length) {
  if (state == nullptr) return 0;
  const kq_StateObject key{type, id, 0, nullptr};
  void *stored = nullptr;
  if (!HT_FindItem(state->table, &key, &stored, nullptr) || stored == nullptr) return 0;
  const auto *object = static_cast<const kq_StateObject *>(stored);
  uint8_t *copy = static_cast<uint8_t *>(gen_alloc(object->length, 1));
  if (object->length != 0) memcpy(copy, object->value, object->length);
  if (bytes != nullptr) {
    *bytes = copy;
  } else {
    gen_free(copy);
  }
  if (length != nullptr) *length = object->length;
  return 1;
}

/* ---- Filter and comparisons ----------------------------------------------------------- */

extern "C" int MatchType(kq_StateObject *object, void *typeArg) {
  if (object == nullptr || typeArg == nullptr) return 0;
  return object->type == *static_cast<const uint16_t *>(typeArg) ? 1 : 0;
}

extern "C" int CmpType(const void *a, const void *b) {
  const uint16_t x = *static_cast<const uint16_t *>(a);
  const uint16_t y = *static_cast<const uint16_t *>(b);
  return x < y ? -1 : (x > y ? 1 : 0);
}

extern "C" int CmpUInt32(const void *a, const void *b) {
  const uint32_t x = *static_cast<const uint32_t *>(a);
  const uint32_t y = *static_cast<const uint32_t *>(b);
  return x < y ? -1 : (x > y ? 1 : 0);
}
