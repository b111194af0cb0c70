/*
 * indgadr_range.cpp - where an address lies against a half-open range that
 * may wrap past the top of the address space: the 16-, 32- and 64-bit
 * bases and the selection by mode.  The rules and examples are in
 * indgadr.h.
 */
#include <cstdint>

#include "indgadr.h"
#include "indgadr_form.h"
#include "indgeninit.h"

using gadr_form::Form;
using gadr_form::kOffMask;
using gadr_form::Off;
using gadr_form::Wide;

namespace {

/* The steps shared by every width, on unsigned numbers.  wrap_is_valid is
 * asked only for a range whose end is below its start, and only when a
 * lies in one of its two parts. */
template <typename T, typename ValidWrap>
int PlaceInRange(T a, T start, T end, ValidWrap wrap_is_valid) {
  if (a < start) {
    if (!(a < end)) return -1;
    if (!(end < start)) return -1;
    /* The range wraps and a lies in its part at the bottom. */
    if (wrap_is_valid()) return 0;
    gadr_warn_for_invalid_wraparound_range();
    return -1;
  }
  if (end > a) return 0;
  if (!(end < start)) return 1;
  /* The range wraps and a lies in its part at the top. */
  if (wrap_is_valid()) return 0;
  gadr_warn_for_invalid_wraparound_range();
  return 1;
}

}  // namespace

extern "C" void gadr_warn_for_invalid_wraparound_range(void) { gen_warning("gadr: invalid range"); }

extern "C" int gadr16_cmprange(uint32_t a, uint32_t start, uint32_t end) {
  const uint32_t start16 = start & kOffMask;
  const uint32_t end16 = end & kOffMask;
  return PlaceInRange(a & kOffMask, start16, end16,
                      [&] { return static_cast<int16_t>(end16 - start16) >= 0; });
}

extern "C" int gadr32_cmprange(uint32_t a, uint32_t start, uint32_t end) {
  return PlaceInRange(a, start, end, [&] { return static_cast<int32_t>(end - start) >= 0; });
}

extern "C" int gadr64_cmprange(const gadr *a, const gadr *start, const gadr *end) {
  return PlaceInRange(Wide(a), Wide(start), Wide(end), [&] {
    if (end->hi < start->hi) return end->hi + 1 == start->hi;
    if (end->hi == start->hi) return static_cast<int32_t>(end->lo - start->lo) >= 0;
    return false; /* end above start: no wrap, never asked */
  });
}

extern "C" int gadr_cmprange(const gadr *a, const gadr *start, const gadr *end) {
  switch (gadr_form::Current()) {
    case Form::k16:
      return gadr16_cmprange(Off(a), Off(start), Off(end));
    case Form::k16Seg:
    case Form::k32:
      return gadr32_cmprange(a->lo, start->lo, end->lo);
    case Form::k64:
      break;
  }
  return gadr64_cmprange(a, start, end);
}

extern "C" int gadr_cmprange32(const gadr *a, uint32_t start, uint32_t end) {
  switch (gadr_form::Current()) {
    case Form::k16:
      return gadr16_cmprange(Off(a), start, end);
    case Form::k16Seg:
    case Form::k32:
      break;
    case Form::k64:
      if (a->hi != 0) return 1;
      break;
  }
  return gadr32_cmprange(a->lo, start, end);
}

extern "C" int gadr_cmpblock(const gadr *a, const gadr *start, uint32_t length) {
  switch (gadr_form::Current()) {
    case Form::k16:
      return gadr16_cmprange(Off(a), Off(start), Off(start) + length);
    case Form::k16Seg:
    case Form::k32:
      return gadr32_cmprange(a->lo, start->lo, start->lo + length);
    case Form::k64:
      break;
  }
  gadr end;
  gadr_add32(&end, start, length);
  return gadr64_cmprange(a, start, &end);
}

extern "C" int gadr_cmpblock32(const gadr *a, uint32_t start, uint32_t length) {
  switch (gadr_form::Current()) {
    case Form::k16:
      return gadr16_cmprange(Off(a), start, start + length);
    case Form::k16Seg:
    case Form::k32:
      break;
    case Form::k64:
      if (a->hi != 0) {
        gadr wide_start;
        gadr wide_end;
        gadr_assign32(&wide_start, start);
        gadr_add32(&wide_end, &wide_start, length);
        return gadr64_cmprange(a, &wide_start, &wide_end);
      }
      break;
  }
  return gadr32_cmprange(a->lo, start, start + length);
}
