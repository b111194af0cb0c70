// Tests of the hash table: bucket counts, growth points, walk order with its
// reversal on growth, iterators that end themselves, clones, messages for
// bad arguments, out of memory through a failing gen_alloc, and a long
// randomized run against a simple model of the ordering rules.
#include "adt_hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "indgen_string.h"
#include "indgeninit.h"

using testsupport::RunCapturing;

namespace {

// ---- Vocabulary --------------------------------------------------------

// A key whose hash the test chooses; equality is by id.
struct Key {
  uint32_t hash;
  int id;
};

uint32_t KeyHash(const void *key) { return static_cast<const Key *>(key)->hash; }
int KeyCompare(const void *stored, const void *key) {
  return static_cast<const Key *>(stored)->id != static_cast<const Key *>(key)->id;
}

// Every delete callback run, as "k<id>" or "o<id>", in order.
std::vector<std::string> g_deleted;
void DeleteKey(void *key) { g_deleted.push_back("k" + std::to_string(static_cast<Key *>(key)->id)); }
void DeleteObject(void *object) {
  g_deleted.push_back("o" + std::to_string(static_cast<Key *>(object)->id));
}
int ClonePointer(const void *from, void **to) {
  *to = const_cast<void *>(from);
  return 1;
}

// A table of Key items, owning the keys; objects are the keys themselves.
class Table {
 public:
  explicit Table(uint32_t approxSize = 0)
      : ht_(HT_New(approxSize, KeyHash, KeyCompare, nullptr, nullptr, ClonePointer,
                   ClonePointer)) {}
  ~Table() { HT_Delete(ht_); }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  HT_PT ht() const { return ht_; }
  // Inserts a key with hash `hash` and id `id` (the hash when id < 0).
  int Insert(uint32_t hash, int id = -1) {
    keys_.push_back(Key{hash, id < 0 ? static_cast<int>(hash) : id});
    return HT_InsertItem(ht_, &keys_.back(), &keys_.back());
  }
  void InsertAll(const std::vector<uint32_t> &hashes) {
    for (uint32_t h : hashes) ASSERT_EQ(Insert(h), 1) << "hash " << h;
  }
  int Remove(int id) {
    Key probe{Lookup(id), id};
    return HT_RemoveItem(ht_, &probe);
  }

 private:
  uint32_t Lookup(int id) const {
    for (const Key &k : keys_)
      if (k.id == id) return k.hash;
    return 0;
  }
  HT_PT ht_;
  std::deque<Key> keys_;
};

// The ids of a full walk; checks that the walk ends itself.
std::vector<int> WalkIds(HT_PT ht) {
  std::vector<int> ids;
  int itersBefore = HT_GetNumIters(ht);
  for (HTIter_PT it = HT_Begin(ht); it != HT_End(ht); HTIter_Inc(&it)) {
    void *key = nullptr;
    void *object = nullptr;
    EXPECT_EQ(HTIter_GetValue(it, &key, &object), 1);
    ids.push_back(static_cast<Key *>(key)->id);
  }
  EXPECT_EQ(HT_GetNumIters(ht), itersBefore);
  return ids;
}

std::vector<int> Range(int from, int to) {
  std::vector<int> out;
  for (int i = from; i <= to; i++) out.push_back(i);
  return out;
}
std::vector<uint32_t> HashRange(uint32_t from, uint32_t to) {
  std::vector<uint32_t> out;
  for (uint32_t i = from; i <= to; i++) out.push_back(i);
  return out;
}

// gen_alloc that lets `allowed` calls through, then returns null; it
// records the count of the last call.
int g_allocsLeft = 0;
unsigned g_lastCount = 0;
void *LimitedAlloc(unsigned count, unsigned size) {
  g_lastCount = count;
  if (g_allocsLeft-- <= 0) return nullptr;
  return calloc(count, size);
}
class ScopedFailingAlloc {
 public:
  explicit ScopedFailingAlloc(int allowed) : saved_(gen_alloc) {
    g_allocsLeft = allowed;
    gen_alloc = LimitedAlloc;
  }
  ~ScopedFailingAlloc() { gen_alloc = saved_; }

