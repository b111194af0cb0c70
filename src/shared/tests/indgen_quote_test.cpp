// Tests of quoting and formatting: the escape tables pinned literally, round
// trips on random byte strings, shell quoting of file names, the hex dump,
// and the cut rule and measured length of the formatter.
#include "indgen_quote.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>

#include "indgeninit.h"
#include "test_random.h"

namespace {

// The text of a new heap string, which is freed; "<null>" for null.
std::string Take(char *s) {
  std::string text = s == nullptr ? "<null>" : s;
  gen_free(s);
  return text;
}

using Results = std::pair<std::string, const char *>;
void ExpectAll(std::initializer_list<Results> rows) {
  int row = 0;
  for (const Results &r : rows) EXPECT_EQ(r.first, r.second) << "row " << row++;
}

TEST(Quoting, EscapeTablesAndQuotesPinned) {
  const char *input = "a\\b\"c'd\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9";
  char *octal_trap = gen_escapify_string("\x01" "7");  // \1 then 7 reads back as \17
  ExpectAll({
      {Take(gen_escapify_string(input)), "a\\\\b\\\"c\\'d\\ne\\rf\\tg\\1\\2\\3h\x04\x7f\xe9"},
      {Take(gen_quotify_string(input)), "\"a\\\\b\\\"c\\'d\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9\""},
      {Take(gen_single_quotify_string(input)), "'a\\\\b\\\"c\\'d\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9'"},
      {Take(xquotify_string("x\ty", '|', 1)), "|x\\ty|"}, {Take(gen_quotify_string("")), "\"\""},
      {Take(gen_escapify_string("")), ""}, {Take(gen_quotify_string(nullptr)), "<null>"},
      {Take(gen_single_quotify_string(nullptr)), "<null>"},
      {Take(gen_escapify_string(nullptr)), "<null>"}, {octal_trap, "\\17"},
      {Take(gen_unescapify_string(octal_trap)), "\x0f"},
      {Take(gen_double_dequotify_string("a\"b\"c")), "abc"},
      {Take(gen_double_dequotify_string("\"a\\\"b\"")), "a\"b"},
      {Take(gen_single_dequotify_string("'it\\'s'")), "it's"},
      {Take(gen_single_dequotify_string("\"a\"")), "\"a\""},
      {Take(gen_unescapify_string("\"a\\tb\"")), "\"a\tb\""},
      {Take(gen_unescapify_string("ab\\0cd")), "ab"},  // an escape giving 0 ends the text
      {Take(gen_unescapify_string("ab\\")), "ab"},
      {Take(gen_unescapify_string("\\1x\\777")), "\x01x777"},
      {Take(xunquotify_string("a\\nb|c", '|', 0)), "a\\nbc"},
      {Take(gen_dequotify_string("\"a'b\"")), "a'b"},  // the quote is the first character
      {Take(gen_dequotify_string("'a\"b'")), "a\"b"},
      {Take(gen_dequotify_string("\"open")), "open"},
      {Take(gen_dequotify_string("a\"b\\n")), "a\"b\n"}, {Take(gen_dequotify_string("")), ""},
      {Take(gen_dequotify_string(nullptr)), "<null>"},
      {Take(gen_single_dequotify_string(nullptr)), "<null>"},
      {Take(gen_double_dequotify_string(nullptr)), "<null>"},
      {Take(gen_unescapify_string(nullptr)), "<null>"},
  });
  gen_free(octal_trap);
}

TEST(Unescape, OneEscapeAtATime) {
  const struct {
    const char *text;
    int value;
    long consumed;
  } rows[] = {
      {"z", 'z', 1},      {"\\a", 7, 2},      {"\\b", 8, 2},      {"\\f", 12, 2},
      {"\\n", 10, 2},     {"\\r", 13, 2},     {"\\t", 9, 2},      {"\\v", 11, 2},
      {"\\\\", '\\', 2},  {"\\\"", '"', 2},   {"\\'", '\'', 2},   {"\\?", '?', 2},
      {"\\101", 'A', 4},  {"\\0", 0, 2},      {"\\1a", 1, 2},     {"\\12a", 10, 3},
      {"\\3777", -1, 4},  {"\\777", '7', 2},  {"\\4", '4', 2},    {"\\9", '9', 2},
      {"\\x41", 'A', 4},  {"\\x4g", 4, 3},    {"\\xFF", -1, 4},   {"\\xff", -1, 4},
      {"\\x414", 'A', 4}, {"\\xg", 0, 2},     {"\\q", 'q', 2},    {"\\", 0, 1},
      {"", 0, 0},         {"\xe9", -23, 1},
  };
  for (const auto &row : rows) {
    const char *p = row.text;
    EXPECT_EQ(gen_unescape_one_char(&p), row.value) << row.text;
    EXPECT_EQ(p - row.text, row.consumed) << row.text;
  }
}

TEST(Quoting, RandomByteStringsSurviveEveryRoundTrip) {
  constexpr uint64_t kSeed = 5812;
  testsupport::Random random(kSeed);
  for (int round = 0; round < 2000; round++) {
    // Bytes 1..255; a byte 1, 2 or 3 is never followed by an octal digit.
    std::string text(random.Below(41), ' ');
    for (size_t k = 0; k < text.size(); k++) {
      text[k] = static_cast<char>(random.Between(1, 255));
      if (k > 0 && text[k - 1] >= 1 && text[k - 1] <= 3 && text[k] >= '0' && text[k] <= '7')
        text[k] = 'x';
    }
    char *quoted[3] = {gen_quotify_string(text.c_str()), gen_single_quotify_string(text.c_str()),
                       gen_escapify_string(text.c_str())};
    ASSERT_EQ(Take(gen_dequotify_string(quoted[0])), text) << "seed " << kSeed << " round " << round;
    ASSERT_EQ(Take(gen_dequotify_string(quoted[1])), text) << "seed " << kSeed << " round " << round;
    ASSERT_EQ(Take(gen_unescapify_string(quoted[2])), text) << "seed " << kSeed << " round " << round;
    for (char *q : quoted) gen_free(q);
  }
}

TEST(ShellEscape, BlanksAndDoubleQuotesGetSingleQuotes) {
  const unsigned char bytes[] = {0x12, 0xAB, 0x00, 0xF0, 0x0F};
  ExpectAll({
      {Take(gen_shellescapify_filename("my file")), "'my file'"},
      {Take(gen_shellescapify_filename("plain")), "plain"},
      {Take(gen_unshellescapify_filename("'my file'")), "my file"},
      {Take(gen_unshellescapify_filename("'open")), "open"},
      {Take(gen_unshellescapify_filename("\"a\\\"b\"")), "a\"b"},
      {Take(gen_unshellescapify_filename("plain'")), "plain'"},
      {Take(gen_binary_to_string(bytes, 5)), "21ba000ff0"},  // low digit first
      {Take(gen_binary_to_string(bytes, 0)), ""}, {gen_devnullpathname(), "/dev/null"},
  });
}

TEST(Format, TheCutRuleAndNewBlocks) {
  const std::string big(3000, 'q');
  char buf[16];
  const struct {
    size_t size;
    const char *text;
    int result;
    const char *bytes;  // the first `shown` bytes of buf afterwards, 'Z' untouched
    size_t shown;
  } rows[] = {
      {10, "abc", 3, "abc\0Z", 5},
      {5, "abcd", 4, "abcd\0Z", 6},          // size - 1 characters: text and terminator
      {5, "abcdef78", 8, "abcdeZ", 6},       // longer: size bytes, no terminator
      {0, "12-xyz", 6, "ZZZZZZZZZZZZZZZZ", 16},  // size 0 only measures
      {8, big.c_str(), 3000, "qqqqqqqqZ", 9},  // through the scratch buffer
  };
  for (const auto &row : rows) {
    memset(buf, 'Z', sizeof buf);
    EXPECT_EQ(gen_snprintf(buf, row.size, "%s", row.text), row.result) << row.size;
    EXPECT_EQ(std::string(buf, row.shown), std::string(row.bytes, row.shown)) << row.size;
  }
  EXPECT_EQ(gen_snprintf(buf, 3, "%d", 42), 2);  // short again behind a long one
  EXPECT_EQ(std::string(buf, 4), std::string("42\0q", 4));
  EXPECT_EQ(gen_snprintf(nullptr, 0, "%s", "four"), 4);
  const std::string long_text(10000, 'w');
  char *made = gen_msprintf("<%s>", long_text.c_str());
  EXPECT_EQ(Take(made), "<" + long_text + ">");
}

}  // namespace
