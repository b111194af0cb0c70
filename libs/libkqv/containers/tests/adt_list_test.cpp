// Tests of the list: pushes, pops and peeks at both ends, walks in both
// directions with iterators that end themselves or re-enter from an end,
// deletion and insertion beside iterators, clearing, cloning, and every
// message for bad arguments and lack of memory.
#include "adt_list.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "indgeninit.h"

using testsupport::RunCapturing;

namespace {

// ---- Vocabulary --------------------------------------------------------

// Values are small numbers carried in the pointer.
void *V(int n) { return reinterpret_cast<void *>(static_cast<uintptr_t>(n)); }
int N(void *value) { return static_cast<int>(reinterpret_cast<uintptr_t>(value)); }

using Ints = std::vector<int>;

std::vector<int> g_deleted;  // values passed to RecordDelete, in order
void RecordDelete(void *value) { g_deleted.push_back(N(value)); }
// Copies n as n + 100; refuses the value 3.
int ClonePlus100(const void *value, void **copy) {
  int n = N(const_cast<void *>(value));
  if (n == 3) return 0;
  *copy = V(n + 100);
  return 1;
}

// A list of numbers with a recording delete callback.
class ListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_deleted.clear();
    list_ = List_New(RecordDelete, nullptr);
  }
  void TearDown() override {
    if (list_ != nullptr) List_Delete(list_);
  }
  void PushBack(std::initializer_list<int> values) {
    for (int n : values) ASSERT_EQ(List_Push(list_, V(n), 1), 1);
  }
  // The values seen by a full walk towards `towards`; the walk must end
  // itself and leave the iterator count as it was.
  std::vector<int> Walk(int towards) {
    std::vector<int> seen;
    int iters = List_GetNumIters(list_);
    ListIter_PT it = List_Begin(list_, 1 - towards);
    for (; it != List_End(list_, towards); ListIter_Next(&it, towards)) {
      void *value = nullptr;
      EXPECT_EQ(ListIter_GetValue(it, &value), 1);
      seen.push_back(N(value));
    }
    EXPECT_EQ(List_GetNumIters(list_), iters);
    return seen;
  }
  // Front-to-back contents, checked against the back-to-front links, the
  // ends and the element count.
  std::vector<int> Contents() {
    std::vector<int> forward = Walk(1);
    std::vector<int> backward = Walk(0);
    EXPECT_EQ(std::vector<int>(backward.rbegin(), backward.rend()), forward);
    EXPECT_EQ(List_GetSize(list_), static_cast<int>(forward.size()));
    EXPECT_EQ(list_->ends[0] == nullptr, forward.empty());
    EXPECT_EQ(list_->ends[1] == nullptr, forward.empty());
    return forward;
  }
  List_PT list_ = nullptr;
};

