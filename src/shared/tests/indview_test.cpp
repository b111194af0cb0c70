// Tests of the viewpath layer in temporary trees of two and three nodes
// ("local", "mid", "far"): start-up modes and their reports byte for byte,
// the node list, reads that find a later node's file, copy-on-write in slow
// and fast mode, later nodes never written, unlink, chdir and access, the
// alternate root, '^' anchoring, and the two path normalisers beside the
// canonicaliser.  Viewpath state is process-wide: the fixture resets it and
// the current directory around every test.
#include "indview.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

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
using testsupport::ScopedProgName;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

const char *const kVariables[] = {"NVPATH", "TOV_VP_DEBUG", "TOV_VP_OFF", "TOV_VP_SLOW",
                                  "TOV_VP_XSW"};

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

std::string Normalised(const char *path, char *(*normaliser)(char *)) {
  std::string buffer(path);
  return normaliser(buffer.data());
}

class ViewpathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    saved_cwd_ = cwd;
    Reset();
    base_ = RealPath(dir_.path());
    local_ = base_ + "/local";
    mid_ = base_ + "/mid";
    far_ = base_ + "/far";
    for (const std::string &node : {local_, mid_, far_}) ASSERT_EQ(mkdir(node.c_str(), 0777), 0);
  }
  void TearDown() override {
    Reset();
    EXPECT_EQ(chdir(saved_cwd_.c_str()), 0);
    gen_invalidate_cwd();
  }
  static void Reset() {
    gen_viewpathing_cleanup();
    for (const char *name : kVariables) unsetenv(name);
    V_changed = 1;
    V_debug_info = 0;
    V_xsw_flags = 0;
    V_wrcopy = 1;
  }
  // Starts viewpathing over the given NVPATH value in mode.
  int Start(const std::string &nvpath, int mode) {
    setenv("NVPATH", nvpath.c_str(), 1);
    return gen_viewpathing_init(mode);
  }
  int StartThree(int mode) { return Start(local_ + ":" + mid_ + ";" + far_, mode); }

  TempDir dir_;
  std::string saved_cwd_, base_, local_, mid_, far_;
};

// ---- Start-up --------------------------------------------------------------

TEST_F(ViewpathTest, WithoutNvpathEveryModeStaysInactiveButIsReturned) {
  EXPECT_EQ(gen_viewpathing_init(1), 1);
  EXPECT_FALSE(gen_isviewpathing());
  V_changed = 1;
  EXPECT_EQ(gen_viewpathing_init(2), 2);
  EXPECT_FALSE(gen_isviewpathing());
  EXPECT_EQ(gen_getviewpathenv(), nullptr);
}

TEST_F(ViewpathTest, DebugReportsTellHowTheEnvironmentChangedTheMode) {
  ScopedProgName name("vp");
  setenv("TOV_VP_DEBUG", "1", 1);
  setenv("TOV_VP_OFF", "yes", 1);
  int mode = -1;
  Captured run = RunCapturing([&] { mode = gen_viewpathing_init(1); });
  EXPECT_EQ(mode, 0);
  EXPECT_EQ(run.err,
            "vp: info: Disabling viewpathing mode \n\tbecause environment variable (TOV_VP_OFF) "
            "is set.\nvp: info: Viewpathing support is OFF.\n");

  run = RunCapturing([&] { mode = gen_viewpathing_init(0); });  // no "Disabling" for mode 0
  EXPECT_EQ(run.err, "vp: info: Viewpathing support is OFF.\n");

  unsetenv("TOV_VP_OFF");
  setenv("TOV_VP_SLOW", "1", 1);
  run = RunCapturing([&] { mode = StartThree(2); });
  EXPECT_EQ(mode, 1);
  EXPECT_EQ(V_wrcopy, 1);
  EXPECT_EQ(run.err,
            "vp: info: Disabling FAST viewpathing mode \n\tbecause environment variable "
            "(TOV_VP_SLOW) is set.\nvp: info: Viewpathing support is ON (SLOW).\n"
            "vp: info: Adding viewpath node 1: " + local_ + "\nvp: info: Adding viewpath node 2: " +
                mid_ + "\nvp: info: Adding viewpath node 3: " + far_ + "\n");

  run = RunCapturing([&] { mode = gen_viewpathing_init(1); });  // SLOW with mode 1: nothing more
  EXPECT_EQ(mode, 1);
  EXPECT_EQ(run.err, "vp: info: Viewpathing support is ON (SLOW).\n");
}

