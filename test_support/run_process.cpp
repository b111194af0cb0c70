// Child processes for end-to-end tests; see run_process.h.  Output goes to
// anonymous temporary files, so a child that writes much can't block on a
// full pipe.
#include "run_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace testsupport {
namespace {

std::string ReadAll(FILE *file) {
  std::string bytes;
  rewind(file);
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, file)) > 0) bytes.append(buffer, n);
  return bytes;
}

}  // namespace

ProcessResult RunProcess(const std::string &path, const std::vector<std::string> &argv,
                         const std::string &cwd) {
  FILE *out = tmpfile();
  FILE *err = tmpfile();
  if (out == nullptr || err == nullptr) throw std::runtime_error("tmpfile failed");
  std::vector<char *> args;
  for (const std::string &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
  args.push_back(nullptr);

  fflush(stdout);
  fflush(stderr);
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    const int null_in = open("/dev/null", O_RDONLY);
    if (null_in >= 0) dup2(null_in, 0);
    dup2(fileno(out), 1);
    dup2(fileno(err), 2);
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
    execv(path.c_str(), args.data());
    _exit(127);
  }
  int wait_status = 0;
  while (waitpid(pid, &wait_status, 0) < 0) {
  }
  ProcessResult result;
  if (WIFEXITED(wait_status)) result.status = WEXITSTATUS(wait_status);
  if (WIFSIGNALED(wait_status)) result.signal = WTERMSIG(wait_status);
  result.out = ReadAll(out);
  result.err = ReadAll(err);
  fclose(out);
  fclose(err);
  return result;
}

}  // namespace testsupport
