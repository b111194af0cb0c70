// Tests of the string layer: classes, comparisons and searches at their
// edges, ownership of the copy and join families (every 'f' function frees
// its first argument, which the sanitizer build checks), the joiner of file
// names, the tokeniser, the template finder, the character classes of
// source text and the hash.
#include "indgen_string.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "indgeninit.h"

namespace {

// Owns a heap string from the library for the length of a statement.
struct GenFree {
  void operator()(char *p) const { gen_free(p); }
};
using Owned = std::unique_ptr<char, GenFree>;

// The text of a new heap string, which is freed; "<null>" for null.
std::string Take(char *s) {
  Owned owned(s);
  return s == nullptr ? "<null>" : std::string(s);
}

TEST(CharClasses, EdgesOfEachClass) {
  // Each class with a member and a near miss.
  EXPECT_TRUE(gen_isspace('\f') && gen_isspace('\r') && !gen_isspace('\v'));
  EXPECT_TRUE(gen_isalnum('z') && !gen_isalnum('_') && !gen_isalnum(static_cast<char>(0xE9)));
  EXPECT_TRUE(gen_isupper('Z') && !gen_isupper('a'));
  EXPECT_TRUE(gen_isblank('\t') && !gen_isblank('\n'));
  EXPECT_TRUE(gen_isbreak(';') && gen_isbreak(32) && gen_isbreak(127));
  EXPECT_TRUE(gen_isbreak(static_cast<char>(0xC0)));
  EXPECT_FALSE(gen_isbreak(33) || gen_isbreak(126));
  EXPECT_TRUE(gen_isblankstring("") && gen_isblankstring(" \t "));
  EXPECT_FALSE(gen_isblankstring(" x") || gen_isblankstring(nullptr));
  EXPECT_EQ(gen_is_whitespace('\n'), 2);
  EXPECT_EQ(gen_is_whitespace('\r'), 0);
  EXPECT_TRUE(gen_is_separator('/') && !gen_is_separator('\\'));
  EXPECT_TRUE(gen_is_alphanum('$') && gen_is_alphanum(static_cast<char>(0x80)));
  EXPECT_FALSE(gen_is_alphanum('_'));
  for (char c : std::string("=><:!+-*/&|")) EXPECT_EQ(gen_is_arith(c), 9) << c;
  EXPECT_EQ(gen_is_arith('%'), 0);
}

TEST(Compare, EqualityAndOrderFolded) {
  EXPECT_TRUE(gen_strequal(nullptr, nullptr));
  EXPECT_FALSE(gen_strequal(nullptr, ""));
  EXPECT_TRUE(gen_strequal("AbC", "aBc"));
  EXPECT_FALSE(gen_strequal("abc", "ab"));
  EXPECT_FALSE(gen_strequal("ab", "abc"));

  EXPECT_TRUE(gen_strnequal("aB", "Ab", 2));
  EXPECT_TRUE(gen_strnequal("abc", "ab", 2));
  EXPECT_FALSE(gen_strnequal("a", "ab", 2));

  EXPECT_EQ(gen_stricmp("ABC", "abc"), 0);
  EXPECT_EQ(gen_stricmp("ab", "abc"), -1);
  EXPECT_EQ(gen_stricmp("abc", "ab"), 1);
  EXPECT_EQ(gen_stricmp("B", "a"), 1);
  EXPECT_EQ(gen_stricmp("_", "a"), -1);  // '_' below 'a' once 'A' is folded
  // Characters are signed: a byte with the top bit set sorts below ASCII,
  // yet a string still sorts after its own beginning.
  EXPECT_EQ(gen_stricmp("\xE9", "a"), -1);
  EXPECT_EQ(gen_stricmp("a\xE9", "a"), 1);

  EXPECT_EQ(gen_strnicmp("abX", "ABy", 2), 0);
  EXPECT_EQ(gen_strnicmp("abX", "ABy", 3), -1);
  EXPECT_EQ(gen_strnicmp("a", "b", 0), 0);
  EXPECT_EQ(gen_strnicmp("a", "b", -3), 0);
}

TEST(Compare, PrefixAndSuffix) {
  EXPECT_TRUE(gen_strprefix("abc", ""));
  EXPECT_TRUE(gen_strprefix("abc", "ab"));
  EXPECT_FALSE(gen_strprefix("abc", "aB"));
  EXPECT_FALSE(gen_strprefix("ab", "abc"));
  EXPECT_TRUE(gen_strprefixn("abc", "abX", 2));
  EXPECT_FALSE(gen_strprefixn("abc", "abX", 3));
  EXPECT_TRUE(gen_strprefixn("abc", "ab", 5));
  EXPECT_FALSE(gen_strprefixn("ab", "abc", 5));
  EXPECT_TRUE(gen_strprefixn("xyz", "abc", 0));
  EXPECT_TRUE(gen_strcaseprefix("ABC", "ab"));
  EXPECT_FALSE(gen_strcaseprefix("AB", "abc"));
  EXPECT_TRUE(gen_strcaseprefixn("ABC", "abz", 2));
  EXPECT_FALSE(gen_strcaseprefixn("ABC", "abz", 3));

  EXPECT_TRUE(gen_strsuffix("file.c", ".c"));
  EXPECT_FALSE(gen_strsuffix("file.c", ".C"));
  EXPECT_FALSE(gen_strsuffix("same", "same"));
  EXPECT_TRUE(gen_strsuffix("same", ""));
  EXPECT_FALSE(gen_strsuffix("", ""));
}

TEST(Search, FirstAndLastOccurrence) {
  const char *s = "aXbxbxb";
  EXPECT_EQ(gen_strstr(s, "xb"), s + 3);
  EXPECT_EQ(gen_strstr(s, ""), nullptr);
  EXPECT_EQ(gen_strstr(s, "q"), nullptr);
  EXPECT_EQ(gen_strstr(nullptr, "a"), nullptr);
  EXPECT_EQ(gen_strcasestr(s, "xB"), s + 1);
  EXPECT_EQ(gen_strcasestr(s, ""), s);
  EXPECT_EQ(gen_strcasestr("", ""), nullptr);
  EXPECT_EQ(gen_strcasestr(s, nullptr), nullptr);
  EXPECT_EQ(gen_strstr2(s, "XB"), s + 1);
  EXPECT_EQ(gen_strrstr(s, "xb"), s + 5);
  EXPECT_EQ(gen_strrstr(s, "Xb"), s + 1);
  EXPECT_EQ(gen_strrstr(s, ""), s + 7);
  EXPECT_EQ(gen_strrstr(s, "aXbxbxbY"), nullptr);
  EXPECT_EQ(gen_strrcasestr(s, "XB"), s + 5);
  EXPECT_EQ(gen_strrcasestr(s, ""), s + 7);
  EXPECT_EQ(gen_strrcasestr(s, "A"), s);
  EXPECT_EQ(gen_strrcasestr(nullptr, "a"), nullptr);
}

TEST(CaseMapping, OnlyAsciiLetters) {
  EXPECT_EQ(Take(gen_strlower("AbC-\xC9")), "abc-\xC9");
  EXPECT_EQ(Take(gen_strupper("aBc_1")), "ABC_1");
  EXPECT_EQ(gen_strlower(nullptr), nullptr);
}

TEST(CopyFamily, CopiesAndOwnership) {
  EXPECT_EQ(Take(gen_copy("abc")), "abc");
  EXPECT_EQ(gen_copy(nullptr), nullptr);
  EXPECT_EQ(Take(gen_copyn("abcdef", 3)), "abc");
  EXPECT_EQ(Take(gen_copyn("ab", 10)), "ab");
  EXPECT_EQ(Take(gen_copyn("ab", 0)), "");
  EXPECT_EQ(gen_copyn("ab", -1), nullptr);
  EXPECT_EQ(gen_copyn(nullptr, 3), nullptr);

  // The 'f' forms free their first argument, also when the source lies in it.
  char *old = gen_copy("hello world");
  EXPECT_EQ(Take(gen_fcopy(old, old + 6)), "world");
  old = gen_copy("hello");
  EXPECT_EQ(Take(gen_fcopyn(old, old + 1, 3)), "ell");
  EXPECT_EQ(Take(gen_fcopy(nullptr, "x")), "x");

  char *var = gen_copy("keep");
  char *same = var;
  gen_strchange(&var, var);
  EXPECT_EQ(var, same);
  EXPECT_STREQ(var, "keep");
  gen_strchange(&var, "new");
  EXPECT_STREQ(var, "new");
  gen_strchangen(&var, var, 2);
  EXPECT_STREQ(var, "ne");
  gen_strchange(&var, nullptr);
  EXPECT_EQ(var, nullptr);
}

TEST(JoinFamily, NullAndEmptyRules) {
  EXPECT_EQ(gen_concat(nullptr, nullptr), nullptr);
  EXPECT_EQ(Take(gen_concat("", "b")), "b");
  EXPECT_EQ(Take(gen_concat("a", nullptr)), "a");
  EXPECT_EQ(Take(gen_concat("a", "b")), "ab");

  EXPECT_EQ(Take(gen_concatn("a", "bcd", 2)), "abc");
  EXPECT_EQ(Take(gen_concatn("a", "bcd", 9)), "abcd");
  EXPECT_EQ(Take(gen_concatn("a", "bcd", 0)), "a");
  EXPECT_EQ(Take(gen_concatn(nullptr, "bcd", 2)), "bc");
  EXPECT_EQ(gen_concatn("", "bcd", -1), nullptr);

  EXPECT_EQ(Take(gen_concat3("a", nullptr, nullptr)), "a");
  EXPECT_EQ(Take(gen_concat3(nullptr, "b", "c")), "bc");
  EXPECT_EQ(Take(gen_concat3("a", "", "c")), "ac");
  EXPECT_EQ(Take(gen_concat3("a", "b", "c")), "abc");
  EXPECT_EQ(gen_concat3(nullptr, nullptr, nullptr), nullptr);

  EXPECT_EQ(Take(gen_concat_sep("a", ':', "b")), "a:b");
  EXPECT_EQ(Take(gen_concat_sep("a", '\0', "b")), "ab");
  EXPECT_EQ(Take(gen_concat_sep(nullptr, ':', "b")), "b");
  EXPECT_EQ(Take(gen_concat_sep("a", ':', nullptr)), "a");
  EXPECT_EQ(Take(gen_concat_sep("", ':', "")), ":");

  EXPECT_EQ(Take(gen_concat4(nullptr, nullptr, nullptr, nullptr)), "");
  EXPECT_EQ(Take(gen_concat5("1", nullptr, "3", "4", "5")), "1345");
  EXPECT_EQ(Take(gen_concat9("1", "2", "3", "4", "5", "6", "7", "8", "9")), "123456789");
  EXPECT_EQ(Take(gen_concat_int("n", -42)), "n-42");
  EXPECT_EQ(Take(gen_concat_int(nullptr, INT_MIN)), "-2147483648");
}

TEST(JoinFamily, FreeingPartnersGiveTheSameResult) {
  EXPECT_EQ(Take(gen_fconcat(gen_copy("a"), "b")), "ab");
  EXPECT_EQ(Take(gen_fconcat(gen_copy(""), "b")), "b");
  EXPECT_EQ(gen_fconcat(nullptr, nullptr), nullptr);
  EXPECT_EQ(Take(gen_fconcatn(gen_copy("a"), "bcd", 1)), "ab");
  EXPECT_EQ(Take(gen_fconcat3(gen_copy("a"), "b", "c")), "abc");
  EXPECT_EQ(Take(gen_fconcat_sep(gen_copy("a"), '/', "b")), "a/b");
  EXPECT_EQ(Take(gen_fconcat4(gen_copy("1"), "2", "3", "4")), "1234");
  EXPECT_EQ(Take(gen_fconcat6(gen_copy("1"), "2", "3", "4", "5", "6")), "123456");
  EXPECT_EQ(Take(gen_fconcat7(gen_copy("1"), "2", "3", "4", "5", "6", "7")), "1234567");
  EXPECT_EQ(Take(gen_fconcat8(gen_copy("1"), "2", "3", "4", "5", "6", "7", "8")), "12345678");
  EXPECT_EQ(Take(gen_fconcat9(gen_copy("1"), "2", "3", "4", "5", "6", "7", "8", "9")),
            "123456789");
  EXPECT_EQ(Take(gen_fconcat5(nullptr, "2", "3", "4", "5")), "2345");
  EXPECT_EQ(Take(gen_fconcat_int(gen_copy("v"), 7)), "v7");
}

struct JoinRow {
  const char *dir;
  const char *name;
  const char *expected;
};

TEST(PathJoin, SconcatTable) {
  const JoinRow rows[] = {
      {"a", "b", "a/b"},
      {"a/", "b", "a/b"},
      {"a", "..", "."},            // canonicalises to nothing
      {"a/b", "../c", "a/c"},
      {"d", "/x/../y", "/x/../y"}, // absolute: copied, not canonicalised
      {"d", "~x", "d/~x"},         // '~' joins like a relative name
      {nullptr, "a/./b", "a/./b"}, // no dir: plain copy
      {"", "n", "n"},
      {"d/./e", nullptr, "d/e"},
      {"d//", "", "d/"},
      {"/", "a", "/a"},
      {"./x", "y", "./x/y"},
  };
  for (const JoinRow &row : rows)
    EXPECT_EQ(Take(gen_sconcat(row.dir, row.name)), row.expected)
        << (row.dir ? row.dir : "<null>") << " + " << (row.name ? row.name : "<null>");
  EXPECT_EQ(gen_sconcat(nullptr, nullptr), nullptr);
}

TEST(PathJoin, DconcatTable) {
  const JoinRow rows[] = {
      {"d", "~x", "~x"},   // absolute to gen_dconcat
      {"d", "/abs/./", "/abs/./"},
      {"d/.", "", "d/."},  // no name: plain copy of dir
      {"d", nullptr, "d"},
      {nullptr, "n", "n"},
      {"", "n/.", "n/."},
      {"d", "n/.", "d/n"},
  };
  for (const JoinRow &row : rows)
    EXPECT_EQ(Take(gen_dconcat(row.dir, row.name)), row.expected)
        << (row.dir ? row.dir : "<null>") << " + " << (row.name ? row.name : "<null>");
  EXPECT_EQ(gen_dconcat(nullptr, ""), nullptr);
}

TEST(PathJoin, ChainedForms) {
  EXPECT_EQ(Take(gen_sconcatf(gen_copy("a/b"), "..")), "a");
  EXPECT_EQ(Take(gen_dconcatf(gen_copy("a"), "~u")), "~u");
  EXPECT_EQ(Take(gen_ddconcat("a", "b", "/c")), "/c");
  EXPECT_EQ(Take(gen_ddconcat("a", "b", "c")), "a/b/c");
  EXPECT_EQ(Take(gen_dsconcat("a", "/b", "~c")), "/b/~c");
  EXPECT_EQ(Take(gen_ddsconcat("a", "b", "c", "../d")), "a/b/d");
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

  // Sets of one, two and more characters split alike.
  for (const char *set : {";", ";,", ";,\t"}) {
    char line[] = "a;b";
    char *rest = nullptr;
    EXPECT_STREQ(gen_strtok_r(line, set, &rest), "a") << set;
    EXPECT_STREQ(rest, "b") << set;
  }
  char tabbed[] = "x\ty,z;w";
  EXPECT_STREQ(gen_strtok_r(tabbed, ";,\t", nullptr), "x");
  EXPECT_STREQ(tabbed + 2, "y,z;w");
}

TEST(CloseAngle, FindsTheMatchingBracket) {
  const char *s = "a<b, c<d>>x";
  EXPECT_EQ(gen_find_close_angle(s + 1, nullptr, nullptr), s + 9);

  // Continuing over two pieces: the depth is carried between calls.
  int angle = 0;
  int paren = 0;
  EXPECT_EQ(gen_find_close_angle("map<std::string", &angle, &paren), nullptr);
  EXPECT_EQ(angle, 1);
  const char *rest = ", f(int)&>";
  EXPECT_EQ(gen_find_close_angle(rest, &angle, &paren), rest + 9);
  EXPECT_EQ(angle, 0);

  // A bare '>' at depth 0 is itself the answer; text that stops early is not.
  EXPECT_STREQ(gen_find_close_angle(">", nullptr, nullptr), ">");
  EXPECT_EQ(gen_find_close_angle("<a && b>", nullptr, nullptr), nullptr);
  EXPECT_EQ(gen_find_close_angle("<a:b>", nullptr, nullptr), nullptr);
  EXPECT_EQ(gen_find_close_angle("<f(>", nullptr, nullptr), nullptr);
  EXPECT_EQ(gen_find_close_angle(nullptr, &angle, &paren), nullptr);
}

TEST(CharTypes, SourceTextClasses) {
  struct Row {
    char previous, c, next;
    int expected;
  };
  const Row rows[] = {
      {'a', '\0', 'b', 0},  {'a', '\\', 'b', 8}, {'\\', 'n', 'b', 8}, {' ', 'x', ' ', 1},
      {'a', '\t', 'b', 2},  {' ', '-', '1', 1},  {'a', '-', '1', 9},  {' ', '-', ' ', 9},
      {'*', '/', 'a', 10},  {'a', '/', '/', 10}, {'a', '/', 'b', 13}, {'/', '*', 'a', 10},
      {'a', '*', 'b', 13},  {'n', '\'', 't', 1}, {' ', '\'', 't', 13}, {' ', '_', ' ', 1},
      {'(', ';', ' ', 3},   {' ', ',', ' ', 4},  {' ', '(', ')', 12}, {'(', ')', ' ', 12},
      {' ', '(', 'a', 5},   {'(', '"', ' ', 5},  {' ', '{', '}', 12}, {'{', '.', ' ', 6},
      {' ', '[', ']', 12},  {' ', '[', '1', 7},  {'[', '+', ' ', 7},  {' ', '.', ' ', 13},
      {' ', '\r', ' ', 13}, {' ', '$', ' ', 1},
  };
  for (const Row &row : rows)
    EXPECT_EQ(gen_new_char_type(row.previous, row.c, row.next), row.expected)
        << "'" << row.previous << "' '" << row.c << "' '" << row.next << "'";

  EXPECT_EQ(gen_char_type('_'), 0);
  EXPECT_EQ(gen_char_type('$'), 0);
  EXPECT_EQ(gen_char_type(static_cast<char>(0xFF)), 0);
  EXPECT_EQ(gen_char_type('\n'), 2);
  EXPECT_EQ(gen_char_type('\r'), 3);
  EXPECT_EQ(gen_char_type('\0'), -1);
  EXPECT_EQ(gen_char_type('-'), 3);
}

TEST(Hash, PinnedValuesAndSampling) {
  EXPECT_EQ(gen_hcomp("abc", 3), 0x5BA5A69Eu);
  EXPECT_EQ(gen_hcomp("", 0), 0u);
  // Ten or more bytes: only positions 0-2, n/2-1..n/2+1 and the last three
  // count.  For n = 12 those are 0,1,2,5,6,7,9,10,11; 3, 4 and 8 are free.
  EXPECT_EQ(gen_hcomp("abcXYfghZjkl", 12), gen_hcomp("abc12fgh3jkl", 12));
  EXPECT_NE(gen_hcomp("abcdefghijkl", 12), gen_hcomp("abcdeXghijkl", 12));
  // Nine bytes are all mixed.
  EXPECT_NE(gen_hcomp("abcdefghi", 9), gen_hcomp("abcdXfghi", 9));
  // A byte with the top bit set is widened as a negative value.
  EXPECT_EQ(gen_hcomp("\xFF", 1), 0x69969669u);
}

}  // namespace
