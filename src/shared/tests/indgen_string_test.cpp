// Tests of the string layer: classes at their edges, comparisons, searches,
// the copy and join families with their null rules (an 'f' function frees its
// first argument), the tokeniser, the template finder, text classes, the hash.
#include "indgen_string.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>

#include "indgeninit.h"
#include "result_rows.h"

namespace {

using testsupport::Each;
using testsupport::Got;

TEST(CharClasses, EveryClassAtItsEdges) {
  // isspace, isalnum, isupper, isblank, isbreak, is_whitespace, is_separator, is_alphanum, is_arith,
  // char_type
  using Classes = std::array<int, 10>;
  const std::pair<char, Classes> rows[] = {
      {' ', {1, 0, 0, 1, 1, 2, 0, 0, 0, 2}},    {'\t', {1, 0, 0, 1, 1, 2, 0, 0, 0, 2}},
      {'\n', {1, 0, 0, 0, 1, 2, 0, 0, 0, 2}},   {'\r', {1, 0, 0, 0, 1, 0, 0, 0, 0, 3}},
      {'\f', {1, 0, 0, 0, 1, 0, 0, 0, 0, 3}},   {'\v', {0, 0, 0, 0, 1, 0, 0, 0, 0, 3}},
      {'\0', {0, 0, 0, 0, 1, 0, 0, 0, 0, -1}},  {'!', {0, 0, 0, 0, 0, 0, 0, 0, 9, 3}},
      {'~', {0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},    {'\x7f', {0, 0, 0, 0, 1, 0, 0, 0, 0, 3}},
      {'\x80', {0, 0, 0, 0, 1, 0, 0, 1, 0, 0}}, {'\xe9', {0, 0, 0, 0, 1, 0, 0, 1, 0, 0}},
      {'@', {0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},    {'A', {0, 1, 1, 0, 0, 0, 0, 1, 0, 0}},
      {'Z', {0, 1, 1, 0, 0, 0, 0, 1, 0, 0}},    {'[', {0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},
      {'a', {0, 1, 0, 0, 0, 0, 0, 1, 0, 0}},    {'z', {0, 1, 0, 0, 0, 0, 0, 1, 0, 0}},
      {'0', {0, 1, 0, 0, 0, 0, 0, 1, 0, 0}},    {'9', {0, 1, 0, 0, 0, 0, 0, 1, 0, 0}},
      {'_', {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},    {'$', {0, 0, 0, 0, 0, 0, 0, 1, 0, 0}},
      {';', {0, 0, 0, 0, 1, 0, 0, 0, 0, 3}},    {'/', {0, 0, 0, 0, 0, 0, 1, 0, 9, 3}},
      {'\\', {0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},   {'%', {0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},
  };
  for (const auto &[ch, classes] : rows) {
    const int c = ch;  // a negative char stands for its byte
    EXPECT_EQ((Classes{gen_isspace(c), gen_isalnum(c), gen_isupper(c), gen_isblank(c), gen_isbreak(c),
                       gen_is_whitespace(c), gen_is_separator(c), gen_is_alphanum(c), gen_is_arith(c),
                       gen_char_type(c)}),
              classes) << c;
  }
  for (char c : std::string("=><:+-*&|")) EXPECT_EQ(gen_is_arith(c), 9) << c;
  EXPECT_TRUE(gen_isblankstring("") && gen_isblankstring(" \t ") && !gen_isblankstring(" x"));
}

TEST(Compare, EqualityAndOrderFolded) {
  // a, b, n; strequal, strnequal, stricmp, strnicmp (9: not asked, a null argument)
  for (const auto &[a, b, n, equal, nequal, icmp, nicmp] :
       {std::tuple<const char *, const char *, int, int, int, int, int>{"AbC", "aBc", 3, 1, 1, 0, 0},
        {"abc", "ab", 2, 0, 1, 1, 0}, {"ab", "abc", 2, 0, 1, -1, 0}, {"a", "ab", 2, 0, 0, -1, -1},
        {"B", "a", 1, 0, 0, 1, 1}, {"_", "a", 1, 0, 0, -1, -1},  // '_' below folded 'A'
        {"\xe9", "a", 1, 0, 0, -1, -1}, {"a\xe9", "a", 2, 0, 0, 1, 1},  // signed, yet longer
        {"abX", "ABy", 2, 0, 1, -1, 0}, {"abX", "ABy", 3, 0, 0, -1, -1}, {"-help", "-h", 2, 0, 1, 1, 0},
        {"x", "y", 0, 0, 1, -1, 0}, {"a", "b", -3, 0, 1, -1, 0}, {nullptr, nullptr, 2, 1, 1, 9, 9},
        {nullptr, "", 2, 0, 0, 9, 9}, {"a", nullptr, 2, 0, 0, 9, 9}}) {
    const bool asked = icmp != 9;
    EXPECT_EQ(std::tuple(gen_strequal(a, b), gen_strnequal(a, b, n), asked ? gen_stricmp(a, b) : 9,
                         asked ? gen_strnicmp(a, b, n) : 9),
              std::tuple(equal, nequal, icmp, nicmp)) << Got(a) << "|" << Got(b) << " " << n;
  }
}

TEST(Compare, PrefixAndSuffix) {
  // s, p, n; strprefix, strprefixn, strcaseprefix, strcaseprefixn, strsuffix
  for (const auto &[s, p, n, prefix, prefixn, caseprefix, caseprefixn, suffix] :
       {std::tuple{"abc", "", 0, 1, 1, 1, 1, 1}, {"abc", "ab", 2, 1, 1, 1, 1, 0},
        {"abc", "aB", 2, 0, 0, 1, 1, 0},
        {"ab", "abc", 5, 0, 0, 0, 0, 0}, {"abc", "abX", 2, 0, 1, 0, 1, 0}, {"abc", "abX", 3, 0, 0, 0, 0, 0},
        {"abc", "ab", 5, 1, 1, 1, 1, 0}, {"xyz", "abc", 0, 0, 1, 0, 1, 0}, {"ABC", "abz", 2, 0, 0, 0, 1, 0},
        {"file.c", ".c", 0, 0, 1, 0, 1, 1}, {"file.c", ".C", 0, 0, 1, 0, 1, 0},
        {"same", "same", 4, 1, 1, 1, 1, 0}, {"", "", 0, 1, 1, 1, 1, 0}})
    EXPECT_EQ(std::tuple(gen_strprefix(s, p), gen_strprefixn(s, p, n), gen_strcaseprefix(s, p),
                         gen_strcaseprefixn(s, p, n), gen_strsuffix(s, p)),
              std::tuple(prefix, prefixn, caseprefix, caseprefixn, suffix)) << s << "|" << p << "|" << n;
}

TEST(Search, FirstAndLastOccurrence) {
  const char *s = "aXbxbxb";
  // the finder, where it looks, what for, where it finds it (-1: null)
  for (const auto &[find, in, x, at] :
       {std::tuple{&gen_strstr, s, "xb", 3}, {gen_strstr, s, "", -1}, {gen_strstr, s, "q", -1},
        {gen_strstr, nullptr, "a", -1}, {gen_strcasestr, s, "xB", 1}, {gen_strcasestr, s, "", 0},
        {gen_strcasestr, "", "", -1}, {gen_strcasestr, s, nullptr, -1}, {gen_strrstr, s, "xb", 5},
        {gen_strrstr, s, "Xb", 1}, {gen_strrstr, s, "", 7}, {gen_strrstr, s, "aXbxbxbY", -1},
        {gen_strrcasestr, s, "XB", 5}, {gen_strrcasestr, s, "", 7}, {gen_strrcasestr, s, "A", 0},
        {gen_strrcasestr, nullptr, "a", -1}}) {
    const char *found = find(in, x);
    EXPECT_EQ(found == nullptr ? -1 : found - in, at) << Got(in) << " " << Got(x);
  }
}

TEST(CopyAndJoin, NullAndEmptyRulesAndOwnership) {
  char *var = gen_copy("keep"), *same = var;
  gen_strchange(&var, var);  // itself: nothing happens
  EXPECT_EQ(var, same);
  gen_strchange(&var, "new"), gen_strchangen(&var, var, 2);
  EXPECT_STREQ(var, "ne");
  gen_strchange(&var, nullptr);
  EXPECT_EQ(var, nullptr);
  char *old = gen_copy("hello world"), *part = gen_copy("hello");
  Each(gen_strlower, {{{"AbC-\xC9"}, "abc-\xC9"}, {{nullptr}, "<null>"}});
  Each(gen_strupper, {{{"aBc_1"}, "ABC_1"}});
  Each(gen_copyn, {{{"abcdef", 3}, "abc"}, {{"ab", 10}, "ab"}, {{"ab", 0}, ""}, {{"ab", -1}, "<null>"},
                   {{nullptr, 3}, "<null>"}});
  Each(gen_fcopy, {{{old, old + 6}, "world"}, {{nullptr, "x"}, "x"}});
  Each(gen_fcopyn, {{{part, part + 1, 3}, "ell"}});
  Each(gen_concat,
       {{{nullptr, nullptr}, "<null>"}, {{"", "b"}, "b"}, {{"a", nullptr}, "a"}, {{"a", "b"}, "ab"}});
  Each(gen_concatn, {{{"a", "bcd", 2}, "abc"}, {{"a", "bcd", 9}, "abcd"}, {{"a", "bcd", 0}, "a"},
                     {{nullptr, "bcd", 2}, "bc"}, {{"", "bcd", -1}, "<null>"}});
  Each(gen_concat3, {{{"a", nullptr, nullptr}, "a"}, {{nullptr, "b", "c"}, "bc"}, {{"a", nullptr, "c"}, "ac"},
                     {{"a", "", "c"}, "ac"}, {{"a", "b", "c"}, "abc"},
                     {{nullptr, nullptr, nullptr}, "<null>"}});
  Each(gen_concat_sep, {{{"a", ':', "b"}, "a:b"}, {{"a", '\0', "b"}, "ab"}, {{nullptr, ':', "b"}, "b"},
                        {{"a", ':', nullptr}, "a"}, {{"", ':', ""}, ":"}});
  Each(gen_concat4, {{{nullptr, nullptr, nullptr, nullptr}, ""}});
  Each(gen_concat_int, {{{"n", -42}, "n-42"}, {{nullptr, INT_MIN}, "-2147483648"}});
  Each(gen_fconcat,
       {{{gen_copy("a"), "b"}, "ab"}, {{gen_copy(""), "b"}, "b"}, {{nullptr, nullptr}, "<null>"}});
  Each(gen_fconcatn, {{{gen_copy("a"), "bcd", 1}, "ab"}});
  Each(gen_fconcat_sep, {{{gen_copy("a"), '/', "b"}, "a/b"}});
  Each(gen_fconcat5, {{{nullptr, "2", "3", "4", "5"}, "2345"}});
  Each(gen_fconcat9, {{{gen_copy("1"), "2", "3", "4", "5", "6", "7", "8", "9"}, "123456789"}});
}

TEST(PathJoin, JoinersOfFileNames) {
  // ".." canonicalises to "."; an absolute name is copied as it is; '~' joins like a relative name.
  Each(gen_sconcat, {{{"a", "b"}, "a/b"}, {{"a/", "b"}, "a/b"}, {{"a", ".."}, "."}, {{"a/b", "../c"}, "a/c"},
                     {{"/", "a"}, "/a"}, {{"d", "/x/../y"}, "/x/../y"}, {{"d", "~x"}, "d/~x"},
                     {{nullptr, "a/./b"}, "a/./b"}, {{"", "n"}, "n"}, {{"d/./e", nullptr}, "d/e"},
                     {{"d//", ""}, "d/"}, {{"./x", "y"}, "./x/y"}, {{nullptr, nullptr}, "<null>"}});
  Each(gen_dconcat, {{{"d", "~x"}, "~x"}, {{"d", "/abs/./"}, "/abs/./"}, {{"d/.", ""}, "d/."},
                     {{"d", nullptr}, "d"}, {{nullptr, "n"}, "n"}, {{"", "n/."}, "n/."},
                     {{"d", "n/."}, "d/n"}, {{nullptr, ""}, "<null>"}});
  Each(gen_sconcatf, {{{gen_copy("a/b"), ".."}, "a"}});
  Each(gen_dconcatf, {{{gen_copy("a"), "~u"}, "~u"}});
  Each(gen_ddconcat, {{{"a", "b", "/c"}, "/c"}, {{"a", "b", "c"}, "a/b/c"}});
  Each(gen_dsconcat, {{{"a", "/b", "~c"}, "/b/~c"}});
  Each(gen_ddsconcat, {{{"a", "b", "c", "../d"}, "a/b/d"}});
}

TEST(Tokens, SplitsInPlaceWithoutHiddenState) {
  char text[] = "::one:two::three", delimiters_only[] = " ,, ";
  char *next = nullptr;
  EXPECT_STREQ(gen_strtok_r(text, ":", &next), "one");
  EXPECT_STREQ(next, "two::three");
  EXPECT_STREQ(gen_strtok_r(next, ":", &next), "two");
  EXPECT_STREQ(gen_strtok_r(next, ":", &next), "three");
  EXPECT_TRUE(next == nullptr && gen_strtok_r(next, ":", &next) == nullptr);
  next = delimiters_only;
  EXPECT_TRUE(gen_strtok_r(delimiters_only, " ,", &next) == nullptr && next == nullptr);
  for (const char *set : {";", ";,", ";,\t"}) {  // sets of one, two and more characters
    char line[] = "a,b;c";
    EXPECT_STREQ(gen_strtok_r(line, set, &next), set[1] != '\0' ? "a" : "a,b") << set;
  }
}

TEST(CloseAngle, FindsTheMatchingBracket) {
  const char *s = "a<b, c<d>>x", *rest = ", f(int)&>", *bare = ">";
  EXPECT_EQ(gen_find_close_angle(s + 1, nullptr, nullptr), s + 9);
  EXPECT_EQ(gen_find_close_angle(bare, nullptr, nullptr), bare);  // a '>' at depth 0 is the answer
  int angle = 0, paren = 0;  // the depths carry over from one piece to the next
  EXPECT_TRUE(gen_find_close_angle("map<std::string", &angle, &paren) == nullptr && angle == 1);
  EXPECT_TRUE(gen_find_close_angle(rest, &angle, &paren) == rest + 9 && angle == 0);
  for (const char *stops : {"<a && b>", "<a:b>", "<f(>", "<a"})
    EXPECT_EQ(gen_find_close_angle(stops, nullptr, nullptr), nullptr) << stops;
}

TEST(CharTypes, SourceTextClasses) {
  // previous, the character, next; its class
  for (const auto &[previous, c, next, expected] :
       {std::tuple{'a', '\0', 'b', 0}, {'a', '\\', 'b', 8}, {'\\', 'n', 'b', 8}, {' ', 'x', ' ', 1},
        {'a', '\t', 'b', 2},  {' ', '-', '1', 1},  {'a', '-', '1', 9},  {' ', '-', ' ', 9},
        {'*', '/', 'a', 10},  {'a', '/', '/', 10}, {'a', '/', 'b', 13}, {'/', '*', 'a', 10},
        {'a', '*', 'b', 13},  {'n', '\'', 't', 1}, {' ', '\'', 't', 13}, {' ', '_', ' ', 1},
        {'(', ';', ' ', 3},   {' ', ',', ' ', 4},  {' ', '(', ')', 12}, {'(', ')', ' ', 12},
        {' ', '(', 'a', 5},   {'(', '"', ' ', 5},  {' ', '{', '}', 12}, {'{', '.', ' ', 6},
        {' ', '[', ']', 12},  {' ', '[', '1', 7},  {'[', '+', ' ', 7},  {' ', '.', ' ', 13},
        {' ', '\r', ' ', 13}, {' ', '$', ' ', 1}})
    EXPECT_EQ(gen_new_char_type(previous, c, next), expected) << "'" << previous << c << next << "'";
}

TEST(Hash, PinnedValuesAndSampling) {
  EXPECT_EQ(gen_hcomp("abc", 3), 0x5BA5A69Eu);
  EXPECT_EQ(gen_hcomp("\xFF", 1), 0x69969669u);  // a top-bit byte counts as negative
  EXPECT_EQ(gen_hcomp("", 0), 0u);
  // From ten bytes on only 0-2, n/2-1..n/2+1 and the last three count; for
  // n = 12 those are 0,1,2,5,6,7,9,10,11, so 3, 4 and 8 are free.
  EXPECT_EQ(gen_hcomp("abcXYfghZjkl", 12), gen_hcomp("abc12fgh3jkl", 12));
  EXPECT_NE(gen_hcomp("abcdefghijkl", 12), gen_hcomp("abcdeXghijkl", 12));
  EXPECT_NE(gen_hcomp("abcdefghi", 9), gen_hcomp("abcdXfghi", 9));  // nine: all of them
}

}  // namespace
