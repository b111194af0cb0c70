// Tests of the two array sorts: results against the standard library's sorts
// over many sizes and element widths, stability on both sides of the stack
// limit of the position array, comparison counts of the pivot choice, and
// the caller's swap and context.
#include "indsort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "indgeninit.h"

namespace {

// What every comparison receives as its context: the key width in bytes
// (the stable tests compare only a prefix, to make ties), a count of
// comparisons, and the address the test expects to see.
struct CompareContext {
  unsigned key_bytes = 0;
  unsigned calls = 0;
  bool context_seen_wrong = false;
  const CompareContext *self = this;
};

int CompareKeys(void *context, const void *a, const void *b) {
  auto *ctx = static_cast<CompareContext *>(context);
  if (ctx->self != ctx) ctx->context_seen_wrong = true;
  ctx->calls++;
  return memcmp(a, b, ctx->key_bytes);
}

// Elements as strings of `size` bytes, for the reference sorts.
std::vector<std::string> Split(const std::vector<unsigned char> &bytes, unsigned size) {
  std::vector<std::string> elements;
  for (size_t at = 0; at + size <= bytes.size(); at += size)
    elements.emplace_back(reinterpret_cast<const char *>(bytes.data() + at), size);
  return elements;
}

std::vector<unsigned char> RandomBytes(std::mt19937 &rng, size_t n, int distinct) {
  std::uniform_int_distribution<int> byte(0, distinct - 1);
  std::vector<unsigned char> bytes(n);
  for (auto &b : bytes) b = static_cast<unsigned char>(byte(rng));
  return bytes;
}

constexpr unsigned kSeed = 20240612;
const unsigned kElementSizes[] = {1, 3, 4, 8, 24};

TEST(Sort, AgreesWithStdSortForAllSizesAndWidths) {
  std::mt19937 rng(kSeed);
  for (unsigned size : kElementSizes) {
    for (unsigned count = 0; count <= 200; count++) {
      // Few distinct byte values, so that duplicates are common.
      std::vector<unsigned char> bytes = RandomBytes(rng, size_t{count} * size, 5);
      std::vector<std::string> expected = Split(bytes, size);
      std::sort(expected.begin(), expected.end());
      CompareContext ctx;
      ctx.key_bytes = size;
      void *result = tov_sort(&ctx, bytes.data(), count, size, CompareKeys, nullptr);
      EXPECT_EQ(result, &ctx);
      ASSERT_EQ(Split(bytes, size), expected) << "seed " << kSeed << " size " << size
                                              << " count " << count;
      EXPECT_FALSE(ctx.context_seen_wrong);
    }
  }
}

TEST(StableSort, AgreesWithStdStableSortForAllSizesAndWidths) {
  std::mt19937 rng(kSeed + 1);
  for (unsigned size : kElementSizes) {
    for (unsigned count = 0; count <= 200; count++) {
      // The first byte is the key and takes 4 values; the rest tells equal
      // keys apart in the result.
      std::vector<unsigned char> bytes = RandomBytes(rng, size_t{count} * size, 256);
      for (size_t at = 0; at < bytes.size(); at += size) bytes[at] %= 4;
      std::vector<std::string> expected = Split(bytes, size);
      std::stable_sort(expected.begin(), expected.end(),
                       [](const std::string &x, const std::string &y) { return x[0] < y[0]; });
      CompareContext ctx;
      ctx.key_bytes = 1;
      void *result = tov_stable_sort(&ctx, bytes.data(), count, size, CompareKeys, nullptr);
      EXPECT_EQ(result, &ctx);
      ASSERT_EQ(Split(bytes, size), expected) << "seed " << kSeed + 1 << " size " << size
                                              << " count " << count;
      EXPECT_FALSE(ctx.context_seen_wrong);
    }
  }
}

// Elements of 8 bytes: a 4-byte key and the element's input index.
struct Record {
  uint32_t key;
  uint32_t index;
};

int CompareRecordKeys(void *context, const void *a, const void *b) {
  (*static_cast<unsigned *>(context))++;
  uint32_t x = static_cast<const Record *>(a)->key;
  uint32_t y = static_cast<const Record *>(b)->key;
  return x < y ? -1 : x > y ? 1 : 0;
}

// Keys ascend, and equal keys keep ascending input indices.
testing::AssertionResult SortedStably(const std::vector<Record> &records) {
  for (size_t k = 1; k < records.size(); k++) {
    const Record &x = records[k - 1], &y = records[k];
    if (x.key > y.key || (x.key == y.key && x.index > y.index))
      return testing::AssertionFailure() << "out of order at " << k;
  }
  return testing::AssertionSuccess();
}

// Counts the allocations made through gen_alloc while alive.
class CountingAlloc {
 public:
  CountingAlloc() : saved_(gen_alloc) {
    calls = 0;
    gen_alloc = Count;
  }
  ~CountingAlloc() { gen_alloc = saved_; }
  static inline int calls = 0;

