// Test vocabulary for code that speaks through the foundation's hooks: runs a
// piece of code with gen_exit turned into an exception, and captures what it
// printed on standard output and standard error, so a test can check exact
// messages and exit statuses without ending the test process.
#ifndef RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H
#define RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H

#include <functional>
#include <string>

namespace testsupport {

// Thrown by the capturing gen_exit in place of ending the process.
struct GenExitCalled {
  int status;
};

// What a captured run printed and how it ended.
struct Captured {
  std::string out;       // standard output
  std::string err;       // standard error
  bool exited = false;   // gen_exit was called
  int status = 0;        // its status, when exited
};

// Runs body with gen_exit replaced and both output streams captured.  The
// hooks are restored afterwards, also when body throws something else.
Captured RunCapturing(const std::function<void()> &body);

// While alive, gen_exit throws GenExitCalled; the old hook comes back at
// destruction.
class ScopedThrowingExit {
 public:
  ScopedThrowingExit();
  ~ScopedThrowingExit();
  ScopedThrowingExit(const ScopedThrowingExit &) = delete;
  ScopedThrowingExit &operator=(const ScopedThrowingExit &) = delete;

 private:
  void (*saved_)(int);
};

// Sets the program name used in messages for the lifetime of the object
// (null for none) and restores the previous one.
class ScopedProgName {
 public:
  explicit ScopedProgName(const char *name);
  ~ScopedProgName();
  ScopedProgName(const ScopedProgName &) = delete;
  ScopedProgName &operator=(const ScopedProgName &) = delete;

 private:
  char *saved_;
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_GEN_CAPTURE_H
