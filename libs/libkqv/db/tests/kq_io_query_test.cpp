// Tests of the queries by time and by event number: the table of number
// keys, a property test that holds states and lists from random times,
// ranges and numbers against a replay of the whole script, iterators that
// go on, the edges (first and last event, equal times across a block
// boundary, empty ranges, the end time), wrong tags while rebuilding and
// while listing, the owner of an event, the printout of a state, states
// kept and brought forward by hand, and the empty database.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "hex_bytes.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_io_read.h"
#include "kq_state.h"
#include "kq_scripted_db.h"
#include "temp_dir.h"

using scripted::Expected;
using scripted::FirstAtOrAfter;
using scripted::Listed;
using scripted::Model;
using scripted::Script;
using scripted::StateOf;
using scripted::TakeList;
using testsupport::HexBytes;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

namespace {

// ---- Vocabulary --------------------------------------------------------

constexpr uint64_t kFarFuture = ~uint64_t{0} >> 1;

// Size of an event of CountingScript (fields, 4-byte payload, one New of
// 4 bytes, end tag) and the position of the first event's tag (behind the
// two empty packets of block 0).
constexpr uint32_t kCountingEventSize = 17 + 4 + 13 + 1;
constexpr uint32_t kFirstEventTag = 30;

class QueryTest : public ::testing::Test {
 protected:
  void TearDown() override { kq_Close(db_); }

  std::string Base() const { return dir_.file("db"); }
  void Write(const Script &script) {
    script_ = script;
    ASSERT_TRUE(scripted::WriteScript(Base(), script_));
    Open();
  }
  void Open() {
    kq_Close(db_);
    db_ = kq_OpenForUse(Base().c_str());
    ASSERT_NE(db_, nullptr);
  }
  // The state at time t and the iterator there.
  Model StateAt(uint64_t t, kq_EventIter *iterOut = nullptr) {
    kq_EventIter *iter = nullptr;
    kq_State *state = nullptr;
    EXPECT_EQ(kq_GetStateAndIterFromTime(db_, t, &iter, &state), 1);
    Model model = StateOf(state);
    kq_DeleteState(state);
    if (iterOut != nullptr && iter != nullptr) *iterOut = *iter;
    kq_DeleteEventIter(iter);
    return model;
  }
  std::vector<Listed> Range(uint64_t start, uint64_t end, Model *state = nullptr) {
    kq_State *s = nullptr;
    auto listed = TakeList(kq_GetEventListAndStateFromTimeRange(db_, start, end, &s));
    if (state != nullptr) *state = StateOf(s);
    kq_DeleteState(s);
    return listed;
  }
  std::vector<Listed> ByNumber(uint32_t number, int max, Model *state = nullptr) {
    kq_State *s = nullptr;
    auto listed = TakeList(kq_GetNEventsAndStateFromEventNum(db_, number, max, &s));
    if (state != nullptr) *state = StateOf(s);
    kq_DeleteState(s);
    return listed;
  }

