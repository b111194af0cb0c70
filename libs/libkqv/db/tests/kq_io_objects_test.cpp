// Tests of the object usage queries: the objects of random ranges held
// against the definition (alive at the start or created in the range, and
// for blocks in the middle what their object lists hold), with values, types
// and ids; the edges of a known history; the index entries read; filters.
#include <gtest/gtest.h>

#include "database_script.h"
#include "gen_capture.h"
#include "indgeninit.h"

using namespace testsupport;

namespace {

class Objects : public ReadingTest {
 protected:
  void WritePointing(const Script &script, size_t entry, uint32_t position) {  // an index entry points elsewhere
    DatabaseFiles files = Render(script);
    files.kqi.replace(20 + 13 * entry + 9, 4, U(position, 4));
    ReadingTest::Write(files);
    ASSERT_NE(Reopen(), nullptr);
  }
  State Used(uint64_t start, uint64_t end, kq_StateFilter filter = nullptr, void *arg = nullptr) {
    HT_PT result = HT_New(0, HashStateObject, CmpStateObject, DelStateObject, nullptr, nullptr, nullptr);
    kq_GetObjectStuffUsedInTimeRange(db_, start, end, result, filter, arg);
    const State used = StateOf(result);
    HT_Delete(result);
    return used;
  }
  std::vector<uint32_t> Ids(uint16_t type, uint64_t start, uint64_t end) {  // sorted; none: no array
    uint32_t count = 99, *ids = nullptr;
    EXPECT_EQ(kq_GetObjectIdsInTimeRange(db_, &ids, &count, type, start, end), 1);
    const std::vector<uint32_t> out(ids, ids + (ids ? count : 0));
    EXPECT_EQ(count == 0, ids == nullptr);
    gen_free(ids);
    return out;
  }
};

TEST_F(Objects, ObjectsUsedInRandomRangesAreTheDefinitionsWithTheirValues) {
  const uint32_t seed = 8642;
  SCOPED_TRACE("seed " + std::to_string(seed));
  Random random(seed);
  Write(GenerateScript(random, 4000));
  std::vector<State> atBlock;  // the state at each block's start
  for (size_t i = 0; i < script_.size(); i += 100) atBlock.push_back(Replay(script_, i));
  // The block a collection starts from for t: the last one whose first event lies before t.
  auto blockFor = [&](uint64_t t) {
    size_t block = 0;
    for (size_t b = 1; b * 100 < script_.size(); b++) block = script_[b * 100].time < t ? b : block;
    return block;
  };
  for (int q = 0; q < 150; q++) {
    uint64_t a = RandomTime(random, script_), b = RandomTime(random, script_);
    if (a > b) std::swap(a, b);
    if (q % 3 == 0) b = std::min(script_.back().time + 1, a + random.Below(400));  // one or two blocks
    // Alive at a with its value; created in [a, b), and for each block wholly
    // in the range alive at its start or created in it, without a value.
    const size_t from = FirstAtOrAfter(script_, a);
    State want = Replay(script_, from);
    for (size_t i = from; i < script_.size() && script_[i].time < b; i++)
      for (const Change &c : script_[i].changes)
        if (c.kind == Change::kNew) want[{c.type, c.id}] = "";
    for (size_t block = blockFor(a) + 1; block < blockFor(b); block++)
      for (const auto &[key, value] : atBlock[block]) want[key] = "";
    ASSERT_EQ(Used(a, b), want) << "range " << a << " " << b;
    for (uint16_t type : {0, 3, 9}) {
      std::vector<uint32_t> ids;
      for (const auto &[key, value] : want) ids.insert(ids.end(), key.first == type ? 1 : 0, key.second);
      ASSERT_EQ(Ids(type, a, b), ids) << "type " << type;
    }
  }
}

// 350 events at 10, 20, ..., 3500 (blocks from 10, 1010, 2010, 3010): task 1
// from 60 to 210, task 2 from 310 to 510, task 3 from 610, task 4 from 1510,
// object (3, 5) from 2510, task 6 from 3210.
Script History() {
  Script script;
  for (uint64_t k = 1; k <= 350; k++) script.emplace_back(10 * k, 4);
  for (const auto &[at, change] : {std::pair{5, New(0, 1, "one")}, {20, Del(0, 1)}, {30, New(0, 2, "two")}, {50, Del(0, 2)},
                                   {60, New(0, 3, "three")}, {60, Mod(0, 3, 0, "T")}, {150, New(0, 4, "four")},
                                   {250, New(3, 5, "five")}, {320, New(0, 6, "six")}})
    script[at].changes.push_back(change);
  return script;
}

int AllButTaskFour(kq_StateObject *object, void *calls) {
  ++*static_cast<int *>(calls);
  return !(object->type == 0 && object->id == 4);
}

TEST_F(Objects, AKnownHistoryThroughTheFilterAndTheIndexEntriesACollectionReads) {
  ScopedProgName name("viewer");
  Write(History());
  int calls = 0;  // three blocks: block 1 from block 2's object list; task 3's value from no state at start
  EXPECT_EQ(Used(700, 2600, AllButTaskFour, &calls), State({{{0, 3}, ""}, {{3, 5}, ""}}));
  EXPECT_GE(calls, 3);
  EXPECT_EQ(Used(700, 1600), State({{{0, 3}, "Three"}, {{0, 4}, ""}}));  // a value from the state at start
  uint16_t *types = nullptr;
  uint32_t count = 0;
  ASSERT_TRUE(kq_GetObjectTypesInTimeRange(db_, &types, &count, 0, kFarFuture) && count == 2 && types[0] == 0 && types[1] == 3);
  gen_free(types);
  EXPECT_EQ(Ids(0, 400, 611), std::vector<uint32_t>({2, 3}));  // task 2 deleted in the range, 3 created just before its end
  WritePointing(History(), 1, 0);  // block 1's entry isn't read for [700, 2600)
  auto run = RunCapturing([&] { EXPECT_EQ(Used(700, 2600).size(), 3u); });
  EXPECT_EQ(run.err, "");
  WritePointing(History(), 2, 30);  // block 2's is: at an event, it ends the collection
  run = RunCapturing([&] { EXPECT_EQ(Used(700, 2600), State({{{0, 3}, "Three"}})); });
  EXPECT_EQ(run.err, "viewer: warning: libkqv: [kq_GetObjectStuffUsedInTimeRange]: expected OBJUSED, got (1)\n");
  Write(Script{});
  EXPECT_TRUE(Used(0, kFarFuture).empty() && Ids(0, 0, kFarFuture).empty());
}

}  // namespace
