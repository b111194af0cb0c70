// The one pseudo-random generator of the tests and benchmarks: a 64-bit
// linear congruential generator handing out its high bits.  A fixed seed
// gives the same sequence on every host and build, so generated dumps and
// databases can be pinned and a failing seed replayed.
#ifndef RAVELOG_TEST_SUPPORT_TEST_RANDOM_H
#define RAVELOG_TEST_SUPPORT_TEST_RANDOM_H

#include <cstdint>

namespace testsupport {

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint32_t Next() {
    state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<uint32_t>(state_ >> 33);
  }
  uint32_t Below(uint32_t n) { return Next() % n; }  // in [0, n); n must not be 0
  uint32_t Between(uint32_t low, uint32_t high) { return low + Below(high - low + 1); }  // in [low, high]

 private:
  uint64_t state_;
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_TEST_RANDOM_H