 private:
  gen_alloc_func saved_;
};

// ---- Sizes and growth --------------------------------------------------

TEST(HashTableSize, NewPicksTheFirstAllowedCountNotBelowTheRequest) {
  const struct {
    uint32_t approx;
    uint32_t buckets;
  } cases[] = {{0, 29}, {1, 29}, {29, 29}, {30, 59}, {4201, 4201}, {4202, 8419}};
  for (const auto &c : cases) {
    Table t(c.approx);
    ASSERT_NE(t.ht(), nullptr);
    EXPECT_EQ(t.ht()->numBuckets, c.buckets) << "approxSize " << c.approx;
    EXPECT_EQ(HT_GetSize(t.ht()), 0);
  }
}

TEST(HashTableSize, LastEntryIsAskedForAndOneMoreIsRefused) {
  // The bucket array of the last entry is asked of gen_alloc; letting that
  // request fail keeps the test small and shows the out-of-memory path.
  auto out = RunCapturing([] {
    ScopedFailingAlloc fail(1);
    EXPECT_EQ(HT_New(1104691373u, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr),
              nullptr);
  });
  EXPECT_EQ(g_lastCount, 1104691373u);
  EXPECT_EQ(out.err, "Out of memory in HT_New()\n");

  out = RunCapturing([] {
    EXPECT_EQ(HT_New(1104691374u, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr),
              nullptr);
  });
  EXPECT_EQ(out.err, "approxSize far too big in HT_New()\n");
}

TEST(HashTableGrowth, FiftyEighthItemStaysFiftyNinthGrows) {
  Table t;
  t.InsertAll(HashRange(1, 58));
  EXPECT_EQ(t.ht()->numBuckets, 29u);
  ASSERT_EQ(t.Insert(59), 1);
  EXPECT_EQ(t.ht()->numBuckets, 59u);
  t.InsertAll(HashRange(60, 118));
  EXPECT_EQ(t.ht()->numBuckets, 59u);
  ASSERT_EQ(t.Insert(119), 1);
  EXPECT_EQ(t.ht()->numBuckets, 127u);
  EXPECT_EQ(HT_GetSize(t.ht()), 119);
}

TEST(HashTableGrowth, LiveIteratorHoldsGrowthBackUntilTheNextInsertion) {
  Table t;
  t.InsertAll(HashRange(1, 58));
  HTIter_PT it = HT_Begin(t.ht());
  EXPECT_EQ(t.Insert(59), 1);
  EXPECT_EQ(t.ht()->numBuckets, 29u);
  HTIter_Delete(it);
  EXPECT_EQ(t.ht()->numBuckets, 29u);
  EXPECT_EQ(t.Insert(60), 1);
  EXPECT_EQ(t.ht()->numBuckets, 127u);
  EXPECT_EQ(WalkIds(t.ht()), Range(1, 60));
}

TEST(HashTableGrowth, FailedBucketAllocationKeepsTheTableAndRetriesLater) {
  Table t;
  t.InsertAll(HashRange(1, 58));
  {
    ScopedFailingAlloc fail(1);  // the link, not the new bucket array
    EXPECT_EQ(t.Insert(59), 1);
  }
  EXPECT_EQ(t.ht()->numBuckets, 29u);
  EXPECT_EQ(t.Insert(60), 1);
  EXPECT_EQ(t.ht()->numBuckets, 127u);
}

// ---- Walk order ----------------------------------------------------------

TEST(HashTableOrder, BucketsAscendChainsKeepInsertionOrder) {
  Table t;
  t.InsertAll({30, 1, 59, 0});
  EXPECT_EQ(WalkIds(t.ht()), (std::vector<int>{0, 30, 1, 59}));
}

TEST(HashTableOrder, HashesAreTakenModuloAsUnsigned32Bit) {
  Table t;
  // 0xFFFFFFFF % 29 == 15 and 0x80000000 % 29 == 8; as signed numbers
  // they would give no bucket at all.
  t.Insert(0xFFFFFFFFu, 1);
  t.Insert(0x80000000u, 2);
  t.Insert(15, 3);
  EXPECT_EQ(WalkIds(t.ht()), (std::vector<int>{2, 1, 3}));
  EXPECT_EQ(t.ht()->buckets[15]->next->hash, 15u);
}

TEST(HashTableOrder, GrowthReversesItemsThatMeetInANewBucket) {
  Table t;
  t.InsertAll(HashRange(1, 54));
  // In 29 buckets these walk as 0, 1711 (bucket 0), 59, 118, 177 (buckets
  // 1..3); all five fall into bucket 0 of 59 and land there reversed.
  t.InsertAll({177, 0, 59, 1711});
  EXPECT_EQ(t.ht()->numBuckets, 29u);
  ASSERT_EQ(t.Insert(118), 1);  // the 59th item
  ASSERT_EQ(t.ht()->numBuckets, 59u);
  t.Insert(236);  // after growth, new items go to the tail again
  std::vector<int> expected = {177, 118, 59, 1711, 0, 236};
  for (int i = 1; i <= 54; i++) expected.push_back(i);
  EXPECT_EQ(WalkIds(t.ht()), expected);
}

TEST(HashTableOrder, RemovedAndReinsertedKeyGoesToTheTail) {
  Table t;
  t.InsertAll({0, 29, 58, 1});
  EXPECT_EQ(t.Remove(0), 1);
  EXPECT_EQ(WalkIds(t.ht()), (std::vector<int>{29, 58, 1}));
  EXPECT_EQ(t.Insert(0), 1);
  EXPECT_EQ(WalkIds(t.ht()), (std::vector<int>{29, 58, 0, 1}));
  EXPECT_EQ(t.Remove(99), 0);
}

TEST(HashTableOrder, InsertionDuringAWalkIsSeenOnlyAheadOfTheIterator) {
  Table t;
  t.InsertAll({5, 10});
  HTIter_PT it = HT_Begin(t.ht());
  HTIter_Inc(&it);  // on 10
  t.Insert(34);     // bucket 5, behind
  t.Insert(39);     // bucket 10, after 10
  t.Insert(20);     // bucket 20, ahead
  std::vector<int> seen;
  for (; it != HT_End(t.ht()); HTIter_Inc(&it)) {
    void *key = nullptr;
    HTIter_GetValue(it, &key, nullptr);
    seen.push_back(static_cast<Key *>(key)->id);
  }
  EXPECT_EQ(seen, (std::vector<int>{10, 39, 20}));
  EXPECT_EQ(HT_GetNumIters(t.ht()), 0);
}

// Walks without an iterator take the iterator's order through growth and
// removals, stop where the visitor says, and name each item's place.
TEST(HashTableOrder, ForEachAndWalkPositionsFollowTheIteratorsOrder) {
  Table t;
  t.InsertAll(HashRange(1, 54));
  t.InsertAll({177, 0, 59, 1711, 118, 236});  // grows, reversing some
  t.Remove(20);
  std::vector<int> visited;
  auto collect = [](void *key, void *, void *context) {
    static_cast<std::vector<int> *>(context)->push_back(static_cast<Key *>(key)->id);
    return 1;
  };
  EXPECT_EQ(HT_ForEach(t.ht(), collect, &visited), 1);
  const std::vector<int> walked = WalkIds(t.ht());
  EXPECT_EQ(visited, walked);
  EXPECT_EQ(HT_GetNumIters(t.ht()), 0);

  // Positions sort into the same order: (bucket, depth) ascending.
  std::vector<std::pair<std::pair<uint32_t, uint32_t>, int>> places;
  for (int id : walked) {
    Key probe{static_cast<uint32_t>(id), id};
    uint32_t bucket = 0, depth = 0;
    ASSERT_EQ(HT_GetWalkPosition(t.ht(), &probe, &bucket, &depth), 1) << id;
    places.push_back({{bucket, depth}, id});
  }
  EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
  EXPECT_EQ(places[0].first, (std::pair<uint32_t, uint32_t>{0, 0}));  // 177 heads bucket 0
  EXPECT_EQ(places[1].first, (std::pair<uint32_t, uint32_t>{0, 1}));
  Key absent{20, 20};
  uint32_t untouched = 77;
  EXPECT_EQ(HT_GetWalkPosition(t.ht(), &absent, &untouched, &untouched), 0);
  EXPECT_EQ(untouched, 77u);

  visited.clear();
  auto stopAtThird = [](void *key, void *, void *context) {
    auto *ids = static_cast<std::vector<int> *>(context);
    ids->push_back(static_cast<Key *>(key)->id);
    return ids->size() < 3 ? 1 : 0;
  };
  EXPECT_EQ(HT_ForEach(t.ht(), stopAtThird, &visited), 0);
  EXPECT_EQ(visited, std::vector<int>(walked.begin(), walked.begin() + 3));

  auto out = RunCapturing([&] {
    EXPECT_EQ(HT_ForEach(nullptr, collect, &visited), 0);
    EXPECT_EQ(HT_GetWalkPosition(nullptr, &absent, nullptr, nullptr), 0);
  });
  EXPECT_EQ(out.err,
            "HT_ForEach() called with NULL or invalid HT_PT or VisitFunc_PT\n"
            "HT_GetWalkPosition() called with NULL or invalid HT_PT\n");
}

// ---- Items -----------------------------------------------------------------

TEST(HashTableItems, DuplicateIsRefusedAndChangesNothing) {
  g_deleted.clear();
  HT_PT ht = HT_New(0, KeyHash, KeyCompare, DeleteKey, DeleteObject, nullptr, nullptr);
  Key first{7, 1}, firstObject{0, 100}, again{7, 1}, againObject{0, 200};
  EXPECT_EQ(HT_InsertItem(ht, &first, &firstObject), 1);
  EXPECT_EQ(HT_InsertItem(ht, &again, &againObject), 0);
  EXPECT_EQ(HT_GetSize(ht), 1);
  EXPECT_TRUE(g_deleted.empty());
  void *storedKey = nullptr;
  void *object = nullptr;
  EXPECT_EQ(HT_FindItem(ht, &again, &storedKey, &object), 1);
  EXPECT_EQ(storedKey, &first);
  EXPECT_EQ(object, &firstObject);
  HT_Delete(ht);
}

TEST(HashTableItems, EqualHashesAreToldApartByTheCompareCallback) {
  Table t;
  t.Insert(7, 1);
  t.Insert(7, 2);
  EXPECT_EQ(HT_GetSize(t.ht()), 2);
  Key probe{7, 2};
  void *stored = nullptr;
  EXPECT_EQ(HT_FindItem(t.ht(), &probe, &stored, nullptr), 1);
  EXPECT_EQ(static_cast<Key *>(stored)->id, 2);
}

int g_compares = 0;
int CountingCompare(const void *stored, const void *key) {
  g_compares++;
  return KeyCompare(stored, key);
}

TEST(HashTableItems, CompareRunsOnlyOnEqualHashes) {
  HT_PT ht = HT_New(0, KeyHash, CountingCompare, nullptr, nullptr, nullptr, nullptr);
  Key keys[] = {{0, 1}, {29, 2}, {58, 3}};  // one chain, three hashes
  for (Key &k : keys) HT_InsertItem(ht, &k, &k);
  g_compares = 0;
  Key probe{58, 3};
  EXPECT_EQ(HT_FindItem(ht, &probe, nullptr, nullptr), 1);
  EXPECT_EQ(g_compares, 1);
  HT_Delete(ht);
}

TEST(HashTableItems, FindMissSetsTheKeyToNullAndLeavesTheObject) {
  Table t;
  t.Insert(3);
  Key probe{3, 4};
  void *stored = &probe;
  void *object = &probe;
  EXPECT_EQ(HT_FindItem(t.ht(), &probe, &stored, &object), 0);
  EXPECT_EQ(stored, nullptr);
  EXPECT_EQ(object, &probe);
  EXPECT_EQ(HT_FindItem(t.ht(), &probe, nullptr, nullptr), 0);
}

TEST(HashTableItems, RemoveAndDeleteRunKeyThenObjectCallbacks) {
  g_deleted.clear();
  HT_PT ht = HT_New(0, KeyHash, KeyCompare, DeleteKey, DeleteObject, nullptr, nullptr);
  Key keys[] = {{1, 1}, {30, 2}, {0, 3}, {5, 4}};
  Key objects[] = {{0, 11}, {0, 12}, {0, 13}, {0, 14}};
  for (int i = 0; i < 4; i++) HT_InsertItem(ht, &keys[i], &objects[i]);
  Key probe{5, 4};
  EXPECT_EQ(HT_RemoveItem(ht, &probe), 1);
  EXPECT_EQ(g_deleted, (std::vector<std::string>{"k4", "o14"}));
  g_deleted.clear();
  auto out = RunCapturing([&] { HT_Delete(ht); });
  EXPECT_EQ(out.err, "");
  EXPECT_EQ(g_deleted, (std::vector<std::string>{"k3", "o13", "k1", "o11", "k2", "o12"}));
}

// ---- Iterators -------------------------------------------------------------

TEST(HashTableIter, EmptyTableBeginsAtTheEnd) {
  Table t;
  EXPECT_EQ(HT_Begin(t.ht()), HT_End(t.ht()));
  EXPECT_EQ(HT_GetNumIters(t.ht()), 0);
}

TEST(HashTableIter, AbandonedWalkCountsUntilDeleted) {
  Table t;
  t.InsertAll({1, 2, 3});
  HTIter_PT it = HT_Begin(t.ht());
  HTIter_Inc(&it);
  EXPECT_EQ(HT_GetNumIters(t.ht()), 1);
  HTIter_PT copy = HTIter_Copy(it);
  EXPECT_NE(copy, it);
  EXPECT_EQ(HT_GetNumIters(t.ht()), 2);
  HTIter_Delete(it);
  HTIter_Delete(copy);
  EXPECT_EQ(HT_GetNumIters(t.ht()), 0);
}

TEST(HashTableIter, EndIteratorIsInertAndNeverCounted) {
  Table t;
  t.Insert(1);
  HTIter_PT end = HT_End(t.ht());
  EXPECT_EQ(HTIter_Copy(end), end);
  Key sentinel{0, 0};
  void *key = &sentinel;
  void *object = &sentinel;
  EXPECT_EQ(HTIter_GetValue(end, &key, &object), 0);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(object, &sentinel);
  auto out = RunCapturing([&] {
    HTIter_Inc(&end);
    HTIter_IncMultiple(&end, 3);
    HTIter_Delete(end);
  });
  EXPECT_EQ(out.err, "");
  EXPECT_EQ(end, HT_End(t.ht()));
  EXPECT_EQ(HT_GetNumIters(t.ht()), 0);
}

TEST(HashTableIter, IncMultipleStepsAndStopsAtTheEnd) {
  Table t;
  t.InsertAll({1, 2, 3, 4});
  HTIter_PT it = HT_Begin(t.ht());
  HTIter_IncMultiple(&it, 0);
  HTIter_IncMultiple(&it, -2);
  HTIter_IncMultiple(&it, 2);
  void *key = nullptr;
  HTIter_GetValue(it, &key, nullptr);
  EXPECT_EQ(static_cast<Key *>(key)->id, 3);
  HTIter_IncMultiple(&it, 100);
  EXPECT_EQ(it, HT_End(t.ht()));
  EXPECT_EQ(HT_GetNumIters(t.ht()), 0);
}

// ---- Clones ----------------------------------------------------------------

TEST(HashTableClone, FortyItemsGetFiftyNineBucketsAndOwnCopies) {
  HT_PT ht = HT_New(0, HT_StringHashFunc, HT_StringCompareFunc, HT_StringDeleteFunc,
                    HT_StringDeleteFunc, HT_StringCloneFunc, HT_StringCloneFunc);
  for (int i = 0; i < 40; i++) {
    std::string name = "item" + std::to_string(i);
    ASSERT_EQ(HT_InsertItem(ht, gen_copy(name.c_str()), gen_copy(("v" + name).c_str())), 1);
  }
  ASSERT_EQ(ht->numBuckets, 29u);
  HT_PT clone = HT_Clone(ht);
  ASSERT_NE(clone, nullptr);
  EXPECT_EQ(clone->numBuckets, 59u);
  EXPECT_EQ(HT_GetSize(clone), 40);
  EXPECT_EQ(HT_GetNumIters(ht), 0);
  void *stored = nullptr;
  void *object = nullptr;
  ASSERT_EQ(HT_FindItem(clone, "item17", &stored, &object), 1);
  EXPECT_STREQ(static_cast<char *>(object), "vitem17");
  void *sourceKey = nullptr;
  HT_FindItem(ht, "item17", &sourceKey, nullptr);
  EXPECT_NE(stored, sourceKey);
  HT_Delete(ht);
  HT_Delete(clone);
}

TEST(HashTableClone, CloneWalksInItsOwnBucketOrder) {
  Table t(100);  // 127 buckets: 1 and 29 walk as 1, 29
  t.InsertAll({29, 1});
  EXPECT_EQ(WalkIds(t.ht()), (std::vector<int>{1, 29}));
  HT_PT clone = HT_Clone(t.ht());
  EXPECT_EQ(clone->numBuckets, 29u);
  EXPECT_EQ(WalkIds(clone), (std::vector<int>{29, 1}));
  HT_Delete(clone);
}

TEST(HashTableClone, EmptyGetsTwentyNineAndNoCloneFunctionsGiveNull) {
  Table t(5000);
  HT_PT clone = HT_Clone(t.ht());
  EXPECT_EQ(clone->numBuckets, 29u);
  HT_Delete(clone);
  auto out = RunCapturing([] {
    HT_PT plain = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(HT_Clone(plain), nullptr);
    EXPECT_EQ(HT_Clone(nullptr), nullptr);
    HT_Delete(plain);
  });
  EXPECT_EQ(out.err, "");
}

TEST(HashTableClone, OutOfMemoryMidwayGivesNullAndFreesThePartialCopy) {
  HT_PT ht = HT_New(0, HT_StringHashFunc, HT_StringCompareFunc, HT_StringDeleteFunc,
                    HT_StringDeleteFunc, HT_StringCloneFunc, HT_StringCloneFunc);
  HT_InsertItem(ht, gen_copy("a"), gen_copy("1"));
  HT_InsertItem(ht, gen_copy("b"), gen_copy("2"));
  // Table, buckets, iterator, then key copy and object copy; the link fails.
  auto out = RunCapturing([&] {
    ScopedFailingAlloc fail(5);
    EXPECT_EQ(HT_Clone(ht), nullptr);
  });
  EXPECT_EQ(out.err, "Out of memory in HT_InsertItem()\n");
  EXPECT_EQ(HT_GetNumIters(ht), 0);
  HT_Delete(ht);
}

TEST(HashTableClone, CloneIntoDeletesTheOldItemsAndLeavesWhatACloneWouldBe) {
  HT_PT dst = HT_New(0, KeyHash, KeyCompare, DeleteKey, DeleteObject, ClonePointer, ClonePointer);
  Key old[3] = {{30, 1}, {5, 2}, {2, 3}};  // buckets 1, 5, 2 of 29
  for (Key &k : old) HT_InsertItem(dst, &k, &k);
  Table src(100);  // 127 buckets; its clone gets 59 and walks in its own order
  src.InsertAll(HashRange(1, 40));
  src.InsertAll({59, 118});
  HT_PT expected = HT_Clone(src.ht());
  g_deleted.clear();
  HT_PT result = HT_CloneInto(dst, src.ht());
  EXPECT_EQ(result, dst);  // the same records
  EXPECT_EQ(g_deleted, (std::vector<std::string>{"k1", "o1", "k3", "o3", "k2", "o2"}));
  EXPECT_EQ(result->numBuckets, expected->numBuckets);
  EXPECT_EQ(WalkIds(result), WalkIds(expected));
  EXPECT_EQ(HT_GetSize(result), 42);
  g_deleted.clear();
  HT_Delete(result);  // now with src's callbacks, which delete nothing
  EXPECT_TRUE(g_deleted.empty());
  HT_Delete(expected);

  // Live iterators, or a source that can't be cloned: as HT_Delete and
  // HT_Clone do it, message included.
  Table busy;
  busy.InsertAll({1, 2});
  HT_PT withIter = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, ClonePointer, ClonePointer);
  HT_InsertItem(withIter, &old[0], &old[0]);
  HTIter_PT it = HT_Begin(withIter);
  auto out = RunCapturing([&] {
    HT_PT fresh = HT_CloneInto(withIter, busy.ht());
    EXPECT_EQ(WalkIds(fresh), (std::vector<int>{1, 2}));
    HT_Delete(fresh);
  });
  EXPECT_EQ(out.err,
            "Memory leak in HT_Delete(): HT_Delete() called on HT_PT with active iterators\n");
  gen_free(it);  // outlived its table, which the leak message is about
  HT_PT plain = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr);
  HT_PT doomed = HT_New(0, KeyHash, KeyCompare, DeleteKey, nullptr, ClonePointer, ClonePointer);
  HT_InsertItem(doomed, &old[1], &old[1]);
  g_deleted.clear();
  EXPECT_EQ(HT_CloneInto(doomed, plain), nullptr);
  EXPECT_EQ(g_deleted, (std::vector<std::string>{"k2"}));
  HT_Delete(plain);
}

