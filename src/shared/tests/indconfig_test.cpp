// Tests of source roots (lists, near misses, first root wins, fake and
// alternate roots, the viewpath's root) and of the configuration directories,
// with HOME a temporary directory for the whole program (it is read once).
#include "indconfig.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>

#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgeninit.h"
#include "indview.h"
#include "temp_dir.h"

namespace {

std::string Take(char *text) {
  std::string result = text != nullptr ? text : "(null)";
  return gen_free(text), result;
}

testsupport::TempDir *home = nullptr;  // HOME of this program, set before any test
struct TemporaryHome : ::testing::Environment {
  void SetUp() override { setenv("HOME", (home = new testsupport::TempDir)->path().c_str(), 1); }
  void TearDown() override { delete home; }
};
[[maybe_unused]] const auto *const kHome = ::testing::AddGlobalTestEnvironment(new TemporaryHome);

class ConfigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    base_ = std::filesystem::canonical(dir_.path()), cwd_ = std::filesystem::current_path();
    Make("a/ ab/ a/b/ bin/ bin/config/ bin/defaults/");
  }
  void TearDown() override {
    gen_sourceroot_cleanup(), gen_cleanupconfigdirs(), gen_viewpathing_cleanup();
    use_vp_as_src_root = allow_fake_roots = 0, V_changed = 1;
    unsetenv("NVPATH");
    gen_free(gen_progdir), gen_progdir = nullptr;
    gen_removedir_recursive((home->path() + "/.tov").c_str());
    EXPECT_EQ(gen_chdir(cwd_.c_str()), 0);
  }
  // Makes each name of a list under the base: "a/" a directory, "a/f" an empty file.
  void Make(const std::string &names) {
    std::istringstream list(names);
    for (std::string name; list >> name;)
      ASSERT_TRUE(name.back() == '/' ? mkdir((base_ + "/" + name).c_str(), 0777) == 0
                                     : testsupport::WriteFileBytes(base_ + "/" + name, ""))
          << name;
  }
  // "relative name@root number" of name against the current roots.
  std::string Rel(const std::string &name) {
    int index = 9;
    std::string relative = Take(gen_sourceroot_getrelname(name.c_str(), &index));
    return relative + "@" + std::to_string(index);
  }

  testsupport::TempDir dir_;
  std::string base_, cwd_;
};

TEST_F(ConfigTest, ListsSplitAtEachSeparatorAndTheWholeRootMustMatch) {
  EXPECT_EQ(gen_sourceroot_init((base_ + "/a:" + base_ + ";" + base_ + "/a/b//,").c_str()), 3);
  char **roots = nullptr, **alts = nullptr;
  ASSERT_EQ(gen_sourceroot_getroots(&roots, &alts), 3);
  EXPECT_EQ(std::string(roots[2]) + (roots[3] ? "+" : "") + (alts[2] ? "+" : ""), base_ + "/a/b");
  ASSERT_EQ(gen_chdir((base_ + "/a").c_str()), 0);
  // Root 0 comes before root 2; a relative name is seen from the current directory.
  for (const auto &[name, expected] :
       {std::pair<std::string, std::string>{base_ + "/a", ".@0"}, {base_ + "/a/", ".@0"},
        {base_ + "/ab/f", "ab/f@1"}, {base_ + "/a/b/f", "b/f@0"}, {"/elsewhere/f", "(null)@-1"},
        {base_ + "x", "(null)@-1"}, {"b/../f", "f@0"}})
    EXPECT_EQ(Rel(name), expected) << name;
  EXPECT_EQ(gen_sourceroot_init("") + gen_sourceroot_init(nullptr), 0);  // both change nothing
  EXPECT_EQ(gen_sourceroot_getroots(nullptr, nullptr), 3);
}

