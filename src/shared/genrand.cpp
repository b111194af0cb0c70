/*
 * genrand.cpp - the linear congruential generator of genrand.h.
 *
 * The state x is held as low + high * 65536 in two signed 32-bit halves.
 * The modulus is 30960 * 65536 + 57465, so a multiple of 65536 in the high
 * half is taken off as 30960 there and 57465 in the low half; the loop
 * then moves carries and borrows between the halves until the high half is
 * in range.  The low half may stay above 65535 (below 123002), which keeps
 * 15016 * low inside 32 bits.
 */
#include "genrand.h"

#include <sys/time.h>

#include <cstdint>

namespace {

constexpr int32_t kMultiplier = 15016;
constexpr int32_t kIncrement = 1000999;
constexpr int32_t kModulusHigh = 30960;  // modulus / 65536
constexpr int32_t kModulusLow = 57465;   // modulus % 65536
static_assert(int64_t{kModulusHigh} * 65536 + kModulusLow == 2029052025);

int initted = 0;
int32_t seed[2];  // low half, high half

}  // namespace

extern "C" void gen_srand(unsigned value) {
  seed[0] = static_cast<int32_t>(value & 0xFFFF);
  seed[1] = static_cast<int32_t>((value >> 16) & 0x7FFF);
  initted = 1;
}

extern "C" int gen_rand(void) {
  if (!initted) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    gen_srand(static_cast<unsigned>(now.tv_usec));
  }
  int32_t low = seed[0] * kMultiplier + kIncrement;
  int32_t high = seed[1] * kMultiplier;
  high += low >> 16;
  low &= 0xFFFF;
  int32_t q = high / kModulusHigh;
  high -= q * kModulusHigh;
  low -= q * kModulusLow;
  do {
    if (low < 0) {
      int32_t k = ((-low) >> 16) + 1;
      low += k * 65536;
      high -= k;
    } else if (low >= 65536) {
      high += low >> 16;
      low &= 0xFFFF;
    }
    if (high < 0) {
      high += kModulusHigh;
      low += kModulusLow;
    } else if (high > kModulusHigh) {
      high -= kModulusHigh;
      low -= kModulusLow;
    }
  } while (high < 0 || high > kModulusHigh);
  seed[0] = low;
  seed[1] = high;
  return low + high * 65536;
}