  TempDir dir_;
  Script script_;
  kq_DB *db_ = nullptr;
};

// ---- Event numbers ------------------------------------------------------------

TEST_F(QueryTest, NumberKeysStopWhereTheTableSays) {
  // Event k (counted from 1) creates task k, so a state tells which events
  // lie before the stop.
  Write(scripted::CountingScript(250));
  const struct {
    uint32_t key;
    uint32_t stop;  // number of the stop event; 0: none
  } table[] = {{0, 1},     {1, 1},     {2, 2},     {99, 99},   {100, 101}, {101, 101},
               {102, 102}, {199, 199}, {200, 201}, {249, 249}, {250, 250}, {251, 0},
               {100000, 0}};
  for (const auto &row : table) {
    SCOPED_TRACE(row.key);
    Model state;
    const auto listed = ByNumber(row.key, 1, &state);
    if (row.stop == 0) {
      EXPECT_TRUE(listed.empty());
      EXPECT_EQ(state, scripted::ModelBefore(script_, 250));
      continue;
    }
    EXPECT_EQ(listed, Expected(script_, row.stop - 1, row.stop));
    EXPECT_EQ(state, scripted::ModelBefore(script_, row.stop - 1));

    kq_EventIter *iter = nullptr;
    ASSERT_EQ(GetStateAndIterFromTimeOrNum(db_, &row.key, 0, &iter, nullptr), 1);
    EXPECT_EQ(iter->eventNumber, row.stop);
    kq_DeleteEventIter(iter);
  }
}

TEST_F(QueryTest, KeysZeroAndOneGiveTheSameList) {
  Write(scripted::CountingScript(30));
  EXPECT_EQ(ByNumber(0, 0), ByNumber(1, 0));
  EXPECT_EQ(ByNumber(0, 0).size(), 30u);
}

// ---- Against a replay of everything -------------------------------------------------

TEST_F(QueryTest, StatesAndListsEqualAReplayOfTheWholeScript) {
  const uint32_t seed = 1357911;
  SCOPED_TRACE("seed " + std::to_string(seed));
  Write(scripted::GenerateScript(seed, 4000));
  const scripted::ModelCache model(script_);
  const size_t n = script_.size();
  std::mt19937 rng(seed);
  const uint64_t first = script_.front().time;
  const uint64_t last = script_.back().time;
  // Times near events (at, one below, one above), before, between and behind.
  auto randomTime = [&]() -> uint64_t {
    switch (rng() % 6) {
      case 0:
        return first - rng() % 3;
      case 1:
        return last + rng() % 3;
      case 2:
        return first + rng() % (last - first + 1);
      default:
        return script_[rng() % n].time + (rng() % 3) - 1;
    }
  };

  uint64_t start = 0, end = 0;
  ASSERT_EQ(kq_GetTimeExtent(db_, &start, &end), 1);
  EXPECT_EQ(start, first);
  EXPECT_EQ(end, last + 1);
  uint32_t count = 0;
  kq_GetStartEventAndNumEvents(db_, nullptr, &count);
  EXPECT_EQ(count, n);

  for (int q = 0; q < 250; q++) {
    const uint64_t t = randomTime();
    SCOPED_TRACE("state at " + std::to_string(t));
    const size_t stop = FirstAtOrAfter(script_, t);
    kq_EventIter at{};
    ASSERT_EQ(StateAt(t, &at), model.Before(stop));
    ASSERT_EQ(at.eventNumber, stop < n ? stop + 1 : n);
    // The iterator goes on from the stop event.
    kq_EventIter *iter = &at;
    EXPECT_EQ(TakeList(kq_GetNEventsBeforeTime(db_, &iter, 5, 0, 0)), Expected(script_, stop, stop + 5));
  }

  for (int q = 0; q < 120; q++) {
    uint64_t a = randomTime(), b = randomTime();
    if (a > b) std::swap(a, b);
    if (q % 10 == 0) b = a;  // empty ranges
    SCOPED_TRACE("range " + std::to_string(a) + " " + std::to_string(b));
    Model state;
    const size_t from = FirstAtOrAfter(script_, a);
    ASSERT_EQ(Range(a, b, &state), Expected(script_, from, FirstAtOrAfter(script_, b)));
    ASSERT_EQ(state, model.Before(from));
  }

  // By number: key k stops on event k (counted from 1), except 0 and the
  // multiples of 100, which stop one later.
  for (int q = 0; q < 150; q++) {
    const auto key = static_cast<uint32_t>(rng() % (n + 3));
    const int max = static_cast<int>(rng() % 150);
    SCOPED_TRACE("number " + std::to_string(key) + " max " + std::to_string(max));
    const size_t stop = key == 0 ? 0 : (key % 100 == 0 ? key : key - 1);
    Model state;
    const size_t to = max == 0 ? n : stop + static_cast<size_t>(max);
    ASSERT_EQ(ByNumber(key, max, &state), Expected(script_, stop, to));
    ASSERT_EQ(state, model.Before(stop));
    // The same events by time, when they have times of their own.
    if (stop > 0 && stop < n && script_[stop - 1].time < script_[stop].time) {
      EXPECT_EQ(Range(script_[stop].time, script_[stop].time + 1).front(),
                Expected(script_, stop, stop + 1)[0]);
    }
  }
}

TEST_F(QueryTest, AnIteratorGoesOnInChunksThroughEveryBlock) {
  Write(scripted::GenerateScript(97531, 777));
  kq_EventIter *iter = nullptr;
  ASSERT_EQ(kq_GetStateAndIterFromTime(db_, 0, &iter, nullptr), 1);
  std::vector<Listed> all;
  for (;;) {
    auto chunk = TakeList(kq_GetNEventsBeforeTime(db_, &iter, 37, 0, 0));
    if (chunk.empty()) break;
    all.insert(all.end(), chunk.begin(), chunk.end());
  }
  kq_DeleteEventIter(iter);
  EXPECT_EQ(all, Expected(script_, 0, script_.size()));
}

TEST_F(QueryTest, NoLimitAndNoEndTimeListToTheEndPassingBlockOpenings) {
  Write(scripted::CountingScript(250));
  kq_EventIter *iter = nullptr;
  ASSERT_EQ(kq_GetStateAndIterFromTime(db_, 0, &iter, nullptr), 1);
  EXPECT_EQ(TakeList(kq_GetNEventsBeforeTime(db_, &iter, 0, 0, 0)), Expected(script_, 0, 250));
  // One byte behind the final 0 tag.
  EXPECT_EQ(iter->position, ReadFileBytes(Base() + ".kqs").size());
  kq_DeleteEventIter(iter);

  // With the limit reached the iterator stands on the next tag: here the
  // second block's object list.
  ASSERT_EQ(kq_GetStateAndIterFromTime(db_, 0, &iter, nullptr), 1);
  EXPECT_EQ(TakeList(kq_GetNEventsBeforeTime(db_, &iter, 100, 0, 0)).size(), 100u);
  EXPECT_EQ(iter->position, db_->timePos[1].position);
  EXPECT_EQ(iter->eventNumber, 101u);
  kq_DeleteEventIter(iter);
}

// ---- Edges --------------------------------------------------------------------------------

TEST_F(QueryTest, TheFirstAndTheLastEvent) {
  Write(scripted::CountingScript(150, 10, 10));  // times 10 .. 1500
  for (uint64_t t : {uint64_t{0}, uint64_t{9}, uint64_t{10}}) {
    kq_EventIter at{};
    EXPECT_TRUE(StateAt(t, &at).empty()) << t;  // block 0's snapshot is empty
    EXPECT_EQ(at.position, kFirstEventTag) << t;
    EXPECT_EQ(at.eventNumber, 1u) << t;
  }
  kq_EventIter at{};
  EXPECT_EQ(StateAt(1501, &at), scripted::ModelBefore(script_, 150));
  EXPECT_EQ(at.position, ReadFileBytes(Base() + ".kqs").size() - 1);  // the final 0 tag
  EXPECT_EQ(at.eventNumber, 150u);
  EXPECT_TRUE(Range(1501, kFarFuture).empty());
}

TEST_F(QueryTest, RangesIncludeTheirStartAndExcludeTheirEnd) {
  Write(scripted::CountingScript(150, 10, 10));
  Model state;
  const auto listed = Range(500, 800, &state);  // the events at 500 .. 790
  EXPECT_EQ(listed, Expected(script_, 49, 79));
  EXPECT_EQ(state, scripted::ModelBefore(script_, 49));  // without the event at 500
  EXPECT_TRUE(Range(500, 500, &state).empty());
  EXPECT_EQ(state, scripted::ModelBefore(script_, 49));
  EXPECT_EQ(Range(500, 501), Expected(script_, 49, 50));
}

TEST_F(QueryTest, EqualTimesAcrossABlockBoundaryAreListedFromTheirStart) {
  // Events 1 .. 90 at times 1 .. 90, events 91 .. 160 all at 100 (crossing
  // into block 1), then 161 .. 200 at 200 ...
  Script script = scripted::CountingScript(200, 1, 1);
  for (size_t i = 90; i < 160; i++) script[i].time = 100;
  for (size_t i = 160; i < 200; i++) script[i].time = 200 + i;
  Write(script);
  ASSERT_EQ(db_->timePos[1].time, 100u);
  Model state;
  EXPECT_EQ(Range(100, 101, &state), Expected(script_, 90, 160));
  EXPECT_EQ(state, scripted::ModelBefore(script_, 90));
  kq_EventIter at{};
  StateAt(100, &at);
  EXPECT_EQ(at.eventNumber, 91u);
}

TEST_F(QueryTest, QueriesReadOnlyTheBlocksTheyNeed) {
  // With every event of blocks 0 to 2 overwritten by garbage, queries of
  // later times still answer right: they start from the index and a
  // snapshot, never from the stream's start.
  Write(scripted::CountingScript(1000, 10, 10));
  std::string kqs = ReadFileBytes(Base() + ".kqs");
  for (uint32_t at = kFirstEventTag; at < db_->timePos[3].position; at++) kqs[at] = '\xEE';
  ASSERT_TRUE(WriteFileBytes(Base() + ".kqs", kqs));
  Open();
  uint32_t count = 0;
  kq_GetStartEventAndNumEvents(db_, nullptr, &count);
  EXPECT_EQ(count, 1000u);
  EXPECT_EQ(StateAt(5505), scripted::ModelBefore(script_, 550));
  Model state;
  EXPECT_EQ(Range(7000, 8000, &state), Expected(script_, 699, 799));
  EXPECT_EQ(state, scripted::ModelBefore(script_, 699));
  EXPECT_EQ(ByNumber(555, 3, &state), Expected(script_, 554, 557));
  uint32_t *ids = nullptr;
  uint32_t n = 0;
  ASSERT_EQ(kq_GetObjectIdsInTimeRange(db_, &ids, &n, 0, 4005, 9005), 1);
  ASSERT_EQ(n, 900u);  // tasks 1 .. 900: alive at 4005 or created before 9005
  EXPECT_EQ(ids[0], 1u);
  EXPECT_EQ(ids[899], 900u);
  gen_free(ids);
}

// ---- Damage ---------------------------------------------------------------------------------

TEST_F(QueryTest, AWrongTagWhileRebuildingIsReportedAndEndsTheWalk) {
  Write(scripted::CountingScript(50, 10, 10));
  std::string kqs = ReadFileBytes(Base() + ".kqs");
  const uint32_t sixthTag = kFirstEventTag + 5 * kCountingEventSize;
  ASSERT_EQ(kqs[sixthTag], '\x01');
  kqs[sixthTag] = '\x09';
  ASSERT_TRUE(WriteFileBytes(Base() + ".kqs", kqs));
  ScopedProgName name("viewer");
  kq_EventIter at{};
  Model state;
  auto run = RunCapturing([&] { state = StateAt(300, &at); });
  EXPECT_EQ(run.err,
            "viewer: error: libkqv: [kq_GetEventListAndStateFromTimeRange]: Unrecognized .kqs "
            "packet type (9)\n");
  EXPECT_EQ(state, scripted::ModelBefore(script_, 5));  // as it stood
  EXPECT_EQ(at.position, sixthTag);
  EXPECT_EQ(at.eventNumber, 5u);

  // Listing stops at the wrong tag without a message.
  std::vector<Listed> listed;
  run = RunCapturing([&] { listed = Range(0, kFarFuture); });
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(listed, Expected(script_, 0, 5));
}

TEST_F(QueryTest, AWrongChangeTagEndsTheEventsChanges) {
  Write(scripted::CountingScript(3, 10, 10));
  std::string kqs = ReadFileBytes(Base() + ".kqs");
  const uint32_t secondChange = kFirstEventTag + kCountingEventSize + 17 + 4;
  ASSERT_EQ(kqs[secondChange], '\x00');  // the New of the second event
  kqs[secondChange] = '\x05';
  ASSERT_TRUE(WriteFileBytes(Base() + ".kqs", kqs));
  // Rebuilding the state reads the event too, and says so.
  kq_EventIter at{};
  auto run = RunCapturing([&] { StateAt(20, &at); });
  EXPECT_EQ(run.err, "Unrecognized StateChange type\n");
  kq_EventIter *iter = &at;
  std::vector<Listed> listed;
  run = RunCapturing([&] { listed = TakeList(kq_GetNEventsBeforeTime(db_, &iter, 1, 0, 0)); });
  EXPECT_EQ(run.err, "Unrecognized StateChange type\n");
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0].time, 20u);
  EXPECT_TRUE(listed[0].changes.empty());
}

