// Tests of the object usage queries: a property test that holds the objects
// of random ranges against the definition (alive at the start, or created
// by a New in the range, and for the blocks in the middle what their object
// lists hold), the edges of a hand-made history (one block, two, three, a
// task deleted before or in the range, one created at the end), which index
// entries a collection reads, types and ids sorted, filters, copies of
// values, the comparisons, and the empty database.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <set>
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

using scripted::FirstAtOrAfter;
using scripted::Model;
using scripted::ObjectKey;
using scripted::Script;
using testsupport::HexBytes;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

namespace {

// ---- Vocabulary --------------------------------------------------------

constexpr uint64_t kFarFuture = ~uint64_t{0} >> 1;
constexpr size_t kBlock = 100;

class ObjectsTest : public ::testing::Test {
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
  // The objects used in [start, end), with their values.
  Model Used(uint64_t start, uint64_t end, kq_StateFilter filter = nullptr, void *arg = nullptr) {
    HT_PT result =
        HT_New(0, HashStateObject, CmpStateObject, DelStateObject, nullptr, nullptr, nullptr);
    kq_GetObjectStuffUsedInTimeRange(db_, start, end, result, filter, arg);
    kq_State state{result};
    Model model = scripted::StateOf(&state);
    HT_Delete(result);
    return model;
  }
  std::set<ObjectKey> UsedKeys(uint64_t start, uint64_t end) {
    std::set<ObjectKey> keys;
    for (const auto &[key, value] : Used(start, end)) keys.insert(key);
    return keys;
  }
  std::vector<uint32_t> Ids(uint16_t type, uint64_t start, uint64_t end) {
    uint32_t *ids = nullptr;
    uint32_t count = 99;
    EXPECT_EQ(kq_GetObjectIdsInTimeRange(db_, &ids, &count, type, start, end), 1);
    std::vector<uint32_t> out(ids, ids + count);
    if (count == 0) {
      EXPECT_EQ(ids, nullptr);
    }
    gen_free(ids);
    return out;
  }
  std::vector<uint16_t> Types(uint64_t start, uint64_t end) {
    uint16_t *types = nullptr;
    uint32_t count = 99;
    EXPECT_EQ(kq_GetObjectTypesInTimeRange(db_, &types, &count, start, end), 1);
    std::vector<uint16_t> out(types, types + count);
    if (count == 0) {
      EXPECT_EQ(types, nullptr);
    }
    gen_free(types);
    return out;
  }
  // Replaces the .kqs position of index entry `entry` and reopens.
  void PointIndexEntryAt(size_t entry, uint32_t position) {
    std::string kqi = ReadFileBytes(Base() + ".kqi");
    for (int i = 0; i < 4; i++) {
      kqi[20 + 13 * entry + 9 + i] = static_cast<char>(position >> (24 - 8 * i));
    }
    ASSERT_TRUE(WriteFileBytes(Base() + ".kqi", kqi));
    Open();
  }