TEST(HashTableClone, CloneIntoOutOfMemoryGivesNullAndFreesEverything) {
  HT_PT src = HT_New(0, HT_StringHashFunc, HT_StringCompareFunc, HT_StringDeleteFunc,
                     HT_StringDeleteFunc, HT_StringCloneFunc, HT_StringCloneFunc);
  HT_InsertItem(src, gen_copy("a"), gen_copy("1"));
  HT_InsertItem(src, gen_copy("b"), gen_copy("2"));
  HT_PT dst = HT_New(0, HT_StringHashFunc, HT_StringCompareFunc, HT_StringDeleteFunc,
                     HT_StringDeleteFunc, HT_StringCloneFunc, HT_StringCloneFunc);
  HT_InsertItem(dst, gen_copy("z"), gen_copy("9"));  // one link to reuse
  // "a" takes the reused link; "b"'s copies come, then its link fails.
  auto out = RunCapturing([&] {
    ScopedFailingAlloc fail(4);
    EXPECT_EQ(HT_CloneInto(dst, src), nullptr);
  });
  EXPECT_EQ(out.err, "Out of memory in HT_InsertItem()\n");
  HT_Delete(src);
}

// ---- Callbacks for strings -------------------------------------------------

TEST(HashTableStrings, HashRotatesBySevenOverUnsignedBytes) {
  EXPECT_EQ(HT_StringHashFunc("abc"), 0x187163u);
  EXPECT_EQ(HT_StringHashFunc("abcde"), 0x1C58F263u);
  EXPECT_EQ(HT_StringHashFunc("\xff\xfe\xfd\xfc\xfb"), 0xEFFF3EF4u);
  EXPECT_EQ(HT_StringHashFunc(""), 0u);
  EXPECT_EQ(HT_StringHashFunc(nullptr), 0u);
  EXPECT_EQ(HT_StringCompareFunc("x", "x"), 0);
  EXPECT_NE(HT_StringCompareFunc("x", "y"), 0);
  void *copy = nullptr;
  EXPECT_EQ(HT_StringCloneFunc("text", &copy), 1);
  EXPECT_STREQ(static_cast<char *>(copy), "text");
  HT_StringDeleteFunc(copy);
}

