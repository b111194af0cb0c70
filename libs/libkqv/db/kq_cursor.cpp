/*
 * kq_cursor.cpp - the streaming cursor of kq_cursor.h.  It reads .kqs
 * through a FileWindow of its own (kq_io_stream.h), so a step parses bytes
 * in memory and allocates nothing; views point into the window.  Seeks use
 * the handle's time index the way the queries do (the block search of
 * kq_io_read.cpp), and with state kept a seek loads the block's snapshot and
 * replays the events before the target, as the queries do.
 *
 *   kq_NewCursor --> standing before event n --kq_CursorNext, 1--> on event n
 *        ^                 |   ^                                    (n + 1 next)
 *        |                 |   `--kq_CursorNext, 0 (end so far): stays
 *        `--kq_CursorSeek*-'
 *   any read of damage --> STOPPED: kq_CursorNext answers -1, seeks fail
 */
#include "kq_cursor.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "indgeninit.h"
#include "kq_io_format.h"
#include "kq_io_read.h"
#include "kq_io_stream.h"
#include "kq_state.h"

struct kq_Cursor {
  kq_DB *db = nullptr;
  bool keepState = false;
  bool bigEndian = false;  // the byte order of the payloads
  kqio::FileWindow window;
  uint64_t position = KQ_FIRST_POSITION;  // .kqs offset of the next tag
  uint64_t number = 0;                    // of the next event
  kq_State *state = nullptr;              // when keepState
  bool haveSnapshot = false;  // state holds a snapshot (or replay) to go on from
  std::string error;          // set when stopped
  kq_CursorEvent event{};

  ~kq_Cursor() { kq_DeleteState(state); }
};

