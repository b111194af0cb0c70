// Hook replacement and output capture for tests; see gen_capture.h.
#include "gen_capture.h"

#include <gtest/gtest.h>

#include "indgen_string.h"
#include "indgeninit.h"

namespace testsupport {

ScopedThrowingExit::ScopedThrowingExit() : saved_(gen_exit) { gen_exit = [](int status) { throw GenExitCalled{status}; }; }
ScopedThrowingExit::~ScopedThrowingExit() { gen_exit = saved_; }

ScopedProgName::ScopedProgName(const char *name) : saved_(gen_progname) { gen_progname = gen_copy(name); }
ScopedProgName::~ScopedProgName() {
  gen_free(gen_progname);
  gen_progname = saved_;
}

Captured RunCapturing(const std::function<void()> &body) {
  Captured result;
  ScopedThrowingExit exitHook;
  fflush(stdout);
  fflush(stderr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  auto collect = [&result] {
    fflush(stdout);
    fflush(stderr);
    result.err = testing::internal::GetCapturedStderr();
    result.out = testing::internal::GetCapturedStdout();
  };
  try {
    body();
  } catch (const GenExitCalled &called) {
    result.exited = true;
    result.status = called.status;
  } catch (...) {
    collect();
    throw;
  }
  collect();
  return result;
}

}  // namespace testsupport