  TempDir dir_;
  Script script_;
  kq_DB *db_ = nullptr;
};

// ---- The definition, computed by brute force -------------------------------------

// The block a collection starts from for time t: the greatest block whose
// first event lies strictly before t, else 0.
size_t BlockFor(const Script &script, uint64_t t) {
  size_t block = 0;
  for (size_t b = 1; b * kBlock < script.size(); b++) {
    if (script[b * kBlock].time < t) block = b;
  }
  return block;
}

// Alive at start, or named by a New in [start, end); and for each block
// lying wholly in the range what its object list holds: every object alive
// at the block's start and every object of a New in it.
std::set<ObjectKey> ExpectedUsed(const Script &script, const scripted::ModelCache &model,
                                 uint64_t start, uint64_t end, std::set<ObjectKey> *replaced) {
  std::set<ObjectKey> used;
  for (const auto &[key, value] : model.Before(FirstAtOrAfter(script, start))) used.insert(key);
  for (size_t i = FirstAtOrAfter(script, start); i < script.size() && script[i].time < end; i++) {
    for (const auto &c : script[i].changes) {
      if (c.kind == 0) {
        used.insert({c.type, c.id});
        replaced->insert({c.type, c.id});
      }
    }
  }
  const size_t firstBlock = BlockFor(script, start), lastBlock = BlockFor(script, end);
  for (size_t b = firstBlock + 1; b < lastBlock; b++) {
    for (const auto &[key, value] : model.Before(b * kBlock)) {
      used.insert(key);
      replaced->insert(key);
    }
  }
  return used;
}

TEST_F(ObjectsTest, ObjectsUsedEqualTheDefinitionOnRandomRanges) {
  const uint32_t seed = 8642;
  SCOPED_TRACE("seed " + std::to_string(seed));
  Write(scripted::GenerateScript(seed, 4000));
  const scripted::ModelCache model(script_);
  std::mt19937 rng(seed);
  const uint64_t first = script_.front().time, last = script_.back().time;
  auto randomTime = [&]() -> uint64_t {
    if (rng() % 4 == 0) return first + rng() % (last - first + 3) - 1;
    return script_[rng() % script_.size()].time + rng() % 3 - 1;
  };
  for (int q = 0; q < 150; q++) {
    uint64_t a = randomTime(), b = randomTime();
    if (a > b) std::swap(a, b);
    if (q % 3 == 0) b = std::min(last + 1, a + rng() % 400);  // short ranges, one or two blocks
    SCOPED_TRACE("range " + std::to_string(a) + " " + std::to_string(b));
    std::set<ObjectKey> replaced;
    const std::set<ObjectKey> expected = ExpectedUsed(script_, model, a, b, &replaced);
    const Model used = Used(a, b);
    std::set<ObjectKey> keys;
    for (const auto &[key, value] : used) keys.insert(key);
    ASSERT_EQ(keys, expected);
    // Values: a copy from the state at start unless a later entry replaced it.
    const Model atStart = model.Before(FirstAtOrAfter(script_, a));
    for (const auto &[key, value] : used) {
      ASSERT_EQ(value, replaced.count(key) ? "" : atStart.at(key));
    }
    // Ids and types are the keys, sorted.
    for (uint16_t type : {scripted::kTask, scripted::kQueue, scripted::kFlag}) {
      std::vector<uint32_t> ids;
      for (const auto &[t, id] : expected) {
        if (t == type) ids.push_back(id);
      }
      ASSERT_EQ(Ids(type, a, b), ids) << "type " << type;
    }
    std::set<uint16_t> types;
    for (const auto &[t, id] : expected) types.insert(t);
    ASSERT_EQ(Types(a, b), std::vector<uint16_t>(types.begin(), types.end()));
  }
}

// ---- A history with known edges ------------------------------------------------------------

// 350 events at 10, 20, ..., 3500 (blocks from 10, 1010, 2010, 3010) and a
// few objects: task 1 from 60 to 210, task 2 from 310 to 510, task 3 from
// 610, task 4 from 1510, object (3, 5) from 2510, task 6 from 3210.
Script History() {
  Script script;
  for (size_t k = 0; k < 350; k++) {
    scripted::Event e;
    e.time = 10 * (k + 1);
    e.type = 4;
    script.push_back(e);
  }
  auto at = [&script](uint64_t time) -> scripted::Event & { return script[time / 10 - 1]; };
  at(60).changes = {scripted::New(0, 1, "one")};
  at(210).changes = {scripted::Del(0, 1)};
  at(310).changes = {scripted::New(0, 2, "two")};
  at(510).changes = {scripted::Del(0, 2)};
  at(610).changes = {scripted::New(0, 3, "three"), scripted::Mod(0, 3, 0, "T")};
  at(1510).changes = {scripted::New(0, 4, "four")};
  at(2510).changes = {scripted::New(3, 5, "five")};
  at(3210).changes = {scripted::New(0, 6, "six")};
  return script;
}

TEST_F(ObjectsTest, EdgesOfAKnownHistory) {
  Write(History());
  ASSERT_EQ(db_->numTimePos, 4u);
  const std::set<ObjectKey> t2{{0, 2}}, t23{{0, 2}, {0, 3}}, t34{{0, 3}, {0, 4}},
      t345{{0, 3}, {0, 4}, {3, 5}};
  // Within block 0: the state at start and the News of the range.  Task 1
  // was deleted before the start.
  EXPECT_EQ(UsedKeys(400, 700), t23);
  // Task 2 is deleted in the range but existed at its start.
  EXPECT_EQ(UsedKeys(400, 600), t2);
  // Task 3 is created at exactly the end.
  EXPECT_EQ(UsedKeys(400, 610), t2);
  EXPECT_EQ(UsedKeys(400, 611), t23);
  // Two blocks: block 1 is walked from its start.
  EXPECT_EQ(UsedKeys(700, 1600), t34);
  // Three blocks: block 1 from the object list of block 2, block 2 walked.
  EXPECT_EQ(UsedKeys(700, 2600), t345);
  EXPECT_EQ(UsedKeys(0, kFarFuture),
            (std::set<ObjectKey>{{0, 1}, {0, 2}, {0, 3}, {0, 4}, {3, 5}, {0, 6}}));
  // An empty range still has the state at its start.
  EXPECT_EQ(UsedKeys(700, 700), (std::set<ObjectKey>{{0, 3}}));
  // A value comes along from the state at start, not from a New.
  const Model used = Used(700, 1600);
  EXPECT_EQ(used.at({0, 3}), "Three");
  EXPECT_EQ(used.at({0, 4}), "");
}

TEST_F(ObjectsTest, ThreeBlocksReadTheObjectListOfTheLastOneOnly) {
  Write(History());
  // Block 1's own index entry is not read for [700, 2600): pointing it at
  // the header changes nothing and gives no warning.
  PointIndexEntryAt(1, 0);
  ScopedProgName name("viewer");
  auto run = RunCapturing([&] {
    EXPECT_EQ(UsedKeys(700, 2600), (std::set<ObjectKey>{{0, 3}, {0, 4}, {3, 5}}));
  });
  EXPECT_EQ(run.err, "");
  // Block 2's entry is: pointed at the first event of block 0, it gives
  // the warning, and the result keeps the state at start.
  Write(History());
  PointIndexEntryAt(2, 30);
  run = RunCapturing([&] { EXPECT_EQ(UsedKeys(700, 2600), (std::set<ObjectKey>{{0, 3}})); });
  EXPECT_EQ(run.err,
            "viewer: warning: libkqv: [kq_GetObjectStuffUsedInTimeRange]: expected OBJUSED, got "
            "(1)\n");
}

TEST_F(ObjectsTest, TypesAndIdsComeOnceEachAndSorted) {
  Write(History());
  EXPECT_EQ(Types(0, kFarFuture), (std::vector<uint16_t>{0, 3}));
  EXPECT_EQ(Types(700, 1600), (std::vector<uint16_t>{0}));
  EXPECT_EQ(Types(0, 50), (std::vector<uint16_t>{}));
  EXPECT_EQ(Ids(0, 0, kFarFuture), (std::vector<uint32_t>{1, 2, 3, 4, 6}));
  EXPECT_EQ(Ids(3, 0, kFarFuture), (std::vector<uint32_t>{5}));
  EXPECT_EQ(Ids(7, 0, kFarFuture), (std::vector<uint32_t>{}));
  EXPECT_EQ(Ids(0, 700, 2600), (std::vector<uint32_t>{3, 4}));
}

int AllButTaskFour(kq_StateObject *object, void *calls) {
  ++*static_cast<int *>(calls);
  return !(object->type == 0 && object->id == 4);
}

TEST_F(ObjectsTest, TheFilterKeepsObjectsOut) {
  Write(History());
  int calls = 0;
  const Model used = Used(700, 2600, AllButTaskFour, &calls);
  EXPECT_EQ(used.size(), 2u);
  EXPECT_EQ(used.count({0, 4}), 0u);
  EXPECT_GE(calls, 3);
}

TEST_F(ObjectsTest, AnEmptyDatabaseUsesNoObjects) {
  scripted::ScriptWriter writer(Base(), History());
  ASSERT_TRUE(writer.ok());
  Open();
  EXPECT_TRUE(Used(0, kFarFuture).empty());
  EXPECT_TRUE(Types(0, kFarFuture).empty());
  EXPECT_TRUE(Ids(0, 0, kFarFuture).empty());
}

TEST(ObjectQueries, NullHandlesAndOutputsAreRefused) {
  uint16_t *types = reinterpret_cast<uint16_t *>(1);
  uint32_t *ids = reinterpret_cast<uint32_t *>(1);
  uint32_t count = 5;
  EXPECT_EQ(kq_GetObjectTypesInTimeRange(nullptr, &types, &count, 0, 9), 0);
  EXPECT_EQ(types, nullptr);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(kq_GetObjectIdsInTimeRange(nullptr, &ids, &count, 0, 0, 9), 0);
  EXPECT_EQ(ids, nullptr);
  EXPECT_EQ(kq_GetObjectIdsInTimeRange(nullptr, nullptr, &count, 0, 0, 9), 0);
  kq_GetObjectStuffUsedInTimeRange(nullptr, 0, 9, nullptr, nullptr, nullptr);
}

// ---- One object's value, and the comparisons ------------------------------------------------

TEST(StateOfObject, GivesACopyOrNothing) {
  kq_State *state = kq_NewState();
  ApplyStateChangeNew(state->table, nullptr, 0, 7, 3, "abc", nullptr, nullptr);
  ApplyStateChangeNew(state->table, nullptr, 2, 8, 0, nullptr, nullptr, nullptr);
  uint8_t *bytes = nullptr;
  uint32_t length = 0;
  ASSERT_EQ(kq_GetStateOfObject(state, 0, 7, &bytes, &length), 1);
  ASSERT_EQ(length, 3u);
  bytes[0] = 'X';
  gen_free(bytes);
  ASSERT_EQ(kq_GetStateOfObject(state, 0, 7, &bytes, &length), 1);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(bytes), length), "abc");  // unchanged
  gen_free(bytes);

  ASSERT_EQ(kq_GetStateOfObject(state, 2, 8, &bytes, &length), 1);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(bytes, nullptr);

  bytes = reinterpret_cast<uint8_t *>(&length);
  length = 42;
  EXPECT_EQ(kq_GetStateOfObject(state, 0, 8, &bytes, &length), 0);
  EXPECT_EQ(kq_GetStateOfObject(nullptr, 0, 7, &bytes, &length), 0);
  EXPECT_EQ(bytes, reinterpret_cast<uint8_t *>(&length));
  EXPECT_EQ(length, 42u);
  kq_DeleteState(state);
}