// gen_alloc that lets `allowed` calls through, then returns null.
int g_allocsLeft = 0;
void *LimitedAlloc(unsigned count, unsigned size) {
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

// ---- Ends ------------------------------------------------------------------

TEST_F(ListTest, PushAtEitherEndAndPeekInward) {
  PushBack({2, 3});
  List_Push(list_, V(1), 0);
  EXPECT_EQ(Contents(), (Ints{1, 2, 3}));
  void *v = nullptr;
  for (int e = 0; e < 2; e++) {
    void *peeked = nullptr;
    EXPECT_EQ(List_PeekEnd(list_, &peeked, e), 1);
    EXPECT_EQ(List_PeekNFromEnd(list_, 0, &v, e), 1);
    EXPECT_EQ(v, peeked);
  }
  EXPECT_EQ(List_PeekNFromEnd(list_, 2, &v, 0), 1);
  EXPECT_EQ(N(v), 3);
  EXPECT_EQ(List_PeekNFromEnd(list_, 1, &v, 1), 1);
  EXPECT_EQ(N(v), 2);
  v = V(77);
  EXPECT_EQ(List_PeekNFromEnd(list_, 3, &v, 0), 0);
  EXPECT_EQ(N(v), 77);
}

TEST_F(ListTest, PopHandsTheValueOverWithoutDeletingIt) {
  PushBack({1, 2, 3});
  void *v = nullptr;
  EXPECT_EQ(List_Pop(list_, &v, 1), 1);
  EXPECT_EQ(N(v), 3);
  EXPECT_EQ(List_Pop(list_, &v, 0), 1);
  EXPECT_EQ(N(v), 1);
  EXPECT_EQ(Contents(), (Ints{2}));
  EXPECT_TRUE(g_deleted.empty());
}

TEST_F(ListTest, PoppingTheOnlyElementEmptiesBothEndsFromEitherSide) {
  for (int e = 0; e < 2; e++) {
    PushBack({9});
    void *v = nullptr;
    EXPECT_EQ(List_Pop(list_, &v, e), 1);
    EXPECT_EQ(list_->ends[0], nullptr);
    EXPECT_EQ(list_->ends[1], nullptr);
    EXPECT_EQ(List_GetSize(list_), 0);
  }
}

TEST_F(ListTest, EmptyListAnswersZeroSilently) {
  auto out = RunCapturing([&] {
    void *v = V(5);
    EXPECT_EQ(List_Pop(list_, &v, 0), 0);
    EXPECT_EQ(List_PeekEnd(list_, &v, 1), 0);
    EXPECT_EQ(List_PeekNFromEnd(list_, 0, &v, 0), 0);
    EXPECT_EQ(N(v), 5);
  });
  EXPECT_EQ(out.err, "");
}

// ---- Walks -------------------------------------------------------------------

TEST_F(ListTest, WalksFromEitherEndEndThemselves) {
  PushBack({1, 2, 3});
  EXPECT_EQ(Walk(1), (Ints{1, 2, 3}));
  EXPECT_EQ(Walk(0), (Ints{3, 2, 1}));
  ListIter_PT it = List_Begin(list_, 0);
  ListIter_Next(&it, 1);
  ListIter_Next(&it, 1);
  ListIter_Next(&it, 1);
  EXPECT_EQ(it, List_End(list_, 1));
  EXPECT_EQ(List_GetNumIters(list_), 0);
}

TEST_F(ListTest, EmptyListBeginsAtTheOppositeEnd) {
  EXPECT_EQ(List_Begin(list_, 0), List_End(list_, 1));
  EXPECT_EQ(List_Begin(list_, 1), List_End(list_, 0));
  EXPECT_EQ(List_GetNumIters(list_), 0);
  ListIter_PT it = List_End(list_, 1);
  ListIter_Next(&it, 0);  // re-entering an empty list passes straight through
  EXPECT_EQ(it, List_End(list_, 0));
  EXPECT_EQ(List_GetNumIters(list_), 0);
}

TEST_F(ListTest, AbandonedWalkCountsUntilDeleted) {
  PushBack({1, 2});
  ListIter_PT it = List_Begin(list_, 0);
  ListIter_PT copy = ListIter_Copy(it);
  EXPECT_NE(copy, it);
  EXPECT_EQ(List_GetNumIters(list_), 2);
  ListIter_Next(&copy, 1);
  void *v = nullptr;
  ListIter_GetValue(copy, &v);
  EXPECT_EQ(N(v), 2);
  ListIter_GetValue(it, &v);
  EXPECT_EQ(N(v), 1);
  ListIter_Delete(it);
  ListIter_Delete(copy);
  EXPECT_EQ(List_GetNumIters(list_), 0);
}

TEST_F(ListTest, EndIteratorReentersOnlyTowardsTheList) {
  PushBack({1, 2});
  ListIter_PT it = List_End(list_, 1);
  auto out = RunCapturing([&] { ListIter_Next(&it, 1); });
  EXPECT_EQ(out.err, "");
  EXPECT_EQ(it, List_End(list_, 1));
  ListIter_Next(&it, 0);
  EXPECT_EQ(List_GetNumIters(list_), 1);
  void *v = nullptr;
  ASSERT_EQ(ListIter_GetValue(it, &v), 1);
  EXPECT_EQ(N(v), 2);
  ListIter_Next(&it, 0);
  ListIter_Next(&it, 0);
  EXPECT_EQ(it, List_End(list_, 0));
  ListIter_Next(&it, 1);  // and back in at the front
  ASSERT_EQ(ListIter_GetValue(it, &v), 1);
  EXPECT_EQ(N(v), 1);
  ListIter_Delete(it);
  EXPECT_EQ(List_GetNumIters(list_), 0);
}

TEST_F(ListTest, EndIteratorsAreInertHandles) {
  PushBack({1});
  auto out = RunCapturing([&] {
    for (int e = 0; e < 2; e++) {
      ListIter_PT end = List_End(list_, e);
      EXPECT_EQ(ListIter_Copy(end), end);
      void *v = V(5);
      EXPECT_EQ(ListIter_GetValue(end, &v), 0);
      EXPECT_EQ(N(v), 5);
      ListIter_Delete(end);
      EXPECT_EQ(ListIter_DelCurNext(&end, 1 - e), 0);
      EXPECT_EQ(end, List_End(list_, e));
    }
  });
  EXPECT_EQ(out.err, "");
  EXPECT_EQ(List_GetNumIters(list_), 0);
  EXPECT_EQ(Contents(), (Ints{1}));
}

// ---- Deleting and inserting beside an iterator -------------------------------

TEST_F(ListTest, DelCurNextDeletesAndMovesOn) {
  PushBack({1, 2, 3, 4});
  ListIter_PT it = List_Begin(list_, 0);
  ListIter_Next(&it, 1);  // on 2
  EXPECT_EQ(ListIter_DelCurNext(&it, 1), 1);
  void *v = nullptr;
  ListIter_GetValue(it, &v);
  EXPECT_EQ(N(v), 3);
  EXPECT_EQ(ListIter_DelCurNext(&it, 0), 1);  // deletes 3, back to 1
  ListIter_GetValue(it, &v);
  EXPECT_EQ(N(v), 1);
  EXPECT_EQ(g_deleted, (Ints{2, 3}));
  ListIter_Delete(it);
  EXPECT_EQ(Contents(), (Ints{1, 4}));
}

TEST_F(ListTest, DelCurNextAtTheLastElementEndsTheIterator) {
  PushBack({1, 2, 3});
  for (int e = 0; e < 2; e++) {
    // Walk towards end e until standing on its last element.
    ListIter_PT it = List_Begin(list_, 1 - e);
    while (list_->ends[e] != it->elem) ListIter_Next(&it, e);
    EXPECT_EQ(ListIter_DelCurNext(&it, e), 1);
    EXPECT_EQ(it, List_End(list_, e));
    EXPECT_EQ(List_GetNumIters(list_), 0);
  }
  EXPECT_EQ(g_deleted, (Ints{1, 3}));
  ASSERT_EQ(list_->ends[0], list_->ends[1]);
  EXPECT_EQ(Contents(), (Ints{2}));
}

TEST_F(ListTest, DelCurNextOnTheOnlyElementEmptiesTheList) {
  PushBack({7});
  ListIter_PT it = List_Begin(list_, 0);
  EXPECT_EQ(ListIter_DelCurNext(&it, 1), 1);
  EXPECT_EQ(it, List_End(list_, 1));
  EXPECT_EQ(list_->ends[0], nullptr);
  EXPECT_EQ(list_->ends[1], nullptr);
  EXPECT_EQ(List_GetSize(list_), 0);
  EXPECT_EQ(List_GetNumIters(list_), 0);
}

TEST_F(ListTest, InsBesideElementsKeepsTheIteratorInPlace) {
  PushBack({2, 4});
  ListIter_PT it = List_Begin(list_, 1);  // on 4, the back
  EXPECT_EQ(ListIter_InsBeside(it, V(5), 1), 1);
  EXPECT_EQ(ListIter_InsBeside(it, V(3), 0), 1);
  EXPECT_EQ(list_->ends[1]->value, V(5));
  ListIter_Next(&it, 0);
  ListIter_Next(&it, 0);  // on 2, the front
  EXPECT_EQ(ListIter_InsBeside(it, V(1), 0), 1);
  void *v = nullptr;
  ListIter_GetValue(it, &v);
  EXPECT_EQ(N(v), 2);
  ListIter_Delete(it);
  EXPECT_EQ(Contents(), (Ints{1, 2, 3, 4, 5}));
}

TEST_F(ListTest, InsBesideEndIteratorsPushesOrRefuses) {
  PushBack({2});
  EXPECT_EQ(ListIter_InsBeside(List_End(list_, 1), V(3), 0), 1);
  EXPECT_EQ(ListIter_InsBeside(List_End(list_, 0), V(1), 1), 1);
  EXPECT_EQ(Contents(), (Ints{1, 2, 3}));
  auto out = RunCapturing([&] {
    EXPECT_EQ(ListIter_InsBeside(List_End(list_, 0), V(0), 0), 0);
    EXPECT_EQ(ListIter_InsBeside(List_End(list_, 1), V(4), 1), 0);
  });
  EXPECT_EQ(out.err,
            "ListIter_InsBeside() told to insert item before a ListIter_PT which references one "
            "before the beginning of the list - invalid\n"
            "ListIter_InsBeside() told to insert item after a ListIter_PT which references one "
            "after the end of the list - invalid\n");
  EXPECT_EQ(Contents(), (Ints{1, 2, 3}));
}

// ---- Clearing and cloning --------------------------------------------------------

TEST_F(ListTest, ClearWithLiveIteratorsWarnsEveryTime) {
  PushBack({1, 2, 3});
  ListIter_PT it = List_Begin(list_, 0);
  auto out = RunCapturing([&] {
    List_Clear(list_);
    List_Clear(list_);
  });
  const std::string leak = "Memory Leak: List with active iterators cleared in List_Clear()\n";
  EXPECT_EQ(out.err, leak + leak);
  EXPECT_EQ(g_deleted, (Ints{1, 2, 3}));
  EXPECT_EQ(List_GetSize(list_), 0);
  EXPECT_EQ(List_GetNumIters(list_), 1);
  ListIter_Delete(it);  // its element is gone, but the record is still ours
  EXPECT_EQ(List_GetNumIters(list_), 0);
}

TEST_F(ListTest, CloneWithoutCloneFuncSharesTheValues) {
  PushBack({1, 2, 3});
  List_PT copy = List_Clone(list_);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->deleteFunc, list_->deleteFunc);
  void *v = nullptr;
  for (int n = 0; n < 3; n++) {
    EXPECT_EQ(List_PeekNFromEnd(copy, n, &v, 0), 1);
    EXPECT_EQ(N(v), n + 1);
  }
  EXPECT_EQ(List_GetSize(copy), 3);
  List_Delete(copy);
}

