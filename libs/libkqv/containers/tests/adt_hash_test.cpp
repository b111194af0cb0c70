// Tests of the hash table: bucket counts and growth, the walk order through
// growth (buckets ascending, chains from head to tail, items that meet in a
// new bucket reversed), removal, iterators that end themselves or must be
// deleted, clones, the string callbacks, and the message of every bad
// argument.  Every walk is checked three ways: by iterator, by HT_ForEach
// and by HT_GetWalkPosition.  Lack of memory comes from a failing gen_alloc.
#include "adt_hash.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <functional>
#include <string>

#include "gen_capture.h"
#include "indgen_string.h"
#include "indgeninit.h"

using testsupport::RunCapturing;

namespace {

// A key whose hash the test chooses; equality is by id.
struct Key {
  uint32_t hash;
  int id;
};
uint32_t KeyHash(const void *key) { return static_cast<const Key *>(key)->hash; }
int g_compares = 0;
int KeyCompare(const void *stored, const void *key) {
  g_compares++;
  return static_cast<const Key *>(stored)->id != static_cast<const Key *>(key)->id;
}
std::string Id(const void *key) { return std::to_string(static_cast<const Key *>(key)->id); }
std::string g_deleted;  // the delete callbacks run: "k<id> o<id> "
void DeleteKey(void *key) { g_deleted += "k" + Id(key) + " "; }
void DeleteObj(void *obj) { g_deleted += "o" + Id(obj) + " "; }
int ClonePointer(const void *from, void **to) {
  *to = const_cast<void *>(from);
  return 1;
}
int g_allocsLeft = 0;  // for a gen_alloc that fails after that many calls
void *LimitedAlloc(unsigned count, unsigned size) { return g_allocsLeft-- > 0 ? calloc(count, size) : nullptr; }

// The ids of a walk, "0 30 1".  The walk must end itself, HT_ForEach must
// visit the same items and stop where told, and each walk position must
// follow the one before.
std::string Walk(HT_PT ht) {
  std::string ids, visited;
  const int iters = HT_GetNumIters(ht);
  uint32_t bucket = 0, depth = 0, lastBucket = 0, lastDepth = 0;
  for (HTIter_PT it = HT_Begin(ht); it != HT_End(ht); HTIter_Inc(&it)) {
    void *key = nullptr;
    EXPECT_EQ(HTIter_GetValue(it, &key, nullptr), 1);
    EXPECT_EQ(HT_GetWalkPosition(ht, key, &bucket, &depth), 1);
    EXPECT_TRUE(ids.empty() ? depth == 0 : (bucket > lastBucket && depth == 0) ||
                                               (bucket == lastBucket && depth == lastDepth + 1));
    ids += (ids.empty() ? "" : " ") + Id(key);
    lastBucket = bucket;
    lastDepth = depth;
  }
  EXPECT_EQ(HT_GetNumIters(ht), iters);
  const auto visit = [](void *key, void *, void *seen) {
    *static_cast<std::string *>(seen) += Id(key) + " ";
    return 1;
  };
  EXPECT_EQ(HT_ForEach(ht, visit, &visited), 1);
  EXPECT_EQ(visited, ids.empty() ? "" : ids + " ");
  int visits = 0;  // a visit that answers 0 stops the walk
  const auto stop = [](void *, void *, void *count) {
    ++*static_cast<int *>(count);
    return 0;
  };
  const int all = HT_ForEach(ht, stop, &visits);
  EXPECT_EQ(all + visits, 1);
  return ids;
}

std::string Ids(int from, int to) {
  std::string ids;
  for (int i = from; i <= to; i++) ids += (i == from ? "" : " ") + std::to_string(i);
  return ids;
}

// A table of Key items whose objects are the keys themselves.
class HashTest : public ::testing::Test {
 protected:
  void TearDown() override { HT_Delete(ht_); }
  void Make(uint32_t approx, DeleteFunc_PT keyDelete = nullptr, DeleteFunc_PT objDelete = nullptr) {
    HT_Delete(ht_);
    ht_ = HT_New(approx, KeyHash, KeyCompare, keyDelete, objDelete, ClonePointer, ClonePointer);
  }
  // Inserts keys of these hashes, each with its hash as id or the id given.
  void Insert(std::initializer_list<uint32_t> hashes, int id = -1, int expected = 1) {
    for (uint32_t h : hashes) {
      keys_.push_back(Key{h, id < 0 ? static_cast<int>(h) : id});
      ASSERT_EQ(HT_InsertItem(ht_, &keys_.back(), &keys_.back()), expected) << h;
    }
  }
  void InsertRange(uint32_t from, uint32_t to) {
    for (uint32_t h = from; h <= to; h++) Insert({h});
  }
  int Remove(uint32_t hash, int id = -1) {
    const Key probe{hash, id < 0 ? static_cast<int>(hash) : id};
    return HT_RemoveItem(ht_, &probe);
  }

