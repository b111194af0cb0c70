// Tests of source roots and configuration directories in a temporary tree:
// list parsing (separators, drive prefixes, trailing separators), matching
// (equal names, near misses, prefix roots, fake roots, alternate roots), the
// viewpath's root, and the user, site and default directories with HOME
// pointed at a temporary directory for the whole program (the home
// directory is looked up once per process).
#include "indconfig.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgeninit.h"
#include "indview.h"
#include "temp_dir.h"

namespace {

using testsupport::TempDir;
using testsupport::WriteFileBytes;

std::string RealPath(const std::string &name) {
  char buffer[PATH_MAX];
  return realpath(name.c_str(), buffer) != nullptr ? buffer : "";
}

// Takes a new heap string from the library and frees it.
std::string Take(char *text) {
  std::string result = text != nullptr ? text : "(null)";
  gen_free(text);
  return result;
}

// The home directory of this test program, set before any test runs.
class TemporaryHome : public ::testing::Environment {
 public:
  void SetUp() override {
    home_ = new TempDir;
    setenv("HOME", home_->path().c_str(), 1);
    path = home_->path();
  }
  void TearDown() override { delete home_; }
  static std::string path;

 private:
  TempDir *home_ = nullptr;
};
std::string TemporaryHome::path;
[[maybe_unused]] const auto *const kHome = ::testing::AddGlobalTestEnvironment(new TemporaryHome);

class ConfigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    saved_cwd_ = cwd;
    base_ = RealPath(dir_.path());
    for (const char *sub : {"a", "ab", "a/b", "bin", "bin/config", "bin/defaults"})
      ASSERT_EQ(mkdir((base_ + "/" + sub).c_str(), 0777), 0);
  }
  void TearDown() override {
    gen_sourceroot_cleanup();
    gen_cleanupconfigdirs();
    use_vp_as_src_root = 0;
    allow_fake_roots = 0;
    gen_viewpathing_cleanup();
    V_changed = 1;
    unsetenv("NVPATH");
    gen_free(gen_progdir);
    gen_progdir = nullptr;
    gen_removedir_recursive((TemporaryHome::path + "/.tov").c_str());
    EXPECT_EQ(chdir(saved_cwd_.c_str()), 0);
    gen_invalidate_cwd();
  }
  // Relative name and root number of name against the current roots.
  std::string Rel(const std::string &name, int *index) {
    return Take(gen_sourceroot_getrelname(name.c_str(), index));
  }

  TempDir dir_;
  std::string saved_cwd_, base_;
};

// ---- Source roots -----------------------------------------------------------

TEST_F(ConfigTest, ListsSplitAtEachSeparatorAndDropTrailingSlashes) {
  EXPECT_EQ(gen_sourceroot_init((base_ + "/a:" + base_ + "/ab;" + base_ + "/bin//,").c_str()), 3);
  char **roots = nullptr, **alts = nullptr;
  ASSERT_EQ(gen_sourceroot_getroots(&roots, &alts), 3);
  EXPECT_EQ(std::string(roots[0]), base_ + "/a");
  EXPECT_EQ(std::string(roots[1]), base_ + "/ab");
  EXPECT_EQ(std::string(roots[2]), base_ + "/bin");
  EXPECT_EQ(roots[3], nullptr);
  EXPECT_EQ(alts[2], nullptr);  // a trailing '/' alone isn't another spelling
  EXPECT_EQ(allow_fake_roots, 0);
  int index = 9;
  EXPECT_EQ(Rel(base_ + "/bin/x/y", &index), "x/y");
  EXPECT_EQ(index, 2);

  EXPECT_EQ(gen_sourceroot_init(""), 0);  // changes nothing
  EXPECT_EQ(gen_sourceroot_init(nullptr), 0);
  EXPECT_EQ(gen_sourceroot_getroots(nullptr, nullptr), 3);
}

TEST_F(ConfigTest, DrivePrefixesDoNotSplitAnEntry) {
  EXPECT_EQ(gen_sourceroot_init("c:/src/x,d:\\work\\"), 2);
  char **roots = nullptr;
  gen_sourceroot_getroots(&roots, nullptr);
  EXPECT_EQ(std::string(roots[0]), "c:/src/x");
  EXPECT_EQ(std::string(roots[1]), "d:\\work");
  EXPECT_EQ(allow_fake_roots, 1);
  int index = 9;
  EXPECT_EQ(Rel("d:\\work\\\\sub\\f.c", &index), "sub\\f.c");
  EXPECT_EQ(index, 1);
}

