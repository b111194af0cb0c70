// Tests of the foundation floor: every message form byte for byte with its
// exit, counters and errno, the allocation limit, the scratch ring, program
// names and versions, assertions and signal handlers.
#include "indgeninit.h"

#include <gtest/gtest.h>

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

TEST(Messages, EveryFormByteForByte) {
  // What each row does, what it prints, its exit status (-1: none), the level it counts in gen_error_count
  // (-1: none), what it adds to gen_any_error, errno before and after, and the other message style.
  const struct {
    const char *what;
    std::function<void()> body;
    const char *err;
    int exit_status, level, any, errno_in, errno_out;
    bool calder = false;
  } rows[] = {
      {"errorexit 1", [] { gen_errorexit(1, "broken %d", 7); }, "tool: fatal: broken 7\n", 1, 2, 1, 0, 0},
      {"errorexit 0", [] { gen_errorexit(0, "done"); }, "tool: done\n", 0, 0, 1, 0, 0},
      {"format ends in newline", [] { gen_errorexit(1, "Failed %s.*.\n", "db"); },
       "tool: fatal: Failed db.*.\n", 1, 2, 1, 0, 0},
      {"argument ends in newline", [] { gen_warning("%s", "line\n"); }, "tool: warning: line\n\n",
       -1, 4, 0, EDOM, EDOM},
      {"empty format", [] { gen_info("%s", ""); }, "tool: info: \n", -1, 5, 0, 0, 0},
      {"error", [] { gen_error("e"); }, "tool: error: e\n", -1, 3, 1, 0, 0},
      {"printf", [] { gen_printf("plain %s", "text"); }, "plain text\n", -1, 6, 0, 0, 0},
      {"perror without errno", [] { gen_perror("open"); }, "tool: fatal: open\n", -1, 2, 1, 0, 0},
      {"perror", [] { gen_perror("open %s", "x"); },
       "tool: fatal: open x: No such file or directory\n", -1, 2, 1, ENOENT, 0},
      {"perror after newline", [] { gen_perror("line\n"); },
       "tool: fatal: line\n: Permission denied\n", -1, 2, 1, EACCES, 0},
      {"perrorexit 0", [] { gen_perrorexit(0, "gone"); }, "tool: fatal: gone\n", 0, 2, 1, 0, 0},
      {"successexit", [] { gen_successexit(); }, "", 0, -1, 0, 0, 0},
      {"out of memory", [] { gen_out_of_memory(); }, "tool: fatal: Out of memory\n", 3, -1, 0, 0, 0},
      {"allocation beyond int", [] { gen_allocate(nullptr, 65536, 32768); },
       "tool: fatal: Out of memory\n", 3, -1, 0, 0, 0},
      {"level outside the table", [] { DefaultMessage(50, "odd"); }, "tool: odd\n", -1, -1, 0, 0, 0},
      {"version 9", [] { gen_set_version(9); },
       "tool: error: Attempt to set version to an illegal value\n", -1, 3, 1, 0, 0},
      {"calder warning", [] { gen_warning("w"); }, "tool: WARNING: w\n", -1, 4, 0, 0, 0, true},
      {"calder level 0", [] { gen_errorexit(0, "z"); }, "tool: ERROR: z\n", 0, 0, 1, 0, 0, true},
      {"calder fatal", [] { gen_errorexit(2, "f"); }, "tool: ERROR: FATAL: f\n", 2, 2, 1, 0, 0, true},
  };
  ScopedProgName name("tool");
  for (const auto &row : rows) {
    const int level_before = row.level >= 0 ? gen_error_count[row.level] : 0, any_before = gen_any_error;
    int errno_out = -1;
    gen_calder_error_msgs = row.calder;
    Captured run = RunCapturing([&] {
      struct KeepErrno {  // also when the body exits
        int &out;
        ~KeepErrno() { out = errno; }
      } keep{errno_out};
      errno = row.errno_in;
      row.body();
    });
    gen_calder_error_msgs = 0;
    EXPECT_EQ(std::tuple(run.err, run.out, run.exited ? run.status : -1, errno_out),
              std::tuple(row.err, "", row.exit_status, row.errno_out)) << row.what;
    const int counted = row.level >= 0 ? gen_error_count[row.level] - level_before : 1;
    EXPECT_EQ(std::pair(counted, gen_any_error - any_before), std::pair(1, row.any)) << row.what;
  }
  for (const char *none : {static_cast<const char *>(nullptr), ""}) {
    ScopedProgName nameless(none);
    EXPECT_EQ(RunCapturing([] { gen_error("alone"); }).err, "error: alone\n");
  }
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
  EXPECT_EQ(gen_temp_copy(4, nullptr), nullptr);
  EXPECT_EQ(gen_get_zeroed_temp_buf(4, 0), nullptr);
}

TEST(Init, NamesAndVersions) {
  char *saved_prog = gen_progname, *saved_exec = gen_execname;
  gen_progname = gen_execname = nullptr;
  gen_init("/usr/local/bin/ravelog///", 0, 0);
  EXPECT_EQ(gen_execname + std::string("|") + gen_getprogname(), "/usr/local/bin/ravelog|ravelog");
  gen_changeprogname("other");
  EXPECT_STREQ(gen_progname, "other");
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