// ---- Events and states ---------------------------------------------------------------------------

TEST(EventOwner, IsTheTaskNamedByThePayloadsFirstFourBytes) {
  uint8_t payload[] = {0x00, 0x00, 0x12, 0x34, 0xFF};
  kq_Event event{};
  event.type = 5;
  event.length = 5;
  event.data = payload;
  kq_DB big{}, little{};
  big.isBigEndian = 1;
  uint16_t type = 9;
  uint32_t id = 9;
  EXPECT_EQ(kq_GetOwnerOfEvent(&big, &event, &type, &id), 1);
  EXPECT_EQ(type, 0u);
  EXPECT_EQ(id, 0x1234u);
  EXPECT_EQ(kq_GetOwnerOfEvent(&little, &event, &type, &id), 1);
  EXPECT_EQ(id, 0x34120000u);

  id = 9;
  EXPECT_EQ(kq_GetOwnerOfEvent(&big, &event, nullptr, &id), 1);
  EXPECT_EQ(id, 9u);  // stores nothing

  event.length = 3;
  type = 7;
  const auto run = RunCapturing([&] { EXPECT_EQ(kq_GetOwnerOfEvent(&big, &event, &type, &id), 0); });
  EXPECT_EQ(run.err, "Invalid Extra Data(length 3) for event with type 5.\n");
  EXPECT_EQ(type, 7u);
  EXPECT_EQ(id, 9u);
}