// ---- Bad arguments and out of memory ---------------------------------------

TEST(HashTableErrors, BadTablesAndIteratorsAreReportedByName) {
  HT_Tag noBuckets{};
  HTIter_Tag orphan{};
  HTIter_PT nullIter = nullptr;
  Key key{1, 1};
  auto out = RunCapturing([&] {
    for (HT_PT bad : {static_cast<HT_PT>(nullptr), &noBuckets}) {
      EXPECT_EQ(HT_GetSize(bad), -1);
      EXPECT_EQ(HT_InsertItem(bad, &key, &key), 0);
      EXPECT_EQ(HT_RemoveItem(bad, &key), 0);
      EXPECT_EQ(HT_FindItem(bad, &key, nullptr, nullptr), 0);
      EXPECT_EQ(HT_Begin(bad), nullptr);
      EXPECT_EQ(HT_End(bad), nullptr);
      EXPECT_EQ(HT_GetNumIters(bad), -1);
    }
    HT_Delete(nullptr);
    HT_Delete(&noBuckets);
    HTIter_Inc(nullptr);
    HTIter_Inc(&nullIter);
    HTIter_IncMultiple(nullptr, 1);
    HTIter_PT orphanP = &orphan;
    HTIter_IncMultiple(&orphanP, 1);
    EXPECT_EQ(HTIter_Copy(&orphan), nullptr);
    HTIter_Delete(nullptr);
    EXPECT_EQ(HTIter_GetValue(&orphan, nullptr, nullptr), 0);
  });
  const std::string perTable =
      "HT_GetSize() called on NULL or invalid HT_PT\n"
      "HT_InsertItem() called on NULL or invalid HT_PT\n"
      "HT_RemoveItem() called with NULL or invalid HT_PT\n"
      "HT_FindItem() called with NULL or invalid HT_PT\n"
      "HT_Begin() called with NULL or invalid HT_PT\n"
      "HT_End() called on NULL or invalid HT_PT\n"
      "HT_GetNumIters() called with NULL or invalid HT_PT\n";
  EXPECT_EQ(out.err, perTable + perTable +
                         "HT_Delete() called on NULL or invalid HT_PT\n"
                         "HTIter_Inc called with NULL HTIter_PT *\n"
                         "HTIter_Inc called with NULL or invalid *(HTIter_PT *)\n"
                         "HTIter_IncMultiple called with NULL HTIter_PT *\n"
                         "HTIter_IncMultiple called with NULL or invalid *(HTIter_PT *)\n"
                         "HTIter_Copy() called with NULL or invalid HTIter_PT\n"
                         "HTIter_Delete() called with NULL or invalid HTIter_PT\n"
                         "HTIter_GetValue() called with NULL or invalid HTIter_PT\n");
}