TEST_F(ConfigTest, DrivePrefixesFakeRootsAndAlternateSpellings) {
  EXPECT_EQ(gen_sourceroot_init("c:/src/x,d:\\work\\"), 2);
  EXPECT_EQ(allow_fake_roots, 1);
  EXPECT_EQ(Rel("d:\\work\\\\sub\\f.c"), "sub\\f.c@1");
  ASSERT_EQ(gen_chdir(base_.c_str()), 0);
  EXPECT_EQ(gen_sourceroot_init("src/lib:a"), 2);
  EXPECT_EQ(Rel("src/lib/x.c"), "x.c@0");  // relative names stay as they are
  EXPECT_EQ(Rel("a/y"), "(null)@-1");      // root 1 is a real path, the name isn't
  const std::string link = base_ + "/link";
  ASSERT_EQ(symlink((base_ + "/a").c_str(), link.c_str()), 0);
  gen_sourceroot_init((link + "/").c_str());
  char **roots = nullptr, **alts = nullptr;
  gen_sourceroot_getroots(&roots, &alts);
  EXPECT_EQ(std::string(roots[0]) + "|" + alts[0], base_ + "/a|" + link);
  EXPECT_EQ(Rel(link + "/f"), "f@0");
}

TEST_F(ConfigTest, TheViewpathsRootCanServeAsTheOnlyRoot) {
  gen_sourceroot_init((base_ + "/bin").c_str());
  gen_sourceroot_initfromviewpath();
  EXPECT_EQ(Rel(base_ + "/bin/f"), "f@0");  // viewpathing inactive: the list
  setenv("NVPATH", (base_ + "/a:" + base_ + "/ab").c_str(), 1);
  gen_viewpathing_init(1);
  EXPECT_EQ(Rel(base_ + "/a/b/f"), "b/f@0");
  EXPECT_EQ(Rel(base_ + "/bin/f"), "(null)@0");
}

TEST_F(ConfigTest, UserSiteAndDefaultDirectoriesAndConfigFileNames) {
  const std::string user = home->path() + "/.tov", dir = base_ + "/a";
  char *error = reinterpret_cast<char *>(1);
  EXPECT_TRUE(gen_getuserconfigdir(0, &error) == user && !gen_isdir(user.c_str()));  // made only when asked
  EXPECT_TRUE(gen_getuserconfigdir(1, &error) == user && gen_isdir(user.c_str()) && error == nullptr);
  Make("file");
  gen_setuserconfigdir((base_ + "/file/sub").c_str());
  gen_setuserconfigdir("");  // ignored
  EXPECT_EQ(gen_getuserconfigdir(1, &error), base_ + "/file/sub");
  EXPECT_EQ(Take(error), "Couldn't create user config directory: " + base_ + "/file/sub");

  gen_changeprogdir((base_ + "/bin").c_str());
  gen_setuserconfigdir(dir.c_str());
  Make("a/both bin/config/both bin/defaults/both bin/config/sited a/sited/");  // a directory doesn't count
  // name, defaults only, found
  for (const auto &[name, defaults_only, expected] :
       {std::tuple<const char *, int, std::string>{"both", 0, base_ + "/a/both"},
        {"both", 1, base_ + "/bin/defaults/both"}, {"sited", 0, base_ + "/bin/config/sited"},
        {"sited", 1, "(null)"}, {"none", 0, "(null)"}})
    EXPECT_EQ(Take(gen_searchfileinconfigdirs(name, R_OK, defaults_only, &error)), expected)
        << name << " " << defaults_only;
  EXPECT_EQ(error, nullptr);

  auto name = [&](int fallback, int override_dir) {
    return Take(gen_createconfigfilename(dir.c_str(), "view.txt", fallback, override_dir));
  };
  EXPECT_EQ(name(1, 1), dir + "/view.cfg");
  EXPECT_EQ(name(0, 1), dir + "/tov.cfg");  // whether or not it exists
  Make("a/tov.cfg");
  EXPECT_EQ(name(1, 1), dir + "/tov.cfg");
  Make("a/override/ a/override/view.cfg");
  EXPECT_EQ(name(1, 1), dir + "/override/view.cfg");
  EXPECT_EQ(name(1, 0), dir + "/tov.cfg");
  ASSERT_EQ(gen_chdir(dir.c_str()), 0);
  EXPECT_EQ(Take(gen_createconfigfilename("", "view.txt", 1, 1)), "override/view.cfg");  // seen from the cwd
}

}  // namespace