TEST_F(ListTest, CloneThroughCloneFuncCopiesInOrderOrFailsWhole) {
  List_PT source = List_New(RecordDelete, ClonePlus100);
  for (int n : {1, 2, 4}) List_Push(source, V(n), 1);
  List_PT copy = List_Clone(source);
  ASSERT_NE(copy, nullptr);
  void *v = nullptr;
  List_PeekEnd(copy, &v, 0);
  EXPECT_EQ(N(v), 101);
  List_PeekEnd(copy, &v, 1);
  EXPECT_EQ(N(v), 104);
  List_Delete(copy);
  EXPECT_EQ(g_deleted, (Ints{101, 102, 104}));

  g_deleted.clear();
  List_Push(source, V(3), 1);  // refused by the clone callback
  auto out = RunCapturing([&] { EXPECT_EQ(List_Clone(source), nullptr); });
  EXPECT_EQ(out.err, "Out of memory in cloneFunc called by List_Clone\n");
  EXPECT_EQ(g_deleted, (Ints{101, 102, 104}));  // the partial copy is deleted
  List_Delete(source);
}

// ---- Bad arguments and out of memory -------------------------------------------

TEST(ListErrors, BadWhichEndIsCheckedFirst) {
  auto out = RunCapturing([] {
    void *v = nullptr;
    ListIter_PT it = nullptr;
    EXPECT_EQ(List_Push(nullptr, v, 2), 0);
    EXPECT_EQ(List_Pop(nullptr, &v, -1), 0);
    EXPECT_EQ(List_PeekEnd(nullptr, &v, 2), 0);
    EXPECT_EQ(List_PeekNFromEnd(nullptr, 0, &v, 2), 0);
    EXPECT_EQ(List_Begin(nullptr, 2), nullptr);
    EXPECT_EQ(List_End(nullptr, 2), nullptr);
    ListIter_Next(nullptr, 2);
    EXPECT_EQ(ListIter_DelCurNext(&it, 2), 0);
    EXPECT_EQ(ListIter_InsBeside(nullptr, v, 2), 0);
  });
  EXPECT_EQ(out.err,
            "Called List_Push() with !(whichEnd in {0,1})\n"
            "Called List_Pop() with !(whichEnd in {0,1})\n"
            "Called List_PeekEnd() with !(whichEnd in {0,1})\n"
            "Called List_PeekNFromEnd() with !(whichEnd in {0,1})\n"
            "Called List_Begin() with !(whichEnd in {0,1})\n"
            "Called List_End() with !(whichEnd in {0,1})\n"
            "Called ListIter_Next() with !(whichEnd in {0,1})\n"
            "Called ListIter_DelCurNext() with !(whichEnd in {0,1})\n"
            "Called ListIter_InsBeside() with !(whichEnd in {0,1})\n");
}

