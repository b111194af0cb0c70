// Tests of the foundation floor: program names, the message layer with its
// prefixes, counters and newline rules, exits, the allocators, the scratch
// ring, string arrays, versions, assertions and signal handlers.
#include "indgeninit.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "gen_capture.h"
#include "indgen_fileops.h"
#include "indgen_string.h"
#include "indview.h"
#include "temp_dir.h"

using testsupport::Captured;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;

namespace {

// The scratch ring is shared by the whole process; every test in this file
// uses ring size 4 so that the ring's length stays 4.
constexpr int kRing = 4;

TEST(TempBufRing, FifthCallReusesTheFirstBuffer) {
  void *first = gen_get_temp_buf(kRing, 10);
  void *second = gen_get_temp_buf(kRing, 10);
  void *third = gen_get_temp_buf(kRing, 10);
  void *fourth = gen_get_temp_buf(kRing, 10);
  void *fifth = gen_get_temp_buf(kRing, 10);
  EXPECT_EQ(fifth, first);
  EXPECT_NE(second, first);
  EXPECT_NE(third, second);
  EXPECT_NE(fourth, third);
}

TEST(TempBufRing, ZeroSizeGivesNullAndDoesNotAdvance) {
  void *a = gen_get_temp_buf(kRing, 8);
  EXPECT_EQ(gen_get_temp_buf(kRing, 0), nullptr);
  for (int i = 0; i < kRing - 1; i++) gen_get_temp_buf(kRing, 8);
  EXPECT_EQ(gen_get_temp_buf(kRing, 8), a);
}

TEST(TempBufRing, GrowsASlotAndZeroesOnRequest) {
  char *small = static_cast<char *>(gen_get_temp_buf(kRing, 4));
  memset(small, 'x', 4);
  for (int i = 0; i < kRing - 1; i++) gen_get_temp_buf(kRing, 4);
  char *big = static_cast<char *>(gen_get_zeroed_temp_buf(kRing, 4096));
  ASSERT_NE(big, nullptr);
  for (int i = 0; i < 4096; i++) ASSERT_EQ(big[i], 0) << "byte " << i;
  char *copy = gen_temp_copy(kRing, "hello");
  EXPECT_STREQ(copy, "hello");
  EXPECT_EQ(gen_temp_copy(kRing, nullptr), nullptr);
}

TEST(Messages, FatalErrorLineHasNameAndPrefix) {
  ScopedProgName name("tool");
  int fatal_before = gen_error_count[2];
  int any_before = gen_any_error;
  Captured run = RunCapturing([] { gen_errorexit(1, "broken %d", 7); });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "tool: fatal: broken 7\n");
  EXPECT_EQ(gen_error_count[2], fatal_before + 1);
  EXPECT_EQ(gen_any_error, any_before + 1);
}

TEST(Messages, ErrorExitWithStatusZeroHasNoPrefixButCounts) {
  ScopedProgName name("tool");
  int level0_before = gen_error_count[0];
  int any_before = gen_any_error;
  Captured run = RunCapturing([] { gen_errorexit(0, "done"); });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "tool: done\n");
  EXPECT_EQ(gen_error_count[0], level0_before + 1);
  EXPECT_EQ(gen_any_error, any_before + 1);
}

TEST(Messages, FormatEndingInNewlineGetsNoSecond) {
  ScopedProgName name("tool");
  Captured run = RunCapturing([] { gen_errorexit(1, "Failed %s.*.\n", "db"); });
  EXPECT_EQ(run.err, "tool: fatal: Failed db.*.\n");
  // Only the format counts: an argument that ends in a newline still gets one.
  run = RunCapturing([] { gen_warning("%s", "line\n"); });
  EXPECT_EQ(run.err, "tool: warning: line\n\n");
  // The empty format has no last character, so a newline follows.
  run = RunCapturing([] { gen_info("%s", ""); });
  EXPECT_EQ(run.err, "tool: info: \n");
}

