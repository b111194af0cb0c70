/*
 * indgen_host.cpp - processes, time, host facts and the environment: thin
 * wrappers round the system calls, plus the waiting of
 * gen_millisleep_or_select and the search for the fully qualified host name.
 */
#include "indgen_host.h"

#include <errno.h>
#include <netdb.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <unistd.h>
#if !defined(__sun)
#include <mntent.h>
#endif

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "indgen_string.h"
#include "indgeninit.h"

namespace {

/* The value limits fall back to when the caller gives 0 or less. */
constexpr int64_t kNoLimit = 0x7FFFFFFF;

char hostname[256];
char fqhostname[1024];

int64_t MillisecondsBetween(const struct timeval &from, const struct timeval &to) {
  return (static_cast<int64_t>(to.tv_sec) - from.tv_sec) * 1000 +
         (static_cast<int64_t>(to.tv_usec) - from.tv_usec) / 1000;
}

#if !defined(__sun)
/* The file system type of the mount that holds path, from the mount table:
 * the last entry whose mount point is on the same device.  Empty when
 * nothing matches. */
std::string FileSystemTypeOf(const char *path) {
  struct stat target;
  if (stat(path, &target) != 0) return std::string();
  FILE *table = setmntent("/proc/self/mounts", "r");
  if (table == nullptr) return std::string();
  std::string type;
  while (struct mntent *entry = getmntent(table)) {
    struct stat mount_point;
    if (stat(entry->mnt_dir, &mount_point) == 0 && mount_point.st_dev == target.st_dev)
      type = entry->mnt_type;
  }
  endmntent(table);
  return type;
}
#endif

}  // namespace

/* ---- Processes and time ---------------------------------------------- */

extern "C" int gen_system(const char *command) { return gen_systemex(command, ""); }

extern "C" int gen_systemex(const char *command, const char *flags) {
  if (command != nullptr && flags != nullptr && strchr(flags, 'q') != nullptr) {
    char *quiet = gen_concat(command, ">/dev/null");
    int status = system(quiet);
    gen_free(quiet);
    return status;
  }
  return system(command);
}

extern "C" int gen_execvp(const char *file, char *const argv[]) { return execvp(file, argv); }

extern "C" unsigned gen_sleep(unsigned seconds) { return sleep(seconds); }

extern "C" int gen_millisleep(int ms) {
  usleep(ms > 0 ? static_cast<useconds_t>(ms) * 1000 : 0);
  return 0;
}

extern "C" int gen_millisleep_or_select(int ms, int count, const int *fds) {
  fd_set readable;
  FD_ZERO(&readable);
  int highest = -1;
  for (int k = 0; fds != nullptr && k < count; k++) {
    if (fds[k] == -1) continue;
    if (fds[k] < 0 || fds[k] >= FD_SETSIZE) {
      errno = EINVAL;
      return -1;
    }
    FD_SET(fds[k], &readable);
    if (fds[k] > highest) highest = fds[k];
  }
  if (highest < 0) {
    gen_millisleep(ms);
    return ms;
  }
  int wait_ms = ms > 0 ? ms : 0;
  struct timeval before;
  gettimeofday(&before, nullptr);
  struct timeval timeout;
  timeout.tv_sec = wait_ms / 1000;
  timeout.tv_usec = (wait_ms % 1000) * 1000;
  if (select(highest + 1, &readable, nullptr, nullptr, &timeout) == 0) return ms;
  struct timeval after;
  gettimeofday(&after, nullptr);
  int64_t elapsed = MillisecondsBetween(before, after);
  if (elapsed < 1) elapsed = 1;
  if (elapsed > ms) elapsed = ms;
  return static_cast<int>(elapsed);
}

extern "C" int gen_yield(void) {
  sched_yield();
  return 0;
}

extern "C" int gen_nice(int increment) { return nice(increment); }

extern "C" int gen_doeslocalprocessexist(int pid) {
  return !(kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH);
}