  HT_PT ht_ = nullptr;
  std::deque<Key> keys_;
};

TEST_F(HashTest, BucketCountsGrowPastTwiceTheBucketsUnlessAnIteratorIsLive) {
  for (auto [approx, buckets] : {std::pair{0u, 29u}, {29u, 29u}, {30u, 59u}, {4202u, 8419u}}) {
    Make(approx);
    EXPECT_EQ(ht_->numBuckets, buckets) << approx;
  }
  gen_alloc_func saved = gen_alloc;
  gen_alloc = LimitedAlloc;
  g_allocsLeft = 1;  // the last entry is asked of gen_alloc (and refused here); one more is too big
  EXPECT_EQ(RunCapturing([] {
              EXPECT_EQ(HT_New(1104691373u, KeyHash, KeyCompare, 0, 0, 0, 0), nullptr);
              EXPECT_EQ(HT_New(1104691374u, KeyHash, KeyCompare, 0, 0, 0, 0), nullptr);
            }).err, "Out of memory in HT_New()\napproxSize far too big in HT_New()\n");
  gen_alloc = saved;
  Make(0);
  InsertRange(1, 58);
  HTIter_PT it = HT_Begin(ht_);
  InsertRange(59, 59);
  EXPECT_EQ(ht_->numBuckets, 29u);  // held back by the live iterator
  HTIter_Delete(it);
  InsertRange(60, 118);
  EXPECT_EQ(ht_->numBuckets, 127u);
  Make(0);
  InsertRange(1, 59);
  EXPECT_EQ(ht_->numBuckets, 59u);
  InsertRange(60, 118);
  EXPECT_EQ(ht_->numBuckets, 59u);
  // In 29 buckets 0 and 1711 walk in bucket 0, then 59, 118, 177 in buckets
  // 1 to 3; all five meet in bucket 0 of 59 and land there reversed.  Later
  // items go to the tail again.
  Make(0);
  InsertRange(1, 54);
  Insert({177, 0, 59, 1711, 118, 236});
  EXPECT_EQ(Walk(ht_), "177 118 59 1711 0 236 " + Ids(1, 54));
}

TEST_F(HashTest, WalkGoesByBucketThenChainAndRemovalKeepsTheOrder) {
  Make(0, DeleteKey, DeleteObj);
  Insert({0xFFFFFFFFu}, 100);  // bucket 15 of 29; as a signed number no bucket at all
  Insert({0x80000000u}, 101);  // bucket 8
  Insert({30, 1, 59, 0, 15});
  EXPECT_EQ(Walk(ht_), "0 30 1 59 101 100 15");
  g_deleted.clear();
  EXPECT_EQ(Remove(0), 1);
  EXPECT_EQ(Remove(30), 1);
  EXPECT_EQ(Remove(99), 0);
  EXPECT_EQ(g_deleted, "k0 o0 k30 o30 ");  // key before object
  Insert({30});                              // to the tail of its chain
  EXPECT_EQ(Walk(ht_), "1 59 30 101 100 15");
  HT_Delete(ht_);  // in walk order
  ht_ = nullptr;
  EXPECT_EQ(g_deleted, "k0 o0 k30 o30 k1 o1 k59 o59 k30 o30 k101 o101 k100 o100 k15 o15 ");
}

TEST_F(HashTest, ItemsAreFoundByHashThenCompareAndDuplicatesRefused) {
  Make(0, DeleteKey, nullptr);
  Insert({0, 29});
  Insert({58}, 7);
  Insert({58}, 8);  // an equal hash, told apart by compare
  g_deleted.clear();
  Insert({58}, 7, 0);  // a duplicate: nothing changes, no callback runs
  EXPECT_EQ(HT_GetSize(ht_), 4);
  EXPECT_EQ(g_deleted, "");
  Key probe{58, 7};
  void *stored = nullptr, *object = nullptr;
  g_compares = 0;
  EXPECT_EQ(HT_FindItem(ht_, &probe, &stored, &object), 1);
  EXPECT_EQ(g_compares, 1);  // compare runs only on equal hashes
  EXPECT_EQ(stored, &keys_[2]);
  EXPECT_EQ(object, &keys_[2]);
  probe.id = 9;  // a miss sets the key to null and leaves the object
  EXPECT_EQ(HT_FindItem(ht_, &probe, &stored, &object) + HT_FindItem(ht_, &probe, 0, 0), 0);
  EXPECT_EQ(stored, nullptr);
  EXPECT_EQ(object, &keys_[2]);
}

TEST_F(HashTest, IteratorsEndThemselvesOrCountUntilDeleted) {
  Make(0);
  EXPECT_EQ(HT_Begin(ht_), HT_End(ht_));  // an empty table begins at the end
  Insert({1, 2, 3, 4});
  HTIter_PT it = HT_Begin(ht_);
  HTIter_IncMultiple(&it, 0);
  HTIter_IncMultiple(&it, -2);
  HTIter_IncMultiple(&it, 2);
  HTIter_PT copy = HTIter_Copy(it);  // a walk that stops early deletes its iterators
  EXPECT_NE(copy, it);
  EXPECT_EQ(HT_GetNumIters(ht_), 2);
  void *key = nullptr, *object = &it;
  HTIter_GetValue(copy, &key, nullptr);
  EXPECT_EQ(Id(key), "3");
  HTIter_Delete(copy);
  HTIter_IncMultiple(&it, 100);
  EXPECT_EQ(it, HT_End(ht_));
  EXPECT_EQ(HTIter_Copy(it), it);  // the end iterator is inert and never counted
  EXPECT_EQ(RunCapturing([&] {
              HTIter_Inc(&it);
              HTIter_IncMultiple(&it, 3);
              HTIter_Delete(it);
              EXPECT_EQ(HTIter_GetValue(it, &key, &object), 0);
            }).err, "");
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(object, &it);
  EXPECT_EQ(it, HT_End(ht_));
  EXPECT_EQ(HT_GetNumIters(ht_), 0);
}

TEST_F(HashTest, ClonesAndCloneIntoTakeTheirOwnBucketCountAndWalkOrder) {
  Make(100);  // 127 buckets: 1 and 29 walk as 1, 29; in the clone's 29 as 29, 1
  Insert({29, 1});
  HT_PT clone = HT_Clone(ht_);
  EXPECT_EQ(clone->numBuckets, 29u);
  EXPECT_EQ(Walk(clone), "29 1");
  HT_Delete(clone);
  InsertRange(2, 28);
  InsertRange(30, 40);
  Insert({59, 118});  // 42 items: a clone gets 59 buckets, 59 and 118 in bucket 0
  for (uint32_t dstSize : {0u, 300u}) {  // fewer and more buckets than the clone's 59
    HT_PT dst = HT_New(dstSize, KeyHash, KeyCompare, DeleteKey, DeleteObj, ClonePointer, ClonePointer);
    Key old[3] = {{30, -1}, {5, -2}, {2, -3}};  // buckets 1, 5, 2 of 29
    for (Key &k : old) HT_InsertItem(dst, &k, &k);
    g_deleted.clear();
    clone = HT_CloneInto(dst, ht_);
    EXPECT_EQ(clone, dst);  // the same records
    EXPECT_EQ(g_deleted, dstSize == 0 ? "k-1 o-1 k-3 o-3 k-2 o-2 " : "k-3 o-3 k-2 o-2 k-1 o-1 ");
    EXPECT_EQ(clone->numBuckets, 59u);
    EXPECT_EQ(Walk(clone), "59 118 " + Ids(1, 40));
    HT_Delete(clone);  // with the source's callbacks, which delete nothing
  }
  EXPECT_EQ(g_deleted, "k-3 o-3 k-2 o-2 k-1 o-1 ");
  clone = HT_Clone(ht_);
  EXPECT_EQ(Walk(clone), "59 118 " + Ids(1, 40));
  HT_Delete(clone);
  HT_PT plain = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(RunCapturing([&] { EXPECT_EQ(HT_Clone(plain), nullptr); }).err, "");
  HT_Delete(plain);
}

TEST(HashStrings, CallbacksHashAndCompareAndAFailingCloneFreesItsCopies) {
  EXPECT_EQ(HT_StringHashFunc("abc"), 0x187163u);
  EXPECT_EQ(HT_StringHashFunc("\xff\xfe\xfd\xfc\xfb"), 0xEFFF3EF4u);
  EXPECT_EQ(HT_StringHashFunc("") + HT_StringHashFunc(nullptr), 0u);
  EXPECT_EQ(HT_StringCompareFunc("x", "x") + HT_StringCompareFunc(nullptr, nullptr), 0);
  EXPECT_NE(HT_StringCompareFunc("x", "y"), 0);
  EXPECT_NE(HT_StringCompareFunc(nullptr, "x"), 0);
  HT_PT ht = HT_New(0, HT_StringHashFunc, HT_StringCompareFunc, HT_StringDeleteFunc,
                    HT_StringDeleteFunc, HT_StringCloneFunc, HT_StringCloneFunc);
  HT_InsertItem(ht, gen_copy("a"), gen_copy("1"));
  HT_InsertItem(ht, gen_copy("b"), gen_copy("2"));
  gen_alloc_func saved = gen_alloc;
  gen_alloc = LimitedAlloc;
  g_allocsLeft = 5;  // table, buckets, iterator, key and object of "a"; not its link
  EXPECT_EQ(RunCapturing([&] { EXPECT_EQ(HT_Clone(ht), nullptr); }).err,
            "Out of memory in HT_InsertItem()\n");
  gen_alloc = saved;
  EXPECT_EQ(HT_GetNumIters(ht), 0);  // the partial copy and the iterator are gone
  HT_Delete(ht);
}

TEST(HashErrors, BadTablesAndIteratorsAreReportedByName) {
  HT_Tag noBuckets{};
  HTIter_Tag orphan{};
  HTIter_PT nullIter = nullptr, orphanP = &orphan, leaked = nullptr;
  Key key{1, 1};
  for (HT_PT bad : {static_cast<HT_PT>(nullptr), &noBuckets}) {
    const std::pair<std::function<void()>, const char *> rows[] = {
        {[&] { EXPECT_EQ(HT_GetSize(bad), -1); }, "HT_GetSize() called on NULL or invalid HT_PT\n"},
        {[&] { EXPECT_EQ(HT_InsertItem(bad, &key, &key), 0); }, "HT_InsertItem() called on NULL or invalid HT_PT\n"},
        {[&] { EXPECT_EQ(HT_RemoveItem(bad, &key), 0); }, "HT_RemoveItem() called with NULL or invalid HT_PT\n"},
        {[&] { EXPECT_EQ(HT_FindItem(bad, &key, 0, 0), 0); }, "HT_FindItem() called with NULL or invalid HT_PT\n"},
        {[&] { EXPECT_EQ(HT_Begin(bad), nullptr); }, "HT_Begin() called with NULL or invalid HT_PT\n"},
        {[&] { EXPECT_EQ(HT_End(bad), nullptr); }, "HT_End() called on NULL or invalid HT_PT\n"},
        {[&] { EXPECT_EQ(HT_GetNumIters(bad), -1); }, "HT_GetNumIters() called with NULL or invalid HT_PT\n"},
        {[&] { EXPECT_EQ(HT_ForEach(bad, [](void *, void *, void *) { return 1; }, nullptr), 0); },
         "HT_ForEach() called with NULL or invalid HT_PT or VisitFunc_PT\n"},
        {[&] { EXPECT_EQ(HT_GetWalkPosition(bad, &key, 0, 0), 0); },
         "HT_GetWalkPosition() called with NULL or invalid HT_PT\n"},
        {[&] { HT_Delete(bad); }, bad == nullptr ? "" : "HT_Delete() called on NULL or invalid HT_PT\n"},
    };
    for (const auto &[call, message] : rows) EXPECT_EQ(RunCapturing(call).err, message);
  }
  const std::pair<std::function<void()>, const char *> rows[] = {
      {[&] { HTIter_Inc(nullptr); }, "HTIter_Inc called with NULL HTIter_PT *\n"},
      {[&] { HTIter_Inc(&nullIter); }, "HTIter_Inc called with NULL or invalid *(HTIter_PT *)\n"},
      {[&] { HTIter_IncMultiple(nullptr, 1); }, "HTIter_IncMultiple called with NULL HTIter_PT *\n"},
      {[&] { HTIter_IncMultiple(&orphanP, 1); }, "HTIter_IncMultiple called with NULL or invalid *(HTIter_PT *)\n"},
      {[&] { EXPECT_EQ(HTIter_Copy(&orphan), nullptr); }, "HTIter_Copy() called with NULL or invalid HTIter_PT\n"},
      {[&] { HTIter_Delete(nullptr); }, "HTIter_Delete() called with NULL or invalid HTIter_PT\n"},
      {[&] { EXPECT_EQ(HTIter_GetValue(&orphan, 0, 0), 0); }, "HTIter_GetValue() called with NULL or invalid HTIter_PT\n"},
      {[&] { EXPECT_EQ(HT_New(0, nullptr, KeyCompare, 0, 0, 0, 0), nullptr); }, "HashFunc_PT NULL in HT_New()\n"},
      {[&] { EXPECT_EQ(HT_New(0, KeyHash, nullptr, 0, 0, 0, 0), nullptr); }, "CompareFunc_PT NULL in HT_New()\n"},
      {[&] {
         HT_PT made = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, ClonePointer);
         EXPECT_EQ(HT_Clone(made), nullptr);  // the lone clone function was dropped
         HT_Delete(made);
       }, "No point to providing only one of keyCloneFuncP, objectCloneFuncP\n"},
      {[&] {
         HT_PT made = HT_New(0, KeyHash, KeyCompare, nullptr, nullptr, nullptr, nullptr);
         HT_InsertItem(made, &key, &key);
         leaked = HT_Begin(made);  // live when the table is deleted
         HT_Delete(made);
       }, "Memory leak in HT_Delete(): HT_Delete() called on HT_PT with active iterators\n"},
  };
  for (const auto &[call, message] : rows) EXPECT_EQ(RunCapturing(call).err, message);
  gen_free(leaked);  // it outlived its table, which the message is about
}

}  // namespace
