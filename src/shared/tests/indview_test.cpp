// Tests of the viewpath layer in trees of three nodes ("local", "mid",
// "far"): start-up reports byte for byte and limits, reads from later nodes,
// copy-on-write in slow and fast mode, unlink, chdir and access, the
// alternate root, '^' anchoring and the normalisers.  Viewpath state is
// process-wide: the fixture resets it and the current directory.
#include "indview.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>

#include "gen_capture.h"
#include "indgen_canon.h"
#include "indgen_filename.h"
#include "indgeninit.h"
#include "temp_dir.h"

namespace {

using testsupport::Captured;
using testsupport::FileExists;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;

std::string Take(char *text) {
  std::string result = text != nullptr ? text : "(null)";
  return gen_free(text), result;
}

class ViewpathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_cwd_ = std::filesystem::current_path(), base_ = std::filesystem::canonical(dir_.path());
    Reset();
    local_ = base_ + "/local", mid_ = base_ + "/mid", far_ = base_ + "/far";
    Make("local/ mid/ far/");
  }
  void TearDown() override {
    Reset();
    std::filesystem::current_path(saved_cwd_);
    gen_invalidate_cwd();
  }
  static void Reset() {
    gen_viewpathing_cleanup();
    for (const char *name : {"NVPATH", "TOV_VP_DEBUG", "TOV_VP_OFF", "TOV_VP_SLOW", "TOV_VP_XSW"})
      unsetenv(name);
    V_changed = 1, V_debug_info = 0, V_xsw_flags = 0, V_wrcopy = 1;
  }
  int Start(const std::string &nvpath, int mode) {
    setenv("NVPATH", nvpath.c_str(), 1);
    return gen_viewpathing_init(mode);
  }
  int StartThree(int mode) { return Start(local_ + ":" + mid_ + ";" + far_, mode); }
  // The full name of a name under the base ("far/f"), or of a local name ("/f").
  std::string At(const std::string &name) { return name[0] == '/' ? local_ + name : base_ + "/" + name; }
  // Makes each name of a list under the base: "far/sub/" a directory, "far/f" a file holding the
  // name of its node.
  void Make(const std::string &names) {
    std::istringstream list(names);
    for (std::string name; list >> name;)
      ASSERT_TRUE(name.back() == '/' ? mkdir(At(name).c_str(), 0777) == 0
                                     : testsupport::WriteFileBytes(At(name), name.substr(0, name.find('/'))))
          << name;
  }
  // The result of call, and errno when it failed (0 when it succeeded).
  static std::pair<int, int> ResultAndErrno(const std::function<int()> &call) {
    errno = 0;
    const int result = call();
    return {result, result == 0 ? 0 : errno};
  }

  testsupport::TempDir dir_;
  testsupport::ScopedProgName prog_{"vp"};
  std::string saved_cwd_, base_, local_, mid_, far_;
};

TEST_F(ViewpathTest, StartUpReportsModesAndLimits) {
  setenv("TOV_VP_DEBUG", "1", 1);
  setenv("TOV_VP_OFF", "yes", 1);
  int mode = -1;
  Captured run = RunCapturing([&] { mode = gen_viewpathing_init(1); });
  EXPECT_EQ(mode, 0);
  EXPECT_EQ(run.err, "vp: info: Disabling viewpathing mode \n\tbecause environment variable (TOV_VP_OFF) "
                     "is set.\nvp: info: Viewpathing support is OFF.\n");
  run = RunCapturing([&] { gen_viewpathing_init(0); });  // no "Disabling" for mode 0
  EXPECT_EQ(run.err, "vp: info: Viewpathing support is OFF.\n");
  unsetenv("TOV_VP_OFF");
  setenv("TOV_VP_SLOW", "1", 1);
  run = RunCapturing([&] { mode = StartThree(2); });
  EXPECT_EQ(std::pair(mode, V_wrcopy), std::pair(1, 1));
  EXPECT_EQ(run.err, "vp: info: Disabling FAST viewpathing mode \n\tbecause environment variable "
                     "(TOV_VP_SLOW) is set.\nvp: info: Viewpathing support is ON (SLOW).\n"
                     "vp: info: Adding viewpath node 1: " + local_ + "\nvp: info: Adding viewpath node 2: " +
                         mid_ + "\nvp: info: Adding viewpath node 3: " + far_ + "\n");
  run = RunCapturing([&] { gen_viewpathing_init(1); });  // the environment is read once
  EXPECT_EQ(run.err, "vp: info: Viewpathing support is ON (SLOW).\n");
  Reset();
  run = RunCapturing([&] { mode = StartThree(3); });
  EXPECT_EQ(std::pair(mode, gen_isviewpathing()), std::pair(3, 0));
  EXPECT_EQ(run.err, "vp: error: Illegal viewpath option passed to gen_viewpathing\n");
  Reset();
  ASSERT_EQ(rmdir(mid_.c_str()), 0);
  errno = EBADF;
  run = RunCapturing([&] { StartThree(1); });
  EXPECT_EQ(errno, EBADF);  // start-up leaves errno alone
  EXPECT_EQ(run.err, "vp: warning: V_get_vpath:  Cannot resolve vpath node '" + mid_ + "', error near '" +
                         mid_ + "'\n");
  for (const size_t length : {1023u, 1024u}) {  // Viewpath holds 1023 characters
    Reset();
    run = RunCapturing([&] { Start(local_ + ":" + std::string(length - local_.size() - 1, 'x'), 2); });
    EXPECT_EQ(gen_isviewpathing(), length == 1023);
  }
  EXPECT_EQ(run.err, "vp: warning: V_get_vpath:  Value of NVPATH is too long (1024 characters, at most "
                     "1023); no viewpath node\n");
}

