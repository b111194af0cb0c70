// Tests of file names: splitting, suffix rules, expansion, comparison,
// mangling, name lists and temporary names.  Temporary names carry the
// process id, so this file replaces getpid (see FakePid) to pin the names
// of the process 1234; their counter lasts as long as the process, so the
// pinned sequences run in a freshly started copy of this test program.
#include "indgen_filename.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "gen_capture.h"
#include "indgen_canon.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "temp_dir.h"

namespace {
// While non-zero, getpid answers this value.
pid_t fake_pid = 0;
}  // namespace

// The library's only source of the process id; the real one unless a test
// pins it.
extern "C" pid_t getpid(void) noexcept {
  return fake_pid != 0 ? fake_pid : static_cast<pid_t>(syscall(SYS_getpid));
}

namespace {

using testsupport::FileExists;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

// The text of a new heap string, which is freed; "<null>" for null.
std::string Take(char *s) {
  std::string text = s == nullptr ? "<null>" : std::string(s);
  gen_free(s);
  return text;
}

std::string Text(const char *s) { return s == nullptr ? "<null>" : std::string(s); }

// Sets an environment variable for the lifetime of the object (null
// removes it) and restores the old state.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const char *value) : name_(name) {
    if (const char *old = getenv(name)) old_ = old;
    if (value != nullptr)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~ScopedEnv() {
    if (old_)
      setenv(name_.c_str(), old_->c_str(), 1);
    else
      unsetenv(name_.c_str());
  }
  ScopedEnv(const ScopedEnv &) = delete;
  ScopedEnv &operator=(const ScopedEnv &) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

// Pins the process id for the lifetime of the object.
class FakePid {
 public:
  explicit FakePid(pid_t pid) { fake_pid = pid; }
  ~FakePid() { fake_pid = 0; }
  FakePid(const FakePid &) = delete;
  FakePid &operator=(const FakePid &) = delete;
};

// ---- Directory and base ---------------------------------------------------

TEST(NameParts, BasenameAndDirname) {
  const char *trailing = "a/";
  EXPECT_STREQ(gen_basename(trailing), "");
  EXPECT_EQ(gen_basename(trailing), trailing + 2);
  EXPECT_STREQ(gen_basename("plain"), "plain");
  EXPECT_EQ(gen_basename(nullptr), nullptr);

  EXPECT_EQ(Take(gen_dirname("plain")), "<null>");
  EXPECT_EQ(Take(gen_dirname("/a")), "/");
  EXPECT_EQ(Take(gen_dirname("a/")), "a");
  EXPECT_EQ(Take(gen_dirname("a/b/c")), "a/b");
  EXPECT_EQ(Take(gen_dirname("//a")), "/");
  EXPECT_EQ(Take(gen_dirname(nullptr)), "<null>");
}

TEST(NameParts, OtherHostForms) {
  EXPECT_STREQ(gen_msw_basename("c:\\dir\\f.c"), "f.c");
  EXPECT_STREQ(gen_basename_anyhost("c:f.c"), "f.c");
  EXPECT_STREQ(gen_basename_anyhost("a/b\\c"), "c");

  EXPECT_EQ(Take(gen_dirname_anyhost("C:foo")), "C:");
  EXPECT_EQ(Take(gen_dirname_anyhost("C:\\foo")), "C:\\");
  EXPECT_EQ(Take(gen_dirname_anyhost("\\foo")), "\\");
  EXPECT_EQ(Take(gen_dirname_anyhost("a\\b/c")), "a\\b");
  EXPECT_EQ(Take(gen_dirname_anyhost("a:b\\c")), "a:b");
  EXPECT_EQ(Take(gen_dirname_anyhost("plain")), "<null>");
}

TEST(NameParts, TopdirAndPopdir) {
  EXPECT_EQ(Take(gen_topdir("/usr/lib")), "usr");
  EXPECT_EQ(Take(gen_topdir("//a\\b")), "a");
  EXPECT_EQ(Take(gen_topdir("C:\\x")), "C:");
  EXPECT_EQ(Take(gen_topdir("/abc")), "abc");
  EXPECT_EQ(Take(gen_topdir(nullptr)), "<null>");

  const char *path = "/usr/lib";
  EXPECT_EQ(gen_popdir(path), path + 4);
  const char *one = "/usr";
  EXPECT_EQ(gen_popdir(one), one);
  const char *two = "//usr";
  EXPECT_EQ(gen_popdir(two), two + 1);
  const char *relative = "usr/lib";
  EXPECT_EQ(gen_popdir(relative), relative + 3);
  EXPECT_EQ(gen_popdir("usr"), nullptr);
}

TEST(NameParts, DirectoryRelations) {
  EXPECT_TRUE(gen_dirmatch("a/x", "a/y"));
  EXPECT_TRUE(gen_dirmatch("x", "y"));
  EXPECT_FALSE(gen_dirmatch("/x", "x"));
  EXPECT_FALSE(gen_dirmatch("a/x", "b/x"));
  EXPECT_FALSE(gen_dirmatch("a/x", nullptr));

  EXPECT_TRUE(gen_dir_contains_file("/a", "/a/b"));
  EXPECT_TRUE(gen_dir_contains_file("/a", "/a//b"));
  EXPECT_TRUE(gen_dir_contains_file("/a/", "/a/b"));
  EXPECT_FALSE(gen_dir_contains_file("/a", "/a/b/c"));
  EXPECT_FALSE(gen_dir_contains_file("/a", "/a/"));
  EXPECT_FALSE(gen_dir_contains_file("/a", "/b/c"));
  EXPECT_FALSE(gen_dir_contains_file(nullptr, "/a"));

  EXPECT_TRUE(gen_tree_contains_file("/a", "/a/b/c"));
  EXPECT_TRUE(gen_tree_contains_file("/a/", "/a/x"));
  EXPECT_FALSE(gen_tree_contains_file("/a", "/ab"));
  EXPECT_FALSE(gen_tree_contains_file("/a", "/a"));
  EXPECT_FALSE(gen_tree_contains_file("/a", nullptr));

  EXPECT_TRUE(gen_isDirSubdirOfDir("a", "a"));
  EXPECT_TRUE(gen_isDirSubdirOfDir("/a/b", "/a"));
  EXPECT_TRUE(gen_isDirSubdirOfDir("/a/./b/..", "/a"));
  EXPECT_FALSE(gen_isDirSubdirOfDir("/a/./b/..", "/a/"));
  EXPECT_TRUE(gen_isDirSubdirOfDir("/a\\b", "/a"));
  EXPECT_TRUE(gen_isDirSubdirOfDir("/x", "/"));
  EXPECT_FALSE(gen_isDirSubdirOfDir("/ab", "/a"));
  EXPECT_FALSE(gen_isDirSubdirOfDir("/a", "/a/b"));
  EXPECT_FALSE(gen_isDirSubdirOfDir(nullptr, "/a"));
  EXPECT_TRUE(gen_is_basename("a.c"));
  EXPECT_FALSE(gen_is_basename("d/a.c"));
  EXPECT_FALSE(gen_is_basename(""));
}

// ---- Suffixes ---------------------------------------------------------------

TEST(Suffix, GetsuffixRules) {
  struct Row {
    const char *name;
    const char *suffix;
  };
  const Row rows[] = {
      {"a.c", "c"},           {"a.b/c", "<null>"},     {".profile", "profile"},
      {"libx.so.1.2", "so"},  {"libx.so.1", "1"},      {"libx.sa.10.2", "sa"},
      {"x.so.1.2", "so"},     {".so.1.2", "2"},        {"lib.so.x.2", "2"},
      {"libx.so.1.2.3", "3"}, {"d.so.1.2/f.so.3", "3"}, {"a.", ""},
  };
  for (const Row &row : rows) EXPECT_EQ(Text(gen_getsuffix(row.name)), row.suffix) << row.name;
  const char *name = "dir/file.tar.gz";
  EXPECT_EQ(gen_getsuffix(name), name + 13);
}

TEST(Suffix, TestsAndChanges) {
  EXPECT_TRUE(gen_issuffix("a.cfg", ".cfg"));
  EXPECT_TRUE(gen_issuffix("a.cfg", "cfg"));
  EXPECT_FALSE(gen_issuffix("a.cfg", "CFG"));
  EXPECT_TRUE(gen_issuffix("a.c", nullptr));
  EXPECT_FALSE(gen_issuffix("a", nullptr));
  EXPECT_TRUE(gen_issuffix("libq.so.2.0", "so"));

  EXPECT_EQ(Take(gen_changesuffix("dir.d/a.c", "o")), "dir.d/a.o");
  EXPECT_EQ(Take(gen_changesuffix("dir.d/a", ".o")), "dir.d/a.o");
  EXPECT_EQ(Take(gen_changesuffix("a.c", nullptr)), "a");
  EXPECT_EQ(Take(gen_changesuffix("a.c", "")), "a.");
  EXPECT_EQ(Take(gen_changesuffix(nullptr, ".o")), ".o");

  EXPECT_EQ(Take(gen_addsuffix("a.c", ".o")), "a.c.o");
  EXPECT_EQ(Take(gen_addsuffix("a", nullptr)), "a");
  EXPECT_EQ(Take(gen_addsuffix(nullptr, "o")), "o");

  EXPECT_EQ(Take(gen_makeshort("x/y/a.c", "o")), "a.o");
  EXPECT_EQ(gen_basenamelen("abc.def"), 3);
  EXPECT_EQ(gen_basenamelen("abc"), 3);
  EXPECT_EQ(gen_basenamelen(nullptr), 0);
  EXPECT_TRUE(gen_basenamematch("x/a.c", "y/a.h"));
  EXPECT_FALSE(gen_basenamematch("a.c", "b.c"));
  EXPECT_FALSE(gen_basenamematch("a.c", nullptr));
}

TEST(Suffix, ChangeDirAndSuffix) {
  EXPECT_EQ(Take(gen_changedirandsuffix("out", "src/a.c", "_x", ".o")), "out/a_x.o");
  EXPECT_EQ(Take(gen_changedirandsuffix("out/", "a.c", nullptr, nullptr)), "out/a");
  EXPECT_EQ(Take(gen_changedirandsuffix("d", "a.c", "", "")), "d/a.");
  // An empty dir adds no directory but still canonicalises; a null one
  // doesn't.
  EXPECT_EQ(Take(gen_changedirandsuffix("", "a.c", "/../b", "o")), "b.o");
  EXPECT_EQ(Take(gen_changedirandsuffix(nullptr, "a.c", "/../b", "o")), "a/../b.o");
  EXPECT_EQ(Take(gen_changedirandsuffix("out/.", nullptr, nullptr, "x.c")), "out/x.c");
}

TEST(Suffix, SymbolFileName) {
  {
    ScopedEnv env("ORBEXSYM", nullptr);
    EXPECT_EQ(Take(gen_symfilename("prog.out")), "prog.out.sym");
  }
  {
    ScopedEnv env("ORBEXSYM", ".dbg");
    EXPECT_EQ(Take(gen_symfilename("prog")), "prog.dbg");
  }
  ScopedEnv env("ORBEXSYM", "");
  EXPECT_EQ(Take(gen_symfilename("prog")), "prog.sym");
}

// ---- Identity and folding ---------------------------------------------------

TEST(Identity, TailComparison) {
  EXPECT_TRUE(gen_FilenameTailCmp("x/foo", "foo", 1));
  EXPECT_FALSE(gen_FilenameTailCmp("xfoo", "foo", 1));
  EXPECT_TRUE(gen_FilenameTailCmp("foo", "foo", 1));
  EXPECT_TRUE(gen_FilenameTailCmp("a/b/./c", "b//c", 1));
  EXPECT_TRUE(gen_FilenameTailCmp("x/FOO", "foo", 0));
  EXPECT_FALSE(gen_FilenameTailCmp("x/FOO", "foo", 1));
  EXPECT_FALSE(gen_FilenameTailCmp("c", "b/c", 0));
  EXPECT_FALSE(gen_FilenameTailCmp("/a", "ab", 0));
  EXPECT_FALSE(gen_FilenameTailCmp(nullptr, "a", 0));
}

TEST(Identity, SameFile) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("f"), "x"));
  ASSERT_EQ(link(dir.file("f").c_str(), dir.file("g").c_str()), 0);
  ASSERT_EQ(mkdir(dir.file("d").c_str(), 0777), 0);
  ASSERT_EQ(mkdir(dir.file("e").c_str(), 0777), 0);
  ASSERT_EQ(symlink(dir.file("f").c_str(), dir.file("d/f").c_str()), 0);

  EXPECT_FALSE(gen_samefile(dir.file("f").c_str(), dir.file("g").c_str()));  // bases differ
  EXPECT_TRUE(gen_samefile(dir.file("f").c_str(), dir.file("./f").c_str()));
  EXPECT_TRUE(gen_samefile(dir.file("f").c_str(), dir.file("d/f").c_str()));
  EXPECT_FALSE(gen_samefile(dir.file("d/f").c_str(), dir.file("e/f").c_str()));  // one exists
  // Missing files: their directories decide.
  EXPECT_TRUE(gen_samefile(dir.file("d/x").c_str(), dir.file("d/../d/x").c_str()));
  EXPECT_FALSE(gen_samefile(dir.file("d/x").c_str(), dir.file("e/x").c_str()));
  EXPECT_FALSE(gen_samefile(dir.file("d/x").c_str(), dir.file("none/x").c_str()));
  // Nothing exists: the real paths, which fall back to the names.
  EXPECT_TRUE(gen_samefile(dir.file("none/x").c_str(), dir.file("none/x").c_str()));
  EXPECT_FALSE(gen_samefile(dir.file("none/x").c_str(), dir.file("no/x").c_str()));
  EXPECT_FALSE(gen_samefile(nullptr, "x"));
}