TEST(ListErrors, NullListsAndIteratorsAreReportedByName) {
  auto out = RunCapturing([] {
    void *v = nullptr;
    ListIter_PT nullIter = nullptr;
    List_Clear(nullptr);
    List_Delete(nullptr);
    EXPECT_EQ(List_Clone(nullptr), nullptr);
    EXPECT_EQ(List_GetSize(nullptr), -1);
    EXPECT_EQ(List_GetNumEles(nullptr), -1);
    EXPECT_EQ(List_GetNumIters(nullptr), -1);
    EXPECT_EQ(List_Push(nullptr, v, 0), 0);
    EXPECT_EQ(List_Pop(nullptr, &v, 0), 0);
    EXPECT_EQ(List_PeekEnd(nullptr, &v, 1), 0);
    EXPECT_EQ(List_PeekNFromEnd(nullptr, 0, &v, 1), 0);
    EXPECT_EQ(List_Begin(nullptr, 0), nullptr);
    EXPECT_EQ(List_End(nullptr, 1), nullptr);
    ListIter_Next(nullptr, 1);
    ListIter_Next(&nullIter, 1);
    EXPECT_EQ(ListIter_Copy(nullptr), nullptr);
    ListIter_Delete(nullptr);
    EXPECT_EQ(ListIter_GetValue(nullptr, &v), 0);
    EXPECT_EQ(ListIter_DelCurNext(nullptr, 0), 0);
    EXPECT_EQ(ListIter_DelCurNext(&nullIter, 0), 0);
    EXPECT_EQ(ListIter_InsBeside(nullptr, v, 0), 0);
  });
  EXPECT_EQ(out.err,
            "Tried to List_Clear() on NULL List_PT\n"
            "Tried to List_Delete() on NULL List_PT\n"
            "Tried to List_Clone() on NULL List_PT\n"
            "Tried to List_GetSize() on NULL List_PT\n"
            "List_GetNumEles() called on NULL List_PT\n"
            "List_GetNumIters() called on NULL List_PT\n"
            "Tried to List_Push() on NULL List_PT\n"
            "Tried to List_Pop() on NULL List_PT\n"
            "Tried to List_PeekEnd() on NULL List_PT\n"
            "Tried to List_PeekNFromEnd() on NULL List_PT\n"
            "Tried to List_Begin() on NULL List_PT\n"
            "Tried to List_End() on NULL List_PT\n"
            "Tried to ListIter_Next() on NULL ListIter_PT *\n"
            "Tried to ListIter_Next() on NULL *(ListIter_PT *)\n"
            "Tried to ListIter_Copy() on NULL ListIter_PT\n"
            "ListIter_Delete() called on NULL ListIter_PT\n"
            "ListIter_GetValue() called on NULL ListIter_PT\n"
            "ListIter_DelCurNext() called with NULL ListIter_PT *\n"
            "ListIter_DelCurNext() called with NULL *(ListIter_PT *)\n"
            "ListIter_InsBeside() called on NULL ListIter_PT\n");
}

