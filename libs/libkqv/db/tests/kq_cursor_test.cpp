// The streaming cursor (kq_cursor.h) and the structure check (kq_check.h),
// held against the read side's queries on databases written through the
// real writer by a seeded tracker that creates, changes and deletes objects
// of several types.  Also: a cursor following a database while it grows,
// and both on files cut at every byte or damaged on purpose.
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "kq_check.h"
#include "kq_cursor.h"
#include "kq_io.h"
#include "kq_state.h"
#include "kq_tracker.h"
#include "temp_dir.h"
#include "test_random.h"

namespace {

using testsupport::Random;
using testsupport::ReadFileBytes;
using testsupport::TempDir;
using testsupport::WriteFileBytes;
using Objects = std::map<std::pair<uint16_t, uint32_t>, std::string>;

// The tracker: each event creates, changes or deletes objects at random.
Random *trackerRandom = nullptr;
std::vector<std::pair<uint16_t, uint32_t>> alive;

int RandomTracker(kq_DB *db, HT_PT current, HT_PT used, kq_Event *) {
  Random &r = *trackerRandom;
  for (uint32_t n = r.Below(4); n > 0; n--) {
    const uint32_t roll = r.Below(10);
    if (roll < 3 || alive.empty()) {
      const std::pair<uint16_t, uint32_t> key{static_cast<uint16_t>(r.Below(3)), r.Below(40)};
      const auto letter = static_cast<char>('a' + r.Below(26));  // drawn first on every compiler
      const std::string value(1 + r.Below(20), letter);
      kq_SaveStateChangeNew(db, current, used, key.first, key.second,
                            static_cast<uint16_t>(value.size()), value.data());
      alive.push_back(key);
    } else if (roll < 9) {
      const auto &key = alive[r.Below(static_cast<uint32_t>(alive.size()))];
      const uint8_t bytes[2] = {static_cast<uint8_t>(r.Next()), static_cast<uint8_t>(r.Next())};
      kq_SaveStateChangeMod(db, current, key.first, key.second,
                            static_cast<uint16_t>(r.Below(22)), 2, bytes);
    } else {
      const size_t at = r.Below(static_cast<uint32_t>(alive.size()));
      kq_SaveStateChangeDel(db, current, alive[at].first, alive[at].second);
      alive.erase(alive.begin() + static_cast<long>(at));
    }
  }
  return 1;
}

// Writes `events` events with times that rise by 0 to 3 ticks (so runs of
// equal times cross block boundaries) and payloads of 0 to 12 bytes.
void WriteDatabase(const std::string &base, uint64_t seed, uint32_t events,
                   std::vector<kq_DB *> *keepOpen = nullptr) {
  Random r(seed);
  trackerRandom = &r;
  alive.clear();
  kq_DB *db = kq_OpenForCreation(base.c_str(), 1000, "test", 1, RandomTracker);
  ASSERT_NE(db, nullptr);
  uint64_t time = 5;
  for (uint32_t i = 0; i < events; i++) {
    time += r.Below(4);
    uint8_t payload[12];
    for (uint8_t &byte : payload) byte = static_cast<uint8_t>(r.Next());
    // Drawn in this order on every compiler (arguments have none).
    const uint32_t length = r.Below(13);
    const uint32_t type = 1 + r.Below(7);
    ASSERT_TRUE(kq_AddEventFromRawBytes(db, static_cast<uint32_t>(time >> 32),
                                        static_cast<uint32_t>(time), type << 16 | i % 5, payload,
                                        length));
  }
  if (keepOpen != nullptr) {
    keepOpen->push_back(db);
  } else {
    kq_Close(db);
  }
}

Objects ObjectsOf(kq_State *state) {
  Objects objects;
  if (state == nullptr) return objects;
  HT_ForEach(
      state->table,
      [](void *key, void *, void *out) {
        const auto *o = static_cast<const kq_StateObject *>(key);
        (*static_cast<Objects *>(out))[{o->type, o->id}] =
            std::string(reinterpret_cast<const char *>(o->value), o->length);
        return 1;
      },
      &objects);
  return objects;
}

std::string Changes(const kq_CursorEvent &event) {
  std::string text;
  kq_ChangeIter it;
  kq_CursorChanges(&event, &it);
  kq_ChangeView c;
  while (kq_NextChange(&it, &c)) {
    const uint32_t n = c.kind == 0 ? c.offsetOrLength : c.modLength;
    text += std::to_string(c.kind) + "/" + std::to_string(c.type) + "/" + std::to_string(c.id) +
            "/" + std::to_string(c.offsetOrLength) + "=" +
            std::string(reinterpret_cast<const char *>(c.bytes), c.bytes != nullptr ? n : 0) + ";";
  }
  return text;
}

std::string Changes(const kq_Event &event) {
  std::string text;
  for (ListIter_PT it = List_Begin(event.changes, 0); it != List_End(event.changes, 1);
       ListIter_Next(&it, 1)) {
    void *value = nullptr;
    ListIter_GetValue(it, &value);
    const auto *c = static_cast<const StateChange *>(value);
    const uint32_t n = c->kind == 0 ? c->offsetOrLength : c->kind == 1 ? c->modLength : 0;
    text += std::to_string(c->kind) + "/" + std::to_string(c->type) + "/" + std::to_string(c->id) +
            "/" + std::to_string(c->kind == 2 ? 0 : c->offsetOrLength) + "=" +
            std::string(reinterpret_cast<const char *>(c->bytes), c->bytes != nullptr ? n : 0) + ";";
  }
  return text;
}

class CursorTest : public ::testing::Test {
 protected:
  // Memory-backed where the host has it: one test rewrites a file thousands
  // of times.
  TempDir dir{access("/dev/shm", W_OK) == 0 ? "/dev/shm" : ""};
  std::string base = dir.file("db");
};

// ---- Agreement with the queries ------------------------------------------------------

TEST_F(CursorTest, AWholePassGivesTheEventsAndStatesOfTheQueries) {
  for (uint32_t events : {0u, 1u, 99u, 100u, 101u, 777u}) {
    SCOPED_TRACE("events " + std::to_string(events));
    WriteDatabase(base, 40 + events, events);
    kq_DB *db = kq_OpenForUse(base.c_str());
    ASSERT_NE(db, nullptr);
    kq_State *replay = nullptr;
    List_PT all = kq_GetNEventsAndStateFromEventNum(db, 0, 0, &replay);
    kq_Cursor *cursor = kq_NewCursor(db, 1);
    ListIter_PT it = List_Begin(all, 0);
    const kq_CursorEvent *e = nullptr;
    uint64_t n = 0;
    for (; kq_CursorNext(cursor, &e) == 1; n++) {
      void *value = nullptr;
      ListIter_GetValue(it, &value);
      ListIter_Next(&it, 1);
      const auto &listed = *static_cast<const kq_Event *>(value);
      ASSERT_EQ(e->number, n);
      ASSERT_EQ(listed.eventNumber, n + 1);  // the lists count from 1
      ASSERT_EQ(e->time, listed.time);
      ASSERT_EQ(e->type * 65536 + e->subtype, listed.type * 65536 + listed.subtype);
      ASSERT_EQ(std::string(reinterpret_cast<const char *>(e->payload), e->length),
                std::string(reinterpret_cast<const char *>(listed.data), listed.length));
      ASSERT_EQ(e->hasOwner, listed.length >= 4);
      ASSERT_EQ(Changes(*e), Changes(listed));
      kq_UpdateStateFromStateAndEvent(replay, &listed);
      ASSERT_EQ(ObjectsOf(kq_CursorState(cursor)), ObjectsOf(replay)) << "after event " << n;
    }
    EXPECT_EQ(n, static_cast<uint64_t>(List_GetSize(all)));
    EXPECT_EQ(kq_CursorNext(cursor, &e), 0);
    EXPECT_EQ(kq_CursorError(cursor), nullptr);
    kq_DeleteCursor(cursor);
    List_Delete(all);
    kq_DeleteState(replay);
    kq_Close(db);
  }
}

TEST_F(CursorTest, SeeksStandWhereTheQueriesStand) {
  WriteDatabase(base, 7, 555);
  kq_DB *db = kq_OpenForUse(base.c_str());
  ASSERT_NE(db, nullptr);
  uint64_t start = 0, end = 0;
  kq_GetTimeExtent(db, &start, &end);
  kq_Cursor *cursor = kq_NewCursor(db, 1);
  for (uint64_t t = 0; t <= end + 1; t += 7) {
    kq_EventIter *iter = nullptr;
    kq_State *state = nullptr;
    ASSERT_TRUE(kq_GetStateAndIterFromTime(db, t, &iter, &state));
    ASSERT_TRUE(kq_CursorSeekTime(cursor, t));
    EXPECT_EQ(kq_CursorNumber(cursor) + 1, iter->eventNumber + (t >= end ? 1 : 0)) << t;
    EXPECT_EQ(ObjectsOf(kq_CursorState(cursor)), ObjectsOf(state)) << t;
    kq_DeleteEventIter(iter);
    kq_DeleteState(state);
  }
  // Numbers: the list of a key k + 1 starts at event k, but where k + 1
  // opens a block (the lists' own rule), so those are left out.
  for (uint64_t k : {0u, 1u, 2u, 98u, 100u, 101u, 300u, 553u, 554u}) {
    ASSERT_TRUE(kq_CursorSeekNumber(cursor, k));
    EXPECT_EQ(kq_CursorNumber(cursor), k);
    kq_State *state = nullptr;
    List_Delete(kq_GetNEventsAndStateFromEventNum(db, static_cast<uint32_t>(k + 1), 1, &state));
    EXPECT_EQ(ObjectsOf(kq_CursorState(cursor)), ObjectsOf(state)) << k;
    kq_DeleteState(state);
  }
  ASSERT_TRUE(kq_CursorSeekNumber(cursor, 9999));
  EXPECT_EQ(kq_CursorNumber(cursor), 555u);
  kq_DeleteCursor(cursor);
  kq_Close(db);
}

// ---- A growing database --------------------------------------------------------------------

TEST_F(CursorTest, FollowsAWriterEventByEventAcrossBlocks) {
  kq_DB *writer = kq_OpenForCreation(base.c_str(), 1000, "test", 0, nullptr);
  ASSERT_NE(writer, nullptr);
  kq_DB *reader = kq_OpenForUse(base.c_str());
  ASSERT_NE(reader, nullptr);
  kq_Cursor *cursor = kq_NewCursor(reader, 1);
  const kq_CursorEvent *e = nullptr;
  EXPECT_EQ(kq_CursorNext(cursor, &e), 0);
  for (uint32_t i = 0; i < 205; i++) {
    const uint32_t payload = i;
    ASSERT_TRUE(kq_AddEventFromRawBytes(writer, 0, i * 2, 0x40000, &payload, 4));
    ASSERT_EQ(kq_CursorNext(cursor, &e), 1) << i;
    EXPECT_EQ(e->number, i);
    EXPECT_EQ(e->time, i * 2);
    EXPECT_EQ(kq_CursorNext(cursor, &e), 0) << i;
  }
  // A seek by number beyond the index, which the writer is ahead of.
  ASSERT_TRUE(kq_CursorSeekNumber(cursor, 203));
  ASSERT_EQ(kq_CursorNext(cursor, &e), 1);
  EXPECT_EQ(e->time, 406u);
  kq_DeleteCursor(cursor);
  kq_Close(reader);
  kq_Close(writer);
}

// ---- Damage ------------------------------------------------------------------------------------

// A stream cut at any byte and given a 0 tag there reads as the events
// before the cut, then as the end (a cut between packets) or as damage,
// never as more; the check counts the same events.
TEST_F(CursorTest, AStreamCutAtEveryByteReadsAsAPrefixOrAsDamage) {
  WriteDatabase(base, 3, 105);
  const std::string whole = ReadFileBytes(base + ".kqs");
  const std::string cut = dir.file("cut");
  ASSERT_TRUE(WriteFileBytes(cut + ".kqv", ReadFileBytes(base + ".kqv")));
  ASSERT_TRUE(WriteFileBytes(cut + ".kqi", ReadFileBytes(base + ".kqi")));
  uint64_t before = 0, ends = 0;
  for (size_t length = 20; length < whole.size(); length++) {
    ASSERT_TRUE(WriteFileBytes(cut + ".kqs", whole.substr(0, length) + std::string(1, '\0')));
    kq_DB *db = kq_OpenForUse(cut.c_str());
    ASSERT_NE(db, nullptr);
    kq_Cursor *cursor = kq_NewCursor(db, 1);
    const kq_CursorEvent *e = nullptr;
    int step = 0;
    uint64_t n = 0;
    while ((step = kq_CursorNext(cursor, &e)) == 1) n++;
    ASSERT_NE(step, 1);
    ASSERT_EQ(step == -1, kq_CursorError(cursor) != nullptr) << length;
    ASSERT_GE(n, before) << length;
    ends += step == 0 ? 1 : 0;
    before = n;
    kq_CheckSummary summary{};
    kq_CheckDatabase(db, nullptr, nullptr, &summary);
    ASSERT_EQ(summary.events, n) << length;
    kq_DeleteCursor(cursor);
    kq_Close(db);
  }
  EXPECT_EQ(before, 105u);  // the last cut takes off the final 0 tag only
  // Ends: the empty stream, behind each packet of the two block openings,
  // and behind every event.
  EXPECT_EQ(ends, 1u + 2 * 2 + 105);
}

struct Damage {
  const char *what;
  void (*apply)(std::string *kqs, std::string *kqi);
  const char *problem;  // the first problem reported
};

uint32_t Be32At(const std::string &bytes, size_t at) {
  return static_cast<uint32_t>(static_cast<uint8_t>(bytes[at])) << 24 |
         static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 1])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 2])) << 8 |
         static_cast<uint8_t>(bytes[at + 3]);
}

