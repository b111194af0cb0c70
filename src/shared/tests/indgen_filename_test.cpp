// Tests of file names: splitting, relations, suffix rules, expansion,
// comparison, mangling, name lists and temporary names.  Temporary names
// carry the process id, so this program replaces getpid (see fake_pid) to
// pin the names of process 1234; their counter lasts as long as the process,
// so the pinned sequences run in a fresh copy of this program.
#include "indgen_filename.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

#include "indgen_canon.h"
#include "indgen_string.h"
#include "indgeninit.h"
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

std::string Take(char *s) {
  std::string text = s == nullptr ? "<null>" : s;
  gen_free(s);
  return text;
}
std::string Text(const char *s) { return s == nullptr ? "<null>" : s; }

using Results = std::pair<std::string, const char *>;
void ExpectAll(std::initializer_list<Results> rows) {
  int row = 0;
  for (const Results &r : rows) EXPECT_EQ(r.first, r.second) << "row " << row++;
}

// Sets an environment variable (null removes it) and restores it at the end.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const char *value) : name_(name) {
    if (const char *old = getenv(name)) old_ = old;
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }

 private:
  std::string name_;
  std::optional<std::string> old_;
};

TEST(NameParts, PartsAndSuffixes) {
  ExpectAll({
      {Text(gen_basename("a/")), ""},              {Text(gen_basename("plain")), "plain"},
      {Text(gen_basename(nullptr)), "<null>"},     {Text(gen_msw_basename("c:\\d\\f.c")), "f.c"},
      {Text(gen_basename_anyhost("c:f.c")), "f.c"}, {Text(gen_basename_anyhost("a/b\\c")), "c"},
      {Take(gen_dirname("plain")), "<null>"},      {Take(gen_dirname("/a")), "/"},
      {Take(gen_dirname("a/")), "a"},              {Take(gen_dirname("a/b/c")), "a/b"},
      {Take(gen_dirname("//a")), "/"},             {Take(gen_dirname(nullptr)), "<null>"},
      {Take(gen_dirname_anyhost("C:foo")), "C:"},  {Take(gen_dirname_anyhost("C:\\foo")), "C:\\"},
      {Take(gen_dirname_anyhost("\\foo")), "\\"},  {Take(gen_dirname_anyhost("a\\b/c")), "a\\b"},
      {Take(gen_dirname_anyhost("a:b\\c")), "a:b"}, {Take(gen_dirname_anyhost("plain")), "<null>"},
      {Take(gen_topdir("/usr/lib")), "usr"},       {Take(gen_topdir("//a\\b")), "a"},
      {Take(gen_topdir("C:\\x")), "C:"},           {Take(gen_topdir(nullptr)), "<null>"},
      {Take(gen_changesuffix("dir.d/a.c", "o")), "dir.d/a.o"},
      {Take(gen_changesuffix("dir.d/a", ".o")), "dir.d/a.o"},
      {Take(gen_changesuffix("a.c", nullptr)), "a"}, {Take(gen_changesuffix("a.c", "")), "a."},
      {Take(gen_changesuffix(nullptr, ".o")), ".o"}, {Take(gen_addsuffix("a.c", ".o")), "a.c.o"},
      {Take(gen_addsuffix("a", nullptr)), "a"},    {Take(gen_addsuffix(nullptr, "o")), "o"},
      {Take(gen_makeshort("x/y/a.c", "o")), "a.o"},
      {Take(gen_changedirandsuffix("out", "src/a.c", "_x", ".o")), "out/a_x.o"},
      {Take(gen_changedirandsuffix("out/", "a.c", nullptr, nullptr)), "out/a"},
      {Take(gen_changedirandsuffix("d", "a.c", "", "")), "d/a."},
      {Take(gen_changedirandsuffix("", "a.c", "/../b", "o")), "b.o"},  // canonical, no dir
      {Take(gen_changedirandsuffix(nullptr, "a.c", "/../b", "o")), "a/../b.o"},  // as it is
      {Take(gen_changedirandsuffix("out/.", nullptr, nullptr, "x.c")), "out/x.c"},
  });
  const char *path = "/usr/lib", *relative = "usr/lib", *two = "//usr", *one = "/usr";
  EXPECT_EQ(gen_popdir(path), path + 4);
  EXPECT_EQ(gen_popdir(relative), relative + 3);
  EXPECT_EQ(gen_popdir(two), two + 1);
  EXPECT_EQ(gen_popdir(one), one);
  EXPECT_EQ(gen_popdir("usr"), nullptr);
  const struct {
    const char *name, *suffix;
  } suffixes[] = {
      {"a.c", "c"},          {"a.b/c", "<null>"},    {".profile", "profile"}, {"libx.so.1.2", "so"},
      {"libx.so.1", "1"},    {"libx.sa.10.2", "sa"}, {"x.so.1.2", "so"},      {".so.1.2", "2"},
      {"lib.so.x.2", "2"},   {"libx.so.1.2.3", "3"}, {"d.so.1.2/f.so.3", "3"}, {"a.", ""},
  };
  for (const auto &row : suffixes) EXPECT_EQ(Text(gen_getsuffix(row.name)), row.suffix) << row.name;
  EXPECT_EQ(gen_basenamelen("abc.def"), 3);
  EXPECT_EQ(gen_basenamelen("abc"), 3);
  EXPECT_EQ(gen_basenamelen(nullptr), 0);
}