TEST(ListErrors, InvalidIteratorsAreReportedByName) {
  List_PT list = List_New(nullptr, nullptr);
  List_Push(list, V(1), 1);
  ListIter_Tag noList{nullptr, list->ends[0]};
  ListIter_Tag noElem{list, nullptr};
  auto out = RunCapturing([&] {
    void *v = nullptr;
    ListIter_PT it = &noList;
    ListIter_Next(&it, 1);
    EXPECT_EQ(ListIter_Copy(&noElem), nullptr);
    ListIter_Delete(&noList);
    EXPECT_EQ(ListIter_GetValue(&noElem, &v), 0);
    it = &noElem;
    EXPECT_EQ(ListIter_DelCurNext(&it, 1), 0);
    EXPECT_EQ(ListIter_InsBeside(&noList, v, 1), 0);
    EXPECT_EQ(ListIter_InsBeside(&noElem, v, 1), 0);
  });
  EXPECT_EQ(out.err,
            "ListIter_Next() called on invalid ListIter_PT *\n"
            "ListIter_Copy() called on invalid ListIter_PT\n"
            "ListIter_Delete() called on invalid ListIter_PT\n"
            "ListIter_GetValue() called on invalid ListIter_PT\n"
            "ListIter_DelCurNext() called with invalid *(ListIter_PT *)"
            "ListIter_InsBeside() called on invalid ListIter_PT\n"
            "ListIter_InsBeside() called with invalid ListIter_PT\n");
  EXPECT_EQ(List_GetSize(list), 1);
  EXPECT_EQ(List_GetNumIters(list), 0);
  List_Delete(list);
}

