// Runs code with the foundation's gen_exit turned into an exception and what
// it prints on standard output and standard error captured, so that a test
// checks exact messages and exit statuses without ending its process.
#ifndef RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H
#define RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "indgen_string.h"
#include "indgeninit.h"

namespace testsupport {

struct GenExitCalled {  // thrown by the capturing gen_exit
  int status;
};

struct Captured {
  std::string out, err;  // standard output and error
  bool exited = false;   // gen_exit was called, with
  int status = 0;
};

// While alive, gen_exit throws GenExitCalled.
class ScopedThrowingExit {
 public:
  ScopedThrowingExit() : saved_(gen_exit) { gen_exit = [](int status) { throw GenExitCalled{status}; }; }
  ~ScopedThrowingExit() { gen_exit = saved_; }
  ScopedThrowingExit(const ScopedThrowingExit &) = delete;

 private:
  void (*saved_)(int);
};

// While alive, messages name this program (null: none).
class ScopedProgName {
 public:
  explicit ScopedProgName(const char *name) : saved_(gen_progname) { gen_progname = gen_copy(name); }
  ~ScopedProgName() { gen_free(std::exchange(gen_progname, saved_)); }
  ScopedProgName(const ScopedProgName &) = delete;

 private:
  char *saved_;
};

// Runs body with gen_exit replaced and both streams captured; the hooks come
// back afterwards, also when body throws something else.
inline Captured RunCapturing(const std::function<void()> &body) {
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

#endif  // RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H