TEST_F(ViewpathTest, AnIllegalModeIsReportedAndLeavesTheLayerOff) {
  ScopedProgName name("vp");
  int mode = -1;
  Captured run = RunCapturing([&] { mode = StartThree(3); });
  EXPECT_EQ(mode, 3);
  EXPECT_EQ(run.err, "vp: error: Illegal viewpath option passed to gen_viewpathing\n");
  EXPECT_FALSE(gen_isviewpathing());
}

TEST_F(ViewpathTest, AMissingMiddleNodeIsDroppedWithAWarning) {
  ScopedProgName name("vp");
  ASSERT_EQ(rmdir(mid_.c_str()), 0);
  errno = EBADF;
  Captured run = RunCapturing([&] { StartThree(1); });
  EXPECT_EQ(errno, EBADF);  // start-up leaves errno alone
  EXPECT_EQ(run.err, "vp: warning: V_get_vpath:  Cannot resolve vpath node '" + mid_ +
                         "', error near '" + mid_ + "'\n");
  ASSERT_EQ(V_ndir, 2);
  EXPECT_EQ(std::string(V_nodes[0]), local_);
  EXPECT_EQ(std::string(V_nodes[1]), far_);
  EXPECT_TRUE(gen_isviewpathing());
}

TEST_F(ViewpathTest, AnNvpathThatDoesNotFitIsRefusedAsAWhole) {
  ScopedProgName name("vp");
  std::string value = local_ + ":" + std::string(1023 - local_.size() - 1, 'x');
  ASSERT_EQ(value.size(), 1023u);
  Captured run = RunCapturing([&] { Start(value, 1); });  // fits exactly: one warning, one node
  EXPECT_EQ(V_ndir, 1);
  Reset();
  value += "y";
  run = RunCapturing([&] { Start(value, 1); });
  EXPECT_EQ(run.err,
            "vp: warning: V_get_vpath:  Value of NVPATH is too long (1024 characters, at most "
            "1023); no viewpath node\n");
  EXPECT_FALSE(gen_isviewpathing());
}

TEST_F(ViewpathTest, TheEnvironmentIsReadOncePerProcess) {
  StartThree(1);
  ASSERT_TRUE(gen_isviewpathing());
  gen_viewpathing_cleanup();
  EXPECT_EQ(gen_viewpathing_init(1), 1);
  EXPECT_FALSE(gen_isviewpathing());
  EXPECT_EQ(V_nodes, nullptr);
}

TEST_F(ViewpathTest, NodeListIsNotOffered) {
  ScopedProgName name("vp");
  int count = 7;
  Captured run = RunCapturing([&] { EXPECT_EQ(gen_getviewpathnodes(&count), nullptr); });
  EXPECT_EQ(count, 0);
  EXPECT_EQ(run.err, "vp: error: [gen_getviewpathnodes]: not implemented\n");
}

// ---- Reads -------------------------------------------------------------------