TEST_F(ViewpathTest, ReadsFindTheFileInTheFirstLaterNodeThatHasIt) {
  Make("far/f mid/g far/g local/h far/h");
  StartThree(1);
  struct stat info;
  // name, result, V_node, then the size or errno
  for (const auto &[name, result, node, size] :
       {std::tuple{"/f", 0, 2, 3}, {"/g", 0, 1, 3}, {"/h", 0, 0, 5}, {"/none", -1, 3, ENOENT}}) {
    const std::string full = At(name);
    const auto got = ResultAndErrno([&] { return gen_stat(full.c_str(), &info); });
    EXPECT_EQ(std::tuple(got.first, V_node, got.first == 0 ? info.st_size : got.second),
              std::tuple(result, node, size)) << name;
  }
  EXPECT_EQ(Take(gen_viewpathfilename(At("/f").c_str(), GEN_VP_READ)), far_ + "/f");
  EXPECT_FALSE(FileExists(At("/f")));  // reads copy nothing
  // A read-only open that may create makes the file in the local tree.
  EXPECT_EQ(close(gen_open(At("/new").c_str(), O_RDONLY | O_CREAT, 0644)), 0);
  EXPECT_TRUE(FileExists(At("/new")) && !FileExists(At("far/new")));
}

TEST_F(ViewpathTest, RelativeAndAnchoredNamesAreSeenFromTheRoot) {
  Make("far/sub/ far/sub/f");
  ASSERT_EQ(chdir(local_.c_str()), 0);
  StartThree(1);
  EXPECT_EQ(ReadFileBytes(Take(gen_viewpathfilename("sub/f", GEN_VP_READ))), "far");
  struct stat info;
  EXPECT_TRUE(gen_access("^/sub/f", R_OK) == 0 && gen_stat("^", &info) == 0 && S_ISDIR(info.st_mode));
  EXPECT_EQ(gen_access("^x/sub/f", F_OK), -1);  // only "^" and "^/" anchor
  for (const auto &[name, relative] :
       {std::pair{"", "."}, {"//a/b", "a/b"}, {"x/a", "(null)"}, {"./a/../b/", "b"}, {"..", "(null)"}}) {
    const std::string full = name[0] == '.' ? name : local_ + name;
    EXPECT_EQ(Take(V_getrel(full.c_str())), relative) << full;
  }
}

TEST_F(ViewpathTest, WritesCopyALaterNodesFileAsTheModeSays) {
  for (int mode : {1, 2}) {
    SCOPED_TRACE(mode);
    Reset();
    for (const char *name : {"/a", "/p", "/x", "/w"}) unlink(At(name).c_str());
    Make("far/a far/p far/x far/w");
    StartThree(mode);
    for (const auto &[name, open_mode] : {std::pair{"/a", "a"}, {"/p", "rb+"}, {"/x", "re"}}) {
      FILE *stream = gen_fopen(At(name).c_str(), open_mode);  // an unknown letter updates
      ASSERT_NE(stream, nullptr) << open_mode;
      fputs("N", stream);
      fclose(stream);
    }
    EXPECT_EQ(ReadFileBytes(At("/a")) + ReadFileBytes(At("/p")) + ReadFileBytes(At("/x")), "farNNarfar");
    const int fd = gen_open(At("/w").c_str(), O_WRONLY, 0);  // fast mode: no copy to open
    EXPECT_EQ(fd >= 0 && write(fd, "N", 1) == 1 && close(fd) == 0, mode == 1);
    EXPECT_EQ(ReadFileBytes(At("/w")), mode == 1 ? "Nar" : "");
    for (const char *name : {"far/a", "far/p", "far/x", "far/w"}) EXPECT_EQ(ReadFileBytes(At(name)), "far");
  }
}

