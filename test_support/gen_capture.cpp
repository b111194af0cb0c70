// Hook replacement and output capture for tests; see gen_capture.h.
#include "gen_capture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "indgeninit.h"
#include "indgen_string.h"

namespace testsupport {

namespace {
void ThrowingExit(int status) { throw GenExitCalled{status}; }
}  // namespace

ScopedThrowingExit::ScopedThrowingExit() : saved_(gen_exit) { gen_exit = ThrowingExit; }
ScopedThrowingExit::~ScopedThrowingExit() { gen_exit = saved_; }

ScopedProgName::ScopedProgName(const char *name) : saved_(gen_progname) {
  gen_progname = gen_copy(name);
}
ScopedProgName::~ScopedProgName() {
  gen_free(gen_progname);
  gen_progname = saved_;
}

Captured RunCapturing(const std::function<void()> &body) {
  Captured result;
  ScopedThrowingExit exit_hook;
  fflush(stdout);
  fflush(stderr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  try {
    body();
  } catch (const GenExitCalled &exit_called) {
    result.exited = true;
    result.status = exit_called.status;
  } catch (...) {
    fflush(stdout);
    fflush(stderr);
    testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
    throw;
  }
  fflush(stdout);
  fflush(stderr);
  result.err = testing::internal::GetCapturedStderr();
  result.out = testing::internal::GetCapturedStdout();
  return result;
}

}  // namespace testsupport
