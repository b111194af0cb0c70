// Tests of quoting and formatting: the escape tables pinned literally, round
// trips on random byte strings, shell quoting of file names, the hex dump,
// and the cut rule and measured length of the formatter.
#include "indgen_quote.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "indgeninit.h"

namespace {

// Takes a heap string from the library, frees it and returns its text;
// "<null>" stands for a null result.
std::string Take(char *s) {
  if (s == nullptr) return "<null>";
  std::string text(s);
  gen_free(s);
  return text;
}

TEST(Quotify, EscapeTablePinned) {
  const std::string input = "a\\b\"c'd\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9";
  EXPECT_EQ(Take(gen_escapify_string(input.c_str())),
            "a\\\\b\\\"c\\'d\\ne\\rf\\tg\\1\\2\\3h\x04\x7f\xe9");
  EXPECT_EQ(Take(gen_quotify_string(input.c_str())),
            "\"a\\\\b\\\"c\\'d\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9\"");
  EXPECT_EQ(Take(gen_single_quotify_string(input.c_str())),
            "'a\\\\b\\\"c\\'d\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9'");
  EXPECT_EQ(Take(xquotify_string("x\ty", '|', 1)), "|x\\ty|");
}

TEST(Quotify, EdgesOfQuoting) {
  EXPECT_EQ(Take(gen_quotify_string("it's")), "\"it\\'s\"");
  EXPECT_EQ(Take(gen_quotify_string("")), "\"\"");
  EXPECT_EQ(Take(gen_escapify_string("")), "");
  EXPECT_EQ(Take(gen_quotify_string(nullptr)), "<null>");
  EXPECT_EQ(Take(gen_single_quotify_string(nullptr)), "<null>");
  EXPECT_EQ(Take(gen_escapify_string(nullptr)), "<null>");
}

// One escape sequence read from text: the value and how far it read.
struct OneChar {
  int value;
  size_t consumed;
};

OneChar ReadOne(const char *text) {
  const char *p = text;
  int value = gen_unescape_one_char(&p);
  return {value, static_cast<size_t>(p - text)};
}

TEST(Unescape, EscapeTablePinned) {
  const struct {
    const char *text;
    int value;
    size_t consumed;
  } cases[] = {
      {"z", 'z', 1},      {"\\a", 7, 2},      {"\\b", 8, 2},      {"\\f", 12, 2},
      {"\\n", 10, 2},     {"\\r", 13, 2},     {"\\t", 9, 2},      {"\\v", 11, 2},
      {"\\\\", '\\', 2},  {"\\\"", '"', 2},   {"\\'", '\'', 2},   {"\\?", '?', 2},
      {"\\101", 'A', 4},  {"\\0", 0, 2},      {"\\1a", 1, 2},     {"\\12a", 10, 3},
      {"\\3777", -1, 4},  {"\\777", '7', 2},  {"\\4", '4', 2},    {"\\9", '9', 2},
      {"\\x41", 'A', 4},  {"\\x4g", 4, 3},    {"\\xFF", -1, 4},   {"\\xff", -1, 4},
      {"\\x414", 'A', 4}, {"\\xg", 0, 2},     {"\\q", 'q', 2},    {"\\", 0, 1},
      {"", 0, 0},         {"\xe9", -23, 1},
  };
  for (const auto &c : cases) {
    OneChar got = ReadOne(c.text);
    EXPECT_EQ(got.value, c.value) << c.text;
    EXPECT_EQ(got.consumed, c.consumed) << c.text;
  }
}

TEST(Unquotify, QuotesDroppedEscapesDecoded) {
  EXPECT_EQ(Take(gen_double_dequotify_string("a\"b\"c")), "abc");
  EXPECT_EQ(Take(gen_double_dequotify_string("\"a\\\"b\"")), "a\"b");
  EXPECT_EQ(Take(gen_single_dequotify_string("'it\\'s'")), "it's");
  EXPECT_EQ(Take(gen_single_dequotify_string("\"a\"")), "\"a\"");
  EXPECT_EQ(Take(gen_unescapify_string("\"a\\tb\"")), "\"a\tb\"");
  EXPECT_EQ(Take(gen_unescapify_string("ab\\0cd")), "ab");
  EXPECT_EQ(Take(gen_unescapify_string("ab\\")), "ab");
  EXPECT_EQ(Take(gen_unescapify_string("\\1x\\777")), "\x01x777");
  EXPECT_EQ(Take(xunquotify_string("a\\nb|c", '|', 0)), "a\\nbc");
}

TEST(Unquotify, DequotifyTakesTheQuoteFromTheFirstCharacter) {
  EXPECT_EQ(Take(gen_dequotify_string("\"a'b\"")), "a'b");
  EXPECT_EQ(Take(gen_dequotify_string("'a\"b'")), "a\"b");
  EXPECT_EQ(Take(gen_dequotify_string("\"open")), "open");
  EXPECT_EQ(Take(gen_dequotify_string("a\"b\\n")), "a\"b\n");
  EXPECT_EQ(Take(gen_dequotify_string("")), "");
  EXPECT_EQ(Take(gen_dequotify_string(nullptr)), "<null>");
  EXPECT_EQ(Take(gen_single_dequotify_string(nullptr)), "<null>");
  EXPECT_EQ(Take(gen_double_dequotify_string(nullptr)), "<null>");
  EXPECT_EQ(Take(gen_unescapify_string(nullptr)), "<null>");
}

// The one place where the escapes are ambiguous: \1 \2 \3 are also the
// start of an octal escape.
TEST(Unquotify, ControlByteBeforeAnOctalDigitDoesNotRoundTrip) {
  char *escaped = gen_escapify_string("\x01" "7");
  EXPECT_STREQ(escaped, "\\17");
  EXPECT_EQ(Take(gen_unescapify_string(escaped)), "\x0f");
  gen_free(escaped);
}

// Random strings of bytes 1..255 (a byte 1, 2 or 3 is never followed by an
// octal digit, see the test above).
std::string RandomText(std::mt19937 &rng) {
  std::uniform_int_distribution<int> length(0, 40);
  std::uniform_int_distribution<int> byte(1, 255);
  std::string text(static_cast<size_t>(length(rng)), ' ');
  for (size_t k = 0; k < text.size(); k++) {
    text[k] = static_cast<char>(byte(rng));
    if (k > 0 && text[k - 1] >= 1 && text[k - 1] <= 3 && text[k] >= '0' && text[k] <= '7')
      text[k] = 'x';
  }
  return text;
}

TEST(RoundTrip, RandomByteStringsSurviveQuotingAndEscaping) {
  constexpr unsigned kSeed = 5812;
  std::mt19937 rng(kSeed);
  for (int round = 0; round < 2000; round++) {
    std::string text = RandomText(rng);
    char *quoted = gen_quotify_string(text.c_str());
    ASSERT_EQ(Take(gen_dequotify_string(quoted)), text) << "seed " << kSeed << " round " << round;
    gen_free(quoted);
    char *single = gen_single_quotify_string(text.c_str());
    ASSERT_EQ(Take(gen_dequotify_string(single)), text) << "seed " << kSeed << " round " << round;
    gen_free(single);
    char *escaped = gen_escapify_string(text.c_str());
    ASSERT_EQ(Take(gen_unescapify_string(escaped)), text) << "seed " << kSeed << " round " << round;
    gen_free(escaped);
  }
}

TEST(ShellEscape, BlanksAndDoubleQuotesGetSingleQuotes) {
  EXPECT_TRUE(needs_shellescaping("my file"));
  EXPECT_TRUE(needs_shellescaping("a\"b"));
  EXPECT_FALSE(needs_shellescaping("plain-name.txt"));
  EXPECT_FALSE(needs_shellescaping(nullptr));

  EXPECT_EQ(Take(gen_shellescapify_filename("my file")), "'my file'");
  EXPECT_EQ(Take(gen_shellescapify_filename("it's a")), "'it's a'");
  EXPECT_EQ(Take(gen_shellescapify_filename("plain")), "plain");
  EXPECT_EQ(Take(gen_shellescapify_filename(nullptr)), "<null>");

  EXPECT_EQ(Take(gen_unshellescapify_filename("'my file'")), "my file");
  EXPECT_EQ(Take(gen_unshellescapify_filename("'open")), "open");
  EXPECT_EQ(Take(gen_unshellescapify_filename("'")), "");
  EXPECT_EQ(Take(gen_unshellescapify_filename("\"a\\\"b\"")), "a\"b");
  EXPECT_EQ(Take(gen_unshellescapify_filename("plain'")), "plain'");
  EXPECT_EQ(Take(gen_unshellescapify_filename(nullptr)), "<null>");

  char *escaped = gen_shellescapify_filename("dir/with blank/f");
  EXPECT_EQ(Take(gen_unshellescapify_filename(escaped)), "dir/with blank/f");
  gen_free(escaped);
}

TEST(BinaryToString, LowDigitFirst) {
  const unsigned char bytes[] = {0x12, 0xAB, 0x00, 0xF0, 0x0F};
  EXPECT_EQ(Take(gen_binary_to_string(bytes, 5)), "21ba000ff0");
  EXPECT_EQ(Take(gen_binary_to_string(bytes, 0)), "");
  EXPECT_STREQ(gen_devnullpathname(), "/dev/null");
}

int MeasureLength(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
int MeasureLength(const char *format, ...) {
  va_list args;
  va_start(args, format);
  int n = gen_Xprintflen(format, args);
  va_end(args);
  return n;
}

TEST(Format, MeasuredLength) {
  EXPECT_EQ(MeasureLength("%s-%d", "abc", 12345), 9);
  EXPECT_EQ(MeasureLength("%s", ""), 0);
  EXPECT_EQ(MeasureLength("%5000d", 1), 5000);
}

// A buffer of 16 'Z' bytes, so that untouched bytes show.
struct Buffer {
  char bytes[16];
  Buffer() { memset(bytes, 'Z', sizeof bytes); }
  std::string Head(size_t n) const { return std::string(bytes, n); }
};

TEST(Format, SnprintfCutRule) {
  Buffer shorter;
  EXPECT_EQ(gen_snprintf(shorter.bytes, 10, "%s", "abc"), 3);
  EXPECT_EQ(shorter.Head(5), std::string("abc\0Z", 5));

  Buffer exact;  // one character shorter than size: text and terminator
  EXPECT_EQ(gen_snprintf(exact.bytes, 5, "%s", "abcd"), 4);
  EXPECT_EQ(exact.Head(6), std::string("abcd\0Z", 6));

  Buffer longer;  // all size bytes filled, no terminator
  EXPECT_EQ(gen_snprintf(longer.bytes, 5, "%s%d", "abcdef", 78), 8);
  EXPECT_EQ(longer.Head(6), "abcdeZ");

  Buffer measured;  // size 0 only measures
  EXPECT_EQ(gen_snprintf(measured.bytes, 0, "%d-%s", 12, "xyz"), 6);
  EXPECT_EQ(measured.Head(16), std::string(16, 'Z'));
  EXPECT_EQ(gen_snprintf(nullptr, 0, "%s", "four"), 4);

  Buffer cut;  // a long text through the scratch buffer, then a short one
  std::string big(3000, 'q');
  EXPECT_EQ(gen_snprintf(cut.bytes, 8, "%s!", big.c_str()), 3001);
  EXPECT_EQ(cut.Head(9), "qqqqqqqqZ");
  EXPECT_EQ(gen_snprintf(cut.bytes, 3, "%d", 42), 2);
  EXPECT_EQ(cut.Head(4), std::string("42\0q", 4));
}

TEST(Format, MsprintfGivesANewBlock) {
  char *text = gen_msprintf("%s=%d", "key", 42);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "key=42");
  gen_free(text);

  std::string big(10000, 'w');
  text = gen_msprintf("<%s>", big.c_str());
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::string(text), "<" + big + ">");
  gen_free(text);

  text = gen_msprintf("%s", "");
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "");
  gen_free(text);
}

}  // namespace
