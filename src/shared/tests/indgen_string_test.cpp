// Tests of the string layer: character classes, comparisons and searches at
// their edges, the copy and join families with their null rules (every 'f'
// function frees its first argument, which the sanitizer build checks), the
// joiner of file names, the tokeniser, the template finder, the classes of
// source-text characters and the hash.
#include "indgen_string.h"

#include <gtest/gtest.h>

#include <climits>
#include <initializer_list>
#include <string>
#include <utility>

#include "indgeninit.h"

namespace {

// The text of a new heap string, which is freed; "<null>" for null.
std::string Take(char *s) {
  std::string text = s == nullptr ? "<null>" : s;
  gen_free(s);
  return text;
}

// Rows of (what a call gave, what it should give).
using Results = std::pair<std::string, const char *>;
void ExpectAll(std::initializer_list<Results> rows) {
  int row = 0;
  for (const Results &r : rows) EXPECT_EQ(r.first, r.second) << "row " << row++;
}

TEST(CharClasses, EveryClassAtItsEdges) {
  const struct {
    char c;
    int space, alnum, upper, blank, brk, white, sep, alnum_dollar, arith, type;
  } rows[] = {
      {' ', 1, 0, 0, 1, 1, 2, 0, 0, 0, 2},    {'\t', 1, 0, 0, 1, 1, 2, 0, 0, 0, 2},
      {'\n', 1, 0, 0, 0, 1, 2, 0, 0, 0, 2},   {'\r', 1, 0, 0, 0, 1, 0, 0, 0, 0, 3},
      {'\f', 1, 0, 0, 0, 1, 0, 0, 0, 0, 3},   {'\v', 0, 0, 0, 0, 1, 0, 0, 0, 0, 3},
      {'\0', 0, 0, 0, 0, 1, 0, 0, 0, 0, -1},  {'!', 0, 0, 0, 0, 0, 0, 0, 0, 9, 3},
      {'~', 0, 0, 0, 0, 0, 0, 0, 0, 0, 3},    {'\x7f', 0, 0, 0, 0, 1, 0, 0, 0, 0, 3},
      {'\x80', 0, 0, 0, 0, 1, 0, 0, 1, 0, 0}, {'\xe9', 0, 0, 0, 0, 1, 0, 0, 1, 0, 0},
      {'@', 0, 0, 0, 0, 0, 0, 0, 0, 0, 3},    {'A', 0, 1, 1, 0, 0, 0, 0, 1, 0, 0},
      {'Z', 0, 1, 1, 0, 0, 0, 0, 1, 0, 0},    {'[', 0, 0, 0, 0, 0, 0, 0, 0, 0, 3},
      {'a', 0, 1, 0, 0, 0, 0, 0, 1, 0, 0},    {'z', 0, 1, 0, 0, 0, 0, 0, 1, 0, 0},
      {'0', 0, 1, 0, 0, 0, 0, 0, 1, 0, 0},    {'9', 0, 1, 0, 0, 0, 0, 0, 1, 0, 0},
      {'_', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},    {'$', 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},
      {';', 0, 0, 0, 0, 1, 0, 0, 0, 0, 3},    {'/', 0, 0, 0, 0, 0, 0, 1, 0, 9, 3},
      {'\\', 0, 0, 0, 0, 0, 0, 0, 0, 0, 3},   {'%', 0, 0, 0, 0, 0, 0, 0, 0, 0, 3},
  };
  for (const auto &r : rows) {
    const int c = r.c;  // a negative char stands for its byte
    EXPECT_EQ(gen_isspace(c), r.space) << c;
    EXPECT_EQ(gen_isalnum(c), r.alnum) << c;
    EXPECT_EQ(gen_isupper(c), r.upper) << c;
    EXPECT_EQ(gen_isblank(c), r.blank) << c;
    EXPECT_EQ(gen_isbreak(c), r.brk) << c;
    EXPECT_EQ(gen_is_whitespace(c), r.white) << c;
    EXPECT_EQ(gen_is_separator(c), r.sep) << c;
    EXPECT_EQ(gen_is_alphanum(c), r.alnum_dollar) << c;
    EXPECT_EQ(gen_is_arith(c), r.arith) << c;
    EXPECT_EQ(gen_char_type(c), r.type) << c;
  }
  for (char c : std::string("=><:+-*&|")) EXPECT_EQ(gen_is_arith(c), 9) << c;
  EXPECT_TRUE(gen_isblankstring("") && gen_isblankstring(" \t "));
  EXPECT_FALSE(gen_isblankstring(" x") || gen_isblankstring(nullptr));
}

TEST(Compare, EqualityAndOrderFolded) {
  const struct {
    const char *a, *b;
    int n, equal, nequal, icmp, nicmp;  // icmp 9: not asked (null argument)
  } rows[] = {
      {"AbC", "aBc", 3, 1, 1, 0, 0},    {"abc", "ab", 2, 0, 1, 1, 0},
      {"ab", "abc", 2, 0, 1, -1, 0},    {"a", "ab", 2, 0, 0, -1, -1},
      {"B", "a", 1, 0, 0, 1, 1},        {"_", "a", 1, 0, 0, -1, -1},  // '_' below folded 'A'
      {"\xe9", "a", 1, 0, 0, -1, -1},   {"a\xe9", "a", 2, 0, 0, 1, 1},  // signed, yet longer
      {"abX", "ABy", 2, 0, 1, -1, 0},   {"abX", "ABy", 3, 0, 0, -1, -1},
      {"-help", "-h", 2, 0, 1, 1, 0},   {"x", "y", 0, 0, 1, -1, 0},
      {"a", "b", -3, 0, 1, -1, 0},      {nullptr, nullptr, 2, 1, 1, 9, 9},
      {nullptr, "", 2, 0, 0, 9, 9},     {"a", nullptr, 2, 0, 0, 9, 9},
  };
  for (const auto &r : rows) {
    const std::string shown = std::string(r.a ? r.a : "<null>") + "|" + (r.b ? r.b : "<null>");
    EXPECT_EQ(gen_strequal(r.a, r.b), r.equal) << shown;
    EXPECT_EQ(gen_strnequal(r.a, r.b, r.n), r.nequal) << shown << " " << r.n;
    if (r.icmp == 9) continue;
    EXPECT_EQ(gen_stricmp(r.a, r.b), r.icmp) << shown;
    EXPECT_EQ(gen_strnicmp(r.a, r.b, r.n), r.nicmp) << shown << " " << r.n;
  }
}

TEST(Compare, PrefixAndSuffix) {
  const struct {
    const char *s, *p;
    int n, prefix, prefixn, caseprefix, caseprefixn, suffix;
  } rows[] = {
      {"abc", "", 0, 1, 1, 1, 1, 1},      {"abc", "ab", 2, 1, 1, 1, 1, 0},
      {"abc", "aB", 2, 0, 0, 1, 1, 0},    {"ab", "abc", 5, 0, 0, 0, 0, 0},
      {"abc", "abX", 2, 0, 1, 0, 1, 0},   {"abc", "abX", 3, 0, 0, 0, 0, 0},
      {"abc", "ab", 5, 1, 1, 1, 1, 0},    {"xyz", "abc", 0, 0, 1, 0, 1, 0},
      {"ABC", "abz", 2, 0, 0, 0, 1, 0},   {"file.c", ".c", 0, 0, 1, 0, 1, 1},
      {"file.c", ".C", 0, 0, 1, 0, 1, 0}, {"same", "same", 4, 1, 1, 1, 1, 0},
      {"", "", 0, 1, 1, 1, 1, 0},
  };
  for (const auto &r : rows) {
    const std::string shown = std::string(r.s) + "|" + r.p + "|" + std::to_string(r.n);
    EXPECT_EQ(gen_strprefix(r.s, r.p), r.prefix) << shown;
    EXPECT_EQ(gen_strprefixn(r.s, r.p, r.n), r.prefixn) << shown;
    EXPECT_EQ(gen_strcaseprefix(r.s, r.p), r.caseprefix) << shown;
    EXPECT_EQ(gen_strcaseprefixn(r.s, r.p, r.n), r.caseprefixn) << shown;
    EXPECT_EQ(gen_strsuffix(r.s, r.p), r.suffix) << shown;
  }
}

TEST(Search, FirstAndLastOccurrence) {
  const char *s = "aXbxbxb";
  const struct {
    char *(*find)(const char *, const char *);
    const char *in, *x;
    int at;  // -1: null
  } rows[] = {
      {gen_strstr, s, "xb", 3},           {gen_strstr, s, "", -1},
      {gen_strstr, s, "q", -1},           {gen_strstr, nullptr, "a", -1},
      {gen_strcasestr, s, "xB", 1},       {gen_strcasestr, s, "", 0},
      {gen_strcasestr, "", "", -1},       {gen_strcasestr, s, nullptr, -1},
      {gen_strstr2, s, "XB", 1},          {gen_strrstr, s, "xb", 5},
      {gen_strrstr, s, "Xb", 1},          {gen_strrstr, s, "", 7},
      {gen_strrstr, s, "aXbxbxbY", -1},   {gen_strrcasestr, s, "XB", 5},
      {gen_strrcasestr, s, "", 7},        {gen_strrcasestr, s, "A", 0},
      {gen_strrcasestr, nullptr, "a", -1},
  };
  int row = 0;
  for (const auto &r : rows) {
    const char *found = r.find(r.in, r.x);
    EXPECT_EQ(found == nullptr ? -1 : found - r.in, r.at) << "row " << row++;
  }
}

TEST(CopyAndJoin, NullAndEmptyRulesAndOwnership) {
  char *var = gen_copy("keep");
  char *same = var;
  gen_strchange(&var, var);  // itself: nothing happens
  EXPECT_EQ(var, same);
  gen_strchange(&var, "new");
  gen_strchangen(&var, var, 2);
  EXPECT_STREQ(var, "ne");
  gen_strchange(&var, nullptr);
  EXPECT_EQ(var, nullptr);
  char *old = gen_copy("hello world");
  char *part = gen_copy("hello");
  ExpectAll({
      {Take(gen_strlower("AbC-\xC9")), "abc-\xC9"}, {Take(gen_strupper("aBc_1")), "ABC_1"},
      {Take(gen_strlower(nullptr)), "<null>"},     {Take(gen_copy(nullptr)), "<null>"},
      {Take(gen_copyn("abcdef", 3)), "abc"},       {Take(gen_copyn("ab", 10)), "ab"},
      {Take(gen_copyn("ab", 0)), ""},              {Take(gen_copyn("ab", -1)), "<null>"},
      {Take(gen_copyn(nullptr, 3)), "<null>"},     {Take(gen_fcopy(old, old + 6)), "world"},
      {Take(gen_fcopyn(part, part + 1, 3)), "ell"}, {Take(gen_fcopy(nullptr, "x")), "x"},
      {Take(gen_concat(nullptr, nullptr)), "<null>"}, {Take(gen_concat("", "b")), "b"},
      {Take(gen_concat("a", nullptr)), "a"},       {Take(gen_concat("a", "b")), "ab"},
      {Take(gen_concatn("a", "bcd", 2)), "abc"},   {Take(gen_concatn("a", "bcd", 9)), "abcd"},
      {Take(gen_concatn("a", "bcd", 0)), "a"},     {Take(gen_concatn(nullptr, "bcd", 2)), "bc"},
      {Take(gen_concatn("", "bcd", -1)), "<null>"}, {Take(gen_concat3("a", nullptr, nullptr)), "a"},
      {Take(gen_concat3(nullptr, "b", "c")), "bc"}, {Take(gen_concat3("a", nullptr, "c")), "ac"},
      {Take(gen_concat3("a", "", "c")), "ac"},     {Take(gen_concat3("a", "b", "c")), "abc"},
      {Take(gen_concat3(nullptr, nullptr, nullptr)), "<null>"},
      {Take(gen_concat_sep("a", ':', "b")), "a:b"}, {Take(gen_concat_sep("a", '\0', "b")), "ab"},
      {Take(gen_concat_sep(nullptr, ':', "b")), "b"}, {Take(gen_concat_sep("a", ':', nullptr)), "a"},
      {Take(gen_concat_sep("", ':', "")), ":"},
      {Take(gen_concat4(nullptr, nullptr, nullptr, nullptr)), ""},
      {Take(gen_concat5("1", nullptr, "3", "4", "5")), "1345"},
      {Take(gen_concat9("1", "2", "3", "4", "5", "6", "7", "8", "9")), "123456789"},
      {Take(gen_concat_int("n", -42)), "n-42"},    {Take(gen_concat_int(nullptr, INT_MIN)), "-2147483648"},
      {Take(gen_fconcat(gen_copy("a"), "b")), "ab"}, {Take(gen_fconcat(gen_copy(""), "b")), "b"},
      {Take(gen_fconcat(nullptr, nullptr)), "<null>"},
      {Take(gen_fconcatn(gen_copy("a"), "bcd", 1)), "ab"},
      {Take(gen_fconcat3(gen_copy("a"), "b", "c")), "abc"},
      {Take(gen_fconcat_sep(gen_copy("a"), '/', "b")), "a/b"},
      {Take(gen_fconcat4(gen_copy("1"), "2", "3", "4")), "1234"},
      {Take(gen_fconcat5(nullptr, "2", "3", "4", "5")), "2345"},
      {Take(gen_fconcat9(gen_copy("1"), "2", "3", "4", "5", "6", "7", "8", "9")), "123456789"},
      {Take(gen_fconcat_int(gen_copy("v"), 7)), "v7"},
  });
}

TEST(PathJoin, JoinersOfFileNames) {
  ExpectAll({
      {Take(gen_sconcat("a", "b")), "a/b"},         {Take(gen_sconcat("a/", "b")), "a/b"},
      {Take(gen_sconcat("a", "..")), "."},          // canonicalises to nothing
      {Take(gen_sconcat("a/b", "../c")), "a/c"},    {Take(gen_sconcat("/", "a")), "/a"},
      {Take(gen_sconcat("d", "/x/../y")), "/x/../y"},  // absolute: copied as it is
      {Take(gen_sconcat("d", "~x")), "d/~x"},       // '~' joins like a relative name
      {Take(gen_sconcat(nullptr, "a/./b")), "a/./b"}, {Take(gen_sconcat("", "n")), "n"},
      {Take(gen_sconcat("d/./e", nullptr)), "d/e"}, {Take(gen_sconcat("d//", "")), "d/"},
      {Take(gen_sconcat("./x", "y")), "./x/y"},     {Take(gen_sconcat(nullptr, nullptr)), "<null>"},
      {Take(gen_dconcat("d", "~x")), "~x"},         {Take(gen_dconcat("d", "/abs/./")), "/abs/./"},
      {Take(gen_dconcat("d/.", "")), "d/."},        {Take(gen_dconcat("d", nullptr)), "d"},
      {Take(gen_dconcat(nullptr, "n")), "n"},       {Take(gen_dconcat("", "n/.")), "n/."},
      {Take(gen_dconcat("d", "n/.")), "d/n"},       {Take(gen_dconcat(nullptr, "")), "<null>"},
      {Take(gen_sconcatf(gen_copy("a/b"), "..")), "a"},
      {Take(gen_dconcatf(gen_copy("a"), "~u")), "~u"},
      {Take(gen_ddconcat("a", "b", "/c")), "/c"},   {Take(gen_ddconcat("a", "b", "c")), "a/b/c"},
      {Take(gen_dsconcat("a", "/b", "~c")), "/b/~c"},
      {Take(gen_ddsconcat("a", "b", "c", "../d")), "a/b/d"},
  });
}

TEST(Tokens, SplitsInPlaceWithoutHiddenState) {
  char text[] = "::one:two::three";
  char *next = nullptr;
  EXPECT_STREQ(gen_strtok_r(text, ":", &next), "one");
  EXPECT_STREQ(next, "two::three");
  EXPECT_STREQ(gen_strtok_r(next, ":", &next), "two");
  EXPECT_STREQ(gen_strtok_r(next, ":", &next), "three");
  EXPECT_EQ(next, nullptr);
  EXPECT_EQ(gen_strtok_r(next, ":", &next), nullptr);
  char delimiters_only[] = " ,, ";
  next = delimiters_only;
  EXPECT_EQ(gen_strtok_r(delimiters_only, " ,", &next), nullptr);
  EXPECT_EQ(next, nullptr);
  for (const char *set : {";", ";,", ";,\t"}) {  // sets of one, two and more characters
    char line[] = "a,b;c";
    char *rest = nullptr;
    EXPECT_STREQ(gen_strtok_r(line, set, &rest), set[1] != '\0' ? "a" : "a,b") << set;
  }
}

TEST(CloseAngle, FindsTheMatchingBracket) {
  const char *s = "a<b, c<d>>x";
  EXPECT_EQ(gen_find_close_angle(s + 1, nullptr, nullptr), s + 9);
  int angle = 0, paren = 0;  // the depths carry over from one piece to the next
  EXPECT_EQ(gen_find_close_angle("map<std::string", &angle, &paren), nullptr);
  EXPECT_EQ(angle, 1);
  const char *rest = ", f(int)&>";
  EXPECT_EQ(gen_find_close_angle(rest, &angle, &paren), rest + 9);
  EXPECT_EQ(angle, 0);
  const char *bare = ">";  // a '>' at depth 0 is itself the answer
  EXPECT_EQ(gen_find_close_angle(bare, nullptr, nullptr), bare);
  for (const char *stops : {"<a && b>", "<a:b>", "<f(>", "<a"})
    EXPECT_EQ(gen_find_close_angle(stops, nullptr, nullptr), nullptr) << stops;
  EXPECT_EQ(gen_find_close_angle(nullptr, &angle, &paren), nullptr);
}

TEST(CharTypes, SourceTextClasses) {
  const struct {
    char previous, c, next;
    int expected;
  } rows[] = {
      {'a', '\0', 'b', 0},  {'a', '\\', 'b', 8}, {'\\', 'n', 'b', 8}, {' ', 'x', ' ', 1},
      {'a', '\t', 'b', 2},  {' ', '-', '1', 1},  {'a', '-', '1', 9},  {' ', '-', ' ', 9},
      {'*', '/', 'a', 10},  {'a', '/', '/', 10}, {'a', '/', 'b', 13}, {'/', '*', 'a', 10},
      {'a', '*', 'b', 13},  {'n', '\'', 't', 1}, {' ', '\'', 't', 13}, {' ', '_', ' ', 1},
      {'(', ';', ' ', 3},   {' ', ',', ' ', 4},  {' ', '(', ')', 12}, {'(', ')', ' ', 12},
      {' ', '(', 'a', 5},   {'(', '"', ' ', 5},  {' ', '{', '}', 12}, {'{', '.', ' ', 6},
      {' ', '[', ']', 12},  {' ', '[', '1', 7},  {'[', '+', ' ', 7},  {' ', '.', ' ', 13},
      {' ', '\r', ' ', 13}, {' ', '$', ' ', 1},
  };
  for (const auto &r : rows)
    EXPECT_EQ(gen_new_char_type(r.previous, r.c, r.next), r.expected)
        << "'" << r.previous << "' '" << r.c << "' '" << r.next << "'";
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
