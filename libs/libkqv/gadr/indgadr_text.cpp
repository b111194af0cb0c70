/*
 * indgadr_text.cpp - target addresses as text: printing into the
 * foundation's ring of scratch buffers, and parsing hexadecimal addresses
 * of up to 64 bits.  Formats and rules are in indgadr.h.
 */
#include <cstdint>
#include <cstdio>

#include "indgadr.h"
#include "indgadr_form.h"
#include "indgen_string.h"
#include "indgeninit.h"

using gadr_form::Form;
using gadr_form::kOffMask;
using gadr_form::Off;
using gadr_form::Seg;

namespace {

/* The ring the printers share with the rest of the program. */
constexpr int kPrintRing = 4;
constexpr unsigned kPrintSize = 24;
static_assert(sizeof "0xffffffff_ffffffff" <= kPrintSize, "the widest address fits");

constexpr int kWordDigits = 8;

/* Formats a into a scratch buffer of the ring, with leading zeros to the
 * full width of each part when padded. */
const char *Print(const gadr *a, bool padded) {
  char *text = static_cast<char *>(gen_get_temp_buf(kPrintRing, kPrintSize));
  switch (gadr_form::Current()) {
    case Form::k16Seg:
      if (Seg(a) != 0) {
        snprintf(text, kPrintSize, padded ? "0x%04x%04x" : "0x%x%x", Seg(a), Off(a));
        break;
      }
      [[fallthrough]];
    case Form::k16:
      snprintf(text, kPrintSize, padded ? "0x%04x" : "0x%x", Off(a));
      break;
    case Form::k32:
      snprintf(text, kPrintSize, padded ? "0x%08x" : "0x%x", a->lo);
      break;
    case Form::k64:
      snprintf(text, kPrintSize, padded ? "0x%08x_%08x" : "0x%x_%x", a->hi, a->lo);
      break;
  }
  return text;
}

/* The value of a hexadecimal digit, or -1. */
int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/* Reads up to kWordDigits hexadecimal digits at *text into *value and
 * moves *text behind them.  Returns how many were read. */
int ReadWord(const char **text, uint32_t *value) {
  int digits = 0;
  *value = 0;
  for (int v; digits < kWordDigits && (v = HexValue(**text)) >= 0; digits++, (*text)++) {
    *value = *value << 4 | static_cast<uint32_t>(v);
  }
  return digits;
}

bool IsSkippedSpace(char c) { return c == ' ' || (c >= 8 && c <= 13); }

}  // namespace

extern "C" const char *gadr_print(const gadr *a) { return Print(a, true); }
extern "C" const char *gadr_print_nopad(const gadr *a) { return Print(a, false); }

extern "C" const char *gadr_parse_adr(const char *text, uint32_t *low, uint32_t *high) {
  uint32_t first = 0;
  uint32_t second = 0;
  bool two_words = false;
  if (text != nullptr) {
    while (IsSkippedSpace(*text)) text++;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
    if (ReadWord(&text, &first) == kWordDigits) {
      if (*text == '_') text++;
      if (gen_isalnum(*text)) {
        two_words = true;
        ReadWord(&text, &second);
      }
    }
  }
  if (low != nullptr) *low = two_words ? second : first;
  if (high != nullptr) *high = two_words ? first : 0;
  return text;
}

extern "C" const char *gadr_scan(const char *text, uint32_t scale, gadr *a) {
  uint32_t low = 0;
  uint32_t high = 0;
  const char *end = gadr_parse_adr(text, &low, &high);
  const uint32_t divisor = scale == 0 ? 1 : scale;
  switch (gadr_form::Current()) {
    case Form::k16:
    case Form::k16Seg:
      a->lo = (low / divisor) & kOffMask;
      a->hi = 0;
      break;
    case Form::k32:
      a->lo = low / divisor;
      a->hi = 0;
      break;
    case Form::k64:
      if (scale != 1) gen_error("[gadr_scan]: illegal scale factor");
      a->lo = low;
      a->hi = high;
      break;
  }
  return end;
}

extern "C" int gadr_scanf(const char **text, uint32_t scale, gadr *a) {
  const char *start = *text;
  const char *end = gadr_scan(start, scale, a);
  *text = end;
  return end != start ? 1 : 0;
}
