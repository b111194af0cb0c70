// Tests of the canonical form of file names (both hosts' forms, in place,
// never longer) and of the two absolute-name tests.
#include "indgen_canon.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

namespace {

TEST(Canonicalize, EveryRowOfTheRule) {
  // input, in the other host's form, canonical
  for (const auto &[input, msw, expected] :
       {std::tuple{"a/../b", 0, "b"}, {"a/..", 0, ""}, {"/a/..", 0, "/"}, {"../a", 0, "../a"},
        {"a/../../b", 0, "../b"}, {"./a", 0, "./a"}, {"./../a", 0, "../a"}, {"./a/../b", 0, "./b"},
        {"a/./b", 0, "a/b"}, {"a//b", 0, "a/b"}, {"a/b/", 0, "a/b/"}, {"a/b//", 0, "a/b/"},
        {"a/b/.", 0, "a/b"}, {"//a", 0, "//a"}, {"//a//b", 0, "/a/b"}, {"/..", 0, "/.."}, {"/./a", 0, "/./a"},
        {"a/b/..", 0, "a"}, {"/a/b/../", 0, "/a/"}, {"x/./", 0, "x/"}, {"/", 0, "/"}, {"a/../..", 0, ".."},
        {"a/.../b", 0, "a/.../b"}, {"../../a/../b", 0, "../../b"}, {"", 0, ""}, {"a\\b/../c", 0, "c"},
        {"c:\\x\\..\\y", 0, "c:\\x\\..\\y"},
        // The other host's form: '\' is a separator, "//server" and "X:" stay.
        {"c:\\x\\..\\y", 1, "C:/y"}, {"z:a", 1, "Z:a"}, {"//srv/a/../b", 1, "//srv/b"},
        {"\\\\srv\\a\\.\\b", 1, "//srv/a/b"}, {"d:a\\..\\b", 1, "D:b"}, {"a\\b\\..", 1, "a"},
        {"a\\b/../c", 1, "a/c"}, {"", 1, ""}}) {
    std::string buffer(input);
    EXPECT_EQ(canonicalizefilename(buffer.data(), msw), buffer.data()) << input;  // in place
    EXPECT_STREQ(buffer.c_str(), expected) << input << " msw " << msw;
  }
  char plain[] = "a/./b", unix_form[] = "a/./b", msw_form[] = "a\\.\\b";
  EXPECT_EQ(std::string(gen_canonicalfilename(plain)) + " " + gen_unix_canonicalfilename(unix_form) + " " +
                gen_msw_canonicalfilename(msw_form), "a/b a/b a/b");
  EXPECT_TRUE(canonicalizefilename(nullptr, 0) == nullptr && gen_msw_canonicalfilename(nullptr) == nullptr);
}

TEST(AbsoluteName, UnixAndOtherHost) {
  // name, absolute on this host, absolute on the other host
  for (const auto &[name, unix_form, msw_form] :
       {std::tuple<const char *, int, int>{"/a", 1, 1}, {"~user", 1, 1}, {"a/b", 0, 0}, {"\\a", 0, 1},
        {"c:x", 0, 1}, {"ab:", 0, 0}, {"", 0, 0}, {nullptr, 0, 0}})
    EXPECT_EQ(std::tuple(gen_absolutefilename(name), gen_absolute_msw_filename(name)),
              std::tuple(unix_form, msw_form)) << (name != nullptr ? name : "<null>");
}

}  // namespace