TEST(HashTableErrors, NewRefusesMissingCallbacksAndDropsALoneCloneFunction) {
  HT_PT made = nullptr;
  auto out = RunCapturing([&] {
    EXPECT_EQ(HT_New(0, nullptr, KeyCompare, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(HT_New(0, KeyHash, nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
    made = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, ClonePointer);
  });
  EXPECT_EQ(out.err,
            "HashFunc_PT NULL in HT_New()\n"
            "CompareFunc_PT NULL in HT_New()\n"
            "No point to providing only one of keyCloneFuncP, objectCloneFuncP\n");
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->objectCloneFuncP, nullptr);
  EXPECT_EQ(HT_Clone(made), nullptr);
  HT_Delete(made);
}

TEST(HashTableErrors, DeleteWithLiveIteratorsWarnsAndStillFrees) {
  HT_PT ht = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr);
  Key key{1, 1};
  HT_InsertItem(ht, &key, &key);
  HTIter_PT it = HT_Begin(ht);
  auto out = RunCapturing([&] { HT_Delete(ht); });
  EXPECT_EQ(out.err,
            "Memory leak in HT_Delete(): HT_Delete() called on HT_PT with active iterators\n");
  gen_free(it);  // the table is gone; the leaked record is released by hand
}

TEST(HashTableErrors, OutOfMemoryIsReportedAndChangesNothing) {
  Table t;
  t.Insert(1);
  HTIter_PT it = HT_Begin(t.ht());
  auto out = RunCapturing([&] {
    ScopedFailingAlloc fail(0);
    EXPECT_EQ(t.Insert(2), 0);
    EXPECT_EQ(HTIter_Copy(it), nullptr);
    EXPECT_EQ(HT_Begin(t.ht()), nullptr);
    EXPECT_EQ(HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr), nullptr);
  });
  EXPECT_EQ(out.err,
            "Out of memory in HT_InsertItem()\n"
            "Out of memory in HTIter_Copy()\n"
            "Out of memory in HT_Begin()\n"
            "Out of memory in HT_New()\n");
  EXPECT_EQ(HT_GetSize(t.ht()), 1);
  EXPECT_EQ(HT_GetNumIters(t.ht()), 1);
  HTIter_Delete(it);
}

