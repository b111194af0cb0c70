// Tests of the list: both ends, walks both ways with iterators that end
// themselves, re-enter from an end or must be deleted, deletion and
// insertion beside an iterator, clearing with live iterators, cloning, and
// the message of every bad argument.  Contents() checks the links both
// ways, the ends and the count after each change.
#include "adt_list.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

#include "gen_capture.h"
#include "indgeninit.h"

using testsupport::RunCapturing;

namespace {

// Values are small numbers carried in the pointer.
void *V(int n) { return reinterpret_cast<void *>(static_cast<intptr_t>(n)); }
int N(const void *value) { return static_cast<int>(reinterpret_cast<intptr_t>(value)); }
std::string g_deleted;  // values passed to RecordDelete: "1 2 "
void RecordDelete(void *value) { g_deleted += std::to_string(N(value)) + " "; }

// The values of a walk towards end `towards`, "1 2 3"; the walk must end itself.
std::string Walk(List_PT list, int towards) {
  std::string seen;
  const int iters = List_GetNumIters(list);
  for (ListIter_PT it = List_Begin(list, 1 - towards); it != List_End(list, towards);
       ListIter_Next(&it, towards)) {
    void *value = nullptr;
    EXPECT_EQ(ListIter_GetValue(it, &value), 1);
    seen += (seen.empty() ? "" : " ") + std::to_string(N(value));
  }
  EXPECT_EQ(List_GetNumIters(list), iters);
  return seen;
}

// The value under an iterator, or "end" (with the out-argument untouched).
std::string At(ListIter_PT it) {
  void *value = V(-7);
  return ListIter_GetValue(it, &value) ? std::to_string(N(value)) : value == V(-7) ? "end" : "?";
}

class ListTest : public ::testing::Test {
 protected:
  void SetUp() override { g_deleted.clear(); }
  void TearDown() override { List_Delete(list_); }
  void Push(std::initializer_list<int> values, int end = 1) {
    for (int n : values) List_Push(list_, V(n), end);
  }
  // Front to back, checked against the walk back to front, the ends and the
  // count (values of one digit).
  std::string Contents() {
    const std::string forward = Walk(list_, 1), backward = Walk(list_, 0);
    EXPECT_EQ(std::string(backward.rbegin(), backward.rend()), forward);
    const int count = forward.empty() ? 0 : static_cast<int>(forward.size() + 1) / 2;
    EXPECT_EQ(List_GetSize(list_) + List_GetNumEles(list_), 2 * count);
    EXPECT_EQ((list_->ends[0] == nullptr) + (list_->ends[1] == nullptr), count == 0 ? 2 : 0);
    return forward;
  }
  // "<found>:<value>" for a pop, or for a peek at an end (n < 0) or n in from it.
  std::string Pop(int end) {
    void *value = V(7);
    const int found = List_Pop(list_, &value, end);
    return std::to_string(found) + ":" + std::to_string(N(value));
  }
  std::string Peek(int n, int end) {
    void *value = V(7);
    const int found = n < 0 ? List_PeekEnd(list_, &value, end) : List_PeekNFromEnd(list_, n, &value, end);
    return std::to_string(found) + ":" + std::to_string(N(value));
  }