TEST_F(ConfigTest, MatchingNeedsTheWholeRootAndTheFirstRootWins) {
  gen_sourceroot_init((base_ + "/a:" + base_ + ":" + base_ + "/a/b").c_str());
  int index = 9;
  EXPECT_EQ(Rel(base_ + "/a", &index), ".");
  EXPECT_EQ(index, 0);
  EXPECT_EQ(Rel(base_ + "/a/", &index), ".");
  EXPECT_EQ(Rel(base_ + "/ab/f", &index), "ab/f");  // not root 0: "ab" isn't "a"
  EXPECT_EQ(index, 1);
  EXPECT_EQ(Rel(base_ + "/a/b/f", &index), "b/f");  // root 0 is earlier than root 2
  EXPECT_EQ(index, 0);
  EXPECT_EQ(Rel("/elsewhere/f", &index), "(null)");
  EXPECT_EQ(index, -1);
  EXPECT_EQ(Rel(base_ + "x", &index), "(null)");

  ASSERT_EQ(chdir((base_ + "/a").c_str()), 0);
  gen_invalidate_cwd();
  EXPECT_EQ(Rel("b/../f", &index), "f");  // a relative name is joined to the cwd
  EXPECT_EQ(index, 0);
}

TEST_F(ConfigTest, FakeRootsMatchRelativeNamesAsTheyAre) {
  ASSERT_EQ(chdir(base_.c_str()), 0);
  gen_invalidate_cwd();
  EXPECT_EQ(gen_sourceroot_init("src/lib:a"), 2);
  EXPECT_EQ(allow_fake_roots, 1);
  int index = 9;
  EXPECT_EQ(Rel("src/lib/x.c", &index), "x.c");
  EXPECT_EQ(index, 0);
  EXPECT_EQ(Rel("a/y", &index), "(null)");  // root 1 is a real path, the name isn't
}

TEST_F(ConfigTest, AnAlternateSpellingThroughALinkMatchesToo) {
  const std::string link = base_ + "/link";
  ASSERT_EQ(symlink((base_ + "/a").c_str(), link.c_str()), 0);
  gen_sourceroot_init((link + "/").c_str());
  char **roots = nullptr, **alts = nullptr;
  gen_sourceroot_getroots(&roots, &alts);
  EXPECT_EQ(std::string(roots[0]), base_ + "/a");
  EXPECT_EQ(std::string(alts[0]), link);
  int index = 9;
  EXPECT_EQ(Rel(link + "/f", &index), "f");
  EXPECT_EQ(index, 0);
}

TEST_F(ConfigTest, WithoutRootsNothingMatches) {
  int index = 9;
  EXPECT_EQ(Rel("/x", &index), "(null)");
  EXPECT_EQ(index, -1);
  EXPECT_EQ(gen_sourceroot_getrelname(nullptr, nullptr), nullptr);
  char *caller_roots[] = {const_cast<char *>("/r"), nullptr};
  EXPECT_EQ(Take(gen_get_relative(caller_roots, nullptr, 1, "/r/s", &index)), "s");
  EXPECT_EQ(index, 0);
}

TEST_F(ConfigTest, TheViewpathsRootCanServeAsTheOnlyRoot) {
  gen_sourceroot_init((base_ + "/bin").c_str());
  gen_sourceroot_initfromviewpath();
  int index = 9;
  EXPECT_EQ(Rel(base_ + "/bin/f", &index), "f");  // viewpathing inactive: the list
  setenv("NVPATH", (base_ + "/a:" + base_ + "/ab").c_str(), 1);
  gen_viewpathing_init(1);
  ASSERT_TRUE(gen_isviewpathing());
  EXPECT_EQ(Rel(base_ + "/a/b/f", &index), "b/f");
  EXPECT_EQ(index, 0);
  EXPECT_EQ(Rel(base_ + "/bin/f", &index), "(null)");
  EXPECT_EQ(index, 0);
}

// ---- Configuration directories ------------------------------------------------------

