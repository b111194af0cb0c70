// Tests of what the host layer adds to the system calls: waiting for input,
// quiet commands, process checks, disk facts, and empty variables as missing.
#include "indgen_host.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <tuple>

#include "gen_capture.h"

namespace {

int ExitStatusOf(pid_t child) {
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(MillisleepOrSelect, ReturnsTheTimeWaitedOrTheWholeTime) {
  int silent[2], ready[2], later[2];
  ASSERT_EQ(pipe(silent) + pipe(ready) + pipe(later), 0);
  ASSERT_EQ(write(ready[1], "x", 1), 1);
  const pid_t child = fork();
  if (child == 0) _exit(usleep(100 * 1000) == 0 && write(later[1], "x", 1) == 1 ? 0 : 1);
  const int none[] = {-1, -1}, at_once[] = {-1, ready[0]};
  // milliseconds, descriptors; the range of the result, the range of the time taken.  The first row
  // waits for the child, which writes after 100 ms.
  for (const auto &[ms, count, fds, low, high, min_ms, max_ms] :
       {std::tuple<int, int, const int *, int, int, int, int>{5000, 1, later, 50, 4999, 0, 5000},
        {40, 0, nullptr, 40, 40, 40, 5000}, {30, 2, none, 30, 30, 30, 5000},
        {30, 1, silent, 30, 30, 29, 5000}, {5000, 2, at_once, 1, 1, 0, 1000}}) {
    const auto start = std::chrono::steady_clock::now();
    const int result = gen_millisleep_or_select(ms, count, fds);
    const auto took = (std::chrono::steady_clock::now() - start) / std::chrono::milliseconds(1);
    EXPECT_TRUE(result >= low && result <= high && took >= min_ms && took < max_ms)
        << ms << " ms over " << count << ": " << result << " after " << took << " ms";
  }
  EXPECT_EQ(ExitStatusOf(child), 0);
  for (const int fd : {FD_SETSIZE, -5})
    EXPECT_TRUE((errno = 0, gen_millisleep_or_select(10, 1, &fd)) == -1 && errno == EINVAL) << fd;
  for (const int fd : {silent[0], silent[1], ready[0], ready[1], later[0], later[1]}) close(fd);
}

TEST(System, QuietFlagAnywhereDiscardsStandardOutput) {
  int status[3] = {-1, -1, -1};
  testsupport::Captured loud = testsupport::RunCapturing([&] {
    status[0] = gen_systemex("echo hello", ""), status[1] = gen_systemex("echo quiet", "xqz");
    status[2] = gen_system("echo plain; exit 3");
  });
  EXPECT_EQ(loud.out, "hello\nplain\n");
  EXPECT_EQ(std::tuple(status[0], status[1], WIFEXITED(status[2]) ? WEXITSTATUS(status[2]) : -1),
            std::tuple(0, 0, 3));
}

TEST(Processes, ALiveProcessExistsAReapedOneDoesNot) {
  EXPECT_TRUE(gen_doeslocalprocessexist(getpid()));
  const pid_t child = fork();
  if (child == 0) _exit(0);
  EXPECT_EQ(ExitStatusOf(child), 0);
  EXPECT_FALSE(gen_doeslocalprocessexist(child));
  EXPECT_EQ(gen_freediskspace("/no/such/dir"), 0u);
  EXPECT_FALSE(gen_in_clearcase_mvfs("/"));
}

TEST(Environment, EmptyValuesCountAsMissing) {
  setenv("RAVELOG_TEST_EMPTY", "", 1);
  setenv("RAVELOG_TEST_SET", "value", 1);
  unsetenv("RAVELOG_TEST_MISSING");
  // name, gen_getenv with a fallback, gen_get_env_variable
  for (const auto &[name, value, variable] :
       {std::tuple<const char *, const char *, const char *>{"RAVELOG_TEST_SET", "value", "value"},
        {"RAVELOG_TEST_EMPTY", "fallback", "<null>"}, {"RAVELOG_TEST_MISSING", "fallback", "<null>"},
        {"", "fallback", "<null>"}, {nullptr, "fallback", "<null>"}}) {
    const char *got = gen_get_env_variable(name);
    EXPECT_EQ(std::pair(std::string(gen_getenv(name, "fallback")), std::string(got ? got : "<null>")),
              std::pair(std::string(value), std::string(variable))) << (name ? name : "<null>");
  }
  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", "first"));
  EXPECT_STREQ(getenv("RAVELOG_TEST_PUT"), "first");
  EXPECT_TRUE(gen_put_env_variable("RAVELOG_TEST_PUT", nullptr));  // null sets it empty
  EXPECT_STREQ(getenv("RAVELOG_TEST_PUT"), "");
  EXPECT_FALSE(gen_put_env_variable("", "x") || gen_put_env_variable(nullptr, "x"));
}

}  // namespace
