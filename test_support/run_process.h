// Runs a program as a child process for end-to-end tests; what it wrote on
// standard output and standard error, and how it ended.
#ifndef RAVELOG_TEST_SUPPORT_RUN_PROCESS_H
#define RAVELOG_TEST_SUPPORT_RUN_PROCESS_H

#include <string>
#include <vector>

namespace testsupport {

struct ProcessResult {
  std::string out, err;
  int status = -1;  // the exit status; -1 when it didn't exit normally
};

// `path` with argv (argv[0] included) in directory cwd (empty: this one),
// standard input from /dev/null.
ProcessResult RunProcess(const std::string &path, const std::vector<std::string> &argv, const std::string &cwd = "");

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_RUN_PROCESS_H