TEST_F(ViewpathTest, FopenWithWCopiesOnlyInSlowModeAndMakesDirectoriesThere) {
  ASSERT_EQ(mkdir(At("far/sub").c_str(), 0750), 0);
  Make("far/w far/sub/ro");
  ASSERT_EQ(chmod(At("far/sub/ro").c_str(), 0444), 0);
  setenv("TOV_VP_DEBUG", "1", 1);
  RunCapturing([&] { StartThree(1); });
  const mode_t mask = umask(0);
  Captured run = RunCapturing([&] {
    fclose(gen_fopen(At("/w").c_str(), "w"));
    fclose(gen_fopen(At("/sub/ro").c_str(), "a"));
  });
  umask(mask);
  EXPECT_EQ(run.err, "vp: info: Located file: " + far_ + "/w\nvp: info: Copied file to " + local_ +
                         "/w\nvp: info: Located file: " + far_ + "/sub/ro\nvp: info: Copied file to " +
                         local_ + "/sub/ro\n");
  EXPECT_EQ(ReadFileBytes(At("/sub/ro")), "far");
  struct stat sub, ro;
  ASSERT_EQ(stat(At("/sub").c_str(), &sub) + stat(At("/sub/ro").c_str(), &ro), 0);
  // One level of directory, with the later node's mode; the file with its write bits added.
  EXPECT_EQ(std::pair(sub.st_mode & 07777, ro.st_mode & 07777), std::pair(0750u, 0666u));
}

TEST_F(ViewpathTest, CreatLinkUnlinkChdirAndAccessReachIntoLaterNodes) {
  Make("far/sub/ far/sub/e/ far/f local/g mid/m far/m");
  ASSERT_EQ(chmod(At("far/f").c_str(), 0444) + chmod(At("mid/m").c_str(), 0444), 0);
  ASSERT_EQ(chmod(At("far/m").c_str(), 0755), 0);
  ASSERT_EQ(chdir(local_.c_str()), 0);
  StartThree(1);
  const struct {
    const char *what;
    int result, error;
    std::function<int()> call;
  } rows[] = {
      {"creat in a later node's dir", 0, 0, [&] { return close(gen_creat(At("/sub/new").c_str(), 0644)); }},
      {"creat in no directory", -1, ENOENT, [&] { return gen_creat(At("/nodir/new").c_str(), 0644); }},
      {"link copies first", 0, 0, [&] { return gen_link(At("/f").c_str(), At("/f2").c_str()); }},
      {"unlink of a later file", -1, EPERM, [&] { return gen_unlink(At("/m").c_str()); }},
      {"unlink of nothing", -1, ENOENT, [&] { return gen_unlink(At("/none").c_str()); }},
      {"unlink of a local file", 0, 0, [&] { return gen_unlink(At("/g").c_str()); }},
      {"a later file is writable", 0, 0, [&] { return gen_access(At("/m").c_str(), W_OK); }},
      {"the first node with it decides", -1, EACCES, [&] { return gen_access(At("/m").c_str(), X_OK); }},
      {"not writable where nothing is", -1, ENOENT, [&] { return gen_access(At("/none").c_str(), W_OK); }},
      {"chdir", 0, 0, [&] { return gen_chdir("sub"); }},
      {"chdir makes a later node's directory", 0, 0, [&] { return gen_chdir("e"); }},
      {"chdir to a file", -1, ENOTDIR, [&] { return gen_chdir("../../f"); }},
      {"chdir to nothing", -1, ENOENT, [&] { return gen_chdir("nowhere"); }},
  };
  for (const auto &row : rows)
    EXPECT_EQ(ResultAndErrno(row.call), std::pair(row.result, row.error)) << row.what;
  EXPECT_TRUE(FileExists(At("/sub/new")) && !FileExists(At("far/sub/new")) && FileExists(At("far/m")) &&
              !FileExists(At("/g")));
  EXPECT_EQ(ReadFileBytes(At("/f2")), "far");
  EXPECT_EQ(std::string(V_cwd) + "|" + gen_getcwd(), At("/sub/e") + "|" + At("/sub/e"));
}