// ---- Randomized run against a model ------------------------------------------

// The ordering rules written as plainly as possible: a vector per bucket.
class Model {
 public:
  explicit Model(size_t count) : buckets_(count) {}

  static size_t SizeFor(size_t n) {
    static const size_t kSizes[] = {29,    59,    127,   257,    521,    1049,  2099,
                                    4201,  8419,  16843, 33703,  67409,  134837};
    for (size_t s : kSizes)
      if (s >= n) return s;
    return 0;
  }
  size_t BucketCount() const { return buckets_.size(); }
  size_t Size() const { return size_; }
  bool Contains(const Key *k) const {
    const auto &chain = buckets_[k->hash % buckets_.size()];
    for (const Key *c : chain)
      if (c == k) return true;
    return false;
  }
  // Appends k; grows when the load passes 2 and no iterator is live.
  void Insert(const Key *k, int liveIters) {
    buckets_[k->hash % buckets_.size()].push_back(k);
    size_++;
    if (size_ > 2 * buckets_.size() && liveIters == 0) Grow();
  }
  void Remove(const Key *k) {
    auto &chain = buckets_[k->hash % buckets_.size()];
    for (size_t i = 0; i < chain.size(); i++) {
      if (chain[i] == k) {
        chain.erase(chain.begin() + static_cast<long>(i));
        size_--;
        return;
      }
    }
  }
  std::vector<int> Walk() const {
    std::vector<int> ids;
    for (const auto &chain : buckets_)
      for (const Key *k : chain) ids.push_back(k->id);
    return ids;
  }
  // The item after k in walk order, or null at the end.
  const Key *After(const Key *k) const {
    size_t b = k->hash % buckets_.size();
    const auto &chain = buckets_[b];
    for (size_t i = 0; i + 1 < chain.size(); i++)
      if (chain[i] == k) return chain[i + 1];
    for (b++; b < buckets_.size(); b++)
      if (!buckets_[b].empty()) return buckets_[b].front();
    return nullptr;
  }
  const Key *First() const {
    for (const auto &chain : buckets_)
      if (!chain.empty()) return chain.front();
    return nullptr;
  }
  Model Clone() const {
    Model copy(SizeFor(size_));
    for (const auto &chain : buckets_)
      for (const Key *k : chain) copy.Insert(k, 0);
    return copy;
  }