TEST(ListErrors, OutOfMemoryIsReportedAndChangesNothing) {
  List_PT list = List_New(nullptr, nullptr);
  List_Push(list, V(1), 1);
  ListIter_PT it = List_Begin(list, 0);
  auto out = RunCapturing([&] {
    ScopedFailingAlloc fail(0);
    EXPECT_EQ(List_New(nullptr, nullptr), nullptr);
    EXPECT_EQ(List_Push(list, V(2), 1), 0);
    EXPECT_EQ(List_Begin(list, 0), nullptr);
    EXPECT_EQ(ListIter_Copy(it), nullptr);
    EXPECT_EQ(ListIter_InsBeside(it, V(2), 1), 0);
  });
  EXPECT_EQ(out.err,
            "Out of memory in List_New()\n"
            "Out of memory in List_Push()\n"
            "Out of memory in List_Begin()\n"
            "Out of memory in ListIter_Copy()\n"
            "Out of memory in ListIter_InsBeside()\n");
  EXPECT_EQ(List_GetSize(list), 1);
  EXPECT_EQ(List_GetNumIters(list), 1);
  ListIter_Delete(it);
  List_Delete(list);
}

TEST(ListErrors, CloneOutOfMemoryDeletesThePartialCopyButNotSharedValues) {
  g_deleted.clear();
  List_PT list = List_New(RecordDelete, nullptr);
  for (int n : {1, 2, 3}) List_Push(list, V(n), 1);
  auto out = RunCapturing([&] {
    ScopedFailingAlloc fail(3);  // the list and two elements
    EXPECT_EQ(List_Clone(list), nullptr);
  });
  EXPECT_EQ(out.err, "Out of memory in List_Clone()\n");
  EXPECT_TRUE(g_deleted.empty());
  List_Delete(list);
  EXPECT_EQ(g_deleted, (Ints{1, 2, 3}));
}

}  // namespace