TEST(Messages, LevelsAndPrefixes) {
  ScopedProgName name("tool");
  int warnings = gen_error_count[4];
  int any_before = gen_any_error;
  Captured run = RunCapturing([] {
    gen_error("e");
    gen_warning("w");
    gen_info("i");
  });
  EXPECT_FALSE(run.exited);
  EXPECT_EQ(run.err, "tool: error: e\ntool: warning: w\ntool: info: i\n");
  EXPECT_EQ(gen_error_count[4], warnings + 1);
  EXPECT_EQ(gen_any_error, any_before + 1);  // only the error counts as one
}

TEST(Messages, PrintfHasNeitherNameNorPrefix) {
  ScopedProgName name("tool");
  int level6 = gen_error_count[6];
  int any_before = gen_any_error;
  Captured run = RunCapturing([] { gen_printf("plain %s", "text"); });
  EXPECT_EQ(run.err, "plain text\n");
  EXPECT_EQ(gen_error_count[6], level6 + 1);
  EXPECT_EQ(gen_any_error, any_before);
}

TEST(Messages, NoProgramNameBeforeStart) {
  ScopedProgName name(nullptr);
  Captured run = RunCapturing([] { gen_error("alone"); });
  EXPECT_EQ(run.err, "error: alone\n");
  ScopedProgName empty("");
  run = RunCapturing([] { gen_error("alone"); });
  EXPECT_EQ(run.err, "error: alone\n");
}

TEST(Messages, PerrorAddsTheSystemTextAndClearsErrno) {
  ScopedProgName name("tool");
  Captured run = RunCapturing([] {
    errno = 0;
    gen_perror("open");
  });
  EXPECT_EQ(run.err, "tool: fatal: open\n");
  int after = -1;
  run = RunCapturing([&after] {
    errno = ENOENT;
    gen_perror("open %s", "x");
    after = errno;
  });
  EXPECT_EQ(run.err, std::string("tool: fatal: open x: ") + strerror(ENOENT) + "\n");
  EXPECT_EQ(after, 0);
  EXPECT_FALSE(run.exited);
  // A format that ends in a newline leaves the system text on its own line.
  run = RunCapturing([] {
    errno = EACCES;
    gen_perror("line\n");
  });
  EXPECT_EQ(run.err, std::string("tool: fatal: line\n: ") + strerror(EACCES) + "\n");
}

TEST(Messages, PerrorExitUsesFatalWhateverTheStatus) {
  ScopedProgName name("tool");
  Captured run = RunCapturing([] {
    errno = 0;
    gen_perrorexit(0, "gone");
  });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "tool: fatal: gone\n");
}

TEST(Messages, CalderPrefixes) {
  ScopedProgName name("tool");
  gen_calder_error_msgs = 1;
  Captured run = RunCapturing([] {
    gen_warning("w");
    gen_errorexit(0, "z");
  });
  gen_calder_error_msgs = 0;
  EXPECT_EQ(run.err, "tool: WARNING: w\ntool: ERROR: z\n");
}

TEST(Messages, LevelOutsideTheTablePrintsWithoutPrefixOrCount) {
  ScopedProgName name("tool");
  int any_before = gen_any_error;
  Captured run = RunCapturing([] {
    va_list none{};
    gen_default_domessage(50, "odd", none);
  });
  EXPECT_EQ(run.err, "tool: odd\n");
  EXPECT_EQ(gen_any_error, any_before);
}

TEST(Messages, ReplacedHookReceivesCodeAndText) {
  static unsigned seen_code;
  static std::string seen_text;
  gen_domessage_func saved = gen_domessage;
  gen_domessage = [](unsigned code, const char *format, va_list args) {
    char buffer[64];
    vsnprintf(buffer, sizeof buffer, format, args);
    seen_code = code;
    seen_text = buffer;
  };
  gen_warning("n=%d", 5);
  gen_domessage = saved;
  EXPECT_EQ(seen_code, 4u);
  EXPECT_EQ(seen_text, "n=5");
}

TEST(Exit, SuccessExitCallsTheHookWithZero) {
  Captured run = RunCapturing([] { gen_successexit(); });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
}

