// Tests of the queries by time and by event number: the table of number keys;
// states, lists and iterators from random times and ranges held against a
// replay of a seeded script; queries that read only the blocks they need;
// wrong tags met rebuilding and listing.
#include <gtest/gtest.h>

#include "database_script.h"
#include "gen_capture.h"
#include "indgeninit.h"
#include "kq_io_read.h"

using namespace testsupport;

namespace {

constexpr uint32_t kFirstEventTag = 30;  // behind block 0's empty object list and snapshot

class Querying : public ReadingTest {
 protected:
  void Damage(uint32_t at, char tag, uint32_t count = 1) {
    std::string kqs = ReadFileBytes(Base() + ".kqs");
    ASSERT_TRUE(WriteFileBytes(Base() + ".kqs", kqs.replace(at, count, count, tag)));
  }
};

TEST_F(Querying, NumberKeysStopWhereTheTableSays) {
  Write(CountingScript(250));  // event k (from 1) creates task k: a state shows where it stopped
  const uint32_t rows[][3] = {{0, 1, 1},     {1, 0, 1},     {2, 3, 2},       {99, 2, 99},   {100, 1, 101},   {101, 5, 101},
                              {199, 0, 199}, {200, 1, 201}, {249, 5, 249},   {250, 1, 250}, {251, 1, 0},     {100000, 0, 0}};
  for (const auto &[key, max, stop] : rows) {  // key, the most listed (0: all), the event it stops on
    State state;
    EXPECT_EQ(ByNumber(key, int(max), &state), stop == 0 ? Script{} : Listed(script_, stop - 1, max == 0 ? 250 : stop - 1 + max)) << key;
    EXPECT_EQ(state, Replay(script_, stop == 0 ? 250 : stop - 1)) << key;
    kq_EventIter *iter = nullptr;
    ASSERT_EQ(GetStateAndIterFromTimeOrNum(db_, &key, 0, &iter, nullptr), 1);
    EXPECT_EQ(iter->eventNumber, stop == 0 ? 250 : stop) << key;
    kq_DeleteEventIter(iter);
  }
}

TEST_F(Querying, StatesListsAndIteratorsEqualAReplayOfTheWholeScript) {
  const uint32_t seed = 1357911;
  SCOPED_TRACE("seed " + std::to_string(seed));
  Random random(seed);
  Write(GenerateScript(random, 4000));
  const size_t n = script_.size();
  uint64_t start = 0, end = 0;
  uint32_t count = 0;
  ASSERT_TRUE(kq_GetTimeExtent(db_, &start, &end) && kq_GetStartEventAndNumEvents(db_, nullptr, &count));
  ASSERT_EQ(std::vector<uint64_t>({start, end, count}), std::vector<uint64_t>({script_.front().time, script_.back().time + 1, n}));
  for (int q = 0; q < 250; q++) {
    const uint64_t t = RandomTime(random, script_);
    const size_t stop = FirstAtOrAfter(script_, t);
    kq_EventIter at{};
    ASSERT_EQ(StateAt(t, &at), Replay(script_, stop)) << "state at " << t;
    ASSERT_EQ(at.eventNumber, stop < n ? stop + 1 : n) << "state at " << t;
    kq_EventIter *iter = &at;  // goes on from the stop event
    ASSERT_EQ(TakeList(kq_GetNEventsBeforeTime(db_, &iter, 5, 0, 0)), Listed(script_, stop, stop + 5)) << t;
  }
  for (int q = 0; q < 120; q++) {
    uint64_t a = RandomTime(random, script_), b = q % 10 == 0 ? a : RandomTime(random, script_);  // some empty ranges
    if (a > b) std::swap(a, b);
    State state;
    const size_t from = FirstAtOrAfter(script_, a), to = FirstAtOrAfter(script_, b);
    ASSERT_EQ(Range(a, b, &state), Listed(script_, from, to)) << "range " << a << " " << b;
    ASSERT_EQ(state, Replay(script_, from)) << "range " << a << " " << b;
  }
  // An iterator goes on in chunks through every block; a state, the caller's,
  // is brought forward by a list.
  kq_EventIter *iter = nullptr;
  kq_State *state = nullptr;
  ASSERT_EQ(kq_GetStateAndIterFromTime(db_, 0, &iter, nullptr), 1);
  Script all;
  for (Script chunk; !(chunk = TakeList(kq_GetNEventsBeforeTime(db_, &iter, 37, 0, 0))).empty();)
    all.insert(all.end(), chunk.begin(), chunk.end());
  EXPECT_EQ(all, Listed(script_, 0, n));
  EXPECT_EQ(iter->position, ReadFileBytes(Base() + ".kqs").size());  // one behind the final 0 tag
  kq_DeleteEventIter(iter);
  List_PT list = kq_GetEventListAndStateFromTimeRange(db_, script_[150].time, script_[3000].time, &state);
  kq_Close(db_);
  db_ = nullptr;
  for (ListIter_PT it = List_Begin(list, 0); it != List_End(list, 1); ListIter_Next(&it, 1)) {
    void *event = nullptr;
    ListIter_GetValue(it, &event);
    kq_UpdateStateFromStateAndEvent(state, static_cast<kq_Event *>(event));
  }
  List_Delete(list);
  EXPECT_EQ(TakeState(state), Replay(script_, FirstAtOrAfter(script_, script_[3000].time)));
}

TEST_F(Querying, QueriesReadOnlyTheBlocksTheyNeed) {
  // Blocks 0 to 2 overwritten with garbage: later queries start from the
  // index and a snapshot, never from the stream's start.
  Write(CountingScript(1000, 10, 10));
  Damage(kFirstEventTag, '\xEE', db_->timePos[3].position - kFirstEventTag);
  Reopen();
  uint32_t count = 0, n = 0, *ids = nullptr;
  State state;
  EXPECT_TRUE(kq_GetStartEventAndNumEvents(db_, nullptr, &count) && count == 1000 && StateAt(5505) == Replay(script_, 550));
  EXPECT_TRUE(Range(7000, 8000, &state) == Listed(script_, 699, 799) && state == Replay(script_, 699));
  EXPECT_EQ(ByNumber(555, 3), Listed(script_, 554, 557));
  ASSERT_EQ(kq_GetObjectIdsInTimeRange(db_, &ids, &n, 0, 4005, 9005), 1);
  EXPECT_TRUE(n == 900 && ids[0] == 1 && ids[899] == 900) << n;  // alive at 4005 or created before 9005
  gen_free(ids);
}

TEST_F(Querying, AWrongTagEndsARebuildWithAMessageAndAListWithout) {
  Write(CountingScript(50, 10, 10));
  const uint32_t sixthTag = kFirstEventTag + 5 * 35;  // each event 35 bytes
  Damage(sixthTag, '\x09');
  ScopedProgName name("viewer");
  kq_EventIter at{};
  State state;
  auto run = RunCapturing([&] { state = StateAt(300, &at); });
  EXPECT_EQ(run.err, "viewer: error: libkqv: [kq_GetEventListAndStateFromTimeRange]: Unrecognized .kqs packet type (9)\n");
  EXPECT_TRUE(state == Replay(script_, 5) && at.position == sixthTag && at.eventNumber == 5) << at.eventNumber;  // as it stood
  Script listed;
  EXPECT_EQ(RunCapturing([&] { listed = Range(0, kFarFuture); }).err, "");
  EXPECT_EQ(listed, Listed(script_, 0, 5));
  // A wrong change tag ends the event's changes, with a message.
  Write(CountingScript(3, 10, 10));
  Damage(kFirstEventTag + 35 + 21, '\x05');  // the New of the second event
  run = RunCapturing([&] { listed = Range(20, 21); });
  EXPECT_EQ(run.err, "Unrecognized StateChange type\nUnrecognized StateChange type\n");  // rebuilding, listing
  Script want = Listed(script_, 1, 2);
  want[0].changes.clear();
  EXPECT_EQ(listed, want);
}

}  // namespace
