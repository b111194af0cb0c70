// Tests of the two array sorts by their results: every count around the
// sorts' thresholds in several element widths, stability on both sides of the
// position array's stack limit, the caller's context and swap, the median.
#include "indsort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "indgeninit.h"
#include "test_random.h"

namespace {

// The context every comparison receives: the key width, and a check that
// the sort's own context came through.
struct Context {
  unsigned key_bytes;
  bool wrong_context = false;
  const Context *self = this;
};

int CompareKeys(void *context, const void *a, const void *b) {
  auto *ctx = static_cast<Context *>(context);
  ctx->wrong_context |= ctx->self != ctx;
  return memcmp(a, b, ctx->key_bytes);
}

int swaps = 0;
void CountingSwap(void *a, void *b, unsigned size) { swaps++, tov_swap_default_cmp(a, b, size); }

std::vector<std::string> Split(const std::vector<unsigned char> &bytes, unsigned size) {
  std::vector<std::string> elements;
  for (size_t at = 0; at + size <= bytes.size(); at += size)
    elements.emplace_back(reinterpret_cast<const char *>(bytes.data() + at), size);
  return elements;
}

// Both sorts over counts 0..80 (past the thresholds 6, 36 and 64) and one
// larger count; the stable sort compares one key byte of few values, so
// equal keys are common and the other bytes show their input order.
TEST(Sort, ResultsMatchTheStandardSortsForEveryCountAndWidth) {
  constexpr uint64_t kSeed = 20240612;
  swaps = 0;
  testsupport::Random random(kSeed);
  for (const bool stable : {false, true}) {
    for (unsigned size : {1u, 3u, 4u, 8u, 24u}) {
      for (unsigned count = 0; count <= 200; count += count < 80 ? 1 : 120) {
        std::vector<unsigned char> bytes(size_t{count} * size);
        for (auto &b : bytes) b = static_cast<unsigned char>(random.Below(stable ? 256 : 5));
        for (size_t at = 0; stable && at < bytes.size(); at += size) bytes[at] %= 4;
        std::vector<std::string> expected = Split(bytes, size);
        Context ctx{stable ? 1 : size};
        if (stable)
          std::stable_sort(expected.begin(), expected.end(), [](auto &x, auto &y) { return x[0] < y[0]; });
        else
          std::sort(expected.begin(), expected.end());
        EXPECT_EQ((stable ? tov_stable_sort : tov_sort)(&ctx, bytes.data(), count, size, CompareKeys,
                                                       stable ? CountingSwap : nullptr), &ctx);
        ASSERT_EQ(Split(bytes, size), expected)
            << "seed " << kSeed << " stable " << stable << " size " << size << " count " << count;
        EXPECT_FALSE(ctx.wrong_context);
      }
    }
  }
  EXPECT_GT(swaps, 1000);  // the stable sort moved its elements with the caller's swap
}

// Counts the allocations made through gen_alloc while alive.
int allocations = 0;
void *CountingAlloc(unsigned count, unsigned size) { return allocations++, gen_default_alloc(count, size); }

TEST(StableSort, EqualKeysKeepInputOrderOnTheStackUpTo64) {
  for (unsigned count : {64u, 65u}) {
    std::vector<uint32_t> records(2 * count);  // a key of 7, then the input index
    for (unsigned k = 0; k < count; k++) records[2 * k] = 7, records[2 * k + 1] = k;
    Context ctx{4};
    const gen_alloc_func saved = gen_alloc;
    gen_alloc = CountingAlloc, allocations = 0;
    tov_stable_sort(&ctx, records.data(), count, 8, CompareKeys, nullptr);
    gen_alloc = saved;
    EXPECT_EQ(allocations, count == 64 ? 0 : 1) << count;
    for (unsigned k = 0; k < count; k++) ASSERT_EQ(records[2 * k + 1], k) << count;
  }
}

TEST(PickMiddle, ReturnsTheMedianOfEveryOrder) {
  unsigned char r[3] = {1, 2, 3};
  Context ctx{1};
  int o[3] = {0, 1, 2};
  do {
    EXPECT_EQ(pick_middle(&ctx, &r[o[0]], &r[o[1]], &r[o[2]], CompareKeys), &r[1]) << o[0] << o[1] << o[2];
  } while (std::next_permutation(o, o + 3));
}

}  // namespace