TEST(Exit, OutOfMemoryWritesTheFixedLineAndExitsWithThree) {
  ScopedProgName name("tool");
  int any_before = gen_any_error;
  Captured run = RunCapturing([] { gen_out_of_memory(); });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "tool: fatal: Out of memory\n");
  EXPECT_EQ(gen_any_error, any_before);
}

TEST(Memory, DefaultAllocatorsFollowTheirZeroRules) {
  EXPECT_EQ(gen_default_alloc(0, 16), nullptr);
  unsigned char *block = static_cast<unsigned char *>(gen_default_alloc(4, 4));
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 16; i++) EXPECT_EQ(block[i], 0);
  EXPECT_EQ(gen_default_realloc(block, 0), nullptr);  // frees block
  unsigned char *fresh = static_cast<unsigned char *>(gen_default_realloc(nullptr, 8));
  ASSERT_NE(fresh, nullptr);
  for (int i = 0; i < 8; i++) EXPECT_EQ(fresh[i], 0);
  fresh = static_cast<unsigned char *>(gen_allocate(fresh, 4, 8));
  fresh[31] = 1;
  gen_free(fresh);
  gen_free(nullptr);
}

TEST(Memory, StructCopy) {
  const int value[3] = {1, 2, 3};
  int *copy = static_cast<int *>(gen_structcopy(value, sizeof value));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, value);
  EXPECT_EQ(copy[2], 3);
  gen_free(copy);
  EXPECT_EQ(gen_structcopy(nullptr, 4), nullptr);
}

TEST(StringArrays, AddAndFree) {
  char **array;
  int count;
  gen_strarray_init(&array, &count);
  EXPECT_EQ(array, nullptr);
  EXPECT_EQ(count, 0);
  gen_strarray_add_str(&array, &count, "one");
  gen_strarray_add_strn(&array, &count, "twofold", 3);
  ASSERT_EQ(count, 2);
  EXPECT_STREQ(array[0], "one");
  EXPECT_STREQ(array[1], "two");
  gen_strarray_free(&array, &count);
  EXPECT_EQ(array, nullptr);
  EXPECT_EQ(count, 0);
  gen_strarray_free(&array, &count);  // already null: left alone
}

TEST(Versions, SetWithinAndBeyondTheLimit) {
  int saved = gen_get_version();
  gen_set_version(8);
  EXPECT_EQ(gen_get_version(), 8);
  EXPECT_TRUE(gen_is_at_least_version(8));
  EXPECT_FALSE(gen_is_at_least_version(9));
  EXPECT_TRUE(gen_is_at_most_version(8));
  EXPECT_FALSE(gen_is_at_most_version(7));
  ScopedProgName name("tool");
  Captured run = RunCapturing([] { gen_set_version(9); });
  EXPECT_EQ(run.err, "tool: error: Attempt to set version to an illegal value\n");
  EXPECT_EQ(gen_get_version(), 8);
  gen_set_version(saved);
}

TEST(Init, ProgramNamesLoseTrailingSlashesAndDirectory) {
  char *saved_prog = gen_progname;
  char *saved_exec = gen_execname;
  gen_progname = nullptr;
  gen_execname = nullptr;
  gen_init("/usr/local/bin/ravelog///", 0, 0);
  EXPECT_STREQ(gen_execname, "/usr/local/bin/ravelog");
  EXPECT_STREQ(gen_progname, "ravelog");
  EXPECT_STREQ(gen_getprogname(), "ravelog");
  gen_changeprogname("other");
  EXPECT_STREQ(gen_progname, "other");
  gen_free(gen_progname);
  gen_free(gen_execname);
  gen_progname = saved_prog;
  gen_execname = saved_exec;
  EXPECT_EQ(bigendian_host, 0);  // this project builds on little-endian hosts
}

