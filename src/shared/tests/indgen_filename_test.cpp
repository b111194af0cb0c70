// Tests of file names: parts, relations, suffixes, expansion, identity,
// mangling, lists and temporary names, whose process id comes from getpid,
// replaced here (fake_pid), and whose counter is fresh only in a new process.
#include "indgen_filename.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>

#include "indgen_canon.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "result_rows.h"
#include "temp_dir.h"

namespace {
pid_t fake_pid = 0;  // while non-zero, getpid answers this value
}  // namespace

// The library's only source of the process id.
extern "C" pid_t getpid(void) noexcept {
  return fake_pid != 0 ? fake_pid : static_cast<pid_t>(syscall(SYS_getpid));
}

namespace {

using testsupport::TempDir;
using testsupport::WriteFileBytes;

using testsupport::Got;

// Rows of (the argument or arguments of fn, the text of its result).
using Row = std::pair<const char *, const char *>;
using Row2 = std::tuple<const char *, const char *, const char *>;
template <typename R>
void Each(R (*fn)(const char *), std::initializer_list<Row> rows) {
  for (const auto &[in, out] : rows) EXPECT_EQ(Got(fn(in)), out) << Got(in);
}
template <typename R>
void Each(R (*fn)(const char *, const char *), std::initializer_list<Row2> rows) {
  for (const auto &[a, b, out] : rows) EXPECT_EQ(Got(fn(a, b)), out) << Got(a) << " " << Got(b);
}

TEST(NameParts, PartsAndSuffixes) {
  Each(gen_basename, {{"a/", ""}, {"plain", "plain"}, {nullptr, "<null>"}});
  Each(gen_msw_basename, {{"c:\\d\\f.c", "f.c"}});
  Each(gen_dirname,
       {{"plain", "<null>"}, {"/a", "/"}, {"a/", "a"}, {"a/b/c", "a/b"}, {"//a", "/"}, {nullptr, "<null>"}});
  Each(gen_dirname_anyhost, {{"C:foo", "C:"}, {"C:\\foo", "C:\\"}, {"\\foo", "\\"}, {"a\\b/c", "a\\b"},
                             {"a:b\\c", "a:b"}, {"plain", "<null>"}});
  Each(gen_topdir, {{"/usr/lib", "usr"}, {"//a\\b", "a"}, {"C:\\x", "C:"}, {nullptr, "<null>"}});
  Each(gen_changesuffix, {{"dir.d/a.c", "o", "dir.d/a.o"}, {"dir.d/a", ".o", "dir.d/a.o"},
                          {"a.c", nullptr, "a"}, {"a.c", "", "a."}, {nullptr, ".o", ".o"}});
  Each(gen_addsuffix, {{"a.c", ".o", "a.c.o"}, {"a", nullptr, "a"}, {nullptr, "o", "o"}});
  // An empty dir canonicalises the result, a null one keeps the name as it is.
  const struct {
    const char *dir, *name, *infix, *suffix, *out;
  } joins[] = {{"out", "src/a.c", "_x", ".o", "out/a_x.o"}, {"out/", "a.c", nullptr, nullptr, "out/a"},
               {"d", "a.c", "", "", "d/a."},                 {"", "a.c", "/../b", "o", "b.o"},
               {nullptr, "a.c", "/../b", "o", "a/../b.o"},   {"out/.", nullptr, nullptr, "x.c", "out/x.c"}};
  for (const auto &j : joins)
    EXPECT_EQ(Got(gen_changedirandsuffix(j.dir, j.name, j.infix, j.suffix)), j.out) << Got(j.name);
  for (const auto &[name, behind] : {std::pair{"/usr/lib", 4}, {"usr/lib", 3}, {"//usr", 1}, {"/usr", 0}})
    EXPECT_EQ(gen_popdir(name), name + behind) << name;
  Each(gen_getsuffix, {{"a.c", "c"}, {"a.b/c", "<null>"}, {".profile", "profile"}, {"libx.so.1.2", "so"},
                       {"libx.so.1", "1"}, {"libx.sa.10.2", "sa"}, {"x.so.1.2", "so"}, {".so.1.2", "2"},
                       {"lib.so.x.2", "2"}, {"libx.so.1.2.3", "3"}, {"d.so.1.2/f.so.3", "3"}, {"a.", ""}});
  Each(gen_basenamelen, {{"abc.def", "3"}, {"abc", "3"}, {nullptr, "0"}});
  Each(gen_is_basename, {{"a.c", "1"}, {"d/a.c", "0"}, {"", "0"}, {nullptr, "0"}});
}

TEST(NameParts, RelationsBetweenTwoNames) {
  Each(gen_dirmatch,
       {{"a/x", "a/y", "1"}, {"x", "y", "1"}, {"/x", "x", "0"}, {"a/x", "b/x", "0"}, {"a/x", nullptr, "0"}});
  Each(gen_dir_contains_file, {{"/a", "/a/b", "1"}, {"/a", "/a//b", "1"}, {"/a/", "/a/b", "1"},
                               {"/a", "/a/", "0"}, {"/a", "/a/b/c", "0"}, {nullptr, "/a", "0"}});
  Each(gen_tree_contains_file, {{"/a", "/a/b/c", "1"}, {"/a/", "/a/x", "1"}, {"/a", "/ab", "0"},
                                {"/a", "/a", "0"}, {"/a", nullptr, "0"}});
  Each(gen_isDirSubdirOfDir, {{"a", "a", "1"}, {"/a/b", "/a", "1"}, {"/a/./b/..", "/a", "1"},
                              {"/a/./b/..", "/a/", "0"}, {"/a\\b", "/a", "1"}, {"/x", "/", "1"},
                              {"/ab", "/a", "0"}, {"/a", "/a/b", "0"}, {nullptr, "/a", "0"}});
  Each(gen_issuffix, {{"a.cfg", ".cfg", "1"}, {"a.cfg", "cfg", "1"}, {"a.cfg", "CFG", "0"},
                      {"a.c", nullptr, "1"}, {"a", nullptr, "0"}, {"libq.so.2.0", "so", "1"}});
  Each(gen_basenamematch, {{"x/a.c", "y/a.h", "1"}, {"a.c", "b.c", "0"}, {"a.c", nullptr, "0"}});
  // whole, tail, exact
  for (const auto &[whole, tail, exact, expected] :
       {std::tuple<const char *, const char *, int, int>{"x/foo", "foo", 1, 1}, {"xfoo", "foo", 1, 0},
        {"foo", "foo", 1, 1}, {"a/b/./c", "b//c", 1, 1}, {"x/FOO", "foo", 0, 1}, {"x/FOO", "foo", 1, 0},
        {"c", "b/c", 0, 0}, {"/a", "ab", 0, 0}, {nullptr, "a", 0, 0}})
    EXPECT_EQ(gen_FilenameTailCmp(whole, tail, exact), expected) << Got(whole) << "|" << tail;
}

TEST(Identity, SameFileAndMangling) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("f"), "x"));
  ASSERT_EQ(link(dir.file("f").c_str(), dir.file("g").c_str()), 0);
  ASSERT_EQ(mkdir(dir.file("d").c_str(), 0777) + mkdir(dir.file("e").c_str(), 0777), 0);
  ASSERT_EQ(symlink(dir.file("f").c_str(), dir.file("d/f").c_str()), 0);
  // Different base names: no look at the disk.  One of two existing: not the same.  Two missing
  // files: their directories decide, then the names.
  for (const auto &[a, b, same] :
       {std::tuple{"f", "g", 0}, {"f", "./f", 1}, {"f", "d/f", 1}, {"d/f", "e/f", 0}, {"d/x", "d/../d/x", 1},
        {"d/x", "e/x", 0}, {"d/x", "none/x", 0}, {"none/x", "none/x", 1}, {"none/x", "no/x", 0}})
    EXPECT_EQ(gen_samefile(dir.file(a).c_str(), dir.file(b).c_str()), same) << a << " " << b;

  EXPECT_EQ(gen_manglefilename_hashfunc("abc"), 0x187163u);
  for (const auto &[name, length, hash_tail, mangled] :
       {std::tuple<const char *, int, int, const char *>{"abc", 9, 1, "<null>"}, {"abc", 10, 1, "00000063c"},
        {"abc", 10, 0, "00187163c"}, {"a/b:c\\d", 20, 0, "27596b1aa@b@c@d"},
        {"/usr/local/lib/x.c", 12, 1, "001e1763x.c"}})
    EXPECT_EQ(Got(gen_manglefilename_length(name, length, hash_tail)), mangled) << name << " " << length;
  const std::string long_name = "/very/long:path\\" + std::string(100, 'n') + "/end";
  Each(gen_manglefilename,
       {{"/usr/local/lib/x.c", "a099bb14@usr@local@lib@x.c"},
        {long_name.c_str(), "0e2ed83bnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn@end"}});
}

