/*
 * indgadr_form.h - the pieces of a gadr that the indgadr*.cpp sources
 * share: which form the current mode gives an address, and the offset,
 * segment and 64-bit views of the record.  C++ only; not for callers
 * outside the address family (they have indgadr.h).
 */
#ifndef RAVELOG_INDGADR_FORM_H
#define RAVELOG_INDGADR_FORM_H

#include <cstdint>

#include "indgadr.h"

namespace gadr_form {

/* The form of an address under theMode.  A mode number outside the table
 * acts as 32bit. */
enum class Form { k16, k16Seg, k32, k64 };

inline Form Current() {
  switch (theMode) {
    case GADR_MODE_16BIT:
      return Form::k16;
    case GADR_MODE_16BIT_16SEG:
      return Form::k16Seg;
    case GADR_MODE_64BIT:
      return Form::k64;
    default:
      return Form::k32;
  }
}

constexpr uint32_t kAllOnes = 0xFFFFFFFFu;
constexpr uint32_t kOffMask = 0xFFFFu;
constexpr uint32_t kNilOff = 0xFFFFu;

/* The offset (low half of lo) and the segment (high half). */
inline uint32_t Off(const gadr *a) { return a->lo & kOffMask; }
inline uint32_t Seg(const gadr *a) { return a->lo >> 16; }
/* A lo word from a segment and an offset, each cut to 16 bits. */
inline uint32_t SegOff(uint32_t seg, uint32_t off) {
  return (seg & kOffMask) << 16 | (off & kOffMask);
}
/* a with its offset replaced (16-bit wrap), segment and hi kept. */
inline void SetOff(gadr *a, uint32_t off) { a->lo = (a->lo & ~kOffMask) | (off & kOffMask); }

/* The 64-bit number hi:lo and back. */
inline uint64_t Wide(const gadr *a) { return static_cast<uint64_t>(a->hi) << 32 | a->lo; }
inline void SetWide(gadr *a, uint64_t value) {
  a->lo = static_cast<uint32_t>(value);
  a->hi = static_cast<uint32_t>(value >> 32);
}

/* Writes both words of dst. */
inline void Set(gadr *dst, uint32_t lo, uint32_t hi) {
  dst->lo = lo;
  dst->hi = hi;
}

}  // namespace gadr_form

#endif /* RAVELOG_INDGADR_FORM_H */