TEST(Mangle, HashAndFolding) {
  EXPECT_EQ(gen_manglefilename_hashfunc("abc"), 0x187163u);
  EXPECT_EQ(gen_manglefilename_hashfunc(nullptr), 0u);
  EXPECT_EQ(gen_manglefilename_length("abc", 9, 1), nullptr);
  EXPECT_EQ(Take(gen_manglefilename_length("abc", 10, 1)), "00000063c");
  EXPECT_EQ(Take(gen_manglefilename_length("abc", 10, 0)), "00187163c");
  EXPECT_EQ(Take(gen_manglefilename_length("a/b:c\\d", 20, 0)), "27596b1aa@b@c@d");
  EXPECT_EQ(Take(gen_manglefilename("/usr/local/lib/x.c")), "a099bb14@usr@local@lib@x.c");
  EXPECT_EQ(Take(gen_manglefilename_length("/usr/local/lib/x.c", 12, 1)), "001e1763x.c");

  const std::string long_name = "/very/long:path\\" + std::string(100, 'n') + "/end";
  const std::string mangled = Take(gen_manglefilename(long_name.c_str()));
  EXPECT_EQ(mangled.size(), 63u);
  EXPECT_EQ(mangled.find_first_of("/\\:"), std::string::npos);
  EXPECT_EQ(mangled.substr(mangled.size() - 4), "@end");
}

