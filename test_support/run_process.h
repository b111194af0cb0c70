// Runs a program as a child process for end-to-end tests and collects what
// it wrote on standard output and standard error, and how it ended.
#ifndef RAVELOG_TEST_SUPPORT_RUN_PROCESS_H
#define RAVELOG_TEST_SUPPORT_RUN_PROCESS_H

#include <string>
#include <vector>

namespace testsupport {

struct ProcessResult {
  std::string out;     // standard output, whole
  std::string err;     // standard error, whole
  int status = -1;     // exit status; -1 when it didn't exit normally
  int signal = 0;      // the signal that ended it, if one did
};

// Runs the program at `path` with the argument vector `argv` (argv[0]
// included, as the program will see it) in directory `cwd` (empty: the
// current one), standard input closed to /dev/null, and waits for it.
ProcessResult RunProcess(const std::string &path, const std::vector<std::string> &argv,
                         const std::string &cwd = "");

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_RUN_PROCESS_H