TEST(Init, DestructReleasesNamesOnce) {
  EXPECT_EXIT(
      {
        gen_init("dir/prog", 0, 0);
        gen_destruct();
        if (gen_progname != nullptr || gen_execname != nullptr) exit(5);
        gen_destruct();
        exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(Assert, PassingConditionReturns) { __Assert(1, "never", "f.c", 1, 0); }

TEST(AssertDeathTest, FailureLineAndStatus) {
  EXPECT_EXIT(__Assert(0, "a > b", "file.c", 12, 3), testing::ExitedWithCode(1),
              "^Assertion \\(a > b\\) \\[3\\] failed in 'file.c' on line 12");
  EXPECT_EXIT(__Assert(0, "x", "file.c", 9, 0), testing::ExitedWithCode(1),
              "^Assertion failed in 'file.c' on line 9");
}

TEST(SignalDeathTest, HandlersPrintAndExitWithTwo) {
  EXPECT_EXIT(
      {
        gen_init("sigprog", 0, 0);
        raise(SIGINT);
      },
      testing::ExitedWithCode(2), "sigprog: error: Halted\n");
  EXPECT_EXIT(
      {
        gen_init("sigprog", 0, 0);
        raise(SIGHUP);
      },
      testing::ExitedWithCode(2), "sigprog: error: Interrupt \\(1\\)\n");
  EXPECT_EXIT(
      {
        gen_init("sigprog", 0, 0);
        raise(SIGTERM);
      },
      testing::ExitedWithCode(2), "^$");
  EXPECT_EXIT(
      {
        gen_init("sigprog", 0, 0);
        raise(SIGPIPE);
      },
      testing::ExitedWithCode(2), "sigprog: error: Halted by a SIGPIPE.\n");
  EXPECT_EXIT(
      {
        gen_init("sigprog", 0, 0);
        raise(SIGXCPU);
      },
      testing::ExitedWithCode(2), "sigprog: error: Cpu Limit Exceeded\n");
}

TEST(ShortForms, StrnequalComparesFoldedOverNCharacters) {
  EXPECT_TRUE(gen_strnequal("-h", "-H", 2));
  EXPECT_TRUE(gen_strnequal("-help", "-h", 2));
  EXPECT_TRUE(gen_strnequal("abc", "ab", 2));
  EXPECT_FALSE(gen_strnequal("a", "ab", 2));
  EXPECT_FALSE(gen_strnequal("-d", "-h", 2));
  EXPECT_TRUE(gen_strnequal(nullptr, nullptr, 2));
  EXPECT_FALSE(gen_strnequal("a", nullptr, 2));
  EXPECT_TRUE(gen_strnequal("x", "y", 0));
}

TEST(ShortForms, MissingFileHasSizeMinusOneAndNoStream) {
  testsupport::TempDir dir;
  ScopedProgName name("tool");
  Captured run = RunCapturing([&] {
    EXPECT_EQ(gen_filesize(dir.file("missing").c_str()), -1);
    EXPECT_EQ(gen_fopen(dir.file("missing").c_str(), "rb"), nullptr);
    EXPECT_EQ(gen_fopen(nullptr, "rb"), nullptr);
  });
  EXPECT_EQ(run.err, "");
  ASSERT_TRUE(testsupport::WriteFileBytes(dir.file("five"), "12345"));
  EXPECT_EQ(gen_filesize(dir.file("five").c_str()), 5);
}

TEST(TempDirChoice, TakesTmpdirWhenWritableElsePreferred) {
  testsupport::TempDir dir;
  const char *old = getenv("TMPDIR");
  std::string saved = old ? old : "";
  setenv("TMPDIR", dir.path().c_str(), 1);
  EXPECT_STREQ(gen_default_temp_dir("/nonexistent-dir"), dir.path().c_str());
  EXPECT_STREQ(gen_default_temp_dir(nullptr), dir.path().c_str());  // cached
  unsetenv("TMPDIR");
  EXPECT_STREQ(gen_default_temp_dir(dir.path().c_str()), dir.path().c_str());
  const char *fallback = gen_default_temp_dir("/nonexistent-dir");
  EXPECT_TRUE(strcmp(fallback, "/var/tmp/") == 0 || strcmp(fallback, "/tmp") == 0);
  if (old) setenv("TMPDIR", saved.c_str(), 1);
}

}  // namespace
