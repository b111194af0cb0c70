// Tests of the viewpath layer in temporary trees of three nodes ("local",
// "mid", "far"): start-up modes and their reports byte for byte, the node
// list and its limits, reads that find a later node's file, copy-on-write in
// slow and fast mode, later nodes never written, unlink, chdir and access,
// the alternate root, '^' anchoring, and the two path normalisers beside
// the canonicaliser.  Viewpath state is process-wide: the fixture resets it
// and the current directory around every test.
#include "indview.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>
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
using testsupport::WriteFileBytes;

std::string Take(char *text) {
  std::string result = text != nullptr ? text : "(null)";
  gen_free(text);
  return result;
}

class ViewpathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    saved_cwd_ = cwd;
    Reset();
    char *real = realpath(dir_.path().c_str(), nullptr);
    base_ = real;
    free(real);
    local_ = base_ + "/local", mid_ = base_ + "/mid", far_ = base_ + "/far";
    for (const std::string &node : {local_, mid_, far_}) ASSERT_EQ(mkdir(node.c_str(), 0777), 0);
  }
  void TearDown() override {
    Reset();
    EXPECT_EQ(chdir(saved_cwd_.c_str()), 0);
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
  std::string Local(const char *name) { return local_ + name; }

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
  run = RunCapturing([&] { mode = gen_viewpathing_init(0); });  // no "Disabling" for mode 0
  EXPECT_EQ(run.err, "vp: info: Viewpathing support is OFF.\n");
  unsetenv("TOV_VP_OFF");
  setenv("TOV_VP_SLOW", "1", 1);
  run = RunCapturing([&] { mode = StartThree(2); });
  EXPECT_EQ(mode, 1);
  EXPECT_EQ(V_wrcopy, 1);
  EXPECT_EQ(run.err, "vp: info: Disabling FAST viewpathing mode \n\tbecause environment variable "
                     "(TOV_VP_SLOW) is set.\nvp: info: Viewpathing support is ON (SLOW).\n"
                     "vp: info: Adding viewpath node 1: " + local_ + "\nvp: info: Adding viewpath node 2: " +
                         mid_ + "\nvp: info: Adding viewpath node 3: " + far_ + "\n");
  run = RunCapturing([&] { mode = gen_viewpathing_init(1); });  // the environment is read once
  EXPECT_EQ(run.err, "vp: info: Viewpathing support is ON (SLOW).\n");
  Reset();
  run = RunCapturing([&] { mode = StartThree(3); });
  EXPECT_EQ(mode, 3);
  EXPECT_EQ(run.err, "vp: error: Illegal viewpath option passed to gen_viewpathing\n");
  EXPECT_FALSE(gen_isviewpathing());

  Reset();
  ASSERT_EQ(rmdir(mid_.c_str()), 0);
  errno = EBADF;
  run = RunCapturing([&] { StartThree(1); });
  EXPECT_EQ(errno, EBADF);  // start-up leaves errno alone
  EXPECT_EQ(run.err, "vp: warning: V_get_vpath:  Cannot resolve vpath node '" + mid_ + "', error near '" +
                         mid_ + "'\n");
  ASSERT_EQ(V_ndir, 2);
  EXPECT_EQ(V_nodes[0] + std::string("|") + V_nodes[1], local_ + "|" + far_);

  for (const size_t length : {1023u, 1024u}) {  // Viewpath holds 1023 characters
    Reset();
    const std::string value = local_ + ":" + std::string(length - local_.size() - 1, 'x');
    run = RunCapturing([&] { EXPECT_EQ(Start(value, 2), 2); });
    EXPECT_EQ(gen_isviewpathing(), length == 1023);
    EXPECT_EQ(run.err.find("too long") != std::string::npos, length == 1024);
  }
  EXPECT_EQ(run.err, "vp: warning: V_get_vpath:  Value of NVPATH is too long (1024 characters, at most "
                     "1023); no viewpath node\n");
}

