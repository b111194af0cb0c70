/*
 * indgadr_arith.cpp - comparison, wrapping arithmetic, minimum and maximum,
 * scaling and alignment of target addresses under the current mode.  The
 * per-mode tables are in indgadr.h; each function below follows its row.
 */
#include <bit>
#include <cstdint>

#include "indgadr.h"
#include "indgadr_form.h"
#include "indgeninit.h"

using gadr_form::Form;
using gadr_form::kOffMask;
using gadr_form::Off;
using gadr_form::Seg;
using gadr_form::SegOff;
using gadr_form::Set;
using gadr_form::SetOff;
using gadr_form::SetWide;
using gadr_form::Wide;

namespace {

template <typename T>
int Compare(T a, T b) {
  return a < b ? -1 : (a > b ? 1 : 0);
}

/* The 64bit reading of a 32-bit operand: a signed number. */
bool IsNegative(uint32_t value) { return static_cast<int32_t>(value) < 0; }
constexpr uint32_t kMostNegative = 0x80000000u; /* -2147483648, its own negation */

/* The 64bit forms of add32 and sub32.  A negative value turns each into the
 * other with the value negated; the most negative value stays as it is and
 * is subtracted as 2^31. */
void Add32Wide(gadr *dst, const gadr *a, uint32_t value);
void Sub32Wide(gadr *dst, const gadr *a, uint32_t value) {
  if (IsNegative(value) && value != kMostNegative) {
    Add32Wide(dst, a, 0u - value);
    return;
  }
  SetWide(dst, Wide(a) - value);
}
void Add32Wide(gadr *dst, const gadr *a, uint32_t value) {
  if (IsNegative(value)) {
    Sub32Wide(dst, a, 0u - value);
    return;
  }
  SetWide(dst, Wide(a) + value);
}

/* n for a scale taken as 2^n: the position of its highest set bit (0 for
 * a scale of 0). */
int ShiftOfScale(uint32_t scale) { return scale == 0 ? 0 : std::bit_width(scale) - 1; }

}  // namespace

/* ---- Comparison ------------------------------------------------------ */

extern "C" int gadr_cmp(const gadr *a, const gadr *b) {
  switch (gadr_form::Current()) {
    case Form::k16:
      return Compare(Off(a), Off(b));
    case Form::k16Seg:
    case Form::k32:
      return Compare(a->lo, b->lo);
    case Form::k64:
      break;
  }
  return Compare(Wide(a), Wide(b));
}

extern "C" int gadr_lt(const gadr *a, const gadr *b) { return gadr_cmp(a, b) < 0 ? 1 : 0; }
extern "C" int gadr_lte(const gadr *a, const gadr *b) { return gadr_cmp(a, b) <= 0 ? 1 : 0; }
extern "C" int gadr_equal(const gadr *a, const gadr *b) { return gadr_cmp(a, b) == 0 ? 1 : 0; }
extern "C" int gadr_not_equal(const gadr *a, const gadr *b) { return gadr_cmp(a, b) != 0 ? 1 : 0; }

extern "C" int gadr_cmp32(const gadr *a, uint32_t value) {
  switch (gadr_form::Current()) {
    case Form::k16:
      return Compare(Off(a), value);
    case Form::k16Seg:
    case Form::k32:
      return Compare(a->lo, value);
    case Form::k64:
      break;
  }
  return a->hi != 0 ? 1 : Compare(a->lo, value);
}

extern "C" int gadr_lt32(const gadr *a, uint32_t value) { return gadr_cmp32(a, value) < 0 ? 1 : 0; }
extern "C" int gadr_lte32(const gadr *a, uint32_t value) {
  return gadr_cmp32(a, value) <= 0 ? 1 : 0;
}

/* ---- Arithmetic ---------------------------------------------------------
 * Each result is computed whole before it is stored, so a destination may
 * be one of the inputs. */

extern "C" void gadr_add(gadr *dst, const gadr *a, const gadr *b) {
  switch (gadr_form::Current()) {
    case Form::k16:
      Set(dst, (Off(a) + Off(b)) & kOffMask, 0);
      return;
    case Form::k16Seg:
      Set(dst, SegOff(Seg(a) + Seg(b), Off(a) + Off(b)), 0);
      return;
    case Form::k32:
      Set(dst, a->lo + b->lo, 0);
      return;
    case Form::k64:
      SetWide(dst, Wide(a) + Wide(b));
      return;
  }
}

extern "C" void gadr_sub(gadr *dst, const gadr *a, const gadr *b) {
  switch (gadr_form::Current()) {
    case Form::k16:
      Set(dst, (Off(a) - Off(b)) & kOffMask, 0);
      return;
    case Form::k16Seg:
      Set(dst, SegOff(Seg(a) - Seg(b), Off(a) - Off(b)), 0);
      return;
    case Form::k32:
      Set(dst, a->lo - b->lo, 0);
      return;
    case Form::k64:
      SetWide(dst, Wide(a) - Wide(b));
      return;
  }
}

extern "C" void gadr_inc(gadr *a, const gadr *b) {
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      SetOff(a, Off(a) + Off(b));
      return;
    case Form::k32:
      a->lo += b->lo;
      return;
    case Form::k64:
      SetWide(a, Wide(a) + Wide(b));
      return;
  }
}

/* Unlike gadr_inc, the 16- and 32-bit forms clear what they don't
 * compute. */
