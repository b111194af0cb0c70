// Tests of the foundation floor: every message form byte for byte with its
// exit, counters and errno, the allocation limit, the scratch ring, program
// names and versions, assertions and signal handlers.
#include "indgeninit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <string>
#include <tuple>
#include <utility>

#include "gen_capture.h"

using testsupport::Captured;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;

namespace {

void DefaultMessage(unsigned code, const char *format, ...) {
  va_list args;
  va_start(args, format);
  gen_default_domessage(code, format, args);
  va_end(args);
}

// What body printed, behind its exit status when it exited, the level it counted in gen_error_count
// (-1: none), what it added to gen_any_error and errno afterwards.
std::string Outcome(const std::function<void()> &body) {
  int before[7], any_before = gen_any_error, errno_out = -1, level = -1;
  std::copy(gen_error_count, gen_error_count + 7, before);
  const Captured run = RunCapturing([&] {
    struct KeepErrno {  // also when the body exits
      int &out;
      ~KeepErrno() { out = errno; }
    } keep{errno_out};
    body();
  });
  for (int k = 0; k < 7; k++) level = gen_error_count[k] == before[k] + 1 ? k : level;
  gen_calder_error_msgs = 0;
  const std::string any = std::to_string(gen_any_error - any_before);
  return (run.exited ? "exit " + std::to_string(run.status) + ", " : "") + "level " + std::to_string(level) +
         ", any " + any + ", errno " + std::to_string(errno_out) + ": " + run.err +
         (run.out.empty() ? "" : "stdout: " + run.out);
}

TEST(Messages, EveryFormByteForByte) {
  ScopedProgName name("tool");
  const std::pair<std::function<void()>, std::string> rows[] = {
      {[] { gen_errorexit(1, "broken %d", 7); }, "exit 1, level 2, any 1, errno 0: tool: fatal: broken 7\n"},
      {[] { gen_errorexit(0, "done"); }, "exit 0, level 0, any 1, errno 0: tool: done\n"},
      {[] { gen_errorexit(1, "Failed %s.*.\n", "db"); },
       "exit 1, level 2, any 1, errno 0: tool: fatal: Failed db.*.\n"},
      {[] { errno = EDOM, gen_warning("%s", "line\n"); },
       "level 4, any 0, errno " + std::to_string(EDOM) + ": tool: warning: line\n\n"},
      {[] { gen_info("%s", ""); }, "level 5, any 0, errno 0: tool: info: \n"},
      {[] { gen_error("e"); }, "level 3, any 1, errno 0: tool: error: e\n"},
      {[] { gen_printf("plain %s", "text"); }, "level 6, any 0, errno 0: plain text\n"},
      {[] { gen_perror("open"); }, "level 2, any 1, errno 0: tool: fatal: open\n"},
      {[] { errno = ENOENT, gen_perror("open %s", "x"); },
       "level 2, any 1, errno 0: tool: fatal: open x: No such file or directory\n"},
      {[] { errno = EACCES, gen_perror("line\n"); },
       "level 2, any 1, errno 0: tool: fatal: line\n: Permission denied\n"},
      {[] { gen_perrorexit(0, "gone"); }, "exit 0, level 2, any 1, errno 0: tool: fatal: gone\n"},
      {[] { gen_successexit(); }, "exit 0, level -1, any 0, errno 0: "},
      {[] { gen_out_of_memory(); }, "exit 3, level -1, any 0, errno 0: tool: fatal: Out of memory\n"},
      {[] { gen_allocate(nullptr, 65536, 32768); },
       "exit 3, level -1, any 0, errno 0: tool: fatal: Out of memory\n"},
      {[] { DefaultMessage(50, "odd"); }, "level -1, any 0, errno 0: tool: odd\n"},  // no such level
      {[] { gen_set_version(9); },
       "level 3, any 1, errno 0: tool: error: Attempt to set version to an illegal value\n"},
      {[] { gen_calder_error_msgs = 1, gen_warning("w"); }, "level 4, any 0, errno 0: tool: WARNING: w\n"},
      {[] { gen_calder_error_msgs = 1, gen_errorexit(0, "z"); },
       "exit 0, level 0, any 1, errno 0: tool: ERROR: z\n"},
      {[] { gen_calder_error_msgs = 1, gen_errorexit(2, "f"); },
       "exit 2, level 2, any 1, errno 0: tool: ERROR: FATAL: f\n"},
  };
  for (const auto &row : rows) EXPECT_EQ(Outcome([&] { errno = 0, row.first(); }), row.second);
  ScopedProgName nameless("");  // no name, no prefix
  EXPECT_EQ(RunCapturing([] { gen_error("alone"); }).err, "error: alone\n");
}

// The ring is shared by the whole process and as long as the largest ring
// asked for; this program only ever asks for 4.
TEST(TempBufRing, FifthCallReusesTheFirstBufferAndZeroSizeDoesNotCount) {
  void *buffers[5];
  for (void *&buffer : buffers) {
    EXPECT_EQ(gen_get_temp_buf(4, 0), nullptr);
    buffer = gen_get_temp_buf(4, 10);
  }
  EXPECT_EQ(buffers[4], buffers[0]);
  for (int k = 1; k < 4; k++) EXPECT_TRUE(buffers[k] != buffers[k - 1] && buffers[k] != buffers[0]);
  char *big = static_cast<char *>(gen_get_zeroed_temp_buf(4, 4096));  // a slot grown
  EXPECT_EQ(std::string(big, 4096), std::string(4096, '\0'));
  EXPECT_STREQ(gen_temp_copy(4, "hello"), "hello");
}

TEST(Init, NamesAndVersions) {
  char *saved_prog = gen_progname, *saved_exec = gen_execname;
  gen_progname = gen_execname = nullptr;
  gen_init("/usr/local/bin/ravelog///", 0, 0);
  EXPECT_EQ(gen_execname + std::string("|") + gen_getprogname(), "/usr/local/bin/ravelog|ravelog");
  gen_free(gen_progname), gen_free(gen_execname);
  gen_progname = saved_prog, gen_execname = saved_exec;
  const int saved = gen_get_version();
  gen_set_version(8);
  EXPECT_EQ(gen_get_version(), 8);
  EXPECT_TRUE(gen_is_at_least_version(8) && !gen_is_at_least_version(9) && gen_is_at_most_version(8) &&
              !gen_is_at_most_version(7));
  gen_set_version(saved);
}

TEST(AssertDeathTest, PassingConditionReturnsFailingOneEndsWithItsLine) {
  EXPECT_EXIT((__Assert(1, "never", "f.c", 1, 0), __Assert(0, "a > b", "file.c", 12, 3)),
              testing::ExitedWithCode(1),
              "^Assertion \\(a > b\\) \\[3\\] failed in 'file.c' on line 12\n");
  EXPECT_EXIT(__Assert(0, "x", "file.c", 9, 0), testing::ExitedWithCode(1),
              "^Assertion failed in 'file.c' on line 9\n");
}

TEST(SignalDeathTest, HandlersPrintAndExitWithTwo) {
  for (const auto &[sig, err] :
       {std::pair{SIGINT, "^sigprog: error: Halted\n$"}, {SIGHUP, "^sigprog: error: Interrupt \\(1\\)\n$"},
        {SIGTERM, "^$"}, {SIGPIPE, "^sigprog: error: Halted by a SIGPIPE.\n$"},
        {SIGXCPU, "^sigprog: error: Cpu Limit Exceeded\n$"}})
    EXPECT_EXIT((gen_init("sigprog", 0, 0), raise(sig)), testing::ExitedWithCode(2), err) << sig;
}

}  // namespace