TEST_F(ViewpathTest, ReadsFindTheFileInTheFirstLaterNodeThatHasIt) {
  WriteFileBytes(far_ + "/f", "far");
  WriteFileBytes(mid_ + "/g", "mid");
  WriteFileBytes(far_ + "/g", "far");
  WriteFileBytes(local_ + "/h", "local");
  WriteFileBytes(far_ + "/h", "far");
  StartThree(1);

  FILE *stream = gen_fopen((local_ + "/f").c_str(), "r");
  ASSERT_NE(stream, nullptr);
  char text[8] = {};
  EXPECT_EQ(fread(text, 1, sizeof text - 1, stream), 3u);
  EXPECT_STREQ(text, "far");
  fclose(stream);

  int fd = gen_open((local_ + "/g").c_str(), O_RDONLY, 0);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(read(fd, text, sizeof text - 1), 3);
  EXPECT_EQ(std::string(text, 3), "mid");
  close(fd);

  stream = gen_freopen((local_ + "/g").c_str(), "r", tmpfile());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fread(text, 1, sizeof text - 1, stream), 3u);
  EXPECT_EQ(std::string(text, 3), "mid");
  fclose(stream);

  struct stat info;
  EXPECT_EQ(gen_sys_stat((local_ + "/f").c_str(), &info), -1);  // plain calls see no node
  EXPECT_EQ(gen_stat((local_ + "/f").c_str(), &info), 0);
  EXPECT_EQ(V_node, 2);
  EXPECT_EQ(gen_stat((local_ + "/h").c_str(), &info), 0);  // a local file wins
  EXPECT_EQ(V_node, 0);
  EXPECT_EQ(info.st_size, 5);
  errno = 0;
  EXPECT_EQ(gen_stat((local_ + "/none").c_str(), &info), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(V_node, 3);
  EXPECT_EQ(gen_fopen((local_ + "/none").c_str(), "r"), nullptr);
  EXPECT_EQ(errno, ENOENT);

  EXPECT_EQ(Take(gen_viewpathfilename((local_ + "/f").c_str(), GEN_VP_READ)), far_ + "/f");
  EXPECT_EQ(Take(gen_viewpathfilename((local_ + "/none").c_str(), GEN_VP_READ)), far_ + "/none");
  EXPECT_EQ(Take(gen_viewpathfilename((local_ + "/f").c_str(), GEN_VP_LOCAL)), local_ + "/f");
  EXPECT_EQ(Take(gen_viewpathfilename("/elsewhere/f", GEN_VP_READ)), "/elsewhere/f");
  EXPECT_FALSE(FileExists(local_ + "/f"));  // reads copy nothing
}

TEST_F(ViewpathTest, RelativeAndAnchoredNamesAreSeenFromTheRoot) {
  ASSERT_EQ(mkdir((far_ + "/sub").c_str(), 0777), 0);
  WriteFileBytes(far_ + "/sub/f", "far");
  ASSERT_EQ(chdir(local_.c_str()), 0);
  Start(local_ + ":" + far_, 1);
  EXPECT_EQ(ReadFileBytes(Take(gen_viewpathfilename("sub/f", GEN_VP_READ))), "far");
  FILE *stream = gen_fopen("^/sub/f", "r");
  ASSERT_NE(stream, nullptr);
  fclose(stream);
  struct stat info;
  EXPECT_EQ(gen_stat("^", &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_EQ(gen_access("^x/sub/f", F_OK), -1);  // only "^" and "^/" anchor
  gen_viewpathing_cleanup();
  EXPECT_EQ(gen_stat("^/sub/f", &info), -1);  // and only while active
}

// ---- Writes ----------------------------------------------------------------------

TEST_F(ViewpathTest, AppendAndUpdateOpensCopyInBothModes) {
  for (int mode : {1, 2}) {
    SCOPED_TRACE(mode);
    Reset();
    WriteFileBytes(far_ + "/a", "old");
    WriteFileBytes(far_ + "/p", "old");
    WriteFileBytes(far_ + "/x", "old");
    unlink((local_ + "/a").c_str());
    unlink((local_ + "/p").c_str());
    unlink((local_ + "/x").c_str());
    StartThree(mode);

    FILE *stream = gen_fopen((local_ + "/a").c_str(), "a");
    ASSERT_NE(stream, nullptr);
    fputs("+new", stream);
    fclose(stream);
    EXPECT_EQ(ReadFileBytes(local_ + "/a"), "old+new");

    stream = gen_fopen((local_ + "/p").c_str(), "rb+");
    ASSERT_NE(stream, nullptr);
    fputs("N", stream);
    fclose(stream);
    EXPECT_EQ(ReadFileBytes(local_ + "/p"), "Nld");

    stream = gen_fopen((local_ + "/x").c_str(), "re");  // an unknown letter is an update
    ASSERT_NE(stream, nullptr);
    fclose(stream);
    EXPECT_EQ(ReadFileBytes(local_ + "/x"), "old");

    for (const char *name : {"/a", "/p", "/x"}) EXPECT_EQ(ReadFileBytes(far_ + name), "old");
  }
}

TEST_F(ViewpathTest, WriteOnlyOpensCopyInSlowModeOnly) {
  WriteFileBytes(far_ + "/w", "old");
  StartThree(1);
  int fd = gen_open((local_ + "/w").c_str(), O_WRONLY, 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, "N", 1), 1);
  close(fd);
  EXPECT_EQ(ReadFileBytes(local_ + "/w"), "Nld");

  Reset();
  unlink((local_ + "/w").c_str());
  StartThree(2);
  fd = gen_open((local_ + "/w").c_str(), O_WRONLY, 0);  // no copy, nothing to open
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(errno, ENOENT);
  fd = gen_open((local_ + "/w").c_str(), O_WRONLY | O_CREAT, 0666);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, "N", 1), 1);
  close(fd);
  EXPECT_EQ(ReadFileBytes(local_ + "/w"), "N");
  EXPECT_EQ(ReadFileBytes(far_ + "/w"), "old");
}

