// Tests of the canonical form of file names (both hosts' forms, in place,
// never longer) and of the two absolute-name tests.
#include "indgen_canon.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(Canonicalize, EveryRowOfTheRule) {
  const struct {
    const char *input;
    int msw;
    const char *expected;
  } rows[] = {
      {"a/../b", 0, "b"},      {"a/..", 0, ""},         {"/a/..", 0, "/"},
      {"../a", 0, "../a"},     {"a/../../b", 0, "../b"}, {"./a", 0, "./a"},
      {"./../a", 0, "../a"},   {"./a/../b", 0, "./b"},  {"a/./b", 0, "a/b"},
      {"a//b", 0, "a/b"},      {"a/b/", 0, "a/b/"},     {"a/b//", 0, "a/b/"},
      {"a/b/.", 0, "a/b"},     {"//a", 0, "//a"},       {"//a//b", 0, "/a/b"},
      {"/..", 0, "/.."},       {"/./a", 0, "/./a"},     {"a/b/..", 0, "a"},
      {"/a/b/../", 0, "/a/"},  {"x/./", 0, "x/"},       {"/", 0, "/"},
      {"a/../..", 0, ".."},    {"a/.../b", 0, "a/.../b"}, {"../../a/../b", 0, "../../b"},
      {"", 0, ""},             {"a\\b/../c", 0, "c"},   {"c:\\x\\..\\y", 0, "c:\\x\\..\\y"},
      // The other host's form: '\' is a separator, "//server" and "X:" stay.
      {"c:\\x\\..\\y", 1, "C:/y"}, {"z:a", 1, "Z:a"},   {"//srv/a/../b", 1, "//srv/b"},
      {"\\\\srv\\a\\.\\b", 1, "//srv/a/b"}, {"d:a\\..\\b", 1, "D:b"}, {"a\\b\\..", 1, "a"},
      {"a\\b/../c", 1, "a/c"}, {"", 1, ""},
  };
  for (const auto &row : rows) {
    std::string buffer(row.input);
    char *result = canonicalizefilename(buffer.data(), row.msw);
    EXPECT_EQ(result, buffer.data()) << row.input;
    EXPECT_STREQ(result, row.expected) << row.input << " msw " << row.msw;
  }
  char plain[] = "a/./b", unix_form[] = "a/./b", msw_form[] = "a\\.\\b";
  EXPECT_STREQ(gen_canonicalfilename(plain), "a/b");
  EXPECT_STREQ(gen_unix_canonicalfilename(unix_form), "a/b");
  EXPECT_STREQ(gen_msw_canonicalfilename(msw_form), "a/b");
  EXPECT_EQ(canonicalizefilename(nullptr, 0), nullptr);
  EXPECT_EQ(gen_msw_canonicalfilename(nullptr), nullptr);
}

TEST(AbsoluteName, UnixAndOtherHost) {
  const struct {
    const char *name;
    int unix_form, msw_form;
  } rows[] = {{"/a", 1, 1},  {"~user", 1, 1}, {"a/b", 0, 0}, {"\\a", 0, 1}, {"c:x", 0, 1},
              {"ab:", 0, 0}, {"", 0, 0},      {nullptr, 0, 0}};
  for (const auto &row : rows) {
    const char *shown = row.name != nullptr ? row.name : "<null>";
    EXPECT_EQ(gen_absolutefilename(row.name), row.unix_form) << shown;
    EXPECT_EQ(gen_absolute_msw_filename(row.name), row.msw_form) << shown;
  }
}

}  // namespace