namespace {

bool Stopped(const kq_Cursor *c) { return !c->error.empty(); }

void Stop(kq_Cursor *c, const std::string &why, uint64_t position) {
  c->error = why + " at .kqs position " + std::to_string(position);
}

/* Empties the kept state. */
void ResetState(kq_Cursor *c) {
  if (!c->keepState) return;
  kq_DeleteState(c->state);
  c->state = kq_NewState();
  c->haveSnapshot = false;
}

/* Parses the packet at c->position (kq_io_stream.h); on damage the cursor
 * stops and false comes back. */
template <typename ParseFn>
bool ParsePacket(kq_Cursor *c, ParseFn parse, const uint8_t **at, size_t *size) {
  std::string why;
  if (kqio::ParsePacketAt(c->window, c->position, parse, at, size, &why)) return true;
  Stop(c, why, c->position);
  return false;
}

/* Loads a state save packet (standing on its tag) into the kept state; a
 * key met twice keeps its first value. */
void LoadSnapshot(kq_Cursor *c, const uint8_t *packet, uint32_t count) {
  kq_DeleteState(c->state);
  c->state = kq_NewState();
  const uint8_t *at = packet + 1 + 4;
  for (uint32_t i = 0; i < count; i++) {
    const uint16_t type = kqio::Be16(at);
    const uint32_t id = kqio::Be32(at + 2);
    const uint32_t length = kqio::Be32(at + 6);
    if (kq_FindStateObject(c->state->table, type, id) == nullptr) {
      auto *object = static_cast<kq_StateObject *>(gen_alloc(1, sizeof(kq_StateObject)));
      object->type = type;
      object->id = id;
      object->length = length;
      object->value = length != 0 ? static_cast<uint8_t *>(gen_alloc(length, 1)) : nullptr;
      if (length != 0) memcpy(object->value, at + 10, length);
      HT_InsertItem(c->state->table, object, nullptr);
    }
    at += 10 + length;
  }
  c->haveSnapshot = true;
}

void ApplyChanges(kq_Cursor *c, const kq_CursorEvent &event) {
  HT_PT table = c->state->table;
  kq_ChangeIter it;
  kq_CursorChanges(&event, &it);
  kq_ChangeView change;
  while (kq_NextChange(&it, &change)) {
    switch (change.kind) {
      case KQ_CHANGE_NEW:
        ApplyStateChangeNew(table, nullptr, change.type, change.id, change.offsetOrLength,
                            change.bytes, nullptr, nullptr);
        break;
      case KQ_CHANGE_MOD:
        ApplyStateChangeMod(table, change.type, change.id, change.offsetOrLength,
                            change.modLength, change.bytes);
        break;
      default:
        ApplyStateChangeDel(table, change.type, change.id);
        break;
    }
  }
}

/* What one step met. */
enum class Step { kEvent, kEnd, kDamage };

/* Reads packets from c->position until an event, the end tag or damage.  An
 * event is parsed into c->event but not passed: c->position stays on its
 * tag and *eventSize is its size with the tag.  Snapshots are loaded when
 * the state has none to go on from, else passed over. */
Step ReadToEvent(kq_Cursor *c, size_t *eventSize) {
  for (;;) {
    size_t avail = 0;
    const uint8_t *bytes = c->window.At(c->position, &avail);
    if (bytes == nullptr) {
      Stop(c, "the stream ends without its end tag", c->position);
      return Step::kDamage;
    }
    const uint8_t *at = nullptr;
    size_t size = 0;
    uint32_t count = 0;
    switch (bytes[0]) {
      case KQ_TAG_END:
        c->window.ForgetFrom(c->position);  // the writer patches this byte next
        return Step::kEnd;
      case KQ_TAG_OBJUSED:
        if (!ParsePacket(c, [&](const uint8_t *p, size_t n) { return kqio::ParseObjUsed(p, n, &count); },
                         &at, &size)) {
          return Step::kDamage;
        }
        break;
      case KQ_TAG_STATE_SAVE:
        if (!ParsePacket(c, [&](const uint8_t *p, size_t n) { return kqio::ParseStateSave(p, n, &count); },
                         &at, &size)) {
          return Step::kDamage;
        }
        if (c->keepState && !c->haveSnapshot) LoadSnapshot(c, at, count);
        break;
      case KQ_TAG_EVENT: {
        kqio::EventPacket packet;
        if (!ParsePacket(c, [&](const uint8_t *p, size_t n) { return kqio::ParseEvent(p, n, &packet); },
                         &at, &size)) {
          return Step::kDamage;
        }
        kq_CursorEvent &e = c->event;
        e.number = c->number;
        e.time = packet.time;
        e.type = packet.type;
        e.subtype = packet.subtype;
        e.length = packet.length;
        e.payload = packet.length != 0 ? at + 1 + packet.payloadOffset : nullptr;
        e.hasOwner = packet.length >= 4 ? 1 : 0;
        e.ownerType = KQ_TYPE_TASK;
        e.ownerId = !e.hasOwner    ? 0
                    : c->bigEndian ? kqio::Be32(e.payload)
                                   : static_cast<uint32_t>(e.payload[3]) << 24 |
                                         static_cast<uint32_t>(e.payload[2]) << 16 |
                                         static_cast<uint32_t>(e.payload[1]) << 8 | e.payload[0];
        e.numChanges = packet.numChanges;
        e.changes = packet.numChanges != 0 ? at + 1 + packet.changesOffset : nullptr;
        e.changesLength = static_cast<uint32_t>(packet.changesLength);
        *eventSize = size;
        return Step::kEvent;
      }
      default:
        Stop(c, "unknown packet tag " + std::to_string(bytes[0]), c->position);
        return Step::kDamage;
    }
    c->position += size;
  }
}

/* Passes the event that ReadToEvent parsed. */
void PassEvent(kq_Cursor *c, size_t eventSize) {
  if (c->keepState) {
    if (!c->haveSnapshot) c->haveSnapshot = true;  // a stream without snapshots starts empty
    ApplyChanges(c, c->event);
  }
  c->position += eventSize;
  c->number++;
}

/* Puts the cursor at the start of index block `block` with an empty state. */
void StartAtBlock(kq_Cursor *c, uint32_t block) {
  kq_DB *db = c->db;
  c->window.ForgetFrom(0);  // a new walk reads the file afresh
  ResetState(c);
  if (db->numTimePos == 0) {
    c->position = KQ_FIRST_POSITION;
    c->number = 0;
    return;
  }
  c->position = db->timePos[block].position;
  c->number = static_cast<uint64_t>(block) * db->eventsPerBlock;
}

/* Walks on while keep(event) holds for the next event. */
template <typename Keep>
int WalkWhile(kq_Cursor *c, Keep keep) {
  for (;;) {
    size_t size = 0;
    switch (ReadToEvent(c, &size)) {
      case Step::kEnd:
        return 1;
      case Step::kDamage:
        return 0;
      case Step::kEvent:
        if (!keep(c->event)) return 1;
        PassEvent(c, size);
        break;
    }
  }
}

}  // namespace

