// Runs code with the foundation's gen_exit turned into an exception and what
// it prints on standard output and standard error captured, so that a test
// checks exact messages and exit statuses without ending its process.
#ifndef RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H
#define RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H

#include <functional>
#include <string>

namespace testsupport {

struct GenExitCalled {  // thrown by the capturing gen_exit
  int status;
};

struct Captured {
  std::string out, err;  // standard output and error
  bool exited = false;   // gen_exit was called, with
  int status = 0;
};

// Runs body with gen_exit replaced and both streams captured; the hooks come
// back afterwards, also when body throws something else.
Captured RunCapturing(const std::function<void()> &body);

// While alive, gen_exit throws GenExitCalled.
class ScopedThrowingExit {
 public:
  ScopedThrowingExit();
  ~ScopedThrowingExit();
  ScopedThrowingExit(const ScopedThrowingExit &) = delete;

 private:
  void (*saved_)(int);
};

// While alive, messages name this program (null: none).
class ScopedProgName {
 public:
  explicit ScopedProgName(const char *name);
  ~ScopedProgName();
  ScopedProgName(const ScopedProgName &) = delete;

 private:
  char *saved_;
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H
