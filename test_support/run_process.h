// Runs a program as a child process for end-to-end tests: `path` with argv
// (argv[0] included) in directory cwd (empty: this one), standard input from
// /dev/null; what it wrote on standard output and standard error, through
// anonymous temporary files so that a child that writes much can't block on
// a pipe, and its exit status (-1 when it didn't exit normally).
#ifndef RAVELOG_TEST_SUPPORT_RUN_PROCESS_H
#define RAVELOG_TEST_SUPPORT_RUN_PROCESS_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace testsupport {

struct ProcessResult {
  std::string out, err;
  int status = -1;
};

inline ProcessResult RunProcess(const std::string &path, const std::vector<std::string> &argv, const std::string &cwd = "") {
  FILE *files[2] = {tmpfile(), tmpfile()};
  if (files[0] == nullptr || files[1] == nullptr) throw std::runtime_error("tmpfile failed");
  std::vector<char *> args;
  for (const std::string &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
  args.push_back(nullptr);
  fflush(stdout);
  fflush(stderr);
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    const int in = open("/dev/null", O_RDONLY);
    if (in < 0 || dup2(in, 0) < 0 || dup2(fileno(files[0]), 1) < 0 || dup2(fileno(files[1]), 2) < 0) _exit(126);
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
    execv(path.c_str(), args.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) continue;
  ProcessResult result;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  for (int i = 0; i < 2; i++) {
    rewind(files[i]);
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, files[i])) > 0;) (i == 0 ? result.out : result.err).append(buffer, n);
    fclose(files[i]);
  }
  return result;
}

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_RUN_PROCESS_H
