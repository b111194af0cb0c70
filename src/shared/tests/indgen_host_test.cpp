// Tests of what the host layer adds to the system calls: the waiting of
// gen_millisleep_or_select, the quiet flag of gen_systemex, the process
// check, the values the limits fall back to, the failure results of the
// disk facts, and the environment's rule that empty means missing.
#include "indgen_host.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "gen_capture.h"

namespace {

// A pipe whose ends are closed at the end of the test.
struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() { close(fds[0]), close(fds[1]); }
};

int WaitChild(pid_t child) {
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(MillisleepOrSelect, ReturnsTheTimeWaitedOrTheWholeTime) {
  Pipe silent, ready, later;
  ASSERT_EQ(write(ready.fds[1], "x", 1), 1);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(usleep(100 * 1000) == 0 && write(later.fds[1], "x", 1) == 1 ? 0 : 1);
  const int none[] = {-1, -1}, quiet[] = {silent.fds[0]}, at_once[] = {-1, ready.fds[0]},
            soon[] = {later.fds[0]}, too_high[] = {FD_SETSIZE}, negative[] = {-5};
  const struct {
    int ms, count;
    const int *fds;
    int low, high;  // of the result
    int64_t min_ms, max_ms;  // of the time taken
  } rows[] = {
      {5000, 1, soon, 50, 4999, 0, 5000},  // first: the child writes after 100 ms
      {40, 0, nullptr, 40, 40, 40, 5000}, {30, 2, none, 30, 30, 30, 5000},
      {30, 1, quiet, 30, 30, 29, 5000},   {5000, 2, at_once, 1, 1, 0, 1000},
  };
  for (const auto &row : rows) {
    const auto start = std::chrono::steady_clock::now();
    const int result = gen_millisleep_or_select(row.ms, row.count, row.fds);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(result, row.low) << row.ms << " " << row.count;
    EXPECT_LE(result, row.high) << row.ms << " " << row.count;
    EXPECT_GE(took, row.min_ms) << row.ms << " " << row.count;
    EXPECT_LT(took, row.max_ms) << row.ms << " " << row.count;
  }
  EXPECT_EQ(WaitChild(child), 0);
  for (const int *fds : {too_high, negative}) {
    errno = 0;
    EXPECT_EQ(gen_millisleep_or_select(10, 1, fds), -1);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(System, QuietFlagAnywhereDiscardsStandardOutput) {
  int status[3] = {-1, -1, -1};
  testsupport::Captured loud = testsupport::RunCapturing([&] {
    status[0] = gen_systemex("echo hello", "");
    status[1] = gen_systemex("echo quiet", "xqz");
    status[2] = gen_system("echo plain; exit 3");
  });
  EXPECT_EQ(loud.out, "hello\nplain\n");
  EXPECT_EQ(status[0], 0);
  EXPECT_EQ(status[1], 0);
  ASSERT_TRUE(WIFEXITED(status[2]));
  EXPECT_EQ(WEXITSTATUS(status[2]), 3);
}

TEST(Processes, ExistenceAndLimits) {
  EXPECT_TRUE(gen_doeslocalprocessexist(getpid()));
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(0);
  EXPECT_EQ(WaitChild(child), 0);
  EXPECT_FALSE(gen_doeslocalprocessexist(child));

  EXPECT_EQ(gen_freediskspace("/no/such/dir"), 0u);
  EXPECT_FALSE(gen_in_clearcase_mvfs("/"));
  EXPECT_FALSE(gen_in_clearcase_mvfs("/no/such/dir"));
}

TEST(Environment, EmptyValuesCountAsMissing) {
  setenv("RAVELOG_TEST_EMPTY", "", 1);
  setenv("RAVELOG_TEST_SET", "value", 1);
  unsetenv("RAVELOG_TEST_MISSING");
  EXPECT_STREQ(gen_getenv("RAVELOG_TEST_EMPTY", "fallback"), "fallback");
  EXPECT_STREQ(gen_getenv("RAVELOG_TEST_SET", "fallback"), "value");
  EXPECT_STREQ(gen_getenv(nullptr, "fallback"), "fallback");
  for (const char *name : {"RAVELOG_TEST_EMPTY", "RAVELOG_TEST_MISSING", "", (const char *)nullptr})
    EXPECT_EQ(gen_get_env_variable(name), nullptr) << (name ? name : "<null>");
  EXPECT_STREQ(gen_get_env_variable("RAVELOG_TEST_SET"), "value");

  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", "first"));
  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", "second"));
  EXPECT_STREQ(getenv("RAVELOG_TEST_PUT"), "second");
  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", nullptr));
  EXPECT_STREQ(getenv("RAVELOG_TEST_PUT"), "");
  EXPECT_FALSE(gen_put_env_variable("", "x"));
  EXPECT_FALSE(gen_put_env_variable(nullptr, "x"));
}

}  // namespace