TEST_F(ViewpathTest, AlternateRootLocalAndNextNames) {
  const std::string link = base_ + "/link";
  ASSERT_EQ(symlink(local_.c_str(), link.c_str()), 0);
  Make("far/f mid/f local/f");
  for (const char *xsw : {"0", "1"}) {
    Reset();
    setenv("TOV_VP_DEBUG", "1", 1);
    setenv("TOV_VP_XSW", xsw, 1);
    Captured run = RunCapturing([&] { Start(link + ":" + mid_ + ":" + far_, 1); });
    const std::string report = std::string(xsw[0] == '0' ? "Using" : "Ignoring") + " alternate root: " + link;
    EXPECT_NE(run.err.find("node 1: " + local_ + "\nvp: info: " + report + "\nvp: info: Adding"),
              std::string::npos);
    V_debug_info = 0;
    EXPECT_EQ(Take(V_getrel((link + "/a").c_str())), xsw[0] == '0' ? "a" : "(null)");
  }
  // A name that doesn't resolve stays as it is; a node isn't under itself.
  for (const auto &[name, local, next] :
       {std::tuple<std::string, std::string, std::string>{far_ + "/f", local_ + "/f", "(null)"},
        {mid_ + "/f", local_ + "/f", far_ + "/f"}, {local_ + "/f", local_ + "/f", mid_ + "/f"},
        {far_, "(null)", "(null)"}, {"/none/x", "/none/x", "(null)"}}) {
    EXPECT_EQ(Take(gen_viewpathlocalname(name.c_str())), local) << name;
    EXPECT_EQ(Take(gen_viewpathnextname(name.c_str())), next) << name;
  }
}

std::string Normalised(const char *path, char *(*normaliser)(char *)) {
  std::string buffer(path);
  return normaliser(buffer.data());
}

TEST(ViewpathCompath, NormalisersBesideTheCanonicaliser) {
  // input, V_compath, V2_compath (absolute only), canonicalizefilename
  for (const auto &[in, v, v2, canon] :
       {std::tuple<const char *, const char *, const char *, const char *>{"a/../b", "b", nullptr, "b"},
        {"a/..", ".", nullptr, ""}, {"../a", "../a", nullptr, "../a"}, {"", ".", nullptr, ""},
        {"../../a", "../../a", nullptr, "../../a"}, {"a/b/../../..", "..", nullptr, ".."},
        {"./a", "a", nullptr, "./a"}, {"a/b/", "a/b", nullptr, "a/b/"}, {"/", "/", "/", "/"},
        {"//", "/", "/", "//"}, {"/a/", "/a", "/a", "/a/"}, {"/..", "/..", "/..", "/.."},
        {"/a/../..", "/..", "/..", "/.."}, {"//a", "/a", "/a", "//a"}, {"/./a", "/a", "/a", "/./a"},
        {"/a/./b/../c", "/a/c", "/a/b/../c", "/a/c"}, {"/a/../b/./c", "/b/c", "/b/./c", "/b/c"},
        {"/a//b//", "/a/b", "/a/b", "/a/b/"}}) {
    EXPECT_EQ(Normalised(in, V_compath), v) << in;
    EXPECT_EQ(v2 ? Normalised(in, V2_compath) : "-", v2 ? v2 : "-") << in;
    EXPECT_EQ(Normalised(in, [](char *p) { return canonicalizefilename(p, 0); }), canon) << in;
  }
}

TEST(ViewpathCompath, TooManyComponentsAndRelativePathsAreReported) {
  testsupport::ScopedProgName name("vp");
  std::string path;
  for (int i = 0; i < 128; i++) path += "/a";
  // 128 fit; V2 stops at the first component behind the removal.
  std::string same = path, longer = "/x/.." + path + "/b/./c", v2 = longer, v2_long = path + "/b";
  std::string relative = "a/b";
  EXPECT_EQ(RunCapturing([&] { V_compath(same.data()), V2_compath(v2.data()); }).err + same, path);
  EXPECT_EQ(RunCapturing([&] { V_compath(longer.data()); }).err,
            "vp: error: [V_compath]: too many directory components for \"" + path + "/b/./c\"\n");
  EXPECT_EQ(RunCapturing([&] { V2_compath(v2_long.data()); }).err,
            "vp: error: [V2_compath]: too many directory components for \"" + path + "/b\"\n");
  Captured run = RunCapturing([&] { errno = 0, V2_compath(relative.data()); });
  EXPECT_EQ(run.exited ? run.status : -1, 1);
  EXPECT_EQ(run.err, "vp: fatal: INTERNAL ERROR: libvp: chdir: compath2: (1) [a/b] not absolute path\n");
}

}  // namespace