 private:
  static void *Count(unsigned count, unsigned size) {
    calls++;
    return gen_default_alloc(count, size);
  }
  gen_alloc_func saved_;
};

TEST(StableSort, EqualKeysKeepInputOrderOnStackAndOnHeap) {
  for (unsigned count : {64u, 65u}) {
    std::vector<Record> records(count);
    for (unsigned k = 0; k < count; k++) records[k] = {7, k};
    unsigned calls = 0;
    CountingAlloc allocs;
    tov_stable_sort(&calls, records.data(), count, sizeof(Record), CompareRecordKeys, nullptr);
    EXPECT_EQ(CountingAlloc::calls, count == 64 ? 0 : 1) << count;
    for (unsigned k = 0; k < count; k++) ASSERT_EQ(records[k].index, k) << count;
  }
}

TEST(StableSort, MixedKeysKeepInputOrderWithinEachKey) {
  for (unsigned count : {64u, 65u}) {
    std::vector<Record> records(count);
    for (unsigned k = 0; k < count; k++) records[k] = {(count - k) % 3, k};
    unsigned calls = 0;
    tov_stable_sort(&calls, records.data(), count, sizeof(Record), CompareRecordKeys, nullptr);
    EXPECT_TRUE(SortedStably(records)) << count;
  }
}

TEST(Sort, AllEqualElementsStayAPermutation) {
  std::vector<Record> records(100);
  for (unsigned k = 0; k < 100; k++) records[k] = {3, k};
  unsigned calls = 0;
  tov_sort(&calls, records.data(), 100, sizeof(Record), CompareRecordKeys, nullptr);
  std::vector<uint32_t> seen;
  for (const Record &r : records) seen.push_back(r.index);
  std::sort(seen.begin(), seen.end());
  for (unsigned k = 0; k < 100; k++) ASSERT_EQ(seen[k], k);
}

std::vector<Record> Ascending(unsigned count) {
  std::vector<Record> records(count);
  for (unsigned k = 0; k < count; k++) records[k] = {k, k};
  return records;
}

// Worked by hand for an ascending input, where every median of three costs
// two comparisons and picks the middle one.  Below 6 elements the exchange
// sort costs n(n-1)/2; from 6 on a sort costs the pivot (2, or 8 from 36
// elements), n-1 comparisons of the partition, which leaves the pivot in
// place at index n/2 (n even) or (n+1)/2 (n odd), and the two halves:
//   C(6)=11 C(7)=15 C(8)=18 C(9)=23 C(16)=50 C(17)=56 C(18)=60
//   C(35) = 2 + 34 + C(18) + C(16) = 146
//   C(36) = 8 + 35 + C(18) + C(17) = 159
TEST(Sort, ComparisonCountsOfAscendingInputAroundTheMedianStep) {
  const struct {
    unsigned count;
    unsigned comparisons;
  } cases[] = {{1, 0}, {2, 1}, {5, 10}, {6, 11}, {35, 146}, {36, 159}};
  for (const auto &c : cases) {
    std::vector<Record> records = Ascending(c.count);
    unsigned calls = 0;
    tov_sort(&calls, records.data(), c.count, sizeof(Record), CompareRecordKeys, nullptr);
    EXPECT_EQ(calls, c.comparisons) << c.count << " elements";
    for (unsigned k = 0; k < c.count; k++) ASSERT_EQ(records[k].key, k);
  }
}

// An input where every median of three takes its third comparison and
// picks its first element: at indices 0/4/8, 14/18/22 and 27/31/35 of 36
// elements (count/8 = 4 apart around first, middle 18 and last) the keys
// run high, low, higher.  The medians are then 50, 20, 70, whose median is
// again the first, at index 0.
std::vector<Record> WorstForPivot(unsigned count) {
  std::vector<Record> records(count);
  for (unsigned k = 0; k < count; k++) records[k] = {1000 + k, k};
  const unsigned at[] = {0, 4, 8, 14, 18, 22, 27, 31, 35};
  const uint32_t keys[] = {50, 10, 60, 20, 5, 30, 70, 0, 80};
  for (unsigned k = 0; k < 9; k++)
    if (at[k] < count) records[at[k]].key = keys[k];
  return records;
}

TEST(ChoosePivot, ThirtySixElementsTakeTwelveComparisonsThirtyFiveAtMostThree) {
  std::vector<Record> records = WorstForPivot(36);
  unsigned calls = 0;
  void *pivot = choose_pivot(&calls, records.data(), records.data() + 36, 36, sizeof(Record),
                             CompareRecordKeys);
  EXPECT_EQ(calls, 12u);
  EXPECT_EQ(pivot, records.data() + 0);

  // 35 elements: first 0 (key 50), middle 18 (key 5), last 34 (key 1034):
  // 50 after 5, 5 before 1034, 50 not after 1034, so the first again.
  records = WorstForPivot(35);
  calls = 0;
  pivot = choose_pivot(&calls, records.data(), records.data() + 35, 35, sizeof(Record),
                       CompareRecordKeys);
  EXPECT_EQ(calls, 3u);
  EXPECT_EQ(pivot, records.data() + 0);
}

TEST(PickMiddle, ReturnsTheMedianOfEveryOrder) {
  Record r[3] = {{1, 0}, {2, 1}, {3, 2}};
  const int orders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  for (const auto &o : orders) {
    unsigned calls = 0;
    void *m = pick_middle(&calls, &r[o[0]], &r[o[1]], &r[o[2]], CompareRecordKeys);
    EXPECT_EQ(m, &r[1]) << o[0] << o[1] << o[2];
    EXPECT_GE(calls, 2u);
    EXPECT_LE(calls, 3u);
  }
}

// A swap that counts its calls and checks it is handed whole elements.
struct SwapLog {
  static inline int calls = 0;
  static inline bool bad_size = false;
  static void Swap(void *a, void *b, unsigned size) {
    calls++;
    if (size != sizeof(Record)) bad_size = true;
    Record held;
    memcpy(&held, a, sizeof held);
    memcpy(a, b, sizeof held);
    memcpy(b, &held, sizeof held);
  }
};

TEST(Sort, CallersSwapSeesEveryExchange) {
  // Descending 5 elements by exchange sort: each of the 10 pairs is out of
  // order when it is compared except where an earlier swap fixed it.  For
  // 4 3 2 1 0: i=0 swaps with j=1..4 (4 swaps), i=1 with j=2..4 (3),
  // i=2 with 3..4 (2), i=3 with 4 (1): 10 swaps.
  std::vector<Record> records(5);
  for (unsigned k = 0; k < 5; k++) records[k] = {4 - k, k};
  SwapLog::calls = 0;
  unsigned calls = 0;
  tov_sort(&calls, records.data(), 5, sizeof(Record), CompareRecordKeys, SwapLog::Swap);
  EXPECT_EQ(SwapLog::calls, 10);
  for (unsigned k = 0; k < 5; k++) EXPECT_EQ(records[k].key, k);

  // A count of 1 neither compares nor swaps.
  SwapLog::calls = 0;
  calls = 0;
  tov_sort(&calls, records.data(), 1, sizeof(Record), CompareRecordKeys, SwapLog::Swap);
  tov_stable_sort(&calls, records.data(), 1, sizeof(Record), CompareRecordKeys, SwapLog::Swap);
  EXPECT_EQ(SwapLog::calls, 0);
  EXPECT_EQ(calls, 0u);

  // Larger random arrays: the array ends sorted although only the caller's
  // swap moved anything.
  std::mt19937 rng(kSeed + 2);
  records.assign(150, Record{});
  for (unsigned k = 0; k < 150; k++) records[k] = {static_cast<uint32_t>(rng() % 40), k};
  SwapLog::calls = 0;
  tov_stable_sort(&calls, records.data(), 150, sizeof(Record), CompareRecordKeys, SwapLog::Swap);
  EXPECT_GT(SwapLog::calls, 0);
  EXPECT_FALSE(SwapLog::bad_size);
  EXPECT_TRUE(SortedStably(records));
}

TEST(DefaultSwap, ExchangesBytesAndAlignedWords) {
  alignas(8) unsigned char buf[32];
  auto reset = [&buf] {
    for (int k = 0; k < 32; k++) buf[k] = static_cast<unsigned char>(k);
  };
  reset();
  tov_swap_default_cmp(buf, buf + 8, 8);  // aligned words
  const unsigned char words[] = {8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7, 16};
  EXPECT_EQ(memcmp(buf, words, sizeof words), 0);

  reset();
  tov_swap_default_cmp(buf + 17, buf + 21, 3);  // odd size and addresses
  const unsigned char bytes[] = {16, 21, 22, 23, 20, 17, 18, 19, 24};
  EXPECT_EQ(memcmp(buf + 16, bytes, sizeof bytes), 0);

  reset();
  tov_swap_default_cmp(buf + 1, buf + 9, 8);  // word size, unaligned addresses
  const unsigned char shifted[] = {0, 9, 10, 11, 12, 13, 14, 15, 16, 1, 2, 3, 4, 5, 6, 7, 8, 17};
  EXPECT_EQ(memcmp(buf, shifted, sizeof shifted), 0);
}

}  // namespace