// ---- Home and current directory ---------------------------------------------

TEST(HomeAndCwd, ExpandFilename) {
  EXPECT_EQ(Take(gen_expand_filename(nullptr)), "<null>");
  EXPECT_EQ(Take(gen_expand_filename("")), "");
  EXPECT_EQ(Take(gen_expand_filename("/a/./b/../c")), "/a/c");
  EXPECT_EQ(Take(gen_expand_filename("~no_such_user_q/a/../b")), "~no_such_user_q/b");
  EXPECT_EQ(Take(gen_expand_filename("rel/../x")), std::string(gen_getcwd()) + "/x");

  const struct passwd *root = getpwnam("root");
  ASSERT_NE(root, nullptr);
  const std::string root_home = root->pw_dir;  // the entry is overwritten by later lookups
  EXPECT_EQ(Take(gen_expand_filename("~root/a/./b")), root_home + "/a/b");

  ASSERT_NE(gen_gethomedir(), nullptr);
  char *home = gen_copy(gen_gethomedir());
  gen_canonicalfilename(home);
  EXPECT_EQ(Take(gen_expand_filename("~")), home);
  EXPECT_EQ(Take(gen_expand_filename("~/")), home);
  EXPECT_EQ(Take(gen_expand_filename("~/q/..")), home);
  gen_free(home);

  EXPECT_EQ(Take(gen_expand_filename_using_cwd("/c", "a/../b")), "/c/b");
  EXPECT_EQ(Take(gen_expand_filename_using_cwd("/c", "/x/./y")), "/x/y");
  EXPECT_EQ(Take(gen_expand_filename_using_cwd(nullptr, "/p/.")), "/p");
  EXPECT_EQ(Take(gen_expand_filename_using_cwd("/c", "~root")), root_home);
  EXPECT_EQ(Take(gen_expand_filename_using_cwd("/c", "")), "");
  EXPECT_EQ(Take(gen_expand_filename_using_cwd("/c", nullptr)), "<null>");
}