  List_PT list_ = List_New(RecordDelete, nullptr);
};

TEST_F(ListTest, PushPeekAndPopAtBothEnds) {
  EXPECT_EQ(RunCapturing([&] { EXPECT_EQ(Pop(0) + Peek(-1, 1) + Peek(0, 0), "0:70:70:7"); }).err, "");
  Push({2, 3});
  Push({1}, 0);
  EXPECT_EQ(Contents(), "1 2 3");
  EXPECT_EQ(Peek(-1, 0) + Peek(-1, 1) + Peek(0, 0) + Peek(2, 0) + Peek(1, 1) + Peek(3, 0),
            "1:11:31:11:31:20:7");
  EXPECT_EQ(Pop(1), "1:3");
  EXPECT_EQ(Pop(0), "1:1");
  EXPECT_EQ(g_deleted, "");  // a popped value is the caller's
  for (int end : {0, 1}) {   // the only element, from either side
    EXPECT_EQ(Pop(end), end == 0 ? "1:2" : "1:4");
    EXPECT_EQ(Contents(), "");
    Push({4});
  }
}

TEST_F(ListTest, WalksEndThemselvesAndEndIteratorsReenterTowardsTheList) {
  EXPECT_EQ(List_Begin(list_, 0), List_End(list_, 1));  // empty: at the opposite end
  EXPECT_EQ(List_Begin(list_, 1), List_End(list_, 0));
  ListIter_PT it = List_End(list_, 1);
  ListIter_Next(&it, 0);  // re-entering an empty list passes straight through
  EXPECT_EQ(it, List_End(list_, 0));
  Push({1, 2});
  it = List_End(list_, 1);
  ListIter_Next(&it, 1);  // outwards: nothing
  EXPECT_EQ(it, List_End(list_, 1));
  ListIter_Next(&it, 0);
  EXPECT_EQ(At(it) + std::to_string(List_GetNumIters(list_)), "21");
  ListIter_Next(&it, 0);
  ListIter_Next(&it, 0);
  EXPECT_EQ(it, List_End(list_, 0));
  ListIter_Next(&it, 1);  // and back in at the front
  ListIter_PT copy = ListIter_Copy(it);  // a walk that stops early deletes its iterators
  ListIter_Next(&copy, 1);
  EXPECT_EQ(At(it) + At(copy) + std::to_string(List_GetNumIters(list_)), "122");
  ListIter_Delete(it);
  ListIter_Delete(copy);
  for (int e : {0, 1}) {  // end iterators are inert handles
    ListIter_PT end = List_End(list_, e);
    ListIter_Delete(end);
    EXPECT_EQ(ListIter_Copy(end), end);
    EXPECT_EQ(At(end) + std::to_string(ListIter_DelCurNext(&end, 1 - e)), "end0");
    EXPECT_EQ(end, List_End(list_, e));
  }
  EXPECT_EQ(List_GetNumIters(list_), 0);
  EXPECT_EQ(Contents(), "1 2");
}

TEST_F(ListTest, DeleteAndInsertBesideAnIterator) {
  Push({1, 2, 3, 4, 5});
  ListIter_PT it = List_Begin(list_, 0);
  ListIter_Next(&it, 1);                             // on 2
  EXPECT_EQ(ListIter_DelCurNext(&it, 1), 1);         // deletes 2, on to 3
  EXPECT_EQ(At(it), "3");
  EXPECT_EQ(ListIter_DelCurNext(&it, 0), 1);         // deletes 3, back to 1
  EXPECT_EQ(ListIter_InsBeside(it, V(2), 1), 1);     // the iterator stays
  EXPECT_EQ(ListIter_InsBeside(it, V(0), 0), 1);
  EXPECT_EQ(At(it), "1");
  ListIter_Delete(it);
  EXPECT_EQ(Contents(), "0 1 2 4 5");
  for (int e : {0, 1}) {  // on the last element towards e: deleted, and the walk ends
    it = List_Begin(list_, e);
    EXPECT_EQ(ListIter_DelCurNext(&it, e), 1);
    EXPECT_EQ(it, List_End(list_, e));
  }
  EXPECT_EQ(g_deleted, "2 3 0 5 ");
  it = List_Begin(list_, 1);  // on 4, the back
  EXPECT_EQ(ListIter_InsBeside(it, V(5), 1), 1);
  EXPECT_EQ(ListIter_InsBeside(List_End(list_, 1), V(6), 0), 1);  // beside an end: the near end
  EXPECT_EQ(ListIter_InsBeside(List_End(list_, 0), V(0), 1), 1);
  ListIter_Delete(it);
  EXPECT_EQ(Contents(), "0 1 2 4 5 6");
  EXPECT_EQ(RunCapturing([&] {
              EXPECT_EQ(ListIter_InsBeside(List_End(list_, 0), V(9), 0), 0);
              EXPECT_EQ(ListIter_InsBeside(List_End(list_, 1), V(9), 1), 0);
            }).err,
            "ListIter_InsBeside() told to insert item before a ListIter_PT which references one "
            "before the beginning of the list - invalid\n"
            "ListIter_InsBeside() told to insert item after a ListIter_PT which references one "
            "after the end of the list - invalid\n");
  while (List_GetSize(list_) > 1) List_Pop(list_, nullptr, 0);
  it = List_Begin(list_, 0);
  EXPECT_EQ(ListIter_DelCurNext(&it, 1), 1);  // the only element
  EXPECT_EQ(it, List_End(list_, 1));
  EXPECT_EQ(Contents(), "");
}

int g_allocsLeft = 0;  // for a gen_alloc that fails after that many calls
void *LimitedAlloc(unsigned count, unsigned size) { return g_allocsLeft-- > 0 ? calloc(count, size) : nullptr; }

TEST_F(ListTest, ClearWarnsOfLiveIteratorsAndClonesCopyOrShare) {
  Push({1, 2, 4});
  List_PT shared = List_Clone(list_);  // no clone function: the values are shared
  EXPECT_EQ(Walk(shared, 1), "1 2 4");
  List_Delete(shared);
  g_deleted.clear();
  gen_alloc = LimitedAlloc;
  g_allocsLeft = 3;  // the list and two elements
  EXPECT_EQ(RunCapturing([&] { EXPECT_EQ(List_Clone(list_), nullptr); }).err, "Out of memory in List_Clone()\n");
  gen_alloc = gen_default_alloc;
  EXPECT_EQ(g_deleted, "");  // shared values are not deleted with the partial copy
  List_PT source = List_New(RecordDelete, [](const void *value, void **copy) {
    *copy = V(N(value) + 100);  // refuses 3
    return N(value) == 3 ? 0 : 1;
  });
  for (int n : {1, 2, 4, 3}) List_Push(source, V(n), 1);
  EXPECT_EQ(RunCapturing([&] { EXPECT_EQ(List_Clone(source), nullptr); }).err,
            "Out of memory in cloneFunc called by List_Clone\n");
  EXPECT_EQ(g_deleted, "101 102 104 ");  // the partial copy is deleted
  List_Pop(source, nullptr, 1);
  List_PT copy = List_Clone(source);
  EXPECT_EQ(Walk(copy, 1), "101 102 104");
  List_Delete(copy);
  List_Delete(source);
  ListIter_PT it = List_Begin(list_, 0);
  g_deleted.clear();
  EXPECT_EQ(RunCapturing([&] {
              List_Clear(list_);
              List_Clear(list_);  // the count stays: the message comes again
            }).err,
            "Memory Leak: List with active iterators cleared in List_Clear()\n"
            "Memory Leak: List with active iterators cleared in List_Clear()\n");
  EXPECT_EQ(g_deleted, "1 2 4 ");
  ListIter_Delete(it);  // its element is gone, but the record is still ours
  EXPECT_EQ(List_GetNumIters(list_), 0);
  EXPECT_EQ(Contents(), "");
}

TEST(ListErrors, BadEndsHandlesAndIteratorsAreReportedByName) {
  void *v = nullptr;
  ListIter_PT none = nullptr;
  List_PT list = List_New(nullptr, nullptr);
  List_Push(list, V(1), 1);
  ListIter_Tag noList{nullptr, list->ends[0]}, noElem{list, nullptr};
  ListIter_PT bad = &noList, badElem = &noElem;
  const std::pair<std::function<void()>, const char *> rows[] = {  // a bad whichEnd is checked first
      {[&] { EXPECT_EQ(List_Push(nullptr, v, 2), 0); }, "Called List_Push() with !(whichEnd in {0,1})\n"},
      {[&] { EXPECT_EQ(List_Pop(nullptr, &v, -1), 0); }, "Called List_Pop() with !(whichEnd in {0,1})\n"},
      {[&] { List_PeekEnd(nullptr, &v, 2); }, "Called List_PeekEnd() with !(whichEnd in {0,1})\n"},
      {[&] { List_PeekNFromEnd(nullptr, 0, &v, 2); }, "Called List_PeekNFromEnd() with !(whichEnd in {0,1})\n"},
      {[&] { EXPECT_EQ(List_Begin(nullptr, 2), nullptr); }, "Called List_Begin() with !(whichEnd in {0,1})\n"},
      {[&] { EXPECT_EQ(List_End(nullptr, 2), nullptr); }, "Called List_End() with !(whichEnd in {0,1})\n"},
      {[&] { ListIter_Next(nullptr, 2); }, "Called ListIter_Next() with !(whichEnd in {0,1})\n"},
      {[&] { ListIter_DelCurNext(&none, 2); }, "Called ListIter_DelCurNext() with !(whichEnd in {0,1})\n"},
      {[&] { ListIter_InsBeside(nullptr, v, 2); }, "Called ListIter_InsBeside() with !(whichEnd in {0,1})\n"},
      {[&] { List_Clear(nullptr); }, "Tried to List_Clear() on NULL List_PT\n"},
      {[&] { List_Delete(nullptr); }, "Tried to List_Delete() on NULL List_PT\n"},
      {[&] { EXPECT_EQ(List_Clone(nullptr), nullptr); }, "Tried to List_Clone() on NULL List_PT\n"},
      {[&] { EXPECT_EQ(List_GetSize(nullptr), -1); }, "Tried to List_GetSize() on NULL List_PT\n"},
      {[&] { EXPECT_EQ(List_GetNumEles(nullptr), -1); }, "List_GetNumEles() called on NULL List_PT\n"},
      {[&] { EXPECT_EQ(List_GetNumIters(nullptr), -1); }, "List_GetNumIters() called on NULL List_PT\n"},
      {[&] { EXPECT_EQ(List_Push(nullptr, v, 0), 0); }, "Tried to List_Push() on NULL List_PT\n"},
      {[&] { EXPECT_EQ(List_Pop(nullptr, &v, 0), 0); }, "Tried to List_Pop() on NULL List_PT\n"},
      {[&] { List_PeekEnd(nullptr, &v, 1); }, "Tried to List_PeekEnd() on NULL List_PT\n"},
      {[&] { List_PeekNFromEnd(nullptr, 0, &v, 1); }, "Tried to List_PeekNFromEnd() on NULL List_PT\n"},
      {[&] { List_Begin(nullptr, 0); }, "Tried to List_Begin() on NULL List_PT\n"},
      {[&] { List_End(nullptr, 1); }, "Tried to List_End() on NULL List_PT\n"},
      {[&] { ListIter_Next(nullptr, 1); }, "Tried to ListIter_Next() on NULL ListIter_PT *\n"},
      {[&] { ListIter_Next(&none, 1); }, "Tried to ListIter_Next() on NULL *(ListIter_PT *)\n"},
      {[&] { EXPECT_EQ(ListIter_Copy(nullptr), nullptr); }, "Tried to ListIter_Copy() on NULL ListIter_PT\n"},
      {[&] { ListIter_Delete(nullptr); }, "ListIter_Delete() called on NULL ListIter_PT\n"},
      {[&] { EXPECT_EQ(ListIter_GetValue(nullptr, &v), 0); }, "ListIter_GetValue() called on NULL ListIter_PT\n"},
      {[&] { ListIter_DelCurNext(nullptr, 0); }, "ListIter_DelCurNext() called with NULL ListIter_PT *\n"},
      {[&] { ListIter_DelCurNext(&none, 0); }, "ListIter_DelCurNext() called with NULL *(ListIter_PT *)\n"},
      {[&] { ListIter_InsBeside(nullptr, v, 0); }, "ListIter_InsBeside() called on NULL ListIter_PT\n"},
      {[&] { ListIter_Next(&bad, 1); }, "ListIter_Next() called on invalid ListIter_PT *\n"},
      {[&] { EXPECT_EQ(ListIter_Copy(&noElem), nullptr); }, "ListIter_Copy() called on invalid ListIter_PT\n"},
      {[&] { ListIter_Delete(&noList); }, "ListIter_Delete() called on invalid ListIter_PT\n"},
      {[&] { EXPECT_EQ(ListIter_GetValue(&noElem, &v), 0); }, "ListIter_GetValue() called on invalid ListIter_PT\n"},
      {[&] { ListIter_DelCurNext(&badElem, 1); }, "ListIter_DelCurNext() called with invalid *(ListIter_PT *)"},
      {[&] { ListIter_InsBeside(&noList, v, 1); }, "ListIter_InsBeside() called on invalid ListIter_PT\n"},
      {[&] { ListIter_InsBeside(&noElem, v, 1); }, "ListIter_InsBeside() called with invalid ListIter_PT\n"},
  };
  for (const auto &[call, message] : rows) EXPECT_EQ(RunCapturing(call).err, message);
  EXPECT_EQ(Walk(list, 1), "1");
  List_Delete(list);
}

}  // namespace