TEST(NameParts, RelationsBetweenTwoNames) {
  const struct {
    int (*relation)(const char *, const char *);
    const char *a, *b;
    int expected;
  } rows[] = {
      {gen_dirmatch, "a/x", "a/y", 1},      {gen_dirmatch, "x", "y", 1},
      {gen_dirmatch, "/x", "x", 0},         {gen_dirmatch, "a/x", "b/x", 0},
      {gen_dirmatch, "a/x", nullptr, 0},    {gen_dir_contains_file, "/a", "/a/b", 1},
      {gen_dir_contains_file, "/a", "/a//b", 1}, {gen_dir_contains_file, "/a/", "/a/b", 1},
      {gen_dir_contains_file, "/a", "/a/b/c", 0}, {gen_dir_contains_file, "/a", "/a/", 0},
      {gen_dir_contains_file, "/a", "/b/c", 0}, {gen_dir_contains_file, nullptr, "/a", 0},
      {gen_tree_contains_file, "/a", "/a/b/c", 1}, {gen_tree_contains_file, "/a/", "/a/x", 1},
      {gen_tree_contains_file, "/a", "/ab", 0}, {gen_tree_contains_file, "/a", "/a", 0},
      {gen_tree_contains_file, "/a", nullptr, 0}, {gen_isDirSubdirOfDir, "a", "a", 1},
      {gen_isDirSubdirOfDir, "/a/b", "/a", 1}, {gen_isDirSubdirOfDir, "/a/./b/..", "/a", 1},
      {gen_isDirSubdirOfDir, "/a/./b/..", "/a/", 0}, {gen_isDirSubdirOfDir, "/a\\b", "/a", 1},
      {gen_isDirSubdirOfDir, "/x", "/", 1}, {gen_isDirSubdirOfDir, "/ab", "/a", 0},
      {gen_isDirSubdirOfDir, "/a", "/a/b", 0}, {gen_isDirSubdirOfDir, nullptr, "/a", 0},
      {gen_issuffix, "a.cfg", ".cfg", 1},   {gen_issuffix, "a.cfg", "cfg", 1},
      {gen_issuffix, "a.cfg", "CFG", 0},    {gen_issuffix, "a.c", nullptr, 1},
      {gen_issuffix, "a", nullptr, 0},      {gen_issuffix, "libq.so.2.0", "so", 1},
      {gen_basenamematch, "x/a.c", "y/a.h", 1}, {gen_basenamematch, "a.c", "b.c", 0},
      {gen_basenamematch, "a.c", nullptr, 0},
  };
  int row = 0;
  for (const auto &r : rows) EXPECT_EQ(r.relation(r.a, r.b), r.expected) << "row " << row++;
  EXPECT_TRUE(gen_is_basename("a.c"));
  EXPECT_FALSE(gen_is_basename("d/a.c") || gen_is_basename("") || gen_is_basename(nullptr));
  const struct {
    const char *whole, *tail;
    int exact, expected;
  } tails[] = {{"x/foo", "foo", 1, 1},   {"xfoo", "foo", 1, 0}, {"foo", "foo", 1, 1},
               {"a/b/./c", "b//c", 1, 1}, {"x/FOO", "foo", 0, 1}, {"x/FOO", "foo", 1, 0},
               {"c", "b/c", 0, 0},       {"/a", "ab", 0, 0},    {nullptr, "a", 0, 0}};
  for (const auto &t : tails)
    EXPECT_EQ(gen_FilenameTailCmp(t.whole, t.tail, t.exact), t.expected) << Text(t.whole) << "|" << t.tail;
}