TEST(HomeAndCwd, RelativeFilename) {
  EXPECT_EQ(Take(gen_relative_filename("/a/b", "/a/b/c/d", 0)), "c/d");
  EXPECT_EQ(Take(gen_relative_filename("/a/b/", "/a/b/c", 0)), "c");
  EXPECT_EQ(Take(gen_relative_filename("/a/b/", "/a/b/", 0)), "");
  EXPECT_EQ(Take(gen_relative_filename("/a/b", "/a/bc", 0)), "<null>");
  EXPECT_EQ(Take(gen_relative_filename("/a/b", "/a/b", 0)), "<null>");
  EXPECT_EQ(Take(gen_relative_filename("a", "a/b", 0)), "<null>");
  EXPECT_EQ(Take(gen_relative_filename(nullptr, "/a", 1)), "<null>");

  // Only the real paths relate these two names.
  TempDir dir;
  ASSERT_EQ(mkdir(dir.file("sub").c_str(), 0777), 0);
  ASSERT_TRUE(WriteFileBytes(dir.file("sub/f"), ""));
  const std::string base = dir.file("sub/..");
  const std::string name = dir.file("./sub/f");
  EXPECT_EQ(Take(gen_relative_filename(base.c_str(), name.c_str(), 0)), "<null>");
  EXPECT_EQ(Take(gen_relative_filename(base.c_str(), name.c_str(), 1)), "sub/f");
}

