// Tests of target addresses, one table per capability: modes and their
// header encodings, assignment and the nil and zero tests, text out and in,
// comparison with minimum and maximum, wrapping arithmetic (the signed
// 64bit operations included), scaling and alignment, and ranges that wrap,
// valid or not.  Rows aim at the edges of each mode; answers are written
// out as text, addresses as lo:hi in hexadecimal, with every message.
#include "indgadr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "gen_capture.h"

namespace {

constexpr uint32_t kOnes = 0xFFFFFFFFu;

gadr Adr(uint32_t lo, uint32_t hi = 0) { return gadr{lo, hi}; }

std::string H(const gadr &a) {
  char text[24];
  snprintf(text, sizeof text, "%x:%x", a.lo, a.hi);
  return text;
}

// Runs fn in `mode` and returns what it printed on standard error.
template <typename Fn>
std::string InMode(int mode, Fn fn) {
  testsupport::ScopedProgName name("tool");
  const int saved = gadr_set_mode(mode);
  const std::string err = testsupport::RunCapturing(fn).err;
  gadr_set_mode(saved);
  return err;
}

std::string Times(int n, const std::string &text) {
  std::string out;
  while (n-- > 0) out += text;
  return out;
}

TEST(Gadr, ModesMapToEncodingsAndSizesAndBack) {
  EXPECT_EQ(gadr_get_mode(), 2);  // the starting mode
  struct Row { int mode, encoding, adrSize, segSize; const char *name; };
  const Row rows[] = {{0, 2, 2, 0, "16bit"}, {1, 66, 2, 2, "16bit-16seg"},
                      {2, 4, 4, 0, "32bit"}, {3, 8, 8, 0, "64bit"}};
  for (const Row &row : rows) {
    EXPECT_EQ(InMode(row.mode, [&] {
                EXPECT_STREQ(gadr_name_from_mode(row.mode), row.name);
                EXPECT_EQ(gadr_encoding_from_mode(row.mode), row.encoding);
                EXPECT_EQ(gadr_mode_from_encoding(row.encoding - 0x7F00), row.mode);  // the low byte
                EXPECT_EQ(gadr_get_mode_for_adr_byte_size(row.adrSize, row.segSize), row.mode);
              }), "") << row.name;
  }
  EXPECT_EQ(InMode(2, [] {
              EXPECT_EQ(gadr_set_mode(3), 2);
              for (int e : {0, 3, 0x40, 0x100}) EXPECT_EQ(gadr_mode_from_encoding(e), 2);
              EXPECT_EQ(gadr_encoding_from_mode(4), 4);
              EXPECT_STREQ(gadr_name_from_mode(-1), "unknown");
              EXPECT_EQ(gadr_get_mode_for_adr_byte_size(4, 2) + gadr_get_mode_for_adr_byte_size(2, 1), 4);
            }),
            Times(4, "tool: error: [gadr_mode_from_encoding]: unknown mode!\n") +
                "tool: error: [gadr_encoding_from_mode]: unknown mode!\n"
                "tool: error: [adr_name_from_mode]: unknown mode!\n" +
                Times(2, "tool: error: [gadr_get_mode_for_adr_byte_size]: bad adr parameters\n"));
}

TEST(Gadr, AssignmentNilAndZeroFollowEachMode) {
  // assign32 (value below 2^32) or assign64 into 5:5.
  struct Set { int mode; uint64_t value; const char *a; };
  const Set sets[] = {{3, 0x80000000u, "80000000:ffffffff"}, {3, 0x7FFFFFFFu, "7fffffff:0"},
                      {3, 0xFFFFFFFF80000000u, "80000000:ffffffff"}, {2, 0x80000000u, "80000000:0"},
                      {2, kOnes, "ffffffff:ffffffff"}, {2, 0xFFFFFFFF80000000u, "80000000:0"},
                      {2, 0xFFFFFFFF7FFFFFFFu, "7fffffff:ffffffff"}};
  for (const Set &row : sets) {
    gadr a = Adr(5, 5);
    InMode(row.mode, [&] {
      if (row.value >> 32 != 0) gadr_assign64(&a, row.value);
      if (row.value >> 32 == 0) gadr_assign32(&a, static_cast<uint32_t>(row.value));
    });
    EXPECT_EQ(H(a), row.a) << "mode " << row.mode << " value " << row.value;
  }
  gadr extended = Adr(0x80000000u);
  InMode(3, [&] { gadr_sign_extend(&extended); });
  EXPECT_EQ(H(extended) + " " + H(gadrNil()), "80000000:ffffffff ffffffff:ffffffff");
  // is_nil, is_not_nil, is_0, is_not_0, is_nil_or_0, is_not_nil_or_0
  struct Check { int mode; gadr a; const char *answers; };
  const Check checks[] = {
      {0, Adr(0x1234FFFFu), "100110"}, {0, Adr(0x00010000u), "010100"}, {0, Adr(0, 1), "010110"},
      {1, Adr(0x0007FFFFu), "100110"}, {1, Adr(0x00070000u), "011000"}, {1, Adr(0, 1), "010110"},
      {1, Adr(0x00070001u), "010101"}, {2, Adr(kOnes), "100110"},       {2, Adr(0, 1), "010110"},
      {2, Adr(0), "011010"},           {3, Adr(kOnes), "010101"},       {3, Adr(kOnes, kOnes), "100110"},
      {3, Adr(0, 1), "010101"},        {3, Adr(0), "011010"},
  };
  for (const Check &row : checks) {
    std::string answers;
    InMode(row.mode, [&] {
      for (auto test : {gadr_is_nil, gadr_is_not_nil, gadr_is_0, gadr_is_not_0, gadr_is_nil_or_0,
                        gadr_is_not_nil_or_0})
        answers += std::to_string(test(&row.a));
    });
    EXPECT_EQ(answers, row.answers) << "mode " << row.mode << " " << H(row.a);
  }
  EXPECT_EQ(H(Adr(gadr32_scale_up(kOnes, 4), gadr32_scale_up(0x40000001u, 4))), "ffffffff:4");
  EXPECT_EQ(H(Adr(gadr32_scale_down(kOnes, 4), gadr32_scale_down(0xFFFFFFFEu, 2))), "ffffffff:7fffffff");
}

TEST(Gadr, PrintsEachModeAndParsesOneOrTwoWords) {
  struct Out { int mode; gadr a; const char *text; };  // padded, then not
  const Out outs[] = {{0, Adr(0x00120ABCu), "0x0abc 0xabc"}, {1, Adr(0x00010002u), "0x00010002 0x12"},
                      {1, Adr(0x0000BEEFu), "0xbeef 0xbeef"}, {2, Adr(0x2A, 7), "0x0000002a 0x2a"},
                      {3, Adr(2, 1), "0x00000001_00000002 0x1_2"},
                      {3, Adr(kOnes, kOnes), "0xffffffff_ffffffff 0xffffffff_ffffffff"}};
  for (const Out &row : outs) {
    std::string text;
    InMode(row.mode, [&] { text = std::string(gadr_print(&row.a)) + " " + gadr_print_nopad(&row.a); });
    EXPECT_EQ(text, row.text);
  }
  // gadr_scan into 9:9: how many characters it takes, and the address.
  struct In { int mode; const char *text; uint32_t scale; const char *result; };
  const In ins[] = {
      {3, "0x0000000100000002", 1, "18 2:1"},  {3, "0x00000001_00000002 rest", 1, "19 2:1"},
      {3, "\t\r\n\b 0X1f", 1, "9 1f:0"},      {3, "12345678_", 1, "9 12345678:0"},
      {3, "1234567g", 1, "7 1234567:0"},      {3, "12345678g", 1, "8 0:12345678"},  // 8 digits: high word
      {3, "123456789ABCDEF012", 1, "16 9abcdef0:12345678"},
      {3, "zz", 1, "0 0:0"},                  {3, "0x", 1, "2 0:0"},
      {3, "0x00000001_00000010", 4, "19 10:1 tool: error: [gadr_scan]: illegal scale factor\n"},
      {1, "0x12345678", 2, "10 2b3c:0"},      // 0x91A2B3C cut to the offset
      {0, "0x120abc", 1, "8 abc:0"},          {2, "0x100", 4, "5 40:0"},
  };
  for (const In &row : ins) {
    gadr a = Adr(9, 9);
    long used = -1;
    const std::string err = InMode(row.mode, [&] { used = gadr_scan(row.text, row.scale, &a) - row.text; });
    EXPECT_EQ(std::to_string(used) + " " + H(a) + (err.empty() ? "" : " " + err), row.result) << row.text;
  }
  const char *text = "  ";
  gadr a;
  EXPECT_EQ(gadr_scanf(&text, 1, &a), 1);  // white space alone counts
  EXPECT_EQ(gadr_scanf(&text, 1, &a), 0);
}

TEST(Gadr, ComparisonMinimumAndMaximumByTheKeyOfEachMode) {
  // cmp lt lte equal not_equal of (a, b); cmp32 lt32 lte32 of (a, b.lo); then
  // which of a and b pmin and pmax return, and min and max.
  struct Row { int mode; gadr a, b; const char *answers; };
  const Row rows[] = {
      {0, Adr(0x20001), Adr(0x10002, 1), "-1 1 1 0 1 -1 1 1 b a 10002:0 20001:0"},  // off; min as 32bit
      {0, Adr(0x20001), Adr(0x50001, 7), "0 0 1 1 0 -1 1 1 a b 20001:0 50001:0"},   // cmp32: 32 bits
      {1, Adr(0x20001), Adr(0x10002, 1), "1 0 0 0 1 1 0 0 b a 10002:0 20001:0"},    // segment first
      {2, Adr(0x20001), Adr(0x20001, 7), "0 0 1 1 0 0 0 1 b b 20001:0 20001:0"},    // hi ignored
      {3, Adr(0x20001), Adr(0x10002, 1), "-1 1 1 0 1 1 0 0 a b 20001:0 10002:1"},   // hi, then lo
      {3, Adr(5, 7), Adr(5, 7), "0 0 1 1 0 1 0 0 b a 5:7 5:7"},                     // hi nonzero: above
  };
  for (const Row &row : rows) {
    const gadr *a = &row.a, *b = &row.b;
    char answers[96];
    gadr min, max;
    const std::string err = InMode(row.mode, [&] {
      gadr_min(&min, a, b);
      gadr_max(&max, a, b);
      snprintf(answers, sizeof answers, "%d %d %d %d %d %d %d %d %c %c %s %s", gadr_cmp(a, b),
               gadr_lt(a, b), gadr_lte(a, b), gadr_equal(a, b), gadr_not_equal(a, b),
               gadr_cmp32(a, b->lo), gadr_lt32(a, b->lo), gadr_lte32(a, b->lo),
               gadr_pmin(a, b) == a ? 'a' : 'b', gadr_pmax(a, b) == a ? 'a' : 'b', H(min).c_str(),
               H(max).c_str());
    });
    EXPECT_STREQ(answers, row.answers) << "mode " << row.mode << " " << H(*a) << " " << H(*b);
    EXPECT_EQ(err, Times(row.mode == 0 ? 4 : 0, "tool: error: gadr: unimplemented 16bit case\n"));
  }
}

TEST(Gadr, ArithmeticWrapsAtTheWidthOfEachMode) {
  // add sub add32 sub32 inc dec inc32 dec32 inc_if_not_nil inc32_if_not_nil
  // diff, each on (a, b) or (a, v); sub and sub32 into a itself.
  struct Row { int mode; gadr a, b; uint32_t v; const char *results; };
  const Row rows[] = {
      {0, Adr(0x50001, 9), Adr(0x3FFFF, 9), 0x1FFFF,
       "0:0 2:0 0:0 2:0 50000:9 2:0 50000:9 50002:9 50000:9 50000:9 2"},
      {1, Adr(0x3FFFF, 9), Adr(0x50001, 9), 2,  // segment and offset wrap each alone; off FFFF is nil
       "80000:0 fffefffe:0 30001:0 3fffd:0 30000:9 fffefffe:0 30001:9 3fffd:9 3ffff:9 3ffff:9 -2"},
      {2, Adr(2, 3), Adr(kOnes, 3), 0xFFFFFFFEu, "1:0 3:0 0:0 4:0 1:3 3:0 0:3 4:3 1:3 0:3 3"},
      {3, Adr(kOnes, 0), Adr(1), 1,  // 64bit: carries and borrows
       "0:1 fffffffe:0 0:1 fffffffe:0 0:1 fffffffe:0 0:1 fffffffe:0 0:1 0:1 -2"},
      {3, Adr(0, 1), Adr(1), 0xFFFFFFE0u,  // a negative 32-bit value turns adding into subtracting
       "1:1 ffffffff:0 ffffffe0:0 20:1 1:1 ffffffff:0 ffffffe0:0 20:1 1:1 ffffffe0:0 -1"},
      {3, Adr(0x10, 1), Adr(0), 0x80000000u,  // -2^31 is subtracted by all four
       "10:1 10:1 80000010:0 80000010:0 10:1 10:1 80000010:0 80000010:0 10:1 80000010:0 16"},
      {3, Adr(kOnes, kOnes), Adr(1), 0x7FFFFFFFu,
       "0:0 fffffffe:ffffffff 7ffffffe:0 80000000:ffffffff 0:0 fffffffe:ffffffff 7ffffffe:0 "
       "80000000:ffffffff ffffffff:ffffffff ffffffff:ffffffff -2"},
  };
  for (const Row &row : rows) {
    gadr r[10] = {row.a, row.a, row.a, row.a, row.a, row.a, row.a, row.a, row.a, row.a};
    int32_t diff = 0;
    InMode(row.mode, [&] {
      gadr_add(&r[0], &row.a, &row.b);
      gadr_sub(&r[1], &r[1], &row.b);
      gadr_add32(&r[2], &row.a, row.v);
      gadr_sub32(&r[3], &r[3], row.v);
      gadr_inc(&r[4], &row.b);
      gadr_dec(&r[5], &row.b);
      gadr_inc32(&r[6], row.v);
      gadr_dec32(&r[7], row.v);
      gadr_inc_if_not_nil(&r[8], &row.b);
      gadr_inc32_if_not_nil(&r[9], row.v);
      diff = gadr_diff(&row.a, &row.b);
    });
    std::string results;
    for (const gadr &x : r) results += H(x) + " ";
    EXPECT_EQ(results + std::to_string(diff), row.results) << "mode " << row.mode << " " << H(row.a);
  }
}

TEST(Gadr, ScaleAndAlignEachModeAndNil) {
  struct Row { int mode; char op; uint32_t by; gadr a; const char *result; };  // up, down, align
  const Row rows[] = {
      {2, 'u', 4, Adr(kOnes), "ffffffff:0"},  {2, 'u', 4, Adr(0x40000003u, 5), "c:5"},
      {2, 'd', 3, Adr(12, 5), "4:5"},         {2, 'a', 80, Adr(0x1230, 5), "1220:5"},  // by division
      {2, 'a', 0, Adr(4, 5), "4:5"},          {1, 'u', 4, Adr(0x2C001), "20004:0"},   // off wraps
      {1, 'd', 2, Adr(0x2FFFF), "2ffff:0"},   {1, 'a', 16, Adr(0x2FFFF), "2ffff:0"},  // nil stays
      {1, 'a', 8, Adr(0x2FFF3), "2fff0:0"},   {3, 'u', 4, Adr(kOnes, kOnes), "fffffffc:ffffffff"},
      {3, 'u', 7, Adr(0x80000001u, 1), "4:6"},  // 7 acts as 4
      {3, 'd', 8, Adr(4, 6), "c0000000:0"},   {3, 'a', 4, Adr(0xFFFFFFFEu, kOnes), "fffffffc:ffffffff"},
  };
  for (const Row &row : rows) {
    gadr a = row.a;
    InMode(row.mode, [&] {
      if (row.op == 'u') gadr_scale_up(&a, row.by);
      if (row.op == 'd') gadr_scale_down(&a, row.by);
      if (row.op == 'a') gadr_align(&a, row.by);
    });
    EXPECT_EQ(H(a), row.result) << "mode " << row.mode << " " << row.op << row.by << " " << H(row.a);
  }
}

TEST(Gadr, HalfOpenRangesThatMayWrap) {
  // Below 64bit through gadr_cmprange and gadr_cmprange32 on [start, end),
  // and gadr_cmpblock and gadr_cmpblock32 on start and end - start, each
  // warning of an invalid wrap; a and start carry hi 7.  In 64bit through
  // gadr_cmprange and gadr64_cmprange, ends as given.
  struct Row { int mode; gadr a, start, end; int result; bool warns; };
  const Row rows[] = {
      {2, Adr(5, 7), Adr(1, 7), Adr(10), 0, false},        {2, Adr(10, 7), Adr(1, 7), Adr(10), 1, false},
      {2, Adr(0, 7), Adr(1, 7), Adr(10), -1, false},       {2, Adr(1, 7), Adr(1, 7), Adr(10), 0, false},
      {1, Adr(0xFFFFFFF8u, 7), Adr(0xFFFFFFF0u, 7), Adr(0x10), 0, false},  // wraps
      {1, Adr(8, 7), Adr(0xFFFFFFF0u, 7), Adr(0x10), 0, false},
      {1, Adr(0x20, 7), Adr(0xFFFFFFF0u, 7), Adr(0x10), -1, false},
      {2, Adr(0x10, 7), Adr(0xFFFFFFF0u, 7), Adr(0x10), -1, false},
      {2, Adr(0x7FFFFFFEu, 7), Adr(0x80000000u, 7), Adr(0x7FFFFFFFu), -1, true},  // half the space
      {1, Adr(0x80000001u, 7), Adr(0x80000000u, 7), Adr(0x7FFFFFFFu), 1, true},
      {2, Adr(0x7FFFFFFFu, 7), Adr(0x80000000u, 7), Adr(0x7FFFFFFFu), -1, false},  // in neither part
      {2, Adr(3, 7), Adr(4, 7), Adr(4), -1, false},        {2, Adr(4, 7), Adr(4, 7), Adr(4), 1, false},
      {0, Adr(0x1FFF8), Adr(0xFFF0), Adr(0x10010), 0, false},  // 16bit: everything cut to 16 bits
      {0, Adr(8), Adr(0x2FFF0), Adr(0x10), 0, false},       {0, Adr(0x20), Adr(0xFFF0), Adr(0x10), -1, false},
      {0, Adr(0x7FFE), Adr(0x8000), Adr(0x7FFF), -1, true},
      {0, Adr(0x50008), Adr(0xFFF0), Adr(0x20008), -1, false},
      {0, Adr(0x50008), Adr(0xFFF0), Adr(0x20009), 0, false},
      {3, Adr(0x8, 5), Adr(0xFFFFFFF0u, 4), Adr(0x10, 5), 0, false},
      {3, Adr(0x18, 4), Adr(0x10, 5), Adr(0x20, 4), 0, false},  // valid: end's hi one below start's
      {3, Adr(0, 9), Adr(0x10, 5), Adr(0x20, 4), 0, false},
      {3, Adr(0x20, 4), Adr(0x10, 5), Adr(0x20, 4), -1, false},
      {3, Adr(0x50, 0), Adr(0xFFFFFF00u, kOnes), Adr(0x100, 0), -1, true},
      {3, Adr(0xFFFFFFF0u, kOnes), Adr(0xFFFFFF00u, kOnes), Adr(0x100, 0), 1, true},
      {3, Adr(0x90000000u, 2), Adr(0x80000000u, 2), Adr(0x7FFFFFFFu, 2), 1, true},  // equal hi: lo decides
      {3, Adr(0x5, 2), Adr(0xF0000000u, 2), Adr(0x10, 2), 0, false},
  };
  for (const Row &row : rows) {
    const gadr *a = &row.a, *start = &row.start, *end = &row.end;
    const uint32_t length = end->lo - start->lo;
    std::string got;
    const std::string err = InMode(row.mode, [&] {
      got = std::to_string(gadr_cmprange(a, start, end)) + " ";
      if (row.mode == 3) got += std::to_string(gadr64_cmprange(a, start, end));
      if (row.mode == 3) return;
      got += std::to_string(gadr_cmprange32(a, start->lo, end->lo)) + " " +
             std::to_string(gadr_cmpblock(a, start, length)) + " " +
             std::to_string(gadr_cmpblock32(a, start->lo, length));
    });
    const std::string r = std::to_string(row.result) + " " + std::to_string(row.result);
    EXPECT_EQ(got, row.mode == 3 ? r : r + " " + r) << "mode " << row.mode << " " << H(row.a) << " in "
                                                     << H(row.start) << ".." << H(row.end);
    EXPECT_EQ(err, Times(row.warns ? (row.mode == 3 ? 2 : 4) : 0, "tool: warning: gadr: invalid range\n"));
  }
  // 64bit blocks carry into hi; a nonzero hi lies above any 32-bit range, and
  // a 32-bit block start is sign-extended for it.
  const gadr start = Adr(0xFFFFFFF0u, 4), in = Adr(0x8, 5), high = Adr(0x10, 1), low = Adr(0x10),
             ext = Adr(0x80000010u, kOnes);
  std::string got;
  InMode(3, [&] {
    for (int r : {gadr_cmpblock(&in, &start, 0x20), gadr_cmpblock(&in, &start, 0x18),
                  gadr_cmpblock(&start, &start, 0), gadr_cmprange32(&high, 0x20, 0x100),
                  gadr_cmprange32(&low, 0, 0x100), gadr_cmpblock32(&low, 0, 0x10),
                  gadr_cmpblock32(&low, 0, 0x11),
                  gadr_cmpblock32(&ext, 0x80000000u, 0x20), gadr_cmpblock32(&ext, 0x80000000u, 0x10)})
      got += std::to_string(r) + " ";
  });
  EXPECT_EQ(got, "0 1 1 1 0 1 0 0 1 ");
  EXPECT_EQ(gadr32_cmprange(0xFFFFFFF8u, 0xFFFFFFF0u, 0x10) + gadr16_cmprange(0x1FFF8, 0xFFF0, 0x10010), 0);
}

}  // namespace
