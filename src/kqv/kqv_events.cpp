/*
 * kqv_events.cpp - kqv events and kqv follow: events one a line, read
 * through the cursor with the state kept (for the owners' names), so memory
 * stays flat however many events there are.  follow prints what is there,
 * then polls for what a writer adds, until SIGINT.
 */
#include <signal.h>
#include <unistd.h>

#include <cinttypes>

#include "indgen.h"
#include "kq_state.h"
#include "kqv.h"

namespace kqv {

namespace {

const char *ChangeKind(uint8_t kind) {
  switch (kind) {
    case 0:
      return "new";
    case 1:
      return "mod";
    default:
      return "del";
  }
}

void PrintChangesText(kq_DB *db, const kq_CursorEvent &event) {
  kq_ChangeIter it;
  kq_CursorChanges(&event, &it);
  kq_ChangeView change;
  while (kq_NextChange(&it, &change)) {
    printf("        %s %s 0x%08" PRIx32, ChangeKind(change.kind), TypeName(db, change.type).c_str(),
           change.id);
    if (change.kind == 0) {
      printf(" %s\n", Hex(change.bytes, change.offsetOrLength).c_str());
    } else if (change.kind == 1) {
      printf(" +%u %s\n", change.offsetOrLength, Hex(change.bytes, change.modLength).c_str());
    } else {
      printf("\n");
    }
  }
}

std::string ChangesJson(const kq_CursorEvent &event) {
  std::string out = ",\"changes\":[";
  kq_ChangeIter it;
  kq_CursorChanges(&event, &it);
  kq_ChangeView change;
  bool first = true;
  while (kq_NextChange(&it, &change)) {
    out += first ? "{" : ",{";
    first = false;
    out += "\"kind\":\"" + std::string(ChangeKind(change.kind)) + "\",\"type\":" +
           std::to_string(change.type) + ",\"id\":" + std::to_string(change.id);
    if (change.kind == 0) {
      out += ",\"value\":\"" + Hex(change.bytes, change.offsetOrLength) + "\"";
    } else if (change.kind == 1) {
      out += ",\"offset\":" + std::to_string(change.offsetOrLength) + ",\"bytes\":\"" +
             Hex(change.bytes, change.modLength) + "\"";
    }
    out += "}";
  }
  return out + "]";
}

volatile sig_atomic_t interrupted = 0;

void OnInterrupt(int) { interrupted = 1; }

/* How long follow sleeps when it has seen every event written so far. */
constexpr useconds_t kPollMicroseconds = 50000;

}  // namespace

void PrintEvent(const Database &database, kq_State *state, const kq_CursorEvent &event,
                bool json, bool changes) {
  kq_DB *db = database.db();
  const std::string name = EventName(db, event.type, event.subtype);
  const std::string owner = event.hasOwner ? TaskName(db, state, event.ownerId) : "";
  if (json) {
    std::string line = "{\"n\":" + std::to_string(event.number) +
                       ",\"time\":" + std::to_string(event.time) +
                       ",\"seconds\":\"" + Seconds(event.time, database.ticksPerSecond()) +
                       "\",\"type\":" + std::to_string(event.type) +
                       ",\"subtype\":" + std::to_string(event.subtype) +
                       ",\"name\":" + JsonString(name);
    if (event.hasOwner) {
      line += ",\"owner_type\":" + std::to_string(event.ownerType) +
              ",\"owner_id\":" + std::to_string(event.ownerId) +
              ",\"owner_name\":" + JsonString(owner);
    } else {
      line += ",\"owner_type\":null,\"owner_id\":null,\"owner_name\":null";
    }
    line += ",\"payload\":\"" + Hex(event.payload, event.length) + "\"";
    if (changes) line += ChangesJson(event);
    printf("%s}\n", line.c_str());
    return;
  }
  char ownerText[64] = "-";
  if (event.hasOwner) snprintf(ownerText, sizeof ownerText, "0x%08" PRIx32, event.ownerId);
  printf("%8" PRIu64 " %12" PRIu64 " %s  %-34s %s %-20s %s\n", event.number, event.time,
         Seconds(event.time, database.ticksPerSecond()).c_str(), name.c_str(), ownerText,
         owner.empty() ? "-" : owner.c_str(),
         PayloadWords(event.payload, event.length, kq_IsBigEndian(db) != 0).c_str());
  if (changes) PrintChangesText(db, event);
}

void RunEvents(const Options &options) {
  const Database database(options.database);
  const Range range = RangeOf(options, database);
  const bool limited = options.Has("--count");
  const uint64_t count = limited ? ParseCount(options.values.at("--count"), "--count") : 0;
  Cursor cursor(database, true);
  if (options.Has("--first")) {
    cursor.SeekNumber(ParseCount(options.values.at("--first"), "--first"));
  } else {
    cursor.SeekTime(range.from);
  }
  uint64_t printed = 0;
  while (!limited || printed < count) {
    const kq_CursorEvent *event = cursor.Next();
    if (event == nullptr || event->time >= range.to) break;
    if (event->time < range.from) continue;
    PrintEvent(database, cursor.state(), *event, options.json, options.changes);
    printed++;
  }
}

void RunFollow(const Options &options) {
  signal(SIGINT, OnInterrupt);
  signal(SIGTERM, OnInterrupt);
  const std::string base = options.database;
  kq_DB *probe = nullptr;
  while (options.wait && !interrupted && (probe = kq_OpenForUse(base.c_str())) == nullptr) {
    usleep(kPollMicroseconds);
  }
  kq_Close(probe);
  if (interrupted) return;
  const Database database(base);
  Cursor cursor(database, true);
  while (!interrupted) {
    const kq_CursorEvent *event = cursor.Next();
    if (event == nullptr) {
      fflush(stdout);
      usleep(kPollMicroseconds);
      continue;
    }
    PrintEvent(database, cursor.state(), *event, options.json, false);
  }
  fflush(stdout);
}

}  // namespace kqv
