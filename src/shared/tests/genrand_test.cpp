// Tests of the library's random number generator: literal values of seeded
// sequences (a seed's top bit is dropped), and long runs that stay in range
// and end on a literal value, so a wrong carry or borrow at any step shows.
#include "genrand.h"

#include <gtest/gtest.h>

#include <array>
#include <tuple>

namespace {

TEST(GenRand, SeededSequencesStartAndEndOnPinnedValues) {
  // seed, its first three values, its 200000th value
  for (const auto &[seed, first, after_200000] :
       {std::tuple<unsigned, std::array<int, 3>, int>{0, {1000999, 828637808, 679308627}, 2027851025},
        {1, {1016015, 1054118064, 3002998}, 1198197201},
        {12345, {186373519, 523019828, 1235401497}, 576963920},
        {99999, {1502585983, 1802655752, 1125759531}, 1354303049},
        {0x7FFFFFFF, {920663051, 745928490, 496028839}, 15954447},
        {0xFFFFFFFF, {920663051, 745928490, 496028839}, 15954447}}) {  // top bit dropped
    gen_srand(seed);
    for (int value : first) EXPECT_EQ(gen_rand(), value) << "seed " << seed;
    int last = 0;
    for (int k = 3; k < 200000; k++) {
      last = gen_rand();
      ASSERT_TRUE(last >= 0 && last < 2029052025) << "seed " << seed << " step " << k << ": " << last;
    }
    EXPECT_EQ(last, after_200000) << "seed " << seed;
  }
}

}  // namespace