TEST_F(ViewpathTest, FopenWithWCopiesOnlyInSlowMode) {
  ScopedProgName name("vp");
  WriteFileBytes(far_ + "/w", "old");
  setenv("TOV_VP_DEBUG", "1", 1);
  RunCapturing([&] { StartThree(1); });
  Captured run = RunCapturing([&] {
    FILE *stream = gen_fopen((local_ + "/w").c_str(), "w");
    ASSERT_NE(stream, nullptr);
    fclose(stream);
  });
  EXPECT_EQ(run.err, "vp: info: Located file: " + far_ + "/w\nvp: info: Copied file to " +
                         local_ + "/w\n");

  Reset();
  unlink((local_ + "/w").c_str());
  ASSERT_EQ(mkdir((far_ + "/sub").c_str(), 0777), 0);
  WriteFileBytes(far_ + "/sub/w", "old");
  StartThree(2);
  FILE *stream = gen_fopen((local_ + "/w").c_str(), "w");
  ASSERT_NE(stream, nullptr);
  fputs("new", stream);
  fclose(stream);
  EXPECT_EQ(ReadFileBytes(local_ + "/w"), "new");
  EXPECT_EQ(ReadFileBytes(far_ + "/w"), "old");
  // Fast mode makes no directory: "w" fails where the local one is missing.
  EXPECT_EQ(gen_fopen((local_ + "/sub/w").c_str(), "w"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(ReadFileBytes(far_ + "/sub/w"), "old");
}

TEST_F(ViewpathTest, CopiesCreateOneMissingDirectoryLevelAndAddWriteBits) {
  ASSERT_EQ(mkdir((far_ + "/sub").c_str(), 0750), 0);
  WriteFileBytes(far_ + "/sub/ro", "data");
  ASSERT_EQ(chmod((far_ + "/sub/ro").c_str(), 0444), 0);
  StartThree(1);
  mode_t mask = umask(0);
  FILE *stream = gen_fopen((local_ + "/sub/ro").c_str(), "a");
  umask(mask);
  ASSERT_NE(stream, nullptr);
  fclose(stream);
  struct stat info;
  ASSERT_EQ(stat((local_ + "/sub").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0750u);
  ASSERT_EQ(stat((local_ + "/sub/ro").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0666u);
  EXPECT_EQ(V_getf((local_ + "/nowhere").c_str()), -1);
  EXPECT_FALSE(FileExists(local_ + "/nowhere"));
}

TEST_F(ViewpathTest, CreatAndLinkReachIntoLaterNodes) {
  ASSERT_EQ(mkdir((far_ + "/sub").c_str(), 0777), 0);
  WriteFileBytes(far_ + "/f", "far");
  StartThree(1);
  int fd = gen_creat((local_ + "/sub/new").c_str(), 0644);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_TRUE(FileExists(local_ + "/sub/new"));
  EXPECT_FALSE(FileExists(far_ + "/sub/new"));
  EXPECT_EQ(gen_creat((local_ + "/nodir/new").c_str(), 0644), -1);
  EXPECT_EQ(errno, ENOENT);

  EXPECT_EQ(gen_link((local_ + "/f").c_str(), (local_ + "/f2").c_str()), 0);
  EXPECT_EQ(ReadFileBytes(local_ + "/f2"), "far");
  EXPECT_EQ(gen_link((local_ + "/none").c_str(), (local_ + "/n2").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
}

// ---- Unlink, chdir, access -------------------------------------------------------

TEST_F(ViewpathTest, UnlinkOfALaterNodesFileFailsWithEperm) {
  WriteFileBytes(far_ + "/f", "far");
  WriteFileBytes(local_ + "/g", "local");
  StartThree(1);
  errno = 0;
  EXPECT_EQ(gen_unlink((local_ + "/f").c_str()), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_TRUE(FileExists(far_ + "/f"));
  EXPECT_EQ(gen_unlink((local_ + "/none").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(gen_unlink((local_ + "/g").c_str()), 0);
  EXPECT_FALSE(FileExists(local_ + "/g"));
}

TEST_F(ViewpathTest, ChdirIntoALaterNodesDirectoryLeavesAnEmptyLocalOne) {
  ASSERT_EQ(mkdir((far_ + "/d").c_str(), 0777), 0);
  ASSERT_EQ(mkdir((far_ + "/d/e").c_str(), 0777), 0);
  WriteFileBytes(far_ + "/d/file", "far");
  ASSERT_EQ(chdir(local_.c_str()), 0);
  StartThree(1);
  EXPECT_EQ(gen_chdir("d"), 0);
  EXPECT_EQ(std::string(V_cwd), local_ + "/d");
  EXPECT_EQ(std::string(gen_getcwd()), local_ + "/d");
  EXPECT_FALSE(FileExists(local_ + "/d/file"));
  EXPECT_EQ(ReadFileBytes(Take(gen_viewpathfilename("file", GEN_VP_READ))), "far");
  EXPECT_EQ(gen_chdir("e"), 0);
  EXPECT_EQ(std::string(V_cwd), local_ + "/d/e");
  EXPECT_EQ(gen_chdir(".."), 0);
  EXPECT_EQ(std::string(V_cwd), local_ + "/d");
  EXPECT_EQ(gen_chdir("file"), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(gen_chdir("nowhere"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(gen_chdir(""), -1);
  EXPECT_EQ(gen_chdir("^"), 0);
  EXPECT_EQ(std::string(V_cwd), local_);
}

TEST_F(ViewpathTest, AccessCountsALaterNodesFileAsWritable) {
  WriteFileBytes(far_ + "/f", "far");
  ASSERT_EQ(chmod((far_ + "/f").c_str(), 0444), 0);
  StartThree(1);
  EXPECT_EQ(gen_access((local_ + "/f").c_str(), W_OK), 0);
  EXPECT_EQ(gen_access((local_ + "/f").c_str(), R_OK), 0);
  EXPECT_EQ(gen_access((local_ + "/f").c_str(), X_OK), -1);
  EXPECT_EQ(errno, EACCES);
  // The search ends at the first node that has the file, allowed or not.
  WriteFileBytes(mid_ + "/g", "mid");
  WriteFileBytes(far_ + "/g", "far");
  ASSERT_EQ(chmod((mid_ + "/g").c_str(), 0444), 0);
  ASSERT_EQ(chmod((far_ + "/g").c_str(), 0755), 0);
  EXPECT_EQ(gen_access((local_ + "/g").c_str(), X_OK), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(gen_access((local_ + "/none").c_str(), W_OK), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(gen_access("/elsewhere/none", R_OK), -1);
}

// ---- Roots and names ------------------------------------------------------------------

TEST_F(ViewpathTest, RelativeNamesAreTakenAgainstTheRootOnly) {
  ASSERT_EQ(chdir(local_.c_str()), 0);
  StartThree(1);
  EXPECT_EQ(Take(V_getrel(local_.c_str())), ".");
  EXPECT_EQ(Take(V_getrel((local_ + "//a/b").c_str())), "a/b");
  EXPECT_EQ(Take(V_getrel((local_ + "x/a").c_str())), "(null)");
  EXPECT_EQ(Take(V_getrel((far_ + "/a").c_str())), "(null)");
  EXPECT_EQ(Take(V_getrel("./a/../b/")), "b");
  EXPECT_EQ(Take(V_getrel("..")), "(null)");
}

TEST_F(ViewpathTest, AnAlternateRootThroughASymbolicLinkIsRecognised) {
  ScopedProgName name("vp");
  const std::string link = base_ + "/link";
  ASSERT_EQ(symlink(local_.c_str(), link.c_str()), 0);
  WriteFileBytes(far_ + "/f", "far");
  setenv("TOV_VP_DEBUG", "1", 1);
  Captured run = RunCapturing([&] { Start(link + ":" + far_, 1); });
  EXPECT_EQ(run.err.substr(run.err.find("vp: info: Adding")),
            "vp: info: Adding viewpath node 1: " + local_ + "\nvp: info: Using alternate root: " +
                link + "\nvp: info: Adding viewpath node 2: " + far_ + "\n");
  V_debug_info = 0;
  EXPECT_EQ(Take(V_getrel((link + "/a").c_str())), "a");
  EXPECT_EQ(ReadFileBytes(Take(gen_viewpathfilename((link + "/f").c_str(), GEN_VP_READ))),
            "far");

  Reset();
  setenv("TOV_VP_XSW", "1", 1);
  setenv("TOV_VP_DEBUG", "1", 1);
  run = RunCapturing([&] { Start(link + ":" + far_, 1); });
  EXPECT_NE(run.err.find("vp: info: Ignoring alternate root: " + link + "\n"), std::string::npos);
  EXPECT_EQ(V_alt_root, nullptr);
  EXPECT_EQ(Take(V_getrel((link + "/a").c_str())), "(null)");
}

TEST_F(ViewpathTest, LocalAndNextNamesMoveBetweenLayers) {
  WriteFileBytes(far_ + "/f", "far");
  WriteFileBytes(mid_ + "/f", "mid");
  WriteFileBytes(local_ + "/f", "local");
  StartThree(1);
  EXPECT_EQ(Take(gen_viewpathlocalname((far_ + "/f").c_str())), local_ + "/f");
  EXPECT_EQ(Take(gen_viewpathlocalname((local_ + "/f").c_str())), local_ + "/f");
  EXPECT_EQ(Take(gen_viewpathlocalname(far_.c_str())), "(null)");  // a node isn't under itself
  EXPECT_EQ(Take(gen_viewpathlocalname("/none/x")), "/none/x");
  EXPECT_EQ(Take(gen_viewpathnextname((local_ + "/f").c_str())), mid_ + "/f");
  EXPECT_EQ(Take(gen_viewpathnextname((mid_ + "/f").c_str())), far_ + "/f");
  EXPECT_EQ(Take(gen_viewpathnextname((far_ + "/f").c_str())), "(null)");
}

TEST_F(ViewpathTest, WithViewpathingOffTheWrappersAreThePlainCalls) {
  WriteFileBytes(far_ + "/f", "far");
  gen_viewpathing_init(0);
  struct stat info;
  EXPECT_EQ(gen_stat((local_ + "/f").c_str(), &info), -1);
  EXPECT_EQ(gen_access((local_ + "/f").c_str(), W_OK), -1);
  FILE *stream = gen_fopen((local_ + "/f").c_str(), "a");
  ASSERT_NE(stream, nullptr);
  fclose(stream);
  EXPECT_EQ(ReadFileBytes(local_ + "/f"), "");
  EXPECT_EQ(ReadFileBytes(far_ + "/f"), "far");
  EXPECT_EQ(gen_stat(nullptr, &info), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(gen_fopen(nullptr, "r"), nullptr);
  EXPECT_EQ(Take(gen_viewpathfilename("^/x", GEN_VP_READ)), "^/x");
}

// ---- Normalisers -------------------------------------------------------------------------

TEST(ViewpathCompath, NormalisesAsItsTableSays) {
  const struct {
    const char *in, *out;
  } rows[] = {{"a/../b", "b"},   {"a/..", "."},      {"../a", "../a"},   {"/a/", "/a"},
              {"/", "/"},        {"a//b/./c", "a/b/c"}, {"", "."},     {"/..", "/.."},
              {"/a/../..", "/.."}, {"../../a", "../../a"}, {"a/b/../../..", ".."}, {"//", "/"}};
  for (const auto &row : rows)
    EXPECT_EQ(Normalised(row.in, V_compath), row.out) << row.in;
  EXPECT_EQ(V_compath(nullptr), nullptr);
}

TEST(ViewpathCompath, DiffersFromTheCanonicaliser) {
  // input, V_compath, V2_compath (absolute only), canonicalizefilename
  const struct {
    const char *in, *v, *v2, *canon;
  } rows[] = {
      {"./a", "a", nullptr, "./a"},          {"a/..", ".", nullptr, ""},
      {"a/b/", "a/b", nullptr, "a/b/"},      {"//a", "/a", "/a", "//a"},
      {"/./a", "/a", "/a", "/./a"},          {"/a/./b/../c", "/a/c", "/a/b/../c", "/a/c"},
      {"/a/../b/./c", "/b/c", "/b/./c", "/b/c"}, {"/a//b//", "/a/b", "/a/b", "/a/b/"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.in);
    EXPECT_EQ(Normalised(row.in, V_compath), row.v);
    if (row.v2 != nullptr) {
      EXPECT_EQ(Normalised(row.in, V2_compath), row.v2);
    }
    EXPECT_EQ(Normalised(row.in, [](char *p) { return canonicalizefilename(p, 0); }), row.canon);
  }
}

TEST(ViewpathCompath, TooManyComponentsAreReportedAndTheRestKept) {
  ScopedProgName name("vp");
  std::string path;
  for (int i = 0; i < 128; i++) path += "/a";
  std::string same = path;
  Captured run = RunCapturing([&] { V_compath(same.data()); });
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(same, path);

  std::string longer = "/x/.." + path + "/b/./c";
  run = RunCapturing([&] { V2_compath(longer.data()); });
  EXPECT_EQ(run.err, "");  // V2 stops at the first component behind the removal

  longer = "/x/.." + path + "/b/./c";
  run = RunCapturing([&] { V_compath(longer.data()); });
  EXPECT_EQ(longer.c_str(), path + "/b/./c");
  EXPECT_EQ(run.err, "vp: error: [V_compath]: too many directory components for \"" + path +
                         "/b/./c\"\n");
  std::string v2 = path + "/b";
  run = RunCapturing([&] { V2_compath(v2.data()); });
  EXPECT_EQ(run.err, "vp: error: [V2_compath]: too many directory components for \"" + path +
                         "/b\"\n");
}

TEST(ViewpathCompath, V2RefusesARelativePath) {
  ScopedProgName name("vp");
  std::string path = "a/b";
  errno = 0;
  Captured run = RunCapturing([&] { V2_compath(path.data()); });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "vp: fatal: INTERNAL ERROR: libvp: chdir: compath2: (1) [a/b] not absolute "
                     "path\n");
}

TEST(ViewpathCat, JoinsUpToTheNullArgument) {
  char buffer[16] = "zzzzzzzzzzzzzzz";
  EXPECT_STREQ(V_cat(buffer, "/a", "/", "bc", static_cast<const char *>(nullptr)), "/a/bc");
  EXPECT_STREQ(V_cat(buffer, static_cast<const char *>(nullptr)), "");
}

}  // namespace