TEST(DumpState, PrintsEachObjectWithItsBytesInHex) {
  kq_State *state = kq_NewState();
  ApplyStateChangeNew(state->table, nullptr, 0, 0x1234, 4, "\x00\x03\x01\x0A", nullptr, nullptr);
  auto run = RunCapturing([&] { kq_DumpState(state); });
  EXPECT_EQ(run.out, "t: 0 id: 4660 state: 0x[0,3,1,a]\n");
  ApplyStateChangeDel(state->table, 0, 0x1234);
  ApplyStateChangeNew(state->table, nullptr, 7, 99, 0, nullptr, nullptr, nullptr);
  run = RunCapturing([&] {
    kq_DumpState(state);
    kq_DumpState(nullptr);
  });
  EXPECT_EQ(run.out, "t: 7 id: 99 state: 0x[]\n");
  kq_DeleteState(state);
}

TEST_F(QueryTest, AStateIsTheCallersAndCanBeBroughtForwardByAList) {
  Write(scripted::GenerateScript(4242, 600));
  const uint64_t a = script_[150].time, b = script_[420].time;
  kq_State *state = nullptr;
  List_PT list = kq_GetEventListAndStateFromTimeRange(db_, a, b, &state);
  kq_Close(db_);
  db_ = nullptr;
  for (ListIter_PT it = List_Begin(list, 0); it != List_End(list, 1); ListIter_Next(&it, 1)) {
    void *event = nullptr;
    ListIter_GetValue(it, &event);
    kq_UpdateStateFromStateAndEvent(state, static_cast<kq_Event *>(event));
  }
  List_Delete(list);
  EXPECT_EQ(StateOf(state), scripted::ModelBefore(script_, FirstAtOrAfter(script_, b)));
  kq_DeleteState(state);
}