TEST_F(ConfigTest, TheUserDirectoryLiesInHomeAndIsMadeOnRequest) {
  const std::string user = TemporaryHome::path + "/.tov";
  char *error = reinterpret_cast<char *>(1);
  EXPECT_EQ(std::string(gen_getuserconfigdir(0, &error)), user);
  EXPECT_EQ(error, nullptr);
  EXPECT_FALSE(gen_isdir(user.c_str()));
  EXPECT_EQ(std::string(gen_getuserconfigdir(1, &error)), user);
  EXPECT_EQ(error, nullptr);
  EXPECT_TRUE(gen_isdir(user.c_str()));

  WriteFileBytes(base_ + "/file", "");
  gen_setuserconfigdir((base_ + "/file/sub").c_str());
  gen_setuserconfigdir("");  // ignored
  gen_setuserconfigdir(nullptr);
  EXPECT_EQ(std::string(gen_getuserconfigdir(1, &error)), base_ + "/file/sub");
  EXPECT_EQ(Take(error), "Couldn't create user config directory: " + base_ + "/file/sub");
  EXPECT_EQ(std::string(gen_getuserconfigdir(1, nullptr)), base_ + "/file/sub");
}

TEST_F(ConfigTest, SearchGoesUserSiteDefaultsAndSkipsDirectories) {
  gen_changeprogdir((base_ + "/bin").c_str());
  EXPECT_EQ(std::string(gen_getsiteconfigdir()), base_ + "/bin/config");
  EXPECT_EQ(std::string(gen_getsitedefaultconfigdir()), base_ + "/bin/defaults");
  gen_setuserconfigdir((base_ + "/a").c_str());
  WriteFileBytes(base_ + "/a/both", "user");
  WriteFileBytes(base_ + "/bin/config/both", "site");
  WriteFileBytes(base_ + "/bin/defaults/both", "default");
  ASSERT_EQ(mkdir((base_ + "/a/sited").c_str(), 0777), 0);
  WriteFileBytes(base_ + "/bin/config/sited", "site");
  WriteFileBytes(base_ + "/bin/config/siteonly", "site");

  char *error = reinterpret_cast<char *>(1);
  EXPECT_EQ(Take(gen_searchfileinconfigdirs("both", R_OK, 0, &error)), base_ + "/a/both");
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(Take(gen_searchfileinconfigdirs("both", R_OK, 1, nullptr)),
            base_ + "/bin/defaults/both");
  EXPECT_EQ(Take(gen_searchfileinconfigdirs("sited", R_OK, 0, nullptr)),
            base_ + "/bin/config/sited");
  EXPECT_EQ(Take(gen_searchfileinconfigdirs("siteonly", R_OK, 1, nullptr)), "(null)");
  EXPECT_EQ(Take(gen_searchfileinconfigdirs("none", R_OK, 0, nullptr)), "(null)");
  EXPECT_EQ(Take(gen_searchfileinconfigdirs(nullptr, R_OK, 0, nullptr)), "(null)");
  const std::string absolute = base_ + "/bin/config/both";
  EXPECT_EQ(Take(gen_searchfileinconfigdirs(absolute.c_str(), R_OK, 1, nullptr)), absolute);
  EXPECT_EQ(Take(gen_searchfileinconfigdirs((base_ + "/a").c_str(), F_OK, 0, nullptr)),
            "(null)");
}

TEST_F(ConfigTest, ConfigFileNamesFollowTheirPrecedence) {
  const std::string dir = base_ + "/a";
  auto name = [&](const char *d, int fallback, int override_) {
    return Take(gen_createconfigfilename(d, "view.txt", fallback, override_));
  };
  EXPECT_EQ(name(dir.c_str(), 1, 1), dir + "/view.cfg");
  EXPECT_EQ(name(dir.c_str(), 0, 1), dir + "/tov.cfg");  // whether or not it exists
  WriteFileBytes(dir + "/tov.cfg", "");
  EXPECT_EQ(name(dir.c_str(), 1, 1), dir + "/tov.cfg");
  ASSERT_EQ(mkdir((dir + "/override").c_str(), 0777), 0);
  WriteFileBytes(dir + "/override/view.cfg", "");
  EXPECT_EQ(name(dir.c_str(), 1, 1), dir + "/override/view.cfg");
  EXPECT_EQ(name(dir.c_str(), 1, 0), dir + "/tov.cfg");

  ASSERT_EQ(chdir(dir.c_str()), 0);
  EXPECT_EQ(name("", 1, 1), "override/view.cfg");
  EXPECT_EQ(name(nullptr, 0, 0), "tov.cfg");
  EXPECT_EQ(Take(gen_createconfigfilename(dir.c_str(), nullptr, 1, 1)), dir + "/tov.cfg");
}

}  // namespace
