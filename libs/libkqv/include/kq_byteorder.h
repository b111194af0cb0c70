/*
 * kq_byteorder.h - byte order and 64-bit helpers of libkqv.
 *
 * A target's numbers reach the host as bytes in the target's order; these
 * functions read them as numbers whatever the host's order, give the
 * big-endian image that the database files keep, and compare and step the
 * 64-bit tick counts that times are made of.  Nothing here allocates, prints
 * or fails; the only state is one static test value behind WeAreLittleEndian.
 */
#ifndef RAVELOG_KQ_BYTEORDER_H
#define RAVELOG_KQ_BYTEORDER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The 16-bit number held by the two bytes at `bytes`, read most significant
 * byte first when isBigEndian is nonzero, least significant first when it is
 * zero.  REQUIRES: two readable bytes; no alignment needed. */
uint16_t kq_ConvertToHostOrder2(uint8_t isBigEndian, const void *bytes);

/* The same for the four bytes at `bytes`: 00 00 12 34 gives 0x1234 with a
 * nonzero flag and 0x34120000 with a zero flag, on any host. */
uint32_t kq_ConvertToHostOrder4(uint8_t isBigEndian, const void *bytes);

/* A number whose two bytes in memory are the big-endian bytes of value, on
 * a host of either byte order: 3 gives a number stored as 00 03. */
uint16_t kq_ConvertToBigEndian2(uint16_t value);

/* The same for four bytes. */
uint32_t kq_ConvertToBigEndian4(uint32_t value);

/* value + 1, the low 32 bits carrying into the high 32 bits; the all-ones
 * value wraps to 0. */
uint64_t IncrementUInt64(uint64_t value);

/* Reversed sign: -1 when a is greater than b, 1 when a is less, 0 when they
 * are equal.  The high 32 bits of each compare as signed 32-bit numbers and
 * decide unless equal; then the low 32 bits compare as unsigned numbers.  So
 * a value with its top bit set counts as less than 0:0. */
int CmpUInt64(uint64_t a, uint64_t b);

/* 1 when the host stores the least significant byte first, else 0.  Stores 1
 * in a static 16-bit test value and looks at its first byte in memory. */
int WeAreLittleEndian(void);

/* 1 when the host stores the most significant byte first, else 0. */
int WeAreBigEndian(void);

/* Reverses the n bytes at `bytes` in place by n / 2 exchanges, so the middle
 * byte of an odd count stays; n of 1 or less changes nothing.  Returns
 * `bytes`. */
void *Swapper(void *bytes, int n);

/* Reverses the n bytes at `bytes` (as Swapper) when the byte order that
 * isBigEndian names (nonzero big, zero little) is not the host's; otherwise
 * leaves them. */
void Swapif(uint8_t isBigEndian, void *bytes, int n);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_BYTEORDER_H */