// Where block 1 opens, from its index entry.
size_t Block1(const std::string &kqi) { return Be32At(kqi, 20 + 13 + 9); }

TEST_F(CursorTest, TheCheckNamesEachKindOfDamage) {
  WriteDatabase(base, 11, 250);
  const Damage damages[] = {
      {"flipped packet tag", [](std::string *s, std::string *i) { (*s)[Block1(*i)] = 7; },
       ".kqs position 4380: unknown packet tag 7"},
      {"truncated stream", [](std::string *s, std::string *) { s->resize(s->size() - 5); },
       ".kqs position 13028: packet cut short by the end of the file"},
      {"moved index entry", [](std::string *, std::string *i) { (*i)[20 + 13 + 12] ^= 1; },
       ".kqi position 33: entry 1 points at .kqs position 4381, not at its block's opening 4380"},
      {"altered snapshot",
       [](std::string *s, std::string *i) {
         const size_t save = Block1(*i) + 5 + 6 * Be32At(*s, Block1(*i) + 1);
         (*s)[save + 5 + 10] ^= 0x20;  // the first byte of the first object's value
       },
       ".kqs position 4613: the snapshot of block 1 differs from the state replayed from the "
       "events (object 0/0x1d)"},
      {"altered used list",
       [](std::string *s, std::string *i) { (*s)[Block1(*i) + 5 + 5] ^= 0x10; },
       ".kqs position 4380: the used objects listed by block 1 are not those block 0 used"},
      {"time that falls", [](std::string *s, std::string *) { (*s)[31] = 0x7F; },
       ".kqs position 120: time falls from 9151314442816847877 to 5"},
      {"index entries missing",
       [](std::string *, std::string *i) { *i = i->substr(0, 20 + 13) + std::string(1, '\0'); },
       ".kqi position 33: the index has 1 entry for 3 blocks"},
  };
  const std::string kqs = ReadFileBytes(base + ".kqs");
  const std::string kqi = ReadFileBytes(base + ".kqi");
  for (const Damage &damage : damages) {
    SCOPED_TRACE(damage.what);
    std::string s = kqs, i = kqi;
    damage.apply(&s, &i);
    ASSERT_TRUE(WriteFileBytes(base + ".kqs", s));
    ASSERT_TRUE(WriteFileBytes(base + ".kqi", i));
    kq_DB *db = kq_OpenForUse(base.c_str());
    ASSERT_NE(db, nullptr);
    std::vector<std::string> problems;
    const uint32_t count = kq_CheckDatabase(
        db, [](void *out, const char *p) { static_cast<std::vector<std::string> *>(out)->push_back(p); },
        &problems, nullptr);
    ASSERT_GE(count, 1u);
    ASSERT_EQ(problems.size(), count);
    EXPECT_EQ(problems[0], damage.problem);
    kq_Close(db);
  }
}

}  // namespace