TEST(Identity, SameFileAndMangling) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("f"), "x"));
  ASSERT_EQ(link(dir.file("f").c_str(), dir.file("g").c_str()), 0);
  ASSERT_EQ(mkdir(dir.file("d").c_str(), 0777), 0);
  ASSERT_EQ(mkdir(dir.file("e").c_str(), 0777), 0);
  ASSERT_EQ(symlink(dir.file("f").c_str(), dir.file("d/f").c_str()), 0);
  const struct {
    const char *a, *b;
    bool same;
  } rows[] = {
      {"f", "g", false},           // base names differ: no look at the disk
      {"f", "./f", true},          {"f", "d/f", true},   {"d/f", "e/f", false},  // one exists
      {"d/x", "d/../d/x", true},   // missing files: their directories decide
      {"d/x", "e/x", false},       {"d/x", "none/x", false},
      {"none/x", "none/x", true},  {"none/x", "no/x", false},  // then the names
  };
  for (const auto &row : rows)
    EXPECT_EQ(gen_samefile(dir.file(row.a).c_str(), dir.file(row.b).c_str()), row.same)
        << row.a << " " << row.b;
  EXPECT_FALSE(gen_samefile(nullptr, "x"));

  EXPECT_EQ(gen_manglefilename_hashfunc("abc"), 0x187163u);
  EXPECT_EQ(gen_manglefilename_hashfunc(nullptr), 0u);
  const std::string long_name = "/very/long:path\\" + std::string(100, 'n') + "/end";
  ExpectAll({
      {Take(gen_manglefilename_length("abc", 9, 1)), "<null>"},
      {Take(gen_manglefilename_length("abc", 10, 1)), "00000063c"},
      {Take(gen_manglefilename_length("abc", 10, 0)), "00187163c"},
      {Take(gen_manglefilename_length("a/b:c\\d", 20, 0)), "27596b1aa@b@c@d"},
      {Take(gen_manglefilename("/usr/local/lib/x.c")), "a099bb14@usr@local@lib@x.c"},
      {Take(gen_manglefilename_length("/usr/local/lib/x.c", 12, 1)), "001e1763x.c"},
      {Take(gen_manglefilename(long_name.c_str())),
       "0e2ed83bnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn@end"},
  });
}