TEST_F(ViewpathTest, ReadsFindTheFileInTheFirstLaterNodeThatHasIt) {
  WriteFileBytes(far_ + "/f", "far");
  WriteFileBytes(mid_ + "/g", "mid");
  WriteFileBytes(far_ + "/g", "far");
  WriteFileBytes(Local("/h"), "local");
  WriteFileBytes(far_ + "/h", "far");
  StartThree(1);
  char text[8] = {};
  FILE *stream = gen_fopen(Local("/f").c_str(), "r");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::string(text, fread(text, 1, sizeof text, stream)), "far");
  fclose(stream);
  int fd = gen_open(Local("/g").c_str(), O_RDONLY, 0);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(std::string(text, read(fd, text, sizeof text)), "mid");
  close(fd);
  struct stat info;
  EXPECT_EQ(gen_sys_stat(Local("/f").c_str(), &info), -1);  // plain calls see no node
  for (const auto &[name, result, node, size] :
       {std::tuple{"/f", 0, 2, 3}, {"/h", 0, 0, 5}, {"/none", -1, 3, -1}}) {
    errno = 0;
    const int got = gen_stat(Local(name).c_str(), &info), error = errno;
    EXPECT_EQ(got, result) << name;
    EXPECT_EQ(V_node, node) << name;
    EXPECT_EQ(got == 0 ? info.st_size : error, got == 0 ? size : ENOENT) << name;
  }
  EXPECT_EQ(gen_fopen(Local("/none").c_str(), "r"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Take(gen_viewpathfilename(Local("/f").c_str(), GEN_VP_READ)), far_ + "/f");
  EXPECT_EQ(Take(gen_viewpathfilename(Local("/none").c_str(), GEN_VP_READ)), far_ + "/none");
  EXPECT_EQ(Take(gen_viewpathfilename("/elsewhere/f", GEN_VP_READ)), "/elsewhere/f");
  EXPECT_FALSE(FileExists(Local("/f")));  // reads copy nothing
  // A read-only open that may create makes the file in the local tree.
  fd = gen_open(Local("/new").c_str(), O_RDONLY | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_TRUE(FileExists(Local("/new")));
  EXPECT_FALSE(FileExists(far_ + "/new"));
}

TEST_F(ViewpathTest, RelativeAndAnchoredNamesAreSeenFromTheRoot) {
  ASSERT_EQ(mkdir((far_ + "/sub").c_str(), 0777), 0);
  WriteFileBytes(far_ + "/sub/f", "far");
  ASSERT_EQ(chdir(local_.c_str()), 0);
  StartThree(1);
  EXPECT_EQ(ReadFileBytes(Take(gen_viewpathfilename("sub/f", GEN_VP_READ))), "far");
  EXPECT_EQ(gen_access("^/sub/f", R_OK), 0);
  struct stat info;
  EXPECT_EQ(gen_stat("^", &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_EQ(gen_access("^x/sub/f", F_OK), -1);  // only "^" and "^/" anchor
  const struct {
    const char *name, *relative;
  } rows[] = {{"", "."}, {"//a/b", "a/b"}, {"x/a", "(null)"}, {"./a/../b/", "b"}, {"..", "(null)"}};
  for (const auto &row : rows) {
    const std::string name = row.name[0] == '.' ? row.name : local_ + row.name;
    EXPECT_EQ(Take(V_getrel(name.c_str())), row.relative) << name;
  }
  gen_viewpathing_cleanup();
  EXPECT_EQ(gen_stat("^/sub/f", &info), -1);  // and only while active
}

TEST_F(ViewpathTest, WritesCopyALaterNodesFileAsTheModeSays) {
  for (int mode : {1, 2}) {
    SCOPED_TRACE(mode);
    Reset();
    for (const char *name : {"/a", "/p", "/x", "/w"}) {
      WriteFileBytes(far_ + name, "old");
      unlink(Local(name).c_str());
    }
    StartThree(mode);
    for (const auto &[name, open_mode] : {std::pair{"/a", "a"}, {"/p", "rb+"}, {"/x", "re"}}) {
      FILE *stream = gen_fopen(Local(name).c_str(), open_mode);  // an unknown letter updates
      ASSERT_NE(stream, nullptr) << open_mode;
      fputs("N", stream);
      fclose(stream);
    }
    EXPECT_EQ(ReadFileBytes(Local("/a")) + ReadFileBytes(Local("/p")) + ReadFileBytes(Local("/x")),
              "oldNNldold");
    const int fd = gen_open(Local("/w").c_str(), O_WRONLY, 0);  // fast mode: no copy to open
    EXPECT_EQ(fd >= 0, mode == 1);
    if (fd >= 0) {
      EXPECT_EQ(write(fd, "N", 1), 1);
      close(fd);
    }
    EXPECT_EQ(ReadFileBytes(Local("/w")), mode == 1 ? "Nld" : "");
    for (const char *name : {"/a", "/p", "/x", "/w"}) EXPECT_EQ(ReadFileBytes(far_ + name), "old");
  }
}

TEST_F(ViewpathTest, FopenWithWCopiesOnlyInSlowModeAndMakesDirectoriesThere) {
  WriteFileBytes(far_ + "/w", "old");
  ASSERT_EQ(mkdir((far_ + "/sub").c_str(), 0750), 0);
  WriteFileBytes(far_ + "/sub/ro", "data");
  ASSERT_EQ(chmod((far_ + "/sub/ro").c_str(), 0444), 0);
  setenv("TOV_VP_DEBUG", "1", 1);
  RunCapturing([&] { StartThree(1); });
  const mode_t mask = umask(0);
  Captured run = RunCapturing([&] {
    fclose(gen_fopen(Local("/w").c_str(), "w"));
    fclose(gen_fopen(Local("/sub/ro").c_str(), "a"));
  });
  umask(mask);
  EXPECT_EQ(run.err, "vp: info: Located file: " + far_ + "/w\nvp: info: Copied file to " + local_ +
                         "/w\nvp: info: Located file: " + far_ + "/sub/ro\nvp: info: Copied file to " +
                         local_ + "/sub/ro\n");
  EXPECT_EQ(ReadFileBytes(Local("/sub/ro")), "data");
  struct stat info;
  ASSERT_EQ(stat(Local("/sub").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0750u);  // one level, with the later node's mode
  ASSERT_EQ(stat(Local("/sub/ro").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0666u);  // write bits added
  EXPECT_EQ(V_getf(Local("/nowhere").c_str()), -1);
  EXPECT_FALSE(FileExists(Local("/nowhere")));

}

TEST_F(ViewpathTest, CreatLinkUnlinkChdirAndAccessReachIntoLaterNodes) {
  ASSERT_EQ(mkdir((far_ + "/sub").c_str(), 0777), 0);
  ASSERT_EQ(mkdir((far_ + "/sub/e").c_str(), 0777), 0);
  WriteFileBytes(far_ + "/f", "far");
  WriteFileBytes(Local("/g"), "local");
  ASSERT_EQ(chmod((far_ + "/f").c_str(), 0444), 0);
  WriteFileBytes(mid_ + "/m", "mid");
  WriteFileBytes(far_ + "/m", "far");
  ASSERT_EQ(chmod((mid_ + "/m").c_str(), 0444), 0);
  ASSERT_EQ(chmod((far_ + "/m").c_str(), 0755), 0);
  ASSERT_EQ(chdir(local_.c_str()), 0);
  StartThree(1);
  const struct {
    const char *what;
    int result, error;
    std::function<int()> call;
  } rows[] = {
      {"creat in a later node's directory", 0, 0, [&] { return close(gen_creat(Local("/sub/new").c_str(), 0644)); }},
      {"creat in no directory", -1, ENOENT, [&] { return gen_creat(Local("/nodir/new").c_str(), 0644); }},
      {"link copies first", 0, 0, [&] { return gen_link(Local("/f").c_str(), Local("/f2").c_str()); }},
      {"unlink of a later file", -1, EPERM, [&] { return gen_unlink(Local("/m").c_str()); }},
      {"unlink of nothing", -1, ENOENT, [&] { return gen_unlink(Local("/none").c_str()); }},
      {"unlink of a local file", 0, 0, [&] { return gen_unlink(Local("/g").c_str()); }},
      {"a later file is writable", 0, 0, [&] { return gen_access(Local("/m").c_str(), W_OK); }},
      {"the first node with it decides", -1, EACCES, [&] { return gen_access(Local("/m").c_str(), X_OK); }},
      {"not writable where nothing is", -1, ENOENT, [&] { return gen_access(Local("/none").c_str(), W_OK); }},
      {"chdir", 0, 0, [&] { return gen_chdir("sub"); }},
      {"chdir makes a later node's directory", 0, 0, [&] { return gen_chdir("e"); }},
      {"chdir to a file", -1, ENOTDIR, [&] { return gen_chdir("../../f"); }},
      {"chdir to nothing", -1, ENOENT, [&] { return gen_chdir("nowhere"); }},
  };
  for (const auto &row : rows) {
    errno = 0;
    const int got = row.call(), error = errno;
    EXPECT_EQ(got, row.result) << row.what;
    EXPECT_EQ(got != 0 ? error : 0, row.error) << row.what;
  }
  EXPECT_TRUE(FileExists(Local("/sub/new")) && !FileExists(far_ + "/sub/new"));
  EXPECT_EQ(ReadFileBytes(Local("/f2")), "far");
  EXPECT_TRUE(FileExists(far_ + "/m") && !FileExists(Local("/g")));
  EXPECT_EQ(std::string(V_cwd) + "|" + gen_getcwd(), Local("/sub/e") + "|" + Local("/sub/e"));
  EXPECT_EQ(gen_chdir("^"), 0);
  EXPECT_EQ(std::string(V_cwd), local_);
}

TEST_F(ViewpathTest, AlternateRootLocalAndNextNames) {
  const std::string link = base_ + "/link";
  ASSERT_EQ(symlink(local_.c_str(), link.c_str()), 0);
  WriteFileBytes(far_ + "/f", "far");
  WriteFileBytes(mid_ + "/f", "mid");
  WriteFileBytes(local_ + "/f", "local");
  for (const char *xsw : {"0", "1"}) {
    Reset();
    setenv("TOV_VP_DEBUG", "1", 1);
    setenv("TOV_VP_XSW", xsw, 1);
    Captured run = RunCapturing([&] { Start(link + ":" + mid_ + ":" + far_, 1); });
    const std::string report = xsw[0] == '0' ? "vp: info: Using alternate root: " + link + "\n"
                                             : "vp: info: Ignoring alternate root: " + link + "\n";
    EXPECT_NE(run.err.find("node 1: " + local_ + "\n" + report + "vp: info: Adding"), std::string::npos);
    V_debug_info = 0;
    EXPECT_EQ(Take(V_getrel((link + "/a").c_str())), xsw[0] == '0' ? "a" : "(null)");
  }
  EXPECT_EQ(Take(gen_viewpathlocalname((far_ + "/f").c_str())), local_ + "/f");
  EXPECT_EQ(Take(gen_viewpathlocalname((local_ + "/f").c_str())), local_ + "/f");
  EXPECT_EQ(Take(gen_viewpathlocalname(far_.c_str())), "(null)");  // a node isn't under itself
  EXPECT_EQ(Take(gen_viewpathlocalname("/none/x")), "/none/x");
  EXPECT_EQ(Take(gen_viewpathnextname((mid_ + "/f").c_str())), far_ + "/f");
  EXPECT_EQ(Take(gen_viewpathnextname((far_ + "/f").c_str())), "(null)");
  EXPECT_EQ(Take(gen_viewpathnextname((local_ + "/f").c_str())), mid_ + "/f");
}

std::string Normalised(const char *path, char *(*normaliser)(char *)) {
  std::string buffer(path);
  return normaliser(buffer.data());
}

TEST(ViewpathCompath, NormalisersBesideTheCanonicaliser) {
  // input, V_compath, V2_compath (absolute only), canonicalizefilename
  const struct {
    const char *in, *v, *v2, *canon;
  } rows[] = {
      {"a/../b", "b", nullptr, "b"},       {"a/..", ".", nullptr, ""},
      {"../a", "../a", nullptr, "../a"},   {"", ".", nullptr, ""},
      {"../../a", "../../a", nullptr, "../../a"}, {"a/b/../../..", "..", nullptr, ".."},
      {"./a", "a", nullptr, "./a"},        {"a/b/", "a/b", nullptr, "a/b/"},
      {"/", "/", "/", "/"},                {"//", "/", "/", "//"},
      {"/a/", "/a", "/a", "/a/"},          {"/..", "/..", "/..", "/.."},
      {"/a/../..", "/..", "/..", "/.."},   {"//a", "/a", "/a", "//a"},
      {"/./a", "/a", "/a", "/./a"},        {"/a/./b/../c", "/a/c", "/a/b/../c", "/a/c"},
      {"/a/../b/./c", "/b/c", "/b/./c", "/b/c"}, {"/a//b//", "/a/b", "/a/b", "/a/b/"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(Normalised(row.in, V_compath), row.v) << row.in;
    EXPECT_EQ(row.v2 ? Normalised(row.in, V2_compath) : "-", row.v2 ? row.v2 : "-") << row.in;
    EXPECT_EQ(Normalised(row.in, [](char *p) { return canonicalizefilename(p, 0); }), row.canon) << row.in;
  }
}

TEST(ViewpathCompath, TooManyComponentsAndRelativePathsAreReported) {
  testsupport::ScopedProgName name("vp");
  std::string path;
  for (int i = 0; i < 128; i++) path += "/a";
  std::string same = path, longer = "/x/.." + path + "/b/./c", v2 = longer;
  Captured run = RunCapturing([&] { V_compath(same.data()), V2_compath(v2.data()); });
  EXPECT_EQ(run.err, "");  // 128 fit; V2 stops at the first component behind the removal
  EXPECT_EQ(same, path);
  run = RunCapturing([&] { V_compath(longer.data()); });
  EXPECT_EQ(longer.c_str(), path + "/b/./c");
  EXPECT_EQ(run.err, "vp: error: [V_compath]: too many directory components for \"" + path + "/b/./c\"\n");
  v2 = path + "/b";
  run = RunCapturing([&] { V2_compath(v2.data()); });
  EXPECT_EQ(run.err, "vp: error: [V2_compath]: too many directory components for \"" + path + "/b\"\n");
  std::string relative = "a/b";
  errno = 0;
  run = RunCapturing([&] { V2_compath(relative.data()); });
  EXPECT_EQ(run.exited ? run.status : -1, 1);
  EXPECT_EQ(run.err, "vp: fatal: INTERNAL ERROR: libvp: chdir: compath2: (1) [a/b] not absolute path\n");
}

}  // namespace
