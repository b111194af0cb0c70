// Tests of target addresses: modes, names and header encodings with their
// messages; assignment and the nil and zero tests of every mode; printing
// and parsing; wrapping arithmetic with the signed 64bit operations;
// minimum and maximum; scaling and alignment; and ranges that wrap, valid
// and invalid, with the exact warning.
#include "indgadr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "gen_capture.h"

using testsupport::Captured;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;

namespace {

constexpr uint32_t kOnes = 0xFFFFFFFFu;

gadr Adr(uint32_t lo, uint32_t hi = 0) { return gadr{lo, hi}; }

// Sets theMode for the lifetime of the object.
class ScopedMode {
 public:
  explicit ScopedMode(int mode) : saved_(gadr_set_mode(mode)) {}
  ~ScopedMode() { gadr_set_mode(saved_); }
  ScopedMode(const ScopedMode &) = delete;
  ScopedMode &operator=(const ScopedMode &) = delete;

 private:
  int saved_;
};

const std::string kInvalidRange = "tool: warning: gadr: invalid range\n";

// Runs fn with messages captured into *err and returns its result.
template <typename Fn>
int Quietly(std::string *err, Fn fn) {
  int result = 0;
  Captured run = RunCapturing([&] { result = fn(); });
  *err = run.err;
  return result;
}

#define EXPECT_ADR(actual, lo_, hi_)                                    \
  do {                                                                  \
    const gadr got_ = (actual);                                         \
    EXPECT_EQ(got_.lo, static_cast<uint32_t>(lo_)) << "lo of " #actual; \
    EXPECT_EQ(got_.hi, static_cast<uint32_t>(hi_)) << "hi of " #actual; \
  } while (0)

struct ModeRow {
  int mode;
  int encoding;
};
constexpr ModeRow kModeTable[] = {{0, 2}, {1, 66}, {2, 4}, {3, 8}};

TEST(GadrModeEncoding, KnownModesAndEncodingsMapBothWaysSilently) {
  for (const ModeRow &row : kModeTable) {
    Captured run = RunCapturing([&] {
      EXPECT_EQ(gadr_encoding_from_mode(row.mode), row.encoding) << "mode " << row.mode;
      EXPECT_EQ(gadr_mode_from_encoding(row.encoding), row.mode) << "encoding " << row.encoding;
    });
    EXPECT_EQ(run.err, "");
  }
}

TEST(GadrModeEncoding, EncodingIsTakenFromTheLowByte) {
  Captured run = RunCapturing([] {
    EXPECT_EQ(gadr_mode_from_encoding(0x142), 1);
    EXPECT_EQ(gadr_mode_from_encoding(0x7708), 3);
    EXPECT_EQ(gadr_mode_from_encoding(-252), 2);  // 0xFFFFFF04
  });
  EXPECT_EQ(run.err, "");
}

TEST(GadrModeEncoding, UnknownEncodingGivesMessageAndMode32bit) {
  ScopedProgName name("tool");
  for (int encoding : {0, 1, 3, 0x40, 0xFF, 0x100}) {
    int mode = -1;
    Captured run = RunCapturing([&] { mode = gadr_mode_from_encoding(encoding); });
    EXPECT_EQ(mode, 2) << "encoding " << encoding;
    EXPECT_EQ(run.err, "tool: error: [gadr_mode_from_encoding]: unknown mode!\n");
    EXPECT_FALSE(run.exited);
  }
}

TEST(GadrModeEncoding, UnknownModeGivesMessageAndEncoding4) {
  ScopedProgName name("tool");
  for (int mode : {-1, 4, 66, 0x7FFFFFFF}) {
    int encoding = -1;
    Captured run = RunCapturing([&] { encoding = gadr_encoding_from_mode(mode); });
    EXPECT_EQ(encoding, 4) << "mode " << mode;
    EXPECT_EQ(run.err, "tool: error: [gadr_encoding_from_mode]: unknown mode!\n");
    EXPECT_FALSE(run.exited);
  }
}

// ---- Modes --------------------------------------------------------------

TEST(GadrModes, SetReturnsTheOldModeAndStartsAt32bit) {
  EXPECT_EQ(gadr_get_mode(), 2);
  EXPECT_EQ(gadr_is32bit(), 1);
  EXPECT_EQ(gadr_set_mode(3), 2);
  EXPECT_EQ(gadr_is64bit(), 1);
  EXPECT_EQ(gadr_is32bit(), 0);
  EXPECT_EQ(gadr_set_mode(1), 3);
  EXPECT_EQ(gadr_is16bit_16seg(), 1);
  EXPECT_EQ(gadr_set_mode(0), 1);
  EXPECT_EQ(gadr_is16bit(), 1);
  EXPECT_EQ(gadr_set_mode(2), 0);
}

TEST(GadrModes, NamesAndByteSizes) {
  ScopedProgName name("tool");
  Captured run = RunCapturing([] {
    EXPECT_STREQ(gadr_name_from_mode(0), "16bit");
    EXPECT_STREQ(gadr_name_from_mode(1), "16bit-16seg");
    EXPECT_STREQ(gadr_name_from_mode(2), "32bit");
    EXPECT_STREQ(gadr_name_from_mode(3), "64bit");
    EXPECT_EQ(gadr_get_mode_for_adr_byte_size(2, 0), 0);
    EXPECT_EQ(gadr_get_mode_for_adr_byte_size(2, 2), 1);
    EXPECT_EQ(gadr_get_mode_for_adr_byte_size(4, 0), 2);
    EXPECT_EQ(gadr_get_mode_for_adr_byte_size(8, 0), 3);
  });
  EXPECT_EQ(run.err, "");
  run = RunCapturing([] { EXPECT_STREQ(gadr_name_from_mode(4), "unknown"); });
  EXPECT_EQ(run.err, "tool: error: [adr_name_from_mode]: unknown mode!\n");
  for (auto sizes : {std::pair{4, 2}, {8, 4}, {1, 0}, {2, 1}}) {
    run = RunCapturing(
        [&] { EXPECT_EQ(gadr_get_mode_for_adr_byte_size(sizes.first, sizes.second), 2); });
    EXPECT_EQ(run.err, "tool: error: [gadr_get_mode_for_adr_byte_size]: bad adr parameters\n");
  }
}

// ---- Assignment and tests -----------------------------------------------

TEST(GadrAssign, ThirtyTwoBitValuesSignExtendOnlyIn64bit) {
  gadr a;
  {
    ScopedMode mode(3);
    gadr_assign32(&a, 0x80000000u);
    EXPECT_ADR(a, 0x80000000u, kOnes);
    gadr_assign32(&a, 0x7FFFFFFFu);
    EXPECT_ADR(a, 0x7FFFFFFFu, 0);
    gadr_assign32(&a, kOnes);
    EXPECT_EQ(gadr_is_nil(&a), 1);
    gadr_assign64(&a, 0xFFFFFFFF80000000u);  // kept in 64bit
    EXPECT_ADR(a, 0x80000000u, kOnes);
    a = Adr(0x80000000u);
    gadr_sign_extend(&a);
    EXPECT_ADR(a, 0x80000000u, kOnes);
    a = Adr(0x80000000u, 5);  // hi not 0: untouched
    gadr_sign_extend(&a);
    EXPECT_ADR(a, 0x80000000u, 5);
  }
  gadr_assign32(&a, 0x80000000u);
  EXPECT_ADR(a, 0x80000000u, 0);
  gadr_assign32(&a, kOnes);
  EXPECT_ADR(a, kOnes, kOnes);
  gadr_assign64(&a, 0xFFFFFFFF80000000u);  // the extension is dropped below 64bit
  EXPECT_ADR(a, 0x80000000u, 0);
  gadr_assign64(&a, 0xFFFFFFFFFFFFFFFFu);
  EXPECT_ADR(a, kOnes, kOnes);
  gadr_assign64(&a, 0xFFFFFFFF7FFFFFFFu);  // bit 31 clear: kept
  EXPECT_ADR(a, 0x7FFFFFFFu, kOnes);
  a = Adr(0x80000000u);
  gadr_sign_extend(&a);
  EXPECT_ADR(a, 0x80000000u, 0);
  EXPECT_ADR(gadrNil(), kOnes, kOnes);
}

TEST(GadrTests, NilAndZeroFollowEachModesTable) {
  struct Row {
    int mode;
    gadr a;
    int nil, zero, nil_or_0, not_nil_or_0;
  };
  const Row rows[] = {
      {0, Adr(0x1234FFFFu), 1, 0, 1, 0}, {0, Adr(0x00010000u), 0, 0, 0, 0},
      {0, Adr(0, 1), 0, 0, 1, 0},        {0, Adr(5), 0, 0, 0, 1},
      {1, Adr(0x0007FFFFu), 1, 0, 1, 0}, {1, Adr(0x00070000u), 0, 1, 0, 0},
      {1, Adr(0, 1), 0, 0, 1, 0},        {1, Adr(0x00070001u), 0, 0, 0, 1},
      {2, Adr(kOnes), 1, 0, 1, 0},       {2, Adr(0, 1), 0, 0, 1, 0},
      {2, Adr(0xFFFF), 0, 0, 0, 1},      {2, Adr(0), 0, 1, 1, 0},
      {3, Adr(kOnes), 0, 0, 0, 1},       {3, Adr(kOnes, kOnes), 1, 0, 1, 0},
      {3, Adr(0, 1), 0, 0, 0, 1},        {3, Adr(0), 0, 1, 1, 0},
  };
  for (const Row &row : rows) {
    ScopedMode mode(row.mode);
    SCOPED_TRACE("mode " + std::to_string(row.mode) + " lo " + std::to_string(row.a.lo) + " hi " +
                 std::to_string(row.a.hi));
    EXPECT_EQ(gadr_is_nil(&row.a), row.nil);
    EXPECT_EQ(gadr_is_not_nil(&row.a), 1 - row.nil);
    EXPECT_EQ(gadr_is_0(&row.a), row.zero);
    EXPECT_EQ(gadr_is_not_0(&row.a), 1 - row.zero);
    EXPECT_EQ(gadr_is_nil_or_0(&row.a), row.nil_or_0);
    EXPECT_EQ(gadr_is_not_nil_or_0(&row.a), row.not_nil_or_0);
  }
  EXPECT_EQ(gadr32_is_nil(kOnes), 1);
  EXPECT_EQ(gadr32_is_nil(0xFFFF), 0);
  EXPECT_EQ(gadr32_scale_up(kOnes, 4), kOnes);
  EXPECT_EQ(gadr32_scale_up(0x40000001u, 4), 4u);
  EXPECT_EQ(gadr32_scale_down(kOnes, 4), kOnes);
  EXPECT_EQ(gadr32_scale_down(0xFFFFFFFEu, 2), 0x7FFFFFFFu);
}

// ---- Text ---------------------------------------------------------------

TEST(GadrText, PrintsEachModeAndParsesBack) {
  struct Row {
    int mode;
    gadr a;
    const char *padded, *plain;
  };
  const Row rows[] = {
      {0, Adr(0x00120ABCu), "0x0abc", "0xabc"},
      {1, Adr(0x00010002u), "0x00010002", "0x12"},
      {1, Adr(0x0000BEEFu), "0xbeef", "0xbeef"},
      {2, Adr(0xFFFFFFFFu, kOnes), "0xffffffff", "0xffffffff"},
      {2, Adr(0x2A), "0x0000002a", "0x2a"},
      {3, Adr(kOnes, kOnes), "0xffffffff_ffffffff", "0xffffffff_ffffffff"},
      {3, Adr(2, 1), "0x00000001_00000002", "0x1_2"},
  };
  for (const Row &row : rows) {
    ScopedMode mode(row.mode);
    EXPECT_STREQ(gadr_print(&row.a), row.padded) << "mode " << row.mode;
    EXPECT_STREQ(gadr_print_nopad(&row.a), row.plain) << "mode " << row.mode;
    // Scanning keeps no segment: only the offset comes back in mode 1.
    const char *text = gadr_print(&row.a);
    gadr back = Adr(0x5555, 0x5555);
    EXPECT_EQ(gadr_scan(text, 1, &back), text + std::string(text).size());
    gadr expected = row.a;
    if (row.mode == 1) expected.lo &= 0xFFFF;
    EXPECT_EQ(gadr_equal(&back, &expected), 1) << row.padded;
  }
  // Four results stay apart in the ring.
  const gadr a = Adr(1), b = Adr(2), c = Adr(3), d = Adr(4);
  const char *p[] = {gadr_print(&a), gadr_print(&b), gadr_print(&c), gadr_print(&d)};
  EXPECT_STREQ(p[0], "0x00000001");
  EXPECT_STREQ(p[3], "0x00000004");
}

TEST(GadrText, ParseTakesOneOrTwoWords) {
  struct Row {
    const char *text;
    uint32_t low, high;
    size_t used;
  };
  const Row rows[] = {
      {"0x0000000100000002", 2, 1, 18},
      {"0x00000001_00000002 rest", 2, 1, 19},
      {"  0X1f", 31, 0, 6},
      {"\t\r\n\b0xABCdef", 0xABCDEF, 0, 12},
      {"12345678", 0x12345678, 0, 8},
      {"12345678_", 0x12345678, 0, 9},
      {"1234567g", 0x1234567, 0, 7},    // fewer than 8 digits: stops at g
      {"12345678g", 0, 0x12345678, 8},  // 8 digits and a letter: high word
      {"123456789abcdef012", 0x9abcdef0, 0x12345678, 16},
      {"zz", 0, 0, 0},
      {"0x", 0, 0, 2},
      {"", 0, 0, 0},
  };
  for (const Row &row : rows) {
    uint32_t low = 7, high = 7;
    const char *end = gadr_parse_adr(row.text, &low, &high);
    EXPECT_EQ(low, row.low) << row.text;
    EXPECT_EQ(high, row.high) << row.text;
    EXPECT_EQ(end - row.text, static_cast<ptrdiff_t>(row.used)) << row.text;
  }
}

TEST(GadrText, ScanScalesBelow64bitAndComplainsIn64bit) {
  ScopedProgName name("tool");
  gadr a = Adr(9, 9);
  {
    ScopedMode mode(1);
    gadr_scan("0x12345678", 2, &a);
    EXPECT_ADR(a, 0x2B3C, 0);  // 0x91A2B3C cut to the offset
  }
  gadr_scan("0x100000000", 4, &a);  // 8 digits then a digit: high 0x10000000
  EXPECT_ADR(a, 0, 0);
  gadr_scan("0x100", 4, &a);
  EXPECT_ADR(a, 0x40, 0);
  ScopedMode mode(3);
  Captured run = RunCapturing([&] { gadr_scan("0x00000001_00000010", 4, &a); });
  EXPECT_ADR(a, 0x10, 1);
  EXPECT_EQ(run.err, "tool: error: [gadr_scan]: illegal scale factor\n");

  const char *text = "  ";
  EXPECT_EQ(gadr_scanf(&text, 1, &a), 1);  // white space alone counts
  EXPECT_STREQ(text, "");
  EXPECT_EQ(gadr_scanf(&text, 1, &a), 0);
  text = "0x5 0x6";
  EXPECT_EQ(gadr_scanf(&text, 1, &a), 1);
  EXPECT_ADR(a, 5, 0);
  EXPECT_STREQ(text, " 0x6");
}

// ---- Comparison and arithmetic ------------------------------------------

TEST(GadrCompare, KeysOfEachMode) {
  const gadr a = Adr(0x00020001u), b = Adr(0x00010002u, 1);
  {
    ScopedMode mode(0);  // off only
    EXPECT_EQ(gadr_cmp(&a, &b), -1);
    EXPECT_EQ(gadr_cmp32(&a, 0x10001u), -1);  // off against all 32 bits
  }
  {
    ScopedMode mode(1);  // lo, segment first
    EXPECT_EQ(gadr_cmp(&a, &b), 1);
    EXPECT_EQ(gadr_lt(&b, &a), 1);
    EXPECT_EQ(gadr_equal(&b, &b), 1);
  }
  EXPECT_EQ(gadr_cmp(&a, &b), 1);  // 32bit ignores hi
  const gadr c = Adr(0x00020001u, 7);
  EXPECT_EQ(gadr_equal(&a, &c), 1);
  ScopedMode mode(3);
  EXPECT_EQ(gadr_cmp(&a, &b), -1);
  EXPECT_EQ(gadr_not_equal(&a, &c), 1);
  EXPECT_EQ(gadr_lte(&a, &a), 1);
  EXPECT_EQ(gadr_cmp32(&b, kOnes), 1);  // hi nonzero
  EXPECT_EQ(gadr_lt32(&b, kOnes), 0);
  EXPECT_EQ(gadr_lte32(&b, kOnes), 0);
  EXPECT_EQ(gadr_lte32(&a, 0x00020001u), 1);
  EXPECT_EQ(gadr_lt32(&a, 0x00020001u), 0);
}

TEST(GadrArithmetic, SixteenBitModesWrapTheOffset) {
  ScopedMode mode(1);
  const gadr a = Adr(0x0003FFFFu, 9), b = Adr(0x00050001u, 9);
  gadr r;
  gadr_add(&r, &a, &b);
  EXPECT_ADR(r, 0x00080000u, 0);  // no carry into the segment sum
  gadr_sub(&r, &b, &a);
  EXPECT_ADR(r, 0x00020002u, 0);
  gadr_add32(&r, &a, 2);
  EXPECT_ADR(r, 0x00030001u, 0);
  gadr_sub32(&r, &b, 2);
  EXPECT_ADR(r, 0x0005FFFFu, 0);
  r = a;
  gadr_inc(&r, &b);
  EXPECT_ADR(r, 0x00030000u, 9);  // segment and hi stay
  r = a;
  gadr_dec(&r, &b);
  EXPECT_ADR(r, 0xFFFEFFFEu, 0);
  r = a;
  gadr_inc32(&r, 1);
  EXPECT_ADR(r, 0x00030000u, 9);
  gadr_dec32(&r, 1);
  EXPECT_ADR(r, 0x0003FFFFu, 9);
  gadr_inc32_if_not_nil(&r, 5);  // off 0xFFFF is nil
  EXPECT_ADR(r, 0x0003FFFFu, 9);
  EXPECT_EQ(gadr_diff(&b, &a), 2);
  EXPECT_EQ(gadr_diff(&a, &b), -2);

  ScopedMode mode0(0);
  gadr_add(&r, &a, &b);
  EXPECT_ADR(r, 0, 0);
  gadr_add32(&r, &b, 0x1FFFF);
  EXPECT_ADR(r, 0, 0);
  r = b;
  gadr_dec(&r, &a);
  EXPECT_ADR(r, 2, 0);
  EXPECT_EQ(gadr_diff(&a, &b), -2);
}

TEST(GadrArithmetic, ThirtyTwoBitWrapsAndClearsHi) {
  const gadr a = Adr(0xFFFFFFFFu, 3), b = Adr(2, 3);
  gadr r;
  gadr_add(&r, &a, &b);
  EXPECT_ADR(r, 1, 0);
  gadr_sub(&r, &b, &a);
  EXPECT_ADR(r, 3, 0);
  gadr_add32(&r, &b, 0xFFFFFFFEu);
  EXPECT_ADR(r, 0, 0);
  r = b;
  gadr_inc(&r, &a);
  EXPECT_ADR(r, 1, 3);  // hi stays
  r = b;
  gadr_dec(&r, &a);
  EXPECT_ADR(r, 3, 0);  // hi cleared
  r = b;
  gadr_inc32_if_not_nil(&r, 1);
  EXPECT_ADR(r, 3, 3);
  r = a;
  gadr_inc_if_not_nil(&r, &b);
  EXPECT_ADR(r, kOnes, 3);
  EXPECT_EQ(gadr_diff(&b, &a), 3);
}

TEST(GadrArithmetic, SixtyFourBitCarriesAndTakesSigned32BitValues) {
  ScopedMode mode(3);
  gadr r;
  const gadr top = Adr(0xFFFFFFFFu, 0);
  gadr_add32(&r, &top, 1);
  EXPECT_ADR(r, 0, 1);
  gadr_sub32(&r, &r, 1);
  EXPECT_ADR(r, kOnes, 0);
  const gadr one = Adr(1);
  gadr_add(&r, &top, &one);
  EXPECT_ADR(r, 0, 1);
  gadr_sub(&r, &r, &one);
  EXPECT_ADR(r, kOnes, 0);
  EXPECT_EQ(gadr_diff(&r, &top), 0);

  const gadr base = Adr(0x10, 1);
  gadr_add32(&r, &base, static_cast<uint32_t>(-0x20));  // negative: subtracts
  EXPECT_ADR(r, 0xFFFFFFF0u, 0);
  gadr_sub32(&r, &base, static_cast<uint32_t>(-0x20));  // negative: adds
  EXPECT_ADR(r, 0x30, 1);
  // -2147483648 is subtracted by all four.
  gadr_add32(&r, &base, 0x80000000u);
  EXPECT_ADR(r, 0x80000010u, 0);
  gadr_sub32(&r, &base, 0x80000000u);
  EXPECT_ADR(r, 0x80000010u, 0);
  r = base;
  gadr_inc32(&r, 0x80000000u);
  EXPECT_ADR(r, 0x80000010u, 0);
  r = base;
  gadr_dec32(&r, 0x80000000u);
  EXPECT_ADR(r, 0x80000010u, 0);
  r = base;
  gadr_inc32(&r, 0x7FFFFFFFu);
  EXPECT_ADR(r, 0x8000000Fu, 1);
  gadr_dec32(&r, static_cast<uint32_t>(-1));
  EXPECT_ADR(r, 0x80000010u, 1);
  r = Adr(0, 0);
  gadr_dec(&r, &one);
  EXPECT_ADR(r, kOnes, kOnes);
  gadr_inc32_if_not_nil(&r, 1);  // nil stays
  EXPECT_ADR(r, kOnes, kOnes);
  r = Adr(kOnes, 0);
  gadr_inc_if_not_nil(&r, &one);
  EXPECT_ADR(r, 0, 1);
}

TEST(GadrMinMax, PickByModeWithTheMessageIn16bit) {
  ScopedProgName name("tool");
  const gadr a = Adr(5, 7), b = Adr(5, 9), c = Adr(9, 1);
  gadr r;
  EXPECT_EQ(gadr_pmin(&a, &b), &b);  // equal: b
  EXPECT_EQ(gadr_pmax(&a, &b), &b);
  gadr_max(&r, &a, &c);
  EXPECT_ADR(r, 9, 0);
  gadr_min(&r, &c, &a);
  EXPECT_ADR(r, 5, 0);
  {
    ScopedMode mode(3);
    const gadr d = Adr(5, 7);
    EXPECT_EQ(gadr_pmax(&a, &d), &a);  // equal in 64bit: a
    EXPECT_EQ(gadr_pmin(&a, &d), &d);
    gadr_max(&r, &a, &c);
    EXPECT_ADR(r, 5, 7);
    gadr_min(&r, &a, &c);
    EXPECT_ADR(r, 9, 1);
  }
  ScopedMode mode(0);
  const gadr seg = Adr(0x00010000u);
  Captured run = RunCapturing([&] { gadr_min(&r, &a, &seg); });
  EXPECT_ADR(r, 5, 0);  // as 32bit: the whole lo compares
  EXPECT_EQ(run.err, "tool: error: gadr: unimplemented 16bit case\n");
}

TEST(GadrScaleAlign, EachModeAndNil) {
  gadr a = Adr(kOnes);
  gadr_scale_up(&a, 4);
  EXPECT_ADR(a, kOnes, 0);  // nil left alone in 32bit
  a = Adr(0x40000003u, 5);
  gadr_scale_up(&a, 4);
  EXPECT_ADR(a, 12, 5);
  gadr_scale_down(&a, 3);
  EXPECT_ADR(a, 4, 5);
  gadr_align(&a, 0);
  EXPECT_ADR(a, 4, 5);
  a = Adr(0x1237, 5);
  gadr_align(&a, 16);
  EXPECT_ADR(a, 0x1230, 5);
  gadr_align(&a, 80);  // by division: any alignment, not only powers of two
  EXPECT_ADR(a, 0x1220, 5);
  {
    ScopedMode mode(1);
    a = Adr(0x0002C001u);
    gadr_scale_up(&a, 4);
    EXPECT_ADR(a, 0x00020004u, 0);  // off wraps, seg stays
    gadr_scale_down(&a, 2);
    EXPECT_ADR(a, 0x00020002u, 0);
    a = Adr(0x0002FFFFu);
    gadr_scale_down(&a, 2);  // nil
    gadr_align(&a, 16);
    EXPECT_ADR(a, 0x0002FFFFu, 0);
    a = Adr(0x0002FFF3u);
    gadr_align(&a, 8);
    EXPECT_ADR(a, 0x0002FFF0u, 0);
  }
  ScopedMode mode(3);
  a = Adr(kOnes, kOnes);
  gadr_scale_up(&a, 4);  // nil is shifted too
  EXPECT_ADR(a, 0xFFFFFFFCu, kOnes);
  a = Adr(0x80000001u, 1);
  gadr_scale_up(&a, 7);  // acts as 4
  EXPECT_ADR(a, 4, 6);
  gadr_scale_down(&a, 8);
  EXPECT_ADR(a, 0xC0000000u, 0);
  gadr_scale_up(&a, 1);
  EXPECT_ADR(a, 0xC0000000u, 0);
  a = Adr(0xFFFFFFFEu, kOnes);
  gadr_align(&a, 4);
  EXPECT_ADR(a, 0xFFFFFFFCu, kOnes);
}

// ---- Ranges -------------------------------------------------------------

TEST(GadrRange, HalfOpenAndWrappingRanges) {
  ScopedProgName name("tool");
  struct Row {
    uint32_t a, start, end;
    int result;
    bool warns;
  };
  const Row rows[] = {
      {5, 1, 10, 0, false},
      {10, 1, 10, 1, false},
      {0, 1, 10, -1, false},
      {1, 1, 10, 0, false},
      {0xFFFFFFF8u, 0xFFFFFFF0u, 0x10, 0, false},
      {8, 0xFFFFFFF0u, 0x10, 0, false},
      {0x20, 0xFFFFFFF0u, 0x10, -1, false},
      {0x10, 0xFFFFFFF0u, 0x10, -1, false},
      {0x7FFFFFFEu, 0x80000000u, 0x7FFFFFFFu, -1, true},
      {0x80000001u, 0x80000000u, 0x7FFFFFFFu, 1, true},
      {0x7FFFFFFFu, 0x80000000u, 0x7FFFFFFFu, -1, false},  // not in either part
      {3, 4, 4, -1, false},
      {4, 4, 4, 1, false},
      {kOnes, 4, 4, 1, false},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(std::to_string(row.a) + " in " + std::to_string(row.start) + ".." +
                 std::to_string(row.end));
    const std::string warning = row.warns ? kInvalidRange : "";
    std::string err;
    EXPECT_EQ(Quietly(&err, [&] { return gadr32_cmprange(row.a, row.start, row.end); }),
              row.result);
    EXPECT_EQ(err, warning);
    // The same through the selectors of modes 1 and 2, on lo alone.
    const gadr a = Adr(row.a, 7), start = Adr(row.start, 7), end = Adr(row.end);
    for (int m : {1, 2}) {
      ScopedMode mode(m);
      EXPECT_EQ(Quietly(&err, [&] { return gadr_cmprange(&a, &start, &end); }), row.result);
      EXPECT_EQ(err, warning);
      EXPECT_EQ(Quietly(&err, [&] { return gadr_cmprange32(&a, row.start, row.end); }), row.result);
      EXPECT_EQ(err, warning);
    }
  }
}

TEST(GadrRange, SixteenBitRangesCutTheirArguments) {
  ScopedProgName name("tool");
  std::string err;
  EXPECT_EQ(Quietly(&err, [] { return gadr16_cmprange(0x1FFF8, 0xFFF0, 0x10010); }), 0);
  EXPECT_EQ(err, "");
  EXPECT_EQ(Quietly(&err, [] { return gadr16_cmprange(8, 0x2FFF0, 0x10); }), 0);
  EXPECT_EQ(Quietly(&err, [] { return gadr16_cmprange(0x20, 0xFFF0, 0x10); }), -1);
  EXPECT_EQ(err, "");
  EXPECT_EQ(Quietly(&err, [] { return gadr16_cmprange(0x7FFE, 0x8000, 0x7FFF); }), -1);
  EXPECT_EQ(err, kInvalidRange);

  ScopedMode mode(0);
  const gadr a = Adr(0x00050008u), start = Adr(0x0009FFF0u), end = Adr(0x00010010u);
  EXPECT_EQ(gadr_cmprange(&a, &start, &end), 0);
  EXPECT_EQ(gadr_cmprange32(&a, 0x1FFF0, 0x10), 0);
  EXPECT_EQ(gadr_cmpblock(&a, &start, 0x20), 0);        // end 0x10 after the cut
  EXPECT_EQ(gadr_cmpblock32(&a, 0xFFF0, 0x10018), -1);  // end 0x08 after the cut
  EXPECT_EQ(gadr_cmpblock32(&a, 0xFFF0, 0x10019), 0);
}

TEST(GadrRange, SixtyFourBitRangesAndBlocks) {
  ScopedMode mode(3);
  const gadr start = Adr(0xFFFFFFF0u, 4), end = Adr(0x10, 5);
  gadr a = Adr(0x8, 5);
  EXPECT_EQ(gadr_cmprange(&a, &start, &end), 0);
  EXPECT_EQ(gadr_cmpblock(&a, &start, 0x20), 0);  // the end carries into hi
  EXPECT_EQ(gadr_cmpblock(&a, &start, 0x18), 1);
  a = Adr(0xFFFFFFF0u, 4);
  EXPECT_EQ(gadr_cmpblock(&a, &start, 0), 1);  // empty
  a = Adr(0x10, 1);
  EXPECT_EQ(gadr_cmprange32(&a, 0, 0x100), 1);  // hi nonzero: bounds not looked at
  EXPECT_EQ(gadr_cmprange32(&a, 0x20, 0x100), 1);
  a = Adr(0x10, 0);
  EXPECT_EQ(gadr_cmprange32(&a, 0, 0x100), 0);
  EXPECT_EQ(gadr_cmpblock32(&a, 0, 0x10), 1);
  EXPECT_EQ(gadr_cmpblock32(&a, 0, 0x11), 0);
  // hi nonzero: the start is sign-extended, so 0x80000000 means -2^31.
  a = Adr(0x80000010u, kOnes);
  EXPECT_EQ(gadr_cmpblock32(&a, 0x80000000u, 0x20), 0);
  EXPECT_EQ(gadr_cmpblock32(&a, 0x80000000u, 0x10), 1);
}

TEST(GadrRange, SixtyFourBitWrapValidityLooksAtTheHighWords) {
  ScopedProgName name("tool");
  ScopedMode mode(3);
  std::string err;
  // end's hi one below start's hi: a valid wrap, both parts inside.
  const gadr start = Adr(0x10, 5), end = Adr(0x20, 4);
  gadr a = Adr(0x18, 4);
  EXPECT_EQ(Quietly(&err, [&] { return gadr_cmprange(&a, &start, &end); }), 0);
  a = Adr(0, 9);
  EXPECT_EQ(Quietly(&err, [&] { return gadr64_cmprange(&a, &start, &end); }), 0);
  a = Adr(0x20, 4);
  EXPECT_EQ(Quietly(&err, [&] { return gadr64_cmprange(&a, &start, &end); }), -1);
  EXPECT_EQ(err, "");
  // Farther apart, even across the top of the space: invalid.
  const gadr top = Adr(0xFFFFFF00u, kOnes), low = Adr(0x100, 0);
  a = Adr(0x50, 0);
  EXPECT_EQ(Quietly(&err, [&] { return gadr64_cmprange(&a, &top, &low); }), -1);
  EXPECT_EQ(err, kInvalidRange);
  a = Adr(0xFFFFFFF0u, kOnes);
  EXPECT_EQ(Quietly(&err, [&] { return gadr64_cmprange(&a, &top, &low); }), 1);
  EXPECT_EQ(err, kInvalidRange);
  // Equal hi words: the lo difference as a signed number decides.
  const gadr half_start = Adr(0x80000000u, 2), half_end = Adr(0x7FFFFFFFu, 2);
  a = Adr(0x90000000u, 2);
  EXPECT_EQ(Quietly(&err, [&] { return gadr64_cmprange(&a, &half_start, &half_end); }), 1);
  EXPECT_EQ(err, kInvalidRange);
  const gadr near_start = Adr(0xF0000000u, 2), near_end = Adr(0x10, 2);
  a = Adr(0x5, 2);
  EXPECT_EQ(Quietly(&err, [&] { return gadr64_cmprange(&a, &near_start, &near_end); }), 0);
  EXPECT_EQ(err, "");
}

}  // namespace