TEST(HomeAndCwd, ExpansionAndRelativeNames) {
  const struct passwd *root = getpwnam("root");
  ASSERT_NE(root, nullptr);
  const std::string root_home = root->pw_dir;  // later lookups overwrite the entry
  char *home = gen_canonicalfilename(gen_copy(gen_gethomedir()));
  ASSERT_NE(home, nullptr);
  const std::string cwd_x = std::string(gen_getcwd()) + "/x";
  ExpectAll({
      {Take(gen_expand_filename(nullptr)), "<null>"},  {Take(gen_expand_filename("")), ""},
      {Take(gen_expand_filename("/a/./b/../c")), "/a/c"},
      {Take(gen_expand_filename("~no_such_user_q/a/../b")), "~no_such_user_q/b"},
      {Take(gen_expand_filename("rel/../x")), cwd_x.c_str()},
      {Take(gen_expand_filename("~root/a/./b")), (root_home + "/a/b").c_str()},
      {Take(gen_expand_filename("~")), home},          {Take(gen_expand_filename("~/")), home},
      {Take(gen_expand_filename("~/q/..")), home},
      {Take(gen_expand_filename_using_cwd("/c", "a/../b")), "/c/b"},
      {Take(gen_expand_filename_using_cwd("/c", "/x/./y")), "/x/y"},
      {Take(gen_expand_filename_using_cwd(nullptr, "/p/.")), "/p"},
      {Take(gen_expand_filename_using_cwd("/c", "~root")), root_home.c_str()},
      {Take(gen_expand_filename_using_cwd("/c", "")), ""},
      {Take(gen_expand_filename_using_cwd("/c", nullptr)), "<null>"},
      {Take(gen_relative_filename("/a/b", "/a/b/c/d", 0)), "c/d"},
      {Take(gen_relative_filename("/a/b/", "/a/b/c", 0)), "c"},
      {Take(gen_relative_filename("/a/b/", "/a/b/", 0)), ""},
      {Take(gen_relative_filename("/a/b", "/a/bc", 0)), "<null>"},
      {Take(gen_relative_filename("/a/b", "/a/b", 0)), "<null>"},
      {Take(gen_relative_filename("a", "a/b", 0)), "<null>"},
      {Take(gen_relative_filename(nullptr, "/a", 1)), "<null>"},
  });
  gen_free(home);
  TempDir dir;  // only the real paths relate these two names
  ASSERT_EQ(mkdir(dir.file("sub").c_str(), 0777), 0);
  ASSERT_TRUE(WriteFileBytes(dir.file("sub/f"), ""));
  const std::string base = dir.file("sub/.."), name = dir.file("./sub/f");
  EXPECT_EQ(Take(gen_relative_filename(base.c_str(), name.c_str(), 0)), "<null>");
  EXPECT_EQ(Take(gen_relative_filename(base.c_str(), name.c_str(), 1)), "sub/f");
}

TEST(NameLists, GetpathCutsLongEntriesAndAddpathShortens) {
  const char *list = "::/bin:/usr/local/bin::";
  char buffer[5];
  const char *rest = gen_getpath(list, buffer, 4);
  EXPECT_STREQ(buffer, "/bin");
  EXPECT_EQ(rest, list + 6);
  rest = gen_getpath(rest, buffer, 4);
  EXPECT_STREQ(buffer, "/usr");
  EXPECT_EQ(rest, list + 21);
  EXPECT_EQ(gen_getpath(rest, buffer, 4), nullptr);
  EXPECT_EQ(gen_getpath(nullptr, buffer, 4), nullptr);

}

// Runs in a fresh copy of this program: the counter starts at 0 there.
#define CHILD_EXPECT_EQ(actual, expected)                                                  \
  do {                                                                                     \
    const std::string a_ = (actual), e_ = (expected);                                      \
    if (a_ != e_) fprintf(stderr, "line %d: '%s', want '%s'\n", __LINE__, a_.c_str(), e_.c_str()), _exit(1); \
  } while (0)