TEST(HomeAndCwd, CwdIsCachedUntilInvalidated) {
  char real[1025];
  ASSERT_NE(getcwd(real, sizeof real), nullptr);
  gen_invalidate_cwd();
  EXPECT_STREQ(gen_getcwd(), real);

  TempDir dir;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  EXPECT_STREQ(gen_getcwd(), real);  // still the cached one
  gen_invalidate_cwd();
  char *expected = realpath(dir.path().c_str(), nullptr);
  EXPECT_STREQ(gen_getcwd(), expected);
  free(expected);
  ASSERT_EQ(chdir(real), 0);
  gen_invalidate_cwd();
  EXPECT_STREQ(gen_getcwd(), real);

  EXPECT_STREQ(gen_getdot(), ".");
  EXPECT_EQ(gen_getdevice(), nullptr);
  EXPECT_STREQ(gen_getdevdot(), ".");
  EXPECT_EQ(gen_getdevdot(), gen_getdevdot());
  char *user = gen_getusername();
  const struct passwd *entry = getpwuid(getuid());
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(user, entry->pw_name);
  gen_free(user);
}

TEST(HomeAndCwdDeathTest, RemovedCwdFallsBackToHome) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TempDir dir;
  auto body = [&] {
    const std::string home = Text(gen_gethomedir());
    if (chdir(dir.path().c_str()) != 0 || rmdir(dir.path().c_str()) != 0) _exit(2);
    gen_invalidate_cwd();
    _exit(home == gen_getcwd() ? 0 : 1);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

// ---- Name lists --------------------------------------------------------------

TEST(NameLists, GetpathCutsLongEntries) {
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
  EXPECT_EQ(gen_getpath("", buffer, 4), nullptr);
}

TEST(NameLists, AddpathShortensAgainstThePreviousName) {
  char *current = nullptr;
  EXPECT_STREQ(gen_addpath("a/x", &current), "a/x");
  EXPECT_STREQ(current, "a/x");
  const char *name = "a/y";
  EXPECT_EQ(gen_addpath(name, &current), name + 2);
  EXPECT_STREQ(gen_addpath("z", &current), "./z");
  EXPECT_STREQ(current, "./z");
  const char *plain = "w";
  EXPECT_EQ(gen_addpath(plain, &current), plain);
  EXPECT_STREQ(current, "./z");
  EXPECT_STREQ(gen_addpath("b/v", &current), "b/v");
  EXPECT_STREQ(current, "b/v");
  EXPECT_EQ(gen_addpath(nullptr, &current), nullptr);
  gen_free(current);
}

// ---- Temporary names ----------------------------------------------------------

// Runs checks in a fresh copy of this program, where the temporary-name
// counter starts at 0 and getpid answers 1234.  The checks print what went
// wrong and exit non-zero.
class TempNameDeathTest : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

#define CHILD_EXPECT_EQ(actual, expected)                                          \
  do {                                                                             \
    const std::string a_ = (actual), e_ = (expected);                              \
    if (a_ != e_) {                                                                \
      fprintf(stderr, "line %d: got '%s', want '%s'\n", __LINE__, a_.c_str(), e_.c_str()); \
      _exit(1);                                                                    \
    }                                                                              \
  } while (0)

TEST_F(TempNameDeathTest, Process1234CountsInBase32) {
  TempDir dir;
  const std::string path = dir.file("tmp");
  auto body = [&] {
    fake_pid = 1234;
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "tmp")), dir.file("qo_16i1.tmp"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), ".tmp")), dir.file("qo_16i2.tmp"));
    // A taken name is skipped.
    WriteFileBytes(dir.file("qo_16i3.tmp"), "");
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "tmp")), dir.file("qo_16i4.tmp"));
    // No directory: the current one.  No suffix: the stem alone.
    CHILD_EXPECT_EQ(Take(gen_tempname("plain", "x")), "qo_16i5.x");
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), nullptr)), dir.file("qo_16i6."));
    // The counter goes on: 31 is 'v', 32 is "10", 1025 is "101".
    for (int i = 7; i < 31; i++) Take(gen_tempname(path.c_str(), "t"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_16iv.t"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_16i10.t"));
    for (int i = 33; i < 1025; i++) Take(gen_tempname(path.c_str(), "t"));
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_16i101.t"));
    // All seven groups of the process id.
    fake_pid = 0x7FFFFFFF;
    CHILD_EXPECT_EQ(Take(gen_tempname(path.c_str(), "t")), dir.file("qo_1vvvvvv102.t"));
    _exit(0);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(TempNameDeathTest, TwinsAndTriplesAreFreeTogether) {
  TempDir dir;
  ASSERT_EQ(mkdir(dir.file("two").c_str(), 0777), 0);
  ScopedEnv tmpdir("TMPDIR", dir.path().c_str());
  auto body = [&] {
    fake_pid = 1234;
    char first[GEN_TMPNAME_SIZE];
    char second[GEN_TMPNAME_SIZE];
    char third[GEN_TMPNAME_SIZE];
    // The twin of counter 1 in "two" is taken, so both move on to 2.
    WriteFileBytes(dir.file("two/qo_16i1.b"), "");
    char *name = tmp2name(dir.path().c_str(), first, "a", dir.file("two").c_str(), ".b");
    if (name != first) _exit(3);
    CHILD_EXPECT_EQ(first, dir.file("qo_16i2.a"));
    // Three names share a stem; the third is beside the first.
    WriteFileBytes(dir.file("qo_16i3.z"), "");
    name = xtmp3names(dir.path().c_str(), first, "x", second, "y", third, "z");
    CHILD_EXPECT_EQ(name, dir.file("qo_16i4.x"));
    CHILD_EXPECT_EQ(second, dir.file("qo_16i4.y"));
    CHILD_EXPECT_EQ(third, dir.file("qo_16i4.z"));
    // The second directory was for one call only.
    CHILD_EXPECT_EQ(Take(tmp1name(dir.path().c_str(), nullptr, "q")), dir.file("qo_16i5.q"));
    _exit(0);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST(TempName, BuilderNameIsFixed) {
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
}

TEST(TempName, NameThatDoesNotFitGivesNull) {
  // 231 characters of directory, "/qo_", id, counter, "." and 24 of suffix
  // make at least 258; with a suffix of one they make at most 249.
  const std::string deep = "/" + std::string(230, 'd') + "/x";
  const char *long_suffix = "0123456789abcdefghijklmn";
  EXPECT_EQ(gen_tempname(deep.c_str(), long_suffix), nullptr);
  char buffer[GEN_TMPNAME_SIZE];
  memset(buffer, '#', sizeof buffer);
  char *deep_dir = gen_dirname(deep.c_str());
  EXPECT_EQ(xxtmp3names(deep_dir, buffer, long_suffix, nullptr, nullptr, nullptr, nullptr), nullptr);
  gen_free(deep_dir);
  EXPECT_EQ(buffer[0], '#');
  EXPECT_NE(Take(gen_tempname(deep.c_str(), "t")), "<null>");
}

TEST(TempName, AlreadyUsedKeepsErrno) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("f"), ""));
  errno = EDOM;
  EXPECT_FALSE(gen_alreadyused(dir.file("missing").c_str()));
  EXPECT_EQ(errno, EDOM);
  EXPECT_TRUE(gen_alreadyused(dir.file("f").c_str()));
  EXPECT_EQ(errno, EDOM);
}