TEST(Comparisons, HaveTheUsualSignOverTheWholeRange) {
  uint16_t types[] = {0xFFFF, 3, 0x8000, 0, 3, 0x7FFF};
  qsort(types, std::size(types), sizeof types[0], CmpType);
  EXPECT_EQ(std::vector<uint16_t>(std::begin(types), std::end(types)),
            (std::vector<uint16_t>{0, 3, 3, 0x7FFF, 0x8000, 0xFFFF}));
  uint32_t ids[] = {0xFFFFFFFF, 1, 0x80000000, 0, 0x7FFFFFFF};
  qsort(ids, std::size(ids), sizeof ids[0], CmpUInt32);
  EXPECT_EQ(std::vector<uint32_t>(std::begin(ids), std::end(ids)),
            (std::vector<uint32_t>{0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF}));
  const uint16_t a = 1, b = 2;
  EXPECT_EQ(CmpType(&a, &b), -1);
  EXPECT_EQ(CmpType(&b, &a), 1);
  EXPECT_EQ(CmpType(&a, &a), 0);

  kq_StateObject object{3, 9, 0, nullptr};
  uint16_t type = 3;
  EXPECT_EQ(MatchType(&object, &type), 1);
  type = 4;
  EXPECT_EQ(MatchType(&object, &type), 0);
}

}  // namespace
