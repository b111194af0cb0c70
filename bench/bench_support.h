// What the benchmarks share: the directory they work in, and a program run
// as a child process with its wall time, processor time and peak memory.
#ifndef RAVELOG_BENCH_SUPPORT_H
#define RAVELOG_BENCH_SUPPORT_H

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace benchsupport {

// BENCH_DIR (default: the temporary directory) / name, made if need be.
inline std::string WorkDirectory(const std::string &name) {
  const char *chosen = getenv("BENCH_DIR");
  std::filesystem::path dir =
      chosen != nullptr ? std::filesystem::path(chosen) : std::filesystem::temp_directory_path();
  dir /= name;
  std::filesystem::create_directories(dir);
  return dir.string();
}

struct ChildRun {
  bool ok = false;         // exited with status 0
  long maxRssKb = 0;       // the child's peak resident size
  double cpuSeconds = 0;   // user + system time of the child
  double wallSeconds = 0;  // from fork to the child's end
};

// Runs argv (argv[0] the program's path) with standard output thrown away.
inline ChildRun RunChild(const std::vector<std::string> &argv) {
  ChildRun run;
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid < 0) return run;
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, STDOUT_FILENO);
    std::vector<char *> args;
    for (const std::string &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) return run;
  run.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.maxRssKb = usage.ru_maxrss;
  run.cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                   static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  return run;
}

}  // namespace benchsupport

#endif  // RAVELOG_BENCH_SUPPORT_H
