// Tests of the library's random number generator: literal values of seeded
// sequences (a seed's top bit is dropped), and long runs that stay in range
// and end on a literal value, so a wrong carry or borrow at any step shows.
#include "genrand.h"

#include <gtest/gtest.h>

namespace {

struct SeedRow {
  unsigned seed;
  int first[3];
  int after_200000;  // the 200000th value
};

const SeedRow kRows[] = {
    {0, {1000999, 828637808, 679308627}, 2027851025},
    {1, {1016015, 1054118064, 3002998}, 1198197201},
    {12345, {186373519, 523019828, 1235401497}, 576963920},
    {99999, {1502585983, 1802655752, 1125759531}, 1354303049},
    {0x7FFFFFFF, {920663051, 745928490, 496028839}, 15954447},
    {0xFFFFFFFF, {920663051, 745928490, 496028839}, 15954447},  // top bit dropped
};

TEST(GenRand, SeededSequencesStartAndEndOnPinnedValues) {
  for (const SeedRow &row : kRows) {
    gen_srand(row.seed);
    for (int value : row.first) EXPECT_EQ(gen_rand(), value) << "seed " << row.seed;
    int last = 0;
    for (int k = 3; k < 200000; k++) {
      last = gen_rand();
      ASSERT_GE(last, 0) << "seed " << row.seed << " step " << k;
      ASSERT_LT(last, 2029052025) << "seed " << row.seed << " step " << k;
    }
    EXPECT_EQ(last, row.after_200000) << "seed " << row.seed;
  }
}

}  // namespace