TEST(HomeAndCwd, ExpansionAndRelativeNames) {
  const struct passwd *root = getpwnam("root");
  ASSERT_NE(root, nullptr);
  const std::string root_home = root->pw_dir, root_a_b = root_home + "/a/b";  // later lookups overwrite it
  const std::string home = Got(gen_canonicalfilename(gen_copy(gen_gethomedir())));
  const std::string cwd_x = std::string(gen_getcwd()) + "/x";
  Each(gen_expand_filename, {{nullptr, "<null>"}, {"", ""}, {"/a/./b/../c", "/a/c"},
                             {"~no_such_user_q/a/../b", "~no_such_user_q/b"}, {"rel/../x", cwd_x.c_str()},
                             {"~root/a/./b", root_a_b.c_str()}, {"~", home.c_str()}, {"~/", home.c_str()},
                             {"~/q/..", home.c_str()}});
  Each(gen_expand_filename_using_cwd,
       {{"/c", "a/../b", "/c/b"}, {"/c", "/x/./y", "/x/y"}, {nullptr, "/p/.", "/p"},
        {"/c", "~root", root_home.c_str()}, {"/c", "", ""}, {"/c", nullptr, "<null>"}});
  Each(+[](const char *base, const char *name) { return gen_relative_filename(base, name, 0); },
       {{"/a/b", "/a/b/c/d", "c/d"}, {"/a/b/", "/a/b/c", "c"}, {"/a/b/", "/a/b/", ""},
        {"/a/b", "/a/bc", "<null>"}, {"/a/b", "/a/b", "<null>"}, {"a", "a/b", "<null>"}});
  TempDir dir;  // only the real paths relate these two names
  ASSERT_EQ(mkdir(dir.file("sub").c_str(), 0777), 0);
  ASSERT_TRUE(WriteFileBytes(dir.file("sub/f"), ""));
  const std::string base = dir.file("sub/.."), name = dir.file("./sub/f");
  EXPECT_EQ(Got(gen_relative_filename(base.c_str(), name.c_str(), 1)), "sub/f");
}