/* ---- Public ------------------------------------------------------------------------- */

extern "C" kq_Cursor *kq_NewCursor(kq_DB *db, int keepState) {
  if (!IsReadHandle(db) || db->streamName == nullptr) return nullptr;
  auto *c = new kq_Cursor;
  c->db = db;
  c->keepState = keepState != 0;
  c->bigEndian = kq_IsBigEndian(db) != 0;
  if (!c->window.Open(db->streamName)) {
    delete c;
    return nullptr;
  }
  ResetState(c);
  return c;
}

extern "C" void kq_DeleteCursor(kq_Cursor *cursor) { delete cursor; }

extern "C" int kq_CursorSeekTime(kq_Cursor *c, uint64_t time) {
  if (c == nullptr || Stopped(c)) return 0;
  UpdateKqi(c->db);
  /* Without a known block size the numbers are counted from the start. */
  const uint32_t block =
      c->db->numTimePos == 0 || c->db->eventsPerBlock == 0 ? 0 : SearchBlockForTime(c->db, time);
  StartAtBlock(c, block);
  return WalkWhile(c, [time](const kq_CursorEvent &e) { return e.time < time; });
}

extern "C" int kq_CursorSeekNumber(kq_Cursor *c, uint64_t number) {
  if (c == nullptr || Stopped(c)) return 0;
  UpdateKqi(c->db);
  const kq_DB *db = c->db;
  uint64_t block = db->eventsPerBlock == 0 ? 0 : number / db->eventsPerBlock;
  if (db->numTimePos == 0) block = 0;
  if (block >= db->numTimePos && db->numTimePos != 0) block = db->numTimePos - 1;
  StartAtBlock(c, static_cast<uint32_t>(block));
  return WalkWhile(c, [number](const kq_CursorEvent &e) { return e.number < number; });
}

extern "C" int kq_CursorNext(kq_Cursor *c, const kq_CursorEvent **event) {
  if (event != nullptr) *event = nullptr;
  if (c == nullptr || Stopped(c)) return -1;
  size_t size = 0;
  switch (ReadToEvent(c, &size)) {
    case Step::kEnd:
      return 0;
    case Step::kDamage:
      return -1;
    case Step::kEvent:
      break;
  }
  PassEvent(c, size);
  if (event != nullptr) *event = &c->event;
  return 1;
}

extern "C" uint64_t kq_CursorNumber(const kq_Cursor *c) { return c != nullptr ? c->number : 0; }

extern "C" kq_State *kq_CursorState(kq_Cursor *c) { return c != nullptr ? c->state : nullptr; }

extern "C" const char *kq_CursorError(const kq_Cursor *c) {
  return c != nullptr && Stopped(c) ? c->error.c_str() : nullptr;
}

extern "C" void kq_CursorChanges(const kq_CursorEvent *event, kq_ChangeIter *iter) {
  iter->next = event != nullptr ? event->changes : nullptr;
  iter->end = event != nullptr && event->changes != nullptr ? event->changes + event->changesLength
                                                            : nullptr;
}

extern "C" int kq_NextChange(kq_ChangeIter *iter, kq_ChangeView *change) {
  if (iter->next == nullptr || iter->next >= iter->end) return 0;
  const uint8_t *at = iter->next;
  change->kind = at[0];
  change->type = kqio::Be16(at + 1);
  change->id = kqio::Be32(at + 3);
  change->offsetOrLength = 0;
  change->modLength = 0;
  change->bytes = nullptr;
  switch (change->kind) {
    case KQ_CHANGE_NEW:
      change->offsetOrLength = kqio::Be16(at + 7);
      change->bytes = at + 9;
      iter->next = at + 9 + change->offsetOrLength;
      break;
    case KQ_CHANGE_MOD:
      change->offsetOrLength = kqio::Be16(at + 7);
      change->modLength = at[9];
      change->bytes = at + 10;
      iter->next = at + 10 + change->modLength;
      break;
    default:  // Del: the parser let no other kind through
      iter->next = at + 7;
      break;
  }
  return 1;
}