 private:
  void Grow() {
    std::vector<std::vector<const Key *>> grown(SizeFor(size_));
    for (const auto &chain : buckets_)
      for (const Key *k : chain) {
        auto &target = grown[k->hash % grown.size()];
        target.insert(target.begin(), k);
      }
    buckets_.swap(grown);
  }
  std::vector<std::vector<const Key *>> buckets_;
  size_t size_ = 0;
};

struct LiveIter {
  HTIter_PT real;
  const Key *at;  // the model's position
};

int g_randomDeletes = 0;
void CountDelete(void *) { g_randomDeletes++; }

void RunRandomized(uint32_t seed) {
  std::mt19937 rng(seed);
  auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
  // Keys: some with full 32-bit hashes, many crowded into few hashes.
  std::vector<Key> keys(900);
  for (size_t i = 0; i < keys.size(); i++) {
    keys[i].id = static_cast<int>(i);
    keys[i].hash = pick(3) == 0 ? static_cast<uint32_t>(rng()) : pick(400);
  }
  g_randomDeletes = 0;
  int expectedDeletes = 0;
  HT_PT ht = HT_New(0, KeyHash, KeyCompare, CountDelete, nullptr, ClonePointer, ClonePointer);
  Model model(29);
  std::vector<LiveIter> iters;

  auto checkIter = [&](const LiveIter &li) {
    if (li.at == nullptr) {
      ASSERT_EQ(li.real, HT_End(ht));
      return;
    }
    void *key = nullptr;
    ASSERT_EQ(HTIter_GetValue(li.real, &key, nullptr), 1);
    ASSERT_EQ(static_cast<Key *>(key)->id, li.at->id);
  };
  auto underIter = [&](const Key *k) {
    for (const LiveIter &li : iters)
      if (li.at == k) return true;
    return false;
  };

  for (int step = 0; step < 12000; step++) {
    bool growing = (step / 3000) % 2 == 0;
    uint32_t op = pick(100);
    Key *k = &keys[pick(static_cast<uint32_t>(keys.size()))];
    if (op < (growing ? 55u : 30u)) {
      bool present = model.Contains(k);
      ASSERT_EQ(HT_InsertItem(ht, k, k), present ? 0 : 1) << "step " << step;
      if (!present) model.Insert(k, static_cast<int>(iters.size()));
    } else if (op < 85) {
      if (underIter(k)) continue;
      bool present = model.Contains(k);
      ASSERT_EQ(HT_RemoveItem(ht, k), present ? 1 : 0) << "step " << step;
      if (present) {
        model.Remove(k);
        expectedDeletes++;
      }
    } else if (op < 90 && iters.size() < 3) {
      LiveIter li{HT_Begin(ht), model.First()};
      if (li.at != nullptr) iters.push_back(li);
      checkIter(li);
    } else if (op < 96 && !iters.empty()) {
      size_t which = pick(static_cast<uint32_t>(iters.size()));
      LiveIter &li = iters[which];
      int steps = static_cast<int>(pick(4));
      if (pick(2) == 0) {
        HTIter_IncMultiple(&li.real, steps);
      } else {
        for (int s = 0; s < steps; s++) HTIter_Inc(&li.real);
      }
      for (int s = 0; s < steps && li.at != nullptr; s++) li.at = model.After(li.at);
      checkIter(li);
      if (li.at == nullptr) {
        iters.erase(iters.begin() + static_cast<long>(which));
      } else if (pick(4) == 0) {
        HTIter_Delete(li.real);
        iters.erase(iters.begin() + static_cast<long>(which));
      } else if (pick(4) == 0 && iters.size() < 3) {
        iters.push_back(LiveIter{HTIter_Copy(li.real), li.at});
      }
    } else if (op < 98) {
      HT_PT clone = HT_Clone(ht);
      Model modelClone = model.Clone();
      ASSERT_EQ(clone->numBuckets, modelClone.BucketCount()) << "step " << step;
      ASSERT_EQ(WalkIds(clone), modelClone.Walk()) << "clone at step " << step;
      if (iters.empty() && pick(2) == 0) {
        expectedDeletes += static_cast<int>(model.Size());
        HT_Delete(ht);
        ht = clone;
        model = modelClone;
      } else if (iters.empty()) {  // the table replaced in place by a clone of the clone
        expectedDeletes += static_cast<int>(model.Size() + modelClone.Size());
        Model again = modelClone.Clone();
        ht = HT_CloneInto(ht, clone);
        ASSERT_NE(ht, nullptr) << "step " << step;
        HT_Delete(clone);
        model = again;
      } else {
        expectedDeletes += static_cast<int>(modelClone.Size());
        HT_Delete(clone);
      }
    } else {
      ASSERT_EQ(WalkIds(ht), model.Walk()) << "step " << step;
    }
    ASSERT_EQ(ht->numBuckets, model.BucketCount()) << "step " << step;
    ASSERT_EQ(HT_GetSize(ht), static_cast<int>(model.Size()));
    ASSERT_EQ(HT_GetNumIters(ht), static_cast<int>(iters.size()));
    ASSERT_EQ(g_randomDeletes, expectedDeletes);
  }
  ASSERT_EQ(WalkIds(ht), model.Walk());
  for (LiveIter &li : iters) HTIter_Delete(li.real);
  HT_Delete(ht);
}

TEST(HashTableRandomized, MatchesTheModelThroughInsertsRemovesClonesAndWalks) {
  for (uint32_t seed : {1u, 2u, 3u, 20240607u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RunRandomized(seed);
    if (HasFatalFailure()) return;
  }
}

}  // namespace
