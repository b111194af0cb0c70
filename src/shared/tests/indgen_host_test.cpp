// Tests of the host layer: waiting on descriptors, running commands, process
// checks, resource limits, host names, disk facts and the environment.
#include "indgen_host.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>

#include "gen_capture.h"
#include "indgeninit.h"
#include "temp_dir.h"

using testsupport::Captured;
using testsupport::RunCapturing;
using testsupport::TempDir;

namespace {

int64_t MillisecondsOf(const std::function<void()> &body) {
  auto start = std::chrono::steady_clock::now();
  body();
  auto elapsed = std::chrono::steady_clock::now() - start;
  return std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
}

// A pipe whose ends are closed at the end of the test.
struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() {
    close(fds[0]);
    close(fds[1]);
  }
};

TEST(MillisleepOrSelect, WithoutDescriptorsSleepsTheWholeTime) {
  int result = -2;
  int64_t took = MillisecondsOf([&] { result = gen_millisleep_or_select(40, 0, nullptr); });
  EXPECT_EQ(result, 40);
  EXPECT_GE(took, 40);

  const int skipped[] = {-1, -1};
  took = MillisecondsOf([&] { result = gen_millisleep_or_select(30, 2, skipped); });
  EXPECT_EQ(result, 30);
  EXPECT_GE(took, 30);
}

TEST(MillisleepOrSelect, ReadyDescriptorReturnsAtOnceWithOne) {
  Pipe p;
  ASSERT_EQ(write(p.fds[1], "x", 1), 1);
  const int fds[] = {-1, p.fds[0]};
  int result = -2;
  int64_t took = MillisecondsOf([&] { result = gen_millisleep_or_select(5000, 2, fds); });
  EXPECT_EQ(result, 1);
  EXPECT_LT(took, 1000);
}

TEST(MillisleepOrSelect, SilentDescriptorTimesOutWithTheFullTime) {
  Pipe p;
  const int fds[] = {p.fds[0]};
  int result = -2;
  int64_t took = MillisecondsOf([&] { result = gen_millisleep_or_select(30, 1, fds); });
  EXPECT_EQ(result, 30);
  EXPECT_GE(took, 29);
}

TEST(MillisleepOrSelect, InputArrivingLaterReportsTheTimeWaited) {
  Pipe p;
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    usleep(100 * 1000);
    _exit(write(p.fds[1], "x", 1) == 1 ? 0 : 1);
  }
  const int fds[] = {p.fds[0]};
  int result = gen_millisleep_or_select(5000, 1, fds);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_GE(result, 50);
  EXPECT_LT(result, 5000);
}

TEST(MillisleepOrSelect, DescriptorOutOfRangeIsRefused) {
  const int fds[] = {FD_SETSIZE};
  errno = 0;
  EXPECT_EQ(gen_millisleep_or_select(10, 1, fds), -1);
  EXPECT_EQ(errno, EINVAL);
  const int negative[] = {-5};
  EXPECT_EQ(gen_millisleep_or_select(10, 1, negative), -1);
}

