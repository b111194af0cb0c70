// Tests of the byte order and 64-bit helpers: conversions pinned by their
// bytes in memory, the carry of IncrementUInt64, the reversed and half-signed
// comparison of CmpUInt64, and the in-place swaps.
#include "kq_byteorder.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>

namespace {

std::string MemoryBytes(const void *p, size_t n) {
  return std::string(static_cast<const char *>(p), n);
}

uint64_t Make64(uint32_t high, uint32_t low) { return (uint64_t{high} << 32) | low; }

TEST(HostOrder, ReadsFourBytesInTheNamedOrder) {
  const unsigned char bytes[4] = {0x00, 0x00, 0x12, 0x34};
  EXPECT_EQ(kq_ConvertToHostOrder4(1, bytes), 0x1234u);
  EXPECT_EQ(kq_ConvertToHostOrder4(0, bytes), 0x34120000u);
  EXPECT_EQ(kq_ConvertToHostOrder4(0x80, bytes), 0x1234u) << "any nonzero flag means big-endian";
  const unsigned char high[4] = {0xFE, 0xDC, 0xBA, 0x98};
  EXPECT_EQ(kq_ConvertToHostOrder4(1, high), 0xFEDCBA98u);
  EXPECT_EQ(kq_ConvertToHostOrder4(0, high), 0x98BADCFEu);
}

TEST(HostOrder, ReadsTwoBytesInTheNamedOrderAtAnyAlignment) {
  const unsigned char bytes[3] = {0xAA, 0x81, 0x02};
  EXPECT_EQ(kq_ConvertToHostOrder2(1, bytes + 1), 0x8102u);
  EXPECT_EQ(kq_ConvertToHostOrder2(0, bytes + 1), 0x0281u);
}

TEST(BigEndianImage, BytesInMemoryAreMostSignificantFirst) {
  uint16_t two = kq_ConvertToBigEndian2(3);
  EXPECT_EQ(MemoryBytes(&two, 2), std::string("\x00\x03", 2));
  uint32_t four = kq_ConvertToBigEndian4(0x01020304u);
  EXPECT_EQ(MemoryBytes(&four, 4), std::string("\x01\x02\x03\x04", 4));
  EXPECT_EQ(kq_ConvertToHostOrder4(1, &four), 0x01020304u);
}

TEST(IncrementUInt64, CarriesFromTheLowHalf) {
  EXPECT_EQ(IncrementUInt64(Make64(0, 5)), Make64(0, 6));
  EXPECT_EQ(IncrementUInt64(Make64(7, 0xFFFFFFFFu)), Make64(8, 0));
  EXPECT_EQ(IncrementUInt64(Make64(0xFFFFFFFFu, 0xFFFFFFFFu)), 0u);
}

TEST(CmpUInt64, AnswersWithTheReversedSign) {
  EXPECT_EQ(CmpUInt64(5, 7), 1);
  EXPECT_EQ(CmpUInt64(7, 5), -1);
  EXPECT_EQ(CmpUInt64(7, 7), 0);
  EXPECT_EQ(CmpUInt64(Make64(1, 0), Make64(0, 0xFFFFFFFFu)), -1) << "high half decides";
  EXPECT_EQ(CmpUInt64(Make64(2, 0x80000000u), Make64(2, 1)), -1) << "low half is unsigned";
}

TEST(CmpUInt64, HighHalvesCompareAsSignedNumbers) {
  EXPECT_EQ(CmpUInt64(Make64(0x80000000u, 0), 0), 1);
  EXPECT_EQ(CmpUInt64(0, Make64(0xFFFFFFFFu, 0)), -1);
  EXPECT_EQ(CmpUInt64(Make64(0xFFFFFFFFu, 0), Make64(0x80000000u, 0)), -1);
}

TEST(HostEndianness, AnswersAgreeWithTheCompiler) {
  const bool little = std::endian::native == std::endian::little;
  EXPECT_EQ(WeAreLittleEndian(), little ? 1 : 0);
  EXPECT_EQ(WeAreBigEndian(), little ? 0 : 1);
}

TEST(Swapper, ReversesInPlaceAndLeavesAnOddMiddle) {
  unsigned char three[3] = {1, 2, 3};
  EXPECT_EQ(Swapper(three, 3), static_cast<void *>(three));
  EXPECT_EQ(MemoryBytes(three, 3), std::string("\x03\x02\x01", 3));
  unsigned char four[4] = {1, 2, 3, 4};
  Swapper(four, 4);
  EXPECT_EQ(MemoryBytes(four, 4), std::string("\x04\x03\x02\x01", 4));
  unsigned char one[1] = {9};
  Swapper(one, 1);
  Swapper(one, 0);
  EXPECT_EQ(one[0], 9);
}

TEST(Swapif, SwapsOnlyForTheOtherByteOrder) {
  const uint32_t value = 0x11223344u;
  uint32_t big = value;
  uint32_t little = value;
  Swapif(1, &big, 4);
  Swapif(0, &little, 4);
  // Whatever the host, the value seen in the named order is the one stored.
  EXPECT_EQ(kq_ConvertToHostOrder4(1, &big), value);
  EXPECT_EQ(kq_ConvertToHostOrder4(0, &little), value);
}

}  // namespace