extern "C" int gen_set_cpu_time_limit(int seconds) {
  int value = seconds > 0 ? seconds : static_cast<int>(kNoLimit);
  struct rlimit limit;
  if (getrlimit(RLIMIT_CPU, &limit) != 0) limit.rlim_max = RLIM_INFINITY;
  limit.rlim_cur = static_cast<rlim_t>(value);
  if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < limit.rlim_cur)
    limit.rlim_max = limit.rlim_cur;
  setrlimit(RLIMIT_CPU, &limit);
  return value;
}

extern "C" int64_t gen_set_memory_limit(int64_t bytes) {
  int64_t value = bytes > 0 ? bytes : kNoLimit;
  struct rlimit limit;
  limit.rlim_cur = static_cast<rlim_t>(value);
  limit.rlim_max = static_cast<rlim_t>(value);
  setrlimit(RLIMIT_AS, &limit);
  return value;
}

/* ---- Host facts --------------------------------------------------------- */

extern "C" const char *gen_gethostname(void) {
  gethostname(hostname, sizeof hostname);
  hostname[sizeof hostname - 1] = '\0';
  return hostname;
}

extern "C" const char *gen_getfullyqualifiedhostname(void) {
  if (fqhostname[0] != '\0') return fqhostname;
  strncpy(fqhostname, gen_gethostname(), sizeof fqhostname - 1);
  if (strchr(fqhostname, '.') != nullptr) return fqhostname;
  struct hostent *host = gethostbyname(fqhostname);
  if (host != nullptr && host->h_name != nullptr && host->h_name[0] != '\0') {
    strncpy(fqhostname, host->h_name, sizeof fqhostname - 1);
    fqhostname[sizeof fqhostname - 1] = '\0';
  }
  return fqhostname;
}

extern "C" char *gen_gethostosname(void) {
  struct utsname names;
  if (uname(&names) < 0) return nullptr;
  return gen_concat5(names.sysname, " ", names.release, " ", names.version);
}

extern "C" uint64_t gen_freediskspace(const char *path) {
  struct statvfs fs;
  if (path == nullptr || statvfs(path, &fs) != 0) return 0;
  return static_cast<uint64_t>(fs.f_bavail) * static_cast<uint64_t>(fs.f_frsize);
}

extern "C" int gen_in_clearcase_mvfs(const char *path) {
  struct statvfs fs;
  if (path == nullptr || statvfs(path, &fs) != 0) return 0;
#if defined(__sun)
  return strcmp(fs.f_basetype, "mvfs") == 0;
#else
  return FileSystemTypeOf(path) == "mvfs";
#endif
}

extern "C" int gen_truncate(const char *name, int64_t length) {
  return truncate(name, static_cast<off_t>(length));
}

extern "C" unsigned long gen_strtoul(const char *text, char **end, int base) {
  return strtoul(text, end, base);
}

/* ---- Environment -------------------------------------------------------- */

extern "C" const char *gen_getenv(const char *name, const char *fallback) {
  if (name == nullptr) return fallback;
  const char *value = getenv(name);
  return (value == nullptr || value[0] == '\0') ? fallback : value;
}

extern "C" const char *gen_get_env_variable(const char *name) {
  if (name == nullptr || name[0] == '\0') return nullptr;
  return gen_getenv(name, nullptr);
}

extern "C" int gen_put_env_variable(const char *name, const char *value) {
  if (name == nullptr || name[0] == '\0') return 0;
  char *setting = gen_concat3(name, "=", value != nullptr ? value : "");
  if (putenv(setting) != 0) {
    gen_free(setting);
    return 0;
  }
  /* A later setting of the same name replaces this one in the environment,
   * but a pointer from getenv may still point into it, so it is never
   * freed; the list keeps it reachable. */
  static std::vector<char *> *settings = new std::vector<char *>;
  settings->push_back(setting);
  return 1;
}