extern "C" void gadr_dec(gadr *a, const gadr *b) {
  switch (gadr_form::Current()) {
    case Form::k16:
      Set(a, (Off(a) - Off(b)) & kOffMask, 0);
      return;
    case Form::k16Seg:
      Set(a, SegOff(Seg(a) - Seg(b), Off(a) - Off(b)), 0);
      return;
    case Form::k32:
      Set(a, a->lo - b->lo, 0);
      return;
    case Form::k64:
      SetWide(a, Wide(a) - Wide(b));
      return;
  }
}

extern "C" void gadr_add32(gadr *dst, const gadr *a, uint32_t value) {
  switch (gadr_form::Current()) {
    case Form::k16:
      Set(dst, (Off(a) + value) & kOffMask, 0);
      return;
    case Form::k16Seg:
      Set(dst, SegOff(Seg(a), Off(a) + value), 0);
      return;
    case Form::k32:
      Set(dst, a->lo + value, 0);
      return;
    case Form::k64:
      Add32Wide(dst, a, value);
      return;
  }
}

extern "C" void gadr_sub32(gadr *dst, const gadr *a, uint32_t value) {
  switch (gadr_form::Current()) {
    case Form::k16:
      Set(dst, (Off(a) - value) & kOffMask, 0);
      return;
    case Form::k16Seg:
      Set(dst, SegOff(Seg(a), Off(a) - value), 0);
      return;
    case Form::k32:
      Set(dst, a->lo - value, 0);
      return;
    case Form::k64:
      Sub32Wide(dst, a, value);
      return;
  }
}

extern "C" void gadr_inc32(gadr *a, uint32_t value) {
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      SetOff(a, Off(a) + value);
      return;
    case Form::k32:
      a->lo += value;
      return;
    case Form::k64:
      Add32Wide(a, a, value);
      return;
  }
}

extern "C" void gadr_dec32(gadr *a, uint32_t value) {
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      SetOff(a, Off(a) - value);
      return;
    case Form::k32:
      a->lo -= value;
      return;
    case Form::k64:
      Sub32Wide(a, a, value);
      return;
  }
}

extern "C" void gadr_inc_if_not_nil(gadr *a, const gadr *b) {
  if (!gadr_is_nil(a)) gadr_inc(a, b);
}

extern "C" void gadr_inc32_if_not_nil(gadr *a, uint32_t value) {
  if (!gadr_is_nil(a)) gadr_inc32(a, value);
}

extern "C" int32_t gadr_diff(const gadr *a, const gadr *b) {
  gadr difference;
  gadr_sub(&difference, a, b);
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      return static_cast<int16_t>(Off(&difference));
    case Form::k32:
    case Form::k64:
      break;
  }
  return static_cast<int32_t>(difference.lo);
}

/* ---- Minimum and maximum --------------------------------------------- */

extern "C" void gadr_no16(void) { gen_error("gadr: unimplemented 16bit case"); }

extern "C" const gadr *gadr_pmin(const gadr *a, const gadr *b) {
  const Form form = gadr_form::Current();
  if (form == Form::k16) gadr_no16();
  if (form == Form::k64) return gadr_cmp(a, b) < 0 ? a : b;
  return a->lo < b->lo ? a : b;
}

extern "C" const gadr *gadr_pmax(const gadr *a, const gadr *b) {
  const Form form = gadr_form::Current();
  if (form == Form::k16) gadr_no16();
  if (form == Form::k64) return gadr_cmp(a, b) >= 0 ? a : b;
  return a->lo > b->lo ? a : b;
}

namespace {

/* Stores the chosen address: whole in 64bit, otherwise its lo with hi 0. */
void StoreChosen(gadr *dst, const gadr *chosen) {
  if (gadr_form::Current() == Form::k64) {
    *dst = *chosen;
  } else {
    Set(dst, chosen->lo, 0);
  }
}

}  // namespace

extern "C" void gadr_min(gadr *dst, const gadr *a, const gadr *b) {
  StoreChosen(dst, gadr_pmin(a, b));
}

extern "C" void gadr_max(gadr *dst, const gadr *a, const gadr *b) {
  StoreChosen(dst, gadr_pmax(a, b));
}

/* ---- Scaling and alignment ------------------------------------------- */

extern "C" void gadr_scale_up(gadr *a, uint32_t scale) {
  if (scale == 1 || scale == 0) return;
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      if (!gadr_is_nil(a)) SetOff(a, Off(a) * scale);
      return;
    case Form::k32:
      a->lo = gadr32_scale_up(a->lo, scale);
      return;
    case Form::k64:
      SetWide(a, Wide(a) << ShiftOfScale(scale));
      return;
  }
}

extern "C" void gadr_scale_down(gadr *a, uint32_t scale) {
  if (scale == 1 || scale == 0) return;
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      if (!gadr_is_nil(a)) SetOff(a, Off(a) / scale);
      return;
    case Form::k32:
      a->lo = gadr32_scale_down(a->lo, scale);
      return;
    case Form::k64:
      SetWide(a, Wide(a) >> ShiftOfScale(scale));
      return;
  }
}

extern "C" void gadr_align(gadr *a, uint32_t alignment) {
  if (alignment == 0 || gadr_is_nil(a)) return;
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      SetOff(a, Off(a) / alignment * alignment);
      return;
    case Form::k32:
    case Form::k64:
      a->lo = a->lo / alignment * alignment;
      return;
  }
}