TEST(System, QuietFlagDiscardsStandardOutput) {
  int status = -1;
  Captured loud = RunCapturing([&] { status = gen_systemex("echo hello", ""); });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(loud.out, "hello\n");

  Captured quiet = RunCapturing([&] { status = gen_systemex("echo hello", "xqz"); });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(quiet.out, "");

  Captured plain = RunCapturing([&] { status = gen_system("echo plain; exit 3"); });
  EXPECT_EQ(plain.out, "plain\n");
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(Processes, CurrentProcessExistsAndAReapedChildDoesNot) {
  EXPECT_TRUE(gen_doeslocalprocessexist(getpid()));
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_FALSE(gen_doeslocalprocessexist(child));
}

TEST(Processes, ExecvpOfAMissingProgramFails) {
  char *argv[] = {const_cast<char *>("no-such-program-anywhere"), nullptr};
  errno = 0;
  EXPECT_EQ(gen_execvp(argv[0], argv), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(Limits, CpuLimitOfZeroMeansTheLargestValue) {
  EXPECT_EQ(gen_set_cpu_time_limit(0), 0x7FFFFFFF);
  struct rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_CPU, &limit), 0);
  EXPECT_EQ(limit.rlim_cur, rlim_t{0x7FFFFFFF});
  EXPECT_EQ(gen_set_cpu_time_limit(1000000), 1000000);
  ASSERT_EQ(getrlimit(RLIMIT_CPU, &limit), 0);
  EXPECT_EQ(limit.rlim_cur, rlim_t{1000000});
  EXPECT_GE(limit.rlim_max, rlim_t{1000000});
}

// A hard memory limit can't be raised again, so it is set in a child.
TEST(Limits, MemoryLimitSetsSoftAndHardInAChild) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    struct rlimit limit;
    bool ok = gen_set_memory_limit(-1) == 0x7FFFFFFF && getrlimit(RLIMIT_AS, &limit) == 0 &&
              limit.rlim_cur == 0x7FFFFFFF && limit.rlim_max == 0x7FFFFFFF;
    _exit(ok ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(HostFacts, HostNamesAreStaticAndConsistent) {
  char expected[256] = {};
  ASSERT_EQ(gethostname(expected, sizeof expected - 1), 0);
  const char *name = gen_gethostname();
  EXPECT_STREQ(name, expected);
  EXPECT_EQ(gen_gethostname(), name);

  std::string full = gen_getfullyqualifiedhostname();
  EXPECT_FALSE(full.empty());
  if (std::string(expected).find('.') != std::string::npos) {
    EXPECT_EQ(full, expected);
  }
  EXPECT_EQ(std::string(gen_getfullyqualifiedhostname()), full);
}

TEST(HostFacts, OsNameIsThreeUnameFieldsJoinedByOneBlankEach) {
  struct utsname names;
  ASSERT_EQ(uname(&names), 0);
  char *os = gen_gethostosname();
  ASSERT_NE(os, nullptr);
  EXPECT_EQ(std::string(os),
            std::string(names.sysname) + " " + names.release + " " + names.version);
  gen_free(os);
}

TEST(HostFacts, DiskFactsOfExistingAndMissingPaths) {
  TempDir dir;
  struct statvfs fs;
  ASSERT_EQ(statvfs(dir.path().c_str(), &fs), 0);
  uint64_t expected = uint64_t{fs.f_bavail} * fs.f_frsize;
  uint64_t free_bytes = gen_freediskspace(dir.path().c_str());
  // Other processes write meanwhile; allow some slack around the figure.
  EXPECT_NEAR(static_cast<double>(free_bytes), static_cast<double>(expected), 64.0 * 1024 * 1024);
  EXPECT_EQ(gen_freediskspace(dir.file("missing/deeper").c_str()), 0u);
  EXPECT_FALSE(gen_in_clearcase_mvfs(dir.path().c_str()));
  EXPECT_FALSE(gen_in_clearcase_mvfs(dir.file("missing").c_str()));
  EXPECT_FALSE(gen_in_clearcase_mvfs("/"));
}

TEST(HostFacts, TruncateAndStrtoul) {
  TempDir dir;
  std::string name = dir.file("f");
  ASSERT_TRUE(testsupport::WriteFileBytes(name, "0123456789"));
  EXPECT_EQ(gen_truncate(name.c_str(), 4), 0);
  EXPECT_EQ(testsupport::ReadFileBytes(name), "0123");
  EXPECT_EQ(gen_truncate(dir.file("missing").c_str(), 0), -1);

  char *end = nullptr;
  EXPECT_EQ(gen_strtoul("0x1fz", &end, 16), 0x1Ful);
  EXPECT_STREQ(end, "z");
}

TEST(Environment, EmptyValuesCountAsMissing) {
  setenv("RAVELOG_TEST_EMPTY", "", 1);
  setenv("RAVELOG_TEST_SET", "value", 1);
  unsetenv("RAVELOG_TEST_MISSING");
  EXPECT_EQ(gen_get_env_variable("RAVELOG_TEST_EMPTY"), nullptr);
  EXPECT_STREQ(gen_get_env_variable("RAVELOG_TEST_SET"), "value");
  EXPECT_EQ(gen_get_env_variable("RAVELOG_TEST_MISSING"), nullptr);
  EXPECT_EQ(gen_get_env_variable(""), nullptr);
  EXPECT_EQ(gen_get_env_variable(nullptr), nullptr);
  EXPECT_STREQ(gen_getenv("RAVELOG_TEST_EMPTY", "fallback"), "fallback");
}

TEST(Environment, PutSetsAndReplacesValues) {
  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", "first"));
  EXPECT_STREQ(getenv("RAVELOG_TEST_PUT"), "first");
  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", "second"));
  EXPECT_STREQ(getenv("RAVELOG_TEST_PUT"), "second");

  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", nullptr));
  ASSERT_NE(getenv("RAVELOG_TEST_PUT"), nullptr);
  EXPECT_STREQ(getenv("RAVELOG_TEST_PUT"), "");
  EXPECT_STREQ(gen_getenv("RAVELOG_TEST_PUT", "missing"), "missing");

  EXPECT_FALSE(gen_put_env_variable("", "x"));
  EXPECT_FALSE(gen_put_env_variable(nullptr, "x"));
}

}  // namespace
