/*
 * kq_byteorder.cpp - byte order and 64-bit helpers.  Numbers are put together
 * from their bytes with shifts, so no result depends on the host's byte
 * order except where a function asks about the host itself.
 */
#include "kq_byteorder.h"

#include <cstring>
#include <utility>

namespace {

/* The test value of WeAreLittleEndian. */
uint16_t endiantester;

uint32_t load_big4(const unsigned char *p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}

uint32_t load_little4(const unsigned char *p) {
  return (uint32_t{p[3]} << 24) | (uint32_t{p[2]} << 16) | (uint32_t{p[1]} << 8) | uint32_t{p[0]};
}

} // namespace

extern "C" uint16_t kq_ConvertToHostOrder2(uint8_t isBigEndian, const void *bytes) {
  const auto *p = static_cast<const unsigned char *>(bytes);
  if (isBigEndian) return static_cast<uint16_t>((p[0] << 8) | p[1]);
  return static_cast<uint16_t>((p[1] << 8) | p[0]);
}

extern "C" uint32_t kq_ConvertToHostOrder4(uint8_t isBigEndian, const void *bytes) {
  const auto *p = static_cast<const unsigned char *>(bytes);
  return isBigEndian ? load_big4(p) : load_little4(p);
}

extern "C" uint16_t kq_ConvertToBigEndian2(uint16_t value) {
  const unsigned char image[2] = {static_cast<unsigned char>(value >> 8),
                                  static_cast<unsigned char>(value)};
  uint16_t result;
  memcpy(&result, image, sizeof result);
  return result;
}

extern "C" uint32_t kq_ConvertToBigEndian4(uint32_t value) {
  const unsigned char image[4] = {static_cast<unsigned char>(value >> 24),
                                  static_cast<unsigned char>(value >> 16),
                                  static_cast<unsigned char>(value >> 8),
                                  static_cast<unsigned char>(value)};
  uint32_t result;
  memcpy(&result, image, sizeof result);
  return result;
}

extern "C" uint64_t IncrementUInt64(uint64_t value) {
  uint32_t high = static_cast<uint32_t>(value >> 32);
  uint32_t low = static_cast<uint32_t>(value);
  low++;
  if (low == 0) high++;
  return (uint64_t{high} << 32) | low;
}

extern "C" int CmpUInt64(uint64_t a, uint64_t b) {
  const auto a_high = static_cast<int32_t>(static_cast<uint32_t>(a >> 32));
  const auto b_high = static_cast<int32_t>(static_cast<uint32_t>(b >> 32));
  if (a_high != b_high) return a_high > b_high ? -1 : 1;
  const auto a_low = static_cast<uint32_t>(a);
  const auto b_low = static_cast<uint32_t>(b);
  if (a_low != b_low) return a_low > b_low ? -1 : 1;
  return 0;
}

extern "C" int WeAreLittleEndian(void) {
  endiantester = 1;
  unsigned char first;
  memcpy(&first, &endiantester, 1);
  return first == 1;
}

extern "C" int WeAreBigEndian(void) { return !WeAreLittleEndian(); }

extern "C" void *Swapper(void *bytes, int n) {
  auto *p = static_cast<unsigned char *>(bytes);
  for (int i = 0; i < n / 2; i++) std::swap(p[i], p[n - 1 - i]);
  return bytes;
}

extern "C" void Swapif(uint8_t isBigEndian, void *bytes, int n) {
  if ((isBigEndian != 0) != (WeAreBigEndian() != 0)) Swapper(bytes, n);
}