TEST(TempDirName, CountsTheLastTwoCharacters) {
  TempDir dir;
  ScopedEnv tmpdir("TMPDIR", dir.path().c_str());
  FakePid pid(0x104D2);  // low 16 bits: 04D2
  const std::string stem = dir.file("qo04D2");
  EXPECT_EQ(Take(gen_tmpdirname(dir.path().c_str())), stem + "aa");
  char *made = gen_createtmpdir(dir.path().c_str(), 0700);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(Take(made), stem + "aa");
  EXPECT_EQ(Take(gen_tmpdirname(dir.path().c_str())), stem + "ab");
  for (const char *taken : {"ab", "ac", "ad", "ae", "af", "ag", "ah", "ai", "aj", "ak", "al", "am",
                            "an", "ao", "ap", "aq", "ar", "as", "at", "au", "av", "aw", "ax", "ay",
                            "az"})
    ASSERT_EQ(mkdir((stem + taken).c_str(), 0700), 0);
  EXPECT_EQ(Take(gen_tmpdirname(dir.path().c_str())), stem + "a0");
  for (char c = '0'; c <= '9'; c++) ASSERT_EQ(mkdir((stem + "a" + c).c_str(), 0700), 0);
  EXPECT_EQ(Take(gen_tmpdirname(dir.path().c_str())), stem + "ba");

  // Every one of the 36 * 36 names taken: null.
  const std::string digits = "abcdefghijklmnopqrstuvwxyz0123456789";
  for (char high : digits)
    for (char low : digits) mkdir((stem + high + low).c_str(), 0700);
  EXPECT_EQ(gen_tmpdirname(dir.path().c_str()), nullptr);
  EXPECT_EQ(gen_createtmpdir(dir.path().c_str(), 0700), nullptr);
}

TEST(TempName, Mkstemp) {
  TempDir dir;
  std::string name = dir.file("fXXXXXX");
  const int fd = gen_mkstemp(name.data());
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_TRUE(FileExists(name));
  std::string second = dir.file("gXXXXXX");
  FILE *stream = gen_mkstempfp(second.data(), "w");
  ASSERT_NE(stream, nullptr);
  fclose(stream);
  EXPECT_TRUE(FileExists(second));
  std::string bad = dir.file("no-pattern");
  EXPECT_EQ(gen_mkstemp(bad.data()), -1);
  EXPECT_EQ(gen_mkstempfp(bad.data(), "w"), nullptr);
}

}  // namespace