TEST(NameLists, GetpathCutsLongEntries) {
  const char *list = "::/bin:/usr/local/bin::";
  char buffer[5];
  const char *rest = gen_getpath(list, buffer, 4);
  EXPECT_EQ(std::pair(std::string(buffer), rest), std::pair(std::string("/bin"), list + 6));
  rest = gen_getpath(rest, buffer, 4);
  EXPECT_EQ(std::pair(std::string(buffer), rest), std::pair(std::string("/usr"), list + 21));
  EXPECT_EQ(gen_getpath(rest, buffer, 4), nullptr);
}

// Runs in a fresh copy of this program: the counter starts at 0 there.
#define CHILD_EXPECT_EQ(actual, expected)                                                  \
  do {                                                                                     \
    const std::string a_ = (actual), e_ = (expected);                                      \
    if (a_ != e_) fprintf(stderr, "line %d: '%s', want '%s'\n", __LINE__, a_.c_str(), e_.c_str()), _exit(1); \
  } while (0)

// Temporary names in a fresh directory that TMPDIR names; the process id and
// the environment are put back afterwards.
class TempNameTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("TMPDIR", at_.c_str(), 1); }
  void TearDown() override { fake_pid = 0, unsetenv("TMPDIR"), unsetenv("BUILDER_TEMPORARY_NAME"); }
  std::string F(const std::string &name) const { return dir_.file(name); }

  TempDir dir_;
  const std::string at_ = dir_.path();
};
using TempNameDeathTest = TempNameTest;