// ---- The empty database ------------------------------------------------------------------------------

TEST_F(QueryTest, AnEmptyDatabaseGivesNoEventsUntilItsIndexIsRefreshed) {
  const Script script = scripted::CountingScript(20, 5, 5);
  scripted::ScriptWriter writer(Base(), script);
  ASSERT_TRUE(writer.ok());
  Open();
  for (int round = 0; round < 2; round++) {
    SCOPED_TRACE(round == 0 ? "no events" : "events, index not refreshed");
    kq_EventIter *iter = nullptr;
    kq_State *state = nullptr;
    ASSERT_EQ(kq_GetStateAndIterFromTime(db_, 7, &iter, &state), 1);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(HT_GetSize(state->table), 0);
    EXPECT_EQ(iter->position, 20u);
    EXPECT_EQ(iter->eventNumber, 0u);
    EXPECT_TRUE(TakeList(kq_GetNEventsBeforeTime(db_, &iter, 0, 0, 0)).empty());
    EXPECT_EQ(iter->position, 20u);  // unchanged
    kq_DeleteEventIter(iter);
    kq_DeleteState(state);
    Model model{{{1, 1}, "x"}};
    EXPECT_TRUE(Range(0, kFarFuture, &model).empty());
    EXPECT_TRUE(model.empty());
    EXPECT_TRUE(ByNumber(0, 0).empty());
    EXPECT_TRUE(ByNumber(5, 3).empty());
    ASSERT_TRUE(writer.AddAll());
  }
  uint32_t count = 0;
  kq_GetStartEventAndNumEvents(db_, nullptr, &count);
  EXPECT_EQ(count, 20u);
  EXPECT_EQ(Range(0, kFarFuture), Expected(script, 0, 20));
}

TEST(QueryHandles, NullAndWritingHandlesGiveNothing) {
  TempDir dir;
  kq_DB *writing = kq_OpenForCreation(dir.file("w").c_str(), 1, "x", 1, nullptr);
  ASSERT_NE(writing, nullptr);
  kq_EventIter *iter = reinterpret_cast<kq_EventIter *>(1);
  kq_State *state = reinterpret_cast<kq_State *>(1);
  EXPECT_EQ(kq_GetStateAndIterFromTime(nullptr, 5, &iter, &state), 0);
  EXPECT_EQ(iter, nullptr);
  EXPECT_EQ(state, nullptr);
  EXPECT_EQ(kq_GetStateAndIterFromTime(writing, 5, &iter, &state), 0);
  EXPECT_EQ(kq_GetEventListAndStateFromTimeRange(nullptr, 0, 5, &state), nullptr);
  EXPECT_EQ(kq_GetNEventsAndStateFromEventNum(nullptr, 0, 5, &state), nullptr);
  EXPECT_EQ(kq_GetNEventsBeforeTime(nullptr, &iter, 0, 0, 0), nullptr);
  EXPECT_TRUE(TakeList(kq_GetEventListAndStateFromTimeRange(writing, 0, 5, nullptr)).empty());
  kq_Close(writing);
}

}  // namespace
