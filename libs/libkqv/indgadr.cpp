/*
 * indgadr.cpp - target address modes: the table of mode numbers and header
 * encodings, and the conversions between them.  The table itself is in
 * indgadr.h.
 */
#include "indgadr.h"

#include <cstdint>

#include "indgeninit.h"

namespace {

/* Encodings by mode number. */
constexpr int kEncodingOfMode[GADR_NUM_MODES] = {
    GADR_ENCODING_16BIT,
    GADR_ENCODING_16BIT_16SEG,
    GADR_ENCODING_32BIT,
    GADR_ENCODING_64BIT,
};

static_assert(GADR_MODE_16BIT == 0 && GADR_MODE_16BIT_16SEG == 1 && GADR_MODE_32BIT == 2 &&
                  GADR_MODE_64BIT == 3,
              "kEncodingOfMode is indexed by mode number");

constexpr int kFallbackMode = GADR_MODE_32BIT;
constexpr int kFallbackEncoding = GADR_ENCODING_32BIT;

}  // namespace

extern "C" int gadr_encoding_from_mode(int mode) {
  if (mode < 0 || mode >= GADR_NUM_MODES) {
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