TEST_F(TempNameDeathTest, Process1234CountsInBase32AndTwinsAreFreeTogether) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ASSERT_EQ(mkdir(F("two").c_str(), 0777), 0);
  // Taken: counter 3, the twin of counter 7 in "two" (both move on to 8), and the third of three at 9.
  for (const char *taken : {"qo_16i3.tmp", "two/qo_16i7.b", "qo_16i9.z"}) WriteFileBytes(F(taken), "");
  const std::string path = F("tmp");
  auto temp = [&](const char *suffix) { return Got(gen_tempname(path.c_str(), suffix)); };
  auto body = [&] {
    fake_pid = 1234;
    CHILD_EXPECT_EQ(temp("tmp"), F("qo_16i1.tmp"));
    CHILD_EXPECT_EQ(temp(".tmp"), F("qo_16i2.tmp"));
    CHILD_EXPECT_EQ(temp("tmp"), F("qo_16i4.tmp"));
    CHILD_EXPECT_EQ(Got(gen_tempname("plain", "x")), "qo_16i5.x");
    CHILD_EXPECT_EQ(temp(nullptr), F("qo_16i6."));
    char first[GEN_TMPNAME_SIZE], second[GEN_TMPNAME_SIZE], third[GEN_TMPNAME_SIZE];
    if (tmp2name(at_.c_str(), first, "a", F("two").c_str(), ".b") != first) _exit(3);
    CHILD_EXPECT_EQ(first, F("qo_16i8.a"));
    CHILD_EXPECT_EQ(xtmp3names(at_.c_str(), first, "x", second, "y", third, "z"), F("qo_16ia.x"));
    CHILD_EXPECT_EQ(std::string(second) + " " + third, F("qo_16ia.y") + " " + F("qo_16ia.z"));
    CHILD_EXPECT_EQ(Got(tmp1name(at_.c_str(), nullptr, "q")), F("qo_16ib.q"));
    for (int i = 12; i < 31; i++) temp("t");
    CHILD_EXPECT_EQ(temp("t"), F("qo_16iv.t"));
    CHILD_EXPECT_EQ(temp("t"), F("qo_16i10.t"));
    for (int i = 33; i < 1025; i++) temp("t");
    CHILD_EXPECT_EQ(temp("t"), F("qo_16i101.t"));
    fake_pid = 0x7FFFFFFF;  // all seven groups of the process id
    CHILD_EXPECT_EQ(temp("t"), F("qo_1vvvvvv102.t"));
    _exit(0);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(TempNameTest, FixedNamesTheLongestNameAndErrno) {
  const std::string path = F("x");
  setenv("BUILDER_TEMPORARY_NAME", "build", 1);  // the dot is added
  EXPECT_EQ(Got(gen_tempname(path.c_str(), "tmp")), F("build.tmp"));
  ASSERT_TRUE(WriteFileBytes(F("build.tmp"), ""));
  EXPECT_EQ(gen_tempname(path.c_str(), "tmp"), nullptr);  // taken, and it can't change
  errno = EDOM;
  EXPECT_TRUE(gen_alreadyused(F("build.tmp").c_str()) && !gen_alreadyused(F("no").c_str()));
  EXPECT_EQ(errno, EDOM);
  // A name of 255 characters fits GEN_TMPNAME_SIZE with its terminator, one of 256 doesn't.
  const std::string fits(255 - F("build.").size(), 's');
  EXPECT_EQ(Got(gen_tempname(path.c_str(), fits.c_str())).size(), 255u);
  char buffer[GEN_TMPNAME_SIZE] = "#";
  const std::string too_long = fits + "s";
  EXPECT_EQ(xxtmp3names(at_.c_str(), buffer, too_long.c_str(), nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_STREQ(buffer, "#");
}

TEST_F(TempNameTest, DirectoryNamesCountTheLastTwoCharacters) {
  fake_pid = 0x104D2;  // low 16 bits: 04D2
  const std::string stem = F("qo04D2"), digits = "abcdefghijklmnopqrstuvwxyz0123456789";
  const char *at = at_.c_str();
  EXPECT_EQ(Got(gen_createtmpdir(at, 0700)), stem + "aa");
  EXPECT_EQ(Got(gen_tmpdirname(at)), stem + "ab");
  for (char c = 'b'; c <= 'z'; c++) ASSERT_EQ(mkdir((stem + 'a' + c).c_str(), 0700), 0);
  EXPECT_EQ(Got(gen_tmpdirname(at)), stem + "a0");
  for (char c = '0'; c <= '9'; c++) ASSERT_EQ(mkdir((stem + 'a' + c).c_str(), 0700), 0);
  EXPECT_EQ(Got(gen_tmpdirname(at)), stem + "ba");
  for (char high : digits)
    for (char low : digits) mkdir((stem + high + low).c_str(), 0700);
  EXPECT_TRUE(gen_tmpdirname(at) == nullptr && gen_createtmpdir(at, 0700) == nullptr);  // all 36 * 36 taken
}

}  // namespace
