/*
 * indgadr.cpp - target address modes and the plain operations on a gadr:
 * the current mode, mode names and header encodings, assignment, and the
 * nil and zero tests.  Arithmetic and comparison are in indgadr_arith.cpp,
 * ranges in indgadr_range.cpp, text in indgadr_text.cpp; the tables behind
 * all of them are in indgadr.h.
 */
#include "indgadr.h"

#include <cstddef>
#include <cstdint>

#include "indgadr_form.h"
#include "indgeninit.h"

using gadr_form::Form;
using gadr_form::kAllOnes;
using gadr_form::kNilOff;
using gadr_form::Off;
using gadr_form::Set;

static_assert(sizeof(gadr) == 8 && offsetof(gadr, lo) == 0 && offsetof(gadr, hi) == 4,
              "gadr is the low word, then the high word");

int theMode = GADR_MODE_32BIT;

namespace {

/* Encodings and names by mode number. */
constexpr int kEncodingOfMode[GADR_NUM_MODES] = {
    GADR_ENCODING_16BIT,
    GADR_ENCODING_16BIT_16SEG,
    GADR_ENCODING_32BIT,
    GADR_ENCODING_64BIT,
};
constexpr const char *kNameOfMode[GADR_NUM_MODES] = {
    GADR_NAME_16BIT,
    GADR_NAME_16BIT_16SEG,
    GADR_NAME_32BIT,
    GADR_NAME_64BIT,
};

static_assert(GADR_MODE_16BIT == 0 && GADR_MODE_16BIT_16SEG == 1 && GADR_MODE_32BIT == 2 &&
                  GADR_MODE_64BIT == 3,
              "the mode tables are indexed by mode number");

constexpr int kFallbackMode = GADR_MODE_32BIT;
constexpr int kFallbackEncoding = GADR_ENCODING_32BIT;
constexpr uint32_t kBit31 = 0x80000000u;

bool IsKnownMode(int mode) { return mode >= 0 && mode < GADR_NUM_MODES; }

}  // namespace

/* ---- Modes ----------------------------------------------------------- */

extern "C" int gadr_set_mode(int mode) {
  const int old = theMode;
  theMode = mode;
  return old;
}

extern "C" int gadr_get_mode(void) { return theMode; }

extern "C" const char *gadr_name_from_mode(int mode) {
  if (!IsKnownMode(mode)) {
    gen_error("[adr_name_from_mode]: unknown mode!");
    return "unknown";
  }
  return kNameOfMode[mode];
}

extern "C" int gadr_get_mode_for_adr_byte_size(int adrSize, int segSize) {
  if (segSize == 0) {
    if (adrSize == 2) return GADR_MODE_16BIT;
    if (adrSize == 4) return GADR_MODE_32BIT;
    if (adrSize == 8) return GADR_MODE_64BIT;
  } else if (adrSize == 2 && segSize == 2) {
    return GADR_MODE_16BIT_16SEG;
  }
  gen_error("[gadr_get_mode_for_adr_byte_size]: bad adr parameters");
  return kFallbackMode;
}

extern "C" int gadr_is16bit(void) { return theMode == GADR_MODE_16BIT ? 1 : 0; }
extern "C" int gadr_is16bit_16seg(void) { return theMode == GADR_MODE_16BIT_16SEG ? 1 : 0; }
extern "C" int gadr_is32bit(void) { return theMode == GADR_MODE_32BIT ? 1 : 0; }
extern "C" int gadr_is64bit(void) { return theMode == GADR_MODE_64BIT ? 1 : 0; }

extern "C" int gadr_encoding_from_mode(int mode) {
  if (!IsKnownMode(mode)) {
    gen_error("[gadr_encoding_from_mode]: unknown mode!");
    return kFallbackEncoding;
  }
  return kEncodingOfMode[mode];
}