TEST(TempNameDeathTest, Process1234CountsInBase32AndTwinsAreFreeTogether) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TempDir dir;
  const std::string path = dir.file("tmp");
  ASSERT_EQ(mkdir(dir.file("two").c_str(), 0777), 0);
  ScopedEnv tmpdir("TMPDIR", dir.path().c_str());
  auto body = [&] {
    fake_pid = 1234;
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "tmp")), dir.file("qo_16i1.tmp"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), ".tmp")), dir.file("qo_16i2.tmp"));
    WriteFileBytes(dir.file("qo_16i3.tmp"), "");  // a taken name is skipped
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "tmp")), dir.file("qo_16i4.tmp"));
    CHILD_EXPECT_EQ(Take(gen_tempname("plain", "x")), "qo_16i5.x");
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), nullptr)), dir.file("qo_16i6."));
    // The twin of counter 7 in "two" is taken, so both move on to 8.
    WriteFileBytes(dir.file("two/qo_16i7.b"), "");
    char first[GEN_TMPNAME_SIZE], second[GEN_TMPNAME_SIZE], third[GEN_TMPNAME_SIZE];
    if (tmp2name(dir.path().c_str(), first, "a", dir.file("two").c_str(), ".b") != first) _exit(3);
    CHILD_EXPECT_EQ(first, dir.file("qo_16i8.a"));
    WriteFileBytes(dir.file("qo_16i9.z"), "");  // three names share a stem
    CHILD_EXPECT_EQ(xtmp3names(dir.path().c_str(), first, "x", second, "y", third, "z"),
                    dir.file("qo_16ia.x"));
    CHILD_EXPECT_EQ(second, dir.file("qo_16ia.y"));
    CHILD_EXPECT_EQ(third, dir.file("qo_16ia.z"));
    CHILD_EXPECT_EQ(Take(tmp1name(dir.path().c_str(), nullptr, "q")), dir.file("qo_16ib.q"));
    for (int i = 12; i < 31; i++) Take(gen_tempname(path.c_str(), "t"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_16iv.t"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_16i10.t"));
    for (int i = 33; i < 1025; i++) Take(gen_tempname(path.c_str(), "t"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_16i101.t"));
    fake_pid = 0x7FFFFFFF;  // all seven groups of the process id
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_1vvvvvv102.t"));
    _exit(0);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST(TempName, FixedNamesNamesThatDoNotFitAndErrno) {
  TempDir dir;
  const std::string path = dir.file("x");
  {
    ScopedEnv fixed("BUILDER_TEMPORARY_NAME", "build.");
    EXPECT_EQ(Take(gen_tempname(path.c_str(), "tmp")), dir.file("build.tmp"));
  }
  ScopedEnv fixed("BUILDER_TEMPORARY_NAME", "build");
  EXPECT_EQ(Take(gen_tempname(path.c_str(), "tmp")), dir.file("build.tmp"));
  ASSERT_TRUE(WriteFileBytes(dir.file("build.tmp"), ""));
  EXPECT_EQ(gen_tempname(path.c_str(), "tmp"), nullptr);  // taken, and it can't change
  errno = EDOM;
  EXPECT_TRUE(gen_alreadyused(dir.file("build.tmp").c_str()));
  EXPECT_FALSE(gen_alreadyused(dir.file("missing").c_str()));
  EXPECT_EQ(errno, EDOM);
  // 231 characters of directory and 24 of suffix make at least 258.
  const std::string deep = "/" + std::string(230, 'd') + "/x";
  char buffer[GEN_TMPNAME_SIZE] = "#";
  EXPECT_EQ(gen_tempname(deep.c_str(), "0123456789abcdefghijklmn"), nullptr);
  EXPECT_EQ(xxtmp3names(deep.substr(0, 231).c_str(), buffer, "0123456789abcdefghijklmn", nullptr,
                        nullptr, nullptr, nullptr), nullptr);
  EXPECT_STREQ(buffer, "#");
}

TEST(TempDirName, CountsTheLastTwoCharacters) {
  TempDir dir;
  ScopedEnv tmpdir("TMPDIR", dir.path().c_str());
  fake_pid = 0x104D2;  // low 16 bits: 04D2
  struct ResetPid { ~ResetPid() { fake_pid = 0; } } reset_pid;
  const std::string stem = dir.file("qo04D2");
  const char *at = dir.path().c_str();
  EXPECT_EQ(Take(gen_createtmpdir(at, 0700)), stem + "aa");
  EXPECT_EQ(Take(gen_tmpdirname(at)), stem + "ab");
  for (char c = 'b'; c <= 'z'; c++) ASSERT_EQ(mkdir((stem + 'a' + c).c_str(), 0700), 0);
  EXPECT_EQ(Take(gen_tmpdirname(at)), stem + "a0");
  for (char c = '0'; c <= '9'; c++) ASSERT_EQ(mkdir((stem + 'a' + c).c_str(), 0700), 0);
  EXPECT_EQ(Take(gen_tmpdirname(at)), stem + "ba");
  const std::string digits = "abcdefghijklmnopqrstuvwxyz0123456789";
  for (char high : digits)
    for (char low : digits) mkdir((stem + high + low).c_str(), 0700);
  EXPECT_EQ(gen_tmpdirname(at), nullptr);  // all 36 * 36 taken
  EXPECT_EQ(gen_createtmpdir(at, 0700), nullptr);
}

}  // namespace
