// Tests of the canonical form of file names: every documented row, the
// other host's form, and the two absolute-name tests.
#include "indgen_canon.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

struct Row {
  const char *input;
  const char *expected;
};

std::string Canonical(const char *input, int msw) {
  std::string buffer(input);
  char *result = canonicalizefilename(buffer.data(), msw);
  EXPECT_EQ(result, buffer.data()) << input;
  EXPECT_LE(strlen(result), strlen(input)) << input;
  return result;
}

TEST(Canonicalize, EveryUnixRow) {
  const Row rows[] = {
      {"a/../b", "b"},       {"a/..", ""},          {"/a/..", "/"},       {"../a", "../a"},
      {"a/../../b", "../b"}, {"./a", "./a"},        {"./../a", "../a"},   {"./a/../b", "./b"},
      {"a/./b", "a/b"},      {"a//b", "a/b"},       {"a/b/", "a/b/"},     {"a/b//", "a/b/"},
      {"a/b/.", "a/b"},      {"//a", "//a"},        {"//a//b", "/a/b"},   {"/..", "/.."},
      {"/./a", "/./a"},
  };
  for (const Row &row : rows) EXPECT_EQ(Canonical(row.input, 0), row.expected) << row.input;
}

TEST(Canonicalize, WorkLeavesNoFinalSlashUnlessTheInputHadOne) {
  const Row rows[] = {
      {"a/b/..", "a"},   {"/a/b/../", "/a/"}, {"x/./", "x/"},     {"/", "/"},
      {"a/../..", ".."}, {"a/.../b", "a/.../b"}, {"../../a/../b", "../../b"},
  };
  for (const Row &row : rows) EXPECT_EQ(Canonical(row.input, 0), row.expected) << row.input;
}

TEST(Canonicalize, OtherHostForm) {
  const Row rows[] = {
      {"c:\\x\\..\\y", "C:/y"},
      {"//srv/a/../b", "//srv/b"},
      {"\\\\srv\\a\\.\\b", "//srv/a/b"},
      {"d:a\\..\\b", "D:b"},
      {"a\\b\\..", "a"},
  };
  for (const Row &row : rows) EXPECT_EQ(Canonical(row.input, 1), row.expected) << row.input;
  // Without msw a backslash is an ordinary character.
  EXPECT_EQ(Canonical("c:\\x\\..\\y", 0), "c:\\x\\..\\y");
}

TEST(Canonicalize, NullAndEmpty) {
  EXPECT_EQ(canonicalizefilename(nullptr, 0), nullptr);
  EXPECT_EQ(gen_msw_canonicalfilename(nullptr), nullptr);
  EXPECT_EQ(Canonical("", 0), "");
  EXPECT_EQ(Canonical("", 1), "");
}

TEST(Canonicalize, NamedFormsPickTheirHost) {
  char unix_name[] = "a\\b/../c";
  char plain_name[] = "a\\b/../c";
  char msw_name[] = "a\\b/../c";
  EXPECT_STREQ(gen_unix_canonicalfilename(unix_name), "c");
  EXPECT_STREQ(gen_canonicalfilename(plain_name), "c");
  EXPECT_STREQ(gen_msw_canonicalfilename(msw_name), "a/c");
}

TEST(AbsoluteName, UnixAndOtherHost) {
  EXPECT_TRUE(gen_absolutefilename("/a"));
  EXPECT_TRUE(gen_absolutefilename("~user"));
  EXPECT_FALSE(gen_absolutefilename("a/b"));
  EXPECT_FALSE(gen_absolutefilename("\\a"));
  EXPECT_FALSE(gen_absolutefilename(""));
  EXPECT_FALSE(gen_absolutefilename(nullptr));

  EXPECT_TRUE(gen_absolute_msw_filename("\\a"));
  EXPECT_TRUE(gen_absolute_msw_filename("c:x"));
  EXPECT_TRUE(gen_absolute_msw_filename("/a"));
  EXPECT_TRUE(gen_absolute_msw_filename("~"));
  EXPECT_FALSE(gen_absolute_msw_filename("ab:"));
  EXPECT_FALSE(gen_absolute_msw_filename(""));
  EXPECT_FALSE(gen_absolute_msw_filename(nullptr));
}

}  // namespace
