// Tests of quoting and formatting: the escape tables pinned literally, shell
// quoting of file names, the hex dump, and the cut rule and measured length
// of the formatter.
#include "indgen_quote.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>

#include "indgeninit.h"
#include "result_rows.h"

namespace {

using testsupport::Each;
using testsupport::Got;

TEST(Quoting, EscapeTablesAndQuotesPinned) {
  const char *input = "a\\b\"c'd\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9";
  // Byte 1 then '7' escapes to \17, which reads back as one byte.
  Each(gen_escapify_string, {{{input}, "a\\\\b\\\"c\\'d\\ne\\rf\\tg\\1\\2\\3h\x04\x7f\xe9"}, {{""}, ""},
                             {{nullptr}, "<null>"}, {{"\x01" "7"}, "\\17"}});
  Each(gen_quotify_string,
       {{{input}, "\"a\\\\b\\\"c\\'d\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9\""}, {{""}, "\"\""},
        {{nullptr}, "<null>"}});
  Each(gen_single_quotify_string,
       {{{input}, "'a\\\\b\\\"c\\'d\ne\rf\tg\x01\x02\x03h\x04\x7f\xe9'"}, {{nullptr}, "<null>"}});
  Each(xquotify_string, {{{"x\ty", '|', 1}, "|x\\ty|"}});
  // An escape giving 0 ends the text.
  Each(gen_unescapify_string, {{{"\\17"}, "\x0f"}, {{"\"a\\tb\""}, "\"a\tb\""}, {{"ab\\0cd"}, "ab"},
                               {{"ab\\"}, "ab"}, {{"\\1x\\777"}, "\x01x777"}, {{nullptr}, "<null>"}});
  Each(gen_double_dequotify_string,
       {{{"a\"b\"c"}, "abc"}, {{"\"a\\\"b\""}, "a\"b"}, {{nullptr}, "<null>"}});
  Each(gen_single_dequotify_string, {{{"'it\\'s'"}, "it's"}, {{"\"a\""}, "\"a\""}, {{nullptr}, "<null>"}});
  Each(xunquotify_string, {{{"a\\nb|c", '|', 0}, "a\\nbc"}});
  // The quote is the first character.
  Each(gen_dequotify_string, {{{"\"a'b\""}, "a'b"}, {{"'a\"b'"}, "a\"b"}, {{"\"open"}, "open"},
                              {{"a\"b\\n"}, "a\"b\n"}, {{""}, ""}, {{nullptr}, "<null>"}});
}

TEST(Unescape, OneEscapeAtATime) {
  // text, value, characters consumed
  for (const auto &[text, value, consumed] :
       {std::tuple<const char *, int, long>{"z", 'z', 1}, {"\\a", 7, 2}, {"\\b", 8, 2}, {"\\f", 12, 2},
        {"\\n", 10, 2},     {"\\r", 13, 2},     {"\\t", 9, 2},      {"\\v", 11, 2},
        {"\\\\", '\\', 2},  {"\\\"", '"', 2},   {"\\'", '\'', 2},   {"\\?", '?', 2},
        {"\\101", 'A', 4},  {"\\0", 0, 2},      {"\\1a", 1, 2},     {"\\12a", 10, 3},
        {"\\3777", -1, 4},  {"\\777", '7', 2},  {"\\4", '4', 2},    {"\\9", '9', 2},
        {"\\x41", 'A', 4},  {"\\x4g", 4, 3},    {"\\xFF", -1, 4},   {"\\xff", -1, 4},
        {"\\x414", 'A', 4}, {"\\xg", 0, 2},     {"\\q", 'q', 2},    {"\\", 0, 1},
        {"", 0, 0},         {"\xe9", -23, 1}}) {
    const char *p = text;
    EXPECT_EQ((std::tuple{gen_unescape_one_char(&p), p - text}), std::tuple(value, consumed)) << text;
  }
}

TEST(ShellEscape, BlanksAndDoubleQuotesGetSingleQuotes) {
  const unsigned char bytes[] = {0x12, 0xAB, 0x00, 0xF0, 0x0F};
  Each(gen_shellescapify_filename, {{{"my file"}, "'my file'"}, {{"plain"}, "plain"}});
  Each(gen_unshellescapify_filename, {{{"'my file'"}, "my file"}, {{"'open"}, "open"},
                                      {{"\"a\\\"b\""}, "a\"b"}, {{"plain'"}, "plain'"}});
  Each(gen_binary_to_string, {{{bytes, 5}, "21ba000ff0"}, {{bytes, 0}, ""}});  // low digit first
}

TEST(Format, TheCutRuleAndNewBlocks) {
  const std::string big(3000, 'q');
  char buf[16];
  // size, text, result, the first `shown` bytes of buf afterwards ('Z' untouched), shown
  for (const auto &[size, text, result, bytes, shown] :
       {std::tuple<size_t, const char *, int, const char *, size_t>{10, "abc", 3, "abc\0Z", 5},
        {5, "abcd", 4, "abcd\0Z", 6},              // size - 1 characters: text and terminator
        {5, "abcdef78", 8, "abcdeZ", 6},           // longer: size bytes, no terminator
        {0, "12-xyz", 6, "ZZZZZZZZZZZZZZZZ", 16},  // size 0 only measures
        {8, big.c_str(), 3000, "qqqqqqqqZ", 9}}) {  // through the scratch buffer
    memset(buf, 'Z', sizeof buf);
    EXPECT_EQ(gen_snprintf(buf, size, "%s", text), result) << size;
    EXPECT_EQ(std::string(buf, shown), std::string(bytes, shown)) << size;
  }
  EXPECT_EQ(gen_snprintf(buf, 3, "%d", 42), 2);  // short again behind a long one
  EXPECT_EQ(std::string(buf, 4), std::string("42\0q", 4));
  EXPECT_EQ(gen_snprintf(nullptr, 0, "%s", "four"), 4);
  const std::string long_text(10000, 'w');
  EXPECT_EQ(Got(gen_msprintf("<%s>", long_text.c_str())), "<" + long_text + ">");
}

}  // namespace