extern "C" int gadr_mode_from_encoding(int encoding) {
  const int byte = static_cast<int>(static_cast<uint32_t>(encoding) & 0xFFu);
  for (int mode = 0; mode < GADR_NUM_MODES; mode++) {
    if (kEncodingOfMode[mode] == byte) return mode;
  }
  gen_error("[gadr_mode_from_encoding]: unknown mode!");
  return kFallbackMode;
}

/* ---- Assignment ------------------------------------------------------ */

extern "C" void gadr_assign(gadr *dst, const gadr *a) { *dst = *a; }

extern "C" void gadr_assign32(gadr *dst, uint32_t value) {
  const bool extend =
      (value & kBit31) != 0 && (value == kAllOnes || gadr_form::Current() == Form::k64);
  Set(dst, value, extend ? kAllOnes : 0);
}

extern "C" void gadr_assign64(gadr *dst, uint64_t value) {
  const uint32_t lo = static_cast<uint32_t>(value);
  uint32_t hi = static_cast<uint32_t>(value >> 32);
  const bool sign_extended_32 = hi == kAllOnes && (lo & kBit31) != 0 && lo != kAllOnes;
  if (sign_extended_32 && gadr_form::Current() != Form::k64) hi = 0;
  Set(dst, lo, hi);
}

extern "C" void gadr_assign_0(gadr *dst) { Set(dst, 0, 0); }
extern "C" void gadr_assign_nil(gadr *dst) { Set(dst, kAllOnes, kAllOnes); }

extern "C" gadr gadrNil(void) {
  gadr nil;
  gadr_assign_nil(&nil);
  return nil;
}

extern "C" void gadr_sign_extend(gadr *a) {
  if (gadr_form::Current() != Form::k64 || a->hi != 0) return;
  a->hi = (a->lo & kBit31) != 0 ? kAllOnes : 0;
}

/* ---- Tests ----------------------------------------------------------- */

extern "C" int gadr_is_nil(const gadr *a) {
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      return Off(a) == kNilOff ? 1 : 0;
    case Form::k32:
      return a->lo == kAllOnes ? 1 : 0;
    case Form::k64:
      break;
  }
  return a->lo == kAllOnes && a->hi == kAllOnes ? 1 : 0;
}

extern "C" int gadr_is_0(const gadr *a) {
  if (gadr_form::Current() == Form::k16Seg) return Off(a) == 0 && a->hi == 0 ? 1 : 0;
  return a->lo == 0 && a->hi == 0 ? 1 : 0;
}

extern "C" int gadr_is_not_0(const gadr *a) { return gadr_is_0(a) ? 0 : 1; }
extern "C" int gadr_is_not_nil(const gadr *a) { return gadr_is_nil(a) ? 0 : 1; }

extern "C" int gadr_is_nil_or_0(const gadr *a) {
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      return a->lo == 0 || Off(a) == kNilOff ? 1 : 0;
    case Form::k32:
      return a->lo == 0 || a->lo == kAllOnes ? 1 : 0;
    case Form::k64:
      break;
  }
  return (a->lo == 0 && a->hi == 0) || (a->lo == kAllOnes && a->hi == kAllOnes) ? 1 : 0;
}

extern "C" int gadr_is_not_nil_or_0(const gadr *a) {
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      return Off(a) != 0 && Off(a) != kNilOff ? 1 : 0;
    case Form::k32:
      return a->lo != 0 && a->lo != kAllOnes ? 1 : 0;
    case Form::k64:
      break;
  }
  return gadr_is_nil_or_0(a) ? 0 : 1;
}

/* ---- Plain 32-bit values --------------------------------------------- */

extern "C" int gadr32_is_nil(uint32_t value) { return value == kAllOnes ? 1 : 0; }

extern "C" uint32_t gadr32_scale_up(uint32_t value, uint32_t scale) {
  return value == kAllOnes ? value : value * scale;
}

extern "C" uint32_t gadr32_scale_down(uint32_t value, uint32_t scale) {
  return value == kAllOnes || scale == 0 ? value : value / scale;
}
